/*
 * Bytes between two pages that nobody may touch: the byte after the last one, or the one before the
 * first, ends the process when it is read or written, with a sanitizer or without.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_GUARDED_BLOCK_H
#define WQEVENTS_TESTS_SUPPORT_GUARDED_BLOCK_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <system_error>

namespace wq::test {

/* Which end of the bytes touches a forbidden page. */
enum class Guard { before, after };

class GuardedBlock {
  public:
    GuardedBlock(std::span<const uint8_t> bytes, Guard guard)
        : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
          room_((bytes.size() / page_ + 1) * page_),
          area_(static_cast<uint8_t*>(
              mmap(nullptr, room_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        if (area_ == MAP_FAILED || mprotect(area_ + page_, room_, PROT_READ | PROT_WRITE) != 0) {
            throw std::system_error(errno, std::generic_category(), "guarded block");
        }
        data_ = area_ + page_ + (guard == Guard::after ? room_ - bytes.size() : 0);
        std::copy(bytes.begin(), bytes.end(), data_);
    }
    ~GuardedBlock() { munmap(area_, room_ + 2 * page_); }
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;

    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }

  private:
    size_t page_;
    size_t room_;
    uint8_t* area_;
    uint8_t* data_ = nullptr;
};

}  // namespace wq::test

#endif
