// Trap configurations as large as one likes, always the same for the same number of traps.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string>

namespace wq::bench {

// A file of `traps` traps of about 290 bytes, in enterprises of 10 to 10,000 of them.
class ConfGenerator {
  public:
    static std::string text(std::size_t traps) {
        ConfGenerator generator(traps);
        generator.write();
        return std::move(generator.text_);
    }

    // The name of the trap with that number, counted from 0.
    static std::string name(std::size_t number) {
        return "unitStateChanged" + std::to_string(number);
    }

  private:
    explicit ConfGenerator(std::size_t traps) : traps_(traps) { text_.reserve(traps * 300 + 4096); }

    void write() {
        text_ += "#\n# A generated configuration\n#\n";
        for (std::size_t i = 0; i < categories.size(); ++i) {
            add("CATEGORY ", slots[i], " \"", categories[i], "\"\n");
        }
        add("ACTION 30 \"Page the operator\" /usr/local/bin/page \"$2\"\n"
            "SDESC\nCalls whoever is on duty.\nEDESC\n#\n");
        for_each_enterprise([this](std::size_t enterprise, std::size_t, std::size_t) {
            add("enterprise", enterprise, " {1.3.6.1.4.1.", oid_base + enterprise, "}\n");
        });
        for_each_enterprise([this](std::size_t enterprise, std::size_t first, std::size_t count) {
            for (std::size_t i = 0; i < count; ++i) {
                write_trap(enterprise, first + i, i);
            }
        });
    }

    template <class Visit>
    void for_each_enterprise(Visit visit) const {
        std::size_t first = 0;
        for (std::size_t enterprise = 0; first < traps_; ++enterprise) {
            const std::size_t count = std::min(sizes[enterprise % sizes.size()], traps_ - first);
            visit(enterprise, first, count);
            first += count;
        }
    }

    void write_trap(std::size_t enterprise, std::size_t number, std::size_t specific) {
        add("#\n", name(number), " {1.3.6.1.4.1.", oid_base + enterprise, "} 6 ", specific + 1);
        add(" A ", number % 6, " 1 \"", categories[number % categories.size()], "\"\n");
        add("Unit $1 of shelf $2 in $A is $3 (state $4, cause $5)\n");
        if (number % 10 == 3) {
            add("EXEC /usr/local/bin/page --node $A \"unit $1\"\n");
        }
        if (number % 5 == 2) {
            add("FORWARD\n");
        }
        if (number % 50 == 7) {
            add("NODES node", number, ".example.net\n");
        }
        add("SDESC\nSent when a unit changes its state for another reason than an operator's\n"
            "request. Binding 3 is the new state, binding 5 what caused it.\nEDESC\n");
    }

    template <class... Parts>
    void add(const Parts&... parts) {
        (append(parts), ...);
    }
    void append(const std::string& part) { text_ += part; }
    void append(const char* part) { text_ += part; }
    void append(std::size_t part) { text_ += std::to_string(part); }

    static constexpr std::size_t oid_base = 30000;
    static constexpr std::array<std::size_t, 10> sizes = {10,  20,   50,   100,  200,
                                                          500, 1000, 2000, 5000, 10000};
    static constexpr std::array<const char*, 6> categories = {
        "Threshold Events", "Network Topology Events",
        "Error Events",     "Status Events",
        "Power Supply",     "Machine Room"};
    static constexpr std::array<std::size_t, 6> slots = {0, 1, 2, 3, 20, 21};

    std::size_t traps_;
    std::string text_;
};

}  // namespace wq::bench
