// The texts of the codes with which a constraint check refuses a record.

#include <kaldb/database.h>

#include <array>

namespace {

constexpr std::array<const char16_t*, 10> fieldTexts = {
    u"Success",
    u"Failure",
    u"Field value out of range",
    u"Field required",
    u"Field NULL",
    u"Invalid relationship",
    u"Invalid field format",
    u"Field value too short",
    u"Field value too long",
    u"Invalid field value",
};

}  // namespace

extern "C" const char16_t* kaldbGetErrorString(uint32_t code)
{
    constexpr uint32_t fieldFamily = KALDB_FIELD_SUCCESS >> 24;
    const uint32_t index = code & 0xFFFF;
    if (code >> 24 != fieldFamily || index >= fieldTexts.size())
        return u"Unknown";
    return fieldTexts[index];
}
