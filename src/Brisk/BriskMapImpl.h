// Definitions of BriskMap; included only where a table is instantiated.
#pragma once

#include "Brisk/BriskDummy.h"
#include "Brisk/BriskMap.h"
#include "Brisk/BriskShadowImpl.h"
#include "Brisk/BriskWriterImpl.h"
#include "Dunlin/Exception.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"

#include <cstdlib>

namespace Brisk {

inline constexpr char const* orphanDetail =
    ". If you're seeing this, you're trying to operate on an orphan brisk entity";

template <class Ops>
BriskMap<Ops>::BriskMap(std::string const& name, std::string const& typeName,
                        std::string const& traceSuffix)
    : // Kept for good: a retired implementation outlives its front by a turn of the loop.
      handler_(Dunlin::Platform::getDebugHandler(Dunlin::Util::traceHandleName(name, traceSuffix),
                                                 false)),
      name_(name), typeName_(typeName), traceSuffix_(traceSuffix) {
    installDummy();
}

template <class Ops>
BriskMap<Ops>::~BriskMap() {
    FMTRACE(*handler_, 2, "deleting state");
    mounter_.reset();
    // The table is let go now. What is left of the implementation stays until the loop's next turn:
    // this may run inside one of its callbacks.
    interface_->abandon();
    retire(std::move(interface_));
}

template <class Ops>
void BriskMap<Ops>::nameIs(std::string const& name,
                           std::shared_ptr<Dunlin::Platform::DebugHandler> handler) {
    FMASSERT(!initialized_, "name:{} already initialized, new name:{}", name_, name);
    name_ = name;
    handler_ = std::move(handler);
}

template <class Ops>
void BriskMap<Ops>::interfaceIs(std::unique_ptr<Interface> interface) {
    retire(std::exchange(interface_, std::move(interface)));
}

template <class Ops>
auto BriskMap<Ops>::makeDummy(std::unique_ptr<Interface> previous) -> std::unique_ptr<Interface> {
    if (assertOnOrphanAccess_)
        return std::make_unique<BriskStrictDummy<Ops>>(*handler_, name_, ops_, orphanDetail,
                                                       std::move(previous));
    return std::make_unique<BriskDummy<Ops>>(*handler_, name_, ops_, std::move(previous));
}

template <class Ops>
void BriskMap<Ops>::installDummy() {
    interface_ = makeDummy(std::move(interface_));
}

// ---- taking up a role ----

template <class Ops>
void BriskMap<Ops>::init(BriskType type, bool localMem, U32 size) {
    MapDescriptor descriptor(size);
    descriptor.type = type;
    descriptor.localMem = localMem;
    init(descriptor);
}

template <class Ops>
void BriskMap<Ops>::notAllowed(MapDescriptor const& wanted) const {
    if (wanted.heap && !wanted.localMem)
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
            "cannot initialize collection {} heap allocation in non-local mode not allowed", name_);
    if (wanted.type == BriskType::writer && wanted.initialSize == 0)
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
            "0 is not a valid initialization size for collection {} in writer mode", name_);
}

template <class Ops>
void BriskMap<Ops>::silenceKeys() {
    if (!keyNotifications_) return;
    callbacks_.savedValueNotify = std::exchange(callbacks_.valueNotify, Dunlin::noop);
    callbacks_.savedKeyNotify = std::exchange(callbacks_.keyNotify, Dunlin::noop);
    callbacks_.savedDeleteNotify = std::exchange(callbacks_.deleteNotify, Dunlin::noop);
    keyNotifications_ = false;
}

