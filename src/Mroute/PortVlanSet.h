// Small values of a replication list: why the CPU takes a copy, and how two lists differ.
#pragma once

#include "Vomo/FlagSet.h"

namespace MrouteLib {
enum class PvSetChange : U8;
class ToCpuPurpose;
} // namespace MrouteLib

namespace Vomo {
extern "C" VomoModule const _PortVlanSet_a48c9f8d500e2295_vomoModule;
struct PortVlanSetModule : TypeList<MrouteLib::PvSetChange, MrouteLib::ToCpuPurpose> {
    static constexpr VomoModule const* record = &_PortVlanSet_a48c9f8d500e2295_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<PortVlanSetModule> T>
struct IdOf<T> : PlaceIn<T, PortVlanSetModule> {};
} // namespace Vomo

namespace MrouteLib {

using Vomo::operator<<;
using Vomo::sequenceToValue;
using Vomo::stringValue;
using Vomo::valueToStrep;

enum class PvSetChange : U8 {
    changed = 0,
    dfChanged = 1, // only members that are no designated forwarder any more, or are again
    noChange = 2,
};
inline PvSetChange PvSetChangeInstance(unsigned int number) {
    return Vomo::enumInstance<PvSetChange>(number);
}
inline PvSetChange PvSetChangeInstance(Vomo::String const& name) {
    return Vomo::enumInstance<PvSetChange>(name);
}

class ToCpuPurpose : public Vomo::FlagSet<ToCpuPurpose, 3> {
public:
    static ToCpuPurpose const toCpuMcast_, toCpuVxlan_;

    using FlagSet::FlagSet;

    constexpr bool toCpuMcast() const { return has(toCpuMcast_); }
    constexpr void toCpuMcastIs(bool v) { set(toCpuMcast_, v); }
    constexpr bool toCpuVxlan() const { return has(toCpuVxlan_); }
    constexpr void toCpuVxlanIs(bool v) { set(toCpuVxlan_, v); }
};
inline constexpr ToCpuPurpose ToCpuPurpose::toCpuMcast_{1}, ToCpuPurpose::toCpuVxlan_{2};

} // namespace MrouteLib
