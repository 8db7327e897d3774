// Receiving datagrams, also while the thread that serves them is busy.
#include "datagrams.h"

#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cstring>
#include <iterator>
#include <system_error>

namespace wq::command {
namespace {

constexpr std::size_t kept_max = std::size_t{64} << 20;
constexpr std::size_t kept_overhead = 128;  // of memory, beside a datagram's bytes

}  // namespace

// A byte more than a trap shows what is too long.
struct DatagramBatch::Slot {
    std::array<std::uint8_t, EMS_TRAP_MAX + 1> data;
    sockaddr_in from;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(std::uint32_t))> control;
    iovec part;
};

DatagramBatch::DatagramBatch()
    : slots_(std::make_unique_for_overwrite<std::array<Slot, most>>()), messages_{} {}

DatagramBatch::~DatagramBatch() = default;

std::size_t DatagramBatch::receive(int fd) {
    for (std::size_t i = 0; i < most; ++i) {
        Slot& slot = (*slots_)[i];
        slot.part = {slot.data.data(), slot.data.size()};
        messages_[i] = {};
        msghdr& header = messages_[i].msg_hdr;
        header.msg_name = &slot.from;
        header.msg_namelen = sizeof slot.from;
        header.msg_iov = &slot.part;
        header.msg_iovlen = 1;
        header.msg_control = slot.control.data();
        header.msg_controllen = slot.control.size();
    }
    const int count = recvmmsg(fd, messages_.data(), most, MSG_DONTWAIT, nullptr);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
}

std::span<const std::uint8_t> DatagramBatch::bytes(std::size_t index) const {
    return std::span((*slots_)[index].data).first(messages_[index].msg_len);
}

const sockaddr_in& DatagramBatch::sender(std::size_t index) const {
    return (*slots_)[index].from;
}

std::uint32_t DatagramBatch::dropped(std::size_t index, std::uint32_t otherwise) {
    msghdr& message = messages_[index].msg_hdr;
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_RXQ_OVFL) {
            std::memcpy(&otherwise, CMSG_DATA(part), sizeof otherwise);
        }
    }
    return otherwise;
}

std::uint32_t datagrams_dropped(int fd, std::uint32_t otherwise) {
    std::array<std::uint32_t, SK_MEMINFO_VARS> info{};
    socklen_t length = sizeof info;
    const bool told = getsockopt(fd, SOL_SOCKET, SO_MEMINFO, info.data(), &length) == 0 &&
                      length > SK_MEMINFO_DROPS * sizeof info[0];
    return told ? info[SK_MEMINFO_DROPS] : otherwise;
}

DatagramKeeper::DatagramKeeper(std::vector<int> sockets)
    : sockets_(std::move(sockets)), stop_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (sockets_.empty() || stop_.get() < 0) {
        return;
    }
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {  // the system keeps as much as it can
    }
}

DatagramKeeper::~DatagramKeeper() {
    stop();
}

void DatagramKeeper::stop() {
    if (thread_.joinable()) {
        eventfd_write(stop_.get(), 1);
        thread_.join();
    }
}

void DatagramKeeper::finish(std::deque<KeptDatagram>& datagrams) {
    stop();
    std::move(kept_.begin(), kept_.end(), std::back_inserter(datagrams));
    kept_.clear();
}

// Takes one batch; false if there is no memory for it.
bool DatagramKeeper::receive(std::size_t index) {
    const std::size_t count = batch_.receive(sockets_[index]);
    try {
        for (std::size_t i = 0; i < count; ++i) {
            const auto bytes = batch_.bytes(i);
            kept_.push_back({index, batch_.sender(i), {bytes.begin(), bytes.end()}});
            size_ += bytes.size() + kept_overhead;
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return size_ < kept_max;
}

void DatagramKeeper::run() {
    std::vector<pollfd> waited{{stop_.get(), POLLIN, 0}};
    for (const int socket : sockets_) {
        waited.push_back({socket, POLLIN, 0});
    }
    bool room = true;
    while (room && poll(waited.data(), waited.size(), -1) >= 0 && waited[0].revents == 0) {
        for (std::size_t i = 0; room && i < sockets_.size(); ++i) {
            room = waited[i + 1].revents == 0 || receive(i);
        }
    }
}

}  // namespace wq::command
