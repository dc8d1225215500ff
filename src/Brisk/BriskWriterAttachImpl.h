// How a writer comes to its table and leaves it; included only where a table is instantiated.
#pragma once

#include "Brisk/BriskWriter.h"
#include "Brisk/SlotWriterImpl.h"
#include "Brisk/Util.h"
#include "BriskCore/WriterHashMapImpl.h"
#include "SharedMem/Clone.h"
#include "SharedMem/CpuSupport.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/StepHooks.h"
#include "Wren/BolsterAcceptSm.h"

#include <cstdlib>
#include <unistd.h>

namespace Brisk {

template <class Ops>
BriskWriter<Ops>::BriskWriter(Dunlin::Platform::DebugHandler& handler, std::string const& name,
                              MapDescriptor const& d, Ops const& ops, std::string const& type,
                              std::function<void(bool)> onQuiesced)
    : Interface(handler, ops), localMem_(d.localMem), rootPath_(name, d.localMem),
      onQuiesced_(std::move(onQuiesced)),
      table_(handler, rootPath_, this->ops_, counters_, d.initialSize, d.fixedSize, d.shrinkable,
             d.localMem, d.heap),
      map_(handler, rootPath_, bucketCounters_, d.localMem, d.shrinkBuckets, *this),
      queue_(handler, rootPath_,
             Yarrow::YarrowWriterOptions{.pruneMode = d.pruneMode,
                                         .localMem = d.localMem,
                                         .heap = d.heap,
                                         .trackMemory = d.trackMemory,
                                         .maxLag = d.maxLag},
             this),
      typeName_(type), criticalTaskCheck_(d.criticalTask) {
    FMASSERT(d.initialSize != 0 || d.localMem,
             "0 is not a valid initialization size for collection {} in writer mode", name);
    if (d.trackMemory) {
        table_.memory.enable();
        map_.buckets.trackMemory();
    }
    if (d.dumpToCore) {
        map_.buckets.dumpToCoreIs(true);
        table_.memory.dumpToCoreIs(true);
        queue_.dumpToCoreIs(true);
        Dunlin::Util::includeShmemInCore();
    }
}

template <class Ops>
BriskWriter<Ops>::~BriskWriter() {
    detach(false);
}

template <class Ops>
bool BriskWriter<Ops>::initialize(std::string const&) {
    if (!localMem_ && !Mem::Atomics::checkCpuSupport())
        throw Dunlin::InvalidInitializeException("Hardware does not support Atomics");
    if (this->initialized()) return true;
    attach();
    this->initializedIs(true);
    return true;
}

template <class Ops>
void BriskWriter<Ops>::attach() {
    auto& handler = this->debugHandler();
    FMTRACE(handler, 5, "localMem_:{} rootPath:{}", localMem_, rootPath_.text());
    SharedMem::OrielFile orielFile(handler, rootPath_, localMem_);
    SharedMem::OwnerFile ownerFile(handler, rootPath_, localMem_);
    ownerFile.lock(); // until the end of this function
    SharedMem::BolsterInfo bolsterInfo;
    Mem::WriterLock writerLock;
    if (localMem_) {
        orielId_ = static_cast<U16>(::getpid());
    } else {
        writerLock = Mem::WriterLock::acquireWriterLock(handler, rootPath_, ownerFile, false);
        bolsterInfo = {Wren::BolsterAcceptSm::bolsterAcceptSm().socketName(),
                       queue_.wren().tableId()};
        orielId_ = orielFile.read();
    }
    if (orielId_ == 0) orielId_ = newOrielId();
    bool const force = !ownerFile.validate();
    if (force)
        FMTRACE(handler, 0, "owner file validation failed, dumping owner file string: {}",
                ownerFile.headerToString());
    ownerFile.typeNameIs(typeName_);
    ownerFile.sharedMemTypeIs(1);
    bool const ready = attachAndValidate(force, ownerFile, bolsterInfo) ||
                       (!force && attachAndValidate(true, ownerFile, bolsterInfo));
    FMASSERT(ready, "failed to attach to and validate new files");
    removeCorruptionFile();
    if (!localMem_)
        queue_.wren().doEnableListen(Mem::permissionsOf(rootPath_.file(Table::Base::fileName)));
    // Last: who finds this id finds the files it stands for.
    orielFile.write(orielId_);
    writerLock_ = std::move(writerLock);
    FMTRACE(handler, 1, "success {} capacity:{} orielId:{} mtime:{} bolsterInfo:{}",
            rootPath_.text(), capacity(), orielId_, orielFile.mtime(), bolsterInfo.socketName);
}

// Looks first and changes later: files that are to replace others are built aside, under temporary
// names, and put in place only when all are judged (H-file-3). The old ones are retired before
// that, so that no reader takes them for the new generation (H-file-2).
template <class Ops>
bool BriskWriter<Ops>::attachAndValidate(bool force, SharedMem::OwnerFile& ownerFile,
                                         SharedMem::BolsterInfo const& bolsterInfo) {
    auto& handler = this->debugHandler();
    if (force) {
        FMTRACE(handler, 0, "all entries from {} will be lost", rootPath_.text());
        auto const taken = idsInFiles();
        do {
            orielId_ += 0x10000;
        } while (orielId_ == 0 || std::find(taken.begin(), taken.end(), orielId_) != taken.end());
    }
    counters_ = {};
    bucketCounters_ = {};
    table_.detach();
    U32 const slots = attachSlots();
    U32 const buckets = map_.buckets.attach(orielId_);
    map_.limitsFromCount();
    U32 const joined = slots | buckets | queue_.judge(orielId_);
    auto const headers = [&] { return dumpHeaders(); };
    // A new generation's id stands in no file, unless another process stores into them meanwhile.
    bool const consistent = force ? (joined & 2) == 0 : joined == 1 || joined == 2;
    if (!consistent) {
        FMTRACE(handler, 0, "failed to attach to existing files\n{}owner file: {}", headers(),
                ownerFile.headerToString());
        return false;
    }
    if (slotsAside_) retireSlots();
    map_.buckets.commit();
    queue_.attach(orielId_);
    if (!validate(orielId_, false)) {
        if (force) throw Dunlin::InvalidInitializeException("failed validation");
        if (Util::runningOnPhysicalDut() && Util::strictValidation()) {
            SharedMem::OrielFile(handler, rootPath_, localMem_).cleanup();
            map_.buckets.dumpToCoreIs(true);
            table_.memory.dumpToCoreIs(true);
            queue_.dumpToCoreIs(true);
            Dunlin::Util::includeShmemInCore();
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                "failed initial validation of {} after re-attaching", rootPath_.text());
        }
        FMTRACE(handler, 0, "failed to validate existing files\n{}owner file: {}", headers(),
                ownerFile.headerToString());
        return false;
    }
    commitSlots();
    if (localMem_) return true;
    ownerFile.bolsterInfoIs(bolsterInfo);
    std::string message;
    bool const written = ownerFile.validate(message);
    FMASSERT(written, "wrote to owner file but validation failed: {}", message);
    owner_ = true;
    if (force) FMTRACE(handler, 1, "re-formatted successfully");
    return true;
}

