package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.TmqKciLibrary;

import java.io.File;
import java.io.IOException;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.TimeUnit;

/** Everything that the doctor looks at, in order: the files first, without opening any library. */
final class Examination {
    private static final String CLIENT_ENTRY = "KciGetRtlTable";
    private static final String BRIDGE_ENTRY = "Java_com_kestrune_tmqkci_TmqKciInterface__1initialize";
    private static final String ACCEPTED = "product 1, versions 6.7 to 6.9.999";
    private static final String STRICT_STACKS = "2.41";
    private static final String LINE_BREAK = "\u001F";
    private static final int PROBE_SECONDS = 60;
    private static final byte[] MESSAGE_MAGIC = {(byte) 0xDE, (byte) 0xAD, (byte) 0xBE, (byte) 0xEF};
    private static final Map<Integer, String> SIGNALS = Map.ofEntries(Map.entry(1, "HUP"), Map.entry(2, "INT"),
            Map.entry(3, "QUIT"), Map.entry(4, "ILL"), Map.entry(5, "TRAP"), Map.entry(6, "ABRT"), Map.entry(7, "BUS"),
            Map.entry(8, "FPE"), Map.entry(10, "USR1"), Map.entry(11, "SEGV"), Map.entry(12, "USR2"),
            Map.entry(13, "PIPE"), Map.entry(14, "ALRM"), Map.entry(15, "TERM"), Map.entry(17, "CHLD"),
            Map.entry(25, "XFSZ"));

    private String installation = System.getenv("KESTRUNE");
    private final List<Finding> findings = new ArrayList<>();
    private boolean fits32Bit;
    private boolean linkedFound;
    private boolean rpcFound;
    private boolean loginPossible;

    List<Finding> findings() {
        return findings;
    }

    /** Whether the client library could be initialized, so that a login could be tried. */
    boolean isLoginPossible() {
        return loginPossible;
    }

    void run() {
        java();
        installation();
        bridge();
        linkedFound = clientLibrary("lnk");
        rpcFound = clientLibrary("rpc");
        if (!linkedFound && !rpcFound) {
            findings.add(Finding.failure("client library", "there is none that could be opened",
                    installation == null ? "set KESTRUNE to the database installation's folder"
                            : "see whether KESTRUNE, KCIRTL_BASELIBNAME and KCIRTL_VERSION are what they should be"));
        }
        Map<String, String> probed = fits32Bit ? probe() : Map.of();
        initialization(probed);
        signals(probed);
        messages(probed.get("message"));
        stackPrinter();
        limits();
        locale();
    }

    private void java() {
        String text = System.getProperty("java.version") + " in " + System.getProperty("java.home");
        try {
            ElfFile self = ElfFile.of(Path.of("/proc/self/exe"));
            fits32Bit = self.bits == 32 && self.machine == ElfFile.MACHINE_386;
            text += ", " + self.kind();
        } catch (IOException unreadable) {
            text += ", of unknown kind: " + unreadable.getMessage();
        }
        findings.add(fits32Bit ? Finding.ok("Java", text) : Finding.failure("Java", text,
                "use a 32-bit (i386) Java 17 or later: --java HOME or JAVA32_HOME names it"));
    }

    private void installation() {
        try {
            if (installation != null && !Files.isDirectory(Path.of(installation))) {
                findings.add(Finding.failure("KESTRUNE", installation + " is no folder",
                        "set KESTRUNE to the database installation's folder"));
            }
        } catch (InvalidPathException unnameable) {
            findings.add(Finding.failure("KESTRUNE", "the folder's name does not exist in the locale's encoding",
                    "set LC_ALL=C.UTF-8"));
            installation = null;
        }
    }

