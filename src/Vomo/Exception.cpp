#include "Vomo/Exception.h"

namespace Vomo {

void throwRangeException(std::string_view text) { throw RangeException(std::string(text)); }

void rethrowFromDeserializeAttr(RangeException const& ex, char const* attrName) {
    throw RangeException(std::string(attrName) + ": " + ex.what());
}

} // namespace Vomo
