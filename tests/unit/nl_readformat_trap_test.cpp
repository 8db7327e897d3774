/*
 * Trap blocks: the lines of an event, in order, and what becomes of them in the model.
 */
#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <string>
#include <vector>

#include "support/trap_conf.h"

namespace wq::test {
namespace {

using Names = std::vector<std::string>;

const ConfRead done{0, ""};

const std::string head =
    "CATEGORY 3 \"Status Events\"\n"
    "CATEGORY 4 \"Other\"\n"
    "agent {1.3.6.1.4.1.8072}\n";
const std::string event = "x {1.3.6.1.4.1.8072} 6 2 A 1 0 \"Status Events\"";

class TrapBlocks : public TrapConf {
  protected:
    /* The trap x with `lines` between its event line and its description; null: not read. */
    trap_record* read_trap(const std::string& lines, const std::string& tail = "SDESC\nEDESC\n") {
        EXPECT_EQ(read(head + event + "\n" + lines + tail), done);
        return trap("x");
    }

    static Names nodes(const trap_record* record) {
        return {record->nodeList, record->nodeList + record->nodeCnt};
    }
};

TEST_F(TrapBlocks, OnlyFormatAndDescriptionAreRequired) {
    const trap_record* record = read_trap("Link $1 on $A\n");
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->description.rawstring, "Link $1 on $A");
    EXPECT_STREQ(record->description.format, "Link %s on %s");
    EXPECT_EQ(record->description.num_args, 2);
    EXPECT_STREQ(record->trapDescription, "");
    EXPECT_EQ(record->execargs_ptr, nullptr);
    EXPECT_EQ(record->exec_display_args_ptr, nullptr);
    EXPECT_EQ(record->forward, 0);
    EXPECT_EQ(record->nodeCnt, 0);
    EXPECT_EQ(record->prxClassName, nullptr);
    EXPECT_EQ(record->slotMap, nullptr);
    EXPECT_EQ(record->category_name, nullptr);
    EXPECT_EQ(record->exec_prog, nullptr);
    EXPECT_EQ(record->exec_display_prog, nullptr);
    EXPECT_EQ(record->alert_element, nullptr);
}

TEST_F(TrapBlocks, MayHaveAllOptionalLines) {
    const trap_record* record = read_trap(
        "  text with an end \n"
        "EXEC  /bin/run $1 \t\n"
        "DISPLAY zshow $A\n"
        "FORWARD\n"
        "NODES alpha beta,gamma,, delta\n"
        "EVENT_CLASS  Class of its own \n"
        "BEGIN_SLOT_MAPPING\n"
        "host $A\n"
        "  text   $1  and more \t\n"
        "END_SLOT_MAPPING\n"
        "SDESC\n  one\n\n  two  \nEDESC\n",
        "");
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->description.rawstring, "text with an end ");
    ASSERT_NE(record->execargs_ptr, nullptr);
    EXPECT_STREQ(record->execargs_ptr->rawstring, "/bin/run $1");
    EXPECT_STREQ(record->execargs_ptr->format, "/bin/run %s");
    ASSERT_NE(record->exec_display_args_ptr, nullptr);
    EXPECT_STREQ(record->exec_display_args_ptr->rawstring, "zshow $A");
    EXPECT_EQ(record->forward, 1);
    EXPECT_EQ(nodes(record), (Names{"alpha", "beta", "gamma", "delta"}));
    EXPECT_STREQ(record->prxClassName, " Class of its own ");
    ASSERT_NE(record->slotMap, nullptr);
    ASSERT_EQ(record->slotMap->slotCnt, 2);
    EXPECT_STREQ(record->slotMap->slotName[0], "host");
    EXPECT_STREQ(record->slotMap->slotVal[0], "$A");
    EXPECT_STREQ(record->slotMap->slotName[1], "text");
    EXPECT_STREQ(record->slotMap->slotVal[1], "$1  and more");
    EXPECT_STREQ(record->trapDescription, "one\n\ntwo");
}

