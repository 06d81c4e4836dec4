package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertEquals;

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
            for (long oop : new long[] {0, 1, 10, 38, 31, 0xFFFF_FFFFL}) {
                exports.retain(oop);
                exports.release(oop);
                assertEquals(0, exports.size(), "not kept, so not counted");
            }
            Map<Long, Integer> model = new HashMap<>();
            long[] batch = new long[1 + random.nextInt(50)];
            int identifiers = 1 << random.nextInt(12);
            for (int step = 0; step < 20_000 || exports.hasQueued(); ++step) {
                // Up to 2^32-1, bit 1 clear.
                long oop = (0xFFFF_FFFDL - 4L * random.nextInt(identifiers));
                switch (step < 20_000 ? random.nextInt(5) : 4) {
                    case 0, 1 -> {
                        exports.retain(oop);
                        model.merge(oop, 1, Integer::sum);
                    }
                    case 2, 3 -> {
                        exports.release(oop);
                        model.computeIfPresent(oop, (key, count) -> Math.max(0, count - 1));
                    }
                    default -> {
                        for (int taken = exports.take(batch); taken > 0; --taken) {
                            assertEquals(0, model.remove(batch[taken - 1]), "taken twice, or while it is referred to");
                        }
                    }
                }
                assertEquals(model.size(), exports.size());
            }
            assertEquals(-1, model.values().stream().filter(count -> count == 0).findAny().orElse(-1), "all is taken");
            exports.close();
            exports.retain(4000);
            assertEquals(0, exports.size());
        }
    }
}
