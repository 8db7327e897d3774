/* `wqevents get`, `next`, `set` and `walk` against agents that answer by a script. */
#include <pty.h>

#include <algorithm>
#include <map>

#include "listening_process.h"
#include "support/snmp_agent.h"

namespace wq::test {
namespace {

using Oid = std::vector<uint32_t>;
using Replies = std::vector<Bytes>;

constexpr int no_such_name = 2;

Oid name_of(const SnmpVarBindEMS& binding) {
    return {binding.oid, binding.oid + binding.oid_length};
}

SnmpVarBindEMS binding(const Oid& oid, uint8_t type) {
    SnmpVarBindEMS made{};
    std::copy(oid.begin(), oid.end(), made.oid);
    made.oid_length = static_cast<uint32_t>(oid.size());
    made.type = type;
    return made;
}

SnmpVarBindEMS number(const Oid& oid, int32_t value, uint8_t type = ASN_INTEGER09) {
    SnmpVarBindEMS made = binding(oid, type);
    made.val.integer = value;
    made.val_len = 4;
    return made;
}

SnmpVarBindEMS text(const Oid& oid, const std::string& value) {
    SnmpVarBindEMS made = binding(oid, ASN_OCTETSTR09);
    std::copy(value.begin(), value.end(), made.val.string);
    made.val_len = static_cast<uint32_t>(value.size());
    return made;
}

SnmpVarBindEMS identifier(const Oid& oid, const Oid& value) {
    SnmpVarBindEMS made = binding(oid, ASN_OBJID09);
    std::copy(value.begin(), value.end(), made.val.objid);
    made.val_len = static_cast<uint32_t>(value.size());
    return made;
}

/* The answer with the bindings of the request, refused at the binding `index`. */
Bytes refusal(const Bytes& request, int status, int index) {
    AgentMessage answer = decoded(request);
    answer.info.command = SNMP_GET_RSP;
    answer.info.errstat = status;
    answer.info.errindex = index;
    return encoded(answer);
}

Bytes reply(const Bytes& request, const std::vector<SnmpVarBindEMS>& vars) {
    AgentMessage answer = decoded(request);
    answer.info.command = SNMP_GET_RSP;
    answer.vars = vars;
    return encoded(answer);
}

/* An agent with variables, for get and get-next. */
class Variables {
  public:
    explicit Variables(const std::vector<SnmpVarBindEMS>& all) {
        for (const SnmpVarBindEMS& one : all) {
            all_[name_of(one)] = one;
        }
    }
    Replies operator()(const Bytes& request, int /*number*/) const {
        AgentMessage message = decoded(request);
        int index = 0;
        for (SnmpVarBindEMS& asked : message.vars) {
            ++index;
            const bool next = message.info.command == SNMP_GET_NEXT_REQ;
            const auto found = next ? all_.upper_bound(name_of(asked)) : all_.find(name_of(asked));
            if (found == all_.end()) {
                return {refusal(request, no_such_name, index)};
            }
            asked = found->second;
        }
        return {reply(request, message.vars)};
    }

