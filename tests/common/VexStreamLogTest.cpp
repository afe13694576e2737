#include "common/VexStreamLog.h"

#include "common/Scratch.h"
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

namespace {

constexpr auto AboveDebug = static_cast<LogPriority>(8);

// Console output of `action` while std::clog writes to a log buffer of this level.
std::string consoleOf(LogPriority level, const std::function<void()>& action, const char* ident = "prog") {
    return standardOutputOf([&] {
        VexStreamLog log(ident, VexStreamLog::Console, level);
        std::streambuf* saved = std::clog.rdbuf(&log);
        action();
        std::clog.rdbuf(saved);
    });
}

TEST(VexStreamLog, PrintsIdentPriorityAndText) {
    EXPECT_EQ(consoleOf(LogDebug,
                        [] {
                            std::clog << LogInfo << "A::b() " << 7 << std::endl;
                            std::clog << "same priority" << std::endl;
                            VEX_LOG(LogEmergency) << "last";
                        }),
              "prog(LOG_INFO): A::b() 7\n"
              "prog(LOG_INFO): same priority\n"
              "prog(LOG_EMERG): last\n");
    EXPECT_EQ(consoleOf(
                  LogDebug, [] { VEX_LOG(LogWarning) << "x"; }, nullptr),
              "(LOG_WARNING): x\n");
}

TEST(VexStreamLog, LineAboveTheLevelDoesNotLeakIntoTheNext) {
    EXPECT_EQ(consoleOf(LogInfo,
                        [] {
                            std::clog << LogDebug << "dropped" << std::endl;
                            std::clog << LogInfo << "kept" << std::endl;
                        }),
              "prog(LOG_INFO): kept\n");
}

TEST(VexStreamLog, SuppressedStatementIsNotEvaluated) {
    int evaluated = 0;
    const std::string output = consoleOf(LogInfo, [&] {
        VEX_LOG(LogDebug) << ++evaluated;
        VEX_LOG(LogInfo) << ++evaluated;
    });
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(output, "prog(LOG_INFO): 1\n");
}

TEST(VexStreamLog, EmptyFlushPrintsNothing) {
    EXPECT_EQ(consoleOf(LogDebug, [] { std::clog << LogInfo << std::flush; }), "");
}

TEST(VexStreamLog, PriorityOutsideTheRangeHasAnEmptyName) {
    EXPECT_EQ(consoleOf(AboveDebug,
                        [] {
                            std::clog << AboveDebug << "high" << std::endl;
                            std::clog << static_cast<LogPriority>(-1) << "low" << std::endl;
                        }),
              "prog(): high\n"
              "prog(): low\n");
}

TEST(VexStreamLog, PriorityOnAForeignStreamDoesNothing) {
    std::ostringstream stream;
    stream << LogInfo << "text";
    EXPECT_EQ(stream.str(), "text");
}

TEST(VexStreamLog, LinesOfTwoThreadsStayWhole) {
    constexpr int lines = 1000;
    const std::string output = consoleOf(LogDebug, [] {
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
        const char mark = line.compare(0, 17, "prog(LOG_WARNING)") == 0 ? 'w' : 'i';
        const int i = next[mark]++;
        EXPECT_EQ(line, (mark == 'w' ? "prog(LOG_WARNING): w" : "prog(LOG_INFO): i") + std::to_string(i) +
                            " " + std::string(static_cast<size_t>(i % 50), mark));
    }
    EXPECT_EQ(next['w'], lines);
    EXPECT_EQ(next['i'], lines);
}

} // namespace
