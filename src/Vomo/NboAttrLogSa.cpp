#include "Vomo/NboAttrLogSa.h"

#include "Vomo/NboAttrLogDemuxer.h"

#include <algorithm>

namespace Vomo {

using NboAttrLog::CollSerializationCtx;
namespace MessageFlag = NboAttrLog::MessageFlag;
using NboAttrLog::Out;
using Sa = Entity::VomoNboAttrLogSa;

void NboAttrLog::Impl::outSmCommitMessage(Demuxer& outSm) {
    outSm.commit();
}

void NboAttrLog::ensureCorrectType(Entity const& entity, VomoTypeBase type) {
    if (!VomoTypeBase::isDerived(entity.fwkType(), type))
        Dunlin::fmthrow<TypeException>("attribute log: a {} where a {} is wanted",
                                       entity.fwkType().name(), type.name());
}

// StreamAdapterIsActiveAnchor

StreamAdapterIsActiveAnchor::StreamAdapterIsActiveAnchor(StreamAdapter& sa, Row const& row,
                                                         void const* key)
    : sa_(sa), row_(row), key_(key), outer_(std::exchange(sa.active_, this)),
      outerFlags_(sa.flags_) {
    sa.flags_ |= StreamAdapter::isActive;
}
StreamAdapterIsActiveAnchor::~StreamAdapterIsActiveAnchor() {
    sa_.active_ = outer_;
    sa_.flags_ = outerFlags_;
}
bool StreamAdapterIsActiveAnchor::takes(StreamAdapter const& sa, U32 attrId, void const* key) {
    StreamAdapterIsActiveAnchor* const at = sa.active_;
    if (at == nullptr || at->taken_ || attrId != at->row_.number) return false;
    if (at->key_ != nullptr && !at->row_.collection->key->equal(key, at->key_)) return false;
    return at->taken_ = true;
}

// The adapter

Sa::VomoNboAttrLogSa(NboAttrLog::Demuxer& demuxer, NboAttrLog::EntityWatch& watch,
                     Ptr<Entity> entity, EntityId id, U32 lastSynced)
    : demuxer_(demuxer), watch_(watch), entity_(std::move(entity)), id_(id) {
    flowOut_ = stream().newFlowOut(this, false, lastSynced);
    watch_.adapterIs(this);
}
Sa::~VomoNboAttrLogSa() {
    watch_.adapterDel(this);
    stream().freeResyncState(flowOut_);
}

StreamTable const& Sa::stream() const {
    VomoTypeBase const type = entity_->fwkType();
    return *type.module->genericTable[type.index].stream;
}
Out& Sa::nboAttrLogOut() const {
    return demuxer_.out();
}
bool Sa::continueFlowOut() const {
    return demuxer_.continueFlowOut();
}
bool Sa::isOkToSerialize() const {
    return demuxer_.connected();
}

void Sa::onAttribute(U32 attrId, void const* key) {
    if (!StreamAdapterIsActiveAnchor::takes(*this, attrId, key))
        stream().streamAdapterOnAttribute(this, attrId, key);
}
void Sa::onAttributeForConnection(U32 attrId, void const* key) {
    FlagScope const scope(*this, inPass);
    stream().streamAdapterOnAttribute(this, attrId, key);
}
bool Sa::flowOutOnAttributeForConnection(NboAttrLog::FlowOut& flow, U32 attrId) {
    if (!continueFlowOut()) return false;
    if (!flow.vomoHasSynced(attrId) || flow.vomoIsDirty(attrId))
        onAttributeForConnection(attrId, nullptr);
    flow.vomoHasSyncedIs(attrId, true);
    return true;
}

Out* Sa::singletonSerializeCheck(U32 attrId, bool deferred, U32 count, std::size_t size, U8 flags) {
    if (!isOkToSerialize()) return nullptr;
    if (!deferred) {
        if (!flowOut_->vomoHasSynced(attrId)) return nullptr; // the resync has yet to come by
        if (!continueFlowOut()) {
            flowOut_->vomoIsDirtyIs(attrId, true);
            demuxer_.wait(*this);
            return nullptr;
        }
    }
    flowOut_->vomoIsDirtyIs(attrId, false);
    if (!demuxer_.fits(*this, attrId, count * size)) return nullptr;
    return &demuxer_.begin(id_, static_cast<S32>(attrId), flags, size);
}

void Sa::handleValueSerialization(U32 attrId, FieldType const& type, void const* value,
                                  bool deferred) {
    if ((flags_ & hasSiblings) != 0 && (flags_ & (inPass | isActive)) == 0 &&
        doMessageMulticast(attrId, type, value, deferred))
        return;
    Out* const out = singletonSerializeCheck(attrId, deferred, 1, type.logSize(value), 0);
    if (out == nullptr) return;
    type.write(*out, value);
    NboAttrLog::Impl::outSmCommitMessage(demuxer_);
}

// Whom the visit has reached before, or this does, is told. The bytes are the same for all: no scalar
// holds a number that means another entity on another connection.
bool Sa::doMessageMulticast(U32 attrId, FieldType const& type, void const* value, bool deferred) {
    Out payload;
    type.write(payload, value);
    for (Sa* const sa : watch_.adapters()) {
        if (sa->round == watch_.round() && sa != this) continue;
        sa->round = watch_.round();
        if (StreamAdapterIsActiveAnchor::takes(*sa, attrId, nullptr)) continue;
        Out* const out = sa->singletonSerializeCheck(attrId, deferred, 1, payload.size(), 0);
        if (out == nullptr) continue;
        out->append(payload.bytes().data(), payload.size());
        NboAttrLog::Impl::outSmCommitMessage(sa->demuxer_);
    }
    return true;
}

bool Sa::handleSerializationOfCollCheck() const {
    return continueFlowOut();
}
void Sa::handleCollSerializationTransactionMarkers(U32 attrId, AttrTransactionType kind,
                                                   bool flag) {
    U8 const mark =
        kind == AttrTransactionType::begin ? MessageFlag::beginMark : MessageFlag::endMark;
    demuxer_.begin(id_, static_cast<S32>(attrId),
                   static_cast<U8>(mark | (flag ? MessageFlag::resumed : 0)), 0);
    NboAttrLog::Impl::outSmCommitMessage(demuxer_);
}

Out* Sa::collSerializeCheckNoHdr(CollSerializationCtx const& ctx, std::size_t size) const {
    if (!isOkToSerialize()) return nullptr;
    if (ctx.deferred == 0 && (!ctx.flowOut->vomoHasSynced(ctx.attrId) || !continueFlowOut()))
        return nullptr;
    return demuxer_.fits(*this, ctx.attrId, size) ? &nboAttrLogOut() : nullptr;
}
Out* Sa::collSerializeCheck(CollSerializationCtx const& ctx, std::size_t size) {
    Out* const out = collSerializeCheckNoHdr(ctx, size);
    if (out != nullptr) ptrCollAddHdr(ctx, size);
    return out;
}
void Sa::ptrCollAddHdr(CollSerializationCtx const& ctx, std::size_t size) {
    auto const number = static_cast<S32>(ctx.attrId);
    demuxer_.begin(id_, (ctx.flags & CollSerializationCtx::isGone) != 0 ? -number : number,
                   MessageFlag::inCollection, size);
}

namespace {
// Behind a child's key: whether another one follows, and the number of one that is there.
std::size_t childSize(Entity const* child) {
    return sizeof(U16) + (child == nullptr ? 0 : sizeof(EntityId));
}
} // namespace

Out* Sa::instantiatingCollSerializeCheck(CollSerializationCtx const& ctx, Entity const* child,
                                         std::size_t size) const {
    return collSerializeCheckNoHdr(ctx, size + childSize(child));
}
void Sa::instantiatingCollAddHdr(CollSerializationCtx const& ctx, Entity const* child,
                                 std::size_t size) {
    ptrCollAddHdr(ctx, size + childSize(child));
}

bool Sa::handleInstantiatingCollSerializationImpl(CollSerializationCtx const& ctx,
                                                  CollectionOps const& coll, void const* key,
                                                  Entity* child) {
    std::size_t const size = coll.key->logSize(key);
    Out* const out = instantiatingCollSerializeCheck(ctx, child, size);
    if (out == nullptr) return false;
    bool const ephemeral =
        ctx.flowOut->keyDel(ctx.attrId, NboAttrLog::FlowOut::Keys::ephemeral, key);
    if (child == nullptr || ephemeral) {
        CollSerializationCtx gone = ctx;
        gone.flags |= CollSerializationCtx::isGone;
        instantiatingCollAddHdr(gone, nullptr, size);
        coll.key->write(*out, key);
        *out << U16{child != nullptr};
        NboAttrLog::Impl::outSmCommitMessage(demuxer_);
        demuxer_.childLeft();
    }
    if (child != nullptr) handleInstantiatingEntitySerialization(ctx, coll, key, child);
    return true;
}
void Sa::handleInstantiatingEntitySerialization(CollSerializationCtx const& ctx,
                                                CollectionOps const& coll, void const* key,
                                                Entity* child) {
    Out& out = nboAttrLogOut();
    child->vomoNboAttrLogSa(out); // announces it, if it is new to the peer
    instantiatingCollAddHdr(ctx, child, coll.key->logSize(key));
    coll.key->write(out, key);
    out << U16{0} << child;
    NboAttrLog::Impl::outSmCommitMessage(demuxer_);
}

void Sa::dirtyCollIs(Row const& row, void const* key) {
    // A fresh walk has yet to come by, and sends what is there then. Behind its back only keys of a
    // walk that has begun can be missed.
    bool const synced = flowOut_->vomoHasSynced(row.number);
    if (!synced && !isWalking(row)) return;
    flowOut_->keyAdd(row.number, NboAttrLog::FlowOut::Keys::dirty, key);
    if (synced) demuxer_.wait(*this);
}
void Sa::dirtyCollDel(Row const& row, void const* key) {
    flowOut_->keyDel(row.number, NboAttrLog::FlowOut::Keys::dirty, key);
}

bool Sa::allowWriteFromReadOnlyRemote(U32 attrId) const {
    return demuxer_.allowWriteFromReadOnlyRemote &&
           demuxer_.allowWriteFromReadOnlyRemote(*this, attrId);
}
void Sa::throwWriteUpdateFromReadOnlyProxyException() const {
    Dunlin::fmthrow<ArgumentException>("a peer that may only read sent a change of {} {}",
                                       entity_->fwkType().name(), entity_->name());
}
void Sa::doBaseVomoNboAttrLogSaMsg(S32 attrId) const {
    Dunlin::fmthrow<AttrLogRecordException>(
        "attribute log: {} has no attribute {} that can be {}", entity_->fwkType().name(),
        attrId < 0 ? -S64{attrId} : S64{attrId}, attrId < 0 ? "taken from" : "sent");
}

// EntityWatch

namespace NboAttrLog {

void EntityWatch::onAttribute(U32 attrId, void const* key) {
    ConnectionGroup::Busy const busy(group_); // nobody leaves
    struct Round {
        EntityWatch& watch;
        U64 const outer = std::exchange(watch.round_, ++watch.lastRound_);
        U64 const own = watch.round_;
        ~Round() { watch.round_ = outer; }
    } const round{*this};
    for (std::size_t i = 0; i < adapters_.size(); ++i)
        if (adapters_[i]->round != round.own) {
            adapters_[i]->round = round.own;
            adapters_[i]->onAttribute(attrId, key);
        }
}

void EntityWatch::adapterIs(Sa* sa) {
    adapters_.push_back(sa);
    flagsUpdate();
}
void EntityWatch::adapterDel(Sa* sa) {
    std::erase(adapters_, sa);
    flagsUpdate();
}
void EntityWatch::flagsUpdate() {
    for (Sa* const sa : adapters_) sa->hasSiblingsIs(adapters_.size() > 1);
}

} // namespace NboAttrLog
} // namespace Vomo
