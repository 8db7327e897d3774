// From a trap to its text: the expansion of a format, whole lines, and lines from the bytes of
// messages, against net-snmp's formatter (which always tells a value with its variable), against
// snprintf() of comparable text, and against code that appends that one text and nothing else,
// without a look at what there is room for.
#include <benchmark/benchmark.h>
#include <wqevents/configuration.h>
#include <wqevents/formatter.h>

#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "limit_coder.h"
#include "net_snmp.h"
#include "ratios.h"
#include "vortd_conf_generator.h"

// What <wqplatform.h> declares; together with the peer's headers it does not compile.
extern "C" int WQmib_load_mib(void);

namespace wq::bench {
namespace {

constexpr std::size_t buffer_size = 16384;
// Few enough that the records stay in the cache, where decoding has just put them.
constexpr std::size_t traps_used = 8;
constexpr std::size_t few = 2000;
constexpr std::size_t many = 100000;

// Another second than now, so that a text kept from one trap to the next is the benchmark's own.
constexpr std::time_t when = 1795255965;

using Buffer = std::array<char, buffer_size>;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// The peer's trap formatter, in a library of its own.
struct NetSnmpFormatter {
    using FormatTrap = int (*)(u_char** buf, std::size_t* buf_len, std::size_t* out_len,
                               int allow_realloc, const char* format, netsnmp_pdu* pdu,
                               void* transport);

    NetSnmpFormatter() {
        setenv("MIBS", "", 1);
        net_snmp().symbol<void (*)()>("netsnmp_init_mib")();
    }

    decltype(&::sprint_realloc_variable) variable =
        net_snmp().symbol<decltype(&::sprint_realloc_variable)>("sprint_realloc_variable");
    NetSnmp trapd{dlopen("libnetsnmptrapd.so", RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND)};
    FormatTrap format_trap = trapd.symbol<FormatTrap>("realloc_format_trap");
};

const NetSnmpFormatter& peer() {
    static const NetSnmpFormatter formatter;
    return formatter;
}

// A trap that the generated configurations know, as it is received from this host.
Message unit_trap(Generator& generator, uint32_t enterprise, uint32_t specific) {
    Message message = generator.event();
    message.trap = generator.trap({1, 3, 6, 1, 4, 1, enterprise});
    message.trap.specific = specific;
    message.trap.maxvars = message.trap.vars = static_cast<int32_t>(message.vars.size());
    const uint32_t loopback = htonl(INADDR_LOOPBACK);
    message.trap.agent = loopback;
    set_string(message.vars[2], generator.text(8, 20));
    for (const std::size_t i : {0U, 3U, 4U}) {
        message.vars[i].type = i == 4 ? ASN_TIMETICKS09 : ASN_INTEGER09;
        message.vars[i].val.integer = static_cast<int32_t>(generator.number() >> 12);
        message.vars[i].val_len = 4;
    }
    return message;
}

std::vector<Message> unit_traps() {
    Generator generator(7);
    std::vector<Message> all;
    for (uint32_t i = 0; i < traps_used; ++i) {
        all.push_back(unit_trap(generator, 4242, 1 + i));
    }
    return all;
}

// The first bindings of the mixed messages, addresses left out: the resolver is not measured.
std::vector<Message> star_traps() {
    std::vector<Message> all = mixed_messages();
    for (Message& message : all) {
        std::erase_if(message.vars, [](const auto& var) { return var.type == ASN_IPADDR09; });
        message.trap.maxvars = message.trap.vars = static_cast<int32_t>(message.vars.size());
    }
    return all;
}

class Compiled {
  public:
    explicit Compiled(const char* text) { makeFormatString(doStrdup(text), &element_); }
    ~Compiled() {
        doFree(element_.rawstring);
        doFree(element_.format);
    }
    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;

    trap_element* get() { return &element_; }

  private:
    trap_element element_{};
};

constexpr const char* five_format = "Unit $1 of shelf $2 in $3 is $4 (cause $5)";

void expand(benchmark::State& state, std::vector<Message> (*make)(), const char* format) {
    std::vector<Message> all = make();
    Compiled element(format);
    WQmib_load_mib();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        Message& message = all[i++ % traps_used];
        trap_sprintf(buffer.data(), buffer_size, element.get(), &message.trap, message.vars.data(),
                     nullptr, nullptr, nullptr);
        benchmark::ClobberMemory();
    }
}

// The text of a record appended piece by piece.
struct Appender {
    std::string& out;

