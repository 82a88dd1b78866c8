// What the sources of the page manager share and nobody else sees.
#pragma once

#include "common/memory.h"
#include "common/status.h"
#include "common/trace.h"
#include "kalpagemanager/layout.h"

namespace kaldb {

inline constexpr const char* sourceFile = "./src/kalpagemanager";

constexpr TraceSource pageManagerSource(const char16_t* operation) { return {u"kalpagemanager: ", operation}; }

/// Fills the header of a new file and writes it to the empty file.
Status kalPageManagerInitNewFile(KALFile* file, KALPageFileHeader& header);
/// Reads and checks the header of an existing file, which is left as it is; `failure` when a check fails.
Status kalPageManagerInitFromFile(KALFile* file, KALPageFileHeader& header);

/// Names in memory of their own; empty when there is none.
Memory copyName(const char16_t* name);
Memory absoluteName(const char16_t* path);
inline const char16_t* asName(const Memory& name) { return reinterpret_cast<const char16_t*>(name.get()); }

}  // namespace kaldb
