#include "listener.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
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

constexpr int accept_max = 64;  // peers taken in before others have their turn
constexpr std::size_t read_size = 65536;
constexpr seconds accept_pause{1};
constexpr seconds drain_limit{2};
constexpr milliseconds turn_max{20};  // between two looks at signals and at the output
/* A peer that sent a trap, or came, so lately never gives way to others. */
constexpr seconds shortest_silence{1};
/* Traps wait so long for a changed configuration that they are to be formatted by. */
constexpr milliseconds reload_hold{1000};
constexpr milliseconds first_names_hold{1000};
constexpr milliseconds names_hold{200};
/* Descriptors kept for the log, for copies and for children; fewer if there are few. */
constexpr rlim_t reserve_max = 16;

/* A peer is a descriptor, so take as many as the system lets this process have. */
void raise_descriptor_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/* A peer that vanished without a word is found out some day. */
void probe_idle_peer(int fd) {
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
}

bool is_readable(int fd) {
    pollfd waited{fd, POLLIN, 0};
    return poll(&waited, 1, 0) == 1;
}

void require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw system_failure(what, errno);
    }
}

bool out_of_room(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

Output open_output(const std::string& log) {
    return log.empty() ? Output() : Output(log);
}

PeerLimits peer_limits(const ListenOptions& options) {
    PeerLimits limits;
    limits.all = options.max_peers;
    limits.per_host = options.max_peers_per_host;
    limits.idle = std::chrono::duration<double>(options.idle);
    return limits;
}

}  // namespace

Listener::Listener(const ListenOptions& options)
    : options_(options),
      names_(options.layout ? std::make_unique<HostNames>(options.names, true) : nullptr),
      configuration_(options.layout ? std::make_unique<Configuration>(options.configuration)
                                    : nullptr),
      output_(open_output(options.log)),
      peers_(peer_limits(options)),
      chunk_(read_size + frame_max) {
    raise_descriptor_limit();
    add_signals();
    if (options.layout) {
        start_formatting();
    }
    if (!options.log.empty()) {
        totals_.not_logged.emplace();
    }
    add_endpoints();
    limit_peers();
    if (names_ != nullptr) {
        names_->wait_for_nodes(first_names_hold);
    }
    report(ready_);
}

Listener::~Listener() = default;

void Listener::start_formatting() {
    formatter_.emplace(*options_.layout, options_.raw);
    if (options_.raw) {
        output_.pass_raw();
    }
    totals_.withheld.emplace();
    names_->on_wait([this] { output_.flush(); }, signals_->fd());
    names_->ask_nodes(configured_nodes());
    use_names();
}

void Listener::run() {
    while (!ending_ && !done_) {
        serve(next());
    }
    drain();
    if (peers_.unfinished() != 0) {
        totals_.unfinished["at the end"] += peers_.unfinished();
    }
    complaints_.finish();
    print_totals();
}

void Listener::add_endpoints() {
    for (const std::string& place : options_.udp) {
        add_datagrams(open_udp("--udp", place));
    }
    for (const std::string& path : options_.sockets) {
        LocalEndpoint local = open_local(path);
        socket_files_.push_back(std::move(local.file));
        add_acceptor("socket", Framing::header, std::move(local.endpoint));
    }
    for (const std::string& place : options_.tcp) {
        add_acceptor("tcp", Framing::header, open_tcp("--tcp", place));
    }
    for (const std::string& place : options_.raw_tcp) {
        add_acceptor("raw-tcp", Framing::raw, open_tcp("--raw-tcp", place));
    }
}

void Listener::add_datagrams(Endpoint endpoint) {
    ready_ += "listening on udp " + shown(endpoint.address) + "\n";
    const std::size_t index = sockets_.size();
    Source* const source =
        loop_.add(std::move(endpoint.fd), [this, index] { on_datagrams(index); });
    require(source != nullptr, "cannot wait for peers");
    sockets_.push_back({source});
}

void Listener::add_acceptor(const char* transport, Framing framing, Endpoint endpoint) {
    ready_ += std::string("listening on ") + transport + " " + shown(endpoint.address) + "\n";
    const std::size_t index = acceptors_.size();
    Source* const source = loop_.add(std::move(endpoint.fd), [this, index] { on_acceptor(index); });
    require(source != nullptr, "cannot wait for peers");
    acceptors_.push_back({source, transport, framing});
}

/* Signals are read like peers, so nothing happens between two instructions. */
void Listener::add_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) {
        sigaddset(&set, number);
    }
    sigprocmask(SIG_BLOCK, &set, nullptr);
    FileDescriptor fd(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    require(fd.get() >= 0, "cannot wait for signals");
    signals_ = loop_.add(std::move(fd), [this] { on_signals(); });
    require(signals_ != nullptr, "cannot wait for signals");
}

