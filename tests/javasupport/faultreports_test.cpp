#include "javasupport/faultreports.h"

#include <gtest/gtest.h>
#include <jni.h>

#include "hostdebug.h"

extern "C" void Java_com_kestrune_tmqkci_KciMessages_faultReports(JNIEnv*, jclass, jboolean);

namespace {

TEST(FaultReports, TheVirtualMachineIsKeptAliveUnlessJavaWantsReports) {
    keepVirtualMachineAlive();
    EXPECT_TRUE(noHalt);
    Java_com_kestrune_tmqkci_KciMessages_faultReports(nullptr, nullptr, JNI_TRUE);
    EXPECT_FALSE(noHalt);
    keepVirtualMachineAlive();
    EXPECT_FALSE(noHalt);
    Java_com_kestrune_tmqkci_KciMessages_faultReports(nullptr, nullptr, JNI_FALSE);
    EXPECT_TRUE(noHalt);
}

} // namespace
