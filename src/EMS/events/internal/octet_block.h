// Sub-identifiers below 128 take one octet each, and nearly all are: eight at a time between the
// octets of a message and the 32-bit words of an identifier.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace wq {

inline constexpr std::size_t octet_block = 8;

// Writes the low octets of eight words; returns how many words from the first on are below 128.
inline std::size_t narrow_block_portable(uint8_t* to, const uint32_t* from) {
    std::size_t clean = 0;
    for (std::size_t i = 0; i < octet_block; ++i) {
        to[i] = static_cast<uint8_t>(from[i]);
        clean += clean == i && from[i] < 0x80 ? 1 : 0;
    }
    return clean;
}

// As narrow_block() of the last `count` (at most eight) words before `end`, before which eight can
// be read. Eight octets are written all the same.
inline std::size_t narrow_tail_portable(uint8_t* to, const uint32_t* end, std::size_t count) {
    const uint32_t* from = end - count;
    std::size_t clean = 0;
    for (std::size_t i = 0; i < count; ++i) {
        to[i] = static_cast<uint8_t>(from[i]);
        clean += clean == i && from[i] < 0x80 ? 1 : 0;
    }
    return clean;
}

// Writes eight octets as words; returns how many octets from the first on are below 128.
inline std::size_t widen_block_portable(uint32_t* to, const uint8_t* from) {
    std::size_t clean = 0;
    for (std::size_t i = 0; i < octet_block; ++i) {
        clean += clean == i && from[i] < 0x80 ? 1 : 0;
        to[i] = from[i];
    }
    return clean;
}

#ifdef __SSE2__
// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast): the intrinsics' way to name memory

// The low octets of eight words, and for each word a bit that says whether it is below 128.
struct NarrowBlock {
    __m128i octets;  // the low eight
    unsigned clean;
};

inline NarrowBlock load_narrow(const uint32_t* from) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 4));
    const __m128i octet = _mm_set1_epi32(0xFF);
    const __m128i words = _mm_packs_epi32(_mm_and_si128(low, octet), _mm_and_si128(high, octet));
    const __m128i excess = _mm_set1_epi32(~0x7F);
    const __m128i zero = _mm_setzero_si128();
    const __m128i fits = _mm_packs_epi32(_mm_cmpeq_epi32(_mm_and_si128(low, excess), zero),
                                         _mm_cmpeq_epi32(_mm_and_si128(high, excess), zero));
    return {_mm_packus_epi16(words, words),
            static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(fits, zero)))};
}

inline std::size_t narrow_block(uint8_t* to, const uint32_t* from) {
    const NarrowBlock block = load_narrow(from);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), block.octets);
    return static_cast<std::size_t>(std::countr_one(block.clean));
}

inline std::size_t narrow_tail(uint8_t* to, const uint32_t* end, std::size_t count) {
    const NarrowBlock block = load_narrow(end - octet_block);
    const std::size_t before = octet_block - count;
    const __m128i bits = _mm_cvtsi32_si128(static_cast<int>(8 * before));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_srl_epi64(block.octets, bits));
    return static_cast<std::size_t>(std::countr_one(block.clean >> before));
}

inline std::size_t widen_block(uint32_t* to, const uint8_t* from) {
    const __m128i octets = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
    const __m128i zero = _mm_setzero_si128();
    const __m128i words = _mm_unpacklo_epi8(octets, zero);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_unpacklo_epi16(words, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 4), _mm_unpackhi_epi16(words, zero));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(octets)) | 1U << octet_block;
    return static_cast<std::size_t>(std::countr_zero(mask));
}

// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
#else

inline std::size_t narrow_block(uint8_t* to, const uint32_t* from) {
    return narrow_block_portable(to, from);
}
inline std::size_t narrow_tail(uint8_t* to, const uint32_t* end, std::size_t count) {
    return narrow_tail_portable(to, end, count);
}
inline std::size_t widen_block(uint32_t* to, const uint8_t* from) {
    return widen_block_portable(to, from);
}

#endif

}  // namespace wq
