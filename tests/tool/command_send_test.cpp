#include <pty.h>

#include <fstream>

#include "listening_process.h"
#include "sample_traps.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

/* A listener at a local socket and a raw TCP port, and what `wqevents send` makes it print. */
class Send : public testing::Test {
  protected:
    Send() : listener_({"--json", "--socket", socket_, "--raw-tcp", "127.0.0.1:0"}) {}

    std::string raw() const { return "raw:127.0.0.1:" + std::to_string(listener_.port("raw-tcp")); }
    std::string local() const { return "local:" + socket_; }

    static CommandRun send(const std::string& to, const Words& words,
                           const SubprocessOptions& process = {}) {
        Words all{"send", "--to", to};
        all.insert(all.end(), words.begin(), words.end());
        return CommandRun(all, process);
    }

    /* The one trap that arrives. */
    Json sent(const std::string& to, const Words& words, const SubprocessOptions& process = {}) {
        const std::size_t before = listener_.lines();
        const CommandRun run = send(to, words, process);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, "");
        listener_.wait_for_lines(before + 1);
        EXPECT_EQ(listener_.lines(), before + 1);
        return listener_.objects().back();
    }

    const TempDir folder_;
    const std::string socket_ = folder_.path("s");
    ListeningProcess listener_;
};

TEST_F(Send, CarriesEveryField) {
    const Json trap = sent(raw(), {"--community", "secret", "--agent", "10.1.2.3",
                                   ".1.3.6.1.4.1.8072", "6", "17", "12345678"});
    EXPECT_EQ(trap["community"], "secret");
    EXPECT_EQ(trap["enterprise"], "1.3.6.1.4.1.8072");
    EXPECT_EQ(trap["agent"], "10.1.2.3");
    EXPECT_EQ(trap["generic"], 6);
    EXPECT_EQ(trap["specific"], 17);
    EXPECT_EQ(trap["time"], 12345678);
    EXPECT_TRUE(trap["header"].is_null());
    EXPECT_TRUE(trap["bindings"].empty());
}

TEST_F(Send, ChoosesWhatIsLeftOpen) {
    const Json trap = sent(local(), {"", "0", "0", ""});
    EXPECT_EQ(trap["community"], "public");
    EXPECT_EQ(trap["enterprise"], "1.3.6.1.4.1.2.6.3.1");
    EXPECT_NE(trap["agent"], "0.0.0.0");
    double uptime = 0;
    std::ifstream("/proc/uptime") >> uptime;
    EXPECT_NEAR(trap["time"].get<double>(), uptime * 100, 3000);
    EXPECT_EQ(trap["header"]["src"], 4);
    EXPECT_EQ(trap["header"]["len"], trap["bytes"]);
}

TEST_F(Send, TypeLettersAndValues) {
    const Json trap =
        sent(raw(), {"1.3",      "6",     "-5",         "1",        "1.3.1", "i",          "-5",
                     "1.3.2",    "u",     "4294967295", "1.3.3",    "c",     "3000000000", "1.3.4",
                     "g",        "7",     "1.3.5",      "t",        "150",   "1.3.6",      "a",
                     "10.1.2.3", "1.3.7", "o",          ".1.3.6.1", "1.3.8", "s",          "text",
                     "1.3.9",    "x",     "00 fF",      "1.3.10",   "d",     "10.255.0",   "1.3.11",
                     "n",        ""});
    EXPECT_EQ(trap["specific"], -5);
    EXPECT_EQ(trap["bindings"], Json::parse(R"([
        {"oid": "1.3.1", "type": "INTEGER", "value": -5},
        {"oid": "1.3.2", "type": "Gauge", "value": 4294967295},
        {"oid": "1.3.3", "type": "Counter", "value": 3000000000},
        {"oid": "1.3.4", "type": "Gauge", "value": 7},
        {"oid": "1.3.5", "type": "TimeTicks", "value": 150},
        {"oid": "1.3.6", "type": "IpAddress", "value": "10.1.2.3"},
        {"oid": "1.3.7", "type": "OBJECT IDENTIFIER", "value": "1.3.6.1"},
        {"oid": "1.3.8", "type": "OCTET STRING", "value": "text", "hex": "74 65 78 74"},
        {"oid": "1.3.9", "type": "OCTET STRING", "value": null, "hex": "00 ff"},
        {"oid": "1.3.10", "type": "OCTET STRING", "value": null, "hex": "0a ff 00"},
        {"oid": "1.3.11", "type": "NULL", "value": null}])"));
}

