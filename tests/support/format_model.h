/*
 * What compiling a format text has to give, worked out step by step on the text itself, one
 * character at a time and without regard to cost: the compiler is compared with it.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_FORMAT_MODEL_H
#define WQEVENTS_TESTS_SUPPORT_FORMAT_MODEL_H

#include <wqevents/configuration.h>

#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace wq::test {

struct CompiledFormat {
    std::string format;
    std::vector<std::pair<int, int>> args = {}; /* kind and number */

    bool operator==(const CompiledFormat&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const CompiledFormat& compiled) {
    out << '"' << compiled.format << '"';
    for (const auto& [kind, number] : compiled.args) {
        out << " (" << kind << ", " << number << ")";
    }
    return out;
}

inline CompiledFormat contents_of(const trap_element& element) {
    CompiledFormat compiled{element.format};
    for (int i = 0; i < element.num_args; ++i) {
        compiled.args.emplace_back(element.arg_list[i].arg_type, element.arg_list[i].arg_num);
    }
    return compiled;
}

namespace format_model {

inline std::size_t size_at(const std::string& text, std::size_t at) {
    return std::mblen(text.c_str() + at, 2) == 2 ? 2 : 1;
}

/* The character at `at` as a number; 0 behind the text. */
inline int code_at(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    };
    return size_at(text, at) == 2 ? byte(at) << 8 | byte(at + 1) : byte(at);
}

inline bool are_digits(const std::string& text, std::size_t at, const char* digits) {
    const std::string set = digits;
    return at + 1 < text.size() && set.find(text[at]) != std::string::npos &&
           set.find(text[at + 1]) != std::string::npos;
}

/* Behind a backslash at `at`: gives what is to be written and moves on. */
inline std::string escape(const std::string& text, std::size_t& at) {
    const std::string plain = "\"'\\abfnrtv";
    const std::string meant = "\"'\\\a\b\f\n\r\t\v";
    const int code = code_at(text, at);
    if (code == 'x' && are_digits(text, at + 1, "0123456789abcdefABCDEF")) {
        at += 3;
        return {static_cast<char>(std::stoi(text.substr(at - 2, 2), nullptr, 16))};
    }
    if ((code == '0' || code == '1') && are_digits(text, at + 1, "01234567")) {
        at += 3;
        return {static_cast<char>(std::stoi(text.substr(at - 3, 3), nullptr, 8))};
    }
    at += code == 0 ? 0 : size_at(text, at);
    const std::size_t i = code < 0x80 ? plain.find(static_cast<char>(code)) : std::string::npos;
    return code == 0 || i == std::string::npos ? std::string() : meant.substr(i, 1);
}

inline int kind_of(int code) {
    const std::string letters = "AaCEeGSscldT*";
    const std::string numbered = "-+=Iit";
    if (code == '#' || code == 'L' || code == '%') {
        return code == '#' ? ARG_POUND : code == 'L' ? ARG_NUM_L : ARG_NUM_ZYN;
    }
    if (code == 0 || code > 0x7F) {
        return ARG_NUM;
    }
    if (const auto i = letters.find(static_cast<char>(code)); i != std::string::npos) {
        return static_cast<int>(i);
    }
    const auto i = numbered.find(static_cast<char>(code));
    return i != std::string::npos ? ARG_NUM_DEF + static_cast<int>(i) : ARG_NUM;
}

inline bool is_digit(int code) {
    return code >= '0' && code <= '9';
}

/*
 * The number of the token whose dollar sign is at `at`, or 0 where there is none. The text is
 * shortened to "$" and the last digit.
 */
inline int take_number(std::string& text, std::size_t at, int kind) {
    const std::size_t first = kind == ARG_NUM ? at + 1 : at + 2;
    if (!is_digit(code_at(text, first)) || text[first] == '0') {
        return 0;
    }
    int number = text[first] - '0';
    while (is_digit(code_at(text, first + 1))) {
        number = number > 80 ? number : number * 10 + (text[first + 1] - '0');
        text.erase(first, 1);
    }
    if (kind != ARG_NUM) {
        text.erase(at + 1, 1);
    }
    return number;
}

/* Treats the token whose dollar sign is at `at`; where the scan goes on. */
inline std::size_t treat_token(CompiledFormat& compiled, std::size_t at) {
    std::string& text = compiled.format;
    const int code = code_at(text, at + 1);
    if (code == '$') {
        text.erase(at + 1, 1);
        return at + 1;
    }
    const int kind = kind_of(code);
    const bool is_numbered = kind >= ARG_NUM && kind != ARG_POUND;
    const int number = is_numbered ? take_number(text, at, kind) : 0;
    if (is_numbered && (number == 0 || number > 80)) {
        return at + 1;
    }
    compiled.args.emplace_back(kind, number);
    text[at] = '%';
    text[at + 1] = 's';
    return at + 2;
}

}  // namespace format_model

/* interpreted: what interpret_esc_sequences() has to write, bytes behind a NUL included. */
inline std::string interpreted(const std::string& text) {
    using namespace format_model;
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const int code = code_at(text, at);
        const std::size_t size = size_at(text, at);
        if (code == '%') {
            out += "%%";
            at += code_at(text, at + 1) == '%' ? 2 : 1;
        } else if (code == '\\') {
            out += escape(text, ++at);
        } else {
            out += text.substr(at, size);
            at += size;
        }
    }
    return out;
}

/* compiled: what makeFormatString() has to make of `raw`. */
inline CompiledFormat compiled(std::string raw) {
    if (raw.size() > 4094) {
        raw = "Format string too long";
    }
    CompiledFormat result{interpreted(raw).c_str()}; /* to the first NUL */
    for (std::size_t at = 0; at < result.format.size();) {
        if (format_model::code_at(result.format, at) != '$') {
            at += format_model::size_at(result.format, at);
        } else if (result.args.size() + 1 >= 80) {
            break;
        } else {
            at = format_model::treat_token(result, at);
        }
    }
    return result;
}

}  // namespace wq::test

#endif
