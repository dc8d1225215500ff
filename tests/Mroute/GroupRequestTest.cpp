// Requests for multicast groups, and the other entities that stand: mutators, who is told how often,
// references, the generic interface.
#include "Mroute/McastGroup.h"
#include "Mroute/MfibDir.h"
#include "Vomo/EntityFrame.h"
#include "VomoBrisk/CollectionControl.h"
#include "support/Watcher.h"

namespace {

using namespace Multicast::Group;
using MrouteLib::PortVlan;

PortVlan portVlan(U32 n) {
    PortVlan pv;
    pv.outLifIs(MrouteLib::OutLif(n));
    return pv;
}

using Support::Heard, Support::Watcher;

TEST(Request, EveryMutatorTellsOnceOrNotAtAll) {
    auto const request = requestFactory({19, 7});
    Watcher watcher;
    watcher.notifierIs(request.ptr());
    auto const pv = portVlan(5);
    struct {
        char const* what;
        std::function<void()> act;
        Heard heard;
    } const rows[] = {
        {"set to the present value", [&] { request->requestIdIs(0); }, {}},
        {"set", [&] { request->requestIdIs(3); }, {260}},
        {"add nothing", [&] { request->requestIdInc(0); }, {}},
        {"wrap around", [&] { EXPECT_EQ(request->requestIdDec(4), 4294967295U); }, {260}},
        {"bool", [&] { request->toCpuIs(true); }, {261}},
        {"same bool", [&] { request->toCpuIs(true); }, {}},
        {"another", [&] { request->featureFlagIs(1); }, {262}},
        {"new member", [&] { request->portVlanIs(pv, false); }, {259}},
        {"same member", [&] { request->portVlanIs(pv, false); }, {}},
        {"other value", [&] { request->portVlanIs(pv, true); }, {259}},
        {"no such member", [&] { EXPECT_FALSE(request->portVlanDel(portVlan(6))); }, {}},
        {"a member goes", [&] { EXPECT_TRUE(request->portVlanDel(pv)); }, {259}},
        {"three members",
         [&] {
             for (U32 i = 1; i < 4; ++i) request->portVlanIs(portVlan(i), true);
         },
         {259, 259, 259}},
        {"by iterator",
         [&] {
             EXPECT_TRUE(request->portVlanDel(
                 Request::PortVlanIterator(&request->portVlan(), portVlan(2))));
         },
         {259}},
        {"by an iterator whose member has left and come back",
         [&] {
             Request::PortVlanIterator const at(&request->portVlan(), portVlan(3));
             EXPECT_TRUE(request->portVlanDel(at));
             EXPECT_FALSE(request->portVlanDel(at));
             request->portVlanIs(portVlan(3), true);
             EXPECT_FALSE(request->portVlanDel(at));
         },
         {259, 259}},
        {"all go", [&] { request->portVlanDelAll(); }, {259, 259}},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        row.act();
        EXPECT_EQ(watcher.take(), row.heard);
    }
    EXPECT_EQ(request->portVlan().members(), 0U);
}

TEST(Config, ChildrenAreMadeKeptAndLetGo) {
    S64 const live = Vomo::AllocTrackTypeInfo::live(Request::vomoAllocTrackTypeInfo_);
    {
        auto const config = configFactory("agent");
        Watcher watcher;
        watcher.notifierIs(config.ptr());
        auto const request = config->requestIs({19, 7});
        EXPECT_EQ(request->parent(), config.ptr());
        EXPECT_EQ(config->requestIs({19, 7}).ptr(), request.ptr());
        EXPECT_EQ(watcher.take(), Heard{258});
        EXPECT_FALSE(config->requestDel({19, 8}));
        EXPECT_EQ(watcher.take(), Heard{});
        watcher.act = [&](U32, void const* key) { // told after the removal
            EXPECT_EQ(*static_cast<GroupKey const*>(key), GroupKey(19, 7));
            EXPECT_FALSE(config->request({19, 7}));
            EXPECT_EQ(request->parent(), nullptr);
        };
        EXPECT_EQ(config->requestDel({19, 7}).ptr(), request.ptr());
        EXPECT_EQ(watcher.take(), Heard{258});
        watcher.act = nullptr;
        request->requestIdIs(9); // still alive for who holds it
        for (U16 i = 0; i < 20; ++i) config->requestIs({20, i});
        watcher.take();
        config->requestDelAll();
        EXPECT_EQ(watcher.take().size(), 20U);
        config->requestIs({20, 1}); // goes with its parent
    }
    EXPECT_EQ(Vomo::AllocTrackTypeInfo::live(Request::vomoAllocTrackTypeInfo_), live);
}

TEST(Entities, OfTheOtherDirectoriesTellTheSameWay) {
    auto const status = statusFactory("hardware");
    auto const response = status->responseIs({19, 7});
    auto const dir = Brisk::Multicast::Fib::mfibDirFactory("fib");
    auto const coll = dir->dirCollIs(L3::VrfName("red"));
    auto const control = VomoBrisk::collectionControlFactory(nullptr);
    Watcher watcher;
    struct {
        Vomo::Entity* of;
        std::function<void()> act;
        Heard heard;
    } const rows[] = {
        {response.ptr(), [&] { response->successIs(true), response->successIs(true); }, {259}},
        {response.ptr(), [&] { response->multicastIdIs(4), response->multicastIdIs(4); }, {260}},
        {response.ptr(), [&] { response->requestIdIs(1), response->requestIdIs(1); }, {261}},
        {response.ptr(), [&] { EXPECT_EQ(response->responseIdInc(2), 2U); }, {262}},
        {response.ptr(), [&] { response->responseIdDec(0); }, {}},
        {coll.ptr(), [&] { coll->briskUrlIs("a"), coll->briskUrlIs("a"); }, {259}},
        {coll.ptr(), [&] { coll->bitMapperBriskUrlIs(""); }, {}},
        {dir.ptr(), [&] { dir->dirCollIs(coll->vrfName()); }, {}},
        {dir.ptr(), [&] { dir->dirCollIs(L3::VrfName("default")); }, {258}},
        {dir.ptr(), [&] { EXPECT_FALSE(dir->dirCollDel(L3::VrfName("blue"))); }, {}},
        {dir.ptr(), [&] { dir->dirCollDelAll(); }, {258, 258}},
        // One watcher hears the attributes of a class and of its base.
        {control.ptr(), [&] { control->quiescedIs(true), control->quiescedIs(true); }, {386}},
        {control.ptr(),
         [&] {
             for (int i = 0; i < 2; ++i) control->mountStatusIs(Mem::MountStatus::synchronised);
         },
         {258}},
        // Its owner is not held, and is no attribute.
        {control.ptr(), [&] { control->entityRefIs(dir); }, {}},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(&row - rows);
        watcher.notifierIs(row.of);
        row.act();
        EXPECT_EQ(watcher.take(), row.heard);
    }
    EXPECT_EQ(coll->parent(), nullptr);
    EXPECT_EQ(coll->name(), "'red'");
    EXPECT_EQ(control->name(), "fib");
    EXPECT_EQ(dir->references(), 1U);
    // The base answers for its attribute.
    auto const type = control->fwkType();
    auto const attr = Vomo::attrByName(type, "mountStatus");
    Mem::MountStatus mount{};
    EXPECT_EQ(type.module->genericTable[type.index].attributeOp(
                  &mount, control.ptr(), attr, Vomo::AttributeOp::get, nullptr, nullptr),
              0U);
    EXPECT_EQ(mount, Mem::MountStatus::synchronised);
    EXPECT_TRUE(
        Vomo::VomoTypeBase::isDerived(type, attr.module == type.module ? type.base() : type));
}

TEST(MountInfo, KeepsTheOrderOfItsTables) {
    using VomoBrisk::CollectionInfo, VomoBrisk::VomoBriskType;
    auto info = Brisk::Multicast::Fib::TableInfo::mfibMountInfo(VomoBriskType::reader);
    EXPECT_EQ(info.type(), VomoBriskType::reader);
    EXPECT_EQ(info.collectionInfo(), (std::vector{CollectionInfo("route", 12000, 0),
                                                  CollectionInfo("oifIndexIntf", 1024, 0)}));
    info.collectionInfoIs({"route", 5, 0}); // in its place
    EXPECT_EQ(info.collectionInfo()[0].size(), 5U);
    EXPECT_EQ(info.collectionInfo("oifIndexIntf").size(), 1024U);
    EXPECT_FALSE(info.collectionInfo("bidirGroup"));
    EXPECT_EQ(valueToStrep(VomoBrisk::MountInfo()),
              "Value('VomoBrisk::MountInfo', ** {'type': 'writer', 'collectionInfo': []})");
    for (char const* wrong :
         {"Value('VomoBrisk::MountInfo', ** {'type': 'writer', 'collectionInfo': [}",
          "Value('VomoBrisk::MountInfo', ** {'type': 'writer', 'collectionInfo': [, ]})"})
        EXPECT_THROW(Vomo::strepToValue(wrong, &info), Vomo::ParseException);
}

TEST(Notifiees, AttachDetachAndThrowDuringAVisit) {
    auto const request = requestFactory({19, 7});
    auto first = std::make_unique<Watcher>(), second = std::make_unique<Watcher>();
    Watcher late;
    first->notifierIs(request.ptr());
    second->notifierIs(request.ptr());
    first->act = [&](U32, void const*) {
        second.reset();                 // not called any more
        late.notifierIs(request.ptr()); // not called yet
    };
    request->requestIdIs(1);
    EXPECT_EQ(first->heard, Heard{260});
    EXPECT_EQ(late.heard, Heard{});
    first->act = [&](U32, void const*) { throw std::runtime_error("from a notifiee"); };
    EXPECT_THROW(request->requestIdIs(2), std::runtime_error);
    EXPECT_EQ(request->requestId(), 2U);                   // the change stays
    first->act = [&](U32, void const*) { first.reset(); }; // goes during its own call
    request->requestIdIs(3);
    request->requestIdIs(4);
    EXPECT_EQ(late.heard, (Heard{260, 260, 260})); // what another has raised keeps nothing from it
}

TEST(Notifiees, ASilentEntityAndZeroReferences) {
    Watcher watcher;
    {
        Vomo::Ptr<Request> const silent(
            new Request(GroupKey(19, 7))); // no factory has turned it on
        watcher.notifierIs(silent.ptr(), true);
        silent->requestIdIs(5);
        EXPECT_EQ(watcher.heard, Heard{});
        silent->hasNotificationActiveIs(true);
        silent->requestIdIs(6);
        EXPECT_EQ(watcher.heard, Heard{260});
        EXPECT_EQ(watcher.zero, 0);
        silent->vomoMarkedForDeletionIs(true); // flag bits are no references
    }
    EXPECT_EQ(watcher.zero, 1);
    EXPECT_EQ(watcher.notifier(), nullptr);
}

TEST(References, AreCountedAtomicallyWhereAskedFor) {
    auto const request = requestFactory({19, 7});
    for (bool const threads : {false, true}) {
        Vomo::VFPtrInterface::threadSafePointers_ = threads;
        auto const copy = request;
        EXPECT_EQ(request->references(), 2U);
    }
    Vomo::VFPtrInterface::threadSafePointers_ = false;
    EXPECT_EQ(request->references(), 1U);
}

TEST(GenericInterface, WalksAnEntityByNames) {
    using namespace Vomo;
    VomoType const type = typeByName("Multicast::Group::Config"),
                   requestType = typeByName("Multicast::Group::Request");
    GenericRow const& generic = type.module->genericTable[type.index];
    int argument = 0;
    EXPECT_THROW(generic.newEntityForDir("x", &argument), ArgumentException);
    auto* const made = static_cast<Entity*>(generic.newEntityForDir("agent", nullptr));
    Ptr<Entity> const config(made);
    made->referencesDec();
    EXPECT_EQ(config->fwkType(), type);
    VomoAttr const request = attrByName(type, "request");
    GroupKey key(19, 7);
    U32 count = 0;
    bool has = false;
    Ptr<Entity> child;
    EXPECT_EQ(generic.attributeOp(nullptr, made, request, AttributeOp::set, &key, nullptr), 0U);
    EXPECT_EQ(generic.attributeOp(&count, made, request, AttributeOp::count, nullptr, nullptr), 0U);
    EXPECT_EQ(generic.attributeOp(&has, made, request, AttributeOp::has, &key, nullptr), 0U);
    EXPECT_EQ(generic.attributeOp(&child, made, request, AttributeOp::get, &key, nullptr), 0U);
    EXPECT_EQ(count, 1U);
    EXPECT_TRUE(has);
    EXPECT_EQ(generic.attributeOp(nullptr, made, request, AttributeOp::call, nullptr, nullptr), 1U);

    GenericRow const& onRequest = requestType.module->genericTable[requestType.index];
    VomoAttr const members = attrByName(requestType, "portVlan");
    for (U32 i = 1; i < 4; ++i) {
        PortVlan pv = portVlan(i);
        bool on = i != 2;
        EXPECT_EQ(onRequest.attributeOp(nullptr, child.ptr(), members, AttributeOp::set, &pv, &on),
                  0U);
    }
    GenericIfRaw::Iterator::IteratorVTable const* methods = nullptr;
    void* const iterator = onRequest.iterator(child.ptr(), nullptr, members, &methods);
    std::vector<std::pair<U32, bool>> found;
    for (; methods->iterNonnull(members, iterator); methods->iterInc(members, iterator)) {
        PortVlan pv;
        bool on = false;
        methods->iterKey(members, iterator, &pv);
        methods->iterObj(members, iterator, &on);
        found.emplace_back(pv.outLif().value(), on);
    }
    methods->iterDel(members, iterator);
    EXPECT_EQ(found, (std::vector<std::pair<U32, bool>>{{1, true}, {2, false}, {3, true}}));
    PortVlan const absent = portVlan(9);
    bool value = true;
    EXPECT_EQ(onRequest.attributeOp(&value, child.ptr(), members, AttributeOp::get,
                                    const_cast<PortVlan*>(&absent), nullptr),
              0U);
    EXPECT_FALSE(value); // the default
    EXPECT_EQ(onRequest.iterator(child.ptr(), nullptr, attrByName(requestType, "toCpu"), &methods),
              nullptr);
    U32 id = 77;
    EXPECT_EQ(onRequest.attributeOp(nullptr, child.ptr(), attrByName(requestType, "requestId"),
                                    AttributeOp::set, &id, nullptr),
              0U);
    EXPECT_EQ(static_cast<Request*>(child.ptr())->requestId(), 77U);
    EXPECT_EQ(generic.attributeOp(nullptr, made, request, AttributeOp::del, &key, nullptr), 0U);
    EXPECT_EQ(child->parent(), nullptr);
}

} // namespace
