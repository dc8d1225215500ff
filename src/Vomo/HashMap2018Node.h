// Nodes of hash collections that store their key, and how the engine is told a key.
#pragma once

#include "Vomo/HashMap2018Generic.h"

#include <type_traits>
#include <utility>

namespace Vomo {

struct HashMap2018LinkNodeBase {};

// The hash of a collection's key for a seed: `key.hash(seed)`, or that of the wrapped bits.
template <class Key>
constexpr bool hashTakesSeed = std::is_integral_v<Key> || std::is_same_v<Key, String> ||
                               requires(Key const& k) {
    k.hash(U32{});
};
template <class Key>
U32 hashOfKey(Key const& key, U32 seed) {
    if constexpr (std::is_integral_v<Key>)
        return hashSingleAttr(seed, key);
    else if constexpr (std::is_same_v<Key, String>)
        return hashSingleAttr(seed, std::string_view(key));
    else if constexpr (hashTakesSeed<Key>)
        return key.hash(seed);
    else
        return key.hash();
}

// The record by which the engine takes a key of this collection.
template <bool legacyHash, U32 seed, class Key>
auto keyRecord(Key const& key) {
    if constexpr (std::is_same_v<Key, String>) {
        if constexpr (legacyHash)
            return HashHelper::KeyStringLegacy{&key};
        else
            return HashHelper::KeyString{&key, seed};
    } else if constexpr (legacyHash) {
        return HashHelper::KeyAndRhashLegacy{&key, hashOfKey(key, 0)};
    } else if constexpr (std::is_same_v<Key, U32>) {
        return HashHelper::KeyU32{key, seed};
    } else if constexpr (hashTakesSeed<Key>) {
        return HashHelper::KeyAndRhashSeedArg{&key,
                                              hashOfKey(key, HashHelper::hashSeed32() ^ seed)};
    } else {
        return HashHelper::KeyAndRhashNoSeedArg{&key, key.hash(), seed};
    }
}

// A node that stores its key, followed by the value.
template <bool legacyHash, U32 seed, class Key, class Value, bool>
class HashMap2018NodeExternKey : public HashMap2018LinkNodeBase {
public:
    HashMap2018NodeExternKey(Key key, Value value)
        : key_(std::move(key)), value_(std::move(value)) {}
    Key const& fwkKey() const { return key_; }
    Value const& value() const { return value_; }
    void valueIs(Value v) { value_ = std::move(v); }
    static auto record(Key const& key) { return keyRecord<legacyHash, seed>(key); }

private:
    Key key_;
    Value value_;
};
// A member of a set: the bare key.
template <bool legacyHash, U32 seed, class Key>
class HashMap2018NodeExternKey<legacyHash, seed, Key, void, false>
    : public HashMap2018LinkNodeBase {
public:
    explicit HashMap2018NodeExternKey(Key key) : key_(std::move(key)) {}
    Key const& fwkKey() const { return key_; }
    static auto record(Key const& key) { return keyRecord<legacyHash, seed>(key); }

private:
    Key key_;
};

} // namespace Vomo
