#include "vex/kq.h"
#include <csignal>
#include <gtest/gtest.h>

namespace {

TEST(KqDeathTest, PanicSaysWhyAndAborts) {
    EXPECT_EXIT(kq_panic("*** ASSERT in %s at %d\n", "a.c", 7), testing::KilledBySignal(SIGABRT),
                "\\*\\*\\* ASSERT in a\\.c at 7\n");
}

} // namespace
