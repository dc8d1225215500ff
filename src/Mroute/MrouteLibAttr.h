// A route key with what else names its replication list: accepting VLAN and VRF.
#pragma once

#include "L3/VrfName.h"
#include "Mroute/MfibTypes.h"

namespace MrouteLib {
class PimEnabled;
class RouteKeyInfo;
} // namespace MrouteLib

namespace Vomo {
extern "C" VomoModule const _MrouteLibAttr_9a81120073b9f37c_vomoModule;
struct MrouteLibAttrModule : TypeList<MrouteLib::PimEnabled, MrouteLib::RouteKeyInfo> {
    static constexpr VomoModule const* record = &_MrouteLibAttr_9a81120073b9f37c_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<MrouteLibAttrModule> T>
struct IdOf<T> : PlaceIn<T, MrouteLibAttrModule> {};
} // namespace Vomo

namespace MrouteLib {

using Vomo::operator<<;
using Vomo::valueToStrep;

class RouteKeyInfo {
public:
    using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

    RouteKeyInfo() = default;
    RouteKeyInfo(RouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                 L3::VrfName const& vrfName)
        : key_(key), acceptingVlanId_(acceptingVlanId), vrfName_(vrfName) {}
    explicit RouteKeyInfo(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    RouteKeyInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    RouteKey const& key() const { return key_; }
    Bridging::VlanIdOrNone acceptingVlanId() const { return acceptingVlanId_; }
    L3::VrfName const& vrfName() const { return vrfName_; }
    U32 hash() const;
    explicit operator bool() const { return !(*this == RouteKeyInfo()); }

    friend bool operator==(RouteKeyInfo const&, RouteKeyInfo const&) = default;
    // By key, VLAN and VRF, "default" before all other VRFs.
    friend bool operator<(RouteKeyInfo const& a, RouteKeyInfo const& b);

private:
    friend Vomo::Describe<RouteKeyInfo>;
    RouteKey key_;
    Bridging::VlanIdOrNone acceptingVlanId_;
    L3::VrfName vrfName_;
};
U32 attrLogSize(RouteKeyInfo const* v);

} // namespace MrouteLib
