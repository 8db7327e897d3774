/*
 * The event channel: its records, opening and closing it, sending and receiving SNMPv1 traps.
 *
 * The library keeps one send buffer, one receive buffer and one transmission header for the whole
 * process, so one thread at a time may send and one at a time may receive. Callers allocate all
 * records; the library never frees them. A null pointer that has no meaning of its own makes a call
 * fail the way that the function fails. A peer that is gone is a -1 with EPIPE, never a signal.
 *
 * After a -1 errno is not 0: EINVAL for arguments, a trap that cannot be encoded included, ENOENT
 * for an unknown host or service, EBADMSG for a trap that does not decode, else the system's.
 * Threads may be cancelled in the functions that open, close, send or receive.
 */
#ifndef WQEVENTS_CHANNEL_H
#define WQEVENTS_CHANNEL_H

#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>
#include <time.h>

#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

#define EMS_OID_MAX 128     /* sub-identifiers in one object identifier (RFC 1155, RFC 2578 3.5) */
#define EMS_STRING_MAX 1024 /* bytes of an octet-string value */
#define EMS_COMMUNITY_MAX 128 /* bytes of a community string */
#define EMS_TRAP_MAX 8192     /* bytes of the largest encoded trap on the channel */
#define EMS_HEADER_LEN 24     /* bytes of the transmission header */

/*
 * One variable binding (RFC 1157 4.1.1). Which member of `val` is valid follows from `type`:
 * `integer` for INTEGER, Counter, Gauge, TimeTicks and IpAddress, `string` for OCTET STRING and
 * Opaque, `objid` for OBJECT IDENTIFIER, none for NULL.
 */
typedef struct SnmpVarBindEMS {
    uint32_t oid[EMS_OID_MAX]; /* the variable's name */
    uint32_t oid_length;       /* sub-identifiers of `oid` in use */
    uint8_t type;              /* type tag, one of ASN_*09 */
    union {
        /*
         * A number of the host. An IpAddress to send is a number too, its first octet the most
         * significant; one that was received has its four octets in memory in wire order.
         */
        int32_t integer;
        uint8_t string[EMS_STRING_MAX]; /* not terminated */
        uint32_t objid[EMS_OID_MAX];
    } val;
    /* bytes of `string`, sub-identifiers of `objid`, 4 for `integer` */
    uint32_t val_len;
} SnmpVarBindEMS;

/*
 * One SNMPv1 trap (RFC 1157 4.1.6). Its bindings travel beside it, in an array of the caller's.
 */
typedef struct snmp_trap_infoEMS {
    uint8_t community[EMS_COMMUNITY_MAX]; /* terminated on receiving only */
    int32_t clen;                         /* bytes of `community` in use */
    uint32_t enterprise[EMS_OID_MAX];
    int32_t elen; /* sub-identifiers of `enterprise` in use */
    /*
     * The agent's IPv4 address. To send: a number of the host whose most significant byte is the
     * first octet (10.1.2.3 is 0x0A010203). Received: the four octets in memory in wire order, as
     * in struct in_addr. The two differ on a little-endian host, and callers rely on both.
     */
    uint32_t agent;
    uint32_t time;     /* the agent's time stamp, TimeTicks in hundredths of a second */
    uint32_t gen;      /* generic trap number, s_generic_trap */
    uint32_t specific; /* specific trap number */
    int32_t vars;      /* variable bindings that go with the trap */
    int32_t maxvars;   /* capacity of the array of bindings, set by the caller before receiving */
    int32_t status;    /* events: copied from event_infoEMS */
    uint32_t target;   /* events: copied from event_infoEMS */
} snmp_trap_infoEMS;

/*
 * The addressing record of one channel, filled by open_event(). The caller may set `status` and
 * `target` at any time; every transmission header carries them.
 */
typedef struct event_infoEMS {
    int32_t sd;       /* socket descriptor; -1 after an open_event() that failed */
    uint16_t trans;   /* transport mode, 1 to 6 */
    uint32_t source;  /* number of the calling application, 1 to 27 */
    uint32_t agent;   /* this host's IPv4 address, network byte order */
    uint32_t manager; /* mode 1: the destination's IPv4 address, network byte order */
    int32_t time;     /* the `time` word of the last transmission header received */
    int32_t status;   /* the caller's */
    uint32_t target;  /* the caller's */
} event_infoEMS;

/*
 * The transmission header that precedes each trap on a stream of mode 2 or 3. All six words are in
 * the sending host's byte order, unconverted, also on TCP: the daemon at the other end reads them
 * so.
 */
