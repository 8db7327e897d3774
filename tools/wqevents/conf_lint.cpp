// What is probably wrong in a trap configuration that can be read.
#include "conf_lint.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <optional>
#include <utility>

#include <wqevents/configuration.h>

#include "command.h"
#include "conf_lines.h"

namespace wq::command {
namespace {

std::string joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (const std::string_view part : parts) {
        text += part;
    }
    return text;
}

class Faults {
  public:
    void add(std::size_t line, const std::string& text) { found_.push_back({line, text}); }
    std::vector<Finding> take() {
        std::ranges::stable_sort(found_, {}, &Finding::line);
        return std::move(found_);
    }

  private:
    std::vector<Finding> found_;
};

// --- categories ---

void check_categories(std::string_view text, Faults& faults) {
    std::map<std::size_t, std::string_view> slots;
    std::map<std::string_view, std::size_t> names;
    for (const ConfCategory& category : category_lines(text)) {
        const auto [same, new_name] = names.try_emplace(category.name, category.line);
        const auto [taken, new_slot] = slots.try_emplace(category.slot, category.name);
        if (!new_name) {
            faults.add(category.line, joined({"category ", quoted(category.name), " is in line ",
                                              std::to_string(same->second), " already"}));
        } else if (!new_slot) {
            faults.add(category.line, joined({"category ", quoted(category.name), ": the number ",
                                              std::to_string(category.slot), " is taken by ",
                                              quoted(taken->second)}));
        }
    }
}

// --- formats ---

constexpr std::string_view plain_tokens = "AaCEeGSscldT*#";
constexpr std::string_view numbered_tokens = "-+=IitL%";
constexpr int most_arguments = EMS_ARGS_MAX - 1;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// The tokens of a format, as they are compiled; calls `complain` with what is wrong with one.
template <class Complain>
class TokenScan {
  public:
    TokenScan(std::string_view text, Complain complain) : text_(text), complain_(complain) {}

    void run() {
        for (at_ = text_.find('$'); at_ != std::string_view::npos; at_ = text_.find('$', at_)) {
            const char kind = at_ + 1 < text_.size() ? text_[at_ + 1] : '\0';
            if (kind == '$') {
                at_ += 2;
            } else if (kind != '\0' && plain_tokens.find(kind) != std::string_view::npos) {
                count_argument();
                at_ += 2;
            } else {
                scan_number(kind);
            }
        }
    }

  private:
    void scan_number(char kind) {
        const bool lettered = kind != '\0' && numbered_tokens.find(kind) != std::string_view::npos;
        const std::size_t first = at_ + (lettered ? 2 : 1);
        std::size_t end = first;
        while (end < text_.size() && is_digit(text_[end])) {
            ++end;
        }
        const std::string_view digits = text_.substr(std::min(first, text_.size()), end - first);
        if (digits.empty() || digits.front() == '0') {
            complain_of_start(kind, lettered, !digits.empty());
            at_ += 1;
            return;
        }
        if (digits.size() > 2 || std::stoi(std::string(digits)) > EMS_ARGS_MAX) {
            complain_(joined({text_.substr(at_, end - at_), ": bindings above ",
                              std::to_string(EMS_ARGS_MAX), " cannot be shown"}));
        } else {
            count_argument();
        }
        at_ = end;
    }

    // Signs that are no letters are text in many a command.
    void complain_of_start(char kind, bool lettered, bool zero) {
        const bool letter = std::isalpha(static_cast<unsigned char>(kind)) != 0;
        const std::string_view token = text_.substr(at_, (lettered ? 2 : 1) + (zero ? 1 : 0));
        if (zero || (lettered && letter)) {
            complain_(joined({token, " has no number from 1 on, and stays as it is"}));
        } else if (letter) {
            complain_(joined({text_.substr(at_, 2), " stands for nothing, and stays as it is"}));
        }
    }

    void count_argument() {
        if (++arguments_ == most_arguments + 1) {
            complain_(joined(
                {"only the first ", std::to_string(most_arguments), " arguments are expanded"}));
        }
    }

