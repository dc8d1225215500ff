// Linked into the fuzz target in place of the system's calls on files (see CMakeLists.txt): the
// files below a directory named "damaged" live in this process. That saves some 250 system calls an
// input, and AddressSanitizer sees where each file and each mapping ends, to the byte.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sanitizer/asan_interface.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#define REPLACED(type, name, ...)                                                                  \
    extern "C" type __real_##name(__VA_ARGS__);                                                    \
    extern "C" type __wrap_##name(__VA_ARGS__);                                                    \
    extern "C" type __wrap_##name(__VA_ARGS__)

extern "C" void* __real_mmap(void*, std::size_t, int, int, int, off_t);
extern "C" void* __real_mremap(void*, std::size_t, std::size_t, int);
extern "C" void* __wrap_mremap(void*, std::size_t, std::size_t, int);
extern "C" int __real_open(char const*, int, ...);
extern "C" int __wrap_open(char const*, int, ...);
extern "C" int __real_fcntl(int, int, ...);
extern "C" int __wrap_fcntl(int, int, ...);

namespace {

constexpr std::size_t room = std::size_t{128} << 10; // of a file
constexpr int firstFd = 1 << 20;

struct File {
    char* bytes = nullptr; // zero from `length` on
    std::size_t length = 0;
    int users = 0; // names, descriptors and mappings
    int mappings = 0;
};
struct Descriptor {
    File* file = nullptr;
    std::size_t at = 0;
};
std::vector<std::pair<std::uint64_t, File*>> names; // of a name its hash
std::vector<Descriptor> descriptors;
std::vector<File*> unused;

int failed(int error) {
    errno = error;
    return -1;
}

// By the kernel's own right: what is closed to the program's mapping is open to its calls.
void copy(void* to, void const* from, std::size_t size) {
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size) : : "memory");
}

// Not by calls that AddressSanitizer looks at each time.
bool isOurs(char const* path) {
    for (; *path; ++path)
        if (path[0] == '/' && path[1] == 'd' && path[2] == 'a' && path[3] == 'm' && path[4] == 'a')
            return true;
    return false;
}
bool isDirectory(std::string_view path) {
    return path.ends_with("/damaged");
}
std::uint64_t nameOf(char const* path) {
    std::uint64_t hash = 0;
    for (; *path; ++path) hash = *path == '/' ? 0 : hash * 31 + static_cast<unsigned char>(*path);
    return hash;
}
Descriptor* ours(int fd) {
    return fd >= firstFd ? &descriptors[static_cast<std::size_t>(fd - firstFd)] : nullptr;
}
auto find(char const* path) {
    return std::find_if(names.begin(), names.end(),
                        [name = nameOf(path)](auto const& at) { return at.first == name; });
}

File* make() {
    if (unused.empty()) {
        auto* const file = new File;
        file->bytes = static_cast<char*>(
            __real_mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        unused.push_back(file);
    }
    File* const file = unused.back();
    unused.pop_back();
    return file;
}
// What is not mapped may be read and written by the calls alone.
void lengthIs(File& file, std::size_t length) {
    __asan_unpoison_memory_region(file.bytes, room);
    if (length < file.length) std::memset(file.bytes + length, 0, file.length - length);
    file.length = length;
}
void drop(File* file) {
    if (--file->users > 0) return;
    lengthIs(*file, 0);
    unused.push_back(file);
}
// As in the kernel's, the rest of the file's last page reads as zeros.
void mapped(File& file, std::size_t size) {
    std::size_t const whole = (file.length + 4095) & ~std::size_t{4095};
    std::size_t const end = size < whole ? size : whole;
    __asan_unpoison_memory_region(file.bytes, end);
    if (file.mappings <= 1) __asan_poison_memory_region(file.bytes + end, room - end);
}
// Of a mapping; its holder keeps the descriptor.
File* fileAt(void const* base) {
    auto const* const at = static_cast<char const*>(base);
    for (auto& descriptor : descriptors)
        if (File* const file = descriptor.file;
            file && at >= file->bytes && at < file->bytes + room)
            return file;
    return nullptr;
}
int describe(File const* file, struct stat* status) {
    *status = {};
    status->st_dev = 1;
    status->st_mode = file ? S_IFREG | 0644 : S_IFDIR | 0755;
    status->st_ino = file ? reinterpret_cast<ino_t>(file->bytes) : 1;
    status->st_size = file ? static_cast<off_t>(file->length) : 0;
    return 0;
}

} // namespace

