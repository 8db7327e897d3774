#include <gtest/gtest.h>
#include <wqevents/formatter.h>

#include <climits>
#include <string>

#include "support/formatting.h"

namespace {

using namespace wq::test;

/* Users of each layout; the numbers outside the five are laid out as the daemon's. */
constexpr int others[] = {5, 99, -1, INT_MAX, INT_MIN};

class Layout : public Formatting {
  protected:
    /* The lines of a trap whose format is `format`, from a source of that name. */
    Formatted lines(int user, const std::string& format_text, const std::string& host = "",
                    size_t size = 4096) {
        configure(conf({{.name = "Test", .format = format_text}}));
        if (!host.empty()) {
            known_hosts()[wire(10, 1, 2, 3)] = host;
        }
        return format(user, received_trap(acme, 1), size);
    }
};

TEST_F(Layout, OneLineForEachKindOfCaller) {
    const struct {
        int user;
        const char* text;
    } rows[] = {
        {ZLEEVENT_USER, "Sun Sep 09 01:46:40 2001 10.1.2.3        A it is down\n"},
        {VORTD_USER,
         "1000000000 3  Sun Sep 09 01:46:40 2001 10.1.2.3                  A it is down\n"},
        {OBU_USER, "10.1.2.3: it is down\n"},
        {KMEVENTS_USER, "Sun Sep 09 01:46:40 2001 10.1.2.3        A it is down\n"},
        {PRX_USER, "it is down\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.user);
        const Formatted formatted = lines(row.user, "it is down");
        EXPECT_EQ(formatted.result, 3);
        EXPECT_EQ(formatted.text, row.text);
        EXPECT_EQ(formatted.host, "10.1.2.3");
    }
}

TEST_F(Layout, ContinuationLinesForEachKindOfCaller) {
    const struct {
        int user;
        const char* text;
    } rows[] = {
        {ZLEEVENT_USER, "Sun Sep 09 01:46:40 2001 10.1.2.3        A one\ntwo\nthree\n"},
        {VORTD_USER,
         "1000000000 3  Sun Sep 09 01:46:40 2001 10.1.2.3                  A one\n"
         "1000000000 3  Sun Sep 09 01:46:40 2001  10.1.2.3                  A two\n"
         "1000000000 3  Sun Sep 09 01:46:40 2001  10.1.2.3                  A three\n"},
        {OBU_USER, "10.1.2.3: one\n\t\t\t10.1.2.3: three\n"},
        {KMEVENTS_USER, "Sun Sep 09 01:46:40 2001 10.1.2.3        A one\ntwo\nthree\n"},
        {PRX_USER, "one\ntwo\nthree\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.user);
        EXPECT_EQ(lines(row.user, "one\\ntwo\\nthree").text, row.text);
    }
}

TEST_F(Layout, OtherKindsOfCallerReadAsTheDaemon) {
    const Formatted daemon = lines(VORTD_USER, "one\\ntwo");
    for (const int user : others) {
        SCOPED_TRACE(user);
        const Formatted other = lines(user, "one\\ntwo");
        EXPECT_EQ(other.text, daemon.text);
        EXPECT_EQ(other.result, 3);
    }
}

TEST_F(Layout, EmptyLinesVanish) {
    EXPECT_EQ(lines(PRX_USER, "\\n\\none\\n\\n\\ntwo\\n\\n").text, " \none\ntwo\n");
    EXPECT_EQ(lines(PRX_USER, "one\\n\\n\\ntwo").text, "one\ntwo\n");
    EXPECT_EQ(lines(PRX_USER, "one\\n").text, "one\n");
}

TEST_F(Layout, ALeadingNewlineMakesTheFirstLineABlank) {
    EXPECT_EQ(lines(ZLEEVENT_USER, "\\none\\ntwo").text,
              "Sun Sep 09 01:46:40 2001 10.1.2.3        A  \none\ntwo\n");
    EXPECT_EQ(lines(OBU_USER, "\\none").text, "10.1.2.3:  \n\t\t\t10.1.2.3: one\n");
    EXPECT_EQ(lines(PRX_USER, "\\n\\n").text, " \n");
}

TEST_F(Layout, ADescriptionThatExpandsToNothingIsAnEmptyLine) {
    EXPECT_EQ(lines(PRX_USER, "$c").text, "\n");
    EXPECT_EQ(lines(OBU_USER, "$c").text, "10.1.2.3: \n");
}

TEST_F(Layout, ASourceThatIsNoHostIsNotTold) {
    EXPECT_EQ(lines(OBU_USER, "one\\ntwo\\nthree", "<none>").text, "one\n\t\t\tthree\n");
    EXPECT_EQ(lines(ZLEEVENT_USER, "one", "<none>").text,
              "Sun Sep 09 01:46:40 2001 <none>          A one\n");
    EXPECT_EQ(lines(OBU_USER, "one", "<none>x").text, "<none>x: one\n");
}

TEST_F(Layout, HostsAreCutToTheColumnOrPushTheRest) {
    const std::string host = "a-rather-long-name.example.net";
    EXPECT_EQ(lines(KMEVENTS_USER, "x", host).text,
              "Sun Sep 09 01:46:40 2001 a-rather-long-n A x\n");
    EXPECT_EQ(lines(VORTD_USER, "x", host).text,
              "1000000000 3  Sun Sep 09 01:46:40 2001 a-rather-long-name.example.net A x\n");
    EXPECT_EQ(lines(VORTD_USER, "x\\ny", host).text.substr(74),
              "1000000000 3  Sun Sep 09 01:46:40 2001  a-rather-long-name.example.net A y\n");
    EXPECT_EQ(lines(OBU_USER, "x", host).text, host + ": x\n");
}

/* A one-letter line of the displays' layout takes 45 bytes: 24 + 1 + 15 + 1 + 1 + 1 + 1 + 1. */
TEST_F(Layout, ShortOfAHundredBytesNoContinuationIsBegun) {
    EXPECT_EQ(lines(KMEVENTS_USER, "x\\ny", "", 45 + 99).result, -2);
    const Formatted enough = lines(KMEVENTS_USER, "x\\ny", "", 45 + 100);
    EXPECT_EQ(enough.result, 3);
    EXPECT_EQ(enough.text, "Sun Sep 09 01:46:40 2001 10.1.2.3        A x\ny\n");
    /* The first continuation of two bytes leaves 99. */
    EXPECT_EQ(lines(KMEVENTS_USER, "x\\ny\\nz", "", 45 + 101).result, -2);
    EXPECT_EQ(lines(KMEVENTS_USER, "x\\ny\\nz", "", 45 + 102).result, 3);
}

TEST_F(Layout, TheLastContinuationThatSurvivesCountsAlone) {
    /* "10.1.2.3: x\n" takes 12 bytes; what a continuation takes does not count. */
    EXPECT_EQ(lines(OBU_USER, "x\\ny\\nz\\nu", "", 12 + 100).text,
              "10.1.2.3: x\n\t\t\t10.1.2.3: u\n");
    EXPECT_EQ(lines(OBU_USER, "x\\ny\\nz\\nu", "", 12 + 99).result, -2);
    EXPECT_EQ(lines(OBU_USER, "x\\na longer line that is replaced\\nu").text,
              "10.1.2.3: x\n\t\t\t10.1.2.3: u\n");
}

TEST_F(Layout, ThatTheBufferRanShortLeavesTheHostUntold) {
    const Formatted formatted = lines(KMEVENTS_USER, "x\\ny", "", 45 + 99);
    EXPECT_EQ(formatted.result, -2);
    EXPECT_EQ(formatted.host, "");
}

TEST_F(Layout, LinesAreCutWhereTheBufferEnds) {
    const std::string whole = lines(VORTD_USER, "it is down").text;
    for (size_t size = 1; size <= whole.size() + 2; ++size) {
        SCOPED_TRACE(size);
        const Formatted cut = lines(VORTD_USER, "it is down", "", size);
        ASSERT_EQ(cut.result, 3);
        ASSERT_EQ(cut.text, whole.substr(0, size - 1));
    }
}

TEST_F(Layout, ContinuationsAreCutWhereTheBufferEnds) {
    const std::string line(150, 'y');
    const Formatted cut = lines(PRX_USER, "x\\n" + line, "", 2 + 100);
    EXPECT_EQ(cut.result, 3);
    EXPECT_EQ(cut.text, "x\n" + line.substr(0, 99));
}

TEST_F(Layout, WithoutRoomNothingIsWritten) {
    for (const int size : {0, -1, INT_MIN}) {
        Trap trap = received_trap(acme, 1);
        char untouched = 'u';
        char* host = nullptr;
        SnmpVarBindEMS none{};
        configure(conf({{.name = "Test", .format = "x"}}));
        EXPECT_EQ(trp_format(VORTD_USER, &trap.info, &untouched, size, &none, &host, sunday), 3);
        EXPECT_EQ(untouched, 'u');
    }
    EXPECT_EQ(lines(KMEVENTS_USER, "x\\ny", "", 0).result, -2);
}

TEST_F(Layout, TheTimeIsTheCallersOrNow) {
    configure(conf({{.name = "Test", .format = "x"}}));
    const time_t before = time(nullptr);
    const Formatted now = format(VORTD_USER, received_trap(acme, 1), 4096, 0);
    const time_t after = time(nullptr);
    const time_t told = std::stoll(now.text);
    EXPECT_GE(told, before);
    EXPECT_LE(told, after);
    char text[64];
    std::tm utc{};
    gmtime_r(&told, &utc);
    std::strftime(text, sizeof text, "%a %b %d %H:%M:%S %Y", &utc);
    EXPECT_EQ(now.text.substr(14, 24), text);
}

TEST_F(Layout, TheTimeIsLocal) {
    const EnvValue zone("TZ", "XYZ-5:30");
    EXPECT_EQ(lines(KMEVENTS_USER, "x").text, "Sun Sep 09 07:16:40 2001 10.1.2.3        A x\n");
}

TEST_F(Layout, TimesAndCategoriesFillTheirColumns) {
    configure(conf({{.name = "Test", .format = "x"}}));
    Trap trap = received_trap(acme, 1);
    EXPECT_EQ(format(VORTD_USER, trap, 4096, 5).text,
              "5          3  Thu Jan 01 00:00:05 1970 10.1.2.3                  A x\n");
    EXPECT_EQ(format(VORTD_USER, trap, 4096, -1).text,
              "-1         3  Wed Dec 31 23:59:59 1969 10.1.2.3                  A x\n");
    EXPECT_EQ(format(VORTD_USER, trap, 4096, 10000000000).text.substr(0, 15), "10000000000 3  ");
}

TEST_F(Layout, TwoDigitCategoriesFillTheirColumn) {
    std::string text(conf_head);
    text.insert(0, "CATEGORY 12 \"Twelve\"\n");
    text.append(conf_block({.name = "Test", .category = "Twelve", .format = "x"}));
    configure(text);
    const Formatted formatted = format(VORTD_USER, received_trap(acme, 1));
    EXPECT_EQ(formatted.result, 12);
    EXPECT_EQ(formatted.text.substr(0, 15), "1000000000 12 S");
}

TEST_F(Layout, ATimeWithoutADateIsBlank) {
    configure(conf({{.name = "Test", .format = "x"}}));
    EXPECT_EQ(format(KMEVENTS_USER, received_trap(acme, 1), 4096, INT64_MAX).text,
              "                         10.1.2.3        A x\n");
}

TEST_F(Layout, TheConfiguredLetterIsShown) {
    configure(conf({{.name = "Test", .source = '#', .format = "x"}}));
    EXPECT_EQ(format(KMEVENTS_USER, received_trap(acme, 1)).text,
              "Sun Sep 09 01:46:40 2001 10.1.2.3        # x\n");
    nameToExactTrap("Test")->source = '\0';
    EXPECT_EQ(format(KMEVENTS_USER, received_trap(acme, 1)).text,
              "Sun Sep 09 01:46:40 2001 10.1.2.3          x\n")
        << "a record without a letter";
}

}  // namespace
