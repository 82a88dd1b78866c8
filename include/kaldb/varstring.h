/*
 * Variable strings: texts kept inside records, and their store of long texts.
 *
 * A string is a caller's structure: a header of 32 bytes and, right behind it, an inline area of `capacity` bytes.
 * Callers give and take wide text (UTF-16); the library keeps multibyte text (UTF-8). A text of fewer than `capacity`
 * bytes lies in the inline area with its terminator, a longer one in a block of memory that the string allocates. The
 * store keeps long texts in the system table "SysVarString":
 *
 *     struct { KALDBVarString name; char area[16]; } person;
 *     kaldbVarStringCreate(sizeof person.area, &person.name, u"a name of more than fifteen characters");
 *     kaldbVarStringInsertRecord(&person.name);  // the text is in the database, person.name.location says where
 *     ...                                        // `person` is kept in a record and read back later, then:
 *     kaldbVarStringGetRecord(&person.name);     // reads the text into memory of person.name's own
 *     puts(kaldbVarStringGetPSZ(&person.name));
 *     kaldbVarStringDelete(&person.name);
 *
 * Who owns what is as in variants: the memory of a long text belongs to the structure, at its address, that allocated
 * it, and setting or deleting that string frees it. A copy of the structure's bytes reads the text as long as the
 * original holds it and never frees it. A string that owns memory must be deleted where it was set, before other bytes
 * are written over it. While a text is long, the first 4 bytes of the inline area are the handle of its memory, which
 * means nothing in a stored record, and is never taken for text.
 *
 * Every operation but kaldbVarStringGetPSZ returns a status. A null pointer gives KALDB_INVALID_ARGUMENT, except where
 * null is said to mean something. Where a text is read, KALDB_NOT_OPEN says that it is not to be had: the string came
 * out of a record and kaldbVarStringGetRecord has not been called, or it is a copy whose original is gone. Calls must
 * not run concurrently.
 */
#ifndef KALDB_VARSTRING_H
#define KALDB_VARSTRING_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The header; the inline area of `capacity` bytes follows it directly. The same on every platform; part of the format
   of the records that hold it. */
typedef struct KALDBVarString {
    uint32_t capacity;         /* bytes of the inline area */
    uint32_t length;           /* multibyte bytes of the text without its terminator: one a character for text of
                                  single-byte characters */
    KALDBIndexRecord location; /* first block in the store; page KALDB_NO_PAGE while not stored */
} KALDBVarString;

/* Prepares a string over an inline area of `capacity` bytes: length 0, not stored, the area filled with 0xDD. What the
   structure held before is not looked at. With a capacity below 4 the string cannot hold a long text. Returns 0. */
KALDB_API uint32_t kaldbVarStringAllocate(uint32_t capacity, KALDBVarString* string);

/* Allocate and Set in one. KALDB_BUFFER_TOO_SMALL leaves the string as it was before the call; after any other failure
   it is an allocated string of length 0. Returns what they return. */
KALDB_API uint32_t kaldbVarStringCreate(uint32_t capacity, KALDBVarString* string, const char16_t* text);

/* Frees the string's own memory, clears the inline area and sets capacity and length to 0: it must be allocated before
   further use. Returns 0. */
KALDB_API uint32_t kaldbVarStringDelete(KALDBVarString* string);

/* Sets the text; null makes the length 0. `location` stays: delete a stored text before setting another.
   Returns 0; KALDB_CONVERSION_FAILED when the text is not valid UTF-16; KALDB_BUFFER_TOO_SMALL for a long text in a
   string whose capacity is below 4; KALDB_OUT_OF_MEMORY. After a failure the string is as it was. */
KALDB_API uint32_t kaldbVarStringSet(KALDBVarString* string, const char16_t* text);

/* The field `length`. Returns 0. */
KALDB_API uint32_t kaldbVarStringGetLength(const KALDBVarString* string, uint32_t* length);

/* Where the multibyte text is, until the string is set or deleted: in the inline area or in the string's memory; null
   when it is not to be had. A string that was allocated and not set has no terminator there. Returns 0. */
KALDB_API uint32_t kaldbVarStringGet(const KALDBVarString* string, const char** text);

