// Peers by the time of their silence, by their hosts, and by what they owe.
#include "peers.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include "endpoint.h"

namespace wq::command {
namespace {

constexpr std::uint64_t local_user = std::uint64_t{1} << 32;  // added to a user's number

}  // namespace

PeerIdentity identify_peer(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
        address.ss_family == AF_INET) {
        const auto& place = reinterpret_cast<const sockaddr_in&>(address);
        return {address_name(place), place.sin_addr.s_addr, false};
    }
    ucred credentials{};
    length = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0) {
        return {"process " + std::to_string(credentials.pid), local_user + credentials.uid, true};
    }
    return {"unknown", local_user, true};
}

bool Peers::is_host_full(const PeerIdentity& identity) const {
    const auto found = by_host_.find(identity.host);
    return found != by_host_.end() &&
           found->second >= (identity.local ? limits_.per_user : limits_.per_host);
}

Peer& Peers::add(Peer peer) {
    Peer& added = all_.emplace_back(std::move(peer));
    added.place = std::prev(all_.end());
    added.heard = Clock::now();
    ++by_host_[added.identity.host];
    return added;
}

void Peers::remove(Peer& peer) {
    forget(peer);
    const auto host = by_host_.find(peer.identity.host);
    if (--host->second == 0) {
        by_host_.erase(host);
    }
    all_.erase(peer.place);
}

void Peers::heard(Peer& peer) {
    peer.heard = Clock::now();
    all_.splice(all_.end(), all_, peer.place);
}

void Peers::keep(Peer& peer, std::span<const std::uint8_t> bytes, bool fresh) {
    if (fresh || bytes.empty()) {
        forget(peer);
    }
    if (bytes.empty()) {
        return;
    }
    if (peer.pending.empty()) {
        peer.deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limits_.idle);
        peer.late_place = late_.insert(late_.end(), &peer);
    }
    peer.pending.assign(bytes.begin(), bytes.end());
}

void Peers::forget(Peer& peer) {
    if (!peer.pending.empty()) {
        late_.erase(peer.late_place);
        std::vector<std::uint8_t>().swap(peer.pending);
    }
}

Peers::Clock::time_point Peers::next() const {
    return late_.empty() ? Clock::time_point::max() : late_.front()->deadline;
}

}  // namespace wq::command
