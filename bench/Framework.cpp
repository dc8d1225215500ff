// The object framework, single calls by Google Benchmark: hash collections beside Abseil's and the
// standard library's map, the attribute log beside a hand-written encoder and decoder of the same
// bytes, reference counts, types by name. All are measured in turns in one run; what is told is the
// median of the rounds in processor time, and how many times the yardstick's that is.
#include "Kelpie/IntfId.h"
#include "Mroute/McastGroup.h"
#include "Mroute/Mfib.h"
#include "Mroute/MfibBriskTypes.h"
#include "Vomo/GenericIf.h"
#include "Vomo/HashMap2018.h"
#include "Vomo/NboAttrLogDemuxer.h"

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <fmt/format.h>
#include <random>
#include <unordered_map>

namespace {

using namespace Vomo;
using Routing::Multicast::Fib::IpGenRouteKey;

// What a collection of each kind of key is made of.

template <class Key_>
struct NodeOf : HashMap2018NodeExternKey<false, 0x5EEDU, Key_, U64, false> {
    using HashMap2018NodeExternKey<false, 0x5EEDU, Key_, U64, false>::HashMap2018NodeExternKey;
};
// The foreign maps hash a route key as ours does; the other keys by their own way.
struct RouteKeyHash {
    std::size_t operator()(IpGenRouteKey const& k) const { return Tumbrel::mix64(0, k.hash()); }
};

struct Numbers {
    using Key = U64;
    using ForeignKey = U64;
    using Absl = absl::flat_hash_map<U64, U64>;
    using Std = std::unordered_map<U64, U64>;
    static constexpr char const* name = "number";
    static U64 key(U64 n) { return n; }
};
struct Texts {
    using Key = String;
    using ForeignKey = std::string;
    using Absl = absl::flat_hash_map<std::string, U64>;
    using Std = std::unordered_map<std::string, U64>;
    static constexpr char const* name = "string";
    static String key(U64 n) { return fmt::format("vrf-{:x}", n); }
};
struct RouteKeys {
    using Key = IpGenRouteKey;
    using ForeignKey = IpGenRouteKey;
    using Absl = absl::flat_hash_map<IpGenRouteKey, U64, RouteKeyHash>;
    using Std = std::unordered_map<IpGenRouteKey, U64, RouteKeyHash>;
    static constexpr char const* name = "route key";
    static IpGenRouteKey key(U64 n) {
        return Routing::Multicast::Fib::makeRouteKeyMroute(
            {Kelpie::IpAddr::fromWord(static_cast<U32>(n)), 32},
            {Kelpie::IpAddr::fromWord(0xe0000000 | static_cast<U32>(n >> 36)), 32});
    }
};

// The maps under one set of verbs.
template <class K>
struct Ours {
    using Map = HashMap2018<NodeOf<typename K::Key>, typename K::Key, U64>;
    using Key = typename K::Key;
    Map map;
    void insert(Key const& k, U64 v) { map.newMember(NodeOf<Key>(k, v)); }
    bool has(Key const& k) const { return map[k] != nullptr; }
    void erase(Key const& k) { map.deleteMember(k); }
    U64 sum() const {
        U64 total = 0;
        for (typename Map::UnsafeIteratorConst i(&map); i; ++i) total += i->value();
        return total;
    }
    U64 sumSafely() const {
        U64 total = 0;
        for (typename Map::IteratorConst i(&map); i; ++i) total += i.node()->value();
        return total;
    }
};
template <class K, class Map>
struct Foreign {
    using Key = typename K::ForeignKey;
    Map map;
    void insert(Key const& k, U64 v) { map.emplace(k, v); }
    bool has(Key const& k) const { return map.find(k) != map.end(); }
    void erase(Key const& k) { map.erase(k); }
    U64 sum() const {
        U64 total = 0;
        for (auto const& member : map) total += member.second;
        return total;
    }
};

template <class M>
std::vector<typename M::Key> keysOf(auto makeKey, std::size_t n, U64 seed) {
    std::mt19937_64 random(seed);
    std::vector<typename M::Key> list;
    for (std::size_t i = 0; i < n; ++i) list.push_back(makeKey(random()));
    return list;
}
template <class M>
M filled(std::vector<typename M::Key> const& keys) {
    M m;
    for (U64 i = 0; auto const& k : keys) m.insert(k, i++);
    return m;
}

// Registers the scenarios of one map. An iteration runs through all members, in another order than
// that of their insertion where that matters.
template <class K, class M>
void mapScenarios(char const* mapName) {
    for (std::size_t const n : {std::size_t{1000}, std::size_t{100000}}) {
        auto const add = [&](char const* what, auto body) {
            benchmark::RegisterBenchmark(
                fmt::format("{} by {}, {}|{}", what, K::name, n, mapName).c_str(),
                [body, n](benchmark::State& state) {
                    auto const keys = keysOf<M>(K::key, n, 7);
                    auto shuffled = keys;
                    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(9));
                    body(state, keys, shuffled);
                    state.SetItemsProcessed(state.iterations() * static_cast<S64>(n));
                });
        };
        using Keys = std::vector<typename M::Key>;
        add("lookup", [](benchmark::State& state, Keys const& keys, Keys const& shuffled) {
            M const m = filled<M>(keys);
            for (auto _ : state)
                for (auto const& k : shuffled) benchmark::DoNotOptimize(m.has(k));
        });
        add("miss", [n](benchmark::State& state, Keys const& keys, Keys const&) {
            M const m = filled<M>(keys);
            auto const others = keysOf<M>(K::key, n, 8);
            for (auto _ : state)
                for (auto const& k : others) benchmark::DoNotOptimize(m.has(k));
        });
        add("insert", [](benchmark::State& state, Keys const& keys, Keys const&) {
            for (auto _ : state) {
                M const m = filled<M>(keys);
                benchmark::DoNotOptimize(&m);
            }
        });
        add("delete and insert",
            [](benchmark::State& state, Keys const& keys, Keys const& shuffled) {
                M m = filled<M>(keys);
                for (auto _ : state)
                    for (auto const& k : shuffled) {
                        m.erase(k);
                        m.insert(k, 1);
                    }
            });
        add("walk", [](benchmark::State& state, Keys const& keys, Keys const&) {
            M const m = filled<M>(keys);
            for (auto _ : state) benchmark::DoNotOptimize(m.sum());
        });
        // Ours while the collection may change under it, beside the same walks as above.
        add("safe walk", [](benchmark::State& state, Keys const& keys, Keys const&) {
            M const m = filled<M>(keys);
            for (auto _ : state)
                if constexpr (requires { m.sumSafely(); })
                    benchmark::DoNotOptimize(m.sumSafely());
                else
                    benchmark::DoNotOptimize(m.sum());
        });
    }
}
template <class K>
void threeMaps() {
    mapScenarios<K, Ours<K>>("ours");
    mapScenarios<K, Foreign<K, typename K::Absl>>("absl");
    mapScenarios<K, Foreign<K, typename K::Std>>("std");
}

