package com.kestrune.tmqkci;

import java.math.BigInteger;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.time.Instant;
import java.time.LocalDate;
import java.time.LocalDateTime;
import java.time.LocalTime;
import java.time.ZoneOffset;
import java.util.List;
import java.util.Map;

/** Conversions between Java values and what stands for them on the server. */
final class Values {
    static final int NIL = 10;
    private static final int TRUE = 38;
    private static final int IMMEDIATE_MASK = 0x1F;
    private static final int BOOLEAN_TAG = 6;
    private static final int CHARACTER_TAG = 14;
    private static final int INTEGER_TAG = 3;
    private static final int SHOWN_CHARACTERS = 60;
    private static final int NANOS_PER_MILLI = 1_000_000;

    private static final Map<Class<?>, Class<?>> BOXES = Map.of(boolean.class, Boolean.class, char.class,
            Character.class, byte.class, Byte.class, short.class, Short.class, int.class, Integer.class, long.class,
            Long.class, float.class, Float.class, double.class, Double.class);

    /** The narrowest form of a text on the server. */
    enum Width {
        /** ASCII without NUL: the string's bytes are the same in every encoding. */
        ASCII,
        /** Up to U+00FF: a byte for each character. */
        SINGLE_BYTE,
        /** Two bytes for each UTF-16 unit. */
        DOUBLE_BYTE
    }

    private Values() {
    }

    static Width widthOf(String text) {
        boolean ascii = true;
        for (int i = 0; i < text.length(); ++i) {
            char unit = text.charAt(i);
            if (unit > 0xFF) {
                return Width.DOUBLE_BYTE;
            }
            ascii &= unit != 0 && unit < 0x80;
        }
        return ascii ? Width.ASCII : Width.SINGLE_BYTE;
    }

    /** The identifier that carries a value in itself; 0 for a value that takes an object. */
    static long immediateOop(Object value) {
        if (value == null) {
            return NIL;
        } else if (value instanceof Boolean truth) {
            return truth ? TRUE : BOOLEAN_TAG;
        } else if (value instanceof Character unit) {
            return unit << 5 | CHARACTER_TAG;
        } else if (value instanceof Integer || value instanceof Short || value instanceof Byte) {
            int number = ((Number) value).intValue();
            return number << 2 >> 2 == number ? Integer.toUnsignedLong(number << 2 | INTEGER_TAG) : 0;
        }
        return 0;
    }

    /**
     * The report that stands for a value in a native call; null for a value that has to be made first: a text of single
     * bytes, an array of bytes, an integer beyond 32 bits, a list, a map.
     */
    static TmqKciReport toServer(KciSession session, Object value) {
        if (value == null) {
            return TmqKciReport.ofNil();
        } else if (value instanceof KciObject object) {
            return TmqKciReport.ofOop(object.oopFor(session));
        } else if (value instanceof String text) {
            return switch (widthOf(text)) {
                case ASCII -> TmqKciReport.ofString(text);
                case SINGLE_BYTE -> null;
                case DOUBLE_BYTE -> TmqKciReport.ofDoubleByteString(text);
            };
        } else if (value instanceof Integer || value instanceof Short || value instanceof Byte) {
            return TmqKciReport.ofInteger(((Number) value).intValue());
        } else if (value instanceof Long number) {
            if (number != number.intValue()) {
                throw new KciConversionException("the integer " + number + " does not fit 32 bits");
            }
            return TmqKciReport.ofInteger(number.intValue());
        } else if (value instanceof Boolean truth) {
            return TmqKciReport.ofBoolean(truth);
        } else if (value instanceof Character unit) {
            return TmqKciReport.ofCharacter(unit);
        } else if (value instanceof Double || value instanceof Float) {
            return TmqKciReport.ofFloat(((Number) value).doubleValue());
        } else if (value instanceof LocalDateTime time) {
            return TmqKciReport.ofDateTime(time.getYear(), time.getDayOfYear(),
                    (int) Duration.ofNanos(time.toLocalTime().toNanoOfDay()).toMillis());
        } else if (value instanceof LocalDate date) {
            return TmqKciReport.ofDateTime(date.getYear(), date.getDayOfYear(), 0);
        } else if (value instanceof Instant instant) {
            if (instant.getNano() % NANOS_PER_MILLI != 0) {
                throw new KciConversionException("the instant " + instant + " is finer than a millisecond");
            }
            return toServer(session, LocalDateTime.ofInstant(instant, ZoneOffset.UTC));
        } else if (value instanceof BigInteger number && number.bitLength() < Integer.SIZE) {
            return TmqKciReport.ofInteger(number.intValue());
        } else if (value instanceof byte[] || value instanceof BigInteger || value instanceof List
                || value instanceof Map) {
            return null;
        }
        throw new KciConversionException("a " + value.getClass().getName() + " has no counterpart on the server");
    }

