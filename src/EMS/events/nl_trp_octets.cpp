#include <wqevents/formatter.h>
#include <wqevents/trace.h>

#include <array>
#include <bit>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <string>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "EMS/events/nl_trp_values.h"

int strictHex = 0;

namespace wq {
namespace {

// Room that is kept behind a text, for its terminator and whatever the caller goes on with.
constexpr std::size_t least_room = 4;
constexpr std::size_t hex_cost = 3;  // of an octet: its digits and a blank

constexpr uint8_t first_non_ascii = 0x80;
constexpr uint8_t del = 0x7F;

std::string_view as_text(std::span<const uint8_t> octets) {
    return {reinterpret_cast<const char*>(octets.data()), octets.size()};
}

// The locales of the C library are supersets of ASCII: its bytes are characters of their own where
// a character begins, and the same ones are printable and white space in each of them.
constexpr bool is_ascii_space(uint8_t byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}
// Whether an ASCII character counts as printable: white space does, unless `strict`.
constexpr bool is_printable_ascii(uint8_t byte, bool strict) {
    return strict ? byte > ' ' && byte < del : (byte >= ' ' && byte < del) || is_ascii_space(byte);
}

constexpr std::size_t block = 16;

// Of the first `count` (4, 8 or 16) bytes, those from `first` to 0x7E, a bit each.
#ifdef __SSE2__
template <std::size_t count>
__m128i load(const uint8_t* bytes) {
    if constexpr (count == block) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    } else if constexpr (count == 8) {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
    } else {
        int word = 0;
        std::memcpy(&word, bytes, sizeof word);
        return _mm_cvtsi32_si128(word);
    }
}

template <std::size_t count>
unsigned printable_bits(const uint8_t* bytes, uint8_t first) {
    const __m128i octets = load<count>(bytes);
    // Compared with a sign: bytes that are not ASCII are below all that are.
    const __m128i high_enough = _mm_cmpgt_epi8(octets, _mm_set1_epi8(static_cast<char>(first - 1)));
    const __m128i too_high = _mm_cmpeq_epi8(octets, _mm_set1_epi8(del));
    // What was not loaded is zero and not printable.
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_andnot_si128(too_high, high_enough)));
}
#else
template <std::size_t count>
unsigned printable_bits(const uint8_t* bytes, uint8_t first) {
    unsigned bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        bits |= static_cast<unsigned>(bytes[i] >= first && bytes[i] < del) << i;
    }
    return bits;
}
#endif

// The same of `size` bytes, from `count` to twice as many: the first and the last ones may overlap.
template <std::size_t count>
std::size_t leading_printable(const uint8_t* bytes, std::size_t size, uint8_t first) {
    const unsigned bits = printable_bits<count>(bytes, first) |
                          printable_bits<count>(bytes + size - count, first) << (size - count);
    return static_cast<std::size_t>(std::countr_one(bits));
}

bool is_plain(uint8_t byte, bool strict) {
    return byte < del && byte >= (strict ? '!' : ' ');
}

// How many characters at the start are of ASCII and printable.
std::size_t plain_run(std::span<const uint8_t> octets, bool strict) {
    constexpr unsigned all = (1U << block) - 1;
    const uint8_t first = strict ? '!' : ' ';
    const uint8_t* bytes = octets.data();
    const std::size_t size = octets.size();
    std::size_t at = 0;
    while (size - at > 2 * block) {
        if (const unsigned bits = printable_bits<block>(bytes + at, first); bits != all) {
            return at + static_cast<std::size_t>(std::countr_one(bits));
        }
        at += block;
    }
    const std::size_t left = size - at;
    if (left >= block) {
        return at + leading_printable<block>(bytes + at, left, first);
    }
    if (left >= 8) {
        return at + leading_printable<8>(bytes + at, left, first);
    }
    if (left >= 4) {
        return at + leading_printable<4>(bytes + at, left, first);
    }
    while (at < size && is_plain(bytes[at], strict)) {
        ++at;
    }
    return at;
}

// How an octet string looks in the current locale.
struct Look {
    std::size_t unprintable = 0;  // characters
    bool is_text = true;          // of valid characters only
};

struct Character {
    std::size_t size = 1;
    bool is_valid = true;
    bool is_printable = true;
};

Character classify(std::span<const uint8_t> octets, bool strict) {
    wchar_t wide = 0;
    std::mbstate_t initial{};
    const std::size_t most = std::min<std::size_t>(octets.size(), MB_CUR_MAX);
    const std::size_t size = std::mbrtowc(&wide, as_text(octets).data(), most, &initial);
    if (size > most) {
        return {1, false, false};
    }
    const std::wint_t character = std::char_traits<wchar_t>::to_int_type(wide);
    const bool is_space = std::iswspace(character) != 0;
    const bool is_print = std::iswprint(character) != 0;
    return {std::max<std::size_t>(size, 1), true,
            strict ? is_print && !is_space : is_print || is_space};
}

constexpr const char* trace_name = "formatOctetStr:";

