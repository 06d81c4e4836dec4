package com.kestrune.tmqkci;

/**
 * The description of one server object: its identifier, its class, its kind and sizes, and the value or the first
 * part of the body where it has one.
 *
 * <p>As a result, a report is filled by the native method. {@link TmqKciInterface#_nbEnd},
 * {@link TmqKciInterface#_continue} and {@link TmqKciInterface#_setup} write everything that is known;
 * {@link TmqKciInterface#_getObjs} and {@link TmqKciInterface#_getNamedObjs} write of an ordinary object nothing but
 * {@link #oop}, so that thousands of references cost one request: such a report goes through {@code _setup} before it
 * can be an argument. {@link #isString} and {@link #isDBString} are set but never cleared: use a new report for each
 * result.
 *
 * <p>As an argument, a report whose {@link #objType} is {@link #KIND_NONE} stands for a value on the Java side. The
 * bridge computes the identifier, or creates the object on the server, and writes it to {@link #oop}; the report stays
 * a Java-side value, so that using it twice creates two objects. Any other report stands for the object {@link #oop}.
 *
 * <p>Not thread-safe.
 *
 * @since 3.1.3
 */
public class TmqKciReport {
    /** Kind: a value on the Java side that has no server object yet. */
    public static final byte KIND_NONE = -1;
    /** Kind: an object whose body is identifiers. */
    public static final byte KIND_POINTER = 0;
    /** Kind: an object whose body is bytes. */
    public static final byte KIND_BYTE = 1;
    /** Kind: an unordered collection. */
    public static final byte KIND_UNORDERED = 2;
    /** Kind: an object whose identifier carries its value. */
    public static final byte KIND_SPECIAL = 3;

    /** Value: none. */
    public static final byte VALUE_NONE = -1;
    /** Value: nil. */
    public static final byte VALUE_NIL = 0;
    /** Value: a boolean, in {@link #valueLong} as 0 or 1. */
    public static final byte VALUE_BOOLEAN = 1;
    /**
     * Value: a character of up to 16 bits, its code in {@link #valueLong}. The client library answers codes as signed
     * bytes, so that those from 128 to 255 arrive as negative numbers; {@code valueLong & 0xFF} is the code then.
     */
    public static final byte VALUE_CHARACTER = 2;
    /** Value: an integer, in {@link #valueLong}; one sent to the server is cut to 32 bits. */
    public static final byte VALUE_INTEGER = 3;
    /** Value: a float, in {@link #valueDouble}. */
    public static final byte VALUE_FLOAT = 4;
    /** Value: bytes, in {@link #valueBytes}; for results only. */
    public static final byte VALUE_BYTES = 5;
    /** Value: identifiers, in {@link #valueLongs}; for results only. */
    public static final byte VALUE_OOPS = 6;
    /** Value: a string, in {@link #valueBytes} as a result and in {@link #valueString} as an argument. */
    public static final byte VALUE_STRING = 7;
    /** Value: a double-byte string, in {@link #valueBytes} as a result and {@link #valueString} as an argument. */
    public static final byte VALUE_DB_STRING = 8;
    /** Value: a date and time, in {@link #valueInt1}, {@link #valueInt2} and {@link #valueLong}. */
    public static final byte VALUE_DATE_TIME = 9;

    /** The object's identifier, from 0 to 2<sup>32</sup>-1; 0 and 1 are no objects. */
    public long oop;

    /** Identifier of the object's class. */
    public long classOop;

    /** Identifier of the class's history of versions. */
    public long classHistoryOop;

    /** The object's kind, one of the {@code KIND_} constants. */
    public byte objType = KIND_NONE;

    /** How many named variables it has. */
    public int namedSize;

    /** How many indexed elements it has: bytes of a byte object, identifiers of others. */
    public long indexedSize;

    /** Whether it is indexable. */
    public boolean isCollection;

    /** Whether it is a string of either width. */
    public boolean isString;

    /** Whether it is a double-byte string. */
    public boolean isDBString;

