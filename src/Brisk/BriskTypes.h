// The role of a table in a process.
#pragma once

#include "Dunlin/Types.h"

namespace Brisk {

enum class BriskType : U32 { writer = 0, valueShadow = 1, reader = 2, keyShadow = 3 };

} // namespace Brisk
