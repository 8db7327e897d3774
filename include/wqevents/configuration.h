/*
 * The trap configuration: the model of "vortd.conf" in memory, reading and writing the file,
 * compiling format texts, looking up and editing what was read, locking the file and telling the
 * daemon of a change.
 *
 * The model is process-wide: a list of enterprises, each with an ordered list of trap records, a
 * table of event categories and a table of operator actions. One thread at a time may use it.
 * Strings belong to the record that points at them and come from doMalloc() or doStrdup(), unless
 * said otherwise. Searches return 0 when found and -1 when not, unless said otherwise; a null
 * pointer that has no meaning of its own makes a call fail the way that the function fails.
 */
#ifndef WQEVENTS_CONFIGURATION_H
#define WQEVENTS_CONFIGURATION_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

#define EMS_CATEGORIES_MAX 64 /* slots of the category table */
#define EMS_NAME_MAX 40       /* bytes of a trap's name, terminator included */
#define EMS_ARGS_MAX 80       /* entries in a compiled format's list of arguments */

/*
 * The kinds of `$` token in a format text, each with the text that produces it; N stands for a
 * decimal number from 1 to EMS_ARGS_MAX. What a kind renders is told at trap_sprintf() and
 * format_arg().
 */
typedef enum substitute_arg {
    ARG_A = 0,         /* $A  the agent's host name */
    ARG_a = 1,         /* $a  the agent's address, dotted */
    ARG_C = 2,         /* $C  the community */
    ARG_E = 3,         /* $E  the enterprise, named */
    ARG_e = 4,         /* $e  the enterprise, numeric */
    ARG_G = 5,         /* $G  the generic trap number */
    ARG_S = 6,         /* $S  the specific trap number */
    ARG_SX = 7,        /* $s  the specific trap number in hexadecimal */
    ARG_CONTACT = 8,   /* $c  the contact text */
    ARG_LOCATION = 9,  /* $l  the location text */
    ARG_DESC = 10,     /* $d  the description text */
    ARG_T = 11,        /* $T  the trap's time stamp */
    ARG_STAR = 12,     /* $*  all bindings */
    ARG_NUM = 13,      /* $N  value of binding N */
    ARG_NUM_DEF = 14,  /* $-N number, name, type and value of binding N */
    ARG_NUM_PLUS = 15, /* $+N name and value of binding N */
    ARG_NUM_EQ = 16,   /* $=N name of binding N */
    ARG_NUM_I = 17,    /* $IN last sub-identifier of the OBJECT IDENTIFIER in binding N */
    ARG_NUM_i = 18,    /* $iN last sub-identifier of binding N's name */
    ARG_NUM_t = 19,    /* $tN binding N as an interval */
    ARG_POUND = 20,    /* $#  number of bindings */
    ARG_NUM_L = 21,    /* $LN binding N as a date and time */
    /*
     * $%N the alert that starts at binding N. Escapes are interpreted first and double every
     * percent sign, so a format text writes this token as $\x25N.
     */
    ARG_NUM_ZYN = 22
} substitute_arg;

/* One token of a compiled format. */
typedef struct trap_arg {
    int32_t arg_num;  /* the number in the token, 1 to EMS_ARGS_MAX; 0 for a kind without one */
    int32_t arg_type; /* a substitute_arg */
} trap_arg;

/* A compiled format text, see makeFormatString(). */
typedef struct trap_element {
    char* rawstring;  /* the text as written; null where trpFormatDontMallocRaw was set */
    char* format;     /* the text with its escapes interpreted, "%s" for each recorded token */
    int32_t num_args; /* entries of `arg_list` in use, at most EMS_ARGS_MAX - 1 */
    trap_arg arg_list[EMS_ARGS_MAX]; /* in the order of the tokens in the text */
} trap_element;

/* Named values that go with an event class; the two arrays have `slotCnt` strings each. */
typedef struct prxSlotMapping {
    int32_t slotCnt;
    char** slotName;
    char** slotVal;
} prxSlotMapping;

struct alert_record; /* see alerts.h */

