#include "Vomo/NboAttrLogSa.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace Vomo::NboAttrLog {

void throwWriteUpdateFromReadOnlyProxyException() {
    throw ArgumentException("a peer that may only read sent a change");
}

// FlowOut

void FlowOut::bookmarkIs(CollectionOps const* collection, void const* key) {
    PLAINASSERT(bookmark_ == nullptr, "!rsc->bookmark()");
    bookmarkOf_ = collection;
    bookmark_ = collection->keyNew(key);
}
void FlowOut::bookmarkDel() {
    if (bookmark_ != nullptr) bookmarkOf_->keyDel(std::exchange(bookmark_, nullptr));
}
bool FlowOut::hasDirtyCollKeys() const {
    for (auto const& [attrId, attribute] : attributes)
        if (attribute.dirtyKeys && !attribute.dirtyKeys->empty()) return true;
    return false;
}

// EntityAdapter

EntityAdapter::EntityAdapter(Connection& connection, Ptr<Entity> entity, U32 id)
    : connection_(connection), entity_(std::move(entity)), id_(id) {
    notifierIs(entity_.ptr());
}

StreamTable const& EntityAdapter::stream() const {
    VomoTypeBase const type = entity_->fwkType();
    return *type.module->genericTable[type.index].stream;
}

void EntityAdapter::onAttribute(U32 attrId, void const* key) {
    if (!connection_.isApplying(this, attrId, key))
        stream().streamAdapterOnAttribute(this, attrId, key);
}

// The engines of an entity's stream table

