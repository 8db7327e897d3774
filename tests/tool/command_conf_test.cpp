#include "listening_process.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string good =
    "CATEGORY 3 \"Status Events\"\n"
    "CATEGORY 12 \"Power\"\n"
    "ACTION 30 \"page\" echo page\nSDESC\nEDESC\n"
    "agent {1.3.6.1.4.1.8072}\n"
    "ups {1.3.6.1.2.1.33}\n"
    "a {1.3.6.1.4.1.8072} 6 1 A 1 0 \"Power\"\nt\nSDESC\nEDESC\n"
    "b {1.3.6.1.4.1.8072} 6 2 A 1 0 \"Power\"\nt\nSDESC\nEDESC\n"
    "c {1.3.6.1.2.1.33} 6 1 A 1 0 \"IGNORE\"\nt\nSDESC\nEDESC\n";

class ConfCheck : public testing::Test {
  protected:
    CommandRun check(const std::string& content, const Words& options = {}) const {
        Words words{"conf", "check"};
        words.insert(words.end(), options.begin(), options.end());
        words.push_back(dir_.write("conf", content));
        return CommandRun(words);
    }
    void expect_failure(const CommandRun& run, const std::string& message) const {
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(without_command(run.err), message + "\n");
    }

    TempDir dir_;
    std::string file_ = dir_.path("conf");
};

TEST_F(ConfCheck, CountsWhatIsInTheFile) {
    const CommandRun run = check(good);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "ok: 2 enterprises, 3 traps, 2 categories, 1 actions\n");
    EXPECT_EQ(check("").out, "ok: 0 enterprises, 0 traps, 0 categories, 0 actions\n");
}

TEST_F(ConfCheck, TakesTheUsualFileByItself) {
    SubprocessOptions options;
    options.environment = {{"WQVORTDCONF", dir_.write("conf", good)}};
    EXPECT_EQ(CommandRun({"conf", "check"}, options).out,
              "ok: 2 enterprises, 3 traps, 2 categories, 1 actions\n");
    const CommandRun other({"conf", "check", dir_.write("other", "agent {1.3}\n")}, options);
    EXPECT_EQ(other.out, "ok: 1 enterprises, 0 traps, 0 categories, 0 actions\n");
}

TEST_F(ConfCheck, ShowsTheReadersMessage) {
    expect_failure(check(good + "bad\n"),
                   "Bad name line (matched 1, not 8 tokens)\n in line #20 "
                   "of \"" +
                       file_ + "\":\nbad.");
    expect_failure(check("ACTION 1 \"a\" c\n"),
                   "End of file in \"" + file_ + "\" prematurely reached after ACTION keyword");
    std::remove(file_.c_str());
    expect_failure(CommandRun({"conf", "check", file_}),
                   "Could not open trap format file \"" + file_ +
                       "\": No such file or directory\n'wqevents conf init' makes a first one.");
}

TEST_F(ConfCheck, NamesTheFileWhereTheReaderDoesNot) {
    expect_failure(check(std::string(60000, 'x')), file_ + ": Line too long");
    const std::string event = "a {1.3.6.1.2.1.33} 6 1 A 1 0 \"IGNORE\"\n";
    expect_failure(check("ups {1.3.6.1.2.1.33}\n" + event),
                   file_ + ": Did not find an event log format");
    expect_failure(
        check("ups {1.3.6.1.2.1.33}\n" + event + "t\nBEGIN_SLOT_MAPPING\nword\nEND_SLOT_MAPPING\n"),
        file_ + ": a line of a slot mapping has no value");
}

TEST_F(ConfCheck, ReadsNodeListsWhenAsked) {
    const std::string gone = dir_.path("gone");
    const std::string content =
        "ups {1.3.6.1.2.1.33}\na {1.3.6.1.2.1.33} 6 1 A 1 0 \"IGNORE\"\nt\nNODES " + gone +
        "\nSDESC\nEDESC\n";
    EXPECT_EQ(check(content).status, 0);
    expect_failure(check(content, {"--expand"}),
                   file_ + ": Could not open source list file \"" + gone + "\"");
}

