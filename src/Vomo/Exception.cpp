#include "Vomo/PlacedRangeException.h"

namespace Vomo {

void throwRangeException(std::string_view text) {
    throw RangeException(std::string(text));
}

void rethrowFromDeserializeAttr(RangeException const& ex, char const* attrName) {
    std::string const text = std::string(attrName) + ": " + ex.what();
    if (auto const* const placed = dynamic_cast<PlacedRangeException const*>(&ex))
        throw PlacedRangeException(text, placed->position());
    throw RangeException(text);
}

} // namespace Vomo
