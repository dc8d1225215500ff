#include "SharedMem/SharedMem.h"

#include "Dunlin/Exception.h"
#include "SharedMem/HugePages.h"
#include "SharedMem/StepHooks.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CAIRN_ASAN 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define CAIRN_ASAN 1
#endif
#if defined(CAIRN_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace Mem {
namespace {

// In AddressSanitizer builds what lies behind the mapped bytes in their last page is out of bounds.
void tailIsClosed([[maybe_unused]] void* base, [[maybe_unused]] std::size_t size,
                  [[maybe_unused]] bool closed) {
#if defined(CAIRN_ASAN)
    auto* const end = static_cast<char*>(base) + size;
    std::size_t const rest = roundToPage(size) - size;
    if (closed)
        __asan_poison_memory_region(end, rest);
    else
        __asan_unpoison_memory_region(end, rest);
#endif
}

std::atomic<std::size_t> bytesTracked{0};

std::size_t lengthOf(int fd) {
    StepHooks::look();
    struct stat status;
    return ::fstat(fd, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

// Gives the memory of the pages back that lie whole between `from` and `to`, the last one also if
// `to` cuts it; the file's length stays. Where holes are not supported the pages just stay too;
// their contents are never believed.
void giveBack(int fd, std::size_t from, std::size_t to) {
    std::size_t const start = StepHooks::cutToTheByte() ? from : roundToPage(from);
    std::size_t const end = roundToPage(to);
    if (start < end)
        ::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(start),
                    static_cast<off_t>(end - start));
}

std::string temporaryName(std::string const& fileName) {
    return fileName + ".new";
}

} // namespace

std::size_t trackedBytes() {
    return bytesTracked;
}

SharedMemWrapper::SharedMemWrapper(RootPath const& rootPath, std::string const& fileName,
                                   Backing backing)
    : directory_(rootPath.text()), fileName_(rootPath.file(fileName)),
      local_(backing == Backing::heap ? Local::HEAP : Local::ANONYMOUS), backing_(backing) {}

SharedMemWrapper::~SharedMemWrapper() {
    unmap();
}

std::size_t SharedMemWrapper::memSize() const {
    if (backing_ != Backing::file) return size_;
    if (fd_ >= 0) return lengthOf(fd_);
    StepHooks::look();
    struct stat status;
    if (::stat(fileName_.c_str(), &status) != 0) return 0;
    return static_cast<std::size_t>(status.st_size);
}

bool SharedMemWrapper::replaced() const {
    if (fd_ < 0) return false;
    StepHooks::look();
    struct stat mine, named;
    if (::fstat(fd_, &mine) != 0 || ::stat(fileName_.c_str(), &named) != 0) return true;
    return mine.st_dev != named.st_dev || mine.st_ino != named.st_ino;
}

void SharedMemWrapper::enable() {
    if (trackMemory_) return;
    trackMemory_ = true;
    bytesTracked += size_;
}

void SharedMemWrapper::dumpToCoreIs(bool include) {
    dumpToCore_ = include;
    applyDump();
}

void SharedMemWrapper::applyDump() {
    if (!data_ || dumpToCore_ == 2 || backing_ == Backing::heap) return;
    ::madvise(data_, size_, dumpToCore_ ? MADV_DODUMP : MADV_DONTDUMP);
}

void SharedMemWrapper::cleanup() {
    if (backing_ != Backing::file) return;
    StepHooks::store();
    ::unlink(fileName_.c_str());
    ::unlink(temporaryName(fileName_).c_str());
}

void* SharedMemWrapper::fail(char const* what, int error) {
    reason_ = fmt::format("{}: {}", what, std::strerror(error));
    return nullptr;
}

void SharedMemWrapper::sizeIs(std::size_t size) {
    if (trackMemory_) bytesTracked += size - size_; // modulo 2^64, so a smaller size subtracts
    size_ = size;
}

// Makes sure that every page of the range has its storage: a store into a hole of a full file
// system would end the process by SIGBUS. Holes left by a former shrink are filled as well.
bool SharedMemWrapper::reserve(std::size_t from, std::size_t to) {
    if (to <= from) return true;
    std::size_t const length = lengthOf(fd_);
    backByHugePages(fd_, from, to);
    int error;
    do {
        error = ::posix_fallocate(fd_, static_cast<off_t>(from), static_cast<off_t>(to - from));
    } while (error == EINTR);
    if (error == 0) return true;
    fail("cannot reserve space", error);
    // The file is again as it was: nobody has learned of the length it had meanwhile, and what was
    // reserved behind the growing table's end is free for others.
    if (lengthOf(fd_) > length && ::ftruncate(fd_, static_cast<off_t>(length)) != 0) return false;
    if (from > 0) giveBack(fd_, from, std::min(length, to));
    return false;
}

void SharedMemWrapper::closeFile() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void* SharedMemWrapper::mapDescriptor(std::size_t size, void const* hint) {
    int const protection = mode_ == Mode::writer ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const range = hint ? nullptr : alignedRange(size);
    StepHooks::look();
    void* const base = ::mmap(range ? range : const_cast<void*>(hint), size, protection,
                              range ? MAP_SHARED | MAP_FIXED : MAP_SHARED, fd_, 0);
    if (base == MAP_FAILED) {
        fail("mmap", errno);
        closeFile();
        return nullptr;
    }
    data_ = base;
    tailIsClosed(data_, size, true);
    sizeIs(size);
    applyDump();
    return data_;
}

void* SharedMemWrapper::map(std::size_t size, Mode mode, void const* hint) {
    unmap();
    mode_ = mode;
    if (backing_ != Backing::file) {
        data_ = local_.attach(size);
        if (!data_) return fail(local_.kindName(), ENOMEM);
        sizeIs(size);
        applyDump();
        return data_;
    }
    if (mappingShallFail()) return fail("mmap", ENOMEM);
    if (size == 0) return fail("empty mapping", EINVAL);
    if (mode == Mode::writer) {
        try {
            makeDirectory(directory_);
        } catch (Dunlin::InvalidInitializeException const& error) {
            reason_ = error.message();
            return nullptr;
        }
    }
    int const flags = mode == Mode::writer ? O_RDWR | O_CREAT : O_RDONLY;
    StepHooks::store();
    fd_ = ::open(fileName_.c_str(), flags | O_CLOEXEC, 0644);
    if (fd_ < 0) return fail("open", errno);
    if (mode == Mode::writer) {
        if (!reserve(0, size)) {
            closeFile();
            return nullptr;
        }
    } else if (std::size_t const length = lengthOf(fd_); roundToPage(length) < size) {
        reason_ = fmt::format("the file has {} bytes, wanted {}", length, size);
        closeFile();
        return nullptr;
    }
    return mapDescriptor(size, hint);
}

void* SharedMemWrapper::mapNew(std::size_t size) {
    if (backing_ != Backing::file) return map(size, Mode::writer, nullptr);
    unmap();
    mode_ = Mode::writer;
    if (mappingShallFail()) return fail("mmap", ENOMEM);
    std::string const name = temporaryName(fileName_);
    try {
        makeDirectory(directory_);
    } catch (Dunlin::InvalidInitializeException const& error) {
        reason_ = error.message();
        return nullptr;
    }
    // Left by a writer that died while it built one; the writer lock makes us the only one now.
    ::unlink(name.c_str());
    StepHooks::store();
    fd_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd_ < 0) return fail("open", errno);
    uncommitted_ = true;
    void* base = nullptr;
    if (reserve(0, size)) base = mapDescriptor(size, nullptr);
    if (!base) unmap();
    return base;
}

