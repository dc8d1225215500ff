// What a value type or an enum has without writing it out: text, stream and log output, parsing,
// hash. The functions behind it are made from the type's rows and stand in a table beside the record
// of its module, so that a header needs no more than this file and the place of the type.
//
// A namespace of types brings the free functions in by
//     using Vomo::operator<<, Vomo::sequenceToValue, Vomo::stringValue, Vomo::valueToStrep;
// A type that wants another form declares its own function, which goes before the template.
#pragma once

#include "Vomo/EnumType.h"
#include "Vomo/Fwd.h"
#include "Vomo/NboAttrLog.h"

namespace Vomo {

// A value type whose module has a table of frames.
template <class T>
concept FramedValue = std::is_class_v<T> && requires {
    IdOf<T>::frame();
};
// An enum with a place in a module.
template <class E>
concept DescribedEnum = std::is_enum_v<E> && requires {
    IdOf<E>::type;
};
// A value that is one number, and logs as that number.
template <class T>
concept WrappedNumber = requires(T v) {
    requires std::is_unsigned_v<decltype(v.value())> && sizeof(T) == sizeof v.value();
};

// For a value's constructors. `parse` reads the text form, and `read` the log form, into `v`, whose
// derived attributes stay as they are.
template <FramedValue T>
void parse(T& v, CharRange& range) {
    IdOf<T>::frame().parse(range, &v);
}
template <FramedValue T>
void read(T& v, NboAttrLog::In* in) {
    IdOf<T>::frame().read(in, &v);
}
// For a value's `hash(seed)`: of its stored fields in declared order.
template <FramedValue T>
U32 hashFields(T const& v, U32 seed) {
    return IdOf<T>::frame().hash(&v, seed);
}

template <FramedValue T>
String valueToStrep(T const& v) {
    return IdOf<T>::frame().text(&v);
}
std::ostream& printString(std::ostream& stream, String const& text);
template <FramedValue T>
std::ostream& operator<<(std::ostream& stream, T const& v) {
    return printString(stream, valueToStrep(v));
}
template <FramedValue T>
NboAttrLog::Out& operator<<(NboAttrLog::Out& out, T const& v) {
    if constexpr (requires { T::definedBits; })
        NboAttrLog::operator<<(out, U32{v.value()}); // a flag set takes 32 bits, as an enum does
    else if constexpr (WrappedNumber<T>)
        NboAttrLog::operator<<(out, v.value());
    else
        IdOf<T>::frame().write(out, &v);
    return out;
}

// Of an enum: its names and numbers are the literals of its record. A number that is not declared
// prints as that number; an unknown name raises RangeException, and so does `enumInstance` of an
// unknown number.
template <DescribedEnum E>
E enumInstance(unsigned number) {
    return static_cast<E>(EnumType<std::underlying_type_t<E>>::instance(IdOf<E>::type, number));
}
template <DescribedEnum E>
E enumInstance(String const& name) {
    return static_cast<E>(EnumType<std::underlying_type_t<E>>::instance(IdOf<E>::type, name));
}
// The name without quotes.
template <DescribedEnum E>
String stringValue(E v) {
    using U = std::underlying_type_t<E>;
    return EnumType<U>::stringValue(IdOf<E>::type, static_cast<U>(v));
}
// The name in quotes.
template <DescribedEnum E>
String valueToStrep(E const& v) {
    using U = std::underlying_type_t<E>;
    return EnumType<U>::valueToStrep(IdOf<E>::type, static_cast<U>(v));
}
template <DescribedEnum E>
E sequenceToValue(CharRange& range, E*) {
    using U = std::underlying_type_t<E>;
    return static_cast<E>(EnumType<U>::sequenceToValue(range, IdOf<E>::type));
}
template <DescribedEnum E>
std::ostream& operator<<(std::ostream& stream, E const& v) {
    using U = std::underlying_type_t<E>;
    return EnumType<U>::operatorLessLess(stream, IdOf<E>::type, static_cast<U>(v));
}

} // namespace Vomo
