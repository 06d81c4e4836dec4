package com.kestrune.tmqkci.demo;

import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciInterface;
import com.kestrune.tmqkci.TmqKciReport;

import java.io.ByteArrayOutputStream;
import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.util.function.ToIntFunction;

/** One session, with calls that wait for their results and throw their errors. */
final class Database implements AutoCloseable {
    private static final int BUFFER_SIZE = 64 * 1024;
    private static final int PRELOAD_SIZE = 256;

    final int session;
    /** How often the last call was polled before its result was there. */
    int polls;

    private Database(int session) {
        this.session = session;
    }

    /** Initializes the bridge, with sessions inside this process. */
    static void initialize() {
        long[] kernelOops = new long[TmqKciInterface.KERNEL_OOPS];
        check(error -> TmqKciInterface._initialize(1, "demo", BUFFER_SIZE, PRELOAD_SIZE, 0, kernelOops, error));
    }

    static Database login(String user, String password) {
        return new Database(check(error -> TmqKciInterface._login("local", null, user, password, null, null, error)));
    }

    /** Makes a call and answers its status, or throws its error. */
    static int check(ToIntFunction<TmqKciException> call) {
        TmqKciException error = new TmqKciException();
        int status = call.applyAsInt(error);
        if (status == TmqKciInterface.FAILED) {
            throw error;
        }
        if (status < 0) {
            throw new TmqKciException("the virtual machine did not lend a string or an array");
        }
        return status;
    }

    TmqKciReport run(String source) {
        check(error -> TmqKciInterface._executeStr(session, source, error));
        return end();
    }

    TmqKciReport send(TmqKciReport receiver, String selector, TmqKciReport... args) {
        check(error -> TmqKciInterface._perform(session, receiver, selector, args, args.length, error));
        return end();
    }

    private TmqKciReport end() {
        TmqKciReport result = new TmqKciReport();
        polls = 0;
        while (check(error -> TmqKciInterface._nbEnd(session, result, error)) == TmqKciInterface.NOT_READY) {
            ++polls;
        }
        return result;
    }

    TmqKciReport resume(long process, TmqKciReport value) {
        TmqKciReport result = new TmqKciReport();
        TmqKciReport suspended = TmqKciReport.ofOop(process);
        check(error -> TmqKciInterface._continue(session, suspended, false, value, result, null, null, error));
        return result;
    }

    TmqKciReport describe(TmqKciReport object) {
        check(error -> TmqKciInterface._setup(session, object, error));
        return object;
    }

    TmqKciReport describe(long oop) {
        return describe(TmqKciReport.ofOop(oop));
    }

    /** An object as its own class prints it. */
    String print(TmqKciReport object) {
        return text(send(object, "printString"));
    }

    /** The text of a string of either width. */
    String text(TmqKciReport string) {
        byte[] bytes = bytes(string);
        if (string.isDBString) {
            return new String(bytes, StandardCharsets.UTF_16LE);
        }
        try {
            return StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(bytes)).toString();
        } catch (CharacterCodingException oneByteEach) {
            return new String(bytes, StandardCharsets.ISO_8859_1);
        }
    }

    private byte[] bytes(TmqKciReport object) {
        if (object.indexedSize <= object.valueBytes.length) {
            return object.valueBytes;
        }
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        while (all.size() < object.indexedSize) {
            int count = (int) Math.min(BUFFER_SIZE, object.indexedSize - all.size());
            byte[] part = new byte[count];
            check(error -> TmqKciInterface._getBytes(session, object, all.size() + 1L, count, part, error));
            all.writeBytes(part);
        }
        return all.toByteArray();
    }

    @Override
    public void close() {
        check(error -> TmqKciInterface._logout(session, error));
    }
}
