// The names of hosts as the formatter sees them: a cache that the library's look-ups go to.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "resolver.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace wq::command {

enum class NameMode {
    now,    // a look-up waits for the answer
    cache,  // what is not known yet is asked for, and has no name meanwhile
    never,  // nothing has a name
};

// add_names_option: adds --names to a subcommand; `mode` holds the default.
CLI::Option* add_names_option(CLI::App& command, NameMode& mode);

// Names by address, the least recently used given up for others.
class HostNameCache {
  public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::size_t capacity = 65536;
    static constexpr std::chrono::seconds found_lives{300};
    static constexpr std::chrono::seconds failure_lives{60};

    struct Look {
        const std::string* name = nullptr;  // null: none is known; valid until the next call
        bool ask = false;                   // nothing is known, or only what is out of date
    };

    // Whoever is told to ask says so by asked().
    Look look_up(std::uint32_t address, Time now);

    // asked: an answer is to come; look_up() tells nobody to ask meanwhile.
    void asked(std::uint32_t address);
    bool is_asked(std::uint32_t address) const;

    // remember: takes an answer. A name that was known is kept if no name server answers. What is
    // `pinned` is never given up.
    void remember(const HostAnswer& answer, bool pinned, Time now);

    // forget_questions: what was asked for is not answered any more.
    void forget_questions(Time now);

    std::size_t size() const { return index_.size(); }

  private:
    struct Entry {
        std::uint32_t address;
        std::string name = {};
        Time expires = {};
        bool asked = false;
        bool pinned = false;
    };
    using Place = std::list<Entry>::iterator;

    Entry& entry(std::uint32_t address);
    void shrink();

    std::list<Entry> entries_;  // the last used first; the pinned ones are apart
    std::list<Entry> pinned_;
    std::unordered_map<std::uint32_t, Place> index_;
};

// The process's names. While one lives, the library's look-ups of addresses are answered by it;
// while none does, they ask the system.
class HostNames {
  public:
    using Clock = std::chrono::steady_clock;

    // `asks_apart`: a process asks, and `now` waits 2 s for a name at most; otherwise `now` asks
    // the system itself, and waits as long as that does. A Failure if the process cannot be
    // started.
    HostNames(NameMode mode, bool asks_apart);
    ~HostNames();
    HostNames(const HostNames&) = delete;
    HostNames& operator=(const HostNames&) = delete;

    // The name of an address, or null. Valid until the next call.
    const char* look_up(std::uint32_t address);

    // on_wait: `wait` is called before a look-up waits; the wait ends when `signals` is readable.
    void on_wait(std::function<void()> wait, int signals);

    // ask_nodes: looks up the hosts and keeps the names that they have by their addresses.
    void ask_nodes(std::vector<std::string> nodes);

    // wait_for_nodes: until all of them are known, or the time is over.
    void wait_for_nodes(std::chrono::milliseconds limit);

    // Readable when take_answers() has something to do; -1 if no process asks.
    int fd() const;
    void take_answers();

    // tend: starts the process again if it is gone or silent. True if fd() is another one since.
    bool tend(Clock::time_point now);
    Clock::time_point next() const;

  private:
    void ask(std::uint32_t address);
    void ask_more_nodes();
    void wait_for(std::uint32_t address);
    bool wait_for_answers(Clock::time_point limit, bool also_signals);

    NameMode mode_;
    HostNameCache cache_;
    std::unique_ptr<Resolver> resolver_;
    std::deque<std::string> nodes_;                      // to be asked for
    std::size_t nodes_asked_ = 0;                        // and not answered yet
    Clock::time_point gone_ = Clock::time_point::max();  // since when the process is
    std::function<void()> wait_;
    int signals_ = -1;
};

}  // namespace wq::command
