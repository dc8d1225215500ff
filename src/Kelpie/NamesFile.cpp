#include "Kelpie/NamesFile.h"

#include "Dunlin/Trace.h"
#include "Dunlin/Util.h"
#include "Kelpie/IntfId.h"

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kelpie {
namespace {

Dunlin::Platform::DebugHandler& handler() {
    static auto& it = *Dunlin::Platform::getDebugHandler("IntfId", false);
    return it;
}

class File {
public:
    File(std::string const& path, int flags) : fd_(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {}
    ~File() {
        if (fd_ >= 0) ::close(fd_);
    }
    File(File const&) = delete;
    File& operator=(File const&) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

} // namespace

NamesFile& NamesFile::instance() {
    static auto& file = *new NamesFile; // never destroyed: static objects may print names
    return file;
}

// A base directory set anew has a file of its own.
void NamesFile::follow() {
    std::string path = Dunlin::Util::baseDirectory() + "/interface-names";
    if (path == path_) return;
    path_ = std::move(path);
    offset_ = 0;
    words_.clear();
    names_.clear();
}

// Takes over the whole lines behind `offset_`. A line without its end is being written, or its
// writer died: it is left for later. So is, unless the file is locked, one that ends before the length
// that it tells: the line's end may be of the name. What stands behind it is taken all the same. A line
// that is none is passed over. False if the file could not be read to its end.
bool NamesFile::readFrom(int fd, bool isLocked) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) return false;
    auto const size = static_cast<U64>(status.st_size);
    if (size < offset_) { // another file stands there now
        offset_ = 0;
        words_.clear();
        names_.clear();
    }
    std::string text(size - offset_, '\0');
    std::size_t filled = 0;
    while (filled != text.size()) {
        ssize_t const got = ::pread(fd, text.data() + filled, text.size() - filled,
                                    static_cast<off_t>(offset_ + filled));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        filled += static_cast<std::size_t>(got);
    }
    std::string_view rest = text;
    std::size_t left = text.npos; // where the first line begins that is left for later
    while (rest.find('\n') != rest.npos) {
        U64 word = 0;
        std::size_t length = 0;
        char const* const end = rest.data() + rest.size();
        auto const first = std::from_chars(
            rest.data(), rest.data() + std::min<std::size_t>(16, rest.size()), word, 16);
        auto const second = std::from_chars(std::min(first.ptr + 1, end), end, length);
        auto const head = static_cast<std::size_t>(second.ptr - rest.data()) + 1;
        bool const isHead =
            first.ptr == rest.data() + 16 && second.ec == std::errc() && head <= rest.size();
        bool const isWhole = isHead && length < rest.size() - head;
        if (!isWhole || rest[head + length] != '\n') {
            bool const isBegun = isHead && !isWhole && length <= IntfId::maxLength && !isLocked;
            if (isBegun)
                left = std::min(left, text.size() - rest.size());
            else if (left == text.npos) // of what is left is told when it is read again
                FMTRACE(handler(), 0, "{}: no name: {:?}", path_, rest.substr(0, rest.find('\n')));
            rest.remove_prefix(rest.find('\n') + 1);
            continue;
        }
        std::string name(rest.substr(head, length));
        words_.emplace(name, word);
        names_.emplace(word, std::move(name));
        rest.remove_prefix(head + length + 1);
    }
    offset_ += std::min(left, text.size() - rest.size());
    return true;
}

// Under the file's lock: reads what others entered, then enters `name` if it is still unknown.
U64 NamesFile::append(std::string_view name, U64 proposed, U64 form) {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), ignored);
    File const file(path_, O_RDWR | O_CREAT);
    bool written = false;
    U64 word = proposed;
    if (file.fd() >= 0 && ::flock(file.fd(), LOCK_EX) == 0) {
        bool const isRead = readFrom(file.fd(), true);
        if (auto const known = words_.find(std::string(name)); known != words_.end())
            return known->second;
        while (names_.contains(word)) word = (word + 1) | form;
        std::string const line = fmt::format("{:016x} {} {}\n", word, name.size(), name);
        // A part of a line that a dead process left behind goes.
        written = isRead && ::ftruncate(file.fd(), static_cast<off_t>(offset_)) == 0 &&
                  ::pwrite(file.fd(), line.data(), line.size(), static_cast<off_t>(offset_)) ==
                      static_cast<ssize_t>(line.size());
        if (written) offset_ += line.size();
    }
    if (!written) {
        FMTRACE(handler(), 0, "cannot enter the name {} in {}: {}", name, path_,
                std::system_category().message(errno));
    }
    words_.emplace(name, word);
    names_.emplace(word, name);
    return word;
}

U64 NamesFile::wordOf(std::string_view name, U64 proposed, U64 form) {
    std::lock_guard const lock(mutex_);
    follow();
    if (auto const known = words_.find(std::string(name)); known != words_.end())
        return known->second;
    if (File const file(path_, O_RDONLY); file.fd() >= 0) {
        readFrom(file.fd(), false);
        if (auto const known = words_.find(std::string(name)); known != words_.end())
            return known->second;
    }
    return append(name, proposed, form);
}

std::string NamesFile::nameOf(U64 word) {
    std::lock_guard const lock(mutex_);
    follow();
    auto known = names_.find(word);
    if (known == names_.end()) {
        if (File const file(path_, O_RDONLY); file.fd() >= 0) readFrom(file.fd(), false);
        known = names_.find(word);
    }
    return known == names_.end() ? std::string() : known->second;
}

} // namespace Kelpie
