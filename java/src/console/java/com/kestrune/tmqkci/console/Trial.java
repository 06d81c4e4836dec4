package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.internal.Places;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;

/** Opens the libraries, in a process of its own, since a library may end its process. */
final class Trial {
    private static final String LINE_BREAK = "\u001F";
    private static final int SECONDS = 60;

    private Trial() {
    }

    /**
     * What {@link Probe} told, with "end" for how its process ended, and "error" if it could not be run.
     *
     * @param linked whether the flavour with sessions inside the process is meant
     */
    static Map<String, String> run(boolean linked) {
        Map<String, String> told = new LinkedHashMap<>();
        try {
            Path folder = Files.createTempDirectory("tmqkci");
            Path output = folder.resolve("output");
            Path crashReport = folder.resolve("crash");
            try {
                Process process = new ProcessBuilder(command(crashReport, linked)).redirectOutput(output.toFile())
                        .redirectError(ProcessBuilder.Redirect.DISCARD).start();
                boolean ended = process.waitFor(SECONDS, TimeUnit.SECONDS);
                process.destroyForcibly();
                told.put("end", ended ? "ended with status " + process.exitValue()
                        : "had not ended after " + SECONDS + " seconds");
                for (String line : new String(Files.readAllBytes(output), StandardCharsets.UTF_8).split("\n")) {
                    String[] parts = line.split("\t", 2);
                    if (parts.length == 2) {
                        told.put(parts[0], parts[1].replace(LINE_BREAK, "\n"));
                    }
                }
            } finally {
                Files.deleteIfExists(output);
                Files.deleteIfExists(crashReport);
                Files.delete(folder);
            }
        } catch (IOException failed) {
            told.put("error", "the probe could not be run: " + failed.getMessage());
        } catch (InterruptedException interrupt) {
            Thread.currentThread().interrupt();
        }
        return told;
    }

    private static List<String> command(Path crashReport, boolean linked) {
        List<String> command = new ArrayList<>(List.of(System.getProperty("java.home") + "/bin/java",
                "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-XX:-CreateCoredumpOnCrash",
                "--enable-native-access=ALL-UNNAMED",
                "-XX:ErrorFile=" + crashReport, "-Dfile.encoding=UTF-8", "-cp", System.getProperty("java.class.path")));
        for (String property : List.of(Places.BRIDGE_PROPERTY, Places.LIBRARY_PATH)) {
            if (System.getProperty(property) != null) {
                command.add(1, "-D" + property + "=" + System.getProperty(property));
            }
        }
        command.addAll(List.of(Probe.class.getName(), linked ? "linked" : "rpc"));
        return command;
    }
}
