// HTTP bridge on recording platform functions: the failure lines with empty
// slots and a stopped bridge, forwarding with its texts, the connection
// table's bookkeeping (failed open, failed insertion), the body buffer,
// the lock held between retain and release, status publishing and the
// destroy loop.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../src/zos/zos_env.h"
#include "zos_test.h"

namespace {

constexpr uint32_t kSlotOpen = 107, kSlotClose = 108, kSlotConn = 109, kSlotDisconn = 110,
                   kSlotSetProp = 111, kSlotSetCfg = 112, kSlotSetBody = 113, kSlotSetFile = 114,
                   kSlotGetBody = 115;

// A fake platform connection.
struct FakeConn {
    int32_t id;
    std::string url;
    bool opt1, opt2;
    std::vector<std::string> calls;
};

struct Fake {
    std::mutex mutex;
    std::vector<FakeConn *> live;
    std::vector<FakeConn *> closedOrder;
    uint32_t result = ZOK;        // what the forwarded operations return
    bool openFails = false;       // open returns null
    bool dropIdOnOpen = false;    // open takes the reserved id out of the table
    int closesBeforeRemoval = 0;  // destroy-loop test: closes seen per object before removal
    const char *body = nullptr;   // copied into a malloc block by get body
};
Fake *g_fake = nullptr;

ZOMAP HttpMap() {
    return static_cast<ZOMAP>(static_cast<ZosEnv *>(Zos_EnvLocate())->pHttpMap);
}

void *FakeOpen(int32_t id, const char *url, const void *o1, const void *o2) {
    if (g_fake->openFails) return nullptr;
    if (g_fake->dropIdOnOpen) Zos_OmapFreeId(HttpMap(), static_cast<uint32_t>(id));
    auto *c = new FakeConn{id, url != nullptr ? url : "", o1 != nullptr, o2 != nullptr, {}};
    std::lock_guard<std::mutex> lock(g_fake->mutex);
    g_fake->live.push_back(c);
    return c;
}

void FakeClose(void *obj) {
    auto *c = static_cast<FakeConn *>(obj);
    std::lock_guard<std::mutex> lock(g_fake->mutex);
    g_fake->closedOrder.push_back(c);
    if (g_fake->closesBeforeRemoval > 0) {
        // Destroy-loop test: the object leaves the table only after it was
        // handed to close this many times.
        int seen = 0;
        for (FakeConn *x : g_fake->closedOrder) seen += x == c ? 1 : 0;
        if (seen < g_fake->closesBeforeRemoval) return;
        Zos_OmapRemove(HttpMap(), static_cast<uint32_t>(c->id));
    }
    for (auto it = g_fake->live.begin(); it != g_fake->live.end(); ++it) {
        if (*it == c) {
            g_fake->live.erase(it);
            delete c;
            return;
        }
    }
}

uint32_t Record(void *obj, const std::string &what) {
    static_cast<FakeConn *>(obj)->calls.push_back(what);
    return g_fake->result;
}
uint32_t FakeConnect(void *obj) {
    return Record(obj, "connect");
}
uint32_t FakeDisconnect(void *obj) {
    return Record(obj, "disconnect");
}
std::string Texts(const char *a, const char *b) {
    return std::string(a != nullptr ? a : "(null)") + "=" + (b != nullptr ? b : "(null)");
}
uint32_t FakeSetProp(void *obj, const char *a, const char *b) {
    return Record(obj, "prop " + Texts(a, b));
}
uint32_t FakeSetCfg(void *obj, const char *a, const char *b) {
    return Record(obj, "cfg " + Texts(a, b));
}
uint32_t FakeSetBody(void *obj, const char *a, const char *b) {
    return Record(obj, "body " + Texts(a, b));
}
uint32_t FakeSetFile(void *obj, const char *a, const char *b) {
    return Record(obj, "file " + Texts(a, b));
}
char *FakeGetBody(void *obj) {
    Record(obj, "get");
    if (g_fake->body == nullptr) return nullptr;
    char *text = static_cast<char *>(std::malloc(std::strlen(g_fake->body) + 1));
    std::strcpy(text, g_fake->body);
    return text;
}

template <typename F>
ZOS_OSDEP_FUNC S(F fn) {
    return reinterpret_cast<ZOS_OSDEP_FUNC>(fn);
}

class HttpTest : public ZosTest {
  protected:
    void SetUp() override {
        fake_ = std::make_unique<Fake>();
        g_fake = fake_.get();
        ZosTest::SetUp();
    }
    void TearDown() override {
        ZosTest::TearDown();
        for (FakeConn *c : fake_->live) delete c;
        g_fake = nullptr;
    }
    void Install() {
        ktest::Slot(kSlotOpen) = S(FakeOpen);
        ktest::Slot(kSlotClose) = S(FakeClose);
        ktest::Slot(kSlotConn) = S(FakeConnect);
        ktest::Slot(kSlotDisconn) = S(FakeDisconnect);
        ktest::Slot(kSlotSetProp) = S(FakeSetProp);
        ktest::Slot(kSlotSetCfg) = S(FakeSetCfg);
        ktest::Slot(kSlotSetBody) = S(FakeSetBody);
        ktest::Slot(kSlotSetFile) = S(FakeSetFile);
        ktest::Slot(kSlotGetBody) = S(FakeGetBody);
    }
    FakeConn *Conn(size_t i) { return fake_->live.at(i); }
    std::unique_ptr<Fake> fake_;
};

TEST_F(HttpTest, EmptySlotsFailWithTheirTexts) {
    for (uint32_t s = kSlotOpen; s <= kSlotGetBody; ++s) EXPECT_EQ(ktest::Slot(s), nullptr) << s;
    EXPECT_EQ(Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr), -1);
    EXPECT_TRUE(ktest::LoggedContains("HttpOpen no function."));
    EXPECT_EQ(Zos_HttpConn(1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("HttpConn no function."));
    EXPECT_EQ(Zos_HttpDisconn(1) + Zos_HttpSetProp(1, "a", "b") + Zos_HttpSetCfg(1, "a", "b") +
                  Zos_HttpSetBody(1, "a", "b") + Zos_HttpSetFile(1, "a", "b"),
              5 * ZFAILED);
    EXPECT_EQ(Zos_HttpGetBody(1), nullptr);
    Zos_HttpClose(1);
    for (const char *t :
         {"HttpDisconn no function.", "HttpSetProp no function.", "HttpSetCfg no function.",
          "HttpSetBody no function.", "HttpSetFile no function.", "HttpGetBody no function.",
          "HttpClose no function."}) {
        EXPECT_TRUE(ktest::LoggedContains(t)) << t;
    }
    // Open needs close as well.
    ktest::Slot(kSlotOpen) = S(FakeOpen);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr), -1);
    EXPECT_TRUE(ktest::LoggedContains("HttpOpen no function."));
    EXPECT_TRUE(fake_->live.empty());
}

