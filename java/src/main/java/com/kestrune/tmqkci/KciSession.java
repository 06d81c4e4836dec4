package com.kestrune.tmqkci;

import java.lang.ref.Cleaner;
import java.time.Duration;
import java.util.Arrays;
import java.util.Collection;
import java.util.List;
import java.util.Objects;
import java.util.concurrent.CompletableFuture;
import java.util.function.BooleanSupplier;
import java.util.function.Function;
import java.util.function.Supplier;
import java.util.stream.Stream;

/**
 * A session with the database: runs code on the server and moves the contents of objects.
 *
 * <pre>{@code
 * try (KciSession session = KciSession.login(
 *         new KciLoginOptions().server("local").user("guest").password(password))) {
 *     int seven = session.execute("3 + 4").intValue();
 * }
 * }</pre>
 *
 * <p>All methods are thread-safe. A session runs one call at a time; threads that want more wait for their turn, in the
 * order in which they came. An interrupt of a thread that waits, {@link #interrupt}, the completion of a future from
 * outside and a {@link KciLoginOptions#callTimeout limit} end a wait with a {@link KciInterruptedException}. A call
 * that runs is broken off then: softly first, and hard when the server has not answered after a second. When it has
 * not answered a second later either, the caller leaves, and the session's next call waits for the end of this one.
 * Logging in and out, committing and each slice of a transfer wait in native code, and end only by themselves.
 *
 * <p>Every method throws {@link TmqKciException} for an error of the server or the bridge, {@link
 * IllegalStateException} when the session has ended, and {@link KciConversionException} for a value that has no
 * counterpart. A thread that holds {@link KciBridge#lock} is refused.
 *
 * <p>Arguments may be objects of the session, null, Boolean, Character, Byte, Short, Integer, Long (within 32 bits),
 * Float, Double, String, LocalDateTime (its milliseconds; the rest is dropped), byte[], and where the server has
 * classes for them BigInteger, LocalDate, Instant (with milliseconds), List and Map.
 *
 * @since 3.1.3
 */
public final class KciSession implements AutoCloseable {
    /** One thread for all sessions; it makes no call. */
    private static final Cleaner CLEANER = Cleaner.create();

    private static final int ATTEMPTS = 10;
    private static final Duration CLOSE_LIMIT = Duration.ofSeconds(10);

    private final int id;
    private final String name;
    private final ExportSet exports = new ExportSet();
    private final SessionCalls calls;
    private final Transfers transfers;
    private final BulkCalls bulk;
    private final FutureCalls futures;
    private final Transactions transactions = new Transactions(this);

    private KciSession(int id, KciLoginOptions options, int maxReferences) {
        this.id = id;
        this.name = options.toString();
        calls = new SessionCalls(this, id, exports, maxReferences, options.callLimit());
        transfers = new Transfers(this, calls, maxReferences);
        bulk = new BulkCalls(this, calls, maxReferences);
        futures = new FutureCalls(id);
    }

    /**
     * Opens a session, after initializing the bridge with {@link KciBridgeOptions#DEFAULTS} unless it is initialized.
     * The passwords among the options are overwritten in any case.
     *
     * @param options who logs in, and where
     * @return the session
     * @throws TmqKciException if the bridge cannot be initialized, or the login fails
     * @throws IllegalStateException if a password was overwritten by a login before
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     * @throws KciInterruptedException if the thread was interrupted while it waited for the bridge's lock
     */
    public static KciSession login(KciLoginOptions options) {
        return login(options, null);
    }

