// The registry of modules.
#include "Vomo/Exception.h"

namespace Vomo {

void throwDenseEnumBoolSetRangeException(VomoTypeBase type, U32 value) {
    char const* const name = type.index < type.module->numTypes
                                 ? type.module->typeNames +
                                       type.module->typeTable[type.index].nameOffset()
                                 : "flag set";
    throwRangeException(fmt::format("{}: {:#x} has bits that are no flag", name, value));
}

} // namespace Vomo
