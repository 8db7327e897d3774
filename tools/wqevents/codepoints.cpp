/*
 * wqevents codepoints: makes a code point catalogue from a text, and a text from a catalogue.
 */
#include <wqevents.h>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "input_file.h"
#include "output.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr const char* footer_text =
    "A SOURCE has a line for each code point: the set, blanks, the code point in hexadecimal,\n"
    "one blank or tab, and the text, which may be empty. \\n and \\\\ in the text stand for a\n"
    "line feed and a backslash, \\xHH for any octet but 00. Lines that are empty or begin with #\n"
    "are passed over. The sets are\n"
    "  1 alert types     4 install causes        7 detailed data identifiers\n"
    "  2 probable causes 5 failure causes\n"
    "  3 user causes     6 recommended actions\n"
    "Code points go from 0 to fffe. dump prints such a text, in the catalogue's order.\n"
    "\n"
    "Examples:\n"
    "  wqevents codepoints build examples/codepoint.src -o codepoint.cat\n"
    "  wqevents codepoints dump codepoint.cat";

constexpr const char* dump_footer =
    "Octets of a text that are control characters or no UTF-8 are printed as \\xHH, which "
    "\"build\"\n"
    "reads.\n"
    "\n"
    "Example:\n"
    "  wqevents codepoints dump codepoint.cat";

constexpr std::string_view magic = "codepoint.cat456";
constexpr std::size_t header_octets = 24;
constexpr std::size_t entry_octets = 8;
constexpr unsigned last_set = 7;
constexpr unsigned last_point = 0xFFFE;

/* More than any catalogue has: each code point may have a text of more than a line. */
constexpr std::size_t file_max = std::size_t{64} << 20;
constexpr std::size_t points_max = std::size_t{last_set} * (last_point + 1);

struct CodePoint {
    unsigned set;
    unsigned id;
    std::string text;
};

/* An entry of a catalogue. Its text lies in the file, as those of others may. */
struct Entry {
    unsigned set;
    unsigned id;
    std::string_view text;
};

template <typename Point>
bool in_order(const Point& a, const Point& b) {
    return a.set != b.set ? a.set < b.set : a.id < b.id;
}

/* ---- the source */

/* Takes the number that `line` begins with, and the blanks behind it. */
bool take_number(std::string_view& line, int base, unsigned& number) {
    const char* end = line.data() + line.size();
    const auto [stop, error] = std::from_chars(line.data(), end, number, base);
    line.remove_prefix(static_cast<std::size_t>(stop - line.data()));
    return error == std::errc{} && (line.empty() || line.front() == ' ' || line.front() == '\t');
}

void skip_blanks(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
}

/* Takes what a backslash begins: \n, \\ or \xHH. */
bool take_escape(std::string_view& line, std::string& text) {
    if (line.starts_with("\\n") || line.starts_with("\\\\")) {
        text.push_back(line[1] == 'n' ? '\n' : '\\');
        line.remove_prefix(2);
        return true;
    }
    constexpr std::size_t size = 4;
    unsigned octet = 0;
    const char* end = line.data() + std::min(size, line.size());
    if (!line.starts_with("\\x") || line.size() < size ||
        std::from_chars(line.data() + 2, end, octet, 16).ptr != end) {
        return false;
    }
    text.push_back(static_cast<char>(octet));
    line.remove_prefix(size);
    return true;
}

bool take_text(std::string_view line, std::string& text) {
    while (!line.empty()) {
        if (line.front() != '\\') {
            text.push_back(line.front());
            line.remove_prefix(1);
        } else if (!take_escape(line, text)) {
            return false;
        }
    }
    return text.find('\0') == std::string::npos;
}

/* Why the line is refused, or null. */
const char* read_line(std::string_view line, CodePoint& point) {
    if (!take_number(line, 10, point.set) || point.set < 1 || point.set > last_set) {
        return "does not begin with a set from 1 to 7";
    }
    skip_blanks(line);
    if (!take_number(line, 16, point.id) || point.id > last_point) {
        return "has no hexadecimal code point up to fffe behind the set";
    }
    line.remove_prefix(line.empty() ? 0 : 1);
    if (!take_text(line, point.text)) {
        return "has a text with an unknown escape or a NUL";
    }
    return nullptr;
}

std::vector<CodePoint> read_source(const std::string& name, std::string_view content) {
    std::vector<CodePoint> points;
    for (std::size_t number = 1; !content.empty(); ++number) {
        std::string_view line = content.substr(0, content.find('\n'));
        content.remove_prefix(std::min(line.size() + 1, content.size()));
        line = line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
        std::string_view start = line;
        skip_blanks(start);
        if (start.empty() || start.front() == '#') {
            continue;
        }
        CodePoint point{};
        if (const char* problem = read_line(start, point); problem != nullptr) {
            throw Failure(name + ":" + std::to_string(number) + ": the line " + problem);
        }
        if (points.size() == points_max) {
            throw Failure(name + ": there are more lines than code points");
        }
        points.push_back(std::move(point));
    }
    return points;
}

/* ---- the catalogue */

void append_number(std::string& to, std::uint32_t number, std::size_t octets) {
    for (; octets > 0; --octets, number >>= 8) {
        to.push_back(static_cast<char>(number & 0xFF));
    }
}

std::uint32_t number_at(std::string_view from, std::size_t at, std::size_t octets) {
    std::uint32_t number = 0;
    while (octets-- > 0) {
        number = number << 8 | static_cast<unsigned char>(from[at + octets]);
    }
    return number;
}