TEST_F(TrapBlocks, EachOptionalLineMayStandAlone) {
    EXPECT_STREQ(read_trap("t\nEXEC e\n")->execargs_ptr->rawstring, "e");
    EXPECT_STREQ(read_trap("t\nDISPLAY d\n")->exec_display_args_ptr->rawstring, "d");
    EXPECT_EQ(read_trap("t\nFORWARD to somewhere\n")->forward, 1);
    EXPECT_EQ(nodes(read_trap("t\nNODES n\n")), Names{"n"});
    EXPECT_STREQ(read_trap("t\nEVENT_CLASS k\n")->prxClassName, "k");
    EXPECT_EQ(read_trap("t\nBEGIN_SLOT_MAPPING\na b\nEND_SLOT_MAPPING\n")->slotMap->slotCnt, 1);
}

/* Keywords of lines with more on them are beginnings of lines. */
TEST_F(TrapBlocks, LongerWordsCountAsTheirBeginnings) {
    const trap_record* record = read_trap(
        "t\nEXECUTE now\nDISPLAYS it\nFORWARDED\nNODESX alpha\nEVENT_CLASSY k\n"
        "BEGIN_SLOT_MAPPINGS here\na b\nEND_SLOT_MAPPING\n");
    EXPECT_STREQ(record->execargs_ptr->rawstring, "TE now");
    EXPECT_STREQ(record->exec_display_args_ptr->rawstring, "it");
    EXPECT_EQ(record->forward, 1);
    EXPECT_EQ(nodes(record), Names{"alpha"});
    EXPECT_STREQ(record->prxClassName, " k");
    EXPECT_EQ(record->slotMap->slotCnt, 1);
}

TEST_F(TrapBlocks, KeywordsWithoutTextGiveEmptyOnes) {
    const trap_record* record = read_trap("t\nEXEC\nDISPLAY \nNODES\nEVENT_CLASS\n");
    ASSERT_NE(record->execargs_ptr, nullptr);
    EXPECT_STREQ(record->execargs_ptr->rawstring, "");
    ASSERT_NE(record->exec_display_args_ptr, nullptr);
    EXPECT_STREQ(record->exec_display_args_ptr->rawstring, "");
    EXPECT_EQ(record->nodeCnt, 0);
    EXPECT_STREQ(record->prxClassName, "");
}

TEST_F(TrapBlocks, TheFormatIsTheWholeLineWhateverItSays) {
    EXPECT_STREQ(read_trap("\n")->description.rawstring, "");
    EXPECT_STREQ(read_trap("SDESC\n")->description.rawstring, "SDESC");
    EXPECT_STREQ(read_trap("EXEC e\n")->description.rawstring, "EXEC e");
    EXPECT_EQ(trap("x")->execargs_ptr, nullptr);
}

TEST_F(TrapBlocks, NamesOf40CharactersLoseTheLast) {
    const std::string name(40, 'n');
    EXPECT_EQ(read(head + name + " {1.3.6.1.4.1.8072} 6 1 A 1 0 \"Other\"\nt\nSDESC\nEDESC\n"),
              done);
    EXPECT_EQ(traps(), Names{std::string(39, 'n')});
    const std::string line = name + "n {1.3.6.1.4.1.8072} 6 1 A 1 0 \"Other\"";
    EXPECT_EQ(read(head + line + "\n"),
              failure("vortd.conf file not loaded because trap name length [41] exceeds maximum "
                      "size permitted of 40\n ",
                      4, line));
}

TEST_F(TrapBlocks, ANameThatIsTakenOnlyWhenCutGetsANumber) {
    const std::string tail = " A 1 0 \"Other\"\nt\nSDESC\nEDESC\n";
    const std::string oid = " {1.3.6.1.4.1.8072} 6 ";
    EXPECT_EQ(read(head + std::string(39, 'n') + oid + "1" + tail + std::string(40, 'n') + oid +
                   "2" + tail),
              done);
    EXPECT_EQ(traps(), (Names{std::string(39, 'n'), std::string(37, 'n') + "_1"}));
}

