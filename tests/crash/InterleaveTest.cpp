// One preemption, everywhere: a writer interrupted before each of its stores by a whole read, and a
// reader interrupted before each of its loads by a whole write. Complete for the operations below.
#include "crash/SteppedTable.h"

#include "Dunlin/Util.h"

#include <unistd.h>

#include <filesystem>
#include <map>

namespace {

using stepped::Key;
using Ops = stepped::Ops64;
using Value = Ops::Value;
using Writer = Brisk::BriskWriter<Ops>;
using Reader = Brisk::BriskReader<Ops>;
using Model = std::map<U32, U32>;
constexpr U32 absent = 0xffffffff; // no stamp

U64 countdown = 0;
std::function<void()> interruption;

void interruptOnce() {
    if (countdown == 0 || --countdown != 0) return;
    interruption();
}

// Three keys a chain: hashes agree in their low 12 bits in groups of three.
Key keyOf(U32 id) { return {id, id / 3 * 0x9e37U + (id % 3 << 12)}; }

class Interleave : public testing::Test {
protected:
    struct WriterOperation {
        char const* name;
        U32 entries;          // ids 0 up, put before
        U32 removedFromBelow; // of these, taken out again
        std::function<void(Writer&, Model&)> run;
        bool resizes;
    };
    struct ReaderOperation {
        char const* name;
        // Judges what it reads: every key with the same state in both models must show it, any
        // other the one or the other.
        std::function<void(Interleave&, Reader&, Model const& before, Model const& after)> run;
    };

