// `cairn ls` and `cairn stat`: what tables there are, and what one is like.
#include "Commands.h"

#include "Brisk/SlotHeaderCommon.h"
#include "Dunlin/Util.h"
#include "Mroute/Tables.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstring>
#include <sys/stat.h>

namespace Cairn {
namespace {

Dunlin::Platform::DebugHandler& trace() {
    static auto const handler = Dunlin::Platform::getDebugHandler("cairn", false);
    return *handler;
}

struct WriterName {
    std::string process = "none";
    U64 pid = 0;
    std::string text() const { return pid == 0 ? process : fmt::format("{}-{}", process, pid); }
};

// Who writes a table now.
WriterName writerOf(Mem::YokeRootPath const& path) {
    if (!Mem::WriterLock::writerExists(path)) return {};
    try {
        auto const info = SharedMem::OwnerFile(trace(), path, false).bolsterInfo();
        if (auto const name = SharedMem::BolsterName::BolsterNameIs(info.socketName))
            return {name->processName, name->pid};
    } catch (Dunlin::Exception const&) {
        // A damaged owner file does not hide that the lock is held.
    }
    return {"unknown", 0};
}

// The header of a slot file as it is now; nothing if there is none or it is none of ours.
std::optional<Brisk::SlotHeaderCommon> headerOf(Mem::YokeRootPath const& path) {
    Brisk::SlotHeaderCommon header;
    if (Mem::readFile(path.file("slots"), &header, sizeof header) != long{sizeof header})
        return std::nullopt;
    bool const whole = header.magic == Brisk::SlotHeaderCommon::magicNumber &&
                       std::memchr(header.typeName, 0, sizeof header.typeName);
    return whole ? std::optional(header) : std::nullopt;
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

} // namespace

int lsCommand(Common const& common) {
    Listing listing = common.listing();
    int result = done;
    for (auto const& table : tablesPresent()) {
        if ((table.starts_with("routing/") && !common.v4) ||
            (table.starts_with("routing6/") && !common.v6))
            continue;
        Mem::YokeRootPath const path(table);
        auto const header = headerOf(path);
        if (!header) {
            // A table that went meanwhile is no longer there to list.
            if (::access(path.file("slots").c_str(), F_OK) != 0) continue;
            listing.print(Row().add("table", table).add("state", "damaged", Row::Hue::bad));
            result = damaged;
            continue;
        }
        auto const writer = writerOf(path);
        listing.print(Row()
                          .add("table", table, Row::Hue::interface)
                          .add("type", std::string(header->typeName))
                          .add("entries", U64{header->occupiedSlots})
                          .add("capacity", U64{header->numSlots.value})
                          .add("writer", writer.process,
                               writer.process == "none" ? Row::Hue::bad : Row::Hue::good)
                          .add("pid", writer.pid)
                          .add("generation", fmt::format("{:08x}", header->orielId)));
    }
    listing.finish();
    return result;
}

int statCommand(Common const& common, std::string const& text) {
    std::string const table = tableMeant(text);
    Mem::YokeRootPath const path(table);
    auto const header = headerOf(path);
    if (!header) throw CommandError(damaged, fmt::format("table {}: no header", table));

    std::vector<std::pair<std::string, Row::Value>> facts;
    auto const fact = [&](std::string name, Row::Value value) {
        facts.emplace_back(std::move(name), std::move(value));
    };
    fact("table", table);
    fact("type", std::string(header->typeName));
    fact("writer", writerOf(path).text());
    fact("generation", fmt::format("{:08x}", header->orielId));
    fact("inside_operation",
         (header->runtimeFlags & Brisk::SlotHeaderCommon::criticalSection) != 0);
    fact("entries", U64{header->occupiedSlots});
    fact("capacity", U64{header->numSlots.value});
    fact("highest_capacity", U64{header->highestNumSlots});
    fact("configured_size", U64{header->maxSize});
    fact("slot_bytes", U64{header->slotSize});
    fact("value_bytes", U64{header->valueBytes});
    for (char const* file : {"slots", "buckets", "yarrow", "yarrow2"}) {
        struct stat status;
        if (::stat(path.file(file).c_str(), &status) != 0) continue;
        fact(fmt::format("{}_file_bytes", file), static_cast<U64>(status.st_size));
        fact(fmt::format("{}_resident_bytes", file), static_cast<U64>(status.st_blocks) * 512);
    }
    // What a reader sees that attaches now and walks once.
    int result = done;
    bool const known = withTable(header->typeName, [&]<class Table>() {
        typename Table::Reader reader(trace(), table.c_str(), typename Table::Ops{}, nullptr);
        if (!reader.initialize("stat"))
            throw CommandError(noTable, fmt::format("table {}: cannot be attached to", table));
        fact("buckets", U64{reader.buckets()});
        U64 walked = 0;
        try {
            typename Table::Value value;
            Brisk::IterHint hint;
            for (bool more = reader.first(value, hint); more;
                 more = reader.next(value.fwkKey(), value, hint))
                ++walked;
        } catch (Dunlin::CorruptionDetectedException const& e) {
            fact("damage", std::string(e.what()));
            result = damaged;
        }
        fact("walked_entries", walked);
        auto const counters = reader.readerCounters();
        fact("walk_retries", U64{counters.hashRetries});
        fact("walk_slow_steps", U64{counters.slowPathNexts});
        fact("lookaside_reads", U64{counters.lookasideSlotReads});
        fact("slots_mapped_bytes", counters.slotsMappedSize);
        fact("buckets_mapped_bytes", counters.bucketsMappedSize);
    });
    if (!known) fact("damage", fmt::format("unknown type {}", header->typeName));

    if (common.json) {
        Listing listing = common.listing();
        Row row;
        for (auto& [name, value] : facts) row.add(name, std::move(value));
        listing.print(row);
    } else {
        std::size_t width = 0;
        for (auto const& [name, value] : facts) width = std::max(width, name.size());
        for (auto& [name, value] : facts) {
            auto line = Row().add(name, std::move(value)).text(false);
            line.insert(name.size(), width - name.size(), ' ');
            fmt::print("{}\n", line);
        }
    }
    return known ? result : damaged;
}

} // namespace Cairn
