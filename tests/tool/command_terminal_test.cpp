// Whatever a trap, a file, an agent or the command line holds: nothing that the command prints
// steers a terminal, and no line of it is made by others.
#include <arpa/inet.h>

#include "formatting.h"
#include "support/snmp_agent.h"

namespace wq::test {
namespace {

// What could hurt, without a newline: for names in files that are read line by line.
const std::string harm =
    "a\x1B[2J\r\x07\x08\x7F\x01z\xC2\x9B"
    "1m\x9B\xFF\xE6\x97\xED\xA0\x80\xC0\x9B\xE2\x80\xAE\xE2\x80\xA8\xC3\xA9";

// The same with a line that looks like another.
const std::string hostile = harm + "\nFORGED line\n";

// The letter at the end is one.
const std::string harm_shown =
    "a\\x1b[2J\\x0d\\x07\\x08\\x7f\\x01z\\xc2\\x9b1m\\x9b\\xff\\xe6\\x97\\xed\\xa0\\x80\\xc0\\x9b"
    "\\xe2\\x80\\xae\\xe2\\x80\\xa8\xC3\xA9";

bool is_utf8(const std::string& text) {
    try {
        return !Json(text).dump().empty();
    } catch (const Json::type_error&) {
        return false;
    }
}

bool has_control(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        return (c >= 0 && c < ' ' && c != '\t' && c != '\n') || c == '\x7F';
    });
}

bool has_c1(const std::string& text) {
    for (std::size_t at = text.find('\xC2'); at != std::string::npos;
         at = text.find('\xC2', at + 1)) {
        if (static_cast<unsigned char>(text.at(at + 1)) < 0xA0) {
            return true;
        }
    }
    return false;
}

void expect_harmless(const std::string& text) {
    EXPECT_FALSE(has_control(text)) << text;
    EXPECT_TRUE(is_utf8(text)) << text;
    EXPECT_FALSE(has_c1(text)) << text;
    EXPECT_EQ(text.find("\xE2\x80\xAE"), std::string::npos) << text;
    EXPECT_EQ(text.find("\xE2\x80\xA8"), std::string::npos) << text;
    EXPECT_EQ(("\n" + text).find("\nFORGED"), std::string::npos) << text;
    EXPECT_TRUE(text.empty() || text.ends_with('\n')) << text;
}

std::string joined_words(const Words& words) {
    std::string text;
    for (const std::string& word : words) {
        text += " " + word;
    }
    return text;
}

class Terminal : public Formatting {
  protected:
    Terminal() {
        // The names of files hold no '/'.
        file_ = folder_.path(hostile);
    }

    static CommandRun run(const Words& words, SubprocessOptions options = {}) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, joined_words(words));
        CommandRun run(words, options);
        expect_harmless(run.out);
        expect_harmless(run.err);
        return run;
    }

    // Runs that must fail, and tell why.
    static void expect_refusals(const std::vector<Words>& lines, SubprocessOptions options = {}) {
        for (const Words& words : lines) {
            const CommandRun refused = run(words, options);
            EXPECT_NE(refused.status, 0) << joined_words(words);
            EXPECT_NE(refused.err, "") << joined_words(words);
        }
    }

    // A file of the hostile name, in a folder of its own.
    std::string file_of(const std::string& content) {
        const std::string name = std::to_string(++files_);
        std::filesystem::create_directory(folder_.path(name));
        return folder_.write(name + "/" + hostile, content);
    }

    int files_ = 0;
    std::string file_;
};

TEST_F(Terminal, WordsOfTheCommandLine) {
    expect_refusals({
        {hostile},
        {"--" + hostile},
        {"-" + hostile},
        {hostile, "--help"},
        {"conf", hostile},
        {"mib", hostile},
        {"codepoints", hostile},
        {"status", hostile},
        {"status", "--" + hostile},
        {"listen", hostile},
        {"listen", "--udp", hostile},
        {"listen", "--udp", hostile + ":1"},
        {"listen", "--tcp", hostile},
        {"listen", "--raw-tcp", hostile},
        {"listen", "--udp", "0", "--count", hostile},
        {"listen", "--udp", "0", "--idle", hostile},
        {"listen", "--udp", "0", "--format", hostile},
        {"listen", "--socket", "/nowhere/" + hostile},
        {"listen", "--socket", std::string(200, 'x') + hostile},
        {"event", "--to", hostile, "1", "x"},
        {"event", "--to", "local:/nowhere/" + hostile, "1", "x"},
        {"event", "--to", "raw:" + hostile + ":x", "1", "x"},
        {"event", "--to", "auto", hostile, "x"},
        {"event", "--to", "auto", "--source", hostile, "1", "x"},
        {"event", "--to", "auto", "1", "x", hostile},
        {"format", "--kind", hostile, "x"},
        {"names", "x", hostile},
    });
}

