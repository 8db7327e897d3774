#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "listening_process.h"
#include "sample_traps.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string any_port = "127.0.0.1:0";

TEST(Listen, TakesTrapsByEveryTransport) {
    const TempDir folder;
    ListeningProcess listener({"--json", "--udp", any_port, "--socket", folder.path("s"), "--tcp",
                               any_port, "--raw-tcp", any_port});
    send_datagram(udp_socket(), listener.port("udp"), small_trap(1));
    ASSERT_TRUE(listener.wait_for_lines(1));
    write_all(connected_to(listener.address("socket")), with_header(small_trap(2)));
    ASSERT_TRUE(listener.wait_for_lines(2));
    write_all(connected_to(listener.port("tcp")), with_header(small_trap(3)));
    ASSERT_TRUE(listener.wait_for_lines(3));
    write_all(connected_to(listener.port("raw-tcp")), small_trap(4));
    ASSERT_TRUE(listener.wait_for_lines(4));

    const char* const transports[] = {"udp", "socket", "tcp", "raw-tcp"};
    const auto objects = listener.objects();
    for (std::size_t i = 0; i < 4; ++i) {
        const bool framed = i == 1 || i == 2;
        Json expected = {{"transport", transports[i]},
                         {"peer", objects[i]["peer"]},
                         {"bytes", 40},
                         {"header", nullptr},
                         {"community", "public"},
                         {"enterprise", "1.3.6.1.4.1.2"},
                         {"generic", 6},
                         {"specific", i + 1},
                         {"agent", "10.1.2.3"},
                         {"time", 5},
                         {"bindings", Json::array()}};
        if (framed) {
            expected["header"] = {{"len", 40}, {"src", 15},    {"pid", 4711},
                                  {"time", 0}, {"status", -1}, {"target", 9}};
        }
        EXPECT_EQ(objects[i], expected);
    }
    EXPECT_EQ(objects[1]["peer"], "process " + std::to_string(getpid()));
    EXPECT_EQ(objects[3]["peer"].get<std::string>().substr(0, 10), "127.0.0.1:");
    EXPECT_EQ(listener.terminate(), 0);
}

TEST(Listen, PrintsText) {
    ListeningProcess listener({"--raw-tcp", any_port, "--count", "1"});
    write_all(connected_to(listener.port("raw-tcp")), string_trap({'h', 'i'}));
    EXPECT_EQ(listener.wait(), 0);
    const std::string text = listener.out();
    EXPECT_EQ(text.substr(0, text.find("127.0.0.1")), "trap of 51 bytes by raw-tcp from ");
    EXPECT_EQ(text.substr(text.find("  header")),
              "  header: none\n"
              "  community: \"public\"\n"
              "  enterprise: 1.3.6.1.4.1.2\n"
              "  generic: 6 (enterpriseSpecific)\n"
              "  specific: 1 (0x00000001)\n"
              "  agent: 10.1.2.3\n"
              "  time: 5 (0 days 0:00:00.05)\n"
              "  binding 1: 1.3.6.1 OCTET STRING: \"hi\"\n"
              "\n");
}

TEST(Listen, PlacesMayBeRepeated) {
    const TempDir folder;
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--raw-tcp", any_port, "--udp",
                               any_port, "--udp", any_port, "--socket", folder.path("a"),
                               "--socket", folder.path("b")});
    write_all(connected_to(listener.port("raw-tcp", 0)), small_trap());
    write_all(connected_to(listener.port("raw-tcp", 1)), small_trap());
    send_datagram(udp_socket(), listener.port("udp", 0), small_trap());
    send_datagram(udp_socket(), listener.port("udp", 1), small_trap());
    write_all(connected_to(folder.path("a")), with_header(small_trap()));
    write_all(connected_to(folder.path("b")), with_header(small_trap()));
    EXPECT_TRUE(listener.wait_for_lines(6));
}

TEST(Listen, OctetsThatAreNoTextDoNotDisturb) {
    ListeningProcess listener({"--json", "--udp", any_port});
    send_datagram(udp_socket(), listener.port("udp"), string_trap({0xff, 0x00, 0x1b}));
    ASSERT_TRUE(listener.wait_for_lines(1));
    EXPECT_EQ(listener.objects()[0]["bindings"][0], (Json{{"oid", "1.3.6.1"},
                                                          {"type", "OCTET STRING"},
                                                          {"value", nullptr},
                                                          {"hex", "ff 00 1b"}}));
}

