package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.ChildJava.JAVA;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Where the library is looked for, and what is said when it cannot be loaded; each case in a Java of its own. */
class LibraryTest {
    private static final boolean IS_64 = "64".equals(System.getProperty("sun.arch.data.model"));
    private static final String OTHER_JAVA = System.getProperty(IS_64 ? "tests.java32" : "tests.java64");
    private static final String FOLDER = IS_64 ? "/lib64/" : "/lib/";
    private static final String OTHER_FOLDER = IS_64 ? "/lib/" : "/lib64/";
    private static final String KIND = IS_64 ? "64-bit (x86-64)" : "32-bit (i386)";
    private static final String OTHER_KIND = IS_64 ? "32-bit (i386)" : "64-bit (x86-64)";
    private static final String INSTALLATION = System.getenv("KESTRUNE");
    private static final String GOOD = INSTALLATION + FOLDER + TmqKciLibrary.FILE_NAME;
    private static final String PROPERTY = "system property com.kestrune.tmqkci.library: ";
    private static final String VARIABLE = "environment variable KESTRUNE: ";
    private static final String HOW_TO_NAME_IT = "-Dcom.kestrune.tmqkci.library=/path/to/libtmqkci313.so";

    @TempDir
    Path folder;

    /** Tells whether the library can be loaded. */
    static final class Probe {
        public static void main(String[] args) {
            boolean available = TmqKciLibrary.isAvailable();
            try {
                TmqKciInterface._KCSIdetach(new TmqKciException());
                System.out.print(available ? "loaded " + TmqKciLibrary.location() : "not loaded, but usable");
            } catch (UnsatisfiedLinkError error) {
                System.out.print(available ? "loaded, but not usable" : error.getMessage());
            }
        }
    }

    /** What the probe prints holds each part; an empty place is not set. */
    private void tells(String java, String property, String installation, Object libraryPath, String... parts)
            throws Exception {
        String output = ChildJava.output(java, folder, Map.of("KESTRUNE", installation), Probe.class,
                "-Djava.library.path=" + libraryPath, "-D" + TmqKciLibrary.PROPERTY + "=" + property);
        for (String part : parts) {
            assertTrue(output.contains(part), () -> "\"" + part + "\" is not in:\n" + output);
        }
    }

    @Test
    void thePlacesAreTriedInOrder() throws Exception {
        tells(JAVA, "/nowhere/library.so", "/elsewhere", folder,
                PROPERTY + "/nowhere/library.so: there is no such file\n  - " + VARIABLE
                        + "/elsewhere" + FOLDER + "libtmqkci313.so: there is no such file\n  - java.library.path: no "
                        + "libtmqkci313.so in " + folder
                        + "\n  - copy in the jar: not used, since another file is named\n", HOW_TO_NAME_IT);
        tells(JAVA, "", "", folder, PROPERTY + "it is not set", VARIABLE + "it is not set",
                "copy in the jar: the jar carries none for a " + KIND + " Java");
        Path copy = Files.copy(Path.of(GOOD), folder.resolve(TmqKciLibrary.FILE_NAME));
        tells(JAVA, GOOD, "/nowhere", folder, "loaded " + GOOD);
        tells(JAVA, "", INSTALLATION, folder, "loaded " + GOOD);
        for (String withWorkingFolder : new String[] {"/nowhere:", "/nowhere::/elsewhere"}) {
            tells(JAVA, "/nowhere/library.so", "/nowhere", withWorkingFolder, "loaded " + copy);
        }
    }

    @Test
    void eachKindOfJavaHasItsOwn() throws Exception {
        tells(OTHER_JAVA, "", INSTALLATION, folder, "loaded " + INSTALLATION + OTHER_FOLDER + TmqKciLibrary.FILE_NAME);
        Path installed = Files.createDirectories(Path.of(folder + "/installation" + FOLDER));
        Path copy = Files.copy(Path.of(GOOD), installed.resolve(TmqKciLibrary.FILE_NAME));
        String cause = ": it is a " + KIND + " library and this Java is " + OTHER_KIND;
        tells(OTHER_JAVA, GOOD, "", installed, PROPERTY + GOOD + cause, "java.library.path: " + copy + cause,
                "is the one in the folder " + OTHER_FOLDER.replace("/", "") + " of an installation", HOW_TO_NAME_IT);
        tells(OTHER_JAVA, "", installed.getParent().toString(), "/nowhere", "there is no such file",
                "holds the bridge for a " + KIND.substring(0, 6) + " Java only",
                "install the bridge for " + OTHER_KIND);
    }

    /** A copy of the library that names what it needs differently. */
    private String changed(String name, String newName) throws Exception {
        String library = Files.readString(Path.of(GOOD), StandardCharsets.ISO_8859_1);
        return Files.writeString(folder.resolve(newName + ".so"), library.replaceAll(name, newName),
                StandardCharsets.ISO_8859_1).toString();
    }

    @Test
    void unfitFilesAreTold() throws Exception {
        for (String[] row : new String[][] {
            {changed("libc.so.6", "libq.so.6"), "it needs the library libq.so.6, which is missing (", "Install libq6"},
            {changed("GLIBC_2[.][0-9]{2}", "GLIBC_2.99"), "it needs a newer C library, with GLIBC_2.99 (",
                "Use a system with a newer C library"},
            {"/proc/self/maps", "it is not a shared library", HOW_TO_NAME_IT},
            {folder.toString(), "it is not a file", HOW_TO_NAME_IT}}) {
            tells(JAVA, row[0], "", "/nowhere", PROPERTY + row[0] + ": " + row[1], row[2], "copy in the jar: not used");
        }
    }
}
