#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/configuration.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "EMS/events/nl_alertfile.h"
#include "EMS/events/nl_conflock.h"
#include "support/env_value.h"
#include "support/lock_holder.h"
#include "support/sockets.h"
#include "support/temp_dir.h"

namespace {

using namespace wq::test;

/* What `block` returns in a child process. */
int in_child(const std::function<int()>& block) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(block());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class LockConfiguration : public ::testing::Test {
  protected:
    void SetUp() override { setVortdConfFile(file.c_str()); }
    void TearDown() override {
        setVortdConfFile(nullptr);
        free_all_info();
    }

    /* Whether a fresh process gets the lock. */
    static bool free_for_others() {
        return in_child([] {
                   char* message = nullptr;
                   return lockVortdConfFile(&message) == nullptr ? 1 : 0;
               }) == 0;
    }

    static std::string refusal(const std::string& name) {
        return std::string(
                   "Another Event Configuration process is already running.\n"
                   "Could not lock configuration file \"")
            .append(name)
            .append("\".\nError 11: Resource temporarily unavailable.\n");
    }

    TempDir dir;
    std::string file = dir.write("vortd.conf", "#\n");
};

TEST_F(LockConfiguration, KeepsOthersOutUntilItIsClosed) {
    char* message = const_cast<char*>("untouched");
    std::FILE* const stream = lockVortdConfFile(&message);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(message, nullptr);
    EXPECT_FALSE(free_for_others());
    std::fclose(stream);
    EXPECT_TRUE(free_for_others());
}

TEST_F(LockConfiguration, RefusesWhileAnotherProcessHoldsIt) {
    for (const short type : {short{F_WRLCK}, short{F_RDLCK}}) {
        const LockHolder other(file, type);
        const long before = open_descriptors();
        char* message = nullptr;
        EXPECT_EQ(lockVortdConfFile(&message), nullptr);
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message, refusal(file));
        free(message);
        EXPECT_EQ(open_descriptors(), before);
    }
}

TEST_F(LockConfiguration, SaysWhyTheFileCannotBeOpened) {
    setVortdConfFile(dir.path("missing").c_str());
    char* message = nullptr;
    EXPECT_EQ(lockVortdConfFile(&message), nullptr);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message, std::string("Could not open configuration file \"")
                           .append(dir.path("missing"))
                           .append("\".\nError 2: No such file or directory.\n"));
    free(message);
    EXPECT_EQ(lockVortdConfFile(nullptr), nullptr);
}

TEST_F(LockConfiguration, MessagesAreWholeHoweverLongTheName) {
    const std::string name = dir.path(std::string(3000, 'x'));
    setVortdConfFile(name.c_str());
    char* message = nullptr;
    EXPECT_EQ(lockVortdConfFile(&message), nullptr);
    ASSERT_NE(message, nullptr);
    EXPECT_NE(std::string(message).find(name), std::string::npos);
    free(message);
}

TEST_F(LockConfiguration, OutlivesTheReadInBetween) {
    const EnvValue alerts("FERLOD_CONF", dir.path("ferlod.conf"));
    char* message = nullptr;
    std::FILE* const stream = lockVortdConfFile(&message);
    ASSERT_NE(stream, nullptr);
    char* error = nullptr;
    EXPECT_EQ(read_trapspec_file(&error), 0) << error;
    EXPECT_FALSE(free_for_others());
    ASSERT_EQ(write_trapspec_file(stream), 0);
    EXPECT_TRUE(free_for_others());
}

TEST_F(LockConfiguration, IsGrantedAgainInTheSameProcess) {
    char* message = nullptr;
    std::FILE* const first = lockVortdConfFile(&message);
    ASSERT_NE(first, nullptr);
    std::FILE* const second = lockVortdConfFile(&message);
    ASSERT_NE(second, nullptr) << message;
    std::fclose(second);
    EXPECT_FALSE(free_for_others()) << "the first one still holds it";
    std::fclose(first);
    EXPECT_TRUE(free_for_others());
}

TEST_F(LockConfiguration, IsNotInheritedByAChild) {
    char* message = nullptr;
    std::FILE* const stream = lockVortdConfFile(&message);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(in_child([&message] { return lockVortdConfFile(&message) == nullptr ? 0 : 1; }), 0);
    std::fclose(stream);
}

TEST_F(LockConfiguration, ADescriptorThatIsGoneHoldsNothing) {
    char* message = nullptr;
    std::FILE* const stream = lockVortdConfFile(&message);
    ASSERT_NE(stream, nullptr);
    std::fclose(stream); /* behind the library's back */
    const LockHolder other(file, F_WRLCK);
    const wq::Fd same_number(open(file.c_str(), O_RDWR));
    EXPECT_EQ(lockVortdConfFile(&message), nullptr);
    free(message);
}

TEST_F(LockConfiguration, AConflictBehindAnOwnSharedLockIsRefused) {
    const wq::Fd ours(open(file.c_str(), O_RDWR));
    ASSERT_EQ(wq::lock_file(ours.get(), wq::Lock::shared), wq::Locked::yes);
    const LockHolder other(file, F_RDLCK);
    char* message = nullptr;
    errno = 0;
    EXPECT_EQ(lockVortdConfFile(&message), nullptr);
    EXPECT_EQ(errno, EAGAIN);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message, refusal(file));
    free(message);
    wq::unlock_file(ours.get());
}