TEST_F(Send, ValuesMayLookLikeAnything) {
    const Words values = {"[a,b]", "{}", "%%", "-x", "--repeat", "--", "", "listen", "-5", "a=b"};
    Words words{"", "6", "1", "0"};
    for (const std::string& value : values) {
        words.insert(words.end(), {"1.3", "s", value});
    }
    words.insert(words.end(), {"--community", "behind"});
    const Json trap = sent(raw(), words);
    EXPECT_EQ(trap["community"], "behind");
    ASSERT_EQ(trap["bindings"].size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(trap["bindings"][i]["value"], values[i]);
    }
}

TEST_F(Send, HexFileIsSentAsItIs) {
    const std::string file = folder_.write("trap.hex", to_hex(small_trap(33)) + "\n");
    EXPECT_EQ(sent(raw(), {"--hex", file})["specific"], 33);
    const Json framed = sent(local(), {"--hex", file});
    EXPECT_EQ(framed["specific"], 33);
    EXPECT_EQ(framed["header"]["len"], 40);
    SubprocessOptions process;
    process.input = to_hex(small_trap(34));
    EXPECT_EQ(sent(raw(), {"--hex", "-"}, process)["specific"], 34);
}

TEST_F(Send, HexFileThatCannotBe) {
    const struct {
        std::string content;
        const char* part;
    } rows[] = {
        {"30 2", "no pair of hexadecimal digits at position 4"},
        {"30 zz", "no pair of hexadecimal digits at position 4"},
        {"", "holds 0 octets; a trap has 1 to 8192"},
        {std::string(16386, '0'), "holds more than 8192 octets; a trap has 1 to 8192"},
    };
    for (const auto& row : rows) {
        const CommandRun run = send(raw(), {"--hex", folder_.write("bad.hex", row.content)});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find(row.part), std::string::npos) << run.err;
    }
    const CommandRun missing = send(raw(), {"--hex", folder_.path("missing")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("cannot read " + folder_.path("missing") + ": No such file"),
              std::string::npos);
    const CommandRun folder = send(raw(), {"--hex", folder_.path()});
    EXPECT_EQ(folder.status, 1);
}

TEST_F(Send, RepeatTellsTheRate) {
    const CommandRun run = send(raw(), {"--repeat", "1000", "", "6", "1", ""});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(listener_.wait_for_lines(1000));
    // No terminal, so one line only.
    EXPECT_EQ(run.err.find("sent 1000 of 1000 traps in "), 0U) << run.err;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1);
    EXPECT_EQ(run.err.find('\r'), std::string::npos);
}

TEST_F(Send, RateIsKept) {
    const auto start = std::chrono::steady_clock::now();
    const CommandRun run =
        send(local(), {"--repeat", "11", "--rate", "20", "", "6", "1", "", "1.3", "i", "1"});
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_GE(elapsed.count(), 0.5);
    EXPECT_TRUE(listener_.wait_for_lines(11));
}

TEST_F(Send, ProgressIsRewrittenOnATerminal) {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    const Fd reader(master);
    Fd terminal(slave);
    SubprocessOptions process;
    process.error = terminal.get();
    const CommandRun run =
        send(raw(), {"--repeat", "12", "--rate", "20", "", "6", "1", ""}, process);
    EXPECT_EQ(run.status, 0);
    // With no other end left, what was shown comes first and then an error.
    terminal = Fd();
    std::string shown;
    std::array<char, 4096> block;
    for (ssize_t n = 0; (n = read(reader.get(), block.data(), block.size())) > 0;) {
        shown.append(block.data(), static_cast<std::size_t>(n));
    }
    EXPECT_NE(shown.find("\rsent 1 of 12 traps"), std::string::npos) << shown;
    EXPECT_NE(shown.find("\033[K"), std::string::npos);
    EXPECT_NE(shown.find("sent 12 of 12 traps in "), std::string::npos) << shown;
}