/* In order and each once, so that whoever looks a code point up finds it. */
void sort_points(const std::string& name, std::vector<CodePoint>& points) {
    std::stable_sort(points.begin(), points.end(), in_order<CodePoint>);
    const auto twice =
        std::adjacent_find(points.begin(), points.end(),
                           [](const CodePoint& a, const CodePoint& b) { return !in_order(a, b); });
    if (twice != points.end()) {
        std::array<char, 8> id{};
        std::snprintf(id.data(), id.size(), "%04x", twice->id);
        throw Failure(name + ": code point " + id.data() + " of set " + std::to_string(twice->set) +
                      " is there twice");
    }
    if (points.empty()) {
        throw Failure(name + ": there is no code point in it");
    }
}

std::string catalogue_of(const std::string& name, std::vector<CodePoint> points) {
    sort_points(name, points);
    std::string file(magic);
    std::string texts;
    append_number(file, static_cast<std::uint32_t>(points.size()), 4);
    append_number(file, 0, 4);
    const std::size_t texts_start = header_octets + entry_octets * points.size();
    for (const CodePoint& point : points) {
        append_number(file, point.id, 2);
        append_number(file, point.set, 2);
        append_number(file, static_cast<std::uint32_t>(texts_start + texts.size()), 4);
        texts.append(point.text).push_back('\0');
    }
    if (texts_start + texts.size() > INT32_MAX) {
        throw Failure(name + ": the texts do not fit a catalogue");
    }
    return file.append(texts);
}

Entry entry_at(const std::string& name, std::string_view file, std::size_t at) {
    const std::size_t offset = number_at(file, at + 4, 4);
    const std::size_t end = offset < file.size() ? file.find('\0', offset) : std::string_view::npos;
    if (offset < header_octets || end == std::string_view::npos) {
        throw Failure(name + ": entry " + std::to_string((at - header_octets) / entry_octets + 1) +
                      " has no text");
    }
    return {number_at(file, at + 2, 2), number_at(file, at, 2), file.substr(offset, end - offset)};
}

std::vector<Entry> read_catalogue(const std::string& name, std::string_view file) {
    if (file.size() < header_octets || !file.starts_with(magic)) {
        throw Failure(name + ": not a code point catalogue");
    }
    const std::size_t count = number_at(file, magic.size(), 4);
    if (count == 0 || (file.size() - header_octets) / entry_octets < count) {
        throw Failure(name + ": the catalogue does not hold the entries that it tells of");
    }
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < count; ++i) {
        entries.push_back(entry_at(name, file, header_octets + entry_octets * i));
    }
    std::stable_sort(entries.begin(), entries.end(), in_order<Entry>);
    return entries;
}

/* ---- the subcommands */

/* Replaces the file at once, so that whoever loads it meanwhile gets the old or the new one. */
void write_file(const std::string& name, std::string_view content) {
    const std::string draft = name + ".new";
    std::FILE* file = std::fopen(draft.c_str(), "wb");
    if (file == nullptr) {
        throw system_failure("cannot write " + draft, errno);
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(draft.c_str(), name.c_str()) != 0) {
        const int error = errno;
        unlink(draft.c_str());
        throw system_failure("cannot write " + name, error);
    }
}

std::string content_of(const std::string& name) {
    return Input(name).read_all(file_max);
}

void build(const std::string& source, const std::string& target) {
    std::vector<CodePoint> points = read_source(shown(source), content_of(source));
    const std::size_t count = points.size();
    write_file(target, catalogue_of(shown(source), std::move(points)));
    Output output;
    output.text() = shown(target) + ": " + std::to_string(count) +
                    (count == 1 ? " code point\n" : " code points\n");
    output.flush();
}

/* The text as a source has it. */
std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n' || c == '\\') {
            out += '\\';
        }
        out += c == '\n' ? 'n' : c;
    }
    return shown(out);
}

void dump(const std::string& name) {
    Output output;
    const std::string file = content_of(name);
    for (const Entry& entry : read_catalogue(shown(name), file)) {
        std::array<char, 32> start{};
        std::snprintf(start.data(), start.size(), "%u %04x ", entry.set, entry.id);
        output.text().append(start.data()).append(escaped(entry.text)).append("\n");
        output.written();
    }
    output.flush();
}

struct CodePointsOptions {
    std::string file;
    std::string target;
};

}  // namespace

void add_codepoints(CLI::App& app) {
    const auto options = std::make_shared<CodePointsOptions>();
    CLI::App* command = app.add_subcommand("codepoints", "Make or show a code point catalogue");
    command->require_subcommand(1);
    command->footer(footer_text);
    CLI::App* build_it = command->add_subcommand("build", "Make a catalogue from a text");
    build_it->add_option("SOURCE", options->file, "The text; - for the standard input")
        ->required()
        ->type_name("");
    build_it->add_option("-o,--output", options->target, "The catalogue")
        ->required()
        ->type_name("FILE");
    build_it->footer(footer_text);
    build_it->callback([options] { build(options->file, options->target); });
    CLI::App* dump_it = command->add_subcommand("dump", "Print a catalogue as a text");
    dump_it->add_option("FILE", options->file, "The catalogue")->required()->type_name("");
    dump_it->footer(dump_footer);
    dump_it->callback([options] { dump(options->file); });
}

}  // namespace wq::command
