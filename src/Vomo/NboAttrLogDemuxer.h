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

#include "Vomo/NboAttrLogSa.h"

#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <unordered_map>

namespace Vomo::NboAttrLog {

namespace MessageFlag {
constexpr U8 inCollection = 1, beginMark = 2, endMark = 4, resumed = 8, announcement = 16,
             synced = 32;
}
constexpr U32 messageHeaderSize = 13;
constexpr U32 maxMessageSize = 1U << 24;

// Raised by the reader of an entity whose owner was here and has left.
struct OwnerHasGone {};

// Connections that serve the same tree: what changes is encoded once for all of them. One thread.
class ConnectionGroup {
public:
    ConnectionGroup() = default;
    ConnectionGroup(ConnectionGroup const&) = delete;
    ConnectionGroup& operator=(ConnectionGroup const&) = delete;

    // While one of the connections sends or applies, what is asked of any of them from within waits
    // until the outermost end: its entities are being walked over.
    class Busy {
    public:
        explicit Busy(ConnectionGroup& group) : group_(group) { ++group_.busy_; }
        ~Busy() {
            if (--group_.busy_ == 0) group_.settle();
        }
        Busy(Busy const&) = delete;
        Busy& operator=(Busy const&) = delete;

    private:
        ConnectionGroup& group_;
    };
    bool isBusy() const { return busy_ != 0; }

private:
    friend class Demuxer;
    void settle();
    EntityWatch& watch(Entity* entity);
    // Forgets what no connection needs.
    void watchDel(Entity* entity);

    unsigned busy_ = 0;
    std::vector<Demuxer*> members_;
    std::unordered_map<Entity*, std::unique_ptr<EntityWatch>> watches_;
};

// One connection. Not to be destroyed from within a callback of its tree: `connectedIs(false)` does what
// can be done there.
class Demuxer {
public:
    enum class Role { source, mirror };

    // `root` stands on both sides under the same type. A source refuses changes of the mirror if
    // the remote is read-only. Of connections that serve the same tree: their `group`.
    Demuxer(Role role, Ptr<Entity> root, bool readOnlyRemote = false,
            ConnectionGroup* group = nullptr);
    ~Demuxer();
    Demuxer(Demuxer const&) = delete;
    Demuxer& operator=(Demuxer const&) = delete;

    // Connected: the source begins a resync. Disconnected: both forget what was under way, and the
    // entities stay as they are.
    void connectedIs(bool connected);
    bool connected() const { return connected_; }
    // Of a mirror: all that the source held when they connected has come. What a mirror changes before
    // that may be lost: the resync says what was there before it.
    bool synced() const { return synced_; }
    // Called from within `receive` when that comes true.
    std::function<void()> onSynced;
    // How many bytes may wait for the peer before walks stop, at least 1; 64 KiB at first. A message
    // that has begun is always finished.
    void budgetIs(std::size_t bytes);
    bool continueFlowOut() const { return waitingBytes() < budget_; }
    std::size_t waitingBytes() const { return out_.size() - sent_; }

    // What waits for the peer; `consumed` tells how much of it went.
    std::span<U8 const> waiting() const { return out_.bytes().subspan(sent_); }
    void consumed(std::size_t bytes);
    // Called when something begins to wait, also for `receive` from within a callback: from within
    // mutators, so that it is to note that and return.
    std::function<void()> onWaiting;

    // Takes bytes of the peer, in pieces of any size. Raises AttrLogRecordException for a damaged
    // stream and TypeException for a child of a wrong type, with every entity as it was before the
    // bad message; the connection is then damaged, and of no use until it has been disconnected. What
    // a notifiee of the tree raises first passes on when all the bytes have been applied, and harms
    // nothing. From within a callback of the tree the bytes are only kept: `receive` of nothing goes
    // on with them.
    void receive(std::span<U8 const> bytes);
    bool damaged() const { return damaged_; }

    // Whether this source takes an attribute from a mirror that may only read; none without it.
    std::function<bool(Sa const&, U32 attrId)> allowWriteFromReadOnlyRemote;

