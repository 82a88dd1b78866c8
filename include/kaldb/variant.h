/*
 * Variants: typed values kept inside records, and their store of long values.
 *
 * A variant is a caller's structure of 64 bytes. It holds a value of a fixed size (1 to 16 bytes), an identifier, a
 * string or a block of bytes. A value of variable size lies inside the structure, in `inlineData`, when it is smaller
 * than `inlineSize`; otherwise in a block of memory that the variant allocates. The store keeps such a long value in
 * the system table "SysBinary", so that the variant can travel inside a record of 64 bytes:
 *
 *     KALDBVariant note;
 *     kaldbVariantInitialize(sizeof note.inlineData, &note);
 *     kaldbVariantSetString(&note, KALDB_VT_WSTRING, u"a text longer than seven characters");
 *     kaldbVariantInsertRecord(&note);      // the text is in the database, note.location says where
 *     record.note = note;                   // insert `record` into a table; later, perhaps in another process:
 *     kaldbVariantGetRecord(&record.note);  // reads the text back into memory of record.note's own
 *     kaldbVariantDeinitialize(&record.note);
 *     kaldbVariantDeinitialize(&note);
 *
 * Who owns what. The memory of a long value belongs to the structure, at its address, that allocated it; setting,
 * emptying or deinitialising that structure frees it. A copy of the structure's bytes (an assignment, memcpy, a record
 * read back) can read the value as long as the original holds it, but owns nothing: emptying the copy frees nothing,
 * and setting it gives it memory of its own. So a variant that is moved must be emptied where it was set, and one that
 * owns memory must be emptied before other bytes are written over it, else that memory stays allocated until the
 * process ends. A pointer that came out of a stored record is never followed and never freed.
 *
 * Every operation returns a status. A null pointer gives KALDB_INVALID_ARGUMENT, except where null is said to mean
 * something. Calls must not run concurrently.
 */
#ifndef KALDB_VARIANT_H
#define KALDB_VARIANT_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Type codes 0 to 21. Codes 2 to 14 are values of a fixed size that the library copies and does not interpret, in
 * bytes:
 *
 *     code   2  3  4  5  6  7  8  9 10 11 12 13 14
 *     size   4  1  2  1  1  2  2  4  4  8  8  4  8
 *
 * Codes 15 to 21 are values of variable size; 15, 19, 20 and 21 hold bytes of the caller's. The store takes the codes
 * 16, 17, 18, 20 and 21.
 */
enum {
    KALDB_VT_EMPTY = 0,       /* no value */
    KALDB_VT_ID = 1,          /* a KALDBID, 16 bytes */
    KALDB_VT_STRING = 16,     /* multibyte string, kept as given; `size` is its bytes with the terminator */
    KALDB_VT_WSTRING = 17,    /* wide string, kept as multibyte, taken as wide; `size` is its multibyte bytes with the
                                 terminator: one a character for text of single-byte characters */
    KALDB_VT_WSTRING_RAW = 18 /* wide string, kept as wide characters; `size` is 2 * (length + 1) */
};

/* 64 bytes on every platform; part of the format of the records that hold it. Callers read the fields freely and, to
   receive a value with kaldbVariantAllocate, set `type`, `isNull` and `size`; the rest is for reading only. */
typedef struct KALDBVariant {
    uint32_t type;             /* one of the codes above */
    uint32_t isNull;           /* 1 while there is no value, else 0 */
    uint32_t inlineSize;       /* bytes at inlineData; more than 8 in a larger block of memory whose tail extends it */
    uint32_t size;             /* bytes of the value */
    KALDBIndexRecord location; /* first block in the store; page KALDB_NO_PAGE while not stored */
    union {
        uint8_t value[16]; /* a value of a fixed size */
        void* data;        /* variable size: where the value is, in this process only. Its block's handle follows
                              in value[8] to value[11]. */
    };
    uint8_t inlineData[8];
} KALDBVariant;