/*
 * One configured trap format.
 *
 * Editing by hand. Look-ups and edits are right after single records or enterprises were linked in,
 * unlinked, renumbered or renamed by hand, if the lists are kept in their order and the names of
 * traps unique. Whoever moves or cuts out a run of items that stay alive, or rewrites names or
 * numbers of many, calls trapspec_relinked().
 */
typedef struct trap_record {
    struct trap_record* next; /* next record of the same enterprise */
    char name[EMS_NAME_MAX];  /* terminated; of one trap alone */
    int32_t nodeCnt;          /* entries of `nodeList`; 0: the record holds for every node */
    char** nodeList;          /* names of nodes; one that begins with '/' names a list file */
    char* trapDescription;    /* the description block, or null */
    int32_t generic_trap;     /* RFC 1157 4.1.6; -1 in the first record: holds for every trap */
    int32_t specific_trap;
    char* category_name;     /* not set by the reader */
    int32_t category_number; /* index into EMScategories */
    char source;             /* one character of the file, shown as it is */
    int32_t severity;        /* see severityToString() */
    int32_t status;
    int32_t forward;                      /* 1: the record carries a FORWARD line */
    trap_element description;             /* the event log format */
    char* exec_prog;                      /* not set by the reader */
    trap_element* execargs_ptr;           /* the EXEC line, or null */
    char* exec_display_prog;              /* not set by the reader */
    trap_element* exec_display_args_ptr;  /* the DISPLAY line, or null */
    char alert_record_name[EMS_NAME_MAX]; /* name under which the alert is configured */
    struct alert_record* alert_element;   /* the alert's subvectors, or null */
    char* prxClassName;                   /* the event class, or null */
    prxSlotMapping* slotMap;              /* the slot mapping, or null */
} trap_record;

/* One enterprise (RFC 1157 4.1.6) and its trap records. */
typedef struct enterprise_info {
    struct enterprise_info* next;
    char* enterprise_name;
    uint32_t oid_len; /* sub-identifiers of `enterprise_oid` */
    uint32_t* enterprise_oid;
    /*
     * Its `next` is the first record. They are ordered by generic, then specific number, ascending;
     * of equal ones those with nodes come first.
     */
    trap_record trap_rec_list_head;
} enterprise_info;

/* One operator action. */
typedef struct actionCmd {
    char* name;
    char* description; /* or null */
    int32_t waitTime;  /* seconds */
    char* cmd;         /* the command line, may be empty */
} actionCmd;

/*
 * The list of enterprises: its `next` is the first one. Ordered by oidcmp() ascending, so a more
 * specific enterprise comes before the one that it extends. A program that relinks it by hand keeps
 * that order.
 */
WQEVENTS_API extern enterprise_info enterprise_list_head;
/* The record for a trap that nothing is configured for. Filled by the first read. */
WQEVENTS_API extern trap_record default_trap_record;
/* The category names by number; null is an unused slot. */
WQEVENTS_API extern char* EMScategories[EMS_CATEGORIES_MAX];
/* The operator actions, an array of numActionCommands entries; null while there are none. */
WQEVENTS_API extern actionCmd* actionCommands;
WQEVENTS_API extern int numActionCommands;

/* The names of the standard categories, in the slots 0, 1, 2, 3, 4, 5, 7 and 9. */
WQEVENTS_API extern const char* threshCatString;    /* "Threshold Events" */
WQEVENTS_API extern const char* nettopCatString;    /* "Network Topology Events" */
WQEVENTS_API extern const char* errorCatString;     /* "Error Events" */
WQEVENTS_API extern const char* statusCatString;    /* "Status Events" */
WQEVENTS_API extern const char* nodeconfCatString;  /* "Node Configuration Events" */
WQEVENTS_API extern const char* applalertCatString; /* "Application Alert Events" */
WQEVENTS_API extern const char* logOnlyCatString;   /* "LOGONLY" */
WQEVENTS_API extern const char* ignoreCatString;    /* "IGNORE" */

/*
 * The keywords of the file. A program may point them at another spelling before it reads or writes;
 * the text stays the program's.
 */
