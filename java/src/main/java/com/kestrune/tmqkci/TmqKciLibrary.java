package com.kestrune.tmqkci;

import com.kestrune.tmqkci.LoadFailure.Attempt;
import com.kestrune.tmqkci.internal.Places;
import com.kestrune.tmqkci.internal.Places.Place;

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
 * <li>unless the property is set or one of these files is there, the fitting copy in the jar, which is unpacked into
 * the user's cache, {@code $XDG_CACHE_HOME/tmqkci} or {@code ~/.cache/tmqkci}, in a folder named by the SHA-256 of its
 * content. An installation without a bridge of its own, with client libraries only, is served by it.
 * What others could write to, or exchange, is refused there. When the cache cannot be used, or nothing may be executed
 * there, the copy goes into a temporary folder, which is removed at once.
 * </ol>
 *
 * <p>Thread-safe.
 *
 * @since 3.1.3
 */
public final class TmqKciLibrary {
    /** The system property that names the file to load. */
    public static final String PROPERTY = Places.BRIDGE_PROPERTY;

    /** The name of the library's file. */
    public static final String FILE_NAME = Places.BRIDGE;

    private static final String NAME = "tmqkci313";

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
        boolean found = Places.isSet(System.getProperty(PROPERTY));
        for (Place place : Places.ofBridge()) {
            String loaded = load(place, failed);
            if (loaded != null) {
                return loaded;
            }
            found |= place.file() != null && place.file().exists();
        }
        String place = "copy in the jar";
        if (found) {
            failed.add(new Attempt(place, null, "not used, since another file is named", null));
            return null;
        }
        return BundledLibrary.load(place, failed);
    }

    private static String load(Place place, List<Attempt> failed) {
        File file = place.file();
        try {
            if (file != null) {
                OtherCopy.loadUnlessThereIsOne(file);
                return file.getPath();
            }
            if (place.name().equals(Places.LIBRARY_PATH)) {
                // The virtual machine knows folders of its own beside.
                System.loadLibrary(NAME);
                return FILE_NAME;
            }
            failed.add(new Attempt(place.name(), null, place.absence(), null));
        } catch (UnsatisfiedLinkError error) {
            failed.add(new Attempt(place.name(), file, place.absence(), error));
        }
        return null;
    }
}