TEST_F(Terminal, TrapsAndRequestsOfTheCommandLine) {
    const std::string nowhere = "local:/nowhere/" + hostile;
    expect_refusals({
        {"send", "--to", hostile, "1.3", "6", "1", ""},
        {"send", "--to", nowhere, "1.3", "6", "1", ""},
        {"send", "--to", "auto", "--" + hostile},
        {"send", "--to", "auto", hostile, "6", "1", ""},
        {"send", "--to", "auto", "1.3", hostile, "1", ""},
        {"send", "--to", "auto", "1.3", "6", hostile, ""},
        {"send", "--to", "auto", "1.3", "6", "1", hostile},
        {"send", "--to", "auto", "1.3", "6", "1", "", hostile, "i", "1"},
        {"send", "--to", "auto", "1.3", "6", "1", "", "1.3", hostile, "1"},
        {"send", "--to", "auto", "1.3", "6", "1", "", "1.3", "i"},
        {"send", "--to", "auto", "--agent", hostile, "1.3", "6", "1", ""},
        {"send", "--to", "auto", "--community", hostile + std::string(200, 'x'), "", "6", "1", ""},
        {"send", "--to", "auto", "--repeat", hostile, "1.3", "6", "1", ""},
        {"send", "--to", "auto", "--repeat", "1", "--rate", hostile, "1.3", "6", "1", ""},
        {"send", "--to", "auto", "--hex", file_},
        {"send", "--to", "auto", "--hex", file_of("30 2")},
        {"send", "--to", "auto", "--hex", file_of(hostile)},
        {"send", "--to", "auto", "--hex", file_of("")},
        {"send", "--to", "auto", "--hex", file_of("30"), hostile},
    });
    for (const char* type : {"i", "u", "c", "g", "t", "a", "o", "x", "d"}) {
        expect_refusals({{"send", "--to", "auto", "1.3", "6", "1", "", "1.3", type, hostile},
                         {"set", "127.0.0.1:1", "1.3", type, hostile}});
    }
    for (const char* name : {"get", "next", "walk"}) {
        expect_refusals({
            {name, ":" + hostile, "1.3"},
            {name, "127.0.0.1:" + hostile, "1.3"},
            {name, "127.0.0.1", hostile},
            {name, "127.0.0.1", "1.3", "--timeout", hostile},
            {name, "127.0.0.1", "1.3", "--retries", hostile},
            {name, "127.0.0.1", "1.3", "--community", hostile + std::string(200, 'x')},
            {name, "127.0.0.1", "1.3", "--" + hostile},
        });
    }
    expect_refusals({{"set", "127.0.0.1", hostile, "i", "1"},
                     {"set", "127.0.0.1", "1.3", hostile, "1"},
                     {"set", "127.0.0.1", "1.3", "i"}});
    const EnvValue mib("WQMIBFILE", file_);
    expect_refusals({{"get", "127.0.0.1", "1.3"}, {"walk", "127.0.0.1", "1.3"}});
}

TEST_F(Terminal, FilesOfTraps) {
    const std::string capture = "\xA1\xB2\xC3\xD4" + hostile;
    expect_refusals({{"format", file_}});
    for (const std::string& content :
         {std::string(), hostile, std::string("30 zz"), "\x05" + hostile, capture,
          std::string("\x30\x26\x02\x01"), std::string("\x0A\x0D\x0D\x0A\x01", 5)}) {
        expect_refusals({{"format", file_of(content)}});
    }
    Bytes damaged = formatted_trap(1);
    damaged[23] = 0x05;
    expect_refusals({{"format", file_of({damaged.begin(), damaged.end()})}});
    std::filesystem::create_directory(file_);
    expect_refusals({{"format", file_}, {"names", file_, "check"}, {"conf", "check", file_}});
}