    /** What kind of value the fields below carry, one of the {@code VALUE_} constants. */
    public byte valueType = VALUE_NONE;

    /** Of a date and time: the year. */
    public int valueInt1;

    /** Of a date and time: the day of the year, from 1. */
    public int valueInt2;

    /** A boolean as 0 or 1, a character's code, an integer, or the milliseconds since midnight of a date and time. */
    public long valueLong;

    /** The value of a float. */
    public double valueDouble;

    /**
     * The first bytes of a byte object, as many as were asked to be preloaded. Those of a string are modified UTF-8 if
     * the string was created by the bridge, those of a double-byte string are 16-bit units, low byte first.
     */
    public byte[] valueBytes;

    /** The first identifiers of a pointer or unordered object, named variables first, as many as are preloaded. */
    public long[] valueLongs;

    /** The text of a string on its way to the server; never written by the bridge. */
    public String valueString;

    /** Makes an empty report: no object, no value. */
    public TmqKciReport() {
    }

    private TmqKciReport(byte valueType, long valueLong) {
        this.valueType = valueType;
        this.valueLong = valueLong;
    }

    /**
     * Makes a report that stands for an object known by its identifier. Only its identifier is known until
     * {@link TmqKciInterface#_setup} fills it.
     *
     * @param oop the object's identifier
     * @return a report that can be an argument
     */
    public static TmqKciReport ofOop(long oop) {
        TmqKciReport report = new TmqKciReport();
        report.oop = oop;
        report.objType = (oop & 2) != 0 ? KIND_SPECIAL : KIND_POINTER;
        return report;
    }

    /**
     * Makes a report of nil.
     *
     * @return a value to send
     */
    public static TmqKciReport ofNil() {
        return new TmqKciReport(VALUE_NIL, 0);
    }

    /**
     * Makes a report of a truth value.
     *
     * @param value the truth value
     * @return a value to send
     */
    public static TmqKciReport ofBoolean(boolean value) {
        return new TmqKciReport(VALUE_BOOLEAN, value ? 1 : 0);
    }

    /**
     * Makes a report of a character.
     *
     * @param value a UTF-16 unit
     * @return a value to send
     */
    public static TmqKciReport ofCharacter(char value) {
        return new TmqKciReport(VALUE_CHARACTER, value);
    }

    /**
     * Makes a report of an integer.
     *
     * @param value the number
     * @return a value to send
     */
    public static TmqKciReport ofInteger(int value) {
        return new TmqKciReport(VALUE_INTEGER, value);
    }

    /**
     * Makes a report of a float.
     *
     * @param value the number
     * @return a value to send
     */
    public static TmqKciReport ofFloat(double value) {
        TmqKciReport report = new TmqKciReport(VALUE_FLOAT, 0);
        report.valueDouble = value;
        return report;
    }

    /**
     * Makes a report of a string, which reaches the server as the text's modified UTF-8 bytes.
     *
     * @param text the text, not null
     * @return a value to send
     */
    public static TmqKciReport ofString(String text) {
        TmqKciReport report = new TmqKciReport(VALUE_STRING, 0);
        report.valueString = text;
        return report;
    }

    /**
     * Makes a report of a double-byte string, which reaches the server as the text's UTF-16 units. A virtual machine
     * started with {@code -Xcheck:jni} does not survive sending one.
     *
     * @param text the text, not null
     * @return a value to send
     */
    public static TmqKciReport ofDoubleByteString(String text) {
        TmqKciReport report = new TmqKciReport(VALUE_DB_STRING, 0);
        report.valueString = text;
        return report;
    }

    /**
     * Makes a report of a date and time.
     *
     * @param year the year
     * @param dayOfYear the day in that year, from 1
     * @param milliseconds milliseconds since midnight
     * @return a value to send
     */
    public static TmqKciReport ofDateTime(int year, int dayOfYear, int milliseconds) {
        TmqKciReport report = new TmqKciReport(VALUE_DATE_TIME, milliseconds);
        report.valueInt1 = year;
        report.valueInt2 = dayOfYear;
        return report;
    }
}
