/*
 * kallib: the support library under kaldb.
 *
 * It is the only place that calls the operating system: memory, files named by wide paths,
 * enumerators driven by callbacks, text conversion, the three logs and the text of every status.
 * C11 and C++20. Every status is 0 for success or a code of the space that <kaldb/status.h> lists.
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

/* ---- memory and handles ---------------------------------------------------------------- */

KALLIB_API void* kalMemAllocate(uint32_t size, const char* file, uint32_t line);
KALLIB_API void kalMemFree(void* block);
KALLIB_API void* kalHandleAllocate(uint32_t size, const char* file, uint32_t line);
KALLIB_API void kalHandleFree(void* handle);

/* ---- files ----------------------------------------------------------------------------- */

enum { KAL_FILE_READ = 1, KAL_FILE_READ_WRITE = 3, KAL_FILE_CREATE = 11 };

KALLIB_API uint32_t kalFileOpenW(const char16_t* path, KALFile** file, uint32_t mode);
KALLIB_API uint32_t kalFileClose(KALFile* file);
KALLIB_API uint32_t kalFileRead(KALFile* file, void* buffer, uint32_t* length);
KALLIB_API uint32_t kalFileWrite(KALFile* file, const void* buffer, uint32_t* length);
KALLIB_API uint32_t kalFileSeek(KALFile* file, uint64_t offset);
KALLIB_API uint32_t kalFileGetSize(KALFile* file, uint64_t* size);
KALLIB_API uint32_t kalFileFlush(KALFile* file);
KALLIB_API uint32_t kalFileCopyW(const char16_t* source, const char16_t* destination);
KALLIB_API uint32_t kalFileDeleteW(const char16_t* path);
KALLIB_API uint32_t kalFileExistsW(const char16_t* path, uint32_t* exists);
KALLIB_API uint32_t kalFileRename(const char16_t* oldPath, const char16_t* newPath);

/* Additions: waiting for the disk, and one owner at a time. */
KALLIB_API uint32_t kalFileSyncW(const char16_t* path);
KALLIB_API uint32_t kalOwnerLockAcquire(const char16_t* path, KALOwnerLock** lock);
KALLIB_API uint32_t kalOwnerLockSettle(KALOwnerLock* lock);
KALLIB_API uint32_t kalOwnerLockRelease(KALOwnerLock* lock);

/* ---- enumerators ----------------------------------------------------------------------- */

enum { KAL_MOVE_FIRST = 0, KAL_MOVE_LAST = 1, KAL_MOVE_NEXT = 2, KAL_MOVE_PREVIOUS = 3 };

typedef struct KALEnumeratorCallbacks {
    uint32_t (*move)(KALEnumerator* enumerator, void* userData, uint32_t kind, uint32_t* position);
    uint32_t (*unsupported)(KALEnumerator* enumerator, void* userData);
    uint32_t (*getItem)(KALEnumerator* enumerator, void* userData, uint32_t position, void* buffer, uint32_t size);
    uint32_t (*free)(KALEnumerator* enumerator, void* userData);
} KALEnumeratorCallbacks;

KALLIB_API uint32_t kalEnumeratorCreate(const KALEnumeratorCallbacks* callbacks, void* userData,
                                        KALEnumerator** enumerator);
KALLIB_API uint32_t kalEnumeratorMoveFirst(KALEnumerator* enumerator);
KALLIB_API uint32_t kalEnumeratorMoveNext(KALEnumerator* enumerator);
KALLIB_API uint32_t kalEnumeratorGetItem(KALEnumerator* enumerator, void* buffer, uint32_t size);
KALLIB_API uint32_t kalEnumeratorGetUserData(KALEnumerator* enumerator, void** userData);
KALLIB_API uint32_t kalEnumeratorFree(KALEnumerator* enumerator);

/* ---- text ------------------------------------------------------------------------------ */

KALLIB_API uint32_t kalMultiByteChars(const char* text);
KALLIB_API int32_t kalMultiByteCompare(const char* first, const char* second);
KALLIB_API int32_t kalMultiByteICompare(const char* first, const char* second);
KALLIB_API uint32_t kalMultiByteToWideChar(const char* source, uint32_t sourceLength, char16_t* destination,
                                           uint32_t destinationChars);
KALLIB_API uint32_t kalWideCharToMultiByte(const char16_t* source, uint32_t sourceLength, char* destination,
                                           uint32_t destinationBytes);

/* ---- logs, status texts, statistics ------------------------------------------------------ */

enum { KAL_LOG_ERROR = 0, KAL_LOG_WARNING = 1, KAL_LOG_DEBUG = 2, KAL_LOG_TRACE = 3 };

typedef void (*KALLogSink)(uint32_t level, const char16_t* text, void* context);

KALLIB_API void kalLogSetSink(KALLogSink sink, void* context);
KALLIB_API uint32_t kalError(const char16_t* format, ...);
KALLIB_API uint32_t kalWarning(const char16_t* format, ...);
KALLIB_API uint32_t kalDebug(const char16_t* format, ...);
/* Addition: the trace hooks of a build with tracing write here (level 3). */
KALLIB_API uint32_t kalTrace(const char16_t* format, ...);
KALLIB_API const char16_t* kalErrorGetString(uint32_t status);
KALLIB_API uint32_t kalStatsInitialize(uint32_t count, const char16_t* const* names, KALStats** stats);
KALLIB_API uint32_t kalStatsDeinitialize(KALStats* stats);

#ifdef __cplusplus
}
#endif
#endif
