// File module: files, directories, missing slots and the safe save under
// injected failures.
#include <algorithm>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

uint32_t FailingRename(const char *, const char *) {
    return ZFAILED;
}
uint32_t FailingRemove(const char *) {
    return ZFAILED;
}
uint32_t FailingFlush(uintptr_t) {
    return ZFAILED;
}
uint32_t ShortWrite(uintptr_t f, const void *p, uint32_t n, uint32_t *done) {
    return Zpand_FileWrite(f, p, n / 2, done);
}

std::string Load(const std::string &path) {
    ZFILE f = 0;
    if (Zfile_Open(path.c_str(), "rb", &f) != ZOK) return "<missing>";
    std::string out;
    char buf[7];
    uint32_t got = 0;
    while (Zfile_Read(f, buf, sizeof(buf), &got) == ZOK && got != 0) out.append(buf, got);
    Zfile_Close(f);
    return out;
}

}  // namespace

TEST_F(ZosTest, FilesReadWriteSeekAndLines) {
    const std::string dir = ktest::FreshDir("file");
    const std::string path = dir + "/a.txt";
    ZFILE f = 7;
    EXPECT_EQ(Zfile_Open(path.c_str(), "rb", &f), ZFAILED);  // not there yet
    EXPECT_EQ(f, 0u);
    EXPECT_TRUE(ktest::LoggedContains("FileOpen open <" + path + "> mode <rb> failed."));
    EXPECT_EQ(Zfile_IsExist(path.c_str()), 0u);

    ASSERT_EQ(Zfile_Open(path.c_str(), "wb", &f), ZOK);
    EXPECT_EQ(
        Zfile_Write(f, "one\ntwo\n", 8) + Zfile_Write(f, nullptr, 0) + Zfile_Write(f, "three", 5),
        ZOK);
    int64_t pos = -1;
    EXPECT_TRUE(Zfile_Tell(f, &pos) == ZOK && pos == 13);
    EXPECT_EQ(Zfile_Flush(f) + Zfile_Close(f), ZOK);

    uint64_t size = 0;
    ST_ZOS_FILE_STAT st{};
    EXPECT_TRUE(Zfile_Size(path.c_str(), &size) == ZOK && size == 13u);
    EXPECT_TRUE(Zfile_Stat(path.c_str(), &st) == ZOK && st.ucIsDir == 0 && st.ullSize == 13u);
    EXPECT_EQ(
        Zfile_IsExist(path.c_str()) * 4 + Zfile_IsDir(path.c_str()) * 2 + Zfile_IsDir(dir.c_str()),
        5u);

    // Lines come with their ends; a short buffer gives a line in pieces.
    ASSERT_EQ(Zfile_Open(path.c_str(), "rb", &f), ZOK);
    char line[4];
    EXPECT_TRUE(Zfile_Gets(f, line, sizeof(line)) == ZOK && std::string(line) == "one");
    EXPECT_TRUE(Zfile_Gets(f, line, sizeof(line)) == ZOK && std::string(line) == "\n");
    EXPECT_EQ(Zfile_Seek(f, -5, ZFILE_SEEK_END), ZOK);
    char rest[16] = {};
    uint32_t got = 0;
    EXPECT_EQ(Zfile_Eof(f), 0u);
    EXPECT_TRUE(Zfile_Read(f, rest, sizeof(rest), &got) == ZOK && got == 5u);
    EXPECT_STREQ(rest, "three");
    EXPECT_EQ(Zfile_Eof(f), 1u);
    EXPECT_EQ(Zfile_Gets(f, line, sizeof(line)), ZFAILED);  // end of file
    EXPECT_EQ(Zfile_Seek(f, 0, 9), ZFAILED);                // unknown origin
    EXPECT_EQ(Zfile_Seek(f, 4, ZFILE_SEEK_SET), ZOK);
    EXPECT_EQ(Zfile_Read(f, rest, 3, &got), ZOK);
    EXPECT_EQ(std::string(rest, 3), "two");
    EXPECT_EQ(Zfile_Close(f), ZOK);

    // Rename replaces the target; remove; null and zero handles fail.
    const std::string other = dir + "/b.txt";
    EXPECT_EQ(Zfile_Rename(path.c_str(), other.c_str()), ZOK);
    EXPECT_EQ(Zfile_IsExist(path.c_str()), 0u);
    EXPECT_EQ(Load(other), "one\ntwo\nthree");
    EXPECT_EQ(Zfile_Remove(other.c_str()), ZOK);
    ZDIR d = 0;
    for (uint32_t rc :
         {Zfile_Remove(other.c_str()), Zfile_Close(0), Zfile_Write(0, "x", 1),
          Zfile_Read(0, rest, 1, &got), Zfile_Tell(0, &pos), Zfile_Size(nullptr, &size),
          Zfile_Open(nullptr, "rb", &f), Zfile_Flush(0), Zfile_Gets(0, line, 4),
          Zfile_Seek(0, 0, ZFILE_SEEK_SET), Zfile_Rename(nullptr, "x"), Zfile_DirOpen(nullptr, &d),
          Zfile_DirRead(0, line, 4), Zfile_DirRemove(nullptr)}) {
        EXPECT_EQ(rc, ZFAILED);
    }
    EXPECT_EQ(Zfile_Eof(0), 1u);
    EXPECT_EQ(ktest::NotLogged("",
                               {"FileOpen null parameter(s)", "FileClose invalid id",
                                "FileRead null parameter(s)", "FileWrite null parameter(s)",
                                "FileFlush invalid id", "FileGets null parameter(s)",
                                "FileSeek invalid parameter(s)", "FileTell null parameter(s)",
                                "FileSize null parameter(s)", "FileRename null parameter(s)",
                                "DirOpen null parameter(s)", "DirRead null parameter(s)",
                                "DirRemove null parameter(s)"},
                               "."),
              "");
    // A size that cannot be had reads 0, whatever the caller held, even
    // from a platform call that fails without writing it.
    ZOS_OSDEP_FUNC sizeSlot = ktest::Slot(25);
    for (const auto fn : {sizeSlot, reinterpret_cast<ZOS_OSDEP_FUNC>(+[](const char *, uint64_t *) {
                              return static_cast<uint32_t>(ZFAILED);
                          })}) {
        ktest::Slot(25) = fn;
        size = 77;
        EXPECT_EQ(Zfile_Size(other.c_str(), &size), ZFAILED);
        EXPECT_TRUE(ktest::LoggedContains("FileSize <" + other + "> failed."));
        EXPECT_EQ(size, 0u);
    }
    ktest::Slot(25) = sizeSlot;
}

