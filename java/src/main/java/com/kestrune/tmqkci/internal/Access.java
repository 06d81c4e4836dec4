package com.kestrune.tmqkci.internal;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFileAttributes;
import java.nio.file.attribute.PosixFilePermissions;

/**
 * Whether a file is there and may be used, with what forbids it: the file's permissions or those of a folder above.
 *
 * @param exists whether it is there, as far as that can be seen
 * @param refusal what forbids its use; null if nothing does
 * @param remedy what would permit it
 */
public record Access(boolean exists, String refusal, String remedy) {
    private static final Access PERMITTED = new Access(true, null, null);
    private static final Access ABSENT = new Access(false, null, null);

    /** Whether it is there and may be used. */
    public boolean isPermitted() {
        return exists && refusal == null;
    }

    /** A file that is to be read. */
    public static Access toRead(Path file) {
        Access above = above(file);
        return above != PERMITTED || Files.isReadable(file) ? above : refused(file, "be read", "a+r");
    }

    /** A file that is to be run, or a folder in which files are to be found. */
    public static Access toExecute(Path file) {
        Access above = above(file);
        return above != PERMITTED || Files.isExecutable(file) ? above
                : refused(file, Files.isDirectory(file) ? "be searched" : "be run", "a+x");
    }

    private static Access above(Path file) {
        Path whole = file.toAbsolutePath();
        for (int names = 0; names < whole.getNameCount(); ++names) {
            Path folder = names == 0 ? whole.getRoot() : whole.getRoot().resolve(whole.subpath(0, names));
            if (!Files.exists(folder)) {
                return ABSENT;
            }
            if (!Files.isExecutable(folder)) {
                return refused(folder, "be searched", "a+x");
            }
        }
        return Files.exists(whole) ? PERMITTED : ABSENT;
    }

    private static Access refused(Path path, String use, String change) {
        String permissions = "";
        String owner = "its owner";
        try {
            PosixFileAttributes attributes = Files.readAttributes(path, PosixFileAttributes.class);
            permissions = " (" + PosixFilePermissions.toString(attributes.permissions()) + ", of "
                    + attributes.owner().getName() + ")";
            owner = attributes.owner().getName();
        } catch (IOException | UnsupportedOperationException unknown) {
            // Then the text does without.
        }
        return new Access(true, path + " may not " + use + " by " + System.getProperty("user.name") + permissions,
                "permission, not an installation, is missing: as " + owner + ", \"chmod " + change + " " + path + "\"");
    }
}
