// Every text by which a writer reports damage, misuse, lack of room or progress is produced by what
// it speaks of: operators and other programs look for them as they stand.
#include "FrontFixture.h"

#include "Brisk/ShadowHashMapImpl.h"
#include "Brisk/TableFullException.h"
#include "Brisk/Util.h"
#include "SharedMem/CpuSupport.h"
#include "SharedMem/LocalMem.h"
#include "support/Ear.h"

namespace {

using namespace Support;

class Messages : public Fronts, public Ear {
public:
    ~Messages() override { Mem::failMappingAfter(0); }
    auto writer(MapDescriptor const& descriptor = MapDescriptor(1000)) {
        return Fronts::writer(descriptor);
    }

    static void fill(TestWriter& w, U32 from, U32 to) {
        for (U32 i = from; i < to; ++i) w.write(TestValue(TestKey(i), i), true);
    }
    static void drop(TestWriter& w, U32 from, U32 to) {
        for (U32 i = from; i < to; ++i) Fronts::drop(w, i);
    }
    static auto& slotOf(TestWriter& w, U32 id) {
        auto const hash = TestKey(id).hash();
        return *w.hashMap().lookup(TestKey(id), w.hashMap().bucketOf(hash), hash);
    }
    static MapDescriptor shrinkable() {
        MapDescriptor d(4096);
        d.shrinkable = true;
        d.shrinkBuckets = true;
        return d;
    }
};

TEST_F(Messages, OfHeadersThatDoNotAgree) {
    auto w = writer();
    auto const& header = *w->slotTable().header;
    std::string text;
    auto const wrong = [&](std::size_t size) {
        return header.validate(*handler_, size, w->orielId(), "TestValue", text) ? "sound" : text;
    };
    EXPECT_EQ(wrong(776 + 16 * 176), "sound");
    EXPECT_EQ(wrong(776 + 16 * 176 + 1), "sound") << "a longer file is accepted";
    EXPECT_EQ(wrong(776 + 16 * 176 - 1), "bad shmem size:3591 wanted:3592 for 16 slots");
    EXPECT_EQ(wrong(700), "bad header file size: 700 wanted:776");
    EXPECT_EQ(wrong(599), "bad file size: 599 is below the header's 600");
    // Each row changes one field, asks, and puts it back.
    auto const oneOff = [&](auto& field, auto value, auto ask) {
        auto const old = field;
        field = static_cast<std::remove_cvref_t<decltype(field)>>(value);
        std::string const answer = ask();
        field = old;
        return answer;
    };
    auto& h = *w->slotTable().header;
    auto const slots = [&](auto& field, auto value) {
        return oneOff(field, value, [&] { return std::string(wrong(4096)); });
    };
    EXPECT_THAT(slots(h.numSlots.value, 0x80000000U),
                testing::StartsWith("bad numSlots: 2147483648 message: "));
    EXPECT_EQ(slots(h.format, 9), "bad format: 9 wanted:2");
    EXPECT_EQ(slots(h.headerSize, 9), "bad header size: 9 wanted:600");
    EXPECT_THAT(slots(h.orielId, 9), testing::StartsWith("bad orielId: 0x9 wanted:0x"));
    EXPECT_EQ(slots(h.slotSize, 9), "bad slot size: 9 wanted:176");
    EXPECT_EQ(slots(h.valueBytes, 9), "bad value size: 9 wanted:160");
    EXPECT_EQ(slots(h.typeName[0], 'B'), "bad type name: 'BestValue' wanted:'TestValue'");
    std::string const name(h.typeName, sizeof h.typeName);
    std::memset(h.typeName, 'x', sizeof h.typeName);
    EXPECT_STREQ(wrong(4096).c_str(), "bad type name: not terminated");
    name.copy(h.typeName, sizeof h.typeName);

    auto& b = const_cast<BriskCore::BucketTable<Brisk::SlotLink>::Header&>(
        *w->hashMap().buckets.header());
    auto const buckets = [&](auto& field, auto value) {
        return oneOff(field, value, [&] {
            EXPECT_FALSE(w->hashMap().buckets.validate(w->orielId(), text));
            return text;
        });
    };
    EXPECT_EQ(buckets(b.magic, 9), "bad bucket magic: 0x9 wanted:0x4b434243");
    EXPECT_EQ(buckets(b.format, 9), "bad bucket format: 9 wanted:1");
    EXPECT_EQ(buckets(b.entrySize, 9), "bad bucket entry size: 9 wanted:8");
    EXPECT_THAT(buckets(b.orielId, 9), testing::StartsWith("bad bucket orielId: 0x9 wanted:0x"));
    EXPECT_EQ(buckets(b.size.numBuckets, 9), "bad numBuckets: 9 is no power of two");
    EXPECT_THAT(
        buckets(b.size.numBuckets, 4096),
        testing::MatchesRegex("bad bucket file size: [0-9]+ wanted:32792 for 4096 buckets"));
    EXPECT_TRUE(w->validate()) << w->lastFinding();
}

TEST_F(Messages, OfAReaderThatFindsNoSoundTable) {
    auto const held = detachedReader();
    auto& r = *held;
    auto const refused = [&](char const* text) {
        lines.clear();
        EXPECT_FALSE(r.initialize("test"));
        EXPECT_TRUE(heard(text));
        EXPECT_FALSE(r.quiesced());
    };
    refused("^failed to attach to buckets$");
    EXPECT_EQ(r.members() + r.maxSize() + r.capacity() + r.buckets(), 0U);
    auto w = writer();
    fill(*w, 0, 10);
    for (char const* const gone : {"buckets", "slots", "oriel"}) {
        std::filesystem::rename(file(gone), file("away"));
        refused(gone == std::string("oriel")
                    ? "^failed to read oriel file\nBrisk table "
                    : (std::string("^failed to attach to ") + gone).c_str());
        std::filesystem::rename(file("away"), file(gone));
    }
    EXPECT_TRUE(heard("magic:0x[0-9a-f]+ .*orielId:")); // the headers stand below
    poke("buckets", 12, 9);
    refused("^failed to validate buckets\nBrisk table ");
    poke("buckets", 12, 8);
    poke("slots", 12, 9);
    refused("^failed to validate slots\nBrisk table ");
    poke("slots", 12, 2);
    EXPECT_TRUE(std::filesystem::exists(file("corruption-detected")));
    EXPECT_TRUE(r.initialize("test"));
}

TEST_F(Messages, OfProgressAtTheUsualLevels) {
    lines.clear();
    auto w = writer(shrinkable());
    told({"^localMem_:false rootPath:.*/vrf/default/test$", "^to new file .*/slots$",
          "^success .*/test capacity:16 orielId:[0-9]+ mtime:[0-9.e+]+ bolsterInfo:"});
    bool found;
    TestValue value;
    w->lookup(TestKey(1), found, nullptr);
    w->write(TestValue(TestKey(1), 0), true);
    w->write(TestValue(TestKey(1), 1), true);
    w->lookup(TestKey(1), found, nullptr);
    w->remove(TestKey(9), value);
    w->remove(TestKey(1), value);
    w->directWrite(TestValue(TestKey(1), 0));
    w->directCommit();
    w->directWrite(TestValue(TestKey(1), 0));
    w->directCommit();
    told({"^1 not found bucket:[0-9]+$", "^new 1 bucket:[0-9]+ slot:0 next:[0-9]+$",
          "^existing 1 bucket:[0-9]+ slot:0 next:[0-9]+$", "^1 found bucket:[0-9]+ slotId:0$",
          "^9 bucket:[0-9]+ not found$", "^1 bucket:[0-9]+ slot:0$",
          "^1 new  bucket:[0-9]+ slot:0 next:[0-9]+$",
          "^1 existing bucket:[0-9]+ slot:0 next:[0-9]+$"});
    w->write(TestValue(TestKey(63, 0xffffffff), 0), true); // the last of any walk
    fill(*w, 0, 63);
    told({"from 16 to 32 slots$", "^to 32 successfully$", "from 16 slots to 32$",
          "^growing from: 16 to: 32$"});
    IterHint hint;
    for (bool more = w->first(value, hint); more; more = w->next(value.key(), value, hint)) {
    }
    told({"^[0-9]+ found at bucket [0-9]+$", "^[0-9]+ next bucket [0-9]+ using [0-9]+$",
          "^[0-9]+ success [0-9]+ using [0-9]+, saving new slot hint [0-9]+$", "^[0-9]+ failed$"});
    hint = {};
    for (bool more = w->first(value, hint); more; more = w->next(value.key(), value, hint))
        hint = {};
    told({"^[0-9]+ comparing slot [0-9]+ [0-9]+$", "^[0-9]+ next slotId [0-9]+ success [0-9]+$",
          "^[0-9]+ success [0-9]+$", "^[0-9]+ next bucket [0-9]+$"});
    drop(*w, 0, 60);
    told({"^threshold:[0-9]+ shrinkThreshold:32$", "^removing slot id [0-9]+ from free-list$",
          "^skipping not occupied slot:[0-9]+$", "^moving fromSlot:[0-9]+ toSlot:[0-9]+$",
          "^fromSlotId:[0-9]+ toSlotId:[0-9]+$", "^newNumSlots:32$", "from 64 slots to 32$",
          "^at threshold:32 done$", "^shrunk from:64 to:32 shrinkBuckets_:8 time:[0-9]+$"});
    EXPECT_TRUE(w->validate());
    told({"^marked 4 slots$", "^marked 12 free slots$", "^walking slotIndex: [0-9]+$",
          "^slotIndex: [0-9]+$"});
    w->detach(false);
    told({"^clearing bolsterInfo$"});
    w->initialize("again");
    told({"^to existing .*/slots$"});
    drop(*w, 60, 63);
    w->remove(TestKey(63, 0xffffffff), value);
    lines.clear();
    w->first(value, hint);
    told({"^none found!$"});
    w->cleanup();
    told({"^owner:true localMem_:false rootPath:", "^removing Brisk files in .*/test$",
          "^removing file: .*/slots$"});
}

TEST_F(Messages, OfATableThatOutgrowsItsSizeOrShrinksFar) {
    auto w = writer(MapDescriptor(20));
    fill(*w, 0, 21);
    EXPECT_TRUE(heard("^overflowing by 2 slots$"));
    w->cleanup();
    w.reset();
    w = writer(shrinkable());
    fill(*w, 0, 256);
    w->queue().markShrinkStart(); // as if readers had not yet taken up a former shrink
    lines.clear();
    drop(*w, 0, 240);
    EXPECT_TRUE(heard("^shrink started, ignoring shrinkThreshold:128$"));
    w->queue().markShrinkEnd();
    drop(*w, 240, 241);
    EXPECT_TRUE(heard("^threshold:32 shrinkThreshold:128 SUPER SHRINK!$"));
    EXPECT_EQ(w->capacity(), 32U);
    EXPECT_TRUE(w->validate()) << w->lastFinding();
}

TEST_F(Messages, OfLackOfRoom) {
    auto w = writer();
    fill(*w, 0, 16);
    Mem::failMappingAfter(1);
    EXPECT_THAT(raisedBy([&] { fill(*w, 16, 17); }),
                testing::MatchesRegex("failed to resize .*/slots from 16 to 32 slots, needed 6408 "
                                      "bytes. Reason: .+"));
    Mem::failMappingAfter(2); // the slots grow, the buckets do not
    EXPECT_EQ(raisedBy([&] { fill(*w, 16, 17); }), "nothing raised");
    EXPECT_TRUE(heard("^failed to resize .*/buckets from 16 to 32 buckets : .+"));
    EXPECT_EQ(w->buckets(), 16U);
    EXPECT_EQ(w->writerCounters().bucketGrowFailures, 1U);
    Mem::failMappingAfter(0);
    fill(*w, 17, 18);
    EXPECT_EQ(w->buckets(), 32U);
    EXPECT_EQ(contents(*w).size(), 18U);
    EXPECT_TRUE(w->validate()) << w->lastFinding();

    w->detach(false);
    Mem::failMappingAfter(1);
    EXPECT_THAT(raisedBy([&] { w->initialize(""); }),
                testing::MatchesRegex("cannot attach to shmem .*/slots size:3592: .+"));
    Mem::failMappingAfter(2);
    EXPECT_THAT(raisedBy([&] { w->initialize(""); }),
                testing::MatchesRegex("failed to resize .*/slots to size 6408 : .+"));
    Mem::failMappingAfter(0);
    w->initialize("");
    EXPECT_EQ(contents(*w).size(), 18U) << "no attempt has harmed the table";

    auto r = reader();
    EXPECT_EQ(contents(*r).size(), 18U);
    fill(*w, 18, 40);
    bool found = false;
    for (char const* const text : {"^failed to resize .*/slots from 32 to 64",
                                   "^failed to resize .*/buckets from 32 to 64"}) {
        Mem::failMappingAfter(text[21] == 's' ? 1 : 2);
        EXPECT_THAT(raisedBy([&] { r->lookup(TestKey(1), found, nullptr); }),
                    testing::ContainsRegex(text));
    }
    EXPECT_EQ(contents(*r).size(), 40U);
    w->detach(false);
    poke("slots", 0, 0);
    Mem::failMappingAfter(2);
    EXPECT_THAT(raisedBy([&] { w->initialize(""); }),
                testing::MatchesRegex("failed to resize .*/slots to size 3592 : .+"));
}

TEST_F(Messages, OfFilesThatWereTakenOrCut) {
    auto w = writer();
    fill(*w, 0, 10);
    struct {
        char const *name, *cut, *replaced;
    } const rows[] = {
        {"buckets", "/buckets has size 5 wanted:", "/buckets is not the mapped file"},
        {"slots", "/slots has size 5 wanted:", "/slots is not the mapped file"},
        {"yarrow", "/yarrow has 5 bytes, mapped ", "/yarrow has .*, and was replaced"},
        {"yarrow2", "/yarrow2 has 5 bytes, mapped ", "/yarrow2 has .*, and was replaced"},
        {"oriel", "/oriel holds orielId 0x0, wanted ", nullptr},
        {"owner", "/owner is too short: 5 bytes", nullptr},
    };
    std::string const kept = file("kept"), copy = file("copy");
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        std::string const name = file(row.name);
        auto const raises = [&](char const* text) {
            EXPECT_THAT(raisedBy([&] { w->validateFiles(); }), testing::ContainsRegex(text));
        };
        std::filesystem::copy_file(name, copy);
        std::filesystem::resize_file(name, 5);
        raises(row.cut);
        std::ofstream(name) << std::ifstream(copy).rdbuf(); // the same inode
        EXPECT_TRUE(w->validateFiles());
        std::filesystem::create_hard_link(name, kept);
        std::filesystem::rename(copy, name);
        row.replaced ? raises(row.replaced) : void(w->validateFiles());
        std::filesystem::rename(kept, name);
        EXPECT_TRUE(w->validateFiles());
    }
    EXPECT_TRUE(w->validate()) << w->lastFinding();
}

