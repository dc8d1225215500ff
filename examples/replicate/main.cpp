// Two processes, one tree of entities. `replicate serve SOCKET` changes a Multicast::Group::Config
// with requests and their ports; `replicate follow SOCKET` holds a mirror of it and prints what it
// hears. Stop either and start it again: the mirror catches up.
#include "Dunlin/TaskSchedulerRoot.h"
#include "Mroute/McastGroup.h"
#include "Vomo/NboAttrLogSocket.h"

#include <fmt/format.h>

#include <cstdio>
#include <random>
#include <string_view>

namespace {

using namespace Multicast::Group;

// Makes, changes and removes requests, ten times a second.
struct Changer {
    Dunlin::TaskSchedulerRoot& loop;
    Vomo::Ptr<Config> config;
    std::mt19937 random{1};

    void operator()() {
        GroupKey const key(static_cast<U16>(McastGroupKind::mcastGroupKindMirror),
                           static_cast<U16>(random() % 4));
        if (random() % 8 == 0) {
            config->requestDel(key);
        } else {
            auto const request = config->requestIs(key);
            MrouteLib::PortVlan pv;
            pv.portIs(Kelpie::IntfId(fmt::format("Ethernet{}", random() % 8 + 1)));
            pv.vlanIdIs(Bridging::VlanId(static_cast<U16>(random() % 4094 + 1)));
            request->portVlanIs(pv, true);
            request->requestIdInc(1);
        }
        loop.timerAdd(0.1, [this] { (*this)(); });
    }
};

// Prints each change of the mirror.
struct Printer : Vomo::PtrInterface::NotifieeConst {
    Vomo::Ptr<Config> config;
    void onAttribute(U32, void const* key) override {
        auto const& group = *static_cast<GroupKey const*>(key);
        fmt::print("request {} {}: {} requests\n", group,
                   config->request(group) ? "is there" : "has gone", config->request().members());
        std::fflush(stdout);
    }
};

} // namespace

int main(int argc, char** argv) {
    std::string_view const role = argc == 3 ? argv[1] : "";
    if (role != "serve" && role != "follow") {
        fmt::print(stderr, "usage: replicate serve|follow SOCKET\n");
        return 2;
    }
    try {
        Dunlin::TaskSchedulerRoot loop;
        auto const config = configFactory("replicated");
        if (role == "serve") {
            Vomo::NboAttrLog::SocketServer const server(loop, argv[2], config, true);
            Changer changer{loop, config};
            changer();
            loop.run();
        } else {
            Printer printer;
            printer.config = config;
            printer.notifierIs(config.ptr());
            Vomo::NboAttrLog::SocketClient client(loop, argv[2], config);
            client.onSyncedIs([&] {
                fmt::print("synced: {} requests\n", config->request().members());
                std::fflush(stdout);
            });
            loop.run();
        }
    } catch (std::exception const& e) {
        fmt::print(stderr, "replicate: {}\n", e.what());
        return 1;
    }
}
