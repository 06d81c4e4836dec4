import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciInterface;
import com.kestrune.tmqkci.TmqKciReport;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * Makes millions of mixed native calls over the local store and prints the process's resident size as it goes, and that
 * of the client library's host process.
 */
public final class Soak {
    private static final TmqKciException error = new TmqKciException();
    private static int session;
    private static long calls;

    private static int checked(int status) {
        ++calls;
        if (status < 0) {
            throw new IllegalStateException("status " + status + ": " + error.getMessage());
        }
        return status;
    }

    private static TmqKciReport finish() {
        TmqKciReport result = new TmqKciReport();
        while (checked(TmqKciInterface._nbEnd(session, result, error)) == TmqKciInterface.NOT_READY) {
            Thread.onSpinWait();
        }
        return result;
    }

    private static TmqKciReport execute(String source) {
        checked(TmqKciInterface._executeStr(session, source, error));
        return finish();
    }

    private static TmqKciReport string(String text) {
        TmqKciReport report = new TmqKciReport();
        report.objType = -1;
        report.valueType = 7;
        report.valueString = text;
        return report;
    }

    private static long residentKilobytes(long process) throws IOException {
        for (String line : Files.readAllLines(Path.of("/proc/" + process + "/status"))) {
            if (line.startsWith("VmRSS:")) {
                return Long.parseLong(line.replaceAll("\\D", ""));
            }
        }
        throw new IOException("no VmRSS");
    }

    private static void progress(long start) throws IOException {
        System.out.printf("%,10d calls  %4d s  resident %,d KB", calls, (System.nanoTime() - start) / 1_000_000_000L,
                residentKilobytes(ProcessHandle.current().pid()));
        for (ProcessHandle host : ProcessHandle.current().children().toList()) {
            System.out.printf("  host process %,d KB", residentKilobytes(host.pid()));
        }
        System.out.println();
    }

    private static void round(TmqKciReport array, TmqKciReport stringClass, TmqKciReport[] elements, byte[] bytes, long[] changed) {
        TmqKciReport text = execute("'some text of the server' , ' and more'");
        checked(TmqKciInterface._isKindOf(session, text, stringClass, error));
        checked(TmqKciInterface._setup(session, text, error));
        checked(TmqKciInterface._getBytes(session, text, 1, 16, bytes, error));
        checked(TmqKciInterface._putBytes(session, text, 1, 16, bytes, error));
        checked(TmqKciInterface._getObjs(session, array, 1, elements.length, elements, error));
        TmqKciReport[] put = {string("one"), string("two")};
        checked(TmqKciInterface._putObjs(session, array, 1, put.length, put, error));
        checked(TmqKciInterface._perform(session, array, "at:", new TmqKciReport[] {number(1)}, 1, error));
        TmqKciReport first = finish();
        checked(TmqKciInterface._changedOops(session, changed, changed.length, error));
        // Fetching the elements saved those of the round before, too.
        long[] released = {text.oop, put[0].oop, put[1].oop, first.oop, elements[0].oop, elements[1].oop};
        checked(TmqKciInterface._releaseOops(session, released, released.length, error));
        ++calls;
        if (TmqKciInterface._executeStr(session, "nil foo", error) == 0) {
            TmqKciReport result = new TmqKciReport();
            int status;
            do {
                ++calls;
                status = TmqKciInterface._nbEnd(session, result, error);
            } while (status == TmqKciInterface.NOT_READY);
            if (status != TmqKciInterface.FAILED) {
                throw new IllegalStateException("an error was expected");
            }
            long[] errorObjects = java.util.Arrays.copyOf(error.args, error.argCount + 1);
            errorObjects[error.argCount] = error.context;
            checked(TmqKciInterface._releaseOops(session, errorObjects, errorObjects.length, error));
        }
    }

    private static TmqKciReport number(long value) {
        TmqKciReport report = new TmqKciReport();
        report.objType = -1;
        report.valueType = 3;
        report.valueLong = value;
        return report;
    }

    public static void main(String[] args) throws IOException {
        long wanted = args.length > 0 ? Long.parseLong(args[0]) : 5_000_000;
        long mostSeconds = args.length > 1 ? Long.parseLong(args[1]) : 600;
        if (TmqKciInterface._initialize(1, "soak", 65536, 1024, 0, new long[16], error) != TmqKciInterface.INITIALIZED) {
            throw error;
        }
        session = checked(TmqKciInterface._login("local", null, "guest", "guest", null, null, error));
        TmqKciReport array = execute("Array new: 100");
        TmqKciReport stringClass = execute("String");
        TmqKciReport[] elements = new TmqKciReport[100];
        java.util.Arrays.setAll(elements, i -> new TmqKciReport());
        long start = System.nanoTime();
        long nextLine = 0;
        while (calls < wanted && System.nanoTime() - start < mostSeconds * 1_000_000_000L) {
            if (calls >= nextLine) {
                progress(start);
                nextLine += wanted / 10;
            }
            round(array, stringClass, elements, new byte[16], new long[64]);
        }
        progress(start);
        checked(TmqKciInterface._logout(session, error));
    }
}
