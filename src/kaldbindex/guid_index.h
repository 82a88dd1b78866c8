// The identifier index of a table: a chain of locators in the order of their identifiers.
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

/// `alreadyExists` for an identifier that is there.
Status kaldbIndexInsertRecord(KALDBIndex& index, KALDBIndexRecord locator);
/// The index record of the same identifier takes the locator's page and slot; `notFound` when there is none.
Status kaldbIndexUpdateRecord(KALDBIndex& index, KALDBIndexRecord locator);
Status kaldbIndexDeleteRecord(KALDBIndex& index, KALDBIndexRecord locator);
/// Only the identifier's sequence decides. `notFound` when there is no such identifier.
Status kaldbIndexGetRecord(KALDBIndex& index, const KALDBID& id, KALDBIndexRecord& locator);

}  // namespace kaldb
