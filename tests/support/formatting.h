/*
 * A formatter of the test's own: a configuration folder with the files that it loads, UTC, the
 * hosts that the test knows, and a fresh state before and after.
 *
 * The program that includes this replaces the platform's resolver. Include it once a program.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_FORMATTING_H
#define WQEVENTS_TESTS_SUPPORT_FORMATTING_H

#include <gtest/gtest.h>
#include <wqevents/formatter.h>
#include <wqplatform.h>

#include <climits>
#include <cstring>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/env_value.h"
#include "support/exact_block.h"
#include "support/temp_dir.h"
#include "support/traps.h"

namespace wq::test {

/* An address as decoders leave it: its octets in memory in wire order. */
inline uint32_t wire(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    const uint8_t octets[] = {a, b, c, d};
    uint32_t address = 0;
    std::memcpy(&address, octets, sizeof address);
    return address;
}

/* What the resolver knows: names by address. */
inline std::map<uint32_t, std::string>& known_hosts() {
    static std::map<uint32_t, std::string> hosts;
    return hosts;
}

inline SnmpVarBindEMS text_binding(const Oid& name, std::string_view text) {
    return string_binding(name, Bytes(text.begin(), text.end()));
}

inline SnmpVarBindEMS integer_binding(const Oid& name, int32_t value) {
    return number_binding(name, ASN_INTEGER09, static_cast<uint32_t>(value));
}

/* An enterprise trap from 10.1.2.3, as it is received. */
inline Trap received_trap(const Oid& enterprise, uint32_t specific) {
    Trap trap;
    set_community(trap, "public");
    set_enterprise(trap, enterprise);
    trap.info.agent = wire(10, 1, 2, 3);
    trap.info.gen = ENTERPRISE_SPECIFIC;
    trap.info.specific = specific;
    trap.info.time = 12345;
    return trap;
}

inline const Oid platform_enterprise = {1, 3, 6, 1, 4, 1, 2, 6, 3, 1};

/* One of the platform's own events, with its five bindings. */
inline Trap platform_event(uint32_t specific, int32_t application, std::string_view host,
                           std::string_view description) {
    Trap trap = received_trap(platform_enterprise, specific);
    const Oid name = {1, 3, 6, 1, 4, 1, 2, 6, 3, 1, 1};
    add(trap, integer_binding(name, application));
    add(trap, text_binding(name, host));
    add(trap, text_binding(name, description));
    add(trap, text_binding(name, "data"));
    add(trap, text_binding(name, "database"));
    return trap;
}

/* The first lines of a configuration: the standard categories, and one enterprise. */
inline constexpr std::string_view conf_head =
    "CATEGORY 0 \"Threshold Events\"\n"
    "CATEGORY 3 \"Status Events\"\n"
    "CATEGORY 7 \"LOGONLY\"\n"
    "CATEGORY 9 \"IGNORE\"\n"
    "acme {1.3.6.1.4.1.4242}\n";

inline const Oid acme = {1, 3, 6, 1, 4, 1, 4242};

/* A trap block; `more` are its optional lines. */
struct ConfTrap {
    std::string name;
    std::string enterprise = "1.3.6.1.4.1.4242";
    int generic = 6;
    int specific = 1;
    char source = 'A';
    int status = 0;
    std::string category = "Status Events";
    std::string format;
    std::string more = "";
};

inline std::string conf_block(const ConfTrap& trap) {
    std::string text = trap.name;
    text.append(" {").append(trap.enterprise).append("} ");
    text.append(std::to_string(trap.generic)).append(" ").append(std::to_string(trap.specific));
    text.append(" ").append(1, trap.source).append(" 1 ").append(std::to_string(trap.status));
    text.append(" \"").append(trap.category).append("\"\n").append(trap.format).append("\n");
    return text.append(trap.more).append("SDESC\nEDESC\n");
}

inline std::string conf(const std::vector<ConfTrap>& traps,
                        std::string_view more_enterprises = "") {
    std::string text(conf_head);
    text.append(more_enterprises);
    for (const ConfTrap& trap : traps) {
        text.append(conf_block(trap));
    }
    return text;
}

/* A compiled format of the test's own. */
class Element {
  public:
    explicit Element(const std::string& text) {
        makeFormatString(doStrdup(text.c_str()), &element_);
    }
    ~Element() {
        doFree(element_.rawstring);
        doFree(element_.format);
    }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    trap_element* get() { return &element_; }

  private:
    trap_element element_{};
};

/* What trp_format() gives. */
struct Formatted {
    int result = 0;
    std::string text;
    std::string host;
};

class Formatting : public testing::Test {
  protected:
    Formatting() { forget(); }
    ~Formatting() override { forget(); }

    /* What the next call loads as the configuration and as the names. */
    void configure(std::string_view content) {
        dir_.write("vortd.conf", content);
        have_read_vortdconf = 0;
    }
    void name_identifiers(std::string_view content) {
        dir_.write("oid_to_label", content);
        have_read_mappings = 0;
    }

    /* 2001-09-09 01:46:40 UTC, a Sunday. */
    static constexpr time_t sunday = 1000000000;

    /* Formats with `size` bytes of room, in a block of exactly that size. */
    static Formatted format(int user, Trap& trap, size_t size = 4096, time_t when = sunday) {
        ExactArray<char> buffer(size);
        char* host = nullptr;
        SnmpVarBindEMS none{};
        Formatted formatted;
        formatted.result = trp_format(user, &trap.info, buffer.data(), static_cast<int>(size),
                                      trap.vars.empty() ? &none : trap.vars.data(), &host, when);
        formatted.text = size != 0 ? std::string(buffer.data()) : std::string();
        formatted.host = host != nullptr ? host : "";
        return formatted;
    }
    static Formatted format(int user, Trap&& trap, size_t size = 4096, time_t when = sunday) {
        return format(user, trap, size, when);
    }

    TempDir dir_;

  private:
    static void forget() {
        free_all_info();
        setVortdConfFile(nullptr);
        oidFreeTree(oidTree);
        oidTree = nullptr;
        have_read_vortdconf = 0;
        have_read_mibtxt = 0;
        have_read_mappings = 0;
        strictHex = 0;
        known_hosts().clear();
    }

    EnvValue zone_{"TZ", "UTC"};
    EnvValue folder_{"WQCONFDIR", dir_.path()};
    EnvValue mib_{"WQMIBFILE", nullptr};
    EnvValue file_{"WQVORTDCONF", dir_.write("vortd.conf", "")};
    EnvValue alerts_{"FERLOD_CONF", dir_.write("ferlod.conf", "")};
};

}  // namespace wq::test

extern "C" struct hostent* gethostbyaddr_new(const void* address, socklen_t length, int family) {
    static hostent entry;
    uint32_t number = 0;
    if (length != sizeof number || family != AF_INET) {
        return nullptr;
    }
    std::memcpy(&number, address, sizeof number);
    const auto known = wq::test::known_hosts().find(number);
    if (known == wq::test::known_hosts().end()) {
        return nullptr;
    }
    entry.h_name = known->second.data();
    entry.h_addrtype = AF_INET;
    entry.h_length = sizeof number;
    return &entry;
}

#endif
