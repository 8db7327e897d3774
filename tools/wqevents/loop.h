// The loop that waits for descriptors and serves those that are ready.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "file_descriptor.h"

namespace wq::command {

// A descriptor that a loop watches, and what is done when something can be read from it.
class Source {
  public:
    Source(FileDescriptor fd, std::function<void()> on_ready)
        : fd_(std::move(fd)), on_ready_(std::move(on_ready)) {}

    int fd() const { return fd_.get(); }

  private:
    friend class Loop;

    FileDescriptor fd_;
    std::function<void()> on_ready_;
    bool removed_ = false;
};

// One epoll set, level-triggered, for one thread. A Failure if the system has none to give.
class Loop {
  public:
    using Clock = std::chrono::steady_clock;

    Loop();

    // Watches a descriptor, the loop's from then on. Null if the system does not watch one more.
    Source* add(FileDescriptor fd, std::function<void()> on_ready);

    // Closes a source and forgets it, also while it is served, and while it is among those that are
    // ready: it is not served any more.
    void remove(Source& source);

    // Whether the source is watched; what arrives meanwhile is not lost.
    void watch(Source& source, bool wanted);

    // Waits until something is ready, or until the time, and serves what is ready. `go_on` is asked
    // after each source; when it says no, the others stay ready. Returns how many were ready:
    // `ready_max` if there may be more.
    int turn(Clock::time_point until, const std::function<bool()>& go_on);

    static constexpr int ready_max = 256;

  private:
    bool control(int operation, Source& source, std::uint32_t events);

    FileDescriptor epoll_;
    std::unordered_map<int, std::unique_ptr<Source>> sources_;
    std::vector<std::unique_ptr<Source>> removed_;  // kept until no event for them is in hand
};

}  // namespace wq::command
