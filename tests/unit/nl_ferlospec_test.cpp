#include <gtest/gtest.h>
#include <wqevents/alerts.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "EMS/events/nl_conflock.h"
#include "support/alert_conf.h"
#include "support/lock_holder.h"

namespace {

using namespace wq::test;

/* The pauses that the lock asks for, which then take no time. */
class FakePauses {
  public:
    FakePauses() {
        asked().clear();
        wq::pause_between_attempts = [](unsigned seconds) { asked().push_back(seconds); };
    }
    ~FakePauses() { wq::pause_between_attempts = before_; }
    FakePauses(const FakePauses&) = delete;
    FakePauses& operator=(const FakePauses&) = delete;

    static std::vector<unsigned>& asked() {
        static std::vector<unsigned> pauses;
        return pauses;
    }

  private:
    void (*before_)(unsigned) = wq::pause_between_attempts;
};

/* ---- the grammar */

TEST_F(Alerts, AttachesEachKindOfSubvector) {
    EXPECT_EQ(read_alerts(name_line + "92 12 A001\n"
                                      "93 2 fe00 2132\n"
                                      "94 2 3301 33a2 1 10 \"one $1\"\n"
                                      "81 1 20d0 3 11 \"a\" 12 \"b c\" 13 \"\"\n"
                                      "95 1 01B0 1 14 \"two\"\n"
                                      "81 1 2000\n"
                                      "96 1 c1 2 15 \"x\" 16 \"y\"\n"
                                      "98 1 17 \"last\"\n"
                                      ";\n"),
              (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element),
              "92 18 a001 | 93 0 fe00 2132 | 94 0 3301 33a2 10:one $1 | "
              "81 0 20d0 11:a 12:b c 13: | 95 0 1b0 14:two | 81 0 2000 | "
              "96 0 c1 15:x 16:y | 98 0 17:last | ");
    EXPECT_STREQ(trap("ACME_UP")->alert_record_name, "ACME_UP");
    EXPECT_EQ(trap("ACME_DOWN")->alert_element, nullptr);
}

TEST_F(Alerts, TextsAreCompiled) {
    ASSERT_EQ(read_alerts(name_line + "98 1 17 \"from $2\" ;\n"), (ConfRead{0, ""}));
    const trap_element& text = *trap("ACME_UP")->alert_element->detailed_data[0]->dd_args;
    EXPECT_STREQ(text.format, "from %s");
    ASSERT_EQ(text.num_args, 1);
}

TEST_F(Alerts, AnEnterpriseMayHaveALeadingDot) {
    EXPECT_EQ(read_alerts("ACME_UP {.1.3.6.1.4.1.4242} 6 1\n92 1 1 ;\n"), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 1 1 | ");
}

TEST_F(Alerts, SpreadsABodyOverLinesAsItLikes) {
    EXPECT_EQ(read_alerts("# alerts\n\n  \t\n  # more\n" + name_line +
                          "\n92\n# in between\n\t12\n   \nA001 98 1 17\n\"a # b\"  ; what follows\n"
                          "#\n\nACME_DOWN {1.3.6.1.4.1.4242} 6 2\n 92 1 2\t;"),
              (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 18 a001 | 98 0 17:a # b | ");
    EXPECT_EQ(told(trap("ACME_DOWN")->alert_element), "92 1 2 | ");
}

TEST_F(Alerts, ReadsAFileWithoutAlerts) {
    EXPECT_EQ(read_alerts(""), (ConfRead{0, ""}));
    EXPECT_EQ(read_alerts("#\n\n"), (ConfRead{0, ""}));
}

TEST_F(Alerts, ACauseNeedsNoActionsAtTheEnd) {
    EXPECT_EQ(read_alerts(name_line + "94 1 1 ;"), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "94 0 1 | ");
}

TEST_F(Alerts, ABodyMayBeEmpty) {
    EXPECT_EQ(read_alerts(name_line + ";"), (ConfRead{0, ""}));
    EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr);
}

TEST_F(Alerts, ASecondRecordReplacesTheFirst) {
    EXPECT_EQ(read_alerts(name_line + "98 1 1 \"first\" ;\n" + name_line + "98 1 2 \"second\" ;\n"),
              (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "98 0 2:second | ");
    EXPECT_EQ(read_again(), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "98 0 2:second | ");
}

TEST_F(Alerts, AlertsBeforeAnErrorStay) {
    EXPECT_EQ(read_alerts(name_line + "92 1 1 ;\nACME_DOWN\n").result, -1);
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 1 1 | ");
}

TEST_F(Alerts, EveryAllowedTypeAndNoOther) {
    for (const unsigned type : {1U, 2U, 3U, 0x11U, 0x12U}) {
        char line[32];
        std::snprintf(line, sizeof line, "92 %x 1 ;\n", type);
        EXPECT_EQ(read_alerts(name_line + line), (ConfRead{0, ""})) << line;
    }
    for (const char* type : {"0", "4", "10", "13", "17", "18", "ffffffff"}) {
        const std::string line = std::string("92 ").append(type).append(" 1 ;");
        EXPECT_EQ(read_alerts(name_line + line + "\n"),
                  failure("Invalid type around line #2 of \"@\": " + line + "\n"));
    }
}

TEST_F(Alerts, TheHighNibbleAsksForItems) {
    const char* items[] = {"",
                           "",
                           "",
                           "",
                           "",
                           "",
                           "",
                           "",
                           "",
                           "",
                           "1 9 \"a\"",
                           "1 9 \"a\"",
                           "2 9 \"a\" 8 \"b\"",
                           "3 9 \"a\" 8 \"b\" 7 \"c\"",
                           "",
                           ""};
    for (unsigned nibble = 0; nibble < std::size(items); ++nibble) {
        char point[16];
        std::snprintf(point, sizeof point, "A%xF ", nibble);
        EXPECT_EQ(read_alerts(name_line + "96 1 " + point + items[nibble] + " ;\n"),
                  (ConfRead{0, ""}))
            << point;
    }
}

/* ---- what is refused */

struct Refusal {
    const char* content;
    const char* message; /* @: the path */
};

/* Errors outside of a body. */
const Refusal refusals[] = {
    {"ACME_UP {1.3.6.1.4.1.4242} 6 1 x\n",
     "Bad name line in line #1 of \"@\": ACME_UP {1.3.6.1.4.1.4242} 6 1 x\n"
     "(matched 5, not4 tokens)\n"},
    {"#\n\n  ACME_UP {1.3.6.1.4.1.4242} 6\n",
     "Bad name line in line #3 of \"@\": ACME_UP {1.3.6.1.4.1.4242} 6\n(matched 3, not4 tokens)\n"},
    {"ACME_UP 1.3.6.1.4.1.4242 6 1\n",
     "Bad name line in line #1 of \"@\": ACME_UP 1.3.6.1.4.1.4242 6 1\n(matched 1, not4 tokens)\n"},
    {"ACME_UP {} 6 1\n",
     "Bad name line in line #1 of \"@\": ACME_UP {} 6 1\n(matched 1, not4 tokens)\n"},
    {"ACME_UP {1.3.x} 6 1\n", "Bad oid char in line #1 of \"@\": ACME_UP {1.3.x} 6 1\n"},
    {"ACME_UP {1.3.6.1.4.1.4241} 6 1\n",
     "No such enterprise as defined in line #1 of \"@\": ACME_UP {1.3.6.1.4.1.4241} 6 1\n"},
    {"ACME_UP {1.3.6.1.4.1.4242.5} 6 1\n",
     "No such enterprise exact (7 vs 8) as defined in line #1 of\"@\": "
     "ACME_UP {1.3.6.1.4.1.4242.5} 6 1\n"},
    {"\nACME_GONE {1.3.6.1.4.1.4242} 6 1\n",
     "Did not find a matching trap name at line #2 of \"@\"\n"},
};

TEST_F(Alerts, RefusesNameLines) {
    for (const Refusal& row : refusals) {
        EXPECT_EQ(read_alerts(row.content), failure(row.message)) << row.content;
        EXPECT_TRUE(is_free(path_)) << row.content;
        EXPECT_EQ(descriptors_of(path_), 0) << row.content;
    }
}

/* Errors in a body, which is all on the second line. */
struct BadBody {
    const char* body;
    const char* check; /* up to the number of the line */
};

const BadBody bad_bodies[] = {
    {"92 1 xyz ;", "Bad char in line"},
    {"92 1 -1 ;", "Bad char in line"},
    {"92 1 123456789 ;", "Bad char in line"},
    {"98 1 1 \"open ;", "Bad char in line"},
    {"98 1 1 \"", "Bad char in line"},
    {"92 1 1;", "Bad char in line"},
    {"97 1 1 ;", "Invalid subvector number around line"},
    {"82 1 1 ;", "Invalid subvector number around line"},
    {"0 ;", "Invalid subvector number around line"},
    {"80 ;", "Invalid subvector number around line"},
    {"99 ;", "Invalid subvector number around line"},
    {"92 1 1 ffffff92 ;", "Invalid subvector number around line"},
    {"92 4 1 ;", "Invalid type around line"},
    {"81 1 1 ;", "Cause subvector not define around line"},
    {"94 1 1 81 1 1 81 1 1 ;", "Cause subvector not define around line"},
    {"94 1 1 95 1 1 ;", "Recommended Actions not defined around line"},
    {"94 1 1 81 1 1 96 1 1 94 1 1 ;", "Recommended Actions not defined around line"},
    {"94 1 C1 1 9 \"a\" ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 C1 3 9 \"a\" 8 \"b\" 7 \"c\" ;",
     "Not the right number of Detailed Data subfields defined around line"},
    {"94 2 C1 A1 2 9 \"a\" 8 \"b\" ;",
     "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 1 81 1 A1 0 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 C1 2 9 8 \"a\" ;", "Not enough Detailed Data subfields defined around line"},
    {"94 1 1 81 1 A1 1 9 ;", "Not enough Detailed Data subfields defined aroundline"},
    {"98 2 9 8 \"a\" ;", "Not enough Detailed Data subfields defined aroundline"},
    /* A record that ends within a subvector. */
    {"92 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"92 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"93 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"93 2 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"93 ffffffff 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 2 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 A1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 A1 1 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"94 1 1 81 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"98 ;", "Not the right number of Detailed Data subfields defined around line"},
    {"98 2 1 \"a\" ;", "Not the right number of Detailed Data subfields defined around line"},
    {"98 80000000 1 \"a\" ;",
     "Not the right number of Detailed Data subfields defined around line"},
};

TEST_F(Alerts, RefusesBodiesAndStaysOpen) {
    for (const BadBody& row : bad_bodies) {
        const std::string message =
            std::string(row.check).append(" #2 of \"@\": ").append(row.body).append("\n");
        EXPECT_EQ(read_alerts(name_line + row.body + "\n"), failure(message)) << row.body;
        EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr) << row.body;
        EXPECT_FALSE(is_free(path_)) << row.body;
        EXPECT_EQ(descriptors_of(path_), 1) << row.body;
    }
    EXPECT_EQ(read_alerts(""), (ConfRead{0, ""}));
    EXPECT_TRUE(is_free(path_));
    EXPECT_EQ(descriptors_of(path_), 0);
}

TEST_F(Alerts, ChecksNameTheLastLineOfTheBody) {
    EXPECT_EQ(read_alerts(name_line + "92 4\n#\n1\n\n  ; the end\n"),
              failure("Invalid type around line #6 of \"@\": ; the end\n"));
}

TEST_F(Alerts, RefusesAMissingBody) {
    EXPECT_EQ(read_alerts(name_line),
              failure("Did not find a description line in line #1 of \"@\"\n"));
    EXPECT_FALSE(is_free(path_));
    EXPECT_EQ(read_alerts(name_line + "92 1 1\n#\n"),
              failure("Did not find a description line in line #3 of \"@\"\n"));
}

TEST_F(Alerts, ALineHolds1022BytesWithItsNewline) {
    const std::string body = "98 1 1 \"";
    const std::string fits = body + std::string(1021 - body.size() - 3, 'x') + "\" ;";
    ASSERT_EQ(fits.size(), 1021U);
    EXPECT_EQ(read_alerts(name_line + fits + "\n"), (ConfRead{0, ""}));
    EXPECT_EQ(read_alerts(name_line + fits + " \n"), failure("Line #2 of \"@\" too long\n"));
    EXPECT_FALSE(is_free(path_));
    EXPECT_EQ(read_alerts(name_line + "#" + std::string(5000, '#') + "\n" + fits + "\n"),
              failure("Line #2 of \"@\" too long\n"));
    EXPECT_EQ(read_alerts(std::string(100000, ' ') + name_line),
              failure("Line #1 of \"@\" too long\n"));
    EXPECT_TRUE(is_free(path_));
}

TEST_F(Alerts, EndsATextAtANul) {
    EXPECT_EQ(read_alerts(name_line + "92 1 1 ;" + std::string(1, '\0') + " xyz\n"),
              (ConfRead{0, ""}));
}

/* ---- the file */

TEST_F(Alerts, SaysWhyTheFileCannotBeOpened) {
    setenv("FERLOD_CONF", "/nowhere/alerts", 1);
    EXPECT_EQ(read_again(), (ConfRead{-1,
                                      "Could not lock ferlo format file \"/nowhere/alerts\": "
                                      "No such file or directory\n"}));
    EXPECT_EQ(write(), (ConfRead{-1,
                                 "Could not lock ferlo format file \"/nowhere/alerts\": "
                                 "No such file or directory\n"}));
    setenv("FERLOD_CONF", dir_.path().c_str(), 1);
    EXPECT_EQ(read_again(), (ConfRead{-1, "Could not lock ferlo format file \"" + dir_.path() +
                                              "\": Is a directory\n"}));
}

TEST_F(Alerts, TheTrapConfigurationIsReadAllTheSame) {
    setenv("FERLOD_CONF", "/nowhere/alerts", 1);
    EXPECT_EQ(read(alert_traps), (ConfRead{0,
                                           "Could not lock ferlo format file "
                                           "\"/nowhere/alerts\": No such file or directory\n"}));
    EXPECT_NE(trap("ACME_UP"), nullptr);
}

TEST_F(Alerts, AreReadWithTheTrapConfiguration) {
    dir_.write("alerts", name_line + "92 1 1 ;\n");
    EXPECT_EQ(read(alert_traps), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("ACME_UP")->alert_element), "92 1 1 | ");
}

/* What the trap configuration's reader has to say is not lost where the alerts are fine. */
TEST_F(Alerts, LeaveTheReadersOwnMessageAlone) {
    EXPECT_EQ(read(std::string(alert_traps) + std::string(60000, 'x')).message, "Line too long");
}

TEST_F(Alerts, GivesUpOnALockAfterSixAttempts) {
    const FakePauses pauses;
    const std::string path = dir_.write("alerts", name_line + "92 1 1 ;\n");
    const LockHolder holder(path);
    const ConfRead refused =
        failure("Could not lock ferlo format file \"@\": Resource temporarily unavailable\n");
    EXPECT_EQ(read_again(), refused);
    EXPECT_EQ(FakePauses::asked(), (std::vector<unsigned>{2, 3, 4, 5, 6}));
    EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr);
    EXPECT_EQ(write(), refused);
    EXPECT_EQ(dir_.read("alerts"), name_line + "92 1 1 ;\n");
    EXPECT_EQ(descriptors_of(path), 0);
}

TEST_F(Alerts, ReadersShareTheLock) {
    const FakePauses pauses;
    const LockHolder holder(dir_.write("alerts", name_line + "92 1 1 ;\n"), F_RDLCK);
    EXPECT_EQ(read_again(), (ConfRead{0, ""}));
    EXPECT_TRUE(FakePauses::asked().empty());
}

TEST_F(Alerts, NullsFail) {
    EXPECT_EQ(read_ferlospec_file(nullptr), -1);
    EXPECT_EQ(write_ferlospec_file(nullptr), -1);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, nullptr, 0, 0, nullptr), -1);
    delete_ferlo_record(nullptr);
    const uint32_t oid[] = {1, 3};
    print_ferlo_rec(nullptr, trap("ACME_UP"), oid, 2);
    print_ferlo_rec(stderr, nullptr, oid, 2);
    print_ferlo_rec(stderr, trap("ACME_UP"), nullptr, 2);
}