    Appender& text(std::string_view text) {
        out.append(text);
        return *this;
    }
    template <class Number>
    Appender& number(Number number) {
        out.append(std::to_string(number));
        return *this;
    }
    Appender& oid(const uint32_t* oid, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) {
            number(oid[i]).text(i + 1 < count ? "." : "");
        }
        return *this;
    }
    Appender& value(const SnmpVarBindEMS& var) {
        switch (var.type) {
            case ASN_OCTETSTR09:
                return text({reinterpret_cast<const char*>(var.val.string), var.val_len});
            case ASN_OBJID09:
                return oid(var.val.objid, var.val_len);
            case ASN_INTEGER09:
                return number(var.val.integer);
            default:
                return number(static_cast<uint32_t>(var.val.integer));
        }
    }
};

void five_appended(benchmark::State& state) {
    const std::vector<Message> all = unit_traps();
    std::string line;
    std::size_t i = 0;
    for (auto _ : state) {
        const std::vector<SnmpVarBindEMS>& vars = all[i++ % traps_used].vars;
        line.clear();
        Appender out{line};
        out.text("Unit ").value(vars[0]).text(" of shelf ").value(vars[1]).text(" in ");
        out.value(vars[2]).text(" is ").value(vars[3]).text(" (cause ").value(vars[4]).text(")");
        benchmark::DoNotOptimize(line.data());
        benchmark::ClobberMemory();
    }
}

void star_appended(benchmark::State& state) {
    const std::vector<Message> all = star_traps();
    std::string line;
    std::size_t i = 0;
    for (auto _ : state) {
        line.clear();
        Appender out{line};
        uint32_t number = 0;
        for (const SnmpVarBindEMS& var : all[i++ % traps_used].vars) {
            out.text(" [").number(++number).text("] ").oid(var.oid, var.oid_length);
            out.text(" (").text("OctetString").text("): ").value(var).text("\n");
        }
        benchmark::DoNotOptimize(line.data());
        benchmark::ClobberMemory();
    }
}

const char* string_of(const SnmpVarBindEMS& var) {
    return reinterpret_cast<const char*>(var.val.string);
}

void five_snprintf(benchmark::State& state) {
    const std::vector<Message> all = unit_traps();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        const std::vector<SnmpVarBindEMS>& vars = all[i++ % traps_used].vars;
        std::snprintf(buffer.data(), buffer_size, "Unit %d of shelf %.*s in %.*s is %d (cause %u)",
                      vars[0].val.integer, static_cast<int>(vars[1].val_len), string_of(vars[1]),
                      static_cast<int>(vars[2].val_len), string_of(vars[2]), vars[3].val.integer,
                      static_cast<uint32_t>(vars[4].val.integer));
        benchmark::ClobberMemory();
    }
}

// The peer's output, in a buffer that it need not enlarge.
struct PeerText {
    std::vector<u_char> area = std::vector<u_char>(buffer_size);
    u_char* data = area.data();
    std::size_t size = area.size();
    std::size_t length = 0;

    void add(std::string_view text) {
        std::memcpy(data + length, text.data(), text.size());
        length += text.size();
    }
};

std::vector<netsnmp_pdu*> pdus_of(const std::vector<Message>& messages) {
    std::vector<netsnmp_pdu*> pdus;
    for (const Message& message : messages) {
        pdus.push_back(make_pdu(message));
    }
    return pdus;
}

void five_net_snmp(benchmark::State& state) {
    constexpr std::array<std::string_view, 5> before = {"Unit ", " of shelf ", " in ", " is ",
                                                        " (cause "};
    const std::vector<netsnmp_pdu*> pdus = pdus_of(unit_traps());
    const NetSnmpFormatter& net = peer();
    PeerText out;
    std::size_t i = 0;
    for (auto _ : state) {
        out.length = 0;
        const netsnmp_variable_list* var = pdus[i++ % traps_used]->variables;
        for (const std::string_view text : before) {
            out.add(text);
            net.variable(&out.data, &out.size, &out.length, 0, var->name, var->name_length, var);
            var = var->next_variable;
        }
        out.add(")");
        benchmark::ClobberMemory();
    }
}

