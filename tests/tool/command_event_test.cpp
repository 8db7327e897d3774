#include <filesystem>

#include "listening_process.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

/* The three traps of an event: wake-up, the event itself, disconnect. */
class Event : public testing::Test {
  protected:
    Event() : listener_({"--json", "--socket", socket_, "--raw-tcp", "127.0.0.1:0"}) {}

    std::vector<Json> send(const Words& words, std::size_t traps = 3) {
        Words all{"event", "--to", "local:" + socket_};
        all.insert(all.end(), words.begin(), words.end());
        const CommandRun run(all);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        listener_.wait_for_lines(traps);
        return listener_.objects();
    }

    static std::vector<std::string> texts(const Json& trap) {
        std::vector<std::string> all;
        for (std::size_t i = 1; i < trap["bindings"].size(); ++i) {
            all.push_back(trap["bindings"][i]["value"]);
        }
        return all;
    }

    const TempDir folder_;
    const std::string socket_ = folder_.path("s");
    ListeningProcess listener_;
};

TEST_F(Event, IsAnnouncedSentAndEnded) {
    const auto traps = send({"0x12345", "disk is full"});
    ASSERT_EQ(traps.size(), 3U);
    EXPECT_EQ(traps[0]["specific"], 59179056);
    EXPECT_EQ(texts(traps[0])[1], "Vendor Application connected to vortd.");
    EXPECT_EQ(traps[1]["specific"], 0x12345);
    EXPECT_EQ(traps[1]["generic"], 6);
    EXPECT_EQ(traps[1]["enterprise"], "1.3.6.1.4.1.2.6.3.1");
    EXPECT_EQ(traps[1]["header"]["src"], 15);
    EXPECT_EQ(traps[1]["bindings"][0],
              (Json{{"oid", "1.3.6.1.4.1.2.6.3.1.1.2.0"}, {"type", "INTEGER"}, {"value", 15}}));
    EXPECT_EQ(texts(traps[1]), (Words{"<none>", "disk is full", "", ""}));
    EXPECT_EQ(traps[2]["specific"], 59179057);
    EXPECT_EQ(texts(traps[2])[1], "Vendor Application disconnecting from vortd.");
}

TEST_F(Event, HasFiveEightOrTenBindings) {
    const auto traps =
        send({"1", "d", "--host", " alpha beta", "--data", "D", "--db", "B", "--source", "4"}, 1);
    EXPECT_EQ(texts(traps[0]), (Words{"alpha", "d", "D", "B"}));
    EXPECT_EQ(traps[0]["bindings"][0]["value"], 4);

    const struct {
        const char* option;
        Words expected;
    } rows[] = {
        {"--selname", {"<none>", "d", "", "", "v", "", ""}},
        {"--ipaddress", {"<none>", "d", "", "", "", "v", ""}},
        {"--trapspecific", {"<none>", "d", "", "", "", "", "v"}},
        {"--network-addr", {"<none>", "d", "", "", "", "", "", "v", ""}},
        {"--network-mask", {"<none>", "d", "", "", "", "", "", "", "v"}},
    };
    std::size_t count = 1;
    for (const auto& row : rows) {
        const auto all = send({"--source", "4", row.option, "v", "1", "d"}, ++count);
        ASSERT_EQ(all.size(), count);
        EXPECT_EQ(texts(all.back()), row.expected) << row.option;
    }
}

TEST_F(Event, EmptyTextsAreTexts) {
    const auto traps = send({"--source", "4", "--selname", "", "--data", "", "1", ""}, 1);
    EXPECT_EQ(texts(traps[0]), (Words{"<none>", "", "", "", "", "", ""}));
}

TEST_F(Event, GoesByRawTcpWithoutHeader) {
    const CommandRun run({"event", "--to",
                          "raw:127.0.0.1:" + std::to_string(listener_.port("raw-tcp")), "--source",
                          "12", "7", "node down"});
    EXPECT_EQ(run.status, 0) << run.err;
    ASSERT_TRUE(listener_.wait_for_lines(3));
    EXPECT_TRUE(listener_.objects()[1]["header"].is_null());
    EXPECT_EQ(texts(listener_.objects()[1])[1], "node down");
}

