package com.kestrune.tmqkci;

import com.kestrune.tmqkci.internal.ElfHeader;
import com.kestrune.tmqkci.internal.Places;

import java.io.File;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.stream.Stream;

/**
 * Refuses a second copy of the bridge in the process. The client library below knows only one, and the lock that keeps
 * native calls apart is one class loader's. A virtual machine itself refuses the same file to a second class loader; a
 * copy of the file it would take.
 */
final class OtherCopy {
    /** How the virtual machine says that another class loader has loaded the same file. */
    static final String SAME_FILE = "already loaded in another classloader";

    private static final Path MAPPINGS = Path.of("/proc/self/maps");
    private static final String DELETED = " (deleted)";

    private OtherCopy() {
    }

    /** Loads the file unless another one of this name is in the process. */
    static void loadUnlessThereIsOne(File file) {
        if (isForAnotherMachine(file)) {
            // The virtual machine would warn of its stack before it refuses it.
            throw new UnsatisfiedLinkError(file + ": it is for another kind of machine");
        }
        // Class loaders have nothing in common but the classes of the virtual machine.
        synchronized (Runtime.class) {
            String other = besides(file);
            if (other != null) {
                throw new UnsatisfiedLinkError(file + ": another copy of the bridge, " + other + ", was " + SAME_FILE);
            }
            System.load(file.getPath());
        }
    }

    private static boolean isForAnotherMachine(File file) {
        try {
            ElfHeader header = ElfHeader.of(file);
            return header != null && !header.equals(ElfHeader.ofThisProcess());
        } catch (IOException unreadable) {
            return false;
        }
    }

    private static String besides(File file) {
        try (Stream<String> mappings = Files.lines(MAPPINGS)) {
            String own = file.getCanonicalPath();
            return mappings.map(OtherCopy::path)
                    .filter(path -> path != null && path.endsWith('/' + Places.BRIDGE) && !path.equals(own))
                    .findFirst().orElse(null);
        } catch (IOException | UncheckedIOException unreadable) {
            return null;
        }
    }

    /** The file of a line of mappings: five fields of numbers come before it. */
    private static String path(String mapping) {
        int begin = mapping.indexOf('/');
        if (begin < 0) {
            return null;
        }
        String path = mapping.substring(begin);
        return path.endsWith(DELETED) ? path.substring(0, path.length() - DELETED.length()) : path;
    }
}
