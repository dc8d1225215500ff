// Small files that are written whole: a reader sees the old contents or the new, never a part.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace Mem {

// An open descriptor, closed with its holder.
class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd& operator=(Fd&& other) noexcept {
        if (this != &other) reset(std::exchange(other.fd_, -1));
        return *this;
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1);

private:
    int fd_;
};

// Up to `size` bytes from the start of the file; returns how many there are, -1 with errno set if
// it cannot be read.
long readFile(std::string const& fileName, void* to, std::size_t size);
// Writes a temporary file beside `fileName` and renames it. Raises InvalidInitializeException
// naming the file and the reason; the old file is then untouched.
void replaceFile(std::string const& fileName, void const* from, std::size_t size);
// The file's permission bits; 0 if there is no such file.
unsigned permissionsOf(std::string const& fileName);
// CRC-32 (IEEE 802.3, reflected polynomial 0xEDB88320).
unsigned crc32(void const* data, std::size_t size);
// The kernel's id of this boot (/proc/sys/kernel/random/boot_id); empty if it cannot be read.
std::string const& bootId();

} // namespace Mem
