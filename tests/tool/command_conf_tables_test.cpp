// wqevents conf category, action, enterprise and init.
#include <sys/stat.h>

#include <filesystem>

#include "listening_process.h"
#include "support/lock_holder.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string start =
    "#\n# Created by zeltrap at some time by someone\n#\n###################\n#\n# enterprises:\n"
    "#\n###################\n#\n# display categories:\n#\n";
const std::string before_enterprises = "###################\n#\n# enterprises:\n#\n";
const std::string before_traps = "#\n# User added trap formats:\n#\n";
const std::string before_actions = "###################\n#\n# Operator Actions:\n#\n";

std::string up(const std::string& category, const std::string& oid = "1.3.6.1.4.1.8072") {
    return "up {" + oid + "} 6 1 A 1 0 \"" + category + "\"\n$A is up\nSDESC\nEDESC\n";
}

std::string timeless(std::string text) {
    const std::size_t begin = text.find("# Created by");
    if (begin != std::string::npos) {
        text.erase(begin, text.find('\n', begin) + 1 - begin);
    }
    return text;
}

class ConfTables : public testing::Test {
  protected:
    // The sections of the file after its head.
    std::string file_of(const std::string& categories, const std::string& actions,
                        const std::string& enterprises, const std::string& traps) const {
        return start + categories + (actions.empty() ? "" : before_actions + actions) +
               before_enterprises + enterprises + before_traps + traps;
    }
    CommandRun conf(Words words) const {
        words.insert(words.begin(), "conf");
        words.insert(words.end(), {"--conf", file_});
        return CommandRun(words, options_);
    }
    void expect_edit(Words words, const std::string& printed, const std::string& content) const {
        words.emplace_back("--no-notify");
        const CommandRun run = conf(words);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, printed);
        EXPECT_EQ(timeless(dir_.read("conf")), timeless(content));
    }
    void expect_refusal(Words words, const std::string& message) const {
        const std::string before = dir_.read("conf");
        words.emplace_back("--no-notify");
        const CommandRun run = conf(words);
        EXPECT_EQ(run.status, 1) << run.out;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(without_command(run.err), message + "\n");
        EXPECT_EQ(dir_.read("conf"), before) << message;
    }

    TempDir dir_;
    const std::string categories_ = "CATEGORY 3 \"Status Events\"\nCATEGORY 12 \"Power\"\n";
    const std::string ping_ = "ACTION 3 \"Ping\" ping $2\nSDESC\nAsks it.\nEDESC\n";
    const std::string enterprises_ = "ups {1.3.6.1.2.1.33}\nagent {1.3.6.1.4.1.8072}\n";
    std::string file_ =
        dir_.write("conf", file_of(categories_, ping_, enterprises_, up("Status Events")));
    SubprocessOptions options_{
        .environment = {{"FERLOD_CONF", dir_.path("ferlod.conf")}, {"LC_ALL", "C"}}};
};

// --- categories ---