    // For measurements and tests: messages sent since the start.
    U64 messagesSent() const { return messagesSent_; }
    U64 messagesReceived() const { return messagesReceived_; }

    // The rest is for the adapters and the engines.
    Out& out() { return out_; }
    // Whether a message can hold `size` bytes more than its header. If not, that is traced at level
    // 0, and the peer does not get it.
    bool fits(Sa const& sa, U32 attrId, std::size_t size) const;
    Out& begin(EntityId id, S32 attrId, U8 flags, std::size_t size);
    void commit();
    void wait(Sa& sa);
    // A child has left its parent; its adapter goes when the peer has been told.
    void childLeft() { ++left_; }
    // The entity's adapter here; made, with its announcement to the peer, if there is none.
    Sa& adapterOf(Entity* entity);
    // Null if the peer has not heard of the entity.
    Sa* adapterIfAny(Entity const* entity) const;
    // The entity of a number: one that is held here, or that the peer has announced and not yet put
    // anywhere. Null if it has gone.
    Entity* entityOf(EntityId id) const;
    // Takes an entity that the peer has announced, to be put somewhere; null if it is not one.
    Ptr<Entity> announcedTake(EntityId id);
    // What the peer has announced under that number is this entity here; `wasThere` before that.
    void bind(EntityId id, Ptr<Entity> entity, bool wasThere);
    // Changes the tree for the peer by `mutate`. What a notifiee raises waits until all that came has
    // been applied: the change stands, and what belongs to it has yet to be noted. Without memory there
    // may be no change, and a resync has to make it.
    template <class Mutate>
    void apply(Mutate&& mutate) {
        try {
            mutate();
        } catch (std::bad_alloc const&) {
            throw;
        } catch (...) {
            if (!raised_) raised_ = std::current_exception();
        }
    }

private:
    friend class ConnectionGroup;

    void connect(bool connected);
    // What was asked from within a callback.
    void settle();
    // Sends what waits for room, as long as there is room.
    void flow();
    void handleMessage(std::span<U8 const> message);
    void handleSynced(EntityId id, In& in);
    void handleAnnouncement(EntityId id, In& in);
    Sa& adapterNew(Ptr<Entity> entity, EntityId id, U32 lastSynced);
    void dropOrphans();
    // Whether an entity that this connection knows has left the tree: it, or one above it.
    bool checkEphemeralEntityDeletion(Entity const* entity, EntityId id) const;
    void retire(EntityId id);
    // Either side has given the number to an entity since they connected. One that is not there any
    // more has gone here, while the peer may still write to it.
    bool wasAnnounced(EntityId id) const;

    Role role_;
    Ptr<Entity> root_;
    bool readOnlyRemote_;
    ConnectionGroup own_;
    ConnectionGroup& group_;
    bool connected_ = false;
    std::optional<bool> connectedNext_; // asked for from within a callback
    bool flowNext_ = false;
    bool receiveNext_ = false;
    std::size_t budget_ = 65536;
    Out out_;
    std::size_t sent_ = 0;
    std::size_t messageStart_ = 0;
    std::size_t messageSize_ = 0;
    std::vector<U8> in_;
    std::vector<U8> inLater_; // came from within a callback
    bool damaged_ = false;
    bool synced_ = false;       // of a source: it has said so
    std::exception_ptr raised_; // by a notifiee
    U32 nextId_;                // the number of the next child that is announced here
    U32 peerNextId_;            // and there: each side counts up
    std::unordered_map<EntityId, std::unique_ptr<Sa>> adapters_;
    std::unordered_map<Entity const*, EntityId> ids_;
    EntityId announcedId_{}; // by the peer, and not yet put anywhere
    Ptr<Entity> announced_;  // null if none is
    String announcedName_;   // the last type that was looked up
    VomoType announcedType_;
    std::deque<EntityId> waiting_;
    std::size_t left_ = 0; // children that have left since the orphans were dropped
    U64 messagesSent_ = 0;
    U64 messagesReceived_ = 0;
};

} // namespace Vomo::NboAttrLog
