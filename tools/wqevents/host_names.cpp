// A bounded cache of the names of hosts, asked for by a process of its own.
#include "host_names.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <wqplatform.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstring>
#include <utility>

#include "command.h"

namespace wq::command {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds name_patience{2};
constexpr seconds restart_pause{1};

constexpr std::array<std::pair<std::string_view, NameMode>, 3> modes = {{
    {"now", NameMode::now},
    {"cache", NameMode::cache},
    {"never", NameMode::never},
}};

HostNames*& active_names() {
    static HostNames* active = nullptr;
    return active;
}

// A host as gethostbyaddr() describes it: its name and the one address.
struct HostRecord {
    std::array<char, host_name_max + 1> name{};
    std::uint32_t address = 0;
    std::array<char*, 1> aliases{};
    std::array<char*, 2> addresses{};
    hostent entry{};

    hostent* describe(std::string_view text, std::uint32_t of) {
        const std::size_t length = text.copy(name.data(), host_name_max);
        name[length] = '\0';
        address = of;
        addresses[0] = reinterpret_cast<char*>(&address);
        entry = {name.data(), aliases.data(), AF_INET, sizeof address, addresses.data()};
        return &entry;
    }
};

// The name of an address; empty if there is none.
std::string name_of(std::uint32_t address) {
    if (HostNames* const names = active_names()) {
        const char* const name = names->look_up(address);
        return name != nullptr ? name : "";
    }
    return ask_system(address).name.data();
}

// Look-ups fail as those of the system do; nothing is thrown into the library.
hostent* look_up(std::uint32_t address) {
    static HostRecord record;
    try {
        const std::string name = name_of(address);
        if (!name.empty()) {
            return record.describe(name, address);
        }
    } catch (...) {  // no memory; or the output, which fails again where that can be told
    }
    h_errno = HOST_NOT_FOUND;
    return nullptr;
}

}  // namespace

CLI::Option* add_names_option(CLI::App& command, NameMode& mode) {
    const std::vector<std::pair<std::string, NameMode>> words(modes.begin(), modes.end());
    const std::string other = mode == NameMode::now ? " (default: now)" : " (default: cache)";
    return command
        .add_option("--names", mode,
                    "Names of hosts: wait for them, show those that are known, or none" + other)
        ->type_name("now|cache|never")
        ->transform(CLI::CheckedTransformer(words).description(""));
}

HostNameCache::Entry& HostNameCache::entry(std::uint32_t address) {
    const auto known = index_.find(address);
    if (known == index_.end()) {
        entries_.push_front({.address = address});
        index_.emplace(address, entries_.begin());
        shrink();
        return entries_.front();
    }
    Entry& found = *known->second;
    if (!found.pinned) {
        entries_.splice(entries_.begin(), entries_, known->second);
    }
    return found;
}

void HostNameCache::shrink() {
    if (entries_.size() > capacity) {
        index_.erase(entries_.back().address);
        entries_.pop_back();
    }
}

HostNameCache::Look HostNameCache::look_up(std::uint32_t address, Time now) {
    if (index_.find(address) == index_.end()) {
        return {nullptr, true};
    }
    const Entry& known = entry(address);
    return {known.name.empty() ? nullptr : &known.name, !known.asked && now >= known.expires};
}

void HostNameCache::asked(std::uint32_t address) {
    entry(address).asked = true;
}

bool HostNameCache::is_asked(std::uint32_t address) const {
    const auto known = index_.find(address);
    return known != index_.end() && known->second->asked;
}

void HostNameCache::remember(const HostAnswer& answer, bool pinned, Time now) {
    Entry& known = entry(answer.address);
    known.asked = false;
    if (answer.kind != HostAnswer::Kind::unavailable) {
        known.name = answer.kind == HostAnswer::Kind::found ? answer.name.data() : "";
    }
    known.expires = now + (answer.kind == HostAnswer::Kind::found ? found_lives : failure_lives);
    if (pinned && !known.pinned && pinned_.size() < capacity) {
        known.pinned = true;
        pinned_.splice(pinned_.begin(), entries_, index_.at(answer.address));
    }
}

void HostNameCache::forget_questions(Time now) {
    for (std::list<Entry>* const list : {&entries_, &pinned_}) {
        for (Entry& known : *list) {
            known.expires = known.asked ? now + failure_lives : known.expires;
            known.asked = false;
        }
    }
}

HostNames::HostNames(NameMode mode, bool asks_apart) : mode_(mode) {
    if (asks_apart && mode != NameMode::never) {
        resolver_ = std::make_unique<Resolver>();
    }
    active_names() = this;
}

