#include "EMS/events/nl_snmp_auth.h"

#include <algorithm>

#include <wqevents/codec.h>

namespace wq {

void report_auth(const char* text) {
    report(trace_auth, "snmp_auth", text);
}

}  // namespace wq

unsigned char* auth_parse(const unsigned char* data, int* length, unsigned char* sid, int* slen,
                          int32_t* version) WQEVENTS_NOEXCEPT {
    if (data == nullptr || length == nullptr || sid == nullptr || slen == nullptr ||
        version == nullptr) {
        return nullptr;
    }
    wq::ber::Reader reader(data, *length);
    uint32_t community_length = static_cast<uint32_t>(std::max(*slen, 0));
    if (!wq::parse_auth(reader, sid, community_length, *version)) {
        return nullptr;
    }
    *slen = static_cast<int>(community_length);
    *length = static_cast<int>(reader.left());
    return const_cast<unsigned char*>(  // NOLINT(cppcoreguidelines-pro-type-const-cast)
        reader.position());
}

unsigned char* auth_build(unsigned char* data, int* length, const unsigned char* sid,
                          const int* slen, const int32_t* version,
                          int messagelen) WQEVENTS_NOEXCEPT {
    // The version item and the community's header. Versions above 127 and communities of 128 bytes
    // and more take further octets that are not provided for: no manager of the platform has them.
    constexpr int64_t fixed_octets = 5;
    if (data == nullptr || length == nullptr || sid == nullptr || slen == nullptr ||
        version == nullptr) {
        return nullptr;
    }
    const int64_t contents = int64_t{*slen} + messagelen + fixed_octets;
    unsigned char* position =
        contents > INT32_MAX ? nullptr
                             : asnBuildHeader09(data, length, ASN_SEQUENCE09,
                                                static_cast<int>(std::max(contents, int64_t{-1})));
    if (position == nullptr) {
        wq::report_auth("buildheader");
        return nullptr;
    }
    position = asnBuildInt09(position, length, version, sizeof *version);
    if (position == nullptr) {
        wq::report_auth("buildint");
        return nullptr;
    }
    position = asnBuildString09(position, length, sid, *slen);
    if (position == nullptr) {
        wq::report_auth("buildstring");
    }
    return position;
}
