// Where in a text form a value out of range stands.
#pragma once

#include "Vomo/SerDes.h"

namespace Vomo {

// Raised for an attribute of a composite value; its text is that of any RangeException.
class PlacedRangeException : public RangeException {
public:
    PlacedRangeException(std::string const& text, U32 position)
        : RangeException(text), position_(position) {}
    // The character, counted from 0, at which the innermost bad attribute begins.
    U32 position() const { return position_; }

private:
    U32 position_;
};

// `deserializeAttr`, for a text form of a type's own: says where the attribute begins.
template <class T>
T deserializePlacedAttr(CharRange& range, char const* attrName) {
    U32 const position = range.position();
    try {
        return deserializeAttr<T>(range, attrName);
    } catch (PlacedRangeException const&) {
        throw;
    } catch (RangeException const& ex) {
        throw PlacedRangeException(ex.what(), position);
    }
}

} // namespace Vomo
