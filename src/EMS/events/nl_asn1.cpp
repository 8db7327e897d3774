#include "EMS/events/nl_asn1.h"

#include <array>
#include <cstdio>
#include <span>

#include <wqevents/codec.h>
#include <wqevents/trace.h>
#include <wqplatform.h>

#include "EMS/events/internal/log_target.h"

using wq::ber::Error;
using wq::ber::Item;
using wq::ber::Reader;

namespace wq {

void report(int bit, const char* module, const char* text) {
    if ((snmptracemaskEMS & bit) != 0) {
        LogLine line;
        line.append("%s: %s\n", module, text);
        write_log(stderr, line.text());
    }
}

namespace {

constexpr int integer_size = 4;
constexpr int null_header_octets = 2;

void report_asn1(const char* text) {
    report(trace_asn1, "asn1", text);
}

void trace(const char* function, const char* text) {
    if (tracelogfp != nullptr) {
        log_trace(function, "%s", text);
    }
}

// The same text on the standard error stream and in the trace log.
void report_and_trace(const char* function, const char* text) {
    report_asn1(text);
    trace(function, text);
}

// A length field is reported under its own decoder's name. Returns false if that is all there is to
// say for a decoder that has no text of its own for a bad length.
bool report_length(Error error) {
    switch (error) {
        case Error::indefinite_length:
            report_and_trace("asnParseLength09", "Decode:  We don't support indefinite lengths");
            return true;
        case Error::long_length:
            report_and_trace("asnParseLength09",
                             "Decode:  We can't support data lengths that long");
            return true;
        default:
            return false;
    }
}

// The integer decoder's texts lose a blank on their way to the trace log; readers of either match
// them exactly.
struct TwoTexts {
    const char* stderr_text;
    const char* trace_text;
};

constexpr TwoTexts wrong_integer_size = {"Decode:  Output buffer for integer not 4 bytes",
                                         "Decode: Output buffer for integer not 4 bytes"};
constexpr TwoTexts wrong_integer_type = {"Decode:  Integer not a valid integer type",
                                         "Decode: Integer not a valid integer type"};
constexpr TwoTexts bad_integer_length = {"Decode:  Bad ASN length", "Decode: Bad ASN length"};
constexpr TwoTexts short_integer = {"Decode:  ASN length and PDU length don't match",
                                    "Decode: ASN length and PDU length don't match"};
constexpr TwoTexts large_integer = {"Decode:  Received integer larger than we support",
                                    "Decode:  Received integer larger than we support,"};

void report_integer_texts(const TwoTexts& texts) {
    report_asn1(texts.stderr_text);
    trace("asnParseInt09", texts.trace_text);
}

}  // namespace

void report_header(Error error) {
    if (error == Error::wrong_type) {
        report_and_trace("asnParseHeader09", "Decode: Can't process ID >= 30");
    } else if (!report_length(error)) {
        report_and_trace("asnParseHeader09", "Decode:  ASN length and PDU length don't match");
    }
}

void report_integer(Error error, const Item& item) {
    switch (error) {
        case Error::wrong_type:
            report_integer_texts(wrong_integer_type);
            return;
        case Error::too_long:
            report_integer_texts(large_integer);
            if (tracelogfp != nullptr) {
                log_trace("asnParseInt09", "asn_length %d > intsize %d ",
                          static_cast<int>(item.length), integer_size);
            }
            return;
        case Error::short_item:
            report_integer_texts(short_integer);
            return;
        default:
            report_length(error);
            report_integer_texts(bad_integer_length);
    }
}

void report_string(Error error, const Item& item, int capacity) {
    constexpr const char* too_long = "Decode:  Received string longer than we support";
    if (error == Error::wrong_type) {
        report_and_trace("asnParseString09", "Decode: not an octet string type");
    } else if (error == Error::too_long) {
        const int length = static_cast<int>(item.length);
        if ((snmptracemaskEMS & trace_asn1) != 0) {
            report_asn1(too_long);
            LogLine line;
            line.append("asn_length = %d, strlength = %d\n", length, capacity);
            write_log(stderr, line.text());
        }
        if (tracelogfp != nullptr) {
            log_trace("asnParseString09", "%s:asn_length = %d, strlength = %d", too_long, length,
                      capacity);
        }
    } else if (!report_length(error)) {
        report_and_trace("asnParseString09", "Decode:  ASN Length and PDU Length don't match");
    }
}

void report_objid(Error error) {
    constexpr const char* function = "asnParseObjid09";
    if (error == Error::wrong_type) {
        report_and_trace(function, "Decode:  Object ID not an object identifier type");
    } else if (error == Error::too_long) {
        report_and_trace(function, "Decode:  Received Object ID longer than we support");
    } else if (error == Error::sub_identifier) {
        report_and_trace(function, "Decode:  Received a Sub-identifier greater than we support");
    } else if (!report_length(error)) {
        report_and_trace(function, "Decode:  ASN length and PDU length don't match");
    }
}

namespace {

// The position that a decoder hands out, as memchr does: the caller's constness is the caller's.
unsigned char* position_of(const uint8_t* position) {
    return const_cast<unsigned char*>(position);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

// Ends a decoder that has taken an item off `reader`.
unsigned char* consumed(const Reader& reader, int* datalength) {
    *datalength = static_cast<int>(reader.left());
    return position_of(reader.position());
}

uint32_t capacity_of(int length) {
    return static_cast<uint32_t>(std::max(length, 0));
}

unsigned char* build_length(unsigned char* data, int* datalength, int length) {
    if (length < 0) {
        return nullptr;
    }
    const uint32_t octets = static_cast<uint32_t>(length);
    const int needed = static_cast<int>(ber::length_octets(octets));
    if (*datalength < needed) {
        report_asn1("Encode:  Not enough room to build_length");
        return nullptr;
    }
    *datalength -= needed;
    return ber::put_length(data, octets);
}

unsigned char* build_header(unsigned char* data, int* datalength, unsigned char type, int length) {
    if (*datalength < 1 || length < 0) {
        return nullptr;
    }
    *data++ = type;
    --*datalength;
    return build_length(data, datalength, length);
}

// Writes a whole primitive item.
unsigned char* build_item(unsigned char* data, int* datalength, unsigned char type,
                          const uint8_t* contents, int length) {
    unsigned char* position = build_header(data, datalength, type, length);
    if (position == nullptr || *datalength < length) {
        return nullptr;
    }
    if (length > 0) {
        std::memcpy(position, contents, static_cast<std::size_t>(length));
    }
    *datalength -= length;
    return position + length;
}

unsigned char* build_integer(unsigned char* data, int* datalength, int32_t value, unsigned char tag,
                             uint32_t octets) {
    std::array<uint8_t, sizeof value + ber::write_slop> contents;
    ber::put_octets(contents.data(), static_cast<uint32_t>(value), octets);
    return build_item(data, datalength, tag, contents.data(), static_cast<int>(octets));
}

// The rule of a signed INTEGER under another tag.
unsigned char* build_signed(unsigned char* data, int* datalength, const int32_t* value, int intsize,
                            unsigned char tag) {
    if (data == nullptr || datalength == nullptr || value == nullptr || intsize != integer_size) {
        return nullptr;
    }
    return build_integer(data, datalength, *value, tag, ber::signed_octets(*value));
}

// What cannot be encoded goes to the standard output, the reason to the standard error stream.
void report_objid_refused(const char* text, std::span<const uint32_t> objid) {
    if ((snmptracemaskEMS & trace_asn1) == 0) {
        return;
    }
    report_asn1(text);
    const WriteSignalsHeld held;
    write_log(stdout, "Obj id = ", Flush::no);
    print_rawobjid(objid.data(), static_cast<int>(objid.size()));
    write_log(stdout, "\n", Flush::no);
}

void report_first_arc_refused(uint32_t first) {
    if ((snmptracemaskEMS & trace_asn1) != 0) {
        report_asn1("objid, invalid first member");
        LogLine number;
        number.append("%d", static_cast<int>(first));
        write_log(stdout, number.text(), Flush::no);
    }
}

bool objid_is_encodable(std::span<const uint32_t> objid) {
    if (objid.size() < 2) {
        report_objid_refused("Encode:  Invalid Obj ID length", objid);
        return false;
    }
    if (!ber::first_arc_fits(objid[0])) {
        report_first_arc_refused(objid[0]);
        return false;
    }
    if (!ber::first_arcs_fit(objid[0], objid[1])) {
        report_objid_refused("objid, invalid sum", objid);
        return false;
    }
    return true;
}

constexpr std::size_t dump_row = 16;

char printable(unsigned char octet) {
    return octet >= 0x20 && octet <= 0x7E ? static_cast<char>(octet) : '.';
}

void dump_row_of(std::span<const unsigned char> row, std::size_t offset, std::FILE* stream) {
    std::array<char, dump_row + 1> column;
    column.fill('.');
    column.back() = '\0';
    // The offset belongs on the standard output, the bytes on the dump stream: tools that read
    // either rely on the split.
    LogLine label;
    label.append("  %4d:  ", static_cast<int>(offset));
    write_log(stdout, label.text(), Flush::no);
    LogLine line;
    for (std::size_t i = 0; i < dump_row; ++i) {
        if (i < row.size()) {
            line.append("%02x ", row[i]);
            column[i] = printable(row[i]);
        } else {
            line.append("-- ");
        }
    }
    line.append("    %s\n", column.data());
    write_log(stream, line.text(), Flush::no);
}

}  // namespace
}  // namespace wq

unsigned char* asnParseInt09(const unsigned char* data, int* datalength, int32_t* value,
                             int intsize) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || value == nullptr) {
        return nullptr;
    }
    if (intsize != wq::integer_size) {
        wq::report_integer_texts(wq::wrong_integer_size);
        return nullptr;
    }
    Reader reader(data, *datalength);
    return wq::parse_integer(reader, *value) ? wq::consumed(reader, datalength) : nullptr;
}

