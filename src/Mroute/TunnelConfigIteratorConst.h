// A walk over the configurations of a directory of tunnels, whatever its kind.
#pragma once

#include "Mroute/McastVplsPwTypes.h"
#include "Mroute/McastVxlanTypes.h"

#include <optional>

namespace Multicast::Tunnel {

// Before its first member until the first `updateConfigIterator`. The directory may change under the
// walk.
class TunnelConfigIteratorConst {
public:
    // Raises RangeException for a number that is no kind: a walk over that would have no end (B38).
    TunnelConfigIteratorConst(Vomo::Ptr<ConfigDir> directory, TunnelType tunnelType);
    TunnelConfigIteratorConst(TunnelConfigIteratorConst const&) = delete;
    TunnelConfigIteratorConst& operator=(TunnelConfigIteratorConst const&) = delete;

    // Goes to the first member, or to the next one; behind the last, to the first again. Raises
    // NoImplementationException for an invalid kind, and std::bad_cast if the directory is of
    // another kind.
    void updateConfigIterator();
    // An update has found that the walk has ended. Stays true when it begins again.
    bool walkDone() const { return walkDone_; }
    // The member, also when it has left the directory; null at the end and before the first update.
    Vomo::Ptr<Config> config() const;
    explicit operator bool() const { return bool(config()); }

    Vomo::Ptr<ConfigDir> const& directory() const { return directory_; }
    TunnelType tunnelType() const { return tunnelType_; }

private:
    // On no member until the first update.
    template <class Dir>
    struct Walk {
        using Directory = Dir;
        std::optional<typename Dir::Typed::IteratorConst> at;
    };
    // Calls `visit` with the walk of the kind; null for an invalid one.
    template <class Self, class Visit>
    static Vomo::Ptr<Config> selected(Self& self, Visit&& visit);

    Vomo::Ptr<ConfigDir> directory_;
    Walk<Vxlan::VxlanMcastTunnelConfigDir> vxlanMcast_;
    Walk<Vxlan::VxlanMcastHerTunnelConfigDir> vxlanIR_;
    Walk<Vxlan::VxlanBumTunnelConfigDir> vxlanBum_;
    Walk<TunnelTable::McastTunnelConfigDir> mpls_;
    Walk<MrouteLib::VplsPwEncapConfigDir> vpls_;
    TunnelType tunnelType_;
    bool walkDone_ = false;
};

} // namespace Multicast::Tunnel
