// The object framework, single calls: hash collections beside the standard library's map (and
// Abseil's where it is installed), the attribute log beside a hand-written encoder of the same
// bytes, reference counts, types by name.
#include "Kelpie/IntfId.h"
#include "Mroute/McastGroup.h"
#include "Mroute/MfibBriskTypes.h"
#include "Vomo/GenericIf.h"
#include "Vomo/HashMap2018.h"

#include <benchmark/benchmark.h>
#ifdef CAIRN_HAVE_ABSL
#include <absl/container/flat_hash_map.h>
#endif

#include <random>
#include <unordered_map>

namespace {

using namespace Vomo;

struct Node : HashMap2018NodeExternKey<false, 0x5EEDU, U64, U64, false> {
    using HashMap2018NodeExternKey::HashMap2018NodeExternKey;
};

// The three maps under one set of verbs.
struct Ours {
    HashMap2018<Node, U64, U64> map;
    void insert(U64 k) { map.newMember(Node(k, k)); }
    bool has(U64 k) const { return map[k] != nullptr; }
    void erase(U64 k) { map.deleteMember(k); }
    U64 sum() const {
        U64 total = 0;
        for (HashMap2018<Node, U64, U64>::UnsafeIteratorConst i(&map); i; ++i) total += i->value();
        return total;
    }
};
template <class Map>
struct Foreign {
    Map map;
    void insert(U64 k) { map.emplace(k, k); }
    bool has(U64 k) const { return map.find(k) != map.end(); }
    void erase(U64 k) { map.erase(k); }
    U64 sum() const {
        U64 total = 0;
        for (auto const& member : map) total += member.second;
        return total;
    }
};
using Standard = Foreign<std::unordered_map<U64, U64>>;
#ifdef CAIRN_HAVE_ABSL
using Absl = Foreign<absl::flat_hash_map<U64, U64>>;
#endif

std::vector<U64> keys(std::size_t n) {
    std::mt19937_64 random(7);
    std::vector<U64> list(n);
    for (U64& k : list) k = random();
    return list;
}

template <class Map>
void lookup(benchmark::State& state) {
    auto const list = keys(static_cast<std::size_t>(state.range(0)));
    Map map;
    for (U64 const k : list) map.insert(k);
    std::size_t i = 0, step = list.size() / 2 | 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(map.has(list[i]));
        if ((i += step) >= list.size()) i -= list.size();
    }
}
template <class Map>
void insertAll(benchmark::State& state) {
    auto const list = keys(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        Map map;
        for (U64 const k : list) map.insert(k);
        benchmark::DoNotOptimize(&map);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
template <class Map>
void eraseAndInsert(benchmark::State& state) {
    auto const list = keys(static_cast<std::size_t>(state.range(0)));
    Map map;
    for (U64 const k : list) map.insert(k);
    std::size_t i = 0;
    for (auto _ : state) {
        map.erase(list[i]);
        map.insert(list[i]);
        if (++i == list.size()) i = 0;
    }
}
template <class Map>
void walk(benchmark::State& state) {
    Map map;
    for (U64 const k : keys(static_cast<std::size_t>(state.range(0)))) map.insert(k);
    for (auto _ : state) benchmark::DoNotOptimize(map.sum());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define FRAMEWORK_MAP(name, Map)                                                                   \
    BENCHMARK(lookup<Map>)->Name("map_lookup/" name)->Arg(1000)->Arg(100000);                      \
    BENCHMARK(insertAll<Map>)->Name("map_insert/" name)->Arg(1000)->Arg(100000);                   \
    BENCHMARK(eraseAndInsert<Map>)->Name("map_erase_insert/" name)->Arg(1000)->Arg(100000);        \
    BENCHMARK(walk<Map>)->Name("map_walk/" name)->Arg(1000)->Arg(100000);
FRAMEWORK_MAP("ours", Ours)
FRAMEWORK_MAP("std", Standard)
#ifdef CAIRN_HAVE_ABSL
FRAMEWORK_MAP("absl", Absl)
#endif

Brisk::Multicast::Fib::Route route() {
    Brisk::Multicast::Fib::Route r(Routing::Multicast::Fib::makeRouteKeyMroute(
        {Kelpie::IpAddr::fromWord(0x0a000001), 32}, {Kelpie::IpAddr::fromWord(0xef010101), 32}));
    r.iifIs(Kelpie::IntfId(String("Ethernet1")));
    r.versionIs(3);
    return r;
}

template <class V>
void logWrite(benchmark::State& state, V const& v) {
    NboAttrLog::Out out;
    for (auto _ : state) {
        out.clear();
        out << v;
        benchmark::DoNotOptimize(out.bytes().data());
    }
}
template <class V>
void logRead(benchmark::State& state, V const& v) {
    NboAttrLog::Out out;
    out << v;
    for (auto _ : state) {
        NboAttrLog::In in(out.bytes());
        V const read(&in, StreamBogon{});
        benchmark::DoNotOptimize(&read);
    }
}
BENCHMARK_CAPTURE(logWrite, route, route());
BENCHMARK_CAPTURE(logRead, route, route());
BENCHMARK_CAPTURE(logWrite, portVlan, MrouteLib::PortVlan());
BENCHMARK_CAPTURE(logRead, portVlan, MrouteLib::PortVlan());

// The same bytes of a Route, written by hand.
void logWriteRouteByHand(benchmark::State& state) {
    auto const r = route();
    NboAttrLog::Out out;
    for (auto _ : state) {
        out.clear();
        for (auto const* p : {&r.key().s(), &r.key().g()}) {
            out << p->af().value();
            out.append(p->v6Addr().bytes().data(), 16);
            out << static_cast<U32>(p->len());
        }
        out << r.iif().word() << r.iifFrr().word() << r.notify().word() << r.fastdrop().word();
        out << r.notifyProgrammable() << U32{r.routeFlags().value()} << U32{r.iifFlags().value()};
        out << r.rpaId().value() << r.maxOifIndex().value() << r.routePriority().value()
            << r.version();
        for (U8 w = 0; w < 8; ++w) out << r.oifBitmap(w);
        benchmark::DoNotOptimize(out.bytes().data());
    }
}
BENCHMARK(logWriteRouteByHand);

void ptrCopy(benchmark::State& state) {
    auto const request = Multicast::Group::requestFactory({19, 7});
    for (auto _ : state) {
        auto const copy = request;
        benchmark::DoNotOptimize(copy.ptr());
    }
}
BENCHMARK(ptrCopy);

void typeLookup(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(typeByName("Routing::Multicast::Fib::RouteFlags").index);
}
BENCHMARK(typeLookup);

} // namespace
