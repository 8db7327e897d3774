#include "endpoint.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <wqevents.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "command.h"
#include "shown_text.h"

namespace wq::command {
namespace {

/* A storm fills the system's default before the loop comes round. */
constexpr int receive_buffer = 4 * 1024 * 1024;
constexpr int backlog = 4096;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

in_addr resolve(const std::string& host) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (error != 0) {
        throw Failure("host " + quoted(host) + " has no IPv4 address: " + gai_strerror(error));
    }
    const AddressList list(found, freeaddrinfo);
    return reinterpret_cast<const sockaddr_in*>(list->ai_addr)->sin_addr;
}

sockaddr_in parse_place(const std::string& option, const std::string& text) {
    const std::size_t colon = text.rfind(':');
    const std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
    const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
    if (port.empty() || port.size() > 5 ||
        port.find_first_not_of("0123456789") != std::string::npos || std::stoi(port) > 65535 ||
        colon == 0) {
        throw UsageError(option + " " + quoted(text) +
                         " is not [HOST:]PORT with a port from 0 to 65535, as 127.0.0.1:16200");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(std::stoi(port)));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (!host.empty()) {
        address.sin_addr = resolve(host);
    }
    return address;
}

FileDescriptor open_socket(int family, int type) {
    FileDescriptor fd(socket(family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        throw system_failure("cannot create a socket", errno);
    }
    return fd;
}

void bind_inet(int fd, const sockaddr_in& address, const std::string& what) {
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw system_failure("cannot listen on " + what, errno);
    }
}

void start_listening(int fd, const std::string& what) {
    if (listen(fd, backlog) != 0) {
        throw system_failure("cannot listen on " + what, errno);
    }
}

std::string bound_address(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return address_name(address);
}

sockaddr_un local_address(const std::string& path) {
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        throw UsageError("--socket " + quoted(path) + " must be a path of 1 to " +
                         std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    return address;
}

/* Whether `path` is a socket that no process listens at any more. */
bool is_stale(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return false;
    }
    const FileDescriptor probe = open_socket(AF_UNIX, SOCK_STREAM);
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
           errno == ECONNREFUSED;
}

Failure somebody_listens(const std::string& path) {
    return Failure("cannot listen on socket " + shown(path) +
                   ": somebody listens there, or it is not a socket; give another path");
}

/* Whether the file that was locked is still the one of that name; who had it may have removed it.
 */
bool is_current(int fd, const std::string& name) {
    struct stat locked {
    }, named{};
    return fstat(fd, &locked) == 0 && lstat(name.c_str(), &named) == 0 &&
           locked.st_dev == named.st_dev && locked.st_ino == named.st_ino;
}

std::string lock_name(const std::string& path) {
    return path + ".lock";
}

Failure lock_failure(const std::string& path, const char* what) {
    const int error = errno;
    return system_failure(std::string("cannot listen on socket ")
                              .append(path)
                              .append(": cannot ")
                              .append(what)
                              .append(" ")
                              .append(lock_name(path)),
                          error);
}

/* The lock of a path; the first that asks gets it and keeps it for life. */
FileDescriptor lock_path(const std::string& path) {
    const std::string name = lock_name(path);
    for (;;) {
        FileDescriptor fd(open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (fd.get() < 0) {
            throw lock_failure(path, "open");
        }
        if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
            throw errno == EWOULDBLOCK ? somebody_listens(path) : lock_failure(path, "lock");
        }
        if (is_current(fd.get(), name)) {
            return fd;
        }
    }
}

int bind_local(int fd, const sockaddr_un& address) {
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
}

}  // namespace

std::string address_name(const sockaddr_in& address) {
    char host[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(address.sin_port));
}

LocalSocketFile::LocalSocketFile(const std::string& path) : path_(path), lock_(lock_path(path)) {}

void LocalSocketFile::adopt() {
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0) {
        adopted_ = true;
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
}

LocalSocketFile::LocalSocketFile(LocalSocketFile&& other) noexcept
    : path_(std::move(other.path_)),
      lock_(std::move(other.lock_)),
      adopted_(std::exchange(other.adopted_, false)),
      device_(other.device_),
      inode_(other.inode_) {}

LocalSocketFile::~LocalSocketFile() {
    struct stat status {};
    if (adopted_ && lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ &&
        status.st_ino == inode_) {
        unlink(path_.c_str());
    }
    if (lock_.get() >= 0) {
        unlink(lock_name(path_).c_str());
    }
}

Endpoint open_udp(const std::string& option, const std::string& text) {
    const sockaddr_in address = parse_place(option, text);
    FileDescriptor fd = open_socket(AF_INET, SOCK_DGRAM);
    set_sock_buf_size_if_larger(fd.get(), SO_RCVBUF, receive_buffer);
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    bind_inet(fd.get(), address, "udp " + text);
    std::string name = bound_address(fd.get());
    return {std::move(fd), std::move(name)};
}

Endpoint open_tcp(const std::string& option, const std::string& text) {
    const sockaddr_in address = parse_place(option, text);
    FileDescriptor fd = open_socket(AF_INET, SOCK_STREAM);
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    bind_inet(fd.get(), address, "tcp " + text);
    start_listening(fd.get(), "tcp " + text);
    std::string name = bound_address(fd.get());
    return {std::move(fd), std::move(name)};
}

/* Under the lock nobody else finds a socket stale that only does not listen yet. */
LocalEndpoint open_local(const std::string& path) {
    const sockaddr_un address = local_address(path);
    LocalSocketFile file(path);
    FileDescriptor fd = open_socket(AF_UNIX, SOCK_STREAM);
    int error = bind_local(fd.get(), address);
    if (error == EADDRINUSE && is_stale(path, address)) {
        unlink(path.c_str());
        error = bind_local(fd.get(), address);
    }
    if (error == EADDRINUSE) {
        throw somebody_listens(path);
    }
    if (error != 0) {
        throw system_failure("cannot listen on socket " + path, error);
    }
    file.adopt();
    start_listening(fd.get(), "socket " + path);
    return {std::move(file), {std::move(fd), path}};
}

}  // namespace wq::command
