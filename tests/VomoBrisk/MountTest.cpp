// Mounting, and what becomes of an owner, its tables and their controls in the end.
#include "Owners.h"

#include "Mroute/McastGroup.h"
#include "SharedMem/WriterLock.h"
#include "support/Ear.h"

#include <filesystem>
#include <fstream>

namespace {

using namespace Support;
using Mem::MountStatus;
using VomoBrisk::CollectionControl;
using VomoBrisk::Mount;
using VomoBrisk::MountInfo;
using VomoBrisk::VomoBriskType;
using Table = Mroute::DfProfileTable;
using Owner = OwnerOf<Table>;
using S = Sample<Table>;

class MountedOwner : public testing::Test {
public:
    static MountInfo info(VomoBriskType type, char const* name = Table::attribute) {
        MountInfo result(type);
        result.collectionInfoIs({name, 64, 0});
        return result;
    }
    static Vomo::Ptr<Owner> owner() { return Vomo::newEntity<Owner>("agent"); }
    static void put(Owner& owner, U32 from, U32 to) {
        for (U32 i = from; i < to; ++i) owner.is(S::value(i, 1));
    }

    TempBase base_;
    Vomo::String const path_ = "routing/multicast/test";
};

TEST_F(MountedOwner, RefusesWhatCannotBeMountedAndChangesNothing) {
    auto const owner = MountedOwner::owner();
    Vomo::Ptr<Vomo::Entity> const plain = Multicast::Group::configFactory("groups");
    auto const writer = info(VomoBriskType::writer);
    struct {
        Vomo::Ptr<Vomo::Entity> entity;
        Vomo::String path;
        MountInfo info;
        std::string text;
    } const rows[] = {
        {plain, path_, writer,
         "cannot mount \"groups\" at \"routing/multicast/test\": it owns no tables"},
        {owner, path_, info(VomoBriskType::writer, "dfprofile"),
         "cannot mount \"agent\" at \"routing/multicast/test\": it has no table \"dfprofile\""},
        {owner, "", writer, ".*"},
        {owner, "routing/../../test", writer, ".*\\.\\..*"},
    };
    Ear ear;
    for (auto const& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_THAT(ear.raisedBy([&] { Mount(row.entity, row.path, row.info); }),
                    testing::MatchesRegex(row.text));
    }
    EXPECT_EQ(owner->parent(), nullptr);
    EXPECT_TRUE(std::filesystem::is_empty(base_.path()));
    Mount const mount(owner, path_, writer);
    EXPECT_EQ(VomoSharedMem::Util::fullName(*owner), path_ + "/agent");
    EXPECT_EQ(owner->map().rootPath(), "routing/multicast/test/dfProfile");
}

TEST_F(MountedOwner, HasTheSettingsOfTheMount) {
    Brisk::MapDescriptor settings(7);
    settings.shrinkable = settings.trackMemory = true;
    auto const writer = owner();
    Mount const mount(writer, path_, info(VomoBriskType::writer), settings);
    settings.initialSize = 64;
    EXPECT_EQ(writer->map().descriptor(), settings);
    put(*writer, 0, 5);

    struct {
        bool duringSync, onFlush;
    } const rows[] = {{false, true}, {true, false}, {true, true}};
    for (auto const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.duringSync << row.onFlush);
        auto const shadow = owner();
        Listener<Table> listener(shadow);
        settings.notifyDuringSync = row.duringSync;
        settings.notifyOnFlush = row.onFlush;
        Mount shadowMount(shadow, path_, info(VomoBriskType::valueShadow), settings);
        ASSERT_TRUE(
            pump([&] { return shadow->control()->mountStatus() == MountStatus::synchronised; }));
        EXPECT_EQ(listener.take(), once(0, row.duringSync ? 5 : 0));
        shadowMount.unmount();
        EXPECT_EQ(listener.take(), once(0, row.onFlush ? 5 : 0));
    }

    // A table that the mount does not name stays private.
    auto const other = owner();
    Mount const none(other, path_, MountInfo(VomoBriskType::reader));
    put(*other, 7, 9);
    EXPECT_TRUE(other->has(S::key(7)));
    EXPECT_FALSE(writer->has(S::key(7)));
}

TEST_F(MountedOwner, IsAnOrphanWhereATableDoesNotStart) {
    Mem::WriterLock::waitIs(0.02);
    auto const first = owner();
    Mount const mount(first, path_, info(VomoBriskType::writer));
    auto const second = owner();
    EXPECT_THROW(Mount(second, path_, info(VomoBriskType::writer)),
                 Dunlin::InvalidInitializeException);
    EXPECT_EQ(second->parent(), nullptr);
    EXPECT_FALSE(second->has(S::key(1)));
    put(*first, 0, 1);
    EXPECT_TRUE(first->has(S::key(0)));
    Mem::WriterLock::waitIs(2);
}

