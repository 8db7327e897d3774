// Sending and receiving over connected streams against the leanest system calls, against the plain
// shape of a framed stream (two sends; wait, read, wait, read) and against net-snmp's own stream
// transports.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "limit_coder.h"
#include "messages.h"
#include "net_snmp.h"
#include "ratios.h"

namespace wq::bench {
namespace {

constexpr int batch = 500;  // traps of one measured step between two processes

void require(bool condition) {
    if (!condition) {
        std::perror("bench_channel");
        std::abort();
    }
}

struct Stream {
    int near = -1;
    int far = -1;
    uint16_t mode = 2;

    ~Stream() {
        close(near);
        close(far);
    }
};

void connect_unix(Stream& stream) {
    std::array<int, 2> pair{};
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()) == 0);
    stream.near = pair[0];
    stream.far = pair[1];
    stream.mode = 2;
}

void connect_tcp(Stream& stream) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    require(bind(listener, generic, length) == 0 && listen(listener, 1) == 0 &&
            getsockname(listener, generic, &length) == 0);
    stream.near = socket(AF_INET, SOCK_STREAM, 0);
    require(connect(stream.near, generic, length) == 0);
    stream.far = accept(listener, nullptr, nullptr);
    require(stream.far >= 0);
    stream.mode = 3;
    close(listener);
}

using Connect = void (*)(Stream&);

event_infoEMS channel(int sd, uint16_t mode) {
    event_infoEMS ei{};
    ei.sd = sd;
    ei.trans = mode;
    ei.source = 15;
    return ei;
}

// ---- one side of an exchange: `prepare` once, then one call a trap

struct LibrarySender {
    event_infoEMS ei;
    std::vector<Message> messages = event_messages();

    explicit LibrarySender(const Stream& stream) : ei(channel(stream.near, stream.mode)) {}
    void send(std::size_t i) {
        Message& message = messages[i % variants];
        require(send_trap(&ei, &message.trap, message.vars.data()) == 0);
    }
};

struct EventSender {
    event_infoEMS ei;
    std::array<std::string, 4> texts = {"gateway-12", std::string(100, 'd'), std::string(45, 'x'),
                                        "database"};

    explicit EventSender(const Stream& stream) : ei(channel(stream.near, stream.mode)) {}
    void send(std::size_t i) {
        require(send_event(&ei, static_cast<int>(i & 0xFFFFFF), texts[0].c_str(), texts[1].c_str(),
                           texts[2].c_str(), texts[3].c_str()) == 0);
    }
};

struct LibraryReceiver {
    event_infoEMS ei;
    snmp_trap_infoEMS trap{};
    std::vector<SnmpVarBindEMS> vars{32};

    explicit LibraryReceiver(const Stream& stream) : ei(channel(stream.far, stream.mode)) {
        trap.maxvars = static_cast<int32_t>(vars.size());
    }
    void receive() { require(recv_event(&ei, &trap, vars.data()) > 0); }
};

struct LimitSender {
    int sd;
    const std::vector<Message>& messages = event_messages();
    std::array<uint8_t, EMS_TRAP_MAX> buffer;

    explicit LimitSender(const Stream& stream) : sd(stream.near) {}
    std::span<uint8_t> encode(std::size_t i) {
        const Message& message = messages[i % variants];
        uint8_t* end = buffer.data() + buffer.size();
        return {limit_encode(end, message.trap, message.vars.data()), end};
    }
    void send(std::size_t i) {
        const std::span<uint8_t> encoded = encode(i);
        trap_headerEMS header{static_cast<int32_t>(encoded.size()), 15, 1, 0, -1, 0};
        std::array<iovec, 2> parts{{{&header, sizeof header}, {encoded.data(), encoded.size()}}};
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        require(sendmsg(sd, &message, MSG_NOSIGNAL) > 0);
    }
};

struct LimitReceiver {
    int sd;
    trap_headerEMS header{};
    std::array<uint8_t, EMS_TRAP_MAX + 4> packet;
    snmp_trap_infoEMS trap{};
    std::vector<SnmpVarBindEMS> vars{32};

    explicit LimitReceiver(const Stream& stream) : sd(stream.far) {}
    void decode() { limit_decode(packet.data(), trap, vars.data()); }
    void receive() {
        require(recv(sd, &header, sizeof header, MSG_WAITALL) == sizeof header);
        require(recv(sd, packet.data(), static_cast<std::size_t>(header.len), MSG_WAITALL) > 0);
        decode();
    }
};

