import com.kestrune.tmqkci.KciMonitor;

import java.io.File;
import java.io.IOException;
import java.lang.ProcessBuilder.Redirect;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Executors;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.ThreadLocalRandom;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicLongArray;
import java.util.concurrent.atomic.LongAccumulator;
import java.util.concurrent.locks.ReadWriteLock;
import java.util.concurrent.locks.ReentrantReadWriteLock;
import java.util.function.ToLongFunction;
import java.util.logging.Level;
import java.util.logging.Logger;

/**
 * Many threads use sessions in every way at once, while calls are stopped, hosts killed, processes started and thread
 * dumps taken. Every minute all of them pause: what is open is counted, and stands in a line. Ends with status 1 if
 * anything was lost, left, wrong or too late.
 */
public final class Soak {
    private static final int THREADS = 16;
    /** As many sessions as the local store allows. */
    private static final int ALLOWED = 100;
    private static final int STORM = 20;
    private static final long LONGEST_STEP_NANOS = TimeUnit.SECONDS.toNanos(60);
    private static final long SETTLE_NANOS = TimeUnit.SECONDS.toNanos(5);
    private static final int JUDGED_LINES = 15;
    private static final double GROWTH = 1.05;
    /** What threads have under way differs from pause to pause. */
    private static final int SLACK = 3000;

    private static final ProcessHandle ME = ProcessHandle.current();
    private static final KciMonitor MONITOR = KciMonitor.instance();
    private static final Logger LOG = Logger.getLogger(KciMonitor.LOGGER);

    /** What a pause finds: sizes in KB, and numbers. */
    private record Line(long heap, long java, long host, int objects, int descriptors, int threads, int children,
            int sessions) {
    }

    private final Work work = new Work();
    /** Held for reading by whoever is active, for writing during a pause. Fair: a pause begins soon. */
    private final ReadWriteLock pauses = new ReentrantReadWriteLock(true);
    private final AtomicLongArray begins = new AtomicLongArray(THREADS);
    private final LongAccumulator longestStep = new LongAccumulator(Math::max, 0);
    private final List<Line> lines = new ArrayList<>();
    private final List<String> faults = new ArrayList<>();
    private final long start = System.nanoTime();
    private final long end;
    private final long period;
    private volatile boolean over;
    private volatile int kills;
    private volatile int forks;

    private Soak(long seconds) {
        end = start + TimeUnit.SECONDS.toNanos(seconds);
        period = TimeUnit.SECONDS.toNanos(Math.max(5, Math.min(60, seconds / 10)));
    }

    private synchronized void fault(String text, Throwable cause) {
        faults.add(text);
        say("FAULT " + text);
        if (cause != null) {
            cause.printStackTrace();
        }
    }

    private void say(String text) {
        System.err.printf("%5d s  %s%n", TimeUnit.NANOSECONDS.toSeconds(System.nanoTime() - start), text);
    }

    private interface Action {
        void run() throws IOException, InterruptedException;
    }

    /** Does something again and again, with random pauses, but not while all pause. */
    private Thread begin(String name, int longestPauseMillis, Action action) {
        Thread thread = new Thread(() -> {
            while (!over) {
                pauses.readLock().lock();
                try {
                    action.run();
                } catch (Throwable failure) {
                    fault(name + ": " + failure, failure);
                } finally {
                    pauses.readLock().unlock();
                }
                try {
                    Thread.sleep(ThreadLocalRandom.current().nextInt(longestPauseMillis + 1));
                } catch (InterruptedException late) {
                    fault(name + " was interrupted in its pause", late);
                }
            }
        }, name);
        thread.start();
        return thread;
    }

    /** Interrupts a thread at a random moment of the step that it has begun, if that still goes on then. */
    private final class Interrupter {
        private final ScheduledExecutorService clock = Executors.newScheduledThreadPool(1);

