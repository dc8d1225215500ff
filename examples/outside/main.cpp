// One process writes a multicast route into a shared table, another one finds it there.
#include <Mroute/Tables.h>

#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

using Table = Mroute::RouteTable;
using Kelpie::IpAddr, Kelpie::Prefix;

static Table::Key const key(Prefix(IpAddr::fromWord(0x0a010203), 32),  // 10.1.2.3
                            Prefix(IpAddr::fromWord(0xe8010101), 32)); // 232.1.1.1

static int read() {
    auto trace = Dunlin::Platform::getDebugHandler("example", false);
    Table::Reader reader(*trace, "example/route", {}, nullptr);
    if (!reader.initialize("start")) return 1;
    bool found = false;
    Table::Value route;
    reader.lookup(key, found, &route); // lock-free; the writer may go on meanwhile
    if (found)
        std::printf("%s from %s\n", route.key().pretty().c_str(),
                    route.iif().stringValue().c_str());
    return found ? 0 : 2;
}

int main(int argc, char** argv) {
    if (argc > 1) Dunlin::Util::baseDirectoryIs(argv[1]); // else CAIRN_BASE or /dev/shm/cairn
    auto trace = Dunlin::Platform::getDebugHandler("example", false);
    Table::Writer writer(*trace, "example/route", Brisk::MapDescriptor(12000), {}, Table::typeName,
                         {});
    writer.initialize("start");

    Table::Value route(key);
    route.iifIs(Kelpie::IntfId("eth1"));
    route.validIs(true);
    writer.write(route, true);

    std::fflush(stdout);
    if (fork() == 0)
        _exit([] {
            int const code = read();
            std::fflush(stdout);
            return code;
        }());
    int status = 0;
    wait(&status);
    writer.cleanup(); // leave it out, and the table outlives this process
    return status == 0 ? 0 : 1;
}