// The shape that a framed stream has when it is written without a thought for its cost.
struct PlainSender : LimitSender {
    using LimitSender::LimitSender;
    void send(std::size_t i) {
        const std::span<uint8_t> encoded = encode(i);
        const trap_headerEMS header{static_cast<int32_t>(encoded.size()), 15, 1, 0, -1, 0};
        require(::send(sd, &header, sizeof header, MSG_NOSIGNAL) > 0);
        require(::send(sd, encoded.data(), encoded.size(), MSG_NOSIGNAL) > 0);
    }
};

struct PlainReceiver : LimitReceiver {
    using LimitReceiver::LimitReceiver;
    void read_fully(void* room, std::size_t length) {
        auto* next = static_cast<uint8_t*>(room);
        while (length > 0) {
            fd_set readable;
            FD_ZERO(&readable);
            FD_SET(sd, &readable);
            require(select(sd + 1, &readable, nullptr, nullptr, nullptr) == 1);
            const ssize_t got = recv(sd, next, length, 0);
            require(got > 0);
            next += got;
            length -= static_cast<std::size_t>(got);
        }
    }
    void receive() {
        read_fully(&header, sizeof header);
        read_fully(packet.data(), static_cast<std::size_t>(header.len));
        decode();
    }
};

// ---- one thread

template <typename Sender, typename Receiver>
void one_thread(benchmark::State& state, Connect connect) {
    Stream stream;
    connect(stream);
    Sender sender(stream);
    Receiver receiver(stream);
    std::size_t i = 0;
    for (auto _ : state) {
        sender.send(i++);
        receiver.receive();
    }
}

// ---- two processes: the child receives and acknowledges every batch with a byte

class Child {
  public:
    template <typename Body>
    explicit Child(Body body) {
        std::array<int, 2> pipe_ends{};
        require(pipe(pipe_ends.data()) == 0);
        pid_ = fork();
        require(pid_ >= 0);
        if (pid_ == 0) {
            body([&] { require(write(pipe_ends[1], "", 1) == 1); });
            _exit(0);
        }
        close(pipe_ends[1]);
        acknowledged_ = pipe_ends[0];
    }
    ~Child() {
        close(acknowledged_);
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    void wait() {
        char byte = 0;
        require(read(acknowledged_, &byte, 1) == 1);
    }

  private:
    pid_t pid_ = -1;
    int acknowledged_ = -1;
};

template <typename Sender, typename Receiver>
void two_processes(benchmark::State& state, Connect connect) {
    Stream stream;
    connect(stream);
    Child child([&](auto acknowledge) {
        Receiver receiver(stream);
        for (;;) {
            for (int i = 0; i < batch; ++i) {
                receiver.receive();
            }
            acknowledge();
        }
    });
    Sender sender(stream);
    std::size_t next = 0;
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) {
            sender.send(next++);
        }
        child.wait();
    }
}

// ---- net-snmp

struct NetSnmpStreams {
    template <typename Function>
    static Function symbol(Function, const char* name) {
        return net_snmp().symbol<Function>(name);
    }
    decltype(&::snmp_sess_open) open = symbol(&::snmp_sess_open, "snmp_sess_open");
    decltype(&::snmp_add) add = symbol(&::snmp_add, "snmp_add");
    decltype(&::snmp_sess_send) send = symbol(&::snmp_sess_send, "snmp_sess_send");
    decltype(&::snmp_read) read = symbol(&::snmp_read, "snmp_read");
    decltype(&::snmp_select_info) select_info = symbol(&::snmp_select_info, "snmp_select_info");
    decltype(&::snmp_clone_pdu) clone = symbol(&::snmp_clone_pdu, "snmp_clone_pdu");
    decltype(&::netsnmp_tdomain_transport) transport =
        symbol(&::netsnmp_tdomain_transport, "netsnmp_tdomain_transport");
    decltype(&::init_snmp) init = symbol(&::init_snmp, "init_snmp");
};

const NetSnmpStreams& net_snmp_streams() {
    static const NetSnmpStreams streams = [] {
        NetSnmpStreams fresh;
        setenv("SNMPCONFPATH", "/nonexistent", 1);
        setenv("MIBS", "", 1);
        fresh.init("bench_channel");
        return fresh;
    }();
    return streams;
}

int net_snmp_received = 0;

int count_trap(int, netsnmp_session*, int, netsnmp_pdu*, void*) {
    ++net_snmp_received;
    return 1;
}

