// A replication list as a value, why the CPU takes a copy, and how two lists differ.
#pragma once

#include "Mroute/MfibTypes.h"
#include "Mroute/PortVlan.h"
#include "Vomo/Collections.h"
#include "Vomo/FlagSet.h"

namespace MrouteLib {
class PortVlanSet;
enum class PvSetChange : U8;
class ToCpuPurpose;
class TunnelPortVlanSet;
} // namespace MrouteLib

namespace Vomo {
extern "C" VomoModule const _PortVlanSet_a48c9f8d500e2295_vomoModule;
struct PortVlanSetModule : TypeList<MrouteLib::PortVlanSet, MrouteLib::PvSetChange,
                                    MrouteLib::ToCpuPurpose, MrouteLib::TunnelPortVlanSet> {
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

// The copies to make of a packet, with the copies that take over on fast reroute, the VLANs to
// translate to and the accepting interface and VLAN. Routes with equal sets share one hardware entry.
// Comparisons begin with the hash, which is refreshed by `saveHash` alone: a set whose members have
// changed since compares by the stale one. Text: without the collections, and not read back.
class PortVlanSet {
public:
    enum Attr : U32 { portVlanAttr = 2, natVlanAttr = 10, portVlanFrrAttr = 13 };
    using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

    PortVlanSet() = default;
    // Ends the process: a collection has no text form.
    explicit PortVlanSet(Vomo::CharRange& range);
    PortVlanSet(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    // The copies. A member may be false, which is not the same as none.
    using PortVlanMap = Vomo::OrderedMap<PortVlanSet, portVlanAttr, PortVlan, bool>;
    using VomoPortVlan = PortVlanMap::Node;
    bool portVlan(PortVlan const& pv) const { return portVlan_.at(pv); }
    PortVlanMap const& portVlan() const { return portVlan_; }
    void portVlanIs(PortVlan const& pv, bool value) { portVlan_.is(this, pv, value); }
    bool portVlanDel(PortVlan const& pv) { return portVlan_.del(this, pv); }
    bool portVlanDel(PortVlanMap::Iterator const& at) { return portVlan_.del(this, at); }
    void portVlanDelAll() { portVlan_.delAll(this); }
    // The VLANs to translate to.
    using NatVlanMap = Vomo::OrderedMap<PortVlanSet, natVlanAttr, Bridging::VlanIdOrNone, bool>;
    using VomoNatVlan = NatVlanMap::Node;
    bool natVlan(Bridging::VlanIdOrNone vlan) const { return natVlan_.at(vlan); }
    bool natVlanHas(Bridging::VlanIdOrNone vlan) const { return natVlan_.has(vlan); }
    NatVlanMap const& natVlan() const { return natVlan_; }
    void natVlanIs(Bridging::VlanIdOrNone vlan, bool value) { natVlan_.is(this, vlan, value); }
    bool natVlanDel(Bridging::VlanIdOrNone vlan) { return natVlan_.del(this, vlan); }
    bool natVlanDel(NatVlanMap::Iterator const& at) { return natVlan_.del(this, at); }
    void natVlanDelAll() { natVlan_.delAll(this); }
    // The copies on fast reroute.
    using PortVlanFrrMap = Vomo::OrderedMap<PortVlanSet, portVlanFrrAttr, PortVlan, bool>;
    using VomoPortVlanFrr = PortVlanFrrMap::Node;
    bool portVlanFrr(PortVlan const& pv) const { return portVlanFrr_.at(pv); }
    PortVlanFrrMap const& portVlanFrr() const { return portVlanFrr_; }
    void portVlanFrrIs(PortVlan const& pv, bool value) { portVlanFrr_.is(this, pv, value); }
    bool portVlanFrrDel(PortVlan const& pv) { return portVlanFrr_.del(this, pv); }
    bool portVlanFrrDel(PortVlanFrrMap::Iterator const& at) { return portVlanFrr_.del(this, at); }
    void portVlanFrrDelAll() { portVlanFrr_.delAll(this); }

    ToCpuPurpose toCpuPurpose() const { return toCpuPurpose_; }
    void toCpuPurposeIs(ToCpuPurpose v) { toCpuPurpose_ = v; }
    // For any purpose; a write changes `toCpuMcast` alone.
    bool toCpu() const { return bool(toCpuPurpose_); }
    void toCpuIs(bool v) { toCpuPurpose_.toCpuMcastIs(v); }
    U32 featureFlag() const { return featureFlag_; }
    void featureFlagIs(U32 v) { featureFlag_ = v; }
    U32 featureFlagInc(U32 n) & { return featureFlag_ += n; }
    U32 featureFlagDec(U32 n) & { return featureFlag_ -= n; }
    // 0 if none is cached.
    U32 cachedHash() const { return cachedHash_; }
    void cachedHashIs(U32 v) { cachedHash_ = v; }
    U32 cachedHashInc(U32 n) & { return cachedHash_ += n; }
    U32 cachedHashDec(U32 n) & { return cachedHash_ -= n; }
    // Of the route that the set belongs to.
    RouteKeyType type() const { return type_; }
    void typeIs(RouteKeyType v) { type_ = v; }
    Bridging::VlanIdOrNone acceptingVlanId() const { return acceptingVlanId_; }
    void acceptingVlanIdIs(Bridging::VlanIdOrNone v) { acceptingVlanId_ = v; }
    bool fastdrop() const { return fastdrop_; }
    void fastdropIs(bool v) { fastdrop_ = v; }
    Kelpie::IntfId currentIif() const { return currentIif_; }
    void currentIifIs(Kelpie::IntfId v) { currentIif_ = v; }
    // A hint that travels with the set: no part of equality or hash.
    bool optUnknownMcastFloodset() const { return optUnknownMcastFloodset_; }
    void optUnknownMcastFloodsetIs(bool v) { optUnknownMcastFloodset_ = v; }
    bool bidir() const { return bidir_; }
    void bidirIs(bool v) { bidir_ = v; }
    // `type` plays no part in comparisons.
    bool ignoreType() const { return ignoreType_; }
    void ignoreTypeIs(bool v) { ignoreType_ = v; }

    // The cached hash, or the computed one if it is 0.
    U32 hash() const { return cachedHash_ != 0 ? cachedHash_ : computeHash(); }
    // Leaves the properties of ports out, so that sets that differ in these alone share a hash.
    U32 computeHash() const;
    void saveHash() { cachedHash_ = computeHash(); }
    // "2 PVs - (Cpu 0xff) ..."; after a feature flag all numbers of the stream are hexadecimal.
    Vomo::String pretty() const;
    // Adds the copies of `other`, all true, and its purposes; `other` may be this set.
    void merge(PortVlanSet const& other);
    // Removes the copies that `other` has; not the inverse of `merge`.
    void discard(PortVlanSet const& other);
    // Cheap tests first. `dfChanged`: only `isNonDfPort` of members differs.
    PvSetChange cmpPortVlanSet(PortVlanSet const& other) const;
    // The same of the copies alone.
    PvSetChange cmpPortVlan(PortVlanSet const& other) const;

    explicit operator bool() const { return !(*this == PortVlanSet()); }
    friend bool operator==(PortVlanSet const& a, PortVlanSet const& b);
    // In declared order, without the hash.
    friend bool operator<(PortVlanSet const& a, PortVlanSet const& b);

private:
    friend Vomo::Describe<PortVlanSet>;
    bool isAlike(PortVlanSet const& other) const;

    PortVlanMap portVlan_;
    ToCpuPurpose toCpuPurpose_;
    U32 featureFlag_ = 0;
    U32 cachedHash_ = 0;
    RouteKeyType type_ = RouteKeyType::unknownRouteKeyType;
    Bridging::VlanIdOrNone acceptingVlanId_;
    NatVlanMap natVlan_;
    bool fastdrop_ = false;
    Kelpie::IntfId currentIif_;
    PortVlanFrrMap portVlanFrr_;
    bool optUnknownMcastFloodset_ = false;
    bool bidir_ = false;
    bool ignoreType_ = false;
};
static_assert(sizeof(PortVlanSet) == 96 && alignof(PortVlanSet) == 8);
U32 attrLogSize(PortVlanSet const* v);

// A set with a version, which a tunnel carries. Has no hash. Text: not read back.
class TunnelPortVlanSet {
public:
    TunnelPortVlanSet() = default;
    // Ends the process at the set.
    explicit TunnelPortVlanSet(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    TunnelPortVlanSet(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    U64 version() const { return version_; }
    void versionIs(U64 v) { version_ = v; }
    U64 versionInc(U64 n) & { return version_ += n; }
    U64 versionDec(U64 n) & { return version_ -= n; }
    bool versionValid() const { return versionValid_; }
    void versionValidIs(bool v) { versionValid_ = v; }
    PortVlanSet const& pvSet() const { return pvSet_; }
    void pvSetIs(PortVlanSet const& v) { pvSet_ = v; }
    explicit operator bool() const { return !(*this == TunnelPortVlanSet()); }

    friend bool operator==(TunnelPortVlanSet const&, TunnelPortVlanSet const&) = default;
    friend bool operator<(TunnelPortVlanSet const& a, TunnelPortVlanSet const& b);

private:
    friend Vomo::Describe<TunnelPortVlanSet>;
    U64 version_ = 0;
    bool versionValid_ = false;
    PortVlanSet pvSet_;
};
static_assert(sizeof(TunnelPortVlanSet) == 112 && alignof(TunnelPortVlanSet) == 8);
U32 attrLogSize(TunnelPortVlanSet const* v);

} // namespace MrouteLib
