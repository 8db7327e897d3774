// Threads that are cancelled while they wait in the library: the thread ends, not the process, and
// leaves no descriptor, no lock and no channel behind.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <wqevents/channel.h>
#include <wqevents/client.h>
#include <wqevents/trace.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <string>

#include "support/capture.h"
#include "support/env_value.h"
#include "support/records.h"
#include "support/sockets.h"
#include "support/temp_dir.h"

namespace wq::test {
namespace {

// A thread by itself: std::thread would take the unwinding for an exception in some libraries.
class Cancelled {
  public:
    explicit Cancelled(std::function<void()> body) : body_(std::move(body)) {
        pthread_create(&thread_, nullptr, run, this);
    }
    Cancelled(const Cancelled&) = delete;
    Cancelled& operator=(const Cancelled&) = delete;

    // Cancels the thread when the kernel says that it sleeps. True if that ended it.
    bool cancel_asleep() {
        while (thread_id_ == 0 || !sleeps(thread_id_)) {
            usleep(1000);
        }
        pthread_cancel(thread_);
        void* result = nullptr;
        pthread_join(thread_, &result);
        return result == PTHREAD_CANCELED;
    }
    // The cancellation is there before the thread begins its work.
    bool join_cancelled() {
        pthread_cancel(thread_);
        go_ = true;
        void* result = nullptr;
        pthread_join(thread_, &result);
        return result == PTHREAD_CANCELED;
    }
    std::atomic<bool> go_ = false;

  private:
    static void* run(void* self) {
        auto* const me = static_cast<Cancelled*>(self);
        me->thread_id_ = gettid();
        me->body_();
        return nullptr;
    }
    static bool sleeps(pid_t thread) {
        std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::string text;
        std::getline(status, text);
        return text.find(") S ") != std::string::npos;
    }