    private void bridge() {
        Set<String> places = new LinkedHashSet<>();
        String property = System.getProperty(TmqKciLibrary.PROPERTY);
        if (property != null && !property.isBlank()) {
            places.add(property);
        }
        if (installation != null && !installation.isBlank()) {
            places.add(installation + "/lib/" + TmqKciLibrary.FILE_NAME);
        }
        for (String folder : System.getProperty("java.library.path", "").split(File.pathSeparator)) {
            places.add(folder + "/" + TmqKciLibrary.FILE_NAME);
        }
        List<String> absent = new ArrayList<>();
        for (String place : places) {
            if (Files.exists(Path.of(place))) {
                library("bridge", Path.of(place), BRIDGE_ENTRY);
                return;
            }
            absent.add(place);
        }
        findings.add(Finding.failure("bridge", "not in " + String.join(", ", absent),
                "set KESTRUNE, or name the file with -D" + TmqKciLibrary.PROPERTY + "=FILE"));
    }

    /** Every place of the client library of one flavour; whether one of them can be opened. */
    private boolean clientLibrary(String flavour) {
        String name = "lib" + orDefault(System.getenv("KCIRTL_BASELIBNAME"), "kci") + flavour
                + orDefault(System.getenv("KCIRTL_VERSION"), "67") + ".so";
        String subject = "client library " + name;
        List<Path> places = new ArrayList<>();
        if (installation != null && !installation.isBlank()) {
            places.add(Path.of(installation, "lib", name));
        }
        Libraries.folders().forEach(folder -> places.add(folder.resolve(name)));
        boolean usable = false;
        boolean found = false;
        for (Path place : places) {
            if (Files.exists(place)) {
                boolean fit = library(subject, place, CLIENT_ENTRY);
                usable |= fit;
                found = true;
            }
        }
        if (!found) {
            List<String> tried = places.stream().map(place -> place.getParent().toString()).distinct().toList();
            findings.add(Finding.note(subject, "not in " + String.join(", ", tried)));
        }
        return usable;
    }

    private static String orDefault(String value, String otherwise) {
        return value == null || value.isEmpty() ? otherwise : value;
    }

    private boolean library(String subject, Path file, String entry) {
        ElfFile elf;
        try {
            elf = ElfFile.of(file);
        } catch (IOException unfit) {
            findings.add(Finding.failure(subject, file + ": " + unfit.getMessage(), "install it anew"));
            return false;
        }
        String text = file + ": " + elf.kind();
        if (elf.bits != 32 || elf.machine != ElfFile.MACHINE_386) {
            findings.add(Finding.failure(subject, text, "a 32-bit (i386) library is needed"));
            return false;
        }
        List<String> lacking = Libraries.lacking(elf);
        if (!lacking.isEmpty()) {
            findings.add(Finding.failure(subject, text + ", needs " + String.join(" and ", lacking)
                    + ", which this system lacks", Libraries.INSTALL_C_LIBRARY
                    + ", and add the folders of other libraries to LD_LIBRARY_PATH"));
            return false;
        }
        if (!elf.exports.isEmpty() && !elf.exports.contains(entry)) {
            findings.add(Finding.failure(subject, text + ", does not export " + entry, "it is another library"));
            return false;
        }
        text += ", needs " + String.join(" ", elf.needed) + " up to GLIBC " + Libraries.newest(elf.versionsNeeded)
                + " (here " + Libraries.cLibraryVersion(elf) + "), exports " + elf.exports.size() + " names";
        return stack(subject, text, elf);
    }

    private boolean stack(String subject, String text, ElfFile elf) {
        if (elf.stack == ElfFile.Stack.PLAIN) {
            findings.add(Finding.ok(subject, text + ", plain stack"));
            return true;
        }
        text += elf.stack == ElfFile.Stack.EXECUTABLE ? ", asks for an executable stack"
                : ", has no stack header, which asks for an executable stack";
        String tunables = System.getenv("GLIBC_TUNABLES");
        boolean allowed = tunables != null && tunables.contains("glibc.rtld.execstack=2");
        String version = Libraries.cLibraryVersion(elf);
        if (version != null && Libraries.byVersion().compare(version, STRICT_STACKS) >= 0 && !allowed) {
            findings.add(Finding.failure(subject, text + ", which this C library refuses",
                    "set GLIBC_TUNABLES=glibc.rtld.execstack=2, or clear the mark in a copy with "
                            + "\"patchelf --clear-execstack\""));
            return false;
        }
        findings.add(Finding.warning(subject, text + ": thread stacks become executable and lose their guard pages",
                "clear the mark with \"patchelf --clear-execstack\" in a copy, if the maker agrees"));
        return true;
    }

