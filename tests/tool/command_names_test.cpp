#include <sys/stat.h>

#include "listening_process.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

class Names : public testing::Test {
  protected:
    CommandRun run(const Words& words) const {
        Words all{"names", file_};
        all.insert(all.end(), words.begin(), words.end());
        return CommandRun(all);
    }
    void expect_failure(const CommandRun& run, int status, const std::string& part) const {
        EXPECT_EQ(run.status, status);
        EXPECT_NE(run.err.find(part), std::string::npos) << run.err;
    }

    const TempDir folder_;
    std::string file_ = folder_.write("oid_to_label",
                                      "\"ent\"=1.3.6.1.4.1\n"
                                      "${ent}.8072=\"net-snmp\"\n"
                                      "${ent}.8072.x(1..3)=\"item ${x}\"\n"
                                      "0x2b.4294967295=\"-odd\"\n"
                                      "not a line\n");
};

TEST_F(Names, CheckCountsThem) {
    CommandRun run = this->run({"check"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "ok: 5 names\n");
    EXPECT_EQ(run.err, "");
    folder_.write("oid_to_label", "1.3=\"a\"\n1.3=\"b\"\n");
    EXPECT_EQ(this->run({"check"}).out, "ok: 1 name\n");
    folder_.write("oid_to_label", "");
    EXPECT_EQ(this->run({"check"}).out, "ok: 0 names\n");
}

TEST_F(Names, LookupIsExact) {
    EXPECT_EQ(run({"lookup", "1.3.6.1.4.1.8072"}).out, "net-snmp\n");
    EXPECT_EQ(run({"lookup", ".1.3.6.1.4.1.8072.3"}).out, "item 3\n");
    EXPECT_EQ(run({"lookup", "43.4294967295"}).out, "-odd\n");
    const CommandRun some = run({"lookup", "1.3.6.1.4.1.8072", "1.3.6", "1.3.6.1.4.1.8072.1"});
    EXPECT_EQ(some.out, "net-snmp\n\nitem 1\n");
    expect_failure(some, 1, "wqevents names: not in " + file_ + ": '1.3.6'\n");
    EXPECT_EQ(run({"lookup", "1.3.6.1.4.1.8072.3.0"}).status, 1);
}

TEST_F(Names, FindGoesTheOtherWay) {
    EXPECT_EQ(run({"find", "net-snmp"}).out, "1.3.6.1.4.1.8072\n");
    EXPECT_EQ(run({"find", "item 2", "item 1"}).out, "1.3.6.1.4.1.8072.2\n1.3.6.1.4.1.8072.1\n");
    EXPECT_EQ(run({"find", "--", "-odd"}).out, "43.4294967295\n");
    expect_failure(run({"find", "part"}), 1, "not in " + file_ + ": 'part'");
}

TEST_F(Names, SaysWhatIsWrong) {
    for (const char* text : {"", "x", "1.x", "1..3", "1.", "1.4294967296", "1.-3", "..1"}) {
        expect_failure(run({"lookup", text}), 2,
                       std::string("identifier '").append(text).append("' must be dotted"));
    }
    expect_failure(run({"lookup"}), 2, "lookup needs at least one argument");
    expect_failure(run({"find"}), 2, "find needs at least one argument");
    expect_failure(run({"check", "1.3"}), 2, "check takes no further argument");
    expect_failure(run({"count"}), 2, "count");
    expect_failure(run({}), 2, "ACTION");
    file_ = folder_.path("missing");
    expect_failure(run({"check"}), 1, "cannot read " + file_ + ": No such file or directory");
    file_ = folder_.path();
    expect_failure(run({"check"}), 1, "cannot read " + file_ + ": Is a directory");
}

TEST_F(Names, AFifoIsRefused) {
    file_ = folder_.path("fifo");
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    expect_failure(run({"check"}), 1,
                   "cannot read " + file_ + ": it is a pipe, not a regular file");
}

TEST_F(Names, TheExampleNamesWhatItSays) {
    file_ = WQEVENTS_EXAMPLES "/oid_to_label";
    const struct {
        const char* oid;
        const char* name;
    } rows[] = {
        {"1.3.6.1.4.1.8072", "net-snmp"},
        {"1.3.6.1.4.1.8072.4.0.2", "agent shut down"},
        {"1.3.6.1.4.1.8072.3.2.10", "net-snmp agent on Linux"},
        {"1.3.6.1.4.1.8072.1", "net-snmp extensions"},
        {"1.3.6.1.4.1.2.6.3.1", "platform events"},
        {"1.3.6.1.2.1.2.2.1.2.24", "description of port 1/24"},
        {"1.3.6.1.2.1.2.2.1.2.25", "description of port 2/1"},
        {"1.3.6.1.2.1.2.2.1.2.49", "description of the uplink"},
        {"1.3.6.1.2.1.2.2.1.8.124", "oper status of trunk 24"},
        {"1.3.6.1.2.1.11.1.0", "SNMP messages received"},
        {"1.3.6.1.4.1.2021.10.1.3.3", "load average 3"},
        {"1.3.6.1", "internet"},
        {"1.3.6.1.6", "snmpV2"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(run({"lookup", row.oid}).out, std::string(row.name).append("\n")) << row.oid;
        EXPECT_EQ(run({"find", row.name}).out, std::string(row.oid).append("\n")) << row.name;
    }
}

TEST(NamesHelp, HasExamples) {
    const CommandRun run({"names", "--help"});
    EXPECT_EQ(run.status, 0);
    for (const char* part : {"FILE", "ACTION", "  wqevents names examples/oid_to_label find"}) {
        EXPECT_NE(run.out.find(part), std::string::npos) << run.out;
    }
}

}  // namespace
}  // namespace wq::test