TEST_F(Terminal, Configurations) {
    const std::string trap = folder_.write("trap", to_hex(formatted_trap(4)));
    expect_refusals({{"format", "--conf", file_, trap},
                     {"conf", "check", file_},
                     {"conf", "list", "--conf", file_},
                     {"conf", "list", "--category", hostile},
                     {"conf", "list", "--enterprise", hostile},
                     {"conf", "show", hostile},
                     {"conf", "show", "--conf", file_, "x"},
                     {"conf", "diff", file_, file_},
                     {"conf", "set", hostile, "--severity", "1"},
                     {"conf", "set", "ONE_LINE", "--severity", hostile},
                     {"conf", "set", "ONE_LINE", "--source", hostile},
                     {"conf", "set", "ONE_LINE", "--category", hostile},
                     {"conf", "set", "ONE_LINE", "--enterprise", hostile},
                     {"conf", "set", "ONE_LINE", "--slot", hostile},
                     {"conf", "set", "ONE_LINE", "--node", hostile},
                     {"conf", "set", "ONE_LINE", "--class", hostile},
                     {"conf", "set", "ONE_LINE", "--format", hostile},
                     {"conf", "set", "ONE_LINE", "--exec", hostile},
                     {"conf", "set", "ONE_LINE", "--wait", hostile},
                     {"conf", "set", "ONE_LINE", "--generic", hostile},
                     {"conf", "set", "ONE_LINE", "--description", "EDESC\n" + hostile},
                     {"conf", "set", "--conf", file_, "ONE_LINE", "--status", "1"},
                     {"conf", "delete", hostile},
                     {"conf", "delete", "--conf", file_, "ONE_LINE"},
                     {"conf", "rename", "ONE_LINE", hostile},
                     {"conf", "rename", hostile, "x"}});
    for (const std::string& line :
         {harm, "CATEGORY 64 \"" + harm + "\"", harm + " {1.3} 6 1 A 1 0 \"Status Events\"",
          "x {1.3} 6 1 A 1 0 \"" + harm, "ACTION " + harm}) {
        const std::string wrong = file_of(small_configuration + ("#\n" + line) + "\n");
        const CommandRun checked = run({"conf", "check", wrong});
        EXPECT_NE(checked.out + checked.err, "");
        run({"format", "--conf", wrong, trap});
        run({"conf", "list", "--conf", wrong});
        run({"conf", "delete", "--conf", wrong, "ONE_LINE", "--no-notify"});
    }
}

// A configuration may hold what does harm, and is shown.
TEST_F(Terminal, WhatAConfigurationHolds) {
    std::string name = harm.substr(0, 36);  // as long as a name can be, without its white space
    std::erase(name, '\r');
    const std::string good = file_of(std::string(small_configuration) + "#\n" + name +
                                     " {1.3.6.1.4.1.2} 6 77 A 1 0 \"Status Events\"\nsays " + harm +
                                     "\nEXEC " + harm + "\nSDESC\n" + harm + "\nEDESC\n");
    const std::string plain = folder_.write("plain", small_configuration);
    const CommandRun list = run({"conf", "list", "--conf", good});
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_NE(list.out.find("\\x1b[2J"), std::string::npos) << list.out;
    const CommandRun show = run({"conf", "show", "--conf", good, name});
    EXPECT_EQ(show.status, 0) << show.err;
    const CommandRun diff = run({"conf", "diff", plain, good});
    EXPECT_NE(diff.out.find("says " + harm_shown), std::string::npos) << diff.out;
    const CommandRun raw({"conf", "diff", "--raw", plain, good});
    EXPECT_NE(raw.out.find("says " + harm), std::string::npos);
    for (const Words& edit :
         std::vector<Words>{{"conf", "set", "ONE_LINE", "--format", harm},
                            {"conf", "set", "ONE_LINE", "--description", hostile},
                            {"conf", "set", "ONE_LINE", "--exec", harm},
                            {"conf", "rename", "ONE_LINE", "X\xC3\xA9\x1B"},
                            {"conf", "delete", "THREE_LINES"}}) {
        Words words = edit;
        words.insert(words.end(), {"--conf", good, "--no-notify"});
        run({words});
        words.push_back("--dry-run");
        run({words});
    }
    run({"conf", "delete", "FOR_THE_LOG", "--conf", good});
    const EnvValue alerts("FERLOD_CONF", file_of(hostile));
    run({"conf", "check", plain});
    const CommandRun formatted =
        run({"format", "--conf", plain, folder_.write("t", to_hex(formatted_trap(4)))});
    EXPECT_NE(formatted.err, "");
}

