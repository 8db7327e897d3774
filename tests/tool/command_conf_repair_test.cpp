// wqevents conf repair, and the backup that it takes: what an editor that is killed leaves.
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>

#include "support/lock_holder.h"
#include "support/temp_dir.h"
#include "traced_command.h"

namespace wq::test {
namespace {

const std::string head =
    "#\n# Created by zeltrap at some time by someone\n#\n###################\n#\n# enterprises:\n"
    "#\n###################\n#\n# display categories:\n#\nCATEGORY 9 \"IGNORE\"\n"
    "###################\n#\n# enterprises:\n#\nagent {1.3.6}\n#\n# User added trap formats:\n#\n";

std::string trap(const std::string& name, int number) {
    return name + " {1.3.6} 6 " + std::to_string(number) +
           " A 1 1 \"IGNORE\"\nf\nSDESC\nText.\nEDESC\n";
}

// As a writer that is killed after its mark leaves it.
std::string marked(std::string text) {
    return text.replace(0, 2, "!\n");
}

class ConfRepair : public testing::Test {
  protected:
    CommandRun repair(Words options = {}) const {
        Words words{"conf", "repair", file_, "--no-notify"};
        words.insert(words.end(), options.begin(), options.end());
        return CommandRun(words, options_);
    }
    void expect_repair(const std::string& content, const std::string& told,
                       const Words& options = {}) const {
        const CommandRun run = repair(options);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_TRUE(run.out.starts_with("repaired " + file_ + "\n  " + told)) << run.out;
        EXPECT_EQ(dir_.read("conf"), content);
        EXPECT_EQ(repair().out, "nothing to repair in " + file_ + "\n");
        EXPECT_EQ(dir_.read("conf"), content);
    }
    void expect_refusal(const std::string& told, const Words& options = {}) const {
        const std::string before = dir_.read("conf");
        const CommandRun run = repair(options);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(without_command(run.err).starts_with(file_ + " is not repaired: " + told))
            << run.err;
        EXPECT_EQ(dir_.read("conf"), before);
    }
    // When the file was written last.
    void set_age(const std::string& name, int seconds) const {
        const timespec when{time(nullptr) - seconds, 0};
        const std::array<timespec, 2> times{when, when};
        ASSERT_EQ(utimensat(AT_FDCWD, dir_.path(name).c_str(), times.data(), 0), 0);
    }

