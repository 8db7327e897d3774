#include "destination.h"

#include <netdb.h>

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

bool is_tcp_port(const std::string& port) {
    if (port.find_first_not_of("0123456789") != std::string::npos) {
        return getservbyname(port.c_str(), "tcp") != nullptr;
    }
    return port.size() <= 5 && std::stoi("0" + port) >= 1 && std::stoi("0" + port) <= 65535;
}

/* "HOST:PORT" as the channel spells it, "HOST+/PORT". */
std::string raw_name(std::string_view place) {
    const std::size_t colon = place.find(':');
    std::string host(place.substr(0, colon));
    if (colon == std::string_view::npos) {
        return host;
    }
    const std::string port(place.substr(colon + 1));
    if (host.empty() || !is_tcp_port(port)) {
        throw UsageError("destination " + quoted("raw:" + std::string(place)) +
                         " must be raw:HOST or raw:HOST:PORT, the port a number from 1 to 65535 or "
                         "the name of a TCP service");
    }
    return host + "+/" + port;
}

std::string reason_of(const Destination& destination, int error) {
    if (destination.mode == mode_tcp && getservbyname("kmvortd-client", "tcp") == nullptr) {
        return "the TCP service kmvortd-client is not known; /etc/services must name its port";
    }
    if (error == 0) {
        return "the host is not known; give a name or an IPv4 address";
    }
    return std::strerror(error);
}

}  // namespace

const char* const destination_help =
    "Destinations:\n"
    "  udp:HOST         datagrams to port 162 of the host\n"
    "  local:PATH       a local stream socket\n"
    "  tcp:HOST         TCP to the service kmvortd-client of the host\n"
    "  raw:HOST[:PORT]  TCP to the host's trap port, by default kmvortd-trap or 162\n"
    "  auto             the daemon: of the server that this host is a client of, else of this host";

Destination parse_destination(std::string_view text) {
    if (text == "auto") {
        return {std::string(text), "", mode_automatic};
    }
    for (const Scheme& scheme : schemes) {
        const std::string_view place = text.substr(std::min(scheme.prefix.size(), text.size()));
        if (text.starts_with(scheme.prefix) && !place.empty()) {
            const bool raw = scheme.mode == mode_raw;
            return {std::string(text), raw ? raw_name(place) : std::string(place), scheme.mode};
        }
    }
    throw UsageError("destination " + quoted(text) +
                     " is none of udp:HOST, local:PATH, tcp:HOST, raw:HOST[:PORT], auto");
}

Channel::Channel(const Destination& destination, int source) : text_(destination.text) {
    std::string name = destination.name;
    errno = 0;
    if (open_event(&info_, source, name.data(), destination.mode) < 0) {
        throw Failure("cannot open a channel to " + shown(text_) + ": " +
                      reason_of(destination, errno));
    }
}

Channel::~Channel() {
    close_event(&info_);
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
