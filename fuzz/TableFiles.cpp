// Damages the files of a small sound table as the input says, then attaches as reader and as
// writer. A named exception or a clean result is right; a signal, a hang or a read out of bounds is
// not.
#include "Brisk/TableImpl.h"
#include "Dunlin/TaskSchedulerRoot.h"
#include "tests/support/DamagedTable.h"
#include "tests/support/TempBase.h"

#include <random>

namespace {

using Support::DamagedTable;
using Edit = DamagedTable::Edit;

DamagedTable const& damagedTable() {
    static Support::TempBase const base;
    static DamagedTable const table;
    return table;
}

// A place that means something: a word of a header, a slot's link, version or hash, a bucket, an
// entry of the queue. Only they are drawn; the bytes of values have no say in the structure.
U16 placeIn(std::string const& file, std::minstd_rand& random) {
    auto const below = [&](U32 limit) { return static_cast<U32>(random() % limit); };
    U32 at = 0;
    if (file == "slots")
        at = below(4) == 0 ? 544 + 4 * below(12) : 600 + 176 * below(17) + 4 * below(6);
    else if (file == "buckets")
        at = below(4) == 0 ? 16 + 4 * below(2) : 24 + 4 * below(32);
    else if (file == "yarrow")
        at = below(2) == 0 ? 20 + 4 * below(43) : 192 + 4 * below(40);
    else if (file == "yarrow2")
        at = 20 + 4 * below(43);
    else
        at = below(512);
    return static_cast<U16>(at);
}

Edit freshEdit(std::minstd_rand& random) {
    auto const below = [&](U32 limit) { return static_cast<U32>(random() % limit); };
    static constexpr U8 files[] = {0, 0, 1, 2, 3, 3, 3, 3, 4, 4, 4, 5};
    static constexpr U8 actions[] = {
        DamagedTable::pokeByte, DamagedTable::pokeWord,     DamagedTable::pokeWord,
        DamagedTable::pokeWord, DamagedTable::flipBit,      DamagedTable::add,
        DamagedTable::copyWord, DamagedTable::copyWord,     DamagedTable::lengthen,
        DamagedTable::cut,      DamagedTable::pokeTwoWords, DamagedTable::add};
    Edit edit;
    edit.file = files[below(std::size(files))];
    std::string const& name = damagedTable().files()[edit.file].name;
    edit.action = actions[below(std::size(actions))];
    if (below(8) != 0) edit.action |= DamagedTable::credible;
    edit.offset = placeIn(name, random);
    if (edit.action % 8 == DamagedTable::copyWord)
        edit.value = placeIn(name, random);
    else if (below(4) == 0)
        edit.value = static_cast<U16>(U32{1} << below(16));
    else
        edit.value = static_cast<U16>(below(40) - 4);
    return edit;
}

} // namespace

extern "C" std::size_t LLVMFuzzerMutate(U8* data, std::size_t size, std::size_t maxSize);

// Half of the time one edit is put in, replaced or taken out, else the bytes are changed blindly.
extern "C" std::size_t LLVMFuzzerCustomMutator(U8* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    std::minstd_rand random(seed);
    if (random() % 2 == 0) return LLVMFuzzerMutate(data, size, maxSize);
    std::size_t const count = size / sizeof(Edit);
    std::size_t const place = count == 0 ? 0 : random() % (count + 1);
    U8* const at = data + place * sizeof(Edit);
    if (random() % 4 == 0 && place < count && count > 1) {
        std::memmove(at, at + sizeof(Edit), (count - place - 1) * sizeof(Edit));
        return (count - 1) * sizeof(Edit);
    }
    Edit const edit = freshEdit(random);
    bool const insert =
        (place == count || random() % 2 == 0) && (count + 1) * sizeof(Edit) <= maxSize;
    if (!insert && place == count) return LLVMFuzzerMutate(data, size, maxSize);
    if (insert) std::memmove(at + sizeof(Edit), at, (count - place) * sizeof(Edit));
    std::memcpy(at, &edit, sizeof edit);
    return (count + (insert ? 1 : 0)) * sizeof(Edit);
}

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
    DamagedTable const& table = damagedTable();
    table.lay(table.editsOf(data, size));
    table.tryOut();
    while (Dunlin::schedulerRootDunlin->runReady()) {
    }
    return 0;
}
