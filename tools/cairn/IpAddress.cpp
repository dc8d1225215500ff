#include "IpAddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace Cairn {

bool isLinkLocalGroup(IpAddress const& a) {
    auto const& bytes = a.v6Addr().bytes();
    if (isV4(a)) return bytes[0] == 224 && bytes[1] == 0 && bytes[2] == 0;
    return a.isMulticast() && (bytes[1] & 0x0f) <= 2;
}

bool contains(IpPrefix const& prefix, IpAddress const& a) {
    if (a.af() != prefix.af()) return false;
    auto const& mine = prefix.v6Addr().bytes();
    auto const& other = a.v6Addr().bytes();
    auto const length = static_cast<unsigned>(prefix.len());
    for (unsigned bit = 0; bit < length; bit += 8) {
        U8 const mask = length - bit >= 8 ? U8{0xff} : static_cast<U8>(0xff00u >> (length - bit));
        if ((mine[bit / 8] ^ other[bit / 8]) & mask) return false;
    }
    return true;
}

IpAddress addressOfBytes(std::span<U8 const> bytes) {
    if (bytes.size() != 4 && bytes.size() != 16) return {};
    std::array<U8, 16> all{};
    std::copy(bytes.begin(), bytes.end(), all.begin());
    return {bytes.size() == 4 ? Kelpie::ipv4() : Kelpie::ipv6(), Kelpie::Ip6Addr(all)};
}

std::optional<IpAddress> parseAddress(std::string_view text) {
    std::string const copy(text); // inet_pton wants a terminated string without a NUL inside
    if (copy.find('\0') != std::string::npos) return std::nullopt;
    bool const v4 = copy.find(':') == std::string::npos;
    std::array<U8, 16> bytes{};
    if (inet_pton(v4 ? AF_INET : AF_INET6, copy.c_str(), bytes.data()) != 1) return std::nullopt;
    return IpAddress(v4 ? Kelpie::ipv4() : Kelpie::ipv6(), Kelpie::Ip6Addr(bytes));
}

std::optional<IpPrefix> parsePrefix(std::string_view text) {
    auto const slash = text.find('/');
    auto const address = parseAddress(text.substr(0, slash));
    if (!address) return std::nullopt;
    if (slash == std::string_view::npos) return IpPrefix(*address, hostLength(*address));
    auto const digits = text.substr(slash + 1);
    U32 length = 0;
    auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
    if (error != std::errc{} || end != digits.data() + digits.size() ||
        length > static_cast<U32>(hostLength(*address)))
        return std::nullopt;
    return IpPrefix(*address, static_cast<S32>(length));
}

} // namespace Cairn
