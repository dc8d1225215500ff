// Small helpers of the tables.
#pragma once

#include "Dunlin/Trace.h"

#include <optional>
#include <string>

namespace Brisk::Util {

// Leaves the file "corruption-detected" with the reason in the table's directory, for whoever looks
// later. Failure to write it is traced only.
void writeCorruptionFile(Dunlin::Platform::DebugHandler& handler, std::string const& tableName,
                         std::string const& reason);
inline constexpr char const* corruptionFileName = "corruption-detected";

// Raises CorruptionDetectedException if the file on disk is shorter than `size` bytes. (A longer
// one is sound: a shrunk file keeps its length.)
void validateFile(Dunlin::Platform::DebugHandler& handler, std::string const& fileName,
                  std::size_t size);

// Whether a table that fails its first validation ends the process, so that the table is found in
// its core file: only where both are true. Both are false unless set.
bool runningOnPhysicalDut();
bool strictValidation();
void runningOnPhysicalDutIs(bool on);
void strictValidationIs(bool on);

// Counts the table generations that this process names, of all value types; the first is 0.
U16 nextGeneration();

// Seconds between a time of the system clock and now.
double secondsSince(double systemTime);

} // namespace Brisk::Util
