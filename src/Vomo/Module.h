// Registration records: how a module describes its types to the framework, and how code names a
// type. The bytes are told in docs/type-record.md.
#pragma once

#include "Dunlin/Types.h"

namespace Vomo {

class String;
class CharRange;
namespace NboAttrLog {
class In;
class Out;
} // namespace NboAttrLog

enum class TypeKind : U8 { value = 0x21, enumeration = 0x25, flagSet = 0x29, entity = 0x60 };

// One row of the type table.
struct TypeRow {
    TypeKind kind;
    U8 flags;
    U16 nameOffset8; // in the type name table, times 8
    U32 sizeAndAlignment;
    U16 base; // reference index or builtin code, 0xFFFF for none
    U16 parameters;
    U16 firstAttribute;
    U16 numAttributes; // those of base types not counted

    constexpr U32 nameOffset() const { return nameOffset8 >> 3; }
    constexpr U32 size() const { return sizeAndAlignment >> 11; }
    constexpr U32 alignment() const { return sizeAndAlignment >> 7 & 15; }
};
static_assert(sizeof(TypeRow) == 16);

// One row of the attribute table.
struct [[gnu::packed]] AttributeRow {
    U32 number;
    U8 flags[3];
    U8 name[3]; // low 4 bits: stored; above: offset in the attribute name table
    U16 type;   // reference index or builtin code
    U16 keyOrValue;
    U16 parameters;
    U32 keyName;

    constexpr U32 nameOffset() const {
        return (U32{name[0]} | U32{name[1]} << 8 | U32{name[2]} << 16) >> 4;
    }
    constexpr bool stored() const { return (name[0] & 15) != 0; }
};
static_assert(sizeof(AttributeRow) == 20);

struct VomoModule;
struct ReferenceRow {
    VomoModule const* module;
    U64 index;
};

// A type, named by its module's record and its place in the type table.
struct VomoTypeBase {
    VomoModule const* module = nullptr;
    U16 index = 0;

    bool isNull() const { return module == nullptr; }
    TypeRow const& row() const;
    char const* name() const;
    // `type` is `base` or derives from it.
    static bool isDerived(VomoTypeBase type, VomoTypeBase base);
    // An entity.
    bool isPolymorphic() const { return row().kind == TypeKind::entity; }
    // The base type; null for none or a builtin.
    VomoTypeBase base() const;

    friend constexpr bool operator==(VomoTypeBase, VomoTypeBase) = default;
};
using VomoType = VomoTypeBase;

// An attribute, named by a module's record and a place in its attribute table; null stands for the
// type itself.
struct VomoAttrBase {
    VomoModule const* module = nullptr;
    U16 index = 0;