TEST_F(HttpTest, ForwardsWithTextsAndLogsResults) {
    Install();
    int opt = 0;
    const int32_t id = Zos_HttpOpen("http://127.0.0.1:8/x", &opt, nullptr);
    ASSERT_GT(id, 0);
    EXPECT_TRUE(ktest::LoggedContains("HttpOpen conn<" + std::to_string(id) + ">."));
    ASSERT_EQ(fake_->live.size(), 1u);
    EXPECT_EQ(Conn(0)->id, id);
    EXPECT_EQ(Conn(0)->url, "http://127.0.0.1:8/x");
    EXPECT_TRUE(Conn(0)->opt1);
    EXPECT_FALSE(Conn(0)->opt2);

    EXPECT_EQ(Zos_HttpSetProp(id, "Accept", "text/plain"), ZOK);
    EXPECT_EQ(Zos_HttpSetCfg(id, "method", "PUT"), ZOK);
    EXPECT_EQ(Zos_HttpSetBody(id, "text/plain", "hello"), ZOK);
    EXPECT_EQ(Zos_HttpSetFile(id, "application/octet-stream", "/tmp/f"), ZOK);
    EXPECT_EQ(Zos_HttpConn(id), ZOK);
    EXPECT_EQ(Zos_HttpDisconn(id), ZOK);
    const std::vector<std::string> want = {"prop Accept=text/plain",
                                           "cfg method=PUT",
                                           "body text/plain=hello",
                                           "file application/octet-stream=/tmp/f",
                                           "connect",
                                           "disconnect"};
    EXPECT_EQ(Conn(0)->calls, want);
    const std::string n = std::to_string(id);
    for (const char *op :
         {"HttpSetProp", "HttpSetCfg", "HttpSetBody", "HttpSetFile", "HttpConn", "HttpDisconn"}) {
        bool info = false;
        for (const ktest::LogLine &l : ktest::Logged()) {
            if (l.msg.find(std::string(op) + " conn<" + n + ">.") != std::string::npos) {
                info = info || l.level == 0x8;
            }
        }
        EXPECT_TRUE(info) << op;
    }

    // A failing platform call: its result, logged at error level.
    fake_->result = ZFAILED;
    ktest::ClearLogged();
    EXPECT_EQ(Zos_HttpConn(id), ZFAILED);
    ASSERT_FALSE(ktest::Logged().empty());
    EXPECT_EQ(ktest::Logged().back().level, 0x2u);
    EXPECT_NE(ktest::Logged().back().msg.find("HttpConn conn<" + n + ">."), std::string::npos);

    ktest::ClearLogged();
    EXPECT_EQ(Zos_HttpConn(id + 7), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("HttpConn no conn<" + std::to_string(id + 7) + ">."));
    EXPECT_EQ(Zos_HttpSetBody(-3, "a", "b"), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("HttpSetBody no conn<-3>."));

    Zos_HttpClose(id);
    EXPECT_TRUE(ktest::LoggedContains("HttpClose conn<" + n + ">."));
    EXPECT_TRUE(fake_->live.empty());
    Zos_HttpClose(id);
    EXPECT_TRUE(ktest::LoggedContains("HttpClose no conn<" + n + ">."));
    EXPECT_EQ(Zos_HttpSetProp(id, "a", "b"), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("HttpSetProp no conn<" + n + ">."));
    EXPECT_EQ(fake_->closedOrder.size(), 1u);
}

