// Nodes of hash collections of entities, which have their key themselves.
#pragma once

#include "Dunlin/Exception.h"
#include "Vomo/HashMap2018Node.h"

namespace Vomo {

// A node that stores only a pointer to an entity, in which KeyFunktor finds the key.
template <bool legacyHash, U32 seed, class Key, class Value, class KeyFunktor, bool>
class HashMap2018NodeInternalKey : public HashMap2018LinkNodeBase {
public:
    explicit HashMap2018NodeInternalKey(Value value) : value_(std::move(value)) {}
    Key const& fwkKey() const { return KeyFunktor()(value_); }
    Value const& value() const { return value_; }
    // The value must have the key under which the present one was entered.
    void valueIs(Value value) {
        PLAINASSERT(fwkKey() == KeyFunktor()(value), "fwkKey() == KeyFunktor()( _value )");
        value_ = std::move(value);
    }
    static auto record(Key const& key) { return keyRecord<legacyHash, seed>(key); }

private:
    Value value_;
};

} // namespace Vomo