TEST(Listen, AStalledPeerHoldsUpNobody) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--tcp", any_port});
    const Fd stalled = connected_to(listener.port("raw-tcp"));
    const Fd stalled_in_header = connected_to(listener.port("tcp"));
    const Bytes trap = small_trap(1);
    write_all(stalled, start_of(trap, 17));
    write_all(stalled_in_header, start_of(with_header(trap), 23));
    const Fd lively = connected_to(listener.port("raw-tcp"));
    for (std::size_t i = 1; i <= 3; ++i) {
        write_all(lively, small_trap(2));
        ASSERT_TRUE(listener.wait_for_lines(i));
    }
    write_all(stalled, std::span(trap).subspan(17));
    ASSERT_TRUE(listener.wait_for_lines(4));
    EXPECT_EQ(listener.objects()[3]["specific"], 1);
}

TEST(Listen, TrapsOfManyPeersArriveInPieces) {
    ListeningProcess listener({"--json", "--tcp", any_port});
    std::vector<Fd> peers(8);
    for (Fd& peer : peers) {
        peer = connected_to(listener.port("tcp"));
    }
    for (std::size_t at = 0; at < 64; ++at) {
        for (std::size_t i = 0; i < peers.size(); ++i) {
            const Bytes bytes = with_header(small_trap(static_cast<std::uint8_t>(i)));
            write_all(peers[i], std::span(bytes).subspan(at, 1));
        }
    }
    ASSERT_TRUE(listener.wait_for_lines(8));
    std::vector<int> seen;
    for (const Json& object : listener.objects()) {
        seen.push_back(object["specific"]);
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(Listen, IdleEndsAPeerInTheMiddleOfATrapOnly) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--idle", "0.3"});
    const Fd between_traps = connected_to(listener.port("raw-tcp"));
    write_all(between_traps, small_trap());
    const Fd stalled = connected_to(listener.port("raw-tcp"));
    write_all(stalled, start_of(small_trap(), 39));
    EXPECT_TRUE(is_closed(stalled));
    EXPECT_TRUE(listener.wait_for_err("the rest of a trap did not come in time"));
    write_all(between_traps, small_trap());
    EXPECT_TRUE(listener.wait_for_lines(2));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("unfinished 1: timed out 1\n"), std::string::npos);
}

TEST(Listen, CountEndsAfterSoManyTraps) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--count", "3"});
    write_all(connected_to(listener.port("raw-tcp")), repeated(small_trap(), 10));
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.lines(), 3U);
    EXPECT_NE(listener.err().find("received 3 traps\nundecodable 0\nrefused 0\nunfinished 0\n"),
              std::string::npos)
        << listener.err();
}

TEST(Listen, CountDoesNotCountWhatDoesNotDecode) {
    ListeningProcess listener({"--json", "--udp", any_port, "--count", "1"});
    Bytes bad = small_trap();
    bad[13] = 0xa0;
    const Fd sender = udp_socket();
    send_datagram(sender, listener.port("udp"), bad);
    send_datagram(sender, listener.port("udp"), small_trap(9));
    EXPECT_EQ(listener.wait(), 0);
    ASSERT_EQ(listener.lines(), 1U);
    EXPECT_EQ(listener.objects()[0]["specific"], 9);
}

/* What was there when the signal came is printed, even of a peer not yet accepted. */
TEST(Listen, TerminationDrainsWhatHasArrived) {
    for (const int number : {SIGTERM, SIGINT}) {
        const TempDir folder;
        ListeningProcess listener(
            {"--json", "--raw-tcp", any_port, "--socket", folder.path("s"), "--udp", any_port});
        listener.signal(SIGSTOP);
        const Fd tcp = connected_to(listener.port("raw-tcp"));
        write_all(tcp, repeated(small_trap(), 500));
        write_all(connected_to(folder.path("s")), repeated(with_header(small_trap()), 500));
        const Fd sender = udp_socket();
        for (int i = 0; i < 50; ++i) {
            send_datagram(sender, listener.port("udp"), small_trap());
        }
        listener.signal(number);
        listener.signal(SIGCONT);
        EXPECT_EQ(listener.wait(), 0);
        EXPECT_EQ(listener.lines(), 1050U);
        EXPECT_NE(listener.err().find("received 1050 traps\n"
                                      "undecodable 0\n"
                                      "refused 0\n"
                                      "unfinished 0\n"
                                      "dropped by the kernel 0\n"),
                  std::string::npos)
            << listener.err();
    }
}

