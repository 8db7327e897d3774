#include "platform/libmib.h"

#include <gtest/gtest.h>
#include <wqplatform.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "support/env_value.h"
#include "support/exact_block.h"
#include "support/random.h"
#include "support/temp_dir.h"

namespace {

using wq::test::EnvValue;
using wq::test::TempDir;
using Oid = std::vector<uint32_t>;

/* The numbers of a dotted text, by the plainest means. */
Oid numbers(const std::string& text) {
    Oid oid;
    for (size_t at = 0; at < text.size();) {
        const size_t dot = std::min(text.find('.', at), text.size());
        oid.push_back(static_cast<uint32_t>(std::stoul(text.substr(at, dot - at))));
        at = dot + 1;
    }
    return oid;
}

std::string name_of(const Oid& oid) {
    std::array<char, 2048> text;
    text.fill('?');
    sprint__objid(text.data(), oid.data(), static_cast<int>(oid.size()));
    return text.data();
}

std::string name_of(const std::string& text) {
    return name_of(numbers(text));
}

const std::string internet = ".iso.org.dod.internet";
const std::string mib_2 = internet + ".mgmt.mib-2";

TEST(ObjidName, BuiltInNamesNeedNoLoading) {
    const struct {
        const char* oid;
        std::string name;
    } rows[] = {
        {"1", ".iso"},
        {"1.3", ".iso.org"},
        {"1.3.6", ".iso.org.dod"},
        {"1.3.6.1", internet},
        {"1.3.6.1.1", internet + ".directory"},
        {"1.3.6.1.3", internet + ".experimental"},
        {"1.3.6.1.4", internet + ".private"},
        {"1.3.6.1.4.1", internet + ".private.enterprises"},
        {"1.3.6.1.5", internet + ".security"},
        {"1.3.6.1.2.1", mib_2},
        {"1.3.6.1.2.1.1.1.0", mib_2 + ".system.sysDescr.0"},
        {"1.3.6.1.2.1.1.3.0", mib_2 + ".system.sysUpTime.0"},
        {"1.3.6.1.2.1.1.7", mib_2 + ".system.sysServices"},
        {"1.3.6.1.2.1.1.9.1.4.8", mib_2 + ".system.sysORTable.sysOREntry.sysORUpTime.8"},
        {"1.3.6.1.2.1.2.1", mib_2 + ".interfaces.ifNumber"},
        {"1.3.6.1.2.1.2.2.1.1.17", mib_2 + ".interfaces.ifTable.ifEntry.ifIndex.17"},
        {"1.3.6.1.2.1.2.2.1.8.3", mib_2 + ".interfaces.ifTable.ifEntry.ifOperStatus.3"},
        {"1.3.6.1.2.1.2.2.1.22", mib_2 + ".interfaces.ifTable.ifEntry.ifSpecific"},
        {"1.3.6.1.2.1.3.1.1.3", mib_2 + ".at.atTable.atEntry.atNetAddress"},
        {"1.3.6.1.2.1.4.19", mib_2 + ".ip.ipFragCreates"},
        {"1.3.6.1.2.1.4.20.1.5", mib_2 + ".ip.ipAddrTable.ipAddrEntry.ipAdEntReasmMaxSize"},
        {"1.3.6.1.2.1.4.21.1.12", mib_2 + ".ip.ipRouteTable.ipRouteEntry.ipRouteMetric5"},
        {"1.3.6.1.2.1.4.21.1.13", mib_2 + ".ip.ipRouteTable.ipRouteEntry.ipRouteInfo"},
        {"1.3.6.1.2.1.4.22.1.4",
         mib_2 + ".ip.ipNetToMediaTable.ipNetToMediaEntry.ipNetToMediaType"},
        {"1.3.6.1.2.1.4.23", mib_2 + ".ip.ipRoutingDiscards"},
        {"1.3.6.1.2.1.5.14", mib_2 + ".icmp.icmpOutMsgs"},
        {"1.3.6.1.2.1.5.26", mib_2 + ".icmp.icmpOutAddrMaskReps"},
        {"1.3.6.1.2.1.6.13.1.5", mib_2 + ".tcp.tcpConnTable.tcpConnEntry.tcpConnRemPort"},
        {"1.3.6.1.2.1.6.15", mib_2 + ".tcp.tcpOutRsts"},
        {"1.3.6.1.2.1.7.5.1.2", mib_2 + ".udp.udpTable.udpEntry.udpLocalPort"},
        {"1.3.6.1.2.1.8.5.1.15", mib_2 + ".egp.egpNeighTable.egpNeighEntry.egpNeighEventTrigger"},
        {"1.3.6.1.2.1.8.6", mib_2 + ".egp.egpAs"},
        {"1.3.6.1.2.1.9", mib_2 + ".9"},
        {"1.3.6.1.2.1.10", mib_2 + ".transmission"},
        {"1.3.6.1.2.1.11.6", mib_2 + ".snmp.snmpInASNParseErrs"},
        {"1.3.6.1.2.1.11.7", mib_2 + ".snmp.7"},
        {"1.3.6.1.2.1.11.8", mib_2 + ".snmp.snmpInTooBigs"},
        {"1.3.6.1.2.1.11.23.0", mib_2 + ".snmp.23.0"},
        {"1.3.6.1.2.1.11.24", mib_2 + ".snmp.snmpOutGenErrs"},
        {"1.3.6.1.2.1.11.30", mib_2 + ".snmp.snmpEnableAuthenTraps"},
        {"1.3.6.1.2.1.11.32", mib_2 + ".snmp.snmpProxyDrops"},
        {"1.3.6.1.6", internet + ".snmpV2"},
        {"1.3.6.1.6.1.1", internet + ".snmpV2.snmpDomains.snmpUDPDomain"},
        {"1.3.6.1.6.1.5", internet + ".snmpV2.snmpDomains.snmpIPXDomain"},
        {"1.3.6.1.6.2.1.1", internet + ".snmpV2.snmpProxys.rfc1157Proxy.rfc1157Domain"},
        {"1.3.6.1.6.3.1.1.4.1.0",
         internet + ".snmpV2.snmpModules.snmpMIB.snmpMIBObjects.snmpTrap.snmpTrapOID.0"},
        {"1.3.6.1.6.3.1.1.4.3",
         internet + ".snmpV2.snmpModules.snmpMIB.snmpMIBObjects.snmpTrap.snmpTrapEnterprise"},
        {"1.3.6.1.6.3.1.1.5.1",
         internet + ".snmpV2.snmpModules.snmpMIB.snmpMIBObjects.snmpTraps.coldStart"},
        {"1.3.6.1.6.3.1.1.5.6",
         internet + ".snmpV2.snmpModules.snmpMIB.snmpMIBObjects.snmpTraps.egpNeighborLoss"},
        {"1.3.6.1.6.3.1.1.6.1",
         internet + ".snmpV2.snmpModules.snmpMIB.snmpMIBObjects.snmpSet.snmpSetSerialNo"},
        {"1.3.6.1.6.3.1.2.1.3",
         internet + ".snmpV2.snmpModules.snmpMIB.snmpMIBConformance.snmpMIBCompliances."
                    "snmpBasicComplianceRev2"},
        {"1.3.6.1.6.3.1.2.2.12", internet +
                                     ".snmpV2.snmpModules.snmpMIB.snmpMIBConformance.snmpMIBGroups."
                                     "snmpNotificationGroup"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.name, name_of(row.oid)) << row.oid;
    }
}

TEST(ObjidName, WhatHasNoNameIsNumbers) {
    const struct {
        const char* oid;
        std::string name;
    } rows[] = {
        {"0", ".0"},
        {"0.0", ".0.0"},
        {"2.5.4", ".2.5.4"},
        {"1.2.840", ".iso.2.840"},
        {"1.3.6.1.4.1.4294967295.0", internet + ".private.enterprises.4294967295.0"},
        {"1.3.6.2.1.1", ".iso.org.dod.2.1.1"},
        {"4294967295.3.6.1", ".4294967295.3.6.1"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.name, name_of(row.oid)) << row.oid;
    }
}

TEST(ObjidName, NothingToNameIsAnEmptyText) {
    const uint32_t oid[] = {1, 3};
    const struct {
        const uint32_t* oid;
        int length;
    } rows[] = {{oid, 0}, {oid, -1}, {oid, INT32_MIN}, {nullptr, 2}, {nullptr, 0}};
    for (const auto& row : rows) {
        char text[] = "before";
        sprint__objid(text, row.oid, row.length);
        EXPECT_STREQ("", text) << row.length;
    }
    sprint__objid(nullptr, oid, 2);
}

/* 2047 characters and the terminator, whatever there would be to say. */
TEST(ObjidName, IsCutWhereTheRoomEnds) {
    wq::test::ExactArray<char> text(2048);
    for (const size_t count : {204U, 205U, 206U, 300U, 5000U}) {
        const Oid oid(count, 1234567890U);
        std::string whole;
        for (size_t i = 0; i < count; ++i) {
            whole.append(".1234567890");
        }
        std::fill_n(text.data(), text.size(), '?');
        sprint__objid(text.data(), oid.data(), static_cast<int>(count));
        EXPECT_EQ(whole.substr(0, 2047), std::string(text.data())) << count;
    }
}

TEST(ObjidName, NoMoreIsWrittenThanTheTextTakes) {
    wq::test::ExactArray<char> text(5);
    const uint32_t oid[] = {1};
    sprint__objid(text.data(), oid, 1); /* by the tree */
    EXPECT_STREQ(".iso", text.data());
    sprint__objid(text.data(), oid, 1); /* as remembered */
    EXPECT_STREQ(".iso", text.data());
}

/* What is remembered from call to call must answer as the tree does. */
TEST(ObjidName, IsTheSameTheSecondTime) {
    wq::test::Random random;
    SCOPED_TRACE(random.name());
    const wq::MibDefinitions builtin = wq::builtin_definitions();
    const Oid starts[] = {{}, {1, 3, 6, 1, 2, 1}, {1, 3, 6, 1, 2, 1, 2, 2, 1}, {1, 3, 6, 1, 4, 1}};
    std::vector<Oid> used;
    for (int i = 0; i < 20000; ++i) {
        Oid oid;
        if (!used.empty() && random.one_in(2)) {
            oid = used[random.between(0, static_cast<uint32_t>(used.size()) - 1)];
        } else {
            oid = starts[random.between(0, 3)];
            const uint32_t more = random.between(1, 40);
            for (uint32_t j = 0; j < more; ++j) {
                oid.push_back(random.one_in(2) ? random.between(0, 5) : random.any_size());
            }
            used.push_back(oid);
        }
        std::array<char, 2048> expected;
        builtin.tree.render(oid, expected);
        ASSERT_EQ(std::string(expected.data()), name_of(oid));
    }
}

TEST(ObjidName, LengthTellsIdentifiersApart) {
    Oid oid = {1, 3, 6, 1, 2, 1, 1, 1};
    std::set<std::string> names;
    for (int zeros = 0; zeros < 20; ++zeros) {
        names.insert(name_of(oid));
        names.insert(name_of(oid));
        oid.push_back(0);
    }
    EXPECT_EQ(20U, names.size());
}

TEST(MibDefinitions, ANameMeansWhatItWasGivenToLast) {
    wq::MibDefinitions definitions = wq::builtin_definitions();
    wq::MibTree& tree = definitions.tree;
    const uint32_t enterprises = definitions.find("enterprises");
    ASSERT_NE(wq::MibTree::none, enterprises);
    EXPECT_EQ(wq::MibTree::none, definitions.find("enterprise"));
    EXPECT_EQ(wq::MibTree::none, definitions.find(""));
    EXPECT_EQ(wq::MibTree::none, definitions.find("-"));
    const uint32_t a = tree.make_child(enterprises, 1);
    const uint32_t b = tree.make_child(enterprises, 2);
    definitions.define(a, "alpha");
    EXPECT_EQ(a, definitions.find("alpha"));
    definitions.define(b, "alpha");
    EXPECT_EQ(b, definitions.find("alpha"));
    definitions.define(b, "beta");
    EXPECT_EQ(b, definitions.find("alpha")); /* what was said before keeps its meaning */
    EXPECT_EQ(b, definitions.find("beta"));
}

TEST(MibTree, ChildrenAreFoundAndMadeOnce) {
    wq::MibTree tree;
    EXPECT_EQ(wq::MibTree::none, tree.child(wq::MibTree::root, 1));
    const uint32_t one = tree.make_child(wq::MibTree::root, 1);
    EXPECT_EQ(one, tree.child(wq::MibTree::root, 1));
    EXPECT_EQ(one, tree.make_child(wq::MibTree::root, 1));
    EXPECT_EQ(wq::MibTree::none, tree.child(one, 1));
    std::vector<uint32_t> children;
    for (uint32_t i = 0; i < 1000; ++i) {
        children.push_back(tree.make_child(one, i * 4294967U));
    }
    for (uint32_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(children[i], tree.child(one, i * 4294967U));
        ASSERT_EQ(wq::MibTree::none, tree.child(one, i * 4294967U + 1));
    }
}

TEST(MibTree, GoesNoDeeperThanAnIdentifier) {
    wq::MibTree tree;
    uint32_t node = wq::MibTree::root;
    for (int depth = 1; depth <= 128; ++depth) {
        node = tree.make_child(node, 1);
        ASSERT_NE(wq::MibTree::none, node) << depth;
    }
    EXPECT_EQ(wq::MibTree::none, tree.make_child(node, 1));
}

TEST(NumericObjid, IsRead) {
    const struct {
        const char* text;
        Oid oid;
    } rows[] = {
        {".1", {1}},
        {".1.3.6.1", {1, 3, 6, 1}},
        {"1.3.6.1", {1, 3, 6, 1}},
        {".0.0", {0, 0}},
        {".4294967295.0.1", {4294967295U, 0, 1}},
        {".007.08", {7, 8}},
    };
    for (const auto& row : rows) {
        wq::test::ExactArray<uint32_t> oid(row.oid.size());
        int length = oid.length();
        EXPECT_EQ(0, WQmib_read_numeric_objid(row.text, oid.data(), &length)) << row.text;
        EXPECT_EQ(row.oid, oid.first(static_cast<size_t>(length))) << row.text;
    }
}

TEST(NumericObjid, NeedNotFillTheRoom) {
    uint32_t oid[5] = {9, 9, 9, 9, 9};
    int length = 5;
    EXPECT_EQ(0, WQmib_read_numeric_objid(".1.3", oid, &length));
    EXPECT_EQ(2, length);
    EXPECT_EQ(9U, oid[2]);
}

TEST(NumericObjid, AnythingElseFails) {
    const char* const texts[] = {
        "",
        ".",
        "..",
        "..1",
        ".1.",
        ".1..3",
        ".1.3.x",
        ".x",
        ".1.3 ",
        " .1.3",
        ".1 .3",
        ".1.-3",
        ".-1",
        ".+1",
        ".0x1",
        ".1,3",
        ".1.3\n",
        ".4294967296",
        ".1.99999999999999999999",
        "iso.3",
        ".1.3.",
        ".1.3..",
        "1.3.6a",
    };
    for (const char* text : texts) {
        uint32_t oid[8] = {};
        int length = 8;
        EXPECT_EQ(-1, WQmib_read_numeric_objid(text, oid, &length)) << text;
        EXPECT_EQ(8, length) << text;
    }
}

TEST(NumericObjid, MustFitTheRoom) {
    wq::test::ExactArray<uint32_t> oid(3);
    int length = 3;
    EXPECT_EQ(-1, WQmib_read_numeric_objid(".1.3.6.1", oid.data(), &length));
    EXPECT_EQ(3, length);
    EXPECT_EQ(0, WQmib_read_numeric_objid(".1.3.6", oid.data(), &length));
    for (int room : {0, -1}) {
        EXPECT_EQ(-1, WQmib_read_numeric_objid(".1", oid.data(), &room));
    }
}

TEST(NumericObjid, NullsFail) {
    uint32_t oid[2] = {};
    int length = 2;
    EXPECT_EQ(-1, WQmib_read_numeric_objid(nullptr, oid, &length));
    EXPECT_EQ(-1, WQmib_read_numeric_objid(".1", nullptr, &length));
    EXPECT_EQ(-1, WQmib_read_numeric_objid(".1", oid, nullptr));
}

TEST(MibFileName, IsTheVariableOrInTheConfigurationFolder) {
    const EnvValue folder("WQCONFDIR", "/some/where/");
    const EnvValue variable("WQMIBFILE", nullptr);
    EXPECT_STREQ("/some/where/mib.txt", WQmib_get_mib_filename());
    const EnvValue given("WQMIBFILE", "names of ours");
    EXPECT_STREQ("names of ours", WQmib_get_mib_filename());
    const EnvValue empty("WQMIBFILE", "");
    EXPECT_STREQ("", WQmib_get_mib_filename());
}

TEST(MibFileName, FolderHasADefault) {
    const EnvValue folder("WQCONFDIR", nullptr);
    const EnvValue variable("WQMIBFILE", nullptr);
    EXPECT_STREQ("/usr/WQ/conf/mib.txt", WQmib_get_mib_filename());
}

/* A file whose names are added to the built-in ones for as long as the test runs. */
class LoadMib : public ::testing::Test {
  protected:
    ~LoadMib() override {
        file_.set(nullptr);
        folder_.set("/nonexistent");
        WQmib_load_mib();
    }

