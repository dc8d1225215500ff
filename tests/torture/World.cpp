#include "tests/torture/World.h"

#include "SharedMem/FileUtil.h"

namespace Support {
namespace {

bool within(World::Value const& value, U32 keys) {
    return value.key().id < keys && value.whole();
}

} // namespace

World::Setting World::drawn(U64 seed) {
    Dice dice(seed);
    Setting s;
    s.descriptor = Brisk::MapDescriptor(dice.oneIn(2) ? 4 : 64);
    s.descriptor.shrinkable = !dice.oneIn(8);
    s.descriptor.shrinkBuckets = !dice.oneIn(4);
    s.descriptor.pruneMode = static_cast<Yarrow::PruneMode>(dice.below(3));
    s.descriptor.maxLag = 1 + dice.below(8);
    s.slots = dice.oneIn(4) ? 2 : 4;
    s.buckets = 2;
    s.queueEntries = 1 + dice.below(8);
    s.connected = dice.oneIn(2);
    s.values = dice.oneIn(2);
    s.keys = dice.oneIn(3) ? 5 + dice.below(4) : 9 + dice.below(14);
    s.clashes = dice.below(4);
    Mem::StepHooks::small = {s.slots, s.buckets, s.queueEntries, true};
    return s;
}

std::string World::setting() const {
    auto const& s = setting_;
    return fmt::format("slots {} buckets {} queue entries {} initialSize {} shrinkable {} "
                       "shrinkBuckets {} pruneMode {} maxLag {} connected {} store of {}, {} keys, "
                       "clashes {}",
                       s.slots, s.buckets, s.queueEntries, s.descriptor.initialSize,
                       s.descriptor.shrinkable, s.descriptor.shrinkBuckets,
                       U32(s.descriptor.pruneMode), s.descriptor.maxLag, s.connected,
                       s.values ? "values" : "keys", s.keys, s.clashes);
}

World::World(U64 seed)
    : setting_(drawn(seed)), truth_(setting_.keys), writer_(T::writer(name, setting_.descriptor)),
      reader_(T::reader(name)), writing_(sides_.add("writer", [this](Side& side) { write(side); })),
      reading_(sides_.add("reader", [this](Side& side) { read(side); })),
      following_(sides_.add("follower", [this](Side& side) { follow(side); })) {
    writer_->initialize("test");
    reader_->initialize("test");
    client_ = std::make_unique<Client>(*this);
    connect();
    turn(writing_);
    walkAll();
}

World::~World() {
    for (Side* const side : {&writing_, &reading_, &following_}) sides_.finish(*side);
    client_.reset();
    reader_->detach(false);
    writer_->cleanup();
    writer_->detach(false);
    connection_.reset();
    while (Dunlin::schedulerRootDunlin->runOnce(0)) continue;
    Mem::StepHooks::small = {};
}

TestKey World::keyOf(U32 id) const {
    // Hashes that differ in their high bits alone share a bucket for ever.
    return setting_.clashes == 0 ? TestKey(id) : TestKey(id, id % setting_.clashes * 0x40000001U);
}
std::pair<U32, U32> World::placeOf(U32 id) const {
    return {Dunlin::Util::reverse(keyOf(id).hash()), id};
}

void World::schedule(U64 seed) {
    Dice dice(seed);
    for (int round = 0; round < rounds && fault().empty(); ++round) play(dice);
}

void World::play(Dice& dice) {
    bool const idle = !reading_.midway && !following_.midway && !writing_.midway;
    if (idle) truth_.forget(sides_.now());
    writeBias_ = 20 + 15 * dice.below(5);
    static U32 const favourites[] = {0, 0, 8, 8, 10, 10, 10, 15};
    favourite_ = favourites[dice.below(8)];
    trigger_ = Trigger::none;
    if (!writing_.midway && !dice.oneIn(4)) prepare(dice);
    static U32 const operations[] = {6, 6, 12, 40};
    sides_.run(dice.next(), operations[dice.below(4)]);
    // Who is in the middle of something may stay there, over schedules to come; a writer that stops
    // holds up no reader.
    U32 const stays = dice.below(8);
    bool const writerStays = stays == 0;
    if (!writerStays) sides_.finish(writing_);
    if (stays != 1) sides_.finish(reading_);
    if (stays != 2) sides_.finish(following_);
    if (!fault().empty()) return;
    if (writerStays && writing_.midway) {
        sides_.once(reading_);
        if (fault().empty()) sides_.once(following_);
        return;
    }
    sides_.tick();
    judgeWriter(dice.oneIn(4));
    if (!reading_.midway && fault().empty()) judgeReader();
    if (!following_.midway && fault().empty()) judgeFollower();
}

// ---- the writer ----

// Undisturbed, and before the schedule: brings the table to where the writer's next operation shrinks
// or grows it, or fills its queue.
void World::prepare(Dice& dice) {
    preparing_ = true;
    trigger_ = static_cast<Trigger>(dice.below(6));
    sides_.once(writing_);
    preparing_ = false;
}

void World::prepare(Side& side) {
    auto const members = [&] { return writer_->members(); };
    auto const any = [&] { return side.dice.below(setting_.keys); };
    auto const fillTo = [&](U32 count) {
        U32 const first = any();
        for (U32 i = 0; i < setting_.keys && members() < count; ++i)
            put(side, (first + i) % setting_.keys);
    };
    switch (trigger_) {
    case Trigger::none:
        return;
    case Trigger::slotShrink:
        fillTo(setting_.keys);
        turn(side); // readers that are past the last move let the next one begin
        return drainTo(side, writer_->slotTable().shrinkThresholdValue() / 2);
    case Trigger::bucketShrink:
        fillTo(writer_->buckets() + 1);
        return drainTo(side, writer_->buckets() / 4);
    case Trigger::slotGrowth:
        return fillTo(writer_->capacity());
    case Trigger::bucketGrowth:
        return fillTo(writer_->buckets());
    case Trigger::compaction:
        for (U32 left = writer_->queue().entryCount() % 4; left > 0; --left) put(side, any());
    }
}

// The operation that was prepared.
void World::pull(Side& side) {
    U32 const first = side.dice.below(setting_.keys);
    auto const there = [&](bool present) {
        for (U32 i = 0; i < setting_.keys; ++i)
            if (U32 const id = (first + i) % setting_.keys;
                (truth_.current(id) != Truth::absent) == present)
                return id;
        return first;
    };
    switch (std::exchange(trigger_, Trigger::none)) {
    case Trigger::none:
        return;
    case Trigger::slotShrink:
    case Trigger::bucketShrink:
        return remove(side, there(true));
    case Trigger::slotGrowth:
    case Trigger::bucketGrowth:
        return put(side, there(false));
    case Trigger::compaction:
        for (U32 left = 2 + 2 * side.dice.below(setting_.queueEntries + 2); left > 0; --left)
            put(side, first);
    }
}

void World::write(Side& side) {
    if (preparing_) return prepare(side);
    if (trigger_ != Trigger::none) return pull(side);
    static U32 const chances[] = {50, 8, 5, 5, 14, 16, 1, 1}; // by choice, of 100
    U32 choice = 0;
    for (U32 at = side.dice.below(100); at >= chances[choice]; ++choice) at -= chances[choice];
    // What needs files made comes a tenth as often.
    if (choice >= 6 && !side.dice.oneIn(10)) choice = 0;
    writeOnce(side, choice);
}

void World::writeOnce(Side& side, U32 choice) {
    auto const any = [&] { return side.dice.below(setting_.keys); };
    U32 const id = any();
    switch (choice) {
    case 0:
        return side.dice.below(100) < writeBias_ ? put(side, id) : remove(side, id);
    case 1: // away and back
        remove(side, id);
        return put(side, side.dice.oneIn(2) ? id : any());
    case 2:
    case 3:
        return direct(side, id, choice == 3);
    case 4:
        return side.dice.below(100) < writeBias_ ? fill(side) : drainTo(side, side.dice.below(8));
    case 5:
        return turn(side);
    default:
        return comeAgain(side, choice == 7);
    }
}

// Large enough to shrink, or to grow again.
void World::fill(Side& side) {
    U32 const first = side.dice.below(setting_.keys);
    for (U32 i = 0; i < setting_.keys; ++i) put(side, (first + i) % setting_.keys);
}
// Most often the lowest slots first, so that what stays has to move in a shrink.
void World::drainTo(Side& side, U32 count) {
    std::vector<std::pair<U32, U32>> order; // slot, key
    Value value;
    Brisk::IterHint hint;
    bool const bySlot = !side.dice.oneIn(4);
    for (bool more = writer_->first(value, hint); more;
         more = writer_->next(value.key(), value, hint))
        order.emplace_back(bySlot ? hint.slotIndex : 0, value.key().id);
    if (bySlot) std::sort(order.begin(), order.end());
    for (std::size_t i = 0; i < order.size() && writer_->members() > count; ++i)
        remove(side, order[i].second);
}

void World::put(Side& side, U32 id) {
    side.doing = {"write", id};
    Value const value = valueOf(id);
    bool const overwrite = !side.dice.oneIn(16);
    bool const takes = overwrite || truth_.current(id) == Truth::absent;
    if (takes) truth_.begins(id, value.stamp(), sides_.now());
    writer_->write(value, overwrite);
    if (takes) truth_.ended(id, sides_.now());
}

void World::remove(Side& side, U32 id) {
    side.doing = {"remove", id};
    S64 const was = truth_.current(id);
    if (was != Truth::absent) truth_.begins(id, Truth::absent, sides_.now());
    Value old;
    bool const removed = writer_->remove(keyOf(id), old);
    if (removed != (was != Truth::absent) || (removed && S64{old.stamp()} != was))
        complain("removed {} of key {}: {} stamp {}, was {}", removed, id, old.key(), old.stamp(),
                 was);
    if (removed) truth_.ended(id, sides_.now());
}

void World::direct(Side& side, U32 id, bool update) {
    side.doing = {update ? "directUpdate" : "directWrite", id};
    Value const value = valueOf(id);
    if (update) {
        Value* const area = writer_->directUpdate(keyOf(id));
        if (!area) return;
        Mem::copyBytes(area, &value, sizeof value);
    }
    truth_.begins(id, value.stamp(), sides_.now());
    if (!update) writer_->directWrite(value);
    writer_->directCommit();
    truth_.ended(id, sides_.now());
}

// Hears of the readers' positions, and shrinks on when a move of slots is over.
void World::turn(Side& side) {
    side.doing = {"turn of the loop"};
    while (Dunlin::schedulerRootDunlin->runOnce(0)) continue;
}

void World::comeAgain(Side& side, bool newGeneration) {
    side.doing = {newGeneration ? "new generation" : "restart"};
    std::string const slots = writer_->rootPath().file("slots");
    away_ = true;
    countWriter();
    counts_.generations += newGeneration;
    writer_->detach(false);
    if (newGeneration) {
        renewing_ = true;
        poke(slots, offsetof(Brisk::SlotHeaderCommon, runtimeFlags), U16{1});
        for (U32 id = 0; id < setting_.keys; ++id) truth_.begins(id, Truth::absent, sides_.now());
    }
    writer_->initialize("test");
    away_ = false;
    if (newGeneration) {
        for (U32 id = 0; id < setting_.keys; ++id) truth_.ended(id, sides_.now());
        renewing_ = false;
        renewedUntil_ = sides_.now();
    }
    turn(side);
}

// ---- the plain reader ----

// Attached to the generation that is there now, or to none while one is in the making.
bool World::attached(bool atRest) {
    if (reader_->initialized() && !reader_->replaced()) return true;
    walking_ = false;
    reader_->detach(false);
    U64 const from = sides_.now();
    if (reader_->initialize("test")) return true;
    bool const excused = !atRest && (renewing_ || renewedUntil_ >= from);
    if (!excused) complain("a reader cannot attach to a sound table");
    return false;
}

void World::read(Side& side) {
    side.doing = {"attach"};
    if (!attached()) return;
    U32 const choice = side.dice.below(16);
    switch (side.dice.oneIn(3) ? choice : favourite_) {
    default:
        return lookUp(side, side.dice.below(setting_.keys + 1));
    case 8:
    case 9:
        return walk(side);
    case 10:
    case 11:
    case 12:
    case 13:
        side.doing = {"step of a walk"};
        return stepOn();
    case 14: {
        U32 const slot = side.dice.below(2 * setting_.keys);
        side.doing = {"slot", slot};
        return readSlot(slot);
    }
    case 15:
        side.doing = {"attach"};
        reader_->detach(false);
        attached();
    }
}

void World::lookUp(Side& side, U32 id) {
    side.doing = {"lookup", id};
    U64 const from = sides_.now();
    Value value;
    bool found = false;
    reader_->lookup(keyOf(id), found, &value);
    if (reader_->replaced()) return; // frozen: the state of some time ago
    bool const right = found && value.key().id == id && value.whole();
    if (found && !right) complain("lookup of key {} gave another's or torn: {}", id, value.key());
    if (id == setting_.keys) {
        if (found) complain("lookup found key {}, which never was", id);
    } else if (!truth_.read(id, found ? S64{value.stamp()} : Truth::absent, from, sides_.now())) {
        complain("lookup of key {} gave {} stamp {}; now it is {}", id, found, value.stamp(),
                 truth_.current(id));
    }
    if (!found || !side.dice.oneIn(4)) return;
    U64 const again = sides_.now();
    try {
        reader_->validateVersionAnchor();
        // That the table was replaced shows at the next read.
        bool const renewed = renewing_ || renewedUntil_ >= from;
        if (!renewed && !truth_.possible(id, value.stamp(), again, sides_.now()))
            complain("the anchor of key {} vouches for stamp {}; now it is {}", id, value.stamp(),
                     truth_.current(id));
    } catch (Mem::VersionMismatchException const&) {
        // Changed since, or moved.
    }
}

void World::readSlot(U32 slot) {
    U64 const from = sides_.now();
    Value value;
    if (!reader_->getValue(slot, value, nullptr) || reader_->replaced()) return;
    if (!within(value, setting_.keys) ||
        !truth_.possible(value.key().id, value.stamp(), from, sides_.now()))
        complain("slot {} gave key {} stamp {}", slot, value.key(), value.stamp());
}

void World::walk(Side& side) {
    side.doing = {"walk"};
    walking_ = false;
    do stepOn();
    while (walking_ && fault().empty());
}

void World::stepOn() {
    U64 const from = sides_.now();
    U32 const after = walking_ ? atKey_ : noKey;
    bool const found = walking_ ? reader_->next(at_.key(), at_, hint_) : reader_->first(at_, hint_);
    walking_ = false;
    if (reader_->replaced()) return;
    judgeStep(found, at_, after, from);
    walking_ = found;
    atKey_ = at_.key().id;
}

// The walk has come from one key to the next, or to the end: nothing may stand between them all the
// while.
void World::judgeStep(bool found, Value const& value, U32 after, U64 from) {
    U64 const to = sides_.now();
    if (found && !within(value, setting_.keys))
        return complain("a walk met a record that is torn or none: {}", value.key());
    U32 const id = value.key().id;
    if (found && !truth_.possible(id, value.stamp(), from, to))
        complain("a walk met key {} stamp {}; now it is {}", id, value.stamp(), truth_.current(id));
    if (found && after != noKey && placeOf(id) <= placeOf(after))
        complain("a walk went from key {} back to key {}", after, id);
    for (U32 other = 0; other < setting_.keys; ++other) {
        bool const between = (after == noKey || placeOf(other) > placeOf(after)) &&
                             (!found || placeOf(other) < placeOf(id));
        if (between && truth_.thereThroughout(other, from, to))
            complain("a walk from key {} missed key {} on its way to {}", S32(after), other,
                     found ? S32(id) : -1);
    }
}

// ---- the follower ----

void World::connect() {
    connection_.reset();
    client_->queue().countedFromIs(Yarrow::QueueReader::notCounted);
    toConnect_ = setting_.connected && away_; // nobody listens now
    if (!setting_.connected || away_) return;
    connection_ = dialed(Wren::BolsterAcceptSm::bolsterAcceptSm().socketName());
    Wren::Hello hello;
    hello.tableId = writer_->queue().wren().tableId();
    hello.orielId = writer_->orielId();
    Wren::send(connection_.get(), hello);
}

void World::report() {
    if (connection_.get() < 0) return;
    Wren::send(connection_.get(), Wren::Position{Wren::Kind::progress, 1, client_->queue().last()});
}

// What the writer has to say, as a shadow takes it: whether it counts this reader, and what the
// reader has missed.
void World::hear() {
    Wren::Message message;
    while (client_ && connection_.get() >= 0) {
        auto const received = Wren::receive(connection_.get(), message);
        if (received == Wren::Received::nothing) return;
        auto& queue = client_->queue();
        if (received == Wren::Received::closed || message.kind != Wren::Kind::welcome) {
            queue.countedFromIs(Yarrow::QueueReader::notCounted);
            connection_.reset();
            return;
        }
        queue.countedFromIs(message.welcome.sequence);
        if (message.welcome.prunedThrough > queue.last()) walkAll();
    }
}

void World::walkAll() {
    client_->incarnation = client_->queue().incarnation();
    client_->walk();
}

// As a shadow does it when its connection ends: it flushes what is of another generation, and walks
// when another writer has come.
void World::keepUp(bool atRest) {
    if (client_ && client_->replaced()) {
        client_->flushing = true;
        client_->flush();
        counts_.overtakes += client_->overtakes;
        if (!client_->known.empty()) complain("a flush left {} keys", client_->known.size());
        client_.reset();
    }
    if (!client_) {
        U64 const from = sides_.now();
        try {
            client_ = std::make_unique<Client>(*this);
        } catch (std::runtime_error const& e) {
            bool const excused = !atRest && (renewing_ || renewedUntil_ >= from);
            if (!excused) complain("a follower cannot attach to a sound table: {}", e.what());
            return;
        }
        connect();
        return walkAll();
    }
    hear();
    if (client_->queue().incarnation() != client_->incarnation) {
        connect();
        walkAll();
    } else if (toConnect_) {
        connect();
    }
}

void World::follow(Side& side) {
    side.doing = {"attach"};
    keepUp();
    if (!client_ || client_->replaced()) return;
    U32 const choice = side.dice.below(32);
    if (choice == 0) {
        side.doing = {"walk"};
        client_->walk();
    } else {
        U32 const most = choice < 16 ? 1 + side.dice.below(3) : ~0U;
        side.doing = {"poll", most};
        client_->take(most);
    }
    if (choice % 4 != 0) report();
}

void World::Client::doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) {
    slotFrom_ = world_.sides_.now();
    FollowerOf::doSlot(slot, sequence, compare);
}

