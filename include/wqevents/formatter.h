/*
 * From a received trap to the text that the platform logs and shows.
 *
 * trp_format() lays out a whole trap by its configured format; the functions behind it, down to the
 * rendering of single values, may be called alone. Renderers write a terminated text into a buffer
 * of the length given, terminator included, and never past it; they never fail: what does not fit
 * is left out, and error texts go into the output. A null pointer makes them do nothing.
 *
 * Traps and bindings are as recv_event() stores them: the octets of `agent` and of IpAddress values
 * lie in memory in wire order. Lengths in records that exceed their arrays count as the arrays'
 * size, negative ones as 0. State is process-wide and meant for one thread at a time.
 *
 * A call takes at most 16 KB of stack, one of trp_format() that loads something at most 40 KB, and
 * what the platform's resolver takes. Once all is loaded no call fails for want of memory: a text
 * that needs some to be told too long is cut instead.
 */
#ifndef WQEVENTS_FORMATTER_H
#define WQEVENTS_FORMATTER_H

#include <stdint.h>
#include <time.h>

#include <wqevents/channel.h>
#include <wqevents/configuration.h>
#include <wqevents/export.h>
#include <wqevents/names.h>

WQEVENTS_BEGIN_DECLS

/*
 * Non-zero: an octet string is shown in hexadecimal as soon as one character is not printable,
 * white space included. The program sets it.
 */
WQEVENTS_API extern int strictHex;
/* Non-zero: the MIB has been loaded, or was tried; cleared: the next trp_format() loads it. */
WQEVENTS_API extern int have_read_mibtxt;
/* Non-zero: the file of object identifier names has been read. */
WQEVENTS_API extern int have_read_mappings;
/* "ALL SOURCES": what trpFmtSprintNodes() writes for a record that holds for every node. */
WQEVENTS_API extern const char* trpAllSourcesStr;

/*
 * trp_format: writes the text of a trap into the `max_buffer_len` bytes of `buffer`, laid out for
 * the kind of caller `user_module` (rtrap_user; other numbers as VORTD_USER). What is needed is
 * loaded first: the MIB, the trap configuration, the object identifier names.
 *
 * `sti` and its bindings `vars` are the trap; `sti->status` and `sti->target` receive the status
 * and the forward flag of the trap's configuration, and on the platform's own events the texts of
 * the second and third binding are terminated in place. `logTime` is the time to show, in seconds
 * since 1970; 0 is now. `*host_name` is pointed at the name of the trap's source, which lies in the
 * library's memory or in `vars` and is valid until the next call.
 *
 * Returns the trap's category number, 0 or more; -1 when the trap is not to be shown (`buffer` is
 * undefined), also for a null pointer; -2 when fewer than 100 bytes were left before a continuation
 * line; 2 when something could not be loaded (`buffer` tells). A load that failed is tried again
 * only when its flag has been cleared.
 */
WQEVENTS_API int trp_format(int user_module, snmp_trap_infoEMS* sti, char* buffer,
                            int max_buffer_len, SnmpVarBindEMS* vars, char** host_name,
                            time_t logTime);

/*
 * find_trap_format: points `*rec` at the configured record for a trap with these numbers from
 * `hostname` (may be null) under the enterprise `oid` of `len` sub-identifiers, and `*enterprise`
 * at its enterprise. Of several enterprises the most specific one with a record wins; in one, a
 * record of the exact numbers comes before one for all traps. Where there is none `*rec` is
 * &default_trap_record and `*enterprise` null. The records stay the configuration's.
 */
WQEVENTS_API void find_trap_format(const uint32_t* oid, uint32_t len, int generic, int specific,
                                   trap_record** rec, enterprise_info** enterprise,
                                   const char* hostname);

/*
 * trap_sprintf: expands a compiled format for a trap into the `size` bytes of `buf`. `contact`,
 * `location` and `description` are the texts of $c, $l and $d; null ones are empty. "%s" in the
 * format takes the next argument, "%%" is a percent sign, any other character is text. A result of
 * `size` bytes or more is replaced by a text that says so.
 */
WQEVENTS_API void trap_sprintf(char* buf, int size, trap_element* element, snmp_trap_infoEMS* sti,
                               SnmpVarBindEMS* vars, const char* contact, const char* location,
                               const char* description);