    std::string_view text_;
    Complain complain_;
    std::size_t at_ = 0;
    int arguments_ = 0;
};

template <class Complain>
void check_format(std::string_view format, Complain complain) {
    constexpr std::size_t longest = 4094;
    if (format.size() > longest) {
        complain("is longer than 4094 bytes, and replaced by a message");
        return;
    }
    const std::string raw(format);
    std::string text(2 * raw.size() + 1, '\0');
    interpret_esc_sequences(raw.c_str(), text.data());
    text.resize(text.find('\0'));
    TokenScan(text, complain).run();
}

// --- commands ---

constexpr std::array<std::string_view, 30> shell_words = {
    ".",    ":",     "[",      "alias", "break", "case", "cd",     "command", "echo",  "eval",
    "exec", "exit",  "export", "false", "for",   "if",   "kill",   "printf",  "pwd",   "read",
    "set",  "shift", "test",   "trap",  "true",  "type", "ulimit", "umask",   "unset", "while"};

bool is_program(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

bool is_in_path(const std::string& name) {
    const char* const variable = std::getenv("PATH");
    std::string_view folders = variable == nullptr ? "/usr/bin:/bin" : variable;
    while (!folders.empty()) {
        const std::size_t length = std::min(folders.find(':'), folders.size());
        if (is_program(std::string(folders.substr(0, length)) + "/" + name)) {
            return true;
        }
        folders.remove_prefix(std::min(length + 1, folders.size()));
    }
    return false;
}

// The program that a command line names; none where only a shell could tell.
std::optional<std::string> program_of(std::string_view command) {
    command.remove_prefix(std::min(command.find_first_not_of(" \t"), command.size()));
    const std::string_view word = command.substr(0, command.find_first_of(" \t;|&<>"));
    if (word.empty() || word.find_first_of("$`\"'\\=*?~(){}!#%") != std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(word);
}

void check_command(std::string_view command, std::size_t line, const std::string& whose,
                   Faults& faults) {
    const auto program = program_of(command);
    if (!program || std::ranges::find(shell_words, *program) != shell_words.end()) {
        return;
    }
    const bool has_folder = program->find('/') != std::string::npos;
    if (has_folder ? !is_program(*program) : !is_in_path(*program)) {
        faults.add(line, joined({whose, ": no command ", quoted(*program),
                                 has_folder ? " is there" : " is in PATH"}));
    }
}

// --- nodes ---

void check_nodes(const ConfLine& line, const std::string& whose, Faults& faults) {
    constexpr std::string_view separators = " \t\n\v\f\r,";
    std::string_view rest = line.argument;
    while (true) {
        rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
        if (rest.empty()) {
            return;
        }
        const std::string_view node = rest.substr(0, rest.find_first_of(separators));
        const std::string path(node);
        struct stat status {};
        if (node.starts_with('/') && (stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode) ||
                                      access(path.c_str(), R_OK) != 0)) {
            faults.add(line.number,
                       joined({whose, ": no list of nodes ", quoted(node), " can be read"}));
        }
        rest.remove_prefix(node.size());
    }
}

// --- lines ---

void check_severity(const ConfLine& line, const std::string& whose, Faults& faults) {
    constexpr int highest = 5;
    const int severity = severity_of(line);
    if (severity < 0 || severity > highest) {
        faults.add(line.number, joined({whose, ": the severity ", std::to_string(severity),
                                        " is not one of 0 to 5"}));
    }
}

void check_line(const ConfLine& line, const std::string& whose, Faults& faults) {
    const auto complain = [&](const std::string& where) {
        return [&, where](const std::string& text) {
            faults.add(line.number, joined({whose, ": ", where, ": ", text}));
        };
    };
    switch (line.kind) {
        case ConfLineKind::category:
        case ConfLineKind::action:
            break;
        case ConfLineKind::trap:
            check_severity(line, whose, faults);
            break;
        case ConfLineKind::format:
            check_format(line.argument, complain("format"));
            break;
        case ConfLineKind::exec:
            check_format(line.argument, complain(execKeyword));
            check_command(line.argument, line.number, whose, faults);
            break;
        case ConfLineKind::display:
            check_format(line.argument, complain(displayKeyword));
            check_command(line.argument, line.number, whose, faults);
            break;
        case ConfLineKind::nodes:
            check_nodes(line, whose, faults);
            break;
    }
}

}  // namespace

std::vector<Finding> find_faults(std::string_view text) {
    Faults faults;
    check_categories(text, faults);
    std::string whose;
    for (const ConfLine& line : conf_lines(text)) {
        if (line.kind == ConfLineKind::trap) {
            whose = joined({"trap ", quoted(line.argument)});
        }
        if (line.kind == ConfLineKind::action) {
            const ConfAction action = action_of(line);
            check_command(action.command, line.number, joined({"action ", quoted(action.name)}),
                          faults);
        }
        check_line(line, whose, faults);
    }
    return faults.take();
}

}  // namespace wq::command
