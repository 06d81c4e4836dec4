package com.kestrune.tmqkci;

import com.kestrune.tmqkci.LoadFailure.Attempt;

import java.io.File;
import java.util.ArrayList;
import java.util.List;

/**
 * Loads the native part of {@link TmqKciInterface}, and tells whether and why it cannot be loaded. There is one for
 * 32-bit (i386) and one for 64-bit (x86-64) virtual machines, under the same name in different folders. It is looked
 * for in this order, and the first that can be loaded is used; {@link #location} tells which:
 * <ol>
 * <li>the file that the system property {@value #PROPERTY} names;
 * <li>{@value #FILE_NAME} in the installation that the environment variable {@code KESTRUNE} names, in its folder
 * {@code lib} for a 32-bit virtual machine, {@code lib64} for a 64-bit one;
 * <li>{@value #FILE_NAME} in the folders of {@code java.library.path};
 * <li>when neither the property nor {@code KESTRUNE} is set, the fitting copy in the jar, which is unpacked into the
 * user's cache, {@code $XDG_CACHE_HOME/tmqkci} or {@code ~/.cache/tmqkci}, in a folder named by the SHA-256 of its
 * content.
 * What others could write to, or exchange, is refused there. When the cache cannot be used, or nothing may be executed
 * there, the copy goes into a temporary folder, which is removed at once.
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
        List<Attempt> failed = new ArrayList<>();
        location = load(failed);
        return location == null ? LoadFailure.of(failed) : null;
    }

    /**
     * Tells which file was loaded.
     *
     * @return the file's path, or null if the library is not loaded
     */
    public static synchronized String location() {
        return location;
    }

    private static String load(List<Attempt> failed) {
        String loaded = loadFile("system property " + PROPERTY, System.getProperty(PROPERTY), "", failed);
        if (loaded == null) {
            loaded = loadFile("environment variable " + INSTALLATION, System.getenv(INSTALLATION),
                    "/" + ElfHeader.ofThisProcess().libraryFolder() + "/" + FILE_NAME, failed);
        }
        if (loaded == null) {
            loaded = loadFromLibraryPath(failed);
        }
        return loaded != null ? loaded : loadFromJar(failed);
    }

    private static String loadFromJar(List<Attempt> failed) {
        String place = "copy in the jar";
        if (isSet(System.getProperty(PROPERTY)) || isSet(System.getenv(INSTALLATION))) {
            failed.add(new Attempt(place, null, "not used, since another place is named", null));
            return null;
        }
        return BundledLibrary.load(place, failed);
    }

    private static boolean isSet(String value) {
        return value != null && !value.isBlank();
    }

    private static String loadFile(String place, String value, String below, List<Attempt> failed) {
        if (!isSet(value)) {
            failed.add(new Attempt(place, null, "it is not set", null));
            return null;
        }
        File file = new File(value + below).getAbsoluteFile();
        try {
            OtherCopy.loadUnlessThereIsOne(file);
            return file.getPath();
        } catch (UnsatisfiedLinkError error) {
            failed.add(new Attempt(place, file, null, error));
            return null;
        }
    }

    private static String loadFromLibraryPath(List<Attempt> failed) {
        String path = System.getProperty(LIBRARY_PATH, "");
        File file = null;
        // As the virtual machine reads it: an empty folder among others is the working folder.
        for (String folder : path.isEmpty() ? new String[0] : path.split(File.pathSeparator, -1)) {
            File candidate = folder.isEmpty() ? new File(FILE_NAME) : new File(folder, FILE_NAME);
            if (candidate.exists()) {
                file = candidate.getAbsoluteFile();
                break;
            }
        }
        try {
            if (file == null) {
                System.loadLibrary(NAME);
                return FILE_NAME;
            }
            OtherCopy.loadUnlessThereIsOne(file);
            return file.getPath();
        } catch (UnsatisfiedLinkError error) {
            failed.add(new Attempt(LIBRARY_PATH, file, "no " + FILE_NAME + " in " + path, error));
            return null;
        }
    }
}