TEST_F(LockConfiguration, LosesNoUpdateOfTwentyEditors) {
    const EnvValue alerts("FERLOD_CONF", dir.path("ferlod.conf"));
    const uint32_t oid[] = {1, 3, 6};
    EMScategories[3] = doStrdup("Status Events");
    insert_enterprise(oid, 3, "acme");
    ASSERT_EQ(write_trapspec_file(std::fopen(file.c_str(), "r+")), 0);
    constexpr int editors = 20;
    std::vector<pid_t> children;
    for (int i = 0; i < editors; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            char* message = nullptr;
            std::FILE* stream = nullptr;
            while ((stream = lockVortdConfFile(&message)) == nullptr) {
                free(message);
                usleep(1000);
            }
            char* error = nullptr;
            enterprise_info* enterprise = nullptr;
            if (read_trapspec_file(&error) != 0 || name_to_enterprise("acme", &enterprise) != 0) {
                _exit(1);
            }
            insertMallocTrapRecord(enterprise,
                                   std::string("trap").append(std::to_string(i)).c_str(), 6, i, 0,
                                   nullptr, 3, 'A', doStrdup("f"), nullptr, nullptr, nullptr, 1, 1,
                                   0, nullptr, 0, nullptr, nullptr);
            _exit(write_trapspec_file(stream) == 0 ? 0 : 2);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }
    char* error = nullptr;
    ASSERT_EQ(read_trapspec_file(&error), 0) << error;
    for (int i = 0; i < editors; ++i) {
        EXPECT_NE(nameToExactTrap(std::string("trap").append(std::to_string(i)).c_str()), nullptr)
            << i;
    }
}

/* The waits of the alert file's lock, which tests do not sit through. */
std::vector<unsigned> pauses;
std::function<void()> on_pause;

class LockAlerts : public ::testing::Test {
  protected:
    void SetUp() override {
        pauses.clear();
        on_pause = nullptr;
        std::swap(wq::pause_between_attempts, replaced);
    }
    void TearDown() override { std::swap(wq::pause_between_attempts, replaced); }

    void (*replaced)(unsigned) = [](unsigned seconds) {
        pauses.push_back(seconds);
        if (on_pause) {
            on_pause();
        }
    };
    TempDir dir;
    std::string file = dir.write("ferlod.conf", "# old\n");
    EnvValue variable{"FERLOD_CONF", file};
    std::FILE* stream = nullptr;
    char* name = nullptr;
};

TEST_F(LockAlerts, NamesTheFileByTheEnvironment) {
    ASSERT_EQ(open_ferlo_lock_file("r", &stream, &name), 0);
    EXPECT_EQ(name, file);
    wq::close_alert_file(stream);
    variable.set(nullptr);
    const EnvValue directory("WQCONFDIR", dir.path());
    ASSERT_EQ(open_ferlo_lock_file("r", &stream, &name), 0);
    EXPECT_EQ(name, dir.path("ferlod.conf"));
    wq::close_alert_file(stream);
}

TEST_F(LockAlerts, FailsWhereTheFileCannotBeOpened) {
    variable.set(dir.path("missing").c_str());
    EXPECT_EQ(open_ferlo_lock_file("r", &stream, &name), -1);
    EXPECT_EQ(name, dir.path("missing"));
    variable.set(dir.path("no/folder").c_str());
    EXPECT_EQ(open_ferlo_lock_file("w", &stream, &name), -1);
    EXPECT_EQ(open_ferlo_lock_file(nullptr, &stream, &name), -1);
    EXPECT_EQ(open_ferlo_lock_file("r", nullptr, &name), -1);
    EXPECT_EQ(open_ferlo_lock_file("r", &stream, nullptr), -1);
}

TEST_F(LockAlerts, ReadersShareIt) {
    const LockHolder other(file, F_RDLCK);
    ASSERT_EQ(open_ferlo_lock_file("r", &stream, &name), 0);
    EXPECT_TRUE(pauses.empty());
    wq::close_alert_file(stream);
    EXPECT_EQ(open_ferlo_lock_file("w", &stream, &name), -2);
    std::fclose(stream);
}

TEST_F(LockAlerts, IsTriedSixTimes) {
    const LockHolder other(file, F_WRLCK);
    ASSERT_EQ(open_ferlo_lock_file("w", &stream, &name), -2);
    EXPECT_EQ(pauses, (std::vector<unsigned>{2, 3, 4, 5, 6}));
    ASSERT_NE(stream, nullptr) << "stays open";
    std::fclose(stream);
    EXPECT_EQ(dir.read("ferlod.conf"), "# old\n") << "not truncated without the lock";
}

TEST_F(LockAlerts, IsGivenOnceTheOtherLetsGo) {
    auto other = std::make_unique<LockHolder>(file);
    on_pause = [&other] {
        if (pauses.size() == 2) {
            other.reset();
        }
    };
    ASSERT_EQ(open_ferlo_lock_file("w", &stream, &name), 0);
    EXPECT_EQ(pauses.size(), 2U);
    EXPECT_EQ(dir.read("ferlod.conf"), "") << "truncated with the lock";
    wq::close_alert_file(stream);
}

TEST_F(LockAlerts, CreatesTheFileToWrite) {
    variable.set(dir.path("new").c_str());
    ASSERT_EQ(open_ferlo_lock_file("w", &stream, &name), 0);
    std::fputs("text", stream);
    wq::close_alert_file(stream);
    EXPECT_EQ(dir.read("new"), "text");
}

TEST_F(LockAlerts, ReallyWaits) {
    std::swap(wq::pause_between_attempts, replaced);
    const auto start = std::chrono::steady_clock::now();
    (*wq::pause_between_attempts)(1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    std::swap(wq::pause_between_attempts, replaced);
}

}  // namespace
