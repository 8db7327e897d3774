#include "listening_process.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string good =
    "CATEGORY 3 \"Status Events\"\n"
    "CATEGORY 12 \"Power\"\n"
    "ACTION 30 \"page\" /bin/page\nSDESC\nEDESC\n"
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
        EXPECT_EQ(run.err, "wqevents conf check: " + message + "\n");
    }

    TempDir dir_;
    std::string file_ = dir_.path("conf");
};

TEST_F(ConfCheck, CountsWhatIsInTheFile) {
    const CommandRun run = check(good);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "ok: 2 enterprises, 3 traps, 3 categories, 1 actions\n");
    EXPECT_EQ(check("").out, "ok: 0 enterprises, 0 traps, 0 categories, 0 actions\n");
}

TEST_F(ConfCheck, TakesTheUsualFileByItself) {
    SubprocessOptions options;
    options.environment = {{"WQVORTDCONF", dir_.write("conf", good)}};
    EXPECT_EQ(CommandRun({"conf", "check"}, options).out,
              "ok: 2 enterprises, 3 traps, 3 categories, 1 actions\n");
    const CommandRun other({"conf", "check", dir_.write("other", "agent {1.3}\n")}, options);
    EXPECT_EQ(other.out, "ok: 1 enterprises, 0 traps, 1 categories, 0 actions\n");
}

TEST_F(ConfCheck, ShowsTheReadersMessage) {
    expect_failure(check(good + "bad\n"),
                   "Bad name line (matched 1, not 8 tokens)\n\t in line #20 "
                   "of \"" +
                       file_ + "\":\n\tbad.");
    expect_failure(check("ACTION 1 \"a\" c\n"),
                   "End of file in \"" + file_ + "\" prematurely reached after ACTION keyword");
    std::remove(file_.c_str());
    expect_failure(CommandRun({"conf", "check", file_}),
                   "Could not open trap format file \"" + file_ + "\": No such file or directory");
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
    EXPECT_NE(help.out.find("wqevents conf check --expand examples/vortd.conf"), std::string::npos);
    EXPECT_EQ(CommandRun({"conf"}).status, 2);
    EXPECT_EQ(CommandRun({"conf", "check", "a", "b"}).status, 2);
}

TEST_F(ConfCheck, AcceptsTheExample) {
    const CommandRun run({"conf", "check", WQEVENTS_EXAMPLES "/vortd.conf"});
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "ok: 6 enterprises, 100 traps, 10 categories, 4 actions\n");
}

}  // namespace
}  // namespace wq::test
