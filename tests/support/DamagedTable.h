// A small sound table whose files can be damaged and put back, and what a reader and a writer do
// with the damaged one: a named exception or a clean result, never a signal or a hang.
#pragma once

#include "tests/torture/Scenarios.h"

#include "Dunlin/Exception.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace Support {

class DamagedTable {
public:
    static constexpr U32 entries = 12; // of 16 slots, four of them free
    using T = Table<160>;
    using Value = T::Value;

    struct File {
        std::string name;
        std::string bytes;
    };

    // Makes the table and remembers its files.
    DamagedTable() {
        auto writer = T::writer(table, Brisk::MapDescriptor(64));
        if (!writer->initialize("test")) throw std::runtime_error("no table");
        State ignored;
        for (U32 key = 0; key < entries + 2; ++key) T::write(*writer, ignored, key, key + 1);
        for (U32 key = 0; key < 2; ++key) T::remove(*writer, ignored, key);
        directory_ = writer->rootPath().text();
        writer->detach(false);
        for (auto const& entry : std::filesystem::directory_iterator(directory_)) {
            if (!entry.is_regular_file() || entry.file_size() == 0) continue;
            std::ifstream in(entry.path(), std::ios::binary);
            files_.push_back({entry.path().filename(), {std::istreambuf_iterator<char>(in), {}}});
        }
    }

    std::vector<File> const& files() const { return files_; }

    // Writes all files anew, one of them with other bytes.
    void lay(std::string const& name, std::string const& bytes) const {
        for (auto const& entry : std::filesystem::directory_iterator(directory_)) std::filesystem::remove(entry.path());
        for (auto const& file : files_) {
            std::ofstream out(directory_ + '/' + file.name, std::ios::binary);
            std::string const& content = file.name == name ? bytes : file.bytes;
            out.write(content.data(), static_cast<std::streamsize>(content.size()));
        }
    }

    // Everything a reader can ask, then a writer that takes the table over and goes on with it.
    // Exceptions with a name of this system are a proper answer; anything else goes through.
    static void tryOut() {
        bool found = false;
        Value value;
        named([&] {
            auto reader = T::reader(table);
            if (!reader->initialize("damaged")) return;
            for (U32 key = 0; key < 16; ++key) named([&] { reader->lookup(StampKey{key}, found, &value); });
            named([&] { T::walked(*reader); });
            for (U32 slot = 0; slot < 20; ++slot) named([&] { reader->getValue(slot, value, nullptr); });
        });
        named([&] {
            auto writer = T::writer(table, Brisk::MapDescriptor(64));
            if (!writer->initialize("damaged")) return;
            named([&] {
                T::walked(*writer);
                for (U32 key = 0; key < 24; ++key) writer->write(Value(key, 9), true);
                for (U32 key = 0; key < 24; key += 2) writer->remove(StampKey{key}, value);
                writer->validate();
            });
        });
    }

private:
    static constexpr char const* table = "damaged";

    template <class Body>
    static void named(Body body) {
        try {
            body();
        } catch (Dunlin::CorruptionDetectedException const&) {
        } catch (Dunlin::InvalidInitializeException const&) {
        } catch (Dunlin::MemoryResourceException const&) {
        } catch (Dunlin::RuntimeException const&) {
        }
    }

    std::string directory_;
    std::vector<File> files_;
};

} // namespace Support
