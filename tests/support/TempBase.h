// A fresh base directory for the tables of one test, removed with it; and a silent trace.
#pragma once

#include "Dunlin/Trace.h"
#include "Dunlin/Util.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace Support {

// A handler that says nothing unless it is asked to: tests provoke thousands of reports.
inline Dunlin::Platform::DebugHandler& quietTrace() {
    static auto const handler = [] {
        auto made = Dunlin::Platform::getDebugHandler("test", false);
        if (!std::getenv("CAIRN_TRACE")) made->maskIs(0);
        return made;
    }();
    return *handler;
}

// A word of a file, from outside; of one that is not there nothing is stored and 0 read.
template <class T>
void poke(std::string const& file, std::size_t offset, T word) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(offset));
    stream.write(reinterpret_cast<char const*>(&word), sizeof word);
}
template <class T = U32>
T peek(std::string const& file, std::size_t offset) {
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(offset));
    T word{};
    stream.read(reinterpret_cast<char*>(&word), sizeof word);
    return word;
}

class TempBase {
public:
    TempBase() {
        char name[] = "/dev/shm/cairn-test-XXXXXX";
        if (!::mkdtemp(name)) throw std::runtime_error("mkdtemp");
        path_ = name;
        Dunlin::Util::baseDirectoryIs(path_);
    }
    ~TempBase() {
        Dunlin::Util::baseDirectoryIs("");
        std::error_code ignored;
        if (owner_ == ::getpid()) std::filesystem::remove_all(path_, ignored);
    }
    TempBase(TempBase const&) = delete;
    TempBase& operator=(TempBase const&) = delete;
    std::string const& path() const { return path_; }

private:
    std::string path_;
    ::pid_t owner_ = ::getpid();
};

} // namespace Support