/* Prepares a variant: type KALDB_VT_EMPTY, null, not stored. `inlineSize` is the number of bytes that really lie at
   `inlineData`, 8 for a plain structure; a value of `inlineSize` bytes or more goes to a block. What the structure held
   before is not looked at. Returns 0. */
KALDB_API uint32_t kaldbVariantInitialize(uint32_t inlineSize, KALDBVariant* variant);

/* Frees the variant's own memory and sets type, inline size and size to 0. It must be initialised before further use.
   Returns 0. */
KALDB_API uint32_t kaldbVariantDeinitialize(KALDBVariant* variant);

/* Frees the variant's own memory and makes it null; type and inline size stay. Returns 0. */
KALDB_API uint32_t kaldbVariantEmpty(KALDBVariant* variant);

/* Gives the variant a block of `size` zero bytes at `data`, to be filled by the caller; an earlier own block is freed.
   Returns 0, KALDB_NOT_APPLICABLE for a value that lies in the structure (`size` below `inlineSize`, or a type of fixed
   size), KALDB_OUT_OF_MEMORY (the variant then stays as it was). */
KALDB_API uint32_t kaldbVariantAllocate(KALDBVariant* variant);

/* Sets a value by its type: a type of fixed size as kaldbVariantSetPrimitive does and a string (16, 17, 18) as
   kaldbVariantSetString does, `size` not being read; any other as kaldbVariantSetBinary does. Returns what they return.
 */
KALDB_API uint32_t kaldbVariantSet(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size);

/* Sets a value of type KALDB_VT_ID. Returns 0. */
KALDB_API uint32_t kaldbVariantSetID(KALDBVariant* variant, const KALDBID* id);

/* Copies as many bytes as the type has from `data`; null makes a null value of that type. `location` stays. Returns 0,
   or KALDB_NOT_SUPPORTED, changing nothing, for a type above 21 or of variable size. */
KALDB_API uint32_t kaldbVariantSetPrimitive(KALDBVariant* variant, uint32_t type, const void* data);

/* Sets a NUL-terminated string: const char* for KALDB_VT_STRING, aligned const char16_t* for KALDB_VT_WSTRING,
   KALDB_VT_WSTRING_RAW and type 20. Null, or any other type, makes a null value of that type. A string of type
   KALDB_VT_WSTRING must not lie in the variant itself. The value is not stored any more as far as the variant knows.
   Returns 0; KALDB_NOT_SUPPORTED, changing nothing, for a type above 21; KALDB_CONVERSION_FAILED when text for
   KALDB_VT_WSTRING is not valid UTF-16, or KALDB_OUT_OF_MEMORY: the variant is then a null value of that type;
   KALDB_INVALID_ARGUMENT for a string of 4 GiB or more.
   Example: kaldbVariantSetString(&v, KALDB_VT_STRING, "abc") makes a value of 4 bytes. */
KALDB_API uint32_t kaldbVariantSetString(KALDBVariant* variant, uint32_t type, const void* string);

/* Copies `size` bytes, which may be the variant's own; size 0 makes a null value. Returns 0; KALDB_NOT_SUPPORTED,
   changing nothing, for a type above 21, or of fixed size with bytes to set; KALDB_INVALID_ARGUMENT for null data of a
   size other than 0; KALDB_OUT_OF_MEMORY: the variant is then a null value of that type. */
KALDB_API uint32_t kaldbVariantSetBinary(KALDBVariant* variant, uint32_t type, const void* data, uint32_t size);

/* The type code. Returns 0. */
KALDB_API uint32_t kaldbVariantGetType(const KALDBVariant* variant, uint32_t* type);

/* The value's size in bytes as it is kept; for KALDB_VT_WSTRING that is its multibyte form. Returns 0. */
KALDB_API uint32_t kaldbVariantGetSize(const KALDBVariant* variant, uint32_t* size);

/* Copies the identifier (kaldbIDCopy); it means something only in a value of type KALDB_VT_ID. Returns 0. */
KALDB_API uint32_t kaldbVariantGetID(const KALDBVariant* variant, KALDBID* id);

