#include "Mroute/PortVlan.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<MrouteLib::OutLif> {
    using T = MrouteLib::OutLif;
    static constexpr auto type = value("MrouteLib::OutLif", wrapper);
    static constexpr auto attributes = rows({
        mutates<&T::value_>(2, "value"),
        constant<&T::null>(3, "null"),
        derived<&T::hash>(4, "hash"),
    });
};
template <>
struct Vomo::Describe<MrouteLib::PortProperty> {
    using T = MrouteLib::PortProperty;
    static constexpr auto type = value("MrouteLib::PortProperty");
    static constexpr auto attributes = rows({
        mutates<&T::value_>(2, "value"),
        view<&T::isMlagPort, &T::isMlagPortIs>(3, "isMlagPort"),
        view<&T::isTagOnEgress, &T::isTagOnEgressIs>(4, "isTagOnEgress"),
        view<&T::isNonDfPort, &T::isNonDfPortIs>(5, "isNonDfPort"),
        view<&T::isMacSecViaLoopback, &T::isMacSecViaLoopbackIs>(6, "isMacSecViaLoopback"),
        view<&T::logicalPortId, &T::logicalPortIdIs>(7, "logicalPortId"),
        view<&T::sharedPort, &T::sharedPortIs>(8, "sharedPort"),
        view<&T::hash, &T::hashIs>(9, "hash"),
    });
};
template <>
struct Vomo::Describe<MrouteLib::PortPropertyMask> {
    using T = MrouteLib::PortPropertyMask;
    static constexpr auto type = value("MrouteLib::PortPropertyMask");
    static constexpr auto attributes = rows({
        mutates<&T::mask_>(2, "mask"),
        view<&T::mlagPort, &T::mlagPortIs>(3, "mlagPort"),
        view<&T::tagOnEgress, &T::tagOnEgressIs>(4, "tagOnEgress"),
        view<&T::nonDfPort, &T::nonDfPortIs>(5, "nonDfPort"),
        view<&T::macSecViaLoopback, &T::macSecViaLoopbackIs>(6, "macSecViaLoopback"),
        view<&T::logicalPortId, &T::logicalPortIdIs>(7, "logicalPortId"),
    });
};
template <>
struct Vomo::Describe<MrouteLib::PortVlan> {
    using T = MrouteLib::PortVlan;
    static constexpr auto type = value("MrouteLib::PortVlan");
    static constexpr auto attributes = rows({
        mutates<&T::port_>(2, "port"),
        view<&T::vlanId, &T::vlanIdIs>(3, "vlanId"),
        mutates<&T::outLif_>(4, "outLif"),
        mutates<&T::overlayVlanId_>(5, "overlayVlanId"),
        mutates<&T::portProperty_>(6, "portProperty"),
        function<&T::isOutLif>(7, "isOutLif"),
    });
};

namespace Vomo {
constinit decltype(PortVlanModule::frames) PortVlanModule::frames =
    ModuleRecord<PortVlanModule>::frames;
constinit VomoModule const _PortVlan_adcde2bd179a1d29_vomoModule =
    ModuleRecord<PortVlanModule>::value;
static ModuleRegistration const registration(PortVlanModule::record);
} // namespace Vomo
