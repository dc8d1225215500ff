// The prefix routes of PIM: per interface, and by prefix and VRF.
#pragma once

#include "Mroute/PrefixMroute.h"
#include "Vomo/Collections.h"

namespace Routing::Multicast::Fib::PimIntf {

// The prefix routes of an agent. False is a member like any other.
class PrefixMrouteStatus : public Vomo::NamedEntity<PrefixMrouteStatus> {
public:
    enum Attr : U32 { routeAttr = 258 };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<PrefixMrouteStatus> PrefixMrouteStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<PrefixMrouteStatus>(name);
    }

    using RouteMap = Vomo::ValueMap<PrefixMrouteStatus, routeAttr, PrefixMroute, bool,
                                    Vomo::SeededHash<0x00C57633>>;
    using VomoRoute = RouteMap::Node;
    bool route(PrefixMroute const& route) const { return route_.at(route); }
    RouteMap const& route() const { return route_; }
    void routeIs(PrefixMroute const& route, bool v) { route_.is(this, route, v); }
    bool routeDel(PrefixMroute const& route) { return route_.del(this, route); }
    void routeDelAll() { route_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<PrefixMrouteStatus>;
    RouteMap route_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<PrefixMrouteStatus> prefixMrouteStatusFactory(Vomo::String const& name);

// A prefix on an interface. Its interface is not held: without a parent it has none.
class PrefixRouteInfo : public Vomo::KeyedEntity<PrefixRouteInfo, Kelpie::IpGenPrefix> {
public:
    enum Attr : U32 {
        prefixAttr = 258,
        programmedAttr,
        isPrefixGroupAttr,
        prefixGroupAttr,
        ip4PrefixGroupAttr,
        ip6PrefixGroupAttr,
        intfStatusAttr
    };
    using Arguments = std::tuple<Kelpie::IpGenPrefix, Vomo::Ptr<IntfStatus>>;
    // Raises ArgumentException for a null `intfStatus`.
    PrefixRouteInfo(Kelpie::IpGenPrefix const& prefix, Vomo::Ptr<IntfStatus> const& intfStatus);
    static Vomo::Ptr<PrefixRouteInfo> PrefixRouteInfoIs(Kelpie::IpGenPrefix const& prefix,
                                                        Vomo::Ptr<IntfStatus> const& intfStatus) {
        return Vomo::newEntity<PrefixRouteInfo>(prefix, intfStatus);
    }
    // The prefix of all groups of a family: 224.0.0.0/4, ff00::/8. Any other family ends the process.
    static Kelpie::IpGenPrefix prefixGroup(Kelpie::AddressFamily af);
    static Kelpie::IpGenPrefix ip4PrefixGroup();
    static Kelpie::IpGenPrefix ip6PrefixGroup();
    // Whether it is one of these; false for any other family.
    static bool isPrefixGroup(Kelpie::IpGenPrefix const& prefix);

    Kelpie::IpGenPrefix const& prefix() const { return key_; }
    bool programmed() const { return programmed_; }
    void programmedIs(bool v) { assign(programmed_, v, programmedAttr); }
    // Null without a parent.
    Vomo::Ptr<IntfStatus> intfStatus() const;

private:
    friend EntityOf;
    friend Vomo::Describe<PrefixRouteInfo>;
    bool programmed_ = false;
    Vomo::OwnerRef<IntfStatus> intfStatus_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<PrefixRouteInfo> prefixRouteInfoFactory(Kelpie::IpGenPrefix const& prefix,
                                                  Vomo::Ptr<IntfStatus> const& intfStatus);

// An interface with its prefixes. Its owner is not held: without a parent it has none.
class IntfStatus : public Vomo::KeyedEntity<IntfStatus, Kelpie::IntfId> {
public:
    enum Attr : U32 { intfIdAttr = 258, routeAttr, pimIntfStatusAttr };
    using Arguments = std::tuple<Kelpie::IntfId, Vomo::Ptr<Status>>;
    // Raises ArgumentException for a null `status`.
    IntfStatus(Kelpie::IntfId intf, Vomo::Ptr<Status> const& status);
    static Vomo::Ptr<IntfStatus> IntfStatusIs(Kelpie::IntfId intf,
                                              Vomo::Ptr<Status> const& status) {
        return Vomo::newEntity<IntfStatus>(intf, status);
    }

    Kelpie::IntfId const& intfId() const { return key_; }
    // Pass this interface as the owner.
    using RouteMap = Vomo::Children<IntfStatus, routeAttr, PrefixRouteInfo,
                                    &PrefixRouteInfo::prefix, Vomo::SeededHash<0x546D396D>>;
    using VomoRoute = RouteMap::Node;
    Vomo::Ptr<PrefixRouteInfo> route(Kelpie::IpGenPrefix const& prefix) const {
        return route_.at(prefix);
    }
    RouteMap const& route() const { return route_; }
    Vomo::Ptr<PrefixRouteInfo> routeIs(Kelpie::IpGenPrefix const& prefix,
                                       Vomo::Ptr<IntfStatus> const& owner) {
        return route_.is(this, prefix, owner);
    }
    Vomo::Ptr<PrefixRouteInfo> routeDel(Kelpie::IpGenPrefix const& prefix) {
        return route_.del(this, prefix);
    }
    void routeDelAll() { route_.delAll(this); }
    // Null without a parent.
    Vomo::Ptr<Status> pimIntfStatus() const;

private:
    friend EntityOf;
    friend Vomo::Describe<IntfStatus>;
    RouteMap route_;
    Vomo::OwnerRef<Status> pimIntfStatus_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<IntfStatus> intfStatusFactory(Kelpie::IntfId intf, Vomo::Ptr<Status> const& status);

// The interfaces of PIM, and where the sources are.
class Status : public Vomo::NamedEntity<Status> {
public:
    enum Attr : U32 { intfStatusAttr = 258, srcToIntfMapAttr, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }
    // "routing/multicast/pimintf/status", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    // Pass this status as the owner.
    using IntfStatusMap = Vomo::Children<Status, intfStatusAttr, IntfStatus, &IntfStatus::intfId,
                                         Vomo::SeededHash<0x1AAE3D1F>>;
    using VomoIntfStatus = IntfStatusMap::Node;
    Vomo::Ptr<IntfStatus> intfStatus(Kelpie::IntfId intf) const { return intfStatus_.at(intf); }
    IntfStatusMap const& intfStatus() const { return intfStatus_; }
    Vomo::Ptr<IntfStatus> intfStatusIs(Kelpie::IntfId intf, Vomo::Ptr<Status> const& owner) {
        return intfStatus_.is(this, intf, owner);
    }
    Vomo::Ptr<IntfStatus> intfStatusDel(Kelpie::IntfId intf) { return intfStatus_.del(this, intf); }
    void intfStatusDelAll() { intfStatus_.delAll(this); }
    // The interface towards the sources of a prefix in a VRF.
    using SrcToIntfMapMap =
        Vomo::ValueMap<Status, srcToIntfMapAttr, PrefixKey, Kelpie::IntfId, Vomo::LegacyHash>;
    using VomoSrcToIntfMap = SrcToIntfMapMap::Node;
    Kelpie::IntfId srcToIntfMap(PrefixKey const& key) const { return srcToIntfMap_.at(key); }
    SrcToIntfMapMap const& srcToIntfMap() const { return srcToIntfMap_; }
    void srcToIntfMapIs(PrefixKey const& key, Kelpie::IntfId v) { srcToIntfMap_.is(this, key, v); }
    Kelpie::IntfId srcToIntfMapDel(PrefixKey const& key) { return srcToIntfMap_.del(this, key); }
    void srcToIntfMapDelAll() { srcToIntfMap_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    IntfStatusMap intfStatus_;
    SrcToIntfMapMap srcToIntfMap_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<Status> statusFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Fib::PimIntf
