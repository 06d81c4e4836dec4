package com.kestrune.tmqkci;

import java.util.ArrayList;
import java.util.List;

/**
 * The report of a failed call. The caller creates one and passes it as the last argument of a native method; when that
 * method answers {@link TmqKciInterface#FAILED}, the fields tell what went wrong and the caller may throw the object.
 *
 * <p>Fields keep what the last failure wrote: they mean something only after a call that failed. One object may serve
 * many calls, as long as it is not thrown in between. Not thread-safe as long as calls fill it; one that a session has
 * thrown is.
 *
 * @since 3.1.3
 */
public class TmqKciException extends KciException {
    /** The {@link #number} of every error that the bridge detects itself. */
    public static final int BRIDGE_ERROR = 2318;

    /** The {@link #number} with which an error continue answers (see {@link TmqKciInterface#_continue}). */
    public static final int ERROR_CONTINUE = 2372;

    /** How a text that the catalogue does not hold begins. */
    private static final String MISSING_TEXT = "[errmsg.";

    private static final long serialVersionUID = 1L;

    /** The error number, whose meaning its {@link #category} sets. */
    public int number;

    /** The error's text, at most 400 bytes of UTF-8. */
    public String message;

    /** Identifier of the error's category object; nil's for an error that the bridge detected itself. */
    public long category;

    /**
     * Identifier of the process that the error suspended, which {@link TmqKciInterface#_continue} can continue; nil's
     * when there is none.
     */
    public long context;

    /** Whether the error ended the session. */
    public boolean fatal;

    /** How many elements {@link #args} has. */
    public int argCount;

    /** Identifiers of the error's arguments. */
    public long[] args;

    /** What a session knows beyond the fields; null in a report that native methods fill. */
    private transient KciSession session;
    private transient KciProcess process;
    private transient List<KciObject> arguments;

    /** Makes an empty report. */
    public TmqKciException() {
        super(null);
    }

    /**
     * Makes a report with a text, for errors that Java code finds itself.
     *
     * @param message the text
     */
    public TmqKciException(String message) {
        super(message);
        this.message = message;
    }

    /** A copy of a report's fields that can be thrown. */
    TmqKciException(TmqKciException report) {
        super(report.message);
        number = report.number;
        message = report.message;
        category = report.category;
        context = report.context;
        fatal = report.fatal;
        argCount = report.argCount;
        args = report.args;
    }

    /** Empties the report for another call. */
    void clear() {
        number = 0;
        message = null;
        category = 0;
        context = 0;
        fatal = false;
        argCount = 0;
        args = null;
    }

    /** Whether a call has written to the report since it was empty. */
    boolean isFilled() {
        return number != 0 || message != null || category != 0;
    }

    /** Tells where the error comes from: its session, and the process that it suspended, or null. */
    TmqKciException from(KciSession origin, KciProcess suspended) {
        session = origin;
        process = suspended;
        return this;
    }

    /** Gives the suspended process up, for an error that nobody will see. */
    void releaseProcess() {
        if (process != null) {
            process.release();
        }
    }

    /** Takes the arguments over, so that they stay on the server as long as this error is reachable. */
    TmqKciException keeping(List<KciObject> objects) {
        arguments = objects;
        return this;
    }

    /**
     * Answers the session that met the error.
     *
     * @return the session; null if the error did not come from a {@link KciSession}
     * @since 3.1.3
     */
    public KciSession session() {
        return session;
    }

    /**
     * Answers the computation that the error suspended.
     *
     * @return the computation; null if nothing was suspended, or if the error did not come from a {@link KciSession}
     */
    public KciProcess process() {
        return process;
    }

    /**
     * Answers the error's arguments as objects. They are asked for when they are first wanted, which works as long as
     * the session is open and the server keeps them.
     *
     * @return the arguments; none if the error did not come from a {@link KciSession}
     * @throws TmqKciException if the server no longer has them
     * @throws KciInterruptedException if the wait for the session was ended
     * @throws IllegalStateException if the session has ended, or the thread has the bridge's lock
     */
    public synchronized List<KciObject> arguments() {
        if (arguments == null) {
            List<KciObject> described = new ArrayList<>();
            for (int i = 0; session != null && args != null && i < Math.min(argCount, args.length); ++i) {
                long oop = args[i];
                // Other identifiers carry their value in themselves, or are none.
                described.add(ExportSet.holds(oop) ? session.object(oop) : new KciObject(session, oop, null));
            }
            arguments = List.copyOf(described);
        }
        return arguments;
    }

    /**
     * Renders the error for a person: as the report of {@link KciMessages} where the message catalogue is installed,
     * else as a line with its number and message. The report shows the arguments as {@link #argumentPrinter} does.
     *
     * @return the text
     */
    public String render() {
        try {
            String report = KciMessages.report(this, 1, false, 1, argumentPrinter());
            if (report.lines().noneMatch(line -> line.startsWith(MISSING_TEXT))) {
                return report;
            }
        } catch (LinkageError noBridge) {
            // An error that Java code made where there is no bridge.
        }
        return "Error " + number + ": " + message + "\n";
    }

    /**
     * Answers what shows the error's arguments in a report of {@link KciMessages}: as they {@linkplain
     * KciObject#render() print themselves}, by their identifiers where that cannot be told now. The session is asked
     * only if it is open and idle.
     *
     * @return the printer
     * @since 3.1.3
     */
    public KciMessages.ObjectPrinter argumentPrinter() {
        return oop -> {
            if (session == null || !session.isOpen() || session.calls().isBusy()) {
                return null;
            }
            try {
                return session.object(oop).render();
            } catch (KciException | IllegalArgumentException | IllegalStateException gone) {
                return null;
            }
        };
    }

    /**
     * Tells number, message and session.
     *
     * @return the text
     */
    @Override
    public String toString() {
        StringBuilder text = new StringBuilder(getClass().getName());
        if (number != 0) {
            text.append(": error ").append(number);
        }
        if (message != null) {
            text.append(": ").append(message);
        }
        return session == null ? text.toString() : text.append(" (").append(session).append(')').toString();
    }

    /**
     * Answers the field {@link #message}.
     *
     * @return the text, null as long as no failure was reported
     */
    @Override
    public String getMessage() {
        return message;
    }
}
