package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** A second class loader gets no bridge of its own, neither from the same file nor from a copy. */
class SecondCopyTest {
    @TempDir
    Path folder;

    @Test
    void secondCopiesAreRefused() throws Exception {
        TmqKciLibrary.load();
        Path loaded = Path.of(TmqKciLibrary.location());
        Path copy = Files.copy(loaded, folder.resolve(TmqKciLibrary.FILE_NAME));
        URL jar = TmqKciLibrary.class.getProtectionDomain().getCodeSource().getLocation();
        try (URLClassLoader loader = new URLClassLoader(new URL[] {jar}, ClassLoader.getPlatformClassLoader())) {
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
