#include "SharedMem/LocalMem.h"

#include "Dunlin/Exception.h"
#include "SharedMem/HugePages.h"

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace Mem {

std::size_t const pageSize_ = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));

std::size_t multiplyOverflowCheck(std::size_t a, std::size_t b) {
    std::size_t product;
    if (__builtin_mul_overflow(a, b, &product))
        Dunlin::fmthrow<Dunlin::MemoryResourceException>("{} * {} bytes exceed any memory", a, b);
    return product;
}

namespace {
U32 operationsToFailure = 0;
}

void failMappingAfter(U32 count) {
    operationsToFailure = count;
}
bool mappingShallFail() {
    return operationsToFailure > 0 && --operationsToFailure == 0;
}

char const* Local::kindName() const {
    return kind_ == HEAP ? "Mem::Local::HEAP" : "Mem::Local::ANONYMOUS";
}

// Huge pages where there is room for one: tables by slot number are read at random.
static void askForHugePages(void* data, std::size_t size) {
    if (size >= hugePageSize_) ::madvise(data, size, MADV_HUGEPAGE);
}

void* Local::attach(std::size_t size) {
    detach();
    if (size == 0 || mappingShallFail()) return nullptr;
    if (kind_ == HEAP) {
        data_ = std::calloc(1, size);
    } else {
        data_ = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (data_ == MAP_FAILED)
            data_ = nullptr;
        else
            askForHugePages(data_, size);
    }
    if (data_) size_ = size;
    return data_;
}

void* Local::resize(std::size_t size) {
    if (!data_) return attach(size);
    if (size == 0) {
        detach();
        return nullptr;
    }
    if (mappingShallFail()) return nullptr;
    void* moved;
    if (kind_ == HEAP) {
        moved = std::realloc(data_, size);
        if (!moved) return nullptr;
    } else {
        moved = ::mremap(data_, size_, size, MREMAP_MAYMOVE);
        if (moved == MAP_FAILED) return nullptr;
        askForHugePages(moved, size);
    }
    data_ = moved;
    // Whole new pages are zero already; heap and the rest of a page that shrank before are not.
    if (size > size_) {
        std::size_t const dirty = kind_ == HEAP ? size : std::min(size, roundToPage(size_));
        std::memset(static_cast<char*>(data_) + size_, 0, dirty - size_);
    }
    size_ = size;
    return data_;
}

void Local::detach() {
    if (!data_) return;
    if (kind_ == HEAP)
        std::free(data_);
    else
        ::munmap(data_, size_);
    data_ = nullptr;
    size_ = 0;
}

} // namespace Mem
