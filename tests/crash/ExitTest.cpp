// A writer that stops for good before each of its stores and file changes, for every operation and
// three slot sizes. What a reader that was attached then sees, and what the next writer makes of it.
#include "crash/SteppedTable.h"

#include "Dunlin/Util.h"
#include "SharedMem/Clone.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>

namespace {

using stepped::Key;
using Model = std::map<U32, U32>; // key id to stamp
constexpr U32 absent = 0xffffffff; // no stamp

constexpr int stoppedCode = 77;
U64 stepsLeft = 0;

void stopWhenDone() {
    if (--stepsLeft == 0) ::_exit(stoppedCode);
}

// Ids spread over the buckets, with a few that share a chain: ids of one residue modulo 7 have
// neighbouring hashes.
Key keyOf(U32 id) { return {id, id * 0x9e3779b1U ^ (id % 7 == 0 ? 0U : id)}; }

template <class OpsType>
class Exit : public testing::Test {
public:
    using Ops = OpsType;
    using Value = typename Ops::Value;
    using Writer = Brisk::BriskWriter<Ops>;
    using Reader = Brisk::BriskReader<Ops>;
    using Action = std::function<void(Writer&)>;

    struct Operation {
        char const* name;
        // Brings the table to the state before, with its model; then the operation.
        std::function<void(Writer&, Model&)> prepare;
        std::function<void(Writer&, Model&)> run;
        bool sometimesReformatted = true;
        bool sometimesKept = true;
    };

    Exit() {
        std::string pattern = "/dev/shm/cairn-crash-XXXXXX";
        base_ = ::mkdtemp(pattern.data());
        Dunlin::Util::baseDirectoryIs(base_);
        Dunlin::traceSinkIs([](auto&&...) {});
    }
    ~Exit() override {
        Dunlin::traceSinkIs({});
        Dunlin::Util::baseDirectoryIs("");
        std::filesystem::remove_all(base_);
    }

    static Brisk::MapDescriptor descriptor() {
        Brisk::MapDescriptor d(4096);
        d.shrinkable = true;
        d.shrinkBuckets = true;
        return d;
    }
    std::unique_ptr<Writer> writer() {
        return std::make_unique<Writer>(*handler_, name_, descriptor(), Ops{}, "Stepped",
                                        Dunlin::noop);
    }
    std::unique_ptr<Reader> reader() {
        return std::make_unique<Reader>(*handler_, name_.c_str(), Ops{}, nullptr);
    }
    static void put(Writer& w, Model& m, U32 id, U32 stamp) {
        w.write(Value(keyOf(id), stamp), true);
        m[id] = stamp;
    }
    static void drop(Writer& w, Model& m, U32 id) {
        Value old;
        w.remove(keyOf(id), old);
        m.erase(id);
    }
    static void fill(Writer& w, Model& m, U32 from, U32 to) {
        for (U32 id = from; id < to; ++id) put(w, m, id, id + 1);
    }

    template <class T>
    static Model walk(T const& table) {
        Model seen;
        Value value;
        Brisk::IterHint hint;
        for (bool more = table.first(value, hint); more;
             more = table.next(Key(value.key()), value, hint)) {
            EXPECT_TRUE(value.whole());
            EXPECT_TRUE(seen.emplace(value.key().id, value.stamp()).second);
        }
        return seen;
    }

    // Every key that the operation does not touch is found as it was; one that it touches is in its
    // state before or after.
    static void expectBeforeOrAfter(Reader const& r, Model const& before, Model const& after) {
        std::set<U32> ids;
        for (auto const& [id, stamp] : before) ids.insert(id);
        for (auto const& [id, stamp] : after) ids.insert(id);
        auto const state = [](Model const& m, U32 id) -> U32 {
            auto const found = m.find(id);
            if (found == m.end()) return absent;
            return found->second;
        };
        Model const walked = walk(r);
        for (U32 const id : ids) {
            bool found = false;
            Value out;
            r.lookup(keyOf(id), found, &out);
            auto const seen = found ? out.stamp() : absent;
            ASSERT_TRUE(seen == state(before, id) || seen == state(after, id)) << "key " << id;
            ASSERT_TRUE(!found || out.whole());
            ASSERT_TRUE(state(walked, id) == state(before, id) ||
                        state(walked, id) == state(after, id))
                << "walk, key " << id;
        }
        for (auto const& [id, stamp] : walked) ASSERT_TRUE(ids.contains(id));
    }

