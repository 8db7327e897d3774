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
          "--json", "--count N", "--idle SECONDS"}},
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
