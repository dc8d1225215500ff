#include "Mroute/PortVlanSet.h"

#include "Tumbrel/HashMix.h"
#include "Vomo/Record.h"

#include <sstream>

template <>
struct Vomo::Describe<MrouteLib::PortVlanSet> {
    using T = MrouteLib::PortVlanSet;
    static constexpr auto type = value("MrouteLib::PortVlanSet", wide);
    static constexpr auto attributes = rows({
        collection<&T::portVlan_>("portVlan"),
        mutates<&T::toCpuPurpose_>(3, "toCpuPurpose"),
        view<&T::toCpu, &T::toCpuIs>(4, "toCpu"),
        mutates<&T::featureFlag_>(5, "featureFlag"),
        mutates<&T::cachedHash_>(6, "cachedHash"),
        mutating<&T::saveHash>(7, "saveHash"),
        mutates<&T::type_>(8, "type"),
        mutates<&T::acceptingVlanId_>(9, "acceptingVlanId"),
        collection<&T::natVlan_>("natVlan"),
        mutates<&T::fastdrop_>(11, "fastdrop"),
        mutates<&T::currentIif_>(12, "currentIif"),
        collection<&T::portVlanFrr_>("portVlanFrr"),
        mutates<&T::optUnknownMcastFloodset_>(14, "optUnknownMcastFloodset"),
        mutates<&T::bidir_>(15, "bidir"),
        function<&T::hash>(16, "hash"),
        function<&T::computeHash>(17, "computeHash"),
        function<&T::pretty>(18, "pretty"),
        mutates<&T::ignoreType_>(19, "ignoreType"),
        mutating<&T::merge>(20, "merge", {"other"}),
        mutating<&T::discard>(21, "discard", {"other"}),
        function<&T::cmpPortVlanSet>(22, "cmpPortVlanSet", {"other"}),
        function<&T::cmpPortVlan>(23, "cmpPortVlan", {"other"}),
    });
};
template <>
struct Vomo::Describe<MrouteLib::PvSetChange> {
    using T = MrouteLib::PvSetChange;
    static constexpr auto type = enumeration<U8>("MrouteLib::PvSetChange");
    static constexpr auto attributes = rows({
        literal(5, "changed", T::changed),
        literal(6, "dfChanged", T::dfChanged),
        literal(7, "noChange", T::noChange),
    });
};
template <>
struct Vomo::Describe<MrouteLib::ToCpuPurpose> {
    using T = MrouteLib::ToCpuPurpose;
    static constexpr auto type = flagSet("MrouteLib::ToCpuPurpose");
    static constexpr auto attributes = flags({
        {"toCpuMcast", "toCpuMcast_", T::toCpuMcast_},
        {"toCpuVxlan", "toCpuVxlan_", T::toCpuVxlan_},
    });
};
template <>
struct Vomo::Describe<MrouteLib::TunnelPortVlanSet> {
    using T = MrouteLib::TunnelPortVlanSet;
    static constexpr auto type = value("MrouteLib::TunnelPortVlanSet", wide);
    static constexpr auto attributes = rows({
        mutates<&T::version_>(2, "version"),
        mutates<&T::versionValid_>(3, "versionValid"),
        mutates<&T::pvSet_>(4, "pvSet"),
    });
};

