/*
 * Test vectors: text tables under tests/vectors/, a case a line.
 *
 * Columns are separated by '|', blanks around a column do not matter, '#' starts a comment line. A
 * column in double quotes keeps its blanks, and "\n" in it is a newline.
 *
 * Bytes are written by ber(): hexadecimal digits; 'text' for its characters; 61*200 for a byte
 * repeated; and (...) for contents preceded by their length in the shortest form, so that
 * "30(02(00) 04('public'))" is a SEQUENCE of an INTEGER and an OCTET STRING.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_VECTORS_H
#define WQEVENTS_TESTS_SUPPORT_VECTORS_H

#include <cctype>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/hex.h"

namespace wq::test {

struct Vector {
    std::string where; /* "file:line" */
    std::vector<std::string> columns;

    const std::string& operator[](size_t i) const { return columns.at(i); }
};

inline std::string trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

inline std::string unquoted(const std::string& column) {
    if (column.size() < 2 || column.front() != '"' || column.back() != '"') {
        return column;
    }
    std::string text;
    for (size_t i = 1; i + 1 < column.size(); ++i) {
        if (column.compare(i, 2, "\\n") == 0) {
            text += '\n';
            ++i;
        } else {
            text += column[i];
        }
    }
    return text;
}

inline std::vector<std::string> split(std::string_view line, char separator) {
    std::vector<std::string> parts(1);
    char quote = 0;
    for (const char c : line) {
        if (quote == 0 && c == separator) {
            parts.emplace_back();
            continue;
        }
        if (quote == 0 && c == '"') {
            quote = c;
        } else if (quote == c) {
            quote = 0;
        }
        parts.back() += c;
    }
    return parts;
}

/* The rows of tests/vectors/`name`; a row without exactly `columns` columns is an error. */
inline std::vector<Vector> read_vectors(const std::string& name, size_t columns) {
    std::ifstream file(std::string(WQEVENTS_TEST_DATA "/vectors/") + name);
    std::vector<Vector> rows;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (trimmed(line).empty() || trimmed(line).front() == '#') {
            continue;
        }
        Vector row{name + ":" + std::to_string(number), {}};
        for (const std::string& part : split(line, '|')) {
            row.columns.push_back(unquoted(trimmed(part)));
        }
        if (row.columns.size() != columns) {
            throw std::runtime_error(row.where + ": wrong number of columns");
        }
        rows.push_back(row);
    }
    if (rows.empty()) {
        throw std::runtime_error(name + ": no vectors");
    }
    return rows;
}

/* A length field in its shortest form (X.690 8.1.3). */
inline Bytes ber_length(size_t length) {
    if (length < 0x80) {
        return {static_cast<uint8_t>(length)};
    }
    Bytes octets;
    for (size_t rest = length; rest != 0; rest >>= 8) {
        octets.insert(octets.begin(), static_cast<uint8_t>(rest));
    }
    octets.insert(octets.begin(), static_cast<uint8_t>(0x80 | octets.size()));
    return octets;
}

inline Bytes& append(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
    return to;
}

/* One item: the identifier octet, the length of the contents, the contents. */
inline Bytes tlv(uint8_t tag, const Bytes& contents) {
    Bytes item{tag};
    append(item, ber_length(contents.size()));
    return append(item, contents);
}

/* `text` from `at` up to a closing parenthesis or the end; `at` is left on it. */
inline Bytes ber_items(std::string_view text, size_t& at) {
    Bytes bytes;
    while (at < text.size() && text[at] != ')') {
        const char c = text[at];
        if (std::isspace(static_cast<unsigned char>(c)) != 0) {
            ++at;
        } else if (c == '(') {
            const Bytes contents = ber_items(text, ++at);
            if (at++ >= text.size()) {
                throw std::invalid_argument("parenthesis left open: " + std::string(text));
            }
            append(append(bytes, ber_length(contents.size())), contents);
        } else if (c == '\'') {
            const size_t end = text.find('\'', at + 1);
            const std::string_view characters = text.substr(at + 1, end - at - 1);
            bytes.insert(bytes.end(), characters.begin(), characters.end());
            at = end + 1;
        } else if (c == '*') {
            const std::string digits(text.substr(at + 1, text.find_first_of(" )", at) - at - 1));
            bytes.resize(bytes.size() - 1 + std::stoul(digits), bytes.back());
            at += 1 + digits.size();
        } else {
            append(bytes, from_hex(text.substr(at, 2)));
            at += 2;
        }
    }
    return bytes;
}

inline Bytes ber(std::string_view text) {
    size_t at = 0;
    Bytes bytes = ber_items(text, at);
    if (at != text.size()) {
        throw std::invalid_argument("parenthesis never opened: " + std::string(text));
    }
    return bytes;
}

/* A number as written in a table: decimal, possibly negative, or hexadecimal with 0x. */
inline int64_t number(const std::string& text) {
    return std::stoll(text, nullptr, 0);
}

using Oid = std::vector<uint32_t>;

inline Oid oid(const std::string& dotted) {
    Oid result;
    if (!dotted.empty()) {
        for (const std::string& part : split(dotted, '.')) {
            result.push_back(static_cast<uint32_t>(std::stoul(part)));
        }
    }
    return result;
}

inline std::string dotted(const uint32_t* oid, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        if (i != 0) {
            text += '.';
        }
        text += std::to_string(oid[i]);
    }
    return text;
}

}  // namespace wq::test

#endif
