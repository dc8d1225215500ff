// IP prefixes: IPv4 alone, and either family. An address and a length; the bits behind the length
// are kept as they are.
#pragma once

#include "Kelpie/IpAddr.h"

#include <cstring>
#include <type_traits>

namespace Kelpie {
class IpGenPrefix;
} // namespace Kelpie

namespace Vomo {
extern "C" VomoModule const _IpGenPrefix_d4a8d99ed5f09fc7_vomoModule;
struct IpGenPrefixModule : TypeList<Kelpie::IpGenPrefix> {
    static constexpr VomoModule const* record = &_IpGenPrefix_d4a8d99ed5f09fc7_vomoModule;
};
template <TypeOf<IpGenPrefixModule> T>
struct IdOf<T> : PlaceIn<T, IpGenPrefixModule> {};
} // namespace Vomo

namespace Kelpie {

// Text: "10.1.0.0/16"; a length outside 0 to 32 does not parse.
class Prefix {
public:
    constexpr Prefix() = default;
    constexpr Prefix(IpAddr address, S32 len) : address_(address), len_(len) {}
    explicit Prefix(Vomo::CharRange& range);
    Prefix(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr IpAddr address() const { return address_; }
    constexpr S32 len() const { return len_; }
    Vomo::String stringValue() const;

    friend constexpr bool operator==(Prefix, Prefix) = default;

private:
    IpAddr address_;
    S32 len_ = 0;
};
static_assert(sizeof(Prefix) == 8 && alignof(Prefix) == 4);

// Text: "10.1.0.0/16", "2001:db8::/32", "none/0".
class IpGenPrefix {
public:
    constexpr IpGenPrefix() = default;
    constexpr IpGenPrefix(IpGenAddr const& address, S32 len) : address_(address), len_(len) {}
    constexpr IpGenPrefix(Prefix prefix) : address_(prefix.address()), len_(prefix.len()) {}
    explicit IpGenPrefix(Vomo::CharRange& range);
    IpGenPrefix(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr AddressFamily af() const { return address_.af(); }
    constexpr IpGenAddr const& address() const { return address_; }
    constexpr IpAddr v4Addr() const { return address_.v4Addr(); }
    constexpr Ip6Addr const& v6Addr() const { return address_.v6Addr(); }
    constexpr Prefix v4Prefix() const { return {v4Addr(), len_}; }
    constexpr S32 len() const { return len_; }
    // The address alone decides.
    bool isMulticast() const { return address_.isMulticast(); }
    // Of length 32 (IPv4) or 128 (IPv6).
    constexpr bool isHost() const {
        return (af() == ipv4() && len_ == 32) || (af() == ipv6() && len_ == 128);
    }
    U32 hash(U32 seed) const;
    U32 hash() const { return hash(0); }
    Vomo::String stringValue() const;

    // All three fields. Tables compare keys with each step: as bytes, where that can be done.
    friend constexpr bool operator==(IpGenPrefix const& a, IpGenPrefix const& b) {
        static_assert(std::has_unique_object_representations_v<IpGenPrefix>);
        if (!std::is_constant_evaluated()) return std::memcmp(&a, &b, sizeof a) == 0;
        return a.address_ == b.address_ && a.len_ == b.len_;
    }
    // Total. By family; then, if the first m bits differ, m being the smaller length, by those bits;
    // then a longer prefix before one that covers it; then by all bits of the address.
    friend bool operator<(IpGenPrefix const& a, IpGenPrefix const& b);

private:
    IpGenAddr address_;
    S32 len_ = 0;
};
static_assert(sizeof(IpGenPrefix) == 24 && alignof(IpGenPrefix) == 4);

Vomo::String valueToStrep(Prefix const& v);
Vomo::String valueToStrep(IpGenPrefix const& v);
std::ostream& operator<<(std::ostream& stream, Prefix const& v);
std::ostream& operator<<(std::ostream& stream, IpGenPrefix const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, Prefix const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IpGenPrefix const& v);

} // namespace Kelpie