void World::Client::toldValue(Value const& value) {
    if (frozen()) { // as it was when it ended
        FollowerOf::toldValue(value);
        return;
    }
    U32 const id = value.key().id;
    if (!within(value, world_.setting_.keys) ||
        !world_.truth_.possible(id, value.stamp(), slotFrom_, world_.sides_.now()))
        world_.complain("told of key {} stamp {}", value.key(), value.stamp());
    toldAt_[id] = slotFrom_;
    FollowerOf::toldValue(value);
}

void World::Client::toldDelete(TestKey const& key) {
    U32 const id = key.id;
    if (!known.count(id)) world_.complain("told of the end of key {}, which is not known", id);
    if (!flushing && !frozen() &&
        !world_.truth_.possible(id, Truth::absent, toldAt_[id], world_.sides_.now()))
        world_.complain("told of the end of key {}, which was there all the while", id);
    FollowerOf::toldDelete(key);
}

// ---- at rest ----

void World::countWriter() {
    auto const counters = writer_->writerCounters();
    counts_.moves += counters.slotMoves;
    counts_.growths += counters.slotGrows + counters.bucketGrows;
    counts_.shrinks += counters.slotShrinks + counters.bucketShrinks;
    U64 const compactions = writer_->queue().compactions();
    counts_.compactions += compactions - std::exchange(compactions_, compactions);
}

