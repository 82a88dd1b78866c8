/*
 * kaldb: an embedded record store that keeps a whole repository in one file.
 *
 * Include this header; it brings in one header for each family of operations. C11 and C++20.
 *
 *     database.h       open, close, running backup      variant.h, varstring.h  values, and their stores of long ones
 *     table.h          tables of records                validate.h              the offline check of a file
 *     identifiers.h    object identifiers               page_manager.h, page_tracker.h, btree_page.h, binary_page.h,
 *     types.h          callbacks, locators, handles     diagnostics.h           what tables are made of, one by one
 *     status.h         what every status means
 *
 * A database from nothing to a record found again:
 *
 *     typedef struct Person { KALDBID id; char name[24]; int32_t born; } Person;
 *
 *     static int32_t byName(const void* probe, const void* stored)  // records are not aligned
 *     {
 *         return memcmp((const char*)probe + offsetof(Person, name), (const char*)stored + offsetof(Person, name), 24);
 *     }
 *
 *     KALDBDatabase* database;
 *     KALDBTable* people;
 *     uint32_t isNew;
 *     KALDBTableInfo info = {u"People", sizeof(Person), KALDB_CHAIN_GUID, 0, 0};
 *     KALDBChainCallbacks callbacks = {.compare = byName};
 *     Person ada = {.name = "Ada", .born = 1815}, found;
 *
 *     kaldbInitialize(u"repository.kaldb", 1u << 20, &database, &isNew);
 *     if (isNew)
 *         kaldbTableCreate(database, &info);
 *     kaldbTableOpen(database, u"People", &callbacks, &people);
 *     kaldbTableInsertRecord(people, &ada, 0, NULL);                       // ada.id is her identifier now
 *     kaldbTableQueryID(people, &ada.id, &found, sizeof found);
 *     kaldbTableClose(people);
 *     kaldbDeinitialize(database);                                        // and the backup is up to date
 *
 * The library serialises nothing: a process makes one call at a time. It has one database open at a time.
 */
#ifndef KALDB_KALDB_H
#define KALDB_KALDB_H

#include <kaldb/binary_page.h>
#include <kaldb/btree_page.h>
#include <kaldb/database.h>
#include <kaldb/diagnostics.h>
#include <kaldb/export.h>
#include <kaldb/identifiers.h>
#include <kaldb/page_manager.h>
#include <kaldb/page_tracker.h>
#include <kaldb/status.h>
#include <kaldb/table.h>
#include <kaldb/types.h>
#include <kaldb/validate.h>
#include <kaldb/variant.h>
#include <kaldb/varstring.h>

#endif
