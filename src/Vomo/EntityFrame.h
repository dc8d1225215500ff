// The frame of an entity: rows of its attributes, and one constant table of functions a collection.
// For sources of entities.
#pragma once

#include "Vomo/Entity.h"
#include "Vomo/GenericIf.h"
#include "Vomo/HashMap2018.h"
#include "Vomo/NboAttrLogFlow.h"
#include "Vomo/RbTreeMap.h"

namespace Vomo {

inline constexpr FieldType entityBase{.builtin = Builtin::entity};
template <class T>
inline constexpr FieldType entityType{.type = IdOf<T>::type};

// What the engines can do with a set of keys, which is an HSet<Key, 0U>.
struct KeySetOps {
    void (*add)(void* set, void const* key);
    bool (*del)(void* set, void const* key); // false if it was not there
    bool (*has)(void const* set, void const* key);
    // Any of them; null if it is empty.
    void const* (*any)(void const* set);
};
template <class Key>
struct KeySet {
    using Set = HSet<Key, 0U>;
    static Key const& keyAt(void const* key) { return *static_cast<Key const*>(key); }
    static void add(void* set, void const* key) { static_cast<Set*>(set)->add(keyAt(key)); }
    static bool del(void* set, void const* key) { return static_cast<Set*>(set)->del(keyAt(key)); }
    static bool has(void const* set, void const* key) {
        return static_cast<Set const*>(set)->has(keyAt(key));
    }
    static void const* any(void const* set) {
        typename Set::IteratorConst const first(&static_cast<Set const*>(set)->map());
        return first ? &first.node()->fwkKey() : nullptr;
    }
    static constexpr KeySetOps ops{add, del, has, any};
};

// What the engines can do with a collection of an entity, without knowing its types. Keys and
// values are passed by address.
struct CollectionOps {
    FieldType const* key;
    FieldType const* value;    // null: a set, or children
    VomoTypeBase const* child; // of children: what they are or derive from; else null
    U32 (*members)(void const* object);
    U32 (*version)(void const* object);
    // The member's value, or the child; for a set its key. Null if there is none.
    void const* (*find)(void const* object, void const* key);
    // By the typed mutators, which notify.
    void (*set)(void* object, void const* key, void const* value);
    void (*del)(void* object, void const* key);
    // Enters a child under its own key, which must not be in use; null for other collections. False,
    // and nothing is done, if that is not `key`.
    bool (*enter)(void* object, U32 attrId, Entity* child, void const* key);
    // A safe iterator on the heap, from the key or, if that is null, from the first.
    void* (*iterNew)(void const* object, void const* key);
    void const* (*iterKey)(void* iterator); // null at the end
    void (*iterInc)(void* iterator);
    void (*iterDel)(void* iterator);
    // The marks of a resync.
    void (*markAll)(void* object);
    void (*unmark)(void* object, void const* key);
    bool (*isMarked)(void const* object, void const* key);
    // A copy of a key on the heap.
    void* (*keyNew)(void const* key);
    void (*keyDel)(void* key);
    // The sets that a connection keeps in the FlowOut of the entity's class: keys that have changed
    // and were not sent; and, of children, those of them that the peer holds another child for, which
    // has left here. The peer is told so before it hears of the one that stands there now.
    KeySetOps const* keySet;
    void* (*dirtyKeys)(NboAttrLog::FlowOut& flow);
    void* (*ephemeralKeys)(NboAttrLog::FlowOut& flow); // null if these are no children
    // What the iterator stands on: a value, a Ptr<Entity>, or whether the set still has it.
    void (*iterObj)(void* iterator, void* out);
};

namespace Impl {

template <class Map>
struct MapTypes;
template <class N, class K, class V>
struct MapTypes<HashMap2018<N, K, V>> {
    using Node = N;
    using Key = K;
    using Value = V;
    static constexpr bool isHash = true;
};
template <class N, class K, class V>
struct MapTypes<RbTreeMap<N, K, V>> {
    using Node = N;
    using Key = K;
    using Value = V;
    static constexpr bool isHash = false;
};
template <class V>
struct ChildOf {
    using type = void;
};
template <class C>
struct ChildOf<Ptr<C>> {
    using type = C;
};

template <auto map, auto set, auto del, auto dirty, auto ephemeral>
struct Collection {
    using T = ClassOf<map>;
    using Map = FieldOf<map>;
    using Types = MapTypes<Map>;
    using Key = typename Types::Key;
    using Value = typename Types::Value;
    using Child = typename ChildOf<Value>::type;
    using Iterator = typename Map::IteratorConst;
    static constexpr bool isChildren = !std::is_void_v<Child>;

