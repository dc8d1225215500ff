#include "Yarrow/QueueWriter.h"

#include "Dunlin/Exception.h"
#include "Dunlin/TaskSchedulerRoot.h"

#include <fmt/format.h>

namespace Yarrow {
namespace {

// A table starts with what fits one page; at least half of it is free after each compaction.
std::size_t wantedSize(U32 live, U32 which) {
    U64 const free = live + U64{Mem::StepHooks::freeQueueEntries(64)};
    U64 const entries = std::min<U64>(live + free, 0xfffffff0U);
    std::size_t const size = TableView::fileSize(static_cast<U32>(entries), which);
    return Mem::StepHooks::cutToTheByte() ? size : Mem::roundToPage(size);
}

// A table this many times as large as it needs to be gives memory back.
std::size_t tooLarge() {
    return Mem::StepHooks::cutToTheByte() ? 1 : 8;
}

} // namespace

QueueWriter::QueueWriter(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath,
                         YarrowWriterOptions const& options, YarrowWriterNotifiee* notifiee)
    : Debuggable(handler), rootPath_(rootPath), options_(options),
      notifiee_(notifiee), files_{{rootPath, primaryName,
                                   Mem::backingOf(options.localMem, options.heap)},
                                  {rootPath, secondaryName,
                                   Mem::backingOf(options.localMem, options.heap)}},
      wren_(handler, *this, options.localMem), alive_(std::make_shared<QueueWriter*>(this)) {
    if (options.trackMemory)
        for (auto& file : files_) file.enable();
}

QueueWriter::~QueueWriter() {
    *alive_ = nullptr;
    detach();
}

// ---- attach ----

U32 QueueWriter::judge(SharedMem::OrielId orielId) const {
    if (options_.localMem) return madeNew;
    Mem::Tracked<Mem::SharedMemWrapper> primary(rootPath_, primaryName);
    Mem::Tracked<Mem::SharedMemWrapper> secondary(rootPath_, secondaryName);
    std::size_t const sizes[2] = {primary.memSize(), secondary.memSize()};
    if (sizes[0] == 0 && sizes[1] == 0) return madeNew;
    std::string message;
    if (sizes[0] == 0 || sizes[1] == 0)
        message = "one of the two queue files is missing";
    else if (!primary.attach(sizes[0], Mem::Mode::reader) ||
             !secondary.attach(sizes[1], Mem::Mode::reader))
        message =
            fmt::format("cannot map the queue files: {}{}", primary.reason(), secondary.reason());
    // The number of slots is not known yet: `validate` looks at that.
    else if (soundFiles({primary.data(), sizes[0], secondary.data(), sizes[1]}, orielId,
                        0x80000000U, message))
        return keptFiles;
    FMTRACE(debugHandler(), 1, "{}: {}", rootPath_.text(), message);
    return remadeFiles;
}

U32 QueueWriter::attach(SharedMem::OrielId orielId) {
    detach();
    U32 const result = judge(orielId);
    if (result == keptFiles) {
        auto const mapped = [](auto& file, void const* base) {
            if (!base)
                Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                    "cannot attach to {}: {}", file.getFilename(), file.reason());
        };
        // No more than is in use: behind that a file may be a hole that a larger table has left, and
        // there may be no room to fill it.
        for (U32 const which : {0U, 1U})
            mapped(files_[which],
                   files_[which].attach(Mem::roundToPage(TableView::entriesOffset(which)),
                                        Mem::Mode::writer));
        U32 const active =
            static_cast<ControlHeader const*>(files_[0].data())->activeGeneration & 1;
        U32 const capacity = TableView(files_[active].data(), active).header().capacity;
        if (std::size_t const size = TableView::fileSize(capacity, active);
            size > files_[active].mappedSize())
            mapped(files_[active], files_[active].resize(size));
        orielId_ = orielId;
        takeOver();
    } else {
        if (result == remadeFiles) {
            // Readers of the old inodes learn from the id that this queue is over.
            Mem::Tracked<Mem::SharedMemWrapper> old(rootPath_, primaryName);
            if (old.memSize() >= sizeof(ControlHeader) &&
                old.attach(sizeof(ControlHeader), Mem::Mode::writer))
                Mem::publish(static_cast<ControlHeader*>(old.data())->orielId, 0);
        }
        create(orielId);
    }
    FMTRACE(debugHandler(), 3, "{} result:{} {}", rootPath_.text(), result, headersToString());
    return result;
}