TEST_F(Terminal, NamesAndCodePoints) {
    const std::string names = file_of("1.3.6=\"" + harm + "\"\n");
    expect_refusals({{"names", file_, "check"},
                     {"names", names, "lookup", hostile},
                     {"names", names, "lookup", "1.4"},
                     {"names", names, "find", hostile},
                     {"codepoints", "build", file_, "-o", "/nowhere/x"},
                     {"codepoints", "build", file_of(hostile), "-o", "/nowhere/x"},
                     {"codepoints", "build", file_of("1 1 x\n1 1 y\n"), "-o", "/nowhere/x"},
                     {"codepoints", "build", file_of("1 1 x\n"), "-o", "/nowhere/" + hostile},
                     {"codepoints", "dump", folder_.path("missing" + hostile)},
                     {"codepoints", "dump", file_of(hostile)}});
    EXPECT_EQ(run({"names", names, "lookup", "1.3.6"}).out, harm_shown + "\n");
    // The octets come out of a catalogue as they went in.
    const std::string source = folder_.write("source", "1 0001 a\\\\b" + harm + "\\nc\n");
    const CommandRun built = run({"codepoints", "build", source, "-o", file_});
    EXPECT_EQ(built.status, 0) << built.err;
    const CommandRun dumped = run({"codepoints", "dump", file_});
    EXPECT_EQ(dumped.out, "1 0001 a\\\\b" + harm_shown + "\\nc\n");
    const std::string catalogue = folder_.read(hostile);
    run({"codepoints", "build", folder_.write("source", dumped.out), "-o", file_});
    EXPECT_EQ(folder_.read(hostile), catalogue);
}

TEST_F(Terminal, MibsAndTheState) {
    expect_refusals({{"mib", "compile", hostile},
                     {"mib", "compile", file_},
                     {"mib", "compile", file_of(hostile)},
                     {"mib", "compile", file_of("M DEFINITIONS ::= BEGIN IMPORTS " + harm)},
                     {"mib", "compile", "-I", hostile, "NO-SUCH-MODULE"},
                     {"mib", "compile", "-o", "/nowhere/" + hostile, "SNMPv2-SMI"}});
    const EnvValue pid_file("WQSNMPGLNPIDFILE", hostile);
    EXPECT_EQ(run({"status"}).status, 0);
    const CommandRun json = run({"status", "--json"});
    EXPECT_EQ(Json::parse(json.out)["daemons"].size(), 3U);
}

// Not the network, but what it answers.
TEST_F(Terminal, AnswersOfAgents) {
    const SnmpAgent agent([](const Bytes& request, int) {
        AgentMessage answer = decoded(request);
        answer.info.command = SNMP_GET_RSP;
        for (SnmpVarBindEMS& var : answer.vars) {
            var.type = ASN_OCTETSTR09;
            std::copy(hostile.begin(), hostile.end(), var.val.string);
            var.val_len = static_cast<std::uint32_t>(hostile.size());
        }
        return std::vector<Bytes>{encoded(answer)};
    });
    for (const char* name : {"get", "next"}) {
        const CommandRun asked = run({name, "127.0.0.1", "1.3.6.1.2.1.1.5.0"});
        EXPECT_EQ(asked.status, 0) << asked.err;
        EXPECT_EQ(std::count(asked.out.begin(), asked.out.end(), '\n'), 1) << asked.out;
    }
    run({"set", "127.0.0.1", "1.3.6.1.2.1.1.5.0", "s", hostile});
    run({"walk", "127.0.0.1", "1.3.6.1.2.1.1.5"});
}

TEST_F(Terminal, NamesOfSockets) {
    ListeningProcess listener({"--udp", "127.0.0.1:0"}, {},
                              command_line({"listen", "--socket", folder_.path(hostile)}));
    EXPECT_EQ(listener.terminate(), 0);
    expect_harmless(listener.err());
    EXPECT_NE(listener.err().find("listening on socket " + folder_.path(harm_shown) +
                                  "\\x0aFORGED line\\x0a\n"),
              std::string::npos)
        << listener.err();
}

// A trap whose every text does harm: community, values, and, for the platform's own events, the
// host and the description.
Bytes trap_of(const std::string& text) {
    Trap trap = plain_trap();
    set_community(trap, text);
    set_enterprise(trap, {1, 3, 6, 1, 4, 1, 2});
    trap.info.agent = 0xC0000207;
    trap.info.specific = 1;
    add(trap, string_binding({1, 3, 6, 1}, Bytes(text.begin(), text.end())));
    return encode(trap);
}

std::vector<Bytes> hostile_traps() {
    std::vector<Bytes> all{trap_of(hostile), trap_of("\n" + hostile), trap_of("\t" + harm)};
    for (const std::string& text :
         {hostile, "\n" + hostile, "\t\t\t" + hostile, std::string("\n")}) {
        all.push_back(event_trap(platform_enterprise, 0x03870100, text, text));
    }
    return all;
}

