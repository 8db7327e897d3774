// Opening and closing the channel.
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include <wqevents/channel.h>
#include <wqplatform.h>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/frame.h"
#include "EMS/events/nl_send_event.h"

namespace wq {
namespace {

constexpr int last_application = 27;
constexpr int remote_daemon = 24;  // a trap daemon that relays to this one
constexpr int silent_application = 4;

constexpr int wakeup_event = 59179056;
constexpr int disconnect_event = 59179057;

constexpr int socket_buffer_size = 65536;

// Waits for a connection that goes on being made after a signal ended the call.
bool finish_connect(int sd) {
    pollfd waited{sd, POLLOUT, 0};
    while (poll(&waited, 1, -1) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(sd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        return false;
    }
    errno = error;
    return error == 0;
}

// A signal does not make a connection fail. An interrupted local one has not begun; an interrupted
// TCP one is being made meanwhile, and asking for it again would be an error.
bool connect_fully(int sd, const sockaddr* address, socklen_t length) {
    while (connect(sd, address, length) != 0) {
        if (errno != EINTR) {
            return false;
        }
        if (address->sa_family == AF_INET) {
            return finish_connect(sd);
        }
    }
    return true;
}

template <class Address>
Fd connect_stream(int family, const Address& address) {
    Fd sd(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!sd ||
        !connect_fully(sd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address)) {
        return Fd();
    }
    return sd;
}

std::optional<in_port_t> tcp_service_port(const char* name) {
    const servent* const service = getservbyname(name, "tcp");
    if (service == nullptr) {
        errno = ENOENT;
        return std::nullopt;
    }
    return static_cast<in_port_t>(service->s_port);
}

// What keeps a host from being looked up is a missing name or a name that is unknown.
bool find_host(const char* name, in_addr_t& address) {
    if (find_host_address(name, address)) {
        return true;
    }
    errno = name == nullptr ? EINVAL : ENOENT;
    return false;
}

Fd open_datagram(const char* name, in_addr_t& manager) {
    if (!find_host(name, manager)) {
        return Fd();
    }
    Fd sd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in any = inet_address(htonl(INADDR_ANY), 0);
    if (!sd || bind(sd.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        return Fd();
    }
    return sd;
}

Fd open_local(const char* path) {
    if (path == nullptr) {
        errno = EINVAL;
        return Fd();
    }
    struct stat found {};
    if (stat(path, &found) != 0) {
        return Fd();
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(path);
    if (length > sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return Fd();
    }
    std::memcpy(address.sun_path, path, length);
    return connect_stream(AF_UNIX, address);
}

Fd open_tcp(const char* name) {
    in_addr_t host = 0;
    if (!find_host(name, host)) {
        return Fd();
    }
    const std::optional<in_port_t> port = tcp_service_port("kmvortd-client");
    return port ? connect_stream(AF_INET, inet_address(host, *port)) : Fd();
}

// The port that a destination names behind its plus sign. Without a slash there is none.
std::optional<in_port_t> named_port(const char* after_plus) {
    const char* const slash = strchr_new(after_plus, '/');
    if (slash == nullptr) {
        return std::nullopt;
    }
    if (std::isdigit(static_cast<unsigned char>(slash[1])) == 0) {
        return tcp_service_port(slash + 1);
    }
    return htons(static_cast<uint16_t>(std::strtol(slash + 1, nullptr, 10)));
}

Fd open_raw_tcp(char* name) {
    if (name == nullptr) {
        errno = EINVAL;
        return Fd();
    }
    std::optional<in_port_t> port;
    char* const plus = strchr_new(name, '+');
    if (plus != nullptr) {
        *plus = '\0';
        port = named_port(plus + 1);
    }
    in_addr_t host = 0;
    if (!find_host(name, host)) {
        return Fd();  // the name stays split: callers show what was looked up
    }
    if (plus != nullptr) {
        *plus = '+';
    }
    if (!port) {
        port = tcp_service_port("kmvortd-trap");
    }
    return connect_stream(AF_INET, inet_address(host, port.value_or(htons(trap_port))));
}

Fd open_transport(event_infoEMS& ei, char* name, int trans) {
    switch (trans) {
        case transport_datagram:
            return open_datagram(name, ei.manager);
        case transport_local:
            return open_local(name);
        case transport_tcp:
            return open_tcp(name);
        case transport_raw_tcp:
            return open_raw_tcp(name);
        default:
            errno = EINVAL;
            return Fd();
    }
}

struct Freer {
    void operator()(char* text) const { std::free(text); }
};

// The inner call has done all there is to do.
int open_automatic(event_infoEMS& ei, int source) {
    if (_KMisClient() != 0) {
        const std::unique_ptr<char, Freer> server(_WQDefaultServerName());
        const int sd = open_event(&ei, source, server.get(), transport_tcp);
        if (server == nullptr) {
            errno = ENOENT;  // the caller has named no host
        }
        return sd;
    }
    char path[] = "/usr/WQ/sockets/vortd.socket";
    return open_event(&ei, source, path, transport_local);
}

// Tells the daemon of the application's coming or going. Whether that arrives is nobody's concern.
void announce(event_infoEMS& ei, int event, const char* what) {
    std::array<char, 128> line;
    std::snprintf(line.data(), line.size(), "%s %s vortd.",
                  getApplName(static_cast<uint16_t>(ei.source)), what);
    send_event(&ei, event, nullptr, line.data(), nullptr, nullptr);
}

// A relaying daemon announces its coming only where the header tells the receiver who it is.
bool announces_wakeup(const event_infoEMS& ei) {
    return ei.source != silent_application &&
           (ei.source != remote_daemon || ei.trans == transport_tcp);
}

// The socket of a channel that is being opened: a thread that is cancelled during the announcement
// leaves neither the socket nor its number.
class OpeningSocket {
  public:
    OpeningSocket(event_infoEMS& ei, Fd sd) : ei_(ei), sd_(std::move(sd)) { ei_.sd = sd_.get(); }
    ~OpeningSocket() {
        if (sd_) {
            ei_.sd = -1;
        }
    }
    OpeningSocket(const OpeningSocket&) = delete;
    OpeningSocket& operator=(const OpeningSocket&) = delete;

    int hand_over() { return sd_.release(); }

  private:
    event_infoEMS& ei_;
    Fd sd_;
};

int open_channel(event_infoEMS& ei, int source, char* name, int trans) {
    Fd sd = open_transport(ei, name, trans);
    if (!sd) {
        return -1;
    }
    set_sock_buf_size_if_larger(sd.get(), SO_SNDBUF, socket_buffer_size);
    set_sock_buf_size_if_larger(sd.get(), SO_RCVBUF, socket_buffer_size);
    sockaddr_in own{};
    get_myaddress(&own);
    OpeningSocket socket(ei, std::move(sd));
    ei.agent = own.sin_addr.s_addr;
    ei.source = static_cast<uint32_t>(source);
    ei.trans = static_cast<uint16_t>(trans);
    WQ_PROGRESS("send the application wakeup event open_event().\n");
    if (announces_wakeup(ei)) {
        announce(ei, wakeup_event, "connected to");
    }
    WQ_PROGRESS("end of open_event().\n");
    return socket.hand_over();
}

bool is_tcp(int sd) {
    int protocol = 0;
    socklen_t size = sizeof protocol;
    return getsockopt(sd, SOL_SOCKET, SO_PROTOCOL, &protocol, &size) == 0 &&
           protocol == IPPROTO_TCP;
}

// A close with unread input makes TCP throw away what the peer's system does not have yet, so that
// is waited for, for a while and as long as there is a peer.
void await_delivery(int sd) {
    constexpr std::chrono::seconds longest(1);
    constexpr int pause = 5;  // milliseconds
    const auto deadline = std::chrono::steady_clock::now() + longest;
    pollfd peer{sd, 0, 0};
    int unsent = 0;
    while (peer.revents == 0 && ioctl(sd, SIOCOUTQ, &unsent) == 0 && unsent > 0 &&
           std::chrono::steady_clock::now() < deadline) {
        poll(&peer, 1, pause);
    }
}

// The socket is closed also if the thread is cancelled meanwhile.
int close_channel(event_infoEMS& ei) {
    Fd sd(ei.sd);
    WQ_PROGRESS("send application disconnect event from close_event().\n");
    if (ei.source == remote_daemon) {
        ei.trans = transport_tcp;  // its going is always announced, and with a header
    }
    if (ei.source != silent_application) {
        announce(ei, disconnect_event, "disconnecting from");
    }
    WQ_PROGRESS(" end of close_event().\n");
    if (ei.trans == transport_tcp && is_tcp(sd.get())) {
        await_delivery(sd.get());
    }
    const CancelHeld held;
    return ::close(sd.release());
}

struct ApplicationName {
    uint16_t number;
    const char* name;
};

constexpr const char* other_application = "talvex-related Application";

constexpr std::array application_names{
    ApplicationName{2, "talvex"},           ApplicationName{3, "wqtopmd"},
    ApplicationName{6, "snmpGlean"},        ApplicationName{8, "OSI Application"},
    ApplicationName{9, "kmevents"},         ApplicationName{10, "zelloadmib"},
    ApplicationName{11, "zeltrap"},         ApplicationName{12, "zelcollect"},
    ApplicationName{13, "Lindmap"},         ApplicationName{15, "Vendor Application"},
    ApplicationName{16, other_application}, ApplicationName{17, "quorind"},
    ApplicationName{18, "ferlod"},          ApplicationName{21, "wqactiond"},
    ApplicationName{23, "brisel"},          ApplicationName{remote_daemon, "Remote vortd"},
    ApplicationName{26, "kmcold"},          ApplicationName{27, "dunmark"},
};

}  // namespace
}  // namespace wq

int open_event(event_infoEMS* ei, int source, char* name, int trans) {
    WQ_PROGRESS("Beginning of open_event() call.\n");
    if (ei == nullptr) {
        errno = EINVAL;
        return -1;
    }
    ei->sd = -1;
    if (source < 1 || source > wq::last_application) {
        errno = EINVAL;
        return -1;
    }
    return trans == wq::transport_automatic ? wq::open_automatic(*ei, source)
                                            : wq::open_channel(*ei, source, name, trans);
}

int close_event(event_infoEMS* ei) {
    if (ei == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return wq::close_channel(*ei);
}

const char* getApplName(uint16_t source) WQEVENTS_NOEXCEPT {
    for (const wq::ApplicationName& application : wq::application_names) {
        if (application.number == source) {
            return application.name;
        }
    }
    return wq::other_application;
}

int set_sock_buf_size_if_larger(int sd, int option, int size) WQEVENTS_NOEXCEPT {
    int current = 0;
    socklen_t length = sizeof current;
    if (getsockopt(sd, SOL_SOCKET, option, &current, &length) == 0 && current < size) {
        setsockopt(sd, SOL_SOCKET, option, &size, sizeof size);
    }
    return 0;
}
