#include "Cell/Path.h"

namespace Cell {

Vomo::String path(Vomo::String const& path, U32 cell) {
    return Vomo::String("cell/").append(std::to_string(cell)).append("/").append(path);
}

} // namespace Cell
