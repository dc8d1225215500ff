// A shared table as an attribute of an entity: the front of the table, bound to its owner.
//
// The table's life follows the owner's. Before the owner has been mounted the table is private to
// the process: the owner reads back what it has written, nobody else sees it, and the mount drops it.
// The mount gives the table its role. When the owner is taken out of its tree the table detaches and
// is empty for good, or must not be used any more, as the settings say (`assertOnOrphanAccess`).
//
// Damage that is found goes to `doCorruptionDetected`: a lookup then answers "not there", a walk
// ends, and a mutator ends the process with "in no man's land" if the handler comes back.
#pragma once

#include "Brisk/Table.h"
#include "Vomo/Entity.h"
#include "Vomo/StdIterator.h"

namespace VomoBrisk {

template <class Owner, class Wrapper, class KeyType, class OpsType>
class VomoBriskMap : public Brisk::BriskMap<OpsType> {
public:
    using Front = Brisk::BriskMap<OpsType>;
    using Ops = OpsType;
    using Key = KeyType;
    using Value = Wrapper;
    using NotifyFn = void (Owner::*)(Key const&);
    using MountStatusFn = void (Owner::*)();
    using QuiescedFn = void (Owner::*)(bool);

    // Slots of the private table.
    static constexpr U32 temporarySize = 100;

    // `typeName` is the name of the value that the files of a writer carry.
    VomoBriskMap(std::string const& typeName, Owner* owner);
    ~VomoBriskMap() override;

    // Names the attribute, binds the owner's functions to what the table tells, and makes the private
    // table. Called once, by the owner's constructor. Raises MemoryResourceException, and
    // InvalidInitializeException for a name that no path can have.
    void entity(Vomo::String name, Owner* owner, Vomo::AttributeId id, NotifyFn notifyFn,
                MountStatusFn mountStatusFn, QuiescedFn quiescedFn);
    // With a parent: the table's path is the parent's full name and the attribute's; what the private
    // table holds is dropped. Raises InvalidInitializeException if there was a parent before. Without:
    // the table detaches, and clients hear that its keys are gone.
    void handleParent(Vomo::Ptr<Vomo::Entity> const& parent);

    bool validateFiles(std::string const& event, unsigned flags) override;
    // The owner's class.
    std::string classType() const override;
    Vomo::AttributeId attributeId() const { return id_; }

    // --- The table's contents beyond safeLookup, safeWrite and safeRemove, with the same care.
    // The area for the value of that key, to be filled in place, key included, and then committed.
    // `directUpdate`: null if the key is not there.
    Value* safeDirectWrite(Value const& value);
    Value* safeDirectUpdate(Key const& key);
    void safeDirectCommit();
    // Many at once, in their order. `written` counts those that were written, also if what is raised
    // ends it; `removed` has a word for each key.
    void safeWriteAll(std::span<Value const* const> values, std::size_t& written);
    void safeRemoveAll(std::span<Key const* const> keys, bool* removed);
    // The first key of the table, or the first behind `after`; false if there is none.
    bool safeFirst(Value& value, Brisk::IterHint& hint);
    bool safeNext(Key const& after, Value& value, Brisk::IterHint& hint);

    // A walk that may meet any change of the table, its writer's end and its return included: it goes
    // on behind the key on which it stands, whether that is still there or not, and meets no key
    // twice unless it left and came back. The map must live on.
    class IteratorConst {
    public:
        using NodeType = Value;

        IteratorConst() = default;
        // On the first entry.
        explicit IteratorConst(VomoBriskMap const* map);
        // On that key, or on the one that comes behind it.
        IteratorConst(VomoBriskMap const* map, Key const& key);

        explicit operator bool() const { return valid_; }
        decltype(auto) key() const { return value_.fwkKey(); }
        // As it was when the walk came to it.
        Value const* node() const { return &value_; }
        Value const& value() const { return value_; }
        Value const& operator*() const { return value_; }
        Value const* operator->() const { return &value_; }
        void advance();
        IteratorConst& operator++() {
            advance();
            return *this;
        }

    private:
        template <class Step>
        void take(Step const& step);

        VomoBriskMap const* map_ = nullptr;
        Brisk::IterHint hint_;
        // What the hint is a place in.
        typename Front::Interface const* hintOf_ = nullptr;
        SharedMem::OrielId hintId_ = 0;
        Value value_{};
        bool valid_ = false;
    };
    auto begin() const { return Vomo::StdIterator(IteratorConst(this)); }
    std::default_sentinel_t end() const { return {}; }

private:
    template <class Action>
    auto guarded(Action const& action);
    void temporaryIs(Vomo::String const& directory);

    Owner* owner_;
    bool bound_ = false; // there was a parent
    Vomo::AttributeId id_ = 0;
    Vomo::String attribute_;
};

} // namespace VomoBrisk

// Promises that some source instantiates the binding (VOMO_BRISK_INSTANCE in VomoBriskMapImpl.h).
#define VOMO_BRISK_EXTERN(OWNER, TABLE)                                                            \
    extern template class VomoBrisk::VomoBriskMap<OWNER, TABLE::Value, TABLE::Key, TABLE::Ops>
