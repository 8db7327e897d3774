#include "conf_model.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>
#include <wqplatform.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "command.h"
#include "file_descriptor.h"
#include "input_file.h"

namespace wq::command {
namespace {

constexpr std::string_view time_stamp = "# Created by zeltrap at ";

std::string without_last_newline(std::string message) {
    if (message.ends_with('\n')) {
        message.pop_back();
    }
    return message;
}

/* The reader's message as that of a command: with the file's name, without a last newline. */
std::string explained(std::string message) {
    const std::string file = getVortdConfFile();
    constexpr std::string_view further = "Could not open new ";
    if (message.starts_with(further)) {
        message.replace(0, further.size(), "Could not open ");
    }
    if (message.empty()) {
        return file + ": a line of a slot mapping has no value";
    }
    message = without_last_newline(std::move(message));
    return message.find(file) == std::string::npos ? file + ": " + message : message;
}

/* The message of reading `path` into an empty model; none where all of it was read. Alerts are left
 * alone, whose message would take the place of this one. */
std::optional<std::string> read_into_empty_model(const char* path) {
    free_all_info();
    char* message = nullptr;
    if (augmentTrapspecFile(&message, path) == 0 && *message == '\0') {
        return std::nullopt;
    }
    return message;
}

/* The model as the library writes it, in a file that has no name. */
FileDescriptor written_file() {
    FileDescriptor file(memfd_create("vortd.conf", MFD_CLOEXEC));
    const int copy = file.get() < 0 ? -1 : dup(file.get());
    std::FILE* stream = copy < 0 ? nullptr : fdopen(copy, "r+");
    if (stream == nullptr) {
        throw system_failure("cannot make a temporary file", errno);
    }
    if (write_trapspec_file(stream) != 0) {
        std::fclose(stream);
        throw Failure("cannot write to a temporary file");
    }
    return file;
}

std::string text_of(const FileDescriptor& file) {
    const int copy = dup(file.get());
    const InputFile stream(copy < 0 ? nullptr : fdopen(copy, "r"));
    if (!stream) {
        throw system_failure("cannot read a temporary file", errno);
    }
    std::rewind(stream.get());
    return read_all(stream.get(), "temporary file");
}

/* The table of categories as it is. A read may give a file one category more, which it would
 * otherwise gain each time that it is edited. */
class Categories {
  public:
    Categories() {
        std::ranges::transform(EMScategories, used_.begin(),
                               [](const char* name) { return name != nullptr; });
    }
    void drop_others() const {
        for (std::size_t i = 0; i < used_.size(); ++i) {
            if (!used_[i]) {
                doFree(EMScategories[i]);
                EMScategories[i] = nullptr;
            }
        }
    }

  private:
    std::array<bool, EMS_CATEGORIES_MAX> used_{};
};

std::vector<std::string_view> sorted_lines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    std::ranges::sort(lines);
    return lines;
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

void load_configuration() {
    refuse_special_file(getVortdConfFile());
    if (const auto message = read_into_empty_model(getVortdConfFile())) {
        throw Failure(explained(*message));
    }
}

std::string load_alerts() {
    char* message = nullptr;
    if (!has_alert_file() || read_ferlospec_file(&message) == 0) {
        return "";
    }
    return without_last_newline(message);
}

std::string written_form() {
    std::string text = text_of(written_file());
    const std::size_t begin = text.find(time_stamp);
    if (begin != std::string::npos) {
        text.erase(begin, text.find('\n', begin) + 1 - begin);
    }
    return text;
}

void read_back() {
    const Categories categories;
    const FileDescriptor file = written_file();
    const std::string path = std::string("/proc/self/fd/").append(std::to_string(file.get()));
    if (auto message = read_into_empty_model(path.c_str())) {
        /* The line is one of a file that nobody sees. */
        message->resize(std::min(message->size(), message->find(" in line #")));
        throw Failure("it would not be read back: " + (message->empty()
                                                           ? "a line of a slot mapping has no value"
                                                           : without_last_newline(*message)));
    }
    categories.drop_others();
}

void require_same_lines(const std::string& text) {
    const std::string other = written_form();
    if (other == text) {
        return;
    }
    const std::vector<std::string_view> wanted = sorted_lines(text);
    const std::vector<std::string_view> got = sorted_lines(other);
    const auto [line, end] = std::ranges::mismatch(wanted, got);
    if (line != wanted.end() || end != got.end()) {
        const std::string_view lost = line != wanted.end() ? *line : *end;
        throw Failure(
            std::string("the configuration would not be read back as it is: ").append(lost));
    }
}

}  // namespace wq::command
