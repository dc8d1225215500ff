// The collections of an entity, or of a value that holds some, as members that know their job: each
// owns node class, map, search, change, notification, and the parents of children. The owner adds
// one-line forwarders under its own names, and passes itself where something changes.
//
// `attr` is the attribute's number in the owner. All members of a collection are reached through the
// map that is its base.
#pragma once

#include "Vomo/HashMap2018.h"
#include "Vomo/RbTreeMap.h"
#include "Vomo/RowFacts.h"

namespace Vomo {

// How a collection hashes its keys: without a seed, or by the process's seed and a constant of its own.
struct LegacyHash {
    static constexpr bool legacy = true;
    static constexpr U32 seed = 0;
};
template <U32 constant>
struct SeededHash {
    static constexpr bool legacy = false;
    static constexpr U32 seed = constant;
};

namespace Impl {

// The right to notify for an entity.
struct CollectionAccess {
    template <class Owner>
    static void notify([[maybe_unused]] Owner const* owner, [[maybe_unused]] U32 attr,
                       [[maybe_unused]] void const* key) {
        if constexpr (std::is_base_of_v<Entity, Owner>) {
            Entity const* const entity = owner;
            entity->notify(attr, key);
        }
    }
};

template <auto keyOf, class Child>
struct ChildKey {
    decltype(auto) operator()(Ptr<Child> const& child) const { return (child.ptr()->*keyOf)(); }
};
template <auto keyOf, class Child>
using ChildKeyType = std::remove_cvref_t<decltype((std::declval<Child const&>().*keyOf)())>;

// A node of an ordered map, with an account of its own for each map.
template <class Owner, U32 attr, class Key, class Value>
struct OrderedNode : RbTreeNode<Key, Value>, Tracked<OrderedNode<Owner, attr, Key, Value>> {
    using RbTreeNode<Key, Value>::RbTreeNode;
};

} // namespace Impl

// A set of keys.
template <class Owner, U32 attr, class Key_, class Hash>
class ValueSet
    : public HashMap2018<HashMap2018NodeExternKey<Hash::legacy, Hash::seed, Key_, void, false>,
                         Key_, void> {
public:
    using OwnerType = Owner;
    static constexpr U32 number = attr;
    static constexpr RowKind kind = RowKind::valueSet;
    using Key = Key_;
    using Value = void;
    using Node = HashMap2018NodeExternKey<Hash::legacy, Hash::seed, Key, void, false>;

    bool has(Key const& key) const { return (*this)[key] != nullptr; }
    // False, and nothing is done, if it was there.
    bool is(Owner* owner, Key const& key) {
        if (has(key)) return false;
        this->newMember(Node(key));
        Impl::CollectionAccess::notify(owner, attr, &key);
        return true;
    }
    // False, and nothing is done, if it was not there.
    bool del(Owner* owner, Key const& key) {
        if (!this->deleteMember(key)) return false;
        Impl::CollectionAccess::notify(owner, attr, &key);
        return true;
    }
    // Removes and notifies member by member.
    void delAll(Owner* owner) {
        for (typename ValueSet::IteratorConst i(this); i; ++i) del(owner, Key(i.key()));
    }
};

// Values by key.
template <class Owner, U32 attr, class Key_, class Value_, class Hash>
class ValueMap
    : public HashMap2018<HashMap2018NodeExternKey<Hash::legacy, Hash::seed, Key_, Value_, false>,
                         Key_, Value_> {
public:
    using OwnerType = Owner;
    static constexpr U32 number = attr;
    static constexpr RowKind kind = RowKind::valueMap;
    using Key = Key_;
    using Value = Value_;
    using Node = HashMap2018NodeExternKey<Hash::legacy, Hash::seed, Key, Value, false>;

    ValueMap() = default;
    ValueMap(NboAttrLog::In* in, StreamBogon tag) : HashMap2018<Node, Key_, Value_>(in, tag) {}

    bool has(Key const& key) const { return (*this)[key] != nullptr; }
    // The default if there is no member.
    Value at(Key const& key) const {
        Node const* const node = (*this)[key];
        return node == nullptr ? Value() : node->value();
    }
    void is(Owner* owner, Key const& key, Value const& value) {
        if (Node* const node = (*this)[key]) {
            if (node->value() == value) return;
            node->valueIs(value);
        } else {
            this->newMember(Node(key, value));
        }
        Impl::CollectionAccess::notify(owner, attr, &key);
    }
    // Returns the old value; the default, and nothing is done, if there was none.
    Value del(Owner* owner, Key const& key) {
        Node const* const node = (*this)[key];
        if (node == nullptr) return Value();
        Value const old = node->value();
        this->deleteMember(key);
        Impl::CollectionAccess::notify(owner, attr, &key);
        return old;
    }
    void delAll(Owner* owner) {
        for (typename ValueMap::IteratorConst i(this); i; ++i) del(owner, Key(i.key()));
    }
};

// Values by key, in order of key.
template <class Owner, U32 attr, class Key_, class Value_>
class OrderedMap : public RbTreeMap<Impl::OrderedNode<Owner, attr, Key_, Value_>, Key_, Value_> {
public:
    using OwnerType = Owner;
    static constexpr U32 number = attr;
    static constexpr RowKind kind = RowKind::valueMap;
    using Key = Key_;
    using Value = Value_;
    using Node = Impl::OrderedNode<Owner, attr, Key, Value>;
    using Map = RbTreeMap<Node, Key, Value>;
    using Iterator = typename Map::Iterator;

