// The support library without files: conversion, comparison, the formatter and the logs, status texts, enumerators.

#include <kallib/kallib.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <dlfcn.h>
#include <new>
#include <set>
#include <string>
#include <vector>

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

// ---- conversion

struct Pair {
    std::string narrow;
    std::u16string wide;
};
const Pair wellFormed[] = {
    {"", u""},
    {"orders", u"orders"},
    {"\x7F\xC2\x80\xDF\xBF", u"\x7F\x80\x7FF"},
    {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\x800\xD7FF\xE000\xFFFF"},
    {"\xF0\x90\x80\x80-\xF4\x8F\xBF\xBF", u"\xD800\xDC00-\xDBFF\xDFFF"},
};

TEST(Conversion, GoesBothWaysAndFitsExactly)
{
    for (const auto& [narrow, wide] : wellFormed) {
        const auto bytes = static_cast<uint32_t>(narrow.size());
        const auto units = static_cast<uint32_t>(wide.size());
        EXPECT_EQ(kalMultiByteChars(narrow.c_str()), units);
        EXPECT_EQ(kalMultiByteToWideChar(narrow.c_str(), 0, nullptr, 0), units);
        EXPECT_EQ(kalMultiByteToWideChar(narrow.c_str(), KAL_NUL_TERMINATED, nullptr, 0), units + 1);
        EXPECT_EQ(kalWideCharToMultiByte(wide.c_str(), KAL_NUL_TERMINATED, nullptr, 0), bytes + 1);

        std::u16string toWide(units + 2, u'?');
        EXPECT_EQ(kalMultiByteToWideChar(narrow.c_str(), KAL_NUL_TERMINATED, toWide.data(), units + 1), units + 1);
        EXPECT_EQ(toWide, wide + u'\0' + u'?');
        std::string toNarrow(bytes + 2, '?');
        EXPECT_EQ(kalWideCharToMultiByte(wide.c_str(), KAL_NUL_TERMINATED, toNarrow.data(), bytes + 1), bytes + 1);
        EXPECT_EQ(toNarrow, narrow + '\0' + '?');

        // A given length takes no terminator along; room for one less is not enough, and not overrun.
        std::string exact(bytes + 1, '?');
        EXPECT_EQ(kalWideCharToMultiByte(wide.c_str(), units, exact.data(), bytes), bytes);
        EXPECT_EQ(exact, narrow + '?');
        exact.back() = '!';
        EXPECT_EQ(kalWideCharToMultiByte(wide.c_str(), KAL_NUL_TERMINATED, exact.data(), bytes), KAL_CONVERSION_FAILED);
        EXPECT_EQ(exact.back(), '!');
    }
    char16_t wide[3];
    EXPECT_EQ(kalMultiByteToWideChar("a\0b", 3, wide, 3), 3u) << "NULs are converted like the rest";
    EXPECT_EQ(wide[1], u'\0');
    EXPECT_EQ(wide[2], u'b');
    EXPECT_EQ(kalMultiByteToWideChar("ab", 2, wide, 1), KAL_CONVERSION_FAILED);
    EXPECT_EQ(kalMultiByteToWideChar("\xF0\x90\x80\x80", 4, wide, 1), KAL_CONVERSION_FAILED) << "no half a pair";
    EXPECT_EQ(kalMultiByteToWideChar("a", 1, nullptr, 1), KAL_CONVERSION_FAILED);
    EXPECT_EQ(kalMultiByteToWideChar(nullptr, 1, wide, 3), KAL_CONVERSION_FAILED);
}

TEST(Conversion, IllFormedTextFails)
{
    const std::string narrow[] = {
        "\x80",         "\xC0\x80",         "\xC1\xBF",         "\xC3",         "\xC3(",
        "\xE0\x9F\xBF", "\xED\xA0\x80",     "\xED\xBF\xBF",     "\xE2\x82",     "\xE2\x28\xA1",
        "\xFE",         "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF0\x90\x80", "\xF5\x80\x80\x80",
    };
    for (const std::string& text : narrow) {
        char16_t wide[8];
        EXPECT_EQ(kalMultiByteToWideChar(text.c_str(), KAL_NUL_TERMINATED, wide, 8), KAL_CONVERSION_FAILED) << text;
        EXPECT_EQ(kalMultiByteToWideChar(text.data(), static_cast<uint32_t>(text.size()), nullptr, 0),
                  KAL_CONVERSION_FAILED);
        EXPECT_LE(kalMultiByteChars(text.c_str()), text.size());
    }
    for (const char16_t* text : {u"\xD800", u"\xDC00", u"\xD800x", u"\xDC00\xD800", u"\xDBFF\xDBFF\xDC00"}) {
        char bytes[16];
        EXPECT_EQ(kalWideCharToMultiByte(text, KAL_NUL_TERMINATED, bytes, 16), KAL_CONVERSION_FAILED);
    }
    const char16_t pair[] = u"\xD83D\xDE00";
    EXPECT_EQ(kalWideCharToMultiByte(pair, 1, nullptr, 0), KAL_CONVERSION_FAILED) << "cut off by its length";
}

// ---- comparison

int sign(int32_t order) { return (order > 0) - (order < 0); }

TEST(Comparison, IgnoresCaseOnRequestAndIsAnOrder)
{
    struct Case {
        const char* first;
        const char* second;
        int exact;
        int folded;
    };
    const Case cases[] = {
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

// ---- logs

struct Line {
    uint32_t level;
    std::u16string text;
    bool operator==(const Line&) const = default;
};

class Log : public testing::Test {
protected:
    void SetUp() override { kalLogSetSink(keep, this); }
    void TearDown() override { kalLogSetSink(nullptr, nullptr); }

    static void keep(uint32_t level, const char16_t* text, void* context)
    {
        static_cast<Log*>(context)->lines.push_back({level, text});
    }
    // What reaches standard error meanwhile.
    template <class Action>
    static std::string standardError(Action&& action)
    {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }

    std::vector<Line> lines;
};

TEST_F(Log, FormatsItsConversionsAndNothingElse)
{
    const auto number = [this](const char16_t* format, uint32_t value) {
        lines.clear();
        EXPECT_EQ(kalDebug(format, value), KAL_SUCCESS);
        return lines.empty() ? u"nothing" : lines.front().text;
    };
    EXPECT_EQ(number(u"%ld", 0), u"0");
    EXPECT_EQ(number(u"page %ld\n", 0xFFFFFFFF), u"page -1\n");
    EXPECT_EQ(number(u"%d", 0x80000000), u"-2147483648");
    EXPECT_EQ(number(u"%lu", 0xFFFFFFFF), u"4294967295");
    EXPECT_EQ(number(u"%u", 10), u"10");
    EXPECT_EQ(number(u"0x%02X", 0x0A), u"0x0A");
    EXPECT_EQ(number(u"0x%02X", 0x2000003), u"0x2000003");
    EXPECT_EQ(number(u"0x%08X", 0xBEEF), u"0x0000BEEF");
    EXPECT_EQ(number(u"%09X", 0), u"000000000");
    EXPECT_EQ(number(u"100% %x %lx %5d %0AX %00X %ls %l %02x %% %u%", 7),
              u"100% %x %lx %5d %0AX %00X %ls %l %02x %% 7%");

    lines.clear();
    kalError(u"'%s' and '%s' [0x%02X - %s]", u"a", nullptr, 9u, kalErrorGetString(9));
    kalWarning(u"");
    kalTrace(u"%s", std::u16string(5000, u'x').c_str());
    const std::vector<Line> expected = {{KAL_LOG_ERROR, u"'a' and '(null)' [0x09 - input/output error]"},
                                        {KAL_LOG_WARNING, u""},
                                        {KAL_LOG_TRACE, std::u16string(5000, u'x')}};
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(kalError(nullptr), KAL_INVALID_ARGUMENT);
}

TEST_F(Log, LongLinesKeepTheirEndExceptWithoutMemory)
{
    for (const std::size_t length : {510u, 511u, 512u, 513u}) {
        kalDebug(u"%s", std::u16string(length, u'y').c_str());
        EXPECT_EQ(lines.back().text.size(), length);
    }
    noMemory = true;
    kalDebug(u"%s", std::u16string(2000, u'y').c_str());
    EXPECT_EQ(lines.back().text, std::u16string(511, u'y'));
    kalLogSetSink(nullptr, nullptr);
    const std::string written = standardError([] { kalError(u"%s", std::u16string(2000, u'z').c_str()); });
    noMemory = false;
    EXPECT_EQ(written, std::string(511, 'z') + '\n');
}

TEST_F(Log, WithoutASinkErrorsAndWarningsGoToStandardError)
{
    kalLogSetSink(nullptr, nullptr);
    const std::string written = standardError([] {
        kalError(u"\xE9\xD83D\xDE00\xD800!");
        kalWarning(u"line\n");
        kalDebug(u"debug");
        kalTrace(u"trace");
        kalError(u"%s", std::u16string(3000, u'\x20AC').c_str());
    });
    std::string euros;
    for (int i = 0; i < 3000; ++i)
        euros += "\xE2\x82\xAC";
    EXPECT_EQ(written, "\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD!\nline\n" + euros + '\n');
}

TEST_F(Log, ASinkMayLogAndThrow)
{
    static int calls = 0;
    const KALLogSink chatty = [](uint32_t, const char16_t* text, void*) {
        ++calls;
        kalError(u"from the sink: %s", text);
        throw calls;
    };
    kalLogSetSink(chatty, nullptr);
    const std::string written = standardError([] {
        EXPECT_EQ(kalDebug(u"one"), KAL_FAILURE);
        EXPECT_EQ(kalDebug(u"two"), KAL_FAILURE);
    });
    EXPECT_EQ(written, "from the sink: one\nfrom the sink: two\n");
    EXPECT_EQ(calls, 2);
}

TEST(StatusText, EveryStatusHasItsOwn)
{
    std::set<std::u16string> texts;
    const std::u16string unknown = kalErrorGetString(28);
    for (uint32_t field = 0; field < 10; ++field)
        texts.emplace(kalErrorGetString(0x02000000 + field));
    for (uint32_t status = 0; status < 28; ++status)
        texts.emplace(kalErrorGetString(status));
    EXPECT_EQ(texts.size(), 38u);
    EXPECT_EQ(texts.count(unknown), 0u);
    EXPECT_EQ(kalErrorGetString(5), std::u16string(u"access denied")) << "in the order of the numbers";
    for (const uint32_t status : {0x0200000Au, 0x03000001u, 0x01000001u, 0xFFFFFFFFu})
        EXPECT_EQ(kalErrorGetString(status), unknown);
}

// ---- enumerators, statistics, memory

// Notes every callback as a line of text and answers with `status`.
struct Recorder {
    std::string calls;
    uint32_t status = 0;

    static uint32_t note(void* userData, const std::string& call)
    {
        auto* self = static_cast<Recorder*>(userData);
        self->calls += call + ";";
        return self->status;
    }
    static constexpr KALEnumeratorCallbacks callbacks = {
        [](KALEnumerator*, void* data, uint32_t kind, uint32_t* position) {
            const uint32_t status = note(data, "move " + std::to_string(kind) + " to " + std::to_string(*position));
            if (status == 14)
                --*position;
            return status;
        },
        nullptr,
        [](KALEnumerator*, void* data, uint32_t position, void*, uint32_t size) {
            return note(data, "get " + std::to_string(position) + " into " + std::to_string(size));
        },
        [](KALEnumerator*, void* data) { return note(data, "free"); },
    };
};

TEST(Enumerator, KeepsThePositionAndPassesStatusesThrough)
{
    Recorder recorder;
    KALEnumerator* enumerator = nullptr;
    {
        KALEnumeratorCallbacks temporary = Recorder::callbacks;
        ASSERT_EQ(kalEnumeratorCreate(&temporary, &recorder, &enumerator), KAL_SUCCESS);
        temporary = {};
    }
    char buffer[8];
    void* userData = nullptr;
    EXPECT_EQ(kalEnumeratorGetItem(enumerator, buffer, 3), KAL_SUCCESS);
    kalEnumeratorMoveNext(enumerator);
    kalEnumeratorMoveNext(enumerator);
    recorder.status = 14;
    EXPECT_EQ(kalEnumeratorMoveNext(enumerator), 14u);
    recorder.status = 20;
    EXPECT_EQ(kalEnumeratorGetItem(enumerator, buffer, 8), 20u);
    EXPECT_EQ(kalEnumeratorMoveFirst(enumerator), 20u);
    EXPECT_EQ(kalEnumeratorGetUserData(enumerator, &userData), KAL_SUCCESS);
    EXPECT_EQ(userData, &recorder);
    EXPECT_EQ(kalEnumeratorFree(enumerator), 20u);
    EXPECT_EQ(recorder.calls, "get 0 into 3;move 2 to 1;move 2 to 2;move 2 to 3;get 2 into 8;move 0 to 0;free;");

    KALEnumeratorCallbacks incomplete = Recorder::callbacks;
    incomplete.getItem = nullptr;
    EXPECT_EQ(kalEnumeratorCreate(&incomplete, &recorder, &enumerator), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(enumerator, nullptr);
    EXPECT_EQ(kalEnumeratorMoveFirst(nullptr), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalEnumeratorMoveNext(nullptr), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(kalEnumeratorFree(nullptr), KAL_INVALID_ARGUMENT);
}

TEST(Memory, EveryBlockIsABlock)
{
    void* const empty = kalMemAllocate(0, "./tests", 1);
    EXPECT_NE(empty, nullptr);
    kalMemFree(empty);
    kalMemFree(nullptr);
    kalHandleFree(nullptr);

    const char16_t* const names[] = {u"loads", nullptr};
    KALStats* stats = nullptr;
    ASSERT_EQ(kalStatsInitialize(1, names, &stats), KAL_SUCCESS);
    EXPECT_EQ(kalStatsDeinitialize(stats), KAL_SUCCESS);
    EXPECT_EQ(kalStatsInitialize(2, names, &stats), KAL_INVALID_ARGUMENT);
    EXPECT_EQ(stats, nullptr);
    EXPECT_EQ(kalStatsInitialize(0, nullptr, &stats), KAL_SUCCESS);
    EXPECT_EQ(kalStatsDeinitialize(stats), KAL_SUCCESS);
    EXPECT_EQ(kalStatsDeinitialize(nullptr), KAL_INVALID_ARGUMENT);
}

}  // namespace
