package com.kestrune.tmqkci.console;

import java.util.List;

/** The commands of the console. */
final class Help {
    static final List<String> COMMANDS = List.of(":error", ":help", ":quit", ":table", ":time", ":tree");

    static final String TEXT = """
            Anything but a command is an expression; the server evaluates it, and its value is shown.
              :table EXPRESSION         a collection as a table
              :tree [DEPTH] EXPRESSION  an object with its variables and elements, and theirs; 3 deep by default
              :error                    the last error in full
              :time [off]               shows how long each expression takes
              :help                     this text
              :quit                     ends, as Ctrl-D does
            An input goes on while a bracket or quote is open, after a line that ends with ; or := or \\, and, if it
            declares temporaries, after a period; an empty line ends it. Tab completes names, Ctrl-C drops the input or
            the wait for a result.
            """;

    private Help() {
    }
}
