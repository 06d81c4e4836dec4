package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciObject;

import java.util.ArrayList;
import java.util.List;
import java.util.function.Function;

/**
 * A value as rows: one for each element of a collection, with a column for each variable if all elements are plain
 * objects of one class, else with their class and value. Anything else is one row.
 */
final class Rows {
    final List<String> header = new ArrayList<>();
    final List<List<String>> rows = new ArrayList<>();

    Rows(Shown shown, KciObject value, int limit, Function<KciObject, String> cell) {
        if (!isCollection(value)) {
            header.add("value");
            rows.add(List.of(cell.apply(value)));
            return;
        }
        List<KciObject> elements = Shown.elements(value, limit);
        boolean alike = elements.stream().allMatch(element -> isRecord(element)
                && element.classOop() == elements.get(0).classOop());
        header.addAll(alike ? shown.variableNames(elements.get(0)) : List.of("class", "value"));
        try (Progress progress = new Progress("rows made")) {
            for (KciObject element : elements) {
                rows.add(alike ? element.session().fetchNamed(element).stream().map(cell).toList()
                        : List.of(shown.className(element), cell.apply(element)));
                progress.reached(rows.size(), elements.size());
            }
        }
    }

    static boolean isCollection(KciObject value) {
        return Shown.hasParts(value) && value.indexedSize() > 0;
    }

    private static boolean isRecord(KciObject element) {
        return Shown.hasParts(element) && element.namedSize() > 0 && element.indexedSize() == 0;
    }

    /** Comma-separated values (RFC 4180), but for the ends of lines, which are those of this system. */
    String csv() {
        StringBuilder text = new StringBuilder();
        appendCsv(text, header);
        rows.forEach(row -> appendCsv(text, row));
        return text.toString().stripTrailing();
    }

    private static void appendCsv(StringBuilder text, List<String> row) {
        String separator = "";
        for (String field : row) {
            boolean quoted = field.isEmpty()
                    || field.chars().anyMatch(c -> c == ',' || c == '"' || c == '\n' || c == '\r');
            text.append(separator).append(quoted ? '"' + field.replace("\"", "\"\"") + '"' : field);
            separator = ",";
        }
        text.append('\n');
    }

    /** A table as Markdown has it. */
    String markdown() {
        StringBuilder text = new StringBuilder();
        appendMarkdown(text, header);
        appendMarkdown(text, header.stream().map(name -> "---").toList());
        rows.forEach(row -> appendMarkdown(text, row));
        return text.toString().stripTrailing();
    }

    private static void appendMarkdown(StringBuilder text, List<String> row) {
        row.forEach(field -> text.append("| ").append(field.replace("\\", "\\\\").replace("|", "\\|")
                .replaceAll("\r\n?|\n", "<br>")).append(' '));
        text.append("|\n");
    }
}
