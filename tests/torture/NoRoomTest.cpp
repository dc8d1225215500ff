// No space, no permission: the named exception, the table intact, and the next write goes through
// once there is room.
#include "tests/support/Child.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/TempBase.h"
#include "tests/torture/Scenarios.h"

#include "SharedMem/FileUtil.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

namespace {

using namespace Support;
using T = Table<160>;
using Value = T::Value;

constexpr int notAllowed = 77;

// In a child: `body` runs below a tmpfs of `kilobytes` of its own, which goes with the child.
template <class Body>
int onTinyFileSystem(U32 kilobytes, Body body) {
    TempBase const base;
    Child child([&](Child&) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", base.path().c_str(), "tmpfs", 0,
                  fmt::format("size={}k", kilobytes).c_str()) != 0)
            return notAllowed;
        return body(base.path());
    });
    return child.join();
}

// Inserts until the table cannot grow. Gives the number of entries then, or a negative number for
// what went wrong.
int fillUntilFull(T::Writer& writer) {
    for (int key = 0; key < 1'000'000; ++key) {
        try {
            writer.write(Value(static_cast<U32>(key), 1), true);
        } catch (Dunlin::MemoryResourceException const&) {
            return key;
        }
    }
    return -1;
}

// Growth of each file in turn meets the limit, as it moves up in small steps.
TEST(NoRoom, AnyLimitOfSizeStopsGrowthAndNothingElse) {
    for (U32 kilobytes = 64; kilobytes <= 512; kilobytes += 28) {
        SCOPED_TRACE(kilobytes);
        int const code = onTinyFileSystem(kilobytes, [](std::string const& directory) {
            auto writer = T::writer("limit", Brisk::MapDescriptor(100'000));
            try {
                if (!writer->initialize("test")) return 1;
            } catch (Dunlin::Exception const&) {
                return 0; // not even a first table fits
            }
            int const entries = fillUntilFull(*writer);
            if (entries < 16) return 2;
            State state = T::walked(*writer);
            if (state.size() != static_cast<std::size_t>(entries)) return 3;
            auto reader = T::reader("limit");
            if (!reader->initialize("test") || T::walked(*reader) != state) return 4;
            // Overwriting and removing need no room.
            T::write(*writer, state, 3, 9);
            T::remove(*writer, state, 4);
            T::write(*writer, state, 4, 9);
            if (T::walked(*reader) != state || !writer->validate()) return 5;
            // The failed write left its mark only in the process: with room it goes through.
            if (mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT, "size=16m") != 0) return 6;
            T::write(*writer, state, static_cast<U32>(entries), 1);
            return T::walked(*reader) == state && writer->validate() ? 0 : 7;
        });
        if (code == notAllowed)
            GTEST_SKIP() << "mounting a file system of one's own needs privileges";
        EXPECT_EQ(code, 0);
    }
}

// What a shrink has given back is not asked for again by the next writer.
TEST(NoRoom, ATableThatShrankIsKeptWhereItsHolesFindNoRoom) {
    int const code = onTinyFileSystem(4096, [](std::string const& directory) {
        Brisk::MapDescriptor descriptor(4096);
        descriptor.shrinkable = descriptor.shrinkBuckets = true;
        State state;
        auto writer = T::writer("shrunk", descriptor);
        if (!writer->initialize("test")) return 1;
        for (U32 key = 0; key < 4096; ++key) T::write(*writer, state, key, 1);
        for (U32 key = 16; key < 4096; ++key) T::remove(*writer, state, key);
        writer->detach(false);
        constexpr off_t left = 32 << 10;
        auto const room = static_cast<off_t>(std::filesystem::space(directory).available);
        Mem::Fd const filler(::open((directory + "/filler").c_str(), O_RDWR | O_CREAT, 0600));
        if (room < left || ::posix_fallocate(filler.get(), 0, room - left) != 0) return 2;
        auto next = T::writer("shrunk", descriptor);
        if (!next->initialize("again")) return 3;
        return T::walked(*next) == state ? 0 : 4;
    });
    if (code == notAllowed) GTEST_SKIP() << "mounting a file system of one's own needs privileges";
    EXPECT_EQ(code, 0);
}

TEST(NoRoom, NoDescriptorsIsANamedException) {
    if (FewDescriptors::impossible) GTEST_SKIP() << FewDescriptors::impossible;
    TempBase const base;
    Child child([&](Child&) {
        auto writer = T::writer("descriptors", Brisk::MapDescriptor(64));
        try {
            FewDescriptors const few(3);
            writer->initialize("test");
            return 1;
        } catch (Dunlin::Exception const&) {
        }
        if (!writer->initialize("test")) return 2;
        writer->write(Value(1, 1), true);
        return writer->members() == 1 ? 0 : 3;
    });
    EXPECT_EQ(child.join(), 0);
}

TEST(NoRoom, AReadOnlyDirectoryIsANamedException) {
    TempBase const base;
    Child child([&](Child&) {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return notAllowed;
        auto writer = T::writer("readonly", Brisk::MapDescriptor(64));
        try {
            writer->initialize("test");
            return 1;
        } catch (Dunlin::InvalidInitializeException const& e) {
            // It names the place.
            return std::string(e.what()).find(base.path()) != std::string::npos ? 0 : 2;
        }
    });
    std::filesystem::permissions(
        base.path(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                         std::filesystem::perms::others_read | std::filesystem::perms::others_exec);
    int const code = child.join();
    std::filesystem::permissions(base.path(), std::filesystem::perms::owner_all);
    if (code == notAllowed) GTEST_SKIP() << "cannot become another user here";
    EXPECT_EQ(code, 0);
}

} // namespace
