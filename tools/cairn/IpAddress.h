// An IPv4 or IPv6 address as the tool meets it: on the command line, in a route file, in a message
// of the kernel.
#pragma once

#include "Dunlin/Types.h"

#include <array>
#include <compare>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Cairn {

struct IpAddress {
    U32 family = 0;             // 0 none, 1 IPv4, 2 IPv6
    std::array<U8, 16> bytes{}; // network order; IPv4 in the first four, the rest zero

    bool isV4() const { return family == 1; }
    bool isV6() const { return family == 2; }
    U32 maxLength() const { return isV4() ? 32 : 128; }
    // All zero, as the source of a (*,G).
    bool isUnspecified() const;
    // 224.0.0.0/4 or ff00::/8.
    bool isMulticast() const;
    // A group that no router forwards: 224.0.0.0/24, or IPv6 of interface or link scope (RFC 4291).
    bool isLinkLocalMulticast() const;

    auto operator<=>(IpAddress const&) const = default;
    bool operator==(IpAddress const&) const = default;
};

struct IpPrefix {
    IpAddress address;
    U32 length = 0;
    bool contains(IpAddress const&) const;
};

IpAddress unspecifiedAddress(U32 family);
// 4 or 16 bytes in network order; anything else is the empty address.
IpAddress addressOfBytes(std::span<U8 const> bytes);
std::optional<IpAddress> parseAddress(std::string_view text);
// ADDRESS or ADDRESS/LENGTH; bits behind the length are passed over, as `ip` does.
std::optional<IpPrefix> parsePrefix(std::string_view text);
std::string toText(IpAddress const&);
// "*" for the source of a (*,G).
std::string sourceText(IpAddress const&);

struct IpAddressHash {
    std::size_t operator()(IpAddress const& a) const {
        return std::hash<std::string_view>{}(
            {reinterpret_cast<char const*>(a.bytes.data()), a.isV4() ? 4u : 16u});
    }
};

} // namespace Cairn
