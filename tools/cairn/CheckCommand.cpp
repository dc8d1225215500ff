// `cairn check` and `cairn cleanup`: is a table sound, and away with it.
//
// A table is judged as its next writer would judge it, by the writer's own validator, but on a
// copy: a writer that finds files unsound formats them anew, and a check must not. The table's
// writer lock is held meanwhile, so that nobody changes what is being copied.
#include "Access.h"
#include "Commands.h"

#include "Dunlin/Util.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"

#include <fmt/format.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

namespace Cairn {
namespace fs = std::filesystem;
namespace {

// One line on a terminal, replaced by the next.
class Progress {
public:
    ~Progress() { say(""); }
    void say(std::string const& text) const {
        if (terminal_) fmt::print(stderr, "\r\033[K{}", text);
    }

private:
    bool terminal_ = ::isatty(STDERR_FILENO) == 1;
};

volatile std::sig_atomic_t janitorPipe = -1;
volatile std::sig_atomic_t janitorPid = 0;
constexpr int endingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM};

// Holds them back for a while.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t set;
        ::sigemptyset(&set);
        for (int const number : endingSignals) ::sigaddset(&set, number);
        ::sigprocmask(SIG_BLOCK, &set, &former_);
    }
    ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &former_, nullptr); }
    SignalsHeld(SignalsHeld const&) = delete;
    SignalsHeld& operator=(SignalsHeld const&) = delete;

private:
    sigset_t former_{};
};

void awaitJanitor() {
    if (janitorPid == 0) return;
    ::close(janitorPipe);
    while (::waitpid(janitorPid, nullptr, 0) < 0 && errno == EINTR) {
    }
    janitorPid = 0;
}

void endBy(int number) {
    awaitJanitor();
    ::signal(number, SIG_DFL);
    ::raise(number);
}

// A directory that goes with the process, whatever ends it: a child removes it when its parent's end
// of a pipe is closed. A signal that can be caught waits for that, so that nothing is left when the
// process is gone.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        SignalsHeld const held;
        std::string pattern = (fs::temp_directory_path() / "cairn-check-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw CommandError(noTable, fmt::format("{}: {}", pattern, std::strerror(errno)));
        path_ = pattern;
        int ends[2];
        pid_t const pid = ::pipe2(ends, O_CLOEXEC) == 0 ? ::fork() : -1;
        if (pid < 0) {
            int const error = errno;
            fs::remove(path_);
            throw CommandError(noTable, fmt::format("{}: {}", pattern, std::strerror(error)));
        }
        if (pid == 0) keepUntilEnd(ends[0]);
        ::close(ends[0]);
        janitorPipe = ends[1];
        janitorPid = pid;
        struct sigaction action {};
        action.sa_handler = endBy;
        for (std::size_t i = 0; i < std::size(endingSignals); ++i) {
            ::sigaction(endingSignals[i], nullptr, &former_[i]);
            // What is ignored stays so: under nohup a hangup ends nothing.
            if (former_[i].sa_handler != SIG_IGN) ::sigaction(endingSignals[i], &action, nullptr);
        }
    }
    ~TemporaryDirectory() {
        SignalsHeld const held;
        awaitJanitor();
        for (std::size_t i = 0; i < std::size(endingSignals); ++i)
            ::sigaction(endingSignals[i], &former_[i], nullptr);
    }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;

    fs::path const& path() const { return path_; }

private:
    // In the child, where the signals stay held: out of the terminal's reach, and without the
    // parent's files, whose locks it would hold.
    [[noreturn]] void keepUntilEnd(int end) const {
        ::setsid();
        ::dup2(end, 0);
        ::close_range(1, ~0U, 0);
        char nothing = 0;
        while (::read(0, &nothing, 1) < 0 && errno == EINTR) {
        }
        std::error_code ignored;
        fs::remove_all(path_, ignored);
        ::_exit(0);
    }
    fs::path path_;
    struct sigaction former_[std::size(endingSignals)]{};
};

// A base directory of its own, with the copy of one table's files.
class Copy {
public:
    Copy(Mem::YokeRootPath const& table)
        : home_(Dunlin::Util::baseDirectory()), base_(directory_.path()) {
        auto const to = base_ / table.directoryName();
        fs::create_directories(to);
        for (auto const& entry : fs::directory_iterator(table.text()))
            if (entry.is_regular_file() &&
                entry.path().filename() != SharedMem::OwnerFile::LOCK_NAME)
                fs::copy_file(entry.path(), to / entry.path().filename());
        Dunlin::Util::baseDirectoryIs(base_.string());
    }
    // A text with the name of the original where the copy's stands.
    std::string named(std::string text) const {
        for (auto at = text.find(base_.string()); at != text.npos; at = text.find(base_.string()))
            text.replace(at, base_.string().size(), home_);
        return text;
    }
    ~Copy() { Dunlin::Util::baseDirectoryIs(home_); }
    Copy(Copy const&) = delete;
    Copy& operator=(Copy const&) = delete;

private:
    TemporaryDirectory const directory_;
    std::string home_;
    fs::path base_;
};

