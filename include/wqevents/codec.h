/*
 * The SNMPv1 codec: ASN.1 BER items (X.690, RFC 1155), the message header and variable bindings
 * (RFC 1157), and the trap PDU (RFC 1157 4.1.6, RFC 1215).
 *
 * One calling convention for the BER items: the first argument is the position in the buffer, the
 * second points to the number of bytes left from there. The result is the position behind the item
 * and the bytes left are reduced by its size; on failure the result is null, the out-values and the
 * bytes left are unspecified, and the caller abandons the message. Nothing is read beyond the
 * length given or written beyond the room given. A null pointer makes a call fail.
 *
 * Failures are reported on the standard error stream under bits of `snmptracemaskEMS` (1 BER, 2
 * message header, 4 bindings), those of the decoders also in the trace log while it is open.
 * asnBuildObjid09() uses one static scratch area; everything else works on the caller's buffers.
 */
#ifndef WQEVENTS_CODEC_H
#define WQEVENTS_CODEC_H

#include <stdint.h>

#include <wqevents/channel.h>
#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

/* Type tags: X.690 for the universal ones, RFC 1155 6 for the application-wide ones. */
#define ASN_INTEGER09 0x02
#define ASN_OCTETSTR09 0x04
#define ASN_NULL09 0x05
#define ASN_OBJID09 0x06
#define ASN_UINT09 0x07 /* encoders only: an unsigned 32-bit value under the INTEGER tag */
#define ASN_SEQUENCE09 0x30
#define ASN_IPADDR09 0x40
#define ASN_COUNTER09 0x41
#define ASN_GAUGE09 0x42
#define ASN_TIMETICKS09 0x43
#define ASN_OPAQUE09 0x44

/*
 * asnParseInt09: decodes an INTEGER, Counter, Gauge, TimeTicks or IpAddress of at most 4 content
 * octets (5 when the first is 0). INTEGER is sign-extended, the others are not. An IpAddress is
 * stored with its octets in wire order, the others as host integers. `intsize` must be 4.
 */
WQEVENTS_API unsigned char* asnParseInt09(const unsigned char* data, int* datalength,
                                          int32_t* value, int intsize) WQEVENTS_NOEXCEPT;

/*
 * asnParseIntOrIpaddr09: asnParseInt09() that also accepts an OCTET STRING of at most 4 bytes,
 * which are copied as they are; the bytes of `*value` that a shorter one leaves are 0.
 */
WQEVENTS_API unsigned char* asnParseIntOrIpaddr09(const unsigned char* data, int* datalength,
                                                  int32_t* value, int intsize) WQEVENTS_NOEXCEPT;

/*
 * asnParseString09: decodes an OCTET STRING or Opaque. `*strlength` holds the capacity of `string`
 * and receives the number of bytes stored. No terminator is added.
 */
WQEVENTS_API unsigned char* asnParseString09(const unsigned char* data, int* datalength,
                                             unsigned char* string,
                                             int* strlength) WQEVENTS_NOEXCEPT;

/*
 * asnParseHeader09: reads the identifier and length of any item with a one-octet identifier, whose
 * contents must lie within the bytes left. The result points at the contents and `*datalength`
 * becomes their length: that is how a caller descends into a constructed item.
 */
WQEVENTS_API unsigned char* asnParseHeader09(const unsigned char* data, int* datalength,
                                             unsigned char* type) WQEVENTS_NOEXCEPT;

/*
 * asnParseLength09: reads a length field (X.690 8.1.3) of up to 4 length octets. It is given no
 * bytes left: the caller has made sure of up to 5 octets, and compares the length with its data.
 */
WQEVENTS_API unsigned char* asnParseLength09(const unsigned char* data,
                                             uint32_t* length) WQEVENTS_NOEXCEPT;

/*
 * asnParseObjid09: decodes an OBJECT IDENTIFIER. `*objidlength` holds the capacity of `objid`,
 * which must exceed the number of content octets, and receives the number of sub-identifiers. The
 * first encoded one is split into v / 40 and v mod 40, with no special case for 80 and above.
 * Sub-identifiers above 2147483647 are refused. Empty contents read as 0.0.
 */
