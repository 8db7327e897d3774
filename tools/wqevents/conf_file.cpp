// The trap configuration as a file: locked, read whole, kept beside and replaced.
#include "conf_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>

#include <wqevents/configuration.h>

#include "EMS/events/nl_confreplace.h"
#include "command.h"
#include "file_descriptor.h"
#include "input_file.h"
#include "shown_text.h"

namespace wq::command {
namespace {

std::string taken_text(char* text) {
    std::string message = text == nullptr ? "" : text;
    std::free(text);
    if (message.ends_with('\n')) {
        message.pop_back();
    }
    return message;
}

// Whether another's lock was in the way, which may go.
bool is_worth_waiting() {
    return access(getVortdConfFile(), R_OK | W_OK) == 0;
}

Failure unreadable(const std::string& name, int error) {
    return system_failure("Could not read trap format file \"" + name + "\"", error);
}

std::string with_hint(std::string message, const std::string& name) {
    if (name == getVortdConfFile() && access(name.c_str(), F_OK) != 0 && errno == ENOENT) {
        message += "\n'wqevents conf init' makes a first one.";
    }
    return message;
}

std::string all_bytes(int fd, const std::string& name) {
    constexpr std::size_t piece = 65536;
    std::string bytes;
    for (std::size_t length = 0;;) {
        bytes.resize(length + std::max(piece, length));
        const ssize_t got = read(fd, bytes.data() + length, bytes.size() - length);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw unreadable(name, errno);
        }
        length += static_cast<std::size_t>(got);
        if (got == 0) {
            bytes.resize(length);
            return bytes;
        }
    }
}

std::string bytes_from_start(int fd, const std::string& name) {
    if (lseek(fd, 0, SEEK_SET) != 0) {
        throw unreadable(name, errno);
    }
    return all_bytes(fd, name);
}

FileDescriptor open_for_reading(const std::string& name) {
    refuse_special_file(name);
    FileDescriptor fd(open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0) {
        const int error = errno;
        const Failure failure =
            system_failure("Could not open trap format file \"" + name + "\"", error);
        throw Failure(with_hint(failure.what(), name));
    }
    return fd;
}

// Whether a process has the lock that editors take. Where files cannot be locked none has.
bool is_locked(int fd) {
    struct flock wanted {};
    wanted.l_type = F_RDLCK;
    wanted.l_whence = SEEK_SET;
    return fcntl(fd, F_OFD_GETLK, &wanted) == 0 && wanted.l_type != F_UNLCK;
}

// Two reads that agree have seen one state, and that state is whole unless it is marked.
std::optional<std::string> one_state(int fd, const std::string& name) {
    std::string bytes = bytes_from_start(fd, name);
    if (bytes_from_start(fd, name) != bytes) {
        return std::nullopt;
    }
    return bytes;
}

void write_all(int fd, std::string_view bytes, const std::string& name) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            throw system_failure("cannot write \"" + name + "\"", errno);
        }
        bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
}

std::string folder_of(const std::string& name) {
    const std::filesystem::path folder = std::filesystem::path(name).parent_path();
    return folder.empty() ? "." : folder.string();
}

