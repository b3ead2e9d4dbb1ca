// Red-black tree: edge cases, the replacement choice on removal, the
// checker, printing, and long random runs against std::map with the
// structure read back from the compact print.
#include <algorithm>
#include <cctype>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "zos_test.h"

namespace {

std::string Print(ZRBT tree, uint32_t style) {
    ZDBUF buf = Zos_RbtPrint(tree, nullptr, style);
    EXPECT_NE(buf, nullptr);
    std::string s = buf != nullptr ? ktest::DbufText(buf) : "";
    Zos_DbufDelete(buf);
    return s;
}

// The tree as the compact print shows it: nodes with colour and depth,
// the three orders and the height.
struct Shape {
    struct N {
        uintptr_t key;
        bool black;
        int left, right, depth;
    };
    std::vector<N> n;
    std::vector<uintptr_t> pre, in, post;
    int height = 0;

    int Parse(const std::string &s, size_t &i, int depth) {
        if (s[i] == '#') return ++i, -1;
        uintptr_t key = 0;  // lower-case digits; the colour is upper case
        for (i += 2; std::isdigit(s[i]) || (s[i] >= 'a' && s[i] <= 'f'); ++i) {
            key = key * 16 + (std::isdigit(s[i]) ? s[i] - '0' : s[i] - 'a' + 10);
        }
        const int me = static_cast<int>(n.size());
        n.push_back({key, s[i++] == 'B', -1, -1, depth});
        height = std::max(height, depth);
        pre.push_back(key);
        if (i < s.size() && s[i] == '{') {
            n[me].left = Parse(s, ++i, depth + 1);
            in.push_back(key);
            n[me].right = Parse(s, ++i, depth + 1);  // past ','
            ++i;                                     // '}'
        } else {
            in.push_back(key);
        }
        post.push_back(key);
        return me;
    }
    explicit Shape(const std::string &s) {
        size_t i = 0;
        Parse(s, i, 1);
        EXPECT_EQ(i, s.size()) << s;
    }
};

std::vector<uintptr_t> Walk(ZRBT tree, ZRBTNODE node, uint32_t order, bool forward) {
    std::vector<uintptr_t> keys;
    for (; node != nullptr;
         node = forward ? Zos_RbtNext(tree, node, order) : Zos_RbtPrev(tree, node, order)) {
        keys.push_back(Zos_RbtGetKey(node));
    }
    if (!forward) std::reverse(keys.begin(), keys.end());
    return keys;
}

void CheckAgainst(ZRBT tree, const std::map<uintptr_t, uintptr_t> &model) {
    ASSERT_EQ(Zos_RbtChk(tree), ZOK);
    ASSERT_EQ(Zos_RbtSize(tree), model.size());
    Shape shape(Print(tree, ZOS_RBT_PRINT_COMPACT));
    std::vector<uintptr_t> keys;
    for (const auto &[k, v] : model) {
        keys.push_back(k);
        ASSERT_EQ(Zos_RbtGetValue(Zos_RbtFind(tree, k)), v);
    }
    ASSERT_EQ(shape.in, keys);
    EXPECT_EQ(Zos_RbtDepth(tree), static_cast<uint32_t>(shape.height));
    if (keys.empty()) return;
    EXPECT_EQ(Walk(tree, Zos_RbtHead(tree, 1), 1, true), keys);
    EXPECT_EQ(Walk(tree, Zos_RbtTail(tree, 1), 1, false), keys);
    EXPECT_EQ(Walk(tree, Zos_RbtHead(tree, 0), 0, true), shape.pre);
    EXPECT_EQ(Walk(tree, Zos_RbtTail(tree, 2), 2, false), shape.post);
    // The true ends of the pre-order tail and post-order head.
    EXPECT_EQ(Walk(tree, Zos_RbtFind(tree, shape.pre.back()), 0, false), shape.pre);
    EXPECT_EQ(Walk(tree, Zos_RbtFind(tree, shape.post.front()), 2, true), shape.post);
    EXPECT_EQ(Zos_RbtHead(tree, 2), Zos_RbtMin(tree));
    EXPECT_EQ(Zos_RbtTail(tree, 0), Zos_RbtMax(tree));
    EXPECT_TRUE(Zos_RbtGetKey(Zos_RbtMin(tree)) == keys.front() &&
                Zos_RbtGetKey(Zos_RbtMax(tree)) == keys.back());
}

int32_t Descending(uintptr_t a, uintptr_t b) {
    return a > b ? -1 : (a < b ? 1 : 0);
}

// Colour word of a node (its first field), for corrupting a tree.
uint32_t &Colour(ZRBT tree, uintptr_t key) {
    return *static_cast<uint32_t *>(Zos_RbtFind(tree, key));
}

}  // namespace

