#include "Mroute/McastVxlanTypes.h"

#include "Mroute/TunnelRows.h"
#include "Vomo/Record.h"

// The rows of an entity T with a list of VLANs.
template <class T, class EntityBase>
struct Vomo::VlanListRows {
    using Base = EntityBase;

protected:
    static consteval Row vlanList() { return collection<&T::vlanList_>("vlanList"); }
    static consteval Row tunnelEncapInfo() {
        return notifying<&T::tunnelEncapInfo_>(T::tunnelEncapInfoAttr, "tunnelEncapInfo");
    }
};

template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanBumTunnelConfig>
    : VlanListRows<Multicast::Vxlan::VxlanBumTunnelConfig, Multicast::Tunnel::Config> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanBumTunnelConfig", wide);
    static constexpr auto attributes = rows({vlanList()});
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanBumTunnelConfigDir>
    : TunnelDirRows<Multicast::Vxlan::VxlanBumTunnelConfigDir, Multicast::Tunnel::ConfigDir> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanBumTunnelConfigDir", wide);
    static constexpr auto attributes = of("vxlanBumTunnelConfig");
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanBumTunnelStatus>
    : VlanListRows<Multicast::Vxlan::VxlanBumTunnelStatus, Multicast::Tunnel::Status> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanBumTunnelStatus", wide);
    static constexpr auto attributes = rows({tunnelEncapInfo(), vlanList()});
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanBumTunnelStatusDir>
    : TunnelDirRows<Multicast::Vxlan::VxlanBumTunnelStatusDir, Multicast::Tunnel::StatusDir> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanBumTunnelStatusDir", wide);
    static constexpr auto attributes = of("vxlanBumTunnelStatus");
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastHerTunnelConfig>
    : VlanListRows<Multicast::Vxlan::VxlanMcastHerTunnelConfig, Multicast::Tunnel::Config> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastHerTunnelConfig", wide);
    static constexpr auto attributes = rows({vlanList()});
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastHerTunnelConfigDir>
    : TunnelDirRows<Multicast::Vxlan::VxlanMcastHerTunnelConfigDir, Multicast::Tunnel::ConfigDir> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastHerTunnelConfigDir", wide);
    static constexpr auto attributes = of("vxlanMcastHerTunnelConfig");
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastHerTunnelStatus>
    : VlanListRows<Multicast::Vxlan::VxlanMcastHerTunnelStatus, Multicast::Tunnel::Status> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastHerTunnelStatus", wide);
    static constexpr auto attributes = rows({tunnelEncapInfo(), vlanList()});
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastHerTunnelStatusDir>
    : TunnelDirRows<Multicast::Vxlan::VxlanMcastHerTunnelStatusDir, Multicast::Tunnel::StatusDir> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastHerTunnelStatusDir", wide);
    static constexpr auto attributes = of("vxlanMcastHerTunnelStatus");
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastTunnelConfig>
    : VlanListRows<Multicast::Vxlan::VxlanMcastTunnelConfig, Multicast::Tunnel::Config> {
    using T = Multicast::Vxlan::VxlanMcastTunnelConfig;
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastTunnelConfig", wide);
    static constexpr auto attributes = rows({
        notifying<&T::srcIp_>(T::srcIpAttr, "srcIp"),
        vlanList(),
        notifying<&T::underlayPvSet_>(T::underlayPvSetAttr, "underlayPvSet"),
    });
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastTunnelConfigDir>
    : TunnelDirRows<Multicast::Vxlan::VxlanMcastTunnelConfigDir, Multicast::Tunnel::ConfigDir> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastTunnelConfigDir", wide);
    static constexpr auto attributes = of("vxlanMcastTunnelConfig");
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastTunnelStatus> {
    using T = Multicast::Vxlan::VxlanMcastTunnelStatus;
    using Base = Multicast::Tunnel::Status;
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastTunnelStatus", wide);
    static constexpr auto attributes = rows({
        collection<&T::tunnelEncapInfo_>("tunnelEncapInfo"),
    });
};
template <>
struct Vomo::Describe<Multicast::Vxlan::VxlanMcastTunnelStatusDir>
    : TunnelDirRows<Multicast::Vxlan::VxlanMcastTunnelStatusDir, Multicast::Tunnel::StatusDir> {
    static constexpr auto type =
        derivedEntity<Base>("Multicast::Vxlan::VxlanMcastTunnelStatusDir", wide);
    static constexpr auto attributes = of("vxlanMcastTunnelStatus");
};

namespace Multicast::Vxlan {

Vomo::Ptr<VxlanMcastTunnelConfig> vxlanMcastTunnelConfigFactory(TunnelId const& id) {
    return VxlanMcastTunnelConfig::VxlanMcastTunnelConfigIs(id);
}
Vomo::Ptr<VxlanMcastTunnelConfigDir> vxlanMcastTunnelConfigDirFactory(Vomo::String const& name) {
    return VxlanMcastTunnelConfigDir::VxlanMcastTunnelConfigDirIs(name);
}
Vomo::Ptr<VxlanMcastTunnelStatus> vxlanMcastTunnelStatusFactory(TunnelId const& id) {
    return VxlanMcastTunnelStatus::VxlanMcastTunnelStatusIs(id);
}
Vomo::Ptr<VxlanMcastTunnelStatusDir> vxlanMcastTunnelStatusDirFactory(Vomo::String const& name) {
    return VxlanMcastTunnelStatusDir::VxlanMcastTunnelStatusDirIs(name);
}
Vomo::Ptr<VxlanMcastHerTunnelConfig> vxlanMcastHerTunnelConfigFactory(TunnelId const& id) {
    return VxlanMcastHerTunnelConfig::VxlanMcastHerTunnelConfigIs(id);
}
Vomo::Ptr<VxlanMcastHerTunnelConfigDir>
vxlanMcastHerTunnelConfigDirFactory(Vomo::String const& name) {
    return VxlanMcastHerTunnelConfigDir::VxlanMcastHerTunnelConfigDirIs(name);
}
Vomo::Ptr<VxlanMcastHerTunnelStatus> vxlanMcastHerTunnelStatusFactory(TunnelId const& id) {
    return VxlanMcastHerTunnelStatus::VxlanMcastHerTunnelStatusIs(id);
}
Vomo::Ptr<VxlanMcastHerTunnelStatusDir>
vxlanMcastHerTunnelStatusDirFactory(Vomo::String const& name) {
    return VxlanMcastHerTunnelStatusDir::VxlanMcastHerTunnelStatusDirIs(name);
}
Vomo::Ptr<VxlanBumTunnelConfig> vxlanBumTunnelConfigFactory(TunnelId const& id) {
    return VxlanBumTunnelConfig::VxlanBumTunnelConfigIs(id);
}
Vomo::Ptr<VxlanBumTunnelConfigDir> vxlanBumTunnelConfigDirFactory(Vomo::String const& name) {
    return VxlanBumTunnelConfigDir::VxlanBumTunnelConfigDirIs(name);
}
Vomo::Ptr<VxlanBumTunnelStatus> vxlanBumTunnelStatusFactory(TunnelId const& id) {
    return VxlanBumTunnelStatus::VxlanBumTunnelStatusIs(id);
}
Vomo::Ptr<VxlanBumTunnelStatusDir> vxlanBumTunnelStatusDirFactory(Vomo::String const& name) {
    return VxlanBumTunnelStatusDir::VxlanBumTunnelStatusDirIs(name);
}

} // namespace Multicast::Vxlan

namespace Vomo {
constinit VomoModule const _McastVxlanTypes_639bdfcf9008dd06_vomoModule =
    ModuleRecord<McastVxlanTypesModule>::value;
static ModuleRegistration const registration(McastVxlanTypesModule::record);
} // namespace Vomo
