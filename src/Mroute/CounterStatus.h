// The entity that owns the traffic counters of routes.
#pragma once

#include "Mroute/Tables.h"
#include "VomoBrisk/TableMember.h"

namespace Routing::Multicast::Fib {

// The counters. Where their table is mounted is up to the user.
class CounterStatus : public Vomo::NamedEntity<CounterStatus, VomoBrisk::TableOwner> {
public:
    enum Attr : U32 { counterAttr = 258, counterControlAttr };
    using CounterStatusZeroReferencesNotifiee = ZeroReferencesNotifiee;

    explicit CounterStatus(Vomo::String const& name) : NamedEntity(name) { zeroReferencesAttach(); }
    static Vomo::Ptr<CounterStatus> CounterStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<CounterStatus>(name);
    }

    // The counters, by the key of their route.
    using CounterColl = VomoBrisk::TableMember<CounterStatus, counterAttr, Mroute::CounterTable>;
    CounterColl::Map const& counter() const { return counter_.map(); }
    CounterColl::Map& counter() { return counter_.map(); }
    CounterColl::Value counter(CounterColl::Key const& key) const { return counter_.get(key); }
    bool counterHas(CounterColl::Key const& key) const { return counter_.has(key); }
    void counterIs(CounterColl::Value const& v) { counter_.is(v); }
    CounterColl::Value counterDel(CounterColl::Key const& key) { return counter_.del(key); }
    void counterDelAll() { counter_.delAll(); }
    void counterIsAll(CounterColl::Values values) { counter_.isAll(values); }
    void counterDelAll(CounterColl::Keys keys) { counter_.delAll(keys); }
    void counterCommit(CounterColl::Value const* v) { counter_.commit(v); }
    void counterNotify(CounterColl::Key const& key) { counter_.notify(key); }
    void counterNotifyQuiesced(bool quiesced) { counter_.notifyQuiesced(quiesced); }
    void counterNotifyMountStatus() { counter_.notifyMountStatus(); }
    Control const& counterControl() const { return counter_.control(); }
    void counterControlIs(Control const& v) { counter_.controlIs(v); }

private:
    friend EntityOf;
    friend Vomo::Describe<CounterStatus>;
    CounterColl counter_{*this, &CounterStatus::counterNotify,
                         &CounterStatus::counterNotifyMountStatus,
                         &CounterStatus::counterNotifyQuiesced};
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<CounterStatus> counterStatusFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Fib

VOMO_BRISK_EXTERN(Routing::Multicast::Fib::CounterStatus, Mroute::CounterTable);
