#include "bench/NotifyScenarios.h"

#include "Dunlin/TaskSchedulerRoot.h"
#include "Dunlin/Util.h"
#include "Mroute/Tables.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace Bench {

namespace {

using Table = Mroute::RouteTable;
using Route = Table::Value;
using Key = Table::Key;
using Front = Brisk::BriskMap<Table::Ops>;
using Writer = Table::Writer;

constexpr U32 burstKeys = 100'000;
constexpr U32 latencySamples = 1000; // a round
constexpr U32 syncEntries = 1'000'000;

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}

U64 wallNs() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<U64>(time.tv_sec) * 1'000'000'000U + static_cast<U64>(time.tv_nsec);
}
void spinFor(U64 ns) {
    for (U64 const end = wallNs() + ns; wallNs() < end;) {
    }
}

Route routeOf(U32 i) {
    auto const mixed = [](U32 x) {
        x = (x ^ x >> 16) * 0x7feb352dU;
        x = (x ^ x >> 15) * 0x846ca68bU;
        return x ^ x >> 16;
    };
    using Kelpie::IpAddr;
    using Kelpie::Prefix;
    Key const key(Prefix(IpAddr::fromNetworkWord(mixed(i)), 32),
                  Prefix(IpAddr::fromNetworkWord(0xe0U | mixed(~i) << 8), 32));
    Route route;
    std::memcpy(static_cast<void*>(&route), &key, sizeof key);
    return route;
}

// What reader and writer tell each other beside what is measured.
struct Told {
    std::atomic<U64> count;  // records that the reader was told
    std::atomic<U64> lastAt; // when it was told the last one
};

// A process that is told of records; ended by its owner.
class Reader {
public:
    explicit Reader(std::function<void()> const& body) {
        std::fflush(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            pinToProcessor(readerProcessor);
            body();
            _exit(0);
        }
    }
    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;
    ~Reader() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

private:
    pid_t pid_;
};

// One way to bring changes to another process.
class Road {
public:
    virtual ~Road() = default;
    // Makes one change, of the i-th of the records.
    virtual void change(U32 i) = 0;
    virtual void changeAll(std::vector<U32> const& order) {
        for (U32 const i : order) change(i);
    }
    // Whether the reader has fallen asleep, if it ever does.
    virtual bool readerSleeps() = 0;
    // The writer's part of waiting.
    virtual void turn() {}

    double latency() {
        std::vector<double> samples;
        for (U32 i = 0; i < latencySamples; ++i) {
            U64 const before = told_->count;
            while (!readerSleeps()) turn();
            spinFor(200'000); // until it sleeps indeed
            U64 const start = wallNs();
            change(i % burstKeys);
            while (told_->count == before) {
            }
            samples.push_back(static_cast<double>(told_->lastAt - start));
        }
        return median(samples);
    }
    // Nanoseconds for each key of a burst.
    double burst(std::vector<U32> const& order) {
        U64 const before = told_->count;
        while (!readerSleeps()) turn();
        U64 const start = wallNs();
        changeAll(order);
        while (told_->count < before + order.size()) turn();
        return static_cast<double>(told_->lastAt - start) / static_cast<double>(order.size());
    }

protected:
    // What the client does: notes the time, and that it was told.
    void tellOne() {
        told_->lastAt.store(wallNs(), std::memory_order_relaxed);
        told_->count.store(told_->count.load(std::memory_order_relaxed) + 1,
                           std::memory_order_release);
    }
    SharedPages pages_{sizeof(Told)};
    Told* const told_ = new (pages_.data()) Told{};
};

// A shadow of a table.
class ShadowRoad : public Road {
public:
    explicit ShadowRoad(std::vector<Route> const& routes) : routes_(routes) {
        writer_ =
            std::make_unique<Writer>(*trace_, name, Brisk::MapDescriptor(burstKeys), Table::Ops{},
                                     Table::typeName, std::function<void(bool)>{});
        if (!writer_->initialize("bench")) throw std::runtime_error("cannot make the table");
        for (Route const& route : routes_) writer_->write(route, true);
        reader_ = std::make_unique<Reader>([this] {
            Front front(name, Table::typeName);
            front.valueNotifyIs([this](Route const& route) {
                used(&route);
                tellOne();
            });
            front.init(Brisk::BriskType::valueShadow, false, 1);
            while (true) loop().runOnce(-1);
        });
    }
    void change(U32 i) override { writer_->write(routes_[i], true); }
    void changeAll(std::vector<U32> const& order) override {
        std::vector<Route const*> changed;
        changed.reserve(order.size());
        for (U32 const i : order) changed.push_back(&routes_[i]);
        writer_->writeAll(changed);
    }
    bool readerSleeps() override { return writer_->queue().wren().sleepingReaders() == 1; }
    void turn() override { loop().runOnce(0); }

