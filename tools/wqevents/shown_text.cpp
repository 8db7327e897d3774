// Escapes what could steer a terminal or forge a line.
#include "shown_text.h"

#include <algorithm>
#include <cstdint>

#include "utf8.h"

namespace wq::command {
namespace {

void append_escaped(std::string& out, std::string_view octets) {
    constexpr std::string_view digits = "0123456789abcdef";
    for (const char c : octets) {
        const auto octet = static_cast<std::uint8_t>(c);
        out.append("\\x").append(1, digits[octet >> 4U]).append(1, digits[octet & 0x0FU]);
    }
}

void append_shown(std::string& out, std::string_view text, bool newlines_stay) {
    while (!text.empty()) {
        const Character character = first_character(text);
        const bool stays =
            character.code == '\t' || (character.code == '\n' && newlines_stay) ||
            (character.size > 0 && !is_control(character.code) && !is_order(character.code));
        const std::string_view octets = text.substr(0, std::max<std::size_t>(1, character.size));
        if (stays) {
            out += octets;
        } else {
            append_escaped(out, octets);
        }
        text.remove_prefix(octets.size());
    }
}

// Without a way out of the loop, which lets the compiler take many octets at once.
bool is_plain(std::string_view lines) {
    unsigned others = 0;
    for (const char c : lines) {
        const auto octet = static_cast<std::uint8_t>(c);
        const bool printable = octet >= 0x20 && octet < 0x7F;
        others |= static_cast<unsigned>(!printable && octet != '\t' && octet != '\n');
    }
    return others == 0;
}

}  // namespace

std::string shown(std::string_view text) {
    if (is_plain(text) && text.find('\n') == std::string_view::npos) {
        return std::string(text);
    }
    std::string out;
    append_shown(out, text, false);
    return out;
}

void show_lines(std::string& lines) {
    if (is_plain(lines)) {
        return;
    }
    std::string out;
    append_shown(out, lines, true);
    lines.swap(out);
}

std::string indented(std::string_view text) {
    std::string out;
    for (const char c : text) {
        out += c;
        if (c == '\n') {
            out += '\t';
        }
    }
    return out;
}

}  // namespace wq::command
