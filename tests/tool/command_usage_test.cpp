#include "listening_process.h"

namespace wq::test {
namespace {

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(Usage, EverySubcommandHelpsWithExamples) {
    const struct {
        Words words;
        const char* example;
    } rows[] = {
        {{"--help"}, "  wqevents listen --udp 127.0.0.1:16200 --socket"},
        {{"-h"}, "Usage: wqevents [OPTIONS] SUBCOMMAND"},
        {{"listen", "--help"}, "  wqevents listen --raw-tcp 127.0.0.1:1162 --count 1"},
        {{"event", "--help"}, "  wqevents event --to auto 42 'threshold'"},
        {{"send", "--help"}, "  wqevents send --to udp:localhost '' 6 1 ''"},
        {{"send", "-h"}, "ENTERPRISE GENERIC SPECIFIC TIME [OID TYPE VALUE]..."},
        {{"format", "--help"}, "  wqevents format --conf vortd.conf --kind kmevents traps.pcap"},
        {{"conf", "--help"}, "  wqevents conf check examples/vortd.conf"},
        {{"conf", "check", "--help"}, "  wqevents conf check --expand examples/vortd.conf"},
        {{"names", "--help"}, "  wqevents names examples/oid_to_label find net-snmp"},
        {{"mib", "--help"}, "compile"},
        {{"mib", "compile", "--help"}, "  wqevents mib compile -I /usr/share/snmp/mibs -I ./mibs"},
        {{"conf", "set", "--help"}, "--severity"},
        {{"conf", "diff", "--help"}, "FILE1 FILE2"},
        {{"codepoints", "--help"}, "  wqevents codepoints build examples/codepoint.src -o"},
        {{"get", "--help"}, "  wqevents get "},
        {{"next", "--help"}, "  wqevents next "},
        {{"set", "--help"}, "  wqevents set "},
        {{"walk", "--help"}, "  wqevents walk "},
        {{"status", "--help"}, "  wqevents status --check || echo 'a daemon is down'"},
    };
    for (const auto& row : rows) {
        const CommandRun run(row.words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_TRUE(holds(run.out, row.example)) << run.out;
    }
}

TEST(Usage, HelpNamesEveryOption) {
    const struct {
        const char* subcommand;
        Words options;
    } rows[] = {
        {"listen",
         {"--udp [HOST:]PORT", "--socket PATH", "--tcp [HOST:]PORT", "--raw-tcp [HOST:]PORT",
          "--json", "--format [KIND]", "--count N", "--idle SECONDS", "vortd ", "zleevent ",
          "kmevents ", "obu ", "prx "}},
        {"format",
         {"FILE ...", "--conf FILE", "--kind KIND", "vortd ", "zleevent ", "kmevents ", "obu ",
          "prx ", "pcap, pcapng"}},
        {"conf", {"check", "list", "show", "add", "set", "delete", "rename", "diff"}},
        {"codepoints", {"build", "dump"}},
        {"get", {"--community C", "--timeout S", "--retries N", "HOST or HOST:PORT"}},
        {"set", {"--community C", "i INTEGER", "s string"}},
        {"walk", {"--community C", "--timeout S", "--retries N", "HOST or HOST:PORT"}},
        {"names", {"FILE", "check", "lookup OID...", "find NAME..."}},
        {"mib", {"compile"}},
        {"status", {"--json", "--check"}},
        {"event",
         {"--to DEST", "--source N", "--host", "--data", "--db", "--selname", "--ipaddress",
          "--trapspecific", "--network-addr", "--network-mask", "udp:HOST", "local:PATH",
          "tcp:HOST", "raw:HOST[:PORT]", "auto"}},
        {"send",
         {"--to DEST", "--community C", "--agent A", "--repeat N", "--rate R", "--hex FILE",
          "i INTEGER", "u unsigned", "c Counter", "g Gauge", "t TimeTicks", "a IpAddress",
          "o OBJECT IDENTIFIER", "s string", "x hexadecimal", "d decimal", "n NULL"}},
    };
    for (const auto& row : rows) {
        const std::string help = CommandRun({row.subcommand, "--help"}).out;
        for (const std::string& option : row.options) {
            EXPECT_TRUE(holds(help, option)) << option << "\n" << help;
        }
    }
}

TEST(Usage, VersionIsPrinted) {
    const CommandRun run({"--version"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "wqevents 1.0.0\n");
}

TEST(Usage, WrongCommandLinesEndWithStatusTwo) {
    const struct {
        Words words;
        const char* part;
    } rows[] = {
        {{}, "wqevents: A subcommand is required"},
        {{"bogus"}, "wqevents: "},
        {{"--bogus"}, "wqevents: "},
        {{"listen", "--bogus"},
         "wqevents listen: The following argument was not expected: --bogus"},
        {{"format"}, "wqevents format: FILE is required"},
        {{"conf"}, "wqevents conf: A subcommand is required"},
        {{"conf", "check", "one", "two"}, "wqevents conf: The following argument was not expected"},
        {{"names", "file"}, "wqevents names: ACTION is required"},
        {{"names", "file", "bogus"}, "wqevents names: "},
        {{"mib"}, "wqevents mib: A subcommand is required"},
        {{"mib", "compile"}, "wqevents mib: MODULE is required"},
        {{"codepoints"}, "wqevents codepoints: A subcommand is required"},
        {{"get"}, "wqevents get: "},
        {{"walk", "localhost"}, "wqevents walk: "},
        {{"status", "bogus"}, "wqevents status: The following argument was not expected: bogus"},
    };
    for (const auto& row : rows) {
        const CommandRun run(row.words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(holds(run.err, row.part)) << run.err;
        EXPECT_TRUE(holds(run.err, "--help'.\n")) << run.err;
    }
}

}  // namespace
}  // namespace wq::test
