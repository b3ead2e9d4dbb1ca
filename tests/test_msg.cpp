// Messages: constructors, the carried event and its slots, shared arenas,
// deleted handles and allocation failures.
#include <cstring>
#include <string>

#include "zos_test.h"

namespace {

using ktest::g_calls;
using ktest::g_failAt;
using ktest::g_live;

TEST_F(ZosTest, MsgConstructorsAndGetters) {
    char data[8] = "payload";
    ZMSG m = Zos_MsgCreate(3, 4, 0x100);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Zos_MsgGetSendTaskId(m), 3u);
    EXPECT_EQ(Zos_MsgGetRecvTaskId(m), 4u);
    EXPECT_EQ(Zos_MsgGetType(m), 0x100u);
    EXPECT_EQ(Zos_MsgGetObject(m), 0u);
    EXPECT_EQ(Zos_MsgGetData(m), nullptr);
    ZEVNT e = Zos_MsgGetEvntId(m);  // made on demand, in the message's arena, pointing back
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(Zos_MsgGetEvntId(m), e);
    EXPECT_EQ(Zos_EvntGetMemBuf(e), Zos_MsgGetMemBuf(m));
    EXPECT_EQ(Zos_EvntGetMsgId(e), m);
    EXPECT_EQ(Zos_EParmGetSendTaskId(e), 3u);
    EXPECT_EQ(Zos_EParmGetRecvTaskId(e), 4u);
    // Length 0 keeps the pointer as given; a length copies.
    EXPECT_EQ(Zos_MsgSetData(m, data, 0), ZOK);
    EXPECT_EQ(Zos_MsgGetData(m), data);
    EXPECT_EQ(Zos_MsgSetData(m, data, 8), ZOK);
    EXPECT_NE(Zos_MsgGetData(m), data);
    EXPECT_STREQ(static_cast<char *>(Zos_MsgGetData(m)), "payload");
    EXPECT_EQ(Zos_MsgSetObject(m, UINTPTR_MAX), ZOK);
    EXPECT_EQ(Zos_MsgGetObject(m), UINTPTR_MAX);
    EXPECT_EQ(Zos_EParmFindZ(e, ZOS_MSG_ELEM_OBJECT)->uiFlag, 1u);
    Zos_MsgDelete(m);

    m = Zos_MsgCreateX(1, 2, 3, 0x55, data, 4);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Zos_MsgGetObject(m), 0x55u);
    EXPECT_EQ(Zos_MsgGetDataLen(m), 4u);
    EXPECT_EQ(std::memcmp(Zos_MsgGetData(m), "payl", 4), 0);
    Zos_MsgDelete(m);
    m = Zos_MsgCreateX(1, 2, 3, 0, nullptr, 0);  // nothing to carry: no event yet
    EXPECT_EQ(Zos_MsgGetObject(m), 0u);
    Zos_MsgDelete(m);
    // Either half of the data alone is kept as given, as by Zos_MsgSetData.
    m = Zos_MsgCreateX(1, 2, 3, 0, data, 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Zos_MsgGetData(m), data);
    EXPECT_EQ(Zos_MsgGetDataLen(m), 0u);
    Zos_MsgDelete(m);
    m = Zos_MsgCreateX(1, 2, 3, 0, nullptr, 5);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Zos_MsgGetData(m), nullptr);
    EXPECT_EQ(Zos_MsgGetDataLen(m), 5u);
    Zos_MsgDelete(m);

    void *out = nullptr;
    m = Zos_MsgCreateXD(5, 6, 7, 0x77, 300, &out);
    ASSERT_NE(m, nullptr);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(Zos_MsgGetData(m), out);
    EXPECT_EQ(Zos_MsgGetDataLen(m), 300u);
    EXPECT_EQ(static_cast<uint8_t *>(out)[299], 0);
    EXPECT_EQ(Zos_MsgGetObject(m), 0x77u);
    Zos_MsgDelete(m);
    m = Zos_MsgCreateXD(5, 6, 7, 0, 0, &out);
    EXPECT_EQ(out, nullptr);
    EXPECT_NE(Zos_EParmFindZ(Zos_MsgGetEvntId(m), 0), nullptr);
    Zos_MsgDelete(m);
    EXPECT_TRUE(ktest::Logged().empty());
}

