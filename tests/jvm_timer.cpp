// The OS timer bridge through the Java class ZpandTimer: start arms a Java
// one-shot timer that comes back through the native "active", stop
// cancels it, installed functions take the place of Java.
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "jvm_harness.h"
#include "zos_test.h"
#include "zpand_jni.h"
#include "zpand_timer.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr const char *kTimer = "com/quelmar/nubo/kestro/ZpandTimer";

// What the expiry callbacks saw.
struct Fired {
    std::atomic<int> count{0};
    std::atomic<uint32_t> arg{99};
    std::mutex mutex;
    std::string thread;
    Clock::time_point at;
};
Fired g_fired;
std::atomic<int> g_otherCount{0};

void OnExpiry(uint32_t arg) {
    {
        std::lock_guard<std::mutex> lock(g_fired.mutex);
        g_fired.thread = kjvm::ThreadName();
        g_fired.at = Clock::now();
    }
    g_fired.arg = arg;
    ++g_fired.count;
}

void OnOtherExpiry(uint32_t) {
    ++g_otherCount;
}

bool WaitFired(int count, int ms) {
    return ktest::Eventually([count] { return g_fired.count >= count; },
                             std::chrono::milliseconds(ms));
}

bool Armed() {
    JNIEnv *env = kjvm::Env();
    jclass cls = kjvm::FindAppClass(env, kTimer);
    jmethodID id = env->GetStaticMethodID(cls, "isArmed", "()Z");
    const bool armed = env->CallStaticBooleanMethod(cls, id) == JNI_TRUE;
    env->DeleteLocalRef(cls);
    return armed;
}

// Armed, or started at t0 at least `expiry` ago: a look that comes that
// late on a busy machine may find the timer already run.
bool ArmedUnlessExpired(Clock::time_point t0, std::chrono::milliseconds expiry) {
    const bool armed = Armed();
    return armed || Clock::now() - t0 >= expiry;
}

// The firing is recorded before the manager arms the Java timer again:
// waits (a bounded time) for that re-arm.
bool ArmedSoon() {
    return ktest::Eventually(Armed, std::chrono::seconds(10));
}

void Active() {
    ASSERT_TRUE(kjvm::CallStatic(kjvm::Env(), kTimer, "active", "()V")) << kjvm::LastException();
}

void JavaInit() {
    ASSERT_TRUE(kjvm::CallStatic(kjvm::Env(), kTimer, "doInit", "()V")) << kjvm::LastException();
}

void JavaDestroy() {
    ASSERT_TRUE(kjvm::CallStatic(kjvm::Env(), kTimer, "doDestroy", "()V")) << kjvm::LastException();
}

// Recording installed functions.
struct Hooks {
    std::atomic<int> init{0}, destroy{0}, start{0}, stop{0};
    std::atomic<uint32_t> len{0};
    std::atomic<PFN_ZPAND_TIMER_CB> cb{nullptr};
};
Hooks g_hooks;

uint32_t HookInit() {
    ++g_hooks.init;
    return 7;
}
uint32_t HookDestroy() {
    ++g_hooks.destroy;
    return 8;
}
uint32_t HookStart(uint32_t len, PFN_ZPAND_TIMER_CB cb) {
    g_hooks.len = len;
    g_hooks.cb = cb;
    ++g_hooks.start;
    return 9;
}
uint32_t HookStop() {
    ++g_hooks.stop;
    return 10;
}

class JvmTimer : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(kjvm::Loaded());
        g_fired.count = 0;
        g_fired.arg = 99;
        g_otherCount = 0;
    }
    void TearDown() override {
        kjvm::CallStatic(kjvm::Env(), kTimer, "stop", "()V");
        JavaDestroy();
    }
};

}  // namespace

TEST_F(JvmTimer, ActiveBeforeAnyStartDoesNothing) {
    JavaInit();
    Active();
    Active();
    EXPECT_EQ(g_fired.count, 0);
    EXPECT_FALSE(Armed());
    // The first start after that is the first expiry.
    EXPECT_EQ(Zpand_TimerStart(0, OnExpiry), ZOK);
    EXPECT_TRUE(WaitFired(1, 5000));
    EXPECT_EQ(g_fired.count, 1);
}

