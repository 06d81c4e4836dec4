package com.kestrune.tmqkci;

import java.lang.ref.Reference;
import java.util.Arrays;
import java.util.Objects;

/**
 * A computation on the server that an error suspended (see {@link TmqKciException#process}). As long as this object is
 * reachable, the server keeps the computation. Thread-safe.
 *
 * @since 3.1.3
 */
public final class KciProcess {
    private final KciObject process;

    KciProcess(KciObject process) {
        this.process = process;
    }

    /**
     * Continues the computation with a value in place of the message that failed, and waits for its end, as {@link
     * KciSession#execute(String)} does. Where the client library cannot continue without waiting itself, neither an
     * interrupt nor a limit ends the wait, and no other session's call runs meanwhile.
     *
     * @param value the value, converted as an argument of {@link KciSession#send}
     * @return the computation's result
     * @throws TmqKciException if the computation fails; it is suspended again when the error has a process
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException for a value that has no counterpart on the server
     * @throws IllegalArgumentException for an object of another session
     */
    public KciObject continueWith(Object value) {
        KciSession session = process.session();
        SessionCalls calls = session.calls();
        calls.enter();
        try {
            Arguments arguments = new Arguments(session, process, value);
            TmqKciReport result = calls.run(error -> TmqKciControl._nbContinue(session.id(), arguments.receiver,
                    arguments.reports[0], error), "continueWith", arguments, null);
            if (result == null) {
                result = waitInside(session, new Arguments(session, process, value));
            }
            return new KciObject(session, result.oop, result);
        } finally {
            calls.leave();
            Reference.reachabilityFence(process);
        }
    }

    /** For client libraries that can only wait themselves. */
    private static TmqKciReport waitInside(KciSession session, Arguments arguments) {
        TmqKciReport result = new TmqKciReport();
        try {
            session.calls().call(error -> {
                int status = TmqKciInterface._continue(session.id(), arguments.receiver, false, arguments.reports[0],
                        result, null, null, error);
                arguments.retainCreated(session.exports());
                if (status == 0) {
                    session.exports().retain(result.oop);
                }
                return status;
            });
        } finally {
            arguments.releaseCreated(session.exports());
        }
        return result;
    }

    /**
     * Tells the server of a Java error in place of continuing: puts the two texts there as strings and throws error
     * {@link TmqKciException#ERROR_CONTINUE}, whose arguments are 2318 and the identifiers of the texts. The
     * computation stays suspended, and can be continued later.
     *
     * @param message the error's text
     * @param stack the error's stack trace
     * @return nothing; declared so that a caller can write {@code throw process.failWith(...)}
     * @throws TmqKciException always
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws NullPointerException if one of the texts is null
     */
    public TmqKciException failWith(String message, String stack) {
        Objects.requireNonNull(message, "message");
        Objects.requireNonNull(stack, "stack");
        KciSession session = process.session();
        TmqKciReport suspended = TmqKciReport.ofOop(process.oopFor(session));
        session.calls().enter();
        try {
            session.calls().call(report -> {
                int status = TmqKciInterface._continue(session.id(), suspended, true, null, null, message, stack,
                        report);
                if (status == TmqKciInterface.FAILED && report.number == TmqKciException.ERROR_CONTINUE) {
                    Arrays.stream(report.args).forEach(session.exports()::retain);
                }
                return status;
            });
            throw new IllegalStateException("a Java error was taken for a success");
        } catch (TmqKciException error) {
            if (error.number == TmqKciException.ERROR_CONTINUE) {
                error.keeping(Arrays.stream(error.args).mapToObj(oop -> new KciObject(session, oop, null)).toList());
            }
            throw error;
        } finally {
            session.calls().leave();
            Reference.reachabilityFence(process);
        }
    }

    /**
     * Answers the identifier of the suspended process.
     *
     * @return the identifier
     */
    public long oop() {
        return process.oop();
    }

    /** Gives the computation up, so that the server can forget it. */
    public void release() {
        process.release();
    }

    @Override
    public String toString() {
        return "suspended process " + oop();
    }
}
