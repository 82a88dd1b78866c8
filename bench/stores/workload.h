// The records of the comparison, made from their numbers whenever one is needed, and the orders in which they are used.
#pragma once

#include "store.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

namespace bench {

constexpr std::uint32_t groupSize = 100;  // records that share the first 8 bytes of their keys
constexpr std::size_t prefixSize = 8;

inline void putBigEndian(std::uint64_t value, char* to)
{
    value = __builtin_bswap64(value);
    std::memcpy(to, &value, sizeof value);
}

inline std::uint64_t scattered(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

/// Group, place in the group, and 8 bytes of chance: keys sort as their numbers do.
inline void makeKey(std::uint32_t number, char* key)
{
    putBigEndian(number / groupSize, key);
    putBigEndian(number % groupSize, key + 8);
    putBigEndian(scattered(number) | 1, key + 16);
}

/// A key right before that of the record.
inline void makeMissingKey(std::uint32_t number, char* key)
{
    makeKey(number, key);
    key[23] = static_cast<char>(key[23] & ~1);
}

/// Another one after each update.
inline void makePayload(std::uint32_t number, std::uint32_t updates, char* payload)
{
    const std::uint64_t seed = scattered((std::uint64_t{updates} << 32) + number + 1);
    for (std::size_t i = 0; i < sizeof(Record::payload) / sizeof seed; ++i) {
        const std::uint64_t word = seed * (2 * i + 1);
        std::memcpy(payload + i * sizeof word, &word, sizeof word);
    }
}

class Workload {
public:
    Workload(std::uint32_t count, bool inOrder, std::uint32_t seed)
        : loading(inNumbers(count)), places(count), visits(inNumbers(count))
    {
        std::mt19937 random{seed};
        if (!inOrder)
            std::shuffle(loading.begin(), loading.end(), random);
        for (std::uint32_t i = 0; i < count; ++i)
            places[loading[i]] = i;
        std::shuffle(visits.begin(), visits.end(), random);
        for (std::uint32_t group = 0; group < count / groupSize; ++group)
            groups.push_back(group);
        std::shuffle(groups.begin(), groups.end(), random);
    }

    Record record(const Store& store, std::uint32_t number, std::uint32_t updates) const
    {
        Record record;
        store.identify(places[number], record.id);
        makeKey(number, record.key);
        makePayload(number, updates, record.payload);
        return record;
    }

    std::vector<std::uint32_t> loading;  // numbers as they are inserted
    std::vector<std::uint32_t> places;   // of each number there
    std::vector<std::uint32_t> visits;   // numbers as they are looked for
    std::vector<std::uint32_t> groups;   // as they are looked for

private:
    static std::vector<std::uint32_t> inNumbers(std::uint32_t count)
    {
        std::vector<std::uint32_t> numbers(count);
        std::iota(numbers.begin(), numbers.end(), 0U);
        return numbers;
    }
};

inline bool same(const View& found, const Record& expected)
{
    return std::memcmp(found.key, expected.key, sizeof expected.key) == 0 &&
           std::memcmp(found.id, expected.id, sizeof expected.id) == 0 &&
           std::memcmp(found.payload, expected.payload, sizeof expected.payload) == 0;
}

}  // namespace bench
