#include "octets.h"

#include <array>

#include "command.h"

namespace wq::command {
namespace {

/* The lead octets of UTF-8 (RFC 3629 4): how many octets follow, and the second one's range. */
struct Lead {
    std::uint8_t from, to;
    unsigned following;
    std::uint8_t low, high;
};

constexpr std::array leads = {
    Lead{0x20, 0x7E, 0, 0, 0},
    Lead{'\t', '\n', 0, 0, 0},
    Lead{'\r', '\r', 0, 0, 0},
    // 0xC2 0x80 to 0xC2 0x9F are the control characters of ISO 6429's upper half.
    Lead{0xC2, 0xC2, 1, 0xA0, 0xBF},
    Lead{0xC3, 0xDF, 1, 0x80, 0xBF},
    Lead{0xE0, 0xE0, 2, 0xA0, 0xBF},
    Lead{0xE1, 0xEC, 2, 0x80, 0xBF},
    Lead{0xED, 0xED, 2, 0x80, 0x9F},
    Lead{0xEE, 0xEF, 2, 0x80, 0xBF},
    Lead{0xF0, 0xF0, 3, 0x90, 0xBF},
    Lead{0xF1, 0xF3, 3, 0x80, 0xBF},
    Lead{0xF4, 0xF4, 3, 0x80, 0x8F},
};

const Lead* find_lead(std::uint8_t octet) {
    for (const Lead& lead : leads) {
        if (octet >= lead.from && octet <= lead.to) {
            return &lead;
        }
    }
    return nullptr;
}

bool follows(const Lead& lead, std::span<const std::uint8_t> octets) {
    if (octets.size() < lead.following) {
        return false;
    }
    for (unsigned i = 0; i < lead.following; ++i) {
        const std::uint8_t low = i == 0 ? lead.low : 0x80;
        const std::uint8_t high = i == 0 ? lead.high : 0xBF;
        if (octets[i] < low || octets[i] > high) {
            return false;
        }
    }
    return true;
}

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
    while (!octets.empty()) {
        const Lead* lead = find_lead(octets.front());
        octets = octets.subspan(1);
        if (lead == nullptr || !follows(*lead, octets)) {
            return false;
        }
        octets = octets.subspan(lead->following);
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

Octets parse_hex(std::string_view what, std::string_view text, std::string_view separators) {
    Octets octets;
    for (std::size_t i = 0; i < text.size();) {
        if (separators.find(text[i]) != std::string_view::npos) {
            ++i;
            continue;
        }
        const int high = digit_value(text[i]);
        const int low = i + 1 < text.size() ? digit_value(text[i + 1]) : -1;
        if (high < 0 || low < 0) {
            throw UsageError(std::string(what) + ": no pair of hexadecimal digits at position " +
                             std::to_string(i + 1) + "; write two digits an octet, as 30 2a 02");
        }
        octets.push_back(static_cast<std::uint8_t>(high * 16 + low));
        i += 2;
    }
    return octets;
}

}  // namespace wq::command
