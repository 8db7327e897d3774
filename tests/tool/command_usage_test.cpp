#include "number_option.h"

#include <fcntl.h>

#include "listening_process.h"
#include "sample_traps.h"
#include "support/temp_dir.h"

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
        {{"conf", "check", "--help"}, "  wqevents conf check --strict vortd.conf"},
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
          "--json", "--format [KIND]", "--conf FILE", "--names now|cache|never", "--log FILE",
          "--count N", "--idle SECONDS", "--max-peers N", "--max-peers-per-host N", "SIGHUP",
          "vortd ", "zleevent ", "kmevents ", "obu ", "prx "}},
        {"format",
         {"FILE ...", "--conf FILE", "--kind KIND", "--names now|cache|never", "vortd ",
          "zleevent ", "kmevents ", "obu ", "prx ", "pcap, pcapng"}},
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
          "--trapspecific", "--network-addr", "--network-mask", "udp:HOST[:PORT]", "local:PATH",
          "tcp:HOST[:PORT]", "raw:HOST[:PORT]", "auto"}},
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
        {{"bogus"}, "wqevents: there is no subcommand 'bogus'\n"},
        {{"--bogus"}, "wqevents: there is no option '--bogus'\n"},
        {{"lisen"}, "wqevents: there is no subcommand 'lisen'; did you mean 'listen'?\n"},
        {{"xy"}, "wqevents: there is no subcommand 'xy'\n"},
        {{"bogus", "--help"}, "wqevents: there is no subcommand 'bogus'\n"},
        {{"--help", "bogus"}, "wqevents: there is no subcommand 'bogus'\n"},
        {{"bogus", "--version"}, "wqevents: there is no subcommand 'bogus'\n"},
        {{"conf", "chekc"}, "wqevents conf: there is no subcommand 'chekc'; did you mean 'check'?"},
        {{"conf", "send"}, "wqevents conf: there is no subcommand 'send'"},
        {{"conf", "bogus", "--help"}, "wqevents conf: there is no subcommand 'bogus'\n"},
        {{"mib", "complie"}, "wqevents mib: there is no subcommand 'complie'"},
        {{"codepoints", "dmup"}, "wqevents codepoints: there is no subcommand 'dmup'; did you"},
        {{"listen", "--bogus"},
         "wqevents listen: The following argument was not expected: --bogus"},
        {{"format"}, "wqevents format: FILE is required"},
        {{"conf"}, "wqevents conf: A subcommand is required"},
        {{"conf", "check", "one", "two"},
         "wqevents conf check: The following argument was not expected"},
        {{"names", "file"}, "wqevents names: ACTION is required"},
        {{"names", "file", "bogus"}, "wqevents names: "},
        {{"mib"}, "wqevents mib: A subcommand is required"},
        {{"mib", "compile"}, "wqevents mib compile: MODULE is required"},
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

TEST(Usage, NumbersAreWholeAndInTheirRange) {
    const struct {
        Words words;
        const char* range;
    } rows[] = {
        {{"listen", "--udp", "0", "--count"}, "1 to 9223372036854775807"},
        {{"listen", "--udp", "0", "--idle"}, "0.001 to 1000000"},
        {{"send", "--to", "auto", "--repeat"}, "1 to 9223372036854775807"},
        {{"send", "--to", "auto", "--repeat", "1", "--rate"}, "0.001 to 1000000000"},
        {{"event", "--to", "auto", "1", "x", "--source"}, "1 to 27"},
        {{"get", "h", "1.3", "--timeout"}, "1 to 3600"},
        {{"walk", "h", "1.3", "--retries"}, "1 to 1000"},
        {{"conf", "set", "x", "--wait"}, "0 to 86400"},
        {{"conf", "set", "x", "--generic"}, "-2147483648 to 2147483647"},
        {{"conf", "set", "x", "--specific"}, "-2147483648 to 2147483647"},
        {{"conf", "add", "x", "--status"}, "-2147483648 to 2147483647"},
    };
    for (const auto& row : rows) {
        for (const std::string value :
             {"-99999999999", "99999999999999999999", "1x", "x", "nan", "inf", "0x10", " 1"}) {
            Words words = row.words;
            words.back() += "=" + value;
            const CommandRun run(words);
            EXPECT_EQ(run.status, 2) << row.words.back() << value;
            EXPECT_EQ(run.out, "");
            EXPECT_TRUE(holds(run.err, "'" + value + "' is not a number from " + row.range + "\n"))
                << run.err;
        }
    }
    const CommandRun run({"listen", "--udp", "0", "--count", "-1"});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(holds(run.err, "wqevents listen: --count: '-1' is not a number")) << run.err;
}

