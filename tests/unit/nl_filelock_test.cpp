/*
 * What the locks of a process keep others from, whatever else the process opens and closes, and
 * what its children have of them: nothing.
 */
#include "EMS/events/nl_filelock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "EMS/events/internal/fd.h"
#include "EMS/events/nl_alertfile.h"
#include "EMS/events/nl_conflock.h"
#include "support/env_value.h"
#include "support/lock_holder.h"
#include "support/random.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

enum class Held { nothing, shared, exclusive };

std::ostream& operator<<(std::ostream& out, Held held) {
    return out << (held == Held::nothing  ? "nothing"
                   : held == Held::shared ? "a shared lock"
                                          : "an exclusive lock");
}

/* A child process that runs until it is told to end, or until the test does. */
class Child {
  public:
    /* `block` has run when the constructor returns. */
    explicit Child(const std::function<void()>& block) {
        std::array<int, 2> done{};
        EXPECT_EQ(pipe2(done.data(), O_CLOEXEC), 0);
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            block();
            static_cast<void>(!write(done[1], "", 1));
            if (getppid() == parent) {
                pause();
            }
            _exit(0);
        }
        close(done[1]);
        char octet = 0;
        EXPECT_EQ(read(done[0], &octet, 1), 1);
        close(done[0]);
    }
    ~Child() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

  private:
    pid_t pid_ = -1;
};

class FileLock : public testing::Test {
  protected:
    void SetUp() override {
        pauses = 0;
        std::swap(pause_between_attempts, counted);
    }
    void TearDown() override { std::swap(pause_between_attempts, counted); }

    std::FILE* open_locked(const char* mode, int expected = 0) const {
        std::FILE* stream = nullptr;
        char* name = nullptr;
        EXPECT_EQ(open_ferlo_lock_file(mode, &stream, &name), expected) << mode;
        EXPECT_EQ(pauses, expected == 0 ? 0 : 5) << mode;
        pauses = 0;
        return stream;
    }
    /* What another process finds on the file, or on its first bytes. A description of its own
       stands for one. */
    Held held(off_t bytes = 0) const {
        const Fd probe(open(path.c_str(), O_RDWR | O_CLOEXEC));
        const auto is_refused = [&](short type) {
            struct flock whole {};
            whole.l_type = type;
            whole.l_whence = SEEK_SET;
            whole.l_len = bytes;
            EXPECT_EQ(fcntl(probe.get(), F_OFD_GETLK, &whole), 0);
            return whole.l_type != F_UNLCK;
        };
        return is_refused(F_RDLCK)   ? Held::exclusive
               : is_refused(F_WRLCK) ? Held::shared
                                     : Held::nothing;
    }
    static Held kind_of(const std::string& mode) {
        return mode == "r" ? Held::shared : Held::exclusive;
    }

    static inline int pauses = 0;
    void (*counted)(unsigned) = [](unsigned) { ++pauses; };
    TempDir dir;
    std::string path = dir.write("ferlod.conf", "#\n");
    EnvValue variable{"FERLOD_CONF", path};
};

const std::array<const char*, 6> modes = {"r", "r+", "w", "w+", "a", "a+"};

TEST_F(FileLock, AnyTwoModesStandBesideEachOther) {
    for (const char* first : modes) {
        for (const char* second : modes) {
            for (const bool first_goes_first : {true, false}) {
                SCOPED_TRACE(std::string(first) + " then " + second +
                             (first_goes_first ? ", closed in order" : ", closed in reverse"));
                std::FILE* one = open_locked(first);
                EXPECT_EQ(held(), kind_of(first));
                std::FILE* other = open_locked(second);
                EXPECT_EQ(held(), std::max(kind_of(first), kind_of(second)));
                /* Closed without a word to the library. */
                std::fclose(first_goes_first ? one : other);
                EXPECT_EQ(held(), kind_of(first_goes_first ? second : first));
                std::fclose(first_goes_first ? other : one);
                EXPECT_EQ(held(), Held::nothing);
            }
        }
    }
}

