import com.kestrune.tmqkci.KciLoginOptions;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciInterface;
import com.kestrune.tmqkci.TmqKciReport;

import java.lang.management.ManagementFactory;
import java.util.List;
import java.util.function.Supplier;

/** Times calls of the session API beside the native calls that they wrap; rounds alternate, the quickest counts. */
public final class SessionBench {
    private static final int ROUNDS = 40;
    private static final int CALLS = 5_000;
    private static final int OBJECTS = 100_000;
    private static final int SLICE = 4096;

    private static final com.sun.management.ThreadMXBean THREADS =
            (com.sun.management.ThreadMXBean) ManagementFactory.getThreadMXBean();
    private static final TmqKciException error = new TmqKciException();
    private static Object sink;

    private static int checked(int status) {
        if (status < 0) {
            throw error;
        }
        return status;
    }

    private static TmqKciReport nativeExecute(int session) {
        checked(TmqKciInterface._executeStr(session, "3 + 4", error));
        TmqKciReport result = new TmqKciReport();
        while (checked(TmqKciInterface._nbEnd(session, result, error)) == TmqKciInterface.NOT_READY) {
            Thread.onSpinWait();
        }
        return result;
    }

    private static TmqKciReport[] nativeFetch(int session, long array) {
        TmqKciReport source = TmqKciReport.ofOop(array);
        TmqKciReport[] all = new TmqKciReport[OBJECTS];
        TmqKciReport[] slice = new TmqKciReport[SLICE];
        for (int done = 0; done < OBJECTS;) {
            int length = Math.min(SLICE, OBJECTS - done);
            for (int i = 0; i < length; ++i) {
                slice[i] = all[done + i] = new TmqKciReport();
            }
            done += checked(TmqKciInterface._getObjs(session, source, done + 1L, length, slice, error));
        }
        return all;
    }

    private record Side(Supplier<Object> call, int calls) {
        /** Nanoseconds and bytes of garbage and results for each call. */
        double[] measure() {
            long bytes = THREADS.getThreadAllocatedBytes(Thread.currentThread().getId());
            long begin = System.nanoTime();
            for (int i = 0; i < calls; ++i) {
                sink = call.get();
            }
            long spent = System.nanoTime() - begin;
            bytes = THREADS.getThreadAllocatedBytes(Thread.currentThread().getId()) - bytes;
            return new double[] {(double) spent / calls, (double) bytes / calls};
        }
    }

    private static void row(String name, double limit, Side ours, Side peer) {
        double[] best = {Double.MAX_VALUE, Double.MAX_VALUE};
        double[] bytes = new double[2];
        for (int round = 0; round < ROUNDS; ++round) {
            Side[] sides = {ours, peer};
            for (int i = 0; i < 2; ++i) {
                int side = (round + i) % 2;
                double[] measured = sides[side].measure();
                best[side] = Math.min(best[side], measured[0]);
                bytes[side] = measured[1];
                if (sides[side].calls == 1) {
                    // What was fetched is collected and released outside the measurement.
                    sink = null;
                    System.gc();
                }
            }
        }
        double ratio = best[0] / best[1];
        System.out.printf("%-34s %12.0f %12.0f %7.3f %7.2f%s %10.0f %10.0f%n", name, best[0], best[1], ratio, limit,
                ratio <= limit ? "      " : " above", bytes[0], bytes[1]);
    }

    public static void main(String[] args) {
        try (KciSession session = KciSession.login(
                new KciLoginOptions().server("local").user("guest").password("guest".toCharArray()))) {
            int id = session.id();
            System.out.printf("%-34s %12s %12s %7s %7s %6s %9s %10s%n", "row", "ours ns", "native ns", "ratio",
                    "limit", "", "our bytes", "its bytes");
            row("execute(\"3 + 4\")", 1.3, new Side(() -> session.execute("3 + 4"), CALLS),
                    new Side(() -> nativeExecute(id), CALLS));
            KciObject array = session.execute("all := Array new: " + OBJECTS + ". 1 to: " + OBJECTS
                    + " do: [:i | all at: i put: (Array new: 1)]. all");
            List<KciObject> kept = session.fetchElements(array);
            row("100,000 objects fetched", 1.5, new Side(() -> session.fetchElements(array, 1, OBJECTS), 1),
                    new Side(() -> nativeFetch(id, array.oop()), 1));
            sink = kept;
        }
    }
}
