#include "Kelpie/IpAddr.h"

#include "Vomo/NboAttrLog.h"
#include "Vomo/Record.h"

#include <arpa/inet.h>
#include <ostream>

template <>
struct Vomo::Describe<Kelpie::AddressFamily> {
    using T = Kelpie::AddressFamily;
    static constexpr auto type = value("Kelpie::AddressFamily");
    static constexpr auto attributes = rows({
        derived<&T::value>(2, "value"),
    });
};
template <>
struct Vomo::Describe<Kelpie::Ip6Addr> {
    using T = Kelpie::Ip6Addr;
    static constexpr auto type = value("Kelpie::Ip6Addr", wide);
    static constexpr auto attributes = rows({
        derived<&T::hash>(2, "hash"),
        function<&T::isMulticast>(3, "isMulticast"),
        function<&T::stringValue>(4, "stringValue"),
    });
};
template <>
struct Vomo::Describe<Kelpie::IpGenAddr> {
    using T = Kelpie::IpGenAddr;
    static constexpr auto type = value("Kelpie::IpGenAddr", wide);
    static constexpr auto attributes = rows({
        derived<&T::af>(2, "af"),
        derived<&T::v4Addr>(3, "v4Addr"),
        derived<&T::v6Addr>(4, "v6Addr"),
        function<&T::isMulticast>(5, "isMulticast"),
        function<&T::mcastEtherAddress>(6, "mcastEtherAddress"),
        function<&T::stringValue>(7, "stringValue"),
    });
};

namespace Kelpie {
namespace {

// The longest run of characters of an address at the cursor, given to the resolver's parser.
template <std::size_t n>
void parseAddress(Vomo::CharRange& range, int family, std::string_view characters, U8 (&bytes)[n],
                  std::string_view wanted) {
    std::string const text(range.text().substr(0, range.text().find_first_not_of(characters)));
    if (text.size() > INET6_ADDRSTRLEN || ::inet_pton(family, text.c_str(), bytes) != 1)
        range.throwWanted(wanted);
    range += static_cast<U32>(text.size());
}

} // namespace

AddressFamily::AddressFamily(Vomo::CharRange& range)
    : value_(Vomo::deserializeAttr<U32>(range, "af")) {}
AddressFamily::AddressFamily(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) : value_(in->nextU32()) {}
Vomo::String valueToStrep(AddressFamily v) {
    return Vomo::valueToStrep(static_cast<unsigned long long>(v.value()));
}
std::ostream& operator<<(std::ostream& stream, AddressFamily v) {
    return stream << v.value();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, AddressFamily v) {
    return out << v.value();
}

IpAddr::IpAddr(Vomo::CharRange& range) {
    U8 bytes[4];
    parseAddress(range, AF_INET, "0123456789.", bytes, "an IPv4 address");
    std::memcpy(&network_, bytes, 4);
}
IpAddr::IpAddr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    std::memcpy(&network_, in->take(4), 4);
}
Vomo::String IpAddr::stringValue() const {
    U32 const w = word();
    return fmt::format("{}.{}.{}.{}", w >> 24, w >> 16 & 255, w >> 8 & 255, w & 255);
}
Vomo::String valueToStrep(IpAddr v) {
    return v.stringValue();
}
std::ostream& operator<<(std::ostream& stream, IpAddr v) {
    return stream << v.stringValue();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IpAddr v) {
    return out << v.word();
}

Ip6Addr::Ip6Addr(Vomo::CharRange& range) {
    U8 bytes[16];
    parseAddress(range, AF_INET6, "0123456789abcdefABCDEF:.", bytes, "an IPv6 address");
    std::memcpy(words_.data(), bytes, 16);
}
Ip6Addr::Ip6Addr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    std::memcpy(words_.data(), in->take(16), 16);
}
Vomo::String Ip6Addr::stringValue() const {
    char text[INET6_ADDRSTRLEN];
    ::inet_ntop(AF_INET6, words_.data(), text, sizeof text);
    return text;
}
Vomo::String valueToStrep(Ip6Addr const& v) {
    return v.stringValue();
}
std::ostream& operator<<(std::ostream& stream, Ip6Addr const& v) {
    return stream << v.stringValue();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, Ip6Addr const& v) {
    out.append(v.bytes().data(), 16);
    return out;
}

IpGenAddr::IpGenAddr(Vomo::CharRange& range) {
    if (range.haveString("none")) return;
    std::string_view const text = range.text();
    // A colon among the characters of an address tells the family.
    std::string_view const address =
        text.substr(0, text.find_first_not_of("0123456789abcdefABCDEF:."));
    if (address.empty()) range.throwWanted("an IP address");
    *this =
        address.find(':') == address.npos ? IpGenAddr(IpAddr(range)) : IpGenAddr(Ip6Addr(range));
}
IpGenAddr::IpGenAddr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon tag)
    : af_(in, tag), bytes_(in, tag) {}

bool IpGenAddr::isMulticast() const {
    return af_ == ipv4() ? v4Addr().isMulticast() : af_ == ipv6() && bytes_.isMulticast();
}

EthAddr IpGenAddr::mcastEtherAddress() const {
    auto const& b = bytes_.bytes();
    if (af_ == ipv4()) return EthAddr({0x01, 0x00, 0x5e, static_cast<U8>(b[1] & 0x7f), b[2], b[3]});
    if (af_ == ipv6()) return EthAddr({0x33, 0x33, b[12], b[13], b[14], b[15]});
    return {};
}

Vomo::String IpGenAddr::stringValue() const {
    if (af_ == ipv4()) return v4Addr().stringValue();
    if (af_ == ipv6()) return bytes_.stringValue();
    if (af_ == AddressFamily()) return "none";
    return fmt::format("af{}:{}", af_.value(), bytes_.stringValue()); // foreign data
}
Vomo::String valueToStrep(IpGenAddr const& v) {
    return v.stringValue();
}
std::ostream& operator<<(std::ostream& stream, IpGenAddr const& v) {
    return stream << v.stringValue();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IpGenAddr const& v) {
    return out << v.af() << v.v6Addr();
}

} // namespace Kelpie

namespace Vomo {
constinit VomoModule const _IpGenAddr_115cb65b3d99135e_vomoModule =
    ModuleRecord<IpGenAddrModule>::value;
static ModuleRegistration const registration(IpGenAddrModule::record);
} // namespace Vomo
