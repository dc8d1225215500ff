// The module of tunnels over VXLAN. All its types are entities of the tunnel directories; until
// those stand here it registers a record without types.
#include "Vomo/Record.h"

namespace Vomo {
extern "C" {
extern VomoModule const _McastVxlanTypes_639bdfcf9008dd06_vomoModule;
}
} // namespace Vomo

namespace {
constexpr std::array<Vomo::TypeFrame, 0> types{};
} // namespace
constinit Vomo::VomoModule const Vomo::_McastVxlanTypes_639bdfcf9008dd06_vomoModule =
    Vomo::ModuleRecord<types>::value;
static Vomo::ModuleRegistration const
    registration(&Vomo::_McastVxlanTypes_639bdfcf9008dd06_vomoModule);
