package com.kestrune.tmqkci.console;

import java.io.IOException;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;
import java.util.function.UnaryOperator;
import java.util.regex.Pattern;

/** The commands of the console, which begin with a colon. Refusals are exceptions with a message. */
final class Commands {
    /**
     * A command.
     *
     * @param arguments what stands behind its name
     * @param description what it does
     * @param action does it, with the text behind the name
     */
    record Command(String arguments, String description, Consumer<String> action) {
    }

    private static final int DEEPEST_READ = 16;
    private static final int USAGE_COLUMNS = 28;
    private static final String MORE = "Anything but a command is an expression; the server evaluates it, and its "
            + "value is shown. An input goes on while a bracket or quote is open, after a line that ends with ; or "
            + ":= or \\, and, if it declares temporaries, after a period; an empty line ends it. Tab completes "
            + "names, Ctrl-C drops the input or stops the server's computation.";

    private final Evaluator evaluator;
    private final Names names;
    private final Map<String, Command> all = new LinkedHashMap<>();
    private UnaryOperator<String> editor;
    private boolean paging;
    private int reading;
    private boolean failed;

    Commands(Evaluator evaluator) {
        this.evaluator = evaluator;
        names = new Names(evaluator);
        add("table", "EXPRESSION", "a collection as a table", text -> evaluator.evaluate(text, Format.Style.TABLE, 0));
        add("tree", "[DEPTH] EXPRESSION", "an object with its variables and elements, and theirs", this::tree);
        add("error", "", "the last error in full", none -> evaluator.out.println(evaluator.report()));
        add("format", "[STYLE] [limit=N] [depth=N] [width=N] [text=N]", "shows results as text, table, tree, json, csv "
                + "or markdown; no more than so many elements, levels, columns of a table, characters of a text",
                this::format);
        add("time", "[on|off]", "shows how long each expression takes", word -> evaluator.format.time = isOn(word));
        add("pager", "[on|off]", "shows what does not fit the screen page by page", word -> paging = isOn(word));
        add("read", "FILE", "runs the inputs of a file, until one fails", this::read);
        add("output", "[FILE]", "writes results to a file, made anew; alone, to here again", this::output);
        add("edit", "[TEXT]", "runs the last input, or this one, after changes in an editor", this::edit);
        add("classes", "[PATTERN]", "the names of the classes, all or as Date*", this::classes);
        add("methods", "CLASS", "the selectors of a class and of those above it", this::methods);
        add("begin", "", "begins a transaction; changes that are not committed are lost",
                none -> evaluator.session.begin());
        add("commit", "", "commits the changes, and begins the next transaction", none -> evaluator.session.commit());
        add("abort", "", "gives the changes up, and begins the next transaction", none -> evaluator.session.abort());
        add("set", "[NAME [TEXT]]", "gives a name to a text, which inputs use as ${NAME}, or as ${'NAME'} for a string "
                + "of it; alone, lists them", this::set);
        add("help", "", "this text", none -> evaluator.out.println(help(evaluator.out.columns())));
        add("quit", "", "ends, as Ctrl-D does", none -> evaluator.end());
    }

    private void add(String name, String arguments, String description, Consumer<String> action) {
        all.put(name, new Command(arguments, description, action));
    }

    /** Without the colon. */
    Iterable<String> commandNames() {
        return all.keySet();
    }

    Names names() {
        return names;
    }

    boolean isPaging() {
        return paging;
    }

    /** Only a prompt has an editor: it gets a text and answers what became of it. */
    void setEditor(UnaryOperator<String> change) {
        editor = change;
    }

    /** Runs a command, given without its colon; answers whether it succeeded. */
    boolean run(String input) {
        String[] words = input.split("\\s+", 2);
        Command command = all.get(switch (words[0]) {
            case "h", "?" -> "help";
            case "q" -> "quit";
            default -> words[0];
        });
        String rest = words.length > 1 ? words[1] : "";
        if (command == null) {
            throw new IllegalArgumentException(
                    "there is no command :" + words[0] + "; :help lists those that there are");
        }
        if (command.arguments.isEmpty() ? !rest.isEmpty() : rest.isEmpty() && !command.arguments.startsWith("[")
                || rest.isEmpty() && words[0].equals("tree")) {
            throw new IllegalArgumentException("the command is :" + (words[0] + " " + command.arguments).strip());
        }
        failed = false;
        command.action.accept(rest);
        return !failed;
    }

