// The long texts of variable strings, in the system table "SysVarString", terminator included.
#include "kaldbvalue/value_store.h"
#include "kaldbvarstr/varstring.h"

namespace kaldb {
namespace {

constexpr TraceSource source(const char16_t* operation) { return {u"kaldbvarstr: ", operation}; }
constexpr TraceSource opening = source(u"kaldbInitVarStringTable");
constexpr TraceSource inserting = source(u"kaldbVarStringInsertRecord");
constexpr TraceSource getting = source(u"kaldbVarStringGetRecord");
constexpr TraceSource deleting = source(u"kaldbVarStringDeleteRecord");

constexpr std::uint32_t blockSize = 128;
ValueStore store{u"SysVarString", blockSize};

/// Success for a text that belongs into the store, and the store is open.
Status checkStorable(const KALDBVarString& string)
{
    if (varStringIsInline(string))
        return Status::notApplicable;
    if (string.length == UINT32_MAX)  // with its terminator no size of anything
        return Status::failure;
    return store.isOpen() ? Status::success : Status::notOpen;
}

}  // namespace

Status varStringStoreOpen(KALDBDatabase* db) { return store.open(db, opening); }

Status varStringStoreClose() { return store.close(); }

Status varStringInsertRecord(KALDBVarString& string)
{
    if (Status s = checkStorable(string); failed(s))
        return s;
    const char* text = varStringText(string);
    if (text == nullptr)
        return Status::notOpen;
    return store.insert({reinterpret_cast<const std::byte*>(text), string.length + 1}, string.location, inserting,
                        u"could not insert remainder of string", u"could not insert string block %ld");
}

Status varStringGetRecord(KALDBVarString& string)
{
    if (!varStringIsInline(string) && !varStringTakesBlock(string))
        return Status::bufferTooSmall;
    if (Status s = checkStorable(string); failed(s))
        return s;
    LiveBlock block;
    Status s = store.read(string.location, string.length + 1, &string, varStringSource, block, getting,
                          u"could not retrieve binary record");
    if (s == Status::outOfMemory)
        return s;
    if (ok(s) && block.address[string.length] != std::byte{0}) {
        freeBlock(block.handle, &string);
        block = {};
        s = KAL_TRACE(getting, Status::failure, u"could not retrieve binary record");
    }
    varStringTakeBlock(string, block.handle);
    return s;
}

Status varStringDeleteRecord(KALDBVarString& string)
{
    if (Status s = checkStorable(string); failed(s))
        return s;
    return store.remove(string.location, string.length + 1, deleting, u"could not delete string");
}

}  // namespace kaldb
