// The native of com.kestrune.tmqkci.KciBridge.
#include "javasupport/faultreports.h"

#include <jni.h>

#include "hostdebug.h"

namespace {
volatile bool faultReportsWanted;
}

void keepVirtualMachineAlive() {
    if (!faultReportsWanted)
        noHalt = TRUE;
}

extern "C" JNIEXPORT void JNICALL Java_com_kestrune_tmqkci_KciBridge_faultReports(JNIEnv*, jclass, jboolean wanted) {
    faultReportsWanted = wanted != JNI_FALSE;
    noHalt = faultReportsWanted ? FALSE : TRUE;
}