template <class Ops>
void BriskMap<Ops>::init(Mem::CollectionDescriptor const& settings) {
    FMASSERT(!assertOnOrphanAccess_,
             "Re-initializing a collection that has already become an orphan and has "
             "assertOnOrphanAccess set");
    auto const& wanted = dynamic_cast<MapDescriptor const&>(settings);
    if (wanted.cleanupFirst) interface_->cleanup();
    if (initialized_) {
        if (!(wanted == descriptor_))
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                "name:{} already initialized, old {}, new {}", name_, descriptor_, wanted);
        FMTRACE(*handler_, 5, "name:{} already initialized, new {}", name_, wanted);
        return;
    }
    FMTRACE(*handler_, 5, "name:{} {}", name_, wanted);
    notAllowed(wanted);
    bool const shadow =
        wanted.type == BriskType::valueShadow || wanted.type == BriskType::keyShadow;
    if (!wanted.notifyDuringSync && !wanted.localMem && shadow) {
        // The client hears nothing per key until the first synchronisation is complete.
        silenceKeys();
        FMASSERT(notifying_, "notifications unexpectedly disabled prior to initialization with "
                             "asynchronous mode");
    }
    descriptor_ = wanted;
    handler_ = Dunlin::Platform::getDebugHandler(Dunlin::Util::traceHandleName(name_, traceSuffix_),
                                                 false);
    FMASSERT(!mounter_, "Brisk mounter should not exist");
    FMASSERT(!wanted.prevValue, "prevValue mount-time option enabled without specifying "
                                "`captureNotifyValues property");
    bool const writer = wanted.type == BriskType::writer;
    auto const alive = alive_; // a callback of the client may end the front
    if (wanted.localMem || writer) {
        startWriter();
    } else {
        FMASSERT(U32(wanted.type) <= 3, "not a valid reader type:{}", U32(wanted.type));
        startReader();
    }
    if (!*alive) return;
    initialized_ = true;
    if (!writer) return;
    Dunlin::FirstRaised raised;
    raised.run([&] { callbacks_.quiescedNotify(true); });
    if (*alive) raised.run([&] { callbacks_.mountStatusNotify(); });
    raised.rethrow();
}

template <class Ops>
void BriskMap<Ops>::startWriter() {
    // The front's callback is looked up at each call: the client may replace it.
    auto writer = std::make_unique<BriskWriter<Ops>>(*handler_, name_, descriptor_, ops_, typeName_,
                                                     [this, alive = alive_](bool quiesced) {
                                                         if (*alive)
                                                             callbacks_.quiescedNotify(quiesced);
                                                     });
    if (!writer->initialize("none"))
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>("failed to initialize collection {}",
                                                            name_);
    if (anchorHook_) writer->validateVersionAnchorHookIs(anchorHook_);
    // May raise: the front is then as it was.
    if (!descriptor_.localMem)
        mounter_ = std::make_unique<Mem::WriterSentry>(*handler_, this, Mem::RootPath(name_));
    interfaceIs(std::move(writer));
    if (mounter_) (*mounter_)(Mem::Sentry::eventInit_, false);
}

template <class Ops>
void BriskMap<Ops>::startReader() {
    auto const alive = alive_;
    interfaceIs(std::make_unique<BriskDummy<Ops>>(*handler_, name_, ops_));
    try {
        auto sentry = std::make_unique<Mem::ReaderSentry>(*handler_, Mem::RootPath(name_), *this);
        auto& look = *sentry;
        mounter_ = std::move(sentry);
        look(Mem::Sentry::eventInit_, false);
    } catch (Dunlin::InvalidInitializeException const& error) {
        mounter_.reset();
        // A process that lives in a chroot may not see the tables: its front stays empty.
        if (!std::getenv("QZ_CHROOT")) throw;
        FMTRACE(*handler_, 1, "no sentry: {}", error.message());
    } catch (...) {
        if (*alive) {
            initialized_ = readerFullyAttached(); // it is only the client that raised
            if (!initialized_) mounter_.reset();  // the client may try again
        }
        throw;
    }
}

// ---- the writer comes and goes ----

