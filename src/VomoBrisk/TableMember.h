// A table attribute, as a member of the entity that owns the table. It does all that the attribute's
// operations do; the owner forwards to it under the attribute's names, one line each, and has one row
// for it.
//
//   class Status : public Vomo::EntityOf<Status, VomoBrisk::TableOwner> {
//       using RouteTable = VomoBrisk::TableMember<Status, routeAttr, Mroute::RouteTable>;
//       RouteTable::Value route(RouteTable::Key const& key) const { return route_.get(key); }
//       void routeIs(RouteTable::Value const& v) { route_.is(v); }
//       ...
//       RouteTable route_{*this, &Status::routeNotify, &Status::routeNotifyMountStatus,
//                         &Status::routeNotifyQuiesced};
//   };
#pragma once

#include "Dunlin/Exception.h"
#include "VomoBrisk/TableOwner.h"
#include "VomoBrisk/VomoBriskMap.h"

#include <memory>

namespace VomoBrisk {

// `Instance` names the key, the value as the table holds it, its Ops, the name of its type and that of
// the attribute.
template <class Owner, U32 attr, class Instance>
class TableMember final : public TableAttribute {
public:
    static constexpr U32 number = attr;
    static constexpr char const* attribute = Instance::attribute;
    using Key = typename Instance::Key;
    using Value = typename Instance::Value;
    using Map = VomoBriskMap<Owner, Value, Key, typename Instance::Ops>;
    using IteratorConst = typename Map::IteratorConst;
    using Values = std::span<Value const* const>;
    using Keys = std::span<Key const* const>;

    // The name of the owner must be there already.
    TableMember(Owner& owner, typename Map::NotifyFn notifyFn,
                typename Map::MountStatusFn mountStatusFn, typename Map::QuiescedFn quiescedFn)
        : TableAttribute(owner, attr), owner_(owner), notify_(notifyFn),
          map_(Instance::typeName, &owner) {
        controlMake();
        map_.entity(attribute, &owner, attr, notifyFn, mountStatusFn, quiescedFn);
    }

    char const* name() const override { return attribute; }
    Brisk::BriskMapBase& front() override { return map_; }
    Mem::MountStatus mountStatus() const override { return map_.mountStatus(); }
    void init(Brisk::MapDescriptor const& settings) override { map_.init(settings); }
    void handleParent(Vomo::Ptr<Vomo::Entity> const& parent) override { map_.handleParent(parent); }
    Map& map() { return map_; }
    Map const& map() const { return map_; }

    // The value of the key; the default one if it is not there.
    Value get(Key const& key) const {
        bool found = false;
        return *map_.safeLookup(key, found, nullptr);
    }
    // Null if the key is not there. Good until the next operation on the table.
    Value const* find(Key const& key) const {
        bool found = false;
        Value const* const at = map_.safeLookup(key, found, nullptr);
        return found ? at : nullptr;
    }
    bool has(Key const& key) const { return find(key) != nullptr; }

    // The mutators raise NoPermissionException where the table is read-only, and what the writer's
    // own operations raise. Each change that was made is notified, also if what is raised then goes
    // on to the caller.
    // Enters the value or replaces that of its key; notifies in either case.
    void is(Value const& value) {
        Key const key = value.fwkKey();
        owner_.mutationsInc();
        map_.safeWrite(value, true);
        tell(key);
    }
    // Returns what the key had; the default value, and notifies nothing, if it was not there.
    Value del(Key const& key) {
        Value old;
        owner_.mutationsInc();
        if (map_.safeRemove(key, old)) tell(Key(key));
        return old;
    }
    void delAll();
    // Publishes what was filled in place, at the address that safeDirectWrite or safeDirectUpdate of
    // the map gave.
    void commit(Value const* value) {
        Key const key = value->fwkKey();
        owner_.mutationsInc();
        map_.safeDirectCommit();
        tell(key);
    }
    // Many at once: faster than one by one where they are more than the caches hold. The keys are
    // notified when all are done.
    void isAll(Values values);
    void delAll(Keys keys);

    // What the table tells the owner.
    void notify(Key const& key) { entity_.tableChanged(attributeId(), &key); }
    using TableAttribute::notifyMountStatus;
    using TableAttribute::notifyQuiesced;

private:
    void tell(Key const& key) { (owner_.*notify_)(key); }
    template <class Change, class KeyOf>
    void many(std::size_t count, Change const& change, KeyOf const& keyOf);

    Owner& owner_;
    typename Map::NotifyFn const notify_;
    Map map_;
};

template <class Owner, U32 attr, class Instance>
void TableMember<Owner, attr, Instance>::delAll() {
    Vomo::Ptr<Vomo::Entity> const hold(&entity_);
    Value value;
    Brisk::IterHint hint;
    for (bool more = map_.safeFirst(value, hint); more;) {
        Key const key = value.fwkKey();
        // Behind the key before it goes: the hint stays good.
        more = map_.safeNext(key, value, hint);
        del(key);
    }
}

// Changes, then notifies those keys that `change` has marked as changed, all of them whatever one
// notifiee raises; then raises what was raised first.
template <class Owner, U32 attr, class Instance>
template <class Change, class KeyOf>
void TableMember<Owner, attr, Instance>::many(std::size_t count, Change const& change,
                                              KeyOf const& keyOf) {
    Vomo::Ptr<Vomo::Entity> const hold(&entity_);
    auto const changed = std::make_unique<bool[]>(count);
    Dunlin::FirstRaised raised;
    raised.run([&] { change(changed.get()); });
    for (std::size_t i = 0; i < count; ++i) {
        owner_.mutationsInc();
        if (changed[i]) raised.run([&] { tell(keyOf(i)); });
    }
    raised.rethrow();
}

template <class Owner, U32 attr, class Instance>
void TableMember<Owner, attr, Instance>::isAll(Values values) {
    many(
        values.size(),
        [&](bool* written) {
            std::size_t count = 0;
            auto const mark = [&] { std::fill_n(written, count, true); };
            try {
                map_.safeWriteAll(values, count);
            } catch (...) {
                mark();
                throw;
            }
            mark();
        },
        [&](std::size_t i) -> Key { return values[i]->fwkKey(); });
}

template <class Owner, U32 attr, class Instance>
void TableMember<Owner, attr, Instance>::delAll(Keys keys) {
    many(
        keys.size(), [&](bool* removed) { map_.safeRemoveAll(keys, removed); },
        [&](std::size_t i) -> Key { return *keys[i]; });
}

} // namespace VomoBrisk
