#include "SharedMem/FileUtil.h"

#include "Dunlin/Exception.h"
#include "SharedMem/StepHooks.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Mem {

void Fd::reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
}

long readFile(std::string const& fileName, void* to, std::size_t size) {
    Fd const file(::open(fileName.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return -1;
    std::size_t done = 0;
    while (done < size) {
        auto const got = ::read(file.get(), static_cast<char*>(to) + done, size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<long>(done);
}

void replaceFile(std::string const& fileName, void const* from, std::size_t size) {
    std::string const temporary = fileName + ".new";
    auto const failed = [&](char const* call, int error) {
        ::unlink(temporary.c_str());
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot write {}: {}: {}", fileName,
                                                            call, std::strerror(error));
    };
    StepHooks::store();
    Fd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file) failed("open", errno);
    for (std::size_t done = 0; done < size;) {
        auto const put = ::write(file.get(), static_cast<char const*>(from) + done, size - done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) failed("write", put < 0 ? errno : ENOSPC);
        done += static_cast<std::size_t>(put);
    }
    file.reset();
    StepHooks::store();
    if (::rename(temporary.c_str(), fileName.c_str()) != 0) failed("rename", errno);
}

unsigned permissionsOf(std::string const& fileName) {
    struct stat status;
    return ::stat(fileName.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

unsigned crc32(void const* data, std::size_t size) {
    static constexpr auto table = [] {
        std::array<unsigned, 256> ofByte{};
        for (unsigned i = 0; i < 256; ++i) {
            unsigned crc = i;
            for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320U : 0U);
            ofByte[i] = crc;
        }
        return ofByte;
    }();
    unsigned crc = ~0U;
    for (auto const* byte = static_cast<unsigned char const*>(data); size-- > 0; ++byte)
        crc = crc >> 8 ^ table[(crc ^ *byte) & 0xff];
    return ~crc;
}

std::string const& bootId() {
    static auto const& id = *new std::string([] {
        char text[64] = {};
        long const got = readFile("/proc/sys/kernel/random/boot_id", text, sizeof text - 1);
        std::string read(text, got > 0 ? static_cast<std::size_t>(got) : 0);
        while (!read.empty() && read.back() == '\n') read.pop_back();
        return read;
    }());
    return id;
}

} // namespace Mem