        void step(int number) {
            begins.set(number, System.nanoTime());
            boolean[] done = {false};
            try {
                work.step(thread -> clock.schedule(() -> {
                    synchronized (done) {
                        if (!done[0]) {
                            thread.interrupt();
                        }
                    }
                }, ThreadLocalRandom.current().nextInt(20_000), TimeUnit.MICROSECONDS));
            } finally {
                synchronized (done) {
                    done[0] = true;
                }
                Thread.interrupted();
                longestStep.accumulate(System.nanoTime() - begins.getAndSet(number, 0));
            }
        }
    }

    private static List<ProcessHandle> hosts() {
        return ME.children().filter(child -> child.info().command().orElse("").contains("/tmqkci-host")).toList();
    }

    /** In the last third of the time the host is left alone, so that its own memory can be judged. */
    private void killHost() {
        if (System.nanoTime() < start + (end - start) / 3 * 2) {
            for (ProcessHandle host : hosts()) {
                work.lastKill = System.nanoTime();
                host.destroyForcibly();
                ++kills;
            }
        }
    }

    private void fork(String... command) throws IOException, InterruptedException {
        Process process = new ProcessBuilder(command).redirectErrorStream(true).redirectOutput(Redirect.DISCARD)
                .start();
        ++forks;
        if (!process.waitFor(60, TimeUnit.SECONDS) || process.exitValue() != 0) {
            fault(String.join(" ", command) + " ended with " + process, null);
        }
    }

    private void storm() throws IOException, InterruptedException {
        fork("/bin/sh", "-c", "for i in $(seq " + STORM + "); do kill -QUIT " + ME.pid() + "; done");
    }

    private void watch() {
        for (int i = 0; i < THREADS; ++i) {
            long begin = begins.get(i);
            if (begin != 0 && System.nanoTime() - begin > LONGEST_STEP_NANOS) {
                Thread.getAllStackTraces().forEach((thread, frames) -> {
                    System.err.println(thread);
                    for (StackTraceElement frame : frames) {
                        System.err.println("    " + frame);
                    }
                });
                say("FAULT a step of thread " + i + " does not end");
                Runtime.getRuntime().halt(1);
            }
        }
    }

    private static long status(long process, String name) throws IOException {
        for (String line : Files.readAllLines(Path.of("/proc/" + process + "/status"))) {
            if (line.startsWith(name + ":")) {
                return Long.parseLong(line.replaceAll("\\D", ""));
            }
        }
        throw new IOException("no " + name);
    }

    private static int entries(String folder) {
        return new File(folder).list().length;
    }

    /** Lets all threads pause, counts, and lets them go on. */
    private void pause() throws IOException, InterruptedException {
        pauses.writeLock().lock();
        try {
            String wrong = work.wrongCounts();
            if (wrong != null) {
                fault(wrong, null);
            }
            // Threads that wait for futures live for a second yet, logouts of idle sessions are under way.
            long settled = System.nanoTime() + SETTLE_NANOS;
            while (System.nanoTime() < settled && MONITOR.getOpenSessions() != work.openSessions()) {
                Thread.sleep(50);
            }
            System.gc();
            Thread.sleep(1500);
            System.gc();
            int objects = work.storedObjects();
            long host = 0;
            for (ProcessHandle each : hosts()) {
                host += status(each.pid(), "VmRSS");
            }
            Runtime runtime = Runtime.getRuntime();
            int reapers = (int) Thread.getAllStackTraces().keySet().stream()
                    .filter(thread -> thread.getName().equals("process reaper")).count();
            Line line = new Line((runtime.totalMemory() - runtime.freeMemory()) / 1024, status(ME.pid(), "VmRSS"), host,
                    objects, entries("/proc/self/fd"), entries("/proc/self/task") - reapers,
                    (int) ME.descendants().count(), work.openSessions());
            lines.add(line);
            say(String.format("%,d steps (the longest %,d ms), %,d calls, %,d stopped, %,d breaks, %,d conflicts, "
                    + "%,d retries, %d kills, %,d lost, %,d logins, %,d forks; heap %,d KB, Java %,d KB, host %,d KB, "
                    + "%,d objects, %d descriptors, %d threads, %d children, %d sessions, %d of them idle in the pool",
                    work.steps.sum(), TimeUnit.NANOSECONDS.toMillis(longestStep.get()), MONITOR.getCalls(),
                    work.stops.sum(), MONITOR.getBreaks(), MONITOR.getConflicts(), work.retries.sum(), kills,
                    MONITOR.getLostSessions(), MONITOR.getLogins(), forks, line.heap, line.java, line.host,
                    line.objects, line.descriptors, line.threads, line.children, line.sessions,
                    work.pool.idleSessions()));
            if (MONITOR.getOpenSessions() != line.sessions) {
                fault(MONITOR.getOpenSessions() + " sessions are open, and " + line.sessions + " known", null);
            }
        } finally {
            pauses.writeLock().unlock();
        }
    }

