/* Traps of this library are printed by snmptrapd with the values that were sent. */
#include "listening_process.h"
#include "peer_tools.h"
#include "support/sandbox.h"

namespace wq::test {
namespace {

constexpr const char* receiver = "snmptrapd";

/* A port that is free by both protocols just now. */
std::uint16_t free_port() {
    for (;;) {
        const Fd tcp = tcp_listener();
        const std::uint16_t port = port_of(tcp);
        const Fd udp(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const sockaddr_in address = loopback(port);
        if (bind(udp.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return port;
        }
    }
}

class TrapDaemon : public Subprocess {
  public:
    TrapDaemon(const TempDir& folder, const Words& places)
        : Subprocess(words(folder, places), tool_environment(folder)) {
        EXPECT_TRUE(wait_for_out("NET-SNMP version")) << out() << err();
    }

    /* The lines of the n-th trap, the first being 1. */
    std::string trap(std::size_t n) {
        std::size_t end = 0;
        const bool there = gather_until([&] { return (end = end_of(n)) != std::string::npos; });
        EXPECT_TRUE(there) << out() << err();
        const std::size_t start = out().rfind("agent ", end);
        return there ? out().substr(start, end - start) : "";
    }

  private:
    static Words words(const TempDir& folder, const Words& places) {
        const std::string file = folder.write(
            "trapd.conf",
            "disableAuthorization yes\n"
            "format1 agent %a\\ncommunity %P\\nenterprise %N\\ngeneric %w\\nspecific %q\\n"
            "time %T\\n%v\\nend of trap\\n\n");
        Words all{receiver, "-f", "-C", "-c", file, "-Lo", "-On", "-OQ", "-Ot", "-Ox"};
        all.insert(all.end(), places.begin(), places.end());
        return all;
    }
    std::size_t end_of(std::size_t n) const {
        std::size_t at = 0;
        for (std::size_t i = 0; i < n && at != std::string::npos; ++i) {
            at = out().find("end of trap", at + 1);
        }
        return at;
    }
};

const Words every_type{"--agent",  "10.1.2.3", "--community", "secret",     "1.3.6.1.4.1.8072",
                       "6",        "17",       "12345",       "1.3.1",      "i",
                       "-5",       "1.3.2",    "c",           "4294967295", "1.3.3",
                       "g",        "7",        "1.3.4",       "t",          "150",
                       "1.3.5",    "a",        "10.0.0.5",    "1.3.6",      "o",
                       ".1.3.6.1", "1.3.7",    "s",           "text",       "1.3.8",
                       "x",        "00ff",     "1.3.9",       "n",          "",
                       "1.3.10",   "u",        "2147483647"};

const std::string every_type_printed =
    "agent 10.1.2.3\n"
    "community TRAP, SNMP v1, community secret\n"
    "enterprise .1.3.6.1.4.1.8072\n"
    "generic 6\n"
    "specific .17\n"
    "time 12345\n"
    ".1.3.1 = -5\t.1.3.2 = 4294967295\t.1.3.3 = 7\t.1.3.4 = 150\t.1.3.5 = 10.0.0.5\t"
    ".1.3.6 = .1.3.6.1\t.1.3.7 = \"74 65 78 74 \"\t.1.3.8 = \"00 FF \"\t.1.3.9 = NULL\t"
    ".1.3.10 = 2147483647\n";

void send(const std::string& to, const Words& words) {
    Words all{"send", "--to", to};
    all.insert(all.end(), words.begin(), words.end());
    const CommandRun run(all);
    EXPECT_EQ(run.status, 0) << run.err;
}

TEST(NetSnmpReceives, OverTcp) {
    REQUIRE_PROGRAM(receiver);
    const TempDir folder;
    const std::string port = std::to_string(free_port());
    TrapDaemon daemon(folder, {"tcp:127.0.0.1:" + port});
    send("raw:127.0.0.1:" + port, every_type);
    EXPECT_EQ(daemon.trap(1), every_type_printed);
    const CommandRun event({"event", "--to", "raw:127.0.0.1:" + port, "0x03870030", "disk is full",
                            "--host", "alpha", "--network-mask", "255.0.0.0"});
    EXPECT_EQ(event.status, 0) << event.err;
    const std::string printed = daemon.trap(3);
    EXPECT_NE(printed.find("enterprise .1.3.6.1.4.1.2.6.3.1\ngeneric 6\nspecific .59179056\n"),
              std::string::npos)
        << printed;
    EXPECT_NE(printed.find(".1.3.6.1.4.1.2.6.3.1.1.2.0 = 15\t"
                           ".1.3.6.1.4.1.2.6.3.1.1.3.0 = \"61 6C 70 68 61 \"\t"),
              std::string::npos)
        << printed;
    EXPECT_NE(printed.find(".1.3.6.1.4.1.2.6.3.1.1.11.0 = \"32 35 35 2E 30 2E 30 2E 30 \"\n"),
              std::string::npos)
        << printed;
}

TEST(NetSnmpReceives, GenericTrapsAndSeveralOverOneConnection) {
    REQUIRE_PROGRAM(receiver);
    const TempDir folder;
    const std::string port = std::to_string(free_port());
    TrapDaemon daemon(folder, {"tcp:127.0.0.1:" + port});
    send("raw:127.0.0.1:" + port,
         {"--repeat", "3", "--agent", "10.1.2.3", "1.3.6.1.4.1.8072", "2", "0", "1"});
    EXPECT_EQ(daemon.trap(3),
              "agent 10.1.2.3\n"
              "community TRAP, SNMP v1, community public\n"
              "enterprise .1.3.6.1.4.1.8072\n"
              "generic 2\n"
              "specific 0\n"
              "time 1\n"
              "\n");
}

TEST(NetSnmpReceives, OverUdp) {
    REQUIRE_PROGRAM(receiver);
    REQUIRE_SANDBOX();
    const TempDir folder;
    run_in_sandbox([&] {
        TrapDaemon daemon(folder, {"udp:127.0.0.1:162"});
        send("udp:localhost", every_type);
        EXPECT_EQ(daemon.trap(1), every_type_printed);
    });
}

}  // namespace
}  // namespace wq::test
