/*
 * The tree of names for object identifiers, read from the file "oid_to_label".
 *
 * Two kinds of line: a local mapping, "name"=OID, names the beginning of an identifier that later
 * lines refer to as ${name}; any other line, OID="name", names one identifier, or a range of them
 * where the OID holds x(first..last). No blank stands beside the equals sign. '#' begins a comment,
 * a trailing backslash continues a line. Malformed lines are skipped, no messages are issued. State
 * is process-wide, for one thread at a time.
 *
 * Trees may be walked and built by hand, and names be exchanged, at any time. A node that the
 * library put into a tree keeps its value and its place among its siblings, though others may be
 * linked in beside it, until oidFreeTree() frees it, with its tree or taken out of it. Beside long
 * chains of siblings the library remembers where to begin a search; hence a look-up costs about the
 * same among ten siblings and among a million.
 */
#ifndef WQEVENTS_NAMES_H
#define WQEVENTS_NAMES_H

#include <stdint.h>

#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

/* The name of an object identifier. */
typedef struct oiddata {
    char mapping_str[64]; /* terminated */
} oiddata;

/*
 * One sub-identifier of the tree. The root has the value 0 and stands for none; its children are
 * the first sub-identifiers.
 */
typedef struct oidnode {
    struct oidnode* child; /* first child */
    struct oidnode* sib;   /* next sibling; siblings ascend by `val` */
    uint32_t val;          /* the sub-identifier */
    oiddata* data;         /* owned by the node; null without a name */
} oidnode;

/* One local mapping. The newest comes first and hides older ones of the same name. */
typedef struct local_map {
    struct local_map* next;
    char mapping_str[64];  /* the mapping's name */
    char oidstring[128];   /* the identifier as written, references replaced */
    uint32_t ent_oid[128]; /* its sub-identifiers */
    int ent_oid_len;       /* sub-identifiers of `ent_oid` in use */
} local_map;

/* The tree that the formatter asks for names; null until one has been read. */
WQEVENTS_API extern oidnode* oidTree;

/*
 * parseOidFile: TreeParseOidFile() of `oidTree`: reads a file into a new tree, after freeing the
 * old one and the local mappings, and stores the tree there. Returns its root, or null when the
 * file cannot be opened. When it cannot be read the result is null and `oidTree` stays as it was.
 */
WQEVENTS_API oidnode* parseOidFile(const char* path) WQEVENTS_NOEXCEPT;

/*
 * TreeParseOidFile: reads a file into a new tree, after freeing `tree` and the local mappings; a
 * null `tree` leaves the mappings of what was read before. Returns the new root, to be given to
 * oidFreeTree(), or null when the file cannot be opened or read. A line whose identifier cannot be
 * entered ends the file, unless it has a range.
 */
WQEVENTS_API oidnode* TreeParseOidFile(oidnode* tree, const char* path) WQEVENTS_NOEXCEPT;

/* insertOid: TreeInsertOid() into `oidTree`. */
WQEVENTS_API oidnode* insertOid(const char* oidtext, oiddata* data) WQEVENTS_NOEXCEPT;

/*
 * TreeInsertOid: names the identifier that `oidtext` spells: unsigned numbers separated by '.',
 * hexadecimal with a leading 0x, octal with a leading 0; a dot may come first, and at most 127
 * characters are used. A tree is begun where `*root` is null; a name that was there is freed and
 * replaced. Returns the node, which then owns `data`, or null when a part is no number or exceeds
 * 32 bits; `data` then stays the caller's.
 */
WQEVENTS_API oidnode* TreeInsertOid(oidnode** root, const char* oidtext,
                                    oiddata* data) WQEVENTS_NOEXCEPT;

/* getOidData: TreeGetOidData() of `oidTree`. */
WQEVENTS_API oiddata* getOidData(const uint32_t* oid, int len) WQEVENTS_NOEXCEPT;

/*
 * TreeGetOidData: the name of exactly the identifier of `len` sub-identifiers, or null. It stays
 * the tree's.
 */
WQEVENTS_API oiddata* TreeGetOidData(oidnode* root, const uint32_t* oid, int len) WQEVENTS_NOEXCEPT;

/* lookupOid: TreeLookupOid() of `oidTree`. */
WQEVENTS_API char* lookupOid(const uint32_t* oid, int len) WQEVENTS_NOEXCEPT;

/* TreeLookupOid: the text of TreeGetOidData(), or null. It stays the tree's. */
WQEVENTS_API char* TreeLookupOid(oidnode* root, const uint32_t* oid, int len) WQEVENTS_NOEXCEPT;

/*
 * findOidInTree: the dotted identifier, without a leading dot, of the first node of that name,
 * depth first in ascending order, or null. The text is the library's and overwritten by the next
 * call.
 */
WQEVENTS_API char* findOidInTree(oidnode* root, const char* name) WQEVENTS_NOEXCEPT;

/* dumpLocalList: lists the local mappings on the standard output; nothing where there are none. */
WQEVENTS_API void dumpLocalList(void) WQEVENTS_NOEXCEPT;

/*
 * dumpOidTree: lists the names of a tree on the standard output, the first time in the process
 * under a heading, with sub-identifiers as signed numbers. `line`, a terminated text or null, goes
 * before every identifier.
 */
WQEVENTS_API void dumpOidTree(oidnode* root, char* line) WQEVENTS_NOEXCEPT;

/*
 * oidFreeTree: frees a node with all that `child` and `sib` lead to, and all local mappings. A null
 * root frees the mappings. Given `oidTree`, it leaves null there.
 */
WQEVENTS_API void oidFreeTree(oidnode* root) WQEVENTS_NOEXCEPT;

/* newOidNode: a new node without links or name, for a tree; null when there is no memory. */
WQEVENTS_API oidnode* newOidNode(uint32_t val) WQEVENTS_NOEXCEPT;

/*
 * buildOidData: a new name with the first 63 characters of `text`, for TreeInsertOid(); the caller
 * frees what he does not insert. Null when `text` is null or there is no memory.
 */
WQEVENTS_API oiddata* buildOidData(const char* text) WQEVENTS_NOEXCEPT;

/*
 * buildEntOid: reads dotted text, numbers as in TreeInsertOid(), into at most 128 sub-identifiers;
 * what is no number counts as 0, nothing between two dots as nothing. Returns how many there are, 0
 * for a null pointer.
 */
WQEVENTS_API int buildEntOid(uint32_t* oid, const char* text) WQEVENTS_NOEXCEPT;

/*
 * findEntOidstring: the `oidstring` of the newest local mapping of that name, or null. It stays the
 * mapping's.
 */
WQEVENTS_API char* findEntOidstring(const char* name) WQEVENTS_NOEXCEPT;

WQEVENTS_END_DECLS

#endif
