// The attribute log between two processes: a connection replicates a tree of entities.
//
// A message is u32 length of the whole, u32 entity, s32 attribute (negative: a member goes), u8
// flags, payload; all big endian. A connection is symmetric: both sides hold the tree, a change on
// either goes to the other and is not echoed. The source resyncs the mirror when they connect: each
// collection between a begin and an end mark, at which the mirror drops what was not sent again.
//
// The queue to the peer has a budget. A walk that meets a full queue leaves a bookmark and goes on
// later; changes meanwhile wait as dirty keys, so that each goes out once, as it is then.
#pragma once

#include "Vomo/EntityFrame.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>

namespace Vomo::NboAttrLog {

class Connection;

namespace MessageFlag {
constexpr U8 inCollection = 1, beginMark = 2, endMark = 4, resumed = 8;
}
constexpr U32 messageHeaderSize = 13;
constexpr U32 maxMessageSize = 1U << 24;

// The sender's state for one entity: how far a resync is, and what has changed since.
class FlowOut : public Tracked<FlowOut> {
public:
    // The key at which an interrupted walk goes on; null when none is interrupted.
    void* bookmark() const { return bookmark_; }
    void bookmarkIs(CollectionOps const* collection, void const* key);
    void bookmarkDel();
    ~FlowOut() { bookmarkDel(); }

    struct Attribute {
        bool synced = false;
        bool dirty = false;
        bool walking = false; // a walk has begun and not ended
        std::unique_ptr<DirtyKeys> dirtyKeys;
        // Of dirty children: those that the peer holds another child for, which has left here. The
        // peer is told so before it hears of the one that stands there now.
        std::unique_ptr<DirtyKeys> ephemeralKeys;
    };
    // By attribute number.
    std::map<U32, Attribute> attributes;
    bool vomoHasSynced(U32 attrId) { return attributes[attrId].synced; }
    void vomoHasSyncedIs(U32 attrId, bool synced) { attributes[attrId].synced = synced; }
    bool vomoIsDirty(U32 attrId) { return attributes[attrId].dirty; }
    void vomoIsDirtyIs(U32 attrId, bool dirty) { attributes[attrId].dirty = dirty; }
    bool hasDirtyCollKeys() const;
    // Where the resync goes on: 0 from the start.
    U32 resyncAt = 0;
    bool resyncDone = false;

private:
    CollectionOps const* bookmarkOf_ = nullptr;
    void* bookmark_ = nullptr;
};

// One entity on one connection: hears its changes and sends them.
class EntityAdapter final : public NotifieeConst {
public:
    EntityAdapter(Connection& connection, Ptr<Entity> entity, U32 id);
    void onAttribute(U32 attrId, void const* key) override;

    Connection& connection() const { return connection_; }
    Entity* entity() const { return entity_.ptr(); }
    // As the rows know the object: an entity's class begins with its Entity.
    void* object() const { return entity_.ptr(); }
    U32 id() const { return id_; }
    StreamTable const& stream() const;
    FlowOut flow;
    bool waiting = false; // in the connection's list of those that wait for room

private:
    Connection& connection_;
    Ptr<Entity> entity_;
    U32 id_;
};

class Connection {
public:
    enum class Role { source, mirror };

    // `root` stands on both sides under the same type. A source refuses changes of the mirror if
    // the remote is read-only.
    Connection(Role role, Ptr<Entity> root, bool readOnlyRemote = false);
    ~Connection();
    Connection(Connection const&) = delete;
    Connection& operator=(Connection const&) = delete;

    // Connected: the source begins a resync. Disconnected: both forget what was under way, and the
    // entities stay as they are.
    void connectedIs(bool connected);
    // How many bytes may wait for the peer before walks stop; 64 KiB at first. A message that has
    // begun is always finished.
    void budgetIs(std::size_t bytes) { budget_ = bytes; }
    bool continueFlowOut() const { return waitingBytes() < budget_; }
    std::size_t waitingBytes() const { return out_.size() - sent_; }

