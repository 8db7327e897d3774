// Every command line in the README, the docs, the manual page and --help runs, in a sandbox with
// what it names: files, agents and daemons. A line that is new and needs more than that is added to
// one of the tables below.
#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>

#include "captures.h"
#include "command_lines.h"
#include "interop/peer_tools.h"
#include "listening_process.h"
#include "sample_traps.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

namespace fs = std::filesystem;

// --- the tables ---

struct NotRun {
    const char* start;
    const char* reason;
};

constexpr std::array not_run = {
    NotRun{"script/", "the scripts build and test the whole tree, this test among the rest"},
    NotRun{".ci/", "likewise"},
    NotRun{"git config", "it would change the tree's settings"},
    NotRun{"cmake ", "it builds and installs; a test of the installed tree does that"},
    NotRun{"cc program.c", "a test of the installed tree does that"},
    NotRun{"build/examples/", "a test of the examples runs them together"},
};

// What is run instead of a part of a line.
struct Change {
    const char* part;
    const char* instead;
};

constexpr std::array changes = {
    Change{"/tmp/", "./"},                                          // the machine's own
    Change{"--repeat 10000 --rate 500", "--repeat 10 --rate 500"},  // 20 seconds
};

// Lines with this part end with another status than 0.
struct Ending {
    const char* part;
    int status;
};

constexpr std::array endings = {
    Ending{"wqevents get localhost 1.3.6.1.2.1.1.5.0 1.3.6.1.2.1.1.99.0", 1},  // shows the refusal
    Ending{"wqevents conf check --strict vortd.conf", 1},  // the example's commands are not there
};

// What is run before a line.
struct Prelude {
    const char* line;
    const char* script;
};

constexpr std::array preludes = {
    Prelude{"wqevents conf init", "rm /usr/WQ/conf/C/vortd.conf"},
    Prelude{"wqevents codepoints dump codepoint.cat",
            "wqevents codepoints build examples/codepoint.src -o codepoint.cat"},
};

// Programs of others that lines have beside the command, and what stands for them.
struct Stand {
    const char* name;
    const char* script;
};

constexpr std::array stands = {
    Stand{"tcpdump", "exec cat traps.pcap"},
    Stand{"jq", "exec cat"},
    Stand{"xxd", "exec od -An -v -tx1 \"$2\""},
};

constexpr std::array agents = {"10.1.2.3", "192.0.2.7"};

// --- the world ---