typedef struct trap_headerEMS {
    int32_t len;     /* bytes of the encoded trap that follows, at most EMS_TRAP_MAX */
    uint32_t src;    /* application number of the sender; made up: 1 */
    int32_t pid;     /* process of the sender; made up: -1 */
    int32_t time;    /* reserved, sent as 0 */
    int32_t status;  /* event_infoEMS.status of the sender */
    uint32_t target; /* event_infoEMS.target of the sender */
} trap_headerEMS;

/* Kinds of event-channel user. */
typedef enum rtrap_user {
    ZLEEVENT_USER = 0,
    VORTD_USER = 1,
    OBU_USER = 2,
    KMEVENTS_USER = 3,
    PRX_USER = 4
} rtrap_user;

/* Generic trap numbers (RFC 1157 4.1.6). */
typedef enum s_generic_trap {
    COLD_START = 0,
    WARM_START = 1,
    LINK_DOWN = 2,
    LINK_UP = 3,
    AUTHENTICATION_FAILURE = 4,
    EGP_NEIGHBOR_LOSS = 5,
    ENTERPRISE_SPECIFIC = 6
} s_generic_trap;

/* Tags of the SNMPv1 PDUs (RFC 1157 4.1). */
typedef enum s_msg_type {
    SNMP_GET_REQ = 0xA0,
    SNMP_GET_NEXT_REQ = 0xA1,
    SNMP_GET_RSP = 0xA2,
    SNMP_SET_REQ = 0xA3,
    SNMP_TRAP = 0xA4
} s_msg_type;

/*
 * open_event: opens a channel and announces the application with a wake-up event.
 *
 * `source` is the application's number, 1 to 27. `trans` is the transport mode, `name` what it
 * connects to:
 *   1  datagrams to port 162 of the host `name`
 *   2  the local stream socket at the path `name`, with transmission headers
 *   3  TCP to service "kmvortd-client" of the host `name`, with transmission headers
 *   5  automatic: 3 to the default server where this host is a client of one, else 2 to
 *      "/usr/WQ/sockets/vortd.socket"; `name` is not read and may be null
 *   6  TCP to the trap port of `name`, a host name optionally followed by "+/" and a port number
 *      or TCP service name (default: service "kmvortd-trap", else 162); encoded traps back to back,
 *      no headers. `name` must be writable: it is split while the host is looked up, and stays
 *      split when the host is unknown.
 *
 * Fills `ei` except `status` and `target`, which stay the caller's. Applications 4 (always) and 24
 * (but for mode 3) send no wake-up event. Returns the socket descriptor, or -1 with `ei->sd` -1.
 */
WQEVENTS_API int open_event(event_infoEMS* ei, int source, char* name, int trans);

/*
 * close_event: sends the disconnect event (application 4: none; application 24: always with a
 * transmission header, `ei->trans` becoming 3) and closes the socket. Over TCP of mode 3 it waits
 * before, at most 1 second, until the peer's system has all that was sent. Leaves the other fields
 * of `ei` as they were. Returns the result of close(), or -1 when `ei` is null or not open.
 */
WQEVENTS_API int close_event(event_infoEMS* ei);

/* getApplName: the display name of an application number; a constant text, never null. */
WQEVENTS_API const char* getApplName(uint16_t source) WQEVENTS_NOEXCEPT;

/*
 * set_sock_buf_size_if_larger: raises the socket buffer that `option` (SO_SNDBUF or SO_RCVBUF)
 * names to `size` bytes, never lowers it. Returns 0, also when the system refuses.
 */
WQEVENTS_API int set_sock_buf_size_if_larger(int sd, int option, int size) WQEVENTS_NOEXCEPT;

/*
 * send_trap: encodes one trap (RFC 1157 4.1.6) with its `sti->vars` bindings and sends it on the
 * open channel, with a transmission header in modes 2 and 3. Neither record is written to. Modes
 * that cannot send write nothing and succeed. Returns 0, or -1: the trap cannot be encoded (nothing
 * is written), or the socket failed (errno tells; the stream may hold half a trap, so close the
 * channel). Interrupted and short writes are completed.
 */
WQEVENTS_API int send_trap(event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars);

/*
 * send_hex_buffer: sends `buflen` bytes that hold an encoded trap, as they are and framed as
 * send_trap() frames them. Returns 0 or -1.
 */
WQEVENTS_API int send_hex_buffer(event_infoEMS* ei, const unsigned char* bufp, int buflen);

