#include "Mroute/BitMapperTypes.h"

#include "Mroute/Wang.h"
#include "Vomo/Record.h"

#include <bit>
#include <ostream>

template <>
struct Vomo::Describe<BitMapper::BitIndex> {
    using T = BitMapper::BitIndex;
    static constexpr auto type = value("BitMapper::BitIndex", wrapper);
    static constexpr auto attributes = rows({
        ctor<&T::value_>(2, "value"),
        constant<&T::min>(3, "min"),
        constant<&T::null>(4, "null"),
        constant<&T::invalid>(5, "invalid"),
        derived<&T::hash>(6, "hash"),
        function<&T::isValid>(7, "isValid"),
        function<&T::isNull>(8, "isNull"),
    });
};
template <>
struct Vomo::Describe<BitMapper::BitIndexMap> {
    using T = BitMapper::BitIndexMap;
    static constexpr auto type = value("BitMapper::BitIndexMap", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        ctor<&T::bitMapperKey_>(3, "bitMapperKey"),
        derived<&T::bitIndex>(4, "bitIndex"),
        mutates<&T::refCount_>(5, "refCount"),
        mutates<&T::isNewMapping_>(6, "isNewMapping"),
    });
};
template <>
struct Vomo::Describe<BitMapper::BitMapperKey> {
    using T = BitMapper::BitMapperKey;
    static constexpr auto type = value("BitMapper::BitMapperKey", wide);
    static constexpr auto attributes = rows({
        ctor<&T::intfId_>(2, "intfId"),
        ctor<&T::ipGenAddr_>(3, "ipGenAddr"),
        derived<&T::hash>(4, "hash"),
    });
};
template <>
struct Vomo::Describe<BitMapper::TableInfo> {
    using T = BitMapper::TableInfo;
    static constexpr auto type = value("BitMapper::TableInfo");
    static constexpr auto attributes = rows({constant<&T::maxBitIndexMaps>(3, "maxBitIndexMaps")});
};
template <>
struct Vomo::Describe<BitMapper::WaitlistMap> {
    using T = BitMapper::WaitlistMap;
    static constexpr auto type = value("BitMapper::WaitlistMap", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        mutates<&T::refCount_>(3, "refCount"),
    });
};

namespace BitMapper {

U32 BitMapperKey::hash() const {
    return Mroute::wang(std::rotl(intfId_.hash(), 8) ^ std::rotl(ipGenAddr_.v6Addr().hash(), 16));
}

BitIndex::BitIndex(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
BitIndex::BitIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}
BitMapperKey::BitMapperKey(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
BitMapperKey::BitMapperKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}
BitIndexMap::BitIndexMap(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
BitIndexMap::BitIndexMap(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}
WaitlistMap::WaitlistMap(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
WaitlistMap::WaitlistMap(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}

Vomo::String valueToStrep(BitIndex v) {
    return Vomo::text(v);
}
Vomo::String valueToStrep(BitMapperKey const& v) {
    return Vomo::text(v);
}
Vomo::String valueToStrep(BitIndexMap const& v) {
    return Vomo::text(v);
}
Vomo::String valueToStrep(WaitlistMap const& v) {
    return Vomo::text(v);
}
Vomo::String valueToStrep(TableInfo) {
    return {};
}

std::ostream& operator<<(std::ostream& stream, BitIndex v) {
    return stream << v.value();
}
std::ostream& operator<<(std::ostream& stream, BitMapperKey const& v) {
    return stream << valueToStrep(v);
}
std::ostream& operator<<(std::ostream& stream, BitIndexMap const& v) {
    return stream << valueToStrep(v);
}
std::ostream& operator<<(std::ostream& stream, WaitlistMap const& v) {
    return stream << valueToStrep(v);
}
std::ostream& operator<<(std::ostream& stream, TableInfo) {
    return stream;
}

using Vomo::NboAttrLog::Out;
Out& operator<<(Out& out, BitIndex v) {
    return Vomo::write(out, v), out;
}
Out& operator<<(Out& out, BitMapperKey const& v) {
    return Vomo::write(out, v), out;
}
Out& operator<<(Out& out, BitIndexMap const& v) {
    return Vomo::write(out, v), out;
}
Out& operator<<(Out& out, WaitlistMap const& v) {
    return Vomo::write(out, v), out;
}
Out& operator<<(Out& out, TableInfo) {
    return out;
}

} // namespace BitMapper

namespace {
// In order of name.
constexpr Vomo::TypeFrame types[] = {
    Vomo::frameOf<BitMapper::BitIndex>,     Vomo::frameOf<BitMapper::BitIndexMap>,
    Vomo::frameOf<BitMapper::BitMapperKey>, Vomo::frameOf<BitMapper::TableInfo>,
    Vomo::frameOf<BitMapper::WaitlistMap>,
};
} // namespace
constinit Vomo::VomoModule const Vomo::_BitMapperTypes_f5722ab7f2af9957_vomoModule =
    Vomo::ModuleRecord<types>::value;
static Vomo::ModuleRegistration const
    registration(&Vomo::_BitMapperTypes_f5722ab7f2af9957_vomoModule);
