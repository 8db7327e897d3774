// A pid file that is replaced while it is being looked at: open() is this program's own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <wqevents/status.h>

#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include "support/lock_holder.h"
#include "support/temp_dir.h"

namespace {

using wq::test::LockHolder;
using wq::test::TempDir;

std::string watched;
int tries = 0;
std::function<void()> before_try;

}  // namespace

extern "C" int open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    if (watched == path) {
        ++tries;
        before_try();
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

namespace {

// A daemon that is starting puts its own file, which it has locked, in the place of the old one.
int running_when_replaced_at(int number) {
    const TempDir dir;
    const std::string pid_file = dir.write("pid", "1\n");
    const std::string fresh = dir.write("fresh", "2\n");
    const LockHolder daemon(fresh);
    tries = 0;
    before_try = [&] {
        if (tries == number) {
            std::filesystem::rename(fresh, pid_file);
        }
    };
    watched = pid_file;
    const int running = isDaemonRunning_(pid_file.c_str());
    watched.clear();
    return running;
}

TEST(PidFile, IsTheOneOfTheFifthTry) {
    for (const int number : {1, 2, 3, 4, 5}) {
        EXPECT_EQ(1, running_when_replaced_at(number)) << number;
        EXPECT_EQ(5, tries);
    }
    EXPECT_EQ(0, running_when_replaced_at(6));
}

TEST(PidFile, ThatIsMissingIsTriedOnce) {
    const TempDir dir;
    before_try = [] {};
    tries = 0;
    watched = dir.path("pid");
    EXPECT_EQ(0, isDaemonRunning_(watched.c_str()));
    watched.clear();
    EXPECT_EQ(1, tries);
}

}  // namespace