// Builds both files out of sight, the secondary one in place first: who finds a primary finds both.
void QueueWriter::create(SharedMem::OrielId orielId) {
    for (U32 const which : {1U, 0U})
        if (!files_[which].attachNew(wantedSize(0, which)))
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                "cannot make {}: {}", files_[which].getFilename(), files_[which].reason());
    auto& control = *static_cast<ControlHeader*>(files_[0].data());
    auto& second = *static_cast<SecondaryHeader*>(files_[1].data());
    control.format = second.format = ControlHeader::formatNumber;
    control.headerSize = sizeof(ControlHeader);
    second.headerSize = sizeof(SecondaryHeader);
    control.entrySize = sizeof(Entry);
    control.pruneMode = U32(options_.pruneMode);
    control.incarnation = 1;
    control.activeGeneration = 2;
    for (U32 const which : {0U, 1U}) {
        TableHeader& header = TableView(files_[which].data(), which).header();
        header.capacity = TableView::capacityOf(files_[which].mappedSize(), which);
        header.generation = which == 0 ? 2 : 0;
    }
    // A half-made file carries no name to be found by, and no id either.
    Mem::publish(control.magic, ControlHeader::magicValue);
    Mem::publish(second.magic, ControlHeader::magicValue);
    Mem::publish(second.orielId, orielId);
    Mem::publish(control.orielId, orielId);
    for (U32 const which : {1U, 0U})
        if (!files_[which].commitNew())
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                "cannot make {}: {}", files_[which].getFilename(), files_[which].reason());
    orielId_ = orielId;
    refreshPointers();
    incarnation_ = 1;
}

void QueueWriter::takeOver() {
    refreshPointers();
    // A death between the two stores that clear a corral leaves the end alone behind.
    if (corralStart() == 0 && corralEnd() != 0) Mem::publish(control_->corralEnd, 0); // K4
    Mem::poke(control_->pruneMode, U32(options_.pruneMode));
    incarnation_ = control_->incarnation + 1;
    Mem::publish(control_->incarnation, incarnation_);
    rebuildPositions();
}

void QueueWriter::refreshPointers() {
    control_ = static_cast<ControlHeader*>(files_[0].data());
    generation_ = Mem::peek(control_->activeGeneration);
    sequence_ = Mem::peek(control_->sequence);
    prunedThrough_ = Mem::peek(control_->prunedThrough);
    U32 const which = generation_ & 1;
    table_ = TableView(files_[which].data(), which);
    base_ = table_.header().baseSequence;
    capacity_ = table_.header().capacity;
    count_ = table_.header().count;
}

bool QueueWriter::inCorral(Sequence at) const {
    return Corral::observed(*control_).holds(at);
}

void QueueWriter::rebuildPositions() {
    positionsMem_.detach();
    positions_ = nullptr;
    numPositions_ = 0;
    for (U32 i = 0; i < count_; ++i) {
        Entry const at = entry(i);
        if (at.slot == Entry::tombstone || inCorral(base_ + at.offset)) continue;
        if (at.slot >= numPositions_) growPositions(at.slot);
        positions_[at.slot] = ~i;
    }
}

void QueueWriter::growPositions(U32 slot) {
    U64 const wanted = std::max<U64>({U64{slot} + 1, 2 * U64{numPositions_}, 1024});
    void* const moved = positionsMem_.resize(Mem::multiplyOverflowCheck(wanted, sizeof(U32)));
    if (!moved)
        Dunlin::fmthrow<Dunlin::MemoryResourceException>("no memory for the positions of {} slots",
                                                         wanted);
    positions_ = static_cast<U32*>(moved);
    numPositions_ = static_cast<U32>(std::min<U64>(wanted, ~0U));
}