// 1: new file, 2: existing file kept, 4: another file is to replace the existing one.
template <class Ops>
U32 BriskWriter<Ops>::attachSlots() {
    auto& handler = this->debugHandler();
    auto& memory = table_.memory;
    // Judged by its size as it was before the mapping below may have extended it (A33).
    std::size_t const memSize = memory.memSize();
    std::size_t const size = Table::Base::fileSize(table_.minSlots);
    auto const wantedCapacity = [&](U32 existing) {
        FMTRACE(handler, 1,
                "wanted capacity:{} for fixed-size table, but existing file has capacity:{}",
                table_.minSlots, existing);
    };
    slotsAside_ = false;
    if (memSize > 0 && !localMem_) {
        void* const base = memory.attach(size, Mem::Mode::writer);
        if (!base)
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                "cannot attach to shmem {} size:{}: {}", memory.getFilename(), size,
                memory.reason());
        auto* const header = static_cast<typename Table::Header*>(base);
        bool const wrongSize = table_.fixedSize && header->numSlots.value != table_.minSlots;
        std::string message;
        if (wrongSize) {
            wantedCapacity(header->numSlots.value);
        } else if (Mem::peek(header->orielId) == orielId_ &&
                   header->validate(handler, memSize, orielId_, typeName_.c_str(), message)) {
            table_.header = header;
            this->ops_.seedIs(header->seed);
            std::size_t const whole = Table::Base::fileSize(header->numSlots.value);
            void* const resized = memory.resize(whole);
            if (!resized)
                Dunlin::fmthrow<Dunlin::MemoryResourceException>(
                    "failed to resize {} to size {} : {}", memory.getFilename(), whole,
                    memory.reason());
            table_.header = static_cast<typename Table::Header*>(resized);
            table_.reload();
            FMTRACE(handler, 1, "to existing {}", memory.getFilename());
            return 2;
        }
    } else if (table_.fixedSize) {
        wantedCapacity(0); // a new file's header reads 0 (A4)
    }
    memory.detach();
    void* const base = memory.attachNew(size);
    if (!base) {
        if (memSize > 0)
            Dunlin::fmthrow<Dunlin::MemoryResourceException>(
                "failed to resize {} to size {} : {}", memory.getFilename(), size, memory.reason());
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
            "cannot attach to shmem {} size:{}: {}", memory.getFilename(), size, memory.reason());
    }
    slotsAside_ = true;
    table_.header = static_cast<typename Table::Header*>(base);
    table_.format(table_.minSlots, orielId_, typeName_, static_cast<U32>(std::rand()));
    if (memSize > 0) {
        FMTRACE(handler, 1, "re-formatted {}", memory.getFilename());
        return 4;
    }
    FMTRACE(handler, 1, "to new file {}", memory.getFilename());
    return 1;
}

