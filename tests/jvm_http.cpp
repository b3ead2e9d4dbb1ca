// HTTP bridge through the Java class ZpandHttp against a loopback server
// that the test starts inside the machine (127.0.0.1 only): a full
// exchange with a header and a body, a file upload, an error code, a
// refused connection, and the status events on a subscribed module task.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "../src/zos/zos_env.h"
#include "jvm_harness.h"
#include "zos_test.h"
#include "zpand_jni.h"

namespace {

constexpr const char *kServer = "com/quelmar/nubo/kestro/test/HttpTestServer";

struct Statuses {
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<std::pair<int, int>> seen;
    std::string thread;
};
Statuses *g_st = nullptr;

void OnStatus(const char * /*name*/, uintptr_t /*data*/, int id, int status) {
    std::lock_guard<std::mutex> lock(g_st->mutex);
    g_st->seen.emplace_back(id, status);
    g_st->thread = kjvm::ThreadName();
    g_st->cv.notify_all();
}

int32_t IgnoreMsg(void *) {
    return 0;
}

int StaticInt(const char *name) {
    JNIEnv *env = kjvm::Env();
    jclass cls = kjvm::FindAppClass(env, kServer);
    if (cls == nullptr) return -1;
    jmethodID m = env->GetStaticMethodID(cls, name, "()I");
    const jint v = m != nullptr ? env->CallStaticIntMethod(cls, m) : -1;
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        env->DeleteLocalRef(cls);
        return -1;
    }
    env->DeleteLocalRef(cls);
    return v;
}

std::string BodyText(ZDBUF buf) {
    if (buf == nullptr) return "<null>";
    const uint32_t len = Zos_DbufLen(buf);
    std::string s(reinterpret_cast<const char *>(Zos_DbufBlkData(buf, 0)), len);
    return s;
}

class JvmHttp : public ZosTest {
  protected:
    void SetUp() override {
        ASSERT_TRUE(kjvm::Loaded());
        g_st = &st_;
        ZosTest::SetUp();
        ASSERT_EQ(Zpand_HttpOsdepInstall(), ZOK);
        ASSERT_EQ(Zos_ModTaskStart("JHTTP", 4, 0, 0, 0, nullptr, nullptr, IgnoreMsg, &task_), ZOK);
        ASSERT_EQ(Zos_ModSubEvnt(kZosHttpNotifyStatusEvnt, task_,
                                 reinterpret_cast<PFN_ZOS_MOD_FUNC>(OnStatus), 0),
                  ZOK);
        port_ = StaticInt("start");
        ASSERT_GT(port_, 0);
    }
    void TearDown() override {
        kjvm::CallStatic(kjvm::Env(), kServer, "stop", "()V");
        if (task_ != ZOS_INVALID_ID) Zos_ModTaskStop(task_);
        auto *env = static_cast<ZosEnv *>(Zos_EnvLocate());
        EXPECT_EQ(Zos_OmapCount(static_cast<ZOMAP>(env->pHttpMap)), 0u) << "a connection leaked";
        ZosTest::TearDown();
        g_st = nullptr;
    }
    // Waits until a status at or below 2 (final) arrived for the id.
    bool WaitFinal(int32_t id) {
        std::unique_lock<std::mutex> lock(st_.mutex);
        return st_.cv.wait_for(lock, std::chrono::seconds(20), [&] {
            for (const auto &p : st_.seen) {
                if (p.first == id && (p.second == 2 || p.second < 0)) return true;
            }
            return false;
        });
    }
    std::vector<int> StatusesOf(int32_t id) {
        std::lock_guard<std::mutex> lock(st_.mutex);
        std::vector<int> out;
        for (const auto &p : st_.seen) {
            if (p.first == id) out.push_back(p.second);
        }
        return out;
    }
    std::string Url(const char *path) { return "http://127.0.0.1:" + std::to_string(port_) + path; }
    Statuses st_;
    uint32_t task_ = ZOS_INVALID_ID;
    int port_ = 0;
};

