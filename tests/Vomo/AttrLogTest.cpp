// Replication: a mirror follows a source through small queues, cut connections and damage.
#include "Mroute/McastGroup.h"
#include "Mroute/MfibDir.h"
#include "Vomo/NboAttrLogDemuxer.h"

#include <deque>
#include <fstream>
#include <random>

namespace {

using namespace Multicast::Group;
using MrouteLib::PortVlan;
using Vomo::NboAttrLog::Demuxer;

PortVlan portVlan(U32 n) {
    PortVlan pv;
    pv.portIs(Kelpie::IntfId(n + 1));
    pv.outLifIs(MrouteLib::OutLif(n));
    return pv;
}

// All there is to know about a config.
std::string content(Config const& config) {
    std::map<GroupKey, std::string> requests;
    for (auto const& node : config.request()) {
        Request const& r = *node.value();
        std::string text =
            fmt::format("{} {} {} {}:", r.key(), r.requestId(), r.toCpu(), r.featureFlag());
        for (auto const& member : r.portVlan())
            text += fmt::format(" {}={}", member.fwkKey().outLif(), member.value());
        requests[r.key()] = text;
    }
    std::string all;
    for (auto const& [key, text] : requests) all += text + "\n";
    return all;
}

// The bytes that announce an entity.
std::vector<U8> announcement(U8 id, std::string_view type, std::vector<U8> const& params) {
    Vomo::NboAttrLog::Out out;
    out << static_cast<U32>(17 + type.size() + params.size()) << U32{id} << S32{0} << U8{16}
        << Vomo::String(type);
    out.append(params.data(), params.size());
    return {out.bytes().begin(), out.bytes().end()};
}

// Both ends in one process, with a byte queue between them.
class Replication : public testing::Test {
protected:
    Replication()
        : sourceEnd(Demuxer::Role::source, source), mirrorEnd(Demuxer::Role::mirror, mirror) {}
    void connect() {
        mirrorEnd.connectedIs(true);
        sourceEnd.connectedIs(true);
    }
    void disconnect() {
        sourceEnd.connectedIs(false);
        mirrorEnd.connectedIs(false);
    }
    // Carries up to `bytes` from one end to the other; how many went.
    static std::size_t carry(Demuxer& from, Demuxer& to, std::size_t bytes = ~std::size_t{0}) {
        std::vector<U8> const piece(from.waiting().begin(),
                                    from.waiting().begin() + static_cast<std::ptrdiff_t>(std::min(
                                                                 bytes, from.waiting().size())));
        to.receive(piece);
        from.consumed(piece.size());
        return piece.size();
    }
    void settle() {
        while (carry(sourceEnd, mirrorEnd) + carry(mirrorEnd, sourceEnd) != 0) {
        }
    }
    void expectEqual() { EXPECT_EQ(content(*mirror), content(*source)); }

    // One random change of a config.
    void change(Config& config) {
        GroupKey const key(19, static_cast<U16>(random() % 40));
        U32 const what = static_cast<U32>(random() % 12);
        if (what == 0) {
            config.requestDel(key);
            return;
        }
        auto const request = config.requestIs(key);
        if (what < 7)
            request->portVlanIs(portVlan(static_cast<U32>(random() % 30)), random() & 1);
        else if (what < 9)
            request->portVlanDel(portVlan(static_cast<U32>(random() % 30)));
        else if (what == 9)
            request->requestIdInc(1);
        else if (what == 10)
            request->toCpuIs(random() & 1);
        else
            request->featureFlagIs(static_cast<U32>(random()));
    }

