// IP addresses: IPv4, IPv6 and either.
#pragma once

#include "Kelpie/EthAddr.h"
#include "Tumbrel/HashMix.h"
#include "Vomo/Fwd.h"

#include <bit>

namespace Kelpie {
class IpAddr;
class Ip6Addr;
class IpGenAddr;
class AddressFamily;
class Prefix;
} // namespace Kelpie

namespace Vomo {
extern "C" VomoModule const _Ip_df105a5f51aead53_vomoModule;
extern "C" VomoModule const _IpGenAddr_115cb65b3d99135e_vomoModule;
struct IpModule : TypeList<Kelpie::IpAddr, Kelpie::Prefix> {
    static constexpr VomoModule const* record = &_Ip_df105a5f51aead53_vomoModule;
};
template <TypeOf<IpModule> T>
struct IdOf<T> : PlaceIn<T, IpModule> {};
struct IpGenAddrModule : TypeList<Kelpie::AddressFamily, Kelpie::Ip6Addr, Kelpie::IpGenAddr> {
    static constexpr VomoModule const* record = &_IpGenAddr_115cb65b3d99135e_vomoModule;
};
template <TypeOf<IpGenAddrModule> T>
struct IdOf<T> : PlaceIn<T, IpGenAddrModule> {};
} // namespace Vomo

namespace Kelpie {

// 0 none, 1 IPv4, 2 IPv6; another number may stand in foreign data. Text: the number.
class AddressFamily {
public:
    constexpr AddressFamily() = default;
    constexpr explicit AddressFamily(U32 value) : value_(value) {}
    explicit AddressFamily(Vomo::CharRange& range);
    AddressFamily(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);
    constexpr U32 value() const { return value_; }

    friend constexpr bool operator==(AddressFamily, AddressFamily) = default;
    friend constexpr auto operator<=>(AddressFamily, AddressFamily) = default;

private:
    U32 value_ = 0;
};
static_assert(sizeof(AddressFamily) == 4);

constexpr AddressFamily ipv4() {
    return AddressFamily(1);
}
constexpr AddressFamily ipv6() {
    return AddressFamily(2);
}

// An IPv4 address, kept in network byte order. Text: "10.1.2.3".
class IpAddr {
public:
    constexpr IpAddr() = default;
    // The first dotted byte on top.
    static constexpr IpAddr fromWord(U32 word) { return IpAddr(__builtin_bswap32(word)); }
    static constexpr IpAddr fromNetworkWord(U32 word) { return IpAddr(word); }
    explicit IpAddr(Vomo::CharRange& range);
    IpAddr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    // The first dotted byte on top (host order).
    constexpr U32 word() const { return __builtin_bswap32(network_); }
    constexpr U32 networkWord() const { return network_; }
    // 224.0.0.0/4
    constexpr bool isMulticast() const { return (word() >> 28) == 14; }
    Vomo::String stringValue() const;

    friend constexpr bool operator==(IpAddr, IpAddr) = default;
    friend constexpr auto operator<=>(IpAddr a, IpAddr b) { return a.word() <=> b.word(); }

private:
    constexpr explicit IpAddr(U32 network) : network_(network) {}
    U32 network_ = 0;
};
static_assert(sizeof(IpAddr) == 4 && std::endian::native == std::endian::little);

// An IPv6 address. Text: RFC 5952.
class Ip6Addr {
public:
    constexpr Ip6Addr() = default;
    constexpr explicit Ip6Addr(std::array<U8, 16> const& bytes)
        : words_(std::bit_cast<std::array<U32, 4>>(bytes)) {}
    // Four words in network order.
    static constexpr Ip6Addr fromNetworkWords(U32 a, U32 b, U32 c, U32 d) {
        return Ip6Addr(std::array<U32, 4>{a, b, c, d});
    }
    explicit Ip6Addr(Vomo::CharRange& range);
    Ip6Addr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr std::array<U8, 16> bytes() const { return std::bit_cast<std::array<U8, 16>>(words_); }
    // Bytes 4 `index` to 4 `index` + 3, as they stand in memory.
    constexpr U32 networkWord(unsigned index) const { return words_[index]; }
    // Half 0 is the upper one; the first byte on top.
    constexpr U64 u64(unsigned half) const {
        return U64{__builtin_bswap32(words_[half * 2])} << 32 |
               __builtin_bswap32(words_[half * 2 + 1]);
    }
    // Stands in shared memory: the same in every process.
    constexpr U32 hash() const {
        return Tumbrel::fold(Tumbrel::mix64(Tumbrel::mix64(0, u64(0)), u64(1)));
    }
    // ff00::/8
    constexpr bool isMulticast() const { return (words_[0] & 0xff) == 0xff; }
    Vomo::String stringValue() const;

