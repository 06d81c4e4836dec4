package com.kestrune.tmqkci.console;

/**
 * What is run at once: an expression or a command.
 *
 * @param text the text
 * @param file what it stands in, or null when it was typed
 * @param line the number of its first line
 */
record Input(String text, String file, int line) {
    static Input typed(String text) {
        return new Input(text, null, 0);
    }

    /** Where a line of the input stands, to be put before a message; empty for what was typed. */
    String place(int lineOfInput) {
        return file == null ? "" : file + ":" + (line + lineOfInput - 1) + ": ";
    }
}