    Interleave() {
        std::string pattern = "/dev/shm/cairn-inter-XXXXXX";
        base_ = ::mkdtemp(pattern.data());
        Dunlin::Util::baseDirectoryIs(base_);
    }
    ~Interleave() override {
        Mem::StepHooks::onLoad = Mem::StepHooks::onStore = nullptr;
        Dunlin::Util::baseDirectoryIs("");
        std::filesystem::remove_all(base_);
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

    // A table, its reader, and the models around one operation.
    struct Scene {
        std::unique_ptr<Writer> writer;
        std::unique_ptr<Reader> reader;
        Model before, after;
    };
    Scene scene(WriterOperation const& operation) {
        std::filesystem::remove_all(base_ + "/table");
        Brisk::MapDescriptor d(4096);
        d.shrinkable = true;
        d.shrinkBuckets = true;
        Scene s;
        s.writer = std::make_unique<Writer>(*handler_, "table", d, Ops{}, "Stepped", Dunlin::noop);
        s.writer->initialize("");
        for (U32 id = 0; id < operation.entries; ++id) put(*s.writer, s.before, id, id + 1);
        for (U32 id = 0; id < operation.removedFromBelow; ++id) drop(*s.writer, s.before, id);
        s.reader = std::make_unique<Reader>(*handler_, "table", Ops{}, nullptr);
        EXPECT_TRUE(s.reader->initialize(""));
        bool found;
        s.reader->lookup(keyOf(0), found, nullptr); // maps the whole file
        s.after = s.before;
        return s;
    }
    // What the operation does to the model, tried on a table of its own.
    Model resultOf(WriterOperation const& operation) {
        Scene s = scene(operation);
        operation.run(*s.writer, s.after);
        return s.after;
    }

    static U32 state(Model const& m, U32 id) {
        auto const found = m.find(id);
        if (found == m.end()) return absent;
        return found->second;
    }
    static void judge(U32 id, U32 seen, Model const& before, Model const& after) {
        ASSERT_TRUE(seen == state(before, id) || seen == state(after, id))
            << "key " << id << (seen == absent ? std::string(" is missed") : " has " + std::to_string(seen));
    }
    static void lookups(Reader& r, Model const& before, Model const& after) {
        U32 const last = std::max(before.empty() ? 0 : before.rbegin()->first,
                                  after.empty() ? 0 : after.rbegin()->first);
        for (U32 id = 0; id <= last + 2; ++id) {
            bool found = false;
            Value out;
            r.lookup(keyOf(id), found, &out);
            ASSERT_TRUE(!found || (out.whole() && out.key() == keyOf(id)));
            judge(id, found ? out.stamp() : absent, before, after);
        }
    }
    static void walks(Reader& r, Model const& before, Model const& after, bool resized) {
        Model seen;
        Value value;
        Brisk::IterHint hint;
        for (bool more = r.first(value, hint); more; more = r.next(value.key(), value, hint)) {
            ASSERT_TRUE(value.whole());
            bool const fresh = seen.emplace(value.key().id, value.stamp()).second;
            ASSERT_TRUE(fresh || resized) << "key " << value.key().id << " twice";
        }
        for (auto const& [id, stamp] : before)
            if (state(after, id) == stamp) {
                ASSERT_EQ(state(seen, id), stamp) << "key " << id;
            }
        for (auto const& [id, stamp] : seen) judge(id, stamp, before, after);
    }
    // By slot number, as a shadow reads: nothing torn, nothing that was never there.
    static void bySlot(Reader& r, Model const& before, Model const& after) {
        U32 const slots = r.capacity();
        for (U32 i = 0; i < slots; ++i) {
            Value value;
            if (!r.getValue(i, value, nullptr)) continue;
            ASSERT_TRUE(value.whole()) << "slot " << i;
            judge(value.key().id, value.stamp(), before, after);
        }
    }

    std::vector<WriterOperation> writerOperations() const {
        return {
            {"insert", 9, 0, [](Writer& w, Model& m) { put(w, m, 9, 7); }, false},
            {"insert before", 9, 1, [](Writer& w, Model& m) { put(w, m, 0, 7); }, false},
            {"overwrite", 9, 0, [](Writer& w, Model& m) { put(w, m, 4, 77); }, false},
            {"two overwrites", 9, 0,
             [](Writer& w, Model& m) {
                 put(w, m, 4, 77);
                 put(w, m, 5, 78);
             },
             false},
            {"remove", 9, 0, [](Writer& w, Model& m) { drop(w, m, 4); }, false},
            {"remove and reuse", 9, 0,
             [](Writer& w, Model& m) {
                 drop(w, m, 4);
                 put(w, m, 40, 8);
             },
             false},
            {"slot growth", 32, 0, [](Writer& w, Model& m) { put(w, m, 32, 7); }, true},
            {"bucket growth", 16, 0, [](Writer& w, Model& m) { put(w, m, 16, 7); }, true},
            {"slot moves", 128, 96, [](Writer& w, Model& m) { drop(w, m, 96); }, true},
            {"bucket halving", 17, 9, [](Writer& w, Model& m) { drop(w, m, 9); }, true},
        };
    }

    std::string base_;
    std::shared_ptr<Dunlin::Platform::DebugHandler> handler_ =
        Dunlin::Platform::getDebugHandler("InterleaveTest", true);
};

TEST_F(Interleave, WholeReadBeforeEachStoreOfAWriter) {
    for (auto const& operation : writerOperations()) {
        SCOPED_TRACE(operation.name);
        Model const after = resultOf(operation);
        U64 step = 1;
        for (;; ++step) {
            Scene s = scene(operation);
            bool reached = false;
            interruption = [&] {
                reached = true;
                lookups(*s.reader, s.before, after);
                walks(*s.reader, s.before, after, operation.resizes);
                bySlot(*s.reader, s.before, after);
            };
            countdown = step;
            Mem::StepHooks::onStore = interruptOnce;
            operation.run(*s.writer, s.after);
            Mem::StepHooks::onStore = nullptr;
            ASSERT_FALSE(HasFailure()) << "before store " << step;
            if (!reached) break;
        }
        std::printf("%-18s: a read before each of %llu stores\n", operation.name,
                    static_cast<unsigned long long>(step - 1));
        EXPECT_GT(step, 8U);
    }
}

TEST_F(Interleave, WholeWriteBeforeEachLoadOfAReader) {
    struct {
        char const* name;
        std::function<void(Reader&, Model const&, Model const&, bool)> run;
    } const reads[] = {
        {"lookup", [](Reader& r, Model const& b, Model const& a, bool) { lookups(r, b, a); }},
        {"walk", [](Reader& r, Model const& b, Model const& a, bool z) { walks(r, b, a, z); }},
        {"by slot", [](Reader& r, Model const& b, Model const& a, bool) { bySlot(r, b, a); }},
    };
    for (auto const& operation : writerOperations())
        for (auto const& read : reads) {
            SCOPED_TRACE(std::string(operation.name) + " inside " + read.name);
            Model const after = resultOf(operation);
            U64 step = 1;
            for (;; ++step) {
                Scene s = scene(operation);
                bool reached = false;
                interruption = [&] {
                    reached = true;
                    operation.run(*s.writer, s.after);
                };
                countdown = step;
                Mem::StepHooks::onLoad = interruptOnce;
                read.run(*s.reader, s.before, after, operation.resizes);
                Mem::StepHooks::onLoad = nullptr;
                ASSERT_FALSE(HasFailure()) << "before load " << step;
                if (!reached) break;
                lookups(*s.reader, after, after);
                ASSERT_FALSE(HasFailure()) << "after an interruption before load " << step;
            }
            std::printf("%-18s inside %-8s: before each of %llu loads\n", operation.name,
                        read.name, static_cast<unsigned long long>(step - 1));
            EXPECT_GT(step, 8U);
        }
}

} // namespace
