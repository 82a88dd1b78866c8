/*
 * Every operation returns a 32-bit status, 0 for success. One code space serves this library and
 * its support library; kalErrorGetString gives the text of each.
 */
#ifndef KALDB_STATUS_H
#define KALDB_STATUS_H

#include <kallib/kallib.h>

enum {
    KALDB_SUCCESS = 0,
    KALDB_FAILURE = 1,             /* general failure; a damaged page or header */
    KALDB_BACKUP_FAILED = 2,       /* the previous backup could not be moved aside */
    KALDB_NOT_OPEN = 3,            /* no database (or no system table) is open */
    KALDB_INVALID_ARGUMENT = 4,    /* a null or impossible argument */
    KALDB_ACCESS_DENIED = 5,       /* the operating system refused permission */
    KALDB_NOT_APPLICABLE = 6,      /* nothing to do for this object, such as flushing a clean page */
    KALDB_OUT_OF_MEMORY = 7,       /* an allocation failed, or no cache slot can take a page */
    KALDB_SHORT_READ = 8,          /* part of a page was read, but not all of it */
    KALDB_IO_ERROR = 9,            /* the operating system could not read or write */
    KALDB_NO_SPACE = 10,           /* the file system is full */
    KALDB_EMPTY_PAGE = 11,         /* the page holds no item */
    KALDB_FULL = 12,               /* the page, the table of page locks or the file is full */
    KALDB_FILE_NOT_FOUND = 13,     /* no such file or directory */
    KALDB_END_OF_ENUMERATION = 14, /* an enumerator has no further item */
    KALDB_END_OF_FILE = 15,        /* the page lies beyond the end of the file */
    KALDB_NOT_FOUND = 16,          /* no such record, table, identifier or lock */
    KALDB_ALREADY_EXISTS = 17,     /* a record or table with this key exists, or a database is open */
    KALDB_LOCK_CONFLICT = 18,      /* the page is held in a mode that excludes the request */
    KALDB_BUFFER_TOO_SMALL = 19,   /* the result does not fit the buffer, the name or the page */
    KALDB_NOT_SUPPORTED = 20,      /* the operation exists but does nothing */
    KALDB_FILE_IN_USE = 21,        /* another process, or another open here, owns the database */
    KALDB_NAME_TOO_LONG = 22,      /* longer than the operating system allows */
    KALDB_NOT_A_FILE = 23,         /* the path names something other than a regular file */
    KALDB_CONVERSION_FAILED = 24,  /* text is not valid UTF-16 or UTF-8 */
    KALDB_TOO_MANY_FILES = 25,     /* no file descriptor is free */
    KALDB_DAMAGED = 26,            /* damage was met, so the backup is not replaced */
    KALDB_NO_FREE_SLOT = 27        /* no item slot is free; also an unknown lock type */
};

/* What a constraint check answers: KALDB_FIELD_SUCCESS lets a record pass, any other code refuses it. */
enum {
    KALDB_FIELD_SUCCESS = 0x02000000,
    KALDB_FIELD_FAILURE = 0x02000001,
    KALDB_FIELD_OUT_OF_RANGE = 0x02000002,
    KALDB_FIELD_REQUIRED = 0x02000003,
    KALDB_FIELD_NULL = 0x02000004,
    KALDB_FIELD_INVALID_RELATIONSHIP = 0x02000005,
    KALDB_FIELD_INVALID_FORMAT = 0x02000006,
    KALDB_FIELD_TOO_SHORT = 0x02000007,
    KALDB_FIELD_TOO_LONG = 0x02000008,
    KALDB_FIELD_INVALID_VALUE = 0x02000009
};

#endif
