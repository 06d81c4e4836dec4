package com.kestrune.tmqkci.console;

import java.io.PrintStream;
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
@Command(name = "doctor", mixinStandardHelpOptions = true, versionProvider = Tmqkci.Version.class,
        description = "Tells what works here and what does not, with what to do. Runs in any Java.",
        footer = {"", "Exit status: 0 when a login could be tried, else 3."})
final class Doctor implements Callable<Integer> {
    @Option(names = "--json", description = "a line of JSON")
    private boolean json;

    @ParentCommand
    private Tmqkci console;

    @Override
    public Integer call() {
        console.refuseEvaluationBefore("doctor");
        Examination examination = new Examination();
        examination.run();
        PrintStream out = Output.OUT.stream();
        if (json) {
            List<Map<String, Object>> findings = new ArrayList<>();
            for (Finding finding : examination.findings()) {
                Map<String, Object> fields = new LinkedHashMap<>();
                fields.put("grade", finding.grade().name().toLowerCase(Locale.ROOT));
                fields.put("subject", finding.subject());
                fields.put("text", finding.text());
                fields.put("remedy", finding.remedy());
                findings.add(fields);
            }
            Map<String, Object> all = new LinkedHashMap<>();
            all.put("loginPossible", examination.isLoginPossible());
            all.put("findings", findings);
            Json.print(out, all);
        } else {
            for (Finding finding : examination.findings()) {
                out.println(finding.grade().mark + "  " + finding.subject() + ": "
                        + finding.text().replace("\n", "\n        "));
                if (finding.remedy() != null) {
                    out.println("      -> " + finding.remedy());
                }
            }
            out.println(examination.isLoginPossible() ? "A login can be tried." : "No login can be tried yet.");
        }
        return examination.isLoginPossible() ? Tmqkci.SUCCESS : Tmqkci.NO_CONNECTION;
    }
}
