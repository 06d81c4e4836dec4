package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciObject;

import java.util.ArrayList;
import java.util.List;

/**
 * A collection as a table: a row for each element, with a column for each variable if all elements are plain objects of
 * one class, else with their class and value.
 */
final class Table {
    private static final int CELL_WIDTH = 60;

    private final Shown shown;
    private final int limit;

    Table(Shown shown, int limit) {
        this.shown = shown;
        this.limit = limit;
    }

    String of(KciObject collection) {
        if (!Shown.hasParts(collection) || collection.indexedSize() == 0) {
            return shown.printed(collection);
        }
        List<KciObject> elements = Shown.elements(collection, limit);
        List<List<String>> rows = new ArrayList<>();
        boolean alike = elements.stream().allMatch(element -> isRecord(element)
                && element.classOop() == elements.get(0).classOop());
        rows.add(new ArrayList<>(List.of("#")));
        rows.get(0).addAll(alike ? shown.variableNames(elements.get(0)) : List.of("class", "value"));
        try (Progress progress = new Progress("rows made")) {
            for (KciObject element : elements) {
                List<String> row = new ArrayList<>(List.of(Integer.toString(rows.size())));
                if (alike) {
                    element.session().fetchNamed(element).forEach(part -> row.add(shown.brief(part, CELL_WIDTH)));
                } else {
                    row.add(shown.className(element));
                    row.add(shown.brief(element, CELL_WIDTH));
                }
                rows.add(row);
                progress.reached(rows.size() - 1, elements.size());
            }
        }
        String more = elements.size() < collection.indexedSize() ? " (the first " + elements.size() + " of "
                + collection.indexedSize() + ")" : " (" + elements.size() + " elements)";
        return layOut(rows) + shown.className(collection) + more;
    }

    private static boolean isRecord(KciObject element) {
        return Shown.hasParts(element) && element.namedSize() > 0 && element.indexedSize() == 0;
    }

    private static String layOut(List<List<String>> rows) {
        int columns = rows.get(0).size();
        int[] widths = new int[columns];
        for (List<String> row : rows) {
            for (int i = 0; i < columns; ++i) {
                widths[i] = Math.max(widths[i], row.get(i).length());
            }
        }
        StringBuilder text = new StringBuilder();
        for (List<String> row : rows) {
            StringBuilder line = new StringBuilder();
            for (int i = 0; i < columns; ++i) {
                // Numbers of rows stand to the right, everything else to the left.
                String padding = " ".repeat(widths[i] - row.get(i).length());
                line.append(i == 0 ? padding + row.get(i) : "  " + row.get(i) + padding);
            }
            text.append(line.toString().stripTrailing()).append('\n');
            if (row == rows.get(0)) {
                for (int i = 0; i < columns; ++i) {
                    text.append(i == 0 ? "" : "  ").append("-".repeat(widths[i]));
                }
                text.append('\n');
            }
        }
        return text.toString();
    }
}
