package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.internal.Access;
import com.kestrune.tmqkci.internal.Places;

import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFileAttributes;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;

/** What the libraries find around them: signals, messages, stack printer, cache, limits, locale. */
final class Surroundings {
    private static final byte[] MESSAGE_MAGIC = {(byte) 0xDE, (byte) 0xAD, (byte) 0xBE, (byte) 0xEF};
    private static final Map<Integer, String> SIGNALS = Map.ofEntries(Map.entry(1, "HUP"), Map.entry(2, "INT"),
            Map.entry(3, "QUIT"), Map.entry(4, "ILL"), Map.entry(5, "TRAP"), Map.entry(6, "ABRT"), Map.entry(7, "BUS"),
            Map.entry(8, "FPE"), Map.entry(10, "USR1"), Map.entry(11, "SEGV"), Map.entry(12, "USR2"),
            Map.entry(13, "PIPE"), Map.entry(14, "ALRM"), Map.entry(15, "TERM"), Map.entry(17, "CHLD"),
            Map.entry(25, "XFSZ"));

    private final Path installation;
    private final List<Finding> findings;

    /** The installation's folder may be null. */
    Surroundings(Path installation, List<Finding> findings) {
        this.installation = installation;
        this.findings = findings;
    }

    void examine(Map<String, String> probed) {
        signals(probed);
        messages(probed.get("message"));
        stackPrinter();
        unpackedCopy();
        limits();
        locale();
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
        String subject = "message file";
        String named = System.getenv("KESTRUNE_LANG");
        if (installation == null && named == null) {
            findings.add(Finding.warning(subject, "neither KESTRUNE nor KESTRUNE_LANG names one",
                    "set KESTRUNE, for the texts of errors"));
            return;
        }
        Path file = named != null ? Path.of(named) : installation.resolve("sys").resolve("english67.err");
        Access access = Access.toRead(file);
        if (!access.exists()) {
            findings.add(Finding.warning(subject, "there is no " + file,
                    "errors show without what the catalogue says; copy the file there"));
        } else if (!access.isPermitted()) {
            findings.add(Finding.warning(subject, access.refusal(), access.remedy()));
        } else if (!isMessageFile(file)) {
            findings.add(Finding.failure(subject, file + " is no message file", "install it anew"));
        } else if (text != null && text.startsWith("[")) {
            findings.add(Finding.warning(subject, file + " has no text for error 2010, or cannot be used",
                    "examine it with \"errmsgc --check\""));
        } else {
            findings.add(text == null ? Finding.note(subject, file + ", not opened")
                    : Finding.ok(subject, file + ", opened and valid"));
        }
    }

    private static boolean isMessageFile(Path file) {
        try (InputStream in = Files.newInputStream(file)) {
            return Arrays.equals(in.readNBytes(MESSAGE_MAGIC.length), MESSAGE_MAGIC);
        } catch (IOException unreadable) {
            return false;
        }
    }

    /** It runs a debugger, which it looks for on the path. */
    private void stackPrinter() {
        String subject = "stack printer";
        Path printer = installation == null ? null : installation.resolve("bin").resolve("gstack");
        Access access = printer == null ? null : Access.toExecute(printer);
        String without = ": fault reports come without C stacks";
        if (access == null || !access.exists()) {
            findings.add(Finding.note(subject, (printer == null ? "KESTRUNE is not set" : "there is no " + printer)
                    + without));
        } else if (!access.isPermitted()) {
            findings.add(Finding.warning(subject, access.refusal() + without, access.remedy()));
        } else if (Arrays.stream(Places.variable("PATH", "").split(File.pathSeparator))
                .noneMatch(folder -> Files.isExecutable(Path.of(folder, "gdb")))) {
            findings.add(Finding.warning(subject, printer + " needs gdb, which is not on the PATH" + without,
                    "install gdb (Debian: apt-get install gdb)"));
        } else {
            findings.add(Finding.ok(subject, printer + ", with gdb"));
        }
    }

    /** Programs that name no library get one out of the jar, by way of a folder that only they may change. */
    private void unpackedCopy() {
        String subject = "unpacked copy";
        Path folder = Places.unpacked();
        try {
            PosixFileAttributes attributes = Files.readAttributes(folder, PosixFileAttributes.class,
                    LinkOption.NOFOLLOW_LINKS);
            String permissions = PosixFilePermissions.toString(attributes.permissions());
            String owner = attributes.owner().getName();
            String text = folder + " (" + permissions + ", of " + owner + ")";
            if (!attributes.isDirectory()) {
                findings.add(Finding.warning(subject, folder + " is no folder: the jar's copy of the library is "
                        + "unpacked anew each time", "remove it"));
            } else if (!owner.equals(System.getProperty("user.name")) || permissions.charAt(4) == 'w'
                    || permissions.charAt(7) == 'w') {
                findings.add(Finding.warning(subject, text + " is not this user's alone: the jar's copy of the library "
                        + "is unpacked elsewhere, anew each time", "remove it, or \"chown "
                        + System.getProperty("user.name") + "\" and \"chmod go-w\" it"));
            } else {
                findings.add(Finding.detail(subject, text));
            }
        } catch (IOException none) {
            findings.add(Finding.detail(subject, "none in " + folder));
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
        String text = "LC_ALL=" + Places.variable("LC_ALL", "") + " LANG="
                + Places.variable("LANG", "") + ", encoding " + Charset.defaultCharset();
        findings.add(Charset.defaultCharset().equals(StandardCharsets.UTF_8) ? Finding.ok("locale", text)
                : Finding.note("locale", text + "; the console " + (Terminals.charset().equals(StandardCharsets.UTF_8)
                        ? "uses UTF-8" : "uses it") + ", LC_ALL=C.UTF-8 names UTF-8 for all"));
    }
}
