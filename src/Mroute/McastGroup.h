// Hardware multicast groups: the key of a group, the kinds that are numbered here, and the entities
// by which an agent asks for a group and is answered.
#pragma once

#include "Mroute/PortVlan.h"
#include "Vomo/HashMap2018.h"
#include "Vomo/NboAttrLogFlow.h"
#include "Vomo/RbTreeMap.h"

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
class Request : public Vomo::EntityOf<Request> {
public:
    enum Attr : U32 { keyAttr = 258, portVlanAttr, requestIdAttr, toCpuAttr, featureFlagAttr };
    // A member that is asked for.
    struct VomoPortVlan : Vomo::RbTreeNode<MrouteLib::PortVlan, bool>, Vomo::Tracked<VomoPortVlan> {
        using RbTreeNode::RbTreeNode;
    };
    using PortVlanMap = Vomo::RbTreeMap<VomoPortVlan, MrouteLib::PortVlan, bool>;
    using PortVlanIterator = PortVlanMap::Iterator;
    // What one connection has yet to send of a request.
    struct FlowOut : Vomo::NboAttrLog::FlowOut {
        bool hasDirtyCollKeys() const override { return vomoIsPortVlanDirty_.members() != 0; }
        Vomo::HSet<MrouteLib::PortVlan, 0U> vomoIsPortVlanDirty_;
    };

    explicit Request(GroupKey key) : key_(key) {}
    static Vomo::Ptr<Request> RequestIs(GroupKey key) { return Vomo::newEntity<Request>(key); }

    GroupKey const& key() const { return key_; }
    // False also if it is no member.
    bool portVlan(MrouteLib::PortVlan const& pv) const;
    PortVlanMap const& portVlan() const { return portVlan_; }
    void portVlanIs(MrouteLib::PortVlan const& pv, bool value);
    // Returns the old value; false if it was no member.
    bool portVlanDel(MrouteLib::PortVlan const& pv);
    // The same for the member on which a walk of `portVlan()` stands.
    bool portVlanDel(PortVlanIterator const& at);
    void portVlanDelAll();
    // Raised by the agent for each new version of the request.
    U32 requestId() const { return requestId_; }
    void requestIdIs(U32 v) { assign(requestId_, v, requestIdAttr); }
    U32 requestIdInc(U32 n) { return increase(requestId_, n, requestIdAttr); }
    U32 requestIdDec(U32 n) { return increase(requestId_, 0 - n, requestIdAttr); }
    // A copy goes to the CPU.
    bool toCpu() const { return toCpu_; }
    void toCpuIs(bool v) { assign(toCpu_, v, toCpuAttr); }
    U32 featureFlag() const { return featureFlag_; }
    void featureFlagIs(U32 v) { assign(featureFlag_, v, featureFlagAttr); }

    Vomo::String name() const override;

private:
    friend EntityOf;
    friend Vomo::Describe<Request>;
    bool removeMember(VomoPortVlan* node);

    GroupKey key_;
    PortVlanMap portVlan_;
    U32 requestId_ = 0;
    bool toCpu_ = false;
    U32 featureFlag_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};

// The answer to a request, in a Status.
class Response : public Vomo::EntityOf<Response> {
public:
    enum Attr : U32 { keyAttr = 258, successAttr, multicastIdAttr, requestIdAttr, responseIdAttr };

    explicit Response(GroupKey key) : key_(key) {}
    static Vomo::Ptr<Response> ResponseIs(GroupKey key) { return Vomo::newEntity<Response>(key); }

    GroupKey const& key() const { return key_; }
    bool success() const { return success_; }
    void successIs(bool v) { assign(success_, v, successAttr); }
    // The group that was allocated.
    U32 multicastId() const { return multicastId_; }
    void multicastIdIs(U32 v) { assign(multicastId_, v, multicastIdAttr); }
    // The request that is answered.
    U32 requestId() const { return requestId_; }
    void requestIdIs(U32 v) { assign(requestId_, v, requestIdAttr); }
    U32 responseId() const { return responseId_; }
    void responseIdIs(U32 v) { assign(responseId_, v, responseIdAttr); }
    U32 responseIdInc(U32 n) { return increase(responseId_, n, responseIdAttr); }
    U32 responseIdDec(U32 n) { return increase(responseId_, 0 - n, responseIdAttr); }

