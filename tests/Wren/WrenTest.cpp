// The doorbell between processes: who sleeps is woken, who is awake costs the writer nothing, and
// whoever misbehaves loses the connection and nothing else.
#include "Wren/BolsterAcceptSm.h"
#include "support/Child.h"
#include "support/Loop.h"
#include "support/MiniTable.h"
#include "support/Sockets.h"
#include "support/TempBase.h"

#include <list>
#include <random>
#include <sys/epoll.h>

namespace {

using namespace Wren;
using Support::Child, Support::MiniReader, Support::Values, Support::Writer;
using Support::loop, Support::pump;
constexpr U32 oriel = 7;

struct Quiet : Yarrow::YarrowWriterNotifiee {
    std::vector<bool> told;
    int shrinks = 0;
    void handleQuiesced(bool quiesced) override { told.push_back(quiesced); }
    void shrink() override { ++shrinks; }
};

class Doorbell : public testing::Test {
protected:
    Doorbell() { make(); }
    void make() {
        writer_ = std::make_unique<Writer>(trace_, path_, options_, &quiet_);
        writer_->attach(oriel);
        writer_->wren().doEnableListen();
    }
    SharedMem::BolsterInfo address() {
        return {BolsterAcceptSm::bolsterAcceptSm().socketName(), writer_->wren().tableId()};
    }
    void change(U32 slot) {
        values_.change(slot);
        writer_->notify(slot);
    }
    // A reading process that follows until it is told to end (by its pipe) and then says whether
    // its copy is exact: exit code 0.
    int follow(Child& self, SharedMem::BolsterInfo const& writer) {
        MiniReader reader(trace_, path_, values_, oriel);
        if (!reader.start(writer)) return 2;
        bool end = false;
        loop().fdAdd(self.hearFd(), EPOLLIN, [&](U32) {
            self.hear();
            end = true;
        });
        if (!pump([&] { return reader.wren.connected(); })) return 3;
        self.tell(1);
        while (!end) loop().runOnce(1);
        if (!pump([&] { return reader.queue.quiesced(); })) return 4;
        if (reader.wren.lateWakes() != 0) return 5;
        self.tell(static_cast<std::int64_t>(reader.wren.sequencesSent()));
        self.hear();
        return reader.copy.exact() ? 0 : 6;
    }