WQEVENTS_API extern const char* categoryKeyword;   /* "CATEGORY" */
WQEVENTS_API extern const char* actionKeyword;     /* "ACTION" */
WQEVENTS_API extern const char* execKeyword;       /* "EXEC" */
WQEVENTS_API extern const char* displayKeyword;    /* "DISPLAY" */
WQEVENTS_API extern const char* forwardKeyword;    /* "FORWARD" */
WQEVENTS_API extern const char* nodesKeyword;      /* "NODES" */
WQEVENTS_API extern const char* eventclassKeyword; /* "EVENT_CLASS" */
WQEVENTS_API extern const char* smapKeyword;       /* "BEGIN_SLOT_MAPPING" */
WQEVENTS_API extern const char* emapKeyword;       /* "END_SLOT_MAPPING" */
WQEVENTS_API extern const char* sdescKeyword;      /* "SDESC" */
WQEVENTS_API extern const char* edescKeyword;      /* "EDESC" */

/* Non-zero: description blocks are read and checked, but not kept. */
WQEVENTS_API extern int trpFormatDontMallocDesc;
/* Non-zero: compiled formats do not keep the text as written; it cannot be written back then. */
WQEVENTS_API extern int trpFormatDontMallocRaw;
/* Non-zero: a node that begins with '/' names a list file, which is read in its place. */
WQEVENTS_API extern int trpFormatExpandSourceFiles;
/* 1 once a file has been read to its end; cleared: trp_format() reads again. */
WQEVENTS_API extern int have_read_vortdconf;
/* Non-zero: the reader writes every step to the trace log. */
WQEVENTS_API extern int trace_vortdconf;

/*
 * read_trapspec_file: reads the file that getVortdConfFile() names in place of the model in memory,
 * and the alert configuration after it (read_ferlospec_file()). `*errmsg` is pointed at a text of
 * the library's, empty on success, that stays readable and that the next read overwrites. Returns
 * 0, or -1: the file cannot be opened or read (the model stays) or holds an error (what was read
 * before it stays in memory). What is read is one whole state of the file; when it changes during
 * six reads in a row it cannot be read. An error in the alert configuration leaves its text in
 * `*errmsg` and does not change the result. A line of more than 51197 characters between two blocks
 * ends the file there, with result 0 and "Line too long" in `*errmsg`.
 */
WQEVENTS_API int read_trapspec_file(char** errmsg);

/*
 * augmentTrapspecFile: reads the file `path` into the model in memory: its categories, actions,
 * enterprises and traps are added to what is there or replace it. `*errmsg` and the result as
 * read_trapspec_file(), with a text of its own.
 */
WQEVENTS_API int augmentTrapspecFile(char** errmsg, const char* path);

/*
 * insertMallocTrapRecord: adds a trap to `enterprise`, or updates the one with the same numbers and
 * nodes. With `nodeCnt` names in `nodeList` the record to update is the first one that has nodes
 * and holds for one of them, else the first one without nodes. An updated record keeps its node
 * list, event class and slot mapping, and each of the description, format, EXEC and DISPLAY texts
 * for which null is given. A new record whose name is taken gets one with "_1", "_2" and so on: the
 * first that is free. In a model of tens of thousands of traps a name that was written by hand
 * counts as taken once a look-up has found it or trapspec_relinked() was called.
 *
 * Ownership: `nodeList` and its strings, `rawformat`, `rawexec`, `rawdisplay`, `description` and
 * the strings in `slotNames` and `slotVals` come from doMalloc() or doStrdup() and become the
 * record's, or are freed. `name` (cut to EMS_NAME_MAX - 1 bytes) and `eventClass` are copied; the
 * arrays `slotNames` and `slotVals` stay the caller's. Each text but `name` may be null.
 *
 * Returns the record, or null when `enterprise` or `name` is null.
 */