TEST_F(ZosTest, DirectoriesAndEmptySlots) {
    const std::string dir = ktest::FreshDir("dirs");
    const std::string sub = dir + "/sub";
    EXPECT_EQ(Zfile_DirMake(sub.c_str()), ZOK);
    EXPECT_EQ(Zfile_DirMake(sub.c_str()), ZFAILED);  // exists
    EXPECT_TRUE(ktest::LoggedContains("DirMake <" + sub + "> failed."));
    ktest::ClearLogged();
    EXPECT_EQ(Zfile_DirMake(nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DirMake null parameter(s)."));
    EXPECT_EQ(Zfile_Remove(nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("FileRemove null parameter(s)."));
    EXPECT_EQ(Zfile_SaveSafe((dir + "/x").c_str(), "1", 1), ZOK);
    EXPECT_EQ(Zfile_SaveSafe((dir + "/y").c_str(), nullptr, 0), ZOK);  // an empty file

    ZDIR d = 0;
    ASSERT_EQ(Zfile_DirOpen(dir.c_str(), &d), ZOK);
    std::vector<std::string> names;
    char name[64];
    while (Zfile_DirRead(d, name, sizeof(name)) == ZOK) names.emplace_back(name);
    EXPECT_EQ(Zfile_DirClose(d), ZOK);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"sub", "x", "y"}));
    EXPECT_EQ(Zfile_DirRemove(dir.c_str()), ZFAILED);  // not empty
    EXPECT_TRUE(ktest::LoggedContains("DirRemove <" + dir + "> failed."));
    EXPECT_EQ(Zfile_DirRemove(sub.c_str()), ZOK);
    EXPECT_EQ(Zfile_DirOpen(sub.c_str(), &d), ZFAILED);
    EXPECT_EQ(d, 0u);
    ktest::ClearLogged();
    EXPECT_EQ(Zfile_DirClose(d), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("DirClose invalid id."));
    // A platform open that answers success without a directory, or a
    // directory with a failure, opens nothing.
    {
        ZOS_OSDEP_FUNC open = ktest::Slot(27);
        for (const auto odd : {+[](const char *, uintptr_t *dir) -> uint32_t {
                                   *dir = 0;
                                   return ZOK;
                               },
                               +[](const char *, uintptr_t *dir) -> uint32_t {
                                   *dir = 0x10;
                                   return ZFAILED;
                               }}) {
            ktest::Slot(27) = reinterpret_cast<ZOS_OSDEP_FUNC>(odd);
            ktest::ClearLogged();
            d = 7;
            EXPECT_EQ(Zfile_DirOpen(dir.c_str(), &d), ZFAILED);
            EXPECT_EQ(d, 0u);
            EXPECT_TRUE(ktest::LoggedContains("DirOpen open <" + dir + "> failed."));
        }
        ktest::Slot(27) = open;
    }

    // An empty platform slot is a failure, never a crash.
    ktest::ClearLogged();
    ZOS_OSDEP_FUNC saved = ktest::Slot(26);
    ktest::Slot(26) = nullptr;
    EXPECT_EQ(Zfile_IsExist(dir.c_str()), 0u);
    ST_ZOS_FILE_STAT st{};
    EXPECT_EQ(Zfile_Stat(dir.c_str(), &st), ZFAILED);
    ktest::Slot(26) = saved;
    EXPECT_TRUE(ktest::LoggedContains("FileStat null parameter(s)."));
    EXPECT_EQ(ktest::Logged().size(), 1u);  // the predicate stays quiet
}

