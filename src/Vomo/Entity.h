// Entities: named, counted objects of which other code can watch each attribute.
#pragma once

#include "Vomo/AllocTrack.h"
#include "Vomo/Exception.h"
#include "Vomo/Ptr.h"

#include <tuple>
#include <vector>

namespace Vomo {

struct Row;
// An attribute's number.
using AttributeId = U32;

namespace Impl {
struct CollectionAccess;
} // namespace Impl
namespace NboAttrLog {
class FlowOut;
class Out;
} // namespace NboAttrLog

// The notifiees of an object, in one word: null until the first attaches.
class NotifieeListPtr {
public:
    NotifieeListPtr() = default;
    NotifieeListPtr(NotifieeListPtr const&) = delete;
    NotifieeListPtr& operator=(NotifieeListPtr const&) = delete;

    bool empty() const { return members_ == nullptr; }
    // Does nothing if it is no member.
    void deleteMember(PtrInterface* owner, PtrInterface::NotifieeConst* notifiee);

protected:
    ~NotifieeListPtr() = default;
    struct Members;
    Members* members_ = nullptr;
};
class NotifieeList : public NotifieeListPtr {
public:
    ~NotifieeList() { deleteAll(); }

    void newMember(PtrInterface* owner, PtrInterface::NotifieeConst* notifiee);
    void deleteAll();
    // Calls every notifiee that is attached when the visit begins and still is when its turn comes.
    // What the first of them raises passes on when all have been called: the others, a connection of
    // the attribute log among them, do not miss the change.
    void visit(U32 attrId) const { visit(attrId, nullptr); }
    void visit(U32 attrId, void const* key) const;
    void visitZeroReferences() const;
};

// What watches an object. Detaches itself when it goes.
class PtrInterface::NotifieeConst {
public:
    NotifieeConst() = default;
    NotifieeConst(NotifieeConst const&) = delete;
    NotifieeConst& operator=(NotifieeConst const&) = delete;
    virtual ~NotifieeConst();
    // `key` points to the key of the member that changed; null for an attribute without keys.
    virtual void onAttribute(U32 attrId, void const* key) = 0;
    // The last reference has gone; the object is still whole.
    virtual void onZeroReferences() {}

    // Attaches to `object`, from where it was before; null detaches. A notifiee that wants
    // `onZeroReferences` says so.
    void notifierIs(PtrInterface* object, bool wantsZeroReferences = false);
    PtrInterface* notifier() const { return notifier_; }

private:
    friend class NotifieeListPtr;
    friend class NotifieeList;
    PtrInterface* notifier_ = nullptr;
};

// An entity of the tree that agents mount. Belongs to one thread. The fields of a class stand after
// those of its base; the list of notifiees is the last.
class Entity : public PtrInterface {
public:
    // The entity's end of a connection; Vomo/NboAttrLogSa.h.
    class VomoNboAttrLogSa;
    // That on the connection which `out` goes over, made if the peer has not heard of the entity.
    VomoNboAttrLogSa& vomoNboAttrLogSa(NboAttrLog::Out& out);

    // The parent, which is not held. Calls handleParent, which may refuse a parent by raising: the
    // link is then as it was. Without a parent the link is gone when handleParent is called.
    void parentIs(Ptr<Entity> const& parent);
    Entity* parent() const { return parent_; }
    // Before this is true no notifiee is called; a factory ends with it.
    void hasNotificationActiveIs(bool active) override { notificationActive_ = active; }
    bool hasNotificationActive() const { return notificationActive_; }
    ~Entity() override;

    // The stream's word: bit 0x400000 says that a resync has not met the entity yet.
    static constexpr U32 resyncMark = 0x400000;
    U32 streamState() const { return streamState_; }
    void streamStateIs(U32 v) { streamState_ = v; }
    // How often the entity's tables were written, and how often a write changed something.
    U64 mutations() const { return mutations_; }
    U64 changes() const { return changes_; }
    void mutationsInc() { ++mutations_; }
    void changesInc() { ++changes_; }

protected:
    Entity() = default;
    // Keeps an entity while its constructor hands it to others, which count it.
    class HeldInConstruction {
    public:
        explicit HeldInConstruction(Entity* entity) : entity_(entity) { entity_->referencesInc(); }
        ~HeldInConstruction() { entity_->referencesDecKeep(); }
        HeldInConstruction(HeldInConstruction const&) = delete;
        HeldInConstruction& operator=(HeldInConstruction const&) = delete;

