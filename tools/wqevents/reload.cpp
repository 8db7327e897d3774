// Reading the configuration, first by a child that tries it out, then from the child's copy.
#include "reload.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wqevents.h>
#include <wqplatform.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <set>
#include <string_view>
#include <utility>

#include "child_process.h"
#include "command.h"
#include "conf_model.h"
#include "input_file.h"
#include "shown_text.h"

namespace wq::command {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds pause_between_readings{1};
constexpr seconds child_patience{60};
// A file that somebody writes is tried again after a while, but not for ever.
constexpr int copies_max = 40;
constexpr std::int64_t copy_pause_ns = 25'000'000;
// Who writes without a mark, piece by piece, has come to the end when nothing came for so long.
constexpr std::int64_t quiet_ns = 50'000'000;
// The system tells times by a clock that stands still for so long.
constexpr std::int64_t clock_tick_ns = 20'000'000;

bool is_same_time(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Whether the time is so long ago; a time in the future is.
bool is_ago(const timespec& then, std::int64_t ns) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t age = (static_cast<std::int64_t>(now.tv_sec) - then.tv_sec) * 1'000'000'000 +
                             now.tv_nsec - then.tv_nsec;
    return age < 0 || age >= ns;
}

std::string without_newlines(std::string_view text) {
    return std::string(text.substr(0, text.find_last_not_of('\n') + 1));
}

std::string descriptor_path(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

// The reader's message; a broken slot mapping has none.
std::string explained(const char* message) {
    std::string text = without_newlines(message == nullptr ? "" : message);
    return text.empty() ? std::string("cannot read ").append(getVortdConfFile()) : text;
}

std::string failed_to(const char* what, const std::string& name, int error) {
    return std::string("Could not ") + what + " \"" + name + "\": " + std::strerror(error);
}

bool write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return true;
}

bool copy_bytes(int from, int to, char& first) {
    std::array<char, 65536> bytes;
    ssize_t size = 0;
    for (bool at_start = true; (size = read(from, bytes.data(), bytes.size())) != 0;) {
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0 || !write_all(to, {bytes.data(), static_cast<std::size_t>(size)})) {
            return false;
        }
        first = at_start ? bytes[0] : first;
        at_start = false;
    }
    return true;
}

enum class Copied { whole, torn, failed };

Copied copy_failed(std::string& complaint, std::string reason) {
    complaint = std::move(reason);
    return Copied::failed;
}

// Whether the file is a regular one, or none at all.
bool is_ordinary(const std::string& name, std::string& complaint) {
    try {
        refuse_special_file(name);
        return true;
    } catch (const Failure& failure) {
        complaint = failure.what();
        return false;
    }
}

