package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.internal.Access;
import com.kestrune.tmqkci.internal.Dependencies;
import com.kestrune.tmqkci.internal.ElfFile;
import com.kestrune.tmqkci.internal.ElfHeader;
import com.kestrune.tmqkci.internal.LibraryFile;
import com.kestrune.tmqkci.internal.Places;
import com.kestrune.tmqkci.internal.Places.Place;

import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Looks at the files of the bridge and of the client library, without opening them as libraries. */
final class LibraryFiles {
    private static final String CLIENT_ENTRY = "KciGetRtlTable";
    private static final String HOST_ENTRY = "KciRemoteServe";
    private static final String BRIDGE_ENTRY = "Java_com_kestrune_tmqkci_TmqKciInterface__1initialize";
    private static final String STRICT_STACKS = "2.41";

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
        List<Path> places = new ArrayList<>();
        for (Place place : Places.ofBridge()) {
            if (place.file() != null) {
                places.add(place.file().toPath());
            }
        }
        ElfHeader process = ElfHeader.ofThisProcess();
        if (!Places.isSet(System.getProperty(Places.BRIDGE_PROPERTY)) && places.stream().noneMatch(Files::exists)
                && Places.class.getResource(process.jarFolder() + Places.BRIDGE) != null) {
            return Finding.ok("bridge", "the jar's copy for a " + process + " Java");
        }
        return first("bridge", places, BRIDGE_ENTRY, "set " + Places.INSTALLATION + ", or name the file with -D"
                + Places.BRIDGE_PROPERTY + "=FILE");
    }

    /** The client library of one flavour. */
    Finding client(String flavour) {
        String near = nearMiss(flavour);
        return first("client library " + Places.client(flavour), Places.ofClient(flavour, installation), CLIENT_ENTRY,
                near != null ? near
                : installation == null ? "set " + Places.INSTALLATION + " to the database installation's folder"
                : "see whether " + Places.INSTALLATION + ", " + Places.CLIENT_NAME + " and " + Places.CLIENT_VERSION
                        + " are what they should be");
    }

    /** What to set for a client library of another name that is there; null if there is none. */
    private String nearMiss(String flavour) {
        Pattern similar = Pattern.compile("lib(\\w*?)(lnk|rpc)([0-9]+)\\.so");
        List<String> found = new ArrayList<>();
        if (installation != null) {
            Path folder = installation.resolve(ElfHeader.ofThisProcess().libraryFolder());
            try (DirectoryStream<Path> files = Files.newDirectoryStream(folder, "lib*.so")) {
                for (Path file : files) {
                    Matcher parts = similar.matcher(file.getFileName().toString());
                    if (parts.matches()) {
                        List<String> changes = new ArrayList<>();
                        if (!parts.group(2).equals(flavour)) {
                            changes.add(flavour.equals("rpc") ? "leave out --rpc" : "give --rpc");
                        }
                        if (!parts.group(1).equals(Places.clientName())) {
                            changes.add("set " + Places.CLIENT_NAME + "=" + parts.group(1));
                        }
                        if (!parts.group(3).equals(Places.clientVersion())) {
                            changes.add("set " + Places.CLIENT_VERSION + "=" + parts.group(3));
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

    /** The first that can be opened; else what keeps the first that is there from it. */
    private Finding first(String subject, List<Path> places, String entry, String remedyOfAbsence) {
        String searched = String.join(", ", places.stream().map(place -> String.valueOf(place.getParent())).distinct()
                .toList());
        Finding unfit = null;
        for (Path place : places) {
            if (Access.toRead(place).exists()) {
                Finding found = library(subject, place, entry);
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
        return host == null ? "the client library in this process, " + ElfHeader.ofThisProcess() + ","
                : "the client library in a host process, " + host + ",";
    }

    private Finding library(String subject, Path file, String entry) {
        boolean isClient = entry.equals(CLIENT_ENTRY);
        LibraryFile seen = LibraryFile.of(file.toFile(), isClient);
        ElfFile elf = seen.elf();
        if (seen.cause() != null) {
            return Finding.failure(subject, file + ": " + seen.cause(), seen.remedy());
        }
        String text = file + ": " + elf.header();
        List<Dependencies.Lacking> lacking = Dependencies.lacking(elf);
        if (!lacking.isEmpty()) {
            return Finding.failure(subject, text + ", needs " + String.join(" and ", lacking.stream()
                    .map(Dependencies.Lacking::what).toList()) + ", which this system lacks",
                    String.join("; ", lacking.stream().map(Dependencies.Lacking::remedy).distinct().toList()));
        }
        if (!elf.exports().isEmpty() && !elf.exports().contains(entry)) {
            return Finding.failure(subject, text + ", does not export " + entry, "it is another library");
        }
        boolean isForeign = !elf.header().equals(ElfHeader.ofThisProcess());
        if (isClient && (isForeign || elf.exports().contains(HOST_ENTRY) || Places.isHostWanted())) {
            host = elf.header().toString();
        }
        text += ", needs " + String.join(" ", elf.needed()) + " up to GLIBC "
                + Dependencies.newest(elf.versionsNeeded()) + " (here " + Dependencies.cLibraryVersion(elf.header())
                + "), exports " + elf.exports().size() + " names";
        return stack(subject, text, elf);
    }

    private static Finding stack(String subject, String text, ElfFile elf) {
        if (elf.stack() == ElfFile.Stack.PLAIN) {
            return Finding.ok(subject, text + ", plain stack");
        }
        String wanted = text + (elf.stack() == ElfFile.Stack.EXECUTABLE ? ", asks for an executable stack"
                : ", has no stack header, which asks for an executable stack");
        String tunables = System.getenv("GLIBC_TUNABLES");
        boolean allowed = tunables != null && tunables.contains("glibc.rtld.execstack=2");
        String version = Dependencies.cLibraryVersion(elf.header());
        if (version != null && Dependencies.byVersion().compare(version, STRICT_STACKS) >= 0 && !allowed) {
            return Finding.failure(subject, wanted + ", which this C library refuses",
                    "set GLIBC_TUNABLES=glibc.rtld.execstack=2, or clear the mark in a copy with "
                            + "\"patchelf --clear-execstack\"");
        }
        return Finding.warning(subject, wanted + ": thread stacks become executable and lose their guard pages",
                "clear the mark with \"patchelf --clear-execstack\" in a copy, if the maker agrees");
    }
}