void trace_invalid(uint8_t byte) {
    if (tracelogfp != nullptr) {
        // What mbtowc() says of it; it has no other way to fail.
        constexpr int result = -1;
        log_trace(trace_name,
                  " %02x not a valid multi-byte character, converting entire string to hex; "
                  "result = %d.",
                  byte, result);
    }
}

void trace_unprintable(uint8_t byte) {
    if (tracelogfp != nullptr) {
        log_trace(trace_name, " %02x not a printable character, converting to hex.", byte);
    }
}

void trace_counts(const Look& look, std::size_t length) {
    if (tracelogfp == nullptr) {
        return;
    }
    log_trace(trace_name, " hexCount = %d, string length = %d, converting entire string to hex.",
              static_cast<int>(look.unprintable), static_cast<int>(length));
    if (strictHex != 0) {
        log_trace(trace_name, "Environment variable VORTD_STRICT_HEX_FORMAT is set.");
    }
}

// The first `plain` octets are known to be printable.
Look look_at(std::span<const uint8_t> octets, std::size_t plain, bool strict) {
    Look look;
    for (std::size_t at = plain; at < octets.size();) {
        const uint8_t byte = octets[at];
        if (is_plain(byte, strict)) {
            at += plain_run(octets.subspan(at), strict);
            continue;
        }
        Character character;
        if (byte < first_non_ascii) {
            character.is_printable = is_printable_ascii(byte, strict);
        } else {
            character = classify(octets.subspan(at), strict);
        }
        if (!character.is_valid) {
            trace_invalid(byte);
            look.is_text = false;
            return look;
        }
        if (!character.is_printable) {
            ++look.unprintable;
            trace_unprintable(byte);
        }
        at += character.size;
    }
    return look;
}

// Up to half of the characters may be unprintable: texts of agents are often padded.
Look judge(std::span<const uint8_t> octets, std::size_t plain, bool strict) {
    Look look = look_at(octets, plain, strict);
    if (look.unprintable != 0 && (look.unprintable > octets.size() / 2 || strict)) {
        trace_counts(look, octets.size());
        look.is_text = false;
    }
    return look;
}

void append_in_hex(TextSink& sink, std::span<const uint8_t> octets) {
    constexpr std::string_view prefix = "0x";
    if (!sink.fits(prefix.size())) {
        return;
    }
    sink.append(prefix);
    // The last octet costs as much as the others, though no blank follows it.
    const std::size_t fitting =
        sink.fits(octets.size() * hex_cost) ? octets.size() : sink.room() / hex_cost;
    char* to = sink.position();
    for (const uint8_t octet : octets.first(fitting)) {
        *to++ = hex_digits[octet >> 4];
        *to++ = hex_digits[octet & 0xF];
        *to++ = ' ';
    }
    const bool is_whole = fitting != 0 && fitting == octets.size();
    sink.advance(fitting * hex_cost - (is_whole ? 1 : 0));
}

std::size_t character_size(std::span<const uint8_t> octets) {
    return octets[0] < first_non_ascii ? 1 : classify(octets, false).size;
}

// Octets of the whole characters at the start of a text that fit.
std::size_t fitting_characters(std::span<const uint8_t> text, TextSink& sink) {
    if (sink.fits(text.size() + least_room - 2)) {
        return text.size();
    }
    const std::size_t room = sink.room() + 1;
    std::size_t end = 0;
    while (end < text.size() && room - end >= least_room) {
        const std::size_t size = character_size(text.subspan(end));
        if (size >= room - end) {
            break;
        }
        end += size;
    }
    return end;
}

// Characters of one octet each.
void append_plain(TextSink& sink, std::span<const uint8_t> octets) {
    if (sink.fits(octets.size() + least_room - 2)) [[likely]] {
        sink.append(as_text(octets));
        return;
    }
    const std::size_t room = sink.room() + 1;
    const std::size_t fitting = room < least_room ? 0 : room - least_room + 1;
    sink.append(as_text(octets).substr(0, fitting));
}

void append_as_text(TextSink& sink, std::span<const uint8_t> octets) {
    const std::size_t fitting = fitting_characters(octets, sink);
    sink.append(as_text(octets).substr(0, fitting));
}

}  // namespace

void append_octets(TextSink& sink, std::span<const uint8_t> octets) {
    const bool strict = strictHex != 0;
    const std::size_t plain = plain_run(octets, strict);
    if (plain == octets.size()) {
        append_plain(sink, octets);
        return;
    }
    const Look look = judge(octets, plain, strict);
    if (!look.is_text) {
        append_in_hex(sink, octets);
        return;
    }
    const std::size_t start = sink.length();
    append_as_text(sink, octets);
    if (look.unprintable != 0) {
        // A zero byte among them ends the text for whoever reads it.
        sink.cut(sink.text().find('\0', start));
    }
}

}  // namespace wq

void formatOctetString(char* buf, int buflen, const unsigned char* oct, int len) {
    if (buf == nullptr || buflen <= 0 || oct == nullptr) {
        return;
    }
    wq::TextSink sink(buf, static_cast<std::size_t>(buflen));
    if (len < 0) {
        wq::append_in_hex(sink, {});
        return;
    }
    wq::append_octets(sink, {oct, static_cast<std::size_t>(len)});
}
