#include <fcntl.h>
#include <sys/stat.h>

#include "captures.h"
#include "formatting.h"
#include "support/hex.h"

namespace wq::test {
namespace {

constexpr std::uint32_t captured_at = 1700000000; /* Tue Nov 14 22:13:20 2023 UTC */

std::string text_of(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Bytes frame_of(const Bytes& trap, std::uint16_t port = 162) {
    return ethernet(ipv4(udp(trap, port)));
}

std::string capture_of(const std::vector<Bytes>& traps) {
    std::vector<CaptureFrame> frames;
    for (const Bytes& trap : traps) {
        frames.push_back({captured_at, frame_of(trap)});
    }
    return capture(link_ethernet, frames);
}

class Format : public Formatting {
  protected:
    static CommandRun format(const Words& words, const std::string& input = "") {
        Words all{"format"};
        all.insert(all.end(), words.begin(), words.end());
        SubprocessOptions options;
        options.input = input;
        return CommandRun(all, options);
    }

    /* What is printed for a file of that content, as text of each trap only. */
    std::string lines_of(const std::string& content) {
        const CommandRun run = format({"--kind", "prx", folder_.write("traps", content)});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        return run.out;
    }
};

TEST_F(Format, EachKindHasItsLayout) {
    const struct {
        Words kind;
        const char* text;
    } rows[] = {
        {{},
         "1700000000 3  Tue Nov 14 22:13:20 2023 192.0.2.7                 A "
         "one 6/1 of public from 192.0.2.7: hi\n"
         "1700000000 2  Tue Nov 14 22:13:20 2023 192.0.2.7                 D first of public\n"
         "1700000000 2  Tue Nov 14 22:13:20 2023  192.0.2.7                 D second of 0\n"
         "1700000000 2  Tue Nov 14 22:13:20 2023  192.0.2.7                 D third\n"
         "1700000000 7  Tue Nov 14 22:13:20 2023 192.0.2.7                 A logged\n"},
        {{"--kind", "vortd"},
         "1700000000 3  Tue Nov 14 22:13:20 2023 192.0.2.7                 A "
         "one 6/1 of public from 192.0.2.7: hi\n"
         "1700000000 2  Tue Nov 14 22:13:20 2023 192.0.2.7                 D first of public\n"
         "1700000000 2  Tue Nov 14 22:13:20 2023  192.0.2.7                 D second of 0\n"
         "1700000000 2  Tue Nov 14 22:13:20 2023  192.0.2.7                 D third\n"
         "1700000000 7  Tue Nov 14 22:13:20 2023 192.0.2.7                 A logged\n"},
        {{"--kind", "zleevent"},
         "Tue Nov 14 22:13:20 2023 192.0.2.7       A one 6/1 of public from 192.0.2.7: hi\n"
         "Tue Nov 14 22:13:20 2023 192.0.2.7       D first of public\n"
         "\tsecond of 0\n"
         "\tthird\n"},
        {{"--kind", "kmevents"},
         "Tue Nov 14 22:13:20 2023 192.0.2.7       A one 6/1 of public from 192.0.2.7: hi\n"
         "Tue Nov 14 22:13:20 2023 192.0.2.7       D first of public\n"
         "\tsecond of 0\n"
         "\tthird\n"
         "Tue Nov 14 22:13:20 2023 192.0.2.7       A logged\n"},
        {{"--kind", "obu"},
         "192.0.2.7: one 6/1 of public from 192.0.2.7: hi\n"
         "192.0.2.7: first of public\n"
         "\t\t\t192.0.2.7: third\n"
         "192.0.2.7: logged\n"},
        {{"--kind", "prx"},
         "one 6/1 of public from 192.0.2.7: hi\n"
         "first of public\n"
         "\tsecond of 0\n"
         "\tthird\n"
         "logged\n"},
    };
    const std::string file = folder_.write(
        "traps.pcap",
        capture_of({from_nowhere(string_trap({'h', 'i'})), formatted_trap(2), formatted_trap(4)}));
    for (const auto& row : rows) {
        Words words = row.kind;
        words.push_back(file);
        const CommandRun run = format(words);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, row.text);
    }
}

TEST_F(Format, TellsOfAlertsThatCannotBeReadAndGoesOn) {
    const std::string trap = folder_.write("traps", capture_of({from_nowhere(small_trap(1))}));
    const EnvValue alerts("FERLOD_CONF", folder_.write("ferlod.conf", "no name line\n"));
    const CommandRun run = format({"--kind", "prx", trap});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(holds(run.err, "Bad name line in line #1 of ")) << run.err;
    EXPECT_TRUE(holds(run.out, "one 6/1 of public")) << run.out;
}

TEST_F(Format, TakesEveryKindOfFile) {
    const Bytes trap = formatted_trap(1);
    const std::string line =
        "one 6/1 of public from 192.0.2.7: FMT ERROR: accessing element #1, "
        "only 0 available\n";
    EXPECT_EQ(lines_of(to_hex(trap)), line);
    EXPECT_EQ(lines_of(to_hex(trap) + "\r\n\t" + to_hex(trap) + "\n"), line + line);
    EXPECT_EQ(lines_of(text_of(trap)), line);
    EXPECT_EQ(lines_of(text_of(repeated(trap, 3))), line + line + line);
    EXPECT_EQ(lines_of(capture_of({trap, trap})), line + line);
}

TEST_F(Format, TakesSeveralFilesAndTheStandardInput) {
    const std::string two = folder_.write("two", to_hex(formatted_trap(2)));
    const std::string four = folder_.write("four", text_of(formatted_trap(4)));
    const std::string text = "first of public\n\tsecond of 0\n\tthird\n";
    for (const std::string& input :
         {capture_of({formatted_trap(2)}), to_hex(formatted_trap(2)), text_of(formatted_trap(2))}) {
        const CommandRun run = format({"--kind", "prx", four, "-", two}, input);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, "logged\n" + text + text);
    }
}

TEST_F(Format, HexAndEncodedTrapsTellThePresentTime) {
    const std::time_t before = std::time(nullptr);
    const CommandRun run = format({"-"}, to_hex(formatted_trap(4)));
    const std::time_t shown = std::stoll(run.out);
    EXPECT_GE(shown, before);
    EXPECT_LE(shown, std::time(nullptr));
}

TEST_F(Format, EveryLinkOfACaptureIsRead) {
    const Bytes packet = ipv4(udp(formatted_trap(4)));
    const struct {
        std::uint32_t link;
        Bytes frame;
    } rows[] = {
        {link_ethernet, ethernet(packet)},
        {link_ethernet, ethernet(vlan(packet), 0x8100)},
        {link_ethernet, ethernet(ipv6(udp(formatted_trap(4))), 0x86DD)},
        {link_raw, packet},
        {link_cooked, cooked(packet)},
        {link_cooked_v2, cooked_v2(packet)},
        {link_loopback, joined({{2, 0, 0, 0}, packet})},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(lines_of(capture(row.link, {{captured_at, row.frame}})), "logged\n") << row.link;
    }
}

TEST_F(Format, TellsWhatItSkipsOfACapture) {
    const Bytes trap = formatted_trap(4);
    const std::string file = folder_.write(
        "mixed.pcap",
        capture(link_ethernet, {{captured_at, ethernet(ipv4(udp(trap), 0x2000))},
                                {captured_at, ethernet(ipv4(udp(trap), 0x0003))},
                                {captured_at, frame_of({'n', 'o', ' ', 't', 'r', 'a', 'p'})},
                                {captured_at, frame_of({'n', 'o', ' ', 't', 'r', 'a', 'p'}, 53)},
                                {captured_at, frame_of(trap, 16200)},
                                {captured_at, ethernet(ipv4(udp(trap), 0, 6))}}));
    const CommandRun run = format({"--kind", "prx", file});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "logged\n");
    EXPECT_EQ(run.err, "wqevents format: " + file + ": skipped fragments of IP packets: 2\n" +
                           "wqevents format: " + file +
                           ": skipped datagrams to port 162 that are no SNMPv1 trap: 1\n");
    const CommandRun cut = format(
        {folder_.write("cut.pcap", capture(link_ethernet, {{captured_at, frame_of(trap)}}, 60))});
    EXPECT_EQ(cut.status, 0);
    EXPECT_EQ(cut.out, "");
    EXPECT_TRUE(holds(cut.err, "cut.pcap: skipped packets that are cut short: 1\n")) << cut.err;
}