TEST_F(TrapBlocks, NumbersAreTakenAsTheyStand) {
    EXPECT_EQ(read(head + "x {1.3.6.1.4.1.8072} -1 4294967295 ? -2147483648 +7 \"Other\"\n"
                          "t\nSDESC\nEDESC\n"),
              done);
    const trap_record* record = trap("x");
    EXPECT_EQ(record->generic_trap, -1);
    EXPECT_EQ(record->specific_trap, -1);
    EXPECT_EQ(record->source, '?');
    EXPECT_EQ(record->severity, -2147483647 - 1);
    EXPECT_EQ(record->status, 7);
    EXPECT_EQ(record->category_number, 4);
}

TEST_F(TrapBlocks, FieldsMayTouchWhereThePatternLetsThem) {
    EXPECT_EQ(read(head + "x{a {.1.3.6.1.4.1.8072}6 2A1 0\"Other\nt\nSDESC\nEDESC\n"), done);
    EXPECT_EQ(traps(), Names{"x{a"});
    EXPECT_EQ(trap("x{a")->source, 'A');
}

TEST_F(TrapBlocks, TheCategoryIsTheFirstSlotOfItsName) {
    EXPECT_EQ(read("CATEGORY 60 \"b\"\nCATEGORY 7 \"a\"\nCATEGORY 8 \"a\"\nagent {1.3}\n"
                   "x {1.3} 6 1 A 1 0 \"b\"\nt\nSDESC\nEDESC\n"
                   "y {1.3} 6 2 A 1 0 \"a\"\nt\nSDESC\nEDESC\n"
                   "z {1.3} 6 3 A 1 0 \"b\"\nt\nSDESC\nEDESC\n"),
              done);
    EXPECT_EQ(trap("x")->category_number, 60);
    EXPECT_EQ(trap("y")->category_number, 7);
    EXPECT_EQ(trap("z")->category_number, 60);
}

TEST_F(TrapBlocks, EachGoesToItsOwnEnterprise) {
    const std::string tail = " A 1 0 \"Other\"\nt\nSDESC\nEDESC\n";
    EXPECT_EQ(read(head + "sub {1.3.6.1.4.1.8072.3}\n" + "a {1.3.6.1.4.1.8072} 6 1" + tail +
                   "b {.1.3.6.1.4.1.8072.3} 6 1" + tail + "c {.1.3.6.1.4.1.8072} 6 2" + tail +
                   "d {1.3.6.1.4.1.8072.3} 6 2" + tail),
              done);
    EXPECT_EQ(enterprises(), (Names{"sub", "agent"}));
    EXPECT_EQ(traps(), (Names{"b", "d", "a", "c"}));
}

/* --- order, nodes, updates --- */

std::string block(const std::string& name, const std::string& numbers,
                  const std::string& lines = "") {
    return name + " {1.3.6.1.4.1.8072} " + numbers + " A 1 0 \"Other\"\n" + name + " text\n" +
           lines + "SDESC\n" + name + " told\nEDESC\n";
}

TEST_F(TrapBlocks, StandInTheOrderOfTheirNumbers) {
    EXPECT_EQ(read(head + block("c", "6 3") + block("a", "2 0") + block("b", "6 1") +
                   block("d", "6 4") + block("z", "-1 9")),
              done);
    EXPECT_EQ(traps(), (Names{"z", "a", "b", "c", "d"}));
}

