#include "Brisk/BriskMapBase.h"

#include "Brisk/Util.h"
#include "Dunlin/Exception.h"
#include "Dunlin/TaskSchedulerRoot.h"

namespace Brisk {
namespace {

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}

BriskMapBase::CorruptionHandler& chosenHandler() {
    // Never destroyed: a front may be a static object.
    static auto& handler = *new BriskMapBase::CorruptionHandler;
    return handler;
}

} // namespace

BriskMapBase::BriskMapBase() : alive_(std::make_shared<BriskMapBase*>(this)) {}
BriskMapBase::~BriskMapBase() {
    *alive_ = nullptr;
}

void BriskMapBase::corruptionHandlerIs(CorruptionHandler handler) {
    chosenHandler() = std::move(handler);
}

void BriskMapBase::doCorruptionDetected(std::string const& message) {
    FMTRACE(debugHandler(), 0, "{}: {}", collName(), message);
    Util::writeCorruptionFile(debugHandler(), collName(), message);
    if (chosenHandler()) {
        chosenHandler()(*this, message);
        return;
    }
    if (isWriter() || detachPosted_) return;
    detachPosted_ = true;
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal, [alive = alive_] {
        BriskMapBase* const self = *alive;
        if (!self) return;
        self->detachPosted_ = false;
        Dunlin::FirstRaised raised;
        if (self->readerFullyAttached()) raised.run([&] { self->detach(false); });
        if (*alive) raised.run([&] { self->handleDamage(); });
        raised.rethrow();
    });
}

void retireObject(std::shared_ptr<void> object) {
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal, [object = std::move(object)] {});
}

} // namespace Brisk