TEST_F(HttpTest, FailedOpenAndFailedInsertionGiveTheIdBack) {
    Install();
    fake_->openFails = true;
    EXPECT_EQ(Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr), -1);
    EXPECT_TRUE(ktest::LoggedContains("HttpOpen create."));
    EXPECT_EQ(Zos_OmapCount(HttpMap()), 0u);

    // The reserved id vanishes before the object is mapped: the object is
    // closed again and nothing stays in the table.
    fake_->openFails = false;
    fake_->dropIdOnOpen = true;
    ktest::ClearLogged();
    EXPECT_EQ(Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr), -1);
    EXPECT_TRUE(ktest::LoggedContains("HttpOpen add."));
    EXPECT_EQ(fake_->closedOrder.size(), 1u);
    EXPECT_TRUE(fake_->live.empty());
    EXPECT_EQ(Zos_OmapCount(HttpMap()), 0u);

    fake_->dropIdOnOpen = false;
    const int32_t id = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr);
    EXPECT_GT(id, 0);
    Zos_HttpClose(id);
}

TEST_F(HttpTest, BodyIsOneBlockEndingInOneZero) {
    Install();
    const int32_t id = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr);
    ASSERT_GT(id, 0);
    for (size_t len :
         {size_t{1}, size_t{5}, size_t{103}, size_t{104}, size_t{1000}, size_t{70000}}) {
        std::string text(len, 'x');
        for (size_t i = 0; i < len; ++i) text[i] = static_cast<char>('a' + i % 26);
        fake_->body = text.c_str();
        ktest::ClearLogged();
        ZDBUF buf = Zos_HttpGetBody(id);
        ASSERT_NE(buf, nullptr) << len;
        EXPECT_EQ(Zos_DbufIsFlat(buf), 1u) << len;
        ASSERT_EQ(Zos_DbufLen(buf), len + 1);
        const uint8_t *data = Zos_DbufBlkData(buf, 0);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(std::memcmp(data, text.data(), len), 0) << len;
        EXPECT_EQ(data[len], 0) << len;
        EXPECT_TRUE(ktest::LoggedContains("HttpGetBody conn<" + std::to_string(id) + "> length " +
                                          std::to_string(len + 1) + "."));
        Zos_DbufDelete(buf);
    }
    // No body, and an empty one: null at error level.
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        fake_->body = none;
        ktest::ClearLogged();
        EXPECT_EQ(Zos_HttpGetBody(id), nullptr);
        EXPECT_TRUE(ktest::LoggedContains("HttpGetBody conn<" + std::to_string(id) + ">."));
    }
    EXPECT_EQ(Zos_HttpGetBody(id + 1), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("HttpGetBody no conn<" + std::to_string(id + 1) + ">."));
    Zos_HttpClose(id);
}

TEST_F(HttpTest, RetainHoldsTheBridgeUntilRelease) {
    Install();
    const int32_t id = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr);
    ASSERT_GT(id, 0);
    void *env = nullptr;
    void *obj = Zos_HttpRetain(&env, id);
    ASSERT_EQ(obj, Conn(0));
    ASSERT_EQ(env, Zos_EnvLocate());
    std::atomic<bool> done{false};
    std::thread other([&] {
        EXPECT_EQ(Zos_HttpConn(id), ZOK);
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(done.load()) << "a forwarded call ran while the connection was retained";
    // The same thread may come in again (the mutex is recursive).
    EXPECT_EQ(Zos_HttpSetCfg(id, "readTimeout", "5"), ZOK);
    Zos_HttpRelease(env);
    other.join();
    EXPECT_TRUE(done.load());
    Zos_HttpRelease(nullptr);

    // Unknown id: nothing held, so another thread gets in at once.
    EXPECT_EQ(Zos_HttpRetain(&env, id + 1), nullptr);
    std::thread third([&] { EXPECT_EQ(Zos_HttpDisconn(id), ZOK); });
    third.join();
    Zos_HttpClose(id);
}

TEST_F(HttpTest, StoppedBridgeRefusesEverything) {
    Install();
    Zos_HttpDestroy();
    EXPECT_TRUE(ktest::LoggedContains("HttpDestroy"));
    ktest::ClearLogged();
    EXPECT_EQ(Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr), -1);
    EXPECT_TRUE(ktest::LoggedContains("HttpOpen no env."));
    EXPECT_EQ(Zos_HttpConn(1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("HttpRetain no env."));
    EXPECT_TRUE(ktest::LoggedContains("HttpConn no conn<1>."));
    EXPECT_EQ(Zos_HttpRetain(nullptr, 1), nullptr);
    Zos_HttpNotifyStatus(1, 2);
    EXPECT_TRUE(ktest::LoggedContains("HttpNotifyStatus no conn<1>."));
    Zos_HttpDestroy();  // a second time does nothing
    ASSERT_EQ(Zos_HttpInit(), ZOK);
    EXPECT_TRUE(ktest::LoggedContains("HttpInit"));
    EXPECT_EQ(Zos_HttpInit(), ZOK);  // already started
    const int32_t id = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr);
    EXPECT_GT(id, 0);
    Zos_HttpClose(id);
}

