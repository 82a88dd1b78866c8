#include "stored_text.h"

#include <kaldb/varstring.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace kaldb::tool {

bool StoredTexts::read(Bytes field, std::string& text, Damage& damage, const BlockVisitor& block) const
{
    const auto header = readField<KALDBVarString>(field.data());
    const Bytes area = field.subspan(sizeof header);
    text.clear();
    if (header.capacity != area.size()) {
        damage = {noPage, noSlot, "text.capacity",
                  fmt::format("its capacity is {} instead of {}", header.capacity, area.size())};
        return false;
    }
    if (header.length < header.capacity) {
        text.assign(reinterpret_cast<const char*>(area.data()), header.length);
        return true;
    }

    const auto fail = [&](const char* code, std::string what) {
        damage = {header.location.page, header.location.index, code, std::move(what)};
        return false;
    };
    if (table_ == nullptr)
        return fail("text.table", "lies out of line, but the file has no table of texts");
    // Blocks give at least one byte each, so that a list in a circle ends too.
    const std::uint64_t total = std::uint64_t{header.length} + 1;
    PageNumber page = header.location.page;
    SlotIndex slot = header.location.index;
    Page bytes;
    PageNumber loaded = noPage;
    while (text.size() < total) {
        if (page != loaded && !file_.read(page, bytes))
            return fail("text.block", fmt::format("goes on in page {}, which cannot be read", page));
        loaded = page;
        const auto pieces = PiecePage::open(bytes);
        if (!pieces || pieces->header().slotDataSize != table_->object.recordSize || !pieces->holds(slot))
            return fail("text.block", fmt::format("goes on in page {} slot {}, which is no block", page, slot));
        const KALDBBinarySlot piece = pieces->slot(slot);
        if (piece.inUse == 0)
            return fail("text.free", fmt::format("goes on in page {} slot {}, which is free", page, slot));
        const Bytes data = pieces->data(slot);
        if (piece.totalSize != total || piece.length == 0 || piece.length > data.size() ||
            piece.length > total - text.size())
            return fail("text.size", fmt::format("block in page {} slot {} has a wrong size", page, slot));
        if (block && !block(page, slot))
            return fail("text.shared", fmt::format("block in page {} slot {} belongs to another text too", page, slot));
        text.append(reinterpret_cast<const char*>(data.data()), piece.length);
        page = piece.nextPage;
        slot = piece.nextIndex;
    }
    if (page != noPage || text.back() != '\0')
        return fail("text.end", "does not end where its length says");
    text.pop_back();
    return true;
}

}  // namespace kaldb::tool
