#include <wqevents/configuration.h>
#include <wqevents/formatter.h>
#include <wqplatform.h>

#include <algorithm>
#include <array>
#include <cwchar>

#include "EMS/events/nl_trp_values.h"

namespace wq {
namespace {

// Characters that have to fit, the terminator not counted:
constexpr std::size_t least_room = 9;           // for any identifier at all
constexpr std::size_t sub_identifier_room = 5;  // before each sub-identifier
constexpr std::size_t name_area = 2048;         // what sprint__objid() may write

// What nearly all names begin with and nobody wants to read, and the dot behind it. Names that
// begin otherwise lose as much: it is a matter of length only.
constexpr std::size_t common_prefix = std::string_view(".iso.org.dod.internet.").size();
constexpr std::size_t longest_name = 50;
constexpr std::size_t name_surplus = 3;  // characters that have to fit behind a name

bool is_ascii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Bytes of the first character, in the current locale, of a text that is not empty. What is no
// character counts as a character of one byte.
std::size_t first_character(std::string_view text) {
    std::mbstate_t initial{};
    const std::size_t size = std::mbrlen(text.data(), text.size(), &initial);
    return size >= 1 && size <= text.size() ? size : 1;
}

// Bytes of the first `count` characters, or of all where there are no more.
std::size_t bytes_of(std::string_view text, std::size_t count) {
    const std::string_view as_many_bytes = text.substr(0, count);
    if (is_ascii(as_many_bytes)) [[likely]] {
        return as_many_bytes.size();
    }
    std::size_t bytes = 0;
    for (; count != 0 && bytes < text.size(); --count) {
        bytes += first_character(text.substr(bytes));
    }
    return bytes;
}

std::size_t characters_in(std::string_view text) {
    if (is_ascii(text)) [[likely]] {
        return text.size();
    }
    std::size_t count = 0;
    for (; !text.empty(); ++count) {
        text.remove_prefix(first_character(text));
    }
    return count;
}

// The end of a long name, from a boundary between two of its parts on.
std::string_view shortened(std::string_view name) {
    const std::size_t count = name.size() <= longest_name ? 0 : characters_in(name);
    if (count <= longest_name) {
        return name;
    }
    name.remove_prefix(bytes_of(name, count - longest_name));
    const char* const dot = strchr_new(name.data(), '.');
    return dot != nullptr ? name.substr(static_cast<std::size_t>(dot + 1 - name.data())) : name;
}

// Appends the name that the MIB knows; false where it is too short to be one, or too long.
bool append_mib_name(TextSink& sink, std::span<const uint32_t> oid) {
    std::array<char, name_area> area;
    area.front() = '\0';
    sprint__objid(area.data(), oid.data(), static_cast<int>(oid.size()));
    area.back() = '\0';
    std::string_view name(area.data());
    if (const std::size_t prefix = bytes_of(name, common_prefix); prefix < name.size()) {
        name.remove_prefix(prefix);
    }
    if (name.empty() || bytes_of(name, 1) == name.size() ||
        !sink.fits(name.size() + name_surplus)) {
        return false;
    }
    sink.append(shortened(name));
    return true;
}

// Appends the name of the enterprise that covers `oid`. Returns the index of the sub-identifier
// that goes on from there: the name's length in characters, on which the operators' texts rely.
std::size_t append_enterprise_name(TextSink& sink, std::span<const uint32_t> oid) {
    const std::string_view name = configured_name(oid);
    if (name.data() == nullptr || !sink.fits(name.size() + 1)) {
        return 0;
    }
    sink.append(name);
    const std::size_t length = characters_in(name);
    if (length + 1 < oid.size()) {
        sink.append('.');
    }
    return std::min(length, oid.size());
}

// Sub-identifiers of less than ten, as most of them are, with dots between them, while there is no
// need to look at the room. Returns their number.
std::size_t append_digits(TextSink& sink, std::span<const uint32_t> numbers) {
    if (2 * numbers.size() + sub_identifier_room >= sink.room()) {
        return 0;
    }
    char* to = sink.position();
    std::size_t count = 0;
    for (; count < numbers.size() && numbers[count] < 10; ++count) {
        *to++ = static_cast<char>('0' + numbers[count]);
        *to++ = '.';
    }
    const bool is_whole = count != 0 && count == numbers.size();
    sink.advance(2 * count - (is_whole ? 1 : 0));
    return count;
}

void append_numbers(TextSink& sink, std::span<const uint32_t> numbers) {
    while (!numbers.empty() && sink.fits(sub_identifier_room)) {
        numbers = numbers.subspan(append_digits(sink, numbers));
        if (numbers.empty()) {
            return;
        }
        // As "%d": the operators' texts show sub-identifiers from 2^31 on below zero.
        sink.append_decimal(static_cast<int32_t>(numbers.front()));
        if (numbers.size() > 1) {
            sink.append('.');
        }
        numbers = numbers.subspan(1);
    }
}

}  // namespace

std::string_view configured_name(std::span<const uint32_t> oid) {
    enterprise_info* enterprise = nullptr;
    if (find_enterprise(oid.data(), static_cast<uint32_t>(oid.size()), &enterprise) != 0 ||
        enterprise == nullptr || enterprise->enterprise_name == nullptr) {
        return {};
    }
    return enterprise->enterprise_name;
}

void append_objid(TextSink& sink, std::span<const uint32_t> oid, bool by_name) {
    if (!sink.fits(least_room)) {
        return;
    }
    std::size_t start = 0;
    if (by_name) {
        if (append_mib_name(sink, oid)) {
            return;
        }
        start = append_enterprise_name(sink, oid);
    }
    append_numbers(sink, oid.subspan(start));
}

}  // namespace wq

void formatObjectID(char** buf_ptr, int* buflenptr, const uint32_t* obj, int len, int printName) {
    if (buf_ptr == nullptr || *buf_ptr == nullptr || buflenptr == nullptr || *buflenptr < 1 ||
        obj == nullptr) {
        return;
    }
    wq::TextSink sink(*buf_ptr, static_cast<std::size_t>(*buflenptr));
    const auto count = static_cast<std::size_t>(std::max(len, 0));
    wq::append_objid(sink, {obj, count}, printName != 0);
    *buf_ptr += sink.length();
    *buflenptr -= static_cast<int>(sink.length());
}
