// Module manager: host-driven drives (one message per drive request),
// priorities and arrival order, the event sends, posting failures, deferred
// calls, control messages, performs with every argument kind on the
// caller's word layout, the event hub and shut-down with messages still
// queued.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mod_test.h"

namespace {

using ktest::Eventually;

// What the handlers saw, in order: "<task name>:<type>".
std::mutex g_seenLock;
std::vector<std::string> g_seen;

void Seen(const std::string &s) {
    std::lock_guard<std::mutex> lock(g_seenLock);
    g_seen.push_back(s);
}
std::vector<std::string> SeenNow() {
    std::lock_guard<std::mutex> lock(g_seenLock);
    return g_seen;
}
void ClearSeen() {
    std::lock_guard<std::mutex> lock(g_seenLock);
    g_seen.clear();
}

int32_t Record(void *msg) {
    Seen(std::string(Zos_TaskGetName(Zos_MsgGetRecvTaskId(msg))) + ":" +
         std::to_string(Zos_MsgGetType(msg)));
    return 0;
}

std::atomic<uint32_t> g_driveRequests{0};
uint32_t CountDrive() {
    g_driveRequests++;
    return ZOK;
}
uint32_t NoDrive() {
    return ZFAILED;
}
// Drives at once, then reports that no drive could be asked for.
uint32_t DriveThenFail() {
    Zos_ModDriveMsg();
    return ZFAILED;
}

std::vector<std::string> g_exits;
void OnExit(const char *name, uint32_t) {
    g_exits.push_back(name);
}

uint32_t Start(const char *name, uint32_t pri, bool host, PFN_ZOS_MOD_ENTRY entry = Record,
               PFN_ZOS_TASK_EXIT onExit = OnExit) {
    uint32_t id = ZOS_INVALID_ID;
    EXPECT_EQ(Zos_ModTaskStart(name, pri, 0, 0, host ? 1 : 0, nullptr, onExit, entry, &id), ZOK);
    return id;
}

// The "task<NAME:ID>" that begins the module's lines about a task.
std::string Tag(const std::string &name, uint32_t id) {
    return "task<" + name + ":" + std::to_string(id) + ">";
}

void Deferred(uintptr_t arg, void *data, uint32_t len) {
    Seen("deferred:" + std::to_string(arg) + ":" +
         std::string(static_cast<const char *>(data), len));
}

int32_t LeaveThenRecord(void *msg) {
    Zos_ModLeaveEvnt(Zos_MsgGetRecvTaskId(msg), Deferred, 9, "abc", 3);
    return Record(msg);
}

// ---- performs: functions with real, mixed prototypes -------------------

std::string g_call;
// On 32-bit ARM these take 8 words each (64-bit values in even register
// pairs or aligned stack slots, padding included); on x86-64 one a word.
void Mixed(int8_t c, uint16_t us, int64_t ll, const char *s, uint32_t u, void *p, int32_t i) {
    g_call = std::to_string(c) + "," + std::to_string(us) + "," + std::to_string(ll) + "," + s +
             "," + std::to_string(u) + "," + std::to_string(reinterpret_cast<uintptr_t>(p)) + "," +
             std::to_string(i);
}
void Odd64(uint32_t a, int64_t b, uint32_t c, uint64_t d) {
    g_call = std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c) + "," +
             std::to_string(d);
}
void WithMem(const void *data, uint32_t len, long l, unsigned long ul, size_t z, uint8_t uc,
             int16_t sh) {
    g_call = std::string(static_cast<const char *>(data), len) + "," + std::to_string(l) + "," +
             std::to_string(ul) + "," + std::to_string(z) + "," + std::to_string(uc) + "," +
             std::to_string(sh);
}
void Nine(uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint32_t e, uint32_t f, uint32_t g,
          uint32_t h, uint32_t i) {
    g_call = std::to_string(a + b + c + d + e + f + g + h) + "/" + std::to_string(i);
}
void NoArgs() {
    g_call = "none";
}
// A function of as many words as its pack holds; records each word.
template <typename... W>
void Words(W... w) {
    g_call.clear();
    ((g_call += std::to_string(w) + ";"), ...);
}
template <std::size_t>
using Word = uintptr_t;
template <std::size_t... I>
PFN_ZOS_MOD_FUNC WordsFn(std::index_sequence<I...>) {
    return reinterpret_cast<PFN_ZOS_MOD_FUNC>(&Words<Word<I>...>);
}

template <typename F>
PFN_ZOS_MOD_FUNC Fn(F f) {
    return reinterpret_cast<PFN_ZOS_MOD_FUNC>(f);
}

// What the functions posted to the UI thread saw, in order, and where the
// last one ran; Stall holds the UI thread until g_stalled is cleared.
std::vector<uintptr_t> g_order;
std::atomic<uint32_t> g_ran{0};
std::thread::id g_lastOn;
std::atomic<bool> g_stalled{false}, g_entered{false};
void Note(uintptr_t v) {
    g_order.push_back(v);
    g_lastOn = std::this_thread::get_id();
    g_ran++;
}
void Stall(uintptr_t) {
    g_entered = true;
    while (g_stalled) std::this_thread::yield();
}
void ResetNotes() {
    g_order.clear();
    g_ran = 0;
    g_stalled = true;
    g_entered = false;
}
// Entries of g_order that are not first, first + 1, first + 2, ...
size_t Misplaced(uintptr_t first = 1) {
    size_t n = 0;
    for (size_t i = 0; i < g_order.size(); ++i) n += g_order[i] != first + i;
    return n;
}

}  // namespace

// ---- host-driven mode ----------------------------------------------------

// Host-driven mode with the drive requests counted and the records cleared.
class ModHost : public ktest::HostModTest {
  protected:
    void SetUp() override {
        HostModTest::SetUp();
        ClearSeen();
        g_exits.clear();
        g_driveRequests = 0;
        Zpand_ModSetPostDrv(CountDrive);
    }
};

TEST_F(ModHost, ThreePostsThreeDrivesOneMessageEach) {
    const uint32_t a = Start("HOST_A", 3, true);
    for (uint32_t type = 1; type <= 3; ++type) {
        ASSERT_EQ(Zos_MsgSendX(a, a, type, 0, nullptr, 0), ZOK);
    }
    EXPECT_EQ(g_driveRequests, 3u);
    EXPECT_EQ(Zos_ModDriveMsg(), ZOK);
    EXPECT_EQ(SeenNow().size(), 1u);
    EXPECT_EQ(g_driveRequests, 4u);  // messages remain: another drive asked for
    EXPECT_EQ(Zos_ModDriveMsg(), ZOK);
    EXPECT_EQ(Zos_ModDriveMsg(), ZOK);
    EXPECT_EQ(g_driveRequests, 5u);  // the last drive left the queue empty
    EXPECT_EQ(SeenNow(), (std::vector<std::string>{"HOST_A:1", "HOST_A:2", "HOST_A:3"}));
    EXPECT_EQ(Zos_ModDriveMsg(), ZOK);  // nothing queued: nothing happens
    EXPECT_EQ(SeenNow().size(), 3u);

    // A silenced manager asks for no drive; the next drive lifts it.
    Zos_ModSilence();
    ASSERT_EQ(Zos_MsgSendX(a, a, 4, 0, nullptr, 0), ZOK);
    EXPECT_EQ(g_driveRequests, 5u);
    Zos_ModDriveMsg();
    ASSERT_EQ(Zos_MsgSendX(a, a, 5, 0, nullptr, 0), ZOK);
    EXPECT_EQ(g_driveRequests, 6u);
    Zos_ModDriveMsg();
    EXPECT_EQ(SeenNow().back(), "HOST_A:5");
}