/* Copies the value. `*size` is the room in bytes on the way in and the bytes written on the way out. KALDB_VT_WSTRING
   comes back as wide text with its terminator, so 2 bytes for every UTF-16 unit, into a buffer aligned for char16_t.
   `buffer` may be null where nothing is copied.
   Returns 0; KALDB_BUFFER_TOO_SMALL, with `*size` as it was; KALDB_NOT_OPEN when the value's memory is not to be had
   (a value read from a record before kaldbVariantGetRecord, or a copy whose original is gone); KALDB_CONVERSION_FAILED
   when the text is not valid multibyte text; KALDB_NOT_SUPPORTED for a type above 21; KALDB_FAILURE for a size that
   the type cannot have. */
KALDB_API uint32_t kaldbVariantGetData(const KALDBVariant* variant, void* buffer, uint32_t* size);

/* Where the value is, until it is set or emptied; null when it is null or its memory is not to be had. A value of type
   KALDB_VT_WSTRING is multibyte text there. Returns 0, or KALDB_NOT_SUPPORTED with null for a type above 21. */
KALDB_API uint32_t kaldbVariantGetDataPointer(const KALDBVariant* variant, const void** data);

/* Opens the store, creating "SysBinary" in a file that has none; kaldbInitialize does this. Nothing is done when it is
   open. Returns 0, or what looking the table up, creating or opening it returned. */
KALDB_API uint32_t kaldbInitBinaryTable(KALDBDatabase* db);

/* Closes the store; kaldbDeinitialize does this. `db` is not read. Returns 0, or KALDB_NOT_OPEN. */
KALDB_API uint32_t kaldbDeinitBinaryTable(KALDBDatabase* db);

/* Stores a long value and sets `location`. A value that is stored already is stored once more, as a new copy: delete
   the old one first (kaldbVariantDeleteRecord) unless another record refers to it.
   Returns 0, also for one of size 0 and `inlineSize` 0, which has no blocks and so no place; KALDB_NOT_APPLICABLE for a
   value smaller than `inlineSize`, which travels in the structure;
   KALDB_FAILURE for another type than 16, 17, 18, 20 and 21; KALDB_NOT_OPEN when the store is not open or the value's
   memory is not to be had; otherwise what an insertion into the table returned: `location` is then as it was, and
   blocks already written stay behind. */
KALDB_API uint32_t kaldbVariantInsertRecord(KALDBVariant* variant);

/* Reads a long value back. `type`, `inlineSize`, `size` and `location` must be as kaldbVariantInsertRecord left them;
   `data` may be anything. `inlineSize` is believed: check it in a record from a file that you do not trust. The
   variant's earlier own memory is freed.
   Returns 0; KALDB_NOT_APPLICABLE for a value that travels in the structure or has size 0, after pointing `data` there;
   KALDB_FAILURE for a type that the store does not take, and for a damaged value; KALDB_NOT_OPEN; KALDB_OUT_OF_MEMORY;
   otherwise what reading the table returned (KALDB_NOT_FOUND: no such place). When reading failed, `data` is null. */
KALDB_API uint32_t kaldbVariantGetRecord(KALDBVariant* variant);

/* Deletes the stored value at `location`, which must have the variant's size. The variant stays as it was, its
   `location` too. Returns 0; KALDB_NOT_APPLICABLE, KALDB_NOT_OPEN as above; KALDB_FAILURE for a type that the store
   does not take, and for a damaged value, which is deleted up to the damage; otherwise what the table returned. */
KALDB_API uint32_t kaldbVariantDeleteRecord(KALDBVariant* variant);

/* Does nothing and returns KALDB_NOT_SUPPORTED. Delete the old value, then insert the new one. */
KALDB_API uint32_t kaldbVariantUpdateRecord(KALDBVariant* variant);

#ifdef __cplusplus
}
#endif
#endif
