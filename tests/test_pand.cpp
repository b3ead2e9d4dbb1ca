// The platform functions behind the table: threads, delays, files,
// directories, byte order and descriptor sets.
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "zos_test.h"

using Clock = std::chrono::steady_clock;

namespace {

long long MsToRun(uint32_t ms) {
    const auto t0 = Clock::now();
    Zpand_TaskDelay(ms);
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count();
}

struct SpawnProbe {
    std::atomic<int> ran{0};
    std::atomic<uint32_t> isCurrent{0};
    std::atomic<uint32_t> isMain{1};
    std::atomic<uintptr_t> self{0};
};

void ProbeEntry(uintptr_t arg) {
    auto *probe = reinterpret_cast<SpawnProbe *>(arg);
    while (probe->self == 0) std::this_thread::yield();
    probe->isCurrent = Zpand_TaskIsCurrent(probe->self);
    probe->isMain = Zpand_TaskIsMainThread();
    probe->ran = 1;
}

}  // namespace

TEST(Pand, DelayKeepsItsSchedulingAllowance) {
    EXPECT_GE(MsToRun(10), 10);
    const long long hundred = MsToRun(100);
    EXPECT_GE(hundred, 85);
    EXPECT_LT(hundred, 100);  // 15 ms less than asked for
}

TEST(Pand, PriorityLevelsMapOntoThePolicyRange) {
    EXPECT_EQ(Zpand_TaskMapPriority(1, 1, 99), 99);
    EXPECT_EQ(Zpand_TaskMapPriority(4, 1, 99), 50);
    EXPECT_EQ(Zpand_TaskMapPriority(8, 1, 99), 2);
    EXPECT_EQ(Zpand_TaskMapPriority(2, 1, 99), 75);
    EXPECT_EQ(Zpand_TaskMapPriority(6, 1, 99), 25);
    // A range that runs downwards moves the other way.
    EXPECT_EQ(Zpand_TaskMapPriority(8, 19, -20), 18);
    EXPECT_EQ(Zpand_TaskMapPriority(1, 0, 0), 0);
}

