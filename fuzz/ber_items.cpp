/*
 * The BER items, the message header and the variable binding, from any bytes.
 *
 * The first octet of the input gives the room for results, the rest is taken as an item by each
 * decoder in turn. What a decoder accepts lies within the bytes given, and where the encoder of its
 * kind takes the value, decoding once more gives the same.
 */
#include <wqevents/codec.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

using Bytes = std::span<const uint8_t>;

/* A block of exactly `size` elements, for the sanitizer to watch. */
template <class T>
std::unique_ptr<T[]> room_of(size_t size) {
    return std::make_unique<T[]>(size);
}

int length_of(Bytes bytes) {
    return static_cast<int>(bytes.size());
}

/* A decoder's result lies in the bytes, and the bytes left are those behind it. */
void require_within(Bytes item, const uint8_t* end, int left) {
    require(end > item.data() && end <= item.data() + item.size());
    require(left == item.data() + item.size() - end);
}

/* Encodes into just enough room and then into one byte less, which must be refused. */
template <class Encode>
std::vector<uint8_t> encoded(Encode&& encode) {
    std::vector<uint8_t> out(2048);
    int left = static_cast<int>(out.size());
    const uint8_t* end = encode(out.data(), &left);
    if (end == nullptr) {
        return {};
    }
    const auto size = static_cast<size_t>(end - out.data());
    require(left == static_cast<int>(out.size() - size));
    out.resize(size);
    const auto tight = room_of<uint8_t>(size);
    left = static_cast<int>(size);
    require(encode(tight.get(), &left) == tight.get() + size && left == 0);
    require(std::equal(out.begin(), out.end(), tight.get()));
    const auto less = room_of<uint8_t>(size - 1);
    left = static_cast<int>(size - 1);
    require(encode(less.get(), &left) == nullptr);
    return out;
}

void integers(Bytes item) {
    int32_t value = 0;
    int left = length_of(item);
    const uint8_t* end = asnParseInt09(item.data(), &left, &value, 4);
    int32_t same = 0;
    int same_left = length_of(item);
    const uint8_t* same_end = asnParseIntOrIpaddr09(item.data(), &same_left, &same, 4);
    if (end == nullptr) {
        require(same_end == nullptr || item[0] == ASN_OCTETSTR09);
        return;
    }
    require_within(item, end, left);
    require(same_end == end && same == value && same_left == left);

    const uint8_t type = item[0];
    const int32_t number =
        type == ASN_IPADDR09 ? static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(value)))
                             : value;
    const std::vector<uint8_t> again = encoded(
        [&](uint8_t* data, int* room) { return asnBuildInt09class(data, room, &number, 4, type); });
    require(!again.empty());
    left = length_of(again);
    require(asnParseInt09(again.data(), &left, &same, 4) != nullptr && same == value);
    encoded([&](uint8_t* data, int* room) { return asnBuildIpaddressEMS(data, room, &value, 4); });
    encoded([&](uint8_t* data, int* room) { return asnBuildTimeticksEMS(data, room, &value, 4); });
}

void strings(Bytes item, int capacity) {
    const auto room = room_of<uint8_t>(static_cast<size_t>(capacity));
    int left = length_of(item);
    int length = capacity;
    const uint8_t* end = asnParseString09(item.data(), &left, room.get(), &length);
    if (end == nullptr) {
        return;
    }
    require_within(item, end, left);
    require(length >= 0 && length <= capacity);
    require(std::memcmp(end - length, room.get(), static_cast<size_t>(length)) == 0);
    const std::vector<uint8_t> again = encoded([&](uint8_t* data, int* space) {
        return asnBuildString09(data, space, room.get(), length);
    });
    require(again.size() >= static_cast<size_t>(length) + 2);
}

void identifiers(Bytes item, int capacity) {
    const auto name = room_of<uint32_t>(static_cast<size_t>(capacity));
    int left = length_of(item);
    int count = capacity;
    const uint8_t* end = asnParseObjid09(item.data(), &left, name.get(), &count);
    if (end == nullptr) {
        return;
    }
    require_within(item, end, left);
    require(count >= 2 && count <= capacity);
    const std::vector<uint8_t> again = encoded(
        [&](uint8_t* data, int* room) { return asnBuildObjid09(data, room, name.get(), count); });
    if (again.empty()) {
        return; /* a first sub-identifier above 2 */
    }
    std::vector<uint32_t> same(static_cast<size_t>(count) * 5 + 2);
    int same_count = static_cast<int>(same.size());
    left = length_of(again);
    require(asnParseObjid09(again.data(), &left, same.data(), &same_count) != nullptr);
    require(same_count == count && std::equal(name.get(), name.get() + count, same.begin()));
}

void headers(Bytes item) {
    uint8_t type = 0;
    int left = length_of(item);
    const uint8_t* contents = asnParseHeader09(item.data(), &left, &type);
    if (contents != nullptr) {
        require(type == item[0] && left >= 0);
        require(contents + left <= item.data() + item.size());
        const int length = left;
        encoded(
            [&](uint8_t* data, int* room) { return asnBuildHeader09(data, room, type, length); });
    }
    left = length_of(item);
    const uint8_t* end = asnParseNull09(item.data(), &left);
    if (end != nullptr) {
        require(end <= item.data() + item.size() && left == length_of(item) - 2);
    }
    if (item.size() >= 5) {
        uint32_t length = 0;
        end = asnParseLength09(item.data(), &length);
        require(end == nullptr || end <= item.data() + 5);
    }
}

void messages(Bytes item, int capacity) {
    const auto community = room_of<uint8_t>(static_cast<size_t>(capacity) + 1);
    int left = length_of(item);
    int length = capacity;
    int32_t version = 0;
    const uint8_t* pdu = auth_parse(item.data(), &left, community.get(), &length, &version);
    if (pdu == nullptr) {
        return;
    }
    require(left >= 0 && pdu + left <= item.data() + item.size());
    require(length >= 0 && length <= capacity && community[static_cast<size_t>(length)] == 0);
    encoded([&](uint8_t* data, int* room) {
        return auth_build(data, room, community.get(), &length, &version, left);
    });
}

void bindings(Bytes item) {
    const auto name = room_of<uint32_t>(EMS_OID_MAX);
    int count = 0;
    uint8_t type = 0;
    int length = 0;
    uint8_t* value = nullptr;
    int left = length_of(item);
    const uint8_t* end =
        parse_var_op(item.data(), name.get(), &count, &type, &length, &value, &left);
    if (end == nullptr) {
        return;
    }
    require_within(item, end, left);
    require(count >= 2 && count <= EMS_OID_MAX && length >= 0);
    require(value > item.data() && value + length < end && *value == type);
    if (type != ASN_OCTETSTR09 && type != ASN_NULL09) {
        return;
    }
    encoded([&](uint8_t* data, int* room) {
        return build_var_op(data, name.get(), &count, type, std::min(length, 1024), end - length,
                            room);
    });
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const Bytes item(data + 1, size - 1);
    const int capacity = data[0];
    integers(item);
    strings(item, capacity);
    identifiers(item, capacity);
    headers(item);
    messages(item, capacity);
    bindings(item);
    return 0;
}