/* Peers leave descriptors for what the listener opens while it runs. */
void Listener::limit_peers() {
    rlimit limit{};
    const FileDescriptor first_free(dup(signals_->fd()));
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || first_free.get() < 0) {
        return;
    }
    const rlim_t used =
        static_cast<rlim_t>(first_free.get()) + std::min(reserve_max, limit.rlim_cur / 4);
    peers_.limit(limit.rlim_cur > used ? limit.rlim_cur - used : 1);
}

/* Waits once and serves what is ready; how much that was. */
int Listener::serve(Clock::time_point until) {
    flushed_ = Clock::now();
    const int count = loop_.turn(until, [this] { return after_source(); });
    // With a full set more may be waiting, from the very peers that seem to be late.
    if (count < Loop::ready_max) {
        give_up_unfinished();
    }
    look_at_time();
    take_kept();
    output_.flush();
    if (const std::string complaint = output_.take_complaint(); !complaint.empty()) {
        complaints_.tell(complaint);
    }
    return count;
}

/* Between two sources; false where the turn is over. */
bool Listener::after_source() {
    take_kept();
    if (Clock::now() - flushed_ >= turn_max) {
        output_.flush();
        on_signals();
        flushed_ = Clock::now();
    }
    return !done_ && (!ending_ || draining_);
}

/* What happens by itself. */
void Listener::look_at_time() {
    const Clock::time_point now = Clock::now();
    complaints_.settle(now);
    if (!accepting_ && now >= resume_at_) {
        watch_acceptors(true);
    }
    if (configuration_ != nullptr && now >= configuration_->next()) {
        look_for_changes(false);
    }
    if (names_ != nullptr && names_->tend(now)) {
        use_names();
    }
}

/* When look_at_time() is to be called again at the latest. */
Listener::Clock::time_point Listener::next() const {
    Clock::time_point first = std::min(peers_.next(), complaints_.next());
    if (!accepting_) {
        first = std::min(first, resume_at_);
    }
    if (configuration_ != nullptr) {
        first = std::min({first, configuration_->next(), names_->next()});
    }
    return first;
}

/* Serves what has arrived until there is no more; a peer that goes on sending ends it as well. */
void Listener::drain() {
    draining_ = true;
    const Clock::time_point limit = Clock::now() + drain_limit;
    while (!done_ && Clock::now() < limit && serve(Clock::time_point()) > 0) {
    }
}

void Listener::on_signals() {
    signalfd_siginfo info{};
    while (read(signals_->fd(), &info, sizeof info) == sizeof info) {
        if (info.ssi_signo == SIGUSR1) {
            print_totals();
        } else if (info.ssi_signo == SIGHUP) {
            on_hangup();
        } else {
            ending_ = true;
            output_.hurry();
        }
    }
}

void Listener::on_hangup() {
    if (const std::string complaint = output_.reopen(); !complaint.empty()) {
        complaints_.tell(complaint);
    }
    if (configuration_ != nullptr) {
        configuration_->ask(Configuration::Part::traps);
        configuration_->ask(Configuration::Part::mib);
        look_for_changes(true);
    }
}

void Listener::on_datagrams(std::size_t index) {
    take_kept();
    DatagramSocket& socket = sockets_[index];
    const std::size_t count = batch_.receive(socket.source->fd());
    for (std::size_t i = 0; i < count && !done_; ++i) {
        note_dropped(socket, batch_.dropped(i, socket.dropped));
        // A longer one fills the slot, which shows that it is too long.
        deliver("udp", address_name(batch_.sender(i)), std::nullopt, batch_.bytes(i));
    }
}

/* Serves what came while nobody did, before anything that came later. */
void Listener::take_kept() {
    while (!kept_.empty() && !done_) {
        const KeptDatagram datagram = std::move(kept_.front());
        kept_.pop_front();
        deliver("udp", address_name(datagram.sender), std::nullopt, datagram.bytes);
    }
}

std::vector<int> Listener::datagram_sockets() const {
    std::vector<int> sockets;
    for (const DatagramSocket& socket : sockets_) {
        sockets.push_back(socket.source->fd());
    }
    return sockets;
}

/* The system counts per socket, modulo 2^32, and a datagram may tell an older count. */
void Listener::note_dropped(DatagramSocket& socket, std::uint32_t dropped) {
    const std::uint32_t more = dropped - socket.dropped;
    if (more < 0x80000000U) {
        totals_.dropped += more;
        socket.dropped = dropped;
    }
}

