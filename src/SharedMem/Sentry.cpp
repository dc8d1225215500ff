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

// The files whose coming and going says something about the writer, or to it.
constexpr std::array<std::string_view, 7> tellingFiles = {
    "oriel", "owner", "slots", "buckets", "yarrow", "yarrow2", "owner.lock"};

// The pause before another attempt to attach to the same writer, in seconds. It doubles up to the
// longest; an attempt that lasted for twice that long has not failed.
constexpr double firstPause = 0.05, longestPause = 30;

// A connection that is lost sooner was as good as refused.
constexpr double settledSeconds = 1;

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

// The same complaint is made once, until a look has nothing to complain of.
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
    if (error.empty())
        complaint_.clear();
    else
        complain(error);
    seen.orielId = SharedMem::OrielFile(debugHandler(), rootPath_, false).read();
    return seen;
}

void ReaderSentry::operator()(std::string const& event, bool noticed) {
    FMTRACE(debugHandler(), 5, "{} event:{} noticed:{} watching:{} mode:{}", rootPath_.text(),
            event, noticed, watching, notifiee_.modeStr());
    if (notifiee_.localMem()) return;
    if (event == eventDamaged_) holdOff(look());
    if (!watching) return;
    // The notifiee asks again from inside: one more look when this one is done.
    if (looking_) {
        lookAgain_ = true;
        return;
    }
    // A notifiee may raise, and may end this sentry.
    struct Looking {
        ReaderSentry& sentry;
        std::shared_ptr<ReaderSentry*> here;
        explicit Looking(ReaderSentry& s) : sentry(s), here(s.here_) { sentry.looking_ = true; }
        ~Looking() {
            if (*here) sentry.looking_ = false;
        }
    } const looking(*this);
    for (int turns = 0; turns < 4; ++turns) {
        lookAgain_ = false;
        examine(event);
        if (!*looking.here || !lookAgain_ || !watching) break;
    }
}

void ReaderSentry::examine(std::string const& event) {
    auto const here = here_;
    Seen const seen = look();
    watchOwner(seen.owner);
    bool const there = seen.orielId != 0;
    // A client may have attached the front by hand.
    if (there && attachedTo_.orielId == 0 && notifiee_.orielId() == seen.orielId)
        attachedTo_ = seen;
    try {
        if (notifiee_.readerFullyAttached() && (!there || !(seen == attachedTo_))) {
            if (!notifiee_.takeRest()) return;
            FMTRACE(debugHandler(), 1, "{} event:{} writer {}", rootPath_.text(), event,
                    there ? "is another" : "has gone");
            attachedTo_ = {};
            notifiee_.detach(false);
            if (!*here) return;
        }
        // `watching` is off while a shadow flushes; it asks when that is done.
        if (there && watching && notifiee_.notifying() &&
            (!notifiee_.readerFullyAttached() || notifiee_.disconnectedActiveReader()))
            attach(event, seen);
    } catch (...) {
        if (*here && !notifiee_.readerFullyAttached()) holdOff(seen);
        throw;
    }
}

void ReaderSentry::attach(std::string const& event, Seen const& seen) {
    bool const lost = event == eventDisconnect_ && loop().now() < attemptedAt_ + settledSeconds;
    if (lost || (event == eventRefused_ && seen == attachedTo_)) holdOff(seen);
    if (!mayAttach(event, seen)) return;
    attemptedAt_ = loop().now();
    auto const here = here_;
    notifiee_.attach(event);
    if (!*here) return;
    if (notifiee_.readerFullyAttached())
        attachedTo_ = seen;
    else
        holdOff(seen);
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

// While the pause lasts, only what comes from elsewhere leads to an attempt: a file event, a
// question of the client, the end of the pause.
bool ReaderSentry::mayAttach(std::string const& event, Seen const& seen) const {
    if (retry_ == 0 || !(seen == heldOff_)) return true;
    return event != eventRefused_ && event != eventDamaged_ && event != eventDisconnect_ &&
           event != eventFlushComplete_;
}

void ReaderSentry::holdOff(Seen const& seen) {
    bool const same = seen == heldOff_;
    if (same && retry_ != 0) return;
    loop().timerDel(retry_);
    double const now = loop().now();
    bool const again = same && now < heldOffAt_ + pause_ + 2 * longestPause;
    pause_ = again ? std::min(2 * pause_, longestPause) : firstPause;
    heldOff_ = seen;
    heldOffAt_ = now;
    FMTRACE(debugHandler(), 1, "{} next attempt in {} s", rootPath_.text(), pause_);
    retry_ = loop().timerAdd(pause_, [this] {
        retry_ = 0;
        (*this)(eventRetry_, true);
    });
}

void ReaderSentry::purgeInotifyRecord() {
    Sentry::purgeInotifyRecord();
    loop().timerDel(retry_);
    retry_ = 0;
}

WriterSentry::WriterSentry(Dunlin::Platform::DebugHandler& handler, Notifiee* notifiee,
                           RootPath const& rootPath)
    : Sentry(handler, rootPath), notifiee_(notifiee) {}

WriterSentry::~WriterSentry() {
    loop().timerDel(retry_);
}

void WriterSentry::operator()(std::string const& event, bool noticed) {
    FMTRACE(debugHandler(), 5, "{} event:{} noticed:{}", rootPath_.text(), event, noticed);
    if (!watching || !noticed || notifiee_->orielId() == 0) return;
    try {
        notifiee_->validateFiles(event, 0);
    } catch (Dunlin::Exception const& error) {
        FMTRACE(debugHandler(), 0, "files of the live table {} were changed: {}", rootPath_.text(),
                error.message());
        return remake();
    }
    pause_ = 0;
}

// What is in the way (no room, no permission, another writer) may go without a change of the files.
void WriterSentry::remake() {
    std::string why = "the table is in use";
    try {
        if (notifiee_->remake()) {
            pause_ = 0;
            return;
        }
    } catch (Dunlin::Exception const& error) {
        why = error.message();
    }
    if (retry_ != 0) return;
    pause_ = pause_ == 0 ? firstPause : std::min(2 * pause_, longestPause);
    FMTRACE(debugHandler(), 0, "{} is not made again: {}, next attempt in {} s", rootPath_.text(),
            why, pause_);
    retry_ = loop().timerAdd(pause_, [this] {
        retry_ = 0;
        (*this)(eventRetry_, true);
    });
}

} // namespace Mem
