/*
 * The stream receiver, fed through a socket pair. The first octet of the input chooses the
 * transport mode (2, 3 or 6) and whether traps are decoded too; the rest is the stream. Traps are
 * received until that fails: each is what the stream holds next, and not a byte more is taken.
 */
#include <sys/socket.h>
#include <unistd.h>
#include <wqevents/channel.h>

#include <cstring>
#include <vector>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;

constexpr int bindings_max = 8;

struct Pair {
    Pair() { require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0); }
    ~Pair() {
        close(ends[0]);
        close(ends[1]);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    int ends[2] = {-1, -1};
};

/* The bytes of the stream that a trap of `length` bytes takes before its first. */
size_t header_size(int mode) {
    return mode == 6 ? 0 : EMS_HEADER_LEN;
}

void require_next(const uint8_t* stream, size_t size, size_t at, int mode, int length,
                  const uint8_t* packet) {
    require(length >= 20 && length <= EMS_TRAP_MAX);
    const size_t start = at + header_size(mode);
    require(start + static_cast<size_t>(length) <= size);
    require(std::memcmp(packet, stream + start, static_cast<size_t>(length)) == 0);
}

int receive_decoded(int sd, int mode, trap_headerEMS** header) {
    static std::vector<SnmpVarBindEMS> vars(bindings_max);
    event_infoEMS ei{};
    ei.sd = sd;
    ei.trans = static_cast<uint16_t>(mode);
    snmp_trap_infoEMS trap{};
    trap.maxvars = bindings_max;
    const int result = recv_event_hdr(&ei, &trap, vars.data(), header);
    require(result <= 0 || trap.vars <= bindings_max);
    require(result <= 0 || ei.time == (*header)->time);
    return result;
}

void receive_all(int sd, int mode, bool decoded, const uint8_t* stream, size_t size) {
    size_t at = 0;
    int result = 0;
    do {
        uint8_t* packet = nullptr;
        trap_headerEMS* header = nullptr;
        result = decoded ? receive_decoded(sd, mode, &header)
                         : recv_trap(sd, &packet, mode, nullptr, nullptr, &header);
        require(result > 0 || result == 0 || result == -1 || result == -5 || result == -6);
        if (result > 0) {
            require(header != nullptr && header->len == result);
            if (!decoded) {
                require_next(stream, size, at, mode, result, packet);
            }
            at += header_size(mode) + static_cast<size_t>(result);
            require(at <= size);
        }
    } while (result > 0);
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    constexpr int modes[] = {2, 3, 6};
    const int mode = modes[(data[0] & 0x7f) % 3];
    const bool decoded = (data[0] & 0x80) != 0;
    const Pair pair;
    const ssize_t sent = send(pair.ends[0], data + 1, size - 1, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent <= 0) {
        return 0;
    }
    shutdown(pair.ends[0], SHUT_WR);
    receive_all(pair.ends[1], mode, decoded, data + 1, static_cast<size_t>(sent));
    return 0;
}
