/*
 * The loop that serves every peer of `wqevents listen`.
 */
#ifndef WQEVENTS_TOOL_LISTENER_H
#define WQEVENTS_TOOL_LISTENER_H

#include <array>
#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "endpoint.h"
#include "framing.h"
#include "output.h"
#include "received_trap.h"
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
    std::uint64_t count = 0;           // end after so many traps; 0: do not
    double idle = 30;                  // seconds that an unfinished trap may pause
};

/*
 * Serves its endpoints with one epoll set and no thread. What arrives is read into one buffer that
 * all share; a peer owns bytes only while it owes the rest of a trap, so an idle one costs its
 * descriptor and a small record, and a waking peer costs the same however many idle.
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

    struct Source {
        enum class Kind { signals, datagrams, acceptor, peer };
        Kind kind;
        FileDescriptor fd;
        const char* transport;
        Framing framing;
        std::string name;
        std::uint32_t dropped = 0;                // datagrams: the last the system told
        std::vector<std::uint8_t> pending = {};   // peer: the start of a trap
        Clock::time_point deadline = {};          // peer: when the trap is given up
        std::list<Source*>::iterator place = {};  // peer: in unfinished_, while it has `pending`
    };
    struct Datagrams;

    void add_endpoints(const ListenOptions& options);
    void add_endpoint(Source::Kind kind, const char* transport, Framing framing, Endpoint endpoint);
    void add_signals();
    bool add_source(Source source);
    void remove_peer(Source& peer);

    int serve(int timeout);
    int next_timeout() const;
    void drain();
    void on_ready(Source& source);
    void on_signal(Source& source);
    void on_datagrams(Source& source);
    void on_acceptor(Source& source);
    void on_peer(Source& peer);

    void accept_peer(const Source& acceptor, int fd);
    void pause_accepting();
    void resume_accepting();
    void arm_acceptors(std::uint32_t events);

    void take_datagram(const Source& source, std::size_t index);
    void note_dropped(Source& source, std::uint32_t dropped);
    void consume(Source& peer, Bytes bytes);
    void keep_pending(Source& peer, Bytes bytes);
    void forget_pending(Source& peer);
    void end_of_stream(Source& peer);
    void give_up_unfinished();
    void deliver(const char* transport, const std::string& peer,
                 const std::optional<trap_headerEMS>& header, Bytes trap);
    void print(const ReceivedTrap& trap);
    void print_formatted();
    void print_totals();

    ListenOptions options_;
    Totals totals_;
    Output output_;
    std::string ready_;    // what is listened on, a line each
    bool ending_ = false;  // asked to end: drain
    bool done_ = false;    // the count is reached, or nothing can be printed any more
    FileDescriptor epoll_;
    std::unordered_map<int, std::unique_ptr<Source>> sources_;
    std::vector<SocketFile> socket_files_;
    std::list<Source*> unfinished_;  // peers with `pending`, the one to give up first in front
    bool accepting_ = true;
    bool crowded_ = false;  // peers have been waiting for room since it was last said
    Clock::time_point resume_at_;
    std::vector<std::uint8_t> chunk_;
    std::unique_ptr<Datagrams> datagrams_;
    TrapRecords trap_;
    std::optional<TrapFormatter> formatter_;
    std::string failure_;  // why formatting had to end
};

}  // namespace wq::command

#endif
