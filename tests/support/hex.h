/*
 * Bytes written as hexadecimal text, "30 82 01", and back. Blanks between the digits do not matter.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_HEX_H
#define WQEVENTS_TESTS_SUPPORT_HEX_H

#include <cctype>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace wq::test {

using Bytes = std::vector<uint8_t>;

inline unsigned hex_digit(char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const size_t at = digits.find(lower);
    if (at == std::string_view::npos) {
        throw std::invalid_argument(std::string("not a hexadecimal digit: ") + c);
    }
    return static_cast<unsigned>(at);
}

inline Bytes from_hex(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0) {
            digits += c;
        }
    }
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd number of hexadecimal digits: " + std::string(text));
    }
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(hex_digit(digits[i]) << 4 | hex_digit(digits[i + 1])));
    }
    return bytes;
}

inline std::string to_hex(std::span<const uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ' ';
        }
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace wq::test

#endif
