package com.kestrune.tmqkci;

import java.io.File;

/**
 * Loads the native part of {@link TmqKciInterface}, and tells whether and why it cannot be loaded. It is looked for in
 * this order, and the first that can be loaded is used:
 * <ol>
 * <li>the file that the system property {@value #PROPERTY} names;
 * <li>{@value #FILE_NAME} in the folder {@code lib} of the installation that the environment variable
 * {@code KESTRUNE} names;
 * <li>{@value #FILE_NAME} in the folders of {@code java.library.path}.
 * </ol>
 */
public final class TmqKciLibrary {
    /** The system property that names the file to load. */
    public static final String PROPERTY = "com.kestrune.tmqkci.library";

    /** The name of the library's file. */
    public static final String FILE_NAME = "libtmqkci313.so";

    private static final String NAME = "tmqkci313";
    private static final String INSTALLATION = "KESTRUNE";
    private static final String LIBRARY_PATH = "java.library.path";

    private static String location;

    private TmqKciLibrary() {
    }

    /**
     * Loads the library if it is not loaded yet.
     *
     * @throws UnsatisfiedLinkError if it cannot be loaded; the message lists every attempt with its cause, and what to
     *     do
     */
    public static void load() {
        UnsatisfiedLinkError cause = unavailabilityCause();
        if (cause != null) {
            throw cause;
        }
    }

    /**
     * Tells whether the native methods can be used here, loading the library if it is not loaded yet.
     *
     * @return whether the library is loaded
     */
    public static boolean isAvailable() {
        return unavailabilityCause() == null;
    }

    /**
     * Tells why the native methods cannot be used here, after trying again to load the library.
     *
     * @return what {@link #load} would throw; null if the library is loaded
     */
    public static synchronized UnsatisfiedLinkError unavailabilityCause() {
        if (location != null) {
            return null;
        }
        LoadFailure failure = new LoadFailure();
        location = load(failure);
        return location == null ? failure.toError() : null;
    }

    /**
     * Tells which file was loaded.
     *
     * @return the file's path, or null if the library is not loaded
     */
    public static synchronized String location() {
        return location;
    }

    private static String load(LoadFailure failure) {
        String place = "system property " + PROPERTY;
        String named = System.getProperty(PROPERTY, "");
        if (named.isBlank()) {
            failure.skipped(place, "it is not set");
        } else if (loadFile(place, new File(named), failure)) {
            return new File(named).getAbsolutePath();
        }

        place = "environment variable " + INSTALLATION;
        String installation = System.getenv(INSTALLATION);
        if (installation == null || installation.isBlank()) {
            failure.skipped(place, "it is not set");
        } else {
            File file = new File(installation, "lib/" + FILE_NAME);
            if (loadFile(place, file, failure)) {
                return file.getAbsolutePath();
            }
        }
        return loadFromLibraryPath(failure);
    }

    private static boolean loadFile(String place, File file, LoadFailure failure) {
        try {
            System.load(file.getAbsolutePath());
            return true;
        } catch (UnsatisfiedLinkError error) {
            failure.failed(place, file.getAbsoluteFile(), error);
            return false;
        }
    }

    private static String loadFromLibraryPath(LoadFailure failure) {
        String path = System.getProperty(LIBRARY_PATH, "");
        File file = null;
        for (String folder : path.split(File.pathSeparator)) {
            File candidate = new File(folder, FILE_NAME);
            if (candidate.exists()) {
                file = candidate.getAbsoluteFile();
                break;
            }
        }
        try {
            System.loadLibrary(NAME);
            return file != null ? file.getPath() : FILE_NAME;
        } catch (UnsatisfiedLinkError error) {
            if (file != null) {
                failure.failed(LIBRARY_PATH, file, error);
            } else {
                failure.missing(LIBRARY_PATH, "no " + FILE_NAME + " in " + path, error);
            }
            return null;
        }
    }
}
