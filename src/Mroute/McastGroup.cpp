#include "Mroute/McastGroup.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<Multicast::Group::Config> {
    using T = Multicast::Group::Config;
    static constexpr auto type = entity("Multicast::Group::Config", wide);
    static constexpr auto attributes = rows({
        collection<&T::request_>("request", "key"),
    });
};
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
    using T = Multicast::Group::McastGroupKind;
    static constexpr auto type = enumeration<U32>("Multicast::Group::McastGroupKind");
    static constexpr auto attributes = rows({
        literal(2, "mcastGroupKindTapAgg", T::mcastGroupKindTapAgg),
        literal(3, "mcastGroupKindTapAggLimitRange", T::mcastGroupKindTapAggLimitRange),
        literal(4, "mcastGroupKindMpls", T::mcastGroupKindMpls),
        literal(5, "mcastGroupKindMirror", T::mcastGroupKindMirror),
        literal(6, "mcastGroupKindSflowAccel", T::mcastGroupKindSflowAccel),
        literal(7, "mcastGroupKindNexthopGroup", T::mcastGroupKindNexthopGroup),
    });
};
template <>
struct Vomo::Describe<Multicast::Group::Request> {
    using T = Multicast::Group::Request;
    static constexpr auto type = entity("Multicast::Group::Request", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::keyAttr, "key"),
        collection<&T::portVlan_>("portVlan"),
        notifying<&T::requestId_>(T::requestIdAttr, "requestId"),
        notifying<&T::toCpu_>(T::toCpuAttr, "toCpu"),
        notifying<&T::featureFlag_>(T::featureFlagAttr, "featureFlag"),
    });
};
template <>
struct Vomo::Describe<Multicast::Group::Response> {
    using T = Multicast::Group::Response;
    static constexpr auto type = entity("Multicast::Group::Response");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::keyAttr, "key"),
        notifying<&T::success_>(T::successAttr, "success"),
        notifying<&T::multicastId_>(T::multicastIdAttr, "multicastId"),
        notifying<&T::requestId_>(T::requestIdAttr, "requestId"),
        notifying<&T::responseId_>(T::responseIdAttr, "responseId"),
    });
};
template <>
struct Vomo::Describe<Multicast::Group::Status> {
    using T = Multicast::Group::Status;
    static constexpr auto type = entity("Multicast::Group::Status", wide);
    static constexpr auto attributes = rows({
        collection<&T::response_>("response", "key"),
    });
};

namespace Multicast::Group {

Vomo::Ptr<Config> configFactory(Vomo::String const& name) {
    return Vomo::newEntity<Config>(name);
}
Vomo::Ptr<Status> statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}
Vomo::Ptr<Request> requestFactory(GroupKey key) {
    return Vomo::newEntity<Request>(key);
}
Vomo::Ptr<Response> responseFactory(GroupKey key) {
    return Vomo::newEntity<Response>(key);
}

} // namespace Multicast::Group

namespace Vomo {
constinit decltype(McastGroupModule::frames) McastGroupModule::frames =
    ModuleRecord<McastGroupModule>::frames;
constinit VomoModule const _McastGroup_5302ff4251cd4c04_vomoModule =
    ModuleRecord<McastGroupModule>::value;
static ModuleRegistration const registration(McastGroupModule::record);
} // namespace Vomo
