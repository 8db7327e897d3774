// The lines of a trap configuration's text, each with what it is.
#include "conf_lines.h"

#include <algorithm>
#include <cstring>

#include <wqevents/configuration.h>

#include "EMS/events/internal/field_scan.h"

namespace wq::command {
namespace {

struct Line {
    std::size_t number = 0;
    std::string_view text;
};

// Hands out the lines that count, as the reader sees them.
class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text) {}

    bool next(Line& line) {
        while (!rest_.empty()) {
            const std::size_t length = std::min(rest_.find('\n'), rest_.size());
            std::string_view text = rest_.substr(0, length);
            rest_.remove_prefix(std::min(length + 1, rest_.size()));
            ++number_;
            text = text.substr(0, text.find('\0'));
            text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
            if (!text.starts_with('#')) {
                line = {number_, text};
                return true;
            }
        }
        return false;
    }

  private:
    std::string_view rest_;
    std::size_t number_ = 0;
};

std::string_view behind(std::string_view line, const char* keyword) {
    return line.substr(std::min(std::strlen(keyword), line.size()));
}

// One character is passed over after the keyword of a trap's line.
std::string_view argument_of(std::string_view line, const char* keyword) {
    const std::string_view rest = behind(line, keyword);
    return rest.substr(std::min<std::size_t>(1, rest.size()));
}

void skip_description(Lines& lines, Line line) {
    bool more = true;
    while (more && line.text != edescKeyword) {
        more = lines.next(line);
    }
}

class Walk {
  public:
    explicit Walk(std::string_view text) : lines_(text) { more_ = lines_.next(line_); }

    void categories(std::vector<ConfLine>& out) {
        while (more_ && line_.text.starts_with(categoryKeyword)) {
            add(out, ConfLineKind::category, behind(line_.text, categoryKeyword));
        }
    }
    void actions(std::vector<ConfLine>& out) {
        ActionFields fields;
        while (more_ && line_.text.starts_with(actionKeyword) &&
               scan_action(behind(line_.text, actionKeyword), fields) >= 2) {
            add(out, ConfLineKind::action, behind(line_.text, actionKeyword));
            end_description();
        }
    }
    void enterprises() {
        EnterpriseFields fields;
        while (more_ && scan_enterprise(line_.text, fields) == 2) {
            more_ = lines_.next(line_);
        }
    }
    void traps(std::vector<ConfLine>& out) {
        EventFields fields;
        while (more_ && scan_event(line_.text, fields) == 8) {
            add(out, ConfLineKind::trap, fields.name);
            add(out, ConfLineKind::format, line_.text);
            add_if(out, ConfLineKind::exec, execKeyword);
            add_if(out, ConfLineKind::display, displayKeyword);
            if (more_ && line_.text.starts_with(forwardKeyword)) {
                more_ = lines_.next(line_);
            }
            add_if(out, ConfLineKind::nodes, nodesKeyword);
            end_description();
        }
    }

  private:
    void add(std::vector<ConfLine>& out, ConfLineKind kind, std::string_view argument) {
        if (more_) {
            out.push_back({kind, line_.number, line_.text, argument});
            more_ = lines_.next(line_);
        }
    }
    void add_if(std::vector<ConfLine>& out, ConfLineKind kind, const char* keyword) {
        if (more_ && line_.text.starts_with(keyword)) {
            add(out, kind, argument_of(line_.text, keyword));
        }
    }
    // On to the line after the next one that ends a description.
    void end_description() {
        if (more_) {
            skip_description(lines_, line_);
            more_ = lines_.next(line_);
        }
    }

    Lines lines_;
    Line line_;
    bool more_ = false;
};

}  // namespace

std::vector<ConfLine> conf_lines(std::string_view text) {
    std::vector<ConfLine> out;
    Walk walk(text);
    walk.categories(out);
    walk.actions(out);
    walk.enterprises();
    walk.traps(out);
    return out;
}

std::vector<ConfCategory> category_lines(std::string_view text) {
    std::vector<ConfLine> lines;
    Walk(text).categories(lines);
    std::vector<ConfCategory> categories;
    for (const ConfLine& line : lines) {
        CategoryFields fields;
        if (scan_category(line.argument, fields) == 2 && fields.slot >= 0 &&
            fields.slot < EMS_CATEGORIES_MAX) {
            categories.push_back({line.number, static_cast<std::size_t>(fields.slot), fields.name});
        }
    }
    return categories;
}

ConfAction action_of(const ConfLine& line) {
    ActionFields fields;
    scan_action(line.argument, fields);
    return {fields.name, fields.command};
}

int severity_of(const ConfLine& line) {
    EventFields fields;
    scan_event(line.text, fields);
    return fields.severity;
}

}  // namespace wq::command
