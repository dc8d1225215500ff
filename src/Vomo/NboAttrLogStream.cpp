// The engines behind the stream table of every entity type: what is sent, passed by in a resync, and
// applied, by the rows of the type.
#include "Vomo/NboAttrLogDemuxer.h"

namespace Vomo::NboAttrLog {

namespace {

// What is sent for an entity: its stored attributes but those of its construction and references to
// entities that are elsewhere. A collection that the peer fills by itself is not sent either.
bool isSent(Row const& row) {
    switch (row.kind) {
    case RowKind::notifying:
    case RowKind::readOnly:
    case RowKind::valueMap:
    case RowKind::valueSet:
    case RowKind::children:
    case RowKind::entries:
        return true;
    default:
        return false;
    }
}
// Its members are children of another collection, which has announced them: it goes behind all others.
bool isLate(Row const& row) {
    return row.kind == RowKind::entries;
}

Row const* rowOf(std::span<Row const> rows, U32 attrId) {
    for (Row const& row : rows)
        if (row.number == attrId && isSent(row)) return &row;
    return nullptr;
}

CollSerializationCtx contextOf(Sa const& sa, Row const& row, bool isGone) {
    return {sa.vomoRawFlowOut(), row.number, (sa.flags() & StreamAdapter::inPass) != 0,
            isGone ? CollSerializationCtx::isGone : 0};
}

// A member of a value collection, at `value` or, of a set, at its key; null if it is gone.
bool handleCollSerialization(Sa& sa, Row const& row, void const* key, void const* value) {
    CollectionOps const& coll = *row.collection;
    bool const hasValue = value != nullptr && coll.value != nullptr;
    CollSerializationCtx const ctx = contextOf(sa, row, value == nullptr);
    Out* const out = sa.collSerializeCheck(ctx, coll.key->logSize(key) +
                                                    (hasValue ? coll.value->logSize(value) : 0));
    if (out == nullptr) return false;
    coll.key->write(*out, key);
    if (hasValue) coll.value->write(*out, value);
    Impl::outSmCommitMessage(sa.streamDemuxer());
    return true;
}

// A child, null if it is gone. The peer may still hold the one that went, if that could not be said.
bool handleInstantiatingCollSerialization(Sa& sa, Row const& row, void const* key, Entity* child) {
    CollectionOps const& coll = *row.collection;
    StreamAdapterAccessorAnchor const anchor(child);
    if (sa.handleInstantiatingCollSerializationImpl(contextOf(sa, row, child == nullptr), coll, key,
                                                    child))
        return true;
    FlowOut& flow = *sa.vomoRawFlowOut();
    if (child == nullptr && (flow.vomoHasSynced(row.number) || sa.isWalking(row)))
        flow.keyAdd(row.number, FlowOut::Keys::ephemeral, key);
    return false;
}

// An entity that the owner has filled in, null if it is gone: the number of one that the peer knows. One
// that it has not heard of goes behind its announcement; see `sendEntryOf`.
bool handleEntrySerialization(Sa& sa, Row const& row, void const* key, Entity* entry) {
    CollectionOps const& coll = *row.collection;
    if (entry != nullptr && entry->parent() == nullptr)
        entry = nullptr; // has left, and no number names it: the peer drops it
    else if (entry != nullptr && sa.streamDemuxer().adapterIfAny(entry) == nullptr)
        return true;
    CollSerializationCtx const ctx = contextOf(sa, row, entry == nullptr);
    std::size_t const size = coll.key->logSize(key);
    Out* const out = sa.instantiatingCollSerializeCheck(ctx, entry, size);
    if (out == nullptr) return false;
    sa.instantiatingCollAddHdr(ctx, entry, size);
    coll.key->write(*out, key);
    *out << U16{0};
    if (entry != nullptr) *out << entry;
    Impl::outSmCommitMessage(sa.streamDemuxer());
    return true;
}

// The bookmark's own member has gone. What stands behind it is found now: when it is entered again
// its place among members of the same hash may be another one.
void moveBookmark(Sa& sa, Row const& row, void const* key) {
    CollectionOps const& coll = *row.collection;
    FlowOut& flow = *sa.vomoRawFlowOut();
    if (!sa.isWalking(row) || !coll.key->equal(key, flow.bookmark())) return;
    void* const iterator = coll.iterNew(sa.object(), key);
    if (void const* const next = coll.iterKey(iterator)) {
        coll.keyDel(vomoFlowOutBookmarkDeq(flow));
        vomoFlowOutBookmarkEnq(flow, coll, next);
    }
    coll.iterDel(iterator);
}

bool sendMember(Sa& sa, Row const& row, void const* key, void const* member) {
    if (row.collection->child == nullptr) return handleCollSerialization(sa, row, key, member);
    auto* const entity = const_cast<Entity*>(static_cast<Entity const*>(member));
    return isLate(row) ? handleEntrySerialization(sa, row, key, entity)
                       : handleInstantiatingCollSerialization(sa, row, key, entity);
}

// One member as it is now: there or gone.
void vomoHandleSerializeSing(Sa& sa, Row const& row, void const* key, void const* member) {
    if (member == nullptr) moveBookmark(sa, row, key);
    if (sendMember(sa, row, key, member))
        sa.dirtyCollDel(row, key);
    else if ((sa.flags() & StreamAdapter::inPass) == 0) // a pass sends what can be sent at all
        sa.dirtyCollIs(row, key);
}

// A child has been announced: where the owner has filled it in, too, that can go now. Or it has left:
// an entry that is still there goes as gone.
void sendEntryOf(Sa& sa, std::span<Row const> rows, Row const& of, void const* key,
                 void const* child) {
    if (of.kind != RowKind::children) return;
    for (Row const& row : rows) {
        if (!isLate(row) || row.collection->key != of.collection->key ||
            !sa.vomoRawFlowOut()->vomoHasSynced(row.number))
            continue;
        void const* const entry = row.collection->find(sa.object(), key);
        if (entry != nullptr && (child == nullptr || child == entry))
            vomoHandleSerializeSing(sa, row, key, entry);
    }
}

// Walks the members from `from`, or from the first. False when it stops at a bookmark.
bool walk(Sa& sa, Row const& row, void const* from) {
    CollectionOps const& coll = *row.collection;
    FlowOut& flow = *sa.vomoRawFlowOut();
    void* const iterator = coll.iterNew(sa.object(), from);
    // There was room when the walk began or went on: one member goes with the mark, which may fill a
    // small queue alone, so that every turn comes further.
    bool isFirst = true;
    void const* key = nullptr;
    while ((key = coll.iterKey(iterator)) != nullptr) {
        if (!std::exchange(isFirst, false) && (!sa.continueFlowOut() || flow.stopRequest())) break;
        sa.onAttributeForConnection(row.number, key);
        coll.iterInc(iterator);
    }
    if (key != nullptr) {
        flow.attributeIdIs(row.number);
        vomoFlowOutBookmarkEnq(flow, coll, key);
    }
    coll.iterDel(iterator);
    return key == nullptr;
}

// Sends the keys that changed while they could not be sent. False when the queue is full.
bool drainDirtyKeys(Sa& sa, Row const& row) {
    CollectionOps const& coll = *row.collection;
    FlowOut& flow = *sa.vomoRawFlowOut();
    while (void const* const any = flow.keyAny(row.number, FlowOut::Keys::dirty)) {
        if (!sa.continueFlowOut()) return false;
        void* const key = coll.keyNew(any);
        flow.keyDel(row.number, FlowOut::Keys::dirty, key);
        sa.onAttributeForConnection(row.number, key);
        coll.keyDel(key);
    }
    return true;
}

// The walk of a resync. False when it stops at a bookmark, or among the dirty keys.
bool handleSerializationOfColl(Sa& sa, Row const& row) {
    using Mark = StreamAdapter::AttrTransactionType;
    if (!sa.handleSerializationOfCollCheck()) return false;
    if (!sa.isOkToSerialize()) return true;
    FlowOut& flow = *sa.vomoRawFlowOut();
    if (!flow.vomoHasSynced(row.number)) {
        bool const resumed = sa.isWalking(row);
        void* const from = resumed ? vomoFlowOutBookmarkDeq(flow) : nullptr;
        sa.handleCollSerializationTransactionMarkers(row.number, Mark::begin, resumed);
        bool const done = walk(sa, row, from);
        if (from != nullptr) row.collection->keyDel(from);
        if (!done) return false;
        sa.handleCollSerializationTransactionMarkers(row.number, Mark::end, resumed);
        flow.vomoHasSyncedIs(row.number, true);
    }
    return drainDirtyKeys(sa, row);
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

// Puts a child under its key: one that was announced, or one that is there already.
void applyChild(Sa& sa, Row const& row, void const* key, In* in) {
    CollectionOps const& coll = *row.collection;
    Demuxer& demuxer = sa.streamDemuxer();
    in->nextU16();
    EntityId const id = in->peekEntityId();
    Entity* const announced = in->nextEntity();
    checkAllRead(*in);
    if (announced == nullptr) return; // has gone here, which the peer has yet to hear
    ensureCorrectType(*announced, *coll.child);
    if (isLate(row)) {
        StreamAdapterIsActiveAnchor const anchor(sa, row, key);
        bool isItsKey = true;
        demuxer.apply([&] { isItsKey = coll.enter(sa.object(), announced, key); });
        if (!isItsKey)
            Dunlin::fmthrow<AttrLogRecordException>(
                "attribute log: entity {} is put under a key that is not its own",
                static_cast<U32>(id));
        coll.unmark(sa.object(), key);
        return;
    }
    auto const find = [&] {
        return const_cast<Entity*>(static_cast<Entity const*>(coll.find(sa.object(), key)));
    };
    Ptr<Entity> present(find());
    Ptr<Entity> const made = demuxer.announcedTake(id);
    if (!made) { // stands somewhere: here, or the message is wrong
        if (announced->parent() == nullptr) return; // has gone here, too
        if (announced != present.ptr())
            Dunlin::fmthrow<AttrLogRecordException>(
                "attribute log: entity {} is put under another key", static_cast<U32>(id));
    } else {
        // One that was there before they connected stays the same object.
        if (present && !(present->fwkType() == made->fwkType())) {
            StreamAdapterIsActiveAnchor const anchor(sa, row, key);
            demuxer.apply([&] { coll.del(sa.object(), key); });
            demuxer.childLeft();
            present = Ptr<Entity>(find());
        }
        bool const wasThere = bool(present);
        if (!wasThere) {
            StreamAdapterIsActiveAnchor const anchor(sa, row, key);
            bool isItsKey = true;
            demuxer.apply([&] { isItsKey = coll.enter(sa.object(), made.ptr(), key); });
            if (!isItsKey)
                Dunlin::fmthrow<AttrLogRecordException>(
                    "attribute log: entity {} is put under a key that is not its own",
                    static_cast<U32>(id));
            if (find() != made.ptr()) return; // a notifiee has removed it again
            present = made;
        }
        demuxer.bind(id, present, wasThere);
    }
    coll.unmark(sa.object(), key);
}

} // namespace

void newFlowOut(FlowOut& flow, std::span<Row const> rows, U32 lastSynced) {
    for (Row const& row : rows)
        if (isSent(row))
            flow.attributeNew(row.number, row.number < lastSynced,
                              row.collection == nullptr ? nullptr : row.collection->keySet);
}

// Frees a bookmark, which is the current attribute's.
bool freeResyncState(Ptr<FlowOut> const& flow, std::span<Row const> rows) {
    Row const* const row = rowOf(rows, flow->attributeId());
    if (row == nullptr || row->collection == nullptr) return false;
    if (void* const bookmark = vomoFlowOutBookmarkDeq(*flow)) row->collection->keyDel(bookmark);
    return true;
}

// Sends all attributes from `attrId` on, 0 from the first: in order of number, but late ones
// last. Returns where to go on, 0 when all are
// done; 0xFFFFFFFF for a number that is none.
U32 handleAttrFlowOut(Sa* sa, std::span<Row const> rows, U32 attrId) {
    if (attrId != 0 && rowOf(rows, attrId) == nullptr) return 0xFFFFFFFF;
    bool const late = attrId != 0 && isLate(*rowOf(rows, attrId));
    for (bool const pass : {false, true})
        for (Row const& row : rows) {
            if (!isSent(row) || isLate(row) != pass || pass < late) continue;
            if (pass == late && row.number < attrId) continue;
            bool const done =
                row.collection != nullptr
                    ? handleSerializationOfColl(*sa, row)
                    : sa->flowOutOnAttributeForConnection(*sa->vomoRawFlowOut(), row.number);
            if (!done) return row.number;
        }
    return 0;
}

// Sends the children, without which the entity is not complete.
void instantiateSerialize(Sa* sa, std::span<Row const> rows) {
    for (Row const& row : rows)
        if (row.kind == RowKind::children) handleSerializationOfColl(*sa, row);
}

// Sends a change. 0 for a number that is none, else 1.
U32 onAttribute(Sa* sa, std::span<Row const> rows, U32 attrId, void const* key) {
    Row const* const row = rowOf(rows, attrId);
    if (row == nullptr) return 0;
    if (row->collection != nullptr) {
        void const* const member = row->collection->find(sa->object(), key);
        vomoHandleSerializeSing(*sa, *row, key, member);
        sendEntryOf(*sa, rows, *row, key, member);
    } else
        sa->handleValueSerialization(attrId, *row->type, row->field(sa->object()),
                                     (sa->flags() & StreamAdapter::inPass) != 0);
    return 1;
}

// A begin mark (kind 0) marks every member, an end mark (2) removes those that still are. False for
// what is no collection.
bool handleAttrTransaction(Sa* sa, std::span<Row const> rows, U32 attrId, U32 kind, bool flag) {
    using Mark = StreamAdapter::AttrTransactionType;
    Row const* const row = rowOf(rows, attrId);
    if (row == nullptr || row->collection == nullptr) return false;
    CollectionOps const& coll = *row->collection;
    if (kind == static_cast<U32>(Mark::begin)) {
        // A resumed walk goes on with the marks that are there (B27).
        if (!flag) coll.markAll(sa->object());
    } else if (kind == static_cast<U32>(Mark::end)) {
        void* const iterator = coll.iterNew(sa->object(), nullptr);
        for (void const* key; (key = coll.iterKey(iterator)) != nullptr; coll.iterInc(iterator))
            if (coll.isMarked(sa->object(), key)) {
                StreamAdapterIsActiveAnchor const anchor(*sa, *row, key);
                sa->streamDemuxer().apply([&] { coll.del(sa->object(), key); });
                if (row->kind == RowKind::children) sa->streamDemuxer().childLeft();
            }
        coll.iterDel(iterator);
    }
    return true;
}

// Applies a message. It is read as a whole before anything is changed.
void handleAttrDeserialization(Sa* sa, std::span<Row const> rows, S32 attrId, In* in) {
    auto const number = static_cast<U32>(attrId < 0 ? -attrId : attrId);
    Row const* const row = rowOf(rows, number);
    if (row == nullptr || (attrId < 0 && row->collection == nullptr))
        sa->doBaseVomoNboAttrLogSaMsg(attrId);
    Demuxer& demuxer = sa->streamDemuxer();
    if (row->collection == nullptr) {
        ReadValue const value(*row->type, in);
        checkAllRead(*in);
        StreamAdapterIsActiveAnchor const anchor(*sa, *row, nullptr);
        demuxer.apply([&] { scalarIs(*row, sa->entity(), value.get()); });
        return;
    }
    CollectionOps const& coll = *row->collection;
    ReadValue const key(*coll.key, in);
    if (attrId < 0) {
        if (coll.child != nullptr) in->nextU16(); // whether another one follows: it comes by itself
        checkAllRead(*in);
        StreamAdapterIsActiveAnchor const anchor(*sa, *row, key.get());
        demuxer.apply([&] { coll.del(sa->object(), key.get()); });
        if (row->kind == RowKind::children) demuxer.childLeft();
    } else if (coll.child != nullptr) {
        applyChild(*sa, *row, key.get(), in);
    } else {
        std::unique_ptr<ReadValue> const value(
            coll.value == nullptr ? nullptr : new ReadValue(*coll.value, in));
        checkAllRead(*in);
        StreamAdapterIsActiveAnchor const anchor(*sa, *row, key.get());
        demuxer.apply([&] { coll.set(sa->object(), key.get(), value ? value->get() : nullptr); });
        coll.unmark(sa->object(), key.get());
    }
}

namespace {
// The attributes that an entity is made from, behind its name if it has one.
template <class Visit>
void eachCtorParam(CtorParams const& params, std::span<Row const> rows, Visit&& visit) {
    U32 left = params.count - params.isNamed;
    for (Row const& row : rows)
        if (left != 0 && (row.kind == RowKind::ctor || row.kind == RowKind::owner)) {
            --left;
            visit(row);
        }
}
} // namespace

U32 sizeOfCtorParams(CtorParams params, std::span<Row const> rows, Entity const* entity) {
    U32 size = params.isNamed ? static_cast<U32>(sizeof(U32)) + entity->name().bytes() : 0;
    eachCtorParam(params, rows, [&](Row const& row) {
        size += row.kind == RowKind::owner ? static_cast<U32>(sizeof(EntityId))
                                           : row.type->logSize(row.field(entity));
    });
    return size;
}

void writeCtorParams(CtorParams params, Out& out, std::span<Row const> rows, Entity const* entity) {
    if (params.isNamed) out << entity->name();
    eachCtorParam(params, rows, [&](Row const& row) {
        if (row.kind == RowKind::owner)
            out << row.ownerOf(entity);
        else
            row.type->write(out, row.field(entity));
    });
}

Ptr<Entity> nextOwner(In* in, VomoTypeBase type, U32 attrId, VomoTypeBase owner) {
    EntityId const id = in->peekEntityId();
    Entity* const entity = in->nextEntity();
    if (entity == nullptr && id != EntityId{0}) throw OwnerHasGone();
    ownerChecked(entity, type, attrId, owner);
    return Ptr<Entity>(entity);
}

} // namespace Vomo::NboAttrLog
