#include "agent.h"

#include <netdb.h>
#include <wqplatform.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "command.h"
#include "oid_text.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr int no_such_name = 2; /* RFC 1157 4.1.1 */

/* An empty port leaves the choice to the platform. */
struct Place {
    std::string host, port;
};

Place parse_place(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    Place place{text.substr(0, colon), colon == std::string::npos ? "" : text.substr(colon + 1)};
    if (place.host.empty() || (colon != std::string::npos && place.port.empty())) {
        throw UsageError("agent " + quoted(text) + " must be HOST or HOST:PORT");
    }
    if (!place.port.empty()) {
        parse_number("port", place.port, 1, UINT16_MAX);
    }
    return place;
}

std::uint32_t resolve(const std::string& host) {
    const hostent* found = gethostbyname_new(host.c_str());
    std::uint32_t address = 0;
    if (found == nullptr || found->h_addrtype != AF_INET || found->h_addr_list[0] == nullptr) {
        throw Failure("host " + quoted(host) + " has no IPv4 address");
    }
    std::memcpy(&address, found->h_addr_list[0], sizeof address);
    return address;
}

void check_community(const std::string& community) {
    if (community.size() >= EMS_COMMUNITY_MAX) {
        throw UsageError("the community has " + std::to_string(community.size()) +
                         " bytes; at most " + std::to_string(EMS_COMMUNITY_MAX - 1) +
                         " can be sent");
    }
}

std::string count_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " binding" : " bindings");
}

}  // namespace

Agent::Agent(const AgentOptions& options)
    : place_(shown(options.place)), answer_(std::make_unique<SnmpVarBindEMS[]>(request_bindings)) {
    const Place place = parse_place(options.place);
    check_community(options.community);
    const std::uint32_t address = resolve(place.host);
    if (!place.port.empty()) {
        /* Both the transport and the client take the port from there. */
        setenv("WQSNMPPORT", place.port.c_str(), 1);
    }
    errno = 0;
    client_.reset(init_snmp_call(options.timeout, options.attempts));
    if (client_ == nullptr) {
        throw system_failure("cannot open a socket", errno);
    }
    init_snmp_2request(client_.get(), address,
                       reinterpret_cast<const unsigned char*>(options.community.data()),
                       static_cast<int>(options.community.size()));
}

void Agent::check(int result, std::span<const SnmpVarBindEMS> in, std::size_t first) const {
    if (result != 0) {
        std::string text = place_ + ": " + snmpcall_error(client_.get());
        const auto index = static_cast<std::size_t>(client_->response.errindex);
        if (result > 0 && index - 1 < in.size()) {
            const SnmpVarBindEMS& binding = in[index - 1];
            text += ", binding " + std::to_string(first + index) + ": " +
                    oid_to_text({binding.oid, binding.oid_length});
        }
        throw Failure(text);
    }
    if (const auto vars = static_cast<std::size_t>(client_->response.vars); vars != in.size()) {
        const bool more = vars > in.size();
        throw Failure(place_ + ": the answer has " + (more ? "more than " : "") +
                      count_text(more ? in.size() : vars) + (more ? "" : " instead of ") +
                      (more ? "" : std::to_string(in.size())));
    }
}

std::span<SnmpVarBindEMS> Agent::request(Call call, std::span<SnmpVarBindEMS> in,
                                         std::size_t first) {
    const int count = static_cast<int>(in.size());
    check(call(client_.get(), in.data(), answer_.get(), count), in, first);
    return {answer_.get(), in.size()};
}

SnmpVarBindEMS* Agent::next(SnmpVarBindEMS& in) {
    const int result = getnextvar(client_.get(), &in, answer_.get());
    if (result == no_such_name) {
        return nullptr;
    }
    check(result, {&in, 1}, 0);
    return answer_.get();
}

}  // namespace wq::command
