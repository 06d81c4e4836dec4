package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciConversionException;
import com.kestrune.tmqkci.KciInterruptedException;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.TmqKciException;

import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.regex.Pattern;

/**
 * The names that the server knows: variables with their classes, and classes with their selectors. They are asked for
 * once and kept; afterwards only what an input mentions or adds is asked for again. Reading them never waits.
 */
final class Names {
    private record Methods(String above, Set<String> selectors) {
    }

    private static final List<String> CLASSES = List.of("Object", "Class", "Number", "Integer", "Float", "Boolean",
            "Character", "String", "DoubleByteString", "Symbol", "Array", "List", "ByteArray", "Interval", "Set", "Bag",
            "Dictionary", "Association", "DateTime", "Block", "System", "Shared");
    /** Receivers as well: an example for each kind. */
    private static final List<String> LITERALS = List.of("1", "1.5", "$a", "''", "w''", "#a", "#()", "#[]", "[]", "nil",
            "true", "false");
    private static final String GLOBALS = "System globalNames";
    private static final String CLASS = "Class";
    private static final Pattern NAME = Pattern.compile("[A-Za-z_][A-Za-z0-9_]*");
    private static final long PAUSE_MILLIS = 20;

    private final Evaluator evaluator;
    private final Map<String, Methods> methods = new ConcurrentHashMap<>();
    private final Map<String, String> classOf = new ConcurrentHashMap<>();
    private final LinkedBlockingQueue<String> inputs = new LinkedBlockingQueue<>();

    Names(Evaluator evaluator) {
        this.evaluator = evaluator;
    }

    /** Asks in the background from now on, whenever the session has nothing else to do. */
    void follow() {
        Thread thread = new Thread(() -> {
            try {
                for (String input = ""; evaluator.session.isOpen(); input = inputs.take()) {
                    refresh(input, true);
                }
            } catch (InterruptedException | KciInterruptedException | IllegalStateException end) {
                // The session has ended; what is known stays.
            }
        }, "names of the server");
        thread.setDaemon(true);
        thread.start();
    }

    /** Tells of an input that was run. */
    void hasRun(String input) {
        if (evaluator.session.isOpen()) {
            inputs.add(input);
        }
    }

    /** Asks for what is not known, and for what a text mentions. */
    void refresh(String text) {
        try {
            refresh(text, false);
        } catch (InterruptedException never) {
            Thread.currentThread().interrupt();
        }
    }

    private void refresh(String text, boolean inBackground) throws InterruptedException {
        Set<String> mentioned = new HashSet<>(List.of(text.split("[^A-Za-z0-9_]+")));
        Set<String> all = new TreeSet<>(LITERALS);
        all.addAll(CLASSES);
        all.addAll(ask(GLOBALS, inBackground));
        classOf.keySet().retainAll(all);
        for (String name : all) {
            if (!classOf.containsKey(name) || mentioned.contains(name)) {
                askFor(name, mentioned.contains(name), inBackground);
            }
        }
    }

    private void askFor(String variable, boolean again, boolean inBackground) throws InterruptedException {
        List<String> cls = ask(variable + " class name", inBackground);
        if (cls.isEmpty()) {
            return;
        }
        classOf.put(variable, cls.get(0));
        if (cls.get(0).equals(CLASS)) {
            askForMethods(variable, variable, again, inBackground);
        }
        askForMethods(cls.get(0), variable + " class", false, inBackground);
    }

    private void askForMethods(String name, String expression, boolean again, boolean inBackground)
            throws InterruptedException {
        if (again || !methods.containsKey(name)) {
            List<String> above = ask(expression + " superclass name", inBackground);
            methods.put(name, new Methods(above.isEmpty() ? null : above.get(0),
                    new TreeSet<>(ask(expression + " selectors", inBackground))));
            if (!above.isEmpty()) {
                askForMethods(above.get(0), expression + " superclass", false, inBackground);
            }
        }
    }

    /** The text, or texts, that an expression answers; none where another server does not understand it. */
    private List<String> ask(String expression, boolean inBackground) throws InterruptedException {
        while (inBackground && evaluator.isBusy()) {
            Thread.sleep(PAUSE_MILLIS);
        }
        try {
            KciObject answer = evaluator.session.execute(expression);
            return answer.isString() ? List.of(answer.stringValue())
                    : evaluator.session.fetchElements(answer).stream().map(KciObject::stringValue).toList();
        } catch (TmqKciException | KciConversionException unknown) {
            return List.of();
        }
    }

    /** Classes by name. */
    Set<String> classes() {
        return new TreeSet<>(methods.keySet());
    }

    /** What can stand where a value can. */
    Set<String> variables() {
        Set<String> names = new TreeSet<>(classOf.keySet());
        names.removeIf(name -> !NAME.matcher(name).matches());
        return names;
    }

    /** The class of a variable or of one of the examples of literals; null if it is not known. */
    String classOf(String receiver) {
        return classOf.get(receiver);
    }

    /** The selectors of a class and of those above it, from the class up. */
    Map<String, Set<String>> hierarchy(String name) {
        Map<String, Set<String>> all = new LinkedHashMap<>();
        for (String at = name; at != null && methods.containsKey(at) && !all.containsKey(at);
                at = methods.get(at).above) {
            all.put(at, methods.get(at).selectors);
        }
        return all;
    }

    /** The selectors that objects of a class understand; all that there are if the class is null. */
    Set<String> selectors(String name) {
        Set<String> all = new TreeSet<>();
        if (name == null) {
            methods.values().forEach(each -> all.addAll(each.selectors));
        } else {
            hierarchy(name).values().forEach(all::addAll);
        }
        return all;
    }
}
