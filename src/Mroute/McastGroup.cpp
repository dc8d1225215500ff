#include "Mroute/McastGroup.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<Multicast::Group::Config> {
    using T = Multicast::Group::Config;
    using Argument = Vomo::String;
    static constexpr auto type = entity("Multicast::Group::Config", wide);
    static constexpr auto attributes = rows({
        children<&T::request_, &T::requestIs, &T::requestDel, &T::FlowOut::vomoIsRequestDirty_,
                 &T::FlowOut::vomoIsRequestDirtyEphemeral_>(T::requestAttr, "request", "key"),
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
    using Argument = Multicast::Group::GroupKey;
    static constexpr auto type = entity("Multicast::Group::Request", wide);
    static constexpr bool (T::*del)(MrouteLib::PortVlan const&) = &T::portVlanDel;
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::keyAttr, "key"),
        valueMap<&T::portVlan_, &T::portVlanIs, del, &T::FlowOut::vomoIsPortVlanDirty_>(
            T::portVlanAttr, "portVlan"),
        notifying<&T::requestId_, &T::requestId, &T::requestIdIs>(T::requestIdAttr, "requestId"),
        notifying<&T::toCpu_, &T::toCpu, &T::toCpuIs>(T::toCpuAttr, "toCpu"),
        notifying<&T::featureFlag_, &T::featureFlag, &T::featureFlagIs>(T::featureFlagAttr,
                                                                        "featureFlag"),
    });
};
template <>
struct Vomo::Describe<Multicast::Group::Response> {
    using T = Multicast::Group::Response;
    using Argument = Multicast::Group::GroupKey;
    static constexpr auto type = entity("Multicast::Group::Response");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::keyAttr, "key"),
        notifying<&T::success_, &T::success, &T::successIs>(T::successAttr, "success"),
        notifying<&T::multicastId_, &T::multicastId, &T::multicastIdIs>(T::multicastIdAttr,
                                                                        "multicastId"),
        notifying<&T::requestId_, &T::requestId, &T::requestIdIs>(T::requestIdAttr, "requestId"),
        notifying<&T::responseId_, &T::responseId, &T::responseIdIs>(T::responseIdAttr,
                                                                     "responseId"),
    });
};
template <>
struct Vomo::Describe<Multicast::Group::Status> {
    using T = Multicast::Group::Status;
    using Argument = Vomo::String;
    static constexpr auto type = entity("Multicast::Group::Status", wide);
    static constexpr auto attributes = rows({
        children<&T::response_, &T::responseIs, &T::responseDel, &T::FlowOut::vomoIsResponseDirty_,
                 &T::FlowOut::vomoIsResponseDirtyEphemeral_>(T::responseAttr, "response", "key"),
    });
};

namespace Multicast::Group {

Vomo::String Request::name() const {
    return valueToStrep(key_);
}

bool Request::portVlan(MrouteLib::PortVlan const& pv) const {
    VomoPortVlan* const node = portVlan_[pv];
    return node != nullptr && node->value();
}
void Request::portVlanIs(MrouteLib::PortVlan const& pv, bool value) {
    if (VomoPortVlan* const node = portVlan_[pv]) {
        if (node->value() == value) return;
        node->valueIs(value);
    } else {
        portVlan_.memberIs(Vomo::Ptr<VomoPortVlan>(new VomoPortVlan(pv, value)));
    }
    notify(portVlanAttr, &pv);
}
bool Request::removeMember(VomoPortVlan* node) {
    Vomo::Ptr<VomoPortVlan> const keep(node);
    bool const old = node->value();
    portVlan_.memberDel(node);
    notify(portVlanAttr, &node->fwkKey());
    return old;
}
bool Request::portVlanDel(MrouteLib::PortVlan const& pv) {
    VomoPortVlan* const node = portVlan_[pv];
    return node != nullptr && removeMember(node);
}
bool Request::portVlanDel(PortVlanIterator const& at) {
    VomoPortVlan* const node = portVlan_.nodeAt(at);
    return node != nullptr && removeMember(node);
}
void Request::portVlanDelAll() {
    for (PortVlanIterator at(&portVlan_); at; ++at) portVlanDel(at);
}

Vomo::String Response::name() const {
    return valueToStrep(key_);
}

Config::~Config() {
    notifiees_.deleteAll();
    orphan(request_);
}
Vomo::Ptr<Request> Config::request(GroupKey key) const {
    VomoRequest* const node = request_[key];
    return node == nullptr ? Vomo::Ptr<Request>() : node->value();
}
void Config::requestDelAll() {
    for (RequestMap::IteratorConst i(&request_); i; ++i) requestDel(GroupKey(i.key()));
}

Status::~Status() {
    notifiees_.deleteAll();
    orphan(response_);
}
Vomo::Ptr<Response> Status::response(GroupKey key) const {
    VomoResponse* const node = response_[key];
    return node == nullptr ? Vomo::Ptr<Response>() : node->value();
}
void Status::responseDelAll() {
    for (ResponseMap::IteratorConst i(&response_); i; ++i) responseDel(GroupKey(i.key()));
}

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
