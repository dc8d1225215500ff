#include "Mroute/TunnelConfigIteratorConst.h"

#include "Dunlin/Trace.h"

namespace Multicast::Tunnel {

TunnelConfigIteratorConst::TunnelConfigIteratorConst(Vomo::Ptr<ConfigDir> directory,
                                                     TunnelType tunnelType)
    : directory_(std::move(directory)), tunnelType_(tunnelType) {
    PLAINASSERT(directory_, "directory_");
    if (tunnelType > TunnelType::vxlanBum)
        Vomo::throwRangeException(
            fmt::format("no directory of tunnels has the type {}", static_cast<U32>(tunnelType)));
}

template <class Self, class Visit>
Vomo::Ptr<Config> TunnelConfigIteratorConst::selected(Self& self, Visit&& visit) {
    switch (self.tunnelType_) {
    case TunnelType::vxlanMcast:
        return visit(self.vxlanMcast_);
    case TunnelType::vxlanIR:
        return visit(self.vxlanIR_);
    case TunnelType::vxlanBum:
        return visit(self.vxlanBum_);
    case TunnelType::mpls:
        return visit(self.mpls_);
    case TunnelType::vpls:
        return visit(self.vpls_);
    case TunnelType::invalid:
        break;
    }
    return {};
}

Vomo::Ptr<Config> TunnelConfigIteratorConst::config() const {
    return selected(*this, [](auto const& walk) -> Vomo::Ptr<Config> {
        if (!walk.at || !*walk.at) return {};
        using Node = typename std::remove_cvref_t<decltype(walk)>::Directory::Typed::Node;
        return static_cast<Node const*>(walk.at->currNodeMaybeStale())->value();
    });
}

void TunnelConfigIteratorConst::updateConfigIterator() {
    if (tunnelType_ == TunnelType::invalid)
        Dunlin::fmthrow<Vomo::NoImplementationException>("Case not Implemented");
    Vomo::Ptr<Config> const now = selected(*this, [this](auto& walk) {
        if (walk.at && *walk.at) {
            ++*walk.at;
        } else {
            using Dir = typename std::remove_cvref_t<decltype(walk)>::Directory;
            walk.at.emplace(&dynamic_cast<Dir&>(*directory_).typed());
        }
        return config();
    });
    walkDone_ |= !now;
    static auto const& handler = *Dunlin::Platform::getDebugHandler("TunnelConfigIterator", false);
    bool const isVpls = tunnelType_ == TunnelType::vpls;
    if (now)
        FMTRACE(handler, 8, "{}Tunnel Key= {}", isVpls ? "Vpls " : "",
                std::string_view(now->tunnelId().stringValue()));
    else
        FMTRACE(handler, 8, "Done{}", isVpls ? " Vpls" : "");
}

} // namespace Multicast::Tunnel
