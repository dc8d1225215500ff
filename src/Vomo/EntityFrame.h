// The frame of an entity: rows of its attributes, and one constant table of functions a collection.
// For sources of entities.
#pragma once

#include "Vomo/Collections.h"
#include "Vomo/Entity.h"
#include "Vomo/GenericIf.h"
#include "Vomo/NboAttrLogFlow.h"

namespace Vomo {

inline constexpr FieldType entityBase{.builtin = Builtin::entity};
template <class T>
inline constexpr FieldType entityType{.type = IdOf<T>::type};

// What the engines can do with a set of keys, which is an HSet<Key, 0U>.
struct KeySetOps {
    void* (*make)();
    void (*free)(void* set);
    void (*add)(void* set, void const* key);
    bool (*del)(void* set, void const* key); // false if it was not there
    // Any of them; null if it is empty.
    void const* (*any)(void const* set);
};
template <class Key>
struct KeySet {
    using Set = HSet<Key, 0U>;
    static Key const& keyAt(void const* key) { return *static_cast<Key const*>(key); }
    static void* make() { return new Set; }
    static void free(void* set) { delete static_cast<Set*>(set); }
    static void add(void* set, void const* key) { static_cast<Set*>(set)->add(keyAt(key)); }
    static bool del(void* set, void const* key) { return static_cast<Set*>(set)->del(keyAt(key)); }
    static void const* any(void const* set) {
        typename Set::IteratorConst const first(&static_cast<Set const*>(set)->map());
        return first ? &first.node()->fwkKey() : nullptr;
    }
    static constexpr KeySetOps ops{make, free, add, del, any};
};

// What the engines can do with a collection, without knowing its types. Keys and values are passed by
// address.
struct CollectionOps {
    FieldType const* key;
    FieldType const* value;    // null: a set, or entities
    VomoTypeBase const* child; // of entities: what they are or derive from; else null
    U32 (*members)(void const* object);
    U32 (*version)(void const* object);
    // The member's value, or the entity; for a set its key. Null if there is none.
    void const* (*find)(void const* object, void const* key);
    // As the owner's mutators, which notify.
    void (*set)(void* object, void const* key, void const* value);
    void (*del)(void* object, void const* key);
    // Enters a child, whose key must not be in use, or an entry. False, and nothing is done, if its
    // own key is not `key`. Null for other collections.
    bool (*enter)(void* object, Entity* child, void const* key);
    // A safe iterator on the heap, from the key or, if that is null, from the first.
    void* (*iterNew)(void const* object, void const* key);
    void const* (*iterKey)(void* iterator); // null at the end
    void (*iterInc)(void* iterator);
    void (*iterDel)(void* iterator);
    // What the iterator stands on: a value, a Ptr<Entity>, or whether the set still has it.
    void (*iterObj)(void* iterator, void* out);
    // The rest is for an entity's. The marks of a resync.
    void (*markAll)(void* object);
    void (*unmark)(void* object, void const* key);
    bool (*isMarked)(void const* object, void const* key);
    // A copy of a key on the heap.
    void* (*keyNew)(void const* key);
    void (*keyDel)(void* key);
    KeySetOps const* keySet;
};

namespace Impl {

struct NoMutator {};

// The functions of one collection. With `set` and `del` these mutators of the owner stand in for its
// own: for one that does more.
template <auto member, auto setBy, auto delBy>
struct CollectionFunctions {
    using Coll = FieldOf<member>;
    using T = typename Coll::OwnerType; // the class of the member, or derived from it
    using Key = typename Coll::Key;
    using Value = typename Coll::Value;
    using Iterator = typename Coll::IteratorConst;
    static constexpr bool isOrdered = std::is_base_of_v<RbTreeMapGeneric, Coll>;
    static constexpr bool isEntities = requires { typename Coll::Child; };
    static constexpr bool isChildren = Coll::kind == RowKind::children;
    // By a key that is not theirs.
    static constexpr bool isForeign = Coll::kind == RowKind::foreignEntries;
    static constexpr bool isSet = std::is_void_v<Value>;
    static constexpr bool isOfEntity = std::is_base_of_v<Entity, T>;

    static T* owner(void* object) { return static_cast<T*>(object); }
    static Coll const& of(void const* object) { return static_cast<T const*>(object)->*member; }
    static Coll& in(void* object) { return owner(object)->*member; }
    static Key const& keyAt(void const* key) { return *static_cast<Key const*>(key); }

