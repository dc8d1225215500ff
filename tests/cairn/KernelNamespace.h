// A network namespace with eight interfaces (veth pairs v0..v7) and a static multicast routing
// daemon (smcroute) in it: a live kernel cache for tests. Needs root and the programs ip, smcrouted
// and smcroutectl; everything is taken down at the end.
#pragma once

#include "NamedRoute.h"

#include <future>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace CairnTest {

// Runs a program with arguments, with files for its streams if named; the exit code
// (128 + signal).
int runProgram(std::vector<std::string> const& arguments, std::string const& outputFile = {},
               std::string const& inputFile = {}, std::string const& errorFile = {});
// The same without waiting; returns the process id.
int startProgram(std::vector<std::string> const& arguments, std::string const& outputFile = {},
                 std::string const& inputFile = {}, std::string const& errorFile = {});
int waitProgram(int pid);
bool programExists(std::string const& name);

class KernelNamespace {
public:
    // Why a namespace cannot be had here, or an empty text.
    static std::string missing();

    // Feeds `routes` routes of each family. Raises std::runtime_error if anything fails.
    explicit KernelNamespace(unsigned routes);
    ~KernelNamespace();
    KernelNamespace(KernelNamespace const&) = delete;
    KernelNamespace& operator=(KernelNamespace const&) = delete;

    std::string const& name() const { return name_; }
    std::string directory() const { return directory_; }
    // `ip -n NAME ...`.
    int ip(std::vector<std::string> arguments, std::string const& outputFile = {}) const;
    // Adds, changes and removes routes at random.
    void change(unsigned changes);
    // Does the same to other routes at the speed of the kernel, past the daemon: of each family
    // alternately, from a thread of its own. Several may follow each other, not overlap.
    std::future<void> burst(unsigned changes);
    // The resolved routes of all tables, as `ip -j mroute show table all` tells them.
    std::map<Cairn::RouteName, Cairn::NamedRoute> routes() const;
    void killDaemon();
    void startDaemon();

private:
    std::string path(std::string const& file) const { return directory_ + "/" + file; }
    struct Route {
        std::string source, group;
        bool present = true;
    };
    std::string name_;
    std::string directory_;
    std::vector<Route> pool_;
    std::mt19937 random_{1};
    int daemon_ = 0;
};

} // namespace CairnTest
