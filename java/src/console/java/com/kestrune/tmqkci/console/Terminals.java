package com.kestrune.tmqkci.console;

import java.io.FileDescriptor;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.nio.file.AccessDeniedException;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;

/** The standard streams: where they lead, and in which encoding. */
final class Terminals {
    static final int INPUT = 0;
    static final int OUTPUT = 1;
    static final int ERROR = 2;

    private Terminals() {
    }

    /** Whether a standard stream is a terminal; asked of the kernel, as no native helper is at hand. */
    static boolean isTerminal(int stream) {
        try {
            String target = Files.readSymbolicLink(Path.of("/proc/self/fd/" + stream)).toString();
            return target.startsWith("/dev/pts/") || target.startsWith("/dev/tty") || target.equals("/dev/console");
        } catch (IOException | UnsupportedOperationException unknown) {
            return false;
        }
    }

    /** The locale's encoding; UTF-8 where the locale names none but ASCII. */
    static Charset charset() {
        Charset locale = Charset.defaultCharset();
        return locale.equals(StandardCharsets.US_ASCII) ? StandardCharsets.UTF_8 : locale;
    }

    /** Why a file cannot be read, in words. */
    static String reason(IOException unreadable) {
        return unreadable instanceof NoSuchFileException ? "there is no such file"
                : unreadable instanceof AccessDeniedException ? "not permitted" : unreadable.getMessage();
    }

    static InputStream in() {
        return new FileInputStream(FileDescriptor.in);
    }
}