bool SharedMemWrapper::renameNew() {
    if (!uncommitted_) return true;
    StepHooks::store();
    if (::rename(temporaryName(fileName_).c_str(), fileName_.c_str()) != 0) {
        fail("rename", errno);
        return false;
    }
    uncommitted_ = false;
    return true;
}

void* SharedMemWrapper::remap(std::size_t size) {
    // The kernel changes the mapping behind its own barriers.
    StepHooks::ordered(nullptr, 0, StepHooks::Order::fence);
    if (!data_) return fail("resize of a detached mapping", EINVAL);
    if (backing_ != Backing::file) {
        void* const base = local_.resize(size);
        if (!base) return fail(local_.kindName(), ENOMEM);
        data_ = base;
        sizeIs(size);
        applyDump();
        return data_;
    }
    if (mappingShallFail()) return fail("mremap", ENOMEM);
    if (size == 0) return fail("empty mapping", EINVAL);
    if (mode_ == Mode::writer) {
        if (!reserve(size_, size)) return nullptr;
    } else if (std::size_t const length = lengthOf(fd_); roundToPage(length) < size) {
        reason_ = fmt::format("the file has {} bytes, wanted {}", length, size);
        return nullptr;
    }
    StepHooks::look();
    tailIsClosed(data_, size_, false);
    bool const aligned = size < hugePageSize_ || hugePageAligned(data_);
    void* base = aligned ? ::mremap(data_, size_, size, 0) : MAP_FAILED;
    if (base == MAP_FAILED) {
        void* const range = alignedRange(size);
        base = range ? ::mremap(data_, size_, size, MREMAP_MAYMOVE | MREMAP_FIXED, range)
                     : ::mremap(data_, size_, size, MREMAP_MAYMOVE);
    }
    if (base == MAP_FAILED) {
        tailIsClosed(data_, size_, true);
        return fail("mremap", errno);
    }
    data_ = base;
    tailIsClosed(data_, size, true);
    // What a writer grows by it is about to fill: one call in place of a fault a page. Where the
    // kernel does not know the call, the faults come.
    if (mode_ == Mode::writer && size > size_) {
        std::size_t const from = size_ & ~(pageSize_ - 1);
        ::madvise(static_cast<char*>(base) + from, roundToPage(size) - from, MADV_POPULATE_WRITE);
    }
    if (mode_ == Mode::writer && size < size_) {
        StepHooks::store();
        giveBack(fd_, size, lengthOf(fd_));
    }
    sizeIs(size);
    applyDump();
    return data_;
}

