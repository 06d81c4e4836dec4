package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciBridge;
import com.kestrune.tmqkci.KciBridgeOptions;
import com.kestrune.tmqkci.KciMessages;
import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciLibrary;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * The part of the doctor that opens the libraries, in a process of its own, since a library may end its process. Prints
 * lines of a key, a tab and a value.
 */
final class Probe {
    private static final long SYSTEM_CATEGORY = 3613;
    private static final int MESSAGE_NOT_UNDERSTOOD = 2010;

    private Probe() {
    }

    /**
     * Runs the probe.
     *
     * @param args "linked" or "rpc"
     */
    public static void main(String[] args) throws IOException {
        print("signals", caughtSignals());
        try {
            TmqKciLibrary.load();
            print("bridge", TmqKciLibrary.location());
            print("message", KciMessages.text(SYSTEM_CATEGORY, MESSAGE_NOT_UNDERSTOOD));
            KciBridge.initialize(KciBridgeOptions.DEFAULTS.withLinked(args[0].equals("linked")));
            print("version", KciBridge.clientVersion());
        } catch (UnsatisfiedLinkError | TmqKciException error) {
            print("error", String.valueOf(error.getMessage()));
        }
        print("signalsAfter", caughtSignals());
        // What client libraries do at the end of the process is not asked for.
        Runtime.getRuntime().halt(0);
    }

    private static void print(String key, String value) {
        System.out.println(key + "\t" + value.strip().replace('\n', '\u001F'));
    }

    /** The kernel's mask of signals that have a handler, in hexadecimal digits. */
    private static String caughtSignals() throws IOException {
        return Files.readAllLines(Path.of("/proc/self/status")).stream().filter(line -> line.startsWith("SigCgt:"))
                .findFirst().map(line -> line.substring("SigCgt:".length()).strip()).orElse("0");
    }
}
