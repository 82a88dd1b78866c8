// The backup beside the file, its way back, and the question whether a file was closed cleanly.
//
//   file --copy--> file.backup        an old backup waits under a temporary name in the working directory; it comes
//                                     back when the copy fails and goes when it succeeds
#include "kalpagemanager/internal.h"
#include "kalpagemanager/page_manager.h"

#include <atomic>
#include <charconv>
#include <filesystem>
#include <random>
#include <string>

using namespace kaldb;

namespace {

constexpr const char16_t* backupSuffix = u".backup";

/// 16 digits of chance and a number that this process uses once.
std::string uniqueDigits()
{
    static std::atomic<std::uint32_t> used{0};
    std::uint64_t chance = 0;
    try {
        std::random_device device;
        chance = std::uint64_t{device()} << 32 | device();
    } catch (...) {
        chance = std::random_device::max();  // the number and the look at the directory must do
    }
    char digits[17 + 8];
    std::to_chars(digits + 16, std::end(digits), used++, 16);
    return digits;
}

}  // namespace