    /** A text's characters as bytes, one or two each. */
    static byte[] encode(String text, boolean doubleByte) {
        if (!doubleByte) {
            if (widthOf(text) == Width.DOUBLE_BYTE) {
                throw new KciConversionException("the text has characters beyond U+00FF, and the string holds bytes");
            }
            return text.getBytes(StandardCharsets.ISO_8859_1);
        }
        // Not by a charset, which would replace surrogates that stand alone.
        byte[] bytes = new byte[2 * text.length()];
        for (int i = 0; i < text.length(); ++i) {
            bytes[2 * i] = (byte) text.charAt(i);
            bytes[2 * i + 1] = (byte) (text.charAt(i) >> 8);
        }
        return bytes;
    }

    static String decode(byte[] bytes, boolean doubleByte) {
        if (!doubleByte) {
            return new String(bytes, StandardCharsets.ISO_8859_1);
        }
        char[] units = new char[bytes.length / 2];
        for (int i = 0; i < units.length; ++i) {
            units[i] = (char) (bytes[2 * i] & 0xFF | bytes[2 * i + 1] << 8);
        }
        return new String(units);
    }

    static <T> T fromServer(KciObject object, Class<T> type) {
        if (object.isNil() && type != KciObject.class) {
            return null;
        }
        Object value = convert(object, type.isPrimitive() ? BOXES.getOrDefault(type, type) : type);
        if (value == null) {
            throw refused(object, type);
        }
        @SuppressWarnings("unchecked") // a primitive type's class is no box's, so Class.cast would not do
        T converted = (T) value;
        return converted;
    }

    static KciConversionException refused(KciObject object, Class<?> type) {
        return new KciConversionException(object + " cannot be converted to " + type.getSimpleName());
    }

    /** Null if there is no such value. */
    private static Object convert(KciObject object, Class<?> type) {
        if (type == KciObject.class) {
            return object;
        }
        if (type == List.class) {
            return CollectionValues.isList(object) ? CollectionValues.list(object, 0) : null;
        }
        if (type == Map.class) {
            return object.isImmediate() ? null : CollectionValues.map(object, 0);
        }
        if (type == byte[].class) {
            return object.isImmediate() || object.description().objType != TmqKciReport.KIND_BYTE ? null
                    : object.session().wholeBody(object);
        }
        Object natural = natural(object);
        if (type == Object.class) {
            return natural;
        }
        if (type.isInstance(natural)) {
            return natural;
        }
        boolean wantsNumber = Number.class.isAssignableFrom(type);
        if (wantsNumber && natural == object) {
            natural = largeInteger(object);
        }
        if (natural instanceof LocalDateTime time) {
            return dateOrInstant(object, time, type);
        }
        return wantsNumber && natural instanceof Number number ? toNumber(number, type) : null;
    }

    /** The value as the type that fits the object best. */
    private static Object natural(KciObject object) {
        int oop = (int) object.oop();
        if (object.isImmediate()) {
            return immediate(oop, object);
        }
        TmqKciReport description = object.description();
        return switch (description.valueType) {
            case TmqKciReport.VALUE_FLOAT -> description.valueDouble;
            case TmqKciReport.VALUE_STRING, TmqKciReport.VALUE_DB_STRING ->
                decode(object.session().wholeBody(object), description.isDBString);
            case TmqKciReport.VALUE_DATE_TIME -> dateTime(object, description);
            default -> object;
        };
    }

