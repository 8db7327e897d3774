#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/status.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

#include "support/env_value.h"
#include "support/locales.h"
#include "support/lock_holder.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"

namespace {

using wq::test::built_locale_folder;
using wq::test::EnvValue;
using wq::test::LockHolder;
using wq::test::run_in_sandbox;
using wq::test::TempDir;
using wq::test::two_byte_encodings;
using wq::test::TwoByteLocale;

const std::string registration = "/usr/WQ/conf/wqsuf";
const std::string collector_pid = "/usr/WQ/pids/kmcollectord.pid";
const std::string poller_pid = "/usr/WQ/pids/kmpollerd.pid";
const std::string gleaner_pid = "/usr/WQ/pids/snmpGleanPid";

void write_file(const std::string& path, std::string_view content = "") {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

void make_folder_of_pids() {
    std::filesystem::create_directories("/usr/WQ/pids");
}

int open_descriptors() {
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr) {
        ++count;
    }
    closedir(folder);
    return count;
}

struct LineRow {
    std::string content;
    int expected;
};

TEST(DaemonEnabled, ByTheRegistrationFile) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const LineRow rows[] = {
            {"0:kmpollerd:x\n", 1},
            {"0: kmpollerd:x\n", 1},
            {"0:    kmpollerd:\n", 1},
            {"1:kmpollerd:x\n", 0},
            {":kmpollerd:x\n", 0},
            {"0:kmpollerd\n", 0},
            {"0:kmpollerd \n", 0},
            {"0:kmpollerd", 0},
            {"0:kmpollerd :x\n", 0},
            {"0:kmpollerd:", 1},
            {"0:\tkmpollerd:x\n", 0},
            {"0:kmpollerdx:x\n", 0},
            {"0:kmpoller:x\n", 0},
            {"0:KMPOLLERD:x\n", 0},
            {"x:kmpollerd:x\n", 1},
            {"-:kmpollerd:x\n", 1},
            {" :kmpollerd:x\n", 1},
            {"#:kmpollerd:x\n", 1},
            {" 0:kmpollerd:x\n", 1},
            {"000:kmpollerd:x\n", 1},
            {"-0:kmpollerd:x\n", 1},
            {"0x1:kmpollerd:x\n", 1},
            {"-1:kmpollerd:x\n", 0},
            {" 1:kmpollerd:x\n", 0},
            {"1x:kmpollerd:x\n", 0},
            {"99999999999999999999:kmpollerd:x\n", 0},
            {"4294967296:kmpollerd:x\n", 0},
            {"0\n", 0},
            {"0:\n", 0},
            {"\n", 0},
            {"::::\n", 0},
            {"", 0},
            {"1:kmpollerd:x\n0:kmpollerd:x\n", 1},
            {"0:other:x\n\n0:kmpollerd:x", 1},
            {"0:other:x\n2:kmpollerd:x\n", 0},
            {"0:other:kmpollerd:\n", 0},
            {std::string("0:kmpoll\0erd:x\n", 15), 0},
            {std::string("\0\n0:kmpollerd:x\n", 16), 1},
        };
        for (const LineRow& row : rows) {
            write_file(registration, row.content);
            EXPECT_EQ(isDaemonEnabled_("kmpollerd"), row.expected) << row.content;
            EXPECT_EQ(isKmPollerdEnabled(), row.expected) << row.content;
            EXPECT_EQ(isKmCollectordEnabled(), 0) << row.content;
        }
    });
}

/* What follows the name decides: a ":", which a line that is cut off lacks. */
TEST(DaemonEnabled, NotByALineWithoutItsEnd) {
    REQUIRE_SANDBOX();
    run_in_sandbox({}, [] {
        for (const LineRow& row : {LineRow{"0:kmpollerd", 0},
                                   {"0:kmpollerd:", 1},
                                   {"0:kmpollerd:x", 1},
                                   {"0: kmpollerd", 0},
                                   {"1:kmpollerd:\n0:kmpollerd", 0},
                                   {"0::kmpollerd", 0},
                                   {"0::kmpollerd:", 1}}) {
            write_file(registration, row.content);
            EXPECT_EQ(row.expected, isKmPollerdEnabled()) << row.content;
        }
    });
}

/* A line of the buffer's length; and what is beyond it, which counts as a line of its own. */
TEST(DaemonEnabled, ByLinesOf1023Characters) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const std::string line = "0:kmpollerd:" + std::string(2000, 'x') + "\n0:snmpGlean:\n";
        write_file(registration, line);
        EXPECT_EQ(isKmPollerdEnabled(), 1);
        EXPECT_EQ(isSnmpGleanEnabled(), 1);
        write_file(registration, "1:" + std::string(1021, 'x') + "0:kmpollerd:x\n");
        EXPECT_EQ(isKmPollerdEnabled(), 1);
        write_file(registration, "1:" + std::string(1020, 'x') + "0:kmpollerd:x\n");
        EXPECT_EQ(isKmPollerdEnabled(), 0);
        write_file(registration, std::string(1'000'000, ':'));
        EXPECT_EQ(isKmPollerdEnabled(), 0);
    });
}

