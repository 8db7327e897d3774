#include <wqevents/names.h>

#include <wqplatform.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "EMS/events/internal/file_text.h"
#include "EMS/events/internal/lasting.h"
#include "EMS/events/internal/line_reader.h"
#include "EMS/events/internal/oid_lines.h"
#include "EMS/events/internal/text_scan.h"

namespace wq {
namespace {

constexpr std::size_t none = std::string_view::npos;
constexpr ReadLimits oid_limits{.patience_ms = 5000};

struct Free {
    void operator()(void* p) const { std::free(p); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

struct OidFileState {
    local_map* head_local = nullptr;  // the newest
    // The newest of each name; the texts are those of the mappings.
    std::unordered_map<std::string_view, local_map*> by_name;
    std::uint64_t linecount = 0;
};

OidFileState& state() {
    return lasting<OidFileState>();
}

// The first character of `text` from `start` on that is the ASCII character `character`; `none`
// where there is none. What `text` is a part of ends in a terminator, and a character begins at
// `start`.
std::size_t find_character(std::string_view text, char character, std::size_t start = 0) {
    std::size_t at = text.find(character, start);
    if (at == none || at == start || static_cast<unsigned char>(text[at - 1]) < 0x80) {
        return at;
    }
    // It may be the second half of a character.
    for (at = start; at < text.size() && text[at] != character;) {
        at += static_cast<std::size_t>(character_size(text.data() + at));
    }
    return at < text.size() ? at : none;
}

// Reads as fgets() does: what is left of the physical line, as far as it fits.
bool read_physical_line(char* to, std::size_t size, LineReader& file) {
    const std::string_view piece = file.piece(size - 1);
    if (piece.empty()) {
        return false;
    }
    std::memcpy(to, piece.data(), piece.size());
    to[piece.size()] = '\0';
    ++state().linecount;
    return true;
}

// Where the next physical line is to be read, null where none continues this one: to the backslash
// in front of the last character, which is the newline or the last in front of a comment. `piece`
// is where the last physical line was read to.
char* continuation(char* text, const char* piece) {
    const std::string_view line(text);
    if (line.size() < 2 || line[line.size() - 2] != '\\') {
        return nullptr;
    }
    char* backslash = text + line.size() - 2;
    const char* at = piece <= backslash ? piece : text;
    while (at < backslash) {
        at += character_size(at);
    }
    return at == backslash ? backslash : nullptr;
}

void cut_comment(char* text) {
    const std::size_t start = find_character(text, '#');
    if (start != none) {
        text[start] = '\0';
    }
}

// Lines that continue another are taken as they are: their blanks and '#' belong to the text.
void read_continuations(char* text, OidLine& line, LineReader& file) {
    const char* end = line.data() + line.size();
    for (char* at = continuation(text, text); at != nullptr; at = continuation(text, at)) {
        if (!read_physical_line(at, static_cast<std::size_t>(end - at), file)) {
            *at = at[1] == '\n' ? '\0' : *at;
            return;
        }
    }
}

std::string_view without_trailing_space(std::string_view text) {
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// All of `text` as a decimal number.
template <class Number>
bool read_decimal(std::string_view text, Number& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stop == end;
}

struct DecimalText {
    explicit DecimalText(std::int64_t number) {
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        size = static_cast<std::size_t>(end - digits.data());
    }
    std::string_view view() const { return {digits.data(), size}; }

    std::array<char, 24> digits;
    std::size_t size;
};

bool copy_text(char* to, std::size_t size, std::string_view from) {
    if (from.size() >= size) {
        return false;
    }
    std::memcpy(to, from.data(), from.size());
    to[from.size()] = '\0';
    return true;
}

// A mapping whose name or identifier does not fit is malformed.
void add_mapping(std::string_view name, std::string_view oid) {
    Owned<local_map> map(static_cast<local_map*>(std::calloc(1, sizeof(local_map))));
    if (map == nullptr || !copy_text(map->mapping_str, sizeof map->mapping_str, name) ||
        !copy_text(map->oidstring, sizeof map->oidstring, oid)) {
        return;
    }
    map->ent_oid_len = buildEntOid(map->ent_oid, map->oidstring);
    map->next = state().head_local;
    // An older mapping's text may stay the key: all mappings go at once.
    state().by_name.insert_or_assign(map->mapping_str, map.get());
    state().head_local = map.release();
}

local_map* find_mapping(std::string_view name) {
    const auto found = state().by_name.find(name);
    return found == state().by_name.end() ? nullptr : found->second;
}

// "x(first..last)": the variable stands behind a dot, and nothing but blanks behind the range.
bool read_range(std::string_view text, std::size_t open, NameLine& line) {
    if (open < 2 || !is_letter(text[open - 1]) || text[open - 2] != '.') {
        return false;
    }
    const std::string_view range = without_trailing_space(text.substr(open + 1));
    const std::size_t dots = range.find("..");
    if (dots == none || range.back() != ')' || !read_decimal(range.substr(0, dots), line.first) ||
        !read_decimal(range.substr(dots + 2, range.size() - dots - 3), line.last)) {
        return false;
    }
    line.variable = text[open - 1];
    line.oid = text.substr(0, open - 1);
    return line.first > line.last || line.last - line.first < oid_range_max;
}

bool read_name(std::string_view text, std::string_view& name) {
    if (!text.starts_with('"')) {
        return false;
    }
    name = text.substr(1, find_character(text.substr(1), '"'));
    return name.size() + 1 < text.size() && name.size() < sizeof(oiddata::mapping_str);
}

bool add_name(oidnode* root, const char* oid, const char* name) {
    Owned<oiddata> data(buildOidData(name));
    if (TreeInsertOid(&root, oid, data.get()) == nullptr) {
        return false;
    }
    static_cast<void>(data.release());
    return true;
}

// Ends with the first number that cannot be entered.
void add_range(oidnode* root, const NameLine& line) {
    std::string oid(line.oid);
    std::string name;
    for (std::uint64_t number = line.first; number <= line.last; ++number) {
        const DecimalText value(static_cast<std::int64_t>(number));
        oid.resize(line.oid.size());
        oid.append(value.view());
        if (strsub(line.name, line.variable, value.view(), name) != strsub_done ||
            !add_name(root, oid.c_str(), name.c_str())) {
            return;
        }
    }
}

// False where nothing more is to be read.
bool add_line(oidnode* root, const char* text) {
    std::string expanded;
    if (*text == '$') {
        if (!expandLocalRef(text, expanded)) {
            return true;
        }
        text = expanded.c_str();
    }
    NameLine line;
    if (!read_name_line(text, line)) {
        return true;
    }
    if (line.variable != '\0') {
        add_range(root, line);
        return true;
    }
    return add_name(root, std::string(line.oid).c_str(), std::string(line.name).c_str());
}

void read_lines(oidnode* root, LineReader& file) {
    OidLine line;
    bool more = true;
    for (char* text; more && (text = getOidLine(line, file)) != nullptr;) {
        if (*text == '"') {
            read_mapping_line(text);
        } else {
            more = add_line(root, text);
        }
    }
}

enum class NameFile { not_opened, unreadable, read };

// Neither of the calls that read the file has a place for a message: it goes to the log.
NameFile read_name_file(const char* path, FileText& file) {
    const Fd fd = open_for_reading(path);
    if (!fd) {
        return NameFile::not_opened;
    }
    if (!file.read(fd.get(), oid_limits)) {
        WQuLogS(0, 0, nullptr, 0, 0, "Could not read %s: %s", path, std::strerror(errno));
        return NameFile::unreadable;
    }
    return NameFile::read;
}

oidnode* replace_tree(oidnode* old, NameFile outcome, const FileText& file) {
    if (old != nullptr) {
        oidFreeTree(old);
    }
    oidnode* root = outcome == NameFile::read ? newOidNode(0) : nullptr;
    if (root == nullptr) {
        return nullptr;
    }
    try {
        LineReader lines(file.view());
        read_lines(root, lines);
    } catch (const std::bad_alloc&) {
        // The tree ends where the memory did.
    }
    return root;
}

// The value of "v+N" and its like; `reference` has an operator.
StrsubResult calculate(std::string_view reference, std::int64_t value, std::int64_t& result) {
    const char sign = reference[1];
    std::int32_t number = 0;
    if (std::string_view("+-*/%").find(sign) == none) {
        return strsub_unknown_operator;
    }
    if (!read_decimal(reference.substr(2), number) ||
        (number == 0 && (sign == '/' || sign == '%'))) {
        return strsub_no_number;
    }
    switch (sign) {
        case '+':
            result = value + number;
            break;
        case '-':
            result = value - number;
            break;
        case '*':
            result = value * number;
            break;
        case '/':
            result = value / number;
            break;
        default:
            result = value % number;
            break;
    }
    return strsub_done;
}

// Appends what "${reference}" stands for.
StrsubResult append_reference(std::string_view reference, char variable, std::string_view value,
                              std::string& result) {
    if (reference.empty() || reference.front() != variable) {
        return strsub_other_variable;
    }
    if (reference.size() == 1) {
        result.append(value);
        return strsub_done;
    }
    std::int64_t number = 0;
    std::int64_t calculated = 0;
    if (!read_decimal(value, number)) {
        return strsub_no_number;
    }
    const StrsubResult outcome = calculate(reference, number, calculated);
    if (outcome == strsub_done) {
        result.append(DecimalText(calculated).view());
    }
    return outcome;
}

}  // namespace

std::uint64_t oid_lines_read() {
    return state().linecount;
}

char* getOidLine(OidLine& line, LineReader& file) {
    while (read_physical_line(line.data(), line.size(), file)) {
        char* text = skip_space(line.data());
        cut_comment(text);
        if (*text != '\0') {
            read_continuations(text, line, file);
            return text;
        }
    }
    return nullptr;
}

bool expandLocalRef(const char* text, std::string& expanded) {
    const std::string_view line(text);
    const std::size_t close = line.starts_with("${") ? find_character(line, '}') : none;
    if (close == none) {
        return false;
    }
    const local_map* map = find_mapping(line.substr(2, close - 2));
    const std::string_view rest = line.substr(close + 1);
    if (map == nullptr || without_trailing_space(rest).empty()) {
        return false;
    }
    expanded.assign(map->oidstring).append(rest);
    return true;
}

StrsubResult strsub(std::string_view name, char variable, std::string_view value,
                    std::string& result) {
    result.clear();
    std::size_t done = 0;
    for (std::size_t at = 0; (at = find_character(name, '$', at)) != none;) {
        const std::string_view rest = name.substr(at);
        if (!rest.starts_with("${")) {
            at += rest.starts_with("$$") ? 2 : 1;
            continue;
        }
        const std::size_t close = find_character(rest, '}');
        if (close == none) {
            return strsub_not_closed;
        }
        result.append(name.substr(done, at - done));
        const StrsubResult outcome =
            append_reference(rest.substr(2, close - 2), variable, value, result);
        if (outcome != strsub_done) {
            return outcome;
        }
        at += close + 1;
        done = at;
    }
    result.append(name.substr(done));
    return strsub_done;
}

bool read_name_line(const char* text, NameLine& line) {
    const std::string_view all(text);
    const std::size_t equals = find_character(all, '=');
    if (equals == none || !read_name(all.substr(equals + 1), line.name)) {
        return false;
    }
    line.oid = all.substr(0, equals);
    const std::size_t open = find_character(line.oid, '(');
    return open == none || read_range(line.oid, open, line);
}

void read_mapping_line(const char* text) {
    const std::string_view line(text);
    const std::size_t close = find_character(line, '"', 1);
    const std::size_t equals = close == none ? none : find_character(line, '=', close);
    if (equals == none) {
        return;
    }
    const std::string_view name = line.substr(1, close - 1);
    const char* oid = text + equals + 1;
    std::string expanded;
    if (*oid == '$') {
        if (!expandLocalRef(oid, expanded)) {
            return;
        }
        oid = expanded.c_str();
    }
    add_mapping(name, without_trailing_space(oid));
}

void local_mapFree() {
    state().by_name.clear();
    while (state().head_local != nullptr) {
        const Owned<local_map> gone(state().head_local);
        state().head_local = gone->next;
    }
}

}  // namespace wq

oidnode* parseOidFile(const char* path) {
    wq::FileText file;
    const wq::NameFile outcome = wq::read_name_file(path, file);
    if (outcome == wq::NameFile::unreadable) {
        return nullptr;
    }
    oidTree = wq::replace_tree(oidTree, outcome, file);
    return oidTree;
}

oidnode* TreeParseOidFile(oidnode* tree, const char* path) {
    wq::FileText file;
    const wq::NameFile outcome = wq::read_name_file(path, file);
    return wq::replace_tree(tree, outcome, file);
}

void dumpLocalList(void) {
    if (wq::state().head_local == nullptr) {
        return;
    }
    std::fputs("\nLocal mappings:\n", stdout);
    for (const local_map* map = wq::state().head_local; map != nullptr; map = map->next) {
        std::printf("\t'%s' -> ", map->mapping_str);
        for (int i = 0; i < map->ent_oid_len; ++i) {
            std::printf(".%d", static_cast<int>(map->ent_oid[i]));
        }
        std::fputs("\n", stdout);
    }
}

char* findEntOidstring(const char* name) {
    local_map* map = name == nullptr ? nullptr : wq::find_mapping(name);
    return map == nullptr ? nullptr : map->oidstring;
}
