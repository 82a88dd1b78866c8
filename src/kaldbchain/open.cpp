// Chain handles.

#include "common/memory.h"
#include "kaldbchain/internal.h"
#include "kaldbroot/catalogue.h"

#include <algorithm>
#include <string>

namespace kaldb {

Status kaldbOpenChain(std::int32_t kind, const char16_t* name, const KALDBChainCallbacks& callbacks,
                      std::uintptr_t context, KALDBChain*& chain)
{
    constexpr TraceSource here = chainSource(u"kaldbOpenChain");
    Handle<KALDBChain> handle = makeHandle<KALDBChain>(chainModule);
    if (!handle) {
        KAL_TRACE(here, u"could not allocate memory for chain data");
        return Status::failure;
    }
    KALDBRootObject object;
    const Status found = kind == KALDB_OBJECT_ROOT ? kaldbGetRootEntry(object) : kaldbGetRootObject(kind, name, object);
    if (failed(found)) {
        if (found != Status::notFound)
            KAL_TRACE(here, found, u"could not open chain for '%s'", name);
        return found;
    }
    handle->kind = kind;
    copyChainName(handle->name, name);
    handle->callbacks = callbacks;
    handle->recordSize = object.recordSize;
    handle->flags = object.flags;
    handle->context = context;
    handle->session = chainStorage().session;
    handle->state = acquireChainState(kind, handle->name);
    if (handle->state != nullptr)
        handle->state->root = object;
    KAL_TRACE(here, u"successfully opened chain for '%s'", handle->name);
    chain = handle.release();
    return Status::success;
}

Status kaldbCloseChain(KALDBChain* chain)
{
    if (ChainOperation::runningOn(*chain))
        return Status::lockConflict;
    chain->closed = true;
    if (chain->enumerators == 0)
        freeChain(chain);
    return Status::success;
}

void freeChain(KALDBChain* chain)
{
    releaseChainState(chain->state);
    Handle<KALDBChain>{chain}.reset();
}

Status kaldbChainGetKind(const KALDBChain& chain, std::uint32_t& kind)
{
    kind = static_cast<std::uint32_t>(chain.kind);
    return Status::success;
}

Status kaldbChainGetName(const KALDBChain& chain, char16_t* buffer, std::uint32_t size)
{
    const std::size_t needed = std::char_traits<char16_t>::length(chain.name) + 1;
    if (needed > size)
        return Status::bufferTooSmall;
    std::copy_n(chain.name, needed, buffer);
    return Status::success;
}

Status kaldbChainGetFlags(const KALDBChain& chain, std::uint32_t& flags)
{
    flags = chain.flags;
    return Status::success;
}

}  // namespace kaldb