TEST_F(Send, APeerThatLeavesIsAFailure) {
    const Fd listener = tcp_listener();
    const std::string to = "raw:127.0.0.1:" + std::to_string(port_of(listener));
    Subprocess process(command_line(
        {"send", "--to", to, "--repeat", "10000000", "--rate", "1000", "", "6", "1", ""}));
    { const Fd gone = accepted(listener); }
    EXPECT_EQ(process.wait(), 1);
    EXPECT_NE(process.err().find("of 10000000 traps"), std::string::npos) << process.err();
    EXPECT_NE(process.err().find("wqevents send: cannot send to " + to + ": "), std::string::npos)
        << process.err();
}

TEST_F(Send, SaysWhatIsWrong) {
    const std::string big(1024, 'a');
    Words too_big{"", "6", "1", ""};
    for (int i = 0; i < 8; ++i) {
        too_big.insert(too_big.end(), {"1.3", "s", big});
    }
    const std::string closed =
        "raw:127.0.0.1:" + [] { return std::to_string(port_of(tcp_listener())); }();
    const struct {
        std::string to;
        Words words;
        int status;
        std::string part;
    } rows[] = {
        {"nowhere", {"", "6", "1", ""}, 2, "destination 'nowhere' is none of udp:HOST"},
        {"udp:", {"", "6", "1", ""}, 2, "destination 'udp:' is none of udp:HOST"},
        {"raw::1", {"", "6", "1", ""}, 2, "destination 'raw::1' must be raw:HOST or raw:HOST:PORT"},
        {"raw:h:0", {"", "6", "1", ""}, 2, "must be raw:HOST or raw:HOST:PORT"},
        {"udp:h:0", {"", "6", "1", ""}, 2, "must be udp:HOST or udp:HOST:PORT"},
        {"udp::1", {"", "6", "1", ""}, 2, "must be udp:HOST or udp:HOST:PORT"},
        {"udp:h:no-such-service", {"", "6", "1", ""}, 2, "the name of a UDP service"},
        {"tcp:h:65536", {"", "6", "1", ""}, 2, "must be tcp:HOST or tcp:HOST:PORT"},
        {"tcp:h:", {"", "6", "1", ""}, 2, "must be tcp:HOST or tcp:HOST:PORT"},
        {"raw:h:65536", {"", "6", "1", ""}, 2, "must be raw:HOST or raw:HOST:PORT"},
        {"raw:h:", {"", "6", "1", ""}, 2, "must be raw:HOST or raw:HOST:PORT"},
        {"raw:h:no-such-service", {"", "6", "1", ""}, 2, "the name of a TCP service"},
        {raw(), {}, 2, "there are 0 arguments"},
        {raw(), {"", "6", "1"}, 2, "ENTERPRISE GENERIC SPECIFIC TIME"},
        {raw(), {"", "6", "1", "", "1.3", "i"}, 2, "there are 6 arguments"},
        {raw(), {"x", "6", "1", ""}, 2, "enterprise 'x' is not an object identifier"},
        {raw(), {"", "7", "1", ""}, 2, "generic trap '7' is not a number from 0 to 6"},
        {raw(), {"", "6", "", ""}, 2, "specific trap '' is not a number"},
        {raw(), {"", "6", "1", "-1"}, 2, "time '-1' is not a number from 0 to 4294967295"},
        {raw(), {"", "6", "1", "", "1.3", "y", "1"}, 2, "type 'y' is not one of"},
        {raw(), {"", "6", "1", "", "1.3", "i", "x"}, 2, "binding 1.3: value 'x' is not a number"},
        {raw(), {"--agent", "10.1.2", "", "6", "1", ""}, 2, "agent '10.1.2' is not an IPv4"},
        {raw(), {"--community", std::string(128, 'c'), "", "6", "1", ""}, 2, "at most 127"},
        {raw(), {"--rate", "5", "", "6", "1", ""}, 2, "--repeat"},
        {raw(), {"--repeat", "0", "", "6", "1", ""}, 2, "--repeat"},
        {raw(), {"--repeat", "2", "--rate", "0", "", "6", "1", ""}, 2, "--rate"},
        {raw(), {"--hex", "f", "", "6", "1", ""}, 2, "--hex sends a whole trap"},
        {raw(), {"--wrong", "", "6", "1", ""}, 2, "--wrong"},
        {raw(), too_big, 1, "the trap cannot be encoded: it takes more than 8192 bytes"},
        {"local:/nonexistent/s",
         {"", "6", "1", ""},
         1,
         "cannot open a channel to local:/nonexistent/s: No such file or directory"},
        {"raw:nowhere.invalid", {"", "6", "1", ""}, 1, "the host is not known"},
        {closed, {"", "6", "1", ""}, 1, "Connection refused"},
        {"tcp:127.0.0.1" + closed.substr(closed.rfind(':')),
         {"", "6", "1", ""},
         1,
         "Connection refused"},
    };
    for (const auto& row : rows) {
        const CommandRun run = send(row.to, row.words);
        EXPECT_EQ(run.status, row.status) << row.part;
        EXPECT_NE(run.err.find(row.part), std::string::npos) << row.part << "\n" << run.err;
        EXPECT_NE(run.err.find("wqevents send: "), std::string::npos) << run.err;
    }
    const CommandRun nowhere({"send", "", "6", "1", ""});
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_NE(nowhere.err.find("--to is required"), std::string::npos) << nowhere.err;
    EXPECT_EQ(listener_.lines(), 0U);
}