TEST_F(ConfTables, ListsCategories) {
    const CommandRun run = conf({"category", "list"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "NUMBER  TRAPS  NAME\n"
              "3       1      Status Events\n"
              "12      0      Power\n");
}

TEST_F(ConfTables, AddsCategories) {
    const auto file = [this](const std::string& categories) {
        return file_of(categories, ping_, enterprises_, up("Status Events"));
    };
    const std::string in = " in " + file_ + "\n";
    expect_edit({"category", "add", "New"}, "added category 10 'New'" + in,
                file("CATEGORY 3 \"Status Events\"\nCATEGORY 10 \"New\"\nCATEGORY 12 \"Power\"\n"));
    expect_edit({"category", "add", "Last [one]", "--number", "63"},
                "added category 63 'Last [one]'" + in,
                file("CATEGORY 3 \"Status Events\"\nCATEGORY 10 \"New\"\nCATEGORY 12 \"Power\"\n"
                     "CATEGORY 63 \"Last [one]\"\n"));
    expect_edit({"category", "add", "IGNORE", "--number", "9"}, "added category 9 'IGNORE'" + in,
                file("CATEGORY 3 \"Status Events\"\nCATEGORY 9 \"IGNORE\"\nCATEGORY 10 \"New\"\n"
                     "CATEGORY 12 \"Power\"\nCATEGORY 63 \"Last [one]\"\n"));
    expect_refusal({"category", "add", "Power"}, "there is a category 'Power' already");
    expect_refusal({"category", "add", "x", "--number", "12"},
                   "the number 12 has the category 'Power'");
    const CommandRun outside = conf({"category", "add", "x", "--number", "64"});
    EXPECT_EQ(outside.status, 2);
    EXPECT_TRUE(
        without_command(outside.err).starts_with("number '64' is not a number from 0 to 63\n"));
    expect_refusal({"category", "add", ""}, "the name is empty");
    expect_refusal({"category", "add", "a\"b"}, "the name contains a double quote");
    expect_refusal({"category", "add", "a\nb"}, "the name contains a line break");
}

TEST_F(ConfTables, ChangesCategories) {
    expect_edit({"category", "set", "Status Events", "--name", "State", "--number", "40"},
                "changed 'Status Events' in " + file_ +
                    "\n  name: 'Status Events' -> 'State'\n  number: '3' -> '40'\n",
                file_of("CATEGORY 12 \"Power\"\nCATEGORY 40 \"State\"\n", ping_, enterprises_,
                        up("State")));
    expect_edit({"category", "set", "State", "--name", "State"},
                "nothing to change in " + file_ + "\n", dir_.read("conf"));
    expect_refusal({"category", "set", "State", "--name", "Power"},
                   "there is a category 'Power' already");
    expect_refusal({"category", "set", "State", "--number", "12"},
                   "the number 12 has the category 'Power'");
    expect_refusal({"category", "set", "Gone", "--number", "13"},
                   "no category 'Gone' is configured; 'wqevents conf category add' makes one");
    expect_refusal({"category", "set", "IGNORE", "--number", "13"},
                   "no category 'IGNORE' is configured; 'wqevents conf category add' makes one");
}

TEST_F(ConfTables, DeletesCategoriesThatAreNotUsed) {
    expect_refusal({"category", "delete", "Status Events"},
                   "the category 'Status Events' is used by 1 trap: up");
    expect_edit(
        {"category", "delete", "Power"}, "deleted category 'Power' in " + file_ + "\n",
        file_of("CATEGORY 3 \"Status Events\"\n", ping_, enterprises_, up("Status Events")));
    expect_refusal({"category", "delete", "Power"},
                   "no category 'Power' is configured; 'wqevents conf category add' makes one");
    std::string traps;
    for (int i = 1; i <= 6; ++i) {
        const std::string number = std::to_string(i);
        traps += "t" + number + " {1.3.6.1.2.1.33} 6 " + number +
                 " A 1 0 \"Status Events\"\nf\nSDESC\nEDESC\n";
    }
    dir_.write("conf", file_of(categories_, "", enterprises_, traps));
    expect_refusal({"category", "delete", "Status Events"},
                   "the category 'Status Events' is used by 6 traps: t1, t2, t3, t4, t5, ...");
}

// The reader gives the model IGNORE, since the file has no category 9.
TEST_F(ConfTables, AnImpliedCategoryMakesNoRoomWhileTrapsAreInIt) {
    dir_.write("conf", file_of(categories_, "", enterprises_, up("IGNORE")));
    expect_refusal({"category", "add", "Nine", "--number", "9"},
                   "the category 'IGNORE', which is not in the file, is used by 1 trap: up");
    expect_refusal({"category", "set", "Power", "--number", "9"},
                   "the category 'IGNORE', which is not in the file, is used by 1 trap: up");
    expect_edit(
        {"category", "add", "IGNORE"}, "added category 10 'IGNORE' in " + file_ + "\n",
        file_of("CATEGORY 3 \"Status Events\"\nCATEGORY 10 \"IGNORE\"\nCATEGORY 12 \"Power\"\n", "",
                enterprises_, up("IGNORE")));
    expect_edit({"category", "add", "Nine", "--number", "9"},
                "added category 9 'Nine' in " + file_ + "\n",
                file_of("CATEGORY 3 \"Status Events\"\nCATEGORY 9 \"Nine\"\nCATEGORY 10 "
                        "\"IGNORE\"\nCATEGORY 12 \"Power\"\n",
                        "", enterprises_, up("IGNORE")));
}

// --- actions ---

TEST_F(ConfTables, EditsActions) {
    const auto file = [this](const std::string& actions) {
        return file_of(categories_, actions, enterprises_, up("Status Events"));
    };
    const std::string in = " in " + file_ + "\n";
    EXPECT_EQ(conf({"action", "list"}).out, "SECONDS  NAME  COMMAND\n3        Ping  ping $2\n");
    expect_edit(
        {"action", "add", "Page", "--command", "/bin/page [x] \"$2\"", "--wait-time", "7",
         "--description", "One.\n\nTwo."},
        "added action 'Page'" + in,
        file(ping_ + "ACTION 7 \"Page\" /bin/page [x] \"$2\"\nSDESC\nOne.\n\nTwo.\nEDESC\n"));
    expect_edit({"action", "set", "Ping", "--name", "Probe", "--wait-time", "0", "--command", "",
                 "--description", ""},
                "changed 'Ping'" + in +
                    "  name: 'Ping' -> 'Probe'\n  wait time: '3' -> '0'\n"
                    "  command: 'ping $2' -> ''\n  description: 'Asks it.' -> ''\n",
                file("ACTION 0 \"Probe\" \nSDESC\n\nEDESC\n"
                     "ACTION 7 \"Page\" /bin/page [x] \"$2\"\nSDESC\nOne.\n\nTwo.\nEDESC\n"));
    expect_refusal({"action", "add", "Page"}, "there is an action 'Page' already");
    expect_refusal({"action", "set", "Probe", "--name", "Page"},
                   "there is an action 'Page' already");
    expect_refusal({"action", "add", "a\"b"}, "the name contains a double quote");
    expect_refusal({"action", "add", "x", "--command", "a\nb"},
                   "the command contains a line break");
    expect_refusal({"action", "add", "x", "--command", " a"},
                   "the configuration would not be read back as it is: ACTION 0 \"x\"  a");
    expect_refusal({"action", "add", "x", "--description", "a\nEDESC\nb"},
                   "it would not be read back: Bad name line (matched 1, not 8 tokens)");
    expect_refusal({"action", "set", "Gone", "--command", "x"},
                   "no action 'Gone' is configured; 'wqevents conf action add' makes one");
    expect_edit({"action", "delete", "Probe"}, "deleted action 'Probe'" + in,
                file("ACTION 7 \"Page\" /bin/page [x] \"$2\"\nSDESC\nOne.\n\nTwo.\nEDESC\n"));
    expect_edit({"action", "delete", "Page"}, "deleted action 'Page'" + in, file(""));
    expect_refusal({"action", "delete", "Page"},
                   "no action 'Page' is configured; 'wqevents conf action add' makes one");
}

// --- enterprises ---

TEST_F(ConfTables, EditsEnterprises) {
    const auto file = [this](const std::string& enterprises, const std::string& trap) {
        return file_of(categories_, ping_, enterprises, trap);
    };
    const std::string in = " in " + file_ + "\n";
    const std::string trap = up("Status Events");
    EXPECT_EQ(conf({"enterprise", "list"}).out,
              "NAME   OID               TRAPS\n"
              "ups    1.3.6.1.2.1.33    0\n"
              "agent  1.3.6.1.4.1.8072  1\n");
    expect_edit(
        {"enterprise", "add", "sub", ".1.3.6.1.4.1.8072.3"}, "added enterprise 'sub'" + in,
        file("ups {1.3.6.1.2.1.33}\nsub {1.3.6.1.4.1.8072.3}\nagent {1.3.6.1.4.1.8072}\n", trap));
    expect_edit(
        {"enterprise", "set", "1.3.6.1.2.1.33", "--name", "supply", "--oid", "1.3.6.1.9"},
        "changed 'ups'" + in +
            "  name: 'ups' -> 'supply'\n  oid: '1.3.6.1.2.1.33' -> '1.3.6.1.9'\n",
        file("sub {1.3.6.1.4.1.8072.3}\nagent {1.3.6.1.4.1.8072}\nsupply {1.3.6.1.9}\n", trap));
    expect_edit({"enterprise", "set", "agent", "--oid", "1.3.6.1.4.1.8072.3.1"},
                "changed 'agent'" + in + "  oid: '1.3.6.1.4.1.8072' -> '1.3.6.1.4.1.8072.3.1'\n",
                file("agent {1.3.6.1.4.1.8072.3.1}\nsub {1.3.6.1.4.1.8072.3}\nsupply {1.3.6.1.9}\n",
                     up("Status Events", "1.3.6.1.4.1.8072.3.1")));
    expect_refusal({"enterprise", "add", "sub", "1.3.6.1.8"},
                   "there is an enterprise 'sub' already, 1.3.6.1.4.1.8072.3");
    expect_refusal({"enterprise", "add", "x", "1.3.6.1.9"},
                   "the enterprise '1.3.6.1.9' is configured already, as 'supply'");
    expect_refusal({"enterprise", "set", "sub", "--oid", "1.3.6.1.9"},
                   "the enterprise '1.3.6.1.9' is configured already, as 'supply'");
    expect_refusal({"enterprise", "set", "sub", "--name", "agent"},
                   "there is an enterprise 'agent' already, 1.3.6.1.4.1.8072.3.1");
    expect_refusal({"enterprise", "add", "a b", "1.3.6.1.8"}, "the name contains white space");
    expect_refusal({"enterprise", "add", "", "1.3.6.1.8"}, "the name is empty");
    expect_refusal({"enterprise", "add", "#a", "1.3.6.1.8"},
                   "the name begins with '#': its line would be a comment");
    expect_refusal({"enterprise", "delete", "agent"},
                   "the enterprise 'agent' is used by 1 trap: up");
    expect_refusal({"enterprise", "delete", "gone"},
                   "no enterprise 'gone' is configured; 'wqevents conf enterprise add' makes one");
    expect_edit({"enterprise", "delete", "1.3.6.1.9"}, "deleted enterprise 'supply'" + in,
                file("agent {1.3.6.1.4.1.8072.3.1}\nsub {1.3.6.1.4.1.8072.3}\n",
                     up("Status Events", "1.3.6.1.4.1.8072.3.1")));
}

TEST_F(ConfTables, WarnsOfAlertsThatLoseTheirEnterprise) {
    dir_.write("ferlod.conf", "up {1.3.6.1.4.1.8072} 6 1\n92 1 3300 ;\n");
    EXPECT_EQ(conf({"enterprise", "set", "agent", "--name", "other", "--no-notify"}).err, "");
    EXPECT_EQ(
        conf({"enterprise", "set", "other", "--oid", "1.3.6.1.8", "--no-notify"}).err,
        "Warning: an alert is still configured for the old name in the alert configuration.\n");
}

TEST_F(ConfTables, DryRunsAndLocksAreThoseOfAllEdits) {
    const std::string before = dir_.read("conf");
    const CommandRun dry = conf({"category", "add", "New", "--dry-run"});
    EXPECT_EQ(dry.status, 0);
    EXPECT_NE(dry.out.find("\n+CATEGORY 10 \"New\"\n"), std::string::npos) << dry.out;
    EXPECT_EQ(dir_.read("conf"), before);
    const LockHolder other(file_);
    for (const Words& words : {Words{"category", "add", "New"}, Words{"action", "delete", "Ping"},
                               Words{"enterprise", "delete", "ups"}, Words{"repair"}}) {
        const CommandRun run = conf(words);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(without_command(run.err).find("Another Event Configuration process"), 0U);
        EXPECT_EQ(dir_.read("conf"), before);
    }
}

// --- init ---

TEST_F(ConfTables, MakesAFirstFile) {
    const std::string path = dir_.path("first");
    const std::string text = start +
                             "CATEGORY 0 \"Threshold Events\"\n"
                             "CATEGORY 1 \"Network Topology Events\"\n"
                             "CATEGORY 2 \"Error Events\"\n"
                             "CATEGORY 3 \"Status Events\"\n"
                             "CATEGORY 4 \"Node Configuration Events\"\n"
                             "CATEGORY 5 \"Application Alert Events\"\n"
                             "CATEGORY 7 \"LOGONLY\"\n"
                             "CATEGORY 9 \"IGNORE\"\n" +
                             before_enterprises + before_traps;
    const CommandRun dry({"conf", "init", path, "--dry-run"}, options_);
    EXPECT_EQ(dry.status, 0);
    EXPECT_TRUE(dry.out.starts_with("--- /dev/null\n+++ " + path + "\n@@ -0,0 +1,")) << dry.out;
    EXPECT_FALSE(std::filesystem::exists(path));
    const CommandRun run({"conf", "init", path}, options_);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "made " + path + "\n");
    EXPECT_EQ(timeless(dir_.read("first")), timeless(text));
    const std::string made = dir_.read("first");
    const CommandRun again({"conf", "init", path}, options_);
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(without_command(again.err), "there is a file \"" + path + "\" already\n");
    EXPECT_EQ(dir_.read("first"), made);
    EXPECT_EQ(CommandRun({"conf", "check", path}, options_).out,
              "ok: 0 enterprises, 0 traps, 8 categories, 0 actions\n");
    const mode_t mask = umask(0);
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0666U & ~mask);
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
        files += entry.path().filename().string().starts_with("first") ? 1 : 0;
    }
    EXPECT_EQ(files, 1U);
    options_.environment["WQVORTDCONF"] = dir_.path("usual");
    EXPECT_EQ(CommandRun({"conf", "init"}, options_).out, "made " + dir_.path("usual") + "\n");
    EXPECT_EQ(CommandRun({"conf", "init", dir_.path("no/folder")}, options_).status, 1);
    EXPECT_EQ(CommandRun({"conf", "init", "/dev/null"}, options_).status, 1);
}

// From nothing to a trap that can be formatted, by the hints of the refusals alone.
TEST_F(ConfTables, LeadsFromNothingToATrap) {
    file_ = dir_.path("new");
    const Words add{"add",        "full",    "--enterprise", "room", "--specific", "7",
                    "--category", "Cooling", "--format",     "$1",   "--no-notify"};
    EXPECT_NE(conf(add).err.find("'wqevents conf init' makes a first one"), std::string::npos);
    EXPECT_EQ(conf({"init"}).status, 0);
    EXPECT_NE(conf(add).err.find("'wqevents conf enterprise add' makes one"), std::string::npos);
    EXPECT_EQ(conf({"enterprise", "add", "room", "1.3.6.1.4.1.32473", "--no-notify"}).status, 0);
    EXPECT_NE(conf(add).err.find("'wqevents conf category add' makes one"), std::string::npos);
    EXPECT_EQ(conf({"category", "add", "Cooling", "--no-notify"}).status, 0);
    EXPECT_EQ(conf(add).err, "");
    EXPECT_NE(
        conf({"show", "full"}).out.find("full {1.3.6.1.4.1.32473} 6 7 A 1 1 \"Cooling\"\n$1\n"),
        std::string::npos);
}

}  // namespace
}  // namespace wq::test
