// Tables as attributes of entities: the seven of them, before the mount, in each role, as orphans, and
// when they are damaged.
#include "Owners.h"

#include "Dunlin/Exception.h"
#include "support/Child.h"
#include "support/Ear.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace {

using namespace Support;
using VomoBrisk::Mount;
using VomoBrisk::MountInfo;
using VomoBrisk::VomoBriskType;

constexpr VomoBriskType readers[] = {VomoBriskType::valueShadow, VomoBriskType::keyShadow,
                                     VomoBriskType::reader};

template <class Table>
class TableAttribute : public testing::Test {
public:
    using Owner = OwnerOf<Table>;
    using S = Sample<Table>;
    using Value = typename Table::Value;
    using Key = typename Table::Key;
    using Iterator = typename Owner::Member::IteratorConst;

    ~TableAttribute() override { Brisk::BriskMapBase::corruptionHandlerIs({}); }

    static MountInfo info(VomoBriskType type) {
        MountInfo result(type);
        result.collectionInfoIs({Table::attribute, 1024, 0});
        return result;
    }
    static Vomo::Ptr<Owner> owner() { return Vomo::newEntity<Owner>("agent"); }
    std::string file(char const* name) const {
        return base_.path() + "/" + path_ + "/" + Table::attribute + "/" + name;
    }

    // Lets every bucket lead out of the table.
    void damage(std::string const& path) const {
        auto const buckets = base_.path() + "/" + path + "/" + Table::attribute + "/buckets";
        auto const size = std::filesystem::file_size(buckets);
        for (std::size_t at = 24; at < size; at += 8) poke(buckets, at + 4, 0x7ffffff0U);
    }

    // One process's use of the table.
    struct Client {
        explicit Client(VomoBriskType type, char const* path = path_)
            : of(TableAttribute::owner()), listener(of), mount(of, path, info(type)) {}
        std::string control() const {
            return fmt::format("{} {}", U32(of->control()->mountStatus()),
                               of->control()->quiesced());
        }
        Vomo::Ptr<Owner> of;
        Listener<Table> listener;
        Mount mount;
    };
    static void put(Owner& owner, U32 from, U32 to, U32 stamp) {
        for (U32 i = from; i < to; ++i) owner.is(S::value(i, stamp));
    }
    static std::map<U32, U64> contents(Owner const& owner) {
        std::map<U32, U64> seen;
        for (Iterator i(&owner.map()); i; ++i)
            EXPECT_TRUE(seen.emplace(Listener<Table>::number(i.key()), S::stamp(*i)).second);
        return seen;
    }
    static std::map<U32, U64> stamped(U32 from, U32 to, U32 stamp) {
        std::map<U32, U64> all;
        for (U32 i = from; i < to; ++i) all[i] = stamp;
        return all;
    }

    // --- A writing process. A command is an operation on the keys from..to with a stamp; the answer
    // is how many changes the owner has counted.
    static std::int64_t command(char operation, U32 from = 0, U32 to = 0, U32 stamp = 0) {
        return operation | S64{from} << 8 | S64{to} << 24 | S64{stamp} << 40;
    }
    static void obey(Owner& owner, std::int64_t word) {
        auto const from = static_cast<U32>(word >> 8 & 0xffff),
                   to = static_cast<U32>(word >> 24 & 0xffff), stamp = static_cast<U32>(word >> 40);
        std::vector<Value> values;
        std::vector<Key> keys;
        std::vector<Value const*> valuesAt;
        std::vector<Key const*> keysAt;
        for (U32 i = from; i < to; ++i)
            values.push_back(S::value(i, stamp)), keys.push_back(S::key(i));
        for (auto const& value : values) valuesAt.push_back(&value);
        for (auto const& key : keys) keysAt.push_back(&key);
        switch (word & 0xff) {
        case 'p':
            return put(owner, from, to, stamp);
        case 'P':
            return owner.isAll(valuesAt);
        case 'd':
            for (auto const& key : keys) owner.del(key);
            return;
        case 'D':
            return owner.delMany(keysAt);
        case 'c': // in place: a new entry, or one that is there
            for (auto const& value : values) owner.commit(owner.map().safeDirectWrite(value));
            return;
        case 'u':
            for (auto const& value : values) {
                auto* const area = owner.map().safeDirectUpdate(value.fwkKey());
                Table::Ops::copyValue(area, &value);
                owner.commit(area);
            }
            return;
        default:
            return owner.delAll();
        }
    }
    static int write(Child& self) {
        Client client(VomoBriskType::writer);
        bool end = false;
        self.tell(0);
        loop().fdAdd(self.hearFd(), 1 /* EPOLLIN */, [&](U32) {
            auto const word = self.hear();
            if (word < 0 || word == 'q') {
                end = true;
                return;
            }
            obey(*client.of, word);
            self.tell(static_cast<std::int64_t>(client.of->changes()));
        });
        while (!end) loop().runOnce(1);
        return 0;
    }

