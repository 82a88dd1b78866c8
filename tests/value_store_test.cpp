// The stores of long values: their blocks, a model of what is stored, damaged lists, and failures everywhere.
#include "support/database.h"
#include "support/faults.h"
#include "support/values.h"

#include <functional>
#include <vector>

namespace {

using test::pattern;
using test::Text;
using test::Value;

/// A block of a stored value, as its table has it.
struct Block {
    KALDBIndexRecord place{};
    KALDBBinaryRecord fields{};
    std::array<char, 2048> bytes{};

    uint32_t read(KALDBTable* table)
    {
        fields.data = bytes.data();
        return kaldbBinaryTableGetRecord(table, &place, &fields);
    }
    void link(uint32_t page, uint16_t slot)
    {
        fields.nextPage = page;
        fields.nextIndex = slot;
    }
};

/// `Kind` is Value or Text. The cache is the smallest, of four pages.
template <class Kind>
class Store : public testing::Test {
protected:
    ~Store() override
    {
        EXPECT_EQ(database.close(), 0u);
        EXPECT_EQ(faults::liveBlocks(), 0u);
    }

    void reopen()
    {
        EXPECT_EQ(database.close(), 0u);
        database.open();
    }
    std::vector<Block> blocks(const Kind& value)
    {
        const test::Table table{database, Kind::table, Kind::blockSize};
        std::vector<Block> list;
        for (Block block{value.location()}; block.place.page != KALDB_NO_PAGE;) {
            EXPECT_EQ(block.read(table.handle()), 0u);
            list.push_back(block);
            block.place.page = block.fields.nextPage;
            block.place.index = block.fields.nextIndex;
        }
        return list;
    }
    void write(Block block)
    {
        const test::Table table{database, Kind::table, Kind::blockSize};
        block.fields.data = block.bytes.data();
        EXPECT_EQ(kaldbBinaryTableUpdateRecord(table.handle(), &block.place, &block.fields), 0u);
    }
    /// Slots in use in all pages of the table.
    long blocksInUse()
    {
        const test::Table table{database, Kind::table, Kind::blockSize};
        uint32_t pages = 0;
        EXPECT_EQ(kalPageManagerGetPageCount(kaldb::kaldbChainGetPageManager(), &pages), 0u);
        long count = 0;
        Block block;
        for (block.place.page = 0; block.place.page < pages; ++block.place.page)
            for (block.place.index = 0; block.read(table.handle()) == 0; ++block.place.index)
                count += block.fields.totalSize != 0 ? 1 : 0;
        return count;
    }