TEST_F(JvmHttp, RoundTripWithHeaderAndBody) {
    const int32_t id = Zos_HttpOpen(Url("/echo").c_str(), nullptr, nullptr);
    ASSERT_GT(id, 0);
    EXPECT_EQ(Zos_HttpSetProp(id, "X-Test", "abc"), ZOK);
    EXPECT_EQ(Zos_HttpSetCfg(id, "readTimeout", "10000"), ZOK);
    EXPECT_EQ(Zos_HttpSetBody(id, "text/plain", "ping \xC3\xA9"), ZOK);
    // No body before the exchange.
    EXPECT_EQ(Zos_HttpGetBody(id), nullptr);
    EXPECT_EQ(Zos_HttpConn(id), ZOK);
    ASSERT_TRUE(WaitFinal(id));
    const std::vector<int> want = {1, 200, 2};
    EXPECT_EQ(StatusesOf(id), want);
    {
        std::lock_guard<std::mutex> lock(st_.mutex);
        EXPECT_EQ(st_.thread.rfind("ZpandHttp", 0), std::string::npos)
            << "the event ran on the Java worker, not on the module task";
    }
    ZDBUF body = Zos_HttpGetBody(id);
    ASSERT_NE(body, nullptr);
    EXPECT_EQ(BodyText(body),
              std::string("method=POST;x-test=abc;type=text/plain;body=ping \xC3\xA9") + '\0');
    Zos_DbufDelete(body);
    EXPECT_EQ(StaticInt("requests"), 1);
    Zos_HttpClose(id);
    EXPECT_TRUE(ktest::LoggedContains("HttpClose conn<" + std::to_string(id) + ">."));
}

TEST_F(JvmHttp, FileUploadAndErrorCode) {
    const std::string path = ktest::FreshDir("jvm_http") + "/upload.txt";
    {
        std::ofstream f(path, std::ios::binary);
        f << "file content";
    }
    int one = 1;
    const int32_t a = Zos_HttpOpen(Url("/echo").c_str(), &one, &one);
    ASSERT_GT(a, 0);
    EXPECT_EQ(Zos_HttpSetCfg(a, "method", "put"), ZOK);
    EXPECT_EQ(Zos_HttpSetFile(a, "application/octet-stream", path.c_str()), ZOK);
    EXPECT_EQ(Zos_HttpConn(a), ZOK);
    ASSERT_TRUE(WaitFinal(a));
    ZDBUF body = Zos_HttpGetBody(a);
    EXPECT_EQ(
        BodyText(body),
        std::string("method=PUT;x-test=null;type=application/octet-stream;body=file content") +
            '\0');
    Zos_DbufDelete(body);
    Zos_HttpClose(a);

    const int32_t b = Zos_HttpOpen(Url("/missing").c_str(), nullptr, nullptr);
    ASSERT_GT(b, 0);
    EXPECT_EQ(Zos_HttpConn(b), ZOK);
    ASSERT_TRUE(WaitFinal(b));
    const std::vector<int> want = {1, 404, 2};
    EXPECT_EQ(StatusesOf(b), want);
    body = Zos_HttpGetBody(b);
    EXPECT_EQ(BodyText(body), std::string("not here") + '\0');
    Zos_DbufDelete(body);
    Zos_HttpClose(b);

    // A file that is not there fails the exchange.
    const int32_t c = Zos_HttpOpen(Url("/echo").c_str(), nullptr, nullptr);
    EXPECT_EQ(Zos_HttpSetFile(c, "text/plain", (path + ".none").c_str()), ZOK);
    EXPECT_EQ(Zos_HttpConn(c), ZOK);
    ASSERT_TRUE(WaitFinal(c));
    const std::vector<int> io = {-3};
    EXPECT_EQ(StatusesOf(c), io);
    Zos_HttpClose(c);
}

