// Handing out identifiers, and the counters that wait until their page can be written.

#include "common/memory.h"
#include "common/trace.h"
#include "kaldbchain/chain.h"
#include "kaldbroot/catalogue.h"
#include "kaldbroot/waiting_counters.h"

#include <kaldb/identifiers.h>

#include <new>

namespace kaldb {

namespace {

constexpr TraceSource rootSource(const char16_t* operation) { return {u"kaldbroot: ", operation}; }

struct WaitingCounter {
    KALDBRootObject key;  // kind and name
    KALDBID nextID;
    WaitingCounter* following;
};

WaitingCounter* waitingCounters = nullptr;

/// The link that holds the object's counter, or the end of the list.
WaitingCounter** findWaiting(const KALDBRootObject& object)
{
    WaitingCounter** link = &waitingCounters;
    while (*link != nullptr && compareRootObjects(&object, &(*link)->key) != 0)
        link = &(*link)->following;
    return link;
}

void dropAt(WaitingCounter** link)
{
    WaitingCounter* dropped = *link;
    *link = dropped->following;
    kalMemFree(dropped);
}

}  // namespace

Status keepWaitingCounter(const KALDBRootObject& object)
{
    WaitingCounter** link = findWaiting(object);
    if (*link == nullptr) {
        Memory memory = allocateMemory(sizeof(WaitingCounter), "./src/kaldbroot");
        if (!memory)
            return Status::outOfMemory;
        *link = new (memory.release()) WaitingCounter{rootObjectKey(object.kind, object.name), {}, nullptr};
    }
    (*link)->nextID = object.nextID;
    return Status::success;
}

void useWaitingCounter(KALDBRootObject& object)
{
    const WaitingCounter* waiting = *findWaiting(object);
    if (waiting != nullptr && waiting->nextID.sequence > object.nextID.sequence)
        object.nextID = waiting->nextID;
}

void dropWaitingCounter(const KALDBRootObject& object)
{
    if (WaitingCounter** link = findWaiting(object); *link != nullptr)
        dropAt(link);
}

void dropAllWaitingCounters()
{
    while (waitingCounters != nullptr)
        dropAt(&waitingCounters);
}

Status storeWaitingCounters()
{
    KALDBChain* root = nullptr;
    if (waitingCounters == nullptr)
        return Status::success;
    if (Status s = kaldbGetRootChain(root); failed(s))
        return s;
    Status result = Status::success;
    for (WaitingCounter** link = &waitingCounters; *link != nullptr;) {
        KALDBRootObject object;
        Status status = kaldbGetRootObject((*link)->key.kind, (*link)->key.name, object);
        if (ok(status)) {
            useWaitingCounter(object);
            status = updateUnderReadLock(*root, &object);
        }
        if (ok(status))
            noteRootObject(findChainState(object.kind, object.name), object);
        keepFirst(result, status);
        if (ok(status))
            dropAt(link);
        else
            link = &(*link)->following;
    }
    return result;
}

Status kaldbGetNextObjectID(const KALDBChain& chain, KALDBID& id)
{
    constexpr TraceSource here = rootSource(u"kaldbGetNextObjectID");
    KALDBRootObject object;
    if (Status s = rootObjectOf(chain, object); failed(s))
        return KAL_TRACE(here, s, u"could not retrive root data for '%s'", chain.name);
    useWaitingCounter(object);
    if (Status s = asStatus(kaldbIDCopy(&id, &object.nextID)); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve unique ID for '%s'", chain.name);
    kaldbIDIncrement(&object.nextID);
    const Status status = kaldbUpdateRootObject(object, chain.state);
    if (ok(status))
        return status;
    KAL_TRACE(here, status, u"could not update root data for '%s'", chain.name);
    // The identifier is good as long as the counter is not forgotten.
    return keepWaitingCounter(object);
}

}  // namespace kaldb
