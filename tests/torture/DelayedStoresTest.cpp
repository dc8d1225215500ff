// Stores may show in another order than the program's wherever nothing forbids it. While the writer
// runs, each of its stores is recorded with its order; after each, a reader is shown memory as it
// would look with that store out and an earlier one, or a run of them, still held back, and must find
// what it may find. A missing fence or release shows here although this machine never reorders them.
#include "tests/support/TempBase.h"
#include "tests/torture/Reads.h"

#include <bit>
#include <cstdlib>

namespace {

using namespace Support;
using Mem::StepHooks::Order;

// The stores since the last fence, and the views of memory that they allow. A release store that is
// out has all earlier ones out; one that is held back may be passed by later relaxed ones.
class DelayedStores {
public:
    // Which of the writer's orders are ignored, to prove that the reads notice.
    enum class Weakness { none, noFences, noReleases };

    // `look` is called for each view.
    DelayedStores(Weakness weakness, std::function<void()> look)
        : weakness_(weakness), look_(std::move(look)) {
        current = this;
        Mem::StepHooks::onOrder = [](void* at, std::size_t size, Order order) {
            current->next(at, size, order);
        };
    }
    ~DelayedStores() { Mem::StepHooks::onOrder = nullptr; }
    DelayedStores(DelayedStores const&) = delete;
    DelayedStores& operator=(DelayedStores const&) = delete;

    // After the operation.
    void finish() { next(nullptr, 0, Order::fence); }
    U32 views() const { return views_; }

private:
    struct Store {
        char* at;
        U32 size;
        U32 unit; // the words of one copy are held back together
        Order order;
        U64 before, after;
        bool held;
    };
    static inline DelayedStores* current = nullptr;

    void next(void* at, std::size_t size, Order order) {
        if (!stores_.empty() && !seen_) {
            Store& last = stores_.back();
            std::memcpy(&last.after, last.at, last.size);
            if (last.order != Order::copied || std::has_single_bit(++copiedWords_)) showViews();
            seen_ = true;
        }
        if (order == Order::fence && weakness_ != Weakness::noFences) stores_.clear();
        char here;
        if (!at || std::abs(static_cast<char*>(at) - &here) < 8 << 20)
            return; // a variable on the stack
        if (order == Order::release && weakness_ == Weakness::noReleases) order = Order::relaxed;
        bool const goesOn = order == Order::copied && !stores_.empty() &&
                            stores_.back().order == Order::copied &&
                            stores_.back().at + stores_.back().size == at;
        if (!goesOn) {
            ++unit_;
            copiedWords_ = 0;
        }
        Store store{static_cast<char*>(at), static_cast<U32>(size), unit_, order, 0, 0, false};
        std::memcpy(&store.before, at, size);
        stores_.push_back(store);
        seen_ = false;
    }

    // The last store is out. What is held back: one unit, or all from one unit on.
    void showViews() {
        if (stores_.back().order == Order::release) return show([](Store const&) { return false; });
        for (U32 unit = stores_.front().unit; unit < stores_.back().unit; ++unit) {
            show([&](Store const& s) {
                return s.unit == unit || (s.unit > unit && s.order == Order::release);
            });
            show([&](Store const& s) { return s.unit >= unit; });
        }
    }
    template <class Held>
    void show(Held held) {
        ++views_;
        for (Store& store : stores_) store.held = &store != &stores_.back() && held(store);
        for (auto store = stores_.rbegin(); store != stores_.rend(); ++store)
            std::memcpy(store->at, &store->before, store->size);
        for (Store const& store : stores_)
            if (!store.held) std::memcpy(store.at, &store.after, store.size);
        Mem::StepHooks::inside = true;
        look_();
        Mem::StepHooks::inside = false;
        for (Store const& store : stores_) std::memcpy(store.at, &store.after, store.size);
    }

    Weakness weakness_;
    std::function<void()> look_;
    std::vector<Store> stores_;
    U32 unit_ = 0;
    U32 copiedWords_ = 0;
    U32 views_ = 0;
    bool seen_ = true; // the views of the last store
};

struct Told {
    U32 views = 0, bad = 0;
    std::string first; // what the first bad view gave
};

Told showAll(Scenario<valueBytes> const& scenario, DelayedStores::Weakness weakness) {
    Told told;
    Pair pair = prepared(scenario, "delayed");
    auto const reads = readsFor(pair.before, pair.after);
    auto const complain = [&](std::string const& text) {
        if (told.bad++ == 0) told.first = text;
    };
    DelayedStores stores(weakness, [&] {
        for (Read const& read : reads) try {
                if (auto const result = read.run(*pair.reader, pair.before, pair.after); !result)
                    complain(fmt::format("{}: {}", read.name, result.message()));
            } catch (std::exception const& e) {
                complain(fmt::format("{}: exception to the reader: {}", read.name, e.what()));
            }
    });
    scenario.run(*pair.writer);
    stores.finish();
    told.views = stores.views();
    EXPECT_EQ(T::walked(*pair.reader), pair.after);
    tidy(pair);
    return told;
}

TEST(DelayedStores, ThatTheirOrdersAllowLeaveEachReadRight) {
    TempBase const base;
    for (auto const& scenario : scenarios<valueBytes>()) {
        auto const told = showAll(scenario, DelayedStores::Weakness::none);
        fmt::print("{:32}{:8} views\n", scenario.name, told.views);
        EXPECT_EQ(told.bad, 0U) << scenario.name << ": " << told.first;
        EXPECT_GT(told.views, 10U);
    }
}

// The same reads notice where an order is missing.
TEST(DelayedStores, ThatAFenceOrAReleaseShouldForbidAreNoticed) {
    TempBase const base;
    auto const bad = [](char const* name, DelayedStores::Weakness weakness) {
        for (auto const& scenario : scenarios<valueBytes>())
            if (scenario.name == name) return showAll(scenario, weakness).bad;
        ADD_FAILURE() << "no scenario " << name;
        return 0U;
    };
    using enum DelayedStores::Weakness;
    for (char const* name : {"overwrite", "directWrite of a known key", "directUpdate"})
        EXPECT_GT(bad(name, noFences), 0U) << name << " without fences";
    for (char const* name :
         {"insert", "insert into a slot used before", "overwrite", "directWrite of a new key",
          "remove", "slot growth", "bucket growth", "slot shrink"})
        EXPECT_GT(bad(name, noReleases), 0U) << name << " without releases";
}

} // namespace