TEST_F(JvmTimer, StartArmsAJavaTimerThatFiresActiveOnItsThread) {
    JavaInit();
    // Armed is looked at on a start the test cannot outlast; the start
    // after it replaces that one.
    EXPECT_EQ(Zpand_TimerStart(60000, OnExpiry), ZOK);
    EXPECT_TRUE(Armed());
    const auto t0 = Clock::now();
    EXPECT_EQ(Zpand_TimerStart(40, OnExpiry), ZOK);
    ASSERT_TRUE(WaitFired(1, 5000));
    std::lock_guard<std::mutex> lock(g_fired.mutex);
    EXPECT_GE(g_fired.at - t0, std::chrono::milliseconds(40));
    EXPECT_EQ(g_fired.arg, 0u);
    EXPECT_EQ(g_fired.thread, "ZpandTimer");
    EXPECT_FALSE(Armed());
}

TEST_F(JvmTimer, StopCancelsAndStartReplacesThePendingTimer) {
    JavaInit();
    const auto s0 = Clock::now();
    EXPECT_EQ(Zpand_TimerStart(150, OnExpiry), ZOK);
    EXPECT_EQ(Zpand_TimerStop(), ZOK);
    // A stop that came after 150 ms on a busy machine may have met the
    // expiry on its way; the count below holds for a stop in time.
    const bool stoppedInTime = Clock::now() - s0 < std::chrono::milliseconds(150);
    EXPECT_FALSE(Armed());
    // A start on top of a pending one re-arms: one expiry, at the new length.
    EXPECT_EQ(Zpand_TimerStart(5000, OnExpiry), ZOK);
    const auto t0 = Clock::now();
    EXPECT_EQ(Zpand_TimerStart(20, OnExpiry), ZOK);
    ASSERT_TRUE(WaitFired(1, 4000));
    EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(4000));
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    if (stoppedInTime) {
        EXPECT_EQ(g_fired.count, 1);  // the cancelled 150 ms timer never came
    }
    EXPECT_EQ(Zpand_TimerStop(), ZOK);  // nothing pending: still fine
}

TEST_F(JvmTimer, CallbackStaysUntilDestroy) {
    JavaInit();
    EXPECT_EQ(Zpand_TimerStart(0, OnExpiry), ZOK);
    ASSERT_TRUE(WaitFired(1, 5000));
    Active();  // every later "active" fires the kept callback again
    EXPECT_EQ(g_fired.count, 2);
    // The latest start's callback is the one kept.
    EXPECT_EQ(Zpand_TimerStart(60000, OnOtherExpiry), ZOK);
    Active();
    EXPECT_EQ(g_otherCount, 1);
    EXPECT_EQ(g_fired.count, 2);
    EXPECT_EQ(Zpand_TimerStop(), ZOK);
    JavaDestroy();
    Active();  // destroy forgot the callback
    EXPECT_EQ(g_otherCount, 1);
    EXPECT_EQ(g_fired.count, 2);
}

TEST_F(JvmTimer, StartFromANativeThreadAttachesItOnlyForTheCall) {
    JavaInit();
    bool attachedAfter = true;
    uint32_t rc = ZFAILED;
    std::thread t([&] {
        rc = Zpand_TimerStart(10, OnExpiry);
        void *env = nullptr;
        attachedAfter = kjvm::Vm()->GetEnv(&env, JNI_VERSION_1_2) == JNI_OK;
    });
    t.join();
    EXPECT_EQ(rc, ZOK);
    EXPECT_FALSE(attachedAfter);
    EXPECT_TRUE(WaitFired(1, 5000));
}

TEST_F(JvmTimer, InstalledFunctionsReplaceJava) {
    JavaInit();
    Zpand_TimerSetInit(HookInit);
    Zpand_TimerSetDestroy(HookDestroy);
    Zpand_TimerSetStart(HookStart);
    Zpand_TimerSetStop(HookStop);
    EXPECT_EQ(Zpand_TimerGetInit(), HookInit);
    EXPECT_EQ(Zpand_TimerGetDestroy(), HookDestroy);
    EXPECT_EQ(Zpand_TimerGetStart(), HookStart);
    EXPECT_EQ(Zpand_TimerGetStop(), HookStop);
    // Each operation returns what the installed function returns.
    EXPECT_EQ(Zpand_TimerInit(), 7u);
    EXPECT_EQ(Zpand_TimerStart(0, OnExpiry), 9u);
    EXPECT_EQ(g_hooks.len, 0u);
    EXPECT_EQ(g_hooks.cb, OnExpiry);
    EXPECT_EQ(Zpand_TimerStart(1234, OnOtherExpiry), 9u);
    EXPECT_EQ(g_hooks.len, 1234u);
    EXPECT_EQ(Zpand_TimerStop(), 10u);
    EXPECT_EQ(Zpand_TimerDestroy(), 8u);
    EXPECT_EQ(g_hooks.init, 1);
    EXPECT_EQ(g_hooks.start, 2);
    EXPECT_EQ(g_hooks.stop, 1);
    EXPECT_EQ(g_hooks.destroy, 1);
    // No Java timer was armed and the bridge kept no callback.
    EXPECT_FALSE(Armed());
    Active();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(g_fired.count, 0);
    EXPECT_EQ(g_otherCount, 0);
    Zpand_TimerSetInit(nullptr);
    Zpand_TimerSetDestroy(nullptr);
    Zpand_TimerSetStart(nullptr);
    Zpand_TimerSetStop(nullptr);
    // Without them init and destroy do nothing, and Java is back.
    EXPECT_EQ(Zpand_TimerInit(), ZOK);
    EXPECT_EQ(Zpand_TimerDestroy(), ZOK);
    EXPECT_EQ(Zpand_TimerStart(60000, OnExpiry), ZOK);
    EXPECT_TRUE(Armed());
}

