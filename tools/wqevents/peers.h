// The peers of a listener that have a connection: how long each has been silent, and what it owes.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <list>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "framing.h"
#include "loop.h"

namespace wq::command {

// Who is at the other end of a connection.
struct PeerIdentity {
    std::string name;    // "127.0.0.1:40000" or "process 4711"
    std::uint64_t host;  // equal for those of one host, and for those of one local user
    bool local;
};

// identify_peer: who is at the other end of the connected socket.
PeerIdentity identify_peer(int fd);

struct Peer {
    using Clock = std::chrono::steady_clock;

    PeerIdentity identity;
    const char* transport;
    Framing framing;
    Source* source = nullptr;
    Clock::time_point heard = {};                // when it sent a whole trap, or came
    std::vector<std::uint8_t> pending = {};      // the start of a trap
    Clock::time_point deadline = {};             // with `pending`: when the trap is given up
    std::list<Peer>::iterator place = {};        // in the list of all
    std::list<Peer*>::iterator late_place = {};  // with `pending`: in the list of those
};

struct PeerLimits {
    std::size_t all = 4096;
    std::size_t per_host = 64;
    std::size_t per_user = 1024;             // of the local ones
    std::chrono::duration<double> idle{30};  // from the first byte of a trap to its last
};

class Peers {
  public:
    using Clock = Peer::Clock;

    explicit Peers(const PeerLimits& limits) : limits_(limits) {}

    std::size_t size() const { return all_.size(); }
    bool is_full() const { return all_.size() >= limits_.all; }
    // Whether its host, or its user, has as many peers as it may have.
    bool is_host_full(const PeerIdentity& identity) const;
    // From now on no more than so many have room.
    void limit(std::size_t most) { limits_.all = std::min(limits_.all, most); }

    Peer& add(Peer peer);
    void remove(Peer& peer);

    // heard: the peer has sent a whole trap.
    void heard(Peer& peer);
    // The peer that has been silent for the longest time; null if there is none.
    Peer* longest_silent() { return all_.empty() ? nullptr : &all_.front(); }

    // keep: keeps the start of a trap. Its time runs from now on if it is `fresh`, or if the peer
    // owed nothing; otherwise it goes on running.
    void keep(Peer& peer, std::span<const std::uint8_t> bytes, bool fresh);
    // forget: the peer owes nothing any more.
    void forget(Peer& peer);
    // The peer whose trap is given up first; null if none is owed.
    Peer* first_late() { return late_.empty() ? nullptr : late_.front(); }
    std::size_t unfinished() const { return late_.size(); }
    // When the first is given up; the end of time if none is owed.
    Clock::time_point next() const;

  private:
    PeerLimits limits_;
    std::list<Peer> all_;    // the longest silent in front
    std::list<Peer*> late_;  // those with `pending`, by their deadlines
    std::unordered_map<std::uint64_t, std::size_t> by_host_;
};

}  // namespace wq::command