WQEVENTS_API unsigned char* asnParseObjid09(const unsigned char* data, int* datalength,
                                            uint32_t* objid, int* objidlength) WQEVENTS_NOEXCEPT;

/* asnParseNull09: decodes a NULL. */
WQEVENTS_API unsigned char* asnParseNull09(const unsigned char* data,
                                           int* datalength) WQEVENTS_NOEXCEPT;

/*
 * asnBuildInt09class: encodes `*value` under `type`. ASN_INTEGER09 is signed and minimal (X.690
 * 8.3.2). ASN_COUNTER09, ASN_GAUGE09, ASN_TIMETICKS09 and ASN_UINT09 (written with the INTEGER tag)
 * are unsigned, but get the leading zero octet from 0xFF800000 up only: values from 0x80000000 to
 * 0xFF7FFFFF take four octets. ASN_IPADDR09 always takes four, the most significant first. Another
 * type fails, and so does an `intsize` other than 4.
 */
WQEVENTS_API unsigned char* asnBuildInt09class(unsigned char* data, int* datalength,
                                               const int32_t* value, int intsize,
                                               unsigned char type) WQEVENTS_NOEXCEPT;

/* asnBuildInt09: asnBuildInt09class() with ASN_INTEGER09. */
WQEVENTS_API unsigned char* asnBuildInt09(unsigned char* data, int* datalength,
                                          const int32_t* value, int intsize) WQEVENTS_NOEXCEPT;

/* asnBuildString09: encodes `length` bytes as an OCTET STRING. */
WQEVENTS_API unsigned char* asnBuildString09(unsigned char* data, int* datalength,
                                             const unsigned char* string,
                                             int length) WQEVENTS_NOEXCEPT;

/* asnBuildHeader09: writes an identifier octet and a length field. */
WQEVENTS_API unsigned char* asnBuildHeader09(unsigned char* data, int* datalength,
                                             unsigned char type, int length) WQEVENTS_NOEXCEPT;

/*
 * asnBuildLength09: writes a length field of one octet (below 128), two (to 255) or three. The
 * three-octet form holds the low 16 bits of `length`; no longer form is ever written. A negative
 * length fails.
 */
WQEVENTS_API unsigned char* asnBuildLength09(unsigned char* data, int* datalength,
                                             int length) WQEVENTS_NOEXCEPT;

/*
 * asnBuildObjid09: encodes `objidlength` (2 or more) sub-identifiers. The first must be below 3 and
 * first * 40 + second below 128; more than 128 content octets are refused.
 */
WQEVENTS_API unsigned char* asnBuildObjid09(unsigned char* data, int* datalength,
                                            const uint32_t* objid,
                                            int objidlength) WQEVENTS_NOEXCEPT;

/* asnBuildNull09: writes a NULL, 0x05 0x00. */
WQEVENTS_API unsigned char* asnBuildNull09(unsigned char* data, int* datalength) WQEVENTS_NOEXCEPT;

/*
 * asnBuildIpaddressEMS, asnBuildTimeticksEMS: encode the host integer `*value` under the tag of an
 * IpAddress or of TimeTicks by the rule of a signed INTEGER: leading octets that carry no
 * information are dropped and no zero octet is added. The daemon expects them so.
 */
WQEVENTS_API unsigned char* asnBuildIpaddressEMS(unsigned char* data, int* datalength,
                                                 const int32_t* value,
                                                 int intsize) WQEVENTS_NOEXCEPT;
WQEVENTS_API unsigned char* asnBuildTimeticksEMS(unsigned char* data, int* datalength,
                                                 const int32_t* value,
                                                 int intsize) WQEVENTS_NOEXCEPT;

/*
 * hexdumpEMS: dumps `size` bytes, 16 a row: the row's offset on the standard output, the bytes and
 * the text column on `dumpFp`. Does nothing while `dumpFp` is null.
 */
WQEVENTS_API void hexdumpEMS(const unsigned char* buffer, int size) WQEVENTS_NOEXCEPT;

