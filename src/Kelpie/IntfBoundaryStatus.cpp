#include "Kelpie/IntfBoundaryStatus.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<Kelpie::IntfBoundaryStatus> {
    using T = Kelpie::IntfBoundaryStatus;
    static constexpr auto type = entity("Kelpie::IntfBoundaryStatus");
    static constexpr auto attributes = rows({
        notifying<&T::boundary_>(T::boundaryAttr, "boundary"),
    });
};

namespace Kelpie {

Vomo::Ptr<IntfBoundaryStatus> intfBoundaryStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<IntfBoundaryStatus>(name);
}

} // namespace Kelpie

namespace Vomo {
constinit VomoModule const _IntfBoundaryStatus_6d8ffdafd8f4e068_vomoModule =
    ModuleRecord<IntfBoundaryStatusModule>::value;
static ModuleRegistration const registration(IntfBoundaryStatusModule::record);
} // namespace Vomo
