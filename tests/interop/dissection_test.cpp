/* An independent dissector finds no fault with what the library puts on the wire. */
#include <wqevents.h>

#include "listening_process.h"
#include "peer_tools.h"

namespace wq::test {
namespace {

constexpr const char* dissector = "tshark";

void append(Bytes& to, const Bytes& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

Bytes big_endian_16(std::size_t value) {
    return {static_cast<std::uint8_t>(value >> 8U), static_cast<std::uint8_t>(value)};
}

Bytes native_32(std::uint32_t value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

/* An IPv4 packet with a datagram to the trap port; no checksum of UDP, none checked of IP. */
Bytes packet(const Bytes& trap) {
    Bytes bytes = from_hex("45 00");
    append(bytes, big_endian_16(20 + 8 + trap.size()));
    append(bytes, from_hex("00 00 00 00 40 11 00 00 7f 00 00 01 7f 00 00 01 c0 00 00 a2"));
    append(bytes, big_endian_16(8 + trap.size()));
    append(bytes, from_hex("00 00"));
    append(bytes, trap);
    return bytes;
}

/* A capture file in the classic format: link type 101, packets that begin with the IP header. */
std::string capture(const std::vector<Bytes>& traps) {
    Bytes file = native_32(0xa1b2c3d4);
    for (const std::uint32_t word : {0x00040002U, 0U, 0U, 65535U, 101U}) {
        append(file, native_32(word));
    }
    for (const Bytes& trap : traps) {
        const Bytes bytes = packet(trap);
        const auto size = static_cast<std::uint32_t>(bytes.size());
        for (const std::uint32_t word : {1U, 0U, size, size}) {
            append(file, native_32(word));
        }
        append(file, bytes);
    }
    return {file.begin(), file.end()};
}

/* Adds a binding of the type and gives it back, its value still to be set. */
SnmpVarBindEMS& add(std::vector<SnmpVarBindEMS>& bindings, std::uint8_t type,
                    std::uint32_t length) {
    SnmpVarBindEMS& binding = bindings.emplace_back();
    const std::uint32_t name[] = {1, 3, 6, 1, 2, 1, 1, 4294967295U};
    std::copy(std::begin(name), std::end(name), binding.oid);
    binding.oid_length = 8;
    binding.type = type;
    binding.val_len = length;
    return binding;
}

std::vector<SnmpVarBindEMS> every_type() {
    std::vector<SnmpVarBindEMS> bindings;
    add(bindings, ASN_INTEGER09, 4).val.integer = -129;
    add(bindings, ASN_COUNTER09, 4).val.integer = -1;
    add(bindings, ASN_GAUGE09, 4).val.integer = 8388608;
    add(bindings, ASN_TIMETICKS09, 4).val.integer = 0;
    add(bindings, ASN_IPADDR09, 4).val.integer = 0x0A010203;
    std::fill_n(add(bindings, ASN_OCTETSTR09, 300).val.string, 300, std::uint8_t{0xff});
    add(bindings, ASN_NULL09, 0);
    SnmpVarBindEMS& identifier = add(bindings, ASN_OBJID09, 4);
    const std::uint32_t value[] = {2, 5, 128, 16384};
    std::copy(std::begin(value), std::end(value), identifier.val.objid);
    return bindings;
}

Bytes encoded(std::uint32_t generic, std::uint32_t specific, std::vector<SnmpVarBindEMS> bindings) {
    snmp_trap_infoEMS info{};
    std::memcpy(info.community, "public", 6);
    info.clen = 6;
    const std::uint32_t enterprise[] = {1, 3, 6, 1, 4, 1, 2, 6, 3, 1};
    std::copy(std::begin(enterprise), std::end(enterprise), info.enterprise);
    info.elen = 10;
    info.agent = 0x0A010203;
    info.time = 8388608;
    info.gen = generic;
    info.specific = specific;
    info.vars = static_cast<std::int32_t>(bindings.size());
    Bytes bytes(EMS_TRAP_MAX);
    int length = EMS_TRAP_MAX;
    EXPECT_EQ(snmpBuildTrapEMS(bytes.data(), &length, &info, nullptr, bindings.data()), 0);
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

/* What a channel puts on the wire: wake-up, the three kinds of event, disconnect. */
std::vector<Bytes> events() {
    const Fd listener = tcp_listener();
    std::string name = "127.0.0.1+/" + std::to_string(port_of(listener));
    event_infoEMS channel{};
    EXPECT_GE(open_event(&channel, 15, name.data(), 6), 0);
    const Fd peer = accepted(listener);
    EXPECT_EQ(send_event(&channel, 1, "alpha", "event", "data", "db"), 0);
    EXPECT_EQ(send_event_ex(&channel, 2, "alpha", "event", "data", "db", "s", "i", "t"), 0);
    EXPECT_EQ(send_event_ex_ex(&channel, 3, nullptr, "event", nullptr, nullptr, "s", "i", "t",
                               "10.0.0.0", "255.0.0.0"),
              0);
    EXPECT_EQ(close_event(&channel), 0);
    std::vector<Bytes> traps;
    for (unsigned char* buffer = nullptr;;) {
        trap_headerEMS* header = nullptr;
        const int length = recv_trap(peer.get(), &buffer, 6, nullptr, nullptr, &header);
        if (length <= 0) {
            return traps;
        }
        traps.emplace_back(buffer, buffer + length);
    }
}

std::string dissect(const std::vector<Bytes>& traps, const Words& options) {
    const TempDir folder;
    Words words{dissector, "-r", folder.write("traps.pcap", capture(traps))};
    words.insert(words.end(), options.begin(), options.end());
    Subprocess process(words, tool_environment(folder));
    EXPECT_EQ(process.wait(std::chrono::seconds(60)), 0) << process.err();
    return process.out();
}

std::vector<Bytes> all_traps() {
    std::vector<Bytes> traps = events();
    EXPECT_EQ(traps.size(), 5U);
    traps.push_back(encoded(0, 0, {}));
    traps.push_back(encoded(6, 59179056, every_type()));
    return traps;
}

TEST(Dissection, FindsNothingMalformed) {
    REQUIRE_PROGRAM(dissector);
    const std::string text = dissect(all_traps(), {"-V"});
    EXPECT_EQ(text.find("alformed"), std::string::npos) << text;
    EXPECT_EQ(text.find("BER Error"), std::string::npos) << text;
    std::size_t traps = 0;
    for (std::size_t at = 0; (at = text.find("data: trap (4)", at)) != std::string::npos; ++at) {
        ++traps;
    }
    EXPECT_EQ(traps, 7U) << text;
}

TEST(Dissection, ShowsTheSameValues) {
    REQUIRE_PROGRAM(dissector);
    const std::string text =
        dissect(all_traps(), {"-T", "fields", "-e", "snmp.enterprise", "-e", "snmp.generic_trap",
                              "-e", "snmp.specific_trap", "-e", "snmp.community"});
    const std::string start = "1.3.6.1.4.1.2.6.3.1\t";
    EXPECT_EQ(text, start + "6\t59179056\tpublic\n" + start + "6\t1\tpublic\n" + start +
                        "6\t2\tpublic\n" + start + "6\t3\tpublic\n" + start +
                        "6\t59179057\tpublic\n" + start + "0\t0\tpublic\n" + start +
                        "6\t59179056\tpublic\n");
}

}  // namespace
}  // namespace wq::test