namespace {

// What is sent for an entity: its stored attributes but those of its construction.
bool isSent(Row const& row) {
    return row.stored && row.kind != RowKind::ctor;
}

Row const* rowOf(std::span<Row const> rows, U32 attrId) {
    for (Row const& row : rows)
        if (row.number == attrId && isSent(row)) return &row;
    return nullptr;
}

FlowOut::Attribute& stateOf(EntityAdapter& sa, Row const& row) {
    FlowOut::Attribute& state = sa.flow.attributes[row.number];
    if (row.collection != nullptr && !state.dirtyKeys) {
        state.dirtyKeys.reset(row.collection->dirtyNew());
        if (row.collection->isChildren) state.ephemeralKeys.reset(row.collection->dirtyNew());
    }
    return state;
}

void sendScalar(EntityAdapter& sa, Row const& row) {
    Out& out = sa.connection().begin(sa, static_cast<S32>(row.number), 0);
    row.type->write(out, row.field(sa.object()));
    sa.connection().commit();
}

// A member is gone. For a child it is told whether another one follows under the same key.
void sendGone(EntityAdapter& sa, Row const& row, void const* key, bool ephemeral) {
    Connection& connection = sa.connection();
    Out& out = connection.begin(sa, -static_cast<S32>(row.number), MessageFlag::inCollection);
    row.collection->key->write(out, key);
    if (row.collection->isChildren) out << U16{ephemeral};
    connection.commit();
    if (row.collection->isChildren) connection.childLeft();
}

// A member as it is now: there or gone.
void sendMember(EntityAdapter& sa, Row const& row, FlowOut::Attribute& state, void const* key) {
    CollectionOps const& coll = *row.collection;
    Connection& connection = sa.connection();
    void const* const found = coll.find(sa.object(), key);
    bool const ephemeral = coll.isChildren && state.ephemeralKeys->del(key);
    if (found == nullptr || ephemeral) sendGone(sa, row, key, ephemeral && found != nullptr);
    if (found == nullptr) return;
    if (!coll.isChildren) {
        Out& out = connection.begin(sa, static_cast<S32>(row.number), MessageFlag::inCollection);
        coll.key->write(out, key);
        if (coll.value != nullptr) coll.value->write(out, found);
        connection.commit();
        return;
    }
    auto* const child = const_cast<Entity*>(static_cast<Entity const*>(found));
    auto const [adapter, isNew] = connection.adapterOf(child);
    Out& out = connection.begin(sa, static_cast<S32>(row.number), MessageFlag::inCollection);
    coll.key->write(out, key);
    out << U16{0} << adapter->id();
    connection.commit();
    if (isNew) {
        adapter->stream().newFlowOut(adapter, false, 0);
        connection.wait(*adapter);
    }
}

// A member changed that cannot be sent now.
void keepDirty(EntityAdapter const& sa, Row const& row, FlowOut::Attribute& state,
               void const* key) {
    state.dirtyKeys->add(key);
    if (row.collection->isChildren && row.collection->find(sa.object(), key) == nullptr)
        state.ephemeralKeys->add(key);
}

void sendMark(EntityAdapter& sa, Row const& row, U8 mark) {
    sa.connection().begin(sa, static_cast<S32>(row.number), mark);
    sa.connection().commit();
}

// Sends the keys that changed while they could not be sent. False when the queue is full.
bool drainKeys(EntityAdapter& sa, Row const& row, FlowOut::Attribute& state) {
    while (!state.dirtyKeys->empty()) {
        if (!sa.connection().continueFlowOut()) return false;
        void* const key = row.collection->keyNew(state.dirtyKeys->any());
        state.dirtyKeys->del(key);
        sendMember(sa, row, state, key);
        row.collection->keyDel(key);
    }
    return true;
}

// The walk of a resync. False when it stops at a bookmark, or among the dirty keys.
bool sendCollection(EntityAdapter& sa, Row const& row) {
    CollectionOps const& coll = *row.collection;
    FlowOut::Attribute& state = stateOf(sa, row);
    if (!state.synced) {
        void* const from =
            sa.flow.bookmark() == nullptr ? nullptr : coll.keyNew(sa.flow.bookmark());
        sa.flow.bookmarkDel();
        U8 const resumed = state.walking ? MessageFlag::resumed : U8{0};
        sendMark(sa, row, static_cast<U8>(MessageFlag::beginMark | resumed));
        state.walking = true;
        void* const iterator = coll.iterNew(sa.object(), from);
        if (from != nullptr) coll.keyDel(from);
        // There was room when the walk began or went on: one member goes with the mark, which may
        // fill a small queue alone, so that every turn comes further.
        bool isFirst = true;
        while (void const* const key = coll.iterKey(iterator)) {
            if (!std::exchange(isFirst, false) && !sa.connection().continueFlowOut()) {
                sa.flow.bookmarkIs(&coll, key);
                break;
            }
            state.dirtyKeys->del(key);
            sendMember(sa, row, state, key);
            coll.iterInc(iterator);
        }
        coll.iterDel(iterator);
        if (sa.flow.bookmark() != nullptr) return false;
        sendMark(sa, row, static_cast<U8>(MessageFlag::endMark | resumed));
        state.walking = false;
        state.synced = true;
    }
    return drainKeys(sa, row, state);
}

// A key, value or scalar that was read; released at the end of the scope.
class ReadValue {
public:
    ReadValue(FieldType const& type, In* in) try : type_(type), value_(type.readNew(in)) {
    } catch (RangeException const& ex) { // a value that cannot be
        throw AttrLogRecordException(std::string("attribute log: ") + ex.what());
    }
    ~ReadValue() { type_.destroy(value_); }
    ReadValue(ReadValue const&) = delete;
    ReadValue& operator=(ReadValue const&) = delete;
    void* get() const { return value_; }

private:
    FieldType const& type_;
    void* value_;
};

void checkAllRead(In const& in) {
    if (in.remaining() != 0)
        Dunlin::fmthrow<AttrLogRecordException>("message of the attribute log: {} bytes too many",
                                                in.remaining());
}

[[noreturn]] void throwUnknown(EntityAdapter const& sa, S32 attrId) {
    Dunlin::fmthrow<AttrLogRecordException>(
        "attribute log: {} has no attribute {} that can be {}", sa.entity()->fwkType().name(),
        attrId < 0 ? -attrId : attrId, attrId < 0 ? "taken from" : "sent");
}

} // namespace

void newFlowOut(EntityAdapter* sa, std::span<Row const> rows, U32 lastSynced) {
    for (Row const& row : rows)
        if (isSent(row)) stateOf(*sa, row).synced = row.number < lastSynced;
}

bool freeResyncState(EntityAdapter* sa) {
    bool const had = sa->flow.bookmark() != nullptr;
    sa->flow.bookmarkDel();
    return had;
}

U32 handleAttrFlowOut(EntityAdapter* sa, std::span<Row const> rows, U32 attrId) {
    if (attrId != 0 && rowOf(rows, attrId) == nullptr) return 0xFFFFFFFF;
    for (Row const& row : rows) {
        if (!isSent(row) || row.number < attrId) continue;
        if (!sa->connection().continueFlowOut()) return row.number;
        if (row.collection != nullptr) {
            if (!sendCollection(*sa, row)) return row.number;
            continue;
        }
        FlowOut::Attribute& state = stateOf(*sa, row);
        // After the first pass only what changed since.
        if (!state.synced || state.dirty) sendScalar(*sa, row);
        state.synced = true;
        state.dirty = false;
    }
    return 0;
}

