/*
 * Alerts: the trap-to-alert configuration "ferlod.conf", and the rendering of alert code points
 * that arrive in traps.
 *
 * An alert is a list of subvectors with numeric code points. The configuration attaches one to a
 * trap record; a received trap carries one in the bindings below 1.3.6.1.4.1.2.5.1. State is
 * process-wide and meant for one thread at a time.
 */
#ifndef WQEVENTS_ALERTS_H
#define WQEVENTS_ALERTS_H

#include <stdint.h>
#include <stdio.h>

#include <wqevents/channel.h>
#include <wqevents/configuration.h>
#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

/* One item of detailed data. */
typedef struct detailed_data_record {
    int dataid;            /* the data's identifier, a code point */
    trap_element* dd_args; /* the compiled text that yields the data */
} detailed_data_record;

/* One subvector of a configured alert. The list and all it points at come from doMalloc(). */
typedef struct alert_record {
    struct alert_record* next;
    /*
     * 0x92 generic alert, 0x93 probable causes, 0x94 user, 0x95 install and 0x96 failure causes,
     * 0x81 recommended actions, 0x98 detailed data
     */
    int subvector;
    int num_codepoints; /* entries of `codepoints` */
    int* codepoints;
    int type;             /* 0x92: the alert type, one of 1, 2, 3, 17, 18 */
    int num_detaileddata; /* entries of `detailed_data` */
    detailed_data_record** detailed_data;
} alert_record;

/*
 * One entry of the code point catalogue. In the file an entry is 8 bytes, little-endian, with the
 * offset; in memory the union holds the text instead.
 */
typedef struct cp_entry {
    uint16_t ce_alertid; /* the code point */
    uint16_t ce_set;     /* its set, 1 to 7, see codeptstr() */
    union {
        uint32_t ce_offset;   /* of the text, from the beginning of the file */
        const char* _ce_text; /* terminated; part of the loaded catalogue */
    } ce_u;
} cp_entry;

/*
 * Alert types and the code points of generic alerts and probable causes in seven parallel
 * positions, for programs that build alerts.
 */
WQEVENTS_API extern const uint32_t TA_GA_ALERT_TYPES[7];
WQEVENTS_API extern const uint32_t TA_GA_ALERT_TYPES_NC[7];
WQEVENTS_API extern const uint32_t TA_GA_CODEPOINTS[7];
WQEVENTS_API extern const uint32_t TA_PC_CODEPOINTS[7];

/*
 * read_ferlospec_file: reads the alert configuration (open_ferlo_lock_file() tells which file) and
 * attaches its alerts to the trap records in memory, replacing those that they have. Returns 0, or
 * -1 with `*errmsg` pointed at a text of the library's that stays readable and that the next read
 * overwrites; the alerts before the error stay attached. After an error in a record's body the file
 * stays open and locked until the alert configuration is opened again.
 */
WQEVENTS_API int read_ferlospec_file(char** errmsg);

/*
 * write_ferlospec_file: replaces the alert configuration with the alerts of the trap records in
 * memory. Returns 0, or a non-zero value when the file cannot be opened or locked, with `*errmsg`
 * pointed at a text of the library's.
 */
WQEVENTS_API int write_ferlospec_file(char** errmsg);

/* print_ferlo_rec: writes the alert of one trap; `oid` and `len` are its enterprise's. */
WQEVENTS_API void print_ferlo_rec(FILE* stream, trap_record* rec, const uint32_t* oid,
                                  uint32_t len);

/*
 * insert_malloc_alert_record: attaches `list`, which becomes the record's, to the trap configured
 * under `name`, whose earlier alert is freed; at most EMS_NAME_MAX - 1 bytes of the name are kept.
 * `enterprise`, `generic` and `specific` are not consulted. Returns 0, or -1 when there is no such
 * trap; the list is then still the caller's.
 */
WQEVENTS_API int insert_malloc_alert_record(enterprise_info* enterprise, const char* name,
                                            int generic, int specific, alert_record* list);

