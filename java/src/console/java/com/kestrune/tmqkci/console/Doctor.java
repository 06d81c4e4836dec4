package com.kestrune.tmqkci.console;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.Callable;

import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParentCommand;

/** The subcommand {@code doctor}: one page on what works here and what does not. */
@Command(name = "doctor", mixinStandardHelpOptions = true, versionProvider = Tmqkci.Version.class, sortOptions = false,
        usageHelpAutoWidth = true,
        description = "Tells what works here and what does not, with what to do. Runs in any Java.",
        footer = {"", "Exit status: 0 when a login could be tried, and with --login succeeded, else 3."})
final class Doctor implements Callable<Integer> {
    private static final int INDENT = 6;

    @Option(names = "--json", description = "a line of JSON")
    private boolean json;
    @Option(names = "--verbose", description = "also where was searched, and what is as usual")
    private boolean verbose;
    @Option(names = "--login", description = "also logs in, as the options say, and tells how long each step takes")
    private boolean login;

    @ParentCommand
    private Tmqkci console;

    private final Output out = Output.OUT;

    @Override
    public Integer call() {
        console.refuseEvaluationBefore("doctor");
        Login options = console.login();
        Examination examination = new Examination(!options.isRpc());
        examination.run();
        List<Finding> findings = examination.findings();
        boolean possible = examination.isLoginPossible();
        if (login && possible) {
            Finding tried = options.tryOut(console.command);
            possible = !tried.isFailure();
            findings.add(tried);
        }
        if (json) {
            List<Map<String, Object>> all = new ArrayList<>();
            findings.forEach(finding -> addTo(all, finding, null));
            Map<String, Object> answer = new LinkedHashMap<>();
            answer.put("loginPossible", examination.isLoginPossible());
            answer.put("findings", all);
            Json.print(out.stream(), answer);
        } else {
            findings.stream().filter(finding -> verbose || !finding.isDetail).forEach(finding -> print(finding, 0));
            out.println(!examination.isLoginPossible() ? "No login can be tried yet."
                    : !login ? "A login can be tried." : possible ? "The login succeeded." : "The login failed.");
        }
        return possible ? Tmqkci.SUCCESS : Tmqkci.NO_CONNECTION;
    }

    private void print(Finding finding, int indent) {
        String margin = " ".repeat(indent);
        boolean follows = indent > 0;
        out.println(wrapped(margin + (follows ? "so: " : finding.grade.mark + "  ") + finding.subject + ": "
                + finding.text.replace("\n", "\n  " + margin + " ".repeat(INDENT)), indent + INDENT));
        // What follows is well once its cause is.
        if (finding.remedy != null && !follows) {
            out.println(wrapped(margin + " ".repeat(INDENT) + "-> " + finding.remedy, indent + INDENT + 3));
        }
        finding.consequences.forEach(consequence -> print(consequence, indent + INDENT));
    }

    private String wrapped(String text, int indent) {
        return out.isTerminal() ? Text.wrapped(text, out.columns(), indent) : text;
    }

    /** Each by itself, with what it follows from. */
    private static void addTo(List<Map<String, Object>> all, Finding finding, String cause) {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("grade", finding.grade.name().toLowerCase(Locale.ROOT));
        fields.put("subject", finding.subject);
        fields.put("text", finding.text);
        fields.put("remedy", cause == null ? finding.remedy : null);
        fields.put("cause", cause);
        all.add(fields);
        finding.consequences.forEach(consequence -> addTo(all, consequence, finding.subject));
    }
}
