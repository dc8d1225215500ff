#include "tests/cairn/KernelNamespace.h"

#include "RouteFile.h"
#include "SharedMem/FileUtil.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/mroute.h>
#include <linux/mroute6.h>
#include <sched.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace CairnTest {

using namespace Cairn;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

constexpr unsigned numInterfaces = 8;

void must(int exitCode, std::string const& what) {
    if (exitCode != 0) throw std::runtime_error(fmt::format("{}: exit code {}", what, exitCode));
}

} // namespace

int startProgram(std::vector<std::string> const& arguments, std::string const& outputFile,
                 std::string const& inputFile, std::string const& errorFile) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    if (!inputFile.empty())
        posix_spawn_file_actions_addopen(&files, 0, inputFile.c_str(), O_RDONLY, 0);
    for (auto const& [fd, file] : {std::pair(1, outputFile), std::pair(2, errorFile)})
        if (!file.empty())
            posix_spawn_file_actions_addopen(&files, fd, file.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                             0644);
    std::vector<char*> argv;
    for (auto const& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    // A program leaves ignored what is ignored at its start, and the tests may run in the background
    // of a shell that ignores SIGINT there.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    for (int const number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&usual, number);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    int const error = ::posix_spawnp(&pid, argv[0], &files, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error) throw std::runtime_error(fmt::format("{}: {}", arguments[0], std::strerror(error)));
    return pid;
}

