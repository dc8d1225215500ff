// Huge pages for tables that are large enough to gain by them: a random access to a table of many
// megabytes spends as long on the address translation as on the data, and a growth spends most of
// its time on page faults. Nothing here is needed for a right answer: where the kernel refuses, the
// pages are ordinary ones.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Mem {

// Bytes in a huge page (x86-64, and arm64 with pages of 4 KiB).
constexpr std::size_t hugePageSize_ = 2U << 20;

constexpr std::size_t hugePageFloor(std::size_t offset) {
    return offset & ~(hugePageSize_ - 1);
}
inline bool hugePageAligned(void const* address) {
    return (reinterpret_cast<std::uintptr_t>(address) & (hugePageSize_ - 1)) == 0;
}

// Backs those stretches of the file's bytes `from` to `to` that fill a huge page by one, contents
// kept; one that `from` cuts is taken whole. The file becomes at least `to` bytes long. Other bytes
// are left as they are: reserve the range afterwards. Linux 6.1 (MADV_COLLAPSE), tmpfs.
void backByHugePages(int fd, std::size_t from, std::size_t to);

// An unused address range for a mapping of that size, reserved and aligned so that the mapping can
// consist of huge pages: map there with MAP_FIXED. Null for a mapping that is too small to matter,
// and where there is no such range.
void* alignedRange(std::size_t size);

} // namespace Mem
