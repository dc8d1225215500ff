#include "VomoBrisk/CollectionControl.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<Mem::MountStatus> {
    using T = Mem::MountStatus;
    static constexpr auto type = enumeration<U32>("Mem::MountStatus");
    static constexpr auto attributes = rows({
        literal(2, "unmounted", T::unmounted),
        literal(3, "mounted", T::mounted),
        literal(4, "synchronised", T::synchronised),
        literal(5, "flushing", T::flushing),
    });
};
template <>
struct Vomo::Describe<VomoSharedMem::CollectionControl> {
    using T = VomoSharedMem::CollectionControl;
    using Arguments = std::tuple<>; // made by the tables' owners
    static constexpr auto type = entity("VomoSharedMem::CollectionControl");
    static constexpr auto attributes = rows({
        notifying<&T::mountStatus_>(T::mountStatusAttr, "mountStatus"),
    });
};
template <>
struct Vomo::Describe<VomoBrisk::CollectionControl> {
    using T = VomoBrisk::CollectionControl;
    using Arguments = std::tuple<>; // made by the tables' owners
    using Base = VomoSharedMem::CollectionControl;
    static constexpr auto type = derivedEntity<Base>("VomoBrisk::CollectionControl");
    static constexpr auto attributes = rows({
        notifying<&T::quiesced_>(T::quiescedAttr, "quiesced"),
    });
};

namespace VomoSharedMem {

Vomo::String CollectionControl::name() const {
    return entityRef_ == nullptr ? Vomo::String() : entityRef_->name();
}

} // namespace VomoSharedMem

namespace VomoBrisk {

void CollectionControl::entityRefIs(Vomo::Ptr<Vomo::Entity> const& entity) {
    EntityOf::entityRefIs(entity);
    if (!entity) front_ = nullptr;
}

Vomo::Ptr<CollectionControl> collectionControlFactory(Brisk::ControlBase* front,
                                                      Vomo::Entity* entity) {
    return Vomo::newEntity<CollectionControl>(front, entity);
}

} // namespace VomoBrisk

namespace Vomo {
constinit VomoModule const _CollectionControl_9cdb198bb6e6436b_vomoModule =
    ModuleRecord<CollectionControlModule>::value;
static ModuleRegistration const registration(CollectionControlModule::record);
} // namespace Vomo