    TempBase base_;
    static constexpr char const* path_ = "routing/multicast/test/default/agent";
};

using Tables = testing::Types<Mroute::RouteTable, Mroute::OifIndexIntfTable,
                              Mroute::BidirGroupTable, Mroute::DfProfileTable, Mroute::CounterTable,
                              Mroute::BitIndexMapTable, Mroute::WaitlistMapTable>;
struct Names {
    template <class Table>
    static std::string GetName(int) {
        return Table::attribute;
    }
};
TYPED_TEST_SUITE(TableAttribute, Tables, Names);

TYPED_TEST(TableAttribute, IsPrivateUntilItIsMounted) {
    using F = TestFixture;
    auto const owner = F::owner();
    Listener<TypeParam> listener(owner);
    auto const status = [&] { return owner->control()->mountStatus(); };
    EXPECT_EQ(status(), Mem::MountStatus::unmounted);
    EXPECT_TRUE(owner->map().isWriter());
    EXPECT_EQ(owner->map().collName(), std::string("agent/") + TypeParam::attribute);
    EXPECT_EQ(owner->control()->entityRef(), owner.ptr());
    F::put(*owner, 0, 150, 5); // more than the private table is made for
    EXPECT_EQ(listener.take(), once(0, 150));
    EXPECT_EQ(F::contents(*owner), F::stamped(0, 150, 5));
    EXPECT_EQ(F::S::stamp(owner->del(F::S::key(3))), 5U);
    EXPECT_EQ(owner->get(F::S::key(3)), typename F::Value());
    EXPECT_EQ(owner->mutations(), 151U);
    EXPECT_EQ(owner->changes(), 151U);
    EXPECT_TRUE(std::filesystem::is_empty(this->base_.path()));

    Mount const mount(owner, this->path_, F::info(VomoBriskType::writer));
    EXPECT_TRUE(F::contents(*owner).empty());
    EXPECT_EQ(owner->map().collName(), std::string(this->path_) + "/" + TypeParam::attribute);
    EXPECT_TRUE(std::filesystem::exists(this->file("slots")));
}

TYPED_TEST(TableAttribute, ItsOwnerHearsEachChangeOnce) {
    using F = TestFixture;
    typename F::Client client(VomoBriskType::writer);
    auto& owner = *client.of;
    struct Row {
        std::int64_t command;
        std::map<U32, U32> heard;
        U64 mutations;
    } const rows[] = {
        {F::command('p', 0, 10, 1), once(0, 10), 10},
        {F::command('p', 5, 6, 1), once(5, 6), 1}, // the same value: the queue tells it too
        {F::command('d', 8, 12), once(8, 10), 4},
        {F::command('P', 6, 40, 2), once(6, 40), 34},
        {F::command('D', 30, 60), once(30, 40), 30},
        {F::command('P'), {}, 0},
        {F::command('c', 29, 31, 3), once(29, 31), 2},
        {F::command('u', 29, 31, 4), once(29, 31), 2},
        {F::command('*'), once(0, 31), 31},
        {F::command('*'), {}, 0},
    };
    U64 changes = 0, mutations = 0;
    for (auto const& row : rows) {
        SCOPED_TRACE(&row - rows);
        F::obey(owner, row.command);
        EXPECT_EQ(client.listener.take(), row.heard);
        EXPECT_EQ(owner.changes(), changes += row.heard.size());
        EXPECT_EQ(owner.mutations(), mutations += row.mutations);
    }
    EXPECT_FALSE(owner.has(F::S::key(0)));
    EXPECT_EQ(owner.del(F::S::key(400)), typename F::Value());
    EXPECT_EQ(owner.changes(), changes);
}

