package com.kestrune.tmqkci;

import java.util.Objects;

/**
 * Texts of errors, from the message file of the installation. Using this class loads the bridge, by
 * {@link TmqKciLibrary#load}; the first text opens the message file, {@code $KESTRUNE/sys/english67.err} unless the
 * environment variable {@code KESTRUNE_LANG} names another.
 *
 * <p>When the file is missing or damaged, or does not hold a text, the text is its symbol in brackets with its
 * arguments; no method fails for that reason. Bytes of the file that are not UTF-8 show as U+FFFD.
 *
 * <p>The methods are thread-safe. None of them calls the client library.
 *
 * @since 3.1.3
 */
public final class KciMessages {
    /** Shows objects in reports. */
    @FunctionalInterface
    public interface ObjectPrinter {
        /**
         * Answers the text that stands for an object. What it throws ends the report and reaches the report's caller.
         *
         * @param identifier the object's identifier
         * @return the text; with null the report shows the identifier
         */
        String print(long identifier);
    }

    static {
        TmqKciLibrary.load();
    }

    private KciMessages() {
    }

    /**
     * Answers what an error number means and what can be done about it, without the error's arguments.
     *
     * @param category the error's category; for another than the system's own the text is a fixed symbol
     * @param number the error's number
     * @return the text
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     */
    public static native String text(long category, int number);

    /**
     * Renders an error as a report of several lines: the message, category and number, and a line for each argument,
     * which shows its identifier.
     *
     * @param error the error; its array {@code args} may be null, and shorter than {@code argCount}
     * @return the report
     * @throws NullPointerException if the error is null
     */
    public static String report(TmqKciException error) {
        return report(error, 1, false, 1, null);
    }

    /**
     * Renders an error as a report of several lines.
     *
     * @param error the error; its array {@code args} may be null, and shorter than {@code argCount}
     * @param errorNumber which error this is of {@code errorsInProgress}, counted from 1
     * @param displayOops whether the identifiers of category and context are shown
     * @param errorsInProgress how many errors are reported; the number is shown when there are several
     * @param printer shows the arguments; null to show their identifiers
     * @return the report
     * @throws NullPointerException if the error is null
     */
    public static String report(TmqKciException error, int errorNumber, boolean displayOops, int errorsInProgress,
            ObjectPrinter printer) {
        Objects.requireNonNull(error, "error");
        return render(error, errorNumber, displayOops, errorsInProgress, printer);
    }

    private static native String render(TmqKciException error, int errorNumber, boolean displayOops,
            int errorsInProgress, ObjectPrinter printer);

    /** Chooses what a fatal report does; for {@link KciBridge#setFaultReports}, which keeps the choice. */
    static native void faultReports(boolean wanted);
}
