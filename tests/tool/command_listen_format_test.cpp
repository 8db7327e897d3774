#include <thread>

#include "captures.h"
#include "formatting.h"
#include "support/hex.h"

namespace wq::test {
namespace {

const std::string any_port = "127.0.0.1:0";

class ListenFormat : public Formatting {
  protected:
    static Words words(Words options) {
        const Words first = {"--raw-tcp", any_port};
        options.insert(options.begin(), first.begin(), first.end());
        return options;
    }
};

TEST_F(ListenFormat, PrintsTheLayoutThatIsAskedFor) {
    const struct {
        Words options;
        const char* text;
    } rows[] = {
        {{"--format", "prx"}, "logged\n"},
        {{"--format", "obu"}, "192.0.2.7: logged\n"},
        {{"--format=obu"}, "192.0.2.7: logged\n"},
    };
    for (const auto& row : rows) {
        Words all = words(row.options);
        all.insert(all.end(), {"--count", "1"});
        ListeningProcess listener(all);
        write_all(connected_to(listener.port("raw-tcp")), formatted_trap(4));
        EXPECT_EQ(listener.wait(), 0) << listener.err();
        EXPECT_EQ(listener.out(), row.text);
    }
}

/* Without a kind it is the daemon's, which begins with the time in seconds. */
TEST_F(ListenFormat, TheLayoutIsTheDaemonsByDefault) {
    for (const Words& options :
         {Words{"--format", "--count", "1"}, Words{"--count", "1", "--format"},
          Words{"--format", "vortd", "--count", "1"}}) {
        const std::time_t before = std::time(nullptr);
        ListeningProcess listener(words(options));
        write_all(connected_to(listener.port("raw-tcp")), formatted_trap(4));
        EXPECT_EQ(listener.wait(), 0) << listener.err();
        const std::string line = listener.out();
        const std::time_t shown = std::stoll(line);
        EXPECT_GE(shown, before);
        EXPECT_LE(shown, std::time(nullptr));
        EXPECT_EQ(line.substr(10, 4), " 7  ");
        char time[32];
        std::strftime(time, sizeof time, "%a %b %d %H:%M:%S %Y", std::gmtime(&shown));
        EXPECT_EQ(line.substr(14), std::string(time) + " 192.0.2.7                 A logged\n");
    }
}

TEST_F(ListenFormat, TakesTrapsByEveryTransport) {
    ListeningProcess listener({"--format", "prx", "--udp", any_port, "--socket", folder_.path("s"),
                               "--tcp", any_port, "--raw-tcp", any_port});
    send_datagram(udp_socket(), listener.port("udp"), formatted_trap(4));
    ASSERT_TRUE(listener.wait_for_lines(1));
    write_all(connected_to(listener.address("socket")), with_header(formatted_trap(4)));
    ASSERT_TRUE(listener.wait_for_lines(2));
    write_all(connected_to(listener.port("tcp")), with_header(formatted_trap(4)));
    ASSERT_TRUE(listener.wait_for_lines(3));
    write_all(connected_to(listener.port("raw-tcp")), formatted_trap(4));
    ASSERT_TRUE(listener.wait_for_lines(4));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_EQ(listener.out(), "logged\nlogged\nlogged\nlogged\n");
}

TEST_F(ListenFormat, TheTotalsTellWhatIsNotShown) {
    ListeningProcess listener(words({"--format", "prx", "--count", "3"}));
    write_all(connected_to(listener.port("raw-tcp")),
              joined({formatted_trap(3), formatted_trap(3), formatted_trap(4)}));
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.out(), "logged\n");
    EXPECT_NE(listener.err().find("received 3 traps\nwithheld 2: not to be shown 2\nundecodable 0"),
              std::string::npos)
        << listener.err();
}

TEST_F(ListenFormat, ManyTrapsComeOutInOrderAndWhole) {
    ListeningProcess listener(words({"--format", "prx", "--count", "20000"}));
    Bytes traps;
    for (int i = 0; i < 10000; ++i) {
        for (const Bytes& trap : {formatted_trap(2), formatted_trap(4)}) {
            traps.insert(traps.end(), trap.begin(), trap.end());
        }
    }
    std::thread writer([&] { write_all(connected_to(listener.port("raw-tcp")), traps); });
    EXPECT_EQ(listener.wait(), 0) << listener.err();
    writer.join();
    std::string expected;
    for (int i = 0; i < 10000; ++i) {
        expected += "first of public\n\tsecond of 0\n\tthird\nlogged\n";
    }
    EXPECT_TRUE(listener.out() == expected);
}

/* The enterprise of the second trap begins that of the first, which is the platform's. */
TEST_F(ListenFormat, NothingOfAnEarlierTrapIsTakenForAPartOfTheNext) {
    const Bytes first = event_trap(platform_enterprise, 1500, "alpha", "up");
    const Bytes second = event_trap({1, 3, 6, 1, 4, 1, 2}, 1500, "beta", "down");
    ListeningProcess listener(words({"--format", "obu", "--count", "2"}));
    write_all(connected_to(listener.port("raw-tcp")), joined({first, second}));
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.out().find("alpha: up\n192.0.2.7: NO FMT IN VORTD.CONF: small "), 0U)
        << listener.out();
}

TEST_F(ListenFormat, TakesAnotherConfiguration) {
    std::string other = small_configuration;
    other.replace(other.find("logged"), 6, "another");
    const std::string file = folder_.write("other.conf", other);
    ListeningProcess listener(words({"--format", "prx", "--conf", file, "--count", "1"}));
    write_all(connected_to(listener.port("raw-tcp")), formatted_trap(4));
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.out(), "another\n");
}

TEST_F(ListenFormat, TheEnvironmentChoosesStrictHexadecimal) {
    Bytes trap = from_nowhere(string_trap({'a', ' ', 'b'}));
    trap[34] = 1;
    for (const char* value : {"", "1"}) {
        SubprocessOptions process;
        process.environment["VORTD_STRICT_HEX_FORMAT"] = value;
        ListeningProcess listener(words({"--format", "prx", "--count", "1"}), process);
        write_all(connected_to(listener.port("raw-tcp")), trap);
        EXPECT_EQ(listener.wait(), 0);
        EXPECT_EQ(listener.out(), "one 6/1 of public from 192.0.2.7: 0x61 20 62\n");
    }
    ListeningProcess listener(words({"--format", "prx", "--count", "1"}));
    write_all(connected_to(listener.port("raw-tcp")), trap);
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.out(), "one 6/1 of public from 192.0.2.7: a b\n");
}

TEST_F(ListenFormat, AConfigurationThatCannotBeReadIsAFailureAtOnce) {
    folder_.write("C/vortd.conf", "CATEGORY 64 \"Beyond\"\n");
    const CommandRun run({"listen", "--raw-tcp", any_port, "--format"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.find("listening"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("wqevents listen: Bad category number"), std::string::npos) << run.err;
}

TEST_F(ListenFormat, WrongCommandLines) {
    const struct {
        Words words;
        const char* part;
    } rows[] = {
        {{"listen", "--udp", any_port, "--format", "--json"}, "--json excludes --format"},
        {{"listen", "--udp", any_port, "--format", "text"},
         "there is no kind of layout 'text'; there are vortd, zleevent, kmevents, obu, prx"},
        {{"listen", "--format"}, "there is nothing to listen on"},
    };
    for (const auto& row : rows) {
        const CommandRun run(row.words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(row.part), std::string::npos) << run.err;
    }
}

}  // namespace
}  // namespace wq::test
