#include <filesystem>
#include <fstream>

#include "listening_process.h"
#include "support/env_value.h"
#include "support/lock_holder.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

void write_file(const std::string& path, const std::string& content = "") {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

const std::string collector_pid = "/usr/WQ/pids/kmcollectord.pid";
const std::string poller_pid = "/usr/WQ/pids/kmpollerd.pid";

TEST(Status, OfAMachineWithoutThePlatform) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue none("WQSNMPGLNPIDFILE", nullptr);
        const CommandRun run({"status"});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out,
                  "DAEMON        ENABLED  RUNNING  HAPPY  PID FILE\n"
                  "kmcollectord  no       no       yes    /usr/WQ/pids/kmcollectord.pid\n"
                  "kmpollerd     no       no       yes    /usr/WQ/pids/kmpollerd.pid\n"
                  "snmpGlean     no       no       yes    /usr/WQ/pids/snmpGleanPid\n"
                  "event configurator: not installed\n");
        EXPECT_EQ(CommandRun({"status", "--check"}).status, 0);
    });
}

TEST(Status, TellsEachDaemonsOwn) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const TempDir folder;
        const EnvValue variable("WQSNMPGLNPIDFILE", folder.path("gleaner pid"));
        write_file("/usr/WQ/conf/wqsuf", "0:kmcollectord:x\n0:kmpollerd:x\n0:snmpGlean:x\n");
        write_file("/usr/WQ/bin/snmpGlean");
        write_file("/usr/WQ/bin/zeltrap");
        write_file(collector_pid);
        const LockHolder poller(poller_pid);
        const LockHolder gleaner(folder.path("gleaner pid"));
        const CommandRun run({"status"});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out,
                  "DAEMON        ENABLED  RUNNING  HAPPY  PID FILE\n"
                  "kmcollectord  yes      no       no     /usr/WQ/pids/kmcollectord.pid\n"
                  "kmpollerd     yes      yes      yes    /usr/WQ/pids/kmpollerd.pid\n"
                  "snmpGlean     yes      yes      yes    " +
                      folder.path("gleaner pid") + "\nevent configurator: installed\n");
    });
}

TEST(Status, CheckFailsWhereADaemonIsDown) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue none("WQSNMPGLNPIDFILE", nullptr);
        write_file("/usr/WQ/conf/wqsuf", "0:kmcollectord:x\n0:kmpollerd:x\n0:snmpGlean:x\n");
        write_file("/usr/WQ/bin/snmpGlean");
        write_file(collector_pid);
        const CommandRun down({"status", "--check"});
        EXPECT_EQ(down.status, 1);
        EXPECT_EQ(down.out.find("DAEMON"), 0U) << "the table comes all the same";
        EXPECT_EQ(down.err,
                  "wqevents status: enabled but not running: kmcollectord, kmpollerd, snmpGlean\n");
        const LockHolder collector(collector_pid);
        const LockHolder poller(poller_pid);
        const LockHolder gleaner("/usr/WQ/pids/snmpGleanPid");
        const CommandRun up({"status", "--check"});
        EXPECT_EQ(up.status, 0);
        EXPECT_EQ(up.err, "");
    });
}

TEST(Status, AsJson) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue none("WQSNMPGLNPIDFILE", nullptr);
        write_file("/usr/WQ/conf/wqsuf", "0:kmpollerd:x\n0:snmpGlean:x\n");
        write_file("/usr/WQ/bin/zeltrap");
        std::filesystem::create_directories("/usr/WQ/pids");
        const LockHolder collector(collector_pid);
        const CommandRun run({"status", "--json"});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out,
                  "{\"daemons\":["
                  "{\"name\":\"kmcollectord\",\"enabled\":false,\"running\":true,\"happy\":true,"
                  "\"pid_file\":\"/usr/WQ/pids/kmcollectord.pid\"},"
                  "{\"name\":\"kmpollerd\",\"enabled\":true,\"running\":false,\"happy\":false,"
                  "\"pid_file\":\"/usr/WQ/pids/kmpollerd.pid\"},"
                  "{\"name\":\"snmpGlean\",\"enabled\":true,\"running\":false,\"happy\":true,"
                  "\"pid_file\":\"/usr/WQ/pids/snmpGleanPid\"}],"
                  "\"event_configurator\":true}\n");
        EXPECT_EQ(CommandRun({"status", "--json", "--check"}).status, 1);
    });
}

TEST(Status, JsonTakesAnyPath) {
    const EnvValue variable("WQSNMPGLNPIDFILE", "/none/\xFF\"x\n");
    const CommandRun run({"status", "--json"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Json::parse(run.out)["daemons"][2]["pid_file"], "/none/\xEF\xBF\xBD\"x\n");
}

TEST(Status, HelpsAndRefusesWhatItDoesNotKnow) {
    const CommandRun help({"status", "--help"});
    EXPECT_EQ(help.status, 0);
    for (const std::string part : {"--json", "--check", "  wqevents status --check || "}) {
        EXPECT_NE(help.out.find(part), std::string::npos) << help.out;
    }
    const CommandRun wrong({"status", "kmpollerd"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_NE(wrong.err.find("kmpollerd"), std::string::npos) << wrong.err;
}

TEST(Status, FailsWhereNobodyTakesTheOutput) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    const CommandRun run({"status"}, {.output = full});
    close(full);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("cannot write to the standard output"), std::string::npos) << run.err;
}

}  // namespace
}  // namespace wq::test
