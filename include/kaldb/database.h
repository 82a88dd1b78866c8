/*
 * The database: open, close, running backup, field-error texts.
 *
 * A process has at most one database open. Everything is kept in the file at the path; beside it lies its backup, the
 * path with ".backup" appended. The backup is the copy of the last close or of the last running backup. A database that
 * is not closed, because its process ends or the power goes, loses what came after that: the next open puts the backup
 * in its place. A new database has no backup before its first close or running backup.
 *
 *     KALDBDatabase* database;
 *     uint32_t isNew;
 *     if (kaldbInitialize(u"repository.kaldb", 16u << 20, &database, &isNew) != KALDB_SUCCESS)
 *         return;
 *     if (isNew)
 *         makeTables(database);
 *     ...
 *     kaldbDeinitialize(database);
 *
 * What the library promises:
 *
 * 1. From the first finished close or backup on, at every instant, through process kill and power loss, at least one of
 *    database file and backup file is complete, marked clean, on disk, and found by the next open.
 * 2. The next open shows exactly the state of the last finished close or running backup (or one later complete state,
 *    if the stop fell between a clean mark and the next dirty mark). Never a mixture.
 * 3. No byte sequence in the file, or in a value read from it, makes the library read or write outside its memory, run
 *    without end, or allocate more than a fixed multiple of the file's size.
 * 4. A record whose insertion returned 0 stays findable by key, by identifier and by a full walk until it is deleted or
 *    the process stops; an operation that returns an error has lost nothing that was there before.
 * 5. A caller's mistake is answered with a status, not with memory corruption, wherever the library can tell.
 *
 * The library serialises nothing: a process makes one call at a time, of whatever family. Callbacks run inside the
 * caller's call and may use other tables, but not open, close or back up the database (KALDB_LOCK_CONFLICT).
 *
 * A "file status" below is one that the operating system causes: KALDB_ACCESS_DENIED, KALDB_IO_ERROR, KALDB_NO_SPACE,
 * KALDB_FILE_NOT_FOUND, KALDB_FILE_IN_USE, KALDB_NAME_TOO_LONG, KALDB_NOT_A_FILE or KALDB_TOO_MANY_FILES.
 */
#ifndef KALDB_DATABASE_H
#define KALDB_DATABASE_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Opens the database at `path`, of any length that the system allows, or makes a new one where there is no file and no
 * backup, or an empty file. The process owns the database until kaldbDeinitialize has returned or the process ends; to
 * any other the file is in use. A file that is missing, ends inside its header, is still marked as open or does not
 * have the size that its header tells is replaced by the backup first, a file that is there only by a backup that is
 * itself sound. The error log tells of it, and also of a first start, which finds neither. Without such a backup the
 * file is opened as it is. A sound file without a backup gets one first. The time that opening takes does not depend on
 * the database's size, unless the backup is restored or missing.
 *
 * The page cache has (cacheBytes + 8192) / 2048 slots of 2048 bytes, the sum taken modulo 2^32: 0 gives 4.
 *
 * *isNew becomes 1 when the file was made and 0 when it was there or was restored; it may be written although the open
 * fails. *handle is written on success only. The handle belongs to the library until kaldbDeinitialize frees it.
 *
 * Returns 0, or
 *     KALDB_INVALID_ARGUMENT  a null pointer, or a path that is not UTF-16
 *     KALDB_ALREADY_EXISTS    this process has a database open, which stays as it is
 *     KALDB_LOCK_CONFLICT     called from inside a callback
 *     KALDB_FILE_IN_USE       another process owns the database; nothing has been touched
 *     KALDB_FAILURE           the file is no database of this version, or its catalogue is damaged
 *     KALDB_SHORT_READ, KALDB_END_OF_FILE, KALDB_NOT_FOUND  the catalogue's first page is cut off, missing or unnamed
 *     KALDB_OUT_OF_MEMORY, a file status  also when a backup is there and could not be restored for that reason
 * After a failure nothing is open and the file is as it was found, or as the backup restored it.
 */
KALDB_API uint32_t kaldbInitialize(const char16_t* path, uint32_t cacheBytes, KALDBDatabase** handle, uint32_t* isNew);

/*
 * Writes everything, marks the file as closed, copies it to the backup and frees the handle. The copy reads and writes
 * the whole file. When it cannot be made, or damage was met since the open, the old backup stays where that is
 * possible, and the error log says so: the result is that of the close itself.
 *
 * Tables and enumerators that are still open can be used no more (KALDB_NOT_OPEN), but must still be closed and freed.
 *
 * Returns 0, or
 *     KALDB_NOT_OPEN          no database is open
 *     KALDB_INVALID_ARGUMENT  not the handle of the open database
 *     KALDB_LOCK_CONFLICT     called from inside a callback
 *     KALDB_OUT_OF_MEMORY, a file status, KALDB_FAILURE  something could not be written
 * After one of the last kind the handle is freed all the same, and the database still open and owned: call again, with
 * null, once the reason is gone. A process that ends instead leaves the next open to restore the backup.
 */
KALDB_API uint32_t kaldbDeinitialize(KALDBDatabase* handle);

/*
 * Brings the backup up to date while the database stays open; open tables and enumerators stay usable. `handle` is not
 * read. Writes the changed pages and copies the whole file.
 *
 * Returns 0, KALDB_NOT_OPEN, KALDB_LOCK_CONFLICT from inside a callback, KALDB_DAMAGED when damage was met since the
 * open, so that the old backup is kept, KALDB_BACKUP_FAILED, KALDB_OUT_OF_MEMORY, a file status, or a page status
 * (table.h) that keeps an index from being complete: nothing is written then. After a failure the
 * backup is the old one, if it could be kept.
 */
KALDB_API uint32_t kaldbBackupDatabaseWhileRunning(KALDBDatabase* handle);

/*
 * Frees the handle of a database, table, page manager or page tracker and nothing else: what it stands for stays open,
 * and nothing is written. Its other memory is lost to the process; a database whose handle was forgotten is closed with
 * any handle, null included. Null: nothing happens.
 *
 * Always returns KALDB_FAILURE, or KALDB_LOCK_CONFLICT from inside a callback, which frees nothing.
 */
KALDB_API uint32_t kaldbForgetHandle(void* handle);

/* The text, for users, of an answer of a constraint check (KALDB_FIELD_...); "Unknown" for any other number. Never
   null, never to be freed. kalErrorGetString has the texts of all other statuses. */
KALDB_API const char16_t* kaldbGetErrorString(uint32_t code);

#ifdef __cplusplus
}
#endif
#endif