template <class Ops>
void BriskMap<Ops>::attach(std::string const& event) {
    FMASSERT(descriptor_.type != BriskType::writer, "invoked for a writer");
    FMTRACE(*handler_, 2, "attempting to attach {} as {}", name_, U32(descriptor_.type));
    BriskType const present = interface_->type();
    bool const shadow = descriptor_.type != BriskType::reader;
    std::unique_ptr<Interface> previous;
    if (shadow && present == BriskType::valueShadow) { // so says either kind
        // Still there: it flushes, or has lost its connection.
        previous = std::make_unique<BriskDummy<Ops>>(*handler_, name_, ops_);
    } else {
        previous = std::move(interface_);
        if (shadow) {
            U32 const flags =
                (descriptor_.notifyOnFlush ? BriskShadowBase::notifyOnFlushFlag : 0U) |
                (descriptor_.asyncAlways || event != Mem::Sentry::eventInit_
                     ? BriskShadowBase::asyncFlag
                     : 0U) |
                (descriptor_.type == BriskType::keyShadow ? BriskShadowBase::keyShadowFlag : 0U);
            interface_ = std::make_unique<BriskShadow<Ops>>(*handler_, name_, ops_, *this, flags);
        } else {
            interface_ =
                std::make_unique<BriskReader<Ops>>(*handler_, name_.c_str(), ops_, nullptr);
        }
    }
    interface_->yieldTimeIs(yieldTime_);
    interface_->notifyingIs(notifying_);
    auto const alive = alive_;
    Interface* const mine = interface_.get();
    bool attached = false;
    try {
        attached = mine->initialize(event);
    } catch (...) {
        if (*alive && interface_.get() == mine) {
            interfaceIs(std::move(previous));
            if (mounter_) mounter_->watching = true; // also where a flush was cut short
        } else {
            retire(std::move(previous));
        }
        throw;
    }
    // A callback of the walk may have detached this very implementation, or ended the front.
    if (!*alive || interface_.get() != mine) {
        retire(std::move(previous));
        return;
    }
    if (attached) {
        FMTRACE(*handler_, 2, "successful");
        // What was being flushed was told to its end when the shadow was attached anew.
        if (mounter_) mounter_->watching = true;
        retire(std::move(previous));
        Dunlin::FirstRaised raised;
        if (mine->type() == BriskType::reader) raised.run([&] { callbacks_.quiescedNotify(true); });
        if (*alive) raised.run([&] { callbacks_.mountStatusNotify(); });
        return raised.rethrow();
    }
    FMTRACE(*handler_, 1, "initialize failed for {}", name_);
    if (mine->mountStatus() == Mem::MountStatus::flushing) {
        FMTRACE(*handler_, 1, "not deleting Brisk, waiting for flush to complete");
        retire(std::move(previous));
    } else {
        interfaceIs(std::move(previous));
    }
}

template <class Ops>
void BriskMap<Ops>::detach(bool force) {
    FMTRACE(*handler_, 5, "{} force:{}", name_, force);
    auto const alive = alive_;
    Interface* const mine = interface_.get();
    Dunlin::FirstRaised raised;
    bool const outer = std::exchange(detaching_, force);
    raised.run([&] { mine->detach(force); });
    // The flush told the client, who may have done anything.
    if (!*alive) return raised.rethrow();
    detaching_ = outer;
    if (interface_.get() == mine) {
        bool const flushing = mine->mountStatus() == Mem::MountStatus::flushing;
        if (mounter_) mounter_->watching = !flushing;
        if (!flushing || !mounter_) installDummy();
    }
    raised.run([&] { callbacks_.quiescedNotify(false); });
    if (*alive) raised.run([&] { callbacks_.mountStatusNotify(); });
    if (*alive && mounter_) mounter_->purgeInotifyRecord();
    raised.rethrow();
}

template <class Ops>
void BriskMap<Ops>::shadowSynced() {
    if (!keyNotifications_) {
        callbacks_.valueNotify = std::exchange(callbacks_.savedValueNotify, Dunlin::noop);
        callbacks_.keyNotify = std::exchange(callbacks_.savedKeyNotify, Dunlin::noop);
        callbacks_.deleteNotify = std::exchange(callbacks_.savedDeleteNotify, Dunlin::noop);
        keyNotifications_ = true;
    }
    callbacks_.mountStatusNotify();
}

template <class Ops>
void BriskMap<Ops>::shadowRestTaken() {
    if (mounter_) (*mounter_)(Mem::Sentry::eventRestTaken_, false);
}

template <class Ops>
void BriskMap<Ops>::shadowFlushed() {
    if (detaching_) return; // `detach` does the rest
    installDummy();
    auto const alive = alive_;
    Dunlin::FirstRaised raised;
    if (mounter_) {
        mounter_->watching = true;
        raised.run([&] { (*mounter_)(Mem::Sentry::eventFlushComplete_, false); });
    }
    if (*alive) raised.run([&] { callbacks_.mountStatusNotify(); });
    raised.rethrow();
}

template <class Ops>
void BriskMap<Ops>::handleDisconnect() {
    FMASSERT(descriptor_.type == BriskType::valueShadow || descriptor_.type == BriskType::keyShadow,
             "wrong type:{}", U32(descriptor_.type));
    if (mounter_) (*mounter_)(Mem::Sentry::eventDisconnect_, false);
}

template <class Ops>
void BriskMap<Ops>::handleRefused() {
    if (mounter_) (*mounter_)(Mem::Sentry::eventRefused_, false);
}

template <class Ops>
void BriskMap<Ops>::handleDamage() {
    if (mounter_) (*mounter_)(Mem::Sentry::eventDamaged_, false);
}

