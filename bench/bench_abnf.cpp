// The SIP reader built on the ABNF toolkit against libosip2's full parse
// (osip_message_parse) on the same bytes: a 1 KB INVITE with SDP and the
// RFC 4475 messages that are valid; and the token manager's lookup of SIP
// header names against std::unordered_map<std::string_view, int>.
#include <benchmark/benchmark.h>
#include <osipparser2/osip_parser.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench_layer.h"
#include "kestro_lite.h"
#include "sip_reader.h"

namespace {

void Start() {
    static const bool started = [] {
        parser_init();
        return true;
    }();
    (void)started;
}

const kestro::sip::Reader &Reader() {
    Start();
    return *kbench::PerLayer<const kestro::sip::Reader *>([] { return new kestro::sip::Reader; });
}

// A 1 KB INVITE with an SDP offer, as a softphone sends it.
const std::string &Invite() {
    static const std::string msg = [] {
        const std::string sdp =
            "v=0\r\n"
            "o=alice 2890844526 2890844526 IN IP4 192.0.2.101\r\n"
            "s=-\r\n"
            "c=IN IP4 192.0.2.101\r\n"
            "t=0 0\r\n"
            "m=audio 49170 RTP/AVP 0 8 96 101\r\n"
            "a=rtpmap:0 PCMU/8000\r\n"
            "a=rtpmap:8 PCMA/8000\r\n"
            "a=rtpmap:96 opus/48000/2\r\n"
            "a=rtpmap:101 telephone-event/8000\r\n"
            "a=fmtp:101 0-16\r\n"
            "a=ptime:20\r\n"
            "a=sendrecv\r\n";
        std::string m =
            "INVITE sip:bob@biloxi.example.com SIP/2.0\r\n"
            "Via: SIP/2.0/UDP pc33.atlanta.example.com:5060;branch=z9hG4bK776asdhds;rport\r\n"
            "Max-Forwards: 70\r\n"
            "To: Bob <sip:bob@biloxi.example.com>\r\n"
            "From: Alice <sip:alice@atlanta.example.com>;tag=1928301774\r\n"
            "Call-ID: a84b4c76e66710@pc33.atlanta.example.com\r\n"
            "CSeq: 314159 INVITE\r\n"
            "Contact: <sip:alice@pc33.atlanta.example.com:5060;transport=udp>\r\n"
            "Allow: INVITE, ACK, CANCEL, BYE, OPTIONS, INFO, UPDATE, REFER, NOTIFY\r\n"
            "Supported: replaces, timer, 100rel\r\n"
            "User-Agent: Kestro Softphone 1.0\r\n"
            "Session-Expires: 1800;refresher=uac\r\n"
            "Min-SE: 90\r\n"
            "P-Asserted-Identity: \"Alice\" <sip:alice@atlanta.example.com>\r\n"
            "Content-Type: application/sdp\r\n"
            "Content-Length: " +
            std::to_string(sdp.size()) + "\r\n\r\n" + sdp;
        return m;
    }();
    return msg;
}

// The RFC 4475 messages classed valid that both parsers read.
const std::vector<std::string> &Torture() {
    static const std::vector<std::string> msgs = [] {
        Start();
        std::vector<std::string> out;
        const std::string dir = std::string(KESTRO_VECTORS_DIR) + "/protocols/sip/rfc4475/";
        std::ifstream index(dir + "INDEX.tsv");
        std::string line;
        std::getline(index, line);
        while (std::getline(index, line)) {
            std::istringstream l(line);
            std::string file, section, title, cls;
            std::getline(l, file, '\t');
            std::getline(l, section, '\t');
            std::getline(l, title, '\t');
            std::getline(l, cls, '\t');
            if (cls.rfind("valid", 0) != 0) continue;
            std::ifstream in(dir + file, std::ios::binary);
            std::string t((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            kestro::sip::Message m;
            osip_message_t *o = nullptr;
            osip_message_init(&o);
            const bool both = Reader().Read(t.data(), uint32_t(t.size()), &m, false) &&
                              osip_message_parse(o, t.data(), t.size()) == 0;
            osip_message_free(o);
            if (both) out.push_back(std::move(t));
        }
        return out;
    }();
    return msgs;
}

void BM_SipReaderInvite(benchmark::State &state) {
    const auto &reader = Reader();
    const std::string &msg = Invite();
    kestro::sip::Message m;
    for (auto _ : state) {
        KBENCH_CHECK(state, reader.Read(msg.data(), uint32_t(msg.size()), &m, false));
        benchmark::DoNotOptimize(m.headers.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations() * msg.size()));
    state.counters["bytes"] = double(msg.size());
}
BENCHMARK(BM_SipReaderInvite);

void BM_OsipParseInvite(benchmark::State &state) {
    Start();
    const std::string &msg = Invite();
    for (auto _ : state) {
        osip_message_t *o = nullptr;
        osip_message_init(&o);
        const bool ok = osip_message_parse(o, msg.data(), msg.size()) == 0;
        benchmark::DoNotOptimize(o);
        osip_message_free(o);
        KBENCH_CHECK(state, ok);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * msg.size()));
}
BENCHMARK(BM_OsipParseInvite);

void BM_SipReaderTorture(benchmark::State &state) {
    const auto &reader = Reader();
    const auto &msgs = Torture();
    kestro::sip::Message m;
    for (auto _ : state) {
        bool ok = true;
        for (const std::string &t : msgs) {
            ok &= reader.Read(t.data(), uint32_t(t.size()), &m, false);
            benchmark::DoNotOptimize(m.headers.data());
        }
        KBENCH_CHECK(state, ok);
    }
    state.SetItemsProcessed(int64_t(state.iterations() * msgs.size()));
    state.counters["messages"] = double(msgs.size());
}
BENCHMARK(BM_SipReaderTorture);

void BM_OsipParseTorture(benchmark::State &state) {
    const auto &msgs = Torture();
    for (auto _ : state) {
        bool ok = true;
        for (const std::string &t : msgs) {
            osip_message_t *o = nullptr;
            osip_message_init(&o);
            ok &= osip_message_parse(o, t.data(), t.size()) == 0;
            benchmark::DoNotOptimize(o);
            osip_message_free(o);
        }
        KBENCH_CHECK(state, ok);
    }
    state.SetItemsProcessed(int64_t(state.iterations() * msgs.size()));
}
BENCHMARK(BM_OsipParseTorture);

// Header names as they appear in messages (long and compact forms, the
// usual case), each looked up once per iteration.
const std::vector<std::string_view> &Names() {
    static const std::vector<std::string_view> names = {"Via",
                                                        "Max-Forwards",
                                                        "To",
                                                        "From",
                                                        "Call-ID",
                                                        "CSeq",
                                                        "Contact",
                                                        "Allow",
                                                        "Supported",
                                                        "User-Agent",
                                                        "Content-Type",
                                                        "Content-Length",
                                                        "Record-Route",
                                                        "Route",
                                                        "v",
                                                        "f",
                                                        "t",
                                                        "i",
                                                        "m",
                                                        "l",
                                                        "c",
                                                        "k",
                                                        "Session-Expires",
                                                        "P-Asserted-Identity",
                                                        "WWW-Authenticate",
                                                        "Authorization",
                                                        "Expires",
                                                        "Event",
                                                        "Subscription-State",
                                                        "X-Unknown-Header",
                                                        "Require",
                                                        "Proxy-Require"};
    return names;
}

void BM_TknMgrLookup(benchmark::State &state) {
    Start();
    // Arg 0: the reader's case-insensitive manager; arg 1: an exact-case one.
    ST_ABNF_TKN_MGR *exact = kbench::PerLayer<ST_ABNF_TKN_MGR *>([] {
        ST_ABNF_TKN_MGR *mgr = Abnf_TknMgrCreate(2, 0, 128);
        uint16_t id = 1;
        for (std::string_view n : Names()) Abnf_TknAdd(mgr, 0, n.data(), uint32_t(n.size()), id++);
        return mgr;
    });
    ST_ABNF_TKN_MGR *mgr = state.range(0) == 0 ? Reader().Manager() : exact;
    KBENCH_REQUIRE(state, mgr != nullptr);
    const auto &names = Names();
    // The sum of the ids found is taken before timing and checked every
    // round, so a lookup that fails shows (a refused call gives all ones).
    uint64_t expected = 0;
    for (std::string_view n : names) {
        const uint32_t id = Abnf_TknFind(mgr, 0, n.data(), uint32_t(n.size()));
        KBENCH_REQUIRE(state, id != 0xFFFFFFFFu);
        expected += id;
    }
    for (auto _ : state) {
        uint64_t sum = 0;
        for (std::string_view n : names) {
            const uint32_t id = Abnf_TknFind(mgr, 0, n.data(), uint32_t(n.size()));
            benchmark::DoNotOptimize(id);
            sum += id;
        }
        KBENCH_CHECK(state, sum == expected && expected != 0);
    }
    state.SetItemsProcessed(int64_t(state.iterations() * names.size()));
}
BENCHMARK(BM_TknMgrLookup)->Arg(0)->Arg(1);

void BM_UnorderedMapLookup(benchmark::State &state) {
    std::unordered_map<std::string_view, int> map;
    int id = 1;
    for (std::string_view n : Names()) map.emplace(n, id++);
    const auto &names = Names();
    for (auto _ : state) {
        for (std::string_view n : names) {
            auto it = map.find(n);
            benchmark::DoNotOptimize(it);
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations() * names.size()));
}
BENCHMARK(BM_UnorderedMapLookup);

}  // namespace
