// The module of tunnels over VXLAN. All its types are entities of the tunnel directories; until
// those stand here it registers a record without types.
#include "Vomo/Record.h"

namespace Vomo {
extern "C" VomoModule const _McastVxlanTypes_639bdfcf9008dd06_vomoModule;
struct McastVxlanTypesModule : TypeList<> {
    static constexpr VomoModule const* record = &_McastVxlanTypes_639bdfcf9008dd06_vomoModule;
};
} // namespace Vomo

namespace Vomo {
constinit VomoModule const _McastVxlanTypes_639bdfcf9008dd06_vomoModule =
    ModuleRecord<McastVxlanTypesModule>::value;
static ModuleRegistration const registration(McastVxlanTypesModule::record);
} // namespace Vomo
