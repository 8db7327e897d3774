/* The request client and the command's requests against snmpd. */
#include <wqevents/client.h>
#include <wqevents/codec.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "listening_process.h"
#include "peer_tools.h"
#include "support/env_value.h"

namespace wq::test {
namespace {

using Oid = std::vector<uint32_t>;

constexpr const char* agent_program = "snmpd";

enum Status { no_error, too_big, no_such_name, bad_value, read_only, gen_err };

const Oid system_group = {1, 3, 6, 1, 2, 1, 1};
const Oid sys_descr = {1, 3, 6, 1, 2, 1, 1, 1, 0};
const Oid sys_object_id = {1, 3, 6, 1, 2, 1, 1, 2, 0};
const Oid sys_up_time = {1, 3, 6, 1, 2, 1, 1, 3, 0};
const Oid sys_contact = {1, 3, 6, 1, 2, 1, 1, 4, 0};
const Oid sys_name = {1, 3, 6, 1, 2, 1, 1, 5, 0};
const Oid sys_services = {1, 3, 6, 1, 2, 1, 1, 7, 0};
const Oid missing = {1, 3, 6, 1, 2, 1, 1, 99, 0};

/* Below it, the last sub-identifier is the error that the agent's script answers a set with. */
const Oid refusing = {1, 3, 6, 1, 4, 1, 8072, 9999, 9999};

constexpr const char* refusing_script =
    "#!/bin/sh\n"
    "case $1,$2 in\n"
    "  -s,*.1) echo too-big ;;\n"
    "  -s,*.4) echo read-only ;;\n"
    "  -s,*.5) echo gen-error ;;\n"
    "esac\n";

/* A port that is free just now. */
uint16_t free_udp_port() {
    return port_of(udp_socket());
}

/* snmpd on the loopback address; WQSNMPPORT names its port while the object lives. */
class AgentDaemon {
  public:
    AgentDaemon()
        : folder_(),
          port_(std::to_string(free_udp_port())),
          variable_("WQSNMPPORT", port_),
          process_(words(), tool_environment(folder_)) {
        EXPECT_TRUE(process_.wait_for_out("NET-SNMP version")) << process_.out() << process_.err();
    }

    const TempDir& folder() const { return folder_; }
    std::string place() const { return "127.0.0.1:" + port_; }

  private:
    Words words() const {
        std::filesystem::create_directory(folder_.path("state"));
        const std::string script = folder_.write("refuse.sh", refusing_script);
        const std::string file = folder_.write("agent.conf",
                                               "rocommunity public 127.0.0.1\n"
                                               "rwcommunity private 127.0.0.1\n"
                                               "sysdescr a system to be asked\n"
                                               "sysservices 72\n"
                                               "pass .1.3.6.1.4.1.8072.9999.9999 /bin/sh " +
                                                   script + "\n");
        return {agent_program, "-f", "-C", "-c", file, "-Lo", "udp:127.0.0.1:" + port_};
    }

