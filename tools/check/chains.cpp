// The chains: their root objects, which pages they reach, the order of their records.

#include "checker.h"

#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace kaldb::tool {

namespace {

/// The order that a chain's records are in; none when only its program knows it.
using Order = std::function<int(Bytes first, Bytes second)>;

int compareRootObjects(Bytes first, Bytes second)
{
    const auto a = readField<KALDBRootObject>(first.data());
    const auto b = readField<KALDBRootObject>(second.data());
    if (a.kind != b.kind)
        return a.kind < b.kind ? -1 : 1;
    const auto name = [](const KALDBRootObject& object) {
        return std::u16string_view{
            object.name, static_cast<std::size_t>(std::find(std::begin(object.name), std::end(object.name), u'\0') -
                                                  std::begin(object.name))};
    };
    return name(a).compare(name(b));
}

int compareIdentifiers(Bytes first, Bytes second)
{
    const auto a = readField<KALDBID>(first.data()).sequence;
    const auto b = readField<KALDBID>(second.data()).sequence;
    return a < b ? -1 : a > b ? 1 : 0;
}

Order compareBytes(std::size_t offset, std::size_t length)
{
    return
        [=](Bytes first, Bytes second) { return std::memcmp(first.data() + offset, second.data() + offset, length); };
}

Order orderOf(const Chain& chain, const Schemas& schemas)
{
    if (chain.object.kind == KALDB_OBJECT_ROOT && chain.object.recordSize == sizeof(KALDBRootObject))
        return compareRootObjects;
    if (chain.object.kind == KALDB_OBJECT_INDEX && chain.object.recordSize == sizeof(KALDBIndexRecord))
        return compareIdentifiers;
    if (chain.table() && chain.name == schemaTableName && chain.object.recordSize == sizeof(SchemaRecord))
        return compareBytes(0, schemaKeyBytes);
    const auto schema = schemas.find(chain.name);
    if (chain.table() && schema != schemas.end())
        return compareBytes(schema->second.keyOffset(), schema->second.keyBytes());
    return {};
}

}  // namespace

void Checker::checkCatalogue()
{
    for (const Damage& damage : open_.catalogue.damages)
        add(Severity::error, damage.page, damage.slot, damage.code.c_str(), damage.text, "ROOT");
    const auto& chains = open_.catalogue.chains;
    if (!chains.empty() && chains.front().object.kind != KALDB_OBJECT_ROOT)
        error(chains.front().page, chains.front().slot, "root.missing",
              "the catalogue does not begin with its own entry");
}

void Checker::checkRootObject(const Chain& chain)
{
    const KALDBRootObject& object = chain.object;
    const auto wrong = [&](const char* code, std::string text) {
        error(chain.page, chain.slot, code, fmt::format("'{}' {}", printable(chain.name), text));
    };
    if (std::find(std::begin(object.name), std::end(object.name), u'\0') == std::end(object.name))
        wrong("root.name", "has a name that does not end");
    if (chain.name.empty())  // which the library allows
        warning(chain.page, chain.slot, "root.name", "a table has an empty name");
    if (object.kind != KALDB_OBJECT_ROOT && object.kind != KALDB_OBJECT_TABLE && object.kind != KALDB_OBJECT_INDEX)
        wrong("root.kind", fmt::format("is of the unknown kind {}", object.kind));
    const std::uint32_t places = chain.binary() ? binaryCapacity(usablePageSize, object.recordSize)
                                                : btreeCapacity(usablePageSize, object.recordSize);
    if (object.recordSize == 0 || places == 0 || (chain.withIds() && object.recordSize < sizeof(KALDBID)))
        wrong("root.size", fmt::format("has records of {} bytes, which cannot be", object.recordSize));
    constexpr std::uint32_t knownFlags = KALDB_CHAIN_BINARY | KALDB_CHAIN_SYSTEM | KALDB_CHAIN_GUID;
    if ((object.flags & ~knownFlags) != 0 || (chain.binary() && chain.withIds()))
        wrong("root.flags", fmt::format("has the flags 0x{:X}, which cannot be", object.flags));
}

void Checker::checkChain(std::size_t number)
{
    const Chain& chain = open_.catalogue.chains[number];
    checkRootObject(chain);
    const std::vector<bool> before = [&] {
        std::vector<bool> owned(owners_.size());
        for (std::size_t page = 0; page < owned.size(); ++page)
            owned[page] = owners_[page] != noOwner;
        return owned;
    }();
    std::vector<bool> met = before;
    walkPages(
        file_, chain.shape(), [](const VisitedPage&) { return true; }, sink(chain), {}, &met);
    for (std::size_t page = 0; page < met.size(); ++page)
        if (met[page] && !before[page])
            owners_[page] = number;

    // A binary chain begins at its first page, a tree at its top; the other of the two lies inside.
    const PageNumber other = chain.binary() ? chain.object.topPage : chain.object.firstPage;
    if (other >= owners_.size() || owners_[other] != number)
        error(chain.page, chain.slot, "root.page",
              fmt::format("'{}' names page {}, which it does not reach", printable(chain.name), other));
    if (!chain.binary())
        checkOrder(chain);
}

void Checker::checkOrder(const Chain& chain)
{
    const Order compare = orderOf(chain, schemas_);
    if (!compare) {
        if (!chain.system())
            add(Severity::note, noPage, noSlot, "order.unknown",
                "the order of its records was not checked: it has no schema", chain.name);
        return;
    }
    std::vector<std::byte> last;
    walkRecords(
        file_, chain.shape(),
        [&](const Record& record) {
            if (!last.empty() && compare(last, record.bytes) >= 0)
                add(Severity::error, record.page, record.slot, "order.records",
                    "does not sort after the record before it", chain.name);
            last.assign(record.bytes.begin(), record.bytes.end());
            return true;
        },
        known);
}

}  // namespace kaldb::tool
