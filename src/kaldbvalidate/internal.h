// What the files of the validator share.
//
//   kaldbValidateFile   -> dbValidateFile  (header.cpp)
//   kaldbValidatePages  -> dbCheckPages    (pages.cpp) -> dbValidatePageType, dbCheckLinks (links.cpp)
//
// The file is whatever a caller points at. Nothing of it is used as an index, a length or a divisor before it has been
// held against the bytes really there.
#pragma once

#include "common/status.h"
#include "common/trace.h"
#include "kaldbchain/layout.h"
#include "kaldbvalidate/validate.h"
#include "kalpagemanager/layout.h"

#include <kallib/kallib.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace kaldb {

constexpr TraceSource validateSource(const char16_t* operation) { return {u"kaldbvalidate: ", operation}; }

inline constexpr std::uint32_t validatePrintPages = 0x1;

/// The file under examination, opened for reading and closed with the run.
class ExaminedFile {
public:
    ExaminedFile() = default;
    ExaminedFile(const ExaminedFile&) = delete;
    ExaminedFile& operator=(const ExaminedFile&) = delete;
    ~ExaminedFile();

    Status open(const char16_t* path);
    Status size(std::uint64_t& size) const { return asStatus(kalFileGetSize(file_, &size)); }
    Status seek(std::uint64_t offset) const { return asStatus(kalFileSeek(file_, offset)); }
    /// Reads until `buffer` is full or the file ends; `length` is what was read.
    Status read(std::span<std::byte> buffer, std::size_t& length) const;

private:
    KALFile* file_ = nullptr;
};

/// The working record of one run.
struct KALDBValidateContext {
    ExaminedFile file;
    KALPageFileHeader header{};  // the page count may be corrected to what the file holds
    std::uint32_t options = 0;   // validatePrintPages
    ValidateResult result;

    void addErrors(std::uint32_t count = 1);
};

/// Opens the file and reads its header, then runs `check` on it; counts and traces what fails.
void validateFile(const char16_t* path, KALDBValidateContext& context, void (*check)(KALDBValidateContext&));

void dbValidateFile(KALDBValidateContext& context);
void dbCheckPages(KALDBValidateContext& context);

/// A page's children and parent. A page that could not be read takes no part in the link checks.
struct CheckedLinks {
    PageNumber parent;
    PageNumber prev;
    PageNumber next;
    std::uint32_t read;
};

/// `links` covers the pages that the file holds; links to pages from `pagesInFile` on lead nowhere.
void dbCheckLinks(KALDBValidateContext& context, std::span<const CheckedLinks> links);

/// The bytes of a page behind the links, where its typed page lies.
using TypedPage = std::span<const std::byte, typedPageSize>;

bool dbValidateBTreePage(TypedPage page);
bool dbValidateBinaryPage(TypedPage page);

void printPageLinks(const KALDBPageLinks& links);
void dbTracePageHeader(const KALPageHeader& header);

}  // namespace kaldb