unsigned char* asnParseIntOrIpaddr09(const unsigned char* data, int* datalength, int32_t* value,
                                     int intsize) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || value == nullptr) {
        return nullptr;
    }
    if (intsize != wq::integer_size) {
        wq::report_and_trace("asnParseIntOrIpaddr09", "not long");
        return nullptr;
    }
    Reader reader(data, *datalength);
    return wq::parse_integer_or_address(reader, *value) ? wq::consumed(reader, datalength)
                                                        : nullptr;
}

unsigned char* asnParseString09(const unsigned char* data, int* datalength, unsigned char* string,
                                int* strlength) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || string == nullptr || strlength == nullptr) {
        return nullptr;
    }
    Reader reader(data, *datalength);
    uint32_t length = wq::capacity_of(*strlength);
    if (!wq::parse_string(reader, string, length)) {
        return nullptr;
    }
    *strlength = static_cast<int>(length);
    return wq::consumed(reader, datalength);
}

unsigned char* asnParseHeader09(const unsigned char* data, int* datalength,
                                unsigned char* type) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || type == nullptr) {
        return nullptr;
    }
    Reader reader(data, *datalength);
    Item item;
    if (!wq::parse_header(reader, item)) {
        return nullptr;
    }
    *type = item.type;
    *datalength = static_cast<int>(item.length);
    return wq::position_of(item.contents);
}