    private void judgeGrowth(String what, int from, int middle, ToLongFunction<Line> size) {
        double before = lines.subList(from, middle).stream().mapToLong(size).average().orElseThrow();
        double after = lines.subList(middle, lines.size()).stream().mapToLong(size).average().orElseThrow();
        say(String.format("%s: %,.0f, then %,.0f", what, before, after));
        if (after > before * GROWTH + SLACK) {
            fault(what + " grows", null);
        }
    }

    private void judge() {
        Line first = lines.get(0);
        Line last = lines.get(lines.size() - 1);
        if (last.descriptors > first.descriptors || last.threads > first.threads || last.children > first.children) {
            fault("more descriptors, threads or children than after the first pause: " + first + ", " + last, null);
        }
        if (lines.size() < JUDGED_LINES) {
            say("too few lines to judge the memory");
            return;
        }
        int third = lines.size() / 3;
        judgeGrowth("heap in KB of the second and the last third", third, lines.size() - third, Line::heap);
        judgeGrowth("Java's memory in KB of the second and the last third", third, lines.size() - third, Line::java);
        judgeGrowth("the last host's objects, early and late", lines.size() - third + 1, lines.size() - third / 2,
                Line::objects);
    }

    private boolean run() throws IOException, InterruptedException {
        Interrupter interrupter = new Interrupter();
        List<Thread> threads = new ArrayList<>();
        for (int i = 0; i < THREADS; ++i) {
            int number = i;
            threads.add(begin("worker " + i, 2, () -> interrupter.step(number)));
        }
        threads.add(begin("killer", 20_000, this::killHost));
        threads.add(begin("forker", 50, () -> fork("/bin/true")));
        threads.add(begin("storm", 4_000, this::storm));
        long next = start + period;
        while (System.nanoTime() < end) {
            Thread.sleep(200);
            watch();
            if (System.nanoTime() >= next) {
                pause();
                next += period;
            }
        }
        over = true;
        for (Thread thread : threads) {
            for (int i = 0; thread.isAlive(); ++i) {
                watch();
                thread.join(200);
            }
        }
        pause();
        judge();
        String wrong = work.end(ALLOWED);
        if (wrong != null || MONITOR.getOpenSessions() != 0) {
            fault(wrong + "; " + MONITOR.getOpenSessions() + " sessions are open at the end", null);
        }
        interrupter.clock.shutdownNow();
        say(faults.isEmpty() ? "nothing was lost" : faults.size() + " faults");
        return faults.isEmpty();
    }

    public static void main(String[] args) throws IOException, InterruptedException {
        // What the virtual machine printed until here is its own affair.
        System.out.println("soak begins");
        System.out.flush();
        LOG.setLevel(Level.WARNING);
        LOG.setFilter(record -> !record.getMessage().contains("lost its server"));
        boolean good = new Soak(args.length > 0 ? Long.parseLong(args[0]) : 1800).run();
        Runtime.getRuntime().exit(good ? 0 : 1);
    }
}
