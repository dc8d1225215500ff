#include "tests/cairn/ToolRunner.h"

#include "tests/cairn/KernelNamespace.h"
#include "tests/cairn/Recordings.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace CairnTest {

using namespace Cairn;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

std::string contentsOf(std::string const& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

nlohmann::json ToolResult::json() const {
    auto all = nlohmann::json::parse(out);
    if (!all.is_array()) throw std::runtime_error("not an array: " + out);
    return all;
}

ToolRunner::ToolRunner() {
    static int count = 0;
    // Tables belong in memory; where there is no /dev/shm any directory serves.
    std::string const root = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    work_ = fmt::format("{}/cairn-tool-test-{}-{}", root, ::getpid(), count++);
    base_ = work_ + "/base";
    fs::create_directories(base_);
}

ToolRunner::~ToolRunner() {
    for (int const pid : std::vector(running_)) {
        signal(pid, SIGKILL);
        wait(pid);
    }
    fs::remove_all(work_);
}

std::string ToolRunner::file(std::string const& name, std::string const& contents) const {
    std::ofstream(path(name)) << contents;
    return path(name);
}

std::vector<std::string> ToolRunner::command(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {CAIRN_TOOL, "--base", base_});
    return arguments;
}

ToolResult ToolRunner::run(std::vector<std::string> arguments, std::string const& inputFile) const {
    return finish(command(std::move(arguments)), inputFile);
}

bool ToolRunner::canRunAsOther() {
    if (::geteuid() != 0) return true;
    return programExists("setpriv") && runProgram({"setpriv", "--reuid=65534", "--regid=65534",
                                                   "--clear-groups", CAIRN_TOOL, "--version"},
                                                  "/dev/null", {}, "/dev/null") == 0;
}

ToolResult ToolRunner::runAsOther(std::vector<std::string> arguments) const {
    auto all = command(std::move(arguments));
    if (::geteuid() == 0)
        all.insert(all.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    return finish(all, {});
}

ToolResult ToolRunner::finish(std::vector<std::string> const& command,
                              std::string const& inputFile) const {
    static int count = 0;
    auto const out = path(fmt::format("out-{}", count));
    auto const err = path(fmt::format("err-{}", count++));
    ToolResult result;
    result.exitCode = waitProgram(startProgram(command, out, inputFile, err));
    result.out = contentsOf(out);
    result.err = contentsOf(err);
    fs::remove(out);
    fs::remove(err);
    return result;
}

int ToolRunner::start(std::vector<std::string> arguments, std::string const& outputFile,
                      std::string const& inputFile) {
    running_.push_back(
        startProgram(command(std::move(arguments)), path(outputFile), inputFile, path("err")));
    return running_.back();
}

void ToolRunner::signal(int pid, int number) const {
    ::kill(pid, number);
}

int ToolRunner::wait(int pid) {
    std::erase(running_, pid);
    return waitProgram(pid);
}

std::map<RouteName, NamedRoute> ToolRunner::shown() const {
    std::map<RouteName, NamedRoute> routes;
    for (auto const& object : run({"-j", "show"}).json()) {
        NamedRoute route;
        route.name.vrf = object["vrf"];
        route.name.group = address(object["group"]);
        std::string const source = object["source"];
        route.name.source =
            source == "*" ? unspecifiedAddress(route.name.group.af()) : address(source);
        route.iif = object["iif"];
        route.oifs = object["oifs"].get<std::vector<std::string>>();
        routes[route.name] = route;
    }
    return routes;
}

bool ToolRunner::shows(std::map<RouteName, NamedRoute> const& routes) const {
    for (int i = 0; i < 100; ++i) {
        if (run({"ls"}).out.find("/route ") != std::string::npos && shown() == routes) return true;
        std::this_thread::sleep_for(100ms);
    }
    return false;
}

} // namespace CairnTest
