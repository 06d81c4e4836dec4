import com.kestrune.tmqkci.KciLoginOptions;
import com.kestrune.tmqkci.KciPoolOptions;
import com.kestrune.tmqkci.KciSessionPool;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.BrokenBarrierException;
import java.util.concurrent.CyclicBarrier;

/**
 * Threads that borrow sessions of a pool, make a call and give them back, as often as they can. Loans a second are the
 * median of the runs, the waits and each thread's loans those of all runs.
 */
final class PoolBench {
    private static final int RUNS = 5;
    private static final long RUN_NANOS = 600_000_000L;
    private static final int MOST_LOANS = 1_000_000;

    private PoolBench() {
    }

    /** What one thread of each run does: how long each of its loans was waited for. */
    private static final class Borrower implements Runnable {
        private final KciSessionPool pool;
        private final CyclicBarrier begin;
        private long[] waits = new long[1024];
        private int loans;

        Borrower(KciSessionPool pool, CyclicBarrier begin) {
            this.pool = pool;
            this.begin = begin;
        }

        @Override
        public void run() {
            try {
                begin.await();
            } catch (InterruptedException | BrokenBarrierException never) {
                throw new AssertionError(never);
            }
            long end = System.nanoTime() + RUN_NANOS;
            for (long now = System.nanoTime(); now < end && loans < MOST_LOANS; now = System.nanoTime()) {
                try (KciSessionPool.Loan loan = pool.borrow()) {
                    if (loans == waits.length) {
                        waits = Arrays.copyOf(waits, 2 * loans);
                    }
                    waits[loans++] = System.nanoTime() - now;
                    loan.session().execute("3 + 4");
                }
            }
        }
    }

    static void row(int sessions, int threadCount) throws InterruptedException {
        KciLoginOptions login = new KciLoginOptions().server("local").user("guest")
                .passwordFrom("guest"::toCharArray);
        KciPoolOptions options = KciPoolOptions.DEFAULTS.withSize(sessions, sessions);
        try (KciSessionPool pool = new KciSessionPool(login, options)) {
            List<Borrower> borrowers = new ArrayList<>();
            CyclicBarrier begin = new CyclicBarrier(threadCount);
            for (int i = 0; i < threadCount; ++i) {
                borrowers.add(new Borrower(pool, begin));
            }
            double[] perSecond = new double[RUNS];
            for (int run = 0, before = 0; run < RUNS; ++run) {
                List<Thread> threads = borrowers.stream().map(Thread::new).toList();
                threads.forEach(Thread::start);
                for (Thread thread : threads) {
                    thread.join();
                }
                int loans = borrowers.stream().mapToInt(each -> each.loans).sum();
                perSecond[run] = (loans - before) * 1e9 / RUN_NANOS;
                before = loans;
            }
            Runs runs = new Runs(perSecond);
            long[] waits = borrowers.stream().flatMapToLong(each -> Arrays.stream(each.waits, 0, each.loans)).sorted()
                    .toArray();
            int least = borrowers.stream().mapToInt(each -> each.loans).min().orElseThrow();
            int most = borrowers.stream().mapToInt(each -> each.loans).max().orElseThrow();
            System.out.printf("pool: %3d sessions, %3d threads, %d runs %9.0f loans/s (spread %.1f%%)  "
                    + "%6d to %6d for each thread  waits %.3f ms median, %.3f of 99 in 100, %.3f longest%n",
                    sessions, threadCount, runs.count(), runs.median(), runs.spread(), least, most,
                    waits[waits.length / 2] / 1e6,
                    waits[(int) (waits.length * 0.99)] / 1e6, waits[waits.length - 1] / 1e6);
        }
    }
}