    // Runs the operation in a child that stops before its `stop`-th step. False once there are no
    // more steps.
    bool stopAt(Operation const& operation, U64 stop, Model const& before, Model const& after,
                U32& kept, U32& reformatted) {
        std::filesystem::remove_all(base_ + "/" + name_);
        int ready[2], go[2];
        EXPECT_EQ(::pipe(ready), 0);
        EXPECT_EQ(::pipe(go), 0);
        pid_t const child = ::fork();
        if (child == 0) {
            char c = 'r';
            Model m;
            auto w = writer();
            w->initialize("child");
            operation.prepare(*w, m);
            if (::write(ready[1], &c, 1) != 1 || ::read(go[0], &c, 1) != 1) ::_exit(1);
            stepsLeft = stop;
            Mem::StepHooks::onStore = stopWhenDone;
            operation.run(*w, m);
            Mem::StepHooks::onStore = nullptr;
            ::_exit(0);
        }
        char c;
        EXPECT_EQ(::read(ready[0], &c, 1), 1);
        auto r = reader();
        bool const attached = r->initialize("before");
        U32 const oriel = r->orielId();
        if (attached) {
            EXPECT_EQ(walk(*r), before);
        }
        EXPECT_EQ(::write(go[1], "g", 1), 1);
        int status = 0;
        ::waitpid(child, &status, 0);
        for (int const fd : {ready[0], ready[1], go[0], go[1]}) ::close(fd);
        EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
        int const code = WEXITSTATUS(status);
        EXPECT_TRUE(code == 0 || code == stoppedCode) << code;
        if (attached) expectBeforeOrAfter(*r, before, after);

        auto w = writer();
        w->initialize("successor");
        Model const left = walk(*w);
        // A removal that lost all but the oriel file leaves its id to an empty table.
        bool const isKept = attached && w->orielId() == oriel && !left.empty();
        if (isKept) {
            ++kept;
            EXPECT_TRUE(left == before || left == after);
        } else {
            ++reformatted;
            EXPECT_TRUE(left.empty());
        }
        if (code == 0) {
            EXPECT_TRUE(isKept || after.empty()) << "a stop between operations loses no entry";
        }
        EXPECT_TRUE(w->validate()) << w->lastFinding();
        // The reader ends on what is there now.
        if (attached) {
            walk(*r);
            EXPECT_EQ(r->replaced(), !isKept);
        }
        auto fresh = reader();
        EXPECT_TRUE(fresh->initialize("after"));
        EXPECT_EQ(walk(*fresh), left);
        return code == stoppedCode && !this->HasFailure();
    }

    void everyStop(Operation const& operation) {
        SCOPED_TRACE(operation.name);
        Model before, after;
        std::filesystem::remove_all(base_ + "/" + name_);
        {
            auto w = writer();
            w->initialize("model");
            operation.prepare(*w, after);
            before = after;
            operation.run(*w, after);
        }
        U32 kept = 0, reformatted = 0;
        U64 stop = 1;
        while (stopAt(operation, stop, before, after, kept, reformatted)) ++stop;
        EXPECT_FALSE(this->HasFailure()) << operation.name << " stopped before step " << stop;
        EXPECT_GT(stop, 1U);
        EXPECT_EQ(kept > 0, operation.sometimesKept) << kept;
        EXPECT_EQ(reformatted > 0, operation.sometimesReformatted) << reformatted;
        std::printf("%-14s slot size %3u: %4llu stops, %u kept, %u formatted anew\n",
                    operation.name, Brisk::SlotTable<Value>::slotSize,
                    static_cast<unsigned long long>(stop), kept, reformatted);
    }

