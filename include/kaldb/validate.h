/* The offline check of a database file. */
#ifndef KALDB_VALIDATE_H
#define KALDB_VALIDATE_H

#include <kaldb/export.h>
#include <kaldb/status.h>
#include <kaldb/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Both operations open the file at `path` for reading with a handle of their own; no database needs to be
 * open, and nothing is ever written. They may look at a file that is open elsewhere and then see what has
 * reached the disk so far.
 *
 * The result is no status: 1 when the file could be opened and its header read, else 0. The number of
 * problems found is written to *errors in every case (it stays at 0xFFFFFFFF rather than begin anew), so
 * that a sound file is one that answers 1 and leaves 0 in *errors. `unused` is not read: pass 0. A null
 * `path` counts as a file that cannot be opened; `errors` may be null.
 *
 *     uint32_t errors = 0;
 *     if (kaldbValidateFile(u"repository.kaldb", 0, &errors) != 0 && errors == 0)
 *         puts("closed cleanly and complete");
 */

/* Checks the file's header only, whatever the file's size: one problem for the mark of a database that is
   open or was not closed cleanly, one for a page count that differs from the file's size (or a page size of
   0), one for a file that ends inside its header. The first two go to the error log too. */
KALDB_API uint32_t kaldbValidateFile(const char16_t* path, uint32_t unused, uint32_t* errors);

/* Reads every page that the header counts, one problem each for a page that cannot be read whole, is of no
   known type or is malformed, and for each link to a child page that does not exist or names another parent.
   Lists the links of each page on standard output, in ASCII. The mark that kaldbValidateFile looks at is not
   looked at. Takes 16 bytes of memory a page. */
KALDB_API uint32_t kaldbValidatePages(const char16_t* path, uint32_t unused, uint32_t* errors);

#ifdef __cplusplus
}
#endif
#endif
