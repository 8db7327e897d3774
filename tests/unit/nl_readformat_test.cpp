/*
 * The reader as a whole: its sections, the model that it fills, reading again and reading more.
 */
#include <gtest/gtest.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>
#include <wqevents/trace.h>

#include <string>
#include <vector>

#include "support/diagnostics.h"
#include "support/temp_dir.h"
#include "support/trap_conf.h"

namespace wq::test {
namespace {

using Names = std::vector<std::string>;

const ConfRead done{0, ""};

const std::string status_category = "CATEGORY 3 \"Status Events\"\n";
const std::string agent = "agent {1.3.6.1.4.1.8072}\n";

/* A block of enterprise 1.3.6.1.4.1.8072 and category "Status Events". */
std::string block(const std::string& name, int specific, const std::string& format = "text") {
    return name + " {1.3.6.1.4.1.8072} 6 " + std::to_string(specific) +
           " A 1 0 \"Status Events\"\n" + format + "\nSDESC\nEDESC\n";
}

class Reader : public TrapConf {};

TEST_F(Reader, ReadsAllSections) {
    EXPECT_EQ(read("# a comment\n"
                   "CATEGORY 3 \"Status Events\"\n"
                   "CATEGORY 12 \"Power Supply\"\n"
                   "ACTION 30 \"page\" /usr/bin/page -n 12 \"now\"\n"
                   "SDESC\n  Calls the\n  operator.  \nEDESC\n"
                   "agent {1.3.6.1.4.1.8072}\n"
                   "ups {.1.3.6.1.2.1.33}\n"
                   "agentDown {1.3.6.1.4.1.8072} 6 2 A 4 1 \"Status Events\"\n"
                   "$A is down\n"
                   "SDESC\nThe agent stops.\nEDESC\n"),
              done);
    EXPECT_EQ(categories(), (Names{"3=Status Events", "9=IGNORE", "12=Power Supply"}));
    ASSERT_EQ(numActionCommands, 1);
    EXPECT_STREQ(actionCommands[0].name, "page");
    EXPECT_EQ(actionCommands[0].waitTime, 30);
    EXPECT_STREQ(actionCommands[0].cmd, "/usr/bin/page -n 12 \"now\"");
    EXPECT_STREQ(actionCommands[0].description, "Calls the\noperator.");
    EXPECT_EQ(enterprises(), (Names{"ups", "agent"}));
    const trap_record* record = trap("agentDown");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->generic_trap, 6);
    EXPECT_EQ(record->specific_trap, 2);
    EXPECT_EQ(record->source, 'A');
    EXPECT_EQ(record->severity, 4);
    EXPECT_EQ(record->status, 1);
    EXPECT_EQ(record->category_number, 3);
    EXPECT_EQ(have_read_vortdconf, 1);
}

TEST_F(Reader, AnEmptyFileIsRead) {
    EXPECT_EQ(read(""), done);
    EXPECT_EQ(categories(), Names{});
    EXPECT_EQ(enterprises(), Names{});
    EXPECT_EQ(have_read_vortdconf, 1);
}

TEST_F(Reader, NullsReadNothing) {
    EXPECT_EQ(read_trapspec_file(nullptr), -1);
    EXPECT_EQ(augmentTrapspecFile(nullptr, dir_.write("more", "").c_str()), -1);
    char* message = nullptr;
    EXPECT_EQ(augmentTrapspecFile(&message, nullptr), -1);
    EXPECT_STREQ(message, "");
    EXPECT_EQ(have_read_vortdconf, 0);
}

/* --- categories --- */

TEST_F(Reader, ATakenSlotSendsANewNameToTheHighestFreeOne) {
    EXPECT_EQ(read("CATEGORY 3 \"a\"\nCATEGORY 3 \"b\"\nCATEGORY 3 \"c\"\n"), done);
    EXPECT_EQ(categories(), (Names{"3=a", "62=c", "63=b"}));
}

TEST_F(Reader, ANameThatStandsSomewhereIsNotMoved) {
    EXPECT_EQ(read("CATEGORY 3 \"a\"\nCATEGORY 4 \"b\"\nCATEGORY 4 \"a\"\nCATEGORY 4 \"b\"\n"),
              done);
    EXPECT_EQ(categories(), (Names{"3=a", "4=b"}));
}

TEST_F(Reader, AnEmptySlotTakesANameThatStandsElsewhereToo) {
    EXPECT_EQ(read("CATEGORY 3 \"a\"\nCATEGORY 63 \"a\"\nCATEGORY 0 \"a\"\n"), done);
    EXPECT_EQ(categories(), (Names{"0=a", "3=a", "63=a"}));
}

TEST_F(Reader, SlotZeroIsNeverChosen) {
    std::string file;
    for (int slot = 1; slot < 64; ++slot) {
        file += "CATEGORY " + std::to_string(slot) + " \"c" + std::to_string(slot) + "\"\n";
    }
    EXPECT_EQ(read(file + "CATEGORY 5 \"more\"\n"),
              failure("Category could not be added (64 categories already defined)\n", 64,
                      "CATEGORY 5 \"more\""));
    EXPECT_EQ(categories().size(), 63U);
    EXPECT_EQ(read(file + "CATEGORY 0 \"more\"\n"), done);
    EXPECT_EQ(categories().front(), "0=more");
}

TEST_F(Reader, OneStandardCategoryComesWithTheEndOfTheSection) {
    EXPECT_EQ(read("#\n" + agent), done);
    EXPECT_EQ(categories(), Names{"9=IGNORE"});
    const Names order = {"7=LOGONLY",
                         "2=Error Events",
                         "0=Threshold Events",
                         "1=Network Topology Events",
                         "3=Status Events",
                         "4=Node Configuration Events",
                         "5=Application Alert Events"};
    for (size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(augment(agent), done);
        EXPECT_EQ(categories().size(), i + 2);
        EXPECT_EQ(std::string(EMScategories[order[i][0] - '0']), order[i].substr(2));
    }
    EXPECT_EQ(augment(agent), done);
    EXPECT_EQ(categories().size(), 8U);
}

TEST_F(Reader, OtherStandardCategoriesMustBeNamed) {
    EXPECT_EQ(read(agent + block("down", 2)),
              failure("No such display category \"Status Events\" defined", 2,
                      "down {1.3.6.1.4.1.8072} 6 2 A 1 0 \"Status Events\""));
}

TEST_F(Reader, AFileThatEndsBeforeTheSectionDoesGetsNone) {
    EXPECT_EQ(read("CATEGORY 3 \"a\"\n"), done);
    EXPECT_EQ(categories(), Names{"3=a"});
}

/* --- actions --- */

TEST_F(Reader, AnActionMayHaveNoCommand) {
    EXPECT_EQ(read("ACTION 0 \"none\"\nSDESC\nEDESC\n"
                   "ACTION 5 \"blanks\"   \nSDESC\nEDESC\n"
                   "ACTION 5 \"open\nSDESC\nEDESC\n"),
              done);
    ASSERT_EQ(numActionCommands, 3);
    for (int i = 0; i < numActionCommands; ++i) {
        EXPECT_STREQ(actionCommands[i].cmd, "") << i;
        EXPECT_STREQ(actionCommands[i].description, "") << i;
    }
    EXPECT_STREQ(actionCommands[2].name, "open");
}

TEST_F(Reader, AnActionReplacesTheOneOfItsName) {
    EXPECT_EQ(read("ACTION 1 \"a\" one\nSDESC\nfirst\nEDESC\n"
                   "ACTION 2 \"b\" two\nSDESC\nsecond\nEDESC\n"
                   "ACTION 3 \"a\" three\nSDESC\nthird\nEDESC\n"),
              done);
    ASSERT_EQ(numActionCommands, 2);
    EXPECT_STREQ(actionCommands[0].name, "a");
    EXPECT_EQ(actionCommands[0].waitTime, 3);
    EXPECT_STREQ(actionCommands[0].cmd, "three");
    EXPECT_STREQ(actionCommands[0].description, "third");
    EXPECT_STREQ(actionCommands[1].cmd, "two");
    EXPECT_EQ(augment("ACTION 4 \"b\" four\nSDESC\nEDESC\nACTION 5 \"A\" five\nSDESC\nEDESC\n"),
              done);
    ASSERT_EQ(numActionCommands, 3);
    EXPECT_STREQ(actionCommands[1].cmd, "four");
    EXPECT_STREQ(actionCommands[2].name, "A");
}

TEST_F(Reader, ActionsAreReadWhateverTheirNumber) {
    std::string file;
    constexpr int count = 20000;
    for (int i = 0; i < count; ++i) {
        file += "ACTION 1 \"a" + std::to_string(i) + "\" c\nSDESC\nEDESC\n";
    }
    EXPECT_EQ(read(file), done);
    EXPECT_EQ(numActionCommands, count);
    EXPECT_STREQ(actionCommands[count - 1].name, "a19999");
    EXPECT_EQ(deleteTrapAction("a7"), 0);
    EXPECT_EQ(augment("ACTION 1 \"a7\" again\nSDESC\nEDESC\nACTION 1 \"b\" c\nSDESC\nEDESC\n"),
              done);
    EXPECT_EQ(numActionCommands, count + 1);
}

TEST_F(Reader, LinesThatAreNoActionsEndTheSection) {
    for (const std::string line : {"ACTION 5 cmd", "ACTION x \"a\"", "ACTION 5 \"\" cmd"}) {
        EXPECT_EQ(read(line + "\n"), failure("Bad name line (matched 1, not 8 tokens)\n", 1, line));
    }
}

/* --- enterprises --- */

TEST_F(Reader, AnEnterpriseReadAgainIsRenamed) {
    EXPECT_EQ(read("one {1.3.6.1}\ntwo {.1.3.6.1}\nmore {1.3.6.1.4}\n"), done);
    EXPECT_EQ(enterprises(), (Names{"more", "two"}));
}

TEST_F(Reader, AnEnterpriseLineMayEndEarly) {
    EXPECT_EQ(read("open {1.3.6.1.9\nspread   \t {1.3.6.1.8}  \t\n"), done);
    EXPECT_EQ(enterprises(), (Names{"spread", "open"}));
}

TEST_F(Reader, TheLongestObjectIdentifierHas512Numbers) {
    std::string oid = "1";
    for (int i = 1; i < 512; ++i) {
        oid += ".4294967295";
    }
    EXPECT_EQ(read("long {" + oid + "}\n"), done);
    EXPECT_EQ(enterprise_list_head.next->oid_len, 512U);
    EXPECT_EQ(read("long {" + oid + ".1}\n"), failure("Bad oid char", 1, "long {" + oid + ".1}"));
}

TEST_F(Reader, ATrailingWordEndsTheEnterprises) {
    EXPECT_EQ(
        read(agent + "ups {1.3.6.1.2.1.33} extra\n"),
        failure("Bad name line (matched 2, not 8 tokens)\n", 2, "ups {1.3.6.1.2.1.33} extra"));
}

/* --- sections --- */

TEST_F(Reader, ThereIsNoWayBackToAnEarlierSection) {
    const std::string action = "ACTION 1 \"a\" c\nSDESC\nEDESC\n";
    EXPECT_EQ(read(action + status_category), failure("Bad name line (matched 1, not 8 tokens)\n",
                                                      4, "CATEGORY 3 \"Status Events\""));
    EXPECT_EQ(read(agent + action),
              failure("Bad name line (matched 1, not 8 tokens)\n", 2, "ACTION 1 \"a\" c"));
    EXPECT_EQ(read(status_category + agent + block("x", 1) + agent),
              failure("Bad name line (matched 2, not 8 tokens)\n", 7, "agent {1.3.6.1.4.1.8072}"));
}

TEST_F(Reader, AnEmptyLineEndsEachSectionAndIsNoTrap) {
    for (const std::string& before :
         {std::string(), status_category, "ACTION 1 \"a\" c\nSDESC\nEDESC\n" + std::string(), agent,
          status_category + agent + block("x", 1)}) {
        const int line = static_cast<int>(std::count(before.begin(), before.end(), '\n')) + 1;
        for (const char* blanks : {"", " \t "}) {
            EXPECT_EQ(read(before + blanks + "\n" + agent),
                      failure("Bad name line (matched -1, not 8 tokens)\n", line, ""));
        }
    }
}

/* --- the default record --- */

TEST_F(Reader, TheFirstReadFillsTheDefaultRecord) {
    EXPECT_EQ(read(""), done);
    EXPECT_STREQ(default_trap_record.name, "HARD_DEFAULT");
    EXPECT_EQ(default_trap_record.category_number, 2);
    EXPECT_EQ(default_trap_record.source, '?');
    EXPECT_EQ(default_trap_record.severity, 1);
    EXPECT_STREQ(default_trap_record.trapDescription,
                 "Trap used when no other trap is configured.");
    EXPECT_STREQ(default_trap_record.description.format,
                 "NO FMT IN VORTD.CONF: %s (%s) generic:%s specific:%s args(%s): %s");
    EXPECT_EQ(default_trap_record.description.num_args, 6);
    EXPECT_EQ(default_trap_record.nodeCnt, 0);
    EXPECT_EQ(default_trap_record.next, nullptr);
}

TEST_F(Reader, TheDefaultRecordIsKept) {
    EXPECT_EQ(read(agent), done);
    const char* format = default_trap_record.description.format;
    default_trap_record.severity = 5;
    EXPECT_EQ(read(agent), done);
    EXPECT_EQ(default_trap_record.description.format, format);
    EXPECT_EQ(default_trap_record.severity, 5);
    default_trap_record.severity = 1;
}

/* --- reading again, reading more --- */

TEST_F(Reader, AReadReplacesTheModel) {
    EXPECT_EQ(read(status_category + "ACTION 1 \"a\" c\nSDESC\nEDESC\n" + agent + block("x", 1)),
              done);
    EXPECT_EQ(read("CATEGORY 4 \"other\"\nups {1.3.6.1.2.1.33}\n"), done);
    EXPECT_EQ(categories(), (Names{"4=other", "9=IGNORE"}));
    EXPECT_EQ(numActionCommands, 0);
    EXPECT_EQ(enterprises(), Names{"ups"});
    EXPECT_EQ(traps(), Names{});
}

TEST_F(Reader, AModelWithoutEnterprisesIsAddedTo) {
    EXPECT_EQ(read("CATEGORY 3 \"a\"\nACTION 1 \"a\" c\nSDESC\nEDESC\n"), done);
    EXPECT_EQ(read("CATEGORY 4 \"b\"\n"), done);
    EXPECT_EQ(categories(), (Names{"3=a", "4=b", "9=IGNORE"}));
    EXPECT_EQ(numActionCommands, 1);
}

TEST_F(Reader, AFileThatCannotBeOpenedLeavesTheModel) {
    EXPECT_EQ(read(status_category + agent + block("x", 1)), done);
    have_read_vortdconf = 0;
    const std::string gone = dir_.path("gone");
    EXPECT_EQ(read_path(gone), (ConfRead{-1, "Could not open trap format file \"" + gone +
                                                 "\": No such file or directory\n"}));
    EXPECT_EQ(traps(), Names{"x"});
    EXPECT_EQ(have_read_vortdconf, 0);
}

TEST_F(Reader, WhatWasReadBeforeAnErrorStays) {
    EXPECT_EQ(read(status_category + agent + block("x", 1) + "bad\n").result, -1);
    EXPECT_EQ(traps(), Names{"x"});
    EXPECT_EQ(have_read_vortdconf, 0);
    EXPECT_EQ(read(status_category + agent), done);
    EXPECT_EQ(traps(), Names{});
}

TEST_F(Reader, AFurtherFileIsAddedToTheModel) {
    EXPECT_EQ(read(status_category + agent + block("x", 1) + block("y", 2)), done);
    EXPECT_EQ(augment("CATEGORY 4 \"other\"\n"
                      "ACTION 1 \"a\" c\nSDESC\nEDESC\n"
                      "renamed {1.3.6.1.4.1.8072}\nups {1.3.6.1.2.1.33}\n" +
                      block("z", 3) + block("x", 1, "new text")),
              done);
    EXPECT_EQ(categories(), (Names{"3=Status Events", "4=other", "7=LOGONLY", "9=IGNORE"}));
    EXPECT_EQ(numActionCommands, 1);
    EXPECT_EQ(enterprises(), (Names{"ups", "renamed"}));
    EXPECT_EQ(traps(), (Names{"x", "y", "z"}));
    EXPECT_STREQ(trap("x")->description.format, "new text");
}

TEST_F(Reader, AFurtherFileHasAMessageOfItsOwn) {
    setVortdConfFile(dir_.write("conf", "bad\n").c_str());
    char* first = nullptr;
    char* second = nullptr;
    EXPECT_EQ(read_trapspec_file(&first), -1);
    const std::string before = first;
    const std::string gone = dir_.path("gone");
    EXPECT_EQ(augmentTrapspecFile(&second, gone.c_str()), -1);
    EXPECT_EQ(std::string(second),
              "Could not open new trap format file \"" + gone + "\": No such file or directory\n");
    EXPECT_EQ(first, before);
    EXPECT_EQ(augmentTrapspecFile(&second, dir_.write("more", agent + "bad\n").c_str()), -1);
    EXPECT_EQ(std::string(second), "Bad name line (matched 1, not 8 tokens)\n in line #2 of \"" +
                                       dir_.path("more") + "\":\nbad.\n");
    EXPECT_EQ(augmentTrapspecFile(&second, dir_.write("more", "").c_str()), 0);
    EXPECT_STREQ(second, "");
    EXPECT_EQ(first, before);
}

TEST_F(Reader, MessagesNameFilesWhole) {
    std::string folder = dir_.path();
    for (int i = 0; i < 12; ++i) {
        folder += "/" + std::string(250, 'n');
        std::filesystem::create_directory(folder);
    }
    const std::string file = folder + "/conf";
    EXPECT_EQ(read_path(file).message,
              "Could not open trap format file \"" + file + "\": No such file or directory\n");
    std::ofstream(file) << "bad\n";
    EXPECT_EQ(read_path(file).message,
              "Bad name line (matched 1, not 8 tokens)\n in line #1 of \"" + file + "\":\nbad.\n");
    std::ofstream(file) << "ACTION 1 \"a\" c\n";
    EXPECT_EQ(read_path(file).message,
              "End of file in \"" + file + "\" prematurely reached after ACTION keyword");
    char* message = nullptr;
    EXPECT_EQ(augmentTrapspecFile(&message, (file + "x").c_str()), -1);
    EXPECT_EQ(std::string(message),
              "Could not open new trap format file \"" + file + "x\": No such file or directory\n");
}

/* --- trace --- */

TEST_F(Reader, TracesItsStepsWhenAsked) {
    trace_vortdconf = 1;
    const std::string file = status_category + agent + block("x", 1);
    const std::string start =
        "read_trapspec_file: resetting keyword strlens\n"
        "doReadTrapspecFile: starting read of vortd.conf\n";
    const std::string sections =
        "doReadTrapspecFile: starting read of ACTIONS\n"
        "doReadTrapspecFile: starting read of ENTERPRISES\n"
        "doReadTrapspecFile: starting read of TRAPS\n";
    const std::string finish =
        "doReadTrapspecFile: finished read of vortd.conf\n"
        "read_trapspec_file: about to read ferlospec_file.\n";
    EXPECT_EQ(diagnostics(0, [&] { read(file); }).trace, start + sections + finish);
    EXPECT_EQ(diagnostics(0, [&] { read(file + "bad\n"); }).trace,
              "read_trapspec_file: freeing old info.\n" + start + sections +
                  "doReadTrapspecFile: error reading vortd.conf file [-1]\n");
    EXPECT_EQ(diagnostics(0, [&] { augment(""); }).trace,
              "doReadTrapspecFile: starting read of vortd.conf\n"
              "doReadTrapspecFile: finished read of vortd.conf\n");
    trace_vortdconf = 0;
    EXPECT_EQ(diagnostics(0, [&] { read(file); }).trace, "");
}

/* --- keywords --- */

class Keywords : public TrapConf {
  protected:
    ~Keywords() override {
        for (const auto& [keyword, spelling] : saved_) {
            *keyword = spelling;
        }
        read("");
    }