TEST_F(FileLock, AnyNumberStandsBesideEachOther) {
    Random random;
    SCOPED_TRACE(random.name());
    std::vector<std::pair<std::FILE*, Held>> all;
    for (int step = 0; step < 2000; ++step) {
        if (all.size() < 5 && random.one_in(2)) {
            const char* mode = modes[random.between(0, modes.size() - 1)];
            all.emplace_back(open_locked(mode), kind_of(mode));
        } else if (!all.empty()) {
            const auto gone =
                all.begin() + random.between(0, static_cast<uint32_t>(all.size()) - 1);
            if (random.one_in(2)) {
                close_alert_file(gone->first);
            } else {
                std::fclose(gone->first);
            }
            all.erase(gone);
        }
        Held strongest = Held::nothing;
        for (const auto& [stream, kind] : all) {
            strongest = std::max(strongest, kind);
        }
        ASSERT_EQ(held(), strongest) << "after step " << step;
    }
    for (const auto& [stream, kind] : all) {
        std::fclose(stream);
    }
    EXPECT_EQ(held(), Held::nothing);
}

TEST_F(FileLock, OneOnADifferentFileIsNotAffected) {
    std::FILE* const first = open_locked("r");
    variable.set(dir.write("other", "#\n").c_str());
    std::FILE* const second = open_locked("w");
    EXPECT_EQ(held(), Held::shared);
    std::fclose(second);
    EXPECT_EQ(held(), Held::shared);
    std::fclose(first);
}

TEST_F(FileLock, AnotherReaderKeepsASharedLockFromRising) {
    std::FILE* const reader = open_locked("r");
    std::FILE* writer = nullptr;
    {
        const LockHolder other(path, F_RDLCK);
        writer = open_locked("r+", -2);
        std::fclose(writer);
    }
    EXPECT_EQ(held(), Held::shared) << "the refusal took nothing away";
    EXPECT_EQ(held(1), Held::shared) << "nor from programs that look at the first byte only";
    writer = open_locked("r+");
    EXPECT_EQ(held(), Held::exclusive);
    std::fclose(writer);
    std::fclose(reader);
}

TEST_F(FileLock, TwoProcessesWithSeveralDescriptorsEach) {
    std::FILE* const reader = open_locked("r");
    std::fclose(open_locked("w")); /* what is left is a byte */
    {
        const Child other([this] {
            open_locked("r");
            std::FILE* stream = nullptr;
            char* name = nullptr;
            if (open_ferlo_lock_file("w", &stream, &name) != -2) {
                _exit(1);
            }
        });
        open_locked("w", -2);
        std::fclose(open_locked("r"));
    }
    std::fclose(open_locked("w"));
    std::fclose(reader);
}

TEST_F(FileLock, ReadingAndWritingGoesOnBesideOnesOwn) {
    setVortdConfFile(dir.write("vortd.conf", "#\n").c_str());
    for (const char* mode : modes) {
        SCOPED_TRACE(mode);
        std::FILE* const stream = open_locked(mode);
        char* message = nullptr;
        EXPECT_EQ(read_trapspec_file(&message), 0);
        EXPECT_STREQ(message, "");
        EXPECT_EQ(held(), kind_of(mode));
        EXPECT_EQ(write_ferlospec_file(&message), 0) << message;
        EXPECT_EQ(held(), kind_of(mode));
        EXPECT_EQ(pauses, 0);
        std::fclose(stream);
        EXPECT_EQ(held(), Held::nothing);
    }
    free_all_info();
    setVortdConfFile(nullptr);
}

