// Shadows in other processes under a random load: what a client is told, kept in a map of its own
// made from the callbacks alone, is the table whenever the writer rests. Clients are stopped at any
// moment, and for so long that the queue runs over them.
#include "Brisk/FrontFixture.h"
#include "support/Crew.h"

namespace {

using namespace Support;

constexpr U32 keys = 4000;
constexpr U32 staying = 50; // keys 0 to staying - 1 are never removed
constexpr U32 clients = 4;
constexpr U64 maxLag = 1000;
constexpr bool takesEqual(U32 key) { // may be overwritten with what it holds
    return key % 8 == 0;
}

// What the writer has done, kept outside the table, and what the clients have seen. Stamps are
// numbers of the writer's own clock of changes.
struct Board {
    Complaint complaint;
    std::atomic<U32> stampOf[keys]; // 0: not there; entered after the change
    std::atomic<U32> removedAt[keys], writes[keys], equalWrites[keys]; // entered before
    std::atomic<U64> changes;
    std::atomic<U32> rest; // the number of the rest that the writer takes now or took last
    std::atomic<bool> resting, stop;
    std::atomic<U32> rests;
    std::atomic<U32> slotGrows, slotShrinks, slotMoves;
    struct Seen {
        std::atomic<bool> stopped;
        std::atomic<U64> changes; // everything up to here has been told
        std::atomic<U32> rest;
        std::atomic<U64> updates, deletes, resyncs, discarded;
    } seen[clients];
};

class Load : public Fronts {
public:
    int write(unsigned seed) {
        MapDescriptor settings = writerSettings(true);
        settings.pruneMode = Yarrow::PruneMode::bounded;
        settings.maxLag = maxLag;
        auto w = writer(settings);
        std::mt19937 random(seed);
        auto const any = [&](U32 below) { return static_cast<U32>(random() % below); };
        U32 now = 0, count = 0, target = 0;
        auto const put1 = [&](U32 key) {
            bool const there = board_->stampOf[key] != 0;
            bool const equal = there && takesEqual(key) && any(2) == 0;
            U32 const stamp = equal ? board_->stampOf[key].load() : ++now;
            ++board_->writes[key];
            if (equal) ++board_->equalWrites[key];
            put(*w, key, stamp);
            board_->stampOf[key] = stamp;
            count += !there;
        };
        auto const drop1 = [&](U32 key) {
            board_->removedAt[key] = ++now;
            if (!drop(*w, key)) board_->complaint.say("key {} was not there", key);
            board_->stampOf[key] = 0;
            --count;
        };
        for (U32 key = 0; key < staying; ++key) put1(key);
        for (U64 changes = 0; !board_->stop && !board_->complaint.any();) {
            // Fills and empties in turn, so that the table grows and shrinks.
            if (changes / 20'000 != board_->changes / 20'000 || target == 0)
                target = any(2) ? keys - any(1000) : staying + any(100);
            changes = board_->changes;
            for (U32 burst = any(4) ? any(300) : any(3000); burst > 0;) {
                U32 const key = any(keys);
                bool const there = board_->stampOf[key] != 0;
                bool const removing = (count > target) != (any(8) == 0);
                if (removing ? !there || key < staying : !there && count > target + 200) {
                    burst -= any(4) == 0;
                    continue;
                }
                if (removing)
                    drop1(key);
                else
                    put1(key);
                // The slot freed last is taken first: by the same key, or by another.
                if (removing && any(4) == 0) put1(any(2) ? key : any(keys)), ++board_->changes;
                ++board_->changes;
                --burst;
            }
            loop().runOnce(0);
            if (any(60) == 0) rest();
            pace();
        }
        rest();
        auto const counters = w->writerCounters();
        board_->slotGrows = counters.slotGrows;
        board_->slotShrinks = counters.slotShrinks;
        board_->slotMoves = counters.slotMoves;
        if (!w->validate()) board_->complaint.say("the table is not sound");
        board_->rest = ~0U;
        await("never left", [](Board::Seen const& seen) { return seen.rest == ~0U; });
        return 0;
    }

