/*
 * The synchronous SNMPv1 request client: get, get-next and set of one binding or an array of them,
 * with a time-out and a number of attempts (RFC 1157 4.1.2, 4.1.3, 4.1.5).
 *
 * The upper layer (init_snmp_call() to snmpcall_error()) works on a client record and the
 * platform's SNMP transport; the lower layer (send_request(), snmpBuild09(), snmp_parse()) does one
 * exchange on a socket of the caller's. IPv4 addresses are in network byte order, as in struct
 * in_addr. Clients share a socket address and the error text: one thread at a time may use them. A
 * thread that waits for an answer may be cancelled.
 *
 * Result codes of the upper layer, which stay in `response.errstat`:
 *    0 and above  the agent's error-status (RFC 1157 4.1.1), 0 success
 *   -1  the transport failed in an unexpected way
 *   -2  sending failed
 *   -3  the request could not be encoded
 *   -4  no answer after all attempts
 *   -5  waiting failed
 *   -6  receiving failed
 *   -7  the answer could not be decoded
 *   -8  out of memory
 *   -9  a binding of a type that cannot be set
 * Codes -2, -5 and -6 leave the system's error number in `save_errno`. Diagnostics go to the
 * standard error stream, under bit 64 (upper layer) and bit 32 (lower layer) of `snmptracemaskEMS`.
 */
#ifndef WQEVENTS_CLIENT_H
#define WQEVENTS_CLIENT_H

#include <netinet/in.h>
#include <stdint.h>

#include <wqevents/channel.h>
#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

/*
 * One request or answer (RFC 1157 4.1.1). Its bindings travel beside it, in an array of the
 * caller's.
 */
typedef struct snmp_info {
    uint8_t community[EMS_COMMUNITY_MAX];
    int32_t clen;     /* bytes of `community` in use; before decoding, its capacity */
    uint8_t command;  /* PDU type, s_msg_type */
    int32_t reqid;    /* request-id */
    int32_t errstat;  /* error-status, or one of the client's negative codes */
    int32_t errindex; /* error-index: number of the offending binding, counted from 1 */
    int32_t vars;     /* number of bindings */
    int32_t maxvars;  /* capacity of the array of bindings, set before decoding */
} snmp_info;

/*
 * One client, from init_snmp_call() to close_snmp_call(). Programs read `response` and `save_errno`
 * after a call, and may change `retries` and `timeout` between calls.
 */
typedef struct snmp_call_info {
    int32_t sd;           /* the datagram socket */
    uint32_t addr;        /* the agent's IPv4 address, network byte order */
    snmp_info request;    /* `reqid` grows by one a call, all attempts of a call share it */
    snmp_info response;   /* `errstat` holds the result code of the last call */
    uint32_t retries;     /* send attempts a call; 0 sends nothing and every call times out */
    uint32_t timeout;     /* seconds to wait for the answer to one attempt */
    int32_t save_errno;   /* errno saved with the last failure */
    int32_t is_connected; /* 1 while the socket is connected to the agent */
} snmp_call_info;

/*
 * init_snmp_call: opens a client that waits `timeout` seconds after each of `retries` attempts.
 * Returns a new client, to be given to close_snmp_call(), or null when there is no memory or no
 * socket. The agent and community are set by init_snmp_request().
 */
WQEVENTS_API snmp_call_info* init_snmp_call(unsigned int timeout, unsigned int retries);

/* close_snmp_call: closes the socket and frees the client. Null does nothing. */
WQEVENTS_API void close_snmp_call(snmp_call_info* sci);

/*
 * init_snmp_2request: sets the agent `addr` (network byte order) and the `length` bytes of
 * community for the calls that follow; they are copied. A length below 0 or above EMS_COMMUNITY_MAX
 * counts as EMS_COMMUNITY_MAX, and that many bytes must then be readable. Leaves the socket
 * unconnected. May be called at any time between calls. Returns 0, or -1 for a null pointer.
 */
WQEVENTS_API int init_snmp_2request(snmp_call_info* sci, uint32_t addr,
                                    const unsigned char* community, int length);

/*
 * init_snmp_request: init_snmp_2request() with a terminated community. A text longer than
 * EMS_COMMUNITY_MAX is cut there.
 */
WQEVENTS_API int init_snmp_request(snmp_call_info* sci, uint32_t addr, const char* community);

/*
 * getvar, getnextvar: get (RFC 1157 4.1.2) and get-next (RFC 1157 4.1.3) of the variable that `in`
 * names. `in->type` becomes ASN_NULL09; the answer is stored in `out`. Return the result code; -1
 * also for a null pointer.
 */
WQEVENTS_API int getvar(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out);
WQEVENTS_API int getnextvar(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out);

