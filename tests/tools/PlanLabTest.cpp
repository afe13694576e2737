// Plans against whole updates in the lab: real daemon, web server and file system.
#include "lab/TemporaryDirectory.h"
#include "plan/UpdatePlan.h"
#include "system/LabFixtures.h"
#include "tools/PlanPairs.h"
#include <gtest/gtest.h>

namespace {

TEST(PlanAndLab, AgreeRequestForRequest) {
    const lab::TemporaryDirectory directory;
    for (const PlanPair& pair : planPairs()) {
        SCOPED_TRACE(pair.name);
        rig::makeImage(7, pair.pools, pair.text).write(directory.file("image"));
        writeFile(directory.file("record"), hostcfg::build(rig::installedFor(pair.pools)));
        const auto image = imagefile::openImage(directory.file("image"));
        const plan::UpdatePlan plan = plan::makePlan(*image, directory.file("record"));

        lab::LabOptions options;
        options.image = directory.file("image");
        options.installed = directory.file("record");
        options.timeScale = 100;
        options.timeout = std::chrono::seconds(60);
        const lab::LabResult result = runLab(options, directory.file(pair.name));
        ASSERT_EQ(failureOf(result), "");
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