  private:
    std::map<Oid, SnmpVarBindEMS> all_;
};

/* The options that keep a test short, the agent's address, and what follows. */
Words asking(const std::string& subcommand, const Words& arguments) {
    Words words{subcommand, "--timeout", "1", "--retries", "2", "127.0.0.1"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

CommandRun ask(const std::string& subcommand, const Words& arguments,
               const SubprocessOptions& process = {}) {
    return CommandRun(asking(subcommand, arguments), process);
}

Replies count_all(const Bytes& request, int /*number*/) {
    return {encoded(counting_answer(request))};
}

const Oid sys_name = {1, 3, 6, 1, 2, 1, 1, 5, 0};
const std::string mib_2 = ".iso.org.dod.internet.mgmt.mib-2";

TEST(Get, PrintsNameTypeAndValue) {
    const SnmpAgent agent(Variables({
        text(sys_name, "alpha"),
        identifier({1, 3, 6, 1, 2, 1, 1, 2, 0}, {1, 3, 6, 1, 2, 1}),
        number({1, 3, 6, 1, 2, 1, 1, 3, 0}, 4711, ASN_TIMETICKS09),
        number({1, 3, 1}, -5),
        number({1, 3, 2}, -1, ASN_COUNTER09),
        number({1, 3, 3}, 7, ASN_GAUGE09),
        binding({1, 3, 4}, ASN_NULL09),
        text({1, 3, 5}, std::string("\x01\x02\x03\xff", 4)),
    }));
    const CommandRun run =
        ask("get", {"1.3.6.1.2.1.1.5.0", ".1.3.6.1.2.1.1.2.0", "1.3.6.1.2.1.1.3.0", "1.3.1",
                    "1.3.2", "1.3.3", "1.3.4", "1.3.5"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, mib_2 + ".system.sysName.0 = OctetString: alpha\n" + mib_2 +
                           ".system.sysObjectID.0 = ObjectIdentifier: mgmt.mib-2\n" + mib_2 +
                           ".system.sysUpTime.0 = Ticks: 4711\n"
                           ".iso.org.1 = Integer: -5\n"
                           ".iso.org.2 = Counter: 4294967295\n"
                           ".iso.org.3 = Gauge: 7\n"
                           ".iso.org.4 = Empty: \n"
                           ".iso.org.5 = OctetString: 0x01 02 03 ff\n");
}

TEST(Get, AValueStaysOnItsLineAndOffTheTerminal) {
    const SnmpAgent agent(
        Variables({text({1, 3, 1}, "first\r\n\tsecond line"), text({1, 3, 2}, "\x1b[2Jgone")}));
    EXPECT_EQ(ask("get", {"1.3.1", "1.3.2"}).out,
              ".iso.org.1 = OctetString: first\\r\\n\\tsecond line\n"
              ".iso.org.2 = OctetString: 0x1b 5b 32 4a 67 6f 6e 65\n");
}

TEST(Get, SendsTheCommunityAndAtMostTenBindingsARequest) {
    const SnmpAgent agent(count_all);
    Words oids;
    std::string expected;
    for (int i = 1; i <= 12; ++i) {
        const std::string last = std::to_string(i);
        oids.push_back(std::string("1.3.9.").append(last));
        expected.append(".iso.org.9.").append(last).append(" = Integer: ");
        expected.append(std::to_string(i <= 10 ? i : i - 10)).append("\n");
    }
    oids.insert(oids.end(), {"--community", "secret"});
    const CommandRun run = ask("get", oids);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, expected);
    ASSERT_EQ(agent.requests().size(), 2U);
    const AgentMessage first = decoded(agent.requests()[0]);
    EXPECT_EQ(first.info.command, SNMP_GET_REQ);
    EXPECT_EQ(first.vars.size(), 10U);
    EXPECT_EQ(first.vars[0].type, ASN_NULL09);
    EXPECT_EQ(std::string(first.info.community, first.info.community + first.info.clen), "secret");
    EXPECT_EQ(decoded(agent.requests()[1]).vars.size(), 2U);
}

TEST(Get, TellsWhichBindingIsRefused) {
    const SnmpAgent agent([](const Bytes& request, int number) {
        return number == 0 ? count_all(request, 0) : Replies{refusal(request, no_such_name, 2)};
    });
    Words oids;
    for (int i = 1; i <= 12; ++i) {
        oids.push_back(std::string("1.3.").append(std::to_string(i)));
    }
    const CommandRun run = ask("get", oids);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "wqevents get: 127.0.0.1: SNMP Error:  noSuchName, binding 12: 1.3.12\n");
    // What came before is not lost.
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 10);
}

TEST(Get, EveryRefusalHasItsText) {
    const struct {
        int status, index;
        const char* text;
    } rows[] = {
        {1, 0, "SNMP Error:  tooBig\n"},
        {2, 1, "SNMP Error:  noSuchName, binding 1: 1.3.1\n"},
        {3, 2, "SNMP Error:  badValue, binding 2: 1.3.2\n"},
        {4, 1, "SNMP Error:  readOnly, binding 1: 1.3.1\n"},
        {5, 3, "SNMP Error:  genErr\n"},
        {5, -1, "SNMP Error:  genErr\n"},
        {6, 1, "SNMP Error:  unknown error 6, binding 1: 1.3.1\n"},
    };
    for (const auto& row : rows) {
        const SnmpAgent agent([&](const Bytes& request, int /*number*/) {
            return Replies{refusal(request, row.status, row.index)};
        });
        const CommandRun run = ask("get", {"1.3.1", "1.3.2"});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, std::string("wqevents get: 127.0.0.1: ").append(row.text));
    }
}

TEST(Get, AnswersThatAreNone) {
    const struct {
        SnmpAgent::Script script;
        const char* text;
    } rows[] = {
        {[](const Bytes&, int) { return Replies{}; }, "TIMED OUT: No SNMP response.\n"},
        {[](const Bytes&, int) { return Replies{from_hex("30 03 02 01")}; },
         "Could not parse incoming SNMP packet.\n"},
        {[](const Bytes& request, int) {
             return Replies{reply(request, {number({1, 3, 1}, 1)})};
         },
         "the answer has 1 binding instead of 2\n"},
        {[](const Bytes& request, int) {
             return Replies{reply(request, std::vector<SnmpVarBindEMS>(5, number({1, 3, 1}, 1)))};
         },
         "the answer has more than 2 bindings\n"},
    };
    for (const auto& row : rows) {
        const SnmpAgent agent(row.script);
        const CommandRun run = ask("get", {"1.3.1", "1.3.2"});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, std::string("wqevents get: 127.0.0.1: ").append(row.text));
    }
}

