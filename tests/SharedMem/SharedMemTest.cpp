// Mapped files and local memory: growth, shrinking under readers, failure, and new generations.
#include "SharedMem/SharedMem.h"
#include "SharedMem/VersionAnchor.h"
#include "support/Child.h"
#include "support/TempBase.h"

#include "Dunlin/Exception.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

using namespace Mem;
using Mapping = Tracked<SharedMemWrapper>;

class SharedMem : public testing::Test {
protected:
    Support::TempBase base_;
    RootPath path_{"some/table"};
    std::size_t const page_ = pageSize_;

    static U8* bytes(void* base) { return static_cast<U8*>(base); }
    struct stat status() const {
        struct stat result;
        EXPECT_EQ(::stat(path_.file("slots").c_str(), &result), 0);
        return result;
    }
};

TEST_F(SharedMem, ReaderMakesNothingWriterMakesAll) {
    Mapping reader(path_, "slots");
    EXPECT_EQ(reader.attach(page_, Mode::reader), nullptr);
    EXPECT_THAT(reader.reason(), testing::HasSubstr("No such file"));
    EXPECT_EQ(reader.memSize(), 0U);
    EXPECT_FALSE(std::filesystem::exists(path_.text()));

    Mapping writer(path_, "slots");
    ASSERT_NE(writer.attach(100, Mode::writer), nullptr);
    EXPECT_EQ(writer.memSize(), 100U);
    EXPECT_EQ(writer.getFilename(), path_.text() + "/slots");

    // A reader may map what shares the last page, and no page more.
    EXPECT_NE(reader.attach(page_, Mode::reader), nullptr);
    EXPECT_EQ(reader.attach(page_ + 1, Mode::reader), nullptr);
    EXPECT_EQ(reader.reason(), "the file has 100 bytes, wanted " + std::to_string(page_ + 1));

    // A writer extends a shorter file and never cuts a longer one.
    bytes(writer.data())[99] = 7;
    ASSERT_NE(writer.attach(3 * page_, Mode::writer), nullptr);
    EXPECT_EQ(writer.memSize(), 3 * page_);
    EXPECT_EQ(bytes(writer.data())[99], 7);
    ASSERT_NE(writer.attach(10, Mode::writer), nullptr);
    EXPECT_EQ(writer.memSize(), 3 * page_);
    EXPECT_EQ(writer.mappedSize(), 10U);
}

TEST_F(SharedMem, ShrinkingGivesMemoryBackUnderAReaderThatStillLooks) {
    Mapping writer(path_, "slots"), reader(path_, "slots");
    std::size_t const large = 64 * page_, small = 2 * page_ + 8;
    std::memset(writer.attach(large, Mode::writer), 0xab, large);
    auto const* seen = bytes(reader.attach(large, Mode::reader));
    ASSERT_NE(seen, nullptr);
    auto const before = status();

    ASSERT_NE(writer.resize(small), nullptr);
    auto const after = status();
    EXPECT_EQ(after.st_size, before.st_size);
    EXPECT_EQ(after.st_blocks * 512, static_cast<long>(3 * page_));
    EXPECT_EQ(seen[small - 1], 0xab);
    for (std::size_t i = 3 * page_; i < large; i += page_) ASSERT_EQ(seen[i], 0);

    // Growing again brings real pages, not holes.
    ASSERT_NE(writer.resize(large), nullptr);
    EXPECT_EQ(status().st_blocks, before.st_blocks);
}

TEST_F(SharedMem, ANewGenerationLeavesTheOldInodeToItsReaders) {
    Mapping writer(path_, "slots"), reader(path_, "slots");
    std::memset(writer.attach(page_, Mode::writer), 1, page_);
    auto const* old = bytes(reader.attach(page_, Mode::reader));
    ASSERT_NE(old, nullptr);

    auto* fresh = bytes(writer.attachNew(2 * page_));
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh[0], 0);
    fresh[0] = 2;
    EXPECT_FALSE(reader.replaced());
    ASSERT_TRUE(writer.commitNew());
    EXPECT_TRUE(reader.replaced());
    EXPECT_EQ(old[0], 1);
    EXPECT_EQ(reader.memSize(), page_); // of the mapped inode
    Mapping late(path_, "slots");
    EXPECT_EQ(late.memSize(), 2 * page_);
    ASSERT_NE(late.attach(page_, Mode::reader), nullptr);
    EXPECT_EQ(bytes(late.data())[0], 2);

    // One that is not committed leaves nothing behind.
    ASSERT_NE(writer.attachNew(page_), nullptr);
    writer.detach();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path_.text()), {}), 1);
}

