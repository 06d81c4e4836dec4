package com.kestrune.tmqkci.console;

import java.io.PrintStream;

/** Shows on a terminal how far a long transfer is; short ones, and other streams, show nothing. */
final class Progress implements AutoCloseable {
    private static final long SILENT_NANOS = 500_000_000;
    private static final long BETWEEN_NANOS = 100_000_000;
    private static final String CLEAR_LINE = "\r\u001B[K";

    private final PrintStream err = Output.ERR.isTerminal() ? Output.ERR.stream() : null;
    private final String what;
    private long next = System.nanoTime() + SILENT_NANOS;
    private boolean shown;

    Progress(String what) {
        this.what = what;
    }

    void reached(long done, long all) {
        if (err != null && System.nanoTime() - next >= 0) {
            err.print(CLEAR_LINE + what + ": " + done + " of " + all);
            err.flush();
            next = System.nanoTime() + BETWEEN_NANOS;
            shown = true;
        }
    }

    @Override
    public void close() {
        if (shown) {
            err.print(CLEAR_LINE);
            err.flush();
        }
    }
}
