// Reference counting: the base of all counted objects and the pointer that counts.
#pragma once

#include "Dunlin/Types.h"
#include "Vomo/Module.h"
#include "Vomo/String.h"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace Vomo {

class Entity;
class NotifieeList;
template <class T>
class Ptr;

class VFPtrInterface {
public:
    // Counts are changed atomically: for a process whose threads share objects. Set before any is
    // made.
    static inline bool threadSafePointers_ = false;
};

// Where the notifiees of an object are kept: kind 1 with the address of the object's word, or the
// empty form.
struct NotifieeListRecord {
    U64 kind = 0;
    NotifieeList* list = nullptr;
    U64 zero1 = 0;
    U64 zero2 = 0;
};

// An object that is counted. The word holds the count, bit 29 "has a zero-reference notifiee" and
// bit 31 "marked for deletion by a resync".
class PtrInterface {
public:
    // What watches an object; Vomo/Entity.h.
    class NotifieeConst;

    static constexpr U32 countMask = 0x5FFFFFFF;
    static constexpr U32 zeroReferencesBit = 1U << 29;
    static constexpr U32 markBit = 1U << 31;

    // In the order of the table of virtual functions.
    virtual NotifieeListRecord notifieeList() const { return {}; }
    virtual void hasNotificationActiveIs(bool) {}
    virtual void zeroReferencesIs(bool active) { flagIs(zeroReferencesBit, active); }
    virtual VomoTypeBase fwkType() const { return {}; }
    virtual ~PtrInterface() = default;
    virtual String name() const { return {}; }
    virtual void handleParent(Ptr<Entity> const& parent);

    static void* vomoMemAlloc(std::size_t size);
    static void operator delete(void* memory);
    static void* operator new(std::size_t size) { return vomoMemAlloc(size); }
    static void* operator new(std::size_t, void* place) { return place; }

    U32 references() const { return referencesWord_ & countMask; }
    void referencesInc() const {
        if (VFPtrInterface::threadSafePointers_) [[unlikely]]
            __atomic_fetch_add(&referencesWord_, 1, __ATOMIC_SEQ_CST);
        else
            ++referencesWord_;
    }
    void referencesDec() const {
        U32 const word = VFPtrInterface::threadSafePointers_
                             ? __atomic_sub_fetch(&referencesWord_, 1, __ATOMIC_SEQ_CST)
                             : --referencesWord_;
        if ((word & countMask) == 0) [[unlikely]]
            const_cast<PtrInterface*>(this)->handleZeroRef();
    }
    // The same, for cold paths.
    void referencesDec(void const* key) const;

    void vomoMarkedForDeletionIs(bool marked) { flagIs(markBit, marked); }
    bool vomoMarkedForDeletion() const { return static_cast<S32>(referencesWord_) < 0; }

protected:
    PtrInterface() = default;
    // A copy is an object of its own: its count begins anew.
    PtrInterface(PtrInterface const&) {}
    PtrInterface& operator=(PtrInterface const&) { return *this; }

    // Drops a reference, and keeps the object also if it was the last.
    void referencesDecKeep() const {
        if (VFPtrInterface::threadSafePointers_)
            __atomic_fetch_sub(&referencesWord_, 1, __ATOMIC_SEQ_CST);
        else
            --referencesWord_;
    }

private:
    // Runs the zero-reference notifiee, if one is attached, then destroys the object unless the
    // notifiee took a reference.
    void handleZeroRef();
    // Other threads may count in the same word.
    void flagIs(U32 bit, bool on) {
        if (!VFPtrInterface::threadSafePointers_)
            referencesWord_ = on ? referencesWord_ | bit : referencesWord_ & ~bit;
        else if (on)
            __atomic_fetch_or(&referencesWord_, bit, __ATOMIC_SEQ_CST);
        else
            __atomic_fetch_and(&referencesWord_, ~bit, __ATOMIC_SEQ_CST);
    }

    mutable U32 referencesWord_ = 0;
};

// A counted pointer, or null. One word.
template <class T>
class Ptr {
public:
    Ptr() = default;
    Ptr(std::nullptr_t) {}
    Ptr(T* object) : object_(object) { take(); }
    Ptr(Ptr const& other) : object_(other.object_) { take(); }
    Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other) : object_(other.ptr()) {
        take();
    }
    ~Ptr() { drop(object_); }
    Ptr& operator=(Ptr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    T* ptr() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }
    friend bool operator==(Ptr const& a, Ptr const& b) { return a.object_ == b.object_; }

private:
    void take() const {
        if (object_ != nullptr) object_->referencesInc();
    }
    static void drop(T* object) {
        if (object != nullptr) object->referencesDec();
    }
    T* object_ = nullptr;
};

} // namespace Vomo