    OrderedMap() = default;
    OrderedMap(NboAttrLog::In* in, StreamBogon tag) : Map(in, tag) {}

    bool has(Key const& key) const { return (*this)[key] != nullptr; }
    Value at(Key const& key) const {
        Node const* const node = (*this)[key];
        return node == nullptr ? Value() : node->value();
    }
    void is(Owner* owner, Key const& key, Value const& value) {
        if (Node* const node = (*this)[key]) {
            if (node->value() == value) return;
            node->valueIs(value);
        } else {
            this->memberIs(Ptr<Node>(new Node(key, value)));
        }
        Impl::CollectionAccess::notify(owner, attr, &key);
    }
    // Returns the old value; the default, and nothing is done, if there was none.
    Value del(Owner* owner, Key const& key) { return remove(owner, (*this)[key]); }
    // The same for the member on which a walk of this map stands.
    Value del(Owner* owner, Iterator const& at) { return remove(owner, this->nodeAt(at)); }
    void delAll(Owner* owner) {
        for (Iterator at(this); at; ++at) del(owner, at);
    }

private:
    Value remove(Owner* owner, Node* node) {
        if (node == nullptr) return Value();
        Ptr<Node> const keep(node);
        Value const old = node->value();
        this->memberDel(node);
        Impl::CollectionAccess::notify(owner, attr, &node->fwkKey());
        return old;
    }
};

namespace Impl {
// What collections of entities have alike.
template <class Child_, auto keyOf, class Hash>
class EntityMap
    : public HashMap2018<
          HashMap2018NodeInternalKey<Hash::legacy, Hash::seed, ChildKeyType<keyOf, Child_>,
                                     Ptr<Child_>, ChildKey<keyOf, Child_>, false>,
          ChildKeyType<keyOf, Child_>, Ptr<Child_>> {
public:
    using Child = Child_;
    using Key = ChildKeyType<keyOf, Child>;
    using Value = Ptr<Child>;
    using Node = HashMap2018NodeInternalKey<Hash::legacy, Hash::seed, Key, Ptr<Child>,
                                            ChildKey<keyOf, Child>, false>;
    static_assert(std::is_reference_v<decltype((std::declval<Child const&>().*keyOf)())>,
                  "the accessor of a child's key must return a reference into the child");

    bool has(Key const& key) const { return (*this)[key] != nullptr; }
    // Null if there is none.
    Ptr<Child> at(Key const& key) const {
        Node const* const node = (*this)[key];
        return node == nullptr ? Ptr<Child>() : node->value();
    }
    static Key const& keyIn(Ptr<Child> const& child) { return ChildKey<keyOf, Child>()(child); }
};
} // namespace Impl

// Entities that the owner of a collection fills with: it does not make them, and is not their parent.
template <class Owner, U32 attr, class Child_, auto keyOf, class Hash,
          RowKind rowKind = RowKind::entries>
class Entries : public Impl::EntityMap<Child_, keyOf, Hash> {
    using Base = Impl::EntityMap<Child_, keyOf, Hash>;

public:
    using OwnerType = Owner;
    static constexpr U32 number = attr;
    static constexpr RowKind kind = rowKind;
    using Child = Child_;
    using typename Base::Key;
    using typename Base::Node;