// The name in full: what takes a table away or holds up its writer is never guessed.
std::string exactTable(std::string name) {
    while (name.ends_with('/')) name.pop_back();
    auto const base = Dunlin::Util::baseDirectory() + "/";
    if (name.starts_with(base)) name.erase(0, base.size());
    auto const parts = fs::path(name);
    bool const plain = !name.empty() && parts.is_relative() &&
                       std::none_of(parts.begin(), parts.end(),
                                    [](fs::path const& p) { return p == ".." || p == "."; });
    if (!plain)
        throw CommandError(badUse,
                           fmt::format("\"{}\" is not the name of a table", shortened(name)));
    std::error_code error;
    for (char const* file : {"slots", "buckets", "owner", "oriel"}) {
        if (fs::is_regular_file(base + name + "/" + file, error)) return name;
        if (error == std::errc::permission_denied) throw closedError(name);
    }
    throw CommandError(noTable,
                       fmt::format("no table {} below {} (its whole name is needed)",
                                   shortened(name), shortened(Dunlin::Util::baseDirectory())));
}

} // namespace

int checkCommand(Common const& common, std::string const& text) {
    Listing listing = common.listing();
    std::string const table = tableMeant(text, common.v4, common.v6);
    Mem::YokeRootPath const path(table);
    // What may not be read cannot be judged.
    if (auto const fault = faultOf(table); fault && fault->code != damaged) throw *fault;
    Progress const progress;
    SharedMem::OwnerFile owner(trace(), path, false);
    Mem::WriterLock::waitIs(0.2); // a writer that lives is not waited for
    owner.lock();
    auto const lock = Mem::WriterLock::acquireWriterLock(trace(), path, owner, false);

    std::vector<std::string> findings;
    auto const finding = [&](std::string what) {
        if (std::find(findings.begin(), findings.end(), what) == findings.end())
            findings.push_back(std::move(what));
    };
    U32 const generation = SharedMem::OrielFile(trace(), path, false).read();
    if (generation == 0) finding("the oriel file is missing or damaged");
    if (std::string why; !owner.validate(why)) finding("owner file: " + why);
    if (!fs::exists(path.file("buckets"))) finding("its file buckets is missing");
    // A reader's suspicion; it may have met nothing worse than a writer beginning anew.
    bool const marked = fs::exists(path.file("corruption-detected"));

    auto const header = headerOf(path);
    U64 entries = 0;
    bool known = false;
    if (!header) {
        finding("slot file: no header");
    } else {
        progress.say(fmt::format("copying {}", table));
        Copy const copy(path);
        progress.say(fmt::format("checking {}: {} entries", table, header->occupiedSlots));
        // What the writer says of the files it finds, up to where it gives them up; its summaries
        // aside. Findings name the table, not the copy.
        bool judged = false;
        auto const former = Dunlin::traceSinkIs(
            [&](std::string const&, unsigned level, std::string_view, std::string const& whole) {
                std::string line = whole.substr(0, whole.find('\n'));
                if (line.starts_with("all entries from")) judged = true;
                if (level != 0 || judged) return;
                for (char const* summary : {"Brisk ", "failed to attach", "failed to validate",
                                            "owner file", "starting over"})
                    if (line.starts_with(summary)) return;
                if (line.starts_with("caught: ")) line.erase(0, 8);
                finding(copy.named(line));
            });
        known = withTable(header->typeName, [&]<class Table>() {
            Brisk::MapDescriptor descriptor(std::max(1u, header->maxSize));
            typename Table::Writer writer(trace(), table, descriptor, typename Table::Ops{},
                                          Table::typeName, [](bool) {});
            try {
                writer.initialize("check");
                entries = writer.members();
                if (writer.orielId() != generation && findings.empty())
                    finding("the files do not belong together");
                else if (writer.orielId() == generation && entries != header->occupiedSlots)
                    finding("the files do not belong together");
            } catch (Dunlin::Exception const& e) {
                finding(copy.named(e.what()));
            }
        });
        Dunlin::traceSinkIs(former);
        if (!known) finding(fmt::format("unknown type {}", header->typeName));
    }
    progress.say("");
    auto const row = [&](bool sound) {
        return Row()
            .add("table", table)
            .add("sound", sound, sound ? Row::Hue::good : Row::Hue::bad)
            .add("marked_by_reader", marked);
    };
    for (auto const& what : findings) listing.print(row(false).add("finding", what));
    if (findings.empty()) listing.print(row(true).add("entries", entries));
    return findings.empty() ? done : damaged;
}

int cleanupCommand(std::string const& text) {
    std::string const table = exactTable(text);
    Mem::WriterLock::waitIs(0.2);
    // The files are the same whatever the table holds.
    Mroute::RouteTable::Writer writer(trace(), table, Brisk::MapDescriptor(1), {}, "", [](bool) {});
    writer.cleanup();
    return done;
}

} // namespace Cairn