// Tells readers of the old slot file that its generation is over; what they have mapped stays as it
// is. The changed version sends each into its re-mapping, where it finds the changed id.
template <class Ops>
void BriskWriter<Ops>::retireSlots() {
    if (localMem_) return;
    Mem::Tracked<Mem::SharedMemWrapper> old(rootPath_, Table::Base::fileName);
    if (old.memSize() < sizeof(SlotHeaderCommon)) return;
    if (void* const base = old.attach(sizeof(SlotHeaderCommon), Mem::Mode::writer)) {
        auto* const header = static_cast<SlotHeaderCommon*>(base);
        Mem::poke(header->orielId, 0U); // shown by the version
        header->numSlots.valueIs(Mem::peek(header->numSlots).value);
    }
}

template <class Ops>
void BriskWriter<Ops>::commitSlots() {
    if (!slotsAside_) return;
    slotsAside_ = false;
    if (!localMem_ && !table_.memory.commitNew())
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
            "cannot put {} in place: {}", table_.memory.getFilename(), table_.memory.reason());
}

// The ids that stand in the table's files now. A new id is none of them, or a lost oriel file could
// bring back an id that old files carry (H-file-4).
template <class Ops>
std::vector<SharedMem::OrielId> BriskWriter<Ops>::idsInFiles() const {
    std::vector<SharedMem::OrielId> ids;
    if (localMem_) return ids;
    struct {
        char const* name;
        std::size_t offset;
    } const places[] = {
        {Table::Base::fileName, offsetof(SlotHeaderCommon, orielId)},
        {HashMap::Buckets::fileName, offsetof(typename HashMap::Buckets::Header, orielId)},
        {Yarrow::primaryName, offsetof(Yarrow::ControlHeader, orielId)}};
    for (auto const& place : places) {
        char bytes[64];
        if (Mem::readFile(rootPath_.file(place.name), bytes, sizeof bytes) <
            static_cast<long>(place.offset + sizeof(U32)))
            continue;
        U32 id;
        std::memcpy(&id, bytes + place.offset, sizeof id);
        ids.push_back(id);
    }
    return ids;
}

template <class Ops>
SharedMem::OrielId BriskWriter<Ops>::newOrielId() const {
    auto taken = idsInFiles();
    taken.push_back(orielId_);
    for (;;) {
        SharedMem::OrielId const id = static_cast<U16>(::getpid()) | U32{Util::nextGeneration()}
                                                                         << 16;
        // 0 means "no id" (A14).
        if (id != 0 && std::find(taken.begin(), taken.end(), id) == taken.end()) return id;
    }
}

template <class Ops>
bool BriskWriter<Ops>::validate(SharedMem::OrielId orielId, bool checkOwner) {
    auto& handler = this->debugHandler();
    assertNotResizing();
    std::string message;
    bool sound = false;
    try {
        Validator<Ops> validator(handler, *this);
        // The walk is nobody's read: the anchor stays that of the last value handed out.
        struct Attached {
            BriskWriter& writer;
            Mem::VersionAnchor const anchor = writer.table_.anchor;
            Attached(BriskWriter& w, Validator<Ops>& v) : writer(w) { w.map_.validatorIs(&v); }
            ~Attached() {
                writer.map_.validatorIs(nullptr);
                writer.table_.anchor = anchor;
            }
        } const attached(*this, validator);
        sound = validator.doValidate(orielId);
        message = validator.message();
    } catch (Dunlin::CorruptionDetectedException const& e) {
        message = e.message();
        FMTRACE(handler, 0, "caught: {}", message);
    } catch (Dunlin::MemoryResourceException const& e) {
        message = e.message();
        FMTRACE(handler, 0, "caught: {}", message);
    }
    if (!sound) {
        FMTRACE(handler, 0, "Brisk {} validation failed: {}", rootPath_.text(), message);
        lastFinding_ = message;
    }
    if (checkOwner && !SharedMem::OwnerFile(handler, rootPath_, localMem_).validate(message)) {
        lastFinding_ = message;
        sound = false;
    }
    return sound;
}

