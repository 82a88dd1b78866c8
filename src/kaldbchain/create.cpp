// Making a chain: its first page and its root object.

#include "kaldbchain/internal.h"
#include "kaldbroot/catalogue.h"

namespace kaldb {

Status typedPageFormatSize(std::uint32_t recordSize, bool binary, std::uint32_t& size)
{
    const std::uint64_t header = binary ? sizeof(KALDBBinaryPage) : sizeof(KALBTreePage);
    const std::uint64_t perItem = std::uint64_t{recordSize} + (binary ? 20 : 8);  // bytes that an item takes
    const std::uint64_t reckoned =
        std::uint64_t{recordSize} + (binary ? 20 : 10);  // bytes that the format reckons with
    for (const std::uint32_t candidate : {usablePageSize, typedPageSize}) {
        const std::uint64_t count = (candidate - header) / reckoned;
        if (count > 0 && header + count * perItem <= typedPageSize) {
            size = candidate;
            return Status::success;
        }
    }
    return Status::bufferTooSmall;
}

namespace {

constexpr TraceSource here = chainSource(u"kaldbCreateChain");

/// `bufferTooSmall` for a record size that a chain of these flags cannot have.
Status checkRecordSize(std::uint32_t recordSize, std::uint32_t flags)
{
    std::uint32_t size = 0;
    if (Status s = typedPageFormatSize(recordSize, (flags & KALDB_CHAIN_BINARY) != 0, size); failed(s))
        return s;
    if ((flags & KALDB_CHAIN_GUID) != 0 && recordSize < sizeof(KALDBID))
        return Status::bufferTooSmall;
    return Status::success;
}

/// The root chain describes itself: its entry goes straight into its first page, which becomes the start page.
Status insertRootElement(const ChainPage& page, KALDBRootObject& object)
{
    object.recordSize = sizeof(KALDBRootObject);
    object.flags = KALDB_CHAIN_GUID | KALDB_CHAIN_SYSTEM;
    SlotIndex index = noSlot;
    if (Status s = page.tree().insert(&object, compareRootObjects, index); failed(s))
        return KAL_TRACE(here, s, u"could not insert root element");
    const KALDBIndexRecord from = emptyLocator();
    KALDBIndexRecord to = emptyLocator();
    to.page = page.number();
    to.index = index;
    if (Status s = asStatus(kaldbRootIndexUpdate(&from, &to, 0)); failed(s))
        KAL_TRACE(here, s, u"could not store start page");
    return Status::success;
}

Status describe(const ChainPage& page, KALDBRootObject& object)
{
    if (object.kind == KALDB_OBJECT_ROOT)
        return insertRootElement(page, object);
    if (Status s = kaldbInsertRootObject(object); failed(s))
        return KAL_TRACE(here, s, u"could not add '%s' object to root page", object.name);
    return Status::success;
}

}  // namespace

bool plausibleRootObject(const KALDBRootObject& object)
{
    return object.name[rootNameChars - 1] == u'\0' && ok(checkRecordSize(object.recordSize, object.flags));
}

Status kaldbCreateChain(std::int32_t kind, const char16_t* name, std::uint32_t recordSize, std::uint32_t flags)
{
    if (!chainStorage().up())
        return Status::notOpen;
    KALDBRootObject object = rootObjectKey(kind, name);
    if (Status s = checkRecordSize(recordSize, flags); failed(s)) {
        KAL_TRACE(verbatim, u"kaldbchain: kaldbCreateChain() could not format initial page for '%s'[0x%02X - %s]\n",
                  object.name, code(s), kalErrorGetString(code(s)));
        return s;
    }
    object.id = zeroIdentifier();
    object.nextID = zeroIdentifier();
    object.nextID.sequence = 0;
    object.recordSize = recordSize;
    object.flags = flags;

    ChainPage page{here, u"could not unload initial page for chain"};
    if (Status s = page.create(LockType::write); failed(s)) {
        KAL_TRACE(verbatim, u"kaldbchain: kaldbCreateChain() could not create initial page for '%s'[0x%02X - %s]\n",
                  object.name, code(s), kalErrorGetString(code(s)));
        return s;
    }
    KALDBChain shape{};
    shape.recordSize = recordSize;
    shape.flags = flags;
    if (Status s = page.format(shape); failed(s))
        return s;
    if (Status s = page.markDirty(); failed(s))
        KAL_TRACE(here, s, u"could not set initial page dirty for '%s'", object.name);

    object.topPage = object.firstPage = page.number();
    Status status = describe(page, object);
    if (Status s = page.release(); failed(s)) {
        KAL_TRACE(here, s, u"could not unload initial page for '%s'", object.name);
        keepFirst(status, s);
    }
    return status;
}

}  // namespace kaldb
