// Hears every line that is traced, at all levels, in place of the usual output.
#pragma once

#include "Dunlin/Exception.h"
#include "Dunlin/Trace.h"

#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

namespace Support {

class Ear {
public:
    Ear() {
        Dunlin::Platform::debugMaskIs("*", 0x3ff);
        Dunlin::traceSinkIs([this](auto&&, unsigned, std::string_view, std::string const& text) {
            lines.push_back(text);
        });
    }
    ~Ear() {
        Dunlin::traceSinkIs({});
        Dunlin::Platform::debugMaskIs("*", Dunlin::Platform::DebugHandler::defaultMask);
    }
    Ear(Ear const&) = delete;
    Ear& operator=(Ear const&) = delete;

    // Runs `action`; its exception counts as one more line.
    template <class Action>
    std::string raisedBy(Action action) {
        lines.clear();
        try {
            action();
        } catch (Dunlin::Exception const& e) {
            lines.push_back(e.message());
            return e.message();
        }
        return "nothing raised";
    }
    // Whether a line was heard in which the pattern (an ECMAScript expression) is found.
    testing::AssertionResult heard(std::string const& pattern) const {
        std::regex const expression(pattern);
        for (auto const& line : lines)
            if (std::regex_search(line, expression)) return testing::AssertionSuccess();
        auto result = testing::AssertionFailure() << "not heard: " << pattern << "\n";
        for (std::size_t i = 0; i < lines.size() && i < 50; ++i) result << "  " << lines[i] << "\n";
        return result << "  " << lines.size() << " lines";
    }

    // Each of them was heard since the last call.
    void told(std::initializer_list<char const*> patterns) {
        for (char const* const pattern : patterns) EXPECT_TRUE(heard(pattern));
        lines.clear();
    }

    std::vector<std::string> lines;
};

} // namespace Support