TEST(Listen, TerminationCountsEveryUnfinishedTrap) {
    ListeningProcess listener({"--raw-tcp", any_port});
    std::vector<Fd> peers(3);
    for (Fd& peer : peers) {
        peer = connected_to(listener.port("raw-tcp"));
        write_all(peer, start_of(small_trap(), 30));
    }
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("unfinished 3: at the end 3\n"), std::string::npos)
        << listener.err();
}

TEST(Listen, UserSignalPrintsTotalsAndGoesOn) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port});
    const Fd peer = connected_to(listener.port("raw-tcp"));
    write_all(peer, small_trap());
    ASSERT_TRUE(listener.wait_for_lines(1));
    listener.signal(SIGUSR1);
    EXPECT_TRUE(listener.wait_for_err("received 1 traps\n"));
    write_all(peer, small_trap());
    EXPECT_TRUE(listener.wait_for_lines(2));
    listener.signal(SIGUSR1);
    EXPECT_TRUE(listener.wait_for_err("received 2 traps\n"));
}

TEST(Listen, RefusesPeersThatLoseStep) {
    const struct {
        const char* transport;
        Bytes bytes;
        const char* reason;
    } rows[] = {
        {"tcp", with_header(small_trap(), -1), "header with a length below 20"},
        {"tcp", with_header(small_trap(), 0), "header with a length below 20"},
        {"tcp", with_header(small_trap(), 19), "header with a length below 20"},
        {"tcp", with_header(small_trap(), 8193), "header with a length above 8192"},
        {"tcp", with_header(small_trap(), INT32_MAX), "header with a length above 8192"},
        {"raw-tcp", from_hex("02 01 00"), "message that is not a BER sequence"},
        {"raw-tcp", from_hex("30 80 00 00"), "message with an unreadable length"},
        {"raw-tcp", from_hex("30 83 00 01 00"), "message with more than two length octets"},
        {"raw-tcp", from_hex("30 03 02 01 00"), "message shorter than 20 bytes"},
        {"raw-tcp", from_hex("30 82 ff ff"), "message longer than 8192 bytes"},
    };
    ListeningProcess listener({"--json", "--tcp", any_port, "--raw-tcp", any_port});
    for (const auto& row : rows) {
        const Fd peer = connected_to(listener.port(row.transport));
        write_all(peer, row.bytes);
        EXPECT_TRUE(is_closed(peer)) << row.reason;
        EXPECT_TRUE(listener.wait_for_err(row.reason)) << row.reason;
    }
    const Fd honest = connected_to(listener.port("raw-tcp"));
    write_all(honest, small_trap());
    EXPECT_TRUE(listener.wait_for_lines(1));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("refused 10: header with a length above 8192 2, header with a "
                                  "length below 20 3, message longer than 8192 bytes 1, "),
              std::string::npos)
        << listener.err();
}

TEST(Listen, TrapsBeforeTheLossOfStepCount) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port});
    Bytes bytes = repeated(small_trap(), 2);
    bytes.push_back(0xff);
    write_all(connected_to(listener.port("raw-tcp")), bytes);
    EXPECT_TRUE(listener.wait_for_lines(2));
    EXPECT_TRUE(listener.wait_for_err("refused raw-tcp 127.0.0.1:"));
}

TEST(Listen, CountsUndecodableTrapsByReasonAndKeepsStep) {
    ListeningProcess listener({"--json", "--tcp", any_port, "--raw-tcp", any_port});
    Bytes not_a_trap = small_trap();
    not_a_trap[13] = 0xa0;
    Bytes bad_agent = small_trap();
    bad_agent[23] = 0x05;
    Bytes bytes;
    for (const Bytes& trap : {not_a_trap, bad_agent, bad_agent, small_trap()}) {
        bytes.insert(bytes.end(), trap.begin(), trap.end());
    }
    write_all(connected_to(listener.port("raw-tcp")), bytes);
    ASSERT_TRUE(listener.wait_for_lines(1));
    const Fd framed = connected_to(listener.port("tcp"));
    write_all(framed, with_header(Bytes(20, 0xff)));
    write_all(framed, with_header(small_trap()));
    ASSERT_TRUE(listener.wait_for_lines(2));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find(
                  "received 2 traps\n"
                  "undecodable 4: agent address 2, message header 1, not a trap 1\nrefused 0\n"),
              std::string::npos)
        << listener.err();
}

