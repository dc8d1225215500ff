// The machine's table of interface names that do not fit an IntfId's word: the file
// "interface-names" below the base directory. It only grows. Each entry is one line: the word as 16
// hexadecimal digits, a blank, the length of the name in decimal, a blank, the name.
#pragma once

#include "Dunlin/Types.h"

#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Kelpie {

// One process's view of the file. Safe on any thread. What was read is remembered, so that the file
// is opened only for a name or a word not met before.
class NamesFile {
public:
    static NamesFile& instance();

    // The word of `name`; a new name is entered under `proposed`, or under the next word that is
    // free and has the bits of `form`. Where the file cannot be written the answer is `proposed`,
    // traced at level 0, and other processes cannot print it.
    U64 wordOf(std::string_view name, U64 proposed, U64 form);
    // The name of `word`; empty if it has none.
    std::string nameOf(U64 word);

private:
    void follow();
    bool readFrom(int fd, bool isLocked);
    U64 append(std::string_view name, U64 proposed, U64 form);

    std::mutex mutex_;
    std::string path_;
    U64 offset_ = 0; // of the first byte of the file not read yet
    std::unordered_map<std::string, U64> words_;
    std::unordered_map<U64, std::string> names_;
};

} // namespace Kelpie
