// The object that a client holds for one shared table. It survives everything that happens to the
// table: it owns exactly one implementation at any time, swaps it as the writer comes and goes, and
// forwards every operation to it. A table that is not there is an empty one.
//
// A front, its implementation and its callbacks belong to one thread, whose event loop
// (Dunlin::schedulerRootDunlin) carries the sentry, the doorbell and the walks.
#pragma once

#include "Brisk/BriskInterface.h"
#include "Brisk/BriskMapBase.h"
#include "Brisk/MapDescriptor.h"
#include "SharedMem/Notify.h"

#include <memory>

namespace Brisk {

template <class OpsType>
class BriskMap : public BriskMapBase {
public:
    using Ops = OpsType;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Interface = BriskInterface<Ops>;
    using Callbacks = Mem::Notify<Key, Value>;

    // `name` is the table's path below the base directory, `typeName` what stands in the files of a
    // writer. Until `init` the front is empty and read-only.
    BriskMap(std::string const& name, std::string const& typeName,
             std::string const& traceSuffix = "");
    ~BriskMap() override;

    // Takes up the role that the descriptor names. The same descriptor again does nothing. Raises
    // std::bad_cast for another kind of collection's settings, and InvalidInitializeException for
    // settings that do not go together, another descriptor, or a table that cannot be made.
    virtual void init(Mem::CollectionDescriptor const& descriptor);
    virtual void init(BriskType type, bool localMem, U32 size);

    // --- Callbacks. Set them before `init`, or at any time; they may call anything of the front.
    void valueNotifyIs(std::function<void(Value const&)> callback);
    void keyNotifyIs(std::function<void(Key const&)> callback);
    void deleteNotifyIs(std::function<void(Key const&)> callback);
    void mountStatusNotifyIs(std::function<void()> callback);
    void quiescedNotifyIs(std::function<void(bool)> callback);
    Callbacks& callbacks() { return callbacks_; }
    bool keyNotifications() const { return keyNotifications_; }

    // --- Forwarders.
    virtual void validateVersionAnchor() const;
    virtual Mem::CacheVersionAnchor getCacheVersionAnchor() const;
    virtual bool compareVersionAnchor(Mem::CacheVersionAnchor const& anchor) const;
    virtual void validateVersionAnchorHookIs(VersionAnchorHook hook);
    std::string collName() const override { return name_; }
    virtual bool ready() const;
    SharedMem::OrielId orielId() const override;
    virtual Mem::MountStatus mountStatus() const;
    virtual Reader::Counters readerCounters() const;
    virtual Writer::Counters writerCounters() const;
    virtual bool initialized() const { return initialized_; }
    // Removes the table's files, then lets the table go.
    virtual void cleanupAndDetach();
    virtual void cleanup();
    virtual std::string rootPath() const { return name_; }
    bool validate() override;
    bool validateFiles(std::string const& event, unsigned flags) override;
    bool remake() override { return interface_->remake(); }
    virtual BriskType mode() const { return descriptor_.type; }
    bool localMem() const override { return descriptor_.localMem; }
    virtual U64 sequence() const;
    // "<process>:<pid>" of the table's living writer; ":0" if there is none.
    virtual std::string owner() const;
    void controlDetach() override;
    virtual U32 maxSize() const { return interface_->maxSize(); }
    virtual U32 capacity() const { return interface_->capacity(); }
    virtual void notifyingIs(bool on);
    bool notifying() const override { return notifying_; }
    virtual void yieldTimeIs(double const& seconds);
    // Another look for a writer, if the table is not mounted.
    virtual void tryAttach();
    // Whether the table's files are there.
    virtual bool exists() const;
    virtual bool clientQuiesced(std::string const& readerName) const;
    virtual bool quiesced() const;
    // See BriskWriter::flush; nothing for another role.
    virtual void flush() { interface_->flush(); }
    virtual bool connected() const { return interface_->connected(); }
    virtual void criticalTaskCheckIs(bool on) { interface_->criticalTaskCheckIs(on); }
    virtual bool criticalTaskCheck() const { return interface_->criticalTaskCheck(); }
    virtual void scratchpadIs(unsigned long word) { interface_->scratchpadIs(word); }
    virtual unsigned long scratchpad() const { return interface_->scratchpad(); }

    // Called by the sentry, or to the same effect by a client. A detach by force is over when it
    // returns, also in the midst of a flush: the table is an empty one, and no callback comes until
    // the table's files change or somebody asks for a look. One without force, of a shadow, flushes
    // in slices and then attaches to a writer that is there.
    //
    // What a callback raises passes on to whoever runs the loop or called the front; what was under
    // way is completed before, or goes on at the loop's next turn. Only an `init` or `attach` that
    // walks the table at once fails by it, and takes back what it has told.
    void attach(std::string const& event) override;
    void detach(bool force) override;
    std::string modeStr() const override;
    bool readerFullyAttached() const override;
    bool disconnectedActiveReader() const override;
    bool takeRest() override { return interface_->takeRest(); }
    virtual std::string classType() const { return "BriskMap"; }

    // --- The table's contents. Damage goes to doCorruptionDetected: a lookup then answers "not
    // there", a mutator ends the process.
    Value const* safeLookup(Key const& key, bool& found, void* out) const;
    Value const* safeWrite(Value const& value, bool overwrite);
    bool safeRemove(Key const& key, Value& value);
    Interface& table() const { return *interface_; }
    U32 members() const { return interface_->members(); }

    bool isWriter() const override;
    Dunlin::Platform::DebugHandler& debugHandler() const override { return *handler_; }
    bool assertOnOrphanAccess() const { return assertOnOrphanAccess_; }
    Mem::Sentry* mounter() const { return mounter_.get(); }
    MapDescriptor const& descriptor() const { return descriptor_; }
    std::string const& typeName() const { return typeName_; }

    // --- Called by the shadow.
    void handleDisconnect() override;
    // The table's writer has not let it in.
    void handleRefused();
    // The first walk is complete.
    void shadowSynced();
    // What a writer that has gone had left was told.
    void shadowRestTaken();
    // Everything was told as gone.
    void shadowFlushed();

protected:
    // For a front whose path comes later than itself: the name it has, and where it traces to until
    // `init`. Not while it is initialized.
    void nameIs(std::string const& name, std::shared_ptr<Dunlin::Platform::DebugHandler> handler);
    void interfaceIs(std::unique_ptr<Interface> interface);
    void installDummy();
    void silenceKeys();
    void assertOnOrphanAccessIs(bool on) { assertOnOrphanAccess_ = on; }

private:
    std::unique_ptr<Interface> makeDummy(std::unique_ptr<Interface> previous);
    void handleDamage() override;
    void notAllowed(MapDescriptor const& descriptor) const;
    void startWriter();
    void startReader();

    std::shared_ptr<Dunlin::Platform::DebugHandler> handler_;
    MapDescriptor descriptor_;
    std::unique_ptr<Mem::Sentry> mounter_;
    bool initialized_ = false;
    std::string name_;
    std::string typeName_;
    std::string traceSuffix_;
    bool notifying_ = true;
    Callbacks callbacks_;
    bool keyNotifications_ = true;
    Ops ops_;
    std::unique_ptr<Interface> interface_;
    double yieldTime_ = 0.05;
    VersionAnchorHook anchorHook_ = nullptr;
    bool assertOnOrphanAccess_ = false;
    bool detaching_ = false; // by force: what ends now is not looked for again
};

} // namespace Brisk
