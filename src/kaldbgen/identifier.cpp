// Object identifiers: order by sequence alone, equality by tag and sequence.

#include <kaldb/identifiers.h>

#include <cstddef>
#include <cstring>

static_assert(sizeof(KALDBID) == 16 && offsetof(KALDBID, spare) == 2 && offsetof(KALDBID, sequence) == 8);
static_assert(sizeof(KALDBIndexRecord) == 24 && offsetof(KALDBIndexRecord, page) == 16 &&
              offsetof(KALDBIndexRecord, index) == 20);

extern "C" {

uint32_t kaldbIDZero(KALDBID* id)
{
    std::memset(id, 0xFF, sizeof *id);
    return KALDB_SUCCESS;
}

uint32_t kaldbIDIncrement(KALDBID* id)
{
    ++id->sequence;
    return KALDB_SUCCESS;
}

uint32_t kaldbIDCompare(const KALDBID* first, const KALDBID* second, int32_t* result)
{
    *result = first->sequence < second->sequence ? -1 : first->sequence > second->sequence ? 1 : 0;
    return KALDB_SUCCESS;
}

uint32_t kaldbIDIsEqual(const KALDBID* first, const KALDBID* second, uint32_t* result)
{
    *result = first->tag == second->tag && first->sequence == second->sequence ? 1 : 0;
    return KALDB_SUCCESS;
}

uint32_t kaldbIDCopy(KALDBID* destination, const KALDBID* source)
{
    destination->sequence = source->sequence;
    destination->tag = source->tag;
    return KALDB_SUCCESS;
}

}  // extern "C"