void Listener::on_acceptor(std::size_t index) {
    for (int i = 0; i < accept_max && accept_one(acceptors_[index]); ++i) {
    }
}

/* Takes in one peer that waits; false if there is none, or no room. */
bool Listener::accept_one(const Acceptor& acceptor) {
    const int listening = acceptor.source->fd();
    if (peers_.is_full() && is_readable(listening) && !make_room(EMFILE)) {
        return false;
    }
    FileDescriptor fd(accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (fd.get() >= 0) {
        accept_peer(acceptor, std::move(fd));
        return true;
    }
    const int error = errno;
    if (out_of_room(error) && is_readable(listening)) {
        return make_room(error);
    }
    crowded_ = crowded_ && peers_.is_full();
    return error != EAGAIN && !out_of_room(error);
}

void Listener::accept_peer(const Acceptor& acceptor, FileDescriptor fd) {
    probe_idle_peer(fd.get());
    PeerIdentity identity = identify_peer(fd.get());
    if (peers_.is_host_full(identity)) {
        constexpr const char* reason = "too many peers of one host";
        ++totals_.refused[reason];
        return complain("refused", acceptor.transport, identity.name, reason);
    }
    Peer& peer = peers_.add({.identity = std::move(identity),
                             .transport = acceptor.transport,
                             .framing = acceptor.framing});
    peer.source = loop_.add(std::move(fd), [this, &peer] { on_peer(peer); });
    if (peer.source == nullptr) {
        ++totals_.refused["no room for another peer"];
        peers_.remove(peer);
    }
}

/*
 * Room for one more peer: the one that has been silent for the longest time goes. What it has just
 * sent is taken first, which may show that it is not silent at all. False if the others must wait.
 */
bool Listener::make_room(int error) {
    const Clock::time_point since = Clock::now() - shortest_silence;
    for (Peer* peer = peers_.longest_silent(); peer != nullptr && peer->heard <= since;
         peer = peers_.longest_silent()) {
        const std::size_t before = peers_.size();
        const Peer* const chosen = peer;
        on_peer(*peer);
        if (peers_.size() < before) {
            return true;
        }
        if (peers_.longest_silent() == chosen) {
            close_peer(*peer, "gave way to others after a long silence", "gave way to others");
            return true;
        }
    }
    pause_accepting(error);
    return false;
}

/* Peers that cannot be taken in would wake the loop for ever. */
void Listener::pause_accepting(int error) {
    if (!crowded_) {
        complaints_.add(std::string("no room for more peers (") +
                        (peers_.is_full() ? "as many as there may be" : std::strerror(error)) +
                        "); they wait until one leaves or is silent");
    }
    crowded_ = true;
    const Peer* const first = peers_.longest_silent();
    resume_at_ = first != nullptr ? first->heard + shortest_silence : Clock::now() + accept_pause;
    resume_at_ = std::max(resume_at_, Clock::now() + milliseconds(1));
    watch_acceptors(false);
}

void Listener::watch_acceptors(bool wanted) {
    accepting_ = wanted;
    for (const Acceptor& acceptor : acceptors_) {
        loop_.watch(*acceptor.source, wanted);
    }
}

void Listener::remove_peer(Peer& peer) {
    loop_.remove(*peer.source);
    peers_.remove(peer);
    if (!accepting_) {
        watch_acceptors(true);
    }
}

void Listener::close_peer(Peer& peer, const char* why, const char* unfinished) {
    if (!peer.pending.empty()) {
        ++totals_.unfinished[unfinished];
    }
    complain("closed", peer.transport, peer.identity.name, why);
    remove_peer(peer);
}

void Listener::on_peer(Peer& peer) {
    const std::size_t kept = peer.pending.size();
    std::copy(peer.pending.begin(), peer.pending.end(), chunk_.begin());
    const ssize_t got = recv(peer.source->fd(), chunk_.data() + kept, chunk_.size() - kept, 0);
    if (got > 0) {
        consume(peer, Bytes(chunk_).first(kept + static_cast<std::size_t>(got)));
    } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
        if (!peer.pending.empty()) {
            ++totals_.unfinished["closed by the peer"];
        }
        remove_peer(peer);
    }
}

