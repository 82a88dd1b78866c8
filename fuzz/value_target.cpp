// Bytes as variants and variable strings, through every operation on them. Only what the interface says is believed is
// kept true: how many bytes lie behind the structure.

#include "target.h"

#include "support/memory_disk.h"
#include "support/quiet.h"

#include <kaldb/kaldb.h>

#include <array>
#include <random>

namespace {

constexpr std::uint32_t room = 40;
struct Variant {
    KALDBVariant head{};
    char tail[room]{};
};
struct String {
    KALDBVarString head{};
    char area[room]{};
};
struct Input {
    Variant variant, otherVariant;
    String string, otherString;
    char text[64]{};
    std::array<std::uint8_t, 32> operations{};
};

KALDBDatabase* database = nullptr;
unsigned runs = 0;

/// The stores grow with what is stored, so they begin anew now and then.
void useFreshStores()
{
    if (runs++ % 500 != 0)
        return;
    if (database != nullptr)
        disk::require(kaldbDeinitialize(database) == 0, "the close of sound stores");
    disk::state().files.clear();
    disk::state().end = std::size_t{1} << 28;  // more than 500 inputs can fill
    std::uint32_t isNew = 0;
    disk::require(kaldbInitialize(u"/values", 1 << 16, &database, &isNew) == 0, "the open of new stores");
}

void operate(Input& in, unsigned operation, unsigned argument)
{
    char16_t wide[80]{};
    std::memcpy(wide, in.text, sizeof in.text);
    char out[256];
    std::uint32_t size = argument % sizeof out, number = 0;
    std::int32_t order = 0;
    KALDBID id{};
    const void* pointer = nullptr;
    const char* text = nullptr;
    KALDBVariant& variant = argument % 2 == 0 ? in.variant.head : in.otherVariant.head;
    KALDBVarString& string = argument % 2 == 0 ? in.string.head : in.otherString.head;
    const std::uint32_t type = argument % 23;
    switch (operation % 30) {
    case 0: kaldbVariantEmpty(&variant); break;
    case 1:
        variant.size %= 100000;  // any size that there is memory for
        kaldbVariantAllocate(&variant);
        break;
    case 2:
        kaldbVariantSet(&variant, type, type == 17 || type == 18 ? static_cast<void*>(wide) : in.text, argument % 64);
        break;
    case 3: kaldbVariantSetID(&variant, &id); break;
    case 4: kaldbVariantSetPrimitive(&variant, type, in.text); break;
    case 5: kaldbVariantSetString(&variant, type, type == 16 ? static_cast<void*>(in.text) : wide); break;
    case 6: kaldbVariantSetBinary(&variant, type, in.text, argument % 64); break;
    case 7: kaldbVariantGetType(&variant, &number); break;
    case 8: kaldbVariantGetSize(&variant, &number); break;
    case 9: kaldbVariantGetID(&variant, &id); break;
    case 10: kaldbVariantGetData(&variant, out, &size); break;
    case 11: kaldbVariantGetDataPointer(&variant, &pointer); break;
    case 12: kaldbVariantInsertRecord(&variant); break;
    case 13: kaldbVariantGetRecord(&variant); break;
    case 14: kaldbVariantDeleteRecord(&variant); break;
    case 15: kaldbVariantUpdateRecord(&variant); break;
    case 16: kaldbVarStringSet(&string, argument % 3 == 0 ? nullptr : wide); break;
    case 17: kaldbVarStringGetLength(&string, &number); break;
    case 18: kaldbVarStringGet(&string, &text); break;
    case 19: kaldbVarStringGetPSZ(&string); break;
    case 20: kaldbVarStringCopy(&string, reinterpret_cast<char16_t*>(out), argument % 128); break;
    case 21: kaldbVarStringDup(&string, &in.otherString.head); break;
    case 22: kaldbVarStringCompare(&in.string.head, &string, &order); break;
    case 23: kaldbVarStringICompare(&in.string.head, &string, &order); break;
    case 24: kaldbVarStringIComparePSZ(&string, wide, &order); break;
    case 25: kaldbVarStringInsertRecord(&string); break;
    case 26: kaldbVarStringGetRecord(&string); break;
    case 27: kaldbVarStringDeleteRecord(&string); break;
    case 28: kaldbVarStringUpdateRecord(&string); break;
    default: kaldbVarStringCreate(argument % room, &string, wide); break;
    }
}

}  // namespace

std::vector<std::string> seeds()
{
    std::vector<std::string> all;
    for (const std::uint32_t type : {2U, 16U, 17U, 21U}) {
        Input in;
        kaldbVariantInitialize(8, &in.variant.head);
        kaldbVariantInitialize(24, &in.otherVariant.head);
        in.variant.head.type = in.otherVariant.head.type = type;
        in.variant.head.size = in.otherVariant.head.size = 30;
        kaldbVarStringAllocate(8, &in.string.head);
        kaldbVarStringAllocate(room, &in.otherString.head);
        std::memcpy(in.text, "A\0b\0c\0 a text of several words and letters", 40);
        for (std::size_t i = 0; i < in.operations.size(); ++i)
            in.operations[i] = static_cast<std::uint8_t>(i * 7 + type);
        all.emplace_back(reinterpret_cast<const char*>(&in), sizeof in);
    }
    return all;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t, unsigned seed)
{
    std::mt19937 random{seed};
    for (auto changes = random() % 12 + 1; changes > 0 && size > 0; --changes) {
        const bool number = size >= 4 && random() % 2 == 0;
        const std::size_t at = number ? random() % (size / 4) * 4 : random() % size;
        const std::array<std::uint32_t, 8> bounds{0, 1, 7, 8, 0xFFFFFFFF, 0x7FFFFFFF, 0xFFFFFFFE, 64};
        const auto value = static_cast<std::uint32_t>(random() % 3 == 0 ? random() : bounds[random() % 8]);
        std::memcpy(data + at, &value, number ? 4 : 1);
    }
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input in;
    if (size != sizeof in)
        return 0;
    useFreshStores();
    const std::size_t blocks = disk::state().blocks.size();
    std::memcpy(static_cast<void*>(&in), data, size);
    in.text[62] = in.text[63] = 0;
    in.variant.head.inlineSize %= 8 + room + 1;
    in.otherVariant.head.inlineSize %= 8 + room + 1;
    in.string.head.capacity %= room + 1;
    in.otherString.head.capacity %= room + 1;
    disk::state().budget = disk::state().steps + 200'000;
    // The library knows every live block, those too that the bytes have forgotten.
    disk::state().largest =
        static_cast<std::uint32_t>(4 * disk::state().files[u"/values"]->size() + 128 * blocks + (1 << 17));
    for (std::size_t i = 0; i + 1 < in.operations.size(); i += 2)
        operate(in, in.operations[i], in.operations[i + 1]);
    kaldbVariantDeinitialize(&in.variant.head);
    kaldbVariantDeinitialize(&in.otherVariant.head);
    kaldbVarStringDelete(&in.string.head);
    kaldbVarStringDelete(&in.otherString.head);
    // A block that bytes name no more stays, and no other one: a program would have lost it by writing over the bytes.
    disk::require(disk::state().blocks.size() <= blocks + in.operations.size() + 40, "blocks without an owner");
    return 0;
}
