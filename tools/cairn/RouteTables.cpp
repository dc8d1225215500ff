#include "RouteTables.h"

#include "Board.h"
#include "Mroute/Tables.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bitset>

namespace Cairn {
namespace {

using Brisk::Multicast::Fib::OifIndex;
using Brisk::Multicast::Fib::OifIndexIntf;
using Brisk::Multicast::Fib::Route;
using Brisk::Multicast::Fib::TableInfo;
using Routing::Multicast::Fib::IpGenRouteKey;

constexpr U16 numOifIndexes = OifIndex::max + 1;

IpGenRouteKey keyOf(RouteName const& name) {
    // The source of a (*,G) is a prefix of length 0 with its family.
    S32 const length = isUnspecified(name.source) ? 0 : hostLength(name.source);
    return {IpPrefix(name.source, length), IpPrefix(name.group, hostLength(name.group))};
}

// Applies `visit` to the bit of each outgoing interface.
template <class Visit>
void forEachOif(Route const& route, Visit visit) {
    for (U8 word = 0; word < Route::numWords; ++word)
        for (U64 bits = route.oifBitmap(word); bits != 0; bits &= bits - 1)
            visit(OifIndex(static_cast<U16>(word * 64 + std::countr_zero(bits))));
}

Brisk::MapDescriptor descriptor(U32 size) {
    Brisk::MapDescriptor result(size);
    result.shrinkable = result.shrinkBuckets = true;
    return result;
}

// Has a table made again when somebody removes its files.
template <class Writer>
class Watched : public Mem::WriterSentry::Notifiee {
public:
    explicit Watched(Writer& writer)
        : writer_(writer), sentry_(writer.debugHandler(), this, writer.rootPath()) {}
    SharedMem::OrielId orielId() const override { return writer_.orielId(); }
    bool validate() override { return writer_.validate(); }
    bool validateFiles(std::string const&, unsigned) override { return writer_.validateFiles(); }
    bool remake() override { return writer_.remake(); }

private:
    Writer& writer_;
    Mem::WriterSentry sentry_;
};

template <class Table>
std::unique_ptr<typename Table::Writer> takeOver(std::string const& name, U32 size) {
    auto writer = std::make_unique<typename Table::Writer>(
        *Dunlin::Platform::getDebugHandler(name, false), name, descriptor(size),
        typename Table::Ops{}, Table::typeName, [](bool) {});
    try {
        writer->initialize("mirror");
    } catch (Dunlin::Exception const& e) {
        throw CommandError(noTable, fmt::format("table {}: {}", name, e.what()));
    }
    return writer;
}

template <class Writer, class Visit>
void walk(Writer const& table, Visit visit) {
    typename Writer::Value value;
    Brisk::IterHint hint;
    for (bool more = table.first(value, hint); more; more = table.next(value.fwkKey(), value, hint))
        visit(value);
}

} // namespace

class RouteTables::Vrf {
public:
    explicit Vrf(RouteTableName const& name)
        : oifsBoard_(name.oifIndexIntf()), routesBoard_(name.route()),
          oifs_(takeOver<Mroute::OifIndexIntfTable>(name.oifIndexIntf(), TableInfo::maxOifIndexs)),
          routes_(takeOver<Mroute::RouteTable>(name.route(), TableInfo::maxRoutes)) {
        walk(*oifs_, [&](OifIndexIntf const& entry) {
            interfaces_[entry.key().value()] = {entry.intf(), 0, entry.refCount(), true};
            indexes_[entry.intf()] = entry.key();
        });
        adoptRoutes();
    }

    Mroute::RouteTable::Writer& routes() { return *routes_; }

    void post() {
        post(*oifs_, oifsBoard_);
        post(*routes_, routesBoard_);
    }

    // The record of a route that is present; `old` is the one in the table, or a fresh one. Gives
    // each interface an index, and takes a reference for each bit that `old` has not.
    Route present(NamedRoute const& named, Route const& old) {
        Route route = old;
        building_.reset();
        for (U8 word = 0; word < Route::numWords; ++word) route.oifBitmapDel(word);
        route.iifIs(intfId(named.iif));
        route.validIs(true);
        route.programmableIs(!named.iif.empty());
        route.iifRegisterIs(isRegisterInterface(named.iif));
        route.oifRegisterIs(std::any_of(named.oifs.begin(), named.oifs.end(), isRegisterInterface));
        U16 highest = OifIndex::null;
        for (auto const& oif : named.oifs) {
            OifIndex const index = indexOf(intfId(oif));
            building_.set(index.value());
            route.oifIs(index, true);
            highest = highest == OifIndex::null ? index.value() : std::max(highest, index.value());
        }
        route.maxOifIndexIs(OifIndex(highest));
        building_.reset();
        return route;
    }