    static Map const& of(void const* object) { return static_cast<T const*>(object)->*map; }
    static Key const& keyAt(void const* key) { return *static_cast<Key const*>(key); }
    static auto* node(void const* object, void const* key) { return of(object)[keyAt(key)]; }

    static U32 members(void const* object) { return of(object).members(); }
    static U32 version(void const* object) { return of(object).version(); }
    static void const* find(void const* object, void const* key) {
        auto* const found = node(object, key);
        if (found == nullptr) return nullptr;
        if constexpr (isChildren)
            return static_cast<Entity const*>(found->value().ptr());
        else if constexpr (std::is_void_v<Value>)
            return &found->fwkKey();
        else
            return &found->value();
    }
    static void setMember(void* object, void const* key, [[maybe_unused]] void const* value) {
        auto& self = *static_cast<T*>(object);
        if constexpr (isChildren || std::is_void_v<Value>)
            (self.*set)(keyAt(key));
        else
            (self.*set)(keyAt(key), *static_cast<Value const*>(value));
    }
    static void delMember(void* object, void const* key) {
        (static_cast<T*>(object)->*del)(keyAt(key));
    }
    static void* iterNew(void const* object, void const* key) {
        return key == nullptr ? new Iterator(&of(object)) : new Iterator(&of(object), keyAt(key));
    }
    static void const* iterKey(void* iterator) {
        auto& i = *static_cast<Iterator*>(iterator);
        return i ? &i.key() : nullptr;
    }
    static void iterInc(void* iterator) { ++*static_cast<Iterator*>(iterator); }
    static void iterDel(void* iterator) { delete static_cast<Iterator*>(iterator); }
    static void markAll(void* object) {
        Map& m = static_cast<T*>(object)->*map;
        if constexpr (isChildren) {
            for (auto const& node : m)
                node.value()->streamStateIs(node.value()->streamState() | Entity::resyncMark);
        } else if constexpr (Types::isHash) {
            m.vomoMarkAllForDeletion();
        } else {
            m.markAllForDeletion();
        }
    }
    static void unmark(void* object, void const* key) {
        auto* const found = node(object, key);
        if (found == nullptr) return;
        if constexpr (isChildren)
            found->value()->streamStateIs(found->value()->streamState() & ~Entity::resyncMark);
        else if constexpr (Types::isHash)
            (static_cast<T*>(object)->*map).markedForDeletionIs(keyAt(key), false);
        else
            found->vomoMarkedForDeletionIs(false);
    }
    static bool isMarked(void const* object, void const* key) {
        auto* const found = node(object, key);
        if (found == nullptr) return false;
        if constexpr (isChildren)
            return (found->value()->streamState() & Entity::resyncMark) != 0;
        else if constexpr (Types::isHash)
            return Iterator(&of(object), keyAt(key)).markedForDeletion();
        else
            return found->vomoMarkedForDeletion();
    }
    static bool enterChild(void* object, U32 attrId, Entity* child, void const* key) {
        auto& self = *static_cast<T*>(object);
        typename Types::Node const made{Ptr<Child>(static_cast<Child*>(child))};
        if (!(made.fwkKey() == keyAt(key))) return false;
        static_cast<Entity&>(self).childEnter(self.*map, made.value(), Key(keyAt(key)), attrId);
        return true;
    }
    static constexpr auto enter() -> bool (*)(void*, U32, Entity*, void const*) {
        if constexpr (isChildren)
            return enterChild;
        else
            return nullptr;
    }
    static void* keyNew(void const* key) { return new Key(keyAt(key)); }
    static void keyDel(void* key) { delete static_cast<Key*>(key); }
    template <auto keys>
    static void* keysOf(NboAttrLog::FlowOut& flow) {
        if constexpr (std::is_null_pointer_v<decltype(keys)>) {
            return nullptr;
        } else {
            static_assert(std::is_same_v<FieldOf<keys>, HSet<Key, 0U>>);
            return &(static_cast<ClassOf<keys>&>(flow).*keys);
        }
    }

