#include "L3/VrfName.h"

#include "Vomo/Hash.h"
#include "Vomo/Record.h"

#include <ostream>

template <>
struct Vomo::Describe<L3::VrfName> {
    using T = L3::VrfName;
    static constexpr auto type = value("L3::VrfName");
    static constexpr auto attributes = rows({ctor<&T::name_>(2, "name")});
};

namespace L3 {

VrfName::VrfName(Vomo::String name) : name_(std::move(name)) {
    if (name_.bytes() > maxLength())
        Vomo::throwRangeException("Vomo::String::bytes > maxLength() not allowed");
}
VrfName::VrfName(Vomo::CharRange& range)
    : VrfName(Vomo::deserializeAttr<Vomo::String>(range, "name")) {}
VrfName::VrfName(Vomo::NboAttrLog::In* in, Vomo::StreamBogon)
    : name_(in->nextValidString(maxLength())) {}

U32 VrfName::hash(U32 seed) const {
    return Vomo::hashSingleAttr(seed, std::string_view(name_));
}

bool operator<(VrfName const& a, VrfName const& b) {
    bool const aFirst = a.name_ == "default", bFirst = b.name_ == "default";
    return aFirst != bFirst ? aFirst : a.name_ < b.name_;
}

Vomo::String valueToStrep(VrfName const& v) {
    return Vomo::valueToStrep(v.stringValue());
}
std::ostream& operator<<(std::ostream& stream, VrfName const& v) {
    return stream << v.stringValue();
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, VrfName const& v) {
    return out << v.stringValue();
}
U32 attrLogSize(VrfName const* v) {
    return 4 + v->stringValue().bytes();
}

} // namespace L3

namespace Vomo {
constinit VomoModule const _VrfName_24b4c36c4490e7d8_vomoModule =
    ModuleRecord<VrfNameModule>::value;
static ModuleRegistration const registration(VrfNameModule::record);
} // namespace Vomo
