#include "Mroute/PortVlan.h"

#include "Vomo/Hash.h"
#include "Vomo/Record.h"

#include <ostream>

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

namespace MrouteLib {

U32 PortVlan::hash(U32 seed) const {
    U32 const words[] = {port_.hash(), outLif_.value(),
                         Vomo::hashSingleAttr(0, overlayVlanId_.value()), portProperty_.value()};
    Vomo::Hash hash(seed);
    for (U32 const& word : words) hash.hashMix<4>(&word);
    return hash.result();
}

OutLif::OutLif(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
OutLif::OutLif(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}
PortProperty::PortProperty(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
PortProperty::PortProperty(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}
PortPropertyMask::PortPropertyMask(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
PortPropertyMask::PortPropertyMask(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}
PortVlan::PortVlan(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
PortVlan::PortVlan(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}

Vomo::String valueToStrep(OutLif v) {
    return Vomo::text(v);
}
Vomo::String valueToStrep(PortProperty v) {
    return Vomo::text(v);
}
Vomo::String valueToStrep(PortPropertyMask v) {
    return Vomo::text(v);
}
Vomo::String valueToStrep(PortVlan const& v) {
    return Vomo::text(v);
}
std::ostream& operator<<(std::ostream& stream, OutLif v) {
    return stream << valueToStrep(v);
}
std::ostream& operator<<(std::ostream& stream, PortProperty v) {
    return stream << valueToStrep(v);
}
std::ostream& operator<<(std::ostream& stream, PortPropertyMask v) {
    return stream << valueToStrep(v);
}
std::ostream& operator<<(std::ostream& stream, PortVlan const& v) {
    return stream << valueToStrep(v);
}
using Vomo::NboAttrLog::Out;
Out& operator<<(Out& out, OutLif v) {
    return out << v.value();
}
Out& operator<<(Out& out, PortProperty v) {
    return out << v.value();
}
Out& operator<<(Out& out, PortPropertyMask v) {
    return out << v.mask();
}
Out& operator<<(Out& out, PortVlan const& v) {
    return Vomo::write(out, v), out;
}

} // namespace MrouteLib

namespace {
// In order of name.
constexpr Vomo::TypeFrame types[] = {
    Vomo::frameOf<MrouteLib::OutLif>,
    Vomo::frameOf<MrouteLib::PortProperty>,
    Vomo::frameOf<MrouteLib::PortPropertyMask>,
    Vomo::frameOf<MrouteLib::PortVlan>,
};
} // namespace
constinit Vomo::VomoModule const Vomo::_PortVlan_adcde2bd179a1d29_vomoModule =
    Vomo::ModuleRecord<types>::value;
static Vomo::ModuleRegistration const registration(&Vomo::_PortVlan_adcde2bd179a1d29_vomoModule);