TEST_F(Terminal, TrapsInEveryLayout) {
    std::string digits;
    for (const Bytes& trap : hostile_traps()) {
        digits += to_hex(trap) + "\n";
    }
    const std::string file = folder_.write("traps", digits);
    for (const char* kind : {"vortd", "zleevent", "kmevents", "obu", "prx"}) {
        for (const char* locale : {"C", "C.UTF-8"}) {
            const EnvValue all("LC_ALL", locale);
            const CommandRun lines = run({"format", "--kind", kind, file});
            EXPECT_EQ(lines.status, 0) << lines.err;
            EXPECT_NE(lines.out, "");
        }
    }
}

TEST_F(Terminal, TrapsThatArrive) {
    for (const Words& options : std::vector<Words>{{},
                                                   {"--json"},
                                                   {"--format", "vortd"},
                                                   {"--format", "kmevents"},
                                                   {"--format", "obu"},
                                                   {"--format", "prx"}}) {
        const std::vector<Bytes> traps = hostile_traps();
        Words words = options;
        words.insert(words.end(),
                     {"--raw-tcp", "127.0.0.1:0", "--count", std::to_string(traps.size())});
        ListeningProcess listener(words);
        const Fd peer = connected_to(listener.port("raw-tcp"));
        for (const Bytes& trap : traps) {
            write_all(peer, trap);
        }
        EXPECT_EQ(listener.wait(), 0) << listener.err();
        expect_harmless(listener.out());
        expect_harmless(listener.err());
        if (options == Words{"--json"}) {
            EXPECT_EQ(listener.objects().size(), traps.size());
        }
    }
}

TEST_F(Terminal, AContinuationIsNoFirstLine) {
    const std::string file = folder_.write(
        "event", to_hex(event_trap(platform_enterprise, 0x03870100, "gate\nSun Sep", "one\ntwo")));
    const std::string at = "Sun Nov 22";  // its width counts only
    EXPECT_EQ(run({"format", "--kind", "prx", file}).out, "one\n\ttwo\n");
    const std::string line = run({"format", "--kind", "kmevents", file}).out;
    EXPECT_EQ(line.substr(24), " gate\\x0aSun Sep    N one\n\ttwo\n");
    const std::string daemon = run({"format", file}).out;
    EXPECT_EQ(std::count(daemon.begin(), daemon.end(), '\n'), 2) << daemon;
    EXPECT_EQ(daemon.substr(14 + 24), " gate\\x0aSun Sep              N one\n" +
                                          daemon.substr(0, 14 + 24) +
                                          "  gate\\x0aSun Sep              N two\n");
    EXPECT_EQ(run({"format", "--kind", "obu", file}).out,
              "gate\\x0aSun Sep: one\n\t\t\tgate\\x0aSun Sep: two\n");
}

// Byte for byte what the library makes.
TEST_F(Terminal, RawLinesAreTheLibrarys) {
    const Bytes trap = event_trap(platform_enterprise, 0x03870100, "a\nb", "one" + hostile + "two");
    const std::string expected = "one" + harm + "\nFORGED line\ntwo\n";
    const std::string file = folder_.write("event", to_hex(trap));
    EXPECT_EQ(CommandRun({"format", "--raw", "--kind", "prx", file}).out, expected);
    EXPECT_NE(CommandRun({"format", "--raw", "--kind", "kmevents", file}).out.find(" a\nb "),
              std::string::npos);
    ListeningProcess listener(
        {"--format", "prx", "--raw", "--raw-tcp", "127.0.0.1:0", "--count=1"});
    write_all(connected_to(listener.port("raw-tcp")), trap);
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.out(), expected);
    EXPECT_EQ(CommandRun({"listen", "--udp", "0", "--raw"}).status, 2) << "without --format";
}

TEST_F(Terminal, LettersOfEveryLanguageStay) {
    const std::string text = "\xC3\xA9 \xD7\xA9 \xE6\x97\xA5 \xF0\x9F\x99\x82 \xE2\x80\x8D";
    const std::string file =
        folder_.write("event", to_hex(event_trap(platform_enterprise, 0x03870100, text, text)));
    EXPECT_EQ(run({"format", "--kind", "prx", file}).out, text + "\n");
    EXPECT_EQ(run({"format", "--kind", "obu", file}).out, text + ": " + text + "\n");
    EXPECT_NE(run({"listen", text}).err.find(text), std::string::npos);
}

}  // namespace
}  // namespace wq::test
