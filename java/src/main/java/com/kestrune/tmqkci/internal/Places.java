package com.kestrune.tmqkci.internal;

import java.io.File;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** Which native libraries are used, under which names, and where they are looked for in which order. */
public final class Places {
    /** The environment variable that names the installation. */
    public static final String INSTALLATION = "KESTRUNE";
    /** The system property that names the bridge's file. */
    public static final String BRIDGE_PROPERTY = "com.kestrune.tmqkci.library";
    /** The bridge's file. */
    public static final String BRIDGE = "libtmqkci313.so";
    /** The remote client library's file, beside the bridge's: it opens a client library in a host process. */
    public static final String REMOTE = "libkcirpc67.so";
    /** The environment variable for another beginning of the client library's name. */
    public static final String CLIENT_NAME = "KCIRTL_BASELIBNAME";
    /** The environment variable for another end of the client library's name. */
    public static final String CLIENT_VERSION = "KCIRTL_VERSION";
    /** The environment variable that is "1" to have any client library opened in a host process. */
    public static final String HOST_WANTED = "KCIRTL_HOST";
    /** Which client libraries the bridge accepts. */
    public static final String ACCEPTED_CLIENTS = "product 1, versions 6.7 to 6.9.999";
    /** The virtual machine's property with the folders of its native libraries. */
    public static final String LIBRARY_PATH = "java.library.path";

    private static final String OTHER_FOLDER = "lib";

    /**
     * A place where the bridge is looked for.
     *
     * @param name what names the place
     * @param file the file there, which need not exist; null if no file is named
     * @param absence why no file is named; null if one is
     */
    public record Place(String name, File file, String absence) {
    }

    private Places() {
    }

    /** Whether a variable or property says anything. */
    public static boolean isSet(String value) {
        return value != null && !value.isBlank();
    }

    /** What a variable says, or what holds when it says nothing. */
    public static String variable(String name, String otherwise) {
        String value = System.getenv(name);
        return value == null || value.isEmpty() ? otherwise : value;
    }

    /** The files that can be the bridge, in the order in which they are tried; after them comes the jar's own. */
    public static List<Place> ofBridge() {
        return List.of(named("system property " + BRIDGE_PROPERTY, System.getProperty(BRIDGE_PROPERTY), ""),
                named("environment variable " + INSTALLATION, System.getenv(INSTALLATION),
                        "/" + ElfHeader.ofThisProcess().libraryFolder() + "/" + BRIDGE),
                onLibraryPath());
    }

    private static Place named(String name, String value, String below) {
        return isSet(value) ? new Place(name, new File(value + below).getAbsoluteFile(), null)
                : new Place(name, null, "it is not set");
    }

    private static Place onLibraryPath() {
        String path = System.getProperty(LIBRARY_PATH, "");
        // As the virtual machine reads it: an empty folder among others is the working folder.
        for (String folder : path.isEmpty() ? new String[0] : path.split(File.pathSeparator, -1)) {
            File file = folder.isEmpty() ? new File(BRIDGE) : new File(folder, BRIDGE);
            if (file.exists()) {
                return new Place(LIBRARY_PATH, file.getAbsoluteFile(), null);
            }
        }
        return new Place(LIBRARY_PATH, null, "no " + BRIDGE + " in " + path);
    }

    /** The program of a host process for client libraries of a word size. */
    public static String host(int bits) {
        return "tmqkci-host" + bits;
    }

    /** The folder into which the jar's own copy of the bridge is unpacked. */
    public static Path unpacked() {
        String cache = System.getenv("XDG_CACHE_HOME");
        return (cache != null && cache.startsWith("/") ? Path.of(cache)
                : Path.of(variable("HOME", System.getProperty("user.home")), ".cache")).resolve("tmqkci");
    }

    /** Whether any client library is to be opened in a host process. */
    public static boolean isHostWanted() {
        return "1".equals(System.getenv(HOST_WANTED));
    }

    /** What a client library's name begins with, after "lib". */
    public static String clientName() {
        return variable(CLIENT_NAME, "kci");
    }

    /** What a client library's name ends with, before ".so". */
    public static String clientVersion() {
        return variable(CLIENT_VERSION, "67");
    }

    /** The name of the client library's file; flavour "lnk" has sessions inside, "rpc" session processes. */
    public static String client(String flavour) {
        return "lib" + clientName() + flavour + clientVersion() + ".so";
    }

    /** The files that can be the client library, in the order in which they are tried; the installation may be null. */
    public static List<Path> ofClient(String flavour, Path installation) {
        String name = client(flavour);
        List<Path> places = new ArrayList<>();
        if (installation != null) {
            Path own = installation.resolve(ElfHeader.ofThisProcess().libraryFolder()).resolve(name);
            Path other = installation.resolve(OTHER_FOLDER).resolve(name);
            places.add(Files.exists(own) || !Files.exists(other) ? own : other);
        }
        Dependencies.folders().forEach(folder -> places.add(folder.resolve(name)));
        return places;
    }
}