    static constexpr char const* name = "bench/notify";

private:
    std::vector<Route> const& routes_;
    std::shared_ptr<Dunlin::Platform::DebugHandler> trace_ =
        Dunlin::Platform::getDebugHandler("bench", false);
    std::unique_ptr<Writer> writer_;
    std::unique_ptr<Reader> reader_;
};

// The yardstick: a ring of records in shared memory, large enough that it never is full. Writer and
// reader keep an array of the records besides, as those who use a ring must. The reader sleeps on a
// socket, and is rung for only then; or it never sleeps.
class RingRoad : public Road {
public:
    RingRoad(std::vector<Route> const& routes, bool spins)
        : routes_(routes), spins_(spins), kept_(routes) {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_) != 0)
            throw std::runtime_error("no sockets");
        reader_ = std::make_unique<Reader>([this] { read(); });
    }
    ~RingRoad() override {
        reader_.reset();
        for (int const end : ends_) close(end);
    }
    void change(U32 i) override {
        std::memcpy(static_cast<void*>(&kept_[i]), &routes_[i], sizeof(Route));
        U64 const at = ring_->head.load(std::memory_order_relaxed);
        Record& record = ring_->records[at % capacity];
        record.index = i;
        std::memcpy(static_cast<void*>(&record.route), &routes_[i], sizeof(Route));
        ring_->head.store(at + 1, std::memory_order_release);
        if (spins_) return;
        // The store above must show before the look below.
        std::atomic_thread_fence(std::memory_order_seq_cst);
        if (!ring_->sleeps.load(std::memory_order_relaxed)) return;
        ring_->sleeps.store(false, std::memory_order_relaxed);
        char const bell = 0;
        if (send(ends_[0], &bell, 1, MSG_NOSIGNAL) != 1) throw std::runtime_error("no bell");
    }
    bool readerSleeps() override {
        return ring_->ready && (spins_ ? told_->count == ring_->head : ring_->sleeps.load());
    }

private:
    static constexpr U32 capacity = 1 << 17;
    struct Record {
        U64 index;
        Route route;
    };
    struct Ring {
        alignas(64) std::atomic<U64> head;
        alignas(64) std::atomic<bool> sleeps;
        std::atomic<bool> ready;
        alignas(64) Record records[capacity];
    };

    void read() {
        std::vector<Route> kept(routes_);
        std::function<void(Route const&)> const callback = [this](Route const& route) {
            used(&route);
            tellOne();
        };
        ring_->ready = true;
        for (U64 at = 0;;) {
            U64 const head = ring_->head.load(std::memory_order_acquire);
            for (; at < head; ++at) {
                Record const& record = ring_->records[at % capacity];
                std::memcpy(static_cast<void*>(&kept[record.index]), &record.route, sizeof(Route));
                callback(kept[record.index]);
            }
            if (spins_) continue;
            ring_->sleeps.store(true, std::memory_order_relaxed);
            std::atomic_thread_fence(std::memory_order_seq_cst);
            if (ring_->head.load(std::memory_order_relaxed) != at) {
                ring_->sleeps.store(false, std::memory_order_relaxed);
                continue; // a bell that was rung meanwhile wakes us once for nothing
            }
            char bell;
            while (recv(ends_[1], &bell, 1, 0) < 0 && errno == EINTR) {
            }
        }
    }

    std::vector<Route> const& routes_;
    bool spins_;
    std::vector<Route> kept_;
    SharedPages ringPages_{sizeof(Ring)};
    Ring* const ring_ = new (ringPages_.data()) Ring{};
    int ends_[2];
    std::unique_ptr<Reader> reader_;
};