void instantiateSerialize(EntityAdapter* sa, std::span<Row const> rows) {
    for (Row const& row : rows)
        if (row.kind == RowKind::children) sendCollection(*sa, row);
}

U32 onAttribute(EntityAdapter* sa, std::span<Row const> rows, U32 attrId, void const* key) {
    Row const* const row = rowOf(rows, attrId);
    if (row == nullptr) return 0;
    FlowOut::Attribute& state = stateOf(*sa, *row);
    bool const isMember = row->collection != nullptr;
    if (!state.synced) {
        // The resync has yet to come by, and sends what is there then. Behind its back only keys of
        // a walk that has begun can be missed.
        if (isMember && state.walking) keepDirty(*sa, *row, state, key);
        return 1;
    }
    if (!sa->connection().continueFlowOut()) {
        if (isMember)
            keepDirty(*sa, *row, state, key);
        else
            state.dirty = true;
        sa->connection().wait(*sa);
    } else if (isMember) {
        state.dirtyKeys->del(key);
        sendMember(*sa, *row, state, key);
    } else {
        state.dirty = false;
        sendScalar(*sa, *row);
    }
    return 1;
}

bool handleAttrTransaction(EntityAdapter* sa, std::span<Row const> rows, U32 attrId, U32 kind,
                           bool flag) {
    Row const* const row = rowOf(rows, attrId);
    if (row == nullptr || row->collection == nullptr) return false;
    CollectionOps const& coll = *row->collection;
    if (kind == 0) {
        // A resumed walk goes on with the marks that are there (B27).
        if (!flag) coll.markAll(sa->object());
    } else if (kind == 2) {
        void* const iterator = coll.iterNew(sa->object(), nullptr);
        for (void const* key; (key = coll.iterKey(iterator)) != nullptr; coll.iterInc(iterator))
            if (coll.isMarked(sa->object(), key)) {
                Connection::ActiveAnchor const anchor(sa->connection(), sa, *row, key);
                coll.del(sa->object(), key);
                if (coll.isChildren) sa->connection().childLeft();
            }
        coll.iterDel(iterator);
    }
    return true;
}

// Reads the whole message before anything is changed.
void handleAttrDeserialization(EntityAdapter* sa, std::span<Row const> rows, S32 attrId, In* in) {
    auto const number = static_cast<U32>(attrId < 0 ? -attrId : attrId);
    Row const* const row = rowOf(rows, number);
    if (row == nullptr || (attrId < 0 && row->collection == nullptr)) throwUnknown(*sa, attrId);
    Connection& connection = sa->connection();
    if (row->collection == nullptr) {
        ReadValue const value(*row->type, in);
        checkAllRead(*in);
        Connection::ActiveAnchor const anchor(connection, sa, *row, nullptr);
        row->op(nullptr, sa->object(), AttributeOp::set, value.get(), nullptr);
        return;
    }
    CollectionOps const& coll = *row->collection;
    ReadValue const key(*coll.key, in);
    if (attrId < 0) {
        if (coll.isChildren) in->nextU16(); // whether another child follows: it announces itself
        checkAllRead(*in);
        Connection::ActiveAnchor const anchor(connection, sa, *row, key.get());
        coll.del(sa->object(), key.get());
        if (coll.isChildren) connection.childLeft();
    } else if (coll.isChildren) {
        in->nextU16();
        U32 const id = in->nextU32();
        checkAllRead(*in);
        connection.announced(id, static_cast<Entity const*>(coll.find(sa->object(), key.get())));
        Connection::ActiveAnchor const anchor(connection, sa, *row, key.get());
        coll.set(sa->object(), key.get(), nullptr);
        void const* const child = coll.find(sa->object(), key.get());
        if (child == nullptr) return; // a notifiee has removed it again
        connection.bind(id, Ptr<Entity>(const_cast<Entity*>(static_cast<Entity const*>(child))));
        coll.unmark(sa->object(), key.get());
    } else {
        std::unique_ptr<ReadValue> const value(
            coll.value == nullptr ? nullptr : new ReadValue(*coll.value, in));
        checkAllRead(*in);
        Connection::ActiveAnchor const anchor(connection, sa, *row, key.get());
        coll.set(sa->object(), key.get(), value ? value->get() : nullptr);
        coll.unmark(sa->object(), key.get());
    }
}

U32 sizeOfCtorParams(std::span<Row const> rows, Entity const* entity) {
    Out out;
    writeCtorParams(out, rows, entity);
    return static_cast<U32>(out.size());
}