    Vomo::String name() const override;

private:
    friend EntityOf;
    friend Vomo::Describe<Response>;
    GroupKey key_;
    bool success_ = false;
    U32 multicastId_ = 0;
    U32 requestId_ = 0;
    U32 responseId_ = 0;
    mutable Vomo::NotifieeList notifiees_;
};

// The requests of one agent.
class Config : public Vomo::EntityOf<Config> {
public:
    enum Attr : U32 { requestAttr = 258 };
    struct RequestKeyFunktor {
        GroupKey const& operator()(Vomo::Ptr<Request> const& r) const { return r->key(); }
    };
    struct VomoRequest : Vomo::HashMap2018NodeInternalKey<true, 0U, GroupKey, Vomo::Ptr<Request>,
                                                          RequestKeyFunktor, false> {
        using HashMap2018NodeInternalKey::HashMap2018NodeInternalKey;
    };
    using RequestMap = Vomo::HashMap2018<VomoRequest, GroupKey, Vomo::Ptr<Request>>;
    // What one connection has yet to send of a config.
    struct FlowOut : Vomo::NboAttrLog::FlowOut {
        bool hasDirtyCollKeys() const override { return vomoIsRequestDirty_.members() != 0; }
        Vomo::HSet<GroupKey, 0U> vomoIsRequestDirty_;
        Vomo::HSet<GroupKey, 0U> vomoIsRequestDirtyEphemeral_;
    };

    explicit Config(Vomo::String const& name) : name_(name) {}
    ~Config() override;
    static Vomo::Ptr<Config> ConfigIs(Vomo::String const& name) {
        return Vomo::newEntity<Config>(name);
    }

    Vomo::Ptr<Request> request(GroupKey key) const;
    RequestMap const& request() const { return request_; }
    // The request of that key, made if there is none.
    Vomo::Ptr<Request> requestIs(GroupKey key) {
        return childIs<Request>(request_, key, requestAttr);
    }
    // Returns the request, which has no parent any more; null if there was none.
    Vomo::Ptr<Request> requestDel(GroupKey key) {
        return childDel<Request>(request_, key, requestAttr);
    }
    void requestDelAll();

    Vomo::String name() const override { return name_; }

private:
    friend EntityOf;
    friend Vomo::Describe<Config>;
    Vomo::String name_;
    RequestMap request_;
    mutable Vomo::NotifieeList notifiees_;
};

// The responses to one agent.
class Status : public Vomo::EntityOf<Status> {
public:
    enum Attr : U32 { responseAttr = 258 };
    struct ResponseKeyFunktor {
        GroupKey const& operator()(Vomo::Ptr<Response> const& r) const { return r->key(); }
    };
    struct VomoResponse : Vomo::HashMap2018NodeInternalKey<true, 0U, GroupKey, Vomo::Ptr<Response>,
                                                           ResponseKeyFunktor, false> {
        using HashMap2018NodeInternalKey::HashMap2018NodeInternalKey;
    };
    using ResponseMap = Vomo::HashMap2018<VomoResponse, GroupKey, Vomo::Ptr<Response>>;
    // What one connection has yet to send of a status.
    struct FlowOut : Vomo::NboAttrLog::FlowOut {
        bool hasDirtyCollKeys() const override { return vomoIsResponseDirty_.members() != 0; }
        Vomo::HSet<GroupKey, 0U> vomoIsResponseDirty_;
        Vomo::HSet<GroupKey, 0U> vomoIsResponseDirtyEphemeral_;
    };

    explicit Status(Vomo::String const& name) : name_(name) {}
    ~Status() override;
    static Vomo::Ptr<Status> StatusIs(Vomo::String const& name) {
        return Vomo::newEntity<Status>(name);
    }

    Vomo::Ptr<Response> response(GroupKey key) const;
    ResponseMap const& response() const { return response_; }
    Vomo::Ptr<Response> responseIs(GroupKey key) {
        return childIs<Response>(response_, key, responseAttr);
    }
    Vomo::Ptr<Response> responseDel(GroupKey key) {
        return childDel<Response>(response_, key, responseAttr);
    }
    void responseDelAll();

    Vomo::String name() const override { return name_; }

private:
    friend EntityOf;
    friend Vomo::Describe<Status>;
    Vomo::String name_;
    ResponseMap response_;
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<Config> configFactory(Vomo::String const& name);
Vomo::Ptr<Status> statusFactory(Vomo::String const& name);
Vomo::Ptr<Request> requestFactory(GroupKey key);
Vomo::Ptr<Response> responseFactory(GroupKey key);

} // namespace Multicast::Group
