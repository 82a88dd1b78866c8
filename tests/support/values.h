// Variants and variable strings as tests hold them: released at the end of the scope, shown as plain text. Copying one
// copies its bytes, as a record does.
#pragma once

#include <kaldb/kaldb.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

namespace test {

inline std::string bracketed(uint32_t status) { return std::string{"["}.append(std::to_string(status)).append("]"); }

/// Bytes that differ from their neighbours.
inline std::string pattern(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>('!' + i % 90);
    return bytes;
}

inline std::u16string widened(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

struct Value {
    KALDBVariant v{};
    std::array<char, 64> tail{};  // room for inline values of up to 72 bytes

    explicit Value(uint32_t inlineSize = 8) { kaldbVariantInitialize(inlineSize, &v); }
    explicit Value(const std::string& bytes, uint32_t type = 21) : Value() { EXPECT_EQ(set(bytes, type), 0u); }
    ~Value() { kaldbVariantDeinitialize(&v); }
    Value(const Value&) = default;
    Value& operator=(const Value&) = default;

    uint32_t set(const std::string& bytes, uint32_t type = 21)
    {
        return kaldbVariantSetBinary(&v, type, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    const void* pointer() const
    {
        const void* data = this;
        EXPECT_EQ(kaldbVariantGetDataPointer(&v, &data), 0u);
        return data;
    }
    bool isInline() const { return pointer() == static_cast<const void*>(v.inlineData); }
    /// The value, or the status of getting it in brackets.
    std::string get(uint32_t room = 10000) const
    {
        std::string bytes(room, '\0');
        const uint32_t status = kaldbVariantGetData(&v, bytes.data(), &room);
        return status == 0 ? bytes.substr(0, room) : bracketed(status);
    }

    // What tests do with both kinds, under the same names as those of Text.
    static constexpr const char16_t* table = u"SysBinary";
    static constexpr uint32_t blockSize = 64, terminator = 0;
    uint32_t store() { return kaldbVariantInsertRecord(&v); }
    uint32_t fetch() { return kaldbVariantGetRecord(&v); }
    uint32_t erase() { return kaldbVariantDeleteRecord(&v); }
    const KALDBIndexRecord& location() const { return v.location; }
    void assign(const std::string& bytes) { EXPECT_EQ(set(bytes), 0u); }
    void clear() { EXPECT_EQ(kaldbVariantEmpty(&v), 0u); }
    std::string content(uint32_t room = 10000) const { return get(room); }
    uint32_t& size() { return v.size; }
    bool takesBlock() const { return v.size >= v.inlineSize; }
    char* handle() { return reinterpret_cast<char*>(v.value) + 8; }
    bool pointsTo(const Value& other) const { return v.data == other.v.data; }
};

struct Text {
    KALDBVarString s{};
    std::array<char, 64> area{};

    explicit Text(uint32_t capacity = 8) { kaldbVarStringAllocate(capacity, &s); }
    Text(uint32_t capacity, const std::u16string& text) : Text(capacity) { EXPECT_EQ(set(text), 0u); }
    ~Text() { kaldbVarStringDelete(&s); }
    Text(const Text&) = default;
    Text& operator=(const Text&) = default;

    uint32_t set(const std::u16string& text) { return kaldbVarStringSet(&s, text.c_str()); }
    uint32_t set(const std::string& ascii) { return set(widened(ascii)); }
    const char* pointer() const { return kaldbVarStringGetPSZ(&s); }
    bool isInline() const { return pointer() == area.data(); }
    /// The text, or the status of getting it in brackets.
    std::u16string get(uint32_t room = 1024) const
    {
        std::u16string text(room, u'\0');
        const uint32_t status = kaldbVarStringCopy(&s, text.data(), room);
        return status == 0 ? text.c_str() : widened(bracketed(status));
    }

    static constexpr const char16_t* table = u"SysVarString";
    static constexpr uint32_t blockSize = 128, terminator = 1;
    uint32_t store() { return kaldbVarStringInsertRecord(&s); }
    uint32_t fetch() { return kaldbVarStringGetRecord(&s); }
    uint32_t erase() { return kaldbVarStringDeleteRecord(&s); }
    const KALDBIndexRecord& location() const { return s.location; }
    void assign(const std::string& ascii) { EXPECT_EQ(set(ascii), 0u); }
    void clear() { EXPECT_EQ(kaldbVarStringSet(&s, nullptr), 0u); }
    std::string content(uint32_t room = 10000) const
    {
        const std::u16string text = get(std::min(s.length, room) + 1);
        return {text.begin(), text.end()};
    }
    uint32_t& size() { return s.length; }
    bool takesBlock() const { return s.length >= s.capacity; }
    char* handle() { return area.data(); }
    bool pointsTo(const Text&) const { return true; }
};

using ValueKinds = testing::Types<Value, Text>;

/// Every byte of an object.
template <class Object>
std::string image(const Object& object)
{
    return {reinterpret_cast<const char*>(&object), sizeof object};
}

}  // namespace test
