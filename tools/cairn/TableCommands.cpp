// `cairn ls` and `cairn stat`: what tables there are, and what one is like.
#include "Access.h"
#include "Commands.h"

#include "Brisk/SlotHeaderCommon.h"
#include "Dunlin/Util.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace Cairn {

int lsCommand(Common const& common) {
    Listing listing = common.listing();
    int result = done;
    auto const complainOf = [&](std::string const& table, CommandError const& fault) {
        listing.print(Row()
                          .add("table", table)
                          .add("state",
                               std::string(fault.code == damaged ? "damaged" : "not_readable"),
                               Row::Hue::bad)
                          .add("finding", std::string(fault.what())));
        result = std::max(result, int{fault.code});
    };
    auto const [tables, closed] = tablesPresent();
    for (auto const& directory : closed)
        if (ofFamily(directory + "/", common.v4, common.v6))
            complainOf(directory, closedError(directory));
    for (auto const& table : tables) {
        if (!ofFamily(table, common.v4, common.v6)) continue;
        Mem::YokeRootPath const path(table);
        auto const fault = faultOf(table);
        auto const header = headerOf(path);
        // A table that went meanwhile is no longer there to list.
        if (::access(path.file("slots").c_str(), F_OK) != 0 && errno == ENOENT) continue;
        if (fault || !header) {
            complainOf(table, fault ? *fault : attachError(table, ""));
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

namespace {

// The headers of all files as the table library tells them, for who debugs it.
int printHeaders(std::string const& table, Mem::YokeRootPath const& path,
                 Brisk::SlotHeaderCommon const& header) {
    bool attached = false;
    bool const known = withTable(header.typeName, [&]<class Table>() {
        auto const front = readingFront<Table>(table);
        attached = front != nullptr;
        if (attached)
            fmt::print("{}", dynamic_cast<typename Table::Reader&>(front->table()).dumpHeaders());
    });
    if (!known || !attached) fmt::print("{}\n\n", header.toString());
    fmt::print("{}\n", SharedMem::OwnerFile(trace(), path, false).headerToString());
    SharedMem::OrielFile const oriel(trace(), path, false);
    fmt::print("oriel file: id {:08x}, written {:.3f} s since the epoch\n", oriel.read(),
               oriel.mtime());
    return attached ? done : damaged;
}

} // namespace

int statCommand(Common const& common, std::string const& text, bool headers) {
    if (headers && common.json)
        throw CommandError(badUse, "--headers is a text for people: it has no JSON form");
    Listing listing = common.listing(); // an array even if there is nothing to tell
    std::string const table = tableMeant(text, common.v4, common.v6);
    Mem::YokeRootPath const path(table);
    if (auto const fault = faultOf(table)) throw *fault;
    auto const header = headerOf(path);
    if (!header) throw attachError(table, "no header");
    if (headers) return printHeaders(table, path, *header);

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
        auto const front = openTable<Table>(table);
        auto const& reader = front->table();
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
        auto const counters = front->readerCounters();
        fact("walk_retries", U64{counters.hashRetries});
        fact("walk_slow_steps", U64{counters.slowPathNexts});
        fact("lookaside_reads", U64{counters.lookasideSlotReads});
        fact("slots_mapped_bytes", counters.slotsMappedSize);
        fact("buckets_mapped_bytes", counters.bucketsMappedSize);
    });
    if (!known) fact("damage", fmt::format("unknown type {}", header->typeName));

    if (common.json) {
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