    TempDir folder_;
    std::string port_;
    EnvValue variable_;
    Subprocess process_;
};

struct CloseClient {
    void operator()(snmp_call_info* client) const { close_snmp_call(client); }
};
using Client = std::unique_ptr<snmp_call_info, CloseClient>;

Client client(const char* community = "public", unsigned timeout = 5, unsigned retries = 3) {
    Client made(init_snmp_call(timeout, retries));
    EXPECT_NE(made, nullptr);
    init_snmp_request(made.get(), htonl(INADDR_LOOPBACK), community);
    return made;
}

SnmpVarBindEMS named(const Oid& oid) {
    SnmpVarBindEMS made{};
    std::copy(oid.begin(), oid.end(), made.oid);
    made.oid_length = static_cast<uint32_t>(oid.size());
    return made;
}

SnmpVarBindEMS text(const Oid& oid, const std::string& value) {
    SnmpVarBindEMS made = named(oid);
    made.type = ASN_OCTETSTR09;
    std::copy(value.begin(), value.end(), made.val.string);
    made.val_len = static_cast<uint32_t>(value.size());
    return made;
}

SnmpVarBindEMS number(const Oid& oid, int32_t value) {
    SnmpVarBindEMS made = named(oid);
    made.type = ASN_INTEGER09;
    made.val.integer = value;
    made.val_len = 4;
    return made;
}

std::string text_of(const SnmpVarBindEMS& binding) {
    return {binding.val.string, binding.val.string + binding.val_len};
}

Oid oid_of(const SnmpVarBindEMS& binding) {
    return {binding.oid, binding.oid + binding.oid_length};
}

std::string dotted(const Oid& oid) {
    std::string text;
    for (const uint32_t part : oid) {
        text.append(".").append(std::to_string(part));
    }
    return text;
}

bool is_below(const Oid& oid, const Oid& root) {
    return oid.size() > root.size() && std::equal(root.begin(), root.end(), oid.begin());
}

/* Sets the bindings, at most ten; the result with the index of the refused one. */
std::pair<int, int> set(snmp_call_info* client, std::vector<SnmpVarBindEMS> in) {
    std::vector<SnmpVarBindEMS> out(in.size());
    const int result = setvar_array(client, in.data(), out.data(), static_cast<int>(in.size()));
    return {result, client->response.errindex};
}

TEST(Snmpd, AnswersGetWithEachType) {
    REQUIRE_PROGRAM(agent_program);
    const AgentDaemon daemon;
    const Client asking = client();
    std::vector<SnmpVarBindEMS> in{named(sys_descr), named(sys_object_id), named(sys_up_time),
                                   named(sys_services)};
    std::vector<SnmpVarBindEMS> out(in.size());
    ASSERT_EQ(getvar_array(asking.get(), in.data(), out.data(), 4), 0)
        << snmpcall_error(asking.get());
    EXPECT_EQ(out[0].type, ASN_OCTETSTR09);
    EXPECT_EQ(text_of(out[0]), "a system to be asked");
    EXPECT_EQ(out[1].type, ASN_OBJID09);
    EXPECT_EQ(Oid(out[1].val.objid, out[1].val.objid + out[1].val_len),
              (Oid{1, 3, 6, 1, 4, 1, 8072, 3, 2, 10}));
    EXPECT_EQ(out[2].type, ASN_TIMETICKS09);
    EXPECT_EQ(out[3].type, ASN_INTEGER09);
    EXPECT_EQ(out[3].val.integer, 72);
    SnmpVarBindEMS one = named(sys_services);
    EXPECT_EQ(getvar(asking.get(), &one, out.data()), 0);
    EXPECT_EQ(out[0].val.integer, 72);
}

TEST(Snmpd, TellsWhichVariableIsMissing) {
    REQUIRE_PROGRAM(agent_program);
    const AgentDaemon daemon;
    const Client asking = client();
    std::vector<SnmpVarBindEMS> in{named(sys_descr), named(missing), named(sys_services)};
    std::vector<SnmpVarBindEMS> out(in.size());
    EXPECT_EQ(getvar_array(asking.get(), in.data(), out.data(), 3), no_such_name);
    EXPECT_EQ(asking->response.errindex, 2);
    EXPECT_STREQ(snmpcall_error(asking.get()), "SNMP Error:  noSuchName");
}

TEST(Snmpd, WalksASubtreeAsItsOwnToolsDo) {
    REQUIRE_PROGRAM(agent_program);
    REQUIRE_PROGRAM("snmpwalk");
    const AgentDaemon daemon;
    const Client asking = client();
    std::string ours;
    SnmpVarBindEMS at = named(system_group);
    SnmpVarBindEMS next{};
    while (getnextvar(asking.get(), &at, &next) == 0 && is_below(oid_of(next), system_group)) {
        ours.append(dotted(oid_of(next))).append("\n");
        at = named(oid_of(next));
    }
    Subprocess walk(
        {"snmpwalk", "-v1", "-c", "public", "-On", "-Oq", daemon.place(), dotted(system_group)},
        tool_environment(daemon.folder()));
    EXPECT_EQ(walk.wait(), 0) << walk.err();
    std::string theirs;
    std::istringstream lines(walk.out());
    for (std::string line; std::getline(lines, line);) {
        theirs.append(line.substr(0, line.find(' '))).append("\n");
    }
    EXPECT_GT(std::count(theirs.begin(), theirs.end(), '\n'), 10);
    EXPECT_EQ(ours, theirs);
}

TEST(Snmpd, KeepsWhatIsSet) {
    REQUIRE_PROGRAM(agent_program);
    const AgentDaemon daemon;
    const Client writing = client("private");
    EXPECT_EQ(set(writing.get(), {text(sys_name, "alpha"), text(sys_contact, "somebody")}).first, 0)
        << snmpcall_error(writing.get());
    const Client reading = client();
    std::vector<SnmpVarBindEMS> in{named(sys_name), named(sys_contact)};
    std::vector<SnmpVarBindEMS> out(in.size());
    ASSERT_EQ(getvar_array(reading.get(), in.data(), out.data(), 2), 0);
    EXPECT_EQ(text_of(out[0]), "alpha");
    EXPECT_EQ(text_of(out[1]), "somebody");
}

TEST(Snmpd, RefusesWhatCannotBeSet) {
    REQUIRE_PROGRAM(agent_program);
    const AgentDaemon daemon;
    const auto refusing_with = [](uint32_t status) {
        Oid oid = refusing;
        oid.push_back(status);
        return oid;
    };
    using Result = std::pair<int, int>;
    const Client reading = client();
    const Client writing = client("private");
    // Without the right to write, SNMPv1 says that there is no such variable (RFC 3584 4.4).
    EXPECT_EQ(set(reading.get(), {text(sys_name, "alpha")}), Result(no_such_name, 1));
    EXPECT_EQ(set(writing.get(), {text(sys_name, "alpha"), text(sys_descr, "x")}),
              Result(no_such_name, 2));
    EXPECT_EQ(set(writing.get(), {text(sys_name, "alpha"), number(sys_contact, 5)}),
              Result(bad_value, 2));
    for (const Status status : {too_big, read_only, gen_err}) {
        EXPECT_EQ(set(writing.get(), {number(refusing_with(status), 1)}).first, status);
    }
    EXPECT_STREQ(snmpcall_error(writing.get()), "SNMP Error:  genErr");
    // Nothing of a refused request was done.
    SnmpVarBindEMS name = named(sys_name);
    SnmpVarBindEMS found{};
    ASSERT_EQ(getvar(reading.get(), &name, &found), 0);
    EXPECT_NE(text_of(found), "alpha");
}

TEST(Snmpd, DoesNotAnswerAWrongCommunity) {
    REQUIRE_PROGRAM(agent_program);
    const AgentDaemon daemon;
    const Client asking = client("wrong", 1, 2);
    SnmpVarBindEMS in = named(sys_descr);
    SnmpVarBindEMS out{};
    EXPECT_EQ(getvar(asking.get(), &in, &out), -4);
    EXPECT_STREQ(snmpcall_error(asking.get()), "TIMED OUT: No SNMP response.");
    // The same client, asked properly.
    init_snmp_request(asking.get(), htonl(INADDR_LOOPBACK), "public");
    EXPECT_EQ(getvar(asking.get(), &in, &out), 0);
}

TEST(Snmpd, WhereNoneListensThePortRefuses) {
    const EnvValue port("WQSNMPPORT", std::to_string(free_udp_port()));
    const Client asking = client("public", 1, 2);
    SnmpVarBindEMS in = named(sys_descr);
    SnmpVarBindEMS out{};
    EXPECT_EQ(getvar(asking.get(), &in, &out), -6);
    EXPECT_STREQ(snmpcall_error(asking.get()), "Remote does not support SNMP.");
}

TEST(Snmpd, IsAskedByTheLowerLayer) {
    REQUIRE_PROGRAM(agent_program);
    const AgentDaemon daemon;
    const Fd sd = udp_socket();
    sockaddr_in agent = loopback(static_cast<uint16_t>(std::stoi(std::getenv("WQSNMPPORT"))));
    snmp_info request{};
    std::copy_n("public", 6, request.community);
    request.clen = 6;
    request.command = SNMP_GET_REQ;
    request.reqid = 4711;
    request.vars = 1;
    snmp_info response{};
    response.clen = EMS_COMMUNITY_MAX;
    response.maxvars = 1;
    SnmpVarBindEMS in = named(sys_descr);
    in.type = ASN_NULL09;
    SnmpVarBindEMS out{};
    EXPECT_EQ(send_request(sd.get(), &agent, &request, &response, &in, &out), 1);
    EXPECT_EQ(response.reqid, 4711);
    EXPECT_EQ(text_of(out), "a system to be asked");
}

TEST(Snmpd, IsAskedByTheCommand) {
    REQUIRE_PROGRAM(agent_program);
    const AgentDaemon daemon;
    const std::string place = daemon.place();
    const std::string group = ".iso.org.dod.internet.mgmt.mib-2.system";
    const CommandRun set(
        {"set", "--community", "private", place, "1.3.6.1.2.1.1.5.0", "s", "beta"});
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(set.out, group + ".sysName.0 = OctetString: beta\n");
    const CommandRun get({"get", place, "1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.1.7.0"});
    EXPECT_EQ(get.status, 0) << get.err;
    EXPECT_EQ(get.out, group + ".sysName.0 = OctetString: beta\n" + group +
                           ".sysServices.0 = Integer: 72\n");
    const CommandRun refused({"get", place, "1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.1.99.0"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "wqevents get: " + place +
                               ": SNMP Error:  noSuchName, binding 2: 1.3.6.1.2.1.1.99.0\n");
    const CommandRun walk({"walk", place, "1.3.6.1.2.1.1"});
    EXPECT_EQ(walk.status, 0) << walk.err;
    EXPECT_EQ(walk.out.find(group + ".sysDescr.0 = OctetString: a system to be asked\n"), 0U);
    EXPECT_GT(std::count(walk.out.begin(), walk.out.end(), '\n'), 10);
}

}  // namespace
}  // namespace wq::test