TEST_F(ConfCheck, SaysWhatItIsFor) {
    const CommandRun help({"conf", "check", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("wqevents conf check --strict vortd.conf"), std::string::npos);
    EXPECT_EQ(CommandRun({"conf"}).status, 2);
    EXPECT_EQ(CommandRun({"conf", "check", "a", "b"}).status, 2);
}

/* It has commands of a machine room, of which it is told that they are not there. */
TEST_F(ConfCheck, AcceptsTheExample) {
    const CommandRun run({"conf", "check", WQEVENTS_EXAMPLES "/vortd.conf"});
    std::istringstream lines(run.err);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_NE(line.find(": no command '"), std::string::npos) << line;
    }
    EXPECT_EQ(run.out, "ok: 6 enterprises, 100 traps, 10 categories, 4 actions\n");
}

/* --- warnings --- */

const std::string head =
    "CATEGORY 9 \"IGNORE\"\n"
    "agent {1.3.6}\n";

/* A trap with these lines between its event line and its description. */
std::string trap(const std::string& lines, const std::string& numbers = "6 1 A 1 0") {
    return "a {1.3.6} " + numbers + " \"IGNORE\"\n" + lines + "SDESC\n$q\nEDESC\n";
}

TEST_F(ConfCheck, WarnsOfWhatIsProbablyWrong) {
    const std::string list = dir_.write("list", "node\n");
    const std::string program = dir_.write("program", "");
    const std::string gone = dir_.path("gone");
    std::string many;
    for (int i = 0; i < 80; ++i) {
        many += "$A";
    }
    const struct {
        std::string content;
        std::string warnings;  // of the file, each after its name
    } rows[] = {
        {head + trap("f\n"), ""},
        {head + trap("f\n", "6 1 A 5 0"), ""},
        {head + trap("f\n", "6 1 A 6 0"), ":3: trap 'a': the severity 6 is not one of 0 to 5\n"},
        {head + trap("f\n", "6 1 A -1 0"), ":3: trap 'a': the severity -1 is not one of 0 to 5\n"},
        {head + trap("$A$a$C$E$e$G$S$s$c$l$d$T$*$#$1$-2$+3$=4$I5$i6$t7$L8$$x $\\x259 $80\n"), ""},
        {head + trap("5 $ or $( ${x} $; $\n"), ""},
        {head + trap("a $x b\n"),
         ":4: trap 'a': format: $x stands for nothing, and stays as it is\n"},
        {head + trap("$0 $I $t0 $\xc3\xa4\n"),
         ":4: trap 'a': format: $0 has no number from 1 on, and stays as it is\n"
         ":4: trap 'a': format: $I has no number from 1 on, and stays as it is\n"
         ":4: trap 'a': format: $t0 has no number from 1 on, and stays as it is\n"},
        {head + trap("$81 $+81 $80 $1000\n"),
         ":4: trap 'a': format: $81: bindings above 80 cannot be shown\n"
         ":4: trap 'a': format: $+81: bindings above 80 cannot be shown\n"
         ":4: trap 'a': format: $1000: bindings above 80 cannot be shown\n"},
        {head + trap(many.substr(0, 2 * 79) + "\n"), ""},
        {head + trap(many + "\n"),
         ":4: trap 'a': format: only the first 79 arguments are expanded\n"},
        {head + trap(std::string(4094, 'x') + "\n"), ""},
        {head + trap(std::string(4095, 'x') + "\n"),
         ":4: trap 'a': format: is longer than 4094 bytes, and replaced by a message\n"},
        {head + trap("f\nEXEC echo $q\nDISPLAY cat $r\n"),
         ":5: trap 'a': EXEC: $q stands for nothing, and stays as it is\n"
         ":6: trap 'a': DISPLAY: $r stands for nothing, and stays as it is\n"},
        {head + trap("f\nEXEC /bin/sh -c x\nDISPLAY sh|sh\nFORWARD\nNODES n " + list + "\n"), ""},
        {head + trap("f\nEXEC " + gone + " x\nDISPLAY no-such-command\n"),
         ":5: trap 'a': no command '" + gone +
             "' is there\n"
             ":6: trap 'a': no command 'no-such-command' is in PATH\n"},
        {head + trap("f\nEXEC " + program + "\nDISPLAY $1 x\n"),
         ":5: trap 'a': no command '" + program + "' is there\n"},
        {head + trap("f\nFORWARD\nNODES n, " + gone + ",m " + list + "\n"),
         ":6: trap 'a': no list of nodes '" + gone + "' can be read\n"},
        {"# a\nCATEGORY 9 \"IGNORE\"\nACTION 1 \"act\" " + gone + "\nSDESC\nEDESC\nagent {1.3.6}\n",
         ":3: action 'act': no command '" + gone + "' is there\n"},
        {"CATEGORY 9 \"IGNORE\"\nCATEGORY 20 \"IGNORE\"\nCATEGORY 20 \"x\"\n",
         ":2: category 'IGNORE' is in line 1 already\n"
         ":3: category 'x': the number 20 is taken by 'IGNORE'\n"},
    };
    for (const auto& row : rows) {
        std::string expected;
        std::istringstream lines(row.warnings);
        std::size_t count = 0;
        for (std::string line; std::getline(lines, line); ++count) {
            const std::size_t text = line.find(": ") + 2;
            expected += file_ + line.substr(0, text) + "warning: " + line.substr(text) + "\n";
        }
        const CommandRun run = check(row.content);
        EXPECT_EQ(run.status, 0) << row.content;
        EXPECT_EQ(run.err, expected) << row.content;
        EXPECT_TRUE(run.out.starts_with("ok: ")) << row.content;
        const CommandRun strict = check(row.content, {"--strict"});
        EXPECT_EQ(strict.status, count == 0 ? 0 : 1) << row.content;
        EXPECT_EQ(strict.err.find(expected), 0U);
        EXPECT_EQ(strict.out.empty(), count != 0);
        if (count != 0) {
            EXPECT_EQ(without_command(strict.err.substr(expected.size())),
                      std::to_string(count) + (count == 1 ? " warning\n" : " warnings\n"));
        }
    }
}