TEST_F(ModHost, PrioritiesFirstThenArrivalOrder) {
    const uint32_t a = Start("EQ_A", 3, true), b = Start("EQ_B", 3, true);
    const uint32_t urgent = Start("URGENT", 0, true);  // clamped to 1
    EXPECT_EQ(Zos_TaskGetPriority(urgent), 1u);
    Zos_MsgSendX(a, a, 1, 0, nullptr, 0);
    Zos_MsgSendX(a, b, 2, 0, nullptr, 0);
    Zos_MsgSendX(a, a, 3, 0, nullptr, 0);
    Zos_MsgSendX(a, urgent, 4, 0, nullptr, 0);
    Zos_MsgSendXP(a, a, 5, 0, nullptr, 0, 2);  // its own priority
    for (int i = 0; i < 5; ++i) Zos_ModDriveMsg();
    EXPECT_EQ(SeenNow(),
              (std::vector<std::string>{"URGENT:4", "EQ_A:5", "EQ_A:1", "EQ_B:2", "EQ_A:3"}));
}

// The event sends: the handler gets the event, the object word and the
// data, and the priority forms go ahead of the task's own priority.
int32_t RecordEvent(void *msg) {
    const ZEVNT e = Zos_MsgGetEvntId(msg);
    const auto *data = static_cast<const char *>(Zos_MsgGetData(msg));
    Seen(std::to_string(Zos_MsgGetType(msg)) + ":" + std::to_string(Zos_MsgGetObject(msg)) + ":" +
         (data != nullptr ? std::string(data, Zos_MsgGetDataLen(msg)) : "") + ":" +
         (e != nullptr ? Zos_EParmGetStr(e, 1) : "no event"));
    return 0;
}

TEST_F(ModHost, EventSendsCarryTheEventObjectAndData) {
    const uint32_t a = Start("EVT_A", 3, true, RecordEvent);
    ktest::ClearLogged();
    auto event = [](const char *text) {
        ZEVNT e = Zos_EvntCreate();
        EXPECT_EQ(Zos_EParmSetStr(e, 1, text), ZOK);
        return e;
    };
    ASSERT_EQ(Zos_MsgSendE(event("e"), a, a, 1), ZOK);
    ASSERT_EQ(Zos_MsgSendED(event("ed"), a, a, 2, 0x55, "xy", 2), ZOK);
    ASSERT_EQ(Zos_MsgSendEP(event("ep"), a, a, 3, 1), ZOK);
    ASSERT_EQ(Zos_MsgSendEDP(event("edp"), a, a, 4, 0x66, "z", 1, 2), ZOK);
    EXPECT_EQ(g_driveRequests, 4u);
    for (int i = 0; i < 4; ++i) Zos_ModDriveMsg();
    EXPECT_EQ(SeenNow(),
              (std::vector<std::string>{"3:0::ep", "4:102:z:edp", "1:0::e", "2:85:xy:ed"}));
    EXPECT_TRUE(ktest::Logged().empty());
}

