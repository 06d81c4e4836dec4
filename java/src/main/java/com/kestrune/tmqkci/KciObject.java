package com.kestrune.tmqkci;

import java.lang.ref.Cleaner;
import java.time.LocalDateTime;
import java.util.function.Function;

/**
 * An object of the server, as a session reported it. As long as an object of this class is reachable, the server keeps
 * the object that it stands for; afterwards, or after {@link #release}, that is given up with the session's next call.
 *
 * <p>The description (class, sizes, value) is a picture taken when the object was reported, or when it is first asked
 * for: elements and changed objects come without one. {@link #refresh} takes a new one. Thread-safe.
 *
 * @since 3.1.3
 */
public final class KciObject {
    private final KciSession session;
    private final int oop;
    private final Cleaner.Cleanable reference;
    private volatile TmqKciReport description;
    private volatile boolean released;

    /** What ends a reference; it must not lead back to the object. */
    private record Release(ExportSet exports, long oop) implements Runnable {
        @Override
        public void run() {
            exports.release(oop);
        }
    }

    /** Takes a reference over that was counted when the server handed the identifier out. */
    KciObject(KciSession session, long oop, TmqKciReport description) {
        this.session = session;
        this.oop = (int) oop;
        if (description != null) {
            // A volatile write is dear, and elements come without a description.
            this.description = description;
        }
        reference = ExportSet.holds(oop)
                ? KciSession.cleaner().register(this, new Release(session.exports(), oop)) : null;
    }

    /**
     * Answers the session that reported the object.
     *
     * @return the session
     */
    public KciSession session() {
        return session;
    }

    /**
     * Answers the object's identifier.
     *
     * @return the identifier, from 0 to 2<sup>32</sup>-1
     */
    public long oop() {
        return Integer.toUnsignedLong(oop);
    }

    /**
     * Whether the identifier carries the object's value, as it does for nil, booleans, characters and small integers.
     *
     * @return whether it does
     */
    public boolean isImmediate() {
        return (oop & 2) != 0;
    }

    /**
     * Whether the object is nil.
     *
     * @return whether it is
     */
    public boolean isNil() {
        return oop == Values.NIL;
    }

    /**
     * Whether the object is a string of either width.
     *
     * @return whether it is
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public boolean isString() {
        return !isImmediate() && description().isString;
    }

    /**
     * Answers the object's description.
     *
     * @return a report; not to be changed. Of an immediate object it may hold nothing but the identifier.
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public TmqKciReport description() {
        TmqKciReport known = description;
        return known != null ? known : refresh().description;
    }

    /**
     * Asks the server for the object's description anew.
     *
     * @return this
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public KciObject refresh() {
        description = session.describe(this);
        return this;
    }

    /**
     * Answers the identifier of the object's class.
     *
     * @return the class's identifier
     * @throws KciConversionException if the object is immediate
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public long classOop() {
        if (isImmediate()) {
            throw new KciConversionException(this + " carries its value in its identifier and is not described");
        }
        return description().classOop;
    }

    /**
     * Answers how many named variables the object has.
     *
     * @return the number
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public int namedSize() {
        return isImmediate() ? 0 : description().namedSize;
    }

    /**
     * Answers how many indexed elements the object has: bytes of a byte object, references of others.
     *
     * @return the number
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public long indexedSize() {
        return isImmediate() ? 0 : description().indexedSize;
    }

    /**
     * Answers a truth value.
     *
     * @return the value
     * @throws KciConversionException if the object is none
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public boolean booleanValue() {
        return required(Boolean.class);
    }

    /**
     * Answers a character.
     *
     * @return the UTF-16 unit
     * @throws KciConversionException if the object is none
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public char charValue() {
        return required(Character.class);
    }

    /**
     * Answers an integer.
     *
     * @return the value
     * @throws KciConversionException if the object is none, or its value does not fit 32 bits
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public int intValue() {
        return required(Integer.class);
    }

    /**
     * Answers an integer.
     *
     * @return the value
     * @throws KciConversionException if the object is none, or its value does not fit 64 bits
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public long longValue() {
        return required(Long.class);
    }

    /**
     * Answers a float.
     *
     * @return the value
     * @throws KciConversionException if the object is none
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public double doubleValue() {
        return required(Double.class);
    }

    /**
     * Answers a string's text: of a plain string a character for each byte, of a double-byte string its units.
     *
     * @return the text
     * @throws KciConversionException if the object is no string
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public String stringValue() {
        return required(String.class);
    }

    /**
     * Answers a date and time.
     *
     * @return the value, with milliseconds
     * @throws KciConversionException if the object is none
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public LocalDateTime dateTimeValue() {
        return required(LocalDateTime.class);
    }

    /**
     * Answers the bytes of a byte object.
     *
     * @return the bytes
     * @throws KciConversionException if the object is none
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public byte[] bytesValue() {
        return required(byte[].class);
    }

    /**
     * Converts the object to a Java value. Known types are Boolean, Character, Byte, Short, Integer, Long, Float,
     * Double, BigInteger, their primitive counterparts, String, LocalDateTime, LocalDate, Instant (a date and time
     * taken for UTC), byte[], List, Map, KciObject, and Object, which stands for the type that fits the object best:
     * KciObject when no other does, and for integers beyond 30 bits and collections. nil becomes null. What a list or
     * map holds becomes of the type that fits it best, integers Integer, Long or BigInteger, collections List or Map.
     *
     * <p>An integer that does not fit the type is refused; Float and Double take integers, too, and round.
     *
     * @param <T> the wanted type
     * @param type the wanted type's class
     * @return the value
     * @throws KciConversionException if the object has no such value
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     */
    public <T> T as(Class<T> type) {
        return Values.fromServer(this, type);
    }

