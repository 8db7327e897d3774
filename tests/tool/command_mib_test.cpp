#include <gtest/gtest.h>
#include <wqplatform.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "listening_process.h"
#include "support/env_value.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

using Oid = std::vector<std::uint32_t>;

const std::string own_modules = std::string(WQEVENTS_TEST_DATA) + "/mibs";
const std::string packaged_modules = "/usr/share/snmp/mibs"; /* of Debian's package "snmp" */

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Words compile(const Words& words) {
    Words all{"mib", "compile", "-I", own_modules, "-I", packaged_modules};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

std::string name_of(const Oid& oid) {
    std::array<char, 2048> text{};
    sprint__objid(text.data(), oid.data(), static_cast<int>(oid.size()));
    return text.data();
}

/* The text without the comments at its start. */
std::string definitions(const std::string& text) {
    const std::size_t end = text.rfind("#\n");
    return end == std::string::npos ? text : text.substr(end + 2);
}

const std::string enterprises = ".iso.org.dod.internet.private.enterprises";

TEST(MibCompile, WritesWhatTheLibraryDoesNotKnow) {
    const CommandRun run(compile({"ACME-MIB"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "version 1\n"
              "#\n"
              "# Written by wqevents mib compile from\n"
              "#   ACME-MIB\n"
              "#\n"
              "acme enterprises 99999\n"
              "pumpStopped 1.3.6.1.4.1.99999.0.5\n"
              "acmePumps acme 1\n"
              "pumpTable acmePumps 2\n"
              "pumpEntry pumpTable 1\n"
              "pumpIndex pumpEntry 1\n"
              "pumpStarts pumpEntry 4\n"
              "acmeGap 1.3.6.1.4.1.99999.7.3.1\n");
}

TEST(MibCompile, TakesAPathOfAModule) {
    const CommandRun by_name(compile({"ACME-MIB"}));
    const CommandRun by_path({"mib", "compile", "-I", own_modules, own_modules + "/ACME-MIB.txt"});
    EXPECT_EQ(by_path.status, 0);
    EXPECT_EQ(definitions(by_path.out), definitions(by_name.out));
}

TEST(MibCompile, BuiltInNamesAreLeftOut) {
    const CommandRun run(compile({"SNMPv2-SMI"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(definitions(run.out), "zeroDotZero 0.0\n");
}

TEST(MibCompile, NamesAboveComeFromImportedModules) {
    const CommandRun run(compile({"UCD-DLMOD-MIB"}));
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string start =
        "ucdavis enterprises 2021\nucdExperimental ucdavis 13\n"
        "ucdDlmodMIB ucdExperimental 14\n";
    EXPECT_EQ(definitions(run.out).substr(0, start.size()), start);
    EXPECT_FALSE(holds(run.out, "\nprTable ")) << "a neighbour in the imported module";
}

/* A name that means something else by the time a child comes cannot stand for the parent. */
TEST(MibCompile, AmbiguousParentsAreWrittenAsNumbers) {
    const TempDir dir;
    dir.write("TWIN1-MIB.txt",
              "TWIN1-MIB DEFINITIONS ::= BEGIN\n"
              "IMPORTS enterprises FROM RFC1155-SMI;\n"
              "top OBJECT IDENTIFIER ::= { enterprises 91 }\n"
              "twin OBJECT IDENTIFIER ::= { top 1 }\n"
              "leafOne OBJECT IDENTIFIER ::= { twin 3 }\n"
              "END\n");
    dir.write("TWIN2-MIB.txt",
              "TWIN2-MIB DEFINITIONS ::= BEGIN\n"
              "IMPORTS enterprises FROM RFC1155-SMI;\n"
              "twin OBJECT IDENTIFIER ::= { enterprises 91 1 2 }\n"
              "leafTwo OBJECT IDENTIFIER ::= { twin 5 }\n"
              "END\n");
    const std::string file = dir.path("mib.txt");
    const CommandRun run({"mib", "compile", "-I", dir.path(), "-I", own_modules, "-o", file,
                          "TWIN1-MIB", "TWIN2-MIB"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(definitions(dir.read("mib.txt")),
              "top enterprises 91\n"
              "twin top 1\n"
              "twin twin 2\n"
              "leafTwo twin 5\n"
              "leafOne 1.3.6.1.4.1.91.1.3\n");
    const EnvValue variable("WQMIBFILE", file);
    ASSERT_EQ(WQmib_load_mib(), 0);
    EXPECT_EQ(name_of({1, 3, 6, 1, 4, 1, 91, 1, 3}), enterprises + ".top.twin.leafOne");
    EXPECT_EQ(name_of({1, 3, 6, 1, 4, 1, 91, 1, 2, 5}), enterprises + ".top.twin.twin.leafTwo");
}

/* Both name the same identifier: the module named last is believed. */
TEST(MibCompile, LastModuleNamesAnIdentifier) {
    const TempDir dir;
    for (const char* name : {"alpha", "bravo"}) {
        const std::string module = std::string(name == std::string("alpha") ? "A-MIB" : "B-MIB");
        dir.write(module + ".txt", module + " DEFINITIONS ::= BEGIN\n" +
                                       "IMPORTS enterprises FROM RFC1155-SMI;\n" + name +
                                       " OBJECT IDENTIFIER ::= { enterprises 91 }\nEND\n");
    }
    const auto named = [&](const char* first, const char* second) {
        return definitions(
            CommandRun({"mib", "compile", "-I", dir.path(), "-I", own_modules, first, second}).out);
    };
    EXPECT_EQ(named("A-MIB", "B-MIB"), "bravo enterprises 91\n");
    EXPECT_EQ(named("B-MIB", "A-MIB"), "alpha enterprises 91\n");
}

/* Each of the packaged modules, and all together, gives a file that the library reads. */
TEST(MibCompile, PackagedModulesBecomeNames) {
    const struct {
        const char* module;
        Oid oid;
        std::string name;
    } rows[] = {
        {"NET-SNMP-MIB", {1, 3, 6, 1, 4, 1, 8072, 4}, ".netSnmp.netSnmpNotificationPrefix"},
        {"NET-SNMP-AGENT-MIB",
         {1, 3, 6, 1, 4, 1, 8072, 4, 0, 2},
         ".netSnmp.netSnmpNotificationPrefix.netSnmpNotifications.nsNotifyShutdown"},
        {"NET-SNMP-EXAMPLES-MIB",
         {1, 3, 6, 1, 4, 1, 8072, 2, 3, 2, 1, 0},
         ".netSnmp.netSnmpExamples.netSnmpExampleNotifications."
         "netSnmpExampleNotificationObjects.netSnmpExampleHeartbeatRate.0"},
        {"NET-SNMP-EXTEND-MIB",
         {1, 3, 6, 1, 4, 1, 8072, 1, 3, 2, 1, 0},
         ".netSnmp.netSnmpObjects.nsExtensions.nsExtendObjects.nsExtendNumEntries.0"},
        {"NET-SNMP-PASS-MIB",
         {1, 3, 6, 1, 4, 1, 8072, 2, 255, 1},
         ".netSnmp.netSnmpExamples.netSnmpPassExamples.netSnmpPassString"},
        {"NET-SNMP-TC",
         {1, 3, 6, 1, 4, 1, 8072, 3, 2, 10},
         ".netSnmp.netSnmpEnumerations.netSnmpAgentOIDs.linux"},
        {"NET-SNMP-VACM-MIB",
         {1, 3, 6, 1, 4, 1, 8072, 1, 9, 1, 1, 3},
         ".netSnmp.netSnmpObjects.netSnmpVacmMIB.nsVacmAccessTable.nsVacmAccessEntry."
         "nsVacmViewName"},
        {"UCD-SNMP-MIB", {1, 3, 6, 1, 4, 1, 2021, 4, 6, 0}, ".ucdavis.memory.memAvailReal.0"},
        {"UCD-DEMO-MIB",
         {1, 3, 6, 1, 4, 1, 2021, 14, 1, 1, 2},
         ".ucdavis.ucdDemoMIB.ucdDemoMIBObjects.ucdDemoPublic.ucdDemoPublicString"},
        {"UCD-DISKIO-MIB",
         {1, 3, 6, 1, 4, 1, 2021, 13, 15, 1, 1, 2, 7},
         ".ucdavis.ucdExperimental.ucdDiskIOMIB.diskIOTable.diskIOEntry.diskIODevice.7"},
        {"UCD-DLMOD-MIB",
         {1, 3, 6, 1, 4, 1, 2021, 13, 14, 1, 0},
         ".ucdavis.ucdExperimental.ucdDlmodMIB.dlmodNextIndex.0"},
        {"UCD-IPFWACC-MIB",
         {1, 3, 6, 1, 4, 1, 2021, 13, 1, 1, 1, 2},
         ".ucdavis.ucdExperimental.ucdIpFwAccMIB.ipFwAccTable.ipFwAccEntry.ipFwAccSrcAddr"},
        {"LM-SENSORS-MIB",
         {1, 3, 6, 1, 4, 1, 2021, 13, 16, 2, 1, 3, 1},
         ".ucdavis.ucdExperimental.lmSensors.lmTempSensorsTable.lmTempSensorsEntry."
         "lmTempSensorsValue.1"},
    };
    if (!std::filesystem::exists(packaged_modules + "/NET-SNMP-MIB.txt")) {
        GTEST_SKIP() << "needs the modules of the package snmp";
    }
    const TempDir dir;
    const std::string file = dir.path("mib.txt");
    const EnvValue variable("WQMIBFILE", file);
    Words all{"-o", file};
    for (const auto& row : rows) {
        all.emplace_back(row.module);
        const CommandRun run(compile({"-o", file, row.module}));
        EXPECT_EQ(run.status, 0) << row.module << ": " << run.err;
        EXPECT_EQ(run.out + run.err, "") << row.module;
        EXPECT_EQ(WQmib_load_mib(), 0) << row.module;
        EXPECT_EQ(name_of(row.oid), enterprises + row.name) << row.module;
    }
    EXPECT_EQ(CommandRun(compile(all)).status, 0);
    EXPECT_EQ(WQmib_load_mib(), 0);
    for (const auto& row : rows) {
        EXPECT_EQ(name_of(row.oid), enterprises + row.name) << row.module;
    }
}

/* As some makers' modules have them. */
TEST(MibCompile, NamesWithUnderscoresAreTaken) {
    const TempDir dir;
    const std::string module = dir.write("SCORE-MIB.txt",
                                         "SCORE-MIB DEFINITIONS ::= BEGIN\n"
                                         "IMPORTS enterprises FROM RFC1155-SMI;\n"
                                         "under_score OBJECT IDENTIFIER ::= { enterprises 99996 }\n"
                                         "END\n");
    const CommandRun run(compile({module}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(definitions(run.out), "under_score enterprises 99996\n");
}

TEST(MibCompile, ErrorsAreToldAndNothingIsWritten) {
    const struct {
        const char* module;
        std::string complaint;
    } rows[] = {
        {"NOT-THERE", "failed to locate MIB module `NOT-THERE'\n"},
        {"BROKEN-MIB", "/BROKEN-MIB.txt:8: syntax error, unexpected OBJECT, expecting '}'\n"},
        {"LONELY-MIB", "/LONELY-MIB.txt:6: failed to locate MIB module `NOWHERE-MIB'\n"},
        {"LONELY-MIB", "/LONELY-MIB.txt:9: unknown object identifier label `stranger'\n"},
        {"/nowhere/X-MIB.txt", "/nowhere/X-MIB.txt: No such file or directory\n"},
    };
    const TempDir dir;
    for (const auto& row : rows) {
        const std::string file = dir.write("mib.txt", "as before");
        const CommandRun run(compile({"-o", file, "ACME-MIB", row.module}));
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(holds(run.err, row.complaint)) << run.err;
        EXPECT_TRUE(run.err.ends_with(
            "wqevents mib compile: nothing is written: the modules have errors\n"))
            << run.err;
        EXPECT_EQ(dir.read("mib.txt"), "as before");
        EXPECT_EQ(CommandRun(compile({row.module})).out, "");
    }
}

TEST(MibCompile, FileThatCannotBeWrittenIsAnError) {
    const TempDir dir;
    const CommandRun folder(compile({"-o", dir.path(), "ACME-MIB"}));
    EXPECT_EQ(folder.status, 1);
    EXPECT_TRUE(holds(folder.err, "cannot write " + dir.path() + ": Is a directory\n"));
    const CommandRun full(compile({"-o", "/dev/full", "ACME-MIB"}));
    EXPECT_EQ(full.status, 1);
    EXPECT_TRUE(holds(full.err, "cannot write /dev/full: No space left on device\n"));
}

TEST(MibCompile, WrongCommandLinesEndWithStatusTwo) {
    for (const Words& words : {Words{"mib"}, Words{"mib", "compile"}, Words{"mib", "bogus"},
                               Words{"mib", "compile", "--bogus", "X"}}) {
        const CommandRun run(words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        const char* name = words.size() > 1 && words[1] == "compile" ? "mib compile" : "mib";
        EXPECT_TRUE(run.err.starts_with("wqevents " + std::string(name) + ": ")) << run.err;
    }
}

TEST(MibCompile, HelpsWithExamples) {
    const CommandRun run({"mib", "compile", "--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(holds(run.out, "  wqevents mib compile -o /usr/WQ/conf/mib.txt NET-SNMP-AGENT"));
    EXPECT_TRUE(holds(run.out, "-I,--include DIR")) << run.out;
    EXPECT_TRUE(holds(run.out, "-o,--output FILE")) << run.out;
}

}  // namespace
}  // namespace wq::test