    // For the iterator of the generic interface: the member that it stands on.
    static void iterObj(void* iterator, void* out) {
        auto& i = *static_cast<Iterator*>(iterator);
        if constexpr (!Types::isHash) {
            *static_cast<Value*>(out) = i.value();
        } else {
            auto* const present = i.node();
            if constexpr (isChildren)
                *static_cast<Ptr<Entity>*>(out) =
                    present == nullptr ? Ptr<Entity>() : Ptr<Entity>(present->value());
            else if constexpr (std::is_void_v<Value>)
                *static_cast<bool*>(out) = present != nullptr;
            else if (present != nullptr)
                *static_cast<Value*>(out) = present->value();
        }
    }
    static constexpr FieldType const* valueType() {
        if constexpr (isChildren || std::is_void_v<Value>)
            return nullptr;
        else
            return &fieldType<Value>;
    }
    static constexpr VomoTypeBase const* childType() {
        if constexpr (isChildren)
            return &IdOf<Child>::type;
        else
            return nullptr;
    }
    static constexpr CollectionOps ops{&fieldType<Key>,
                                       valueType(),
                                       childType(),
                                       members,
                                       version,
                                       find,
                                       setMember,
                                       delMember,
                                       enter(),
                                       iterNew,
                                       iterKey,
                                       iterInc,
                                       iterDel,
                                       markAll,
                                       unmark,
                                       isMarked,
                                       keyNew,
                                       keyDel,
                                       &KeySet<Key>::ops,
                                       keysOf<dirty>,
                                       keysOf<ephemeral>,
                                       iterObj};
};

template <auto get, auto set>
U32 scalarOp(void* out, void* object, AttributeOp op, void* a, void*) {
    using T = typename SignatureOf<get>::Class;
    if (op == AttributeOp::get)
        store<ResultOf<get>>(out, (static_cast<T const*>(object)->*get)());
    else if (op == AttributeOp::set)
        (static_cast<T*>(object)->*set)(*static_cast<ResultOf<get> const*>(a));
    else
        return 1;
    return 0;
}

} // namespace Impl

// A stored scalar of an entity, with its accessor and mutator.
template <auto field, auto get, auto set>
consteval Row notifying(U32 number, char const* name) {
    return {.number = number,
            .kind = RowKind::notifying,
            .stored = true,
            .name = name,
            .type = &fieldType<Impl::FieldOf<field>>,
            .field = Impl::fieldAt<field>,
            .op = Impl::scalarOp<get, set>};
}
// A collection of values, or a set: `set(key, value)` or `set(key)`, `del(key)`. `dirty` is the set of
// its keys in the class's FlowOut.
template <auto map, auto set, auto del, auto dirty>
consteval Row valueMap(U32 number, char const* name) {
    using C = Impl::Collection<map, set, del, dirty, nullptr>;
    constexpr bool isSet = std::is_void_v<typename C::Value>;
    return {.number = number,
            .kind = isSet ? RowKind::valueSet : RowKind::valueMap,
            .stored = true,
            .name = name,
            .type = isSet ? &fieldType<bool> : C::valueType(),
            .key = &fieldType<typename C::Key>,
            .collection = &C::ops};
}
// A collection of entities that it makes: `set(key)` gives the child. `keyName` is the child's
// attribute that is the key.
template <auto map, auto set, auto del, auto dirty, auto ephemeral>
consteval Row children(U32 number, char const* name, char const* keyName) {
    using C = Impl::Collection<map, set, del, dirty, ephemeral>;
    return {.number = number,
            .kind = RowKind::children,
            .stored = true,
            .name = name,
            .type = &entityType<typename C::Child>,
            .key = &fieldType<typename C::Key>,
            .keyName = keyName,
            .collection = &C::ops};
}

consteval TypeHead entity(char const* name, U8 flags = 0) {
    return {name, TypeKind::entity, flags, &entityBase};
}
// An entity derived from an entity: Describe names that as Base, too, and stands behind its
// Describe.
template <class Base>
consteval TypeHead derivedEntity(char const* name, U8 flags = 0) {
    return {name, TypeKind::entity, flags, &entityType<Base>};
}

// The rows of an entity with those of its bases in front, in order of number.
template <class T>
constexpr auto allRows() {
    if constexpr (requires { typename Describe<T>::Base; }) {
        constexpr auto base = allRows<typename Describe<T>::Base>();
        constexpr auto const& own = Describe<T>::attributes;
        std::array<Row, base.size() + std::size(own)> all;
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = i < base.size() ? base[i] : own[i - base.size()];
        return all;
    } else {
        return Describe<T>::attributes;
    }
}

// The functions of an entity type that the attribute log calls.
struct StreamTable {
    using Sa = Entity::VomoNboAttrLogSa;