Brisk::Multicast::Fib::Route route() {
    Brisk::Multicast::Fib::Route r(Routing::Multicast::Fib::makeRouteKeyMroute(
        {Kelpie::IpAddr::fromWord(0x0a000001), 32}, {Kelpie::IpAddr::fromWord(0xef010101), 32}));
    r.iifIs(Kelpie::IntfId(String("Ethernet1")));
    r.versionIs(3);
    return r;
}
MrouteLib::PortVlan portVlan() {
    MrouteLib::PortVlan pv;
    pv.portIs(Kelpie::IntfId(String("Ethernet1")));
    pv.vlanIdIs(Bridging::VlanId(7));
    return pv;
}

// By hand: the fixed number of bytes is asked for once and filled field by field.
struct Put {
    U8* at;
    void operator()(U8 v) { *at++ = v; }
    void operator()(U16 v) { raw(__builtin_bswap16(v)); }
    void operator()(U32 v) { raw(__builtin_bswap32(v)); }
    void operator()(U64 v) { raw(__builtin_bswap64(v)); }
    template <class V>
    void raw(V const& v) {
        std::memcpy(at, &v, sizeof v);
        at += sizeof v;
    }
};
struct Get {
    U8 const* at;
    template <class V>
    V raw() {
        V v;
        std::memcpy(&v, at, sizeof v);
        at += sizeof v;
        return v;
    }
    U8 u8() { return *at++; }
    U16 u16() { return __builtin_bswap16(raw<U16>()); }
    U32 u32() { return __builtin_bswap32(raw<U32>()); }
    U64 u64() { return __builtin_bswap64(raw<U64>()); }
};
constexpr std::size_t routeSize = 2 * 24 + 4 * 8 + 1 + 4 + 4 + 2 + 2 + 1 + 4 + 8 * 8;
void writeByHand(NboAttrLog::Out& out, Brisk::Multicast::Fib::Route const& r) {
    Put put{out.room(routeSize)};
    for (auto const* p : {&r.key().s(), &r.key().g()}) {
        put(p->af().value());
        put.raw(p->v6Addr());
        put(static_cast<U32>(p->len()));
    }
    for (auto const& intf : {r.iif(), r.iifFrr(), r.notify(), r.fastdrop()}) put(intf.word());
    put(U8{r.notifyProgrammable()});
    put(U32{r.routeFlags().value()});
    put(U32{r.iifFlags().value()});
    put(r.rpaId().value());
    put(r.maxOifIndex().value());
    put(r.routePriority().value());
    put(r.version());
    for (U8 w = 0; w < 8; ++w) put(r.oifBitmap(w));
}
Brisk::Multicast::Fib::Route readByHand(NboAttrLog::In& in, Brisk::Multicast::Fib::Route*) {
    using namespace Brisk::Multicast::Fib;
    Get get{in.take(routeSize)};
    auto const prefix = [&] {
        Kelpie::AddressFamily const af(get.u32());
        auto const address = get.raw<Kelpie::Ip6Addr>();
        return Kelpie::IpGenPrefix(Kelpie::IpGenAddr(af, address), static_cast<S32>(get.u32()));
    };
    Kelpie::IpGenPrefix const s = prefix(), g = prefix();
    Route r(IpGenRouteKey(s, g));
    r.iifIs(Kelpie::IntfId(get.u64()));
    r.iifFrrIs(Kelpie::IntfId(get.u64()));
    r.notifyIs(Kelpie::IntfId(get.u64()));
    r.fastdropIs(Kelpie::IntfId(get.u64()));
    r.notifyProgrammableIs(get.u8() != 0);
    r.routeFlagsIs(RouteFlags(static_cast<U8>(get.u32())));
    r.iifFlagsIs(IifFlags(static_cast<U8>(get.u32())));
    r.rpaIdIs(RpaIndex(get.u16()));
    r.maxOifIndexIs(OifIndex(get.u16()));
    r.routePriorityIs(RoutePriority(get.u8()));
    r.versionIs(get.u32());
    for (U8 w = 0; w < 8; ++w) r.oifBitmapIs(w, get.u64());
    return r;
}
void writeByHand(NboAttrLog::Out& out, MrouteLib::PortVlan const& v) {
    Put put{out.room(18)};
    put(v.port().word());
    put(v.outLif().value());
    put(v.overlayVlanId().value());
    put(v.portProperty().value());
}
MrouteLib::PortVlan readByHand(NboAttrLog::In& in, MrouteLib::PortVlan*) {
    Get get{in.take(18)};
    MrouteLib::PortVlan v;
    v.portIs(Kelpie::IntfId(get.u64()));
    v.outLifIs(MrouteLib::OutLif(get.u32()));
    v.overlayVlanIdIs(Bridging::VlanIdOrNone(get.u16()));
    v.portPropertyIs(MrouteLib::PortProperty(get.u32()));
    return v;
}

