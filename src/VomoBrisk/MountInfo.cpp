#include "VomoBrisk/MountInfo.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<VomoBrisk::CollectionInfo> {
    using T = VomoBrisk::CollectionInfo;
    static constexpr auto type = value("VomoBrisk::CollectionInfo");
    static constexpr auto attributes = rows({
        ctor<&T::name_>(2, "name"),
        ctor<&T::size_>(3, "size"),
        ctor<&T::options_>(4, "options"),
    });
};
template <>
struct Vomo::Describe<VomoBrisk::MountInfo> {
    using T = VomoBrisk::MountInfo;
    static constexpr VomoBrisk::CollectionInfo (T::*get)(String const&) const = &T::collectionInfo;
    static constexpr auto type = value("VomoBrisk::MountInfo", wide);
    static constexpr auto attributes = rows({
        ctor<&T::type_>(2, "type"),
        function<get>(3, "collectionInfo", {"name"}),
        mutating<&T::collectionInfoIs>(4, "collectionInfoIs", {"collectionInfo"}),
    });
};
template <>
struct Vomo::Describe<VomoBrisk::VomoBriskType> {
    using T = VomoBrisk::VomoBriskType;
    static constexpr auto type = enumeration<U32>("VomoBrisk::VomoBriskType");
    static constexpr auto attributes = rows({
        literal(2, "writer", T::writer),
        literal(3, "valueShadow", T::valueShadow),
        literal(4, "reader", T::reader),
        literal(5, "keyShadow", T::keyShadow),
    });
};

namespace VomoBrisk {

U32 attrLogSize(CollectionInfo const* v) {
    return 4 + v->name().bytes() + 4 + 4;
}

namespace {

auto find(auto& collections, Vomo::String const& name) {
    return std::find_if(collections.begin(), collections.end(),
                        [&](CollectionInfo const& info) { return info.name() == name; });
}

} // namespace

CollectionInfo MountInfo::collectionInfo(Vomo::String const& name) const {
    auto const found = find(collections_, name);
    return found == collections_.end() ? CollectionInfo() : *found;
}
void MountInfo::collectionInfoIs(CollectionInfo const& info) {
    if (auto const found = find(collections_, info.name()); found != collections_.end())
        *found = info;
    else
        collections_.push_back(info);
}

Vomo::String valueToStrep(MountInfo const& v) {
    Vomo::String text = "Value('VomoBrisk::MountInfo', ** {'type': " + valueToStrep(v.type());
    text += ", 'collectionInfo': [";
    for (CollectionInfo const& info : v.collectionInfo()) {
        if (text.back() != '[') text += ", ";
        text += valueToStrep(info);
    }
    return text + "]})";
}
MountInfo::MountInfo(Vomo::CharRange& range) {
    range.needString("Value('VomoBrisk::MountInfo', ** {'type': ");
    Vomo::parseField<VomoBriskType>(range, &type_, "type");
    range.needString(", 'collectionInfo': [");
    if (!range.haveString("]")) {
        do collectionInfoIs(Vomo::deserializeAttr<CollectionInfo>(range, "collectionInfo"));
        while (range.haveString(", "));
        range.needString("]");
    }
    range.needString("})");
}

Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, MountInfo const& v) {
    out << static_cast<U32>(v.type()) << static_cast<U32>(v.collectionInfo().size());
    for (CollectionInfo const& info : v.collectionInfo()) out << info;
    return out;
}
MountInfo::MountInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon tag)
    : type_(static_cast<VomoBriskType>(in->nextU32())) {
    for (U32 left = in->nextU32(); left != 0; --left) collectionInfoIs(CollectionInfo(in, tag));
}
U32 attrLogSize(MountInfo const* v) {
    U32 size = 4 + 4;
    for (CollectionInfo const& info : v->collectionInfo()) size += attrLogSize(&info);
    return size;
}

} // namespace VomoBrisk

namespace Vomo {
constinit decltype(MountInfoModule::frames) MountInfoModule::frames =
    ModuleRecord<MountInfoModule>::frames;
constinit VomoModule const _MountInfo_c13df29ad60eeca0_vomoModule =
    ModuleRecord<MountInfoModule>::value;
static ModuleRegistration const registration(MountInfoModule::record);
} // namespace Vomo
