/*
 * What the events library asks of the platform it runs on.
 *
 * Each function has a stand-in in the library, a weak symbol, so that the library works by itself.
 * A program, or the platform's own libraries, replace any of them just by defining it with C
 * linkage; the library then calls the replacement. Nothing else in the library does what one of
 * these functions is for.
 *
 * The comments say what a replacement has to do and, where that leaves room, what the stand-in
 * does. Texts are multibyte text of the current locale. None of the stand-ins crashes on a null
 * pointer: it fails in the way that the function fails.
 */
#ifndef WQPLATFORM_H
#define WQPLATFORM_H

#include <netdb.h>
#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>

#include <wqevents/channel.h>
#include <wqevents/client.h>
#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

/*
 * WQuLogS: logs the progress of the library. `component` and `level` say who speaks and how
 * loudly; message `msg` of set `set` of the message catalogue `catalog` is a translation of the
 * printf format `fmt` (number 0: there is none).
 *
 * Stand-in: silent, unless the environment variable "WQULOG" names a file ("-": the standard error
 * stream). Each call then appends one line: local time, process, component and level, the message.
 * The variable is obeyed from call to call; a program with raised privileges ignores it. A file
 * that cannot be written is passed over in silence. errno is left alone.
 */
WQEVENTS_API void WQuLogS(int component, int level, const char* catalog, int set, int msg,
                          const char* fmt, ...) WQEVENTS_PRINTF(6, 7);

/*
 * _WQconfDirName: the directory of the configuration files; never null, not to be freed.
 *
 * Stand-in: the environment variable "WQCONFDIR" if set, else "/usr/WQ/conf"; `locale` is ignored.
 */
WQEVENTS_API const char* _WQconfDirName(const char* locale);

/*
 * _WQConcatPath: `dir` and `file` joined with one '/', whatever slashes they end and begin with.
 * The caller frees the result. Null when there is no memory.
 */
WQEVENTS_API char* _WQConcatPath(const char* dir, const char* file);

/*
 * _KMisClient: non-zero if this host is a client of a remote server.
 *
 * Stand-in: 1 if the environment variable "WQSERVER" is set and not empty, else 0.
 */
WQEVENTS_API int _KMisClient(void);

/*
 * _WQDefaultServerName: the host name of that server, or null. The caller frees it.
 *
 * Stand-in: a copy of the environment variable "WQSERVER" if set and not empty.
 */
WQEVENTS_API char* _WQDefaultServerName(void);

/*
 * _WQstrchr: the first character of `s` that is the single-byte character `c`, or null. Bytes
 * inside a multibyte character never match. The terminator counts as a character, as with strchr().
 */
WQEVENTS_API char* _WQstrchr(const char* s, int c);

/*
 * _WQstrtok: strtok() whose delimiters are characters, not bytes. The position is kept from call to
 * call, apart from that of strtok() and nl_strtok_mod(), one for each thread.
 */
WQEVENTS_API char* _WQstrtok(char* s, const char* delimiters);

/*
 * errstring: the name of an SNMPv1 error-status (RFC 1157 4.1.1), "noError" to "genErr"; never
 * null. Another number gives "unknown error N", in a buffer that the next such call overwrites.
 */
WQEVENTS_API const char* errstring(int status);

/*
 * get_myaddress: stores an IPv4 address by which other hosts reach this one, in network byte order,
 * with family AF_INET and port 0. Returns 0 or -1.
 *
 * Stand-in: the first address of an interface that is up and not the loopback, else 127.0.0.1. -1
 * when the interfaces cannot be listed; the address is 127.0.0.1 then, too.
 */
WQEVENTS_API int get_myaddress(struct sockaddr_in* address);

/*
 * init_async_snmp: opens a datagram socket for SNMP requests. Returns its descriptor, to be closed
 * by the caller, or a negative value.
 *
 * Stand-in: an unbound IPv4 socket that blocks and is closed on exec.
 */
WQEVENTS_API int init_async_snmp(void);

/*
 * getSnmpPort: the agents' UDP port, in network byte order.
 *
 * Stand-in: the environment variable "WQSNMPPORT" if it is a number from 1 to 65535, else 161.
 */
WQEVENTS_API uint16_t getSnmpPort(void);

/*
 * send_snmp: encodes `request` with its `request->vars` bindings and sends it to the IPv4 address
 * `addr` (network byte order), or to the peer of a connected socket where `addr` is 0. Returns a
 * non-negative value, or: -2 not encodable, -1 not sent (errno tells), another negative value for
 * another failure. Prints nothing and sets no socket option.
 */
WQEVENTS_API int send_snmp(int sd, uint32_t addr, snmp_info* request, SnmpVarBindEMS* vars);

