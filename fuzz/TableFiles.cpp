// Damages the files of a small sound table as the input says, then attaches as reader and as
// writer. A named exception or a clean result is right; a signal, a hang or a read out of bounds is
// not.
#include "Brisk/TableImpl.h"
#include "tests/support/DamagedTable.h"
#include "tests/support/TempBase.h"

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
    static Support::TempBase const base;
    static Support::DamagedTable const table;
    table.lay(table.editsOf(data, size));
    Support::DamagedTable::tryOut();
    return 0;
}
