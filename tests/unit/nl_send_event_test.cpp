#include "EMS/events/nl_send_event.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "EMS/events/internal/frame.h"
#include "support/hex.h"
#include "support/progress_log.h"
#include "support/records.h"
#include "support/sandbox.h"
#include "support/sockets.h"
#include "support/vectors.h"

namespace {

struct FakeResolver {
    std::optional<in_addr_t> answer;
    int questions = 0;
    std::string last;
};
FakeResolver resolver;

}  // namespace

/* This host's own name is known, or not, as a test wants it. */
hostent* gethostbyname_new(const char* name) {
    static in_addr_t address;
    static std::array<char*, 2> addresses{reinterpret_cast<char*>(&address), nullptr};
    static hostent host{nullptr, nullptr, AF_INET, sizeof address, addresses.data()};
    ++resolver.questions;
    resolver.last = name;
    if (!resolver.answer) {
        return nullptr;
    }
    address = *resolver.answer;
    return &host;
}

namespace wq::test {
namespace {

using Texts = std::vector<std::string>;

constexpr in_addr_t ten_one_two_three = 0x0A010203;

/* A trap without bindings, and its encoding. */
snmp_trap_infoEMS small_trap() {
    snmp_trap_infoEMS trap = first_event_trap();
    trap.agent = ten_one_two_three;
    trap.time = 100;
    trap.specific = 42;
    trap.vars = 0;
    return trap;
}
const Bytes small_trap_bytes =
    ber("30(02(00) 04('public') A4(06(2B 06 01 04 01 02 06 03 01) 40(0A 01 02 03) 02(06) 02(2A)"
        " 43(64) 30()))");

/* An event's trap with its bindings, sent from 10.1.2.3 at time 0 by application 11. */
Bytes event_bytes(const std::string& specific, const std::vector<std::string>& texts) {
    std::string list = "30(06(2B 06 01 04 01 02 06 03 01 01 02 00) 02(0B))";
    for (size_t i = 0; i < texts.size(); ++i) {
        list += "30(06(2B 06 01 04 01 02 06 03 01 01 0" + std::string(1, "3456789AB"[i]) +
                " 00) 04(" + (texts[i].empty() ? "" : "'" + texts[i] + "'") + "))";
    }
    return ber(
        "30(02(00) 04('public') A4(06(2B 06 01 04 01 02 06 03 01) 40(0A 01 02 03) 02(06) 02(" +
        specific + ") 43(00) 30(" + list + ")))");
}

/* A channel whose other end the test holds, and a sender that has sent nothing yet. */
class SendTest : public ::testing::Test {
  protected:
    SendTest() {
        resolver = {htonl(ten_one_two_three), 0, ""};
        state.host_address = htonl(ten_one_two_three);
        use_mode(transport_raw_tcp);
        ei.source = 11;
        ei.status = 7;
        ei.target = 0xFEDCBA98;
        progress.clear();
    }

    void use_mode(int mode) {
        ei.sd = pair.ours.get();
        ei.trans = static_cast<uint16_t>(mode);
    }
    int send(const char* host, const char* descr) {
        return send_event(state, &ei, 42, {event_bindings, host, {descr, "data", "db"}});
    }
    Bytes sent() const { return read_available(pair.peer); }

