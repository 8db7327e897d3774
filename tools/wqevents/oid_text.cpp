#include "oid_text.h"

#include <wqevents.h>

#include <charconv>

#include "command.h"

namespace wq::command {
namespace {

constexpr std::size_t content_octets_max = 128;

[[noreturn]] void refuse(std::string_view what, std::string_view text, const std::string& reason) {
    throw UsageError(std::string(what) + " " + quoted(text) + " " + reason);
}

std::uint32_t parse_arc(std::string_view what, std::string_view text, std::string_view arc) {
    std::uint32_t number = 0;
    const char* end = arc.data() + arc.size();
    const auto [stop, error] = std::from_chars(arc.data(), end, number);
    if (error != std::errc{} || stop != end) {
        refuse(what, text,
               "is not an object identifier: write dotted numbers from 0 to 4294967295, as "
               "1.3.6.1.4.1");
    }
    return number;
}

/* Octets of one sub-identifier, seven bits each (X.690 8.19.2). */
std::size_t octets_of(std::uint32_t arc) {
    std::size_t octets = 1;
    for (; arc >= 0x80; arc >>= 7) {
        ++octets;
    }
    return octets;
}

void check_encodable(std::string_view what, std::string_view text,
                     const std::vector<std::uint32_t>& oid) {
    if (oid.size() < 2 || oid.size() > EMS_OID_MAX) {
        refuse(what, text, "must have 2 to " + std::to_string(EMS_OID_MAX) + " numbers");
    }
    if (oid[0] > 2 || oid[1] > 127 || oid[0] * 40 + oid[1] > 127) {
        refuse(what, text,
               "must begin with 0, 1 or 2 and a second number of at most 127, 87 or 47");
    }
    std::size_t octets = 1;
    for (std::size_t i = 2; i < oid.size(); ++i) {
        octets += octets_of(oid[i]);
    }
    if (octets > content_octets_max) {
        refuse(what, text, "is too long: it would take more than 128 octets");
    }
}

}  // namespace

std::vector<std::uint32_t> parse_oid(std::string_view what, std::string_view text) {
    std::vector<std::uint32_t> oid;
    std::string_view rest = text.substr(text.starts_with('.') ? 1 : 0);
    for (;;) {
        const std::size_t dot = rest.find('.');
        oid.push_back(parse_arc(what, text, rest.substr(0, dot)));
        if (dot == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(dot + 1);
    }
    check_encodable(what, text, oid);
    return oid;
}

std::string oid_to_text(std::span<const std::uint32_t> oid) {
    std::string text;
    for (const std::uint32_t arc : oid) {
        if (!text.empty()) {
            text += '.';
        }
        text += std::to_string(arc);
    }
    return text;
}

}  // namespace wq::command
