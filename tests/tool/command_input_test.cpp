// Files that never end, that fail, that are none, and that are huge: each subcommand says so, and
// soon, in little memory.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "command.h"
#include "formatting.h"
#include "input_file.h"
#include "support/code_points.h"
#include "support/hex.h"

namespace wq::test {
namespace {

// What may be read on every machine, is a regular file by its kind, and fails at the first octet.
constexpr const char* failing_file = "/proc/self/mem";

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string quoted_for_shell(const Words& words) {
    std::string line;
    for (const std::string& word : words) {
        line += "'" + word + "' ";
    }
    return line;
}

// The command with a file for its standard input.
CommandRun run_with_input(const Words& words, const std::string& input) {
    CommandRun run({"--version"});
    Subprocess process({"sh", "-c", quoted_for_shell(command_line(words)) + "<" + input});
    run.status = process.wait();
    run.out = process.out();
    run.err = process.err();
    return run;
}

// The most memory that a process of this test's has taken so far, in KiB.
long peak() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss;
}

constexpr long modest = 400 * 1024;  // the sanitizers' own included

// A catalogue whose texts are one; the sanitizers take their time.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::uint32_t entries = 20;
#else
constexpr std::uint32_t entries = 200;
#endif
constexpr std::size_t text_size = 3'000'000;

class Inputs : public Formatting {
  protected:
    Inputs() {
        mkfifo(folder_.path("fifo").c_str(), 0600);
        trap_ = folder_.write("trap", to_hex(formatted_trap(4)));
    }

    // Every command line that reads a file of that name.
    std::vector<Words> readers_of(const std::string& name) const {
        return {{"format", name},
                {"format", "--conf", name, trap_},
                {"send", "--to", "auto", "--hex", name},
                {"names", name, "check"},
                {"names", name, "lookup", "1.3"},
                {"names", name, "find", "x"},
                {"codepoints", "build", name, "-o", folder_.path("catalogue")},
                {"codepoints", "dump", name},
                {"mib", "compile", name},
                {"conf", "check", name},
                {"conf", "list", "--conf", name},
                {"conf", "show", "--conf", name, "x"},
                {"conf", "diff", name, name},
                {"conf", "set", "x", "--status", "1", "--dry-run", "--conf", name}};
    }