    std::string base_;
    std::string name_ = "table";
    std::shared_ptr<Dunlin::Platform::DebugHandler> handler_ =
        Dunlin::Platform::getDebugHandler("ExitTest", true);
};

using Sizes = testing::Types<stepped::Ops32, stepped::Ops64, stepped::Ops176>;
TYPED_TEST_SUITE(Exit, Sizes);

TYPED_TEST(Exit, OfOneEntryAtEveryStore) {
    using T = Exit<TypeParam>;
    auto const ten = [](auto& w, Model& m) { T::fill(w, m, 0, 10); };
    this->everyStop({"insert", ten, [](auto& w, Model& m) { T::put(w, m, 10, 5); }});
    this->everyStop({"overwrite", ten, [](auto& w, Model& m) { T::put(w, m, 7, 99); }});
    this->everyStop({"remove", ten, [](auto& w, Model& m) { T::drop(w, m, 7); }});
    this->everyStop({"direct insert", ten, [](auto& w, Model& m) {
                         *w.directWrite(typename T::Value(keyOf(10), 4)) =
                             typename T::Value(keyOf(10), 5);
                         w.directCommit();
                         m[10] = 5;
                     }});
    this->everyStop({"direct update", ten, [](auto& w, Model& m) {
                         *w.directUpdate(keyOf(7)) = typename T::Value(keyOf(7), 99);
                         w.directCommit();
                         m[7] = 99;
                     }});
}

TYPED_TEST(Exit, OfAResizeAtEveryStore) {
    using T = Exit<TypeParam>;
    // The first count at which the next insert grows the slots (16, 32 or 64 by slot size).
    auto const full = [](auto& w, Model& m) { T::fill(w, m, 0, w.minSize()); };
    this->everyStop({"slot growth", full,
                     [](auto& w, Model& m) { T::put(w, m, 1000, 5); }});
    auto const bucketsFull = [](auto& w, Model& m) { T::fill(w, m, 0, w.buckets()); };
    this->everyStop({"bucket growth", bucketsFull,
                     [](auto& w, Model& m) { T::put(w, m, 1000, 5); }});
    // Three quarters of the slots go from the bottom up, so that the rest must move.
    auto const almostEmpty = [](auto& w, Model& m) {
        U32 const count = 4 * w.minSize();
        T::fill(w, m, 0, count);
        for (U32 id = 0; w.members() > count / 4; ++id) T::drop(w, m, id);
    };
    this->everyStop({"slot shrink", almostEmpty,
                     [](auto& w, Model& m) { T::drop(w, m, m.begin()->first); }});
    auto const fewEntries = [](auto& w, Model& m) {
        T::fill(w, m, 0, 17);
        while (w.members() > 8) T::drop(w, m, m.begin()->first);
    };
    this->everyStop({"bucket shrink", fewEntries,
                     [](auto& w, Model& m) { T::drop(w, m, m.begin()->first); }});
}

TYPED_TEST(Exit, OfTheLifeOfATableAtEveryStore) {
    using T = Exit<TypeParam>;
    auto const ten = [](auto& w, Model& m) { T::fill(w, m, 0, 10); };
    this->everyStop({"detach", ten, [](auto& w, Model&) { w.detach(false); }, false});
    this->everyStop({"attach",
                     [](auto& w, Model& m) {
                         T::fill(w, m, 0, 10);
                         w.detach(false);
                     },
                     [](auto& w, Model&) { w.initialize("again"); }, false});
    this->everyStop({"cleanup", ten, [](auto& w, Model& m) {
                         w.cleanup();
                         m.clear();
                     }});
}

// Formatting: the table is new, or its oriel file was lost, and the writer stops inside.
TYPED_TEST(Exit, OfFormattingAtEveryStore) {
    for (bool const existing : {false, true}) {
        SCOPED_TRACE(existing);
        U32 stops = 0;
        for (U64 stop = 1;; ++stop) {
            std::filesystem::remove_all(this->base_ + "/" + this->name_);
            auto r = this->reader();
            Model before;
            if (existing) {
                auto w = this->writer();
                w->initialize("first");
                this->fill(*w, before, 0, 10);
                ASSERT_TRUE(r->initialize("before"));
                ASSERT_EQ(this->walk(*r), before);
                w->detach(false);
                std::filesystem::remove(this->base_ + "/" + this->name_ + "/oriel");
            }
            pid_t const child = ::fork();
            if (child == 0) {
                auto w = this->writer();
                stepsLeft = stop;
                Mem::StepHooks::onStore = stopWhenDone;
                w->initialize("stopped");
                Mem::StepHooks::onStore = nullptr;
                Model m;
                this->fill(*w, m, 0, 3);
                ::_exit(0);
            }
            int status = 0;
            ::waitpid(child, &status, 0);
            ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status) << " stop " << stop;
            if (existing) {
                ASSERT_EQ(this->walk(*r), before) << "stop " << stop;
            }
            bool const stopped = WEXITSTATUS(status) == stoppedCode;
            auto w = this->writer();
            w->initialize("successor");
            Model const left = this->walk(*w);
            ASSERT_TRUE(left.empty() || left.size() == 3) << "stop " << stop;
            ASSERT_EQ(left.size() == 3, !stopped);
            ASSERT_TRUE(w->validate()) << w->lastFinding() << " stop " << stop;
            auto fresh = this->reader();
            ASSERT_TRUE(fresh->initialize("after")) << "stop " << stop;
            ASSERT_EQ(this->walk(*fresh), left);
            if (!stopped) break;
            ++stops;
        }
        std::printf("format %s, slot size %3u: %u stops\n", existing ? "over an old one" : "new",
                    Brisk::SlotTable<typename TestFixture::Value>::slotSize, stops);
        EXPECT_GT(stops, 50U);
    }
}

} // namespace
