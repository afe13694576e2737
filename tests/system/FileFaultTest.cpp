// One call of the daemon fails in the middle of an update: once, from then on until the fault is mended,
// short, or with a bit that is wrong. Nothing wrong is flagged meanwhile, and the update completes.
//
// FW_FILE_FAULTS sets the number of rounds, FW_SOAK_SEED the first; as many as there are faults run each
// once.
#include "system/SoakTerminal.h"
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <set>

namespace {

constexpr unsigned RoundsInCi = 6;
constexpr Milliseconds Lasting{400};
constexpr int MostLives = 4; // of a daemon that ends as stated

// What may fail: of each operation the first, one amid the others, and the last.
std::vector<std::string> faultsOf(const std::vector<std::string>& operations) {
    std::map<std::string, unsigned> counts;
    for (const std::string& operation : operations)
        ++counts[operation];
    std::vector<std::string> faults;
    for (const auto& [operation, count] : counts) {
        const bool isDatabase = operation.find("database") != std::string::npos; // checks itself no bits
        const bool hasBytes = operation.rfind("read", 0) == 0 || operation.rfind("write", 0) == 0;
        for (const unsigned number : std::set<unsigned>{1, (count + 1) / 2, count})
            for (const std::string how : {"fail ", "lasting ", "short ", "flip "})
                if (how == "fail " || how == "lasting " || (hasBytes && !isDatabase))
                    faults.push_back(how + operation + " " + std::to_string(number));
    }
    return faults;
}

class FileFault : public testing::Test {
  protected:
    // Until the update is flagged, by itself but for starts of a daemon that has ended.
    std::string complete() {
        for (int life = 0; life < MostLives; ++life) {
            if (!eventually([this] { return mTerminal.isReady() || !mTerminal.daemon().running(); }))
                break;
            if (mTerminal.daemon().running())
                return mTerminal.complaint(true);
            mTerminal.start();
        }
        return "not ready\n" + mTerminal.log();
    }

    SoakTerminal mTerminal;
};

TEST_F(FileFault, LeadsToNoWrongFlagAndHeals) {
    Life life;
    life.isWatched = true;
    mTerminal.start(life);
    ASSERT_EQ(mTerminal.untilReady(), "");
    mTerminal.kill();
    const std::vector<std::string> faults = faultsOf(mTerminal.operations());
    const auto all = static_cast<unsigned>(faults.size());
    const unsigned rounds = std::min(all, numberFrom("FW_FILE_FAULTS", RoundsInCi));
    unsigned reached = 0;
    for (unsigned round = 0; round < rounds && !HasFatalFailure(); ++round) {
        // Far from each other, and all of them in as many rounds.
        life.point = faults[(soakSeed() + uint64_t{round} * all / rounds) % all];
        SCOPED_TRACE(life.point);
        mTerminal.reset();
        mTerminal.start(life);
        const bool isLasting = life.point.rfind("lasting", 0) == 0;
        eventually(
            [&] { return mTerminal.pointTime() || mTerminal.isReady() || !mTerminal.daemon().running(); });
        if (isLasting && mTerminal.pointTime()) {
            std::this_thread::sleep_for(Lasting);
            EXPECT_EQ(mTerminal.complaint(), "") << mTerminal.log();
            mTerminal.heal();
            if (life.point.find("database") != std::string::npos)
                mTerminal.start(); // it may have given up the database for good
            else
                mTerminal.announce();
        }
        reached += mTerminal.pointTime() ? 1 : 0;
        ASSERT_EQ(complete(), "");
        mTerminal.kill();
        EXPECT_LE(mTerminal.newRequests(), HotLoopRequests);
    }
    std::cout << "soak: " << rounds << " of " << all << " faults of file operations, " << reached
              << " reached\n";
}

} // namespace
