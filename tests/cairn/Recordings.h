// The recordings under tests/cairn/data, read as what the mirror takes.
#pragma once

#include "KernelRoute.h"
#include "NamedRoute.h"

#include <map>
#include <string>
#include <vector>

namespace CairnTest {

std::string recordingPath(std::string const& name);
std::string readRecording(std::string const& name);
std::vector<std::string> readLines(std::string const& name);
// A datagram a line, in hexadecimal.
std::vector<std::vector<U8>> readDatagrams(std::string const& name);

// Gives each interface name an index, as the kernel would.
struct Interfaces {
    std::map<std::string, U32> indexes;
    U32 operator[](std::string const& name) {
        return indexes.try_emplace(name, static_cast<U32>(indexes.size() + 1)).first->second;
    }
    std::vector<Cairn::KernelLink> links() const;
};

// The stream of an `ip monitor mroute` recording.
std::vector<Cairn::KernelEvent> readMonitor(std::string const& name, Interfaces& interfaces);
// The resolved routes of an `ip -j mroute show` recording, by name.
std::map<Cairn::RouteName, Cairn::NamedRoute> readTruth(std::string const& name);
Cairn::KernelRoute toKernel(Cairn::NamedRoute const& route, Interfaces& interfaces);

Cairn::IpAddress address(std::string const& text);

} // namespace CairnTest