TEST_F(ZosTest, RbtEdgeCasesAndBadHandles) {
    ZRBT tree = Zos_RbtCreate(nullptr);
    ASSERT_NE(tree, nullptr);
    EXPECT_TRUE(Zos_RbtDepth(tree) == 0 && Zos_RbtChk(tree) == ZOK && !Zos_RbtHead(tree, 1));
    EXPECT_EQ(Zos_RbtMap(tree, 1, 1), ZFAILED);
    EXPECT_TRUE(ktest::LoggedContains("RbtMap no key 1."));
    ASSERT_EQ(Zos_RbtAdd(tree, 7, 70), ZOK);
    EXPECT_EQ(Zos_RbtDepth(tree), 1u);
    EXPECT_EQ(Zos_RbtAdd(tree, 7, 71), ZFAILED);  // no replace
    EXPECT_EQ(Zos_RbtGetValue(Zos_RbtFind(tree, 7)), 70u);
    EXPECT_EQ(Zos_RbtMap(tree, 7, 72), ZOK);
    EXPECT_EQ(Zos_RbtGetValue(Zos_RbtFind(tree, 7)), 72u);
    ZRBTNODE only = Zos_RbtFind(tree, 7);
    for (uint32_t order = 0; order < 4; ++order) {
        const bool known = order < 3;
        EXPECT_TRUE(Zos_RbtHead(tree, order) == (known ? only : nullptr));
        EXPECT_TRUE(Zos_RbtTail(tree, order) == (known ? only : nullptr));
        EXPECT_TRUE(!Zos_RbtNext(tree, only, order) && !Zos_RbtPrev(tree, only, order));
    }
    EXPECT_EQ(Zos_RbtRmv(tree, 8), ZFAILED);
    EXPECT_EQ(Zos_RbtRmv(tree, 7), ZOK);
    EXPECT_TRUE(Zos_RbtSize(tree) == 0 && !Zos_RbtHead(tree, 0) && !Zos_RbtMin(tree));
    // Extreme keys and the default unsigned order.
    const uintptr_t top = ~uintptr_t{0};
    ASSERT_EQ(Zos_RbtAdd(tree, top, 1) + Zos_RbtAdd(tree, 0, 2) + Zos_RbtAdd(tree, 1, 3), ZOK);
    EXPECT_EQ(Zos_RbtGetKey(Zos_RbtMax(tree)), top);
    EXPECT_TRUE(Zos_RbtKeyCmp(0, top) == -1 && Zos_RbtKeyCmp(top, 0) == 1);
    EXPECT_EQ(Zos_RbtSetCmp(tree, Descending), ZFAILED);  // not empty
    EXPECT_TRUE(ktest::LoggedContains("RbtSetCmp tree not empty."));
    Zos_RbtDelete(tree);

    uint32_t fake[16] = {0xAB45CD78};
    ktest::ClearLogged();
    for (ZRBT bad : {static_cast<ZRBT>(nullptr), static_cast<ZRBT>(fake)}) {
        EXPECT_EQ(Zos_RbtAdd(bad, 1, 1) & Zos_RbtMap(bad, 1, 1) & Zos_RbtRmv(bad, 1) &
                      Zos_RbtChk(bad) & Zos_RbtSetCmp(bad, nullptr),
                  ZFAILED);
        EXPECT_EQ(Zos_RbtSize(bad) + Zos_RbtDepth(bad), 0u);
        EXPECT_TRUE(!Zos_RbtFind(bad, 1) && !Zos_RbtMin(bad) && !Zos_RbtMax(bad));
        EXPECT_TRUE(!Zos_RbtHead(bad, 0) && !Zos_RbtTail(bad, 0) && !Zos_RbtNext(bad, fake, 1) &&
                    !Zos_RbtPrev(bad, fake, 1) && !Zos_RbtPrint(bad, nullptr, 0));
        Zos_RbtDelete(bad);
    }
    EXPECT_EQ(fake[0], 0xAB45CD78u);
    EXPECT_EQ(ktest::NotLogged("Rbt",
                               {"Insert", "Map", "Remove", "Chk", "SetCmp", "Size", "Depth", "Find",
                                "Min", "Max", "Head", "Tail", "Next", "Prev", "Print", "Delete"},
                               " invalid id."),
              "");
    EXPECT_TRUE(Zos_RbtGetKey(nullptr) == 0 && Zos_RbtGetValue(nullptr) == 0);
}

