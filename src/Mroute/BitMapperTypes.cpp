#include "Mroute/BitMapperTypes.h"

#include "Mroute/BriskStatus.h"
#include "Mroute/Wang.h"
#include "Vomo/Record.h"
#include "VomoBrisk/TableRows.h"
#include "VomoBrisk/VomoBriskMapImpl.h"

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
struct Vomo::Describe<BitMapper::BriskStatus> {
    using T = BitMapper::BriskStatus;
    static constexpr auto type = entity("BitMapper::BriskStatus", wide);
    static constexpr auto attributes = rows({
        VomoBrisk::table<&T::bitIndexMap_>(),
        VomoBrisk::control<&T::bitIndexMapControl, &T::bitIndexMapControlIs>(
            T::bitIndexMapControlAttr, "bitIndexMapControl"),
        VomoBrisk::table<&T::waitlistMap_>(),
        VomoBrisk::control<&T::waitlistMapControl, &T::waitlistMapControlIs>(
            T::waitlistMapControlAttr, "waitlistMapControl"),
        function<&T::isNewMapping>(T::isNewMappingAttr, "isNewMapping", {"bit"}),
        function<&T::lookupBitIndex>(T::lookupBitIndexAttr, "lookupBitIndex", {"bit"}),
    });
};
template <>
struct Vomo::Describe<BitMapper::TableInfo> {
    using T = BitMapper::TableInfo;
    static constexpr auto type = value("BitMapper::TableInfo");
    static constexpr auto attributes = rows({
        statics<&T::mountInfo>(2, "mountInfo", {"type"}),
        constant<&T::maxBitIndexMaps>(3, "maxBitIndexMaps"),
    });
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

VomoBrisk::MountInfo TableInfo::mountInfo(VomoBrisk::VomoBriskType type) {
    VomoBrisk::MountInfo info(type);
    info.collectionInfoIs({Mroute::BitIndexMapTable::attribute, maxBitIndexMaps, 0});
    info.collectionInfoIs({Mroute::WaitlistMapTable::attribute, maxBitIndexMaps, 0});
    return info;
}

std::ostream& operator<<(std::ostream& stream, BitIndex v) {
    return stream << v.value();
}

Vomo::Ptr<BriskStatus> briskStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<BriskStatus>(name);
}

} // namespace BitMapper

VOMO_BRISK_INSTANCE(BitMapper::BriskStatus, Mroute::BitIndexMapTable);
VOMO_BRISK_INSTANCE(BitMapper::BriskStatus, Mroute::WaitlistMapTable);

namespace Vomo {
constinit decltype(BitMapperTypesModule::frames) BitMapperTypesModule::frames =
    ModuleRecord<BitMapperTypesModule>::frames;
constinit VomoModule const _BitMapperTypes_f5722ab7f2af9957_vomoModule =
    ModuleRecord<BitMapperTypesModule>::value;
static ModuleRegistration const registration(BitMapperTypesModule::record);
} // namespace Vomo
