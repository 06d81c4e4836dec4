package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciObject;

import java.util.ArrayList;
import java.util.List;

/** A collection's rows in aligned columns, numbered, in lines of a bounded width. */
final class Table {
    private static final int CELL_WIDTH = 60;

    private final Shown shown;
    private final int limit;
    private final int width;
    private boolean cut;

    /** Lines are as wide as they need to be if the width is 0. */
    Table(Shown shown, int limit, int width) {
        this.shown = shown;
        this.limit = limit;
        this.width = width;
    }

    String of(KciObject collection) {
        Rows rows = new Rows(shown, collection, limit, part -> Text.visible(shown.brief(part, CELL_WIDTH)));
        List<List<String>> numbered = new ArrayList<>();
        numbered.add(with("#", rows.header));
        rows.rows.forEach(row -> numbered.add(with(Integer.toString(numbered.size()), row)));
        int shownCount = rows.rows.size();
        String count = shownCount < collection.indexedSize()
                ? "the first " + shownCount + " of " + collection.indexedSize() : shownCount + " elements";
        return layOut(numbered) + shown.className(collection) + " (" + count
                + (cut ? ", cut at " + width + " columns" : "") + ")";
    }

    private static List<String> with(String first, List<String> rest) {
        List<String> row = new ArrayList<>(List.of(first));
        row.addAll(rest);
        return row;
    }

    private String layOut(List<List<String>> rows) {
        int columns = rows.get(0).size();
        int[] widths = new int[columns];
        for (List<String> row : rows) {
            for (int i = 0; i < columns; ++i) {
                widths[i] = Math.max(widths[i], Text.columns(row.get(i)));
            }
        }
        StringBuilder text = new StringBuilder();
        for (List<String> row : rows) {
            StringBuilder line = new StringBuilder();
            for (int i = 0; i < columns; ++i) {
                // Numbers of rows stand to the right, everything else to the left.
                String padding = " ".repeat(widths[i] - Text.columns(row.get(i)));
                line.append(i == 0 ? padding + row.get(i) : "  " + row.get(i) + padding);
            }
            appendLine(text, line);
            if (row == rows.get(0)) {
                line.setLength(0);
                for (int i = 0; i < columns; ++i) {
                    line.append(i == 0 ? "" : "  ").append("-".repeat(widths[i]));
                }
                appendLine(text, line);
            }
        }
        return text.toString();
    }

    private void appendLine(StringBuilder text, CharSequence line) {
        String whole = line.toString().stripTrailing();
        String fitting = width > 0 ? Text.cut(whole, width) : whole;
        cut |= fitting.length() < whole.length();
        text.append(fitting).append('\n');
    }
}
