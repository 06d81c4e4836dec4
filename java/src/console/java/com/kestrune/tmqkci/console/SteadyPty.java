package com.kestrune.tmqkci.console;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;

import org.jline.terminal.Attributes;
import org.jline.terminal.Size;
import org.jline.terminal.impl.ExecPty;
import org.jline.terminal.spi.Pty;

/**
 * The terminal's settings, remembered: reading and writing them takes a program ({@code stty}), which Ctrl-C ends as it
 * ends everything of the foreground, so that is done seldom, and again where it was cut off.
 */
final class SteadyPty implements Pty {
    @FunctionalInterface
    private interface Request<T> {
        T run() throws IOException;
    }

    private static final int ATTEMPTS = 10;
    private static final Size USUAL_SIZE = new Size(80, 24);

    private final Pty pty = ExecPty.current();
    private volatile Attributes attributes;
    private volatile Size size;

    SteadyPty() throws IOException {
    }

    /** The terminal may have another size now. */
    void resized() {
        size = null;
    }

    /** Somebody else may have changed the settings. */
    void forget() {
        attributes = null;
    }

    @Override
    public Attributes getAttr() throws IOException {
        Attributes known = attributes;
        if (known == null) {
            known = insist(pty::getAttr);
            attributes = known;
        }
        return new Attributes(known);
    }

    @Override
    public void setAttr(Attributes wanted) throws IOException {
        Attributes known = attributes;
        if (known == null || !known.toString().equals(wanted.toString())) {
            insist(() -> {
                pty.setAttr(wanted);
                return wanted;
            });
            attributes = new Attributes(wanted);
        }
    }

    /** A terminal that does not know its size has the usual one. */
    @Override
    public Size getSize() throws IOException {
        Size known = size;
        if (known == null) {
            known = insist(pty::getSize);
            known = known.getColumns() > 0 && known.getRows() > 0 ? known : USUAL_SIZE;
            size = known;
        }
        return known;
    }

    @Override
    public void setSize(Size wanted) {
        size = wanted;
    }

    private static <T> T insist(Request<T> request) throws IOException {
        boolean interrupted = false;
        try {
            for (int attempt = 1;; ++attempt) {
                try {
                    interrupted |= Thread.interrupted();
                    return request.run();
                } catch (IOException cutOff) {
                    if (attempt == ATTEMPTS) {
                        throw cutOff;
                    }
                }
            }
        } finally {
            if (interrupted) {
                Thread.currentThread().interrupt();
            }
        }
    }

    @Override
    public InputStream getMasterInput() throws IOException {
        return pty.getMasterInput();
    }

    @Override
    public OutputStream getMasterOutput() throws IOException {
        return pty.getMasterOutput();
    }

    @Override
    public InputStream getSlaveInput() throws IOException {
        return pty.getSlaveInput();
    }

    @Override
    public OutputStream getSlaveOutput() throws IOException {
        return pty.getSlaveOutput();
    }

    @Override
    public void close() throws IOException {
        pty.close();
    }
}
