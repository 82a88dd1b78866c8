// The catalogue's record: building keys, and the two orders in use.

#include "kaldbroot/root_object.h"

#include "common/bytes.h"

#include <cstring>

namespace kaldb {

KALDBID zeroIdentifier()
{
    KALDBID id;
    std::memset(&id, 0xFF, sizeof id);
    return id;
}

KALDBIndexRecord emptyLocator()
{
    return {.id = zeroIdentifier(), .page = noPage, .index = noSlot, .alignment = 0xFFFF};
}

void copyChainName(char16_t (&destination)[rootNameChars], const char16_t* source)
{
    std::size_t i = 0;
    for (; i + 1 < rootNameChars && source[i] != u'\0'; ++i)
        destination[i] = source[i];
    for (; i < rootNameChars; ++i)
        destination[i] = u'\0';
}

KALDBRootObject rootObjectKey(std::int32_t kind, const char16_t* name)
{
    KALDBRootObject key{};
    key.kind = kind;
    copyChainName(key.name, name);
    return key;
}

std::int32_t compareRootObjectKinds(const void* probe, const void* stored)
{
    const auto first = readField<std::int32_t>(probe, offsetof(KALDBRootObject, kind));
    const auto second = readField<std::int32_t>(stored, offsetof(KALDBRootObject, kind));
    return first < second ? -1 : first > second ? 1 : 0;
}

std::int32_t compareRootObjects(const void* probe, const void* stored)
{
    if (const std::int32_t order = compareRootObjectKinds(probe, stored); order != 0)
        return order;
    for (std::size_t i = 0; i < rootNameChars; ++i) {
        const std::size_t offset = offsetof(KALDBRootObject, name) + i * sizeof(char16_t);
        const auto first = readField<char16_t>(probe, offset);
        const auto second = readField<char16_t>(stored, offset);
        if (first != second)
            return first < second ? -1 : 1;
        if (first == u'\0')
            break;
    }
    return 0;
}

}  // namespace kaldb
