// Changes of identifier indexes that could not be made yet: a page could not be read, written or held at the time.
//
// The record itself was inserted, moved or deleted all the same, so until the index is mended the change is looked up
// here first. An index that is in step has none, and pays nothing for it.
#pragma once

#include "common/status.h"
#include "kaldbroot/root_object.h"

#include <kaldb/types.h>

struct KALDBChain;

namespace kaldb {

struct PendingChange {
    KALDBIndexRecord locator;  // where the record is now; no page when it was deleted
    bool deleted() const { return locator.page == KALDB_NO_PAGE; }
};

/// Memory for as many changes as one operation can leave behind, which may be all that there is when they must be kept.
/// To be asked for before the operation changes anything; `outOfMemory`.
Status reservePendingChanges();
/// Keeps what the index should say of the locator's identifier; beyond what was reserved it can be lost.
void keepPendingChange(const KALDBChain& index, const KALDBIndexRecord& locator);
/// The pending change of the identifier, or null.
const PendingChange* findPendingChange(const KALDBChain& index, const KALDBID& id);
bool hasPendingChanges(const KALDBChain& index);
/// The name of an index that has some; false when none has.
bool firstIndexWithPendingChanges(char16_t (&name)[rootNameChars]);
/// Makes the index's pending changes as far as that is possible now. `apply` yields success for a change that is made.
/// The status of the first that is not.
Status settlePendingChanges(KALDBChain& index, Status (*apply)(KALDBChain& index, const KALDBIndexRecord& locator));
/// Forgets what could not be settled: the database is closed, and another may have indexes of the same names.
void dropAllPendingChanges();

}  // namespace kaldb
