// Multicast tunnels: the identifier of a tunnel of any kind, and how a copy is encapsulated into one.
// The entities are in Mroute/TunnelDirs.h.
#pragma once

#include "Kelpie/IntfId.h"
#include "Kelpie/IpAddr.h"
#include "Tunnel/TunnelId.h"
#include "Vomo/Collections.h"
#include "Vomo/Value.h"

namespace Multicast::Tunnel {
class Config;
class ConfigDir;
class Status;
class StatusDir;
class TunnelId;
enum class TunnelType : U8;
namespace TunnelTable {
class FecIndex;
class McastTunnelConfig;
class McastTunnelConfigDir;
class McastTunnelEncapInfo;
class McastTunnelEncapInfoColl;
class McastTunnelStatus;
class McastTunnelStatusDir;
} // namespace TunnelTable
} // namespace Multicast::Tunnel

namespace Vomo {
extern "C" VomoModule const _McastTunnelTypes_30f62c28a09469df_vomoModule;
struct McastTunnelTypesModule
    : TypeList<Multicast::Tunnel::Config, Multicast::Tunnel::ConfigDir, Multicast::Tunnel::Status,
               Multicast::Tunnel::StatusDir, Multicast::Tunnel::TunnelId,
               Multicast::Tunnel::TunnelTable::FecIndex,
               Multicast::Tunnel::TunnelTable::McastTunnelConfig,
               Multicast::Tunnel::TunnelTable::McastTunnelConfigDir,
               Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo,
               Multicast::Tunnel::TunnelTable::McastTunnelEncapInfoColl,
               Multicast::Tunnel::TunnelTable::McastTunnelStatus,
               Multicast::Tunnel::TunnelTable::McastTunnelStatusDir,
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

// A tunnel of any kind, packed into three words, so that one collection holds all kinds. Equality,
// order and hash look at what the kind stores there: what is left over in other bits plays no part.
class TunnelId {
public:
    using MplsId = ::Tunnel::TunnelTable::TunnelId;

    constexpr TunnelId() = default;
    // Raises RangeException for an MPLS number of more than 49 bits.
    explicit TunnelId(Vomo::CharRange& range);
    // Raises AttrLogRecordException for one.
    TunnelId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    // A multicast group; another address ends the process.
    static TunnelId fromVxlanMcast(Kelpie::IpGenAddr const& vxlan);
    // Any address.
    static TunnelId fromVxlanIR(Kelpie::IpGenAddr const& vxlan);
    static TunnelId fromVxlanBum(Kelpie::IpGenAddr const& vxlan);
    static TunnelId fromVpls(Kelpie::IntfId vpls);
    static TunnelId fromMpls(MplsId const& mpls);

    // VXLAN over IPv4: the address as a number, its first byte on top of the low half. Over IPv6: the
    // upper half. VPLS: the interface's word. MPLS: the number.
    constexpr U64 storage0() const { return storage0_; }
    constexpr void storage0Is(U64 v) & { storage0_ = v; }
    constexpr U64 storage0Inc(U64 n) & { return storage0_ += n; }
    constexpr U64 storage0Dec(U64 n) & { return storage0_ -= n; }
    // VXLAN over IPv6: the lower half.
    constexpr U64 storage1() const { return storage1_; }
    constexpr void storage1Is(U64 v) & { storage1_ = v; }
    constexpr U64 storage1Inc(U64 n) & { return storage1_ += n; }
    constexpr U64 storage1Dec(U64 n) & { return storage1_ -= n; }
    // VXLAN: the number of the address family.
    constexpr U32 storage2() const { return storage2_; }
    constexpr void storage2Is(U32 v) & { storage2_ = v; }
    constexpr U32 storage2Inc(U32 n) & { return storage2_ += n; }
    constexpr U32 storage2Dec(U32 n) & { return storage2_ -= n; }
    constexpr TunnelType tunnelType() const { return tunnelType_; }
    constexpr void tunnelTypeIs(TunnelType v) & { tunnelType_ = v; }

    // Each raises TypeException for a tunnel of another kind.
    Kelpie::IpGenAddr vxlan() const {
        if (!isVxlan()) [[unlikely]]
            throwWrongLookup("vxlan");
        return address();
    }
    Kelpie::IntfId vpls() const {
        if (tunnelType_ != TunnelType::vpls) [[unlikely]]
            throwWrongLookup("vpls");
        return Kelpie::IntfId(storage0_);
    }
    // Raises RangeException for a word of more than 49 bits.
    MplsId mpls() const {
        if (tunnelType_ != TunnelType::mpls) [[unlikely]]
            throwWrongLookup("mpls");
        return MplsId(storage0_);
    }
    // An identifier of no kind becomes `vxlanMcast` or `vxlanIR`, by the address; one of another kind
    // than VXLAN, and an address of neither family, end the process.
    void vxlanIs(Kelpie::IpGenAddr const& v) &;
    // Whatever the kind was.
    void vplsIs(Kelpie::IntfId v) &;
    void mplsIs(MplsId const& v) &;
    // Clears the three words; the kind stays.
    void clearStorage() &;

