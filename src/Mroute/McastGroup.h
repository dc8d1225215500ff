// Hardware multicast groups: the key of a group and the kinds that are numbered here.
#pragma once

#include "Vomo/Fwd.h"

namespace Multicast::Group {
struct GroupKey;
enum class McastGroupKind : U32;
} // namespace Multicast::Group

namespace Vomo {
extern "C" {
extern VomoModule const _McastGroup_5302ff4251cd4c04_vomoModule;
}
template <>
struct IdOf<Multicast::Group::GroupKey> : InModule<&_McastGroup_5302ff4251cd4c04_vomoModule, 0> {};
template <>
struct IdOf<Multicast::Group::McastGroupKind>
    : InModule<&_McastGroup_5302ff4251cd4c04_vomoModule, 1> {};
} // namespace Vomo

namespace Multicast::Group {

enum class McastGroupKind : U32 {
    mcastGroupKindTapAgg = 19,
    mcastGroupKindTapAggLimitRange = 20,
    mcastGroupKindMpls = 21,
    mcastGroupKindMirror = 22,
    mcastGroupKindSflowAccel = 23,
    mcastGroupKindNexthopGroup = 24,
};
McastGroupKind McastGroupKindInstance(unsigned int number);
McastGroupKind McastGroupKindInstance(Vomo::String const& name);
std::ostream& operator<<(std::ostream& stream, McastGroupKind const& v);
Vomo::String valueToStrep(McastGroupKind const& v);
McastGroupKind sequenceToValue(Vomo::CharRange& range, McastGroupKind*);
Vomo::String stringValue(McastGroupKind v);

// One hardware group. `kind` may hold a number that McastGroupKind does not declare: other features
// number their own groups.
struct GroupKey {
    constexpr GroupKey() = default;
    constexpr GroupKey(U16 kind, U16 index) : kind_(kind), index_(index) {}
    explicit GroupKey(Vomo::CharRange& range);
    GroupKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr U16 kind() const { return kind_; }
    constexpr U16 index() const { return index_; }
    U32 hash(U32 seed) const;

    friend constexpr bool operator==(GroupKey, GroupKey) = default;
    friend constexpr auto operator<=>(GroupKey, GroupKey) = default;

private:
    friend Vomo::Describe<GroupKey>;
    U16 kind_ = 0;
    U16 index_ = 0;
};
static_assert(sizeof(GroupKey) == 4 && alignof(GroupKey) == 2);

Vomo::String valueToStrep(GroupKey v);
std::ostream& operator<<(std::ostream& stream, GroupKey v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, GroupKey v);

} // namespace Multicast::Group
