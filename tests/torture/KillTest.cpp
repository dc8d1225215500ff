// Writers killed at any moment, and two that want the same table.
#include "tests/support/Crew.h"
#include "tests/torture/Scenarios.h"

#include "SharedMem/WriterLock.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Support;
using T = Table<160>;
using Value = T::Value;

constexpr U32 keys = 2000;
constexpr U32 absent = 0;

// The judge: what each key must hold, kept outside the table by the writer itself. The operation
// under way is announced before it begins and entered when it is done, so at most one key is open.
struct Ledger {
    Complaint complaint;
    std::atomic<bool> stop;
    std::atomic<U64> reads;
    std::atomic<U64> operations;
    std::atomic<U32> stampOf[keys]; // absent: not there
    std::atomic<U32> openKey;       // keys: none
    std::atomic<U32> openStamp;
    std::atomic<U32> orielId;
    std::atomic<U32> kept, madeAnew;
    std::atomic<S64> killedAtUs; // 0: not yet
    std::atomic<S64> slowestUs;  // from a kill to the successor's table
    std::atomic<U32> in50Ms;     // successors that had it so soon
};

Brisk::MapDescriptor settings() {
    Brisk::MapDescriptor descriptor(4096);
    descriptor.shrinkable = true;
    descriptor.shrinkBuckets = true;
    return descriptor;
}

// Compares the table that a successor found with the ledger, and settles the open key.
void judge(T::Writer& writer, Ledger& ledger) {
    State const found = T::walked(writer);
    U32 const before = ledger.orielId;
    ledger.orielId = writer.orielId();
    if (before != 0 && writer.orielId() != before) {
        if (!found.empty()) ledger.complaint.say("a new generation with {} entries", found.size());
        for (auto& stamp : ledger.stampOf) stamp = absent;
        ledger.openKey = keys;
        ++ledger.madeAnew;
        return;
    }
    for (U32 key = 0; key < keys; ++key) {
        auto const place = found.find(key);
        U32 const stamp = place == found.end() ? absent : place->second;
        if (stamp == ledger.stampOf[key]) continue;
        if (key == ledger.openKey && stamp == ledger.openStamp) {
            ledger.stampOf[key] = stamp;
            continue;
        }
        ledger.complaint.say("key {} holds {} and should hold {}", key, stamp,
                             ledger.stampOf[key].load());
    }
    ledger.openKey = keys;
    ++ledger.kept;
}