template <class Ops>
bool BriskWriter<Ops>::validate() {
    if (!table_.header) return false;
    bool const sound = validate(orielId_, true);
    if (!sound) FMTRACE(this->debugHandler(), 0, "{}", dumpHeaders());
    return sound;
}

template <class Ops>
bool BriskWriter<Ops>::validateFiles() {
    auto& handler = this->debugHandler();
    if (localMem_) return true;
    map_.buckets.validateFile();
    Util::validateFile(handler, table_.memory.getFilename(), table_.memory.mappedSize());
    if (table_.memory.replaced())
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("{} is not the mapped file",
                                                             table_.memory.getFilename());
    queue_.validateFile();
    SharedMem::OrielFile(handler, rootPath_, localMem_).validate(orielId_);
    SharedMem::OwnerFile(handler, rootPath_, localMem_).validateFile();
    if (writerLock_.held() && !writerLock_.hasName(rootPath_))
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "{} is not the locked file", rootPath_.file(SharedMem::OwnerFile::LOCK_NAME));
    removeCorruptionFile();
    return true;
}

template <class Ops>
bool BriskWriter<Ops>::fileIsMissing() const {
    for (char const* const name :
         {Table::Base::fileName, HashMap::Buckets::fileName, Yarrow::primaryName,
          Yarrow::secondaryName, SharedMem::OrielFile::ORIEL_NAME, SharedMem::OwnerFile::OWNER_NAME,
          SharedMem::OwnerFile::LOCK_NAME})
        if (::access(rootPath_.file(name).c_str(), F_OK) != 0) return true;
    return false;
}

// In the order in which a new generation is put in place.
template <class Ops>
template <class F>
void BriskWriter<Ops>::eachFile(F const& f) {
    map_.buckets.eachFile(f);
    queue_.eachFile(f);
    f(table_.memory, offsetof(SlotHeaderCommon, orielId));
}

// Until all files of the new generation have their names, this process goes on with the old ones,
// and so does a reader that has them mapped: whatever fails can be tried again. The oriel file comes
// last, as in `attach`: a reader that finds its id finds the rest.
template <class Ops>
bool BriskWriter<Ops>::remake() {
    auto& handler = this->debugHandler();
    // After a cleanup nobody owns the table.
    if (localMem_ || !this->initialized() || !owner_) return true;
    if (writerLock_.hasName(rootPath_) && !fileIsMissing()) return true;
    if (directSlot_ != noSlot || resizing_) return false;
    SharedMem::OrielFile orielFile(handler, rootPath_, localMem_);
    SharedMem::OwnerFile ownerFile(handler, rootPath_, localMem_);
    if (!writerLock_.hasName(rootPath_)) {
        writerLock_.release();
        if (Mem::WriterLock::writerExists(rootPath_)) {
            FMTRACE(handler, 0, "{} has another writer by now", rootPath_.text());
            return false;
        }
        ownerFile.lock();
        writerLock_ = Mem::WriterLock::acquireWriterLock(handler, rootPath_, ownerFile, false);
    }
    SharedMem::OrielId const id = newOrielId();
    orielFile.cleanup();
    copyFiles(id);
    ownerFile.typeNameIs(typeName_);
    ownerFile.sharedMemTypeIs(1);
    ownerFile.bolsterInfoIs(
        {Wren::BolsterAcceptSm::bolsterAcceptSm().socketName(), queue_.wren().tableId()});
    // Readers of the old generation lose their connection, and look for the new one.
    queue_.wren().onDetach();
    moveToCopies(id);
    queue_.wren().doEnableListen(Mem::permissionsOf(rootPath_.file(Table::Base::fileName)));
    orielFile.write(id);
    FMTRACE(handler, 0, "{} was made again, with {} entries", rootPath_.text(), members());
    return true;
}

template <class Ops>
void BriskWriter<Ops>::copyFiles(SharedMem::OrielId id) {
    struct Copies {
        BriskWriter& writer;
        bool complete = false;
        ~Copies() {
            if (!complete) writer.eachFile([](auto& file, std::size_t) { file.dropCopy(); });
        }
    } copies{*this};
    auto const failed = [](auto const& file) {
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot make {} again: {}",
                                                            file.getFilename(), file.reason());
    };
    eachFile([&](auto& file, std::size_t idOffset) {
        if (!file.copyAside(idOffset, id)) failed(file);
    });
    eachFile([&](auto& file, std::size_t) {
        if (!file.commitCopy()) failed(file);
    });
    copies.complete = true;
}

