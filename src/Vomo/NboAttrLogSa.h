// One entity on one connection: sends its changes, and what a resync passes by.
//
// Every send asks first whether it may go, with the size of what it has to say, and gets the bytes to
// write to or null. What may not go is kept in the entity's FlowOut.
#pragma once

#include "Vomo/EntityFrame.h"

#include <vector>

namespace Vomo {
namespace NboAttrLog {

class EntityWatch;

// The send of one member of a collection.
struct CollSerializationCtx {
    FlowOut* flowOut;
    U32 attrId;
    U8 deferred; // sent by a pass of the resync, which has asked for room
    U32 flags;
    static constexpr U32 isGone = 1;
};

namespace Impl {
// Ends the message that was begun on a connection.
void outSmCommitMessage(Demuxer& outSm);
} // namespace Impl

// `entity` is a `type` or derives from it; raises TypeException otherwise.
void ensureCorrectType(Entity const& entity, VomoTypeBase type);

} // namespace NboAttrLog

// What an entity's end of a connection is to the anchors below.
class StreamAdapter {
public:
    // The marks around a collection in a resync.
    enum class AttrTransactionType : U32 { begin = 0, end = 2 };
    // Flags. Other connections hear of the entity, too; a pass of a resync is at work; a change of the
    // peer is being applied.
    static constexpr U32 hasSiblings = 0x4000, inPass = 0x80000, isActive = 0x100000;

    StreamAdapter(StreamAdapter const&) = delete;
    StreamAdapter& operator=(StreamAdapter const&) = delete;
    U32 flags() const { return flags_; }
    Ptr<NboAttrLog::FlowOut> const& flowOut() const { return flowOut_; }
    NboAttrLog::FlowOut* vomoRawFlowOut() const { return flowOut_.ptr(); }

protected:
    StreamAdapter() = default;
    ~StreamAdapter() = default;
    // Sets flags as long as it lives.
    class FlagScope {
    public:
        FlagScope(StreamAdapter& sa, U32 flag) : sa_(sa), old_(sa.flags_) { sa.flags_ |= flag; }
        ~FlagScope() { sa_.flags_ = old_; }
        FlagScope(FlagScope const&) = delete;
        FlagScope& operator=(FlagScope const&) = delete;

    private:
        StreamAdapter& sa_;
        U32 old_;
    };

    U32 flags_ = 0;
    Ptr<NboAttrLog::FlowOut> flowOut_;

private:
    friend class StreamAdapterIsActiveAnchor;
    class StreamAdapterIsActiveAnchor* active_ = nullptr;
};

// While it lives, one change of the peer is being applied. The notification of that very attribute
// and key is not sent back, once; what a notifiee changes in answer goes out.
class StreamAdapterIsActiveAnchor {
public:
    // `key` is that of the member; null for a scalar.
    StreamAdapterIsActiveAnchor(StreamAdapter& sa, Row const& row, void const* key);
    ~StreamAdapterIsActiveAnchor();
    StreamAdapterIsActiveAnchor(StreamAdapterIsActiveAnchor const&) = delete;
    StreamAdapterIsActiveAnchor& operator=(StreamAdapterIsActiveAnchor const&) = delete;
    // Whether this is the change that is being applied on `sa`; true once.
    static bool takes(StreamAdapter const& sa, U32 attrId, void const* key);

private:
    StreamAdapter& sa_;
    Row const& row_;
    void const* key_;
    StreamAdapterIsActiveAnchor* outer_;
    U32 outerFlags_;
    bool taken_ = false;
};

// Keeps a child while it is looked at: a notifiee may take it out.
class StreamAdapterAccessorAnchor {
public:
    explicit StreamAdapterAccessorAnchor(Entity const* entity)
        : entity_(const_cast<Entity*>(entity)) {}

private:
    Ptr<Entity> entity_;
};

class Entity::VomoNboAttrLogSa final : public StreamAdapter {
public:
    // `watch` is the one of the entity. Attributes of a lower number than `lastSynced` are known to
    // the peer.
    VomoNboAttrLogSa(NboAttrLog::Demuxer& demuxer, NboAttrLog::EntityWatch& watch,
                     Ptr<Entity> entity, EntityId id, U32 lastSynced);
    ~VomoNboAttrLogSa();

    Entity* entity() const { return entity_.ptr(); }
    // As the rows know the object: an entity's class begins with its Entity.
    void* object() const { return entity_.ptr(); }
    EntityId id() const { return id_; }
    StreamTable const& stream() const;
    NboAttrLog::EntityWatch& watch() const { return watch_; }
    NboAttrLog::Demuxer& streamDemuxer() const { return demuxer_; }
    NboAttrLog::Out& nboAttrLogOut() const;
    // The connection has room.
    bool continueFlowOut() const;
    // The connection takes messages at all.
    bool isOkToSerialize() const;

