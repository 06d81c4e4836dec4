package com.kestrune.tmqkci.internal;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;

/**
 * What a shared library's file tells before anyone opens it, read as the System V ABI and its GNU extensions lay it
 * out.
 * Of a foreign byte order only the header is read.
 */
public final class ElfFile {
    /** What stack the file asks for. */
    public enum Stack {
        /** The file asks for one that is not executable. */
        PLAIN,
        /** The file asks for an executable one. */
        EXECUTABLE,
        /** The file has no stack header, which counts as asking for an executable one. */
        UNSTATED
    }

    private static final long LARGEST = 256L << 20;
    private static final int SEGMENT_LOAD = 1;
    private static final int SEGMENT_DYNAMIC = 2;
    private static final int SEGMENT_GNU_STACK = 0x6474E551;
    private static final int FLAG_EXECUTE = 1;
    private static final int SECTION_DYNAMIC_SYMBOLS = 11;
    private static final long DYNAMIC_END = 0;
    private static final long DYNAMIC_NEEDED = 1;
    private static final long DYNAMIC_STRINGS = 5;
    private static final long DYNAMIC_VERSIONS_DEFINED = 0x6FFFFFFC;
    private static final long DYNAMIC_VERSIONS_NEEDED = 0x6FFFFFFE;

    private final ElfHeader header;
    private Stack stack = Stack.UNSTATED;
    private final List<String> needed = new ArrayList<>();
    private final Set<String> versionsNeeded = new TreeSet<>();
    private final Set<String> versionsDefined = new TreeSet<>();
    private final Set<String> exports = new TreeSet<>();

    private final ByteBuffer file;
    private final boolean wide;
    private final List<long[]> loads = new ArrayList<>();

    private ElfFile(ByteBuffer file, ElfHeader header) {
        this.file = file;
        this.header = header;
        wide = header.bits() == 64;
        if (file.order() == ByteOrder.LITTLE_ENDIAN) {
            readSegments();
            readExports();
        }
    }

    /** Throws with a reason a person can read if the file is no ELF file, or a damaged one. */
    public static ElfFile of(Path path) throws IOException {
        if (Files.size(path) > LARGEST) {
            throw new IOException("it is too large for a library");
        }
        ByteBuffer file = ByteBuffer.wrap(Files.readAllBytes(path));
        try {
            ElfHeader header = ElfHeader.of(file);
            if (header == null) {
                throw new IOException("it is not a shared library");
            }
            return new ElfFile(file, header);
        } catch (IndexOutOfBoundsException | IllegalArgumentException | ArithmeticException damaged) {
            throw new IOException("its ELF structure is damaged or cut short");
        }
    }

    /** What machine the file is made for. */
    public ElfHeader header() {
        return header;
    }

    /** What stack the file asks for. */
    public Stack stack() {
        return stack;
    }

    /** The libraries that the file needs, as it names them. */
    public List<String> needed() {
        return needed;
    }

    /** Symbol versions that the file needs of other libraries, as {@code GLIBC_2.28}. */
    public Set<String> versionsNeeded() {
        return versionsNeeded;
    }

    /** Symbol versions that the file has for others. */
    public Set<String> versionsDefined() {
        return versionsDefined;
    }

    /** Names of the symbols that others can use; empty if the file has no section headers. */
    public Set<String> exports() {
        return exports;
    }

    private int half(int offset) {
        return file.getShort(offset) & 0xFFFF;
    }

    private long word(int offset) {
        return file.getInt(offset) & 0xFFFFFFFFL;
    }

    /** An address or size, whose width is the file's class. */
    private long natural(int offset) {
        return wide ? file.getLong(offset) : word(offset);
    }

    private static int toOffset(long value) {
        return Math.toIntExact(value);
    }

