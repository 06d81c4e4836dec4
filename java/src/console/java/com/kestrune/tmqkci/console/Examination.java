package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.internal.Access;
import com.kestrune.tmqkci.internal.ElfHeader;
import com.kestrune.tmqkci.internal.Places;

import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;

/**
 * Everything that the doctor looks at, in order: the files first, without opening any library. What fails only because
 * something else does is told under that.
 */
final class Examination {
    private static final String INITIALIZATION = "initialization";
    private static final String INSTALLATION = Places.INSTALLATION;

    private final List<Finding> findings = new ArrayList<>();
    private final boolean linked;
    private Path installation;
    private boolean loginPossible;

    /** Of the flavour with sessions inside the process, or of that with session processes. */
    Examination(boolean linked) {
        this.linked = linked;
    }

    List<Finding> findings() {
        return findings;
    }

    /** Whether the client library could be initialized, so that a login could be tried. */
    boolean isLoginPossible() {
        return loginPossible;
    }

    void run() {
        Finding java = java();
        installation();
        LibraryFiles files = new LibraryFiles(installation);
        findings.add(files.bridge());
        findings.add(files.client(linked ? "lnk" : "rpc"));
        findings.add(1, Finding.note("way", files.way() + " with "
                + (linked ? "sessions inside it" : "session processes (--rpc)")));
        findings.addAll(files.details);
        Map<String, String> probed = java.isFailure() ? Map.of() : Trial.run(linked);
        initialization(probed);
        new Surroundings(installation, findings).examine(probed);
        group();
    }

    /** What fails in an installation that cannot be used as a whole follows from that. */
    private void group() {
        findings.stream().filter(finding -> finding.subject.equals(INSTALLATION)).findFirst().ifPresent(cause -> {
            List<Finding> consequences = findings.stream().filter(finding -> finding != cause && finding.grade.isBad()
                    && (finding.isFailure() || finding.text.contains(installation.toString()))
                    && !finding.subject.equals("Java")).toList();
            findings.removeAll(consequences);
            cause.consequences.addAll(0, consequences);
        });
    }

    private Finding java() {
        String text = System.getProperty("java.version") + " in " + System.getProperty("java.home");
        ElfHeader self = ElfHeader.ofThisProcess();
        text += ", " + self;
        Finding java = self.isServed() ? Finding.ok("Java", text) : Finding.failure("Java", text,
                "use a 64-bit (x86-64) or 32-bit (i386) Java 17 or later: --java HOME names it");
        findings.add(java);
        return java;
    }

    private void installation() {
        String named = System.getenv(INSTALLATION);
        String remedy = "set KESTRUNE to the database installation's folder";
        if (named == null || named.isBlank()) {
            return;
        }
        try {
            installation = Path.of(named);
            String folder = ElfHeader.ofThisProcess().libraryFolder();
            Access lib = Access.toExecute(installation.resolve(folder));
            if (!Files.isDirectory(installation) && !Access.toExecute(installation).exists()) {
                findings.add(Finding.failure(INSTALLATION, "there is no " + named, remedy));
            } else if (lib.refusal() != null) {
                findings.add(Finding.failure(INSTALLATION, lib.refusal(), lib.remedy()));
            } else if (!Files.isDirectory(installation)) {
                findings.add(Finding.failure(INSTALLATION, named + " is no folder", remedy));
            } else if (!lib.exists()) {
                findings.add(Finding.failure(INSTALLATION, "there is no folder " + folder + " in " + named, remedy));
            }
        } catch (InvalidPathException unnameable) {
            findings.add(Finding.failure(INSTALLATION, "the folder's name does not exist in the locale's encoding",
                    "set LC_ALL=C.UTF-8"));
        }
    }

    private void initialization(Map<String, String> probed) {
        List<Finding> failures = findings.stream().filter(Finding::isFailure).toList();
        loginPossible = probed.containsKey("version");
        Finding result;
        if (loginPossible) {
            result = Finding.ok(INITIALIZATION, "levels, product and version accepted: client library "
                    + probed.get("version") + " (accepted: " + Places.ACCEPTED_CLIENTS + ")");
        } else if (probed.isEmpty()) {
            result = Finding.failure(INITIALIZATION, "not tried", null);
        } else if (probed.containsKey("error")) {
            result = Finding.failure(INITIALIZATION, probed.get("error"),
                    failures.isEmpty() ? "accepted are " + Places.ACCEPTED_CLIENTS : null);
        } else {
            result = Finding.failure(INITIALIZATION, "the process that opened the libraries "
                    + probed.get("end"), "see whether the client library fits this system");
        }
        if (failures.isEmpty() || loginPossible) {
            findings.add(result);
        } else {
            failures.get(0).consequences.add(result);
        }
    }
}
