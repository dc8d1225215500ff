// What the mounting of an entity with table attributes is told: the role in which its tables are
// mounted, and each table's name and size.
#pragma once

#include "Vomo/Value.h"

#include <vector>

namespace VomoBrisk {
class CollectionInfo;
class MountInfo;
enum class VomoBriskType : U32;
} // namespace VomoBrisk

namespace Vomo {
extern "C" VomoModule const _MountInfo_c13df29ad60eeca0_vomoModule;
struct MountInfoModule
    : TypeList<VomoBrisk::CollectionInfo, VomoBrisk::MountInfo, VomoBrisk::VomoBriskType> {
    static constexpr VomoModule const* record = &_MountInfo_c13df29ad60eeca0_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<MountInfoModule> T>
struct IdOf<T> : PlaceIn<T, MountInfoModule> {};
} // namespace Vomo

namespace VomoBrisk {

using Vomo::operator<<;
using Vomo::sequenceToValue;
using Vomo::stringValue;
using Vomo::valueToStrep;

// The numbers of Brisk::BriskType.
enum class VomoBriskType : U32 { writer = 0, valueShadow = 1, reader = 2, keyShadow = 3 };

// One table: the name of its attribute, and the size to which it is made.
class CollectionInfo {
public:
    CollectionInfo() = default;
    CollectionInfo(Vomo::String name, U32 size, U32 options)
        : name_(std::move(name)), size_(size), options_(options) {}
    explicit CollectionInfo(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    CollectionInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    Vomo::String const& name() const { return name_; }
    U32 size() const { return size_; }
    // 0: none is declared.
    U32 options() const { return options_; }
    explicit operator bool() const { return !(*this == CollectionInfo()); }

    friend bool operator==(CollectionInfo const&, CollectionInfo const&) = default;

private:
    friend Vomo::Describe<CollectionInfo>;
    Vomo::String name_;
    U32 size_ = 0;
    U32 options_ = 0;
};
U32 attrLogSize(CollectionInfo const* v);

// The tables of one entity, in the order in which they were entered. Text: that of a value, with
// the tables in brackets behind the role.
class MountInfo {
public:
    MountInfo() = default;
    explicit MountInfo(VomoBriskType type) : type_(type) {}
    explicit MountInfo(Vomo::CharRange& range);
    MountInfo(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    VomoBriskType type() const { return type_; }
    std::vector<CollectionInfo> const& collectionInfo() const { return collections_; }
    // The default one if there is no table of that name.
    CollectionInfo collectionInfo(Vomo::String const& name) const;
    // Adds a table, or replaces that of the same name in its place.
    void collectionInfoIs(CollectionInfo const& info);
    explicit operator bool() const { return !(*this == MountInfo()); }

    friend bool operator==(MountInfo const&, MountInfo const&) = default;

private:
    friend Vomo::Describe<MountInfo>;
    VomoBriskType type_ = VomoBriskType::writer;
    std::vector<CollectionInfo> collections_;
};
Vomo::String valueToStrep(MountInfo const& v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, MountInfo const& v);
U32 attrLogSize(MountInfo const* v);

} // namespace VomoBrisk
