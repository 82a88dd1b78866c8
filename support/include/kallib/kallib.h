/*
 * kallib: the support library under kaldb.
 *
 * It is the only place that calls the operating system: memory, files named by wide paths,
 * enumerators driven by callbacks, text conversion, the three logs and the text of every status.
 * C11 and C++20. Every status is 0 for success or a code of the space that <kaldb/status.h> lists.
 *
 * Calls must not run concurrently with each other. No call keeps a pointer that it was given, except
 * where its comment says so. A null pointer where something is needed is KAL_INVALID_ARGUMENT, and
 * so is a file, lock, enumerator or set of counters that has been closed or freed. An out handle is null after a
 * failure. No C++ exception leaves the library: one that a callback throws becomes KAL_FAILURE, or KAL_OUT_OF_MEMORY
 * when it says so.
 */
#ifndef KALLIB_KALLIB_H
#define KALLIB_KALLIB_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#else
#include <uchar.h>
#endif

#if defined(_WIN32)
#if defined(KALLIB_BUILDING)
#define KALLIB_API __declspec(dllexport)
#elif defined(KALLIB_STATIC)
#define KALLIB_API
#else
#define KALLIB_API __declspec(dllimport)
#endif
#else
#define KALLIB_API __attribute__((visibility("default")))
#endif

/* The statuses of the shared code space that this library returns. */
enum {
    KAL_SUCCESS = 0,
    KAL_FAILURE = 1,
    KAL_INVALID_ARGUMENT = 4,
    KAL_ACCESS_DENIED = 5,
    KAL_OUT_OF_MEMORY = 7,
    KAL_IO_ERROR = 9,
    KAL_NO_SPACE = 10,
    KAL_FILE_NOT_FOUND = 13,
    KAL_ALREADY_EXISTS = 17,
    KAL_NOT_SUPPORTED = 20,
    KAL_FILE_IN_USE = 21,
    KAL_NAME_TOO_LONG = 22,
    KAL_NOT_A_FILE = 23,
    KAL_TOO_MANY_FILES = 25
};

/* What a failing conversion returns where 0 is a possible result. */
#define KAL_CONVERSION_FAILED 0xFFFFFFFFu
/* A source length that means "up to and including the terminating NUL". */
#define KAL_NUL_TERMINATED 0xFFFFFFFFu

typedef struct KALFile KALFile;
typedef struct KALEnumerator KALEnumerator;
typedef struct KALStats KALStats;
typedef struct KALOwnerLock KALOwnerLock;

/* ---- memory and handles ----------------------------------------------------------------

   Blocks are plain memory, aligned for any type, with nothing of ours inside. `file` and `line` name
   the place that asks, such as "./src/kalpagemanager": they are for those who put their own functions
   in the place of these; here they are not kept. */

/* A block of `size` bytes with undefined contents, for kalMemFree. Null when there is no memory, and
   only then: size 0 gives a block too. */
KALLIB_API void* kalMemAllocate(uint32_t size, const char* file, uint32_t line);
/* Releases a block of kalMemAllocate. Null: nothing happens. */
KALLIB_API void kalMemFree(void* block);
/* The same for a block that serves as somebody's handle, for kalHandleFree. */
KALLIB_API void* kalHandleAllocate(uint32_t size, const char* file, uint32_t line);
/* Releases a block of kalHandleAllocate. Null: nothing happens. */
KALLIB_API void kalHandleFree(void* handle);

/* ---- files -----------------------------------------------------------------------------

   Paths are NUL-terminated UTF-16 of any length that the system allows; half a surrogate pair in one
   is KAL_INVALID_ARGUMENT. Offsets and sizes are 64-bit. An open file has a position, 0 at first.
   Nothing is buffered: what a write has returned from, the system has.

   Every call that asks the system may return KAL_ACCESS_DENIED, KAL_FILE_NOT_FOUND (a directory on
   the way included), KAL_NAME_TOO_LONG, KAL_NOT_A_FILE (a directory, pipe, device or socket, or too
   many symbolic links), KAL_TOO_MANY_FILES, KAL_OUT_OF_MEMORY, KAL_FILE_IN_USE (busy for the
   system) or KAL_IO_ERROR; those that write, KAL_NO_SPACE as well (also a file too large for its
   file system, and a quota). Calls that a signal interrupts are made again and short transfers
   continued, so neither is ever seen. */

/* KAL_FILE_READ opens an existing file for reading, KAL_FILE_READ_WRITE for both; KAL_FILE_CREATE
   does the latter and creates the file when it is missing (readable and writable as the umask
   allows), but leaves the contents of an existing one alone. */
enum { KAL_FILE_READ = 1, KAL_FILE_READ_WRITE = 3, KAL_FILE_CREATE = 11 };

