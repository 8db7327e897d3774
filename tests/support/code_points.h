/*
 * Code point catalogues, and the bindings of alerts, made by hand.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_CODE_POINTS_H
#define WQEVENTS_TESTS_SUPPORT_CODE_POINTS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/traps.h"

namespace wq::test {

struct CodePoint {
    uint16_t set;
    uint16_t id;
    std::string text;
};

inline std::string little_endian(uint32_t value, int octets) {
    std::string text;
    for (int i = 0; i < octets; ++i) {
        text.push_back(static_cast<char>(value >> 8 * i));
    }
    return text;
}

inline std::string catalogue_header(uint32_t count) {
    return std::string("codepoint.cat456").append(little_endian(count, 4)).append(4, '\xEE');
}

inline std::string catalogue_entry(uint16_t set, uint16_t id, uint32_t offset) {
    return little_endian(id, 2).append(little_endian(set, 2)).append(little_endian(offset, 4));
}

/* A catalogue file. */
inline std::string catalogue(const std::vector<CodePoint>& points) {
    std::string file = catalogue_header(static_cast<uint32_t>(points.size()));
    std::string texts;
    for (const CodePoint& point : points) {
        const size_t offset = 24 + 8 * points.size() + texts.size();
        file.append(catalogue_entry(point.set, point.id, static_cast<uint32_t>(offset)));
        texts.append(point.text).append(1, '\0');
    }
    return file.append(texts);
}

/* Below 1.3.6.1.4.1.2.5.1: "13.1.1.1". */
inline Oid alert_oid(const std::string& rest) {
    return oid("1.3.6.1.4.1.2.5.1." + rest);
}
inline SnmpVarBindEMS alert_number(const std::string& rest, uint32_t value) {
    return number_binding(alert_oid(rest), ASN_INTEGER09, value);
}
inline SnmpVarBindEMS alert_text(const std::string& rest, std::string_view text) {
    return string_binding(alert_oid(rest), Bytes(text.begin(), text.end()));
}

}  // namespace wq::test

#endif