    Ptr<Entity> (*newEntityForAttrLog)(NboAttrLog::In* in);
    Ptr<NboAttrLog::FlowOut> (*newFlowOut)(Sa* sa, bool, U32 lastSynced);
    bool (*freeResyncState)(Ptr<NboAttrLog::FlowOut> const& flow);
    U32 (*attrLogSizeCtorParams)(Entity const* entity);
    void (*serializeConstructorParams)(NboAttrLog::Out& out, Entity const* entity);
    void (*vomoInstantiateSerialize)(Sa* sa);
    U32 (*handleAttrFlowOut)(Sa* sa, U32 attrId);
    bool (*doHandleAttrTransaction)(Sa* sa, U32 attrId, U32 kind, bool flag);
    void (*doHandleAttrDeserialization)(Sa* sa, S32 attrId, NboAttrLog::In* in);
    U32 (*streamAdapterOnAttribute)(Sa* sa, U32 attrId, void const* key);
    void const* reserved[2];
    // Of the type's collections; what `genericIfIterator` hands out.
    GenericIfRaw::Iterator::IteratorVTable iterators;
};
static_assert(offsetof(StreamTable, iterators) == 96);

namespace NboAttrLog {
// The engines behind the stream table of every entity type; Vomo/NboAttrLogStream.cpp. Each is told
// where it stands.
using Sa = Entity::VomoNboAttrLogSa;
// Enters every attribute that is sent; those of a lower number than `lastSynced` as synced.
void newFlowOut(FlowOut& flow, std::span<Row const> rows, U32 lastSynced);
bool freeResyncState(Ptr<FlowOut> const& flow, std::span<Row const> rows);
U32 handleAttrFlowOut(Sa* sa, std::span<Row const> rows, U32 attrId);
void instantiateSerialize(Sa* sa, std::span<Row const> rows);
bool handleAttrTransaction(Sa* sa, std::span<Row const> rows, U32 attrId, U32 kind, bool flag);
void handleAttrDeserialization(Sa* sa, std::span<Row const> rows, S32 attrId, In* in);
U32 onAttribute(Sa* sa, std::span<Row const> rows, U32 attrId, void const* key);
U32 sizeOfCtorParams(std::span<Row const> rows, Entity const* entity);
void writeCtorParams(Out& out, std::span<Row const> rows, Entity const* entity);
} // namespace NboAttrLog

// The per-type functions of an entity; each hands its rows to an engine. An entity is made from the
// one Argument that its Describe names, its name or key; with `void` for that, by its owner alone.
template <class T>
struct TypeImpl {
    using Argument = typename Describe<T>::Argument;
    static constexpr auto allOf = allRows<T>();
    static constexpr std::span<Row const> rows() { return allOf; }
    using Sa = Entity::VomoNboAttrLogSa;

    static void* newEntityForDir(String const& name, void* args) {
        if (args != nullptr) throwNewEntityArgsException(IdOf<T>::type);
        if constexpr (std::is_same_v<Argument, String>) {
            Ptr<T> const made = newEntity<T>(name);
            made->referencesInc(); // the caller's
            return static_cast<Entity*>(made.ptr());
        } else {
            return nullptr;
        }
    }
    static Ptr<Entity> newEntityForAttrLog([[maybe_unused]] NboAttrLog::In* in) {
        if constexpr (std::is_void_v<Argument>)
            throwNotMadeByOthers(IdOf<T>::type);
        else if constexpr (std::is_same_v<Argument, String>)
            return newEntity<T>(in->nextString());
        else
            return newEntity<T>(Argument(in, StreamBogon{}));
    }
    // `to` is room for a Ptr<Entity>.
    static void genericIfConstructFromCtorArgs(void* to, void* const* args) {
        new (to) Ptr<Entity>(newEntity<T>(*static_cast<Argument const*>(args[0])));
    }
    // `object` is the entity as Entity.
    static U32 genericIfAttributeOp(void* out, void* object, VomoAttr attr, AttributeOp op, void* a,
                                    void* b) {
        if (attr.isNull()) return 1;
        return GenericIfImpl::rowsOp(Describe<T>::type, rows(), out,
                                     static_cast<T*>(static_cast<Entity*>(object)), attr, op, a, b);
    }
    static void* genericIfIterator(void* object, void** key, VomoAttr attr,
                                   GenericIfRaw::Iterator::IteratorVTable const** methods) {
        CollectionOps const* const of = collection(attr);
        if (of == nullptr) return nullptr;
        *methods = &stream.iterators;
        return of->iterNew(static_cast<T*>(static_cast<Entity*>(object)),
                           key == nullptr ? nullptr : *key);
    }
    // Null for an attribute that is no collection of T.
    static CollectionOps const* collection(VomoAttr attr) {
        for (Row const& row : rows())
            if (row.number == attr.attributeId()) return row.collection;
        return nullptr;
    }
    static bool iterObj(VomoAttr attr, void* iterator, void* out) {
        collection(attr)->iterObj(iterator, out);
        return true;
    }
    static bool iterKey(VomoAttr attr, void* iterator, void* out) {
        CollectionOps const& of = *collection(attr);
        of.key->assign(out, of.iterKey(iterator));
        return true;
    }
    static bool iterNonnull(VomoAttr attr, void* iterator) {
        return collection(attr)->iterKey(iterator) != nullptr;
    }
    static void iterInc(VomoAttr attr, void* iterator) { collection(attr)->iterInc(iterator); }
    static void iterDel(VomoAttr attr, void* iterator) { collection(attr)->iterDel(iterator); }

