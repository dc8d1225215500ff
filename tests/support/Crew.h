// Processes that work over one shared block until they are told to stop or one of them complains.
#pragma once

#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace Support {

class Crew {
public:
    // Both stand in the shared block.
    Crew(Complaint& complaint, std::atomic<bool>& stop) : complaint_(complaint), stop_(stop) {}

    // Runs `work()` in a process of its own: it gives 0, and raises nothing.
    template <class Work>
    void add(Work work) {
        children_.push_back(std::make_unique<Child>([this, work](Child&) {
            try {
                return work();
            } catch (std::exception const& e) {
                complaint_.say("exception: {}", e.what());
                return 0;
            }
        }));
    }
    // In the order in which they were added.
    Child& operator[](std::size_t number) const { return *children_[number]; }
    bool ranFor(double seconds) const {
        return std::chrono::steady_clock::now() - start_ > std::chrono::duration<double>(seconds);
    }
    void finish() {
        stop_ = true;
        for (auto& child : children_) EXPECT_EQ(child->join(), 0);
        children_.clear();
        EXPECT_FALSE(complaint_.any()) << complaint_.text();
    }

private:
    Complaint& complaint_;
    std::atomic<bool>& stop_;
    std::vector<std::unique_ptr<Child>> children_;
    std::chrono::steady_clock::time_point const start_ = std::chrono::steady_clock::now();
};

} // namespace Support
