package com.kestrune.tmqkci;

/**
 * Numbers of errors of the system's own category, {@link #SYSTEM_CATEGORY}, as {@link TmqKciException#number} holds
 * them. {@link KciMessages#text} tells what each means. Servers know more than these; the bridge's own errors are all
 * of number {@link TmqKciException#BRIDGE_ERROR}.
 *
 * @since 3.1.3
 */
public final class KciErrorNumber {
    /** The category of these numbers: a value of {@link TmqKciException#category}. */
    public static final long SYSTEM_CATEGORY = 3613;

    /** An index outside of a collection. */
    public static final int BAD_SUBSCRIPT = 2004;
    /** Source text that is no expression, or a message with a wrong number of arguments. */
    public static final int BAD_MESSAGE = 2005;
    /** A message that the receiver has no method for. */
    public static final int DOES_NOT_UNDERSTAND = 2010;
    /** Something that was looked for in a collection, and is not there. */
    public static final int NOT_IN_COLLECTION = 2015;
    /** An argument of a kind that does not fit. */
    public static final int BAD_ARGUMENT = 2094;
    /** An offset beyond an object's end. */
    public static final int BAD_OFFSET = 2110;
    /** An object that is no float. */
    public static final int NOT_A_FLOAT = 2120;
    /** A recursion that is too deep. */
    public static final int RECURSION_TOO_DEEP = 2138;
    /** A call without a session. */
    public static final int NO_SESSION = 2139;
    /** A date and time out of range. */
    public static final int DATE_TIME_OUT_OF_RANGE = 2161;
    /** An integer that is not in the immediate ones' range. */
    public static final int NOT_A_SMALL_INTEGER = 2162;
    /** An object that is no integer of 32 bits. */
    public static final int NOT_AN_INTEGER = 2163;
    /** An object that is no character. */
    public static final int NOT_A_CHARACTER = 2164;
    /** A failure inside the server's virtual machine. */
    public static final int INTERNAL_ERROR = 2183;
    /** A name that nothing stands for. */
    public static final int UNKNOWN_NAME = 2189;
    /** A call while another one of the session is running. */
    public static final int OPERATION_IN_PROGRESS = 2203;
    /** No memory left. */
    public static final int OUT_OF_MEMORY = 2208;
    /** An object that is no boolean. */
    public static final int NOT_A_BOOLEAN = 2211;
    /** An object whose contents are damaged. */
    public static final int CORRUPT_OBJECT = 2261;
    /** A password that has expired. */
    public static final int PASSWORD_EXPIRED = 2347;
    /** The system has no room for another session. */
    public static final int SYSTEM_SESSION_LIMIT = 4039;
    /** The client library has no room for another session. */
    public static final int CLIENT_SESSION_LIMIT = 4041;
    /** The user may not log in any more often at once. */
    public static final int USER_SESSION_LIMIT = 4050;
    /** A wrong user or password. */
    public static final int LOGIN_DENIED = 4051;
    /** The server accepts no logins at present. */
    public static final int LOGINS_DISABLED = 4053;
    /** The session has ended, with its host process for example. */
    public static final int SESSION_ENDED = 4059;
    /** A number that no session has. */
    public static final int BAD_SESSION = 4100;
    /** A call that the client library does not support. */
    public static final int NOT_SUPPORTED = 4101;
    /** A failure inside the server or the client library that ends the session. */
    public static final int FATAL_INTERNAL_ERROR = 4126;
    /** The connection was refused. */
    public static final int CONNECTION_REFUSED = 4136;
    /** The connection, or the client library's host process, was lost. */
    public static final int CONNECTION_LOST = 4137;
    /** A computation that was stopped, and can go on. */
    public static final int SOFT_BREAK = 6003;
    /** A computation that was stopped for good. */
    public static final int HARD_BREAK = 6004;

    private KciErrorNumber() {
    }
}