// What the status subscriber saw, on which thread.
struct Seen {
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<std::pair<int, int>> statuses;
    std::vector<std::string> names;
};
Seen *g_seen = nullptr;

void OnStatus(const char *name, uintptr_t /*data*/, int id, int status) {
    std::lock_guard<std::mutex> lock(g_seen->mutex);
    g_seen->names.emplace_back(name != nullptr ? name : "");
    g_seen->statuses.emplace_back(id, status);
    g_seen->cv.notify_all();
}

int32_t IgnoreMsg(void *) {
    return 0;
}

TEST_F(HttpTest, StatusIsPublishedForOpenIdsOnly) {
    Install();
    Seen seen;
    g_seen = &seen;
    uint32_t task = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_ModTaskStart("HTTPT", 4, 0, 0, 0, nullptr, nullptr, IgnoreMsg, &task), ZOK);
    ASSERT_EQ(Zos_ModSubEvnt(kZosHttpNotifyStatusEvnt, task,
                             reinterpret_cast<PFN_ZOS_MOD_FUNC>(OnStatus), 0),
              ZOK);
    const int32_t id = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr);
    ASSERT_GT(id, 0);
    Zos_HttpNotifyStatus(id + 5, 1);
    EXPECT_TRUE(ktest::LoggedContains("HttpNotifyStatus no conn<" + std::to_string(id + 5) + ">."));
    Zos_HttpNotifyStatus(id, 200);
    Zos_HttpNotifyStatus(id, -1);
    EXPECT_TRUE(ktest::LoggedContains("HttpNotifyStatus conn<" + std::to_string(id) + "> 200."));
    {
        std::unique_lock<std::mutex> lock(seen.mutex);
        ASSERT_TRUE(seen.cv.wait_for(lock, std::chrono::seconds(5),
                                     [&] { return seen.statuses.size() >= 2; }));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    {
        std::lock_guard<std::mutex> lock(seen.mutex);
        const std::vector<std::pair<int, int>> want = {{id, 200}, {id, -1}};
        EXPECT_EQ(seen.statuses, want);  // nothing for the unknown id
        EXPECT_EQ(seen.names.at(0), "kZosHttpNotifyStatusEvnt");
    }
    EXPECT_STREQ(kZosHttpNotifyStatusEvnt, "kZosHttpNotifyStatusEvnt");
    Zos_ModUnSubEvnt(kZosHttpNotifyStatusEvnt, task, reinterpret_cast<PFN_ZOS_MOD_FUNC>(OnStatus),
                     0);
    Zos_ModTaskStop(task);
    Zos_HttpClose(id);
    g_seen = nullptr;
}

TEST_F(HttpTest, DestroyKeepsPassingTheFirstConnection) {
    Install();
    const int32_t a = Zos_HttpOpen("http://127.0.0.1/a", nullptr, nullptr);
    const int32_t b = Zos_HttpOpen("http://127.0.0.1/b", nullptr, nullptr);
    ASSERT_GT(a, 0);
    ASSERT_GT(b, a);
    FakeConn *ca = Conn(0);
    FakeConn *cb = Conn(1);
    fake_->closesBeforeRemoval = 3;
    Zos_HttpDestroy();
    const std::vector<FakeConn *> want = {ca, ca, ca, cb, cb, cb};
    EXPECT_EQ(fake_->closedOrder, want);
    EXPECT_TRUE(ktest::LoggedContains("HttpDestroy"));
    EXPECT_EQ(Zos_HttpConn(a), ZFAILED);

    // With nothing open it returns at once.
    ASSERT_EQ(Zos_HttpInit(), ZOK);
    fake_->closedOrder.clear();
    Zos_HttpDestroy();
    EXPECT_TRUE(fake_->closedOrder.empty());
}

}  // namespace
