// The Java binding in a process without a Java virtual machine (the
// library's situation on any host that never loads it from Java): every
// helper refuses, and the timer bridge reports that it has no environment.
#include <thread>

#include "zos_test.h"
#include "zpand_jni.h"

namespace {

uint32_t g_hookLen = 0;
uint32_t StartHook(uint32_t len, PFN_ZPAND_TIMER_CB) {
    g_hookLen = len;
    return ZOK;
}

}  // namespace

TEST(PandJni, WithoutAMachineEveryHelperRefuses) {
    EXPECT_EQ(Zpand_GetJvm(), nullptr);
    EXPECT_EQ(g_zZpandNet, nullptr);
    EXPECT_EQ(g_zZpandMod, nullptr);
    JNIEnv *env = reinterpret_cast<JNIEnv *>(0x1);
    EXPECT_EQ(Zpand_GetJniEnv(&env), 0u);
    EXPECT_EQ(env, nullptr);
    Zpand_PutJniEnv(nullptr, 1);
    EXPECT_EQ(Zpand_BytesToJstring(nullptr, "x"), nullptr);
    uint32_t len = 5;
    EXPECT_EQ(Zpand_JstringToBytes(nullptr, nullptr, &len), nullptr);
    EXPECT_EQ(len, 0u);
    // Thread exit has nothing to detach from.
    std::thread([] { Zpand_TaskExit(0, 0); }).join();
}

TEST(PandJni, TimerBridgeWithoutAMachineFailsUnlessAFunctionIsInstalled) {
    EXPECT_EQ(Zpand_TimerInit(), ZOK);
    EXPECT_EQ(Zpand_TimerStart(100, nullptr), ZFAILED);
    EXPECT_EQ(Zpand_TimerStop(), ZFAILED);
    EXPECT_EQ(Zpand_TimerDestroy(), ZOK);
    // The expiry native with nothing kept is harmless.
    Java_com_quelmar_kestro_ZpandTimer_active(nullptr, nullptr);
    Zpand_TimerSetStart(StartHook);
    EXPECT_EQ(Zpand_TimerStart(100, nullptr), ZOK);
    EXPECT_EQ(g_hookLen, 100u);
    Zpand_TimerSetStart(nullptr);
    EXPECT_EQ(Zpand_TimerGetStart(), nullptr);
    EXPECT_EQ(Zpand_TimerStart(100, nullptr), ZFAILED);
}

TEST(PandJni, LoadWithoutAMachineBindsNothing) {
    EXPECT_EQ(Zpand_JniOnLoad(nullptr), ZFAILED);
    EXPECT_EQ(JNI_OnLoad(nullptr, nullptr), 0x10002);
    EXPECT_EQ(Zpand_GetJvm(), nullptr);
}
