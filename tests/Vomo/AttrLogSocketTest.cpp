// The attribute log between two processes: a mirror follows through stops and restarts of its
// source.
#include "Dunlin/TaskSchedulerRoot.h"
#include "Mroute/McastGroup.h"
#include "Vomo/NboAttrLogSocket.h"
#include "tests/support/FewDescriptors.h"

#include <csignal>
#include <fstream>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace Multicast::Group;
using namespace Vomo::NboAttrLog;

MrouteLib::PortVlan member(U32 n) {
    MrouteLib::PortVlan pv;
    pv.outLifIs(MrouteLib::OutLif(n));
    return pv;
}

// A source in a process of its own: `requests` requests of `members` members each; one more member
// at each SIGUSR1, and at each SIGUSR2 all of them change, the odd times to true.
pid_t serve(std::string const& path, U16 requests, U32 members) {
    pid_t const child = ::fork();
    if (child != 0) return child;
    ::alarm(60);
    Dunlin::TaskSchedulerRoot loop;
    auto const config = configFactory("source");
    for (U16 r = 0; r < requests; ++r)
        for (U32 m = 0; m < members; ++m) config->requestIs({19, r})->portVlanIs(member(m), true);
    SocketServer const server(loop, path, config);
    static std::atomic<U32> extra{0}, storms{0};
    ::signal(SIGUSR1, [](int) { ++extra; });
    ::signal(SIGUSR2, [](int) { ++storms; });
    for (U32 done = 0, stormsDone = 0;;) {
        loop.runOnce(0.01);
        for (; done < extra; ++done)
            config->requestIs({19, 0})->portVlanIs(member(1000 + done), true);
        for (; stormsDone < storms; ++stormsDone)
            for (U16 r = 0; r < requests; ++r) {
                auto const request = config->request({19, r});
                for (U32 m = 0; m < members; ++m)
                    request->portVlanIs(member(m), stormsDone % 2 == 0);
                request->featureFlagIs(stormsDone + 1);
            }
    }
}

TEST(AttrLogSocket, AMirrorFollowsThroughStopsAndRestarts) {
    std::string const path = fmt::format("/tmp/attrlog-{}.socket", ::getpid());
    Dunlin::TaskSchedulerRoot loop;
    auto const mirror = configFactory("mirror");
    SocketClient const client(loop, path, mirror, 0.02); // there is no server yet
    auto const until = [&](auto&& holds) {
        for (double const end = loop.now() + 20; loop.now() < end; loop.runOnce(0.05))
            if (holds()) return true;
        return false;
    };
    auto const reaches = [&](U32 requests, U32 membersOfFirst) {
        return until([&] {
            auto const first = mirror->request({19, 0});
            return mirror->request().members() == requests && first &&
                   first->portVlan().members() == membersOfFirst;
        });
    };
    pid_t source = serve(path, 50, 200);
    EXPECT_TRUE(reaches(50, 200));
    auto const kept = mirror->request({19, 0});
    ::kill(source, SIGUSR1);
    EXPECT_TRUE(reaches(50, 201));
    ::kill(source, SIGSTOP); // nothing comes, nothing is lost
    for (int i = 0; i < 10; ++i) loop.runOnce(0.01);
    ::kill(source, SIGUSR1);
    ::kill(source, SIGCONT);
    EXPECT_TRUE(reaches(50, 202));
    // The mirror takes nothing while every member changes again and again: far more than fits the
    // socket and the queue. What it finds afterwards is the last state.
    for (int i = 0; i < 5; ++i, ::usleep(50000)) ::kill(source, SIGUSR2);
    EXPECT_TRUE(until([&] {
        auto const last = mirror->request({19, 49});
        return last->featureFlag() == 5 && last->portVlan(member(199));
    }));
    EXPECT_TRUE(reaches(50, 202));
    ::kill(source, SIGKILL);
    ::waitpid(source, nullptr, 0);
    source = serve(path, 20, 10); // takes over the socket that was left
    EXPECT_TRUE(reaches(20, 10));
    EXPECT_EQ(mirror->request({19, 0}).ptr(), kept.ptr());
    EXPECT_EQ(client.connections(), 2U);
    ::kill(source, SIGKILL);
    ::waitpid(source, nullptr, 0);
    ::unlink(path.c_str());
}

