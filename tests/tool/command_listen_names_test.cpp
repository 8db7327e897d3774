#include <arpa/inet.h>
#include <poll.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>

#include "captures.h"
#include "formatting.h"
#include "host_names.h"
#include "resolver.h"
#include "support/sandbox.h"

namespace wq::test {
namespace {

using command::HostAnswer;
using command::HostNameCache;
using std::chrono::seconds;

const std::string any_port = "127.0.0.1:0";

HostAnswer answer(HostAnswer::Kind kind, std::uint32_t address, const char* name = "") {
    HostAnswer told{kind, true, address, {}};
    std::string_view(name).copy(told.name.data(), told.name.size() - 1);
    return told;
}

HostAnswer found(std::uint32_t address, const char* name) {
    return answer(HostAnswer::Kind::found, address, name);
}

class NameCache : public testing::Test {
  protected:
    std::string name_of(std::uint32_t address, HostNameCache::Time now) {
        const auto look = cache_.look_up(address, now);
        return look.name == nullptr ? "" : *look.name;
    }
    bool asks(std::uint32_t address, HostNameCache::Time now) {
        return cache_.look_up(address, now).ask;
    }

    HostNameCache cache_;
    const HostNameCache::Time start_ = HostNameCache::Time(seconds(1000));
};

TEST_F(NameCache, AsksOnceAndKnowsThenForAWhile) {
    EXPECT_TRUE(asks(1, start_));
    cache_.asked(1);
    EXPECT_FALSE(asks(1, start_));
    EXPECT_EQ(name_of(1, start_), "");
    cache_.remember(found(1, "alpha"), false, start_);
    EXPECT_EQ(name_of(1, start_ + seconds(299)), "alpha");
    EXPECT_FALSE(asks(1, start_ + seconds(299)));
    // The old name serves while it is asked for again.
    EXPECT_TRUE(asks(1, start_ + seconds(300)));
    EXPECT_EQ(name_of(1, start_ + seconds(300)), "alpha");
    cache_.asked(1);
    EXPECT_FALSE(asks(1, start_ + seconds(400)));
    EXPECT_EQ(name_of(1, start_ + seconds(400)), "alpha");
}

TEST_F(NameCache, WhatHasNoNameIsAskedForSooner) {
    cache_.remember(answer(HostAnswer::Kind::none, 1), false, start_);
    EXPECT_FALSE(asks(1, start_ + seconds(59)));
    EXPECT_TRUE(asks(1, start_ + seconds(60)));
    cache_.remember(found(1, "alpha"), false, start_);
    cache_.remember(answer(HostAnswer::Kind::none, 1), false, start_);
    EXPECT_EQ(name_of(1, start_), "");
}

TEST_F(NameCache, ANameOutlivesItsServer) {
    cache_.remember(found(1, "alpha"), false, start_);
    cache_.remember(answer(HostAnswer::Kind::unavailable, 1), false, start_ + seconds(300));
    EXPECT_EQ(name_of(1, start_ + seconds(359)), "alpha");
    EXPECT_FALSE(asks(1, start_ + seconds(359)));
    EXPECT_TRUE(asks(1, start_ + seconds(360)));
}

TEST_F(NameCache, TheLeastRecentlyUsedGivesWayButNoNode) {
    cache_.remember(found(1, "node"), true, start_);
    for (std::uint32_t address = 2; address < 2 + HostNameCache::capacity; ++address) {
        cache_.remember(found(address, "alpha"), false, start_);
    }
    EXPECT_EQ(name_of(2, start_), "alpha");  // used last from now on
    cache_.asked(100'000);
    EXPECT_EQ(cache_.size(), HostNameCache::capacity + 1);
    EXPECT_EQ(name_of(1, start_), "node");
    EXPECT_EQ(name_of(2, start_), "alpha");
    EXPECT_EQ(name_of(3, start_), "");
    EXPECT_EQ(name_of(4, start_), "alpha");
}

TEST_F(NameCache, QuestionsWithoutAnAnswerAreAskedAgain) {
    cache_.asked(1);
    cache_.forget_questions(start_);
    EXPECT_FALSE(asks(1, start_ + seconds(59)));
    EXPECT_TRUE(asks(1, start_ + seconds(60)));
}

TEST(HostName, HasLettersDigitsDotsDashesAndUnderscores) {
    EXPECT_TRUE(command::is_host_name("a-B.9_z"));
    EXPECT_TRUE(command::is_host_name(std::string(79, 'a').c_str()));
    for (const std::string& name :
         {std::string(), std::string(80, 'a'), std::string("a b"), std::string("a\x1b[2J"),
          std::string("a\n"), std::string("\xc3\xa4"), std::string("a/b")}) {
        EXPECT_FALSE(command::is_host_name(name.c_str())) << name;
    }
}

TEST(Resolver, OwesNothingAfterTheLastAnswer) {
    command::Resolver resolver;
    EXPECT_EQ(resolver.overdue(), command::Resolver::Clock::time_point::max());
    ASSERT_TRUE(resolver.ask(htonl(INADDR_LOOPBACK)));
    EXPECT_EQ(resolver.waiting(), 1U);
    EXPECT_LT(resolver.overdue(), command::Resolver::Clock::time_point::max());
    std::size_t answers = 0;
    while (answers == 0) {
        pollfd waited{resolver.fd(), POLLIN, 0};
        ASSERT_EQ(poll(&waited, 1, 60'000), 1);
        ASSERT_TRUE(resolver.take([&](const HostAnswer& told) {
            EXPECT_EQ(told.address, htonl(INADDR_LOOPBACK));
            EXPECT_TRUE(told.last);
            ++answers;
        }));
    }
    EXPECT_EQ(answers, 1U);
    EXPECT_EQ(resolver.waiting(), 0U);
    EXPECT_EQ(resolver.overdue(), command::Resolver::Clock::time_point::max());
}

Bytes trap_of(std::uint8_t host) {
    Bytes trap = formatted_trap(4);
    trap[28] = host;
    return trap;
}

class ListenNames : public Formatting {
  protected:
    static Words words(const std::string& names) {
        return {"--raw-tcp", any_port, "--format", "obu", "--names", names};
    }
    static std::string last_line(const ListeningProcess& listener) {
        const std::string& out = listener.out();
        return out.substr(out.rfind('\n', out.size() - 2) + 1);
    }
    /* Sends the trap until its line is this. */
    static bool comes_to_show(ListeningProcess& listener, const Fd& peer, const Bytes& trap,
                              const std::string& line) {
        for (int i = 0; i < 400; ++i) {
            const std::size_t before = listener.lines();
            write_all(peer, trap);
            if (!listener.wait_for_lines(before + 1)) {
                return false;
            }
            if (last_line(listener) == line) {
                return true;
            }
            usleep(50'000);
        }
        return false;
    }
    /* Its children, by the system. */
    static std::vector<pid_t> children_of(pid_t process) {
        const std::string number = std::to_string(process);
        std::ifstream file("/proc/" + number + "/task/" + number + "/children");
        std::vector<pid_t> all;
        for (pid_t child = 0; file >> child;) {
            all.push_back(child);
        }
        return all;
    }
};

const SandboxFiles hosts{.hosts =
                             "127.0.0.1 localhost sandbox-host\n"
                             "192.0.2.1 alpha\n"
                             "192.0.2.2 beta.example\n"
                             "192.0.2.3 bad\\name\n"};

TEST_F(ListenNames, AreShownOnceTheyAreKnown) {
    REQUIRE_SANDBOX();
    run_in_sandbox(hosts, [&] {
        ListeningProcess listener(words("cache"));
        const Fd peer = connected_to(listener.port("raw-tcp"));
        EXPECT_TRUE(comes_to_show(listener, peer, trap_of(1), "alpha: logged\n"));
        EXPECT_EQ(listener.out().find("192.0.2.1: logged\n"), 0U);
        EXPECT_TRUE(comes_to_show(listener, peer, trap_of(2), "beta.example: logged\n"));
        EXPECT_EQ(listener.terminate(), 0);
    });
}

TEST_F(ListenNames, AreWaitedForOrNeverShown) {
    REQUIRE_SANDBOX();
    run_in_sandbox(hosts, [&] {
        const struct {
            const char* mode;
            const char* text;
        } rows[] = {
            {"now", "alpha: logged\nbeta.example: logged\n192.0.2.3: logged\n192.0.2.9: logged\n"},
            {"never",
             "192.0.2.1: logged\n192.0.2.2: logged\n192.0.2.3: logged\n192.0.2.9: logged\n"}};
        for (const auto& row : rows) {
            ListeningProcess listener(words(row.mode));
            write_all(connected_to(listener.port("raw-tcp")),
                      joined({trap_of(1), trap_of(2), trap_of(3), trap_of(9)}));
            ASSERT_TRUE(listener.wait_for_lines(4));
            EXPECT_EQ(listener.out(), row.text);
            EXPECT_EQ(listener.terminate(), 0);
        }
    });
}

TEST_F(ListenNames, OfNodesAreKnownFromTheFirstTrapOn) {
    REQUIRE_SANDBOX();
    std::string text = small_configuration;
    text.insert(text.find("FOR_THE_LOG"),
                "OF_BETA {1.3.6.1.4.1.2} 6 4 A 1 0 \"Error Events\"\nof a node\n"
                "NODES alpha beta.example\nSDESC\nEDESC\n#\n");
    folder_.write("C/vortd.conf", text);
    run_in_sandbox(hosts, [&] {
        ListeningProcess listener(words("cache"));
        const Fd peer = connected_to(listener.port("raw-tcp"));
        write_all(peer, joined({trap_of(2), trap_of(1), trap_of(9)}));
        ASSERT_TRUE(listener.wait_for_lines(3));
        EXPECT_EQ(listener.out(), "beta.example: of a node\nalpha: of a node\n192.0.2.9: logged\n");
    });
}

TEST_F(ListenNames, ComeAgainAfterTheProcessThatAsksHasGone) {
    REQUIRE_SANDBOX();
    run_in_sandbox(hosts, [&] {
        ListeningProcess listener(words("cache"));
        const std::vector<pid_t> children = children_of(listener.pid());
        ASSERT_EQ(children.size(), 1U);
        kill(children[0], SIGKILL);
        const Fd peer = connected_to(listener.port("raw-tcp"));
        write_all(peer, trap_of(1));
        ASSERT_TRUE(listener.wait_for_lines(1));
        std::vector<pid_t> now;
        for (int i = 0; i < 2000 && (now.size() != 1 || now[0] == children[0]); ++i) {
            usleep(10'000);
            now = children_of(listener.pid());
        }
        ASSERT_EQ(now.size(), 1U);
        EXPECT_TRUE(comes_to_show(listener, peer, trap_of(2), "beta.example: logged\n"));
        EXPECT_EQ(listener.terminate(), 0);
    });
}

TEST_F(ListenNames, NothingIsLeftRunning) {
    REQUIRE_SANDBOX();
    run_in_sandbox(hosts, [&] {
        auto listener = std::make_unique<ListeningProcess>(words("cache"));
        const std::vector<pid_t> children = children_of(listener->pid());
        ASSERT_EQ(children.size(), 1U);
        listener->signal(SIGKILL);
        EXPECT_EQ(listener->wait(), 128 + SIGKILL);
        for (int i = 0; i < 2000 && kill(children[0], 0) == 0; ++i) {
            std::ifstream status("/proc/" + std::to_string(children[0]) + "/stat");
            std::string text;
            std::getline(status, text);
            if (text.find(") Z") != std::string::npos) {  // ended; who reaps it is not the test's
                return;
            }
            usleep(10'000);
        }
        EXPECT_NE(kill(children[0], 0), 0);
    });
}

/* A name server that takes every question and never answers. */
class SilentServer : public ListenNames {
  protected:
    static SandboxFiles files() {
        return {.host_sources = "files dns",
                .resolver = "nameserver 127.0.0.1\noptions timeout:30 attempts:5\n"};
    }
    static Bytes traps_of_40_agents() {
        Bytes all;
        for (std::uint8_t host = 1; host <= 40; ++host) {
            const Bytes trap = trap_of(host);
            all.insert(all.end(), trap.begin(), trap.end());
        }
        return all;
    }
};

TEST_F(SilentServer, NoLineWaitsForAName) {
    REQUIRE_SANDBOX();
    run_in_sandbox(files(), [&] {
        const Fd server = udp_socket(53);
        ListeningProcess listener(words("cache"));
        write_all(connected_to(listener.port("raw-tcp")), traps_of_40_agents());
        ASSERT_TRUE(listener.wait_for_lines(40));
        EXPECT_TRUE(listener.out().ends_with("192.0.2.40: logged\n"));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(listener.terminate(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(15));
    });
}

/* Lines wait for names here, but none waits for the name of another's, and no signal does. */
TEST_F(SilentServer, SignalsAreLookedAtBetweenTrapsThatWait) {
    REQUIRE_SANDBOX();
    run_in_sandbox(files(), [&] {
        const Fd server = udp_socket(53);
        ListeningProcess listener(words("now"));
        write_all(connected_to(listener.port("raw-tcp")), traps_of_40_agents());
        ASSERT_TRUE(listener.wait_for_lines(1));
        EXPECT_LT(listener.lines(), 40U);
        listener.signal(SIGTERM);
        EXPECT_EQ(listener.wait(), 0);
        EXPECT_EQ(listener.lines(), 40U);
    });
}

TEST_F(SilentServer, FormatDoesNotWaitIfItNeedNot) {
    REQUIRE_SANDBOX();
    const Bytes traps = traps_of_40_agents();
    const std::string file = folder_.write("traps", to_hex(traps));
    run_in_sandbox(files(), [&] {
        const Fd server = udp_socket(53);
        for (const std::string names : {"cache", "never"}) {
            const CommandRun run({"format", "--kind", "obu", "--names", names, file});
            EXPECT_EQ(run.status, 0) << run.err;
            EXPECT_TRUE(run.out.ends_with("192.0.2.40: logged\n")) << run.out;
        }
    });
}

}  // namespace
}  // namespace wq::test