TEST_F(ModHost, PostFailuresLeaveNothingQueued) {
    const uint32_t a = Start("FAIL_A", 3, true);
    // No drive road: the post fails and the message is deleted by the
    // sender (AddressSanitizer would see a leak or a second delete).
    Zpand_ModSetPostDrv(NoDrive);
    EXPECT_EQ(Zos_MsgSendX(a, a, 1, 0, "data", 4), ZFAILED);
    EXPECT_EQ(Zos_ModDriveMsg(), ZOK);
    EXPECT_EQ(Zos_TaskDbgGetState(Zos_ModFindTask(a)), std::string("pending"));
    // A drive that took the message already: the post stands, and the
    // message is handled once.
    Zpand_ModSetPostDrv(DriveThenFail);
    EXPECT_EQ(Zos_MsgSendX(a, a, 2, 0, nullptr, 0), ZOK);
    EXPECT_EQ(SeenNow(), std::vector<std::string>{"FAIL_A:2"});
    EXPECT_EQ(Zos_MsgSendX(a, 0x7FFF0000, 1, 0, nullptr, 0), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModPostMsg invalid recv task."));
    void *msg = Zos_MsgCreate(a, 0x7FFF0000, 1);
    EXPECT_EQ(Zos_ModPostMsgX(msg, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModPostMsgX invalid recv task."));
    Zos_MsgDelete(msg);
    // A full shared queue (QueueSize entries).
    Zpand_ModSetPostDrv(CountDrive);
    uint32_t sent = 0;
    while (Zos_MsgSendX(a, a, 7, 0, nullptr, 0) == ZOK && sent < 10000) ++sent;
    EXPECT_EQ(sent, Zos_CfgGetQueueSize());
    EXPECT_TRUE(ktest::LoggedContains("ModPostMsg task<FAIL_A> <0x" + [&] {
        char hex[16];
        std::snprintf(hex, sizeof(hex), "%x", a);
        return std::string(hex);
    }() + "> ---> task<FAIL_A>"));
    // Shut-down with all of them still queued frees them.
}

TEST_F(ModHost, DeferredCallsRunAfterTheMessage) {
    const uint32_t a = Start("LEAVER", 3, true, LeaveThenRecord);
    Zos_MsgSendX(a, a, 1, 0, nullptr, 0);
    Zos_ModDriveMsg();
    EXPECT_EQ(SeenNow(), (std::vector<std::string>{"LEAVER:1", "deferred:9:abc"}));
    EXPECT_EQ(Zos_ModLeaveEvnt(a, nullptr, 0, nullptr, 0), ZFAILED);
    EXPECT_EQ(Zos_ModLeaveEvnt(a, Deferred, 1, nullptr, 5), ZFAILED);
    // A call left for no task goes to the manager's list and runs when
    // events are driven.
    EXPECT_EQ(Zos_ModLeaveEvnt(ZOS_INVALID_ID, Deferred, 3, "x", 1), ZOK);
    EXPECT_EQ(Zos_ModDriveEvnt(), ZOK);
    EXPECT_EQ(SeenNow(), (std::vector<std::string>{"LEAVER:1", "deferred:9:abc", "deferred:3:x"}));
    // Queued calls not yet run go with the manager at shut-down.
    EXPECT_EQ(Zos_ModLeaveEvnt(a, Deferred, 2, "left", 4), ZOK);
}

// A task whose init refuses does not start: its id and name go back,
// and its exit callback is not called for a start that never was.
TEST_F(ModHost, InitThatRefusesStartsNoTask) {
    static std::string initName;
    const PFN_ZOS_MOD_INIT refuse = [](const char *name, uint32_t) -> uint32_t {
        initName = name;
        return ZFAILED;
    };
    uint32_t id = 7;
    EXPECT_EQ(Zos_ModTaskStart("REFUSER", 3, 0, 0, 1, refuse, OnExit, Record, &id), ZFAILED);
    EXPECT_EQ(initName, "REFUSER");
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("module task<REFUSER> init failed."));
    EXPECT_EQ(Zos_TaskGetTaskId("REFUSER"), ZOS_INVALID_ID);
    EXPECT_TRUE(g_exits.empty());
    EXPECT_NE(Start("REFUSER", 3, true), ZOS_INVALID_ID);  // the name is free again
}

TEST_F(ModHost, HostTasksStopAndStatistics) {
    const uint32_t a = Start("STOP_ME", 3, true);
    EXPECT_EQ(Zos_TaskIsSpawn(a), 0u);
    EXPECT_EQ(Zos_ModTaskIsRun(a), 1u);
    for (int i = 0; i < 3; ++i) Zos_MsgSendX(a, a, 1, 0, nullptr, 0);
    ktest::ClearPrinted();
    Zos_TaskDbgShow();
    // Host-driven tasks have no thread: their queue is counted, down as
    // well as up, and the peak stays.
    EXPECT_NE(ktest::Printed().find("STOP_ME  0x"), std::string::npos);
    EXPECT_NE(ktest::Printed().find("MODULE"), std::string::npos);
    EXPECT_NE(ktest::Printed().find("pending 3   3      3"), std::string::npos);
    Zos_ModDriveMsg();
    ktest::ClearPrinted();
    Zos_TaskDbgShow();
    EXPECT_NE(ktest::Printed().find("ready   3   2      3"), std::string::npos) << ktest::Printed();
    EXPECT_EQ(Zos_ModTaskPause(a, 0), ZOK);  // no thread: nothing to pause
    EXPECT_EQ(Zos_TaskDelete(a), ZOK);       // a module task: the module stop
    EXPECT_TRUE(ktest::LoggedContains(Tag("STOP_ME", a) + " module stop ok."));
    EXPECT_EQ(g_exits, std::vector<std::string>{"STOP_ME"});
    Zos_ModDriveMsg();  // its messages are dropped, not handled
    Zos_ModDriveMsg();
    EXPECT_EQ(Zos_ModTaskStop(a), ZFAILED);

    // Without threads a task must be driven by the host loop, which needs
    // a post-drive slot.
    ZOS_OSDEP_FUNC drive = ktest::Slot(94);
    Zos_CfgSetLogLevel(0xF);  // warnings too
    Zos_CfgSetOsThreadSupt(0);
    uint32_t id = 0;
    EXPECT_EQ(Zos_ModTaskStart("MAIN_ONLY", 3, 0, 0, 1, nullptr, nullptr, Record, &id), ZOK);
    EXPECT_TRUE(ktest::LoggedContains("task<MAIN_ONLY> driven by main thread."));
    ktest::Slot(94) = nullptr;
    EXPECT_EQ(Zos_ModTaskStart("NO_DRIVE", 3, 0, 0, 0, nullptr, nullptr, Record, &id), ZFAILED);
    EXPECT_EQ(id, ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("Please set ModPostDrv when no thread supporting."));
    ktest::Slot(94) = drive;
    Zos_CfgSetOsThreadSupt(1);
}

// A synchronous perform still queued when its task stops is not run, and
// its poster is let go instead of waiting for ever.
void MarkRan(uint32_t v) {
    g_call = "ran " + std::to_string(v);
}

TEST_F(ModHost, SynchronousPerformQueuedAtStopLetsItsPosterGo) {
    g_call.clear();
    const uint32_t task = Start("PERF_STOP", 3, true);
    const uint32_t posts = g_driveRequests.load();
    std::atomic<bool> returned{false};
    std::thread poster([&] {
        Zos_ModPerformX(task, reinterpret_cast<PFN_ZOS_MOD_FUNC>(MarkRan), "%u", 7u);
        returned = true;
    });
    // Queued: the post asked the host for a drive.
    ASSERT_TRUE(Eventually([&] { return g_driveRequests.load() != posts; }));
    EXPECT_FALSE(returned.load());
    EXPECT_EQ(Zos_ModTaskStop(task), ZOK);
    Zos_ModDriveMsg();  // drops the perform of the stopped task
    const bool letGo = Eventually([&] { return returned.load(); }, std::chrono::seconds(10));
    EXPECT_TRUE(letGo);
    if (letGo) {
        poster.join();
    } else {
        poster.detach();  // still waiting: keep the test run going
    }
    EXPECT_EQ(g_call, "");
}

// ---- the host loop: the pipe and the looper --------------------------------

TEST_F(ModHost, RoadOfAMessageThroughTheLooper) {
    ktest::HostLoop loop;
    ASSERT_TRUE(loop.SetUp());
    EXPECT_NE(Zpand_UiThreadId(), nullptr);
    const uint32_t a = Start("LOOP_A", 4, true);
    const uint32_t drivesBefore = ktest::HostLoop::drives;
    for (uint32_t type = 1; type <= 5; ++type)
        ASSERT_EQ(Zos_MsgSendX(a, a, type, 0, nullptr, 0), ZOK);
    ASSERT_TRUE(Eventually([] { return SeenNow().size() == 5; }));
    EXPECT_EQ(SeenNow().front(), "LOOP_A:1");
    EXPECT_EQ(SeenNow().back(), "LOOP_A:5");
    EXPECT_GE(ktest::HostLoop::drives - drivesBefore, 5u);  // one drive per message at least

    // A synchronous perform for the UI task from another thread runs on
    // the looper's thread; from the looper thread itself it runs at once.
    static std::thread::id ranOn;
    static void (*const onUi)() = [] { ranOn = std::this_thread::get_id(); };
    EXPECT_EQ(Zos_ModPerformX(ZOS_MOD_UI_TASK, Fn(onUi), ""), ZOK);
    EXPECT_EQ(ranOn, loop.Id());
    char log[4096];
    Zpand_AndroidLogRecent(log, sizeof(log));
    EXPECT_NE(std::strstr(log, "D/ZOS: Zpand_PostMessage.\n"), nullptr);
    EXPECT_NE(std::strstr(log, "D/ZOS: Zpand_MsgPipeCb.\n"), nullptr);
    loop.Stop();
}

// A perform for the UI task that the platform refuses to post fails and
// takes its event with it: nothing else would ever delete it.
uint32_t RefusePost(uintptr_t, PFN_ZPAND_UI_FUNC) {
    return ZFAILED;
}

TEST_F(ModHost, RefusedUiPerformDeletesItsEvent) {
    ZOS_OSDEP_FUNC post = ktest::Slot(102);
    ktest::Slot(102) = reinterpret_cast<ZOS_OSDEP_FUNC>(RefusePost);
    ZEVNT evt = Zos_EvntCreate();
    ASSERT_NE(evt, nullptr);
    EXPECT_EQ(Zos_ModTaskPerform(ZOS_MOD_UI_TASK, evt, ZOS_MSG_TYPE_PERFORM), ZFAILED);
    ktest::Slot(102) = post;
    ktest::ClearLogged();
    EXPECT_EQ(Zos_EvntGetMemBuf(evt), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("EvntGetMemBuf invalid id"));
}

TEST_F(ModHost, PipeRecordsRunInWriteOrderAndEmptyPipeReturns) {
    ktest::HostLoop loop;
    ASSERT_TRUE(loop.SetUp());
    ResetNotes();
    std::thread other([] {
        for (uintptr_t i = 0; i < 50; ++i) Zpand_PostMessage(1000 + i, Note);
    });
    other.join();
    for (uintptr_t i = 50; i < 100; ++i) Zpand_UiProcEvnt(1000 + i, Note);
    ASSERT_TRUE(Eventually([] { return g_ran == 100; }));
    EXPECT_EQ(Misplaced(1000), 0u);
    loop.Stop();
    // The callback on an empty pipe returns at once and calls nothing.
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
    EXPECT_EQ(Zpand_MsgPipeCb(fds[0], ALOOPER_EVENT_INPUT, nullptr), 1);
    close(fds[0]);
    close(fds[1]);
    EXPECT_EQ(g_ran, 100u);
}

// A stalled UI thread: posts beyond what the pipe holds wait, and all run
// in post order once the thread goes on; none is lost.
TEST_F(ModHost, PostsBeyondAFullPipeWaitAndRunInOrder) {
    ktest::HostLoop loop;
    ASSERT_TRUE(loop.SetUp());
    ResetNotes();
    constexpr uintptr_t kPosts = 20000;  // a pipe holds 4096 or 8192 records
    Zpand_UiProcEvnt(0, Stall);
    for (uintptr_t i = 1; i <= kPosts; ++i) Zpand_UiProcEvnt(i, Note);
    g_stalled = false;
    ASSERT_TRUE(Eventually([] { return g_ran == kPosts; }, std::chrono::milliseconds(20000)))
        << g_ran.load() << " ran";
    EXPECT_EQ(Misplaced(), 0u);
    loop.Stop();
}

// Setting the UI pipe up again (a new UI thread) hands on the posts the
// old pipe still held: they run on the new looper, in order, before the
// posts that follow.
TEST_F(ModHost, ReplacedUiPipeHandsItsPostsOn) {
    ResetNotes();
    auto oldLoop = std::make_unique<ktest::HostLoop>();
    ASSERT_TRUE(oldLoop->SetUp());
    Zpand_UiProcEvnt(0, Stall);
    ASSERT_TRUE(Eventually([] { return g_entered.load(); }));
    for (uintptr_t i = 1; i <= 100; ++i) Zpand_UiProcEvnt(i, Note);
    ktest::HostLoop newLoop;
    ASSERT_TRUE(newLoop.SetUp());
    for (uintptr_t i = 101; i <= 200; ++i) Zpand_UiProcEvnt(i, Note);
    const bool all = Eventually([] { return g_ran == 200; });
    g_stalled = false;
    ASSERT_TRUE(all) << g_ran.load() << " ran";
    EXPECT_EQ(Misplaced(), 0u);
    EXPECT_EQ(g_lastOn, newLoop.Id());
    newLoop.Stop();
    oldLoop->Stop();
}

// Posts made after the pipe was replaced, before the new looper has run
// the ones it took over, still run after those.
TEST_F(ModHost, PostsAfterAReplacedPipeRunAfterTheOnesHandedOn) {
    ResetNotes();
    std::atomic<int> phase{0};
    std::thread oldUi([&phase] {  // sets the pipe up, then never polls
        ALooper_prepare(0);
        EXPECT_EQ(Zpand_UiEvntInit(), ZOK);
        phase = 1;
        while (phase != 3) std::this_thread::yield();
    });
    while (phase != 1) std::this_thread::yield();
    for (uintptr_t i = 1; i <= 100; ++i) Zpand_UiProcEvnt(i, Note);
    std::thread newUi([&phase] {
        ALooper_prepare(0);
        EXPECT_EQ(Zpand_UiEvntInit(), ZOK);
        phase = 2;
        while (phase != 3) std::this_thread::yield();
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (g_ran < 200 && std::chrono::steady_clock::now() < end) {
            ALooper_pollOnce(10, nullptr, nullptr, nullptr);
        }
    });
    while (phase != 2) std::this_thread::yield();
    for (uintptr_t i = 101; i <= 200; ++i) Zpand_UiProcEvnt(i, Note);
    phase = 3;
    newUi.join();
    oldUi.join();
    EXPECT_EQ(g_ran, 200u);
    EXPECT_EQ(Misplaced(), 0u);
}

TEST_F(ModHost, PostDriveRoads) {
    // No installed function and no virtual machine: no road.
    Zpand_ModSetPostDrv(nullptr);
    EXPECT_EQ(Zpand_ModGetPostDrv(), nullptr);
    EXPECT_EQ(Zpand_ModPostDrv(), ZFAILED);
    g_driveRequests = 0;
    Zpand_ModSetPostDrv(CountDrive);
    EXPECT_EQ(Zpand_ModGetPostDrv(), CountDrive);
    EXPECT_EQ(Zpand_ModPostDrv(), ZOK);
    EXPECT_EQ(g_driveRequests, 1u);
    // Setting up the pipe on a thread without a looper is logged.
    std::thread([] { EXPECT_EQ(Zpand_SetupPipe(), ZFAILED); }).join();
    char log[4096];
    Zpand_AndroidLogRecent(log, sizeof(log));
    EXPECT_NE(std::strstr(log, "E/ZOS: Zpand_SetupPipe get looper.\n"), nullptr);
    EXPECT_EQ(Zos_ModDriveMsg(), ZOK);
}

// ---- threaded mode --------------------------------------------------------

TEST_F(ZosTest, ThreadedTasksAndManagerTask) {
    ClearSeen();
    g_exits.clear();
    EXPECT_NE(Zos_TaskGetTaskId("MOD_MGR"), ZOS_INVALID_ID);
    EXPECT_TRUE(ktest::LoggedContains("module manager active run.") ||
                Zos_TaskGetState(Zos_TaskGetTaskId("MOD_MGR")) == ZOS_TASK_RUNNING);
    // OWN's exit callback, on its loop's thread, holds the loop until the
    // stopper has logged the task's state: the record cannot be released
    // first, so the state line is always written.
    const uint32_t own = Start("OWN", 3, false, Record, [](const char *name, uint32_t id) {
        Eventually([id] { return ktest::LoggedContains(Tag("OWN", id) + " module state is"); });
        OnExit(name, id);
    });
    ASSERT_NE(own, ZOS_INVALID_ID);
    const uint32_t shared = Start("SHARED", 3, true);  // drained by MOD_MGR
    for (uint32_t t = 1; t <= 3; ++t) {
        ASSERT_EQ(Zos_MsgSendX(own, own, t, 0, nullptr, 0), ZOK);
        ASSERT_EQ(Zos_MsgSendX(own, shared, 10 + t, 0, nullptr, 0), ZOK);
    }
    ASSERT_TRUE(Eventually([] { return SeenNow().size() == 6; }));
    std::vector<std::string> ownSeen, sharedSeen;
    for (const auto &s : SeenNow()) (s.rfind("OWN", 0) == 0 ? ownSeen : sharedSeen).push_back(s);
    EXPECT_EQ(ownSeen, (std::vector<std::string>{"OWN:1", "OWN:2", "OWN:3"}));
    EXPECT_EQ(sharedSeen, (std::vector<std::string>{"SHARED:11", "SHARED:12", "SHARED:13"}));

    // Pause: nothing handled; resume: handled.
    ASSERT_EQ(Zos_ModTaskPause(own, 0), ZOK);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(Zos_MsgSendX(own, own, 4, 0, nullptr, 0), ZOK);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(SeenNow().size(), 6u);
    ASSERT_EQ(Zos_ModTaskPause(own, 1), ZOK);
    ASSERT_TRUE(Eventually([] { return SeenNow().size() == 7; }));

    uint32_t dup = 0;
    EXPECT_EQ(Zos_ModTaskStart("OWN", 3, 0, 0, 0, nullptr, nullptr, Record, &dup), ZFAILED);
    // Nor does a task start without an entry to hand its messages to.
    EXPECT_EQ(Zos_ModTaskStart("NO_ENTRY", 3, 0, 0, 0, nullptr, nullptr, nullptr, &dup), ZFAILED);
    EXPECT_EQ(dup, ZOS_INVALID_ID);
    EXPECT_EQ(Zos_TaskGetTaskId("NO_ENTRY"), ZOS_INVALID_ID);
    const std::string tag = Tag("OWN", own);
    EXPECT_TRUE(ktest::LoggedContains(tag + " already exist."));
    EXPECT_EQ(Zos_ModTaskStop(own), ZOK);
    EXPECT_TRUE(ktest::LoggedContains(tag + " module state is 2."));
    EXPECT_TRUE(ktest::LoggedContains(tag + " module stop ok."));
    // The loop writes its line after it marks the task deleted, which is
    // what the stop waits for.
    EXPECT_TRUE(
        Eventually([] { return ktest::LoggedContains("ModTaskEntry set task OWN delete."); }));
    EXPECT_EQ(g_exits, std::vector<std::string>{"OWN"});
    EXPECT_EQ(Zos_TaskGetState(own), 0u);
    EXPECT_EQ(Zos_MsgSendX(own, own, 1, 0, nullptr, 0), ZFAILED);
    // A stop notice for a shared-queue task reaches the manager task's
    // loop, which runs the exit callback once and marks the task deleted.
    static std::atomic<int> noticedExits{0};
    noticedExits = 0;
    uint32_t noticed = ZOS_INVALID_ID;
    ASSERT_EQ(Zos_ModTaskStart(
                  "NOTICED", 3, 0, 0, 1, nullptr, [](const char *, uint32_t) { noticedExits++; },
                  Record, &noticed),
              ZOK);
    ASSERT_EQ(Zos_ModTaskNtfyDelete(noticed), ZOK);
    EXPECT_TRUE(Eventually([] { return noticedExits.load() == 1; }));
    EXPECT_EQ(Zos_TaskGetState(noticed), ZOS_TASK_DELETED);
    EXPECT_EQ(Zos_ModPutTask(noticed), ZOK);
    EXPECT_EQ(noticedExits.load(), 1);
    // A task left running, with messages queued, goes at shut-down.
    ASSERT_EQ(Zos_ModTaskPause(shared, 0), ZOK);
    const uint32_t parked = Start("PARKED", 3, false);
    Zos_ModTaskPause(parked, 0);
    for (int i = 0; i < 5; ++i) Zos_MsgSendX(own, parked, 1, 0, "x", 1);
}

// A cease tells a threaded task's loop to stop and does not wait for it:
// the task reads "wait delete" at once (its loop is held in the exit
// callback here), and its thread releases the record once the loop ends.
TEST_F(ZosTest, CeaseMarksAThreadedTaskStoppingAndLeavesTheRestToItsThread) {
    static std::atomic<bool> release{false};
    release = false;
    const uint32_t id = Start("CEASED", 3, false, Record, [](const char *, uint32_t) {
        Eventually([] { return release.load(); });
    });
    ASSERT_NE(id, ZOS_INVALID_ID);
    ASSERT_EQ(Zos_ModTaskCease(id), ZOK);
    EXPECT_TRUE(ktest::LoggedContains(Tag("CEASED", id) + " module cease ok."));
    EXPECT_EQ(Zos_TaskGetState(id), ZOS_TASK_WAIT_DELETE);
    release = true;
    EXPECT_TRUE(Eventually([id] { return Zos_TaskGetState(id) == ZOS_TASK_FREE; }));
}

// The state setters write only the task's state word, which the task
// reports back; an unknown id is refused.
TEST_F(ZosTest, StateSettersWriteTheStateTheTaskReports) {
    const uint32_t t = Start("STATES", 3, true);
    ASSERT_NE(t, ZOS_INVALID_ID);
    EXPECT_EQ(Zos_TaskGetState(t), ZOS_TASK_PENDING);  // until the host drives it
    const struct {
        uint32_t (*set)(uint32_t);
        uint32_t state, run;
    } steps[] = {{Zos_ModTaskSetWaitDelete, ZOS_TASK_WAIT_DELETE, 0},
                 {Zos_ModTaskSetReady, ZOS_TASK_READY, 1},
                 {Zos_ModTaskSetDelete, ZOS_TASK_DELETED, 0},
                 {Zos_ModTaskSetRuning, ZOS_TASK_RUNNING, 1}};
    for (const auto &step : steps) {
        EXPECT_EQ(step.set(t), ZOK);
        EXPECT_EQ(Zos_TaskGetState(t), step.state);
        EXPECT_EQ(Zos_ModTaskIsRun(t), step.run);
        EXPECT_EQ(step.set(0xFFFFFFF0u), ZFAILED);
    }
    EXPECT_EQ(Zos_ModTaskStop(t), ZOK);
}

// A drive around one message: its start moves a pending or ready task to
// running and gives the task's entry, its stop moves it back to ready. A
// task waiting for its delete is marked deleted instead; an unknown id is
// refused and gives no entry.
TEST_F(ZosTest, DriveStartAndStopMoveTheTaskState) {
    const uint32_t t = Start("DRIVEN", 3, true);
    ASSERT_NE(t, ZOS_INVALID_ID);
    PFN_ZOS_MOD_ENTRY entry = nullptr;
    ASSERT_EQ(Zos_ModDriveStart(t, &entry), ZOK);
    EXPECT_EQ(Zos_TaskGetState(t), ZOS_TASK_RUNNING);
    EXPECT_EQ(entry, Record);
    EXPECT_EQ(Zos_ModDriveStop(t), ZOK);
    EXPECT_EQ(Zos_TaskGetState(t), ZOS_TASK_READY);
    ASSERT_EQ(Zos_ModDriveStart(t, nullptr), ZOK);
    EXPECT_EQ(Zos_TaskGetState(t), ZOS_TASK_RUNNING);
    ASSERT_EQ(Zos_ModDriveStop(t), ZOK);

    ASSERT_EQ(Zos_ModTaskSetWaitDelete(t), ZOK);
    ASSERT_EQ(Zos_ModDriveStart(t, nullptr), ZOK);
    EXPECT_EQ(Zos_TaskGetState(t), ZOS_TASK_DELETED);
    EXPECT_EQ(Zos_ModDriveStop(t), ZOK);
    EXPECT_EQ(Zos_TaskGetState(t), ZOS_TASK_DELETED);  // only a running task goes back

    EXPECT_EQ(Zos_ModDriveStart(0xFFFFFFF0u, &entry), ZFAILED);
    EXPECT_EQ(entry, nullptr);
    EXPECT_EQ(Zos_ModDriveStop(0xFFFFFFF0u), ZFAILED);
    ASSERT_EQ(Zos_ModTaskSetReady(t), ZOK);
    EXPECT_EQ(Zos_ModTaskStop(t), ZOK);
}

TEST_F(ZosTest, ModInitFailsWithoutMemoryForTheTable) {
    Zos_SysDestroy();
    EXPECT_EQ(Zos_ModPostMsg(nullptr), ZFAILED);  // no manager to post through
    EXPECT_EQ(Zos_ModPostMsgX(nullptr, 1), ZFAILED);
    EXPECT_EQ(Zos_ModEhInit(), ZFAILED);  // nor a manager to hold a hub
    EXPECT_EQ(Zos_ModTaskStop(20) + Zos_ModTaskCease(20) + Zos_ModTaskPause(20, 0) +
                  Zos_ModTaskWaitStop(20, 0),
              4 * ZFAILED);  // nor tasks
    ktest::ClearPrinted();
    Zos_CfgSetPrintDisp(ktest::PrintHook);
    ktest::UseTestLogDir();
    Zos_CfgSetTaskCount(0x7FFFFFF);  // a table too large for the heap
    EXPECT_EQ(Zos_SysInit(), ZFAILED);
    EXPECT_NE(ktest::Printed().find("init module fail!"), std::string::npos);
    Zos_CfgSetPrintDisp(ktest::PrintHook);
    ktest::UseTestLogDir();
    ASSERT_EQ(Zos_SysInit(), ZOK);
    EXPECT_NE(Zos_TaskGetTaskId("MOD_MGR"), ZOS_INVALID_ID);
}

// The module table holds as many tasks as the configuration's task count,
// five at the least, the layer's own included; one more is refused with
// its line, and a task put back makes room again.
TEST_F(ZosTest, FullModuleTableRefusesWithItsLine) {
    Zos_SysDestroy();
    Zos_CfgSetPrintDisp(ktest::PrintHook);
    ktest::UseTestLogDir();
    Zos_CfgSetTaskCount(1);
    ASSERT_EQ(Zos_SysInit(), ZOK);
    ktest::WatchSystemLog();
    std::vector<uint32_t> got;
    for (int i = 0; i < 6; ++i) {
        const uint32_t id = Zos_ModGetTask(("FULL" + std::to_string(i)).c_str(), 3);
        if (id == ZOS_INVALID_ID) break;
        got.push_back(id);
    }
    EXPECT_LT(got.size(), 5u);
    EXPECT_TRUE(ktest::LoggedContains("module no free task memory."));
    ASSERT_FALSE(got.empty());
    EXPECT_EQ(Zos_ModPutTask(got.back()), ZOK);
    got.back() = Zos_ModGetTask("FULL9", 3);
    EXPECT_NE(got.back(), ZOS_INVALID_ID);
    for (uint32_t id : got) EXPECT_EQ(Zos_ModPutTask(id), ZOK);
    // Records taken and released over and over keep no memory: the map
    // lets each id go.
    {
        const ktest::CountThisThread only;
        const ktest::FailingHeap heap;
        for (int i = 0; i < 500; ++i) {
            const uint32_t id = Zos_ModGetTask("CYCLE", 3);
            ASSERT_NE(id, ZOS_INVALID_ID);
            ASSERT_EQ(Zos_ModPutTask(id), ZOK);
        }
        EXPECT_TRUE(ktest::Eventually([] { return ktest::g_live == 0; }, std::chrono::seconds(10)))
            << ktest::g_live;
    }
}

// A task without a name is called after its record's place in the table;
// a released record keeps its place for the next task that takes it.
TEST_F(ZosTest, UnnamedTasksAreNamedAfterTheirRecord) {
    const uint32_t a = Zos_ModGetTask(nullptr, 3), b = Zos_ModGetTask("", 3);
    ASSERT_NE(a, ZOS_INVALID_ID);
    ASSERT_NE(b, ZOS_INVALID_ID);
    const std::string nameA = Zos_TaskGetName(a), nameB = Zos_TaskGetName(b);
    for (const std::string &n : {nameA, nameB})
        ASSERT_TRUE(n.size() == 6 && n.rfind("TASK", 0) == 0) << n;
    EXPECT_EQ(std::stoi(nameB.substr(4)), std::stoi(nameA.substr(4)) + 1) << nameA << " " << nameB;
    EXPECT_TRUE(ktest::LoggedContains(Tag(nameA, a) + " alloc ok."));
    ASSERT_EQ(Zos_ModPutTask(a), ZOK);
    const uint32_t c = Zos_ModGetTask(nullptr, 3);
    ASSERT_NE(c, ZOS_INVALID_ID);
    EXPECT_EQ(Zos_TaskGetName(c), nameA);
    EXPECT_EQ(Zos_ModPutTask(b) + Zos_ModPutTask(c), 2 * ZOK);
}

// ---- performs and the word layout ---------------------------------------------

TEST_F(ZosTest, PerformCallsRealPrototypesWithEveryArgumentKind) {
    const uint32_t t = Start("PERFORMER", 3, false);
    int anchor = 0;
    g_call.clear();
    ASSERT_EQ(Zos_ModPerformX(t, Fn(Mixed), "%hhd %hu %lld %s %u %p %d", -5, 65535, -0x123456789LL,
                              "text", 4000000000u, &anchor, -70000),
              ZOK);
    EXPECT_EQ(g_call, "-5,65535,-4886718345,text,4000000000," +
                          std::to_string(reinterpret_cast<uintptr_t>(&anchor)) + ",-70000");
    // 64-bit values after one 32-bit word each: on 32-bit ARM two padding
    // words.
    ASSERT_EQ(Zos_ModPerformX(t, Fn(Odd64), "%u %lld %u %llu", 7u, -2LL, 9u, 0xFEDCBA9876543210ULL),
              ZOK);
    EXPECT_EQ(g_call, "7,-2,9," + std::to_string(0xFEDCBA9876543210ULL));
    // The long and size kinds keep every bit of their word-sized values.
    ASSERT_EQ(Zos_ModPerformX(t, Fn(WithMem), "%*s %ld %lu %zu %hhu %hd", "memory", 3u, LONG_MIN,
                              ULONG_MAX, SIZE_MAX, 255u, -300),
              ZOK);
    EXPECT_EQ(g_call, "mem," + std::to_string(LONG_MIN) + "," + std::to_string(ULONG_MAX) + "," +
                          std::to_string(SIZE_MAX) + ",255,-300");
    // The narrow kinds pass their value cut to size, as the words show.
    ASSERT_EQ(Zos_ModPerformX(t, WordsFn(std::make_index_sequence<4>()), "%hhu %hu %hhd %hd",
                              0x1FFu, 0x1FFFFu, 0x180, 0x18000),
              ZOK);
    EXPECT_EQ(g_call, "255;65535;" + std::to_string(static_cast<uintptr_t>(-128)) + ";" +
                          std::to_string(static_cast<uintptr_t>(-32768)) + ";");
    ASSERT_EQ(
        Zos_ModPerformX(t, Fn(Nine), "%u%u%u%u%u%u%u%u%u", 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u),
        ZOK);
    EXPECT_EQ(g_call, "36/9");
    ASSERT_EQ(Zos_ModPerformX(t, Fn(NoArgs), nullptr), ZOK);
    EXPECT_EQ(g_call, "none");

    // Asynchronous: it has run once a later synchronous one has.
    g_call.clear();
    ASSERT_EQ(Zos_ModPerform(t, Fn(Odd64), "%u %lld %u %llu", 1u, 2LL, 3u, 4ULL), ZOK);
    ASSERT_EQ(Zos_ModPerformX(t, Fn(NoArgs), ""), ZOK);
    EXPECT_EQ(g_call, "none");
    ktest::ClearLogged();
    EXPECT_EQ(Zos_ModPerform(t, Fn(NoArgs), "%q"), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("EvntCreateFmtSX unknown type 113."));
    EXPECT_TRUE(ktest::LoggedContains("ModPerform create event."));
    EXPECT_EQ(Zos_ModTaskPerform(t, nullptr, ZOS_MSG_TYPE_PERFORM), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("TaskPerform null event"));
    EXPECT_EQ(Zos_ModPerform(0x7FFF0000, Fn(NoArgs), ""), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModTaskPerform send message."));
}

// Only a started module task has a lock of its own, and a perform for the
// task waits while another thread holds that lock.
std::atomic<bool> g_lockedRan{false};
void MarkLockedRan() {
    g_lockedRan = true;
}

TEST_F(ZosTest, TaskLockHeldKeepsPerformsWaiting) {
    EXPECT_EQ(Zos_ModTaskLock(0x7FFF0000), ZFAILED);
    const uint32_t bare = Zos_ModGetTask("LOCKLESS", 3);
    ASSERT_NE(bare, ZOS_INVALID_ID);
    EXPECT_EQ(Zos_ModTaskLock(bare), ZFAILED);
    EXPECT_EQ(Zos_ModTaskUnlock(bare), ZFAILED);
    EXPECT_EQ(Zos_ModPutTask(bare), ZOK);

    const uint32_t t = Start("LOCKED", 3, false);
    ASSERT_EQ(Zos_ModTaskLock(t), ZOK);
    g_lockedRan = false;
    ASSERT_EQ(Zos_ModPerform(t, Fn(MarkLockedRan), ""), ZOK);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(g_lockedRan) << "ran while the task's lock was held";
    ASSERT_EQ(Zos_ModTaskUnlock(t), ZOK);
    EXPECT_TRUE(Eventually([] { return g_lockedRan.load(); }));
}

TEST_F(ZosTest, InvokeWordLayoutAndLimits) {
    void *ev = Zos_EvntCreate();
    ASSERT_EQ(Zos_EParmSetUint(ev, 0, 7), ZOK);
    ASSERT_EQ(Zos_EParmSetInt64(ev, 1, -2), ZOK);
    ASSERT_EQ(Zos_EParmSetInt(ev, 2, -1), ZOK);
    uint32_t n = 0;
    uintptr_t *w = Zos_ModStrToArray(ev, "%u %lld %d", &n);
    ASSERT_NE(w, nullptr);
    if (sizeof(uintptr_t) == 8) {
        ASSERT_EQ(n, 3u);
        EXPECT_EQ(w[1], static_cast<uintptr_t>(-2));
    } else {
#if defined(__arm__)
        ASSERT_EQ(n, 5u);  // 7, padding, low, high, -1
        EXPECT_EQ(w[1], 0u);
        EXPECT_EQ(w[2], 0xFFFFFFFEu);
        EXPECT_EQ(w[3], 0xFFFFFFFFu);
#endif
    }
    EXPECT_EQ(w[0], 7u);
    EXPECT_EQ(w[n - 1], static_cast<uintptr_t>(-1));  // sign-extended
    Zos_Free(w);
    EXPECT_EQ(Zos_ModStrToArray(ev, "%d %x", &n), nullptr);
    EXPECT_EQ(n, 0u);  // no words
    EXPECT_TRUE(ktest::LoggedContains("ModStrToArray unknown type 120."));
    Zos_EvntDelete(ev);

    uintptr_t ten[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    g_call.clear();
    EXPECT_EQ(Zos_ModEvntInvoke(Fn(Nine), ten, 10), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModTaskEntry too many parameters 10."));
    EXPECT_EQ(g_call, "");
    EXPECT_EQ(Zos_ModEvntInvoke(Fn(Nine), ten, 9), ZOK);
    EXPECT_EQ(g_call, "36/9");
    EXPECT_EQ(Zos_ModEvntInvoke(nullptr, ten, 1), ZFAILED);
    // No words is a call without arguments; words promised but not given
    // are refused before the call.
    g_call.clear();
    EXPECT_EQ(Zos_ModEvntInvoke(Fn(Nine), nullptr, 9), ZFAILED);
    EXPECT_EQ(g_call, "");
    EXPECT_EQ(Zos_ModEvntInvoke(Fn(NoArgs), nullptr, 0), ZOK);
    EXPECT_EQ(g_call, "none");
    // Every count reaches the function with its words in order.
    const PFN_ZOS_MOD_FUNC byCount[] = {
        WordsFn(std::make_index_sequence<1>()), WordsFn(std::make_index_sequence<2>()),
        WordsFn(std::make_index_sequence<3>()), WordsFn(std::make_index_sequence<4>()),
        WordsFn(std::make_index_sequence<5>()), WordsFn(std::make_index_sequence<6>()),
        WordsFn(std::make_index_sequence<7>()), WordsFn(std::make_index_sequence<8>()),
        WordsFn(std::make_index_sequence<9>())};
    std::string want;
    for (uint32_t n = 1; n <= 9; ++n) {
        want += std::to_string(ten[n - 1]) + ";";
        g_call.clear();
        EXPECT_EQ(Zos_ModEvntInvoke(byCount[n - 1], ten, n), ZOK);
        EXPECT_EQ(g_call, want) << n;
    }
    void *bare = Zos_EvntCreate();
    EXPECT_EQ(Zos_ModEvntProc(bare), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModEvntProc invalid parameter."));
    Zos_EvntDelete(bare);
}

namespace {
uint32_t g_selfTask = 0;
std::atomic<int> g_selfDone{0};
void Inner() {
    g_selfDone = 1;
}
int32_t PerformOnSelf(void *) {
    // From the target task itself: runs at once instead of waiting forever.
    Zos_ModPerformX(g_selfTask, Fn(Inner), "");
    g_selfDone = g_selfDone == 1 ? 2 : -1;
    return 0;
}
std::mutex g_pubLock;
std::vector<std::string> g_pub;
uint32_t g_pubTasks[4];
// Notes what arrived and whether it runs on the subscriber's task (the
// third subscriber's task is drained by MOD_MGR).
void OnPub(const char *name, size_t data, int32_t value, const char *text, uint32_t last) {
    const uint32_t runner = data == 3 ? Zos_TaskGetTaskId("MOD_MGR") : g_pubTasks[data];
    const bool right = Zos_TaskIsCurrent(runner) != 0;
    std::lock_guard<std::mutex> lock(g_pubLock);
    g_pub.push_back(std::string(name) + "/" + std::to_string(data) + "/" + std::to_string(value) +
                    "/" + text + "/" + std::to_string(last) + (right ? "/on task" : "/elsewhere"));
}
}  // namespace

TEST_F(ZosTest, SynchronousPerformFromTheTargetTaskRunsAtOnce) {
    g_selfDone = 0;
    g_selfTask = Start("SELF", 3, false, PerformOnSelf);
    ASSERT_EQ(Zos_MsgSendX(g_selfTask, g_selfTask, 1, 0, nullptr, 0), ZOK);
    ASSERT_TRUE(Eventually([] { return g_selfDone != 0 && g_selfDone != 1; }));
    EXPECT_EQ(g_selfDone, 2);
}

TEST_F(ZosTest, PublishReachesThreeSubscribersOnThreeTasks) {
    g_pub.clear();
    Zos_CfgSetLogLevel(0xF);  // warnings too
    const uint32_t t1 = Start("PUB1", 3, false), t2 = Start("PUB2", 3, false);
    const uint32_t t3 = Start("PUB3", 3, true);
    g_pubTasks[1] = t1;
    g_pubTasks[2] = t2;
    g_pubTasks[3] = t3;
    EXPECT_EQ(Zos_ModSubEvnt("call.up", t1, Fn(OnPub), 1), ZOK);
    EXPECT_EQ(Zos_ModSubEvnt("call.up", t2, Fn(OnPub), 2), ZOK);
    EXPECT_EQ(Zos_ModSubEvnt("call.up", t3, Fn(OnPub), 3), ZOK);
    EXPECT_EQ(Zos_ModSubEvnt("call.up", t3, Fn(OnPub), 3), ZOK);  // already there
    EXPECT_TRUE(ktest::LoggedContains("ModEhSub entry call.up exist suber "));
    EXPECT_EQ(Zos_ModSubEvnt("", t1, Fn(OnPub), 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModSubEvnt invalid event name."));
    EXPECT_EQ(Zos_ModSubEvnt("x", t1, nullptr, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModSubEvnt null parameter."));

    // The publish copies the format behind a prefix of its own. Eight
    // characters fill that copy's block exactly (the heap rounds sizes to
    // 4 bytes), so a copy that runs over it does not go unseen.
    EXPECT_EQ(Zos_ModPubEvnt("call.up", "%d %s %u", -42, "hello", 7u), ZOK);
    EXPECT_TRUE(ktest::LoggedContains("ModPubEvnt event call.up."));
    ASSERT_TRUE(Eventually([] {
        std::lock_guard<std::mutex> lock(g_pubLock);
        return g_pub.size() == 3;
    }));
    std::vector<std::string> got;
    {
        std::lock_guard<std::mutex> lock(g_pubLock);
        got = g_pub;
    }
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"call.up/1/-42/hello/7/on task",
                                             "call.up/2/-42/hello/7/on task",
                                             "call.up/3/-42/hello/7/on task"}));
    EXPECT_EQ(Zos_ModPubEvnt("nobody", "%d", 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModPubEvnt no subscriber nobody."));
    // A subscriber that is not there, whatever else differs, is refused.
    EXPECT_EQ(Zos_ModUnSubEvnt("call.up", t1, Fn(OnPub), 9), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModEhUnSub entry call.up no suber "));
    // Unsubscribing the last subscriber removes the entry.
    for (uint32_t t : {t1, t2, t3}) {
        EXPECT_EQ(Zos_ModUnSubEvnt("call.up", t, Fn(OnPub), t == t1 ? 1 : t == t2 ? 2 : 3), ZOK);
    }
    EXPECT_EQ(Zos_ModEhFindEntry("call.up"), nullptr);
    EXPECT_EQ(Zos_ModUnSubEvnt("call.up", t1, Fn(OnPub), 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModEhUnSub no entry call.up."));
    EXPECT_EQ(Zos_ModPubEvnt("call.up", "%d", 1), ZFAILED);
    // An entry made and deleted directly: found while it lives, gone after.
    // Its name's length is a multiple of 4, a size the heap does not round
    // up: a copy with no room for the terminator writes past the block, as
    // AddressSanitizer reports.
    const std::string direct32(32, 'd');
    void *direct = Zos_ModEhCreateEntry(direct32.c_str());
    ASSERT_NE(direct, nullptr);
    EXPECT_EQ(Zos_ModEhFindEntry(direct32.c_str()), direct);
    EXPECT_EQ(Zos_ModEhDeleteEntry(direct), ZOK);
    EXPECT_EQ(Zos_ModEhFindEntry(direct32.c_str()), nullptr);
    EXPECT_EQ(Zos_ModEhDeleteEntry(nullptr), ZFAILED);
    EXPECT_EQ(Zos_ModEhCreateEntry(nullptr), nullptr);
    EXPECT_EQ(Zos_ModEhFindEntry(nullptr), nullptr);
    // Subscriptions still held at shut-down are released with the hub.
    EXPECT_EQ(Zos_ModSubEvnt("left.over", t1, Fn(OnPub), 1), ZOK);
}

// The hub taken down before shut-down: its subscriptions go with it, and a
// second take-down (shut-down makes one more) finds nothing to delete.
TEST_F(ZosTest, EventHubTakenDownEarlyRefusesQuietly) {
    const uint32_t t = Start("HUBDOWN", 3, false);
    // The hub made again while it stands is the same hub: what it holds
    // stays, and no second hub's memory is taken.
    ASSERT_EQ(Zos_ModSubEvnt("kept", t, Fn(OnPub), 1), ZOK);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_ModEhInit(), ZOK);
    EXPECT_FALSE(ktest::LoggedContains("ModEhInit hub."));
    EXPECT_NE(Zos_ModEhFindEntry("kept"), nullptr);
    {
        // Every block the subscription took is given back with the hub.
        const ktest::CountThisThread only;
        {
            const ktest::FailingHeap heap;
            ASSERT_EQ(Zos_ModSubEvnt("early", t, Fn(OnPub), 1), ZOK);
            EXPECT_GT(ktest::g_live, 0);
            Zos_ModEhDestroy();
        }
        EXPECT_TRUE(ktest::Eventually([] { return ktest::g_live == 0; }, std::chrono::seconds(10)))
            << ktest::g_live;
    }
    ktest::ClearLogged();
    Zos_ModEhDestroy();
    EXPECT_EQ(Zos_ModEhFindEntry("early"), nullptr);
    EXPECT_EQ(Zos_ModEhSub("early", t, Fn(OnPub), 1), ZFAILED);
    EXPECT_EQ(Zos_ModPubEvnt("early", "%d", 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("ModPubEvnt no subscriber early."));
    EXPECT_FALSE(ktest::LoggedContains("invalid id"));
}

TEST_F(ModHost, StopNotificationThroughTheSharedQueue) {
    // A name cut to the 18 characters kept reaches the exit callback whole.
    const uint32_t a = Start("NOTIFIED_THROUGH_THE_QUEUE", 3, true);
    Zos_MsgSendX(a, a, 1, 0, nullptr, 0);
    // The stop block goes in at level 0, ahead of the message, and only once.
    EXPECT_EQ(Zos_ModTaskNtfyDelete(a), ZOK);
    EXPECT_EQ(Zos_ModTaskNtfyDelete(a), ZOK);
    Zos_ModDriveMsg();
    EXPECT_EQ(g_exits, std::vector<std::string>{"NOTIFIED_THROUGH_T"});
    EXPECT_EQ(Zos_TaskGetState(a), ZOS_TASK_DELETED);
    EXPECT_EQ(Zos_ModTaskIsRun(a), 0u);
    Zos_ModDriveMsg();  // the message: its task has stopped, it is dropped
    Zos_ModDriveMsg();  // nothing left (the second notification was not queued)
    EXPECT_TRUE(SeenNow().empty());
    EXPECT_EQ(Zos_ModTaskNtfyDelete(0x7FFF0000), ZFAILED);
    EXPECT_EQ(Zos_ModPutTask(a), ZOK);

    // A notice for a task that is no module task is taken from the queue
    // and leaves that task as it was.
    uint32_t plain = ZOS_INVALID_ID;
    const PFN_ZOS_TASK_ENTRY untilAsked = [](ST_ZOS_TASK_START *start) -> uint32_t {
        for (;;) {
            const uint32_t st = __atomic_load_n(&start->uiState, __ATOMIC_ACQUIRE);
            if (st == ZOS_TASK_WAIT_DELETE || st == ZOS_TASK_DELETED) return 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    ASSERT_EQ(Zos_TaskSpawn("PLAIN_NOTICE", 4, 0, untilAsked, 0, &plain), ZOK);
    ASSERT_TRUE(ktest::Eventually([plain] { return Zos_TaskGetState(plain) == ZOS_TASK_RUNNING; }));
    EXPECT_EQ(Zos_ModTaskNtfyDelete(plain), ZOK);
    Zos_ModDriveMsg();
    EXPECT_EQ(Zos_TaskGetState(plain), ZOS_TASK_RUNNING);
    EXPECT_EQ(g_exits, std::vector<std::string>{"NOTIFIED_THROUGH_T"});
    EXPECT_EQ(Zos_TaskDelete(plain), ZOK);
}

TEST_F(ZosTest, DeferredCallsOfAThreadedTaskRunAfterItsMessage) {
    ClearSeen();
    const uint32_t t = Start("LEAVE_OWN", 3, false, LeaveThenRecord);
    ASSERT_EQ(Zos_MsgSendX(t, t, 1, 0, nullptr, 0), ZOK);
    ASSERT_EQ(Zos_MsgSendX(t, t, 2, 0, nullptr, 0), ZOK);
    ASSERT_TRUE(Eventually([] { return SeenNow().size() == 4; }));
    EXPECT_EQ(SeenNow(), (std::vector<std::string>{"LEAVE_OWN:1", "deferred:9:abc", "LEAVE_OWN:2",
                                                   "deferred:9:abc"}));
}