// A shadow's private index, where its memory ends and where it is asked for nothing.
TEST_F(Messages, OfAShadowsIndex) {
    using Slot = Brisk::ValueShadowSlot<TestOps>;
    std::vector<Slot> memory(200);
    Slot* slots = memory.data();
    Brisk::Reader::Counters counters;
    Brisk::SlotCounters bands(16);
    TestOps const ops;
    Brisk::ShadowHashMap<TestKey, Slot> index(*handler_, counters, bands, ops, slots, false);
    Mem::failMappingAfter(1);
    EXPECT_FALSE(index.initialize());
    EXPECT_TRUE(heard("^bucketsMem_.attachAs\\(\\) failed$"));
    EXPECT_TRUE(index.initialize());
    Mem::failMappingAfter(1);
    index.expect(40);
    EXPECT_EQ(index.numBuckets(), 2U);
    index.expect(40);
    EXPECT_EQ(index.numBuckets(), 64U);
    U32 from = ~0U;
    auto const write = [&](U32 slot) {
        slots[slot].value = TestValue(TestKey(slot), 1);
        return index.write(slot, slots[slot], true, false, from);
    };
    for (U32 slot = 0; slot < 64; ++slot) EXPECT_TRUE(write(slot));
    index.expect(4000); // not any more
    EXPECT_TRUE(write(7));
    EXPECT_TRUE(heard("^no index update needed$"));
    Mem::failMappingAfter(1);
    EXPECT_EQ(raisedBy([&] { write(64); }),
              "failed to resize shadow from 64 to 128 buckets : Mem::Local::ANONYMOUS");
    EXPECT_TRUE(index.sound());
    auto const remove = [&](U32 slot) { return index.remove(slot, slots[slot]); };
    for (U32 slot = 17; slot < 65; ++slot) EXPECT_TRUE(remove(slot));
    EXPECT_FALSE(remove(20));
    EXPECT_TRUE(heard("^dead slot 20$"));
    Mem::failMappingAfter(1);
    EXPECT_EQ(raisedBy([&] { remove(16); }),
              "failed to resize shadow from 64 to 32 buckets : Mem::Local::ANONYMOUS");
    for (U32 slot = 0; slot < 16; ++slot) EXPECT_EQ(index.find(TestKey(slot)), slots + slot);
}

