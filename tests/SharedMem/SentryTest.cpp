// What the sentries tell as a writer comes, goes, dies and comes back.
#include "SharedMem/Sentry.h"
#include "SharedMem/OwnerFile.h"
#include "support/Child.h"
#include "support/Loop.h"
#include "support/Sockets.h"
#include "support/TempBase.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Trace.h"

#include <filesystem>
#include <fstream>

namespace {

using namespace Mem;
using Support::Child, Support::loop, Support::pump, Support::settle;

struct Front : ReaderSentry::Notifiee {
    std::string log;
    bool attached = false, refuse = false, wants = true, disconnected = false;
    std::function<void()> onAttach = [] {};

    bool notifying() const override { return wants; }
    SharedMem::OrielId orielId() const override { return attached; }
    void detach(bool) override {
        attached = false;
        log += 'd';
    }
    void attach(std::string const&) override {
        log += 'a';
        attached = !refuse;
        disconnected = false;
        onAttach();
    }
    bool localMem() const override { return false; }
    std::string modeStr() const override { return "reader"; }
    bool readerFullyAttached() const override { return attached; }
    bool disconnectedActiveReader() const override { return disconnected; }
};

class SentryTest : public testing::Test {
protected:
    Support::TempBase base_;
    RootPath path_{"a/b/table"};
    Dunlin::Platform::DebugHandler& trace_ = Support::quietTrace();
    Front front_;

