// Sending traps and events.
#include "EMS/events/nl_send_event.h"

#include <netdb.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <span>
#include <string_view>

#include <wqevents/codec.h>
#include <wqevents/trace.h>

#include "EMS/events/internal/frame.h"

namespace wq {
namespace {

constinit SendState process_state;

int refuse_arguments() {
    errno = EINVAL;
    return -1;
}

// A system call a trap is dear beside the one that sends it, so the number is kept, on a page that
// the kernel clears in a child, however that was made: a child never signs with its parent's.
pid_t* make_pid_cell() {
    void* const page =
        mmap(nullptr, sizeof(pid_t), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return nullptr;
    }
    if (madvise(page, sizeof(pid_t), MADV_WIPEONFORK) != 0) {
        munmap(page, sizeof(pid_t));
        return nullptr;
    }
    return static_cast<pid_t*>(page);
}

pid_t process_id() {
    static pid_t* const cell = make_pid_cell();
    if (cell == nullptr) {
        return getpid();
    }
    if (*cell == 0) {
        *cell = getpid();
    }
    return *cell;
}

// One trap on its way to a socket: what goes in front of it, and where it goes if that is not the
// peer of the connection.
struct Outgoing {
    std::span<const unsigned char> header;
    std::span<const unsigned char> trap;
    sockaddr_in* destination = nullptr;
};

// Header and trap leave in one system call; `gone` bytes of the two have left before.
ssize_t send_rest(int sd, const Outgoing& out, size_t gone) {
    const size_t of_header = std::min(gone, out.header.size());
    const auto header = out.header.subspan(of_header);
    const auto trap = out.trap.subspan(gone - of_header);
    // sendmsg() only reads what the vectors point at, but their type cannot say so.
    std::array<iovec, 2> parts{{{const_cast<unsigned char*>(header.data()), header.size()},
                                {const_cast<unsigned char*>(trap.data()), trap.size()}}};
    const size_t skipped = header.empty() ? 1 : 0;
    msghdr message{};
    message.msg_iov = parts.data() + skipped;
    message.msg_iovlen = parts.size() - skipped;
    if (out.destination != nullptr) {
        message.msg_name = out.destination;
        message.msg_namelen = sizeof *out.destination;
    }
    return sendmsg(sd, &message, MSG_NOSIGNAL);
}

// Until all bytes are gone. With `announced`, the line that stands between header and trap is
// logged as soon as the header has left.
int send_all(int sd, const Outgoing& out, bool announced) {
    const size_t total = out.header.size() + out.trap.size();
    size_t gone = 0;
    for (;;) {
        if (announced && gone >= out.header.size()) {
            WQ_PROGRESS("calling send() SNMP packet from send_trap().\n");
            announced = false;
        }
        if (gone == total) {
            return 0;
        }
        const ssize_t sent = send_rest(sd, out, gone);
        if (sent >= 0) {
            gone += static_cast<size_t>(sent);
        } else if (errno != EINTR) {
            return -1;
        }
    }
}

std::span<const unsigned char> fill_header(trap_headerEMS& header, const event_infoEMS& ei,
                                           size_t len) {
    header.len = static_cast<int32_t>(len);
    header.src = ei.source;
    header.pid = process_id();
    header.status = ei.status;
    header.target = ei.target;
    return {reinterpret_cast<const unsigned char*>(&header), sizeof header};
}

int send_encoded(SendState& state, const event_infoEMS& ei, std::span<const unsigned char> trap,
                 bool announced) {
    if (dump_packetEMS != 0) {
        sigblockhexdump(trap.data(), static_cast<int>(trap.size()));
    }
    switch (ei.trans) {
        case transport_datagram: {
            sockaddr_in manager = inet_address(ei.manager, htons(trap_port));
            return send_all(ei.sd, {{}, trap, &manager}, false);
        }
        case transport_local:
        case transport_tcp:
            return send_all(ei.sd, {fill_header(state.header, ei, trap.size()), trap}, announced);
        case transport_raw_tcp:
            return send_all(ei.sd, {{}, trap}, announced);
        default:
            return 0;
    }
}

// The name every binding of an event starts with; the number of the binding and a 0 follow.
constexpr std::array<uint32_t, 11> binding_prefix{1, 3, 6, 1, 4, 1, 2, 6, 3, 1, 1};
constexpr uint32_t first_binding_number = 2;

void name_binding(SnmpVarBindEMS& var, int position) {
    uint32_t* const rest = std::copy(binding_prefix.begin(), binding_prefix.end(), var.oid);
    rest[0] = first_binding_number + static_cast<uint32_t>(position);
    rest[1] = 0;
    var.oid_length = binding_prefix.size() + 2;
}

void set_integer(SnmpVarBindEMS& var, uint32_t value) {
    var.type = ASN_INTEGER09;
    var.val.integer = static_cast<int32_t>(value);
    var.val_len = sizeof var.val.integer;
}

void set_text(SnmpVarBindEMS& var, std::string_view text) {
    var.type = ASN_OCTETSTR09;
    var.val_len = static_cast<uint32_t>(std::min(text.size(), sizeof var.val.string));
    // Not memcpy(), which compilers that see the bound turn into a slow instruction for short
    // texts.
    std::memmove(var.val.string, text.data(), var.val_len);
}

// As much of a text as a binding holds; nothing for null.
std::string_view bounded(const char* text) {
    return text == nullptr ? std::string_view("")
                           : std::string_view(text, strnlen(text, EMS_STRING_MAX));
}

bool is_space(char c) {
    const bool visible = c > ' ' && c <= '~';  // and no locale's white space: not worth a call
    return !visible && std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string_view first_word(const char* host) {
    const char* word = host == nullptr ? "" : host;
    while (is_space(*word)) {
        ++word;
    }
    const char* end = word;
    while (*end != '\0' && !is_space(*end)) {
        ++end;
    }
    return word == end ? "<none>" : std::string_view(word, static_cast<size_t>(end - word));
}

// Of each record only what the encoder reads is written: the records are large, the texts short.
void fill_bindings(SnmpVarBindEMS* vars, uint32_t source, const EventTexts& event) {
    constexpr int texts_from = 2;
    for (int i = 0; i < event.count; ++i) {
        name_binding(vars[i], i);
    }
    set_integer(vars[0], source);
    set_text(vars[1], first_word(event.host));
    for (int i = texts_from; i < event.count; ++i) {
        set_text(vars[i], bounded(event.texts[static_cast<size_t>(i - texts_from)]));
    }
}

// The text of a binding as a C string: terminated where it lies, since the byte behind it is not
// sent, or in `spare` where the text takes all the room.
using Spare = std::array<char, EMS_STRING_MAX + 1>;
const char* terminated(SnmpVarBindEMS& var, Spare& spare) {
    if (var.val_len < sizeof var.val.string) {
        var.val.string[var.val_len] = '\0';
        return reinterpret_cast<const char*>(var.val.string);
    }
    std::memcpy(spare.data(), var.val.string, sizeof var.val.string);
    spare.back() = '\0';
    return spare.data();
}

void log_bindings(SnmpVarBindEMS* vars, int count) {
    std::array<Spare, event_bindings> spare;
    std::array<const char*, event_bindings> texts;
    const size_t logged = count == event_bindings ? 4 : 5;
    for (size_t i = 0; i < logged; ++i) {
        texts[i] = terminated(vars[i + 1], spare[i]);
    }
    if (count == event_bindings) {
        WQ_PROGRESS("Values of vars[0] %d vars[1] %s vars[2] %s vars [3] %s vars[4] %s .\n",
                    vars[0].val.integer, texts[0], texts[1], texts[2], texts[3]);
        WQ_PROGRESS("call send_trap from send_event().\n");
    } else {
        WQ_PROGRESS(
            "Values of vars[0] %d vars[1] %s vars[2] %s vars [3] %s vars[4] %s vars [5] %s.\n",
            vars[0].val.integer, texts[0], texts[1], texts[2], texts[3], texts[4]);
        WQ_PROGRESS("call send_trap from send_event_ex().\n");
    }
}

// Where the lookup fails, the address stays 0 and the next event tries again.
void find_own_address(in_addr_t& address) {
    std::array<char, 257> name;
    if (gethostname(name.data(), name.size()) == 0) {
        name.back() = '\0';  // a name cut short need not be terminated
        find_host_address(name.data(), address);
    }
}

void fill_event_trap(SendState& state, const event_infoEMS& ei, int event, int count) {
    if (state.host_address == 0) {
        find_own_address(state.host_address);
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    if (state.first_event.tv_sec == 0 && state.first_event.tv_usec == 0) {
        state.first_event = now;
    }
    state.trap.time = hundredths_between(state.first_event, now);
    state.trap.agent = htonl(state.host_address);
    state.trap.specific = static_cast<uint32_t>(event);
    state.trap.vars = count;
    state.trap.status = ei.status;
    state.trap.target = ei.target;
}

}  // namespace

uint32_t hundredths_between(const timeval& first, const timeval& now) {
    const int64_t seconds = int64_t{now.tv_sec} - 1 - first.tv_sec;
    const int64_t microseconds = int64_t{now.tv_usec} + 1000000 - first.tv_usec;
    return static_cast<uint32_t>(seconds * 100 + microseconds / 10000);
}

bool find_host_address(const char* name, in_addr_t& address) {
    const hostent* const host = name == nullptr ? nullptr : gethostbyname_new(name);
    if (host == nullptr || host->h_addrtype != AF_INET || host->h_length != sizeof address ||
        host->h_addr_list == nullptr || host->h_addr_list[0] == nullptr) {
        return false;
    }
    std::memcpy(&address, host->h_addr_list[0], sizeof address);
    return true;
}

sockaddr_in inet_address(in_addr_t address, in_port_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = port;
    result.sin_addr.s_addr = address;
    return result;
}

int send_trap(SendState& state, event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars) {
    WQ_PROGRESS("Beginning of  send_trap().\n");
    if (ei == nullptr || sti == nullptr) {
        return refuse_arguments();
    }
    std::array<unsigned char, EMS_TRAP_MAX> buffer;
    int length = static_cast<int>(buffer.size());
    if (snmpBuildTrapEMS(buffer.data(), &length, sti, ei, vars) != 0) {
        return refuse_arguments();
    }
    if (send_encoded(state, *ei, {buffer.data(), static_cast<size_t>(length)}, true) != 0) {
        return -1;
    }
    WQ_PROGRESS("send_trap() completed.\n");
    return 0;
}

int send_hex_buffer(SendState& state, const event_infoEMS* ei, const unsigned char* bufp,
                    int buflen) {
    if (ei == nullptr || bufp == nullptr || buflen < 0) {
        return refuse_arguments();
    }
    return send_encoded(state, *ei, {bufp, static_cast<size_t>(buflen)}, false);
}

int send_event(SendState& state, event_infoEMS* ei, int event, const EventTexts& texts) {
    if (texts.count == event_bindings) {
        WQ_PROGRESS("Beginning of send_event()\n");
    } else {
        WQ_PROGRESS("Beginning of send_event_ex()\n");  // the longest variant logs no other name
    }
    if (ei == nullptr || texts.texts[0] == nullptr) {
        return refuse_arguments();
    }
    fill_event_trap(state, *ei, event, texts.count);
    std::array<SnmpVarBindEMS, event_ex_ex_bindings> vars;
    fill_bindings(vars.data(), ei->source, texts);
    log_bindings(vars.data(), texts.count);
    return send_trap(state, ei, &state.trap, vars.data());
}

}  // namespace wq

int send_trap(event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars) {
    return wq::send_trap(wq::process_state, ei, sti, vars);
}

int send_hex_buffer(event_infoEMS* ei, const unsigned char* bufp, int buflen) {
    return wq::send_hex_buffer(wq::process_state, ei, bufp, buflen);
}

int send_event(event_infoEMS* ei, int event, const char* host, const char* descr, const char* data,
               const char* db) {
    return wq::send_event(wq::process_state, ei, event,
                          {wq::event_bindings, host, {descr, data, db}});
}

int send_event_ex(event_infoEMS* ei, int event, const char* host, const char* descr,
                  const char* data, const char* db, const char* selname, const char* ipaddress,
                  const char* trapspecific) {
    return wq::send_event(
        wq::process_state, ei, event,
        {wq::event_ex_bindings, host, {descr, data, db, selname, ipaddress, trapspecific}});
}

int send_event_ex_ex(event_infoEMS* ei, int event, const char* host, const char* descr,
                     const char* data, const char* db, const char* selname, const char* ipaddress,
                     const char* trapspecific, const char* networkAddr, const char* networkMask) {
    return wq::send_event(
        wq::process_state, ei, event,
        {wq::event_ex_ex_bindings,
         host,
         {descr, data, db, selname, ipaddress, trapspecific, networkAddr, networkMask}});
}
