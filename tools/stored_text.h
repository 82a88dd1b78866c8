// Texts inside records, and the blocks of those kept out of line.
#pragma once

#include "catalogue.h"

#include <functional>
#include <string>

namespace kaldb::tool {

/// Told of every block that a text uses; false ends the reading.
using BlockVisitor = std::function<bool(PageNumber page, SlotIndex slot)>;

class StoredTexts {
public:
    /// `table` is the chain of the text table, or null when the file has none.
    StoredTexts(const PageFile& file, const Chain* table) : file_(file), table_(table) {}

    /// Reads a text from its header and inline area. On damage false, with the reason in `damage`.
    bool read(Bytes field, std::string& text, Damage& damage, const BlockVisitor& block = {}) const;

private:
    const PageFile& file_;
    const Chain* table_;
};

}  // namespace kaldb::tool
