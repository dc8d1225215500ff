// Entities that own shared tables: what each of them does for all of its tables alike. A table
// attribute itself is a member of the owner's class; see VomoBrisk/TableMember.h.
#pragma once

#include "Brisk/MapDescriptor.h"
#include "Vomo/Entity.h"
#include "VomoBrisk/CollectionControl.h"

#include <span>
#include <string_view>
#include <vector>

namespace VomoSharedMem {

struct Util {
    // The entity's name behind those of its parents, from the root on, joined by "/".
    static Vomo::String fullName(Vomo::Entity const& entity);
};

} // namespace VomoSharedMem

namespace VomoBrisk {

class TableOwner;
using Control = Vomo::Ptr<CollectionControl>;

// One table attribute, for those who do not know its types.
class TableAttribute {
public:
    TableAttribute(TableAttribute const&) = delete;
    TableAttribute& operator=(TableAttribute const&) = delete;

    // Of the attribute; also the last component of the table's path.
    virtual char const* name() const = 0;
    virtual Brisk::BriskMapBase& front() = 0;
    virtual Mem::MountStatus mountStatus() const = 0;
    // Takes up the role that the settings name; as Brisk::BriskMap::init.
    virtual void init(Brisk::MapDescriptor const& settings) = 0;
    // The owner has this parent from now on, or none; as VomoBriskMap::handleParent.
    virtual void handleParent(Vomo::Ptr<Vomo::Entity> const& parent) = 0;

    Vomo::AttributeId attributeId() const { return id_; }
    // What shows the table's state; its attribute has the next number. Null once the owner's last
    // reference has gone.
    Control const& control() const { return control_; }
    void controlIs(Control const& control);
    // Drops the control, and with it the control's way to the owner and the front.
    void controlDrop();

protected:
    TableAttribute(TableOwner& owner, Vomo::AttributeId id);
    ~TableAttribute() { controlDrop(); }

    void controlMake();
    void notifyQuiesced(bool quiesced) {
        if (control_) control_->quiescedIs(quiesced);
    }
    void notifyMountStatus() {
        if (control_) control_->mountStatusIs(mountStatus());
    }

    TableOwner& entity_;

private:
    Vomo::AttributeId const id_;
    Control control_;
};

// Base of the entities with table attributes. Its life: without a parent it is silent to others, its
// tables are private. The first parent gives the tables their paths, a mount (VomoBrisk/Mount.h)
// their roles. Taken out of its tree it is an orphan for good.
class TableOwner : public Vomo::Entity {
public:
    using Control = VomoBrisk::Control;

    // In the order in which the class declares them.
    std::span<TableAttribute* const> tables() const { return tables_; }
    // Null if no table has that name.
    TableAttribute* table(std::string_view name) const;

    // Raises InvalidInitializeException for a second parent, before anything changes.
    void handleParent(Vomo::Ptr<Vomo::Entity> const& parent) override;
    // Counts a change of the table and tells the notifiees of it.
    void tableChanged(Vomo::AttributeId id, void const* key) {
        changesInc();
        notify(id, key);
    }

    // Runs while the entity that has lost its last reference is still whole: takes it out of the
    // controls, which may live on, and drops them.
    class ZeroReferencesNotifiee : public Vomo::PtrInterface::NotifieeConst {
    public:
        void onAttribute(Vomo::AttributeId, void const*) override {}
        void onZeroReferences() override;
    };

protected:
    TableOwner() = default;
    // For the constructor of the class, when all its fields are there.
    void zeroReferencesAttach() { zeroReferences_.notifierIs(this, true); }

private:
    friend TableAttribute;
    ZeroReferencesNotifiee zeroReferences_;
    std::vector<TableAttribute*> tables_;
};

} // namespace VomoBrisk
