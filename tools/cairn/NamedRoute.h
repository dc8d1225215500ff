// A route as readers and files speak of it: VRF and interfaces by name. What any source of routes
// (the kernel, a file, a churn) hands to whoever writes the tables.
#pragma once

#include "IpAddress.h"

#include <compare>
#include <string>
#include <tuple>
#include <vector>

namespace Cairn {

// The family is the group's.
struct RouteName {
    std::string vrf = "default";
    IpAddress source; // all zero: (*,G)
    IpAddress group;
    auto operator<=>(RouteName const&) const = default;
    bool operator==(RouteName const&) const = default;
};

struct RouteNameHash {
    std::size_t operator()(RouteName const& n) const {
        IpAddressHash const hash;
        return (hash(n.source) * 0x9e3779b97f4a7c15u + hash(n.group)) ^
               std::hash<std::string>{}(n.vrf);
    }
};

struct NamedRoute {
    RouteName name;
    std::string iif;               // empty: none
    std::vector<std::string> oifs; // ascending, each once
    bool operator==(NamedRoute const&) const = default;
};

// PIM's register interface: "pimreg" and "pim6reg", with the number of the table behind it.
inline bool isRegisterInterface(std::string_view name) {
    return name.starts_with("pimreg") || name.starts_with("pim6reg");
}

struct RouteChange {
    enum class Kind : U8 {
        present, // the route is as told in full
        held,    // gone, but kept for a while: it stays as it was and is not valid
        gone,
    };
    Kind kind = Kind::gone;
    NamedRoute route; // of a route held or gone only the name counts
};

} // namespace Cairn