    static U32 members(void const* object) { return of(object).members(); }
    static U32 version(void const* object) { return of(object).version(); }
    static void const* find(void const* object, void const* key) {
        auto* const found = of(object)[keyAt(key)];
        if (found == nullptr) return nullptr;
        if constexpr (isEntities)
            return static_cast<Entity const*>(found->value().ptr());
        else if constexpr (isSet)
            return &found->fwkKey();
        else
            return &found->value();
    }
    static void setMember(void* object, void const* key, [[maybe_unused]] void const* value) {
        T* const self = owner(object);
        constexpr bool isOwn = std::is_null_pointer_v<decltype(setBy)>;
        if constexpr (!isOwn && (isChildren || isSet)) {
            (self->*setBy)(keyAt(key));
        } else if constexpr (!isOwn) {
            (self->*setBy)(keyAt(key), *static_cast<Value const*>(value));
        } else if constexpr (isChildren) {
            using Child = typename Coll::Child;
            if constexpr (std::is_constructible_v<Child, Key const&>)
                (self->*member).is(self, keyAt(key));
            else // a child that knows its owner
                (self->*member).is(self, keyAt(key), Ptr<T>(self));
        } else if constexpr (isForeign) {
            (self->*member).is(self, keyAt(key), childIn(*static_cast<Ptr<Entity> const*>(value)));
        } else if constexpr (isEntities) {
            enterEntry(object, static_cast<Ptr<Entity> const*>(value)->ptr(), key);
        } else if constexpr (isSet) {
            (self->*member).is(self, keyAt(key));
        } else {
            (self->*member).is(self, keyAt(key), *static_cast<Value const*>(value));
        }
    }
    static void delMember(void* object, void const* key) {
        T* const self = owner(object);
        if constexpr (std::is_null_pointer_v<decltype(delBy)>)
            (self->*member).del(self, keyAt(key));
        else
            (self->*delBy)(keyAt(key));
    }
    // Raises unless it is null or what the collection holds.
    static auto childIn(Ptr<Entity> const& entity) {
        using Child = typename Coll::Child;
        if (entity) ownerChecked(entity.ptr(), IdOf<T>::type, Coll::number, IdOf<Child>::type);
        return Ptr<Child>(static_cast<Child*>(entity.ptr()));
    }
    static bool enterEntry(void* object, Entity* entity, void const* key) {
        auto const child = childIn(Ptr<Entity>(entity));
        if (child && !(Coll::keyIn(child) == keyAt(key))) return false;
        if constexpr (isChildren)
            in(object).enter(owner(object), child);
        else
            in(object).is(owner(object), child);
        return true;
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
    static void iterObj(void* iterator, void* out) {
        auto& i = *static_cast<Iterator*>(iterator);
        if constexpr (isForeign) {
            *static_cast<Ptr<Entity>*>(out) = Ptr<Entity>(i.value());
        } else if constexpr (isOrdered) {
            *static_cast<Value*>(out) = i.value();
        } else {
            auto* const present = i.node();
            if constexpr (isEntities)
                *static_cast<Ptr<Entity>*>(out) =
                    present == nullptr ? Ptr<Entity>() : Ptr<Entity>(present->value());
            else if constexpr (isSet)
                *static_cast<bool*>(out) = present != nullptr;
            else if (present != nullptr)
                *static_cast<Value*>(out) = present->value();
        }
    }

    // A child that the collection makes is marked itself, any other member in the collection.
    static void markAll(void* object) {
        if constexpr (isChildren) {
            for (auto const& node : of(object))
                node.value()->streamStateIs(node.value()->streamState() | Entity::resyncMark);
        } else if constexpr (isOrdered) {
            in(object).markAllForDeletion();
        } else {
            in(object).vomoMarkAllForDeletion();
        }
    }
    static void unmark(void* object, void const* key) {
        auto* const found = of(object)[keyAt(key)];
        if (found == nullptr) return;
        if constexpr (isChildren)
            found->value()->streamStateIs(found->value()->streamState() & ~Entity::resyncMark);
        else if constexpr (isOrdered)
            found->vomoMarkedForDeletionIs(false);
        else
            in(object).markedForDeletionIs(keyAt(key), false);
    }
    static bool isMarked(void const* object, void const* key) {
        auto* const found = of(object)[keyAt(key)];
        if (found == nullptr) return false;
        if constexpr (isChildren)
            return (found->value()->streamState() & Entity::resyncMark) != 0;
        else if constexpr (isOrdered)
            return found->vomoMarkedForDeletion();
        else
            return Iterator(&of(object), keyAt(key)).markedForDeletion();
    }
    static void* keyNew(void const* key) { return new Key(keyAt(key)); }
    static void keyDel(void* key) { delete static_cast<Key*>(key); }

    static constexpr CollectionOps makeOps() {
        CollectionOps ops{};
        ops.key = &fieldType<Key>;
        ops.members = members;
        ops.version = version;
        ops.find = find;
        ops.set = setMember;
        ops.del = delMember;
        ops.iterNew = iterNew;
        ops.iterKey = iterKey;
        ops.iterInc = iterInc;
        ops.iterDel = iterDel;
        ops.iterObj = iterObj;
        if constexpr (isEntities) {
            ops.child = &IdOf<typename Coll::Child>::type;
            if constexpr (!isForeign) ops.enter = enterEntry;
        } else if constexpr (!isSet) {
            ops.value = &fieldType<Value>;
        }
        if constexpr (isOfEntity) {
            ops.markAll = markAll;
            ops.unmark = unmark;
            ops.isMarked = isMarked;
            ops.keyNew = keyNew;
            ops.keyDel = keyDel;
            ops.keySet = &KeySet<Key>::ops;
        }
        return ops;
    }
    static constexpr CollectionOps ops = makeOps();
};

// A collection in a value, as a field: printed as "None", not read from text.
template <class Coll>
struct WholeCollection {
    static void print(String& text, void const*) { text += "None"; }
    static void parse(CharRange&, void*, char const* attrName) {
        Dunlin::fmthrow<NoImplementationException>("{}: a collection has no text form to read",
                                                   attrName);
    }
    static void write(NboAttrLog::Out& out, void const* field) {
        out << *static_cast<Coll const*>(field);
    }
    static void read(NboAttrLog::In* in, void* field) {
        *static_cast<Coll*>(field) = Coll(in, StreamBogon{});
    }
    // Of the members and the end mark.
    static U32 logSize(void const* field) {
        typename Coll::Key const endMark{};
        U32 size = fieldLogSize<typename Coll::Key>(&endMark);
        for (auto const& node : *static_cast<Coll const*>(field)) {
            size += fieldLogSize<typename Coll::Key>(&node.fwkKey());
            if constexpr (!std::is_void_v<typename Coll::Value>)
                size += fieldLogSize<typename Coll::Value>(&node.value());
        }
        return size;
    }
    static constexpr FieldType type = [] {
        FieldType result{};
        result.size = sizeof(Coll);
        result.print = print;
        result.parse = parse;
        result.write = write;
        result.read = read;
        result.logSize = logSize;
        result.equal = equalFields<Coll>;
        return result;
    }();
};

template <auto set>
void setScalar(void* object, void const* value) {
    [&]<class R, class T, class V>(R (T::*)(V)) {
        (static_cast<T*>(object)->*set)(*static_cast<std::remove_cvref_t<V> const*>(value));
    }(set);
}
template <auto ref>
Entity* ownerOf(Entity const* entity) {
    return (static_cast<ClassOf<ref> const*>(entity)->*ref).of(entity);
}
template <class Ref>
struct OwnerIn;
template <template <class> class Ref, class Owner>
struct OwnerIn<Ref<Owner>> {
    using type = Owner;
};
template <auto get, auto set>
U32 foreignOp(void* out, void* object, AttributeOp op, void* a, void*) {
    using T = typename SignatureOf<get>::Class;
    using Target = typename PointedBy<std::remove_cvref_t<ResultOf<get>>>::type;
    if (op == AttributeOp::get) {
        store(out, Ptr<Entity>((static_cast<T const*>(object)->*get)()));
    } else if (op == AttributeOp::set) {
        Entity* const given = static_cast<Ptr<Entity> const*>(a)->ptr();
        if (given != nullptr) typeChecked(*given, IdOf<T>::type, IdOf<Target>::type);
        (static_cast<T*>(object)->*set)(Ptr<Target>(static_cast<Target*>(given)));
    } else {
        return 1;
    }
    return 0;
}

} // namespace Impl

// A stored scalar of an entity. A mutator that does more than store and notify is named.
template <auto field, auto... set>
consteval Row notifying(U32 number, char const* name) {
    Row row{.number = number,
            .kind = RowKind::notifying,
            .stored = true,
            .name = name,
            .type = &fieldType<Impl::FieldOf<field>>,
            .field = Impl::fieldAt<field>};
    if constexpr (sizeof...(set) != 0) row.set = Impl::setScalar<set...>;
    return row;
}
// A stored scalar that has no mutator; it is sent, so that a mirror shows the source's.
template <auto field>
consteval Row readOnly(U32 number, char const* name) {
    Row row = notifying<field>(number, name);
    row.kind = RowKind::readOnly;
    return row;
}
// A collection of Vomo/Collections.h: its class says which kind it is, and its number. Of entities, in
// an entity: `keyName` is the member's attribute that is the key. `set(key)` or `set(key, value)` and
// `del(key)` are mutators of the owner that do more than the collection's.
template <auto member, auto set = nullptr, auto del = nullptr>
consteval Row collection(char const* name, char const* keyName = nullptr) {
    using F = Impl::CollectionFunctions<member, set, del>;
    Row row{.number = F::Coll::number,
            .kind = F::isOfEntity ? F::Coll::kind : RowKind::memberMap,
            .stored = true,
            .name = name,
            .key = &fieldType<typename F::Key>,
            .keyName = keyName,
            .field = Impl::fieldAt<member>,
            .collection = &F::ops};
    if ((F::isEntities && !F::isForeign) != (keyName != nullptr))
        throw "collections of entities name the key's attribute";
    if constexpr (F::isEntities)
        row.type = &entityType<typename F::Coll::Child>;
    else if constexpr (F::isSet)
        row.type = &fieldType<bool>;
    else
        row.type = &fieldType<typename F::Value>;
    if constexpr (!F::isOfEntity) row.whole = &Impl::WholeCollection<typename F::Coll>::type;
    return row;
}
// The OwnerRef of a child.
template <auto ref>
consteval Row owner(U32 number, char const* name) {
    using Owner = typename Impl::OwnerIn<Impl::FieldOf<ref>>::type;
    return {.number = number,
            .kind = RowKind::owner,
            .stored = true,
            .name = name,
            .type = &entityType<Owner>,
            .ownerOf = Impl::ownerOf<ref>};
}
// A pointer to an entity of another tree; never sent. `get` and `set` are its accessor and mutator.
template <auto get, auto set>
consteval Row foreign(U32 number, char const* name) {
    using Pointer = Impl::ResultOf<get>;
    return {.number = number,
            .kind = RowKind::foreign,
            .stored = true,
            .name = name,
            .type = &fieldType<Pointer>,
            .op = Impl::foreignOp<get, set>};
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
// How many constructor parameters an entity has, its name among them.
struct CtorParams {
    bool isNamed;
    U32 count;
};
U32 sizeOfCtorParams(CtorParams params, std::span<Row const> rows, Entity const* entity);
void writeCtorParams(CtorParams params, Out& out, std::span<Row const> rows, Entity const* entity);
// The owner of an entity of `type` that is read: an `owner`.
Ptr<Entity> nextOwner(In* in, VomoTypeBase type, U32 attrId, VomoTypeBase owner);
} // namespace NboAttrLog

// The functions by which the generic interface walks the collections of T, a value or an entity.
template <class T>
struct IteratorFunctions {
    static constexpr bool isEntity = Describe<T>::type.kind == TypeKind::entity;
    static constexpr auto rows = [] {
        if constexpr (isEntity)
            return allRows<T>();
        else
            return Describe<T>::attributes;
    }();

