// Creating, opening and closing tables.

#include "kaldbtable/table.h"

#include "common/guard.h"
#include "common/memory.h"
#include "common/trace.h"
#include "kaldbindex/pending_changes.h"
#include "kaldbroot/catalogue.h"

#include <array>
#include <string>
#include <string_view>

namespace kaldb {

namespace {

constexpr TraceSource tableSource(const char16_t* operation) { return {u"kaldbtable: ", operation}; }

constexpr std::u16string_view indexSuffix = u"Index";

/// The name of the table's identifier index: the table's name followed by "Index".
struct IndexName {
    char16_t text[rootNameChars]{};

    explicit IndexName(const char16_t* table)
    {
        copyChainName(text, table);
        std::size_t length = std::char_traits<char16_t>::length(text);
        for (const char16_t c : indexSuffix)
            if (length + 1 < rootNameChars)
                text[length++] = c;
    }
    static bool fits(const char16_t (&table)[rootNameChars])
    {
        std::size_t length = 0;
        while (length < rootNameChars && table[length] != u'\0')
            ++length;
        return length + indexSuffix.size() < rootNameChars;
    }
};

/// The table's index-update function: the index record of a record that moved follows it.
std::uint32_t kaldbTableIndexUpdate(const KALDBIndexRecord* from, const KALDBIndexRecord* to, std::uintptr_t context)
{
    const auto& table = *reinterpret_cast<const KALDBTable*>(context);
    Status status = Status::success;
    if (table.index != nullptr)
        status = kaldbIndexUpdateRecord(*table.index, *to);
    if (table.callersIndexUpdate != nullptr)
        keepFirst(status, asStatus(guarded([&] { return asStatus(table.callersIndexUpdate(from, to, context)); })));
    return code(status);
}

}  // namespace

Status kaldbTableCreate(const KALDBTableInfo& info)
{
    constexpr TraceSource here = tableSource(u"kaldbTableCreate");
    const std::uint32_t flags =
        (info.flags & KALDB_CHAIN_BINARY) != 0 ? info.flags & ~std::uint32_t{KALDB_CHAIN_GUID} : info.flags;
    const bool indexed = (flags & KALDB_CHAIN_GUID) != 0;
    char16_t name[rootNameChars];
    copyChainName(name, info.name);
    if (kaldbChainGetPageManager() == nullptr)
        return KAL_TRACE(here, Status::notOpen, u"could not create table '%s'", name);
    if (indexed && !IndexName::fits(info.name))
        return Status::bufferTooSmall;
    if (Status s = kaldbCreateChain(KALDB_OBJECT_TABLE, name, info.recordSize, flags); failed(s))
        return KAL_TRACE(here, s, u"could not create table '%s'", name);
    KAL_TRACE(here, u"successfully created table '%s'", name);
    if (!indexed)
        return Status::success;
    const IndexName index{name};
    if (Status s = kaldbindexCreate(index.text); failed(s))
        return KAL_TRACE(here, s, u"could not create GUID chain '%s'", index.text);
    KAL_TRACE(here, u"successfully created GUID chain '%s'", index.text);
    return Status::success;
}

Status kaldbTableExists(const char16_t* name, std::uint32_t& exists)
{
    KALDBRootObject object;
    const Status status = kaldbGetRootObject(KALDB_OBJECT_TABLE, name, object);
    if (failed(status) && status != Status::notFound) {
        KAL_TRACE(verbatim,
                  u"kaldbtable: kaldbTableExists() could not retrieve root object for '%s' table [0x%02 - %s]\n", name,
                  kalErrorGetString(code(status)));
        return status;
    }
    exists = ok(status) ? 1 : 0;
    return Status::success;
}

namespace {

constexpr TraceSource opening = tableSource(u"kaldbTableOpen");

Status openIndex(KALDBTable& table)
{
    std::uint32_t flags = 0;
    if (Status s = kaldbChainGetFlags(*table.chain, flags); failed(s))
        KAL_TRACE(tableSource(u"kaldbOpenTable"), s, u"could not retrieve chain flags");
    if ((flags & KALDB_CHAIN_GUID) == 0)
        return Status::success;
    const IndexName name{table.chain->name};
    if (Status s = kaldbIndexOpen(name.text, table.index); failed(s))
        return KAL_TRACE(opening, s, u"could not open index '%s'", name.text);
    KAL_TRACE(opening, u"success opening index '%s'", name.text);
    return Status::success;
}

/// Whether the catalogue has the index, and it can be one.
Status findIndex(const KALDBTable& table, bool& there)
{
    KALDBRootObject object;
    const Status status = kaldbGetRootObject(KALDB_OBJECT_INDEX, IndexName{table.chain->name}.text, object);
    there = ok(status) && object.recordSize == sizeof(KALDBIndexRecord) && (object.flags & KALDB_CHAIN_BINARY) == 0;
    return status == Status::notFound ? Status::success : status;
}

}  // namespace

Status kaldbTableOpen(const char16_t* name, const KALDBChainCallbacks* callbacks, KALDBTable*& table)
{
    Handle<KALDBTable> handle = makeHandle<KALDBTable>("./src/kaldbtable");
    if (!handle) {
        KAL_TRACE(opening, u"could not allocate table data for '%s'", name);
        return Status::outOfMemory;
    }
    KALDBChainCallbacks ours = callbacks != nullptr ? *callbacks : KALDBChainCallbacks{};
    handle->callersIndexUpdate = ours.indexUpdate;
    ours.indexUpdate = kaldbTableIndexUpdate;
    if (Status s = kaldbOpenChain(KALDB_OBJECT_TABLE, name, ours, reinterpret_cast<std::uintptr_t>(handle.get()),
                                  handle->chain);
        failed(s))
        return KAL_TRACE(opening, s, u"could not open table chain for '%s'", name);
    if (!handle->chain->binary() && ours.compare == nullptr) {
        ignore(kaldbCloseChain(handle->chain));
        return Status::invalidArgument;
    }
    ignore(openIndex(*handle));  // an index that cannot be opened does not fail the table's open
    table = handle.release();
    KAL_TRACE(opening, u"success opening table '%s'", name);
    return Status::success;
}

Status reachIndex(KALDBTable& table)
{
    if (table.index != nullptr)
        return reservePendingChanges();
    if (!table.chain->carriesIdentifiers() || !storageIsOpen(*table.chain))
        return Status::success;
    bool there = false;
    if (Status s = findIndex(table, there); failed(s) || !there)
        return s;
    return openIndex(table);
}

Status closeTable(KALDBTable* table)
{
    constexpr TraceSource here = tableSource(u"kaldbTableClose");
    std::array<char16_t, rootNameChars> name{};
    ignore(kaldbChainGetName(*table->chain, name.data(), rootNameChars));
    if (Status s = kaldbCloseChain(table->chain); failed(s)) {
        KAL_TRACE(here, s, u"could not close table '%s'", name.data());
        return s;  // one of the table's own callbacks is asking
    }
    if (table->index != nullptr && ok(kaldbIndexClose(table->index)))
        KAL_TRACE(here, u"successfully closed GUID index for '%s'", name.data());
    KAL_TRACE(here, u"successfully closed table '%s'", name.data());
    Handle<KALDBTable>{table}.reset();
    return Status::success;
}

}  // namespace kaldb
