// The file of names for object identifiers: its lines and what they are made of.
#pragma once

#include <wqevents/names.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace wq {

class LineReader;

// What one line, with those that continue it, can hold; the terminator counts.
inline constexpr std::size_t oid_line_size = 1024;
using OidLine = std::array<char, oid_line_size>;

// A range of more numbers makes its line malformed.
inline constexpr std::uint64_t oid_range_max = 1'000'000;

// A line that names one identifier or, with a variable, one for each number of a range.
struct NameLine {
    std::string_view oid;  // up to the variable where there is one
    std::string_view name;
    char variable = '\0';
    std::uint32_t first = 0;
    std::uint32_t last = 0;
};

// Results of strsub().
enum StrsubResult : int {
    strsub_done = 0,
    strsub_not_closed = 1,
    strsub_other_variable = 2,
    strsub_unknown_operator = 3,
    strsub_no_number = 4,  // the operator's number is missing, or is 0 and divides
};

// The next logical line that holds something, without leading white space and comment, in `line`;
// null at the end of the file.
char* getOidLine(OidLine& line, LineReader& file);

// Lines read since the process began.
std::uint64_t oid_lines_read();

// Replaces the "${name}" that `text` begins with by what the newest local mapping of that name
// stands for. False where `text` does not begin so, the name is unknown or nothing follows.
bool expandLocalRef(const char* text, std::string& expanded);

// Copies `name` with its "${...}" references to `variable` replaced, `value` being a decimal
// number. `result` is of use only where all could be replaced.
StrsubResult strsub(std::string_view name, char variable, std::string_view value,
                    std::string& result);

// Takes a line of that form apart, references in front replaced; false where it is malformed. The
// views are parts of `text`.
bool read_name_line(const char* text, NameLine& line);

// Remembers what a line in double quotes defines; passes over a malformed one.
void read_mapping_line(const char* text);

// Frees all local mappings.
void local_mapFree();

// Frees a node, its siblings behind it and all below them.
void oidFree(oidnode* first);

// Puts the dotted path of the first node of that name into `path`, depth first from `first` on.
bool iFindOidInTree(const oidnode* first, std::string_view name, std::string& path);

}  // namespace wq
