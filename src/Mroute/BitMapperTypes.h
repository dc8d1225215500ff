// The bit mapper: numbered bits, the interface and address that a bit stands for, and the list of
// those that wait for a bit.
#pragma once

#include "Kelpie/IntfId.h"
#include "Kelpie/IpAddr.h"
#include "VomoBrisk/MountInfo.h"

namespace BitMapper {
class BitIndex;
class BitMapperKey;
class BitIndexMap;
class BriskStatus;
class WaitlistMap;
class TableInfo;
} // namespace BitMapper

namespace Vomo {
extern "C" VomoModule const _BitMapperTypes_f5722ab7f2af9957_vomoModule;
struct BitMapperTypesModule
    : TypeList<BitMapper::BitIndex, BitMapper::BitIndexMap, BitMapper::BitMapperKey,
               BitMapper::BriskStatus, BitMapper::TableInfo, BitMapper::WaitlistMap> {
    static constexpr VomoModule const* record = &_BitMapperTypes_f5722ab7f2af9957_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<BitMapperTypesModule> T>
struct IdOf<T> : PlaceIn<T, BitMapperTypesModule> {};
} // namespace Vomo

namespace BitMapper {

using Vomo::operator<<;
using Vomo::valueToStrep;

// The number of a bit; any 16-bit value. Text: the number.
class BitIndex {
public:
    static constexpr U16 min = 0;
    static constexpr U16 null = 65535;
    static constexpr U32 invalid = 65534;

    constexpr BitIndex() = default;
    constexpr explicit BitIndex(U16 value) : value_(value) {}
    explicit BitIndex(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    BitIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U16 value() const { return value_; }
    constexpr U32 hash() const { return value_; }
    // `null` counts as valid.
    constexpr bool isValid() const { return value_ != invalid; }
    constexpr bool isNull() const { return value_ == null; }
    constexpr explicit operator bool() const { return value_ != null; }

    friend constexpr bool operator==(BitIndex, BitIndex) = default;
    friend constexpr auto operator<=>(BitIndex, BitIndex) = default;

private:
    friend Vomo::Describe<BitIndex>;
    U16 value_ = null;
};
static_assert(sizeof(BitIndex) == 2);

// An interface and an address: what asks for a bit.
class BitMapperKey {
public:
    constexpr BitMapperKey() = default;
    constexpr BitMapperKey(Kelpie::IntfId intfId, Kelpie::IpGenAddr const& ipGenAddr)
        : intfId_(intfId), ipGenAddr_(ipGenAddr) {}
    explicit BitMapperKey(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    BitMapperKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IntfId intfId() const { return intfId_; }
    constexpr Kelpie::IpGenAddr const& ipGenAddr() const { return ipGenAddr_; }
    // Of the interface and the sixteen address bytes; the family takes no part.
    U32 hash() const;

    friend constexpr bool operator==(BitMapperKey const&, BitMapperKey const&) = default;
    friend constexpr auto operator<=>(BitMapperKey const&, BitMapperKey const&) = default;

private:
    friend Vomo::Describe<BitMapperKey>;
    Kelpie::IntfId intfId_;
    Kelpie::IpGenAddr ipGenAddr_;
    Vomo::Pad<4> pad_;
};
static_assert(sizeof(BitMapperKey) == 32 && alignof(BitMapperKey) == 8);

// A bit and what it stands for: the value of the table `bitIndexMap`.
class BitIndexMap {
public:
    constexpr BitIndexMap() = default;
    constexpr BitIndexMap(BitIndex key, BitMapperKey const& bitMapperKey)
        : key_(key), bitMapperKey_(bitMapperKey) {}
    explicit BitIndexMap(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    BitIndexMap(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr BitIndex key() const { return key_; }
    constexpr BitMapperKey const& bitMapperKey() const { return bitMapperKey_; }
    constexpr BitIndex bitIndex() const { return key_; }
    constexpr U32 refCount() const { return refCount_; }
    constexpr void refCountIs(U32 v) { refCount_ = v; }
    constexpr U32 refCountInc(U32 n) & { return refCount_ += n; }
    // Wraps around below 0.
    constexpr U32 refCountDec(U32 n) & { return refCount_ -= n; }
    constexpr bool isNewMapping() const { return isNewMapping_; }
    constexpr void isNewMappingIs(bool v) { isNewMapping_ = v; }
    // Any field differs from the default.
    constexpr explicit operator bool() const { return !(*this == BitIndexMap()); }

    friend constexpr bool operator==(BitIndexMap const&, BitIndexMap const&) = default;

private:
    friend Vomo::Describe<BitIndexMap>;
    BitIndex key_;
    Vomo::Pad<6> pad1_;
    BitMapperKey bitMapperKey_;
    U32 refCount_ = 0;
    bool isNewMapping_ = true;
    Vomo::Pad<3> pad2_;
};
static_assert(sizeof(BitIndexMap) == 48 && alignof(BitIndexMap) == 8);

// A key that waits for a bit: the value of the table `waitlistMap`.
class WaitlistMap {
public:
    constexpr WaitlistMap() = default;
    constexpr explicit WaitlistMap(BitMapperKey const& key) : key_(key) {}
    explicit WaitlistMap(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    WaitlistMap(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr BitMapperKey const& key() const { return key_; }
    constexpr U32 refCount() const { return refCount_; }
    constexpr void refCountIs(U32 v) { refCount_ = v; }
    constexpr U32 refCountInc(U32 n) & { return refCount_ += n; }
    constexpr U32 refCountDec(U32 n) & { return refCount_ -= n; }
    constexpr explicit operator bool() const { return !(*this == WaitlistMap()); }

    friend constexpr bool operator==(WaitlistMap const&, WaitlistMap const&) = default;

private:
    friend Vomo::Describe<WaitlistMap>;
    BitMapperKey key_;
    U32 refCount_ = 0;
    Vomo::Pad<4> pad_;
};
static_assert(sizeof(WaitlistMap) == 40 && alignof(WaitlistMap) == 8);

// The sizes of the bit mapper's tables; holds nothing itself. Text: empty.
class TableInfo {
public:
    static constexpr U32 maxBitIndexMaps = 1024;
    // Of a mount in that role: the tables "bitIndexMap" and "waitlistMap" of that size each.
    static VomoBrisk::MountInfo mountInfo(VomoBrisk::VomoBriskType type);

    constexpr TableInfo() = default;
    explicit TableInfo(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    TableInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }
    constexpr explicit operator bool() const { return false; }

    friend constexpr bool operator==(TableInfo, TableInfo) = default;
};

// The number itself.
std::ostream& operator<<(std::ostream& stream, BitIndex v);

} // namespace BitMapper
