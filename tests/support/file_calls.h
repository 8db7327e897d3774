/*
 * The system calls that files are read and written by, as the library under test sees them: each is
 * logged for the file that is watched, and the one that is chosen fails, is cut short, or ends the
 * process. A program includes this once; its calls take the place of the C library's.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_FILE_CALLS_H
#define WQEVENTS_TESTS_SUPPORT_FILE_CALLS_H

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

namespace wq::test {

struct FileCalls {
    /* The file whose calls count. */
    dev_t device = 0;
    ino_t inode = 0;

    std::vector<std::string> log;
    int chosen = -1;              /* the call of that number, from 0, ... */
    std::string kind;             /* ... counted among those whose log begins so ... */
    int error = 0;                /* ... fails with this number, */
    int failures = 1;             /* so many times; -1: and all after it */
    bool dies = false;            /* ... or ends the process before it is done, */
    ssize_t at_most = -1;         /* ... or moves no more bytes than these */
    std::function<void()> before; /* runs before each call that counts */

    int seen = 0;
    bool busy = false;

    void watch(const std::string& path) {
        *this = {};
        struct stat status {};
        if (stat(path.c_str(), &status) == 0) {
            device = status.st_dev;
            inode = status.st_ino;
        }
    }
    void fail(const std::string& which, int number, int with, int times = 1) {
        kind = which;
        chosen = number;
        error = with;
        failures = times;
        seen = 0;
    }
};

inline FileCalls file_calls;

/* Whether the call is to go on; `size` (may be null) is cut where that is asked for. */
inline bool pass_call(int fd, const std::string& text, std::size_t* size) {
    FileCalls& calls = file_calls;
    struct stat status {};
    const int before = errno;
    if (calls.busy || calls.inode == 0 || fstat(fd, &status) != 0 || status.st_ino != calls.inode ||
        status.st_dev != calls.device) {
        errno = before;
        return true;
    }
    calls.busy = true;
    calls.log.push_back(text);
    if (calls.before) {
        calls.before();
    }
    calls.busy = false;
    errno = before;
    if (calls.chosen < 0 || !text.starts_with(calls.kind)) {
        return true;
    }
    const int number = calls.seen++;
    if (number < calls.chosen || (calls.failures >= 0 && number >= calls.chosen + calls.failures)) {
        return true;
    }
    if (calls.dies) {
        _exit(99);
    }
    if (calls.at_most >= 0 && size != nullptr) {
        *size = std::min(*size, static_cast<std::size_t>(calls.at_most));
        return true;
    }
    errno = calls.error;
    return calls.error == 0;
}

inline std::string call_text(const char* name, off_t offset, std::size_t size) {
    return std::string(name)
        .append(" ")
        .append(std::to_string(offset))
        .append(" ")
        .append(std::to_string(size));
}

}  // namespace wq::test

extern "C" {

ssize_t read(int fd, void* to, size_t size) {
    if (!wq::test::pass_call(fd, "read", &size)) {
        return -1;
    }
    return static_cast<ssize_t>(syscall(SYS_read, fd, to, size));
}

ssize_t pwrite(int fd, const void* from, size_t size, off_t offset) {
    if (!wq::test::pass_call(fd, wq::test::call_text("pwrite", offset, size), &size)) {
        return -1;
    }
    return static_cast<ssize_t>(syscall(SYS_pwrite64, fd, from, size, offset));
}

int ftruncate(int fd, off_t size) noexcept {
    if (!wq::test::pass_call(fd, "ftruncate " + std::to_string(size), nullptr)) {
        return -1;
    }
    return static_cast<int>(syscall(SYS_ftruncate, fd, size));
}

int fallocate(int fd, int mode, off_t offset, off_t size) {
    if (!wq::test::pass_call(fd,
                             wq::test::call_text(mode == 0 ? "fallocate" : "reserve", offset,
                                                 static_cast<size_t>(size)),
                             nullptr)) {
        return -1;
    }
    return static_cast<int>(syscall(SYS_fallocate, fd, mode, offset, size));
}

int fdatasync(int fd) {
    if (!wq::test::pass_call(fd, "fdatasync", nullptr)) {
        return -1;
    }
    return 0; /* the disk is none of the test's business */
}

} /* extern "C" */

#endif
