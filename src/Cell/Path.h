// Mount paths below a cell.
#pragma once

#include "Vomo/String.h"

namespace Cell {

// `path` below cell `cell`; 0 is the current one: "cell/0/" and the path.
Vomo::String path(Vomo::String const& path, U32 cell);

} // namespace Cell
