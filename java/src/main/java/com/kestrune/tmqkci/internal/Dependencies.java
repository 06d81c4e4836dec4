package com.kestrune.tmqkci.internal;

import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** What libraries need, and where the dynamic linker finds it, as far as that can be told without running it. */
public final class Dependencies {
    /**
     * What is missing.
     *
     * @param what a library or a version
     * @param remedy what brings it
     */
    public record Lacking(String what, String remedy) {
    }

    /** Debian's packages whose names do not follow from the library's. */
    private static final Map<String, String> PACKAGES = Map.of("libc.so.6", "libc6", "libm.so.6", "libc6", "libdl.so.2",
            "libc6", "libpthread.so.0", "libc6", "librt.so.1", "libc6", "libz.so.1", "zlib1g", "libgcc_s.so.1",
            "libgcc-s1");
    private static final List<String> SYSTEM_FOLDERS = List.of("/lib/i386-linux-gnu", "/usr/lib/i386-linux-gnu",
            "/lib32", "/usr/lib32", "/lib/x86_64-linux-gnu", "/usr/lib/x86_64-linux-gnu", "/lib64", "/usr/lib64",
            "/lib", "/usr/lib", "/usr/local/lib");
    private static final String VERSION_PREFIX = "GLIBC_";

    private Dependencies() {
    }

    /** The folders in which the dynamic linker looks. */
    public static List<Path> folders() {
        Set<Path> folders = new LinkedHashSet<>();
        String path = System.getenv("LD_LIBRARY_PATH");
        for (String folder : path == null ? new String[0] : path.split("[:;]")) {
            if (!folder.isEmpty()) {
                folders.add(Path.of(folder));
            }
        }
        SYSTEM_FOLDERS.forEach(folder -> folders.add(Path.of(folder)));
        addConfigured(Path.of("/etc/ld.so.conf.d"), folders);
        return List.copyOf(folders);
    }

    private static void addConfigured(Path configuration, Set<Path> folders) {
        List<String> lines = new ArrayList<>();
        try (DirectoryStream<Path> files = Files.newDirectoryStream(configuration, "*.conf")) {
            for (Path file : files) {
                lines.addAll(Files.readAllLines(file));
            }
        } catch (IOException none) {
            // Then there are no further folders.
        }
        lines.stream().map(String::strip).filter(line -> line.startsWith("/")).map(Path::of).forEach(folders::add);
    }

    /** The file that stands for a name, of the wanted machine; null if there is none. */
    private static Path find(String name, ElfHeader wanted) {
        for (Path folder : folders()) {
            Path file = folder.resolve(name);
            try {
                if (Files.isRegularFile(file)) {
                    if (wanted.equals(ElfHeader.of(file.toFile()))) {
                        return file;
                    }
                }
            } catch (IOException unfit) {
                // The dynamic linker passes over it, too.
            }
        }
        return null;
    }

    /** What a library needs and this system lacks: libraries, and a newer C library. */
    public static List<Lacking> lacking(ElfFile library) {
        List<Lacking> lacking = new ArrayList<>();
        Set<String> offered = new LinkedHashSet<>();
        for (String name : library.needed()) {
            Path file = find(name, library.header());
            if (file == null) {
                lacking.add(new Lacking("the library " + name, installing(name, library.header())));
                continue;
            }
            try {
                offered.addAll(ElfFile.of(file).versionsDefined());
            } catch (IOException vanished) {
                lacking.add(new Lacking("the library " + name, installing(name, library.header())));
            }
        }
        if (lacking.isEmpty()) {
            library.versionsNeeded().stream().filter(version -> version.startsWith(VERSION_PREFIX))
                    .filter(version -> !offered.contains(version)).max(byVersion())
                    .ifPresent(version -> lacking.add(new Lacking("a C library with " + version,
                            "the system is older than the library was made for: "
                                    + installing("libc.so.6", library.header()))));
        }
        return lacking;
    }

    /** How to get a library for programs of a machine. */
    public static String installing(String name, ElfHeader machine) {
        // A library's package has the name and the version of its file, with a hyphen between two digits.
        Matcher parts = Pattern.compile("(lib.+?)\\.so\\.([0-9.]+)").matcher(name);
        String named = !parts.matches() ? null : parts.group(1).replace('_', '-').toLowerCase(Locale.ROOT)
                + (Character.isDigit(parts.group(1).charAt(parts.group(1).length() - 1)) ? "-" : "") + parts.group(2);
        String wanted = PACKAGES.getOrDefault(name, named);
        String how = wanted == null ? "install the package that holds " + name : "install " + wanted;
        if (wanted != null && machine.bits() == 32) {
            how += " (Debian, on amd64: dpkg --add-architecture i386 && apt-get update && apt-get install " + wanted
                    + ":i386)";
        }
        return how + ", or add the folder of a " + machine.bits() + "-bit " + name + " to LD_LIBRARY_PATH";
    }

    /** The version of the C library for such a file, as "2.36"; null if there is none. */
    public static String cLibraryVersion(ElfHeader wanted) {
        Path file = find("libc.so.6", wanted);
        try {
            return file == null ? null : newest(ElfFile.of(file).versionsDefined());
        } catch (IOException unreadable) {
            return null;
        }
    }

    /** The newest C library version among symbol versions, as "2.36"; null if there is none. */
    public static String newest(Set<String> versions) {
        return versions.stream().filter(version -> version.matches(VERSION_PREFIX + "[0-9.]+")).max(byVersion())
                .map(version -> version.substring(VERSION_PREFIX.length())).orElse(null);
    }

    /** Compares versions by their numbers. */
    public static Comparator<String> byVersion() {
        return (a, b) -> {
            int[] left = numbers(a);
            int[] right = numbers(b);
            for (int i = 0; i < Math.min(left.length, right.length); ++i) {
                if (left[i] != right[i]) {
                    return Integer.compare(left[i], right[i]);
                }
            }
            return Integer.compare(left.length, right.length);
        };
    }

    private static int[] numbers(String version) {
        String digits = version.replaceAll("^[^0-9]*|[^0-9.].*$", "");
        return digits.isEmpty() ? new int[0] : java.util.stream.Stream.of(digits.split("\\."))
                .mapToInt(Integer::parseInt).toArray();
    }
}