TEST_F(Messages, OfDamageThatAnOperationMeets) {
    auto w = writer();
    fill(*w, 0, 10);
    auto& table = w->slotTable();
    auto& header = *table.header;
    // Each harm is undone before the next.
    auto const expect = [&](char const* text, auto harm, auto action, auto undo) {
        SCOPED_TRACE(text);
        harm();
        EXPECT_THAT(raisedBy(action), testing::MatchesRegex(text));
        header.runtimeFlags = 0; // damage leaves the mark
        undo();
    };
    U32 const head = header.freeList;
    expect(
        "the slot table is full but numSlots: 16 and occupiedSlots: 10 are not equal",
        [&] { header.freeList = 0xffffffff; }, [&] { fill(*w, 50, 51); },
        [&] { header.freeList = head; });
    expect(
        "out-of-range index: 16 max:15", [&] { header.freeList = 16; }, [&] { fill(*w, 50, 51); },
        [&] { header.freeList = head; });
    expect(
        "numSlots mismatch, length of freeList: 6, occupiedSlots: 9 do not add up to numSlots: 16",
        [&] { header.occupiedSlots = 9; }, [&] { table.purgeFreeSlots(15); },
        [&] {
            header.occupiedSlots = 10;
            table.slots[14].link.next = 15; // the purge has taken it off the list
        });
    auto& slot = slotOf(*w, 5);
    TestValue const whole = slot.value;
    expect(
        "corrupt key detected, slotId: 5",
        [&] { slot.value = TestValue(TestKey(5, TestKey(5).hash() + 1), 0); },
        [&] { fill(*w, 5, 6); }, [&] { slot.value = whole; });
    U32 const version = slot.slotVersion;
    expect(
        "slotId: 5 not marked as occupied", [&] { slot.slotVersion = 4; }, [&] { fill(*w, 5, 6); },
        [&] { slot.slotVersion = version; });
    // A walk that begins at the free slot's bucket.
    TestValue value;
    IterHint hint;
    auto& entry = w->hashMap().buckets[0];
    auto const link = entry;
    expect(
        "slotId: 12 from bucket: 0 not marked as occupied", [&] { entry.next = 12; },
        [&] { w->first(value, hint); }, [&] { entry = link; });
    // The slow path looks at the hash of the entry that it gives.
    w->first(value, hint);
    Brisk::IterHint unused;
    auto& next = *std::find_if(table.slots.base, table.slots.base + 10, [&](auto& s) {
        return (&s - table.slots.base) != hint.slotIndex &&
               w->hashMap().bucketOf(s.value.key().hash()) ==
                   w->hashMap().bucketOf(value.key().hash());
    });
    if (&next != table.slots.base + 10) {
        U32 const rhash = next.rhash;
        expect(
            "corrupt rhash detected, slotId: [0-9]+ slot.rhash:ffffffff rhash:[0-9a-f]+",
            [&] { next.rhash = 0xffffffff; }, [&] { w->next(value.key(), value, unused); },
            [&] { next.rhash = rhash; });
    }
    EXPECT_THAT(raisedBy([&] { w->hashMap().buckets[16]; }), "out-of-range, index:16 max:15");
    drop(*w, 0, 10);
    auto& last = w->hashMap().buckets[15];
    expect(
        "has bucket cycle detected, bucketCount: 16 numBuckets: 16",
        [&] { last.next = 0x80000000; }, [&] { w->first(value, hint); },
        [&] { last.next = 0xffffffff; });
    EXPECT_TRUE(w->validate()) << w->lastFinding();
}