TEST_F(FileLock, ADescriptorThatLostItsLockHoldsNothing) {
    std::FILE* const first = open_locked("w");
    const int number = fileno(first);
    std::fclose(first);
    const Fd same_number(open(path.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(same_number.get(), number);
    EXPECT_EQ(held(), Held::nothing);
    std::FILE* const second = open_locked("r");
    EXPECT_EQ(held(), Held::shared);
    std::fclose(second);
    EXPECT_EQ(held(), Held::nothing) << "the number got no lock by it";
}

TEST_F(FileLock, AFileThatCannotBeLockedIsToldFromOneThatIs) {
    const Fd reader(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(lock_file(reader.get(), Lock::exclusive), Locked::failed);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(lock_file(-1, Lock::shared), Locked::failed);
    EXPECT_EQ(errno, EBADF);
    const LockHolder other(path, F_WRLCK);
    EXPECT_EQ(lock_file(reader.get(), Lock::shared), Locked::held_elsewhere);
    EXPECT_TRUE(errno == EAGAIN || errno == EACCES);
    EXPECT_EQ(lock_file(reader.get(), Lock::exclusive), Locked::failed);
}

/* --- children --- */

TEST_F(FileLock, AChildDoesNotProlongIt) {
    for (const char* mode : modes) {
        SCOPED_TRACE(mode);
        std::FILE* const stream = open_locked(mode);
        const Child child([] {});
        EXPECT_EQ(held(), kind_of(mode)) << "the parent has it still";
        std::fclose(stream);
        EXPECT_EQ(held(), Held::nothing);
    }
}

TEST_F(FileLock, AnEditorsEndEndsItWhateverChildrenItHas) {
    std::array<int, 2> alive{};
    ASSERT_EQ(pipe(alive.data()), 0);
    const pid_t editor = fork();
    if (editor == 0) {
        open_locked("r+");
        if (fork() == 0) {
            const pid_t self = getpid();
            static_cast<void>(!write(alive[1], &self, sizeof self));
            sleep(60); /* killed below */
        }
        _exit(0);
    }
    waitpid(editor, nullptr, 0);
    pid_t child = 0;
    ASSERT_EQ(read(alive[0], &child, sizeof child), static_cast<ssize_t>(sizeof child));
    EXPECT_EQ(held(), Held::nothing);
    kill(child, SIGKILL);
    close(alive[0]);
    close(alive[1]);
}

TEST_F(FileLock, AChildsStreamGoesOnWhereItWas) {
    dir.write("ferlod.conf", "#first\n#second\n");
    std::FILE* const stream = open_locked("r+");
    std::array<char, 64> line{};
    setvbuf(stream, nullptr, _IONBF, 0);
    ASSERT_NE(std::fgets(line.data(), line.size(), stream), nullptr);
    const int flags = fcntl(fileno(stream), F_GETFD);
    const Child child([&] {
        if (std::fgets(line.data(), line.size(), stream) == nullptr ||
            std::string(line.data()) != "#second\n" || fcntl(fileno(stream), F_GETFD) != flags) {
            _exit(1);
        }
        unlock_file(fileno(stream));
        std::fclose(stream);
    });
    EXPECT_EQ(held(), Held::exclusive) << "the child has nothing to give away";
    ASSERT_NE(std::fgets(line.data(), line.size(), stream), nullptr);
    EXPECT_STREQ(line.data(), "#second\n") << "nor does it move its parent's offset";
    std::fclose(stream);
}

TEST_F(FileLock, AChildCannotHaveItsParentsLock) {
    std::FILE* const stream = open_locked("r+");
    const Child child([this] {
        open_locked("r", -2);
        open_locked("w", -2);
    });
    std::fclose(stream);
}

TEST_F(FileLock, AProgramThatIsStartedDoesNotProlongIt) {
    for (const char* mode : modes) {
        SCOPED_TRACE(mode);
        std::FILE* const stream = open_locked(mode);
        pid_t pid = -1;
        const std::array<const char*, 3> words{"sleep", "60", nullptr};
        ASSERT_EQ(posix_spawnp(&pid, "sleep", nullptr, nullptr,
                               const_cast<char* const*>(words.data()), environ),
                  0);
        std::fclose(stream);
        EXPECT_EQ(held(), Held::nothing);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

/* --- names --- */

TEST_F(FileLock, NamesThatWereHandedOutStayReadable) {
    std::vector<char*> names;
    for (std::size_t length = 1; length < 250; length += 7) {
        variable.set(dir.write(std::string(length, 'f'), "#\n").c_str());
        std::FILE* stream = nullptr;
        char* name = nullptr;
        ASSERT_EQ(open_ferlo_lock_file("r", &stream, &name), 0);
        EXPECT_EQ(name, dir.path(std::string(length, 'f')));
        std::fclose(stream);
        names.push_back(name);
        setVortdConfFile(name);
        names.push_back(getVortdConfFile());
    }
    setVortdConfFile(getVortdConfFile() + 3);
    names.push_back(getVortdConfFile());
    for (const char* name : names) {
        EXPECT_GE(std::string(name).size(), 1U);
    }
    setVortdConfFile(nullptr);
}

}  // namespace
}  // namespace wq::test
