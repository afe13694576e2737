#include "common/VexStreamLog.h"

#include "common/Scratch.h"
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <thread>

namespace {

TEST(VexStreamLog, PrintsIdentPriorityAndText) {
    EXPECT_EQ(logOf(LogDebug,
                    [] {
                        std::clog << LogInfo << "A::b() " << 7 << std::endl;
                        std::clog << "same priority" << std::endl;
                        VEX_LOG(LogEmergency) << "last";
                    }),
              "log(LOG_INFO): A::b() 7\n"
              "log(LOG_INFO): same priority\n"
              "log(LOG_EMERG): last\n");
    EXPECT_EQ(logOf(
                  LogDebug, [] { VEX_LOG(LogWarning) << "x"; }, nullptr),
              "(LOG_WARNING): x\n");
    const std::string foreign = std::string("name\0\t\x1b[2J\x7f\r\n", 13) + "\xc3\xa4 fake(LOG_INFO): line";
    EXPECT_EQ(logOf(LogDebug, [&] { VEX_LOG(LogInfo) << "'" << foreign << "'"; }),
              "log(LOG_INFO): 'name???[2J???\xc3\xa4 fake(LOG_INFO): line'\n");
}

TEST(VexStreamLog, WhatIsAboveTheLevelIsNeitherPrintedNorEvaluated) {
    int evaluated = 0;
    EXPECT_EQ(logOf(LogInfo,
                    [&] {
                        std::clog << LogDebug << "dropped" << std::endl;
                        std::clog << LogInfo << "kept" << std::endl;
                        std::clog << LogInfo << std::flush;
                        VEX_LOG(LogDebug) << ++evaluated;
                        VEX_LOG(LogInfo) << ++evaluated;
                    }),
              "log(LOG_INFO): kept\nlog(LOG_INFO): 1\n");
}

TEST(VexStreamLog, PriorityOutsideTheRangeHasAnEmptyName) {
    constexpr auto aboveDebug = static_cast<LogPriority>(8);
    EXPECT_EQ(logOf(aboveDebug,
                    [] {
                        VEX_LOG(aboveDebug) << "high";
                        VEX_LOG(static_cast<LogPriority>(-1)) << "low";
                    }),
              "log(): high\nlog(): low\n");
    std::ostringstream foreign;
    foreign << LogInfo << "text";
    EXPECT_EQ(foreign.str(), "text");
}

TEST(VexStreamLog, LinesOfTwoThreadsStayWhole) {
    constexpr int lines = 1000;
    const std::string output = logOf(LogDebug, [] {
        const auto log = [](LogPriority priority, char mark) {
            for (int i = 0; i < lines; ++i)
                VEX_LOG(priority) << mark << i << " " << std::string(static_cast<size_t>(i % 50), mark);
        };
        std::thread other(log, LogWarning, 'w');
        log(LogInfo, 'i');
        other.join();
    });

    std::map<char, int> next;
    std::istringstream printed(output);
    for (std::string line; std::getline(printed, line);) {
        const char mark = line.compare(0, 16, "log(LOG_WARNING)") == 0 ? 'w' : 'i';
        const int i = next[mark]++;
        EXPECT_EQ(line, (mark == 'w' ? "log(LOG_WARNING): w" : "log(LOG_INFO): i") + std::to_string(i) + " " +
                            std::string(static_cast<size_t>(i % 50), mark));
    }
    EXPECT_EQ(next['w'], lines);
    EXPECT_EQ(next['i'], lines);
}

} // namespace