TEST_F(Messages, OfWhatAValidationFinds) {
    auto w = writer();
    fill(*w, 0, 12);
    drop(*w, 10, 12);
    auto& table = w->slotTable();
    auto& header = *table.header;
    auto& slots = table.slots;
    auto const finding = [&](auto harm, auto undo) {
        harm();
        lines.clear();
        std::string const text = w->validate() ? "sound" : w->lastFinding();
        undo();
        EXPECT_TRUE(text == "sound" || heard("^Brisk .*/test validation failed: "));
        EXPECT_TRUE(w->validate()) << w->lastFinding();
        return text;
    };
    auto const word = [&](U32& at, U32 value) {
        U32 const old = at;
        return finding([&] { at = value; }, [&] { at = old; });
    };
    EXPECT_EQ(finding([&] { header.runtimeFlags = 1; }, [&] { header.runtimeFlags = 0; }),
              "bad critical section runtimeFlags:1");
    EXPECT_EQ(word(header.format, 9), "bad format: 9 wanted:2");
    std::filesystem::copy_file(file("owner"), file("kept"));
    std::ofstream(file("owner")) << "damaged";
    EXPECT_FALSE(w->validate());
    EXPECT_THAT(w->lastFinding(), testing::EndsWith("/owner is too short: 7 bytes wanted:512"));
    std::filesystem::rename(file("kept"), file("owner"));
    header.tableFlags |= Brisk::SlotHeaderCommon::dumpYarrowHeaders;
    EXPECT_EQ(word(header.occupiedSlots, 9),
              "walkedSlots:10 is greater than header->occupiedSlots:9");
    EXPECT_TRUE(heard("pruneMode:.*\ntable 0 generation:"));
    EXPECT_EQ(word(header.occupiedSlots, 11), "mismatch header->occupiedSlots:11 count:10");
    EXPECT_EQ(word(header.freeList, 0xffffffff),
              "bad slotCount:10 occupiedSlots:10 freeSlots:0 capacity:16");
    EXPECT_EQ(word(header.freeList, 17),
              "corrupted free slot detected with out of bound index: 17");
    EXPECT_EQ(word(header.freeList, 16), "out-of-range index: 16 max:15");
    EXPECT_TRUE(heard("^caught: out-of-range index: 16 max:15$"));
    EXPECT_EQ(word(header.freeList, 3), "corrupted free slot not marked as empty: 3");
    U32 const head = header.freeList;
    U32 const second = slots[head].link.next;
    EXPECT_EQ(word(slots[second].link.next, head),
              "duplicate freeSlot detected: " + std::to_string(head));
    EXPECT_EQ(word(slotOf(*w, 4).slotVersion, 7), "stuck LOOKASIDE bit: 0x7");
    EXPECT_THAT(word(slotOf(*w, 4).rhash, slotOf(*w, 4).rhash ^ 1),
                testing::MatchesRegex(
                    "corrupt rhash detected, slotId: 4 slot.rhash:[0-9a-f]{8} rhash:[0-9a-f]{8}"));

    // Two neighbours of a chain change places.
    U32 bucket = 0;
    auto& buckets = w->hashMap().buckets;
    auto const nextOf = [&](U32 slot) -> U32& { return slots[slot].link.next; };
    while (buckets[bucket].endsChain() || nextOf(buckets[bucket].next) >= 16) ++bucket;
    U32 const front = buckets[bucket].next, behind = nextOf(front), rest = nextOf(behind);
    auto const chain = [&](U32 first, U32 then) {
        buckets[bucket].next = first;
        nextOf(first) = then;
        nextOf(then) = rest;
    };
    EXPECT_EQ(finding([&] { chain(behind, front); }, [&] { chain(front, behind); }),
              fmt::format("slot:{} is out of order behind slot:{}", front, behind));

    // The queue. An entry's slot is its second word; fresh files hold table 0 behind two headers.
    auto const entry = [&](U32 position, U32 slot) {
        std::size_t const at = 192 + 8 * position + 4;
        U32 const old = peek("yarrow", at);
        return finding([&] { poke("yarrow", at, slot); }, [&] { poke("yarrow", at, old); });
    };
    U32 const live = w->queue().position(4);
    EXPECT_EQ(entry(live, 14), fmt::format("slot:4 bad notification:{} slot:14", live));
    U32 const freed = w->queue().position(10);
    EXPECT_EQ(entry(freed, 15),
              fmt::format("slot index:10 has slot:15 with wrong yarrow slot:{}", freed));
    // The queue's own count, which some positions then reach beyond.
    auto const count = [&](U32 entries) {
        U32 const old = peek("yarrow", 148);
        return finding([&] { poke("yarrow", 148, entries); }, [&] { poke("yarrow", 148, old); });
    };
    EXPECT_EQ(count(9), "slot:9 bad yarrow index:9 size:9");
    EXPECT_EQ(count(13), "slot index:11 has out of range yarrow slot: 13");
    fill(*w, 4, 5); // leaves a tombstone behind
    EXPECT_EQ(entry(live, 14),
              fmt::format("yarrow pos:{} has slot:14 seq:{} with wrong yarrowSlot:4294967295", live,
                          live + 1));
    w->queue().tombstone(7); // an occupied slot without a notification is sound
    EXPECT_TRUE(w->validate());
    EXPECT_EQ(entry(live, 7), fmt::format("occupied slot:7 on deleted notification:{}", live));
    U32 const now = w->queue().position(4);
    EXPECT_EQ(finding(
                  [&] {
                      poke("yarrow", 48, now + 1);
                      poke("yarrow", 56, now + 1);
                  },
                  [&] {
                      poke("yarrow", 48, 0);
                      poke("yarrow", 56, 0);
                  }),
              fmt::format("corral pos:{} seq:{} slot:4 yarrowPos:{}", now, now + 1, now));

    // What the walk itself cannot reach: the check stands behind the walk's own.
    Brisk::Validator<TestOps> validator(*handler_, *w);
    slots[15].slotVersion = 8;
    EXPECT_EQ(raisedBy([&] { validator.markOccupied(15); }), "missing OCCUPIED bit: 0x8");
    validator.markOccupied(7);
    EXPECT_EQ(raisedBy([&] { validator.markOccupied(7); }), "duplicate slot: 7");
    slots[15].slotVersion = 0;
}

