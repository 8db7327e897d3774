#include "listener.h"

#include <linux/sock_diag.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "command.h"
#include "received_trap.h"
#include "shown_text.h"
#include "trap_json.h"
#include "trap_text.h"

namespace wq::command {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int ready_max = 256;  // sources served between two looks at the clock
constexpr int accept_max = 64;  // peers taken in before others have their turn
constexpr std::size_t datagrams_max = 32;
constexpr std::size_t read_size = 65536;
constexpr seconds accept_pause{1};
constexpr seconds drain_limit{2};

/* A peer is a descriptor, so take as many as the system lets this process have. */
void raise_descriptor_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

std::string peer_name(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
        address.ss_family == AF_INET) {
        return address_name(reinterpret_cast<const sockaddr_in&>(address));
    }
    ucred credentials{};
    length = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0) {
        return "process " + std::to_string(credentials.pid);
    }
    return "unknown";
}

/* A peer that vanished without a word is found out some day. */
void probe_idle_peer(int fd) {
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
}

/* The count of SO_RXQ_OVFL that came with a datagram; `otherwise` where none did. */
std::uint32_t overflow_count(msghdr& message, std::uint32_t otherwise) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_RXQ_OVFL) {
            std::memcpy(&otherwise, CMSG_DATA(part), sizeof otherwise);
        }
    }
    return otherwise;
}

/* The same count as it stands now: none comes with what was dropped behind the last datagram. */
std::uint32_t drops_now(int fd, std::uint32_t otherwise) {
    std::array<std::uint32_t, SK_MEMINFO_VARS> info{};
    socklen_t length = sizeof info;
    const bool told = getsockopt(fd, SOL_SOCKET, SO_MEMINFO, info.data(), &length) == 0 &&
                      length > SK_MEMINFO_DROPS * sizeof info[0];
    return told ? info[SK_MEMINFO_DROPS] : otherwise;
}

void require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw system_failure(what, errno);
    }
}

bool out_of_room(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

/* Room for one recvmmsg(); a byte more than a trap shows what is too long. */
struct Listener::Datagrams {
    struct Slot {
        std::array<std::uint8_t, EMS_TRAP_MAX + 1> data;
        sockaddr_in from;
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(std::uint32_t))> control;
        iovec part;
    };
    std::array<Slot, datagrams_max> slots;
    std::array<mmsghdr, datagrams_max> messages;

    int receive(int fd) {
        for (std::size_t i = 0; i < datagrams_max; ++i) {
            Slot& slot = slots[i];
            slot.part = {slot.data.data(), slot.data.size()};
            messages[i] = {};
            msghdr& header = messages[i].msg_hdr;
            header.msg_name = &slot.from;
            header.msg_namelen = sizeof slot.from;
            header.msg_iov = &slot.part;
            header.msg_iovlen = 1;
            header.msg_control = slot.control.data();
            header.msg_controllen = slot.control.size();
        }
        return recvmmsg(fd, messages.data(), datagrams_max, MSG_DONTWAIT, nullptr);
    }
};

Listener::Listener(const ListenOptions& options)
    : options_(options), chunk_(read_size + frame_max), datagrams_(std::make_unique<Datagrams>()) {
    if (options.layout) {
        formatter_.emplace(*options.layout, "", options.raw);
        if (options.raw) {
            output_.pass_raw();
        }
        totals_.withheld.emplace();
    }
    raise_descriptor_limit();
    epoll_ = FileDescriptor(epoll_create1(EPOLL_CLOEXEC));
    require(epoll_.get() >= 0, "cannot wait for peers");
    add_signals();
    add_endpoints(options);
}

Listener::~Listener() = default;

void Listener::run() {
    while (!ending_ && !done_) {
        serve(next_timeout());
    }
    drain();
    if (!unfinished_.empty()) {
        totals_.unfinished["at the end"] += unfinished_.size();
    }
    print_totals();
    if (!failure_.empty()) {
        throw Failure(failure_);
    }
}

void Listener::add_endpoints(const ListenOptions& options) {
    using Kind = Source::Kind;
    for (const std::string& place : options.udp) {
        add_endpoint(Kind::datagrams, "udp", Framing::raw, open_udp("--udp", place));
    }
    for (const std::string& path : options.sockets) {
        Endpoint endpoint = open_local(path);
        socket_files_.emplace_back(path);
        add_endpoint(Kind::acceptor, "socket", Framing::header, std::move(endpoint));
    }
    for (const std::string& place : options.tcp) {
        add_endpoint(Kind::acceptor, "tcp", Framing::header, open_tcp("--tcp", place));
    }
    for (const std::string& place : options.raw_tcp) {
        add_endpoint(Kind::acceptor, "raw-tcp", Framing::raw, open_tcp("--raw-tcp", place));
    }
    report(ready_);
}

