package com.kestrune.tmqkci.console;

import java.util.Collection;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

import org.jline.reader.Candidate;
import org.jline.reader.Completer;
import org.jline.reader.LineReader;
import org.jline.reader.ParsedLine;

/**
 * Completes the name at the cursor: a command; behind a receiver a selector that it understands; elsewhere a variable,
 * or any selector.
 */
final class Completion implements Completer {
    /** A literal's or a variable's end, before the name at the cursor. The groups stand for {@link #EXAMPLES}. */
    private static final Pattern RECEIVER = Pattern.compile("(?:^|[^\\w'$#.])(?:(-?(?:\\d+r)?[\\dA-Z]*\\d)|"
            + "(-?\\d+(?:\\.\\d+)?(?:e-?\\d+)?)|(\\$.)|((?:'[^']*')+)|(w(?:'[^']*')+)|(#[A-Za-z][\\w:]*)|"
            + "(#\\([^()]*\\))|(#\\[[^]]*\\])"
            + "|(\\[[^\\[\\]]*\\])|([A-Za-z_]\\w*))\\s+$");
    private static final List<String> EXAMPLES = List.of("1", "1.5", "$a", "''", "w''", "#a", "#()", "#[]", "[]");
    private static final int VARIABLE = EXAMPLES.size() + 1;

    private final Commands commands;

    Completion(Commands commands) {
        this.commands = commands;
    }

    @Override
    public void complete(LineReader reader, ParsedLine line, List<Candidate> candidates) {
        String before = line.line().substring(0, line.cursor() - line.word().length());
        if (before.isBlank() && line.word().startsWith(":")) {
            commands.commandNames().forEach(name -> add(line.word(), ":" + name, candidates));
            return;
        }
        names(before).forEach(name -> add(line.word(), name, candidates));
    }

    private Collection<String> names(String before) {
        Names names = commands.names();
        String receiver = receiver(before);
        String cls = receiver == null ? null : names.classOf(receiver);
        Set<String> all = new TreeSet<>(names.selectors(cls));
        if (receiver == null) {
            all.addAll(names.variables());
        }
        return all;
    }

    /** A variable's name, or the example for a literal; empty for another receiver, null if there is none. */
    private static String receiver(String before) {
        Matcher matcher = RECEIVER.matcher(before);
        if (matcher.find()) {
            for (int i = 1; i < VARIABLE; ++i) {
                if (matcher.group(i) != null) {
                    return EXAMPLES.get(i - 1);
                }
            }
            return matcher.group(VARIABLE);
        }
        return before.matches("(?s).*[\\w)\\]}'\"]\\s*") ? "" : null;
    }

    private static void add(String word, String name, List<Candidate> candidates) {
        if (name.startsWith(word)) {
            candidates.add(new Candidate(name, name, null, null, null, null, !name.endsWith(":")));
        }
    }
}
