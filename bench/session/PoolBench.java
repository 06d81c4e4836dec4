import com.kestrune.tmqkci.KciLoginOptions;
import com.kestrune.tmqkci.KciPoolOptions;
import com.kestrune.tmqkci.KciSessionPool;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.BrokenBarrierException;
import java.util.concurrent.CyclicBarrier;

/** Threads that borrow sessions of a pool, make a call and give them back, as often as they can. */
final class PoolBench {
    private static final long NANOS = 3_000_000_000L;
    private static final int MOST_LOANS = 1_000_000;

    private PoolBench() {
    }

    /** One thread: how long each of its loans was waited for. */
    private static final class Borrower extends Thread {
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
            long end = System.nanoTime() + NANOS;
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

    static void row(int sessions, int threads) throws InterruptedException {
        KciLoginOptions login = new KciLoginOptions().server("local").user("guest")
                .passwordFrom("guest"::toCharArray);
        KciPoolOptions options = KciPoolOptions.DEFAULTS.withSize(sessions, sessions);
        try (KciSessionPool pool = new KciSessionPool(login, options)) {
            List<Borrower> borrowers = new ArrayList<>();
            CyclicBarrier begin = new CyclicBarrier(threads);
            for (int i = 0; i < threads; ++i) {
                borrowers.add(new Borrower(pool, begin));
            }
            borrowers.forEach(Thread::start);
            for (Borrower borrower : borrowers) {
                borrower.join();
            }
            long[] waits = borrowers.stream().flatMapToLong(each -> Arrays.stream(each.waits, 0, each.loans)).sorted()
                    .toArray();
            int least = borrowers.stream().mapToInt(each -> each.loans).min().orElseThrow();
            int most = borrowers.stream().mapToInt(each -> each.loans).max().orElseThrow();
            System.out.printf("pool: %3d sessions, %3d threads %9.0f loans/s  %6d to %6d for each thread  "
                    + "waits %.3f ms median, %.3f of 99 in 100, %.3f longest%n",
                    sessions, threads, waits.length * 1e9 / NANOS, least, most, waits[waits.length / 2] / 1e6,
                    waits[(int) (waits.length * 0.99)] / 1e6, waits[waits.length - 1] / 1e6);
        }
    }
}
