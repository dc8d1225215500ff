// What a header of values needs to declare a type's place, text and log form.
#pragma once

#include "Vomo/Module.h"
#include "Vomo/String.h"

#include <compare>
#include <iosfwd>

namespace Vomo {

// Selects a value's constructor from the attribute log.
struct StreamBogon {};
// The rows of a type, specialised in its source. A friend of the type.
template <class T>
struct Describe;

// Padding with a name: zero when we make it, and no part of the value.
template <std::size_t size>
struct Pad {
    U8 zero[size] = {};

    friend constexpr bool operator==(Pad, Pad) { return true; }
    friend constexpr std::strong_ordering operator<=>(Pad, Pad) {
        return std::strong_ordering::equal;
    }
};

} // namespace Vomo
