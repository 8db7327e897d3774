#include <gtest/gtest.h>
#include <wqevents/formatter.h>

#include <climits>
#include <filesystem>
#include <string>

#include "support/formatting.h"

namespace {

using namespace wq::test;

constexpr int all_users[] = {ZLEEVENT_USER, VORTD_USER, OBU_USER, KMEVENTS_USER, PRX_USER, 5, -1};

using TrpFormat = Formatting;

TEST_F(TrpFormat, ResolvesTheAgent) {
    configure(conf({{.name = "Test", .format = "from $A"}}));
    EXPECT_EQ(format(OBU_USER, received_trap(acme, 1)).text, "10.1.2.3: from 10.1.2.3\n");
    known_hosts()[wire(10, 1, 2, 3)] = "gate.example";
    const Formatted formatted = format(OBU_USER, received_trap(acme, 1));
    EXPECT_EQ(formatted.text, "gate.example: from gate.example\n");
    EXPECT_EQ(formatted.host, "gate.example");
}

TEST_F(TrpFormat, NamesOfSourcesAreCutToTheirArea) {
    configure(conf({{.name = "Test", .format = "x"}}));
    known_hosts()[wire(10, 1, 2, 3)] = std::string(79, 'h');
    EXPECT_EQ(format(OBU_USER, received_trap(acme, 1)).host, std::string(79, 'h'));
    known_hosts()[wire(10, 1, 2, 3)] = std::string(1000, 'h');
    const Formatted formatted = format(OBU_USER, received_trap(acme, 1));
    EXPECT_EQ(formatted.host, std::string(79, 'h'));
    EXPECT_EQ(formatted.text, std::string(79, 'h').append(": x\n"));
    configure(conf({{.name = "Test", .format = "$A"}}));
    for (const size_t length : {78U, 79U, 80U, 1000U}) {
        known_hosts()[wire(10, 1, 2, 3)] = std::string(length, 'h');
        EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text,
                  std::string(length, 'h').append("\n"))
            << "whole in the text";
    }
}

TEST_F(TrpFormat, TheNextTrapOverwritesTheHost) {
    configure(conf({{.name = "Test", .format = "x"}}));
    Trap trap = received_trap(acme, 1);
    SnmpVarBindEMS none{};
    char buffer[200];
    char* first = nullptr;
    char* second = nullptr;
    trp_format(PRX_USER, &trap.info, buffer, sizeof buffer, &none, &first, 0);
    trap.info.agent = wire(10, 9, 9, 9);
    trp_format(PRX_USER, &trap.info, buffer, sizeof buffer, &none, &second, 0);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "10.9.9.9");
}

TEST_F(TrpFormat, TellsStatusAndForwardFlag) {
    configure(conf(
        {{.name = "Plain", .specific = 1, .status = 4, .format = "x"},
         {.name = "Forwarded", .specific = 2, .status = -2, .format = "x", .more = "FORWARD\n"}}));
    Trap trap = received_trap(acme, 1);
    trap.info.status = 77;
    trap.info.target = 77;
    format(PRX_USER, trap);
    EXPECT_EQ(trap.info.status, 4);
    EXPECT_EQ(trap.info.target, 0U);
    trap.info.specific = 2;
    format(PRX_USER, trap);
    EXPECT_EQ(trap.info.status, -2);
    EXPECT_EQ(trap.info.target, 1U);
}

TEST_F(TrpFormat, TrapsThatNobodyConfiguredHaveAFormat) {
    Trap trap = received_trap({1, 3, 6, 1, 4, 1, 5, 7}, 300);
    add(trap, integer_binding({1, 3, 6, 1, 2, 1, 2, 2, 1, 1, 5}, 5));
    const Formatted formatted = format(KMEVENTS_USER, trap);
    EXPECT_EQ(formatted.result, 2);
    EXPECT_EQ(formatted.text,
              "Sun Sep 09 01:46:40 2001 10.1.2.3        ? NO FMT IN VORTD.CONF: "
              "private.enterprises.5.7 (1.3.6.1.4.1.5.7) generic:6 specific:300 args(1):  [1] "
              "mgmt.mib-2.interfaces.ifTable.ifEntry.ifIndex.5 (Integer): 5\n");
}

