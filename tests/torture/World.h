// A small table with its three sides: a writer, a plain reader and a follower (the store of a shadow
// behind the queue), each of which performs random operations and judges what it is told.
#pragma once

#include "tests/torture/Follower.h"
#include "tests/torture/Sides.h"
#include "tests/torture/Truth.h"

namespace Support {

class World {
public:
    static constexpr U32 bytes = 16;
    using T = Table<bytes>;
    using Value = T::Value;
    static constexpr char const* name = "schedules";

    // All that is drawn for a table from its seed.
    struct Setting {
        Brisk::MapDescriptor descriptor;
        U32 slots, buckets, queueEntries;
        bool connected, values;
        U32 keys, clashes; // clashes: 0 spread hashes, else so many different ones
    };
    explicit World(U64 seed);
    ~World();

    // One schedule: a few rounds of operations of all sides, cut anywhere, and a look at what is at
    // rest after each.
    void schedule(U64 seed);
    static constexpr int rounds = 4;
    std::string const& fault() const { return sides_.fault(); }
    std::string trace() const { return sides_.trace(); }
    std::string setting() const;
    // What happened on this table so far.
    struct Counts {
        U64 steps = 0, moves = 0, growths = 0, shrinks = 0, compactions = 0, overtakes = 0;
        U64 generations = 0;
    };
    Counts const& counts();

private:
    // Hears for the client of a shadow, and judges.
    class Client : public FollowerOf<bytes> {
    public:
        Client(World& world) : FollowerOf(name, world.setting_.values), world_(world) {}
        bool flushing = false;
        U32 incarnation = 0; // of the writer beside whom it walked

    private:
        void doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) override;
        void toldValue(Value const& value) override;
        void toldDelete(TestKey const& key) override;
        World& world_;
        U64 slotFrom_ = 0;
        std::map<U32, U64> toldAt_; // when the slot was looked at that led to the last callback
    };
    using Side = Sides::Side;

    static Setting drawn(U64 seed);
    TestKey keyOf(U32 id) const;
    std::pair<U32, U32> placeOf(U32 id) const;
    Value valueOf(U32 id) { return Value(keyOf(id), ++stamp_); }

    void play(Dice& dice);
    enum class Trigger { none, slotShrink, bucketShrink, slotGrowth, bucketGrowth, compaction };
    void prepare(Dice& dice);
    void prepare(Side&);
    void pull(Side&);
    void write(Side&);
    void writeOnce(Side&, U32 choice);
    void fill(Side&);
    void drainTo(Side&, U32 count);
    void put(Side&, U32 id);
    void remove(Side&, U32 id);
    void direct(Side&, U32 id, bool update);
    void turn(Side&);
    void comeAgain(Side&, bool newGeneration);

    void read(Side&);
    void lookUp(Side&, U32 id);
    void readSlot(U32 slot);
    void walk(Side&);
    void stepOn();
    void judgeStep(bool found, Value const& value, U32 after, U64 from);
    bool attached(bool atRest = false);

    void follow(Side&);
    void connect();
    void hear();
    void walkAll();
    void report();
    void keepUp(bool atRest = false);

    void countWriter();
    void judgeWriter(bool validate);
    void judgeReader();
    void judgeFollower();
    template <class... A>
    void complain(fmt::format_string<A...> format, A&&... args) {
        sides_.complain(format, std::forward<A>(args)...);
    }

    static constexpr U32 noKey = ~0U;
    Setting setting_;
    Truth truth_;
    Sides sides_;
    std::unique_ptr<T::Writer> writer_;
    std::unique_ptr<T::Reader> reader_;
    std::unique_ptr<Client> client_;
    Mem::Fd connection_;
    U32 stamp_ = 0;
    U32 writeBias_ = 50;   // of 100 changes so many are writes
    U64 renewedUntil_ = 0; // a new generation was in the making at this time, or is
    bool renewing_ = false;
    bool away_ = false;      // no writer is attached
    bool toConnect_ = false; // once there is one
    Value at_;               // where the reader's walk is
    Brisk::IterHint hint_;
    U32 atKey_ = noKey;
    bool walking_ = false;
    Trigger trigger_ = Trigger::none; // what the writer's next operation shall do
    bool preparing_ = false;
    U32 favourite_ = 0; // what the reader does most often in this schedule
    Counts counts_;
    U64 compactions_ = 0; // of them, those counted
    Side& writing_;
    Side& reading_;
    Side& following_;
};

} // namespace Support
