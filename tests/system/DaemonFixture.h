// The daemon as a process in a terminal of its own, with bus and configuration.
#ifndef TESTS_SYSTEM_DAEMONFIXTURE_H
#define TESTS_SYSTEM_DAEMONFIXTURE_H

#include "lab/Lab.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>

constexpr lab::Milliseconds Long{30000};
constexpr lab::Milliseconds StopTime{2000}; // a stop takes no longer

// Waits until `condition` holds; false when that takes too long.
template <typename Condition>
bool eventually(Condition condition, lab::Milliseconds time = Long) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(lab::Milliseconds(2));
    }
    return true;
}

// A lab with an image of two parts of the same size, both needed.
class DaemonTest : public testing::Test {
  protected:
    explicit DaemonTest(size_t partSize = 60000, lab::LabOptions options = {}) {
        twoPartImage(partSize, partSize).write(mDirectory.file("image"));
        options.image = mDirectory.file("image");
        options.timeScale = 100;
        mLab = std::make_unique<lab::Lab>(options, mWork);
    }

    bool hasLogged(const std::string& text) const {
        return readText(mLab->daemonLog()).find(text) != std::string::npos;
    }

    // Ends the daemon with a signal; it has to end soon and with status 0.
    void expectStop(int signal) {
        const auto start = std::chrono::steady_clock::now();
        mLab->daemon()->signal(signal);
        ASSERT_TRUE(mLab->daemon()->waitFor(Long));
        EXPECT_LT(std::chrono::steady_clock::now() - start, StopTime);
        EXPECT_TRUE(mLab->daemon()->exitStatus()->isExit(0))
            << mLab->daemon()->exitStatus()->toString() << "\n"
            << readText(mLab->daemonLog());
    }

    const support::TemporaryDirectory mDirectory;
    const lab::WorkDirectory mWork{mDirectory.file("work")};
    std::unique_ptr<lab::Lab> mLab;
};

#endif
