package com.kestrune.tmqkci.demo;

import com.kestrune.tmqkci.KciMessages;
import com.kestrune.tmqkci.TmqKciCacheStats;
import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciInterface;
import com.kestrune.tmqkci.TmqKciLibrary;
import com.kestrune.tmqkci.TmqKciReport;

import java.io.PrintStream;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.stream.Collectors;
import java.util.stream.LongStream;
import java.util.stream.Stream;

/** Each group of native methods at work, with an account of what happened. */
final class Tour {
    private static final int ROOM = 100;

    private final Database database;
    private final int session;
    private final PrintStream out;

    Tour(Database database, PrintStream out) {
        this.database = database;
        this.session = database.session;
        this.out = out;
    }

    void run(boolean beginningOnly) {
        surroundings();
        sessions();
        numbers();
        if (beginningOnly) {
            return;
        }
        strings();
        doubleByteText();
        collections();
        datesAndTimes();
        errors();
        suspendedProcess();
        changes();
        releases();
        cacheStatistics();
    }

    private void section(String title, String methods) {
        out.printf("%n%s  (%s)%n", title, methods);
    }

    private void line(String what, Object result) {
        out.printf("  %-52s %s%n", what, result);
    }

    private void shown(String expression) {
        line(expression, database.print(database.run(expression)));
    }

    private static TmqKciReport[] emptyReports(int count) {
        return Stream.generate(TmqKciReport::new).limit(count).toArray(TmqKciReport[]::new);
    }

    private void surroundings() {
        section("Java and the bridge", "TmqKciLibrary.location");
        line("Java", System.getProperty("java.version") + ", " + System.getProperty("sun.arch.data.model") + "-bit");
        line("library that was loaded", TmqKciLibrary.location());
        line("client library", ProcessHandle.current().children().findAny().flatMap(host -> host.info().command())
                .map(command -> "in a host process, " + Path.of(command).getFileName()).orElse("in this process"));
    }

    private void sessions() {
        section("Sessions", "_initialize _kciVersion _login _checkErrors");
        String[] version = new String[1];
        Database.check(error -> TmqKciInterface._kciVersion(version, error));
        line("version of the client library", version[0]);
        line("number of this session", session);
        line("errors waiting", Database.check(error -> TmqKciInterface._checkErrors(session, error)));
    }

    private void numbers() {
        section("Numbers", "_executeStr _executeObj _perform _nbEnd _isKindOf");
        shown("3 + 4");
        shown("1073741823 * 2");
        shown("10 / 4.0");
        TmqKciReport source = TmqKciReport.ofString("17 max: 4");
        Database.check(error -> TmqKciInterface._executeObj(session, source, error));
        TmqKciReport result = new TmqKciReport();
        int status;
        do {
            status = Database.check(error -> TmqKciInterface._nbEnd(session, result, error));
        } while (status == TmqKciInterface.NOT_READY);
        line("source held by an object on the server", result.valueLong);
        TmqKciReport five = TmqKciReport.ofInteger(5);
        line("5 sent the message + with 2.5", database.send(five, "+", TmqKciReport.ofFloat(2.5)).valueDouble);
        database.run("| sum | sum := 0. 1 to: 100000 do: [:each | sum := sum + each]. sum");
        line("a long loop was polled before it ended", database.polls + " times");
        TmqKciReport numberClass = database.run("Number");
        line("is 5 a kind of Number?",
                Database.check(error -> TmqKciInterface._isKindOf(session, five, numberClass, error)) == 1);
    }

    private void strings() {
        section("Strings", "_setup _getBytes _putBytes");
        TmqKciReport string = database.describe(TmqKciReport.ofString("Hello, store"));
        line("a Java string became object " + string.oop, "'" + database.text(string) + "'");
        byte[] part = new byte[5];
        Database.check(error -> TmqKciInterface._getBytes(session, string, 8, part.length, part, error));
        line("its bytes 8 to 12", Arrays.toString(part));
        byte[] other = {'W', 'o', 'r', 'l', 'd'};
        Database.check(error -> TmqKciInterface._putBytes(session, string, 8, other.length, other, error));
        line("after others were put there", database.print(string));
        line("and reversed on the server", database.print(database.send(string, "reversed")));
    }

    private void doubleByteText() {
        section("Double-byte text", "_setup _perform");
        TmqKciReport text = database.describe(
                TmqKciReport.ofDoubleByteString("\u041F\u0440\u0438\u0432\u0435\u0442 \u20AC"));
        line("text beyond 8 bits: " + text.indexedSize + " bytes hold", "'" + database.text(text) + "'");
        line("characters in it, as the server counts", database.send(text, "size").valueLong);
        TmqKciReport joined = database.send(text, ",", TmqKciReport.ofString("!"));
        line("joined with a string", "'" + database.text(joined) + "'");
    }