    test::Database database{0};
};
TYPED_TEST_SUITE(Store, test::ValueKinds, );

// In the table there are whole blocks and a last one with the rest. What comes out of a record in another session reads
// them, and erasing leaves nothing over.
TYPED_TEST(Store, ValuesAreCutIntoBlocksAndComeBackUntilTheyAreErased)
{
    std::vector<TypeParam> records;  // as callers have them: bytes without memory of their own
    for (uint32_t length = 0; length <= 400; ++length) {
        const uint32_t size = length + TypeParam::terminator, notShort = length < 8 ? 6 : 0;
        uint32_t rest = length < 8 ? 0 : size;
        TypeParam value;
        value.assign(pattern(length));
        ASSERT_EQ(value.store(), notShort);
        for (const Block& block : this->blocks(value)) {
            ASSERT_EQ(block.fields.totalSize, size);
            ASSERT_EQ(block.fields.length, std::min(rest, TypeParam::blockSize));
            rest -= block.fields.length;
        }
        ASSERT_EQ(rest, 0u);
        ASSERT_EQ(value.fetch(), notShort) << "over its own block";
        records.push_back(value);
    }
    this->reopen();
    for (uint32_t i = 0; i < records.size(); ++i) {
        const uint32_t length = i * 7 % 401;
        TypeParam value = records[length];
        ASSERT_EQ(value.fetch(), length < 8 ? 6u : 0u);
        ASSERT_EQ(value.erase(), length < 8 ? 6u : 0u);
        ASSERT_EQ(value.erase(), length < 8 ? 6u : 1u) << "its blocks are gone";
        ASSERT_EQ(value.content(), pattern(length));
    }
    EXPECT_EQ(this->blocksInUse(), 0);
}

using Values = Store<Value>;
TEST_F(Values, WhatCanBeStoredAndWhatIsNotOpen)
{
    using Statuses = std::array<uint32_t, 3>;
    const auto statuses = [](auto& value) { return Statuses{value.store(), value.fetch(), value.erase()}; };
    Value id, wide, large{pattern(100)};
    const KALDBID any{};
    kaldbVariantSetID(&id.v, &any);
    kaldbVariantSetString(&wide.v, KALDB_VT_WSTRING, u"€, in multibyte form");
    Text text{8, u"a text in a block"}, cramped = text;
    cramped.s.capacity = 3;

    EXPECT_EQ(statuses(id), (Statuses{1, 1, 1}));
    for (const uint32_t type : {15u, 16u}) {
        Value nothing{0};
        nothing.set("", type);
        EXPECT_EQ(statuses(nothing), (Statuses{type == 16 ? 0u : 1u, 6, 6})) << "neither inline nor in blocks";
        EXPECT_TRUE(kaldbVariantAllocate(&nothing.v) == 0 && nothing.v.location.page == KALDB_NO_PAGE);
    }
    EXPECT_EQ(statuses(wide), (Statuses{0, 0, 0}));
    for (const uint32_t type : {15u, 16u, 18u, 19u, 20u, 21u}) {
        Value value{pattern(100), type};
        EXPECT_EQ(statuses(value), type == 15 || type == 19 ? (Statuses{1, 1, 1}) : (Statuses{0, 0, 0})) << type;
        EXPECT_EQ(value.get(), pattern(100));
    }
    EXPECT_EQ(cramped.fetch(), 19u);

    EXPECT_EQ(kaldbInitBinaryTable(database.handle()), 0u) << "open already";
    EXPECT_EQ(kaldbDeinitBinaryTable(database.handle()) + kaldbDeinitVarStringTable(database.handle()), 0u);
    EXPECT_TRUE(statuses(large) == (Statuses{3, 3, 3}) && statuses(text) == (Statuses{3, 3, 3}));
}

// Each list of three blocks; how many blocks are sound before the damage.
TYPED_TEST(Store, DamagedListsAreRefused)
{
    using List = const std::vector<Block>&;
    struct Damage {
        const char* what;
        size_t block;
        long sound;
        void (*edit)(Block& block, List list);
    };
    for (const Damage& damage : {
             Damage{"total of the first", 0, 0, [](Block&b, List) { b.fields.totalSize = UINT32_MAX; }},
             Damage{"total of the second", 1, 1, [](Block&b, List) { ++b.fields.totalSize; }},
             Damage{"no bytes", 1, 1, [](Block&b, List) { b.fields.length = 0; }},
             Damage{"more bytes than remain", 2, 2, [](Block&b, List) { ++b.fields.length; }},
             Damage{"fewer bytes than remain", 2, 2, [](Block&b, List) { --b.fields.length; }},
             Damage{"ends early", 1, 1, [](Block&b, List) { b.fields.nextPage = KALDB_NO_PAGE; }},
             Damage{"leads nowhere", 0, 1, [](Block&b, List) { b.fields.nextPage = 77777; }},
             Damage{"goes on", 2, 2, [](Block&b, List list) { b.link(list[0].place.page, list[0].place.index); }},
             Damage{"round and round", 1, 2,
                    [](Block&b, List list) {
                        b.fields.length = 1;
                        b.link(list[1].place.page, list[1].place.index);
                    }},
             Damage{"no terminator", 2, 3, [](Block&b, List) { b.bytes[b.fields.length - 1] = '!'; }},
         }) {
        SCOPED_TRACE(damage.what);
        TypeParam value;
        value.assign(pattern(2 * TypeParam::blockSize + 12));
        ASSERT_EQ(value.store(), 0u);
        const std::vector<Block> list = this->blocks(value);
        ASSERT_EQ(list.size(), 3u);
        Block changed = list[damage.block];
        damage.edit(changed, list);
        this->write(changed);
        const size_t live = faults::liveBlocks();
        const bool refused = damage.sound < 3 || TypeParam::terminator != 0;
        EXPECT_EQ(value.fetch(), refused ? 1u : 0u);
        EXPECT_EQ(value.pointer() == nullptr, refused);
        EXPECT_EQ(faults::liveBlocks(), live - refused) << "what was read is freed, and the value's earlier block";
        const long before = this->blocksInUse();
        EXPECT_EQ(value.erase(), damage.sound < 3 ? 1u : 0u);
        EXPECT_EQ(before - this->blocksInUse(), damage.sound);
    }
    // A ring of one byte under a huge size is noticed at once, not after as many rounds.
    TypeParam value;
    value.assign(pattern(20));
    ASSERT_EQ(value.store(), 0u);
    Block block = this->blocks(value)[0];
    value.size() = 1u << 30;
    block.fields.totalSize = value.size() + TypeParam::terminator;
    block.fields.length = 1;
    block.link(block.place.page, block.place.index);
    this->write(block);
    EXPECT_EQ(value.fetch(), 1u);
}

uint32_t changeInPlace(Value& value) { return kaldbVariantAllocate(&value.v); }
uint32_t changeInPlace(Text& text) { return kaldbVarStringDup(&text.s, &text.s); }

// Each operation with its 1st, 2nd, ... call of the support library failing, until none is left to fail; each time with
// an empty cache, so that it must read its pages.
TYPED_TEST(Store, AFailureKeepsTheValueOrLeavesNone)
{
    const std::string old = pattern(300), whenNotSet = std::is_same_v<TypeParam, Value> ? "" : old;
    struct Case {
        std::function<uint32_t(TypeParam&)> operation;
        std::string afterwards, withoutMemory;
    };
    for (const Case& c : {Case{[](TypeParam& value) { return value.store(); }, old, old},
                          Case{[](TypeParam& value) { return value.erase(); }, old, old},
                          Case{[](TypeParam& value) { return value.fetch(); }, "[3]", old},
                          Case{[](TypeParam& value) { return value.set(std::string(300, 'x')); }, old, whenNotSet},
                          Case{[](TypeParam& value) { return changeInPlace(value); }, old, old}})
        for (unsigned n = 1; n == 1 || faults::struck(); ++n) {
            TypeParam value;
            value.assign(old);
            ASSERT_EQ(value.store(), 0u);
            this->reopen();
            faults::failAt(faults::anyCall, n, KAL_IO_ERROR);
            const uint32_t status = c.operation(value);
            faults::state().countdown = 0;
            EXPECT_TRUE(faults::struck() || (status == 0 && n > 1));
            EXPECT_TRUE(status == 0 || value.content() == (status == 7 ? c.withoutMemory : c.afterwards)) << status;
        }
}

TEST(Pieces, AnswerWithTheFirstFailureAndTellOfTheCallersDescriptor)
{
    static const void* told = nullptr;
    test::Database database{0};
    test::Table other{database, u"Other", 64}, pieces{database, u"Pieces", 650, KALDB_CHAIN_BINARY};
    pieces.callbacks.recordEvent = [](std::uint32_t, std::uint32_t, void* record) { return told = record, 0u; };
    other.close();
    pieces.reopen(database);
    char bytes[650]{};
    KALDBBinaryRecord piece{bytes, 650, 650, KALDB_NO_PAGE, KALDB_NO_SLOT};
    KALDBIndexRecord place{};
    const auto insert = [&] { return kaldbBinaryTableInsertRecord(pieces.handle(), &piece, &place); };
    // The page itself, which has room; then, when it is full, the catalogue's, without which it cannot grow.
    for (const auto& [failing, status, page] : {std::tuple{1u, KALDB_IO_ERROR, 5u}, {2u, KALDB_NOT_FOUND, 6u}}) {
        void* held[4];  // all of the cache
        KALPageManager* const manager = kaldb::kaldbChainGetPageManager();
        for (std::uint32_t i = 0; i < 4; ++i)
            ASSERT_EQ(kalPageManagerLoadPage(manager, KALDB_LOCK_READ, i + 1, &held[i]), 0u);
        for (void* const body : held)
            EXPECT_EQ(kalPageManagerUnloadPage(manager, body), 0u);
        faults::failAt("kalFileRead", failing, status, failing > 1);
        EXPECT_EQ(insert(), status);
        faults::reset();
        EXPECT_TRUE(insert() == 0 && insert() == 0 && told == &piece && place.page == page);
    }
    // The first page along the list takes the next piece, also where another table freed the slot.
    test::Table alike{database, u"Alike", 650, KALDB_CHAIN_BINARY};
    const KALDBIndexRecord freed = place;
    EXPECT_EQ(insert(), 0u);
    EXPECT_EQ(kaldbBinaryTableDeleteRecord(alike.handle(), &freed), 0u);
    EXPECT_TRUE(insert() == 0 && place.page == freed.page && place.index == freed.index);
}

}  // namespace