S64 nowUs() {
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

int churn(Ledger& ledger, U32 seed) {
    auto writer = T::writer("kill", settings());
    if (!writer->initialize("successor")) return 1;
    if (ledger.killedAtUs) {
        S64 const time = nowUs() - ledger.killedAtUs;
        ledger.slowestUs = std::max(ledger.slowestUs.load(), time);
        ledger.in50Ms += time <= 50'000;
    }
    judge(*writer, ledger);
    std::mt19937 random(seed);
    Value old;
    U32 target = 1500; // fills and empties in turn, so that everything grows and shrinks
    U32 count = writer->members();
    while (true) {
        U32 const key = static_cast<U32>(random()) % keys;
        bool const there = ledger.stampOf[key] != absent;
        bool const removing = (count > target) != (random() % 8 == 0);
        if (removing && !there) continue;
        ledger.openStamp = removing ? absent : 1 + static_cast<U32>(random()) % 0x7fffffff;
        ledger.openKey = key;
        if (removing) {
            if (!writer->remove(TestKey(key), old))
                ledger.complaint.say("key {} was not there", key);
            --count;
        } else if (random() % 4 == 0) {
            writer->directWrite(Value(key, ledger.openStamp));
            writer->directCommit();
            count += !there;
        } else {
            writer->write(Value(key, ledger.openStamp), true);
            count += !there;
        }
        ledger.stampOf[key] = ledger.openStamp.load();
        ledger.openKey = keys;
        if (++ledger.operations % 4096 == 0) target = static_cast<U32>(random()) % keys;
    }
}

int readOn(Ledger& ledger) {
    auto reader = T::reader("kill");
    std::mt19937 random(static_cast<U32>(getpid()));
    while (!ledger.stop) {
        // A replaced table is attached to anew, as the front does at its sentry's word.
        if (reader->initialized() && reader->replaced()) reader->detach(false);
        if (!reader->initialized() && !reader->initialize("reader")) continue;
        for (int i = 0; i < 100; ++i) {
            U32 const key = static_cast<U32>(random()) % keys;
            Value value;
            bool found = false;
            reader->lookup(TestKey(key), found, &value);
            if (found && (value.key().id != key || !value.whole()))
                ledger.complaint.say("torn record of key {}", key);
        }
        if (T::walked(*reader).size() > keys) ledger.complaint.say("a walk met more than there is");
        ++ledger.reads;
    }
    return 0;
}

TEST(Crash, KilledAtRandomUnderChurnKeepsWhatTheLedgerSays) {
    TempBase const base;
    SharedBlock<Ledger> ledger;
    ledger->openKey = keys;
    Crew readers(ledger->complaint, ledger->stop);
    for (int i = 0; i < 2; ++i) readers.add([&] { return readOn(*ledger); });
    // In the tests 50 kills; in a soak as many as fit, 1,000 at least.
    std::mt19937 random(11);
    U32 kills = 0;
    while (!ledger->complaint.any() &&
           (soaking() ? kills < 1000 || !readers.ranFor(soakSeconds(0)) : kills < 50)) {
        U64 const before = ledger->operations;
        Child writer([&](Child&) { return churn(*ledger, kills); });
        auto const patience = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (ledger->operations == before && std::chrono::steady_clock::now() < patience)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 30'000));
        ledger->killedAtUs = nowUs();
        writer.signal(SIGKILL);
        ASSERT_EQ(writer.join(), 1000 + SIGKILL) << "the writer ended by itself";
        ++kills;
    }
    Child last([&](Child&) {
        auto writer = T::writer("kill", settings());
        if (!writer->initialize("last")) return 1;
        judge(*writer, *ledger);
        return writer->validate() ? 0 : 2;
    });
    EXPECT_EQ(last.join(), 0);
    readers.finish();
    counted("{} SIGKILLs of a writer in {} operations: table kept {} times, made anew {} times; a "
            "successor had it "
            "within 50 ms {} times, after {} ms at most; {} reading rounds",
            kills, ledger->operations.load(), ledger->kept.load(), ledger->madeAnew.load(),
            ledger->in50Ms.load(), ledger->slowestUs / 1000, ledger->reads.load());
    EXPECT_GT(ledger->kept.load(), 0U);
    EXPECT_GT(ledger->reads.load(), 0U);
}

TEST(Crash, OfTwoWritersThatRaceExactlyOneWins) {
    TempBase const base;
    Mem::WriterLock::waitIs(0.02);
    U32 const races = soaking() ? 1000 : 100;
    for (U32 race = 0; race < races; ++race) {
        std::string const name = fmt::format("race/{}", race % 8); // new tables and known ones
        auto const contender = [&](Child& self) {
            auto writer = T::writer(name, Brisk::MapDescriptor(64));
            self.step();
            bool won = false;
            try {
                won = writer->initialize("race");
            } catch (Dunlin::InvalidInitializeException const&) {
            }
            self.step(won); // both stay until both have tried
            return 0;
        };
        Child first(contender), second(contender);
        first.hear();
        second.hear();
        first.tell(0);
        second.tell(0);
        S64 const winners = first.hear() + second.hear();
        first.tell(0);
        second.tell(0);
        ASSERT_EQ(first.join(), 0);
        ASSERT_EQ(second.join(), 0);
        ASSERT_EQ(winners, 1) << "race " << race;
    }
    Mem::WriterLock::waitIs(2);
    counted("{} races of two writers, each with one winner", races);
}

} // namespace