    const std::pair<const char**, const char*> saved_[11] = {
        {&categoryKeyword, categoryKeyword},
        {&actionKeyword, actionKeyword},
        {&execKeyword, execKeyword},
        {&displayKeyword, displayKeyword},
        {&forwardKeyword, forwardKeyword},
        {&nodesKeyword, nodesKeyword},
        {&eventclassKeyword, eventclassKeyword},
        {&smapKeyword, smapKeyword},
        {&emapKeyword, emapKeyword},
        {&sdescKeyword, sdescKeyword},
        {&edescKeyword, edescKeyword},
    };
};

TEST_F(Keywords, HaveTheirStandardSpelling) {
    const Names expected = {"CATEGORY",         "ACTION", "EXEC",        "DISPLAY",
                            "FORWARD",          "NODES",  "EVENT_CLASS", "BEGIN_SLOT_MAPPING",
                            "END_SLOT_MAPPING", "SDESC",  "EDESC"};
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(*saved_[i].first, expected[i]);
    }
}

TEST_F(Keywords, MayBeSpeltAnotherWayBeforeARead) {
    categoryKeyword = "KIND_OF_EVENT";
    actionKeyword = "DO";
    execKeyword = "RUN";
    displayKeyword = "SHOW_TO_ALL";
    forwardKeyword = "ON";
    nodesKeyword = "AT";
    eventclassKeyword = "CLASS";
    smapKeyword = "MAP";
    emapKeyword = "PAM";
    sdescKeyword = "\"\"\"";
    edescKeyword = ".";
    EXPECT_EQ(read("KIND_OF_EVENT 3 \"Status Events\"\n"
                   "DO 1 \"a\" c\n\"\"\"\ntold\n.\n" +
                   agent +
                   "x {1.3.6.1.4.1.8072} 6 2 A 1 0 \"Status Events\"\nSDESC\n"
                   "RUN one\nSHOW_TO_ALL two\nON\nAT alpha\nCLASS k\nMAP\na b\nPAM\n"
                   "\"\"\"\nSDESC\nEDESC\n.\n"),
              done);
    const trap_record* record = trap("x");
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->description.format, "SDESC");
    EXPECT_STREQ(record->execargs_ptr->format, "one");
    EXPECT_STREQ(record->exec_display_args_ptr->format, "two");
    EXPECT_EQ(record->forward, 1);
    EXPECT_EQ(record->nodeCnt, 1);
    EXPECT_STREQ(record->prxClassName, "k");
    EXPECT_EQ(record->slotMap->slotCnt, 1);
    EXPECT_STREQ(record->trapDescription, "SDESC\nEDESC");
    EXPECT_STREQ(actionCommands[0].description, "told");
    EXPECT_EQ(read("DO 1 \"a\" c\nSDESC\n"), failure("Did not find a \"\"\" keyword", 2, "SDESC"));
    EXPECT_EQ(read("DO 1 \"a\" c\n"),
              (ConfRead{-1, "End of file in \"" + dir_.path("conf") +
                                "\" prematurely reached after DO keyword"}));
}

