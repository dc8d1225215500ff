// What every table front has without its types: the interfaces through which the sentries call it,
// and what happens when damage is found.
#pragma once

#include "Brisk/Counters.h"
#include "Dunlin/Trace.h"
#include "SharedMem/Sentry.h"

#include <functional>
#include <memory>
#include <string>

namespace Brisk {

// Base of the front that a table's control object is built with.
class ControlBase {
public:
    virtual ~ControlBase() = default;
    virtual void controlDetach() = 0;
};

class BriskMapBase : public Mem::ReaderSentry::Notifiee,
                     public Mem::WriterSentry::Notifiee,
                     public ControlBase {
public:
    BriskMapBase();
    ~BriskMapBase() override;
    BriskMapBase(BriskMapBase const&) = delete;
    BriskMapBase& operator=(BriskMapBase const&) = delete;

    // Leaves the file "corruption-detected" with the reason and calls the handler. The one at
    // first: a reader or shadow is detached at the next turn of the loop, and the sentry attaches
    // it again: to another writer or generation as soon as there is one, to the same one after a
    // pause, which grows from one time to the next. For a writer nothing more, and the caller's
    // assertion ends the process.
    void doCorruptionDetected(std::string const& message);
    using CorruptionHandler = std::function<void(BriskMapBase& map, std::string const& message)>;
    // For every front of the process; an empty function goes back to the first.
    static void corruptionHandlerIs(CorruptionHandler handler);

    SharedMem::OrielId orielId() const override = 0;
    void detach(bool force) override = 0;
    virtual bool isWriter() const = 0;
    virtual std::string collName() const = 0;
    virtual Dunlin::Platform::DebugHandler& debugHandler() const = 0;
    // The doorbell's connection of a shadow has ended.
    virtual void handleDisconnect() {}

protected:
    // A damaged table was let go.
    virtual void handleDamage() {}

    // The records pass through here on their way to whoever asked.
    virtual void briskMapUpdateReaderCounters(Reader::Counters&) const {}
    virtual void briskMapUpdateWriterCounters(Writer::Counters&) const {}

    std::shared_ptr<BriskMapBase*> alive_; // posted tasks look here first

private:
    bool detachPosted_ = false;
};

// Destroys an object at the next turn of the loop: it may be further up the call stack now.
void retireObject(std::shared_ptr<void> object);
template <class T>
void retire(std::unique_ptr<T> object) {
    if (object) retireObject(std::shared_ptr<T>(std::move(object)));
}

} // namespace Brisk
