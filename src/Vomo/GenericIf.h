// The generic interface: any value by the place of its type, any attribute by its number.
#pragma once

#include "Vomo/Frame.h"

#include <vector>

namespace Vomo {

// All registered modules, in order of registration.
std::vector<VomoModule const*> const& modules();
// Null if no module has a type of that name.
VomoType typeByName(std::string_view name);
// The attribute of `type` or of its bases; null if there is none.
VomoAttr attrByName(VomoType type, std::string_view name);
VomoAttr attrByNumber(VomoType type, U32 number);
// The type that a reference index or builtin code of `module` means; null for a builtin.
VomoType typeOfReference(VomoModule const* module, U16 reference);

namespace GenericIfImpl {

[[noreturn]] void throwUnhashableException(VomoType type);
[[noreturn]] void throwTypeException(VomoType type);
[[noreturn]] void throwSetFalseValueException(VomoAttr attr);

// `object` of `type` as `target`, which is the same type or a base.
void* voidPtrIs(void const* object, VomoType type, VomoType target);

// The engines behind the tables of every type.
U32 rowsOp(TypeHead const& head, std::span<Row const> rows, void* out, void* object, VomoAttr attr,
           AttributeOp op, void* a, void* b);
void constructFromRows(std::span<Row const> rows, void* to, void* const* args);
U32 flagSetHash(U8 bits);

// The operators that T declares.
template <class T>
U32 typeOp(void* out, void const* object, AttributeOp op, void const* other) {
    [[maybe_unused]] auto const& a = *static_cast<T const*>(object);
    [[maybe_unused]] auto const* const b = static_cast<T const*>(other); // null of unary operators
    switch (op) {
    case AttributeOp::truth:
        if constexpr (requires { a.operator bool(); }) return Impl::store(out, bool(a)), 0;
        break;
    case AttributeOp::equal:
        if constexpr (requires { bool(a == *b); }) return Impl::store(out, bool(a == *b)), 0;
        break;
    case AttributeOp::less:
        if constexpr (requires { bool(a < *b); }) return Impl::store(out, bool(a < *b)), 0;
        break;
    case AttributeOp::andNot:
        if constexpr (requires { T(a - *b); }) return Impl::store(out, T(a - *b)), 0;
        break;
    case AttributeOp::bitAnd:
        if constexpr (requires { T(a & *b); }) return Impl::store(out, T(a & *b)), 0;
        break;
    case AttributeOp::bitOr:
        if constexpr (requires { T(a | *b); }) return Impl::store(out, T(a | *b)), 0;
        break;
    case AttributeOp::bitXor:
        if constexpr (requires { T(a ^ *b); }) return Impl::store(out, T(a ^ *b)), 0;
        break;
    case AttributeOp::complement:
        if constexpr (requires { T(~a); }) return Impl::store(out, T(~a)), 0;
        break;
    default:
        break;
    }
    return 1;
}

template <class T>
U32 genericIfAttributeOp(void* out, void* object, VomoAttr attr, AttributeOp op, void* a, void* b) {
    if (attr.isNull()) return typeOp<T>(out, object, op, a);
    return rowsOp(Describe<T>::type, Describe<T>::attributes, out, object, attr, op, a, b);
}

template <class T>
void genericIfConstructFromCtorArgs(void* to, void* const* args) {
    std::span<Row const> const rows = Describe<T>::attributes;
    // One argument alone goes through the constructor, which checks it.
    Row const* only = nullptr;
    std::size_t count = 0;
    for (Row const& row : rows)
        if (row.kind == RowKind::ctor && count++ == 0) only = &row;
    if (count == 1 && only->construct != nullptr) return only->construct(to, args[0]);
    T* const made = new (to) T();
    if constexpr (requires { typename Describe<T>::Base; }) {
        // The arguments are those of the base: what derives from it stores nothing of its own.
        typename Describe<T>::Base base;
        VomoType const type = Describe<T>::type.base->type;
        type.module->genericTable[type.index].constructFromCtorArgs(&base, args);
        static_cast<typename Describe<T>::Base&>(*made) = base;
    } else {
        constructFromRows(rows, made, args);
    }
}

template <class T>
struct GenericIfValueMethods {
    static void genericIfConstruct(void* to, void const* from) {
        if (from != nullptr)
            new (to) T(*static_cast<T const*>(from));
        else
            new (to) T();
    }
    static void genericIfDestruct(void* object) { static_cast<T*>(object)->~T(); }
    static U32 genericIfHash(void const* object, VomoType type) {
        [[maybe_unused]] auto const& v = *static_cast<T const*>(object);
        if constexpr (requires { v.hash(); })
            return v.hash();
        else if constexpr (requires { v.hash(U32{0}); })
            return v.hash(U32{0});
        else if constexpr (requires { T::definedBits; })
            return flagSetHash(v.value());
        else
            throwUnhashableException(type);
    }
    static String genericIfStrRep(void const* object, VomoType) {
        return valueToStrep(*static_cast<T const*>(object));
    }
    static void genericIfStrepToValue(void* to, String const& text, VomoType) {
        *static_cast<T*>(to) = strepToValue(text, static_cast<T*>(nullptr));
    }
    // A stream that ends too early leaves the object as it was.
    static void genericIfRead(NboAttrLog::In* in, void* to) {
        T v;
        readField<T>(in, &v);
        *static_cast<T*>(to) = v;
    }
    static constexpr ValueMethods vtable_{
        genericIfConstruct, genericIfDestruct,     genericIfHash, voidPtrIs,    {},
        genericIfStrRep,    genericIfStrepToValue, writeField<T>, genericIfRead};
};

// Of an enum of width U: an object is the number.
template <class U>
struct GenericIfEnumMethods {
    static U32 genericIfAttributeOp(void* out, void* object, VomoAttr attr, AttributeOp op, void* a,
                                    void* b);
    static ValueMethods const vtable_;
};
extern template struct GenericIfEnumMethods<U8>;
extern template struct GenericIfEnumMethods<U32>;

} // namespace GenericIfImpl
} // namespace Vomo