// A name in a folder is on the disk once the folder is.
void sync_folder(const std::string& name) {
    const FileDescriptor folder(open(folder_of(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) {
        fsync(folder.get());
    }
}

// A file that goes away again unless it is given a name for good.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& name)
        : name_(name + ".XXXXXX"), fd_(mkostemp(name_.data(), O_CLOEXEC)) {
        if (fd_.get() < 0) {
            throw system_failure("cannot make a file beside \"" + name + "\"", errno);
        }
    }
    ~TemporaryFile() {
        if (!name_.empty()) {
            unlink(name_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void fill(std::string_view bytes) const {
        // A limit on the size of files is an error of the write, not the end.
        std::signal(SIGXFSZ, SIG_IGN);
        write_all(fd_.get(), bytes, name_);
        if (fsync(fd_.get()) != 0) {
            throw system_failure("cannot write \"" + name_ + "\"", errno);
        }
    }
    // As the file that `like` is open on; the owner only where that is allowed.
    void take_permissions_of(int like) const {
        struct stat status {};
        if (fstat(like, &status) != 0 || fchmod(fd_.get(), status.st_mode & 07777U) != 0) {
            throw system_failure("cannot give \"" + name_ + "\" its permissions", errno);
        }
        if (fchown(fd_.get(), status.st_uid, status.st_gid) == 0) {
            fchmod(fd_.get(), status.st_mode & 07777U);  // changing the owner clears some
        }
    }
    void take_permissions_of_new_files() const {
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(fd_.get(), 0666 & ~mask);
    }
    // False where there is a file of that name and `exclusive` is set.
    bool rename_to(const std::string& name, bool exclusive) {
        // A file system that cannot refuse by itself can refuse a second link.
        int result =
            exclusive ? renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE)
                      : std::rename(name_.c_str(), name.c_str());
        if (exclusive && result != 0 && errno == EINVAL) {
            result = link(name_.c_str(), name.c_str()) == 0 ? unlink(name_.c_str()) : -1;
        }
        if (result == 0) {
            name_.clear();
            sync_folder(name);
        }
        return result == 0;
    }

  private:
    std::string name_;
    FileDescriptor fd_;
};

}  // namespace

LockedFile lock_configuration(double patience) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds pause(20);
    const auto end = Clock::now() + std::chrono::duration<double>(patience);
    while (true) {
        char* message = nullptr;
        LockedFile file(lockVortdConfFile(&message));
        const std::string reason = taken_text(message);
        if (file != nullptr) {
            return file;
        }
        if (!is_worth_waiting() || Clock::now() >= end) {
            throw Failure(with_hint(reason, getVortdConfFile()));
        }
        std::this_thread::sleep_for(pause);
    }
}

std::string bytes_of(const LockedFile& file) {
    return bytes_from_start(fileno(file.get()), getVortdConfFile());
}

std::string read_configuration_bytes(const std::string& name) {
    constexpr int attempts = 20;
    constexpr std::chrono::milliseconds pause(50);
    const FileDescriptor fd = open_for_reading(name);
    std::optional<std::string> bytes = one_state(fd.get(), name);
    for (int i = 1; i < attempts; ++i) {
        if (bytes && !(is_unfinished(*bytes) && is_locked(fd.get()))) {
            break;
        }
        std::this_thread::sleep_for(pause);
        bytes = one_state(fd.get(), name);
    }
    if (!bytes) {
        throw Failure("Could not read trap format file \"" + shown(name) +
                      "\": it changes all the time");
    }
    return *bytes;
}

bool is_unfinished(std::string_view bytes) {
    return bytes.starts_with(unfinished_mark);
}

void put_beside(const std::string& copy, int fd, std::string_view bytes) {
    TemporaryFile file(copy);
    file.take_permissions_of(fd);
    file.fill(bytes);
    if (!file.rename_to(copy, false)) {
        throw system_failure("cannot make \"" + copy + "\"", errno);
    }
}

void replace_bytes(const LockedFile& file, std::string_view bytes) {
    const std::string name = getVortdConfFile();
    const Replaced replaced = replace_contents(fileno(file.get()), bytes);
    const int error = errno;
    if (replaced == Replaced::no_room) {
        throw system_failure(name + " cannot be written and stays as it is", error);
    }
    if (replaced != Replaced::done) {
        throw Failure(system_failure(name + " could not be written", error).what() +
                      std::string(is_unfinished(bytes_of(file))
                                      ? "\nSee 'wqevents conf repair --help'."
                                      : "\nIt has its old contents."));
    }
}

void create_file(const std::string& name, std::string_view bytes) {
    if (access(name.c_str(), F_OK) == 0) {
        throw Failure("there is a file \"" + shown(name) + "\" already");
    }
    TemporaryFile file(name);
    file.take_permissions_of_new_files();
    file.fill(bytes);
    if (!file.rename_to(name, true)) {
        throw errno == EEXIST ? Failure("there is a file \"" + shown(name) + "\" already")
                              : system_failure("cannot make \"" + name + "\"", errno);
    }
}

}  // namespace wq::command