// Whoever watches a control learns of each state; the control outlives its owner.
TEST_F(MountedOwner, ItsControlTellsWhoeverWatches) {
    struct Watcher : Vomo::PtrInterface::NotifieeConst {
        void onAttribute(Vomo::AttributeId id, void const*) override {
            heard += id == CollectionControl::quiescedAttr
                         ? (control->quiesced() ? "q" : "b")
                         : std::to_string(U32(control->mountStatus()));
        }
        Vomo::Ptr<CollectionControl> control;
        std::string heard;
    } watcher;
    auto writer = owner();
    auto writerMount = std::make_unique<Mount>(writer, path_, info(VomoBriskType::writer));
    put(*writer, 0, 5);
    auto shadow = owner();
    watcher.control = shadow->control();
    watcher.notifierIs(watcher.control.ptr());
    Mount shadowMount(shadow, path_, info(VomoBriskType::keyShadow));
    ASSERT_TRUE(pump([&] { return watcher.control->quiesced(); }));
    settle();
    EXPECT_EQ(std::exchange(watcher.heard, {}), "2q");
    writerMount.reset();
    ASSERT_TRUE(pump([&] { return watcher.heard.find('0') != std::string::npos; }));
    EXPECT_THAT(watcher.heard, testing::MatchesRegex("(b30|3b0|b0)"));

    EXPECT_EQ(watcher.control->front(), &shadow->map());
    EXPECT_EQ(watcher.control->entityRef(), shadow.ptr());
    shadowMount.unmount();
    shadow = nullptr;
    EXPECT_EQ(watcher.control->front(), nullptr);
    EXPECT_EQ(watcher.control->entityRef(), nullptr);

    // Another control in its place: told under the next number; the former lets go.
    Listener<Table> listener(writer);
    auto const former = writer->control();
    auto const added = VomoBrisk::collectionControlFactory(&writer->map(), writer.ptr());
    writer->controlIs(added);
    writer->controlIs(added);
    EXPECT_EQ(listener.others, std::vector<U32>{Owner::tableControlAttr});
    EXPECT_EQ(former->entityRef(), nullptr);
    writer->controlIs(nullptr);
    writer->map().detach(true); // with none to tell
}

TEST_F(MountedOwner, MayGoInTheMiddleOfWhatItIsTold) {
    // In a notifiee, of each mutator that notifies.
    typename Owner::Value const one = S::value(1, 1);
    auto const* const value = &one;
    auto const key = S::key(1);
    auto const* const keyAt = &key;
    std::function<void(Owner&)> const uses[] = {
        [&](Owner& owner) { owner.is(one); },
        [&](Owner& owner) { owner.del(key); },
        [&](Owner& owner) { owner.delAll(); },
        [&](Owner& owner) {
            owner.isAll({&value, 1});
        },
        [&](Owner& owner) {
            owner.delMany({&keyAt, 1});
        },
        [&](Owner& owner) { owner.commit(owner.map().safeDirectWrite(one)); },
    };
    for (auto const& use : uses) {
        SCOPED_TRACE(&use - uses);
        auto owner = MountedOwner::owner();
        put(*owner, 0, 5);
        Listener<Table> listener(owner);
        listener.onTold = [&] { owner = nullptr; };
        use(*owner);
        EXPECT_FALSE(owner);
        EXPECT_EQ(listener.notifier(), nullptr);
    }
    // When the writer itself calls, from the loop.
    struct Dropper : Vomo::PtrInterface::NotifieeConst {
        void onAttribute(Vomo::AttributeId, void const*) override {
            notifierIs(nullptr);
            mount.reset();
            owner = nullptr;
        }
        Vomo::Ptr<Owner> owner;
        std::unique_ptr<Mount> mount;
    };
    for (bool const unmountFirst : {true, false}) {
        Dropper dropper;
        dropper.owner = owner();
        dropper.mount = std::make_unique<Mount>(dropper.owner, path_, info(VomoBriskType::writer));
        auto const shadow = owner();
        Mount const mount(shadow, path_, info(VomoBriskType::valueShadow));
        ASSERT_TRUE(pump([&] { return shadow->control()->quiesced(); }));
        settle();
        static_cast<void>(unmountFirst);
        dropper.notifierIs(dropper.owner->control().ptr());
        put(*dropper.owner, 0, 5);
        ASSERT_TRUE(pump([&] { return !dropper.owner; }));
        ASSERT_TRUE(
            pump([&] { return shadow->control()->mountStatus() == MountStatus::unmounted; }));
    }
}

// A derived class hears what the table tells through its own function.
TEST_F(MountedOwner, IsToldThroughItsVirtualFunctions) {
    struct Derived : Owner {
        using Owner::Owner;
        void notify(Key const& key) override {
            ++told;
            Owner::notify(key);
        }
        U32 told = 0;
    };
    auto const writer = owner();
    Mount const mount(writer, path_, info(VomoBriskType::writer));
    auto const derived = Vomo::newEntity<Derived>("derived");
    Mount const derivedMount(derived, path_, info(VomoBriskType::valueShadow));
    put(*writer, 0, 3);
    EXPECT_TRUE(pump([&] { return derived->changes() == 3; }));
    EXPECT_EQ(derived->told, 3U);
    EXPECT_EQ(derived->map().classType(), "Support::OwnerOf<Mroute::DfProfileTable>");
    Ear ear;
    EXPECT_TRUE(writer->map().validateFiles("test", 0));
    ear.told({"delegating to BriskMap::validateFiles"});
}

TEST_F(MountedOwner, LeavesNothingBehind) {
    auto const maps = [] {
        std::ifstream file("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    };
    auto const controls = [] {
        return Vomo::AllocTrackTypeInfo::live(
            Vomo::Tracked<CollectionControl>::vomoAllocTrackTypeInfo_);
    };
    owner() = nullptr;
    settle();
    auto const before = maps();
    auto const controlsBefore = controls();
    for (U32 i = 0; i < 100'000; ++i) {
        auto const made = owner();
        if (i % 1000 == 0) put(*made, 0, 3);
        if (i % 100 == 99) loop().runOnce(0);
    }
    settle();
    EXPECT_EQ(controls(), controlsBefore);
    EXPECT_NEAR(static_cast<double>(maps()), static_cast<double>(before), 10);
}

} // namespace
