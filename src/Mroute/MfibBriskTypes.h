// The records of the shared route tables: routes with their outgoing-interface bitmap, the interface
// of each bit, and the tables of bidirectional multicast.
#pragma once

#include "Kelpie/IntfId.h"
#include "Mroute/MfibTypes.h"
#include "VomoBrisk/MountInfo.h"

#include <utility>

namespace Brisk::Multicast::Fib {
class BidirGroup;
class BidirStatus;
class DfProfile;
class IntfOifIndex;
class MfibDir;
class MfibDirColl;
class OifIndex;
class OifIndexIntf;
class Route;
class RouteOrderedCollection;
class Status;
class TableInfo;
} // namespace Brisk::Multicast::Fib

namespace Vomo {
extern "C" VomoModule const _MfibBriskTypes_aaea5100197a8ed6_vomoModule;
struct MfibBriskTypesModule
    : TypeList<Brisk::Multicast::Fib::BidirGroup, Brisk::Multicast::Fib::BidirStatus,
               Brisk::Multicast::Fib::DfProfile, Brisk::Multicast::Fib::IntfOifIndex,
               Brisk::Multicast::Fib::MfibDir, Brisk::Multicast::Fib::MfibDirColl,
               Brisk::Multicast::Fib::OifIndex, Brisk::Multicast::Fib::OifIndexIntf,
               Brisk::Multicast::Fib::Route, Brisk::Multicast::Fib::RouteOrderedCollection,
               Brisk::Multicast::Fib::Status, Brisk::Multicast::Fib::TableInfo> {
    static constexpr VomoModule const* record = &_MfibBriskTypes_aaea5100197a8ed6_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<MfibBriskTypesModule> T>
struct IdOf<T> : PlaceIn<T, MfibBriskTypesModule> {};
} // namespace Vomo

namespace Brisk::Multicast::Fib {

using Routing::Multicast::Fib::IifFlags;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteFlags;
using Routing::Multicast::Fib::RoutePriority;
using Routing::Multicast::Fib::RpaIndex;
using Vomo::operator<<;
using Vomo::valueToStrep;

// The number of an outgoing interface: 0 to 511, or 512 for none. Above that RangeException. Text:
// the number.
class OifIndex {
public:
    static constexpr U16 null = 512;
    static constexpr U16 min = 0;
    static constexpr U16 max = 511;

    constexpr OifIndex() = default;
    constexpr explicit OifIndex(U16 value) : value_(value) {
        if (value > null) throwOutOfRange();
    }
    explicit OifIndex(Vomo::CharRange& range);
    OifIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr U16 value() const { return value_; }
    constexpr U32 hash() const { return value_; }
    constexpr explicit operator bool() const { return value_ != null; }

    friend constexpr bool operator==(OifIndex, OifIndex) = default;
    friend constexpr auto operator<=>(OifIndex, OifIndex) = default;

private:
    friend Vomo::Describe<OifIndex>;
    [[noreturn]] static void throwOutOfRange();
    U16 value_ = null;
};
static_assert(sizeof(OifIndex) == 2);

// One route: key, incoming interfaces, flags, and a bit for each outgoing interface; the table of
// OifIndexIntf tells which interface a bit is. `maxOifIndex` and `version` are the writer's to
// maintain.
class Route {
public:
    static constexpr U8 bitsPerWord = 64;
    static constexpr U8 numWords = 8;

    class OifIteratorConst;

