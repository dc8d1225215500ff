#include "SharedMem/HugePages.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#ifndef MADV_COLLAPSE // glibc 2.36 and before; linux/mman.h since 6.1
#define MADV_COLLAPSE 25
#endif

namespace Mem {

void backByHugePages(int fd, std::size_t from, std::size_t to) {
    std::size_t const start = hugePageFloor(from), end = hugePageFloor(to);
    if (start >= end) return;
    // The kernel takes only what lies inside the file, and starts from a page that is there.
    struct stat status;
    if (::fstat(fd, &status) != 0) return;
    if (static_cast<std::size_t>(status.st_size) < to &&
        ::ftruncate(fd, static_cast<off_t>(to)) != 0)
        return;
    void* const range = alignedRange(end - start);
    if (!range) return;
    void* const base = ::mmap(range, end - start, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED,
                              fd, static_cast<off_t>(start));
    for (std::size_t at = start; base != MAP_FAILED && at < end; at += hugePageSize_)
        if (::fallocate(fd, 0, static_cast<off_t>(at), 1) != 0 ||
            ::madvise(static_cast<char*>(base) + (at - start), hugePageSize_, MADV_COLLAPSE) != 0)
            break;
    ::munmap(range, end - start);
}

void* alignedRange(std::size_t size) {
    if (size < hugePageSize_) return nullptr;
    std::size_t const reserved = size + hugePageSize_;
    void* const range =
        ::mmap(nullptr, reserved, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (range == MAP_FAILED) return nullptr;
    auto const start = reinterpret_cast<std::uintptr_t>(range);
    auto const aligned = hugePageFloor(start + hugePageSize_ - 1);
    // What stands over at both ends goes back, in whole pages.
    auto const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    auto const last = (aligned + size + page - 1) / page * page;
    auto const end = (start + reserved + page - 1) / page * page;
    if (aligned > start) ::munmap(range, aligned - start);
    if (end > last) ::munmap(reinterpret_cast<void*>(last), end - last);
    return reinterpret_cast<void*>(aligned);
}

} // namespace Mem