    private void collections() {
        section("Collections", "_putObjs _getObjs _getNamedObjs _putNamedObjs");
        TmqKciReport array = database.run("Array new: 4");
        TmqKciReport[] values = {TmqKciReport.ofInteger(1), TmqKciReport.ofString("two"), TmqKciReport.ofFloat(3.5),
            TmqKciReport.ofCharacter('4')};
        Database.check(error -> TmqKciInterface._putObjs(session, array, 1, values.length, values, error));
        line("an array after four values were put into it", database.print(array));
        TmqKciReport[] elements = emptyReports(10);
        int count = Database.check(
                error -> TmqKciInterface._getObjs(session, array, 2, elements.length, elements, error));
        line("references read from the second on", Stream.of(elements).limit(count)
                .map(element -> database.print(database.describe(element))).collect(Collectors.joining(" ")));
        shown("#(3 1 2) inject: 0 into: [:sum :each | sum + each]");
        shown("Dictionary new at: #red put: 1; yourself");
        shown("Set new add: 5; add: 5; yourself");
        TmqKciReport pair = database.run("Association new");
        TmqKciReport[] both = {TmqKciReport.ofString("answer"), TmqKciReport.ofInteger(42)};
        Database.check(error -> TmqKciInterface._putNamedObjs(session, pair, 1, 2, both, error));
        TmqKciReport[] named = emptyReports(2);
        Database.check(error -> TmqKciInterface._getNamedObjs(session, pair, 1, 2, named, error));
        line("named variables of an association", database.print(database.describe(named[0])) + " "
                + named[1].valueLong);
    }

    private void datesAndTimes() {
        section("Dates and times", "_setup _nbEnd");
        int noon = 12 * 60 * 60 * 1000;
        TmqKciReport leapDay = database.describe(TmqKciReport.ofDateTime(2024, 60, noon));
        line("day 60 of 2024 at noon, on the server", database.print(leapDay));
        line("and back: year, day, milliseconds",
                leapDay.valueInt1 + " " + leapDay.valueInt2 + " " + leapDay.valueLong);
    }

    private void errors() {
        section("An error with its arguments", "_nbEnd _setup, KciMessages");
        String source = "true fizz: 3 buzz: 5";
        try {
            database.run(source);
        } catch (TmqKciException error) {
            line(source, "error " + error.number);
            line("its message", error.getMessage());
            line("its arguments", LongStream.of(error.args)
                    .mapToObj(oop -> database.print(database.describe(oop))).collect(Collectors.joining(" ")));
            out.println("  all of it, rendered through the message catalogue:");
            KciMessages.report(error, 1, false, 1, oop -> database.print(database.describe(oop))).lines()
                    .forEach(text -> out.println("    " + text));
        }
    }

    private void suspendedProcess() {
        section("A suspended process continued with a value", "_continue");
        String source = "100 + (nil price)";
        try {
            database.run(source);
        } catch (TmqKciException error) {
            line(source, "error " + error.number + ", suspended as object " + error.context);
            TmqKciReport result = database.resume(error.context, TmqKciReport.ofInteger(11));
            line("continued with 11 for the failed message", result.valueLong);
        }
        TmqKciException javaError = new TmqKciException();
        TmqKciInterface._continue(session, TmqKciReport.ofNil(), true, null, null, "Java failed", "at Tour", javaError);
        line("a Java error put on the server", "error " + javaError.number + ", message "
                + database.print(database.describe(javaError.args[1])));
    }

    private long[] changedOops() {
        long[] oops = new long[ROOM];
        int count = Database.check(error -> TmqKciInterface._changedOops(session, oops, ROOM, error));
        return Arrays.copyOf(oops, count);
    }

    private void changes() {
        section("Changed objects", "_changedOops");
        TmqKciReport account = database.run("account := Array new: 2");
        changedOops();
        line("objects changed so far, after a first look", changedOops().length);
        database.run("account at: 1 put: 'owner'. nil");
        boolean told = LongStream.of(changedOops()).anyMatch(oop -> oop == account.oop);
        line("code on the server changed object " + account.oop, told ? "and it is told" : "and it is not told");
    }

    private void releases() {
        section("Identifiers released", "_removeFromExportSet _releaseOops _logout");
        TmqKciReport[] objects = {database.run("Array new: 3"), database.run("Array new: 4")};
        Database.check(error -> TmqKciInterface._removeFromExportSet(session, objects, objects.length, error));
        line("objects released by their reports", objects.length);
        long[] oops = {database.run("Array new: 5").oop};
        Database.check(error -> TmqKciInterface._releaseOops(session, oops, oops.length, error));
        line("objects released by their identifiers", oops.length);
    }

    /** The bridge has none, and says so. */
    private void cacheStatistics() {
        section("Cache statistics", "_KCSIinitialize _KCSIstatNames _KCSIattach _KCSIsampleStats _KCSIgetStats "
                + "_KCSIdetach");
        TmqKciException error = new TmqKciException();
        long[] processes = {ProcessHandle.current().pid()};
        int[] statuses = {TmqKciInterface._KCSIinitialize(error), TmqKciInterface._KCSIstatNames(new Object[1], error),
            TmqKciInterface._KCSIattach("monitor", error), TmqKciInterface._KCSIsampleStats(processes, error),
            TmqKciInterface._KCSIgetStats(processes[0], new TmqKciCacheStats(), error),
            TmqKciInterface._KCSIdetach(error)};
        line("what each answers, " + Arrays.toString(statuses), error.getMessage());
    }
}
