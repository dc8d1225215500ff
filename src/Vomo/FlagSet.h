// A set of up to eight flags in one byte.
#pragma once

#include "Vomo/Exception.h"
#include "Vomo/Value.h"

namespace Vomo {

// Base of the flag set T, whose declared bits are `mask`, from bit 0 upward. T inherits the
// constructors.
template <class T, U8 mask>
class FlagSet {
public:
    static constexpr U8 definedBits = mask;

    constexpr FlagSet() = default;
    // Raises RangeException for a bit that is not declared.
    constexpr explicit FlagSet(U8 bits) : bits_(bits & mask) {
        if (bits > mask) throwDenseEnumBoolSetRangeException(IdOf<T>::type, bits);
    }
    explicit FlagSet(CharRange& range) { IdOf<T>::frame().parse(range, this); }
    FlagSet(NboAttrLog::In* in, StreamBogon) { IdOf<T>::frame().read(in, this); }

    constexpr U8 value() const { return bits_; }
    constexpr explicit operator bool() const { return bits_ != 0; }

    friend constexpr bool operator==(T a, T b) { return a.value() == b.value(); }
    friend constexpr auto operator<=>(T a, T b) { return a.value() <=> b.value(); }
    friend constexpr T operator&(T a, T b) { return of(a.value() & b.value()); }
    friend constexpr T operator|(T a, T b) { return of(a.value() | b.value()); }
    friend constexpr T operator^(T a, T b) { return of(a.value() ^ b.value()); }
    // The flags of a that are not in b.
    friend constexpr T operator-(T a, T b) { return of(a.value() & ~b.value()); }
    friend constexpr T operator~(T a) { return of(~a.value()); }

    constexpr T& operator|=(T other) { return self() = self() | other; }
    constexpr T& operator&=(T other) { return self() = self() & other; }

protected:
    // For the accessor and mutator of one flag.
    constexpr bool has(T const& flag) const { return (bits_ & flag.value()) != 0; }
    constexpr void set(T const& flag, bool on) {
        bits_ = static_cast<U8>(on ? bits_ | flag.value() : bits_ & ~flag.value());
    }
    U8 bits_ = 0;

private:
    constexpr T& self() { return static_cast<T&>(*this); }
    static constexpr T of(int bits) { return T(static_cast<U8>(bits & mask)); }
};

} // namespace Vomo
