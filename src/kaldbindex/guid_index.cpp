// The identifier index of a table.

#include "kaldbindex/guid_index.h"

#include "common/bytes.h"
#include "common/memory.h"
#include "common/trace.h"
#include "kaldbchain/chain.h"
#include "kaldbindex/pending_changes.h"
#include "kaldbroot/root_object.h"
#include "kalpagemanager/page_manager.h"

#include <kaldb/identifiers.h>

#include <cstddef>

namespace kaldb {

namespace {

constexpr TraceSource indexSource(const char16_t* operation) { return {u"kaldbindex: ", operation}; }

/// The order of identifiers, which is that of their sequence numbers.
std::int32_t compareIndexRecords(const void* probe, const void* stored)
{
    const auto first = readField<std::uint64_t>(probe, offsetof(KALDBID, sequence));
    const auto second = readField<std::uint64_t>(stored, offsetof(KALDBID, sequence));
    return first < second ? -1 : first > second ? 1 : 0;
}

}  // namespace

Status kaldbindexCreate(const char16_t* name)
{
    constexpr TraceSource here = indexSource(u"kaldbindexCreate");
    if (Status s = kaldbCreateChain(KALDB_OBJECT_INDEX, name, sizeof(KALDBIndexRecord), KALDB_CHAIN_SYSTEM); failed(s))
        return KAL_TRACE(here, s, u"could not create index '%s'", name);
    KAL_TRACE(here, u"successfully created index '%s'", name);
    return Status::success;
}

Status kaldbIndexOpen(const char16_t* name, KALDBIndex*& index)
{
    constexpr TraceSource here = indexSource(u"kaldbIndexOpen");
    Handle<KALDBIndex> handle = makeHandle<KALDBIndex>("./src/kaldbindex");
    if (!handle) {
        KAL_TRACE(here, u"could not allocate index data for '%s'", name);
        return Status::outOfMemory;
    }
    if (Status s = reservePendingChanges(); failed(s))
        return KAL_TRACE(here, s, u"could not open index chain for '%s'", name);
    KALDBChainCallbacks callbacks{};
    callbacks.compare = compareIndexRecords;
    if (Status s = kaldbOpenChain(KALDB_OBJECT_INDEX, name, callbacks, 0, handle->chain); failed(s))
        return KAL_TRACE(here, s, u"could not open index chain for '%s'", name);
    // A chain of other records under the index's name is none of ours.
    if (handle->chain->recordSize != sizeof(KALDBIndexRecord) || handle->chain->binary()) {
        ignore(kaldbCloseChain(handle->chain));
        kaldbChainGetPageManager()->noteDamage();
        return KAL_TRACE(here, Status::failure, u"could not open index chain for '%s'", name);
    }
    KAL_TRACE(here, u"success opening index '%s'", name);
    index = handle.release();
    return Status::success;
}

namespace {

/// Brings the index in step with where the record is, whatever it says so far.
Status applyChange(KALDBChain& index, const KALDBIndexRecord& change)
{
    KALDBIndexRecord locator = change;
    if (locator.page == noPage) {
        const Status status = kaldbDeleteChainRecord(index, &locator, nullptr);
        return status == Status::notFound ? Status::success : status;
    }
    const Status status = kaldbInsertChainRecord(index, &locator, nullptr);
    return status == Status::alreadyExists ? kaldbUpdateChainRecord(index, &locator) : status;
}

/// Changes that had to wait go first, so that an identifier's changes stay in order.
Status settle(const KALDBIndex& index) { return settlePendingChanges(*index.chain, applyChange); }

/// Whether the chain's answer leaves the index out of step, so that the change has to wait.
bool mustWait(Status status)
{
    return failed(status) && status != Status::alreadyExists && status != Status::notFound && status != Status::notOpen;
}

}  // namespace

Status kaldbIndexClose(KALDBIndex* index)
{
    constexpr TraceSource here = indexSource(u"kaldbIndexClose");
    const Handle<KALDBIndex> owner{index};
    ignore(settle(*index));
    if (Status s = kaldbCloseChain(index->chain); failed(s))
        KAL_TRACE(here, s, u"could not close index");
    else
        KAL_TRACE(here, u"successfully closed index");
    return Status::success;
}

namespace {

/// Whether a later attempt may end otherwise: memory, the disk or a lock was in the way, not what the pages say.
bool mayPass(Status status)
{
    switch (status) {
    case Status::failure:
    case Status::damaged:
    case Status::shortRead:
    case Status::endOfFile:
    case Status::notFound:
    case Status::alreadyExists: return false;
    default: return !kaldbChainGetPageManager()->damageNoted();
    }
}

Status settleByName(const char16_t* name)
{
    KALDBIndex* index = nullptr;
    if (Status s = kaldbIndexOpen(name, index); failed(s))
        return s == Status::failure ? Status::outOfMemory : s;
    const Status status = settle(*index);
    ignore(kaldbIndexClose(index));
    return status;
}

}  // namespace

Status settleIndexes()
{
    char16_t name[rootNameChars];
    while (firstIndexWithPendingChanges(name))
        if (Status s = settleByName(name); failed(s))
            return mayPass(s) ? s : Status::success;
    return Status::success;
}

Status kaldbIndexInsertRecord(KALDBIndex& index, KALDBIndexRecord locator)
{
    ignore(settle(index));
    const Status status = kaldbInsertChainRecord(*index.chain, &locator, nullptr);
    if (mustWait(status))
        keepPendingChange(*index.chain, locator);
    return status;
}

Status kaldbIndexUpdateRecord(KALDBIndex& index, KALDBIndexRecord locator)
{
    if (findPendingChange(*index.chain, locator.id) != nullptr) {
        keepPendingChange(*index.chain, locator);
        ignore(settle(index));
        return Status::success;
    }
    const Status status = kaldbUpdateChainRecord(*index.chain, &locator);
    if (mustWait(status))
        keepPendingChange(*index.chain, locator);
    return status;
}

Status kaldbIndexDeleteRecord(KALDBIndex& index, KALDBIndexRecord locator)
{
    ignore(settle(index));
    const bool waited = findPendingChange(*index.chain, locator.id) != nullptr;
    const Status status = kaldbDeleteChainRecord(*index.chain, &locator, nullptr);
    if (mustWait(status) || waited) {
        KALDBIndexRecord deleted = emptyLocator();
        kaldbIDCopy(&deleted.id, &locator.id);
        keepPendingChange(*index.chain, deleted);
    }
    return waited && status == Status::notFound ? Status::success : status;
}

Status kaldbIndexGetRecord(KALDBIndex& index, const KALDBID& id, KALDBIndexRecord& locator)
{
    constexpr TraceSource here = indexSource(u"kaldbIndexGetRecord");
    if (const PendingChange* change = findPendingChange(*index.chain, id)) {
        if (change->deleted())
            return Status::notFound;
        locator = change->locator;
        return Status::success;
    }
    KALDBIndexRecord key{};
    kaldbIDCopy(&key.id, &id);
    const Status status = kaldbQueryChainPrimaryKey(*index.chain, &key, &locator);
    if (failed(status) && status != Status::notFound)
        KAL_TRACE(here, status, u"could not retrieve record");
    return status;
}

}  // namespace kaldb