/* Delivers the whole traps in `bytes` and keeps the rest for later. */
void Listener::consume(Peer& peer, Bytes bytes) {
    const std::size_t all = bytes.size();
    while (!done_) {
        const Frame frame = next_frame(peer.framing, bytes);
        if (frame.state == Frame::State::refused) {
            ++totals_.refused[frame.reason];
            complain("refused", peer.transport, peer.identity.name, frame.reason);
            return remove_peer(peer);
        }
        if (frame.state == Frame::State::unfinished) {
            break;
        }
        deliver(peer.transport, peer.identity.name, frame.header, frame.trap);
        bytes = bytes.subspan(frame.length);
    }
    const bool whole = bytes.size() < all;
    if (whole) {
        peers_.heard(peer);
    }
    // Behind the count, nobody asks for the rest.
    peers_.keep(peer, done_ ? Bytes() : bytes, whole);
}

void Listener::give_up_unfinished() {
    for (Peer* peer = peers_.first_late(); peer != nullptr && peer->deadline <= Clock::now();
         peer = peers_.first_late()) {
        close_peer(*peer, "the rest of a trap did not come in time", "timed out");
    }
}

/*
 * Has a changed configuration tried out. With `hold` the traps wait for it, but not for ever, and
 * not for one that could not be read the last time.
 */
void Listener::look_for_changes(bool hold) {
    if (!configuration_->start(Clock::now())) {
        return;
    }
    if (hold && configuration_->is_sound()) {
        output_.flush();
        DatagramKeeper keeper(datagram_sockets());
        const bool finished = wait_for_child();
        if (finished) {
            apply_changes();
        }
        keeper.finish(kept_);
        if (finished) {
            return;
        }
    }
    child_ = loop_.add(FileDescriptor(fcntl(configuration_->fd(), F_DUPFD_CLOEXEC, 0)),
                       [this] { on_child(); });
}

/* Whether the child has come to its end before the time is over and before a signal comes. */
bool Listener::wait_for_child() {
    const Clock::time_point limit = Clock::now() + reload_hold;
    std::array<pollfd, 2> waited = {
        {{configuration_->fd(), POLLIN, 0}, {signals_->fd(), POLLIN, 0}}};
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(limit - Clock::now());
        if (left.count() <= 0 ||
            poll(waited.data(), waited.size(), static_cast<int>(left.count())) <= 0) {
            return false;
        }
        if (waited[0].revents != 0 && configuration_->take()) {
            return true;
        }
        if (waited[1].revents != 0) {
            return false;
        }
    }
}

void Listener::on_child() {
    if (configuration_->take()) {
        loop_.remove(*child_);
        child_ = nullptr;
        output_.flush();
        DatagramKeeper keeper(datagram_sockets());
        apply_changes();
        keeper.finish(kept_);
    }
}

/* Reading takes its time, so somebody else must keep what arrives meanwhile. */
void Listener::apply_changes() {
    if (const std::string complaint = configuration_->apply(); !complaint.empty()) {
        complaints_.tell("configuration: " + complaint);
    }
    names_->ask_nodes(configured_nodes());
    names_->wait_for_nodes(names_hold);
}

/* Has the loop look after the process that asks for names. */
void Listener::use_names() {
    if (answers_ != nullptr) {
        loop_.remove(*answers_);
        answers_ = nullptr;
    }
    if (names_->fd() >= 0) {
        answers_ = loop_.add(FileDescriptor(fcntl(names_->fd(), F_DUPFD_CLOEXEC, 0)),
                             [this] { on_names(); });
    }
}

void Listener::on_names() {
    names_->take_answers();
    if (names_->fd() < 0) {
        use_names();
    }
}

void Listener::deliver(const char* transport, const std::string& peer,
                       const std::optional<trap_headerEMS>& header, Bytes trap) {
    if (const char* reason = trap_.decode(trap)) {
        ++totals_.undecodable[reason];
        return complain("undecodable", transport, peer, reason);
    }
    ++totals_.received;
    done_ = options_.count != 0 && totals_.received >= options_.count;
    print({transport, peer, trap.size(), header, trap_.info(), trap_.bindings()});
    output_.written();
    if (formatter_ && (formatter_->tells_of_configuration() || formatter_->tells_of_mib())) {
        configuration_->ask(formatter_->tells_of_mib() ? Configuration::Part::mib
                                                       : Configuration::Part::traps);
        look_for_changes(true);
    }
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
    }
}

void Listener::print_totals() {
    for (DatagramSocket& socket : sockets_) {
        note_dropped(socket, datagrams_dropped(socket.source->fd(), socket.dropped));
    }
    if (totals_.not_logged) {
        output_.flush();
        totals_.not_logged = output_.lost();
    }
    report(totals_text(totals_));
}

void Listener::complain(const char* what, const char* transport, const std::string& peer,
                        const std::string& reason) {
    complaints_.add(std::string(what) + " " + transport + " " + peer + ": " + reason);
}

}  // namespace wq::command