    // Enters an entity under its own key, or puts it in the place of the one that is there. Raises
    // ArgumentException for null.
    void is(Owner* owner, Ptr<Child> const& child) {
        if (!child) throwMutatorArgNullPointerException(IdOf<Owner>::type, attr);
        if (put(child)) tell(owner, this->keyIn(child));
    }
    // Returns the entity; null, and nothing is done, if there was none.
    Ptr<Child> del(Owner* owner, Key const& key) {
        Ptr<Child> const child = take(key);
        if (child) tell(owner, this->keyIn(child));
        return child;
    }
    void delAll(Owner* owner) {
        for (typename Entries::IteratorConst i(this); i; ++i) del(owner, Key(i.key()));
    }
    // For a mutator of two levels: these change only, and `tell` notifies.
    bool put(Ptr<Child> const& child) {
        if (Node* const node = (*this)[this->keyIn(child)]) {
            if (node->value() == child) return false;
            node->valueIs(child);
        } else {
            this->newMember(Node(child));
        }
        return true;
    }
    Ptr<Child> take(Key const& key) {
        Ptr<Child> const child = this->at(key);
        if (child) this->deleteMember(key);
        return child;
    }
    void tell(Owner* owner, Key const& key) { Impl::CollectionAccess::notify(owner, attr, &key); }
};

// Entities that the collection makes, and that have the owner as their parent. With `alsoIn`, a
// collection `Entries` of a base class of the owner, every child is in that one too: both are changed,
// then the base's number is told, then this one.
template <class Owner, U32 attr, class Child_, auto keyOf, class Hash, auto alsoIn = nullptr>
class Children : public Impl::EntityMap<Child_, keyOf, Hash> {
    using Base = Impl::EntityMap<Child_, keyOf, Hash>;
    static constexpr bool hasTwoLevels = !std::is_null_pointer_v<decltype(alsoIn)>;

public:
    using OwnerType = Owner;
    static constexpr U32 number = attr;
    static constexpr RowKind kind = RowKind::children;
    using Child = Child_;
    using typename Base::Key;
    using typename Base::Node;

    ~Children() { // the children may live on
        for (Node const& node : *this) node.value()->parentIs(nullptr);
    }
    // The child of that key; made, of the key and `more`, and told of if there is none.
    template <class... More>
    Ptr<Child> is(Owner* owner, Key const& key, More const&... more) {
        if (Node const* const node = (*this)[key]) return node->value();
        Ptr<Child> const child = newEntity<Child>(key, more...);
        enter(owner, child);
        return child;
    }
    // Returns the child, which has no parent any more; null if there was none.
    Ptr<Child> del(Owner* owner, Key const& key) {
        if constexpr (hasTwoLevels) {
            return delBoth(owner, key, owner->*alsoIn);
        } else {
            Ptr<Child> const child = take(key);
            if (child) tell(owner, this->keyIn(child));
            return child;
        }
    }
    void delAll(Owner* owner) {
        for (typename Children::IteratorConst i(this); i; ++i) del(owner, Key(i.key()));
    }
    // The same for this collection and `entries`, which a base class of the owner has: for mutators
    // that reach both levels where the plain ones do not.
    template <class Base_>
    Ptr<Child> isBoth(Owner* owner, Key const& key, Base_& entries) {
        Ptr<Child> child = this->at(key);
        bool const isNew = !child;
        if (isNew) put(owner, child = newEntity<Child>(key));
        if (entries.put(child)) entries.tell(owner, this->keyIn(child));
        if (isNew) tell(owner, this->keyIn(child));
        return child;
    }
    template <class Base_>
    Ptr<Child> delBoth(Owner* owner, Key const& key, Base_& entries) {
        auto const entry = entries.take(key);
        Ptr<Child> const child = take(key);
        if (entry) entries.tell(owner, entries.keyIn(entry));
        if (child) tell(owner, this->keyIn(child));
        return child;
    }
    // Enters a child whose key is not in use.
    void enter(Owner* owner, Ptr<Child> const& child) {
        put(owner, child);
        if constexpr (hasTwoLevels) {
            (owner->*alsoIn).put(child);
            (owner->*alsoIn).tell(owner, this->keyIn(child));
        }
        tell(owner, this->keyIn(child));
    }

private:
    void put(Owner* owner, Ptr<Child> const& child) {
        this->newMember(Node(child));
        child->parentIs(Ptr<Entity>(owner));
    }
    Ptr<Child> take(Key const& key) {
        Ptr<Child> const child = this->at(key);
        if (!child) return child;
        this->deleteMember(key);
        child->parentIs(nullptr);
        return child;
    }
    void tell(Owner* owner, Key const& key) { Impl::CollectionAccess::notify(owner, attr, &key); }
};

// References to entities of other owners, in order of a key of one's own.
template <class Owner, U32 attr, class Key_, class Child_>
class OrderedEntries : public OrderedMap<Owner, attr, Key_, Ptr<Child_>> {
    using Base = OrderedMap<Owner, attr, Key_, Ptr<Child_>>;

public:
    static constexpr RowKind kind = RowKind::foreignEntries;
    using Child = Child_;
    using typename Base::Key;

    // Null takes the member out.
    void is(Owner* owner, Key const& key, Ptr<Child> const& child) {
        if (child)
            Base::is(owner, key, child);
        else
            this->del(owner, key);
    }
};

// The owner of an entity as one of its constructor's parameters; not held.
template <class Owner>
class OwnerRef {
public:
    explicit OwnerRef(Ptr<Owner> const& owner) : owner_(owner.ptr()) {}
    // The owner as long as it is the parent of `child`; else null.
    Owner* of(Entity const* child) const {
        return child->parent() == static_cast<Entity const*>(owner_) ? owner_ : nullptr;
    }

private:
    Owner* owner_;
};

} // namespace Vomo