    std::string trap_;
};

TEST(ReadAll, TellsOfAStreamThatFails) {
    const std::unique_ptr<std::FILE, command::CloseFile> failing(std::fopen(failing_file, "r"));
    ASSERT_NE(failing, nullptr);
    EXPECT_THROW(command::read_all(failing.get(), "it"), command::Failure);
}

TEST_F(Inputs, WhatIsNoRegularFileIsRefused) {
    const Fd socket_file(checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    folder_.path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    checked(bind(socket_file.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "bind");
    std::filesystem::create_symlink("/dev/zero", folder_.path("link"));
    const struct {
        std::string name;
        const char* what;
    } rows[] = {
        {"/dev/zero", "it is a device, not a regular file\n"},
        {"/dev/null", "it is a device, not a regular file\n"},
        {folder_.path("link"), "it is a device, not a regular file\n"},
        {folder_.path("fifo"), "it is a pipe, not a regular file\n"},
        {folder_.path("socket"), "it is a socket, not a regular file\n"},
        {folder_.path(), "Is a directory\n"},
    };
    for (const auto& row : rows) {
        for (const Words& words : readers_of(row.name)) {
            const CommandRun run(words);
            EXPECT_EQ(run.status, 1) << words[0] << " " << row.name;
            EXPECT_EQ(run.out, "");
            EXPECT_TRUE(holds(run.err, ": cannot read " + row.name + ": " + row.what)) << run.err;
        }
    }
    EXPECT_LT(peak(), modest);
}

TEST_F(Inputs, FilesThatTheEnvironmentNamesAreLookedAtToo) {
    for (const std::string& name : {std::string("/dev/zero"), folder_.path("fifo")}) {
        const EnvValue conf("WQVORTDCONF", name);
        for (const Words& words : std::vector<Words>{
                 {"format", trap_}, {"listen", "--udp", "0", "--format"}, {"conf", "check"}}) {
            const CommandRun run(words);
            EXPECT_EQ(run.status, 1);
            EXPECT_TRUE(holds(run.err, "cannot read " + name + ": it is a ")) << run.err;
        }
        const EnvValue mib("WQMIBFILE", name);
        for (const Words& words :
             std::vector<Words>{{"get", "127.0.0.1", "1.3"}, {"format", trap_}}) {
            const CommandRun run(words);
            EXPECT_EQ(run.status, 1);
            EXPECT_TRUE(holds(run.err, "cannot read " + name + ": it is a ")) << run.err;
        }
    }
}

TEST_F(Inputs, AFailedReadIsNoEnd) {
    for (const Words& words :
         std::vector<Words>{{"format", failing_file},
                            {"send", "--to", "auto", "--hex", failing_file},
                            {"codepoints", "build", failing_file, "-o", folder_.path("catalogue")},
                            {"codepoints", "dump", failing_file}}) {
        const CommandRun run(words);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(holds(run.err, "cannot read /proc/self/mem: Input/output error\n")) << run.err;
    }
    for (const Words& words :
         std::vector<Words>{{"format", "-"},
                            {"send", "--to", "auto", "--hex", "-"},
                            {"codepoints", "build", "-", "-o", folder_.path("catalogue")}}) {
        const CommandRun run = run_with_input(words, failing_file);
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(holds(run.err, "cannot read -: Input/output error\n")) << run.err;
        const CommandRun folder = run_with_input(words, folder_.path());
        EXPECT_EQ(folder.status, 1);
        EXPECT_TRUE(holds(folder.err, "cannot read -: Is a directory\n")) << folder.err;
        EXPECT_NE(run_with_input(words, "&-").status, 0);
    }
    EXPECT_FALSE(std::filesystem::exists(folder_.path("catalogue")));
}

TEST_F(Inputs, AStreamOfAFailedReadHasAnError) {
    command::Input input(failing_file);
    const command::InputFile stream = input.stream();
    char octet = 0;
    EXPECT_EQ(std::fread(&octet, 1, 1, stream.get()), 0U);
    EXPECT_NE(std::ferror(stream.get()), 0);
}

TEST_F(Inputs, WhatWasPeekedAtIsStillToBeRead) {
    command::Input input(folder_.write("digits", "0123456789"));
    EXPECT_EQ(input.peek(4), "0123");
    EXPECT_EQ(input.peek(2), "01");
    std::array<char, 3> room{};
    EXPECT_EQ(input.read(room), "012");
    EXPECT_EQ(input.peek(3), "345");
    EXPECT_EQ(input.peek(100), "3456789");
    const command::InputFile stream = input.stream();
    std::array<char, 100> rest{};
    EXPECT_EQ(std::fread(rest.data(), 1, rest.size(), stream.get()), 7U);
    EXPECT_STREQ(rest.data(), "3456789");
    EXPECT_EQ(std::ferror(stream.get()), 0);
    EXPECT_EQ(input.peek(1), "");
    EXPECT_EQ(command::Input(folder_.path("digits")).read_all(10), "0123456789");
    EXPECT_THROW(command::Input(folder_.path("digits")).read_all(9), command::Failure);
}

TEST_F(Inputs, AnEndlessStandardInputIsLeftAtTheFirstMistake) {
    const CommandRun format = run_with_input({"format", "-"}, "/dev/zero");
    EXPECT_EQ(format.status, 1);
    EXPECT_EQ(format.err, "wqevents format: -: trap 1: message that is not a BER sequence\n");
    const CommandRun send = run_with_input({"send", "--to", "auto", "--hex", "-"}, "/dev/zero");
    EXPECT_EQ(send.status, 1);
    EXPECT_TRUE(holds(send.err, "-: no pair of hexadecimal digits at position 1;")) << send.err;
    const CommandRun build =
        run_with_input({"codepoints", "build", "-", "-o", folder_.path("catalogue")}, "/dev/zero");
    EXPECT_EQ(build.status, 1);
    EXPECT_EQ(build.err, "wqevents codepoints build: - holds more than 67108864 bytes\n");
    Subprocess yes(
        {"sh", "-c",
         "yes 30 | " + quoted_for_shell(command_line({"send", "--to", "auto", "--hex", "-"}))});
    EXPECT_EQ(yes.wait(), 1);
    EXPECT_TRUE(holds(yes.err(), "- holds more than 8192 octets")) << yes.err();
    EXPECT_LT(peak(), modest);
}

TEST_F(Inputs, HugeFilesTakeLittleMemory) {
    const Bytes trap = formatted_trap(4);
    const std::string huge = folder_.write("huge", std::string(trap.begin(), trap.end()));
    std::filesystem::resize_file(huge, 1ULL << 31);
    const CommandRun run({"format", "--kind", "prx", huge});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "logged\n") << "as far as it is valid";
    EXPECT_EQ(run.err,
              "wqevents format: " + huge + ": trap 2: message that is not a BER sequence\n");
    for (const Words& words :
         std::vector<Words>{{"send", "--to", "auto", "--hex", huge},
                            {"codepoints", "build", huge, "-o", folder_.path("catalogue")},
                            {"codepoints", "dump", huge}}) {
        EXPECT_EQ(CommandRun(words).status, 1);
    }
    EXPECT_LT(peak(), modest);
}

// Entries of a catalogue may share their texts.
TEST_F(Inputs, ACatalogueThatSaysMuchInFewWords) {
    std::string catalogue("codepoint.cat456");
    const auto append = [&catalogue](std::uint32_t number, int octets) {
        for (; octets > 0; --octets, number >>= 8) {
            catalogue.push_back(static_cast<char>(number & 0xFF));
        }
    };
    append(entries, 4);
    append(0, 4);
    for (std::uint32_t i = 0; i < entries; ++i) {
        append(i, 2);
        append(1, 2);
        append(24 + 8 * entries, 4);
    }
    const std::string name =
        folder_.write("catalogue", catalogue.append(text_size, 'x').append(1, '\0'));
    const Fd nowhere(checked(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null"));
    SubprocessOptions options;
    options.output = nowhere.get();
    EXPECT_EQ(CommandRun({"codepoints", "dump", name}, options).status, 0);
    EXPECT_LT(peak(), modest);
}

TEST_F(Inputs, ASourceHasNoMoreLinesThanThereAreCodePoints) {
    std::string source;
    for (int i = 0; i <= 7 * 65535; ++i) {
        source += "1 0\n";
    }
    const CommandRun run(
        {"codepoints", "build", folder_.write("source", source), "-o", folder_.path("catalogue")});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(holds(run.err, ": there are more lines than code points\n")) << run.err;
}

TEST_F(Inputs, FormatGoesOnWithTheNextFile) {
    const std::string broken = folder_.write("broken", to_hex(formatted_trap(4)) + " 30 zz");
    const std::string missing = folder_.path("missing");
    const CommandRun run(
        {"format", "--kind", "prx", missing, trap_, folder_.path("fifo"), broken, trap_});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "logged\nlogged\nlogged\n");
    EXPECT_EQ(run.err, "wqevents format: cannot read " + missing +
                           ": No such file or directory\n"
                           "wqevents format: cannot read " +
                           folder_.path("fifo") +
                           ": it is a pipe, not a regular file\n"
                           "wqevents format: " +
                           broken +
                           ": no pair of hexadecimal digits at position 124; write two digits an "
                           "octet, as 30 2a 02\n");
}

TEST_F(Inputs, PairsOfDigitsMayBeDividedAnywhere) {
    const std::string digits = to_hex(formatted_trap(4));
    command::Octets octets;
    command::HexDecoder decoder("x", " ");
    for (const char c : digits) {
        decoder.decode({&c, 1}, octets);
    }
    decoder.finish();
    EXPECT_EQ(octets, formatted_trap(4));
    const auto refused_at = [](std::initializer_list<std::string_view> pieces) -> std::string {
        command::Octets ignored;
        command::HexDecoder pieced("x", " ");
        try {
            for (const std::string_view piece : pieces) {
                pieced.decode(piece, ignored);
            }
            pieced.finish();
        } catch (const command::UsageError& error) {
            const std::string text = error.what();
            return text.substr(0, text.find(';'));
        }
        return "";
    };
    EXPECT_EQ(refused_at({"3", "0 2", "a"}), "");
    EXPECT_EQ(refused_at({"30 ", "2"}), "x: no pair of hexadecimal digits at position 4");
    EXPECT_EQ(refused_at({"30", " 2", " a"}), "x: no pair of hexadecimal digits at position 4");
    EXPECT_EQ(refused_at({"30", "g"}), "x: no pair of hexadecimal digits at position 3");
}

// A capture that comes through a pipe is printed while it goes on.
TEST_F(Inputs, TheStandardInputIsReadAsItComes) {
    const std::string path = folder_.path("fifo");
    Subprocess format(
        {"sh", "-c",
         quoted_for_shell(command_line({"format", "--kind", "prx", "-"})) + "<" + path});
    const Fd writer(checked(open(path.c_str(), O_WRONLY | O_CLOEXEC), "open"));
    const Bytes trap = formatted_trap(4);
    for (const std::uint8_t octet : trap) {
        write_all(writer, Bytes{octet});
    }
    write_all(writer, Bytes{0x31});
    EXPECT_EQ(format.wait(), 1) << "ended, though the writer has not";
    EXPECT_EQ(format.out(), "logged\n");
}

}  // namespace
}  // namespace wq::test