    // A writing process, as far as its files and its endpoint tell: listens, makes the files, and
    // then serves the commands 'u' (name nobody in the owner file), 'n' (new generation) and end.
    int write(Child& self, U32 orielId) {
        std::string const own = SharedMem::BolsterName::own();
        makeDirectory(base_.path() + "/sockets");
        Fd const endpoint = Support::listening(own);
        path_.makeDirectories();
        for (char const* name : {"slots", "buckets"}) std::ofstream(path_.file(name)) << name;
        SharedMem::OwnerFile owner(trace_, path_, false);
        SharedMem::OrielFile oriel(trace_, path_, false);
        owner.bolsterInfoIs({own, 1});
        oriel.write(orielId);
        for (;;) {
            switch (self.step()) {
            case 'u':
                owner.bolsterInfoIs({});
                break;
            case 'n':
                oriel.write(++orielId);
                break;
            default:
                return 0;
            }
        }
    }
};

TEST_F(SentryTest, AReaderStartedLongBeforeTheWriter) {
    ReaderSentry sentry(trace_, path_, front_);
    sentry(Sentry::eventInit_, false);
    settle();
    EXPECT_EQ(front_.log, "");
    Child writer([&](Child& self) { return write(self, 5); });
    ASSERT_TRUE(pump([&] { return front_.attached; }));
    EXPECT_EQ(front_.log, "a");

    writer.hear();
    writer.tell('n'); // another generation
    ASSERT_TRUE(pump([&] { return front_.log == "ada"; }));
    writer.hear();
    writer.signal(SIGKILL); // no file changes
    ASSERT_TRUE(pump([&] { return front_.log == "adad"; }));
    EXPECT_EQ(writer.join(), 1000 + SIGKILL);

    // Its files name a dead socket: nobody is there. A successor keeps the generation.
    sentry(Sentry::eventTryAttach_, false);
    EXPECT_EQ(front_.log, "adad");
    Child successor([&](Child& self) { return write(self, 6); });
    ASSERT_TRUE(pump([&] { return front_.log == "adada"; }));
    successor.hear();
    successor.tell('u'); // leaves in good order
    ASSERT_TRUE(pump([&] { return front_.log == "adadad"; }));
    successor.hear();
    successor.tell(0);
    EXPECT_EQ(successor.join(), 0);
}

TEST_F(SentryTest, AnotherWriterOfTheSameGenerationIsAnother) {
    Child first([&](Child& self) { return write(self, 5); });
    first.hear();
    ReaderSentry sentry(trace_, path_, front_);
    sentry(Sentry::eventInit_, false);
    EXPECT_EQ(front_.log, "a"); // at once, no turn of the loop needed
    first.signal(SIGSTOP);
    Child second([&](Child& self) { return write(self, 5); });
    second.hear();
    ASSERT_TRUE(pump([&] { return front_.log == "ada"; }));
}

// A file that cannot be read is reported once for each time that it cannot, not for each look.
TEST_F(SentryTest, WhatCannotBeReadIsReportedOnceUntilItCan) {
    Child writer([&](Child& self) { return write(self, 5); });
    writer.hear();
    int told = 0;
    Dunlin::traceSinkIs([&](auto&&, unsigned, std::string_view, std::string const& text) {
        told += text.find("cannot read " + path_.file("slots")) == 0;
    });
    auto const trace = Dunlin::Platform::getDebugHandler("SentryTest", true);
    ReaderSentry sentry(*trace, path_, front_);
    std::string const slots = path_.file("slots"), aside = path_.file("aside");
    for (int times = 1; times <= 2; ++times) {
        std::filesystem::rename(slots, aside);
        std::filesystem::create_symlink(slots,
                                        slots); // leads to itself: unreadable to root as well
        for (int looks = 0; looks < 3; ++looks) sentry(Sentry::eventTryAttach_, false);
        EXPECT_EQ(told, times);
        EXPECT_FALSE(front_.attached);
        std::filesystem::rename(aside, slots);
        sentry(Sentry::eventTryAttach_, false);
        EXPECT_TRUE(front_.attached);
    }
    Dunlin::traceSinkIs({});
}

TEST_F(SentryTest, KeptWaitingSuspendedRetriedReconnected) {
    Child writer([&](Child& self) { return write(self, 5); });
    writer.hear();
    ReaderSentry sentry(trace_, path_, front_);
    front_.wants = false;
    sentry(Sentry::eventInit_, false);
    EXPECT_EQ(front_.log, "");
    front_.wants = true;
    sentry.watching = false;
    sentry(Sentry::eventNotifEnabled_, false);
    EXPECT_EQ(front_.log, "");
    sentry.watching = true;
    front_.refuse = true; // half-made files, say
    sentry(Sentry::eventFlushComplete_, false);
    EXPECT_EQ(front_.log, "a");
    front_.refuse = false;
    ASSERT_TRUE(pump([&] { return front_.attached; })); // by the timer
    EXPECT_EQ(front_.log, "aa");
    sentry(Sentry::eventTryAttach_, false);
    EXPECT_EQ(front_.log, "aa");
    front_.disconnected = true;
    sentry(Sentry::eventDisconnect_, false);
    EXPECT_EQ(front_.log, "aa"); // that was short: not at once
    ASSERT_TRUE(pump([&] { return front_.log == "aaa"; }));
    // One that raises has not ended anything: the look is made again.
    front_.attached = false;
    front_.onAttach = [&] {
        front_.attached = false;
        front_.onAttach = [] {};
        throw std::bad_alloc();
    };
    EXPECT_THROW(sentry(Sentry::eventTryAttach_, false), std::bad_alloc);
    ASSERT_TRUE(pump([&] { return front_.log == "aaaaa" && front_.attached; }));
}

TEST_F(SentryTest, TheDirectoryComesAndGoesWhileWeLook) {
    ReaderSentry sentry(trace_, path_, front_);
    sentry(Sentry::eventInit_, false);
    for (int round = 0; round < 30; ++round) {
        Child writer([&](Child& self) { return write(self, 5); });
        if (round % 2) loop().runReady();
        ASSERT_TRUE(pump([&] { return front_.attached; })) << round;
        writer.signal(SIGKILL);
        std::filesystem::remove_all(round % 3 ? path_.text() : base_.path() + "/a");
        ASSERT_TRUE(pump([&] { return !front_.attached; })) << round;
    }
}

TEST_F(SentryTest, ANotifieeMayEndTheSentryThatCallsIt) {
    Child writer([&](Child& self) { return write(self, 5); });
    writer.hear();
    auto sentry = std::make_unique<ReaderSentry>(trace_, path_, front_);
    front_.onAttach = [&] { sentry.reset(); };
    (*sentry)(Sentry::eventInit_, false);
    EXPECT_EQ(front_.log, "a");
    writer.signal(SIGKILL);
    settle();
    EXPECT_EQ(front_.log, "a");
}

TEST_F(SentryTest, ANotifieeMayAskFromInsideOrAttachByHand) {
    Child writer([&](Child& self) { return write(self, 1); });
    writer.hear();
    front_.refuse = true;
    {
        ReaderSentry sentry(trace_, path_, front_);
        front_.onAttach = [&] { sentry(Sentry::eventTryAttach_, false); };
        sentry(Sentry::eventInit_, false);
        EXPECT_EQ(front_.log, "aaaa"); // and not for ever
        front_.onAttach = [&] {
            sentry(Sentry::eventTryAttach_, false);
            sentry.watching = false;
        };
        sentry(Sentry::eventTryAttach_, false);
        EXPECT_EQ(front_.log, "aaaaa");
    }
    front_ = Front();
    front_.attached = true; // to what is there
    ReaderSentry sentry(trace_, path_, front_);
    sentry(Sentry::eventTryAttach_, false);
    EXPECT_EQ(front_.log, "");
    std::ofstream(path_.file("owner")) << "damaged";
    sentry(Sentry::eventTryAttach_, false);
    EXPECT_EQ(front_.log, "d");
}

TEST_F(SentryTest, TheWriterHearsThatItsFilesWereTaken) {
    struct Owner : WriterSentry::Notifiee {
        int asked = 0;
        SharedMem::OrielId id = 0;
        SharedMem::OrielId orielId() const override { return id; }
        bool validate() override { return true; }
        bool validateFiles(std::string const&, unsigned) override {
            ++asked;
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("gone");
        }
    } owner;
    path_.makeDirectories();
    std::ofstream(path_.file("slots")) << "slots";
    WriterSentry sentry(trace_, &owner, path_);
    sentry(Sentry::eventInit_, false);
    sentry(Sentry::eventFiles_, true); // it has no table yet
    owner.id = 5;
    sentry.watching = false;
    sentry(Sentry::eventFiles_, true);
    EXPECT_EQ(owner.asked, 0);
    sentry.watching = true;
    std::filesystem::remove(path_.file("slots"));
    ASSERT_TRUE(pump([&] { return owner.asked == 1; }));
}

} // namespace