/*
 * auth_parse: reads the message header, version and community (RFC 1157 4). `*slen` holds the
 * capacity of `sid` and receives the community's length; a zero byte is written behind the
 * community, so `sid` needs one byte of room beyond the capacity. The version is not judged.
 * Returns the position of the PDU; `*length` becomes the bytes of the message from there.
 */
WQEVENTS_API unsigned char* auth_parse(const unsigned char* data, int* length, unsigned char* sid,
                                       int* slen, int32_t* version) WQEVENTS_NOEXCEPT;

/*
 * auth_build: writes the message header for a PDU of `messagelen` bytes, the version and the
 * community; the caller writes the PDU at the result. The outer length allows five octets for the
 * version and the community's header, so it is right for versions to 127 and communities to 127
 * bytes only.
 */
WQEVENTS_API unsigned char* auth_build(unsigned char* data, int* length, const unsigned char* sid,
                                       const int* slen, const int32_t* version,
                                       int messagelen) WQEVENTS_NOEXCEPT;

/*
 * parse_var_op: reads one variable binding (RFC 1157 4.1.1): its name into `var_name`, which has
 * room for EMS_OID_MAX sub-identifiers, and the type, content length and position of its value,
 * which is not decoded. Returns the position behind the value; `*listlength` is reduced to there.
 */
WQEVENTS_API unsigned char* parse_var_op(const unsigned char* data, uint32_t* var_name,
                                         int* var_name_len, unsigned char* var_val_type,
                                         int* var_val_len, unsigned char** var_val,
                                         int* listlength) WQEVENTS_NOEXCEPT;

/*
 * build_var_op: writes one variable binding. `var_val` points to an int32_t for the integer types
 * (with `var_val_len` 4), to `var_val_len` bytes for ASN_OCTETSTR09, to `var_val_len`
 * sub-identifiers for ASN_OBJID09; it is not read for ASN_NULL09. Other types, ASN_OPAQUE09
 * included, fail.
 */
WQEVENTS_API unsigned char* build_var_op(unsigned char* data, const uint32_t* var_name,
                                         const int* var_name_len, unsigned char var_val_type,
                                         int var_val_len, const void* var_val,
                                         int* listlength) WQEVENTS_NOEXCEPT;

/*
 * snmpBuildTrapEMS: encodes a whole SNMPv1 Trap message (RFC 1157 4.1.6). `*out_length` holds the
 * capacity of `buf` and receives the message's length. `ei` is not read and may be null; `vars` may
 * be null when `sti->vars` is 0. Lengths in the records that exceed their arrays count as the
 * arrays' size, negative ones as 0. Returns 0, or -2 with the reason written by logger(). The
 * community should be shorter than 128 bytes: auth_build() allows for no longer one.
 */
WQEVENTS_API int snmpBuildTrapEMS(unsigned char* buf, int* out_length, snmp_trap_infoEMS* sti,
                                  event_infoEMS* ei, SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT;

/*
 * snmp_parse_trap: decodes an SNMPv1 Trap message of `length` bytes. Before the call, `sti->clen`
 * and `sti->elen` hold the capacities of `community` (128 counts as 127, since a terminator
 * follows) and `enterprise`, `sti->maxvars` the number of records in `vars`; bindings beyond it are
 * ignored. `ei` is not read and may be null. `sti->agent` and IpAddress values get their octets in
 * wire order. A binding named by the notification address, 1.3.6.1.4.1.99.12.45.2.1.0, is not
 * stored: it replaces `sti->agent`. Returns 0, or -1 with the reason written by logger() and to the
 * trace log; the fields decoded before the failure keep their new values.
 */
WQEVENTS_API int snmp_parse_trap(const unsigned char* buf, int length, snmp_trap_infoEMS* sti,
                                 event_infoEMS* ei, SnmpVarBindEMS* vars) WQEVENTS_NOEXCEPT;

/*
 * isVellumNotificationAddress: 1 if the 12 sub-identifiers at `oid` are those of the notification
 * address, else 0; 0 for null. The caller's identifier has at least 12.
 */
WQEVENTS_API int isVellumNotificationAddress(const uint32_t* oid) WQEVENTS_NOEXCEPT;

WQEVENTS_END_DECLS

#endif
