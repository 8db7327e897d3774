// Reads files piece by piece, however large they are and whatever they turn out to be.
#include "input_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "command.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr std::size_t piece_size = 65536;

Failure unreadable(const std::string& name) {
    return system_failure("cannot read " + name, errno);
}

const char* kind_of(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFIFO:
            return "a pipe";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

void require_regular(const std::string& name, const struct stat& status) {
    if (S_ISREG(status.st_mode)) {
        return;
    }
    if (S_ISDIR(status.st_mode)) {
        throw system_failure("cannot read " + name, EISDIR);
    }
    throw Failure("cannot read " + shown(name) + ": it is " + kind_of(status.st_mode) +
                  ", not a regular file");
}

// Nothing that turns up in the place of a regular file meanwhile holds the command up.
FileDescriptor open_regular(const std::string& name) {
    refuse_special_file(name);
    FileDescriptor fd(open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (fd.get() < 0 || fstat(fd.get(), &status) != 0) {
        throw unreadable(name);
    }
    require_regular(name, status);
    return fd;
}

FileDescriptor open_input(const std::string& name) {
    if (name != "-") {
        return open_regular(name);
    }
    FileDescriptor fd(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (fd.get() < 0) {
        throw unreadable(name);
    }
    return fd;
}

// Whoever shares the standard input may have set it so that a read does not wait.
void wait_for_input(int fd) {
    pollfd input{fd, POLLIN, 0};
    poll(&input, 1, -1);
}

// What the stream of an Input calls. Errors go to whoever reads the stream.
ssize_t read_for_stream(void* cookie, char* room, std::size_t size) {
    try {
        return static_cast<ssize_t>(static_cast<Input*>(cookie)->read({room, size}).size());
    } catch (const Failure&) {
        return -1;
    }
}

}  // namespace

void CloseFile::operator()(std::FILE* file) const {
    std::fclose(file);
}

std::string read_all(std::FILE* file, const std::string& name) {
    std::array<char, piece_size> piece;
    std::string text;
    for (std::size_t got = 1; got > 0;) {
        got = std::fread(piece.data(), 1, piece.size(), file);
        text.append(piece.data(), got);
    }
    if (std::ferror(file) != 0) {
        throw unreadable(name);
    }
    return text;
}

void refuse_special_file(const std::string& name) {
    struct stat status {};
    if (stat(name.c_str(), &status) == 0) {
        require_regular(name, status);
    }
}

Input::Input(const std::string& name) : name_(shown(name)), fd_(open_input(name)) {}

std::size_t Input::read_some(std::span<char> room) {
    for (;;) {
        const ssize_t got = ::read(fd_.get(), room.data(), room.size());
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno == EAGAIN) {
            wait_for_input(fd_.get());
        } else if (errno != EINTR) {
            throw unreadable(name_);
        }
    }
}

std::string_view Input::peek(std::size_t size) {
    while (ahead_.size() < size) {
        const std::size_t before = ahead_.size();
        ahead_.resize(size);
        const std::size_t got = read_some(std::span(ahead_).subspan(before));
        ahead_.resize(before + got);
        if (got == 0) {
            break;
        }
    }
    return std::string_view(ahead_).substr(0, size);
}

std::string_view Input::read(std::span<char> room) {
    if (ahead_.empty()) {
        return {room.data(), read_some(room)};
    }
    const std::size_t size = std::min(room.size(), ahead_.size());
    std::memcpy(room.data(), ahead_.data(), size);
    ahead_.erase(0, size);
    return {room.data(), size};
}

std::string Input::read_all(std::size_t limit) {
    std::array<char, piece_size> room;
    std::string text;
    for (std::string_view piece = read(room); !piece.empty(); piece = read(room)) {
        text += piece;
        if (text.size() > limit) {
            throw Failure(name_ + " holds more than " + std::to_string(limit) + " bytes");
        }
    }
    return text;
}

InputFile Input::stream() {
    InputFile stream(fopencookie(this, "r", {read_for_stream, nullptr, nullptr, nullptr}));
    if (!stream) {
        throw unreadable(name_);
    }
    return stream;
}

bool HexStream::append_to(Octets& octets) {
    std::array<char, piece_size> room;
    try {
        const std::string_view piece = input_.read(room);
        if (piece.empty()) {
            decoder_.finish();
            return false;
        }
        decoder_.decode(piece, octets);
        return true;
    } catch (const UsageError& error) {
        throw Failure(error.what());
    }
}

}  // namespace wq::command
