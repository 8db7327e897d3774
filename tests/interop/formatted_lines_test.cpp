/* Traps of snmptrap, sent or captured by other makers' tools, end as the operator's lines. */
#include <filesystem>
#include <fstream>

#include "listening_process.h"
#include "peer_tools.h"
#include "support/env_value.h"
#include "support/hex.h"

namespace wq::test {
namespace {

constexpr const char* sender = "snmptrap";
constexpr const char* packer = "text2pcap";

constexpr const char* configuration =
    "CATEGORY 0 \"Threshold Events\"\n"
    "CATEGORY 2 \"Error Events\"\n"
    "CATEGORY 3 \"Status Events\"\n"
    "CATEGORY 9 \"IGNORE\"\n"
    "#\n"
    "generic {1.3.6.1.4.1.8072}\n"
    "disks {1.3.6.1.4.1.8072.4}\n"
    "#\n"
    "LINK_DOWN {1.3.6.1.4.1.8072} 2 0 A 4 1 \"Status Events\"\n"
    "link $1 of $a is down after $T: $2 ($#)\n"
    "SDESC\n"
    "EDESC\n"
    "#\n"
    "DISK_FULL {1.3.6.1.4.1.8072.4} 6 17 A 4 1 \"Error Events\"\n"
    "disk $1 has $2 of $3 left for $t4\\nadded at $5 by $C with $=1: $6 $7\n"
    "SDESC\n"
    "EDESC\n"
    "#\n"
    "RAISED {1.3.6.1.4.1.8072} 6 -1 A 4 1 \"Threshold Events\"\n"
    "raised: $G $S $s $e\n"
    "SDESC\n"
    "EDESC\n"
    "#\n"
    "UNWANTED {1.3.6.1.4.1.8072} 4 0 A 4 1 \"IGNORE\"\n"
    "unwanted\n"
    "SDESC\n"
    "EDESC\n";

struct Case {
    const char* name;
    Words words;  // ENTERPRISE AGENT GENERIC SPECIFIC TIME [OID TYPE VALUE]...
    const char* lines;
};

const std::vector<Case>& cases() {
    static const std::vector<Case> all = {
        {"generic",
         {"1.3.6.1.4.1.8072", "192.0.2.7", "2", "0", "12345", "1.3.6.1.2.1.2.2.1.1.3", "i", "3",
          "1.3.6.1.2.1.1.5.0", "s", "core switch"},
         "link 3 of 192.0.2.7 is down after 12345: core switch (2)\n"},
        {"every type",
         {"1.3.6.1.4.1.8072.4",
          "192.0.2.7",
          "6",
          "17",
          "1",
          "1.3.6.1.4.1.8072.4.9.1",
          "s",
          "/var",
          "1.3.6.1.4.1.8072.4.9.2",
          "u",
          "3000000000",
          "1.3.6.1.4.1.8072.4.9.3",
          "c",
          "4294967295",
          "1.3.6.1.4.1.8072.4.9.4",
          "i",
          "12000",
          "1.3.6.1.4.1.8072.4.9.5",
          "a",
          "192.0.2.8",
          "1.3.6.1.4.1.8072.4.9.6",
          "x",
          "00ff7f",
          "1.3.6.1.4.1.8072.4.9.7",
          "o",
          "1.3.6.1.4.1.99999"},
         "disk /var has 3000000000 of 4294967295 left for 2m\n"
         "\tadded at 192.0.2.8 by secret with variable: 0x00 ff 7f kind\n"},
        {"negative",
         {"1.3.6.1.4.1.8072", "192.0.2.7", "6", "-1", "1"},
         "raised: 6 -1 ffffffff 1.3.6.1.4.1.8072\n"},
        {"unwanted", {"1.3.6.1.4.1.8072", "192.0.2.7", "4", "0", "1"}, ""},
        {"unknown",
         {"1.3.6.1.4.1.8072.4", "192.0.2.7", "6", "18", "1"},
         "NO FMT IN VORTD.CONF: disks (1.3.6.1.4.1.8072.4) generic:6 specific:18 args(0): \n"},
    };
    return all;
}

class FormattedLines : public testing::Test {
  protected:
    FormattedLines() {
        std::filesystem::create_directory(folder_.path("C"));
        folder_.write("C/vortd.conf", configuration);
        folder_.write("oid_to_label",
                      "1.3.6.1.4.1.8072.4.9=\"variable\"\n"
                      "1.3.6.1.4.1=\"kind\"\n");
    }

    void send(const Case& row, const std::string& to) const {
        Words words{sender, "-v", "1", "-c", "secret", to};
        words.insert(words.end(), row.words.begin(), row.words.end());
        Subprocess process(words, tool_environment(folder_));
        EXPECT_EQ(process.wait(), 0) << process.err();
    }

    const TempDir folder_;
    const EnvValue directory_{"WQCONFDIR", folder_.path()};
    const EnvValue file_{"WQVORTDCONF", nullptr};
    const EnvValue mib_{"WQMIBFILE", nullptr};
    const EnvValue locale_{"LC_ALL", "C"};
};

TEST_F(FormattedLines, OfTrapsAsTheyArrive) {
    REQUIRE_PROGRAM(sender);
    ListeningProcess listener(
        {"--format", "prx", "--udp", "127.0.0.1:0", "--raw-tcp", "127.0.0.1:0"});
    std::string expected;
    for (const std::string transport : {"udp", "raw-tcp"}) {
        for (const Case& row : cases()) {
            const std::string protocol = transport == "udp" ? "udp:" : "tcp:";
            send(row, protocol + listener.address(transport));
            expected += row.lines;
            listener.gather_until([&] { return listener.out().size() >= expected.size(); });
            ASSERT_EQ(listener.out(), expected) << row.name;
        }
    }
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_NE(listener.err().find("withheld 2: not to be shown 2\n"), std::string::npos)
        << listener.err();
}

/* A capture written by another program: the encoded trap behind headers of its own making. */
TEST_F(FormattedLines, OfTrapsInACapture) {
    REQUIRE_PROGRAM(packer);
    const Bytes trap = from_hex(
        "30 27 02 01 00 04 06 70 75 62 6c 69 63 a4 1a 06 07 2b 06 01 04 01 bf 08"
        "40 04 c0 00 02 07 02 01 06 02 01 ff 43 01 05 30 00");
    const std::string dump = folder_.write("dump", "0000 " + to_hex(trap) + "\n");
    for (const Words& format : {Words{"-F", "pcap"}, Words{"-F", "pcapng"}}) {
        for (const Words& addresses :
             {Words{"-4", "192.0.2.7,192.0.2.1"}, Words{"-6", "2001:db8::7,2001:db8::1"}}) {
            const std::string file = folder_.path("capture");
            Words words{packer, "-q", "-u", "40000,162"};
            words.insert(words.end(), format.begin(), format.end());
            words.insert(words.end(), addresses.begin(), addresses.end());
            words.insert(words.end(), {dump, file});
            Subprocess process(words, tool_environment(folder_));
            ASSERT_EQ(process.wait(), 0) << process.err();
            const CommandRun run({"format", "--kind", "prx", file});
            EXPECT_EQ(run.status, 0) << run.err;
            EXPECT_EQ(run.out, "raised: 6 -1 ffffffff 1.3.6.1.4.1.8072\n") << run.err;
        }
    }
}

}  // namespace
}  // namespace wq::test
