/*
 * An SNMPv1 agent for tests: a datagram socket on the loopback address whose requests go, one after
 * another, to a script. While it lives, WQSNMPPORT names its port.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_SNMP_AGENT_H
#define WQEVENTS_TESTS_SUPPORT_SNMP_AGENT_H

#include <poll.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>

#include <array>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/env_value.h"
#include "support/sockets.h"
#include "support/writer.h"

namespace wq::test {

struct AgentMessage {
    snmp_info info{};
    std::vector<SnmpVarBindEMS> vars;
};

inline AgentMessage decoded(const Bytes& bytes) {
    AgentMessage message;
    message.vars.resize(64);
    message.info.clen = EMS_COMMUNITY_MAX;
    message.info.maxvars = 64;
    if (snmp_parse(bytes.data(), static_cast<int>(bytes.size()), &message.info,
                   message.vars.data()) != 0) {
        throw std::runtime_error("not a request");
    }
    message.vars.resize(static_cast<size_t>(message.info.vars));
    return message;
}

inline Bytes encoded(AgentMessage message) {
    Bytes bytes(65536);
    int length = static_cast<int>(bytes.size());
    message.info.vars = static_cast<int32_t>(message.vars.size());
    if (snmpBuild09(bytes.data(), &length, &message.info, message.vars.data()) != 0) {
        throw std::runtime_error("not encodable");
    }
    bytes.resize(static_cast<size_t>(length));
    return bytes;
}

/* The answer that echoes the request's bindings, as INTEGERs counted from 1. */
inline AgentMessage counting_answer(const Bytes& request) {
    AgentMessage answer = decoded(request);
    answer.info.command = SNMP_GET_RSP;
    int32_t value = 0;
    for (SnmpVarBindEMS& var : answer.vars) {
        var.type = ASN_INTEGER09;
        var.val.integer = ++value;
        var.val_len = 4;
    }
    return answer;
}

class SnmpAgent {
  public:
    /* Gets each request with its number, from 0; each of the datagrams it gives is sent back. */
    using Script = std::function<std::vector<Bytes>(const Bytes& request, int number)>;

    explicit SnmpAgent(Script script) : script_(std::move(script)) {
        thread_ = std::make_unique<Writer>([this] { serve(); });
    }
    ~SnmpAgent() {
        const uint8_t end = 0;
        const sockaddr_in here = loopback(port_of(socket_));
        const Fd waker = udp_socket();
        sendto(waker.get(), &end, 0, 0, reinterpret_cast<const sockaddr*>(&here), sizeof here);
        thread_.reset();
    }
    SnmpAgent(const SnmpAgent&) = delete;
    SnmpAgent& operator=(const SnmpAgent&) = delete;

    /* The requests so far. Ask only once the client's call has returned. */
    const std::vector<Bytes>& requests() const { return requests_; }

  private:
    void serve() {
        for (;;) {
            sockaddr_in from{};
            socklen_t length = sizeof from;
            Bytes request(65536);
            const ssize_t got = recvfrom(socket_.get(), request.data(), request.size(), 0,
                                         reinterpret_cast<sockaddr*>(&from), &length);
            if (got <= 0) { /* an empty datagram is the end */
                return;
            }
            request.resize(static_cast<size_t>(got));
            requests_.push_back(request);
            for (const Bytes& reply : script_(request, static_cast<int>(requests_.size()) - 1)) {
                sendto(socket_.get(), reply.data(), reply.size(), 0,
                       reinterpret_cast<const sockaddr*>(&from), length);
            }
        }
    }

    Fd socket_ = udp_socket();
    EnvValue port_{"WQSNMPPORT", std::to_string(port_of(socket_))};
    Script script_;
    std::vector<Bytes> requests_;
    std::unique_ptr<Writer> thread_;
};

}  // namespace wq::test

#endif