    /** What opening the libraries tells, from a process of its own. */
    private Map<String, String> probe() {
        Map<String, String> told = new LinkedHashMap<>();
        try {
            Path folder = Files.createTempDirectory("tmqkci");
            Path output = folder.resolve("output");
            Path crashReport = folder.resolve("crash");
            try {
                Process process = new ProcessBuilder(probeCommand(crashReport)).redirectOutput(output.toFile())
                        .redirectError(ProcessBuilder.Redirect.DISCARD).start();
                boolean ended = process.waitFor(PROBE_SECONDS, TimeUnit.SECONDS);
                process.destroyForcibly();
                told.put("end", ended ? "ended with status " + process.exitValue()
                        : "had not ended after " + PROBE_SECONDS + " seconds");
                for (String line : new String(Files.readAllBytes(output), StandardCharsets.UTF_8).split("\n")) {
                    String[] parts = line.split("\t", 2);
                    if (parts.length == 2) {
                        told.put(parts[0], parts[1].replace(LINE_BREAK, "\n"));
                    }
                }
            } finally {
                Files.deleteIfExists(output);
                Files.deleteIfExists(crashReport);
                Files.delete(folder);
            }
        } catch (IOException failed) {
            told.put("error", "the probe could not be run: " + failed.getMessage());
        } catch (InterruptedException interrupt) {
            Thread.currentThread().interrupt();
        }
        return told;
    }

    private List<String> probeCommand(Path crashReport) {
        List<String> command = new ArrayList<>(List.of(System.getProperty("java.home") + "/bin/java",
                "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-XX:-CreateCoredumpOnCrash",
                "-XX:ErrorFile=" + crashReport, "-Dfile.encoding=UTF-8", "-cp", System.getProperty("java.class.path")));
        for (String property : List.of(TmqKciLibrary.PROPERTY, "java.library.path")) {
            if (System.getProperty(property) != null) {
                command.add(1, "-D" + property + "=" + System.getProperty(property));
            }
        }
        command.addAll(List.of(Probe.class.getName(), linkedFound || !rpcFound ? "linked" : "rpc"));
        return command;
    }

    private void initialization(Map<String, String> probed) {
        String subject = "initialization";
        loginPossible = probed.containsKey("version");
        if (loginPossible) {
            findings.add(Finding.ok(subject, "levels, product and version accepted: client library "
                    + probed.get("version") + " (accepted: " + ACCEPTED + ")"));
        } else if (!fits32Bit) {
            findings.add(Finding.failure(subject, "not tried: it takes a 32-bit Java", "see above"));
        } else if (probed.containsKey("error")) {
            findings.add(Finding.failure(subject, probed.get("error"), "accepted are " + ACCEPTED
                    + "; what stands above tells of the files"));
        } else {
            findings.add(Finding.failure(subject, "the process that opened the libraries "
                    + probed.get("end"), "see whether the client library fits this system"));
        }
    }

    private void signals(Map<String, String> probed) {
        boolean chained = Files.exists(Path.of("/proc/self/maps")) && mapsHold("libjsig.so");
        findings.add(Finding.note("libjsig", chained ? "preloaded: handlers set later are chained behind those of Java"
                : "not preloaded: a handler set later takes the place of Java's"));
        if (probed.containsKey("signals")) {
            long before = Long.parseUnsignedLong(probed.get("signals"), 16);
            findings.add(Finding.note("signals of Java", names(before)));
            if (probed.containsKey("signalsAfter")) {
                long added = Long.parseUnsignedLong(probed.get("signalsAfter"), 16) & ~before;
                findings.add(Finding.note("signals of the libraries",
                        added == 0 ? "none beside those of Java" : names(added)));
            }
        }
    }

