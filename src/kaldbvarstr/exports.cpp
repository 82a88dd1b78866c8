// The exported operations on variable strings: a null pointer is refused, everything else is the library's own side.
#include "kaldbvalue/export_guard.h"
#include "kaldbvarstr/varstring.h"

using kaldb::code;
using kaldb::given;
using kaldb::guarded;
using kaldb::simply;
using kaldb::Status;

uint32_t kaldbVarStringAllocate(uint32_t capacity, KALDBVarString* string)
{
    return simply(string != nullptr, [&] { kaldb::varStringAllocate(capacity, *string); });
}

uint32_t kaldbVarStringCreate(uint32_t capacity, KALDBVarString* string, const char16_t* text)
{
    return given(string != nullptr, [&] { return kaldb::varStringCreate(capacity, *string, text); });
}

uint32_t kaldbVarStringDelete(KALDBVarString* string)
{
    return simply(string != nullptr, [&] { kaldb::varStringDelete(*string); });
}

uint32_t kaldbVarStringSet(KALDBVarString* string, const char16_t* text)
{
    return given(string != nullptr, [&] { return kaldb::varStringSet(*string, text); });
}

uint32_t kaldbVarStringGetLength(const KALDBVarString* string, uint32_t* length)
{
    return simply(string != nullptr && length != nullptr, [&] { *length = string->length; });
}

uint32_t kaldbVarStringGet(const KALDBVarString* string, const char** text)
{
    return simply(string != nullptr && text != nullptr, [&] { *text = kaldb::varStringText(*string); });
}

const char* kaldbVarStringGetPSZ(const KALDBVarString* string)
{
    const char* text = nullptr;
    kaldbVarStringGet(string, &text);
    return text;
}

uint32_t kaldbVarStringCopy(const KALDBVarString* string, char16_t* buffer, uint32_t chars)
{
    return given(string != nullptr, [&] { return kaldb::varStringCopy(*string, buffer, chars); });
}

uint32_t kaldbVarStringDup(KALDBVarString* destination, const KALDBVarString* source)
{
    return given(destination != nullptr && source != nullptr,
                 [&] { return kaldb::varStringDup(*destination, *source); });
}

uint32_t kaldbVarStringCompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result)
{
    return given(first != nullptr && second != nullptr && result != nullptr,
                 [&] { return kaldb::varStringCompare(*first, *second, *result); });
}

uint32_t kaldbVarStringICompare(const KALDBVarString* first, const KALDBVarString* second, int32_t* result)
{
    return given(first != nullptr && second != nullptr && result != nullptr,
                 [&] { return kaldb::varStringICompare(*first, *second, *result); });
}

uint32_t kaldbVarStringIComparePSZ(const KALDBVarString* string, const char16_t* text, int32_t* result)
{
    return given(string != nullptr && text != nullptr && result != nullptr,
                 [&] { return kaldb::varStringIComparePSZ(*string, text, *result); });
}

uint32_t kaldbInitVarStringTable(KALDBDatabase* db)
{
    return guarded([&] { return kaldb::varStringStoreOpen(db); });
}

uint32_t kaldbDeinitVarStringTable(KALDBDatabase*) { return guarded(kaldb::varStringStoreClose); }

uint32_t kaldbVarStringInsertRecord(KALDBVarString* string)
{
    return given(string != nullptr, [&] { return kaldb::varStringInsertRecord(*string); });
}

uint32_t kaldbVarStringGetRecord(KALDBVarString* string)
{
    return given(string != nullptr, [&] { return kaldb::varStringGetRecord(*string); });
}

uint32_t kaldbVarStringDeleteRecord(KALDBVarString* string)
{
    return given(string != nullptr, [&] { return kaldb::varStringDeleteRecord(*string); });
}

uint32_t kaldbVarStringUpdateRecord(KALDBVarString*) { return code(Status::notSupported); }
