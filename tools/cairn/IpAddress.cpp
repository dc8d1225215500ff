#include "IpAddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace Cairn {

bool IpAddress::isUnspecified() const {
    return std::all_of(bytes.begin(), bytes.end(), [](U8 b) { return b == 0; });
}

bool IpAddress::isMulticast() const {
    return isV4() ? (bytes[0] & 0xf0) == 0xe0 : isV6() && bytes[0] == 0xff;
}

bool IpAddress::isLinkLocalMulticast() const {
    if (isV4()) return bytes[0] == 224 && bytes[1] == 0 && bytes[2] == 0;
    return isMulticast() && (bytes[1] & 0x0f) <= 2;
}

bool IpPrefix::contains(IpAddress const& a) const {
    if (a.family != address.family) return false;
    for (U32 bit = 0; bit < length; bit += 8) {
        U8 const mask = length - bit >= 8 ? U8{0xff} : static_cast<U8>(0xff00u >> (length - bit));
        if ((a.bytes[bit / 8] ^ address.bytes[bit / 8]) & mask) return false;
    }
    return true;
}

IpAddress unspecifiedAddress(U32 family) {
    IpAddress a;
    a.family = family;
    return a;
}

IpAddress addressOfBytes(std::span<U8 const> bytes) {
    IpAddress a;
    if (bytes.size() != 4 && bytes.size() != 16) return a;
    a.family = bytes.size() == 4 ? 1 : 2;
    std::copy(bytes.begin(), bytes.end(), a.bytes.begin());
    return a;
}

std::optional<IpAddress> parseAddress(std::string_view text) {
    std::string const copy(text); // inet_pton wants a terminated string without a NUL inside
    if (copy.find('\0') != std::string::npos) return std::nullopt;
    IpAddress a;
    a.family = copy.find(':') == std::string::npos ? 1 : 2;
    if (inet_pton(a.isV4() ? AF_INET : AF_INET6, copy.c_str(), a.bytes.data()) != 1)
        return std::nullopt;
    return a;
}

std::optional<IpPrefix> parsePrefix(std::string_view text) {
    auto const slash = text.find('/');
    auto const address = parseAddress(text.substr(0, slash));
    if (!address) return std::nullopt;
    IpPrefix prefix{*address, address->maxLength()};
    if (slash == std::string_view::npos) return prefix;
    auto const digits = text.substr(slash + 1);
    auto const [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), prefix.length);
    if (error != std::errc{} || end != digits.data() + digits.size() ||
        prefix.length > address->maxLength())
        return std::nullopt;
    return prefix;
}

std::string toText(IpAddress const& a) {
    char text[INET6_ADDRSTRLEN];
    if (a.family == 0 ||
        !inet_ntop(a.isV4() ? AF_INET : AF_INET6, a.bytes.data(), text, sizeof text))
        return "none";
    return text;
}

std::string sourceText(IpAddress const& a) {
    return a.isUnspecified() ? "*" : toText(a);
}

} // namespace Cairn
