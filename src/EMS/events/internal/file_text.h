// Files that are read whole, so that what is taken from them is one state of the file and never a
// part of one.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "EMS/events/internal/fd.h"

namespace wq {

// The first line of a configuration file while it is being written, and after a writer was killed.
inline constexpr std::string_view unfinished_mark = "!\n";

// Opens a file for reading and never waits for it: a FIFO without a writer is an empty file. A
// directory cannot be opened (EISDIR), nor can null (EINVAL). On failure errno says why.
Fd open_for_reading(const char* path);

// fopen(), but programs that this one starts do not inherit the stream.
Stream open_stream(const char* path, std::string_view mode);

struct ReadLimits {
    // No reader goes on after a longer line, so that nothing after it is read.
    std::size_t longest_line = std::numeric_limits<std::size_t>::max();
    // A pipe whose writer says nothing for so long has ended.
    int patience_ms = 1000;
};

class FileText {
  public:
    // Bytes of the largest file that is read, and of the largest text of a pipe or a device. What
    // is larger fails with EFBIG.
    static constexpr std::size_t largest_file = std::size_t{512} << 20;
    static constexpr std::size_t largest_stream = std::size_t{64} << 20;

    FileText() = default;
    FileText(FileText&& other) noexcept { swap(other); }
    FileText& operator=(FileText&& other) noexcept {
        FileText gone(std::move(other));
        swap(gone);
        return *this;
    }

    // Reads the file that `fd` is open on, from its beginning. A read during which the file changes
    // is repeated, at most 5 times; then it fails with EBUSY. On failure errno says why, and the
    // text is empty.
    bool read(int fd, const ReadLimits& limits = {});
    // Likewise for the file of that name.
    bool read(const char* path, const ReadLimits& limits = {});

    std::string_view view() const { return {bytes_.get(), size_}; }
    bool holds_nul() const { return holds_nul_; }
    // Whether the file is one that a writer has marked as unfinished.
    bool is_unfinished() const { return view().starts_with(unfinished_mark); }

  private:
    struct Free {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    bool make_room(std::size_t wanted);
    bool append_block(int fd, const ReadLimits& limits, std::size_t& got);
    bool append_all(int fd, const ReadLimits& limits, std::size_t largest);
    bool read_file(int fd, const ReadLimits& limits);
    void clear();
    void swap(FileText& other) noexcept {
        std::swap(bytes_, other.bytes_);
        std::swap(room_, other.room_);
        std::swap(size_, other.size_);
        std::swap(holds_nul_, other.holds_nul_);
    }

    enum class Attempt { whole, changed, failed };
    Attempt read_once(int fd, const ReadLimits& limits);
    Attempt read_again(int fd, const ReadLimits& limits) const;

    std::unique_ptr<char, Free> bytes_;
    std::size_t room_ = 0;
    std::size_t size_ = 0;
    bool holds_nul_ = false;
};

}  // namespace wq