    private:
        Entity* entity_;
    };
    // Calls the notifiees, if notification is on. The last step of every mutator.
    void notify(U32 attrId, void const* key = nullptr) const {
        if (!notificationActive_) return;
        NotifieeList const* const list = notifieeList().list;
        if (list != nullptr && !list->empty()) [[unlikely]]
            list->visit(attrId, key);
    }
    // Stores and notifies, unless the value is the present one. True if it changed.
    template <class V>
    bool assign(V& field, V const& v, U32 attrId) {
        if (field == v) return false;
        field = v;
        notify(attrId);
        return true;
    }
    // Adds, with the field's own wrap-around; returns the new value.
    template <class V>
    V increase(V& field, V by, U32 attrId) {
        assign(field, static_cast<V>(field + by), attrId);
        return field;
    }
    template <class V>
    V decrease(V& field, V by, U32 attrId) {
        assign(field, static_cast<V>(field - by), attrId);
        return field;
    }

private:
    friend struct Impl::CollectionAccess;
    friend void scalarIs(Row const& row, Entity* entity, void const* value);

    Entity* parent_ = nullptr;
    bool notificationActive_ = false;
    U32 streamState_ = 0;
    U64 mutations_ = 0;
    U64 changes_ = 0;
};

[[noreturn]] void throwMutatorArgNullPointerException(VomoTypeBase type, U32 attrId);
[[noreturn]] void throwNewEntityArgsException(VomoTypeBase type);
// An entity of `type` is made by its owner alone.
[[noreturn]] void throwNotMadeByOthers(VomoTypeBase type);
// Raises unless `entity`, given as the owner of a `type` by its attribute, is an `owner`.
void ownerChecked(Entity const* entity, VomoTypeBase type, U32 attrId, VomoTypeBase owner);
// Raises unless `entity`, given to an `owner`, is a `wanted`.
void typeChecked(Entity const& entity, VomoTypeBase owner, VomoTypeBase wanted);
namespace Impl {
// There is another child under the key of `added`.
[[noreturn]] void throwMutatorReinstantiating(Entity const& owner, U32 attrId,
                                              Entity const* present, Entity const* added);
} // namespace Impl
// What the generic interface and the attribute log do to a scalar: stores and notifies, unless the value
// is the present one.
void scalarIs(Row const& row, Entity* entity, void const* value);

namespace System {
// Seconds since the epoch, by a clock of nanoseconds.
double currentTime();
} // namespace System

// Base of the counted class T: T's account of allocations.
template <class T>
class Tracked {
public:
    static inline AllocTrackTypeInfo* vomoAllocTrackTypeInfo_ = nullptr;

protected:
    Tracked() {
        AllocTrackTypeInfo::_trackAllocation(&vomoAllocTrackTypeInfo_, typeid(T), sizeof(T), 8);
    }
    Tracked(Tracked const&) : Tracked() {}
    ~Tracked() { AllocTrackTypeInfo::_trackDeallocation(&vomoAllocTrackTypeInfo_, sizeof(T)); }
};

// What every entity class T has alike; T derives from EntityOf<T> or EntityOf<T, its base>, names it
// a friend, and ends in its list of notifiees, `mutable NotifieeList notifiees_`, which goes first
// when T is destroyed.
template <class T, class Base = Entity>
class EntityOf : public Base, public Tracked<T> {
public:
    using Base::Base;
    using Tracked<T>::vomoAllocTrackTypeInfo_; // not that of the base
    // What one connection has yet to send of a T; Vomo/NboAttrLogFlow.h.
    using FlowOut = NboAttrLog::FlowOut;
    NotifieeListRecord notifieeList() const override {
        return {1, &static_cast<T const*>(this)->notifiees_, 0, 0};
    }
    VomoTypeBase fwkType() const override { return IdOf<T>::type; }
};

// Makes an entity that can stand alone: constructs it, then turns notification on.
template <class T, class... A>
Ptr<T> newEntity(A&&... args) {
    Ptr<T> entity(new T(std::forward<A>(args)...));
    entity->hasNotificationActiveIs(true);
    return entity;
}

// Base of an entity T that is made from its name.
template <class T, class Base = Entity>
class NamedEntity : public EntityOf<T, Base> {
public:
    using Arguments = std::tuple<String>;
    explicit NamedEntity(String const& name) : name_(name) {}
    String name() const override { return name_; }
    // For a collection whose key it is.
    String const& nameKey() const { return name_; }

private:
    String name_;
};
// Base of an entity T that is made from its key, whose text is its name.
template <class T, class Key, class Base = Entity>
class KeyedEntity : public EntityOf<T, Base> {
public:
    using Arguments = std::tuple<Key>;
    explicit KeyedEntity(Key const& key) : key_(key) {}
    String name() const override { return valueToStrep(key_); }

protected:
    Key key_;
};

} // namespace Vomo