unsigned char* asnParseLength09(const unsigned char* data, uint32_t* length) WQEVENTS_NOEXCEPT {
    if (data == nullptr || length == nullptr) {
        return nullptr;
    }
    const uint8_t* position = data;
    const Error error =
        wq::ber::read_length(position, data + 1 + wq::ber::max_length_octets, *length);
    wq::report_length(error);
    return error == Error::none ? wq::position_of(position) : nullptr;
}

unsigned char* asnParseObjid09(const unsigned char* data, int* datalength, uint32_t* objid,
                               int* objidlength) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || objid == nullptr || objidlength == nullptr) {
        return nullptr;
    }
    Reader reader(data, *datalength);
    uint32_t count = wq::capacity_of(*objidlength);
    if (!wq::parse_objid(reader, objid, count)) {
        return nullptr;
    }
    *objidlength = static_cast<int>(count);
    return wq::consumed(reader, datalength);
}

unsigned char* asnParseNull09(const unsigned char* data, int* datalength) WQEVENTS_NOEXCEPT {
    constexpr const char* function = "asnParseNull09";
    if (data == nullptr || datalength == nullptr || *datalength < 1) {
        return nullptr;
    }
    if (!wq::ber::is_null_type(*data)) {
        wq::report_and_trace(function, "Decode:  NULL variable not a null type");
        return nullptr;
    }
    const uint8_t* position = data + 1;
    uint32_t length = 0;
    const Error error = wq::ber::read_length(position, data + *datalength, length);
    wq::report_length(error);
    if (error != Error::none) {
        return nullptr;
    }
    if (length != 0) {
        wq::report_and_trace(function, "Decode:  Malformed NULL");
        return nullptr;
    }
    *datalength -= wq::null_header_octets;
    return wq::position_of(position);
}

