// The entities that own the route tables and those of bidirectional multicast, and an ordered view of
// routes.
#pragma once

#include "L3/VrfName.h"
#include "Mroute/BriskStatus.h"
#include "Mroute/Tables.h"
#include "Vomo/Collections.h"
#include "VomoBrisk/TableMember.h"

namespace Brisk::Multicast::Fib {

// The routes of one VRF, and the interface behind each bit of their bitmaps.
class Status : public Vomo::NamedEntity<Status, VomoBrisk::TableOwner> {
public:
    enum Attr : U32 {
        routeAttr = 258,
        routeControlAttr,
        oifIndexIntfAttr,
        oifIndexIntfControlAttr,
        bitMapperBriskStatusAttr,
        mountPathAttr,
    };
    using StatusZeroReferencesNotifiee = ZeroReferencesNotifiee;

    explicit Status(Vomo::String const& name) : NamedEntity(name) { zeroReferencesAttach(); }
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }
    // "routing/multicast/routestatus/VRF/NAME", or "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af, L3::VrfName vrf,
                                  Vomo::String const& name);

    // The routes, by their key.
    using RouteColl = VomoBrisk::TableMember<Status, routeAttr, Mroute::RouteTable>;
    RouteColl::Map const& route() const { return route_.map(); }
    RouteColl::Map& route() { return route_.map(); }
    RouteColl::Value route(RouteColl::Key const& key) const { return route_.get(key); }
    bool routeHas(RouteColl::Key const& key) const { return route_.has(key); }
    void routeIs(RouteColl::Value const& v) { route_.is(v); }
    RouteColl::Value routeDel(RouteColl::Key const& key) { return route_.del(key); }
    void routeDelAll() { route_.delAll(); }
    void routeIsAll(RouteColl::Values values) { route_.isAll(values); }
    void routeDelAll(RouteColl::Keys keys) { route_.delAll(keys); }
    void routeCommit(RouteColl::Value const* v) { route_.commit(v); }
    void routeNotify(RouteColl::Key const& key) { route_.notify(key); }
    void routeNotifyQuiesced(bool quiesced) { route_.notifyQuiesced(quiesced); }
    void routeNotifyMountStatus() { route_.notifyMountStatus(); }
    Control const& routeControl() const { return route_.control(); }
    void routeControlIs(Control const& v) { route_.controlIs(v); }

    // The interface of each outgoing-interface index.
    using OifIndexIntfColl =
        VomoBrisk::TableMember<Status, oifIndexIntfAttr, Mroute::OifIndexIntfTable>;
    OifIndexIntfColl::Map const& oifIndexIntf() const { return oifIndexIntf_.map(); }
    OifIndexIntfColl::Map& oifIndexIntf() { return oifIndexIntf_.map(); }
    OifIndexIntfColl::Value oifIndexIntf(OifIndexIntfColl::Key const& key) const {
        return oifIndexIntf_.get(key);
    }
    bool oifIndexIntfHas(OifIndexIntfColl::Key const& key) const { return oifIndexIntf_.has(key); }
    void oifIndexIntfIs(OifIndexIntfColl::Value const& v) { oifIndexIntf_.is(v); }
    OifIndexIntfColl::Value oifIndexIntfDel(OifIndexIntfColl::Key const& key) {
        return oifIndexIntf_.del(key);
    }
    void oifIndexIntfDelAll() { oifIndexIntf_.delAll(); }
    void oifIndexIntfIsAll(OifIndexIntfColl::Values values) { oifIndexIntf_.isAll(values); }
    void oifIndexIntfDelAll(OifIndexIntfColl::Keys keys) { oifIndexIntf_.delAll(keys); }
    void oifIndexIntfCommit(OifIndexIntfColl::Value const* v) { oifIndexIntf_.commit(v); }
    void oifIndexIntfNotify(OifIndexIntfColl::Key const& key) { oifIndexIntf_.notify(key); }
    void oifIndexIntfNotifyQuiesced(bool quiesced) { oifIndexIntf_.notifyQuiesced(quiesced); }
    void oifIndexIntfNotifyMountStatus() { oifIndexIntf_.notifyMountStatus(); }
    Control const& oifIndexIntfControl() const { return oifIndexIntf_.control(); }
    void oifIndexIntfControlIs(Control const& v) { oifIndexIntf_.controlIs(v); }

    // Who allocates the bits; may be null.
    Vomo::Ptr<BitMapper::BriskStatus> const& bitMapperBriskStatus() const {
        return bitMapperBriskStatus_;
    }
    void bitMapperBriskStatusIs(Vomo::Ptr<BitMapper::BriskStatus> const& v) {
        assign(bitMapperBriskStatus_, v, bitMapperBriskStatusAttr);
    }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    RouteColl route_{*this, &Status::routeNotify, &Status::routeNotifyMountStatus,
                     &Status::routeNotifyQuiesced};
    OifIndexIntfColl oifIndexIntf_{*this, &Status::oifIndexIntfNotify,
                                   &Status::oifIndexIntfNotifyMountStatus,
                                   &Status::oifIndexIntfNotifyQuiesced};
    Vomo::Ptr<BitMapper::BriskStatus> bitMapperBriskStatus_;
    mutable Vomo::NotifieeList notifiees_;
};

