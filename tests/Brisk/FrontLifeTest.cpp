// The life of a front, whatever ends a part of it: every role against every event. After each the
// client knows exactly what is there, the table can be had by others, and the front mounts again.
#include "FrontFixture.h"

#include "Dunlin/Exception.h"
#include "SharedMem/Bolster.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using namespace Support;

struct Thrown {};
constexpr U32 entries = 3000;

enum class State { waiting, walking, settled, flushing };
enum class How { detach, controlDetach, destroy };

// Settings are of the type alone: what a row needs beyond, it sets itself.
struct Role {
    char const* name;
    BriskType type;
    bool shadow() const { return type == BriskType::valueShadow || type == BriskType::keyShadow; }
    bool writer() const { return type == BriskType::writer; }
};
constexpr Role writerRole{"Writer", BriskType::writer};
constexpr Role readerRole{"Reader", BriskType::reader};
constexpr Role valueRole{"ValueShadow", BriskType::valueShadow};
constexpr Role keyRole{"KeyShadow", BriskType::keyShadow};

class Life;
struct Row {
    std::string name;
    Role role;
    std::function<void(Life&)> happens;
};
void PrintTo(Row const& row, std::ostream* out) {
    *out << row.role.name << row.name;
}

class Life : public Fronts, public testing::WithParamInterface<Row> {
public:
    Life() { Mem::WriterLock::waitIs(0.01); }
    ~Life() override { Mem::WriterLock::waitIs(2); }

    Role role() const { return GetParam().role; }
    TestMap& front() { return *c->front; }

