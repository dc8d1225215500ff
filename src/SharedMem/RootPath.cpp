#include "SharedMem/RootPath.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Util.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace Mem {
namespace {

void checkComponents(std::string const& name) {
    std::string_view rest = name;
    for (;;) {
        auto const slash = rest.find('/');
        std::string_view const component = rest.substr(0, slash);
        if (component.empty() || component == "." || component == ".." || component.size() > 255 ||
            component.find('\0') != component.npos)
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                "table name '{}' has the bad component '{}'", name, component);
        if (slash == rest.npos) return;
        rest.remove_prefix(slash + 1);
    }
}

std::string trimSlashes(std::string const& name) {
    auto const first = name.find_first_not_of('/');
    if (first == name.npos) return {};
    return name.substr(first, name.find_last_not_of('/') - first + 1);
}

} // namespace

RootPath::RootPath(std::string const& name, bool localMem)
    : name_(trimSlashes(name)), localMem_(localMem) {
    checkComponents(name_);
    text_ = localMem ? "local:" + name_ : Dunlin::Util::baseDirectory() + '/' + name_;
}

void RootPath::makeDirectories() const {
    if (!localMem_) makeDirectory(text_);
}

void RootPath::removeDirectories() const {
    if (localMem_) return;
    std::string directory = text_;
    for (auto left = text_.size() - name_.size(); directory.size() >= left;) {
        if (::rmdir(directory.c_str()) != 0) return;
        directory.resize(directory.rfind('/'));
    }
}

// From the end: the directory is nearly always there.
void makeDirectory(std::string const& directory) {
    if (::mkdir(directory.c_str(), 0777) == 0) return;
    int error = errno;
    if (auto const slash = directory.rfind('/');
        (error == ENOENT || error == ENOTDIR) && slash != directory.npos && slash > 0) {
        makeDirectory(directory.substr(0, slash));
        if (::mkdir(directory.c_str(), 0777) == 0) return;
        error = errno;
    }
    struct stat status;
    if (::stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return;
    Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot make directory {}: {}", directory,
                                                        std::strerror(error));
}

} // namespace Mem
