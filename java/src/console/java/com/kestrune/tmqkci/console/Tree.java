package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciObject;

import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Set;

/** An object with its variables and elements, and theirs, down to a depth. */
final class Tree {
    private static final int WIDTH = 80;

    private record Part(String name, KciObject object) {
    }

    private final Shown shown;
    private final int limit;
    private final boolean plain;
    private final Set<Long> seen = new HashSet<>();
    private final StringBuilder text = new StringBuilder();

    Tree(Shown shown, int limit) {
        this.shown = shown;
        this.limit = limit;
        plain = !Terminals.charset().newEncoder().canEncode('\u2514');
    }

    String of(KciObject root, int depth) {
        add("", "", root, depth);
        return text.substring(0, text.length() - 1);
    }

    private void add(String name, String indent, KciObject object, int depth) {
        text.append(name);
        if (depth == 0 || !Shown.hasParts(object)) {
            text.append(shown.brief(object, WIDTH)).append('\n');
            return;
        }
        text.append(shown.className(object));
        if (object.indexedSize() > 0) {
            text.append(" (").append(object.indexedSize()).append(')');
        }
        if (!seen.add(object.oop())) {
            text.append(" shown above\n");
        } else {
            text.append('\n');
            addParts(indent, object, depth);
        }
    }

    private void addParts(String indent, KciObject object, int depth) {
        List<Part> parts = new ArrayList<>();
        if (object.namedSize() > 0) {
            List<String> names = shown.variableNames(object);
            List<KciObject> named = object.session().fetchNamed(object);
            for (int i = 0; i < named.size(); ++i) {
                parts.add(new Part(names.get(i), named.get(i)));
            }
        }
        List<KciObject> elements = Shown.elements(object, limit);
        for (KciObject element : elements) {
            parts.add(new Part(Integer.toString(parts.size() - object.namedSize() + 1), element));
        }
        long left = object.indexedSize() - elements.size();
        for (int i = 0; i < parts.size(); ++i) {
            boolean last = i == parts.size() - 1 && left == 0;
            text.append(indent).append(branch(last));
            add(parts.get(i).name + ": ", indent + trunk(last), parts.get(i).object, depth - 1);
        }
        if (left > 0) {
            text.append(indent).append(branch(true)).append(left).append(" more\n");
        }
    }

    private String branch(boolean last) {
        return plain ? "+- " : last ? "\u2514\u2500 " : "\u251C\u2500 ";
    }

    private String trunk(boolean last) {
        return last ? "   " : plain ? "|  " : "\u2502  ";
    }
}