    static Ptr<NboAttrLog::FlowOut> newFlowOut(Sa*, bool, U32 lastSynced) {
        Ptr<NboAttrLog::FlowOut> flow;
        if constexpr (requires { typename T::FlowOut; })
            flow = Ptr<NboAttrLog::FlowOut>(new typename T::FlowOut);
        else
            flow = Ptr<NboAttrLog::FlowOut>(new NboAttrLog::FlowOut);
        NboAttrLog::newFlowOut(*flow, rows(), lastSynced);
        return flow;
    }
    static bool freeResyncState(Ptr<NboAttrLog::FlowOut> const& flow) {
        return NboAttrLog::freeResyncState(flow, rows());
    }
    static U32 attrLogSizeCtorParams(Entity const* e) {
        return NboAttrLog::sizeOfCtorParams(rows(), e);
    }
    static void serializeConstructorParams(NboAttrLog::Out& out, Entity const* e) {
        NboAttrLog::writeCtorParams(out, rows(), e);
    }
    static void vomoInstantiateSerialize(Sa* sa) { NboAttrLog::instantiateSerialize(sa, rows()); }
    static U32 handleAttrFlowOut(Sa* sa, U32 attrId) {
        return NboAttrLog::handleAttrFlowOut(sa, rows(), attrId);
    }
    static bool doHandleAttrTransaction(Sa* sa, U32 attrId, U32 kind, bool flag) {
        return NboAttrLog::handleAttrTransaction(sa, rows(), attrId, kind, flag);
    }
    static void doHandleAttrDeserialization(Sa* sa, S32 attrId, NboAttrLog::In* in) {
        NboAttrLog::handleAttrDeserialization(sa, rows(), attrId, in);
    }
    static U32 streamAdapterOnAttribute(Sa* sa, U32 attrId, void const* key) {
        return NboAttrLog::onAttribute(sa, rows(), attrId, key);
    }
    static constexpr bool hasChildren() {
        for (Row const& row : allOf)
            if (row.kind == RowKind::children) return true;
        return false;
    }
    static constexpr GenericIfRaw::Iterator::IteratorVTable iterators() {
        for (Row const& row : allOf)
            if (row.collection != nullptr)
                return {iterObj, iterKey, iterNonnull, iterInc, iterDel, {}};
        return {};
    }
    static constexpr StreamTable stream{newEntityForAttrLog,
                                        newFlowOut,
                                        freeResyncState,
                                        attrLogSizeCtorParams,
                                        serializeConstructorParams,
                                        hasChildren() ? vomoInstantiateSerialize : nullptr,
                                        handleAttrFlowOut,
                                        doHandleAttrTransaction,
                                        doHandleAttrDeserialization,
                                        streamAdapterOnAttribute,
                                        {},
                                        iterators()};
};

namespace GenericIfImpl {
template <class T>
struct GenericIfPtrInterfaceMethods {
    static ValueMethods const vtable_;
};
extern template struct GenericIfPtrInterfaceMethods<Entity>;
} // namespace GenericIfImpl

} // namespace Vomo