/* ---- attaching and deleting */

TEST_F(Alerts, AttachesAListToAConfiguredTrapOnly) {
    alert_record* const list = new_alert(0x92);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_GONE", 6, 1, list), -1);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_UP", 6, 1, list), 0);
    EXPECT_EQ(trap("ACME_UP")->alert_element, list);
    EXPECT_STREQ(trap("ACME_UP")->alert_record_name, "ACME_UP");
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_UP", 6, 1, list), 0) << "it is its own";
    EXPECT_EQ(trap("ACME_UP")->alert_element, list);
    EXPECT_EQ(insert_malloc_alert_record(nullptr, "ACME_UP", 6, 1, new_alert(0x93)), 0);
    EXPECT_EQ(trap("ACME_UP")->alert_element->subvector, 0x93);
}

TEST_F(Alerts, DeletesAList) {
    ASSERT_EQ(read_alerts(name_line + "94 1 A1 1 9 \"a\" 81 1 1 98 2 9 \"b\" 8 \"c\" ;\n").result,
              0);
    trap_record* const rec = trap("ACME_UP");
    delete_ferlo_record(rec);
    EXPECT_EQ(rec->alert_element, nullptr);
    delete_ferlo_record(rec);
    EXPECT_EQ(rec->alert_element, nullptr);
}

