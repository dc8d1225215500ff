// Text forms of enums, by the literals of their type.
#pragma once

#include "Vomo/Fwd.h"

namespace Vomo {

// The functions of an enum of width U. `type` is the enum's place; names and values are the
// literals of its record.
template <class U>
struct EnumType {
    // Raises RangeException for a number that the enum does not declare.
    static U instance(VomoTypeBase type, unsigned number);
    // Raises RangeException for a name that the enum does not declare.
    static U instance(VomoTypeBase type, String const& name);
    static std::ostream& operatorLessLess(std::ostream& stream, VomoTypeBase type, U v);
    // The name in quotes; an undeclared number in decimal.
    static String valueToStrep(VomoTypeBase type, U v);
    // Reads what valueToStrep gives. Raises RangeException for an unknown name.
    static U sequenceToValue(CharRange& range, VomoTypeBase type);
    // The name without quotes; an undeclared number in decimal.
    static String stringValue(VomoTypeBase type, U v);
};
extern template struct EnumType<U8>;
extern template struct EnumType<U32>;

} // namespace Vomo