    int load(const std::string& content) {
        const std::string path = dir_.write("names", content);
        file_.set(path.c_str());
        return WQmib_load_mib();
    }

    TempDir dir_;
    EnvValue folder_{"WQCONFDIR", dir_.path()};
    EnvValue file_{"WQMIBFILE", nullptr};
};

TEST_F(LoadMib, FileAddsNames) {
    ASSERT_EQ(0, load("version 1\nacme enterprises 99999\nacmeBox acme 1\n"));
    EXPECT_EQ(internet + ".private.enterprises.acme.acmeBox.2.0",
              name_of("1.3.6.1.4.1.99999.1.2.0"));
    EXPECT_EQ(mib_2 + ".system.sysDescr.0", name_of("1.3.6.1.2.1.1.1.0"));
}

TEST_F(LoadMib, LoadingAgainReplacesTheNamesOfTheFile) {
    const std::string both = "1.3.6.1.4.1.99999.1";
    ASSERT_EQ(0, load("version 1\nacme enterprises 99999\n"));
    EXPECT_EQ(internet + ".private.enterprises.acme.1", name_of(both));
    ASSERT_EQ(0, load("version 1\nbravo enterprises 99999\nsysText system 1\n"));
    EXPECT_EQ(internet + ".private.enterprises.bravo.1", name_of(both));
    EXPECT_EQ(mib_2 + ".system.sysText", name_of("1.3.6.1.2.1.1.1"));
    ASSERT_EQ(0, load("version 1\n"));
    EXPECT_EQ(internet + ".private.enterprises.99999.1", name_of(both));
    EXPECT_EQ(mib_2 + ".system.sysDescr", name_of("1.3.6.1.2.1.1.1"));
}

TEST_F(LoadMib, WhatCannotBeReadLeavesTheNamesAlone) {
    ASSERT_EQ(0, load("version 1\nacme enterprises 99999\n"));
    EXPECT_EQ(-1, load("version 1\nbravo enterprises 99999\nwrong\n"));
    EXPECT_EQ(internet + ".private.enterprises.acme", name_of("1.3.6.1.4.1.99999"));
}

TEST_F(LoadMib, NamedFileMustBeThere) {
    EXPECT_EQ(-1, load("malformed\n"));
    file_.set(dir_.path("missing").c_str());
    EXPECT_EQ(-1, WQmib_load_mib());
    file_.set(dir_.path("names/below").c_str());
    EXPECT_EQ(-1, WQmib_load_mib());
    file_.set("");
    EXPECT_EQ(-1, WQmib_load_mib());
    file_.set(dir_.path().c_str());
    EXPECT_EQ(-1, WQmib_load_mib());
}

TEST_F(LoadMib, DefaultFileMayBeMissing) {
    ASSERT_EQ(0, load("version 1\nacme enterprises 99999\n"));
    file_.set(nullptr);
    EXPECT_EQ(0, WQmib_load_mib());
    EXPECT_EQ(internet + ".private.enterprises.99999", name_of("1.3.6.1.4.1.99999"));
    folder_.set(dir_.path("names").c_str()); /* not a folder */
    EXPECT_EQ(0, WQmib_load_mib());
}

TEST_F(LoadMib, DefaultFileMustBeWellFormed) {
    dir_.write("mib.txt", "version 1\nacme enterprises 99999\n");
    EXPECT_EQ(0, WQmib_load_mib());
    EXPECT_EQ(internet + ".private.enterprises.acme", name_of("1.3.6.1.4.1.99999"));
    dir_.write("mib.txt", "version 2\n");
    EXPECT_EQ(-1, WQmib_load_mib());
}

TEST_F(LoadMib, ExampleNamesItsBranches) {
    file_.set(WQEVENTS_EXAMPLES "/mib.txt");
    ASSERT_EQ(0, WQmib_load_mib());
    EXPECT_EQ(internet +
                  ".private.enterprises.machineRoom.roomSensors.roomSensorTable.roomSensorEntry."
                  "roomSensorValue.3",
              name_of("1.3.6.1.4.1.32473.1.1.1.4.3"));
    EXPECT_EQ(internet + ".private.enterprises.machineRoom.9.1.roomControllerSerial.0",
              name_of("1.3.6.1.4.1.32473.9.1.7.0"));
    EXPECT_EQ(mib_2 + ".upsMIB.upsObjects.upsBattery.upsEstimatedMinutesRemaining.0",
              name_of("1.3.6.1.2.1.33.1.2.3.0"));
}

TEST_F(LoadMib, TheLogTellsWhatIsWrong) {
    const EnvValue log("WQULOG", dir_.path("log"));
    EXPECT_EQ(-1, load("version 1\nacme nowhere 1\n"));
    EXPECT_NE(std::string::npos,
              dir_.read("log").find("/names:2: the parent is not defined above\n"));
    file_.set(dir_.path("missing").c_str());
    EXPECT_EQ(-1, WQmib_load_mib());
    EXPECT_NE(std::string::npos, dir_.read("log").find("/missing: No such file or directory\n"));
}

}  // namespace
