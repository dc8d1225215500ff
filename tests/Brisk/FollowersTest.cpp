// Followers in processes of their own: they hear every change of a writer that may have another user,
// never turn its loop, leave them behind, or lose its directory.
#include "FrontFixture.h"

#include "SharedMem/WriterLock.h"

#include <sys/stat.h>

namespace {

using namespace Support;

class Followers : public Fronts {};

// A writer that runs as root with the usual umask, and clients of another user: every kind of front
// mounts and follows. A socket that they may not connect to does not make the writer dead.
TEST_F(Followers, AClientOfAnotherUser) {
    if (::getuid() != 0) GTEST_SKIP() << "cannot become another user here";
    constexpr int otherUser = 65534;
    ::chmod(base_.path().c_str(), 0755);
    struct {
        mode_t umask;
        bool closed; // the socket, by hand
        mode_t socketMode;
    } const rows[] = {
        {022, false, 0666}, {027, false, 0660}, {077, false, 0600}, {022, true, 0600}};
    for (auto const& row : rows) {
        SCOPED_TRACE(fmt::format("umask {:o} closed {}", row.umask, row.closed));
        name_ = fmt::format("users/{:o}{}", row.umask, row.closed);
        // Each process has one endpoint, for all of its tables.
        Child writing([&](Child& self) {
            ::umask(row.umask);
            auto const w = writer();
            std::string const socket = SharedMem::BolsterName::path(SharedMem::BolsterName::own());
            if (row.closed) ::chmod(socket.c_str(), 0600);
            if ((Mem::permissionsOf(socket)) != row.socketMode) return 1;
            ::chmod((base_.path() + "/users").c_str(), 0755);
            ::chmod((base_.path() + "/" + name_).c_str(), 0755);
            ::chmod((base_.path() + "/sockets").c_str(), 0755);
            put(*w, 1, 1);
            self.tell(1);
            loop().fdAdd(self.hearFd(), 1, [&](U32) {
                if (self.hear() < 0) _exit(0);
                put(*w, 1, 2);
            });
            loop().run();
            return 0;
        });
        ASSERT_EQ(writing.hear(), 1);
        Child reading([&](Child& self) {
            if (::setgid(otherUser) != 0 || ::setuid(otherUser) != 0) return 1;
            std::string traced;
            Dunlin::traceSinkIs(
                [&](auto&&, unsigned level, std::string_view, std::string const& text) {
                    if (level == 0) traced += text + '\n';
                });
            Client shadow(name_, shadowSettings(BriskType::valueShadow));
            Client keys(name_, shadowSettings(BriskType::keyShadow));
            Client plain(name_, shadowSettings(BriskType::reader));
            for (Client* const c : {&shadow, &keys, &plain}) c->init();
            bool const mayRead = (0777 & ~row.umask & 04) != 0;
            bool const mayConnect = mayRead && !row.closed;
            bool const mounts =
                plain.front->ready() && shadow.synchronised() && keys.synchronised();
            if (mounts != mayRead) return 2;
            // Once, with the path.
            std::string const path = mayRead ? "/sockets/" : name_ + "/slots";
            auto const told = traced.find(path);
            if ((told == traced.npos) != mayConnect) return 3;
            if (!mayConnect) return traced.find("Permission denied") == traced.npos ? 4 : 0;
            if (!pump([&] { return shadow.asleep() && keys.asleep(); })) return 5;
            self.tell(1);
            if (!pump([&] { return shadow.known[1] == 2 && keys.known[1] == 2; }, 5)) return 6;
            return 0;
        });
        if (reading.hear() == 1) writing.tell(1);
        EXPECT_EQ(reading.join(), 0);
    }
}

// The writer turns its loop never, not even to let the followers in. Changes with pauses are rung, in
// a row they are found; the slow look finds nothing to do.
TEST_F(Followers, AWriterThatNeverTurnsItsLoop) {
    Child writing([&](Child& self) {
        auto const w = writer();
        std::mt19937 random(3);
        U64 stamp = 0;
        for (S64 rounds = self.step(); rounds >= 0; rounds = self.step(static_cast<S64>(stamp)))
            for (; rounds > 0; --rounds) {
                ++stamp;
                put(*w, static_cast<U32>(stamp % 50), stamp);
                // On both sides of the pause that counts.
                if (random() % 4 == 0) ::usleep(static_cast<unsigned>(random() % 2500));
            }
        return static_cast<int>(w->writerCounters().readers);
    });
    writing.hear();
    Client values(name_, shadowSettings(BriskType::valueShadow));
    Client keys(name_, shadowSettings(BriskType::keyShadow));
    for (Client* const c : {&values, &keys}) c->init();
    S64 last = 0;
    std::mt19937 random(4);
    for (int round = 0; round < 100; ++round) {
        writing.tell(round < 10 ? 1 : static_cast<S64>(random() % 30));
        last = writing.hear();
        if (last == 0) continue;
        auto const id = static_cast<U32>(last % 50);
        auto const heard = [&](Client& c) { return c.known[id] == static_cast<U64>(last); };
        ASSERT_TRUE(pump([&] { return heard(values) && heard(keys); }, 5)) << round;
    }
    for (Client* const c : {&values, &keys}) {
        EXPECT_TRUE(c->front->connected());
        EXPECT_EQ(c->shadow().lateWakes(), 0U);
        EXPECT_EQ(c->shadow().resyncs(), 0U);
    }
    writing.tell(-1);
    EXPECT_EQ(writing.join(), 2);
}

// A writer goes while a follower is behind: what it had published is told before its end is.
TEST_F(Followers, TheLastChangesOfAWriterAreTold) {
    constexpr U32 keys = 5000, changes = 60'000;
    enum class Behind { stopped, byRate, inItsWalk };
    struct {
        Behind behind;
        bool killed;
        BriskType type;
        bool shrinks;
    } const rows[] = {{Behind::stopped, false, BriskType::valueShadow, false},
                      {Behind::stopped, true, BriskType::valueShadow, false},
                      {Behind::stopped, false, BriskType::keyShadow, true},
                      {Behind::byRate, false, BriskType::valueShadow, false},
                      {Behind::byRate, true, BriskType::keyShadow, false},
                      {Behind::inItsWalk, false, BriskType::valueShadow, false},
                      {Behind::inItsWalk, true, BriskType::keyShadow, true}};
    for (auto const& row : rows) {
        int const number = static_cast<int>(&row - rows);
        SCOPED_TRACE(number);
        name_ = fmt::format("last/{}", number);
        U32 const left = row.shrinks ? 100 : keys;
        Child writing([&](Child& self) {
            auto w = writer(writerSettings(row.shrinks));
            for (U32 i = 0; i < keys; ++i) put(*w, i, i);
            self.step();
            for (U32 i = keys; i < changes; ++i) put(*w, i % keys, i);
            for (U32 id = left; id < keys; ++id) drop(*w, id);
            if (row.killed) ::kill(::getpid(), SIGKILL);
            w.reset();
            return 0;
        });
        writing.hear();
        Child following([&](Child& self) {
            auto settings = shadowSettings(row.type);
            settings.asyncAlways = true;
            Client c(name_, settings);
            bool exact = false, ended = false;
            c.onStatus = [&] {
                if (c.front->mountStatus() == MountStatus::synchronised) return;
                if (ended || c.statuses.find('3') == std::string::npos) return;
                ended = true;
                exact = c.known.size() == left;
                for (auto const& [id, stamp] : c.known) exact &= stamp == changes - keys + id;
            };
            c.front->yieldTimeIs(1e-5);
            c.init();
            if (row.behind != Behind::inItsWalk && !pump([&] { return c.synchronised(); }))
                return 1;
            self.step();
            if (!pump([&] { return ended; }, 20)) return 2;
            if (!exact) return 3;
            return pump([&] { return c.known.empty() && c.statuses.back() == '0'; }, 20) ? 0 : 4;
        });
        ASSERT_EQ(following.hear(), 0);
        if (row.behind == Behind::byRate) following.tell(0);
        if (row.behind == Behind::stopped) following.signal(SIGSTOP);
        writing.tell(0);
        EXPECT_EQ(writing.join(), row.killed ? 1000 + SIGKILL : 0);
        if (row.behind != Behind::byRate) following.tell(0);
        following.signal(SIGCONT);
        EXPECT_EQ(following.join(), 0);
    }
}

// Another process with a follower and a plain reader: answers, for each stamp it hears, whether both
// have come to know it, and all other entries besides.
class Elsewhere {
public:
    explicit Elsewhere(std::string const& name, std::size_t size)
        : child_([=](Child& self) { return live(self, name, size); }) {}
    bool knows(U64 stamp) {
        child_.tell(static_cast<S64>(stamp));
        return child_.hear() == 1;
    }

private:
    static int live(Child& self, std::string const& name, std::size_t size) {
        Client follower(name, shadowSettings(BriskType::valueShadow));
        Client plain(name, shadowSettings(BriskType::reader));
        follower.init();
        plain.init();
        S64 wanted = 0;
        loop().fdAdd(self.hearFd(), 1, [&](U32) { wanted = self.hear(); });
        for (;;) {
            if (!pump([&] { return wanted != 0; }, 60) || wanted < 0) return 0;
            auto const stamp = static_cast<U64>(std::exchange(wanted, 0));
            bool const known = pump([&] {
                bool found = false;
                TestValue into;
                TestValue const* const value = plain.front->safeLookup(TestKey(1), found, &into);
                return found && value->stamp() == stamp && follower.known.size() == size &&
                       follower.known[1] == stamp;
            });
            self.tell(known && follower.shadow().lateWakes() == 0 && follower.strayDeletes == 0);
        }
    }
    Child child_;
};

class RemovedTable : public Followers {
public:
    static constexpr U32 size = 3000;
    RemovedTable() {
        w.init();
        for (U32 id = 0; id < size; ++id) write(id, id);
        Dunlin::traceSinkIs([this](auto&&, unsigned, std::string_view, std::string const& text) {
            traced += text + '\n';
        });
    }
    void write(U32 id, U64 stamp) { w.front->table().write(TestValue(TestKey(id), stamp), true); }
    std::string directory() const { return base_.path() + "/" + name_; }

