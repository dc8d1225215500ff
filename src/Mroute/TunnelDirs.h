// The tunnel directories: one entity a kind of tunnel, which holds the configuration or the status of
// each tunnel of that kind. `ConfigDir` and `StatusDir` show all kinds alike; each kind derives its
// own directory, with a typed collection of its own above the base's.
//
// The two sides keep the two levels differently. A change of the typed collection of a configuration
// directory changes the base's too. On the status side it does not: `tunnelStatusIs`,
// `tunnelStatusDel` and `tunnelStatusDelAll` change both levels. Where both change, both have changed
// before 259 is notified, and then 386 (B32).
#pragma once

#include "Bridging/VlanId.h"
#include "Mroute/McastTunnelTypes.h"
#include "Vomo/Collections.h"

namespace Vomo {
// The rows of a directory; Mroute/TunnelRows.h.
template <class T, class DirBase>
struct TunnelDirRows;
} // namespace Vomo

namespace Multicast::Tunnel {

// What is wanted of one tunnel.
class Config : public Vomo::KeyedEntity<Config, TunnelId> {
public:
    enum Attr : U32 { tunnelIdAttr = 258, activeVersionAttr, markedForDeletionAttr };
    using KeyedEntity::KeyedEntity;
    static Vomo::Ptr<Config> ConfigIs(TunnelId const& id) { return Vomo::newEntity<Config>(id); }