    // Puts `route` in the place of `old`, the record in the table.
    void replace(Route const& old, Route const& route) {
        countReferences(old, route, +1);
        try {
            routes_->write(route, true);
        } catch (...) {
            countReferences(old, route, -1);
            throw;
        }
        countReferences(route, old, -1);
    }
    bool remove(IpGenRouteKey const& key) {
        Mroute::RouteTable::Value old;
        if (!routes_->remove(key, old)) return false;
        countReferences(Route(), old, -1);
        return true;
    }

    // At the end of a bundle: brings the counts in the table up to date; interfaces without routes
    // lose their index.
    void flushReferences() {
        building_.reset(); // a record that could not be made
        writeReferences();
    }

private:
    struct Interface {
        Kelpie::IntfId intf;
        U32 references = 0;
        U32 written = 0; // the count that stands in the table
        bool used = false;
    };
    template <class Writer>
    static void post(Writer& writer, BoardEntry& board) {
        auto const counters = writer.writerCounters();
        BoardNotice notice;
        notice.role = BoardNotice::Role::writer;
        notice.sequence = writer.sequence();
        notice.readers = counters.readers;
        notice.sleeping = counters.sleepingReaders;
        board.post(notice);
    }
    struct IntfHash {
        std::size_t operator()(Kelpie::IntfId id) const { return id.hash(); }
    };

    // Counts the references of the routes found. A bit without an interface can only stand there if
    // the table of interfaces was lost: such a route is not valid until it is told again.
    void adoptRoutes() {
        std::vector<Route> orphaned;
        walk(*routes_, [&](Route const& route) {
            bool whole = true;
            forEachOif(route, [&](OifIndex index) {
                auto& interface = interfaces_[index.value()];
                ++interface.references;
                whole = whole && interface.used;
            });
            if (!whole) orphaned.push_back(route);
        });
        for (Route const& old : orphaned) {
            Route route = old;
            forEachOif(old, [&](OifIndex index) {
                if (interfaces_[index.value()].used) return;
                route.oifDel(index);
                interfaces_[index.value()].references = 0;
            });
            route.validIs(false);
            route.versionInc(1);
            routes_->write(route, true);
        }
        for (U16 i = 0; i < numOifIndexes; ++i)
            if (interfaces_[i].used) touched_.set(i);
        flushReferences();
    }

    void writeReferences() {
        for (U16 i = 0; i < numOifIndexes; ++i) {
            if (!touched_[i] || building_[i]) continue;
            Interface& interface = interfaces_[i];
            if (interface.references == 0) {
                Mroute::OifIndexIntfTable::Value old;
                oifs_->remove(OifIndex(i), old);
                indexes_.erase(interface.intf);
                interface = {};
            } else if (interface.references != interface.written) {
                writeInterface(i);
            }
            touched_.reset(i);
        }
    }

    Kelpie::IntfId intfId(std::string const& name) {
        auto const [place, isNew] = ids_.try_emplace(name);
        if (isNew) place->second = Kelpie::IntfId(Vomo::String(name));
        return place->second;
    }

    // The index of an interface; a new one gets the lowest that is free.
    OifIndex indexOf(Kelpie::IntfId intf) {
        if (auto const found = indexes_.find(intf); found != indexes_.end()) return found->second;
        auto const isFree = [](Interface const& i) { return !i.used; };
        auto place = std::find_if(interfaces_.begin(), interfaces_.end(), isFree);
        if (place == interfaces_.end()) {
            writeReferences(); // some may have lost their last route in this bundle
            place = std::find_if(interfaces_.begin(), interfaces_.end(), isFree);
        }
        if (place == interfaces_.end())
            Dunlin::fmthrow<Dunlin::RuntimeException>(
                "interface {} is one more than the {} that routes can go out of",
                intf.stringValue(), numOifIndexes);
        auto const index = static_cast<U16>(place - interfaces_.begin());
        *place = {intf, 0, 0, true};
        try {
            writeInterface(index);
        } catch (...) {
            *place = {};
            throw;
        }
        touched_.set(index); // gone with the bundle if no route comes to use it
        indexes_[intf] = OifIndex(index);
        return OifIndex(index);
    }
    void writeInterface(U16 index) {
        Interface& interface = interfaces_[index];
        OifIndexIntf entry(OifIndex(index), interface.intf);
        entry.refCountIs(interface.references);
        oifs_->write(entry, true);
        interface.written = interface.references;
    }

    // Adds `step` for each bit that is in `with` and not in `without`.
    void countReferences(Route const& without, Route const& with, int step) {
        forEachOif(with, [&](OifIndex index) {
            if (without.oif(index)) return;
            interfaces_[index.value()].references += static_cast<U32>(step);
            touched_.set(index.value());
        });
    }

