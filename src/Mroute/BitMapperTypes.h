// The bit mapper: numbered bits, the interface and address that a bit stands for, and the list of
// those that wait for a bit.
#pragma once

#include "Kelpie/IntfId.h"
#include "Kelpie/IpAddr.h"

namespace BitMapper {
class BitIndex;
class BitMapperKey;
class BitIndexMap;
class WaitlistMap;
class TableInfo;
} // namespace BitMapper

namespace Vomo {
extern "C" {
extern VomoModule const _BitMapperTypes_f5722ab7f2af9957_vomoModule;
}
template <>
struct IdOf<BitMapper::BitIndex> : InModule<&_BitMapperTypes_f5722ab7f2af9957_vomoModule, 0> {};
template <>
struct IdOf<BitMapper::BitIndexMap> : InModule<&_BitMapperTypes_f5722ab7f2af9957_vomoModule, 1> {};
template <>
struct IdOf<BitMapper::BitMapperKey> : InModule<&_BitMapperTypes_f5722ab7f2af9957_vomoModule, 2> {};
template <>
struct IdOf<BitMapper::TableInfo> : InModule<&_BitMapperTypes_f5722ab7f2af9957_vomoModule, 3> {};
template <>
struct IdOf<BitMapper::WaitlistMap> : InModule<&_BitMapperTypes_f5722ab7f2af9957_vomoModule, 4> {};
} // namespace Vomo

namespace BitMapper {

// The number of a bit; any 16-bit value. Text: the number.
class BitIndex {
public:
    static constexpr U16 min = 0;
    static constexpr U16 null = 65535;
    static constexpr U32 invalid = 65534;

    constexpr BitIndex() = default;
    constexpr explicit BitIndex(U16 value) : value_(value) {}
    explicit BitIndex(Vomo::CharRange& range);
    BitIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

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
    explicit BitMapperKey(Vomo::CharRange& range);
    BitMapperKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

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
    explicit BitIndexMap(Vomo::CharRange& range);
    BitIndexMap(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

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
    explicit WaitlistMap(Vomo::CharRange& range);
    WaitlistMap(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

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

    constexpr TableInfo() = default;
    explicit TableInfo(Vomo::CharRange&) {}
    TableInfo(Vomo::NboAttrLog::In*, Vomo::StreamBogon) {}
    constexpr explicit operator bool() const { return false; }

    friend constexpr bool operator==(TableInfo, TableInfo) = default;
};

Vomo::String valueToStrep(BitIndex v);
Vomo::String valueToStrep(BitMapperKey const& v);
Vomo::String valueToStrep(BitIndexMap const& v);
Vomo::String valueToStrep(WaitlistMap const& v);
Vomo::String valueToStrep(TableInfo v);
// The number itself.
std::ostream& operator<<(std::ostream& stream, BitIndex v);
std::ostream& operator<<(std::ostream& stream, BitMapperKey const& v);
std::ostream& operator<<(std::ostream& stream, BitIndexMap const& v);
std::ostream& operator<<(std::ostream& stream, WaitlistMap const& v);
std::ostream& operator<<(std::ostream& stream, TableInfo v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, BitIndex v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, BitMapperKey const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, BitIndexMap const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, WaitlistMap const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, TableInfo v);

} // namespace BitMapper