// The writer in another process: it writes, is killed, another one follows and leaves.
TYPED_TEST(TableAttribute, EachRoleFollowsWritersThatComeAndGo) {
    using F = TestFixture;
    using C = typename F::Client;
    C clients[] = {C(readers[0]), C(readers[1]), C(readers[2])};
    C const& reader = clients[2];
    // Waits until all shadows have heard these keys, then looks whether that was all.
    auto const heard = [&](std::map<U32, U32> const& expected) {
        EXPECT_TRUE(pump([&] {
            return std::all_of(clients, clients + 2, [&](C const& c) {
                return c.listener.heard.size() >= expected.size();
            });
        }));
        settle();
        for (C& c : std::span(clients, 2)) EXPECT_EQ(c.listener.take(), expected);
        EXPECT_EQ(reader.listener.told, 0U);
    };
    auto const state = [&] {
        std::string text;
        for (C const& c : clients) text += c.control() + (&c == &reader ? "" : ", ");
        return text;
    };
    auto const hold = [&](std::map<U32, U64> const& expected) {
        for (C const& c : clients) EXPECT_EQ(F::contents(*c.of), expected);
    };
    EXPECT_EQ(state(), "0 false, 0 false, 0 false");
    hold({});

    auto writer = std::make_unique<Child>(F::write);
    ASSERT_EQ(writer->hear(), 0);
    ASSERT_TRUE(pump([&] { return state() == "2 true, 2 true, 1 true"; })) << state();
    std::pair<std::int64_t, std::map<U32, U32>> const rows[] = {
        {F::command('p', 0, 20, 1), once(0, 20)},   {F::command('P', 10, 30, 2), once(10, 30)},
        {F::command('d', 0, 10), once(0, 10)},      {F::command('D', 25, 60), once(25, 30)},
        {F::command('c', 25, 26, 3), once(25, 26)}, {F::command('u', 10, 26, 4), once(10, 26)},
    };
    for (auto const& [command, expected] : rows) {
        SCOPED_TRACE(&expected);
        writer->tell(command);
        ASSERT_GE(writer->hear(), 0);
        heard(expected);
    }
    hold(F::stamped(10, 26, 4));
    for (C const& c : clients) {
        EXPECT_EQ(c.of->get(F::S::key(12)), F::S::value(12, 4));
        EXPECT_FALSE(c.of->has(F::S::key(9)));
    }

    writer->signal(SIGKILL);
    heard(once(10, 26)); // gone
    ASSERT_TRUE(pump([&] { return state() == "0 false, 0 false, 0 false"; })) << state();
    hold({});
    writer = std::make_unique<Child>(F::write);
    ASSERT_EQ(writer->hear(), 0);
    heard(once(10, 26)); // its successor kept them
    ASSERT_TRUE(pump([&] { return state() == "2 true, 2 true, 1 true"; })) << state();
    hold(F::stamped(10, 26, 4));
    writer->tell(F::command('*'));
    ASSERT_EQ(writer->hear(), 16);
    heard(once(10, 26));
    writer->tell('q');
    EXPECT_EQ(writer->join(), 0);
    ASSERT_TRUE(pump([&] { return state() == "0 false, 0 false, 0 false"; })) << state();
}

TYPED_TEST(TableAttribute, OnlyItsWriterChangesIt) {
    using F = TestFixture;
    typename F::Client writer(VomoBriskType::writer);
    F::put(*writer.of, 0, 10, 1);
    auto const value = F::S::value(1, 2);
    auto const key = F::S::key(1);
    typename F::Value const* const valueAt = &value;
    typename F::Key const* const keyAt = &key;
    char const* const writeText = "write to read-only Brisk table";
    char const* const removeText = "remove to read-only Brisk table";
    for (auto const type : readers) {
        SCOPED_TRACE(U32(type));
        typename F::Client client(type);
        auto& owner = *client.of;
        bool const shadow = type != VomoBriskType::reader;
        ASSERT_TRUE(pump([&] { return client.control() == (shadow ? "2 true" : "1 true"); }));
        // What there was before is not told; it is there.
        EXPECT_EQ(client.listener.told, 0U);
        EXPECT_EQ(F::contents(owner), F::stamped(0, 10, 1));
        std::tuple<char const*, char const*, std::function<void()>> const uses[] = {
            {"is", writeText, [&] { owner.is(value); }},
            {"del", removeText, [&] { owner.del(key); }},
            {"delAll", removeText, [&] { owner.delAll(); }},
            {"isAll", writeText,
             [&] {
                 owner.isAll({&valueAt, 1});
             }},
            {"delMany", removeText,
             [&] {
                 owner.delMany({&keyAt, 1});
             }},
            {"commit", writeText, [&] { owner.commit(&value); }},
            {"directWrite", writeText, [&] { owner.map().safeDirectWrite(value); }},
            {"directUpdate", writeText, [&] { owner.map().safeDirectUpdate(key); }},
        };
        Ear ear;
        for (auto const& [what, text, use] : uses) EXPECT_EQ(ear.raisedBy(use), text) << what;
        settle();
        EXPECT_EQ(client.listener.told, 0U);
        EXPECT_EQ(owner.changes(), 0U);
        EXPECT_EQ(F::contents(owner), F::stamped(0, 10, 1));
    }
}