HostNames::~HostNames() {
    active_names() = nullptr;
}

const char* HostNames::look_up(std::uint32_t address) {
    if (mode_ == NameMode::never) {
        return nullptr;
    }
    HostNameCache::Look look = cache_.look_up(address, Clock::now());
    if (look.ask) {
        ask(address);
        if (mode_ == NameMode::now && look.name == nullptr) {
            wait_for(address);
        }
        look = cache_.look_up(address, Clock::now());
    }
    return look.name == nullptr ? nullptr : look.name->c_str();
}

void HostNames::on_wait(std::function<void()> wait, int signals) {
    wait_ = std::move(wait);
    signals_ = signals;
}

void HostNames::ask(std::uint32_t address) {
    if (resolver_ == nullptr) {
        cache_.remember(ask_system(address), false, Clock::now());
    } else if (resolver_->ask(address)) {
        cache_.asked(address);
    }
}

void HostNames::ask_nodes(std::vector<std::string> nodes) {
    if (resolver_ != nullptr && mode_ != NameMode::never) {
        nodes_.assign(std::make_move_iterator(nodes.begin()), std::make_move_iterator(nodes.end()));
        ask_more_nodes();
    }
}

// Half of the places stay for the addresses of traps.
void HostNames::ask_more_nodes() {
    while (!nodes_.empty() && resolver_->waiting() < Resolver::waiting_max / 2 &&
           resolver_->ask_node(nodes_.front())) {
        nodes_.pop_front();
        ++nodes_asked_;
    }
}

int HostNames::fd() const {
    return resolver_ == nullptr || gone_ != Clock::time_point::max() ? -1 : resolver_->fd();
}

void HostNames::take_answers() {
    if (fd() < 0) {
        return;
    }
    const Clock::time_point now = Clock::now();
    const bool lives = resolver_->take([&](const HostAnswer& answer) {
        if (answer.kind == HostAnswer::Kind::no_more) {
            nodes_asked_ -= nodes_asked_ > 0 ? 1 : 0;
        } else {
            cache_.remember(answer, !answer.last, now);
        }
    });
    if (!lives) {
        gone_ = now;
    } else {
        ask_more_nodes();
    }
}

// Waits once; false if the time is over, or somebody else has to be looked after.
bool HostNames::wait_for_answers(Clock::time_point limit, bool also_signals) {
    const auto left = std::chrono::ceil<milliseconds>(limit - Clock::now());
    std::array<pollfd, 2> waited = {{{fd(), POLLIN, 0}, {also_signals ? signals_ : -1, POLLIN, 0}}};
    if (left.count() <= 0 || fd() < 0 ||
        poll(waited.data(), waited.size(), static_cast<int>(left.count())) <= 0) {
        return false;
    }
    take_answers();
    return waited[1].revents == 0;
}

void HostNames::wait_for(std::uint32_t address) {
    if (resolver_ == nullptr) {
        return;
    }
    take_answers();
    const Clock::time_point limit = Clock::now() + name_patience;
    if (wait_ && cache_.is_asked(address)) {
        wait_();
    }
    while (cache_.is_asked(address) && wait_for_answers(limit, true)) {
    }
}

void HostNames::wait_for_nodes(milliseconds limit) {
    const Clock::time_point end = Clock::now() + limit;
    while ((nodes_asked_ > 0 || !nodes_.empty()) && wait_for_answers(end, false)) {
    }
}

HostNames::Clock::time_point HostNames::next() const {
    if (resolver_ == nullptr) {
        return Clock::time_point::max();
    }
    return gone_ != Clock::time_point::max() ? gone_ + restart_pause : resolver_->overdue();
}

bool HostNames::tend(Clock::time_point now) {
    if (now < next()) {
        return false;
    }
    cache_.forget_questions(now);
    nodes_asked_ = 0;
    try {
        resolver_->restart();
        gone_ = Clock::time_point::max();
        ask_more_nodes();
    } catch (const Failure&) {  // tried again after a pause
        gone_ = now;
    }
    return true;
}

}  // namespace wq::command

// The library asks here for the name of an address.
struct hostent* gethostbyaddr_new(const void* address, socklen_t length, int family) {
    std::uint32_t number = 0;
    if (address == nullptr || family != AF_INET || length != sizeof number) {
        h_errno = HOST_NOT_FOUND;
        return nullptr;
    }
    std::memcpy(&number, address, sizeof number);
    return wq::command::look_up(number);
}
