package com.kestrune.tmqkci;

import java.lang.management.ManagementFactory;
import java.util.Locale;
import java.util.concurrent.atomic.LongAdder;
import java.util.function.Supplier;

import javax.management.JMException;
import javax.management.MBeanServer;
import javax.management.ObjectName;

/**
 * Knows what the sessions of this process do: counts it, and writes it to the {@link System.Logger} {@value #LOGGER}.
 * Logins and logouts are logged at level DEBUG, slow calls, breaks and conflicts at INFO or above, each with session,
 * duration and error number. Nothing that a user typed or an object holds is logged above DEBUG, and passwords never.
 *
 * <p>The same is recorded by Java's flight recorder where this virtual machine has one (module {@code jdk.jfr}), as
 * events {@code com.kestrune.tmqkci.Login}, {@code Call}, {@code Transaction} and {@code PoolWait}.
 *
 * <p>Thread-safe.
 *
 * @since 3.1.3
 */
public final class KciMonitor implements KciMonitorMXBean {
    /** The name of the logger. */
    public static final String LOGGER = "com.kestrune.tmqkci";

    /** The name under which {@link #register} shows the counters. */
    public static final String OBJECT_NAME = "com.kestrune.tmqkci:type=Sessions";

    static final System.Logger LOG = System.getLogger(LOGGER);

    private static final KciMonitor INSTANCE = new KciMonitor();
    private static final double NANOS_PER_MILLI = 1e6;

    private final LongAdder logins = new LongAdder();
    private final LongAdder failedLogins = new LongAdder();
    private final LongAdder ended = new LongAdder();
    private final LongAdder calls = new LongAdder();
    private final LongAdder errors = new LongAdder();
    private final LongAdder slowCalls = new LongAdder();
    private final LongAdder conflicts = new LongAdder();
    private final LongAdder breaks = new LongAdder();
    private final LongAdder lost = new LongAdder();
    private volatile int slowCallMillis = Math.max(0, Integer.getInteger(LOGGER + ".slowCallMillis", 0));

    /** The part that needs the module {@code java.management}. */
    private static final class Registry {
        static void register(boolean wanted) {
            try {
                MBeanServer server = ManagementFactory.getPlatformMBeanServer();
                ObjectName name = new ObjectName(OBJECT_NAME);
                if (server.isRegistered(name)) {
                    server.unregisterMBean(name);
                }
                if (wanted) {
                    server.registerMBean(INSTANCE, name);
                }
            } catch (JMException refused) {
                throw new IllegalStateException(OBJECT_NAME + " cannot be registered: " + refused.getMessage(),
                        refused);
            }
        }
    }

    private KciMonitor() {
    }

    /**
     * Answers the counters.
     *
     * @return the one object of this class
     */
    public static KciMonitor instance() {
        return INSTANCE;
    }

    /**
     * Shows the counters to management tools, by the platform's MBean server under {@link #OBJECT_NAME}. That server
     * keeps this class and its class loader: who drops class loaders calls {@link #unregister} before.
     *
     * @throws IllegalStateException if this Java has no module {@code java.management}, or refuses
     */
    public static void register() {
        register(true);
    }

    /**
     * Ends what {@link #register} began, if it did.
     *
     * @throws IllegalStateException if this Java has no module {@code java.management}, or refuses
     */
    public static void unregister() {
        register(false);
    }

    private static void register(boolean wanted) {
        try {
            Registry.register(wanted);
        } catch (NoClassDefFoundError missing) {
            throw new IllegalStateException("this Java has no module java.management", missing);
        }
    }

    @Override
    public long getOpenSessions() {
        return logins.sum() - ended.sum();
    }

    @Override
    public long getLogins() {
        return logins.sum();
    }

    @Override
    public long getFailedLogins() {
        return failedLogins.sum();
    }

    @Override
    public long getCalls() {
        return calls.sum();
    }

    @Override
    public long getErrors() {
        return errors.sum();
    }

    @Override
    public long getSlowCalls() {
        return slowCalls.sum();
    }

    @Override
    public long getConflicts() {
        return conflicts.sum();
    }

    @Override
    public long getBreaks() {
        return breaks.sum();
    }

    @Override
    public long getLostSessions() {
        return lost.sum();
    }

    @Override
    public int getSlowCallMillis() {
        return slowCallMillis;
    }

    @Override
    public void setSlowCallMillis(int millis) {
        if (millis < 0) {
            throw new IllegalArgumentException(millis + " milliseconds: must not be negative");
        }
        slowCallMillis = millis;
    }

    /** A login has ended, with an error or, when that is null, with a session. */
    static void loggedIn(Object who, TmqKciException error, long begin) {
        (error == null ? INSTANCE.logins : INSTANCE.failedLogins).increment();
        log(System.Logger.Level.DEBUG, () -> who + (error == null ? " logged in" : ": the login failed"), error, begin);
    }

    /** A session has ended, by its logout or by an error. */
    static void ended(KciSession session, TmqKciException error, long begin) {
        INSTANCE.ended.increment();
        if (error != null && (error.number == KciErrorNumber.CONNECTION_LOST
                || error.number == KciErrorNumber.SESSION_ENDED)) {
            INSTANCE.lost.increment();
            log(System.Logger.Level.WARNING, () -> session + " lost its server", error, begin);
        } else {
            log(System.Logger.Level.DEBUG, () -> session + (error == null ? " logged out" : " ended"), error, begin);
        }
    }

    static void callBegan() {
        INSTANCE.calls.increment();
    }

    static void failed() {
        INSTANCE.errors.increment();
    }

    /** A call that was waited for has ended, or its waiter has left. */
    static void waited(KciSession session, String text, int error, long begin) {
        int limit = INSTANCE.slowCallMillis;
        if (limit == 0 || System.nanoTime() - begin < limit * 1_000_000L) {
            return;
        }
        INSTANCE.slowCalls.increment();
        log(System.Logger.Level.WARNING, () -> session + ": slow call", error, begin);
        LOG.log(System.Logger.Level.DEBUG, () -> session + ": the slow call was " + text);
    }

    /** A commit was refused. */
    static void conflict(KciSession session, long begin) {
        INSTANCE.conflicts.increment();
        log(System.Logger.Level.INFO, () -> session + ": a commit was refused for a conflict", 0, begin);
    }

    /** A break was sent for a call that was begun then. */
    static void broke(KciSession session, boolean hard, long begin) {
        INSTANCE.breaks.increment();
        log(System.Logger.Level.INFO, () -> session + (hard ? ": hard" : ": soft") + " break of its call", 0, begin);
    }

    private static void log(System.Logger.Level level, Supplier<String> what, TmqKciException error, long begin) {
        log(level, what, error == null ? 0 : error.number, begin);
    }

    private static void log(System.Logger.Level level, Supplier<String> what, int error, long begin) {
        if (LOG.isLoggable(level)) {
            LOG.log(level, what.get() + String.format(Locale.ROOT, ", %.1f ms",
                    (System.nanoTime() - begin) / NANOS_PER_MILLI) + (error == 0 ? "" : ", error " + error));
        }
    }
}