TEST(Pand, SpawnedThreadRunsAndKnowsItself) {
    Zos_OsenvLocateNew();  // this thread attached the environment: the main one
    EXPECT_EQ(Zpand_TaskIsMainThread(), 1u);
    SpawnProbe probe;
    uintptr_t thread = 0, handle = 0;
    ASSERT_EQ(Zpand_TaskSpawn("probe", 4, 64 * 1024, ProbeEntry,
                              reinterpret_cast<uintptr_t>(&probe), &thread, &handle),
              ZOK);
    EXPECT_EQ(thread, handle);
    probe.self = thread;
    const auto t0 = Clock::now();
    while (probe.ran == 0 && Clock::now() - t0 < std::chrono::seconds(10)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(probe.ran, 1);
    EXPECT_EQ(probe.isCurrent, 1u);
    EXPECT_EQ(probe.isMain, 0u);
    EXPECT_EQ(Zpand_TaskIsCurrent(thread), 0u);
    EXPECT_EQ(Zpand_TaskSpawn("none", 4, 0, nullptr, 0, nullptr, nullptr), ZFAILED);
    EXPECT_EQ(Zpand_TaskDelete(thread, 0), ZOK);
    EXPECT_EQ(Zpand_TaskDelete(thread, 1), ZFAILED);
    Zos_OsenvDetach();
}

TEST(Pand, FilesAndDirectories) {
    const std::string dir = ktest::TempDir() + "/pand";
    const std::string file = dir + "/a.txt";
    const std::string moved = dir + "/b.txt";
    Zpand_FileRemove(moved.c_str());
    Zpand_FileRemove(file.c_str());
    Zpand_DirRemove(dir.c_str());
    ASSERT_EQ(Zpand_DirMake(dir.c_str()), ZOK);
    EXPECT_EQ(Zpand_DirMake(dir.c_str()), ZFAILED);  // exists

    uintptr_t f = 0;
    EXPECT_EQ(Zpand_FileOpen((dir + "/missing").c_str(), "rb", &f), ZFAILED);
    EXPECT_EQ(f, 0u);
    ASSERT_EQ(Zpand_FileOpen(file.c_str(), "wb", &f), ZOK);
    uint32_t n = 0;
    EXPECT_EQ(Zpand_FileWrite(f, "line one\nline two\n", 18, &n), ZOK);
    EXPECT_EQ(n, 18u);
    EXPECT_EQ(Zpand_FileFlush(f), ZOK);
    int64_t pos = 0;
    EXPECT_EQ(Zpand_FileTell(f, &pos), ZOK);
    EXPECT_EQ(pos, 18);
    EXPECT_EQ(Zpand_FileClose(f), ZOK);

    uint64_t size = 0;
    EXPECT_EQ(Zpand_FileSize(file.c_str(), &size), ZOK);
    EXPECT_EQ(size, 18u);
    ST_ZOS_FILE_STAT st{};
    EXPECT_EQ(Zpand_FileStat(dir.c_str(), &st), ZOK);
    EXPECT_EQ(st.ucIsDir, 1);

    ASSERT_EQ(Zpand_FileOpen(file.c_str(), "rb", &f), ZOK);
    char line[64];
    EXPECT_EQ(Zpand_FileGets(f, line, sizeof(line)), ZOK);
    EXPECT_STREQ(line, "line one\n");
    EXPECT_EQ(Zpand_FileSeek(f, -4, ZPAND_SEEK_END), ZOK);
    char tail[8] = {};
    EXPECT_EQ(Zpand_FileRead(f, tail, 8, &n), ZOK);
    EXPECT_EQ(n, 4u);
    EXPECT_STREQ(tail, "two\n");
    EXPECT_EQ(Zpand_FileEof(f), 1u);
    EXPECT_EQ(Zpand_FileGets(f, line, sizeof(line)), ZFAILED);
    EXPECT_EQ(Zpand_FileSeek(f, 0, 9), ZFAILED);
    EXPECT_EQ(Zpand_FileClose(f), ZOK);

    EXPECT_EQ(Zpand_FileRename(file.c_str(), moved.c_str()), ZOK);
    uintptr_t d = 0;
    ASSERT_EQ(Zpand_DirOpen(dir.c_str(), &d), ZOK);
    char name[8];
    EXPECT_EQ(Zpand_DirRead(d, name, sizeof(name)), ZOK);  // "." and ".." skipped
    EXPECT_STREQ(name, "b.txt");
    EXPECT_EQ(Zpand_DirRead(d, name, sizeof(name)), ZFAILED);
    EXPECT_EQ(Zpand_DirClose(d), ZOK);
    EXPECT_EQ(Zpand_DirRemove(dir.c_str()), ZFAILED);  // not empty
    EXPECT_EQ(Zpand_FileRemove(moved.c_str()), ZOK);
    EXPECT_EQ(Zpand_FileRemoveX(dir.c_str()), ZOK);
    EXPECT_EQ(Zpand_FileStat(dir.c_str(), &st), ZFAILED);
    EXPECT_EQ(Zpand_FileRead(0, line, 1, &n), ZFAILED);
    EXPECT_EQ(Zpand_FileClose(0), ZFAILED);
}

TEST(Pand, ByteOrderAndDescriptorSets) {
    EXPECT_EQ(Zpand_InetHtonl(0x01020304u), Zpand_InetNtohl(0x01020304u));
    const uint32_t net = Zpand_InetHtonl(0x01020304u);
    unsigned char bytes[4];
    std::memcpy(bytes, &net, 4);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[3], 4);
    EXPECT_EQ(Zpand_InetNtohs(Zpand_InetHtons(0xABCD)), 0xABCD);

    uintptr_t a = 0, b = 0;
    ASSERT_EQ(Zpand_InetFdCreate(&a), ZOK);
    ASSERT_EQ(Zpand_InetFdCreate(&b), ZOK);
    EXPECT_EQ(Zpand_InetFdSet(5, a), ZOK);
    EXPECT_EQ(Zpand_InetFdSet(-1, a), ZFAILED);
    EXPECT_EQ(Zpand_InetFdCopy(b, a), ZOK);
    EXPECT_EQ(Zpand_InetFdIsset(5, b), 1u);
    EXPECT_EQ(Zpand_InetFdClr(5, b), ZOK);
    EXPECT_EQ(Zpand_InetFdIsset(5, b), 0u);
    EXPECT_EQ(Zpand_InetFdIsset(5, a), 1u);
    EXPECT_EQ(Zpand_InetFdZero(a), ZOK);
    EXPECT_EQ(Zpand_InetFdIsset(5, a), 0u);
    EXPECT_EQ(Zpand_InetFdDelete(a), ZOK);
    EXPECT_EQ(Zpand_InetFdDelete(b), ZOK);
}
