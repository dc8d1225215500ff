#include "Mroute/McastVplsPwTypes.h"

#include "Dunlin/Trace.h"
#include "Lumenlog/Ring.h"
#include "Mroute/TunnelRows.h"
#include "Vomo/Record.h"

template <>
struct Vomo::Describe<MrouteLib::VplsPwEncapConfig> {
    using Base = Multicast::Tunnel::Config;
    static constexpr auto type = derivedEntity<Base>("MrouteLib::VplsPwEncapConfig");
    static constexpr auto attributes = noRows();
};
template <>
struct Vomo::Describe<MrouteLib::VplsPwEncapConfigDir>
    : TunnelDirRows<MrouteLib::VplsPwEncapConfigDir, Multicast::Tunnel::ConfigDir> {
    static constexpr auto type = derivedEntity<Base>("MrouteLib::VplsPwEncapConfigDir", wide);
    static constexpr auto attributes = of("vplsPwEncapConfig");
};
template <>
struct Vomo::Describe<MrouteLib::VplsPwEncapInfo> {
    using T = MrouteLib::VplsPwEncapInfo;
    static constexpr auto type = value("MrouteLib::VplsPwEncapInfo");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        ctor<&T::hwFecId_>(3, "hwFecId"),
        ctor<&T::l2IntfId_>(4, "l2IntfId"),
    });
};
template <>
struct Vomo::Describe<MrouteLib::VplsPwEncapStatus> {
    using T = MrouteLib::VplsPwEncapStatus;
    using Base = Multicast::Tunnel::Status;
    static constexpr auto type = derivedEntity<Base>("MrouteLib::VplsPwEncapStatus");
    static constexpr auto attributes = rows({
        notifying<&T::encapInfo_>(T::encapInfoAttr, "encapInfo"),
    });
};
template <>
struct Vomo::Describe<MrouteLib::VplsPwEncapStatusDir>
    : TunnelDirRows<MrouteLib::VplsPwEncapStatusDir, Multicast::Tunnel::StatusDir> {
    static constexpr auto type = derivedEntity<Base>("MrouteLib::VplsPwEncapStatusDir", wide);
    static constexpr auto attributes = of("encapStatus");
};

namespace MrouteLib {

namespace {
// A line of `function`, which is the caller, about a pseudowire.
void trace(char const* function, char const* what, Kelpie::IntfId intf) {
    static auto const& handler = *Dunlin::Platform::getDebugHandler("McastVplsPwTypes", false);
    std::string const line = fmt::format("{} {} encapConfig for {}", function, what,
                                         std::string_view(intf.stringValue()));
    if (handler.on(7)) [[unlikely]]
        Dunlin::traceFormatted(handler, 7, function, "{}", line);
    Lumenlog::add(line);
}
} // namespace

Vomo::Ptr<Multicast::Tunnel::Config> VplsPwEncapConfigDir::tunnelConfigIs(TunnelId const& id) {
    trace(__func__, "create", id.vpls());
    return vplsPwEncapConfigIs(id);
}
void VplsPwEncapConfigDir::tunnelConfigDel(TunnelId const& id) {
    trace(__func__, "delete", id.vpls());
    vplsPwEncapConfigDel(id);
}

Vomo::Ptr<VplsPwEncapConfig> vplsPwEncapConfigFactory(TunnelId const& id) {
    return VplsPwEncapConfig::VplsPwEncapConfigIs(id);
}
Vomo::Ptr<VplsPwEncapConfigDir> vplsPwEncapConfigDirFactory(Vomo::String const& name) {
    return VplsPwEncapConfigDir::VplsPwEncapConfigDirIs(name);
}
Vomo::Ptr<VplsPwEncapStatus> vplsPwEncapStatusFactory(TunnelId const& id) {
    return VplsPwEncapStatus::VplsPwEncapStatusIs(id);
}
Vomo::Ptr<VplsPwEncapStatusDir> vplsPwEncapStatusDirFactory(Vomo::String const& name) {
    return VplsPwEncapStatusDir::VplsPwEncapStatusDirIs(name);
}

} // namespace MrouteLib

namespace Vomo {
constinit decltype(McastVplsPwTypesModule::frames) McastVplsPwTypesModule::frames =
    ModuleRecord<McastVplsPwTypesModule>::frames;
constinit VomoModule const _McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule =
    ModuleRecord<McastVplsPwTypesModule>::value;
static ModuleRegistration const registration(McastVplsPwTypesModule::record);
} // namespace Vomo