TEST_F(TrpFormat, TextsTooLongForTheDescriptionSaySo) {
    configure(conf({{.name = "Test", .format = "$1$1$1$1$1"}}));
    Trap trap = received_trap(acme, 1);
    add(trap, text_binding(acme, std::string(1000, 'x')));
    EXPECT_EQ(format(PRX_USER, trap, 8000).text, "FMT ERROR: size (5000) exceeded 5000)\n");
    trap.vars[0].val_len = 999;
    EXPECT_EQ(format(PRX_USER, trap, 8000).text, std::string(4995, 'x').append("\n"));
}

TEST_F(TrpFormat, RecordsForNobodyAreDropped) {
    configure(conf({{.name = "Ignored", .specific = 1, .category = "IGNORE", .format = "x"},
                    {.name = "Logged", .specific = 2, .category = "LOGONLY", .format = "x"}}));
    for (const int user : all_users) {
        EXPECT_EQ(format(user, received_trap(acme, 1)).result, -1) << user;
        EXPECT_EQ(format(user, received_trap(acme, 2)).result, user == ZLEEVENT_USER ? -1 : 7);
    }
}

/* Loading. */

TEST_F(TrpFormat, SaysThatTheMibCannotBeRead) {
    const EnvValue missing("WQMIBFILE", dir_.path("missing.txt"));
    configure(conf({{.name = "Test", .format = "x"}}));
    Formatted failed = format(PRX_USER, received_trap(acme, 1));
    EXPECT_EQ(failed.result, 2);
    EXPECT_EQ(failed.text,
              "Cannot read MIB intermediate file '" + dir_.path("missing.txt") + "'\n");
    EXPECT_EQ(failed.host, "");
    EXPECT_EQ(have_read_vortdconf, 0) << "nothing else is loaded then";
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "x\n") << "it is not tried again";
    have_read_mibtxt = 0;
    failed = format(PRX_USER, received_trap(acme, 1), 12);
    EXPECT_EQ(failed.result, 2);
    EXPECT_EQ(failed.text, "Cannot read");
}

TEST_F(TrpFormat, SaysThatTheConfigurationCannotBeRead) {
    std::filesystem::remove(dir_.path("vortd.conf"));
    Formatted failed = format(PRX_USER, received_trap(acme, 1));
    EXPECT_EQ(failed.result, 2);
    EXPECT_EQ(failed.text, "Could not open trap format file \"" + dir_.path("vortd.conf") +
                               "\": No such file or directory\n");
    EXPECT_EQ(have_read_vortdconf, 1);
    configure(conf({{.name = "Test", .format = "x"}}));
    have_read_vortdconf = 1;
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).result, 2)
        << "the hard default's category: it is not tried again";
    have_read_vortdconf = 0;
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "x\n");
}

TEST_F(TrpFormat, HandsOnWhatTheReaderSays) {
    configure(conf({{.name = "Test", .category = "Nonsense", .format = "x"}}));
    const Formatted failed = format(PRX_USER, received_trap(acme, 1));
    EXPECT_EQ(failed.result, 2);
    EXPECT_EQ(failed.text, "No such display category \"Nonsense\" defined in line #6 of \"" +
                               dir_.path("vortd.conf") +
                               "\":\nTest {1.3.6.1.4.1.4242} 6 1 A 1 0 \"Nonsense\".\n");
    configure("CATEGORY 64 \"x\"\n");
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1), 20).text, "Bad category number");
}

TEST_F(TrpFormat, NamesAreLookedForUntilTheyAreThere) {
    configure(conf({{.name = "Test", .format = "$E"}}));
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "acme\n");
    EXPECT_EQ(have_read_mappings, 0);
    dir_.write("oid_to_label", "1.3.6.1.4.1.4242=\"the makers\"\n");
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "the makers\n");
    EXPECT_EQ(have_read_mappings, 1);
    dir_.write("oid_to_label", "1.3.6.1.4.1.4242=\"others\"\n");
    EXPECT_EQ(format(PRX_USER, received_trap(acme, 1)).text, "the makers\n") << "read once";
}

