#include <chrono>
#include <thread>

#include "listening_process.h"
#include "sample_traps.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string any_port = "127.0.0.1:0";

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/* Sends without a signal if the other side is gone. */
bool try_to_send(const Fd& sd, std::span<const std::uint8_t> bytes) {
    return send(sd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

bool is_closed_now(const Fd& sd) {
    char byte = 0;
    const ssize_t got = recv(sd.get(), &byte, 1, MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN);
}

/* Peers that have each sent a trap, one after the other. */
std::vector<Fd> peers_of(ListeningProcess& listener, std::size_t count) {
    std::vector<Fd> peers;
    for (std::size_t i = 0; i < count; ++i) {
        peers.push_back(connected_to(listener.port("raw-tcp")));
        write_all(peers.back(), small_trap());
        EXPECT_TRUE(listener.wait_for_lines(i + 1));
    }
    return peers;
}

TEST(ListenPeers, TheTimeOfATrapRunsFromItsFirstByte) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--idle", "0.5"});
    const Fd slow = connected_to(listener.port("raw-tcp"));
    const Bytes trap = string_trap(Bytes(60, 'x'));
    bool closed = false;
    for (std::size_t i = 0; i + 1 < trap.size() && !closed; ++i) {
        try_to_send(slow, std::span(trap).subspan(i, 1));
        std::this_thread::sleep_for(milliseconds(20));  // the whole trap takes 2 s
        closed = is_closed_now(slow);
    }
    EXPECT_TRUE(closed);
    EXPECT_TRUE(listener.wait_for_err("the rest of a trap did not come in time"));
    EXPECT_EQ(listener.lines(), 0U);
}

/* Each trap has a time of its own, though the next one begins in the same write. */
TEST(ListenPeers, TheTimeBeginsAnewWithEachTrap) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--idle", "2"});
    const Fd steady = connected_to(listener.port("raw-tcp"));
    const Bytes trap = small_trap();
    Bytes piece = start_of(trap, 20);
    write_all(steady, piece);
    const Clock::time_point end = Clock::now() + std::chrono::seconds(3);
    piece.assign(trap.begin() + 20, trap.end());
    piece.insert(piece.end(), trap.begin(), trap.begin() + 20);
    std::size_t sent = 0;
    while (Clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(100));
        ASSERT_TRUE(try_to_send(steady, piece));
        ++sent;
    }
    EXPECT_TRUE(listener.wait_for_lines(sent));
    EXPECT_FALSE(is_closed_now(steady));
}

TEST(ListenPeers, TheLongestSilentGivesWayToANewcomer) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--max-peers", "3"});
    const std::vector<Fd> peers = peers_of(listener, 3);
    // The second has been silent for longer than the first from now on.
    write_all(peers[0], small_trap());
    ASSERT_TRUE(listener.wait_for_lines(4));
    const Fd newcomer = connected_to(listener.port("raw-tcp"));
    write_all(newcomer, small_trap());
    ASSERT_TRUE(listener.wait_for_lines(5));
    EXPECT_TRUE(is_closed(peers[1]));
    EXPECT_TRUE(listener.wait_for_err("gave way to others after a long silence"));
    EXPECT_FALSE(is_closed_now(peers[0]));
    EXPECT_FALSE(is_closed_now(peers[2]));
    write_all(peers[0], small_trap());
    write_all(peers[2], small_trap());
    EXPECT_TRUE(listener.wait_for_lines(7));
    EXPECT_NE(listener.err().find("no room for more peers (as many as there may be)"),
              std::string::npos)
        << listener.err();
}

TEST(ListenPeers, NothingIsLostOfAPeerThatGivesWay) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--max-peers", "2"});
    const std::vector<Fd> peers = peers_of(listener, 2);
    listener.signal(SIGSTOP);
    const Fd newcomer = connected_to(listener.port("raw-tcp"));
    write_all(newcomer, small_trap());
    std::this_thread::sleep_for(milliseconds(1100));  // all are silent now
    Bytes begun = small_trap();
    begun.push_back(0x30);
    write_all(peers[0], begun);
    write_all(peers[1], small_trap());
    listener.signal(SIGCONT);
    EXPECT_TRUE(listener.wait_for_lines(5));
}

