package com.kestrune.tmqkci.console;

import org.jline.utils.WCWidth;

/** Text as a terminal shows it: without control characters, measured in columns, cut and wrapped. */
final class Text {
    private static final String CUT = "...";
    private static final int FIRST_WIDE_PICTOGRAPH = 0x1F300;
    private static final int LAST_WIDE_PICTOGRAPH = 0x1FAFF;

    private Text() {
    }

    /**
     * The text with escapes such as {@code \x1b} in place of what would steer a terminal: control characters but for
     * tabs and ends of lines, and characters that change the direction of the text.
     */
    static String visible(String text) {
        StringBuilder visible = null;
        for (int i = 0; i < text.length(); ++i) {
            char c = text.charAt(i);
            boolean steers = Character.isISOControl(c) && c != '\n' && c != '\t' || isDirection(c);
            if (steers && visible == null) {
                visible = new StringBuilder(text.length() + CUT.length()).append(text, 0, i);
            }
            if (steers) {
                visible.append(String.format(c < 0x100 ? "\\x%02x" : "\\u%04x", (int) c));
            } else if (visible != null) {
                visible.append(c);
            }
        }
        return visible == null ? text : visible.toString();
    }

    private static boolean isDirection(char c) {
        return c >= '\u202A' && c <= '\u202E' || c >= '\u2066' && c <= '\u2069';
    }

    /** The columns that a line takes. */
    static int columns(String line) {
        int columns = 0;
        for (int i = 0; i < line.length(); i += Character.charCount(line.codePointAt(i))) {
            columns += columns(line.codePointAt(i));
        }
        return columns;
    }

    /** JLine's table of widths is older than most pictographs, which terminals show two columns wide. */
    private static int columns(int character) {
        return character >= FIRST_WIDE_PICTOGRAPH && character <= LAST_WIDE_PICTOGRAPH ? 2
                : Math.max(0, WCWidth.wcwidth(character));
    }

    /** The line, cut so that it takes the given columns at most, with dots where it is cut. */
    static String cut(String line, int width) {
        if (line.length() <= width / 2 || columns(line) <= width) {
            return line;
        }
        int end = 0;
        for (int columns = 0; ; end += Character.charCount(line.codePointAt(end))) {
            columns += columns(line.codePointAt(end));
            if (columns > width - CUT.length()) {
                return line.substring(0, end) + CUT;
            }
        }
    }

    /** The text in lines of the given width at most, broken between words, all but the first after the indent. */
    static String wrapped(String text, int width, int indent) {
        int column = text.length() - text.stripLeading().length();
        StringBuilder lines = new StringBuilder(text.substring(0, column));
        boolean first = true;
        for (String word : text.strip().split(" ")) {
            if (column > indent && !first && column + 1 + columns(word) > width) {
                lines.append('\n').append(" ".repeat(indent));
                column = indent;
            } else if (!first) {
                lines.append(' ');
                ++column;
            }
            lines.append(word);
            column += columns(word);
            first = false;
        }
        return lines.toString();
    }
}