int waitProgram(int pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int runProgram(std::vector<std::string> const& arguments, std::string const& outputFile,
               std::string const& inputFile, std::string const& errorFile) {
    return waitProgram(startProgram(arguments, outputFile, inputFile, errorFile));
}

bool programExists(std::string const& name) {
    std::istringstream path(std::getenv("PATH") ? std::getenv("PATH") : "");
    for (std::string directory; std::getline(path, directory, ':');)
        if (::access((directory + "/" + name).c_str(), X_OK) == 0) return true;
    return false;
}

std::string KernelNamespace::missing() {
    if (::geteuid() != 0) return "needs root, to make a network namespace";
    for (char const* program : {"ip", "smcrouted", "smcroutectl"})
        if (!programExists(program)) return fmt::format("needs the program {}", program);
    std::string const probe = fmt::format("cairn-probe-{}", ::getpid());
    if (runProgram({"ip", "netns", "add", probe}, "/dev/null") != 0)
        return "needs network namespaces, which this system does not allow";
    // A chroot, or a container without the right to mount.
    bool const enters =
        runProgram({"ip", "netns", "exec", probe, "true"}, "/dev/null", "", "/dev/null") == 0;
    runProgram({"ip", "netns", "del", probe});
    return enters ? "" : "needs to enter network namespaces, which this system does not allow";
}

KernelNamespace::KernelNamespace(unsigned routes) {
    static int count = 0;
    name_ = fmt::format("cairn-test-{}-{}", ::getpid(), count++);
    directory_ = fmt::format("{}/{}", fs::temp_directory_path().string(), name_);
    fs::create_directories(directory_);
    must(runProgram({"ip", "netns", "add", name_}), "ip netns add");
    for (unsigned i = 0; i < numInterfaces; i += 2)
        must(ip({"link", "add", fmt::format("v{}", i), "type", "veth", "peer", "name",
                 fmt::format("v{}", i + 1)}),
             "ip link add");
    for (unsigned i = 0; i < numInterfaces; ++i)
        must(ip({"link", "set", fmt::format("v{}", i), "up"}), "ip link set");
    for (unsigned i = 0; i < routes; ++i) {
        pool_.push_back({"10.0.0.1", fmt::format("239.1.{}.{}", i / 250, i % 250)});
        pool_.push_back({"2001:db8::1", fmt::format("ff0e::{:x}", i + 1)});
    }
    std::ofstream conf(path("smcroute.conf"));
    for (unsigned i = 0; i < numInterfaces; ++i) conf << "phyint v" << i << " enable\n";
    for (auto const& route : pool_)
        conf << "mroute from v0 source " << route.source << " group " << route.group << " to v"
             << 1 + random_() % 3 << " v" << 4 + random_() % 4 << "\n";
    conf.close();
    startDaemon();
}

KernelNamespace::~KernelNamespace() {
    killDaemon();
    runProgram({"ip", "netns", "del", name_});
    fs::remove_all(directory_);
}

void KernelNamespace::startDaemon() {
    daemon_ = startProgram({"ip", "netns", "exec", name_, "smcrouted", "-n", "-N", "-l", "err",
                            "-f", path("smcroute.conf"), "-u", path("smcroute.sock"), "-P",
                            path("smcroute.pid")},
                           "/dev/null");
    std::size_t known = 0;
    for (int wait = 0; wait < 200; ++wait) {
        std::this_thread::sleep_for(50ms);
        auto const now = routes().size();
        if (now >= pool_.size() && now == known) return;
        known = now;
    }
    throw std::runtime_error(
        fmt::format("smcrouted set {} of {} routes in 10 s", known, pool_.size()));
}

void KernelNamespace::killDaemon() {
    if (daemon_ <= 0) return;
    ::kill(daemon_, SIGKILL);
    waitProgram(daemon_);
    daemon_ = 0;
}

int KernelNamespace::ip(std::vector<std::string> arguments, std::string const& outputFile) const {
    std::vector<std::string> all{"ip", "-n", name_};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return runProgram(all, outputFile);
}

void KernelNamespace::change(unsigned changes) {
    std::ofstream batch(path("batch"));
    for (unsigned i = 0; i < changes; ++i) {
        auto& route = pool_[random_() % pool_.size()];
        // The daemon adds an interface to a route it has, and makes one that it has not.
        if (route.present && random_() % 2 == 0) {
            batch << "remove v0 " << route.source << " " << route.group << "\n";
            route.present = false;
        } else {
            batch << "add v0 " << route.source << " " << route.group << " v" << 1 + random_() % 7
                  << "\n";
            route.present = true;
        }
    }
    batch.close();
    must(runProgram({"smcroutectl", "-u", path("smcroute.sock"), "-b"}, "/dev/null", path("batch")),
         "smcroutectl");
}

namespace {

// A socket that sets routes of one family in a kernel table that another process owns.
class RouteSetter {
public:
    explicit RouteSetter(bool v4)
        : v4_(v4), fd_(::socket(v4 ? AF_INET : AF_INET6, SOCK_RAW | SOCK_CLOEXEC,
                                v4 ? int{IPPROTO_IGMP} : int{IPPROTO_ICMPV6})) {
        must(fd_ ? 0 : errno, "raw socket");
    }
    // The route of number `n`; from the first interface to those whose bit is set in `oifs`, to
    // none: away with it. False if the kernel refused.
    bool set(unsigned n, unsigned oifs) { return v4_ ? setV4(n, oifs) : setV6(n, oifs); }

private:
    bool setV4(unsigned n, unsigned oifs) {
        mfcctl route{};
        route.mfcc_origin.s_addr = htonl(0x0a000002);
        route.mfcc_mcastgrp.s_addr = htonl(0xef090000 + n);
        for (unsigned i = 0; i < numInterfaces; ++i) route.mfcc_ttls[i] = oifs >> i & 1;
        return ::setsockopt(fd_.get(), IPPROTO_IP, oifs ? MRT_ADD_MFC : MRT_DEL_MFC, &route,
                            sizeof route) == 0;
    }
    bool setV6(unsigned n, unsigned oifs) {
        mf6cctl route{};
        route.mf6cc_origin.sin6_addr = {
            {{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}}};
        route.mf6cc_mcastgrp.sin6_addr = {{{0xff, 0x0e, 0, 9}}};
        route.mf6cc_mcastgrp.sin6_addr.s6_addr[14] = static_cast<U8>(n >> 8);
        route.mf6cc_mcastgrp.sin6_addr.s6_addr[15] = static_cast<U8>(n);
        for (unsigned i = 0; i < numInterfaces; ++i)
            if (oifs >> i & 1) IF_SET(i, &route.mf6cc_ifset);
        return ::setsockopt(fd_.get(), IPPROTO_IPV6, oifs ? MRT6_ADD_MFC : MRT6_DEL_MFC, &route,
                            sizeof route) == 0;
    }
    bool v4_;
    Mem::Fd fd_;
};

} // namespace

std::future<void> KernelNamespace::burst(unsigned changes) {
    return std::async(std::launch::async, [this, changes] {
        Mem::Fd const inside(::open(("/run/netns/" + name_).c_str(), O_RDONLY | O_CLOEXEC));
        must(::setns(inside.get(), CLONE_NEWNET) == 0 ? 0 : errno, "setns");
        RouteSetter v4(true), v6(false);
        for (unsigned i = 0; i < changes; ++i) {
            // Of a thousand routes a third goes when it is met; the rest is new or changes.
            auto const n = static_cast<unsigned>(random_() % 1000);
            bool const goes = random_() % 3 == 0;
            auto const oifs = goes ? 0 : static_cast<unsigned>(2 + 2 * (random_() % 127));
            if (!(i % 2 ? v4 : v6).set(n, oifs) && !goes)
                throw std::runtime_error(
                    fmt::format("a route was refused: {}", std::strerror(errno)));
        }
    });
}

std::map<RouteName, NamedRoute> KernelNamespace::routes() const {
    std::map<RouteName, NamedRoute> all;
    for (char const* family : {"-4", "-6"}) {
        auto const file = path(std::string("ip") + family);
        must(ip({family, "-j", "mroute", "show", "table", "all"}, file), "ip mroute show");
        for (auto& route : readRouteFile(file).routes) all[route.name] = route;
    }
    return all;
}

} // namespace CairnTest