    private <T> T required(Class<T> type) {
        T value = as(type);
        if (value == null) {
            throw Values.refused(this, type);
        }
        return value;
    }

    /**
     * Sends a message to the object (see {@link KciSession#send}).
     *
     * @param selector the message's selector
     * @param arguments its arguments
     * @return the result
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException for a value that has no counterpart on the server
     * @throws IllegalArgumentException for an object of another session
     */
    public KciObject send(String selector, Object... arguments) {
        return session.send(this, selector, arguments);
    }

    /**
     * Tells whether the object is an instance of a class or of one of its subclasses.
     *
     * @param cls the class
     * @return whether it is
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws IllegalArgumentException for an object of another session
     */
    public boolean isKindOf(KciObject cls) {
        return session.isKindOf(this, cls);
    }

    /**
     * Answers how the object prints itself on the server, by sending {@code printString}.
     *
     * @return the text
     * @throws TmqKciException for an error of the server or the bridge
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @throws KciConversionException if the server answers no string
     */
    public String printString() {
        return send("printString").stringValue();
    }

    /**
     * Shows the object to a person: as it prints itself on the server, and as {@link #toString} where the server has no
     * text of it.
     *
     * @return the text
     * @throws TmqKciException if an error ended the session
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @since 3.1.3
     */
    public String render() {
        return render(KciObject::stringValue);
    }

    /**
     * Does what {@link #render()} does, with a way of its own to read the text.
     *
     * @param reader reads the text, or a part of it, from the string that the server answers
     * @return the text
     * @throws TmqKciException if an error ended the session
     * @throws KciInterruptedException if it is stopped, or its wait ended, before its time: by a limit, for example
     * @throws IllegalStateException if the session has ended, an object was released, or the thread has the bridge's
     *     lock
     * @since 3.1.3
     */
    public String render(Function<KciObject, String> reader) {
        if (isNil()) {
            return "nil";
        }
        try {
            return reader.apply(send("printString"));
        } catch (KciConversionException noText) {
            return toString();
        } catch (TmqKciException refused) {
            if (refused.fatal) {
                throw refused;
            }
            return toString();
        }
    }

    /** Gives the object up at once; further uses are refused. Does nothing for an immediate object. */
    public void release() {
        if (reference != null) {
            released = true;
            reference.clean();
        }
    }

    /** The identifier for a call of this session. */
    long oopFor(KciSession caller) {
        if (caller != session) {
            throw new IllegalArgumentException(this + " belongs to " + session + ", not to " + caller);
        }
        if (released) {
            throw new IllegalStateException("object " + oop() + " was released");
        }
        return oop();
    }

    /** The description if there is one already. */
    TmqKciReport knownDescription() {
        return description;
    }

    /**
     * Whether both are the same object of the same session.
     *
     * @param other an object
     * @return whether they are
     */
    @Override
    public boolean equals(Object other) {
        return other instanceof KciObject object && object.session == session && object.oop == oop;
    }

    @Override
    public int hashCode() {
        return oop;
    }

    /**
     * Shows the object without asking the server: its value, or what is known of it.
     *
     * @return the text
     */
    @Override
    public String toString() {
        return Values.show(this);
    }
}