namespace MrouteLib {

PortVlanSet::PortVlanSet(Vomo::CharRange&) {
    PLAINASSERT("No String constructor for PortVlanSet - has collection" == nullptr,
                "\"No String constructor for PortVlanSet - has collection\" == nullptr");
}

U32 PortVlanSet::computeHash() const {
    Tumbrel::HashMix mix;
    auto const mixIn = [&mix](auto const& v) { mix.mix(&v, sizeof v); };
    for (auto const& node : portVlan_) {
        mixIn(node.fwkKey().port());
        mixIn(node.fwkKey().outLif());
        mixIn(node.fwkKey().overlayVlanId());
    }
    for (auto const& node : natVlan_) mix.mixBytes2(node.fwkKey().value());
    mixIn(acceptingVlanId_);
    mixIn(currentIif_);
    for (auto const& node : portVlanFrr_) {
        mixIn(node.fwkKey().port());
        mixIn(node.fwkKey().outLif());
    }
    return mix;
}

Vomo::String PortVlanSet::pretty() const {
    std::ostringstream text;
    text << portVlan_.members() << " PVs -";
    if (toCpuPurpose_ || featureFlag_ != 0) {
        text << " (";
        if (toCpuPurpose_) text << "Cpu ";
        if (featureFlag_ != 0) text << "0x" << std::hex << featureFlag_;
        text << ")";
    }
    text << " acceptingVlanId: " << acceptingVlanId_ << " bidir: " << (bidir_ ? 1 : 0)
         << " hash: " << hash();
    auto const append = [&text](PortVlan const& pv) {
        text << (pv.isOutLif() ? " outLif " : " vlan ") << pv.outLif() << ":" << pv.port();
    };
    for (auto const& node : portVlan_) append(node.fwkKey());
    if (portVlanFrr_.begin() != portVlanFrr_.end()) text << " currentIif: " << currentIif_;
    for (auto const& node : portVlanFrr_) append(node.fwkKey());
    return text.str();
}

void PortVlanSet::merge(PortVlanSet const& other) {
    for (auto const& node : other.portVlan_) portVlanIs(node.fwkKey(), true);
    toCpuPurpose_ |= other.toCpuPurpose_;
}
void PortVlanSet::discard(PortVlanSet const& other) {
    for (auto const& node : other.portVlan_) portVlanDel(PortVlan(node.fwkKey()));
}

// The tests that stand in front of the maps.
bool PortVlanSet::isAlike(PortVlanSet const& other) const {
    return hash() == other.hash() && ignoreType_ == other.ignoreType_ &&
           (ignoreType_ || type_ == other.type_);
}

PvSetChange PortVlanSet::cmpPortVlanSet(PortVlanSet const& other) const {
    bool const same = this == &other;
    bool const equal = isAlike(other) && toCpuPurpose_ == other.toCpuPurpose_ &&
                       featureFlag_ == other.featureFlag_ &&
                       acceptingVlanId_ == other.acceptingVlanId_ &&
                       (same || natVlan_ == other.natVlan_) && fastdrop_ == other.fastdrop_ &&
                       currentIif_ == other.currentIif_ &&
                       (same || portVlanFrr_ == other.portVlanFrr_) && bidir_ == other.bidir_;
    return equal ? cmpPortVlan(other) : PvSetChange::changed;
}
PvSetChange PortVlanSet::cmpPortVlan(PortVlanSet const& other) const {
    auto const ignoringDf = [](PortProperty v) {
        v.isNonDfPortIs(true);
        return v;
    };
    PvSetChange result = PvSetChange::noChange;
    PortVlanMap::IteratorConst i(&portVlan_), j(&other.portVlan_);
    for (; i && j; ++i, ++j) {
        PortVlan const &a = i.key(), &b = j.key();
        if (a.port() != b.port() || a.outLif() != b.outLif() ||
            a.overlayVlanId() != b.overlayVlanId() ||
            ignoringDf(a.portProperty()) != ignoringDf(b.portProperty()))
            return PvSetChange::changed;
        if (a.portProperty() != b.portProperty()) result = PvSetChange::dfChanged;
    }
    return i || j ? PvSetChange::changed : result;
}

bool operator==(PortVlanSet const& a, PortVlanSet const& b) {
    bool const same = &a == &b;
    return a.isAlike(b) && (same || a.portVlan_ == b.portVlan_) &&
           a.toCpuPurpose_ == b.toCpuPurpose_ && a.featureFlag_ == b.featureFlag_ &&
           a.acceptingVlanId_ == b.acceptingVlanId_ && (same || a.natVlan_ == b.natVlan_) &&
           a.fastdrop_ == b.fastdrop_ && a.currentIif_ == b.currentIif_ &&
           (same || a.portVlanFrr_ == b.portVlanFrr_) && a.bidir_ == b.bidir_;
}
bool operator<(PortVlanSet const& a, PortVlanSet const& b) {
    if (a.portVlan_ != b.portVlan_) return a.portVlan_ < b.portVlan_;
    auto const scalars = [](PortVlanSet const& v) {
        return std::tuple(v.toCpuPurpose_, v.featureFlag_, v.type_, v.acceptingVlanId_,
                          v.natVlan_.members());
    };
    if (scalars(a) != scalars(b)) return scalars(a) < scalars(b);
    if (a.natVlan_ != b.natVlan_) return a.natVlan_ < b.natVlan_;
    if (a.fastdrop_ != b.fastdrop_) return a.fastdrop_ < b.fastdrop_;
    if (a.currentIif_ != b.currentIif_) return a.currentIif_ < b.currentIif_;
    if (a.portVlanFrr_ != b.portVlanFrr_) return a.portVlanFrr_ < b.portVlanFrr_;
    auto const rest = [](PortVlanSet const& v) {
        return std::tuple(v.optUnknownMcastFloodset_, v.bidir_, v.ignoreType_);
    };
    return rest(a) < rest(b);
}

U32 attrLogSize(PortVlanSet const* v) {
    U32 const copies = v->portVlan().members() + v->portVlanFrr().members();
    return 30 + 18 * (copies + 2) + copies + 3 * v->natVlan().members() + 2;
}

bool operator<(TunnelPortVlanSet const& a, TunnelPortVlanSet const& b) {
    if (a.version_ != b.version_) return a.version_ < b.version_;
    if (a.versionValid_ != b.versionValid_) return b.versionValid_;
    return a.pvSet_ < b.pvSet_;
}
U32 attrLogSize(TunnelPortVlanSet const* v) {
    return 9 + attrLogSize(&v->pvSet());
}

} // namespace MrouteLib

namespace Vomo {
constinit decltype(PortVlanSetModule::frames) PortVlanSetModule::frames =
    ModuleRecord<PortVlanSetModule>::frames;
constinit VomoModule const _PortVlanSet_a48c9f8d500e2295_vomoModule =
    ModuleRecord<PortVlanSetModule>::value;
static ModuleRegistration const registration(PortVlanSetModule::record);
} // namespace Vomo
