package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.io.File;
import java.lang.ref.Reference;
import java.lang.ref.WeakReference;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** A second class loader gets no bridge of its own beside another's, and takes one over that is gone. */
class SecondCopyTest {
    @TempDir
    Path folder;

    private static final URL JAR = TmqKciLibrary.class.getProtectionDomain().getCodeSource().getLocation();

    private static URLClassLoader anotherLoader() {
        return new URLClassLoader(new URL[] {JAR}, ClassLoader.getPlatformClassLoader());
    }

    /** Uses the bridge in a class loader that is dropped then. */
    private static Reference<ClassLoader> reportAndDrop() throws Exception {
        try (URLClassLoader loader = anotherLoader()) {
            Class<?> exception = loader.loadClass(TmqKciException.class.getName());
            Object error = exception.getConstructor(String.class).newInstance("text");
            Object report = loader.loadClass(KciMessages.class.getName()).getMethod("report", exception)
                    .invoke(null, error);
            assertTrue(((String) report).contains("The session goes on."), (String) report);
            // More than half of what the local store admits, left open.
            Class<?> options = loader.loadClass(KciLoginOptions.class.getName());
            for (int i = 0; i < 60; ++i) {
                Object login = options.getConstructor().newInstance();
                options.getMethod("server", String.class).invoke(login, "local");
                options.getMethod("user", String.class).invoke(login, "guest");
                options.getMethod("password", char[].class).invoke(login, "guest".toCharArray());
                Object session = loader.loadClass(KciSession.class.getName()).getMethod("login", options)
                        .invoke(null, login);
                session.getClass().getMethod("execute", String.class).invoke(session, "List new");
            }
            return new WeakReference<>(loader);
        }
    }

    private static long openMessageFiles() throws Exception {
        long open = 0;
        for (File descriptor : new File("/proc/self/fd").listFiles()) {
            open += descriptor.getCanonicalPath().endsWith(".err") ? 1 : 0;
        }
        return open;
    }

    private static boolean isMapped() throws Exception {
        return Files.readString(Path.of("/proc/self/maps")).contains(TmqKciLibrary.FILE_NAME);
    }

    @Test
    void oneLoaderAtATime() throws Exception {
        for (int round = 0; round < 2; ++round) {
            Reference<ClassLoader> loader = reportAndDrop();
            for (int i = 0; i < 100 && isMapped(); ++i) {
                System.gc();
                Thread.sleep(50);
            }
            assertNull(loader.get(), "the class loader can be unloaded");
            assertFalse(isMapped(), "and the library with it");
            assertEquals(0, openMessageFiles());
        }
        secondCopiesAreRefused();
    }

    private void secondCopiesAreRefused() throws Exception {
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