template <class Ops>
void BriskMap<Ops>::tryAttach() {
    FMTRACE(*handler_, 5, "{}", name_);
    if (!mounter_ || descriptor_.type == BriskType::writer) return;
    if (mountStatus() != Mem::MountStatus::unmounted) {
        FMTRACE(*handler_, 5, "{} is already mounted, mountStatus:{}", name_, U32(mountStatus()));
        return;
    }
    auto const alive = alive_;
    (*mounter_)(Mem::Sentry::eventTryAttach_, false);
    if (*alive && mountStatus() != Mem::MountStatus::unmounted)
        Dunlin::Util::emitCanaryLog("mounted {} mountStatus:{}", name_, U32(mountStatus()));
}

template <class Ops>
void BriskMap<Ops>::controlDetach() {
    auto const alive = alive_;
    Dunlin::FirstRaised raised;
    raised.run([&] { detach(true); });
    if (*alive) {
        mounter_.reset();
        initialized_ = false;
    }
    raised.rethrow();
}

template <class Ops>
void BriskMap<Ops>::cleanupAndDetach() {
    FMASSERT(initialized_, "{} trying to cleanup uninitialized brisk.", name_);
    cleanup();
    controlDetach();
}

// ---- callbacks ----

// While the keys are silenced, the client's own callbacks wait among the saved ones.
template <class Ops>
void BriskMap<Ops>::valueNotifyIs(std::function<void(Value const&)> callback) {
    (keyNotifications_ ? callbacks_.valueNotify : callbacks_.savedValueNotify) =
        std::move(callback);
}
template <class Ops>
void BriskMap<Ops>::keyNotifyIs(std::function<void(Key const&)> callback) {
    (keyNotifications_ ? callbacks_.keyNotify : callbacks_.savedKeyNotify) = std::move(callback);
}
template <class Ops>
void BriskMap<Ops>::deleteNotifyIs(std::function<void(Key const&)> callback) {
    (keyNotifications_ ? callbacks_.deleteNotify : callbacks_.savedDeleteNotify) =
        std::move(callback);
}
template <class Ops>
void BriskMap<Ops>::mountStatusNotifyIs(std::function<void()> callback) {
    callbacks_.mountStatusNotify = std::move(callback);
}
template <class Ops>
void BriskMap<Ops>::quiescedNotifyIs(std::function<void(bool)> callback) {
    callbacks_.quiescedNotify = std::move(callback);
}

template <class Ops>
void BriskMap<Ops>::notifyingIs(bool on) {
    FMTRACE(*handler_, 5, "{} notifying:{}", name_, on);
    FMASSERT(!initialized_ || keyNotifications_,
             "not allowed at this time, initialized:{} keyNotifications:{}", initialized_,
             keyNotifications_);
    notifying_ = on;
    interface_->notifyingIs(on);
    if (on && mounter_) (*mounter_)(Mem::Sentry::eventNotifEnabled_, false);
}

// ---- forwarders ----

