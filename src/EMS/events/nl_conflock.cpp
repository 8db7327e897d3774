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
#include <string>
#include <string_view>

#include <wqevents/configuration.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include "EMS/events/internal/file_text.h"
#include "EMS/events/internal/guarded.h"
#include "EMS/events/internal/kept_text.h"
#include "EMS/events/internal/lasting.h"
#include "EMS/events/nl_alertfile.h"

namespace wq {

void sleep_seconds(unsigned seconds) {
    timespec left{static_cast<time_t>(seconds), 0};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

void (*pause_between_attempts)(unsigned seconds) = sleep_seconds;

namespace {

struct OpenAlerts {
    KeptText names;
    Stream left_open;  // what the reader of alerts left open, locked, after an error in a body
};

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
        return open_stream(path, mode);
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

// What the caller is told about a failure, with the number that the failed call left.
std::FILE* refuse(char*& message, const char* text, const char* name) {
    const int error = errno;
    message = malloced(format_message(text, name != nullptr ? name : "", error));
    errno = error;
    return nullptr;
}

std::FILE* lock_configuration(char*& message) {
    char* name = nullptr;
    Stream stream(fopenConfFile("r+", &name));
    if (stream == nullptr) {
        return refuse(
            message, _eventsMsg(1, 7, "Could not open configuration file \"%s\".\nError %d: %s.\n"),
            name);
    }
    if (lock_file(fileno(stream.get()), Lock::exclusive) != Locked::yes) {
        return refuse(message,
                      _eventsMsg(1, 8,
                                 "Another Event Configuration process is already running.\n"
                                 "Could not lock configuration file \"%s\".\nError %d: %s.\n"),
                      name);
    }
    return stream.release();
}

}  // namespace

void close_alert_file(std::FILE* stream) {
    unlock_file(fileno(stream));
    std::fclose(stream);
}

void leave_alert_file_open(std::FILE* stream) {
    lasting<OpenAlerts>().left_open.reset(stream);
}

AlertFile open_alert_file(const char* mode, bool truncate) {
    auto& alerts = lasting<OpenAlerts>();
    if (alerts.left_open != nullptr) {
        close_alert_file(alerts.left_open.release());
    }
    AlertFile file{nullptr, alerts.names.keep(find_alert_file()), AlertFileState::not_opened};
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

FILE* lockVortdConfFile(char** message) {
    if (message == nullptr) {
        return nullptr;
    }
    *message = nullptr;
    return wq::guarded<FILE*>(nullptr, [&] { return wq::lock_configuration(*message); });
}

int open_ferlo_lock_file(const char* mode, FILE** stream, char** name) {
    if (mode == nullptr || stream == nullptr || name == nullptr) {
        return -1;
    }
    return wq::guarded(-1, [&] {
        const wq::AlertFile file = wq::open_alert_file(mode, true);
        *name = file.name;
        *stream = file.stream;
        return static_cast<int>(file.state);
    });
}