    std::mt19937 random{14};
    Vomo::Ptr<Config> source = configFactory("source"), mirror = configFactory("mirror");
    Demuxer sourceEnd, mirrorEnd;
};

TEST_F(Replication, AMirrorEqualsItsSourceAtRest) {
    for (int i = 0; i < 200; ++i) change(*source);
    connect();
    settle();
    expectEqual();
    for (int round = 0; round < 300; ++round) {
        for (int i = 0; i < 20; ++i) change(*source);
        settle();
        expectEqual();
    }
    EXPECT_EQ(sourceEnd.messagesReceived(), 0U); // nothing was echoed
}

TEST_F(Replication, ASmallQueueInterruptsWalksAndLosesNothing) {
    for (int i = 0; i < 400; ++i) change(*source);
    sourceEnd.budgetIs(40); // about one message
    connect();
    for (int step = 0; step < 60000; ++step) {
        if (step < 4000) change(*source);
        carry(sourceEnd, mirrorEnd, 1 + random() % 9);
        if (step >= 4000 && sourceEnd.waitingBytes() == 0) break;
    }
    settle();
    expectEqual();
}

// A member changes behind a pass that waits for room with other attributes.
TEST_F(Replication, WhatChangesBehindAWaitingPassIsSentWithoutAnotherChange) {
    auto const request = source->requestIs({19, 1});
    request->portVlanIs(portVlan(0), true);
    sourceEnd.budgetIs(1);
    for (U32 stop = 1; stop < 9; ++stop) {
        connect();
        for (U32 turn = 0; turn < stop; ++turn) carry(sourceEnd, mirrorEnd);
        request->portVlanIs(portVlan(stop), true);
        settle();
        expectEqual();
        disconnect();
    }
}

// A message as the bytes tell it.
struct Message {
    U32 entity;
    S32 attribute;
    U8 flags;
    std::vector<U8> payload;
};
// Takes the whole messages out of `stream`.
std::vector<Message> messagesIn(std::vector<U8>& stream) {
    std::vector<Message> list;
    std::size_t at = 0;
    while (stream.size() - at >= 4) {
        Vomo::NboAttrLog::In in(std::span<U8 const>(stream).subspan(at));
        U32 const size = in.nextU32();
        if (stream.size() - at < size) break;
        Message m{in.nextU32(), in.nextS32(), in.nextU8(), {}};
        m.payload.assign(in.take(0), in.take(0) + size - Vomo::NboAttrLog::messageHeaderSize);
        list.push_back(m);
        at += size;
    }
    stream.erase(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(at));
    return list;
}
U32 outLifIn(Message const& m) {
    Vomo::NboAttrLog::In in(m.payload);
    return PortVlan(&in, Vomo::StreamBogon{}).outLif().value();
}

// The budget is a few bytes, so that each walk is interrupted after every message. What happens to a
// member behind the walk, at its bookmark and ahead of it?
TEST_F(Replication, AnInterruptedWalkResumesAtItsBookmark) {
    auto const request = source->requestIs({19, 1});
    for (U32 i = 0; i < 100; ++i) request->portVlanIs(portVlan(i), true);
    sourceEnd.budgetIs(3);
    connect();
    std::vector<U8> stream;
    std::vector<Message> sent;
    std::size_t members = 0;
    auto const take = [&] {
        auto const bytes = sourceEnd.waiting();
        std::size_t const n = std::min<std::size_t>(5, bytes.size());
        stream.insert(stream.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
        carry(sourceEnd, mirrorEnd, n);
        for (Message const& m : messagesIn(stream)) {
            members += m.attribute == Request::portVlanAttr && m.flags == 1;
            sent.push_back(m);
        }
        return n != 0;
    };
    while (members < 50) take();
    request->portVlanIs(portVlan(10), false); // behind
    request->portVlanIs(portVlan(80), false); // ahead
    request->portVlanDel(portVlan(20));
    request->portVlanDel(portVlan(90));
    for (U32 i = 50; i < 55; ++i) request->portVlanDel(portVlan(i)); // and the bookmark itself
    request->portVlanIs(portVlan(5), false);
    request->portVlanIs(portVlan(5), true); // twice, told once
    while (take()) {
    }
    expectEqual();
    std::map<U32, int> told, gone;
    int begins = 0, resumed = 0, ends = 0;
    for (Message const& m : sent) {
        if (m.attribute == -S32{Request::portVlanAttr}) ++gone[outLifIn(m)];
        if (m.attribute != Request::portVlanAttr) continue;
        if (m.flags == 1) ++told[outLifIn(m)];
        begins += m.flags == 2, resumed += m.flags == (2 | 8), ends += (m.flags & 4) != 0;
    }
    for (auto const& [lif, times] : told) EXPECT_EQ(times, lif == 10 || lif == 5 ? 2 : 1) << lif;
    EXPECT_FALSE(told.contains(90));
    EXPECT_TRUE(gone.contains(20));
    EXPECT_EQ(begins, 1);
    EXPECT_GT(resumed, 40);
    EXPECT_EQ(ends, 1);
}

// While the queue is full a child goes and another takes its key: the mirror's does the same.
TEST_F(Replication, AChildThatWasRemadeIsAnotherOneInTheMirror) {
    source->requestIs({19, 1})->requestIdIs(7);
    connect();
    settle();
    auto const old = mirror->request({19, 1});
    sourceEnd.budgetIs(1);
    source->requestIs({19, 2}); // fills the queue
    source->requestDel({19, 1});
    source->requestIs({19, 1})->toCpuIs(true);
    settle();
    expectEqual();
    EXPECT_NE(mirror->request({19, 1}).ptr(), old.ptr());
    EXPECT_EQ(old->parent(), nullptr);
    EXPECT_EQ(old->references(), 1U); // nobody else holds it
    for (U16 i = 0; i < 100; ++i) source->requestIs({20, i});
    settle();
    source->requestDelAll();
    settle();
    expectEqual();
    EXPECT_EQ(source->request().members(), 0U);
}

// Both sides make the same child before they hear of each other's: the source's content holds, and
// later changes go both ways.
TEST_F(Replication, AChildMadeOnBothSidesIsOne) {
    connect();
    settle();
    source->requestIs({19, 1})->requestIdIs(1);
    mirror->requestIs({19, 1})->requestIdIs(2);
    mirror->request({19, 1})->portVlanIs(portVlan(2), true);
    settle();
    expectEqual();
    EXPECT_EQ(source->request({19, 1})->requestId(), 1U);
    source->request({19, 1})->toCpuIs(true);
    mirror->request({19, 1})->featureFlagIs(7);
    settle();
    expectEqual();
    EXPECT_EQ(source->request({19, 1})->featureFlag(), 7U);
    EXPECT_TRUE(mirror->request({19, 1})->toCpu());
}

// The source has yet to tell of its child when it hears of the other: its queue was full.
TEST_F(Replication, TheSourcesContentHoldsThoughItIsYetToBeSent) {
    for (bool const inResync : {true, false}) {
        SCOPED_TRACE(inResync);
        sourceEnd.budgetIs(inResync ? 1 : 65536);
        if (inResync) source->requestIs({19, 1});
        connect();
        if (!inResync) settle();
        sourceEnd.budgetIs(1);
        if (!inResync) source->requestIs({19, 1}); // fills the queue
        auto const request = source->requestIs({19, 5});
        request->requestIdIs(50);
        request->portVlanIs(portVlan(5), true);
        mirror->requestIs({19, 5});
        carry(mirrorEnd, sourceEnd);
        settle();
        expectEqual();
        EXPECT_EQ(source->request({19, 5})->requestId(), 50U);
        EXPECT_TRUE(source->request({19, 5})->portVlan(portVlan(5)));
        source->requestDelAll();
        settle();
        disconnect();
    }
}

// Both sides write the same through small queues: what either then says of what has gone, or is
// another one now, is no damage.
TEST_F(Replication, SidesThatContendDoNoHarm) {
    for (int round = 0; round < 100; ++round) {
        connect();
        sourceEnd.budgetIs(random() % 60);
        mirrorEnd.budgetIs(random() % 60);
        for (int step = 0; step < 300; ++step) {
            Config& config = random() & 1 ? *source : *mirror;
            GroupKey const key(19, static_cast<U16>(random() % 3));
            if (random() & 1)
                config.requestDel(key);
            else
                config.requestIs(key)->requestIdInc(1);
            carry(sourceEnd, mirrorEnd, random() % 40);
            carry(mirrorEnd, sourceEnd, random() % 40);
        }
        settle();
        disconnect();
        connect();
        settle();
        expectEqual();
        disconnect();
    }
}

TEST_F(Replication, AMirrorLearnsThatItIsSynced) {
    for (int i = 0; i < 100; ++i) change(*source);
    sourceEnd.budgetIs(1);
    int told = 0;
    mirrorEnd.onSynced = [&] {
        ++told;
        expectEqual();
    };
    for (int connections = 1; connections < 3; ++connections) {
        connect();
        while (!mirrorEnd.synced()) ASSERT_NE(carry(sourceEnd, mirrorEnd, 10), 0U);
        EXPECT_EQ(told, connections);
        settle();
        EXPECT_EQ(told, connections);
        disconnect();
        EXPECT_FALSE(mirrorEnd.synced());
    }
}

// A peer that is always a little late does not keep what has gone here.
TEST_F(Replication, WhatHasLeftIsFreedThoughTheQueueIsNeverEmpty) {
    connect();
    std::vector<U8> bytes;
    std::deque<Vomo::Ptr<Request>> gone;
    for (U16 i = 0; i < 2000; ++i) {
        auto const request = source->requestIs({19, i});
        source->requestDel({19, i});
        if (i < 1000) gone.push_back(request);
        carry(sourceEnd, mirrorEnd, sourceEnd.waitingBytes() - 1);
    }
    for (auto const& request : gone) EXPECT_EQ(request->references(), 1U);
}

// Changes what it hears of: a value, and another member of the same collection.
struct Answering : Vomo::PtrInterface::NotifieeConst {
    explicit Answering(Request* r) : request(r) { notifierIs(r); }
    void onAttribute(U32 attrId, void const* key) override {
        if (attrId == Request::requestIdAttr && request->requestId() % 2 != 0)
            request->requestIdInc(1);
        if (attrId != Request::portVlanAttr) return;
        U32 const lif = static_cast<PortVlan const*>(key)->outLif().value();
        if (lif < 100) request->portVlanIs(portVlan(lif + 100), true);
    }
    Request* request;
};

TEST_F(Replication, WhatANotifieeAnswersIsSentThoughTheChangeItselfIsNotEchoed) {
    auto const request = source->requestIs({19, 1});
    connect();
    settle();
    Answering const answering(mirror->request({19, 1}).ptr());
    U64 const before = mirrorEnd.messagesSent();
    request->requestIdIs(5);
    request->portVlanIs(portVlan(3), true);
    settle();
    expectEqual();
    EXPECT_EQ(request->requestId(), 6U);
    EXPECT_TRUE(request->portVlan(portVlan(103)));
    EXPECT_EQ(mirrorEnd.messagesSent() - before, 2U);
}

// Removes each child that it hears of.
struct Refusing : Vomo::PtrInterface::NotifieeConst {
    explicit Refusing(Config* c) : config(c) { notifierIs(c); }
    void onAttribute(U32, void const* key) override {
        config->requestDel(*static_cast<GroupKey const*>(key));
    }
    Config* config;
};

TEST_F(Replication, MessagesForWhatHasGoneArePassedOver) {
    connect();
    Refusing const refusing(mirror.ptr());
    source->requestIs({19, 1})->requestIdIs(5); // entity 2, and what it holds
    source->requestIs({19, 2});
    settle();
    expectEqual();
    EXPECT_EQ(source->request().members(), 0U);
    // A child 4 comes into entity 2, and is gone with it; of 5 nobody has heard.
    mirrorEnd.receive(announcement(4, "Multicast::Group::Request", {0, 19, 0, 1}));
    EXPECT_NE(mirrorEnd.entityOf(Vomo::EntityId{4}), nullptr);
    mirrorEnd.receive(
        std::to_array<U8>({0, 0, 0, 19, 0, 0, 0, 2, 0, 0, 1, 2, 1, 0, 0, 0, 0, 0, 4}));
    EXPECT_EQ(mirrorEnd.entityOf(Vomo::EntityId{4}), nullptr);
    auto message = std::to_array<U8>({0, 0, 0, 14, 0, 0, 0, 4, 0, 0, 1, 5, 0, 1});
    mirrorEnd.receive(message);
    message[7] = 5;
    EXPECT_THROW(mirrorEnd.receive(message), Vomo::AttrLogRecordException);
    EXPECT_TRUE(mirrorEnd.damaged());
    // One that was announced has no place yet.
    connect();
    mirrorEnd.receive(announcement(2, "Multicast::Group::Request", {0, 19, 0, 1}));
    EXPECT_THROW(mirrorEnd.receive(announcement(3, "Multicast::Group::Request", {0, 19, 0, 2})),
                 Vomo::AttrLogRecordException);
}

TEST_F(Replication, NothingIsSentTwiceThatNeedNotBe) {
    auto const request = source->requestIs({19, 1});
    for (U32 i = 0; i < 100; ++i) request->portVlanIs(portVlan(i), true);
    connect();
    settle();
    // Begin, announcement, request, end; begin, 100 members, end; 3 scalars; synced.
    EXPECT_EQ(mirrorEnd.messagesReceived(), 4U + 102 + 3 + 1);
    sourceEnd.budgetIs(0);  // as 1
    request->toCpuIs(true); // fills the queue
    for (U32 i = 0; i < 1000; ++i) request->requestIdInc(1);
    for (int i = 0; i < 50; ++i) request->portVlanIs(portVlan(5), i % 2 == 0);
    settle();
    expectEqual();
    EXPECT_EQ(mirrorEnd.messagesReceived(), 110U + 3);
}

TEST_F(Replication, MarkAndSweepRemovesExactlyWhatIsGone) {
    for (U16 i = 0; i < 10; ++i) source->requestIs({19, i})->portVlanIs(portVlan(i), true);
    connect();
    settle();
    disconnect();
    auto const kept = mirror->request({19, 3});
    mirror->requestIs({20, 99}); // of the mirror alone
    mirror->request({19, 4})->portVlanIs(portVlan(77), true);
    source->requestDel({19, 5});
    source->request({19, 6})->portVlanDel(portVlan(6));
    sourceEnd.budgetIs(30); // the walk is interrupted: marks must survive the second begin
    connect();
    settle();
    expectEqual();
    EXPECT_EQ(mirror->request({19, 3}).ptr(), kept.ptr()); // sent again: the same entity
    EXPECT_FALSE(mirror->request({20, 99}));
}

TEST_F(Replication, ChangesGoBothWaysAndAreNotEchoed) {
    connect();
    settle();
    mirror->requestIs({19, 1})->requestIdIs(5);
    settle();
    expectEqual();
    source->request({19, 1})->toCpuIs(true);
    settle();
    expectEqual();
    EXPECT_TRUE(mirror->request({19, 1})->toCpu());
    U64 const sent = sourceEnd.messagesSent() + mirrorEnd.messagesSent();
    settle();
    EXPECT_EQ(sourceEnd.messagesSent() + mirrorEnd.messagesSent(), sent);
    for (int i = 0; i < 2000; ++i) {
        change(i % 2 != 0 ? *source : *mirror);
        settle();
    }
    expectEqual();
}

TEST_F(Replication, AReadOnlyMirrorIsRefused) {
    Demuxer strict(Demuxer::Role::source, source, true);
    mirrorEnd.connectedIs(true);
    strict.connectedIs(true);
    carry(strict, mirrorEnd);
    mirror->requestIs({19, 1});
    EXPECT_THROW(carry(mirrorEnd, strict), Vomo::ArgumentException);
    EXPECT_FALSE(source->request({19, 1}));
    strict.allowWriteFromReadOnlyRemote = [](auto const&, U32 attrId) {
        return attrId == Config::requestAttr;
    };
    strict.connectedIs(true); // of the stream that was refused, what makes the child is allowed
    carry(mirrorEnd, strict, announcement(0, "Multicast::Group::Request", {}).size() + 4 + 23);
    EXPECT_TRUE(source->request({19, 1}));
}

TEST_F(Replication, CutOffAndReconnectedAtAnyByte) {
    for (int i = 0; i < 100; ++i) change(*source);
    for (std::size_t cut = 1; cut < 2500; cut += 37) {
        connect();
        std::size_t carried = 0;
        while (carried < cut) {
            std::size_t const n = carry(sourceEnd, mirrorEnd, cut - carried);
            if (n == 0) break;
            carried += n;
        }
        disconnect();
        change(*source);
    }
    connect();
    settle();
    expectEqual();
}

// The member at which a walk waits goes and comes back, to another place among those of its hash.
TEST_F(Replication, AWalkMissesNobodyWhenItsBookmarkMoves) {
    std::map<U32, GroupKey> seen;
    std::vector<GroupKey> pair;
    for (U32 i = 0; pair.empty() && i < 10'000'000; ++i) {
        GroupKey const key(static_cast<U16>(i >> 8), static_cast<U16>(i));
        auto const [at, isNew] = seen.try_emplace(Config::VomoRequest::record(key).rhash(), key);
        if (!isNew) pair = {at->second, key};
    }
    ASSERT_FALSE(pair.empty());
    for (std::size_t stop = 1; stop < 60; ++stop) {
        GroupKey const moves = pair[stop % 2];
        source->requestDelAll();
        for (U16 i = 0; i < 10; ++i) source->requestIs({i, i});
        for (GroupKey const key : pair) source->requestIs(key);
        sourceEnd.budgetIs(1);
        connect();
        for (std::size_t turn = 0; turn < stop / 2; ++turn) carry(sourceEnd, mirrorEnd);
        source->requestDel(moves);
        source->requestIs(moves);
        settle();
        expectEqual();
        disconnect();
        mirror->requestDelAll();
    }
}

TEST_F(Replication, MirrorsOfOneSourceHearTheSame) {
    Vomo::NboAttrLog::ConnectionGroup group;
    struct Pair {
        Vomo::Ptr<Config> config = configFactory("mirror");
        Demuxer mirror{Demuxer::Role::mirror, config};
        Demuxer source;
    };
    std::vector<std::unique_ptr<Pair>> pairs;
    for (int i = 0; i < 3; ++i) {
        pairs.emplace_back(new Pair{.source{Demuxer::Role::source, source, false, &group}});
        pairs.back()->mirror.connectedIs(true);
        pairs.back()->source.connectedIs(true);
    }
    pairs[2]->source.budgetIs(30); // falls behind
    auto const settleAll = [&] {
        std::size_t carried;
        do {
            carried = 0;
            for (auto const& p : pairs)
                carried += carry(p->source, p->mirror) + carry(p->mirror, p->source);
        } while (carried != 0);
        for (auto const& p : pairs) EXPECT_EQ(content(*p->config), content(*source));
    };
    for (int i = 0; i < 500; ++i) {
        for (int j = 0; j < 5; ++j) change(*source);
        settleAll();
        change(*pairs[random() % 3]->config); // alone: no judge is between two sides
        settleAll();
    }
    // Each change goes once to each; that of a mirror to the others.
    auto const request = source->requestIs({19, 1});
    settleAll();
    auto const sent = [&] {
        U64 all = 0;
        for (auto const& p : pairs) all += p->source.messagesSent();
        return all;
    };
    U64 const before = sent();
    request->requestIdInc(1);
    settleAll();
    EXPECT_EQ(sent() - before, 3U);
    pairs[0]->config->request({19, 1})->requestIdInc(1);
    settleAll();
    EXPECT_EQ(sent() - before, 5U);
    pairs.erase(pairs.begin());
    request->requestIdInc(1);
    settleAll();
}

// Cuts its connection when it hears of a certain request.
// Raises for every change of a config and of its requests.
struct Raising : Vomo::PtrInterface::NotifieeConst {
    explicit Raising(Config* c) : config(c) { notifierIs(c); }
    explicit Raising(Request* r) { notifierIs(r); }
    void onAttribute(U32 attrId, void const* key) override {
        if (config != nullptr)
            if (auto const request = config->request(*static_cast<GroupKey const*>(key)))
                below.push_back(std::make_unique<Raising>(request.ptr()));
        throw std::runtime_error(fmt::format("about {}", attrId));
    }
    Config* config = nullptr;
    std::vector<std::unique_ptr<Raising>> below;
};

TEST_F(Replication, AMirrorFollowsThoughItsNotifieesRaise) {
    for (int i = 0; i < 200; ++i) {
        change(*source);
        change(*mirror);
    }
    Raising const raising(mirror.ptr());
    connect();
    int raised = 0;
    for (int round = 0; round < 200; ++round) {
        for (std::size_t n; (n = sourceEnd.waitingBytes()) != 0; sourceEnd.consumed(n)) try {
                mirrorEnd.receive(sourceEnd.waiting());
            } catch (std::runtime_error const&) {
                ++raised;
            }
        EXPECT_FALSE(mirrorEnd.damaged());
        ASSERT_EQ(content(*mirror), content(*source)) << round;
        for (int i = 0; i < 5; ++i) change(*source);
    }
    EXPECT_GT(raised, 100);
    EXPECT_EQ(sourceEnd.messagesReceived(), 0U);
}

struct Cutting : Vomo::PtrInterface::NotifieeConst {
    Cutting(Config* c, Demuxer& d) : demuxer(d) { notifierIs(c); }
    void onAttribute(U32, void const* key) override {
        if (static_cast<GroupKey const*>(key)->index() == 20) demuxer.connectedIs(false);
    }
    Demuxer& demuxer;
};

TEST_F(Replication, AConnectionIsCutAndPumpedFromWithinItsCallbacks) {
    for (U16 i = 0; i < 40; ++i) source->requestIs({19, i})->requestIdIs(i);
    {
        Cutting const cutting(mirror.ptr(), mirrorEnd);
        connect();
        settle();
        EXPECT_FALSE(mirrorEnd.connected());
        EXPECT_TRUE(mirror->request({19, 20}));
        EXPECT_LT(mirror->request().members(), 40U);
    }
    disconnect();
    // Every change is carried over while its mutator runs, and answered.
    bool pumping = false;
    auto const pump = [&] {
        if (std::exchange(pumping, true)) return;
        while (carry(sourceEnd, mirrorEnd) + carry(mirrorEnd, sourceEnd) != 0) {
        }
        pumping = false;
    };
    sourceEnd.onWaiting = mirrorEnd.onWaiting = pump;
    connect();
    settle();
    expectEqual();
    Answering const answering(mirror->request({19, 1}).ptr());
    for (int i = 0; i < 1000; ++i) change(*source);
    source->requestIs({19, 1})->requestIdIs(77);
    for (Demuxer* const end : {&sourceEnd, &mirrorEnd}) end->receive({});
    settle();
    expectEqual();
    sourceEnd.onWaiting = mirrorEnd.onWaiting = nullptr;
    // A queue that is given room goes on by itself.
    sourceEnd.budgetIs(1);
    source->requestIs({20, 1});
    source->requestIs({20, 2});
    std::size_t const few = sourceEnd.waitingBytes();
    sourceEnd.budgetIs(65536);
    EXPECT_GT(sourceEnd.waitingBytes(), few);
    settle();
    expectEqual();
}

TEST_F(Replication, OnlyChildrenOfTheRightTypeAndKeyAreTaken) {
    struct {
        char const* type;
        U8 id;
        std::vector<U8> params;
        std::vector<U8> key; // in the message that puts it into the root
        bool isTypeError;
    } const rows[] = {
        {"Multicast::Group::Request", 2, {0, 19, 0, 1}, {0, 19, 0, 2}, false}, // another key
        {"Multicast::Group::Request", 3, {0, 19, 0, 1}, {0, 19, 0, 1}, false}, // not the next
        {"Multicast::Group::Request", 2, {0, 19, 0}, {0, 19, 0, 1}, false},
        {"Multicast::Group::Request", 2, {0, 19, 0, 1, 0}, {0, 19, 0, 1}, false},
        {"Multicast::Group::Response", 2, {0, 19, 0, 1}, {0, 19, 0, 1}, true},
        {"Multicast::Group::GroupKey", 2, {0, 19, 0, 1}, {0, 19, 0, 1}, false}, // no entity
        {"Multicast::Group::Nothing", 2, {0, 19, 0, 1}, {0, 19, 0, 1}, false},
        {"VomoBrisk::CollectionControl", 2, {}, {0, 19, 0, 1}, false}, // not made by others
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.type);
        mirrorEnd.connectedIs(true);
        auto const receive = [&] {
            mirrorEnd.receive(announcement(r.id, r.type, r.params));
            std::vector<U8> member{0, 0, 0, 23, 0, 0, 0, 1, 0, 0, 1, 2, 1};
            member.insert(member.end(), r.key.begin(), r.key.end());
            member.insert(member.end(), {0, 0, 0, 0, 0, r.id});
            mirrorEnd.receive(member);
        };
        if (r.isTypeError)
            EXPECT_THROW(receive(), Vomo::TypeException);
        else
            EXPECT_THROW(receive(), Vomo::AttrLogRecordException);
        EXPECT_EQ(mirror->request().members(), 0U);
    }
}

// More than a message holds is left out, and the connection lives on.
TEST(ReplicationOfTexts, OneThatIsTooLongIsNotSent) {
    using namespace Brisk::Multicast::Fib;
    auto const source = mfibDirFactory("source"), mirror = mfibDirFactory("mirror");
    Demuxer sourceEnd(Demuxer::Role::source, source), mirrorEnd(Demuxer::Role::mirror, mirror);
    L3::VrfName const vrf("red");
    for (U32 round = 0; round < 2; ++round) { // by the resync, then as a change
        source->dirCollIs(vrf)->briskUrlIs(std::string(round + (1U << 24), 'x'));
        if (round == 0) {
            mirrorEnd.connectedIs(true);
            sourceEnd.connectedIs(true);
        }
        source->dirColl(vrf)->bitMapperBriskUrlIs(fmt::format("round {}", round));
        while (sourceEnd.waitingBytes() != 0) {
            std::vector<U8> const bytes(sourceEnd.waiting().begin(), sourceEnd.waiting().end());
            mirrorEnd.receive(bytes);
            sourceEnd.consumed(bytes.size());
        }
        ASSERT_TRUE(mirror->dirColl(vrf));
        EXPECT_EQ(mirror->dirColl(vrf)->bitMapperBriskUrl(), fmt::format("round {}", round));
        EXPECT_TRUE(mirror->dirColl(vrf)->briskUrl().empty());
    }
}

TEST_F(Replication, ADamagedStreamRaisesAndLeavesTheEntityWhole) {
    connect();
    auto const request = source->requestIs({19, 1});
    for (U32 i = 0; i < 5; ++i) request->portVlanIs(portVlan(i), true);
    std::vector<U8> const good(sourceEnd.waiting().begin(), sourceEnd.waiting().end());
    int raised = 0, rounds = 0;
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (U8 const flip : {U8{1}, U8{0x80}, U8{0xff}}) {
            auto const target = configFactory("target");
            Demuxer end(Demuxer::Role::mirror, target);
            end.connectedIs(true);
            std::vector<U8> bytes = good;
            bytes[at] ^= flip;
            ++rounds;
            try {
                end.receive(bytes);
            } catch (Vomo::AttrLogRecordException const&) {
                ++raised;
            }
            // Whatever arrived stands there as a whole.
            content(*target);
            for (auto const& node : target->request())
                EXPECT_EQ(node.value()->parent(), target.ptr());
        }
    }
    EXPECT_GT(raised, rounds / 4);
    EXPECT_LT(raised, rounds);
    auto const target = configFactory("target");
    Demuxer end(Demuxer::Role::mirror, target);
    end.connectedIs(true);
    U8 const tooLong[] = {0xff, 0xff, 0xff, 0xff};
    EXPECT_THROW(end.receive(tooLong), Vomo::AttrLogRecordException);
    // A mark for the one attribute number that has no negative.
    U8 const leastNumber[] = {0, 0, 0, 13, 0, 0, 0, 1, 0x80, 0, 0, 0, 2};
    Demuxer other(Demuxer::Role::mirror, target);
    other.connectedIs(true);
    EXPECT_THROW(other.receive(leastNumber), Vomo::AttrLogRecordException);
    for (U8 const flags : std::to_array<U8>({6, 8, 3, 16})) { // of no message
        other.connectedIs(true);
        auto const bytes = std::to_array<U8>({0, 0, 0, 13, 0, 0, 0, 1, 0, 0, 1, 2, flags});
        EXPECT_THROW(other.receive(bytes), Vomo::AttrLogRecordException) << +flags;
    }
}

