package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.HashMap;
import java.util.Map;
import java.util.Random;

import org.junit.jupiter.api.Test;

/** The count of references, beside a plain model of it. */
class ReferenceCountTest {
    @Test
    void countsAgreeWithAPlainModel() {
        for (int seed = 0; seed < 20; ++seed) {
            Random random = new Random(seed);
            ExportSet exports = new ExportSet();
            Map<Long, Integer> model = new HashMap<>();
            long[] batch = new long[1 + random.nextInt(50)];
            int identifiers = 1 << random.nextInt(12);
            for (int step = 0; step < 20_000; ++step) {
                // Up to 2^32-1, bit 1 clear.
                long oop = (0xFFFF_FFFDL - 4L * random.nextInt(identifiers));
                switch (random.nextInt(5)) {
                    case 0, 1 -> {
                        exports.retain(oop);
                        model.merge(oop, 1, Integer::sum);
                    }
                    case 2, 3 -> {
                        exports.release(oop);
                        model.computeIfPresent(oop, (key, count) -> Math.max(0, count - 1));
                    }
                    default -> takeBatch(exports, model, batch);
                }
                assertEquals(model.size(), exports.size());
            }
            while (exports.hasQueued()) {
                takeBatch(exports, model, batch);
            }
            assertTrue(model.values().stream().allMatch(count -> count > 0), "everything else was taken");
        }
    }

    private static void takeBatch(ExportSet exports, Map<Long, Integer> model, long[] batch) {
        int taken = exports.take(batch);
        for (int i = 0; i < taken; ++i) {
            assertEquals(0, model.remove(batch[i]), "taken twice, or while it is referred to");
        }
    }

    @Test
    void identifiersThatAreNotKeptAreNotCounted() {
        ExportSet exports = new ExportSet();
        for (long oop : new long[] {0, 1, 10, 38, 31, 0xFFFF_FFFFL}) {
            exports.retain(oop);
            exports.release(oop);
        }
        assertEquals(0, exports.size());
        exports.retain(4000);
        exports.close();
        exports.release(4000);
        exports.retain(4000);
        assertEquals(0, exports.size());
        assertEquals(0, exports.take(new long[1]));
    }
}