void Listener::add_endpoint(Source::Kind kind, const char* transport, Framing framing,
                            Endpoint endpoint) {
    ready_ += std::string("listening on ") + transport + " " + shown(endpoint.address) + "\n";
    require(add_source({.kind = kind,
                        .fd = std::move(endpoint.fd),
                        .transport = transport,
                        .framing = framing,
                        .name = std::move(endpoint.address)}),
            "cannot wait for peers");
}

/* Signals are read like peers, so nothing happens between two instructions. */
void Listener::add_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGUSR1);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    FileDescriptor fd(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    require(fd.get() >= 0 && add_source({.kind = Source::Kind::signals,
                                         .fd = std::move(fd),
                                         .transport = "",
                                         .framing = Framing::raw,
                                         .name = ""}),
            "cannot wait for signals");
}

/* False where the system does not watch one more. */
bool Listener::add_source(Source source) {
    const int fd = source.fd.get();
    auto kept = std::make_unique<Source>(std::move(source));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = kept.get();
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        return false;
    }
    sources_[fd] = std::move(kept);
    return true;
}

void Listener::remove_peer(Source& peer) {
    forget_pending(peer);
    sources_.erase(peer.fd.get());
    if (!accepting_) {
        resume_accepting();
    }
}

/* Waits once and serves what is ready; how much that was. */
int Listener::serve(int timeout) {
    std::array<epoll_event, ready_max> ready;
    const int count = epoll_wait(epoll_.get(), ready.data(), ready_max, timeout);
    for (int i = 0; i < count && !done_; ++i) {
        on_ready(*static_cast<Source*>(ready[static_cast<std::size_t>(i)].data.ptr));
    }
    // With a full set more may be waiting, from the very peers that seem to be late.
    if (count < ready_max) {
        give_up_unfinished();
    }
    if (!accepting_ && Clock::now() >= resume_at_) {
        resume_accepting();
    }
    output_.flush();
    return count;
}

/* Milliseconds to the next thing that must happen by itself; -1 where there is none. */
int Listener::next_timeout() const {
    Clock::time_point next = Clock::time_point::max();
    if (!unfinished_.empty()) {
        next = unfinished_.front()->deadline;
    }
    if (!accepting_) {
        next = std::min(next, resume_at_);
    }
    if (next == Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(next - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

/* Serves what has arrived until there is no more; a peer that goes on sending ends it as well. */
void Listener::drain() {
    const Clock::time_point limit = Clock::now() + drain_limit;
    while (!done_ && Clock::now() < limit && serve(0) > 0) {
    }
}

void Listener::on_ready(Source& source) {
    switch (source.kind) {
        case Source::Kind::signals:
            return on_signal(source);
        case Source::Kind::datagrams:
            return on_datagrams(source);
        case Source::Kind::acceptor:
            return on_acceptor(source);
        case Source::Kind::peer:
            return on_peer(source);
    }
}

void Listener::on_signal(Source& source) {
    signalfd_siginfo info{};
    while (read(source.fd.get(), &info, sizeof info) == sizeof info) {
        if (info.ssi_signo == SIGUSR1) {
            print_totals();
        } else {
            ending_ = true;
            output_.hurry();
        }
    }
}

void Listener::on_datagrams(Source& source) {
    const int count = datagrams_->receive(source.fd.get());
    for (int i = 0; i < count && !done_; ++i) {
        const auto index = static_cast<std::size_t>(i);
        note_dropped(source, overflow_count(datagrams_->messages[index].msg_hdr, source.dropped));
        take_datagram(source, index);
    }
}

void Listener::take_datagram(const Source& source, std::size_t index) {
    const Datagrams::Slot& slot = datagrams_->slots[index];
    const std::size_t size = datagrams_->messages[index].msg_len;
    // A longer one fills the slot, which shows that it is too long.
    deliver(source.transport, address_name(slot.from), std::nullopt, Bytes(slot.data).first(size));
}

/* The system counts per socket, modulo 2^32, and a datagram may tell an older count. */
void Listener::note_dropped(Source& source, std::uint32_t dropped) {
    const std::uint32_t more = dropped - source.dropped;
    if (more < 0x80000000U) {
        totals_.dropped += more;
        source.dropped = dropped;
    }
}

void Listener::on_acceptor(Source& source) {
    for (int i = 0; i < accept_max; ++i) {
        const int fd = accept4(source.fd.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            accept_peer(source, fd);
        } else if (out_of_room(errno)) {
            pause_accepting();
            return;
        } else if (errno == EAGAIN) {
            crowded_ = false;
            return;
        }
    }
}

void Listener::accept_peer(const Source& acceptor, int fd) {
    probe_idle_peer(fd);
    const bool added = add_source({.kind = Source::Kind::peer,
                                   .fd = FileDescriptor(fd),
                                   .transport = acceptor.transport,
                                   .framing = acceptor.framing,
                                   .name = peer_name(fd)});
    if (!added) {
        ++totals_.refused["no room for another peer"];
    }
}

/* Peers that cannot be taken in would wake the loop for ever. */
void Listener::pause_accepting() {
    if (!crowded_) {
        report(std::string("no room for more peers (") + std::strerror(errno) +
               "); they wait until one leaves\n");
    }
    crowded_ = true;
    accepting_ = false;
    resume_at_ = Clock::now() + accept_pause;
    arm_acceptors(0);
}

void Listener::resume_accepting() {
    accepting_ = true;
    arm_acceptors(EPOLLIN);
}

void Listener::arm_acceptors(std::uint32_t events) {
    for (const auto& [fd, source] : sources_) {
        if (source->kind == Source::Kind::acceptor) {
            epoll_event event{};
            event.events = events;
            event.data.ptr = source.get();
            epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event);
        }
    }
}

void Listener::on_peer(Source& peer) {
    const std::size_t kept = peer.pending.size();
    std::copy(peer.pending.begin(), peer.pending.end(), chunk_.begin());
    const ssize_t got = recv(peer.fd.get(), chunk_.data() + kept, chunk_.size() - kept, 0);
    if (got > 0) {
        consume(peer, Bytes(chunk_).first(kept + static_cast<std::size_t>(got)));
    } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
        end_of_stream(peer);
    }
}

/* Delivers the whole traps in `bytes` and keeps the rest for later. */
void Listener::consume(Source& peer, Bytes bytes) {
    while (!done_) {
        const Frame frame = next_frame(peer.framing, bytes);
        if (frame.state == Frame::State::refused) {
            ++totals_.refused[frame.reason];
            report(std::string("refused ") + peer.transport + " " + peer.name + ": " +
                   frame.reason + "\n");
            return remove_peer(peer);
        }
        if (frame.state == Frame::State::unfinished) {
            break;
        }
        deliver(peer.transport, peer.name, frame.header, frame.trap);
        bytes = bytes.subspan(frame.length);
    }
    // Behind the count, nobody asks for the rest.
    keep_pending(peer, done_ ? Bytes() : bytes);
}

void Listener::keep_pending(Source& peer, Bytes bytes) {
    forget_pending(peer);
    if (!bytes.empty()) {
        peer.pending.assign(bytes.begin(), bytes.end());
        peer.deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(options_.idle));
        peer.place = unfinished_.insert(unfinished_.end(), &peer);
    }
}

