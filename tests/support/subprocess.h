/*
 * A program run beside the test: its two output streams are gathered as they come, and it never
 * outlives its object.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_SUBPROCESS_H
#define WQEVENTS_TESTS_SUPPORT_SUBPROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <map>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace wq::test {

struct SubprocessOptions {
    std::string input = {};                               // what it reads, at most a pipe's worth
    std::map<std::string, std::string> environment = {};  // on top of the test's own
    int output = -1;  // a descriptor for its standard output; -1: gathered
    int error = -1;   // likewise for its standard error stream
};

class Subprocess {
  public:
    using Seconds = std::chrono::duration<double>;

    explicit Subprocess(std::vector<std::string> words, const SubprocessOptions& options = {}) {
        const std::array<int, 2> input = make_pipe();
        const std::array<int, 2> output = make_pipe();
        const std::array<int, 2> error = make_pipe();
        write_input(input[1], options.input);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, options.output < 0 ? output[1] : options.output,
                                         STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, options.error < 0 ? error[1] : options.error,
                                         STDERR_FILENO);
        const int failure = spawn(words, options, actions);
        posix_spawn_file_actions_destroy(&actions);
        close(input[0]);
        close(output[1]);
        close(error[1]);
        streams_[0].fd = output[0];
        streams_[1].fd = error[0];
        if (failure != 0) {
            close_streams();
            throw std::system_error(failure, std::generic_category(), words.at(0));
        }
    }
    ~Subprocess() {
        if (pid_ > 0 && !ended_) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close_streams();
    }
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    pid_t pid() const { return pid_; }
    const std::string& out() const { return streams_[0].text; }
    const std::string& err() const { return streams_[1].text; }
    void signal(int number) const { ::kill(pid_, number); }

    /* Gathers until `done()` holds; false where it does not in time or both streams have ended. */
    template <typename Condition>
    bool gather_until(Condition done, Seconds limit = Seconds(20)) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            const Seconds left = end - std::chrono::steady_clock::now();
            if (left.count() <= 0 || !gather(static_cast<int>(left.count() * 1000) + 1)) {
                return done();
            }
        }
        return true;
    }
    bool wait_for_out(const std::string& text, Seconds limit = Seconds(20)) {
        return gather_until([&] { return out().find(text) != std::string::npos; }, limit);
    }
    bool wait_for_err(const std::string& text, Seconds limit = Seconds(20)) {
        return gather_until([&] { return err().find(text) != std::string::npos; }, limit);
    }

    /* Gathers both streams to their end; the exit status, or 128 and more for a signal. */
    int wait(Seconds limit = Seconds(30)) {
        if (!gather_until([&] { return streams_[0].fd < 0 && streams_[1].fd < 0; }, limit)) {
            throw std::runtime_error("did not end in time");
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        ended_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    struct Stream {
        int fd = -1;
        std::string text = {};
    };

    static std::array<int, 2> make_pipe() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        return ends;
    }

    static void write_input(int fd, const std::string& input) {
        fcntl(fd, F_SETFL, O_NONBLOCK);
        const bool written = write(fd, input.data(), input.size()) >= 0;
        close(fd);
        if (!written) {
            throw std::runtime_error("the input is too long");
        }
    }

    static std::vector<std::string> environment(const SubprocessOptions& options) {
        std::vector<std::string> all;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string text = *entry;
            if (options.environment.count(text.substr(0, text.find('='))) == 0) {
                all.push_back(text);
            }
        }
        for (const auto& [name, value] : options.environment) {
            all.push_back(name + "=" + value);
        }
        return all;
    }

    static std::vector<char*> pointers(std::vector<std::string>& texts) {
        std::vector<char*> all;
        for (std::string& text : texts) {
            all.push_back(text.data());
        }
        all.push_back(nullptr);
        return all;
    }

    /* The child starts with the default disposition of SIGPIPE and nothing blocked. */
    int spawn(std::vector<std::string>& words, const SubprocessOptions& options,
              const posix_spawn_file_actions_t& actions) {
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        sigset_t set;
        sigemptyset(&set);
        posix_spawnattr_setsigmask(&attributes, &set);
        sigaddset(&set, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &set);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        std::vector<std::string> variables = environment(options);
        const int failure = posix_spawnp(&pid_, words.at(0).c_str(), &actions, &attributes,
                                         pointers(words).data(), pointers(variables).data());
        posix_spawnattr_destroy(&attributes);
        if (failure != 0) {
            pid_ = -1;
        }
        return failure;
    }

    /* Reads what one wait brings; false once both streams have ended. */
    bool gather(int milliseconds) {
        std::array<pollfd, 2> waiting{};
        for (std::size_t i = 0; i < 2; ++i) {
            waiting[i] = {streams_[i].fd, POLLIN, 0};
        }
        if (streams_[0].fd < 0 && streams_[1].fd < 0) {
            return false;
        }
        poll(waiting.data(), waiting.size(), milliseconds);
        for (std::size_t i = 0; i < 2; ++i) {
            if (waiting[i].revents != 0) {
                read_some(streams_[i]);
            }
        }
        return true;
    }

    static void read_some(Stream& stream) {
        std::array<char, 65536> bytes;
        const ssize_t got = read(stream.fd, bytes.data(), bytes.size());
        if (got > 0) {
            stream.text.append(bytes.data(), static_cast<std::size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            close(stream.fd);
            stream.fd = -1;
        }
    }

    void close_streams() {
        for (Stream& stream : streams_) {
            if (stream.fd >= 0) {
                close(stream.fd);
            }
        }
    }

    pid_t pid_ = -1;
    bool ended_ = false;
    std::array<Stream, 2> streams_;
};

}  // namespace wq::test

#endif