/*
 * getvar_array, getnextvar_array: the same for `size` bindings of the arrays `in` and `out`, in
 * requests of at most 10 bindings. Stop at the first request that does not succeed and return its
 * result code; 0 when all succeeded, -1 for a null pointer.
 */
WQEVENTS_API int getvar_array(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out,
                              int size);
WQEVENTS_API int getnextvar_array(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out,
                                  int size);

/*
 * setvar_array: sets `size` variables to the types and values in `in` (RFC 1157 4.1.5), in requests
 * of at most 10 bindings as getvar_array(). A binding of a type that the encoder does not know
 * gives -9 before anything is sent.
 */
WQEVENTS_API int setvar_array(snmp_call_info* sci, SnmpVarBindEMS* in, SnmpVarBindEMS* out,
                              int size);

/*
 * snmp_call: sends `request.command` (s_msg_type, set by the caller) with the `count` bindings of
 * `request` under a new request id and waits for the answer, which is stored in the `count` records
 * of `response`. Attempts are repeated `retries` times; stray answers never extend the wait of an
 * attempt. After an attempt without answer the next one goes over a connected socket, so that a
 * host without an agent refuses (code -6 with ECONNREFUSED), and the one after over an unconnected
 * one again. Returns the result code; -1 also for a null pointer.
 */
WQEVENTS_API int snmp_call(snmp_call_info* sci, SnmpVarBindEMS* request, SnmpVarBindEMS* response,
                           int count);

/*
 * snmp_call_send: the first step of snmp_call(): sends the request once, with the request id as it
 * stands. Returns 0, or the result code (-1, -2 or -3) after dissolving any connection; with -2
 * `save_errno` tells why.
 */
WQEVENTS_API int snmp_call_send(snmp_call_info* sci, SnmpVarBindEMS* request, int count);

/*
 * snmp_call_select: the second step: waits up to `timeout` seconds for an answer; signals do not
 * end the wait. Returns 1 when something can be received. After a time-out the socket, if
 * connected, is unconnected again (0), else it is connected to the agent (0, or -1 when that
 * fails). Other failures return -1 with code -5.
 */
WQEVENTS_API int snmp_call_select(snmp_call_info* sci);

/*
 * snmp_call_recv: the third step: receives one message into `sci->response` and up to `count`
 * records of `response`. Returns 1 for the answer to the last request, 0 when there is none yet
 * (nothing to receive, or another request id) and the caller goes on waiting, a negative value with
 * the code (-6 or -7) in `response.errstat` on failure. It alone resets `response.errstat`.
 */
WQEVENTS_API int snmp_call_recv(snmp_call_info* sci, SnmpVarBindEMS* response, int count);

/*
 * snmpcall_error: a text for the result code in `response.errstat`. The text lies in a buffer of
 * the library's that the next call of any client overwrites. Null for a null client.
 */
WQEVENTS_API const char* snmpcall_error(snmp_call_info* sci) WQEVENTS_NOEXCEPT;

/*
 * send_request: one exchange without retries on the datagram socket `sd`: encodes `request` with
 * its `request->vars` bindings (the whole message may take 1024 bytes), sends it to `agent` and
 * waits up to 5 seconds for the answer. Before the call `response->clen` and `response->maxvars`
 * hold the capacities of `response->community` and `response_vars`. Returns 1 when an SNMP_GET_RSP
 * with the request's id and community came and was stored, 0 on time-out, -1 on any error, another
 * message's arrival included; the system's errors are printed as perror() does.
 */
WQEVENTS_API int send_request(int sd, struct sockaddr_in* agent, snmp_info* request,
                              snmp_info* response, SnmpVarBindEMS* request_vars,
                              SnmpVarBindEMS* response_vars);

/*
 * snmpBuild09: encodes an SNMPv1 request or response message (RFC 1157 4.1.1) from `request` and
 * its `request->vars` bindings, one at least. `*out_length` holds the capacity of `buf` and
 * receives the message's length. Returns 0 or -2.
 */
WQEVENTS_API int snmpBuild09(unsigned char* buf, int* out_length, snmp_info* request,
                             SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT;

/*
 * snmp_parse: decodes an SNMPv1 request or response message of `length` bytes. Before the call,
 * `response->clen` holds the capacity of `community` (128 counts as 127, since a terminator
 * follows) and `response->maxvars` the number of records in `vars`. Neither the version nor the PDU
 * type is judged; the latter goes into `command`. With more bindings than `maxvars` in the message,
 * `vars` ends as `maxvars` + 1 and only `maxvars` records are stored. A binding's value that does
 * not decode is passed over. IpAddress values get their octets in wire order. Returns 0 or -1.
 */
WQEVENTS_API int snmp_parse(const unsigned char* buf, int length, snmp_info* response,
                            SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT;

WQEVENTS_END_DECLS

#endif
