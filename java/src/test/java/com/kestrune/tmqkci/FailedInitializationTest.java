package com.kestrune.tmqkci;

import org.junit.jupiter.api.Test;

/** An initialization that fails once the client library is loaded cannot be repeated. */
class FailedInitializationTest {
    @Test
    void aLoadedClientLibraryIsNotLoadedAgain() {
        long[] kernelOops = new long[TmqKciInterface.KERNEL_OOPS];
        TestSession.refuse("KCSI Interface not defined for 32-bit", TmqKciInterface::_KCSIdetach);
        TestSession.refuse("Problem allocating byte buffer in initialize()",
                error -> TmqKciInterface._initialize(1, null, -1, -1, 0, kernelOops, error));
        TestSession.refuse("KciRtlLoad failure: Library is already loaded.",
                error -> TmqKciInterface._initialize(1, null, 64, 64, 0, kernelOops, error));
        TestSession.refuse("KCI: Not initialized", error -> TmqKciInterface._checkErrors(1, error));
    }
}
