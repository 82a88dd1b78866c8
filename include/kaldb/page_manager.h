/*
 * The page manager: one page file and a fixed cache of its pages.
 *
 * A file is a header of 92 bytes and pages of 2048; each page begins with a header of 28 bytes that belongs to the page
 * manager, and the 2020 bytes after it, the body, are the caller's. Pages are numbered from 0 and never removed.
 *
 *     KALPageManager* pages;
 *     uint32_t created, number;
 *     void* body;
 *     if (kalPageManagerInitialize(u"store.db", 1 << 20, &pages, &created) != KALDB_SUCCESS) ...
 *     if (kalPageManagerCreatePage(pages, KALDB_LOCK_WRITE, &number, &body) == KALDB_SUCCESS) {
 *         memcpy(body, "hello", 6);                   // a new page is dirty already
 *         kalPageManagerUnloadPage(pages, body);      // one unload for each load or creation
 *     }
 *     kalPageManagerDeinitialize(pages);              // writes, closes, copies to store.db.backup
 *
 * While a manager has the file open, the file is marked dirty. The mark goes when the file is complete: at every
 * instant, also when the process is killed or the power fails, the file is either marked dirty or complete.
 *
 * Nothing here is safe against concurrent calls; the caller runs one at a time. Locks never wait: a request that
 * conflicts fails at once (see page_tracker.h). A null manager, path, body or result, or a manager that is closed, is
 * answered with KALDB_INVALID_ARGUMENT; a body pointer is valid while its page is held, and of any other manager's
 * memory only what is no page of this cache is recognised (and refused with the same status). Statuses of the support
 * library are passed on as they come: KALDB_ACCESS_DENIED, KALDB_IO_ERROR, KALDB_NO_SPACE, KALDB_FILE_NOT_FOUND,
 * KALDB_NAME_TOO_LONG, KALDB_NOT_A_FILE and KALDB_TOO_MANY_FILES, below "a file status".
 */
#ifndef KALDB_PAGE_MANAGER_H
#define KALDB_PAGE_MANAGER_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- opening and closing ---------------------------------------------------------------- */

/*
 * Opens the page file at `path`, or creates it, marks it dirty and waits until the mark is on the disk.
 *
 * The cache has (cacheBytes + 8192) / 2048 slots, the sum taken modulo 2^32: 0 gives 4, 1 MiB gives 516, and sizes of
 * 4294959104 and more give fewer than 4 or none; without slots no page can be loaded or created. Fewer than 64 slots
 * have three spare ones behind them, which only changes of a table's structure take into use. The cache's memory is
 * used as slots are. `path` may have any length the system allows and is copied.
 *
 * *created becomes 1 when the file was created and 0 when it was there, as soon as it is open, whatever fails later.
 * *manager is written on success only and then owned by the caller, who ends it with kalPageManagerDeinitialize.
 *
 * KALDB_SUCCESS; KALDB_FAILURE when the header is not that of a page file of version 1 (the file is left as it is) or
 * there is no memory for the manager itself; KALDB_OUT_OF_MEMORY; KALDB_INVALID_ARGUMENT; a file status.
 */
KALDB_API uint32_t kalPageManagerInitialize(const char16_t* path, uint32_t cacheBytes, KALPageManager** manager,
                                            uint32_t* created);

/*
 * Writes every dirty page, marks the file clean, closes it, copies it to its backup and releases the manager, pages
 * that are still held included. The file then has exactly 92 + 2048 * pages bytes. A backup that cannot be made, or is
 * refused because damage was met (a page cut off, or another in its place), is told to the error log and changes
 * nothing here. A file whose name is gone is completed as well, without a wait for the disk and without a backup.
 *
 * KALDB_SUCCESS; KALDB_INVALID_ARGUMENT; KALDB_OUT_OF_MEMORY; a file status. After a failure the manager is still there
 * and the file still marked dirty: the call may be repeated. One failure is final: when the system could not bring
 * pages to the disk and they have left the cache, every later close returns that status, and the file stays dirty.
 */
KALDB_API uint32_t kalPageManagerDeinitialize(KALPageManager* manager);

/* ---- pages ------------------------------------------------------------------------------ */

/*
 * Brings page number `page` into the cache unless it is there, locks it, adds one reference and yields its body, which
 * stays where it is until the reference is given back. When no slot is free the lowest one without references is taken,
 * after its page was written if it is dirty. With KALDB_LOCK_NONE the call releases one lock and one reference instead.
 *
 * KALDB_SUCCESS; KALDB_END_OF_FILE for a page that the file does not have; KALDB_SHORT_READ for one that is cut off;
 * KALDB_FAILURE when another page stands in its place; KALDB_OUT_OF_MEMORY when every slot is referenced;
 * KALDB_LOCK_CONFLICT; KALDB_FULL when 20 other pages are locked; KALDB_NO_FREE_SLOT for a lock type above 3;
 * KALDB_INVALID_ARGUMENT; a file status. *body is written on success only.
 */
KALDB_API uint32_t kalPageManagerLoadPage(KALPageManager* manager, uint32_t lockType, uint32_t page, void** body);

/*
 * Appends a page: dirty, locked, with one reference. Its body holds whatever was in the slot; the caller fills it. The
 * page reaches the file when it is first written, and is counted in the file's header at once.
 *
 * KALDB_SUCCESS; KALDB_OUT_OF_MEMORY when every slot is referenced; KALDB_FULL when 20 other pages are locked or no
 * page number is left; KALDB_NO_FREE_SLOT for a lock type above 3; KALDB_INVALID_ARGUMENT; a file status, when a dirty
 * page could not be written to make room. A refused creation uses no page number up and writes no result.
 */
