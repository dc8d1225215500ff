#include "Interface/LoadInterval.h"

#include "Vomo/Record.h"

#include <ostream>

template <>
struct Vomo::Describe<Interface::LoadInterval> {
    using T = Interface::LoadInterval;
    static constexpr auto type = value("Interface::LoadInterval");
    static constexpr auto attributes = rows({
        ctor<&T::kind_>(2, "kind"),
        ctor<&T::seconds_>(3, "seconds"),
    });
};

namespace Interface {

LoadInterval::LoadInterval(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
LoadInterval::LoadInterval(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}
Vomo::String valueToStrep(LoadInterval const& v) {
    return Vomo::text(v);
}
std::ostream& operator<<(std::ostream& stream, LoadInterval const& v) {
    return stream << valueToStrep(v);
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, LoadInterval const& v) {
    return Vomo::write(out, v), out;
}

} // namespace Interface

namespace {
constexpr Vomo::TypeFrame types[] = {Vomo::frameOf<Interface::LoadInterval>};
} // namespace
constinit Vomo::VomoModule const Vomo::_Intf_ddf23f8cba610f0b_vomoModule =
    Vomo::ModuleRecord<types>::value;
static Vomo::ModuleRegistration const registration(&Vomo::_Intf_ddf23f8cba610f0b_vomoModule);
