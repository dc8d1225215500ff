// Where a table lives: the directory below the base directory that holds its files.
#pragma once

#include <string>

namespace Mem {

class RootPath {
public:
    // `name` is the table's name; its slashes become directories. A local table has no directory:
    // its text only serves messages. Raises InvalidInitializeException for a name that is empty or
    // has a component "..", ".", or one of more than 255 bytes.
    explicit RootPath(std::string const& name, bool localMem = false);

    // The whole path, "/dev/shm/cairn/routing/multicast/fib"; "local:<name>" for a local table.
    std::string const& text() const { return text_; }
    // The table's name as given, without slashes at its ends.
    std::string const& directoryName() const { return name_; }
    // The path of one of the table's files.
    std::string file(std::string const& fileName) const { return text_ + '/' + fileName; }
    bool localMem() const { return localMem_; }

    // Makes the directory with its parents; for writers only, so that a reader's typing error
    // leaves nothing behind. Raises InvalidInitializeException naming the directory and the reason.
    void makeDirectories() const;
    // Removes the directory and those above it, up to the base directory, as far as they are empty.
    void removeDirectories() const;

private:
    std::string name_;
    std::string text_;
    bool localMem_;
};

// The root path of a table under the process's base directory (`Dunlin::Util::baseDirectory`).
class YokeRootPath : public RootPath {
public:
    using RootPath::RootPath;
};

// Makes `directory` and its parents, open to all whom the process's umask lets in. An existing one
// is fine. Raises InvalidInitializeException.
void makeDirectory(std::string const& directory);

} // namespace Mem
