package com.kestrune.tmqkci;

import com.kestrune.tmqkci.internal.Dependencies;
import com.kestrune.tmqkci.internal.ElfHeader;
import com.kestrune.tmqkci.internal.LibraryFile;
import com.kestrune.tmqkci.internal.Places;

import java.io.File;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Finds the causes of failed attempts at loading the bridge, and tells them with a remedy. */
final class LoadFailure {
    /**
     * A place where the bridge was looked for: a file that could not be loaded, or the reason why there was none.
     * The error is null if nothing was tried.
     */
    record Attempt(String place, File file, String reason, UnsatisfiedLinkError error) {
    }

    // The dynamic linker begins with the name of the library that it could not open. What follows is in the user's
    // language. A path there names a library that was found, and was unfit.
    private static final Pattern MISSING_DEPENDENCY = Pattern.compile("([^/\\s:]+\\.so[^/\\s:]*): .*", Pattern.DOTALL);
    private static final Pattern C_LIBRARY_VERSION = Pattern.compile("\\bGLIBC_[0-9.]+");

    private final ElfHeader process = ElfHeader.ofThisProcess();
    private final Set<String> remedies = new LinkedHashSet<>();

    private LoadFailure() {
    }

    /** The error that tells all about the attempts; their own errors are its suppressed ones. */
    static UnsatisfiedLinkError of(List<Attempt> attempts) {
        UnsatisfiedLinkError error = new UnsatisfiedLinkError(new LoadFailure().text(attempts));
        for (Attempt attempt : attempts) {
            if (attempt.error != null) {
                error.addSuppressed(attempt.error);
            }
        }
        return error;
    }

    private String text(List<Attempt> attempts) {
        StringBuilder text = new StringBuilder("The bridge ").append(Places.BRIDGE);
        text.append(" could not be loaded. Tried in this order:");
        for (Attempt attempt : attempts) {
            text.append("\n  - ").append(attempt.place).append(": ");
            if (attempt.file != null) {
                text.append(attempt.file).append(": ").append(causeOf(attempt.file, attempt.error));
            } else {
                text.append(attempt.reason);
            }
        }
        text.append("\nWhat to do:");
        if (!process.isServed()) {
            text.append("\n  - There is no bridge for this Java, ").append(System.getProperty("java.home"))
                    .append(", which is ").append(process)
                    .append(": run the program with a 64-bit (x86-64) or a 32-bit (i386) Java.");
        }
        for (String remedy : remedies) {
            text.append("\n  - ").append(remedy);
        }
        text.append("\n  - Name the file with -D").append(Places.BRIDGE_PROPERTY).append("=/path/to/")
                .append(Places.BRIDGE)
                .append(", or set the environment variable KESTRUNE to the installation's folder.");
        return text.toString();
    }

    private String causeOf(File file, UnsatisfiedLinkError error) {
        LibraryFile seen = LibraryFile.of(file, false);
        if (!file.exists()) {
            adviseOnInstallation(file);
        }
        if (seen.remedy() != null) {
            advise(seen.remedy());
        }
        if (seen.cause() != null) {
            return seen.cause();
        }
        return linkerCause(String.valueOf(error.getMessage()).replaceFirst("^" + Pattern.quote(file + ": "), ""));
    }

    private void advise(String remedy) {
        remedies.add(Character.toUpperCase(remedy.charAt(0)) + remedy.substring(1) + ".");
    }

    /** What to do where the file is missing in an installation that has one for the other kind of Java. */
    private void adviseOnInstallation(File file) {
        File folder = file.getParentFile();
        if (folder.getName().equals(process.libraryFolder())) {
            String other = process.bits() == 64 ? "lib" : "lib64";
            if (new File(new File(folder.getParentFile(), other), file.getName()).exists()) {
                remedies.add(folder.getParent() + " holds the bridge for a " + (process.bits() == 64 ? 32 : 64)
                        + "-bit Java only: run the program with such a one, or install the bridge for " + process
                        + ".");
            }
        }
    }

    private String linkerCause(String text) {
        if (text.contains(OtherCopy.SAME_FILE)) {
            remedies.add("Load the bridge once in a process: put tmqkci.jar where one class loader, common to all its"
                    + " users, finds it.");
            return text;
        }
        Matcher dependency = MISSING_DEPENDENCY.matcher(text);
        if (dependency.matches()) {
            String name = dependency.group(1);
            advise(Dependencies.installing(name, process));
            return "it needs the library " + name + ", which is missing (" + text + ")";
        }
        Matcher version = C_LIBRARY_VERSION.matcher(text);
        if (version.find()) {
            remedies.add("Use a system with a newer C library, or a bridge that was built for this one.");
            return "it needs a newer C library, with " + version.group() + " (" + text + ")";
        }
        return text;
    }
}