    static constexpr bool hasCollection() {
        for (Row const& row : rows)
            if (row.collection != nullptr) return true;
        return false;
    }
    static void* genericIfIterator(void* object, void** key, VomoAttr attr,
                                   GenericIfRaw::Iterator::IteratorVTable const** methods) {
        CollectionOps const* const of = collection(attr);
        if (of == nullptr) return nullptr;
        *methods = &vtable;
        void* self = object;
        if constexpr (isEntity) self = static_cast<T*>(static_cast<Entity*>(object));
        return of->iterNew(self, key == nullptr ? nullptr : *key);
    }
    // Null for an attribute that is no collection of T.
    static CollectionOps const* collection(VomoAttr attr) {
        for (Row const& row : rows)
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
    static constexpr GenericIfRaw::Iterator::IteratorVTable makeVtable() {
        if constexpr (hasCollection())
            return {iterObj, iterKey, iterNonnull, iterInc, iterDel, {}};
        else
            return {};
    }
    static constexpr GenericIfRaw::Iterator::IteratorVTable vtable = makeVtable();
};

namespace Impl {

template <class T>
struct ArgumentsOf {
    using type = typename T::Arguments;
};
template <class T>
requires requires {
    typename Describe<T>::Arguments;
}
struct ArgumentsOf<T> {
    using type = typename Describe<T>::Arguments;
};

// The per-type functions of an entity; each hands its rows to an engine. An entity is made from the
// Arguments that its class or its Describe names: its name or key, and its owner as a Ptr; from none
// by its owner alone.
template <class T>
struct EntityFunctions {
    using Arguments = typename ArgumentsOf<T>::type;
    static constexpr U32 numArguments = std::tuple_size_v<Arguments>;
    static constexpr bool isNamed = [] {
        if constexpr (numArguments == 0)
            return false;
        else
            return std::is_same_v<std::tuple_element_t<0, Arguments>, String>;
    }();
    static constexpr NboAttrLog::CtorParams ctorParams{isNamed, numArguments};
    static constexpr auto const& allOf = IteratorFunctions<T>::rows;
    static constexpr std::span<Row const> rows() { return allOf; }
    using Sa = Entity::VomoNboAttrLogSa;