    TempDir dir_;
    const std::string old_ = head + trap("old", 1) + trap("other", 2);
    const std::string new_ = head + trap("new", 1) + trap("other", 2);
    std::string file_ = dir_.write("conf", old_);
    SubprocessOptions options_{
        .environment = {{"FERLOD_CONF", dir_.path("ferlod.conf")}, {"LC_ALL", "C"}}};
};

TEST_F(ConfRepair, LeavesAFileThatIsWhole) {
    EXPECT_EQ(repair().status, 0);
    EXPECT_EQ(repair().out, "nothing to repair in " + file_ + "\n");
    EXPECT_EQ(repair({"--dry-run"}).out, "nothing to repair in " + file_ + "\n");
    EXPECT_EQ(dir_.read("conf"), old_);
    dir_.write("conf", old_ + "x\n");
    expect_refusal("its first line is not '!', so it is no text that was not finished:\nBad name");
}

TEST_F(ConfRepair, TakesTheOldTextThatWasKept) {
    for (const std::string& left :
         {marked(old_), marked(new_), marked(new_).substr(0, 300), marked(new_) + old_.substr(200),
          marked(new_) + "\0\0", std::string("!\n")}) {
        dir_.write("conf~", old_);
        dir_.write("conf", left);
        const CommandRun dry = repair({"--dry-run"});
        EXPECT_EQ(dry.status, 0);
        EXPECT_NE(dry.out.find("\n-!\n"), std::string::npos) << dry.out;
        EXPECT_EQ(dir_.read("conf"), left);
        expect_repair(old_, "It has the text of " + file_ + "~, kept at 2");
        EXPECT_EQ(dir_.read("conf~"), old_);
    }
    // The bytes, a comment at their beginning too, and not what the library would write for them.
    const std::string by_hand = "# By hand\nCATEGORY 9 \"IGNORE\"\n# End";
    dir_.write("conf~", by_hand);
    dir_.write("conf", marked(new_));
    expect_repair(by_hand, "It has the text of ");
}

TEST_F(ConfRepair, KeepsTheUnfinishedTextWhenAsked) {
    dir_.write("conf~", old_);
    dir_.write("conf", marked(new_));
    expect_repair(old_, "It has the text of ", {"--backup"});
    EXPECT_EQ(dir_.read("conf.unfinished"), marked(new_));
    EXPECT_EQ(dir_.read("conf~"), old_);
}

TEST_F(ConfRepair, TakesAnOldBackupOnlyByForce) {
    dir_.write("conf~", old_);
    dir_.write("conf", marked(new_));
    set_age("conf", -3600);
    expect_refusal(file_ + "~ was kept at 2");
    EXPECT_NE(repair().err.find("The edits after it would be lost."), std::string::npos);
    expect_repair(old_, "It has the text of ", {"--force"});
}

TEST_F(ConfRepair, TakesNoBackupThatIsNotWhole) {
    dir_.write("conf", marked(new_));
    for (const std::string& backup :
         {std::string(), std::string("#\n"), marked(old_), old_ + "x\n"}) {
        dir_.write("conf~", backup);
        expect_refusal("", {"--force"});
    }
    std::filesystem::remove(dir_.path("conf~"));
    std::filesystem::create_directory(dir_.path("conf~"));
    const CommandRun run = repair({"--force"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(dir_.read("conf"), marked(new_));
}

// A mix of the new text and an end of the old one may be read without an error: nothing in it
// shows.
TEST_F(ConfRepair, PutsTheFirstLineBackOnlyByForce) {
    const std::size_t middle = new_.find("other");
    const std::string mix = new_.substr(0, middle) + old_.substr(middle);
    for (const std::string& text : {old_, new_, mix, head}) {
        dir_.write("conf", marked(text));
        expect_refusal("there is no " + file_ +
                       "~.\nThe text after the first line can be read, but");
        const CommandRun dry = repair({"--force", "--dry-run"});
        EXPECT_NE(dry.out.find("\n-!\n+#\n # Created by"), std::string::npos) << dry.out;
        expect_repair(text, "Its first line is back. The text may be a mix", {"--force"});
    }
}

TEST_F(ConfRepair, NothingPutsBackTheFirstLineOfWhatIsNotWhole) {
    const std::string not_whole = "there is no " + file_ + "~, and the text after the first line ";
    const struct {
        std::string text;
        std::string told;
    } rows[] = {
        {marked(new_) + std::string(10, '\0'), "is not whole: it has NULs"},
        {marked(new_).substr(0, new_.size() - 10), "is not whole:\nEnd of file"},
        {marked(new_).substr(0, new_.find("\nother")),
         "does not begin and end as a written file does"},
        {marked(new_) + old_.substr(old_.size() - 20), "is not whole:\nBad name line"},
        {marked(new_) + trap("new", 3), "is not whole:\nNot loading trap format."},
        {"!\n" + trap("x", 1), "is not whole:\n"},
        {"!\n", "does not begin and end as a written file does"},
        {marked(head + trap("x", 1) + "# more\n"), "does not begin and end as a written file does"},
        {"!\n# By hand\nCATEGORY 9 \"IGNORE\"\n", "does not begin and end as a written file does"},
        {marked(head.substr(0, head.find("agent"))),
         "does not begin and end as a written file does"},
    };
    for (const auto& [text, told] : rows) {
        dir_.write("conf", text);
        expect_refusal(not_whole + told);
        expect_refusal(not_whole + told, {"--force"});
    }
}

// What an editor of an earlier version leaves that is killed before it marks the file.
TEST_F(ConfRepair, CutsTheNulsAfterAWholeText) {
    dir_.write("conf", old_ + std::string(500, '\0'));
    expect_repair(old_, "The NULs at its end are gone.");
    dir_.write("conf", old_.substr(0, old_.size() - 10) + std::string(500, '\0'));
    const CommandRun run = repair();
    EXPECT_EQ(run.status, 1);
}

TEST_F(ConfRepair, ReadersPointToTheRepair) {
    dir_.write("conf", marked(new_));
    for (const Words& words :
         {Words{"conf", "check", file_}, Words{"conf", "list", "--conf", file_},
          Words{"conf", "delete", "old", "--conf", file_, "--no-notify"}}) {
        const CommandRun run(words, options_);
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find("'wqevents conf repair --help'"), std::string::npos) << run.err;
    }
    EXPECT_EQ(dir_.read("conf"), marked(new_));
}

// --- backups ---

TEST_F(ConfRepair, ABackupIsTheOldTextWithTheSamePermissions) {
    const std::string by_hand = "# By hand\n" + old_;
    dir_.write("conf", by_hand);
    dir_.write("conf~", "older");
    ASSERT_EQ(chmod(file_.c_str(), 0640), 0);
    const Words edit{"conf", "delete", "old", "--conf", file_, "--no-notify", "--backup"};
    Words dry = edit;
    dry.emplace_back("--dry-run");
    EXPECT_EQ(CommandRun(dry, options_).status, 0);
    EXPECT_EQ(dir_.read("conf~"), "older");
    EXPECT_EQ(CommandRun(edit, options_).err, "");
    EXPECT_EQ(dir_.read("conf~"), by_hand);
    EXPECT_EQ(dir_.read("conf").find("\nold {"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(stat(dir_.path("conf~").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(CommandRun(edit, options_).status, 1) << "there is no such trap any more";
    EXPECT_EQ(dir_.read("conf~"), by_hand);
    const CommandRun nothing(
        {"conf", "set", "other", "--status", "1", "--conf", file_, "--no-notify", "--backup"},
        options_);
    EXPECT_EQ(nothing.out, "nothing to change in " + file_ + "\n");
    EXPECT_EQ(dir_.read("conf~"), by_hand);
}

TEST_F(ConfRepair, WithoutABackupThereIsNoEdit) {
    std::filesystem::create_directory(dir_.path("conf~"));
    const CommandRun run({"conf", "delete", "old", "--conf", file_, "--no-notify", "--backup"},
                         options_);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(dir_.read("conf"), old_);
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
        ++files;
    }
    EXPECT_EQ(files, 2U) << "no temporary file stays";
}

// --- a killed editor ---

// Killed at each call that changes the file or waits for the disk, it leaves what can be repaired.
TEST_F(ConfRepair, MendsWhatAKilledEditorLeaves) {
    REQUIRE_TRACING();
    bool went_on = true;
    int repaired = 0;
    for (const char* call : {"pwrite64", "fdatasync", "ftruncate", "fallocate"}) {
        for (int n = 1; n <= 5; ++n) {
            dir_.write("conf", old_);
            std::filesystem::remove(dir_.path("conf~"));
            const CommandRun killed = traced_run(
                {"-o", "/dev/null", "-P", file_, "-e",
                 "inject=" + std::string(call) + ":signal=KILL:when=" + std::to_string(n)},
                {"conf", "set", "old", "--description", std::string(3000, 'd'), "--conf", file_,
                 "--no-notify", "--backup"},
                options_);
            went_on = killed.status == 0;
            const std::string left = dir_.read("conf");
            if (CommandRun({"conf", "check", file_}, options_).status == 0) {
                EXPECT_TRUE(left == old_ || left.find("d\nEDESC\nother") != std::string::npos);
                continue;
            }
            ++repaired;
            expect_repair(old_, "");
        }
        EXPECT_TRUE(went_on) << call << ": there are more than 5";
    }
    EXPECT_GT(repaired, 2);
}

}  // namespace
}  // namespace wq::test
