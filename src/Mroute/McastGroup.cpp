#include "Mroute/McastGroup.h"

#include "Vomo/EnumType.h"
#include "Vomo/Hash.h"
#include "Vomo/Record.h"

#include <ostream>

template <>
struct Vomo::Describe<Multicast::Group::GroupKey> {
    using T = Multicast::Group::GroupKey;
    static constexpr auto type = value("Multicast::Group::GroupKey");
    static constexpr auto attributes = rows({
        ctor<&T::kind_>(2, "kind"),
        ctor<&T::index_>(3, "index"),
    });
};
template <>
struct Vomo::Describe<Multicast::Group::McastGroupKind> {
    static constexpr auto type = enumeration<U32>("Multicast::Group::McastGroupKind");
    static constexpr auto attributes = rows({
        literal(2, "mcastGroupKindTapAgg", 19),
        literal(3, "mcastGroupKindTapAggLimitRange", 20),
        literal(4, "mcastGroupKindMpls", 21),
        literal(5, "mcastGroupKindMirror", 22),
        literal(6, "mcastGroupKindSflowAccel", 23),
        literal(7, "mcastGroupKindNexthopGroup", 24),
    });
};

namespace Multicast::Group {

namespace {
using KindText = Vomo::EnumType<U32>;
constexpr Vomo::VomoTypeBase kindType = Vomo::IdOf<McastGroupKind>::type;
} // namespace

McastGroupKind McastGroupKindInstance(unsigned int number) {
    return static_cast<McastGroupKind>(KindText::instance(kindType, number));
}
McastGroupKind McastGroupKindInstance(Vomo::String const& name) {
    return static_cast<McastGroupKind>(KindText::instance(kindType, name));
}
std::ostream& operator<<(std::ostream& stream, McastGroupKind const& v) {
    return KindText::operatorLessLess(stream, kindType, static_cast<U32>(v));
}
Vomo::String valueToStrep(McastGroupKind const& v) {
    return KindText::valueToStrep(kindType, static_cast<U32>(v));
}
McastGroupKind sequenceToValue(Vomo::CharRange& range, McastGroupKind*) {
    return static_cast<McastGroupKind>(KindText::sequenceToValue(range, kindType));
}
Vomo::String stringValue(McastGroupKind v) {
    return KindText::stringValue(kindType, static_cast<U32>(v));
}

GroupKey::GroupKey(Vomo::CharRange& range) {
    Vomo::parse(*this, range);
}
GroupKey::GroupKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) {
    Vomo::read(*this, in);
}

U32 GroupKey::hash(U32 seed) const {
    Vomo::Hash hash(seed);
    hash.hashMix<2>(&kind_);
    hash.hashMix<2>(&index_);
    return hash.result();
}

Vomo::String valueToStrep(GroupKey v) {
    return Vomo::text(v);
}
std::ostream& operator<<(std::ostream& stream, GroupKey v) {
    return stream << valueToStrep(v);
}
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, GroupKey v) {
    return Vomo::write(out, v), out;
}

} // namespace Multicast::Group

namespace {
// In order of name.
constexpr Vomo::TypeFrame types[] = {
    Vomo::frameOf<Multicast::Group::GroupKey>,
    Vomo::frameOf<Multicast::Group::McastGroupKind>,
};
} // namespace
constinit Vomo::VomoModule const Vomo::_McastGroup_5302ff4251cd4c04_vomoModule =
    Vomo::ModuleRecord<types>::value;
static Vomo::ModuleRegistration const registration(&Vomo::_McastGroup_5302ff4251cd4c04_vomoModule);
