import com.kestrune.tmqkci.EventPath;
import com.kestrune.tmqkci.KciLoginOptions;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciInterface;
import com.kestrune.tmqkci.TmqKciReport;

import java.lang.management.ManagementFactory;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Supplier;

/**
 * Times calls of the session API beside the native calls that they wrap, and calls for many objects beside calls for
 * each; rounds alternate, the quickest counts. Then what events cost that nobody records, and how pools lend. Beside
 * each figure stands how far its runs differ.
 */
public final class SessionBench {
    private static final int ROUNDS = 40;
    private static final int CALLS = 5_000;
    private static final int OBJECTS = 100_000;
    private static final int SLICE = 4096;
    /** Of what takes a second or so. */
    private static final int LONG_ROUNDS = 3;
    private static final double EVENT_LIMIT_NANOS = 20;

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

    private static void row(String name, int rounds, double limit, Side ours, Side peer) {
        double[][] nanos = new double[2][rounds];
        double[] bytes = new double[2];
        for (int round = 0; round < rounds; ++round) {
            Side[] sides = {ours, peer};
            for (int i = 0; i < 2; ++i) {
                int side = (round + i) % 2;
                double[] measured = sides[side].measure();
                nanos[side][round] = measured[0];
                bytes[side] = measured[1];
                if (sides[side].calls == 1) {
                    // What was fetched is collected and released outside the measurement.
                    sink = null;
                    System.gc();
                }
            }
        }
        Runs our = new Runs(nanos[0]);
        Runs its = new Runs(nanos[1]);
        double ratio = our.quickest() / its.quickest();
        System.out.printf("%-34s %4d %12.0f %6.1f%% %12.0f %6.1f%% %7.3f %7.2f%s %10.0f %10.0f%n", name, rounds,
                our.quickest(), our.spread(), its.quickest(), its.spread(), ratio, limit,
                ratio <= limit ? "      " : " above", bytes[0], bytes[1]);
    }

    private static Object createOneByOne(KciSession session, KciObject cls, List<List<Integer>> rows) {
        List<KciObject> made = new ArrayList<>(rows.size());
        for (List<Integer> row : rows) {
            KciObject object = cls.send("new");
            session.storeNamed(object, 1, row);
            made.add(object);
        }
        return made;
    }

    private static Object fetchOneByOne(KciSession session, List<KciObject> objects) {
        List<List<KciObject>> contents = new ArrayList<>(objects.size());
        for (KciObject object : objects) {
            contents.add(session.fetchNamed(object));
        }
        return contents;
    }

    private static void manyObjects(KciSession session) {
        KciObject cls = session.execute("Object subclass: #Place variables: #(#x #y)");
        List<List<Integer>> rows = new ArrayList<>();
        for (int i = 0; i < OBJECTS; ++i) {
            rows.add(List.of(i, -i));
        }
        row("100,000: createAll, one by one", LONG_ROUNDS, 1.0 / 3, new Side(() -> session.createAll(cls, rows), 1),
                new Side(() -> createOneByOne(session, cls, rows), 1));
        List<KciObject> places = session.createAll(cls, rows);
        row("100,000: fetchAll, one by one", LONG_ROUNDS, 1.0 / 3, new Side(() -> session.fetchAll(places), 1),
                new Side(() -> fetchOneByOne(session, places), 1));
    }

    public static void main(String[] args) throws InterruptedException {
        try (KciSession session = KciSession.login(
                new KciLoginOptions().server("local").user("guest").password("guest".toCharArray()))) {
            int id = session.id();
            System.out.printf("%-34s %4s %12s %7s %12s %7s %7s %7s %6s %9s %10s%n", "row", "runs", "ours ns",
                    "spread", "native ns", "spread", "ratio", "limit", "", "our bytes", "its bytes");
            row("execute(\"3 + 4\")", ROUNDS, 1.3, new Side(() -> session.execute("3 + 4"), CALLS),
                    new Side(() -> nativeExecute(id), CALLS));
            KciObject array = session.execute("all := Array new: " + OBJECTS + ". 1 to: " + OBJECTS
                    + " do: [:i | all at: i put: (Array new: 1)]. all");
            List<KciObject> kept = session.fetchElements(array);
            row("100,000 objects fetched", ROUNDS, 1.5, new Side(() -> session.fetchElements(array, 1, OBJECTS), 1),
                    new Side(() -> nativeFetch(id, array.oop()), 1));
            sink = kept;
            manyObjects(session);
        }
        Runs alone = new Runs(EventPath.nanos());
        Runs recording = new Runs(EventPath.nanosDuringRecording());
        System.out.printf("event of a call that nobody records, %d runs: %.2f ns (spread %.1f%%), during a recording "
                + "%.2f ns (spread %.1f%%), limit %.0f%s%n", alone.count(), alone.quickest(), alone.spread(),
                recording.quickest(), recording.spread(), EVENT_LIMIT_NANOS,
                Math.max(alone.quickest(), recording.quickest()) <= EVENT_LIMIT_NANOS ? "" : " above");
        PoolBench.row(100, 8);
        PoolBench.row(8, 100);
    }
}