// One try. A file that changes meanwhile, or whose writer has not come to its end, is torn; a
// writer's own mark for that is "!".
Copied copy_once(const std::string& name, int to, bool quiet, std::string& complaint) {
    if (!is_ordinary(name, complaint)) {
        return Copied::failed;
    }
    const FileDescriptor from(open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat before {};
    if (from.get() < 0 || fstat(from.get(), &before) != 0) {
        return copy_failed(complaint, failed_to("open trap format file", name, errno));
    }
    if (quiet && !is_ago(before.st_mtim, quiet_ns)) {
        return Copied::torn;
    }
    char first = '\0';
    struct stat after {};
    if (ftruncate(to, 0) != 0 || lseek(to, 0, SEEK_SET) != 0 ||
        !copy_bytes(from.get(), to, first) || fstat(from.get(), &after) != 0) {
        return copy_failed(complaint, failed_to("read", name, errno));
    }
    const bool changed =
        before.st_size != after.st_size || !is_same_time(before.st_mtim, after.st_mtim);
    return changed || first == '!' ? Copied::torn : Copied::whole;
}

Copied copy_patiently(const std::string& name, int to, bool quiet, std::string& complaint) {
    Copied copied = copy_once(name, to, quiet, complaint);
    for (int i = 1; copied == Copied::torn && i < copies_max; ++i) {
        const timespec pause{0, copy_pause_ns};
        nanosleep(&pause, nullptr);
        copied = copy_once(name, to, quiet, complaint);
    }
    return copied;
}

// The copy of the file as it is; what stays torn is for the reader to judge.
bool copy_file(const std::string& name, int to, std::string& complaint) {
    return copy_patiently(name, to, false, complaint) != Copied::failed;
}

// The copy of a file that took another's place: nobody writes it any more, and it is not empty, as
// it is after a writer without room.
bool copy_changed_file(const std::string& name, int to, std::string& complaint) {
    const Copied copied = copy_patiently(name, to, true, complaint);
    if (copied == Copied::torn) {
        complaint = "\"" + name + "\" is being written, or was not written to its end";
    } else if (copied == Copied::whole && lseek(to, 0, SEEK_END) == 0) {
        complaint = "\"" + name + "\" is empty";
    }
    return complaint.empty();
}

void replace_all(std::string& text, const std::string& old, const std::string& other) {
    for (std::size_t at = text.find(old); at != std::string::npos;
         at = text.find(old, at + other.size())) {
        text.replace(at, old.size(), other);
    }
}

// Reads the trap configuration `name` from its copy. False if it cannot be read; the message is
// the reader's either way, and may be one about the alerts.
bool read_copy(const std::string& name, int copy, std::string& message) {
    const std::string path = descriptor_path(copy);
    setVortdConfFile(path.c_str());
    char* told = nullptr;
    const bool read = read_trapspec_file(&told) == 0;
    have_read_vortdconf = 1;
    setVortdConfFile(name.c_str());
    const bool about_alerts = read && told != nullptr && *told != '\0' && has_alert_file();
    message = read && !about_alerts ? "" : explained(told);
    replace_all(message, path, name);
    return read;
}

bool read_mib(std::string& message) {
    have_read_mibtxt = 1;
    if (!is_ordinary(WQmib_get_mib_filename(), message)) {
        return false;
    }
    const bool read = WQmib_load_mib() == 0;
    if (!read) {
        message = "cannot read the MIB file " + quoted(WQmib_get_mib_filename());
    }
    return read;
}

FileDescriptor empty_copy() {
    FileDescriptor copy(memfd_create("vortd.conf", MFD_CLOEXEC));
    if (copy.get() < 0) {
        throw system_failure("cannot copy the configuration", errno);
    }
    return copy;
}

[[noreturn]] void try_out(Configuration::Part part, const std::string& name) {
    std::string message;
    bool read = false;
    if (part == Configuration::Part::mib) {
        read = read_mib(message);
    } else {
        read = copy_changed_file(name, first_child_fd, message) &&
               read_copy(name, first_child_fd, message);
    }
    write_all(second_child_fd, (read ? "+" : "-") + message);
    _exit(0);
}

}  // namespace

FileState::FileState(const std::string& name) {
    struct stat status {};
    there_ = stat(name.c_str(), &status) == 0;
    if (there_) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
        size_ = status.st_size;
        modified_ = status.st_mtim;
        settled_ = is_ago(modified_, clock_tick_ns);
    }
}

bool FileState::operator==(const FileState& other) const {
    return there_ == other.there_ && device_ == other.device_ && inode_ == other.inode_ &&
           size_ == other.size_ && is_same_time(modified_, other.modified_);
}

Configuration::Configuration(const std::string& name) : text_(empty_copy()) {
    setVortdConfFile(name.c_str());
    name_ = getVortdConfFile();
    for (const Part part : {Part::traps, Part::mib}) {
        state(part).tried = look(part);
    }
    std::string message;
    if (!read_mib(message) || !copy_file(name_, text_.get(), message) ||
        !read_copy(name_, text_.get(), message)) {
        throw Failure(message);
    }
    if (!message.empty()) {
        report(indented(message) + "\n");
    }
}

Configuration::~Configuration() {
    kill_child(child_);
}

std::array<FileState, 2> Configuration::look(Part part) const {
    if (part == Part::mib) {
        return {FileState(WQmib_get_mib_filename()), FileState()};
    }
    return {FileState(name_), FileState(alert_file_name())};
}

