package com.kestrune.tmqkci.demo;

import com.kestrune.tmqkci.TmqKciException;

import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;

/** The tour of the native methods. */
final class Demo {
    private Demo() {
    }

    /**
     * Runs the program.
     *
     * @param args {@code short} for the beginning of the tour alone
     */
    public static void main(String[] args) {
        boolean succeeded = true;
        try {
            Database.initialize();
            try (Database database = Database.login("guest", "guest")) {
                new Tour(database, new PrintStream(new FileOutputStream(FileDescriptor.out), true,
                        StandardCharsets.UTF_8)).run(args.length > 0 && args[0].equals("short"));
            }
        } catch (TmqKciException error) {
            System.err.println("Error " + error.number + ": " + error.getMessage());
            succeeded = false;
        }
        System.exit(succeeded ? 0 : 1);
    }
}
