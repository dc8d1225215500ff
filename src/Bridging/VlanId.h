// VLAN numbers.
#pragma once

#include "Vomo/Value.h"

namespace Bridging {
class VlanId;
class VlanIdOrNone;
} // namespace Bridging

namespace Vomo {
extern "C" VomoModule const _VlanId_c2b91fe4f92f5433_vomoModule;
struct VlanIdModule : TypeList<Bridging::VlanId, Bridging::VlanIdOrNone> {
    static constexpr VomoModule const* record = &_VlanId_c2b91fe4f92f5433_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<VlanIdModule> T>
struct IdOf<T> : PlaceIn<T, VlanIdModule> {};
} // namespace Vomo

namespace Bridging {

using Vomo::operator<<;
using Vomo::valueToStrep;

// 1 to 4094 (IEEE 802.1Q); another number raises RangeException "Bridging::VlanId::value < 1 or >
// 4094 not allowed". Text: the number.
class VlanId {
public:
    static constexpr U16 min = 1;
    static constexpr U16 max = 4094;

    constexpr VlanId() = default;
    explicit VlanId(U16 value);
    explicit VlanId(Vomo::CharRange& range);
    VlanId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);
    constexpr U16 value() const { return value_; }
    U32 hash(U32 seed) const;

    friend constexpr bool operator==(VlanId, VlanId) = default;
    friend constexpr auto operator<=>(VlanId, VlanId) = default;

private:
    friend Vomo::Describe<VlanId>;
    U16 value_ = 1;
};

// A VLAN, or 0 for none.
class VlanIdOrNone {
public:
    constexpr VlanIdOrNone() = default;
    constexpr explicit VlanIdOrNone(U16 value) : value_(value) {}
    constexpr VlanIdOrNone(VlanId v) : value_(v.value()) {}
    explicit VlanIdOrNone(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    VlanIdOrNone(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);
    constexpr U16 value() const { return value_; }
    U32 hash(U32 seed) const;
    constexpr explicit operator bool() const { return value_ != 0; }

    friend constexpr bool operator==(VlanIdOrNone, VlanIdOrNone) = default;
    friend constexpr auto operator<=>(VlanIdOrNone, VlanIdOrNone) = default;

private:
    friend Vomo::Describe<VlanIdOrNone>;
    U16 value_ = 0;
};

std::ostream& operator<<(std::ostream& stream, VlanId v);
std::ostream& operator<<(std::ostream& stream, VlanIdOrNone v);

} // namespace Bridging
