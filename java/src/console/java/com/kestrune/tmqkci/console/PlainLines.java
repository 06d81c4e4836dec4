package com.kestrune.tmqkci.console;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;

import org.jline.utils.Signals;

/** Lines from a terminal without abilities, which edits them itself. */
final class PlainLines implements Prompt.Lines {
    private static final String INTERRUPT = "INT";

    private final Evaluator evaluator;
    private final BufferedReader in = new BufferedReader(new InputStreamReader(Terminals.in(), Terminals.charset()));
    private final Object formerHandler;
    private volatile String prompt;
    private volatile boolean dropped;

    PlainLines(Evaluator evaluator) {
        this.evaluator = evaluator;
        formerHandler = Signals.register(INTERRUPT, this::interrupt);
    }

    @Override
    public String read() {
        // The terminal has forgotten the line; a wait for another cannot be cut short.
        prompt = Prompt.first(evaluator);
        Runnable former = evaluator.interrupts.begin(this::drop);
        try {
            StringBuilder lines = new StringBuilder();
            dropped = false;
            ask(prompt);
            for (String line = in.readLine(); line != null; line = in.readLine()) {
                if (dropped) {
                    lines.setLength(0);
                    dropped = false;
                }
                lines.append(line);
                if (Source.isComplete(lines.toString())) {
                    return lines.toString();
                }
                lines.append('\n');
                ask(Prompt.FURTHER);
            }
            return null;
        } catch (IOException end) {
            return null;
        } finally {
            evaluator.interrupts.end(former);
        }
    }

    private void interrupt() {
        // The terminal has shown the key on the line.
        evaluator.out.stream().println();
        evaluator.interrupts.signal();
    }

    private void drop() {
        dropped = true;
        ask(prompt);
    }

    private void ask(String prompt) {
        evaluator.out.prompt(prompt);
    }

    @Override
    public void close() {
        Signals.unregister(INTERRUPT, formerHandler);
    }
}
