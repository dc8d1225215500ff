// The commands of the tool, arguments parsed. Each returns its exit code or raises CommandError.
#pragma once

#include "Output.h"
#include "RouteView.h"

#include <cstdio>

namespace Cairn {

// What all commands share.
struct Common {
    bool json = false;
    bool v4 = true, v6 = true; // -4, -6
    Colour colour = Colour::automatic;

    Listing listing() const { return {stdout, json, !json && wantsColour(colour)}; }
};

struct MirrorArguments {
    std::string name = "kernel";
    std::string from;  // a route file; empty: the kernel
    std::string netns; // kernel only
    bool once = false; // leave after the load
    double churn = 0;  // changes a second, of a file's routes
    U64 seed = 1;
    double settleMs = 0;
    double holdSeconds = 0;
    U32 receiveBuffer = 0; // bytes; 0: the default
    bool quiet = false;
};
int mirrorCommand(Common const& common, MirrorArguments const& arguments);

// The words behind `show` and `get`, as typed.
int showCommand(Common const& common, std::vector<std::string> const& words);
int getCommand(Common const& common, std::vector<std::string> const& words);

int lsCommand(Common const& common);
int statCommand(Common const& common, std::string const& table, bool headers);
int checkCommand(Common const& common, std::string const& table);
int cleanupCommand(std::string const& table);

struct WatchArguments {
    std::vector<std::string> words; // filters, as typed
    bool keys = false;              // a shadow of the keys alone
    bool initial = false;           // print what is there at first
    double seconds = 0;             // how long; 0: until a signal
    bool json = false;
};
int watchCommand(Common const& common, WatchArguments arguments);

struct TopArguments {
    bool once = false;
    double interval = 1; // seconds
};
int topCommand(Common const& common, TopArguments const& arguments);

struct ProbeArguments {
    double seconds = 10;
    bool walk = false; // walk instead of looking up
    std::string table; // empty: the route table with the most entries
    U64 seed = 1;
};
int probeCommand(Common const& common, ProbeArguments const& arguments);

// All types, or those of one module; one type in full; a text read by the type that it names, or by
// `type`; the bytes of a value in the attribute log, in hexadecimal digits.
int typesCommand(Common const& common, std::string const& module);
int typeCommand(Common const& common, std::string const& name);
int valueCommand(Common const& common, std::string const& text, std::string const& type);
int logValueCommand(Common const& common, std::string const& hex, std::string const& type);

} // namespace Cairn
