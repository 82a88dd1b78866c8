// The identifier index of a table: a chain of locators in the order of their identifiers.
//
// A change that fails is returned as failed, and kept until it can be made: a record stays findable by its identifier
// although the index's page could not be written just then.
#pragma once

#include "common/status.h"

#include <kaldb/types.h>

struct KALDBChain;

namespace kaldb {

struct KALDBIndex {
    KALDBChain* chain = nullptr;
};

Status kaldbindexCreate(const char16_t* name);
Status kaldbIndexOpen(const char16_t* name, KALDBIndex*& index);
/// Frees the handle whatever happens; always succeeds.
Status kaldbIndexClose(KALDBIndex* index);

/// Makes the changes of all indexes that had to wait, open or not, before a state is kept. The status of the first that
/// must wait on; those that damage keeps from being made are given up.
Status settleIndexes();

/// `alreadyExists` for an identifier that is there.
Status kaldbIndexInsertRecord(KALDBIndex& index, KALDBIndexRecord locator);
/// The index record of the same identifier takes the locator's page and slot; `notFound` when there is none.
Status kaldbIndexUpdateRecord(KALDBIndex& index, KALDBIndexRecord locator);
Status kaldbIndexDeleteRecord(KALDBIndex& index, KALDBIndexRecord locator);
/// Only the identifier's sequence decides. `notFound` when there is no such identifier.
Status kaldbIndexGetRecord(KALDBIndex& index, const KALDBID& id, KALDBIndexRecord& locator);

}  // namespace kaldb
