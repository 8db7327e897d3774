#include "EMS/events/nl_snmp.h"

#include <array>
#include <cstring>

#include <wqevents/codec.h>

namespace wq {

void report_snmp(const char* text) {
    report(trace_snmp, "snmp", text);
}

namespace {

// Left in front of a binding for its header until its length is known.
constexpr int short_header = 2;

unsigned char* build_value(unsigned char* data, int* room, unsigned char type, int length,
                           const void* value) {
    switch (type) {
        case ASN_INTEGER09:
        case ASN_UINT09:
        case ASN_IPADDR09:
        case ASN_COUNTER09:
        case ASN_GAUGE09:
        case ASN_TIMETICKS09:
            return asnBuildInt09class(data, room, static_cast<const int32_t*>(value), length, type);
        case ASN_OCTETSTR09:
            return asnBuildString09(data, room, static_cast<const unsigned char*>(value), length);
        case ASN_NULL09:
            return asnBuildNull09(data, room);
        case ASN_OBJID09:
            return asnBuildObjid09(data, room, static_cast<const uint32_t*>(value), length);
        default:
            return nullptr;
    }
}

// Puts the header in front of the contents that stand behind the `short_header` octets at `data`,
// moving them where the header is longer.
unsigned char* build_binding_header(unsigned char* data, int* room, int contents_length) {
    std::array<unsigned char, short_header + 2> header;
    int header_room = static_cast<int>(header.size());
    const unsigned char* end =
        asnBuildHeader09(header.data(), &header_room, ASN_SEQUENCE09, contents_length);
    const std::ptrdiff_t length = end == nullptr ? 0 : end - header.data();
    const int surplus = static_cast<int>(length) - short_header;
    if (end == nullptr || *room < surplus) {
        report_snmp("cannot build header 2");
        return nullptr;
    }
    *room -= surplus;
    unsigned char* contents = data + length;
    if (surplus > 0) {
        std::memmove(contents, data + short_header, static_cast<std::size_t>(contents_length));
    }
    std::memcpy(data, header.data(), static_cast<std::size_t>(length));
    return contents + contents_length;
}

}  // namespace
}  // namespace wq

unsigned char* parse_var_op(const unsigned char* data, uint32_t* var_name, int* var_name_len,
                            unsigned char* var_val_type, int* var_val_len, unsigned char** var_val,
                            int* listlength) WQEVENTS_NOEXCEPT {
    if (data == nullptr || var_name == nullptr || var_name_len == nullptr ||
        var_val_type == nullptr || var_val_len == nullptr || var_val == nullptr ||
        listlength == nullptr) {
        return nullptr;
    }
    wq::ber::Reader list(data, *listlength);
    wq::ber::Item value;
    uint32_t name_length = 0;
    if (!wq::parse_binding(list, var_name, name_length, value)) {
        return nullptr;
    }
    *var_name_len = static_cast<int>(name_length);
    *var_val_type = value.type;
    *var_val_len = static_cast<int>(value.length);
    // NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast)
    *var_val = const_cast<unsigned char*>(value.start);
    *listlength = static_cast<int>(list.left());
    return const_cast<unsigned char*>(list.position());
    // NOLINTEND(cppcoreguidelines-pro-type-const-cast)
}

unsigned char* build_var_op(unsigned char* data, const uint32_t* var_name, const int* var_name_len,
                            unsigned char var_val_type, int var_val_len, const void* var_val,
                            int* listlength) WQEVENTS_NOEXCEPT {
    if (data == nullptr || var_name == nullptr || var_name_len == nullptr ||
        listlength == nullptr) {
        return nullptr;
    }
    int room = *listlength - std::min(*listlength, wq::short_header);
    unsigned char* contents = data + wq::short_header;
    unsigned char* position = asnBuildObjid09(contents, &room, var_name, *var_name_len);
    if (position == nullptr) {
        wq::report_snmp("cannot build objid");
        return nullptr;
    }
    if (!wq::is_buildable(var_val_type)) {
        wq::report_snmp("wrong type");
        return nullptr;
    }
    position = wq::build_value(position, &room, var_val_type, var_val_len, var_val);
    if (position == nullptr) {
        wq::report_snmp("no cp");
        return nullptr;
    }
    position = wq::build_binding_header(data, &room, static_cast<int>(position - contents));
    if (position != nullptr) {
        *listlength = room;
    }
    return position;
}
