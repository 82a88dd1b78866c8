// Changes of identifier indexes that could not be made yet.

#include "kaldbindex/pending_changes.h"

#include "common/memory.h"
#include "kalbtree/layout.h"
#include "kaldbchain/chain.h"
#include "kalpagemanager/layout.h"

#include <algorithm>

namespace kaldb {

namespace {

/// Several handles may be open on one index, so a change belongs to a name.
struct NamedChange {
    char16_t index[rootNameChars];
    PendingChange change;
};

/// A split moves half a page of records, a deletion of many tells of each by itself.
constexpr std::size_t changesOfAnOperation = usablePageSize / (sizeof(KALDBID) + sizeof(KALBTreeSlot));

Vector<NamedChange>& pending()
{
    static auto* const changes = new Vector<NamedChange>;  // outlives every static object
    return *changes;
}

bool belongsTo(const NamedChange& named, const KALDBChain& index)
{
    return std::equal(index.name, index.name + rootNameChars, named.index);
}

NamedChange* findChange(const KALDBChain& index, const KALDBID& id)
{
    for (NamedChange& named : pending())
        if (belongsTo(named, index) && named.change.locator.id.sequence == id.sequence)
            return &named;
    return nullptr;
}

}  // namespace

Status reservePendingChanges()
{
    if (pending().capacity() - pending().size() >= changesOfAnOperation)
        return Status::success;
    try {
        pending().reserve(2 * pending().size() + changesOfAnOperation);
        return Status::success;
    } catch (const std::bad_alloc&) {
        return Status::outOfMemory;
    }
}

void keepPendingChange(const KALDBChain& index, const KALDBIndexRecord& locator)
{
    if (NamedChange* const known = findChange(index, locator.id)) {
        known->change.locator = locator;
        return;
    }
    NamedChange named{{}, {locator}};
    copyChainName(named.index, index.name);
    try {
        pending().push_back(named);
    } catch (const std::bad_alloc&) {
        // More than was reserved: the record is found by its key.
    }
}

const PendingChange* findPendingChange(const KALDBChain& index, const KALDBID& id)
{
    const NamedChange* const named = findChange(index, id);
    return named == nullptr ? nullptr : &named->change;
}

bool hasPendingChanges(const KALDBChain& index)
{
    return std::any_of(pending().begin(), pending().end(),
                       [&index](const NamedChange& named) { return belongsTo(named, index); });
}

bool firstIndexWithPendingChanges(char16_t (&name)[rootNameChars])
{
    if (pending().empty())
        return false;
    copyChainName(name, pending().front().index);
    return true;
}

Status settlePendingChanges(KALDBChain& index, Status (*apply)(KALDBChain& index, const KALDBIndexRecord& locator))
{
    Status status = Status::success;
    const auto isMade = [&](const NamedChange& named) {
        if (!belongsTo(named, index))
            return false;
        const Status applied = apply(index, named.change.locator);
        keepFirst(status, applied);
        return ok(applied);
    };
    pending().erase(std::remove_if(pending().begin(), pending().end(), isMade), pending().end());
    return status;
}

void dropAllPendingChanges() { pending() = Vector<NamedChange>{}; }

}  // namespace kaldb
