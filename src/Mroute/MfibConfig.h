// What is configured for the multicast FIB.
#pragma once

#include "Interface/LoadInterval.h"
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

// What is configured for one interface.
class IntfConfig : public Vomo::NamedEntity<IntfConfig> {
public:
    enum Attr : U32 { noFastdropAttr = 258 };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<IntfConfig> IntfConfigIs(Vomo::String const& name) {
        return Vomo::newEntity<IntfConfig>(name);
    }

    bool noFastdrop() const { return noFastdrop_; }
    void noFastdropIs(bool v) { assign(noFastdrop_, v, noFastdropAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<IntfConfig>;
    bool noFastdrop_ = false;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<IntfConfig> intfConfigFactory(Vomo::String const& name);

// What all VRFs share, with the configuration of each VRF and interface. A new one holds the
// configuration of the VRF "default".
class VrfConfig : public Vomo::NamedEntity<VrfConfig> {
public:
    enum Attr : U32 {
        routingAttr = 258,
        counterModeAttr,
        counterModeDefaultAttr,
        loadIntervalAttr,
        allCounterAttr,
        allCounterDefaultAttr,
        activityPollingIntervalAttr,
        activityPollingIntervalDefaultAttr,
        intfConfigAttr,
        configAttr,
        mountPathAttr,
        resetAttr,
        isDefaultAttr,
        doInitAttr
    };
    static constexpr CounterMode counterModeDefault = CounterMode::byteMode;
    static constexpr bool allCounterDefault = false;
    static constexpr U8 activityPollingIntervalDefault = 60;

    explicit VrfConfig(Vomo::String const& name);
    static Vomo::Ptr<VrfConfig> VrfConfigIs(Vomo::String const& name) {
        return Vomo::newEntity<VrfConfig>(name);
    }
    // "routing/multicast/vrf/config", "routing6/...". Any other family ends the process.
    static Vomo::String mountPath(Kelpie::AddressFamily af);

    bool routing() const { return routing_; }
    void routingIs(bool v) { assign(routing_, v, routingAttr); }
    CounterMode counterMode() const { return counterMode_; }
    void counterModeIs(CounterMode v) { assign(counterMode_, v, counterModeAttr); }
    Interface::LoadInterval loadInterval() const { return loadInterval_; }
    void loadIntervalIs(Interface::LoadInterval const& v) {
        assign(loadInterval_, v, loadIntervalAttr);
    }
    // All routes are counted, not only those of `Config::counterRoute`.
    bool allCounter() const { return allCounter_; }
    void allCounterIs(bool v) { assign(allCounter_, v, allCounterAttr); }
    // Seconds.
    U8 activityPollingInterval() const { return activityPollingInterval_; }
    void activityPollingIntervalIs(U8 v) {
        assign(activityPollingInterval_, v, activityPollingIntervalAttr);
    }
    U8 activityPollingIntervalInc(U8 n) {
        return increase(activityPollingInterval_, n, activityPollingIntervalAttr);
    }
    U8 activityPollingIntervalDec(U8 n) {
        return decrease(activityPollingInterval_, n, activityPollingIntervalAttr);
    }

    using IntfConfigMap = Vomo::Children<VrfConfig, intfConfigAttr, IntfConfig,
                                         &IntfConfig::nameKey, Vomo::SeededHash<0x5F556F3B>>;
    using VomoIntfConfig = IntfConfigMap::Node;
    Vomo::Ptr<IntfConfig> intfConfig(Vomo::String const& name) const {
        return intfConfig_.at(name);
    }
    IntfConfigMap const& intfConfig() const { return intfConfig_; }
    Vomo::Ptr<IntfConfig> intfConfigIs(Vomo::String const& name) {
        return intfConfig_.is(this, name);
    }
    Vomo::Ptr<IntfConfig> intfConfigDel(Vomo::String const& name) {
        return intfConfig_.del(this, name);
    }
    void intfConfigDelAll() { intfConfig_.delAll(this); }
    // By VRF.
    using ConfigMap = Vomo::Children<VrfConfig, configAttr, Config, &Config::nameKey,
                                     Vomo::SeededHash<0xC6152FA1>>;
    using VomoConfig = ConfigMap::Node;
    Vomo::Ptr<Config> config(Vomo::String const& name) const { return config_.at(name); }
    ConfigMap const& config() const { return config_; }
    Vomo::Ptr<Config> configIs(Vomo::String const& name) { return config_.is(this, name); }
    Vomo::Ptr<Config> configDel(Vomo::String const& name) { return config_.del(this, name); }
    void configDelAll() { config_.delAll(this); }

    // Every scalar has its default; of the load interval only the seconds count.
    bool isDefault() const;
    // Gives the scalars their defaults, but for `allCounter`: a reset VrfConfig need not be default.
    void reset();
    // Makes the configuration of the VRF "default", if it is not there.
    void doInit();

private:
    friend EntityOf;
    friend Vomo::Describe<VrfConfig>;
    bool routing_ = false;
    CounterMode counterMode_ = counterModeDefault;
    Interface::LoadInterval loadInterval_;
    bool allCounter_ = allCounterDefault;
    U8 activityPollingInterval_ = activityPollingIntervalDefault;
    IntfConfigMap intfConfig_;
    ConfigMap config_;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<VrfConfig> vrfConfigFactory(Vomo::String const& name);

} // namespace Routing::Multicast::Fib

namespace Routing::Multicast {

// Which form of the configuration commands is in use, and the modes in which they are entered.
class MulticastLegacyConfig : public Vomo::NamedEntity<MulticastLegacyConfig> {
public:
    enum Attr : U32 { legacyAttr = 258, versionAttr, globalModeAttr, routerModeAttr, ipModeAttr };
    static constexpr U8 globalMode = 1;
    static constexpr U8 routerMode = 2;
    static constexpr U8 ipMode = 3;

    using NamedEntity::NamedEntity;
    static Vomo::Ptr<MulticastLegacyConfig> MulticastLegacyConfigIs(Vomo::String const& name) {
        return Vomo::newEntity<MulticastLegacyConfig>(name);
    }

    bool legacy() const { return legacy_; }
    void legacyIs(bool v) { assign(legacy_, v, legacyAttr); }
    U8 version() const { return version_; }
    void versionIs(U8 v) { assign(version_, v, versionAttr); }
    U8 versionInc(U8 n) { return increase(version_, n, versionAttr); }
    U8 versionDec(U8 n) { return decrease(version_, n, versionAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<MulticastLegacyConfig>;
    bool legacy_ = true;
    U8 version_ = 1;
    mutable Vomo::NotifieeList notifiees_;
};
Vomo::Ptr<MulticastLegacyConfig> multicastLegacyConfigFactory(Vomo::String const& name);

} // namespace Routing::Multicast