void star_net_snmp(benchmark::State& state) {
    const std::vector<netsnmp_pdu*> pdus = pdus_of(star_traps());
    const NetSnmpFormatter& net = peer();
    PeerText out;
    std::size_t i = 0;
    for (auto _ : state) {
        out.length = 0;
        for (const netsnmp_variable_list* var = pdus[i++ % traps_used]->variables; var != nullptr;
             var = var->next_variable) {
            net.variable(&out.data, &out.size, &out.length, 0, var->name, var->name_length, var);
            out.add("\n");
        }
        benchmark::ClobberMemory();
    }
}

void print_number(Buffer& buffer, std::size_t& length, const char* format, uint32_t number) {
    length += static_cast<std::size_t>(
        std::snprintf(&buffer[length], buffer_size - length, format, number));
}

void print_oid(Buffer& buffer, std::size_t& length, const uint32_t* oid, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        print_number(buffer, length, ".%u", oid[i]);
    }
}

void print_binding(Buffer& buffer, std::size_t& length, const SnmpVarBindEMS& var) {
    print_oid(buffer, length, var.oid, var.oid_length);
    switch (var.type) {
        case ASN_OCTETSTR09:
            length += static_cast<std::size_t>(
                std::snprintf(&buffer[length], buffer_size - length, " (%s): %.*s\n", "OctetString",
                              static_cast<int>(var.val_len), string_of(var)));
            break;
        case ASN_OBJID09:
            print_number(buffer, length, " (ObjectIdentifier): ", 0);
            print_oid(buffer, length, var.val.objid, var.val_len);
            print_number(buffer, length, "\n", 0);
            break;
        default:
            print_number(buffer, length, " (Counter): %u\n",
                         static_cast<uint32_t>(var.val.integer));
    }
}

void star_snprintf(benchmark::State& state) {
    const std::vector<Message> all = star_traps();
    Buffer buffer;
    std::size_t i = 0;
    for (auto _ : state) {
        std::size_t length = 0;
        uint32_t number = 0;
        for (const SnmpVarBindEMS& var : all[i++ % traps_used].vars) {
            print_number(buffer, length, " [%u] ", ++number);
            print_binding(buffer, length, var);
        }
        benchmark::ClobberMemory();
    }
}

// A configuration folder for the process, with a file of identifiers' names.
class Folder {
  public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "bench_format.XXXXXX");
        require(mkdtemp(name.data()) != nullptr);
        path_ = name;
        std::ofstream(path_ / "oid_to_label") << "1.3.6.1.4.1.99.1=\"unused\"\n";
        setenv("WQCONFDIR", path_.c_str(), 1);
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    // Makes the configuration of so many traps the loaded one.
    void load(std::size_t traps) {
        if (traps == loaded_) {
            return;
        }
        const std::filesystem::path file = path_ / "vortd.conf";
        std::ofstream(file) << ConfGenerator::text(traps);
        setVortdConfFile(file.c_str());
        char* message = nullptr;
        require(read_trapspec_file(&message) == 0);
        loaded_ = traps;
    }

  private:
    std::filesystem::path path_;
    std::size_t loaded_ = 0;
};

Folder& folder() {
    static Folder own;
    return own;
}

// So many traps for records from all over the configuration.
std::vector<Message> configured_traps(std::size_t traps, std::size_t count = traps_used) {
    Generator generator(11);
    std::vector<Message> all;
    for (std::size_t i = 0; i < count; ++i) {
        trap_record* record = nullptr;
        enterprise_info* enterprise = nullptr;
        // Some of the generated traps are for one node only.
        const std::size_t number = i * (traps / count);
        const std::string name = ConfGenerator::name(number + (number % 50 == 7 ? 1 : 0));
        require(nameToTrapAndEnterprise(name.c_str(), &record, &enterprise) == 0);
        all.push_back(unit_trap(generator, enterprise->enterprise_oid[6],
                                static_cast<uint32_t>(record->specific_trap)));
    }
    return all;
}

void whole_line(benchmark::State& state, std::size_t traps) {
    folder().load(traps);
    std::vector<Message> all = configured_traps(traps);
    Buffer buffer;
    char* host = nullptr;
    std::size_t i = 0;
    for (auto _ : state) {
        Message& message = all[i++ % traps_used];
        benchmark::DoNotOptimize(trp_format(VORTD_USER, &message.trap, buffer.data(), buffer_size,
                                            message.vars.data(), &host, when));
        benchmark::ClobberMemory();
    }
}

