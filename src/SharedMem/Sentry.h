// What watches a table's files for a front: whether a writer is there, and whether it is still the
// same. Nothing polls: file events, the end of the writer's process and the front's own questions
// lead to a new look. Only where a live writer is there and attaching to it fails, or it does not let
// the reader in, a timer leads to the next attempt, after a pause that grows from one to the next.
#pragma once

#include "Dunlin/TaskSchedulerRoot.h"
#include "Dunlin/Trace.h"
#include "SharedMem/Bolster.h"
#include "SharedMem/DirectoryWatch.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/OrielFile.h"
#include "SharedMem/RootPath.h"

#include <memory>
#include <string>

namespace Mem {

// Base of both: the watch and the events by which a front asks for a look.
class Sentry : public Dunlin::Debuggable {
public:
    static constexpr char const* eventInit_ = "init";
    static constexpr char const* eventTryAttach_ = "tryAttach";
    static constexpr char const* eventNotifEnabled_ = "notifEnabled";
    static constexpr char const* eventDisconnect_ = "disconnect";
    static constexpr char const* eventFlushComplete_ = "flushComplete";
    static constexpr char const* eventFiles_ = "files";
    static constexpr char const* eventOwnerExit_ = "ownerExit";
    static constexpr char const* eventRetry_ = "retry";
    // The writer did not let the reader in; the table was damaged. Both without effect while the
    // pause lasts, as a lost connection and the end of a flush are.
    static constexpr char const* eventRefused_ = "refused";
    static constexpr char const* eventDamaged_ = "damaged";
    static constexpr char const* eventRestTaken_ = "restTaken";

    virtual ~Sentry();
    Sentry(Sentry const&) = delete;
    Sentry& operator=(Sentry const&) = delete;

    // Examines the files and tells the notifiee. The flag is set when the sentry itself noticed
    // something.
    virtual void operator()(std::string const& event, bool noticed) = 0;
    // Forgets what was noticed and not looked at yet, and what was to be tried again.
    virtual void purgeInotifyRecord() { lookPosted_.reset(); }

    // Off: questions and events are not answered.
    bool watching = true;

protected:
    Sentry(Dunlin::Platform::DebugHandler& handler, RootPath const& rootPath);
    // A look at the next turn of the loop.
    void postLook(char const* event);

    RootPath const rootPath_;

private:
    std::shared_ptr<Sentry*> alive_; // posted tasks look here first
    std::shared_ptr<bool> lookPosted_;
    DirectoryWatch watch_;
};

class ReaderSentry : public Sentry {
public:
    class Notifiee {
    public:
        virtual ~Notifiee() = default;
        // Whether the client wants to hear anything now; if not, the reader is kept waiting.
        virtual bool notifying() const = 0;
        virtual SharedMem::OrielId orielId() const = 0;
        virtual void detach(bool force) = 0;
        virtual void attach(std::string const& event) = 0;
        // Asked before a `detach` because the writer has gone: false if there is more to take from
        // what it has left. The notifiee asks for another look when that is done.
        virtual bool takeRest() { return true; }
        virtual bool localMem() const = 0;
        virtual std::string modeStr() const = 0;
        virtual bool readerFullyAttached() const = 0;
        // Attached, but without a connection to the writer that it should have.
        virtual bool disconnectedActiveReader() const = 0;
    };

    // Raises InvalidInitializeException where watching is not possible.
    ReaderSentry(Dunlin::Platform::DebugHandler& handler, RootPath const& rootPath,
                 Notifiee& notifiee);
    ~ReaderSentry() override;
    // A live writer whose files are there: attach. Another writer or another generation than the
    // one attached to: detach, then attach. None: detach. What the notifiee raises passes on, and
    // is followed by another attempt.
    void operator()(std::string const& event, bool noticed) override;
    void purgeInotifyRecord() override;

private:
    struct Seen {
        SharedMem::OrielId orielId = 0; // 0: no writer, or not ready yet
        SharedMem::BolsterInfo owner;
        friend bool operator==(Seen const&, Seen const&) = default;
    };
    Seen look() const;
    void complain(std::string const& what) const;
    void watchOwner(SharedMem::BolsterInfo const& owner);
    void examine(std::string const& event);
    void attach(std::string const& event, Seen const& seen);
    bool mayAttach(std::string const& event, Seen const& seen) const;
    void holdOff(Seen const& seen);

    Notifiee& notifiee_;
    Seen attachedTo_;
    Seen heldOff_;     // the writer to which the last attempt came to nothing
    double pause_ = 0; // before the next attempt, in seconds
    double heldOffAt_ = 0;
    double attemptedAt_ = 0;
    SharedMem::BolsterInfo watchedOwner_;
    mutable std::string complaint_;
    Fd pidfd_;
    Dunlin::TaskSchedulerRoot::TimerId retry_ = 0;
    bool looking_ = false;
    bool lookAgain_ = false;
    std::shared_ptr<ReaderSentry*> here_; // a notifiee may destroy the sentry that calls it
};

// The writer's side: notices when somebody takes the files of a living table away, and has them made
// again.
class WriterSentry : public Sentry {
public:
    class Notifiee {
    public:
        virtual ~Notifiee() = default;
        virtual SharedMem::OrielId orielId() const = 0;
        virtual bool validate() = 0;
        virtual bool validateFiles(std::string const& event, unsigned flags) = 0;
        // Makes missing files of the table again. False if that is not possible now; raises where
        // files cannot be made. Both lead to another attempt.
        virtual bool remake() { return true; }
    };

    WriterSentry(Dunlin::Platform::DebugHandler& handler, Notifiee* notifiee,
                 RootPath const& rootPath);
    ~WriterSentry() override;
    void operator()(std::string const& event, bool noticed) override;

private:
    void remake();

    Notifiee* notifiee_;
    double pause_ = 0; // before the next attempt, in seconds
    Dunlin::TaskSchedulerRoot::TimerId retry_ = 0;
};

} // namespace Mem