    private static Object immediate(int oop, Object other) {
        if ((oop & INTEGER_TAG) == INTEGER_TAG) {
            return oop >> 2;
        }
        return switch (oop & IMMEDIATE_MASK) {
            case BOOLEAN_TAG -> oop == TRUE;
            case CHARACTER_TAG -> (char) (oop >>> 5);
            default -> other;
        };
    }

    private static Object dateOrInstant(KciObject object, LocalDateTime time, Class<?> type) {
        if (type == Instant.class) {
            return time.toInstant(ZoneOffset.UTC);
        }
        if (type == LocalDate.class && !time.toLocalTime().equals(LocalTime.MIDNIGHT)) {
            throw new KciConversionException(object + " has a time of day and cannot be converted to LocalDate");
        }
        return type == LocalDate.class ? time.toLocalDate() : null;
    }

    private static LocalDateTime dateTime(KciObject object, TmqKciReport description) {
        try {
            return LocalDateTime.of(LocalDate.ofYearDay(description.valueInt1, description.valueInt2),
                    LocalTime.ofNanoOfDay(description.valueLong * 1_000_000));
        } catch (java.time.DateTimeException none) {
            throw new KciConversionException("object " + object.oop() + " holds no date and time: "
                    + none.getMessage());
        }
    }

    /**
     * An integer beyond the immediate ones is an object of bytes, whose layout is the server's own: the server prints
     * it. Null for another object.
     */
    static BigInteger largeInteger(KciObject object) {
        if (object.isImmediate() || object.description().valueType != TmqKciReport.VALUE_BYTES) {
            return null;
        }
        String printed = object.printString();
        return printed.matches("-?[0-9]+") ? new BigInteger(printed) : null;
    }

    private static Number toNumber(Number number, Class<?> type) {
        if (type == Double.class) {
            return number.doubleValue();
        } else if (type == Float.class) {
            return number.floatValue();
        } else if (number instanceof Double) {
            return null;
        } else if (type == BigInteger.class) {
            return number instanceof BigInteger ? number : BigInteger.valueOf(number.longValue());
        } else if (number instanceof BigInteger large && large.bitLength() >= Long.SIZE) {
            throw new KciConversionException("the integer " + number + " does not fit 64 bits");
        }
        long value = number.longValue();
        Number narrow;
        if (type == Long.class) {
            narrow = value;
        } else if (type == Integer.class) {
            narrow = (int) value;
        } else if (type == Short.class) {
            narrow = (short) value;
        } else if (type == Byte.class) {
            narrow = (byte) value;
        } else {
            return null;
        }
        if (narrow.longValue() != value) {
            throw new KciConversionException("the integer " + value + " does not fit " + type.getSimpleName());
        }
        return narrow;
    }

    /** An object for a person to read, without a call. */
    static String show(KciObject object) {
        if (object.isNil()) {
            return "nil";
        }
        String name = "object " + object.oop();
        if (object.isImmediate()) {
            Object value = immediate((int) object.oop(), name);
            return value instanceof Character ? "$" + value : value.toString();
        }
        TmqKciReport description = object.knownDescription();
        if (description == null) {
            return name;
        }
        return switch (description.valueType) {
            case TmqKciReport.VALUE_FLOAT -> Double.toString(description.valueDouble);
            case TmqKciReport.VALUE_STRING, TmqKciReport.VALUE_DB_STRING -> quoted(description);
            case TmqKciReport.VALUE_DATE_TIME -> "year " + description.valueInt1 + ", day " + description.valueInt2
                    + ", " + description.valueLong + " ms";
            default -> name + " of class " + description.classOop + " (" + description.namedSize + " named, "
                    + description.indexedSize
                    + (description.objType == TmqKciReport.KIND_BYTE ? " bytes)" : " indexed)");
        };
    }

    private static String quoted(TmqKciReport description) {
        String text = decode(description.valueBytes, description.isDBString);
        boolean whole = description.valueBytes.length == description.indexedSize && text.length() <= SHOWN_CHARACTERS;
        String shown = text.substring(0, Math.min(text.length(), SHOWN_CHARACTERS));
        return "'" + shown.replace("'", "''") + (whole ? "'" : "...'");
    }
}
