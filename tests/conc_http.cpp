// Several threads open, use, notify and close HTTP connections at once on
// counting platform functions: every open gets its own id, at most one
// platform call runs at a time, a status for a connection another thread
// just closed is refused without touching it, and nothing stays open.
#include <atomic>
#include <set>
#include <mutex>
#include <thread>
#include <vector>

#include "zos_test.h"

namespace {

std::atomic<int> g_inside{0};
std::atomic<int> g_overlaps{0};
std::atomic<int> g_objects{0};

struct Obj {
    int32_t id;
    int calls = 0;  // changed only by platform calls, so under the bridge mutex
};

// Every forwarded call notes whether another one was running.
uint32_t Enter(void *obj) {
    if (g_inside.fetch_add(1) != 0) ++g_overlaps;
    ++static_cast<Obj *>(obj)->calls;
    std::this_thread::yield();
    g_inside.fetch_sub(1);
    return ZOK;
}

void *Open(int32_t id, const char *, const void *, const void *) {
    ++g_objects;
    return new Obj{id};
}
void Close(void *obj) {
    --g_objects;
    delete static_cast<Obj *>(obj);
}
uint32_t Conn(void *obj) {
    return Enter(obj);
}
uint32_t SetProp(void *obj, const char *, const char *) {
    return Enter(obj);
}

template <typename F>
ZOS_OSDEP_FUNC S(F fn) {
    return reinterpret_cast<ZOS_OSDEP_FUNC>(fn);
}

}  // namespace

TEST_F(ZosTest, HttpConnectionsFromManyThreads) {
    ktest::Slot(107) = S(Open);
    ktest::Slot(108) = S(Close);
    ktest::Slot(109) = S(Conn);
    ktest::Slot(111) = S(SetProp);
    g_overlaps = 0;
    g_objects = 0;
    constexpr int kThreads = 4, kRounds = 300;
    std::mutex idsMutex;
    std::set<int32_t> liveIds;
    std::atomic<int> duplicates{0};
    std::atomic<int32_t> lastOpened{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                const int32_t id = Zos_HttpOpen("http://127.0.0.1/", nullptr, nullptr);
                if (id <= 0) continue;
                {
                    std::lock_guard<std::mutex> lock(idsMutex);
                    if (!liveIds.insert(id).second) ++duplicates;
                }
                lastOpened = id;
                Zos_HttpSetProp(id, "a", "b");
                Zos_HttpConn(id);
                // A status for whatever another thread opened last, which
                // may be closed by now.
                Zos_HttpNotifyStatus(lastOpened.load(), 1);
                {
                    std::lock_guard<std::mutex> lock(idsMutex);
                    liveIds.erase(id);
                }
                Zos_HttpClose(id);
            }
        });
    }
    for (auto &th : threads) th.join();
    EXPECT_EQ(duplicates.load(), 0);
    EXPECT_EQ(g_overlaps.load(), 0);
    EXPECT_EQ(g_objects.load(), 0);
    EXPECT_TRUE(liveIds.empty());
}