TEST_F(Format, UsesTheConfigurationThatItIsGiven) {
    const std::string file = folder_.write("other.conf",
                                           "CATEGORY 3 \"Status Events\"\n"
                                           "#\n"
                                           "small {1.3.6.1.4.1.2}\n"
                                           "#\n"
                                           "OTHER {1.3.6.1.4.1.2} 6 1 A 1 0 \"Status Events\"\n"
                                           "another text\n"
                                           "SDESC\n"
                                           "EDESC\n");
    const CommandRun run =
        format({"--conf", file, "--kind", "prx", "-"}, to_hex(formatted_trap(1)));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "another text\n");
}

TEST_F(Format, NamesComeFromTheConfigurationDirectory) {
    folder_.write("oid_to_label", "1.3.6=\"dod\"\n");
    const CommandRun run = format({"--kind", "prx", "-"}, to_hex(named_trap()));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "dod\n");
}

/* linkDown of net-snmp with ifIndex.3, ifAdminStatus.3 and ifOperStatus.3. */
TEST_F(Format, TheExampleSaysWhatAnOperatorNeeds) {
    const EnvValue directory("WQCONFDIR", WQEVENTS_EXAMPLES);
    Trap trap = plain_trap();
    set_enterprise(trap, {1, 3, 6, 1, 4, 1, 8072});
    trap.info.agent = 0xC0000207;
    trap.info.gen = LINK_DOWN;
    trap.info.specific = 0;
    add(trap, number_binding({1, 3, 6, 1, 2, 1, 2, 2, 1, 1, 3}, ASN_INTEGER09, 3));
    add(trap, number_binding({1, 3, 6, 1, 2, 1, 2, 2, 1, 7, 3}, ASN_INTEGER09, 1));
    add(trap, number_binding({1, 3, 6, 1, 2, 1, 2, 2, 1, 8, 3}, ASN_INTEGER09, 2));
    const CommandRun run = format({"--conf", WQEVENTS_EXAMPLES "/vortd.conf", "--kind", "prx", "-"},
                                  to_hex(encode(trap)));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "Interface 3 of 192.0.2.7 is down: administratively up, in operation down\n");
}

