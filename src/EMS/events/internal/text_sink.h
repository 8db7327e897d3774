// Text written into a buffer of a given size: always terminated, cut where the room ends, and
// without printf.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace wq {

// Copies a run of one to two words as its first and its last word.
template <typename Word>
inline void copy_text_ends(char* to, const char* from, std::size_t length) {
    Word head;
    Word tail;
    std::memcpy(&head, from, sizeof head);
    std::memcpy(&tail, from + length - sizeof tail, sizeof tail);
    std::memcpy(to, &head, sizeof head);
    std::memcpy(to + length - sizeof tail, &tail, sizeof tail);
}

// Out of line: where the compiler knows a literal's size but not that the length is within it, it
// would warn of copies that never happen.
[[gnu::noinline]] inline void copy_long_text(char* to, const char* from, std::size_t length) {
    std::memcpy(to, from, length);
}

// Copies characters between areas that do not overlap; the short runs that most texts are take no
// call.
inline void copy_text(char* to, const char* from, std::size_t length) {
    if (length > 32) {
        copy_long_text(to, from, length);
    } else if (length > 16) {
        copy_text_ends<std::array<uint64_t, 2>>(to, from, length);
    } else if (length >= 8) {
        copy_text_ends<uint64_t>(to, from, length);
    } else if (length >= 4) {
        copy_text_ends<uint32_t>(to, from, length);
    } else if (length >= 2) {
        copy_text_ends<uint16_t>(to, from, length);
    } else if (length == 1) {
        *to = *from;
    }
}

inline constexpr std::string_view hex_digits = "0123456789abcdef";

// "00" to "99", two digits of a number at a time.
inline constexpr auto digit_pairs = [] {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// Decimal digits of `value`: of as many bits there is one number of digits, or one less.
inline std::size_t decimal_digits(uint32_t value) {
    constexpr std::array<uint32_t, 10> powers = {0,      10,      100,      1000,      10000,
                                                 100000, 1000000, 10000000, 100000000, 1000000000};
    const auto estimate = static_cast<std::size_t>(std::bit_width(value | 1)) * 1233 >> 12;
    return estimate + (value >= powers[estimate] ? 1 : 0);
}

// Writes the `digits` decimal digits of `value`.
inline void put_decimal(char* to, uint32_t value, std::size_t digits) {
    while (digits > 2) {
        digits -= 2;
        std::memcpy(to + digits, &digit_pairs[std::size_t{2} * (value % 100)], 2);
        value /= 100;
    }
    if (digits == 2) {
        std::memcpy(to, &digit_pairs[std::size_t{2} * value], 2);
    } else {
        *to = static_cast<char>('0' + value);
    }
}

class TextSink {
  public:
    // Starts with an empty text. Of the `size` bytes the last is for the terminator; where there is
    // no byte at all, or no buffer, nothing is ever written.
    TextSink(char* buffer, std::size_t size) : begin_(buffer), next_(buffer), last_(buffer) {
        if (buffer != nullptr && size != 0) {
            last_ = buffer + size - 1;
            terminated_ = true;
            terminate();
        }
    }

    [[nodiscard]] std::size_t length() const { return static_cast<std::size_t>(next_ - begin_); }
    // Characters that still fit; the terminator has its place beside them.
    [[nodiscard]] std::size_t room() const { return static_cast<std::size_t>(last_ - next_); }
    [[nodiscard]] std::string_view text() const { return {begin_, length()}; }
    // Where the next character goes. Who writes there itself, up to room() characters, tells by
    // advance() how many it has written.
    [[nodiscard]] char* position() const { return next_; }

    void advance(std::size_t count) {
        next_ += fits(count) ? count : room();
        terminate();
    }
    // Whether so many characters still fit. Whoever has to know asks here: what was refused once is
    // remembered, and so is text that was cut. If nothing was, the text is as it would be in a
    // larger buffer.
    [[nodiscard]] bool fits(std::size_t count) {
        if (count <= room()) [[likely]] {
            return true;
        }
        refuse();
        return false;
    }
    void refuse() { refused_ = true; }
    [[nodiscard]] bool has_refused() const { return refused_; }
    // Takes back all but the first `length` characters.
    void cut(std::size_t length) {
        next_ = begin_ + std::min(length, this->length());
        terminate();
    }

    void append(std::string_view text) {
        // A literal is copied without a look at its length.
        if (__builtin_constant_p(text.size()) && !text.empty() && text.size() <= room()) {
            std::memcpy(next_, text.data(), text.size());
            next_ += text.size();
            terminate();
            return;
        }
        const std::size_t count = fits(text.size()) ? text.size() : room();
        copy_text(next_, text.data(), count);
        next_ += count;
        terminate();
    }
    void append(char c) {
        if (fits(1)) {
            *next_++ = c;
            *next_ = '\0';
        }
    }
    // As "%u".
    void append_decimal(std::uint32_t value) {
        const std::size_t digits = decimal_digits(value);
        if (digits <= room()) [[likely]] {
            put_decimal(next_, value, digits);
            next_ += digits;
            terminate();
        } else {
            append_number(value, 10);
        }
    }
    // As "%d".
    void append_decimal(std::int32_t value) {
        const auto bits = static_cast<std::uint32_t>(value);
        if (value < 0) {
            append('-');
        }
        append_decimal(value < 0 ? 0 - bits : bits);
    }
    void append_decimal(std::int64_t value) {
        if (const auto narrow = static_cast<std::int32_t>(value); narrow == value) [[likely]] {
            append_decimal(narrow);
        } else {
            append_number(value, 10);
        }
    }
    // As "%lx".
    void append_hex(std::uint64_t value) { append_number(value, 16); }
    // As "%02x".
    void append_hex_pair(std::uint8_t octet) {
        append(hex_digits[octet >> 4]);
        append(hex_digits[octet & 0xF]);
    }

  private:
    static constexpr std::size_t longest_number = 20;  // of 64 bits, with a sign

    void terminate() {
        if (terminated_) {
            *next_ = '\0';
        }
    }

    template <typename Number>
    void append_number(Number value, int base) {
        std::array<char, longest_number> digits;
        const char* end =
            std::to_chars(digits.data(), digits.data() + digits.size(), value, base).ptr;
        append({digits.data(), static_cast<std::size_t>(end - digits.data())});
    }

    char* begin_;
    char* next_;
    char* last_;  // where the terminator of the longest text goes
    bool terminated_ = false;
    bool refused_ = false;
};

}  // namespace wq