    int follow(U32 number) {
        bool const values = number % 2 == 0;
        MapDescriptor settings =
            shadowSettings(values ? BriskType::valueShadow : BriskType::keyShadow);
        settings.asyncAlways = number >= 2;
        TestMap front(name_, "TestValue");
        if (number >= 2) front.yieldTimeIs(0.0001);
        auto& seen = board_->seen[number];
        std::vector<U32> known(keys), told(keys), toldEqual(keys);
        auto const complain = [&](char const* what, U32 key, U64 stamp) {
            board_->complaint.say("client {}: {}: key {} known with {}, now {}, removed at {}",
                                  number, what, key, known[key], stamp,
                                  board_->removedAt[key].load());
        };
        auto const changed = [&](U32 key, U32 stamp) {
            ++seen.updates;
            if (stamp < known[key]) complain("went back", key, stamp);
            // Nothing is told without a difference, except what was written without one.
            if (values && stamp == known[key] &&
                (!takesEqual(key) || ++toldEqual[key] > board_->equalWrites[key]))
                complain("told without a change", key, stamp);
            if (values && ++told[key] > board_->writes[key]) complain("told too often", key, stamp);
            known[key] = stamp;
        };
        front.valueNotifyIs([&](TestValue const& value) {
            if (!value.whole()) complain("torn value", value.key().id, value.stamp());
            changed(value.key().id, static_cast<U32>(value.stamp()));
        });
        front.keyNotifyIs([&](TestKey const& key) {
            bool found = false;
            TestValue into;
            TestValue const* const value = front.table().lookup(key, found, &into);
            if (!found) complain("told as there, not found", key.id, 0);
            changed(key.id, static_cast<U32>(value->stamp()));
        });
        front.deleteNotifyIs([&](TestKey const& key) {
            ++seen.deletes;
            bool found = true;
            front.table().lookup(key, found, nullptr);
            if (found) complain("told as gone, found", key.id, 0);
            if (known[key.id] == 0) complain("deleted twice", key.id, 0);
            // It was away at some time after it was as it is known.
            if (board_->removedAt[key.id] <= known[key.id]) complain("never absent", key.id, 0);
            known[key.id] = 0;
        });
        std::string statuses;
        front.mountStatusNotifyIs([&] { statuses += std::to_string(U32(front.mountStatus())); });
        front.init(settings);
        while (board_->rest != ~0U && !board_->complaint.any()) {
            U64 const changes = board_->changes;
            U32 const rest = board_->rest;
            loop().runOnce(0.002);
            auto const* const shadow = dynamic_cast<TestShadow const*>(&front.table());
            if (!shadow || !shadow->connected() || !shadow->quiesced()) continue;
            seen.changes = changes;
            seen.resyncs = shadow->resyncs();
            seen.discarded = front.readerCounters().discardedSlots;
            if (shadow->lateWakes() != 0) board_->complaint.say("client {}: a late wake", number);
            if (rest == seen.rest || rest == ~0U) continue;
            for (U32 key = 0; key < keys; ++key)
                if (known[key] != board_->stampOf[key])
                    complain("at rest", key, board_->stampOf[key]);
            U32 count = 0;
            for (auto const& [key, stamp] : contents(front.table()))
                count += known[key] == stamp ? 1 : keys;
            if (count != front.members() || !shadow->store()->sound())
                board_->complaint.say("client {}: its store is not sound", number);
            seen.rest = rest;
        }
        // The writer never went, so the client heard of nothing but its first synchronisation.
        if (!board_->complaint.any() && statuses.find_first_of("03") != std::string::npos)
            board_->complaint.say("client {}: statuses {}", number, statuses);
        seen.rest = ~0U;
        return 0;
    }

    SharedBlock<Board> board_;

private:
    // Until `condition` holds for each client.
    template <class Condition>
    void await(char const* what, Condition condition) {
        double const end = loop().now() + 60;
        for (U32 i = 0; i < clients && !board_->complaint.any(); ++i) {
            while (!condition(board_->seen[i]) && !board_->complaint.any()) {
                loop().runOnce(0.001);
                if (loop().now() > end) board_->complaint.say("client {} {}", i, what);
            }
        }
    }
    void pace() {
        await("never caught up", [&](Board::Seen const& seen) {
            return seen.stopped || seen.changes + 2 * maxLag >= board_->changes || board_->stop;
        });
    }
    void rest() {
        U32 const number = board_->rest + 1;
        board_->rest = number;
        board_->resting = true;
        // Also for one that is stopped meanwhile: it would come to rest too late.
        await("never came to rest", [&](Board::Seen const& seen) { return seen.rest == number; });
        board_->resting = false;
        ++board_->rests;
    }
};

TEST_F(Load, ShadowsAreExactUnderRandomLoadStopsAndOvertakes) {
    char const* const chosen = std::getenv("SEED");
    unsigned const seed =
        chosen ? static_cast<unsigned>(std::atoi(chosen)) : std::random_device{}();
    SCOPED_TRACE(testing::Message() << "SEED=" << seed);
    bool const soak = soaking();
    U64 const changesWanted = soak ? 10'000'000 : 500'000, overtakesWanted = soak ? 1000 : 20,
              stopsWanted = soak ? 1000 : 20;
    Crew crew(board_->complaint, board_->stop);
    for (U32 i = 0; i < clients; ++i) crew.add([&, i] { return follow(i); });
    crew.add([&] { return write(seed); });
    std::mt19937 random(seed + 1);
    U64 stops = 0, overtakes = 0;
    auto const wait = [&](auto condition) {
        for (int i = 0; i < 20'000 && !condition() && !board_->complaint.any(); ++i)
            std::this_thread::sleep_for(std::chrono::microseconds(500));
    };
    wait([&] { return board_->changes > 1000; });
    while (!board_->complaint.any() &&
           (board_->changes < changesWanted || overtakes < overtakesWanted || stops < stopsWanted ||
            !crew.ranFor(soakSeconds(0)))) {
        auto const at = random() % clients;
        auto& seen = board_->seen[at];
        crew[at].signal(SIGSTOP);
        seen.stopped = true;
        U64 const until = board_->changes + (random() % 2 ? 6 * maxLag : random() % maxLag);
        wait([&] { return board_->changes >= until || board_->resting; });
        crew[at].signal(SIGCONT);
        seen.stopped = false;
        ++stops;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
        overtakes = 0;
        for (auto const& s : board_->seen) overtakes += s.resyncs;
    }
    crew.finish();
    counted("shadows, seed {}: {} changes, {} stops, {} overtakes, {} rests, {} slot "
            "grows, {} shrinks, "
            "{} moves",
            seed, board_->changes.load(), stops, overtakes, board_->rests.load(),
            board_->slotGrows.load(), board_->slotShrinks.load(), board_->slotMoves.load());
    for (U32 i = 0; i < clients; ++i) {
        auto const& seen = board_->seen[i];
        counted("  {} shadow{}: {} updates, {} deletes, {} resyncs, {} discarded",
                i % 2 ? "key" : "value", i >= 2 ? ", sliced" : "", seen.updates.load(),
                seen.deletes.load(), seen.resyncs.load(), seen.discarded.load());
        EXPECT_GT(seen.deletes.load(), 0U);
    }
    EXPECT_GT(board_->slotShrinks.load(), 0U);
}

} // namespace