    BoardEntry oifsBoard_, routesBoard_;
    std::unique_ptr<Mroute::OifIndexIntfTable::Writer> oifs_;
    std::unique_ptr<Mroute::RouteTable::Writer> routes_;
    Watched<Mroute::OifIndexIntfTable::Writer> oifsWatched_{*oifs_};
    Watched<Mroute::RouteTable::Writer> routesWatched_{*routes_};
    std::array<Interface, numOifIndexes> interfaces_{};
    std::bitset<numOifIndexes> touched_;
    std::bitset<numOifIndexes> building_; // of the record in the making, not counted yet
    std::unordered_map<Kelpie::IntfId, OifIndex, IntfHash> indexes_;
    std::unordered_map<std::string, Kelpie::IntfId> ids_;
};

RouteTables::RouteTables(std::string name, bool v4, bool v6)
    : name_(std::move(name)), v4_(v4), v6_(v6) {}
RouteTables::~RouteTables() = default;

RouteTables::Vrf& RouteTables::vrf(bool v4, std::string const& name) {
    auto& place = vrfs_[{v4, name}];
    if (!place) {
        try {
            place = std::make_unique<Vrf>(RouteTableName{v4, name, name_});
        } catch (...) {
            vrfs_.erase({v4, name});
            throw;
        }
        counters_.kept += place->routes().members();
    }
    return *place;
}

void RouteTables::open() {
    if (v4_) vrf(true, "default");
    if (v6_) vrf(false, "default");
    for (auto const& table : tablesPresent().tables)
        if (auto const name = RouteTableName::ofRoute(table);
            name && name->name == name_ && (name->v4 ? v4_ : v6_))
            vrf(name->v4, name->vrf);
}

void RouteTables::forEach(std::function<void(RouteName const&)> const& visit) const {
    for (auto const& member : vrfs_) {
        std::string const& vrfName = member.first.second;
        walk(member.second->routes(), [&](Route const& route) {
            visit({vrfName, route.key().s().address(), route.key().g().address()});
        });
    }
}

std::size_t RouteTables::size() const {
    std::size_t size = 0;
    for (auto const& [where, tables] : vrfs_) size += tables->routes().members();
    return size;
}

void RouteTables::apply(std::span<RouteChange const> changes) {
    for (auto const& change : changes) {
        RouteName const& name = change.route.name;
        if (!(isV4(name.group) ? v4_ : v6_)) continue;
        unwritten_.erase(name);
        try {
            Vrf& tables = vrf(isV4(name.group), name.vrf);
            IpGenRouteKey const key = keyOf(name);
            if (change.kind == RouteChange::Kind::gone) {
                if (tables.remove(key)) ++counters_.removed;
                continue;
            }
            bool found = false;
            Route const old = *tables.routes().lookup(key, found, nullptr);
            if (!found && change.kind == RouteChange::Kind::held) continue;
            Route route = change.kind == RouteChange::Kind::held
                              ? old
                              : tables.present(change.route, found ? old : Route(key));
            if (change.kind == RouteChange::Kind::held) route.validIs(false);
            if (found && route == old) {
                ++counters_.unchanged;
                continue;
            }
            route.versionInc(1);
            tables.replace(found ? old : Route(), route);
            ++counters_.written;
        } catch (Dunlin::CorruptionDetectedException const& e) {
            throw CommandError(damaged, fmt::format("table {}: {}", name_, e.what()));
        } catch (Dunlin::Exception const& e) {
            // No room in memory, or for one more interface.
            fault_ = fmt::format("({},{}) not written: {}", sourceText(name.source),
                                 toText(name.group), e.what());
            ++counters_.failed;
            unwritten_[name] = change;
        }
    }
    for (auto& [where, tables] : vrfs_) tables->flushReferences();
}

void RouteTables::replaceAll(std::vector<NamedRoute> const& routes) {
    std::map<RouteName, NamedRoute const*> wanted;
    for (auto const& route : routes) wanted[route.name] = &route;
    std::vector<RouteChange> changes;
    forEach([&](RouteName const& name) {
        if (!wanted.contains(name)) {
            auto& change = changes.emplace_back();
            change.route.name = name;
        }
    });
    for (auto const& route : routes) changes.push_back({RouteChange::Kind::present, route});
    apply(changes);
}

void RouteTables::post() {
    for (auto& [where, tables] : vrfs_) tables->post();
}

bool RouteTables::retry() {
    std::vector<RouteChange> again;
    for (auto& [name, change] : unwritten_) again.push_back(std::move(change));
    unwritten_.clear();
    apply(again);
    return !unwritten_.empty();
}

} // namespace Cairn