    // The table's writer beside a reading front.
    void startOther() {
        if (role().writer()) return;
        other = writer();
        for (U32 id = 0; id < entries; ++id) put(*other, id, 1);
        for (U32 id = 0; id < entries; ++id) truth[id] = 1;
    }
    MapDescriptor settings(bool slices = false) const {
        MapDescriptor result = shadowSettings(role().type);
        if (role().writer()) result.initialSize = 100'000;
        result.asyncAlways = slices;
        return result;
    }
    void makeClient(bool slices = false) {
        c = std::make_unique<Client>(name_, settings(slices));
        front().quiescedNotifyIs([this](bool on) {
            ++quiescedCalls;
            c->quiesced = on;
            if (onQuiesced) onQuiesced();
        });
        if (slices) front().yieldTimeIs(1e-6);
    }
    void start() {
        startOther();
        makeClient();
        c->init();
        if (role().writer()) fill();
        ASSERT_TRUE(turn([&] { return whole(); }));
    }
    void fill() {
        for (U32 id = 0; id < entries; ++id) front().safeWrite(TestValue(TestKey(id), 1), true);
        for (U32 id = 0; id < entries; ++id) truth[id] = 1;
    }
    // The client knows the table, and the front shows it.
    bool whole() {
        auto const status = front().mountStatus();
        if (role().shadow()) return c->asleep() && c->known == truth && c->strayDeletes == 0;
        return status == MountStatus::mounted && contents(front().table()) == truth;
    }
    // Turns the loop until the condition holds; what callbacks raise is counted.
    template <class Condition>
    bool turn(Condition condition) {
        double const end = loop().now() + 10;
        while (!condition()) {
            if (loop().now() > end) return false;
            try {
                loop().runOnce(0.02);
            } catch (Thrown const&) {
                ++thrown;
            } catch (Dunlin::MemoryResourceException const&) {
                ++thrown;
            }
        }
        return true;
    }
    template <class Call>
    void call(Call what) {
        try {
            what();
        } catch (Thrown const&) {
            ++thrown;
        }
    }
    // Raises when it has been asked for the `n`th time.
    auto raiseAt(U32 n) {
        return [left = n](auto const&...) mutable {
            if (left > 0 && --left == 0) throw Thrown();
        };
    }
    std::string told() const {
        return fmt::format("{}/{}/{}/{}", c->updates, c->deletes, c->statuses, quiescedCalls);
    }
    void reach(State state) {
        if (state == State::settled) return start();
        if (role().writer()) return makeClient();
        startOther();
        makeClient(state == State::walking);
        if (state == State::waiting) {
            other.reset();
            return c->init();
        }
        c->init();
        if (state == State::walking) {
            ASSERT_TRUE(turn([&] { return c->updates > 100; }));
            ASSERT_LT(c->updates, entries);
            ASSERT_EQ(front().mountStatus(), MountStatus::mounted);
        } else {
            ASSERT_TRUE(turn([&] { return whole(); }));
            front().yieldTimeIs(1e-6);
            front().detach(false);
            ASSERT_TRUE(turn([&] { return c->deletes > 100; }));
            ASSERT_EQ(front().mountStatus(), MountStatus::flushing);
        }
    }
    // From within the next callback of the state, or now.
    void act(State state, bool inside, std::function<void()> const& what) {
        if (!inside) return what();
        bool done = false;
        auto const once = [&](auto const&...) {
            if (!std::exchange(done, true)) what();
        };
        c->onUpdate = once;
        c->onDelete = once;
        if (state == State::settled && role().shadow()) put(*other, 7, truth[7] = 2);
        if (state == State::settled && !role().shadow()) {
            c->onStatus = once;
            if (role().writer())
                front().detach(true);
            else
                other.reset();
        }
        ASSERT_TRUE(turn([&] { return done; }));
        if (c) c->onUpdate = c->onDelete = Dunlin::noop;
        if (c) c->onStatus = Dunlin::noop;
    }
    // Let go: an empty table and no callback, though its writer lives.
    void expectSilence() {
        EXPECT_EQ(front().mountStatus(), MountStatus::unmounted);
        EXPECT_TRUE(contents(front().table()).empty());
        EXPECT_TRUE(!role().shadow() || c->known.empty());
        std::string const before = told();
        for (int i = 0; i < 30; ++i) loop().runOnce(0.003);
        EXPECT_EQ(told(), before);
        EXPECT_EQ(front().mountStatus(), MountStatus::unmounted);
    }
    // The same front again.
    void expectReturn() {
        if (!other && !role().writer()) other = writer();
        if (role().writer()) front().controlDetach();
        if (!front().initialized()) c->init();
        front().tryAttach();
        ASSERT_TRUE(turn([&] { return whole(); })) << told();
        EXPECT_EQ(c->strayDeletes, 0U);
        EXPECT_FALSE(role().shadow() && c->deletes > c->updates);
    }
    // A second front at once, without a turn of the loop; and, of a writer, another process.
    void expectFree(bool turns) {
        for (int i = 0; turns && i < 3; ++i) loop().runOnce(0);
        if (role().writer()) {
            EXPECT_FALSE(Mem::WriterLock::writerExists(Mem::RootPath(name_)));
            Child child([&](Child&) {
                writer();
                return 0;
            });
            EXPECT_EQ(child.join(), 0);
        } else if (other) {
            ASSERT_TRUE(turn([&] { return other->queue().wren().readers() == 0; }));
        } else {
            other = writer();
        }
        makeClient();
        c->init();
        EXPECT_EQ(front().ready(), true);
        ASSERT_TRUE(turn([&] { return whole(); }));
    }

    std::unique_ptr<TestWriter> other;
    std::unique_ptr<Client> c;
    std::map<U32, U64> truth;
    std::function<void()> onQuiesced;
    int thrown = 0, quiescedCalls = 0;
};

// ---- attach fails ----

void attachFails(Life& t) {
    if (t.role().writer()) {
        std::ofstream(t.base_.path() + "/vrf") << "in the way";
        t.makeClient();
        EXPECT_THROW(t.c->init(), Dunlin::InvalidInitializeException);
        std::filesystem::remove(t.base_.path() + "/vrf");
        return t.expectReturn();
    }
    t.startOther();
    U32 const sound = t.peek("slots", 8); // the header's size
    t.poke("slots", 8, sound + 1);
    t.makeClient();
    t.c->init();
    settle();
    EXPECT_EQ(t.front().mountStatus(), MountStatus::unmounted);
    t.poke("slots", 8, sound);
    EXPECT_TRUE(t.turn([&] { return t.whole(); })); // by itself
}

