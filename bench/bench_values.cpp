// The renderers of values against snprintf() of the same text, and five values in a line against
// snprintf() of the line and against appending texts that are there already.
#include <benchmark/benchmark.h>
#include <wqevents/codec.h>
#include <wqevents/formatter.h>
#include <wqplatform.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "EMS/events/nl_icftime.h"
#include "EMS/events/nl_trp_values.h"
#include "ratios.h"

namespace wq::bench {
namespace {

constexpr std::size_t buffer_size = 4096;
constexpr std::size_t variants = 16;

using Buffer = std::array<char, buffer_size>;
using Bindings = std::vector<SnmpVarBindEMS>;

const std::vector<uint32_t> name = {1, 3, 6, 1, 4, 1, 2, 6, 3, 1, 1, 3, 0};

SnmpVarBindEMS named(uint8_t type) {
    SnmpVarBindEMS var{};
    std::copy(name.begin(), name.end(), var.oid);
    var.oid_length = static_cast<uint32_t>(name.size());
    var.type = type;
    return var;
}

SnmpVarBindEMS number(uint8_t type, uint32_t value) {
    SnmpVarBindEMS var = named(type);
    var.val.integer = static_cast<int32_t>(value);
    var.val_len = sizeof value;
    return var;
}

SnmpVarBindEMS text(std::string_view value) {
    SnmpVarBindEMS var = named(ASN_OCTETSTR09);
    std::copy(value.begin(), value.end(), var.val.string);
    var.val_len = static_cast<uint32_t>(value.size());
    return var;
}

SnmpVarBindEMS identifier(uint32_t last) {
    SnmpVarBindEMS var = named(ASN_OBJID09);
    std::copy(name.begin(), name.end(), var.val.objid);
    var.val.objid[name.size()] = last;
    var.val_len = static_cast<uint32_t>(name.size() + 1);
    return var;
}

// Some values of a kind, so that no branch knows the one it gets.
template <class Make>
Bindings some(Make make) {
    Bindings vars;
    for (uint32_t i = 0; i < variants; ++i) {
        vars.push_back(make(i));
    }
    return vars;
}

Bindings integers() {
    return some([](uint32_t i) { return number(ASN_INTEGER09, (i * 2654435761U) >> (i * 2)); });
}
Bindings counters() {
    return some([](uint32_t i) { return number(ASN_COUNTER09, (i * 2654435761U) >> (i * 2)); });
}
Bindings short_texts() {
    return some(
        [](uint32_t i) { return text(std::string("router-17.example.com").substr(i / 2)); });
}
Bindings long_texts() {
    return some([](uint32_t i) { return text(std::string(200 + i, 'a')); });
}
Bindings utf8_texts() {
    return some([](uint32_t i) {
        return text(std::string("Stra\xc3\x9f"
                                "e 17, K\xc3\xb6ln am Rhein")
                        .append(i, 'x'));
    });
}
Bindings octets() {
    return some([](uint32_t i) {
        return text(std::string("\x01\x02\x03\x04\x05\x06").append(i % 4, '\1'));
    });
}
Bindings identifiers() {
    return some([](uint32_t i) { return identifier(i * i * i); });
}

void value(benchmark::State& state, Bindings (*make)()) {
    Bindings vars = make();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        formatValue(buffer.data(), buffer_size, &vars[i++ % variants]);
        benchmark::ClobberMemory();
    }
}

void snprintf_number(benchmark::State& state, Bindings (*make)()) {
    const Bindings vars = make();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        std::snprintf(buffer.data(), buffer_size, "%d", vars[i++ % variants].val.integer);
        benchmark::ClobberMemory();
    }
}

void snprintf_text(benchmark::State& state, Bindings (*make)()) {
    const Bindings vars = make();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        const SnmpVarBindEMS& var = vars[i++ % variants];
        std::snprintf(buffer.data(), buffer_size, "%.*s", static_cast<int>(var.val_len),
                      reinterpret_cast<const char*>(var.val.string));
        benchmark::ClobberMemory();
    }
}

void snprintf_octets(benchmark::State& state, Bindings (*make)()) {
    const Bindings vars = make();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        const SnmpVarBindEMS& var = vars[i++ % variants];
        int length = 0;
        for (uint32_t octet = 0; octet < var.val_len; ++octet) {
            length += std::snprintf(&buffer[static_cast<std::size_t>(length)], 4, "%02x ",
                                    var.val.string[octet]);
        }
        benchmark::ClobberMemory();
    }
}

int print_identifier(Buffer& buffer, const uint32_t* oid, uint32_t count) {
    int length = 0;
    for (uint32_t i = 0; i < count; ++i) {
        length += std::snprintf(&buffer[static_cast<std::size_t>(length)], 16,
                                i + 1 < count ? "%d." : "%d", static_cast<int>(oid[i]));
    }
    return length;
}

void snprintf_identifier(benchmark::State& state, Bindings (*make)()) {
    const Bindings vars = make();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        const SnmpVarBindEMS& var = vars[i++ % variants];
        benchmark::DoNotOptimize(print_identifier(buffer, var.val.objid, var.val_len));
        benchmark::ClobberMemory();
    }
}

void identifier_in_numbers(benchmark::State& state) {
    const Bindings vars = identifiers();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        const SnmpVarBindEMS& var = vars[i++ % variants];
        char* position = buffer.data();
        int left = buffer_size;
        formatObjectID(&position, &left, var.val.objid, static_cast<int>(var.val_len), 0);
        benchmark::ClobberMemory();
    }
}

