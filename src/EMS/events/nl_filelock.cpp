// Locks that belong to one descriptor each, keep other processes out and never this one.
#include "EMS/events/nl_filelock.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <vector>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/lasting.h"

// Open file description locks: classic record locks are dropped when the process closes any
// descriptor of the file, as reading it between lock and write does. But they conflict within the
// process, too. So the descriptors of this process share the file out: each holds one byte far
// behind the end of any file, its own, and the rest of the file is held by those that do not
// conflict. Other processes ask for the whole file, so that each byte keeps them out.

namespace wq {
namespace {

// All bytes from `start` on.
constexpr off_t to_the_end = 0;

// A lock that this process took, and on which file.
struct Holder {
    int fd;
    dev_t device;
    ino_t inode;
    off_t own;  // the byte that is this holder's alone
    short type;
};

struct FileLocks {
    std::vector<Holder> holders;
    pid_t process = 0;
    bool watches_forks = false;
};

struct flock range_of(short type, off_t start, off_t length) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    return range;
}

bool set_lock(int fd, short type, off_t start, off_t length) {
    struct flock range = range_of(type, start, length);
    int result = 0;
    do {
        result = fcntl(fd, F_OFD_SETLK, &range);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

bool lock_whole(int fd, short type) {
    return set_lock(fd, type, 0, to_the_end);
}

// Whether any other descriptor, of whichever process, has a lock on the byte.
bool is_locked_elsewhere(int fd, off_t byte) {
    struct flock range = range_of(F_WRLCK, byte, 1);
    return fcntl(fd, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

bool refers_to(int fd, const Holder& holder) {
    struct stat status {};
    return fstat(fd, &status) == 0 && status.st_dev == holder.device &&
           status.st_ino == holder.inode;
}

// Whether the descriptor still has its lock. Its number may belong to another by now, if the
// program closed it, even to one of the same file.
bool still_holds(const Holder& holder, int fd) {
    if (!refers_to(holder.fd, holder)) {
        return false;
    }
    if (holder.type == F_WRLCK) {
        return is_locked_elsewhere(fd, holder.own) && !is_locked_elsewhere(holder.fd, holder.own);
    }
    return set_lock(holder.fd, F_RDLCK, holder.own, 1);
}

// A byte that no holder of any process has; two are alike once in 2^40.
off_t choose_byte() {
    constexpr off_t behind_all_files = off_t{1} << 61;
    constexpr std::uint64_t most = (std::uint64_t{1} << 40) - 1;
    static std::uint64_t turn = 0;
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
        number = (static_cast<std::uint64_t>(getpid()) << 16U) + ++turn;
    }
    return behind_all_files + static_cast<off_t>(number & most);
}

// Locks all bytes but those that the others have for themselves.
bool lock_around(int fd, short type, const std::vector<Holder>& others) {
    off_t start = 0;
    for (const Holder& other : others) {
        if (other.own > start && !set_lock(fd, type, start, other.own - start)) {
            return false;
        }
        start = other.own + 1;
    }
    return set_lock(fd, type, start, to_the_end);
}

void keep_own_byte_only(const Holder& holder) {
    set_lock(holder.fd, F_UNLCK, 0, holder.own);
    set_lock(holder.fd, F_UNLCK, holder.own + 1, to_the_end);
}

// This process has an exclusive lock, so that no other has any: the new holder needs a byte alone,
// and what nobody else here has.
bool join_exclusive(const Holder& added, const std::vector<Holder>& others) {
    for (const Holder& other : others) {
        set_lock(other.fd, F_UNLCK, added.own, 1);
    }
    return lock_around(added.fd, added.type, others) ||
           set_lock(added.fd, added.type, added.own, 1);
}

// The shared locks of this process shrink to their bytes, which keep other writers out, before the
// rest is locked exclusively.
bool rise_to_exclusive(const Holder& added, const std::vector<Holder>& others) {
    std::for_each(others.begin(), others.end(), keep_own_byte_only);
    if (lock_around(added.fd, F_WRLCK, others)) {
        return true;
    }
    const ErrnoKeeper keeper;
    set_lock(added.fd, F_UNLCK, 0, to_the_end);
    for (const Holder& other : others) {
        lock_whole(other.fd, F_RDLCK);
    }
    return false;
}

bool lock_beside(const Holder& added, const std::vector<Holder>& others) {
    const bool holds_exclusive = std::any_of(
        others.begin(), others.end(), [](const Holder& other) { return other.type == F_WRLCK; });
    if (holds_exclusive) {
        return join_exclusive(added, others);
    }
    return added.type == F_RDLCK || others.empty() ? lock_whole(added.fd, added.type)
                                                   : rise_to_exclusive(added, others);
}

// ---- forks

// A description of the same file with the same offset and flags, but without locks. Where there is
// none to be had, the child's descriptor leads nowhere.
int reopened(int fd) {
    std::array<char, 32> path{"/proc/self/fd/"};
    constexpr std::size_t prefix = 14;
    *std::to_chars(path.data() + prefix, path.data() + path.size() - 1, fd).ptr = '\0';
    const int flags = fcntl(fd, F_GETFL);
    const int copy = open(path.data(), flags | O_CLOEXEC);
    if (copy == -1) {
        return open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    lseek(copy, lseek(fd, 0, SEEK_CUR), SEEK_SET);
    return copy;
}

// A child shares the descriptions of its parent, and a lock lasts as long as one of them is open.
// Only what signal handlers may call is called here: the parent may have had other threads.
void give_up_in_child() {
    const ErrnoKeeper keeper;
    for (const Holder& holder : lasting<FileLocks>().holders) {
        if (refers_to(holder.fd, holder)) {
            const int flags = fcntl(holder.fd, F_GETFD);
            const int copy = reopened(holder.fd);
            if (copy == -1) {
                close(holder.fd);
                continue;
            }
            dup3(copy, holder.fd, (flags & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0);
            close(copy);
        }
    }
    lasting<FileLocks>().holders.clear();
}

FileLocks& file_locks() {
    auto& locks = lasting<FileLocks>();
    if (!locks.watches_forks) {
        locks.watches_forks = pthread_atfork(nullptr, nullptr, give_up_in_child) == 0;
    }
    if (locks.process != getpid()) {
        locks.holders.clear();
        locks.process = getpid();
    }
    return locks;
}

// The other descriptors of the same file that hold a lock, by their bytes; forgets those that lost
// theirs.
std::vector<Holder> others_of(FileLocks& locks, const Holder& added) {
    std::erase_if(locks.holders, [&](const Holder& holder) {
        return holder.fd == added.fd ||
               (refers_to(added.fd, holder) && !still_holds(holder, added.fd));
    });
    std::vector<Holder> others;
    std::copy_if(locks.holders.begin(), locks.holders.end(), std::back_inserter(others),
                 [&](const Holder& holder) { return refers_to(added.fd, holder); });
    std::sort(others.begin(), others.end(),
              [](const Holder& a, const Holder& b) { return a.own < b.own; });
    return others;
}

bool is_refusal(int error) {
    return error == EACCES || error == EAGAIN;
}

}  // namespace

Locked lock_file(int fd, Lock kind) {
    FileLocks& locks = file_locks();
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return Locked::failed;
    }
    const short type = kind == Lock::exclusive ? F_WRLCK : F_RDLCK;
    const Holder added{fd, status.st_dev, status.st_ino, choose_byte(), type};
    const std::vector<Holder> others = others_of(locks, added);
    locks.holders.reserve(locks.holders.size() + 1);  // nothing fails once the lock is held
    if (!lock_beside(added, others)) {
        return is_refusal(errno) ? Locked::held_elsewhere : Locked::failed;
    }
    locks.holders.push_back(added);
    return Locked::yes;
}

void unlock_file(int fd) {
    const ErrnoKeeper keeper;
    FileLocks& locks = file_locks();
    set_lock(fd, F_UNLCK, 0, to_the_end);
    std::erase_if(locks.holders, [fd](const Holder& holder) { return holder.fd == fd; });
}

}  // namespace wq
