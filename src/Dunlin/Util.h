// Small helpers of the platform.
#pragma once

#include "Dunlin/Exception.h"

#include <cstddef>
#include <string>

namespace Dunlin::Util {

// The 32 bits of `word` in reversed order.
constexpr U32 reverse(U32 word) {
    word = (word >> 1 & 0x55555555U) | (word & 0x55555555U) << 1;
    word = (word >> 2 & 0x33333333U) | (word & 0x33333333U) << 2;
    word = (word >> 4 & 0x0f0f0f0fU) | (word & 0x0f0f0f0fU) << 4;
    return __builtin_bswap32(word);
}

// headerSize + numSlots * slotSize, in bytes. The same in reader and writer. Raises
// RuntimeException for more than 0x7fffffff slots (bit 31 of a slot index is the end mark) or a
// size that no file can have.
std::size_t fileSizeHelper(U32 numSlots, U32 slotSize, U32 headerSize);

// Shared mappings of this process go into its core files from now on.
void includeShmemInCore();

// The handle name of a table front.
std::string traceHandleName(std::string const& name, std::string const& suffix);

// One line to the trace sink under the name "canary": a table was mounted.
void emitCanaryLogText(std::string const& text);
template <class... A>
void emitCanaryLog(fmt::format_string<A...> format, A&&... args) {
    emitCanaryLogText(formatText(format, fmt::make_format_args(args...)));
}

// The directory below which all tables stand: what was set, else CAIRN_BASE, else
// "/dev/shm/cairn". No trailing slash.
std::string baseDirectory();
// An empty text goes back to the environment.
void baseDirectoryIs(std::string const& directory);

} // namespace Dunlin::Util
