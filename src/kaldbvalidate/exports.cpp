// The exported operations. Their result is no status: 1 says that the file could be read.

#include "common/guard.h"
#include "kaldbvalidate/internal.h"

#include <kaldb/validate.h>

namespace kaldb {
namespace {

/// Runs a check. One that a log sink ended by throwing counts as a file that could not be read.
template <class Check>
std::uint32_t answer(Check&& check, std::uint32_t* errors)
{
    ValidateResult result;
    if (guarded([&] { return check(result), Status::success; }) != KALDB_SUCCESS)
        result = {.read = false, .errors = 1};
    if (errors != nullptr)
        *errors = result.errors;
    return result.read ? 1 : 0;
}

ValidateResult validatePages(const char16_t* path)
{
    KALDBValidateContext context;
    context.options = validatePrintPages;
    validateFile(path, context, dbCheckPages);
    return context.result;
}

}  // namespace
}  // namespace kaldb

extern "C" std::uint32_t kaldbValidateFile(const char16_t* path, std::uint32_t, std::uint32_t* errors)
{
    return kaldb::answer([&](kaldb::ValidateResult& result) { result = kaldb::validateHeader(path); }, errors);
}

extern "C" std::uint32_t kaldbValidatePages(const char16_t* path, std::uint32_t, std::uint32_t* errors)
{
    return kaldb::answer([&](kaldb::ValidateResult& result) { result = kaldb::validatePages(path); }, errors);
}