bool SharedMemWrapper::copyAside(std::size_t idOffset, U32 id) {
    try {
        makeDirectory(directory_);
    } catch (Dunlin::InvalidInitializeException const& error) {
        reason_ = error.message();
        return false;
    }
    std::string const name = temporaryName(fileName_);
    dropCopy();
    ::unlink(name.c_str());
    StepHooks::store();
    copy_.reset(::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!copy_) return fail("open", errno) != nullptr;
    auto const failed = [&](char const* what, int error) {
        dropCopy();
        return fail(what, error) != nullptr;
    };
    backByHugePages(copy_.get(), 0, size_);
    if (int const error = ::posix_fallocate(copy_.get(), 0, static_cast<off_t>(size_)); error != 0)
        return failed("cannot reserve space", error);
    for (std::size_t at = 0; at < size_;) {
        auto const put = ::pwrite(copy_.get(), static_cast<char const*>(data_) + at, size_ - at,
                                  static_cast<off_t>(at));
        if (put > 0) at += static_cast<std::size_t>(put);
        if (put < 0 && errno != EINTR) return failed("write", errno);
    }
    if (::pwrite(copy_.get(), &id, sizeof id, static_cast<off_t>(idOffset)) != sizeof id)
        return failed("write", errno);
    return true;
}

bool SharedMemWrapper::commitCopy() {
    StepHooks::store();
    if (::rename(temporaryName(fileName_).c_str(), fileName_.c_str()) == 0) return true;
    return fail("rename", errno) != nullptr;
}

void SharedMemWrapper::moveToCopy() {
    tailIsClosed(data_, size_, false);
    void* const base =
        ::mmap(data_, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, copy_.get(), 0);
    FMASSERT(base == data_, "cannot map the copy of {}: {}", fileName_, std::strerror(errno));
    closeFile();
    fd_ = copy_.release();
    tailIsClosed(data_, size_, true);
    applyDump();
}

void SharedMemWrapper::dropCopy() {
    if (copy_) ::unlink(temporaryName(fileName_).c_str());
    copy_.reset();
}

void SharedMemWrapper::unmap() {
    dropCopy();
    if (backing_ != Backing::file) {
        local_.detach();
    } else {
        if (data_) {
            tailIsClosed(data_, size_, false);
            ::munmap(data_, size_);
        }
        closeFile();
        if (uncommitted_) ::unlink(temporaryName(fileName_).c_str());
        uncommitted_ = false;
    }
    data_ = nullptr;
    sizeIs(0);
}

} // namespace Mem