    friend constexpr bool operator==(Ip6Addr const&, Ip6Addr const&) = default;
    // As the bytes from the first to the last.
    friend constexpr auto operator<=>(Ip6Addr const& a, Ip6Addr const& b) {
        U64 const upper[] = {a.u64(0), b.u64(0)};
        return upper[0] != upper[1] ? upper[0] <=> upper[1] : a.u64(1) <=> b.u64(1);
    }

private:
    constexpr explicit Ip6Addr(std::array<U32, 4> const& words) : words_(words) {}
    // In network order. Words, not bytes: what makes and reads keys stays in registers.
    std::array<U32, 4> words_ = {};
};
static_assert(sizeof(Ip6Addr) == 16 && alignof(Ip6Addr) == 4);

// An address of either family, or none. IPv4 stands in the first four bytes, the rest zero. Text:
// that of the address; "none" without a family.
class IpGenAddr {
public:
    constexpr IpGenAddr() = default;
    constexpr IpGenAddr(IpAddr v4)
        : af_(ipv4()), bytes_(Ip6Addr::fromNetworkWords(v4.networkWord(), 0, 0, 0)) {}
    constexpr IpGenAddr(Ip6Addr const& v6) : af_(ipv6()), bytes_(v6) {}
    // Bytes that stand for themselves, whatever the family.
    constexpr IpGenAddr(AddressFamily af, Ip6Addr const& bytes) : af_(af), bytes_(bytes) {}
    explicit IpGenAddr(Vomo::CharRange& range);
    IpGenAddr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr AddressFamily af() const { return af_; }
    // The first four bytes, whatever the family.
    constexpr IpAddr v4Addr() const { return IpAddr::fromNetworkWord(bytes_.networkWord(0)); }
    // The sixteen bytes, whatever the family.
    constexpr Ip6Addr const& v6Addr() const { return bytes_; }
    // 224.0.0.0/4 or ff00::/8
    bool isMulticast() const;
    // The MAC address that a multicast group maps to: 01:00:5e and the low 23 bits (RFC 1112), or
    // 33:33 and the low 32 bits (RFC 2464); all zero without a family.
    EthAddr mcastEtherAddress() const;
    Vomo::String stringValue() const;

    friend constexpr bool operator==(IpGenAddr const&, IpGenAddr const&) = default;
    friend constexpr auto operator<=>(IpGenAddr const&, IpGenAddr const&) = default;

private:
    AddressFamily af_;
    Ip6Addr bytes_;
};
static_assert(sizeof(IpGenAddr) == 20 && alignof(IpGenAddr) == 4);

Vomo::String valueToStrep(AddressFamily v);
Vomo::String valueToStrep(IpAddr v);
Vomo::String valueToStrep(Ip6Addr const& v);
Vomo::String valueToStrep(IpGenAddr const& v);
std::ostream& operator<<(std::ostream& stream, AddressFamily v);
std::ostream& operator<<(std::ostream& stream, IpAddr v);
std::ostream& operator<<(std::ostream& stream, Ip6Addr const& v);
std::ostream& operator<<(std::ostream& stream, IpGenAddr const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, AddressFamily v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IpAddr v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, Ip6Addr const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IpGenAddr const& v);

} // namespace Kelpie
