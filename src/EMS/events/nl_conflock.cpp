#include "EMS/events/nl_conflock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>
#include <vector>

#include <wqevents/configuration.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include "EMS/events/internal/file_text.h"
#include "EMS/events/nl_alertfile.h"

namespace wq {

void sleep_seconds(unsigned seconds) {
    timespec left{static_cast<time_t>(seconds), 0};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

void (*pause_between_attempts)(unsigned seconds) = sleep_seconds;

namespace {

// A lock that this process took, and on which file.
struct HeldLock {
    int fd;
    dev_t device;
    ino_t inode;
    pid_t process;
};

struct LockState {
    std::vector<HeldLock> held;
    std::string alert_file;
    Stream left_open;  // what the reader of alerts left open, locked, after an error in a body
};
LockState locks;

// Open file description locks: classic record locks are dropped when the process closes any
// descriptor of the file, as reading it between lock and write does.
bool request_lock(int fd, short type) {
    struct flock whole {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    int result = 0;
    do {
        result = fcntl(fd, F_OFD_SETLK, &whole);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

bool is_refusal(int error) {
    return error == EACCES || error == EAGAIN;
}

bool refers_to(int fd, const HeldLock& lock) {
    struct stat status {};
    return fstat(fd, &status) == 0 && status.st_dev == lock.device && status.st_ino == lock.inode;
}

void remember(int fd) {
    struct stat status {};
    std::erase_if(locks.held, [fd](const HeldLock& lock) { return lock.fd == fd; });
    if (fstat(fd, &status) == 0) {
        locks.held.push_back({fd, status.st_dev, status.st_ino, getpid()});
    }
}

// Whether it is this process itself that holds the lock which was in the way: the descriptor that
// took it must still be open on the file, and get the lock again although others may want it.
bool holds_already(int fd, short type) {
    const pid_t process = getpid();
    return std::any_of(locks.held.begin(), locks.held.end(), [&](const HeldLock& lock) {
        return lock.fd != fd && lock.process == process && refers_to(fd, lock) &&
               refers_to(lock.fd, lock) && request_lock(lock.fd, type);
    });
}

std::string format_message(const char* format, const std::string& name, int error) {
    const auto print = [&](char* to, std::size_t size) {
        // A translation of the format keeps its conversions.
        return std::snprintf(to, size, format, name.c_str(), error,  // NOLINT
                             std::strerror(error));
    };
    const int length = print(nullptr, 0);
    std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
    print(text.data(), text.size());
    return text;
}

// The caller gives the text to free().
char* malloced(const std::string& text) {
    return strdup(text.c_str());
}

std::string find_alert_file() {
    if (const char* name = std::getenv("FERLOD_CONF"); name != nullptr) {
        return name;
    }
    struct Free {
        void operator()(char* p) const { std::free(p); }
    };
    const std::unique_ptr<char, Free> path(_WQConcatPath(_WQconfDirName(nullptr), "ferlod.conf"));
    return path == nullptr ? std::string() : std::string(path.get());
}

bool writes(std::string_view mode) {
    return mode.find_first_of("wa+") != std::string_view::npos;
}

// Not truncated here: that waits for the lock.
Fd open_untruncated(const char* path, bool also_reads) {
    constexpr mode_t permissions = 0666;
    return Fd(open(path, (also_reads ? O_RDWR : O_WRONLY) | O_CREAT | O_CLOEXEC, permissions));
}

Stream open_for(const char* path, const char* mode) {
    const std::string_view wish(mode);
    const bool plus = wish.find('+') != std::string_view::npos;
    if (!wish.starts_with('w') && (plus || !wish.starts_with('r'))) {
        return Stream(std::fopen(path, mode));
    }
    Fd fd = wish.starts_with('w') ? open_untruncated(path, plus) : open_for_reading(path);
    Stream stream(fd ? fdopen(fd.get(), mode) : nullptr);
    if (stream != nullptr) {
        fd.release();
    }
    return stream;
}

Locked lock_patiently(int fd, Lock kind) {
    constexpr std::array<unsigned, 5> pauses{2, 3, 4, 5, 6};
    Locked result = lock_file(fd, kind);
    for (const unsigned seconds : pauses) {
        if (result != Locked::held_elsewhere) {
            break;
        }
        pause_between_attempts(seconds);
        result = lock_file(fd, kind);
    }
    return result;
}

}  // namespace

Locked lock_file(int fd, Lock kind) {
    const short type = kind == Lock::exclusive ? F_WRLCK : F_RDLCK;
    if (request_lock(fd, type)) {
        remember(fd);
        return Locked::yes;
    }
    const int error = errno;
    if (is_refusal(error) && holds_already(fd, type)) {
        return Locked::yes;
    }
    errno = error;
    return is_refusal(error) ? Locked::held_elsewhere : Locked::failed;
}

void unlock_file(int fd) {
    const ErrnoKeeper keeper;
    request_lock(fd, F_UNLCK);
    std::erase_if(locks.held, [fd](const HeldLock& lock) { return lock.fd == fd; });
}

void close_alert_file(std::FILE* stream) {
    unlock_file(fileno(stream));
    std::fclose(stream);
}

void leave_alert_file_open(std::FILE* stream) {
    locks.left_open.reset(stream);
}

AlertFile open_alert_file(const char* mode, bool truncate) {
    if (locks.left_open != nullptr) {
        close_alert_file(locks.left_open.release());
    }
    locks.alert_file = find_alert_file();
    AlertFile file{nullptr, locks.alert_file.data(), AlertFileState::not_opened};
    Stream stream = open_for(file.name, mode);
    const int fd = stream == nullptr ? -1 : fileno(stream.get());
    if (fd == -1) {
        return file;
    }
    const Lock kind = writes(mode) ? Lock::exclusive : Lock::shared;
    const Locked locked = lock_patiently(fd, kind);
    const int error = errno;
    if (truncate && mode[0] == 'w' && locked != Locked::held_elsewhere && ftruncate(fd, 0) != 0) {
        return file;
    }
    errno = error;
    // Another refusal than a holder's counts as success: the system cannot lock there.
    file.state =
        locked == Locked::held_elsewhere ? AlertFileState::held_elsewhere : AlertFileState::ready;
    file.stream = stream.release();
    return file;
}

}  // namespace wq

FILE* lockVortdConfFile(char** message) WQEVENTS_NOEXCEPT {
    if (message == nullptr) {
        return nullptr;
    }
    *message = nullptr;
    char* name = nullptr;
    wq::Stream stream(fopenConfFile("r+", &name));
    if (stream == nullptr) {
        *message = wq::malloced(wq::format_message(
            _eventsMsg(1, 7, "Could not open configuration file \"%s\".\nError %d: %s.\n"), name,
            errno));
        return nullptr;
    }
    if (wq::lock_file(fileno(stream.get()), wq::Lock::exclusive) != wq::Locked::yes) {
        *message = wq::malloced(wq::format_message(
            _eventsMsg(1, 8,
                       "Another Event Configuration process is already running.\n"
                       "Could not lock configuration file \"%s\".\nError %d: %s.\n"),
            name, errno));
        return nullptr;
    }
    return stream.release();
}

int open_ferlo_lock_file(const char* mode, FILE** stream, char** name) WQEVENTS_NOEXCEPT {
    if (mode == nullptr || stream == nullptr || name == nullptr) {
        return -1;
    }
    const wq::AlertFile file = wq::open_alert_file(mode, true);
    *name = file.name;
    *stream = file.stream;
    return static_cast<int>(file.state);
}