    private void readSegments() {
        int table = toOffset(natural(wide ? 32 : 28));
        int size = half(wide ? 54 : 42);
        int count = half(wide ? 56 : 44);
        int dynamic = -1;
        for (int i = 0; i < count; ++i) {
            int segment = table + i * size;
            int type = file.getInt(segment);
            int offset = toOffset(natural(segment + (wide ? 8 : 4)));
            if (type == SEGMENT_LOAD) {
                loads.add(new long[] {natural(segment + (wide ? 16 : 8)), offset, natural(segment + (wide ? 32 : 16))});
            } else if (type == SEGMENT_DYNAMIC) {
                dynamic = offset;
            } else if (type == SEGMENT_GNU_STACK) {
                boolean execute = (file.getInt(segment + (wide ? 4 : 24)) & FLAG_EXECUTE) != 0;
                stack = execute ? Stack.EXECUTABLE : Stack.PLAIN;
            }
        }
        if (dynamic >= 0) {
            readDynamic(dynamic);
        }
    }

    private void readDynamic(int dynamic) {
        List<Long> names = new ArrayList<>();
        int strings = -1;
        int versionsUsed = -1;
        int versionsMade = -1;
        int step = wide ? 8 : 4;
        for (int entry = dynamic; natural(entry) != DYNAMIC_END; entry += 2 * step) {
            long tag = natural(entry);
            long value = natural(entry + step);
            if (tag == DYNAMIC_NEEDED) {
                names.add(value);
            } else if (tag == DYNAMIC_STRINGS) {
                strings = inFile(value);
            } else if (tag == DYNAMIC_VERSIONS_NEEDED) {
                versionsUsed = inFile(value);
            } else if (tag == DYNAMIC_VERSIONS_DEFINED) {
                versionsMade = inFile(value);
            }
        }
        for (long name : names) {
            needed.add(string(strings + toOffset(name)));
        }
        for (int at = versionsUsed; at >= 0;) {
            int auxiliary = at + toOffset(word(at + 8));
            for (int i = 0; i < half(at + 2); ++i) {
                versionsNeeded.add(string(strings + toOffset(word(auxiliary + 8))));
                auxiliary += toOffset(word(auxiliary + 12));
            }
            at = word(at + 12) == 0 ? -1 : at + toOffset(word(at + 12));
        }
        for (int at = versionsMade; at >= 0;) {
            versionsDefined.add(string(strings + toOffset(word(at + toOffset(word(at + 12))))));
            at = word(at + 16) == 0 ? -1 : at + toOffset(word(at + 16));
        }
    }

    private int inFile(long address) {
        for (long[] load : loads) {
            if (address >= load[0] && address < load[0] + load[2]) {
                return toOffset(address - load[0] + load[1]);
            }
        }
        throw new IllegalArgumentException("no such address");
    }

    private void readExports() {
        int table = toOffset(natural(wide ? 40 : 32));
        int size = half(wide ? 58 : 46);
        int count = table == 0 ? 0 : half(wide ? 60 : 48);
        for (int i = 0; i < count; ++i) {
            int section = table + i * size;
            if (file.getInt(section + 4) == SECTION_DYNAMIC_SYMBOLS) {
                int linked = table + toOffset(word(section + (wide ? 40 : 24))) * size;
                readSymbols(toOffset(natural(section + (wide ? 24 : 16))),
                        toOffset(natural(section + (wide ? 32 : 20))),
                        toOffset(natural(linked + (wide ? 24 : 16))));
            }
        }
    }

    private void readSymbols(int begin, int length, int strings) {
        int size = wide ? 24 : 16;
        for (int symbol = begin + size; symbol + size <= begin + length; symbol += size) {
            int binding = (file.get(symbol + (wide ? 4 : 12)) & 0xFF) >> 4;
            int section = half(symbol + (wide ? 6 : 14));
            if (binding != 0 && section != 0) {
                exports.add(string(strings + toOffset(word(symbol))));
            }
        }
    }

    private String string(int offset) {
        int end = offset;
        while (file.get(end) != 0) {
            ++end;
        }
        return new String(file.array(), offset, end - offset, StandardCharsets.UTF_8);
    }
}