    // What waits for the peer; `consumed` tells how much of it went.
    std::span<U8 const> waiting() const { return out_.bytes().subspan(sent_); }
    void consumed(std::size_t bytes);
    // Called when something begins to wait; from within a mutator, so it must not call `consumed`.
    std::function<void()> onWaiting;

    // Takes bytes of the peer, in pieces of any size. Raises AttrLogRecordException for a damaged
    // stream, with every entity as it was before the bad message; the connection is then of no
    // use until it has been disconnected.
    void receive(std::span<U8 const> bytes);

    // For measurements and tests: messages sent since the start.
    U64 messagesSent() const { return messagesSent_; }
    U64 messagesReceived() const { return messagesReceived_; }

    // The rest is for the engines.
    Out& begin(EntityAdapter const& sa, S32 attrId, U8 flags);
    void commit();
    // The adapter of a child, made if there is none; true if it was made.
    std::pair<EntityAdapter*, bool> adapterOf(Entity* entity);
    // The peer announces an entity, null for a new one, by that number. Raises AttrLogRecordException
    // if it stands for another entity, or is not one that the peer could give.
    void announced(U32 id, Entity const* entity);
    EntityAdapter& bind(U32 id, Ptr<Entity> entity);
    void wait(EntityAdapter& sa);
    // A child has left its parent; its adapter goes when the peer has been told.
    void childLeft() { ++left_; }
    // Whether this source takes an attribute from a mirror that may only read; none without it.
    std::function<bool(EntityAdapter const&, U32 attrId)> allowWriteFromReadOnlyRemote;
    // What is being applied is not sent back: the change itself, once. What a notifiee changes in
    // answer, be it the same attribute, goes out.
    class ActiveAnchor {
    public:
        // `key` is that of the member; null for a scalar.
        ActiveAnchor(Connection& connection, EntityAdapter const* sa, Row const& row,
                     void const* key)
            : connection_(connection), sa_(sa), row_(row), key_(key),
              outer_(std::exchange(connection.applying_, this)) {}
        ~ActiveAnchor() { connection_.applying_ = outer_; }
        ActiveAnchor(ActiveAnchor const&) = delete;
        ActiveAnchor& operator=(ActiveAnchor const&) = delete;
        // The change that is told is the one being applied; true once.
        bool takes(EntityAdapter const* sa, U32 attrId, void const* key) {
            if (taken_ || sa != sa_ || attrId != row_.number) return false;
            if (key_ != nullptr && !row_.collection->key->equal(key, key_)) return false;
            return taken_ = true;
        }

    private:
        Connection& connection_;
        EntityAdapter const* sa_;
        Row const& row_;
        void const* key_;
        ActiveAnchor* outer_;
        bool taken_ = false;
    };
    bool isApplying(EntityAdapter const* sa, U32 attrId, void const* key) const {
        return applying_ != nullptr && applying_->takes(sa, attrId, key);
    }

private:
    // Sends what waits for room, as long as there is room.
    void flow();
    void handleMessage(std::span<U8 const> message);
    void dropOrphans();
    void retire(U32 id);
    // Either side has given the number to an entity since they connected. One that is not there any
    // more has gone here, while the peer may still write to it.
    bool wasAnnounced(U32 id) const;

    Role role_;
    Ptr<Entity> root_;
    bool readOnlyRemote_;
    bool connected_ = false;
    bool flowing_ = false;
    std::size_t budget_ = 65536;
    Out out_;
    std::size_t sent_ = 0;
    std::size_t messageStart_ = 0;
    std::vector<U8> in_;
    U32 nextId_;     // the number of the next child that is announced here
    U32 peerNextId_; // and there: each side counts up
    std::map<U32, std::unique_ptr<EntityAdapter>> adapters_;
    std::map<Entity*, U32> ids_;
    std::deque<U32> waiting_;
    std::size_t left_ = 0; // children that have left since the orphans were dropped
    ActiveAnchor* applying_ = nullptr;
    U64 messagesSent_ = 0;
    U64 messagesReceived_ = 0;
};

// An incoming write from a peer that may only read.
[[noreturn]] void throwWriteUpdateFromReadOnlyProxyException();

} // namespace Vomo::NboAttrLog
