// The lines of a configuration file, by its rules for comments, blanks and length, and the names in
// a source list file, which is read by the same rules.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "EMS/events/internal/file_text.h"

namespace wq {

// Hands out the lines that count: without leading blanks and tabs and without their newline, up to
// a NUL; comments, whose first character that is no blank is '#', are passed over. The lines are
// parts of the file's text.
class ConfLines {
  public:
    // Bytes of the longest line, its newline included: with the terminator and one byte to spare it
    // fits the 51200 that a line may take.
    static constexpr std::size_t line_max = 51198;

    explicit ConfLines(const FileText& file, std::size_t longest = line_max)
        : at_(file.view().data()),
          end_(at_ + file.view().size()),
          longest_(longest),
          holds_nul_(file.holds_nul()) {}

    // False at the end of the file, and from the first line on that is too long.
    bool next(std::string_view& line) {
        while (!too_long_ && at_ != end_) {
            const std::string_view raw = take_raw();
            ++number_;
            too_long_ = raw.size() > longest_;
            line = text_of(raw);
            if (!too_long_ && (line.empty() || line.front() != '#')) {
                return true;
            }
        }
        return false;
    }

    // The number of the line last read, comments counted too; 0 before the first.
    int number() const { return number_; }
    bool too_long() const { return too_long_; }

  private:
    // The next bytes up to and with a newline, or what there is before the end of the file.
    std::string_view take_raw() {
        const auto rest = static_cast<std::size_t>(end_ - at_);
        const auto* newline = static_cast<const char*>(std::memchr(at_, '\n', rest));
        const char* const start = at_;
        at_ = newline == nullptr ? end_ : newline + 1;
        return {start, static_cast<std::size_t>(at_ - start)};
    }

    std::string_view text_of(std::string_view raw) const {
        if (holds_nul_) {
            raw = raw.substr(0, raw.find('\0'));
        }
        std::size_t blanks = 0;
        while (blanks < raw.size() && (raw[blanks] == ' ' || raw[blanks] == '\t')) {
            ++blanks;
        }
        raw.remove_prefix(blanks);
        if (!raw.empty() && raw.back() == '\n') {
            raw.remove_suffix(1);
        }
        return raw;
    }

    const char* at_;
    const char* end_;
    std::size_t longest_;
    int number_ = 0;
    bool too_long_ = false;
    bool holds_nul_;
};

// How a configuration file is read: nothing after the first line that is too long.
inline constexpr ReadLimits conf_limits{.longest_line = ConfLines::line_max};

// What separates the names of nodes.
inline constexpr std::string_view node_separators = " \t\n,";

// The first name on a line, or an empty text.
inline std::string_view first_listed_word(std::string_view line) {
    const std::size_t start = line.find_first_not_of(node_separators);
    if (start == std::string_view::npos) {
        return {};
    }
    return line.substr(start, line.find_first_of(node_separators, start) - start);
}

// Calls `visit` with the first word of each line of a source list file that has one, until it
// returns false. True if the list ends early by a line that is too long.
template <class Visit>
bool for_each_listed_node(const FileText& list, Visit visit) {
    ConfLines lines(list);
    bool wanted = true;
    for (std::string_view line; wanted && lines.next(line);) {
        const std::string_view word = first_listed_word(line);
        wanted = word.empty() || visit(word);
    }
    return lines.too_long();
}

}  // namespace wq