TEST_F(Alerts, TheExampleIsRead) {
    setenv("FERLOD_CONF", WQEVENTS_EXAMPLES "/ferlod.conf", 1);
    EXPECT_EQ(read_path(WQEVENTS_EXAMPLES "/vortd.conf"), (ConfRead{0, ""}));
    EXPECT_EQ(told(trap("rackFanFailed")->alert_element),
              "92 1 1001 | 93 0 401 402 | 96 0 4c0 20:$1 21:$2 | 81 0 3102 | ");
    EXPECT_NE(trap("roomTemperatureHigh")->alert_element, nullptr);
    setenv("FERLOD_CONF", dir_.path("alerts").c_str(), 1);
}

TEST(AlertTables, HoldWhatProgramsBuildAlertsFrom) {
    const auto values = [](const uint32_t(&table)[7]) {
        return std::vector<uint32_t>(std::begin(table), std::end(table));
    };
    using Values = std::vector<uint32_t>;
    EXPECT_EQ(values(TA_GA_ALERT_TYPES), (Values{18, 18, 1, 18, 17, 1, 18}));
    EXPECT_EQ(values(TA_GA_ALERT_TYPES_NC), (Values{18, 18, 1, 18, 18, 1, 18}));
    EXPECT_EQ(values(TA_GA_CODEPOINTS),
              (Values{0xA000, 0xA000, 0x3300, 0xA000, 0xC00A, 0x3305, 0xB00C}));
    EXPECT_EQ(values(TA_PC_CODEPOINTS),
              (Values{0xFE00, 0xFE00, 0x2132, 0x2132, 0x6700, 0x2200, 0xFE00}));
}

}  // namespace
