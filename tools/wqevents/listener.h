/*
 * What `wqevents listen` does: serves every peer, and prints what they send.
 */
#ifndef WQEVENTS_TOOL_LISTENER_H
#define WQEVENTS_TOOL_LISTENER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datagrams.h"
#include "endpoint.h"
#include "error_stream.h"
#include "framing.h"
#include "host_names.h"
#include "loop.h"
#include "output.h"
#include "peers.h"
#include "received_trap.h"
#include "reload.h"
#include "totals.h"
#include "trap_formatter.h"

namespace wq::command {

struct ListenOptions {
    std::vector<std::string> udp;      // [HOST:]PORT
    std::vector<std::string> sockets;  // paths
    std::vector<std::string> tcp;      // [HOST:]PORT
    std::vector<std::string> raw_tcp;  // [HOST:]PORT
    bool json = false;
    bool raw = false;                  // as the library makes it
    std::optional<rtrap_user> layout;  // print the operator's text in this layout
    std::string configuration;         // of the layout; "": the one that the platform names
    NameMode names = NameMode::cache;  // of hosts, in the layout
    std::string log;                   // print to this file; "": to the standard output
    std::uint64_t count = 0;           // end after so many traps; 0: do not
    double idle = 30;                  // seconds from the first byte of a trap to its last
    std::size_t max_peers = 4096;
    std::size_t max_peers_per_host = 64;
};

/*
 * Serves its endpoints with one loop; nothing that a peer, a name server, a configuration or the
 * standard error stream does holds it up. What arrives is read into one buffer that all share; a
 * peer owns bytes only while it owes the rest of a trap, so an idle one costs its descriptor and a
 * small record, and a waking peer costs the same however many idle.
 */
class Listener {
  public:
    explicit Listener(const ListenOptions& options);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /* Serves until the count is reached or SIGINT or SIGTERM comes, which drains what is there. */
    void run();

    const Totals& totals() const { return totals_; }

  private:
    using Clock = std::chrono::steady_clock;
    using Bytes = std::span<const std::uint8_t>;

    struct DatagramSocket {
        Source* source;
        std::uint32_t dropped = 0;  // the last count that the system told
    };
    struct Acceptor {
        Source* source;
        const char* transport;
        Framing framing;
    };

    void start_formatting();
    void add_endpoints();
    void add_acceptor(const char* transport, Framing framing, Endpoint endpoint);
    void add_datagrams(Endpoint endpoint);
    void add_signals();
    void limit_peers();

    int serve(Clock::time_point until);
    bool after_source();
    void look_at_time();
    Clock::time_point next() const;
    void drain();
    void on_signals();
    void on_hangup();
    void on_datagrams(std::size_t index);
    void on_acceptor(std::size_t index);
    void on_peer(Peer& peer);

    bool accept_one(const Acceptor& acceptor);
    void accept_peer(const Acceptor& acceptor, FileDescriptor fd);
    bool make_room(int error);
    void pause_accepting(int error);
    void watch_acceptors(bool wanted);
    void remove_peer(Peer& peer);
    void consume(Peer& peer, Bytes bytes);
    void give_up_unfinished();
    void close_peer(Peer& peer, const char* why, const char* unfinished);

    void note_dropped(DatagramSocket& socket, std::uint32_t dropped);
    void take_kept();
    std::vector<int> datagram_sockets() const;

    void look_for_changes(bool hold);
    bool wait_for_child();
    void on_child();
    void apply_changes();
    void use_names();
    void on_names();

    void deliver(const char* transport, const std::string& peer,
                 const std::optional<trap_headerEMS>& header, Bytes trap);
    void print(const ReceivedTrap& trap);
    void print_formatted();
    void print_totals();
    void complain(const char* what, const char* transport, const std::string& peer,
                  const std::string& reason);

    ListenOptions options_;
    Totals totals_;
    Complaints complaints_;
    /* The process that asks for names starts before anything is open that it need not have. */
    std::unique_ptr<HostNames> names_;
    std::unique_ptr<Configuration> configuration_;
    std::optional<TrapFormatter> formatter_;
    Output output_;
    std::string ready_;    // what is listened on, a line each
    bool ending_ = false;  // asked to end: drain
    bool draining_ = false;
    bool done_ = false;  // the count is reached
    Loop loop_;
    Peers peers_;
    Source* signals_ = nullptr;
    Source* child_ = nullptr;    // what tries a changed configuration out
    Source* answers_ = nullptr;  // of the process that asks for names
    std::vector<DatagramSocket> sockets_;
    std::vector<Acceptor> acceptors_;
    std::vector<LocalSocketFile> socket_files_;
    std::deque<KeptDatagram> kept_;  // received while nobody served them
    bool accepting_ = true;
    bool crowded_ = false;  // peers have been waiting for room since it was last said
    Clock::time_point resume_at_ = {};
    Clock::time_point flushed_ = {};
    std::vector<std::uint8_t> chunk_;
    DatagramBatch batch_;
    TrapRecords trap_;
};

}  // namespace wq::command

#endif