TEST(Usage, NumbersAreDecimalWhateverTheyBeginWith) {
    using command::real_number;
    using command::whole_number;
    std::string number = "010";
    EXPECT_EQ(whole_number(1, 10)(number), "");
    EXPECT_EQ(number, "10");
    for (std::string least : {"-3", "-03"}) {
        EXPECT_EQ(whole_number(-3, 10)(least), "");
        EXPECT_EQ(least, "-3");
    }
    for (std::string beyond : {"-4", "11", "+1", "1e0", "1."}) {
        EXPECT_EQ(whole_number(-3, 10)(beyond), "'" + beyond + "' is not a number from -3 to 10");
    }
    std::string real = "1e-3";
    EXPECT_EQ(real_number(0.001, 5)(real), "");
    EXPECT_EQ(real, "0.001");
    for (std::string beyond : {"0.0009", "5.1", "-1", "NaN", "infinity", "1e999"}) {
        EXPECT_EQ(real_number(0.001, 5)(beyond),
                  "'" + beyond + "' is not a number from 0.001 to 5");
    }
}

TEST(Usage, HelpOfASubcommandHasExamplesOfItsOwn) {
    for (const Words& words : std::vector<Words>{
             {"mib"}, {"codepoints"}, {"codepoints", "dump"}, {"conf"}, {"conf", "list"}}) {
        Words asked = words;
        asked.push_back("--help");
        const CommandRun run(asked);
        EXPECT_EQ(run.status, 0);
        EXPECT_TRUE(holds(run.out, "  wqevents " + words.front())) << run.out;
        EXPECT_FALSE(holds(run.out, "wqevents listen")) << run.out;
    }
}

/* As other programs of a pipeline, by SIGPIPE. */
TEST(Usage, AReaderThatHasGoneEndsTheCommandQuietly) {
    for (const Words& words :
         std::vector<Words>{{"--help"},
                            {"conf", "list", "--conf", WQEVENTS_EXAMPLES "/vortd.conf"},
                            {"status"},
                            {"codepoints", "--help"}}) {
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        close(ends[0]);
        SubprocessOptions options;
        options.output = ends[1];
        const CommandRun run(words, options);
        close(ends[1]);
        EXPECT_EQ(run.status, 128 + SIGPIPE);
        EXPECT_EQ(run.err, "");
    }
}

TEST(Usage, AListenerWhoseReaderHasGoneRemovesItsSocket) {
    const TempDir folder;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    SubprocessOptions options;
    options.output = ends[1];
    ListeningProcess listener({"--socket", folder.path("socket")}, options);
    close(ends[0]);
    close(ends[1]);
    write_all(connected_to(folder.path("socket")), with_header(small_trap()));
    EXPECT_EQ(listener.wait(), 128 + SIGPIPE);
    EXPECT_FALSE(holds(listener.err(), "standard output")) << listener.err();
    EXPECT_FALSE(std::filesystem::exists(folder.path("socket")));
}

TEST(Usage, HelpThatCannotBeWrittenIsAFailure) {
    const Fd full(checked(open("/dev/full", O_WRONLY | O_CLOEXEC), "/dev/full"));
    SubprocessOptions options;
    options.output = full.get();
    const CommandRun run({"--help"}, options);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(holds(run.err, "cannot write to the standard output: No space left")) << run.err;
}

}  // namespace
}  // namespace wq::test
