// The oriel and owner files and the writer's lock.
#include "SharedMem/OrielFile.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"
#include "support/Child.h"
#include "support/TempBase.h"

#include "Dunlin/Exception.h"

#include <fcntl.h>
#include <fstream>

namespace {

using namespace SharedMem;
using Mem::WriterLock;

class Files : public testing::Test {
protected:
    Files() { WriterLock::waitIs(0.02); }
    ~Files() override { WriterLock::waitIs(2); }

    Support::TempBase base_;
    Mem::RootPath path_{"routes"};
    Dunlin::Platform::DebugHandler& trace_ = Support::quietTrace();

    OwnerFile owner() { return OwnerFile(trace_, path_, false); }
    void corrupt(char const* name, std::size_t offset) {
        auto const byte = Support::peek<U8>(path_.file(name), offset);
        Support::poke(path_.file(name), offset, static_cast<U8>(byte ^ 0x10));
    }
};

TEST_F(Files, OrielKeepsTheIdAndAdmitsDamage) {
    OrielFile oriel(trace_, path_, false);
    EXPECT_EQ(oriel.read(), 0U);
    EXPECT_EQ(oriel.mtime(), 0);
    oriel.write(0x10042);
    EXPECT_EQ(oriel.read(), 0x10042U);
    EXPECT_GT(oriel.mtime(), 1e9);
    oriel.validate(0x10042);
    EXPECT_THROW(oriel.validate(0x20042), Dunlin::CorruptionDetectedException);
    for (std::size_t offset = 0; offset < 16; ++offset) {
        corrupt("oriel", offset);
        EXPECT_EQ(oriel.read(), 0U) << offset;
        corrupt("oriel", offset);
    }
    EXPECT_EQ(oriel.read(), 0x10042U);
    oriel.cleanup();
    EXPECT_EQ(oriel.read(), 0U);

    // Of a local table there is nothing.
    Mem::RootPath const nowhere("l", true);
    OrielFile local(trace_, nowhere, true);
    local.write(5);
    EXPECT_EQ(local.read(), 0U);
    local.validate(7);
    local.cleanup();
    OwnerFile localOwner(trace_, nowhere, true);
    for (int i = 0; i < 2; ++i) localOwner.lock();
    localOwner.typeNameIs("T");
    localOwner.bolsterInfoIs({"fib-1", 1});
    localOwner.validateFile();
    EXPECT_EQ(localOwner.typeName() + localOwner.headerToString(), "local table");
    EXPECT_FALSE(WriterLock::acquireWriterLock(trace_, nowhere, localOwner, false).held());
    localOwner.cleanup();
    nowhere.makeDirectories();
    nowhere.removeDirectories();
    EXPECT_FALSE(std::filesystem::exists(base_.path() + "/l"));
}

TEST_F(Files, OwnerIsSoundFromTheFirstBolsterInfoOn) {
    OwnerFile file = owner();
    EXPECT_TRUE(file.validate()); // absent: a new table is no damage
    EXPECT_TRUE(file.bolsterInfo().empty());
    EXPECT_THROW(file.validateFile(), Dunlin::CorruptionDetectedException);
    file.typeNameIs("Brisk::Multicast::Fib::Route");
    file.sharedMemTypeIs(1);
    std::string message;
    EXPECT_FALSE(file.validate(message)); // nobody has vouched for the table files yet
    EXPECT_THAT(message, testing::HasSubstr("is of boot ''"));

    BolsterInfo const info{"fib-4711", 9};
    file.bolsterInfoIs(info);
    EXPECT_TRUE(file.validate());
    file.validateFile();
    EXPECT_EQ(file.bolsterInfo(), info);
    EXPECT_EQ(file.typeName(), "Brisk::Multicast::Fib::Route");
    EXPECT_THAT(file.headerToString(), testing::HasSubstr("socketName:fib-4711 tableId:9"));
    file.bolsterInfoIs({});
    EXPECT_TRUE(file.validate()); // a detached table keeps its files' good name
    EXPECT_TRUE(file.bolsterInfo().empty());
}

TEST_F(Files, DamagedOwnerFileIsNamedAndReplaced) {
    owner().bolsterInfoIs({"fib-1", 1});
    for (std::size_t const offset : {0UL, 4UL, 8UL, 16UL, 20UL, 130UL, 400UL, 511UL}) {
        SCOPED_TRACE(offset);
        corrupt("owner", offset);
        EXPECT_FALSE(owner().validate());
        EXPECT_THROW(owner().bolsterInfo(), Dunlin::CorruptionDetectedException);
        EXPECT_THAT(owner().headerToString(), testing::HasSubstr("has bad"));
        corrupt("owner", offset);
    }
    EXPECT_TRUE(owner().validate());
    std::filesystem::resize_file(path_.file("owner"), 100);
    EXPECT_THROW(owner().validateFile(), Dunlin::CorruptionDetectedException);
    owner().typeNameIs("T");
    EXPECT_FALSE(owner().validate());
    owner().bolsterInfoIs({"fib-2", 2});
    EXPECT_TRUE(owner().validate());
    std::filesystem::resize_file(path_.file("owner"), 0);
    EXPECT_TRUE(owner().validate());
    std::filesystem::remove(path_.file("owner"));
    std::filesystem::create_directory(path_.file("owner"));
    EXPECT_FALSE(owner().validate());
    EXPECT_THAT(owner().headerToString(), testing::HasSubstr("cannot read "));
}

TEST_F(Files, OneWriterUntilItDies) {
    Support::Child child([&](Support::Child& self) {
        auto const lock = WriterLock::acquireWriterLock(trace_, path_, owner(), false);
        owner().bolsterInfoIs({BolsterName::own(), 1});
        self.step();
        return 0;
    });
    child.hear();
    EXPECT_TRUE(WriterLock::writerExists(path_));
    child.signal(SIGSTOP); // stopped, not gone
    for (bool const forCleanup : {false, true}) {
        try {
            auto const lock = WriterLock::acquireWriterLock(trace_, path_, owner(), forCleanup);
            FAIL() << "overran a stopped owner";
        } catch (Dunlin::InvalidInitializeException const& error) {
            EXPECT_THAT(error.message(), testing::HasSubstr("-" + std::to_string(child.pid())));
        }
    }
    child.signal(SIGKILL);
    child.join();
    auto lock = WriterLock::acquireWriterLock(trace_, path_, owner(), false);
    EXPECT_TRUE(lock.held());
    // The same process: no second writer, but the first may clean up.
    EXPECT_THROW((void)WriterLock::acquireWriterLock(trace_, path_, owner(), false),
                 Dunlin::InvalidInitializeException);
    EXPECT_TRUE(WriterLock::acquireWriterLock(trace_, path_, owner(), true).held());
    EXPECT_TRUE(WriterLock::writerExists(path_));
    lock.release();
    EXPECT_FALSE(WriterLock::writerExists(path_));
}

TEST_F(Files, AForkedChildDoesNotKeepTheLock) {
    auto lock = WriterLock::acquireWriterLock(trace_, path_, owner(), false);
    Support::Child child([&](Support::Child& self) {
        self.step();
        return 0;
    });
    child.hear();
    EXPECT_TRUE(WriterLock::writerExists(path_));
    lock.release();
    EXPECT_FALSE(WriterLock::writerExists(path_));
}

// The lock file may be removed while others wait for it: still one winner at a time.
TEST_F(Files, CleanupUnderWaitersNeverLetsTwoIn) {
    WriterLock::waitIs(10);
    auto const work = [&](Support::Child&) {
        for (int i = 0; i < 100; ++i) {
            auto const lock = WriterLock::acquireWriterLock(trace_, path_, owner(), true);
            int const fd = ::open(path_.file("alone").c_str(), O_CREAT | O_EXCL | O_WRONLY, 0644);
            if (fd < 0) return 1;
            ::close(fd);
            ::unlink(path_.file("alone").c_str());
            if (i % 3 == 0) owner().cleanup();
        }
        return 0;
    };
    Support::Child a(work), b(work), c(work);
    EXPECT_EQ(a.join(), 0);
    EXPECT_EQ(b.join(), 0);
    EXPECT_EQ(c.join(), 0);
}

TEST_F(Files, ARefusalSaysWhoHasTheTable) {
    Support::Child owner([&](Support::Child& self) {
        auto const lock = WriterLock::acquireWriterLock(trace_, path_, this->owner(), false);
        self.step();
        return 0;
    });
    owner.hear();
    for (char const* const text : {"a process that is just attaching or removing it",
                                   "a process with a damaged owner file"}) {
        try {
            (void)WriterLock::acquireWriterLock(trace_, path_, this->owner(), false);
            ADD_FAILURE() << text;
        } catch (Dunlin::InvalidInitializeException const& e) {
            EXPECT_EQ(e.message(), path_.text() + " is owned by " + text);
        }
        std::ofstream(path_.file("owner")) << "damaged";
    }
    EXPECT_TRUE(WriterLock::writerExists(path_));
    owner.tell(0);
    EXPECT_EQ(owner.join(), 0);
    EXPECT_FALSE(WriterLock::writerExists(path_));
}

TEST_F(Files, BolsterNames) {
    auto const own = BolsterName::BolsterNameIs(BolsterName::own());
    ASSERT_TRUE(own);
    EXPECT_EQ(own->pid, U32(::getpid()));
    EXPECT_EQ(BolsterName::BolsterNameIs("a-b-12")->processName, "a-b");
    for (char const* bad : {"", "-", "-5", "fib", "fib-", "fib-x", "fib-1x", "fib-0"})
        EXPECT_FALSE(BolsterName::BolsterNameIs(bad)) << bad;
    EXPECT_TRUE(WriterLock::ownerIsMe(trace_, BolsterName::own()));
    EXPECT_FALSE(WriterLock::ownerIsMe(trace_, "fib-1"));
    std::string error;
    EXPECT_FALSE(WriterLock::ownerIsAlive(trace_, "fib-1", error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_FALSE(WriterLock::ownerIsAlive(trace_, "", error));
    EXPECT_THROW(BolsterName::path(std::string(100, 'x')), Dunlin::InvalidInitializeException);
}

} // namespace
