/*
 * The messages of the lock come from the catalogue under their numbers. The catalogue opens once a
 * process, so they have a program of their own.
 */
#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "support/env_value.h"
#include "support/lock_holder.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

class LockMessages : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        std::string source = "$set 1\n$quote \"\n";
        for (int number = 1; number <= 12; ++number) {
            source.append(std::to_string(number) + " \"marked " + std::to_string(number) +
                          " %s %d %s\"\n");
        }
        folder = new TempDir();
        folder->write("events.msg", source);
        const std::string command = "gencat '" + folder->path("events.cat") + "' '" +
                                    folder->path("events.msg") + "' 2>/dev/null";
        has_catalogue = std::system(command.c_str()) == 0;
    }
    static void TearDownTestSuite() { delete folder; }
    void SetUp() override {
        if (!has_catalogue) {
            GTEST_SKIP() << "gencat is not installed";
        }
    }
    void TearDown() override { setVortdConfFile(nullptr); }

    static std::string refusal() {
        const EnvValue path("NLSPATH", folder->path("events.cat"));
        char* message = nullptr;
        EXPECT_EQ(lockVortdConfFile(&message), nullptr);
        const std::string text = message != nullptr ? message : "(none)";
        free(message);
        return text;
    }

    static inline TempDir* folder = nullptr;
    static inline bool has_catalogue = false;
};

TEST_F(LockMessages, AFileThatDoesNotOpenIsNumberSeven) {
    const std::string path = folder->path("missing");
    setVortdConfFile(path.c_str());
    EXPECT_EQ(refusal(), "marked 7 " + path + " 2 No such file or directory");
}

TEST_F(LockMessages, AFileThatIsLockedIsNumberEight) {
    const std::string path = folder->write("conf", "#\n");
    setVortdConfFile(path.c_str());
    const LockHolder other(path, F_WRLCK);
    EXPECT_EQ(refusal(), "marked 8 " + path + " 11 Resource temporarily unavailable");
}

}  // namespace
}  // namespace wq::test
