package com.kestrune.tmqkci;

/**
 * The native methods of the bridge to an object database server. Using this class loads the bridge, by
 * {@link TmqKciLibrary#load}.
 *
 * <p>A program calls {@link #_initialize} once, {@link #_login} for each session that it wants, and then any of the
 * others with that session's number. A call on the server is started by {@link #_executeStr}, {@link #_executeObj} or
 * {@link #_perform}, which return at once, and ended by polling {@link #_nbEnd}; a session runs one call at a time.
 *
 * <p>Every method takes as its last argument a {@link TmqKciException}, not null, and answers a status: 0 or a result
 * described with the method when it succeeded; {@link #FAILED} when the exception was filled; {@link #NOT_LENT} when
 * the virtual machine could not lend a string or an array, in which case the exception need not be filled and a Java
 * exception, such as an OutOfMemoryError, may be thrown on return.
 *
 * <p>The methods are not thread-safe: only one thread of the process may be inside one of them at a time.
 *
 * @since 3.1.3
 */
public final class TmqKciInterface {
    /** Status of a successful {@link #_initialize}. */
    public static final int INITIALIZED = 32;
    /** Status of {@link #_nbEnd} while the call still runs. */
    public static final int NOT_READY = 1;
    /** Status of a failure that the error report describes. */
    public static final int FAILED = -1;
    /** Status of a failure of the virtual machine to lend a string or an array. */
    public static final int NOT_LENT = -2;

    /** The length of the array that {@link #_initialize} fills. */
    public static final int KERNEL_OOPS = 16;
    /** The most arguments that {@link #_perform} sends. */
    public static final int MAX_ARGUMENTS = 20;

    static {
        TmqKciLibrary.load();
    }

    private TmqKciInterface() {
    }

    /**
     * Initializes the bridge and the client library, once in a process; later calls only raise the trace level and
     * succeed. Trace lines go to standard output, and with a {@code debugFlag} of 2 or more they show passwords.
     *
     * <p>After a failure before the client library is loaded (a wrong argument, no such library) the call can be
     * repeated. Once the library is loaded there is no second attempt: every later call fails with "KciRtlLoad failure:
     * Library is already loaded."
     *
     * @param useLinked not 0 to run sessions inside this process, 0 to talk to a session process
     * @param appName the application's name for the client library, or null
     * @param bufSize size in bytes of the transfer buffer: the most bytes, and four times the most references, that one
     *     call moves
     * @param preloadSize how many bytes of an object's body to fetch with its description; 16 at least, not more than
     *     {@code bufSize}
     * @param debugFlag 0 for no trace, 1 for an informational one, 2 or more for a full one
     * @param kernelOops receives fixed identifiers of the server; {@link #KERNEL_OOPS} elements at least
     * @param errReport receives the error
     * @return {@link #INITIALIZED}, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _initialize(int useLinked, String appName, int bufSize, int preloadSize, int debugFlag,
            long[] kernelOops, TmqKciException errReport);

    /**
     * Answers the version of the client library.
     *
     * @param version receives the text in its first element
     * @param errReport receives the error
     * @return 0 or {@link #FAILED}
     */
    public static native int _kciVersion(String[] version, TmqKciException errReport);

    /**
     * Opens a session and has it keep track of the objects that change (see {@link #_changedOops}).
     *
     * @param serverName the server's name
     * @param netName the name of the service that starts session processes, or null
     * @param userName the database user
     * @param password that user's password
     * @param hostUserName the user on the server's host, or null
     * @param hostPassword that user's password, or null
     * @param errReport receives the error
     * @return the session's number, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _login(String serverName, String netName, String userName, String password,
            String hostUserName, String hostPassword, TmqKciException errReport);

    /**
     * Closes a session; its identifiers mean nothing afterwards.
     *
     * @param sessionId the session
     * @param errReport receives the error
     * @return 0 or {@link #FAILED}
     */
    public static native int _logout(int sessionId, TmqKciException errReport);