    constexpr Route() = default;
    constexpr explicit Route(IpGenRouteKey const& key) : key_(key) {}
    explicit Route(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    Route(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr IpGenRouteKey const& key() const { return key_; }
    constexpr Kelpie::IntfId iif() const { return iif_; }
    constexpr void iifIs(Kelpie::IntfId v) { iif_ = v; }
    // Incoming interface of fast reroute.
    constexpr Kelpie::IntfId iifFrr() const { return iifFrr_; }
    constexpr void iifFrrIs(Kelpie::IntfId v) { iifFrr_ = v; }
    constexpr Kelpie::IntfId notify() const { return notify_; }
    constexpr void notifyIs(Kelpie::IntfId v) { notify_ = v; }
    constexpr Kelpie::IntfId fastdrop() const { return fastdrop_; }
    constexpr void fastdropIs(Kelpie::IntfId v) { fastdrop_ = v; }
    constexpr bool notifyProgrammable() const { return notifyProgrammable_; }
    constexpr void notifyProgrammableIs(bool v) { notifyProgrammable_ = v; }
    constexpr RouteFlags routeFlags() const { return routeFlags_; }
    constexpr void routeFlagsIs(RouteFlags v) { routeFlags_ = v; }
    constexpr IifFlags iifFlags() const { return iifFlags_; }
    constexpr void iifFlagsIs(IifFlags v) { iifFlags_ = v; }
    constexpr RpaIndex rpaId() const { return rpaId_; }
    constexpr void rpaIdIs(RpaIndex v) { rpaId_ = v; }
    constexpr OifIndex maxOifIndex() const { return maxOifIndex_; }
    constexpr void maxOifIndexIs(OifIndex v) { maxOifIndex_ = v; }
    constexpr RoutePriority routePriority() const { return routePriority_; }
    constexpr void routePriorityIs(RoutePriority v) { routePriority_ = v; }
    constexpr U32 version() const { return version_; }
    constexpr void versionIs(U32 v) { version_ = v; }
    constexpr U32 versionInc(U32 n) & { return version_ += n; }
    constexpr U32 versionDec(U32 n) & { return version_ -= n; }

    // Views on the flags.
    constexpr bool valid() const { return routeFlags_.valid(); }
    constexpr void validIs(bool v) { routeFlags_.validIs(v); }
    constexpr bool toCpu() const { return routeFlags_.toCpu(); }
    constexpr void toCpuIs(bool v) { routeFlags_.toCpuIs(v); }
    constexpr bool iifRegister() const { return routeFlags_.iifRegister(); }
    constexpr void iifRegisterIs(bool v) { routeFlags_.iifRegisterIs(v); }
    constexpr bool oifRegister() const { return routeFlags_.oifRegister(); }
    constexpr void oifRegisterIs(bool v) { routeFlags_.oifRegisterIs(v); }
    constexpr bool programmable() const { return routeFlags_.programmable(); }
    constexpr void programmableIs(bool v) { routeFlags_.programmableIs(v); }
    constexpr bool skipSoftwareProgramming() const { return routeFlags_.skipSoftwareProgramming(); }
    constexpr void skipSoftwareProgrammingIs(bool v) { routeFlags_.skipSoftwareProgrammingIs(v); }
    constexpr bool iifPmsi() const { return routeFlags_.iifPmsi(); }
    constexpr void iifPmsiIs(bool v) { routeFlags_.iifPmsiIs(v); }
    constexpr bool virtualRoute() const { return routeFlags_.virtualRoute(); }
    constexpr void virtualRouteIs(bool v) { routeFlags_.virtualRouteIs(v); }
    constexpr bool noRpf() const { return iifFlags_.noRpf(); }
    constexpr void noRpfIs(bool v) { iifFlags_.noRpfIs(v); }

    // The outgoing interfaces. Indexes are below 512: there is no range test.
    constexpr bool oif(OifIndex i) const { return oifBitmap_[word(i)] >> (i.value() & 63) & 1; }
    // Sets the bit, whatever the second argument; only oifDel clears.
    constexpr void oifIs(OifIndex i, bool) { oifBitmap_[word(i)] |= U64{1} << (i.value() & 63); }
    // Clears the bit; returns what it was.
    constexpr bool oifDel(OifIndex i) {
        bool const was = oif(i);
        oifBitmap_[word(i)] &= ~(U64{1} << (i.value() & 63));
        return was;
    }
    // Word `w`, 0 to 7: index i is bit i % 64 of word i / 64.
    constexpr U64 oifBitmap(U8 w) const { return oifBitmap_[w]; }
    constexpr void oifBitmapIs(U8 w, U64 bits) { oifBitmap_[w] = bits; }
    // Zeroes the word; returns what it was.
    constexpr U64 oifBitmapDel(U8 w) { return std::exchange(oifBitmap_[w], 0); }
    constexpr U64 oifBitmap1() const { return oifBitmap_[0]; }
    constexpr U64 oifBitmap2() const { return oifBitmap_[1]; }
    constexpr U64 oifBitmap3() const { return oifBitmap_[2]; }
    constexpr U64 oifBitmap4() const { return oifBitmap_[3]; }
    constexpr U64 oifBitmap5() const { return oifBitmap_[4]; }
    constexpr U64 oifBitmap6() const { return oifBitmap_[5]; }
    constexpr U64 oifBitmap7() const { return oifBitmap_[6]; }
    constexpr U64 oifBitmap8() const { return oifBitmap_[7]; }
    constexpr void oifBitmap1Is(U64 v) { oifBitmap_[0] = v; }
    constexpr void oifBitmap2Is(U64 v) { oifBitmap_[1] = v; }
    constexpr void oifBitmap3Is(U64 v) { oifBitmap_[2] = v; }
    constexpr void oifBitmap4Is(U64 v) { oifBitmap_[3] = v; }
    constexpr void oifBitmap5Is(U64 v) { oifBitmap_[4] = v; }
    constexpr void oifBitmap6Is(U64 v) { oifBitmap_[5] = v; }
    constexpr void oifBitmap7Is(U64 v) { oifBitmap_[6] = v; }
    constexpr void oifBitmap8Is(U64 v) { oifBitmap_[7] = v; }
    // How many bits are set, modulo 256.
    U8 oifs() const;
    // The next index set behind `i`, or the first for `null`; `null` at the end. Looks no further
    // than the word of maxOifIndex, and finds nothing while that is `null`.
    OifIndex nextOif(OifIndex i) const;
    // Walks a copy of the route; the second form begins at `i` if its bit is set, else behind it.
    OifIteratorConst oifIteratorConst() const;
    OifIteratorConst oifIteratorConst(OifIndex i) const;

    // The source prefix length and rpaId are 0, and the route is not the default one.
    bool isStarG() const;
    // One line for debugging. The flags stand in it as raw bytes.
    Vomo::String briskString() const;

    // What differs: a route whose words, interfaces and flags tell the differences. An interface
    // that is empty in one route is taken from the other.
    Route operator^(Route const& other) const;
    // The part of `other` that this route, usually a difference, selects.
    Route operator&(Route const& other) const;

    constexpr explicit operator bool() const { return !(*this == Route()); }
    friend constexpr bool operator==(Route const&, Route const&) = default;

private:
    friend Vomo::Describe<Route>;
    static constexpr U8 word(OifIndex i) { return static_cast<U8>(i.value() >> 6); }
    static void checkLayout();

    IpGenRouteKey key_;
    Kelpie::IntfId iif_;
    Kelpie::IntfId iifFrr_;
    Kelpie::IntfId notify_;
    Kelpie::IntfId fastdrop_;
    bool notifyProgrammable_ = false;
    RouteFlags routeFlags_;
    IifFlags iifFlags_;
    Vomo::Pad<1> pad1_;
    RpaIndex rpaId_;
    OifIndex maxOifIndex_;
    RoutePriority routePriority_;
    Vomo::Pad<3> pad2_;
    U32 version_ = 0;
    U64 oifBitmap_[numWords] = {};
};
static_assert(sizeof(Route) == 160 && alignof(Route) == 8);

// A walk over the outgoing interfaces of a copy of a route.
class Route::OifIteratorConst {
public:
    OifIteratorConst(Route const& route, OifIndex at) : route_(route), index_(at), done_(!at) {}
    explicit operator bool() const { return !done_; }
    bool done() const { return done_; }
    OifIndex operator*() const { return index_; }
    OifIndex key() const { return index_; }
    OifIteratorConst& operator++() {
        index_ = route_.nextOif(index_);
        done_ = !index_;
        return *this;
    }

private:
    Route route_;
    OifIndex index_;
    bool done_;
};

// The interface of an OifIndex and how many routes use it: the value of the table `oifIndexIntf`.
class OifIndexIntf {
public:
    constexpr OifIndexIntf() = default;
    constexpr OifIndexIntf(OifIndex key, Kelpie::IntfId intf) : key_(key), intf_(intf) {}
    explicit OifIndexIntf(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    OifIndexIntf(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr OifIndex key() const { return key_; }
    constexpr Kelpie::IntfId intf() const { return intf_; }
    constexpr U32 refCount() const { return refCount_; }
    constexpr void refCountIs(U32 v) { refCount_ = v; }
    // Both wrap around.
    constexpr U32 refCountInc(U32 n) & { return refCount_ += n; }
    constexpr U32 refCountDec(U32 n) & { return refCount_ -= n; }
    // "[7] Ethernet1 RC: 3"
    Vomo::String briskString() const;
    constexpr explicit operator bool() const { return !(*this == OifIndexIntf()); }

    friend constexpr bool operator==(OifIndexIntf const&, OifIndexIntf const&) = default;

private:
    friend Vomo::Describe<OifIndexIntf>;
    static void checkLayout();

    OifIndex key_;
    Vomo::Pad<6> pad1_;
    Kelpie::IntfId intf_;
    U32 refCount_ = 0;
    Vomo::Pad<4> pad2_;
};
static_assert(sizeof(OifIndexIntf) == 24 && alignof(OifIndexIntf) == 8);

// The reverse mapping, as a value.
class IntfOifIndex {
public:
    constexpr IntfOifIndex() = default;
    constexpr IntfOifIndex(Kelpie::IntfId key, OifIndex oifIndex)
        : key_(key), oifIndex_(oifIndex) {}
    explicit IntfOifIndex(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    IntfOifIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IntfId key() const { return key_; }
    constexpr OifIndex oifIndex() const { return oifIndex_; }
    constexpr explicit operator bool() const { return !(*this == IntfOifIndex()); }

    friend constexpr bool operator==(IntfOifIndex const&, IntfOifIndex const&) = default;

private:
    friend Vomo::Describe<IntfOifIndex>;
    Kelpie::IntfId key_;
    OifIndex oifIndex_;
    Vomo::Pad<6> pad_;
};
static_assert(sizeof(IntfOifIndex) == 16);

// The bidirectional groups for which an interface is designated forwarder.
class DfProfile {
public:
    constexpr DfProfile() = default;
    constexpr explicit DfProfile(Kelpie::IntfId key) : key_(key) {}
    explicit DfProfile(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    DfProfile(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IntfId key() const { return key_; }
    constexpr U64 dfBitmap() const { return dfBitmap_; }
    constexpr void dfBitmapIs(U64 v) { dfBitmap_ = v; }
    constexpr U64 dfBitmapInc(U64 n) & { return dfBitmap_ += n; }
    constexpr U64 dfBitmapDec(U64 n) & { return dfBitmap_ -= n; }
    // "[Ethernet1]5"
    Vomo::String briskString() const;
    constexpr explicit operator bool() const { return !(*this == DfProfile()); }

    friend constexpr bool operator==(DfProfile const&, DfProfile const&) = default;

private:
    friend Vomo::Describe<DfProfile>;
    Kelpie::IntfId key_;
    U64 dfBitmap_ = 0;
};
static_assert(sizeof(DfProfile) == 16);

// A group range of bidirectional multicast and its rendezvous point.
class BidirGroup {
public:
    constexpr BidirGroup() = default;
    constexpr explicit BidirGroup(Kelpie::IpGenPrefix const& key) : key_(key) {}
    explicit BidirGroup(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    BidirGroup(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IpGenPrefix const& key() const { return key_; }
    constexpr RpaIndex rpa() const { return rpa_; }
    constexpr void rpaIs(RpaIndex v) { rpa_ = v; }
    // "[239.0.0.0/8]5"
    Vomo::String briskString() const;
    constexpr explicit operator bool() const { return !(*this == BidirGroup()); }

    friend constexpr bool operator==(BidirGroup const&, BidirGroup const&) = default;

private:
    friend Vomo::Describe<BidirGroup>;
    Kelpie::IpGenPrefix key_;
    RpaIndex rpa_;
    Vomo::Pad<2> pad_;
};
static_assert(sizeof(BidirGroup) == 28 && alignof(BidirGroup) == 4);

// The sizes of the route tables; holds nothing itself. Text: empty.
class TableInfo {
public:
    static constexpr U32 maxRoutes = 12000;
    static constexpr U32 maxOifIndexs = 1024;
    // Of a mount in that role: the tables "route" and "oifIndexIntf" of these sizes.
    static VomoBrisk::MountInfo mfibMountInfo(VomoBrisk::VomoBriskType type);

    constexpr TableInfo() = default;
    explicit TableInfo(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    TableInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }
    constexpr explicit operator bool() const { return false; }

    friend constexpr bool operator==(TableInfo, TableInfo) = default;
};

// The number itself.
std::ostream& operator<<(std::ostream& stream, OifIndex v);

} // namespace Brisk::Multicast::Fib
