package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Where the library is looked for, and what is said when it cannot be loaded; each case in a Java of its own. */
class LibraryTest {
    private static final String INSTALLATION = System.getenv("KESTRUNE");
    private static final String GOOD = INSTALLATION + "/lib/" + TmqKciLibrary.FILE_NAME;
    private static final String JAVA32 = System.getProperty("java.home") + "/bin/java";
    private static final String JAVA64 = System.getProperty("tests.java64");
    private static final String PROPERTY = "system property com.kestrune.tmqkci.library: ";
    private static final String VARIABLE = "environment variable KESTRUNE: ";
    private static final String HOW_TO_NAME_IT = "-Dcom.kestrune.tmqkci.library=/path/to/libtmqkci313.so";

    @TempDir
    Path folder;

    /** What the probe prints; a null place is not set. */
    private String probe(String java, String property, String installation, Path libraryPath)
            throws IOException, InterruptedException {
        List<String> command = new ArrayList<>(List.of(java, "-cp", System.getProperty("java.class.path")));
        command.add("-Djava.library.path=" + libraryPath);
        if (property != null) {
            command.add("-D" + TmqKciLibrary.PROPERTY + "=" + property);
        }
        command.add(LibraryProbe.class.getName());
        ProcessBuilder builder = new ProcessBuilder(command).redirectErrorStream(true);
        builder.environment().remove("KESTRUNE");
        if (installation != null) {
            builder.environment().put("KESTRUNE", installation);
        }
        Process process = builder.start();
        String output = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8).strip();
        assertEquals(0, process.waitFor(), output);
        return output;
    }

    private static void assertContains(String output, String... parts) {
        for (String part : parts) {
            assertTrue(output.contains(part), () -> "\"" + part + "\" is not in:\n" + output);
        }
    }

    @Test
    void thePlacesAreTriedInOrder() throws Exception {
        Path copy = Files.copy(Path.of(GOOD), folder.resolve(TmqKciLibrary.FILE_NAME));
        assertEquals("loaded " + GOOD, probe(JAVA32, GOOD, "/nowhere", folder));
        assertEquals("loaded " + GOOD, probe(JAVA32, null, INSTALLATION, folder));
        assertEquals("loaded " + copy, probe(JAVA32, null, null, folder));
        assertEquals("loaded " + copy, probe(JAVA32, "/nowhere/library.so", "/nowhere", folder));
    }

    @Test
    void everyMissingFileIsListed() throws Exception {
        assertContains(probe(JAVA32, "/nowhere/library.so", "/elsewhere", folder),
                PROPERTY + "/nowhere/library.so: there is no such file",
                VARIABLE + "/elsewhere/lib/libtmqkci313.so: there is no such file",
                "java.library.path: no libtmqkci313.so in " + folder, HOW_TO_NAME_IT);
        assertContains(probe(JAVA32, null, "", folder), PROPERTY + "it is not set", VARIABLE + "it is not set");
    }

    @Test
    void aJavaOf64BitsIsTold() throws Exception {
        Files.copy(Path.of(GOOD), folder.resolve(TmqKciLibrary.FILE_NAME));
        String cause = ": it is a 32-bit (i386) library and this Java is 64-bit (x86-64)";
        assertContains(probe(JAVA64, GOOD, INSTALLATION, folder), PROPERTY + GOOD + cause, VARIABLE + GOOD + cause,
                "java.library.path: " + folder.resolve(TmqKciLibrary.FILE_NAME) + cause,
                "run the program with a 32-bit (i386) Java", HOW_TO_NAME_IT);
        assertContains(probe(JAVA64, null, null, Path.of("/nowhere")), "run the program with a 32-bit (i386) Java");
    }

    @Test
    void unfitFilesAreTold() throws Exception {
        String needsAbsent = System.getProperty("tests.needsAbsent");
        assertContains(probe(JAVA32, needsAbsent, null, folder),
                needsAbsent + ": it needs the library libjava_test_absent.so, which is missing (",
                "Install the 32-bit (i386) package that contains libjava_test_absent.so");
        String needsFuture = System.getProperty("tests.needsFuture");
        assertContains(probe(JAVA32, needsFuture, null, folder),
                needsFuture + ": it needs a newer C library, with GLIBC_2.99 (", "a newer C library");
        assertContains(probe(JAVA32, JAVA64, null, folder),
                JAVA64 + ": it is a 64-bit (x86-64) library and this Java is 32-bit (i386)");
        Path text = Files.writeString(folder.resolve("text.so"), "no library at all");
        assertContains(probe(JAVA32, text.toString(), null, folder), text + ": it is not a shared library");
        Files.writeString(text, "short");
        assertContains(probe(JAVA32, text.toString(), null, folder), text + ": it is not a shared library");
        assertContains(probe(JAVA32, folder.toString(), null, folder), folder + ": it is not a file");
    }
}
