// What PIM records about source prefixes: a prefix on an interface, a prefix in a VRF.
#pragma once

#include "L3/VrfName.h"
#include "Mroute/MfibTypes.h"

namespace Routing::Multicast::Fib::PimIntf {
class IntfStatus;
class PrefixKey;
class PrefixMroute;
class PrefixMrouteStatus;
class PrefixRouteInfo;
class Status;
} // namespace Routing::Multicast::Fib::PimIntf

namespace Vomo {
extern "C" VomoModule const _PrefixMroute_11d6cdb3e6c20fbe_vomoModule;
struct PrefixMrouteModule : TypeList<Routing::Multicast::Fib::PimIntf::IntfStatus,
                                     Routing::Multicast::Fib::PimIntf::PrefixKey,
                                     Routing::Multicast::Fib::PimIntf::PrefixMroute,
                                     Routing::Multicast::Fib::PimIntf::PrefixMrouteStatus,
                                     Routing::Multicast::Fib::PimIntf::PrefixRouteInfo,
                                     Routing::Multicast::Fib::PimIntf::Status> {
    static constexpr VomoModule const* record = &_PrefixMroute_11d6cdb3e6c20fbe_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<PrefixMrouteModule> T>
struct IdOf<T> : PlaceIn<T, PrefixMrouteModule> {};
} // namespace Vomo

namespace Routing::Multicast::Fib::PimIntf {

using Vomo::operator<<;
using Vomo::valueToStrep;

// A prefix in a VRF.
class PrefixKey {
public:
    PrefixKey() = default;
    PrefixKey(Kelpie::IpGenPrefix const& prefix, L3::VrfName const& vrfName)
        : prefix_(prefix), vrfName_(vrfName) {}
    explicit PrefixKey(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    PrefixKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    Kelpie::IpGenPrefix const& prefix() const { return prefix_; }
    L3::VrfName const& vrfName() const { return vrfName_; }
    // Of a default prefix: that of the name.
    U32 hash() const { return prefixHash(prefix_) ^ vrfName_.hash(0); }

    friend bool operator==(PrefixKey const&, PrefixKey const&) = default;
    // By prefix and VRF, "default" before all other VRFs.
    friend bool operator<(PrefixKey const& a, PrefixKey const& b) {
        return a.prefix_ == b.prefix_ ? a.vrfName_ < b.vrfName_ : a.prefix_ < b.prefix_;
    }

private:
    friend Vomo::Describe<PrefixKey>;
    Kelpie::IpGenPrefix prefix_;
    L3::VrfName vrfName_;
};
U32 attrLogSize(PrefixKey const* v);

// A source prefix on an interface.
class PrefixMroute {
public:
    constexpr PrefixMroute() = default;
    constexpr PrefixMroute(Kelpie::IpGenPrefix const& src, Kelpie::IntfId intf)
        : src_(src), intf_(intf) {}
    explicit PrefixMroute(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    PrefixMroute(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IpGenPrefix const& src() const { return src_; }
    constexpr Kelpie::IntfId intf() const { return intf_; }
    constexpr U32 hash() const { return prefixHash(src_) ^ intf_.hash(); }

    friend constexpr bool operator==(PrefixMroute const&, PrefixMroute const&) = default;
    friend bool operator<(PrefixMroute const& a, PrefixMroute const& b) {
        return a.src_ == b.src_ ? a.intf_ < b.intf_ : a.src_ < b.src_;
    }

private:
    friend Vomo::Describe<PrefixMroute>;
    Kelpie::IpGenPrefix src_;
    Kelpie::IntfId intf_;
};
static_assert(sizeof(PrefixMroute) == 32 && alignof(PrefixMroute) == 8);

} // namespace Routing::Multicast::Fib::PimIntf
