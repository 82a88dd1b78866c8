// The text of every status of the code space, for log lines and traces.
#include <kallib/kallib.h>

#include <iterator>

namespace {

constexpr const char16_t* unknown = u"unknown status";

// By number.
constexpr const char16_t* statusTexts[] = {
    u"success",
    u"general failure",
    u"backup failed",
    u"database not open",
    u"invalid argument",
    u"access denied",
    u"not applicable",
    u"out of memory",
    u"short read",
    u"input/output error",
    u"no space left",
    u"page is empty",
    u"full",
    u"file not found",
    u"end of enumeration",
    u"end of file",
    u"not found",
    u"already exists",
    u"lock conflict",
    u"buffer too small",
    u"not supported",
    u"file in use",
    u"name too long",
    u"not a regular file",
    u"text conversion failed",
    u"too many open files",
    u"damage found",
    u"no free slot",
};
static_assert(std::size(statusTexts) == 28);

// By the low 16 bits of a status whose high 8 bits are 2.
constexpr const char16_t* fieldTexts[] = {
    u"field accepted",       u"field refused",        u"field value out of range", u"field required",
    u"field is null",        u"invalid relationship", u"invalid field format",     u"field value too short",
    u"field value too long", u"invalid field value",
};

}  // namespace

extern "C" const char16_t* kalErrorGetString(uint32_t status)
{
    if (status < std::size(statusTexts))
        return statusTexts[status];
    const uint32_t field = status & 0xFFFFu;
    return status >> 24 == 2 && field < std::size(fieldTexts) ? fieldTexts[field] : unknown;
}
