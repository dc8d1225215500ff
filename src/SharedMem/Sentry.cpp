#include "SharedMem/Sentry.h"

#include "Dunlin/Exception.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Mem {
namespace {

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}

// The files whose coming and going says something about the writer. The queue's are mapped with
// them and need no look of their own.
constexpr std::array<std::string_view, 4> tellingFiles = {"oriel", "owner", "slots", "buckets"};

constexpr double retrySeconds = 1;

} // namespace

Sentry::Sentry(Dunlin::Platform::DebugHandler& handler, RootPath const& rootPath)
    : Debuggable(handler), rootPath_(rootPath), alive_(std::make_shared<Sentry*>(this)),
      watch_(rootPath.text(), [this](std::string const& name) {
          if (name.empty() ||
              std::find(tellingFiles.begin(), tellingFiles.end(), name) != tellingFiles.end())
              postLook(eventFiles_);
      }) {}

Sentry::~Sentry() {
    *alive_ = nullptr;
}

// Events come in bunches; one look answers them all.
void Sentry::postLook(char const* event) {
    if (lookPosted_) return;
    lookPosted_ = std::make_shared<bool>(true);
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal,
                   [alive = alive_, posted = std::weak_ptr(lookPosted_), event] {
                       if (!*alive || posted.expired()) return;
                       (*alive)->lookPosted_.reset();
                       (**alive)(event, true);
                   });
}

ReaderSentry::ReaderSentry(Dunlin::Platform::DebugHandler& handler, RootPath const& rootPath,
                           Notifiee& notifiee)
    : Sentry(handler, rootPath), notifiee_(notifiee), here_(std::make_shared<ReaderSentry*>(this)) {
}

ReaderSentry::~ReaderSentry() {
    *here_ = nullptr;
    watchOwner({});
    loop().timerDel(retry_);
}

// What this user lacks the permission for stays so: it is reported once.
void ReaderSentry::complain(std::string const& what) const {
    if (what != complaint_) FMTRACE(debugHandler(), 0, "{}", what);
    complaint_ = what;
}

// The writer stores its oriel file last and names itself in the owner file before, so once the id
// is there the rest is.
ReaderSentry::Seen ReaderSentry::look() const {
    Seen seen;
    for (char const* name : {"slots", "buckets"}) {
        std::string const file = rootPath_.file(name);
        if (::access(file.c_str(), R_OK) == 0) continue;
        if (errno != ENOENT) complain("cannot read " + file + ": " + std::strerror(errno));
        return {};
    }
    try {
        seen.owner = SharedMem::OwnerFile(debugHandler(), rootPath_, false).bolsterInfo();
    } catch (Dunlin::CorruptionDetectedException const& error) {
        FMTRACE(debugHandler(), 1, "{}", error.message());
        return {};
    }
    std::string error;
    if (seen.owner.empty() ||
        !WriterLock::ownerIsAlive(debugHandler(), seen.owner.socketName, error, &rootPath_))
        return {};
    if (!error.empty()) complain(error);
    seen.orielId = SharedMem::OrielFile(debugHandler(), rootPath_, false).read();
    return seen;
}

void ReaderSentry::operator()(std::string const& event, bool noticed) {
    FMTRACE(debugHandler(), 5, "{} event:{} noticed:{} watching:{} mode:{}", rootPath_.text(),
            event, noticed, watching, notifiee_.modeStr());
    if (!watching || notifiee_.localMem()) return;
    // The notifiee asks again from inside: one more look when this one is done.
    if (looking_) {
        lookAgain_ = true;
        return;
    }
    looking_ = true;
    auto const here = here_;
    for (int turns = 0; turns < 4; ++turns) {
        lookAgain_ = false;
        Seen const seen = look();
        watchOwner(seen.owner);
        bool const there = seen.orielId != 0;
        // A client may have attached the front by hand.
        if (there && attachedTo_.orielId == 0 && notifiee_.orielId() == seen.orielId)
            attachedTo_ = seen;
        if (notifiee_.readerFullyAttached() && (!there || !(seen == attachedTo_))) {
            FMTRACE(debugHandler(), 1, "{} event:{} writer {}", rootPath_.text(), event,
                    there ? "is another" : "has gone");
            attachedTo_ = {};
            notifiee_.detach(false);
            if (!*here) return;
        }
        // `watching` is off while a shadow flushes; it asks when that is done.
        if (there && watching && notifiee_.notifying() &&
            (!notifiee_.readerFullyAttached() || notifiee_.disconnectedActiveReader())) {
            notifiee_.attach(event);
            if (!*here) return;
            if (notifiee_.readerFullyAttached())
                attachedTo_ = seen;
            else
                retryLater();
        }
        if (!lookAgain_ || !watching) break;
    }
    looking_ = false;
}

// The end of the writer's process shows on its descriptor, with no change of any file.
void ReaderSentry::watchOwner(SharedMem::BolsterInfo const& owner) {
    if (owner == watchedOwner_ && pidfd_) return;
    if (pidfd_) loop().fdDel(pidfd_.get());
    pidfd_.reset();
    watchedOwner_ = owner;
    auto const name = SharedMem::BolsterName::BolsterNameIs(owner.socketName);
    if (!name) return;
    // Where process ids are of another namespace the connection's end has to do.
    pidfd_.reset(static_cast<int>(::syscall(SYS_pidfd_open, name->pid, 0)));
    if (!pidfd_) return;
    loop().fdAdd(pidfd_.get(), EPOLLIN, [this](U32) {
        loop().fdDel(pidfd_.get());
        pidfd_.reset();
        (*this)(eventOwnerExit_, true);
    });
}

void ReaderSentry::retryLater() {
    if (retry_ != 0) return;
    retry_ = loop().timerAdd(retrySeconds, [this] {
        retry_ = 0;
        (*this)(eventRetry_, true);
    });
}

WriterSentry::WriterSentry(Dunlin::Platform::DebugHandler& handler, Notifiee* notifiee,
                           RootPath const& rootPath)
    : Sentry(handler, rootPath), notifiee_(notifiee) {}

void WriterSentry::operator()(std::string const& event, bool noticed) {
    FMTRACE(debugHandler(), 5, "{} event:{} noticed:{}", rootPath_.text(), event, noticed);
    if (!watching || !noticed || notifiee_->orielId() == 0) return;
    try {
        notifiee_->validateFiles(event, 0);
    } catch (Dunlin::Exception const& error) {
        FMTRACE(debugHandler(), 0, "files of the live table {} were changed: {}", rootPath_.text(),
                error.message());
    }
}

} // namespace Mem
