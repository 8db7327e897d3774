/*
 * Replacing a configuration file: whichever system call fails or is the process's last, the file is
 * the old text, the new one, or marked.
 */
#include "EMS/events/nl_confreplace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "EMS/events/internal/fd.h"
#include "EMS/events/nl_conflock.h"
#include "support/capture.h"
#include "support/env_value.h"
#include "support/file_calls.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

const std::string longer = "#\n# the longer text\n" + std::string(100'000, 'l') + "\n";
const std::string shorter = "#\n# the shorter text\n" + std::string(50'000, 's') + "\n";
/* As a person may have written it: the first line is no empty comment. */
const std::string by_hand = "# by hand\nCATEGORY 3 \"c\"\n";

struct Change {
    const char* what;
    std::string before;
    std::string after;
};
const std::vector<Change> changes = {
    {"longer", shorter, longer},  {"shorter", longer, shorter}, {"alike", longer, longer},
    {"by hand", by_hand, longer}, {"empty", "", shorter},       {"tiny", "#", shorter},
};

class Replace : public testing::Test {
  protected:
    ~Replace() override { file_calls = {}; }

    void start(const Change& change) {
        file_calls = {};
        dir.write("f", change.before);
        file_calls.watch(path);
    }
    Replaced replace(const std::string& text) const {
        const Fd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
        return replace_contents(fd.get(), text);
    }
    std::string text() const {
        const bool was_busy = std::exchange(file_calls.busy, true); /* the test's own reads pass */
        std::string now = dir.read("f");
        file_calls.busy = was_busy;
        return now;
    }
    /* Whether a reader takes the file for what it was, or for what it was to be, or for neither. */
    testing::AssertionResult nothing_is_hidden(const Change& change) const {
        const std::string now = text();
        const bool is_marked = now.starts_with("!\n") || now == "!"; /* an old text of one byte */
        if (now == change.before || now == change.after || is_marked) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure()
               << now.size() << " bytes that begin with " << now.substr(0, 30);
    }
    /* What the file is once a process has run `block` and ended, at the call that is chosen. */
    static int in_child(const std::function<void()>& block) {
        const pid_t child = fork();
        if (child == 0) {
            block();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    TempDir dir;
    std::string path = dir.path("f");
};

TEST_F(Replace, GoesStepByStepAndMarksFirst) {
    const auto steps = [](const Change& change) {
        const std::size_t rest = change.after.size() - 2;
        return std::vector<std::string>{
            call_text("reserve", 0, change.after.size()),
            call_text("pwrite", 0, 2),
            "fdatasync",
            call_text("pwrite", 2, rest),
            "ftruncate " + std::to_string(change.after.size()),
            "fdatasync",
            call_text("pwrite", 0, 2),
            "fdatasync",
        };
    };
    for (const Change& change : changes) {
        SCOPED_TRACE(change.what);
        start(change);
        EXPECT_EQ(replace(change.after), Replaced::done);
        EXPECT_EQ(file_calls.log, steps(change));
        EXPECT_TRUE(text() == change.after);
    }
}

TEST_F(Replace, MarksBeforeAnythingElseChanges) {
    const Change change{"longer", shorter, longer};
    start(change);
    std::vector<std::string> states;
    file_calls.before = [&] { states.push_back(text()); };
    ASSERT_EQ(replace(change.after), Replaced::done);
    const std::string marked_old = "!\n" + shorter.substr(2);
    const std::string marked_new = "!\n" + longer.substr(2);
    ASSERT_EQ(states.size(), 8U);
    EXPECT_TRUE(states[0] == shorter);
    EXPECT_TRUE(states[1] == shorter) << "reserving does not change the length";
    EXPECT_TRUE(states[2] == marked_old);
    EXPECT_TRUE(states[3] == marked_old);
    EXPECT_TRUE(states[4] == marked_new);
    EXPECT_TRUE(states[5] == marked_new);
    EXPECT_TRUE(states[6] == marked_new);
    EXPECT_TRUE(states[7] == longer);
}

TEST_F(Replace, PutsTheOldTextBackWhicheverCallFails) {
    for (const Change& change : changes) {
        for (int number = 0; number < 8; ++number) {
            SCOPED_TRACE(std::string(change.what) + ", call " + std::to_string(number));
            start(change);
            file_calls.fail("", number, EDQUOT);
            errno = 0;
            EXPECT_EQ(replace(change.after),
                      number == 0 ? Replaced::no_room : Replaced::not_written);
            EXPECT_EQ(errno, EDQUOT) << std::strerror(errno);
            EXPECT_TRUE(text() == change.before);
        }
    }
}

TEST_F(Replace, HidesNothingWhereEverythingFails) {
    for (const Change& change : changes) {
        for (int number = 0; number < 8; ++number) {
            SCOPED_TRACE(std::string(change.what) + ", from call " + std::to_string(number));
            start(change);
            file_calls.fail("", number, EIO, -1);
            EXPECT_NE(replace(change.after), Replaced::done);
            EXPECT_EQ(errno, EIO);
            EXPECT_TRUE(nothing_is_hidden(change));
        }
    }
}

TEST_F(Replace, HidesNothingWhereverItIsKilled) {
    for (const Change& change : changes) {
        for (int number = 0; number < 8; ++number) {
            SCOPED_TRACE(std::string(change.what) + ", at call " + std::to_string(number));
            start(change);
            file_calls.fail("", number, 0);
            file_calls.dies = true;
            EXPECT_EQ(in_child([&] { replace(change.after); }), 99);
            EXPECT_TRUE(nothing_is_hidden(change));
            if (number < 2) {
                EXPECT_TRUE(text() == change.before);
            }
        }
    }
}

/* A first failure, by which the old text is put back, and the end in the middle of that. */
TEST_F(Replace, HidesNothingWhereItIsKilledWhilePuttingBack) {
    for (const Change& change : changes) {
        for (int first = 1; first < 8; ++first) {
            for (int second = first + 1; second < 16; ++second) {
                SCOPED_TRACE(std::string(change.what) + ", " + std::to_string(first) + " and " +
                             std::to_string(second));
                start(change);
                const int status = in_child([&] {
                    file_calls.fail("", first, EIO);
                    file_calls.before = [&] {
                        const int number = static_cast<int>(file_calls.log.size()) - 1;
                        if (number == second) {
                            _exit(98);
                        }
                    };
                    replace(change.after);
                });
                EXPECT_TRUE(nothing_is_hidden(change));
                if (status != 98) {
                    EXPECT_TRUE(text() == change.before);
                    break;
                }
            }
        }
    }
}

TEST_F(Replace, GoesOnAfterSignals) {
    for (const Change& change : changes) {
        for (int number = 0; number < 8; ++number) {
            SCOPED_TRACE(std::string(change.what) + ", call " + std::to_string(number));
            start(change);
            file_calls.fail("", number, EINTR, 2);
            EXPECT_EQ(replace(change.after), Replaced::done);
            EXPECT_TRUE(text() == change.after);
        }
    }
}

TEST_F(Replace, CompletesShortWrites) {
    start(changes[0]);
    file_calls.fail("pwrite", 0, 0, -1);
    file_calls.at_most = 1000;
    EXPECT_EQ(replace(longer), Replaced::done);
    EXPECT_TRUE(text() == longer);
}

TEST_F(Replace, WithoutReservationLooksForRoomFirst) {
    for (const int error : {EOPNOTSUPP, ENOSYS}) {
        start(changes[0]);
        file_calls.fail("reserve", 0, error);
        EXPECT_EQ(replace(longer), Replaced::done);
        EXPECT_TRUE(text() == longer);
        EXPECT_EQ(file_calls.log[1], "ftruncate " + std::to_string(shorter.size()))
            << "the length stays";
        EXPECT_EQ(file_calls.log[2], call_text("pwrite", 0, 2));
    }
}

TEST_F(Replace, GivesBackWhatItCouldReserve) {
    start(changes[0]);
    file_calls.fail("reserve", 0, ENOSPC);
    EXPECT_EQ(replace(longer), Replaced::no_room);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(file_calls.log.back(), "ftruncate " + std::to_string(shorter.size()));
    EXPECT_TRUE(text() == shorter);
}

TEST_F(Replace, TellsWhyThereIsNoRoomWhateverGivingBackSays) {
    start(changes[0]);
    file_calls.fail("reserve", 0, ENOSPC);
    file_calls.before = [] {
        if (file_calls.log.back().starts_with("ftruncate")) {
            file_calls.fail("ftruncate", 0, EIO);
        }
    };
    ASSERT_EQ(replace(longer), Replaced::no_room);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_TRUE(text() == shorter);
}

TEST_F(Replace, FillsTheSizeLimitToTheLastByte) {
    const auto with_limit = [&](rlim_t limit) {
        dir.write("f", shorter);
        return in_child([&] {
            const rlimit bound{limit, limit};
            setrlimit(RLIMIT_FSIZE, &bound);
            const Replaced result = replace(longer);
            _exit(result == Replaced::done                        ? 10
                  : result == Replaced::no_room && errno == EFBIG ? 11
                                                                  : 12);
        });
    };
    EXPECT_EQ(with_limit(longer.size()), 10);
    EXPECT_TRUE(text() == longer);
    EXPECT_EQ(with_limit(longer.size() - 1), 11);
    EXPECT_TRUE(text() == shorter);
}

TEST_F(Replace, CannotPutBackWhatItCannotRead) {
    start(changes[0]);
    file_calls.fail("fdatasync", 1, EIO);
    const Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(replace_contents(fd.get(), longer), Replaced::not_written);
    EXPECT_TRUE(text().starts_with("!\n"));
}

TEST_F(Replace, LeavesAnAppendingDescriptorOne) {
    start(changes[0]);
    for (const int error : {0, EIO}) {
        file_calls.fail("fdatasync", error == 0 ? 100 : 1, error);
        const Fd fd(open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC));
        EXPECT_EQ(replace_contents(fd.get(), longer),
                  error == 0 ? Replaced::done : Replaced::not_written);
        EXPECT_NE(fcntl(fd.get(), F_GETFL) & O_APPEND, 0);
        EXPECT_TRUE(text() == longer);
    }
}

/* --- the two files that are written so --- */

class Writers : public Replace {
  protected:
    void SetUp() override {
        setVortdConfFile(path.c_str());
        const uint32_t oid[] = {1, 3, 6};
        insert_enterprise(oid, 3, "acme");
        std::swap(pause_between_attempts, no_pause);
    }
    void TearDown() override {
        std::swap(pause_between_attempts, no_pause);
        setVortdConfFile(nullptr);
        free_all_info();
    }

    void (*no_pause)(unsigned) = [](unsigned) {};
    EnvValue alerts{"FERLOD_CONF", path};
};

TEST_F(Writers, OfTrapsTellWhichCallFailed) {
    for (int number = 0; number < 8; ++number) {
        SCOPED_TRACE(number);
        start({"", by_hand, ""});
        std::FILE* const stream = std::fopen(path.c_str(), "r+");
        file_calls.fail("", number, EIO);
        int result = 0;
        int error = 0;
        const std::string said = captured_stderr([&] {
            result = write_trapspec_file(stream);
            error = errno;
        });
        EXPECT_EQ(result, -1);
        EXPECT_EQ(error, EIO);
        EXPECT_EQ(said, std::string(number == 0 ? "" : "Cannot write to vortdconf file\n") +
                            "Bad return code from truncate of vortdconf file\n");
        EXPECT_EQ(text(), by_hand);
        EXPECT_NE(fcntl(fileno(stream), F_GETFD), -1) << "stays open";
        std::fclose(stream);
    }
}

TEST_F(Writers, OfAlertsTellWhichCallFailed) {
    for (int number = 0; number < 8; ++number) {
        SCOPED_TRACE(number);
        start({"", by_hand, ""});
        file_calls.fail("", number, number == 0 ? ENOSPC : EIO);
        char* message = nullptr;
        EXPECT_EQ(write_ferlospec_file(&message), -1);
        EXPECT_EQ(message, "Could not lock ferlo format file \"" + path +
                               "\": " + std::strerror(number == 0 ? ENOSPC : EIO) + "\n");
        EXPECT_EQ(text(), by_hand);
    }
    file_calls = {};
    char* message = nullptr;
    EXPECT_EQ(write_ferlospec_file(&message), 0);
    EXPECT_TRUE(text().starts_with("#\n# Created by zeltrap at "));
}

/* The descriptor has a copy, so that closing it alone would not end the lock. */
TEST_F(Writers, OfTrapsGiveTheLockBackThemselves) {
    dir.write("f", by_hand);
    char* message = nullptr;
    std::FILE* const stream = lockVortdConfFile(&message);
    ASSERT_NE(stream, nullptr) << message;
    const Fd shared(dup(fileno(stream)));
    ASSERT_EQ(write_trapspec_file(stream), 0);
    const int result = in_child([] {
        char* refusal = nullptr;
        _exit(lockVortdConfFile(&refusal) != nullptr ? 0 : 1);
    });
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace wq::test