TEST_F(Format, TrapsOfNoFormatAreTold) {
    const CommandRun run = format({"--kind", "prx", "-"}, to_hex(formatted_trap(77)));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "NO FMT IN VORTD.CONF: small (1.3.6.1.4.1.2) generic:6 specific:77 "
              "args(0): \n");
}

TEST_F(Format, HiddenTrapsAreCounted) {
    const CommandRun run =
        format({"--kind", "prx", "-"},
               to_hex(formatted_trap(3)) + to_hex(formatted_trap(4)) + to_hex(formatted_trap(3)));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "logged\n");
    EXPECT_EQ(run.err, "wqevents format: traps that are not to be shown: 2\n");
}

/* A trap has 65536 bytes of text at most, of which the last 100 take no further line. */
TEST_F(Format, LongTextsAreCut) {
    std::string format_line;
    for (int i = 0; i < 1360; ++i) {
        format_line += "x\\n";
    }
    folder_.write("C/vortd.conf", std::string("CATEGORY 3 \"Status Events\"\n#\n")
                                      .append("small {1.3.6.1.4.1.2}\n#\n")
                                      .append("LONG {1.3.6.1.4.1.2} 6 1 A 1 0 \"Status Events\"\n")
                                      .append(format_line)
                                      .append("\nSDESC\nEDESC\n"));
    const CommandRun run = format({"-"}, to_hex(formatted_trap(1)));
    EXPECT_EQ(run.status, 0);
    // 69 bytes for the first line, 70 for each further one.
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 935);
    EXPECT_EQ(run.err, "wqevents format: -: trap 1: the text is cut short\n");
}

TEST_F(Format, GoesOnBehindATrapThatDoesNotDecode) {
    Bytes damaged = formatted_trap(1);
    damaged[23] = 0x05; /* the agent's address is a NULL */
    const std::string file = folder_.write("traps", to_hex(damaged) + to_hex(formatted_trap(4)));
    const CommandRun run = format({"--kind", "prx", file});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "logged\n");
    EXPECT_TRUE(holds(run.err, "wqevents format: " + file +
                                   ": trap 1: the trap does not decode: agent address\n"))
        << run.err;
    EXPECT_TRUE(holds(run.err, "wqevents format: traps that do not decode: 1\n")) << run.err;
}