void QueueWriter::detach() {
    for (auto& file : files_) file.detach();
    control_ = nullptr;
    table_ = TableView();
    positionsMem_.detach();
    positions_ = nullptr;
    numPositions_ = capacity_ = count_ = 0;
    generation_ = base_ = sequence_ = prunedThrough_ = 0;
    corralOpen_ = false;
}

bool QueueWriter::validate(SharedMem::OrielId orielId, U32 highestNumSlots,
                           std::string& message) const {
    if (!control_) {
        message = "queue is not attached";
        return false;
    }
    bool const sound = soundFiles(
        {files_[0].data(), files_[0].mappedSize(), files_[1].data(), files_[1].mappedSize()},
        orielId, highestNumSlots, message);
    if (!sound) FMTRACE(debugHandler(), 0, "{}: {}", rootPath_.text(), message);
    return sound;
}

void QueueWriter::validateFile() const {
    if (options_.localMem) return;
    for (auto const& file : files_)
        if (file.replaced() || file.memSize() < file.mappedSize())
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                "{} has {} bytes, mapped {}{}", file.getFilename(), file.memSize(),
                file.mappedSize(), file.replaced() ? ", and was replaced" : "");
}

void QueueWriter::cleanup() {
    for (auto& file : files_) file.cleanup();
}

void QueueWriter::dumpToCoreIs(bool include) {
    for (auto& file : files_) file.dumpToCoreIs(include);
}

std::string QueueWriter::headersToString() const {
    if (!control_) return "queue is not attached";
    return fmt::format("{}\ntable 0 {}\ntable 1 {}", toString(*control_),
                       toString(TableView(files_[0].data(), 0).header()),
                       toString(TableView(files_[1].data(), 1).header()));
}

// ---- notifications ----

// Readers: QueueReader::next, QueueReader::validateNotif.
//
//      store                     order, partner                         a reader now sees
//  N1  entry                     stays before N2                        nothing: it is behind count
//  N2  count                     publish; pairs with next's observe     may take the entry early
//  N3  sequence                  publish; pairs with next's observe     that there is something new
//  N4  former entry: tombstone   publish; pairs with next's observe     the former one is void; who
//                                of the entry                           sees that sees N1 to N3 too
//
// The change itself is readable before N1. A death between N2 and N4 leaves a queue that
// `soundFiles` rejects.
void QueueWriter::notifySlot(U32 slot) {
    FMASSERT(control_ != nullptr, "notification of slot:{} before the queue is attached", slot);
    if (slot >= numPositions_) [[unlikely]]
        growPositions(slot);
    if (count_ == capacity_ || sequence_ - base_ >= options_.maxOffset) [[unlikely]]
        makeRoom();
    U32 const index = count_;
    Sequence const next = sequence_ + 1;
    Mem::poke(table_.entry(index), Entry{static_cast<U32>(next - base_), slot}); // N1
    Mem::publish(table_.header().count, index + 1);                              // N2
    Mem::publish(control_->sequence, next);                                      // N3
    count_ = index + 1;
    sequence_ = next;
    lastNotified_ = slot;
    if (U32 const former = position(slot); former != ~0U) withdraw(slot, former); // N4
    // Inside the corral no position is kept, so nothing replaces this entry later.
    if (!corralOpen_) positions_[slot] = ~index;
    if (wren_.mustRing()) [[unlikely]]
        wren_.ring();
}

void QueueWriter::withdraw(U32 slot, U32 at) {
    Entry& entry = table_.entry(at);
    Mem::publish(entry, Entry{Mem::peek(entry).offset, Entry::tombstone});
    positions_[slot] = 0;
}

