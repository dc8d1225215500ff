#include "VomoBrisk/TableOwner.h"

#include "Dunlin/Exception.h"

#include <algorithm>

namespace VomoSharedMem {

Vomo::String Util::fullName(Vomo::Entity const& entity) {
    Vomo::String name = entity.name();
    for (Vomo::Entity const* above = entity.parent(); above != nullptr; above = above->parent())
        name = above->name() + "/" + name;
    return name;
}

} // namespace VomoSharedMem

namespace VomoBrisk {

TableAttribute::TableAttribute(TableOwner& owner, Vomo::AttributeId id) : entity_(owner), id_(id) {
    owner.tables_.push_back(this);
}

void TableAttribute::controlMake() {
    control_ = collectionControlFactory(&front(), &entity_);
}

void TableAttribute::controlIs(Control const& control) {
    if (control_ == control) return;
    controlDrop();
    control_ = control;
    entity_.notify(id_ + 1, nullptr);
}

void TableAttribute::controlDrop() {
    if (!control_) return;
    control_->entityRefIs(nullptr);
    control_ = nullptr;
}

void throwOtherKey(Vomo::VomoTypeBase owner, char const* table) {
    Dunlin::fmthrow<Vomo::ArgumentException>("{}: the entry has another key than that given for {}",
                                             owner.name(), table);
}

TableAttribute* TableOwner::table(std::string_view name) const {
    auto const found = std::find_if(tables_.begin(), tables_.end(),
                                    [&](auto const* table) { return name == table->name(); });
    return found == tables_.end() ? nullptr : *found;
}

void TableOwner::handleParent(Vomo::Ptr<Vomo::Entity> const& parent) {
    // An orphan is one in all its tables, whatever a client raises that is told.
    Dunlin::FirstRaised raised;
    for (TableAttribute* const table : tables_) {
        raised.run([&] { table->handleParent(parent); });
        if (parent) raised.rethrow();
    }
    raised.rethrow();
}

void TableOwner::ZeroReferencesNotifiee::onZeroReferences() {
    for (TableAttribute* const table : static_cast<TableOwner*>(notifier())->tables())
        table->controlDrop();
}

} // namespace VomoBrisk
