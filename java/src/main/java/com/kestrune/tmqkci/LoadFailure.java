package com.kestrune.tmqkci;

import java.io.File;
import java.io.IOException;
import java.util.ArrayList;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Collects the failed attempts at loading the bridge, finds the cause of each, and tells them with a remedy. */
final class LoadFailure {
    // The dynamic linker begins with the name of the library that it could not open. What follows is in the user's
    // language. A path there names a library that was found, and was unfit.
    private static final Pattern MISSING_DEPENDENCY = Pattern.compile("([^/\\s:]+\\.so[^/\\s:]*): .*", Pattern.DOTALL);
    private static final Pattern C_LIBRARY_VERSION = Pattern.compile("\\bGLIBC_[0-9.]+");

    private final ElfHeader process = ElfHeader.ofThisProcess();
    private final List<String> attempts = new ArrayList<>();
    private final Set<String> remedies = new LinkedHashSet<>();
    private final List<UnsatisfiedLinkError> errors = new ArrayList<>();

    /** A place that was not tried, and why. */
    void skipped(String place, String reason) {
        attempts.add(place + ": " + reason);
    }

    /** A place that holds no library. */
    void missing(String place, String reason, UnsatisfiedLinkError error) {
        skipped(place, reason);
        errors.add(error);
    }

    /** A file that could not be loaded. */
    void failed(String place, File file, UnsatisfiedLinkError error) {
        attempts.add(place + ": " + file + ": " + causeOf(file, error));
        errors.add(error);
    }

    private String causeOf(File file, UnsatisfiedLinkError error) {
        if (!file.exists()) {
            return "there is no such file";
        }
        if (!file.isFile()) {
            return "it is not a file";
        }
        ElfHeader header;
        try {
            header = ElfHeader.of(file);
        } catch (IOException unreadable) {
            return "it cannot be read: " + unreadable.getMessage();
        }
        if (header == null) {
            return "it is not a shared library";
        }
        if (process != null && !header.equals(process)) {
            return "it is a " + header + " library and this Java is " + process;
        }
        return linkerCause(String.valueOf(error.getMessage()).replaceFirst("^" + Pattern.quote(file + ": "), ""));
    }

    private String linkerCause(String text) {
        Matcher dependency = MISSING_DEPENDENCY.matcher(text);
        if (dependency.matches()) {
            String name = dependency.group(1);
            remedies.add("Install the 32-bit (i386) package that contains " + name
                    + ", or add its folder to LD_LIBRARY_PATH.");
            return "it needs the library " + name + ", which is missing (" + text + ")";
        }
        Matcher version = C_LIBRARY_VERSION.matcher(text);
        if (version.find()) {
            remedies.add("Use a system with a newer C library, or a bridge that was built for this one.");
            return "it needs a newer C library, with " + version.group() + " (" + text + ")";
        }
        return text;
    }

    /** The error that tells all this; the errors of the attempts are its suppressed ones. */
    UnsatisfiedLinkError toError() {
        StringBuilder text = new StringBuilder("The bridge ").append(TmqKciLibrary.FILE_NAME);
        text.append(" could not be loaded. Tried in this order:");
        for (String attempt : attempts) {
            text.append("\n  - ").append(attempt);
        }
        text.append("\nWhat to do:");
        if (process != null && process.machine() != ElfHeader.MACHINE_386) {
            text.append("\n  - The bridge is a 32-bit (i386) library and this Java, ")
                    .append(System.getProperty("java.home")).append(", is ").append(process)
                    .append(": run the program with a 32-bit (i386) Java.");
        }
        for (String remedy : remedies) {
            text.append("\n  - ").append(remedy);
        }
        text.append("\n  - Name the file with -D").append(TmqKciLibrary.PROPERTY).append("=/path/to/")
                .append(TmqKciLibrary.FILE_NAME)
                .append(", or set the environment variable KESTRUNE to the installation's folder.");
        UnsatisfiedLinkError error = new UnsatisfiedLinkError(text.toString());
        errors.forEach(error::addSuppressed);
        return error;
    }
}
