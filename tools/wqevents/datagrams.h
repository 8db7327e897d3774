// Datagrams as they are received: many by one call, and into memory while nobody serves them.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <wqevents.h>

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <thread>
#include <vector>

#include "file_descriptor.h"

namespace wq::command {

// What one call received. A datagram longer than any trap fills one byte more than a trap.
class DatagramBatch {
  public:
    DatagramBatch();
    ~DatagramBatch();
    DatagramBatch(const DatagramBatch&) = delete;
    DatagramBatch& operator=(const DatagramBatch&) = delete;

    // Receives what is there without waiting; how many that is, 0 if there is nothing.
    std::size_t receive(int fd);

    std::span<const std::uint8_t> bytes(std::size_t index) const;
    const sockaddr_in& sender(std::size_t index) const;

    // The count of SO_RXQ_OVFL that came with the datagram; `otherwise` if none did.
    std::uint32_t dropped(std::size_t index, std::uint32_t otherwise);

  private:
    static constexpr std::size_t most = 32;
    struct Slot;

    std::unique_ptr<std::array<Slot, most>> slots_;
    std::array<mmsghdr, most> messages_;
};

// datagrams_dropped: how many datagrams the system has dropped at the socket, modulo 2^32;
// `otherwise` if it does not say.
std::uint32_t datagrams_dropped(int fd, std::uint32_t otherwise);

struct KeptDatagram {
    std::size_t socket;  // its index
    sockaddr_in sender;
    std::vector<std::uint8_t> bytes;
};

// Receives from sockets in a thread of its own while this one is busy, up to 64 MiB; what comes
// after that waits in the system. If the system has no thread to give, all of it waits there.
class DatagramKeeper {
  public:
    explicit DatagramKeeper(std::vector<int> sockets);
    ~DatagramKeeper();
    DatagramKeeper(const DatagramKeeper&) = delete;
    DatagramKeeper& operator=(const DatagramKeeper&) = delete;

    // Ends it and appends what came, in its order, to `datagrams`.
    void finish(std::deque<KeptDatagram>& datagrams);

  private:
    void run();
    bool receive(std::size_t index);
    void stop();

    std::vector<int> sockets_;
    FileDescriptor stop_;
    DatagramBatch batch_;
    std::deque<KeptDatagram> kept_;
    std::size_t size_ = 0;
    std::thread thread_;
};

}  // namespace wq::command
