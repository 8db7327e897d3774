// Receiving traps, and signals to processes that have a pid file.
#include "EMS/events/nl_recv_event.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <span>

#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include "EMS/events/internal/fd.h"
#include "EMS/events/internal/frame.h"
#include "EMS/events/internal/log_target.h"

int (*wqc_recv_event)(int sd, struct sockaddr_in* from, unsigned char* buf, int* len) = nullptr;

namespace wq {
namespace {

constinit RecvState process_state;

constexpr const char* routine = "recv_trap";

// The result of a step that lets the receive go on; 0 and negative ones end it.
constexpr int going_on = 1;

// What a stalled read logs; null for silence.
struct StallTexts {
    const char* waiting;  // a signal came during the wait
    const char* reading;  // the read itself had nothing
};
constexpr StallTexts header_stall{"EINTR for packet header", "EINTR or EWOULDBLOCK for hdr"};
constexpr StallTexts body_stall{"EINTR for SNMP packet", "EINTR/EWOULDBLOCK for SNMP"};
constexpr StallTexts silent_stall{nullptr, nullptr};

void log_stall(const char* text) {
    if (text != nullptr) {
        logger(1, routine, "%s", text);
    }
}

bool would_block(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

// poll() knows no largest descriptor, and like select() it is ended by every signal.
enum class Wait { readable, interrupted, failed };
Wait wait_readable(int sd) {
    pollfd waited{sd, POLLIN, 0};
    if (poll(&waited, 1, -1) == -1) {
        return errno == EINTR ? Wait::interrupted : Wait::failed;
    }
    if ((waited.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return Wait::failed;
    }
    return Wait::readable;
}

// Waits through signals.
bool await(int sd, const char* interrupted_text) {
    for (;;) {
        switch (wait_readable(sd)) {
            case Wait::readable:
                return true;
            case Wait::failed:
                return false;
            case Wait::interrupted:
                log_stall(interrupted_text);
        }
    }
}

// Fills `room` and not a byte more: what follows belongs to the next trap, and the caller may wait
// for it. The bytes are mostly there already, so they are asked for before they are waited for;
// only a read that finds nothing after the wait has ended is a stall.
int read_exact(int sd, std::span<unsigned char> room, const StallTexts& stall) {
    bool waited = false;
    while (!room.empty()) {
        const ssize_t got = recv(sd, room.data(), room.size(), MSG_DONTWAIT);
        if (got > 0) {
            room = room.subspan(static_cast<size_t>(got));
            waited = false;
            continue;
        }
        if (got == 0) {
            return 0;
        }
        const bool interrupted = errno == EINTR;
        if (!interrupted && !would_block(errno)) {
            return -1;
        }
        if (interrupted || waited) {
            log_stall(stall.reading);
        }
        waited = await(sd, stall.waiting);
        if (!waited) {
            return -1;
        }
    }
    return going_on;
}

int fail(int error) {
    errno = error;
    return -1;
}

void make_up_header(RecvState& state, int len) {
    state.header.len = len;
    state.header.src = 1;
    state.header.pid = -1;
}

int refuse_too_large(int len) {
    log_trace(routine, "TCP trap = %d bytes is too large.", len);
    return -6;
}

int receive_datagram(RecvState& state, int sd, sockaddr_in* from, socklen_t* fromlen) {
    socklen_t own_length = sizeof *from;
    socklen_t* const length = fromlen == nullptr ? &own_length : fromlen;
    ssize_t got = 0;
    do {
        got = recvfrom(sd, state.packet.data(), state.packet.size(), 0,
                       reinterpret_cast<sockaddr*>(from), from == nullptr ? nullptr : length);
    } while (got == -1 && errno == EINTR);
    make_up_header(state, static_cast<int>(got));
    return going_on;
}

int receive_with_header(RecvState& state, int sd) {
    auto* const header = reinterpret_cast<unsigned char*>(&state.header);
    if (const int result = read_exact(sd, {header, sizeof state.header}, header_stall);
        result <= 0) {
        return result;
    }
    const int32_t len = state.header.len;
    if (tracelogfp != nullptr) {
        log_trace(routine, "trap length (from transmission header) = %d", len);
    }
    if (!fits_packet(len)) {
        return refuse_too_large(len);
    }
    return read_exact(sd, std::span(state.packet).first(body_need(len)), body_stall);
}

int receive_by_hook(RecvState& state, int sd, sockaddr_in* from) {
    if (wqc_recv_event == nullptr) {
        return going_on;
    }
    if (!await(sd, nullptr)) {
        return -1;
    }
    sockaddr_in unwanted{};
    int len = EMS_TRAP_MAX;
    const int result =
        wqc_recv_event(sd, from == nullptr ? &unwanted : from, state.packet.data(), &len);
    if (result <= 0) {
        // A hook need not know of errno.
        return result == -1 && errno == 0 ? fail(EIO) : result;
    }
    make_up_header(state, len);
    return going_on;
}

// The length octets come in reads of their own, which wait by themselves; one that was interrupted,
// or that may not wait, is repeated.
int receive_length_octets(int sd, std::span<unsigned char> room) {
    while (!room.empty()) {
        const ssize_t got = recv(sd, room.data(), room.size(), 0);
        if (got > 0) {
            room = room.subspan(static_cast<size_t>(got));
            continue;
        }
        const bool empty = got == -1 && would_block(errno);
        if (!empty && (got == 0 || errno != EINTR)) {
            return static_cast<int>(got);
        }
        log_stall(body_stall.reading);
        if (empty && !await(sd, nullptr)) {
            return -1;
        }
    }
    return going_on;
}

// The identifier octet and the first length octet, as far as they come in one read.
ssize_t receive_lead(int sd, std::span<unsigned char> lead) {
    ssize_t got = 0;
    do {
        got = recv(sd, lead.data(), lead.size(), 0);
    } while (got == -1 && errno == EINTR);
    if (got <= 0) {
        const ErrnoKeeper keeper;
        logger(1, routine, "Error receiving tcp traps");
        log_trace(routine, "Error receiving TCP traps from appl[%d], received %d bytes", sd,
                  static_cast<int>(got));
    }
    return got;
}

void dump(const RecvState& state, int len) {
    if (dump_packetEMS != 0 && len > 0) {
        hexdumpEMS(state.packet.data(), std::min(len, EMS_TRAP_MAX));
    }
}

int refuse_foreign_stream(const RecvState& state) {
    log_trace(routine,
              "Error: could not identify TCP message as a trap, initial hex character = %#02x",
              state.packet[0]);
    dump(state, static_cast<int>(raw_lead));
    return -5;
}

int refuse_raw_length(const RecvState& state, int result, int32_t length) {
    write_log(stdout, "Error could not identify this trap\n", Flush::no);
    log_trace(routine, "Error. Could not determine length of this trap; result = %d, length =%f ",
              result, static_cast<double>(length));
    dump(state, static_cast<int>(raw_lead) + 1);
    return fail(EBADMSG);
}

// Finds out how long the contents of the message are whose lead has come, and how many further
// length octets announce that.
int receive_raw_length(RecvState& state, int sd, int& octets, int32_t& content) {
    const int form = get_pdu_len(&state.packet[raw_lead - 1], &content);
    if (form == -1) {
        return refuse_raw_length(state, form, content);
    }
    octets = form == 1 ? content : 0;
    if (octets == 0) {
        return going_on;
    }
    if (octets > raw_length_octets_max) {
        return fail(EBADMSG);
    }
    const auto room = std::span(state.packet).subspan(raw_lead, static_cast<size_t>(octets));
    const int result = receive_length_octets(sd, room);
    content = static_cast<int32_t>(big_endian(room));
    return result;
}

int receive_raw(RecvState& state, int sd) {
    // Length octets that have not come count as 0; the packet area still holds the last trap.
    const auto lead_and_length = std::span(state.packet).first(raw_lead + sizeof(int32_t));
    std::fill(lead_and_length.begin(), lead_and_length.end(), static_cast<unsigned char>(0));
    const ssize_t got = receive_lead(sd, lead_and_length.first(raw_lead));
    if (got <= 0) {
        return static_cast<int>(got);
    }
    if (state.packet[0] != ASN_SEQUENCE09) {
        return refuse_foreign_stream(state);
    }
    int len = static_cast<int>(got);
    if (len == static_cast<int>(raw_lead)) {
        int octets = 0;
        int32_t content = 0;
        if (const int result = receive_raw_length(state, sd, octets, content); result <= 0) {
            return result;
        }
        len = raw_message_len(octets, content);
        if (!fits_packet(len)) {
            return refuse_too_large(content);
        }
        const auto room = std::span(state.packet)
                              .subspan(raw_lead + static_cast<size_t>(octets), body_need(content));
        if (const int result = read_exact(sd, room, silent_stall); result <= 0) {
            return result;
        }
    }
    log_trace(routine, "length of TCP trap = %d bytes.", len);
    make_up_header(state, len);
    return going_on;
}

int receive(RecvState& state, int sd, int trans, sockaddr_in* from, socklen_t* fromlen) {
    switch (trans) {
        case transport_datagram:
            return receive_datagram(state, sd, from, fromlen);
        case transport_local:
        case transport_tcp:
            return receive_with_header(state, sd);
        case transport_hook:
            return receive_by_hook(state, sd, from);
        case transport_raw_tcp:
            return receive_raw(state, sd);
        default:
            return going_on;  // the header is judged as it stands
    }
}

// The number that a file starts with, as "%d" reads one. What no int holds names no process: 0.
bool read_number(std::FILE* file, int& number) {
    int c = std::getc(file);
    while (std::isspace(c) != 0) {
        c = std::getc(file);
    }
    const bool negative = c == '-';
    if (negative || c == '+') {
        c = std::getc(file);
    }
    if (std::isdigit(c) == 0) {
        return false;
    }
    int64_t value = 0;
    for (; std::isdigit(c) != 0; c = std::getc(file)) {
        value = std::min<int64_t>(value * 10 + (c - '0'), int64_t{INT_MAX} + 1);
    }
    value = negative ? -value : value;
    number = value >= INT_MIN && value <= INT_MAX ? static_cast<int>(value) : 0;
    return true;
}

}  // namespace

int recv_trap(RecvState& state, int sd, unsigned char** buf, int trans, sockaddr_in* from,
              socklen_t* fromlen, trap_headerEMS** th) {
    if (buf == nullptr || th == nullptr) {
        return fail(EINVAL);
    }
    *buf = state.packet.data();
    *th = &state.header;
    if (sd < 0) {
        return fail(EBADF);
    }
    if (const int result = receive(state, sd, trans, from, fromlen); result <= 0) {
        return result;
    }
    dump(state, state.header.len);
    return is_usable_trap(state.header.len) ? state.header.len : -6;
}

int recv_event_hdr(RecvState& state, event_infoEMS* ei, snmp_trap_infoEMS* sti,
                   SnmpVarBindEMS* vars, trap_headerEMS** th) {
    if (ei == nullptr || sti == nullptr || (vars == nullptr && sti->maxvars > 0)) {
        return fail(EINVAL);
    }
    unsigned char* packet = nullptr;
    sockaddr_in from{};
    socklen_t fromlen = sizeof from;
    const int len = recv_trap(state, ei->sd, &packet, ei->trans, &from, &fromlen, th);
    if (len <= 0) {
        logger(1, "recv_event", "recv_trap failed");
        return len;
    }
    sti->clen = EMS_COMMUNITY_MAX - 1;  // a terminator follows
    sti->elen = EMS_OID_MAX;
    if (snmp_parse_trap(packet, len, sti, ei, vars) < 0) {
        logger(1, "recv_event", "snmp_parse_trap failed");
        return fail(EBADMSG);
    }
    ei->time = state.header.time;
    return len;
}

}  // namespace wq

int recv_event(event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars) {
    trap_headerEMS* header = nullptr;
    return recv_event_hdr(ei, sti, vars, &header);
}

int recv_event_hdr(event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars,
                   trap_headerEMS** th) {
    return wq::recv_event_hdr(wq::process_state, ei, sti, vars, th);
}

int recv_trap(int sd, unsigned char** buf, int trans, struct sockaddr_in* from, socklen_t* fromlen,
              trap_headerEMS** th) {
    return wq::recv_trap(wq::process_state, sd, buf, trans, from, fromlen, th);
}

int get_pdu_len(const unsigned char* data, int32_t* length) WQEVENTS_NOEXCEPT {
    constexpr const char* name = "get_pdu_len";
    constexpr unsigned char long_form = 0x80;
    if (data == nullptr || length == nullptr) {
        return wq::fail(EINVAL);
    }
    if (data[0] < long_form) {
        *length = data[0];
        return 0;
    }
    const int octets = data[0] - long_form;
    if (octets == 0) {
        logger(1, name, "Indefinite lengths are not supported");
        log_trace(name, "Indefinite lengths (%d) are not supported", octets);
        return wq::fail(EBADMSG);
    }
    if (octets > static_cast<int>(sizeof *length)) {
        logger(1, name, "Data length is too long");
        log_trace(name, "Data length (%d) is too long", octets);
        return wq::fail(EBADMSG);
    }
    *length = octets;
    if (data[1] == 0) {
        return 1;  // no shortest form starts so: the octets have not been read yet
    }
    *length = static_cast<int32_t>(wq::big_endian({data + 1, static_cast<size_t>(octets)}));
    return 0;
}

void logger(int level, const char* routine, const char* fmt, ...) WQEVENTS_NOEXCEPT {
    if (level == 0 || routine == nullptr || fmt == nullptr) {
        return;
    }
    const wq::ErrnoKeeper keeper;
    wq::LogLine line;
    line.append("%s: ", routine);
    va_list args;
    va_start(args, fmt);
    line.vappend(fmt, args);
    va_end(args);
    line.end_line();
    wq::write_log(stderr, line.text());
}

int sendsig(int signo, const char* /*procName*/, const char* pidFile) {
    const wq::Stream file(pidFile == nullptr ? nullptr : std::fopen(pidFile, "re"));
    int pid = 0;
    if (!file || !wq::read_number(file.get(), pid)) {
        return 1;
    }
    if (pid < 1) {
        return 1;  // names no process, but to kill() groups of them
    }
    return kill(pid, signo) == -1 && errno == ESRCH ? 1 : 0;
}
