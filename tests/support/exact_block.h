/*
 * A heap block of exactly the bytes asked for, also of none: what an address sanitizer needs to see
 * the first byte read or written behind it.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_EXACT_BLOCK_H
#define WQEVENTS_TESTS_SUPPORT_EXACT_BLOCK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace wq::test {

template <class T>
class ExactArray {
  public:
    explicit ExactArray(size_t size) : data_(std::make_unique<T[]>(size)), size_(size) {}
    explicit ExactArray(std::span<const T> values) : ExactArray(values.size()) {
        std::copy(values.begin(), values.end(), data_.get());
    }

    T* data() { return data_.get(); }
    const T* data() const { return data_.get(); }
    size_t size() const { return size_; }
    int length() const { return static_cast<int>(size_); }
    std::vector<T> first(size_t count) const { return {data(), data() + count}; }

  private:
    std::unique_ptr<T[]> data_;
    size_t size_;
};

using ExactBlock = ExactArray<uint8_t>;

}  // namespace wq::test

#endif