TEST(DaemonEnabled, EachByItsName) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        write_file(registration, "0:kmcollectord:\n");
        EXPECT_EQ(isKmCollectordEnabled(), 1);
        EXPECT_EQ(isKmPollerdEnabled(), 0);
        EXPECT_EQ(isSnmpGleanEnabled(), 0);
        write_file(registration, "0:snmpGlean:\n0:my daemon:\n");
        EXPECT_EQ(isKmCollectordEnabled(), 0);
        EXPECT_EQ(isSnmpGleanEnabled(), 1);
        EXPECT_EQ(isDaemonEnabled_("my daemon"), 1);
        EXPECT_EQ(isDaemonEnabled_("my"), 0);
        EXPECT_EQ(isDaemonEnabled_(""), 0);
        EXPECT_EQ(isDaemonEnabled_(nullptr), 0);
    });
}

/* The second byte of some of its characters is a colon's, or might be taken for one. */
TEST(DaemonEnabled, NamesAreCharacters) {
    REQUIRE_SANDBOX();
    if (built_locale_folder(two_byte_encodings[0]).empty()) {
        GTEST_SKIP() << "no locale can be built (Debian: package locales)";
    }
    run_in_sandbox([] {
        const TwoByteLocale locale;
        const std::string name = std::string(locale.encoding().bar) + locale.encoding().letter;
        write_file(registration, "0:" + name + ":\n");
        EXPECT_EQ(isDaemonEnabled_(name.c_str()), 1);
        EXPECT_EQ(isDaemonEnabled_(name.substr(0, 2).c_str()), 0);
    });
}

TEST(DaemonEnabled, NotByWhatIsNoReadableFile) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        EXPECT_EQ(isKmPollerdEnabled(), 0) << "no folder";
        std::filesystem::create_directories(registration);
        EXPECT_EQ(isKmPollerdEnabled(), 0) << "a folder";
        std::filesystem::remove(registration);
        ASSERT_EQ(mkfifo(registration.c_str(), 0600), 0);
        EXPECT_EQ(isKmPollerdEnabled(), 0) << "a pipe that nobody writes to";
    });
}

TEST(DaemonRunning, IfALockIsHeldAgainstReaders) {
    const TempDir folder;
    const std::string file = folder.path("pid");
    EXPECT_EQ(isDaemonRunning_(file.c_str()), 0) << "no file";
    folder.write("pid", "123\n");
    EXPECT_EQ(isDaemonRunning_(file.c_str()), 0) << "no lock";
    {
        const LockHolder daemon(file);
        EXPECT_EQ(isDaemonRunning_(file.c_str()), 1);
    }
    EXPECT_EQ(isDaemonRunning_(file.c_str()), 0) << "the daemon has ended";
    const LockHolder reader(file, F_RDLCK);
    EXPECT_EQ(isDaemonRunning_(file.c_str()), 0) << "a shared lock keeps no reader out";
    EXPECT_EQ(isDaemonRunning_(nullptr), 0);
    EXPECT_EQ(isDaemonRunning_(""), 0);
}

TEST(DaemonRunning, NotByWhatIsNoReadableFile) {
    const TempDir folder;
    EXPECT_EQ(isDaemonRunning_(folder.path().c_str()), 0) << "a folder";
    const std::string loop = folder.path("loop");
    std::filesystem::create_symlink(loop, loop);
    EXPECT_EQ(isDaemonRunning_(loop.c_str()), 0) << "no file after five tries";
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(isDaemonRunning_(pipe.c_str()), 0) << "a pipe that nobody writes to";
}

TEST(DaemonHappy, UnlessItIsWantedAndDoesNotRun) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        make_folder_of_pids();
        EXPECT_EQ(isKmPollerdHappy(), 1) << "no registration file";
        EXPECT_EQ(isKmCollectordHappy(), 1);
        EXPECT_EQ(isSnmpGleanHappy(), 1);

        write_file(registration, "0:kmpollerd:x\n0:mine:\n");
        EXPECT_EQ(isKmPollerdHappy(), 0) << "no pid file";
        EXPECT_EQ(isKmCollectordHappy(), 1) << "not enabled";
        write_file(poller_pid, "1\n");
        EXPECT_EQ(isKmPollerdHappy(), 0) << "a pid file without a lock";
        EXPECT_EQ(isDaemonHappy_("mine", poller_pid.c_str()), 0);
        const LockHolder poller(poller_pid);
        EXPECT_EQ(isKmPollerdHappy(), 1);
        EXPECT_EQ(isDaemonHappy_("mine", poller_pid.c_str()), 1);
        EXPECT_EQ(isDaemonHappy_("mine", nullptr), 0);
        EXPECT_EQ(isDaemonHappy_(nullptr, nullptr), 1) << "nothing is wanted";

        write_file(registration, "0:kmcollectord:x\n");
        EXPECT_EQ(isKmCollectordHappy(), 0) << "another daemon's lock";
        const LockHolder collector(collector_pid);
        EXPECT_EQ(isKmCollectordHappy(), 1);
    });
}

