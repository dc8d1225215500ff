// The bytes of the notification queue: a compacting log, keyed by slot, kept in two tables that
// take turns. docs/queue.md tells how writer and reader use it.
//
//   "yarrow"    control header (128 bytes), table 0
//   "yarrow2"   secondary header (64 bytes), table 1
//   table       header (64 bytes), entries of 8 bytes
#pragma once

#include "SharedMem/Atomics.h"
#include "SharedMem/OrielFile.h"
#include "Wren/Sequence.h"

#include <string>

namespace Yarrow {

using Wren::Sequence;

inline constexpr char const* primaryName = "yarrow";
inline constexpr char const* secondaryName = "yarrow2";

// How the writer forgets notifications that a reader may still miss.
enum class PruneMode : U32 {
    keep = 0,         // only those that a later one of the same slot has replaced
    acknowledged = 1, // also those that every connected reader has passed
    bounded = 2,      // also those further back than a set lag, even if a reader loses its place
};

// One 8-byte word, loaded and stored whole. The sequence is the table's base plus `offset`; offsets
// rise strictly. Offset 0: never written.
struct alignas(8) Entry {
    static constexpr U32 tombstone = 0xffffffff;

    U32 offset = 0;
    U32 slot = tombstone; // tombstone: replaced by a later entry, or withdrawn

    friend bool operator==(Entry const&, Entry const&) = default;
};
static_assert(sizeof(Entry) == 8);

struct ControlHeader {
    static constexpr U64 magicValue = 0x776f727261796e63; // "cnyarrow"
    static constexpr U32 formatNumber = 1;

    U64 magic;
    U32 format;
    U32 headerSize;
    U32 orielId;
    U32 incarnation; // + 1 at each attach of a writer
    U32 entrySize;
    U32 pruneMode;
    U64 prunedThrough;    // entries up to here may have been dropped though nothing replaced them
    U64 activeGeneration; // starts at 2; its low bit names the active table
    U64 corralStart;      // span of sequences in which slots were moved; 0 unset
    U64 corralEnd;        // 0 while the move is under way
    U64 sequence;         // the last one published; on a cache line of its own
    U8 reserved[56];
};
static_assert(sizeof(ControlHeader) == 128);
static_assert(offsetof(ControlHeader, prunedThrough) == 32);
static_assert(offsetof(ControlHeader, corralStart) == 48 &&
              offsetof(ControlHeader, corralEnd) == 56);
static_assert(offsetof(ControlHeader, sequence) == 64);

// The span of a move of slots. Sequences inside tell of moved slots; readers have yet to pass it.
//
//      store                   order                                    by
//  K1  start = next sequence   before the first announcement of a move  markShrinkStart
//  K2  end = last sequence     after the last one; or start = 0         markShrinkEnd
//                              instead, if there was none
//  K3  start = 0               after the compaction that drops the      dissolveCorral
//                              announcements and raises prunedThrough
//  K4  end = 0                 after K3                                 dissolveCorral
//
// `observed` loads end, then start. So a span that is read as open was open after all that the
// reader had loaded before:
//
//      end, start loaded       what that means for a sequence loaded before
//      0, 0                    no span now
//      0, S                    S was open when end was loaded, so it ends behind that sequence
//      E, S                    the span, as it is
//      E, 0                    dissolved in between: read as no span. A move is then taken for a
//                              change, which is one callback more; a position keeps its place, and
//                              prunedThrough, not below E by now, sends its reader into a walk
//      E, S' (a later span)    as E, 0: S' begins behind E, so no sequence is in both
//
// Start first, then end, could read (S, 0) behind K4: a span without an end, in which every later
// move of a key would go untold (H-sched-2).
struct Corral {
    Sequence start; // 0: none
    Sequence end;   // 0: the move is under way

    static Corral observed(ControlHeader const& control) {
        Sequence const end = Mem::observe(control.corralEnd);
        return {Mem::observe(control.corralStart), end};
    }
    bool holds(Sequence at) const { return start != 0 && at >= start && (end == 0 || at <= end); }
};

struct SecondaryHeader {
    U64 magic;
    U32 format;
    U32 headerSize;
    U32 orielId;
    U8 reserved[44];
};
static_assert(sizeof(SecondaryHeader) == 64);

struct TableHeader {
    U64 generation; // 0 while the table is rebuilt
    U64 baseSequence;
    U32 capacity;
    U32 count;
    U8 reserved[40];
};
static_assert(sizeof(TableHeader) == 64);

// One of the two tables within its mapped file.
class TableView {
public:
    TableView() = default;
    TableView(void* fileBase, U32 which)
        : header_(
              reinterpret_cast<TableHeader*>(static_cast<char*>(fileBase) + headerOffset(which))) {}

    static constexpr std::size_t headerOffset(U32 which) {
        return which == 0 ? sizeof(ControlHeader) : sizeof(SecondaryHeader);
    }
    static constexpr std::size_t entriesOffset(U32 which) {
        return headerOffset(which) + sizeof(TableHeader);
    }
    // How many entries a file of that size holds.
    static constexpr U32 capacityOf(std::size_t fileSize, U32 which) {
        std::size_t const offset = entriesOffset(which);
        std::size_t const room = fileSize < offset ? 0 : (fileSize - offset) / sizeof(Entry);
        return static_cast<U32>(room < 0xfffffffe ? room : 0xfffffffe);
    }
    static constexpr std::size_t fileSize(U32 capacity, U32 which) {
        return entriesOffset(which) + std::size_t{capacity} * sizeof(Entry);
    }

    TableHeader& header() const { return *header_; }
    Entry& entry(U32 index) const { return reinterpret_cast<Entry*>(header_ + 1)[index]; }

private:
    TableHeader* header_ = nullptr;
};

// Both files as mapped, for judging. Nothing in them is believed.
struct FileImages {
    void const* primary;
    std::size_t primarySize;
    void const* secondary;
    std::size_t secondarySize;
};

// True if the files are a whole queue of that generation whose entries name slots below
// `numSlots`, without a slot twice outside the corral and without an open corral; else `message`
// says what is wrong.
bool soundFiles(FileImages const& images, SharedMem::OrielId orielId, U32 numSlots,
                std::string& message);

std::string toString(ControlHeader const& control);
std::string toString(TableHeader const& table);

} // namespace Yarrow