TEST(Get, AttemptsAreCounted) {
    const SnmpAgent agent([](const Bytes& request, int number) {
        return number == 0 ? Replies{} : count_all(request, number);
    });
    const CommandRun once({"get", "--timeout", "1", "--retries", "1", "127.0.0.1", "1.3.1"});
    EXPECT_EQ(once.status, 1);
    EXPECT_EQ(once.err, "wqevents get: 127.0.0.1: TIMED OUT: No SNMP response.\n");
    EXPECT_EQ(ask("get", {"1.3.1"}).status, 0);
}

TEST(Get, APortBehindTheHostHoldsAndAClosedOneRefuses) {
    const SnmpAgent agent(count_all);
    const std::string port = std::getenv("WQSNMPPORT");
    SubprocessOptions elsewhere;
    elsewhere.environment["WQSNMPPORT"] = std::to_string(port_of(udp_socket()));
    const CommandRun run({"get", "localhost:" + port, "1.3.1"}, elsewhere);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, ".iso.org.1 = Integer: 1\n");
    const CommandRun closed = ask("get", {"1.3.1"}, elsewhere);
    EXPECT_EQ(closed.status, 1);
    EXPECT_EQ(closed.err, "wqevents get: 127.0.0.1: Remote does not support SNMP.\n");
}

TEST(Next, AsksForWhatIsBehind) {
    const SnmpAgent agent(Variables({number({1, 3, 1, 0}, 5), number({1, 3, 2, 0}, 6)}));
    const CommandRun run = ask("next", {"1.3.1", "1.3.1.0"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, ".iso.org.1.0 = Integer: 5\n.iso.org.2.0 = Integer: 6\n");
    const CommandRun end = ask("next", {"1.3.1", "1.3.2.0"});
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "wqevents next: 127.0.0.1: SNMP Error:  noSuchName, binding 2: 1.3.2.0\n");
}