// A walk meets each key that is there all the time once, whatever comes and goes around it.
TYPED_TEST(TableAttribute, AWalkOutlivesEveryChange) {
    using F = TestFixture;
    using Walk = typename F::Iterator;
    typename F::Client writer(VomoBriskType::writer);
    auto& owner = *writer.of;
    EXPECT_FALSE(Walk(&owner.map()));
    EXPECT_FALSE(Walk(nullptr));
    EXPECT_FALSE(Walk(&owner.map(), F::S::key(7)));
    F::put(owner, 0, 300, 1);
    std::vector<U32> order;
    for (auto const& value : owner.map())
        order.push_back(Listener<TypeParam>::number(value.fwkKey()));
    ASSERT_EQ(order.size(), 300U);

    // From a key, from one that has gone, and from one that goes while the walk stands on it.
    auto const key = [&](std::size_t place) { return F::S::key(order[place]); };
    Walk at(&owner.map(), key(100));
    EXPECT_EQ(at.key(), key(100));
    owner.del(key(100));
    ++at;
    EXPECT_EQ(at.key(), key(101));
    EXPECT_EQ(Walk(&owner.map(), key(100)).key(), key(101));
    EXPECT_FALSE(++Walk(&owner.map(), key(299)));
    for (std::size_t place = 102; place < 200; ++place) owner.del(key(place));
    ++at;
    EXPECT_EQ(at.key(), key(200));

    // While others come and go.
    std::map<U32, U32> met;
    std::size_t place = 0;
    for (Walk i(&owner.map()); i; ++i, ++place) {
        ++met[Listener<TypeParam>::number(i.key())];
        for (U32 n = 0; n < 3; ++n) {
            owner.is(F::S::value(300 + (static_cast<U32>(place) + n) % 100, 2));
            owner.del(F::S::key(300 + (static_cast<U32>(place) + 50 + n) % 100));
        }
    }
    for (std::size_t i = 0; i < order.size(); ++i)
        EXPECT_EQ(met[order[i]], i < 100 || i == 101 || i >= 200 ? 1U : 0U) << i;

    // In another front: when its table goes, and when another implementation has taken its place.
    typename F::Client client(VomoBriskType::reader);
    Walk far(&client.of->map(), key(20));
    Walk end(&client.of->map(), key(20));
    EXPECT_EQ(far.key(), key(20));
    client.of->map().detach(true);
    ++end;
    EXPECT_FALSE(end);
    EXPECT_FALSE(++end);
    client.of->map().tryAttach();
    ++far;
    EXPECT_EQ(far.key(), key(21));
}