    // "'vpls' data: Ethernet1", and "'vpls'(Ethernet1)".
    Vomo::String stringValue() const;
    Vomo::String str() const;

    U32 hash() const {
        switch (tunnelType_) {
        case TunnelType::invalid:
            return hashOfWords();
        case TunnelType::vxlanMcast:
        case TunnelType::vxlanIR:
        case TunnelType::vxlanBum:
            return address().v6Addr().hash();
        case TunnelType::vpls:
            return Kelpie::IntfId(storage0_).hash();
        case TunnelType::mpls: {
            Tumbrel::HashMix mix;
            mix.mixBytes8(mpls().value());
            return mix;
        }
        }
        return 0;
    }
    constexpr explicit operator bool() const {
        return storage0_ != 0 || storage1_ != 0 || storage2_ != 0 ||
               tunnelType_ != TunnelType::invalid;
    }
    // A number that is no kind equals nothing.
    friend bool operator==(TunnelId const& a, TunnelId const& b) {
        if (a.tunnelType_ != b.tunnelType_) return false;
        switch (a.tunnelType_) {
        case TunnelType::invalid:
            return a.storage0_ == b.storage0_ && a.storage1_ == b.storage1_ &&
                   a.storage2_ == b.storage2_;
        case TunnelType::vxlanMcast:
        case TunnelType::vxlanIR:
        case TunnelType::vxlanBum:
            return a.address() == b.address();
        case TunnelType::vpls:
            return a.storage0_ == b.storage0_;
        case TunnelType::mpls:
            return a.mpls() == b.mpls();
        }
        return false;
    }
    // By kind; then by hash, address, interface or number. No order for a number that is no kind: of
    // two such each is less than the other (B15), so that an identifier is the key of hash
    // collections only.
    friend bool operator<(TunnelId const& a, TunnelId const& b);

private:
    friend Vomo::Describe<TunnelId>;
    constexpr explicit TunnelId(TunnelType type) : tunnelType_(type) {}
    constexpr bool isVxlan() const {
        return tunnelType_ == TunnelType::vxlanMcast || tunnelType_ == TunnelType::vxlanIR ||
               tunnelType_ == TunnelType::vxlanBum;
    }
    // The words as an address: IPv4 unless the family is IPv6.
    constexpr Kelpie::IpGenAddr address() const {
        if (storage2_ != Kelpie::ipv6().value())
            return Kelpie::IpAddr::fromWord(static_cast<U32>(storage0_));
        auto const word = [](U64 v) { return __builtin_bswap32(static_cast<U32>(v)); };
        return Kelpie::Ip6Addr::fromNetworkWords(word(storage0_ >> 32), word(storage0_),
                                                 word(storage1_ >> 32), word(storage1_));
    }
    U32 hashOfWords() const;
    Vomo::String data() const;
    [[noreturn]] static void throwWrongLookup(char const* kind);

    U64 storage0_ = 0;
    U64 storage1_ = 0;
    U32 storage2_ = 0;
    TunnelType tunnelType_ = TunnelType::invalid;
};
static_assert(sizeof(TunnelId) == 24 && alignof(TunnelId) == 8);

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
    // As the key of a collection.
    U32 hash(U32 seed) const;
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

// The encapsulations of one tunnel, by hardware entry. An entry of number `FecIndex::null` cannot be
// replicated: it is the end mark of the log. Text: "None", and not read back.
class McastTunnelEncapInfoColl {
public:
    enum Attr : U32 { encapInfoAttr = 2 };

    McastTunnelEncapInfoColl() = default;
    // Ends the process: a collection has no text form.
    explicit McastTunnelEncapInfoColl(Vomo::CharRange& range);
    McastTunnelEncapInfoColl(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    using EncapInfoMap = Vomo::ValueMap<McastTunnelEncapInfoColl, encapInfoAttr, FecIndex,
                                        McastTunnelEncapInfo, Vomo::SeededHash<0xB704ABBA>>;
    using VomoEncapInfo = EncapInfoMap::Node;
    // The default if there is none.
    McastTunnelEncapInfo encapInfo(FecIndex fec) const { return encapInfo_.at(fec); }
    EncapInfoMap const& encapInfo() const { return encapInfo_; }
    void encapInfoIs(FecIndex fec, McastTunnelEncapInfo const& v) & { encapInfo_.is(this, fec, v); }
    // Returns the old value; the default if there was none.
    McastTunnelEncapInfo encapInfoDel(FecIndex fec) & { return encapInfo_.del(this, fec); }
    void encapInfoDelAll() & { encapInfo_.deleteAll(); }

    // Not empty.
    explicit operator bool() const { return encapInfo_.members() != 0; }
    friend bool operator==(McastTunnelEncapInfoColl const&,
                           McastTunnelEncapInfoColl const&) = default;

private:
    friend Vomo::Describe<McastTunnelEncapInfoColl>;
    EncapInfoMap encapInfo_;
};
U32 attrLogSize(McastTunnelEncapInfoColl const* v);

} // namespace Multicast::Tunnel::TunnelTable