namespace {

// How many buffer headers can still be had with the heap refusing: each
// is made and given back.
size_t FreeHeaders() {
    const std::vector<ZDBUF> held = ktest::TakeFreeHeaders();
    for (ZDBUF b : held) Zos_DbufDelete(b);
    return held.size();
}

}  // namespace

TEST_F(ZosTest, RbtPrintIntoItsOwnBufferGivesItBackOnFailure) {
    // With the blocks taken and the heap refusing to make more, a print
    // into a buffer of its own fails; that buffer must not be kept.
    ZRBT tree = Zos_RbtCreate(nullptr);
    for (uintptr_t k = 1; k <= 200; ++k) ASSERT_EQ(Zos_RbtAdd(tree, k * 0x1001, 0), ZOK);
    ZDBUF filler = Zos_DbufCreate(nullptr, ZOS_DBUF_TYPE_MEM, 512);
    {
        const ktest::RefusingHeap heap;
        for (int i = 0; i < 100000 && Zos_DbufAlloc(filler, 400) != nullptr; ++i) {
        }
        const size_t before = FreeHeaders();
        EXPECT_GT(before, 0u);
        EXPECT_EQ(Zos_RbtPrint(tree, nullptr, ZOS_RBT_PRINT_COMPACT), nullptr);
        EXPECT_EQ(Zos_RbtPrint(tree, nullptr, ZOS_RBT_PRINT_LINES), nullptr);
        EXPECT_EQ(FreeHeaders(), before);
    }
    Zos_DbufDelete(filler);
    EXPECT_GT(Print(tree, ZOS_RBT_PRINT_COMPACT).size(), 1000u);
    Zos_RbtDelete(tree);
}

