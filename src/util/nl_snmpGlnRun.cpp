// Whether the platform's companion daemons are enabled, and run.
#include <fcntl.h>
#include <sys/stat.h>
#include <wqevents/status.h>
#include <wqplatform.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/file_text.h"
#include "EMS/events/internal/line_reader.h"

namespace wq {
namespace {

constexpr const char* registration_file = "/usr/WQ/conf/wqsuf";
constexpr const char* collector_name = "kmcollectord";
constexpr const char* collector_pid_file = "/usr/WQ/pids/kmcollectord.pid";
constexpr const char* poller_name = "kmpollerd";
constexpr const char* poller_pid_file = "/usr/WQ/pids/kmpollerd.pid";
constexpr const char* gleaner_name = "snmpGlean";
constexpr const char* gleaner_program = "/usr/WQ/bin/snmpGlean";
constexpr const char* gleaner_pid_file = "/usr/WQ/pids/snmpGleanPid";
constexpr const char* configurator_program = "/usr/WQ/bin/zeltrap";

constexpr int open_tries = 5;

/* What has been asked once. */
struct Answers {
    const char* gleaner_pid_file = nullptr;
    enum { unknown, absent, installed } configurator = unknown;
};

constinit Answers answers;

/* Without waiting for a writer, should the path be a pipe's. */
Fd open_to_read(const char* path) {
    return Fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

bool exists(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0;
}

/* "0:NAME:" enables a daemon; so does a first field that is no number. The last ":" must be there.
 */
bool line_enables(char* line, const char* daemon) {
    const char* const end = line + std::strlen(line);
    const char* disabled = nl_strtok_mod(line, ":");
    const char* name = nl_strtok_mod(nullptr, ":");
    if (disabled == nullptr || name == nullptr || *disabled == '\0') {
        return false;
    }
    return name + std::strlen(name) != end && std::strtol(disabled, nullptr, 10) == 0 &&
           strcmp_new(name + std::strspn(name, " "), daemon) == 0;
}

/* What is longer than the buffer counts as a line of its own. */
bool text_enables(std::string_view text, const char* daemon) {
    std::array<char, 1024> line;
    LineReader lines(text);
    for (std::string_view piece = lines.piece(line.size() - 1); !piece.empty();
         piece = lines.piece(line.size() - 1)) {
        line[piece.copy(line.data(), piece.size())] = '\0';
        if (line_enables(line.data(), daemon)) {
            return true;
        }
    }
    return false;
}

/*
 * The pid file as the last of the tries finds it: a daemon that is just starting may replace it.
 * None of them is worth more where there is no file.
 */
Fd open_pid_file(const char* path) {
    Fd file;
    for (int i = 0; i < open_tries; ++i) {
        file = open_to_read(path);
        if (!file && errno == ENOENT) {
            break;
        }
    }
    return file;
}

/* Whether another process holds a lock on the file that keeps this one from taking `kind`. */
bool is_locked_against(short kind, const Fd& file) {
    struct flock lock {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    return fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace
}  // namespace wq

int isKmCollectordHappy(void) {
    return isDaemonHappy_(wq::collector_name, wq::collector_pid_file);
}

int isKmPollerdHappy(void) {
    return isDaemonHappy_(wq::poller_name, wq::poller_pid_file);
}

int isSnmpGleanHappy(void) {
    const bool is_wanted =
        isSnmpGleanEnabled() != 0 && wq::exists(wq::gleaner_program) && isCnode() == 0;
    return is_wanted ? isSnmpGleanRunning() : 1;
}

int isKmCollectordEnabled(void) {
    return isDaemonEnabled_(wq::collector_name);
}

int isKmPollerdEnabled(void) {
    return isDaemonEnabled_(wq::poller_name);
}

int isSnmpGleanEnabled(void) {
    return isDaemonEnabled_(wq::gleaner_name);
}

int isDaemonHappy_(const char* daemon, const char* pidfile) {
    const bool is_wanted = isDaemonEnabled_(daemon) != 0 && isCnode() == 0;
    return is_wanted ? isDaemonRunning_(pidfile) : 1;
}

int isDaemonEnabled_(const char* daemon) {
    if (daemon == nullptr) {
        return 0;
    }
    wq::FileText file;
    return file.read(wq::registration_file, {.patience_ms = 0}) &&
                   wq::text_enables(file.view(), daemon)
               ? 1
               : 0;
}

int isDaemonRunning_(const char* pidfile) {
    if (pidfile == nullptr) {
        return 0;
    }
    const wq::Fd file = wq::open_pid_file(pidfile);
    return wq::is_locked_against(F_RDLCK, file) ? 1 : 0;
}

const char* getSnmpGleanPidFile(void) WQEVENTS_NOEXCEPT {
    if (wq::answers.gleaner_pid_file != nullptr) {
        return wq::answers.gleaner_pid_file;
    }
    const char* given = std::getenv("WQSNMPGLNPIDFILE");
    wq::answers.gleaner_pid_file = given != nullptr ? strdup_new(given) : wq::gleaner_pid_file;
    /* Without memory for the copy the variable is asked again the next time. */
    return wq::answers.gleaner_pid_file != nullptr ? wq::answers.gleaner_pid_file : given;
}

int isSnmpGleanRunning(void) {
    const char* path = getSnmpGleanPidFile();
    const wq::Fd file = path != nullptr ? wq::open_to_read(path) : wq::Fd();
    return wq::is_locked_against(F_WRLCK, file) ? 1 : 0;
}

int eventConfiguratorExists(void) WQEVENTS_NOEXCEPT {
    if (wq::answers.configurator == wq::Answers::unknown) {
        wq::answers.configurator =
            wq::exists(wq::configurator_program) ? wq::Answers::installed : wq::Answers::absent;
    }
    return wq::answers.configurator == wq::Answers::installed ? 1 : 0;
}