    /**
     * Describes the object that {@code result} names by {@link TmqKciReport#oop}. A result whose identifier is 0 is
     * taken as a Java-side value, which is sent first.
     *
     * @param sessionId the session
     * @param result names the object and receives its description
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _setup(int sessionId, TmqKciReport result, TmqKciException errReport);

    /**
     * Polls for the end of the session's running call. An error that the call met is reported here; when its
     * {@link TmqKciException#context} is not nil, {@link #_continue} can continue from it.
     *
     * @param sessionId the session
     * @param result receives the description of the call's result, once it has ended
     * @param errReport receives the error
     * @return 0, {@link #NOT_READY} as long as the call runs, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _nbEnd(int sessionId, TmqKciReport result, TmqKciException errReport);

    /**
     * Starts the execution of source text on the server.
     *
     * @param sessionId the session
     * @param source the text
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _executeStr(int sessionId, String source, TmqKciException errReport);

    /**
     * Starts the execution of source text that is, or becomes, a string on the server.
     *
     * @param sessionId the session
     * @param source the string
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _executeObj(int sessionId, TmqKciReport source, TmqKciException errReport);

    /**
     * Starts sending a message to an object.
     *
     * @param sessionId the session
     * @param receiver the object
     * @param selector the message's selector
     * @param args the message's arguments, {@code numArgs} elements at least
     * @param numArgs how many arguments, {@link #MAX_ARGUMENTS} at most
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _perform(int sessionId, TmqKciReport receiver, String selector, TmqKciReport[] args,
            int numArgs, TmqKciException errReport);

    /**
     * Continues a process that an error suspended, and waits for its result; or, when {@code errFlag} is set, puts a
     * Java error's texts on the server and fails with error {@link TmqKciException#ERROR_CONTINUE}, whose arguments are
     * 2318 and the identifiers of the two texts.
     *
     * @param sessionId the session
     * @param process the suspended process, the {@link TmqKciException#context} of the error
     * @param errFlag whether to report an error instead of continuing
     * @param value what the failed message shall answer; null to continue without one
     * @param result receives the description of the call's result; not used when {@code errFlag} is set
     * @param errMessage the error's text; used only when {@code errFlag} is set
     * @param errStack the error's stack trace; used only when {@code errFlag} is set
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _continue(int sessionId, TmqKciReport process, boolean errFlag, TmqKciReport value,
            TmqKciReport result, String errMessage, String errStack, TmqKciException errReport);

    /**
     * Tells whether an object is an instance of a class or of one of its subclasses.
     *
     * @param sessionId the session
     * @param object the object
     * @param cls the class
     * @param errReport receives the error
     * @return what the client library answers: 1 or another positive number if it is, 0 if not; {@link #FAILED} or
     *     {@link #NOT_LENT}
     */
    public static native int _isKindOf(int sessionId, TmqKciReport object, TmqKciReport cls, TmqKciException errReport);

    /**
     * Collects an error that waits in the session, without doing anything else.
     *
     * @param sessionId the session
     * @param errReport receives the error
     * @return 0 when there is none, {@link #FAILED} when there was one
     */
    public static native int _checkErrors(int sessionId, TmqKciException errReport);

