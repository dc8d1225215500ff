// Hardware multicast groups: the key of a group, the kinds that are numbered here, and the entities
// by which an agent asks for a group and is answered.
#pragma once

#include "Mroute/PortVlan.h"
#include "Vomo/Collections.h"

namespace Multicast::Group {
class Config;
struct GroupKey;
enum class McastGroupKind : U32;
class Request;
class Response;
class Status;
} // namespace Multicast::Group

namespace Vomo {
extern "C" VomoModule const _McastGroup_5302ff4251cd4c04_vomoModule;
struct McastGroupModule : TypeList<Multicast::Group::Config, Multicast::Group::GroupKey,
                                   Multicast::Group::McastGroupKind, Multicast::Group::Request,
                                   Multicast::Group::Response, Multicast::Group::Status> {
    static constexpr VomoModule const* record = &_McastGroup_5302ff4251cd4c04_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<McastGroupModule> T>
struct IdOf<T> : PlaceIn<T, McastGroupModule> {};
} // namespace Vomo

namespace Multicast::Group {

using Vomo::operator<<;
using Vomo::sequenceToValue;
using Vomo::stringValue;
using Vomo::valueToStrep;

enum class McastGroupKind : U32 {
    mcastGroupKindTapAgg = 19,
    mcastGroupKindTapAggLimitRange = 20,
    mcastGroupKindMpls = 21,
    mcastGroupKindMirror = 22,
    mcastGroupKindSflowAccel = 23,
    mcastGroupKindNexthopGroup = 24,
};
inline McastGroupKind McastGroupKindInstance(unsigned int number) {
    return Vomo::enumInstance<McastGroupKind>(number);
}
inline McastGroupKind McastGroupKindInstance(Vomo::String const& name) {
    return Vomo::enumInstance<McastGroupKind>(name);
}

// One hardware group. `kind` may hold a number that McastGroupKind does not declare: other features
// number their own groups.
struct GroupKey {
    constexpr GroupKey() = default;
    constexpr GroupKey(U16 kind, U16 index) : kind_(kind), index_(index) {}
    explicit GroupKey(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    GroupKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U16 kind() const { return kind_; }
    constexpr U16 index() const { return index_; }
    U32 hash(U32 seed) const { return Vomo::hashFields(*this, seed); }

    friend constexpr bool operator==(GroupKey, GroupKey) = default;
    friend constexpr auto operator<=>(GroupKey, GroupKey) = default;

private:
    friend Vomo::Describe<GroupKey>;
    U16 kind_ = 0;
    U16 index_ = 0;
};
static_assert(sizeof(GroupKey) == 4 && alignof(GroupKey) == 2);

// An agent's request for a group, in a Config.
class Request : public Vomo::KeyedEntity<Request, GroupKey> {
public:
    enum Attr : U32 { keyAttr = 258, portVlanAttr, requestIdAttr, toCpuAttr, featureFlagAttr };
    using KeyedEntity::KeyedEntity;
    static Vomo::Ptr<Request> RequestIs(GroupKey key) { return Vomo::newEntity<Request>(key); }

