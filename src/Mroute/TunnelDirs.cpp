#include "Mroute/TunnelDirs.h"

#include "Mroute/McastVxlanTypes.h"

namespace Multicast::Tunnel {

namespace {

[[noreturn]] void throwNotImplemented(char const* function) {
    Dunlin::fmthrow<Vomo::NoImplementationException>("{} must be implemented by a derived class",
                                                     function);
}

// Calls `act` with the typed directory of `type` that `dir` is. Raises std::bad_cast if it is
// another (B16), and NoImplementationException for a kind without one.
template <class Act>
decltype(auto) dispatch(StatusDir& dir, TunnelType type, char const* function, Act&& act) {
    switch (type) {
    case TunnelType::invalid:
        PLAINASSERT(false, "0 && \"Unknown tunnel type\"");
        break;
    case TunnelType::vxlanMcast:
        return act(dynamic_cast<Vxlan::VxlanMcastTunnelStatusDir&>(dir));
    case TunnelType::vxlanIR:
        return act(dynamic_cast<Vxlan::VxlanMcastHerTunnelStatusDir&>(dir));
    case TunnelType::mpls:
        return act(dynamic_cast<TunnelTable::McastTunnelStatusDir&>(dir));
    case TunnelType::vxlanBum:
        return act(dynamic_cast<Vxlan::VxlanBumTunnelStatusDir&>(dir));
    case TunnelType::vpls:
        break;
    }
    throwNotImplemented(function);
}

// The kinds for which `dispatch` finds a directory.
bool hasTypedStatus(TunnelType type) {
    return type <= TunnelType::vxlanBum && type != TunnelType::vpls;
}

} // namespace

Vomo::Ptr<Config> ConfigDir::tunnelConfigIs(TunnelId const&) {
    throwNotImplemented("tunnelConfigIs");
}
void ConfigDir::tunnelConfigDel(TunnelId const&) {
    throwNotImplemented("tunnelConfigDel");
}
void ConfigDir::tunnelConfigDelAll() {
    throwNotImplemented("tunnelConfigDelAll");
}

Vomo::Ptr<Status> StatusDir::tunnelStatusIs(TunnelId const& id) {
    return dispatch(*this, id.tunnelType(), "tunnelStatusIs",
                    [&](auto& dir) { return Vomo::Ptr<Status>(dir.isBoth(id)); });
}
void StatusDir::tunnelStatusDel(TunnelId const& id) {
    if (!hasTypedStatus(id.tunnelType())) tunnelStatusGenDel(id);
    dispatch(*this, id.tunnelType(), "tunnelStatusDel", [&](auto& dir) { dir.delBoth(id); });
}
void StatusDir::tunnelStatusDelAll() {
    tunnelStatusGenDelAll();
    dispatch(*this, tunnelType_, "tunnelStatusDelAll", [](auto& dir) { dir.delAllTyped(); });
}

Vomo::Ptr<Config> configFactory(TunnelId const& id) {
    return Config::ConfigIs(id);
}
Vomo::Ptr<ConfigDir> configDirFactory(Vomo::String const& name, TunnelType type) {
    return ConfigDir::ConfigDirIs(name, type);
}
Vomo::Ptr<Status> statusFactory(TunnelId const& id) {
    return Status::StatusIs(id);
}
Vomo::Ptr<StatusDir> statusDirFactory(Vomo::String const& name, TunnelType type) {
    return StatusDir::StatusDirIs(name, type);
}

} // namespace Multicast::Tunnel

namespace Multicast::Tunnel::TunnelTable {

Vomo::Ptr<McastTunnelConfig> mcastTunnelConfigFactory(TunnelId const& id) {
    return McastTunnelConfig::McastTunnelConfigIs(id);
}
Vomo::Ptr<McastTunnelConfigDir> mcastTunnelConfigDirFactory(Vomo::String const& name) {
    return McastTunnelConfigDir::McastTunnelConfigDirIs(name);
}
Vomo::Ptr<McastTunnelStatus> mcastTunnelStatusFactory(TunnelId const& id) {
    return McastTunnelStatus::McastTunnelStatusIs(id);
}
Vomo::Ptr<McastTunnelStatusDir> mcastTunnelStatusDirFactory(Vomo::String const& name) {
    return McastTunnelStatusDir::McastTunnelStatusDirIs(name);
}

} // namespace Multicast::Tunnel::TunnelTable
