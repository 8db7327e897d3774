#include <wqplatform.h>

#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <string_view>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/log_target.h"
#include "platform/multibyte.h"
#include "platform/weak.h"

namespace wq {
namespace {

struct Free {
    void operator()(char* p) const { std::free(p); }
};
using Text = std::unique_ptr<char, Free>;

/*
 * The environment as it was when "WQULOG" was last looked for in vain. A storm of events asks for
 * the variable several times an event. Among 40 variables the search takes 20 to 130 ns, depending
 * on their names, comparing the list of pointers 9 ns. Address, length and last entry of the list
 * would be cheaper still, but are the same again after a program has taken away two variables and
 * then set "WQULOG" and the second one, whose old text the C library uses again.
 */
struct SilentEnvironment {
    char** list = nullptr;
    size_t bytes = 0; /* of the list, its terminator included; 0: nothing is remembered */
    std::array<char*, 256> entries{};
};

/* Each thread has its own, so that logging needs no lock. */
thread_local SilentEnvironment silent_environment;

/*
 * The first entry is compared by itself: a list that was given up (clearenv) for a shorter one at
 * the same address begins with another text, and is not read beyond its end.
 */
bool is_unchanged(const SilentEnvironment& known) {
    return known.bytes != 0 && environ == known.list && environ[0] == known.entries[0] &&
           std::memcmp(environ, known.entries.data(), known.bytes) == 0;
}

void remember(SilentEnvironment& known) {
    known.list = environ;
    known.bytes = 0;
    for (size_t i = 0; environ != nullptr && i < known.entries.size(); ++i) {
        known.entries[i] = environ[i];
        if (environ[i] == nullptr) {
            known.bytes = (i + 1) * sizeof(char*);
            return;
        }
    }
}

/* The name of the log file, null if there is none. */
const char* log_name() {
    if (is_unchanged(silent_environment)) {
        return nullptr;
    }
    const char* name = secure_getenv("WQULOG");
    if (name == nullptr) {
        remember(silent_environment);
        return nullptr;
    }
    return *name != '\0' ? name : nullptr;
}

Text formatted(const char* fmt, va_list args) {
    char* text = nullptr;
    return Text(vasprintf(&text, fmt, args) >= 0 ? text : nullptr);
}

/* One call is one line: a newline at the end goes, others become blanks. */
void make_one_line(char* text) {
    size_t length = std::strlen(text);
    if (length > 0 && text[length - 1] == '\n') {
        text[--length] = '\0';
    }
    for (char* at = text; (at = std::strchr(at, '\n')) != nullptr; ++at) {
        *at = ' ';
    }
}

std::array<char, 32> time_stamp() {
    std::array<char, 32> text{};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) != nullptr) {
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    }
    return text;
}

/*
 * One write a line, appending: lines of several processes do not mix. A pipe that nobody reads is
 * not waited for.
 */
void append_line(const char* name, std::string_view line) {
    if (std::strcmp(name, "-") == 0) {
        write_log(STDERR_FILENO, line);
        return;
    }
    const CancelHeld held;
    const Fd fd(
        open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666));
    if (fd) {
        write_log(fd.get(), line);
    }
}

void log_message(const char* name, int component, int level, char* message) {
    make_one_line(message);
    char* line = nullptr;
    const int length = asprintf(&line, "%s [%ld] %d/%d %s\n", time_stamp().data(),
                                static_cast<long>(getpid()), component, level, message);
    if (length >= 0) {
        const Text owner(line);
        append_line(name, {line, static_cast<size_t>(length)});
    }
}

/* The server that this host is a client of, null if it is none. */
const char* server_name() {
    const char* name = std::getenv("WQSERVER");
    return name != nullptr && *name != '\0' ? name : nullptr;
}

bool is_outside_address(const ifaddrs& interface) {
    return interface.ifa_addr != nullptr && interface.ifa_addr->sa_family == AF_INET &&
           (interface.ifa_flags & IFF_UP) != 0 && (interface.ifa_flags & IFF_LOOPBACK) == 0;
}

}  // namespace
}  // namespace wq

WQ_STAND_IN void WQuLogS(int component, int level, const char*, int, int, const char* fmt, ...) {
    const char* name = wq::log_name();
    if (name == nullptr || fmt == nullptr) {
        return;
    }
    const int saved_errno = errno;
    va_list args;
    va_start(args, fmt);
    const wq::Text message = wq::formatted(fmt, args);
    va_end(args);
    if (message != nullptr) {
        wq::log_message(name, component, level, message.get());
    }
    errno = saved_errno;
}

WQ_STAND_IN const char* _WQconfDirName(const char*) {
    const char* name = std::getenv("WQCONFDIR");
    return name != nullptr ? name : "/usr/WQ/conf";
}

WQ_STAND_IN char* _WQConcatPath(const char* dir, const char* file) {
    if (dir == nullptr || file == nullptr) {
        return nullptr;
    }
    std::string_view head(dir);
    std::string_view tail(file);
    while (head.ends_with('/')) {
        head.remove_suffix(1);
    }
    while (tail.starts_with('/')) {
        tail.remove_prefix(1);
    }
    auto* path = static_cast<char*>(std::malloc(head.size() + 1 + tail.size() + 1));
    if (path != nullptr) {
        char* end = path + head.copy(path, head.size());
        *end++ = '/';
        end += tail.copy(end, tail.size());
        *end = '\0';
    }
    return path;
}

WQ_STAND_IN int _KMisClient(void) {
    return wq::server_name() != nullptr ? 1 : 0;
}

WQ_STAND_IN char* _WQDefaultServerName(void) {
    const char* name = wq::server_name();
    return name != nullptr ? strdup(name) : nullptr;
}

WQ_STAND_IN char* _WQstrchr(const char* s, int c) {
    return s != nullptr ? const_cast<char*>(wq::find_character(s, static_cast<char>(c))) : nullptr;
}

WQ_STAND_IN char* _WQstrtok(char* s, const char* delimiters) {
    static thread_local char* rest = nullptr;
    return wq::next_token(s, delimiters, rest);
}

WQ_STAND_IN const char* errstring(int status) {
    static constexpr std::array names = {"noError",  "tooBig",   "noSuchName",
                                         "badValue", "readOnly", "genErr"};
    if (status >= 0 && status < static_cast<int>(names.size())) {
        return names[static_cast<size_t>(status)];
    }
    static thread_local std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "unknown error %d", status);
    return text.data();
}

WQ_STAND_IN int get_myaddress(struct sockaddr_in* address) {
    if (address == nullptr) {
        return -1;
    }
    *address = {};
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return -1;
    }
    for (const ifaddrs* at = list; at != nullptr; at = at->ifa_next) {
        if (wq::is_outside_address(*at)) {
            sockaddr_in found{};
            std::memcpy(&found, at->ifa_addr, sizeof found);
            address->sin_addr = found.sin_addr;
            break;
        }
    }
    freeifaddrs(list);
    return 0;
}