// Bidirectional multicast: the group ranges with their rendezvous point, and the designated-forwarder
// state of each interface.
class BidirStatus : public Vomo::NamedEntity<BidirStatus, VomoBrisk::TableOwner> {
public:
    enum Attr : U32 {
        bidirGroupAttr = 258,
        bidirGroupControlAttr,
        dfProfileAttr,
        dfProfileControlAttr,
    };
    using BidirStatusZeroReferencesNotifiee = ZeroReferencesNotifiee;

    explicit BidirStatus(Vomo::String const& name) : NamedEntity(name) { zeroReferencesAttach(); }
    static Vomo::Ptr<BidirStatus> BidirStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<BidirStatus>(name);
    }

    // The group ranges.
    using BidirGroupColl =
        VomoBrisk::TableMember<BidirStatus, bidirGroupAttr, Mroute::BidirGroupTable>;
    BidirGroupColl::Map const& bidirGroup() const { return bidirGroup_.map(); }
    BidirGroupColl::Map& bidirGroup() { return bidirGroup_.map(); }
    BidirGroupColl::Value bidirGroup(BidirGroupColl::Key const& key) const {
        return bidirGroup_.get(key);
    }
    bool bidirGroupHas(BidirGroupColl::Key const& key) const { return bidirGroup_.has(key); }
    void bidirGroupIs(BidirGroupColl::Value const& v) { bidirGroup_.is(v); }
    BidirGroupColl::Value bidirGroupDel(BidirGroupColl::Key const& key) {
        return bidirGroup_.del(key);
    }
    void bidirGroupDelAll() { bidirGroup_.delAll(); }
    void bidirGroupIsAll(BidirGroupColl::Values values) { bidirGroup_.isAll(values); }
    void bidirGroupDelAll(BidirGroupColl::Keys keys) { bidirGroup_.delAll(keys); }
    void bidirGroupCommit(BidirGroupColl::Value const* v) { bidirGroup_.commit(v); }
    void bidirGroupNotify(BidirGroupColl::Key const& key) { bidirGroup_.notify(key); }
    void bidirGroupNotifyQuiesced(bool quiesced) { bidirGroup_.notifyQuiesced(quiesced); }
    void bidirGroupNotifyMountStatus() { bidirGroup_.notifyMountStatus(); }
    Control const& bidirGroupControl() const { return bidirGroup_.control(); }
    void bidirGroupControlIs(Control const& v) { bidirGroup_.controlIs(v); }

    // The state of each interface.
    using DfProfileColl =
        VomoBrisk::TableMember<BidirStatus, dfProfileAttr, Mroute::DfProfileTable>;
    DfProfileColl::Map const& dfProfile() const { return dfProfile_.map(); }
    DfProfileColl::Map& dfProfile() { return dfProfile_.map(); }
    DfProfileColl::Value dfProfile(DfProfileColl::Key const& key) const {
        return dfProfile_.get(key);
    }
    bool dfProfileHas(DfProfileColl::Key const& key) const { return dfProfile_.has(key); }
    void dfProfileIs(DfProfileColl::Value const& v) { dfProfile_.is(v); }
    DfProfileColl::Value dfProfileDel(DfProfileColl::Key const& key) { return dfProfile_.del(key); }
    void dfProfileDelAll() { dfProfile_.delAll(); }
    void dfProfileIsAll(DfProfileColl::Values values) { dfProfile_.isAll(values); }
    void dfProfileDelAll(DfProfileColl::Keys keys) { dfProfile_.delAll(keys); }
    void dfProfileCommit(DfProfileColl::Value const* v) { dfProfile_.commit(v); }
    void dfProfileNotify(DfProfileColl::Key const& key) { dfProfile_.notify(key); }
    void dfProfileNotifyQuiesced(bool quiesced) { dfProfile_.notifyQuiesced(quiesced); }
    void dfProfileNotifyMountStatus() { dfProfile_.notifyMountStatus(); }
    Control const& dfProfileControl() const { return dfProfile_.control(); }
    void dfProfileControlIs(Control const& v) { dfProfile_.controlIs(v); }