/*
 * recv_snmp: receives one message and decodes it into `response` and `vars`; `response->clen` and
 * `response->maxvars` hold the capacities before the call. The sender's IPv4 address (network byte
 * order) goes to `from`. Returns a non-negative value, or: -1 nothing received (errno tells; a
 * would-block is reported so), another negative value when the message cannot be decoded. Prints
 * nothing and sets no socket option.
 */
WQEVENTS_API int recv_snmp(int sd, uint32_t* from, snmp_info* response, SnmpVarBindEMS* vars);

/*
 * sprint__objid: writes the name of the `len` sub-identifiers at `oid`, as the MIB library knows
 * it, to `buf`, which has room for 2048 characters. At most 2047 and the terminator are written.
 *
 * Stand-in: a dot and a name for each sub-identifier, as ".iso.org.dod.internet.private" has it;
 * one that has no name shows as its number. The built-in names are known before WQmib_load_mib(),
 * too. A null `oid` or a `len` below 1 gives an empty text. One thread at a time may ask for names
 * and load them.
 */
WQEVENTS_API void sprint__objid(char* buf, const uint32_t* oid, int len);

/*
 * print_rawobjid: prints the `len` sub-identifiers at `oid` to the standard output stream, as
 * decimal numbers with dots between them ("1.3.6.1"), no newline.
 */
WQEVENTS_API void print_rawobjid(const uint32_t* oid, int len);

/*
 * WQmib_load_mib: loads the MIB; loading it again is allowed. Returns 0, or -1 when it cannot be
 * read.
 *
 * Stand-in: built-in names from iso down to MIB-II and the SNMPv2 groups, and those of the
 * intermediate file WQmib_get_mib_filename(), which replace those that it gave before; docs/mib.md
 * describes it. A file that the environment variable names must be readable and well formed; the
 * default one may be missing, but not be malformed. What is wrong is logged by WQuLogS(); the names
 * stay as they are then.
 */
WQEVENTS_API int WQmib_load_mib(void);

/*
 * WQmib_get_mib_filename: the path of the MIB's intermediate file; never null, not to be freed,
 * valid until the next call.
 *
 * Stand-in: the environment variable "WQMIBFILE" if set, else "mib.txt" in the configuration
 * directory.
 */
WQEVENTS_API const char* WQmib_get_mib_filename(void);

/*
 * WQmib_read_numeric_objid: reads an object identifier written as ".1.3.6" into `oid`. `*len` holds
 * the capacity and receives the number of sub-identifiers. Returns 0, or -1 for anything but
 * dotted numbers that fit 32 bits and the capacity; `*len` stays as it is then.
 *
 * Stand-in: the first dot may be missing.
 */
WQEVENTS_API int WQmib_read_numeric_objid(const char* text, uint32_t* oid, int* len);

/*
 * The string functions of <string.h> for multibyte text. Lengths count bytes; strchr_new() and
 * nl_strtok_mod() (a strtok() with a position of its own) look at characters, so that a byte inside
 * a multibyte character is never taken for a delimiter. The caller frees what strdup_new() returns.
 *
 * Stand-ins, given a null: 0, null, nothing copied; in comparisons null comes before every text.
 */
WQEVENTS_API size_t strlen_new(const char* s);
WQEVENTS_API char* strcpy_new(char* to, const char* from);
WQEVENTS_API char* strncpy_new(char* to, const char* from, size_t n);
WQEVENTS_API char* strcat_new(char* to, const char* from);
WQEVENTS_API int strcmp_new(const char* a, const char* b);
WQEVENTS_API int strncmp_new(const char* a, const char* b, size_t n);
WQEVENTS_API int strcoll_new(const char* a, const char* b);
WQEVENTS_API char* strchr_new(const char* s, int c);
WQEVENTS_API char* strdup_new(const char* s);
WQEVENTS_API char* nl_strtok_mod(char* s, const char* delimiters);

/*
 * gethostbyname_new, gethostbyaddr_new: gethostbyname() for IPv4 and gethostbyaddr(). Null with
 * h_errno set when nothing is known. The result belongs to the callee and is valid until the next
 * call of either by the same thread; the caller does not change it.
 *
 * Stand-ins: the system's resolver behind a cache for each thread of 4096 answers, the longest
 * unused of which gives way. What was found is believed for 5 minutes, a failure of any kind for 1
 * minute, so that a name service that is down costs one time-out a minute and name. Names longer
 * than 1025 bytes fail; a dotted quad needs no resolver. At most 35 aliases and 35 addresses of a
 * host are kept.
 */
WQEVENTS_API struct hostent* gethostbyname_new(const char* name);
WQEVENTS_API struct hostent* gethostbyaddr_new(const void* address, socklen_t length, int family);

WQEVENTS_END_DECLS

#endif
