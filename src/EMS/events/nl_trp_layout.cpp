#include <array>

#include "EMS/events/nl_icftime.h"
#include "EMS/events/nl_trp_format.h"

namespace wq {
namespace {

constexpr std::string_view no_host = "<none>";
// Below this a continuation line is not begun.
constexpr std::size_t least_room = 100;

// Fills a column of `width` that holds `used` characters so far.
void pad(TextSink& sink, std::size_t used, std::size_t width) {
    constexpr std::string_view blanks = "                                ";
    if (used < width) {
        sink.append(blanks.substr(0, width - used));
    }
}

// As "%-*s".
void append_padded(TextSink& sink, std::string_view text, std::size_t width) {
    sink.append(text);
    pad(sink, text.size(), width);
}

// As "%-*.*s" with the same number twice.
void append_column(TextSink& sink, std::string_view text, std::size_t width) {
    append_padded(sink, text.substr(0, width), width);
}

// As "%-*d".
void append_number(TextSink& sink, int64_t number, std::size_t width) {
    const std::size_t start = sink.length();
    sink.append_decimal(number);
    pad(sink, sink.length() - start, width);
}

void append_line_end(TextSink& sink, char source, std::string_view line) {
    sink.append(' ');
    sink.append(source != '\0' ? source : ' ');
    sink.append(' ');
    sink.append(line);
    sink.append('\n');
}

void append_plain(TextSink& sink, const LineTexts&, std::string_view line) {
    sink.append(line);
    sink.append('\n');
}

void append_with_host(TextSink& sink, const LineTexts& texts, std::string_view line) {
    if (texts.host != no_host) {
        sink.append(texts.host);
        sink.append(": ");
    }
    append_plain(sink, texts, line);
}

void append_indented(TextSink& sink, const LineTexts& texts, std::string_view line) {
    sink.append("\t\t\t");
    append_with_host(sink, texts, line);
}

void append_event_line(TextSink& sink, const LineTexts& texts, std::string_view line) {
    append_column(sink, event_time_text(texts.when), 24);
    sink.append(' ');
    append_column(sink, texts.host, 15);
    append_line_end(sink, texts.source, line);
}

void append_daemon_columns(TextSink& sink, const LineTexts& texts, std::size_t time_width,
                           std::string_view line) {
    const EventTimeTexts time = event_time_texts(texts.when);
    append_padded(sink, time.seconds, 10);
    sink.append(' ');
    append_number(sink, texts.category, 2);
    sink.append(' ');
    append_column(sink, time.local, time_width);
    sink.append(' ');
    append_padded(sink, texts.host, 25);
    append_line_end(sink, texts.source, line);
}

void append_daemon_line(TextSink& sink, const LineTexts& texts, std::string_view line) {
    append_daemon_columns(sink, texts, 24, line);
}

// One blank more before the host tells a continuation from a first line.
void append_daemon_continuation(TextSink& sink, const LineTexts& texts, std::string_view line) {
    append_daemon_columns(sink, texts, 25, line);
}

using AppendLine = void (*)(TextSink& sink, const LineTexts& texts, std::string_view line);

struct Layout {
    AppendLine first;
    AppendLine continuation;
    bool keeps_continuations;  // else each one takes the place of the one before
};

constexpr Layout event_layout = {append_event_line, append_plain, true};
constexpr Layout daemon_layout = {append_daemon_line, append_daemon_continuation, true};

// By rtrap_user.
constexpr std::array<Layout, 5> layouts = {{
    event_layout,
    daemon_layout,
    {append_with_host, append_indented, false},
    event_layout,
    {append_plain, append_plain, true},
}};

const Layout& layout_for(int user) {
    const auto index = static_cast<unsigned>(user);
    return index < layouts.size() ? layouts[index] : daemon_layout;
}

// The lines of a description; empty ones vanish.
class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text) {}

    // A description that begins with a newline has a first line of one blank.
    std::string_view first() {
        if (rest_.starts_with('\n')) {
            return " ";
        }
        std::string_view line;
        next(line);
        return line;
    }
    bool next(std::string_view& line) {
        rest_.remove_prefix(std::min(rest_.find_first_not_of('\n'), rest_.size()));
        line = rest_.substr(0, rest_.find('\n'));
        rest_.remove_prefix(line.size());
        return !line.empty();
    }

  private:
    std::string_view rest_;
};

}  // namespace

bool lay_out(int user, const LineTexts& texts, std::string_view description,
             std::span<char> buffer) {
    const Layout& layout = layout_for(user);
    Lines lines(description);
    TextSink first(buffer.data(), buffer.size());
    layout.first(first, texts, lines.first());
    std::span<char> left = buffer.subspan(first.length());
    for (std::string_view line; lines.next(line);) {
        if (left.size() < least_room) {
            return false;
        }
        TextSink continuation(left.data(), left.size());
        layout.continuation(continuation, texts, line);
        if (layout.keeps_continuations) {
            left = left.subspan(continuation.length());
        }
    }
    return true;
}

}  // namespace wq
