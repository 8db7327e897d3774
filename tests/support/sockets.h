/*
 * Sockets for tests: connected pairs, listeners, and whole transfers. What cannot fail in a test is
 * thrown as std::system_error.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_SOCKETS_H
#define WQEVENTS_TESTS_SUPPORT_SOCKETS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <span>
#include <string>
#include <system_error>
#include <utility>

#include "EMS/events/internal/fd.h"
#include "support/hex.h"

namespace wq::test {

inline int checked(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

struct SocketPair {
    Fd ours;
    Fd peer;
};

inline SocketPair local_pair(int type = SOCK_STREAM) {
    std::array<int, 2> ends{};
    checked(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
    return {Fd(ends[0]), Fd(ends[1])};
}

inline sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <class Address>
Fd bound(int family, int type, const Address& address) {
    Fd sd(checked(socket(family, type | SOCK_CLOEXEC, 0), "socket"));
    checked(bind(sd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
    return sd;
}

/* On the loopback address; port 0 is any free one. */
inline Fd udp_socket(uint16_t port = 0) {
    return bound(AF_INET, SOCK_DGRAM, loopback(port));
}

inline Fd tcp_listener(uint16_t port = 0, int backlog = 8) {
    Fd sd = bound(AF_INET, SOCK_STREAM, loopback(port));
    checked(listen(sd.get(), backlog), "listen");
    return sd;
}

inline Fd local_listener(const std::string& path, int backlog = 8) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path));
    Fd sd = bound(AF_UNIX, SOCK_STREAM, address);
    checked(listen(sd.get(), backlog), "listen");
    return sd;
}

inline uint16_t port_of(const Fd& sd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    checked(getsockname(sd.get(), reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
    return ntohs(address.sin_port);
}

inline Fd accepted(const Fd& listener) {
    return Fd(checked(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC), "accept"));
}

inline SocketPair tcp_pair() {
    const Fd listener = tcp_listener();
    Fd ours(checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = loopback(port_of(listener));
    checked(connect(ours.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "connect");
    return {std::move(ours), accepted(listener)};
}

inline void set_nonblocking(const Fd& sd) {
    checked(fcntl(sd.get(), F_SETFL, O_NONBLOCK), "fcntl");
}

inline void write_all(const Fd& sd, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t n = write(sd.get(), bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        checked(static_cast<int>(n), "write");
        bytes = bytes.subspan(static_cast<size_t>(n));
    }
}

/* What has arrived: reads up to `most` bytes without waiting. */
inline Bytes read_available(const Fd& sd, size_t most = 1 << 20) {
    Bytes bytes(most);
    size_t have = 0;
    while (have < most) {
        const ssize_t n =
            recvfrom(sd.get(), bytes.data() + have, most - have, MSG_DONTWAIT, nullptr, nullptr);
        if (n <= 0) {
            break;
        }
        have += static_cast<size_t>(n);
    }
    bytes.resize(have);
    return bytes;
}

/* Everything up to the peer's end of the connection. */
inline Bytes read_to_end(const Fd& sd) {
    Bytes bytes;
    std::array<uint8_t, 4096> block{};
    for (;;) {
        const ssize_t n = read(sd.get(), block.data(), block.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (checked(static_cast<int>(n), "read") == 0) {
            return bytes;
        }
        bytes.insert(bytes.end(), block.begin(), block.begin() + n);
    }
}

/* Descriptors this process has open, the one that counts them not included. */
inline long open_descriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries)) - 1;
}

}  // namespace wq::test

#endif
