// A small sound table whose files can be damaged and put back, and what a reader and a writer do
// with the damaged one: a named exception or a clean result, never a signal or a hang.
#pragma once

#include "tests/torture/Scenarios.h"

#include "Dunlin/Exception.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
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
        std::sort(files_.begin(), files_.end(), [](File const& a, File const& b) { return a.name < b.name; });
    }

    // In the order of their names.
    std::vector<File> const& files() const { return files_; }

    // Writes all files anew, some of them with other bytes.
    using Edits = std::map<std::string, std::string>;
    void lay(Edits const& edits) const {
        for (auto const& entry : std::filesystem::directory_iterator(directory_)) std::filesystem::remove(entry.path());
        for (auto const& file : files_) {
            std::ofstream out(directory_ + '/' + file.name, std::ios::binary);
            auto const edit = edits.find(file.name);
            std::string const& content = edit == edits.end() ? file.bytes : edit->second;
            out.write(content.data(), static_cast<std::streamsize>(content.size()));
        }
    }

    // What a fuzzer's input means: a list of edits of 6 bytes. File number, what to do (poke a byte,
    // poke a word, flip a bit, cut the file), offset (u16), value (u16; a word is the value extended
    // by its sign, so that small, large and negative numbers are all near).
    Edits editsOf(U8 const* data, std::size_t size) const {
        Edits edits;
        for (; size >= 6; data += 6, size -= 6) {
            auto const& file = files_[data[0] % files_.size()];
            U16 offset, value;
            std::memcpy(&offset, data + 2, sizeof offset);
            std::memcpy(&value, data + 4, sizeof value);
            std::string& bytes = edits.emplace(file.name, file.bytes).first->second;
            if (bytes.empty()) continue;
            std::size_t const at = offset % bytes.size();
            switch (data[1] % 4) {
            case 0: bytes[at] = static_cast<char>(value); break;
            case 1: {
                auto const word = static_cast<U32>(static_cast<S16>(value));
                std::size_t const aligned = at & ~std::size_t{3};
                if (aligned + sizeof word <= bytes.size()) std::memcpy(bytes.data() + aligned, &word, sizeof word);
                break;
            }
            case 2: bytes[at] = static_cast<char>(bytes[at] ^ 1 << value % 8); break;
            default: bytes.resize(at); break;
            }
        }
        return edits;
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
