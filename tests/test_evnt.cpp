// Events: element slots, typed parameters and their storage rules, the
// registry defaults, the binary and text formats (from C and C++ callers),
// references, deleted handles and allocation failures.
#include <climits>
#include <cstring>
#include <string>

#include "zos_test.h"

extern "C" int KtestEvntTextFromC(void);
extern "C" int KtestEvntBinaryFromC(void);

namespace {

class EvntTest : public ZosTest {
  protected:
    void SetUp() override {
        ZosTest::SetUp();
        Zos_LogOpen(Zos_LogGetZosId(), ZOS_LOG_LEVEL_WARN);  // the warning texts too
        evt_ = Zos_EvntCreate();
        ASSERT_NE(evt_, nullptr);
    }
    void TearDown() override {
        Zos_EvntDelete(evt_);
        ZosTest::TearDown();
    }
    ZEVNT evt_ = nullptr;
};

using ktest::FailingMalloc;
using ktest::g_calls;
using ktest::g_failAt;
using ktest::g_live;

TEST_F(EvntTest, FreshEventReadsAbsentValues) {
    EXPECT_EQ(Zos_EParmGetMajorType(evt_), 0xFFFFFFFFu);
    EXPECT_EQ(Zos_EParmGetMinorType(evt_), 0xFFFFFFFFu);
    EXPECT_EQ(Zos_EParmGetStatType(evt_) | Zos_EParmGetStatCode(evt_) | Zos_EParmGetElemId(evt_),
              0u);
    uint32_t len = 9;
    EXPECT_EQ(Zos_EParmGetElemData(evt_, &len), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(Zos_EParmGetElemMem(evt_), nullptr);
    EXPECT_EQ(Zos_EParmGetElemDbuf(evt_), nullptr);
    EXPECT_EQ(Zos_EParmGetElemCookie(evt_), 0u);
    EXPECT_EQ(Zos_EvntGetMsgId(evt_), nullptr);
    EXPECT_EQ(Zos_EParmGetSendTaskId(evt_), ZOS_INVALID_ID);
    EXPECT_NE(Zos_EParmFindZ(evt_, 13), nullptr);
    EXPECT_EQ(Zos_EParmFindZ(evt_, 14), nullptr);
    EXPECT_EQ(Zos_EParmGetInt(evt_, 1), 0);
    EXPECT_EQ(Zos_EParmGetStr(evt_, 1), nullptr);
    EXPECT_TRUE(ktest::Logged().empty());

    EXPECT_EQ(Zos_EParmSetMajorType(evt_, 0), ZOK);
    EXPECT_EQ(Zos_EParmGetMajorType(evt_), 0u);
    EXPECT_EQ(Zos_EParmSetElemCookie(evt_, UINTPTR_MAX), ZOK);
    EXPECT_EQ(Zos_EParmGetElemCookie(evt_), UINTPTR_MAX);
}

TEST_F(EvntTest, ParameterIsNeverOverwrittenAndChainsKeepOrder) {
    EXPECT_EQ(Zos_EParmSetUint(evt_, 3, 11), ZOK);
    EXPECT_EQ(Zos_EParmSetUint(evt_, 3, 22), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("EParmSetUint exist parm"));
    EXPECT_EQ(Zos_EParmSetStr(evt_, 3, "x"), ZFAILED);
    EXPECT_EQ(Zos_EParmGetUint(evt_, 3), 11u);

    // 0, 7 and 14 share chain 0 and keep their order of arrival.
    ASSERT_EQ(Zos_EParmSetInt(evt_, 7, -7), ZOK);
    ASSERT_EQ(Zos_EParmSetInt(evt_, 0, -1), ZOK);
    ASSERT_EQ(Zos_EParmSetInt(evt_, 14, -14), ZOK);
    EXPECT_EQ(Zos_EParmGetInt(evt_, 0), -1);
    EXPECT_EQ(Zos_EParmGetInt(evt_, 7), -7);
    ST_ZOS_EPARM *seven = Zos_EParmFind(evt_, 7, nullptr);
    ASSERT_NE(seven, nullptr);
    ASSERT_NE(seven->pstNext, nullptr);
    EXPECT_EQ(seven->pstNext->uiId, 0u);
    EXPECT_EQ(seven->pstNext->pstNext->uiId, 14u);

    // Erasing the middle one keeps the others reachable; a stray node is refused.
    EXPECT_EQ(Zos_EParmErase(evt_, 0), ZOK);
    EXPECT_EQ(Zos_EParmErase(evt_, 0), ZFAILED);
    EXPECT_EQ(Zos_EParmGetInt(evt_, 14), -14);
    ST_ZOS_EPARM stray{};
    EXPECT_EQ(Zos_EParmRmv(evt_, &stray) + Zos_EParmRmv(evt_, nullptr), 2 * ZFAILED);
    ST_ZOS_EPARM *added = nullptr;
    ASSERT_EQ(Zos_EParmAdd(evt_, 0, &added), ZOK);
    EXPECT_EQ(seven->pstNext->pstNext, added);
    EXPECT_EQ(Zos_EParmRmv(evt_, added), ZOK);
    EXPECT_EQ(Zos_EParmSetInt(evt_, 0, 5), ZOK);  // free again after the erase
}

TEST_F(EvntTest, EveryKindThroughItsSetterAndLimits) {
    const uint16_t ustr[] = {0x4E2D, 0x6587, 0};
    int anchor = 0;
    EXPECT_EQ(Zos_EParmSetChar(evt_, 1, INT8_MIN) + Zos_EParmSetUchar(evt_, 2, UINT8_MAX) +
                  Zos_EParmSetShort(evt_, 3, INT16_MIN) + Zos_EParmSetUshort(evt_, 4, UINT16_MAX) +
                  Zos_EParmSetInt(evt_, 5, INT32_MIN) + Zos_EParmSetUint(evt_, 6, UINT32_MAX) +
                  Zos_EParmSetLong(evt_, 7, LONG_MIN) + Zos_EParmSetUlong(evt_, 8, ULONG_MAX) +
                  Zos_EParmSetInt64(evt_, 9, INT64_MIN + 1) +
                  Zos_EParmSetUint64(evt_, 10, 0x8000000000000001ull) +
                  Zos_EParmSetBool(evt_, 11, 7) + Zos_EParmSetNStr(evt_, 12, "abcdef", 3) +
                  Zos_EParmSetUstr(evt_, 13, ustr) + Zos_EParmSetMem(evt_, 14, "\0\1\2", 3) +
                  Zos_EParmSetPtr(evt_, 15, &anchor) + Zos_EParmSetCookie(evt_, 16, UINTPTR_MAX) +
                  Zos_EParmSetStr(evt_, 17, nullptr),
              ZOK);

    EXPECT_EQ(Zos_EParmGetChar(evt_, 1), INT8_MIN);
    EXPECT_EQ(Zos_EParmGetUchar(evt_, 2), UINT8_MAX);
    EXPECT_EQ(Zos_EParmGetShort(evt_, 3), INT16_MIN);
    EXPECT_EQ(Zos_EParmGetUshort(evt_, 4), UINT16_MAX);
    EXPECT_EQ(Zos_EParmGetInt(evt_, 5), INT32_MIN);
    EXPECT_EQ(Zos_EParmGetUint(evt_, 6), UINT32_MAX);
    EXPECT_EQ(Zos_EParmGetLong(evt_, 7), LONG_MIN);
    EXPECT_EQ(Zos_EParmGetUlong(evt_, 8), ULONG_MAX);
    EXPECT_EQ(Zos_EParmGetInt64(evt_, 9), INT64_MIN + 1);
    EXPECT_EQ(Zos_EParmGetUint64(evt_, 10), 0x8000000000000001ull);
    EXPECT_EQ(Zos_EParmGetBool(evt_, 11), 7u);
    uint32_t len = 0;
    EXPECT_STREQ(Zos_EParmGetNStr(evt_, 12, &len), "abc");
    EXPECT_EQ(len, 3u);
    const uint16_t *u = Zos_EParmGetNUStr(evt_, 13, &len);
    ASSERT_NE(u, ustr);
    EXPECT_EQ(len, 2u);
    EXPECT_EQ(std::memcmp(u, ustr, sizeof(ustr)), 0);
    const auto *mem = static_cast<const uint8_t *>(Zos_EParmGetMem(evt_, 14, &len));
    ASSERT_EQ(len, 3u);
    EXPECT_EQ(mem[0] + mem[1] * 10 + mem[2] * 100, 210);
    EXPECT_EQ(Zos_EParmGetPtr(evt_, 15), &anchor);
    EXPECT_EQ(Zos_EParmGetCookie(evt_, 16), UINTPTR_MAX);
    EXPECT_EQ(Zos_EParmGetStr(evt_, 17), nullptr);
    // Another kind without a registry reads 0 / null, silently.
    EXPECT_EQ(Zos_EParmGetUint(evt_, 12), 0u);
    EXPECT_EQ(Zos_EParmGetInt(evt_, 6), 0);
    EXPECT_EQ(Zos_EParmGetStr(evt_, 5), nullptr);
    EXPECT_TRUE(ktest::Logged().empty());
}

TEST_F(EvntTest, MemoryAndElementDataCopyOrBorrow) {
    char bytes[4] = {'a', 'b', 'c', 'd'};
    uint32_t len = 0;
    ASSERT_EQ(Zos_EParmSetMem(evt_, 1, nullptr, 40), ZOK);  // kept quirk: no copy, 40 bytes
    EXPECT_TRUE(ktest::LoggedContains("EParmSetMem null val"));
    ASSERT_FALSE(ktest::Logged().empty());
    EXPECT_EQ(ktest::Logged().front().level, ZOS_LOG_LEVEL_WARN);
    void *unset = Zos_EParmGetMem(evt_, 1, &len);
    EXPECT_EQ(len, 40u);
    EXPECT_EQ(Zos_CbufHoldD(Zos_EvntGetMemBuf(evt_), unset), 1u);
    ASSERT_EQ(Zos_EParmSetMem(evt_, 2, bytes, 0), ZOK);
    EXPECT_EQ(Zos_EParmGetMem(evt_, 2, &len), bytes);

    ASSERT_EQ(Zos_EParmSetElemData(evt_, bytes, 4), ZOK);
    void *copy = Zos_EParmGetElemData(evt_, &len);
    EXPECT_NE(copy, bytes);
    EXPECT_EQ(len, 4u);
    EXPECT_EQ(std::memcmp(copy, "abcd", 4), 0);
    ASSERT_EQ(Zos_EParmSetElemData(evt_, bytes, 0), ZOK);
    EXPECT_EQ(Zos_EParmGetElemData(evt_, &len), bytes);

    ZDBUF db = Zos_DbufCreate(nullptr, 1, 128);
    ASSERT_EQ(Zos_DbufPstAddStrD(db, "payload"), ZOK);
    EXPECT_EQ(Zos_EParmSetElemDataX(evt_, nullptr), ZFAILED);
    EXPECT_EQ(Zos_EParmSetElemDataX(nullptr, db), ZFAILED);
    ASSERT_EQ(Zos_EParmSetElemDataX(evt_, db), ZOK);
    // The length is read after the call that writes it, not beside it in one
    // argument list (GCC evaluates arguments right to left).
    const auto *data = static_cast<char *>(Zos_EParmGetElemData(evt_, &len));
    EXPECT_EQ(std::string(data, len), "payload");

    // Slot 7 owns its buffer: released with the event, handed back by Clr.
    ASSERT_EQ(Zos_DbufClone(db), db);
    ASSERT_EQ(Zos_EParmSetElemDbuf(evt_, db), ZOK);
    EXPECT_EQ(Zos_EParmGetElemDbuf(evt_), db);
    ASSERT_EQ(Zos_EParmClrElemDbuf(evt_), ZOK);
    EXPECT_EQ(Zos_EParmGetElemDbuf(evt_), nullptr);
    ASSERT_EQ(Zos_EParmSetElemDbuf(evt_, db), ZOK);
    EXPECT_EQ(Zos_DbufRefCnt(db), 2u);
    ASSERT_EQ(Zos_EParmSetElemDbuf(evt_, db), ZOK);  // the same one again: no release
    EXPECT_EQ(Zos_DbufRefCnt(db), 2u);
    // Another buffer in its place releases the slot's reference to it.
    ZDBUF other = Zos_DbufCreate(nullptr, 1, 64);
    ASSERT_EQ(Zos_EParmSetElemDbuf(evt_, other), ZOK);
    EXPECT_EQ(Zos_DbufRefCnt(db), 1u);
    // The event's end releases the slot's reference: of two, one is left.
    ASSERT_EQ(Zos_DbufClone(other), other);
    Zos_EvntDelete(evt_);
    evt_ = nullptr;
    EXPECT_EQ(Zos_DbufRefCnt(other), 1u);
    EXPECT_EQ(Zos_DbufRefCnt(db), 1u);
    Zos_DbufDelete(other);
    Zos_DbufDelete(db);
}

TEST_F(EvntTest, RegistryDefaultsForOtherKinds) {
    constexpr uint32_t kComp = 200;
    const uint32_t id = ZOS_EPARM_ID(kComp, 2);
    EXPECT_EQ(Zos_SysParmAttach(id, 0, "1"), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("SysParmAttach no attach."));
    EXPECT_EQ(Zos_SysEvntAttach(252, 4), ZFAILED);
    ASSERT_EQ(Zos_SysEvntAttach(kComp, 2), ZOK);
    EXPECT_EQ(Zos_SysEvntAttach(kComp, 2), ZFAILED);
    ASSERT_EQ(Zos_SysParmAttach(ZOS_EPARM_ID(kComp, 9), 0, "-3"), ZOK);
    ASSERT_EQ(Zos_SysParmAttach(id, 77, "42"), ZOK);  // row 1 holds number 2: found by search
    EXPECT_EQ(Zos_SysParmAttach(id, 0, "1"), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("SysParmAttach parm full."));
    ST_ZOS_SYS_EVNT *tbl = nullptr;
    ASSERT_EQ(Zos_SysEvntLocate(kComp, &tbl), ZOK);
    EXPECT_EQ(tbl->uiCount, 2u);

    ASSERT_EQ(Zos_EParmSetStr(evt_, id, "text"), ZOK);
    ASSERT_EQ(Zos_EParmSetUint(evt_, ZOS_EPARM_ID(kComp, 9), 5), ZOK);
    ASSERT_EQ(Zos_EParmSetStr(evt_, ZOS_EPARM_ID(kComp, 3), "x"), ZOK);
    EXPECT_EQ(Zos_EParmGetUint(evt_, id), 42u);
    EXPECT_EQ(Zos_EParmGetInt64(evt_, id), 42);
    EXPECT_EQ(Zos_EParmGetChar(evt_, id), 42);
    // Every narrower and wider kind reads the same default; "-3" only as
    // a signed one.
    const auto nine = ZOS_EPARM_ID(kComp, 9);
    EXPECT_EQ((std::vector<long>{Zos_EParmGetUchar(evt_, id), Zos_EParmGetShort(evt_, id),
                                 Zos_EParmGetUshort(evt_, id), Zos_EParmGetLong(evt_, id),
                                 static_cast<long>(Zos_EParmGetUlong(evt_, id))}),
              std::vector<long>(5, 42));
    EXPECT_EQ((std::vector<long>{Zos_EParmGetUchar(evt_, nine), Zos_EParmGetShort(evt_, nine),
                                 Zos_EParmGetUshort(evt_, nine), Zos_EParmGetLong(evt_, nine),
                                 static_cast<long>(Zos_EParmGetUlong(evt_, nine))}),
              (std::vector<long>{0, -3, 0, -3, 0}));
    EXPECT_EQ(Zos_EParmGetInt(evt_, ZOS_EPARM_ID(kComp, 9)), -3);
    EXPECT_EQ(Zos_EParmGetUint64(evt_, ZOS_EPARM_ID(kComp, 9)), 0u);  // "-3" is no unsigned
    EXPECT_STREQ(Zos_EParmGetStr(evt_, ZOS_EPARM_ID(kComp, 9)), "-3");
    EXPECT_EQ(Zos_EParmGetUstr(evt_, ZOS_EPARM_ID(kComp, 9)), nullptr);
    ST_ZOS_SYS_PARM *row = nullptr;
    EXPECT_EQ(Zos_EParmFind(evt_, id, &row)->uiKind, ZOS_EPARM_STR);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->zValue, 77u);
    ktest::ClearLogged();
    EXPECT_EQ(Zos_EParmGetUint(evt_, ZOS_EPARM_ID(kComp, 3)), 0u);
    EXPECT_TRUE(ktest::LoggedContains("SysParmLocate no parm<3>."));
    EXPECT_EQ(Zos_SysParmLocate(ZOS_EPARM_ID(252, 0), &row), ZFAILED);

    // The 64-bit kinds read their defaults up to the type's limits; one
    // past a limit reads as 0.
    constexpr uint32_t kWide = 201;
    const char *const wide[] = {"9223372036854775807", "-9223372036854775808",
                                "9223372036854775808", "18446744073709551615",
                                "18446744073709551616"};
    ASSERT_EQ(Zos_SysEvntAttach(kWide, 5), ZOK);
    for (uint32_t i = 0; i < 5; ++i) {
        ASSERT_EQ(Zos_SysParmAttach(ZOS_EPARM_ID(kWide, i), 0, wide[i]), ZOK);
        ASSERT_EQ(Zos_EParmSetStr(evt_, ZOS_EPARM_ID(kWide, i), "x"), ZOK);
    }
    EXPECT_EQ(Zos_EParmGetInt64(evt_, ZOS_EPARM_ID(kWide, 0)), INT64_MAX);
    EXPECT_EQ(Zos_EParmGetInt64(evt_, ZOS_EPARM_ID(kWide, 1)), INT64_MIN);
    EXPECT_EQ(Zos_EParmGetInt64(evt_, ZOS_EPARM_ID(kWide, 2)), 0);
    EXPECT_EQ(Zos_EParmGetUint64(evt_, ZOS_EPARM_ID(kWide, 3)), UINT64_MAX);
    EXPECT_EQ(Zos_EParmGetUint64(evt_, ZOS_EPARM_ID(kWide, 4)), 0u);
    EXPECT_EQ(Zos_SysEvntDetach(kWide), ZOK);
    EXPECT_EQ(Zos_SysEvntDetach(kComp), ZOK);
    EXPECT_EQ(Zos_SysEvntLocate(kComp, &tbl), ZFAILED);
    EXPECT_EQ(tbl, nullptr);
    EXPECT_EQ(Zos_EParmGetUint(evt_, id), 0u);
}

TEST_F(EvntTest, ReferencesStopAt65535) {
    for (uint32_t i = 1; i < ZOS_EVNT_REF_MAX; ++i) ASSERT_EQ(Zos_EvntClone(evt_), evt_);
    EXPECT_EQ(Zos_EvntClone(evt_), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("EvntClone too many reference."));
    Zos_EvntDelete(evt_);
    EXPECT_EQ(Zos_EvntClone(evt_), evt_);  // the count stayed at 65535
    for (uint32_t i = 1; i < ZOS_EVNT_REF_MAX; ++i) Zos_EvntDelete(evt_);
    EXPECT_EQ(Zos_EParmSetInt(evt_, 1, 1), ZOK);  // one reference left
}

TEST_F(EvntTest, DeletedEventIsRefused) {
    ZEVNT gone = evt_;
    Zos_EvntDelete(gone);
    evt_ = nullptr;
    ktest::ClearLogged();
    EXPECT_EQ(Zos_EParmSetInt(gone, 1, 1), ZFAILED);
    EXPECT_EQ(Zos_EParmGetStr(gone, 1), nullptr);
    EXPECT_EQ(Zos_EvntAlloc(gone, 8), nullptr);
    EXPECT_EQ(Zos_EvntGetMsgId(gone), nullptr);
    EXPECT_EQ(Zos_EParmFindZ(gone, 0), nullptr);
    EXPECT_EQ(Zos_EvntClone(gone), nullptr);
    // A refused getter still clears its length out.
    uint32_t lens[3] = {9, 9, 9};
    EXPECT_EQ(Zos_EParmGetMem(gone, 1, &lens[0]), nullptr);
    EXPECT_EQ(Zos_EParmGetNStr(gone, 1, &lens[1]), nullptr);
    EXPECT_EQ(Zos_EParmGetNUStr(gone, 1, &lens[2]), nullptr);
    EXPECT_EQ(lens[0] + lens[1] + lens[2], 0u);
    Zos_EvntDelete(gone);
    for (const char *text :
         {"EParmSetInt invalid id", "EParmGetStr invalid id", "EvntAlloc invalid id.",
          "EvntGetMsgId invalid id", "EParmFindZ invalid id", "EvntDelete invalid id."}) {
        EXPECT_TRUE(ktest::LoggedContains(text)) << text;
    }
    // Every other parameter call too: a failure or nothing, and its line.
    const uint16_t u[] = {'u', 0};
    ST_ZOS_EPARM some{};
    ST_ZOS_EPARM *added = &some;
    EXPECT_EQ(Zos_EParmSetStr(gone, 1, "x") + Zos_EParmSetNStr(gone, 1, "x", 1) +
                  Zos_EParmSetUstr(gone, 1, u) + Zos_EParmSetNUStr(gone, 1, u, 1) +
                  Zos_EParmSetMem(gone, 1, "x", 1) + Zos_EParmSetPtr(gone, 1, &some) +
                  Zos_EParmSetCookie(gone, 1, 5) + Zos_EParmAdd(gone, 1, &added) +
                  Zos_EParmRmv(gone, &some) + Zos_EParmErase(gone, 1),
              10 * ZFAILED);
    EXPECT_EQ(added, nullptr);
    EXPECT_TRUE(Zos_EParmGetUstr(gone, 1) == nullptr && Zos_EParmGetPtr(gone, 1) == nullptr &&
                Zos_EParmGetCookie(gone, 1) == 0 && Zos_EParmFind(gone, 1, nullptr) == nullptr);
    for (const char *name :
         {"SetStr", "SetNStr", "SetUstr", "SetNUStr", "SetMem", "SetPtr", "SetCookie", "Add", "Rmv",
          "Erase", "GetUstr", "GetPtr", "GetCookie", "Find"}) {
        EXPECT_TRUE(ktest::LoggedContains("EParm" + std::string(name) + " invalid id")) << name;
    }
    const size_t lines = ktest::Logged().size();
    EXPECT_EQ(Zos_EParmGetMajorType(gone), 0xFFFFFFFFu);  // element slots stay silent
    EXPECT_EQ(Zos_EParmSetElemId(gone, 1), ZFAILED);
    EXPECT_EQ(ktest::Logged().size(), lines);
}

TEST_F(EvntTest, BinaryTypeList) {
    EXPECT_EQ(KtestEvntBinaryFromC(), 0);
    ZEVNT e = Zos_EvntCreateFmt("\x08\x06", nullptr, 5u, nullptr);
    ASSERT_NE(e, nullptr);
    uint32_t len = 9;
    EXPECT_EQ(Zos_EParmGetMem(e, 0, &len), nullptr);  // null pointer: length taken as 0
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(Zos_EParmFind(e, 1, nullptr)->uiKind, ZOS_EPARM_STR);
    EXPECT_EQ(Zos_EvntRead(e, "\x09", &len), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("EvntReadX unknown type 9."));
    EXPECT_EQ(Zos_EvntRead(nullptr, "\x02", &len), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("EvntReadX null parameter."));
    uint32_t absent = 5;
    EXPECT_EQ(Zos_EvntRead(e, "\x01\x01\x02", &absent, &absent, &absent), ZOK);
    EXPECT_EQ(absent, 0u);
    Zos_EvntDelete(e);
    // A read stops at an unknown type: nothing after it is written.
    e = Zos_EvntCreateFmt("\x02\x02\x02", 1u, 2u, 3u);
    ASSERT_NE(e, nullptr);
    uint32_t first = 99, second = 99, third = 99;
    EXPECT_EQ(Zos_EvntRead(e, "\x02\x09\x02", &first, &second, &third), ZFAILED);
    EXPECT_EQ(first, 1u);
    EXPECT_TRUE(second == 99 && third == 99) << second << " " << third;
    Zos_EvntDelete(e);

    for (const char *bad : {"\x02\x09", "\x0b", "\xff"}) {
        ktest::ClearLogged();
        EXPECT_EQ(Zos_EvntCreateFmt(bad, 1u, 2u), nullptr);
        const std::string want = "EvntCreateFmtX unknown type " +
                                 std::to_string(static_cast<uint8_t>(bad[bad[0] == 2])) + ".";
        EXPECT_TRUE(ktest::LoggedContains(want)) << want;
    }
    EXPECT_EQ(Zos_EvntCreateFmt(nullptr), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("EvntCreateFmtX null format."));
}

TEST_F(EvntTest, TextFormatEveryConversion) {
    EXPECT_EQ(KtestEvntTextFromC(), 0);
    // Text between conversions is skipped; stars count once and only for s/p;
    // 'z' beats 'h'/'l'.
    int anchor = 0;
    ZEVNT e = Zos_EvntCreateFmtS("a=%**p b=%*d c=%zhd d=%zlu e=%hhhd", &anchor, 4u, -2, -3L,
                                 uintptr_t{9}, 300);
    ASSERT_NE(e, nullptr);
    const uint32_t kinds[] = {ZOS_EPARM_MEM, ZOS_EPARM_INT, ZOS_EPARM_LONG, ZOS_EPARM_COOKIE,
                              ZOS_EPARM_CHAR};
    for (uint32_t n = 0; n < 5; ++n) EXPECT_EQ(Zos_EParmFind(e, n, nullptr)->uiKind, kinds[n]);
    EXPECT_EQ(Zos_EParmGetInt(e, 1), -2);
    EXPECT_EQ(Zos_EParmGetLong(e, 2), -3L);
    EXPECT_EQ(Zos_EParmGetChar(e, 4), 44);  // 300 cut to 8 bits
    int8_t c = 0;
    uint32_t sink = 7;
    EXPECT_EQ(Zos_EvntReadS(e, "%u %u %u %u %hhd", &sink, &sink, &sink, &sink, &c), ZOK);
    EXPECT_EQ(sink, 0u);  // other kinds read as 0
    EXPECT_EQ(c, 44);
    EXPECT_EQ(Zos_EvntReadS(e, "%x", &sink), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("EvntReadSX unknown type 120."));
    EXPECT_EQ(Zos_EvntReadS(e, nullptr), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("EvntReadSX null parameter."));
    Zos_EvntDelete(e);

    struct {
        const char *fmt;
        const char *log;
    } const bad[] = {{"%d %f", "EvntCreateFmtSX unknown type 102."},
                     {"%d %", "EvntCreateFmtSX unknown type 0."},
                     {"%%", "EvntCreateFmtSX unknown type 37."},
                     {nullptr, "EvntCreateFmtSX null format."}};
    for (const auto &b : bad) {
        ktest::ClearLogged();
        EXPECT_EQ(Zos_EvntCreateFmtS(b.fmt, 1, 2.0), nullptr);
        EXPECT_TRUE(ktest::LoggedContains(b.log)) << b.log;
    }
}

// One platform-heap block per event while its parameters fit in the first
// 512-byte block: always for a few numbers; for six mixed parameters with
// two texts only where pointers are 32 bits (the record is larger on 64).
TEST_F(EvntTest, SmallEventTakesOneHeapBlock) {
    ktest::SlotRef mallocSlot = ktest::Slot(0);
    const ZOS_OSDEP_FUNC saved = mallocSlot;
    mallocSlot = reinterpret_cast<ZOS_OSDEP_FUNC>(FailingMalloc);
    g_failAt = 0;
    g_calls = 0;
    ZEVNT e = Zos_EvntCreate();
    for (uint32_t n = 0; n < 3; ++n) EXPECT_EQ(Zos_EParmSetUint(e, n, n), ZOK);
    EXPECT_EQ(g_calls, 1);
    Zos_EvntDelete(e);
    g_calls = 0;
    e = Zos_EvntCreateFmtS("%u %d %s %p %llu %s", 200u, -5, "sip:alice@example.com", &e,
                           0x123456789ull, "a84b4c76e66710@pc33.example.com");
    EXPECT_EQ(g_calls, sizeof(void *) == 4 ? 1 : 2);
    Zos_EvntDelete(e);
    mallocSlot = saved;
}

// Every allocation of a ten-parameter text-format event fails in turn:
// the call fails with the right line and nothing stays allocated.
TEST_F(EvntTest, AllocationFailureLeavesNothing) {
    const std::string big(300, 'q');
    bool succeeded = false;
    {
        const ktest::FailingHeap heap;
        for (int n = 1; n < 64 && !succeeded; ++n) {
            g_failAt = n;
            g_calls = 0;
            g_live = 0;
            ktest::ClearLogged();
            ZEVNT e = Zos_EvntCreateFmtS("%d %s %llu %s %p %*s %s %hd %s %zu", 1, big.c_str(), 2ull,
                                         big.c_str(), &n, big.c_str(), 200u, big.c_str(), 3,
                                         big.c_str(), uintptr_t{4});
            if (e != nullptr) {
                succeeded = true;
                EXPECT_STREQ(Zos_EParmGetStr(e, 9 - 1), big.c_str());
                EXPECT_GT(n, 4);  // several blocks were needed
                Zos_EvntDelete(e);
            } else if (n == 1) {
                EXPECT_TRUE(ktest::LoggedContains("EvntCreate alloc memory."));
                EXPECT_TRUE(ktest::LoggedContains("EvntCreateFmtSX create event."));
            } else {
                EXPECT_TRUE(ktest::LoggedContains("CbufAlloc alloc memory.")) << n;
                EXPECT_TRUE(ktest::LoggedContains(" set val") ||
                            ktest::LoggedContains(" add parm") ||
                            ktest::LoggedContains("EParmSetMem alloc val"))
                    << n;
            }
            EXPECT_EQ(g_live, 0) << n;
        }
    }
    EXPECT_TRUE(succeeded);
}

}  // namespace