/* The same pointer as the result. */
KALDB_API const char* kaldbVarStringGetPSZ(const KALDBVarString* string);

/* Copies the text as wide text with its terminator. `chars` is the room in UTF-16 units; without enough of it `buffer`
   may be null.
   Returns 0; KALDB_BUFFER_TOO_SMALL when `chars` is not greater than the units of the text, or when the text is not
   valid multibyte text; KALDB_NOT_OPEN; KALDB_OUT_OF_MEMORY.
   Example: char16_t name[64]; kaldbVarStringCopy(&person.name, name, 64); */
KALDB_API uint32_t kaldbVarStringCopy(const KALDBVarString* string, char16_t* buffer, uint32_t chars);

/* Makes `destination`, an allocated string, hold a copy of the text of `source`; its capacity and location stay.
   Returns 0; KALDB_NOT_OPEN for a source whose text is not to be had; KALDB_BUFFER_TOO_SMALL and KALDB_OUT_OF_MEMORY as
   kaldbVarStringSet. After a failure the destination is as it was. */
KALDB_API uint32_t kaldbVarStringDup(KALDBVarString* destination, const KALDBVarString* source);

/* Compares two texts: `*result` is negative, 0 or positive as the first sorts before, with or after the second, in the
   order of their code points. Returns 0; KALDB_NOT_OPEN; KALDB_OUT_OF_MEMORY. */
KALDB_API uint32_t kaldbVarStringCompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result);

/* The same, ignoring case in every alphabet that has it, whatever the process's locale. */
KALDB_API uint32_t kaldbVarStringICompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result);

/* The same between a string and a wide text. KALDB_CONVERSION_FAILED when that text is not valid UTF-16. */
KALDB_API uint32_t kaldbVarStringIComparePSZ(const KALDBVarString* string, const char16_t* text, int32_t* result);

/* Opens the store, creating "SysVarString" in a file that has none; kaldbInitialize does this. Nothing is done when it
   is open. Returns 0, or what looking the table up, creating or opening it returned. */
KALDB_API uint32_t kaldbInitVarStringTable(KALDBDatabase* db);

/* Closes the store; kaldbDeinitialize does this. `db` is not read. Returns 0, or KALDB_NOT_OPEN. */
KALDB_API uint32_t kaldbDeinitVarStringTable(KALDBDatabase* db);

/* Stores a long text and sets `location`. A text that is stored already is stored once more, as a new copy: delete the
   old one first (kaldbVarStringDeleteRecord) unless another record refers to it.
   Returns 0; KALDB_NOT_APPLICABLE for a text in the inline area, which travels with the string; KALDB_NOT_OPEN when the
   store is not open or the text is not to be had; otherwise what an insertion into the table returned: `location` is
   then as it was, and blocks already written stay behind. */
KALDB_API uint32_t kaldbVarStringInsertRecord(KALDBVarString* string);

/* Reads a long text back. `capacity`, `length` and `location` must be as kaldbVarStringInsertRecord left them; the
   inline area may hold anything. `capacity` is believed: check it in a record from a file that you do not trust. The
   string's earlier own memory is freed.
   Returns 0; KALDB_NOT_APPLICABLE for a text in the inline area; KALDB_BUFFER_TOO_SMALL for a long one in a string
   whose capacity is below 4; KALDB_NOT_OPEN; KALDB_OUT_OF_MEMORY; KALDB_FAILURE for a damaged text; otherwise what
   reading the table returned (KALDB_NOT_FOUND: no such place). When reading failed, the string names no memory. */
KALDB_API uint32_t kaldbVarStringGetRecord(KALDBVarString* string);

/* Deletes the stored text at `location`, which must have the string's length. The string stays as it was, its
   `location` too. Returns 0; KALDB_NOT_APPLICABLE, KALDB_NOT_OPEN as above; KALDB_FAILURE for a damaged text, which is
   deleted up to the damage; otherwise what the table returned. */
KALDB_API uint32_t kaldbVarStringDeleteRecord(KALDBVarString* string);

/* Does nothing and returns KALDB_NOT_SUPPORTED. Delete the old text, then insert the new one. */
KALDB_API uint32_t kaldbVarStringUpdateRecord(KALDBVarString* string);

#ifdef __cplusplus
}
#endif
#endif
