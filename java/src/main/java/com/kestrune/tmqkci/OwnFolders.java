package com.kestrune.tmqkci;

import java.io.IOException;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.attribute.FileAttribute;
import java.nio.file.attribute.PosixFilePermission;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Map;
import java.util.Set;

/**
 * Folders in which no other user can put one file in another's place: neither there nor by exchanging a folder on the
 * way to them. What is made here is its owner's alone, whatever the umask is.
 */
final class OwnFolders {
    private static final Path ROOT = Path.of("/");
    private static final int WRITABLE_BY_OTHERS = 0022;
    private static final int STICKY = 01000;

    private static final Set<PosixFilePermission> OWNER_ONLY = PosixFilePermissions.fromString("rwx------");
    /** The mode with which something is made; what the umask takes away, {@link #ownerOnly} gives back. */
    private static final FileAttribute<Set<PosixFilePermission>> FOR_OWNER = PosixFilePermissions
            .asFileAttribute(OWNER_ONLY);

    private OwnFolders() {
    }

    /**
     * Answers a folder's real path, after making it and what is missing on the way to it.
     *
     * @throws IOException if another user could exchange it
     */
    static Path reach(Path folder) throws IOException {
        if (!Files.exists(folder)) {
            // The root folder exists.
            return make(reach(folder.toAbsolutePath().getParent()), folder.getFileName().toString());
        }
        Path real = folder.toRealPath();
        // From the root down: what was checked cannot be exchanged, so that the path below it stays the same.
        requireUnchangeable(ROOT);
        for (int i = 1; i <= real.getNameCount(); ++i) {
            requireUnchangeable(ROOT.resolve(real.subpath(0, i)));
        }
        return real;
    }

    /** Answers a folder in one that was reached, after making it if it is missing. It must be this user's alone. */
    static Path make(Path parent, String name) throws IOException {
        Path folder = parent.resolve(name);
        try {
            ownerOnly(Files.createDirectory(folder, FOR_OWNER));
        } catch (FileAlreadyExistsException present) {
            if (!Files.isDirectory(folder, LinkOption.NOFOLLOW_LINKS)) {
                throw new IOException(folder + " is no folder");
            }
        }
        requireOwn(folder);
        return folder;
    }

    /** Makes a folder with a name of its own in one that was reached. */
    static Path makeTemporary(Path parent) throws IOException {
        return ownerOnly(Files.createTempDirectory(parent, "tmqkci", FOR_OWNER));
    }

    /** Makes an empty file in a folder of this user's. */
    static Path makeFile(Path file) throws IOException {
        return ownerOnly(Files.createFile(file, FOR_OWNER));
    }

    /** Refuses what is not this user's, or what others can write to. */
    static void requireOwn(Path path) throws IOException {
        Map<String, Object> attributes = attributes(path);
        if (!attributes.get("uid").equals(uid(Path.of("/proc/self")))) {
            throw new IOException(path + " belongs to another user");
        }
        if (((int) attributes.get("mode") & WRITABLE_BY_OTHERS) != 0) {
            throw new IOException(path + " can be written to by others");
        }
    }

    /** Where the sticky bit is set, others who can write cannot rename what is not theirs. */
    private static void requireUnchangeable(Path folder) throws IOException {
        Map<String, Object> attributes = attributes(folder);
        Object owner = attributes.get("uid");
        // The superuser, by the number that it has here: in a user namespace it can be another than 0.
        if (!owner.equals(uid(Path.of("/proc/self"))) && !owner.equals(uid(ROOT))) {
            throw new IOException(folder + " belongs to another user");
        }
        int mode = (int) attributes.get("mode");
        if ((mode & WRITABLE_BY_OTHERS) != 0 && (mode & STICKY) == 0) {
            throw new IOException(folder + " can be written to by others");
        }
    }

    private static Map<String, Object> attributes(Path path) throws IOException {
        return Files.readAttributes(path, "unix:uid,mode", LinkOption.NOFOLLOW_LINKS);
    }

    private static Object uid(Path path) throws IOException {
        return Files.getAttribute(path, "unix:uid");
    }

    private static Path ownerOnly(Path path) throws IOException {
        return Files.setPosixFilePermissions(path, OWNER_ONLY);
    }
}