// No memory for the mappings of a large table.
struct NoMemory {
    rlimit usual{};
    NoMemory() {
        ::getrlimit(RLIMIT_AS, &usual);
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlimit const few{static_cast<rlim_t>(pages * ::sysconf(_SC_PAGESIZE) + 200'000),
                         usual.rlim_max};
        ::setrlimit(RLIMIT_AS, &few);
    }
    ~NoMemory() { ::setrlimit(RLIMIT_AS, &usual); }
};

void attachHasNoMemory(Life& t) {
#if defined(CAIRN_SANITIZED)
    GTEST_SKIP() << "a sanitizer needs memory of its own";
#endif
    t.makeClient();
    t.c->init();
    t.startOther();
    {
        NoMemory const none;
        ASSERT_TRUE(t.turn([&] { return t.thrown > 0; }));
    }
    EXPECT_EQ(t.front().mountStatus(), MountStatus::unmounted);
    EXPECT_TRUE(t.turn([&] { return t.whole(); })); // by itself
}

// ---- a callback raises ----

void raisesInFirstWalk(Life& t, bool slices) {
    t.startOther();
    t.makeClient(slices);
    t.c->onUpdate = t.raiseAt(1000);
    t.call([&] { t.c->init(); });
    EXPECT_EQ(t.thrown, slices ? 0 : 1);
    if (!slices) {
        EXPECT_FALSE(t.front().initialized());
        EXPECT_TRUE(t.c->known.empty()); // taken back
        t.c->init();
    }
    EXPECT_TRUE(t.turn([&] { return t.whole(); }));
    EXPECT_EQ(t.thrown, 1);
}

void raisesWhenTold(Life& t) {
    t.start();
    t.c->onUpdate = t.raiseAt(3);
    t.c->onDelete = t.raiseAt(3);
    for (U32 id = 0; id < 10; ++id) t.put(*t.other, id, t.truth[id] = 2);
    for (U32 id = 20; id < 30; ++id) t.drop(*t.other, id), t.truth.erase(id);
    EXPECT_TRUE(t.turn([&] { return t.whole(); }));
    EXPECT_EQ(t.thrown, 2);
    EXPECT_EQ(t.c->shadow().resyncs(), 0U);
    EXPECT_EQ(t.c->shadow().lateWakes(), 0U);
}

void raisesInFlush(Life& t, bool force) {
    t.start();
    t.front().yieldTimeIs(1e-6);
    t.c->onDelete = t.raiseAt(1000);
    t.call([&] { t.front().detach(force); });
    if (force) {
        EXPECT_EQ(t.thrown, 1);
        t.expectSilence();
        t.front().tryAttach();
    }
    EXPECT_TRUE(t.turn([&] { return t.thrown == 1 && t.whole(); }));
    EXPECT_EQ(t.c->deletes, entries); // each key once
}

void raisesOnStatus(Life& t, bool quiet) {
    t.makeClient();
    auto const raise = [left = 1]() mutable {
        if (left-- > 0) throw Thrown();
    };
    if (quiet)
        t.onQuiesced = raise;
    else
        t.c->onStatus = raise;
    if (t.role().writer()) {
        t.call([&] { t.c->init(); });
        t.fill();
    } else {
        t.c->init();
        t.startOther();
    }
    EXPECT_TRUE(t.turn([&] { return t.thrown == 1 && t.whole(); }));
}

// ---- the writer does not let the reader in ----

void refused(Life& t) {
    if (t.role().writer()) {
        auto owner = std::make_unique<Child>([&](Child& self) {
            auto const w = t.writer();
            self.step();
            return 0;
        });
        owner->hear();
        t.makeClient();
        EXPECT_THROW(t.c->init(), Dunlin::InvalidInitializeException);
        owner.reset();
        return t.expectReturn();
    }
    U32 attempts = 0;
    std::vector<double> gaps;
    double last = loop().now();
    Dunlin::traceSinkIs([&](auto const&, unsigned, std::string_view, std::string const& text) {
        if (text.find("refused, reason") == text.npos) return;
        ++attempts;
        gaps.push_back(loop().now() - std::exchange(last, loop().now()));
    });
    t.startOther();
    SharedMem::OwnerFile owner(*t.handler_, Mem::RootPath(t.name_), false);
    auto const right = owner.bolsterInfo();
    t.makeClient();
    t.front().debugHandler().maskIs(2); // level 1
    t.c->init();
    ASSERT_TRUE(t.turn([&] { return t.whole(); }));
    // Another number is on offer than the owner file names, and then the connection ends.
    owner.bolsterInfoIs({right.socketName, right.tableId + 1000});
    ASSERT_TRUE(t.turn([&] { return attempts == 1; }));
    for (int i = 0; i < 1000; ++i) loop().runOnce(0);
    EXPECT_LE(attempts, 2U);
    ASSERT_TRUE(t.turn([&] { return attempts == 5; }));
    for (std::size_t i = 2; i < gaps.size(); ++i) EXPECT_GE(gaps[i], 0.05 * (1 << (i - 1))) << i;
    owner.bolsterInfoIs(right); // a file event ends the wait
    EXPECT_TRUE(t.turn([&] { return t.whole(); }));
    EXPECT_EQ(attempts, 5U);
    t.front().debugHandler().maskIs(Dunlin::Platform::DebugHandler::defaultMask);
}

// ---- another user ----

// The table is root's, with the usual permissions: others read and follow it, and cannot write it.
void otherUser(Life& t) {
    if (::getuid() != 0) GTEST_SKIP() << "cannot become another user here";
    ::chmod(t.base_.path().c_str(), 0755);
    auto const w = t.writer();
    t.put(*w, 1, t.truth[1] = 1);
    Child child([&](Child&) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 1;
        t.makeClient();
        if (!t.role().writer()) {
            t.c->init();
            return t.turn([&] { return t.whole(); }) ? 0 : 2;
        }
        try {
            t.c->init();
        } catch (Dunlin::InvalidInitializeException const& error) {
            return error.message().find(t.name_) != std::string::npos ? 0 : 3;
        }
        return 4;
    });
    bool ended = false;
    loop().fdAdd(child.hearFd(), 1, [&](U32) { ended = true; });
    EXPECT_TRUE(t.turn([&] { return ended; }));
    loop().fdDel(child.hearFd());
    EXPECT_EQ(child.join(), 0);
    EXPECT_TRUE(w->validate());
}

