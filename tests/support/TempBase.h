// A fresh base directory for the tables of one test, removed with it; and a silent trace.
#pragma once

#include "Dunlin/Trace.h"
#include "Dunlin/Util.h"

#include <cstdlib>
#include <filesystem>
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
