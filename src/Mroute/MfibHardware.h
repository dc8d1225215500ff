// What a hardware agent reports about its multicast routes: per VRF, per route.
#pragma once

#include "L3/VrfName.h"
#include "Mroute/Mfib.h"
#include "Vomo/Collections.h"
#include "Vomo/FlagSet.h"

namespace Routing::Multicast::Fib::Hardware {

// Why a route is not in the hardware; RouteStatus::HwFlags.
class RouteStatusHwFlags : public Vomo::FlagSet<RouteStatusHwFlags, 3> {
public:
    static RouteStatusHwFlags const noRoute_, noIntfs_;

    using FlagSet::FlagSet;

    constexpr bool noRoute() const { return has(noRoute_); }
    constexpr void noRouteIs(bool v) { set(noRoute_, v); }
    constexpr bool noIntfs() const { return has(noIntfs_); }
    constexpr void noIntfsIs(bool v) { set(noIntfs_, v); }
};
inline constexpr RouteStatusHwFlags RouteStatusHwFlags::noRoute_{1},
    RouteStatusHwFlags::noIntfs_{2};

// One route in the hardware.
class RouteStatus : public Vomo::KeyedEntity<RouteStatus, IpGenRouteKey> {
public:
    enum Attr : U32 {
        keyAttr = 258,
        noRpfAttr,
        hwFlagsAttr,
        noRouteAttr,
        noIntfsAttr,
        lastPollTimeAttr,
        fastdropLastPollTimeAttr,
        notifyingIntfIdAttr,
        staticFastdropIntfIdAttr,
        acceptingIntfIdAttr,
        frrIntfIdAttr,
        creationTimeAttr
    };
    using HwFlags = RouteStatusHwFlags;
    explicit RouteStatus(IpGenRouteKey const& key);
    static Vomo::Ptr<RouteStatus> RouteStatusIs(IpGenRouteKey const& key) {
        return Vomo::newEntity<RouteStatus>(key);
    }

    IpGenRouteKey const& key() const { return key_; }
    bool noRpf() const { return noRpf_; }
    void noRpfIs(bool v) { assign(noRpf_, v, noRpfAttr); }
    HwFlags hwFlags() const { return hwFlags_; }
    void hwFlagsIs(HwFlags v) { assign(hwFlags_, v, hwFlagsAttr); }
    // Views on `hwFlags`; a change is one of these.
    bool noRoute() const { return hwFlags_.noRoute(); }
    void noRouteIs(bool v);
    bool noIntfs() const { return hwFlags_.noIntfs(); }
    void noIntfsIs(bool v);
    // When the hardware was last asked whether the route is in use.
    Vomo::Seconds lastPollTime() const { return lastPollTime_; }
    void lastPollTimeIs(Vomo::Seconds v) { assign(lastPollTime_, v, lastPollTimeAttr); }
    // The same of the interfaces on which its packets are dropped.
    using FastdropLastPollTimeMap = Vomo::ValueMap<RouteStatus, fastdropLastPollTimeAttr,
                                                   Vomo::String, Vomo::Seconds, Vomo::LegacyHash>;
    using VomoFastdropLastPollTime = FastdropLastPollTimeMap::Node;
    Vomo::Seconds fastdropLastPollTime(Vomo::String const& name) const {
        return fastdropLastPollTime_.at(name);
    }
    FastdropLastPollTimeMap const& fastdropLastPollTime() const { return fastdropLastPollTime_; }
    void fastdropLastPollTimeIs(Vomo::String const& name, Vomo::Seconds v) {
        fastdropLastPollTime_.is(this, name, v);
    }
    Vomo::Seconds fastdropLastPollTimeDel(Vomo::String const& name) {
        return fastdropLastPollTime_.del(this, name);
    }
    void fastdropLastPollTimeDelAll() { fastdropLastPollTime_.delAll(this); }
    Kelpie::IntfId notifyingIntfId() const { return notifyingIntfId_; }
    void notifyingIntfIdIs(Kelpie::IntfId v) { assign(notifyingIntfId_, v, notifyingIntfIdAttr); }
    Kelpie::IntfId staticFastdropIntfId() const { return staticFastdropIntfId_; }
    void staticFastdropIntfIdIs(Kelpie::IntfId v) {
        assign(staticFastdropIntfId_, v, staticFastdropIntfIdAttr);
    }
    Kelpie::IntfId acceptingIntfId() const { return acceptingIntfId_; }
    void acceptingIntfIdIs(Kelpie::IntfId v) { assign(acceptingIntfId_, v, acceptingIntfIdAttr); }
    Kelpie::IntfId frrIntfId() const { return frrIntfId_; }
    void frrIntfIdIs(Kelpie::IntfId v) { assign(frrIntfId_, v, frrIntfIdAttr); }
    // When the route was made: on a mirror, the time at the source.
    Vomo::Seconds creationTime() const { return creationTime_; }

private:
    friend EntityOf;
    friend Vomo::Describe<RouteStatus>;
    bool noRpf_ = false;
    HwFlags hwFlags_;
    Vomo::Seconds lastPollTime_ = 0;
    FastdropLastPollTimeMap fastdropLastPollTime_;
    Kelpie::IntfId notifyingIntfId_;
    Kelpie::IntfId staticFastdropIntfId_;
    Kelpie::IntfId acceptingIntfId_;
    Kelpie::IntfId frrIntfId_;
    Vomo::Seconds creationTime_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<RouteStatus> routeStatusFactory(IpGenRouteKey const& key);

// The routes of one VRF.
class VrfStatus : public Vomo::KeyedEntity<VrfStatus, L3::VrfName> {
public:
    enum Attr : U32 { vrfNameAttr = 258, routeAttr, failedMroutesAttr, fastdropCountAttr };
    using KeyedEntity::KeyedEntity;
    static Vomo::Ptr<VrfStatus> VrfStatusIs(L3::VrfName const& vrf) {
        return Vomo::newEntity<VrfStatus>(vrf);
    }

