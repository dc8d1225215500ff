#include "Vomo/NboAttrLogDemuxer.h"

#include "Dunlin/Trace.h"
#include "Vomo/GenericIf.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace Vomo {

Entity::VomoNboAttrLogSa& Entity::vomoNboAttrLogSa(NboAttrLog::Out& out) {
    return out.demuxer()->adapterOf(this);
}

NboAttrLog::Out& operator<<(NboAttrLog::Out& out, Entity const* entity) {
    auto const* const sa = entity == nullptr ? nullptr : out.demuxer()->adapterIfAny(entity);
    return out << (sa == nullptr ? EntityId{0} : sa->id());
}

namespace NboAttrLog {

Entity* In::nextEntity() {
    EntityId const id{nextU32()};
    return id == EntityId{0} ? nullptr : demuxer_->entityOf(id);
}

namespace {

constexpr EntityId rootId{1};
constexpr U32 mirrorIds = 0x80000000; // of children that the mirror makes

void checkAllRead(In const& in) {
    if (in.remaining() != 0)
        Dunlin::fmthrow<AttrLogRecordException>("message of the attribute log: {} bytes too many",
                                                in.remaining());
}

} // namespace

// ConnectionGroup

EntityWatch& ConnectionGroup::watch(Entity* entity) {
    auto& slot = watches_[entity];
    if (slot == nullptr) slot = std::make_unique<EntityWatch>(*this, entity);
    return *slot;
}
void ConnectionGroup::watchDel(Entity* entity) {
    auto const at = watches_.find(entity);
    if (at != watches_.end() && at->second->adapters().empty()) watches_.erase(at);
}
void ConnectionGroup::settle() {
    for (std::size_t i = 0; i < members_.size(); ++i) members_[i]->settle();
}

// Demuxer

Demuxer::Demuxer(Role role, Ptr<Entity> root, bool readOnlyRemote, ConnectionGroup* group)
    : role_(role), root_(std::move(root)), readOnlyRemote_(readOnlyRemote),
      group_(group == nullptr ? own_ : *group), out_(this) {
    group_.members_.push_back(this);
    connect(false);
}

Demuxer::~Demuxer() {
    PLAINASSERT(!group_.isBusy(), "!group_.isBusy()");
    connect(false);
    std::erase(group_.members_, this);
}

void Demuxer::connectedIs(bool connected) {
    if (!group_.isBusy()) return connect(connected);
    connectedNext_ = connected;
    for (auto const& [id, sa] : adapters_) sa->vomoRawFlowOut()->stopRequestIs(true);
}

void Demuxer::connect(bool connected) {
    while (!adapters_.empty()) retire(adapters_.begin()->first);
    announced_ = nullptr;
    announcedName_ = {};
    announcedType_ = {};
    left_ = 0;
    waiting_.clear();
    in_.clear();
    inLater_.clear();
    damaged_ = false;
    synced_ = false;
    raised_ = nullptr;
    out_.clear();
    sent_ = 0;
    connected_ = connected;
    nextId_ = static_cast<U32>(rootId) + 1;
    peerNextId_ = mirrorIds;
    if (role_ == Role::mirror) std::swap(nextId_, peerNextId_);
    if (!connected) return;
    if (role_ == Role::mirror) {
        bind(rootId, root_, true);
        return;
    }
    wait(adapterNew(root_, rootId, 0));
    flow();
}

void Demuxer::settle() {
    if (connectedNext_) connect(*std::exchange(connectedNext_, std::nullopt));
    if (std::exchange(flowNext_, false)) flow();
    if (std::exchange(receiveNext_, false) && onWaiting) onWaiting();
}

void Demuxer::budgetIs(std::size_t bytes) {
    budget_ = std::max<std::size_t>(bytes, 1);
    flow();
}

bool Demuxer::wasAnnounced(EntityId id) const {
    auto const number = static_cast<U32>(id);
    U32 const next = (number < mirrorIds) == (role_ == Role::source) ? nextId_ : peerNextId_;
    return number != 0 && number < next;
}

Sa& Demuxer::adapterNew(Ptr<Entity> entity, EntityId id, U32 lastSynced) {
    ids_[entity.ptr()] = id;
    EntityWatch& watch = group_.watch(entity.ptr());
    auto& slot = adapters_[id];
    slot = std::make_unique<Sa>(*this, watch, std::move(entity), id, lastSynced);
    return *slot;
}

// An entity that the peer has announced: what it holds is known there.
void Demuxer::bind(EntityId id, Ptr<Entity> entity, bool wasThere) {
    // Both sides may have made the child and numbered it. The source's number holds, and what it sends
    // of the child; so it does not listen to the other number. Its own may have yet to come.
    if (wasThere && role_ == Role::source) return;
    if (auto const known = ids_.find(entity.ptr()); known != ids_.end()) {
        if (known->second == id) return;
        retire(known->second);
    }
    adapterNew(std::move(entity), id, std::numeric_limits<U32>::max());
}

Sa& Demuxer::adapterOf(Entity* entity) {
    if (auto const known = ids_.find(entity); known != ids_.end()) {
        if (left_ == 0) return *adapters_.at(known->second);
        retire(known->second); // may have left and come back: to the peer it is a new one
    }
    Sa& sa = adapterNew(Ptr<Entity>(entity), EntityId{nextId_++}, 0);
    String const type(entity->fwkType().name());
    std::size_t const size =
        fieldType<String>.logSize(&type) + sa.stream().attrLogSizeCtorParams(entity);
    begin(sa.id(), 0, MessageFlag::announcement, size) << type;
    sa.stream().serializeConstructorParams(out_, entity);
    commit();
    wait(sa);
    return sa;
}
Sa* Demuxer::adapterIfAny(Entity const* entity) const {
    auto const known = ids_.find(entity);
    return known == ids_.end() ? nullptr : adapters_.at(known->second).get();
}

Entity* Demuxer::entityOf(EntityId id) const {
    if (auto const at = adapters_.find(id); at != adapters_.end()) return at->second->entity();
    if (announced_ && announcedId_ == id) return announced_.ptr();
    if (!wasAnnounced(id))
        Dunlin::fmthrow<AttrLogRecordException>("attribute log: entity {} was never announced",
                                                static_cast<U32>(id));
    return nullptr;
}
Ptr<Entity> Demuxer::announcedTake(EntityId id) {
    return announcedId_ == id ? std::exchange(announced_, nullptr) : nullptr;
}

// What has left its parent is of no concern any more, with all below it. Called when no adapter is at
// work; for all that have left meanwhile at once.
void Demuxer::dropOrphans() {
    if (std::exchange(left_, 0) == 0) return;
    for (bool again = true; std::exchange(again, false);)
        for (auto at = adapters_.begin(); at != adapters_.end();) {
            auto const& [id, sa] = *at++;
            if (!checkEphemeralEntityDeletion(sa->entity(), id)) continue;
            retire(id);
            again = true; // those below it are orphans now
        }
}
bool Demuxer::checkEphemeralEntityDeletion(Entity const* entity, EntityId id) const {
    return id != rootId && (entity->parent() == nullptr || !ids_.contains(entity->parent()));
}

// The peer may still write to it for a while.
void Demuxer::retire(EntityId id) {
    auto const at = adapters_.find(id);
    Ptr<Entity> const entity(at->second->entity());
    ids_.erase(entity.ptr());
    adapters_.erase(at);
    group_.watchDel(entity.ptr());
}

bool Demuxer::fits(Sa const& sa, U32 attrId, std::size_t size) const {
    if (size <= maxMessageSize - messageHeaderSize) return true;
    static auto const& handler = *Dunlin::Platform::getDebugHandler("NboAttrLog", false);
    FMTRACE(handler, 0, "attribute {} of {} {} is not sent: {} bytes, at most {} are possible",
            attrId, sa.entity()->fwkType().name(), sa.entity()->name(), size,
            maxMessageSize - messageHeaderSize);
    return false;
}

Out& Demuxer::begin(EntityId id, S32 attrId, U8 flags, std::size_t size) {
    messageStart_ = out_.size();
    messageSize_ = messageHeaderSize + size;
    return out_ << static_cast<U32>(messageSize_) << id << attrId << flags;
}

void Demuxer::commit() {
    std::size_t const size = out_.size() - messageStart_;
    // A collection that ended at its end mark takes less than it said.
    PLAINASSERT(size <= messageSize_, "size <= messageSize_");
    if (size != messageSize_)
        putBigEndian(const_cast<U8*>(out_.bytes().data()) + messageStart_, static_cast<U32>(size));
    ++messagesSent_;
    if (messageStart_ == sent_ && onWaiting) onWaiting();
}

void Demuxer::consumed(std::size_t bytes) {
    sent_ += bytes;
    // What has gone is dropped though the queue never empties: it is moved over by no more than that.
    if (sent_ >= waitingBytes()) out_.discard(std::exchange(sent_, 0));
    flow();
}

void Demuxer::wait(Sa& sa) {
    if (!std::exchange(sa.waiting, true)) waiting_.push_back(sa.id());
}

void Demuxer::flow() {
    if (group_.isBusy()) {
        flowNext_ = true;
        return;
    }
    {
        ConnectionGroup::Busy const busy(group_);
        while (!waiting_.empty() && continueFlowOut() && !connectedNext_) {
            auto const at = adapters_.find(waiting_.front());
            if (at == adapters_.end()) { // has left meanwhile
                waiting_.pop_front();
                continue;
            }
            Sa& sa = *at->second;
            FlowOut& flow = *sa.vomoRawFlowOut();
            flow.attributeIdIs(sa.stream().handleAttrFlowOut(&sa, flow.attributeId()));
            if (flow.attributeId() != 0) break;
            // What has changed before the place where the pass went on is dirty.
            if (flow.isDirty()) continue;
            sa.waiting = false;
            waiting_.pop_front(); // others were only added behind
        }
        if (role_ == Role::source && connected_ && !synced_ && waiting_.empty() &&
            continueFlowOut()) {
            begin(rootId, 0, MessageFlag::synced, 0);
            commit();
            synced_ = true;
        }
        // A queue may never be empty: what has left is not kept for long.
        if (waitingBytes() == 0 || left_ > 64 + adapters_.size() / 2) dropOrphans();
    }
}

void Demuxer::receive(std::span<U8 const> bytes) {
    if (group_.isBusy()) {
        inLater_.insert(inLater_.end(), bytes.begin(), bytes.end());
        receiveNext_ = true;
        return;
    }
    ConnectionGroup::Busy const busy(group_);
    in_.insert(in_.end(), inLater_.begin(), inLater_.end());
    inLater_.clear();
    in_.insert(in_.end(), bytes.begin(), bytes.end());
    std::size_t done = 0;
    struct Erase {
        std::vector<U8>& in;
        std::size_t& done;
        ~Erase() { in.erase(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(done)); }
    } const erase{in_, done};
    while (in_.size() - done >= sizeof(U32) && !connectedNext_) {
        std::span<U8 const> const rest = std::span<U8 const>(in_).subspan(done);
        U32 const size = In(rest).nextU32();
        damaged_ = size < messageHeaderSize || size > maxMessageSize;
        if (damaged_)
            Dunlin::fmthrow<AttrLogRecordException>(
                "message of the attribute log: length {}, must be {} to {}", size,
                messageHeaderSize, maxMessageSize);
        if (rest.size() < size) break;
        damaged_ = true; // unless it can be read
        handleMessage(rest.first(size));
        damaged_ = false;
        ++messagesReceived_;
        done += size;
    }
    dropOrphans();
    if (raised_) std::rethrow_exception(std::exchange(raised_, nullptr));
}

void Demuxer::handleMessage(std::span<U8 const> message) {
    In in(message.subspan(sizeof(U32)), this);
    EntityId const id{in.nextU32()};
    S32 const attrId = in.nextS32();
    U8 const flags = in.nextU8();
    if (flags == MessageFlag::announcement && attrId == 0) return handleAnnouncement(id, in);
    if (flags == MessageFlag::synced && attrId == 0) return handleSynced(id, in);
    auto const mark = static_cast<U8>(flags & ~MessageFlag::resumed);
    bool const isMark = mark == MessageFlag::beginMark || mark == MessageFlag::endMark;
    if (!isMark && flags != 0 && flags != MessageFlag::inCollection)
        Dunlin::fmthrow<AttrLogRecordException>("attribute log: a message with flags {:#x}", flags);
    auto const at = adapters_.find(id);
    if (at == adapters_.end()) {
        entityOf(id); // raises if it was never announced
        // A child that was to be put into an entity that went is gone, too: its number ends the
        // message.
        if (attrId > 0 && flags == MessageFlag::inCollection && in.remaining() > sizeof(U32)) {
            in.take(in.remaining() - sizeof(U32));
            announcedTake(in.peekEntityId());
        }
        return;
    }
    Sa& sa = *at->second;
    // No attribute; and the one number that cannot be negated.
    if (attrId == std::numeric_limits<S32>::min()) sa.doBaseVomoNboAttrLogSaMsg(attrId);
    if (readOnlyRemote_ && role_ == Role::source &&
        !sa.allowWriteFromReadOnlyRemote(static_cast<U32>(std::abs(attrId))))
        sa.throwWriteUpdateFromReadOnlyProxyException();
    if (isMark) {
        checkAllRead(in);
        U32 const kind = mark == MessageFlag::beginMark ? 0 : 2;
        if (attrId < 0 || !sa.stream().doHandleAttrTransaction(&sa, static_cast<U32>(attrId), kind,
                                                               (flags & MessageFlag::resumed) != 0))
            sa.doBaseVomoNboAttrLogSaMsg(attrId);
        return;
    }
    sa.stream().doHandleAttrDeserialization(&sa, attrId, &in);
}

void Demuxer::handleSynced(EntityId id, In& in) {
    checkAllRead(in);
    if (role_ == Role::source || id != rootId)
        Dunlin::fmthrow<AttrLogRecordException>(
            "attribute log: entity {} is said to be synced by one who cannot say so",
            static_cast<U32>(id));
    if (!std::exchange(synced_, true) && onSynced) apply(onSynced);
}

// The entity is made, and waits for the next message to put it somewhere.
void Demuxer::handleAnnouncement(EntityId id, In& in) {
    if (announced_)
        Dunlin::fmthrow<AttrLogRecordException>(
            "attribute log: entity {} is announced while {} has no place", static_cast<U32>(id),
            static_cast<U32>(announcedId_));
    if (id != EntityId{peerNextId_})
        Dunlin::fmthrow<AttrLogRecordException>(
            "attribute log: entity {} is announced, the next is {}", static_cast<U32>(id),
            peerNextId_);
    String const name = in.nextString();
    if (name != announcedName_) { // mostly many of a kind
        announcedType_ = typeByName(name);
        announcedName_ = name;
    }
    VomoType const type = announcedType_;
    if (type.isNull() || !type.isPolymorphic())
        Dunlin::fmthrow<AttrLogRecordException>(
            "attribute log: entity {} is of a type that is none: {:?}", static_cast<U32>(id),
            std::string_view(name));
    Ptr<Entity> entity;
    try {
        entity = type.module->genericTable[type.index].stream->newEntityForAttrLog(&in);
    } catch (OwnerHasGone) {
        // The peer has yet to hear of it, or was still sending what is below it. The child counts as
        // announced, so that what follows of it is passed over.
        ++peerNextId_;
        return;
    } catch (RangeException const& ex) { // a key that cannot be
        throw AttrLogRecordException(std::string("attribute log: ") + ex.what());
    } catch (NoImplementationException const& ex) {
        throw AttrLogRecordException(std::string("attribute log: ") + ex.what());
    }
    checkAllRead(in);
    announcedId_ = id;
    announced_ = entity;
    ++peerNextId_;
}

} // namespace NboAttrLog
} // namespace Vomo