TEST_F(ZosTest, MsgInsideEventSharesItsArena) {
    ZEVNT e = Zos_EvntCreate();
    ASSERT_EQ(Zos_EParmSetStr(e, 1, "kept"), ZOK);
    ZCBUF buf = Zos_EvntGetMemBuf(e);
    ZMSG m = Zos_MsgCreateE(e, 8, 9, 10);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Zos_MsgGetMemBuf(m), buf);
    EXPECT_EQ(Zos_CbufRefCnt(buf), 2u);
    EXPECT_EQ(Zos_MsgGetEvntId(m), e);
    EXPECT_EQ(Zos_EParmGetRecvTaskId(e), 9u);
    // A receiver's clone keeps the event alive after the message goes.
    ASSERT_EQ(Zos_EvntClone(e), e);
    Zos_MsgDelete(m);
    EXPECT_STREQ(Zos_EParmGetStr(e, 1), "kept");
    EXPECT_EQ(Zos_EParmGetSendTaskId(e), ZOS_INVALID_ID);  // the message died
    EXPECT_EQ(Zos_CbufRefCnt(buf), 1u);
    Zos_EvntDelete(e);

    e = Zos_EvntCreate();
    m = Zos_MsgCreateED(e, 1, 2, 3, 0x99, "abc", 3);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Zos_MsgGetObject(m), 0x99u);
    EXPECT_EQ(std::memcmp(Zos_MsgGetData(m), "abc", 3), 0);
    Zos_MsgDelete(m);  // takes the event with it
    // A length without data is stored as given, as by Zos_MsgSetData.
    m = Zos_MsgCreateED(Zos_EvntCreate(), 1, 2, 3, 0, nullptr, 7);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Zos_MsgGetData(m), nullptr);
    EXPECT_EQ(Zos_MsgGetDataLen(m), 7u);
    Zos_MsgDelete(m);
    EXPECT_EQ(Zos_EParmGetInt(e, 0), 0);
    EXPECT_TRUE(ktest::LoggedContains("EParmGetInt invalid id"));

    ktest::ClearLogged();
    EXPECT_EQ(Zos_MsgCreateE(e, 1, 2, 3), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("MsgCreateE alloc mem."));
    EXPECT_EQ(Zos_MsgCreateED(nullptr, 1, 2, 3, 0, nullptr, 0), nullptr);
    EXPECT_TRUE(ktest::LoggedContains("MsgCreateED alloc mem."));
    // The sends built on them fail with their constructor.
    EXPECT_EQ(Zos_MsgSendE(e, 1, 2, 3) + Zos_MsgSendED(nullptr, 1, 2, 3, 0, nullptr, 0),
              2 * ZFAILED);
}

// An arena that outlives the events and messages made in it gets their
// records back when they go: a kept event that carries message after
// message, or an arena that events are made in one after another, does
// not grow.
TEST_F(ZosTest, ArenaGetsRecordsBackFromEventsAndMessagesThatGo) {
    ZEVNT kept = Zos_EvntCreate();
    ASSERT_EQ(Zos_EParmSetStr(kept, 1, "kept"), ZOK);
    ZCBUF buf = Zos_EvntGetMemBuf(kept);
    auto carry = [&] {
        ASSERT_EQ(Zos_EvntClone(kept), kept);  // the message takes this one
        ZMSG m = Zos_MsgCreateE(kept, 8, 9, 10);
        ASSERT_NE(m, nullptr);
        Zos_MsgDelete(m);
    };
    carry();
    const uint32_t size = Zos_CbufSize(buf);
    for (int i = 0; i < 100; ++i) carry();
    EXPECT_EQ(Zos_CbufSize(buf), size);
    EXPECT_STREQ(Zos_EParmGetStr(kept, 1), "kept");
    EXPECT_EQ(Zos_CbufRefCnt(buf), 1u);
    Zos_EvntDelete(kept);

    ZCBUF arena = Zos_CbufCreate(0);
    ASSERT_NE(arena, nullptr);
    const uint32_t empty = Zos_CbufSize(arena);
    for (int i = 0; i < 100; ++i) {
        ZEVNT e = Zos_EvntCreateX(arena);
        ASSERT_NE(e, nullptr);
        ASSERT_EQ(Zos_EParmSetUint(e, 3, 7), ZOK);
        Zos_EvntDelete(e);
    }
    EXPECT_EQ(Zos_CbufSize(arena), empty);
    EXPECT_EQ(Zos_CbufRefCnt(arena), 1u);
    Zos_CbufDelete(arena);
}
TEST_F(ZosTest, MsgDeletedIsRefused) {
    ZMSG m = Zos_MsgCreateX(1, 2, 3, 4, nullptr, 0);
    Zos_MsgDelete(m);
    EXPECT_EQ(Zos_MsgGetSendTaskId(m), ZOS_INVALID_ID);
    EXPECT_EQ(Zos_MsgGetRecvTaskId(m), ZOS_INVALID_ID);
    EXPECT_EQ(Zos_MsgGetType(m), 0u);
    EXPECT_EQ(Zos_MsgGetObject(m), 0u);
    EXPECT_EQ(Zos_MsgGetEvntId(m), nullptr);
    EXPECT_EQ(Zos_MsgGetData(m), nullptr);
    EXPECT_EQ(Zos_MsgGetDataLen(m), 0u);
    EXPECT_EQ(Zos_MsgSetData(m, "x", 1), ZFAILED);
    EXPECT_EQ(Zos_MsgSend(m) + Zos_MsgSendP(m, 1), 2 * ZFAILED);
    Zos_MsgDelete(m);
    Zos_MsgDelete(nullptr);
    EXPECT_EQ(Zos_MsgGetType(nullptr), 0u);
    for (const char *text :
         {"MsgGetSendTaskId invalid magic.", "MsgGetRecvTaskId invalid magic.",
          "MsgGetType invalid magic.", "MsgGetObject invalid magic.", "MsgGetEvntId invalid magic.",
          "MsgGetData invalid magic.", "MsgGetDataLen invalid magic.", "MsgSetData invalid magic.",
          "MsgGetMemBuf invalid magic.", "MsgSend invalid magic.", "MsgDelete invalid magic."}) {
        EXPECT_TRUE(ktest::LoggedContains(text)) << text;
    }
    EXPECT_EQ(ktest::Logged().size(), 14u);  // each refused send: its check's line and its own
}

