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

namespace Vomo {
constinit decltype(IntfModule::frames) IntfModule::frames = ModuleRecord<IntfModule>::frames;
constinit VomoModule const _Intf_ddf23f8cba610f0b_vomoModule = ModuleRecord<IntfModule>::value;
static ModuleRegistration const registration(IntfModule::record);
} // namespace Vomo
