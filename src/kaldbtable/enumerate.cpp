// The list of tables: an enumerator over the root objects of kind table.

#include "common/guard.h"
#include "common/memory.h"
#include "common/trace.h"
#include "kaldbroot/catalogue.h"
#include "kaldbtable/table.h"

#include <cstring>

namespace kaldb {

namespace {

constexpr TraceSource tableSource(const char16_t* operation) { return {u"kaldbtable: ", operation}; }

struct TableEnumContext {
    KALEnumerator* chainEnumerator = nullptr;
};

std::uint32_t tableEnumMoveSequential(KALEnumerator*, void* data, std::uint32_t kind, std::uint32_t*)
{
    constexpr TraceSource here = tableSource(u"tableEnumMoveSequential");
    KALEnumerator* chainEnumerator = static_cast<TableEnumContext*>(data)->chainEnumerator;
    if (kind == KAL_MOVE_FIRST) {
        const Status status = asStatus(kalEnumeratorMoveFirst(chainEnumerator));
        if (failed(status))
            KAL_TRACE(here, status, u"could not move first");
        return code(status);
    }
    if (kind != KAL_MOVE_NEXT)
        return code(Status::notSupported);
    const Status status = asStatus(kalEnumeratorMoveNext(chainEnumerator));
    if (failed(status) && status != Status::endOfEnumeration)
        KAL_TRACE(here, status, u"could not move next");
    return code(status);
}

std::uint32_t tableEnumUnsupported(KALEnumerator*, void*) { return code(Status::notSupported); }

std::uint32_t tableEnumGetItem(KALEnumerator*, void* data, std::uint32_t, void* buffer, std::uint32_t)
{
    constexpr TraceSource here = tableSource(u"tableEnumGetItem");
    KALDBRootObject object{};
    const Status status =
        asStatus(kalEnumeratorGetItem(static_cast<TableEnumContext*>(data)->chainEnumerator, &object, sizeof object));
    if (failed(status))
        return code(KAL_TRACE(here, status, u"could not get item"));
    KALDBTableInfo info{};
    copyChainName(info.name, object.name);
    info.recordSize = object.recordSize;
    info.flags = object.flags;
    std::memcpy(buffer, &info, sizeof info);
    return code(Status::success);
}

std::uint32_t tableEnumFree(KALEnumerator*, void* data)
{
    constexpr TraceSource here{u"kaldbTable: ", u"tableEnumFree"};
    const Handle<TableEnumContext> context{static_cast<TableEnumContext*>(data)};
    const Status status = asStatus(kalEnumeratorFree(context->chainEnumerator));
    if (failed(status))
        KAL_TRACE(here, status, u"could not free enumerator");
    return code(status);
}

Status tableEnumCreate(KALEnumerator* chainEnumerator, KALEnumerator*& enumerator)
{
    constexpr TraceSource here = tableSource(u"tableEnumCreate");
    Handle<TableEnumContext> context = makeHandle<TableEnumContext>("./src/kaldbtable");
    if (!context)
        return Status::outOfMemory;
    constexpr KALEnumeratorCallbacks callbacks = {tableEnumMoveSequential, tableEnumUnsupported, tableEnumGetItem,
                                                  tableEnumFree};
    if (Status s = asStatus(kalEnumeratorCreate(&callbacks, context.get(), &enumerator)); failed(s))
        return KAL_TRACE(here, s, u"could not create enumerator");
    context.release()->chainEnumerator = chainEnumerator;
    return Status::success;
}

}  // namespace

Status enumerateTables(KALEnumerator*& enumerator)
{
    constexpr TraceSource here = tableSource(u"kaldbTableEnumerate");
    KALDBChain* root = nullptr;
    if (Status s = kaldbGetRootChain(root); failed(s))
        return KAL_TRACE(here, s, u"could not retrieve root chain");
    const KALDBRootObject key = rootObjectKey(KALDB_OBJECT_TABLE, u"");
    KALEnumerator* chainEnumerator = nullptr;
    if (Status s = kaldbQueryChainPartialKey(*root, true, &key, compareRootObjectKinds, chainEnumerator); failed(s)) {
        if (s != Status::notFound)
            KAL_TRACE(verbatim, u"kaldbtable: kaldbTableEnumerate() could not enumerate tables [0x%02 - %s]\n",
                      kalErrorGetString(code(s)));
        return s;
    }
    KALEnumerator* made = nullptr;
    if (Status s = tableEnumCreate(chainEnumerator, made); failed(s)) {
        ignore(asStatus(kalEnumeratorFree(chainEnumerator)));
        return s;
    }
    enumerator = made;
    return Status::success;
}

}  // namespace kaldb
