// Reads files whole, and makes sure that nobody wrote to them meanwhile.
#include "EMS/events/internal/file_text.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

namespace wq {
namespace {

constexpr std::size_t block = 65536;
constexpr long nanoseconds_per_ms = 1'000'000;

void pause_ms(long milliseconds) {
    const timespec time{milliseconds / 1000, milliseconds % 1000 * nanoseconds_per_ms};
    nanosleep(&time, nullptr);
}

// The clock that the kernel takes the times of files from, or one that is behind it.
timespec file_clock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

bool is_before(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

bool is_same(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool is_same_state(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           is_same(a.st_mtim, b.st_mtim) && is_same(a.st_ctim, b.st_ctim);
}

// Some file systems keep whole seconds, or every other one.
bool has_fine_times(const struct stat& status) {
    return status.st_ctim.tv_nsec != 0 || status.st_mtim.tv_nsec != 0;
}

// Whether a write that began at `now` or later would give the file another time than it has. The
// change time counts: programs set the modification time as they like.
bool is_settled(const struct stat& status, timespec now) {
    if (!has_fine_times(status)) {
        now.tv_sec -= 2;
    }
    return is_before(status.st_ctim, now);
}

// Waits until a file that has just been written is one tick of the clock old. Times that are of no
// use, because the file server's clock is ahead, are not waited for.
void wait_until_settled(int fd) {
    constexpr int longest_tick_ms = 20;
    struct stat status {};
    for (int i = 0; i < longest_tick_ms && fstat(fd, &status) == 0; ++i) {
        const timespec now = file_clock();
        if (is_settled(status, now) || !has_fine_times(status) ||
            status.st_ctim.tv_sec > now.tv_sec + 1) {
            return;
        }
        pause_ms(1);
    }
}

// A write() sets the time when it begins. Looking for a hole waits for the one that is under way,
// since file systems lock the file for both.
void pass_writer(int fd) {
    const ErrnoKeeper keeper;
    lseek(fd, 0, SEEK_HOLE);
}

bool is_locked_by_writer(int fd) {
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Whether something can be read or the writers are gone; 0 when the patience is over, -1 when
// waiting fails. Signals do not prolong the wait.
int wait_for_writer(int fd, int patience_ms) {
    timespec start{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (int left = patience_ms;;) {
        pollfd wanted{fd, POLLIN, 0};
        const int ready = poll(&wanted, 1, left);
        if (ready >= 0 || errno != EINTR) {
            return ready;
        }
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const auto passed =
            (now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / nanoseconds_per_ms;
        left = static_cast<int>(std::max<long>(patience_ms - passed, 0));
    }
}

// As read(), but waits for the writer of a pipe: 0 is the end, -1 a failure.
ssize_t read_patiently(int fd, char* to, std::size_t size, int patience_ms) {
    for (;;) {
        const ssize_t got = ::read(fd, to, size);
        if (got >= 0 || (errno != EINTR && errno != EAGAIN)) {
            return got;
        }
        const int ready = errno == EAGAIN ? wait_for_writer(fd, patience_ms) : 1;
        if (ready <= 0) {
            return ready;
        }
    }
}

}  // namespace

Fd open_for_reading(const char* path) {
    if (path == nullptr) {
        errno = EINVAL;
        return Fd();
    }
    Fd fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (fd && fstat(fd.get(), &status) != 0) {
        return Fd();
    }
    if (fd && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return Fd();
    }
    return fd;
}

Stream open_stream(const char* path, std::string_view mode) {
    std::string private_mode(mode);
    private_mode.insert(std::min(mode.find(','), mode.size()), 1, 'e');
    return Stream(std::fopen(path, private_mode.c_str()));
}

void FileText::clear() {
    size_ = 0;
    holds_nul_ = false;
}

bool FileText::make_room(std::size_t wanted) {
    if (wanted <= room_) {
        return true;
    }
    void* grown = std::realloc(bytes_.get(), wanted);
    if (grown == nullptr) {
        return false;
    }
    static_cast<void>(bytes_.release());
    bytes_.reset(static_cast<char*>(grown));
    room_ = wanted;
    return true;
}

bool FileText::append_block(int fd, const ReadLimits& limits, std::size_t& got) {
    if (size_ == room_ && !make_room(std::max(2 * room_, block))) {
        return false;
    }
    char* const to = bytes_.get() + size_;
    const ssize_t result =
        read_patiently(fd, to, std::min(room_ - size_, block), limits.patience_ms);
    if (result < 0) {
        return false;
    }
    got = static_cast<std::size_t>(result);
    size_ += got;
    holds_nul_ = holds_nul_ || std::memchr(to, '\0', got) != nullptr;
    return true;
}

bool FileText::append_all(int fd, const ReadLimits& limits, std::size_t largest) {
    clear();
    std::size_t line = 0;  // where the last line begins
    for (std::size_t got = 1; got != 0 && size_ - line <= limits.longest_line;) {
        if (!append_block(fd, limits, got)) {
            return false;
        }
        if (size_ > largest) {
            errno = EFBIG;
            return false;
        }
        const char* const added = bytes_.get() + size_ - got;
        if (const void* newline = memrchr(added, '\n', got); newline != nullptr) {
            line = static_cast<std::size_t>(static_cast<const char*>(newline) - bytes_.get()) + 1;
        }
    }
    return true;
}

// A file of an unknown clock or of coarse times: what is read twice alike is taken for one state.
FileText::Attempt FileText::read_again(int fd, const ReadLimits& limits) const {
    FileText again;
    pass_writer(fd);
    if (lseek(fd, 0, SEEK_SET) != 0 || !again.append_all(fd, limits, largest_file)) {
        return Attempt::failed;
    }
    return again.view() == view() ? Attempt::whole : Attempt::changed;
}

FileText::Attempt FileText::read_once(int fd, const ReadLimits& limits) {
    wait_until_settled(fd);
    const timespec start = file_clock();
    pass_writer(fd);
    struct stat before {};
    struct stat after {};
    if (fstat(fd, &before) != 0 || lseek(fd, 0, SEEK_SET) != 0) {
        return Attempt::failed;
    }
    const auto size = static_cast<std::size_t>(std::max<off_t>(before.st_size, 0));
    if (size > largest_file) {
        errno = EFBIG;
        return Attempt::failed;
    }
    // One byte more shows the end of the file without another allocation.
    if (!make_room(size + 1) || !append_all(fd, limits, largest_file) || fstat(fd, &after) != 0) {
        return Attempt::failed;
    }
    if (!is_same_state(before, after)) {
        return Attempt::changed;
    }
    if (is_settled(after, start)) {
        return Attempt::whole;
    }
    // A file that somebody writes all the time, unless its times say nothing.
    if (has_fine_times(after) && after.st_ctim.tv_sec <= start.tv_sec + 1) {
        return Attempt::changed;
    }
    const Attempt again = read_again(fd, limits);
    return fstat(fd, &before) == 0 && is_same_state(before, after) ? again : Attempt::changed;
}

bool FileText::read_file(int fd, const ReadLimits& limits) {
    constexpr std::array<long, 6> pauses_ms{0, 10, 20, 40, 80, 160};
    Attempt attempt = Attempt::changed;
    for (const long pause : pauses_ms) {
        if (pause != 0) {
            pause_ms(pause);
        }
        attempt = read_once(fd, limits);
        if (attempt == Attempt::failed) {
            return false;
        }
        // A writer who is at work will be done soon; one who was killed holds no lock.
        if (attempt == Attempt::whole && !(is_unfinished() && is_locked_by_writer(fd))) {
            return true;
        }
    }
    errno = EBUSY;
    return attempt == Attempt::whole;
}

bool FileText::read(int fd, const ReadLimits& limits) {
    struct stat status {};
    bool done = fstat(fd, &status) == 0;
    if (done) {
        done = S_ISREG(status.st_mode) ? read_file(fd, limits)
                                       : append_all(fd, limits, largest_stream);
    }
    if (!done) {
        const ErrnoKeeper keeper;
        clear();
    }
    return done;
}

bool FileText::read(const char* path, const ReadLimits& limits) {
    const Fd fd = open_for_reading(path);
    if (!fd) {
        clear();
    }
    return fd && read(fd.get(), limits);
}

}  // namespace wq
