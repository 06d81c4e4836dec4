package com.kestrune.tmqkci;

import com.kestrune.tmqkci.LoadFailure.Attempt;
import com.kestrune.tmqkci.internal.ElfHeader;
import com.kestrune.tmqkci.internal.Places;

import java.io.IOException;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.List;
import java.util.UUID;

/**
 * The copy of the library that the jar carries for this virtual machine, as a file. In the cache, everything from the
 * folder {@code tmqkci} down must be this user's, no symbolic link, and closed to others' writing. A file appears there
 * by being renamed, whole; of several virtual machines that do so at once, each puts the same bytes in the place. What
 * opens client libraries in a host process is unpacked beside it, into the cache alone: it is needed for as long as the
 * process lasts.
 */
final class BundledLibrary {
    private static final int[] WORD_SIZES = {32, 64};

    private BundledLibrary() {
    }

    /**
     * Unpacks and loads the library: in the cache; where that cannot be used, or lies on a file system from which
     * nothing is executed, in a temporary folder, which is removed at once.
     *
     * @param place what a failed attempt is called
     * @param failed receives the attempts that fail
     * @return the file that was loaded, or null
     */
    static String load(String place, List<Attempt> failed) {
        byte[] content;
        try {
            ElfHeader machine = ElfHeader.ofThisProcess();
            content = machine.isServed() ? content(machine.jarFolder() + Places.BRIDGE) : null;
            if (content == null) {
                throw new IOException("the jar carries none for a " + machine + " Java");
            }
        } catch (IOException unreadable) {
            failed.add(new Attempt(place, null, unreadable.getMessage(), null));
            return null;
        }
        String tried = "cannot be unpacked into";
        try {
            Path file = inCache(content);
            try {
                OtherCopy.loadUnlessThereIsOne(file.toFile());
                return file.toString();
            } catch (UnsatisfiedLinkError error) {
                failed.add(new Attempt(place, file.toFile(), null, error));
            }
        } catch (IOException unusable) {
            tried = "can be unpacked neither into the cache (" + unusable + ") nor into";
        }
        try {
            return loadTemporary(content);
        } catch (UnsatisfiedLinkError error) {
            // The file is gone.
            failed.add(new Attempt(place, null, "in a temporary folder: " + error.getMessage(), error));
        } catch (IOException unusable) {
            failed.add(new Attempt(place, null, "it " + tried + " a temporary folder (" + unusable + ")", null));
        }
        return null;
    }

    /** Null if the jar does not carry it. */
    private static byte[] content(String resource) throws IOException {
        try (InputStream in = BundledLibrary.class.getResourceAsStream(resource)) {
            return in == null ? null : in.readAllBytes();
        }
    }

    /** Once the library is loaded, its file is not needed any more. */
    private static String loadTemporary(byte[] content) throws IOException {
        Path folder = OwnFolders.makeTemporary(OwnFolders.reach(Path.of(System.getProperty("java.io.tmpdir"))));
        Path file = folder.resolve(Places.BRIDGE);
        try {
            write(file, content);
            OtherCopy.loadUnlessThereIsOne(file.toFile());
            return file.toString();
        } finally {
            Files.deleteIfExists(file);
            Files.delete(folder);
        }
    }

    private static Path inCache(byte[] content) throws IOException {
        Path folder = OwnFolders.make(ownCache(), hash(content));
        Path bridge = put(folder, Places.BRIDGE, content);
        put(folder, Places.REMOTE, content(ElfHeader.ofThisProcess().jarFolder() + Places.REMOTE));
        for (int bits : WORD_SIZES) {
            put(folder, Places.host(bits), content(ElfHeader.jarFolder(bits) + Places.host(bits)));
        }
        return bridge;
    }

    /** A file with that content, which may be null if there is to be none. */
    private static Path put(Path folder, String name, byte[] content) throws IOException {
        Path file = folder.resolve(name);
        if (content == null) {
            return file;
        }
        if (Files.isRegularFile(file, LinkOption.NOFOLLOW_LINKS)) {
            OwnFolders.requireOwn(file);
            if (Arrays.equals(Files.readAllBytes(file), content)) {
                return file;
            }
        }
        Path whole = folder.resolve(UUID.randomUUID() + ".part");
        try {
            write(whole, content);
            Files.move(whole, file, StandardCopyOption.ATOMIC_MOVE);
        } finally {
            Files.deleteIfExists(whole);
        }
        return file;
    }

    private static void write(Path file, byte[] content) throws IOException {
        Files.write(OwnFolders.makeFile(file), content);
    }

    private static Path ownCache() throws IOException {
        Path unpacked = Places.unpacked();
        return OwnFolders.make(OwnFolders.reach(unpacked.getParent()), unpacked.getFileName().toString());
    }

    private static String hash(byte[] content) {
        try {
            return HexFormat.of().formatHex(MessageDigest.getInstance("SHA-256").digest(content));
        } catch (NoSuchAlgorithmException impossible) {
            throw new IllegalStateException(impossible);
        }
    }
}