TEST_F(ZosTest, RbtPrintKeyTextAndOrder) {
    ZCBUF parent = Zos_CbufCreate(0);
    ZRBT tree = Zos_RbtCreate(parent);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(Zos_CbufHoldD(parent, tree), 1u);
    EXPECT_EQ(Print(tree, ZOS_RBT_PRINT_COMPACT), "#");
    ASSERT_EQ(Zos_RbtAdd(tree, 0x1a, 0) + Zos_RbtAdd(tree, 0x2b, 0), ZOK);
    EXPECT_EQ(Print(tree, ZOS_RBT_PRINT_COMPACT), "0x1aB{#,0x2bR}");
    EXPECT_EQ(Print(tree, ZOS_RBT_PRINT_LINES), "0x1aB\n  #\n  0x2bR\n");
    ASSERT_EQ(Zos_RbtAdd(tree, 0x3c, 0), ZOK);  // rotates: 0x2b on top
    ZDBUF buf = Zos_DbufCreateAddD(nullptr, 1, 512, "x", 1);
    EXPECT_EQ(Zos_RbtPrint(tree, buf, ZOS_RBT_PRINT_COMPACT), buf);  // appends
    EXPECT_EQ(ktest::DbufText(buf), "x0x2bB{0x1aR,0x3cR}");
    Zos_DbufDelete(buf);

    char text[ZOS_RBT_KEY_STR_SIZE], text2[ZOS_RBT_KEY_STR_SIZE];
    ASSERT_EQ(Zos_RbtKey2Str(4294967295u, ZOS_RBT_BLACK, text) + Zos_RbtKey2Str(0, 0, text2), ZOK);
    EXPECT_EQ(std::string(text) + text2, "4294967295B0R");
    EXPECT_EQ(Zos_RbtKey2Str(1, 1, nullptr), ZFAILED);
    Zos_CbufDelete(parent);  // takes the tree with it

    // A caller's order, set while empty.
    tree = Zos_RbtCreate(nullptr);
    ASSERT_EQ(Zos_RbtSetCmp(tree, Descending), ZOK);
    for (uintptr_t k : {5, 1, 9, 3, 7}) ASSERT_EQ(Zos_RbtAdd(tree, k, k * 10), ZOK);
    EXPECT_EQ(Walk(tree, Zos_RbtHead(tree, 1), 1, true), (std::vector<uintptr_t>{9, 7, 5, 3, 1}));
    EXPECT_EQ(Zos_RbtGetValue(Zos_RbtFind(tree, 3)), 30u);
    EXPECT_EQ(Zos_RbtRmv(tree, 9), ZOK);
    EXPECT_EQ(Zos_RbtGetKey(Zos_RbtMin(tree)), 7u);
    EXPECT_EQ(Zos_RbtChk(tree), ZOK);
    Zos_RbtDelete(tree);
}

TEST_F(ZosTest, RbtCheckerCatchesBrokenColours) {
    ZRBT tree = Zos_RbtCreate(nullptr);
    for (uintptr_t k : {2, 1, 3, 0}) ASSERT_EQ(Zos_RbtAdd(tree, k, 0), ZOK);
    ASSERT_EQ(Print(tree, 0), "0x2B{0x1B{0x0R,#},0x3B}");
    ASSERT_EQ(Zos_RbtChk(tree), ZOK);
    // Each broken rule fails the check with its own line.
    const auto failsWith = [tree](const char *line) {
        ktest::ClearLogged();
        EXPECT_EQ(Zos_RbtChk(tree), ZFAILED) << line;
        EXPECT_TRUE(ktest::LoggedContains(line)) << line;
    };
    Colour(tree, 2) = ZOS_RBT_RED;
    failsWith("RbtChk root is not black.");
    Colour(tree, 2) = ZOS_RBT_BLACK;
    Colour(tree, 3) = ZOS_RBT_RED;  // one path a black short
    failsWith("RbtChk 3 black count 2 3.");
    Colour(tree, 1) = ZOS_RBT_RED;  // counts agree again, but red over red
    EXPECT_EQ(Print(tree, 0), "0x2B{0x1R{0x0R,#},0x3R}");
    failsWith("RbtChk 1 left is red.");
    Colour(tree, 1) = Colour(tree, 3) = ZOS_RBT_BLACK;
    EXPECT_EQ(Zos_RbtChk(tree), ZOK);
    // A red right child under a red node, the black counts even.
    ASSERT_EQ(Zos_RbtRmv(tree, 0) + Zos_RbtAdd(tree, 4, 0), ZOK);
    Colour(tree, 1) = Colour(tree, 3) = ZOS_RBT_RED;
    EXPECT_EQ(Print(tree, 0), "0x2B{0x1R,0x3R{#,0x4R}}");
    failsWith("RbtChk 3 righ is red.");
    Zos_RbtDelete(tree);
}

