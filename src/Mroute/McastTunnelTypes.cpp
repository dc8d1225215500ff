#include "Mroute/McastTunnelTypes.h"

#include "Dunlin/Trace.h"
#include "Mroute/TunnelRows.h"
#include "Vomo/Record.h"

#include <sstream>

template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelId> {
    using T = Multicast::Tunnel::TunnelId;
    static constexpr auto type = value("Multicast::Tunnel::TunnelId");
    static constexpr auto attributes = rows({
        mutates<&T::storage0_>(2, "storage0"),
        mutates<&T::storage1_>(3, "storage1"),
        mutates<&T::storage2_>(4, "storage2"),
        mutates<&T::tunnelType_>(5, "tunnelType"),
        view<&T::vxlan, &T::vxlanIs>(6, "vxlan"),
        view<&T::vpls, &T::vplsIs>(7, "vpls"),
        view<&T::mpls, &T::mplsIs>(8, "mpls"),
        statics<&T::fromVxlanMcast>(9, "fromVxlanMcast", {"vxlan"}),
        statics<&T::fromVxlanIR>(10, "fromVxlanIR", {"vxlan"}),
        statics<&T::fromVxlanBum>(11, "fromVxlanBum", {"vxlan"}),
        statics<&T::fromVpls>(12, "fromVpls", {"vpls"}),
        statics<&T::fromMpls>(13, "fromMpls", {"mpls"}),
        internal(14, "clearStorage"),
        derived<&T::hash>(15, "hash"),
        function<&T::stringValue>(16, "stringValue"),
        function<&T::str>(17, "str"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::FecIndex> {
    using T = Multicast::Tunnel::TunnelTable::FecIndex;
    static constexpr auto type = value("Multicast::Tunnel::TunnelTable::FecIndex", wrapper);
    static constexpr auto attributes = rows({
        ctor<&T::value_>(2, "value"),
        constant<&T::null>(3, "null"),
        derived<static_cast<U32 (T::*)() const>(&T::hash)>(4, "hash"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::McastTunnelConfig> {
    using T = Multicast::Tunnel::TunnelTable::McastTunnelConfig;
    using Base = Multicast::Tunnel::Config;
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Tunnel::TunnelTable::McastTunnelConfig");
    static constexpr auto attributes = rows({
        notifying<&T::pmsiVlan_>(T::pmsiVlanAttr, "pmsiVlan"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::McastTunnelConfigDir>
    : TunnelDirRows<Multicast::Tunnel::TunnelTable::McastTunnelConfigDir,
                    Multicast::Tunnel::ConfigDir> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Tunnel::TunnelTable::McastTunnelConfigDir", wide);
    static constexpr auto attributes = of("mcastTunnelConfig");
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo> {
    using T = Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo;
    static constexpr auto type = value("Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo");
    static constexpr auto attributes = rows({
        ctor<&T::fecIndex_>(2, "fecIndex"),
        mutates<&T::outlifId_>(3, "outlifId"),
        mutates<&T::l2IntfId_>(4, "l2IntfId"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::McastTunnelEncapInfoColl> {
    using T = Multicast::Tunnel::TunnelTable::McastTunnelEncapInfoColl;
    static constexpr auto type =
        value("Multicast::Tunnel::TunnelTable::McastTunnelEncapInfoColl", wide);
    static constexpr auto attributes = rows({
        collection<&T::encapInfo_>("encapInfo"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::McastTunnelStatus> {
    using T = Multicast::Tunnel::TunnelTable::McastTunnelStatus;
    using Base = Multicast::Tunnel::Status;
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Tunnel::TunnelTable::McastTunnelStatus", wide);
    static constexpr auto attributes = rows({
        notifying<&T::tunnelEncapInfo_>(T::tunnelEncapInfoAttr, "tunnelEncapInfo"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::McastTunnelStatusDir>
    : TunnelDirRows<Multicast::Tunnel::TunnelTable::McastTunnelStatusDir,
                    Multicast::Tunnel::StatusDir> {
    using T = Multicast::Tunnel::TunnelTable::McastTunnelStatusDir;
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Tunnel::TunnelTable::McastTunnelStatusDir", wide);
    static constexpr auto attributes = rows({
        typed("mcastTunnelStatus"),
        makesEntity<&T::setMcastTunnelStatus>(T::setMcastTunnelStatusAttr, "setMcastTunnelStatus",
                                              {"tunnelId"}),
        mutating<&T::unsetMcastTunnelStatus>(T::unsetMcastTunnelStatusAttr,
                                             "unsetMcastTunnelStatus", {"tunnelId"}),
        mutating<&T::unsetAllMcastTunnelStatus>(T::unsetAllMcastTunnelStatusAttr,
                                                "unsetAllMcastTunnelStatus"),
        mountPath(),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelType> {
    using T = Multicast::Tunnel::TunnelType;
    static constexpr auto type = enumeration<U8>("Multicast::Tunnel::TunnelType");
    static constexpr auto attributes = rows({
        literal(2, "invalid", T::invalid),
        literal(3, "vxlanMcast", T::vxlanMcast),
        literal(4, "vxlanIR", T::vxlanIR),
        literal(5, "vpls", T::vpls),
        literal(6, "mpls", T::mpls),
        literal(7, "vxlanBum", T::vxlanBum),
    });
};

namespace Multicast::Tunnel {

namespace {
bool isMplsOutOfRange(TunnelId const& id) {
    return id.tunnelType() == TunnelType::mpls && id.storage0() > TunnelId::MplsId::maxValue;
}
} // namespace

TunnelId::TunnelId(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
    if (isMplsOutOfRange(*this)) mpls(); // raises
}
TunnelId::TunnelId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
    // It would raise inside a collection, where nothing may (B36).
    if (isMplsOutOfRange(*this))
        Dunlin::fmthrow<Vomo::AttrLogRecordException>(
            "attribute log: {} is no number of an MPLS tunnel", storage0_);
}

TunnelId TunnelId::fromVxlanMcast(Kelpie::IpGenAddr const& vxlan) {
    PLAINASSERT(vxlan.isMulticast(), "vxlan.isMulticast()");
    TunnelId id(TunnelType::vxlanMcast);
    id.vxlanIs(vxlan);
    return id;
}
TunnelId TunnelId::fromVxlanIR(Kelpie::IpGenAddr const& vxlan) {
    TunnelId id(TunnelType::vxlanIR);
    id.vxlanIs(vxlan);
    return id;
}
TunnelId TunnelId::fromVxlanBum(Kelpie::IpGenAddr const& vxlan) {
    TunnelId id(TunnelType::vxlanBum);
    id.vxlanIs(vxlan);
    return id;
}
TunnelId TunnelId::fromVpls(Kelpie::IntfId vpls) {
    TunnelId id;
    id.vplsIs(vpls);
    return id;
}
TunnelId TunnelId::fromMpls(MplsId const& mpls) {
    TunnelId id;
    id.mplsIs(mpls);
    return id;
}

void TunnelId::vxlanIs(Kelpie::IpGenAddr const& v) & {
    TunnelId result(tunnelType_ != TunnelType::invalid ? tunnelType_
                    : v.isMulticast()                  ? TunnelType::vxlanMcast
                                                       : TunnelType::vxlanIR);
    PLAINASSERT(result.isVxlan(), "tunnelType() == vxlanMcast_ || tunnelType() == vxlanIR_|| "
                                  "tunnelType() == vxlanBum_");
    result.storage2_ = v.af().value();
    if (v.af() == Kelpie::ipv4()) {
        result.storage0_ = v.v4Addr().word();
    } else {
        PLAINASSERT(v.af() == Kelpie::ipv6(), "0 && \"Addressfamily unknown\"");
        result.storage0_ = v.v6Addr().u64(0);
        result.storage1_ = v.v6Addr().u64(1);
    }
    *this = result;
}
void TunnelId::vplsIs(Kelpie::IntfId v) & {
    *this = TunnelId(TunnelType::vpls);
    storage0_ = v.word();
}
void TunnelId::mplsIs(MplsId const& v) & {
    *this = TunnelId(TunnelType::mpls);
    storage0_ = v.value();
}
void TunnelId::clearStorage() & {
    *this = TunnelId(tunnelType_);
}

U32 TunnelId::hashOfWords() const {
    Tumbrel::HashMix mix;
    mix.mixBytes8(storage0_);
    mix.mixBytes8(storage1_);
    mix.mixBytes4(storage2_);
    return mix;
}
void TunnelId::throwWrongLookup(char const* kind) {
    Dunlin::fmthrow<Vomo::TypeException>("Wrong lookup. Encap type is {}", kind);
}

Vomo::String TunnelId::data() const {
    std::ostringstream stream;
    if (tunnelType_ == TunnelType::invalid)
        stream << "Invalid tunnel";
    else if (isVxlan())
        stream << vxlan();
    else if (tunnelType_ == TunnelType::vpls)
        stream << vpls();
    else if (tunnelType_ == TunnelType::mpls)
        stream << mpls();
    return stream.str();
}
Vomo::String TunnelId::stringValue() const {
    std::ostringstream stream;
    stream << tunnelType_ << " data: " << std::string_view(data());
    return stream.str();
}
Vomo::String TunnelId::str() const {
    std::ostringstream stream;
    stream << tunnelType_ << "(" << std::string_view(data()) << ")";
    return stream.str();
}

bool operator<(TunnelId const& a, TunnelId const& b) {
    static auto const& handler = *Dunlin::Platform::getDebugHandler("McastTunnelTypes", false);
    if (handler.on(9)) [[unlikely]]
        Dunlin::traceFormatted(handler, 9, __func__, "{} for {} and {}", __PRETTY_FUNCTION__,
                               std::string_view(a.str()), std::string_view(b.str()));
    if (a.tunnelType_ != b.tunnelType_) return a.tunnelType_ < b.tunnelType_;
    switch (a.tunnelType_) {
    case TunnelType::invalid:
        return a.hash() < b.hash();
    case TunnelType::vxlanMcast:
    case TunnelType::vxlanIR:
    case TunnelType::vxlanBum:
        return a.address() < b.address();
    case TunnelType::vpls:
        return a.vpls() < b.vpls();
    case TunnelType::mpls:
        return a.mpls() < b.mpls();
    }
    return true;
}

} // namespace Multicast::Tunnel

namespace Multicast::Tunnel::TunnelTable {

U32 FecIndex::hash(U32 seed) const {
    return Vomo::hashSingleAttr(seed, value_);
}
std::ostream& operator<<(std::ostream& stream, FecIndex v) {
    return stream << v.value();
}

McastTunnelEncapInfoColl::McastTunnelEncapInfoColl(Vomo::CharRange&) {
    PLAINASSERT("No String constructor for McastTunnelEncapInfoColl - has collection" == nullptr,
                "\"No String constructor for McastTunnelEncapInfoColl - has collection\" == "
                "nullptr");
}
U32 attrLogSize(McastTunnelEncapInfoColl const* v) {
    return v->encapInfo().members() * 20 + 4;
}

} // namespace Multicast::Tunnel::TunnelTable

namespace Vomo {
constinit decltype(McastTunnelTypesModule::frames) McastTunnelTypesModule::frames =
    ModuleRecord<McastTunnelTypesModule>::frames;
constinit VomoModule const _McastTunnelTypes_30f62c28a09469df_vomoModule =
    ModuleRecord<McastTunnelTypesModule>::value;
static ModuleRegistration const registration(McastTunnelTypesModule::record);
} // namespace Vomo