/*
 * format_arg: renders binding `arg_num`, counted from 1, as the kind `arg_type` (substitute_arg)
 * asks for; kinds without a number render as ARG_NUM_DEF. A number above the trap's bindings gives
 * an error text.
 */
WQEVENTS_API void format_arg(int arg_num, int arg_type, snmp_trap_infoEMS* sti, char* buffer,
                             int buflen, SnmpVarBindEMS* vars);

/*
 * trpFmtSprintNodes: the record's nodes, separated by blanks, or trpAllSourcesStr; "..." stands for
 * those that do not fit.
 */
WQEVENTS_API void trpFmtSprintNodes(trap_record* rec, char* sourceBuf, int sourceBufLen);

/*
 * isTrapJW: 1 if the trap is one of the platform's own events, else 0: generic trap 6 of an
 * enterprise at or below 1.3.6.1.4.1.2.6.3, and bit 25 of the specific number is set or it lies
 * from 1001 to 2000. `enterprise` has at least 9 sub-identifiers, or is null.
 */
WQEVENTS_API int isTrapJW(int generic, int specific, const uint32_t* enterprise);

/*
 * isKMEnterprise, isQRMEnterprise, isVEBEnterprise: 1 if the enterprise is at or below
 * 1.3.6.1.4.1.2.6.3, 1.3.6.1.4.1.2.6.12 and 1.3.6.1.4.1.5593, else 0; 0 for null. `enterprise` has
 * at least as many sub-identifiers as these.
 */
WQEVENTS_API int isKMEnterprise(const uint32_t* enterprise);
WQEVENTS_API int isQRMEnterprise(const uint32_t* enterprise);
WQEVENTS_API int isVEBEnterprise(const uint32_t* enterprise);

/*
 * formatValue: the value of a binding, by its type: integers in decimal, or by name where the tree
 * knows the binding's identifier followed by the value; texts as formatOctetString(), identifiers
 * by name or as formatObjectID(), addresses as host name or dotted.
 */
WQEVENTS_API void formatValue(char* buf, int buflen, SnmpVarBindEMS* var);

/* formatKind: the name of a binding's type; empty where `buflen` is below 30. */
WQEVENTS_API void formatKind(char* buf, int buflen, SnmpVarBindEMS* var);

/*
 * formatOctetString: `len` bytes as text, or as "0x" and pairs of hexadecimal digits where more
 * than half of them are not printable (with `strictHex`: one), they are no text in the current
 * locale, or `len` is negative, which shows none.
 */
WQEVENTS_API void formatOctetString(char* buf, int buflen, const unsigned char* oct, int len);

/*
 * formatObjectID: an object identifier of `len` sub-identifiers at `*buf_ptr`, which has room for
 * `*buflenptr` bytes; both are advanced by what was written, terminator not counted. `printName` 0
 * gives dotted numbers, 1 names where they are known. Below 10 bytes of room the text is empty.
 */
WQEVENTS_API void formatObjectID(char** buf_ptr, int* buflenptr, const uint32_t* obj, int len,
                                 int printName);

/*
 * formatEnterprise: the trap's enterprise; `as_string` non-zero: by name where one is known,
 * 0: dotted numbers.
 */
WQEVENTS_API void formatEnterprise(char* buf, int buflen, snmp_trap_infoEMS* sti, int as_string);

/* formatCommunity: the trap's community, as formatOctetString(). */
WQEVENTS_API void formatCommunity(char* buf, int buflen, snmp_trap_infoEMS* sti);

/* stringToSeverity: the number of a severity's name, compared exactly; 0 for another name. */
WQEVENTS_API int stringToSeverity(const char* name);

/*
 * severityToString: 0 "Cleared", 1 "Indeterminate", 2 "Warning", 3 "Minor", 4 "Critical",
 * 5 "Major", else "Unknown"; a constant text, never null.
 */
WQEVENTS_API const char* severityToString(int number);

/*
 * DRXEvtTimeInt2String: writes the interval `*lpData`, in hundredths of a second, into `pcString`,
 * which has room for 10 bytes: a number and d, h, m or s, the largest unit that tells it exactly to
 * the second; "0s" below one second. Returns 0, -1 for a null pointer.
 */
WQEVENTS_API int DRXEvtTimeInt2String(const uint32_t* lpData, char* pcString);

WQEVENTS_END_DECLS

#endif
