/*
 * A configuration of a few traps in a folder of its own, and the traps that it is about.
 */
#ifndef WQEVENTS_TESTS_TOOL_FORMATTING_H
#define WQEVENTS_TESTS_TOOL_FORMATTING_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "listening_process.h"
#include "sample_traps.h"
#include "support/env_value.h"
#include "support/temp_dir.h"
#include "support/traps.h"

namespace wq::test {

/* Formats of the specific traps 1 to 5 of the enterprise of small_trap(). */
inline constexpr const char* small_configuration =
    "CATEGORY 0 \"Threshold Events\"\n"
    "CATEGORY 2 \"Error Events\"\n"
    "CATEGORY 3 \"Status Events\"\n"
    "CATEGORY 7 \"LOGONLY\"\n"
    "CATEGORY 9 \"IGNORE\"\n"
    "#\n"
    "small {1.3.6.1.4.1.2}\n"
    "#\n"
    "ONE_LINE {1.3.6.1.4.1.2} 6 1 A 1 0 \"Status Events\"\n"
    "one $G/$S of $C from $a: $1\n"
    "SDESC\n"
    "EDESC\n"
    "#\n"
    "THREE_LINES {1.3.6.1.4.1.2} 6 2 D 2 0 \"Error Events\"\n"
    "first of $C\\nsecond of $#\\nthird\n"
    "SDESC\n"
    "EDESC\n"
    "#\n"
    "NEVER_SHOWN {1.3.6.1.4.1.2} 6 3 A 1 0 \"IGNORE\"\n"
    "never\n"
    "SDESC\n"
    "EDESC\n"
    "#\n"
    "FOR_THE_LOG {1.3.6.1.4.1.2} 6 4 A 1 0 \"LOGONLY\"\n"
    "logged\n"
    "SDESC\n"
    "EDESC\n"
    "#\n"
    "NAMED {1.3.6.1.4.1.2} 6 5 A 1 0 \"Threshold Events\"\n"
    "$+1\n"
    "SDESC\n"
    "EDESC\n";

/* small_trap() from 192.0.2.7, an address of no host (RFC 5737). */
inline Bytes from_nowhere(Bytes trap) {
    const Bytes agent = {192, 0, 2, 7};
    std::copy(agent.begin(), agent.end(), trap.begin() + 25);
    return trap;
}

inline Bytes formatted_trap(std::uint8_t specific) {
    return from_nowhere(small_trap(specific));
}

/* One binding, 1.3.6.1 OCTET STRING "hi", which "oid_to_label" of the fixture names "internet". */
inline Bytes named_trap() {
    Bytes trap = from_nowhere(string_trap({'h', 'i'}));
    trap[34] = 5;
    return trap;
}

/* An encoded trap with the five bindings of the platform's events, from 192.0.2.7. */
inline Bytes event_trap(const Oid& enterprise, std::uint32_t specific, const std::string& host,
                        const std::string& description) {
    Trap trap = plain_trap();
    set_enterprise(trap, enterprise);
    trap.info.agent = 0xC0000207;
    trap.info.specific = specific;
    add(trap, number_binding({1, 3, 6, 1}, ASN_INTEGER09, 2));
    for (const std::string& text : {host, description, std::string(), std::string()}) {
        add(trap, string_binding({1, 3, 6, 1}, Bytes(text.begin(), text.end())));
    }
    return encode(trap);
}

inline const Oid platform_enterprise = {1, 3, 6, 1, 4, 1, 2, 6, 3, 1};

/* The platform's configuration directory is a folder of the test's; times are UTC. */
class Formatting : public testing::Test {
  protected:
    Formatting() {
        std::filesystem::create_directory(folder_.path("C"));
        folder_.write("C/vortd.conf", small_configuration);
    }

    const TempDir folder_;

  private:
    const EnvValue directory_{"WQCONFDIR", folder_.path()};
    const EnvValue file_{"WQVORTDCONF", nullptr};
    const EnvValue mib_{"WQMIBFILE", nullptr};
    const EnvValue zone_{"TZ", "UTC"};
    const EnvValue locale_{"LC_ALL", "C"};
};

}  // namespace wq::test

#endif