TEST_F(TrpFormat, NullPointersAreNotShown) {
    Trap trap = platform_event(1500, 2, "gate", "x");
    char buffer[100];
    char* host = nullptr;
    EXPECT_EQ(trp_format(1, nullptr, buffer, 100, trap.vars.data(), &host, 0), -1);
    EXPECT_EQ(trp_format(1, &trap.info, nullptr, 100, trap.vars.data(), &host, 0), -1);
    EXPECT_EQ(trp_format(1, &trap.info, buffer, 100, nullptr, &host, 0), -1);
    EXPECT_EQ(trp_format(1, &trap.info, buffer, 100, trap.vars.data(), nullptr, 0), -1);
    EXPECT_EQ(have_read_vortdconf, 0) << "nothing is loaded";
    trap.info.vars = 0;
    EXPECT_EQ(trp_format(1, &trap.info, buffer, 100, nullptr, &host, 0), 2)
        << "a trap without bindings needs no array";
}

/* Threshold traps. */

const Oid threshold = {1, 3, 6, 1, 4, 1, 2, 6, 12, 5, 1};

Trap threshold_trap(const Oid& enterprise = threshold, int bindings = 9) {
    Trap trap = received_trap(enterprise, 58982400);
    for (int i = 1; i < bindings; ++i) {
        add(trap, integer_binding(threshold, i));
    }
    add(trap, text_binding(threshold, "measured-host"));
    return trap;
}

TEST_F(TrpFormat, ThresholdTrapsNameTheirHost) {
    Trap trap = threshold_trap();
    trap.vars[8].val_len = 8;
    const Formatted formatted = format(OBU_USER, trap);
    EXPECT_EQ(formatted.host, "measured");
    EXPECT_EQ(formatted.text.substr(0, 33), "measured: NO FMT IN VORTD.CONF: p");
    EXPECT_EQ(trap.vars[8].val.string[8], 0) << "terminated in place";
    Oid longer = threshold;
    longer.push_back(7);
    EXPECT_EQ(format(OBU_USER, threshold_trap(longer)).host, "measured-host");
    EXPECT_EQ(format(OBU_USER, threshold_trap(threshold, 10)).host, "10.1.2.3")
        << "it is the ninth that counts";
}

TEST_F(TrpFormat, OtherTrapsComeFromTheirAgent) {
    EXPECT_EQ(format(OBU_USER, threshold_trap(threshold, 8)).host, "10.1.2.3");
    Trap generic = threshold_trap();
    generic.info.gen = 5;
    EXPECT_EQ(format(OBU_USER, generic).host, "10.1.2.3");
    Trap is_short = threshold_trap();
    is_short.info.elen = 10;
    EXPECT_EQ(format(OBU_USER, is_short).host, "10.1.2.3");
    Trap opaque = threshold_trap();
    opaque.vars[8].type = ASN_OPAQUE09;
    EXPECT_EQ(format(OBU_USER, opaque).host, "10.1.2.3");
    EXPECT_EQ(format(OBU_USER, threshold_trap({1, 3, 6, 1, 4, 1, 2, 6, 12, 5, 2})).host,
              "10.1.2.3");
}

TEST_F(TrpFormat, LongThresholdHostsLoseAByte) {
    Trap trap = threshold_trap();
    trap.vars[8] = text_binding(threshold, std::string(1024, 'h'));
    for (const uint32_t length : {1024U, UINT32_MAX}) {
        trap.vars[8].val_len = length;
        EXPECT_EQ(format(OBU_USER, trap).host, std::string(1023, 'h'));
    }
}

TEST_F(TrpFormat, RecordsAreChosenByTheThresholdsHost) {
    configure(conf({{.name = "Here",
                     .enterprise = "1.3.6.1.4.1.2.6.12",
                     .generic = -1,
                     .specific = -1,
                     .format = "here",
                     .more = "NODES measured-host\n"}},
                   "qrm {1.3.6.1.4.1.2.6.12}\n"));
    EXPECT_EQ(format(PRX_USER, threshold_trap()).text, "here\n");
}

