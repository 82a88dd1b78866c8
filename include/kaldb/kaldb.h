/*
 * kaldb: an embedded record store that keeps a whole repository in one file.
 *
 * Include this header; it brings in one header for each family of operations. C11 and C++20.
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
