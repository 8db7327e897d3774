/*
 * A program in C++17 that uses the codec item by item, the trace log, the message catalogue and the
 * receive hook.
 */
#include <unistd.h>
#include <wqevents.h>
#include <wqplatform.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void check(bool condition, const char* what, int line) {
    if (!condition) {
        std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, line, what);
        std::exit(1);
    }
}

#define CHECK(condition) check((condition), #condition, __LINE__)

using Bytes = std::vector<unsigned char>;

void items() {
    Bytes room(64);
    int left = static_cast<int>(room.size());
    const int32_t number = 128;
    const std::array<uint32_t, 4> oid{1, 3, 6, 1};
    unsigned char* at = asnBuildInt09(room.data(), &left, &number, sizeof number);
    CHECK(at != nullptr);
    at = asnBuildObjid09(at, &left, oid.data(), static_cast<int>(oid.size()));
    CHECK(at != nullptr);
    at = asnBuildNull09(at, &left);
    CHECK(at != nullptr);
    room.resize(room.size() - static_cast<size_t>(left));
    CHECK((room == Bytes{0x02, 0x02, 0x00, 0x80, 0x06, 0x03, 0x2B, 0x06, 0x01, 0x05, 0x00}));

    int32_t value = 0;
    std::array<uint32_t, EMS_OID_MAX> parsed{};
    int count = EMS_OID_MAX;
    left = static_cast<int>(room.size());
    const unsigned char* from = asnParseInt09(room.data(), &left, &value, sizeof value);
    CHECK(from != nullptr && value == 128 && left == 7);
    from = asnParseObjid09(from, &left, parsed.data(), &count);
    CHECK(from != nullptr && count == 4 && left == 2);
    CHECK(std::memcmp(parsed.data(), oid.data(), sizeof oid) == 0);
    CHECK(asnParseNull09(from, &left) == room.data() + room.size() && left == 0);
}

void trace() {
    std::array<char, 32> name{"wqevents.XXXXXX"};
    const int fd = mkstemp(name.data());
    CHECK(fd >= 0);
    CHECK(open_trace_log(name.data()) == 0);
    CHECK(tracelogfp != nullptr && dumpFp == tracelogfp);
    log_trace("cxx17_program", "%d of %s", 7, "them");
    close_trace_log();
    CHECK(tracelogfp == nullptr);

    std::string text(4096, '\0');
    const ssize_t length = read(fd, text.data(), text.size());
    close(fd);
    unlink(name.data());
    CHECK(length > 0);
    text.resize(static_cast<size_t>(length));
    CHECK(text.find("Tracing Started\n") == 25);
    CHECK(text.find(" cxx17_program: 7 of them\n") != std::string::npos);
    CHECK(text.find("Tracing Stopped\n") != std::string::npos);
}

Bytes& hooked() {
    static Bytes bytes;
    return bytes;
}

/* A trap of the platform's enterprise, as any SNMP tool sends it. */
Bytes message() {
    snmp_trap_infoEMS sti{};
    std::memcpy(sti.community, "public", 6);
    sti.clen = 6;
    const std::array<uint32_t, 7> enterprise{1, 3, 6, 1, 4, 1, 4242};
    std::memcpy(sti.enterprise, enterprise.data(), sizeof enterprise);
    sti.elen = static_cast<int32_t>(enterprise.size());
    sti.gen = LINK_DOWN;
    Bytes bytes(EMS_TRAP_MAX);
    int length = static_cast<int>(bytes.size());
    CHECK(snmpBuildTrapEMS(bytes.data(), &length, &sti, nullptr, nullptr) == 0);
    bytes.resize(static_cast<size_t>(length));
    return bytes;
}

void hook() {
    hooked() = message();
    wqc_recv_event = [](int, sockaddr_in*, unsigned char* buf, int* len) {
        CHECK(*len == EMS_TRAP_MAX);
        std::memcpy(buf, hooked().data(), hooked().size());
        *len = static_cast<int>(hooked().size());
        return 1;
    };
    std::array<int, 2> ends{};
    CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0);
    CHECK(write(ends[1], "!", 1) == 1);
    event_infoEMS ei{};
    ei.sd = ends[0];
    ei.trans = 4;
    snmp_trap_infoEMS sti{};
    sti.maxvars = 1;
    CHECK(recv_event(&ei, &sti, nullptr) == -1);
    SnmpVarBindEMS var{};
    CHECK(recv_event(&ei, &sti, &var) == static_cast<int>(hooked().size()));
    CHECK(sti.gen == LINK_DOWN && sti.vars == 0 && sti.elen == 7);
    wqc_recv_event = nullptr;
    close(ends[0]);
    close(ends[1]);
}

}  // namespace

int main() {
    items();
    trace();
    hook();
    const char* text = "a text of the program's own";
    CHECK(_eventsMsg(1, 0, text) == text);
    CHECK(std::strcmp(_eventsMsg(1, 6, "Format string too long"), "Format string too long") == 0);
}