void give_address(const std::string& label, const char* address) {
    const Fd sd(checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
    ifreq request{};
    label.copy(request.ifr_name, IFNAMSIZ - 1);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    inet_pton(AF_INET, address, &place.sin_addr);
    std::memcpy(&request.ifr_addr, &place, sizeof place);
    checked(ioctl(sd.get(), SIOCSIFADDR, &request), "address");
}

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// A folder to run in, with every file that a line names, and the platform's folders.
class World {
  public:
    World() {
        const std::string examples = WQEVENTS_EXAMPLES;
        fs::copy(examples, folder_.path("examples"), fs::copy_options::recursive);
        fs::copy(WQEVENTS_TEST_DATA "/mibs", folder_.path("mibs"));
        fs::copy(WQEVENTS_TEST_DATA "/mibs/ACME-MIB.txt", folder_.path("ACME-MIB.txt"));
        const std::string conf = content_of(examples + "/vortd.conf");
        folder_.write("vortd.conf", conf);
        folder_.write("vortd.conf.old", conf);
        const Bytes trap = small_trap();
        folder_.write("trap.bin", std::string(trap.begin(), trap.end()));
        folder_.write("trap.hex", hex_of(trap));
        folder_.write("traps.pcap", capture(1, {{1700000000, ethernet(ipv4(udp(trap)))}}));
        fs::remove_all("/usr/WQ/conf");
        fs::create_directories("/usr/WQ/conf/C");
        fs::create_directories("/usr/WQ/sockets");
        fs::copy(examples + "/vortd.conf", "/usr/WQ/conf/C/vortd.conf");
        fs::copy(examples + "/oid_to_label", "/usr/WQ/conf/oid_to_label");
        fs::create_directory(folder_.path("bin"));
        write_program("wqevents",
                      "[ \"$1\" = listen ] && echo $$ >listener\nexec " WQEVENTS_COMMAND " \"$@\"");
        for (const Stand& stand : stands) {
            write_program(stand.name, stand.script);
        }
    }

    // A shell that runs the line in the folder.
    Words shell(const std::string& line) const {
        return {"sh", "-c", "cd '" + folder_.path() + "' || exit 99\n" + line};
    }
    SubprocessOptions options() const {
        const char* path = std::getenv("PATH");
        return {.environment = {{"PATH", folder_.path("bin") + ":" +
                                             (path == nullptr ? "/usr/bin:/bin" : path)},
                                {"SMIPATH", folder_.path("mibs") + ":/usr/share/snmp/mibs"},
                                {"LC_ALL", "C"}}};
    }
    const TempDir& folder() const { return folder_; }

  private:
    static std::string hex_of(const Bytes& bytes) {
        std::string text;
        for (const std::uint8_t byte : bytes) {
            std::array<char, 4> digits{};
            std::snprintf(digits.data(), digits.size(), "%02x", byte);
            text += digits.data();
        }
        return text + "\n";
    }
    void write_program(const std::string& name, const std::string& script) const {
        const std::string path = folder_.write("bin/" + name, "#!/bin/sh\n" + script + "\n");
        chmod(path.c_str(), 0755);
    }

    TempDir folder_;
};

// What takes traps, wherever lines send them.
std::unique_ptr<ListeningProcess> start_sink(const World& world) {
    return std::make_unique<ListeningProcess>(
        Words{"--udp", "162", "--udp", "1162", "--raw-tcp", "1162", "--socket",
              world.folder().path("traps.socket"), "--socket", "/usr/WQ/sockets/vortd.socket"},
        world.options());
}

// An agent on the ports that lines ask.
std::unique_ptr<Subprocess> start_agent(const World& world) {
    const TempDir& folder = world.folder();
    const std::string file = folder.write("agent.conf",
                                          "view few included .1.3.6.1.2.1.1\n"
                                          "view few included .1.3.6.1.2.1.2\n"
                                          "rocommunity public default -V few\n"
                                          "rocommunity secret default -V few\n"
                                          "rwcommunity private default -V few\n"
                                          "sysservices 72\n");
    SubprocessOptions options = world.options();
    options.environment["SNMP_PERSISTENT_DIR"] = folder.path("state");
    options.environment["MIBS"] = "";
    options.environment["PATH"] += ":/usr/sbin:/sbin";
    auto agent = std::make_unique<Subprocess>(
        Words{"snmpd", "-f", "-C", "-c", file, "-Lo", "udp:161,udp:1161"}, options);
    EXPECT_TRUE(agent->wait_for_out("NET-SNMP version")) << agent->out() << agent->err();
    return agent;
}

// --- running a line ---

bool begins_with_any(const std::string& line, const std::vector<std::string>& starts) {
    return std::ranges::any_of(starts, [&](const std::string& start) {
        return line.find("wqevents " + start + " ") != std::string::npos;
    });
}

const NotRun* why_not_run(const std::string& line) {
    const auto* found = std::ranges::find_if(
        not_run, [&](const NotRun& row) { return line.starts_with(row.start); });
    return found == not_run.end() ? nullptr : found;
}

std::string changed(std::string line) {
    for (const Change& change : changes) {
        for (std::size_t at = 0; (at = line.find(change.part, at)) != std::string::npos;) {
            line.replace(at, std::strlen(change.part), change.instead);
            at += std::strlen(change.instead);
        }
    }
    return line;
}

int expected_status(const std::string& line) {
    for (const Ending& ending : endings) {
        if (line.find(ending.part) != std::string::npos) {
            return ending.status;
        }
    }
    return 0;
}

std::string prelude_of(const std::string& line) {
    for (const Prelude& prelude : preludes) {
        if (line == prelude.line) {
            return std::string(prelude.script) + " >prelude.out 2>&1\n";
        }
    }
    return "";
}

std::size_t places_in(const std::string& line) {
    std::size_t count = 0;
    for (const char* option : {" --udp ", " --tcp ", " --raw-tcp ", " --socket "}) {
        for (std::size_t at = 0; (at = line.find(option, at)) != std::string::npos; ++at) {
            ++count;
        }
    }
    return count;
}

std::size_t count_of(const std::string& part, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

// A listener is ended by SIGTERM once it listens.
void run_listener(const World& world, const CommandLine& line) {
    Subprocess process(world.shell(changed(line.text)), world.options());
    ASSERT_TRUE(process.gather_until([&] {
        return count_of("listening on ", process.err()) >= places_in(line.text);
    })) << line.where
        << ": " << line.text << "\n"
        << process.err();
    kill(std::stoi(world.folder().read("listener")), SIGTERM);
    EXPECT_EQ(process.wait(), 0) << line.where << ": " << line.text << "\n" << process.err();
}

void run_line(const World& world, const CommandLine& line) {
    if (begins_with_any(line.text, {"listen"})) {
        run_listener(world, line);
        return;
    }
    const auto sink = begins_with_any(line.text, {"send", "event"}) ? start_sink(world) : nullptr;
    const bool asks = begins_with_any(line.text, {"get", "next", "set", "walk"});
    if (asks && !is_installed("snmpd")) {
        std::cout << line.where << ": not run, since snmpd is not installed\n";
        return;
    }
    const auto agent = asks ? start_agent(world) : nullptr;
    Subprocess process(world.shell(prelude_of(line.text) + changed(line.text)), world.options());
    EXPECT_EQ(process.wait(), expected_status(line.text)) << line.where << ": " << line.text << "\n"
                                                          << process.out() << process.err();
}

void run_blocks(const std::vector<CommandBlock>& blocks) {
    run_in_sandbox({.services = "snmp 161/udp\nsnmptrap 162/udp\n"}, [&] {
        int label = 0;
        for (const char* address : agents) {
            give_address("lo:" + std::to_string(++label), address);
        }
        for (const CommandBlock& block : blocks) {
            const World world;
            for (const CommandLine& line : block) {
                if (why_not_run(line.text) == nullptr) {
                    SCOPED_TRACE(line.where);
                    run_line(world, line);
                }
            }
        }
    });
}

// --- where lines are found ---

const std::string root = WQEVENTS_TEST_DATA "/..";

std::vector<CommandBlock> blocks_in_markdown() {
    std::vector<CommandBlock> all = markdown_commands(content_of(root + "/README.md"), "README.md");
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(root + "/docs")) {
        if (entry.path().extension() == ".md") {
            names.insert(entry.path().filename());
        }
    }
    for (const std::string& name : names) {
        const auto more = markdown_commands(content_of(root + "/docs/" + name), "docs/" + name);
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

std::vector<CommandBlock> blocks_in_manual() {
    return manual_commands(content_of(root + "/docs/wqevents.1"), "docs/wqevents.1");
}

void add_help(const Words& words, std::vector<CommandBlock>& all) {
    Words asked = words;
    asked.emplace_back("--help");
    const CommandRun help(asked);
    EXPECT_EQ(help.status, 0);
    std::string name = "wqevents";
    for (const std::string& word : asked) {
        name += " " + word;
    }
    const auto more = help_commands(help.out, name);
    all.insert(all.end(), more.begin(), more.end());
    for (const std::string& subcommand : subcommands_in(help.out)) {
        Words deeper = words;
        deeper.push_back(subcommand);
        add_help(deeper, all);
    }
}

std::vector<CommandBlock> blocks_in_help() {
    std::vector<CommandBlock> all;
    add_help({}, all);
    return all;
}

std::size_t lines_in(const std::vector<CommandBlock>& blocks) {
    std::size_t count = 0;
    for (const CommandBlock& block : blocks) {
        count += block.size();
    }
    return count;
}

TEST(CommandLines, OfTheDocsRun) {
    REQUIRE_SANDBOX();
    const auto blocks = blocks_in_markdown();
    EXPECT_GE(lines_in(blocks), 35U) << "the search for lines has lost some";
    run_blocks(blocks);
}

TEST(CommandLines, OfTheManualPageRun) {
    REQUIRE_SANDBOX();
    const auto blocks = blocks_in_manual();
    EXPECT_GE(lines_in(blocks), 8U) << "the search for lines has lost some";
    run_blocks(blocks);
}

TEST(CommandLines, OfHelpRun) {
    REQUIRE_SANDBOX();
    const auto blocks = blocks_in_help();
    EXPECT_GE(lines_in(blocks), 60U) << "the search for lines has lost some";
    run_blocks(blocks);
}

// Every row of the tables is about a line that there is.
TEST(CommandLines, TheTablesAreNotStale) {
    std::vector<CommandBlock> blocks = blocks_in_markdown();
    for (const auto& more : {blocks_in_manual(), blocks_in_help()}) {
        blocks.insert(blocks.end(), more.begin(), more.end());
    }
    const auto contributing = content_of(root + "/CONTRIBUTING.md");
    const auto more = markdown_commands(contributing, "CONTRIBUTING.md");
    blocks.insert(blocks.end(), more.begin(), more.end());
    const auto used = [&](auto matches) {
        return std::ranges::any_of(
            blocks, [&](const CommandBlock& block) { return std::ranges::any_of(block, matches); });
    };
    for (const NotRun& row : not_run) {
        EXPECT_TRUE(used([&](const CommandLine& line) { return why_not_run(line.text) == &row; }))
            << row.start;
    }
    for (const Change& row : changes) {
        EXPECT_TRUE(used([&](const CommandLine& line) {
            return line.text.find(row.part) != std::string::npos;
        })) << row.part;
    }
    for (const Prelude& row : preludes) {
        EXPECT_TRUE(used([&](const CommandLine& line) { return line.text == row.line; }))
            << row.line;
    }
    for (const Ending& row : endings) {
        EXPECT_TRUE(used([&](const CommandLine& line) {
            return line.text.find(row.part) != std::string::npos;
        })) << row.part;
    }
}

TEST(CommandLines, AreFoundInTheirSurroundings) {
    const auto blocks = markdown_commands(
        "Text `wqevents x`.\n\n    wqevents a \\\n        b   # c\n    output\n\n    A=b script/c\n"
        "wqevents no\n```\n$ wqevents d\nwqevents e\n```\n```c\nwqevents f\n```\n"
        "<!-- demo output: begin -->\n```\n$ wqevents g\n```\n<!-- demo output: end -->\n"
        "    wqevents\n",
        "x.md");
    ASSERT_EQ(blocks.size(), 3U);
    ASSERT_EQ(blocks[0].size(), 2U);
    EXPECT_EQ(blocks[0][0].text, "wqevents a \\\n    b   # c");
    EXPECT_EQ(blocks[0][0].where, "x.md:3");
    EXPECT_EQ(blocks[0][1].text, "A=b script/c");
    ASSERT_EQ(blocks[1].size(), 1U);
    EXPECT_EQ(blocks[1][0].text, "wqevents d");
    EXPECT_EQ(blocks[2][0].text, "wqevents");
    const auto manual =
        manual_commands(".nf\nwqevents \\-\\-a \\(aqb\\(aq\nx\n.fi\nwqevents c\n", "y");
    ASSERT_EQ(manual.size(), 1U);
    EXPECT_EQ(manual[0][0].text, "wqevents --a 'b'");
    const auto help =
        help_commands("  wqevents a\n\nExamples:\n  wqevents b \\\n      c\n\n  wqevents d\n", "z");
    ASSERT_EQ(help.size(), 1U);
    ASSERT_EQ(help[0].size(), 1U);
    EXPECT_EQ(help[0][0].text, "wqevents b \\\n    c");
}

}  // namespace
}  // namespace wq::test
