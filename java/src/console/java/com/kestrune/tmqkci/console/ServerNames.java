package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciConversionException;
import com.kestrune.tmqkci.KciInterruptedException;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;

import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;

import org.jline.reader.Candidate;
import org.jline.reader.Completer;
import org.jline.reader.LineReader;
import org.jline.reader.ParsedLine;

/** Completes commands, and the names of globals, classes and selectors, which the server is asked for when needed. */
final class ServerNames implements Completer {
    private static final String GLOBALS = "System globalNames";
    private static final List<String> CLASSES = List.of("Object", "Class", "Number", "Integer", "Float", "Boolean",
            "Character", "String", "DoubleByteString", "Symbol", "Array", "List", "ByteArray", "Interval", "Set", "Bag",
            "Dictionary", "Association", "DateTime", "Block", "System", "Shared");

    private final KciSession session;
    private Set<String> names;

    ServerNames(KciSession session) {
        this.session = session;
    }

    /** After anything was evaluated there may be other names. */
    void outdated() {
        names = null;
    }

    @Override
    public void complete(LineReader reader, ParsedLine line, List<Candidate> candidates) {
        if (line.line().startsWith(":") && line.word().startsWith(":")) {
            Help.COMMANDS.forEach(command -> candidates.add(new Candidate(command)));
            return;
        }
        if (names == null) {
            try {
                names = ask();
            } catch (KciInterruptedException | IllegalStateException unanswered) {
                Thread.interrupted();
                return;
            }
        }
        names.forEach(name -> candidates.add(new Candidate(name, name, null, null, null, null, !name.endsWith(":"))));
    }

    private Set<String> ask() {
        Set<String> all = new TreeSet<>();
        for (String name : classesAndGlobals()) {
            try {
                KciObject named = session.execute(name);
                all.add(name);
                all.addAll(texts(named.send("selectors")));
            } catch (TmqKciException | KciConversionException other) {
                // Not known there, or no class.
            }
        }
        return all;
    }

    private List<String> classesAndGlobals() {
        List<String> all = new ArrayList<>(CLASSES);
        try {
            all.addAll(texts(session.execute(GLOBALS)));
        } catch (TmqKciException | KciConversionException otherServer) {
            // A server with another way to tell its names.
        }
        return all;
    }

    private List<String> texts(KciObject collection) {
        return session.fetchElements(collection).stream().map(KciObject::stringValue).toList();
    }
}
