// Which chain operations are running, so that a callback cannot change the chain that it is called for.

#include "kaldbchain/internal.h"

#include <algorithm>

namespace kaldb {

ChainOperation* ChainOperation::innermost_ = nullptr;

bool sameChain(const KALDBChain& first, const KALDBChain& second)
{
    return &first == &second ||
           (first.kind == second.kind && std::equal(first.name, first.name + rootNameChars, second.name));
}

ChainOperation::ChainOperation(const KALDBChain& chain, Purpose purpose)
    : chain_(chain), state_(chain.state), outer_(innermost_)
{
    if (!storageIsOpen(chain) || chain.closed)
        status_ = Status::notOpen;
    else if (purpose == Purpose::change && runningOn(chain))
        status_ = Status::lockConflict;
    else
        status_ = Status::success;
    innermost_ = this;
    if (state_ != nullptr)
        ++state_->running;
}

ChainOperation::~ChainOperation()
{
    innermost_ = outer_;
    if (state_ != nullptr)
        --state_->running;
}

bool ChainOperation::runningOn(const KALDBChain& chain)
{
    // The root chain's callbacks are our own and its operations nest: it is never in its own way.
    if (chain.kind == KALDB_OBJECT_ROOT)
        return false;
    for (const ChainOperation* running = innermost_; running != nullptr; running = running->outer_)
        if (sameChain(running->chain_, chain))
            return true;
    return false;
}

bool storageIsOpen(const KALDBChain& chain) { return chainStorage().up() && chain.session == chainStorage().session; }

bool insideChainOperation() { return ChainOperation::anyRunning(); }

bool WalkBound::step() { return ++steps_ <= std::uint64_t{way_} * chainStorage().pageManager->loadablePages(); }

}  // namespace kaldb
