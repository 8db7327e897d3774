#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include "listening_process.h"
#include "support/lock_holder.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string banner =
    "###################\n#\n# enterprises:\n#\n"
    "###################\n#\n# display categories:\n#\n";

/* What follows the categories, up to the traps. */
const std::string enterprises =
    "###################\n#\n# enterprises:\n#\n"
    "ups {1.3.6.1.2.1.33}\n"
    "agent {1.3.6.1.4.1.8072}\n"
    "#\n# User added trap formats:\n#\n";

/* All standard ones, of which the reader adds one to a file without. */
const std::string categories =
    "CATEGORY 0 \"Threshold Events\"\n"
    "CATEGORY 1 \"Network Topology Events\"\n"
    "CATEGORY 2 \"Error Events\"\n"
    "CATEGORY 3 \"Status Events\"\n"
    "CATEGORY 4 \"Node Configuration Events\"\n"
    "CATEGORY 5 \"Application Alert Events\"\n"
    "CATEGORY 7 \"LOGONLY\"\n"
    "CATEGORY 9 \"IGNORE\"\n"
    "CATEGORY 12 \"Power\"\n";

const std::string up =
    "up {1.3.6.1.4.1.8072} 6 1 A 1 0 \"Status Events\"\n"
    "$A is up\n"
    "SDESC\n"
    "EDESC\n";

const std::string down_on_core =
    "downCore {1.3.6.1.4.1.8072} 6 2 A 4 1 \"Status Events\"\n"
    "$A is down\n"
    "EXEC /bin/page $A\n"
    "DISPLAY show $A\n"
    "FORWARD\n"
    "NODES core1 core2\n"
    "EVENT_CLASS Down\n"
    "BEGIN_SLOT_MAPPING\n"
    " host $A\n"
    " text it is down\n"
    "END_SLOT_MAPPING\n"
    "SDESC\n"
    "A core node.\n"
    "EDESC\n";

const std::string down =
    "down {1.3.6.1.4.1.8072} 6 2 A 5 1 \"Status Events\"\n"
    "$A is down\n"
    "SDESC\n"
    "EDESC\n";

const std::string battery =
    "battery {1.3.6.1.2.1.33} 6 1 a 5 1 \"Power\"\n"
    "on battery\n"
    "SDESC\n"
    "EDESC\n";

std::string file_of(const std::vector<std::string>& traps) {
    std::string text =
        std::string("#\n# Created by zeltrap at some time by someone\n#\n").append(banner);
    text.append(categories).append(enterprises);
    for (const std::string& trap : traps) {
        text.append(trap);
    }
    return text;
}

/* Without the line that names the time. */
std::string timeless(std::string text) {
    const std::size_t begin = text.find("# Created by");
    if (begin != std::string::npos) {
        text.erase(begin, text.find('\n', begin) + 1 - begin);
    }
    return text;
}

/* The lines of a difference that go or come, but for the one that names the time. */
std::string changes_in(const std::string& difference) {
    std::string changes;
    std::istringstream lines(difference);
    for (std::string line; std::getline(lines, line);) {
        const bool changes_a_line = (line[0] == '-' || line[0] == '+') &&
                                    !line.starts_with("--- ") && !line.starts_with("+++ ");
        if (changes_a_line && line.find("# Created by") != 1) {
            changes.append(line).append("\n");
        }
    }
    return changes;
}

class ConfEdit : public testing::Test {
  protected:
    CommandRun conf(Words words) const {
        words.insert(words.begin(), "conf");
        return CommandRun(words, options_);
    }
    /* An edit of the file, without a word to a daemon. */
    CommandRun edit(Words words) const {
        words.insert(words.end(), {"--conf", file_, "--no-notify"});
        return conf(words);
    }
    void expect_edit(const Words& words, const std::string& printed,
                     const std::vector<std::string>& traps) const {
        const CommandRun run = edit(words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, printed);
        EXPECT_EQ(timeless(dir_.read("conf")), timeless(file_of(traps)));
    }
    void expect_refusal(const Words& words, const std::string& message, int status = 1) const {
        const std::string before = dir_.read("conf");
        const CommandRun run = edit(words);
        EXPECT_EQ(run.status, status) << message;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(without_command(run.err), std::string(message).append("\n"));
        EXPECT_EQ(dir_.read("conf"), before) << message;
    }
    void put_alert(const std::string& text) { dir_.write("ferlod.conf", text); }

