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

namespace {
constexpr Vomo::TypeFrame types[] = {Vomo::frameOf<Interface::LoadInterval>};
} // namespace
constinit Vomo::VomoModule const Vomo::_Intf_ddf23f8cba610f0b_vomoModule =
    Vomo::ModuleRecord<types>::value;
constinit Vomo::ValueFrames<1> const Vomo::IntfFrames = Vomo::ModuleRecord<types>::frames;
static Vomo::ModuleRegistration const registration(&Vomo::_Intf_ddf23f8cba610f0b_vomoModule);