TEST_F(Messages, OfTablesThatCannotBeKept) {
    auto const leave = [&] {
        auto w = writer();
        fill(*w, 0, 3);
    };
    leave();
    std::filesystem::remove(file("buckets"));
    lines.clear();
    { auto w = writer(); }
    EXPECT_TRUE(
        heard("^failed to attach to existing files\\nBrisk table \"vrf/default/test\"\\n\\n\\n"));
    EXPECT_TRUE(heard("owner file: "));
    EXPECT_TRUE(heard("^all entries from .*/test will be lost$"));
    EXPECT_TRUE(heard("^re-formatted .*/slots$"));
    EXPECT_TRUE(heard("^re-formatted successfully$"));
    leave();
    poke("slots", 548, 1 << 16);
    lines.clear();
    { auto w = writer(); }
    EXPECT_TRUE(heard("^failed to validate existing files\\n"));
    leave();
    std::ofstream(file("owner")) << "damaged";
    lines.clear();
    {
        auto w = writer();
        EXPECT_EQ(w->members(), 0U);
    }
    EXPECT_TRUE(heard("^owner file validation failed, dumping owner file string: "));

    // Where it is asked for, a table that is not sound ends its writer, for the core file.
    leave();
    poke("slots", 548, 1 << 16);
    Brisk::Util::runningOnPhysicalDutIs(true);
    Brisk::Util::strictValidationIs(true);
    EXPECT_THAT(raisedBy([&] { writer(); }),
                testing::MatchesRegex("failed initial validation of .*/test after re-attaching"));
    Brisk::Util::runningOnPhysicalDutIs(false);
    Brisk::Util::strictValidationIs(false);
    EXPECT_FALSE(std::filesystem::exists(file("oriel"))) << "so that the next start formats anew";
    {
        auto w = writer();
        EXPECT_EQ(w->members(), 0U);
        std::ofstream(file("owner")) << "damaged";
        w->detach(false);
        EXPECT_TRUE(heard("^ignoring owner file corruption:"));
        w->cleanup();
        EXPECT_TRUE(heard("^owner file corruption detected but continuing with cleanup, dumped "
                          "owner file: "));
    }
    MapDescriptor fixed(5);
    fixed.fixedSize = true;
    lines.clear();
    { auto w = writer(fixed); }
    EXPECT_TRUE(
        heard("^wanted capacity:5 for fixed-size table, but existing file has capacity:0$"));
    fixed.initialSize = 6;
    {
        auto w = writer(fixed);
        EXPECT_EQ(w->capacity(), 6U);
    }
    EXPECT_TRUE(
        heard("^wanted capacity:6 for fixed-size table, but existing file has capacity:5$"));

    Mem::Atomics::cpuSupportIs(false);
    EXPECT_EQ(raisedBy([&] { writer(); }), "Hardware does not support Atomics");
    Mem::Atomics::cpuSupportIs({});
}

