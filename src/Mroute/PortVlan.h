// One replication target: port, VLAN or logical interface, overlay VLAN and port properties.
#pragma once

#include "Bridging/VlanId.h"
#include "Kelpie/IntfId.h"
#include "Vomo/Value.h"

namespace MrouteLib {
class OutLif;
class PortProperty;
class PortPropertyMask;
class PortVlan;
} // namespace MrouteLib

namespace Vomo {
extern "C" VomoModule const _PortVlan_adcde2bd179a1d29_vomoModule;
struct PortVlanModule : TypeList<MrouteLib::OutLif, MrouteLib::PortProperty,
                                 MrouteLib::PortPropertyMask, MrouteLib::PortVlan> {
    static constexpr VomoModule const* record = &_PortVlan_adcde2bd179a1d29_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<PortVlanModule> T>
struct IdOf<T> : PlaceIn<T, PortVlanModule> {};
} // namespace Vomo

namespace MrouteLib {

using Vomo::operator<<;
using Vomo::valueToStrep;

// A logical interface, or, from 1 to 4094, a VLAN. Text: the number.
class OutLif {
public:
    static constexpr U32 null = 0;

    constexpr OutLif() = default;
    constexpr explicit OutLif(U32 value) : value_(value) {}
    explicit OutLif(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    OutLif(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U32 value() const { return value_; }
    constexpr void valueIs(U32 v) { value_ = v; }
    constexpr U32 valueInc(U32 n) & { return value_ += n; }
    constexpr U32 valueDec(U32 n) & { return value_ -= n; }
    constexpr U32 hash() const { return value_; }
    constexpr explicit operator bool() const { return value_ != null; }

    friend constexpr bool operator==(OutLif, OutLif) = default;
    friend constexpr auto operator<=>(OutLif, OutLif) = default;

private:
    friend Vomo::Describe<OutLif>;
    U32 value_ = null;
};

// Properties of a port, packed into a word; a write of one changes its own bits alone, and bits 21
// to 31 are kept. Text: the word.
class PortProperty {
public:
    constexpr PortProperty() = default;
    constexpr explicit PortProperty(U32 value) : value_(value) {}
    explicit PortProperty(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    PortProperty(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U32 value() const { return value_; }
    constexpr void valueIs(U32 v) { value_ = v; }
    constexpr U32 valueInc(U32 n) & { return value_ += n; }
    constexpr U32 valueDec(U32 n) & { return value_ -= n; }
    constexpr bool isMlagPort() const { return bit(0); }
    constexpr void isMlagPortIs(bool v) { bitIs(0, v); }
    constexpr bool isTagOnEgress() const { return bit(1); }
    constexpr void isTagOnEgressIs(bool v) { bitIs(1, v); }
    constexpr bool isNonDfPort() const { return bit(2); }
    constexpr void isNonDfPortIs(bool v) { bitIs(2, v); }
    constexpr bool isMacSecViaLoopback() const { return bit(3); }
    constexpr void isMacSecViaLoopbackIs(bool v) { bitIs(3, v); }
    constexpr U16 logicalPortId() const { return value_ >> 4 & 0xffff; }
    constexpr void logicalPortIdIs(U16 v) { value_ = (value_ & ~0xffff0U) | U32{v} << 4; }
    constexpr bool sharedPort() const { return bit(20); }
    constexpr void sharedPortIs(bool v) { bitIs(20, v); }
    // The word.
    constexpr U32 hash() const { return value_; }
    constexpr void hashIs(U32 v) { value_ = v; }
    constexpr explicit operator bool() const { return value_ != 0; }

    friend constexpr bool operator==(PortProperty, PortProperty) = default;
    friend constexpr auto operator<=>(PortProperty, PortProperty) = default;

private:
    friend Vomo::Describe<PortProperty>;
    constexpr bool bit(unsigned n) const { return value_ >> n & 1; }
    constexpr void bitIs(unsigned n, bool on) { value_ = (value_ & ~(1U << n)) | U32{on} << n; }
    U32 value_ = 0;
};

// Which properties a comparison heeds. Text: the byte.
class PortPropertyMask {
public:
    constexpr PortPropertyMask() = default;
    constexpr explicit PortPropertyMask(U8 mask) : mask_(mask) {}
    explicit PortPropertyMask(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    PortPropertyMask(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U8 mask() const { return mask_; }
    constexpr void maskIs(U8 v) { mask_ = v; }
    constexpr U8 maskInc(U8 n) & { return mask_ = static_cast<U8>(mask_ + n); }
    constexpr U8 maskDec(U8 n) & { return mask_ = static_cast<U8>(mask_ - n); }
    constexpr bool mlagPort() const { return bit(0); }
    constexpr void mlagPortIs(bool v) { bitIs(0, v); }
    constexpr bool tagOnEgress() const { return bit(1); }
    constexpr void tagOnEgressIs(bool v) { bitIs(1, v); }
    constexpr bool nonDfPort() const { return bit(2); }
    constexpr void nonDfPortIs(bool v) { bitIs(2, v); }
    constexpr bool macSecViaLoopback() const { return bit(3); }
    constexpr void macSecViaLoopbackIs(bool v) { bitIs(3, v); }
    constexpr bool logicalPortId() const { return bit(4); }
    constexpr void logicalPortIdIs(bool v) { bitIs(4, v); }
    constexpr explicit operator bool() const { return mask_ != 0; }

    friend constexpr bool operator==(PortPropertyMask, PortPropertyMask) = default;

private:
    friend Vomo::Describe<PortPropertyMask>;
    constexpr bool bit(unsigned n) const { return mask_ >> n & 1; }
    constexpr void bitIs(unsigned n, bool on) {
        mask_ = static_cast<U8>((mask_ & ~(1U << n)) | static_cast<unsigned>(on) << n);
    }
    U8 mask_ = 0;
};

// One copy of a packet. VLAN and logical interface share one word: 1 to 4094 is a VLAN, so that a
// real logical interface must not use these numbers.
class PortVlan {
public:
    constexpr PortVlan() = default;
    explicit PortVlan(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    PortVlan(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IntfId port() const { return port_; }
    constexpr void portIs(Kelpie::IntfId v) { port_ = v; }
    // Of the low 16 bits of the word; raises RangeException if they are no VLAN.
    Bridging::VlanId vlanId() const { return Bridging::VlanId(static_cast<U16>(outLif_.value())); }
    constexpr void vlanIdIs(Bridging::VlanId v) { outLif_ = OutLif(v.value()); }
    constexpr OutLif outLif() const { return outLif_; }
    constexpr void outLifIs(OutLif v) { outLif_ = v; }
    constexpr Bridging::VlanIdOrNone overlayVlanId() const { return overlayVlanId_; }
    constexpr void overlayVlanIdIs(Bridging::VlanIdOrNone v) { overlayVlanId_ = v; }
    constexpr PortProperty portProperty() const { return portProperty_; }
    constexpr void portPropertyIs(PortProperty v) { portProperty_ = v; }
    // The word is no VLAN.
    constexpr bool isOutLif() const { return outLif_.value() < 1 || outLif_.value() > 4094; }
    U32 hash(U32 seed) const { return Vomo::hashFields(*this, seed); }
    constexpr explicit operator bool() const { return !(*this == PortVlan()); }

    friend constexpr bool operator==(PortVlan const&, PortVlan const&) = default;
    friend constexpr auto operator<=>(PortVlan const&, PortVlan const&) = default;

private:
    friend Vomo::Describe<PortVlan>;
    Kelpie::IntfId port_;
    OutLif outLif_;
    Bridging::VlanIdOrNone overlayVlanId_;
    Vomo::Pad<2> pad1_;
    PortProperty portProperty_;
    Vomo::Pad<4> pad2_;
};
static_assert(sizeof(PortVlan) == 24 && alignof(PortVlan) == 8);

} // namespace MrouteLib