    GroupKey const& key() const { return key_; }
    // The members that are asked for.
    using PortVlanMap = Vomo::OrderedMap<Request, portVlanAttr, MrouteLib::PortVlan, bool>;
    using VomoPortVlan = PortVlanMap::Node;
    using PortVlanIterator = PortVlanMap::Iterator;
    bool portVlan(MrouteLib::PortVlan const& pv) const { return portVlan_.at(pv); }
    PortVlanMap const& portVlan() const { return portVlan_; }
    void portVlanIs(MrouteLib::PortVlan const& pv, bool value) { portVlan_.is(this, pv, value); }
    bool portVlanDel(MrouteLib::PortVlan const& pv) { return portVlan_.del(this, pv); }
    bool portVlanDel(PortVlanIterator const& at) { return portVlan_.del(this, at); }
    void portVlanDelAll() { portVlan_.delAll(this); }
    // Raised by the agent for each new version of the request.
    U32 requestId() const { return requestId_; }
    void requestIdIs(U32 v) { assign(requestId_, v, requestIdAttr); }
    U32 requestIdInc(U32 n) { return increase(requestId_, n, requestIdAttr); }
    U32 requestIdDec(U32 n) { return decrease(requestId_, n, requestIdAttr); }
    // A copy goes to the CPU.
    bool toCpu() const { return toCpu_; }
    void toCpuIs(bool v) { assign(toCpu_, v, toCpuAttr); }
    U32 featureFlag() const { return featureFlag_; }
    void featureFlagIs(U32 v) { assign(featureFlag_, v, featureFlagAttr); }
    U32 featureFlagInc(U32 n) { return increase(featureFlag_, n, featureFlagAttr); }
    U32 featureFlagDec(U32 n) { return decrease(featureFlag_, n, featureFlagAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<Request>;
    PortVlanMap portVlan_;
    U32 requestId_ = 0;
    bool toCpu_ = false;
    U32 featureFlag_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};

// The answer to a request, in a Status.
class Response : public Vomo::KeyedEntity<Response, GroupKey> {
public:
    enum Attr : U32 { keyAttr = 258, successAttr, multicastIdAttr, requestIdAttr, responseIdAttr };
    using KeyedEntity::KeyedEntity;
    static Vomo::Ptr<Response> ResponseIs(GroupKey key) { return Vomo::newEntity<Response>(key); }

    GroupKey const& key() const { return key_; }
    bool success() const { return success_; }
    void successIs(bool v) { assign(success_, v, successAttr); }
    // The group that was allocated.
    U32 multicastId() const { return multicastId_; }
    void multicastIdIs(U32 v) { assign(multicastId_, v, multicastIdAttr); }
    U32 multicastIdInc(U32 n) { return increase(multicastId_, n, multicastIdAttr); }
    U32 multicastIdDec(U32 n) { return decrease(multicastId_, n, multicastIdAttr); }
    // The request that is answered.
    U32 requestId() const { return requestId_; }
    void requestIdIs(U32 v) { assign(requestId_, v, requestIdAttr); }
    U32 requestIdInc(U32 n) { return increase(requestId_, n, requestIdAttr); }
    U32 requestIdDec(U32 n) { return decrease(requestId_, n, requestIdAttr); }
    U32 responseId() const { return responseId_; }
    void responseIdIs(U32 v) { assign(responseId_, v, responseIdAttr); }
    U32 responseIdInc(U32 n) { return increase(responseId_, n, responseIdAttr); }
    U32 responseIdDec(U32 n) { return decrease(responseId_, n, responseIdAttr); }

private:
    friend EntityOf;
    friend Vomo::Describe<Response>;
    bool success_ = false;
    U32 multicastId_ = 0;
    U32 requestId_ = 0;
    U32 responseId_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};

// The requests of one agent.
class Config : public Vomo::NamedEntity<Config> {
public:
    enum Attr : U32 { requestAttr = 258 };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Config> ConfigIs(Vomo::String const& name) {
        return Vomo::newEntity<Config>(name);
    }

    using RequestMap =
        Vomo::Children<Config, requestAttr, Request, &Request::key, Vomo::LegacyHash>;
    using VomoRequest = RequestMap::Node;
    Vomo::Ptr<Request> request(GroupKey key) const { return request_.at(key); }
    RequestMap const& request() const { return request_; }
    Vomo::Ptr<Request> requestIs(GroupKey key) { return request_.is(this, key); }
    Vomo::Ptr<Request> requestDel(GroupKey key) { return request_.del(this, key); }
    void requestDelAll() { request_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<Config>;
    RequestMap request_;
    mutable Vomo::NotifieeList notifiees_;
};

// The responses to one agent.
class Status : public Vomo::NamedEntity<Status> {
public:
    enum Attr : U32 { responseAttr = 258 };
    using NamedEntity::NamedEntity;
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }

    using ResponseMap =
        Vomo::Children<Status, responseAttr, Response, &Response::key, Vomo::LegacyHash>;
    using VomoResponse = ResponseMap::Node;
    Vomo::Ptr<Response> response(GroupKey key) const { return response_.at(key); }
    ResponseMap const& response() const { return response_; }
    Vomo::Ptr<Response> responseIs(GroupKey key) { return response_.is(this, key); }
    Vomo::Ptr<Response> responseDel(GroupKey key) { return response_.del(this, key); }
    void responseDelAll() { response_.delAll(this); }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    ResponseMap response_;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<Config> configFactory(Vomo::String const& name);
Vomo::Ptr<Status> statusFactory(Vomo::String const& name);
Vomo::Ptr<Request> requestFactory(GroupKey key);
Vomo::Ptr<Response> responseFactory(GroupKey key);

} // namespace Multicast::Group