/* Lengths are taken when the file is read, and kept for further files. */
TEST_F(Keywords, AFurtherFileComparesTheLengthsOfTheLastRead) {
    EXPECT_EQ(read(status_category), done);
    categoryKeyword = "CATEGORYX";
    EXPECT_EQ(augment("CATEGORY 4 \"four\"\n"), done);
    EXPECT_EQ(categories(), (Names{"3=Status Events", "4=four"}));
    categoryKeyword = "CAT";
    EXPECT_EQ(augment("CAT 5 \"five\"\n").message,
              "Bad name line (matched 1, not 8 tokens)\n in line #1 of \"" + dir_.path("more") +
                  "\":\nCAT 5 \"five\".\n");
    EXPECT_EQ(augment("CAT\n").message, "Invalid number of fields (-1), expect 2 in line #1 of \"" +
                                            dir_.path("more") + "\":\nCAT.\n");
    EXPECT_EQ(read("CAT 5 \"five\"\n"), done);
}

TEST_F(Keywords, LengthsOfFlagAndClassAreTakenAnew) {
    EXPECT_EQ(read(status_category + agent), done);
    forwardKeyword = "FORWARD_IT";
    eventclassKeyword = "KIND";
    const std::string event = "x {1.3.6.1.4.1.8072} 6 2 A 1 0 \"Status Events\"\ntext\n";
    EXPECT_EQ(augment(event + "FORWARD_IT\nKIND k\nSDESC\nEDESC\n"), done);
    EXPECT_STREQ(trap("x")->prxClassName, "k");
    EXPECT_EQ(augment(event + "FORWARD\nSDESC\nEDESC\n").result, -1);
}

