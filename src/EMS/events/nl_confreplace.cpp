// Replacing a configuration file in place: the mark, the text, the first line.
#include "EMS/events/nl_confreplace.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/file_text.h"

namespace wq {
namespace {

// Asked before writing, since exceeding the limit raises a signal that ends the process.
bool within_size_limit(off_t size) {
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
           (limit.rlim_cur == RLIM_INFINITY || static_cast<rlim_t>(size) <= limit.rlim_cur);
}

template <class Call>
bool uninterrupted(Call call) {
    int result = 0;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

bool set_size(int fd, off_t size) {
    return uninterrupted([&] { return ftruncate(fd, size); });
}

bool sync_data(int fd) {
    return uninterrupted([&] { return fdatasync(fd); });
}

// All that can be said where the file system reserves nothing.
bool has_free_room(int fd, off_t more) {
    struct statvfs system {};
    if (more <= 0 || fstatvfs(fd, &system) != 0) {
        return true;
    }
    const auto blocks = (static_cast<std::uintmax_t>(more) + system.f_frsize - 1) / system.f_frsize;
    if (blocks > system.f_bavail) {
        errno = ENOSPC;
        return false;
    }
    return true;
}

// Reserves room for `size` bytes in a file of `old_size`, which stays as it is, its length
// included. Truncating to that length gives back what could be reserved of too much, and tells
// whether the file can be written at all if the file system reserves nothing.
bool reserve(int fd, off_t old_size, off_t size) {
    if (!within_size_limit(size)) {
        errno = EFBIG;
        return false;
    }
    // A file may have holes, so that a text that is no longer needs room, too.
    if (uninterrupted([&] { return fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, size); })) {
        return true;
    }
    const bool promises_nothing = errno == EOPNOTSUPP || errno == ENOSYS;
    if (promises_nothing) {
        return set_size(fd, old_size) && has_free_room(fd, size - old_size);
    }
    const ErrnoKeeper keeper;
    set_size(fd, old_size);
    return false;
}

bool write_at(int fd, std::string_view text, off_t offset) {
    while (!text.empty()) {
        const ssize_t written = pwrite(fd, text.data(), text.size(), offset);
        if (written <= 0) {
            if (written == -1 && errno == EINTR) {
                continue;
            }
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
        offset += written;
    }
    return true;
}

// Shorter than `size` where the file cannot be read.
std::string read_contents(int fd, off_t size) {
    std::string contents(static_cast<std::size_t>(size), '\0');
    std::size_t length = 0;
    while (length < contents.size()) {
        const ssize_t got = pread(fd, contents.data() + length, contents.size() - length,
                                  static_cast<off_t>(length));
        if (got == -1 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        length += static_cast<std::size_t>(got);
    }
    contents.resize(length);
    return contents;
}

// The mark, the text, and its first line last. Each step is on the disk before the next: no crash
// shows a valid first line with anything else than its own text after it.
bool write_contents(int fd, std::string_view text) {
    const std::string_view first = text.substr(0, unfinished_mark.size());
    const std::string_view rest = text.substr(first.size());
    return write_at(fd, unfinished_mark, 0) && sync_data(fd) &&
           write_at(fd, rest, static_cast<off_t>(first.size())) &&
           set_size(fd, static_cast<off_t>(text.size())) && sync_data(fd) &&
           write_at(fd, first, 0) && sync_data(fd);
}

// By the same steps, since the failure may have come after the last of them.
void put_back(int fd, std::string_view contents, off_t size) {
    const ErrnoKeeper keeper;
    if (static_cast<off_t>(contents.size()) == size) {
        write_contents(fd, contents);
    }
}

// An appending descriptor would write behind the old contents wherever it is told to.
class PlainOffsets {
  public:
    explicit PlainOffsets(int fd) : fd_(fd), flags_(fcntl(fd, F_GETFL)) {
        if (appends()) {
            fcntl(fd_, F_SETFL, flags_ & ~O_APPEND);
        }
    }
    ~PlainOffsets() {
        const ErrnoKeeper keeper;
        if (appends()) {
            fcntl(fd_, F_SETFL, flags_);
        }
    }
    PlainOffsets(const PlainOffsets&) = delete;
    PlainOffsets& operator=(const PlainOffsets&) = delete;

  private:
    [[nodiscard]] bool appends() const { return flags_ != -1 && (flags_ & O_APPEND) != 0; }

    int fd_;
    int flags_;
};

}  // namespace

Replaced replace_contents(int fd, std::string_view text) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return Replaced::no_room;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return Replaced::no_room;
    }
    const PlainOffsets offsets(fd);
    const std::string old = read_contents(fd, status.st_size);
    if (!reserve(fd, status.st_size, static_cast<off_t>(text.size()))) {
        return Replaced::no_room;
    }
    if (!write_contents(fd, text)) {
        put_back(fd, old, status.st_size);
        return Replaced::not_written;
    }
    return Replaced::done;
}

}  // namespace wq