TEST_F(Format, SaysWhatIsWrongWithAFile) {
    const std::string trap = text_of(formatted_trap(4));
    const std::string hex = to_hex(formatted_trap(4));
    std::string damaged_capture = capture_of({formatted_trap(4), formatted_trap(4)});
    damaged_capture.pop_back();
    const struct {
        std::string content;
        std::string printed;
        const char* message;
    } rows[] = {
        {"", "", " holds no trap"},
        {" \n", "", " holds no trap"},
        {"30 2", "", ": no pair of hexadecimal digits at position 4"},
        {"30 zz", "", ": no pair of hexadecimal digits at position 4"},
        {hex.substr(0, hex.size() - 3), "", ": trap 1: it does not end"},
        {trap + trap.substr(0, 39), "logged\n", ": trap 2: it does not end"},
        {trap + "\x05\x01", "logged\n", ": trap 2: message that is not a BER sequence"},
        {"\x05\x01 not a trap", "", ": trap 1: message that is not a BER sequence"},
        {capture(link_ethernet, {}).substr(0, 10), "", "cannot read "},
        {capture(105, {}), "", "its frames are of a kind that carries no trap: 802.11"},
        {capture(59999, {}), "", "its frames are of a kind that carries no trap: type 59999"},
        {damaged_capture, "logged\n", "cannot read "},
    };
    for (const auto& row : rows) {
        const std::string file = folder_.write("file", row.content);
        const CommandRun run = format({"--kind", "prx", file});
        EXPECT_EQ(run.status, 1) << row.message;
        EXPECT_EQ(run.out, row.printed) << row.message;
        EXPECT_TRUE(holds(run.err, row.message)) << run.err;
        EXPECT_TRUE(holds(run.err, file)) << run.err;
    }
}

TEST_F(Format, FilesThatCannotBeReadAreFailures) {
    const std::string good = folder_.write("good", to_hex(formatted_trap(4)));
    const struct {
        std::string name;
        const char* reason;
    } rows[] = {
        {folder_.path("missing"), "No such file or directory"},
        {folder_.path(), "Is a directory"},
    };
    for (const auto& row : rows) {
        const CommandRun run = format({"--kind", "prx", good, row.name});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "logged\n");
        EXPECT_EQ(run.err, "wqevents format: cannot read " + row.name + ": " + row.reason + "\n");
    }
}

TEST_F(Format, AConfigurationThatCannotBeReadIsAFailure) {
    const std::string traps = folder_.write("traps", to_hex(formatted_trap(4)));
    const CommandRun missing = format({"--conf", folder_.path("missing"), traps});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "wqevents format: Could not open trap format file \"" +
                               folder_.path("missing") + "\": No such file or directory\n");
    const CommandRun wrong =
        format({"--conf", folder_.write("wrong", "CATEGORY 64 \"Beyond\"\n"), traps});
    EXPECT_EQ(wrong.status, 1);
    EXPECT_EQ(wrong.err, "wqevents format: Bad category number (must be < 64) in line #1 of \"" +
                             folder_.path("wrong") + "\":\n\tCATEGORY 64 \"Beyond\".\n");
    const EnvValue mib("WQMIBFILE", folder_.path("missing.txt"));
    const CommandRun no_mib = format({traps});
    EXPECT_EQ(no_mib.status, 1);
    EXPECT_EQ(no_mib.err,
              "wqevents format: cannot read the MIB file '" + folder_.path("missing.txt") + "'\n");
}

TEST_F(Format, WrongCommandLines) {
    const struct {
        Words words;
        const char* part;
    } rows[] = {
        {{}, "wqevents format: FILE is required"},
        {{"--kind", "daemon", "f"},
         "there is no kind of layout 'daemon'; there are vortd, zleevent, kmevents, obu, prx"},
    };
    for (const auto& row : rows) {
        const CommandRun run = format(row.words);
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(holds(run.err, row.part)) << run.err;
    }
}

TEST_F(Format, AClosedOutputIsAFailure) {
    const Fd full(checked(open("/dev/full", O_WRONLY | O_CLOEXEC), "/dev/full"));
    SubprocessOptions options;
    options.output = full.get();
    const CommandRun run({"format", folder_.write("t", to_hex(formatted_trap(4)))}, options);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(holds(run.err, "cannot write to the standard output: No space left")) << run.err;
}

}  // namespace
}  // namespace wq::test
