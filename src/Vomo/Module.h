// Registration records: how a module describes its types to the framework, and how code names a
// type. The bytes are told in docs/type-record.md.
#pragma once

#include "Dunlin/Types.h"

namespace Vomo {

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

// Eight words; all tables lie in constant data.
struct VomoModule {
    TypeRow const* typeTable;
    AttributeRow const* attributeTable;
    U16 const* parameterTable;
    char const* typeNames;
    char const* attributeNames;
    ReferenceRow const* referenceTable;
    void const* const* genericTable;
    U64 numTypes;
};
static_assert(sizeof(VomoModule) == 64);

// A type, named by its module's record and its place in the type table.
struct VomoTypeBase {
    VomoModule const* module = nullptr;
    U16 index = 0;

    friend constexpr bool operator==(VomoTypeBase, VomoTypeBase) = default;
};

// The place of T, by specialisation beside T's declaration.
template <class T> struct IdOf;
template <VomoModule const* theModule, U16 theIndex> struct InModule {
    static constexpr VomoModule const* module = theModule;
    static constexpr U16 index = theIndex;
    static constexpr VomoTypeBase type{theModule, theIndex};
};

// Accepts a module's record at load. Nothing is resolved: what the record refers to may register
// later. May be called before main.
void vomoModuleIs(VomoModule const* module);

} // namespace Vomo