    TunnelId const& tunnelId() const { return key_; }
    U64 activeVersion() const { return activeVersion_; }
    void activeVersionIs(U64 v) { assign(activeVersion_, v, activeVersionAttr); }
    U64 activeVersionInc(U64 n) { return increase(activeVersion_, n, activeVersionAttr); }
    U64 activeVersionDec(U64 n) { return decrease(activeVersion_, n, activeVersionAttr); }
    bool markedForDeletion() const { return markedForDeletion_; }
    void markedForDeletionIs(bool v) { assign(markedForDeletion_, v, markedForDeletionAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<Config>;
    U64 activeVersion_ = 0;
    bool markedForDeletion_ = false;
    mutable Vomo::NotifieeList notifiees_;
};

// What became of one tunnel.
class Status : public Vomo::KeyedEntity<Status, TunnelId> {
public:
    enum Attr : U32 { tunnelIdAttr = 258, versionAttr };
    using KeyedEntity::KeyedEntity;
    static Vomo::Ptr<Status> StatusIs(TunnelId const& id) { return Vomo::newEntity<Status>(id); }

    TunnelId const& tunnelId() const { return key_; }
    U64 version() const { return version_; }
    void versionIs(U64 v) { assign(version_, v, versionAttr); }
    U64 versionInc(U64 n) { return increase(version_, n, versionAttr); }
    U64 versionDec(U64 n) { return decrease(version_, n, versionAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    U64 version_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};

// The configurations of tunnels. A plain one holds what is entered by `configIs`; the functions that
// make and remove configurations are those of the derived directories, and raise
// NoImplementationException here.
class ConfigDir : public Vomo::NamedEntity<ConfigDir> {
public:
    enum Attr : U32 {
        tunnelTypeAttr = 258,
        configAttr,
        tunnelConfigIsAttr,
        tunnelConfigDelAttr,
        tunnelConfigDelAllAttr,
        tunnelConfigAttr,
        tunnelConfigHasAttr,
        tunnelConfigsAttr,
        waitForDeletionAttr
    };
    using Arguments = std::tuple<Vomo::String, TunnelType>;
    ConfigDir(Vomo::String const& name, TunnelType type) : NamedEntity(name), tunnelType_(type) {}
    static Vomo::Ptr<ConfigDir> ConfigDirIs(Vomo::String const& name, TunnelType type) {
        return Vomo::newEntity<ConfigDir>(name, type);
    }

    TunnelType tunnelType() const { return tunnelType_; }
    using ConfigMap = Vomo::Entries<ConfigDir, configAttr, Config, &Config::tunnelId,
                                    Vomo::SeededHash<0xC41CE08F>, Vomo::RowKind::readOnlyEntries>;
    using VomoConfig = ConfigMap::Node;
    Vomo::Ptr<Config> config(TunnelId const& id) const { return config_.at(id); }
    ConfigMap const& config() const { return config_; }
    // Raises ArgumentException for null. These change the base's collection alone.
    void configIs(Vomo::Ptr<Config> const& v) { config_.is(this, v); }
    Vomo::Ptr<Config> configDel(TunnelId const& id) { return config_.del(this, id); }
    void configDelAll() { config_.delAll(this); }

    virtual Vomo::Ptr<Config> tunnelConfigIs(TunnelId const& id);
    virtual void tunnelConfigDel(TunnelId const& id);
    virtual void tunnelConfigDelAll();
    // Null if there is none.
    Vomo::Ptr<Config> tunnelConfig(TunnelId const& id) const { return config_.at(id); }
    bool tunnelConfigHas(TunnelId const& id) const { return config_.has(id); }
    U32 tunnelConfigs() const { return config_.members(); }

    bool waitForDeletion() const { return waitForDeletion_; }
    void waitForDeletionIs(bool v) { assign(waitForDeletion_, v, waitForDeletionAttr); }

protected:
    ConfigMap config_;

private:
    friend EntityOf;
    friend Vomo::Describe<ConfigDir>;
    TunnelType tunnelType_;
    bool waitForDeletion_ = false;
    mutable Vomo::NotifieeList notifiees_;
};

// The statuses of tunnels. The functions that change go by the kind of tunnel to the directory that
// this one is, and raise std::bad_cast if it is another. For VPLS, and for a number that is no kind,
// they raise NoImplementationException; an invalid identifier ends the process.
class StatusDir : public Vomo::NamedEntity<StatusDir> {
public:
    enum Attr : U32 {
        tunnelTypeAttr = 258,
        tunnelStatusGenAttr,
        tunnelStatusIsAttr,
        tunnelStatusDelAttr,
        tunnelStatusDelAllAttr,
        tunnelStatusAttr,
        tunnelStatusHasAttr,
        tunnelStatussAttr
    };
    using Arguments = std::tuple<Vomo::String, TunnelType>;
    StatusDir(Vomo::String const& name, TunnelType type) : NamedEntity(name), tunnelType_(type) {}
    static Vomo::Ptr<StatusDir> StatusDirIs(Vomo::String const& name, TunnelType type) {
        return Vomo::newEntity<StatusDir>(name, type);
    }

    TunnelType tunnelType() const { return tunnelType_; }
    using TunnelStatusGenMap = Vomo::Entries<StatusDir, tunnelStatusGenAttr, Status,
                                             &Status::tunnelId, Vomo::SeededHash<0x4DB3AFDC>>;
    using VomoTunnelStatusGen = TunnelStatusGenMap::Node;
    Vomo::Ptr<Status> tunnelStatusGen(TunnelId const& id) const { return tunnelStatusGen_.at(id); }
    TunnelStatusGenMap const& tunnelStatusGen() const { return tunnelStatusGen_; }
    // Raises ArgumentException for null. These change the base's collection alone.
    void tunnelStatusGenIs(Vomo::Ptr<Status> const& v) { tunnelStatusGen_.is(this, v); }
    Vomo::Ptr<Status> tunnelStatusGenDel(TunnelId const& id) {
        return tunnelStatusGen_.del(this, id);
    }
    void tunnelStatusGenDelAll() { tunnelStatusGen_.delAll(this); }

    // By the kind of the identifier, on both levels. Where `tunnelStatusDel` raises
    // NoImplementationException the base's entry has gone all the same.
    Vomo::Ptr<Status> tunnelStatusIs(TunnelId const& id);
    void tunnelStatusDel(TunnelId const& id);
    // By the directory's own kind.
    void tunnelStatusDelAll();
    // Null if there is none.
    Vomo::Ptr<Status> tunnelStatus(TunnelId const& id) const { return tunnelStatusGen_.at(id); }
    bool tunnelStatusHas(TunnelId const& id) const { return tunnelStatusGen_.has(id); }
    U32 tunnelStatuss() const { return tunnelStatusGen_.members(); }

protected:
    TunnelStatusGenMap tunnelStatusGen_;

private:
    friend EntityOf;
    friend Vomo::Describe<StatusDir>;
    TunnelType tunnelType_;
    mutable Vomo::NotifieeList notifiees_;
};

// What the configuration directories of all kinds have alike. T is made from its name.
template <class T, class Child, TunnelType kind, class Hash>
class ConfigDirOf : public Vomo::EntityOf<T, ConfigDir> {
public:
    using Arguments = std::tuple<Vomo::String>;
    explicit ConfigDirOf(Vomo::String const& name) : Vomo::EntityOf<T, ConfigDir>(name, kind) {}

    Vomo::Ptr<Config> tunnelConfigIs(TunnelId const& id) override { return typed_.is(self(), id); }
    void tunnelConfigDel(TunnelId const& id) override { typed_.del(self(), id); }
    void tunnelConfigDelAll() override { typed_.delAll(self()); }

    // The typed collection, which changes the base's with it.
    using Typed = Vomo::Children<T, 386, Child, &Child::tunnelId, Hash, &ConfigDirOf::config_>;
    Typed const& typed() const { return typed_; }

protected:
    Typed typed_;

private:
    template <class, class>
    friend struct Vomo::TunnelDirRows;
    T* self() { return static_cast<T*>(this); }
};

// What the status directories of all kinds have alike. T is made from its name.
template <class T, class Child, TunnelType kind, class Hash>
class StatusDirOf : public Vomo::EntityOf<T, StatusDir> {
public:
    using Arguments = std::tuple<Vomo::String>;
    explicit StatusDirOf(Vomo::String const& name) : Vomo::EntityOf<T, StatusDir>(name, kind) {}

protected:
    // The typed collection alone.
    using Typed = Vomo::Children<T, 386, Child, &Child::tunnelId, Hash>;
    Typed typed_;

private:
    friend StatusDir; // which changes both levels
    template <class, class>
    friend struct Vomo::TunnelDirRows;
    T* self() { return static_cast<T*>(this); }
    Vomo::Ptr<Status> isBoth(TunnelId const& id) {
        return typed_.isBoth(self(), id, this->tunnelStatusGen_);
    }
    void delBoth(TunnelId const& id) { typed_.delBoth(self(), id, this->tunnelStatusGen_); }
    void delAllTyped() { typed_.delAll(self()); }
};

Vomo::Ptr<Config> configFactory(TunnelId const& id);
Vomo::Ptr<ConfigDir> configDirFactory(Vomo::String const& name, TunnelType type);
Vomo::Ptr<Status> statusFactory(TunnelId const& id);
Vomo::Ptr<StatusDir> statusDirFactory(Vomo::String const& name, TunnelType type);

} // namespace Multicast::Tunnel

namespace Multicast::Tunnel::TunnelTable {

// A tunnel of the tunnel table (MPLS).
class McastTunnelConfig : public Vomo::EntityOf<McastTunnelConfig, Config> {
public:
    enum Attr : U32 { pmsiVlanAttr = 386 };
    using EntityOf::EntityOf;
    static Vomo::Ptr<McastTunnelConfig> McastTunnelConfigIs(TunnelId const& id) {
        return Vomo::newEntity<McastTunnelConfig>(id);
    }

    Bridging::VlanIdOrNone pmsiVlan() const { return pmsiVlan_; }
    void pmsiVlanIs(Bridging::VlanIdOrNone v) { assign(pmsiVlan_, v, pmsiVlanAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<McastTunnelConfig>;
    Bridging::VlanIdOrNone pmsiVlan_;
    mutable Vomo::NotifieeList notifiees_;
};

class McastTunnelStatus : public Vomo::EntityOf<McastTunnelStatus, Status> {
public:
    enum Attr : U32 { tunnelEncapInfoAttr = 386 };
    using EntityOf::EntityOf;
    static Vomo::Ptr<McastTunnelStatus> McastTunnelStatusIs(TunnelId const& id) {
        return Vomo::newEntity<McastTunnelStatus>(id);
    }

    McastTunnelEncapInfoColl const& tunnelEncapInfo() const { return tunnelEncapInfo_; }
    void tunnelEncapInfoIs(McastTunnelEncapInfoColl const& v) {
        assign(tunnelEncapInfo_, v, tunnelEncapInfoAttr);
    }

private:
    friend EntityOf;
    friend Vomo::Describe<McastTunnelStatus>;
    McastTunnelEncapInfoColl tunnelEncapInfo_;
    mutable Vomo::NotifieeList notifiees_;
};

class McastTunnelConfigDir : public ConfigDirOf<McastTunnelConfigDir, McastTunnelConfig,
                                                TunnelType::mpls, Vomo::SeededHash<0x25208C14>> {
public:
    enum Attr : U32 { mcastTunnelConfigAttr = 386, mountPathAttr };
    using ConfigDirOf::ConfigDirOf;
    static Vomo::Ptr<McastTunnelConfigDir> McastTunnelConfigDirIs(Vomo::String const& name) {
        return Vomo::newEntity<McastTunnelConfigDir>(name);
    }
    static Vomo::String mountPath() { return "routing/multicast/vpn/config"; }

    using VomoMcastTunnelConfig = Typed::Node;
    Vomo::Ptr<McastTunnelConfig> mcastTunnelConfig(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& mcastTunnelConfig() const { return typed_; }
    Vomo::Ptr<McastTunnelConfig> mcastTunnelConfigIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<McastTunnelConfig> mcastTunnelConfigDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void mcastTunnelConfigDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class McastTunnelStatusDir : public StatusDirOf<McastTunnelStatusDir, McastTunnelStatus,
                                                TunnelType::mpls, Vomo::SeededHash<0x3F55C31D>> {
public:
    enum Attr : U32 {
        mcastTunnelStatusAttr = 386,
        setMcastTunnelStatusAttr,
        unsetMcastTunnelStatusAttr,
        unsetAllMcastTunnelStatusAttr,
        mountPathAttr
    };
    using StatusDirOf::StatusDirOf;
    static Vomo::Ptr<McastTunnelStatusDir> McastTunnelStatusDirIs(Vomo::String const& name) {
        return Vomo::newEntity<McastTunnelStatusDir>(name);
    }
    static Vomo::String mountPath() { return "routing/multicast/vpn/status"; }

    using VomoMcastTunnelStatus = Typed::Node;
    Vomo::Ptr<McastTunnelStatus> mcastTunnelStatus(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& mcastTunnelStatus() const { return typed_; }
    Vomo::Ptr<McastTunnelStatus> mcastTunnelStatusIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<McastTunnelStatus> mcastTunnelStatusDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void mcastTunnelStatusDelAll() { typed_.delAll(this); }
    // The same, for the generic interface.
    Vomo::Ptr<McastTunnelStatus> setMcastTunnelStatus(TunnelId const& id) {
        return mcastTunnelStatusIs(id);
    }
    void unsetMcastTunnelStatus(TunnelId const& id) { mcastTunnelStatusDel(id); }
    void unsetAllMcastTunnelStatus() { mcastTunnelStatusDelAll(); }

private:
    friend EntityOf;
    friend Vomo::Describe<McastTunnelStatusDir>;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<McastTunnelConfig> mcastTunnelConfigFactory(TunnelId const& id);
Vomo::Ptr<McastTunnelConfigDir> mcastTunnelConfigDirFactory(Vomo::String const& name);
Vomo::Ptr<McastTunnelStatus> mcastTunnelStatusFactory(TunnelId const& id);
Vomo::Ptr<McastTunnelStatusDir> mcastTunnelStatusDirFactory(Vomo::String const& name);

} // namespace Multicast::Tunnel::TunnelTable
