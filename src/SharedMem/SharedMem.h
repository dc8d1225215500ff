// A table's file mapped into memory, or local memory in its place, behind one interface.
//
// Promise to readers: a file never gets shorter while its inode lives, so a reader that holds a
// longer mapping than the table needs reads zeros, not a signal (H-file-1, with the one gap it
// tells of). A new generation of a file is built in a new inode and renamed over the old name
// (H-file-2): whoever has the old one mapped keeps it.
#pragma once

#include "SharedMem/FileUtil.h"
#include "SharedMem/LocalMem.h"
#include "SharedMem/RootPath.h"

#include <string>

namespace Mem {

enum class Mode : U32 { writer = 0, reader = 1 };
enum class Backing : U8 { file, anonymous, heap };

// What a table keeps its bytes in: a file, unless the table is local.
constexpr Backing backingOf(bool localMem, bool heap) {
    return !localMem ? Backing::file : heap ? Backing::heap : Backing::anonymous;
}

class SharedMemWrapper {
public:
    SharedMemWrapper(RootPath const& rootPath, std::string const& fileName,
                     Backing backing = Backing::file);
    ~SharedMemWrapper();
    SharedMemWrapper(SharedMemWrapper const&) = delete;
    SharedMemWrapper& operator=(SharedMemWrapper const&) = delete;

    // Length of the file in bytes: of the mapped inode when attached, else of the file that has
    // the name now; 0 if there is none. Local memory: the attached size.
    std::size_t memSize() const;
    // The whole path.
    std::string const& getFilename() const { return fileName_; }
    // Why the last attach, resize or commitNew failed.
    std::string const& reason() const { return reason_; }
    // Bytes asked for at the last attach or resize; 0 when detached.
    std::size_t mappedSize() const { return size_; }
    void* data() const { return data_; }
    bool attached() const { return data_ != nullptr; }
    // True if the name now leads to another inode than the mapped one, or to none.
    bool replaced() const;

    // Counts the mapped bytes of this object into `trackedBytes` from now on.
    void enable();
    // The mapping goes into this process's core files, or not. Holds for later mappings too; see
    // also Dunlin::Util::includeShmemInCore.
    void dumpToCoreIs(bool include);
    // Writer, for a file that somebody has removed under it, in three steps of which the first two
    // change nothing that is mapped: the mapped bytes go into a new file under the temporary name,
    // with `id` in place of the word at `idOffset`; that gets the file's name; the mapping is that
    // of the new file from then on, at the same address. A failure of the first two leaves its
    // cause in `reason()`. A copy that is not used after all is dropped.
    bool copyAside(std::size_t idOffset, U32 id);
    bool commitCopy();
    void moveToCopy();
    void dropCopy();

    // Removes the file by name; an absent one is fine. An attached mapping stays usable.
    void cleanup();

protected:
    // See Tracked.
    void* map(std::size_t size, Mode mode, void const* hint);
    void* mapNew(std::size_t size);
    bool renameNew();
    void* remap(std::size_t size);
    void unmap();

private:
    void* mapDescriptor(std::size_t size, void const* hint);
    bool reserve(std::size_t from, std::size_t to);
    void* fail(char const* what, int error);
    void sizeIs(std::size_t size);
    void applyDump();
    void closeFile();

    std::string directory_;
    std::string fileName_;
    std::string reason_;
    Local local_;
    void* data_ = nullptr;
    std::size_t size_ = 0;
    int fd_ = -1;
    Fd copy_; // of the mapped bytes, while a removed file is made again
    Backing backing_;
    Mode mode_ = Mode::writer;
    bool uncommitted_ = false; // built under the temporary name, not renamed yet
    bool trackMemory_ = false;
    U8 dumpToCore_ = 2; // 0 no, 1 yes, 2 as the system has it
};

// Bytes mapped by the objects of this process for which tracking is enabled.
std::size_t trackedBytes();

// Opens the mapping operations of a wrapper. Every one returns null (false) on failure, with the
// cause in `reason()`, and then leaves an existing mapping as it was.
template <class W>
class Tracked : public W {
public:
    using W::W;

    // Maps the first `size` bytes. A writer makes the file and its directory if they are not
    // there, extends a shorter file with its space reserved before anything is mapped (A49), and
    // never cuts a longer one. A reader maps read-only, creates nothing and fails if the file has
    // fewer pages than asked for. `hint` may name an address to map at. What was attached before
    // is given up first.
    void* attach(std::size_t size, Mode mode, void const* hint = nullptr) {
        return W::map(size, mode, hint);
    }
    // Writer: maps a new, zero-filled file of `size` bytes under a temporary name. Nobody else sees
    // it before `commitNew` has put it in the place of the old one; a detach before that removes
    // it.
    void* attachNew(std::size_t size) { return W::mapNew(size); }
    bool commitNew() { return W::renameNew(); }
    // Maps `size` bytes instead; the address may move. A growing writer reserves the space first; a
    // shrinking one gives the pages behind the rounded end back and leaves the file's length.
    void* resize(std::size_t size) { return W::remap(size); }
    void detach() { W::unmap(); }
};

} // namespace Mem
