package com.kestrune.tmqkci.console;

import java.io.IOException;

import org.jline.terminal.Attributes;
import org.jline.terminal.impl.PosixSysTerminal;

/**
 * The terminal of the prompt. It takes each key as it comes, from begin to end, also while an expression is evaluated;
 * only the keys for signals keep their meaning.
 */
final class SteadyTerminal extends PosixSysTerminal {
    private final SteadyPty steady;
    private final Attributes usual;

    private SteadyTerminal(SteadyPty steady) throws IOException {
        super("tmqkci", System.getenv("TERM"), steady, Terminals.charset().name(), true, SignalHandler.SIG_DFL);
        this.steady = steady;
        usual = enterRawMode();
        // So that raise() hears of these at any time.
        handle(Signal.WINCH, signal -> { });
        handle(Signal.CONT, signal -> { });
    }

    static SteadyTerminal open() throws IOException {
        return new SteadyTerminal(new SteadyPty());
    }

    @Override
    public void raise(Signal signal) {
        if (signal == Signal.WINCH && steady != null) {
            steady.resized();
        } else if (signal == Signal.CONT && steady != null) {
            // Who ran in the foreground meanwhile may have left other settings.
            Attributes ours = getAttributes();
            steady.forget();
            setAttributes(ours);
        }
        super.raise(signal);
    }

    /** Gives the terminal to another program for as long as the action takes. */
    void lend(Runnable action) {
        Attributes ours = getAttributes();
        setAttributes(usual);
        try {
            action.run();
        } finally {
            steady.forget();
            setAttributes(ours);
            steady.resized();
        }
    }

    /** Restores the settings while Ctrl-C still does no harm. */
    @Override
    public void close() throws IOException {
        setAttributes(usual);
        super.close();
    }
}
