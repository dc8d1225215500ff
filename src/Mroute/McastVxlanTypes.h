// Tunnels over VXLAN, in three kinds: through a multicast underlay (`VxlanMcast`), by head-end
// replication (`VxlanMcastHer`), and for broadcast, unknown unicast and multicast (`VxlanBum`). What
// the kinds have alike is a template with the names' owner as its argument.
#pragma once

#include "Mroute/PortVlanSet.h"
#include "Mroute/TunnelDirs.h"

namespace Multicast::Vxlan {
class VxlanBumTunnelConfig;
class VxlanBumTunnelConfigDir;
class VxlanBumTunnelStatus;
class VxlanBumTunnelStatusDir;
class VxlanMcastHerTunnelConfig;
class VxlanMcastHerTunnelConfigDir;
class VxlanMcastHerTunnelStatus;
class VxlanMcastHerTunnelStatusDir;
class VxlanMcastTunnelConfig;
class VxlanMcastTunnelConfigDir;
class VxlanMcastTunnelStatus;
class VxlanMcastTunnelStatusDir;
} // namespace Multicast::Vxlan

namespace Vomo {
extern "C" VomoModule const _McastVxlanTypes_639bdfcf9008dd06_vomoModule;
struct McastVxlanTypesModule
    : TypeList<
          Multicast::Vxlan::VxlanBumTunnelConfig, Multicast::Vxlan::VxlanBumTunnelConfigDir,
          Multicast::Vxlan::VxlanBumTunnelStatus, Multicast::Vxlan::VxlanBumTunnelStatusDir,
          Multicast::Vxlan::VxlanMcastHerTunnelConfig,
          Multicast::Vxlan::VxlanMcastHerTunnelConfigDir,
          Multicast::Vxlan::VxlanMcastHerTunnelStatus,
          Multicast::Vxlan::VxlanMcastHerTunnelStatusDir, Multicast::Vxlan::VxlanMcastTunnelConfig,
          Multicast::Vxlan::VxlanMcastTunnelConfigDir, Multicast::Vxlan::VxlanMcastTunnelStatus,
          Multicast::Vxlan::VxlanMcastTunnelStatusDir> {
    static constexpr VomoModule const* record = &_McastVxlanTypes_639bdfcf9008dd06_vomoModule;
};
template <TypeOf<McastVxlanTypesModule> T>
struct IdOf<T> : PlaceIn<T, McastVxlanTypesModule> {};
// The rows of a T with a list of VLANs; Mroute/McastVxlanTypes.cpp.
template <class T, class EntityBase>
struct VlanListRows;
} // namespace Vomo

namespace Multicast::Vxlan {

using Tunnel::TunnelId;
using Tunnel::TunnelType;

// An entity T with the VLANs that a tunnel carries, as its attribute of that number.
template <class T, class Base, U32 attr, class Hash>
class WithVlanList : public Vomo::EntityOf<T, Base> {
public:
    using Vomo::EntityOf<T, Base>::EntityOf;

    using VlanListSet = Vomo::ValueSet<T, attr, Bridging::VlanId, Hash>;
    using VomoVlanList = typename VlanListSet::Node;
    bool vlanList(Bridging::VlanId vlan) const { return vlanList_.has(vlan); }
    VlanListSet const& vlanList() const { return vlanList_; }
    void vlanListIs(Bridging::VlanId vlan) { vlanList_.is(self(), vlan); }
    // Whether it was there.
    bool vlanListDel(Bridging::VlanId vlan) { return vlanList_.del(self(), vlan); }
    void vlanListDelAll() { vlanList_.delAll(self()); }

protected:
    T* self() { return static_cast<T*>(this); }
    VlanListSet vlanList_;

private:
    template <class, class>
    friend struct Vomo::VlanListRows;
};

// The status of a tunnel with one encapsulation.
template <class T, class Hash>
class EncapStatus : public WithVlanList<T, Tunnel::Status, 387, Hash> {
public:
    using WithVlanList<T, Tunnel::Status, 387, Hash>::WithVlanList;