// Every allocation of the constructors fails in turn: null, the right
// line, nothing left allocated; a failed Zos_MsgCreateED leaves the
// caller's event as it was.
TEST_F(ZosTest, MsgAllocationFailureLeavesNothing) {
    const std::string big(600, 'd');
    ZEVNT keep = Zos_EvntCreate();
    ASSERT_EQ(Zos_EParmSetUint(keep, 1, 1), ZOK);
    int okX = 0;
    int okED = 0;
    {
        const ktest::FailingHeap heap;
        for (int n = 1; n < 32; ++n) {
            g_failAt = n;
            g_calls = 0;
            g_live = 0;
            ktest::ClearLogged();
            ZMSG m = Zos_MsgCreateX(1, 2, 3, 4, big.data(), 600);
            if (m != nullptr) {
                okX = okX == 0 ? n : okX;
                EXPECT_EQ(Zos_MsgGetDataLen(m), 600u);
                Zos_MsgDelete(m);
            } else {
                const bool named = ktest::LoggedContains("MsgCreateX alloc mem.") ||
                                   ktest::LoggedContains("MsgCreateX set object.") ||
                                   ktest::LoggedContains("MsgCreateX set data.");
                EXPECT_TRUE(named) << n;
            }
            EXPECT_EQ(g_live, 0) << n;

            // A send makes the same message: when it cannot, it says so
            // and posts nothing. The receiver does not exist, so a message
            // that was made is refused by the post and deleted.
            g_calls = 0;
            ktest::ClearLogged();
            EXPECT_EQ(Zos_MsgSendX(1, 0xFFFFFF00u, 3, 4, big.data(), 600), ZFAILED);
            const bool made = !ktest::LoggedContains("MsgCreateX");
            EXPECT_EQ(ktest::LoggedContains("MsgSendX create message."), !made) << n;
            EXPECT_EQ(ktest::LoggedContains("ModPostMsg invalid recv task."), made) << n;
            EXPECT_EQ(g_live, 0) << n;

            g_calls = 0;
            void *out = &out;
            m = Zos_MsgCreateXD(1, 2, 3, 4, 600, &out);
            if (m == nullptr) {
                EXPECT_EQ(out, nullptr);
                const bool named = ktest::LoggedContains("MsgCreateXD alloc mem.") ||
                                   ktest::LoggedContains("MsgCreateXD create event.") ||
                                   ktest::LoggedContains("MsgCreateXD alloc data.");
                EXPECT_TRUE(named) << n;
            }
            Zos_MsgDelete(m);
            EXPECT_EQ(g_live, 0) << n;

            g_calls = 0;
            m = Zos_MsgCreateED(keep, 1, 2, 3, 5, big.data(), 600);
            if (m != nullptr) {
                okED = okED == 0 ? n : okED;
                EXPECT_EQ(Zos_EvntClone(keep), keep);  // the message takes one reference away
                Zos_MsgDelete(m);
            } else {
                EXPECT_EQ(Zos_EvntGetMsgId(keep), nullptr) << n;
                EXPECT_EQ(Zos_EParmFindZ(keep, ZOS_MSG_ELEM_OBJECT)->uiFlag, 0u) << n;
            }
            EXPECT_EQ(Zos_EParmGetUint(keep, 1), 1u) << n;
        }
    }
    EXPECT_GT(okX, 2);  // record, event and data blocks each failed once first
    EXPECT_GT(okED, 1);
    Zos_EvntDelete(keep);
}

}  // namespace