    TempDir dir_;
    std::string file_ = dir_.write("conf", file_of({battery, up, down_on_core, down}));
    SubprocessOptions options_{
        .environment = {{"FERLOD_CONF", dir_.path("ferlod.conf")}, {"LC_ALL", "C"}}};
};

TEST_F(ConfEdit, ListsTheTraps) {
    const CommandRun all = conf({"list", "--conf", file_});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.err, "");
    EXPECT_EQ(all.out,
              "NAME      ENTERPRISE  GENERIC  SPECIFIC  SEVERITY       CATEGORY\n"
              "battery   ups         6        1         Major          Power\n"
              "up        agent       6        1         Indeterminate  Status Events\n"
              "downCore  agent       6        2         Critical       Status Events\n"
              "down      agent       6        2         Major          Status Events\n");
    const std::string power =
        "NAME     ENTERPRISE  GENERIC  SPECIFIC  SEVERITY  CATEGORY\n"
        "battery  ups         6        1         Major     Power\n";
    EXPECT_EQ(conf({"list", "--conf", file_, "--category", "Power"}).out, power);
    EXPECT_EQ(conf({"list", "--conf", file_, "--enterprise", "ups"}).out, power);
    EXPECT_EQ(conf({"list", "--conf", file_, "--enterprise", ".1.3.6.1.2.1.33"}).out, power);
    EXPECT_EQ(conf({"list", "--conf", file_, "--enterprise", "agent", "--category", "Power"}).out,
              "NAME  ENTERPRISE  GENERIC  SPECIFIC  SEVERITY  CATEGORY\n");
}

TEST_F(ConfEdit, TakesTheUsualFileByItself) {
    options_.environment["WQVORTDCONF"] = file_;
    EXPECT_EQ(conf({"list"}).out, conf({"list", "--conf", file_}).out);
    EXPECT_EQ(conf({"delete", "up", "--no-notify"}).status, 0);
    EXPECT_EQ(timeless(dir_.read("conf")), timeless(file_of({battery, down_on_core, down})));
}

TEST_F(ConfEdit, RefusesToListWhatIsNotThere) {
    const struct {
        Words words;
        std::string message;
    } rows[] = {
        {{"list", "--enterprise", "none"},
         "no enterprise 'none' is configured; 'wqevents conf enterprise add' makes one"},
        {{"list", "--enterprise", "1.3.6.1"},
         "no enterprise '1.3.6.1' is configured; 'wqevents conf enterprise add' makes one"},
        {{"list", "--enterprise", "1.3.6.1.4.1.8072.1"},
         "no enterprise '1.3.6.1.4.1.8072.1' is configured; 'wqevents conf enterprise add' makes "
         "one"},
        {{"list", "--category", "IGNORE EVENTS"},
         "no category 'IGNORE EVENTS' is configured; 'wqevents conf category add' makes one"},
        {{"show", "other"},
         "no trap 'other' is configured in " + file_ + "; 'wqevents conf add' makes one"},
    };
    for (auto row : rows) {
        row.words.insert(row.words.end(), {"--conf", file_});
        const CommandRun run = conf(row.words);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(without_command(run.err), std::string(row.message).append("\n"));
    }
}

