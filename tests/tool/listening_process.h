/*
 * `wqevents listen` as a process, and peers that talk to it.
 */
#ifndef WQEVENTS_TESTS_TOOL_LISTENING_PROCESS_H
#define WQEVENTS_TESTS_TOOL_LISTENING_PROCESS_H

#include <gtest/gtest.h>
#include <sys/un.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/sockets.h"
#include "support/subprocess.h"

namespace wq::test {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

/* The command with the words behind its name. */
inline Words command_line(const Words& words) {
    Words all{WQEVENTS_COMMAND};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

/* Runs the command to its end. */
struct CommandRun {
    enum Line { of_the_command, as_it_is };

    explicit CommandRun(const Words& words, const SubprocessOptions& options = {},
                        Line line = of_the_command) {
        Subprocess process(line == as_it_is ? words : command_line(words), options);
        status = process.wait();
        out = process.out();
        err = process.err();
    }
    int status;
    std::string out, err;
};

/* What an error says after the name of the subcommand, whether its further lines are indented or
 * not. */
inline std::string without_command(const std::string& error) {
    const std::size_t begin = error.find(": ");
    EXPECT_TRUE(error.starts_with("wqevents ") && begin != std::string::npos) << error;
    std::string text = begin == std::string::npos ? error : error.substr(begin + 2);
    for (std::size_t at = 0; (at = text.find("\n\t", at)) != std::string::npos;) {
        text.erase(at + 1, 1);
    }
    return text;
}

class ListeningProcess : public Subprocess {
  public:
    explicit ListeningProcess(const Words& options, const SubprocessOptions& process = {})
        : ListeningProcess(options, process, command_line({"listen"})) {}

    /* `first` are the words before the options. */
    ListeningProcess(const Words& options, const SubprocessOptions& process, Words first)
        : Subprocess(joined(std::move(first), options), process) {
        const auto places = static_cast<std::size_t>(
            std::count_if(options.begin(), options.end(), [](const std::string& word) {
                return word == "--udp" || word == "--tcp" || word == "--raw-tcp" ||
                       word == "--socket";
            }));
        const bool ready = gather_until([&] { return listening().size() >= places; });
        EXPECT_TRUE(ready) << err();
    }

    /* What follows the n-th "listening on TRANSPORT ". */
    std::string address(const std::string& transport, std::size_t n = 0) const {
        for (const std::string& line : listening()) {
            if (line.starts_with(transport + " ") && n-- == 0) {
                return line.substr(transport.size() + 1);
            }
        }
        throw std::runtime_error("does not listen on " + transport + ": " + err());
    }

    std::uint16_t port(const std::string& transport, std::size_t n = 0) const {
        const std::string place = address(transport, n);
        return static_cast<std::uint16_t>(std::stoi(place.substr(place.rfind(':') + 1)));
    }

    std::size_t lines() const {
        return static_cast<std::size_t>(std::count(out().begin(), out().end(), '\n'));
    }
    bool wait_for_lines(std::size_t count) {
        const bool there = gather_until([&] { return lines() >= count; });
        EXPECT_TRUE(there) << lines() << " of " << count << " lines; " << err();
        return there;
    }

    /* Each line of the output as a JSON value. */
    std::vector<Json> objects() const {
        std::vector<Json> all;
        std::istringstream text(out());
        for (std::string line; std::getline(text, line);) {
            all.push_back(Json::parse(line));
        }
        return all;
    }

    /* Ends it with SIGTERM; its status. */
    int terminate() {
        signal(SIGTERM);
        return wait();
    }

  private:
    static Words joined(Words first, const Words& options) {
        first.insert(first.end(), options.begin(), options.end());
        return first;
    }

    std::vector<std::string> listening() const {
        const std::string start = "listening on ";
        std::vector<std::string> all;
        std::istringstream text(err().substr(0, err().rfind('\n') + 1));
        for (std::string line; std::getline(text, line);) {
            if (line.starts_with(start)) {
                all.push_back(line.substr(start.size()));
            }
        }
        return all;
    }
};

inline Fd connected_to(std::uint16_t port) {
    Fd sd(checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = loopback(port);
    checked(connect(sd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "connect");
    return sd;
}

inline Fd connected_to(const std::string& path) {
    Fd sd(checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    checked(connect(sd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "connect");
    return sd;
}

inline void send_datagram(const Fd& sd, std::uint16_t port, const Bytes& bytes) {
    const sockaddr_in address = loopback(port);
    checked(static_cast<int>(sendto(sd.get(), bytes.data(), bytes.size(), 0,
                                    reinterpret_cast<const sockaddr*>(&address), sizeof address)),
            "sendto");
}

/* Whether the other side closes the connection within the time. */
inline bool is_closed(const Fd& sd, int seconds = 10) {
    const timeval limit{seconds, 0};
    setsockopt(sd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    char byte = 0;
    const ssize_t got = recv(sd.get(), &byte, 1, 0);
    return got == 0 || (got < 0 && errno == ECONNRESET);
}

}  // namespace wq::test

#endif
