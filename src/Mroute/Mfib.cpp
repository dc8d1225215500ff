#include "Mroute/Mfib.h"

#include "Cell/Path.h"
#include "Mroute/CounterStatus.h"
#include "Mroute/MfibRows.h"
#include "Mroute/MountPath.h"
#include "Mroute/RouteKeyBits.h"
#include "Vomo/Record.h"
#include "VomoBrisk/TableRows.h"
#include "VomoBrisk/VomoBriskMapImpl.h"

#include <cstdio>
#include <ostream>
#include <sstream>

template <>
struct Vomo::Describe<Routing::Multicast::Fib::ConfigMultipathControl> {
    using T = Routing::Multicast::Fib::ConfigMultipathControl;
    static constexpr auto type =
        enumeration<U8>("Routing::Multicast::Fib::Config::MultipathControl");
    static constexpr auto attributes = rows({
        literal(2, "multipathDeterministic", T::multipathDeterministic),
        literal(3, "multipathNone", T::multipathNone),
        literal(4, "noMultipathDeterministic", T::noMultipathDeterministic),
        literal(5, "multipathRouterId", T::multipathRouterId),
        literal(6, "multipathDeterministicColor", T::multipathDeterministicColor),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Counter> {
    using T = Routing::Multicast::Fib::Counter;
    static constexpr auto type = value("Routing::Multicast::Fib::Counter", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        mutates<&T::value_>(3, "value"),
        mutates<&T::lastRefreshTime_>(4, "lastRefreshTime"),
        mutates<&T::active_>(5, "active"),
        function<&T::briskString>(6, "briskString"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::CounterMode> {
    using T = Routing::Multicast::Fib::CounterMode;
    static constexpr auto type = enumeration<U32>("Routing::Multicast::Fib::CounterMode");
    static constexpr auto attributes = rows({
        literal(2, "None", T::None),
        literal(3, "packetMode", T::packetMode),
        literal(4, "byteMode", T::byteMode),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::CounterStatus> {
    using T = Routing::Multicast::Fib::CounterStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::CounterStatus", wide);
    static constexpr auto attributes = rows({
        VomoBrisk::table<&T::counter_>(),
        VomoBrisk::control<&T::counterControl, &T::counterControlIs>(T::counterControlAttr,
                                                                     "counterControl"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Hardware::RouteStatusHwFlags> {
    using T = Routing::Multicast::Fib::Hardware::RouteStatusHwFlags;
    static constexpr auto type = flagSet("Routing::Multicast::Fib::Hardware::RouteStatus::HwFlags");
    static constexpr auto attributes = flags({
        {"noRoute", "noRoute_", T::noRoute_},
        {"noIntfs", "noIntfs_", T::noIntfs_},
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::Intf> {
    using T = Routing::Multicast::Fib::Intf;
    static constexpr auto type = value("Routing::Multicast::Fib::Intf");
    static constexpr auto attributes = rows({
        ctor<&T::intfId_>(2, "intfId"),
        mutates<&T::intfFlags_>(3, "intfFlags"),
        view<&T::forward, &T::forwardIs>(4, "forward"),
        view<&T::accept, &T::acceptIs>(5, "accept"),
        view<&T::notify, &T::notifyIs>(6, "notify"),
        view<&T::noRpf, &T::noRpfIs>(7, "noRpf"),
        view<&T::fastdrop, &T::fastdropIs>(8, "fastdrop"),
        view<&T::frr, &T::frrIs>(9, "frr"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::RouteKeyTypeConverter> {
    using T = Routing::Multicast::Fib::RouteKeyTypeConverter;
    static constexpr auto type = value("Routing::Multicast::Fib::RouteKeyTypeConverter");
    static constexpr auto attributes = rows({
        ctor<&T::value_>(2, "value"),
        derived<&T::intValue>(3, "intValue"),
    });
};

namespace Routing::Multicast::Fib {

using namespace RouteKeyBits;

Vomo::String pathOf(Kelpie::AddressFamily af, char const* rest) {
    PLAINASSERT(af == Kelpie::ipv4() || af == Kelpie::ipv6(),
                "false && \"Unsupported address family\"");
    return Vomo::String(af == Kelpie::ipv4() ? "routing/" : "routing6/") + rest;
}
Vomo::String mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/fib");
}

U32 RouteKey::hash() const {
    return prefixHash(s_) ^ prefixHash(g_);
}
RouteKeyType RouteKey::kind() const {
    return kindOf(g_.address());
}

Bridging::VlanId RouteKey::vlanId() const {
    PLAINASSERT(kind() != RouteKeyType::mroute, "key.kind() != mroute_");
    return Bridging::VlanId(vlanBits(g_.address()));
}

Kelpie::EthAddr RouteKey::ethAddr() const {
    RouteKeyType const type = kind();
    PLAINASSERT(type != RouteKeyType::mroute, "type != mroute_");
    return type == RouteKeyType::ethGroup ? macOf(s_.address(), g_.address()) : Kelpie::EthAddr();
}

GroupKey RouteKey::mcastGroup() const {
    PLAINASSERT(kind() == RouteKeyType::mcastGroup, "type == mcastGroup_");
    return groupOf(s_.address());
}

Kelpie::IpGenAddr RouteKey::evpnTepIp() const {
    PLAINASSERT(kind() == RouteKeyType::evpnMultihomeFloodset, "type == evpnMultihomeFloodset_");
    return s_.address();
}

Vomo::String RouteKey::pretty() const {
    RouteKeyType const type = kind();
    PLAINASSERT(type <= RouteKeyType::mroute, "0 && \"Unexpected RouteKey type\"");
    if (type != RouteKeyType::mroute) return prettyFlood(*this, type);
    if (s_.len() == 0) return fmt::format("(*,{})", g_.address());
    auto const text = [](Kelpie::Prefix p) {
        return p.len() == 32 ? p.address().stringValue() : p.stringValue();
    };
    return fmt::format("({},{})", text(s_), text(g_));
}

namespace {

bool prefixLess(Kelpie::Prefix a, Kelpie::Prefix b) {
    S32 const shared = std::min(a.len(), b.len());
    if (shared >= 1 && shared <= 32) {
        U32 const x = a.address().word() >> (32 - shared), y = b.address().word() >> (32 - shared);
        if (x != y) return x < y;
    }
    return a.len() > b.len();
}

} // namespace

bool operator<(RouteKey const& a, RouteKey const& b) {
    return a.g_ == b.g_ ? prefixLess(a.s_, b.s_) : prefixLess(a.g_, b.g_);
}

Vomo::String valueToStrep(RouteKey const& v) {
    using enum RouteKeyType;
    RouteKeyType const type = v.kind();
    Vomo::String text = "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': ";
    text += valueToStrep(type);
    switch (type) {
    case RouteKeyType::vlanFloodset:
    case RouteKeyType::multicastFloodset:
    case RouteKeyType::vxlanCoreSideFloodset:
    case RouteKeyType::multicastV6Floodset:
        text += fmt::format(", 'vlanId': {}", v.vlanId());
        break;
    case RouteKeyType::ethGroup:
        text += fmt::format(", 'vlanId': {}, 'ethGroup': {}", v.vlanId(), v.ethAddr());
        break;
    case RouteKeyType::mcastGroup:
        text +=
            fmt::format(", 'kind': {}, 'index': {}", v.mcastGroup().kind(), v.mcastGroup().index());
        break;
    case RouteKeyType::evpnMultihomeFloodset:
        // The capital D is part of the form.
        text += fmt::format(", 'vlanID': {}, 'Peer VTEP IP': {}", v.vlanId(), v.evpnTepIp());
        break;
    case RouteKeyType::mroute:
        text += fmt::format(", 's': {}, 'g': {}", v.s(), v.g());
        break;
    default:
        break;
    }
    return text + "})";
}

namespace {

constexpr std::size_t scanned = 64; // what a scan takes at most; every width below is 63

Bridging::VlanId scannedVlan(unsigned number) {
    return Bridging::VlanId(static_cast<U16>(number));
}
template <class T>
T scannedValue(char const* text) {
    Vomo::CharRange range{std::string_view(text)};
    return T(range);
}

// The parts that stand behind the kind.
IpGenRouteKey scanParts(RouteKeyType type, char const* text) {
    unsigned first = 0, second = 0;
    char a[scanned], b[scanned];
    int matches;
    switch (type) {
    case RouteKeyType::vlanFloodset:
    case RouteKeyType::multicastFloodset:
    case RouteKeyType::vxlanCoreSideFloodset:
        matches = std::sscanf(text, "'vlanId': %u", &first);
        PLAINASSERT(matches == 1, "matches == 1");
        break;
    case RouteKeyType::multicastV6Floodset:
        matches = std::sscanf(text, "'vlanId' : %u", &first);
        PLAINASSERT(matches == 1, "matches == 1");
        break;
    case RouteKeyType::ethGroup:
        matches = std::sscanf(text, "'vlanId': %u, 'ethGroup': %63[:0-9a-zA-Z]", &first, a);
        PLAINASSERT(matches == 2, "matches == 2");
        break;
    case RouteKeyType::mcastGroup:
        matches = std::sscanf(text, "'kind': %u, 'index' : %u", &first, &second);
        PLAINASSERT(matches == 2, "matches == 2");
        break;
    case RouteKeyType::evpnMultihomeFloodset:
        matches = std::sscanf(text, "'vlanId': %u, 'Peer VTEP IP': %63[./0-9]", &first, a);
        PLAINASSERT(matches == 2, "matches == 2");
        break;
    case RouteKeyType::mroute:
        matches = std::sscanf(text, "'s': %63[./0-9], 'g': %63[./0-9]", a, b);
        PLAINASSERT(matches == 2, "matches == 2");
        break;
    default:
        return {};
    }
    switch (type) {
    case RouteKeyType::vlanFloodset:
        return makeRouteKeyVlanFloodset(scannedVlan(first));
    case RouteKeyType::multicastFloodset:
        return makeRouteKeyMulticastFloodset(scannedVlan(first));
    case RouteKeyType::vxlanCoreSideFloodset:
        return makeRouteKeyVxlanCoreSideFloodset(scannedVlan(first));
    case RouteKeyType::multicastV6Floodset:
        return makeRouteKeyMulticastV6Floodset(scannedVlan(first));
    case RouteKeyType::ethGroup:
        return makeRouteKeyEthGroup(scannedVlan(first), scannedValue<Kelpie::EthAddr>(a));
    case RouteKeyType::mcastGroup:
        return makeRouteKeyMcastGroup({static_cast<U16>(first), static_cast<U16>(second)});
    case RouteKeyType::evpnMultihomeFloodset:
        return makeRouteKeyEvpnMultihomeFloodset(scannedVlan(first),
                                                 scannedValue<Kelpie::IpGenAddr>(a));
    default:
        return makeRouteKeyMroute(scannedValue<Kelpie::Prefix>(a), scannedValue<Kelpie::Prefix>(b));
    }
}

} // namespace

RouteKey sequenceToValue(Vomo::CharRange& range, RouteKey*) {
    // A copy, for sscanf reads up to a NUL that the range need not have.
    std::string const text(range.text());
    char name[scanned];
    int const matches = std::sscanf(
        text.c_str(), "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': '%63[_a-zA-Z]",
        name);
    PLAINASSERT(matches == 1, "matches == 1");
    RouteKeyType const type = RouteKeyTypeInstance(Vomo::String(name));
    // Behind the name: its quote, the comma, the blank.
    std::size_t const behind = text.find(name) + std::string_view(name).size() + 3;
    range += static_cast<U32>(behind);
    RouteKey const key = scanParts(type, text.c_str() + behind);
    range += range.remainingSize();
    return key;
}

RouteKey::RouteKey(Vomo::CharRange& range) : RouteKey(sequenceToValue(range, this)) {}
std::ostream& operator<<(std::ostream& stream, RouteKey const& v) {
    return stream << valueToStrep(v);
}

Vomo::String Counter::briskString() const {
    std::ostringstream text;
    text << "[" << key_.g() << "," << key_.s() << "] " << value_;
    return text.str();
}

bool operator<(Counter const& a, Counter const& b) {
    if (a.active_ != b.active_) return b.active_;
    if (a.lastRefreshTime_ < b.lastRefreshTime_) return true;
    if (b.lastRefreshTime_ < a.lastRefreshTime_) return false;
    if (a.key_.g() != b.key_.g()) return a.key_.g() < b.key_.g();
    if (a.key_.s() != b.key_.s()) return a.key_.s() < b.key_.s();
    return a.value_ < b.value_;
}

Vomo::Ptr<CounterStatus> counterStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<CounterStatus>(name);
}

} // namespace Routing::Multicast::Fib

VOMO_BRISK_INSTANCE(Routing::Multicast::Fib::CounterStatus, Mroute::CounterTable);

namespace Routing::Multicast::Fib::Hardware {

RouteStatus::RouteStatus(IpGenRouteKey const& key)
    : KeyedEntity(key), creationTime_(Vomo::System::currentTime()) {}
void RouteStatus::noRouteIs(bool v) {
    HwFlags flags = hwFlags_;
    flags.noRouteIs(v);
    hwFlagsIs(flags);
}
void RouteStatus::noIntfsIs(bool v) {
    HwFlags flags = hwFlags_;
    flags.noIntfsIs(v);
    hwFlagsIs(flags);
}
Vomo::Ptr<RouteStatus> routeStatusFactory(IpGenRouteKey const& key) {
    return Vomo::newEntity<RouteStatus>(key);
}

Vomo::Ptr<VrfStatus> vrfStatusFactory(L3::VrfName const& vrf) {
    return Vomo::newEntity<VrfStatus>(vrf);
}

// Unlike in all other paths, the kind of agent is in front of "multicast".
Vomo::String Status::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "hardware/multicast/status");
}
U32 Status::routes() const {
    U32 count = 0;
    for (VomoVrfStatus const& node : vrfStatus_) count += node.value()->route().members();
    return count;
}
Vomo::Ptr<Status> statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}

} // namespace Routing::Multicast::Fib::Hardware

namespace Routing::Multicast::Fib {

Vomo::String Status::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/status");
}
Vomo::String ReadyStatus::mountPath(Kelpie::AddressFamily af, Vomo::String const& name) {
    // The path of the sparse-mode agent has no name segment.
    Vomo::String const below = name == "sparsemode" ? "" : name + "/";
    return Cell::path(pathOf(af, "multicast/fibready/") + below + "status", 0);
}
Vomo::String VrfEnabledStatus::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/fibenabled/status");
}
Vomo::String SparseModeStatus::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/sparsemode/status");
}
Vomo::String MbrIntf::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/mbrinterface");
}

Vomo::Ptr<Status> statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}
Vomo::Ptr<ReadyStatus> readyStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<ReadyStatus>(name);
}
Vomo::Ptr<VrfEnabledStatus> vrfEnabledStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<VrfEnabledStatus>(name);
}
Vomo::Ptr<BidirStatus> bidirStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<BidirStatus>(name);
}
Vomo::Ptr<SparseModeStatus> sparseModeStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<SparseModeStatus>(name);
}
Vomo::Ptr<MbrIntf> mbrIntfFactory(Vomo::String const& name) {
    return Vomo::newEntity<MbrIntf>(name);
}
Vomo::Ptr<CounterStatusCtl> counterStatusCtlFactory(Vomo::String const& name) {
    return Vomo::newEntity<CounterStatusCtl>(name);
}

} // namespace Routing::Multicast::Fib

namespace Routing::Multicast {

Vomo::String Pim::Status::mountPath(Kelpie::AddressFamily af) {
    return Fib::pathOf(af, "multicast/pim/global/status");
}
Vomo::Ptr<Pim::Status> Pim::statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}
Vomo::String Vxlan::Status::mountPath(Kelpie::AddressFamily af) {
    return Fib::pathOf(af, "multicast/vxlan/status");
}
Vomo::Ptr<Vxlan::Status> Vxlan::statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}

} // namespace Routing::Multicast

namespace Vomo {
constinit decltype(MfibModule::frames) MfibModule::frames = ModuleRecord<MfibModule>::frames;
constinit VomoModule const _Mfib_81f0b1a1b6aa3812_vomoModule = ModuleRecord<MfibModule>::value;
static ModuleRegistration const registration(MfibModule::record);
} // namespace Vomo
