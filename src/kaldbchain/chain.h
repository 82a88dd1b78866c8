// Chains: the multi-page trees that hold one table, one identifier index or the catalogue each.
//
// A handle holds no page and sees at once what another handle of the same chain changed: what is remembered of a chain
// is shared by them. An operation leaves no page held, failed or not; only open enumerators hold one.
#pragma once

#include "common/page_number.h"
#include "common/status.h"
#include "kaldbchain/chain_state.h"
#include "kaldbroot/root_object.h"

#include <kaldb/types.h>

#include <cstdint>

struct KALPageManager;

struct KALDBChain {
    std::int32_t kind;
    char16_t name[kaldb::rootNameChars];
    KALDBChainCallbacks callbacks;
    std::uint32_t recordSize;
    std::uint32_t flags;
    std::uintptr_t context;     // handed to indexUpdate
    kaldb::ChainState* state;   // null where there was no memory for it
    std::uint64_t session;      // the opening of storage that the handle belongs to
    std::uint32_t enumerators;  // open ones: a closed handle lives on until they are freed
    bool closed;

    bool carriesIdentifiers() const { return (flags & KALDB_CHAIN_GUID) != 0; }
    bool binary() const { return (flags & KALDB_CHAIN_BINARY) != 0; }
};

namespace kaldb {

// ---- storage ---------------------------------------------------------------------------------------------------

/// Checks the file (restoring the backup where needed), starts the page manager and opens the root chain, which is
/// made first in a new file. A failure leaves the page manager running where it came up.
Status kaldbInitializeStorage(const char16_t* path, std::uint32_t cacheBytes, std::uint32_t& isNew);
Status kaldbDeinitializeStorage();
/// Ends a start that failed on its way, whatever came up: the file is closed as it was found, and one that this start
/// made is deleted. No backup is made.
void abandonStorage(const char16_t* path) noexcept;
/// Brings a database that this start made to the disk, so that a crash before its first close leaves one that opens.
Status completeNewStorage();
Status kaldbBackupStorage();
/// Null while storage is down.
KALPageManager* kaldbChainGetPageManager();
/// Whether a chain operation is running: the caller is inside one of its callbacks.
bool insideChainOperation();

// ---- chains ----------------------------------------------------------------------------------------------------

/// `bufferTooSmall` for a record size of which not one fits a page, or too small for an identifier.
Status kaldbCreateChain(std::int32_t kind, const char16_t* name, std::uint32_t recordSize, std::uint32_t flags);
Status kaldbOpenChain(std::int32_t kind, const char16_t* name, const KALDBChainCallbacks& callbacks,
                      std::uintptr_t context, KALDBChain*& chain);
/// `lockConflict` from inside one of the chain's own callbacks.
Status kaldbCloseChain(KALDBChain* chain);
/// Whether the storage that the handle belongs to is still open.
bool storageIsOpen(const KALDBChain& chain);

Status kaldbChainGetKind(const KALDBChain& chain, std::uint32_t& kind);
/// `bufferTooSmall` when name and NUL need more than `size` characters.
Status kaldbChainGetName(const KALDBChain& chain, char16_t* buffer, std::uint32_t size);
Status kaldbChainGetFlags(const KALDBChain& chain, std::uint32_t& flags);

/// The root chain's own root object, from the start page or from the copy kept of it.
Status kaldbGetRootEntry(KALDBRootObject& object);
Status kaldbUpdatePhysicalRootElement(const KALDBRootObject& object);
/// Keeps the copy of the root chain's own root object in step with an update through the root chain.
void refreshRootElement(const KALDBRootObject& object);

// ---- records ---------------------------------------------------------------------------------------------------

/// A null locator is not filled; it is written only for a chain that carries identifiers.
Status kaldbInsertChainRecord(KALDBChain& chain, void* record, KALDBIndexRecord* locator);
Status kaldbQueryChainPrimaryKey(KALDBChain& chain, const void* key, void* record);
Status kaldbQueryChainID(KALDBChain& chain, const KALDBIndexRecord& locator, void* record);
Status kaldbQueryChainRecords(KALDBChain& chain, const void* key);
Status kaldbQueryChainPartialKey(KALDBChain& chain, bool readOnly, const void* key, KALBTreeCompare compare,
                                 KALEnumerator*& enumerator);
Status kaldbEnumChainWithCallback(KALDBChain& chain, void* context, KALDBEnumCallback callback);
Status kaldbUpdateChainRecord(KALDBChain& chain, void* record);
Status kaldbUpdateCurrentChainRecord(KALDBChain& chain, KALEnumerator* enumerator, void* record);
Status kaldbDeleteChainRecord(KALDBChain& chain, void* key, KALDBIndexRecord* locator);
Status kaldbDeleteChainRecordByID(KALDBChain& chain, const KALDBIndexRecord& locator);
Status kaldbDeleteCurrentChainRecord(KALDBChain& chain, KALEnumerator* enumerator);

/// Told the identifier of every record that a deletion by partial key takes out, after it is gone.
struct DeletionListener {
    void (*deleted)(void* context, const KALDBID& id) = nullptr;
    void* context = nullptr;
};
Status kaldbDeleteChainPartialKey(KALDBChain& chain, const void* key, KALBTreeCompare compare,
                                  DeletionListener listener = {});

/// Updates a record whose page may be read-locked by an enumerator: for counters that must be stored before the file
/// is closed. No callbacks.
Status updateUnderReadLock(KALDBChain& chain, const void* record);

// ---- binary chains ---------------------------------------------------------------------------------------------

Status kaldbInsertBinaryChainRecord(KALDBChain& chain, const KALDBBinaryRecord& record, KALDBIndexRecord& locator);
Status kaldbDeleteBinaryChainRecord(KALDBChain& chain, const KALDBIndexRecord& locator);
Status kaldbUpdateBinaryChainRecord(KALDBChain& chain, const KALDBIndexRecord& locator,
                                    const KALDBBinaryRecord& record);
/// `record.data` names a buffer of at least the chain's record size; the other fields are filled in.
Status kaldbGetBinaryChainRecord(KALDBChain& chain, const KALDBIndexRecord& locator, KALDBBinaryRecord& record);

}  // namespace kaldb