    /**
     * Opens a session, after initializing the bridge unless it is initialized. The passwords among the options are
     * overwritten in any case.
     *
     * @param options who logs in, and where
     * @param bridge how to initialize the bridge; null for {@link KciBridgeOptions#DEFAULTS}, unless it is initialized
     * @return the session
     * @throws TmqKciException if the bridge cannot be initialized, or not as it is wanted (see {@link
     *     KciBridge#initialize}), or the login fails
     * @throws IllegalStateException if a password was overwritten by a login before
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     * @throws KciInterruptedException if the thread was interrupted while it waited for the bridge's lock
     */
    public static KciSession login(KciLoginOptions options, KciBridgeOptions bridge) {
        char[][] passwords = {};
        Object event = FlightEvents.beginLogin();
        long begin = System.nanoTime();
        int id = -1;
        int error = 0;
        try {
            passwords = options.takePasswords();
            KciBridge.prepare(bridge);
            TmqKciException report = new TmqKciException();
            KciBridge.acquire();
            try {
                id = options.login(passwords, report);
                if (id < 0) {
                    throw KciBridge.failure(id, report);
                }
                try {
                    KciSession session = new KciSession(id, options, KciBridge.maxReferences(id));
                    KciMonitor.loggedIn(session, null, begin);
                    return session;
                } catch (TmqKciException unusable) {
                    TmqKciInterface._logout(id, report);
                    throw unusable;
                }
            } finally {
                KciBridge.lock().unlock();
            }
        } catch (TmqKciException failure) {
            error = failure.number;
            KciMonitor.loggedIn(options, failure, begin);
            throw failure;
        } finally {
            FlightEvents.end(event, id, "login", error);
            KciLoginOptions.wipe(passwords);
            options.wipe();
        }
    }

    /**
     * Answers the session's number, for the methods of {@link TmqKciInterface}.
     *
     * @return the number
     */
    public int id() {
        return id;
    }

    /**
     * Whether the session can be used: it was neither closed nor ended by a fatal error.
     *
     * @return whether it can
     */
    public boolean isOpen() {
        return !calls.end().isReached();
    }

    /**
     * Runs source text on the server and waits for its result.
     *
     * @param source the text
     * @return the result
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws NullPointerException if the text is null
     */
    public KciObject execute(String source) {
        Objects.requireNonNull(source, "source");
        calls.enter();
        try {
            return object(calls.run(source, null, null));
        } finally {
            calls.leave();
        }
    }

    /**
     * Runs source text that is a block, with arguments: {@code execute("[:a :b | a + b]", 3, 4)}. Nothing of an
     * argument becomes source text.
     *
     * @param block the text; it takes as many arguments as are given
     * @param arguments the arguments; as many at most as the server's blocks take, four in the local store
     * @return the block's result
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciConversionException for an argument that has no counterpart
     * @throws IllegalStateException if the session has ended
     * @throws KciInterruptedException if the thread was interrupted while it waited
     * @throws IllegalArgumentException for an object of another session
     * @since 3.1.3
     */
    public KciObject execute(String block, Object... arguments) {
        Objects.requireNonNull(arguments, "arguments");
        calls.enter();
        try {
            KciObject made = execute(block);
            try {
                return send(made, arguments.length == 0 ? "value" : "value:".repeat(arguments.length), arguments);
            } finally {
                made.release();
            }
        } finally {
            calls.leave();
        }
    }

    /**
     * Runs source text that is a string on the server, and waits for its result.
     *
     * @param source the string
     * @return the result
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @throws NullPointerException if the string is null
     */
    public KciObject execute(KciObject source) {
        return run(null, null, Objects.requireNonNull(source, "source"));
    }

    /**
     * Sends a message and waits for its result.
     *
     * @param receiver the receiver, an object or a value
     * @param selector the message's selector
     * @param arguments the message's arguments, {@link TmqKciInterface#MAX_ARGUMENTS} at most
     * @return the result
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException for a value that has no counterpart on the server
     * @throws IllegalArgumentException for an object of another session
     * @throws NullPointerException if the selector is null
     */
    public KciObject send(Object receiver, String selector, Object... arguments) {
        Objects.requireNonNull(arguments, "arguments");
        return run(null, Objects.requireNonNull(selector, "selector"), receiver, arguments);
    }

    /**
     * Begins what {@link #execute(String)} does, without waiting. When the future is completed from outside, by {@link
     * CompletableFuture#cancel}, {@link CompletableFuture#orTimeout} or otherwise, the call is stopped, or not begun.
     * Calls are run in the order in which they were begun, one at a time; a call's limit counts from when it is its
     * turn to be waited for.
     *
     * @param source the text
     * @return the future result
     * @throws NullPointerException if the text is null; what {@link #execute(String)} throws completes the future
     */
    public CompletableFuture<KciObject> executeAsync(String source) {
        Objects.requireNonNull(source, "source");
        long limit = calls.limit();
        return futures.begin(abandoned -> {
            calls.enter(limit);
            try {
                return object(calls.run(source, null, abandoned));
            } finally {
                calls.leave();
            }
        });
    }