/* Opens a regular file; links are followed. Never waits, and touches nothing but a regular file.
   The descriptor is above the standard streams and closed in children. The handle is the caller's
   until kalFileClose.
   Returns 0, KAL_INVALID_ARGUMENT for another mode, or a status from above.

       KALFile* file;
       if (kalFileOpenW(u"repository.db", &file, KAL_FILE_READ) == KAL_SUCCESS) ... */
KALLIB_API uint32_t kalFileOpenW(const char16_t* path, KALFile** file, uint32_t mode);
/* The handle is gone afterwards, whatever comes back.
   Returns 0, KAL_INVALID_ARGUMENT, KAL_NO_SPACE or KAL_IO_ERROR (the system could not keep what was written). */
KALLIB_API uint32_t kalFileClose(KALFile* file);
/* Reads up to *length bytes at the position and advances it; *length tells how many it were: fewer
   only at the end of the file, 0 with status 0 at or past it. A failure reads nothing: *length is 0
   and the position stays.
   Returns 0, KAL_INVALID_ARGUMENT or KAL_IO_ERROR. */
KALLIB_API uint32_t kalFileRead(KALFile* file, void* buffer, uint32_t* length);
/* Writes all of *length bytes at the position and advances it, or fails: *length is then 0, the
   position stays, and any part of the bytes may have been written. A write past the end fills the gap
   with zeros.
   Returns 0, KAL_INVALID_ARGUMENT, KAL_NO_SPACE or KAL_IO_ERROR (also for a file opened for reading). */
KALLIB_API uint32_t kalFileWrite(KALFile* file, const void* buffer, uint32_t* length);
/* Sets the position, counted in bytes from the start. The end of the file and anything past it are valid;
   the size does not change.
   Returns 0 or KAL_INVALID_ARGUMENT (also for an offset of 2^63 or more). */
KALLIB_API uint32_t kalFileSeek(KALFile* file, uint64_t offset);
/* The size in bytes. Returns 0, KAL_INVALID_ARGUMENT or KAL_IO_ERROR. */
KALLIB_API uint32_t kalFileGetSize(KALFile* file, uint64_t* size);
/* Hands everything written so far to the system, which has it already; does not wait for the disk (kalFileSyncW does).
   Returns 0 or KAL_INVALID_ARGUMENT. */
KALLIB_API uint32_t kalFileFlush(KALFile* file);
/* Copies a file and replaces the destination, all at once: the source is synced, copied into a temporary file beside
   the destination, given the source's mode (and, for the superuser, its owner), synced, renamed, and the directory
   synced. Whatever goes wrong before the renaming leaves the destination as it was, also when the process dies; the
   temporary file of a dead process, ".kaltmp-" and digits, goes away with the next copy to that destination. Links at
   the end of either path are followed, also to a destination that is missing.
   Returns 0, KAL_INVALID_ARGUMENT (also for source and destination being one file), KAL_NOT_A_FILE for either of
   them, KAL_ALREADY_EXISTS when no temporary name is free, or a status from above. */
KALLIB_API uint32_t kalFileCopyW(const char16_t* source, const char16_t* destination);
/* Removes the file's name, or the link itself. Returns 0, KAL_INVALID_ARGUMENT or a status from above. */
KALLIB_API uint32_t kalFileDeleteW(const char16_t* path);
/* *exists: 1 when the path leads to something, of whatever kind, else 0. A failure leaves it alone.
   Returns 0, KAL_INVALID_ARGUMENT or a status from above but KAL_FILE_NOT_FOUND. */
KALLIB_API uint32_t kalFileExistsW(const char16_t* path, uint32_t* exists);
/* Renames a file, or a link without following it, replaces an existing file or link of the new name, and syncs both
   directories. Between file systems it copies as kalFileCopyW does (what a link leads to, then) and deletes the old
   file last: after a failure the old name, the new one or both bear the whole file.
   Returns 0, KAL_INVALID_ARGUMENT, KAL_NOT_A_FILE for either name, or a status from above. */
KALLIB_API uint32_t kalFileRename(const char16_t* oldPath, const char16_t* newPath);

/* Additions: waiting for the disk, and one owner at a time. */

/* Waits until the disk has the file's contents, whoever has written them, its size and its name.
   A failure is final for what had been written: the system may have given it up, so a later call that succeeds
   proves nothing about it. Never mark a file complete after a failed wait; write it anew.
   Returns 0, KAL_INVALID_ARGUMENT or a status from above. */
KALLIB_API uint32_t kalFileSyncW(const char16_t* path);