TEST(Listen, CountsDatagramsThatCannotBeTraps) {
    ListeningProcess listener({"--json", "--udp", any_port});
    const Fd sender = udp_socket();
    for (const std::size_t size : {0U, 19U, 8193U, 20000U}) {
        send_datagram(sender, listener.port("udp"), Bytes(size, 0x30));
    }
    send_datagram(sender, listener.port("udp"), small_trap());
    ASSERT_TRUE(listener.wait_for_lines(1));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(
        listener.err().find("undecodable 4: longer than 8192 bytes 2, shorter than 20 bytes 2\n"),
        std::string::npos)
        << listener.err();
}

/* The number behind the word in the totals that were printed last. */
std::uint64_t last_total(const ListeningProcess& listener, const std::string& word) {
    const std::size_t at = listener.err().rfind(word + " ");
    return at == std::string::npos ? 0 : std::stoull(listener.err().substr(at + word.size()));
}

/* Prints the totals once more. */
void print_totals(ListeningProcess& listener) {
    const std::size_t before = listener.err().size();
    listener.signal(SIGUSR1);
    EXPECT_TRUE(listener.gather_until([&] {
        return listener.err().find("dropped by the kernel", before) != std::string::npos &&
               listener.err().ends_with("\n");
    }));
}

/* Until each of the datagrams was received or is known to be dropped. */
void wait_until_counted(ListeningProcess& listener, std::size_t sent) {
    for (int i = 0;
         i < 2000 &&
         last_total(listener, "received") + last_total(listener, "dropped by the kernel") < sent;
         ++i) {
        usleep(10'000);
        print_totals(listener);
    }
}

TEST(Listen, WhatTheSystemDroppedIsCountedOnce) {
    constexpr std::size_t sent = 30000;
    ListeningProcess listener({"--json", "--udp", any_port});
    listener.signal(SIGSTOP);
    const Fd sender = udp_socket();
    for (std::size_t i = 0; i < sent; ++i) {
        send_datagram(sender, listener.port("udp"), small_trap());
    }
    listener.signal(SIGCONT);
    wait_until_counted(listener, sent);
    const std::uint64_t received = last_total(listener, "received");
    const std::uint64_t dropped = last_total(listener, "dropped by the kernel");
    ASSERT_EQ(received + dropped, sent);
    ASSERT_GT(dropped, 0U);
    send_datagram(sender, listener.port("udp"), small_trap());
    ASSERT_TRUE(listener.wait_for_lines(received + 1));
    for (int i = 0; i < 2; ++i) {
        print_totals(listener);
        EXPECT_EQ(last_total(listener, "received"), received + 1);
        EXPECT_EQ(last_total(listener, "dropped by the kernel"), dropped);
    }
}

TEST(Listen, TellsWhatTheSystemDropped) {
    constexpr std::size_t sent = 30000;
    ListeningProcess listener({"--json", "--udp", any_port});
    listener.signal(SIGSTOP);
    const Fd sender = udp_socket();
    for (std::size_t i = 0; i < sent; ++i) {
        send_datagram(sender, listener.port("udp"), small_trap());
    }
#ifdef __SANITIZE_ADDRESS__
    // The listener is too slow there to take all in the time that it has for its end.
    listener.signal(SIGCONT);
    wait_until_counted(listener, sent);
    listener.signal(SIGTERM);
#else
    listener.signal(SIGTERM);
    listener.signal(SIGCONT);
#endif
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_GT(listener.lines(), 0U);
    ASSERT_LT(listener.lines(), sent);
    const std::string dropped = std::to_string(sent - listener.lines());
    EXPECT_NE(listener.err().find("dropped by the kernel " + dropped + "\n"), std::string::npos)
        << listener.err();
}

TEST(Listen, CountsATrapThatItsPeerBreaksOff) {
    ListeningProcess listener({"--raw-tcp", any_port});
    write_all(connected_to(listener.port("raw-tcp")), start_of(small_trap(), 39));
    const Fd witness = connected_to(listener.port("raw-tcp"));
    write_all(witness, small_trap());
    ASSERT_TRUE(listener.wait_for_out("trap of 40"));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("unfinished 1: closed by the peer 1\n"), std::string::npos);
}

TEST(Listen, LosesNothingOfAStormByTcp) {
    constexpr std::size_t traps = 20000;
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--count", std::to_string(traps)});
    const CommandRun storm({"send", "--to",
                            "raw:127.0.0.1:" + std::to_string(listener.port("raw-tcp")), "--repeat",
                            std::to_string(traps), "", "6", "1", "", "1.3.6.1", "s", "storm"});
    EXPECT_EQ(storm.status, 0) << storm.err;
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.lines(), traps);
}

