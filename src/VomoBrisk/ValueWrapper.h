// The type held in a shared table: a value, with its key under the one name that the framework asks
// for. It has the layout of the value, so slots hold it as raw bytes.
#pragma once

#include "Vomo/Module.h"

namespace VomoBrisk {

// `getter` is the value's accessor of its key; with `keyIsConst` the key is fixed at construction.
template <class ValueType, class KeyType, auto getter, bool keyIsConst>
struct VomoBriskMapValueWrapper : ValueType {
    using Key = KeyType;
    using Wrapped = ValueType;
    using ValueType::ValueType;

    constexpr VomoBriskMapValueWrapper() = default;
    constexpr VomoBriskMapValueWrapper(ValueType const& value) : ValueType(value) {}

    constexpr decltype(auto) fwkKey() const {
        ValueType const& value = *this;
        return (value.*getter)();
    }
};

} // namespace VomoBrisk

// It is the value's own type to the framework.
template <class ValueType, class KeyType, auto getter, bool keyIsConst>
struct Vomo::IdOf<VomoBrisk::VomoBriskMapValueWrapper<ValueType, KeyType, getter, keyIsConst>>
    : Vomo::IdOf<ValueType> {};
