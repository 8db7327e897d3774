/*
 * A storm of random traps against random configurations, through every kind of caller, into blocks
 * of exactly the room that the formatter is told of.
 */
#include <gtest/gtest.h>
#include <wqevents/formatter.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "support/formatting.h"
#include "support/random.h"

namespace {

using namespace wq::test;

constexpr int configurations = 40;
constexpr int traps_each = 60;

constexpr std::array<const char*, 6> enterprises = {
    "1.3.6.1.4.1.4242",    "1.3.6.1.4.1.4242.6.3",   "1.3.6.1.4.1.2.6.3",
    "1.3.6.1.4.1.2.6.3.1", "1.3.6.1.4.1.2.6.12.5.1", "1.3.6.1.4.1"};
constexpr std::array<const char*, 4> nodes = {"gate", "10.1.2.3", "measured", "/no/such/file"};

template <class Table>
auto pick(Random& random, const Table& table) {
    return table[random.between(0, static_cast<uint32_t>(std::size(table) - 1))];
}

std::string random_token(Random& random) {
    constexpr const char* kinds[] = {"A", "a", "C", "E", "e", "G", "S", "s", "c", "l", "d",    "T",
                                     "*", "#", "",  "-", "+", "=", "I", "i", "t", "L", "\\x25"};
    const std::string kind = pick(random, kinds);
    const uint32_t number = random.one_in(10) ? random.between(0, 90) : random.between(1, 12);
    return std::string("$").append(kind).append(std::to_string(number));
}

/* A line of text, tokens and escapes; never empty, never a comment. */
std::string random_format(Random& random) {
    constexpr const char* pieces[] = {"\\n", "\\n\\n", "%",   "%%", "\\x25s", "\\x25d",
                                      "$$",  "$",      "\\t", " ",  "text",   "down"};
    std::string format(random.one_in(8) ? "\\n" : "x");
    const uint32_t count = random.one_in(15) ? random.between(0, 200) : random.between(0, 9);
    for (uint32_t i = 0; i < count; ++i) {
        format.append(random.one_in(2) ? random_token(random) : std::string(pick(random, pieces)));
    }
    return format;
}

ConfTrap random_record(Random& random, int number) {
    constexpr const char* categories[] = {"Threshold Events", "Status Events", "Status Events",
                                          "Status Events",    "LOGONLY",       "IGNORE"};
    constexpr int specifics[] = {0, 1, 2, 1500, 0x2820000, 0x3070026, 0x3070027};
    ConfTrap record;
    record.name = "Trap" + std::to_string(number);
    record.enterprise = pick(random, enterprises);
    record.generic = random.one_in(6) ? -1 : random.one_in(3) ? 2 : 6;
    record.specific = record.generic == 6 ? pick(random, specifics) : 0;
    record.source = static_cast<char>(random.between('!', '~'));
    record.category = pick(random, categories);
    record.format = random_format(random);
    if (random.one_in(4)) {
        record.more.append("NODES ").append(pick(random, nodes)).append("\n");
    }
    return record;
}

std::string random_conf(Random& random) {
    std::string more;
    for (const char* enterprise : enterprises) {
        if (!random.one_in(4)) {
            more.append("e").append(std::to_string(more.size())).append(" {");
            more.append(enterprise).append("}\n");
        }
    }
    std::vector<ConfTrap> records;
    const uint32_t count = random.between(0, 20);
    for (uint32_t i = 0; i < count; ++i) {
        const ConfTrap record = random_record(random, static_cast<int>(i));
        if (record.enterprise == std::string(enterprises[0]) ||
            more.find("{" + record.enterprise + "}") != std::string::npos) {
            records.push_back(record);
        }
    }
    return conf(records, more);
}

std::string random_names(Random& random) {
    std::string text;
    for (uint32_t i = random.between(0, 30); i > 0; --i) {
        text.append(pick(random, enterprises)).append(".");
        text.append(std::to_string(random.between(0, 9))).append("=\"name");
        text.append(std::string(random.between(0, 58), 'n')).append("\"\n");
    }
    return text;
}

/* A binding whose lengths, type or name may be anything. */
SnmpVarBindEMS wild_binding(Random& random) {
    SnmpVarBindEMS var = random_binding(random);
    if (random.one_in(4)) {
        const Oid base = oid(pick(random, enterprises));
        std::copy(base.begin(), base.end(), var.oid);
        var.oid[base.size()] = random.between(0, 9);
        var.oid_length = static_cast<uint32_t>(base.size()) + random.between(0, 2);
    }
    if (random.one_in(4)) {
        var = string_binding(acme, random_bytes(random, random.between(0, EMS_STRING_MAX)));
        for (uint8_t& byte : var.val.string) {
            byte = static_cast<uint8_t>(random.one_in(20) ? '\n' : byte % 95 + 32);
        }
    }
    if (random.one_in(12)) {
        var.val_len = random.any_size();
        var.oid_length = random.any_size();
    }
    if (random.one_in(12)) {
        var.type = random.byte();
    }
    return var;
}

Trap wild_trap(Random& random) {
    constexpr uint32_t specifics[] = {0, 1, 2, 1500, 0x2820000, 0x2810000, 0x3070026, 0x3070027};
    Trap trap = random_trap(random);
    if (!random.one_in(8)) {
        set_enterprise(trap, oid(pick(random, enterprises)));
        trap.info.gen = random.one_in(4) ? 2 : 6;
        trap.info.specific = pick(random, specifics);
    }
    if (random.one_in(2)) {
        trap.info.agent = wire(10, 1, 2, 3);
    }
    trap.vars.clear();
    trap.info.vars = 0;
    for (uint32_t i = random.between(0, 14); i > 0; --i) {
        add(trap, wild_binding(random));
    }
    if (random.one_in(10)) {
        trap.info.clen = static_cast<int32_t>(random.bits());
        trap.info.elen = static_cast<int32_t>(random.bits());
    }
    trap.vars.shrink_to_fit();
    return trap;
}

uint32_t random_size(Random& random) {
    return random.one_in(3) ? random.between(0, 300) : random.between(1, 9000);
}

class Storm : public Formatting {
  protected:
    void format_one(Random& random) {
        Trap trap = wild_trap(random);
        const int user = static_cast<int>(random.between(0, 6)) - 1;
        const Formatted formatted = format(user, trap, random_size(random));
        ASSERT_TRUE(formatted.result == -1 || formatted.result == -2 ||
                    (formatted.result >= 0 && formatted.result < EMS_CATEGORIES_MAX))
            << formatted.result;
        ASSERT_EQ(formatted.result >= 0 || formatted.host.empty(), true);
        Element element(random_format(random));
        ExactArray<char> buffer(random_size(random));
        trap_sprintf(buffer.data(), buffer.length(), element.get(), &trap.info, trap.vars.data(),
                     "contact", nullptr, "description");
        ExactArray<char> argument(random.between(1, 60));
        format_arg(static_cast<int>(random.between(0, 16)) - 1,
                   static_cast<int>(random.between(0, 25)) - 1, &trap.info, argument.data(),
                   argument.length(), trap.vars.data());
        ASSERT_LT(strnlen(argument.data(), argument.size()), argument.size());
    }
};

TEST_F(Storm, NeverHurts) {
    Random random;
    SCOPED_TRACE(random.name());
    for (int i = 0; i < configurations; ++i) {
        configure(random_conf(random));
        char* message = nullptr;
        ASSERT_EQ(read_trapspec_file(&message), 0) << message;
        name_identifiers(random_names(random));
        known_hosts()[wire(10, 1, 2, 3)] = random.one_in(2) ? "gate" : std::string(500, 'h');
        strictHex = random.one_in(4) ? 1 : 0;
        have_read_mibtxt = 0;
        for (int j = 0; j < traps_each; ++j) {
            ASSERT_NO_FATAL_FAILURE(format_one(random));
        }
    }
}

}  // namespace