TEST_F(TrapBlocks, OfTheSameNumbersThoseWithNodesComeFirst) {
    EXPECT_EQ(read(head + block("general", "6 3") + block("special", "6 3", "NODES alpha\n")),
              done);
    EXPECT_EQ(traps(), (Names{"special", "general"}));
    EXPECT_EQ(read(head + block("special", "6 3", "NODES alpha\n") + block("general", "6 3")),
              done);
    EXPECT_EQ(traps(), (Names{"special", "general"}));
    EXPECT_STREQ(findExactTrapRecord(enterprise_list_head.next, 6, 3, "alpha")->name, "special");
    EXPECT_STREQ(findExactTrapRecord(enterprise_list_head.next, 6, 3, "beta")->name, "general");
}

/* Only a program gives two records the same node. */
TEST_F(TrapBlocks, OfTwoWithTheSameNodeTheFirstIsUpdated) {
    ASSERT_EQ(read(head + block("second", "6 3", "NODES alpha\n") +
                   block("first", "6 3", "NODES beta\n")),
              done);
    ASSERT_EQ(traps(), (Names{"first", "second"}));
    char*& node = trap("first")->nodeList[0];
    doFree(node);
    node = doStrdup("alpha");
    EXPECT_EQ(augment(block("new", "6 3", "NODES alpha\n")), done);
    EXPECT_EQ(traps(), (Names{"new", "second"}));
}

TEST_F(TrapBlocks, ASecondBlockForATrapUpdatesIt) {
    EXPECT_EQ(read(head + block("first", "6 3", "EXEC e\nEVENT_CLASS k\n") +
                   block("second", "6 3", "FORWARD\nEVENT_CLASS other\n")),
              done);
    EXPECT_EQ(traps(), Names{"second"});
    const trap_record* record = trap("second");
    EXPECT_STREQ(record->description.rawstring, "second text");
    EXPECT_STREQ(record->trapDescription, "second told");
    EXPECT_STREQ(record->execargs_ptr->rawstring, "e");
    EXPECT_STREQ(record->prxClassName, "k");
    EXPECT_EQ(record->forward, 1);
}

TEST_F(TrapBlocks, ANameInUseRejectsTheBlock) {
    const std::string line = "x {1.3.6.1.4.1.8072} 6 4 A 1 0 \"Other\"";
    EXPECT_EQ(read(head + block("x", "6 3") + block("x", "6 4")),
              failure("Not loading trap format.  Trap name x is already in use.\n"
                      "Rename the event to avoid the conflict",
                      9, line));
    EXPECT_EQ(traps(), Names{"x"});
    EXPECT_EQ(read(head + "sub {1.3.6.1.4.1.8072.3}\nx {1.3.6.1.4.1.8072.3} 6 3 A 1 0 \"Other\"\n" +
                   "t\nSDESC\nEDESC\n" + block("x", "6 3"))
                  .result,
              -1);
    EXPECT_EQ(read(head + block("x", "6 3") + block("x", "6 3")), done);
    EXPECT_EQ(traps(), Names{"x"});
}

/* --- flags --- */

TEST_F(TrapBlocks, DescriptionsMayBeCheckedAndDropped) {
    trpFormatDontMallocDesc = 1;
    const std::string action = "ACTION 1 \"a\" c\nSDESC\ntold\nEDESC\n";
    EXPECT_EQ(
        read("CATEGORY 4 \"Other\"\n" + action + "agent {1.3.6.1.4.1.8072}\n" + block("x", "6 3")),
        done);
    EXPECT_EQ(trap("x")->trapDescription, nullptr);
    EXPECT_EQ(actionCommands[0].description, nullptr);
    EXPECT_EQ(read(head + event + "\nt\nSDESC\n" + std::string(5020, 'd') + "\nEDESC\n"),
              failure("Trap description too long", 7, std::string(5020, 'd')));
}

TEST_F(TrapBlocks, RawTextsMayBeDropped) {
    trpFormatDontMallocRaw = 1;
    const trap_record* record = read_trap("t $1\nEXEC e\n");
    EXPECT_EQ(record->description.rawstring, nullptr);
    EXPECT_STREQ(record->description.format, "t %s");
    EXPECT_EQ(record->execargs_ptr->rawstring, nullptr);
}

/* --- source list files --- */

