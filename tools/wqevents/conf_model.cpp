#include "conf_model.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>
#include <wqplatform.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "command.h"
#include "conf_file.h"
#include "conf_lines.h"
#include "file_descriptor.h"
#include "input_file.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr std::string_view time_stamp = "# Created by zeltrap at ";

/* The slot of the category that only reading gave the model. */
std::optional<std::size_t> implied;

std::string without_last_newline(std::string message) {
    if (message.ends_with('\n')) {
        message.pop_back();
    }
    return message;
}

/* The reader's message as that of a command: with the file's name, without a last newline. */
std::string explained(std::string message, const std::string& file) {
    constexpr std::string_view further = "Could not open new ";
    if (message.starts_with(further)) {
        message.replace(0, further.size(), "Could not open ");
    }
    if (message.empty()) {
        return shown(file) + ": a line of a slot mapping has no value";
    }
    message = without_last_newline(std::move(message));
    return message.find(file) == std::string::npos ? shown(file) + ": " + message : message;
}

/* The message of reading `path` into an empty model; none where all of it was read. Alerts are left
 * alone, whose message would take the place of this one. */
std::optional<std::string> read_into_empty_model(const char* path) {
    free_all_info();
    implied.reset();
    char* message = nullptr;
    if (augmentTrapspecFile(&message, path) == 0 && *message == '\0') {
        return std::nullopt;
    }
    return message;
}

/* A file that has no name, with a stream to write to. */
struct NamelessFile {
    FileDescriptor fd{memfd_create("vortd.conf", MFD_CLOEXEC)};

    std::string path() const {
        return std::string("/proc/self/fd/").append(std::to_string(fd.get()));
    }
    InputFile stream() const {
        /* A limit on the size of files is an error of the write, not the end. */
        std::signal(SIGXFSZ, SIG_IGN);
        const int copy = fd.get() < 0 ? -1 : dup(fd.get());
        std::FILE* file = copy < 0 ? nullptr : fdopen(copy, "r+");
        if (file == nullptr) {
            throw system_failure("cannot make a temporary file", errno);
        }
        return InputFile(file);
    }
};

/* --- what a read does besides --- */

struct StandardCategory {
    std::size_t slot;
    const char** name;
};

/* The order in which the reader looks for one that is missing. */
constexpr std::array<StandardCategory, 8> standard_categories = {{
    {9, &ignoreCatString},
    {7, &logOnlyCatString},
    {2, &errorCatString},
    {0, &threshCatString},
    {1, &nettopCatString},
    {3, &statusCatString},
    {4, &nodeconfCatString},
    {5, &applalertCatString},
}};

using Slots = std::array<std::string_view, EMS_CATEGORIES_MAX>;

/* The slot that the reader gives a line's name; none where the name stands already. */
std::optional<std::size_t> slot_for(const Slots& slots, const ConfCategory& line) {
    std::size_t slot = line.slot;
    if (slots[slot].empty()) {
        return slot;
    }
    if (std::ranges::find(slots, line.name) != slots.end()) {
        return std::nullopt;
    }
    for (slot = slots.size() - 1; slot != 0 && !slots[slot].empty(); --slot) {
    }
    return slot;
}

/* The first standard category for which the lines leave room is the one that reading added. */
std::optional<std::size_t> find_implied(const std::vector<ConfCategory>& lines) {
    Slots slots{};
    for (const ConfCategory& line : lines) {
        if (const auto slot = slot_for(slots, line)) {
            slots[*slot] = line.name;
        }
    }
    for (const StandardCategory& category : standard_categories) {
        if (slots[category.slot].empty()) {
            const bool added = EMScategories[category.slot] != nullptr;
            return added ? std::optional(category.slot) : std::nullopt;
        }
    }
    return std::nullopt;
}

/* A trap of a category that the file has, too, is in that one. */
void prefer_own_category(std::size_t other) {
    for (std::size_t slot = 0; slot < EMS_CATEGORIES_MAX; ++slot) {
        if (slot == other || EMScategories[slot] == nullptr ||
            std::string_view(EMScategories[slot]) != EMScategories[other]) {
            continue;
        }
        for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            for (trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
                if (r->category_number == static_cast<int>(other)) {
                    r->category_number = static_cast<int>(slot);
                }
            }
        }
        return;
    }
}

std::optional<std::string> read_text(const std::string& text, const std::string& name) {
    const NamelessFile file;
    const InputFile stream = file.stream();
    if (std::fwrite(text.data(), 1, text.size(), stream.get()) != text.size() ||
        std::fflush(stream.get()) != 0) {
        throw system_failure("cannot write to a temporary file", errno);
    }
    auto message = read_into_empty_model(file.path().c_str());
    const std::string path = file.path();
    const std::size_t at = message ? message->find(path) : std::string::npos;
    if (at != std::string::npos) {
        message->replace(at, path.size(), name);
    }
    if (!message) {
        implied = find_implied(category_lines(text));
        if (implied) {
            prefer_own_category(*implied);
        }
    }
    return message;
}