void whole_line_net_snmp(benchmark::State& state) {
    const std::vector<netsnmp_pdu*> pdus = pdus_of(unit_traps());
    const NetSnmpFormatter& net = peer();
    PeerText out;
    std::size_t i = 0;
    for (auto _ : state) {
        out.length = 0;
        benchmark::DoNotOptimize(
            net.format_trap(&out.data, &out.size, &out.length, 0,
                            "%04.4y-%02.2m-%02.2l %02.2h:%02.2j:%02.2k %a %N %w %q %v\n",
                            pdus[i++ % traps_used], nullptr));
        benchmark::ClobberMemory();
    }
    require(out.length > 40);
}

void whole_line_appended(benchmark::State& state) {
    const std::vector<Message> all = unit_traps();
    std::string line;
    std::size_t i = 0;
    for (auto _ : state) {
        const std::vector<SnmpVarBindEMS>& vars = all[i++ % traps_used].vars;
        line.clear();
        Appender out{line};
        out.number(when).text(" ").number(3).text("  ").text("Sat Nov 21 10:12:45 2026");
        out.text(" ").text("localhost                ").text(" A Unit ").value(vars[0]);
        out.text(" of shelf ").value(vars[1]).text(" in ").text("localhost").text(" is ");
        out.value(vars[2]).text(" (state ").value(vars[3]).text(", cause ").value(vars[4]);
        out.text(")\n");
        benchmark::DoNotOptimize(line.data());
        benchmark::ClobberMemory();
    }
}

// Bytes in, lines out.

// The traps as they come from the network; behind each there is room for a reader that looks ahead.
struct Received {
    std::vector<uint8_t> bytes;
    int length;
};

std::vector<Received> received_traps() {
    folder().load(few);
    std::vector<Received> all;
    for (Message& message : configured_traps(few, variants)) {
        Received received{std::vector<uint8_t>(EMS_TRAP_MAX), EMS_TRAP_MAX};
        message.trap.agent = INADDR_LOOPBACK;  // encoders take host order
        require(snmpBuildTrapEMS(received.bytes.data(), &received.length, &message.trap, nullptr,
                                 message.vars.data()) == 0);
        received.bytes.resize(static_cast<std::size_t>(received.length) + 4);
        all.push_back(std::move(received));
    }
    return all;
}

// What decoding writes, line after line.
struct Records {
    snmp_trap_infoEMS trap{};
    std::vector<SnmpVarBindEMS> vars = std::vector<SnmpVarBindEMS>(32);
    Buffer line;

    void decode_and_format(const Received& received) {
        char* host = nullptr;
        trap.clen = EMS_COMMUNITY_MAX - 1;
        trap.elen = EMS_OID_MAX;
        trap.maxvars = static_cast<int32_t>(vars.size());
        snmp_parse_trap(received.bytes.data(), received.length, &trap, nullptr, vars.data());
        trp_format(VORTD_USER, &trap, line.data(), buffer_size, vars.data(), &host, when);
    }
};

void end_to_end(benchmark::State& state) {
    const std::vector<Received> all = received_traps();
    Records records;
    std::size_t i = 0;
    for (auto _ : state) {
        records.decode_and_format(all[i++ % variants]);
        benchmark::ClobberMemory();
    }
}

// The same lines by a loop that knows what it will get: it reads without a check, finds the
// category of a trap in a hash map, and has the texts of the second and of the host.
class LeanLoop {
  public:
    LeanLoop() {
        for (std::size_t i = 0; i < few; ++i) {
            trap_record* record = nullptr;
            enterprise_info* enterprise = nullptr;
            require(nameToTrapAndEnterprise(ConfGenerator::name(i).c_str(), &record, &enterprise) ==
                    0);
            categories_.emplace(
                key(enterprise->enterprise_oid[6], static_cast<uint32_t>(record->specific_trap)),
                record->category_number);
        }
    }

    void decode_and_format(const Received& received, snmp_trap_infoEMS& trap, SnmpVarBindEMS* vars,
                           char* line) const {
        limit_decode(received.bytes.data(), trap, vars);
        const int category = categories_.at(key(trap.enterprise[6], trap.specific));
        to_ = line;
        text("1795255965 ").number(category).text(category < 10 ? "  " : " ");
        text("Sat Nov 21 10:12:45 2026 localhost                 A Unit ").value(vars[0]);
        text(" of shelf ").value(vars[1]).text(" in localhost is ").value(vars[2]);
        text(" (state ").value(vars[3]).text(", cause ").value(vars[4]).text(")\n");
        *to_ = '\0';
    }

