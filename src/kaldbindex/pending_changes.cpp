// Changes of identifier indexes that could not be made yet.

#include "kaldbindex/pending_changes.h"

#include "common/memory.h"
#include "kaldbchain/chain.h"

#include <algorithm>

namespace kaldb {

namespace {

/// Several handles may be open on one index, so a change belongs to a name.
struct Node {
    char16_t index[rootNameChars];
    PendingChange change;
    Node* following;
};

Node* pending = nullptr;

bool belongsTo(const Node& node, const KALDBChain& index)
{
    return std::equal(index.name, index.name + rootNameChars, node.index);
}

/// The link that holds the identifier's node, or the end of the list.
Node** findNode(const KALDBChain& index, const KALDBID& id)
{
    Node** link = &pending;
    while (*link != nullptr && !(belongsTo(**link, index) && (*link)->change.locator.id.sequence == id.sequence))
        link = &(*link)->following;
    return link;
}

void dropAt(Node** link)
{
    Node* dropped = *link;
    *link = dropped->following;
    kalMemFree(dropped);
}

}  // namespace

void keepPendingChange(const KALDBChain& index, const KALDBIndexRecord& locator)
{
    Node** link = findNode(index, locator.id);
    if (*link == nullptr) {
        Memory memory = allocateMemory(sizeof(Node), "./src/kaldbindex");
        if (!memory)
            return;
        *link = new (memory.release()) Node{};
        copyChainName((*link)->index, index.name);
    }
    (*link)->change.locator = locator;
}

const PendingChange* findPendingChange(const KALDBChain& index, const KALDBID& id)
{
    const Node* node = *findNode(index, id);
    return node == nullptr ? nullptr : &node->change;
}

bool hasPendingChanges(const KALDBChain& index)
{
    for (const Node* node = pending; node != nullptr; node = node->following)
        if (belongsTo(*node, index))
            return true;
    return false;
}

void settlePendingChanges(KALDBChain& index, Status (*apply)(KALDBChain& index, const KALDBIndexRecord& locator))
{
    for (Node** link = &pending; *link != nullptr;) {
        if (belongsTo(**link, index) && ok(apply(index, (*link)->change.locator)))
            dropAt(link);
        else
            link = &(*link)->following;
    }
}

void dropAllPendingChanges()
{
    while (pending != nullptr)
        dropAt(&pending);
}

}  // namespace kaldb