void Listener::forget_pending(Source& peer) {
    if (!peer.pending.empty()) {
        unfinished_.erase(peer.place);
        std::vector<std::uint8_t>().swap(peer.pending);
    }
}

void Listener::end_of_stream(Source& peer) {
    if (!peer.pending.empty()) {
        ++totals_.unfinished["closed by the peer"];
    }
    remove_peer(peer);
}

void Listener::give_up_unfinished() {
    while (!unfinished_.empty() && unfinished_.front()->deadline <= Clock::now()) {
        Source& peer = *unfinished_.front();
        ++totals_.unfinished["timed out"];
        report(std::string("closed ") + peer.transport + " " + peer.name +
               ": the rest of a trap did not come in time\n");
        remove_peer(peer);
    }
}

void Listener::deliver(const char* transport, const std::string& peer,
                       const std::optional<trap_headerEMS>& header, Bytes trap) {
    if (const char* reason = trap_.decode(trap)) {
        ++totals_.undecodable[reason];
        return;
    }
    ++totals_.received;
    done_ = options_.count != 0 && totals_.received >= options_.count;
    print({transport, peer, trap.size(), header, trap_.info(), trap_.bindings()});
    output_.written();
}

void Listener::print(const ReceivedTrap& trap) {
    if (formatter_) {
        print_formatted();
    } else {
        (options_.json ? append_json : append_text)(output_.text(), trap);
    }
}

void Listener::print_formatted() {
    switch (formatter_->format(trap_)) {
        case TrapFormatter::Result::cut:
            ++(*totals_.withheld)["cut short"];
            [[fallthrough]];
        case TrapFormatter::Result::shown:
            output_.text() += formatter_->text();
            return;
        case TrapFormatter::Result::hidden:
            ++(*totals_.withheld)["not to be shown"];
            return;
        case TrapFormatter::Result::failed:
            failure_ = formatter_->text();
            done_ = true;
    }
}

void Listener::print_totals() {
    for (const auto& [fd, source] : sources_) {
        if (source->kind == Source::Kind::datagrams) {
            note_dropped(*source, drops_now(fd, source->dropped));
        }
    }
    report(totals_text(totals_));
}

}  // namespace wq::command
