// The rows of table attributes. For sources of entities.
#pragma once

#include "Vomo/EntityFrame.h"
#include "VomoBrisk/TableMember.h"

namespace VomoBrisk {

[[noreturn]] void throwOtherKey(Vomo::VomoTypeBase owner, char const* table);

// What the generic interface does with a table. Its entries are not sent by the attribute log: the
// tables reach the other processes by themselves.
template <auto member>
struct TableFunctions {
    using Owner = Vomo::Impl::ClassOf<member>;
    using Table = Vomo::Impl::FieldOf<member>;
    using Key = typename Table::Key;
    using Value = typename Table::Value;
    using Wrapped = typename Value::Wrapped; // to the framework, the value's type

    static Owner const& owner(void const* object) { return *static_cast<Owner const*>(object); }
    static Table const& of(void const* object) { return owner(object).*member; }
    static Table& in(void* object) { return static_cast<Owner*>(object)->*member; }
    static Key const& keyAt(void const* key) { return *static_cast<Key const*>(key); }

    static U32 members(void const* object) { return of(object).map().members(); }
    static U32 version(void const* object) { return static_cast<U32>(owner(object).changes()); }
    static void const* find(void const* object, void const* key) {
        return static_cast<Wrapped const*>(of(object).find(keyAt(key)));
    }
    static void set(void* object, void const* key, void const* value) {
        Value const entry(*static_cast<Wrapped const*>(value));
        if (!(entry.fwkKey() == keyAt(key)))
            throwOtherKey(Vomo::IdOf<Owner>::type, of(object).name());
        in(object).is(entry);
    }
    static void del(void* object, void const* key) { in(object).del(keyAt(key)); }

    struct Walk {
        typename Table::IteratorConst at;
        Key key{}; // of the entry
        void take() {
            if (at) key = at.key();
        }
    };
    static Walk& walk(void* iterator) { return *static_cast<Walk*>(iterator); }
    static void* iterNew(void const* object, void const* key) {
        auto const* const map = &of(object).map();
        auto made = std::make_unique<Walk>(
            Walk{key == nullptr ? typename Table::IteratorConst(map)
                                : typename Table::IteratorConst(map, keyAt(key))});
        made->take();
        return made.release();
    }
    static void const* iterKey(void* iterator) {
        return walk(iterator).at ? &walk(iterator).key : nullptr;
    }
    static void iterInc(void* iterator) {
        ++walk(iterator).at;
        walk(iterator).take();
    }
    static void iterDel(void* iterator) { delete static_cast<Walk*>(iterator); }
    static void iterObj(void* iterator, void* out) {
        *static_cast<Wrapped*>(out) = walk(iterator).at.value();
    }

    static constexpr Vomo::CollectionOps ops = [] {
        Vomo::CollectionOps result{};
        result.key = &Vomo::fieldType<Key>;
        result.value = &Vomo::fieldType<Wrapped>;
        result.members = members;
        result.version = version;
        result.find = find;
        result.set = set;
        result.del = del;
        result.iterNew = iterNew;
        result.iterKey = iterKey;
        result.iterInc = iterInc;
        result.iterDel = iterDel;
        result.iterObj = iterObj;
        return result;
    }();
};

// A TableMember: its class knows number and name.
template <auto member>
consteval Vomo::Row table() {
    using F = TableFunctions<member>;
    return {.number = F::Table::number,
            .kind = Vomo::RowKind::table,
            .stored = true,
            .name = F::Table::attribute,
            .type = F::ops.value,
            .key = F::ops.key,
            .keyName = "key",
            .collection = &F::ops};
}
// The control of a table: its accessor and mutator in the owner.
template <auto get, auto set>
consteval Vomo::Row control(U32 number, char const* name) {
    Vomo::Row row = Vomo::foreign<get, set>(number, name);
    row.kind = Vomo::RowKind::control;
    return row;
}

} // namespace VomoBrisk
