#include <gtest/gtest.h>
#include <wqevents/channel.h>
#include <wqevents/codec.h>
#include <wqevents/configuration.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/env_value.h"
#include "support/progress_log.h"
#include "support/sandbox.h"
#include "support/sockets.h"
#include "support/temp_dir.h"
#include "support/traps.h"
#include "support/writer.h"

namespace {

using namespace wq::test;

constexpr uint16_t editor = 5;
constexpr uint32_t format_changed = 50790438;

std::string warning(const std::string& step) {
    return std::string("Warning: /etc/x.conf updated, but cannot ")
        .append(step)
        .append(
            " event to vortd.\nChanges won't take effect until vortd and zelevents are restarted.");
}

/* The traps in what a daemon receives on its local socket: a header of 24 bytes, then a message. */
std::vector<Trap> traps_in(const Bytes& bytes) {
    std::vector<Trap> traps;
    for (size_t at = 0; at + EMS_HEADER_LEN < bytes.size();) {
        trap_headerEMS header{};
        std::memcpy(&header, bytes.data() + at, sizeof header);
        at += sizeof header;
        Trap trap(16);
        EXPECT_EQ(
            snmp_parse_trap(bytes.data() + at, header.len, &trap.info, nullptr, trap.vars.data()),
            0);
        at += static_cast<size_t>(header.len);
        traps.push_back(trap);
    }
    return traps;
}

std::string text_of(const SnmpVarBindEMS& var) {
    return {reinterpret_cast<const char*>(var.val.string), var.val_len};
}

TEST(Notification, TellsTheDaemon) {
    REQUIRE_SANDBOX();
    run_in_sandbox({}, [] {
        std::filesystem::create_directories("/usr/WQ/sockets");
        const wq::Fd daemon = local_listener("/usr/WQ/sockets/vortd.socket");
        setVortdConfFile("/etc/x.conf");
        Bytes received;
        int result = -2;
        char* message = const_cast<char*>("untouched");
        {
            const Writer reader([&] { received = read_to_end(accepted(daemon)); });
            result = sendFMTCHGevent("editor", editor, &message);
        }
        EXPECT_EQ(result, 0);
        EXPECT_EQ(message, nullptr);
        const std::vector<Trap> traps = traps_in(received);
        ASSERT_EQ(traps.size(), 3U) << "wake-up, change, disconnect";
        EXPECT_EQ(traps[1].info.specific, format_changed);
        EXPECT_EQ(text_of(traps[1].vars.at(2)), "editor changed format file \"/etc/x.conf\"");
        const std::vector<std::string> texts = take_progress();
        const auto logged = [&texts](const std::string& beginning) {
            return std::count_if(texts.begin(), texts.end(), [&](const std::string& text) {
                return text.starts_with(beginning);
            });
        };
        EXPECT_EQ(logged("SendFMTCHevent() open event "), 1);
        EXPECT_EQ(logged("sendFMTCHevent send event() completed\n"), 1);
        EXPECT_EQ(logged("sendFMTCHevent close event() completed.\n"), 1);
    });
}

TEST(Notification, WithoutADaemonWarns) {
    REQUIRE_SANDBOX();
    run_in_sandbox({}, [] {
        setVortdConfFile("/etc/x.conf");
        take_progress();
        const long before = open_descriptors();
        char* message = nullptr;
        EXPECT_EQ(sendFMTCHGevent("editor", editor, &message), -1);
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message, warning("connect"));
        EXPECT_EQ(open_descriptors(), before);
        bool told = false;
        for (const Progress& line : progress) {
            if (line.text == "sendFMTCHevent send event completed. errRoutine is connect.\n") {
                told = true;
                EXPECT_EQ(line.level, 4);
                EXPECT_EQ(line.catalog, "events.cat");
            }
        }
        EXPECT_TRUE(told);
        /* The warning stays until the next failure, and readable after it. */
        const char* const first = message;
        EXPECT_EQ(sendFMTCHGevent(nullptr, editor, &message), -1);
        EXPECT_EQ(message, nullptr);
        EXPECT_EQ(sendFMTCHGevent("editor", editor, nullptr), -1);
        EXPECT_EQ(first, warning("connect"));
        setVortdConfFile(std::string(5000, 'f').c_str());
        EXPECT_EQ(sendFMTCHGevent("editor", editor, &message), -1);
        EXPECT_EQ(std::string(message).find(std::string(5000, 'f')), strlen("Warning: "));
        EXPECT_EQ(first, warning("connect"));
    });
}

TEST(Notification, CutsTheTextAt511Characters) {
    REQUIRE_SANDBOX();
    run_in_sandbox({}, [] {
        std::filesystem::create_directories("/usr/WQ/sockets");
        const wq::Fd daemon = local_listener("/usr/WQ/sockets/vortd.socket");
        setVortdConfFile("/etc/x.conf");
        Bytes received;
        char* message = nullptr;
        {
            const Writer reader([&] { received = read_to_end(accepted(daemon)); });
            EXPECT_EQ(sendFMTCHGevent(std::string(600, 'p').c_str(), editor, &message), 0);
        }
        const std::vector<Trap> traps = traps_in(received);
        ASSERT_EQ(traps.size(), 3U);
        EXPECT_EQ(text_of(traps[1].vars.at(2)), std::string(511, 'p'));
    });
}

/* What the daemon is told by a process whose catalogue has `translation` for the message. */
std::string told_in(const std::string& translation) {
    std::string told;
    std::filesystem::create_directories("/usr/WQ/sockets");
    const TempDir dir;
    dir.write("events.msg", "$quote \"\n$set 1\n8 \"eight\"\n9 \"" + translation + "\"\n");
    const std::string command =
        "gencat '" + dir.path("events.cat") + "' '" + dir.path("events.msg") + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    const EnvValue path("NLSPATH", dir.path("events.cat").c_str());
    const wq::Fd daemon = local_listener("/usr/WQ/sockets/vortd.socket");
    setVortdConfFile("/etc/x.conf");
    Bytes received;
    char* message = nullptr;
    {
        const Writer reader([&] { received = read_to_end(accepted(daemon)); });
        EXPECT_EQ(sendFMTCHGevent("editor", editor, &message), 0);
    }
    const std::vector<Trap> traps = traps_in(received);
    return traps.size() == 3 ? text_of(traps[1].vars.at(2)) : "no event";
}

TEST(Notification, TextComesFromTheCatalogue) {
    REQUIRE_SANDBOX();
    run_in_sandbox({}, [] { EXPECT_EQ(told_in("%s <9> %s"), "editor <9> /etc/x.conf"); });
    run_in_sandbox({}, [] { EXPECT_EQ(told_in("%2$s <9> %1$s"), "/etc/x.conf <9> editor"); });
    run_in_sandbox({}, [] {
        EXPECT_EQ(told_in("%s %s %s %n"), "editor changed format file \"/etc/x.conf\"");
    });
}

}  // namespace
