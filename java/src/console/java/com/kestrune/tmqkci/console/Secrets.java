package com.kestrune.tmqkci.console;

import java.io.Console;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;

/** Passwords, from a file, the environment or the terminal; never from an argument, which other users can see. */
final class Secrets {
    private Secrets() {
    }

    /** The password; null when none is given and nobody can be asked. */
    static char[] password(Path file, String variable, String prompt) throws IOException {
        if (file != null) {
            return firstLine(file);
        }
        String value = System.getenv(variable);
        if (value != null) {
            return value.toCharArray();
        }
        Console console = System.console();
        return console == null || prompt == null ? null : console.readPassword("%s", prompt);
    }

    private static char[] firstLine(Path file) throws IOException {
        byte[] bytes = Files.readAllBytes(file);
        CharBuffer text = StandardCharsets.UTF_8.decode(ByteBuffer.wrap(bytes));
        int length = 0;
        while (length < text.limit() && text.get(length) != '\n' && text.get(length) != '\r') {
            ++length;
        }
        char[] password = new char[length];
        text.get(password);
        Arrays.fill(bytes, (byte) 0);
        if (text.hasArray()) {
            Arrays.fill(text.array(), '\0');
        }
        return password;
    }
}