template <typename Acknowledge>
void serve_net_snmp(netsnmp_transport* transport, Acknowledge acknowledge) {
    netsnmp_session fresh = session();
    fresh.callback = count_trap;
    const netsnmp_session* listening = net_snmp_streams().add(&fresh, transport, nullptr, nullptr);
    require(listening != nullptr);
    for (;;) {
        int count = 0;
        int block = 1;
        fd_set readable;
        timeval timeout{};
        FD_ZERO(&readable);
        net_snmp_streams().select_info(&count, &readable, &timeout, &block);
        require(select(count, &readable, nullptr, nullptr, nullptr) > 0);
        net_snmp_streams().read(&readable);
        for (; net_snmp_received >= batch; net_snmp_received -= batch) {
            acknowledge();
        }
    }
}

void two_processes_net_snmp(benchmark::State& state, const char* domain) {
    std::string address =
        std::string(domain) + ":127.0.0.1:" + std::to_string(20000 + getpid() % 20000);
    if (std::string_view(domain) == "unix") {
        address = "unix:" + std::string(P_tmpdir) + "/bench_channel." + std::to_string(getpid());
    }
    netsnmp_transport* transport = net_snmp_streams().transport(address.c_str(), 1, domain);
    require(transport != nullptr);
    Child child([&](auto acknowledge) { serve_net_snmp(transport, acknowledge); });
    netsnmp_session fresh = session();
    fresh.peername = address.data();
    void* sender = net_snmp_streams().open(&fresh);
    require(sender != nullptr);
    std::vector<netsnmp_pdu*> pdus;
    for (const Message& message : event_messages()) {
        pdus.push_back(make_pdu(message));
    }
    std::size_t next = 0;
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) {
            require(net_snmp_streams().send(
                        sender, net_snmp_streams().clone(pdus[next++ % variants])) != 0);
        }
        child.wait();
    }
    close(transport->sock);
    if (address.starts_with("unix:")) {
        unlink(address.c_str() + 5);
    }
}

#define ON_BOTH_STREAMS(name, ...)                              \
    void name(benchmark::State& state, Connect connect) {       \
        __VA_ARGS__(state, connect);                            \
    }                                                           \
    BENCHMARK_CAPTURE(name, unix, connect_unix)->UseRealTime(); \
    BENCHMARK_CAPTURE(name, tcp, connect_tcp)->UseRealTime()

ON_BOTH_STREAMS(trap, one_thread<LibrarySender, LibraryReceiver>);
ON_BOTH_STREAMS(event, one_thread<EventSender, LibraryReceiver>);
ON_BOTH_STREAMS(lean, one_thread<LimitSender, LimitReceiver>);
ON_BOTH_STREAMS(trap_2p, two_processes<LibrarySender, LibraryReceiver>);
ON_BOTH_STREAMS(lean_2p, two_processes<LimitSender, LimitReceiver>);
ON_BOTH_STREAMS(plain_2p, two_processes<PlainSender, PlainReceiver>);
BENCHMARK_CAPTURE(two_processes_net_snmp, unix, "unix")->UseRealTime();
BENCHMARK_CAPTURE(two_processes_net_snmp, tcp, "tcp")->UseRealTime();

constexpr std::array<Goal, 10> goals = {{
    {"one thread, trap, unix / lean", "trap/unix", "lean/unix", 1.10},
    {"one thread, trap, TCP / lean", "trap/tcp", "lean/tcp", 1.05},
    {"one thread, event, unix / lean", "event/unix", "lean/unix", 1.15},
    {"one thread, event, TCP / lean", "event/tcp", "lean/tcp", 1.10},
    {"two processes, unix / lean", "trap_2p/unix", "lean_2p/unix", 1.10},
    {"two processes, TCP / lean", "trap_2p/tcp", "lean_2p/tcp", 1.15},
    {"two processes, unix / plain", "trap_2p/unix", "plain_2p/unix", 0.55},
    {"two processes, TCP / plain", "trap_2p/tcp", "plain_2p/tcp", 0.55},
    {"two processes, unix / net-snmp", "trap_2p/unix", "two_processes_net_snmp/unix", 0.90},
    {"two processes, TCP / net-snmp", "trap_2p/tcp", "two_processes_net_snmp/tcp", 0.62},
}};

}  // namespace
}  // namespace wq::bench

int main(int argc, char** argv) {
    return wq::bench::run(argc, argv, wq::bench::goals);
}
