// An Ethernet MAC address.
#pragma once

#include "Vomo/Fwd.h"

#include <array>

namespace Kelpie {
class EthAddr;
} // namespace Kelpie

namespace Vomo {
extern "C" VomoModule const _EthAddr_5ea519cab6df4342_vomoModule;
struct EthAddrModule : TypeList<Kelpie::EthAddr> {
    static constexpr VomoModule const* record = &_EthAddr_5ea519cab6df4342_vomoModule;
};
template <TypeOf<EthAddrModule> T>
struct IdOf<T> : PlaceIn<T, EthAddrModule> {};
} // namespace Vomo

namespace Kelpie {

// Six bytes in the order of the wire; all zero by default. Text: "01:00:5e:01:02:03".
class EthAddr {
public:
    constexpr EthAddr() = default;
    constexpr explicit EthAddr(std::array<U8, 6> const& bytes) : bytes_(bytes) {}
    explicit EthAddr(Vomo::CharRange& range);
    EthAddr(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    // `i` is 0 to 5.
    constexpr U8 byte(unsigned i) const { return bytes_[i]; }
    constexpr std::array<U8, 6> const& bytes() const { return bytes_; }
    Vomo::String stringValue() const;

    friend constexpr bool operator==(EthAddr const&, EthAddr const&) = default;
    friend constexpr auto operator<=>(EthAddr const&, EthAddr const&) = default;

private:
    std::array<U8, 6> bytes_ = {};
};
static_assert(sizeof(EthAddr) == 6);

Vomo::String valueToStrep(EthAddr const& v);
std::ostream& operator<<(std::ostream& stream, EthAddr const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, EthAddr const& v);

} // namespace Kelpie