private:
    friend EntityOf;
    friend Vomo::Describe<BidirStatus>;
    BidirGroupColl bidirGroup_{*this, &BidirStatus::bidirGroupNotify,
                               &BidirStatus::bidirGroupNotifyMountStatus,
                               &BidirStatus::bidirGroupNotifyQuiesced};
    DfProfileColl dfProfile_{*this, &BidirStatus::dfProfileNotify,
                             &BidirStatus::dfProfileNotifyMountStatus,
                             &BidirStatus::dfProfileNotifyQuiesced};
    mutable Vomo::NotifieeList notifiees_;
};

// Routes in order of their key, group first; each with the Status that carries it, which is held.
class RouteOrderedCollection : public Vomo::NamedEntity<RouteOrderedCollection> {
public:
    enum Attr : U32 { routeAttr = 258 };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<RouteOrderedCollection> RouteOrderedCollectionIs(Vomo::String const& name) {
        return Vomo::newEntity<RouteOrderedCollection>(name);
    }

    using RouteMap = Vomo::OrderedEntries<RouteOrderedCollection, routeAttr, IpGenRouteKey, Status>;
    using VomoRoute = RouteMap::Node;
    // Null if the key is not there.
    Vomo::Ptr<Status const> route(IpGenRouteKey const& key) const { return route_.at(key); }
    RouteMap const& route() const { return route_; }
    // Enters the key or gives it another Status; null takes it out.
    void routeIs(IpGenRouteKey const& key, Status const* status) {
        // Entities count through pointers that are not const.
        route_.is(this, key, Vomo::Ptr<Status>(const_cast<Status*>(status)));
    }
    // Return what the key had.
    Vomo::Ptr<Status const> routeDel(IpGenRouteKey const& key) { return route_.del(this, key); }
    Vomo::Ptr<Status const> routeDel(RouteMap::Iterator const& at) { return route_.del(this, at); }
    void routeDelAll() { route_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<RouteOrderedCollection>;
    RouteMap route_;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<Status> statusFactory(Vomo::String const& name);
Vomo::Ptr<BidirStatus> bidirStatusFactory(Vomo::String const& name);
Vomo::Ptr<RouteOrderedCollection> routeOrderedCollectionFactory(Vomo::String const& name);

} // namespace Brisk::Multicast::Fib

VOMO_BRISK_EXTERN(Brisk::Multicast::Fib::Status, Mroute::RouteTable);
VOMO_BRISK_EXTERN(Brisk::Multicast::Fib::Status, Mroute::OifIndexIntfTable);
VOMO_BRISK_EXTERN(Brisk::Multicast::Fib::BidirStatus, Mroute::BidirGroupTable);
VOMO_BRISK_EXTERN(Brisk::Multicast::Fib::BidirStatus, Mroute::DfProfileTable);
