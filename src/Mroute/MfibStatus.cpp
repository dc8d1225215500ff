#include "Mroute/MfibStatus.h"

#include "Cell/Path.h"
#include "Mroute/MountPath.h"

namespace Routing::Multicast::Fib {

Vomo::String Status::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/status");
}
Vomo::String ReadyStatus::mountPath(Kelpie::AddressFamily af, Vomo::String const& name) {
    // The path of the sparse-mode agent has no name segment.
    Vomo::String const below = name == "sparsemode" ? "" : name + "/";
    return Cell::path(pathOf(af, "multicast/fibready/") + below + "status", 0);
}
Vomo::String VrfEnabledStatus::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/fibenabled/status");
}
Vomo::String SparseModeStatus::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/sparsemode/status");
}
Vomo::String MbrIntf::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/mbrinterface");
}

Vomo::Ptr<Status> statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}
Vomo::Ptr<ReadyStatus> readyStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<ReadyStatus>(name);
}
Vomo::Ptr<VrfEnabledStatus> vrfEnabledStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<VrfEnabledStatus>(name);
}
Vomo::Ptr<BidirStatus> bidirStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<BidirStatus>(name);
}
Vomo::Ptr<SparseModeStatus> sparseModeStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<SparseModeStatus>(name);
}
Vomo::Ptr<MbrIntf> mbrIntfFactory(Vomo::String const& name) {
    return Vomo::newEntity<MbrIntf>(name);
}
Vomo::Ptr<CounterStatusCtl> counterStatusCtlFactory(Vomo::String const& name) {
    return Vomo::newEntity<CounterStatusCtl>(name);
}

} // namespace Routing::Multicast::Fib

namespace Routing::Multicast {

Vomo::String Pim::Status::mountPath(Kelpie::AddressFamily af) {
    return Fib::pathOf(af, "multicast/pim/global/status");
}
Vomo::Ptr<Pim::Status> Pim::statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}
Vomo::String Vxlan::Status::mountPath(Kelpie::AddressFamily af) {
    return Fib::pathOf(af, "multicast/vxlan/status");
}
Vomo::Ptr<Vxlan::Status> Vxlan::statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}

} // namespace Routing::Multicast