void writeCtorParams(Out& out, std::span<Row const> rows, Entity const* entity) {
    bool any = false;
    for (Row const& row : rows)
        if (row.kind == RowKind::ctor) {
            row.type->write(out, row.field(entity));
            any = true;
        }
    if (!any) out << entity->name(); // an entity without a key is made from its name
}

// Connection

namespace {
constexpr U32 rootId = 1;
constexpr U32 mirrorIds = 0x80000000; // of children that the mirror makes
} // namespace

Connection::Connection(Role role, Ptr<Entity> root, bool readOnlyRemote)
    : role_(role), root_(std::move(root)), readOnlyRemote_(readOnlyRemote) {
    connectedIs(false);
}

Connection::~Connection() {
    connectedIs(false);
}

void Connection::connectedIs(bool connected) {
    adapters_.clear();
    ids_.clear();
    left_ = 0;
    waiting_.clear();
    in_.clear();
    out_.clear();
    sent_ = 0;
    connected_ = connected;
    nextId_ = rootId + 1;
    peerNextId_ = mirrorIds;
    if (role_ == Role::mirror) std::swap(nextId_, peerNextId_);
    if (!connected) return;
    if (role_ == Role::mirror) {
        bind(rootId, root_);
        return;
    }
    auto& adapter = *(adapters_[rootId] = std::make_unique<EntityAdapter>(*this, root_, rootId));
    ids_[root_.ptr()] = rootId;
    adapter.stream().newFlowOut(&adapter, false, 0);
    wait(adapter);
    flow();
}

bool Connection::wasAnnounced(U32 id) const {
    U32 const next = (id < mirrorIds) == (role_ == Role::source) ? nextId_ : peerNextId_;
    return id != 0 && id < next;
}

// A number means one entity as long as the connection lasts.
void Connection::announced(U32 id, Entity const* entity) {
    auto const taken = adapters_.find(id);
    if (taken != adapters_.end() && taken->second->entity() != entity)
        Dunlin::fmthrow<AttrLogRecordException>(
            "attribute log: entity {} is announced anew as another one", id);
    if (!wasAnnounced(id) && id != peerNextId_)
        Dunlin::fmthrow<AttrLogRecordException>(
            "attribute log: entity {} is announced, the next is {}", id, peerNextId_);
    if (id == peerNextId_) ++peerNextId_;
}

// An entity that the peer has announced: what it holds is known there.
EntityAdapter& Connection::bind(U32 id, Ptr<Entity> entity) {
    if (auto const known = ids_.find(entity.ptr()); known != ids_.end()) {
        EntityAdapter& adapter = *adapters_.at(known->second);
        // Both sides may have made the child and numbered it. The source's number holds, and what it
        // sends of the child; so it does not listen to the other number.
        if (known->second == id || role_ == Role::source) return adapter;
        retire(known->second);
    }
    ids_[entity.ptr()] = id;
    auto& slot = adapters_[id];
    slot = std::make_unique<EntityAdapter>(*this, std::move(entity), id);
    slot->stream().newFlowOut(slot.get(), false, 0xFFFFFFFF);
    slot->flow.resyncDone = true;
    return *slot;
}

std::pair<EntityAdapter*, bool> Connection::adapterOf(Entity* entity) {
    if (auto const known = ids_.find(entity); known != ids_.end()) {
        if (left_ == 0) return {adapters_.at(known->second).get(), false};
        retire(known->second); // may have left and come back: to the peer it is a new one
    }
    U32 const id = nextId_++;
    ids_[entity] = id;
    auto& slot = adapters_[id];
    slot = std::make_unique<EntityAdapter>(*this, Ptr<Entity>(entity), id);
    return {slot.get(), true};
}

// A child that has left its parent is of no concern any more. Called when no adapter is at work;
// for all that have left meanwhile at once.
void Connection::dropOrphans() {
    if (std::exchange(left_, 0) == 0) return;
    std::vector<U32> orphans;
    for (auto const& [id, adapter] : adapters_)
        if (adapter->entity() != root_.ptr() && adapter->entity()->parent() == nullptr)
            orphans.push_back(id);
    for (U32 const id : orphans) retire(id);
}

// The peer may still write to it for a while.
void Connection::retire(U32 id) {
    auto const at = adapters_.find(id);
    ids_.erase(at->second->entity());
    adapters_.erase(at);
}

Out& Connection::begin(EntityAdapter const& sa, S32 attrId, U8 flags) {
    messageStart_ = out_.size();
    return out_ << U32{0} << sa.id() << attrId << flags;
}

void Connection::commit() {
    auto const size = __builtin_bswap32(static_cast<U32>(out_.size() - messageStart_));
    std::memcpy(const_cast<U8*>(out_.bytes().data()) + messageStart_, &size, sizeof size);
    ++messagesSent_;
    if (messageStart_ == sent_ && onWaiting) onWaiting();
}

