// Addresses as the tool meets them: on the command line, in a route file, in a message of the
// kernel.
#pragma once

#include "Kelpie/IpPrefix.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Cairn {

using IpAddress = Kelpie::IpGenAddr;
using IpPrefix = Kelpie::IpGenPrefix;

inline bool isV4(IpAddress const& a) {
    return a.af() == Kelpie::ipv4();
}
// Of a host: 32 or 128.
inline S32 hostLength(IpAddress const& a) {
    return isV4(a) ? 32 : 128;
}
// All zero, as the source of a (*,G).
inline bool isUnspecified(IpAddress const& a) {
    return a.v6Addr() == Kelpie::Ip6Addr();
}
// A group that no router forwards: 224.0.0.0/24, or IPv6 of interface or link scope (RFC 4291).
bool isLinkLocalGroup(IpAddress const& a);
inline IpAddress unspecifiedAddress(Kelpie::AddressFamily af) {
    return {af, Kelpie::Ip6Addr()};
}

bool contains(IpPrefix const& prefix, IpAddress const& a);

// 4 or 16 bytes in network order; anything else is the empty address.
IpAddress addressOfBytes(std::span<U8 const> bytes);
std::optional<IpAddress> parseAddress(std::string_view text);
// ADDRESS or ADDRESS/LENGTH; bits behind the length are passed over, as `ip` does.
std::optional<IpPrefix> parsePrefix(std::string_view text);
inline std::string toText(IpAddress const& a) {
    return a.stringValue();
}
// "*" for the source of a (*,G).
inline std::string sourceText(IpAddress const& a) {
    return isUnspecified(a) ? "*" : toText(a);
}

struct IpAddressHash {
    std::size_t operator()(IpAddress const& a) const { return a.v6Addr().hash(); }
};

} // namespace Cairn
