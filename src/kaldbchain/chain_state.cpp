// The states of the open chains.

#include "kaldbchain/chain_state.h"

#include "kaldbchain/internal.h"

#include <algorithm>

namespace kaldb {

namespace {

ChainState* openChains = nullptr;
bool plain = false;

void forget(ChainState& state)
{
    state.session = 0;
    state.root = {};
    state.rootPage = noPage;
    state.order.drop();
    state.pages.drop();
}

}  // namespace

ChainState* findChainState(std::int32_t kind, const char16_t* name)
{
    const KALDBRootObject key = rootObjectKey(kind, name);
    for (ChainState* state = openChains; state != nullptr; state = state->following)
        if (state->kind == kind && state->session == chainStorage().session &&
            std::equal(key.name, key.name + rootNameChars, state->name))
            return state;
    return nullptr;
}

ChainState* acquireChainState(std::int32_t kind, const char16_t* name) noexcept
{
    ChainState* state = findChainState(kind, name);
    if (state == nullptr) {
        Handle<ChainState> made = makeHandle<ChainState>(chainModule);
        if (!made)
            return nullptr;
        made->kind = kind;
        copyChainName(made->name, name);
        made->session = chainStorage().session;
        made->following = openChains;
        state = openChains = made.release();
    }
    ++state->handles;
    return state;
}

void releaseChainState(ChainState* state) noexcept
{
    if (state == nullptr || --state->handles > 0)
        return;
    ChainState** link = &openChains;
    while (*link != state)
        link = &(*link)->following;
    *link = state->following;
    Handle<ChainState>{state}.reset();
}

void forgetChainStates()
{
    for (ChainState* state = openChains; state != nullptr; state = state->following)
        forget(*state);
}

void noteRoomInPage(PageNumber page)
{
    for (ChainState* state = openChains; state != nullptr; state = state->following)
        state->pages.noteRoom(page);
}

void usePlainDescents(bool use)
{
    plain = use;
    for (ChainState* state = openChains; state != nullptr; state = state->following) {
        state->order.drop();
        state->pages.drop();
    }
}

bool plainDescents() { return plain; }

}  // namespace kaldb
