// The bytes of rtnetlink (linux/rtnetlink.h): decoding of what the kernel sends, making of what it
// is asked. Pure functions; nothing read here is trusted.
#pragma once

#include "KernelRoute.h"

#include <functional>
#include <span>

struct nlmsghdr;

namespace Cairn {

// The rtnetlink families of the multicast forwarding caches (RTNL_FAMILY_IPMR, _IP6MR).
inline constexpr U8 ipmrFamily = 128;
inline constexpr U8 ip6mrFamily = 129;

// Decodes a message, header included. A message of another kind, a cut one or one with an
// attribute of the wrong size has kind `none`.
KernelEvent decodeMessage(std::span<U8 const> message);

// Calls `handler` with each whole message of a datagram; false if bytes are left that are none.
bool forEachMessage(std::span<U8 const> datagram,
                    std::function<void(std::span<U8 const> message)> const& handler);

// Requests, with the given sequence number: all routes of a family in all tables; the one route of
// an id; all links.
std::vector<U8> dumpRequest(U8 rtnlFamily, U32 sequence);
std::vector<U8> routeRequest(RouteId const& id, U32 sequence);
std::vector<U8> linkRequest(U32 sequence);

} // namespace Cairn