TEST(SendToPorts, ReachesListenersAnywhere) {
    const std::string any_port = "127.0.0.1:0";
    ListeningProcess listener(
        {"--json", "--udp", any_port, "--tcp", any_port, "--raw-tcp", any_port});
    std::size_t count = 0;
    for (const std::string transport : {"udp", "tcp", "raw-tcp"}) {
        const std::string scheme = transport.substr(0, 3);  // the raw one is "raw"
        const std::string to = scheme + ":localhost:" + std::to_string(listener.port(transport));
        const CommandRun run({"send", "--to", to, "--repeat", "3", "", "6", "1", ""});
        EXPECT_EQ(run.status, 0) << run.err;
        count += 3;
        ASSERT_TRUE(listener.wait_for_lines(count));
        const Json last = listener.objects().back();
        EXPECT_EQ(last["transport"], transport);
        EXPECT_EQ(last["header"].is_null(), transport != "tcp");
    }
}

TEST(SendInSandbox, ReachesTheWellKnownPorts) {
    REQUIRE_SANDBOX();
    const SandboxFiles files{.services = "kmvortd-client 2345/tcp\nkmvortd-trap 1162/tcp\n"};
    run_in_sandbox(files, [] {
        ListeningProcess listener({"--json", "--udp", "127.0.0.1:162", "--tcp", "127.0.0.1:2345",
                                   "--raw-tcp", "127.0.0.1:1162"});
        const char* const transports[] = {"udp", "tcp", "raw-tcp", "raw-tcp", "tcp"};
        const char* const destinations[] = {"udp:localhost", "tcp:localhost", "raw:localhost",
                                            "raw:localhost:kmvortd-trap",
                                            "tcp:localhost:kmvortd-client"};
        for (std::size_t i = 0; i < 5; ++i) {
            const CommandRun run({"send", "--to", destinations[i], "", "6", std::to_string(i), ""});
            EXPECT_EQ(run.status, 0) << run.err;
            ASSERT_TRUE(listener.wait_for_lines(i + 1));
            EXPECT_EQ(listener.objects()[i]["transport"], transports[i]);
            EXPECT_EQ(listener.objects()[i]["specific"], i);
        }
    });
}

TEST(SendInSandbox, TellsThatTheClientServiceIsMissing) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const CommandRun run({"send", "--to", "tcp:localhost", "", "6", "1", ""});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find("the TCP service kmvortd-client is not known"), std::string::npos);
    });
}

}  // namespace
}  // namespace wq::test