TEST_F(ZosTest, SafeSaveKeepsTheOldFileWhenAnyStepFails) {
    const std::string dir = ktest::FreshDir("safe");
    const std::string path = dir + "/state.ini";
    const std::string tmp = path + ".tmp";
    ASSERT_EQ(Zfile_SaveSafe(path.c_str(), "old content", 11), ZOK);
    EXPECT_EQ(Zfile_IsExist(tmp.c_str()), 0u);

    // The rename, the disk flush or a short write fails: the old file is
    // intact and no temporary file remains.
    struct Fault {
        uint32_t slot;
        ZOS_OSDEP_FUNC fn;
    };
    const Fault faults[] = {{17, reinterpret_cast<ZOS_OSDEP_FUNC>(FailingRename)},
                            {21, reinterpret_cast<ZOS_OSDEP_FUNC>(FailingFlush)},
                            {20, reinterpret_cast<ZOS_OSDEP_FUNC>(ShortWrite)}};
    for (const Fault &fault : faults) {
        ZOS_OSDEP_FUNC saved = ktest::Slot(fault.slot);
        ktest::Slot(fault.slot) = fault.fn;
        EXPECT_EQ(Zfile_SaveSafe(path.c_str(), "new content!", 12), ZFAILED) << fault.slot;
        ktest::Slot(fault.slot) = saved;
        EXPECT_EQ(Load(path), "old content") << fault.slot;
        EXPECT_EQ(Zfile_IsExist(tmp.c_str()), 0u) << fault.slot;
    }
    EXPECT_TRUE(ktest::LoggedContains("FileSaveCommit <" + path + "> not saved."));

    // A save interrupted after its data (the process died before the
    // rename) leaves the temporary file; recovery removes it and keeps the
    // target's last committed content.
    ZFILE f = 0;
    ASSERT_EQ(Zfile_SaveBegin(path.c_str(), &f), ZOK);
    ASSERT_EQ(Zfile_Write(f, "half", 4), ZOK);
    ASSERT_EQ(Zfile_Close(f), ZOK);
    EXPECT_EQ(Load(tmp), "half");
    ZOS_OSDEP_FUNC remove = ktest::Slot(15);  // a leftover that cannot be removed
    ktest::Slot(15) = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingRemove);
    EXPECT_EQ(Zfile_SaveRecover(path.c_str()), ZFAILED);
    ktest::Slot(15) = remove;
    EXPECT_TRUE(ktest::LoggedContains("FileRemove <" + tmp + "> failed."));
    EXPECT_EQ(Zfile_SaveRecover(path.c_str()), ZOK);
    EXPECT_EQ(Zfile_IsExist(tmp.c_str()), 0u);
    EXPECT_EQ(Load(path), "old content");
    EXPECT_EQ(Zfile_SaveRecover(path.c_str()), ZOK);  // nothing left to do

    // Streamed save: begin, several writes, commit; abort discards.
    ASSERT_EQ(Zfile_SaveBegin(path.c_str(), &f), ZOK);
    Zfile_Write(f, "a=1\n", 4);
    Zfile_Write(f, "b=2\n", 4);
    EXPECT_EQ(Zfile_SaveCommit(path.c_str(), f), ZOK);
    EXPECT_EQ(Load(path), "a=1\nb=2\n");
    ASSERT_EQ(Zfile_SaveBegin(path.c_str(), &f), ZOK);
    Zfile_Write(f, "discarded", 9);
    EXPECT_EQ(Zfile_SaveAbort(path.c_str(), f), ZOK);
    EXPECT_EQ(Load(path), "a=1\nb=2\n");
    EXPECT_EQ(Zfile_IsExist(tmp.c_str()), 0u);

    for (uint32_t rc :
         {Zfile_SaveSafe(nullptr, "x", 1), Zfile_SaveSafe("", "x", 1),
          Zfile_SaveSafe(path.c_str(), nullptr, 1),
          Zfile_SaveSafe(std::string(ZFILE_PATH_MAX, 'p').c_str(), "x", 1),
          Zfile_SaveBegin(path.c_str(), nullptr), Zfile_SaveCommit(path.c_str(), 0)}) {
        EXPECT_EQ(rc, ZFAILED);
    }
    EXPECT_EQ(ktest::NotLogged("File",
                               {"SaveSafe null data", "SaveBegin invalid path",
                                "SaveCommit invalid parameter(s)"},
                               "."),
              "");
    EXPECT_EQ(Load(path), "a=1\nb=2\n");

    // The longest path taken is ZFILE_PATH_MAX - 5 characters: its temporary
    // name fills the buffer. "./" steps make a real path that long.
    std::string longest = dir + "/";
    while (ZFILE_PATH_MAX - 5 - longest.size() > 100) longest += "./";
    longest.append(ZFILE_PATH_MAX - 5 - longest.size(), 'l');
    EXPECT_EQ(Zfile_SaveSafe(longest.c_str(), "x", 1), ZOK);
    EXPECT_EQ(Load(longest), "x");
    EXPECT_EQ(Zfile_SaveSafe((longest + "l").c_str(), "x", 1), ZFAILED);
}
