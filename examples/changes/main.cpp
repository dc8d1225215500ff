// Prints each change of the routes in a table, as it happens, from a program with a poll loop of its
// own: the table's loop is one descriptor to poll and one call that runs what is ready.
//
//   changes [TABLE]      e.g. routing/multicast/routestatus/default/kernel/route
//
// Started before the table's writer, it waits; the writer may go and come back.
#include "Dunlin/TaskSchedulerRoot.h"
#include "Mroute/Tables.h"

#include <cstdio>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

int main(int argc, char** argv) {
    using Table = Mroute::RouteTable;
    std::string const name =
        argc > 1 ? argv[1] : "routing/multicast/routestatus/default/kernel/route";

    auto const say = [](std::string const& what) {
        std::puts(what.c_str());
        std::fflush(stdout);
    };
    // One object for the whole life of the program, whatever becomes of the table.
    Brisk::BriskMap<Table::Ops> routes(name, Table::typeName);
    routes.valueNotifyIs([&](Table::Value const& route) {
        say(fmt::format("changed {} version {}", route.key().pretty(), route.version()));
    });
    routes.deleteNotifyIs(
        [&](Table::Key const& key) { say(fmt::format("deleted {}", key.pretty())); });
    routes.mountStatusNotifyIs([&] {
        char const* const status[] = {"no writer", "reading", "synchronised", "writer has gone"};
        say(fmt::format("{}, {} routes", status[static_cast<int>(routes.mountStatus())],
                        routes.members()));
    });
    Brisk::MapDescriptor shadow;
    shadow.type = Brisk::BriskType::valueShadow;
    shadow.notifyDuringSync = true; // the routes that are there are told as changes too
    routes.init(shadow);

    // Our own loop: it ends with the input, and runs the tables when they have something to do.
    pollfd waiting[] = {{Dunlin::schedulerRootDunlin->pollFd(), POLLIN, 0},
                        {STDIN_FILENO, POLLIN, 0}};
    while (poll(waiting, 2, -1) > 0) {
        if (waiting[0].revents) Dunlin::schedulerRootDunlin->runReady();
        char line[256];
        if (waiting[1].revents && read(STDIN_FILENO, line, sizeof line) <= 0) return 0;
    }
    return 1;
}
