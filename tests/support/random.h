/*
 * Random numbers whose seed can be named: give WQEVENTS_TEST_SEED the one that a failure printed.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_RANDOM_H
#define WQEVENTS_TESTS_SUPPORT_RANDOM_H

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

namespace wq::test {

class Random {
  public:
    Random() : seed_(choose_seed()), engine_(seed_) {}

    std::string name() const { return "WQEVENTS_TEST_SEED=" + std::to_string(seed_); }

    uint32_t bits() { return static_cast<uint32_t>(engine_()); }
    /* From `low` to `high`, both included. */
    uint32_t between(uint32_t low, uint32_t high) {
        return std::uniform_int_distribution<uint32_t>(low, high)(engine_);
    }
    bool one_in(uint32_t n) { return between(1, n) == 1; }
    /* All magnitudes alike: as many numbers of few bits as of many. */
    uint32_t any_size() { return bits() >> between(0, 31); }
    uint8_t byte() { return static_cast<uint8_t>(bits()); }

  private:
    static uint32_t choose_seed() {
        const char* given = std::getenv("WQEVENTS_TEST_SEED");
        return given != nullptr ? static_cast<uint32_t>(std::stoul(given)) : std::random_device()();
    }

    uint32_t seed_;
    std::mt19937 engine_;
};

}  // namespace wq::test

#endif
