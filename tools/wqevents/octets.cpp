#include "octets.h"

#include "command.h"
#include "utf8.h"

namespace wq::command {
namespace {

int digit_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

bool is_printable(std::span<const std::uint8_t> octets) {
    std::string_view text(reinterpret_cast<const char*>(octets.data()), octets.size());
    while (!text.empty()) {
        const Character character = first_character(text);
        const bool space =
            character.code == '\t' || character.code == '\n' || character.code == '\r';
        if (character.size == 0 || (is_control(character.code) && !space)) {
            return false;
        }
        text.remove_prefix(character.size);
    }
    return true;
}

std::string to_text(std::span<const std::uint8_t> octets) {
    return {octets.begin(), octets.end()};
}

std::string to_hex(std::span<const std::uint8_t> octets) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(octets.size() * 3);
    for (const std::uint8_t octet : octets) {
        if (!text.empty()) {
            text += ' ';
        }
        text += digits[octet >> 4U];
        text += digits[octet & 0x0FU];
    }
    return text;
}

void HexDecoder::refuse(std::uint64_t position) const {
    throw UsageError(what_ + ": no pair of hexadecimal digits at position " +
                     std::to_string(position + 1) + "; write two digits an octet, as 30 2a 02");
}

void HexDecoder::decode(std::string_view piece, Octets& octets) {
    for (const char c : piece) {
        const int digit = digit_value(c);
        if (high_ >= 0) {
            if (digit < 0) {
                refuse(position_ - 1);
            }
            octets.push_back(static_cast<std::uint8_t>(high_ * 16 + digit));
            high_ = -1;
        } else if (digit >= 0) {
            high_ = digit;
        } else if (separators_.find(c) == std::string::npos) {
            refuse(position_);
        }
        ++position_;
    }
}

void HexDecoder::finish() const {
    if (high_ >= 0) {
        refuse(position_ - 1);
    }
}

Octets parse_hex(std::string_view what, std::string_view text, std::string_view separators) {
    Octets octets;
    HexDecoder decoder(what, separators);
    decoder.decode(text, octets);
    decoder.finish();
    return octets;
}

}  // namespace wq::command
