// Page files built and read byte by byte, independent of the library's structures.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

namespace test {

inline std::string u32(uint32_t value)
{
    std::string bytes(4, '\0');
    for (unsigned i = 0; i < 4; ++i)
        bytes[i] = static_cast<char>(value >> (8 * i));
    return bytes;
}

inline uint32_t u32At(const std::string& bytes, std::size_t offset)
{
    uint32_t value = 0;
    for (unsigned i = 4; i-- > 0;)
        value = value << 8 | static_cast<uint8_t>(bytes.at(offset + i));
    return value;
}

/// The 92 bytes at the head of a page file.
inline std::string fileHeader(uint32_t pages, uint32_t startPage = 0xFFFFFFFF, uint32_t flags = 0)
{
    return std::string("PMR\0", 4) + std::string(64, '\0') + u32(92) + u32(2048) + u32(pages) + u32(startPage) +
           u32(1) + u32(flags);
}

/// A page of 2048 bytes; the body is filled up with zeros.
inline std::string page(uint32_t number, uint32_t references, uint32_t flags, uint32_t lastUsed, std::string body)
{
    body.resize(2020);
    return u32(28) + std::string("PGE\0", 4) + u32(number) + u32(references) + u32(flags) + u32(lastUsed) + u32(0) +
           body;
}

/// A page as formatting leaves it.
inline std::string formattedPage() { return page(0xFFFFFFFF, 0, 4, 0, ""); }

/// The image with every page's time of creation set to 0.
inline std::string withoutTimes(std::string file)
{
    for (std::size_t at = 92; at + 28 <= file.size(); at += 2048)
        file.replace(at + 20, 4, 4, '\0');
    return file;
}

/// Where two images differ, instead of all their bytes.
inline testing::AssertionResult same(const std::string& found, const std::string& expected)
{
    if (found == expected)
        return testing::AssertionSuccess();
    const auto differ = std::mismatch(found.begin(), found.end(), expected.begin(), expected.end());
    return testing::AssertionFailure() << found.size() << " bytes found, " << expected.size()
                                       << " expected; the first difference is at offset "
                                       << differ.first - found.begin();
}

inline bool isDirty(const std::string& file) { return file.size() < 92 || (u32At(file, 88) & 1) != 0; }
/// As long as its header says, and every page in its place.
inline bool isComplete(const std::string& file)
{
    if (file.size() < 92 || file.size() != 92 + std::size_t{u32At(file, 76)} * 2048)
        return false;
    for (uint32_t n = 0; n < u32At(file, 76); ++n)
        if (u32At(file, 92 + std::size_t{n} * 2048 + 8) != n)
            return false;
    return true;
}

}  // namespace test
