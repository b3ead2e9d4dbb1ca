// The post drive through Java: messages for a host-driven module task are
// handled on ZpandMod's worker thread, which the library reaches through
// "postDrv" and which comes back through the native "driveMsg".
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "jvm_harness.h"
#include "zos_test.h"
#include "zpand_jni.h"

namespace {

constexpr uint32_t kFirstType = 0x4A00;

struct Handled {
    uint32_t type;
    std::string thread;
    int drive;  // the drive it was handled in (1-based)
};

std::mutex g_mutex;
std::vector<Handled> g_handled;
std::atomic<int> g_drives{0};
std::atomic<int> g_doubleDrives{0};
std::atomic<int> g_installedCalls{0};

int32_t Entry(void *msg) {
    Handled h{Zos_MsgGetType(msg), kjvm::ThreadName(), g_drives.load()};
    std::lock_guard<std::mutex> lock(g_mutex);
    g_handled.push_back(h);
    return 0;
}

size_t HandledCount() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_handled.size();
}

// Registered in place of the library's "driveMsg" for these tests: counts
// the drives and checks each handles at most one message, then hands on
// to the library's native.
void JNICALL CountingDrive(JNIEnv *env, jclass cls) {
    ++g_drives;
    const size_t before = HandledCount();
    Java_com_quelmar_kestro_ZpandMod_driveMsg(env, cls);
    if (HandledCount() > before + 1) ++g_doubleDrives;
}

void RegisterDrive(void *fn) {
    JNIEnv *env = kjvm::Env();
    jclass cls = kjvm::FindAppClass(env, "com/quelmar/nubo/kestro/ZpandMod");
    ASSERT_NE(cls, nullptr);
    JNINativeMethod m{const_cast<char *>("driveMsg"), const_cast<char *>("()V"), fn};
    ASSERT_EQ(env->RegisterNatives(cls, &m, 1), JNI_OK);
    env->DeleteLocalRef(cls);
}

uint32_t InstalledDrive() {
    ++g_installedCalls;
    return ZOK;
}

// Runs an empty job on ZpandMod's worker and waits for it, so that every
// drive asked for before it has run; false when Java refused.
bool FenceWorker() {
    JNIEnv *env = kjvm::Env();
    if (env->PushLocalFrame(8) != JNI_OK) return false;
    bool ok = false;
    jclass mod = kjvm::FindAppClass(env, "com/quelmar/nubo/kestro/ZpandMod");
    jclass exec = kjvm::FindAppClass(env, "java/util/concurrent/ExecutorService");
    jclass future = kjvm::FindAppClass(env, "java/util/concurrent/Future");
    jclass thread = kjvm::FindAppClass(env, "java/lang/Thread");
    if (mod != nullptr && exec != nullptr && future != nullptr && thread != nullptr) {
        jfieldID worker =
            env->GetStaticFieldID(mod, "WORKER", "Ljava/util/concurrent/ExecutorService;");
        jmethodID submit =
            env->GetMethodID(exec, "submit", "(Ljava/lang/Runnable;)Ljava/util/concurrent/Future;");
        jmethodID get = env->GetMethodID(future, "get", "()Ljava/lang/Object;");
        jmethodID make = env->GetMethodID(thread, "<init>", "()V");
        if (worker != nullptr && submit != nullptr && get != nullptr && make != nullptr) {
            // An unstarted thread is a runnable that does nothing.
            jobject job = env->NewObject(thread, make);
            jobject pool = env->GetStaticObjectField(mod, worker);
            jobject done = env->CallObjectMethod(pool, submit, job);
            if (!env->ExceptionCheck()) env->CallObjectMethod(done, get);
            ok = !env->ExceptionCheck();
        }
    }
    env->ExceptionClear();
    env->PopLocalFrame(nullptr);
    return ok;
}

// Waits until the worker has no drive left to run, so that none runs into
// shut-down or into the next test: two fences in a row with no drive
// between them (a drive that finds messages left asks for another).
void WaitDrivesSettle() {
    for (int quiet = 0, rounds = 0; quiet < 2 && rounds < 100; ++rounds) {
        const int before = g_drives.load();
        if (!FenceWorker()) {
            ADD_FAILURE() << "the worker took no fence";
            return;
        }
        quiet = g_drives.load() == before ? quiet + 1 : 0;
    }
}

bool WaitHandled(size_t count) {
    return ktest::Eventually([count] { return HandledCount() >= count; }, std::chrono::seconds(10));
}