TEST(Gleaner, IsHappyUnlessWantedInstalledAndDown) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue none("WQSNMPGLNPIDFILE", nullptr);
        make_folder_of_pids();
        write_file(registration, "0:snmpGlean:x\n");
        EXPECT_EQ(isSnmpGleanHappy(), 1) << "not installed";
        write_file("/usr/WQ/bin/snmpGlean");
        EXPECT_EQ(isSnmpGleanHappy(), 0) << "not running";
        {
            const LockHolder gleaner(gleaner_pid);
            EXPECT_EQ(isSnmpGleanRunning(), 1);
            EXPECT_EQ(isSnmpGleanHappy(), 1);
        }
        EXPECT_EQ(isSnmpGleanHappy(), 0) << "a pid file is left";
        write_file(registration, "1:snmpGlean:x\n");
        EXPECT_EQ(isSnmpGleanHappy(), 1) << "not enabled";
    });
}

TEST(Gleaner, RunsIfAnyLockIsHeld) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue none("WQSNMPGLNPIDFILE", nullptr);
        make_folder_of_pids();
        EXPECT_EQ(isSnmpGleanRunning(), 0) << "no pid file";
        write_file(gleaner_pid, "1\n");
        EXPECT_EQ(isSnmpGleanRunning(), 0) << "no lock";
        {
            const LockHolder gleaner(gleaner_pid);
            EXPECT_EQ(isSnmpGleanRunning(), 1);
        }
        EXPECT_EQ(isSnmpGleanRunning(), 0);
        const LockHolder reader(gleaner_pid, F_RDLCK);
        EXPECT_EQ(isSnmpGleanRunning(), 1) << "a shared lock, too";
    });
}

TEST(Gleaner, PidFileIsTheVariablesAtTheFirstCall) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const TempDir folder;
        EnvValue variable("WQSNMPGLNPIDFILE", folder.path("mine"));
        const std::string path = getSnmpGleanPidFile();
        EXPECT_EQ(path, folder.path("mine"));
        variable.set("/elsewhere/with/quite/a/long/path");
        EXPECT_EQ(getSnmpGleanPidFile(), path) << "copied, not pointed at";
        variable.set(nullptr);
        EXPECT_EQ(getSnmpGleanPidFile(), path);
        const LockHolder gleaner(folder.path("mine"));
        EXPECT_EQ(isSnmpGleanRunning(), 1);
    });
}

TEST(Gleaner, PidFileIsTheDefaultAtTheFirstCall) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        EnvValue variable("WQSNMPGLNPIDFILE", nullptr);
        EXPECT_EQ(getSnmpGleanPidFile(), gleaner_pid);
        variable.set("/elsewhere");
        EXPECT_EQ(getSnmpGleanPidFile(), gleaner_pid);
    });
}

TEST(Gleaner, PidFileOfAnEmptyNameIsNoFile) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue variable("WQSNMPGLNPIDFILE", "");
        EXPECT_STREQ(getSnmpGleanPidFile(), "");
        EXPECT_EQ(isSnmpGleanRunning(), 0);
    });
}

TEST(Configurator, IsLookedForOnce) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        EXPECT_EQ(eventConfiguratorExists(), 0);
        write_file("/usr/WQ/bin/zeltrap");
        EXPECT_EQ(eventConfiguratorExists(), 0) << "asked before";
    });
    run_in_sandbox([] {
        write_file("/usr/WQ/bin/zeltrap");
        EXPECT_EQ(eventConfiguratorExists(), 1);
        std::filesystem::remove("/usr/WQ/bin/zeltrap");
        EXPECT_EQ(eventConfiguratorExists(), 1) << "asked before";
    });
}

TEST(Queries, LeaveNoDescriptorOpen) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        const EnvValue none("WQSNMPGLNPIDFILE", nullptr);
        write_file(registration, "0:kmpollerd:x\n0:kmcollectord:x\n0:snmpGlean:\n");
        write_file("/usr/WQ/bin/snmpGlean");
        write_file(collector_pid);
        write_file(gleaner_pid);
        make_folder_of_pids();
        const LockHolder poller(poller_pid);
        const int before = open_descriptors();
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(isKmPollerdHappy(), 1);
            EXPECT_EQ(isKmCollectordHappy(), 0);
            EXPECT_EQ(isSnmpGleanHappy(), 0);
        }
        EXPECT_EQ(open_descriptors(), before);
    });
}

/* Descriptors that have run out are the same as files that cannot be read. */
TEST(Queries, WithoutDescriptorsAnswerNo) {
    REQUIRE_SANDBOX();
    run_in_sandbox([] {
        make_folder_of_pids();
        write_file(registration, "0:kmpollerd:x\n");
        const LockHolder poller(poller_pid);
        rlimit limit{};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        const rlimit none{0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        const int enabled = isKmPollerdEnabled();
        const int running = isDaemonRunning_(poller_pid.c_str());
        const int gleaning = isSnmpGleanRunning();
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(enabled, 0);
        EXPECT_EQ(running, 0);
        EXPECT_EQ(gleaning, 0);
        EXPECT_EQ(isKmPollerdHappy(), 1) << "and then it works again";
    });
}

}  // namespace
