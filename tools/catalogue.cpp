#include "catalogue.h"

#include "text.h"

#include <algorithm>

namespace kaldb::tool {

namespace {

Chain toChain(Bytes record, PageNumber page, SlotIndex slot)
{
    Chain chain;
    chain.object = readField<KALDBRootObject>(record.data());
    chain.page = page;
    chain.slot = slot;
    const char16_t* const name = chain.object.name;
    chain.name = utf8({name, std::find(name, name + rootNameChars, u'\0')});
    return chain;
}

/// The root chain's own entry, in the page that the header names.
std::optional<Chain> findRoot(const PageFile& file)
{
    Page bytes;
    if (!file.read(file.header().startPage, bytes))
        return std::nullopt;
    const auto page = RecordPage::open(bytes);
    if (!page || page->header().itemSize != sizeof(KALDBRootObject))
        return std::nullopt;
    for (SlotIndex slot = 0; page->holds(slot); ++slot) {
        if (!page->inUse(slot))
            continue;
        Chain chain = toChain(page->item(slot), file.header().startPage, slot);
        if (chain.object.kind == KALDB_OBJECT_ROOT && chain.name == "ROOT")
            return chain;
    }
    return std::nullopt;
}

}  // namespace

const Chain* Catalogue::find(std::int32_t kind, std::string_view name) const
{
    const auto found = std::find_if(chains.begin(), chains.end(), [&](const Chain& chain) {
        return chain.object.kind == kind && chain.name == name;
    });
    return found == chains.end() ? nullptr : &*found;
}

Catalogue readCatalogue(const PageFile& file)
{
    Catalogue catalogue;
    // A file that only the page manager has seen has no chains.
    if (file.header().startPage == noPage)
        return catalogue;
    const auto root = findRoot(file);
    if (!root) {
        catalogue.damages.push_back(
            {file.header().startPage, noSlot, "root.missing", "holds no entry of the root chain"});
        return catalogue;
    }
    ChainShape shape = root->shape();
    shape.recordSize = sizeof(KALDBRootObject);
    shape.binary = false;
    walkRecords(
        file, shape,
        [&](const Record& record) {
            catalogue.chains.push_back(toChain(record.bytes, record.page, record.slot));
            return true;
        },
        [&](Damage damage) { catalogue.damages.push_back(std::move(damage)); });
    return catalogue;
}

}  // namespace kaldb::tool