  private:
    static uint64_t key(uint32_t enterprise, uint32_t specific) {
        return uint64_t{enterprise} << 32 | specific;
    }
    const LeanLoop& text(std::string_view text) const {
        std::memcpy(to_, text.data(), text.size());
        to_ += text.size();
        return *this;
    }
    template <class Number>
    const LeanLoop& number(Number number) const {
        to_ = std::to_chars(to_, to_ + 20, number).ptr;
        return *this;
    }
    const LeanLoop& value(const SnmpVarBindEMS& var) const {
        switch (var.type) {
            case ASN_OCTETSTR09:
                return text({reinterpret_cast<const char*>(var.val.string), var.val_len});
            case ASN_INTEGER09:
                return number(var.val.integer);
            default:
                return number(static_cast<uint32_t>(var.val.integer));
        }
    }

    std::unordered_map<uint64_t, int> categories_;
    mutable char* to_ = nullptr;
};

void end_to_end_lean(benchmark::State& state) {
    const std::vector<Received> all = received_traps();
    const LeanLoop loop;
    Records records;
    Buffer line;
    for (const Received& received : all) {
        records.decode_and_format(received);
        loop.decode_and_format(received, records.trap, records.vars.data(), line.data());
        require(std::string_view(line.data()) == records.line.data());
    }
    std::size_t i = 0;
    for (auto _ : state) {
        loop.decode_and_format(all[i++ % variants], records.trap, records.vars.data(), line.data());
        benchmark::ClobberMemory();
    }
}

void end_to_end_net_snmp(benchmark::State& state) {
    std::vector<Received> all = received_traps();
    const NetSnmpFormatter& net = peer();
    PeerText out;
    std::size_t i = 0;
    for (auto _ : state) {
        Received& received = all[i++ % variants];
        netsnmp_pdu* pdu = net_snmp().pdu_create(SNMP_MSG_TRAP);
        benchmark::DoNotOptimize(net_snmp().parse(nullptr, &session(), pdu, received.bytes.data(),
                                                  static_cast<std::size_t>(received.length)));
        out.length = 0;
        benchmark::DoNotOptimize(net.format_trap(
            &out.data, &out.size, &out.length, 0,
            "%04.4y-%02.2m-%02.2l %02.2h:%02.2j:%02.2k %a %N %w %q %v\n", pdu, nullptr));
        net_snmp().free_pdu(pdu);
        benchmark::ClobberMemory();
    }
    require(out.length > 40);
}

BENCHMARK_CAPTURE(expand, five, unit_traps, five_format);
BENCHMARK_CAPTURE(expand, star, star_traps, "$*");
BENCHMARK(five_net_snmp);
BENCHMARK(five_snprintf);
BENCHMARK(five_appended);
BENCHMARK(star_net_snmp);
BENCHMARK(star_snprintf);
BENCHMARK(star_appended);
BENCHMARK_CAPTURE(whole_line, few, few);
BENCHMARK_CAPTURE(whole_line, many, many);
BENCHMARK(whole_line_net_snmp);
BENCHMARK(whole_line_appended);
BENCHMARK(end_to_end);
BENCHMARK(end_to_end_lean);
BENCHMARK(end_to_end_net_snmp);

constexpr std::array<Goal, 11> goals = {{
    {"five values / net-snmp", "expand/five", "five_net_snmp", 0.065},
    {"five values / snprintf", "expand/five", "five_snprintf", 0.60},
    {"five values / appending", "expand/five", "five_appended", 2.5},
    {"every binding / net-snmp", "expand/star", "star_net_snmp", 0.16},
    {"every binding / snprintf", "expand/star", "star_snprintf", 0.30},
    {"every binding / appending", "expand/star", "star_appended", 3.0},
    {"line of 2,000 / net-snmp", "whole_line/few", "whole_line_net_snmp", 0.04},
    {"line of 2,000 / appending", "whole_line/few", "whole_line_appended", 4.0},
    {"line of 100,000 / of 2,000", "whole_line/many", "whole_line/few", 1.2},
    {"bytes in, line out / net-snmp", "end_to_end", "end_to_end_net_snmp", 0.10},
    {"bytes in, line out / leanest loop", "end_to_end", "end_to_end_lean", 1.5},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    wq::bench::folder();
    return wq::bench::run(argc, argv, wq::bench::goals);
}
