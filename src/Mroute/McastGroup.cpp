#include "Mroute/McastGroup.h"

#include "Vomo/EnumType.h"
#include "Vomo/Hash.h"
#include "Vomo/Record.h"

#include <ostream>

template <>
struct Vomo::Describe<Multicast::Group::Config> {
    using T = Multicast::Group::Config;
    static constexpr auto type = entity("Multicast::Group::Config", wide);
    static constexpr auto attributes = rows({
        children<&T::request_, &T::requestIs, &T::requestDel>(T::requestAttr, "request", "key"),
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
template <>
struct Vomo::Describe<Multicast::Group::Request> {
    using T = Multicast::Group::Request;
    static constexpr auto type = entity("Multicast::Group::Request", wide);
    static constexpr bool (T::*del)(MrouteLib::PortVlan const&) = &T::portVlanDel;
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::keyAttr, "key"),
        valueMap<&T::portVlan_, &T::portVlanIs, del>(T::portVlanAttr, "portVlan"),
        notifying<&T::requestId_, &T::requestId, &T::requestIdIs>(T::requestIdAttr, "requestId"),
        notifying<&T::toCpu_, &T::toCpu, &T::toCpuIs>(T::toCpuAttr, "toCpu"),
        notifying<&T::featureFlag_, &T::featureFlag, &T::featureFlagIs>(T::featureFlagAttr,
                                                                        "featureFlag"),
    });
};
template <>
struct Vomo::Describe<Multicast::Group::Response> {
    using T = Multicast::Group::Response;
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
    static constexpr auto type = entity("Multicast::Group::Status", wide);
    static constexpr auto attributes = rows({
        children<&T::response_, &T::responseIs, &T::responseDel>(T::responseAttr, "response",
                                                                 "key"),
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

Request::~Request() {
    notifiees_.deleteAll();
}
Vomo::Ptr<Request> Request::RequestIs(GroupKey key) {
    return Vomo::newEntity<Request>(key);
}
Vomo::NotifieeListRecord Request::notifieeList() const {
    return {1, &notifiees_, 0, 0};
}
Vomo::VomoTypeBase Request::fwkType() const {
    return Vomo::IdOf<Request>::type;
}
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
void Request::removeMember(VomoPortVlan* node) {
    Vomo::Ptr<VomoPortVlan> const keep(node);
    portVlan_.memberDel(node);
    notify(portVlanAttr, &node->fwkKey());
}
bool Request::portVlanDel(MrouteLib::PortVlan const& pv) {
    VomoPortVlan* const node = portVlan_[pv];
    if (node == nullptr) return false;
    bool const old = node->value();
    removeMember(node);
    return old;
}
bool Request::portVlanDel(PortVlanIterator const& at) {
    // An iterator may stand on a node that has left.
    return at && portVlan_[at.key()] == at.ptr() && portVlanDel(MrouteLib::PortVlan(at.key()));
}
void Request::portVlanDelAll() {
    for (PortVlanIterator at(&portVlan_); at; ++at) portVlanDel(at);
}

Response::~Response() {
    notifiees_.deleteAll();
}
Vomo::Ptr<Response> Response::ResponseIs(GroupKey key) {
    return Vomo::newEntity<Response>(key);
}
Vomo::NotifieeListRecord Response::notifieeList() const {
    return {1, &notifiees_, 0, 0};
}
Vomo::VomoTypeBase Response::fwkType() const {
    return Vomo::IdOf<Response>::type;
}
Vomo::String Response::name() const {
    return valueToStrep(key_);
}

namespace {

// The mutators of a collection that makes its children. `announce` notifies with the key.
template <class Child, class Map, class Announce>
Vomo::Ptr<Child> childIs(Vomo::Entity* owner, Map& map, GroupKey key, Announce&& announce) {
    if (auto* const node = map[key]) return node->value();
    Vomo::Ptr<Child> const child = Vomo::newEntity<Child>(key);
    map.newMember(std::remove_pointer_t<decltype(map[key])>(child));
    child->parentIs(Vomo::Ptr<Vomo::Entity>(owner));
    announce(key);
    return child;
}
template <class Child, class Map, class Announce>
Vomo::Ptr<Child> childDel(Map& map, GroupKey key, Announce&& announce) {
    auto* const node = map[key];
    if (node == nullptr) return {};
    Vomo::Ptr<Child> const child = node->value();
    map.deleteMember(key);
    child->parentIs(nullptr);
    announce(key);
    return child;
}

} // namespace

Config::~Config() {
    notifiees_.deleteAll();
    for (RequestMap::UnsafeIteratorConst i(&request_); i; ++i) i->value()->parentIs(nullptr);
}
Vomo::Ptr<Config> Config::ConfigIs(Vomo::String const& name) {
    return configFactory(name);
}
Vomo::NotifieeListRecord Config::notifieeList() const {
    return {1, &notifiees_, 0, 0};
}
Vomo::VomoTypeBase Config::fwkType() const {
    return Vomo::IdOf<Config>::type;
}
Vomo::Ptr<Request> Config::request(GroupKey key) const {
    VomoRequest* const node = request_[key];
    return node == nullptr ? Vomo::Ptr<Request>() : node->value();
}
Vomo::Ptr<Request> Config::requestIs(GroupKey key) {
    return childIs<Request>(this, request_, key, [this](GroupKey k) { notify(requestAttr, &k); });
}
Vomo::Ptr<Request> Config::requestDel(GroupKey key) {
    return childDel<Request>(request_, key, [this](GroupKey k) { notify(requestAttr, &k); });
}
void Config::requestDelAll() {
    for (RequestMap::IteratorConst i(&request_); i; ++i) requestDel(GroupKey(i.key()));
}

Status::~Status() {
    notifiees_.deleteAll();
    for (ResponseMap::UnsafeIteratorConst i(&response_); i; ++i) i->value()->parentIs(nullptr);
}
Vomo::Ptr<Status> Status::StatusIs(Vomo::String const& name) {
    return statusFactory(name);
}
Vomo::NotifieeListRecord Status::notifieeList() const {
    return {1, &notifiees_, 0, 0};
}
Vomo::VomoTypeBase Status::fwkType() const {
    return Vomo::IdOf<Status>::type;
}
Vomo::Ptr<Response> Status::response(GroupKey key) const {
    VomoResponse* const node = response_[key];
    return node == nullptr ? Vomo::Ptr<Response>() : node->value();
}
Vomo::Ptr<Response> Status::responseIs(GroupKey key) {
    return childIs<Response>(this, response_, key,
                             [this](GroupKey k) { notify(responseAttr, &k); });
}
Vomo::Ptr<Response> Status::responseDel(GroupKey key) {
    return childDel<Response>(response_, key, [this](GroupKey k) { notify(responseAttr, &k); });
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
    return Request::RequestIs(key);
}
Vomo::Ptr<Response> responseFactory(GroupKey key) {
    return Response::ResponseIs(key);
}

} // namespace Multicast::Group

namespace {
// In order of name.
constexpr Vomo::TypeFrame types[] = {
    Vomo::entityFrameOf<Multicast::Group::Config, Vomo::String>,
    Vomo::frameOf<Multicast::Group::GroupKey>,
    Vomo::frameOf<Multicast::Group::McastGroupKind>,
    Vomo::entityFrameOf<Multicast::Group::Request, Multicast::Group::GroupKey>,
    Vomo::entityFrameOf<Multicast::Group::Response, Multicast::Group::GroupKey>,
    Vomo::entityFrameOf<Multicast::Group::Status, Vomo::String>,
};
} // namespace
constinit Vomo::VomoModule const Vomo::_McastGroup_5302ff4251cd4c04_vomoModule =
    Vomo::ModuleRecord<types>::value;
static Vomo::ModuleRegistration const registration(&Vomo::_McastGroup_5302ff4251cd4c04_vomoModule);