/* find_trap_format(). */

struct Found {
    std::string name;
    std::string enterprise;

    bool operator==(const Found&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Found& found) {
    return out << found.name << " of " << found.enterprise;
}

Found find(const Oid& oid, int generic, int specific, const char* host) {
    trap_record* record = nullptr;
    enterprise_info* enterprise = nullptr;
    find_trap_format(oid.data(), static_cast<uint32_t>(oid.size()), generic, specific, &record,
                     &enterprise, host);
    if (record == &default_trap_record && enterprise == nullptr) {
        return {"default", ""};
    }
    return {record->name, enterprise->enterprise_name};
}

class FindTrapFormat : public Formatting {
  protected:
    void read(std::string_view content) {
        configure(content);
        char* message = nullptr;
        ASSERT_EQ(read_trapspec_file(&message), 0) << message;
    }
};

TEST_F(FindTrapFormat, TheExactRecordOfTheMostSpecificEnterprise) {
    read(conf(
        {{.name = "Outer", .specific = 1, .format = "x"},
         {.name = "OuterTwo", .specific = 2, .format = "x"},
         {.name = "Inner", .enterprise = "1.3.6.1.4.1.4242.6.3", .specific = 1, .format = "x"}},
        "inner {1.3.6.1.4.1.4242.6.3}\n"));
    EXPECT_EQ(find({1, 3, 6, 1, 4, 1, 4242, 6, 3, 1}, 6, 1, "h"), (Found{"Inner", "inner"}));
    EXPECT_EQ(find({1, 3, 6, 1, 4, 1, 4242, 5}, 6, 1, "h"), (Found{"Outer", "acme"}));
    EXPECT_EQ(find({1, 3, 6, 1, 4, 1, 4242, 6, 3}, 6, 2, "h"), (Found{"OuterTwo", "acme"}))
        << "the next enterprise that covers it";
    EXPECT_EQ(find({1, 3, 6, 1, 4, 1, 4242}, 6, 3, "h"), (Found{"default", ""}));
    EXPECT_EQ(find({1, 3, 6, 1, 4, 1}, 6, 1, "h"), (Found{"default", ""}));
    EXPECT_EQ(find(acme, 2, 1, "h"), (Found{"default", ""}));
}

TEST_F(FindTrapFormat, NodesComeBeforeEveryone) {
    read(conf({{.name = "Everywhere", .format = "x"},
               {.name = "There", .format = "x", .more = "NODES gate mill\n"}}));
    EXPECT_EQ(find(acme, 6, 1, "mill"), (Found{"There", "acme"}));
    EXPECT_EQ(find(acme, 6, 1, "well"), (Found{"Everywhere", "acme"}));
    EXPECT_EQ(find(acme, 6, 1, nullptr), (Found{"Everywhere", "acme"}));
}

TEST_F(FindTrapFormat, ACatchAllTakesTheRest) {
    read(conf({{.name = "Rest", .generic = -1, .specific = -1, .format = "x"},
               {.name = "One", .specific = 1, .format = "x"}}));
    EXPECT_EQ(find(acme, 6, 1, "h"), (Found{"One", "acme"}));
    EXPECT_EQ(find(acme, 6, 2, "h"), (Found{"Rest", "acme"}));
    EXPECT_EQ(find(acme, 0, 0, "h"), (Found{"Rest", "acme"}));
}

TEST_F(FindTrapFormat, ACatchAllForOtherNodesLeadsToTheFirstForTheHost) {
    read(conf({{.name = "RestThere",
                .generic = -1,
                .specific = -1,
                .format = "x",
                .more = "NODES gate\n"},
               {.name = "OneThere", .specific = 1, .format = "x", .more = "NODES gate\n"},
               {.name = "Two", .specific = 2, .format = "x"}}));
    EXPECT_EQ(find(acme, 6, 7, "gate"), (Found{"RestThere", "acme"}));
    EXPECT_EQ(find(acme, 6, 7, "mill"), (Found{"Two", "acme"})) << "whatever its numbers";
}

TEST_F(FindTrapFormat, ACatchAllForNobodyLeadsToTheNextEnterprise) {
    read(conf(
        {{.name = "Outer",
          .enterprise = "1.3.6.1.4.1",
          .generic = -1,
          .specific = -1,
          .format = "x"},
         {.name = "Rest", .generic = -1, .specific = -1, .format = "x", .more = "NODES gate\n"}},
        "outer {1.3.6.1.4.1}\n"));
    EXPECT_EQ(find(acme, 6, 7, "mill"), (Found{"Outer", "outer"}));
    EXPECT_EQ(find(acme, 6, 7, "gate"), (Found{"Rest", "acme"}));
}

TEST_F(FindTrapFormat, OnlyAFirstRecordCatchesAll) {
    read(conf({{.name = "Lower", .generic = -2, .specific = 0, .format = "x"},
               {.name = "Rest", .generic = -1, .specific = -1, .format = "x"}}));
    EXPECT_EQ(find(acme, 6, 7, "h"), (Found{"default", ""}));
}

TEST_F(FindTrapFormat, NullPointersDoNotHurt) {
    read(conf({{.name = "One", .format = "x"}}));
    trap_record* record = nullptr;
    enterprise_info* enterprise = enterprise_list_head.next;
    find_trap_format(acme.data(), 7, 6, 1, &record, nullptr, nullptr);
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->name, "One");
    find_trap_format(acme.data(), 7, 6, 1, nullptr, &enterprise, nullptr);
    EXPECT_EQ(enterprise, enterprise_list_head.next);
    find_trap_format(nullptr, 7, 6, 1, &record, &enterprise, nullptr);
    EXPECT_EQ(record, &default_trap_record);
    EXPECT_EQ(enterprise, nullptr);
    find_trap_format(nullptr, 7, 6, 1, nullptr, nullptr, nullptr);
}

