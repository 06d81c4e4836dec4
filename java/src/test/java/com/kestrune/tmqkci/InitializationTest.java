package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import java.util.function.ToIntFunction;

import org.junit.jupiter.api.MethodOrderer.OrderAnnotation;
import org.junit.jupiter.api.Order;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestMethodOrder;

/** Before, at and after the first successful initialization, in this order. */
@TestMethodOrder(OrderAnnotation.class)
class InitializationTest {
    private static final long[] KERNEL_OOPS = {10, 1189, 3613, 3, 7, -536870912, 536870911, 38, 6, 1733, 1045, 1049,
        1197, 1209, 1213, 0};

    private static int initialize(int useLinked, int bufSize, int preloadSize, long[] kernelOops,
            TmqKciException error) {
        return TmqKciInterface._initialize(useLinked, "tests", bufSize, preloadSize, 0, kernelOops, error);
    }

    @Test
    @Order(1)
    void everyOtherMethodNeedsInitialization() {
        TmqKciReport report = new TmqKciReport();
        TmqKciReport[] reports = {report};
        List<ToIntFunction<TmqKciException>> calls = List.of(
                error -> TmqKciInterface._kciVersion(new String[1], error),
                error -> TmqKciInterface._login("s", null, "u", "p", null, null, error),
                error -> TmqKciInterface._logout(1, error),
                error -> TmqKciInterface._setup(1, report, error),
                error -> TmqKciInterface._nbEnd(1, report, error),
                error -> TmqKciInterface._executeStr(1, "1", error),
                error -> TmqKciInterface._executeObj(1, report, error),
                error -> TmqKciInterface._perform(1, report, "x", reports, 1, error),
                error -> TmqKciInterface._continue(1, report, false, null, report, null, null, error),
                error -> TmqKciInterface._isKindOf(1, report, report, error),
                error -> TmqKciInterface._checkErrors(1, error),
                error -> TmqKciInterface._getBytes(1, report, 1, 1, new byte[1], error),
                error -> TmqKciInterface._getObjs(1, report, 1, 1, reports, error),
                error -> TmqKciInterface._getNamedObjs(1, report, 1, 1, reports, error),
                error -> TmqKciInterface._putBytes(1, report, 1, 1, new byte[1], error),
                error -> TmqKciInterface._putObjs(1, report, 1, 1, reports, error),
                error -> TmqKciInterface._putNamedObjs(1, report, 1, 1, reports, error),
                error -> TmqKciInterface._removeFromExportSet(1, reports, 1, error),
                error -> TmqKciInterface._releaseOops(1, new long[1], 1, error),
                error -> TmqKciInterface._changedOops(1, new long[1], 1, error));
        calls.forEach(call -> TestSession.refuse("KCI: Not initialized", call));
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._checkErrors(1, null));
    }

    @Test
    @Order(2)
    void wrongSizesAreRefused() {
        TestSession.refuse("preloadSize exceeds bufSize", error -> initialize(1, 64, 65, KERNEL_OOPS.clone(), error));
        TestSession.refuse("preloadSize exceeds bufSize", error -> initialize(1, -2, -1, KERNEL_OOPS.clone(), error));
        TestSession.refuse("NULL kernelOops argument", error -> initialize(1, 64, 64, null, error));
    }

    @Test
    @Order(3)
    void aMissingClientLibraryIsNamed() {
        TmqKciException error = TestSession.fail(report -> initialize(0, 64, 64, KERNEL_OOPS.clone(), report));
        assertTrue(error.message.startsWith("KciRtlLoad failure: dlopen(libkcirpc67.so) failed because "),
                error.message);
    }

    @Test
    @Order(4)
    void initializationFillsTheKernelTable() {
        assertArrayEquals(KERNEL_OOPS, TestSession.initialize());
        long[] untouched = new long[TmqKciInterface.KERNEL_OOPS];
        assertEquals(TmqKciInterface.INITIALIZED, initialize(0, -1, 0, untouched, new TmqKciException()));
        assertArrayEquals(new long[TmqKciInterface.KERNEL_OOPS], untouched, "a repeated call touches nothing");
    }

    @Test
    @Order(5)
    void versionIsThatOfTheClientLibrary() {
        String[] version = {null, "untouched"};
        assertEquals(0, TestSession.succeed(error -> TmqKciInterface._kciVersion(version, error)));
        assertNotNull(version[0]);
        assertTrue(version[0].startsWith("6.7"), version[0]);
        assertEquals("untouched", version[1]);
        TestSession.fail(error -> TmqKciInterface._kciVersion(null, error));
        TestSession.fail(error -> TmqKciInterface._kciVersion(new String[0], error));
    }

    @Test
    @Order(6)
    void cacheStatisticsAreNotDefined() {
        List<ToIntFunction<TmqKciException>> calls = List.of(
                TmqKciInterface::_KCSIinitialize,
                error -> TmqKciInterface._KCSIstatNames(new Object[1], error),
                error -> TmqKciInterface._KCSIstatNames(null, error),
                error -> TmqKciInterface._KCSIattach("monitor", error),
                error -> TmqKciInterface._KCSIattach(null, error),
                TmqKciInterface::_KCSIdetach,
                error -> TmqKciInterface._KCSIsampleStats(new long[1], error),
                error -> TmqKciInterface._KCSIsampleStats(null, error),
                error -> TmqKciInterface._KCSIgetStats(1, new TmqKciCacheStats(), error),
                error -> TmqKciInterface._KCSIgetStats(1, null, error));
        calls.forEach(call -> TestSession.refuse("KCSI Interface not defined for 32-bit", call));
    }
}