/* delete_ferlo_record: frees the record's alert and clears `alert_element`. */
WQEVENTS_API void delete_ferlo_record(trap_record* rec);

/*
 * The renderers below append to the terminated text in `buffer`, whose whole length is `buflen`,
 * and never write past it; what does not fit is left out. `var` is the starting binding, `index`
 * its position counted from 0 among the trap's `count` bindings, which lie behind one another; they
 * stop at the last one and at the first that does not belong to the subvector. `svoid` is the
 * subvector's object identifier and `svoid_bytes` its length in bytes, 4 for each sub-identifier.
 */

/* call_formatZYNcp: formatZYNcp(). */
WQEVENTS_API void call_formatZYNcp(char* buffer, int buflen, SnmpVarBindEMS* var, int count,
                                   int index);

/*
 * formatZYNcp: appends the alert subvector that starts at `var`, as its object identifier tells;
 * nothing for a binding of none. Its first call sets the locale from the environment and loads the
 * catalogue; without one code points show as four hexadecimal digits.
 */
WQEVENTS_API void formatZYNcp(char* buffer, int buflen, SnmpVarBindEMS* var, int count, int index);

/*
 * formatsv: causes (set 3 user, 4 install, 5 failure) with their detailed data, and after them the
 * recommended actions with theirs.
 */
WQEVENTS_API void formatsv(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                           int svoid_bytes, int set, int count, int index);

/* formatsvga: the generic alert (set 1), a line for each code point. */
WQEVENTS_API void formatsvga(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                             int svoid_bytes, int set, int count, int index);

/* formatsvpc: the probable causes (set 2), a line for each. */
WQEVENTS_API void formatsvpc(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                             int svoid_bytes, int set, int count, int index);

/* formatsvdd: detailed data (set 7), a line for each: the identifier's text and the value. */
WQEVENTS_API void formatsvdd(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                             int svoid_bytes, int set, int count, int index);

/* formatsvsdc: self-defining data: for each value the identifier's text (set 7) and the value. */
WQEVENTS_API void formatsvsdc(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                              int svoid_bytes, int count, int index);

/* formatsvpsid: the product set identification, a captioned line for each text. */
WQEVENTS_API void formatsvpsid(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                               int svoid_bytes, int count, int index);

/*
 * codeptcatinit: loads the code point catalogue from the path that codeptpath() set or finds; a
 * further call loads it anew. Returns 0, -1 when the file cannot be opened, examined or read, -2
 * when its header is bad, it holds no entries or it ends within them. What was loaded before stays
 * when the file cannot be read.
 */
WQEVENTS_API int codeptcatinit(void);

/*
 * codeptpath: sets the catalogue's path, which is copied. With null, and while no path is set,
 * looks for "codepoint.cat" along the environment variable NLSPATH and then in the system's places.
 */
WQEVENTS_API void codeptpath(const char* path);

/*
 * codeptstr: the text of code point `id` in `set`: 1 alert types, 2 probable causes, 3 user causes,
 * 4 install causes, 5 failure causes, 6 recommended actions, 7 detailed data identifiers. An empty
 * text for 0xFFFF; four upper-case hexadecimal digits where the catalogue is not loaded or has no
 * text; "-" for another set. The text is the library's and stays readable; that of digits changes
 * with the next call that shows digits.
 */
WQEVENTS_API const char* codeptstr(int set, int id);

/*
 * cecmp: the order of the entries in memory, by set and then code point, ascending; `a` and `b`
 * point to cp_entry, and the result is that of a comparison function for qsort().
 */
WQEVENTS_API int cecmp(const void* a, const void* b);

/*
 * cread: reads the next `n` bytes of the open catalogue into `buf`. Returns the number of bytes
 * read, fewer at its end; 0 while none is open.
 */
WQEVENTS_API int cread(void* buf, int n);

WQEVENTS_END_DECLS

#endif
