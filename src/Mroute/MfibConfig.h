// What is configured for the multicast FIB.
#pragma once

#include "Mroute/Mfib.h"
#include "Vomo/Collections.h"

namespace Routing::Multicast::Fib {

// How one of several upstream paths is chosen; Config::MultipathControl.
enum class ConfigMultipathControl : U8 {
    multipathDeterministic = 0,
    multipathNone = 1,
    noMultipathDeterministic = 2,
    multipathRouterId = 3,
    multipathDeterministicColor = 4,
};

// The configuration of one VRF's FIB.
class Config : public Vomo::NamedEntity<Config> {
public:
    enum Attr : U32 {
        routingAttr = 258,
        useUribAsFallbackAttr,
        useUribAsFallbackDefaultAttr,
        multipathControlAttr,
        multipathColorAttr,
        multipathColorDefaultAttr,
        fastdropAttr,
        fastdropDefaultAttr,
        maxFastdropsAttr,
        maxFastdropsDefaultAttr,
        counterRouteAttr,
        clearCounterRouteAttr,
        clearFastdropAttr,
        clearMfibCountAttr,
        isDefaultAttr,
        resetAttr
    };
    using MultipathControl = ConfigMultipathControl;
    static constexpr bool useUribAsFallbackDefault = true;
    static constexpr U32 multipathColorDefault = 0;
    static constexpr bool fastdropDefault = true;
    static constexpr U32 maxFastdropsDefault = 1024;

    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Config> ConfigIs(Vomo::String const& name) {
        return Vomo::newEntity<Config>(name);
    }

    bool routing() const { return routing_; }
    void routingIs(bool v) { assign(routing_, v, routingAttr); }
    bool useUribAsFallback() const { return useUribAsFallback_; }
    void useUribAsFallbackIs(bool v) { assign(useUribAsFallback_, v, useUribAsFallbackAttr); }
    MultipathControl multipathControl() const { return multipathControl_; }
    void multipathControlIs(MultipathControl v) {
        assign(multipathControl_, v, multipathControlAttr);
    }
    U32 multipathColor() const { return multipathColor_; }
    void multipathColorIs(U32 v) { assign(multipathColor_, v, multipathColorAttr); }
    U32 multipathColorInc(U32 n) { return increase(multipathColor_, n, multipathColorAttr); }
    U32 multipathColorDec(U32 n) { return decrease(multipathColor_, n, multipathColorAttr); }
    bool fastdrop() const { return fastdrop_; }
    void fastdropIs(bool v) { assign(fastdrop_, v, fastdropAttr); }
    U32 maxFastdrops() const { return maxFastdrops_; }
    void maxFastdropsIs(U32 v) { assign(maxFastdrops_, v, maxFastdropsAttr); }
    U32 maxFastdropsInc(U32 n) { return increase(maxFastdrops_, n, maxFastdropsAttr); }
    U32 maxFastdropsDec(U32 n) { return decrease(maxFastdrops_, n, maxFastdropsAttr); }

    // The routes that are counted.
    using CounterRouteMap =
        Vomo::ValueMap<Config, counterRouteAttr, IpGenRouteKey, bool, Vomo::SeededHash<0xFE96E5AB>>;
    using VomoCounterRoute = CounterRouteMap::Node;
    bool counterRoute(IpGenRouteKey const& key) const { return counterRoute_.at(key); }
    CounterRouteMap const& counterRoute() const { return counterRoute_; }
    void counterRouteIs(IpGenRouteKey const& key, bool v) { counterRoute_.is(this, key, v); }
    bool counterRouteDel(IpGenRouteKey const& key) { return counterRoute_.del(this, key); }
    void counterRouteDelAll() { counterRoute_.delAll(this); }

    // Commands: the routes whose counters are to be cleared, and when or how often to clear the rest.
    using ClearCounterRouteMap =
        Vomo::ValueMap<Config, clearCounterRouteAttr, IpGenRouteKey, bool, Vomo::LegacyHash>;
    using VomoClearCounterRoute = ClearCounterRouteMap::Node;
    bool clearCounterRoute(IpGenRouteKey const& key) const { return clearCounterRoute_.at(key); }
    ClearCounterRouteMap const& clearCounterRoute() const { return clearCounterRoute_; }
    void clearCounterRouteIs(IpGenRouteKey const& key, bool v) {
        clearCounterRoute_.is(this, key, v);
    }
    bool clearCounterRouteDel(IpGenRouteKey const& key) {
        return clearCounterRoute_.del(this, key);
    }
    void clearCounterRouteDelAll() { clearCounterRoute_.delAll(this); }
    Vomo::Seconds clearFastdrop() const { return clearFastdrop_; }
    void clearFastdropIs(Vomo::Seconds v) { assign(clearFastdrop_, v, clearFastdropAttr); }
    U8 clearMfibCount() const { return clearMfibCount_; }
    void clearMfibCountIs(U8 v) { assign(clearMfibCount_, v, clearMfibCountAttr); }
    // With 8-bit wrap-around.
    U8 clearMfibCountInc(U8 n) { return increase(clearMfibCount_, n, clearMfibCountAttr); }
    U8 clearMfibCountDec(U8 n) { return decrease(clearMfibCount_, n, clearMfibCountAttr); }

    // All but the commands has its default.
    bool isDefault() const;
    // Gives all but the commands its default.
    void reset();

private:
    friend EntityOf;
    friend Vomo::Describe<Config>;
    bool routing_ = false;
    bool useUribAsFallback_ = useUribAsFallbackDefault;
    MultipathControl multipathControl_ = MultipathControl::multipathDeterministic;
    U32 multipathColor_ = multipathColorDefault;
    bool fastdrop_ = fastdropDefault;
    U32 maxFastdrops_ = maxFastdropsDefault;
    CounterRouteMap counterRoute_;
    ClearCounterRouteMap clearCounterRoute_;
    Vomo::Seconds clearFastdrop_ = 0;
    U8 clearMfibCount_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<Config> configFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Fib
