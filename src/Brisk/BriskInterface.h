// The operations of one table, by whatever stands behind them: a writer, a reader, a shadow or a
// dummy. Those that change the table are refused unless an implementation overrides them.
#pragma once

#include "Brisk/BriskInterfaceBase.h"
#include "BriskCore/SlotLink.h"
#include "Dunlin/Trace.h"

namespace Brisk {

template <class OpsType>
class BriskInterface : public BriskInterfaceBase {
public:
    using Ops = OpsType;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;

    BriskInterface(Dunlin::Platform::DebugHandler& handler, Ops const& ops)
        : ops_(ops), handler_(&handler) {}
    BriskInterface(BriskInterface const&) = delete;
    BriskInterface& operator=(BriskInterface const&) = delete;

    // Inserts `value`, or replaces the value of its key if `overwrite` is set. The result points
    // to the value in the table. Raises NoPermissionException where the table is read-only.
    virtual Value const* write(Value const&, bool /*overwrite*/) { readOnlyWrite(); }
    // True if `key` was there; `value` receives what it held. Raises NoPermissionException.
    virtual bool remove(Key const&, Value& /*value*/) { readOnlyRemove(); }
    // The value of `key`, or the type's default value with `found` false. A reader fills `out`
    // unless it is null; the result is good until the next operation on this object.
    virtual Value const* lookup(Key const& key, bool& found, void* out) const = 0;
    // A walk over all entries: `first`, then `next` with the key and the hint of the last one.
    virtual bool first(Value& value, IterHint& hint) const = 0;
    virtual bool next(Key const& key, Value& value, IterHint& hint) const = 0;
    // Filling a value in place: an area for the key of `value`, filled with it; an area for a key
    // that is there, not filled, or null; and the publication of the area.
    virtual Value* directWrite(Value const&) { readOnlyWrite(); }
    virtual Value* directUpdate(Key const&) { readOnlyWrite(); }
    virtual void directCommit() { readOnlyWrite(); }
    virtual Value const* directLookup(Key const& key, bool& found, void* out) const {
        return lookup(key, found, out);
    }
    // The front goes away: lets the table go, and calls nobody back from now on.
    virtual void abandon() = 0;

    Dunlin::Platform::DebugHandler& debugHandler() const { return *handler_; }

protected:
    Ops ops_;

private:
    Dunlin::Platform::DebugHandler* handler_;
};

} // namespace Brisk
