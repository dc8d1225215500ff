// Small values of a replication list: why the CPU takes a copy, and how two lists differ.
#pragma once

#include "Vomo/FlagSet.h"

namespace MrouteLib {
enum class PvSetChange : U8;
class ToCpuPurpose;
} // namespace MrouteLib

namespace Vomo {
extern "C" {
extern VomoModule const _PortVlanSet_a48c9f8d500e2295_vomoModule;
}
extern ValueFrames<2> const PortVlanSetFrames;
template <U16 index>
struct InPortVlanSet
    : InFramedModule<&_PortVlanSet_a48c9f8d500e2295_vomoModule, &PortVlanSetFrames, index> {};
template <>
struct IdOf<MrouteLib::PvSetChange> : InPortVlanSet<0> {};
template <>
struct IdOf<MrouteLib::ToCpuPurpose> : InPortVlanSet<1> {};
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

    constexpr bool toCpuMcast() const { return bit(0); }
    constexpr void toCpuMcastIs(bool v) { bitIs(0, v); }
    constexpr bool toCpuVxlan() const { return bit(1); }
    constexpr void toCpuVxlanIs(bool v) { bitIs(1, v); }
};
inline constexpr ToCpuPurpose ToCpuPurpose::toCpuMcast_{1}, ToCpuPurpose::toCpuVxlan_{2};

} // namespace MrouteLib