TEST_F(Messages, OfMisuseThatEndsTheProcess) {
    auto w = writer();
    fill(*w, 0, 10);
    auto& table = w->slotTable();
    auto& header = *table.header;
    TestValue value;
    Dunlin::traceSinkIs([](auto&&...) {});
    EXPECT_DEATH(
        {
            header.runtimeFlags = 1;
            fill(*w, 0, 1);
        },
        "Brisk reentrancy detected: .*/test");
    header.runtimeFlags = 0; // what the child stored stands in the file
    EXPECT_DEATH(table.addFreeSlots(5, 5), "bad index range, start: 5 end: 5");
    EXPECT_DEATH(table.addFreeSlots(5, 6), "free-list is not empty");
    EXPECT_DEATH(table.purgeFreeSlots(16), "bad threshold: 16 numSlots:16");
    U32 const head = header.freeList;
    EXPECT_DEATH(
        {
            header.freeList = 0xffffffff;
            table.purgeFreeSlots(15);
        },
        "free-list is empty");
    header.freeList = head;
    auto& link = w->hashMap().buckets[0];
    EXPECT_DEATH(table.move(3, 4, link),
                 "should always move entries to lower section fromSlotId:3 toSlotId:4");
    EXPECT_DEATH(table.move(3, 0xffffffff, link), "not valid toSlotId:4294967295");
    EXPECT_DEATH(
        {
            w->directUpdate(TestKey(1));
            w->write(TestValue(TestKey(2), 0), true);
        },
        "unbalanced directSlot:1 containing value:1 when writing value:0 - Make sure the "
        "DirectIs/Commit are properly paired!");
    EXPECT_DEATH(
        {
            w->directUpdate(TestKey(1));
            w->remove(TestKey(2), value);
        },
        "unbalanced directSlot:1 containing value:1 when removing key:2 - Make sure");
    EXPECT_DEATH(
        {
            w->directUpdate(TestKey(1));
            w->directWrite(TestValue(TestKey(2), 0));
        },
        "unbalanced directSlot:1 containing value:1 when modifying key:2 - Make sure");
    EXPECT_DEATH(
        {
            w->directWrite(TestValue(TestKey(20), 3));
            w->detach(false);
        },
        "unbalanced directSlot:10 containing value:3 - Make sure the DirectIs/Commit are properly "
        "paired!");
    EXPECT_DEATH(TestOps::setSlotValue(value), "Not implemented");
    // A slot that no link leads to is occupied in the part that is cut off.
    auto const stray = [&](char const* text, auto occupy) {
        name_ = std::string("vrf/default/") + text;
        auto large = writer(shrinkable());
        fill(*large, 0, 4096);
        drop(*large, 1024, 4096);
        EXPECT_DEATH(
            {
                occupy(*large, large->slotTable().slots[4095]);
                drop(*large, 0, 1);
            },
            text);
    };
    stray("fromSlot:4095 key not found", [](auto&, auto& slot) { slot.slotVersion |= 1; });
    stray("fromSlot:4095 not referenced", [](auto& large, auto& slot) {
        slot.slotVersion |= 1;
        slot.value = slotOf(large, 1000).value;
    });
}

} // namespace
