#include "loop.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "support/hex.h"
#include "support/sockets.h"

namespace wq::test {
namespace {

using command::FileDescriptor;
using command::Loop;
using command::Source;

const auto go_on = [] { return true; };
const Loop::Clock::time_point now = {};

/* A descriptor that is readable. */
FileDescriptor readable() {
    std::array<int, 2> ends{};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe");
    checked(static_cast<int>(write(ends[1], "x", 1)), "write");
    close(ends[1]);
    return FileDescriptor(ends[0]);
}

TEST(Loop, ServesWhatIsReady) {
    Loop loop;
    const SocketPair quiet = local_pair();
    std::string served;
    loop.add(readable(), [&] { served += "a"; });
    loop.add(FileDescriptor(dup(quiet.ours.get())), [&] { served += "b"; });
    EXPECT_EQ(loop.turn(now, go_on), 1);
    EXPECT_EQ(served, "a");
    write_all(quiet.peer, from_hex("00"));
    EXPECT_EQ(loop.turn(now, go_on), 2);
    EXPECT_EQ(served.size(), 3U);
}

TEST(Loop, WaitsNoLongerThanItMay) {
    Loop loop;
    const auto start = Loop::Clock::now();
    EXPECT_EQ(loop.turn(start + std::chrono::milliseconds(50), go_on), 0);
    EXPECT_GE(Loop::Clock::now() - start, std::chrono::milliseconds(50));
}

/* Whichever of the two is served first closes both, and the other is among the ready ones. */
TEST(Loop, ASourceThatIsRemovedIsNotServedAnyMore) {
    Loop loop;
    int served = 0;
    std::array<Source*, 2> sources{};
    for (Source*& source : sources) {
        source = loop.add(readable(), [&] {
            ++served;
            for (Source* const each : sources) {
                loop.remove(*each);
            }
        });
    }
    EXPECT_EQ(loop.turn(now, go_on), 2);
    EXPECT_EQ(served, 1);
    EXPECT_EQ(loop.turn(now, go_on), 0);
}

/* A child may have the descriptor still, which would keep it ready for ever. */
TEST(Loop, ASourceThatIsRemovedIsForgottenThoughItIsOpenElsewhere) {
    Loop loop;
    int served = 0;
    FileDescriptor fd = readable();
    const FileDescriptor elsewhere(dup(fd.get()));
    Source* const source = loop.add(std::move(fd), [&] { ++served; });
    loop.remove(*source);
    EXPECT_EQ(loop.turn(now, go_on), 0);
    EXPECT_EQ(loop.turn(now, go_on), 0);
    EXPECT_EQ(served, 0);
}

TEST(Loop, StopsBetweenTwoSourcesAndSaysThatThereIsMore) {
    Loop loop;
    int served = 0;
    for (int i = 0; i < 3; ++i) {
        loop.add(readable(), [&] { ++served; });
    }
    EXPECT_EQ(loop.turn(now, [] { return false; }), Loop::ready_max);
    EXPECT_EQ(served, 1);
}

TEST(Loop, WatchesWhatItIsAskedToWatch) {
    Loop loop;
    const SocketPair pair = local_pair();
    write_all(pair.peer, from_hex("00"));
    int served = 0;
    Source* const source = loop.add(FileDescriptor(dup(pair.ours.get())), [&] { ++served; });
    loop.watch(*source, false);
    EXPECT_EQ(loop.turn(now, go_on), 0);
    loop.watch(*source, true);
    EXPECT_EQ(loop.turn(now, go_on), 1);
    EXPECT_EQ(served, 1);
}

}  // namespace
}  // namespace wq::test