    /**
     * Begins what {@link #send} does, without waiting; as {@link #executeAsync} does. The arguments are converted when
     * the call's turn has come.
     *
     * @param receiver the receiver, an object or a value
     * @param selector the message's selector
     * @param arguments the message's arguments, {@link TmqKciInterface#MAX_ARGUMENTS} at most
     * @return the future result
     * @throws NullPointerException if the selector is null; what {@link #send} throws completes the future
     */
    public CompletableFuture<KciObject> sendAsync(Object receiver, String selector, Object... arguments) {
        Objects.requireNonNull(selector, "selector");
        Objects.requireNonNull(arguments, "arguments");
        long limit = calls.limit();
        return futures.begin(abandoned -> calls.withLimit(limit, () -> run(abandoned, selector, receiver, arguments)));
    }

    private KciObject run(BooleanSupplier abandoned, String selector, Object receiver, Object... arguments) {
        calls.enter();
        try {
            return object(calls.run(selector, new Arguments(this, receiver, arguments), abandoned));
        } finally {
            calls.leave();
        }
    }

    private KciObject object(TmqKciReport result) {
        return result == null ? null : new KciObject(this, result.oop, result);
    }

    /**
     * Tells whether an object is an instance of a class or of one of its subclasses.
     *
     * @param object the object or value
     * @param cls the class
     * @return whether it is
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException for a value that has no counterpart on the server
     * @throws IllegalArgumentException for an object of another session
     */
    public boolean isKindOf(Object object, KciObject cls) {
        calls.enter();
        try {
            Arguments arguments = new Arguments(this, object, cls);
            try {
                return calls.call(report -> {
                    int status = TmqKciInterface._isKindOf(id, arguments.receiver, arguments.reports[0], report);
                    arguments.retainCreated(exports);
                    return status;
                }) != 0;
            } finally {
                arguments.releaseCreated(exports);
            }
        } finally {
            calls.leave();
        }
    }

    /**
     * Describes the object with an identifier.
     *
     * @param oop the identifier
     * @return the object
     * @throws IllegalArgumentException if it is no identifier of an object: below 2 or beyond 32 bits
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public KciObject object(long oop) {
        if (oop < 2 || oop >>> Integer.SIZE != 0) {
            throw new IllegalArgumentException(oop + " identifies no object");
        }
        TmqKciReport report = TmqKciReport.ofOop(oop);
        calls.enter();
        try {
            calls.call(error -> {
                int status = TmqKciInterface._setup(id, report, error);
                if (status == 0) {
                    exports.retain(report.oop);
                }
                return status;
            });
            return object(report);
        } finally {
            calls.leave();
        }
    }

    /**
     * Puts a Java value on the server, as a new object if it is not one whose identifier carries its value.
     *
     * @param value the value
     * @return the object
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException for a value that has no counterpart on the server
     * @throws IllegalArgumentException for an object of another session
     */
    public KciObject create(Object value) {
        return value instanceof KciObject object ? object : transfers.create(value);
    }

    /**
     * Reads all bytes of a byte object, as they are now.
     *
     * @param object the object
     * @return the bytes
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException if the object has no bytes
     * @throws IllegalArgumentException for an object of another session
     */
    public byte[] fetchBytes(KciObject object) {
        return transfers.bytes(object);
    }

    /**
     * Reads bytes of a byte object.
     *
     * @param object the object
     * @param start where to begin, from 1
     * @param count how many; fewer are an error
     * @return the bytes
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @throws IndexOutOfBoundsException if the range is not within 1 to 2<sup>31</sup>-1
     */
    public byte[] fetchBytes(KciObject object, long start, int count) {
        return transfers.bytes(object, start, count);
    }

    /**
     * Reads the whole text of a string of either width, as it is now: a character for each byte of a plain string, the
     * UTF-16 units of a double-byte string, surrogates and NUL as they are.
     *
     * @param string the string
     * @return the text
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException if the object is no string
     * @throws IllegalArgumentException for an object of another session
     */
    public String fetchString(KciObject string) {
        if (!string.isString()) {
            throw Values.refused(string, String.class);
        }
        return Values.decode(transfers.bytes(string), string.description().isDBString);
    }