TEST_F(SharedMem, AFailedResizeKeepsTheOldMapping) {
    for (Backing const backing : {Backing::file, Backing::anonymous, Backing::heap}) {
        SCOPED_TRACE(int(backing));
        Mapping mapping(path_, "slots", backing);
        auto* base = bytes(mapping.attach(page_, Mode::writer));
        ASSERT_NE(base, nullptr);
        base[5] = 5;
        failMappingAfter(1);
        EXPECT_EQ(mapping.resize(8 * page_), nullptr);
        EXPECT_FALSE(mapping.reason().empty());
        EXPECT_EQ(mapping.data(), base);
        EXPECT_EQ(mapping.mappedSize(), page_);
        EXPECT_EQ(base[5], 5);
        base = bytes(mapping.resize(8 * page_));
        ASSERT_NE(base, nullptr);
        EXPECT_EQ(base[5], 5);
        EXPECT_EQ(base[8 * page_ - 1], 0);
    }
}

TEST_F(SharedMem, AFullFileSystemIsAReasonNotASignal) {
    // A tiny file system of its own; without the right to mount there is nothing to show. Sizes
    // below and above that of a huge page.
    auto const grow = [&](std::size_t room, std::size_t start, std::size_t tooMuch,
                          std::size_t fits) {
        if (::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return 77;
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        std::string const options = "size=" + std::to_string(room);
        if (::mount("tmpfs", base_.path().c_str(), "tmpfs", 0, options.c_str()) != 0) return 77;
        Mapping writer(path_, "slots");
        auto* base = bytes(writer.attach(start, Mode::writer));
        if (!base) return 1;
        std::memset(base, 1, start);
        auto const before = status();
        if (writer.resize(tooMuch)) return 2;
        if (writer.reason().find("No space left") == std::string::npos) return 3;
        if (writer.data() != base || base[start - 1] != 1) return 4;
        // What was reserved of it in vain is free again, and nobody sees a longer file.
        if (status().st_size != before.st_size || status().st_blocks != before.st_blocks) return 5;
        if (!writer.resize(fits)) return 6;
        std::memset(writer.data(), 3, fits);
        return 0;
    };
    for (std::size_t const unit : {std::size_t{4096}, std::size_t{1} << 20}) {
        SCOPED_TRACE(unit);
        Support::Child child(
            [&](Support::Child&) { return grow(16 * unit, 4 * unit, 100 * unit, 9 * unit); });
        int const code = child.join();
        if (code == 77) GTEST_SKIP() << "no right to mount";
        EXPECT_EQ(code, 0);
    }
}

TEST_F(SharedMem, LargeFilesGrowAndShrinkByTheByteAlsoWithHugePages) {
    Mapping writer(path_, "slots"), reader(path_, "slots");
    std::size_t const megabyte = 1U << 20;
    std::size_t filled = 0;
    // Every byte of the words up to `size` says where it is.
    auto const fill = [&](std::size_t size) {
        auto* const words = static_cast<U32*>(writer.data());
        for (; filled + 4 <= size; filled += 4)
            words[filled / 4] = static_cast<U32>(filled * 2654435761U);
    };
    auto const intact = [&](Mapping const& mapping, std::size_t size) {
        auto const* const words = static_cast<U32 const*>(mapping.data());
        for (std::size_t at = 0; at + 4 <= size; at += 4)
            if (words[at / 4] != static_cast<U32>(at * 2654435761U)) return false;
        return true;
    };
    ASSERT_NE(writer.attach(megabyte / 2 + 8, Mode::writer), nullptr);
    fill(writer.mappedSize());
    ASSERT_NE(reader.attach(writer.mappedSize(), Mode::reader), nullptr);
    for (std::size_t const size :
         {3 * megabyte, 5 * megabyte + 12, 16 * megabyte, 17 * megabyte + 4}) {
        std::size_t const before = reader.mappedSize();
        ASSERT_NE(writer.resize(size), nullptr) << writer.reason();
        EXPECT_TRUE(intact(reader, before)); // while the pages beneath it were exchanged
        fill(size);
        ASSERT_NE(reader.resize(size), nullptr);
        EXPECT_TRUE(intact(reader, size));
        EXPECT_EQ(static_cast<std::size_t>(status().st_blocks) * 512, roundToPage(size));
    }
    ASSERT_NE(writer.resize(3 * megabyte + 4), nullptr);
    EXPECT_EQ(static_cast<std::size_t>(status().st_blocks) * 512, roundToPage(3 * megabyte + 4));
    EXPECT_TRUE(intact(reader, 3 * megabyte + 4));
    // Holes in the midst of the file become pages again.
    ASSERT_NE(writer.resize(9 * megabyte), nullptr);
    EXPECT_EQ(static_cast<std::size_t>(status().st_blocks) * 512, 9 * megabyte);
    EXPECT_EQ(bytes(writer.data())[8 * megabyte], 0);
}

TEST_F(SharedMem, TrackingFollowsTheMappedBytes) {
    auto const before = trackedBytes();
    {
        Mapping mapping(path_, "slots");
        mapping.attach(page_, Mode::writer);
        mapping.enable();
        EXPECT_EQ(trackedBytes() - before, page_);
        mapping.resize(5 * page_);
        EXPECT_EQ(trackedBytes() - before, 5 * page_);
        mapping.resize(2 * page_);
        EXPECT_EQ(trackedBytes() - before, 2 * page_);
    }
    EXPECT_EQ(trackedBytes(), before);
}

TEST_F(SharedMem, WhatCannotBeDoneIsRefusedWithAReason) {
    Mapping file(path_, "slots"), reader(path_, "slots"), heap(path_, "heap", Backing::heap);
    auto const refused = [](Mapping& mapping, void* result, std::string const& reason) {
        EXPECT_EQ(result, nullptr) << reason;
        EXPECT_EQ(mapping.reason(), reason);
    };
    EXPECT_FALSE(file.replaced());
    refused(file, file.resize(10), "resize of a detached mapping: Invalid argument");
    refused(file, file.attach(0, Mode::writer), "empty mapping: Invalid argument");
    ASSERT_NE(file.attach(page_, Mode::writer), nullptr);
    refused(file, file.resize(0), "empty mapping: Invalid argument");
    for (bool const on : {true, false}) file.dumpToCoreIs(on);
    ASSERT_NE(reader.attach(page_, Mode::reader, file.data()), nullptr); // no place for it: another
    refused(reader, reader.resize(page_ + 1),
            fmt::format("the file has {} bytes, wanted {}", page_, page_ + 1));
    failMappingAfter(1);
    refused(file, file.attachNew(page_), "mmap: Cannot allocate memory");
    failMappingAfter(1);
    refused(heap, heap.attach(page_, Mode::writer), "Mem::Local::HEAP: Cannot allocate memory");
    ASSERT_NE(heap.attach(page_, Mode::writer), nullptr);
    heap.dumpToCoreIs(true);
    for (int i = 0; i < 2; ++i) heap.enable();
    heap.cleanup(); // it has no file
    EXPECT_EQ(heap.memSize(), page_);
}

TEST(LocalMem, GrownBytesAreZeroAlsoWhereItShrankBefore) {
    for (auto const kind : {Local::HEAP, Local::ANONYMOUS}) {
        Local memory(kind);
        SCOPED_TRACE(memory.kindName());
        auto* data = static_cast<U8*>(memory.attach(3000));
        ASSERT_NE(data, nullptr);
        std::memset(data, 0xff, 3000);
        data = static_cast<U8*>(memory.resize(1000));
        data = static_cast<U8*>(memory.resize(50'000));
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(data[999], 0xff);
        EXPECT_TRUE(std::all_of(data + 1000, data + 50'000, [](U8 b) { return b == 0; }));
        EXPECT_EQ(memory.resize(0), nullptr);
        EXPECT_EQ(memory.size(), 0U);
    }
    EXPECT_EQ(multiplyOverflowCheck(3, 8), 24U);
    EXPECT_THROW(multiplyOverflowCheck(~0ULL / 2, 3), Dunlin::MemoryResourceException);
}

TEST(RootPathTest, NamesStayBelowTheBase) {
    Support::TempBase const base;
    EXPECT_EQ(RootPath("/a/b/").text(), base.path() + "/a/b");
    EXPECT_EQ(RootPath("/a/b/").directoryName(), "a/b");
    EXPECT_EQ(YokeRootPath("a", true).text(), "local:a");
    for (char const* bad : {"", "/", "a//b", "..", "a/../b", "a/."}) {
        SCOPED_TRACE(bad);
        EXPECT_THROW(RootPath{bad}, Dunlin::InvalidInitializeException);
    }
    EXPECT_THROW(RootPath(std::string(256, 'x')), Dunlin::InvalidInitializeException);
    RootPath const deep("x/y/z");
    deep.makeDirectories();
    deep.makeDirectories();
    EXPECT_TRUE(std::filesystem::is_directory(deep.text()));
    std::ofstream(base.path() + "/x/keep") << "k";
    deep.removeDirectories();
    EXPECT_FALSE(std::filesystem::exists(base.path() + "/x/y"));
    EXPECT_TRUE(std::filesystem::exists(base.path() + "/x/keep"));
    EXPECT_THROW(RootPath("x/keep/t").makeDirectories(), Dunlin::InvalidInitializeException);
}

TEST(VersionedRefTest, EachStoreIsANewVersion) {
    VersionedRef<unsigned> count{~0U, 8};
    count.valueIs(8);
    EXPECT_EQ(count.observed(), (VersionedRef<unsigned>{0, 8}));
    count.valueIs(16);
    EXPECT_EQ(count.observed(), (VersionedRef<unsigned>{1, 16}));
    EXPECT_EQ(cacheVersionAnchor({5, 608, nullptr}), 608ULL << 32 | 5);
}

} // namespace