/* What is behind a line that is too long would not be seen, and lost by an edit. */
TEST_F(ConfEdit, TakesNoFileInPart) {
    dir_.write("conf", file_of({battery}).append(60000, 'x').append("\n").append(up));
    expect_refusal({"delete", "battery"}, file_ + ": Line too long");
    EXPECT_EQ(without_command(conf({"list", "--conf", file_}).err), file_ + ": Line too long\n");
}

TEST_F(ConfEdit, ShowsATrap) {
    const CommandRun run = conf({"show", "--conf", file_, "downCore"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, std::string("agent {1.3.6.1.4.1.8072}\n").append(down_on_core));
}

TEST_F(ConfEdit, AddsATrap) {
    expect_edit(
        {"add", "warm", "--enterprise", "agent", "--specific", "0", "--generic", "1", "--category",
         "IGNORE", "--format", "$A (warm) [x]"},
        "added 'warm' in " + file_ + "\n",
        {battery, "warm {1.3.6.1.4.1.8072} 1 0 A 1 1 \"IGNORE\"\n$A (warm) [x]\nSDESC\nEDESC\n", up,
         down_on_core, down});
}

TEST_F(ConfEdit, AddsEveryField) {
    expect_edit({"add",          "full",
                 "--enterprise", "1.3.6.1.2.1.33",
                 "--specific",   "9",
                 "--category",   "Power",
                 "--format",     "f",
                 "--severity",   "major",
                 "--status",     "-3",
                 "--source",     "z",
                 "--exec",       "/bin/x \"$1\"",
                 "--display",    "[d,e]",
                 "--forward",    "--node",
                 "n1",           "--node",
                 "[n2]",         "--class",
                 "C D ",         "--slot",
                 "a=b = c",      "--slot",
                 "d=[e]",        "--description",
                 "one\n\nthree"},
                "added 'full' in " + file_ + "\n",
                {battery,
                 "full {1.3.6.1.2.1.33} 6 9 z 5 -3 \"Power\"\n"
                 "f\n"
                 "EXEC /bin/x \"$1\"\n"
                 "DISPLAY [d,e]\n"
                 "FORWARD\n"
                 "NODES n1 [n2]\n"
                 "EVENT_CLASS C D \n"
                 "BEGIN_SLOT_MAPPING\n"
                 " a b = c\n"
                 " d [e]\n"
                 "END_SLOT_MAPPING\n"
                 "SDESC\n"
                 "one\n\nthree\n"
                 "EDESC\n",
                 up, down_on_core, down});
}

TEST_F(ConfEdit, AddsAnEnterprise) {
    const CommandRun run =
        edit({"add", "x", "--enterprise", ".1.3.6.1.4.1.9", "--new-enterprise", "nine",
              "--specific", "1", "--category", "Power", "--format", "f"});
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(dir_.read("conf").find("}\nnine {1.3.6.1.4.1.9}\nagent {"), std::string::npos);
    EXPECT_NE(dir_.read("conf").find("\nx {1.3.6.1.4.1.9} 6 1 A 1 1 \"Power\"\n"),
              std::string::npos);
    EXPECT_EQ(edit({"add", "x2", "--enterprise", ".1.3.6.1.4.1.9", "--new-enterprise", "nine",
                    "--specific", "2", "--category", "Power", "--format", "f"})
                  .err,
              "")
        << "the same again is the same enterprise";
    expect_refusal({"add", "y", "--enterprise", "1.3.6.1.4.1.9", "--new-enterprise", "ten",
                    "--specific", "1", "--category", "Power", "--format", "f"},
                   "the enterprise '1.3.6.1.4.1.9' is configured already, as 'nine'");
    expect_refusal({"set", "x", "--enterprise", "1.3.6.1.4.1.10", "--new-enterprise", "t en"},
                   "it would not be read back: Bad name line (matched 1, not 8 tokens)");
}

TEST_F(ConfEdit, SetsFields) {
    expect_edit(
        {"set", "up", "--severity", "Critical", "--description", "a\nb"},
        "changed 'up' in " + file_ + "\n  severity: '1' -> '4'\n  description: '' -> 'a\\nb'\n",
        {battery,
         "up {1.3.6.1.4.1.8072} 6 1 A 4 0 \"Status Events\"\n$A is up\nSDESC\na\nb\n"
         "EDESC\n",
         down_on_core, down});
}

TEST_F(ConfEdit, TakesFieldsAway) {
    expect_edit({"set", "downCore", "--exec", "", "--display", "", "--no-forward", "--class", "",
                 "--slot", "", "--description", ""},
                "changed 'downCore' in " + file_ +
                    "\n  exec: '/bin/page $A' -> ''\n  display: 'show $A' -> ''\n"
                    "  forward: 'yes' -> 'no'\n  class: 'Down' -> ''\n"
                    "  slots: 'host=$A, text=it is down' -> ''\n"
                    "  description: 'A core node.' -> ''\n",
                {battery, up,
                 "downCore {1.3.6.1.4.1.8072} 6 2 A 4 1 \"Status Events\"\n$A is down\n"
                 "NODES core1 core2\nSDESC\nEDESC\n",
                 down});
}

TEST_F(ConfEdit, KeepsTheOrderOfTrapsOfTheSameNumbers) {
    const auto trap = [](const std::string& name, const std::string& node, const char* format) {
        return name + " {1.3.6.1.4.1.8072} 6 3 A 1 0 \"Power\"\n" + format + "\nNODES " + node +
               "\nSDESC\nEDESC\n";
    };
    const std::string one = trap("one", "n1", "f");
    const std::string two = trap("two", "n2", "f");
    const std::string three = trap("three", "n3", "f");
    dir_.write("conf", file_of({one, two, three}));
    const std::string changed = trap("two", "n4", "g");
    const std::string renamed = trap("last", "n3", "f");
    EXPECT_EQ(edit({"set", "two", "--format", "g", "--node", "n4"}).err, "");
    EXPECT_EQ(timeless(dir_.read("conf")), timeless(file_of({one, changed, three})));
    EXPECT_EQ(edit({"rename", "three", "last"}).err, "");
    EXPECT_EQ(timeless(dir_.read("conf")), timeless(file_of({one, changed, renamed})));
    const CommandRun dry = edit({"set", "one", "--node", "n5", "--dry-run"});
    EXPECT_NE(dry.out.find("\n f\n-NODES n1\n+NODES n5\n SDESC\n"), std::string::npos) << dry.out;
    EXPECT_EQ(changes_in(dry.out), "-NODES n1\n+NODES n5\n") << dry.out;
}

TEST_F(ConfEdit, MovesATrap) {
    const CommandRun run = edit({"set", "up", "--enterprise", "ups", "--generic", "0", "--specific",
                                 "0", "--status", "7", "--source", "s", "--category", "Power"});
    EXPECT_EQ(run.out, "changed 'up' in " + file_ +
                           "\n  enterprise: '1.3.6.1.4.1.8072' -> '1.3.6.1.2.1.33'\n"
                           "  generic: '6' -> '0'\n  specific: '1' -> '0'\n"
                           "  source: 'A' -> 's'\n  status: '0' -> '7'\n"
                           "  category: 'Status Events' -> 'Power'\n");
    EXPECT_EQ(timeless(dir_.read("conf")),
              timeless(file_of({"up {1.3.6.1.2.1.33} 0 0 s 1 7 \"Power\"\n$A is up\nSDESC\nEDESC\n",
                                battery, down_on_core, down})));
}

TEST_F(ConfEdit, WritesNothingWhereNothingChanges) {
    const std::string before = dir_.read("conf");
    const CommandRun run = edit({"set", "up", "--severity", "Indeterminate"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "nothing to change in " + file_ + "\n");
    EXPECT_EQ(dir_.read("conf"), before);
}

TEST_F(ConfEdit, DeletesATrap) {
    expect_edit({"delete", "downCore"}, "deleted 'downCore' in " + file_ + "\n",
                {battery, up, down});
    expect_refusal({"delete", "downCore"}, "no trap 'downCore' is configured in " + file_ +
                                               "; 'wqevents conf add' makes one");
}

TEST_F(ConfEdit, RenamesATrap) {
    std::string renamed = down;
    renamed.replace(0, 4, "nodeDown");
    expect_edit({"rename", "down", "nodeDown"}, "renamed 'down' to 'nodeDown' in " + file_ + "\n",
                {battery, up, down_on_core, renamed});
    expect_refusal({"rename", "nodeDown", "up"}, "there is a trap 'up' already");
    expect_refusal({"rename", "down", "other"},
                   "no trap 'down' is configured in " + file_ + "; 'wqevents conf add' makes one");
}

/* Reading gives the model one category more, of which the file learns nothing. */
TEST_F(ConfEdit, AddsNoStandardCategory) {
    dir_.write("conf",
               "CATEGORY 9 \"IGNORE\"\nagent {1.3.6}\nx {1.3.6} 6 1 A 1 1 \"IGNORE\"\nf\nSDESC\n"
               "EDESC\n");
    ASSERT_EQ(edit({"set", "x", "--status", "2"}).err, "");
    const std::string text = dir_.read("conf");
    EXPECT_NE(text.find("categories:\n#\nCATEGORY 9 \"IGNORE\"\n####"), std::string::npos) << text;
}

/* --- what a file cannot hold --- */

TEST_F(ConfEdit, RefusesWhatWouldNotBeReadBack) {
    const std::string long_name(40, 'n');
    const struct {
        Words options;
        std::string message;
    } rows[] = {
        {{"--format", ""}, "the format is empty"},
        {{"--format", "a\nEXEC b"}, "the format contains a line break"},
        {{"--format", " a"}, "the format begins with a blank"},
        {{"--format", "\ta"}, "the format begins with a blank"},
        {{"--format", "#a"}, "the format begins with '#': its line would be a comment"},
        {{"--format", std::string(4095, 'x')}, "the format is longer than 4094 bytes"},
        {{"--exec", std::string(4095, 'x')}, "the command to execute is longer than 4094 bytes"},
        {{"--class", std::string(51200, 'x')}, "it would not be read back: Line too long"},
        {{"--exec", "a\nb"}, "the command to execute contains a line break"},
        {{"--display", "a\nb"}, "the command to display contains a line break"},
        {{"--class", "a\nb"}, "the class contains a line break"},
        {{"--exec", " a"}, "the exec would not be read back as it is given: ' a' as 'a'"},
        {{"--node", "a b"}, "the name of a node contains white space"},
        {{"--node", "a,b"}, "the name of a node contains a comma"},
        {{"--node", "a", "--node", ""}, "the name of a node is empty"},
        {{"--slot", "a b=c"}, "the name of a slot contains white space"},
        {{"--slot", "=c"}, "the name of a slot is empty"},
        {{"--slot", "#a=c"}, "the name of a slot begins with '#'"},
        {{"--slot", "a="}, "the value of a slot is empty"},
        {{"--slot", "a=b\nc"}, "the value of a slot contains a line break"},
        {{"--slot", "a=b "}, "the slots would not be read back as it is given: 'a=b ' as 'a=b'"},
        {{"--description", "a\n#b\nc"},
         "the description would not be read back as it is given: 'a\\n#b\\nc' as 'a\\nc'"},
        {{"--description", "a\n b"},
         "the description would not be read back as it is given: 'a\\n b' as 'a\\nb'"},
        {{"--description", "a\nEDESC\nb"},
         "it would not be read back: Bad name line (matched 1, not 8 tokens)"},
        {{"--description", std::string(5021, 'd')},
         "it would not be read back: Trap description too long"},
        {{"--enterprise", "none"},
         "no enterprise 'none' is configured; 'wqevents conf enterprise add' makes one"},
        {{"--category", "Pow\"er"},
         "no category 'Pow\"er' is configured; 'wqevents conf category add' makes one"},
        {{"--specific", "2"}, "the trap 'down' has these numbers already, for the same nodes"},
        {{"--specific", "2", "--node", "x", "--node", "core2"},
         "the trap 'downCore' has these numbers already, for the same nodes"},
    };
    for (const auto& row : rows) {
        Words words{"set", "up"};
        words.insert(words.end(), row.options.begin(), row.options.end());
        expect_refusal(words, row.message);
        words.push_back("--dry-run");
        expect_refusal(words, row.message);
    }
    const struct {
        std::string name;
        std::string message;
    } names[] = {
        {long_name, "the name is longer than 39 characters"},
        {"", "the name is empty"},
        {"a b", "the name contains white space"},
        {"#a", "the name begins with '#': its line would be a comment"},
        {"down", "there is a trap 'down' already"},
    };
    for (const auto& [name, message] : names) {
        expect_refusal({"rename", "up", name}, message);
        expect_refusal({"add", name, "--enterprise", "agent", "--specific", "77", "--category",
                        "Power", "--format", "f"},
                       message);
    }
    expect_refusal({"delete", long_name}, "no trap '" + long_name + "' is configured in " + file_ +
                                              "; 'wqevents conf add' makes one");
}

TEST_F(ConfEdit, RefusesCommandLinesThatCannotBe) {
    const struct {
        Words words;
        const char* part;
    } rows[] = {
        {{"add", "x", "--enterprise", "agent"}, "required"},
        {{"set"}, "NAME is required"},
        {{"set", "up", "--severity", "Fatal"}, "severity 'Fatal' is not a number from 0 to 5"},
        {{"set", "up", "--severity", "6"}, "severity '6' is not a number from 0 to 5"},
        {{"set", "up", "--source", "ab"}, "source 'ab' is not one printable character"},
        {{"set", "up", "--source", " "}, "source ' ' is not one printable character"},
        {{"set", "up", "--generic", "x"}, "--generic"},
        {{"set", "up", "--slot", "a"}, "slot 'a' is not NAME=VALUE"},
        {{"set", "up", "--forward", "--no-forward"}, "excludes"},
        {{"set", "up", "--new-enterprise", "x"}, "--enterprise"},
        {{"set", "up", "--wait", "-1"}, "--wait"},
        {{"rename", "up"}, "NEW is required"},
    };
    const std::string before = dir_.read("conf");
    for (const auto& row : rows) {
        const CommandRun run = edit(row.words);
        EXPECT_EQ(run.status, 2) << row.part;
        EXPECT_NE(run.err.find(row.part), std::string::npos) << run.err;
    }
    EXPECT_EQ(dir_.read("conf"), before);
}

/* --- dry runs and differences --- */

TEST_F(ConfEdit, DryRunShowsTheDifference) {
    const std::string before = dir_.read("conf");
    const CommandRun run = edit({"set", "up", "--severity", "2", "--dry-run"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out.find("--- " + file_ + "\n+++ " + file_ + "\n@@ "), 0U);
    EXPECT_NE(run.out.find("\n-up {1.3.6.1.4.1.8072} 6 1 A 1 0 \"Status Events\"\n"
                           "+up {1.3.6.1.4.1.8072} 6 1 A 2 0 \"Status Events\"\n"),
              std::string::npos);
    EXPECT_EQ(
        run.out.find("\n-# Created by zeltrap at some time by someone\n+# Created by zeltrap at "),
        run.out.find("\n #\n") + 3)
        << run.out;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '+'), 3 + 2 * (1 + 1)) << run.out;
    EXPECT_EQ(dir_.read("conf"), before);
    EXPECT_EQ(edit({"set", "up", "--severity", "1", "--dry-run"}).out, "");
}

TEST_F(ConfEdit, DryRunNeedsNoLock) {
    const LockHolder other(file_);
    EXPECT_EQ(edit({"delete", "up", "--dry-run"}).status, 0);
    chmod(file_.c_str(), 0444);
    EXPECT_EQ(edit({"delete", "up", "--dry-run"}).status, 0);
}

TEST_F(ConfEdit, ComparesTwoFiles) {
    const std::string commented =
        dir_.write("other", "# by hand\n" + categories + "agent {1.3.6.1.4.1.8072}\n" +
                                "ups {.1.3.6.1.2.1.33}\n#\n" + up + "# more\n" + battery + down);
    const CommandRun run = conf({"diff", file_, commented});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out.find("--- " + file_ + "\n+++ " + commented + "\n@@ "), 0U);
    std::string removed;
    std::istringstream lines(down_on_core);
    for (std::string line; std::getline(lines, line);) {
        removed.append("-").append(line).append("\n");
    }
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 2 + 1 + 3 + 14 + 3) << run.out;
    EXPECT_NE(run.out.find(removed.substr(removed.find('\n'))), std::string::npos) << run.out;
    EXPECT_EQ(conf({"diff", file_, file_}).out, "");
    EXPECT_EQ(conf({"diff", file_, dir_.path("gone")}).status, 1);
}

