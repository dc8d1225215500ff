// What every implementation of a table offers that does not depend on its key and value, with the
// answers of one that has nothing to say.
#pragma once

#include "Brisk/BriskTypes.h"
#include "Brisk/Counters.h"
#include "SharedMem/MountStatus.h"
#include "SharedMem/OrielFile.h"
#include "SharedMem/RootPath.h"
#include "SharedMem/VersionAnchor.h"

#include <string>

namespace Brisk {

using VersionAnchorHook = void (*)(Mem::VersionAnchor const&);

class BriskInterfaceBase {
public:
    virtual ~BriskInterfaceBase() = default;

    // Attaches to the table; true on success. `event` says for the trace what led here.
    virtual bool initialize(std::string const& event) = 0;
    virtual void detach(bool force) = 0;
    // Whether the table is sound.
    virtual bool validate() { return true; }
    virtual bool validateFiles() { return true; }
    // Makes the files of a living table again, which somebody has removed.
    virtual bool remake() { return false; }
    // Removes the table for good.
    virtual void cleanup() {}
    virtual U32 members() const = 0;
    virtual U32 buckets() const = 0;
    virtual U32 minSize() const = 0;
    virtual U32 maxSize() const = 0;
    virtual U32 capacity() const = 0;
    virtual BriskType type() const = 0;
    virtual bool quiesced() const { return false; }
    virtual bool connected() const { return false; }
    virtual Writer::Counters writerCounters() { return {}; }
    virtual Reader::Counters readerCounters() { return {}; }
    // Takes what a writer that has gone has left to be told; see Mem::ReaderSentry::Notifiee.
    virtual bool takeRest() { return true; }
    virtual void notifyingIs(bool) {}
    virtual void yieldTimeIs(double const&) {}
    virtual U64 sequence() const { return 0; }
    virtual bool clientQuiesced(std::string const&) const { return false; }
    virtual void flush() {}
    virtual Mem::YokeRootPath rootPath() const = 0;
    virtual std::string briskName() const = 0;
    virtual Mem::MountStatus mountStatus() const = 0;
    virtual SharedMem::OrielId orielId() const { return 0; }
    // Returns if the value last read is still the same. Raises Mem::VersionMismatchException.
    virtual void validateVersionAnchor() const {}
    // The check that writer, reader and shadow share.
    static void checkVersionAnchor(Mem::VersionAnchor const& anchor);
    virtual void validateVersionAnchorHookIs(VersionAnchorHook) {}
    virtual Mem::CacheVersionAnchor getCacheVersionAnchor() const {
        return Mem::cacheVersionAnchor({});
    }
    virtual void criticalTaskCheckIs(bool) {}
    virtual bool criticalTaskCheck() const { return false; }
    virtual void scratchpadIs(unsigned long) {}
    virtual unsigned long scratchpad() const { return 0; }

    bool initialized() const { return initialized_; }
    void initializedIs(bool initialized) { initialized_ = initialized; }

protected:
    [[noreturn]] static void readOnlyWrite();
    [[noreturn]] static void readOnlyRemove();

private:
    bool initialized_ = false;
};

} // namespace Brisk