WQEVENTS_API trap_record* insertMallocTrapRecord(enterprise_info* enterprise, const char* name,
                                                 int generic, int specific, int nodeCnt,
                                                 char** nodeList, int category, char source,
                                                 char* rawformat, char* rawexec, char* rawdisplay,
                                                 char* description, int severity, int status,
                                                 int forward, const char* eventClass, int slotCnt,
                                                 char** slotNames, char** slotVals);

/*
 * trpFmtAddSourceToList: appends a copy of `name` to the array `*list` of `*count` strings with
 * room for `*capacity`, growing it by 20 entries when it is full. Start with 0, 0 and null.
 */
WQEVENTS_API void trpFmtAddSourceToList(int* count, int* capacity, char*** list, const char* name);

/*
 * doMalloc: `size` bytes (0 counts as 1), all zero. When memory is exhausted it and the next two
 * say so on the standard error stream and end the process with status 1, so they never fail.
 */
WQEVENTS_API void* doMalloc(size_t size);

/* doRealloc: `p` (null: new memory) with room for `size` bytes; what it grew by is not cleared. */
WQEVENTS_API void* doRealloc(void* p, size_t size);

/* doStrdup: a copy of `s`; null for null. */
WQEVENTS_API char* doStrdup(const char* s);

/*
 * doFree: frees what the three above returned and the texts and lists of the model, which free()
 * does not take. Null does nothing.
 */
WQEVENTS_API void doFree(void* p);

/*
 * makeFormatString: compiles the format text `raw` into `element`, which is all zero or holds an
 * earlier result, whose strings are freed. `raw` comes from doMalloc() or doStrdup() and becomes
 * the element's; where trpFormatDontMallocRaw is set it is freed. Never fails:
 *   - a text of more than 4094 bytes is replaced by "Format string too long";
 *   - a token whose number is missing or begins with 0 stays in the text as it is;
 *   - a number above EMS_ARGS_MAX leaves "$" and its last digit in the text;
 *   - "$$" becomes one "$"; the tokens after the 79th stay in the text.
 * Where either pointer is null, nothing is done and `raw` stays the caller's.
 */
WQEVENTS_API void makeFormatString(char* raw, trap_element* element);

/*
 * interpret_esc_sequences: copies `in` to `out`, terminated, with its escapes interpreted: \" \' \\
 * \a \b \f \n \r \t \v, \x and two hexadecimal digits, \0 or \1 and two octal ones; the backslash
 * and the character of any other pair are dropped. "%" and "%%" both become "%%". `out` needs at
 * most twice the length of `in` and one byte; it must not overlap `in`.
 */
WQEVENTS_API void interpret_esc_sequences(const char* in, char* out);

/*
 * suck_a_char: removes the character at `position`, of one or two bytes in the current locale, by
 * moving the rest of the text to the left. Nothing is removed from an empty text.
 */
WQEVENTS_API void suck_a_char(char* position);

/*
 * write_trapspec_file: replaces the contents of `stream`, normally from lockVortdConfFile(), with
 * the model in memory. On success the lock is released and the stream closed. Returns 0, or -1 for
 * a null stream, when the file cannot be written and when an enterprise of the model has no object
 * identifier; the stream then stays open, the reason is on the standard error stream and in errno,
 * and the file has its old contents. Only if these could not be put back, its first line is "!",
 * which the next read reports.
 */
WQEVENTS_API int write_trapspec_file(FILE* stream);

/* print_trap_rec: writes one trap block; `oid` and `len` are its enterprise's. */
WQEVENTS_API void print_trap_rec(FILE* stream, trap_record* rec, const uint32_t* oid, uint32_t len);

/*
 * oid_to_string: the first 100 of `len` sub-identifiers, joined by '.', without a leading dot. The
 * text is the library's and overwritten by the next call. Null for a null `oid`.
 */
WQEVENTS_API char* oid_to_string(const uint32_t* oid, uint32_t len);

/*
 * oidcmp: compares two object identifiers. Negative where a sorts first, 0 for equal ones, positive
 * where b does. At the first difference the result is a's sub-identifier minus b's, unsigned and
 * taken as signed; where one is the beginning of the other, the longer one sorts first and the
 * result is the number of sub-identifiers more.
 */
