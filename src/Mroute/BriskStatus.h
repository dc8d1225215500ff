// The entity that owns the bit mapper's tables.
#pragma once

#include "Mroute/Tables.h"
#include "VomoBrisk/TableMember.h"

namespace BitMapper {

// The allocated bits, and the keys that wait for one. Who allocates, and by which rule, is up to the
// agents.
class BriskStatus : public Vomo::NamedEntity<BriskStatus, VomoBrisk::TableOwner> {
public:
    enum Attr : U32 {
        bitIndexMapAttr = 258,
        bitIndexMapControlAttr,
        waitlistMapAttr,
        waitlistMapControlAttr,
        isNewMappingAttr,
        lookupBitIndexAttr,
    };
    using BriskStatusZeroReferencesNotifiee = ZeroReferencesNotifiee;

    explicit BriskStatus(Vomo::String const& name) : NamedEntity(name) { zeroReferencesAttach(); }
    static Vomo::Ptr<BriskStatus> BriskStatusIs(Vomo::String const& name) {
        return Vomo::newEntity<BriskStatus>(name);
    }

    // Whether the bit's mapping is new: also for an invalid bit and for one without a mapping.
    bool isNewMapping(BitIndex bit) const {
        return bit.value() == BitIndex::invalid || bitIndexMap(bit).isNewMapping();
    }
    // What the bit stands for; the default key for one without a mapping.
    BitMapperKey lookupBitIndex(BitIndex bit) const { return bitIndexMap(bit).bitMapperKey(); }

    // The allocated bits.
    using BitIndexMapColl =
        VomoBrisk::TableMember<BriskStatus, bitIndexMapAttr, Mroute::BitIndexMapTable>;
    BitIndexMapColl::Map const& bitIndexMap() const { return bitIndexMap_.map(); }
    BitIndexMapColl::Map& bitIndexMap() { return bitIndexMap_.map(); }
    BitIndexMapColl::Value bitIndexMap(BitIndexMapColl::Key const& key) const {
        return bitIndexMap_.get(key);
    }
    bool bitIndexMapHas(BitIndexMapColl::Key const& key) const { return bitIndexMap_.has(key); }
    void bitIndexMapIs(BitIndexMapColl::Value const& v) { bitIndexMap_.is(v); }
    BitIndexMapColl::Value bitIndexMapDel(BitIndexMapColl::Key const& key) {
        return bitIndexMap_.del(key);
    }
    void bitIndexMapDelAll() { bitIndexMap_.delAll(); }
    void bitIndexMapIsAll(BitIndexMapColl::Values values) { bitIndexMap_.isAll(values); }
    void bitIndexMapDelAll(BitIndexMapColl::Keys keys) { bitIndexMap_.delAll(keys); }
    void bitIndexMapCommit(BitIndexMapColl::Value const* v) { bitIndexMap_.commit(v); }
    void bitIndexMapNotify(BitIndexMapColl::Key const& key) { bitIndexMap_.notify(key); }
    void bitIndexMapNotifyQuiesced(bool quiesced) { bitIndexMap_.notifyQuiesced(quiesced); }
    void bitIndexMapNotifyMountStatus() { bitIndexMap_.notifyMountStatus(); }
    Control const& bitIndexMapControl() const { return bitIndexMap_.control(); }
    void bitIndexMapControlIs(Control const& v) { bitIndexMap_.controlIs(v); }

    // The keys that wait.
    using WaitlistMapColl =
        VomoBrisk::TableMember<BriskStatus, waitlistMapAttr, Mroute::WaitlistMapTable>;
    WaitlistMapColl::Map const& waitlistMap() const { return waitlistMap_.map(); }
    WaitlistMapColl::Map& waitlistMap() { return waitlistMap_.map(); }
    WaitlistMapColl::Value waitlistMap(WaitlistMapColl::Key const& key) const {
        return waitlistMap_.get(key);
    }
    bool waitlistMapHas(WaitlistMapColl::Key const& key) const { return waitlistMap_.has(key); }
    void waitlistMapIs(WaitlistMapColl::Value const& v) { waitlistMap_.is(v); }
    WaitlistMapColl::Value waitlistMapDel(WaitlistMapColl::Key const& key) {
        return waitlistMap_.del(key);
    }
    void waitlistMapDelAll() { waitlistMap_.delAll(); }
    void waitlistMapIsAll(WaitlistMapColl::Values values) { waitlistMap_.isAll(values); }
    void waitlistMapDelAll(WaitlistMapColl::Keys keys) { waitlistMap_.delAll(keys); }
    void waitlistMapCommit(WaitlistMapColl::Value const* v) { waitlistMap_.commit(v); }
    void waitlistMapNotify(WaitlistMapColl::Key const& key) { waitlistMap_.notify(key); }
    void waitlistMapNotifyQuiesced(bool quiesced) { waitlistMap_.notifyQuiesced(quiesced); }
    void waitlistMapNotifyMountStatus() { waitlistMap_.notifyMountStatus(); }
    Control const& waitlistMapControl() const { return waitlistMap_.control(); }
    void waitlistMapControlIs(Control const& v) { waitlistMap_.controlIs(v); }

private:
    friend EntityOf;
    friend Vomo::Describe<BriskStatus>;
    BitIndexMapColl bitIndexMap_{*this, &BriskStatus::bitIndexMapNotify,
                                 &BriskStatus::bitIndexMapNotifyMountStatus,
                                 &BriskStatus::bitIndexMapNotifyQuiesced};
    WaitlistMapColl waitlistMap_{*this, &BriskStatus::waitlistMapNotify,
                                 &BriskStatus::waitlistMapNotifyMountStatus,
                                 &BriskStatus::waitlistMapNotifyQuiesced};
    mutable Vomo::NotifieeList notifiees_;
};

Vomo::Ptr<BriskStatus> briskStatusFactory(Vomo::String const& name);

} // namespace BitMapper

VOMO_BRISK_EXTERN(BitMapper::BriskStatus, Mroute::BitIndexMapTable);
VOMO_BRISK_EXTERN(BitMapper::BriskStatus, Mroute::WaitlistMapTable);