    bool isNull() const { return module == nullptr; }
    U32 attributeId() const;
    AttributeRow const& row() const;
    char const* name() const;
};
using VomoAttr = VomoAttrBase;

namespace GenericIf {
enum class AttributeOp : U32 {
    get = 0,
    set = 1,
    del = 2,
    count = 3,
    version = 4,
    has = 5,
    call = 10,
    truth = 11,
    equal = 12,
    less = 13,
    andNot = 15,
    bitAnd = 19,
    bitOr = 20,
    bitXor = 21,
    complement = 22,
};
} // namespace GenericIf

namespace GenericIfRaw {
struct Iterator {
    // What walks a collection without knowing its type.
    struct IteratorVTable {
        bool (*iterObj)(VomoAttr attr, void* iterator, void* out);
        bool (*iterKey)(VomoAttr attr, void* iterator, void* out);
        bool (*iterNonnull)(VomoAttr attr, void* iterator);
        void (*iterInc)(VomoAttr attr, void* iterator);
        void (*iterDel)(VomoAttr attr, void* iterator);
        void const* reserved[3];
    };
};
} // namespace GenericIfRaw

// What the generic interface can do with a value of some type.
struct ValueMethods {
    void (*construct)(void* to, void const* from);
    void (*destruct)(void* object);
    U32 (*hash)(void const* object, VomoType type);
    void* (*voidPtrIs)(void const* object, VomoType type, VomoType target);
    void const* reserved[2];
    String (*strRep)(void const* object, VomoType type);
    void (*strepToValue)(void* to, String const& text, VomoType type);
    // Our own, behind those: to and from the attribute log; null for an entity.
    void (*logWrite)(NboAttrLog::Out& out, void const* object);
    void (*logRead)(NboAttrLog::In* in, void* to);
};
static_assert(sizeof(ValueMethods) == 80);

struct StreamTable;

// One row of the generic table: six words.
struct GenericRow {
    void* (*newEntityForDir)(String const& name, void* args);
    StreamTable const* stream;
    ValueMethods const* methods;
    void (*constructFromCtorArgs)(void* to, void* const* args);
    U32(*attributeOp)
    (void* out, void* object, VomoAttr attr, GenericIf::AttributeOp op, void* a, void* b);
    void* (*iterator)(void* object, void** key, VomoAttr attr,
                      GenericIfRaw::Iterator::IteratorVTable const** methods);
};
static_assert(sizeof(GenericRow) == 48);

// Eight words; all tables lie in constant data.
struct VomoModule {
    TypeRow const* typeTable;
    AttributeRow const* attributeTable;
    U16 const* parameterTable;
    char const* typeNames;
    char const* attributeNames;
    ReferenceRow const* referenceTable;
    GenericRow const* genericTable;
    U64 numTypes;
};
static_assert(sizeof(VomoModule) == 64);

inline TypeRow const& VomoTypeBase::row() const {
    return module->typeTable[index];
}
inline char const* VomoTypeBase::name() const {
    return module->typeNames + row().nameOffset();
}
inline AttributeRow const& VomoAttrBase::row() const {
    return module->attributeTable[index];
}
inline U32 VomoAttrBase::attributeId() const {
    return row().number;
}
inline char const* VomoAttrBase::name() const {
    return module->attributeNames + row().nameOffset();
}

// The functions of a value type that its rows give; see Vomo/Value.h.
struct ValueFrame {
    String (*text)(void const* value);
    void (*parse)(CharRange& range, void* value);
    void (*write)(NboAttrLog::Out& out, void const* value);
    void (*read)(NboAttrLog::In* in, void* value);
    U32 (*hash)(void const* value, U32 seed);
};
// Those of a module's types, in the order of its record.
template <U16 numTypes>
struct ValueFrames {
    ValueFrame of[numTypes == 0 ? 1 : numTypes];
};

// A module is the list of its types, in order of name: the place of a type and the module's record
// follow from it. The module's header derives its class from the list and adds `record`, the
// record's address, and `frames`, if its values have their text and log from their rows.
template <class... T>
struct TypeList {
    static constexpr U16 size = sizeof...(T);
    template <class U>
    static constexpr bool has = (__is_same(T, U) || ...);
    template <class U>
    static constexpr U16 place = [] {
        U16 n = 0;
        (void)((__is_same(T, U) || (++n, false)) || ...);
        return n;
    }();
};
template <class T, class Module>
concept TypeOf = Module::template has<T>;

// The place of T. A module's header specialises it for all types of the module at once.
template <class T>
struct IdOf;
template <class T, class Module>
struct PlaceIn {
    static constexpr VomoModule const* module = Module::record;
    static constexpr U16 index = Module::template place<T>;
    static constexpr VomoTypeBase type{module, index};
    // clang-format off
    static ValueFrame const& frame() requires requires { Module::frames; } {
        return Module::frames.of[index];
    }
    // clang-format on
};

// Accepts a module's record at load. Nothing is resolved: what the record refers to may register
// later. May be called before main. Forgetting a module is for a library that is unloaded.
void vomoModuleIs(VomoModule const* module);
void vomoModuleDel(VomoModule const* module);

// One file-scope object of this class a module.
class ModuleRegistration {
public:
    explicit ModuleRegistration(VomoModule const* module) : module_(module) {
        vomoModuleIs(module_);
    }
    ~ModuleRegistration() { vomoModuleDel(module_); }
    ModuleRegistration(ModuleRegistration const&) = delete;
    ModuleRegistration& operator=(ModuleRegistration const&) = delete;

private:
    VomoModule const* module_;
};

} // namespace Vomo