/* --- locks --- */

TEST_F(ConfEdit, RefusesWhileAnotherEdits) {
    const LockHolder other(file_);
    expect_refusal({"delete", "up"},
                   "Another Event Configuration process is already running.\n"
                   "Could not lock configuration file \"" +
                       file_ + "\".\nError 11: Resource temporarily unavailable.");
}

TEST_F(ConfEdit, WaitsForTheLock) {
    auto other = std::make_unique<LockHolder>(file_);
    Subprocess process(
        command_line({"conf", "delete", "up", "--conf", file_, "--no-notify", "--wait", "20"}),
        options_);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(timeless(dir_.read("conf")), timeless(file_of({battery, up, down_on_core, down})));
    other.reset();
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(timeless(dir_.read("conf")), timeless(file_of({battery, down_on_core, down})));
}

TEST_F(ConfEdit, WaitsForNothingElse) {
    std::filesystem::remove(file_);
    const auto start = std::chrono::steady_clock::now();
    const CommandRun run = edit({"delete", "up", "--wait", "60"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(without_command(run.err), "Could not open configuration file \"" + file_ +
                                            "\".\nError 2: No such file or directory.\n"
                                            "'wqevents conf init' makes a first one.\n");
}

TEST_F(ConfEdit, EditorsAtOnceLoseNothing) {
    std::vector<std::unique_ptr<Subprocess>> editors;
    for (int i = 0; i < 10; ++i) {
        const std::string number = std::to_string(100 + i);
        editors.push_back(std::make_unique<Subprocess>(
            command_line({"conf", "add", std::string("added").append(number), "--enterprise",
                          "agent", "--specific", number, "--category", "Power", "--format", "f",
                          "--conf", file_, "--no-notify", "--wait", "60"}),
            options_));
    }
    for (const auto& editor : editors) {
        EXPECT_EQ(editor->wait(), 0) << editor->err();
    }
    const std::string list = conf({"list", "--conf", file_}).out;
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 1 + 4 + 10) << list;
}

/* --- the daemon --- */

TEST_F(ConfEdit, TellsTheDaemon) {
    REQUIRE_SANDBOX();
    run_in_sandbox([this] {
        std::filesystem::create_directories("/usr/WQ/sockets");
        ListeningProcess daemon({"--socket", "/usr/WQ/sockets/vortd.socket", "--json"});
        const CommandRun run = conf({"delete", "up", "--conf", file_});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_TRUE(daemon.wait_for_out("wqevents changed format file"));
        EXPECT_NE(daemon.out().find("50790438"), std::string::npos) << daemon.out();
        const std::string before = daemon.out();
        EXPECT_EQ(edit({"delete", "down"}).status, 0);
        EXPECT_EQ(conf({"set", "battery", "--status", "1", "--conf", file_}).status, 0)
            << "nothing changes";
        EXPECT_EQ(daemon.terminate(), 0);
        EXPECT_EQ(daemon.out().find("wqevents changed", before.size()), std::string::npos);
    });
}

TEST_F(ConfEdit, WarnsWhereThereIsNoDaemon) {
    REQUIRE_SANDBOX();
    run_in_sandbox([this] {
        const CommandRun run = conf({"delete", "up", "--conf", file_});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, "deleted 'up' in " + file_ + "\n");
        EXPECT_EQ(run.err, "Warning: " + file_ +
                               " updated, but cannot connect event to vortd.\n\tChanges won't take "
                               "effect until vortd and zelevents are restarted.\n");
    });
}

