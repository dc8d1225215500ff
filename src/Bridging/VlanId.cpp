#include "Bridging/VlanId.h"

#include "Vomo/Hash.h"
#include "Vomo/Record.h"

#include <ostream>

template <>
struct Vomo::Describe<Bridging::VlanId> {
    using T = Bridging::VlanId;
    static constexpr auto type = value("Bridging::VlanId");
    static constexpr auto attributes = rows({ctor<&T::value_>(2, "value")});
};
template <>
struct Vomo::Describe<Bridging::VlanIdOrNone> {
    using T = Bridging::VlanIdOrNone;
    static constexpr auto type = value("Bridging::VlanIdOrNone");
    static constexpr auto attributes = rows({ctor<&T::value_>(2, "value")});
};

namespace Bridging {
namespace {

void check(U16 value) {
    if (value < VlanId::min || value > VlanId::max)
        Vomo::throwRangeException("Bridging::VlanId::value < 1 or > 4094 not allowed");
}

} // namespace

VlanId::VlanId(U16 value) : value_(value) {
    check(value_);
}
VlanId::VlanId(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
    check(value_);
}
VlanId::VlanId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) : VlanId(in->nextU16()) {}
VlanIdOrNone::VlanIdOrNone(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) : value_(in->nextU16()) {}

U32 VlanId::hash(U32 seed) const {
    return Vomo::hashSingleAttr(seed, value_);
}
U32 VlanIdOrNone::hash(U32 seed) const {
    return Vomo::hashSingleAttr(seed, value_);
}

std::ostream& operator<<(std::ostream& stream, VlanId v) {
    return stream << v.value();
}
std::ostream& operator<<(std::ostream& stream, VlanIdOrNone v) {
    return stream << v.value();
}

} // namespace Bridging

namespace Vomo {
constinit decltype(VlanIdModule::frames) VlanIdModule::frames = ModuleRecord<VlanIdModule>::frames;
constinit VomoModule const _VlanId_c2b91fe4f92f5433_vomoModule = ModuleRecord<VlanIdModule>::value;
static ModuleRegistration const registration(VlanIdModule::record);
} // namespace Vomo