    // Opaque here.
    U32 tunnelEncapInfo() const { return tunnelEncapInfo_; }
    void tunnelEncapInfoIs(U32 v) { this->assign(tunnelEncapInfo_, v, T::tunnelEncapInfoAttr); }
    U32 tunnelEncapInfoInc(U32 n) {
        return this->increase(tunnelEncapInfo_, n, T::tunnelEncapInfoAttr);
    }
    U32 tunnelEncapInfoDec(U32 n) {
        return this->decrease(tunnelEncapInfo_, n, T::tunnelEncapInfoAttr);
    }

protected:
    U32 tunnelEncapInfo_ = 0;

private:
    template <class, class>
    friend struct Vomo::VlanListRows;
};

class VxlanMcastTunnelConfig
    : public WithVlanList<VxlanMcastTunnelConfig, Tunnel::Config, 387, Vomo::LegacyHash> {
public:
    enum Attr : U32 { srcIpAttr = 386, vlanListAttr, underlayPvSetAttr };
    using WithVlanList::WithVlanList;
    static Vomo::Ptr<VxlanMcastTunnelConfig> VxlanMcastTunnelConfigIs(TunnelId const& id) {
        return Vomo::newEntity<VxlanMcastTunnelConfig>(id);
    }

    Kelpie::IpGenAddr const& srcIp() const { return srcIp_; }
    void srcIpIs(Kelpie::IpGenAddr const& v) { assign(srcIp_, v, srcIpAttr); }
    // The copies that carry the tunnel.
    MrouteLib::PortVlanSet const& underlayPvSet() const { return underlayPvSet_; }
    void underlayPvSetIs(MrouteLib::PortVlanSet const& v) {
        assign(underlayPvSet_, v, underlayPvSetAttr);
    }

private:
    friend EntityOf;
    friend Vomo::Describe<VxlanMcastTunnelConfig>;
    Kelpie::IpGenAddr srcIp_;
    MrouteLib::PortVlanSet underlayPvSet_;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanMcastTunnelStatus : public Vomo::EntityOf<VxlanMcastTunnelStatus, Tunnel::Status> {
public:
    enum Attr : U32 { tunnelEncapInfoAttr = 386 };
    using EntityOf::EntityOf;
    static Vomo::Ptr<VxlanMcastTunnelStatus> VxlanMcastTunnelStatusIs(TunnelId const& id) {
        return Vomo::newEntity<VxlanMcastTunnelStatus>(id);
    }

    // The encapsulations: opaque here.
    using TunnelEncapInfoSet = Vomo::ValueSet<VxlanMcastTunnelStatus, tunnelEncapInfoAttr, U32,
                                              Vomo::SeededHash<0xF2E555EC>>;
    using VomoTunnelEncapInfo = TunnelEncapInfoSet::Node;
    bool tunnelEncapInfo(U32 v) const { return tunnelEncapInfo_.has(v); }
    TunnelEncapInfoSet const& tunnelEncapInfo() const { return tunnelEncapInfo_; }
    void tunnelEncapInfoIs(U32 v) { tunnelEncapInfo_.is(this, v); }
    bool tunnelEncapInfoDel(U32 v) { return tunnelEncapInfo_.del(this, v); }
    void tunnelEncapInfoDelAll() { tunnelEncapInfo_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<VxlanMcastTunnelStatus>;
    TunnelEncapInfoSet tunnelEncapInfo_;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanMcastHerTunnelConfig
    : public WithVlanList<VxlanMcastHerTunnelConfig, Tunnel::Config, 386, Vomo::LegacyHash> {
public:
    using WithVlanList::WithVlanList;
    static Vomo::Ptr<VxlanMcastHerTunnelConfig> VxlanMcastHerTunnelConfigIs(TunnelId const& id) {
        return Vomo::newEntity<VxlanMcastHerTunnelConfig>(id);
    }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanMcastHerTunnelStatus : public EncapStatus<VxlanMcastHerTunnelStatus, Vomo::LegacyHash> {
public:
    enum Attr : U32 { tunnelEncapInfoAttr = 386, vlanListAttr };
    using EncapStatus::EncapStatus;
    static Vomo::Ptr<VxlanMcastHerTunnelStatus> VxlanMcastHerTunnelStatusIs(TunnelId const& id) {
        return Vomo::newEntity<VxlanMcastHerTunnelStatus>(id);
    }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanBumTunnelConfig
    : public WithVlanList<VxlanBumTunnelConfig, Tunnel::Config, 386, Vomo::SeededHash<0xAEBCBE8A>> {
public:
    using WithVlanList::WithVlanList;
    static Vomo::Ptr<VxlanBumTunnelConfig> VxlanBumTunnelConfigIs(TunnelId const& id) {
        return Vomo::newEntity<VxlanBumTunnelConfig>(id);
    }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanBumTunnelStatus
    : public EncapStatus<VxlanBumTunnelStatus, Vomo::SeededHash<0xA4B2EB7A>> {
public:
    enum Attr : U32 { tunnelEncapInfoAttr = 386, vlanListAttr };
    using EncapStatus::EncapStatus;
    static Vomo::Ptr<VxlanBumTunnelStatus> VxlanBumTunnelStatusIs(TunnelId const& id) {
        return Vomo::newEntity<VxlanBumTunnelStatus>(id);
    }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanMcastTunnelConfigDir
    : public Tunnel::ConfigDirOf<VxlanMcastTunnelConfigDir, VxlanMcastTunnelConfig,
                                 TunnelType::vxlanMcast, Vomo::SeededHash<0xCE5D98C5>> {
public:
    enum Attr : U32 { vxlanMcastTunnelConfigAttr = 386, mountPathAttr };
    using ConfigDirOf::ConfigDirOf;
    static Vomo::Ptr<VxlanMcastTunnelConfigDir>
    VxlanMcastTunnelConfigDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VxlanMcastTunnelConfigDir>(name);
    }
    static Vomo::String mountPath() { return "vxlan/multicast/tunnel/config"; }

    using VomoVxlanMcastTunnelConfig = Typed::Node;
    Vomo::Ptr<VxlanMcastTunnelConfig> vxlanMcastTunnelConfig(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& vxlanMcastTunnelConfig() const { return typed_; }
    Vomo::Ptr<VxlanMcastTunnelConfig> vxlanMcastTunnelConfigIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<VxlanMcastTunnelConfig> vxlanMcastTunnelConfigDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void vxlanMcastTunnelConfigDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanMcastTunnelStatusDir
    : public Tunnel::StatusDirOf<VxlanMcastTunnelStatusDir, VxlanMcastTunnelStatus,
                                 TunnelType::vxlanMcast, Vomo::SeededHash<0xDB51356F>> {
public:
    enum Attr : U32 { vxlanMcastTunnelStatusAttr = 386, mountPathAttr };
    using StatusDirOf::StatusDirOf;
    static Vomo::Ptr<VxlanMcastTunnelStatusDir>
    VxlanMcastTunnelStatusDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VxlanMcastTunnelStatusDir>(name);
    }
    static Vomo::String mountPath() { return "vxlan/multicast/tunnel/status"; }

    using VomoVxlanMcastTunnelStatus = Typed::Node;
    Vomo::Ptr<VxlanMcastTunnelStatus> vxlanMcastTunnelStatus(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& vxlanMcastTunnelStatus() const { return typed_; }
    Vomo::Ptr<VxlanMcastTunnelStatus> vxlanMcastTunnelStatusIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<VxlanMcastTunnelStatus> vxlanMcastTunnelStatusDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void vxlanMcastTunnelStatusDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanMcastHerTunnelConfigDir
    : public Tunnel::ConfigDirOf<VxlanMcastHerTunnelConfigDir, VxlanMcastHerTunnelConfig,
                                 TunnelType::vxlanIR, Vomo::SeededHash<0x4C06D666>> {
public:
    enum Attr : U32 { vxlanMcastHerTunnelConfigAttr = 386, mountPathAttr };
    using ConfigDirOf::ConfigDirOf;
    static Vomo::Ptr<VxlanMcastHerTunnelConfigDir>
    VxlanMcastHerTunnelConfigDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VxlanMcastHerTunnelConfigDir>(name);
    }
    static Vomo::String mountPath() { return "vxlan/multicast/herTunnel/config"; }

    using VomoVxlanMcastHerTunnelConfig = Typed::Node;
    Vomo::Ptr<VxlanMcastHerTunnelConfig> vxlanMcastHerTunnelConfig(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& vxlanMcastHerTunnelConfig() const { return typed_; }
    Vomo::Ptr<VxlanMcastHerTunnelConfig> vxlanMcastHerTunnelConfigIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<VxlanMcastHerTunnelConfig> vxlanMcastHerTunnelConfigDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void vxlanMcastHerTunnelConfigDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanMcastHerTunnelStatusDir
    : public Tunnel::StatusDirOf<VxlanMcastHerTunnelStatusDir, VxlanMcastHerTunnelStatus,
                                 TunnelType::vxlanIR, Vomo::SeededHash<0x3C15576B>> {
public:
    enum Attr : U32 { vxlanMcastHerTunnelStatusAttr = 386, mountPathAttr };
    using StatusDirOf::StatusDirOf;
    static Vomo::Ptr<VxlanMcastHerTunnelStatusDir>
    VxlanMcastHerTunnelStatusDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VxlanMcastHerTunnelStatusDir>(name);
    }
    static Vomo::String mountPath() { return "vxlan/multicast/herTunnel/status"; }

    using VomoVxlanMcastHerTunnelStatus = Typed::Node;
    Vomo::Ptr<VxlanMcastHerTunnelStatus> vxlanMcastHerTunnelStatus(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& vxlanMcastHerTunnelStatus() const { return typed_; }
    Vomo::Ptr<VxlanMcastHerTunnelStatus> vxlanMcastHerTunnelStatusIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<VxlanMcastHerTunnelStatus> vxlanMcastHerTunnelStatusDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void vxlanMcastHerTunnelStatusDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanBumTunnelConfigDir
    : public Tunnel::ConfigDirOf<VxlanBumTunnelConfigDir, VxlanBumTunnelConfig,
                                 TunnelType::vxlanBum, Vomo::SeededHash<0xE6296D37>> {
public:
    enum Attr : U32 { vxlanBumTunnelConfigAttr = 386, mountPathAttr };
    using ConfigDirOf::ConfigDirOf;
    static Vomo::Ptr<VxlanBumTunnelConfigDir> VxlanBumTunnelConfigDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VxlanBumTunnelConfigDir>(name);
    }
    static Vomo::String mountPath() { return "vxlan/multicast/bumTunnel/config"; }

    using VomoVxlanBumTunnelConfig = Typed::Node;
    Vomo::Ptr<VxlanBumTunnelConfig> vxlanBumTunnelConfig(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& vxlanBumTunnelConfig() const { return typed_; }
    Vomo::Ptr<VxlanBumTunnelConfig> vxlanBumTunnelConfigIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<VxlanBumTunnelConfig> vxlanBumTunnelConfigDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void vxlanBumTunnelConfigDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

class VxlanBumTunnelStatusDir
    : public Tunnel::StatusDirOf<VxlanBumTunnelStatusDir, VxlanBumTunnelStatus,
                                 TunnelType::vxlanBum, Vomo::SeededHash<0x3FF8FA8E>> {
public:
    enum Attr : U32 { vxlanBumTunnelStatusAttr = 386, mountPathAttr };
    using StatusDirOf::StatusDirOf;
    static Vomo::Ptr<VxlanBumTunnelStatusDir> VxlanBumTunnelStatusDirIs(Vomo::String const& name) {
        return Vomo::newEntity<VxlanBumTunnelStatusDir>(name);
    }
    static Vomo::String mountPath() { return "vxlan/multicast/bumTunnel/status"; }

    using VomoVxlanBumTunnelStatus = Typed::Node;
    Vomo::Ptr<VxlanBumTunnelStatus> vxlanBumTunnelStatus(TunnelId const& id) const {
        return typed_.at(id);
    }
    Typed const& vxlanBumTunnelStatus() const { return typed_; }
    Vomo::Ptr<VxlanBumTunnelStatus> vxlanBumTunnelStatusIs(TunnelId const& id) {
        return typed_.is(this, id);
    }
    Vomo::Ptr<VxlanBumTunnelStatus> vxlanBumTunnelStatusDel(TunnelId const& id) {
        return typed_.del(this, id);
    }
    void vxlanBumTunnelStatusDelAll() { typed_.delAll(this); }

private:
    friend EntityOf;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<VxlanMcastTunnelConfig> vxlanMcastTunnelConfigFactory(TunnelId const& id);
Vomo::Ptr<VxlanMcastTunnelConfigDir> vxlanMcastTunnelConfigDirFactory(Vomo::String const& name);
Vomo::Ptr<VxlanMcastTunnelStatus> vxlanMcastTunnelStatusFactory(TunnelId const& id);
Vomo::Ptr<VxlanMcastTunnelStatusDir> vxlanMcastTunnelStatusDirFactory(Vomo::String const& name);
Vomo::Ptr<VxlanMcastHerTunnelConfig> vxlanMcastHerTunnelConfigFactory(TunnelId const& id);
Vomo::Ptr<VxlanMcastHerTunnelConfigDir>
vxlanMcastHerTunnelConfigDirFactory(Vomo::String const& name);
Vomo::Ptr<VxlanMcastHerTunnelStatus> vxlanMcastHerTunnelStatusFactory(TunnelId const& id);
Vomo::Ptr<VxlanMcastHerTunnelStatusDir>
vxlanMcastHerTunnelStatusDirFactory(Vomo::String const& name);
Vomo::Ptr<VxlanBumTunnelConfig> vxlanBumTunnelConfigFactory(TunnelId const& id);
Vomo::Ptr<VxlanBumTunnelConfigDir> vxlanBumTunnelConfigDirFactory(Vomo::String const& name);
Vomo::Ptr<VxlanBumTunnelStatus> vxlanBumTunnelStatusFactory(TunnelId const& id);
Vomo::Ptr<VxlanBumTunnelStatusDir> vxlanBumTunnelStatusDirFactory(Vomo::String const& name);

} // namespace Multicast::Vxlan