    static void* newEntityForDir(String const& name, void* args) {
        if (args != nullptr) throwNewEntityArgsException(IdOf<T>::type);
        Ptr<T> const made = newEntity<T>(name);
        made->referencesInc(); // the caller's
        return static_cast<Entity*>(made.ptr());
    }
    static Ptr<Entity> newEntityForAttrLog([[maybe_unused]] NboAttrLog::In* in) {
        if constexpr (numArguments == 0)
            throwNotMadeByOthers(IdOf<T>::type);
        else
            return madeFrom([in]<class A>(A*) { return read<A>(in); },
                            static_cast<Arguments*>(nullptr));
    }
    // `to` is room for a Ptr<Entity>.
    static void genericIfConstructFromCtorArgs(void* to, void* const* args) {
        new (to) Ptr<Entity>(madeFrom([&args]<class A>(A*) { return taken<A>(*args++); },
                                      static_cast<Arguments*>(nullptr)));
    }
    // `object` is the entity as Entity.
    static U32 genericIfAttributeOp(void* out, void* object, VomoAttr attr, AttributeOp op, void* a,
                                    void* b) {
        if (attr.isNull()) return 1;
        return GenericIfImpl::rowsOp(Describe<T>::type, rows(), out,
                                     static_cast<T*>(static_cast<Entity*>(object)), attr, op, a, b);
    }

