#include "Yarrow/QueueReader.h"

#include "Dunlin/Exception.h"

#include <algorithm>
#include <fmt/format.h>

namespace Yarrow {
namespace {

// Each turn of a search follows a compaction of the writer, so this many in a row mean damage.
constexpr int maxTries = 100'000;

} // namespace

QueueReader::QueueReader(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath)
    : Debuggable(handler), files_{{rootPath, primaryName}, {rootPath, secondaryName}} {}

bool QueueReader::attach(SharedMem::OrielId wanted) {
    detach();
    for (U32 const which : {0U, 1U}) {
        std::size_t const size = files_[which].memSize();
        if (size < TableView::entriesOffset(which) ||
            !files_[which].attach(Mem::roundToPage(size), Mem::Mode::reader)) {
            FMTRACE(debugHandler(), 1, "no queue in {}: size:{} {}", files_[which].getFilename(),
                    size, files_[which].reason());
            detach();
            return false;
        }
    }
    auto const& control = *static_cast<ControlHeader const*>(files_[0].data());
    auto const& second = *static_cast<SecondaryHeader const*>(files_[1].data());
    if (Mem::observe(control.magic) != ControlHeader::magicValue ||
        Mem::observe(second.magic) != ControlHeader::magicValue ||
        Mem::peek(control.format) != ControlHeader::formatNumber ||
        Mem::peek(control.entrySize) != sizeof(Entry) || Mem::peek(control.orielId) != wanted ||
        Mem::peek(second.orielId) != wanted) {
        FMTRACE(debugHandler(), 1, "queue is not of orielId {:#x}: {}", wanted, toString(control));
        detach();
        return false;
    }
    control_ = &control;
    return true;
}

void QueueReader::detach() {
    for (auto& file : files_) file.detach();
    control_ = nullptr;
    generation_ = 0;
    index_ = limit_ = fetched_ = 0;
    last_ = sequence_ = 0;
    overtaken_ = false;
    countedFrom_ = notCounted;
}

SharedMem::OrielId QueueReader::orielId() const {
    return control_ ? Mem::observe(control_->orielId) : 0;
}
U32 QueueReader::incarnation() const {
    return control_ ? Mem::observe(control_->incarnation) : 0;
}
Sequence QueueReader::head() const {
    return control_ ? Mem::observe(control_->sequence) : 0;
}

// The head comes first: a corral that begins after that holds only later sequences, and one that the
// head lies in is seen, unless it has been dissolved since (Corral tells what each mix means).
Sequence QueueReader::position() const {
    if (!control_) return 0;
    Sequence const head = Mem::observe(control_->sequence);
    Corral const corral = Corral::observed(*control_);
    return corral.holds(head) && head != corral.end ? corral.start - 1 : head;
}

bool QueueReader::inCorral(Sequence at) const {
    return control_ && Corral::observed(*control_).holds(at);
}

bool QueueReader::merelyMoved(Sequence at) const {
    if (!control_ || countedFrom_ == notCounted) return false;
    Corral const corral = Corral::observed(*control_);
    return corral.holds(at) && corral.start > countedFrom_;
}

void QueueReader::lastIs(Sequence sequence) {
    last_ = sequence;
    overtaken_ = false;
    generation_ = 0;
    index_ = limit_ = fetched_ = 0;
}

TableView QueueReader::table(U32 which) const {
    return TableView(files_[which].data(), which);
}

// Sees to it that `capacity` entries are mapped. The writer reserves a file's pages before it
// publishes the table, so a short file is damage.
void QueueReader::mapTable(U32 which, U32 capacity) {
    auto& file = files_[which];
    std::size_t const wanted = TableView::fileSize(capacity, which);
    if (file.mappedSize() >= wanted) return;
    if (std::size_t const size = file.memSize(); size < wanted)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "{} has {} bytes, wanted {} for {} notifications", file.getFilename(), size, wanted,
            capacity);
    if (!file.resize(Mem::roundToPage(wanted)))
        Dunlin::fmthrow<Dunlin::MemoryResourceException>("failed to map {} bytes of {}: {}", wanted,
                                                         file.getFilename(), file.reason());
    control_ = static_cast<ControlHeader const*>(files_[0].data());
}

