#include "tests/cairn/Recordings.h"

#include "RouteFile.h"

#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace CairnTest {

using namespace Cairn;

std::string recordingPath(std::string const& name) {
    return CAIRN_TEST_DATA "/" + name;
}

std::string readRecording(std::string const& name) {
    std::ifstream in(recordingPath(name));
    if (!in) throw std::runtime_error("no recording " + name);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> readLines(std::string const& name) {
    std::istringstream in(readRecording(name));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<std::vector<U8>> readDatagrams(std::string const& name) {
    std::vector<std::vector<U8>> datagrams;
    for (auto const& line : readLines(name)) {
        auto& bytes = datagrams.emplace_back();
        for (std::size_t i = 0; i + 1 < line.size(); i += 2)
            bytes.push_back(static_cast<U8>(std::stoul(line.substr(i, 2), nullptr, 16)));
    }
    return datagrams;
}

std::vector<KernelLink> Interfaces::links() const {
    std::vector<KernelLink> links;
    for (auto const& [name, index] : indexes) links.push_back({index, name, 0});
    return links;
}

IpAddress address(std::string const& text) {
    auto const a = parseAddress(text);
    if (!a) throw std::runtime_error("not an address: " + text);
    return *a;
}

std::vector<KernelEvent> readMonitor(std::string const& name, Interfaces& interfaces) {
    std::regex const form(R"(^\[\S+\] (Deleted )?\(([^,]+),([^)]+)\)\s+Iif: (\S+)\s+)"
                          R"((?:Oifs: (.*?)\s+)?State: (\S+) Table: default\s*$)");
    std::vector<KernelEvent> events;
    for (auto const& line : readLines(name)) {
        std::smatch part;
        if (!std::regex_match(line, part, form)) throw std::runtime_error("odd line: " + line);
        KernelEvent event;
        event.kind = part[1].matched ? KernelEvent::Kind::routeGone : KernelEvent::Kind::routeNew;
        event.route.id = {defaultTableV4, address(part[2]), address(part[3])};
        event.route.pending = part[6] == "unresolved";
        if (part[4] != "unresolved") event.route.iif = interfaces[part[4]];
        std::istringstream oifs(part[5]);
        for (std::string oif; oifs >> oif;) event.route.oifs.push_back(interfaces[oif]);
        std::sort(event.route.oifs.begin(), event.route.oifs.end());
        events.push_back(std::move(event));
    }
    return events;
}

std::map<RouteName, NamedRoute> readTruth(std::string const& name) {
    std::map<RouteName, NamedRoute> truth;
    for (auto& route : readRouteFile(recordingPath(name)).routes) truth[route.name] = route;
    return truth;
}

KernelRoute toKernel(NamedRoute const& route, Interfaces& interfaces) {
    KernelRoute result;
    result.id = {defaultTableV4, route.name.source, route.name.group};
    result.iif = route.iif.empty() ? 0 : interfaces[route.iif];
    for (auto const& oif : route.oifs) result.oifs.push_back(interfaces[oif]);
    std::sort(result.oifs.begin(), result.oifs.end());
    return result;
}

} // namespace CairnTest