// ---- damage ----

void damaged(Life& t) {
    t.start();
    t.c->statuses.clear();
    t.front().doCorruptionDetected("found by a test");
    ASSERT_TRUE(t.turn([&] { return t.front().mountStatus() == MountStatus::unmounted; }));
    EXPECT_TRUE(t.turn([&] { return t.whole(); })); // by itself
    // And to a new generation without a wait.
    t.front().doCorruptionDetected("found by a test");
    t.other.reset();
    std::filesystem::remove(t.file("oriel"));
    t.other = t.writer();
    t.truth.clear();
    EXPECT_TRUE(t.turn([&] { return t.whole(); }));
}

// ---- detach and destruction ----

void ends(Life& t, State state, How how, bool inside, bool turns) {
    t.reach(state);
    if (testing::Test::HasFatalFailure()) return;
    t.act(state, inside, [&] {
        if (how == How::detach) t.front().detach(true);
        if (how == How::controlDetach) t.front().controlDetach();
        if (how == How::destroy) t.c->front.reset();
    });
    if (testing::Test::HasFatalFailure()) return;
    if (how == How::destroy) return t.expectFree(turns);
    t.expectSilence();
    t.expectReturn();
}

// ---- process exit with static objects ----

std::unique_ptr<TestMap> statics[3];
std::unique_ptr<TestWriter> staticWriter;

