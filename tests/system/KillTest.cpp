// The daemon is killed at named points and at random moments, with and without a loss of what was not synced.
// Whatever is flagged afterwards is right, and the next start leads to a right image.
//
// FW_KILL_POINTS and FW_KILL_MOMENTS set the number of rounds, FW_SOAK_SEED the first seed: a round that has
// failed is repeated by its seed with one round.
#include "system/SoakTerminal.h"
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <set>

namespace {

constexpr unsigned PointsInCi = 3;
constexpr unsigned MomentsInCi = 2;
constexpr Milliseconds UpdateTime{500};  // of an undisturbed update, about
constexpr Milliseconds CompileTime{150}; // of 60 MB, at least

constexpr const char* Losses[] = {"none", "cut", "zero"};

// What one update does to its files: a row for every moment between two operations.
struct Point {
    std::string name;      // "before write image 3"
    bool isOfCompile;      // comes again when the image is compiled anew
    std::string operation; // "write image"
};

std::vector<Point> pointsOf(const std::vector<std::string>& operations) {
    std::vector<Point> points;
    std::map<std::string, int> counts;
    for (const std::string& operation : operations) {
        const std::string numbered = operation + " " + std::to_string(++counts[operation]);
        const bool isWrite = operation.rfind("write", 0) == 0;
        for (const char* const position : {"before", "amid", "after"})
            if (isWrite || std::string(position) != "amid")
                points.push_back({std::string(position).append(" ").append(numbered),
                                  operation.find("fragment") == std::string::npos, operation});
    }
    return points;
}

bool changesNothing(const std::string& operation) {
    return operation.rfind("open", 0) == 0 || operation.rfind("read", 0) == 0;
}

class Kill : public testing::Test {
  protected:
    // Starts the daemon as the round wants it: in a fresh terminal, or with an image flagged that is about to
    // be compiled anew.
    void begin(const Life& life, bool isFlagged) {
        mTerminal.reset();
        if (isFlagged) {
            mTerminal.start();
            ASSERT_EQ(mTerminal.untilReady(), "");
        }
        mTerminal.start(life);
        if (isFlagged) {
            ASSERT_TRUE(eventually([this] { return mTerminal.isReady(); })) << mTerminal.log();
            mTerminal.announce();
        }
    }

    // Killed once or not on the way; then until ready, and stopped.
    void recover(Random& random, bool isFlagged) {
        if (random() % 2 == 0) {
            mTerminal.start();
            std::this_thread::sleep_for(randomTime(random, UpdateTime));
            mTerminal.kill();
            EXPECT_EQ(mTerminal.complaint(), "") << mTerminal.log();
            ++mKills["at a random moment"];
        }
        const bool wasReady = isFlagged || !mTerminal.lab().config()->readyForInstall().empty();
        mTerminal.start();
        ASSERT_EQ(mTerminal.untilReady(), "");
        ASSERT_EQ(mTerminal.stop(SIGTERM), "");
        // A compile clears up after the one that was killed.
        EXPECT_TRUE(wasReady || !mTerminal.hasPartialImage());
    }

    void countRequests() {
        const size_t requests = mTerminal.newRequests();
        EXPECT_LE(requests, HotLoopRequests);
        mRequests += requests;
        mMostRequests = std::max(mMostRequests, requests);
    }

    void printFigures(unsigned rounds) const {
        std::cout << "soak: " << rounds << " rounds from seed " << soakSeed() << ", " << mRequests
                  << " requests, at most " << mMostRequests << " in a round, slowest stop "
                  << mTerminal.slowestStop().count() << " ms\n";
        for (const auto& [point, count] : mKills)
            std::cout << "soak:   " << count << " kills " << point << "\n";
    }

