// The policy bundle that ties a table's key and value together. Every table class takes one `Ops`.
#pragma once

#include "BriskCore/SlotLink.h"
#include "Dunlin/Exception.h"
#include "SharedMem/Atomics.h"

#include <cstddef>
#include <type_traits>

namespace Brisk {

// A value's key, by its accessor.
template <class Key, class Value, auto getter>
struct KeyRetrieval {
    static decltype(auto) key(Value const& value) { return (value.*getter)(); }
};

// The key's own 32-bit hash. Both processes must compute the same, so with `ownHash` the table's
// seed takes no part.
template <class Key, bool ownHash>
struct Hash {
    static U32 hash(Key const& key, U32 seed) {
        if constexpr (requires { key.hash(); })
            return key.hash();
        else
            return key.hash(ownHash ? 0U : seed);
    }
};

template <class Key, class Value, class Retrieval, class HashFunction>
struct KeyOps {
    static decltype(auto) key(Value const& value) { return Retrieval::key(value); }
    static U32 hash(Key const& key, U32 seed) { return HashFunction::hash(key, seed); }
    static bool equal(Key const& a, Key const& b) { return a == b; }
    static bool less(Key const& a, Key const& b) { return a < b; }
};

// Values go into and out of shared memory as raw bytes.
template <class Value>
struct Marshall {
    static_assert(std::is_trivially_copyable_v<Value>, "shared values are copied as raw bytes");
    static_assert(sizeof(Value) % 4 == 0, "shared values are copied in whole words");
    static void copy(void* to, void const* from) { Mem::copyBytes(to, from, sizeof(Value)); }
};

template <class Value>
struct Allocator {
    // What a lookup gives for a key that is not there; made once per type.
    static Value const& type_default() {
        static Value const value{};
        return value;
    }
};

template <class Key, class Value, class MarshallOps, class AllocatorOps>
struct ValueOps {
    static void copy(void* to, void const* from) { MarshallOps::copy(to, from); }
    static Value const& type_default() { return AllocatorOps::type_default(); }
    // In-place construction of a slot's value; no value type supports it.
    static void setSlotValue(Value&) { PLAINASSERT(false, "Not implemented"); }
};

// The value of a slot not in use: the default value, its key being the key's null value.
template <class Key, class Value>
struct SlotAllocator {
    static Value const& freeValue() {
        static Value const value{};
        return value;
    }
};

// Keeps no copy of a replaced value.
struct NullPrevValueAnchor {};

template <class KeyType, class ValueType, class KeyOpsType, class ValueOpsType,
          class SlotAllocatorType, class NotifierType, class PrevValueAnchorType>
class Ops {
public:
    using Key = KeyType;
    using Value = ValueType;
    using Notifier = NotifierType;
    using PrevValueAnchor = PrevValueAnchorType;

    static decltype(auto) key(Value const& value) { return KeyOpsType::key(value); }
    U32 hash(Key const& key) const { return KeyOpsType::hash(key, seed_); }
    static bool equal(Key const& a, Key const& b) { return KeyOpsType::equal(a, b); }
    static bool less(Key const& a, Key const& b) { return KeyOpsType::less(a, b); }
    static void copyValue(void* to, void const* from) { ValueOpsType::copy(to, from); }
    static Value const& type_default() { return ValueOpsType::type_default(); }
    static Value const& freeValue() { return SlotAllocatorType::freeValue(); }
    static void setSlotValue(Value& value) { ValueOpsType::setSlotValue(value); }

    U32 seed() const { return seed_; }
    void seedIs(U32 seed) { seed_ = seed; }

private:
    U32 seed_ = 0;
};

} // namespace Brisk