// Removing a node with two children keeps the node and moves the entry of
// the chosen neighbour into it; the chosen one is computed from the
// printed structure and compared with the key the node then holds.
TEST_F(ZosTest, RbtRemovalPicksTheCheapestNeighbour) {
    int used[5] = {};
    std::mt19937 rng(11);
    for (int round = 0; round < 300; ++round) {
        ZRBT tree = Zos_RbtCreate(nullptr);
        const int count = 3 + static_cast<int>(rng() % 60);
        for (int i = 0; i < count; ++i) Zos_RbtAdd(tree, rng() % 200, 0);
        for (int i = static_cast<int>(rng() % count); i > 0; --i) Zos_RbtRmv(tree, rng() % 200);
        Shape s(Print(tree, ZOS_RBT_PRINT_COMPACT));
        std::vector<int> both;
        for (int x = 0; x < static_cast<int>(s.n.size()); ++x) {
            if (s.n[x].left >= 0 && s.n[x].right >= 0) both.push_back(x);
        }
        if (!both.empty()) {
            const auto &x = s.n[both[rng() % both.size()]];
            int p = x.left, q = x.right;
            while (s.n[p].right >= 0) p = s.n[p].right;
            while (s.n[q].left >= 0) q = s.n[q].left;
            auto red = [&](int i) { return i >= 0 && !s.n[i].black; };
            const int rule = red(p)              ? 0
                             : red(q)            ? 1
                             : red(s.n[p].left)  ? 2
                             : red(s.n[q].right) ? 3
                                                 : 4;
            const int pick =
                rule == 0 || rule == 2 || (rule == 4 && s.n[p].depth > s.n[q].depth) ? p : q;
            used[rule]++;
            ZRBTNODE node = Zos_RbtFind(tree, x.key);
            ASSERT_EQ(Zos_RbtMap(tree, s.n[pick].key, 77) + Zos_RbtRmv(tree, x.key), ZOK);
            EXPECT_EQ(Zos_RbtGetKey(node), s.n[pick].key) << "rule " << rule;
            EXPECT_EQ(Zos_RbtGetValue(node), 77u);  // the value moves along
        }
        EXPECT_EQ(Zos_RbtChk(tree), ZOK);
        Zos_RbtDelete(tree);
    }
    for (int n : used) EXPECT_GT(n, 0);
}

TEST_F(ZosTest, RbtLongRandomRunsMatchStdMap) {
    for (uint32_t seed : {1u, 2u, 3u, 4u}) {
        ZRBT tree = Zos_RbtCreate(nullptr);
        ASSERT_NE(tree, nullptr);
        std::map<uintptr_t, uintptr_t> model;
        std::mt19937 rng(seed);
        // Phases that grow, churn and shrink the tree.
        for (int op = 0; op < 24000; ++op) {
            const uint32_t addPercent = op < 8000 ? 80 : (op < 16000 ? 50 : 20);
            const uintptr_t k = rng() % 3000 * 7919;
            if (rng() % 100 < addPercent) {
                const bool fresh = model.count(k) == 0;
                ASSERT_EQ(Zos_RbtAdd(tree, k, op), fresh ? ZOK : ZFAILED);
                if (fresh) model[k] = op;
            } else {
                const bool present = model.erase(k) != 0;
                ASSERT_EQ(Zos_RbtRmv(tree, k), present ? ZOK : ZFAILED);
            }
            if (op % 3000 == 2999) {
                CheckAgainst(tree, model);
                if (HasFatalFailure() || HasNonfatalFailure()) return;
            }
        }
        while (!model.empty()) {  // empty it completely
            ASSERT_EQ(Zos_RbtRmv(tree, model.begin()->first), ZOK);
            model.erase(model.begin());
        }
        CheckAgainst(tree, model);
        Zos_RbtDelete(tree);
    }
}