// Whoever has the old files mapped learns that their generation is over (H-file-2). The new ones
// take their place at the same addresses: no index, anchor or pointer of this process changes.
template <class Ops>
void BriskWriter<Ops>::moveToCopies(SharedMem::OrielId id) {
    eachFile([](auto& file, std::size_t idOffset) {
        Mem::publish(*reinterpret_cast<U32*>(static_cast<char*>(file.data()) + idOffset), 0U);
    });
    // Shows the id to readers between two looks at the count.
    table_.header->numSlots.valueIs(Mem::peek(table_.header->numSlots).value);
    eachFile([](auto& file, std::size_t) { file.moveToCopy(); });
    queue_.orielIdIs(id);
    orielId_ = id;
}

template <class Ops>
void BriskWriter<Ops>::removeCorruptionFile() const {
    if (!localMem_) {
        Mem::StepHooks::store();
        ::unlink(rootPath_.file(Util::corruptionFileName).c_str());
    }
}

template <class Ops>
void BriskWriter<Ops>::cleanup() {
    auto& handler = this->debugHandler();
    FMTRACE(handler, 5, "owner:{} localMem_:{} rootPath:{}", owner_, localMem_, rootPath_.text());
    if (localMem_) return;
    SharedMem::OwnerFile ownerFile(handler, rootPath_, localMem_);
    ownerFile.lock();
    auto const lock = Mem::WriterLock::acquireWriterLock(handler, rootPath_, ownerFile, true);
    owner_ = ownerFile.validate();
    if (!owner_)
        FMTRACE(handler, 0,
                "owner file corruption detected but continuing with cleanup, dumped owner file: {}",
                ownerFile.headerToString());
    FMTRACE(handler, 1, "removing Brisk files in {}", rootPath_.text());
    retireSlots(); // whoever has the table mapped learns that it is over
    removeCorruptionFile();
    queue_.cleanup();
    map_.buckets.cleanup();
    FMTRACE(handler, 3, "removing file: {}", table_.memory.getFilename());
    table_.memory.cleanup();
    SharedMem::OrielFile(handler, rootPath_, localMem_).cleanup();
    Mem::StepHooks::store();
    ::unlink(rootPath_.file(Mem::Util::Clone::CONTROL_FILENAME).c_str());
    ownerFile.cleanup();
    rootPath_.removeDirectories();
    owner_ = false;
}

template <class Ops>
void BriskWriter<Ops>::detach(bool) {
    auto& handler = this->debugHandler();
    assertNotResizing();
    if (directSlot_ != noSlot && directNew_)
        FMASSERT(false,
                 "unbalanced directSlot:{} containing value:{} - Make sure the DirectIs/Commit are "
                 "properly paired!",
                 directSlot_, table_.slots[directSlot_].value);
    directSlot_ = noSlot; // an update not committed is dropped (A6)
    queue_.wren().onDetach();
    if (owner_) {
        try {
            SharedMem::OwnerFile ownerFile(handler, rootPath_, localMem_);
            if (Mem::WriterLock::ownerIsMe(handler, ownerFile.bolsterInfo().socketName)) {
                FMTRACE(handler, 5, "clearing bolsterInfo");
                ownerFile.bolsterInfoIs({});
            }
        } catch (Dunlin::CorruptionDetectedException const& e) {
            FMTRACE(handler, 0, "ignoring owner file corruption:{}", e.message());
        } catch (Dunlin::InvalidInitializeException const& e) {
            FMTRACE(handler, 0, "cannot clear bolsterInfo: {}", e.message());
        }
        owner_ = false;
    }
    table_.detach();
    map_.buckets.detach();
    queue_.detach();
    writerLock_.release();
    this->initializedIs(false);
}

template <class Ops>
std::string BriskWriter<Ops>::dumpHeaders() const {
    std::string const slots = table_.header ? table_.header->toString() : "not mapped";
    std::string const name = rootPath_.directoryName();
    std::string const bucketText = map_.buckets.headersToString();
    std::string text = Dunlin::formatText("Brisk table \"{}\"\n\n\n{}\n\n{}\n\n",
                                          fmt::make_format_args(name, slots, bucketText));
    if (table_.header &&
        (Mem::peek(table_.header->tableFlags) & SlotHeaderCommon::dumpYarrowHeaders))
        text += queue_.headersToString();
    return text;
}

} // namespace Brisk
