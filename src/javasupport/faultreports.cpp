// Whether fatal reports may end the virtual machine: a native of com.kestrune.tmqkci.KciMessages.
#include "javasupport/faultreports.h"

#include "hostdebug.h"

#include <jni.h>

namespace {

volatile bool faultReportsWanted;

} // namespace

void keepVirtualMachineAlive() {
    if (!faultReportsWanted) {
        noHalt = TRUE;
    }
}

extern "C" TMQKCI_API void JNICALL Java_com_kestrune_tmqkci_KciMessages_faultReports(JNIEnv*, jclass, jboolean wanted) {
    faultReportsWanted = wanted != JNI_FALSE;
    noHalt = faultReportsWanted ? FALSE : TRUE;
}
