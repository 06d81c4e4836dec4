package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Field;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Map;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Texts and reports from the installation's English messages, and from damaged copies of them. */
class KciMessagesTest {
    private static final String RULE = "-----------------------------------------------------\n";

    @TempDir
    Path folder;

    private static TmqKciException error(String message, long... args) {
        TmqKciException error = new TmqKciException(message);
        error.category = 3613;
        error.number = 2010;
        error.context = 20;
        error.args = args;
        error.argCount = args.length;
        return error;
    }

    @Test
    void textsSayWhatIsWrong() throws Exception {
        assertTrue(KciMessages.text(3613, 2010).startsWith("The receiver has no method for this selector."));
        assertTrue(KciMessages.text(3613, 1).startsWith("The error has a number that this release does not know."));
        for (Field number : KciErrorNumber.class.getFields()) {
            assertTrue(number.getType() == long.class || !KciMessages.text(KciErrorNumber.SYSTEM_CATEGORY,
                    number.getInt(null)).startsWith("The error has a number that"), number.getName());
        }
        assertEquals("errmsg.userErrTxt", KciMessages.text(10, 2010));
    }

    @Test
    void reportsShowArgumentsByPrinterOrIdentifier() {
        TmqKciException error = error("no such method: \u00e4\u20ac\ud83d\ude00", 4294967295L, 20);
        String start = RULE + "Error                    The session goes on.\n"
                + "no such method: \u00e4\u20ac\ud83d\ude00\n[SYSTEM]  Number: 2010    Arguments: 2\n";
        assertEquals(start + "Argument 1: 4294967295\nArgument 2: 20\n", KciMessages.report(error));
        assertEquals(KciMessages.report(error), error.render());
        assertEquals("com.kestrune.tmqkci.TmqKciException: error 2010: no such method: \u00e4\u20ac\ud83d\ude00",
                error.toString());
        KciSession session = KciSessionTest.login("local");
        TmqKciException thrown = assertThrows(TmqKciException.class, () -> session.execute("nil foo: #(1 2)"));
        assertTrue(thrown.render().contains("Argument 2: #foo:\nArgument 3: Array(Array(1 2))\n"), thrown.render());
        assertTrue(thrown.toString().endsWith("#foo: (" + session + ")"), thrown.toString());
        session.close();
        assertTrue(thrown.render().contains("Argument 2: " + thrown.args[1] + "\n"), thrown.render());
        assertEquals(start + "Argument 1: <\u20ac4294967295>\nArgument 2: 20\n",
                KciMessages.report(error, 1, false, 1, object -> object == 20 ? null : "<\u20ac" + object + ">"));
        error.fatal = true;
        String numbered = KciMessages.report(error, 2, true, 3, object -> KciMessages.report(error("inner")).strip());
        assertTrue(numbered.startsWith(RULE + "Error 2 of 3             FATAL: the session has ended.\n"), numbered);
        assertTrue(numbered.contains("Category: 3613 [SYSTEM]  Number: 2010  Arguments: 2  Context: 20\n"), numbered);
        assertTrue(numbered.contains("Argument 2: " + RULE + "Error   "), numbered);
    }

    @Test
    void oddErrorsAreReported() {
        TmqKciException error = new TmqKciException();
        assertTrue(KciMessages.report(error).contains("\n\n[APPLICATION]  Number: 0"));
        error.argCount = 5;
        assertTrue(KciMessages.report(error).contains("Arguments: 0"));
        error.args = new long[12];
        error.argCount = 20;
        assertTrue(KciMessages.report(error).contains("Argument 10: 0\n"));
        error.argCount = -1;
        assertFalse(KciMessages.report(error).contains("Argument 1"));
        // A message longer than an error record holds is cut between characters, and lines between characters, too.
        error.message = "\u20ac".repeat(1000);
        String report = KciMessages.report(error);
        assertEquals(133, report.chars().filter(c -> c == '\u20ac').count());
        assertEquals(-1, report.indexOf('\ufffd'));
        assertThrows(NullPointerException.class, () -> KciMessages.report(null));
        RuntimeException mine = new RuntimeException("printer");
        assertSame(mine, assertThrows(RuntimeException.class,
                () -> KciMessages.report(error("message", 1, 2), 1, false, 1, object -> {
                    throw mine;
                })));
        assertTrue(KciMessages.report(error("message", 7)).endsWith("Argument 1: 7\n"));
    }

    @Test
    void manyReportsLeaveNothingBehind() {
        TmqKciException error = error("message", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
        for (int i = 0; i < 20000; ++i) {
            assertEquals(14, KciMessages.report(error, 1, true, 1, Long::toString).lines().count());
        }
    }

    /** Prints a text and a report. */
    static final class Probe {
        public static void main(String[] args) {
            for (int i = 0; i < 3; ++i) {
                System.out.println(KciMessages.text(3613, 2010));
                System.out.print(KciMessages.report(error("message")));
            }
        }
    }

    private String probe(byte[] messageFile) throws Exception {
        Path file = Files.write(folder.resolve("damaged.err"), messageFile);
        // A report of a fatal error, were there one, would wait this long.
        return ChildJava.output(ChildJava.JAVA, folder,
                Map.of("KESTRUNE_LANG", file.toString(), "KS_CORE_TIME_OUT", "129600"), Probe.class, "-Xcheck:jni");
    }

    @Test
    void damagedFilesEndInBrackets() throws Exception {
        byte[] good = Files.readAllBytes(Path.of(System.getenv("KESTRUNE_LANG")));
        int textBegin = ByteBuffer.wrap(good).order(ByteOrder.LITTLE_ENDIAN).getInt(16);
        byte[] hugeTable = good.clone();
        ByteBuffer.wrap(hugeTable).order(ByteOrder.LITTLE_ENDIAN).putInt(12, -5);
        byte[] emptyLines = good.clone();
        Arrays.fill(emptyLines, textBegin, emptyLines.length, (byte) '\n');
        String bracketed = "[errmsg.rtErrDoesNotUnderstand]\n" + RULE + "[errmsg.line1a]         [errmsg.line1c]\n"
                + "message\n[errmsg.line3g [errmsg.line3d] 2010][errmsg.line3h 0]\n";
        for (byte[] damaged : new byte[][] {{}, "rubbish".repeat(100).getBytes(), hugeTable, emptyLines}) {
            assertTrue(probe(damaged).contains(bracketed));
        }
        byte[] notUtf8 = good.clone();
        for (int i = textBegin; i < notUtf8.length; ++i) {
            notUtf8[i] = notUtf8[i] == 'e' && notUtf8[i - 1] == 'h' ? (byte) 0xFF : notUtf8[i];
        }
        assertTrue(probe(notUtf8).contains("Th\ufffd r"));
    }
}
