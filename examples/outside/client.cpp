// A client of the agent: hears of each route, those that are there first, and of the agent's end.
#include <Dunlin/TaskSchedulerRoot.h>
#include <Mroute/FibTables.h>
#include <VomoBrisk/Mount.h>
#include <iostream>
using namespace Brisk::Multicast::Fib;

struct Printer : Vomo::PtrInterface::NotifieeConst {
    Vomo::Ptr<Status> const status = statusFactory("agent");
    void onAttribute(Vomo::AttributeId id, void const* key) override {
        if (id != Status::routeAttr) return;
        auto const& changed = *static_cast<IpGenRouteKey const*>(key);
        auto const route = status->route(changed); // the default one once it is gone
        std::cout << (route ? "route " : "gone ") << changed.pretty() << " by " << route.iif()
                  << std::endl;
    }
};

int main(int argc, char** argv) {
    if (argc > 1) Dunlin::Util::baseDirectoryIs(argv[1]);
    Printer printer;
    printer.notifierIs(printer.status.ptr());
    Brisk::MapDescriptor settings;
    settings.notifyDuringSync = true;
    VomoBrisk::Mount const mount(
        printer.status, Status::mountPath(Kelpie::ipv4(), L3::VrfName("default"), "agent"),
        TableInfo::mfibMountInfo(VomoBrisk::VomoBriskType::valueShadow), settings);
    Dunlin::schedulerRootDunlin->run();
}
