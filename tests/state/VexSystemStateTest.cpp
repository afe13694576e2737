#include "state/VexSystemState.h"

#include <gtest/gtest.h>

namespace {

TEST(VexSystemState, TableIsBuiltBeforeMain) {
    const auto& states = VexSystemState::mStrToStateMap;
    EXPECT_EQ(states.size(), 14U);
    EXPECT_EQ(states.at("unknown"), 0);
    EXPECT_EQ(states.at("WaitVEXNetwork"), 10);
    EXPECT_EQ(states.at("Fatal"), 13);
    EXPECT_EQ(states.count("Unknown"), 0U);
}

} // namespace