void Connection::consumed(std::size_t bytes) {
    sent_ += bytes;
    // What has gone is dropped though the queue never empties: it is moved over by no more than that.
    if (sent_ >= waitingBytes()) out_.discard(std::exchange(sent_, 0));
    flow();
}

void Connection::wait(EntityAdapter& sa) {
    if (!std::exchange(sa.waiting, true)) waiting_.push_back(sa.id());
}

void Connection::flow() {
    if (flowing_) return;
    flowing_ = true;
    struct End {
        bool& flag;
        ~End() { flag = false; }
    } const end{flowing_};
    while (!waiting_.empty() && continueFlowOut()) {
        auto const at = adapters_.find(waiting_.front());
        if (at == adapters_.end()) { // has left meanwhile
            waiting_.pop_front();
            continue;
        }
        EntityAdapter& sa = *at->second;
        // A pass goes on where it stopped. What has changed before that place meanwhile waits for
        // another one, from the start, which sends what is dirty.
        U32 const from = sa.flow.resyncAt;
        sa.flow.resyncAt = sa.stream().handleAttrFlowOut(&sa, from);
        if (sa.flow.resyncAt != 0) break;
        if (from != 0) continue;
        sa.flow.resyncDone = true;
        sa.waiting = false;
        waiting_.pop_front(); // others were only added behind
    }
    if (waitingBytes() == 0) dropOrphans();
}

void Connection::receive(std::span<U8 const> bytes) {
    in_.insert(in_.end(), bytes.begin(), bytes.end());
    std::size_t done = 0;
    struct Erase {
        std::vector<U8>& in;
        std::size_t& done;
        ~Erase() { in.erase(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(done)); }
    } const erase{in_, done};
    while (in_.size() - done >= sizeof(U32)) {
        std::span<U8 const> const rest = std::span<U8 const>(in_).subspan(done);
        U32 const size = In(rest).nextU32();
        if (size < messageHeaderSize || size > maxMessageSize)
            Dunlin::fmthrow<AttrLogRecordException>(
                "message of the attribute log: length {}, must be {} to {}", size,
                messageHeaderSize, maxMessageSize);
        if (rest.size() < size) break;
        handleMessage(rest.first(size));
        ++messagesReceived_;
        done += size;
    }
    dropOrphans();
}

void Connection::handleMessage(std::span<U8 const> message) {
    In in(message.subspan(sizeof(U32)));
    U32 const id = in.nextU32();
    S32 const attrId = in.nextS32();
    U8 const flags = in.nextU8();
    auto const mark = static_cast<U8>(flags & ~MessageFlag::resumed);
    bool const isMark = mark == MessageFlag::beginMark || mark == MessageFlag::endMark;
    if (!isMark && flags != 0 && flags != MessageFlag::inCollection)
        Dunlin::fmthrow<AttrLogRecordException>("attribute log: a message with flags {:#x}", flags);
    auto const at = adapters_.find(id);
    if (at == adapters_.end()) {
        if (!wasAnnounced(id))
            Dunlin::fmthrow<AttrLogRecordException>("attribute log: entity {} was never announced",
                                                    id);
        // A child that is announced in an entity that went is gone, too: its number ends the message.
        if (attrId > 0 && flags == MessageFlag::inCollection && in.remaining() > sizeof(U32)) {
            in.take(in.remaining() - sizeof(U32));
            if (in.nextU32() == peerNextId_) ++peerNextId_;
        }
        return;
    }
    EntityAdapter& sa = *at->second;
    // No attribute; and the one number that cannot be negated.
    if (attrId == std::numeric_limits<S32>::min()) throwUnknown(sa, -1);
    if (readOnlyRemote_ && role_ == Role::source &&
        !(allowWriteFromReadOnlyRemote &&
          allowWriteFromReadOnlyRemote(sa, static_cast<U32>(std::abs(attrId)))))
        throwWriteUpdateFromReadOnlyProxyException();
    if (isMark) {
        checkAllRead(in);
        U32 const kind = mark == MessageFlag::beginMark ? 0 : 2;
        if (attrId < 0 || !sa.stream().doHandleAttrTransaction(&sa, static_cast<U32>(attrId), kind,
                                                               (flags & MessageFlag::resumed) != 0))
            throwUnknown(sa, attrId);
        return;
    }
    sa.stream().doHandleAttrDeserialization(&sa, attrId, &in);
}

} // namespace Vomo::NboAttrLog