    /**
     * Reads all indexed elements, as they are now; those of an unordered collection come in its internal order.
     *
     * @param object the object
     * @return the elements, without descriptions
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     */
    public List<KciObject> fetchElements(KciObject object) {
        return transfers.references(object, false);
    }

    /**
     * Reads indexed elements.
     *
     * @param object the object
     * @param start where to begin, from 1
     * @param count how many at most
     * @return the elements, fewer where the object ends
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @throws IndexOutOfBoundsException if the range is not within 1 to 2<sup>31</sup>-1
     */
    public List<KciObject> fetchElements(KciObject object, long start, int count) {
        return transfers.references(object, start, count, false);
    }

    /**
     * Reads all named variables, as they are now.
     *
     * @param object the object
     * @return the variables' values, without descriptions
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     */
    public List<KciObject> fetchNamed(KciObject object) {
        return transfers.references(object, true);
    }

    /**
     * Reads named variables.
     *
     * @param object the object
     * @param start the number of the first variable, from 1
     * @param count how many at most
     * @return the variables' values, fewer where there are no more
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @throws IndexOutOfBoundsException if the range is not within 1 to 2<sup>31</sup>-1
     */
    public List<KciObject> fetchNamed(KciObject object, long start, int count) {
        return transfers.references(object, start, count, true);
    }

    /**
     * Writes bytes into a byte object.
     *
     * @param object the object
     * @param start where to begin, from 1
     * @param bytes the bytes
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @throws IndexOutOfBoundsException if the range is not within 1 to 2<sup>31</sup>-1
     */
    public void storeBytes(KciObject object, long start, byte[] bytes) {
        transfers.storeBytes(object, start, bytes);
    }

    /**
     * Writes characters into a string, in its width.
     *
     * @param string the string
     * @param start the index of the first character, from 1
     * @param text the characters
     * @throws KciConversionException if the string holds bytes, and a character is beyond U+00FF
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @throws IndexOutOfBoundsException if the range is not within 1 to 2<sup>31</sup>-1
     */
    public void storeString(KciObject string, long start, String text) {
        if (!string.isString()) {
            throw Values.refused(string, String.class);
        }
        Transfers.checkRange(start, text.length());
        boolean doubleByte = string.description().isDBString;
        transfers.storeBytes(string, doubleByte ? 2 * start - 1 : start, Values.encode(text, doubleByte));
    }

    /**
     * Writes indexed elements. A slice that fails is not written, those before it are.
     *
     * @param object the object
     * @param start where to begin, from 1
     * @param elements the elements, objects and values
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException for a value that has no counterpart on the server
     * @throws IllegalArgumentException for an object of another session
     * @throws IndexOutOfBoundsException if the range is not within 1 to 2<sup>31</sup>-1
     */
    public void storeElements(KciObject object, long start, List<?> elements) {
        transfers.storeReferences(object, start, elements, false);
    }

    /**
     * Writes named variables, as {@link #storeElements} writes elements.
     *
     * @param object the object
     * @param start the number of the first variable, from 1
     * @param values the variables' values, objects and values
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException for a value that has no counterpart on the server
     * @throws IllegalArgumentException for an object of another session
     * @throws IndexOutOfBoundsException if the range is not within 1 to 2<sup>31</sup>-1
     */
    public void storeNamed(KciObject object, long start, List<?> values) {
        transfers.storeReferences(object, start, values, true);
    }

    /**
     * Answers the objects that have changed since this was last asked, each once. The first slice of them is
     * read at once, others as the stream comes to them; what it does not come to is answered the next time.
     *
     * @return the objects, without descriptions
     * @throws TmqKciException by the stream's use, for an error of the server
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public Stream<KciObject> changedObjects() {
        return transfers.allChanged();
    }

    /**
     * Answers all indexed elements as a stream that reads them in slices, as it comes to them: an object that changes
     * meanwhile is seen as it is then.
     *
     * @param object the object
     * @return the elements, without descriptions
     * @throws TmqKciException by the stream's use, for an error of the server
     * @throws KciInterruptedException by the stream's use, if that is stopped before its time
     * @throws IllegalStateException by the stream's use, if the session has ended, the object was released, or the
     *     thread has the bridge's lock
     * @throws IllegalArgumentException by the stream's use, for an object of another session
     * @since 3.1.3
     */
    public Stream<KciObject> elements(KciObject object) {
        return transfers.elements(object);
    }

