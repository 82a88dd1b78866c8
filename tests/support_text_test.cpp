// The support library without files: conversion, comparison, the formatter and the logs, status texts.

#include "support/log_lines.h"

#include <kallib/kallib.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <functional>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <tuple>

namespace {
bool noMemory = false;
}

// The library's own allocations of this kind, failing on request.
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    using Allocate = void* (*)(std::size_t, const std::nothrow_t&);
    static const auto next = reinterpret_cast<Allocate>(dlsym(RTLD_NEXT, "_ZnamRKSt9nothrow_t"));
    return noMemory ? nullptr : next(size, tag);
}

namespace {

const std::pair<std::string, std::u16string> wellFormed[] = {
    {"", u""},
    {"orders", u"orders"},
    {"\x7F\xC2\x80\xDF\xBF", u"\x7F\x80\x7FF"},
    {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\x800\xD7FF\xE000\xFFFF"},
    {"\xF0\x90\x80\x80-\xF4\x8F\xBF\xBF", u"\xD800\xDC00-\xDBFF\xDFFF"},
};

TEST(Conversion, GoesBothWaysAndFitsExactly)
{
    for (const auto& [narrow, wide] : wellFormed) {
        const auto bytes = static_cast<uint32_t>(narrow.size()), units = static_cast<uint32_t>(wide.size());
        std::u16string toWide(units + 2, u'?');
        EXPECT_EQ(kalMultiByteChars(narrow.c_str()), units);
        EXPECT_EQ(kalMultiByteToWideChar(narrow.c_str(), 0, nullptr, 0), units);
        EXPECT_EQ(kalMultiByteToWideChar(narrow.c_str(), KAL_NUL_TERMINATED, nullptr, 0), units + 1);
        EXPECT_EQ(kalMultiByteToWideChar(narrow.c_str(), KAL_NUL_TERMINATED, toWide.data(), units + 1), units + 1);
        EXPECT_EQ(toWide, wide + u'\0' + u'?');
        // A given length takes no terminator along; room for one less is not enough, and not overrun.
        std::string toNarrow(bytes + 1, '?');
        EXPECT_EQ(kalWideCharToMultiByte(wide.c_str(), KAL_NUL_TERMINATED, nullptr, 0), bytes + 1);
        EXPECT_EQ(kalWideCharToMultiByte(wide.c_str(), units, toNarrow.data(), bytes), bytes);
        EXPECT_EQ(toNarrow, narrow + '?');
        EXPECT_EQ(kalWideCharToMultiByte(wide.c_str(), units + 1, toNarrow.data(), bytes), KAL_CONVERSION_FAILED);
        EXPECT_EQ(toNarrow.back(), '?');
    }
    char16_t two[2];
    EXPECT_EQ(kalMultiByteToWideChar("\0b", 2, two, 2), 2u) << "NULs are converted like the rest";
    EXPECT_EQ(two[1], u'b');
    EXPECT_EQ(kalMultiByteToWideChar("\xF0\x90\x80\x80", 4, two, 1), KAL_CONVERSION_FAILED) << "no half a pair";
}

TEST(Conversion, IllFormedTextFails)
{
    for (const std::string text :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xE2\x82",
          "\xE2\x28\xA1", "\xFE", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF0\x90\x80", "\xF5\x80\x80\x80"}) {
        char16_t wide[8];
        const auto length = static_cast<uint32_t>(text.size());
        EXPECT_EQ(kalMultiByteToWideChar(text.c_str(), KAL_NUL_TERMINATED, wide, 8), KAL_CONVERSION_FAILED) << text;
        EXPECT_EQ(kalMultiByteToWideChar(text.data(), length, nullptr, 0), KAL_CONVERSION_FAILED);
        EXPECT_LE(kalMultiByteChars(text.c_str()), length);
    }
    char bytes[16];
    for (const char16_t* text : {u"\xD800", u"\xDC00", u"\xD800x", u"\xDC00\xD800", u"\xDBFF\xDBFF\xDC00"})
        EXPECT_EQ(kalWideCharToMultiByte(text, KAL_NUL_TERMINATED, bytes, 16), KAL_CONVERSION_FAILED);
    EXPECT_EQ(kalWideCharToMultiByte(u"\xD83D\xDE00", 1, nullptr, 0), KAL_CONVERSION_FAILED) << "cut off by its length";
}

int sign(int32_t order) { return (order > 0) - (order < 0); }

TEST(Comparison, IgnoresCaseOnRequestAndIsAnOrder)
{
    const std::tuple<const char*, const char*, int, int> cases[] = {
        {"", "", 0, 0},
        {"a", "B", 1, -1},
        {"Orders", "oRDERS", -1, 0},
        {"a", "ab", -1, -1},
        {"[", "a", -1, -1},  // between the cases of ASCII
        {"@Z`z{", "@z`Z{", -1, 0},
        {"\xC3\x84\xC3\x97", "\xC3\xA4\xC3\x97", -1, 0},  // a with dots; the multiplication sign
        {"\xC3\x97", "\xC3\xB7", -1, -1},                 // times and division are no pair
        {"\xC3\x9F", "ss", 1, 1},                         // sharp s
        {"\xE1\xBA\x9E", "\xC3\x9F", 1, 0},               // its capital
        {"\xCE\xA3", "\xCF\x82", -1, 0},                  // sigma and final sigma
        {"\xC4\xB0", "i", 1, 1},                          // I with a dot is not i
        {"\xD0\xAF", "\xD1\x8F", -1, 0},                  // Cyrillic
        {"\xC4\x80\xC4\x81", "\xC4\x81\xC4\x80", -1, 0},  // alternating cases
        {"\xE2\x84\xAA", "k", 1, 0},                      // Kelvin
        {"\xF0\x90\x90\x80", "\xF0\x90\x90\xA8", -1, 0},  // Deseret, beyond 16 bits
        {"\xEF\xBF\xBD", "\xF0\x90\x80\x80", -1, -1},     // code points, not UTF-16 units
        {"\xF4\x8F\xBF\xBF", "\x80", 1, -1},              // ill-formed bytes fold above everything
        {nullptr, "", -1, -1},
        {nullptr, nullptr, 0, 0},
    };
    for (const auto& [first, second, exact, folded] : cases) {
        EXPECT_EQ(sign(kalMultiByteCompare(first, second)), exact) << first << " " << second;
        EXPECT_EQ(sign(kalMultiByteCompare(second, first)), -exact);
        EXPECT_EQ(sign(kalMultiByteICompare(first, second)), folded) << first << " " << second;
        EXPECT_EQ(sign(kalMultiByteICompare(second, first)), -folded);
    }
}

/// What reaches standard error when this sink takes the lines.
std::string standardError(KALLogSink sink, const std::function<void()>& action)
{
    kalLogSetSink(sink, nullptr);
    testing::internal::CaptureStderr();
    action();
    kalLogSetSink(nullptr, nullptr);
    return testing::internal::GetCapturedStderr();
}

TEST(Log, FormatsItsConversionsAndNothingElse)
{
    const std::tuple<const char16_t*, uint32_t, std::string> cases[] = {
        {u"%ld", 0, "0"},
        {u"page %ld\n", 0xFFFFFFFF, "page -1\n"},
        {u"%d", 0x80000000, "-2147483648"},
        {u"%lu", 0xFFFFFFFF, "4294967295"},
        {u"%u", 10, "10"},
        {u"0x%02X", 0x0A, "0x0A"},
        {u"0x%02X", 0x2000003, "0x2000003"},
        {u"0x%08X", 0xBEEF, "0x0000BEEF"},
        {u"%09X", 0, "000000000"},
        {u"100% %x %lx %5d %0AX %00X %ls %l %02x %% %u%", 7, "100% %x %lx %5d %0AX %00X %ls %l %02x %% 7%"},
    };
    test::LogLines log;
    for (const auto& [format, value, text] : cases) {
        log.clear();
        EXPECT_EQ(kalDebug(format, value), KAL_SUCCESS);
        EXPECT_EQ(log.of(KAL_LOG_DEBUG), text);
    }
    kalError(u"'%s' and '%s' [0x%02X - %s]", u"a", nullptr, 9u, kalErrorGetString(9));
    kalWarning(u"");
    EXPECT_EQ(log.of(KAL_LOG_ERROR), "'a' and '(null)' [0x09 - input/output error]");
    EXPECT_EQ(log.count(KAL_LOG_WARNING, ""), 1);
}

TEST(Log, LongLinesKeepTheirEndExceptWithoutMemory)
{
    const auto traced = [](std::size_t length) {
        const test::LogLines log;
        kalTrace(u"%s", std::u16string(length, u'y').c_str());
        return log.of(KAL_LOG_TRACE);
    };
    for (const std::size_t length : {510u, 511u, 512u, 513u, 5000u})
        EXPECT_EQ(traced(length), std::string(length, 'y'));
    noMemory = true;
    EXPECT_EQ(traced(2000), std::string(511, 'y'));
    const std::string written = standardError(nullptr, [] { kalError(u"%s", std::u16string(2000, u'z').c_str()); });
    noMemory = false;
    EXPECT_EQ(written, std::string(511, 'z') + '\n');
}

TEST(Log, WithoutASinkErrorsAndWarningsGoToStandardError)
{
    const std::string written = standardError(nullptr, [] {
        kalError(u"\xE9\xD83D\xDE00\xD800!");
        kalWarning(u"line\n");
        kalDebug(u"debug");
        kalTrace(u"trace");
        kalError(u"%s\xE9", std::u16string(3000, u'x').c_str());
    });
    EXPECT_EQ(written, "\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD!\nline\n" + std::string(3000, 'x') + "\xC3\xA9\n");
}

TEST(Log, ASinkMayLogAndThrow)
{
    const KALLogSink chatty = [](uint32_t, const char16_t* text, void*) {
        kalError(u"from the sink: %s", text);
        throw 1;
    };
    const auto logTwice = [] { EXPECT_TRUE(kalDebug(u"one") == KAL_FAILURE && kalDebug(u"two") == KAL_FAILURE); };
    EXPECT_EQ(standardError(chatty, logTwice), "from the sink: one\nfrom the sink: two\n");
}

TEST(StatusText, EveryStatusHasItsOwn)
{
    std::set<std::u16string> texts;
    for (uint32_t status = 0; status < 28; ++status)
        texts.emplace(kalErrorGetString(status));
    for (uint32_t field = 0; field < 10; ++field)
        texts.emplace(kalErrorGetString(0x02000000 + field));
    EXPECT_EQ(texts.size(), 38u);
    EXPECT_EQ(kalErrorGetString(5), std::u16string(u"access denied")) << "in the order of the numbers";
    for (const uint32_t unknown : {28u, 0x0200000Au, 0x03000001u, 0x01000001u, 0xFFFFFFFFu})
        texts.emplace(kalErrorGetString(unknown));
    EXPECT_EQ(texts.size(), 39u) << "the same for all that are unknown";
}

TEST(Handles, NoBytesAreABlockTooAndNoCallbacksNoEnumerator)
{
    const std::unique_ptr<void, decltype(&kalMemFree)> empty{kalMemAllocate(0, "./tests", 1), kalMemFree};
    EXPECT_NE(empty, nullptr);
    const KALEnumeratorCallbacks none{};
    KALEnumerator* enumerator = nullptr;
    EXPECT_EQ(kalEnumeratorCreate(&none, nullptr, &enumerator), KAL_INVALID_ARGUMENT);
}

}  // namespace
