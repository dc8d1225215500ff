// An agent: it owns the route tables of one VRF, and routes 232.1.1.1 from 10.1.2.3 in by eth1.
#include <Dunlin/TaskSchedulerRoot.h>
#include <Mroute/FibTables.h>
#include <VomoBrisk/Mount.h>

using namespace Brisk::Multicast::Fib;
using Kelpie::IpAddr, Kelpie::Prefix;

int main(int argc, char** argv) {
    if (argc > 1) Dunlin::Util::baseDirectoryIs(argv[1]); // else CAIRN_BASE or /dev/shm/cairn
    auto const status = statusFactory("agent");
    VomoBrisk::Mount const mount(status,
                                 Status::mountPath(Kelpie::ipv4(), L3::VrfName("default"), "agent"),
                                 TableInfo::mfibMountInfo(VomoBrisk::VomoBriskType::writer));

    Route route({Prefix(IpAddr::fromWord(0x0a010203), 32),   // from 10.1.2.3
                 Prefix(IpAddr::fromWord(0xe8010101), 32)}); // to 232.1.1.1
    route.iifIs(Kelpie::IntfId("eth1"));
    route.validIs(true);
    status->routeIs(route);

    Dunlin::schedulerRootDunlin->run(); // until a signal; the table outlives the agent
}
