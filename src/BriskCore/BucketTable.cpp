#include "BriskCore/BucketTable.h"

#include "BriskCore/BucketOrder.h"

#include <fmt/format.h>

#include <bit>

namespace BriskCore {

using Brisk::SlotLink;
using Dunlin::CorruptionDetectedException;
using Dunlin::fmthrow;

template <class L>
std::string BucketTable<L>::Header::toString() const {
    return fmt::format("magic:{:#x} format:{} orielId:{:#x} entrySize:{} version:{} numBuckets:{}",
                       magic, format, orielId, entrySize, size.version, size.numBuckets);
}

template <class L>
bool BucketTable<L>::validate(Header const& header, U32 orielId, std::size_t fileBytes,
                              std::string& message) {
    if (fileBytes < sizeof(Header)) {
        message = fmt::format("bad bucket file size: {} is below the header's {}", fileBytes,
                              sizeof(Header));
        return false;
    }
    U32 const count = Mem::observe(header.size).numBuckets;
    if (header.magic != Header::magicNumber)
        message =
            fmt::format("bad bucket magic: {:#x} wanted:{:#x}", header.magic, Header::magicNumber);
    else if (header.format != Header::formatNumber)
        message =
            fmt::format("bad bucket format: {} wanted:{}", header.format, Header::formatNumber);
    else if (header.entrySize != sizeof(L))
        message = fmt::format("bad bucket entry size: {} wanted:{}", header.entrySize, sizeof(L));
    else if (Mem::peek(header.orielId) != orielId)
        message = fmt::format("bad bucket orielId: {:#x} wanted:{:#x}", Mem::peek(header.orielId),
                              orielId);
    else if (!std::has_single_bit(count))
        message = fmt::format("bad numBuckets: {} is no power of two", count);
    else if (fileSize(count) > fileBytes)
        message = fmt::format("bad bucket file size: {} wanted:{} for {} buckets", fileBytes,
                              fileSize(count), count);
    else
        return true;
    return false;
}

template <class L>
void BucketTable<L>::outOfRange(U32 index, U32 numBuckets) {
    fmthrow<CorruptionDetectedException>("out-of-range, index:{} max:{}", index, numBuckets - 1);
}

// ---- writer ----

template <class L>
BucketWriter<L>::BucketWriter(Dunlin::Platform::DebugHandler& handler,
                              Mem::YokeRootPath const& rootPath, Bucket::WriterCounters& counters,
                              bool localMem, unsigned long)
    : handler_(&handler), counters_(&counters), rootPath_(rootPath), localMem_(localMem),
      memory_(rootPath, Table::fileName, Mem::backingOf(localMem, false)) {}

template <class L>
void BucketWriter<L>::adopt(void* base) {
    if (header_ && base != header_) ++counters_->remaps;
    header_ = static_cast<Header*>(base);
    entries_ = reinterpret_cast<L*>(static_cast<char*>(base) + sizeof(Header));
}

template <class L>
U32 BucketWriter<L>::attach(SharedMem::OrielId orielId) {
    detach();
    std::size_t const existing = memory_.memSize();
    if (existing > 0) {
        // No more than the header before the count is known: behind the buckets in use the file may
        // be a hole that a halving left, and there may be no room to fill it.
        if (void* const base = memory_.attach(sizeof(Header), Mem::Mode::writer)) {
            auto const* header = static_cast<Header const*>(base);
            std::string message;
            if (Table::validate(*header, orielId, existing, message)) {
                resize(Mem::observe(header->size).numBuckets);
                return 2;
            }
            FMTRACE(*handler_, 1, "{}: {}", memory_.getFilename(), message);
            memory_.detach();
        }
    }
    numBuckets_ = Mem::StepHooks::initialBuckets(initialNumBuckets);
    std::size_t const size = Table::fileSize(numBuckets_);
    void* const base = memory_.attachNew(size);
    if (!base)
        fmthrow<Dunlin::InvalidInitializeException>("cannot attach to shmem {} size:{}: {}",
                                                    memory_.getFilename(), size, memory_.reason());
    standsAside_ = true;
    adopt(base);
    format(orielId);
    return existing > 0 ? 4 : 1;
}

// Nobody else sees the file yet: no order is needed, but magic comes last all the same.
template <class L>
void BucketWriter<L>::format(SharedMem::OrielId orielId) {
    log2NumBuckets_ = static_cast<U32>(std::countr_zero(numBuckets_));
    for (U32 i = 0; i < numBuckets_; ++i) {
        // The highest number is the last in bit-reversed order.
        bool const last = i == numBuckets_ - 1;
        Mem::poke(entries_[i],
                  L{0, last ? L::tableEnd : successor(i, log2NumBuckets_) | L::endBit});
    }
    Mem::poke(header_->format, Header::formatNumber);
    Mem::poke(header_->orielId, orielId);
    Mem::poke(header_->entrySize, static_cast<U32>(sizeof(L)));
    Mem::poke(header_->size, typename Table::Size{0, numBuckets_});
    Mem::publish(header_->magic, Header::magicNumber);
}

template <class L>
void BucketWriter<L>::commit() {
    if (!standsAside_) return;
    standsAside_ = false;
    if (localMem_) return;
    {
        // Whoever still attaches to the old inode must not take it for the new generation.
        Mem::Tracked<Mem::SharedMemWrapper> old(rootPath_, Table::fileName);
        if (old.memSize() >= sizeof(Header))
            if (void* const base = old.attach(sizeof(Header), Mem::Mode::writer))
                Mem::publish(static_cast<Header*>(base)->orielId, 0U);
    }
    if (!memory_.commitNew())
        fmthrow<Dunlin::InvalidInitializeException>("cannot put {} in place: {}",
                                                    memory_.getFilename(), memory_.reason());
}

template <class L>
void BucketWriter<L>::resize(U32 numBuckets) {
    std::size_t const size = Table::fileSize(numBuckets);
    void* const base = memory_.resize(size);
    if (!base)
        fmthrow<Dunlin::MemoryResourceException>("failed to resize {} from {} to {} buckets : {}",
                                                 memory_.getFilename(), numBuckets_, numBuckets,
                                                 memory_.reason());
    adopt(base);
    numBuckets_ = numBuckets;
    log2NumBuckets_ = static_cast<U32>(std::countr_zero(numBuckets));
}

template <class L>
void BucketWriter<L>::publishSize(U32 numBuckets) {
    auto const old = Mem::peek(header_->size);
    Mem::publish(header_->size, typename Table::Size{old.version + 1, numBuckets});
}

template <class L>
bool BucketWriter<L>::validate(SharedMem::OrielId orielId, std::string& message) const {
    if (Table::validate(*header_, orielId, memory_.mappedSize(), message)) return true;
    FMTRACE(*handler_, 0, "{}", message);
    return false;
}

template <class L>
void BucketWriter<L>::validateFile() const {
    if (localMem_ || !header_) return;
    if (memory_.memSize() < memory_.mappedSize())
        fmthrow<CorruptionDetectedException>("{} has size {} wanted:{}", memory_.getFilename(),
                                             memory_.memSize(), memory_.mappedSize());
    if (memory_.replaced())
        fmthrow<CorruptionDetectedException>("{} is not the mapped file", memory_.getFilename());
}

template <class L>
void BucketWriter<L>::cleanup() {
    memory_.cleanup();
}

template <class L>
void BucketWriter<L>::detach() {
    memory_.detach();
    header_ = nullptr;
    entries_ = nullptr;
    numBuckets_ = 0;
    log2NumBuckets_ = 0;
    standsAside_ = false;
}

template <class L>
std::string BucketWriter<L>::headersToString() const {
    return header_ ? header_->toString() : "not mapped";
}

// ---- reader ----

template <class L>
BucketReader<L>::BucketReader(Dunlin::Platform::DebugHandler& handler,
                              Mem::YokeRootPath const& rootPath, Options const& options)
    : handler_(&handler), memory_(rootPath, Table::fileName) {
    if (options.dumpToCore) memory_.dumpToCoreIs(true);
}

template <class L>
bool BucketReader<L>::attach() {
    detach();
    if (memory_.memSize() < sizeof(Header)) return false;
    void const* const base = memory_.attach(sizeof(Header), Mem::Mode::reader);
    if (!base) return false;
    buckets = static_cast<Header const*>(base);
    try {
        doResize();
    } catch (Dunlin::Exception const& e) {
        FMTRACE(*handler_, 1, "{}", e.message());
        detach();
        return false;
    }
    return true;
}

template <class L>
void BucketReader<L>::detach() {
    memory_.detach();
    buckets = nullptr;
    entries_ = nullptr;
    bucketFactor = 0;
    localNumBuckets = 0;
    numBuckets = 0;
}

template <class L>
void BucketReader<L>::adopt(void const* base, typename Table::Size size) {
    buckets = static_cast<Header const*>(base);
    entries_ = reinterpret_cast<L const*>(static_cast<char const*>(base) + sizeof(Header));
    localNumBuckets = size.version;
    numBuckets = size.numBuckets;
    bucketFactor = static_cast<U32>(std::countr_zero(size.numBuckets));
}

// The count is published after the file has grown, so a file that is too short for it is either
// damaged, or the count was read before a shrink that the next look will show.
template <class L>
void BucketReader<L>::doResize() {
    for (;;) {
        auto const size = Mem::observe(buckets->size);
        if (!std::has_single_bit(size.numBuckets))
            fmthrow<CorruptionDetectedException>("bad numBuckets: {} is no power of two",
                                                 size.numBuckets);
        std::size_t const wanted = Table::fileSize(size.numBuckets);
        std::size_t const fileBytes = memory_.memSize();
        if (wanted > fileBytes) {
            if (Mem::observe(buckets->size) != size) continue;
            fmthrow<CorruptionDetectedException>(
                "bad bucket file size: {} wanted:{} for {} buckets", fileBytes, wanted,
                size.numBuckets);
        }
        void const* const base = memory_.resize(wanted);
        if (!base)
            fmthrow<Dunlin::MemoryResourceException>(
                "failed to resize {} from {} to {} buckets : {}", memory_.getFilename(), numBuckets,
                size.numBuckets, memory_.reason());
        adopt(base, size);
        return;
    }
}

template <class L>
bool BucketReader<L>::validate(SharedMem::OrielId orielId, std::string& error) const {
    if (!buckets) {
        error = "bucket file is not mapped";
        return false;
    }
    // The count may have doubled since the file was asked for its size: what looks too short then is
    // judged again.
    for (;;) {
        auto const size = Mem::observe(buckets->size);
        bool const sound = Table::validate(*buckets, orielId, memory_.memSize(), error);
        if (sound || Mem::observe(buckets->size) == size) return sound;
    }
}

template <class L>
void BucketReader<L>::resized() const {
    fmthrow<CorruptionDetectedException>("found mismatch, local numBuckets:{} header numBuckets:{}",
                                         localNumBuckets, Mem::peek(buckets->size.version));
}

template <class L>
std::string BucketReader<L>::headersToString() const {
    return buckets ? buckets->toString() : "not mapped";
}

template struct BucketTable<SlotLink>;
template class BucketWriter<SlotLink>;
template class BucketReader<SlotLink>;

} // namespace BriskCore
