// kestro runtime: the module manager at work. "demo" starts two module
// tasks that exchange messages and a published event, printing each
// dispatch, first with threads of their own, then driven by a host loop
// (the looper on this thread); "bench" measures messages per second.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "kestro_cmd.h"
#include "kestro_lite.h"

namespace kestro {
namespace {

constexpr uint32_t kPing = 1, kPong = 2;

std::mutex g_out;
uint32_t g_peer[2];  // task ids of PING and PONG
std::atomic<uint32_t> g_rounds{0};
uint32_t g_maxRounds = 3;
std::atomic<bool> g_finished{false};

void Trace(void *msg, const char *what) {
    std::lock_guard<std::mutex> lock(g_out);
    const uint32_t from = Zos_MsgGetSendTaskId(msg), to = Zos_MsgGetRecvTaskId(msg);
    std::printf("  %-5s <- %-5s type %u %s\n", Zos_TaskGetName(to), Zos_TaskGetName(from),
                Zos_MsgGetType(msg), what);
}

// Both tasks run this entry: a ping is answered by a pong, a pong starts
// the next round until the last, which publishes "demo.done".
int32_t Entry(void *msg) {
    const uint32_t self = Zos_MsgGetRecvTaskId(msg), from = Zos_MsgGetSendTaskId(msg);
    const uint32_t type = Zos_MsgGetType(msg);
    const uint32_t len = Zos_MsgGetDataLen(msg);
    char text[32] = {};
    std::memcpy(text, Zos_MsgGetData(msg), len < sizeof(text) - 1 ? len : sizeof(text) - 1);
    Trace(msg, text);
    if (type == kPing) {
        Zos_MsgSendX(self, from, kPong, 0, "pong", 4);
    } else if (type == kPong) {
        if (++g_rounds < g_maxRounds) {
            Zos_MsgSendX(self, from, kPing, 0, "ping", 4);
        } else {
            Zos_ModPubEvnt("demo.done", "%u %s", g_rounds.load(), "rounds");
        }
    }
    return 0;
}

void OnDone(const char *name, size_t who, uint32_t rounds, const char *text) {
    {
        std::lock_guard<std::mutex> lock(g_out);
        std::printf("  %-5s got event \"%s\": %u %s\n", Zos_TaskGetName(g_peer[who]), name, rounds,
                    text);
    }
    if (who == 1) g_finished = true;
}

bool StartPair(bool host) {
    const char *names[2] = {"PING", "PONG"};
    for (int i = 0; i < 2; ++i) {
        if (Zos_ModTaskStart(names[i], 3, 64, 0, host ? 1 : 0, nullptr, nullptr, Entry,
                             &g_peer[i]) != ZOK) {
            return false;
        }
        Zos_ModSubEvnt("demo.done", g_peer[i], reinterpret_cast<PFN_ZOS_MOD_FUNC>(OnDone),
                       static_cast<uintptr_t>(i));
    }
    g_rounds = 0;
    g_finished = false;
    return Zos_MsgSendX(g_peer[0], g_peer[1], kPing, 0, "ping", 4) == ZOK;
}

void DriveOnce(uintptr_t) {
    Zos_ModDriveMsg();
}
uint32_t PostDrive() {
    return Zpand_UiProcEvnt(0, DriveOnce);
}

int Demo() {
    std::printf("threaded: module tasks with threads of their own\n");
    if (StartLayer() != ZOK || !StartPair(false)) return 1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!g_finished && std::chrono::steady_clock::now() < end) {
        Zos_TaskDelay(20);
    }
    Zos_SysDestroy();
    if (!g_finished) return 1;

    std::printf("host-driven: the tasks run on this thread's looper\n");
    Zos_CfgSetModDrvMode(0);
    if (StartLayer() != ZOK) return 1;
    ALooper_prepare(0);
    Zpand_UiEvntInit();
    Zpand_ModSetPostDrv(PostDrive);
    bool ok = StartPair(true);
    while (ok && !g_finished && std::chrono::steady_clock::now() < end + std::chrono::seconds(5)) {
        ALooper_pollOnce(100, nullptr, nullptr, nullptr);
    }
    ok = ok && g_finished;
    Zpand_ModSetPostDrv(nullptr);
    Zos_SysDestroy();
    return ok ? 0 : 1;
}

// ---- bench ----------------------------------------------------------------

std::atomic<uint32_t> g_handled{0};
int32_t Count(void *) {
    g_handled.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

double Rate(uint32_t count, bool host) {
    uint32_t task = 0;
    if (Zos_ModTaskStart("BENCH", 3, 4096, 0, host ? 1 : 0, nullptr, nullptr, Count, &task) !=
        ZOK) {
        return 0;
    }
    g_handled = 0;
    const auto start = std::chrono::steady_clock::now();
    for (uint32_t i = 0; i < count; ++i) {
        while (Zos_MsgSendX(task, task, 1, 0, nullptr, 0) != ZOK) {
            if (host) ALooper_pollOnce(0, nullptr, nullptr, nullptr);
        }
        if (host && (i & 63) == 63) ALooper_pollOnce(0, nullptr, nullptr, nullptr);
    }
    while (g_handled.load() < count) {
        if (host) ALooper_pollOnce(10, nullptr, nullptr, nullptr);
    }
    const double s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    Zos_ModTaskStop(task);
    return s > 0 ? count / s : 0;
}

int Bench(uint32_t count) {
    Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ERROR | ZOS_LOG_LEVEL_FATAL);
    if (StartLayer() != ZOK) return 1;
    std::printf("threaded task, 1 poster:    %10.0f messages/s\n", Rate(count, false));
    Zos_SysDestroy();
    Zos_CfgSetLogLevel(ZOS_LOG_LEVEL_ERROR | ZOS_LOG_LEVEL_FATAL);
    Zos_CfgSetModDrvMode(0);
    Zos_CfgSetQueueSize(4096);
    if (StartLayer() != ZOK) return 1;
    ALooper_prepare(0);
    Zpand_UiEvntInit();
    Zpand_ModSetPostDrv(PostDrive);
    std::printf("host-driven task (looper):  %10.0f messages/s\n", Rate(count, true));
    Zpand_ModSetPostDrv(nullptr);
    Zos_SysDestroy();
    return 0;
}

}  // namespace

int RunRuntime(int argc, char **argv) {
    if (argc >= 2 && std::strcmp(argv[1], "demo") == 0) return Demo();
    if (argc >= 2 && std::strcmp(argv[1], "bench") == 0) {
        const long n = argc >= 3 ? std::strtol(argv[2], nullptr, 10) : 200000;
        return Bench(n > 0 ? static_cast<uint32_t>(n) : 200000u);
    }
    std::fprintf(stderr, "usage: kestro runtime demo | bench [COUNT]\n");
    return 2;
}

}  // namespace kestro
