#include <wqevents/configuration.h>
#include <wqevents/formatter.h>
#include <wqplatform.h>

#include <array>

#include "EMS/events/nl_trp_values.h"

namespace wq {
namespace {

constexpr std::size_t least_room = 10;          // for any identifier at all
constexpr std::size_t sub_identifier_room = 6;  // before each sub-identifier
constexpr std::size_t name_area = 2048;         // what sprint__objid() may write

// What nearly all names begin with and nobody wants to read, and the dot behind it. Names that
// begin otherwise lose as much: it is a matter of length only.
constexpr std::size_t common_prefix = std::string_view(".iso.org.dod.internet.").size();
constexpr std::size_t longest_name = 50;
constexpr std::size_t name_surplus = 3;  // characters that have to fit behind a name

// The end of a long name, from a boundary between two of its parts on.
const char* shortened(const char* name, std::size_t length) {
    if (length <= longest_name) {
        return name;
    }
    const char* end_part = name + length - longest_name;
    const char* dot = strchr_new(end_part, '.');
    return dot != nullptr ? dot + 1 : end_part;
}

// Appends the name that the MIB knows; false where it is too short to be one, or too long.
bool append_mib_name(TextSink& sink, std::span<const uint32_t> oid) {
    std::array<char, name_area> area;
    area.front() = '\0';
    sprint__objid(area.data(), oid.data(), static_cast<int>(oid.size()));
    area.back() = '\0';
    const char* name = area.data();
    std::size_t length = std::strlen(name);
    if (length > common_prefix) {
        name += common_prefix;
        length -= common_prefix;
    }
    if (length <= 1 || length + name_surplus > sink.room()) {
        return false;
    }
    sink.append(shortened(name, length));
    return true;
}

// Appends the name of the enterprise that covers `oid`. Returns the index of the sub-identifier
// that goes on from there: the name's length, which the operators' texts have always relied on.
std::size_t append_enterprise_name(TextSink& sink, std::span<const uint32_t> oid) {
    const std::string_view name = configured_name(oid);
    if (name.data() == nullptr || name.size() + 1 > sink.room()) {
        return 0;
    }
    sink.append(name);
    if (name.size() + 1 < oid.size()) {
        sink.append('.');
    }
    return std::min(name.size(), oid.size());
}

// Sub-identifiers of less than ten, as most of them are, with dots between them, while there is no
// need to look at the room. Returns their number.
std::size_t append_digits(TextSink& sink, std::span<const uint32_t> numbers) {
    if (2 * numbers.size() + sub_identifier_room > sink.room()) {
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
    while (!numbers.empty() && sink.room() + 1 >= sub_identifier_room) {
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
    if (sink.room() + 1 < least_room) {
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

void formatObjectID(char** buf_ptr, int* buflenptr, const uint32_t* obj, int len,
                    int printName) WQEVENTS_NOEXCEPT {
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
