#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "captures.h"
#include "formatting.h"
#include "support/hex.h"

namespace wq::test {
namespace {

const std::string any_port = "127.0.0.1:0";

using std::chrono::milliseconds;

constexpr std::uint32_t configuration_changed = 50790438;
constexpr std::uint32_t mib_changed = 50790439;

Bytes notice(std::uint32_t event) {
    return event_trap(platform_enterprise, event, "alpha", "vortd.conf");
}

std::string configuration_with(const std::string& word) {
    std::string text = small_configuration;
    return text.replace(text.find("logged"), 6, word);
}

class ListenReload : public Formatting {
  protected:
    std::string replace_configuration(const std::string& content) const {
        const std::string fresh = folder_.write("fresh", content);
        std::filesystem::rename(fresh, folder_.path("C/vortd.conf"));
        return folder_.path("C/vortd.conf");
    }

    ListeningProcess start(Words more = {}) const {
        more.insert(more.begin(), {"--raw-tcp", any_port, "--udp", any_port, "--format", "prx"});
        return ListeningProcess(more);
    }

    static std::size_t count(const std::string& text, const std::string& part) {
        std::size_t found = 0;
        for (std::size_t at = text.find(part); at != std::string::npos;
             at = text.find(part, at + 1)) {
            ++found;
        }
        return found;
    }

    /* Sends traps until one is shown by the word; the line of each goes on being a whole one. */
    static bool comes_to_show(ListeningProcess& listener, const Fd& peer, const std::string& word) {
        for (int i = 0; i < 400; ++i) {
            const std::size_t before = listener.lines();
            write_all(peer, formatted_trap(4));
            if (!listener.wait_for_lines(before + 1)) {
                return false;
            }
            if (listener.out().ends_with("\n" + word + "\n")) {
                return true;
            }
            std::this_thread::sleep_for(milliseconds(50));
        }
        return false;
    }
};

TEST_F(ListenReload, AChangedConfigurationIsReadBeforeTheNextTrap) {
    auto listener = start({"--count", "4"});
    const Fd peer = connected_to(listener.port("raw-tcp"));
    write_all(peer, formatted_trap(4));
    ASSERT_TRUE(listener.wait_for_lines(1));
    replace_configuration(configuration_with("renewed"));
    write_all(peer, joined({formatted_trap(4), notice(configuration_changed), formatted_trap(4)}));
    EXPECT_EQ(listener.wait(), 0);
    EXPECT_EQ(listener.out(), "logged\nlogged\nrenewed\n");
}

TEST_F(ListenReload, WhatCannotBeReadChangesNothing) {
    const struct {
        std::string content;
        std::string reason;
    } rows[] = {
        {"CATEGORY 64 \"Beyond\"\n", "Bad category number (must be < 64) in line #1 of \"" +
                                         folder_.path("C/vortd.conf") +
                                         "\":\n\tCATEGORY 64 \"Beyond\"."},
        {small_configuration + std::string("BROKEN {1.3.6.1.4.1.2} 6 6 A 1 0 \"Error Events\"\n"),
         "Did not find an event log format\n"},
        {"!\n", "vortd.conf\" is being written, or was not written to its end\n"},
        {"", "\"" + folder_.path("C/vortd.conf") + "\" is empty\n"},
    };
    auto listener = start();
    const Fd peer = connected_to(listener.port("raw-tcp"));
    std::size_t complaints = 0;
    std::size_t lines = 0;
    for (const auto& row : rows) {
        replace_configuration(row.content);
        write_all(peer, notice(configuration_changed));
        const std::string start = "configuration: what was read before stays in use: ";
        ++complaints;
        const auto told = [&] { return listener.err().substr(listener.err().rfind(start)); };
        ASSERT_TRUE(listener.gather_until([&] {
            return count(listener.err(), start) == complaints &&
                   told().find(row.reason) != std::string::npos;
        })) << row.content
            << listener.err();
        EXPECT_EQ(told().find("/proc/"), std::string::npos) << told();
        // It is said once, however often it is told that there is something to read.
        for (int i = 0; i < 20; ++i) {
            write_all(peer, notice(configuration_changed));
        }
        write_all(peer, joined({formatted_trap(4), formatted_trap(2)}));
        ASSERT_TRUE(listener.wait_for_lines(lines += 4));
        EXPECT_TRUE(listener.out().ends_with("logged\nfirst of public\n\tsecond of 0\n\tthird\n"));
        EXPECT_EQ(count(listener.err(), start), complaints) << listener.err();
    }
    // It is read without another notice once it can be.
    replace_configuration(configuration_with("renewed"));
    EXPECT_TRUE(comes_to_show(listener, peer, "renewed"));
    EXPECT_TRUE(listener.wait_for_err("configuration: it can be read again, and is in use\n"));
    EXPECT_EQ(listener.terminate(), 0);
}

TEST_F(ListenReload, AFileThatIsMissingOrNoneChangesNothing) {
    auto listener = start();
    const Fd peer = connected_to(listener.port("raw-tcp"));
    const std::string file = folder_.path("C/vortd.conf");
    std::filesystem::remove(file);
    write_all(peer, joined({notice(configuration_changed), formatted_trap(4)}));
    EXPECT_TRUE(listener.wait_for_lines(1));
    EXPECT_TRUE(listener.wait_for_err("Could not open trap format file \"" + file +
                                      "\": No such file or directory\n"));
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_TRUE(listener.wait_for_err("it is a pipe, not a regular file\n"));
    // A file that the system refuses to read, though it is there and regular.
    std::filesystem::remove(file);
    std::filesystem::create_symlink("/proc/self/mem", file);
    EXPECT_TRUE(listener.wait_for_err("Could not read \"" + file + "\": Input/output error\n"));
    write_all(peer, formatted_trap(4));
    EXPECT_TRUE(listener.wait_for_lines(2));
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_EQ(listener.out(), "logged\nlogged\n");
}

/* The same size, time and file: nothing that anybody who looks at these can notice. */
TEST_F(ListenReload, AFileThatIsNoOtherIsNotReadAgain) {
    struct stat before {};
    const std::string file = folder_.path("C/vortd.conf");
    ASSERT_EQ(stat(file.c_str(), &before), 0);
    std::this_thread::sleep_for(milliseconds(100));  // the file has come to rest
    auto listener = start();
    const Fd peer = connected_to(listener.port("raw-tcp"));
    folder_.write("C/vortd.conf", configuration_with("LOGGED"));
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    write_all(peer, joined({notice(configuration_changed), formatted_trap(4)}));
    ASSERT_TRUE(listener.wait_for_lines(1));
    EXPECT_EQ(listener.out(), "logged\n");
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), nullptr, 0), 0);
    write_all(peer, joined({notice(configuration_changed), formatted_trap(4)}));
    ASSERT_TRUE(listener.wait_for_lines(2));
    EXPECT_EQ(listener.out(), "logged\nLOGGED\n");
}