// Looks for the first entry of the active table above a sequence. False if the table was rebuilt
// meanwhile; every number is judged only after the generation was read again.
bool QueueReader::find(Sequence above, Found& found) {
    found.generation = Mem::observe(control_->activeGeneration);
    U32 const which = found.generation & 1;
    TableHeader const& first = table(which).header();
    U32 const capacity = Mem::peek(first.capacity);
    Mem::loadsStayBefore();
    if (Mem::peek(first.generation) != found.generation) return false;
    mapTable(which, capacity);

    TableView const view = table(which);
    TableHeader const& header = view.header();
    found.base = Mem::peek(header.baseSequence);
    found.count = Mem::observe(header.count);
    Mem::loadsStayBefore();
    if (Mem::peek(header.generation) != found.generation) return false;
    if (found.count > capacity)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("bad queue table: {}",
                                                             toString(header));
    U32 low = 0, high = found.count;
    while (low < high) {
        U32 const middle = low + (high - low) / 2;
        if (found.base + Mem::peek(view.entry(middle)).offset > above)
            high = middle;
        else
            low = middle + 1;
    }
    found.index = low;
    found.entry = low < found.count ? Mem::observe(view.entry(low)) : Entry{};
    Mem::loadsStayBefore();
    return Mem::peek(header.generation) == found.generation;
}

// Finds the place behind `last_` in the active table. False if this reader was overtaken. The
// order: a table that lacks entries became active after prunedThrough told of it.
bool QueueReader::refind() {
    ++flips_;
    Found found;
    for (int tries = 0; !find(last_, found); ++tries)
        if (tries == maxTries)
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("queue never settles: {}",
                                                                 headersToString());
    if (Mem::observe(control_->prunedThrough) > last_) return false;
    generation_ = found.generation;
    base_ = found.base;
    index_ = found.index;
    limit_ = found.index; // loaded anew, behind `head_`
    fetched_ = 0;
    return true;
}

// Copies the next entries, as far as they lie in one cache line: the writer's words beside the
// generation change with each notification, and each look at them takes their line from it. What the
// queue said of a slot holds though it may be withdrawn before it is taken: the slot is looked at
// once more then. False if the table has been given up meanwhile.
bool QueueReader::fetch() {
    TableView const view = table(generation_ & 1);
    U32 const end = std::min(limit_, (index_ / fetchedAtOnce + 1) * fetchedAtOnce);
    for (U32 i = index_; i < end; ++i) ahead_[i % fetchedAtOnce] = Mem::observe(view.entry(i));
    // The entries were the table's only if the table has not been given up since.
    if (Mem::peek(view.header().generation) != generation_) return false;
    fetched_ = end;
    return true;
}

QueueReader::Taken QueueReader::next() {
    if (!control_) return Taken::none;
    for (int tries = 0;; ++tries) {
        if (overtaken_) return Taken::overtaken;
        if (index_ == limit_ || generation_ == 0) {
            // The order: the head first, then the table it was published in or a later one, then
            // that table's count. So when all entries are taken, all up to the head are.
            head_ = Mem::observe(control_->sequence);
            if (Mem::observe(control_->activeGeneration) != generation_) {
                overtaken_ = !refind();
                if (tries > maxTries)
                    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("queue never settles: {}",
                                                                         headersToString());
                if (overtaken_) return Taken::overtaken;
                continue;
            }
            TableHeader const& header = table(generation_ & 1).header();
            U32 const count = Mem::observe(header.count);
            U32 const capacity = Mem::peek(header.capacity);
            Mem::loadsStayBefore();
            if (Mem::peek(header.generation) != generation_) {
                generation_ = 0;
                continue;
            }
            if (count > capacity || count < index_ ||
                TableView::fileSize(count, generation_ & 1) > files_[generation_ & 1].mappedSize())
                Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("bad queue table: {}",
                                                                     toString(header));
            limit_ = count;
            if (index_ == limit_) {
                if (head_ > last_) last_ = head_;
                return Taken::none;
            }
        }
        if (index_ >= fetched_ && !fetch()) {
            generation_ = 0;
            continue;
        }
        Entry const entry = ahead_[index_ % fetchedAtOnce];
        if (entry.offset == 0)
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                "queue entry:{} was never written: {}", index_,
                toString(table(generation_ & 1).header()));
        ++index_;
        tries = 0;
        if (entry.slot == Entry::tombstone || base_ + entry.offset <= last_) continue;
        slot_ = entry.slot;
        sequence_ = base_ + entry.offset;
        return Taken::entry;
    }
}

bool QueueReader::validateNotif() {
    if (!control_) return false;
    Found found;
    for (int tries = 0; !find(sequence_ - 1, found); ++tries)
        if (tries == maxTries) return false;
    if (found.index < found.count && found.base + found.entry.offset == sequence_)
        return found.entry.slot == slot_;
    // Not there at all: it was replaced, or it was dropped unreplaced, and then the walk that the
    // overtaken reader owes will tell.
    if (Mem::observe(control_->prunedThrough) >= sequence_) overtaken_ = true;
    return false;
}

std::string QueueReader::headersToString() const {
    if (!control_) return "queue is not attached";
    return fmt::format("{}\ntable 0 {}\ntable 1 {}", toString(*control_),
                       toString(table(0).header()), toString(table(1).header()));
}

} // namespace Yarrow