constexpr int valuesEach = 64;

template <class V>
void logScenarios(char const* name, V const& v) {
    NboAttrLog::Out ours, hand;
    ours << v;
    writeByHand(hand, v);
    if (!std::ranges::equal(ours.bytes(), hand.bytes())) {
        fmt::print(stderr, "bench: {} by hand has other bytes\n", name);
        std::exit(2);
    }
    auto const add = [&](char const* what, char const* who, auto body) {
        benchmark::RegisterBenchmark(fmt::format("log {} of a {}|{}", what, name, who).c_str(),
                                     [body, v](benchmark::State& state) {
                                         NboAttrLog::Out out;
                                         for (int i = 0; i < valuesEach; ++i) out << v;
                                         for (auto _ : state) {
                                             body(out, v);
                                             benchmark::ClobberMemory();
                                         }
                                         state.SetItemsProcessed(state.iterations() * valuesEach);
                                     });
    };
    add("writing", "ours", [](NboAttrLog::Out& out, V const& value) {
        out.clear();
        for (int i = 0; i < valuesEach; ++i) out << value;
    });
    add("writing", "hand", [](NboAttrLog::Out& out, V const& value) {
        out.clear();
        for (int i = 0; i < valuesEach; ++i) writeByHand(out, value);
    });
    add("reading", "ours", [](NboAttrLog::Out const& out, V const&) {
        NboAttrLog::In in(out.bytes());
        for (int i = 0; i < valuesEach; ++i) {
            V const read(&in, StreamBogon{});
            benchmark::DoNotOptimize(&read);
        }
    });
    add("reading", "hand", [](NboAttrLog::Out const& out, V const&) {
        NboAttrLog::In in(out.bytes());
        for (int i = 0; i < valuesEach; ++i) {
            V const read = readByHand(in, static_cast<V*>(nullptr));
            benchmark::DoNotOptimize(&read);
        }
    });
}