    static Ptr<NboAttrLog::FlowOut> newFlowOut(Sa*, bool, U32 lastSynced) {
        Ptr<NboAttrLog::FlowOut> flow(new typename T::FlowOut);
        NboAttrLog::newFlowOut(*flow, rows(), lastSynced);
        return flow;
    }
    static bool freeResyncState(Ptr<NboAttrLog::FlowOut> const& flow) {
        return NboAttrLog::freeResyncState(flow, rows());
    }
    static U32 attrLogSizeCtorParams(Entity const* e) {
        return NboAttrLog::sizeOfCtorParams(ctorParams, rows(), e);
    }
    static void serializeConstructorParams(NboAttrLog::Out& out, Entity const* e) {
        NboAttrLog::writeCtorParams(ctorParams, out, rows(), e);
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
                                        IteratorFunctions<T>::vtable};

private:
    static constexpr U32 ownerAttr() {
        for (Row const& row : allOf)
            if (row.kind == RowKind::owner) return row.number;
        return 0;
    }
    template <class A>
    static A read(NboAttrLog::In* in) {
        if constexpr (isPtr<A>) {
            using Owner = typename PointedBy<A>::type;
            return A(static_cast<Owner*>(
                NboAttrLog::nextOwner(in, IdOf<T>::type, ownerAttr(), IdOf<Owner>::type).ptr()));
        } else {
            A value{};
            readField<A>(in, &value);
            return value;
        }
    }
    template <class A>
    static A taken(void const* argument) {
        if constexpr (isPtr<A>) {
            using Owner = typename PointedBy<A>::type;
            Entity* const entity = static_cast<Ptr<Entity> const*>(argument)->ptr();
            ownerChecked(entity, IdOf<T>::type, ownerAttr(), IdOf<Owner>::type);
            return A(static_cast<Owner*>(entity));
        } else {
            return *static_cast<A const*>(argument);
        }
    }
    // `next` gives the arguments in order.
    template <class Next, class... A>
    static Ptr<Entity> madeFrom(Next next, std::tuple<A...>*) {
        std::tuple<A...> const arguments{next(static_cast<A*>(nullptr))...};
        return std::apply([](auto const&... a) { return Ptr<Entity>(newEntity<T>(a...)); },
                          arguments);
    }
};

} // namespace Impl

namespace GenericIfImpl {
template <class T>
struct GenericIfPtrInterfaceMethods {
    static ValueMethods const vtable_;
};
extern template struct GenericIfPtrInterfaceMethods<Entity>;
} // namespace GenericIfImpl

} // namespace Vomo