template <class Ops>
void BriskMap<Ops>::validateVersionAnchor() const {
    FMTRACE(*handler_, 5, "{}", name_);
    interface_->validateVersionAnchor();
}
template <class Ops>
Mem::CacheVersionAnchor BriskMap<Ops>::getCacheVersionAnchor() const {
    FMTRACE(*handler_, 5, "{}", name_);
    return interface_->getCacheVersionAnchor();
}
template <class Ops>
bool BriskMap<Ops>::compareVersionAnchor(Mem::CacheVersionAnchor const& anchor) const {
    return getCacheVersionAnchor() == anchor;
}
template <class Ops>
void BriskMap<Ops>::validateVersionAnchorHookIs(VersionAnchorHook hook) {
    FMTRACE(*handler_, 5, "{}", name_);
    anchorHook_ = hook;
    interface_->validateVersionAnchorHookIs(hook);
}
template <class Ops>
bool BriskMap<Ops>::ready() const {
    return initialized_ && mountStatus() != Mem::MountStatus::unmounted;
}
template <class Ops>
SharedMem::OrielId BriskMap<Ops>::orielId() const {
    return interface_->orielId();
}
template <class Ops>
Mem::MountStatus BriskMap<Ops>::mountStatus() const {
    FMTRACE(*handler_, 5, "{}", name_);
    return interface_->mountStatus();
}
template <class Ops>
Reader::Counters BriskMap<Ops>::readerCounters() const {
    FMTRACE(*handler_, 5, "{}", name_);
    Reader::Counters record = interface_->readerCounters();
    briskMapUpdateReaderCounters(record);
    return record;
}
template <class Ops>
Writer::Counters BriskMap<Ops>::writerCounters() const {
    FMTRACE(*handler_, 5, "{}", name_);
    Writer::Counters record = interface_->writerCounters();
    briskMapUpdateWriterCounters(record);
    return record;
}
template <class Ops>
void BriskMap<Ops>::cleanup() {
    FMTRACE(*handler_, 5, "{}", name_);
    interface_->cleanup();
}
template <class Ops>
bool BriskMap<Ops>::validate() {
    FMTRACE(*handler_, 5, "{}", name_);
    return interface_->validate();
}
template <class Ops>
bool BriskMap<Ops>::validateFiles(std::string const& event, unsigned flags) {
    FMTRACE(*handler_, 5, "{} event:{} flags:{}", name_, event, flags);
    return interface_->validateFiles();
}
template <class Ops>
U64 BriskMap<Ops>::sequence() const {
    FMTRACE(*handler_, 5, "{}", name_);
    return interface_->sequence();
}
template <class Ops>
std::string BriskMap<Ops>::owner() const {
    SharedMem::BolsterName name;
    try {
        Mem::RootPath const path(name_);
        SharedMem::OwnerFile const file(*handler_, path, descriptor_.localMem);
        std::string const socket = file.bolsterInfo().socketName;
        std::string error;
        if (Mem::WriterLock::ownerIsAlive(*handler_, socket, error, &path))
            name = SharedMem::BolsterName::BolsterNameIs(socket).value_or(name);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        FMTRACE(*handler_, 1, "corruption detected: {}", error.message());
    }
    return name.processName + ':' + std::to_string(name.pid);
}
template <class Ops>
void BriskMap<Ops>::yieldTimeIs(double const& seconds) {
    FMTRACE(*handler_, 5, "{} yieldTime:{}", name_, seconds);
    yieldTime_ = seconds;
    interface_->yieldTimeIs(seconds);
}
template <class Ops>
bool BriskMap<Ops>::exists() const {
    return SharedMem::OrielFile(*handler_, Mem::RootPath(name_), descriptor_.localMem).read() != 0;
}
template <class Ops>
bool BriskMap<Ops>::clientQuiesced(std::string const& readerName) const {
    FMTRACE(*handler_, 5, "{} readerName:{}", name_, readerName);
    return interface_->clientQuiesced(readerName);
}
template <class Ops>
bool BriskMap<Ops>::quiesced() const {
    FMTRACE(*handler_, 5, "{} type:{}", name_, U32(descriptor_.type));
    return interface_->quiesced();
}
template <class Ops>
std::string BriskMap<Ops>::modeStr() const {
    switch (descriptor_.type) {
    case BriskType::writer:
        return "writer";
    case BriskType::valueShadow:
        return "value shadow";
    case BriskType::reader:
        return "reader";
    case BriskType::keyShadow:
        return "key shadow";
    }
    return "bad";
}
template <class Ops>
bool BriskMap<Ops>::isWriter() const {
    return descriptor_.localMem || descriptor_.type == BriskType::writer;
}
template <class Ops>
bool BriskMap<Ops>::readerFullyAttached() const {
    auto const status = interface_->mountStatus();
    return status == Mem::MountStatus::mounted || status == Mem::MountStatus::synchronised;
}
template <class Ops>
bool BriskMap<Ops>::disconnectedActiveReader() const {
    return descriptor_.type != BriskType::reader && readerFullyAttached() &&
           !interface_->connected();
}

// ---- contents ----

template <class Ops>
auto BriskMap<Ops>::safeLookup(Key const& key, bool& found, void* out) const -> Value const* {
    try {
        return interface_->lookup(key, found, out);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        const_cast<BriskMap*>(this)->doCorruptionDetected(error.message());
        found = false;
        return &Ops::type_default();
    }
}

template <class Ops>
auto BriskMap<Ops>::safeWrite(Value const& value, bool overwrite) -> Value const* {
    try {
        return interface_->write(value, overwrite);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        doCorruptionDetected(error.message());
        PLAINASSERT(false, "in no man's land");
    }
    return nullptr;
}

template <class Ops>
bool BriskMap<Ops>::safeRemove(Key const& key, Value& value) {
    try {
        return interface_->remove(key, value);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        doCorruptionDetected(error.message());
        PLAINASSERT(false, "in no man's land");
    }
    return false;
}

} // namespace Brisk
