#include <wqevents/configuration.h>
#include <wqevents/trace.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "EMS/events/internal/text_scan.h"
#include "EMS/events/internal/text_sink.h"
#include "EMS/events/nl_trapspec.h"

int trpFormatDontMallocRaw = 0;

namespace wq {
namespace {

/* The longest format text. Longer ones give way to a message, so that every trap is logged. */
constexpr std::size_t raw_max = 4094;

/* Tokens that are recorded at most; the list of arguments keeps one entry spare. */
constexpr int tokens_max = EMS_ARGS_MAX - 1;

/* Sets the high bit of each octet of `word` that is `c`, and maybe of octets above the lowest. */
constexpr uint64_t octets_equal(uint64_t word, char c) {
    constexpr uint64_t ones = 0x0101010101010101;
    const uint64_t zero_where_equal = word ^ (ones * static_cast<unsigned char>(c));
    return (zero_where_equal - ones) & ~zero_where_equal;
}

/*
 * The first byte from `text` on, or `end`, that is one of `special` or may begin a two-byte
 * character. Most texts have few of them, so eight bytes are looked at in one go.
 */
template <char... special>
const char* find_special(const char* text, const char* end) {
    constexpr uint64_t high_bits = 0x8080808080808080;
    while (std::endian::native == std::endian::little && end - text >= 8) {
        uint64_t word = 0;
        std::memcpy(&word, text, sizeof word);
        const uint64_t found = (word | (octets_equal(word, special) | ...)) & high_bits;
        if (found != 0) {
            return text + std::countr_zero(found) / 8;
        }
        text += sizeof word;
    }
    while (text != end && static_cast<unsigned char>(*text) < 0x80 && ((*text != special) && ...)) {
        ++text;
    }
    return text;
}

/* A text being read, up to its terminator at `end`, and the place where the result goes. */
struct Transcript {
    const char* from;
    const char* end;
    char* to;
};

void put(Transcript& t, char c) {
    *t.to++ = c;
}

void copy(Transcript& t, std::size_t length) {
    copy_text(t.to, t.from, length);
    t.from += length;
    t.to += length;
}

/* Copies up to the next special byte; false where the text ends before there is one. */
template <char... special>
bool copy_to_special(Transcript& t) {
    for (;;) {
        copy(t, static_cast<std::size_t>(find_special<special...>(t.from, t.end) - t.from));
        if (static_cast<unsigned char>(*t.from) < 0x80) {
            return t.from != t.end;
        }
        copy(t, static_cast<std::size_t>(character_size(t.from)));
    }
}

/* What the character behind a backslash stands for; 0 for those that stand for nothing. */
constexpr std::array<char, 128> simple_escapes = [] {
    constexpr char pairs[][2] = {{'"', '"'},  {'\'', '\''}, {'\\', '\\'}, {'a', '\a'}, {'b', '\b'},
                                 {'f', '\f'}, {'n', '\n'},  {'r', '\r'},  {'t', '\t'}, {'v', '\v'}};
    std::array<char, 128> table{};
    for (const auto& pair : pairs) {
        table[static_cast<unsigned char>(pair[0])] = pair[1];
    }
    return table;
}();

constexpr int digit_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : 16;
}

/* The number of two digits of the base, or -1. */
int two_digits(const char* digits, int base) {
    const int high = digit_value(digits[0]);
    const int low = high < base ? digit_value(digits[1]) : base;
    return low < base ? high * base + low : -1;
}

/*
 * The byte that the digits behind \x, \0 or \1 name, or -1 where there are too few of them: that is
 * a pair like any other that means nothing.
 */
int numeric_escape(const char* pair) {
    switch (pair[0]) {
        case 'x':
            return two_digits(pair + 1, 16);
        case '0':
            return two_digits(pair + 1, 8);
        case '1': {
            const int rest = two_digits(pair + 1, 8);
            return rest < 0 ? -1 : 0100 + rest;
        }
        default:
            return -1;
    }
}

/* Behind a backslash: writes what it and the next character stand for. */
void interpret_pair(Transcript& t) {
    const auto c = static_cast<unsigned char>(*t.from);
    const char simple = c < simple_escapes.size() ? simple_escapes[c] : '\0';
    if (simple != '\0') {
        put(t, simple);
    } else if (const int byte = numeric_escape(t.from); byte >= 0) {
        put(t, static_cast<char>(byte));
        t.from += 2;
    }
    if (t.from != t.end) {
        t.from += character_size(t.from);
    }
}

/* Interprets the escapes of `length` bytes. An escape of zero is written like any other. */
void interpret(const char* in, std::size_t length, char* out) {
    Transcript t{in, in + length, out};
    while (copy_to_special<'%', '\\'>(t)) {
        if (*t.from++ == '\\') {
            interpret_pair(t);
            continue;
        }
        /* A percent sign, written once or twice: a literal one for the expansion to come. */
        t.from += *t.from == '%' ? 1 : 0;
        put(t, '%');
        put(t, '%');
    }
    put(t, '\0');
}

struct Token {
    char letter; /* behind the dollar sign */
    substitute_arg kind;
};

constexpr Token tokens[] = {
    {'A', ARG_A},       {'a', ARG_a},        {'C', ARG_C},        {'E', ARG_E},
    {'e', ARG_e},       {'G', ARG_G},        {'S', ARG_S},        {'s', ARG_SX},
    {'c', ARG_CONTACT}, {'l', ARG_LOCATION}, {'d', ARG_DESC},     {'T', ARG_T},
    {'*', ARG_STAR},    {'-', ARG_NUM_DEF},  {'+', ARG_NUM_PLUS}, {'=', ARG_NUM_EQ},
    {'I', ARG_NUM_I},   {'i', ARG_NUM_i},    {'t', ARG_NUM_t},    {'#', ARG_POUND},
    {'L', ARG_NUM_L},   {'%', ARG_NUM_ZYN},
};

/* The kind by the byte behind the dollar sign: what stands for no kind may be a digit of $N. */
constexpr std::array<unsigned char, 256> kinds = [] {
    std::array<unsigned char, 256> table{};
    for (unsigned char& kind : table) {
        kind = ARG_NUM;
    }
    for (const Token& token : tokens) {
        table[static_cast<unsigned char>(token.letter)] = token.kind;
    }
    return table;
}();

constexpr bool has_number(int kind) {
    return kind >= ARG_NUM && kind != ARG_POUND;
}

void record(trap_element& element, Transcript& t, int kind, int number) {
    element.arg_list[element.num_args++] = {number, kind};
    put(t, '%');
    put(t, 's');
}

/* Reads a number of any length; one that is too large for a token just stays so. */
int read_number(Transcript& t) {
    int number = 0;
    while (*t.from >= '0' && *t.from <= '9') {
        number = std::min(number * 10 + (*t.from++ - '0'), EMS_ARGS_MAX + 1);
    }
    return number;
}

/* At a dollar sign: records the token that begins there, or leaves what there is of it. */
void compile_token(trap_element& element, Transcript& t) {
    const char* behind = t.from + 1;
    const int kind = kinds[static_cast<unsigned char>(*behind)];
    const char* digits = kind == ARG_NUM ? behind : behind + 1;
    if (*behind == '$') {
        put(t, '$');
        t.from = behind + 1;
    } else if (!has_number(kind)) {
        record(element, t, kind, 0);
        t.from = behind + 1;
    } else if (*digits < '1' || *digits > '9') {
        put(t, '$');
        t.from = behind;
    } else {
        t.from = digits;
        const int number = read_number(t);
        if (number <= EMS_ARGS_MAX) {
            record(element, t, kind, number);
        } else {
            /* The number is shown by its last digit; formats in the field rely on it. */
            put(t, '$');
            put(t, t.from[-1]);
        }
    }
}

/* Replaces the tokens of `length` bytes, which `out` has room for, too. */
void compile_tokens(trap_element& element, const char* in, std::size_t length, char* out) {
    Transcript t{in, in + length, out};
    while (element.num_args < tokens_max && copy_to_special<'$'>(t)) {
        compile_token(element, t);
    }
    copy(t, static_cast<std::size_t>(t.end - t.from));
    put(t, '\0');
}

/* The length of a format text; one that is too long is first replaced by the message. */
std::size_t limit_length(char* raw) {
    const std::size_t length = std::strlen(raw);
    if (length <= raw_max) {
        return length;
    }
    const char* message = _eventsMsg(1, 6, "Format string too long");
    const std::size_t shorter = strnlen(message, raw_max);
    std::memcpy(raw, message, shorter);
    raw[shorter] = '\0';
    return shorter;
}

void keep_raw(trap_element& element, char* raw) {
    if (element.rawstring != raw) {
        doFree(element.rawstring);
    }
    element.rawstring = raw;
    if (trpFormatDontMallocRaw != 0) {
        element.rawstring = nullptr;
        doFree(raw);
    }
}

}  // namespace

void compile_format(char* raw, trap_element& element, void* (*allocate)(std::size_t)) {
    char work[2 * raw_max + 1]; /* every character may be a percent sign */
    interpret(raw, limit_length(raw), work);
    const std::size_t length = std::strlen(work); /* an escape may have ended it early */
    keep_raw(element, raw);
    doFree(element.format);
    element.num_args = 0;
    element.format = static_cast<char*>(allocate(length + 1));
    compile_tokens(element, work, length, element.format);
}

}  // namespace wq

void makeFormatString(char* raw, trap_element* element) {
    if (raw != nullptr && element != nullptr) {
        wq::compile_format(raw, *element, doMalloc);
    }
}

void interpret_esc_sequences(const char* in, char* out) {
    if (in != nullptr && out != nullptr) {
        wq::interpret(in, std::strlen(in), out);
    }
}

void suck_a_char(char* position) {
    if (position != nullptr && *position != '\0') {
        const char* rest = position + wq::character_size(position);
        std::memmove(position, rest, std::strlen(rest) + 1);
    }
}
