// Where in a text form a value out of range stands.
#pragma once

#include "Vomo/Exception.h"

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

} // namespace Vomo
