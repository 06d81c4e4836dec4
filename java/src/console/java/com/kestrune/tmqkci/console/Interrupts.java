package com.kestrune.tmqkci.console;

/** Where Ctrl-C goes: to what is under way; to nothing, if nothing is. */
final class Interrupts {
    private Runnable target;

    /** From the signal's thread. */
    synchronized void signal() {
        if (target != null) {
            target.run();
        }
    }

    /** What Ctrl-C does from now on, until {@link #end} with the answer. */
    synchronized Runnable begin(Runnable action) {
        Runnable former = target;
        target = action;
        return former;
    }

    /** An interrupt that came too late for what has ended is forgotten with it. */
    synchronized void end(Runnable former) {
        target = former;
        Thread.interrupted();
    }
}