KALDB_API uint32_t kalPageManagerCreatePage(KALPageManager* manager, uint32_t lockType, uint32_t* page, void** body);

/*
 * Releases one lock and one reference of the page. KALDB_SUCCESS; KALDB_FULL for a page without a lock when 20 others
 * are locked; KALDB_INVALID_ARGUMENT.
 */
KALDB_API uint32_t kalPageManagerUnloadPage(KALPageManager* manager, void* body);

/*
 * The same by page number, for a holder that gave its reference up before: a page that was swapped out is read back in.
 * KALDB_SUCCESS; what kalPageManagerLoadPage returns for a page that cannot be read, and nothing is released then.
 */
KALDB_API uint32_t kalPageManagerUnlockPage(KALPageManager* manager, uint32_t page);

/*
 * Gives one reference up and keeps the lock: the slot may be given to another page, and the body pointer is void.
 * KALDB_SUCCESS; KALDB_INVALID_ARGUMENT.
 */
KALDB_API uint32_t kalPageManagerUnreferencePage(KALPageManager* manager, void* body);

/* Does nothing. Always KALDB_FAILURE. */
KALDB_API uint32_t kalPageManagerReferencePage(KALPageManager* manager, void* body);

/* The page was changed and must be written some time. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT. */
KALDB_API uint32_t kalPageManagerSetPageDirty(KALPageManager* manager, void* body);

/*
 * Writes the page to the file now; it waits for the system, not for the disk.
 * KALDB_SUCCESS; KALDB_NOT_APPLICABLE when the page is not dirty; KALDB_INVALID_ARGUMENT; a file status, and the page
 * stays dirty.
 */
KALDB_API uint32_t kalPageManagerFlushPage(KALPageManager* manager, void* body);

/*
 * Writes the header and every dirty page, from the lowest slot up. Pages after one that could not be written are
 * written all the same. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT; a file status: of the header, and then no page was
 * written, or of the last page that could not be.
 */
KALDB_API uint32_t kalPageManagerFlushAllPages(KALPageManager* manager);

/* ---- facts ------------------------------------------------------------------------------ */

/* 2048 and 2020; the manager is not looked at. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT for a null result. */
KALDB_API uint32_t kalPageManagerGetPageSize(KALPageManager* manager, uint32_t* size);
KALDB_API uint32_t kalPageManagerGetUsablePageSize(KALPageManager* manager, uint32_t* size);

/* How many pages the file has, those that are not written yet included. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT. */
KALDB_API uint32_t kalPageManagerGetPageCount(KALPageManager* manager, uint32_t* count);

/* The path as it was given, not a copy; valid while the manager lives. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT. */
KALDB_API uint32_t kalPageManagerGetLocation(KALPageManager* manager, const char16_t** path);

/*
 * A page number that the file's header keeps for the caller; KALDB_NO_PAGE in a new file. It is kept in memory and
 * written at once; when the write fails it stays changed in memory. KALDB_SUCCESS; KALDB_INVALID_ARGUMENT; a file
 * status.
 */
KALDB_API uint32_t kalPageManagerGetStartPage(KALPageManager* manager, uint32_t* page);
KALDB_API uint32_t kalPageManagerSetStartPage(KALPageManager* manager, uint32_t page);

/* ---- backups ---------------------------------------------------------------------------- */

/*
 * Copies the file, which must be closed or complete, to the path with ".backup" appended. A backup that is there
 * already waits in the working directory under a name that begins with "zorv": it comes back when the copy fails, and
 * goes when it succeeds. Where it cannot be moved there, it is deleted first; the error log then says so.
 *
 * KALDB_SUCCESS; KALDB_OUT_OF_MEMORY; KALDB_INVALID_ARGUMENT; a file status of the copy, or of the deletion of a backup
 * that could not be moved.
 */
KALDB_API uint32_t kalPageManagerBackup(const char16_t* path);

/*
 * Makes the backup of an open file: writes everything, marks the file clean, copies it, marks it dirty again. Pages
 * stay in the cache and held. The copy is marked clean.
 *
 * KALDB_SUCCESS; KALDB_DAMAGED when damage was met since the file was opened: the last good backup stays;
 * KALDB_OUT_OF_MEMORY; KALDB_INVALID_ARGUMENT; a file status: the first failure of writing, copying and marking.
 */
KALDB_API uint32_t kalPageManagerBackupWhileRunning(KALPageManager* manager);

/*
 * Copies the backup over the file, which must not be open. KALDB_SUCCESS; KALDB_OUT_OF_MEMORY; KALDB_INVALID_ARGUMENT;
 * a file status, KALDB_FILE_NOT_FOUND when there is no backup. A failed copy leaves the file as it was.
 */
KALDB_API uint32_t kalPageManagerRestore(const char16_t* path);

/*
 * Whether the file is marked dirty: open, or not closed cleanly. KALDB_SUCCESS; KALDB_FAILURE when it is no page file;
 * KALDB_INVALID_ARGUMENT; a file status. *dirty is written on success only.
 */
KALDB_API uint32_t kalPageManagerFileIsDirty(const char16_t* path, uint32_t* dirty);

#ifdef __cplusplus
}
#endif
#endif