TEST(Listen, ServesThousandsOfPeers) {
    constexpr std::size_t count = 2000;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < count + 100) {
        GTEST_SKIP() << "this machine lets a process have " << limit.rlim_max << " descriptors";
    }
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    // The listener raises its own limit.
    ListeningProcess listener(
        {"--json", "--raw-tcp", any_port, "--max-peers-per-host", std::to_string(count)});
    setrlimit(RLIMIT_NOFILE, &raised);
    std::vector<Fd> peers;
    for (std::size_t i = 0; i < count; ++i) {
        peers.push_back(connected_to(listener.port("raw-tcp")));
    }
    for (const Fd& peer : peers) {
        write_all(peer, small_trap());
    }
    EXPECT_TRUE(listener.wait_for_lines(count));
    peers.clear();
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(listener.terminate(), 0);
}

TEST(Listen, ReplacesAStaleSocketAndRemovesItsOwn) {
    const TempDir folder;
    const std::string path = folder.path("s");
    { const Fd gone = local_listener(path); }
    struct stat status {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    ListeningProcess listener({"--json", "--socket", path});
    write_all(connected_to(path), with_header(small_trap()));
    EXPECT_TRUE(listener.wait_for_lines(1));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(lstat(path.c_str(), &status), 0);
}

TEST(Listen, LeavesTheSocketOfASuccessorAlone) {
    const TempDir folder;
    const std::string path = folder.path("s");
    ListeningProcess listener({"--socket", path});
    ASSERT_EQ(rename(path.c_str(), folder.path("old").c_str()), 0);
    const Fd successor = local_listener(path);
    EXPECT_EQ(listener.terminate(), 0);
    const Fd still_there = connected_to(path);
    EXPECT_GE(still_there.get(), 0);
}

TEST(Listen, RefusesAPathThatIsTaken) {
    const TempDir folder;
    const Fd other = local_listener(folder.path("live"));
    const std::string file = folder.write("file", "precious");
    for (const std::string& path : {folder.path("live"), file}) {
        const CommandRun run({"listen", "--socket", path});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find("cannot listen on socket " + path + ": somebody listens there"),
                  std::string::npos)
            << run.err;
    }
    EXPECT_EQ(folder.read("file"), "precious");
    EXPECT_GE(connected_to(folder.path("live")).get(), 0);
}

