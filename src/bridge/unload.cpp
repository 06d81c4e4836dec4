// The end of the bridge's class loader: whoever loads the bridge next begins anew.

#include "bridge/state.h"
#include "kcirtl.h"

#include <cstdlib>
#include <utility>

// Called once the loader's classes are gone, so that no native method runs any more. Sessions that are still open end
// here: the client library would keep them as long as the process lives, with nobody to log them out.
extern "C" TMQKCI_API void JNICALL JNI_OnUnload(JavaVM*, void*) {
    KciRtlUnload();
    free(std::exchange(byteBuf, nullptr));
    free(std::exchange(oopBuf, nullptr));
    free(std::exchange(jlongBuf, nullptr));
}