/* --- a file that cannot be written --- */

TEST_F(ConfEdit, LeavesTheFileWhereItHasNoRoom) {
    const std::string before = dir_.read("conf");
    std::filesystem::permissions(file_, std::filesystem::perms::owner_read);
    const CommandRun denied = edit({"delete", "up"});
    if (geteuid() != 0) {
        EXPECT_EQ(denied.status, 1);
        EXPECT_EQ(dir_.read("conf"), before);
    }
    std::filesystem::permissions(file_, std::filesystem::perms::owner_all);
    dir_.write("conf", before);
    Subprocess process(
        {"sh", "-c", "ulimit -f 1; exec \"$@\"", "sh", WQEVENTS_COMMAND, "conf", "set", "up",
         "--description", std::string(4000, 'd'), "--conf", file_, "--no-notify"},
        options_);
    EXPECT_EQ(process.wait(), 1);
    EXPECT_EQ(process.out(), "");
    EXPECT_EQ(dir_.read("conf"), before);
}

/* --- alerts --- */

const std::string alert = "down {1.3.6.1.4.1.8072} 6 2\n92 1 3300 ;\n";

TEST_F(ConfEdit, WarnsOfAnAlertThatLosesItsTrap) {
    put_alert(alert);
    const std::string warning =
        "Warning: an alert is still configured for the old name in the alert configuration.\n";
    EXPECT_EQ(edit({"set", "down", "--status", "4"}).err, "");
    EXPECT_EQ(edit({"delete", "up"}).err, "");
    EXPECT_EQ(edit({"rename", "down", "other"}).err, warning);
    put_alert("battery {1.3.6.1.2.1.33} 6 1\n92 1 3300 ;\n");
    EXPECT_EQ(edit({"delete", "battery"}).err, warning);
}

TEST_F(ConfEdit, CheckReadsTheAlerts) {
    EXPECT_EQ(conf({"check", file_}).status, 0) << "no file of alerts";
    put_alert(alert);
    const CommandRun good = conf({"check", file_});
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, "ok: 2 enterprises, 4 traps, 9 categories, 0 actions\n");
    put_alert("gone {1.3.6.1.4.1.8072} 6 2\n92 1 3300 ;\n");
    const CommandRun bad = conf({"check", file_});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(without_command(bad.err), "Did not find a matching trap name at line #1 of \"" +
                                            dir_.path("ferlod.conf") + "\"\n");
    EXPECT_EQ(edit({"delete", "up"}).status, 0) << "the traps can be edited all the same";
}

TEST_F(ConfEdit, EverySubcommandHelpsWithAnExample) {
    for (const char* name : {"list", "show", "add", "set", "delete", "rename", "diff"}) {
        const CommandRun run = conf({name, "--help"});
        EXPECT_EQ(run.status, 0);
        EXPECT_NE(run.out.find(std::string("  wqevents conf ").append(name).append(" ")),
                  std::string::npos)
            << run.out;
    }
}

}  // namespace
}  // namespace wq::test