WQEVENTS_API int oidcmp(const uint32_t* a, const uint32_t* b, uint32_t alen, uint32_t blen);

/*
 * insert_enterprise: adds an enterprise with copies of `oid` and `name`; one with the same object
 * identifier is renamed. Returns 0, -1 for a null pointer.
 */
WQEVENTS_API int insert_enterprise(const uint32_t* oid, uint32_t len, const char* name);

/*
 * find_enterprise: points `*result` at the enterprise that is `oid` or its longest beginning, or at
 * null. The enterprise stays the model's.
 */
WQEVENTS_API int find_enterprise(const uint32_t* oid, uint32_t len, enterprise_info** result);

/*
 * find_enterprise_relative: find_enterprise() that starts at `*start_and_result`, which it replaces
 * by the result. A null start finds nothing.
 */
WQEVENTS_API int find_enterprise_relative(const uint32_t* oid, uint32_t len,
                                          enterprise_info** start_and_result);

/*
 * delete_enterprise_record: unlinks and frees an enterprise. Returns 0, or -1 while it has trap
 * records or when it is not in the list.
 */
WQEVENTS_API int delete_enterprise_record(enterprise_info* enterprise);

/* name_to_enterprise: points `*result` at the first enterprise of exactly that name, or at null. */
WQEVENTS_API int name_to_enterprise(const char* name, enterprise_info** result);

/*
 * oid_to_name: copies the name of the enterprise that find_enterprise() finds into the `size` bytes
 * of `buffer`. Returns 0; -1, with an empty text where `size` allows, when there is none or its
 * name with the terminator does not fit.
 */
WQEVENTS_API int oid_to_name(const uint32_t* oid, uint32_t len, char* buffer, int size);

/*
 * cname_to_oid: reads decimal numbers, separated by any run of blanks, tabs, commas and dots, into
 * `oid` and their number into `*count`. No bound is applied: `oid` has room for every number in
 * `text`; of a number beyond 32 bits the lower 32 count. Returns 0 when the text ends, 1 at any
 * other character, -1 for a null pointer.
 */
WQEVENTS_API int cname_to_oid(const char* text, uint32_t* oid, int* count);

/*
 * trapRecNodesMatch: 1 if the record holds for the node, else 0. A record without nodes holds for
 * all, one with nodes not for null. A node of the list that begins with '/' names a file with a
 * node a line; one that cannot be opened ends the search with 0.
 */
WQEVENTS_API int trapRecNodesMatch(trap_record* rec, const char* node);

/*
 * findExactTrapRecord: the first record with these numbers that holds for `node`, which may be null
 * (trapRecNodesMatch()); null when there is none. The record stays the model's.
 */
WQEVENTS_API trap_record* findExactTrapRecord(enterprise_info* enterprise, int generic,
                                              int specific, const char* node);

/*
 * find_exact_trap_record: points `*result` at the first record with these numbers, whatever its
 * nodes, or at null.
 */
WQEVENTS_API int find_exact_trap_record(enterprise_info* enterprise, int generic, int specific,
                                        trap_record** result);

/*
 * delete_trap_record: removes and frees what find_exact_trap_record() finds. Returns 0, or -1 when
 * there is none.
 */
WQEVENTS_API int delete_trap_record(enterprise_info* enterprise, int generic, int specific);

/*
 * nameToTrapAndEnterprise: points `*rec` and `*enterprise` at the first record, in the order of the
 * enterprises and of their records, whose name equals `name` in its first EMS_NAME_MAX characters,
 * and at its enterprise. Returns 0, or -1 when there is none.
 */
WQEVENTS_API int nameToTrapAndEnterprise(const char* name, trap_record** rec,
                                         enterprise_info** enterprise);

/* nameToExactTrap: the record that nameToTrapAndEnterprise() finds, or null. */
WQEVENTS_API trap_record* nameToExactTrap(const char* name);

/* deleteTrapRecord: removes and frees the record of that name. Returns 0, or -1: there is none. */
WQEVENTS_API int deleteTrapRecord(const char* name);

