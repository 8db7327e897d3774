// The lines of a text in pieces of bounded length.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace wq {

class LineReader {
  public:
    static constexpr std::size_t longest_piece = 8192;

    // `text` is that of a file that stays meanwhile.
    explicit LineReader(std::string_view text) : rest_(text) {}

    // The next bytes up to and including a newline, but at most `limit` of them; empty at the end.
    // What does not end in a newline is a part of a longer line or the text's last. It may hold NUL
    // bytes.
    std::string_view piece(std::size_t limit) {
        const std::string_view ahead = rest_.substr(0, limit);
        const std::size_t newline = ahead.find('\n');
        const std::size_t size = newline == std::string_view::npos ? ahead.size() : newline + 1;
        rest_.remove_prefix(size);
        return ahead.substr(0, size);
    }

  private:
    std::string_view rest_;
};

}  // namespace wq