class SourceLists : public TrapBlocks {
  protected:
    std::string list(std::string_view content) const { return dir_.write("list", content); }
};

TEST_F(SourceLists, StandInTheNodeListUnlessAskedFor) {
    const std::string path = list("alpha\n");
    EXPECT_EQ(nodes(read_trap("t\nNODES " + path + " beta\n")), (Names{path, "beta"}));
    const std::string gone = dir_.path("gone");
    EXPECT_EQ(nodes(read_trap("t\nNODES " + gone + "\n")), Names{gone});
}

TEST_F(SourceLists, AreReadInPlace) {
    trpFormatExpandSourceFiles = 1;
    const std::string path = list(
        "# nodes\n"
        "alpha and a remark\n"
        "\n"
        "   \t \n"
        "  beta,more\n"
        "  # none\n"
        ",gamma\n"
        "last");
    EXPECT_EQ(nodes(read_trap("t\nNODES first " + path + " end\n")),
              (Names{"first", "alpha", "beta", "gamma", "last", "end"}));
}

TEST_F(SourceLists, MayBeLong) {
    trpFormatExpandSourceFiles = 1;
    std::string content;
    for (int i = 0; i < 50000; ++i) {
        content += "node" + std::to_string(i) + "\n";
    }
    const Names all = nodes(read_trap("t\nNODES " + list(content) + "\n"));
    ASSERT_EQ(all.size(), 50000U);
    EXPECT_EQ(all.back(), "node49999");
}

TEST_F(SourceLists, ThatNameThemselvesAreReadOnce) {
    trpFormatExpandSourceFiles = 1;
    const std::string path = dir_.path("list");
    list(path + "\nalpha\n");
    EXPECT_EQ(nodes(read_trap("t\nNODES " + path + "\n")), (Names{path, "alpha"}));
}

TEST_F(SourceLists, ThatAreMissingEndTheRead) {
    trpFormatExpandSourceFiles = 1;
    const std::string gone = "/" + std::string(3000, 'n');
    EXPECT_EQ(read(head + event + "\nt\nNODES alpha " + gone + "\nSDESC\nEDESC\n"),
              (ConfRead{-1, "Could not open source list file \"" + gone + "\""}));
    EXPECT_EQ(read(head + event + "\nt\nNODES " + dir_.path() + "\nSDESC\nEDESC\n"),
              (ConfRead{-1, "Could not open source list file \"" + dir_.path() + "\""}));
    EXPECT_EQ(traps(), Names{});
}

TEST_F(SourceLists, LinesAreNotCounted) {
    trpFormatExpandSourceFiles = 1;
    const std::string path = list("a\nb\nc\nd\n");
    EXPECT_EQ(read(head + event + "\nt\nNODES " + path + "\nbad\n"),
              failure("Did not find a SDESC keyword", 7, "bad"));
}

/* The block is read to its end; the line that follows finds the message. */
TEST_F(SourceLists, ALineThatIsTooLongEndsListAndRead) {
    trpFormatExpandSourceFiles = 1;
    const std::string path = list("alpha\n" + std::string(51198, 'n') + "\nbeta\n");
    const std::string first = head + event + "\nt\nNODES " + path + "\nSDESC\nEDESC\n";
    EXPECT_EQ(read(first + block("y", "6 3")), (ConfRead{-1, "Line too long"}));
    EXPECT_EQ(traps(), Names{"x"});
    EXPECT_EQ(nodes(trap("x")), Names{"alpha"});
    EXPECT_EQ(read(first), (ConfRead{0, "Line too long"}));
    EXPECT_EQ(read(head + event + "\nt\nNODES " + path + "\n"), (ConfRead{-1, "Line too long"}));
    list("alpha\n" + std::string(51197, 'n') + "\nbeta\n");
    EXPECT_EQ(read(first), done);
    EXPECT_EQ(trap("x")->nodeCnt, 3);
}

}  // namespace
}  // namespace wq::test