// What is withdrawn here has no successor for its slot. If it announced a change that some reader
// has yet to take, that change has moved on with the slot's contents, and a reader that keeps no
// values takes the announcement inside the corral for a mere move: it is repeated behind it.
void QueueWriter::tombstoneSlot(U32 slot) {
    U32 const former = position(slot);
    if (former == ~0U) return;
    if (corralOpen_ && base_ + entry(former).offset > wren_.slowest(sequence_))
        movedUnseen_.push_back(lastNotified_);
    withdraw(slot, former);
}

void QueueWriter::makeRoom() {
    // A corral as old as that is kept open by a reader that has stopped: it must walk again.
    bool const overAge = sequence_ > options_.maxAge && corralEnd() != 0 &&
                         corralStart() <= sequence_ - options_.maxAge;
    if (overAge)
        dissolveCorral();
    else
        compact(pruneBound());
}

// How far back entries may go now.
Sequence QueueWriter::pruneBound() const {
    Sequence bound = prunedThrough_;
    auto const raise = [&](Sequence to) { bound = std::max(bound, to); };
    if (options_.pruneMode != PruneMode::keep) raise(wren_.slowest(sequence_));
    if (options_.pruneMode == PruneMode::bounded && sequence_ > options_.maxLag)
        raise(sequence_ - options_.maxLag);
    // Who takes a position inside a standing corral stands in front of it: nothing behind that
    // place may go, or he would be told again and again that he was overtaken.
    if (Sequence const start = corralStart(); start != 0) bound = std::min(bound, start - 1);
    if (sequence_ > options_.maxAge) raise(sequence_ - options_.maxAge);
    return std::max(bound, prunedThrough_);
}

// Copies what must stay into the idle table and makes that the active one.
//
//      store                     order, partner                         a reader now sees
//  C1  idle generation 0         stays before C2 (fence); pairs with    whoever still reads there
//                                fetch's look after the entries         finds it reused
//  C2  idle pages given back,    after C1: the kernel changes them      zeros in a table that is
//      or reserved               behind its own barriers                given up (H-sched-1)
//  C3  idle entries              stay before C5                         nothing
//  C4  idle base, capacity,      stay before C5                         nothing
//      count
//  C5  idle generation           publish                                nothing: not active yet
//  C6  prunedThrough             publish; stays before C7               nothing new: tested after
//                                                                       a flip alone
//  C7  activeGeneration          publish; pairs with next's observe     the new table, whole
//
// A reader that loads entries, then the generation, sees old entries and either generation, or new
// ones (or zeros) and a generation that is not its own: what it must not see, new entries under the
// old generation, C1 before C2 rules out. A death before C7 leaves the old table active and whole.
void QueueWriter::compact(Sequence pruneThrough) {
    ++compactions_;
    auto const stays = [&](Entry const& at) {
        return at.slot != Entry::tombstone && base_ + at.offset > pruneThrough;
    };
    U32 live = 0;
    for (U32 i = 0; i < count_; ++i) live += stays(entry(i));
    U32 const idle = (generation_ + 1) & 1;
    Mem::poke(TableView(files_[idle].data(), idle).header().generation, 0); // C1
    Mem::storesStayBefore();
    if (!reserveTable(idle, live)) { // C2
        // No room for what must stay: every reader that is behind has to walk.
        FMTRACE(debugHandler(), 0, "{}: no room for {} notifications, dropping them: {}",
                rootPath_.text(), live, files_[idle].reason());
        pruneThrough = sequence_;
    }
    TableView const from = table_ = TableView(files_[idle ^ 1].data(), idle ^ 1);
    TableView const to(files_[idle].data(), idle);

    U32 kept = 0;
    Sequence newBase = sequence_;
    for (U32 i = 0; i < count_; ++i) {
        Entry const at = Mem::peek(from.entry(i));
        if (at.slot == Entry::tombstone) continue;
        Sequence const sequence = base_ + at.offset;
        bool const positioned = position(at.slot) == i;
        if (!stays(at)) {
            if (positioned) positions_[at.slot] = 0;
            continue;
        }
        if (kept == 0) newBase = sequence - 1;
        if (positioned) positions_[at.slot] = ~kept;
        Mem::poke(to.entry(kept), Entry{static_cast<U32>(sequence - newBase), at.slot}); // C3
        ++kept;
    }
    U32 const capacity = TableView::capacityOf(files_[idle].mappedSize(), idle);
    Mem::poke(to.header().baseSequence, newBase); // C4
    Mem::poke(to.header().capacity, capacity);
    Mem::poke(to.header().count, kept);
    Mem::publish(to.header().generation, generation_ + 1); // C5
    if (pruneThrough > prunedThrough_) {
        prunedThrough_ = pruneThrough;
        Mem::publish(control_->prunedThrough, pruneThrough); // C6
    }
    Mem::publish(control_->activeGeneration, generation_ + 1); // C7
    ++generation_;
    table_ = to;
    base_ = newBase;
    capacity_ = capacity;
    count_ = kept;
    FMTRACE(debugHandler(), 7, "{}: generation:{} kept:{} capacity:{} prunedThrough:{}",
            rootPath_.text(), generation_, kept, capacity, prunedThrough_);
}