// The bytes of the worked example in docs/attribute-log.md: what stands there in code blocks, up to
// the words that explain each line.
std::string toldBytes() {
    std::ifstream file(DOCS_DIR "/attribute-log.md");
    std::string all;
    bool inBlock = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("```")) inBlock = !inBlock;
        std::istringstream words(inBlock ? line : "");
        for (std::string word; words >> word && word.size() % 2 == 0 &&
                               word.find_first_not_of("0123456789abcdef") == word.npos;)
            all += word;
    }
    return all;
}

TEST_F(Replication, BytesOfMessagesAreAsTold) {
    connect();
    std::string text;
    auto const take = [&] {
        for (U8 const b : sourceEnd.waiting()) text += fmt::format("{:02x}", b);
        carry(sourceEnd, mirrorEnd);
    };
    take();
    auto const request = source->requestIs({19, 7});
    request->requestIdIs(0x01020304);
    take(); // the announcement, which lets the rest go on
    take();
    PortVlan pv;
    pv.vlanIdIs(Bridging::VlanId(7));
    request->portVlanIs(pv, true);
    request->portVlanDel(pv);
    source->requestDel({19, 7});
    take();
    EXPECT_EQ(text, toldBytes());
    EXPECT_EQ(text.size(), 2U * 264);
}

TEST(StreamTable, UnknownAttributesAndConstructors) {
    auto const request = requestFactory({19, 7});
    Demuxer connection(Demuxer::Role::source, request);
    connection.connectedIs(true);
    auto const type = request->fwkType();
    Vomo::StreamTable const& stream = *type.module->genericTable[type.index].stream;
    auto* const sa = &connection.adapterOf(request.ptr());
    EXPECT_EQ(stream.handleAttrFlowOut(sa, 999), 0xFFFFFFFFU);
    EXPECT_EQ(stream.streamAdapterOnAttribute(sa, 999, nullptr), 0U);
    EXPECT_FALSE(stream.doHandleAttrTransaction(sa, 260, 0, false));
    EXPECT_EQ(stream.attrLogSizeCtorParams(request.ptr()), 4U);
    Vomo::NboAttrLog::Out out;
    stream.serializeConstructorParams(out, request.ptr());
    Vomo::NboAttrLog::In in(out.bytes());
    EXPECT_EQ(stream.newEntityForAttrLog(&in)->name(), request->name());
}

} // namespace