int __wrap_open(char const* path, int flags, ...) {
    if (!isOurs(path)) {
        va_list rest;
        va_start(rest, flags);
        int const mode = flags & O_CREAT ? va_arg(rest, int) : 0;
        va_end(rest);
        return __real_open(path, flags, mode);
    }
    auto at = find(path);
    if (at == names.end()) {
        if (!(flags & O_CREAT)) return failed(ENOENT);
        names.emplace_back(nameOf(path), make());
        at = names.end() - 1;
        ++at->second->users;
    } else if (flags & O_EXCL) {
        return failed(EEXIST);
    }
    if (flags & O_TRUNC) lengthIs(*at->second, 0);
    ++at->second->users;
    std::size_t fd = 0;
    while (fd < descriptors.size() && descriptors[fd].file) ++fd;
    if (fd == descriptors.size()) descriptors.emplace_back();
    descriptors[fd] = {at->second, 0};
    return firstFd + static_cast<int>(fd);
}
int __wrap_fcntl(int fd, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    if (!ours(fd)) return __real_fcntl(fd, command, argument);
    if (command == F_OFD_GETLK) static_cast<struct flock*>(argument)->l_type = F_UNLCK;
    return 0;
}
REPLACED(int, close, int fd) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_close(fd);
    drop(descriptor->file);
    descriptor->file = nullptr;
    return 0;
}
REPLACED(ssize_t, read, int fd, void* to, std::size_t size) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_read(fd, to, size);
    auto const& file = *descriptor->file;
    if (descriptor->at >= file.length) return 0;
    std::size_t const count = std::min(size, file.length - descriptor->at);
    copy(to, file.bytes + descriptor->at, count);
    descriptor->at += count;
    return static_cast<ssize_t>(count);
}
REPLACED(ssize_t, pwrite, int fd, void const* from, std::size_t size, off_t offset) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_pwrite(fd, from, size, offset);
    auto& file = *descriptor->file;
    std::size_t const end = static_cast<std::size_t>(offset) + size;
    if (end > room) return failed(ENOSPC);
    file.length = std::max(file.length, end);
    copy(file.bytes + offset, from, size);
    return static_cast<ssize_t>(size);
}
REPLACED(ssize_t, write, int fd, void const* from, std::size_t size) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_write(fd, from, size);
    ssize_t const put = __wrap_pwrite(fd, from, size, static_cast<off_t>(descriptor->at));
    if (put > 0) descriptor->at += static_cast<std::size_t>(put);
    return put;
}
REPLACED(int, ftruncate, int fd, off_t length) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_ftruncate(fd, length);
    if (static_cast<std::size_t>(length) > room) return failed(ENOSPC);
    lengthIs(*descriptor->file, static_cast<std::size_t>(length));
    return 0;
}
REPLACED(int, posix_fallocate, int fd, off_t offset, off_t size) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_posix_fallocate(fd, offset, size);
    auto& file = *descriptor->file;
    auto const end = static_cast<std::size_t>(offset) + static_cast<std::size_t>(size);
    if (end > room) return ENOSPC;
    if (end > file.length) file.length = end;
    return 0;
}
REPLACED(int, fallocate, int fd, int mode, off_t offset, off_t size) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_fallocate(fd, mode, offset, size);
    __asan_unpoison_memory_region(descriptor->file->bytes + offset, static_cast<std::size_t>(size));
    std::memset(descriptor->file->bytes + offset, 0, static_cast<std::size_t>(size)); // a hole
    __asan_poison_memory_region(descriptor->file->bytes + offset, static_cast<std::size_t>(size));
    return 0;
}
REPLACED(int, fstat, int fd, struct stat* status) {
    auto* const descriptor = ours(fd);
    return descriptor ? describe(descriptor->file, status) : __real_fstat(fd, status);
}
REPLACED(int, stat, char const* path, struct stat* status) {
    if (!isOurs(path)) return __real_stat(path, status);
    if (isDirectory(path)) return describe(nullptr, status);
    auto const at = find(path);
    return at == names.end() ? failed(ENOENT) : describe(at->second, status);
}
REPLACED(int, unlink, char const* path) {
    if (!isOurs(path)) return __real_unlink(path);
    auto const at = find(path);
    if (at == names.end()) return failed(ENOENT);
    drop(at->second);
    names.erase(at);
    return 0;
}
REPLACED(int, rename, char const* from, char const* to) {
    if (!isOurs(from)) return __real_rename(from, to);
    auto const source = find(from);
    if (source == names.end()) return failed(ENOENT);
    File* const file = source->second;
    names.erase(source);
    __wrap_unlink(to);
    names.emplace_back(nameOf(to), file);
    return 0;
}
REPLACED(int, mkdir, char const* path, mode_t mode) {
    return isOurs(path) ? failed(EEXIST) : __real_mkdir(path, mode);
}
REPLACED(void*, mmap, void* hint, std::size_t size, int protection, int flags, int fd,
         off_t offset) {
    auto* const descriptor = ours(fd);
    if (!descriptor) return __real_mmap(hint, size, protection, flags, fd, offset);
    auto& file = *descriptor->file;
    ++file.users;
    ++file.mappings;
    mapped(file, size);
    return file.bytes;
}
REPLACED(int, munmap, void* base, std::size_t size) {
    File* const file = fileAt(base);
    if (!file) return __real_munmap(base, size);
    if (--file->mappings == 0) __asan_unpoison_memory_region(file->bytes, room);
    drop(file);
    return 0;
}
void* __wrap_mremap(void* base, std::size_t from, std::size_t to, int flags) {
    File* const file = fileAt(base);
    if (!file) return __real_mremap(base, from, to, flags);
    mapped(*file, to);
    return base;
}
REPLACED(int, madvise, void* base, std::size_t size, int advice) {
    return fileAt(base) ? 0 : __real_madvise(base, size, advice);
}
