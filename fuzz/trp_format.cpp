/*
 * Any trap through any compiled format. The input: a byte for the caller's kind, two for the room,
 * one that picks the settings, one for the length of a format text, the text, and an encoded trap.
 * Whatever they are, the texts are terminated within their room, and the results are the documented
 * ones.
 */
#include <wqevents/codec.h>
#include <wqevents/formatter.h>
#include <wqplatform.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_target.h"

/* The resolver must not be asked about what a fuzzer makes up. */
extern "C" struct hostent* gethostbyaddr_new(const void*, socklen_t, int) {
    return nullptr;
}

namespace {

using wq::fuzz::require;

constexpr int bindings_max = 24;
constexpr size_t header_size = 5;
constexpr uint32_t acme[] = {1, 3, 6, 1, 4, 1, 4242};
constexpr int category = 5;

struct Input {
    int user;
    size_t room;
    bool strict;
    bool configured;
    bool named;
    std::string format;
    std::vector<uint8_t> message;
};

Input read_input(const uint8_t* data, size_t size) {
    Input input{};
    input.user = data[0] % 7 - 1;
    input.room = static_cast<size_t>(data[1]) << 8 | data[2];
    input.strict = (data[3] & 1) != 0;
    input.configured = (data[3] & 2) != 0;
    input.named = (data[3] & 4) != 0;
    const size_t length = std::min<size_t>(data[4], size - header_size);
    const uint8_t* const text = data + header_size;
    input.format.assign(text, text + length);
    input.format.resize(std::strlen(input.format.c_str()));
    input.message.assign(text + length, data + size);
    return input;
}

/* A block of exactly the room, never null. */
std::unique_ptr<char[]> block(size_t room) {
    return std::make_unique<char[]>(room);
}

void require_terminated(const char* text, size_t room) {
    require(room == 0 || strnlen(text, room) < room);
}

/* One record that holds for every trap of the trap's own enterprise. */
void configure(const Input& input, const snmp_trap_infoEMS& trap) {
    const uint32_t* const oid = input.configured ? trap.enterprise : acme;
    const auto length = static_cast<uint32_t>(input.configured ? trap.elen : 7);
    insert_enterprise(oid, length, "acme");
    enterprise_info* enterprise = nullptr;
    find_enterprise(oid, length, &enterprise);
    require(enterprise != nullptr);
    insertMallocTrapRecord(enterprise, "Any", -1, -1, 0, nullptr, category, 'A',
                           doStrdup(input.format.c_str()), nullptr, nullptr, nullptr, 1, 0, 0,
                           nullptr, 0, nullptr, nullptr);
}

void format_whole(const Input& input, snmp_trap_infoEMS& trap, SnmpVarBindEMS* vars) {
    const auto buffer = block(input.room);
    char* host = nullptr;
    const int result =
        trp_format(input.user, &trap, buffer.get(), static_cast<int>(input.room), vars, &host, 1);
    require(result >= -2 && result < 16);
    require((result >= 0) == (host != nullptr));
    if (result >= 0) {
        require_terminated(buffer.get(), input.room);
    }
}

void format_parts(const Input& input, snmp_trap_infoEMS& trap, SnmpVarBindEMS* vars) {
    trap_record* const record = nameToExactTrap("Any");
    require(record != nullptr);
    const size_t room = input.room + 1;
    const auto buffer = block(room);
    trap_sprintf(buffer.get(), static_cast<int>(room), &record->description, &trap, vars, "c", "l",
                 nullptr);
    require_terminated(buffer.get(), room);
    for (int kind = ARG_A; kind <= ARG_NUM_ZYN; ++kind) {
        const auto argument = block(room % 128 + 1);
        format_arg(kind % 4, kind, &trap, argument.get(), static_cast<int>(room % 128 + 1), vars);
        require_terminated(argument.get(), room % 128 + 1);
    }
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    WQmib_load_mib();
    setenv("TZ", "UTC", 1);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < header_size) {
        return 0;
    }
    const Input input = read_input(data, size);
    snmp_trap_infoEMS trap{};
    trap.clen = EMS_COMMUNITY_MAX;
    trap.elen = EMS_OID_MAX;
    trap.maxvars = bindings_max;
    std::vector<SnmpVarBindEMS> vars(bindings_max);
    if (snmp_parse_trap(input.message.data(), static_cast<int>(input.message.size()), &trap,
                        nullptr, vars.data()) != 0) {
        return 0;
    }
    vars.resize(static_cast<size_t>(trap.vars));
    vars.shrink_to_fit();
    vars.reserve(1);
    strictHex = input.strict ? 1 : 0;
    have_read_mibtxt = have_read_vortdconf = have_read_mappings = 1;
    if (input.named) {
        insertOid("1.3.6.1.4.1.4242.1", buildOidData("a name"));
    }
    configure(input, trap);
    format_parts(input, trap, vars.data());
    format_whole(input, trap, vars.data());
    free_all_info();
    oidFreeTree(oidTree);
    oidTree = nullptr;
    return 0;
}