TEST(Set, SendsTypesAndValues) {
    const SnmpAgent agent([](const Bytes& request, int /*number*/) {
        return Replies{reply(request, decoded(request).vars)};
    });
    const CommandRun run =
        ask("set", {"1.3.1", "i", "-5", "1.3.2", "s", "--community", "1.3.3", "s", "[a,b]", "1.3.4",
                    "t", "150", "--community", "private"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              ".iso.org.1 = Integer: -5\n.iso.org.2 = OctetString: --community\n"
              ".iso.org.3 = OctetString: [a,b]\n.iso.org.4 = Ticks: 150\n");
    ASSERT_EQ(agent.requests().size(), 1U);
    const AgentMessage request = decoded(agent.requests()[0]);
    EXPECT_EQ(request.info.command, SNMP_SET_REQ);
    EXPECT_EQ(std::string(request.info.community, request.info.community + request.info.clen),
              "private");
    ASSERT_EQ(request.vars.size(), 4U);
    EXPECT_EQ(request.vars[0].val.integer, -5);
    EXPECT_EQ(request.vars[3].type, ASN_TIMETICKS09);
}

TEST(Set, TellsWhichBindingIsRefused) {
    const SnmpAgent agent(
        [](const Bytes& request, int /*number*/) { return Replies{refusal(request, 3, 2)}; });
    const CommandRun run = ask("set", {"1.3.1", "i", "1", "1.3.2", "i", "2"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "wqevents set: 127.0.0.1: SNMP Error:  badValue, binding 2: 1.3.2\n");
}

const std::vector<SnmpVarBindEMS> two_subtrees = {number({1, 3, 1, 1}, 1), number({1, 3, 1, 2}, 2),
                                                  number({1, 3, 1, 10}, 3), number({1, 3, 10}, 4),
                                                  number({1, 3, 11, 1}, 5)};

TEST(Walk, StopsBehindTheSubtree) {
    const SnmpAgent agent{Variables(two_subtrees)};
    const CommandRun run = ask("walk", {"1.3.1"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              ".iso.org.1.1 = Integer: 1\n.iso.org.1.2 = Integer: 2\n.iso.org.1.10 = Integer: 3\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(agent.requests().size(), 4U);
}

TEST(Walk, StopsBehindTheLastVariableAndGoesOnToTheNextSubtree) {
    const SnmpAgent agent{Variables(two_subtrees)};
    const CommandRun run = ask("walk", {"1.3.11", "1.3.1"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              ".iso.org.11.1 = Integer: 5\n"
              ".iso.org.1.1 = Integer: 1\n.iso.org.1.2 = Integer: 2\n.iso.org.1.10 = Integer: 3\n");
}

TEST(Walk, NothingBelowIsAFailure) {
    const SnmpAgent agent{Variables(two_subtrees)};
    for (const char* root : {"1.3.10", "1.3.12"}) {
        const CommandRun run = ask("walk", {root});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(
            run.err,
            std::string("wqevents walk: 127.0.0.1: nothing is below ").append(root).append("\n"));
    }
}

TEST(Walk, AnAgentThatDoesNotGoOnEndsIt) {
    const struct {
        SnmpVarBindEMS then;
        const char* text;
    } rows[] = {
        {number({1, 3, 1, 5}, 2), "behind 1.3.1.5 it answers with 1.3.1.5\n"},
        {number({1, 3, 1, 4, 9}, 2), "behind 1.3.1.5 it answers with 1.3.1.4.9\n"},
        {number({1, 3}, 2), "behind 1.3.1.5 it answers with 1.3\n"},
    };
    for (const auto& row : rows) {
        const SnmpAgent agent([&](const Bytes& request, int at) {
            return Replies{reply(request, {at == 0 ? number({1, 3, 1, 5}, 1) : row.then})};
        });
        const CommandRun run = ask("walk", {"1.3.1"});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, ".iso.org.1.5 = Integer: 1\n");
        EXPECT_EQ(
            run.err,
            std::string("wqevents walk: 127.0.0.1: the agent does not go on: ").append(row.text));
    }
}

TEST(Walk, OtherRefusalsEndIt) {
    const SnmpAgent agent([](const Bytes& request, int at) {
        return Replies{at == 0 ? reply(request, {number({1, 3, 1, 5}, 1)})
                               : refusal(request, 5, 1)};
    });
    const CommandRun run = ask("walk", {"1.3.1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, ".iso.org.1.5 = Integer: 1\n");
    EXPECT_EQ(run.err, "wqevents walk: 127.0.0.1: SNMP Error:  genErr, binding 1: 1.3.1.5\n");
}

struct Terminal {
    Terminal() {
        int master = -1;
        int slave = -1;
        checked(openpty(&master, &slave, nullptr, nullptr, nullptr), "openpty");
        reader = Fd(master);
        end = Fd(slave);
    }
    /* What was written, once no process has the other end any more. */
    std::string shown() {
        end = Fd();
        std::string all;
        std::array<char, 4096> block;
        for (ssize_t n = 0; (n = read(reader.get(), block.data(), block.size())) > 0;) {
            all.append(block.data(), static_cast<std::size_t>(n));
        }
        return all;
    }
    Fd reader, end;
};

TEST(Walk, ProgressIsRewrittenOnATerminal) {
    const SnmpAgent agent{Variables(two_subtrees)};
    Terminal terminal;
    SubprocessOptions process;
    process.error = terminal.end.get();
    const CommandRun run = ask("walk", {"1.3.1"}, process);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3);
    const std::string shown = terminal.shown();
    EXPECT_EQ(shown.find("\r1 variables in 0."), 0U) << shown;
    EXPECT_NE(shown.find(" s, at 1.3.1.1\033[K"), std::string::npos) << shown;
    EXPECT_TRUE(shown.ends_with("\r\033[K")) << shown;
}

TEST(Walk, VariablesOnATerminalAreProgressEnough) {
    const SnmpAgent agent{Variables(two_subtrees)};
    Terminal terminal;
    SubprocessOptions process;
    process.output = terminal.end.get();
    process.error = terminal.end.get();
    EXPECT_EQ(ask("walk", {"1.3.11"}, process).status, 0);
    EXPECT_EQ(terminal.shown(), ".iso.org.11.1 = Integer: 5\r\n");
}

TEST(Requests, SayWhatIsWrong) {
    const std::string long_community(128, 'c');
    const struct {
        Words words;
        int status;
        std::string part;
    } rows[] = {
        {{"get"}, 2, "AGENT"},
        {{"get", "localhost"}, 2, "ARGUMENTS"},
        {{"get", "localhost", "1.x"}, 2, "OID '1.x' is not an object identifier"},
        {{"next", ":161", "1.3"}, 2, "agent ':161' must be HOST or HOST:PORT"},
        {{"next", "", "1.3"}, 2, "agent '' must be HOST or HOST:PORT"},
        {{"next", "h:", "1.3"}, 2, "agent 'h:' must be HOST or HOST:PORT"},
        {{"walk", "h:0", "1.3"}, 2, "port '0' is not a number from 1 to 65535"},
        {{"walk", "h:snmp", "1.3"}, 2, "port 'snmp' is not a number from 1 to 65535"},
        {{"get", "--timeout", "0", "h", "1.3"}, 2, "--timeout"},
        {{"get", "--retries", "0", "h", "1.3"}, 2, "--retries"},
        {{"get", "--community", long_community, "h", "1.3"}, 2, "at most 127 can be sent"},
        {{"set", "localhost", "1.3", "i"}, 2, "set as OID TYPE VALUE; there are 2 arguments"},
        {{"set", "localhost", "1.3", "y", "1"}, 2, "type 'y' is not one of"},
        {{"set", "localhost", "1.3", "i", "x"}, 2, "binding 1.3: value 'x' is not a number"},
        {{"get", "nowhere.invalid", "1.3"}, 1, "host 'nowhere.invalid' has no IPv4 address"},
    };
    for (const auto& row : rows) {
        const CommandRun run(row.words);
        EXPECT_EQ(run.status, row.status) << row.part;
        EXPECT_NE(run.err.find(row.part), std::string::npos) << row.part << "\n" << run.err;
        EXPECT_EQ(run.err.find("wqevents " + row.words[0] + ": "), 0U) << run.err;
    }
}

TEST(Requests, ABrokenFileOfNamesIsAFailure) {
    SubprocessOptions process;
    process.environment["WQMIBFILE"] = "/nonexistent/mib.txt";
    const CommandRun run = ask("get", {"1.3.1"}, process);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "wqevents get: cannot read the MIB file '/nonexistent/mib.txt'\n");
}

}  // namespace
}  // namespace wq::test