void Configuration::ask(Part part) {
    state(part).wanted = true;
}

Configuration::Clock::time_point Configuration::next() const {
    if (child_ > 0) {
        return give_up_;
    }
    Clock::time_point first = Clock::time_point::max();
    for (const State& part : states_) {
        if (part.wanted || part.failed) {
            first = std::min(first, part.may);
        }
    }
    return first;
}

bool Configuration::start(Clock::time_point now) {
    if (child_ > 0) {
        if (now >= give_up_) {
            kill_child(child_);
            give_up_ = Clock::time_point::max();
        }
        return false;
    }
    return start(Part::traps, now) || start(Part::mib, now);
}

bool Configuration::start(Part part, Clock::time_point now) {
    State& of = state(part);
    if ((!of.wanted && !of.failed) || now < of.may) {
        return false;
    }
    const std::array<FileState, 2> files = look(part);
    const bool other = files != of.tried || !of.tried[0].is_settled() || !of.tried[1].is_settled();
    of.wanted = false;
    // While it is broken it is looked at each second; otherwise each time that somebody asks.
    of.may = other || of.failed ? now + pause_between_readings : of.may;
    if (!other) {
        return false;
    }
    of.wanted = !run_child(part);
    if (!of.wanted) {
        of.tried = files;
    }
    return !of.wanted;
}

bool Configuration::run_child(Part part) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    FileDescriptor answer(ends[0]);
    const FileDescriptor other(ends[1]);
    FileDescriptor copy(memfd_create("vortd.conf", MFD_CLOEXEC));
    const pid_t child = copy.get() < 0 ? -1 : fork_child(copy.get(), other.get());
    if (child == 0) {
        try_out(part, name_);
    }
    if (child < 0) {
        return false;
    }
    fcntl(answer.get(), F_SETFL, O_NONBLOCK);
    child_ = child;
    trying_ = part;
    fresh_ = std::move(copy);
    answer_ = std::move(answer);
    said_.clear();
    give_up_ = Clock::now() + child_patience;
    return true;
}

bool Configuration::is_sound() const {
    return std::none_of(states_.begin(), states_.end(), [](const State& of) { return of.failed; });
}

bool Configuration::take() {
    std::array<char, 4096> bytes;
    for (;;) {
        const ssize_t size = read(answer_.get(), bytes.data(), bytes.size());
        if (size > 0) {
            said_.append(bytes.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
            return true;
        } else if (errno == EAGAIN) {
            return false;
        }
    }
}

std::string Configuration::apply() {
    end_child(std::exchange(child_, -1));
    answer_ = FileDescriptor();
    State& of = state(trying_);
    const bool recovered = of.failed;
    of.failed = !said_.starts_with('+');
    std::string complaint = of.failed ? "" : load(trying_);
    fresh_ = FileDescriptor();
    if (of.failed) {
        complaint = said_.empty() ? "the process that tries it out has failed" : said_.substr(1);
        return "what was read before stays in use: " + complaint;
    }
    return recovered && complaint.empty() ? "it can be read again, and is in use" : complaint;
}

// Reads what the child could read; a complaint, or "".
std::string Configuration::load(Part part) {
    std::string message;
    if (part == Part::mib) {
        read_mib(message);
    } else if (read_copy(name_, fresh_.get(), message)) {
        std::swap(text_, fresh_);
    } else {
        std::string ignored;
        read_copy(name_, text_.get(), ignored);
    }
    return message;
}

std::vector<std::string> configured_nodes() {
    std::set<std::string_view> names;
    for (const enterprise_info* enterprise = enterprise_list_head.next; enterprise != nullptr;
         enterprise = enterprise->next) {
        for (const trap_record* record = enterprise->trap_rec_list_head.next; record != nullptr;
             record = record->next) {
            for (std::int32_t i = 0; i < record->nodeCnt; ++i) {
                const char* const node = record->nodeList[i];
                names.insert(node == nullptr || *node == '/' ? "" : node);
            }
        }
    }
    names.erase("");
    return {names.begin(), names.end()};
}

}  // namespace wq::command