    Elsewhere elsewhere{name_, size};
    Client w{name_, writerSettings()};
    std::string traced;
};

// Somebody removes files of a living table: the writer says so and makes it again, whole, and fronts
// of all kinds come over, in this process and in others. The other process has files of the former
// generations mapped, so the removed directories live on.
TEST_F(RemovedTable, IsMadeAgainWhole) {
    Client values(name_, shadowSettings(BriskType::valueShadow));
    Client keys(name_, shadowSettings(BriskType::keyShadow));
    Client plain(name_, shadowSettings(BriskType::reader));
    for (Client* const c : {&values, &keys, &plain}) c->init();
    U64 stamp = size;
    ASSERT_TRUE(elsewhere.knows(1));
    for (char const* const removed : {"", "slots", "owner", "..", "oriel", "buckets", "yarrow",
                                      "yarrow2", "owner.lock", "../..", "../../..", ""}) {
        SCOPED_TRACE(removed);
        auto const before = w.front->orielId();
        traced.clear();
        std::filesystem::remove_all(directory() + "/" + removed);
        write(2, ++stamp); // nobody has noticed yet
        ASSERT_TRUE(pump([&] { return w.front->orielId() != before; }));
        EXPECT_NE(traced.find("files of the live table"), std::string::npos);
        EXPECT_NE(traced.find("was made again, with 3000 entries"), std::string::npos);
        EXPECT_TRUE(w.front->validate());
        EXPECT_TRUE(w.front->validateFiles("test", 0));
        write(1, ++stamp);
        ASSERT_TRUE(pump([&] {
            for (Client* const c : {&values, &keys, &plain})
                if (c->front->orielId() != w.front->orielId()) return false;
            return values.known[1] == stamp && keys.known[1] == stamp;
        }));
        EXPECT_EQ(values.known.size(), size);
        EXPECT_EQ(keys.known, values.known);
        EXPECT_EQ(contents(plain.front->table()), values.known);
        ASSERT_TRUE(elsewhere.knows(stamp));
    }
    EXPECT_FALSE(std::filesystem::exists(file("corruption-detected")));
    // What is removed on purpose stays so.
    w.front->cleanup();
    settle();
    EXPECT_FALSE(std::filesystem::exists(directory()));
}

// It cannot be made: the writer says why, goes on with what it has, and tries again.
TEST_F(RemovedTable, IsMadeAgainLater) {
    ASSERT_TRUE(elsewhere.knows(1));
    std::filesystem::remove_all(directory());
    std::ofstream(directory()) << "in the way";
    ASSERT_TRUE(pump([&] { return traced.find("next attempt in 0.1 s") != std::string::npos; }));
    EXPECT_NE(traced.find("cannot make directory"), std::string::npos);
    write(1, size);
    EXPECT_EQ(w.front->members(), size);
    std::filesystem::remove(directory());
    ASSERT_TRUE(pump([&] { return traced.find("was made again") != std::string::npos; }));
    EXPECT_TRUE(w.front->validate());
    EXPECT_TRUE(elsewhere.knows(size));
}

} // namespace
