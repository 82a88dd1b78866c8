// Identifier counters that could not be stored yet: a table list keeps their page from being written, or the page could
// not be read or written just then.
#pragma once

#include "common/status.h"
#include "kaldbroot/root_object.h"

namespace kaldb {

/// Keeps the counter of `object` until it can be stored.
Status keepWaitingCounter(const KALDBRootObject& object);
/// Puts the waiting counter into the object, where there is one.
void useWaitingCounter(KALDBRootObject& object);
/// The object has been stored with its counter.
void dropWaitingCounter(const KALDBRootObject& object);
void dropAllWaitingCounters();

}  // namespace kaldb
