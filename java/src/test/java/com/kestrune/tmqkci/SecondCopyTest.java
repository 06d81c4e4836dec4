package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.io.File;
import java.lang.ref.Reference;
import java.lang.ref.WeakReference;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** A second class loader gets no bridge of its own beside another's, and takes one over that is gone. */
class SecondCopyTest {
    @TempDir
    Path folder;

    private static URLClassLoader anotherLoader() throws Exception {
        List<URL> places = new ArrayList<>();
        for (String each : System.getProperty("java.class.path").split(File.pathSeparator)) {
            places.add(new File(each).toURI().toURL());
        }
        return new URLClassLoader(places.toArray(URL[]::new), ClassLoader.getPlatformClassLoader());
    }

    /** Uses the bridge of its class loader. */
    public static final class User implements Runnable {
        @Override
        public void run() {
            assertTrue(KciMessages.report(new TmqKciException("text")).contains("The session goes on."));
            // More than half of what the local store admits, left open.
            for (int i = 0; i < 60; ++i) {
                KciSessionTest.login("local").execute("List new");
            }
        }
    }

    private static Reference<ClassLoader> useAndDrop() throws Exception {
        try (URLClassLoader loader = anotherLoader()) {
            ((Runnable) loader.loadClass(User.class.getName()).getConstructor().newInstance()).run();
            return new WeakReference<>(loader);
        }
    }

    private static boolean isHeld(String file) throws Exception {
        boolean open = false;
        for (File descriptor : new File("/proc/self/fd").listFiles()) {
            open |= descriptor.getCanonicalPath().endsWith(file);
        }
        return open || Files.readString(Path.of("/proc/self/maps")).contains(file);
    }

    @Test
    void oneLoaderAtATime() throws Exception {
        for (int round = 0; round < 2; ++round) {
            Reference<ClassLoader> loader = useAndDrop();
            for (int i = 0; i < 100 && isHeld(TmqKciLibrary.FILE_NAME); ++i) {
                System.gc();
                Thread.sleep(50);
            }
            assertNull(loader.get(), "the class loader can be unloaded");
            assertFalse(isHeld(TmqKciLibrary.FILE_NAME), "and the library with it");
            assertFalse(isHeld(".err"), "and its messages");
        }
        // While one is loaded, a second copy is refused.
        TmqKciLibrary.load();
        Path loaded = Path.of(TmqKciLibrary.location());
        Path copy = Files.copy(loaded, folder.resolve(TmqKciLibrary.FILE_NAME));
        try (URLClassLoader loader = anotherLoader()) {
            Class<?> second = loader.loadClass(TmqKciLibrary.class.getName());
            for (Path file : new Path[] {copy, loaded}) {
                System.setProperty(TmqKciLibrary.PROPERTY, file.toString());
                String cause = String.valueOf(second.getMethod("unavailabilityCause").invoke(null));
                assertTrue(cause.contains("already loaded in another classloader"), cause);
                assertTrue(cause.contains("Load the bridge once in a process"), cause);
                assertEquals(file == copy, cause.contains("another copy of the bridge"));
            }
        }
    }
}
