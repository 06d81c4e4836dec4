package com.kestrune.tmqkci.demo;

import com.kestrune.tmqkci.TmqKciException;

import java.io.BufferedReader;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;

/**
 * Without arguments, the tour. With -e and an expression, that expression's value. With -i, the values of the
 * expressions on the lines of standard input.
 */
final class Demo {
    private static final PrintStream OUT = stream(FileDescriptor.out);
    private static final PrintStream ERR = stream(FileDescriptor.err);

    private Demo() {
    }

    private static PrintStream stream(FileDescriptor file) {
        return new PrintStream(new FileOutputStream(file), true, StandardCharsets.UTF_8);
    }

    /**
     * Runs the program.
     *
     * @param args nothing, -e and an expression, or -i
     */
    public static void main(String[] args) throws IOException {
        boolean succeeded;
        try {
            Database.initialize();
            try (Database database = Database.login("guest", "guest")) {
                if (args.length == 0) {
                    new Tour(database, OUT).run();
                    succeeded = true;
                } else if (args[0].equals("-i")) {
                    interact(database);
                    succeeded = true;
                } else {
                    succeeded = evaluate(database, args[1]);
                }
            }
        } catch (TmqKciException error) {
            report(error);
            succeeded = false;
        }
        System.exit(succeeded ? 0 : 1);
    }

    private static void interact(Database database) throws IOException {
        boolean atTerminal = System.console() != null;
        if (atTerminal) {
            OUT.println("One expression a line; end with Ctrl-D.");
        }
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        for (;;) {
            if (atTerminal) {
                OUT.print("> ");
                OUT.flush();
            }
            String line = in.readLine();
            if (line == null) {
                break;
            }
            if (!line.isBlank()) {
                evaluate(database, line);
            }
        }
        if (atTerminal) {
            OUT.println();
        }
    }

    private static boolean evaluate(Database database, String expression) {
        try {
            OUT.println(database.print(database.run(expression)));
            return true;
        } catch (TmqKciException error) {
            report(error);
            return false;
        }
    }

    private static void report(TmqKciException error) {
        ERR.println("Error " + error.number + ": " + error.getMessage());
    }
}
