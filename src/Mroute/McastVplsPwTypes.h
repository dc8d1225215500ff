// Tunnels over VPLS pseudowires.
#pragma once

#include "Kelpie/IntfId.h"
#include "Vomo/Value.h"

namespace MrouteLib {
class VplsPwEncapInfo;
} // namespace MrouteLib

namespace Vomo {
extern "C" VomoModule const _McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule;
struct McastVplsPwTypesModule : TypeList<MrouteLib::VplsPwEncapInfo> {
    static constexpr VomoModule const* record = &_McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<McastVplsPwTypesModule> T>
struct IdOf<T> : PlaceIn<T, McastVplsPwTypesModule> {};
} // namespace Vomo

namespace MrouteLib {

using Vomo::operator<<;
using Vomo::valueToStrep;

// The hardware encapsulation of a pseudowire.
class VplsPwEncapInfo {
public:
    constexpr VplsPwEncapInfo() = default;
    constexpr VplsPwEncapInfo(U64 key, U64 hwFecId, Kelpie::IntfId l2IntfId)
        : key_(key), hwFecId_(hwFecId), l2IntfId_(l2IntfId) {}
    explicit VplsPwEncapInfo(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    VplsPwEncapInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U64 key() const { return key_; }
    constexpr U64 hwFecId() const { return hwFecId_; }
    constexpr Kelpie::IntfId l2IntfId() const { return l2IntfId_; }
    constexpr explicit operator bool() const { return !(*this == VplsPwEncapInfo()); }

    friend constexpr bool operator==(VplsPwEncapInfo const&, VplsPwEncapInfo const&) = default;

private:
    friend Vomo::Describe<VplsPwEncapInfo>;
    U64 key_ = 0;
    U64 hwFecId_ = 0;
    Kelpie::IntfId l2IntfId_;
};
static_assert(sizeof(VplsPwEncapInfo) == 24 && alignof(VplsPwEncapInfo) == 8);

} // namespace MrouteLib
