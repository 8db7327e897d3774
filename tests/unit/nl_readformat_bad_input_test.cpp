/*
 * Every message of the reader, with the line that it is about, and the order of the checks.
 */
#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <string>
#include <vector>

#include "support/random.h"
#include "support/trap_conf.h"

namespace wq::test {
namespace {

using Names = std::vector<std::string>;

const ConfRead done{0, ""};

const std::string head =
    "CATEGORY 3 \"c\"\n"
    "agent {1.3.6}\n"
    "sub {1.3.6.1}\n";
const std::string event = "x {1.3.6} 6 2 A 1 0 \"c\"";

class BadInput : public TrapConf {
  protected:
    /* `line` as the fourth of the file, where an event line is due. */
    void expect_bad_event(const std::string& line, const std::string& text) {
        EXPECT_EQ(read(head + line + "\nt\nSDESC\nEDESC\n"), failure(text, 4, line));
        EXPECT_EQ(traps(), Names{});
    }
    ConfRead end_after(const std::string& keyword) const {
        return {-1, "End of file in \"" + dir_.path("conf") + "\" prematurely reached after " +
                        keyword + " keyword"};
    }
};

TEST_F(BadInput, Categories) {
    const struct {
        const char* rest;
        const char* text;
    } rows[] = {
        {" 64 \"a\"", "Bad category number (must be < 64)"},
        {" -1 \"a\"", "Bad category number (must be < 64)"},
        {" 99999999999999999999 \"a\"", "Bad category number (must be < 64)"},
        {" 64 \"a\" x", "Bad category number (must be < 64)"},
        {" 64", "Bad category number (must be < 64)"},
        {" 3 \"a\" x", "Invalid number of fields (3), expect 2"},
        {" 3 \"a\"\"", "Invalid number of fields (3), expect 2"},
        {" 3 a", "Invalid number of fields (1), expect 2"},
        {" 3 \"\"", "Invalid number of fields (1), expect 2"},
        {" x \"a\"", "Invalid number of fields (0), expect 2"},
        {"X 3 \"a\"", "Invalid number of fields (0), expect 2"},
        {" ", "Invalid number of fields (-1), expect 2"},
        {"", "Invalid number of fields (-1), expect 2"},
    };
    for (const auto& row : rows) {
        const std::string line = std::string("CATEGORY") + row.rest;
        EXPECT_EQ(read("#\n" + line + "\n"), failure(row.text, 2, line));
    }
    EXPECT_EQ(categories(), Names{});
}

TEST_F(BadInput, NumbersOutOfRangeWrapAround) {
    EXPECT_EQ(read("CATEGORY 4294967359 \"a\"\n"), done);
    EXPECT_EQ(categories(), Names{"63=a"});
}

TEST_F(BadInput, Actions) {
    EXPECT_EQ(read("ACTION -1 \"a\" c\nSDESC\nEDESC\n"),
              failure("Invalid wait time -1", 1, "ACTION -1 \"a\" c"));
    EXPECT_EQ(read("ACTION 2147483648 \"a\" c\n"),
              failure("Invalid wait time -2147483648", 1, "ACTION 2147483648 \"a\" c"));
    EXPECT_EQ(read("#\nACTION 1 \"a\" c\nEDESC\n"),
              failure("Did not find a SDESC keyword", 3, "EDESC"));
    EXPECT_EQ(read("ACTION 1 \"a\" c\nSDESC \nEDESC\n"),
              failure("Did not find a SDESC keyword", 2, "SDESC "));
    EXPECT_EQ(read("ACTION 1 \"a\" c\n# nothing\n"), end_after("ACTION"));
    EXPECT_EQ(read("ACTION 1 \"a\" c\nSDESC\nEDESC \n"), end_after("SDESC"));
    EXPECT_EQ(numActionCommands, 0);
}

TEST_F(BadInput, ObjectIdentifiersOfEnterprises) {
    for (const std::string oid :
         {"x", "1.3.x", "1..3", "1.3.", " 1.3", "1.3 ", ".", "..1.3", "4294967296", "-1", "1,3"}) {
        const std::string line = "e {" + oid + "}";
        EXPECT_EQ(read("#\n" + line + "\n"), failure("Bad oid char", 2, line));
        EXPECT_EQ(enterprises(), Names{});
    }
}

TEST_F(BadInput, EventLinesThatDoNotMatch) {
    const struct {
        const char* line;
        const char* count;
    } rows[] = {
        {"", "-1"},
        {"x", "1"},
        {"x{1.3.6} 6 2 A 1 0 \"c\"", "1"},
        {"x 1.3.6 6 2 A 1 0 \"c\"", "1"},
        {"x {} 6 2 A 1 0 \"c\"", "1"},
        {"x {1.3.6} a 2 A 1 0 \"c\"", "2"},
        {"x {1.3.6} 6 a A 1 0 \"c\"", "3"},
        {"x {1.3.6} 6 2", "4"},
        {"x {1.3.6} 6 2 AB 1 0 \"c\"", "5"},
        {"x {1.3.6} 6 2 A 1 b \"c\"", "6"},
        {"x {1.3.6} 6 2 A 1 0", "7"},
        {"x {1.3.6} 6 2 A 1 0 c", "7"},
        {"x {1.3.6} 6 2 A 1 0 \"\"", "7"},
        {"x {1.3.6} 6 2 A 1 0 \"c\" x", "9"},
        {"x {1.3.6} 6 2 A 1 0 \"c\" word", "10"},
        {"x {1.3.6} 6 2 A 1 0 \"c\" x y", "10"},
    };
    for (const auto& row : rows) {
        expect_bad_event(row.line,
                         std::string("Bad name line (matched ") + row.count + ", not 8 tokens)\n");
    }
}

TEST_F(BadInput, BehindATrapEnterpriseLinesDoNotMatchEither) {
    const std::string first = head + event + "\nt\nSDESC\nEDESC\n";
    for (const std::string line : {"x {1.3.6 6 2 A 1 0 \"c\"", "agent {1.3.6}"}) {
        EXPECT_EQ(read(first + line),
                  failure("Bad name line (matched 2, not 8 tokens)\n", 8, line));
    }
}

TEST_F(BadInput, EventLinesThatSayWhatCannotBe) {
    const std::string rest = " 6 2 A 1 0 \"c\"";
    expect_bad_event(std::string(60, 'n') + " {1.3.6}" + rest,
                     "vortd.conf file not loaded because trap name length [60] exceeds maximum "
                     "size permitted of 40\n ");
    expect_bad_event("x {a.3.6}" + rest, "Bad oid char 'a'");
    expect_bad_event("x {1.3.b}" + rest, "Bad oid char '1'");
    expect_bad_event("x {.1.3.b}" + rest, "Bad oid char '.'");
    expect_bad_event("x { 1.3.6}" + rest, "Bad oid char ' '");
    expect_bad_event("x {1.3.6} 6 2 A 1 0 \"d\"", "No such display category \"d\" defined");
    expect_bad_event("x {1.3.6} 6 2 A 1 0 \"C\"", "No such display category \"C\" defined");
    expect_bad_event("x {1.3.6} 6 2 A 1 0 \"c \"", "No such display category \"c \" defined");
    expect_bad_event("x {1.3}" + rest, "No such enterprise");
    expect_bad_event("x {1.3.7}" + rest, "No such enterprise");
    expect_bad_event("x {1.3.6.2}" + rest, "No such exact enterprise (3 vs 4)");
    expect_bad_event("x {1.3.6.1.2.3}" + rest, "No such exact enterprise (4 vs 6)");
}

/* What comes first in the line is not always what is checked first. */
TEST_F(BadInput, ChecksHaveTheirOrder) {
    const std::string name(41, 'n');
    const std::string too_long =
        "vortd.conf file not loaded because trap name length [41] exceeds maximum size permitted "
        "of 40\n ";
    expect_bad_event(name + " {x} 6 2 A 1 0 \"d\" x", "Bad name line (matched 9, not 8 tokens)\n");
    expect_bad_event(name + " {x} 6 2 A 1 0 \"d\"", too_long);
    expect_bad_event("x {x} 6 2 A 1 0 \"d\"", "Bad oid char 'x'");
    expect_bad_event("x {1.3.7} 6 2 A 1 0 \"d\"", "No such display category \"d\" defined");
    const std::string first = head + event + "\nt\nSDESC\nEDESC\n";
    EXPECT_EQ(read(first + "x {1.3.6.2} 6 3 A 1 0 \"c\"\n"),
              failure("No such exact enterprise (3 vs 4)", 8, "x {1.3.6.2} 6 3 A 1 0 \"c\""));
    EXPECT_EQ(read(first + "x {1.3.6} 6 3 A 1 0 \"d\"\n"),
              failure("No such display category \"d\" defined", 8, "x {1.3.6} 6 3 A 1 0 \"d\""));
    EXPECT_EQ(read(first + "x {1.3.6} 6 3 A 1 0 \"c\""),
              failure("Not loading trap format.  Trap name x is already in use.\n"
                      "Rename the event to avoid the conflict",
                      8, "x {1.3.6} 6 3 A 1 0 \"c\""));
}

TEST_F(BadInput, FilesThatEndInABlock) {
    const std::pair<std::string, std::string> rows[] = {
        {"t\n", "format"},
        {"t\nEXEC e\n", "EXEC"},
        {"t\nDISPLAY d\n", "DISPLAY"},
        {"t\nFORWARD\n", "FORWARD"},
        {"t\nNODES n m\n", "NODES"},
        {"t\nEVENT_CLASS k\n", "EVENT_CLASS"},
        {"t\nBEGIN_SLOT_MAPPING\n", "BEGIN_SLOT_MAPPING"},
        {"t\nBEGIN_SLOT_MAPPING\na b\nc d\n", "BEGIN_SLOT_MAPPING"},
        {"t\nBEGIN_SLOT_MAPPING\na b\nEND_SLOT_MAPPING\n", "END_SLOT_MAPPING"},
        {"t\nEXEC e\nSDESC\n", "SDESC"},
        {"t\nSDESC\ntext\n#EDESC\n EDESC \n", "SDESC"},
    };
    for (const auto& [lines, keyword] : rows) {
        EXPECT_EQ(read(head + event + "\n" + lines), end_after(keyword)) << lines;
        EXPECT_EQ(traps(), Names{});
    }
    EXPECT_EQ(read(head + event + "\n"), (ConfRead{-1, "Did not find an event log format"}));
    EXPECT_EQ(read(head + event), (ConfRead{-1, "Did not find an event log format"}));
    EXPECT_EQ(read(head + event + "\n" + std::string(60000, 'f') + "\n"),
              (ConfRead{-1, "Line too long"}));
}

TEST_F(BadInput, OptionalLinesOutOfOrder) {
    const Names lines = {"EXEC e",  "DISPLAY d",     "FORWARD",
                         "NODES n", "EVENT_CLASS k", "BEGIN_SLOT_MAPPING\nEND_SLOT_MAPPING"};
    for (size_t later = 1; later < lines.size(); ++later) {
        for (size_t earlier = 0; earlier < later; ++earlier) {
            const std::string file =
                head + event + "\nt\n" + lines[later] + "\n" + lines[earlier] + "\nSDESC\nEDESC\n";
            const int number = later == lines.size() - 1 ? 8 : 7;
            EXPECT_EQ(read(file), failure("Did not find a SDESC keyword", number, lines[earlier]));
        }
    }
    EXPECT_EQ(read(head + event + "\nt\nEXEC e\nEXEC e\n"),
              failure("Did not find a SDESC keyword", 7, "EXEC e"));
}

TEST_F(BadInput, DescriptionsThatDoNotBegin) {
    for (const std::string line : {"", "sdesc", "SDESC ", "SDESCR", "EDESC", "XEC e"}) {
        EXPECT_EQ(read(head + event + "\nt\n" + line + "\nSDESC\nEDESC\n"),
                  failure("Did not find a SDESC keyword", 6, line));
    }
}

TEST_F(BadInput, DescriptionsOfMoreThan5020Bytes) {
    const std::string start = head + event + "\nt\nSDESC\n";
    EXPECT_EQ(read(start + std::string(5019, 'd') + "\nEDESC\n"), done);
    EXPECT_EQ(std::string(trap("x")->trapDescription), std::string(5019, 'd'));
    EXPECT_EQ(read(start + std::string(5020, 'd') + "\nEDESC\n"),
              failure("Trap description too long", 7, std::string(5020, 'd')));
    EXPECT_EQ(read(start + std::string(5018, 'd') + "\n\nEDESC\n"), done);
    EXPECT_EQ(read(start + std::string(5018, 'd') + "\n\n\nEDESC\n"),
              failure("Trap description too long", 9, ""));
    EXPECT_EQ(traps(), Names{});
    EXPECT_EQ(read("ACTION 1 \"a\" c\nSDESC\n" + std::string(5020, 'd') + "\n"),
              failure("Trap description too long", 3, std::string(5020, 'd')));
}

/* The one error without a word. */
TEST_F(BadInput, SlotMappingLinesWithoutABlank) {
    for (const std::string line : {"word", "", "  word  ", "a\tb", "END_SLOT_MAPPING "}) {
        EXPECT_EQ(read(head + event + "\nt\nBEGIN_SLOT_MAPPING\na b\n" + line +
                       "\nEND_SLOT_MAPPING\nSDESC\nEDESC\n"),
                  (ConfRead{-1, ""}))
            << line;
        EXPECT_EQ(traps(), Names{});
    }
}

/* --- any file at all --- */

const std::string_view lines[] = {
    "CATEGORY 3 \"c\"",
    "CATEGORY 3 \"d\"",
    "ACTION 1 \"a\" c",
    "ACTION -1 \"a\" c",
    "agent {1.3.6}",
    "sub {1.3.6.1}",
    "x {1.3.6} 6 2 A 1 0 \"c\"",
    "x {1.3.6} 6 3 A 1 0 \"c\"",
    "y {1.3.6.1} 6 2 A 1 0 \"IGNORE\"",
    "$1 $A $* $81 100%",
    "EXEC e $1",
    "DISPLAY d",
    "FORWARD",
    "NODES a b, c",
    "NODES /dev/null",
    "EVENT_CLASS k",
    "BEGIN_SLOT_MAPPING",
    "a b",
    "END_SLOT_MAPPING",
    "SDESC",
    "EDESC",
    "#",
    "",
    "\r",
    "\x80\xff\xfe",
};

std::string random_block(Random& random) {
    std::string text = std::string(lines[random.between(6, 8)]) + "\nt $1\n";
    for (size_t i = 10; i < 16; ++i) {
        if (random.one_in(3)) {
            text.append(lines[i]).append("\n");
        }
    }
    return text + "SDESC\ntext\nEDESC\n";
}

std::string random_file(Random& random) {
    std::string text = random.one_in(4) ? "" : head;
    for (uint32_t n = random.between(0, 12); n != 0; --n) {
        if (random.one_in(2)) {
            text += random_block(random);
        } else {
            text.append(lines[random.between(0, std::size(lines) - 1)]).append("\n");
        }
    }
    for (uint32_t n = random.one_in(2) ? random.between(1, 6) : 0; n != 0 && !text.empty(); --n) {
        const size_t at = random.between(0, static_cast<uint32_t>(text.size()) - 1);
        random.one_in(2) ? text.erase(at, random.between(1, 9))
                         : text.insert(at, 1, static_cast<char>(random.byte()));
        if (text.empty()) {
            break;
        }
    }
    return text;
}

TEST_F(BadInput, AnyFileIsReadOrRejected) {
    Random random;
    SCOPED_TRACE(random.name());
    int accepted = 0;
    for (int i = 0; i < 1000; ++i) {
        trpFormatExpandSourceFiles = random.one_in(2) ? 1 : 0;
        trpFormatDontMallocDesc = random.one_in(4) ? 1 : 0;
        trpFormatDontMallocRaw = random.one_in(4) ? 1 : 0;
        const std::string text = random_file(random);
        const ConfRead result = random.one_in(3) ? augment(text) : read(text);
        EXPECT_TRUE(result.result == 0 || result.result == -1);
        EXPECT_TRUE(result.result != 0 || result.message.empty()) << result.message;
        accepted += result.result == 0 ? 1 : 0;
    }
    EXPECT_GT(accepted, 30);
    EXPECT_LT(accepted, 970);
}

}  // namespace
}  // namespace wq::test