/*
 * deleteTrapAction: removes the first action of that name from the table, which shrinks. Returns 0,
 * or 1 when there is none.
 */
WQEVENTS_API int deleteTrapAction(const char* name);

/* freeAction: frees an action's strings; the entry itself stays the caller's. */
WQEVENTS_API void freeAction(actionCmd* action);

/* freeAllActions: frees all actions and their table and leaves it empty. */
WQEVENTS_API void freeAllActions(void);

/*
 * free_trap_record: frees a record with all it owns, its alert included: one that the library made,
 * which nothing else frees, or one of the program's from doMalloc(). It must have been unlinked.
 */
WQEVENTS_API void free_trap_record(trap_record* rec);

/*
 * free_enterprise: frees an enterprise, its name and its object identifier, but not its trap
 * records: one that the library made, which nothing else frees, or one of the program's from
 * doMalloc(). It must have been unlinked.
 */
WQEVENTS_API void free_enterprise(enterprise_info* enterprise);

/* free_all_info: frees the whole model: enterprises, trap records, category names and actions. */
WQEVENTS_API void free_all_info(void);

/*
 * trapspec_relinked: tells that the lists were relinked or names and numbers rewritten by hand.
 * After it every look-up and edit goes by the lists as they are.
 */
WQEVENTS_API void trapspec_relinked(void);

/*
 * setVortdConfFile: names the configuration file; the name is copied. Null or an empty name returns
 * to the default of getVortdConfFile().
 */
WQEVENTS_API void setVortdConfFile(const char* name);

/*
 * getVortdConfFile: the name of the configuration file. Where none is set it is computed once and
 * kept: the value of the environment variable WQVORTDCONF, else "C/vortd.conf" below the platform's
 * configuration directory. The text is the library's and stays readable; setVortdConfFile() may
 * overwrite it. Null when memory is exhausted.
 */
WQEVENTS_API char* getVortdConfFile(void);

/*
 * fopenConfFile: opens the configuration file as fopen() with `mode` does; for reading only, a FIFO
 * does not wait for its writer and a directory is refused. `*name` is pointed at the file's name,
 * which stays the library's. Returns the stream, the caller's to close, or null.
 */
WQEVENTS_API FILE* fopenConfFile(const char* mode, char** name);

/*
 * lockVortdConfFile: opens the configuration file for reading and writing and takes an exclusive
 * lock on the whole of it, without waiting. The lock keeps other processes out, children that are
 * forked meanwhile among them, but not this one. It lasts until the stream is closed, normally by
 * write_trapspec_file(), whatever else this process opens, reads, locks and closes meanwhile.
 * Returns the stream with `*message` null, or null with a text in `*message` that the caller gives
 * to free().
 */
WQEVENTS_API FILE* lockVortdConfFile(char** message);

/*
 * open_ferlo_lock_file: opens and locks the alert configuration, the file that the environment
 * variable FERLOD_CONF names, else "ferlod.conf" in the platform's configuration directory. `mode`
 * "r" takes a shared lock, the others an exclusive one, "w" before the file is truncated. While
 * another process refuses the lock it is tried up to 5 more times, for 20 seconds in all. Streams
 * of this process are never in each other's way; each has its own lock until it is closed. `*name`
 * is pointed at the name, a text of the library's that stays readable, `*stream` at the stream.
 * Returns 0 (also where the system refuses for another reason than a holder), -1 when the file
 * cannot be opened, -2 when the lock is held elsewhere; the stream is then open, without the lock.
 */
WQEVENTS_API int open_ferlo_lock_file(const char* mode, FILE** stream, char** name);

/*
 * sendFMTCHGevent: tells the daemon that `program` changed the configuration file, by event
 * 50790438 on a channel of application `source` that is opened and closed for it. Returns 0 with
 * `*message` null, or -1 with a warning in `*message`, a text of the library's that stays readable
 * and that the next failure may overwrite; without `program` or memory -1 with a null message.
 */
WQEVENTS_API int sendFMTCHGevent(const char* program, uint16_t source, char** message);

WQEVENTS_END_DECLS

#endif