// The objects end from the last place to the first, and what the library made meanwhile before.
void exits(Life& t) {
    std::vector<Role> order = {writerRole, valueRole, readerRole};
    std::sort(order.begin(), order.end(), [](Role a, Role b) { return a.type < b.type; });
    do {
        for (bool const early : {false, true}) {
            SCOPED_TRACE(
                fmt::format("{} {} {} {}", order[0].name, order[1].name, order[2].name, early));
            Child child([&](Child&) {
                auto const make = [&](std::size_t i) {
                    statics[i] = std::make_unique<TestMap>(t.name_, "TestValue");
                    statics[i]->init(order[i].type, false, 1000);
                };
                // Readers before their writer, or in the order of the places.
                for (std::size_t i = 0; i < 3; ++i)
                    if (early || !order[i].writer()) make(i);
                for (std::size_t i = 0; i < 3; ++i)
                    if (!statics[i]) make(i);
                staticWriter = std::make_unique<TestWriter>(*t.handler_, "vrf/default/second",
                                                            writerSettings(), TestOps{},
                                                            "TestValue", Dunlin::noop);
                staticWriter->initialize("test");
                if (!pump([&] {
                        return std::all_of(std::begin(statics), std::end(statics),
                                           [](auto const& front) { return front->ready(); });
                    }))
                    return 7;
                std::exit(0);
            });
            EXPECT_EQ(child.join(), 0);
            for (std::string const name : {t.name_.c_str(), "vrf/default/second"})
                EXPECT_EQ(SharedMem::OwnerFile(*t.handler_, Mem::RootPath(name), false)
                              .bolsterInfo()
                              .socketName,
                          "");
            EXPECT_TRUE(std::filesystem::is_empty(t.base_.path() + "/sockets"));
        }
    } while (std::next_permutation(order.begin(), order.end(),
                                   [](Role a, Role b) { return a.type < b.type; }));
}

TEST_P(Life, EndsInOrderAndGoesOn) {
    GetParam().happens(*this);
}

std::vector<Row> rows() {
    std::vector<Row> all;
    auto const add = [&](std::string name, std::initializer_list<Role> roles, auto happens) {
        for (Role const& role : roles) all.push_back({name, role, happens});
    };
    std::initializer_list<Role> const every = {writerRole, readerRole, valueRole, keyRole};
    std::initializer_list<Role> const shadows = {valueRole, keyRole};
    add("AttachFails", every, attachFails);
    add("AttachHasNoMemory", shadows, attachHasNoMemory);
    add("RaisesInTheWalkOfInit", shadows, [](Life& t) { raisesInFirstWalk(t, false); });
    add("RaisesInASlice", shadows, [](Life& t) { raisesInFirstWalk(t, true); });
    add("RaisesWhenTold", shadows, raisesWhenTold);
    add("RaisesInAFlush", shadows, [](Life& t) { raisesInFlush(t, false); });
    add("RaisesInAForcedFlush", shadows, [](Life& t) { raisesInFlush(t, true); });
    add("RaisesOnStatus", every, [](Life& t) { raisesOnStatus(t, false); });
    add("RaisesOnQuiesced", every, [](Life& t) { raisesOnStatus(t, true); });
    add("Refused", {writerRole, valueRole, keyRole}, refused);
    add("OtherUser", every, otherUser);
    add("Damaged", {readerRole, valueRole, keyRole}, damaged);
    struct {
        State state;
        char const* name;
    } const states[] = {{State::waiting, "Waiting"},
                        {State::walking, "Walking"},
                        {State::settled, "Settled"},
                        {State::flushing, "Flushing"}};
    struct {
        How how;
        bool inside, turns;
        char const* name;
    } const hows[] = {{How::detach, false, false, "DetachWhile"},
                      {How::detach, true, false, "DetachByACallbackWhile"},
                      {How::controlDetach, false, false, "ControlDetachWhile"},
                      {How::controlDetach, true, false, "ControlDetachByACallbackWhile"},
                      {How::destroy, false, false, "DestroyWhile"},
                      {How::destroy, false, true, "DestroyAndTurnWhile"},
                      {How::destroy, true, false, "DestroyByACallbackWhile"}};
    for (auto const& s : states)
        for (auto const& h : hows) {
            auto const happens = [=](Life& t) { ends(t, s.state, h.how, h.inside, h.turns); };
            std::string const name = std::string(h.name) + s.name;
            bool const calls = s.state != State::waiting; // no callback to do it in
            if (calls || !h.inside) add(name, shadows, happens);
            if (s.state == State::settled) add(name, {writerRole, readerRole}, happens);
        }
    add("ExitsWithStatics", {writerRole}, exits);
    return all;
}
INSTANTIATE_TEST_SUITE_P(Front, Life, testing::ValuesIn(rows()),
                         [](auto const& row) { return row.param.role.name + row.param.name; });

} // namespace
