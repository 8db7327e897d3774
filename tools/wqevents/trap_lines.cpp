// Tells the lines of a trap's text apart, whose host may hold newlines of its own.
#include "trap_lines.h"

#include <algorithm>

#include "shown_text.h"

namespace wq::command {
namespace {

constexpr std::size_t none = std::string_view::npos;

// The columns of the layouts (docs/layouts.md).
constexpr std::size_t seconds_width = 10;
constexpr std::size_t category_width = 2;
constexpr std::size_t time_width = 24;
constexpr std::size_t event_host_width = 15;
constexpr std::size_t obu_indent = 3;

bool stands_bare(rtrap_user kind) {
    return kind == ZLEEVENT_USER || kind == KMEVENTS_USER || kind == PRX_USER;
}

// Where the column after a number's starts; a long number makes its column wider.
std::size_t after_number(std::string_view line, std::size_t at, std::size_t width) {
    return std::max(std::min(line.find(' ', at), line.size()), at + width) + 1;
}

// Where the host stands in a line, or `none`.
std::size_t host_place(rtrap_user kind, std::string_view line, bool first) {
    switch (kind) {
        case ZLEEVENT_USER:
        case KMEVENTS_USER:
            return first ? time_width + 1 : none;
        case VORTD_USER: {
            const std::size_t category = after_number(line, 0, seconds_width);
            const std::size_t time = after_number(line, category, category_width);
            return time + time_width + (first ? 1 : 2);
        }
        case OBU_USER:
            return first ? 0 : obu_indent;
        case PRX_USER:
            return none;
    }
    return none;
}

std::string_view host_column(rtrap_user kind, std::string_view host) {
    return kind == ZLEEVENT_USER || kind == KMEVENTS_USER ? host.substr(0, event_host_width) : host;
}

// Takes a line off the text. A newline in the host's column does not end it.
std::string take_line(rtrap_user kind, std::string_view& text, std::string_view host, bool first) {
    const std::string_view column = host_column(kind, host);
    std::string line;
    const std::size_t place = host_place(kind, text, first);
    if (place < text.size() && text.find('\n') >= place && text.substr(place).starts_with(column)) {
        line.append(text.substr(0, place)).append(shown(column));
        text.remove_prefix(place + column.size());
    }
    const std::size_t length = std::min(text.find('\n'), text.size());
    line.append(text.substr(0, length)).append("\n");
    text.remove_prefix(std::min(length + 1, text.size()));
    return line;
}

}  // namespace

bool is_one_plain_line(std::string_view text, std::string_view host) {
    return text.find('\n') + 1 == text.size() && !text.starts_with('\t') && host.find('\n') == none;
}

std::string trap_lines(rtrap_user kind, std::string_view text, std::string_view host) {
    if (is_one_plain_line(text, host)) {
        return std::string(text);
    }
    std::string lines = take_line(kind, text, host, true);
    if (lines.starts_with('\t')) {
        lines.replace(0, 1, "\\x09");
    }
    while (!text.empty()) {
        lines.append(stands_bare(kind) ? "\t" : "").append(take_line(kind, text, host, false));
    }
    return lines;
}

}  // namespace wq::command
