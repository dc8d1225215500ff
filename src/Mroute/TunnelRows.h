// The rows that the modules of tunnels share: those of the base entities, and of a directory. Only
// the modules' own sources include this.
#pragma once

#include "Mroute/TunnelDirs.h"
#include "Vomo/EntityFrame.h"

template <>
struct Vomo::Describe<Multicast::Tunnel::Config> {
    using T = Multicast::Tunnel::Config;
    static constexpr auto type = entity("Multicast::Tunnel::Config");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::tunnelIdAttr, "tunnelId"),
        notifying<&T::activeVersion_>(T::activeVersionAttr, "activeVersion"),
        notifying<&T::markedForDeletion_>(T::markedForDeletionAttr, "markedForDeletion"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::ConfigDir> {
    using T = Multicast::Tunnel::ConfigDir;
    static constexpr auto type = entity("Multicast::Tunnel::ConfigDir", wide | abstractMutators);
    static constexpr auto attributes = rows({
        ctor<&T::tunnelType_>(T::tunnelTypeAttr, "tunnelType"),
        collection<&T::config_>("config", "tunnelId"),
        makesEntity<&T::tunnelConfigIs>(T::tunnelConfigIsAttr, "tunnelConfigIs", {"tunnelId"}),
        mutating<&T::tunnelConfigDel>(T::tunnelConfigDelAttr, "tunnelConfigDel", {"tunnelId"}),
        mutating<&T::tunnelConfigDelAll>(T::tunnelConfigDelAllAttr, "tunnelConfigDelAll"),
        givesEntity<&T::tunnelConfig>(T::tunnelConfigAttr, "tunnelConfig", {"tunnelId"}),
        function<&T::tunnelConfigHas>(T::tunnelConfigHasAttr, "tunnelConfigHas", {"tunnelId"}),
        function<&T::tunnelConfigs>(T::tunnelConfigsAttr, "tunnelConfigs"),
        notifying<&T::waitForDeletion_>(T::waitForDeletionAttr, "waitForDeletion"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::Status> {
    using T = Multicast::Tunnel::Status;
    static constexpr auto type = entity("Multicast::Tunnel::Status");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::tunnelIdAttr, "tunnelId"),
        notifying<&T::version_>(T::versionAttr, "version"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::StatusDir> {
    using T = Multicast::Tunnel::StatusDir;
    static constexpr auto type = entity("Multicast::Tunnel::StatusDir", wide);
    static constexpr auto attributes = rows({
        ctor<&T::tunnelType_>(T::tunnelTypeAttr, "tunnelType"),
        collection<&T::tunnelStatusGen_>("tunnelStatusGen", "tunnelId"),
        makesEntity<&T::tunnelStatusIs>(T::tunnelStatusIsAttr, "tunnelStatusIs", {"tunnelId"}),
        mutating<&T::tunnelStatusDel>(T::tunnelStatusDelAttr, "tunnelStatusDel", {"tunnelId"}),
        mutating<&T::tunnelStatusDelAll>(T::tunnelStatusDelAllAttr, "tunnelStatusDelAll"),
        givesEntity<&T::tunnelStatus>(T::tunnelStatusAttr, "tunnelStatus", {"tunnelId"}),
        function<&T::tunnelStatusHas>(T::tunnelStatusHasAttr, "tunnelStatusHas", {"tunnelId"}),
        function<&T::tunnelStatuss>(T::tunnelStatussAttr, "tunnelStatuss"),
    });
};

// The rows of the directory T, which derives from DirBase: its typed collection and its mount path.
template <class T, class DirBase>
struct Vomo::TunnelDirRows {
    using Base = DirBase;

protected:
    static consteval Row typed(char const* name) {
        return collection<&T::typed_>(name, "tunnelId");
    }
    static consteval Row mountPath() {
        return constant<&T::mountPath>(T::mountPathAttr, "mountPath");
    }
    static consteval auto of(char const* name) { return rows({typed(name), mountPath()}); }
};
