#include "Tunnel/TunnelId.h"

#include "Vomo/Record.h"

#include <ostream>

template <>
struct Vomo::Describe<Tunnel::TunnelTable::TunnelId> {
    using T = Tunnel::TunnelTable::TunnelId;
    static constexpr auto type = value("Tunnel::TunnelTable::TunnelId");
    static constexpr auto attributes = rows({
        ctor<&T::value_>(2, "value"),
        constant<&T::minValue>(3, "minValue"),
        constant<&T::maxValue>(4, "maxValue"),
    });
};

namespace Tunnel::TunnelTable {

TunnelId::TunnelId(U64 value) : value_(value) {
    if (value > maxValue)
        Vomo::throwRangeException(
            "Tunnel::TunnelTable::TunnelId::value < Tunnel::TunnelTable::TunnelId::minValue or > "
            "Tunnel::TunnelTable::TunnelId::maxValue not allowed");
}
TunnelId::TunnelId(Vomo::CharRange& range) : TunnelId(Vomo::deserializeAttr<U64>(range, "value")) {}
TunnelId::TunnelId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) : TunnelId(in->nextU64()) {}
std::ostream& operator<<(std::ostream& stream, TunnelId v) {
    return stream << v.value();
}

} // namespace Tunnel::TunnelTable

namespace Vomo {
constinit decltype(TunnelBasicTypesModule::frames) TunnelBasicTypesModule::frames =
    ModuleRecord<TunnelBasicTypesModule>::frames;
constinit VomoModule const _TunnelBasicTypes_868265ad3920b5fa_vomoModule =
    ModuleRecord<TunnelBasicTypesModule>::value;
static ModuleRegistration const registration(TunnelBasicTypesModule::record);
} // namespace Vomo
