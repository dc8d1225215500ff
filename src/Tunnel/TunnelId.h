// The number of a tunnel in the tunnel table.
#pragma once

#include "Vomo/Fwd.h"

namespace Tunnel::TunnelTable {
class TunnelId;
} // namespace Tunnel::TunnelTable

namespace Vomo {
extern "C" {
extern VomoModule const _TunnelBasicTypes_868265ad3920b5fa_vomoModule;
}
template <>
struct IdOf<Tunnel::TunnelTable::TunnelId>
    : InModule<&_TunnelBasicTypes_868265ad3920b5fa_vomoModule, 0> {};
} // namespace Vomo

namespace Tunnel::TunnelTable {

// 0 to 2^49 - 1; above that RangeException. Text: the number.
class TunnelId {
public:
    static constexpr U64 minValue = 0;
    static constexpr U64 maxValue = (U64{1} << 49) - 1;

    constexpr TunnelId() = default;
    explicit TunnelId(U64 value);
    explicit TunnelId(Vomo::CharRange& range);
    TunnelId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr U64 value() const { return value_; }

    friend constexpr bool operator==(TunnelId, TunnelId) = default;
    friend constexpr auto operator<=>(TunnelId, TunnelId) = default;

private:
    friend Vomo::Describe<TunnelId>;
    U64 value_ = 0;
};
static_assert(sizeof(TunnelId) == 8);

Vomo::String valueToStrep(TunnelId v);
std::ostream& operator<<(std::ostream& stream, TunnelId v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, TunnelId v);

} // namespace Tunnel::TunnelTable