// The layer's OS timer manager running on the Java timer.
namespace {

struct OsFired {
    uint32_t id;
    std::string thread;
};
std::mutex g_osMutex;
std::vector<OsFired> g_osFired;

void OsRecord(uint32_t id, uint32_t, uintptr_t) {
    OsFired f{id, kjvm::ThreadName()};
    std::lock_guard<std::mutex> lock(g_osMutex);
    g_osFired.push_back(f);
}

size_t OsFiredCount() {
    std::lock_guard<std::mutex> lock(g_osMutex);
    return g_osFired.size();
}

bool WaitOsFired(size_t n, int ms) {
    return ktest::Eventually([n] { return OsFiredCount() >= n; }, std::chrono::milliseconds(ms));
}

class JvmOsTimer : public ZosTest {
  protected:
    void SetUp() override {
        ASSERT_TRUE(kjvm::Loaded());
        JavaInit();
        {
            std::lock_guard<std::mutex> lock(g_osMutex);
            g_osFired.clear();
        }
        g_hooks.start = 0;
        ZosTest::SetUp();
    }
    void TearDown() override {
        // The callback goes first, so a Java timer still armed cannot run
        // the manager while it shuts down.
        JavaDestroy();
        ZosTest::TearDown();
        kjvm::CallStatic(kjvm::Env(), kTimer, "stop", "()V");
    }
};

}  // namespace

TEST_F(JvmOsTimer, ManagerArmsJavaAndFiresThroughActive) {
    uint32_t a = 0;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &a), ZOK);
    const auto t0 = Clock::now();
    ASSERT_EQ(Zos_TimerOsStart(a, 0, 60, 0, OsRecord), ZOK);
    EXPECT_TRUE(ArmedUnlessExpired(t0, std::chrono::milliseconds(50)));  // 50 ms at the least
    ASSERT_TRUE(WaitOsFired(1, 5000));
    EXPECT_GE(Clock::now() - t0, std::chrono::milliseconds(50));  // 6 ticks of 10 ms
    std::lock_guard<std::mutex> lock(g_osMutex);
    EXPECT_EQ(g_osFired[0].id, a);
    EXPECT_EQ(g_osFired[0].thread, "ZpandTimer");
    EXPECT_EQ(Zos_TimerOsIsRun(a), 0u);
}

TEST_F(JvmOsTimer, PeriodicTimerKeepsReArmingUntilStopped) {
    uint32_t a = 0;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, ZOS_TIMER_FLAG_PERIOD, &a), ZOK);
    ASSERT_EQ(Zos_TimerOsStart(a, 0, 30, 0, OsRecord), ZOK);
    ASSERT_TRUE(WaitOsFired(3, 5000));
    EXPECT_TRUE(ArmedSoon());
    // Stopped, the timer fires no more (the Java timer still armed finds
    // nothing due when it comes).
    ASSERT_EQ(Zos_TimerOsStop(a), ZOK);
    const size_t fired = OsFiredCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    EXPECT_LE(OsFiredCount(), fired + 1);  // at most one already on its way
    std::lock_guard<std::mutex> lock(g_osMutex);
    for (const OsFired &f : g_osFired) EXPECT_EQ(f.thread, "ZpandTimer");
}

// The timer stop slot, wrapped: the manager's stop calls reach Java.
std::vector<bool> g_armedAfterStop;
uint32_t WatchedStop() {
    const uint32_t rc = Zpand_TimerStop();
    g_armedAfterStop.push_back(Armed());
    return rc;
}