// Gives the idle table room for `live` entries and as many again. A table that has become far too
// large gives its memory back. False if it cannot even hold what is live.
bool QueueWriter::reserveTable(U32 which, U32 live) {
    auto& file = files_[which];
    std::size_t const wanted = wantedSize(live, which);
    if (file.mappedSize() < wanted || file.mappedSize() / tooLarge() > wanted) {
        bool const resized = file.resize(wanted) != nullptr;
        control_ = static_cast<ControlHeader*>(files_[0].data());
        if (!resized)
            FMTRACE(debugHandler(), 1, "{} to {} bytes: {}", file.getFilename(), wanted,
                    file.reason());
    }
    return TableView::capacityOf(file.mappedSize(), which) > live;
}

// ---- the corral ----

void QueueWriter::markShrinkStart() {
    FMASSERT(corralStart() == 0, "corral already stands, start:{} end:{}", corralStart(),
             corralEnd());
    corralOpen_ = true;
    movedUnseen_.clear();
    Mem::publish(control_->corralStart, sequence_ + 1); // K1
}

void QueueWriter::markShrinkEnd() {
    FMASSERT(corralOpen_, "end of a move that never began");
    corralOpen_ = false;
    if (sequence_ < corralStart()) {
        // Nothing moved: the next ordinary notification must not fall into the corral.
        Mem::publish(control_->corralStart, 0);
        return;
    }
    Mem::publish(control_->corralEnd, sequence_); // K2
    for (U32 const slot : movedUnseen_) notifySlot(slot);
    movedUnseen_.clear();
    maybeDissolveCorral();
}

void QueueWriter::maybeDissolveCorral() {
    if (!control_ || corralOpen_ || corralStart() == 0) return;
    if (wren_.slowest(sequence_) < corralEnd()) return;
    dissolveCorral();
    // The table goes on shrinking in a turn of its own, not inside the operation that is under way.
    Dunlin::schedulerRootDunlin->taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal,
                                         [alive = alive_] {
                                             QueueWriter* const self = *alive;
                                             if (self && self->control_ && self->notifiee_)
                                                 self->notifiee_->shrink();
                                         });
}

// By a flip, with prunedThrough raised, so that a reader that is attached but has not said so yet
// cannot skip the corral unaware. Its entries are never withdrawn in place.
void QueueWriter::dissolveCorral() {
    compact(std::max(pruneBound(), corralEnd()));
    Mem::publish(control_->corralStart, 0); // K3
    Mem::publish(control_->corralEnd, 0);   // K4
}

// ---- told by the doorbell ----

void QueueWriter::listening() {
    maybeDissolveCorral();
}
void QueueWriter::positionsChanged() {
    maybeDissolveCorral();
}
void QueueWriter::quiescedChanged(bool quiesced) {
    if (notifiee_) notifiee_->handleQuiesced(quiesced);
}

} // namespace Yarrow
