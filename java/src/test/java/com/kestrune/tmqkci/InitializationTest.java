package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import java.util.function.ToIntFunction;

import org.junit.jupiter.api.Test;

/** Every native method is found by its Java name, before the first initialization; then initialization itself. */
class InitializationTest {
    private final TmqKciReport report = new TmqKciReport();
    private final TmqKciReport[] reports = {report};

    private final List<ToIntFunction<TmqKciException>> methods = List.of(
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
            error -> TmqKciInterface._changedOops(1, new long[1], 1, error),
            error -> TmqKciControl._softBreak(1, error),
            error -> TmqKciControl._hardBreak(1, error),
            error -> TmqKciControl._begin(1, error),
            error -> TmqKciControl._commit(1, error),
            error -> TmqKciControl._abort(1, error),
            error -> TmqKciControl._nbContinue(1, report, report, error));

    private final List<ToIntFunction<TmqKciException>> cacheStatistics = List.of(
            TmqKciInterface::_KCSIinitialize,
            error -> TmqKciInterface._KCSIstatNames(new Object[1], error),
            error -> TmqKciInterface._KCSIattach("monitor", error),
            TmqKciInterface::_KCSIdetach,
            error -> TmqKciInterface._KCSIsampleStats(new long[1], error),
            error -> TmqKciInterface._KCSIgetStats(1, new TmqKciCacheStats(), error));

    /** It hides fields of the report. */
    static final class Hiding extends TmqKciException {
        private static final long serialVersionUID = 1L;
        int number;
        boolean fatal;
    }

    @Test
    void beforeAtAndAfterTheFirstInitialization() {
        Hiding first = new Hiding();
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._logout(1, first));
        assertEquals(TmqKciException.BRIDGE_ERROR, ((TmqKciException) first).number);
        methods.forEach(call -> TestSession.refuse("KCI: Not initialized", call));
        cacheStatistics.forEach(call -> TestSession.refuse("KCSI Interface not defined for 32-bit", call));
        String missing = TestSession.fail(error -> TmqKciInterface._initialize(0, "tests", 64, 64, 0,
                new long[TmqKciInterface.KERNEL_OOPS], error)).message;
        assertTrue(missing.startsWith("KciRtlLoad failure: dlopen(libkcirpc67.so) failed because "), missing);

        assertArrayEquals(new long[] {10, 1189, 3613, 3, 7, -536870912, 536870911, 38, 6, 1733, 1045, 1049, 1197, 1209,
            1213, 0}, TestSession.initialize());
        String[] version = {null, "untouched"};
        TestSession.succeed(error -> TmqKciInterface._kciVersion(version, error));
        assertArrayEquals(new String[] {"6.7.local", "untouched"}, version);
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._checkErrors(1, null));
    }
}
