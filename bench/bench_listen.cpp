// Traps in to lines out: `wqevents listen --format` and snmptrapd as processes that take the same
// 20,000 encoded traps by TCP and print a line for each. None may be lost. A time is that of one
// trap, from the first octet sent to the last line read.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "messages.h"
#include "ratios.h"
#include "support/sockets.h"
#include "support/subprocess.h"
#include "support/temp_dir.h"

namespace wq::bench {
namespace {

using test::Subprocess;
using test::SubprocessOptions;
using test::TempDir;
using Words = std::vector<std::string>;

constexpr std::size_t traps = 20000;
constexpr uint32_t configured = 2000;

void require(bool holds, const std::string& what) {
    if (!holds) {
        std::fprintf(stderr, "bench_listen: %s\n", what.c_str());
        std::exit(1);
    }
}

// The platform's five bindings under another enterprise, which has formats for 2,000 traps.
std::vector<uint8_t> encoded_traps() {
    Generator generator(1);
    std::vector<uint8_t> all;
    for (std::size_t i = 0; i < traps; ++i) {
        Message message = generator.event();
        const std::array<uint32_t, 8> enterprise = {1, 3, 6, 1, 4, 1, 8072, 4};
        std::copy(enterprise.begin(), enterprise.end(), message.trap.enterprise);
        message.trap.elen = enterprise.size();
        message.trap.agent = 0xC0000207;
        message.trap.specific = 1 + generator.below(configured);
        message.trap.vars = static_cast<int32_t>(message.vars.size());
        std::array<uint8_t, EMS_TRAP_MAX> room;
        int length = EMS_TRAP_MAX;
        require(snmpBuildTrapEMS(room.data(), &length, &message.trap, nullptr,
                                 message.vars.data()) == 0,
                "a trap cannot be encoded");
        all.insert(all.end(), room.begin(), room.begin() + length);
    }
    return all;
}

void write_configuration(const TempDir& folder) {
    std::string text = "CATEGORY 3 \"Status Events\"\n#\nroom {1.3.6.1.4.1.8072.4}\n#\n";
    for (uint32_t i = 1; i <= configured; ++i) {
        const std::string number = std::to_string(i);
        text.append("room").append(number).append(" {1.3.6.1.4.1.8072.4} 6 ").append(number);
        text.append(" A 1 0 \"Status Events\"\n");
        text.append("event $S of $2, application $1: $3 ($4, $5)\nSDESC\nEDESC\n");
    }
    std::filesystem::create_directory(folder.path("C"));
    folder.write("C/vortd.conf", text);
    folder.write("oid_to_label", "1.3.6.1.4.1.8072=\"room\"\n");
    folder.write("snmptrapd.conf", "disableAuthorization yes\n");
}

SubprocessOptions environment(const TempDir& folder) {
    SubprocessOptions options;
    options.environment = {{"WQCONFDIR", folder.path()},
                           {"WQVORTDCONF", folder.path("C/vortd.conf")},
                           {"HOME", folder.path()},
                           {"SNMPCONFPATH", folder.path()},
                           {"SNMP_PERSISTENT_DIR", folder.path()},
                           {"MIBS", ""},
                           {"LC_ALL", "C"}};
    return options;
}

// A port that was free a moment ago.
uint16_t some_port() {
    return test::port_of(test::tcp_listener());
}

// Connects as soon as somebody listens there.
Fd connected_to(uint16_t port) {
    const sockaddr_in address = test::loopback(port);
    for (int i = 0; i < 500; ++i) {
        Fd sd(test::checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
        if (connect(sd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return sd;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    require(false, "nobody listens");
    return {};
}

// Counts the lines of traps, whatever else is printed; each look goes on where the last one ended.
class LineCounter {
  public:
    std::size_t count(const std::string& out) {
        constexpr std::string_view mark = " event ";
        for (std::size_t at = out.find(mark, from_); at != std::string::npos;
             at = out.find(mark, from_)) {
            ++lines_;
            from_ = at + mark.size();
        }
        return lines_;
    }

  private:
    std::size_t from_ = 0;
    std::size_t lines_ = 0;
};

void measure(benchmark::State& state, const Words& words, uint16_t port, const TempDir& folder) {
    static const std::vector<uint8_t> bytes = encoded_traps();
    for (auto _ : state) {
        Subprocess receiver(words, environment(folder));
        const Fd sd = connected_to(port);
        const auto start = std::chrono::steady_clock::now();
        std::thread sender([&] { test::write_all(sd, bytes); });
        LineCounter lines;
        receiver.gather_until([&] { return lines.count(receiver.out()) >= traps; });
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        sender.join();
        receiver.signal(SIGTERM);
        receiver.wait();
        require(lines.count(receiver.out()) == traps, "a trap was lost: " + receiver.err());
        state.SetIterationTime(taken.count() / static_cast<double>(traps));
    }
}

void listen_format(benchmark::State& state) {
    const TempDir folder;
    write_configuration(folder);
    const uint16_t port = some_port();
    measure(
        state,
        {WQEVENTS_COMMAND, "listen", "--raw-tcp", "127.0.0.1:" + std::to_string(port), "--format"},
        port, folder);
}

void snmptrapd(benchmark::State& state) {
    const TempDir folder;
    write_configuration(folder);
    const uint16_t port = some_port();
    measure(state,
            {"/usr/sbin/snmptrapd", "-f", "-n", "-X", "-Lo", "-C", "-c",
             folder.path("snmptrapd.conf"), "-p", folder.path("pid"), "-F",
             "%t %a %W event %q of %N: %v\\n", "tcp:127.0.0.1:" + std::to_string(port)},
            port, folder);
}

BENCHMARK(listen_format)->UseManualTime()->Iterations(1);
BENCHMARK(snmptrapd)->UseManualTime()->Iterations(1);

constexpr std::array<Goal, 1> goals = {{
    {"traps to lines / snmptrapd", "listen_format", "snmptrapd", 0.075},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    return wq::bench::run(argc, argv, wq::bench::goals);
}
