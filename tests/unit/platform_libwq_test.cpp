#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqplatform.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/env_value.h"
#include "support/temp_dir.h"

namespace {

using wq::test::EnvValue;
using wq::test::TempDir;

void log_text(const char* text) {
    WQuLogS(84, 2, "events.cat", 1, 0, "%s", text);
}

/* Logging as the environment stands: what was logged, without the head of the line. */
class Logging : public ::testing::Test {
  protected:
    std::vector<std::string> lines(const std::string& name = "log") const {
        const std::string speaker = " [" + std::to_string(getpid()) + "] 84/2 ";
        std::istringstream text(dir_.read(name));
        std::vector<std::string> found;
        for (std::string line; std::getline(text, line);) {
            std::tm time{};
            const char* rest = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &time);
            const std::string message = rest != nullptr ? rest : "no time stamp: " + line;
            EXPECT_EQ(speaker, message.substr(0, speaker.size()));
            found.push_back(message.substr(speaker.size()));
        }
        return found;
    }
    using Lines = std::vector<std::string>;

    TempDir dir_;
    std::string file_ = dir_.path("log");
    EnvValue variable_{"WQULOG", nullptr};
};

TEST_F(Logging, IsSilentByDefault) {
    EXPECT_EQ("", wq::test::captured_stderr([] { log_text("text"); }));
    EXPECT_EQ("", wq::test::captured_stdout([] { log_text("text"); }));
    EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

TEST_F(Logging, EmptyNameIsSilent) {
    variable_.set("");
    EXPECT_EQ("", wq::test::captured_stderr([] { log_text("text"); }));
}

TEST_F(Logging, EachCallAppendsOneLine) {
    variable_.set(file_.c_str());
    WQuLogS(84, 2, "events.cat", 1, 0, "Values of vars[0] %d vars[1] %s .\n", 9, "alpha");
    WQuLogS(84, 2, nullptr, 1, 0, "plain");
    log_text("");
    log_text("\n");
    log_text("two\nlines\n\n");
    EXPECT_EQ((Lines{"Values of vars[0] 9 vars[1] alpha .", "plain", "", "", "two lines "}),
              lines());
    EXPECT_EQ('\n', dir_.read("log").back());
}

TEST_F(Logging, DashIsTheStandardErrorStream) {
    variable_.set("-");
    const std::string text = wq::test::captured_stderr([] { log_text("to stderr"); });
    EXPECT_NE(std::string::npos, text.find("84/2 to stderr\n"));
    EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(Logging, LongMessagesAreWhole) {
    variable_.set(file_.c_str());
    const std::string text(50000, 'x');
    log_text(text.c_str());
    EXPECT_EQ(Lines{text}, lines());
}

TEST_F(Logging, NullFormatLogsNothing) {
    variable_.set(file_.c_str());
    const char* none = nullptr;
    WQuLogS(84, 2, "events.cat", 1, 0, none);
    EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(Logging, ErrnoIsLeftAlone) {
    for (const std::string& name : {std::string(), file_, dir_.path("no/such")}) {
        variable_.set(name.c_str());
        errno = EDOM;
        log_text("text");
        EXPECT_EQ(EDOM, errno) << name;
    }
}

TEST_F(Logging, UnwritableFileIsPassedOver) {
    for (const std::string& name : {dir_.path("no/such"), dir_.path(), std::string("/dev/full")}) {
        variable_.set(name.c_str());
        EXPECT_EQ("", wq::test::captured_stderr([] { log_text("text"); })) << name;
    }
}

TEST_F(Logging, NoDescriptorIsLeft) {
    const auto open = [] {
        namespace fs = std::filesystem;
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = open();
    for (int i = 0; i < 10; ++i) {
        variable_.set(dir_.path("log" + std::to_string(i % 3)).c_str());
        log_text("text");
    }
    EXPECT_EQ(before, open());
    EXPECT_EQ(4U, lines("log0").size());
}

TEST_F(Logging, VariableIsObeyedFromCallToCall) {
    log_text("0");
    variable_.set(file_.c_str());
    log_text("1");
    variable_.set(dir_.path("other").c_str());
    log_text("2");
    variable_.set(nullptr);
    log_text("3");
    log_text("4");
    variable_.set(file_.c_str());
    log_text("5");
    variable_.set("");
    log_text("6");
    variable_.set(file_.c_str());
    log_text("7");
    EXPECT_EQ((Lines{"1", "5", "7"}), lines());
    EXPECT_EQ(Lines{"2"}, lines("other"));
}

/* The list of variables looks the same by address, length and last entry before and after. */
TEST_F(Logging, VariableIsSeenAmongOthersThatComeAndGo) {
    {
        EnvValue first("WQ_TEST_FIRST", "1");
        EnvValue last("WQ_TEST_LAST", "1");
        log_text("silent");
    }
    variable_.set(file_.c_str());
    EnvValue last("WQ_TEST_LAST", "1");
    log_text("seen");
    EXPECT_EQ(Lines{"seen"}, lines());
}

TEST_F(Logging, VariableOfTheCallerIsObeyedWhileItChanges) {
    std::array<char, 256> entry{};
    /* In place, as putenv() allows. */
    const auto write = [&entry](const std::string& text) {
        entry.fill('\0');
        text.copy(entry.data(), entry.size() - 1);
    };
    log_text("0");
    write("WQULOG=" + file_);
    ASSERT_EQ(0, putenv(entry.data()));
    log_text("1");
    write("WQULOG=" + file_ + ".two");
    log_text("2");
    write("WQULOG=");
    log_text("3");
    unsetenv("WQULOG");
    log_text("4");
    write("WQULOG=" + file_);
    log_text("5");
    putenv(entry.data());
    log_text("6");
    unsetenv("WQULOG");
    EXPECT_EQ((Lines{"1", "6"}), lines());
    EXPECT_EQ(Lines{"2"}, lines("log.two"));
}

TEST_F(Logging, NamesThatOnlyResembleTheVariableAreNotIt) {
    EnvValue longer("WQULOGS", file_);
    EnvValue shorter("WQULO", file_);
    log_text("text");
    EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(Logging, LargeEnvironmentsWork) {
    std::vector<std::unique_ptr<EnvValue>> others;
    for (int i = 0; i < 600; ++i) {
        others.push_back(std::make_unique<EnvValue>("WQ_TEST_" + std::to_string(i), "x"));
        if (i % 50 == 0) {
            log_text("silent");
        }
    }
    log_text("silent");
    variable_.set(file_.c_str());
    log_text("1");
    variable_.set(nullptr);
    others.clear();
    log_text("silent");
    variable_.set(file_.c_str());
    log_text("2");
    EXPECT_EQ((Lines{"1", "2"}), lines());
}

/* Runs `body` where it may do to the environment what it likes. */
void in_child(const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        body();
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

TEST_F(Logging, ClearedEnvironmentsWork) {
    in_child([this] {
        log_text("0");
        clearenv();
        log_text("1");
        setenv("WQULOG", file_.c_str(), 1);
        log_text("2");
        clearenv();
        log_text("3");
        setenv("WQ_TEST", "x", 1);
        log_text("4");
        clearenv();
        setenv("WQULOG", file_.c_str(), 1);
        log_text("5");
        EXPECT_EQ((Lines{"2", "5"}), lines());
    });
}

TEST_F(Logging, ExchangedEnvironmentsWork) {
    in_child([this] {
        std::string entry = "WQULOG=" + file_;
        std::string other = "WQ_TEST=1";
        std::array<char*, 2> without{other.data(), nullptr};
        std::array<char*, 1> empty{nullptr};
        std::array<char*, 3> with{other.data(), entry.data(), nullptr};
        environ = without.data();
        log_text("0");
        environ = with.data();
        log_text("1");
        environ = empty.data();
        log_text("2");
        log_text("3");
        environ = with.data();
        log_text("4");
        environ = nullptr;
        log_text("5");
        without[0] = entry.data();
        environ = without.data();
        log_text("6");
        EXPECT_EQ((Lines{"1", "4", "6"}), lines());
    });
}

TEST(ConfDirName, IsTheVariableOrTheDefault) {
    EnvValue variable("WQCONFDIR", nullptr);
    EXPECT_STREQ("/usr/WQ/conf", _WQconfDirName("C"));
    EXPECT_STREQ("/usr/WQ/conf", _WQconfDirName(nullptr));
    variable.set("/etc/wq");
    EXPECT_STREQ("/etc/wq", _WQconfDirName("C"));
}

TEST(ConcatPath, PutsOneSlashBetween) {
    const struct {
        const char *dir, *file, *path;
    } rows[] = {
        {"/usr/WQ/conf", "ferlod.conf", "/usr/WQ/conf/ferlod.conf"},
        {"/usr/WQ/conf/", "ferlod.conf", "/usr/WQ/conf/ferlod.conf"},
        {"/usr/WQ/conf", "/C/vortd.conf", "/usr/WQ/conf/C/vortd.conf"},
        {"conf//", "//file", "conf/file"},
        {"/", "file", "/file"},
        {"", "file", "/file"},
        {"dir", "", "dir/"},
    };
    for (const auto& row : rows) {
        char* path = _WQConcatPath(row.dir, row.file);
        EXPECT_STREQ(row.path, path);
        std::free(path);
    }
    EXPECT_EQ(nullptr, _WQConcatPath(nullptr, "file"));
    EXPECT_EQ(nullptr, _WQConcatPath("dir", nullptr));
}

TEST(ServerName, MakesThisHostAClient) {
    EnvValue variable("WQSERVER", nullptr);
    EXPECT_EQ(0, _KMisClient());
    EXPECT_EQ(nullptr, _WQDefaultServerName());
    variable.set("");
    EXPECT_EQ(0, _KMisClient());
    EXPECT_EQ(nullptr, _WQDefaultServerName());
    variable.set("server.example");
    EXPECT_EQ(1, _KMisClient());
    char* name = _WQDefaultServerName();
    EXPECT_STREQ("server.example", name);
    std::free(name);
}

TEST(ErrString, NamesTheStatusesOfVersionOne) {
    const struct {
        int status;
        const char* name;
    } rows[] = {
        {0, "noError"},
        {1, "tooBig"},
        {2, "noSuchName"},
        {3, "badValue"},
        {4, "readOnly"},
        {5, "genErr"},
        {6, "unknown error 6"},
        {-1, "unknown error -1"},
        {INT_MAX, "unknown error 2147483647"},
        {INT_MIN, "unknown error -2147483648"},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(row.name, errstring(row.status));
    }
}

/* The addresses by which others may reach this host. */
std::vector<in_addr_t> outside_addresses() {
    std::vector<in_addr_t> found;
    ifaddrs* list = nullptr;
    EXPECT_EQ(0, getifaddrs(&list));
    for (const ifaddrs* at = list; at != nullptr; at = at->ifa_next) {
        if (at->ifa_addr != nullptr && at->ifa_addr->sa_family == AF_INET &&
            (at->ifa_flags & IFF_UP) != 0 && (at->ifa_flags & IFF_LOOPBACK) == 0) {
            sockaddr_in address{};
            std::memcpy(&address, at->ifa_addr, sizeof address);
            found.push_back(address.sin_addr.s_addr);
        }
    }
    freeifaddrs(list);
    return found;
}

TEST(MyAddress, IsAnOutsideOneOrTheLoopback) {
    sockaddr_in address;
    std::memset(&address, 0xAA, sizeof address);
    ASSERT_EQ(0, get_myaddress(&address));
    EXPECT_EQ(AF_INET, address.sin_family);
    EXPECT_EQ(0, address.sin_port);
    const auto outside = outside_addresses();
    EXPECT_EQ(outside.empty() ? htonl(INADDR_LOOPBACK) : outside.front(), address.sin_addr.s_addr);
    EXPECT_EQ(-1, get_myaddress(nullptr));
}

}  // namespace