void singleCalls() {
    benchmark::RegisterBenchmark("copy and release of a Ptr|ours", [](benchmark::State& state) {
        auto const request = Multicast::Group::requestFactory({19, 7});
        for (auto _ : state) {
            auto const copy = request;
            benchmark::DoNotOptimize(copy.ptr());
        }
        state.SetItemsProcessed(state.iterations());
    });
    benchmark::RegisterBenchmark("copy and release of a Ptr|shared_ptr",
                                 [](benchmark::State& state) {
                                     auto const number = std::make_shared<int>(7);
                                     for (auto _ : state) {
                                         auto const copy = number;
                                         benchmark::DoNotOptimize(copy.get());
                                     }
                                     state.SetItemsProcessed(state.iterations());
                                 });
    std::vector<std::string> names;
    for (VomoModule const* module : modules())
        for (U16 i = 0; i < module->numTypes; ++i) names.emplace_back(VomoType{module, i}.name());
    benchmark::RegisterBenchmark("type by name|ours", [names](benchmark::State& state) {
        for (auto _ : state)
            for (std::string const& name : names) benchmark::DoNotOptimize(typeByName(name).index);
        state.SetItemsProcessed(state.iterations() * static_cast<S64>(names.size()));
    });
    benchmark::RegisterBenchmark("type by name|absl", [names](benchmark::State& state) {
        absl::flat_hash_map<std::string, U64> types;
        for (std::string const& name : names) types[name] = types.size();
        for (auto _ : state)
            for (std::string const& name : names) benchmark::DoNotOptimize(types.find(name));
        state.SetItemsProcessed(state.iterations() * static_cast<S64>(names.size()));
    });
}

// A source, and mirrors beside it in the same process: both ends' work, without a socket.
class Replicated {
public:
    explicit Replicated(int mirrors) {
        for (int i = 0; i < mirrors; ++i)
            ends_.emplace_back(new Ends{
                {NboAttrLog::Demuxer::Role::mirror, Multicast::Group::configFactory("mirror")},
                {NboAttrLog::Demuxer::Role::source, config, false, &group_}});
    }
    void connectedIs(bool connected) {
        for (auto const& ends : ends_) {
            ends->mirror.connectedIs(connected);
            ends->source.connectedIs(connected);
        }
    }
    void carry() {
        for (auto const& ends : ends_)
            while (std::size_t const n = ends->source.waitingBytes()) {
                ends->mirror.receive(ends->source.waiting());
                ends->source.consumed(n);
            }
    }
    Ptr<Multicast::Group::Config> config = Multicast::Group::configFactory("source");

private:
    struct Ends {
        NboAttrLog::Demuxer mirror, source;
    };
    NboAttrLog::ConnectionGroup group_;
    std::vector<std::unique_ptr<Ends>> ends_;
};

