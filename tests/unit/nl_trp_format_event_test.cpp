/* The platform's own events, and their notifications. */
#include <gtest/gtest.h>
#include <wqevents/formatter.h>

#include <climits>
#include <string>

#include "support/formatting.h"

namespace {

using namespace wq::test;

constexpr uint32_t mib_changed = 0x3070027;
constexpr uint32_t configuration_changed = 0x3070026;

/* An event of category 2 that displays show. */
constexpr uint32_t shown_event = 0x02820000;

constexpr int displays[] = {ZLEEVENT_USER, KMEVENTS_USER, PRX_USER};
constexpr int all_users[] = {ZLEEVENT_USER, VORTD_USER, OBU_USER, KMEVENTS_USER, PRX_USER, 5, -1};

using Event = Formatting;

TEST_F(Event, BringsItsOwnTextHostAndLetter) {
    Trap trap = platform_event(1500, 2, "gate", "Node gate is down");
    const Formatted formatted = format(VORTD_USER, trap);
    EXPECT_EQ(formatted.result, 0);
    EXPECT_EQ(formatted.host, "gate");
    EXPECT_EQ(
        formatted.text,
        "1000000000 0  Sun Sep 09 01:46:40 2001 gate                      N Node gate is down\n");
    EXPECT_EQ(format(OBU_USER, trap).text, "gate: Node gate is down\n");
}

TEST_F(Event, TheHostLiesInTheBinding) {
    Trap trap = platform_event(1500, 2, "gate", "down");
    char buffer[200];
    char* host = nullptr;
    ASSERT_EQ(trp_format(OBU_USER, &trap.info, buffer, sizeof buffer, trap.vars.data(), &host, 0),
              0);
    EXPECT_EQ(host, reinterpret_cast<char*>(trap.vars[1].val.string));
}

TEST_F(Event, TextsEndAtTheirLengths) {
    Trap trap = platform_event(1500, 2, "gatekeeper", "Node gate is down");
    trap.vars[1].val_len = 4;
    trap.vars[2].val_len = 9;
    EXPECT_EQ(format(OBU_USER, trap).text, "gate: Node gate\n");
    EXPECT_EQ(trap.vars[1].val.string[4], 0) << "terminated in place";
    EXPECT_EQ(trap.vars[2].val.string[9], 0);
}

TEST_F(Event, TextsThatFillTheirRecordsLoseAByte) {
    Trap trap = platform_event(1500, 2, std::string(1024, 'h'), std::string(1024, 'd'));
    for (const uint32_t length : {1024U, 1025U, UINT32_MAX}) {
        trap.vars[1].val_len = trap.vars[2].val_len = length;
        const Formatted formatted = format(OBU_USER, trap);
        EXPECT_EQ(formatted.host, std::string(1023, 'h'));
        EXPECT_EQ(formatted.text,
                  std::string(1023, 'h').append(": ").append(1023, 'd').append("\n"));
        EXPECT_EQ(trap.vars[1].val_len, length);
    }
}

TEST_F(Event, LettersTellTheApplication) {
    const std::string letters = "ANMTdDSOELtCIaVnsrPGoxmRFc";
    const auto letter = [](const Trap& event) {
        Trap trap = event;
        return format(VORTD_USER, trap).text.substr(64, 3);
    };
    for (int32_t application = 1; application <= 26; ++application) {
        EXPECT_EQ(
            letter(platform_event(1500, application, "h", "x")),
            std::string(" ").append(1, letters[static_cast<size_t>(application) - 1]).append(" "));
    }
    for (const int32_t application : {27, 28, 29, 0, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(letter(platform_event(1500, application, "h", "x")), " d ") << application;
    }
    Trap other = platform_event(1500, 2, "h", "x");
    other.vars[0].type = ASN_GAUGE09;
    EXPECT_EQ(letter(other), " d ");
}

TEST_F(Event, TheLetterIsNeverTheRecords) {
    configure(conf({{.name = "Event",
                     .enterprise = "1.3.6.1.4.1.2.6.3",
                     .specific = 1500,
                     .source = '#',
                     .format = "configured $2"}},
                   "wq {1.3.6.1.4.1.2.6.3}\n"));
    EXPECT_EQ(format(KMEVENTS_USER, platform_event(1500, 2, "gate", "own")).text,
              "Sun Sep 09 01:46:40 2001 gate            N configured gate\n");
}

/* Fewer than five bindings, or other numbers: an ordinary trap of the agent. */
TEST_F(Event, OtherTrapsOfTheEnterpriseAreOrdinary) {
    configure(conf({{.name = "Any", .generic = -1, .specific = -1, .format = "any $S"}},
                   "top {1.3.6.1.4}\n"));
    Trap trap = platform_event(1500, 2, "gate", "own text");
    trap.info.vars = 4;
    EXPECT_EQ(format(OBU_USER, trap).text.substr(0, 10), "10.1.2.3: ");
    trap.info.vars = 5;
    EXPECT_EQ(format(OBU_USER, trap).text, "gate: own text\n");
    for (const uint32_t specific : {1000U, 2001U, 0x01000000U, 0x04000000U}) {
        trap.info.specific = specific;
        EXPECT_EQ(format(OBU_USER, trap).host, "10.1.2.3") << specific;
    }
    trap.info.specific = 2000;
    trap.info.gen = 5;
    EXPECT_EQ(format(OBU_USER, trap).host, "10.1.2.3");
}

TEST_F(Event, AConfiguredEnterpriseSuppliesTheFormat) {
    const std::string text = "configured for $2";
    configure(conf({{.name = "Event",
                     .enterprise = "1.3.6.1.4.1.2",
                     .generic = 6,
                     .specific = 1500,
                     .status = 4,
                     .format = text,
                     .more = "FORWARD\n"}},
                   "seven {1.3.6.1.4.1.2}\n"));
    Trap trap = platform_event(1500, 2, "gate", "own text");
    for (const int user : all_users) {
        const Formatted formatted = format(user, trap);
        EXPECT_EQ(formatted.result, 3) << user;
        EXPECT_NE(formatted.text.find("configured for gate"), std::string::npos) << user;
    }
    EXPECT_EQ(trap.info.status, 4);
    EXPECT_EQ(trap.info.target, 1U);
}

TEST_F(Event, AnEnterpriseOfTheRegistrysArcDoesNot) {
    configure(conf({{.name = "Any",
                     .enterprise = "1.3.6.1.4.1",
                     .generic = -1,
                     .specific = -1,
                     .status = 4,
                     .format = "configured"}},
                   "six {1.3.6.1.4.1}\n"));
    Trap trap = platform_event(shown_event, 2, "gate", "own text");
    for (const int user : all_users) {
        const Formatted formatted = format(user, trap);
        EXPECT_EQ(formatted.result, 2) << user;
        EXPECT_NE(formatted.text.find("own text"), std::string::npos) << user;
    }
    EXPECT_EQ(trap.info.status, 4) << "the record still tells the status";
}

TEST_F(Event, AnEventWithoutATextTakesTheRecordsFormat) {
    const Formatted formatted = format(VORTD_USER, platform_event(0x02810000, 2, "gate", ""));
    EXPECT_EQ(formatted.result, 2) << "the category of the hard default";
    EXPECT_EQ(formatted.text.substr(64, 25), " N NO FMT IN VORTD.CONF: ");
}

TEST_F(Event, CategoriesLieInTheNumber) {
    for (uint32_t category = 0; category <= 15; ++category) {
        Trap trap = platform_event(0x02800000 | category << 16, 2, "gate", "x");
        EXPECT_EQ(format(VORTD_USER, trap).result, static_cast<int>(category));
        EXPECT_EQ(format(OBU_USER, trap).result, static_cast<int>(category));
        EXPECT_EQ(format(KMEVENTS_USER, trap).result, static_cast<int>(category));
        EXPECT_EQ(format(PRX_USER, trap).result, static_cast<int>(category));
        EXPECT_EQ(format(ZLEEVENT_USER, trap).result,
                  category == 7 ? -1 : static_cast<int>(category))
            << "which are for the log only";
    }
}

TEST_F(Event, DisplaysLeaveOutWhatIsNotForThem) {
    struct {
        uint32_t specific;
        int application;
        bool shown;
    } const rows[] = {
        {0x02820000, 2, true},  {0x02020000, 2, false}, {1500, 2, false},
        {0x02810000, 2, true},  {0x02810000, 3, false}, {0x02820000, 3, true},
        {0x02800000, 3, true},  {0x02810001, 3, false}, {0x02F1FFFF, 3, false},
        {0x02910000, 26, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.specific);
        Trap trap = platform_event(row.specific, row.application, "gate", "x");
        for (const int user : displays) {
            EXPECT_EQ(format(user, trap).result != -1, row.shown) << user;
        }
        for (const int user : {VORTD_USER, OBU_USER, static_cast<rtrap_user>(5)}) {
            EXPECT_NE(format(user, trap).result, -1) << user;
        }
    }
}

TEST_F(Event, AConfiguredEventIsAlwaysForTheDisplays) {
    configure(conf({{.name = "Any",
                     .enterprise = "1.3.6.1.4.1.2.6.3.1",
                     .generic = -1,
                     .specific = -1,
                     .format = "configured"}},
                   "wq {1.3.6.1.4.1.2.6.3.1}\n"));
    for (const int user : displays) {
        EXPECT_EQ(format(user, platform_event(1500, 3, "gate", "x")).result, 3);
    }
}

TEST_F(Event, RecordsForNobodyAreDropped) {
    const std::string enterprise = "wq {1.3.6.1.4.1}\n";
    ConfTrap record = {.name = "Any",
                       .enterprise = "1.3.6.1.4.1",
                       .generic = -1,
                       .specific = -1,
                       .status = 8,
                       .category = "IGNORE",
                       .format = "x"};
    configure(conf({record}, enterprise));
    Trap trap = platform_event(shown_event, 2, "gate", "own text");
    for (const int user : all_users) {
        EXPECT_EQ(format(user, trap).result, -1) << user;
    }
    EXPECT_EQ(trap.info.status, 8) << "told for what is dropped, too";
    record.category = "LOGONLY";
    configure(conf({record}, enterprise));
    for (const int user : all_users) {
        EXPECT_EQ(format(user, trap).result, user == ZLEEVENT_USER ? -1 : 2) << user;
    }
}

TEST_F(Event, TellsTheDaemonOfAReload) {
    const Formatted mib = format(VORTD_USER, platform_event(mib_changed, 2, "gate", "Mib"));
    EXPECT_EQ(mib.result, 7);
    EXPECT_EQ(mib.text,
              "1000000000 7  Sun Sep 09 01:46:40 2001 gate                      N Mib: MIB file "
              "updated.\n");
    const Formatted configuration =
        format(VORTD_USER, platform_event(configuration_changed, 2, "gate", "Ed changed it"));
    EXPECT_EQ(configuration.result, 7);
    EXPECT_EQ(configuration.text,
              "1000000000 7  Sun Sep 09 01:46:40 2001 gate                      N Ed changed it: "
              "format file updated next format\n");
}

TEST_F(Event, AReloadIsForNobodyElse) {
    for (const uint32_t specific : {mib_changed, configuration_changed}) {
        for (const int user : all_users) {
            if (user != VORTD_USER) {
                EXPECT_EQ(format(user, platform_event(specific, 2, "gate", "x")).result, -1);
            }
        }
    }
}

TEST_F(Event, OtherNumbersDoNotReload) {
    format(VORTD_USER, platform_event(1500, 2, "gate", "x"));
    for (const uint32_t specific : {0x3070025U, 0x3070028U, 0x2070027U, 0x7070027U}) {
        EXPECT_EQ(format(VORTD_USER, platform_event(specific, 2, "gate", "x")).text.substr(64),
                  " N x\n");
        EXPECT_EQ(have_read_mibtxt, 1);
        EXPECT_EQ(have_read_vortdconf, 1);
    }
}

TEST_F(Event, ANotificationWithTooFewBindingsReloadsNothing) {
    Trap trap = platform_event(configuration_changed, 2, "gate", "x");
    trap.info.vars = 4;
    format(VORTD_USER, trap);
    EXPECT_EQ(have_read_vortdconf, 1);
}

TEST_F(Event, AConfiguredNotificationIsFormattedAsConfigured) {
    configure(conf({{.name = "Changed",
                     .enterprise = "1.3.6.1.4.1.2.6.3.1",
                     .specific = static_cast<int>(configuration_changed),
                     .format = "reloaded: $3"}},
                   "wq {1.3.6.1.4.1.2.6.3.1}\n"));
    EXPECT_EQ(
        format(VORTD_USER, platform_event(configuration_changed, 2, "gate", "x")).text.substr(64),
        " N reloaded: x\n");
    EXPECT_EQ(have_read_vortdconf, 0);
}

TEST_F(Event, TheNextTrapIsFormattedByTheNewConfiguration) {
    configure(conf({{.name = "Test", .format = "old"}}));
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "old\n");
    dir_.write("vortd.conf", conf({{.name = "Test", .format = "new"}}));
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "old\n") << "nobody told";
    EXPECT_EQ(format(KMEVENTS_USER, platform_event(configuration_changed, 2, "gate", "x")).result,
              -1);
    EXPECT_EQ(have_read_vortdconf, 0);
    EXPECT_EQ(have_read_mibtxt, 1);
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "new\n");
    EXPECT_EQ(have_read_vortdconf, 1);
}

TEST_F(Event, TheNextTrapIsFormattedByTheNewMib) {
    EXPECT_EQ(format(KMEVENTS_USER, platform_event(mib_changed, 2, "gate", "x")).result, -1);
    EXPECT_EQ(have_read_mibtxt, 0);
    EXPECT_EQ(have_read_vortdconf, 1);
    const EnvValue broken("WQMIBFILE", dir_.path("missing"));
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).result, 2) << "it was tried";
}

}  // namespace