TEST_F(JvmOsTimer, ASoonerTimerStopsAndReArmsTheJavaTimer) {
    g_armedAfterStop.clear();
    ktest::Slot(106) = reinterpret_cast<ZOS_OSDEP_FUNC>(WatchedStop);
    uint32_t a = 0, b = 0;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &a), ZOK);
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &b), ZOK);
    ASSERT_EQ(Zos_TimerOsStart(a, 0, 5000, 0, OsRecord), ZOK);
    EXPECT_TRUE(Armed());
    EXPECT_TRUE(g_armedAfterStop.empty());
    const auto t0 = Clock::now();
    ASSERT_EQ(Zos_TimerOsStart(b, 0, 30, 0, OsRecord), ZOK);
    ASSERT_EQ(g_armedAfterStop.size(), 1u);
    EXPECT_FALSE(g_armedAfterStop[0]) << "the stop cancelled the Java timer";
    EXPECT_TRUE(ArmedUnlessExpired(t0, std::chrono::milliseconds(20)))
        << "and the start armed it again";
    ASSERT_TRUE(WaitOsFired(1, 3000));
    EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(3000));
    {
        std::lock_guard<std::mutex> lock(g_osMutex);
        EXPECT_EQ(g_osFired[0].id, b);
    }
    EXPECT_EQ(Zos_TimerOsIsRun(a), 1u);
    EXPECT_TRUE(ArmedSoon()) << "re-armed for the timer still running";
}

TEST_F(JvmOsTimer, InstalledStartTakesTheManagerInsteadOfJava) {
    Zpand_TimerSetStart(HookStart);
    uint32_t a = 0;
    ASSERT_EQ(Zos_TimerOsCreate(ZOS_INVALID_ID, 0, &a), ZOK);
    ASSERT_EQ(Zos_TimerOsStart(a, 0, 200, 0, OsRecord), ZOK);
    Zpand_TimerSetStart(nullptr);
    EXPECT_EQ(g_hooks.start, 1);
    EXPECT_GE(g_hooks.len, 190u);  // the distance from the current 10 ms tick
    EXPECT_LE(g_hooks.len, 200u);
    EXPECT_EQ(g_hooks.cb, Zos_TimerModDriven);
    EXPECT_FALSE(Armed());
    // The installed timer "fires": the manager processes on this thread.
    std::this_thread::sleep_for(std::chrono::milliseconds(220));
    Zos_TimerModDriven(0);
    ASSERT_EQ(OsFiredCount(), 1u);
    EXPECT_EQ(Zos_TimerOsIsRun(a), 0u);
}

TEST_F(JvmTimer, WhatJavaThrowsOnStartAndStopIsCleared) {
    // Bound to a class whose start and stop throw, both bridge calls still
    // succeed and leave no exception pending on the caller's thread.
    JNIEnv *env = kjvm::Env();
    jclass throwing = kjvm::FindAppClass(env, "com/quelmar/nubo/kestro/test/ThrowingTimer");
    ASSERT_NE(throwing, nullptr);
    Java_com_quelmar_kestro_ZpandTimer_doInit(env, throwing);
    jmethodID calls = env->GetStaticMethodID(throwing, "calls", "()I");
    ASSERT_NE(calls, nullptr);
    const jint before = env->CallStaticIntMethod(throwing, calls);
    EXPECT_EQ(Zpand_TimerStart(10, OnExpiry), ZOK);
    EXPECT_FALSE(env->ExceptionCheck());
    EXPECT_EQ(Zpand_TimerStop(), ZOK);
    EXPECT_FALSE(env->ExceptionCheck());
    env->ExceptionClear();
    EXPECT_EQ(env->CallStaticIntMethod(throwing, calls), before + 2);
    env->DeleteLocalRef(throwing);
    // Bound to a class with neither method, the binding's failed look-ups
    // leave nothing pending, and the bridge calls answer without Java.
    jclass bare = kjvm::FindAppClass(env, "com/quelmar/nubo/kestro/test/KestroTestLoader");
    ASSERT_NE(bare, nullptr);
    Java_com_quelmar_kestro_ZpandTimer_doInit(env, bare);
    EXPECT_FALSE(env->ExceptionCheck());
    env->ExceptionClear();
    EXPECT_EQ(Zpand_TimerStart(10, OnExpiry), ZOK);
    EXPECT_EQ(Zpand_TimerStop(), ZOK);
    EXPECT_FALSE(env->ExceptionCheck());
    env->DeleteLocalRef(bare);
    JavaInit();  // the real class again, for the tear-down
}