void replication() {
    for (int const mirrors : {1, 8})
        benchmark::RegisterBenchmark(
            fmt::format("a change told to each of {}|ours", mirrors).c_str(),
            [mirrors](benchmark::State& state) {
                Replicated tree(mirrors);
                auto const request = tree.config->requestIs({19, 7});
                tree.connectedIs(true);
                tree.carry();
                for (auto _ : state) {
                    request->requestIdInc(1);
                    tree.carry();
                }
                state.SetItemsProcessed(state.iterations() * mirrors);
            });
    auto const resync = [](char const* name, U16 requests, U32 members) {
        benchmark::RegisterBenchmark(name, [requests, members](benchmark::State& state) {
            Replicated tree(1);
            for (U16 r = 0; r < requests; ++r)
                for (U32 m = 0; m < members; ++m) {
                    MrouteLib::PortVlan member;
                    member.outLifIs(MrouteLib::OutLif(m));
                    tree.config->requestIs({19, r})->portVlanIs(member, true);
                }
            for (auto _ : state) {
                tree.connectedIs(true);
                tree.carry();
                tree.connectedIs(false);
            }
            state.SetItemsProcessed(state.iterations() * requests * members);
        });
    };
    resync("resync of a child|ours", 10000, 1);
    resync("resync of a member|ours", 10, 1000);
}

// Keeps the medians and tells them at the end: a line for each scenario, ours beside the yardsticks.
class Comparison final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(Context const&) override { return true; }
    void ReportRuns(std::vector<Run> const& runs) override {
        for (Run const& run : runs) {
            if (run.run_type != Run::RT_Iteration) continue;
            std::string const name = run.run_name.function_name;
            auto const bar = name.find('|');
            double const items = run.counters.at("items_per_second");
            figures_[{order(name.substr(0, bar)), name.substr(bar + 1)}].push_back(1e9 / items);
        }
    }
    void Finalize() override {
        fmt::print("{:36}{:>11}  {}\n", "scenario", "measured",
                   "yardstick, and how many times it that is");
        for (std::size_t i = 0; i < scenarios_.size(); ++i) {
            auto const ours = figures_.find({i, "ours"});
            if (ours == figures_.end()) continue;
            double const measured = median(ours->second);
            std::string line = fmt::format("{:36}{:>8.1f} ns", scenarios_[i], measured);
            for (char const* yardstick : {"absl", "std", "hand", "shared_ptr"})
                if (auto const at = figures_.find({i, yardstick}); at != figures_.end()) {
                    double const times = measured / median(at->second);
                    line += fmt::format("  {}{:>8.1f} ns {:>5.2f}", yardstick, median(at->second),
                                        times);
                    if (double const limit = reach(scenarios_[i], yardstick); limit > 0)
                        line += fmt::format(" of {} {}", limit,
                                            times <= limit ? "reached" : "FALLS SHORT");
                }
            fmt::print("{}\n", line);
        }
    }

private:
    static double median(std::vector<double> values) {
        std::ranges::nth_element(values,
                                 values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
        return values[values.size() / 2];
    }
    static double reach(std::string_view scenario, std::string_view yardstick) {
        if (yardstick == "hand") return 2;
        if (yardstick != "absl") return 0;
        return scenario.starts_with("lookup") ? 2 : scenario.find("walk") != scenario.npos ? 3 : 0;
    }
    std::size_t order(std::string const& scenario) {
        auto const at = std::ranges::find(scenarios_, scenario);
        if (at != scenarios_.end()) return static_cast<std::size_t>(at - scenarios_.begin());
        scenarios_.push_back(scenario);
        return scenarios_.size() - 1;
    }

    std::vector<std::string> scenarios_;
    std::map<std::pair<std::size_t, std::string>, std::vector<double>> figures_;
};

} // namespace

int main(int argc, char** argv) {
    threeMaps<Numbers>();
    threeMaps<Texts>();
    threeMaps<RouteKeys>();
    logScenarios("Route", route());
    logScenarios("PortVlan", portVlan());
    singleCalls();
    replication();
    // Rounds of all scenarios in random turns, so that a disturbance meets ours and the yardstick.
    std::vector<char*> args{argv[0]};
    std::string defaults[] = {"--benchmark_repetitions=9", "--benchmark_min_time=0.03",
                              "--benchmark_enable_random_interleaving=true"};
    for (std::string& arg : defaults) args.push_back(arg.data());
    args.insert(args.end(), argv + 1, argv + argc);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 2;
    Comparison comparison;
    benchmark::RunSpecifiedBenchmarks(&comparison);
}
