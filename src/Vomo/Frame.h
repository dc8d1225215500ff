// The frame of a value type: one list of constant rows a type, and the engines that print, parse
// and log it from the rows. For sources: headers of values include Vomo/Fwd.h.
//
// A type's source specialises Describe<T> with the type's name and its rows. What the rows give goes
// into the table of the module, where Vomo/Value.h finds it.
#pragma once

#include "Vomo/Hash.h"
#include "Vomo/RowFacts.h"
#include "Vomo/SerDes.h"
#include "Vomo/Value.h"

#include <array>
#include <initializer_list>
#include <memory>
#include <utility>

namespace Vomo {

template <class T>
class Ptr;
template <class F>
inline constexpr bool isPtr = false;
template <class C>
inline constexpr bool isPtr<Ptr<C>> = true;
template <class C>
struct PointedBy;
template <class C>
struct PointedBy<Ptr<C>> {
    using type = C;
};

// What an engine can do with a field, an argument or a result of one type.
struct FieldType {
    VomoTypeBase type{}; // no module: a builtin
    Builtin builtin = Builtin::none;
    U32 size = 0;
    void (*print)(String& text, void const* field) = nullptr;
    void (*parse)(CharRange& range, void* field, char const* attrName) = nullptr;
    void (*write)(NboAttrLog::Out& out, void const* field) = nullptr;
    void (*read)(NboAttrLog::In* in, void* field) = nullptr;
    // The bytes that `write` takes; fewer if a collection ends at its end mark.
    U32 (*logSize)(void const* field) = nullptr;
    // Where the log form is one integer: its bytes, and the same functions on bytes that are there.
    U32 wordSize = 0;
    void (*put)(U8* at, void const* field) = nullptr;
    void (*get)(U8 const* at, void* field) = nullptr;
    void (*assign)(void* field, void const* value) = nullptr;
    void (*reset)(void* field) = nullptr; // to the default
    bool (*equal)(void const* a, void const* b) = nullptr;
    void (*mix)(Hash& hash, void const* field) = nullptr; // null if it has no hash
    // An object on the heap, read from the log.
    void* (*readNew)(NboAttrLog::In* in) = nullptr;
    void (*destroy)(void* object) = nullptr;
};

// The builtin that F is; none for any other type.
template <class F>
constexpr Builtin builtinOf() {
    if constexpr (std::is_void_v<F>) return Builtin::nothing;
    if constexpr (std::is_same_v<F, U8>) return Builtin::u8;
    if constexpr (std::is_same_v<F, U16>) return Builtin::u16;
    if constexpr (std::is_same_v<F, U32>) return Builtin::u32;
    if constexpr (std::is_same_v<F, S32>) return Builtin::s32;
    if constexpr (std::is_same_v<F, U64>) return Builtin::u64;
    if constexpr (std::is_same_v<F, bool>) return Builtin::boolean;
    if constexpr (std::is_same_v<F, String>) return Builtin::string;
    if constexpr (std::is_same_v<F, Seconds>) return Builtin::seconds;
    return Builtin::none;
}

template <class F>
void printField(String& text, void const* field) {
    auto const& v = *static_cast<F const*>(field);
    if constexpr (std::is_same_v<F, S32>)
        text += std::to_string(v);
    else if constexpr (std::is_integral_v<F> && !std::is_same_v<F, bool>)
        text += valueToStrep(static_cast<unsigned long long>(v));
    else
        text += valueToStrep(v);
}
template <class F>
void parseField(CharRange& range, void* field, char const* attrName) {
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
// The integer that a field is in the log, if it is one: an enum and a flag set take 32 bits, whatever
// their width in memory; a class around one integer is that integer.
struct NoWord {};
template <class F>
constexpr auto toLogWord(F const& v) {
    if constexpr (std::is_enum_v<F>)
        return static_cast<U32>(v);
    else if constexpr (requires { F::definedBits; })
        return U32{v.value()};
    else if constexpr (std::is_same_v<F, bool>)
        return U8{v};
    else if constexpr (std::is_integral_v<F>)
        return static_cast<std::make_unsigned_t<F>>(v);
    else if constexpr (std::is_same_v<F, Seconds>)
        return std::bit_cast<U64>(v);
    else if constexpr (requires {
                           { v.word() } -> std::same_as<U64>;
                       } &&
                       sizeof(F) == 8 && std::is_constructible_v<F, U64>)
        return v.word();
    else if constexpr (requires {
                           { v.value() } -> std::unsigned_integral;
                       }) {
        using Word = decltype(v.value());
        if constexpr (sizeof(F) == sizeof(Word) && std::is_constructible_v<F, Word>)
            return v.value();
        else
            return NoWord{};
    } else {
        return NoWord{};
    }
}
template <class F>
using LogWord = decltype(toLogWord(std::declval<F const&>()));
template <class F>
F fromLogWord(LogWord<F> word) {
    if constexpr (std::is_arithmetic_v<F> || std::is_enum_v<F>) {
        if constexpr (std::is_same_v<F, bool>)
            return word != 0;
        else if constexpr (std::is_same_v<F, Seconds>)
            return std::bit_cast<Seconds>(word);
        else
            return static_cast<F>(word);
    } else if constexpr (requires { F::definedBits; }) {
        return F(static_cast<U8>(word & F::definedBits));
    } else {
        return F(word); // raises for one out of range
    }
}
template <class F>
inline constexpr bool isLogWord = !std::is_same_v<LogWord<F>, NoWord>;

template <class F>
void putField(U8* at, void const* field) {
    NboAttrLog::putBigEndian(at, toLogWord(*static_cast<F const*>(field)));
}
template <class F>
void getField(U8 const* at, void* field) {
    *static_cast<F*>(field) = fromLogWord<F>(NboAttrLog::getBigEndian<LogWord<F>>(at));
}
template <class F>
void writeField(NboAttrLog::Out& out, void const* field) {
    if constexpr (isLogWord<F>)
        out.putInt(toLogWord(*static_cast<F const*>(field)));
    else
        out << *static_cast<F const*>(field);
}
// A type whose size varies has a function for it; the others' is that of any value.
template <class F>
U32 fieldLogSize(void const* field) {
    if constexpr (isLogWord<F>) {
        return sizeof(LogWord<F>);
    } else if constexpr (std::is_same_v<F, String>) {
        return sizeof(U32) + static_cast<String const*>(field)->bytes();
    } else if constexpr (requires(F const* v) { attrLogSize(v); }) {
        return attrLogSize(static_cast<F const*>(field));
    } else {
        static U32 const size = [] {
            NboAttrLog::Out out;
            out << F();
            return static_cast<U32>(out.size());
        }();
        return size;
    }
}
// Into an object that is being made: one that cannot be read whole is dropped.
template <class F>
void readField(NboAttrLog::In* in, void* field) {
    if constexpr (isLogWord<F>)
        getField<F>(in->take(sizeof(LogWord<F>)), field);
    else if constexpr (std::is_same_v<F, String>)
        *static_cast<F*>(field) = in->nextString();
    else if constexpr (std::is_trivially_destructible_v<F>)
        std::construct_at(static_cast<F*>(field), in, StreamBogon{}); // not copied there
    else
        *static_cast<F*>(field) = F(in, StreamBogon{});
}
template <class F>
void assignField(void* field, void const* value) {
    *static_cast<F*>(field) = *static_cast<F const*>(value);
}
template <class F>
void resetField(void* field) {
    *static_cast<F*>(field) = F();
}
template <class F>
bool equalFields(void const* a, void const* b) {
    return *static_cast<F const*>(a) == *static_cast<F const*>(b);
}

// An integer of 16 or 32 bits goes into a composite's hash as it is, a value by its own hash.
template <class F>
constexpr bool isMixed = std::is_same_v<F, U16> || std::is_same_v<F, U32> || requires(F const& v) {
    v.hash();
}
|| requires(F const& v) {
    v.hash(0U);
};
template <class F>
void mixField(Hash& hash, void const* field) {
    auto const& v = *static_cast<F const*>(field);
    if constexpr (std::is_integral_v<F>) {
        hash.hashMix<sizeof(F)>(field);
    } else {
        U32 word;
        if constexpr (requires { v.hash(); })
            word = v.hash();
        else
            word = v.hash(0U);
        hash.hashMix<4>(&word);
    }
}

template <class F>
void* readNewField(NboAttrLog::In* in) {
    auto value = std::make_unique<F>();
    readField<F>(in, value.get());
    return value.release();
}
template <class F>
void destroyField(void* object) {
    delete static_cast<F*>(object);
}

template <class F>
consteval FieldType makeFieldType() {
    FieldType type;
    if constexpr (builtinOf<F>() != Builtin::none)
        type.builtin = builtinOf<F>();
    else if constexpr (isPtr<F>)
        type.type = IdOf<typename PointedBy<F>::type>::type;
    else
        type.type = IdOf<F>::type;
    if constexpr (!std::is_void_v<F> && !isPtr<F>) {
        type.size = sizeof(F);
        type.print = printField<F>;
        type.parse = parseField<F>;
        type.write = writeField<F>;
        type.read = readField<F>;
        type.logSize = fieldLogSize<F>;
        if constexpr (isLogWord<F>) {
            type.wordSize = sizeof(LogWord<F>);
            type.put = putField<F>;
            type.get = getField<F>;
        }
        type.assign = assignField<F>;
        type.reset = resetField<F>;
        type.equal = equalFields<F>;
        if constexpr (isMixed<F>) type.mix = mixField<F>;
        type.readNew = readNewField<F>;
        type.destroy = destroyField<F>;
    }
    return type;
}
template <class F>
inline constexpr FieldType fieldType = makeFieldType<F>();

using GenericIf::AttributeOp;

struct CollectionOps;

struct Param {
    char const* name = nullptr;
    FieldType const* type = nullptr;
};

struct Row {
    U32 number = 0;
    RowKind kind = RowKind::ctor;
    bool stored = false; // and printed
    U16 literal = 0;     // number of an enum's literal; mask of a flag and of its constant
    char const* name = nullptr;
    FieldType const* type = nullptr; // of the attribute; null: of the type itself
    FieldType const* key = nullptr;
    char const* keyName = nullptr; // of the attribute that is the key of a child
    // Where the field of an object is; null if the attribute is not a field.
    void const* (*field)(void const* object) = nullptr;
    // The operations of the generic interface, where they are not those of a plain field.
    U32 (*op)(void* out, void* object, AttributeOp op, void* a, void* b) = nullptr;
    // A mutator that does more than store and notify.
    void (*set)(void* object, void const* value) = nullptr;
    // Makes an object of this one constructor argument, checked.
    void (*construct)(void* to, void const* argument) = nullptr;
    std::array<Param, 3> params{};
    // Of a collection.
    CollectionOps const* collection = nullptr;
    FieldType const* whole = nullptr; // in a value: what it is as a field
    // Of an owner: null once the entity is not its child.
    Entity* (*ownerOf)(Entity const* entity) = nullptr;

    // What the engines do with the field.
    constexpr FieldType const& form() const { return whole != nullptr ? *whole : *type; }
};

namespace Impl {
template <class M>
struct MemberOf;
template <class T, class F>
struct MemberOf<F T::*> {
    using Class = T;
    using Field = F;
};
template <auto member>
using ClassOf = typename MemberOf<decltype(member)>::Class;
template <auto member>
using FieldOf = typename MemberOf<decltype(member)>::Field;

template <class F>
struct Signature;
template <class T, class R, class... A>
struct Signature<R (T::*)(A...)> {
    using Class = T;
    using Result = std::remove_cvref_t<R>;
    static constexpr std::array<Param, 3> params{
        Param{nullptr, &fieldType<std::remove_cvref_t<A>>}...};
    template <auto f, std::size_t... i>
    static decltype(auto) call(void* object, void* const* args, std::index_sequence<i...>) {
        return (static_cast<T*>(object)->*f)(
            *static_cast<std::remove_cvref_t<A> const*>(args[i])...);
    }
    static constexpr std::size_t arity = sizeof...(A);
};
template <class T, class R, class... A>
struct Signature<R (T::*)(A...) const> : Signature<R (T::*)(A...)> {
    template <auto f, std::size_t... i>
    static decltype(auto) call(void* object, void* const* args, std::index_sequence<i...>) {
        return (static_cast<T const*>(object)->*f)(
            *static_cast<std::remove_cvref_t<A> const*>(args[i])...);
    }
};
template <class T, class R, class... A>
struct Signature<R (T::*)(A...)&> : Signature<R (T::*)(A...)> {};
template <class R, class... A>
struct Signature<R (*)(A...)> {
    using Result = std::remove_cvref_t<R>;
    static constexpr std::array<Param, 3> params{
        Param{nullptr, &fieldType<std::remove_cvref_t<A>>}...};
    template <auto f, std::size_t... i>
    static decltype(auto) call(void*, void* const* args, std::index_sequence<i...>) {
        return f(*static_cast<std::remove_cvref_t<A> const*>(args[i])...);
    }
    static constexpr std::size_t arity = sizeof...(A);
};
template <auto f>
using SignatureOf = Signature<decltype(f)>;
template <auto f>
using ResultOf = typename SignatureOf<f>::Result;

template <auto member>
void const* fieldAt(void const* object) {
    return &(static_cast<ClassOf<member> const*>(object)->*member);
}
template <auto member, unsigned element>
void const* elementAt(void const* object) {
    return &(static_cast<ClassOf<member> const*>(object)->*member)[element];
}
// An entity is handed out as Ptr<Entity>, whatever its class.
template <class V>
void store(void* out, V const& v) {
    if constexpr (isPtr<V>)
        *static_cast<Ptr<Entity>*>(out) = Ptr<Entity>(v);
    else
        *static_cast<V*>(out) = v;
}

template <auto get>
U32 getOp(void* out, void* object, AttributeOp op, void*, void*) {
    if (op != AttributeOp::get) return 1;
    store<ResultOf<get>>(out,
                         (static_cast<typename SignatureOf<get>::Class const*>(object)->*get)());
    return 0;
}
template <auto get, auto set>
U32 viewOp(void* out, void* object, AttributeOp op, void* a, void* b) {
    if (op != AttributeOp::set) return getOp<get>(out, object, op, a, b);
    (static_cast<typename SignatureOf<get>::Class*>(object)->*set)(*static_cast<ResultOf<get>*>(a));
    return 0;
}
template <auto get, auto set, auto del>
U32 indexedOp(void* out, void* object, AttributeOp op, void* a, void* b) {
    using S = SignatureOf<get>;
    auto* const self = static_cast<typename S::Class*>(object);
    auto const& key = *[&]<class R, class T, class K>(R (T::*)(K) const) {
        return static_cast<std::remove_cvref_t<K> const*>(a);
    }(get);
    switch (op) {
    case AttributeOp::get:
        store<ResultOf<get>>(out, (self->*get)(key));
        return 0;
    case AttributeOp::set:
        (self->*set)(key, *static_cast<ResultOf<get> const*>(b));
        return 0;
    case AttributeOp::del:
        (self->*del)(key);
        return 0;
    default:
        return 1;
    }
}
template <auto object>
decltype(auto) constantOf() {
    if constexpr (std::is_function_v<std::remove_pointer_t<decltype(object)>>)
        return object();
    else
        return (*object);
}
template <auto object>
using ConstantType = std::remove_cvref_t<decltype(constantOf<object>())>;
template <auto object>
U32 constantOp(void* out, void*, AttributeOp op, void*, void*) {
    if (op != AttributeOp::get) return 1;
    store<ConstantType<object>>(out, constantOf<object>());
    return 0;
}
template <auto f>
U32 callOp(void* out, void* object, AttributeOp op, void* a, void*) {
    using S = SignatureOf<f>;
    if (op != AttributeOp::call) return 1;
    auto const sequence = std::make_index_sequence<S::arity>();
    auto* const args = static_cast<void* const*>(a);
    if constexpr (std::is_void_v<typename S::Result>)
        S::template call<f>(object, args, sequence);
    else
        store<typename S::Result>(out, S::template call<f>(object, args, sequence));
    return 0;
}
template <class T, class F>
void constructFrom(void* to, void const* argument) {
    new (to) T(*static_cast<F const*>(argument));
}
consteval std::array<Param, 3> named(std::array<Param, 3> params,
                                     std::initializer_list<char const*> names) {
    std::size_t i = 0;
    for (char const* name : names) params[i++].name = name;
    for (Param const& p : params)
        if ((p.name == nullptr) != (p.type == nullptr)) throw "one name for each parameter";
    return params;
}
} // namespace Impl

// Row makers. Each takes its member as a template argument and erases the type.

template <auto member>
consteval Row ctor(U32 number, char const* name) {
    using T = Impl::ClassOf<member>;
    using F = Impl::FieldOf<member>;
    Row row{.number = number,
            .kind = RowKind::ctor,
            .stored = true,
            .name = name,
            .type = &fieldType<F>,
            .field = Impl::fieldAt<member>};
    if constexpr (std::is_constructible_v<T, F const&>) row.construct = Impl::constructFrom<T, F>;
    return row;
}
template <auto member>
consteval Row mutates(U32 number, char const* name) {
    return {.number = number,
            .kind = RowKind::mutates,
            .stored = true,
            .name = name,
            .type = &fieldType<Impl::FieldOf<member>>,
            .field = Impl::fieldAt<member>};
}
// One element of a stored array.
template <auto member, unsigned element>
consteval Row mutates(U32 number, char const* name) {
    using F = std::remove_all_extents_t<Impl::FieldOf<member>>;
    return {.number = number,
            .kind = RowKind::mutates,
            .stored = true,
            .name = name,
            .type = &fieldType<F>,
            .field = Impl::elementAt<member, element>};
}
// The rows of a flag set: its flags, numbered from 2, the raw byte, the constants.
struct Flag {
    template <class T>
    consteval Flag(char const* flagName, char const* nameOfConstant, T constant)
        : name(flagName), constantName(nameOfConstant), mask(constant.value()) {}
    char const* name;
    char const* constantName;
    U8 mask;
};
template <std::size_t n>
consteval std::array<Row, 2 * n + 1> flags(Flag const (&list)[n]) {
    std::array<Row, 2 * n + 1> result{};
    for (std::size_t i = 0; i < n; ++i) {
        result[i] = {.kind = RowKind::flag,
                     .stored = true,
                     .literal = list[i].mask,
                     .name = list[i].name,
                     .type = &fieldType<bool>};
        result[n + 1 + i] = {
            .kind = RowKind::constant, .literal = list[i].mask, .name = list[i].constantName};
    }
    result[n] = {.kind = RowKind::raw, .name = "value", .type = &fieldType<U8>};
    for (U32 i = 0; i < result.size(); ++i) result[i].number = 2 + i;
    return result;
}
template <auto get, auto set>
consteval Row view(U32 number, char const* name) {
    return {.number = number,
            .kind = RowKind::view,
            .name = name,
            .type = &fieldType<Impl::ResultOf<get>>,
            .op = Impl::viewOp<get, set>};
}
template <auto get>
consteval Row derived(U32 number, char const* name) {
    return {.number = number,
            .kind = RowKind::derived,
            .name = name,
            .type = &fieldType<Impl::ResultOf<get>>,
            .op = Impl::getOp<get>};
}
// `object` points to the class's static constant, or to a static function without parameters that
// gives it.
template <auto object>
consteval Row constant(U32 number, char const* name) {
    return {.number = number,
            .kind = RowKind::constant,
            .name = name,
            .type = &fieldType<Impl::ConstantType<object>>,
            .op = Impl::constantOp<object>};
}
template <auto f>
consteval Row callable(RowKind kind, U32 number, char const* name,
                       std::initializer_list<char const*> params) {
    return {.number = number,
            .kind = kind,
            .name = name,
            .type = &fieldType<Impl::ResultOf<f>>,
            .op = Impl::callOp<f>,
            .params = Impl::named(Impl::SignatureOf<f>::params, params)};
}
template <auto f>
consteval Row function(U32 number, char const* name,
                       std::initializer_list<char const*> params = {}) {
    return callable<f>(RowKind::function, number, name, params);
}
template <auto f>
consteval Row mutating(U32 number, char const* name,
                       std::initializer_list<char const*> params = {}) {
    return callable<f>(RowKind::mutating, number, name, params);
}
template <auto f>
consteval Row statics(U32 number, char const* name,
                      std::initializer_list<char const*> params = {}) {
    return callable<f>(RowKind::statics, number, name, params);
}
// Functions that return an entity: const, and one that may make it.
template <auto f>
consteval Row givesEntity(U32 number, char const* name,
                          std::initializer_list<char const*> params = {}) {
    return callable<f>(RowKind::givesEntity, number, name, params);
}
template <auto f>
consteval Row makesEntity(U32 number, char const* name,
                          std::initializer_list<char const*> params = {}) {
    return callable<f>(RowKind::makesEntity, number, name, params);
}
// A function that changes the object and is not reached by the generic interface.
consteval Row internal(U32 number, char const* name) {
    return {.number = number, .kind = RowKind::internal, .name = name, .type = &fieldType<void>};
}
// A view by a key: `get(key)`, `set(key, value)`, `del(key)`.
template <auto get, auto set, auto del>
consteval Row indexed(U32 number, char const* name) {
    return {.number = number,
            .kind = RowKind::indexed,
            .name = name,
            .type = &fieldType<Impl::ResultOf<get>>,
            .key = Impl::SignatureOf<get>::params[0].type,
            .op = Impl::indexedOp<get, set, del>};
}
template <class E>
requires std::is_enum_v<E>
consteval Row literal(U32 number, char const* name, E enumerator) {
    return {.number = number,
            .kind = RowKind::literal,
            .literal = static_cast<U16>(enumerator),
            .name = name};
}

template <std::size_t n>
consteval std::array<Row, n> rows(Row const (&list)[n]) {
    std::array<Row, n> result{};
    for (std::size_t i = 0; i < n; ++i) {
        if (i != 0 && list[i].number <= list[i - 1].number) throw "attribute numbers must ascend";
        result[i] = list[i];
    }
    return result;
}
consteval std::array<Row, 0> noRows() {
    return {};
}

// What a type is as a whole.
struct TypeHead {
    char const* name;
    TypeKind kind;
    U8 flags = 0;
    FieldType const* base = nullptr;
    Param lead{}; // the base's constructor parameter
};
consteval TypeHead value(char const* name, U8 flags = 0) {
    return {name, TypeKind::value, flags};
}
// A value derived from a value: Describe names that as Base, too.
// `lead` is what one is made from, an attribute of the base.
template <class Base>
consteval TypeHead derivedValue(char const* name, U8 flags, Param lead) {
    return {name, TypeKind::value, flags, &fieldType<Base>, lead};
}
consteval TypeHead flagSet(char const* name) {
    return {name, TypeKind::flagSet};
}
template <class U>
consteval TypeHead enumeration(char const* name) {
    return {name, TypeKind::enumeration, 0, &fieldType<U>};
}

// The engines: know rows, no types.
void appendText(String& text, char const* typeName, std::span<Row const> rows, void const* object);
void parseRows(CharRange& range, char const* typeName, std::span<Row const> rows, void* object);
// A flag set is one byte in memory and 32 bits in the log; bits that are not declared are dropped.
void writeFlags(NboAttrLog::Out& out, void const* flags);
void readFlags(NboAttrLog::In* in, void* flags, U8 definedBits);

// The bytes of the run of integers that begins with row `first`; 0 if none begins there.
consteval std::size_t runAt(std::span<Row const> rows, std::size_t first) {
    auto const isWord = [](Row const& row) { return row.form().wordSize != 0; };
    if (!rows[first].stored || !isWord(rows[first])) return 0;
    for (std::size_t i = first; i-- > 0;)
        if (rows[i].stored) {
            if (isWord(rows[i])) return 0;
            break;
        }
    std::size_t bytes = 0;
    for (Row const& row : rows.subspan(first)) {
        if (!row.stored) continue;
        if (!isWord(row)) break;
        bytes += row.form().wordSize;
    }
    return bytes;
}
// The functions that the rows of T give: what the table of its module holds.
//
// The log and the hash are on the road of every change: they are unrolled over the rows, whose
// functions are then known and inlined, and in the log a run of integers asks once for its bytes.
// Text is not worth that.
template <class T>
struct FrameOf {
    static constexpr auto const& rows = Describe<T>::attributes;
    static constexpr auto sequence = std::make_index_sequence<std::size(rows)>();

    static String text(void const* value) {
        String result;
        appendText(result, Describe<T>::type.name, rows, value);
        return result;
    }
    static void parse(CharRange& range, void* value) {
        parseRows(range, Describe<T>::type.name, rows, value);
    }
    static void write(NboAttrLog::Out& out, void const* value) {
        [&]<std::size_t... i>(std::index_sequence<i...>) {
            [[maybe_unused]] U8* at = nullptr;
            (writeRow<i>(out, at, value), ...);
        }
        (sequence);
    }
    static void read(NboAttrLog::In* in, void* value) {
        [&]<std::size_t... i>(std::index_sequence<i...>) {
            [[maybe_unused]] U8 const* at = nullptr;
            (readRow<i>(in, at, value), ...);
        }
        (sequence);
    }
    static U32 hash(void const* value, U32 seed) {
        Hash hash(seed);
        [&]<std::size_t... i>(std::index_sequence<i...>) {
            ((rows[i].stored ? rows[i].form().mix(hash, rows[i].field(value)) : void()), ...);
        }
        (sequence);
        return hash.result();
    }
    static constexpr bool isHashed() {
        for (Row const& row : rows)
            if (row.stored && row.form().mix == nullptr) return false;
        return true;
    }

private:
    // `at` is where the next integer of a run stands.
    template <std::size_t i>
    static void writeRow([[maybe_unused]] NboAttrLog::Out& out, [[maybe_unused]] U8*& at,
                         [[maybe_unused]] void const* value) {
        constexpr Row const& row = rows[i];
        if constexpr (row.stored && row.form().wordSize != 0) {
            if constexpr (constexpr std::size_t bytes = runAt(rows, i); bytes != 0)
                at = out.room(bytes);
            row.form().put(at, row.field(value));
            at += row.form().wordSize;
        } else if constexpr (row.stored) {
            row.form().write(out, row.field(value));
        }
    }
    template <std::size_t i>
    static void readRow([[maybe_unused]] NboAttrLog::In* in, [[maybe_unused]] U8 const*& at,
                        [[maybe_unused]] void* value) {
        constexpr Row const& row = rows[i];
        if constexpr (row.stored && row.form().wordSize != 0) {
            if constexpr (constexpr std::size_t bytes = runAt(rows, i); bytes != 0)
                at = in->take(bytes);
            row.form().get(at, const_cast<void*>(row.field(value)));
            at += row.form().wordSize;
        } else if constexpr (row.stored) {
            row.form().read(in, const_cast<void*>(row.field(value)));
        }
    }
};

// That of a derived value which stores nothing of its own is its base's.
template <class T>
struct FrameOfBase {
    using Base = typename Describe<T>::Base;
    static Base const& base(void const* value) { return *static_cast<T const*>(value); }

    static String text(void const* value) { return valueToStrep(base(value)); }
    static void parse(CharRange& range, void* value) {
        static_cast<Base&>(*static_cast<T*>(value)) = Base(range);
    }
    static void write(NboAttrLog::Out& out, void const* value) { out << base(value); }
    static void read(NboAttrLog::In* in, void* value) {
        static_cast<Base&>(*static_cast<T*>(value)) = Base(in, StreamBogon{});
    }
};

template <class T>
consteval ValueFrame makeValueFrame() {
    if constexpr (requires { typename Describe<T>::Base; }) {
        using F = FrameOfBase<T>;
        return {F::text, F::parse, F::write, F::read, nullptr};
    } else {
        using F = FrameOf<T>;
        ValueFrame frame{F::text, F::parse, nullptr, nullptr, nullptr};
        if constexpr (requires { T::definedBits; }) {
            frame.write = writeFlags;
            frame.read = [](NboAttrLog::In* in, void* flags) {
                readFlags(in, flags, T::definedBits);
            };
        } else {
            frame.write = F::write;
            frame.read = F::read;
            if constexpr (F::isHashed()) frame.hash = F::hash;
        }
        return frame;
    }
}

} // namespace Vomo