/* What is told of an unfinished trap is told, too, if its peer gives way. */
TEST(ListenPeers, AnUnfinishedTrapOfAPeerThatGivesWayIsCounted) {
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--max-peers", "1"});
    const Fd stalled = connected_to(listener.port("raw-tcp"));
    write_all(stalled, start_of(small_trap(), 30));
    const Fd newcomer = connected_to(listener.port("raw-tcp"));
    write_all(newcomer, small_trap());
    EXPECT_TRUE(listener.wait_for_lines(1));
    EXPECT_TRUE(is_closed(stalled));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("unfinished 1: gave way to others 1\n"), std::string::npos)
        << listener.err();
}

/* Within the second before anybody gives way, a peer is taken in as soon as another leaves. */
TEST(ListenPeers, APeerThatLeavesMakesRoomAtOnce) {
    bool at_once = false;
    for (int tries = 0; tries < 10 && !at_once; ++tries) {
        ListeningProcess listener({"--json", "--raw-tcp", any_port, "--max-peers", "2"});
        std::vector<Fd> peers = peers_of(listener, 1);
        const Clock::time_point start = Clock::now();
        peers.push_back(connected_to(listener.port("raw-tcp")));
        write_all(peers[1], small_trap());
        write_all(peers[0], small_trap());
        ASSERT_TRUE(listener.wait_for_lines(3));
        const Fd waiting = connected_to(listener.port("raw-tcp"));
        write_all(waiting, small_trap());
        ASSERT_TRUE(listener.wait_for_err("no room for more peers"));
        peers.clear();
        ASSERT_TRUE(listener.wait_for_lines(4));
        at_once = Clock::now() - start < milliseconds(900);
    }
    EXPECT_TRUE(at_once);
}

TEST(ListenPeers, AHostHasSoManyPeersAndNoMore) {
    const TempDir folder;
    ListeningProcess listener({"--json", "--raw-tcp", any_port, "--socket", folder.path("s"),
                               "--max-peers-per-host", "2"});
    std::vector<Fd> peers = peers_of(listener, 2);
    EXPECT_TRUE(is_closed(connected_to(listener.port("raw-tcp"))));
    EXPECT_TRUE(listener.wait_for_err("refused raw-tcp 127.0.0.1:"));
    EXPECT_TRUE(listener.wait_for_err("too many peers of one host"));
    // Programs of this host by the local socket are counted apart.
    std::vector<Fd> local;
    for (int i = 0; i < 5; ++i) {
        local.push_back(connected_to(folder.path("s")));
        write_all(local.back(), with_header(small_trap()));
    }
    ASSERT_TRUE(listener.wait_for_lines(7));
    peers.pop_back();
    // Its place is free once the listener has noticed.
    bool taken_in = false;
    for (int i = 0; i < 200 && !taken_in; ++i) {
        const Fd another = connected_to(listener.port("raw-tcp"));
        taken_in =
            try_to_send(another, small_trap()) &&
            listener.gather_until([&] { return listener.lines() >= 8; }, Subprocess::Seconds(0.1));
    }
    EXPECT_TRUE(taken_in);
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("too many peers of one host 1"), std::string::npos)
        << listener.err();
}

TEST(ListenPeers, PeersBeyondTheDescriptorLimitGetTheirTurn) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's checks need descriptors of their own";
#endif
    ListeningProcess listener(
        {"--json", "--raw-tcp", any_port}, {},
        {"sh", "-c", "ulimit -n 20; exec \"$@\"", "sh", WQEVENTS_COMMAND, "listen"});
    std::vector<Fd> peers;
    for (int i = 0; i < 30; ++i) {
        peers.push_back(connected_to(listener.port("raw-tcp")));
        write_all(peers.back(), small_trap());
    }
    EXPECT_TRUE(listener.wait_for_err("no room for more peers"));
    EXPECT_TRUE(
        listener.gather_until([&] { return listener.lines() == 30; }, Subprocess::Seconds(60)))
        << listener.lines();
}

}  // namespace
}  // namespace wq::test