    String help(int width) {
        StringBuilder text = new StringBuilder();
        int indent = Math.min(USAGE_COLUMNS, width / 3);
        all.forEach((name, command) -> {
            String usage = ("  :" + name + " " + command.arguments).stripTrailing();
            text.append(usage.length() < indent - 1 ? Text.wrapped(usage + " ".repeat(indent - 1 - usage.length()) + " "
                    + command.description, width, indent)
                    : Text.wrapped(usage, width, 4) + "\n" + Text.wrapped(" ".repeat(indent - 1) + " "
                    + command.description, width, indent)).append('\n');
        });
        return text + Text.wrapped(MORE, width, 0);
    }

    /** With a depth in front of the expression, or without. */
    private void tree(String rest) {
        String[] words = rest.split("\\s+", 2);
        boolean deep = words.length == 2 && words[0].matches("[0-9]{1,3}");
        evaluator.evaluate(deep ? words[1] : rest, Format.Style.TREE,
                deep ? Integer.parseInt(words[0]) : evaluator.format.depth);
    }

    private void format(String words) {
        if (words.isEmpty()) {
            evaluator.out.println(evaluator.format.toString());
        } else {
            evaluator.format.change(words);
        }
    }

    private static boolean isOn(String word) {
        if (!List.of("", "on", "off").contains(word)) {
            throw new IllegalArgumentException("\"" + word + "\" is neither on nor off");
        }
        return !word.equals("off");
    }

    private static Path path(String name) {
        try {
            return Path.of(name.startsWith("~/") ? System.getProperty("user.home") + name.substring(1) : name);
        } catch (InvalidPathException unnameable) {
            throw new IllegalArgumentException("no file can have this name in the locale's encoding");
        }
    }

    private void read(String file) {
        if (reading == DEEPEST_READ) {
            throw new IllegalArgumentException("files that read each other go no deeper than " + DEEPEST_READ);
        }
        ++reading;
        try {
            failed = !new Script(evaluator, true).run(Script.of(path(file)));
        } finally {
            --reading;
        }
    }

    private void output(String file) {
        try {
            if (!evaluator.out.redirect(file.isEmpty() ? null : path(file))) {
                throw new IllegalArgumentException("the file that was written so far lacks something");
            }
        } catch (IOException failure) {
            throw new IllegalArgumentException("cannot write " + file + ": " + Terminals.reason(failure));
        }
    }

    private void edit(String text) {
        if (editor == null) {
            throw new IllegalArgumentException("only a terminal has an editor");
        }
        String changed = Source.joined(editor.apply(text));
        if (!changed.isEmpty()) {
            evaluator.out.println(changed);
            failed = !evaluator.run(Input.typed(changed));
        }
    }

    private void classes(String pattern) {
        Pattern glob = Pattern.compile(("\\Q" + (pattern.isEmpty() ? "*" : pattern) + "\\E").replace("*", "\\E.*\\Q")
                .replace("?", "\\E.\\Q"), Pattern.CASE_INSENSITIVE);
        names.refresh("");
        List<String> found = names.classes().stream().filter(name -> glob.matcher(name).matches()).toList();
        evaluator.out.println(found.isEmpty() ? "There is none." : Text.wrapped(String.join(" ", found),
                evaluator.out.columns(), 0));
    }

    private void methods(String name) {
        names.refresh(name);
        if (!names.classes().contains(name)) {
            throw new IllegalArgumentException("no class " + name + " is known; :classes lists those that are");
        }
        StringBuilder text = new StringBuilder();
        names.hierarchy(name).forEach((above, selectors) -> text.append(text.isEmpty() ? "" : "\n")
                .append(Text.wrapped(above + ": " + String.join(" ", selectors), evaluator.out.columns(), 4)));
        evaluator.out.println(text.toString());
    }

    private void set(String rest) {
        String[] words = rest.split("\\s+", 2);
        if (rest.isEmpty()) {
            evaluator.out.println(evaluator.variables.toString());
        } else {
            evaluator.variables.set(words[0], words.length > 1 ? words[1] : "");
        }
    }
}
