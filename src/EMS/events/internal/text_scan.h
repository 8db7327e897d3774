// Walking over text by the characters of the current locale. The configuration's texts know
// characters of one and of two bytes: whatever else the locale may hold is walked byte by byte.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace wq {

// Bytes of the character at `at`: 1 or 2. The terminator counts as a character of one byte, and so
// does what is no character. In the encodings of the platform's locales an ASCII byte never begins
// a longer character, though it may be the second byte of one.
inline int character_size(const char* at) {
    if (static_cast<unsigned char>(at[0]) < 0x80 || at[1] == '\0' || MB_CUR_MAX == 1) [[likely]] {
        return 1;
    }
    return std::mblen(at, 2) == 2 ? 2 : 1;
}

// What a character compares as: its byte, or its two bytes as one number, which no single-byte
// delimiter equals.
inline int character_code(const char* at) {
    const int first = static_cast<unsigned char>(at[0]);
    if (character_size(at) == 1) [[likely]] {
        return first;
    }
    return first << 8 | static_cast<unsigned char>(at[1]);
}

// White space is a matter of single bytes: a two-byte character never is.
inline bool is_space(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// The first character of `text` that is no white space, or the terminator.
template <typename Char>
Char* skip_space(Char* text) {
    while (is_space(*text)) {
        ++text;
    }
    return text;
}

// Bytes of `text` up to its last character that is no white space.
inline std::size_t length_without_trailing_space(const char* text) {
    std::size_t length = 0;
    for (std::size_t i = 0; text[i] != '\0';) {
        const bool is_word = character_size(text + i) == 2 || !is_space(text[i]);
        i += static_cast<std::size_t>(character_size(text + i));
        length = is_word ? i : length;
    }
    return length;
}

inline void strip_trailing_space(char* text) {
    text[length_without_trailing_space(text)] = '\0';
}

inline void strip_leading_space(char* text) {
    const char* rest = skip_space(text);
    if (rest != text) {
        std::memmove(text, rest, std::strlen(rest) + 1);
    }
}

// What white space strip_text() removes; the numbers are those of _WQstrip_whitespace().
enum class Strip { leading = 0, trailing = 1, both = 2 };

inline void strip_text(char* text, Strip what) {
    if (what != Strip::leading) {
        strip_trailing_space(text);
    }
    if (what != Strip::trailing) {
        strip_leading_space(text);
    }
}

}  // namespace wq