    // A local change.
    void onAttribute(U32 attrId, void const* key);
    // Sends one attribute, or one member, for a pass: whether there is room was asked.
    void onAttributeForConnection(U32 attrId, void const* key);
    // A scalar's turn in a pass: sent if the peer has not got it as it is. False without room.
    bool flowOutOnAttributeForConnection(NboAttrLog::FlowOut& flow, U32 attrId);

    // The `count` messages of `size` bytes each about a scalar may go: begins the first, and returns
    // what to write to. Null if not; the flow then knows it. `flags` are those of the message.
    NboAttrLog::Out* singletonSerializeCheck(U32 attrId, bool deferred, U32 count, std::size_t size,
                                             U8 flags);
    void handleValueSerialization(U32 attrId, FieldType const& type, void const* value,
                                  bool deferred);
    // Sends it on all connections that hear of the entity, encoded once. False if it did not.
    bool doMessageMulticast(U32 attrId, FieldType const& type, void const* value, bool deferred);

    // A walk over the collection may begin or go on.
    bool handleSerializationOfCollCheck() const;
    // `flag`: of a walk that goes on.
    void handleCollSerializationTransactionMarkers(U32 attrId, AttrTransactionType kind, bool flag);
    // A message of that size about a member may go; the second also begins it.
    NboAttrLog::Out* collSerializeCheckNoHdr(NboAttrLog::CollSerializationCtx const& ctx,
                                             std::size_t size) const;
    NboAttrLog::Out* collSerializeCheck(NboAttrLog::CollSerializationCtx const& ctx,
                                        std::size_t size);
    void ptrCollAddHdr(NboAttrLog::CollSerializationCtx const& ctx, std::size_t size);
    // The same for a member that is a child, null if it is gone; `size` is the key's.
    NboAttrLog::Out* instantiatingCollSerializeCheck(NboAttrLog::CollSerializationCtx const& ctx,
                                                     Entity const* child, std::size_t size) const;
    void instantiatingCollAddHdr(NboAttrLog::CollSerializationCtx const& ctx, Entity const* child,
                                 std::size_t size);
    // Sends a child as it is now: there, with `child`, or gone. False if it may not go.
    bool handleInstantiatingCollSerializationImpl(NboAttrLog::CollSerializationCtx const& ctx,
                                                  CollectionOps const& coll, void const* key,
                                                  Entity* child);
    void handleInstantiatingEntitySerialization(NboAttrLog::CollSerializationCtx const& ctx,
                                                CollectionOps const& coll, void const* key,
                                                Entity* child);
    // A key that could not be sent is kept, if no walk will come by; and is forgotten when it was.
    void dirtyCollIs(Row const& row, void const* key);
    void dirtyCollDel(Row const& row, void const* key);
    // A walk over that collection has begun and waits for room.
    bool isWalking(Row const& row) const {
        return flowOut_->bookmark() != nullptr && flowOut_->attributeId() == row.number;
    }

    // Whether a mirror that may only read may change the attribute all the same.
    bool allowWriteFromReadOnlyRemote(U32 attrId) const;
    [[noreturn]] void throwWriteUpdateFromReadOnlyProxyException() const;
    // A message about an attribute that the entity's classes have not; negative if a member goes.
    // There is nothing below them.
    [[noreturn]] void doBaseVomoNboAttrLogSaMsg(S32 attrId) const;

    // Of the connection and the watch, which alone change them.
    bool waiting = false; // among those that wait for room
    U64 round = 0;        // of the watch's visit that last told this one
    void hasSiblingsIs(bool v) { flags_ = v ? flags_ | hasSiblings : flags_ & ~hasSiblings; }

private:
    NboAttrLog::Demuxer& demuxer_;
    NboAttrLog::EntityWatch& watch_;
    Ptr<Entity> entity_;
    EntityId id_;
};

namespace NboAttrLog {

// Hears an entity for the connections of one group.
class EntityWatch final : public PtrInterface::NotifieeConst {
public:
    explicit EntityWatch(class ConnectionGroup& group, Entity* entity) : group_(group) {
        notifierIs(entity);
    }
    void onAttribute(U32 attrId, void const* key) override;
    void adapterIs(Sa* sa);
    void adapterDel(Sa* sa);
    std::vector<Sa*> const& adapters() const { return adapters_; }
    // Of the visit that runs, 0 of none; an adapter with it has been told.
    U64 round() const { return round_; }

private:
    void flagsUpdate();

    ConnectionGroup& group_;
    std::vector<Sa*> adapters_;
    U64 round_ = 0;
    U64 lastRound_ = 0;
};

} // namespace NboAttrLog
} // namespace Vomo