/* Each application tells of its coming and going as it would by the ports that are known to all. */
TEST(EventToPorts, IsAnnouncedSentAndEnded) {
    struct Row {
        const char* transport;
        const char* source;
        std::vector<int> events;
    };
    constexpr int wake_up = 59179056;
    constexpr int disconnect = 59179057;
    const Row rows[] = {
        {"udp", "15", {wake_up, 5, disconnect}},
        {"tcp", "15", {wake_up, 5, disconnect}},
        {"udp", "4", {5}},
        {"tcp", "4", {5}},
        {"udp", "24", {5}},
        {"tcp", "24", {wake_up, 5, disconnect}},
    };
    for (const Row& row : rows) {
        ListeningProcess listener({"--json", "--udp", "127.0.0.1:0", "--tcp", "127.0.0.1:0"});
        const std::string to = std::string(row.transport) +
                               ":127.0.0.1:" + std::to_string(listener.port(row.transport));
        const CommandRun run({"event", "--to", to, "--source", row.source, "5", "text"});
        EXPECT_EQ(run.status, 0) << run.err;
        ASSERT_TRUE(listener.wait_for_lines(row.events.size()));
        EXPECT_EQ(listener.terminate(), 0);
        std::vector<int> events;
        for (const Json& trap : listener.objects()) {
            events.push_back(trap["specific"]);
            EXPECT_EQ(trap["bindings"][0]["value"], std::stoi(row.source));
            if (std::string(row.transport) == "tcp") {
                EXPECT_EQ(trap["header"]["src"], std::stoi(row.source));
            }
        }
        EXPECT_EQ(events, row.events) << to << " of " << row.source;
        EXPECT_NE(listener.err().find("undecodable 0\n"), std::string::npos) << listener.err();
    }
}

TEST_F(Event, DescriptionsMayBeginWithADash) {
    const auto traps = send({"--source", "4", "1", "--", "--help"}, 1);
    EXPECT_EQ(texts(traps[0])[1], "--help");
}

TEST_F(Event, SaysWhatIsWrong) {
    const std::string to = "local:" + socket_;
    const struct {
        Words words;
        int status;
        std::string part;
    } rows[] = {
        {{"1", "d"}, 2, "--to is required"},
        {{"--to", to}, 2, "NUMBER is required"},
        {{"--to", to, "1"}, 2, "DESCRIPTION is required"},
        {{"--to", to, "x", "d"}, 2, "event number 'x' is not a number from 0 to 2147483647"},
        {{"--to", to, "0x80000000", "d"}, 2, "event number '0x80000000' is not a number"},
        {{"--to", to, "1", "d", "more"}, 2, "not expected: more"},
        {{"--to", to, "--source", "0", "1", "d"}, 2, "--source: '0' is not a number from 1 to 27"},
        {{"--to", to, "--source", "28", "1", "d"},
         2,
         "--source: '28' is not a number from 1 to 27"},
        {{"--to", to, "--source", "x", "1", "d"}, 2, "--source"},
        {{"--to", "x", "1", "d"}, 2, "destination 'x' is none of udp:HOST"},
        {{"--to", "local:" + folder_.path("none"), "1", "d"}, 1, "No such file or directory"},
        {{"--to", "local:" + folder_.path(), "1", "d"}, 1, "Connection refused"},
    };
    for (const auto& row : rows) {
        Words words{"event"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const CommandRun run(words);
        EXPECT_EQ(run.status, row.status) << row.part;
        EXPECT_NE(run.err.find(row.part), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("wqevents event: "), 0U) << run.err;
    }
    EXPECT_EQ(listener_.lines(), 0U);
}

TEST(EventInSandbox, GoesByDatagrams) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        ListeningProcess listener({"--json", "--udp", "127.0.0.1:162"});
        const CommandRun run({"event", "--to", "udp:localhost", "5", "by datagram"});
        EXPECT_EQ(run.status, 0) << run.err;
        ASSERT_TRUE(listener.wait_for_lines(3));
        EXPECT_EQ(listener.objects()[1]["bindings"][2]["value"], "by datagram");
    });
}

TEST(EventInSandbox, AutomaticFindsTheDaemonHereOrAtTheServer) {
    REQUIRE_SANDBOX();
    run_in_sandbox({.services = "kmvortd-client 2345/tcp\n"}, [] {
        std::filesystem::create_directory("/usr/WQ/sockets");
        ListeningProcess listener(
            {"--json", "--socket", "/usr/WQ/sockets/vortd.socket", "--tcp", "127.0.0.1:2345"});
        const Words words{"event", "--to", "auto", "--source", "4", "5", "found"};
        EXPECT_EQ(CommandRun(words).status, 0);
        ASSERT_TRUE(listener.wait_for_lines(1));
        EXPECT_EQ(listener.objects()[0]["transport"], "socket");
        SubprocessOptions client;
        client.environment = {{"WQSERVER", "localhost"}};
        EXPECT_EQ(CommandRun(words, client).status, 0);
        ASSERT_TRUE(listener.wait_for_lines(2));
        EXPECT_EQ(listener.objects()[1]["transport"], "tcp");
    });
}

}  // namespace
}  // namespace wq::test