    private static boolean mapsHold(String name) {
        try {
            return Files.readString(Path.of("/proc/self/maps")).contains(name);
        } catch (IOException unreadable) {
            return false;
        }
    }

    private static String names(long mask) {
        List<String> names = new ArrayList<>();
        for (int signal = 1; signal <= Long.SIZE; ++signal) {
            if ((mask >>> (signal - 1) & 1) != 0) {
                names.add(SIGNALS.getOrDefault(signal, Integer.toString(signal)));
            }
        }
        return names.isEmpty() ? "none" : String.join(" ", names);
    }

    private void messages(String text) {
        String named = System.getenv("KESTRUNE_LANG");
        if (installation == null && named == null) {
            findings.add(Finding.warning("message file", "neither KESTRUNE nor KESTRUNE_LANG names one",
                    "set KESTRUNE, for the texts of errors"));
            return;
        }
        if (named == null) {
            Path file = Path.of(installation, "sys", "english67.err");
            try (java.io.InputStream in = Files.newInputStream(file)) {
                if (!java.util.Arrays.equals(in.readNBytes(MESSAGE_MAGIC.length), MESSAGE_MAGIC)) {
                    findings.add(Finding.failure("message file", file + " is no message file", "install it anew"));
                    return;
                }
            } catch (IOException absent) {
                findings.add(Finding.warning("message file", "there is no " + file,
                        "errors show without what the catalogue says; copy the file there"));
                return;
            }
            named = file.toString();
        }
        if (text != null && text.startsWith("[")) {
            findings.add(Finding.warning("message file", named + " has no text for error 2010, or cannot be used",
                    "examine it with \"errmsgc --check\""));
        } else {
            findings.add(text == null ? Finding.note("message file", named + ", not opened")
                    : Finding.ok("message file", named + ", opened and valid"));
        }
    }

    private void stackPrinter() {
        Path printer = Path.of(installation == null ? "/" : installation, "bin", "gstack");
        if (installation != null && Files.isExecutable(printer)) {
            findings.add(Finding.ok("stack printer", printer.toString()));
        } else {
            findings.add(Finding.note("stack printer", (installation == null ? "KESTRUNE is not set"
                    : "there is no " + printer) + ": fault reports come without C stacks"));
        }
    }

    private void limits() {
        String core = limit("Max core file size");
        String files = limit("Max open files");
        String pattern = firstLine("/proc/sys/kernel/core_pattern");
        String text = "limit " + core + ", kernel pattern \"" + pattern + "\"";
        findings.add(core.equals("0") ? Finding.note("core files", text + ": none are written; \"ulimit -c unlimited\" "
                + "changes that") : Finding.ok("core files", text));
        findings.add(Finding.ok("open files", "limit " + files));
    }

    private static String limit(String name) {
        try {
            for (String line : Files.readAllLines(Path.of("/proc/self/limits"))) {
                if (line.startsWith(name)) {
                    return line.substring(name.length()).strip().split("\\s+")[0];
                }
            }
        } catch (IOException unreadable) {
            // Told as unknown.
        }
        return "unknown";
    }

    private static String firstLine(String file) {
        try {
            return Files.readString(Path.of(file)).strip();
        } catch (IOException unreadable) {
            return "unknown";
        }
    }

    private void locale() {
        String text = "LC_ALL=" + orDefault(System.getenv("LC_ALL"), "") + " LANG="
                + orDefault(System.getenv("LANG"), "") + ", encoding " + Charset.defaultCharset();
        findings.add(Charset.defaultCharset().equals(StandardCharsets.UTF_8) ? Finding.ok("locale", text)
                : Finding.note("locale", text + "; the console " + (Terminals.charset().equals(StandardCharsets.UTF_8)
                        ? "uses UTF-8" : "uses it") + ", LC_ALL=C.UTF-8 names UTF-8 for all"));
    }
}
