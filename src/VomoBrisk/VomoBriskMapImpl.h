// Definitions of VomoBriskMap; included only where an owner's tables are instantiated.
#pragma once

#include "Brisk/BriskDummy.h"
#include "VomoBrisk/TableOwner.h"
#include "VomoBrisk/VomoBriskMap.h"

#include <cxxabi.h>

// Instantiates the binding of an owner's table.
#define VOMO_BRISK_INSTANCE(OWNER, TABLE)                                                          \
    template class VomoBrisk::VomoBriskMap<OWNER, TABLE::Value, TABLE::Key, TABLE::Ops>

namespace VomoBrisk {

template <class Owner, class Value, class Key, class Ops>
VomoBriskMap<Owner, Value, Key, Ops>::VomoBriskMap(std::string const& typeName, Owner* owner)
    : Front("BriskTemp", typeName), owner_(owner) {}

template <class Owner, class Value, class Key, class Ops>
VomoBriskMap<Owner, Value, Key, Ops>::~VomoBriskMap() {
    FMTRACE(this->debugHandler(), 5, "{}", this->collName());
}

// ---- the life of the owner ----

template <class Owner, class Value, class Key, class Ops>
void VomoBriskMap<Owner, Value, Key, Ops>::entity(Vomo::String name, Owner* owner,
                                                  Vomo::AttributeId id, NotifyFn notifyFn,
                                                  MountStatusFn mountStatusFn,
                                                  QuiescedFn quiescedFn) {
    owner_ = owner;
    attribute_ = std::move(name);
    id_ = id;
    this->valueNotifyIs([owner, notifyFn](Value const& value) {
        Key const key = value.fwkKey();
        (owner->*notifyFn)(key);
    });
    this->keyNotifyIs([owner, notifyFn](Key const& key) { (owner->*notifyFn)(key); });
    this->deleteNotifyIs([owner, notifyFn](Key const& key) { (owner->*notifyFn)(key); });
    this->mountStatusNotifyIs([owner, mountStatusFn] { (owner->*mountStatusFn)(); });
    this->quiescedNotifyIs([owner, quiescedFn](bool on) { (owner->*quiescedFn)(on); });
    temporaryIs(owner->name());
}

template <class Owner, class Value, class Key, class Ops>
void VomoBriskMap<Owner, Value, Key, Ops>::temporaryIs(Vomo::String const& directory) {
    std::string const name =
        fmt::format("{}/{}", std::string_view(directory), std::string_view(attribute_));
    auto handler = Dunlin::Platform::getDebugHandler("BriskTemp", false);
    FMTRACE(*handler, 5, "creating local BriskWriter {}", name);
    auto writer =
        std::make_unique<Brisk::Tmp<Ops>>(*handler, name, temporarySize, Ops(), this->typeName());
    writer->initialize("none");
    this->nameIs(name, std::move(handler));
    this->interfaceIs(std::move(writer));
}

template <class Owner, class Value, class Key, class Ops>
void VomoBriskMap<Owner, Value, Key, Ops>::handleParent(Vomo::Ptr<Vomo::Entity> const& parent) {
    auto& handler = this->debugHandler();
    if (!parent) {
        FMTRACE(handler, 5, "{} is now an orphan", this->collName());
        this->assertOnOrphanAccessIs(this->descriptor().assertOnOrphanAccess);
        this->controlDetach();
        return;
    }
    if (bound_)
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>("Entity {} already initialized",
                                                            this->collName());
    Vomo::String const directory = VomoSharedMem::Util::fullName(*parent);
    FMTRACE(handler, 5, "old:{} new:{}/{}", this->collName(), std::string_view(directory),
            std::string_view(attribute_));
    temporaryIs(directory);
    bound_ = true;
}

template <class Owner, class Value, class Key, class Ops>
bool VomoBriskMap<Owner, Value, Key, Ops>::validateFiles(std::string const& event, unsigned flags) {
    FMTRACE(this->debugHandler(), 5, "delegating to BriskMap::validateFiles");
    return Front::validateFiles(event, flags);
}

template <class Owner, class Value, class Key, class Ops>
std::string VomoBriskMap<Owner, Value, Key, Ops>::classType() const {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> const name(
        abi::__cxa_demangle(typeid(Owner).name(), nullptr, nullptr, &status), std::free);
    return status == 0 ? name.get() : typeid(Owner).name();
}

// ---- changes ----

template <class Owner, class Value, class Key, class Ops>
template <class Action>
auto VomoBriskMap<Owner, Value, Key, Ops>::guarded(Action const& action) {
    try {
        return action(this->table());
    } catch (Dunlin::CorruptionDetectedException const& error) {
        this->doCorruptionDetected(error.message());
    }
    Dunlin::assertionFailed(__FILE__, __LINE__, std::string_view("in no man's land"));
}

template <class Owner, class Value, class Key, class Ops>
Value* VomoBriskMap<Owner, Value, Key, Ops>::safeDirectWrite(Value const& value) {
    return guarded([&](auto& table) { return table.directWrite(value); });
}
template <class Owner, class Value, class Key, class Ops>
Value* VomoBriskMap<Owner, Value, Key, Ops>::safeDirectUpdate(Key const& key) {
    return guarded([&](auto& table) { return table.directUpdate(key); });
}
template <class Owner, class Value, class Key, class Ops>
void VomoBriskMap<Owner, Value, Key, Ops>::safeDirectCommit() {
    guarded([&](auto& table) { table.directCommit(); });
}

template <class Owner, class Value, class Key, class Ops>
void VomoBriskMap<Owner, Value, Key, Ops>::safeWriteAll(std::span<Value const* const> values,
                                                        std::size_t& written) {
    guarded([&](auto& table) {
        if (auto* const writer = dynamic_cast<Brisk::BriskWriter<Ops>*>(&table))
            writer->writeAll(values, &written);
        else if (!values.empty())
            table.write(*values[0], true); // raises
    });
}
template <class Owner, class Value, class Key, class Ops>
void VomoBriskMap<Owner, Value, Key, Ops>::safeRemoveAll(std::span<Key const* const> keys,
                                                         bool* removed) {
    guarded([&](auto& table) {
        Value old;
        if (auto* const writer = dynamic_cast<Brisk::BriskWriter<Ops>*>(&table))
            writer->removeAll(keys, removed);
        else if (!keys.empty())
            table.remove(*keys[0], old); // raises
    });
}

template <class Owner, class Value, class Key, class Ops>
bool VomoBriskMap<Owner, Value, Key, Ops>::safeFirst(Value& value, Brisk::IterHint& hint) {
    return guarded([&](auto& table) { return table.first(value, hint); });
}
template <class Owner, class Value, class Key, class Ops>
bool VomoBriskMap<Owner, Value, Key, Ops>::safeNext(Key const& after, Value& value,
                                                    Brisk::IterHint& hint) {
    return guarded([&](auto& table) { return table.next(after, value, hint); });
}

// ---- the walk ----

// A hint is a place in one generation of one implementation's table.
template <class Owner, class Value, class Key, class Ops>
template <class Step>
void VomoBriskMap<Owner, Value, Key, Ops>::IteratorConst::take(Step const& step) {
    auto& table = map_->table();
    if (SharedMem::OrielId const id = table.orielId(); hintOf_ != &table || hintId_ != id) {
        hint_ = {};
        hintOf_ = &table;
        hintId_ = id;
    }
    try {
        valid_ = step(table);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        valid_ = false;
        const_cast<VomoBriskMap*>(map_)->doCorruptionDetected(error.message());
    }
}

template <class Owner, class Value, class Key, class Ops>
VomoBriskMap<Owner, Value, Key, Ops>::IteratorConst::IteratorConst(VomoBriskMap const* map)
    : map_(map) {
    if (map_) take([&](auto& table) { return table.first(value_, hint_); });
}

template <class Owner, class Value, class Key, class Ops>
VomoBriskMap<Owner, Value, Key, Ops>::IteratorConst::IteratorConst(VomoBriskMap const* map,
                                                                   Key const& key)
    : map_(map) {
    if (!map_) return;
    take([&](auto& table) {
        bool found = false;
        Value const* const at = table.lookup(key, found, &value_);
        if (!found) return table.next(key, value_, hint_);
        if (at != &value_) Ops::copyValue(&value_, at);
        return true;
    });
}

template <class Owner, class Value, class Key, class Ops>
void VomoBriskMap<Owner, Value, Key, Ops>::IteratorConst::advance() {
    if (valid_) take([&](auto& table) { return table.next(value_.fwkKey(), value_, hint_); });
}

} // namespace VomoBrisk