// A line of five values: a text, a number, a counter, a short text, an interval of time.
struct Line {
    SnmpVarBindEMS host;
    SnmpVarBindEMS index;
    SnmpVarBindEMS errors;
    SnmpVarBindEMS interface;
    SnmpVarBindEMS ticks;
};

std::vector<Line> lines() {
    std::vector<Line> all;
    const Bindings hosts = short_texts();
    const Bindings indexes = integers();
    const Bindings errors = counters();
    for (uint32_t i = 0; i < variants; ++i) {
        all.push_back({hosts[i], indexes[i], errors[i], text("GigabitEthernet0/1"),
                       number(ASN_TIMETICKS09, i * 8640000)});
    }
    return all;
}

void line(benchmark::State& state) {
    const std::vector<Line> all = lines();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        const Line& at = all[i++ % variants];
        TextSink sink(buffer.data(), buffer.size());
        append_value(sink, at.host);
        sink.append(": interface ");
        append_value(sink, at.index);
        sink.append(" (");
        append_value(sink, at.interface);
        sink.append(") has ");
        append_value(sink, at.errors);
        sink.append(" errors after ");
        append_value(sink, at.ticks);
        benchmark::ClobberMemory();
    }
}

void line_snprintf(benchmark::State& state) {
    const std::vector<Line> all = lines();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        const Line& at = all[i++ % variants];
        std::snprintf(
            buffer.data(), buffer.size(), "%.*s: interface %d (%.*s) has %u errors after %u",
            static_cast<int>(at.host.val_len), reinterpret_cast<const char*>(at.host.val.string),
            at.index.val.integer, static_cast<int>(at.interface.val_len),
            reinterpret_cast<const char*>(at.interface.val.string),
            static_cast<uint32_t>(at.errors.val.integer),
            static_cast<uint32_t>(at.ticks.val.integer));
        benchmark::ClobberMemory();
    }
}

std::string rendered(const SnmpVarBindEMS& var) {
    Buffer buffer;
    TextSink sink(buffer.data(), buffer.size());
    append_value(sink, var);
    return std::string(sink.text());
}

void line_appended(benchmark::State& state) {
    std::vector<std::array<std::string, 5>> all;
    for (const Line& at : lines()) {
        all.push_back({rendered(at.host), rendered(at.index), rendered(at.interface),
                       rendered(at.errors), rendered(at.ticks)});
    }
    std::string out;
    std::size_t i = 0;
    for (auto _ : state) {
        const auto& at = all[i++ % variants];
        out.clear();
        out.append(at[0]).append(": interface ").append(at[1]).append(" (").append(at[2]);
        out.append(") has ").append(at[3]).append(" errors after ").append(at[4]);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

void time_text(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(event_time_text(1795255965));
    }
}

void time_strftime(benchmark::State& state) {
    Buffer buffer;
    for (auto _ : state) {
        const std::time_t when = 1795255965;
        std::tm local{};
        localtime_r(&when, &local);
        std::strftime(buffer.data(), buffer.size(), "%a %b %d %H:%M:%S %Y", &local);
        benchmark::ClobberMemory();
    }
}

BENCHMARK_CAPTURE(value, integer, integers);
BENCHMARK_CAPTURE(value, counter, counters);
BENCHMARK_CAPTURE(value, short_text, short_texts);
BENCHMARK_CAPTURE(value, long_text, long_texts);
BENCHMARK_CAPTURE(value, utf8_text, utf8_texts);
BENCHMARK_CAPTURE(value, octets, octets);
BENCHMARK_CAPTURE(value, identifier, identifiers);
BENCHMARK(identifier_in_numbers);
BENCHMARK_CAPTURE(snprintf_number, integer, integers);
BENCHMARK_CAPTURE(snprintf_number, counter, counters);
BENCHMARK_CAPTURE(snprintf_text, short_text, short_texts);
BENCHMARK_CAPTURE(snprintf_text, long_text, long_texts);
BENCHMARK_CAPTURE(snprintf_text, utf8_text, utf8_texts);
BENCHMARK_CAPTURE(snprintf_octets, octets, octets);
BENCHMARK_CAPTURE(snprintf_identifier, identifier, identifiers);
BENCHMARK(line);
BENCHMARK(line_snprintf);
BENCHMARK(line_appended);
BENCHMARK(time_text);
BENCHMARK(time_strftime);

constexpr std::array<Goal, 11> goals = {{
    {"integer / snprintf", "value/integer", "snprintf_number/integer", 0.50},
    {"counter / snprintf", "value/counter", "snprintf_number/counter", 0.50},
    {"short text / snprintf", "value/short_text", "snprintf_text/short_text", 0.50},
    {"text of 200 / snprintf", "value/long_text", "snprintf_text/long_text", 0.60},
    {"UTF-8 text / snprintf", "value/utf8_text", "snprintf_text/utf8_text", 2.5},
    {"octets in hexadecimal / snprintf", "value/octets", "snprintf_octets/octets", 0.25},
    {"identifier by name / snprintf", "value/identifier", "snprintf_identifier/identifier", 0.35},
    {"identifier / snprintf", "identifier_in_numbers", "snprintf_identifier/identifier", 0.25},
    {"line of five values / snprintf", "line", "line_snprintf", 0.60},
    {"line of five values / appending", "line", "line_appended", 2.5},
    {"time of one second / strftime", "time_text", "time_strftime", 0.50},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    return wq::bench::run(argc, argv, wq::bench::goals);
}