/* Lines of descriptions and slot mappings are no formats; lines are counted with comments. */
TEST_F(ConfCheck, KnowsWhichLineIsWhat) {
    const CommandRun run = check(
        "CATEGORY 9 \"IGNORE\"\n#\nACTION 1 \"x\" true\nSDESC\nEXEC /gone\nEDESC\n"
        "agent {1.3.6}\n"
        "a {1.3.6} 6 1 A 1 0 \"IGNORE\"\n  # no format\n\tEXEC is the format $q\n"
        "EVENT_CLASS $q\nBEGIN_SLOT_MAPPING\n a $q\nEND_SLOT_MAPPING\n"
        "SDESC\nb {1.3.6} 6 1 A 9 0 \"IGNORE\"\nEXEC /gone\nNODES /gone\nEDESC\n"
        "c {1.3.6} 6 2 A 7 0 \"IGNORE\"\nf\nSDESC\nEDESC");
    EXPECT_EQ(run.err, file_ +
                           ":10: warning: trap 'a': format: $q stands for nothing, and stays as "
                           "it is\n" +
                           file_ + ":20: warning: trap 'c': the severity 7 is not one of 0 to 5\n");
    EXPECT_EQ(run.out, "ok: 1 enterprises, 2 traps, 1 categories, 1 actions\n");
}

}  // namespace
}  // namespace wq::test