// The server has no descriptor left for a client, and another client none for itself: both wait, and
// nobody spins.
TEST(AttrLogSocket, WhoHasNoDescriptorWaits) {
    if (Support::FewDescriptors::impossible) GTEST_SKIP() << Support::FewDescriptors::impossible;
    std::string const path = fmt::format("/tmp/attrlog-full-{}.socket", ::getpid());
    Dunlin::TaskSchedulerRoot loop;
    SocketServer const server(loop, path, configFactory("source"));
    int const other = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(::connect(other, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    std::optional<Support::FewDescriptors> few(static_cast<rlim_t>(other) + 1);
    SocketClient const client(loop, path, configFactory("mirror"), 0.1);
    int turns = 0;
    for (double const end = loop.now() + 0.5; loop.now() < end; loop.runOnce(0.05)) ++turns;
    EXPECT_LT(turns, 100);
    EXPECT_EQ(server.clients(), 0U);
    EXPECT_FALSE(client.connected());
    few.reset();
    for (double const end = loop.now() + 20; server.clients() < 2 && loop.now() < end;)
        loop.runOnce(0.05);
    EXPECT_EQ(server.clients(), 2U);
    EXPECT_TRUE(client.connected());
    ::close(other);
}

TEST(AttrLogSocket, AFileThatIsNoSocketStays) {
    std::string const path = fmt::format("/tmp/attrlog-file-{}", ::getpid());
    std::ofstream(path) << "kept";
    Dunlin::TaskSchedulerRoot loop;
    EXPECT_THROW(SocketServer(loop, path, configFactory("source")),
                 Dunlin::InvalidInitializeException);
    std::string text;
    std::ifstream(path) >> text;
    EXPECT_EQ(text, "kept");
    ::unlink(path.c_str());
}

// Server and client in one loop; each of them ends from within a callback of its own.
TEST(AttrLogSocket, EndsFromWithinItsCallbacks) {
    struct Heard : Vomo::PtrInterface::NotifieeConst {
        Heard(Config* c, std::function<void()> f) : then(std::move(f)) { notifierIs(c); }
        void onAttribute(U32, void const*) override { then(); }
        std::function<void()> then;
    };
    std::string const path = fmt::format("/tmp/attrlog-ends-{}.socket", ::getpid());
    enum { clientInTree, clientWhenSynced, serverInTree, both, count };
    for (int where = 0; where < count; ++where) {
        SCOPED_TRACE(where);
        Dunlin::TaskSchedulerRoot loop;
        auto const source = configFactory("source"), mirror = configFactory("mirror");
        for (U16 i = 0; i < 100; ++i) source->requestIs({19, i});
        auto server = std::make_unique<SocketServer>(loop, path, source);
        auto client = std::make_unique<SocketClient>(loop, path, mirror);
        // Another connection of the same group.
        auto const other = configFactory("other");
        SocketClient const bystander(loop, path, other, 0.02);
        auto const until = [&](auto&& holds) {
            for (double const end = loop.now() + 20; loop.now() < end; loop.runOnce(0.05))
                if (holds()) return true;
            return false;
        };
        int calls = 0;
        if (where == clientWhenSynced) client->onSyncedIs([&] { client.reset(); });
        Heard const atMirror(mirror.ptr(), [&] {
            if (where == clientInTree && ++calls == 50) client.reset();
        });
        if (where < serverInTree) {
            ASSERT_TRUE(until([&] { return client == nullptr && bystander.synced(); }));
            EXPECT_EQ(mirror->request().members(), where == clientInTree ? 50U : 100U);
            ASSERT_TRUE(until([&] { return server->clients() == 1; })); // the other one goes on
        } else {
            ASSERT_TRUE(until([&] { return client->synced() && bystander.synced(); }));
            Heard const atSource(source.ptr(), [&] {
                server.reset();
                if (where == both) client.reset();
            });
            mirror->requestIs({20, 1});
            mirror->requestIs({20, 2});
            ASSERT_TRUE(until([&] { return server == nullptr && !bystander.connected(); }));
            EXPECT_TRUE(source->request({20, 1}));
            EXPECT_FALSE(source->request({20, 2})); // did not come to be applied
            EXPECT_NE(::access(path.c_str(), F_OK), 0);
        }
    }
}

} // namespace
