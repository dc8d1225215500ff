// An interface, named by one 8-byte word that stands in shared memory and on the wire.
#pragma once

#include "Tumbrel/HashMix.h"
#include "Vomo/Fwd.h"

namespace Kelpie {
class IntfId;
} // namespace Kelpie

namespace Vomo {
extern "C" VomoModule const _IntfId_638f3da9b062f5a9_vomoModule;
struct IntfIdModule : TypeList<Kelpie::IntfId> {
    static constexpr VomoModule const* record = &_IntfId_638f3da9b062f5a9_vomoModule;
};
template <TypeOf<IntfIdModule> T>
struct IdOf<T> : PlaceIn<T, IntfIdModule> {};
} // namespace Vomo

namespace Kelpie {

// Name and word stand for each other in every process of the machine. Two forms hold the name
// itself: up to 10 characters of letters, digits and `-_.:/@+=,~`; and the switch's own names, such
// as Port-Channel1000 or Ethernet36/1/4.4094. Any other name of up to 255 bytes is entered in the
// file "interface-names" below the base directory, where the other processes find it. The empty
// name is word 0. A word that nobody has named prints as "Intf-" and 16 hexadecimal digits, which
// reads back as that word.
class IntfId {
public:
    static constexpr U32 maxLength = 255;

    constexpr IntfId() = default;
    constexpr explicit IntfId(U64 word) : word_(word) {}
    // Raises RangeException for a name that is too long.
    explicit IntfId(Vomo::String const& name);
    explicit IntfId(Vomo::CharRange& range);
    IntfId(Vomo::NboAttrLog::In* in, Vomo::StreamBogon);

    constexpr U64 word() const { return word_; }
    constexpr bool isEmpty() const { return word_ == 0; }
    constexpr U32 hash() const { return Tumbrel::fold(Tumbrel::mix64(0, word_)); }
    // As the key of a collection.
    U32 hash(U32 seed) const;
    // The name.
    Vomo::String stringValue() const;
    constexpr explicit operator bool() const { return word_ != 0; }

    friend constexpr bool operator==(IntfId, IntfId) = default;
    friend constexpr auto operator<=>(IntfId, IntfId) = default;

private:
    U64 word_ = 0;
};
static_assert(sizeof(IntfId) == 8 && alignof(IntfId) == 8);

// The name in quotes.
Vomo::String valueToStrep(IntfId v);
// The name.
std::ostream& operator<<(std::ostream& stream, IntfId v);
Vomo::NboAttrLog::Out& operator<<(Vomo::NboAttrLog::Out& out, IntfId v);

} // namespace Kelpie
