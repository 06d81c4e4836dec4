package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Field;

import org.junit.jupiter.api.Test;

/** Texts and reports from the installation's English messages. */
class KciMessagesTest {
    private static final String RULE = "-----------------------------------------------------\n";

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
        RuntimeException mine = new RuntimeException("printer");
        assertSame(mine, assertThrows(RuntimeException.class,
                () -> KciMessages.report(error("message", 1, 2), 1, false, 1, object -> {
                    throw mine;
                })));
        assertTrue(KciMessages.report(error("message", 7)).endsWith("Argument 1: 7\n"));
    }
}
