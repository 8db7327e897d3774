/*
 * The renderers, on records of any content. The first octets of the input choose the room, the
 * locale, whether names are known, the type and the lengths that the record claims; the rest fills
 * the record. Each text is terminated within the room, and the sanitizer watches both ends of the
 * buffer.
 */
#include <wqevents/codec.h>
#include <wqevents/configuration.h>
#include <wqevents/formatter.h>
#include <wqevents/names.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <memory>
#include <span>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

using Bytes = std::span<const uint8_t>;

/* Takes the next octet of the input, 0 behind its end. */
uint8_t take(Bytes& from) {
    if (from.empty()) {
        return 0;
    }
    const uint8_t octet = from.front();
    from = from.subspan(1);
    return octet;
}

uint32_t take_word(Bytes& from) {
    uint32_t word = 0;
    for (int i = 0; i < 4; ++i) {
        word = word << 8 | take(from);
    }
    return word;
}

/* A length as records claim it: mostly plausible, at times anything. */
uint32_t take_length(Bytes& from) {
    const uint8_t first = take(from);
    return first < 0xf0 ? first : take_word(from);
}

void fill(void* to, size_t size, Bytes from) {
    std::memcpy(to, from.data(), std::min(size, from.size()));
}

/* Renders into exactly `room` bytes. */
template <class Render>
void in_room(int room, Render&& render) {
    const auto buffer = std::make_unique<char[]>(static_cast<size_t>(room));
    std::fill_n(buffer.get(), room, '\x55');
    render(buffer.get(), room);
    require(room == 0 || std::memchr(buffer.get(), 0, static_cast<size_t>(room)) != nullptr);
}

void render_binding(SnmpVarBindEMS& var, int room) {
    in_room(room, [&](char* buf, int size) { formatValue(buf, size, &var); });
    in_room(room, [&](char* buf, int size) { formatKind(buf, size, &var); });
}

void render_trap(snmp_trap_infoEMS& trap, int room) {
    in_room(room, [&](char* buf, int size) { formatEnterprise(buf, size, &trap, 0); });
    in_room(room, [&](char* buf, int size) { formatEnterprise(buf, size, &trap, 1); });
    in_room(room, [&](char* buf, int size) { formatCommunity(buf, size, &trap); });
}

void render_identifier(Bytes rest, int room) {
    const size_t count = rest.size() / sizeof(uint32_t);
    const auto oid = std::make_unique<uint32_t[]>(count);
    fill(oid.get(), count * sizeof(uint32_t), rest);
    for (int by_name = 0; by_name < 2; ++by_name) {
        in_room(room, [&](char* buf, int size) {
            char* position = buf;
            int left = size;
            formatObjectID(&position, &left, oid.get(), static_cast<int>(count), by_name);
            require(left + (position - buf) == size);
            require(size == 0 || (left > 0 && *position == '\0'));
        });
    }
}

void render_octets(Bytes rest, int room) {
    const auto octets = std::make_unique<uint8_t[]>(rest.size());
    fill(octets.get(), rest.size(), rest);
    in_room(room, [&](char* buf, int size) {
        formatOctetString(buf, size, octets.get(), static_cast<int>(rest.size()));
    });
}

void name_something() {
    const uint32_t oid[] = {1, 3, 6, 1, 4, 1, 99};
    require(insert_enterprise(oid, 7, "acme networks") == 0);
    for (const char* text : {"1", "1.3", "1.3.6.1.4.1.99", "1.3.6.1.4.1.99.1"}) {
        require(insertOid(text, buildOidData("a name in the tree")) != nullptr);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    wq::fuzz::drop_diagnostics();
    name_something();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes input(data, size);
    const int room = take(input);
    const uint8_t choice = take(input);
    std::setlocale(LC_CTYPE, (choice & 1) != 0 ? "C.UTF-8" : "C");
    strictHex = (choice & 2) != 0 ? 1 : 0;
    oidnode* const tree = oidTree;
    oidTree = (choice & 4) != 0 ? tree : nullptr;

    SnmpVarBindEMS var{};
    var.type = take(input);
    /* Nobody is asked for the name of an address. */
    var.type = var.type == ASN_IPADDR09 ? uint8_t{ASN_COUNTER09} : var.type;
    var.oid_length = take_length(input);
    var.val_len = take_length(input);
    snmp_trap_infoEMS trap{};
    trap.elen = static_cast<int32_t>(take_length(input));
    trap.clen = static_cast<int32_t>(take_length(input));
    fill(&var.val, sizeof var.val, input);
    fill(var.oid, sizeof var.oid, input);
    fill(trap.enterprise, sizeof trap.enterprise, input);
    fill(trap.community, sizeof trap.community, input);

    render_binding(var, room);
    render_trap(trap, room);
    render_identifier(input, room);
    render_octets(input, room);

    oidTree = tree;
    return 0;
}