    /**
     * Puts Java values on the server, in few calls: what {@link #create} does with each.
     *
     * @param values the values; objects of the session among them are answered as they are
     * @return the objects, in the values' order, without descriptions
     * @throws TmqKciException for an error of the server, which needs arrays for it ({@code Array new: n})
     * @throws KciConversionException for a value that has no counterpart
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @since 3.1.3
     */
    public List<KciObject> createAll(Collection<?> values) {
        return bulk.create(values);
    }

    /**
     * Makes objects of a class, in few calls, each with values for its first named variables. The class's own
     * {@code new} is not sent. After an error none of the objects is kept.
     *
     * @param cls the class
     * @param variables for each object the values of its variables, objects and values
     * @return the objects, without descriptions
     * @throws TmqKciException for an error of the server, such as too many variables
     * @throws KciConversionException for a value that has no counterpart
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @since 3.1.3
     */
    public List<KciObject> createAll(KciObject cls, Collection<? extends List<?>> variables) {
        return bulk.create(cls, variables);
    }

    /**
     * Reads the contents of objects, as they are now, in few calls: of each its named variables and then its indexed
     * elements; nothing of objects with bytes and of immediate ones.
     *
     * @param objects the objects
     * @return the contents, in the objects' order, without descriptions
     * @throws TmqKciException for an error of the server
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     * @since 3.1.3
     */
    public List<List<KciObject>> fetchAll(Collection<KciObject> objects) {
        return bulk.contents(objects);
    }

    /**
     * Sends the same message to many receivers, in few calls, one after the other in their order. An error ends it;
     * what was sent before stays done.
     *
     * @param receivers the receivers, objects and values
     * @param selector the message's selector
     * @param arguments the message's arguments, the same for all
     * @return the results, in the receivers' order, without descriptions
     * @throws TmqKciException for an error of the server, which needs arrays and blocks for it ({@code collect:})
     * @throws KciConversionException for a value that has no counterpart
     * @throws IllegalArgumentException if the selector does not take as many arguments, or for an object of another
     *     session
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @since 3.1.3
     */
    public List<KciObject> sendAll(Collection<?> receivers, String selector, Object... arguments) {
        return bulk.send(receivers, selector, arguments);
    }

    /**
     * Gives objects up at once, rather than when they are no longer reachable.
     *
     * @param objects the objects
     */
    public void release(KciObject... objects) {
        Arrays.stream(objects).forEach(KciObject::release);
    }

    /**
     * Begins a transaction; what the session has changed and not committed is lost. There always is a transaction:
     * login, a commit and {@link #abort} begin one as well. It is the session's, not the thread's: threads that share a
     * session share it.
     *
     * @throws TmqKciException if the client library has no transactions
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @since 3.1.3
     */
    public void begin() {
        transactions.begin();
    }

    /**
     * Commits what the session has changed, and begins the next transaction. It waits in native code.
     *
     * @throws KciConflictException if the commit is refused; nothing is committed, and the changes stay until {@link
     *     #abort} or {@link #begin}
     * @throws TmqKciException if the client library has no transactions
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @since 3.1.3
     */
    public void commit() {
        transactions.commit();
    }

    /**
     * Gives up what the session has changed and not committed, and begins the next transaction.
     *
     * @throws TmqKciException if the client library has no transactions
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @since 3.1.3
     */
    public void abort() {
        transactions.abort();
    }

    /**
     * Does what {@link #inTransaction(int, Function)} does, 10 times at most.
     *
     * @param <T> what the work answers
     * @param work what reads and changes objects of the session
     * @return what the work answers
     * @throws KciConflictException if the last attempt's commit is refused, too
     * @throws TmqKciException if the client library has no transactions
     * @throws KciInterruptedException if it is stopped before its time: by a limit, for example
     * @throws IllegalStateException as {@link #inTransaction(int, Function)}
     * @since 3.1.3
     */
    public <T> T inTransaction(Function<KciSession, T> work) {
        return inTransaction(ATTEMPTS, work);
    }