// The first sync of a shadow that hears of nothing until it is complete, beside a copy of the slot
// file into fresh private memory. Processor time, each in a process of its own.
void measureFirstSync(Options const& options, std::vector<Row>& rows) {
    auto const trace = Dunlin::Platform::getDebugHandler("bench", false);
    constexpr char const* name = "bench/sync";
    Writer writer(*trace, name, Brisk::MapDescriptor(syncEntries), Table::Ops{}, Table::typeName,
                  std::function<void(bool)>{});
    if (!writer.initialize("bench")) throw std::runtime_error("cannot make the table");
    for (U32 const i : shuffled(syncEntries, options.seed)) writer.write(routeOf(i), true);
    std::string const file = writer.rootPath().file("slots");
    std::vector<double> syncs, copies;
    for (U32 round = 0; round < options.rounds; ++round) {
        copies.push_back(inReader([&] {
            U64 const start = processorNs();
            int const fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
            struct stat status {};
            if (fd < 0 || fstat(fd, &status) != 0) throw std::runtime_error("no slot file");
            auto const size = static_cast<std::size_t>(status.st_size);
            void* const to =
                mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            for (std::size_t done = 0; done < size;) {
                auto const got = read(fd, static_cast<char*>(to) + done, size - done);
                if (got <= 0) throw std::runtime_error("cannot read the slot file");
                done += static_cast<std::size_t>(got);
            }
            used(to);
            return static_cast<double>(processorNs() - start);
        }));
        syncs.push_back(inReader([&] {
            U64 const start = processorNs();
            Front front(name, Table::typeName);
            front.init(Brisk::BriskType::valueShadow, false, 1);
            if (front.members() != syncEntries) throw std::runtime_error("not synchronised");
            return static_cast<double>(processorNs() - start);
        }));
    }
    rows.push_back({"first sync, each entry", syncEntries, median(syncs) / syncEntries, "ns",
                    median(copies) / syncEntries, "copy of the slot file", 3});
}

} // namespace

void measureNotifications(Options const& options, std::vector<Row>& rows) {
    std::string const directory = fmt::format("/dev/shm/cairn-bench-notify-{}", getpid());
    Dunlin::Util::baseDirectoryIs(directory);
    std::vector<Route> routes;
    for (U32 i = 0; i < burstKeys; ++i) routes.push_back(routeOf(i));
    auto const order = shuffled(burstKeys, options.seed);
    {
        ShadowRoad shadow(routes);
        RingRoad blocking(routes, false);
        auto const rounds = [&](auto measure) {
            std::vector<double> ours, ring;
            for (U32 round = 0; round <= options.rounds; ++round) {
                double const a = measure(blocking), b = measure(shadow);
                if (round) ring.push_back(a), ours.push_back(b);
            }
            return std::pair(median(ours), median(ring));
        };
        auto const latency = rounds([](Road& road) { return road.latency(); });
        auto const burst = rounds([&](Road& road) { return road.burst(order); });
        // The one that spins has its processor for itself.
        double spinLatency = 0, spinBurst = 0;
        {
            RingRoad spinning(routes, true);
            std::vector<double> a, b;
            for (U32 round = 0; round < options.rounds; ++round) {
                a.push_back(spinning.latency());
                b.push_back(spinning.burst(order));
            }
            spinLatency = median(a);
            spinBurst = median(b);
        }
        rows.push_back({"told of a change", burstKeys, latency.first, "ns", latency.second,
                        "ring, reader sleeps", 1.1});
        rows.push_back({"told of a change", burstKeys, latency.first, "ns", spinLatency,
                        "ring, reader spins", 0});
        rows.push_back({"told of a burst, each key", burstKeys, burst.first, "ns", burst.second,
                        "ring, reader sleeps", 1 / 0.7});
        rows.push_back({"told of a burst, each key", burstKeys, burst.first, "ns", spinBurst,
                        "ring, reader spins", 0});
    }
    measureFirstSync(options, rows);
    std::filesystem::remove_all(directory);
}

} // namespace Bench
