package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.TmqKciLibrary;

import java.io.File;
import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Looks at the files of the bridge and of the client library, without opening them as libraries. */
final class LibraryFiles {
    private static final String CLIENT_ENTRY = "KciGetRtlTable";
    private static final String HOST_ENTRY = "KciRemoteServe";
    private static final String BRIDGE_ENTRY = "Java_com_kestrune_tmqkci_TmqKciInterface__1initialize";
    private static final String STRICT_STACKS = "2.41";
    private static final String BASE = "KCIRTL_BASELIBNAME";
    private static final String VERSION = "KCIRTL_VERSION";

    private final Path installation;
    /** The machine of the process in which the client library is opened, if that is a host process; else null. */
    private String host;
    /** Where was searched. */
    final List<Finding> details = new ArrayList<>();

    /** The database installation's folder; null if there is none. */
    LibraryFiles(Path installation) {
        this.installation = installation;
    }

    Finding bridge() {
        Set<Path> places = new LinkedHashSet<>();
        String property = System.getProperty(TmqKciLibrary.PROPERTY);
        if (property != null && !property.isBlank()) {
            places.add(Path.of(property));
        }
        if (installation != null) {
            places.add(installation.resolve(ElfFile.libraryFolder()).resolve(TmqKciLibrary.FILE_NAME));
        }
        for (String folder : System.getProperty("java.library.path", "").split(File.pathSeparator)) {
            places.add(Path.of(folder, TmqKciLibrary.FILE_NAME));
        }
        return first("bridge", places, BRIDGE_ENTRY, "set KESTRUNE, or name the file with -D" + TmqKciLibrary.PROPERTY
                + "=FILE");
    }

    /** The client library of one flavour. */
    Finding client(String flavour) {
        String base = orDefault(System.getenv(BASE), "kci");
        String name = "lib" + base + flavour + orDefault(System.getenv(VERSION), "67") + ".so";
        Set<Path> places = new LinkedHashSet<>();
        if (installation != null) {
            places.add(installation.resolve(ElfFile.libraryFolder()).resolve(name));
            places.add(installation.resolve("lib").resolve(name));
        }
        Libraries.folders().forEach(folder -> places.add(folder.resolve(name)));
        String near = nearMiss(base, flavour);
        return first("client library " + name, places, CLIENT_ENTRY, near != null ? near
                : installation == null ? "set KESTRUNE to the database installation's folder"
                : "see whether KESTRUNE, " + BASE + " and " + VERSION + " are what they should be");
    }

    /** What to set for a client library of another name that is there; null if there is none. */
    private String nearMiss(String base, String flavour) {
        Pattern similar = Pattern.compile("lib(\\w*?)(lnk|rpc)([0-9]+)\\.so");
        List<String> found = new ArrayList<>();
        if (installation != null) {
            try (DirectoryStream<Path> files = Files.newDirectoryStream(installation.resolve(ElfFile.libraryFolder()), "lib*.so")) {
                for (Path file : files) {
                    Matcher parts = similar.matcher(file.getFileName().toString());
                    if (parts.matches()) {
                        List<String> changes = new ArrayList<>();
                        if (!parts.group(2).equals(flavour)) {
                            changes.add(flavour.equals("rpc") ? "leave out --rpc" : "give --rpc");
                        }
                        if (!parts.group(1).equals(base)) {
                            changes.add("set " + BASE + "=" + parts.group(1));
                        }
                        if (!parts.group(3).equals(orDefault(System.getenv(VERSION), "67"))) {
                            changes.add("set " + VERSION + "=" + parts.group(3));
                        }
                        found.add("for " + file.getFileName() + ", which is there, " + String.join(" and ", changes));
                    }
                }
            } catch (IOException unreadable) {
                return null;
            }
        }
        return found.isEmpty() ? null : String.join("; ", found);
    }

    /** Where the jar's copy of the library is unpacked to. */
    static Path cache() {
        String named = System.getenv("XDG_CACHE_HOME");
        return (named != null && named.startsWith("/") ? Path.of(named) : Path.of(orDefault(System.getenv("HOME"),
                System.getProperty("user.home")), ".cache")).resolve("tmqkci");
    }

