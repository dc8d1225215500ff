// Shows the state of one table attribute to who knows entities only.
#pragma once

#include "Brisk/BriskMapBase.h"
#include "SharedMem/MountStatus.h"
#include "Vomo/Entity.h"
#include "Vomo/Value.h"

namespace VomoBrisk {
class CollectionControl;
}
namespace VomoSharedMem {
class CollectionControl;
using Mem::MountStatus;
} // namespace VomoSharedMem

namespace Vomo {
extern "C" VomoModule const _CollectionControl_9cdb198bb6e6436b_vomoModule;
struct CollectionControlModule
    : TypeList<Mem::MountStatus, VomoBrisk::CollectionControl, VomoSharedMem::CollectionControl> {
    static constexpr VomoModule const* record = &_CollectionControl_9cdb198bb6e6436b_vomoModule;
};
template <TypeOf<CollectionControlModule> T>
struct IdOf<T> : PlaceIn<T, CollectionControlModule> {};
} // namespace Vomo

namespace Mem {
using Vomo::operator<<;
using Vomo::sequenceToValue;
using Vomo::stringValue;
using Vomo::valueToStrep;
} // namespace Mem

namespace VomoSharedMem {

// The part that knows no table.
class CollectionControl : public Vomo::EntityOf<CollectionControl> {
public:
    enum Attr : U32 { mountStatusAttr = 258 };

    MountStatus mountStatus() const { return mountStatus_; }
    void mountStatusIs(MountStatus v) { assign(mountStatus_, v, mountStatusAttr); }
    // The entity whose attribute the table is. It owns the control, so it is not held: when its last
    // reference goes it takes itself out with null.
    Vomo::Entity* entityRef() const { return entityRef_; }
    virtual void entityRefIs(Vomo::Ptr<Vomo::Entity> const& entity) { entityRef_ = entity.ptr(); }

    // That of the entity; empty without one.
    Vomo::String name() const override;

protected:
    CollectionControl() = default;
    explicit CollectionControl(Vomo::Entity* entity) : entityRef_(entity) {}

private:
    friend EntityOf;
    friend Vomo::Describe<CollectionControl>;
    MountStatus mountStatus_ = MountStatus::unmounted;
    Vomo::Entity* entityRef_ = nullptr;
    mutable Vomo::NotifieeList notifiees_;
};

} // namespace VomoSharedMem

namespace VomoBrisk {

class CollectionControl
    : public Vomo::EntityOf<CollectionControl, VomoSharedMem::CollectionControl> {
public:
    enum Attr : U32 { quiescedAttr = 386 };

    // `entity` is that whose attribute the table is. It may be under construction: no reference is
    // taken.
    explicit CollectionControl(Brisk::ControlBase* front, Vomo::Entity* entity = nullptr)
        : EntityOf(entity), front_(front) {}

    // The front of the table, which is not held; null once the entity has taken itself out.
    Brisk::ControlBase* front() const { return front_; }
    void entityRefIs(Vomo::Ptr<Vomo::Entity> const& entity) override;
    // A shadow has told its client everything that the queue held.
    bool quiesced() const { return quiesced_; }
    void quiescedIs(bool v) { assign(quiesced_, v, quiescedAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<CollectionControl>;
    Brisk::ControlBase* front_;
    bool quiesced_ = false;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<CollectionControl> collectionControlFactory(Brisk::ControlBase* front,
                                                      Vomo::Entity* entity = nullptr);

} // namespace VomoBrisk
