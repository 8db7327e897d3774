// The process that asks for names: threads that wait for the system's resolver.
#include "resolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "child_process.h"
#include "command.h"

namespace wq::command {

// By its bytes on the socket pair; a name ends where the message does.
struct Resolver::Question {
    std::uint32_t address;  // 0: a node's name follows
    std::array<char, 256> node;
};

namespace {

constexpr int threads = 8;
constexpr int node_addresses_max = 32;
constexpr std::size_t answer_room = 65536;  // no answer of a name server is longer
constexpr int socket_room = 1024 * 1024;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// The questions that wait for a thread. One mutex, as a question is rare beside a trap.
class Questions {
  public:
    void add(std::string question) {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(question));
        arrived_.notify_one();
    }
    std::string take() {
        std::unique_lock lock(mutex_);
        arrived_.wait(lock, [this] { return !waiting_.empty(); });
        std::string question = std::move(waiting_.front());
        waiting_.pop_front();
        return question;
    }

  private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::string> waiting_;
};

void answer(int socket, const HostAnswer& text) {
    while (send(socket, &text, sizeof text, MSG_NOSIGNAL) < 0 && errno == EINTR) {
    }
}

void answer_node(int socket, const std::string& node) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(node.c_str(), nullptr, &hints, &found) == 0) {
        const AddressList list(found, freeaddrinfo);
        int left = node_addresses_max;
        for (const addrinfo* at = found; at != nullptr && left > 0; at = at->ai_next, --left) {
            const auto& place = *reinterpret_cast<const sockaddr_in*>(at->ai_addr);
            HostAnswer told = ask_system(place.sin_addr.s_addr);
            told.last = false;
            answer(socket, told);
        }
    }
    answer(socket, {HostAnswer::Kind::no_more, true, 0, {}});
}

void answer_questions(int socket, Questions& questions) {
    for (;;) {
        const std::string question = questions.take();
        std::uint32_t address = 0;
        std::memcpy(&address, question.data(), sizeof address);
        if (question.size() == sizeof address) {
            answer(socket, ask_system(address));
        } else {
            answer_node(socket, question.substr(sizeof address));
        }
    }
}

[[noreturn]] void serve_questions(int socket) {
    Questions questions;
    for (int i = 0; i < threads; ++i) {
        std::thread(answer_questions, socket, std::ref(questions)).detach();
    }
    std::array<char, 512> message;
    for (;;) {
        const ssize_t size = recv(socket, message.data(), message.size(), 0);
        if (size >= static_cast<ssize_t>(sizeof(std::uint32_t))) {
            questions.add({message.data(), static_cast<std::size_t>(size)});
        } else if (size >= 0 || errno != EINTR) {
            _exit(0);  // the process that asks is gone
        }
    }
}

[[noreturn]] void be_resolver(int socket) {
    // Whoever stops the listener stops this process with it, but not before.
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) {
        std::signal(number, SIG_IGN);
    }
    prctl(PR_SET_NAME, "wqevents-names");
    try {
        serve_questions(socket);
    } catch (const std::exception&) {  // no memory, no threads: it is started again
        _exit(1);
    }
}

}  // namespace

bool is_host_name(const char* name) {
    constexpr std::string_view allowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    const std::string_view text(name);
    return !text.empty() && text.size() <= host_name_max &&
           text.find_first_not_of(allowed) == std::string_view::npos;
}

HostAnswer ask_system(std::uint32_t address) {
    HostAnswer told{HostAnswer::Kind::none, true, address, {}};
    std::vector<char> buffer(answer_room);
    hostent storage{};
    hostent* found = nullptr;
    int error = 0;
    gethostbyaddr_r(&address, sizeof address, AF_INET, &storage, buffer.data(), buffer.size(),
                    &found, &error);
    if (found == nullptr) {
        const bool final = error == HOST_NOT_FOUND || error == NO_DATA;
        told.kind = final ? HostAnswer::Kind::none : HostAnswer::Kind::unavailable;
    } else if (found->h_name != nullptr && is_host_name(found->h_name)) {
        told.kind = HostAnswer::Kind::found;
        std::string_view(found->h_name).copy(told.name.data(), host_name_max);
    }
    return told;
}

Resolver::Resolver() {
    start();
}

Resolver::~Resolver() {
    kill_child(process_);
}

void Resolver::start() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw system_failure("cannot ask for names", errno);
    }
    FileDescriptor own(ends[0]);
    const FileDescriptor other(ends[1]);
    for (const int fd : ends) {
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &socket_room, sizeof socket_room);
    }
    process_ = fork_child(other.get(), -1);
    if (process_ == 0) {
        be_resolver(first_child_fd);
    }
    if (process_ < 0) {
        throw system_failure("cannot start the process that asks for names", errno);
    }
    socket_ = std::move(own);
    waiting_ = 0;
}

void Resolver::restart() {
    end_child(std::exchange(process_, -1));
    start();
}

bool Resolver::send(const Question& question, std::size_t size) {
    if (waiting_ >= waiting_max ||
        ::send(socket_.get(), &question, size, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        return false;
    }
    heard_ = waiting_ == 0 ? Clock::now() : heard_;
    ++waiting_;
    return true;
}

bool Resolver::ask(std::uint32_t address) {
    return send({address, {}}, sizeof address);
}

bool Resolver::ask_node(const std::string& name) {
    Question question{0, {}};
    const std::size_t size = name.copy(question.node.data(), question.node.size());
    return send(question, sizeof question.address + size);
}

bool Resolver::take(const std::function<void(const HostAnswer&)>& on_answer) {
    HostAnswer told{};
    ssize_t size = 0;
    while ((size = recv(socket_.get(), &told, sizeof told, MSG_DONTWAIT)) == sizeof told) {
        heard_ = Clock::now();
        waiting_ -= told.last ? 1 : 0;
        on_answer(told);
    }
    return size < 0 && (errno == EAGAIN || errno == EINTR);
}

Resolver::Clock::time_point Resolver::overdue() const {
    return waiting_ == 0 ? Clock::time_point::max() : heard_ + silence_max;
}

}  // namespace wq::command