    static String orDefault(String value, String otherwise) {
        return value == null || value.isEmpty() ? otherwise : value;
    }

    /** The first that can be opened; else what keeps the first that is there from it. */
    private Finding first(String subject, Set<Path> places, String entry, String remedyOfAbsence) {
        String searched = String.join(", ", places.stream().map(place -> String.valueOf(place.getParent())).distinct()
                .toList());
        Finding unfit = null;
        for (Path place : places) {
            Access access = Access.toRead(place);
            if (access.exists()) {
                Finding found = access.isPermitted() ? library(subject, place, entry)
                        : Finding.failure(subject, access.refusal(), access.remedy());
                if (!found.isFailure()) {
                    details.add(Finding.detail("places of the " + subject, searched));
                    return found;
                }
                // A system folder that is closed to this user is no reason, unless there is nothing else.
                unfit = unfit == null ? found : unfit;
            }
        }
        details.add(Finding.note("places of the " + subject, searched));
        return unfit != null ? unfit : Finding.failure(subject, "there is none that could be opened", remedyOfAbsence);
    }

    /** Where the client library that {@link #client} found is opened. */
    String way() {
        return host == null ? "the client library in this process, " + ElfFile.ofThisProcess().kind() + ","
                : "the client library in a host process, " + host + ",";
    }

    private Finding library(String subject, Path file, String entry) {
        ElfFile elf;
        try {
            elf = ElfFile.of(file);
        } catch (IOException unfit) {
            return Finding.failure(subject, file + ": " + unfit.getMessage(), "install it anew");
        }
        String text = file + ": " + elf.kind();
        ElfFile own = ElfFile.ofThisProcess();
        boolean isForeign = own != null && own.isServed() && (elf.bits != own.bits || elf.machine != own.machine);
        boolean isClient = entry.equals(CLIENT_ENTRY);
        if (isForeign && !(isClient && elf.isServed())) {
            return Finding.failure(subject, text, "a " + own.kind() + " library is needed, as Java is one");
        }
        List<Libraries.Lacking> lacking = Libraries.lacking(elf);
        if (!lacking.isEmpty()) {
            return Finding.failure(subject, text + ", needs " + String.join(" and ", lacking.stream()
                    .map(Libraries.Lacking::what).toList()) + ", which this system lacks",
                    String.join("; ", lacking.stream().map(Libraries.Lacking::remedy).distinct().toList()));
        }
        if (!elf.exports.isEmpty() && !elf.exports.contains(entry)) {
            return Finding.failure(subject, text + ", does not export " + entry, "it is another library");
        }
        if (isClient && (isForeign || elf.exports.contains(HOST_ENTRY) || "1".equals(System.getenv("KCIRTL_HOST")))) {
            host = elf.kind();
        }
        text += ", needs " + String.join(" ", elf.needed) + " up to GLIBC " + Libraries.newest(elf.versionsNeeded)
                + " (here " + Libraries.cLibraryVersion(elf) + "), exports " + elf.exports.size() + " names";
        return stack(subject, text, elf);
    }

    private static Finding stack(String subject, String text, ElfFile elf) {
        if (elf.stack == ElfFile.Stack.PLAIN) {
            return Finding.ok(subject, text + ", plain stack");
        }
        String wanted = text + (elf.stack == ElfFile.Stack.EXECUTABLE ? ", asks for an executable stack"
                : ", has no stack header, which asks for an executable stack");
        String tunables = System.getenv("GLIBC_TUNABLES");
        boolean allowed = tunables != null && tunables.contains("glibc.rtld.execstack=2");
        String version = Libraries.cLibraryVersion(elf);
        if (version != null && Libraries.byVersion().compare(version, STRICT_STACKS) >= 0 && !allowed) {
            return Finding.failure(subject, wanted + ", which this C library refuses",
                    "set GLIBC_TUNABLES=glibc.rtld.execstack=2, or clear the mark in a copy with "
                            + "\"patchelf --clear-execstack\"");
        }
        return Finding.warning(subject, wanted + ": thread stacks become executable and lose their guard pages",
                "clear the mark with \"patchelf --clear-execstack\" in a copy, if the maker agrees");
    }
}