TEST_F(JvmHttp, RefusedConnectionReportsFailure) {
    const int closed = StaticInt("closedPort");
    ASSERT_GT(closed, 0);
    const std::string url = "http://127.0.0.1:" + std::to_string(closed) + "/echo";
    const int32_t id = Zos_HttpOpen(url.c_str(), nullptr, nullptr);
    ASSERT_GT(id, 0);
    EXPECT_EQ(Zos_HttpConn(id), ZOK);
    ASSERT_TRUE(WaitFinal(id));
    const std::vector<int> want = {-1};
    EXPECT_EQ(StatusesOf(id), want);
    EXPECT_EQ(Zos_HttpGetBody(id), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("HttpGetBody conn<" + std::to_string(id) + ">."));
    Zos_HttpClose(id);
}

TEST_F(JvmHttp, BoundOnceAndClosedConnectionsStaySilent) {
    // Loading bound the class; binding again is refused.
    EXPECT_EQ(Zpand_HttpOnLoad(kjvm::Env()), ZFAILED);
    // Bound, the bridge still refuses a missing connection object.
    EXPECT_EQ(Zpand_HttpConn(nullptr) + Zpand_HttpDisconn(nullptr) +
                  Zpand_HttpSetProp(nullptr, "a", "b") + Zpand_HttpSetCfg(nullptr, "a", "b") +
                  Zpand_HttpSetBody(nullptr, "a", "b") + Zpand_HttpSetFile(nullptr, "a", "b"),
              6 * ZFAILED);
    EXPECT_EQ(Zpand_HttpGetBody(nullptr), nullptr);
    const int32_t id = Zos_HttpOpen(Url("/echo").c_str(), nullptr, nullptr);
    ASSERT_GT(id, 0);
    EXPECT_EQ(Zos_HttpDisconn(id), ZOK);
    // Connect after disconnect is refused by the Java side with -4.
    EXPECT_EQ(Zos_HttpConn(id), ZOK);
    ASSERT_TRUE(WaitFinal(id));
    const std::vector<int> want = {-4};
    EXPECT_EQ(StatusesOf(id), want);
    Zos_HttpClose(id);
    // Status for the closed id: logged, not published.
    ktest::ClearLogged();
    Zos_HttpNotifyStatus(id, 2);
    EXPECT_TRUE(ktest::LoggedContains("HttpNotifyStatus no conn<" + std::to_string(id) + ">."));
    EXPECT_EQ(StatusesOf(id), want);
}

}  // namespace

namespace {

class JvmInet : public ZosTest {};

TEST_F(JvmInet, LocalAddressComesFromJava) {
    ASSERT_TRUE(kjvm::Loaded());
    ASSERT_EQ(Zpand_InetOsdepInstall(), ZOK);
    JNIEnv *env = kjvm::Env();
    jclass cls = kjvm::FindAppClass(env, "com/quelmar/nubo/kestro/ZpandNet");
    ASSERT_NE(cls, nullptr);
    jmethodID m = env->GetStaticMethodID(cls, "getLocalIP", "()Ljava/lang/String;");
    auto text = static_cast<jstring>(env->CallStaticObjectMethod(cls, m));
    env->DeleteLocalRef(cls);
    char ip[ZOS_INET_IPV6_STR_SIZE];
    const uint32_t rc = Zos_InetGetLocalIp(ip, sizeof(ip));
    if (text == nullptr) {
        GTEST_SKIP() << "the host has no non-loopback address";
    }
    const char *utf = env->GetStringUTFChars(text, nullptr);
    const std::string java = utf;
    env->ReleaseStringUTFChars(text, utf);
    env->DeleteLocalRef(text);
    ASSERT_EQ(rc, ZOK);
    EXPECT_EQ(java, ip);
    // A buffer with no room for the text's terminator does not take it.
    std::vector<char> tight(java.size());
    if (Zos_InetGetLocalIp(tight.data(), static_cast<uint32_t>(tight.size())) == ZOK) {
        ASSERT_NE(std::memchr(tight.data(), 0, tight.size()), nullptr);
        EXPECT_NE(std::string(tight.data()), java);
    }
}

}  // namespace
