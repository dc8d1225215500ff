// Linked into a test in place of the system's mapping calls (see CMakeLists.txt): within one process
// all shared mappings of a file are one, at one address, which grows and shrinks in place. A tool
// that compares addresses then sees that a writer's and a reader's accesses meet.
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
void* __real_mmap(void* hint, std::size_t size, int protection, int flags, int fd, off_t offset);
int __real_munmap(void* base, std::size_t size);
void* __real_mremap(void* base, std::size_t from, std::size_t to, int flags);
void* __wrap_mmap(void* hint, std::size_t size, int protection, int flags, int fd, off_t offset);
int __wrap_munmap(void* base, std::size_t size);
void* __wrap_mremap(void* base, std::size_t from, std::size_t to, int flags);
}

namespace {

// More than any file of these tests; what lies behind a file's end is never touched.
constexpr std::size_t reserved = std::size_t{256} << 20;

struct OneMapping {
    dev_t device;
    ino_t inode;
    int users;
};
std::mutex mutex;
std::map<void*, OneMapping> mappings; // by address

} // namespace

void* __wrap_mmap(void* hint, std::size_t size, int protection, int flags, int fd, off_t offset) {
    struct stat file;
    if (!(flags & MAP_SHARED) || fd < 0 || ::fstat(fd, &file) != 0)
        return __real_mmap(hint, size, protection, flags, fd, offset);
    std::lock_guard const guard(mutex);
    for (auto& [base, mapping] : mappings)
        if (mapping.device == file.st_dev && mapping.inode == file.st_ino) {
            ++mapping.users;
            return base;
        }
    // Whoever comes first may only read; who comes later may write by the same pages.
    int const both = ::open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_RDWR | O_CLOEXEC);
    void* const base = __real_mmap(nullptr, reserved, PROT_READ | PROT_WRITE, MAP_SHARED, both, 0);
    ::close(both);
    if (base != MAP_FAILED) mappings[base] = {file.st_dev, file.st_ino, 1};
    return base;
}

int __wrap_munmap(void* base, std::size_t size) {
    std::lock_guard const guard(mutex);
    auto const found = mappings.find(base);
    if (found == mappings.end()) return __real_munmap(base, size);
    if (--found->second.users > 0) return 0;
    mappings.erase(found);
    return __real_munmap(base, reserved);
}

void* __wrap_mremap(void* base, std::size_t from, std::size_t to, int flags) {
    std::lock_guard const guard(mutex);
    if (mappings.find(base) == mappings.end()) return __real_mremap(base, from, to, flags);
    return to <= reserved ? base : MAP_FAILED;
}
