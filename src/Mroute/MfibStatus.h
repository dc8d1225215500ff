// What the agents of the multicast FIB, of PIM and of VXLAN publish about VRFs and interfaces. Where a
// map holds booleans, false is a member like any other: it is stored, not removed.
#pragma once

#include "Kelpie/IntfBoundaryStatus.h"
#include "L3/VrfName.h"
#include "Mroute/Mfib.h"
#include "Vomo/Collections.h"

namespace Routing::Multicast::Fib {

// What the FIB needs of interfaces.
class Status : public Vomo::NamedEntity<Status> {
public:
    enum Attr : U32 {
        notifyLocalSourcesAttr = 258,
        intfBoundaryStatusAttr,
        vxlanIntfAttr,
        mountPathAttr
    };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }
    // "routing/multicast/status", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    // Whether an interface reports the sources that are connected to it.
    using NotifyLocalSourcesMap =
        Vomo::ValueMap<Status, notifyLocalSourcesAttr, Vomo::String, bool, Vomo::LegacyHash>;
    using VomoNotifyLocalSources = NotifyLocalSourcesMap::Node;
    bool notifyLocalSources(Vomo::String const& name) const { return notifyLocalSources_.at(name); }
    NotifyLocalSourcesMap const& notifyLocalSources() const { return notifyLocalSources_; }
    void notifyLocalSourcesIs(Vomo::String const& name, bool v) {
        notifyLocalSources_.is(this, name, v);
    }
    bool notifyLocalSourcesDel(Vomo::String const& name) {
        return notifyLocalSources_.del(this, name);
    }
    void notifyLocalSourcesDelAll() { notifyLocalSources_.delAll(this); }
    using IntfBoundaryStatusMap =
        Vomo::Children<Status, intfBoundaryStatusAttr, Kelpie::IntfBoundaryStatus,
                       &Kelpie::IntfBoundaryStatus::nameKey, Vomo::LegacyHash>;
    using VomoIntfBoundaryStatus = IntfBoundaryStatusMap::Node;
    Vomo::Ptr<Kelpie::IntfBoundaryStatus> intfBoundaryStatus(Vomo::String const& name) const {
        return intfBoundaryStatus_.at(name);
    }
    IntfBoundaryStatusMap const& intfBoundaryStatus() const { return intfBoundaryStatus_; }
    Vomo::Ptr<Kelpie::IntfBoundaryStatus> intfBoundaryStatusIs(Vomo::String const& name) {
        return intfBoundaryStatus_.is(this, name);
    }
    Vomo::Ptr<Kelpie::IntfBoundaryStatus> intfBoundaryStatusDel(Vomo::String const& name) {
        return intfBoundaryStatus_.del(this, name);
    }
    void intfBoundaryStatusDelAll() { intfBoundaryStatus_.delAll(this); }
    using VxlanIntfMap =
        Vomo::ValueMap<Status, vxlanIntfAttr, Kelpie::IntfId, bool, Vomo::SeededHash<0x28C4FDDC>>;
    using VomoVxlanIntf = VxlanIntfMap::Node;
    bool vxlanIntf(Kelpie::IntfId intf) const { return vxlanIntf_.at(intf); }
    VxlanIntfMap const& vxlanIntf() const { return vxlanIntf_; }
    void vxlanIntfIs(Kelpie::IntfId intf, bool v) { vxlanIntf_.is(this, intf, v); }
    bool vxlanIntfDel(Kelpie::IntfId intf) { return vxlanIntf_.del(this, intf); }
    void vxlanIntfDelAll() { vxlanIntf_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    NotifyLocalSourcesMap notifyLocalSources_;
    IntfBoundaryStatusMap intfBoundaryStatus_;
    VxlanIntfMap vxlanIntf_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<Status> statusFactory(Vomo::String const& name);

// The VRFs whose routes an agent has programmed.
class ReadyStatus : public Vomo::NamedEntity<ReadyStatus> {
public:
    enum Attr : U32 { vrfReadyAttr = 258, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<ReadyStatus> ReadyStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<ReadyStatus>(name);
    }
    // "routing/multicast/fibready/NAME/status" or "routing6/..." below the current cell; for the agent
    // "sparsemode" without a name. Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af, Vomo::String const& name);

    using VrfReadyMap =
        Vomo::ValueMap<ReadyStatus, vrfReadyAttr, L3::VrfName, bool, Vomo::SeededHash<0xB93003F7>>;
    using VomoVrfReady = VrfReadyMap::Node;
    bool vrfReady(L3::VrfName const& vrf) const { return vrfReady_.at(vrf); }
    VrfReadyMap const& vrfReady() const { return vrfReady_; }
    void vrfReadyIs(L3::VrfName const& vrf, bool v) { vrfReady_.is(this, vrf, v); }
    bool vrfReadyDel(L3::VrfName const& vrf) { return vrfReady_.del(this, vrf); }
    void vrfReadyDelAll() { vrfReady_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<ReadyStatus>;
    VrfReadyMap vrfReady_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<ReadyStatus> readyStatusFactory(Vomo::String const& name);

// The VRFs in which multicast routing is enabled.
class VrfEnabledStatus : public Vomo::NamedEntity<VrfEnabledStatus> {
public:
    enum Attr : U32 { vrfAttr = 258, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<VrfEnabledStatus> VrfEnabledStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<VrfEnabledStatus>(name);
    }
    // "routing/multicast/fibenabled/status", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    using VrfMap =
        Vomo::ValueMap<VrfEnabledStatus, vrfAttr, L3::VrfName, bool, Vomo::SeededHash<0x82278128>>;
    using VomoVrf = VrfMap::Node;
    bool vrf(L3::VrfName const& vrf) const { return vrf_.at(vrf); }
    VrfMap const& vrf() const { return vrf_; }
    void vrfIs(L3::VrfName const& vrf, bool v) { vrf_.is(this, vrf, v); }
    bool vrfDel(L3::VrfName const& vrf) { return vrf_.del(this, vrf); }
    void vrfDelAll() { vrf_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<VrfEnabledStatus>;
    VrfMap vrf_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<VrfEnabledStatus> vrfEnabledStatusFactory(Vomo::String const& name);

// The VRFs in which bidirectional multicast is enabled.
class BidirStatus : public Vomo::NamedEntity<BidirStatus> {
public:
    enum Attr : U32 { bidirEnabledVrfAttr = 258 };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<BidirStatus> BidirStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<BidirStatus>(name);
    }

    using BidirEnabledVrfMap = Vomo::ValueMap<BidirStatus, bidirEnabledVrfAttr, L3::VrfName, bool,
                                              Vomo::SeededHash<0x18ADC565>>;
    using VomoBidirEnabledVrf = BidirEnabledVrfMap::Node;
    bool bidirEnabledVrf(L3::VrfName const& vrf) const { return bidirEnabledVrf_.at(vrf); }
    BidirEnabledVrfMap const& bidirEnabledVrf() const { return bidirEnabledVrf_; }
    void bidirEnabledVrfIs(L3::VrfName const& vrf, bool v) { bidirEnabledVrf_.is(this, vrf, v); }
    bool bidirEnabledVrfDel(L3::VrfName const& vrf) { return bidirEnabledVrf_.del(this, vrf); }
    void bidirEnabledVrfDelAll() { bidirEnabledVrf_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<BidirStatus>;
    BidirEnabledVrfMap bidirEnabledVrf_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<BidirStatus> bidirStatusFactory(Vomo::String const& name);

// The interfaces that take over at once when an upstream path fails.
class SparseModeStatus : public Vomo::NamedEntity<SparseModeStatus> {
public:
    enum Attr : U32 { fastFailoverIntfAttr = 258, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<SparseModeStatus> SparseModeStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<SparseModeStatus>(name);
    }
    // "routing/multicast/sparsemode/status", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    using FastFailoverIntfSet =
        Vomo::ValueSet<SparseModeStatus, fastFailoverIntfAttr, Kelpie::IntfId, Vomo::LegacyHash>;
    using VomoFastFailoverIntf = FastFailoverIntfSet::Node;
    bool fastFailoverIntf(Kelpie::IntfId intf) const { return fastFailoverIntf_.has(intf); }
    FastFailoverIntfSet const& fastFailoverIntf() const { return fastFailoverIntf_; }
    bool fastFailoverIntfIs(Kelpie::IntfId intf) { return fastFailoverIntf_.is(this, intf); }
    bool fastFailoverIntfDel(Kelpie::IntfId intf) { return fastFailoverIntf_.del(this, intf); }
    void fastFailoverIntfDelAll() { fastFailoverIntf_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<SparseModeStatus>;
    FastFailoverIntfSet fastFailoverIntf_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<SparseModeStatus> sparseModeStatusFactory(Vomo::String const& name);

// The interfaces at which this router borders another multicast domain.
class MbrIntf : public Vomo::NamedEntity<MbrIntf> {
public:
    enum Attr : U32 { intfAttr = 258, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<MbrIntf> MbrIntfIs(Vomo::String const& name) {
        return Vomo::newEntity<MbrIntf>(name);
    }
    // "routing/multicast/mbrinterface", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    using IntfMap =
        Vomo::ValueMap<MbrIntf, intfAttr, Kelpie::IntfId, bool, Vomo::SeededHash<0x27605067>>;
    using VomoIntf = IntfMap::Node;
    bool intf(Kelpie::IntfId intf) const { return intf_.at(intf); }
    IntfMap const& intf() const { return intf_; }
    void intfIs(Kelpie::IntfId intf, bool v) { intf_.is(this, intf, v); }
    bool intfDel(Kelpie::IntfId intf) { return intf_.del(this, intf); }
    void intfDelAll() { intf_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<MbrIntf>;
    IntfMap intf_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<MbrIntf> mbrIntfFactory(Vomo::String const& name);

// How the counter table is used.
class CounterStatusCtl : public Vomo::NamedEntity<CounterStatusCtl> {
public:
    enum Attr : U32 { modeAttr = 258, maxCountersAttr, currSizeAttr, currActiveAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<CounterStatusCtl> CounterStatusCtlIs(Vomo::String const& name) {
        return Vomo::newEntity<CounterStatusCtl>(name);
    }

    CounterMode mode() const { return mode_; }
    void modeIs(CounterMode v) { assign(mode_, v, modeAttr); }
    U32 maxCounters() const { return maxCounters_; }
    void maxCountersIs(U32 v) { assign(maxCounters_, v, maxCountersAttr); }
    U32 maxCountersInc(U32 n) { return increase(maxCounters_, n, maxCountersAttr); }
    U32 maxCountersDec(U32 n) { return decrease(maxCounters_, n, maxCountersAttr); }
    // Counters in the table, and how many of them are active.
    U32 currSize() const { return currSize_; }
    void currSizeIs(U32 v) { assign(currSize_, v, currSizeAttr); }
    U32 currSizeInc(U32 n) { return increase(currSize_, n, currSizeAttr); }
    U32 currSizeDec(U32 n) { return decrease(currSize_, n, currSizeAttr); }
    U32 currActive() const { return currActive_; }
    void currActiveIs(U32 v) { assign(currActive_, v, currActiveAttr); }
    U32 currActiveInc(U32 n) { return increase(currActive_, n, currActiveAttr); }
    U32 currActiveDec(U32 n) { return decrease(currActive_, n, currActiveAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<CounterStatusCtl>;
    CounterMode mode_ = CounterMode::None;
    U32 maxCounters_ = 0;
    U32 currSize_ = 0;
    U32 currActive_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<CounterStatusCtl> counterStatusCtlFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Fib

namespace Routing::Multicast::Pim {

// The VRFs in which PIM is enabled, by mode.
class Status : public Vomo::NamedEntity<Status> {
public:
    enum Attr : U32 { pimEnabledSparseModeVrfAttr = 258, pimEnabledBidirVrfAttr, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }
    // "routing/multicast/pim/global/status", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    using PimEnabledSparseModeVrfMap =
        Vomo::ValueMap<Status, pimEnabledSparseModeVrfAttr, L3::VrfName, bool, Vomo::LegacyHash>;
    using VomoPimEnabledSparseModeVrf = PimEnabledSparseModeVrfMap::Node;
    bool pimEnabledSparseModeVrf(L3::VrfName const& vrf) const {
        return pimEnabledSparseModeVrf_.at(vrf);
    }
    PimEnabledSparseModeVrfMap const& pimEnabledSparseModeVrf() const {
        return pimEnabledSparseModeVrf_;
    }
    void pimEnabledSparseModeVrfIs(L3::VrfName const& vrf, bool v) {
        pimEnabledSparseModeVrf_.is(this, vrf, v);
    }
    bool pimEnabledSparseModeVrfDel(L3::VrfName const& vrf) {
        return pimEnabledSparseModeVrf_.del(this, vrf);
    }
    void pimEnabledSparseModeVrfDelAll() { pimEnabledSparseModeVrf_.delAll(this); }
    using PimEnabledBidirVrfMap =
        Vomo::ValueMap<Status, pimEnabledBidirVrfAttr, L3::VrfName, bool, Vomo::LegacyHash>;
    using VomoPimEnabledBidirVrf = PimEnabledBidirVrfMap::Node;
    bool pimEnabledBidirVrf(L3::VrfName const& vrf) const { return pimEnabledBidirVrf_.at(vrf); }
    PimEnabledBidirVrfMap const& pimEnabledBidirVrf() const { return pimEnabledBidirVrf_; }
    void pimEnabledBidirVrfIs(L3::VrfName const& vrf, bool v) {
        pimEnabledBidirVrf_.is(this, vrf, v);
    }
    bool pimEnabledBidirVrfDel(L3::VrfName const& vrf) {
        return pimEnabledBidirVrf_.del(this, vrf);
    }
    void pimEnabledBidirVrfDelAll() { pimEnabledBidirVrf_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    PimEnabledSparseModeVrfMap pimEnabledSparseModeVrf_;
    PimEnabledBidirVrfMap pimEnabledBidirVrf_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<Status> statusFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Pim

namespace Routing::Multicast::Vxlan {

// The VXLAN interfaces that take part in multicast.
class Status : public Vomo::NamedEntity<Status> {
public:
    enum Attr : U32 { vxlanIntfAttr = 258, mountPathAttr };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }
    // "routing/multicast/vxlan/status", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    using VxlanIntfMap =
        Vomo::ValueMap<Status, vxlanIntfAttr, Kelpie::IntfId, bool, Vomo::SeededHash<0x0A9ED309>>;
    using VomoVxlanIntf = VxlanIntfMap::Node;
    bool vxlanIntf(Kelpie::IntfId intf) const { return vxlanIntf_.at(intf); }
    VxlanIntfMap const& vxlanIntf() const { return vxlanIntf_; }
    void vxlanIntfIs(Kelpie::IntfId intf, bool v) { vxlanIntf_.is(this, intf, v); }
    bool vxlanIntfDel(Kelpie::IntfId intf) { return vxlanIntf_.del(this, intf); }
    void vxlanIntfDelAll() { vxlanIntf_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    VxlanIntfMap vxlanIntf_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<Status> statusFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Vxlan
