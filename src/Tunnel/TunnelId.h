// The number of a tunnel in the tunnel table.
#pragma once

#include "Vomo/Value.h"

namespace Tunnel::TunnelTable {
class TunnelId;
} // namespace Tunnel::TunnelTable

namespace Vomo {
extern "C" VomoModule const _TunnelBasicTypes_868265ad3920b5fa_vomoModule;
struct TunnelBasicTypesModule : TypeList<Tunnel::TunnelTable::TunnelId> {
    static constexpr VomoModule const* record = &_TunnelBasicTypes_868265ad3920b5fa_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<TunnelBasicTypesModule> T>
struct IdOf<T> : PlaceIn<T, TunnelBasicTypesModule> {};
} // namespace Vomo

namespace Tunnel::TunnelTable {

using Vomo::operator<<;
using Vomo::valueToStrep;

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

std::ostream& operator<<(std::ostream& stream, TunnelId v);

} // namespace Tunnel::TunnelTable