    std::function<void()> body_;
    pthread_t thread_{};
    std::atomic<pid_t> thread_id_ = 0;
};

bool is_cancelled_in(const std::function<void()>& body) {
    const long before = open_descriptors();
    Cancelled thread(body);
    const bool ended = thread.cancel_asleep();
    EXPECT_EQ(before, open_descriptors());
    return ended;
}

event_infoEMS channel_on(const Fd& sd, int trans) {
    event_infoEMS channel{};
    channel.sd = sd.get();
    channel.trans = static_cast<uint16_t>(trans);
    channel.source = 12;
    return channel;
}

TEST(Cancel, Receiving) {
    for (const int trans : {1, 2, 3, 4, 6}) {
        const SocketPair pair = local_pair(trans == 1 ? SOCK_DGRAM : SOCK_STREAM);
        event_infoEMS channel = channel_on(pair.ours, trans);
        wqc_recv_event = [](int, sockaddr_in*, unsigned char*, int*) { return 0; };
        EXPECT_TRUE(is_cancelled_in([&] {
            snmp_trap_infoEMS trap{};
            recv_event(&channel, &trap, nullptr);
        })) << trans;
        wqc_recv_event = nullptr;
    }
}

TEST(Cancel, ReceivingBetweenHeaderAndBody) {
    const SocketPair pair = local_pair();
    trap_headerEMS header{};
    header.len = 100;
    write_all(pair.peer, {reinterpret_cast<const uint8_t*>(&header), sizeof header});
    EXPECT_TRUE(is_cancelled_in([&] {
        unsigned char* buffer = nullptr;
        trap_headerEMS* th = nullptr;
        recv_trap(pair.ours.get(), &buffer, 2, nullptr, nullptr, &th);
    }));
}

TEST(Cancel, Sending) {
    for (const int trans : {2, 6}) {
        const SocketPair pair = local_pair();
        event_infoEMS channel = channel_on(pair.ours, trans);
        EXPECT_TRUE(is_cancelled_in([&] {
            while (send_event(&channel, 1, nullptr, "text", nullptr, nullptr) == 0) {
            }
        })) << trans;
    }
}

TEST(Cancel, SendingTrapsAndBuffers) {
    const std::vector<unsigned char> buffer(8000);
    const SocketPair pair = local_pair();
    event_infoEMS channel = channel_on(pair.ours, 6);
    EXPECT_TRUE(is_cancelled_in([&] {
        while (send_hex_buffer(&channel, buffer.data(), static_cast<int>(buffer.size())) == 0) {
        }
    }));
}

// A listener whose queue is full makes the next connection wait.
TEST(Cancel, Connecting) {
    const TempDir dir;
    std::string path = dir.path("socket");
    const Fd listener = local_listener(path, 0);
    event_infoEMS first{};
    ASSERT_LE(0, open_event(&first, 4, path.data(), 2));
    event_infoEMS second{};
    EXPECT_TRUE(is_cancelled_in([&] { open_event(&second, 4, path.data(), 2); }));
    EXPECT_EQ(-1, second.sd);
    close_event(&first);
}

TEST(Cancel, Announcing) {
    const TempDir dir;
    std::string path = dir.path("socket");
    const Fd listener = local_listener(path, 0);
    event_infoEMS channel{};
    ASSERT_LE(0, open_event(&channel, 12, path.data(), 2));
    const std::vector<unsigned char> buffer(8000);
    set_nonblocking(Fd(dup(channel.sd)));
    while (send_hex_buffer(&channel, buffer.data(), static_cast<int>(buffer.size())) == 0) {
    }
    fcntl(channel.sd, F_SETFL, 0);
    const long before = open_descriptors();
    Cancelled closing([&] { close_event(&channel); });
    EXPECT_TRUE(closing.cancel_asleep());
    EXPECT_EQ(before - 1, open_descriptors());
}

// The cancellation is pending when the call begins: it takes effect at the first step that may
// wait, or after the call.
TEST(Cancel, BeforeTheCall) {
    const TempDir dir;
    std::string path = dir.path("socket");
    const Fd listener = local_listener(path, 64);
    const long before = open_descriptors();
    for (const int source : {4, 12}) {
        event_infoEMS channel{};
        Cancelled thread([&] {
            while (!thread.go_) {
            }
            open_event(&channel, source, path.data(), 2);
            close_event(&channel);
            pthread_testcancel();
        });
        EXPECT_TRUE(thread.join_cancelled());
        EXPECT_EQ(before, open_descriptors()) << source;
    }
}

TEST(Cancel, AskingAnAgent) {
    const Fd silent = udp_socket();
    const EnvValue port("WQSNMPPORT", std::to_string(port_of(silent)).c_str());
    snmp_call_info* client = init_snmp_call(100, 2);
    ASSERT_NE(nullptr, client);
    init_snmp_request(client, htonl(INADDR_LOOPBACK), "public");
    EXPECT_TRUE(is_cancelled_in([&] {
        SnmpVarBindEMS var{};
        var.oid[0] = 1;
        var.oid[1] = 3;
        var.oid_length = 2;
        getvar(client, &var, &var);
    }));
    close_snmp_call(client);
}

TEST(Cancel, ReadingAPidFile) {
    const TempDir dir;
    const std::string fifo = dir.path("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const Fd writer(open(fifo.c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_TRUE(is_cancelled_in([&] { sendsig(0, "", fifo.c_str()); }));
}

// Logging neither ends a thread half way through a line nor ends the process.
TEST(Cancel, Logging) {
    const TempDir dir;
    ASSERT_EQ(0, open_trace_log(dir.path("trace").c_str()));
    const EnvValue log("WQULOG", dir.path("log").c_str());
    const std::string said = captured_stderr([&] {
        Cancelled thread([&] {
            while (!thread.go_) {
            }
            logger(1, "routine", "text");
            log_trace("routine", "text");
            event_infoEMS channel{};
            open_event(&channel, 0, nullptr, 0);
            int32_t length = 0;
            const unsigned char indefinite = 0x80;
            get_pdu_len(&indefinite, &length);
            _eventsMsg(1, 4, "text");
            pthread_testcancel();
        });
        EXPECT_TRUE(thread.join_cancelled());
    });
    close_trace_log();
    EXPECT_NE(std::string::npos, said.find("routine: text\n"));
    EXPECT_NE(std::string::npos, dir.read("trace").find("routine: text\n"));
}

}  // namespace
}  // namespace wq::test
