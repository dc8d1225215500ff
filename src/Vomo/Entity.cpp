#include "Vomo/Entity.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <new>

namespace Vomo {

void* PtrInterface::vomoMemAlloc(std::size_t size) {
    return ::operator new(size);
}
void PtrInterface::operator delete(void* memory) {
    ::operator delete(memory);
}
void PtrInterface::handleParent(Ptr<Entity> const&) {}
void PtrInterface::referencesDec(void const*) const {
    referencesDec();
}

void PtrInterface::handleZeroRef() {
    if (referencesWord_ & zeroReferencesBit) {
        // Held while the notifiees run: they take and drop references.
        referencesInc();
        flagIs(zeroReferencesBit, false);
        if (NotifieeList* const list = notifieeList().list) list->visitZeroReferences();
        U32 const word = VFPtrInterface::threadSafePointers_
                             ? __atomic_sub_fetch(&referencesWord_, 1, __ATOMIC_SEQ_CST)
                             : --referencesWord_;
        if ((word & countMask) != 0) return;
    }
    // Nothing in a destructor may bring the object back.
    referencesInc();
    delete this;
}

// A visit marks the list as in use; a member that leaves meanwhile becomes null and is swept when
// the last visit ends.
struct NotifieeListPtr::Members {
    std::vector<PtrInterface::NotifieeConst*> list;
    unsigned visits = 0;
    bool swept = true;
    bool owned = true; // by the list; else by the visits that still run
};

void NotifieeList::newMember(PtrInterface* owner, PtrInterface::NotifieeConst* notifiee) {
    if (members_ == nullptr) members_ = new Members;
    members_->list.push_back(notifiee);
    notifiee->notifier_ = owner;
}

void NotifieeListPtr::deleteMember(PtrInterface*, PtrInterface::NotifieeConst* notifiee) {
    if (members_ == nullptr) return;
    auto const found = std::find(members_->list.begin(), members_->list.end(), notifiee);
    if (found == members_->list.end()) return;
    notifiee->notifier_ = nullptr;
    if (members_->visits != 0) {
        *found = nullptr;
        members_->swept = false;
        return;
    }
    members_->list.erase(found);
    if (members_->list.empty()) delete std::exchange(members_, nullptr);
}

void NotifieeList::deleteAll() {
    if (members_ == nullptr) return;
    for (PtrInterface::NotifieeConst*& notifiee : members_->list)
        if (notifiee != nullptr) std::exchange(notifiee, nullptr)->notifier_ = nullptr;
    members_->owned = false;
    if (members_->visits == 0) delete members_;
    members_ = nullptr;
}

namespace {

// Ends a visit, also when a notifiee raised.
template <class Members>
struct VisitEnd {
    Members* members;
    ~VisitEnd() {
        if (--members->visits != 0) return;
        if (!members->owned)
            delete members;
        else if (!members->swept) {
            std::erase(members->list, nullptr);
            members->swept = true;
        }
    }
};

} // namespace

void NotifieeList::visit(U32 attrId, void const* key) const {
    if (members_ == nullptr) return;
    ++members_->visits;
    VisitEnd<Members> const end{members_};
    std::exception_ptr raised;
    // Those that attach meanwhile are not called.
    for (std::size_t i = 0, n = end.members->list.size(); i < n; ++i) try {
            if (PtrInterface::NotifieeConst* const notifiee = end.members->list[i])
                notifiee->onAttribute(attrId, key);
        } catch (...) {
            if (!raised) raised = std::current_exception();
        }
    if (raised) std::rethrow_exception(raised);
}

void NotifieeList::visitZeroReferences() const {
    if (members_ == nullptr) return;
    ++members_->visits;
    VisitEnd<Members> const end{members_};
    for (std::size_t i = 0, n = end.members->list.size(); i < n; ++i)
        if (PtrInterface::NotifieeConst* const notifiee = end.members->list[i])
            notifiee->onZeroReferences();
}

PtrInterface::NotifieeConst::~NotifieeConst() {
    notifierIs(nullptr);
}

void PtrInterface::NotifieeConst::notifierIs(PtrInterface* object, bool wantsZeroReferences) {
    if (notifier_ != nullptr) notifier_->notifieeList().list->deleteMember(notifier_, this);
    if (object == nullptr) return;
    NotifieeListRecord const record = object->notifieeList();
    PLAINASSERT(record.list != nullptr, "record.list != nullptr");
    record.list->newMember(object, this);
    if (wantsZeroReferences) object->zeroReferencesIs(true);
}

void Entity::parentIs(Ptr<Entity> const& parent) {
    if (parent) handleParent(parent); // may refuse
    parent_ = parent.ptr();
    if (!parent) handleParent(parent);
}

Entity::~Entity() = default;

void throwMutatorArgNullPointerException(VomoTypeBase type, U32 attrId) {
    Dunlin::fmthrow<ArgumentException>("{}: attribute {} does not take null", type.name(), attrId);
}
void ownerChecked(Entity const* entity, VomoTypeBase type, U32 attrId, VomoTypeBase owner) {
    if (entity == nullptr) throwMutatorArgNullPointerException(type, attrId);
    if (!VomoTypeBase::isDerived(entity->fwkType(), owner))
        Dunlin::fmthrow<TypeException>("{}: attribute {} is a {}, not a {}", type.name(), attrId,
                                       owner.name(), entity->fwkType().name());
}
void typeChecked(Entity const& entity, VomoTypeBase owner, VomoTypeBase wanted) {
    if (!VomoTypeBase::isDerived(entity.fwkType(), wanted))
        Dunlin::fmthrow<TypeException>("{}: a {} is wanted, not a {}", owner.name(), wanted.name(),
                                       entity.fwkType().name());
}
void throwNewEntityArgsException(VomoTypeBase type) {
    Dunlin::fmthrow<ArgumentException>("{} takes no arguments but its name", type.name());
}
void throwNotMadeByOthers(VomoTypeBase type) {
    Dunlin::fmthrow<NoImplementationException>("{} is made by its owner alone", type.name());
}
void Impl::throwMutatorReinstantiating(Entity const& owner, U32 attrId, Entity const* present,
                                       Entity const* added) {
    Dunlin::fmthrow<ArgumentException>("{} {}: attribute {} holds another child {} than {}",
                                       owner.fwkType().name(), owner.name(), attrId,
                                       present->name(), added->name());
}

double System::currentTime() {
    timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace Vomo