/* The second change is read, too, a second after the first. */
TEST_F(ListenReload, AChangeSoonAfterAnotherIsReadLater) {
    auto listener = start();
    const Fd peer = connected_to(listener.port("raw-tcp"));
    replace_configuration(configuration_with("first"));
    write_all(peer, notice(configuration_changed));
    ASSERT_TRUE(comes_to_show(listener, peer, "first"));
    for (const std::string word : {"second", "third"}) {
        replace_configuration(configuration_with(word));
        write_all(peer, notice(configuration_changed));
    }
    EXPECT_TRUE(comes_to_show(listener, peer, "third"));
}

TEST_F(ListenReload, AHangupHasItReadAgain) {
    auto listener = start();
    const Fd peer = connected_to(listener.port("raw-tcp"));
    replace_configuration(configuration_with("renewed"));
    listener.signal(SIGHUP);
    EXPECT_TRUE(comes_to_show(listener, peer, "renewed"));
}

TEST_F(ListenReload, AMibThatCannotBeReadChangesNothing) {
    auto listener = start();
    const Fd peer = connected_to(listener.port("raw-tcp"));
    folder_.write("mib.txt", "no line of a MIB\n");
    write_all(peer, joined({notice(mib_changed), formatted_trap(4)}));
    ASSERT_TRUE(listener.wait_for_lines(1));
    EXPECT_TRUE(
        listener.wait_for_err("configuration: what was read before stays in use: cannot "
                              "read the MIB file '" +
                              folder_.path("mib.txt") + "'\n"));
    std::filesystem::remove(folder_.path("mib.txt"));
    EXPECT_TRUE(listener.wait_for_err("configuration: it can be read again, and is in use\n"));
    EXPECT_EQ(listener.terminate(), 0);
}

/* Somebody edits, and somebody floods it with events that say so, by datagrams from anywhere. */
TEST_F(ListenReload, EditsAndAStormOfEventsLoseNothing) {
    auto listener = start();
    std::atomic<bool> going = true;
    const std::uint16_t port = listener.port("udp");
    std::thread editor([&] {
        const std::string contents[] = {configuration_with("renewed"), small_configuration};
        for (std::size_t i = 0; going; ++i) {
            // Torn on purpose: the file is empty, then half there, then whole.
            const std::string& text = contents[i % 2];
            folder_.write("C/vortd.conf", text.substr(0, text.size() / 2));
            std::this_thread::sleep_for(milliseconds(2));
            folder_.write("C/vortd.conf", text);
            std::this_thread::sleep_for(milliseconds(7));
        }
    });
    std::thread storm([&] {
        const Fd sender = udp_socket();
        while (going) {
            send_datagram(sender, port, notice(configuration_changed));
            std::this_thread::sleep_for(milliseconds(5));
        }
    });
    const Fd peer = connected_to(listener.port("raw-tcp"));
    constexpr std::size_t traps = 300;
    std::size_t sent = 0;
    for (; sent < traps; ++sent) {
        write_all(peer, formatted_trap(4));
        std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_TRUE(listener.wait_for_lines(sent));
    going = false;
    editor.join();
    storm.join();
    EXPECT_EQ(listener.terminate(), 0);
    EXPECT_EQ(count(listener.out(), "logged\n") + count(listener.out(), "renewed\n"), traps);
    EXPECT_EQ(listener.lines(), traps);
    EXPECT_EQ(listener.out().find("NO FMT"), std::string::npos);
}

}  // namespace
}  // namespace wq::test
