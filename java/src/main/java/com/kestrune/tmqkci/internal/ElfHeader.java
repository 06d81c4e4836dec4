package com.kestrune.tmqkci.internal;

import java.io.DataInputStream;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/**
 * What the head of an executable file or library says about the machine that it is made for.
 *
 * @param bits the word size, 32 or 64
 * @param machine the machine's number in the System V ABI
 */
public record ElfHeader(int bits, int machine) {
    private static final int MAGIC = 0x7F454C46;
    private static final int CLASS_64 = 2;
    private static final int DATA_BIG_ENDIAN = 2;
    private static final int MACHINE_OFFSET = 18;
    private static final int SIZE = MACHINE_OFFSET + 2;
    private static final ElfHeader I386 = new ElfHeader(32, 3);
    private static final ElfHeader X86_64 = new ElfHeader(64, 62);

    /** The running program: a virtual machine can load exactly the libraries whose header equals this one. */
    public static ElfHeader ofThisProcess() {
        try {
            ElfHeader header = of(new File("/proc/self/exe"));
            if (header != null) {
                return header;
            }
        } catch (IOException unreadable) {
            // What the virtual machine says of itself will do.
        }
        return "64".equals(System.getProperty("sun.arch.data.model")) ? X86_64 : I386;
    }

    /** Null if the file is no ELF file. */
    public static ElfHeader of(File file) throws IOException {
        try (DataInputStream in = new DataInputStream(new FileInputStream(file))) {
            return of(ByteBuffer.wrap(in.readNBytes(SIZE)));
        }
    }

    /** The header of a file's content, whose byte order is set to the file's. Null if it is no ELF file's. */
    static ElfHeader of(ByteBuffer file) {
        if (file.limit() < SIZE || file.getInt(0) != MAGIC) {
            return null;
        }
        int bits = file.get(4) == CLASS_64 ? 64 : 32;
        file.order(file.get(5) == DATA_BIG_ENDIAN ? ByteOrder.BIG_ENDIAN : ByteOrder.LITTLE_ENDIAN);
        return new ElfHeader(bits, file.getShort(MACHINE_OFFSET) & 0xFFFF);
    }

    /**
     * A record's own method would be linked at run time, and what the virtual machine keeps of that holds the class
     * loader, and with it the library, for long.
     */
    @Override
    public boolean equals(Object other) {
        return other instanceof ElfHeader header && bits == header.bits && machine == header.machine;
    }

    @Override
    public int hashCode() {
        return 31 * bits + machine;
    }

    /** Whether the bridge is built for such a machine. */
    public boolean isServed() {
        return equals(I386) || equals(X86_64);
    }

    /** The folder of an installation that holds libraries for such a machine. */
    public String libraryFolder() {
        return bits == 64 ? "lib64" : "lib";
    }

    /** The folder of the jar that holds what is built for such a machine. */
    public String jarFolder() {
        return jarFolder(bits);
    }

    /** The folder of the jar that holds what is built for machines of a word size. */
    public static String jarFolder(int bits) {
        return "/META-INF/native/" + (bits == 64 ? "linux-amd64/" : "linux-i386/");
    }

    @Override
    public String toString() {
        String name = switch (machine) {
            case 3 -> "i386";
            case 40 -> "arm";
            case 62 -> "x86-64";
            case 183 -> "aarch64";
            default -> "machine " + machine;
        };
        return bits + "-bit (" + name + ")";
    }
}