/* --- writing --- */

bool has_same_numbers(const trap_record* one, const trap_record* other) {
    return one->generic_trap == other->generic_trap && one->specific_trap == other->specific_trap;
}

/* Turns round the records with nodes that follow `head` and share their numbers; returns the last
 * of them, or `head` where there are none. */
trap_record* turn_round(trap_record* head) {
    trap_record* const first = head->next;
    if (first->nodeCnt == 0) {
        return head;
    }
    trap_record* at = first->next;
    while (at != nullptr && at->nodeCnt != 0 && has_same_numbers(at, first)) {
        first->next = at->next;
        at->next = head->next;
        head->next = at;
        at = first->next;
    }
    return first;
}

/*
 * The reader puts a record with nodes before those of the same numbers. While one of these lives
 * they stand in the lists as in the file.
 */
class FileOrder {
  public:
    FileOrder() { turn_all_round(); }
    ~FileOrder() { turn_all_round(); }
    FileOrder(const FileOrder&) = delete;
    FileOrder& operator=(const FileOrder&) = delete;

  private:
    static void turn_all_round() {
        for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            trap_record* at = &e->trap_rec_list_head;
            while (at->next != nullptr) {
                trap_record* const last = turn_round(at);
                at = last == at ? at->next : last;
            }
        }
        trapspec_relinked();
    }
};

std::string composed_text() {
    const NamelessFile file;
    const FileOrder order;
    InputFile stream = file.stream();
    if (write_trapspec_file(stream.get()) != 0) {
        throw Failure("cannot write to a temporary file");
    }
    /* Closed by what wrote it. */
    static_cast<void>(stream.release());  // NOLINT(bugprone-unused-return-value)
    const InputFile written = file.stream();
    std::rewind(written.get());
    return read_all(written.get(), "temporary file");
}

std::string category_line(std::size_t slot) {
    return std::string(categoryKeyword)
        .append(" ")
        .append(std::to_string(slot))
        .append(" \"")
        .append(EMScategories[slot])
        .append("\"\n");
}

std::string_view next_line(std::string_view& text) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return line;
}

/* The first line of one text that the other does not have in its place. */
std::string_view first_difference(std::string_view one, std::string_view other) {
    while (!one.empty()) {
        const std::string_view line = next_line(one);
        if (line != next_line(other)) {
            return line;
        }
    }
    return next_line(other);
}

}  // namespace

std::string alert_file_name() {
    if (const char* named = std::getenv("FERLOD_CONF")) {
        return named;
    }
    struct Free {
        void operator()(char* text) const { std::free(text); }
    };
    const std::unique_ptr<char, Free> joined(_WQConcatPath(_WQconfDirName(nullptr), "ferlod.conf"));
    return joined ? joined.get() : "";
}

bool has_alert_file() {
    return access(alert_file_name().c_str(), F_OK) == 0 || errno != ENOENT;
}

std::string load_configuration(const std::string& name) {
    setVortdConfFile(name.c_str());
    const std::string file = getVortdConfFile();
    std::string text = read_configuration_bytes(file);
    load_text(text, file);
    return text;
}

void load_text(const std::string& text, const std::string& name) {
    if (const auto message = read_text(text, name)) {
        throw Failure(explained(*message, name) +
                      (is_unfinished(text) ? "\nIts writer has not finished: see 'wqevents conf "
                                             "repair --help'."
                                           : ""));
    }
}

std::string load_alerts() {
    char* message = nullptr;
    if (!has_alert_file() || read_ferlospec_file(&message) == 0) {
        return "";
    }
    return without_last_newline(message);
}

bool is_implied_category(std::size_t slot) {
    return implied == slot;
}

void make_category_explicit(std::size_t slot) {
    if (implied == slot) {
        implied.reset();
    }
}

std::string written_text() {
    std::string text = composed_text();
    if (implied) {
        const std::string line = category_line(*implied);
        text.erase(text.find("\n" + line) + 1, line.size());
    }
    return text;
}

std::string without_time_stamp(std::string text) {
    const std::size_t begin = text.find(time_stamp);
    if (begin != std::string::npos) {
        text.erase(begin, text.find('\n', begin) + 1 - begin);
    }
    return text;
}

void read_back(const std::string& text) {
    if (auto message = read_text(text, "the new text")) {
        /* The line is one of a file that nobody sees. */
        message->resize(std::min(message->size(), message->find(" in line #")));
        throw Failure("it would not be read back: " + (message->empty()
                                                           ? "a line of a slot mapping has no value"
                                                           : without_last_newline(*message)));
    }
}

void require_same_text(const std::string& text) {
    const std::string wanted = without_time_stamp(text);
    const std::string got = without_time_stamp(written_text());
    if (got != wanted) {
        throw Failure(std::string("the configuration would not be read back as it is: ")
                          .append(first_difference(wanted, got)));
    }
}

}  // namespace wq::command
