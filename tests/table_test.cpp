// Tables as a server uses them: keys, identifiers, partial keys and walks against a model, with reopenings between.

#include "support/database.h"

#include <map>
#include <random>

namespace {

using test::Database;
using test::Record;
using test::Table;

struct Kept {
    std::int64_t value;
    KALDBID id;
};

class TableModel : public testing::TestWithParam<std::tuple<std::uint32_t, std::uint32_t>> {};

TEST_P(TableModel, RandomOperationsAgreeWithAMap)
{
    const auto [recordSize, cacheBytes] = GetParam();
    Database database{cacheBytes};
    Table table{database, u"Records", recordSize};
    std::map<std::int64_t, Kept> model;
    std::map<std::uint64_t, std::int64_t> byID;
    std::mt19937 random{recordSize + cacheBytes};
    const auto draw = [&](int below) { return std::uniform_int_distribution<int>{0, below - 1}(random); };

    for (int step = 0; step < 2500; ++step) {
        const std::int64_t key = draw(2000);
        const auto there = model.find(key);
        const int action = draw(100);
        if (action < 45) {
            KALDBID id{};
            const std::uint32_t status = table.insert(key, step, &id);
            ASSERT_EQ(status, there == model.end() ? 0U : test::alreadyExists) << step;
            if (status == 0) {
                ASSERT_TRUE(byID.emplace(id.sequence, key).second) << "an identifier handed out twice";
                model[key] = {step, id};
            }
        } else if (action < 60) {
            ASSERT_EQ(table.remove(key), there == model.end() ? test::notFound : 0U) << step;
            if (there != model.end()) {
                byID.erase(there->second.id.sequence);
                model.erase(there);
            }
        } else if (action < 65 && there != model.end()) {
            ASSERT_EQ(kaldbTableDeleteRecordByID(table.handle(), &there->second.id), 0U) << step;
            byID.erase(there->second.id.sequence);
            model.erase(there);
        } else if (action < 75) {
            ASSERT_EQ(table.update(key, step, there == model.end() ? KALDBID{} : there->second.id),
                      there == model.end() ? test::notFound : 0U);
            if (there != model.end())
                there->second.value = step;
        } else if (action < 90) {
            Record found;
            ASSERT_EQ(table.find(key, &found), there == model.end() ? test::notFound : 0U) << step;
            if (there != model.end()) {
                ASSERT_EQ(found.value, there->second.value);
                ASSERT_EQ(table.findByID(there->second.id, found), 0U);
                ASSERT_EQ(found.key, key);
            }
        } else if (action < 98) {
            std::vector<std::int64_t> expected;
            for (auto at = model.lower_bound(key / 100 * 100); at != model.end() && at->first / 100 == key / 100; ++at)
                expected.push_back(at->first);
            ASSERT_EQ(table.matches(key), expected) << step;
        } else if (action == 98) {
            const std::vector<char> probe = table.make(key, 0);
            ASSERT_EQ(kaldbTableDeletePartialPK(table.handle(), probe.data(), test::byHundred), 0U);
            while (!model.empty()) {
                const auto at = model.lower_bound(key / 100 * 100);
                if (at == model.end() || at->first / 100 != key / 100)
                    break;
                Record gone;
                ASSERT_EQ(table.findByID(at->second.id, gone), test::notFound);
                byID.erase(at->second.id.sequence);
                model.erase(at);
            }
        } else if (draw(10) == 0) {
            table.reopen(database);
        }
        ASSERT_TRUE(Database::holdsNothing()) << step;
    }
    std::vector<std::int64_t> expected;
    for (const auto& [key, kept] : model)
        expected.push_back(key);
    EXPECT_EQ(table.allKeys(), expected);
    for (const auto& [sequence, key] : byID) {
        Record found;
        ASSERT_EQ(table.findByID(model[key].id, found), 0U);
        ASSERT_EQ(found.key, key);
        ASSERT_EQ(found.id.sequence, sequence);
    }
    table.close();
    EXPECT_EQ(database.close(), 0U);
    EXPECT_EQ(test::readFile(database.file()), test::readFile(database.backup()));
    database.open();
}

INSTANTIATE_TEST_SUITE_P(SizesAndCaches, TableModel,
                         testing::Values(std::tuple{32U, 1U << 20}, std::tuple{120U, 0U}, std::tuple{650U, 64U << 10},
                                         std::tuple{1200U, 1U << 20}));

}  // namespace
