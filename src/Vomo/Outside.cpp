#include "Kelpie/IpPrefix.h"
#include "Kelpie/IntfId.h"
#include "Bridging/VlanId.h"
namespace Vomo {
extern "C" {
constinit VomoModule const _IntfId_638f3da9b062f5a9_vomoModule{};
constinit VomoModule const _EthAddr_5ea519cab6df4342_vomoModule{};
constinit VomoModule const _Ip_df105a5f51aead53_vomoModule{};
constinit VomoModule const _IpGenAddr_115cb65b3d99135e_vomoModule{};
constinit VomoModule const _IpGenPrefix_d4a8d99ed5f09fc7_vomoModule{};
constinit VomoModule const _VlanId_c2b91fe4f92f5433_vomoModule{};
}
}