    Support::TempBase base_;
    Mem::RootPath path_{"t"};
    Dunlin::Platform::DebugHandler& trace_ = Support::quietTrace();
    Values values_{2000};
    Quiet quiet_;
    Yarrow::YarrowWriterOptions options_;
    std::unique_ptr<Writer> writer_;
};

TEST_F(Doorbell, EveryReaderEndsExactWhateverTheLoad) {
    auto const writer = address();
    std::list<Child> children;
    for (int i = 0; i < 3; ++i)
        children.emplace_back([&](Child& self) { return follow(self, writer); });
    ASSERT_TRUE(pump([&] { return writer_->wren().readers() == 3; }));
    for (Child& child : children) child.hear();

    std::mt19937 random(5);
    for (int round = 0; round < 4000; ++round) {
        for (auto n = random() % 60; n-- > 0;) change(static_cast<U32>(random() % values_.size()));
        loop().runOnce(random() % 50 == 0 ? 0.002 : 0);
        if (round % 500 == 0) {
            children.front().signal(SIGSTOP);
            writer_->markShrinkStart();
            for (U32 slot = 0; slot < 10; ++slot) change(slot);
            writer_->markShrinkEnd();
            EXPECT_NE(writer_->corralStart(), 0U); // they have yet to pass it
        }
        if (round % 500 == 250) {
            children.front().signal(SIGCONT);
            ASSERT_TRUE(pump([&] { return writer_->corralStart() == 0; }));
        }
    }
    ASSERT_TRUE(pump([&] { return writer_->quiesced(); }));
    EXPECT_TRUE(writer_->clientQuiesced(ReaderWrenSm::readerName()));
    EXPECT_FALSE(writer_->clientQuiesced(""));
    EXPECT_FALSE(writer_->clientQuiesced("nobody"));
    EXPECT_EQ(writer_->wren().sleepingReaders(), 3U);
    EXPECT_GT(quiet_.shrinks, 0);
    ASSERT_FALSE(quiet_.told.empty());
    EXPECT_TRUE(quiet_.told.back());

    U64 sent = 0;
    for (Child& child : children) child.tell(0);
    for (Child& child : children) sent += static_cast<U64>(child.hear());
    EXPECT_TRUE(pump([&] { return writer_->wren().sequencesProcessed() == sent; }));
    for (Child& child : children) {
        child.tell(0);
        EXPECT_EQ(child.join(), 0);
    }
    ASSERT_TRUE(pump([&] { return writer_->wren().readers() == 0; }));
    EXPECT_EQ(writer_->wren().sleepingReaders(), 0U);
}

TEST_F(Doorbell, OneWakePerSleepHoweverMuchHappens) {
    auto const writer = address();
    Child child([&](Child& self) { return follow(self, writer); });
    ASSERT_TRUE(pump([&] { return writer_->wren().sleepingReaders() == 1; }));
    U64 const before = writer_->wren().wrens();
    child.signal(SIGSTOP);
    for (U32 i = 0; i < 10'000; ++i) change(i % 2000);
    EXPECT_EQ(writer_->wren().wrens(), before + 1);
    EXPECT_EQ(writer_->wren().sleepingReaders(), 0U);
    // Its place is held while it is connected: nothing it has not seen may go.
    EXPECT_FALSE(writer_->quiesced());
    EXPECT_LE(writer_->prunedThrough(), writer_->wren().slowest(0));
    child.signal(SIGKILL);
    ASSERT_TRUE(pump([&] { return writer_->wren().readers() == 0; }));
    EXPECT_TRUE(writer_->quiesced()); // nobody is left to wait for
    EXPECT_EQ(child.join(), 1000 + SIGKILL);
}

TEST_F(Doorbell, WhoBreaksTheProtocolLosesTheConnection) {
    auto const dial = [&] { return Support::dialed(address().socketName); };
    auto const answer = [&](Mem::Fd const& fd, Message& message) {
        Received received = Received::nothing;
        EXPECT_TRUE(
            pump([&] { return (received = receive(fd.get(), message)) != Received::nothing; }));
        return received;
    };
    Hello hello;
    hello.tableId = address().tableId;
    hello.orielId = oriel;
    struct {
        void (*spoil)(Hello&);
        Refused::Reason reason;
    } const refused[] = {
        {[](Hello& h) { h.version = 9; }, Refused::badVersion},
        {[](Hello& h) { h.tableId += 1; }, Refused::unknownTable},
        {[](Hello& h) { h.orielId += 1; }, Refused::otherGeneration},
    };
    for (auto const& row : refused) {
        Hello spoilt = hello;
        row.spoil(spoilt);
        Mem::Fd const fd = dial();
        ASSERT_TRUE(send(fd.get(), spoilt));
        Message message;
        ASSERT_EQ(answer(fd, message), Received::message);
        EXPECT_EQ(message.kind, Kind::refused);
        EXPECT_EQ(message.refused.reason, row.reason);
        EXPECT_EQ(answer(fd, message), Received::closed);
    }
    // Each of these instead of a proper second message.
    Position const past{.kind = Kind::sleep, .synced = 1, .position = 1'000'000};
    Position const proper{.kind = Kind::sleep, .synced = 1, .position = 0};
    Wake const wake;
    for (auto const& bytes :
         {std::string(reinterpret_cast<char const*>(&past), sizeof past),
          std::string(reinterpret_cast<char const*>(&wake), sizeof wake),
          std::string(reinterpret_cast<char const*>(&hello), sizeof hello),
          std::string(reinterpret_cast<char const*>(&proper), sizeof proper - 1),
          std::string(300, 'x'), std::string(1, 'y')}) {
        Mem::Fd const fd = dial();
        ASSERT_TRUE(send(fd.get(), hello));
        Message message;
        ASSERT_EQ(answer(fd, message), Received::message);
        EXPECT_EQ(message.kind, Kind::welcome);
        EXPECT_EQ(message.welcome.incarnation, 1U);
        ASSERT_TRUE(sendMessage(fd.get(), bytes.data(), bytes.size()));
        EXPECT_EQ(answer(fd, message), Received::closed);
        EXPECT_EQ(writer_->wren().readers(), 0U);
    }
    // What is no greeting, or comes from the future.
    hello.position = 1'000'000;
    Message message;
    for (bool const greets : {true, false}) {
        Mem::Fd const fd = dial();
        ASSERT_TRUE(greets ? send(fd.get(), hello) : send(fd.get(), proper));
        EXPECT_EQ(answer(fd, message), Received::closed);
    }
    hello.position = 0;
    // Two Sleeps without a Wake between; and those who never greet are no readers.
    std::vector<Mem::Fd> silent(300);
    for (Mem::Fd& fd : silent) fd = dial();
    EXPECT_EQ(answer(silent.back(), message), Received::closed); // so many are not let in
    silent.resize(100);
    loop().runOnce(0.01);
    Mem::Fd const twice = dial();
    ASSERT_TRUE(send(twice.get(), hello));
    ASSERT_TRUE(send(twice.get(), proper));
    ASSERT_TRUE(pump([&] { return writer_->wren().sleepingReaders() == 1; }));
    ASSERT_TRUE(send(twice.get(), proper));
    ASSERT_TRUE(pump([&] { return writer_->wren().readers() == 0; }));
    EXPECT_EQ(writer_->wren().sleepingReaders(), 0U);
    change(1);
    EXPECT_EQ(writer_->wren().wrens(), 0U);
    // One that is woken again and again and never takes a Wake from its socket.
    for (bool const late : {true, false}) {
        Mem::Fd const deaf = dial();
        ASSERT_TRUE(send(deaf.get(), hello));
        ASSERT_TRUE(pump([&] { return writer_->wren().readers() == 1; }));
        U32 wakes = 0;
        for (; wakes < 5000 && writer_->wren().readers() == 1; ++wakes) {
            Position sleep = proper;
            if (!late) sleep.position = writer_->sequence();
            send(deaf.get(), sleep);
            loop().runOnce(0.01);
            if (!late) change(1), loop().runOnce(0);
        }
        EXPECT_LT(wakes, 5000U);
        EXPECT_EQ(writer_->wren().sleepingReaders(), 0U);
        EXPECT_TRUE(writer_->quiesced());
    }
}

// A writer that never turns its loop takes what has come with the next change after a pause (of no
// length here), inside the change: nobody is called back before the loop is turned.
TEST_F(Doorbell, AChangeTakesWhatTheLoopHasLeft) {
    struct Pause {
        Pause() { WriterWrenSm::pauseIs(0); }
        ~Pause() { WriterWrenSm::pauseIs(pauseSeconds); }
    } const none;
    writer_.reset();
    make();
    U32 changes = 0;
    auto const next = [&](bool flush) {
        if (flush)
            writer_->wren().flush();
        else
            change(1), ++changes;
    };
    auto& wren = writer_->wren();
    Hello hello;
    hello.tableId = address().tableId;
    hello.orielId = oriel;
    hello.position = 0;
    Message message;
    auto const heard = [&](Mem::Fd const& fd, Kind kind) {
        return receive(fd.get(), message) == Received::message && message.kind == kind;
    };
    for (bool const flush : {false, true}) {
        Mem::Fd const late = Support::dialed(address().socketName);
        next(flush); // connected, not greeted
        ASSERT_TRUE(send(late.get(), hello));
        next(flush);
        ASSERT_TRUE(heard(late, Kind::welcome));
        EXPECT_EQ(message.welcome.sequence, changes);
        ASSERT_TRUE(send(late.get(), Position{.kind = Kind::progress, .synced = 1, .position = 0}));
        ASSERT_TRUE(send(late.get(), Position{.synced = 1, .position = changes}));
        next(flush);
        if (flush) {
            EXPECT_EQ(wren.sleepingReaders(), 1U);
            next(false);
        }
        EXPECT_TRUE(heard(late, Kind::wake));
        EXPECT_EQ(message.wake.sequence, changes);
        ASSERT_TRUE(send(late.get(), Position{.synced = 1, .position = 0})); // is behind already
        next(flush);
        EXPECT_TRUE(heard(late, Kind::wake));
        ASSERT_TRUE(send(late.get(), Wake{})); // breaks the protocol
        next(flush);
        EXPECT_EQ(wren.readers(), 0U);
        EXPECT_EQ(receive(late.get(), message), Received::closed);
        EXPECT_EQ(quiet_.told, std::vector<bool>());
    }
    // One that has gone, and a corral that waits for it: that is for the loop.
    {
        Mem::Fd const gone = Support::dialed(address().socketName);
        ASSERT_TRUE(send(gone.get(), hello));
        next(false);
        writer_->markShrinkStart();
        next(false);
        writer_->markShrinkEnd();
    }
    next(false);
    EXPECT_EQ(wren.readers(), 0U);
    EXPECT_NE(writer_->corralStart(), 0U);
    ASSERT_TRUE(pump([&] { return writer_->corralStart() == 0; }));
}

// The writer's end played by hand: what it sends out of turn ends the connection, and a Sleep that
// finds no room in the socket is kept until there is some.
TEST_F(Doorbell, AReaderHoldsTheWriterToTheProtocol) {
    Mem::Fd const listening = Support::listening("peer-1");
    auto reader = std::make_unique<MiniReader>(trace_, path_, values_, oriel);
    EXPECT_FALSE(reader->wren.connect({}));
    EXPECT_FALSE(reader->wren.connect({"nobody-1", 1}));
    Message message;
    // Connects, and gives the writer's end.
    auto const greeted = [&] {
        EXPECT_TRUE(reader->start({"peer-1", 1}));
        Mem::Fd peer(::accept4(listening.get(), nullptr, nullptr, SOCK_NONBLOCK));
        EXPECT_EQ(receive(peer.get(), message), Received::message);
        EXPECT_EQ(message.hello.orielId, oriel);
        return peer;
    };
    Welcome const welcome{.incarnation = 1};
    Wake const wake;
    Refused const refused;
    auto const asleep = [&](Mem::Fd const& peer) {
        send(peer.get(), welcome);
        return pump([&] { return receive(peer.get(), message) == Received::message; }) &&
               message.kind == Kind::sleep;
    };
    struct {
        bool welcomed;
        void const* message;
        std::size_t size;
    } const wrongs[] = {{false, &wake, sizeof wake},
                        {false, &refused, sizeof refused},
                        {true, &welcome, sizeof welcome},
                        {true, &wake, 5}};
    for (auto const& wrong : wrongs) {
        SCOPED_TRACE(&wrong - wrongs);
        int const before = reader->disconnects;
        Mem::Fd const peer = greeted();
        ASSERT_TRUE(!wrong.welcomed || asleep(peer));
        ASSERT_TRUE(sendMessage(peer.get(), wrong.message, wrong.size));
        EXPECT_TRUE(pump([&] { return reader->disconnects == before + 1; }));
        EXPECT_FALSE(reader->wren.connected());
    }
    Mem::Fd const peer = greeted();
    ASSERT_TRUE(asleep(peer));
    U64 sent = 0;
    while (sent != reader->wren.sequencesSent()) {
        sent = reader->wren.sequencesSent();
        ASSERT_TRUE(send(peer.get(), wake));
        loop().runOnce(0.01);
    }
    while (receive(peer.get(), message) == Received::message) continue;
    EXPECT_TRUE(pump([&] { return reader->wren.sequencesSent() == sent + 1; }));
    EXPECT_EQ(receive(peer.get(), message), Received::message);
    EXPECT_EQ(message.kind, Kind::sleep);
    // The client wants to hear no more, in the midst of what it hears, or lets everything go.
    U32 drains = 0; // the first is the one before the Wake is taken
    reader->onDrain = [&] { reader->wren.notifyingIs(++drains < 2); };
    send(peer.get(), wake);
    EXPECT_TRUE(pump([&] { return receive(peer.get(), message) == Received::message; }));
    EXPECT_EQ(message.kind, Kind::progress);
    reader->onDrain = Dunlin::noop;
    reader->wren.notifyingIs(true); // a slice is posted, and finds nobody
    reader = std::make_unique<MiniReader>(trace_, path_, values_, oriel);
    Mem::Fd const last = greeted();
    ASSERT_TRUE(asleep(last));
    reader->onDrain = [&] { reader.reset(); };
    send(last.get(), wake);
    EXPECT_TRUE(pump([&] { return !reader; }));
    EXPECT_TRUE(pump([&] { return receive(last.get(), message) == Received::closed; }));
}

TEST_F(Doorbell, AnEndpointOfTheSameNameIsLeftAlone) {
    Support::TempBase const other;
    Mem::makeDirectory(other.path() + "/sockets");
    Mem::Fd const first = Support::listening(SharedMem::BolsterName::own());
    EXPECT_THROW(writer_->wren().doEnableListen(), Dunlin::InvalidInitializeException);
    Support::dialed(SharedMem::BolsterName::own()); // still there
}

TEST_F(Doorbell, ReadersHearOfTheWritersEnd) {
    auto const writer = address();
    MiniReader reader(trace_, path_, values_, oriel);
    ASSERT_TRUE(reader.start(writer));
    ASSERT_TRUE(pump([&] { return writer_->wren().sleepingReaders() == 1; }));
    EXPECT_TRUE(reader.wren.connected());
    EXPECT_EQ(reader.welcome.incarnation, 1U);
    writer_->wren().onDetach();
    ASSERT_TRUE(pump([&] { return reader.disconnects == 1; }));
    EXPECT_FALSE(reader.wren.connected());
    EXPECT_TRUE(reader.wren.connect(writer)); // the endpoint is there, the table is not
    ASSERT_TRUE(pump([&] { return reader.disconnects == 2; }));
    writer_.reset();
    make();
    EXPECT_EQ(writer_->incarnation(), 2U);
    EXPECT_TRUE(reader.wren.connect(address()));
    ASSERT_TRUE(pump([&] { return reader.wren.connected(); }));
    EXPECT_EQ(reader.welcome.incarnation, 2U);
}

// A reader that has not passed a move for too long does not keep it standing: it walks.
TEST_F(Doorbell, AMoveIsForgottenOverAReaderThatDoesNotLook) {
    options_.maxAge = 3000;
    writer_.reset();
    make();
    MiniReader reader(trace_, path_, values_, oriel);
    ASSERT_TRUE(reader.start(address()));
    ASSERT_TRUE(pump([&] { return writer_->wren().sleepingReaders() == 1; }));
    writer_->markShrinkStart();
    change(1);
    writer_->markShrinkEnd();
    for (U32 i = 0; i < 2000; ++i) change(i);
    EXPECT_NE(writer_->corralStart(), 0U);
    for (U32 i = 0; i < 8000; ++i) change(i % 2000);
    EXPECT_EQ(writer_->corralStart(), 0U);
    ASSERT_TRUE(pump([&] { return writer_->quiesced() && reader.queue.quiesced(); }));
    EXPECT_EQ(reader.copy.walks, 2U);
    EXPECT_TRUE(reader.copy.exact());
}

TEST_F(Doorbell, NotifyingOffLetsNotificationsWait) {
    MiniReader reader(trace_, path_, values_, oriel);
    reader.start(address());
    ASSERT_TRUE(pump([&] { return writer_->wren().sleepingReaders() == 1; }));
    reader.wren.notifyingIs(false);
    change(5);
    loop().runOnce(0.02);
    loop().runOnce(0.02);
    EXPECT_EQ(reader.copy.taken, 0U);
    reader.wren.notifyingIs(true);
    ASSERT_TRUE(pump([&] { return reader.copy.taken == 1; }));
    ASSERT_TRUE(pump([&] { return writer_->quiesced(); }));
}

// The socket has no room for the Sleep, and has it again just before another slice sends it.
TEST_F(Doorbell, ASleepThatWaitedForRoomLeavesTheLoopAtRest) {
    struct Reader : MiniReader {
        using MiniReader::MiniReader;
        bool drained = false;
        bool wrenDrain(double) override { return drained; }
    } reader(trace_, path_, values_, oriel);
    Mem::makeDirectory(base_.path() + "/sockets");
    Mem::Fd const endpoint = Support::listening("busy-1");
    ASSERT_TRUE(reader.start({"busy-1", 1}));
    Mem::Fd const peer(::accept4(endpoint.get(), nullptr, nullptr, SOCK_NONBLOCK));
    Message message;
    ASSERT_EQ(receive(peer.get(), message), Received::message);
    ASSERT_TRUE(send(peer.get(), Welcome{.incarnation = 1}));
    for (U64 sent = ~0ULL; sent != reader.wren.sequencesSent();) {
        sent = reader.wren.sequencesSent();
        for (int i = 0; i < 10; ++i) loop().runOnce(0);
    }
    EXPECT_GT(reader.wren.sequencesSent(), 50U); // Progress, as much as the socket takes
    reader.drained = true;
    for (int i = 0; i < 10; ++i) loop().runOnce(0); // the Sleep does not fit
    U64 const sent = reader.wren.sequencesSent();
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal, [&] {
        while (receive(peer.get(), message) == Received::message) {
        }
    });
    reader.wren.notifyingIs(true); // a slice behind that task
    loop().runOnce(0);
    EXPECT_EQ(reader.wren.sequencesSent(), sent + 1);
    int busy = 0;
    for (int i = 0; i < 1000; ++i) busy += loop().runOnce(0);
    EXPECT_LE(busy, 1);
    EXPECT_EQ(reader.wren.sequencesSent(), sent + 1); // one token, one Sleep
}

} // namespace
