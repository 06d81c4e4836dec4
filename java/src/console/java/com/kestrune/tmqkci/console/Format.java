package com.kestrune.tmqkci.console;

import java.util.Locale;

/** What results look like, and how much of them is shown. */
final class Format {
    enum Style {
        TEXT, TABLE, TREE, JSON, CSV, MARKDOWN;

        @Override
        public String toString() {
            return name().toLowerCase(Locale.ROOT);
        }
    }

    static final int DEEPEST = 999;
    /** What a terminal shows of one value's text. */
    private static final int USUAL_TEXT = 10_000;

    Style style = Style.TEXT;
    boolean time;
    /** How many elements of a collection are shown. */
    int limit = 100;
    /** How deep trees and JSON go. */
    int depth = 3;
    /** How many columns a line of a table takes at most; 0 for no limit, less for that of the terminal. */
    int width = -1;
    /** How many characters of a value's text are shown; 0 for all, less for what suits the output. */
    int text = -1;

    int width(Output out) {
        return width >= 0 ? width : out.isTerminal() ? out.columns() : 0;
    }

    int text(Output out) {
        return text >= 0 ? text : out.isTerminal() ? USUAL_TEXT : 0;
    }

    /** Refuses numbers that mean nothing. */
    void check() {
        if (limit < 1 || depth < 1 || depth > DEEPEST) {
            throw new IllegalArgumentException("limit must be positive, and depth from 1 to " + DEEPEST);
        }
    }

    /** Changes what the words name: a style, or a number as {@code limit=50}. */
    void change(String words) {
        Format changed = copy();
        for (String word : words.split("\\s+")) {
            changed.changeOne(word);
        }
        changed.check();
        style = changed.style;
        limit = changed.limit;
        depth = changed.depth;
        width = changed.width;
        text = changed.text;
    }

    private Format copy() {
        Format copy = new Format();
        copy.style = style;
        copy.limit = limit;
        copy.depth = depth;
        copy.width = width;
        copy.text = text;
        return copy;
    }

    private void changeOne(String word) {
        for (Style one : Style.values()) {
            if (one.toString().equals(word)) {
                style = one;
                return;
            }
        }
        if (!word.matches("(limit|depth|width|text)=[0-9]{1,9}")) {
            throw new IllegalArgumentException("\"" + word + "\" is none of text, table, tree, json, csv, markdown, "
                    + "limit=N, depth=N, width=N, text=N");
        }
        int number = Integer.parseInt(word.substring(word.indexOf('=') + 1));
        switch (word.charAt(0)) {
            case 'l' -> limit = number;
            case 'd' -> depth = number;
            case 'w' -> width = number;
            default -> text = number;
        }
    }

    @Override
    public String toString() {
        return style + " limit=" + limit + " depth=" + depth + (width < 0 ? "" : " width=" + width)
                + (text < 0 ? "" : " text=" + text);
    }
}
