#include "datagrams.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "listening_process.h"

namespace wq::test {
namespace {

/* Waits until somebody has received all that has come. */
void wait_until_empty(const Fd& socket) {
    int waiting = 1;
    for (int i = 0; i < 20'000 && waiting != 0; ++i) {
        checked(ioctl(socket.get(), FIONREAD, &waiting), "FIONREAD");
        usleep(waiting != 0 ? 1000 : 0);
    }
    ASSERT_EQ(waiting, 0);
}

TEST(DatagramKeeper, KeepsMoreThanTheSystemInItsOrder) {
    const Fd first = udp_socket();
    const Fd second = udp_socket();
    for (const Fd* socket : {&first, &second}) {
        const int small = 1;  // the least that the system gives is some datagrams
        checked(setsockopt(socket->get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small),
                "SO_RCVBUF");
    }
    command::DatagramKeeper keeper({first.get(), second.get()});
    const Fd sender = udp_socket();
    constexpr int count = 1000;
    for (int i = 0; i < count; ++i) {
        const Fd& to = i % 2 == 0 ? first : second;
        send_datagram(sender, port_of(to),
                      {static_cast<std::uint8_t>(i / 256), static_cast<std::uint8_t>(i % 256)});
        wait_until_empty(to);
    }
    std::deque<command::KeptDatagram> kept;
    keeper.finish(kept);
    ASSERT_EQ(kept.size(), static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const auto& datagram = kept[static_cast<std::size_t>(i)];
        EXPECT_EQ(datagram.socket, static_cast<std::size_t>(i % 2));
        EXPECT_EQ(datagram.bytes, (std::vector<std::uint8_t>{static_cast<std::uint8_t>(i / 256),
                                                             static_cast<std::uint8_t>(i % 256)}));
        EXPECT_EQ(ntohs(datagram.sender.sin_port), port_of(sender));
    }
}

/* What it did not receive is there for the next one who does. */
TEST(DatagramKeeper, TakesNothingThatItDoesNotHandOut) {
    const Fd socket = udp_socket();
    const Fd sender = udp_socket();
    std::deque<command::KeptDatagram> all;
    command::DatagramBatch batch;
    std::size_t received = 0;
    for (int round = 0; round < 50; ++round) {
        command::DatagramKeeper keeper({socket.get()});
        send_datagram(sender, port_of(socket), {1});
        keeper.finish(all);
        send_datagram(sender, port_of(socket), {2});
        received += batch.receive(socket.get());
    }
    EXPECT_EQ(all.size() + received, 100U);
}

TEST(DatagramKeeper, NeedsNoSocket) {
    std::deque<command::KeptDatagram> all;
    command::DatagramKeeper keeper({});
    keeper.finish(all);
    EXPECT_TRUE(all.empty());
}

TEST(DatagramBatch, ADatagramThatIsTooLongFillsAByteMore) {
    const Fd socket = udp_socket();
    const Fd sender = udp_socket();
    for (const std::size_t size : {0U, 8192U, 8193U, 20000U}) {
        send_datagram(sender, port_of(socket), Bytes(size, 7));
    }
    command::DatagramBatch batch;
    ASSERT_EQ(batch.receive(socket.get()), 4U);
    const std::size_t sizes[] = {0, 8192, 8193, 8193};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(batch.bytes(i).size(), sizes[i]);
    }
    EXPECT_EQ(batch.receive(socket.get()), 0U);
}

}  // namespace
}  // namespace wq::test