class JvmDrive : public ZosTest {
  protected:
    void SetUp() override {
        ASSERT_TRUE(kjvm::Loaded());
        RegisterDrive(reinterpret_cast<void *>(CountingDrive));
        {
            std::lock_guard<std::mutex> lock(g_mutex);
            g_handled.clear();
        }
        g_drives = 0;
        g_doubleDrives = 0;
        g_installedCalls = 0;
        // Host-driven: module tasks without threads of their own share the
        // manager's queue, which the host loop drains.
        ASSERT_EQ(Zos_CfgSetModDrvMode(0), ZOK);
        ZosTest::SetUp();
        ASSERT_EQ(Zos_ModTaskStart("JDRV", 4, 0, 0, 1, nullptr, nullptr, Entry, &task_), ZOK);
    }
    void TearDown() override {
        WaitDrivesSettle();
        Zpand_ModSetPostDrv(nullptr);
        ZosTest::TearDown();
        Zos_CfgSetModDrvMode(1);
        RegisterDrive(reinterpret_cast<void *>(Java_com_quelmar_kestro_ZpandMod_driveMsg));
    }
    uint32_t Post(uint32_t type) {
        ZMSG msg = Zos_MsgCreate(task_, task_, type);
        if (msg == nullptr) return ZFAILED;
        const uint32_t rc = Zos_ModPostMsg(msg);
        if (rc != ZOK) Zos_MsgDelete(msg);
        return rc;
    }
    uint32_t task_ = ZOS_INVALID_ID;
};

}  // namespace

TEST_F(JvmDrive, MessagesAreHandledOnTheJavaWorkerOnePerDriveInOrder) {
    constexpr uint32_t kCount = 20;
    for (uint32_t i = 0; i < kCount; ++i) ASSERT_EQ(Post(kFirstType + i), ZOK);
    ASSERT_TRUE(WaitHandled(kCount));
    WaitDrivesSettle();
    std::lock_guard<std::mutex> lock(g_mutex);
    ASSERT_EQ(g_handled.size(), kCount);
    for (uint32_t i = 0; i < kCount; ++i) {
        EXPECT_EQ(g_handled[i].type, kFirstType + i);
        EXPECT_EQ(g_handled[i].thread, "ZpandMod");
        if (i > 0) {
            EXPECT_GT(g_handled[i].drive, g_handled[i - 1].drive);
        }
    }
    EXPECT_EQ(g_doubleDrives, 0);
    EXPECT_GE(g_drives, static_cast<int>(kCount));
}

TEST_F(JvmDrive, PostsFromSeveralThreadsAllArrive) {
    constexpr uint32_t kPerThread = 10;
    std::vector<std::thread> posters;
    std::atomic<int> failed{0};
    for (uint32_t t = 0; t < 3; ++t) {
        posters.emplace_back([&, t] {
            for (uint32_t i = 0; i < kPerThread; ++i) {
                if (Post(kFirstType + t * 100 + i) != ZOK) ++failed;
            }
        });
    }
    for (std::thread &t : posters) t.join();
    EXPECT_EQ(failed, 0);
    ASSERT_TRUE(WaitHandled(3 * kPerThread));
    WaitDrivesSettle();
    std::lock_guard<std::mutex> lock(g_mutex);
    // Each poster's messages keep their order.
    uint32_t next[3] = {0, 0, 0};
    for (const Handled &h : g_handled) {
        const uint32_t t = (h.type - kFirstType) / 100;
        ASSERT_LT(t, 3u);
        EXPECT_EQ(h.type, kFirstType + t * 100 + next[t]);
        ++next[t];
        EXPECT_EQ(h.thread, "ZpandMod");
    }
    EXPECT_EQ(g_doubleDrives, 0);
}

TEST_F(JvmDrive, AnInstalledPostDriveFunctionReplacesJava) {
    Zpand_ModSetPostDrv(InstalledDrive);
    EXPECT_EQ(Zpand_ModGetPostDrv(), InstalledDrive);
    ASSERT_EQ(Post(kFirstType), ZOK);
    EXPECT_EQ(g_installedCalls, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(g_drives, 0);  // Java was never asked
    EXPECT_EQ(HandledCount(), 0u);
    // The host's own drive handles it, on the calling thread.
    EXPECT_EQ(Zos_ModDriveMsg(), ZOK);
    std::lock_guard<std::mutex> lock(g_mutex);
    ASSERT_EQ(g_handled.size(), 1u);
    EXPECT_EQ(g_handled[0].type, kFirstType);
    EXPECT_NE(g_handled[0].thread, "ZpandMod");
}