/*
 * send_event: sends the platform's own event trap: enterprise 1.3.6.1.4.1.2.6.3.1, generic trap 6,
 * specific trap `event`, community "public", and the bindings source, host, descr, data, db.
 *
 * Only the first word of `host` is sent ("<none>" where there is none); of each text at most
 * EMS_STRING_MAX bytes. `ei` and `descr` must not be null; another null text is sent as empty.
 * Returns as send_trap().
 */
WQEVENTS_API int send_event(event_infoEMS* ei, int event, const char* host, const char* descr,
                            const char* data, const char* db);

/* send_event_ex: send_event() with the further bindings selname, ipaddress and trapspecific. */
WQEVENTS_API int send_event_ex(event_infoEMS* ei, int event, const char* host, const char* descr,
                               const char* data, const char* db, const char* selname,
                               const char* ipaddress, const char* trapspecific);

/* send_event_ex_ex: send_event_ex() with the further bindings networkAddr and networkMask. */
WQEVENTS_API int send_event_ex_ex(event_infoEMS* ei, int event, const char* host, const char* descr,
                                  const char* data, const char* db, const char* selname,
                                  const char* ipaddress, const char* trapspecific,
                                  const char* networkAddr, const char* networkMask);

/*
 * recv_event: receives and decodes one trap. The caller sets `sti->maxvars` to the number of
 * records in `vars`; nothing else needs to be set. Blocks until a whole trap is there; signals do
 * not end the wait. Results:
 *   20 or more  length in bytes of the encoded trap; `sti`, `vars` and `ei->time` are filled
 *   0           the peer closed the connection
 *   -1          null argument, negative descriptor, socket error, unreadable length, or a trap that
 *               does not decode
 *   -5          mode 6: the stream does not start with a BER SEQUENCE
 *   -6          the trap is longer than EMS_TRAP_MAX or shorter than 20 bytes
 * After -5, -6 and a decoding failure a stream is out of step: close the channel and open it again.
 */
WQEVENTS_API int recv_event(event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars);

/*
 * recv_event_hdr: recv_event() that also points `*th` at the transmission header, the process's
 * own, valid until the next receive call. In modes without headers it is made up: `len` the trap's
 * length, `src` 1, `pid` -1, the rest as it was.
 */
WQEVENTS_API int recv_event_hdr(event_infoEMS* ei, snmp_trap_infoEMS* sti, SnmpVarBindEMS* vars,
                                trap_headerEMS** th);

/*
 * recv_trap: receives one encoded trap on socket `sd` of transport mode `trans` without decoding
 * it. `*buf` and `*th` are pointed at the process's receive buffer and header, valid until the next
 * receive call. `from` and `fromlen` take the sender in modes 1 and 4; either may be null. Never
 * takes a byte from the stream that belongs to the next trap. Results as recv_event().
 */
WQEVENTS_API int recv_trap(int sd, unsigned char** buf, int trans, struct sockaddr_in* from,
                           socklen_t* fromlen, trap_headerEMS** th);

/*
 * get_pdu_len: reads the BER length (X.690 8.1.3) whose first octet is at `data`. Up to 5 octets
 * must be readable. Returns 0 with the length in `*length`; 1 when the octet after `data` is 0: the
 * long form's octets count as not yet read and `*length` tells how many there are; -1 for the
 * indefinite form and for more than 4 length octets.
 */
WQEVENTS_API int get_pdu_len(const unsigned char* data, int32_t* length) WQEVENTS_NOEXCEPT;

/*
 * logger: writes "routine: message" and a newline to the standard error stream and flushes it;
 * nothing with `level` 0. It neither waits nor raises a signal: what the stream does not take is
 * lost.
 */
WQEVENTS_API void logger(int level, const char* routine, const char* fmt, ...) WQEVENTS_NOEXCEPT
    WQEVENTS_PRINTF(3, 4);

/*
 * sendsig: sends signal `signo` to the process whose decimal number `pidFile` begins with, blanks
 * of any length before it aside. `procName` is ignored. Returns 0 when it was sent or failed for
 * another reason than a missing process; non-zero when there is no such process; 1 when the file
 * cannot be read or holds no number above 0.
 */
WQEVENTS_API int sendsig(int signo, const char* procName, const char* pidFile);

/*
 * wqc_recv_event: the receive hook of mode 4, null unless a program sets it. It is given the
 * socket, room for the sender's address, the packet area, and in `*len` its size (8192); it sets
 * `*len` to the bytes received and returns a positive number, or 0 or less on failure.
 */
WQEVENTS_API extern int (*wqc_recv_event)(int sd, struct sockaddr_in* from, unsigned char* buf,
                                          int* len);

WQEVENTS_END_DECLS

#endif
