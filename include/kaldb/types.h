/* The types that the families share: identifiers, locators, callbacks and the opaque handles. */
#ifndef KALDB_TYPES_H
#define KALDB_TYPES_H

#include <kallib/kallib.h>

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KALDBDatabase KALDBDatabase;
typedef struct KALDBTable KALDBTable;
typedef struct KALPageManager KALPageManager;
typedef struct KALPageTracker KALPageTracker;

/* "No page" in every field that holds a page number, and "no slot" in every slot index. */
#define KALDB_NO_PAGE 0xFFFFFFFFu
#define KALDB_NO_SLOT 0xFFFFu

/* A 16-byte object identifier, stored as it stands here. All bytes 0xFF: no identifier yet. */
typedef struct KALDBID {
    uint16_t tag;       /* part of equality, not of order; 0xFFFF in every identifier handed out */
    uint16_t spare;     /* neither compared nor copied */
    uint32_t alignment; /* never read */
    uint64_t sequence;  /* the counter: order and, with tag, equality */
} KALDBID;

/* Where a record lives. Also the record of every identifier index. */
typedef struct KALDBIndexRecord {
    KALDBID id;
    uint32_t page;
    uint16_t index;
    uint16_t alignment; /* never read */
} KALDBIndexRecord;

/* One piece of raw bytes with the address of the piece that follows it. */
typedef struct KALDBBinaryRecord {
    void* data;
    uint32_t totalSize; /* of the whole value that the piece belongs to */
    uint32_t length;    /* bytes in this piece */
    uint32_t nextPage;  /* KALDB_NO_PAGE in the last piece */
    uint16_t nextIndex; /* KALDB_NO_SLOT in the last piece */
} KALDBBinaryRecord;

/* Chain flags, kept in the catalogue and given in KALDBTableInfo. */
enum {
    KALDB_CHAIN_BINARY = 0x0004, /* pages of raw pieces instead of ordered records */
    KALDB_CHAIN_SYSTEM = 0x1000, /* made by the library for itself */
    KALDB_CHAIN_GUID = 0x2000    /* every record begins with an identifier that the library stamps */
};

/* Page lock types. */
enum { KALDB_LOCK_NONE = 0, KALDB_LOCK_READ = 1, KALDB_LOCK_WRITE = 2, KALDB_LOCK_READ_WRITE = 3 };

/* Page flags in the common page header. */
enum { KALPAGEMAN_PAGE_DIRTY = 0x1, KALPAGEMAN_PAGE_EMPTY = 0x2, KALPAGEMAN_PAGE_UNUSED = 0x4 };

/* Events of KALDBRecordEvent. A non-zero answer to a "before" event refuses the operation with that status; the answers
   to the others are ignored. The update of an enumerator's current record is a deletion and an insertion; a deletion by
   partial key and a walk with a callback are no event. */
enum {
    KALDB_EVENT_BEFORE_INSERT = 0,
    KALDB_EVENT_AFTER_INSERT = 1,
    KALDB_EVENT_BEFORE_DELETE = 2,
    KALDB_EVENT_AFTER_DELETE = 3,
    KALDB_EVENT_BEFORE_UPDATE = 4,
    KALDB_EVENT_AFTER_UPDATE = 5,
    KALDB_EVENT_READ = 6
};

/* The order of two records: negative, zero or positive as `probe` sorts before, with or after `stored`.
   Neither pointer is aligned: read fields with memcpy. */
typedef int32_t (*KALBTreeCompare)(const void* probe, const void* stored);
/* Examines a record: KALDB_FIELD_SUCCESS, or why field number *field is refused. Mode 0: insertion or update
   by key; mode 1: update of an enumerator's current record. */
typedef uint32_t (*KALDBCheckConstraints)(uint32_t mode, const void* record, uint32_t* field);
/* Told of a record that moved from one page and slot to another, or was deleted (`to` is then empty: page
   KALDB_NO_PAGE). Of `from` only page and slot are set, the identifier is in `to`. Only records with identifiers are
   told of, after the table's own index has followed; the context is the table handle. The answer changes nothing. */
typedef uint32_t (*KALDBIndexUpdate)(const KALDBIndexRecord* from, const KALDBIndexRecord* to, uintptr_t context);
/* The hook around record operations: event, the operation's status, the record. The record is the caller's or the
   stored one, of a deletion by key the key, after a deletion by identifier null, of a binary table the
   KALDBBinaryRecord of an insertion. It is not aligned, valid during the call only, and not to be changed but where it
   is the caller's own. */
typedef uint32_t (*KALDBRecordEvent)(uint32_t event, uint32_t status, void* record);
/* Called with every record of a table; a non-zero answer stops the walk and is returned. */
typedef uint32_t (*KALDBEnumCallback)(void* context, const void* record);

typedef struct KALDBChainCallbacks {
    KALBTreeCompare compare;
    KALDBCheckConstraints checkConstraints; /* may be null */
    KALDBIndexUpdate indexUpdate;           /* may be null; a table keeps its own index whether or not */
    KALDBRecordEvent recordEvent;           /* may be null */
    void (*reserved[4])(void);              /* copied, never called */
} KALDBChainCallbacks;

#ifdef __cplusplus
}
#endif
#endif
