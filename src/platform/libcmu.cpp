#include <wqplatform.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <span>
#include <string_view>

#include <wqevents/client.h>

#include "platform/weak.h"

namespace wq {
namespace {

constexpr uint16_t snmp_port = 161; /* RFC 1157 4 */
constexpr int undecodable = -2;
constexpr int unencodable = -2;

/* What UDP can carry: an agent may answer with more than a trap holds. */
constexpr std::size_t datagram_max = 65536;

std::optional<uint16_t> port_number(const char* text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    const std::string_view digits(text);
    const char* end = digits.data() + digits.size();
    uint16_t port = 0;
    const auto [stop, error] = std::from_chars(digits.data(), end, port);
    if (error != std::errc{} || stop != end || port == 0) {
        return std::nullopt;
    }
    return port;
}

ssize_t send_datagram(int sd, uint32_t addr, std::span<const uint8_t> message) {
    if (addr == 0) {
        return send(sd, message.data(), message.size(), MSG_NOSIGNAL);
    }
    sockaddr_in agent{};
    agent.sin_family = AF_INET;
    agent.sin_port = getSnmpPort();
    agent.sin_addr.s_addr = addr;
    return sendto(sd, message.data(), message.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&agent), sizeof agent);
}

ssize_t receive_datagram(int sd, sockaddr_in& sender, std::span<uint8_t> room) {
    socklen_t length = sizeof sender;
    ssize_t received = 0;
    do {
        received = recvfrom(sd, room.data(), room.size(), 0, reinterpret_cast<sockaddr*>(&sender),
                            &length);
    } while (received == -1 && errno == EINTR);
    return received;
}

}  // namespace
}  // namespace wq

WQ_STAND_IN int init_async_snmp(void) {
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

WQ_STAND_IN uint16_t getSnmpPort(void) {
    return htons(wq::port_number(std::getenv("WQSNMPPORT")).value_or(wq::snmp_port));
}

WQ_STAND_IN int send_snmp(int sd, uint32_t addr, snmp_info* request, SnmpVarBindEMS* vars) {
    std::array<uint8_t, EMS_TRAP_MAX> message;
    int length = static_cast<int>(message.size());
    if (snmpBuild09(message.data(), &length, request, vars) != 0) {
        return wq::unencodable;
    }
    const auto encoded = std::span(message).first(static_cast<std::size_t>(length));
    return wq::send_datagram(sd, addr, encoded) < 0 ? -1 : length;
}

WQ_STAND_IN int recv_snmp(int sd, uint32_t* from, snmp_info* response, SnmpVarBindEMS* vars) {
    std::array<uint8_t, wq::datagram_max> message;
    sockaddr_in sender{};
    const ssize_t received = wq::receive_datagram(sd, sender, message);
    if (received < 0) {
        return -1;
    }
    if (from != nullptr) {
        *from = sender.sin_addr.s_addr;
    }
    const int length = static_cast<int>(received);
    return snmp_parse(message.data(), length, response, vars) == 0 ? length : wq::undecodable;
}

WQ_STAND_IN void print_rawobjid(const uint32_t* oid, int len) {
    for (int i = 0; oid != nullptr && i < len; ++i) {
        std::printf("%s%" PRIu32, i > 0 ? "." : "", oid[i]);
    }
}
