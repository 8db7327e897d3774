// A process that asks the system's resolver for names, so that nobody else waits for a name server.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "file_descriptor.h"

namespace wq::command {

// Bytes of the longest name of a host that is shown.
inline constexpr std::size_t host_name_max = 79;

// What the resolver says about an address. Addresses have the bytes of a struct in_addr.
struct HostAnswer {
    enum class Kind : std::uint8_t {
        found,
        none,         // it has no name, or none that is shown
        unavailable,  // no name server answered
        no_more,      // all addresses of a node have been told
    };
    Kind kind;
    bool last;  // to its question
    std::uint32_t address;
    std::array<char, host_name_max + 1> name;  // terminated
};

// is_host_name: whether it is of the form [A-Za-z0-9._-]{1,79}; other names are not shown.
bool is_host_name(const char* name);

// ask_system: asks for the name of an address here and now.
HostAnswer ask_system(std::uint32_t address);

// The process. It ends with the one that started it. A Failure if it cannot be started.
class Resolver {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t waiting_max = 1024;
    static constexpr std::chrono::seconds silence_max{30};

    Resolver();
    ~Resolver();
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

    // Readable when there are answers.
    int fd() const { return socket_.get(); }

    // ask: asks for the name of an address. One answer comes. False if too many wait already.
    bool ask(std::uint32_t address);

    // ask_node: asks for the addresses of a host and for the names of these. An answer comes for
    // each, and one more after the last. False if too many wait already.
    bool ask_node(const std::string& name);

    // take: hands out the answers that have come. Does not wait. False if the process is gone.
    bool take(const std::function<void(const HostAnswer&)>& on_answer);

    std::size_t waiting() const { return waiting_; }

    // When it has been silent for too long although somebody waits; the end of time if nobody does.
    Clock::time_point overdue() const;

    // restart: starts another process in its place. What waits is not answered any more.
    void restart();

  private:
    struct Question;

    void start();
    bool send(const Question& question, std::size_t size);

    pid_t process_ = -1;
    FileDescriptor socket_;
    std::size_t waiting_ = 0;
    Clock::time_point heard_ = {};  // the last answer, or the question that nobody waited before
};

}  // namespace wq::command
