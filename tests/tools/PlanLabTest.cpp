// Plans against whole updates in the lab: real daemon, web server and file system.
#include "lab/LabRun.h"
#include "plan/UpdatePlan.h"
#include "support/TemporaryDirectory.h"
#include "tools/planPairs.h"
#include <fstream>
#include <gtest/gtest.h>

namespace {

class Unobserved : public lab::LabObserver {
    void onEvent(const lab::LabEvent&) override {}
};

TEST(PlanAndLab, AgreeRequestForRequest) {
    const support::TemporaryDirectory directory;
    Unobserved observer;
    for (const PlanPair& pair : planPairs()) {
        SCOPED_TRACE(pair.name);
        rig::makeImage(7, pair.pools, pair.text).write(directory.file("image"));
        const hostcfg::Bytes record = hostcfg::build(rig::installedFor(pair.pools));
        std::ofstream(directory.file("record"), std::ios::binary)
            .write(reinterpret_cast<const char*>(record.data()), static_cast<std::streamsize>(record.size()));
        const auto image = imagefile::openImage(directory.file("image"));
        const plan::UpdatePlan plan = plan::makePlan(*image, directory.file("record"));

        lab::LabOptions options;
        options.image = directory.file("image");
        options.installed = directory.file("record");
        options.timeScale = 100;
        options.timeout = std::chrono::seconds(60);
        const lab::WorkDirectory work(directory.file(pair.name));
        const lab::LabResult result = lab::runLab(options, work, observer);
        ASSERT_TRUE(result.isGood()) << lab::getName(result.step) << ": " << result.failure;
        std::vector<std::string> planned;
        for (const plan::Request& request : plan.requests)
            planned.push_back(request.range);
        std::vector<std::string> done;
        for (const lab::LabEvent& event : result.requests)
            done.push_back(event.request.range);
        EXPECT_EQ(planned, done);
        EXPECT_EQ(plan.fetchedBytes(), result.fetchedBytes);
        EXPECT_EQ(plan.updateImageBytes, result.verdict.size);
    }
}

} // namespace
