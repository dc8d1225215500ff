// The bucket file of a table: entry points into the split-ordered list. `BucketWriter` makes and
// resizes it, `BucketReader` follows it.
//
// Layout, little endian: magic u32 @0, format u32 @4, orielId u32 @8, entry size u32 @12, then
// (version, count) @16 as one 8-byte word, entries from 24 on. The count is a power of two. The
// file never gets shorter while its inode lives: a halving gives the memory back and leaves the
// length (H-file-1), so readers accept a file longer than their count needs.
#pragma once

#include "BriskCore/SlotLink.h"
#include "Dunlin/Exception.h"
#include "Dunlin/Trace.h"
#include "SharedMem/Atomics.h"
#include "SharedMem/OrielFile.h"
#include "SharedMem/RootPath.h"
#include "SharedMem/SharedMem.h"

#include <string>

namespace BriskCore {

template <class L>
struct BucketTable {
    struct alignas(8) Size {
        U32 version = 0; // + 1 at every change of the count
        U32 numBuckets = 0;
        friend bool operator==(Size, Size) = default;
    };
    struct Header {
        static constexpr U32 magicNumber = 0x4b434243; // "CBCK"
        static constexpr U32 formatNumber = 1;

        U32 magic = 0;
        U32 format = 0;
        U32 orielId = 0;
        U32 entrySize = 0;
        Size size;

        std::string toString() const;
    };
    static_assert(sizeof(Header) == 24);

    static constexpr char const* fileName = "buckets";
    static constexpr std::size_t fileSize(U32 numBuckets) {
        return sizeof(Header) + std::size_t{numBuckets} * sizeof(L);
    }
    // Judges a header against the writer's generation and the size of its file, in bytes; false
    // leaves a text in `message`.
    static bool validate(Header const& header, U32 orielId, std::size_t fileBytes,
                         std::string& message);
    // Raises: a bucket index that is not below `numBuckets`.
    [[noreturn]] static void outOfRange(U32 index, U32 numBuckets);
};

namespace Bucket {
struct WriterCounters {
    U32 remaps = 0;
};
} // namespace Bucket

template <class L>
class BucketWriter {
public:
    using Table = BucketTable<L>;
    using Header = typename Table::Header;
    static constexpr U32 initialNumBuckets = 16;

    // Prepares the mapping of the bucket file under `rootPath`; touches no file.
    BucketWriter(Dunlin::Platform::DebugHandler& handler, Mem::YokeRootPath const& rootPath,
                 Bucket::WriterCounters& counters, bool localMem, unsigned long);

    // Maps the existing file if its header agrees with `orielId`, else makes a new one with empty
    // chains. 1: new, 2: the existing file is kept, 4: an existing file is replaced. A new file
    // stands aside until `commit`. Raises InvalidInitializeException if nothing can be mapped.
    U32 attach(SharedMem::OrielId orielId);
    // Puts a file made by `attach` in its place; the one it replaces is retired first.
    void commit();
    // Calls `f(file, where its orielId is)`.
    template <class F>
    void eachFile(F const& f) {
        f(memory_, offsetof(Header, orielId));
    }
    // Maps the file for that many entries and sets the local count; leaves version and count in
    // the header alone. Raises MemoryResourceException and keeps the old mapping.
    void resize(U32 numBuckets);
    // Publishes that count with version + 1: readers use it from here on.
    void publishSize(U32 numBuckets);
    void publishSize() { publishSize(numBuckets_); }

    // Raises CorruptionDetectedException for an index not below `numBuckets()`.
    L& operator[](U32 index) {
        if (index >= numBuckets_) [[unlikely]]
            Table::outOfRange(index, numBuckets_);
        return entries_[index];
    }
    U32 numBuckets() const { return numBuckets_; }
    U32 log2NumBuckets() const { return log2NumBuckets_; }
    Header const* header() const { return header_; }

    bool validate(SharedMem::OrielId orielId, std::string& message) const;
    // Raises CorruptionDetectedException if the file on disk is shorter than the mapping.
    void validateFile() const;
    void cleanup();
    void detach();
    void dumpToCoreIs(bool on) { memory_.dumpToCoreIs(on); }
    void trackMemory() { memory_.enable(); }
    std::size_t mappedSize() const { return memory_.mappedSize(); }
    std::string headersToString() const;

private:
    void adopt(void* base);
    void format(SharedMem::OrielId orielId);

    Dunlin::Platform::DebugHandler* handler_;
    Bucket::WriterCounters* counters_;
    Mem::YokeRootPath rootPath_;
    bool localMem_;
    Mem::Tracked<Mem::SharedMemWrapper> memory_;
    Header* header_ = nullptr;
    L* entries_ = nullptr;
    U32 numBuckets_ = 0;
    U32 log2NumBuckets_ = 0;
    bool standsAside_ = false;
};

template <class L>
class BucketReader {
public:
    using Table = BucketTable<L>;
    using Header = typename Table::Header;
    struct Options {
        bool dumpToCore = false;
    };

    BucketReader(Dunlin::Platform::DebugHandler& handler, Mem::YokeRootPath const& rootPath,
                 Options const& options);

    // Maps the file; false if it does not exist or cannot be mapped.
    bool attach();
    void detach();
    // Re-maps at the size that the header announces. Raises CorruptionDetectedException for a
    // count that no sound file has, MemoryResourceException if the mapping fails.
    void doResize();
    bool validate(SharedMem::OrielId orielId, std::string& error) const;

    // Bounds check and entry. Raises CorruptionDetectedException.
    L const& operator[](U32 index) const {
        if (index >= numBuckets) [[unlikely]]
            Table::outOfRange(index, numBuckets);
        return entries_[index];
    }
    // True while the header shows the version of the last mapping.
    bool current() const { return Mem::observe(buckets->size.version) == localNumBuckets; }
    // Raises CorruptionDetectedException if the bucket count changed since the last mapping.
    void checkResize() const {
        if (!current()) [[unlikely]]
            resized();
    }
    std::size_t mappedSize() const { return memory_.mappedSize(); }
    std::string headersToString() const;

    Header const* buckets = nullptr; // the mapped file, null when detached
    U32 bucketFactor = 0;            // log2 of numBuckets
    // The bucket *version* as of the last mapping, whatever the name says: after a doubling and a
    // halving the count is equal again and the version is not (A1).
    U32 localNumBuckets = 0;
    U32 numBuckets = 0; // for all index arithmetic; 0 when detached

private:
    [[noreturn]] void resized() const;
    void adopt(void const* base, typename Table::Size size);

    Dunlin::Platform::DebugHandler* handler_;
    Mem::Tracked<Mem::SharedMemWrapper> memory_;
    L const* entries_ = nullptr;
};

extern template struct BucketTable<Brisk::SlotLink>;
extern template class BucketWriter<Brisk::SlotLink>;
extern template class BucketReader<Brisk::SlotLink>;

} // namespace BriskCore
