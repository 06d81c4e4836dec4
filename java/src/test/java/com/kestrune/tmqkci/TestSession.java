package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.util.function.ToIntFunction;

/** Native calls over the local store, whose failures end the test. */
final class TestSession {
    static final int PRELOAD_SIZE = 64;

    private TestSession() {
    }

    /** The number of a new session. */
    static int login() {
        initialize();
        return succeed(error -> TmqKciInterface._login("local", "net", "guest", "guest", "host user", "host password",
                error));
    }

    static long[] initialize() {
        long[] kernelOops = new long[TmqKciInterface.KERNEL_OOPS];
        assertEquals(TmqKciInterface.INITIALIZED, succeed(error -> TmqKciInterface._initialize(1, "tests", 1024,
                PRELOAD_SIZE, 0, kernelOops, error)));
        return kernelOops;
    }

    /** A call that must succeed; answers its status. */
    static int succeed(ToIntFunction<TmqKciException> call) {
        TmqKciException error = new TmqKciException();
        int status = call.applyAsInt(error);
        if (status == TmqKciInterface.FAILED) {
            throw error;
        }
        assertTrue(status >= 0, () -> "status " + status);
        return status;
    }

    /** A call that must fail with a report; answers the report. */
    static TmqKciException fail(ToIntFunction<TmqKciException> call) {
        TmqKciException error = new TmqKciException();
        assertEquals(TmqKciInterface.FAILED, call.applyAsInt(error), () -> String.valueOf(error.message));
        assertEquals(error.argCount, error.args.length);
        return error;
    }

    /** A call that the bridge must refuse by itself with this text. */
    static void refuse(String message, ToIntFunction<TmqKciException> call) {
        TmqKciException error = fail(call);
        assertEquals(message, error.getMessage());
        assertArrayEquals(new long[] {TmqKciException.BRIDGE_ERROR, Values.NIL, Values.NIL, 0}, new long[] {
            error.number, error.category, error.context, error.argCount});
        assertEquals(false, error.fatal);
    }
}
