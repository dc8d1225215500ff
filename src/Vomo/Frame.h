// The frame of a value type: one list of constant rows a type, and the engines that print, parse
// and log it from the rows. For sources: headers of values include Vomo/Fwd.h.
//
// A type's source specialises Describe<T> with the type's name and its rows, and defines the type's
// constructors and functions by calls of `parse`, `read`, `text` and `write` below.
#pragma once

#include "Vomo/Fwd.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/SerDes.h"

#include <array>

namespace Vomo {

// What an engine can do with a field, an argument or a result of one type.
struct FieldType {
    VomoTypeBase type;  // no module: a builtin
    U16 builtin = 0;    // the builtin's number
    U32 size = 0;
    void (*print)(String& text, void const* field) = nullptr;
    void (*parse)(CharRange& range, void* field, char const* attrName) = nullptr;
    void (*write)(NboAttrLog::Out& out, void const* field) = nullptr;
    void (*read)(NboAttrLog::In* in, void* field) = nullptr;
    void (*assign)(void* field, void const* value) = nullptr;
    bool (*equal)(void const* a, void const* b) = nullptr;
};

template <class F> struct BuiltinNumber {
    static constexpr U16 value = 0;
};
template <> struct BuiltinNumber<void> { static constexpr U16 value = 4; };
template <> struct BuiltinNumber<U8> { static constexpr U16 value = 5; };
template <> struct BuiltinNumber<U16> { static constexpr U16 value = 7; };
template <> struct BuiltinNumber<U32> { static constexpr U16 value = 9; };
template <> struct BuiltinNumber<S32> { static constexpr U16 value = 10; };
template <> struct BuiltinNumber<U64> { static constexpr U16 value = 11; };
template <> struct BuiltinNumber<bool> { static constexpr U16 value = 13; };
template <> struct BuiltinNumber<String> { static constexpr U16 value = 17; };
template <> struct BuiltinNumber<Seconds> { static constexpr U16 value = 25; };

template <class F> void printField(String& text, void const* field) {
    auto const& v = *static_cast<F const*>(field);
    if constexpr (std::is_integral_v<F> && !std::is_same_v<F, bool>)
        text += valueToStrep(static_cast<unsigned long long>(v));
    else
        text += valueToStrep(v);
}
template <class F> void parseField(CharRange& range, void* field, char const* attrName) {
    if constexpr (std::is_enum_v<F>) {
        try {
            *static_cast<F*>(field) = sequenceToValue(range, static_cast<F*>(nullptr));
        } catch (RangeException const& ex) {
            rethrowFromDeserializeAttr(ex, attrName);
        }
    } else {
        *static_cast<F*>(field) = deserializeAttr<F>(range, attrName);
    }
}
// An enum and a flag set take 32 bits in the log, whatever their width in memory.
template <class F> void writeField(NboAttrLog::Out& out, void const* field) {
    if constexpr (std::is_enum_v<F>)
        out << static_cast<U32>(*static_cast<F const*>(field));
    else
        out << *static_cast<F const*>(field);
}
template <class F> void readField(NboAttrLog::In* in, void* field) {
    auto& v = *static_cast<F*>(field);
    if constexpr (std::is_enum_v<F>) v = static_cast<F>(in->nextU32());
    else if constexpr (std::is_same_v<F, bool>) v = in->nextBool();
    else if constexpr (std::is_same_v<F, U8>) v = in->nextU8();
    else if constexpr (std::is_same_v<F, U16>) v = in->nextU16();
    else if constexpr (std::is_same_v<F, U32>) v = in->nextU32();
    else if constexpr (std::is_same_v<F, U64>) v = in->nextU64();
    else if constexpr (std::is_same_v<F, Seconds>) v = in->nextSeconds();
    else if constexpr (std::is_same_v<F, String>) v = in->nextString();
    else v = F(in, StreamBogon{});
}
template <class F> void assignField(void* field, void const* value) {
    *static_cast<F*>(field) = *static_cast<F const*>(value);
}
template <class F> bool equalFields(void const* a, void const* b) {
    return *static_cast<F const*>(a) == *static_cast<F const*>(b);
}

template <class F> consteval FieldType makeFieldType() {
    FieldType type;
    if constexpr (BuiltinNumber<F>::value != 0)
        type.builtin = BuiltinNumber<F>::value;
    else
        type.type = IdOf<F>::type;
    if constexpr (!std::is_void_v<F>) {
        type.size = sizeof(F);
        type.print = printField<F>;
        type.parse = parseField<F>;
        type.write = writeField<F>;
        type.read = readField<F>;
        type.assign = assignField<F>;
        type.equal = equalFields<F>;
    }
    return type;
}
template <class F> inline constexpr FieldType fieldType = makeFieldType<F>();

// What an attribute is.
enum class RowKind : U8 {
    ctor,     // stored, fixed at construction
    mutates,  // stored, with a mutator
    flag,     // a bit of a flag set; the first row is bit 0
    raw,      // the byte of a flag set
    view,     // accessor and mutator on a part of a stored field
    derived,  // accessor that computes
    constant, // of the class
    function, // const, of no or some arguments
    mutating, // a function that changes the object
    statics,  // a static function
    literal,  // of an enum
};

struct Row {
    U32 number;
    RowKind kind;
    bool stored;
    U16 literal;
    char const* name;
    FieldType const* type;
    // Where the field of an object is; null if the attribute is not a field.
    void const* (*field)(void const* object);
};

namespace Impl {
template <class M> struct MemberOf;
template <class T, class F> struct MemberOf<F T::*> {
    using Class = T;
    using Field = F;
};
template <auto member> using FieldOf = typename MemberOf<decltype(member)>::Field;
template <auto member> void const* fieldAt(void const* object) {
    return &(static_cast<typename MemberOf<decltype(member)>::Class const*>(object)->*member);
}
template <auto member, unsigned element> void const* elementAt(void const* object) {
    return &(static_cast<typename MemberOf<decltype(member)>::Class const*>(
        object)->*member)[element];
}
} // namespace Impl

template <auto member> consteval Row ctor(U32 number, char const* name) {
    return {number, RowKind::ctor, true, 0, name, &fieldType<Impl::FieldOf<member>>,
            Impl::fieldAt<member>};
}
template <auto member> consteval Row mutates(U32 number, char const* name) {
    return {number, RowKind::mutates, true, 0, name, &fieldType<Impl::FieldOf<member>>,
            Impl::fieldAt<member>};
}
// One element of a stored array.
template <auto member, unsigned element> consteval Row mutates(U32 number, char const* name) {
    using F = std::remove_all_extents_t<Impl::FieldOf<member>>;
    return {number, RowKind::mutates, true, 0, name, &fieldType<F>, Impl::elementAt<member, element>};
}
consteval Row flag(U32 number, char const* name) {
    return {number, RowKind::flag, true, 0, name, &fieldType<bool>, nullptr};
}
consteval Row literal(U32 number, char const* name, U16 value) {
    return {number, RowKind::literal, false, value, name, nullptr, nullptr};
}

template <std::size_t n> consteval std::array<Row, n> rows(Row const (&list)[n]) {
    std::array<Row, n> result{};
    for (std::size_t i = 0; i < n; ++i) {
        if (i != 0 && list[i].number <= list[i - 1].number)
            throw "attribute numbers must ascend";
        result[i] = list[i];
    }
    return result;
}

// The engines: know rows, no types.
void appendText(String& text, char const* typeName, std::span<Row const> rows, void const* object);
void parseRows(CharRange& range, char const* typeName, std::span<Row const> rows, void* object);
void writeRows(NboAttrLog::Out& out, std::span<Row const> rows, void const* object);
void readRows(NboAttrLog::In* in, std::span<Row const> rows, void* object);

template <class T> String text(T const& v) {
    String result;
    appendText(result, Describe<T>::name, Describe<T>::attributes, &v);
    return result;
}
// Reads the text form into `v`, whose fields not named by it stay as they are.
template <class T> void parse(T& v, CharRange& range) {
    parseRows(range, Describe<T>::name, Describe<T>::attributes, &v);
}
template <class T> void write(NboAttrLog::Out& out, T const& v) {
    writeRows(out, Describe<T>::attributes, &v);
}
template <class T> void read(T& v, NboAttrLog::In* in) { readRows(in, Describe<T>::attributes, &v); }

} // namespace Vomo