    SocketPair pair = local_pair();
    SendState state;
    event_infoEMS ei{};
};

/* The values of a received event, as text. */
struct Decoded {
    int result = -1;
    snmp_trap_infoEMS trap{};
    Texts texts;
};
Decoded decoded(const Bytes& bytes) {
    Decoded event;
    std::vector<SnmpVarBindEMS> vars(12);
    event.trap.clen = EMS_COMMUNITY_MAX - 1;
    event.trap.elen = EMS_OID_MAX;
    event.trap.maxvars = static_cast<int32_t>(vars.size());
    event.result = snmp_parse_trap(bytes.data(), static_cast<int>(bytes.size()), &event.trap,
                                   nullptr, vars.data());
    for (int i = 0; i < event.trap.vars; ++i) {
        const SnmpVarBindEMS& var = vars[static_cast<size_t>(i)];
        event.texts.push_back(
            var.type == ASN_INTEGER09
                ? std::to_string(var.val.integer)
                : std::string(reinterpret_cast<const char*>(var.val.string), var.val_len));
    }
    return event;
}

TEST(SendState, StartsAsTheDaemonExpects) {
    const SendState state;
    EXPECT_EQ(state.header.len, 0);
    EXPECT_EQ(state.header.src, 0U);
    EXPECT_EQ(state.header.pid, 0);
    EXPECT_EQ(state.header.time, 0);
    EXPECT_EQ(state.header.status, -1);
    EXPECT_EQ(state.header.target, 0U);
    EXPECT_EQ(std::memcmp(state.trap.community, "public", 7), 0);
    EXPECT_EQ(state.trap.clen, 6);
    const Oid enterprise(state.trap.enterprise, state.trap.enterprise + state.trap.elen);
    EXPECT_EQ(enterprise, oid("1.3.6.1.4.1.2.6.3.1"));
    EXPECT_EQ(state.trap.agent, 0U);
    EXPECT_EQ(state.trap.time, 1U);
    EXPECT_EQ(state.trap.gen, 6U);
    EXPECT_EQ(state.trap.specific, 0U);
    EXPECT_EQ(state.trap.vars, 5);
    EXPECT_EQ(state.trap.maxvars, 5);
    EXPECT_EQ(state.trap.status, 0);
    EXPECT_EQ(state.trap.target, 0U);
}

TEST(Hundredths, CountsFromTheFirstEvent) {
    struct Case {
        timeval first, now;
        uint32_t expected;
    };
    constexpr std::array cases{
        Case{{100, 500000}, {100, 500000}, 0},
        Case{{100, 500000}, {100, 509999}, 0},
        Case{{100, 500000}, {100, 510000}, 1},
        Case{{100, 500000}, {103, 0}, 250},
        Case{{100, 900000}, {101, 100000}, 20},
        Case{{1700000000, 0}, {1800000000, 10000}, 1410065409},
        Case{{100, 0}, {99, 500000}, 0xFFFFFFCE},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(hundredths_between(c.first, c.now), c.expected) << c.now.tv_sec;
    }
}

TEST_F(SendTest, EachVariantSendsItsBindings) {
    const EventTexts event{
        0, "node.example up", {"descr", "data", "", "sel", "10.0.0.1", "spec", "net", "mask"}};
    struct Case {
        int count;
        std::vector<std::string> texts;
    };
    const std::vector<Case> cases{
        {event_bindings, {"node.example", "descr", "data", ""}},
        {event_ex_bindings, {"node.example", "descr", "data", "", "sel", "10.0.0.1", "spec"}},
        {event_ex_ex_bindings,
         {"node.example", "descr", "data", "", "sel", "10.0.0.1", "spec", "net", "mask"}},
        {event_bindings, {"node.example", "descr", "data", ""}},
    };
    for (const Case& c : cases) {
        state.first_event = {};
        EventTexts texts = event;
        texts.count = c.count;
        EXPECT_EQ(send_event(state, &ei, 0x03870030, texts), 0);
        EXPECT_EQ(to_hex(sent()), to_hex(event_bytes("03 87 00 30", c.texts)));
        EXPECT_EQ(state.trap.vars, c.count);
        EXPECT_EQ(state.trap.maxvars, 5);
        EXPECT_EQ(state.trap.status, 7);
        EXPECT_EQ(state.trap.target, 0xFEDCBA98);
    }
}

TEST_F(SendTest, ExportedVariantsPassEveryText) {
    EXPECT_EQ(::send_event(&ei, -2, "h", "descr", "data", "db"), 0);
    Decoded event = decoded(sent());
    EXPECT_EQ(event.trap.specific, 0xFFFFFFFE);
    EXPECT_EQ(event.texts, (Texts{"11", "h", "descr", "data", "db"}));
    EXPECT_EQ(::send_event_ex(&ei, 2, "h", "descr", "data", "db", "sel", "ip", "spec"), 0);
    event = decoded(sent());
    EXPECT_EQ(event.texts, (Texts{"11", "h", "descr", "data", "db", "sel", "ip", "spec"}));
    EXPECT_EQ(
        ::send_event_ex_ex(&ei, 3, "h", "descr", "data", "db", "sel", "ip", "spec", "net", "mask"),
        0);
    event = decoded(sent());
    EXPECT_EQ(event.texts,
              (Texts{"11", "h", "descr", "data", "db", "sel", "ip", "spec", "net", "mask"}));
    EXPECT_EQ(::send_event_ex_ex(&ei, 3, nullptr, "descr", nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr),
              0);
    event = decoded(sent());
    EXPECT_EQ(event.texts, (Texts{"11", "<none>", "descr", "", "", "", "", "", "", ""}));
}

TEST_F(SendTest, HostIsItsFirstWord) {
    const std::string long_word(1500, 'w');
    const std::vector<std::pair<const char*, std::string>> cases{
        {"  alpha beta", "alpha"},
        {"alpha", "alpha"},
        {"\t\n\v\f\r alpha\nbeta", "alpha"},
        {"alpha ", "alpha"},
        {nullptr, "<none>"},
        {"", "<none>"},
        {" \t\n ", "<none>"},
        {"<none>", "<none>"},
        {"\xC3\xA9t\xC3\xA9 x", "\xC3\xA9t\xC3\xA9"},
        {long_word.c_str(), long_word.substr(0, 1024)},
    };
    for (const auto& [host, expected] : cases) {
        EXPECT_EQ(send(host, "descr"), 0);
        const Decoded event = decoded(sent());
        ASSERT_EQ(event.texts.size(), 5U) << expected;
        EXPECT_EQ(event.texts[1], expected);
    }
}

TEST_F(SendTest, TextsAreCutAtTheRoomOfABinding) {
    for (const size_t length : {0U, 1U, 1023U, 1024U, 1025U, 2000U}) {
        const std::string descr(length, 'd');
        EXPECT_EQ(send("host", descr.c_str()), 0);
        const Decoded event = decoded(sent());
        ASSERT_EQ(event.texts.size(), 5U) << length;
        EXPECT_EQ(event.texts[2], descr.substr(0, 1024)) << length;
        EXPECT_EQ(event.texts[3], "data");
    }
}

TEST_F(SendTest, TimeRunsFromTheFirstEvent) {
    EXPECT_EQ(send("host", "first"), 0);
    EXPECT_EQ(decoded(sent()).trap.time, 0U);
    EXPECT_NE(state.first_event.tv_sec, 0);
    state.first_event.tv_sec -= 2;
    state.first_event.tv_usec -= 500000;
    EXPECT_EQ(send("host", "second"), 0);
    const uint32_t elapsed = decoded(sent()).trap.time;
    EXPECT_GE(elapsed, 250U);
    EXPECT_LT(elapsed, 1250U);
}

TEST_F(SendTest, OwnAddressIsLookedUpUntilItIsFound) {
    state.host_address = 0;
    resolver.answer.reset();
    EXPECT_EQ(send("host", "descr"), 0);
    EXPECT_EQ(resolver.questions, 1);
    EXPECT_EQ(state.trap.agent, 0U);
    std::array<char, 257> name{};
    gethostname(name.data(), name.size() - 1);
    EXPECT_EQ(resolver.last, name.data());

    resolver.answer = htonl(0xC0000201);
    EXPECT_EQ(send("host", "descr"), 0);
    EXPECT_EQ(resolver.questions, 2);
    EXPECT_EQ(state.trap.agent, 0xC0000201U);

    resolver.answer.reset();
    EXPECT_EQ(send("host", "descr"), 0);
    EXPECT_EQ(resolver.questions, 2);
    EXPECT_EQ(state.trap.agent, 0xC0000201U);
}

TEST_F(SendTest, NothingIsSentWithoutChannelOrDescription) {
    const EventTexts event{event_bindings, "host", {"descr", "data", "db"}};
    EXPECT_EQ(send_event(state, nullptr, 1, event), -1);
    EXPECT_EQ(send("host", nullptr), -1);
    EXPECT_EQ(take_progress(),
              (Texts{"Beginning of send_event()\n", "Beginning of send_event()\n"}));
    EXPECT_EQ(::send_event(nullptr, 1, "host", "descr", "data", "db"), -1);
    EXPECT_EQ(::send_event_ex(&ei, 1, "h", nullptr, "data", "db", "s", "i", "t"), -1);
    EXPECT_EQ(::send_event_ex_ex(&ei, 1, "h", nullptr, "data", "db", "s", "i", "t", "n", "m"), -1);
    EXPECT_TRUE(sent().empty());
}

TEST_F(SendTest, EventsAreLogged) {
    use_mode(transport_local);
    const Texts sending{"Beginning of  send_trap().\n",
                        "calling send() SNMP packet from send_trap().\n",
                        "send_trap() completed.\n"};
    const auto with = [&](Texts first) {
        first.insert(first.end(), sending.begin(), sending.end());
        return first;
    };
    EXPECT_EQ(::send_event(&ei, 1, " a b", "descr", "data", nullptr), 0);
    for (const Progress& line : progress) {
        EXPECT_EQ(line.component, 84);
        EXPECT_EQ(line.level, 2);
        EXPECT_EQ(line.catalog, "events.cat");
        EXPECT_EQ(line.set, 1);
        EXPECT_EQ(line.msg, 0);
    }
    ASSERT_GE(progress.size(), 2U);
    EXPECT_EQ(progress[1].format,
              "Values of vars[0] %d vars[1] %s vars[2] %s vars [3] %s vars[4] %s .\n");
    EXPECT_EQ(take_progress(),
              with({"Beginning of send_event()\n",
                    "Values of vars[0] 11 vars[1] a vars[2] descr vars [3] data vars[4]  .\n",
                    "call send_trap from send_event().\n"}));

    const Texts longer = with(
        {"Beginning of send_event_ex()\n",
         "Values of vars[0] 11 vars[1] <none> vars[2] descr vars [3] data vars[4] db vars [5] s.\n",
         "call send_trap from send_event_ex().\n"});
    EXPECT_EQ(::send_event_ex(&ei, 1, nullptr, "descr", "data", "db", "s", "i", "t"), 0);
    EXPECT_EQ(take_progress(), longer);
    EXPECT_EQ(::send_event_ex_ex(&ei, 1, nullptr, "descr", "data", "db", "s", "i", "t", "n", "m"),
              0);
    EXPECT_EQ(take_progress(), longer);
}

TEST_F(SendTest, TextsAreLoggedAsTheyAreSent) {
    const std::string full(1024, 'f');
    const std::string more(1500, 'm');
    EXPECT_EQ(
        send_event(
            state, &ei, 1,
            {event_ex_bindings, more.c_str(), {full.c_str(), more.c_str(), nullptr, more.c_str()}}),
        0);
    EXPECT_EQ(take_progress().at(1), "Values of vars[0] 11 vars[1] " + more.substr(0, 1024) +
                                         " vars[2] " + full + " vars [3] " + more.substr(0, 1024) +
                                         " vars[4]  vars [5] " + more.substr(0, 1024) + ".\n");
    EXPECT_EQ(decoded(sent()).texts.size(), 8U);
}

TEST_F(SendTest, EachModeHasItsFraming) {
    struct Case {
        int mode;
        size_t bytes;
        bool calls;
    };
    const size_t n = small_trap_bytes.size();
    const std::array cases{Case{2, 24 + n, true}, Case{3, 24 + n, true}, Case{6, n, true},
                           Case{0, 0, false},     Case{4, 0, false},     Case{5, 0, false},
                           Case{7, 0, false},     Case{65535, 0, false}};
    for (const Case& c : cases) {
        use_mode(c.mode);
        snmp_trap_infoEMS trap = small_trap();
        EXPECT_EQ(::send_trap(&ei, &trap, nullptr), 0) << c.mode;
        const Bytes bytes = sent();
        ASSERT_EQ(bytes.size(), c.bytes) << c.mode;
        EXPECT_EQ(Bytes(bytes.end() - static_cast<ptrdiff_t>(bytes.empty() ? 0 : n), bytes.end()),
                  bytes.empty() ? Bytes{} : small_trap_bytes);
        Texts log{"Beginning of  send_trap().\n"};
        if (c.calls) {
            log.emplace_back("calling send() SNMP packet from send_trap().\n");
        }
        log.emplace_back("send_trap() completed.\n");
        EXPECT_EQ(take_progress(), log) << c.mode;
    }
}

TEST_F(SendTest, HeaderWordsAreTheSendersOwn) {
    use_mode(transport_local);
    std::array<uint8_t, 4> pid{};
    const int32_t own = getpid();
    std::memcpy(pid.data(), &own, sizeof own);
    snmp_trap_infoEMS trap = small_trap();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(::send_trap(&ei, &trap, nullptr), 0);
        Bytes expected{static_cast<uint8_t>(small_trap_bytes.size()), 0, 0, 0, 11, 0, 0, 0};
        append(expected, Bytes(pid.begin(), pid.end()));
        append(expected, from_hex("00 00 00 00 07 00 00 00 98 BA DC FE"));
        append(expected, small_trap_bytes);
        ASSERT_EQ(to_hex(sent()), to_hex(expected)) << i;
    }
    progress.clear();
}

TEST_F(SendTest, HeaderTimeIsLeftAlone) {
    use_mode(transport_tcp);
    state.header.time = 0x01020304;
    snmp_trap_infoEMS trap = small_trap();
    EXPECT_EQ(send_trap(state, &ei, &trap, nullptr), 0);
    const Bytes bytes = sent();
    ASSERT_GE(bytes.size(), 16U);
    EXPECT_EQ(to_hex(Bytes(bytes.begin() + 12, bytes.begin() + 16)), "04 03 02 01");
}

TEST_F(SendTest, CallersRecordsAreNotWrittenTo) {
    snmp_trap_infoEMS trap = small_trap();
    trap.status = 1;
    trap.target = 2;
    const snmp_trap_infoEMS trap_before = trap;
    const event_infoEMS ei_before = ei;
    EXPECT_EQ(::send_trap(&ei, &trap, nullptr), 0);
    EXPECT_EQ(std::memcmp(&trap, &trap_before, sizeof trap), 0);
    EXPECT_EQ(fields(ei), fields(ei_before));
}

/* A child signs with its own number, whatever it is made by. */
TEST_F(SendTest, ForkedChildIsAnotherSender) {
    use_mode(transport_local);
    snmp_trap_infoEMS trap = small_trap();
    ASSERT_EQ(::send_trap(&ei, &trap, nullptr), 0);
    sent();
    for (pid_t (*make_child)() : {&fork, &_Fork}) {
        const pid_t child = make_child();
        ASSERT_GE(child, 0);
        if (child == 0) {
            _exit(::send_trap(&ei, &trap, nullptr) == 0 ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        const Bytes bytes = sent();
        ASSERT_GE(bytes.size(), 24U);
        int32_t pid = 0;
        std::memcpy(&pid, &bytes[8], sizeof pid);
        EXPECT_EQ(pid, child);
    }
}

TEST_F(SendTest, DatagramsGoToTheTrapPortOfTheManager) {
    REQUIRE_SANDBOX();
    run_in_sandbox([&] {
        const Fd daemon = udp_socket(162);
        const Fd own = udp_socket();
        ei.sd = own.get();
        ei.trans = transport_datagram;
        ei.manager = htonl(INADDR_LOOPBACK);
        snmp_trap_infoEMS trap = small_trap();
        progress.clear();
        EXPECT_EQ(::send_trap(&ei, &trap, nullptr), 0);
        EXPECT_EQ(take_progress(),
                  (Texts{"Beginning of  send_trap().\n", "send_trap() completed.\n"}));
        EXPECT_EQ(to_hex(read_available(daemon)), to_hex(small_trap_bytes));
        EXPECT_EQ(::send_hex_buffer(&ei, small_trap_bytes.data(), 20), 0);
        EXPECT_EQ(read_available(daemon).size(), 20U);
        EXPECT_EQ(::send_hex_buffer(&ei, small_trap_bytes.data(), 0), 0);
        EXPECT_TRUE(read_available(daemon).empty());
        const Bytes huge(70000);
        EXPECT_EQ(::send_hex_buffer(&ei, huge.data(), static_cast<int>(huge.size())), -1);
        EXPECT_EQ(errno, EMSGSIZE);
    });
}

TEST_F(SendTest, TrapThatDoesNotFitIsNotSent) {
    const std::string full(1024, 'x');
    const char* text = full.c_str();
    const EventTexts event{
        event_ex_ex_bindings, text, {text, text, text, text, text, text, text, text}};
    for (const int mode : {2, 3, 6}) {
        use_mode(mode);
        progress.clear();
        EXPECT_EQ(send_event(state, &ei, 1, event), -1);
        EXPECT_TRUE(sent().empty());
        EXPECT_EQ(take_progress().back(), "Beginning of  send_trap().\n");
    }
}

TEST_F(SendTest, MissingRecordsFail) {
    snmp_trap_infoEMS trap = small_trap();
    EXPECT_EQ(::send_trap(nullptr, &trap, nullptr), -1);
    EXPECT_EQ(::send_trap(&ei, nullptr, nullptr), -1);
    trap.vars = 1;
    EXPECT_EQ(::send_trap(&ei, &trap, nullptr), -1);
    EXPECT_TRUE(sent().empty());
}

TEST_F(SendTest, PeerThatIsGoneIsAnError) {
    pair.peer = Fd();
    for (const int mode : {2, 3, 6}) {
        use_mode(mode);
        progress.clear();
        snmp_trap_infoEMS trap = small_trap();
        errno = 0;
        EXPECT_EQ(::send_trap(&ei, &trap, nullptr), -1) << mode;
        EXPECT_EQ(errno, EPIPE);
        const Texts with_header{"Beginning of  send_trap().\n"};
        const Texts without{"Beginning of  send_trap().\n",
                            "calling send() SNMP packet from send_trap().\n"};
        EXPECT_EQ(take_progress(), mode == 6 ? without : with_header) << mode;
        EXPECT_EQ(::send_hex_buffer(&ei, small_trap_bytes.data(), 20), -1);
        EXPECT_EQ(errno, EPIPE);
        EXPECT_EQ(::send_event(&ei, 1, "host", "descr", "data", "db"), -1);
    }
}

TEST_F(SendTest, ClosedChannelIsAnError) {
    snmp_trap_infoEMS trap = small_trap();
    for (const int mode : {1, 2, 3, 6}) {
        use_mode(mode);
        ei.sd = -1;
        errno = 0;
        EXPECT_EQ(::send_trap(&ei, &trap, nullptr), -1) << mode;
        EXPECT_EQ(errno, EBADF);
    }
}

TEST_F(SendTest, HexBufferIsSentAsItIs) {
    Bytes large(9000);
    for (size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<uint8_t>(i * 7);
    }
    for (const int mode : {2, 3, 6}) {
        for (const size_t length : {0U, 1U, 19U, 8192U, 9000U}) {
            use_mode(mode);
            EXPECT_EQ(::send_hex_buffer(&ei, large.data(), static_cast<int>(length)), 0);
            const Bytes bytes = sent();
            const size_t header = mode == 6 ? 0 : 24;
            ASSERT_EQ(bytes.size(), header + length) << mode;
            EXPECT_TRUE(std::equal(bytes.begin() + static_cast<ptrdiff_t>(header), bytes.end(),
                                   large.begin()));
            if (header != 0) {
                EXPECT_EQ(bytes[0] | bytes[1] << 8 | bytes[2] << 16, static_cast<int>(length));
            }
        }
    }
    for (const int mode : {0, 4, 5, 7}) {
        use_mode(mode);
        EXPECT_EQ(::send_hex_buffer(&ei, large.data(), 100), 0);
    }
    EXPECT_EQ(::send_hex_buffer(nullptr, large.data(), 100), -1);
    EXPECT_EQ(::send_hex_buffer(&ei, nullptr, 100), -1);
    EXPECT_EQ(::send_hex_buffer(&ei, large.data(), -1), -1);
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(take_progress().empty());
}

/* Runs `block` with a trace log in memory; gives what was written to it. */
std::string traced(const std::function<void()>& block) {
    char* text = nullptr;
    size_t size = 0;
    tracelogfp = open_memstream(&text, &size);
    block();
    fclose(tracelogfp);
    tracelogfp = nullptr;
    std::string result(text, size);
    free(text);
    return result;
}

TEST_F(SendTest, DumpsWhatIsSent) {
    const std::string rows =
        "   0:  30 29  2  1  0  4  6 70 75 62 6c 69 63 a4 1c  6  0).....public...\n"
        "  16:   9 2b  6  1  4  1  2  6  3  1 40  4  a  1  2  3  .+........@.....\n"
        "  32:   2  1  6  2  1 2a 43  1 64 30  0 -- -- -- -- --  .....*C.d0......\n";
    snmp_trap_infoEMS trap = small_trap();
    for (const int mode : {2, 6, 0}) {
        use_mode(mode);
        EXPECT_EQ(traced([&] { ::send_trap(&ei, &trap, nullptr); }), "");
        dump_packetEMS = 1;
        EXPECT_EQ(traced([&] { EXPECT_EQ(::send_trap(&ei, &trap, nullptr), 0); }), rows) << mode;
        EXPECT_EQ(traced([&] {
                      ::send_hex_buffer(&ei, small_trap_bytes.data(),
                                        static_cast<int>(small_trap_bytes.size()));
                  }),
                  rows);
        dump_packetEMS = 0;
    }
}

}  // namespace
}  // namespace wq::test
