// What a fuzz target defines, for libFuzzer and for the plain driver.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Small inputs to begin with.
std::vector<std::string> seeds();

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed);
/// Changes some bytes without knowing what they mean: libFuzzer's own, or the driver's.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);
