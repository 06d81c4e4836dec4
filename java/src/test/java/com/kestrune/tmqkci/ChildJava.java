package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;

/** A program in a Java of its own, with the class path of the tests. */
final class ChildJava {
    static final String JAVA = System.getProperty("java.home") + "/bin/java";

    private ChildJava() {
    }

    /** What it prints; an empty variable of the environment is not set. */
    static String output(String java, Path folder, Map<String, String> environment, Class<?> main, String... options)
            throws IOException, InterruptedException {
        List<String> command = new ArrayList<>(List.of(java, "-cp", System.getProperty("java.class.path")));
        command.addAll(List.of(options));
        command.add(main.getName());
        ProcessBuilder builder = new ProcessBuilder(command).directory(folder.toFile())
                .redirectError(ProcessBuilder.Redirect.DISCARD);
        builder.environment().putAll(environment);
        builder.environment().values().removeIf(String::isEmpty);
        Process process = builder.start();
        String output = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertEquals(0, process.waitFor(), output);
        return output;
    }
}
