/*
 * A child process that holds a record lock over a whole file, as a daemon does on its pid file, for
 * as long as the object lives. The file is made where there is none.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_LOCK_HOLDER_H
#define WQEVENTS_TESTS_SUPPORT_LOCK_HOLDER_H

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>

namespace wq::test {

class LockHolder {
  public:
    /* `kind`: F_WRLCK or F_RDLCK. */
    explicit LockHolder(const std::string& path, short kind = F_WRLCK) {
        std::array<int, 2> ready{};
        if (pipe2(ready.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == parent && lock(path, kind)) {
                static_cast<void>(!write(ready[1], "", 1));
                pause();
            }
            _exit(1);
        }
        close(ready[1]);
        char octet = 0;
        const bool holds = pid_ > 0 && read(ready[0], &octet, 1) == 1;
        close(ready[0]);
        if (!holds) {
            release();
            throw std::system_error(EAGAIN, std::generic_category(), path);
        }
    }
    ~LockHolder() { release(); }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

    pid_t pid() const { return pid_; }

    /* The child ends, and its lock with it. */
    void release() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }

  private:
    static bool lock(const std::string& path, short kind) {
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        struct flock wanted {};
        wanted.l_type = kind;
        wanted.l_whence = SEEK_SET;
        return fd >= 0 && fcntl(fd, F_SETLK, &wanted) == 0;
    }

    pid_t pid_ = -1;
};

}  // namespace wq::test

#endif
