#include "framing.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace wq::command {
namespace {

using Bytes = std::span<const std::uint8_t>;

Frame refused(const char* reason) {
    Frame frame;
    frame.state = Frame::State::refused;
    frame.reason = reason;
    return frame;
}

/* The frame whose trap has `size` bytes behind `skipped` bytes. */
Frame delimited(Bytes bytes, std::size_t skipped, std::size_t size) {
    Frame frame;
    if (bytes.size() >= skipped + size) {
        frame.state = Frame::State::whole;
        frame.trap = bytes.subspan(skipped, size);
        frame.length = skipped + size;
    }
    return frame;
}

Frame next_with_header(Bytes bytes) {
    if (bytes.size() < EMS_HEADER_LEN) {
        return {};
    }
    trap_headerEMS header;
    std::memcpy(&header, bytes.data(), sizeof header);
    if (header.len < static_cast<std::int32_t>(trap_min)) {
        return refused("header with a length below 20");
    }
    if (header.len > EMS_TRAP_MAX) {
        return refused("header with a length above 8192");
    }
    Frame frame = delimited(bytes, EMS_HEADER_LEN, static_cast<std::size_t>(header.len));
    frame.header = header;
    return frame;
}

/* The BER length at the second byte of a message (X.690 8.1.3). */
struct Length {
    const char* refusal = nullptr;
    bool known = false;
    std::size_t octets = 1;  // of the length field
    std::size_t content = 0;
};

/* `count` octets behind the first of the length field, the most significant first. */
std::size_t big_endian(Bytes octets) {
    std::size_t value = 0;
    for (const std::uint8_t octet : octets) {
        value = value << 8U | octet;
    }
    return value;
}

Length read_length(Bytes field) {
    std::array<std::uint8_t, 5> octets{};  // what has not arrived counts as 0
    std::copy_n(field.begin(), std::min(field.size(), octets.size()), octets.begin());
    std::int32_t value = 0;
    if (get_pdu_len(octets.data(), &value) < 0) {
        return {.refusal = "message with an unreadable length"};
    }
    if (octets[0] < 0x80) {
        return {.known = true, .content = octets[0]};
    }
    const std::size_t count = octets[0] & 0x7FU;
    if (count > 2) {
        return {.refusal = "message with more than two length octets"};
    }
    if (field.size() < 1 + count) {
        return {};
    }
    return {.known = true, .octets = 1 + count, .content = big_endian(field.subspan(1, count))};
}

Frame next_raw(Bytes bytes) {
    if (bytes.empty()) {
        return {};
    }
    if (bytes[0] != ASN_SEQUENCE09) {
        return refused("message that is not a BER sequence");
    }
    if (bytes.size() < 2) {
        return {};
    }
    const Length length = read_length(bytes.subspan(1));
    if (length.refusal != nullptr) {
        return refused(length.refusal);
    }
    if (!length.known) {
        return {};
    }
    const std::size_t size = 1 + length.octets + length.content;
    if (size < trap_min) {
        return refused("message shorter than 20 bytes");
    }
    if (size > EMS_TRAP_MAX) {
        return refused("message longer than 8192 bytes");
    }
    return delimited(bytes, 0, size);
}

}  // namespace

Frame next_frame(Framing framing, Bytes bytes) {
    switch (framing) {
        case Framing::header:
            return next_with_header(bytes);
        case Framing::raw:
            return next_raw(bytes);
    }
    return refused("message of no known framing");
}

}  // namespace wq::command
