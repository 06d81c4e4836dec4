package com.kestrune.tmqkci.internal;

import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;

/**
 * A file, looked at to tell whether this process can load it as a library.
 *
 * @param elf what it tells of itself; null if that could not be read
 * @param cause what keeps it from being loaded; null if that is not seen in the file itself
 * @param remedy what to do about that; null if there is nothing to advise
 */
public record LibraryFile(ElfFile elf, String cause, String remedy) {
    /** Looks at a file; {@code foreign} says whether it may be made for the bridge's other kind of machine. */
    public static LibraryFile of(File named, boolean foreign) {
        Path file;
        try {
            file = named.toPath();
        } catch (InvalidPathException unnameable) {
            return new LibraryFile(null, "its name does not exist in the locale's encoding", "set LC_ALL=C.UTF-8");
        }
        Access access = Access.toRead(file);
        if (!access.exists()) {
            return new LibraryFile(null, "there is no such file", null);
        }
        if (!access.isPermitted()) {
            return new LibraryFile(null, access.refusal(), access.remedy());
        }
        if (!Files.isRegularFile(file)) {
            return new LibraryFile(null, "it is not a file", null);
        }
        ElfFile elf;
        try {
            elf = ElfFile.of(file);
        } catch (IOException unfit) {
            return new LibraryFile(null, unfit.getMessage(), "install it anew");
        }
        ElfHeader process = ElfHeader.ofThisProcess();
        if (!elf.header().equals(process) && !(foreign && elf.header().isServed())) {
            return new LibraryFile(elf, "it is a " + elf.header() + " library and this Java is " + process,
                    !process.isServed() ? null : "the library for this Java, " + System.getProperty("java.home")
                            + ", is the one in the folder " + process.libraryFolder() + " of an installation");
        }
        return new LibraryFile(elf, null, null);
    }
}
