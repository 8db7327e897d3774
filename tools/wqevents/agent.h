/*
 * An SNMPv1 agent as the subcommands talk to it: where it is, how long it is waited for, and one
 * request after another.
 */
#ifndef WQEVENTS_TOOL_AGENT_H
#define WQEVENTS_TOOL_AGENT_H

#include <wqevents.h>

#include <memory>
#include <span>
#include <string>

namespace wq::command {

struct AgentOptions {
    std::string place;  // HOST[:PORT]
    std::string community = "public";
    unsigned timeout = 2;  // seconds for the answer to one attempt
    unsigned attempts = 3;
};

/* The most bindings that one request carries. */
inline constexpr std::size_t request_bindings = 10;

class Agent {
  public:
    using Call = int (*)(snmp_call_info*, SnmpVarBindEMS*, SnmpVarBindEMS*, int);

    /*
     * Finds the host and opens a socket. A place that cannot be is a UsageError, the rest a
     * Failure.
     */
    explicit Agent(const AgentOptions& options);

    /*
     * request: sends at most request_bindings of `in`, the first of which is the binding number
     * `first` of the command line, counted from 0. Returns the bindings of the answer, as many as
     * were sent; they lie in the object until the next request. Anything else is a Failure with
     * the library's text and, where the agent points at a binding, its number.
     */
    std::span<SnmpVarBindEMS> request(Call call, std::span<SnmpVarBindEMS> in, std::size_t first);

    /*
     * next: the variable behind the one that `in` names, or null where the agent says that there
     * is none. It lies in the object until the next request.
     */
    SnmpVarBindEMS* next(SnmpVarBindEMS& in);

    const std::string& place() const { return place_; }

  private:
    struct Close {
        void operator()(snmp_call_info* client) const { close_snmp_call(client); }
    };

    void check(int result, std::span<const SnmpVarBindEMS> in, std::size_t first) const;

    std::string place_;
    std::unique_ptr<snmp_call_info, Close> client_;
    std::unique_ptr<SnmpVarBindEMS[]> answer_;
};

}  // namespace wq::command

#endif