/* Makes the caller the one owner of the database at `path`, which need not exist yet. The kernel keeps the lock and
   drops it when the process ends, however it ends. It binds those who ask for it only: others can still open the
   file. It leaves no file of its own. A child forked meanwhile keeps it alive until it execs, ends, or the owner
   releases it; the child cannot release it itself.

   The directory stays locked until kalOwnerLockSettle, so that the file can be restored or created in peace: another
   starter waits for that, up to 30 seconds, and then meets the owner. An unsettled lock of this process on the same
   directory is not waited for.
   Returns 0, KAL_INVALID_ARGUMENT, KAL_FILE_IN_USE when another process or another lock of this one owns the database
   or keeps the directory, KAL_NOT_A_FILE, KAL_FILE_NOT_FOUND for an empty path, or a status from above.

       KALOwnerLock* lock;
       if (kalOwnerLockAcquire(path, &lock) == KAL_SUCCESS) {
           ... restore or create the file ...
           kalOwnerLockSettle(lock);
           ... use it ...
           kalOwnerLockRelease(lock);
       } */
KALLIB_API uint32_t kalOwnerLockAcquire(const char16_t* path, KALOwnerLock** lock);
/* Moves the lock to the file that bears the name now and lets others look at it. Once per lock. After a failure the
   lock is as it was, to be settled again or released.
   Returns 0, KAL_INVALID_ARGUMENT (also when settled already), KAL_FILE_NOT_FOUND, KAL_NOT_A_FILE, KAL_FILE_IN_USE
   when somebody else has locked the new file, or a status from above. */
KALLIB_API uint32_t kalOwnerLockSettle(KALOwnerLock* lock);
/* Gives the database up, settled or not. The handle is gone afterwards. Returns 0 or KAL_INVALID_ARGUMENT. */
KALLIB_API uint32_t kalOwnerLockRelease(KALOwnerLock* lock);

/* ---- enumerators -----------------------------------------------------------------------

   A position and somebody's callbacks that know what it stands for. */

/* What the move callback is asked for. The functions here ask for the first and the next item. */
enum { KAL_MOVE_FIRST = 0, KAL_MOVE_LAST = 1, KAL_MOVE_NEXT = 2, KAL_MOVE_PREVIOUS = 3 };

/* Each callback returns a status, which the operation that called it returns unchanged. */
typedef struct KALEnumeratorCallbacks {
    /* Moves. *position has been set to 0 for the first item and has already been advanced by one for the next. A
       callback that finds no further item puts it back through the pointer and returns 14 (end of enumeration). */
    uint32_t (*move)(KALEnumerator* enumerator, void* userData, uint32_t kind, uint32_t* position);
    /* Kept, never called; returns 20 (not supported). May be null. */
    uint32_t (*unsupported)(KALEnumerator* enumerator, void* userData);
    /* Copies the item at the position into the buffer. */
    uint32_t (*getItem)(KALEnumerator* enumerator, void* userData, uint32_t position, void* buffer, uint32_t size);
    /* Releases the user data. The enumerator is released after it, whatever it returns. */
    uint32_t (*free)(KALEnumerator* enumerator, void* userData);
} KALEnumeratorCallbacks;

/* An enumerator at position 0, the caller's until kalEnumeratorFree. The four pointers are copied; the user data
   is kept as it is, and belongs to the free callback from then on.
   Returns 0, KAL_INVALID_ARGUMENT (a null callback other than `unsupported` included) or KAL_OUT_OF_MEMORY. */
KALLIB_API uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* callbacks, void* userData,
                                        KALEnumerator** enumerator);
/* Sets the position to 0 and calls `move` with KAL_MOVE_FIRST. Returns its status, or KAL_INVALID_ARGUMENT. */
KALLIB_API uint32_t kalEnumeratorMoveFirst(KALEnumerator* enumerator);
/* Advances the position by one and calls `move` with KAL_MOVE_NEXT. Returns its status, or KAL_INVALID_ARGUMENT.

       while ((status = kalEnumeratorMoveNext(items)) == KAL_SUCCESS) ... */
KALLIB_API uint32_t kalEnumeratorMoveNext(KALEnumerator* enumerator);
/* Calls `getItem` with the position. Returns its status, or KAL_INVALID_ARGUMENT. */
KALLIB_API uint32_t kalEnumeratorGetItem(KALEnumerator* enumerator, void* buffer, uint32_t size);
/* Returns 0 or KAL_INVALID_ARGUMENT. */
KALLIB_API uint32_t kalEnumeratorGetUserData(KALEnumerator* enumerator, void** userData);
/* Calls `free`, then releases the enumerator. Returns the callback's status, or KAL_INVALID_ARGUMENT. From inside one
   of the enumerator's callbacks: both wait for the callback's end, and the status is 0. */