TEST(Enterprises, PlatformEvents) {
    const struct {
        Oid enterprise;
        int generic;
        int specific;
        int is_event;
    } rows[] = {
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, 1001, 1},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3}, 6, 2000, 1},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 9}, 6, 1500, 1},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, 1000, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, 2001, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, 1 << 25, 1},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, 1 << 24, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, 1 << 26, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, -1, 1},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 6, INT_MIN, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 3, 1}, 5, 1500, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 4, 1}, 6, 1500, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 12}, 6, 1500, 0},
    };
    for (const auto& row : rows) {
        const ExactArray<uint32_t> exact(row.enterprise);
        EXPECT_EQ(isTrapJW(row.generic, row.specific, exact.data()), row.is_event) << row.specific;
    }
    EXPECT_EQ(isTrapJW(6, 1500, nullptr), 0);
}

TEST(Enterprises, ByTheirBeginning) {
    const struct {
        Oid enterprise;
        int km;
        int qrm;
        int veb;
    } rows[] = {
        {{1, 3, 6, 1, 4, 1, 2, 6, 3}, 1, 0, 0},    {{1, 3, 6, 1, 4, 1, 2, 6, 3, 2}, 1, 0, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 12}, 0, 1, 0},   {{1, 3, 6, 1, 4, 1, 2, 6, 12, 5, 1}, 0, 1, 0},
        {{1, 3, 6, 1, 4, 1, 5593, 0, 0}, 0, 0, 1}, {{1, 3, 6, 1, 4, 1, 5594, 0, 0}, 0, 0, 0},
        {{1, 3, 6, 1, 4, 1, 2, 6, 4}, 0, 0, 0},
    };
    for (const auto& row : rows) {
        const ExactArray<uint32_t> exact(row.enterprise);
        EXPECT_EQ(isKMEnterprise(exact.data()), row.km);
        EXPECT_EQ(isQRMEnterprise(exact.data()), row.qrm);
        EXPECT_EQ(isVEBEnterprise(exact.data()), row.veb);
    }
    const ExactArray<uint32_t> seven(Oid{1, 3, 6, 1, 4, 1, 5593});
    EXPECT_EQ(isVEBEnterprise(seven.data()), 1);
    EXPECT_EQ(isKMEnterprise(nullptr) + isQRMEnterprise(nullptr) + isVEBEnterprise(nullptr), 0);
}

}  // namespace