/* One of many starters gets the path, whether a stale file is in the way or none. */
TEST(Listen, OneOfManyStartersListensAtAPath) {
    const TempDir folder;
    const std::string path = folder.path("s");
    for (int round = 0; round < 6; ++round) {
        if (round % 2 == 1) {
            const Fd gone = local_listener(path);
        }
        std::vector<std::unique_ptr<Subprocess>> starters;
        for (int i = 0; i < 8; ++i) {
            starters.push_back(
                std::make_unique<Subprocess>(command_line({"listen", "--json", "--socket", path})));
        }
        Subprocess* winner = nullptr;
        for (const auto& starter : starters) {
            ASSERT_TRUE(starter->wait_for_err("\n"));
            if (starter->err().starts_with("listening on socket")) {
                EXPECT_EQ(winner, nullptr);
                winner = starter.get();
            } else {
                EXPECT_NE(starter->err().find("somebody listens there"), std::string::npos)
                    << starter->err();
                EXPECT_EQ(starter->wait(), 1);
            }
        }
        ASSERT_NE(winner, nullptr);
        write_all(connected_to(path), with_header(small_trap()));
        EXPECT_TRUE(winner->wait_for_out("\n"));
        winner->signal(SIGTERM);
        EXPECT_EQ(winner->wait(), 0);
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
}

TEST(Listen, ASocketsLockIsNeverFoundByASymbolicLink) {
    const TempDir folder;
    const std::string precious = folder.write("precious", "kept");
    std::filesystem::create_symlink(precious, folder.path("s.lock"));
    const CommandRun run({"listen", "--socket", folder.path("s")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("cannot open " + folder.path("s.lock")), std::string::npos) << run.err;
    EXPECT_EQ(folder.read("precious"), "kept");
}

TEST(Listen, PlacesThatCannotBeServed) {
    const Fd taken = tcp_listener();
    const std::string place = "127.0.0.1:" + std::to_string(port_of(taken));
    const TempDir folder;
    const struct {
        Words words;
        int status;
        std::string part;
    } rows[] = {
        {{"--raw-tcp", place}, 1, "cannot listen on tcp " + place + ": Address already in use"},
        {{"--udp", "192.0.2.77:0"}, 1, "cannot listen on udp 192.0.2.77:0: Cannot assign"},
        {{"--udp", "nowhere.invalid:1"}, 1, "host 'nowhere.invalid' has no IPv4 address"},
        {{"--socket", folder.path("none/s")}, 1, "No such file or directory"},
        {{"--socket", folder.path(std::string(108, 'x'))}, 2, "must be a path of 1 to 107 bytes"},
        {{"--socket", ""}, 2, "must be a path of 1 to 107 bytes"},
        {{"--udp", "x"}, 2, "--udp 'x' is not [HOST:]PORT"},
        {{"--udp", ":1"}, 2, "is not [HOST:]PORT"},
        {{"--udp", "127.0.0.1:"}, 2, "is not [HOST:]PORT"},
        {{"--tcp", "65536"}, 2, "--tcp '65536' is not [HOST:]PORT with a port from 0 to 65535"},
        {{"--raw-tcp", "127.0.0.1:-1"}, 2, "--raw-tcp '127.0.0.1:-1' is not [HOST:]PORT"},
        {{"--udp", any_port, "--idle", "0"}, 2, "--idle"},
        {{"--udp", any_port, "--max-peers", "0"}, 2, "--max-peers"},
        {{"--udp", any_port, "--max-peers-per-host", "0"}, 2, "--max-peers-per-host"},
        {{"--udp", any_port, "--conf", "f"}, 2, "--conf requires --format"},
        {{"--udp", any_port, "--names", "now"}, 2, "--names requires --format"},
        {{"--udp", any_port, "--format", "--names", "all"}, 2, "--names"},
        {{"--udp", any_port, "--count", "0"}, 2, "--count"},
        {{"--udp", any_port, "extra"}, 2, "not expected: extra"},
        {{}, 2, "nothing to listen on; give --udp"},
    };
    for (const auto& row : rows) {
        Words words{"listen"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const CommandRun run(words);
        EXPECT_EQ(run.status, row.status) << row.part;
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(row.part), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("wqevents listen: "), 0U) << run.err;
    }
}

/* Without a reader it ends as any program in a pipeline does; either way its socket goes. */
TEST(Listen, EndsWhenItsOutputIsClosedOrFull) {
    const TempDir folder;
    std::array<int, 2> ends{};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe");
    close(ends[0]);
    const Fd closed(ends[1]);
    const Fd full(checked(open("/dev/full", O_WRONLY | O_CLOEXEC), "/dev/full"));
    const struct {
        const Fd& output;
        int status;
        std::string message;
    } rows[] = {{closed, 128 + SIGPIPE, ""},
                {full, 1,
                 "wqevents listen: cannot write to the standard output: No space left on "
                 "device\n"}};
    for (const auto& row : rows) {
        SubprocessOptions process;
        process.output = row.output.get();
        ListeningProcess listener({"--socket", folder.path("s")}, process);
        write_all(connected_to(folder.path("s")), with_header(small_trap()));
        EXPECT_EQ(listener.wait(), row.status);
        EXPECT_EQ(listener.err(), "listening on socket " + folder.path("s") + "\n" + row.message);
        EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    }
}

TEST(Listen, AReaderOfANonBlockingPipeGetsEverything) {
    std::array<int, 2> ends{};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe");
    const Fd reader(ends[0]);
    Fd writer(ends[1]);
    checked(fcntl(writer.get(), F_SETFL, O_NONBLOCK), "fcntl");
    SubprocessOptions process;
    process.output = writer.get();
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--count", "2000"}, process);
    writer = Fd();
    write_all(connected_to(listener.port("raw-tcp")), repeated(small_trap(), 2000));
    const Bytes all = read_to_end(reader);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2000);
    EXPECT_EQ(listener.wait(), 0);
}

TEST(Listen, AStalledReaderDoesNotKeepItFromEnding) {
    std::array<int, 2> ends{};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe");
    const Fd reader(ends[0]);
    const Fd writer(ends[1]);
    SubprocessOptions process;
    process.output = writer.get();
    ListeningProcess listener({"--json", "--raw-tcp", any_port}, process);
    write_all(connected_to(listener.port("raw-tcp")), repeated(small_trap(), 2000));
    listener.signal(SIGTERM);
    EXPECT_EQ(listener.wait(), 1);
    EXPECT_NE(listener.err().find("its reader has stopped reading"), std::string::npos)
        << listener.err();
}

}  // namespace
}  // namespace wq::test
