// What a database must show after calls of which some failed: with certainty, or one of several things.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace test {

/// What may be found under a key: each of some values, or nothing.
using Possible = std::set<std::int64_t>;
inline constexpr std::int64_t nothing = -1;

template <class Map>
void keepCommon(Map& mine, const Map& theirs)
{
    std::erase_if(mine, [&theirs](const auto& entry) {
        const auto found = theirs.find(entry.first);
        return found == theirs.end() || found->second != entry.second;
    });
}

/// What the store must show.
struct Contents {
    std::map<std::int64_t, Possible> people;
    std::map<std::int64_t, std::uint64_t> ids;  // of those that got one, with an entry in the index
    std::map<int, std::string> values, texts;

    /// This or the other: that no mixture of the two is found is for the tests of crashes to show.
    void orElse(const Contents& other)
    {
        for (const auto& [key, may] : other.people)
            people.try_emplace(key, Possible{nothing}).first->second.insert(may.begin(), may.end());
        for (auto& [key, may] : people)
            if (other.people.count(key) == 0)
                may.insert(nothing);
        keepCommon(ids, other.ids);
        keepCommon(values, other.values);
        keepCommon(texts, other.texts);
    }
};

}  // namespace test
