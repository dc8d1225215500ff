// A table by its name, whatever it holds.
#pragma once

#include "Brisk/SlotHeaderCommon.h"
#include "Mroute/Tables.h"
#include "SharedMem/RootPath.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Cairn {

// The trace handle of the tool.
Dunlin::Platform::DebugHandler& trace();
// Keeps the trace lines of errors instead of printing them, for a message that says what they mean;
// with CAIRN_TRACE set they go to stderr as ever. `also`, if any, is told each first line.
void keepTrace(std::function<void(std::string const&)> also = {});
// The first line of the first error since the last call, or an empty text.
std::string takeTraceReason();

// Who writes a table now.
struct WriterName {
    std::string process = "none";
    U64 pid = 0;
    std::string text() const;
};
WriterName writerOf(Mem::YokeRootPath const& path);

// The header of a slot file as it is now; nothing if there is none or it is none of ours.
std::optional<Brisk::SlotHeaderCommon> headerOf(Mem::YokeRootPath const& path);

// The front through which a command reads a table: attached to what stands there, whether its writer
// lives or not; null if that cannot be read.
template <class Table>
using Front = Brisk::BriskMap<typename Table::Ops>;
template <class Table>
std::unique_ptr<Front<Table>> readingFront(std::string const& table) {
    auto front = std::make_unique<Front<Table>>(table, Table::typeName);
    Brisk::MapDescriptor reader;
    reader.type = Brisk::BriskType::reader;
    front->init(reader);
    if (front->mountStatus() == Mem::MountStatus::unmounted) front->attach("cairn");
    return front->mountStatus() == Mem::MountStatus::unmounted ? nullptr : std::move(front);
}

// Calls `visit` with the table type of that name, as a template argument; false if there is none.
template <class Visit, class... Tables>
bool withTableOf(std::string const& typeName, Visit visit) {
    return ((typeName == Tables::typeName && (visit.template operator()<Tables>(), true)) || ...);
}
template <class Visit>
bool withTable(std::string const& typeName, Visit visit) {
    return withTableOf<Visit, Mroute::RouteTable, Mroute::OifIndexIntfTable,
                       Mroute::BidirGroupTable, Mroute::DfProfileTable, Mroute::CounterTable,
                       Mroute::BitIndexMapTable, Mroute::WaitlistMapTable>(typeName, visit);
}

} // namespace Cairn