unsigned char* asnBuildInt09class(unsigned char* data, int* datalength, const int32_t* value,
                                  int intsize, unsigned char type) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || value == nullptr ||
        intsize != wq::integer_size) {
        return nullptr;
    }
    const uint32_t octets = wq::ber::integer_octets(*value, type);
    if (octets == 0) {
        return nullptr;
    }
    return wq::build_integer(data, datalength, *value, wq::ber::integer_tag(type), octets);
}

unsigned char* asnBuildInt09(unsigned char* data, int* datalength, const int32_t* value,
                             int intsize) WQEVENTS_NOEXCEPT {
    return asnBuildInt09class(data, datalength, value, intsize, ASN_INTEGER09);
}

unsigned char* asnBuildString09(unsigned char* data, int* datalength, const unsigned char* string,
                                int length) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || string == nullptr) {
        return nullptr;
    }
    return wq::build_item(data, datalength, ASN_OCTETSTR09, string, length);
}

unsigned char* asnBuildHeader09(unsigned char* data, int* datalength, unsigned char type,
                                int length) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr) {
        return nullptr;
    }
    return wq::build_header(data, datalength, type, length);
}

unsigned char* asnBuildLength09(unsigned char* data, int* datalength,
                                int length) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr) {
        return nullptr;
    }
    return wq::build_length(data, datalength, length);
}

unsigned char* asnBuildObjid09(unsigned char* data, int* datalength, const uint32_t* objid,
                               int objidlength) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr || objid == nullptr) {
        return nullptr;
    }
    const std::span identifier(objid, wq::capacity_of(objidlength));
    if (!wq::objid_is_encodable(identifier)) {
        return nullptr;
    }
    std::array<uint8_t, wq::ber::objid_room> contents;
    const uint8_t* end = wq::ber::put_objid_contents(contents.data(), objid,
                                                     static_cast<uint32_t>(identifier.size()));
    if (end == nullptr) {
        return nullptr;
    }
    return wq::build_item(data, datalength, ASN_OBJID09, contents.data(),
                          static_cast<int>(end - contents.data()));
}

unsigned char* asnBuildNull09(unsigned char* data, int* datalength) WQEVENTS_NOEXCEPT {
    if (data == nullptr || datalength == nullptr) {
        return nullptr;
    }
    return wq::build_item(data, datalength, ASN_NULL09, nullptr, 0);
}

unsigned char* asnBuildIpaddressEMS(unsigned char* data, int* datalength, const int32_t* value,
                                    int intsize) WQEVENTS_NOEXCEPT {
    return wq::build_signed(data, datalength, value, intsize, ASN_IPADDR09);
}

unsigned char* asnBuildTimeticksEMS(unsigned char* data, int* datalength, const int32_t* value,
                                    int intsize) WQEVENTS_NOEXCEPT {
    return wq::build_signed(data, datalength, value, intsize, ASN_TIMETICKS09);
}

void hexdumpEMS(const unsigned char* buffer, int size) WQEVENTS_NOEXCEPT {
    if (dumpFp == nullptr || buffer == nullptr || size <= 0) {
        return;
    }
    const std::span octets(buffer, static_cast<std::size_t>(size));
    for (std::size_t offset = 0; offset < octets.size(); offset += wq::dump_row) {
        const std::size_t length = std::min(wq::dump_row, octets.size() - offset);
        wq::dump_row_of(octets.subspan(offset, length), offset, dumpFp);
    }
}
