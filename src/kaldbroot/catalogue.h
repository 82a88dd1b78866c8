// The root catalogue: the chain "ROOT" that describes every chain of the file, itself included.
#pragma once

#include "common/status.h"
#include "kaldbroot/root_object.h"

#include <cstdint>

struct KALDBChain;

namespace kaldb {

class ChainPage;
struct ChainState;

Status kaldbCreateRoot();
Status kaldbOpenRoot();
Status kaldbCloseRoot();
/// Tells whether the root chain's own entry can be read. Always succeeds: any failure reads as "no".
Status kaldbRootExists(bool& exists);
/// `notOpen` while the root chain is not open.
Status kaldbGetRootChain(KALDBChain*& chain);

/// The root chain stamps `object.id` on the way in. `alreadyExists` for a kind and name that are there.
Status kaldbInsertRootObject(KALDBRootObject& object);
/// Replaces the stored object of the same kind and name, which is that of the open chain `state`, if one is given. A
/// counter that is waiting to be stored goes with it.
Status kaldbUpdateRootObject(KALDBRootObject& object, ChainState* state = nullptr);
/// Write-locks the object's page where it was the last time; `notApplicable` when it must be searched for.
Status loadRootObjectInPlace(const ChainState* state, const KALDBRootObject& key, ChainPage& page, SlotIndex& slot);
/// `notFound` when there is none; `failure` when the stored object cannot be right. Nothing is written then.
Status kaldbGetRootObject(std::int32_t kind, const char16_t* name, KALDBRootObject& object);
/// The root object of an open chain: what is known of it, or what the root chain has.
Status rootObjectOf(const KALDBChain& chain, KALDBRootObject& object);
Status kaldbGetChainTopPage(const KALDBChain& chain, PageNumber& page);
Status kaldbGetChainFirstPage(const KALDBChain& chain, PageNumber& page);

/// The object is stored as it is now; the state may be null.
void noteRootObject(ChainState* state, const KALDBRootObject& object);

/// Hands out the chain's next identifier. A counter that cannot be stored now (a table list may hold its page) is kept
/// by the process and stored later, so that no identifier is handed out twice.
Status kaldbGetNextObjectID(const KALDBChain& chain, KALDBID& id);
/// Stores the counters that are waiting, whoever reads their pages. The first failure is the result.
Status storeWaitingCounters();
/// Forgets them, with the remembered place of the root chain's own entry: the database is closed.
void forgetCatalogueState();

/// The root chain's index-update function: keeps the file's start page on the page of its own entry.
std::uint32_t kaldbRootIndexUpdate(const KALDBIndexRecord* from, const KALDBIndexRecord* to, std::uintptr_t context);

/// Whether a root object read from the file can be right: sizes that fit a page, a name that ends.
bool plausibleRootObject(const KALDBRootObject& object);

}  // namespace kaldb
