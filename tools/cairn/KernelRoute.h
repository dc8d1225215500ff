// What the kernel tells of its multicast forwarding cache, as plain data: no netlink, no tables.
// Interfaces stand by their index; names are joined later, since a name may change under a route.
#pragma once

#include "IpAddress.h"

#include <compare>
#include <string>
#include <vector>

namespace Cairn {

// The kernel's default multicast tables (linux/mroute.h, linux/mroute6.h): 253 for IPv4, 254 for
// IPv6.
inline constexpr U32 defaultTableV4 = 253;
inline constexpr U32 defaultTableV6 = 254;

// Identity of a route in the kernel; the family is the group's.
struct RouteId {
    U32 table = 0;
    IpAddress source; // all zero: (*,G)
    IpAddress group;
    auto operator<=>(RouteId const&) const = default;
    bool operator==(RouteId const&) const = default;
};

struct RouteIdHash {
    std::size_t operator()(RouteId const& id) const {
        IpAddressHash const hash;
        return (hash(id.source) * 0x9e3779b97f4a7c15u + hash(id.group)) ^ id.table;
    }
};

struct KernelRoute {
    RouteId id;
    U32 iif = 0;           // interface index; 0: the incoming interface is gone
    std::vector<U32> oifs; // interface indexes, ascending
    U8 protocol = 0;       // 17: put in by the table's owner, 4: by another process
    bool pending = false;  // the kernel waits for its owner to resolve it: no route yet
    U64 packets = 0;
    U64 bytes = 0;
    U64 wrongIf = 0;
    U64 idle = 0; // since last use, in 1/100 s

    // Whether both forward alike; counters and origin aside.
    bool forwardsAs(KernelRoute const& o) const { return iif == o.iif && oifs == o.oifs; }
};

struct KernelLink {
    U32 index = 0;
    std::string name;
    U32 vrfTable = 0; // the table of a VRF device, else 0
    bool operator==(KernelLink const&) const = default;
};

// One message of the kernel.
struct KernelEvent {
    enum class Kind : U8 {
        none,       // of no concern, or malformed
        routeNew,   // `route`, whole
        routeGone,  // `route`, of which only the id can be trusted
        linkNew,    // `link`, whole
        linkGone,   // `link`, of which only the index can be trusted
        forwarding, // multicast forwarding was switched on or off on an interface
    };
    Kind kind = Kind::none;
    KernelRoute route;
    KernelLink link;
};

} // namespace Cairn