    /**
     * Reads bytes of a byte object. Fewer bytes than asked for are a failure, after those that exist were copied.
     *
     * @param sessionId the session
     * @param object the object
     * @param startIndex where to begin, from 1
     * @param numBytes how many bytes, not more than the transfer buffer's size
     * @param bytes receives the bytes; {@code numBytes} elements at least
     * @param errReport receives the error
     * @return how many bytes were read, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _getBytes(int sessionId, TmqKciReport object, long startIndex, int numBytes, byte[] bytes,
            TmqKciException errReport);

    /**
     * Reads references from the indexed part of an object. Of an ordinary object a report receives only the identifier.
     *
     * @param sessionId the session
     * @param object the object
     * @param startIndex where to begin, from 1
     * @param numObjs how many references, not more than a quarter of the transfer buffer's size
     * @param objs {@code numObjs} reports at least, which are filled; those beyond the object's end stay as they are
     * @param errReport receives the error
     * @return how many references were read, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _getObjs(int sessionId, TmqKciReport object, long startIndex, int numObjs,
            TmqKciReport[] objs, TmqKciException errReport);

    /**
     * Reads named variables of an object, as {@link #_getObjs} reads its indexed part.
     *
     * @param sessionId the session
     * @param object the object
     * @param startIndex the number of the first variable, from 1
     * @param numObjs how many variables, not more than a quarter of the transfer buffer's size
     * @param objs {@code numObjs} reports at least, which are filled
     * @param errReport receives the error
     * @return how many variables were read, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _getNamedObjs(int sessionId, TmqKciReport object, long startIndex, int numObjs,
            TmqKciReport[] objs, TmqKciException errReport);

    /**
     * Writes bytes into a byte object.
     *
     * @param sessionId the session
     * @param object the object
     * @param startIndex where to begin, from 1
     * @param numBytes how many bytes, not more than the transfer buffer's size
     * @param bytes the bytes; {@code numBytes} elements at least
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _putBytes(int sessionId, TmqKciReport object, long startIndex, int numBytes, byte[] bytes,
            TmqKciException errReport);

    /**
     * Writes references into the indexed part of an object. Either all are written or none.
     *
     * @param sessionId the session
     * @param object the object
     * @param startIndex where to begin, from 1
     * @param numObjs how many references, not more than a quarter of the transfer buffer's size
     * @param objs the objects or values; {@code numObjs} elements at least
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _putObjs(int sessionId, TmqKciReport object, long startIndex, int numObjs,
            TmqKciReport[] objs, TmqKciException errReport);

    /**
     * Writes named variables of an object, as {@link #_putObjs} writes its indexed part.
     *
     * @param sessionId the session
     * @param object the object
     * @param startIndex the number of the first variable, from 1
     * @param numObjs how many variables, not more than a quarter of the transfer buffer's size
     * @param objs the objects or values; {@code numObjs} elements at least
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _putNamedObjs(int sessionId, TmqKciReport object, long startIndex, int numObjs,
            TmqKciReport[] objs, TmqKciException errReport);

    /**
     * Gives up objects that were reported to this program, so that the server may collect them.
     *
     * @param sessionId the session
     * @param objs the objects; {@code numObjs} elements at least
     * @param numObjs how many, not more than a quarter of the transfer buffer's size
     * @param errReport receives the error
     * @return 0, {@link #FAILED} or {@link #NOT_LENT}
     */
    public static native int _removeFromExportSet(int sessionId, TmqKciReport[] objs, int numObjs,
            TmqKciException errReport);

    /**
     * Gives up objects by their identifiers.
     *
     * @param sessionId the session
     * @param oops the identifiers, of which the low 32 bits count; {@code numOops} elements at least
     * @param numOops how many, not more than a quarter of the transfer buffer's size
     * @param errReport receives the error
     * @return 0 or {@link #FAILED}
     */
    public static native int _releaseOops(int sessionId, long[] oops, int numOops, TmqKciException errReport);

    /**
     * Reads and forgets the identifiers of objects that changed in the session; to be repeated while it fills the
     * array.
     *
     * @param sessionId the session
     * @param oops receives the identifiers; {@code numOops} elements at least
     * @param numOops how many to read at most, not more than a quarter of the transfer buffer's size
     * @param errReport receives the error
     * @return how many identifiers were written, or {@link #FAILED}
     */
    public static native int _changedOops(int sessionId, long[] oops, int numOops, TmqKciException errReport);

    /**
     * Would prepare the cache statistics; the bridge has none.
     *
     * @param errReport receives the error
     * @return {@link #FAILED}
     */
    public static native int _KCSIinitialize(TmqKciException errReport);

    /**
     * Would answer the names of the cache statistics; the bridge has none.
     *
     * @param statNamesTable an array of names for each kind of process
     * @param errReport receives the error
     * @return {@link #FAILED}
     */
    public static native int _KCSIstatNames(Object[] statNamesTable, TmqKciException errReport);

    /**
     * Would attach to a shared cache; the bridge cannot.
     *
     * @param monitorName the name of the cache's monitor
     * @param errReport receives the error
     * @return {@link #FAILED}
     */
    public static native int _KCSIattach(String monitorName, TmqKciException errReport);

    /**
     * Would detach from the shared cache; the bridge cannot.
     *
     * @param errReport receives the error
     * @return {@link #FAILED}
     */
    public static native int _KCSIdetach(TmqKciException errReport);

    /**
     * Would sample the statistics of processes; the bridge cannot.
     *
     * @param processIds the processes
     * @param errReport receives the error
     * @return {@link #FAILED}
     */
    public static native int _KCSIsampleStats(long[] processIds, TmqKciException errReport);

    /**
     * Would answer the sampled statistics of a process; the bridge cannot.
     *
     * @param pid the process
     * @param stats receives the statistics
     * @param errReport receives the error
     * @return {@link #FAILED}
     */
    public static native int _KCSIgetStats(long pid, TmqKciCacheStats stats, TmqKciException errReport);
}
