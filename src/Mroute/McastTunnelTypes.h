// Multicast tunnels: their kinds, and how a copy is encapsulated into one.
#pragma once

#include "Kelpie/IntfId.h"
#include "Vomo/Value.h"

namespace Multicast::Tunnel {
enum class TunnelType : U8;
namespace TunnelTable {
class FecIndex;
class McastTunnelEncapInfo;
} // namespace TunnelTable
} // namespace Multicast::Tunnel

namespace Vomo {
extern "C" VomoModule const _McastTunnelTypes_30f62c28a09469df_vomoModule;
struct McastTunnelTypesModule : TypeList<Multicast::Tunnel::TunnelTable::FecIndex,
                                         Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo,
                                         Multicast::Tunnel::TunnelType> {
    static constexpr VomoModule const* record = &_McastTunnelTypes_30f62c28a09469df_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<McastTunnelTypesModule> T>
struct IdOf<T> : PlaceIn<T, McastTunnelTypesModule> {};
} // namespace Vomo

namespace Multicast::Tunnel {

using Vomo::operator<<;
using Vomo::sequenceToValue;
using Vomo::stringValue;
using Vomo::valueToStrep;

// What a tunnel's identifier holds.
enum class TunnelType : U8 {
    invalid = 0,
    vxlanMcast = 1, // a multicast group's address
    vxlanIR = 2,    // a unicast peer: ingress replication
    vpls = 3,       // a pseudowire's interface
    mpls = 4,       // a number of the tunnel table
    vxlanBum = 5,   // an address: broadcast, unknown unicast and multicast
};
inline TunnelType TunnelTypeInstance(unsigned int number) {
    return Vomo::enumInstance<TunnelType>(number);
}
inline TunnelType TunnelTypeInstance(Vomo::String const& name) {
    return Vomo::enumInstance<TunnelType>(name);
}

} // namespace Multicast::Tunnel

namespace Multicast::Tunnel::TunnelTable {

using Vomo::operator<<;
using Vomo::valueToStrep;

// The number of a forwarding equivalence class in hardware; none by default. Text: the number.
class FecIndex {
public:
    static constexpr U32 null = 0xFFFFFFFF;

    constexpr FecIndex() = default;
    constexpr explicit FecIndex(U32 value) : value_(value) {}
    explicit FecIndex(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    FecIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U32 value() const { return value_; }
    constexpr U32 hash() const { return value_; }
    constexpr explicit operator bool() const { return value_ != null; }

    friend constexpr bool operator==(FecIndex, FecIndex) = default;
    friend constexpr auto operator<=>(FecIndex, FecIndex) = default;

private:
    friend Vomo::Describe<FecIndex>;
    U32 value_ = null;
};
static_assert(sizeof(FecIndex) == 4);
// The number itself.
std::ostream& operator<<(std::ostream& stream, FecIndex v);

// How a copy is encapsulated: hardware entry, logical interface, layer-2 interface.
class McastTunnelEncapInfo {
public:
    constexpr McastTunnelEncapInfo() = default;
    constexpr explicit McastTunnelEncapInfo(FecIndex fecIndex) : fecIndex_(fecIndex) {}
    explicit McastTunnelEncapInfo(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    McastTunnelEncapInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr FecIndex fecIndex() const { return fecIndex_; }
    constexpr U32 outlifId() const { return outlifId_; }
    constexpr void outlifIdIs(U32 v) { outlifId_ = v; }
    constexpr U32 outlifIdInc(U32 n) & { return outlifId_ += n; }
    constexpr U32 outlifIdDec(U32 n) & { return outlifId_ -= n; }
    constexpr Kelpie::IntfId l2IntfId() const { return l2IntfId_; }
    constexpr void l2IntfIdIs(Kelpie::IntfId v) { l2IntfId_ = v; }
    constexpr explicit operator bool() const { return !(*this == McastTunnelEncapInfo()); }

    friend constexpr bool operator==(McastTunnelEncapInfo const&,
                                     McastTunnelEncapInfo const&) = default;

private:
    friend Vomo::Describe<McastTunnelEncapInfo>;
    FecIndex fecIndex_;
    U32 outlifId_ = 0;
    Kelpie::IntfId l2IntfId_;
};
static_assert(sizeof(McastTunnelEncapInfo) == 16 && alignof(McastTunnelEncapInfo) == 8);

} // namespace Multicast::Tunnel::TunnelTable
