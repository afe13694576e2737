#include "state/VexSystemState.h"

#include <gtest/gtest.h>
#include <set>

namespace {

TEST(VexSystemState, TableIsBuiltBeforeMain) {
    const auto& states = VexSystemState::mStrToStateMap;
    EXPECT_EQ(states.size(), 14U);
    EXPECT_EQ(states.at("unknown"), 0);
    EXPECT_EQ(states.at("WaitVEXNetwork"), 10);
    EXPECT_EQ(states.at("Fatal"), 13);
    EXPECT_EQ(states.count("Unknown"), 0U);
    std::set<int> numbers;
    for (const auto& [name, number] : states)
        numbers.insert(number);
    EXPECT_EQ(numbers.size(), states.size());
}

} // namespace