KALLIB_API uint32_t kalEnumeratorFree(KALEnumerator* enumerator);

/* ---- text ------------------------------------------------------------------------------

   Multibyte text is UTF-8, wide text is UTF-16, whatever the process's locale. Conversions are strict: an overlong or
   cut-off sequence, a surrogate in UTF-8 or half a pair in UTF-16 fails. */

/* The number of UTF-16 units that the text takes, terminator not counted, so that a buffer of that many and one more
   holds it converted. An ill-formed byte counts as one; null as none. */
KALLIB_API uint32_t kalMultiByteChars(const char* text);
/* Negative, 0 or positive, by code points. Null sorts before every text. */
KALLIB_API int32_t kalMultiByteCompare(const char* first, const char* second);
/* The same with case ignored: by code points after simple case folding, which takes one to one (the German sharp s is
   not "ss"). Ill-formed bytes sort above all characters. */
KALLIB_API int32_t kalMultiByteICompare(const char* first, const char* second);
/* Converts `sourceLength` bytes, NULs among them included, or with KAL_NUL_TERMINATED up to and including the
   terminator. Returns the number of units written. A null destination with size 0 asks for that number only; with
   `sourceLength` 0 as well it is that of the whole NUL-terminated source, terminator not counted.
   Returns KAL_CONVERSION_FAILED for ill-formed text, a destination that is too small, or a null source; the
   destination's contents are then undefined, but nothing beyond its size has been written.

       char16_t wide[32];
       if (kalMultiByteToWideChar("orders", KAL_NUL_TERMINATED, wide, 32) == KAL_CONVERSION_FAILED) ... */
KALLIB_API uint32_t kalMultiByteToWideChar(const char* source, uint32_t sourceLength, char16_t* destination,
                                           uint32_t destinationChars);
/* The other way, by the same rules: `sourceLength` counts units, the result and `destinationBytes` bytes. A null
   destination with size 0 and KAL_NUL_TERMINATED yields the bytes needed with the terminator counted. */
KALLIB_API uint32_t kalWideCharToMultiByte(const char16_t* source, uint32_t sourceLength, char* destination,
                                           uint32_t destinationBytes);

/* ---- logs, status texts, statistics ------------------------------------------------------

   One formatter serves the logs. It understands

       %s              a char16_t text; null shows as (null)
       %d  %ld         int32_t
       %u  %lu         uint32_t
       %0NX            uint32_t in upper-case hexadecimal, at least N digits, N from 1 to 9

   A percent sign before anything else stands for itself and takes no argument, a second percent sign included. Lines
   are never cut, except for want of memory, and then behind 511 units. */

enum { KAL_LOG_ERROR = 0, KAL_LOG_WARNING = 1, KAL_LOG_DEBUG = 2, KAL_LOG_TRACE = 3 };

/* Takes every line: its level, its NUL-terminated text, valid during the call and with whatever newline the format
   has, and the context. What a sink logs itself goes to the default sink. */
typedef void (*KALLogSink)(uint32_t level, const char16_t* text, void* context);

/* Sets where lines go; sink and context are kept until the next call. Null brings the default back: errors and
   warnings go to standard error as UTF-8, a newline added where there is none; debug lines and traces go nowhere. */
KALLIB_API void kalLogSetSink(KALLogSink sink, void* context);
/* Each writes one line to its log. Returns 0, KAL_INVALID_ARGUMENT for a null format, or KAL_FAILURE when the sink
   throws.

       kalError(u"kaldb: could not open '%s' [0x%02X - %s]\n", path, status, kalErrorGetString(status)); */
KALLIB_API uint32_t kalError(const char16_t* format, ...);
KALLIB_API uint32_t kalWarning(const char16_t* format, ...);
KALLIB_API uint32_t kalDebug(const char16_t* format, ...);
/* Addition: the trace hooks of a build with tracing write here (level 3). */
KALLIB_API uint32_t kalTrace(const char16_t* format, ...);
/* A short English text for a status, the field codes included; "unknown status" for a number that is none. Never
   null, never to be freed. */
KALLIB_API const char16_t* kalErrorGetString(uint32_t status);
/* A set of `count` counters, all 0, with copies of their names; the caller's until kalStatsDeinitialize.
   Returns 0, KAL_INVALID_ARGUMENT (a null name included) or KAL_OUT_OF_MEMORY. */
KALLIB_API uint32_t kalStatsInitialize(uint32_t count, const char16_t* const* names, KALStats** stats);
/* Returns 0 or KAL_INVALID_ARGUMENT. */
KALLIB_API uint32_t kalStatsDeinitialize(KALStats* stats);

#ifdef __cplusplus
}
#endif
#endif
