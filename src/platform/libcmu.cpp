#include <wqplatform.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "platform/weak.h"

namespace wq {
namespace {

constexpr uint16_t snmp_port = 161; /* RFC 1157 4 */

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

}  // namespace
}  // namespace wq

WQ_STAND_IN int init_async_snmp(void) {
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

WQ_STAND_IN uint16_t getSnmpPort(void) {
    return htons(wq::port_number(std::getenv("WQSNMPPORT")).value_or(wq::snmp_port));
}

WQ_STAND_IN void print_rawobjid(const uint32_t* oid, int len) {
    for (int i = 0; oid != nullptr && i < len; ++i) {
        std::printf("%s%" PRIu32, i > 0 ? "." : "", oid[i]);
    }
}
