#include "Mroute/Mfib.h"
#include "Mroute/MfibBriskTypes.h"
namespace Vomo {
extern "C" {
constinit VomoModule const _BitMapperTypes_f5722ab7f2af9957_vomoModule{};
constinit VomoModule const _McastGroup_5302ff4251cd4c04_vomoModule{};
constinit VomoModule const _Mfib_81f0b1a1b6aa3812_vomoModule{};
constinit VomoModule const _MfibBriskTypes_aaea5100197a8ed6_vomoModule{};
constinit VomoModule const _MfibTypes_bf6f8d1799ee26b7_vomoModule{};
}
}
