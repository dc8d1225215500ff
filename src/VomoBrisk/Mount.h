// Mounts an entity that owns shared tables: gives the tables their place below the base directory and
// the role in which this process uses them.
//
//   auto const status = statusFactory("agent");
//   VomoBrisk::Mount const mount(status, Status::mountPath(af, vrf, "agent"),
//                                TableInfo::mfibMountInfo(VomoBrisk::VomoBriskType::writer));
//   status->routeIs(route);
#pragma once

#include "VomoBrisk/MountInfo.h"
#include "VomoBrisk/TableOwner.h"

namespace VomoBrisk {

class Mount {
public:
    // The entity gets a parent whose full name is `path`, so each of its tables is at the path with
    // the attribute's name. Each table that `info` names takes up the role of `info`, with the size
    // given there; all other settings are those of `settings`. A table that is not named stays
    // private. From then on each table's control shows its state.
    //
    // Raises InvalidInitializeException, before anything changes, for an entity that owns no tables
    // or has been mounted before, a path that no table can have, and a name that is none of its
    // tables. What a table's start raises leaves the entity unmounted: an orphan, not to be mounted
    // again.
    Mount(Vomo::Ptr<Vomo::Entity> const& entity, Vomo::String const& path, MountInfo const& info,
          Brisk::MapDescriptor const& settings = {});
    // Unmounts. What a client's callback raises then ends the process; call `unmount` first where
    // one may.
    ~Mount();
    Mount(Mount const&) = delete;
    Mount& operator=(Mount const&) = delete;

    // Lets the tables go. A writer's files stay, and the next writer finds them; the client of a
    // shadow hears that its keys are gone. The entity lives on as an orphan.
    void unmount();
    bool mounted() const { return entity_ != Vomo::Ptr<TableOwner>(); }

private:
    Vomo::Ptr<TableOwner> entity_;
    Vomo::Ptr<Vomo::Entity> directory_; // a parent is not held by its child
};

} // namespace VomoBrisk