TEST_F(Keywords, AKeywordThatIsMissingNeverMatches) {
    categoryKeyword = nullptr;
    execKeyword = nullptr;
    smapKeyword = nullptr;
    EXPECT_EQ(read("CATEGORY 3 \"a\"\n").result, -1);
    EXPECT_EQ(read(agent + "x {1.3.6.1.4.1.8072} 6 2 A 1 0 \"IGNORE\"\ntext\nSDESC\nEDESC\n"),
              done);
    sdescKeyword = nullptr;
    EXPECT_EQ(read(agent + "x {1.3.6.1.4.1.8072} 6 2 A 1 0 \"IGNORE\"\ntext\nSDESC\n"),
              failure("Did not find a  keyword", 4, "SDESC"));
}

/* --- texts that are handed out --- */

TEST_F(TrapConf, MessagesStayReadable) {
    std::vector<const char*> messages;
    for (std::size_t length = 1; length < 4000; length *= 2) {
        const std::string line(length, 'x');
        EXPECT_EQ(read(line), failure("Bad name line (matched 1, not 8 tokens)\n", 1, line));
        char* message = nullptr;
        EXPECT_EQ(read_trapspec_file(&message), -1);
        messages.push_back(message);
        EXPECT_EQ(augmentTrapspecFile(&message, dir_.path("conf").c_str()), -1);
        messages.push_back(message);
        dir_.write("alerts", line + "\n");
        EXPECT_EQ(read_ferlospec_file(&message), -1);
        messages.push_back(message);
        EXPECT_EQ(write_ferlospec_file(&message), 0);
        messages.push_back(message);
        dir_.write("alerts", "");
    }
    for (const char* message : messages) {
        EXPECT_LT(std::string(message).size(), 8000U);
    }
}

}  // namespace
}  // namespace wq::test
