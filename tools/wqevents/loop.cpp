// Waiting by epoll, and serving sources that may go away meanwhile.
#include "loop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>

#include "command.h"

namespace wq::command {
namespace {

using std::chrono::milliseconds;

int timeout_until(Loop::Clock::time_point until) {
    if (until == Loop::Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(until - Loop::Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

}  // namespace

Loop::Loop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    if (epoll_.get() < 0) {
        throw system_failure("cannot wait for peers", errno);
    }
}

bool Loop::control(int operation, Source& source, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = &source;
    return epoll_ctl(epoll_.get(), operation, source.fd(), &event) == 0;
}

Source* Loop::add(FileDescriptor fd, std::function<void()> on_ready) {
    auto source = std::make_unique<Source>(std::move(fd), std::move(on_ready));
    Source* const added = source.get();
    if (!control(EPOLL_CTL_ADD, *added, EPOLLIN)) {
        return nullptr;
    }
    sources_[added->fd()] = std::move(source);
    return added;
}

void Loop::remove(Source& source) {
    const auto place = sources_.find(source.fd());
    source.removed_ = true;
    removed_.push_back(std::move(place->second));
    sources_.erase(place);
    // A child that was forked may hold the descriptor still, so closing it does not end the watch.
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, source.fd(), nullptr);
    source.fd_ = FileDescriptor();
}

void Loop::watch(Source& source, bool wanted) {
    control(EPOLL_CTL_MOD, source, wanted ? EPOLLIN : 0U);
}

int Loop::turn(Clock::time_point until, const std::function<bool()>& go_on) {
    std::array<epoll_event, ready_max> ready;
    int count = 0;
    do {  // a process that was stopped for a while finds its wait interrupted
        count = epoll_wait(epoll_.get(), ready.data(), ready_max, timeout_until(until));
    } while (count < 0 && errno == EINTR);
    int served = 0;
    for (bool goes_on = true; goes_on && served < count; ++served) {
        auto& source = *static_cast<Source*>(ready[static_cast<std::size_t>(served)].data.ptr);
        if (!source.removed_) {
            source.on_ready_();
            goes_on = go_on();
        }
    }
    removed_.clear();
    return served < count ? ready_max : std::max(count, 0);
}

}  // namespace wq::command
