// The record of the module of plain IPv4 values.
#include "Kelpie/IpPrefix.h"
#include "Vomo/Record.h"

template <>
struct Vomo::Describe<Kelpie::IpAddr> {
    using T = Kelpie::IpAddr;
    static constexpr auto type = value("Kelpie::IpAddr");
    static constexpr auto attributes = rows({
        derived<&T::word>(2, "word"),
        function<&T::isMulticast>(3, "isMulticast"),
        function<&T::stringValue>(4, "stringValue"),
    });
};
template <>
struct Vomo::Describe<Kelpie::Prefix> {
    using T = Kelpie::Prefix;
    static constexpr auto type = value("Kelpie::Prefix");
    static constexpr auto attributes = rows({
        derived<&T::address>(2, "address"),
        derived<&T::len>(3, "len"),
        function<&T::stringValue>(4, "stringValue"),
    });
};

namespace Vomo {
constinit VomoModule const _Ip_df105a5f51aead53_vomoModule = ModuleRecord<IpModule>::value;
static ModuleRegistration const registration(IpModule::record);
} // namespace Vomo
