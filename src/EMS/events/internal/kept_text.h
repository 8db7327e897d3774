// Texts that are handed out and stay readable as long as the process lives.
#pragma once

#include <algorithm>
#include <cstddef>
#include <forward_list>
#include <string>
#include <string_view>
#include <utility>

namespace wq {

// The last text of a function. The next one may overwrite it, but never frees it: a caller may
// still hold it. Room doubles, so that what is kept stays within twice the longest text.
class KeptText {
  public:
    char* keep(std::string_view text) {
        constexpr std::size_t least = 256;
        if (texts_.empty() || texts_.front().capacity() < text.size()) {
            std::string longer;
            longer.reserve(std::max(2 * text.size(), least));
            texts_.push_front(std::move(longer));
        }
        return texts_.front().assign(text).data();
    }

  private:
    std::forward_list<std::string> texts_;  // the one in use first
};

}  // namespace wq
