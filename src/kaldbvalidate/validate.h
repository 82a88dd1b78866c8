// The offline check of a database file, as the storage layer uses it.
#pragma once

#include "common/status.h"

#include <cstdint>

namespace kaldb {

/// What the check of a file's header found. A file is sound when it was read and has no error.
struct ValidateResult {
    bool read = false;         // the file was opened and its header read, whatever the header says
    std::uint32_t errors = 0;  // stays at its greatest value rather than begin anew

    // Why a file is not sound. A failed call leaves its status here and, except for an absent file, says nothing about
    // the file: memory, a descriptor or a permission was missing.
    Status status = Status::success;
    bool absent = false;        // there is no such file
    bool tooShort = false;      // it ends inside the header
    bool dirty = false;         // it is open elsewhere, or was not closed cleanly
    bool sizeMismatch = false;  // its length and the header's page count disagree, or the page size is 0

    bool sound() const { return read && errors == 0; }
    /// The file itself is missing or spoiled, so that a backup may take its place.
    bool spoiled() const { return absent || tooShort || dirty || sizeMismatch; }
};

/// Checks the header against the file: the dirty mark and the page count. Never writes; `path` may be null.
ValidateResult validateHeader(const char16_t* path);

}  // namespace kaldb
