package com.kestrune.tmqkci;

import java.io.IOException;
import java.io.InputStream;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.attribute.FileAttribute;
import java.nio.file.attribute.PosixFilePermission;
import java.nio.file.attribute.PosixFilePermissions;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.Map;
import java.util.Set;

/**
 * The copy of the library that the jar carries, as a file. In the cache, everything from the folder {@code tmqkci} down
 * must be this user's, no symbolic link, and closed to others' writing. A file appears there by being renamed, whole;
 * of several virtual machines that do so at once, each puts the same bytes in the place.
 */
final class BundledLibrary implements AutoCloseable {
    private static final String RESOURCE = "/META-INF/native/linux-i386/" + TmqKciLibrary.FILE_NAME;
    private static final FileAttribute<Set<PosixFilePermission>> FOR_OWNER = PosixFilePermissions
            .asFileAttribute(PosixFilePermissions.fromString("rwx------"));

    private final Path file;
    private final boolean temporary;

    private BundledLibrary(Path file, boolean temporary) {
        this.file = file;
        this.temporary = temporary;
    }

    static BundledLibrary unpack() throws IOException {
        byte[] content;
        try (InputStream in = BundledLibrary.class.getResourceAsStream(RESOURCE)) {
            if (in == null) {
                throw new IOException("the jar carries none");
            }
            content = in.readAllBytes();
        }
        try {
            return new BundledLibrary(inCache(content), false);
        } catch (IOException unusable) {
            try {
                return inTemporaryFolder(content);
            } catch (IOException alsoUnusable) {
                throw new IOException("it can be unpacked neither into the cache (" + unusable
                        + ") nor into a temporary folder (" + alsoUnusable + ")", unusable);
            }
        }
    }

    private static BundledLibrary inTemporaryFolder(byte[] content) throws IOException {
        Path folder = Files.createTempDirectory("tmqkci", FOR_OWNER);
        BundledLibrary copy = new BundledLibrary(folder.resolve(TmqKciLibrary.FILE_NAME), true);
        try {
            Files.write(copy.file, content);
        } catch (IOException unwritten) {
            try {
                copy.close();
            } catch (IOException left) {
                unwritten.addSuppressed(left);
            }
            throw unwritten;
        }
        return copy;
    }

    Path file() {
        return file;
    }

    /** Once the library is loaded, a temporary file is not needed any more. */
    @Override
    public void close() throws IOException {
        if (temporary) {
            Files.deleteIfExists(file);
            Files.deleteIfExists(file.getParent());
        }
    }

    private static Path inCache(byte[] content) throws IOException {
        Path folder = ownFolder(ownFolder(cache().resolve("tmqkci")).resolve(hash(content)));
        Path file = folder.resolve(TmqKciLibrary.FILE_NAME);
        if (Files.isRegularFile(file, LinkOption.NOFOLLOW_LINKS)) {
            requireOwn(file);
            if (Arrays.equals(Files.readAllBytes(file), content)) {
                return file;
            }
        }
        Path whole = Files.createTempFile(folder, "", ".part", FOR_OWNER);
        try {
            Files.write(whole, content);
            Files.move(whole, file, StandardCopyOption.ATOMIC_MOVE);
        } finally {
            Files.deleteIfExists(whole);
        }
        return file;
    }

    private static Path cache() throws IOException {
        String named = System.getenv("XDG_CACHE_HOME");
        String home = System.getenv("HOME");
        return Files.createDirectories(named != null && named.startsWith("/") ? Path.of(named)
                : Path.of(home != null ? home : System.getProperty("user.home"), ".cache"));
    }

    private static Path ownFolder(Path folder) throws IOException {
        try {
            Files.createDirectory(folder, FOR_OWNER);
        } catch (FileAlreadyExistsException present) {
            if (!Files.isDirectory(folder, LinkOption.NOFOLLOW_LINKS)) {
                throw new IOException(folder + " is no folder");
            }
        }
        requireOwn(folder);
        return folder;
    }

    private static void requireOwn(Path path) throws IOException {
        Map<String, Object> attributes = Files.readAttributes(path, "unix:uid,permissions", LinkOption.NOFOLLOW_LINKS);
        Object self = Files.getAttribute(Path.of("/proc/self"), "unix:uid");
        if (!self.equals(attributes.get("uid"))) {
            throw new IOException(path + " belongs to another user");
        }
        Set<?> permissions = (Set<?>) attributes.get("permissions");
        if (permissions.contains(PosixFilePermission.GROUP_WRITE)
                || permissions.contains(PosixFilePermission.OTHERS_WRITE)) {
            throw new IOException(path + " can be written to by others");
        }
    }

    private static String hash(byte[] content) {
        try {
            return HexFormat.of().formatHex(MessageDigest.getInstance("SHA-256").digest(content));
        } catch (NoSuchAlgorithmException impossible) {
            throw new IllegalStateException(impossible);
        }
    }
}
