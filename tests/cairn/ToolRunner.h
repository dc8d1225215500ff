// Runs the tool as its users do: as a process, in a base directory of its own.
#pragma once

#include "NamedRoute.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace CairnTest {

struct ToolResult {
    int exitCode = 0;
    std::string out, err;
    // The output as JSON; raises if it is not one valid array.
    nlohmann::json json() const;
};

class ToolRunner {
public:
    ToolRunner();
    ~ToolRunner();
    ToolRunner(ToolRunner const&) = delete;
    ToolRunner& operator=(ToolRunner const&) = delete;

    std::string const& base() const { return base_; }
    std::string path(std::string const& file) const { return work_ + "/" + file; }
    // A file of the given contents in the work directory; returns its path.
    std::string file(std::string const& name, std::string const& contents) const;

    // With a file for its standard input, if named.
    ToolResult run(std::vector<std::string> arguments, std::string const& inputFile = {}) const;
    // As somebody whom the modes of files and directories stop: root cannot be.
    ToolResult runAsOther(std::vector<std::string> arguments) const;
    static bool canRunAsOther();
    std::vector<std::string> command(std::vector<std::string> arguments) const;
    // Starts it in the background; what is still running at the end is killed.
    // Its standard output goes to the named file in the work directory, its errors to "err".
    int start(std::vector<std::string> arguments, std::string const& outputFile = "out",
              std::string const& inputFile = {});
    void signal(int pid, int number) const;
    // Its exit code (128 + signal).
    int wait(int pid);

    // What `show -j` tells.
    std::map<Cairn::RouteName, Cairn::NamedRoute> shown() const;
    // Waits until `show -j` equals `routes`, ten seconds at most.
    bool shows(std::map<Cairn::RouteName, Cairn::NamedRoute> const& routes) const;

private:
    ToolResult finish(std::vector<std::string> const& command, std::string const& inputFile) const;
    std::string work_, base_;
    std::vector<int> running_;
};

} // namespace CairnTest
