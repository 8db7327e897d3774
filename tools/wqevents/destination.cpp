#include "destination.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "command.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr int mode_udp = 1;
constexpr int mode_local = 2;
constexpr int mode_tcp = 3;
constexpr int mode_automatic = 5;
constexpr int mode_raw = 6;

struct Scheme {
    std::string_view prefix;
    int mode;
};

constexpr std::array schemes = {
    Scheme{"udp:", mode_udp},
    Scheme{"local:", mode_local},
    Scheme{"tcp:", mode_tcp},
    Scheme{"raw:", mode_raw},
};

/* Applications that never tell of their coming, and one that does so to a daemon only. */
constexpr int silent_source = 4;
constexpr int relay_source = 24;

constexpr int wake_up = 59179056;

bool has_port(int mode) {
    return mode == mode_udp || mode == mode_tcp || mode == mode_raw;
}

/* The number of a port, or of a service of the protocol; 0 if there is none. */
int port_number(const std::string& port, const char* protocol) {
    if (port.find_first_not_of("0123456789") != std::string::npos) {
        const servent* const service = getservbyname(port.c_str(), protocol);
        return service == nullptr ? 0 : ntohs(static_cast<std::uint16_t>(service->s_port));
    }
    const int number = port.size() <= 5 ? std::stoi("0" + port) : 0;
    return number <= 65535 ? number : 0;
}

/* "HOST:PORT" as the channel spells it, "HOST+/PORT"; "HOST" stays. */
std::string channel_name(const Scheme& scheme, std::string_view place) {
    const std::size_t colon = place.find(':');
    std::string host(place.substr(0, colon));
    if (colon == std::string_view::npos) {
        return host;
    }
    const bool udp = scheme.mode == mode_udp;
    const int port = port_number(std::string(place.substr(colon + 1)), udp ? "udp" : "tcp");
    if (host.empty() || port == 0) {
        const std::string form(scheme.prefix);
        throw UsageError("destination " + quoted(form + std::string(place)) + " must be " + form +
                         "HOST or " + form +
                         "HOST:PORT, the port a number from 1 to 65535 or the "
                         "name of a " +
                         (udp ? "UDP" : "TCP") + " service");
    }
    return host + "+/" + std::to_string(port);
}

std::string reason_of(const Destination& destination, int error) {
    if (destination.mode == mode_tcp && !destination.direct &&
        getservbyname("kmvortd-client", "tcp") == nullptr) {
        return "the TCP service kmvortd-client is not known; /etc/services must name its port";
    }
    if (error == ENOENT && has_port(destination.mode)) {
        return "the host is not known; give a name or an IPv4 address";
    }
    return std::strerror(error);
}

}  // namespace

const char* const destination_help =
    "Destinations:\n"
    "  udp:HOST[:PORT]  datagrams to the host's port, by default 162\n"
    "  local:PATH       a local stream socket\n"
    "  tcp:HOST[:PORT]  TCP with transmission headers, by default to the service kmvortd-client\n"
    "  raw:HOST[:PORT]  TCP to the host's trap port, by default kmvortd-trap or 162\n"
    "  auto             the daemon: of the server that this host is a client of, else of this host";

Destination parse_destination(std::string_view text) {
    if (text == "auto") {
        return {std::string(text), "", mode_automatic, false};
    }
    for (const Scheme& scheme : schemes) {
        const std::string_view place = text.substr(std::min(scheme.prefix.size(), text.size()));
        if (text.starts_with(scheme.prefix) && !place.empty()) {
            const bool with_port =
                has_port(scheme.mode) && place.find(':') != std::string_view::npos;
            return {std::string(text),
                    has_port(scheme.mode) ? channel_name(scheme, place) : std::string(place),
                    scheme.mode, with_port && scheme.mode != mode_raw};
        }
    }
    throw UsageError("destination " + quoted(text) +
                     " is none of udp:HOST[:PORT], local:PATH, tcp:HOST[:PORT], raw:HOST[:PORT], "
                     "auto");
}

Channel::Channel(const Destination& destination, int source) : text_(destination.text) {
    errno = 0;
    if (destination.direct) {
        open_directly(destination, source);
    } else {
        open(destination, source);
    }
}

void Channel::open(const Destination& destination, int source) {
    std::string name = destination.name;
    if (open_event(&info_, source, name.data(), destination.mode) < 0) {
        throw Failure("cannot open a channel to " + shown(text_) + ": " +
                      reason_of(destination, errno));
    }
}

/*
 * The library opens the socket as a silent application's; only then the channel gets its mode, and
 * tells of the application. Datagrams go by a connected socket without a header, as raw streams do.
 */
void Channel::open_directly(const Destination& destination, int source) {
    const bool udp = destination.mode == mode_udp;
    std::string name = destination.name;
    const std::size_t plus = name.find('+');
    const int port = std::stoi(name.substr(plus + 2));
    if (udp) {
        name.resize(plus);
    }
    open({destination.text, name, udp ? mode_udp : mode_raw, true}, silent_source);
    if (udp) {
        connect_datagrams(port);
    }
    info_.source = static_cast<std::uint32_t>(source);
    datagrams_ = udp;
    info_.trans = static_cast<std::uint16_t>(udp ? mode_raw : mode_tcp);
    if (source != silent_source && (source != relay_source || !udp)) {
        const std::string text =
            std::string(getApplName(static_cast<std::uint16_t>(source))) + " connected to vortd.";
        send_event(&info_, wake_up, nullptr, text.c_str(), nullptr, nullptr);
    }
}

void Channel::connect_datagrams(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = info_.manager;
    address.sin_port = htons(static_cast<in_port_t>(port));
    if (connect(info_.sd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close_event(&info_);
        throw system_failure("cannot open a channel to " + text_, error);
    }
}

Channel::~Channel() {
    // A relay always tells of its going, behind a header, which no datagram has.
    if (datagrams_ && info_.source == relay_source) {
        close(info_.sd);
    } else {
        close_event(&info_);
    }
}

void Channel::check_sent(int result) const {
    if (result != 0) {
        throw system_failure("cannot send to " + text_, errno);
    }
}

std::uint32_t Channel::own_address() const {
    return ntohl(info_.agent);
}

}  // namespace wq::command