World::Counts const& World::counts() {
    countWriter();
    if (client_) counts_.overtakes += client_->overtakes;
    counts_.steps = sides_.now();
    return counts_;
}

void World::judgeWriter(bool validate) {
    State truth;
    for (U32 id = 0; id < setting_.keys; ++id)
        if (truth_.current(id) != Truth::absent) truth[id] = static_cast<U32>(truth_.current(id));
    if (T::walked(*writer_) != truth) complain("the writer's walk is not what was written");
    if (validate && !writer_->validate()) complain("not sound: {}", writer_->lastFinding());
}

void World::judgeReader() {
    if (!attached(true)) return;
    for (U32 id = 0; id < setting_.keys && fault().empty(); ++id) {
        Value value;
        bool found = false;
        reader_->lookup(keyOf(id), found, &value);
        if (reader_->replaced()) return judgeReader();
        if ((found ? S64{value.stamp()} : Truth::absent) != truth_.current(id))
            complain("at rest: lookup of key {} gives {} stamp {}, it is {}", id, found,
                     value.stamp(), truth_.current(id));
    }
    bool const wasWalking = std::exchange(walking_, false);
    auto const kept = std::tuple(at_, hint_, atKey_);
    do stepOn();
    while (walking_ && fault().empty());
    std::tie(at_, hint_, atKey_) = kept;
    walking_ = wasWalking;
}

void World::judgeFollower() {
    keepUp(true);
    if (!client_) return;
    client_->poll();
    for (U32 id = 0; id < setting_.keys; ++id)
        if (stampIn(client_->known, id) != truth_.current(id))
            complain("at rest: key {} is known with stamp {}, it is {}", id,
                     stampIn(client_->known, id), truth_.current(id));
    if (!client_->sound()) complain("at rest: the follower's index is not sound");
    report();
}

} // namespace Support
