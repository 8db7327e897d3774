#include "EMS/events/nl_confreplace.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "EMS/events/internal/fd.h"

namespace wq {
namespace {

// Takes the place of the first line, which no file of ours may begin with; new texts have "#\n"
// there.
constexpr std::string_view damaged = "!\n";

// Asked before writing, since exceeding the limit raises a signal that ends the process.
bool within_size_limit(off_t size) {
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
           (limit.rlim_cur == RLIM_INFINITY || static_cast<rlim_t>(size) <= limit.rlim_cur);
}

// Truncating also tells whether the file can be truncated at all.
bool set_size(int fd, off_t size) {
    int result = 0;
    do {
        result = ftruncate(fd, size);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

// Reserves room for `size` bytes in a file of `old_size`, which stays as it is where that fails.
bool reserve(int fd, off_t old_size, off_t size) {
    if (size <= old_size) {
        return set_size(fd, old_size);
    }
    if (!within_size_limit(size)) {
        errno = EFBIG;
        return false;
    }
    int result = 0;
    do {
        result = fallocate(fd, 0, 0, size);
    } while (result == -1 && errno == EINTR);
    if (result == -1 && errno == EOPNOTSUPP) {  // the file system makes no promises
        return set_size(fd, size);
    }
    if (result == -1) {
        const ErrnoKeeper keeper;
        set_size(fd, old_size);
    }
    return result == 0;
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

// Each step is on the disk before the next: no crash shows the new beginning with old text behind.
bool write_contents(int fd, std::string_view text) {
    const auto size = static_cast<off_t>(text.size());
    constexpr auto behind = static_cast<off_t>(damaged.size());
    return write_at(fd, damaged, 0) && fdatasync(fd) == 0 &&
           write_at(fd, text.substr(damaged.size()), behind) && set_size(fd, size) &&
           fdatasync(fd) == 0 && write_at(fd, text.substr(0, damaged.size()), 0) &&
           fdatasync(fd) == 0;
}

void put_back(int fd, std::string_view contents, off_t size) {
    const ErrnoKeeper keeper;
    if (static_cast<off_t>(contents.size()) == size) {
        write_at(fd, contents, 0);
        set_size(fd, size);
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