TYPED_TEST(TableAttribute, AnOrphanIsEmptyForGood) {
    using F = TestFixture;
    typename F::Client writer(VomoBriskType::writer);
    F::put(*writer.of, 0, 5, 1);
    for (auto const type : readers) {
        SCOPED_TRACE(U32(type));
        typename F::Client client(type);
        ASSERT_TRUE(pump([&] { return client.of->has(F::S::key(1)); }));
        settle();
        client.mount.unmount();
        EXPECT_EQ(client.listener.take(), type == VomoBriskType::reader ? once(0, 0) : once(0, 5));
        EXPECT_EQ(client.control(), "0 false");
        EXPECT_FALSE(client.of->has(F::S::key(1)));
        EXPECT_EQ(client.of->parent(), nullptr);
        client.mount.unmount(); // nothing more
        Ear ear;
        EXPECT_EQ(ear.raisedBy([&] { Mount(client.of, "elsewhere", F::info(type)); }),
                  std::string("Entity ") + this->path_ + "/" + TypeParam::attribute +
                      " already initialized");
        EXPECT_EQ(client.of->parent(), nullptr);
    }
    // The files are there for the next writer, at once.
    writer.mount.unmount();
    EXPECT_THROW(writer.of->is(F::S::value(1, 1)), Dunlin::NoPermissionException);
    {
        typename F::Client next(VomoBriskType::writer);
        EXPECT_EQ(F::contents(*next.of), F::stamped(0, 5, 1));
    }
    typename F::Client next(VomoBriskType::writer);
    EXPECT_EQ(F::contents(*next.of), F::stamped(0, 5, 1));

    // Of one whose owner said so: not to be used.
    Brisk::MapDescriptor settings;
    settings.assertOnOrphanAccess = true;
    auto const strict = F::owner();
    Mount(strict, this->path_, F::info(VomoBriskType::reader), settings).unmount();
    EXPECT_EQ(strict->control()->mountStatus(), Mem::MountStatus::unmounted);
    EXPECT_THROW(strict->is(F::S::value(1, 1)), Dunlin::NoPermissionException);
    EXPECT_DEATH(strict->get(F::S::key(1)), "you're trying to operate on an orphan brisk entity");
    EXPECT_DEATH(F::contents(*strict), "you're trying to operate on an orphan brisk entity");
}

TYPED_TEST(TableAttribute, DamageIsNoAnswer) {
    using F = TestFixture;
    typename F::Client writer(VomoBriskType::writer);
    typename F::Client client(VomoBriskType::reader);
    F::put(*writer.of, 0, 20, 1);
    EXPECT_EQ(F::contents(*client.of).size(), 20U);
    this->damage(this->path_);
    std::vector<Brisk::BriskMapBase*> found;
    Brisk::BriskMapBase::corruptionHandlerIs(
        [&](Brisk::BriskMapBase& map, std::string const&) { found.push_back(&map); });
    auto const key = F::S::key(1);
    for (auto* const c : {&writer, &client}) {
        auto& owner = *c->of;
        SCOPED_TRACE(owner.map().modeStr());
        EXPECT_EQ(owner.get(key), typename F::Value());
        EXPECT_FALSE(owner.has(key));
        EXPECT_TRUE(F::contents(owner).empty());
        EXPECT_FALSE(typename F::Iterator(&owner.map(), key));
        EXPECT_EQ(std::exchange(found, {}), std::vector<Brisk::BriskMapBase*>(4, &owner.map()));
    }
}

TYPED_TEST(TableAttribute, DamageEndsAWriterThatDoesNotRaise) {
    using F = TestFixture;
    using O = typename F::Owner;
    auto const value = F::S::value(1, 2);
    auto const key = F::S::key(1);
    typename F::Value const* const valueAt = &value;
    typename F::Key const* const keyAt = &key;
    std::pair<char const*, std::function<void(O&)>> const uses[] = {
        {"is", [&](O& owner) { owner.is(value); }},
        {"del", [&](O& owner) { owner.del(key); }},
        {"delAll", [&](O& owner) { owner.delAll(); }},
        {"isAll",
         [&](O& owner) {
             owner.isAll({&valueAt, 1});
         }},
        {"delMany",
         [&](O& owner) {
             owner.delMany({&keyAt, 1});
         }},
        {"directWrite", [&](O& owner) { owner.map().safeDirectWrite(value); }},
        {"directUpdate", [&](O& owner) { owner.map().safeDirectUpdate(key); }},
    };
    Ear ear;
    for (bool const raises : {false, true})
        for (auto const& [what, use] : uses) {
            SCOPED_TRACE(testing::Message() << what << " raises " << raises);
            // One table each: what stops in the middle of a change leaves its mark.
            auto const path = fmt::format("test/{}/{}", what, raises);
            typename F::Client writer(VomoBriskType::writer, path.c_str());
            auto& owner = *writer.of;
            F::put(owner, 0, 20, 1);
            this->damage(path);
            if (!raises) {
                Brisk::BriskMapBase::corruptionHandlerIs({});
                EXPECT_DEATH(use(owner), "in no man's land");
                continue;
            }
            Brisk::BriskMapBase::corruptionHandlerIs(
                [&](Brisk::BriskMapBase&, std::string const& message) {
                    throw Dunlin::RuntimeException("handled: " + message);
                });
            EXPECT_THAT(ear.raisedBy([&] { use(owner); }), testing::StartsWith("handled: "));
            EXPECT_EQ(owner.changes(), 20U);
        }
}

} // namespace
