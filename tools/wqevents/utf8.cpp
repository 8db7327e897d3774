// The decoder of UTF-8.
#include "utf8.h"

#include <array>
#include <cstdint>

namespace wq::command {
namespace {

// By the number of octets: what fewer octets could have held is ill-formed.
constexpr std::array<char32_t, 5> lowest = {0, 0, 0x80, 0x800, 0x10000};

std::size_t size_by_lead(std::uint8_t lead) {
    if (lead < 0xC0) {
        return 0;
    }
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : 0;
}

bool is_well_formed(const Character& character) {
    const char32_t code = character.code;
    return code >= lowest[character.size] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

}  // namespace

Character first_character(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    const auto lead = static_cast<std::uint8_t>(text[0]);
    if (lead < 0x80) {
        return {1, lead};
    }
    const std::size_t size = size_by_lead(lead);
    if (size == 0 || size > text.size()) {
        return {};
    }
    Character character{size, lead & (0x7FU >> size)};
    for (const char c : text.substr(1, size - 1)) {
        const auto octet = static_cast<std::uint8_t>(c);
        if ((octet & 0xC0U) != 0x80) {
            return {};
        }
        character.code = character.code << 6U | (octet & 0x3FU);
    }
    return is_well_formed(character) ? character : Character{};
}

}  // namespace wq::command
