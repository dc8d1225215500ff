// A small sound table whose files can be damaged and put back, and what a reader and a writer do
// with the damaged one: a named exception or a clean result, never a signal or a hang.
#pragma once

#include "tests/torture/Scenarios.h"

#include "Dunlin/Exception.h"
#include "SharedMem/FileUtil.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
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
        orielId_ = writer->orielId();
        writer->detach(false);
        for (char const* name : {"buckets", "oriel", "owner", "slots", "yarrow", "yarrow2"}) {
            std::string bytes(1 << 16, 0);
            long const size = Mem::readFile(directory_ + '/' + name, bytes.data(), bytes.size());
            if (size <= 0) throw std::runtime_error("no file");
            bytes.resize(static_cast<std::size_t>(size));
            files_.push_back({name, bytes});
        }
    }

    // In the order of their names.
    std::vector<File> const& files() const { return files_; }

    // Makes all files what they were, some of them with other bytes. Keeps their inodes: this is
    // done millions of times.
    using Edits = std::map<std::string, std::string>;
    void lay(Edits const& edits) const {
        for (auto const& file : files_) {
            auto const edit = edits.find(file.name);
            std::string const& content = edit == edits.end() ? file.bytes : edit->second;
            std::string const path = directory_ + '/' + file.name;
            Mem::Fd const out(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
            bool const whole = ::pwrite(out.get(), content.data(), content.size(), 0) ==
                                   static_cast<ssize_t>(content.size()) &&
                               ::ftruncate(out.get(), static_cast<off_t>(content.size())) == 0;
            if (!whole) throw std::runtime_error("cannot write " + path);
        }
    }

    // A fuzzer's input is a list of such edits.
    struct Edit {
        U8 file; // its number, modulo how many there are
        // Low three bits: what to do. `credible`: in the end put back by what this file is known, so
        // that the damage is not told at the first look.
        U8 action;
        U16 offset; // modulo the file's length
        U16 value; // of a word: extended by its sign, so that small, large and negative ones are near
    };
    enum Action : U8 {
        pokeByte,
        pokeWord,
        flipBit,
        cut,
        add,
        copyWord,
        lengthen,
        pokeTwoWords,
        credible = 0x80
    };
    static_assert(sizeof(Edit) == 6);

    Edits editsOf(U8 const* data, std::size_t size) const {
        Edits edits;
        std::vector<bool> believed(files_.size());
        for (; size >= sizeof(Edit); data += sizeof(Edit), size -= sizeof(Edit)) {
            Edit edit;
            std::memcpy(&edit, data, sizeof edit);
            std::size_t const number = edit.file % files_.size();
            auto const& file = files_[number];
            if (edit.action & credible) believed[number] = true;
            std::string& bytes = edits.emplace(file.name, file.bytes).first->second;
            if (bytes.empty()) continue;
            std::size_t const at = edit.offset % bytes.size();
            std::size_t const aligned = at & ~std::size_t{3};
            auto const put = [&](std::size_t where, U32 word) {
                if (where + sizeof word <= bytes.size())
                    std::memcpy(bytes.data() + where, &word, sizeof word);
            };
            auto const wordAt = [&](std::size_t where) {
                U32 word = 0;
                if (where + sizeof word <= bytes.size())
                    std::memcpy(&word, bytes.data() + where, sizeof word);
                return word;
            };
            auto const word = static_cast<U32>(static_cast<S16>(edit.value));
            switch (edit.action & 7) {
            case pokeByte:
                bytes[at] = static_cast<char>(edit.value);
                break;
            case pokeWord:
                put(aligned, word);
                break;
            case flipBit:
                bytes[at] = static_cast<char>(bytes[at] ^ 1 << edit.value % 8);
                break;
            case cut:
                bytes.resize(at);
                break;
            case add:
                put(aligned, wordAt(aligned) + word);
                break;
            case copyWord:
                put(aligned, wordAt(edit.value % bytes.size() & ~std::size_t{3}));
                break;
            case lengthen:
                bytes.resize(std::min<std::size_t>(bytes.size() + edit.value % 8192, 1 << 16));
                break;
            case pokeTwoWords:
                put(aligned, word);
                put(aligned + 4, word);
                break;
            }
        }
        for (std::size_t number = 0; number < files_.size(); ++number)
            if (believed[number]) makeCredible(files_[number], edits[files_[number].name]);
        return edits;
    }

    // Everything a reader can ask, then a writer that takes the table over and goes on with it.
    // Exceptions with a name of this system are a proper answer; anything else goes through.
    void tryOut() const {
        bool found = false;
        Value value;
        named([&] {
            auto reader = T::reader(table);
            if (!reader->initialize("damaged")) return;
            for (U32 key = 0; key < 16; ++key)
                named([&] { reader->lookup(TestKey(key), found, &value); });
            named([&] { T::walked(*reader); });
            for (U32 slot = 0; slot < 20; ++slot)
                named([&] { reader->getValue(slot, value, nullptr); });
        });
        named([&] {
            auto writer = T::writer(table, Brisk::MapDescriptor(64));
            if (!writer->initialize("damaged")) return;
            // What follows tells something of a table that was kept; one made anew is like any other.
            if (writer->orielId() != orielId_) return;
            named([&] {
                T::walked(*writer);
                for (U32 key = 0; key < 24; ++key) writer->write(Value(key, 9), true);
                for (U32 key = 0; key < 24; key += 2) writer->remove(TestKey(key), value);
                writer->validate();
            });
        });
    }

private:
    static constexpr char const* table = "damaged";

    // Magic numbers, formats, sizes and generations back as they were, and the length where only the
    // head of the file is left; the checksums of the two small files made right.
    static void makeCredible(File const& file, std::string& bytes) {
        std::size_t const kept = file.name == "slots"     ? 544
                                 : file.name == "buckets" ? 16
                                 : file.name == "yarrow"  ? 20
                                 : file.name == "yarrow2" ? 20
                                                          : 8;
        if (bytes.size() < 2 * kept) bytes = file.bytes;
        bytes.replace(0, kept, file.bytes, 0, kept);
        auto const seal = [&](std::size_t at, std::size_t size) {
            bytes.resize(file.bytes.size());
            if (at < size) bytes.replace(at, 4, 4, 0);
            U32 const crc = Mem::crc32(bytes.data(), size);
            std::memcpy(bytes.data() + at, &crc, sizeof crc);
        };
        if (file.name == "owner") seal(8, bytes.size());
        if (file.name == "oriel") seal(12, 12);
    }

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
    SharedMem::OrielId orielId_ = 0;
    std::vector<File> files_;
};

} // namespace Support