    L3::VrfName const& vrfName() const { return key_; }
    using RouteMap = Vomo::Children<VrfStatus, routeAttr, RouteStatus, &RouteStatus::key,
                                    Vomo::SeededHash<0x81A480F6>>;
    using VomoRoute = RouteMap::Node;
    Vomo::Ptr<RouteStatus> route(IpGenRouteKey const& key) const { return route_.at(key); }
    RouteMap const& route() const { return route_; }
    Vomo::Ptr<RouteStatus> routeIs(IpGenRouteKey const& key) { return route_.is(this, key); }
    Vomo::Ptr<RouteStatus> routeDel(IpGenRouteKey const& key) { return route_.del(this, key); }
    void routeDelAll() { route_.delAll(this); }
    // Routes that the hardware did not take.
    U32 failedMroutes() const { return failedMroutes_; }
    void failedMroutesIs(U32 v) { assign(failedMroutes_, v, failedMroutesAttr); }
    U32 failedMroutesInc(U32 n) { return increase(failedMroutes_, n, failedMroutesAttr); }
    U32 failedMroutesDec(U32 n) { return decrease(failedMroutes_, n, failedMroutesAttr); }
    U16 fastdropCount() const { return fastdropCount_; }
    void fastdropCountIs(U16 v) { assign(fastdropCount_, v, fastdropCountAttr); }
    U16 fastdropCountInc(U16 n) { return increase(fastdropCount_, n, fastdropCountAttr); }
    U16 fastdropCountDec(U16 n) { return decrease(fastdropCount_, n, fastdropCountAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<VrfStatus>;
    RouteMap route_;
    U32 failedMroutes_ = 0;
    U16 fastdropCount_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<VrfStatus> vrfStatusFactory(L3::VrfName const& vrf);

// What the hardware can do, how it is used, and its VRFs.
class Status : public Vomo::NamedEntity<Status> {
public:
    enum Attr : U32 {
        hwRoutingAttr = 258,
        vrfStatusAttr,
        hwResourceFullAttr,
        pollingIntervalAttr,
        pollingMinIntervalAttr,
        needIifInOifSetAttr,
        routeLimitAttr,
        batchEnabledAttr,
        routeCounterSupportedAttr,
        routingEnabledAttr,
        waitForRoutingDisabledCntAttr,
        avoidDuplicatesAttr,
        deleteL2RouteOnFailureAttr,
        mcastFlexCounterSupportAttr,
        anyDirtyLagAttr,
        dirtyLagAttr,
        mountPathAttr,
        routesAttr
    };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }
    // "routing/hardware/multicast/status", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    bool hwRouting() const { return hwRouting_; }
    void hwRoutingIs(bool v) { assign(hwRouting_, v, hwRoutingAttr); }
    using VrfStatusMap = Vomo::Children<Status, vrfStatusAttr, VrfStatus, &VrfStatus::vrfName,
                                        Vomo::SeededHash<0x89FD2106>>;
    using VomoVrfStatus = VrfStatusMap::Node;
    Vomo::Ptr<VrfStatus> vrfStatus(L3::VrfName const& vrf) const { return vrfStatus_.at(vrf); }
    VrfStatusMap const& vrfStatus() const { return vrfStatus_; }
    Vomo::Ptr<VrfStatus> vrfStatusIs(L3::VrfName const& vrf) { return vrfStatus_.is(this, vrf); }
    Vomo::Ptr<VrfStatus> vrfStatusDel(L3::VrfName const& vrf) { return vrfStatus_.del(this, vrf); }
    void vrfStatusDelAll() { vrfStatus_.delAll(this); }
    bool hwResourceFull() const { return hwResourceFull_; }
    void hwResourceFullIs(bool v) { assign(hwResourceFull_, v, hwResourceFullAttr); }
    // Seconds.
    U8 pollingInterval() const { return pollingInterval_; }
    void pollingIntervalIs(U8 v) { assign(pollingInterval_, v, pollingIntervalAttr); }
    U8 pollingIntervalInc(U8 n) { return increase(pollingInterval_, n, pollingIntervalAttr); }
    U8 pollingIntervalDec(U8 n) { return decrease(pollingInterval_, n, pollingIntervalAttr); }
    U8 pollingMinInterval() const { return pollingMinInterval_; }
    void pollingMinIntervalIs(U8 v) { assign(pollingMinInterval_, v, pollingMinIntervalAttr); }
    U8 pollingMinIntervalInc(U8 n) {
        return increase(pollingMinInterval_, n, pollingMinIntervalAttr);
    }
    U8 pollingMinIntervalDec(U8 n) {
        return decrease(pollingMinInterval_, n, pollingMinIntervalAttr);
    }
    // The incoming interface must be among the outgoing ones.
    bool needIifInOifSet() const { return needIifInOifSet_; }
    void needIifInOifSetIs(bool v) { assign(needIifInOifSet_, v, needIifInOifSetAttr); }
    // How many routes the hardware holds; 0 is not known.
    U32 routeLimit() const { return routeLimit_; }
    void routeLimitIs(U32 v) { assign(routeLimit_, v, routeLimitAttr); }
    U32 routeLimitInc(U32 n) { return increase(routeLimit_, n, routeLimitAttr); }
    U32 routeLimitDec(U32 n) { return decrease(routeLimit_, n, routeLimitAttr); }
    bool batchEnabled() const { return batchEnabled_; }
    void batchEnabledIs(bool v) { assign(batchEnabled_, v, batchEnabledAttr); }
    bool routeCounterSupported() const { return routeCounterSupported_; }
    void routeCounterSupportedIs(bool v) {
        assign(routeCounterSupported_, v, routeCounterSupportedAttr);
    }
    bool routingEnabled() const { return routingEnabled_; }
    void routingEnabledIs(bool v) { assign(routingEnabled_, v, routingEnabledAttr); }
    U32 waitForRoutingDisabledCnt() const { return waitForRoutingDisabledCnt_; }
    void waitForRoutingDisabledCntIs(U32 v) {
        assign(waitForRoutingDisabledCnt_, v, waitForRoutingDisabledCntAttr);
    }
    U32 waitForRoutingDisabledCntInc(U32 n) {
        return increase(waitForRoutingDisabledCnt_, n, waitForRoutingDisabledCntAttr);
    }
    U32 waitForRoutingDisabledCntDec(U32 n) {
        return decrease(waitForRoutingDisabledCnt_, n, waitForRoutingDisabledCntAttr);
    }
    bool avoidDuplicates() const { return avoidDuplicates_; }
    void avoidDuplicatesIs(bool v) { assign(avoidDuplicates_, v, avoidDuplicatesAttr); }
    bool deleteL2RouteOnFailure() const { return deleteL2RouteOnFailure_; }
    void deleteL2RouteOnFailureIs(bool v) {
        assign(deleteL2RouteOnFailure_, v, deleteL2RouteOnFailureAttr);
    }
    bool mcastFlexCounterSupport() const { return mcastFlexCounterSupport_; }
    void mcastFlexCounterSupportIs(bool v) {
        assign(mcastFlexCounterSupport_, v, mcastFlexCounterSupportAttr);
    }
    bool anyDirtyLag() const { return anyDirtyLag_; }
    void anyDirtyLagIs(bool v) { assign(anyDirtyLag_, v, anyDirtyLagAttr); }
    // The changes that a link aggregation group still needs in hardware.
    using DirtyLagMap =
        Vomo::ValueMap<Status, dirtyLagAttr, Kelpie::IntfId, U32, Vomo::SeededHash<0xE9B19151>>;
    using VomoDirtyLag = DirtyLagMap::Node;
    U32 dirtyLag(Kelpie::IntfId intf) const { return dirtyLag_.at(intf); }
    DirtyLagMap const& dirtyLag() const { return dirtyLag_; }
    void dirtyLagIs(Kelpie::IntfId intf, U32 v) { dirtyLag_.is(this, intf, v); }
    U32 dirtyLagDel(Kelpie::IntfId intf) { return dirtyLag_.del(this, intf); }
    void dirtyLagDelAll() { dirtyLag_.delAll(this); }

    // The routes of all VRFs, counted at each call.
    U32 routes() const;

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    bool hwRouting_ = true;
    VrfStatusMap vrfStatus_;
    bool hwResourceFull_ = false;
    U8 pollingInterval_ = 60;
    U8 pollingMinInterval_ = 1;
    bool needIifInOifSet_ = false;
    U32 routeLimit_ = 0;
    bool batchEnabled_ = false;
    bool routeCounterSupported_ = false;
    bool routingEnabled_ = false;
    U32 waitForRoutingDisabledCnt_ = 0;
    bool avoidDuplicates_ = false;
    bool deleteL2RouteOnFailure_ = true;
    bool mcastFlexCounterSupport_ = true;
    bool anyDirtyLag_ = false;
    DirtyLagMap dirtyLag_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<Status> statusFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Fib::Hardware