    /**
     * Begins a transaction, does some work, and commits. When the commit is refused the work is done again, in a new
     * transaction after a short pause; it must be such that this is right. When it fails, for whatever reason, its
     * changes are given up. What the session had changed before is lost.
     *
     * @param <T> what the work answers
     * @param attempts how many times the work is done at most, at least 1
     * @param work what reads and changes objects of the session
     * @return what the work answers
     * @throws KciConflictException if the last attempt's commit is refused, too
     * @throws IllegalStateException if the session is inside of this method already
     * @throws IllegalArgumentException if there is to be no attempt
     * @throws TmqKciException if the client library has no transactions
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @since 3.1.3
     */
    public <T> T inTransaction(int attempts, Function<KciSession, T> work) {
        return transactions.run(attempts, Objects.requireNonNull(work, "work"));
    }

    /**
     * Stops the call that the session runs, if it runs one, and does not wait for that: the caller of the call gets a
     * {@link KciInterruptedException}, or the result if that came first. The session goes on. Calls that wait for their
     * turn are not touched.
     *
     * @since 3.1.3
     */
    public void interrupt() {
        calls.interrupt();
    }

    /**
     * Does something with another limit for the calls that this thread makes or begins of this session meanwhile, in
     * place of {@link KciLoginOptions#callTimeout}.
     *
     * @param <T> what the work answers
     * @param limit the limit of each call, above zero; null for none
     * @param work what calls the session
     * @return what the work answers
     * @throws IllegalArgumentException if the limit is zero or negative
     * @since 3.1.3
     */
    public <T> T withCallTimeout(Duration limit, Supplier<T> work) {
        return calls.withLimit(SessionCalls.nanos(limit), work);
    }

    /**
     * Asks the client library, in one exchange, whether the session still lives; what that asks its server is its own
     * affair. After a lost connection or host process this throws its error.
     *
     * @throws TmqKciException if the session has ended, or an error waits in it
     * @throws IllegalStateException if the session has ended before
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @since 3.1.3
     */
    public void ping() {
        checkErrors();
    }

    /** Gives up what runs, what waits to run and what was not committed. */
    void reset() {
        futures.cancelAll();
        interrupt();
        calls.enter();
        try {
            calls.call(report -> TmqKciControl._abort(id, report));
        } finally {
            calls.leave();
        }
    }

    /**
     * Throws the error that waits in the session, if there is one.
     *
     * @throws TmqKciException the error, if there is one
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public void checkErrors() {
        calls.enter();
        try {
            calls.call(report -> TmqKciInterface._checkErrors(id, report));
        } finally {
            calls.leave();
        }
    }

    /**
     * Does what {@link #close(Duration)} does, within 10 seconds.
     *
     * @throws KciInterruptedException as {@link #close(Duration)}
     * @throws TmqKciException for an error of the logout
     * @throws IllegalStateException if the thread has the bridge's lock
     */
    @Override
    public void close() {
        close(CLOSE_LIMIT);
    }

    /**
     * Closes the session, after waiting for what it runs. A call that does not end by itself in time is stopped in the
     * last two seconds, or in the last half of a shorter limit. One that does not end then either leaves the session
     * given up: closed here, while the server keeps it until that call, or the process, ends; that is logged. A second
     * close, and one after a fatal error, do nothing.
     *
     * @param limit how long to wait for calls at most; zero stops what runs at once. The logout itself may take longer
     * @throws KciInterruptedException if the thread is interrupted and what the session runs does not end within a
     *     second, although it is stopped; the session stays open then and can be closed later
     * @throws TmqKciException for an error of the logout
     * @throws IllegalStateException if the thread has the bridge's lock
     * @since 3.1.3
     */
    public void close(Duration limit) {
        calls.end().close(limit.isZero() || limit.isNegative() ? 0 : SessionCalls.nanos(limit), true);
    }

    SessionCalls calls() {
        return calls;
    }

    static Cleaner cleaner() {
        return CLEANER;
    }

    ExportSet exports() {
        return exports;
    }

    Transfers transfers() {
        return transfers;
    }

    byte[] wholeBody(KciObject object) {
        TmqKciReport description = object.description();
        return description.valueBytes != null && description.valueBytes.length == description.indexedSize
                ? description.valueBytes.clone()
                : transfers.bytes(object);
    }

    TmqKciReport describe(KciObject object) {
        return transfers.describe(object);
    }

    /**
     * Tells number, user and server.
     *
     * @return the text
     */
    @Override
    public String toString() {
        return "session " + id + " of " + name;
    }
}
