#include <wqplatform.h>

#include <langinfo.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "platform/multibyte.h"
#include "platform/weak.h"

namespace wq {
namespace {

/*
 * Bytes of the character at `s`, 0 at the terminator. What is no character counts as a character of
 * one byte, so that damaged text is still walked to its end.
 */
size_t character_length(const char* s) {
    if (*s == '\0') {
        return 0;
    }
    std::mbstate_t initial{};
    const size_t room = strnlen(s, MB_CUR_MAX);
    const size_t length = std::mbrlen(s, room, &initial);
    return length >= 1 && length <= room ? length : 1;
}

bool is_ascii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}

/*
 * No byte inside a multibyte character can be mistaken for one of `set`, so that they may be looked
 * for as bytes. Two-byte encodings do not have that property: their second bytes reach into ASCII.
 */
bool are_unambiguous(std::string_view set) {
    return MB_CUR_MAX == 1 || (std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0 &&
                               std::all_of(set.begin(), set.end(), is_ascii));
}

bool contains_character(const char* set, const char* character, size_t length) {
    for (size_t n = 0; (n = character_length(set)) != 0; set += n) {
        if (n == length && std::memcmp(set, character, length) == 0) {
            return true;
        }
    }
    return false;
}

/* Walks over the characters of `s` that are in `set`, or over those that are not. */
char* skip(char* s, const char* set, bool those_in_set) {
    if (are_unambiguous(set)) {
        return s + (those_in_set ? std::strspn(s, set) : std::strcspn(s, set));
    }
    for (size_t n = 0; (n = character_length(s)) != 0; s += n) {
        if (contains_character(set, s, n) != those_in_set) {
            break;
        }
    }
    return s;
}

/* Null before every text; 0 where both are there and have to be compared. */
int compare_presence(const char* a, const char* b) {
    return (a != nullptr ? 1 : 0) - (b != nullptr ? 1 : 0);
}

}  // namespace

const char* find_character(const char* s, char c) {
    if (c == '\0' || are_unambiguous({&c, 1})) {
        return std::strchr(s, c);
    }
    for (size_t n = 0; (n = character_length(s)) != 0; s += n) {
        if (n == 1 && *s == c) {
            return s;
        }
    }
    return nullptr;
}

char* next_token(char* s, const char* delimiters, char*& rest) {
    char* from = s != nullptr ? s : rest;
    if (from == nullptr || delimiters == nullptr) {
        return nullptr;
    }
    char* token = skip(from, delimiters, true);
    if (*token == '\0') {
        rest = nullptr;
        return nullptr;
    }
    char* end = skip(token, delimiters, false);
    const size_t delimiter = character_length(end);
    *end = '\0';
    rest = end + delimiter;
    return token;
}

}  // namespace wq

WQ_STAND_IN size_t strlen_new(const char* s) {
    return s != nullptr ? std::strlen(s) : 0;
}

WQ_STAND_IN char* strcpy_new(char* to, const char* from) {
    return to != nullptr && from != nullptr ? std::strcpy(to, from) : nullptr;
}

WQ_STAND_IN char* strncpy_new(char* to, const char* from, size_t n) {
    if (to == nullptr || from == nullptr) {
        return nullptr;
    }
    const size_t length = strnlen(from, n);
    std::memcpy(to, from, length);
    std::memset(to + length, 0, n - length);
    return to;
}

WQ_STAND_IN char* strcat_new(char* to, const char* from) {
    return to != nullptr && from != nullptr ? std::strcat(to, from) : nullptr;
}

WQ_STAND_IN int strcmp_new(const char* a, const char* b) {
    return a != nullptr && b != nullptr ? std::strcmp(a, b) : wq::compare_presence(a, b);
}

WQ_STAND_IN int strncmp_new(const char* a, const char* b, size_t n) {
    return a != nullptr && b != nullptr ? std::strncmp(a, b, n) : wq::compare_presence(a, b);
}

WQ_STAND_IN int strcoll_new(const char* a, const char* b) {
    return a != nullptr && b != nullptr ? std::strcoll(a, b) : wq::compare_presence(a, b);
}

WQ_STAND_IN char* strchr_new(const char* s, int c) {
    return s != nullptr ? const_cast<char*>(wq::find_character(s, static_cast<char>(c))) : nullptr;
}

WQ_STAND_IN char* strdup_new(const char* s) {
    return s != nullptr ? strdup(s) : nullptr;
}

WQ_STAND_IN char* nl_strtok_mod(char* s, const char* delimiters) {
    static thread_local char* rest = nullptr;
    return wq::next_token(s, delimiters, rest);
}