    SoakTerminal mTerminal;
    std::map<std::string, unsigned> mKills; // by point
    size_t mRequests = 0;
    size_t mMostRequests = 0;
};

TEST_F(Kill, AtNamedPoints) {
    Life survey;
    survey.isWatched = true;
    mTerminal.start(survey);
    ASSERT_EQ(mTerminal.untilReady(), "");
    ASSERT_EQ(mTerminal.stop(SIGTERM), "");
    std::vector<std::string> operations = mTerminal.operations();
    operations.erase(std::remove_if(operations.begin(), operations.end(), changesNothing), operations.end());
    const std::set<std::string> kinds(operations.begin(), operations.end());
    EXPECT_EQ(kinds,
              (std::set<std::string>{"rename fragment", "rename image", "sync database", "sync directory",
                                     "sync image", "unlink body", "unlink image", "write body",
                                     "write database", "write fragment", "write image"}));
    const std::vector<Point> points = pointsOf(operations);
    countRequests();

    // Neighbouring seeds take points that lie far from each other.
    const unsigned rounds = numberFrom("FW_KILL_POINTS", PointsInCi);
    const size_t stride = points.size() * 5 / 8 | 1;
    for (unsigned seed = soakSeed(); seed < soakSeed() + rounds && !HasFatalFailure(); ++seed) {
        Random random(seed);
        const Point& point = points[seed * stride % points.size()];
        const std::string loss = Losses[random() % 3];
        const bool isFlagged = point.isOfCompile && random() % 2 == 0;
        SCOPED_TRACE("seed " + std::to_string(seed) + ": " + point.name + ", loss " + loss +
                     (isFlagged ? ", compiled anew" : ""));
        Life life;
        life.point = point.name;
        life.loss = loss;
        ASSERT_NO_FATAL_FAILURE(begin(life, isFlagged));
        // What comes in pieces from the network may make fewer operations than before.
        ASSERT_TRUE(eventually([&] {
            return !mTerminal.daemon().running() || mTerminal.hasLogged("Wait for update from");
        })) << mTerminal.log();
        const bool isKilled = mTerminal.daemon().waitFor(Milliseconds(200));
        mTerminal.kill();
        EXPECT_TRUE(!isKilled || mTerminal.daemon().exitStatus()->isExit(128 + SIGKILL)) << mTerminal.log();
        ++mKills[isKilled ? point.name.substr(0, point.name.find(' ')) + " " + point.operation
                          : "at a point that was not reached"];
        EXPECT_EQ(mTerminal.complaint(), "") << mTerminal.log();
        ASSERT_NO_FATAL_FAILURE(recover(random, isFlagged));
        countRequests();
    }
    printFigures(rounds);
}

// As soon as the flag is on disk, what it names must be there too.
TEST_F(Kill, WithALossRightAfterTheFlag) {
    for (const char* const loss : {"cut", "zero"}) {
        SCOPED_TRACE(std::string("loss ") + loss);
        Life life;
        life.point = "after sync database 1";
        life.loss = loss;
        life.delay = Milliseconds(200); // others can see the flag a moment later
        ASSERT_NO_FATAL_FAILURE(begin(life, false));
        ASSERT_TRUE(mTerminal.daemon().waitFor(VeryLong)) << mTerminal.log();
        ASSERT_EQ(mTerminal.complaint(true), "");
        mTerminal.newRequests();
        mTerminal.start();
        ASSERT_EQ(mTerminal.untilReady(), "");
        EXPECT_EQ(mTerminal.newRequests(), 0U) << "the image that is there is to be used";
        mTerminal.kill();
    }
}

// What is flagged stays whole until the image that is compiled anew takes its place.
TEST_F(Kill, WhileAFlaggedImageIsWrittenAnew) {
    Life life;
    life.point = "amid write image 3";
    life.loss = "cut";
    ASSERT_NO_FATAL_FAILURE(begin(life, true));
    ASSERT_TRUE(mTerminal.daemon().waitFor(VeryLong)) << mTerminal.log();
    EXPECT_EQ(mTerminal.complaint(true), "");
}

TEST_F(Kill, AtRandomMoments) {
    const unsigned rounds = numberFrom("FW_KILL_MOMENTS", MomentsInCi);
    for (unsigned seed = soakSeed(); seed < soakSeed() + rounds && !HasFatalFailure(); ++seed) {
        Random random(seed);
        const bool isFlagged = random() % 4 == 0;
        const Milliseconds moment = randomTime(random, UpdateTime);
        SCOPED_TRACE("seed " + std::to_string(seed) + ": after " + std::to_string(moment.count()) + " ms" +
                     (isFlagged ? ", compiled anew" : ""));
        ASSERT_NO_FATAL_FAILURE(begin({}, isFlagged));
        std::this_thread::sleep_for(moment);
        mTerminal.kill();
        ++mKills["at a random moment"];
        EXPECT_EQ(mTerminal.complaint(), "") << mTerminal.log();
        ASSERT_NO_FATAL_FAILURE(recover(random, isFlagged));
        countRequests();
    }
    printFigures(rounds);
}

// Bodies that take a while, so that the moments lie within their copies, check sums and syncs.
TEST(KillInACompile, OfLargeBodiesFlagsNothingWrongAndFetchesNothingAnew) {
    const lab::TemporaryDirectory directory;
    twoPartImage(30000000, 30000001).write(directory.file("image"));
    SoakTerminal terminal(SoakTimeScale, 0, directory.file("image"));
    terminal.start();
    ASSERT_EQ(terminal.untilReady(), "");
    terminal.kill();
    terminal.newRequests();
    const unsigned rounds = numberFrom("FW_KILL_MOMENTS", MomentsInCi);
    unsigned within = 0;
    for (unsigned seed = soakSeed(); seed < soakSeed() + rounds && !HasFatalFailure(); ++seed) {
        Random random(seed);
        const Milliseconds moment = randomTime(random, CompileTime);
        SCOPED_TRACE("seed " + std::to_string(seed) + ": after " + std::to_string(moment.count()) + " ms");
        const std::string temporary = terminal.work().temporary() + "/zempparts";
        std::filesystem::remove(temporary);
        terminal.unflag();
        terminal.start();
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(temporary); })) << terminal.log();
        std::this_thread::sleep_for(moment);
        terminal.kill();
        within += std::filesystem::exists(temporary) || terminal.hasPartialImage() ? 1 : 0;
        EXPECT_EQ(terminal.complaint(), "") << terminal.log();
        terminal.start();
        ASSERT_EQ(terminal.untilReady(), "");
        EXPECT_EQ(terminal.newRequests(), 0U);
        EXPECT_FALSE(terminal.hasPartialImage());
        terminal.kill();
    }
    EXPECT_GT(within, 0U);
    std::cout << "soak: " << rounds << " kills from seed " << soakSeed() << ", " << within
              << " within the compile of large bodies\n";
}

} // namespace
