#include "updateplan/UpdatePlan.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <gtest/gtest.h>

namespace {

using imagefile::ImageReader;
using updateplan::UpdatePlan;

std::string needed(const UpdatePlan& plan) {
    std::string names;
    for (const auto& part : plan.parts())
        if (part.isNeeded)
            names += part.name() + " ";
    return names;
}

class UpdatePlanTest : public testing::Test {
  protected:
    std::string file(const char* name) const { return mDirectory.file(name); }
    const support::TemporaryDirectory mDirectory;
};

TEST_F(UpdatePlanTest, OfTheSampleNeedsKernelAndRoot) {
    lab::writeSampleImage(file("image"));
    lab::writeSampleRecord(file("record"));
    const ImageReader image(file("image"));
    const UpdatePlan plan(image, file("record"));
    EXPECT_EQ(needed(plan), "kernel root ");
    EXPECT_EQ(plan.neededCount(), 2U);
    EXPECT_EQ(plan.parts().size(), 5U);
    EXPECT_EQ(plan.parts()[1].platform, "4812");
    // Start, headers of three, and two whole parts with one byte behind each.
    EXPECT_EQ(plan.fetchBytes(), 4 * 512 + (64 + 412348 + 1) + (64 + 876544 + 1));
    EXPECT_EQ(updateplan::installedVersion(file("record")), "1.04 3");
}

TEST_F(UpdatePlanTest, OfATerminalWithNothingNeedsAllForItsPlatform) {
    lab::writeSampleImage(file("image"));
    lab::writeEmptyRecord(file("record"));
    const ImageReader image(file("image"));
    EXPECT_EQ(needed(UpdatePlan(image, file("record"))), "kernel root app 3rdapp ");
    EXPECT_EQ(updateplan::installedVersion(file("record")), "0.00 0");
}

// Requests never reach behind the end of the image.
TEST_F(UpdatePlanTest, CountsSmallPartsByTheirFirstRequest) {
    const imagefile::ImageBuilder builder = twoPartImage(600, 5);
    builder.write(file("image"));
    writeFile(file("record"), recordWithRoot({1, 2, 2}));
    const ImageReader image(file("image"));
    EXPECT_EQ(UpdatePlan(image, file("record")).fetchBytes(), 512U + (64 + 600 + 1) + (64 + 5 + 3));
}

TEST_F(UpdatePlanTest, RefusesWhatCannotServeAnUpdate) {
    twoPartImage(100, 100).write(file("image"));
    writeFile(file("record"), recordWithRoot({1, 2, 3}));
    const ImageReader image(file("image"));
    EXPECT_THROW(UpdatePlan(image, file("nothing")), std::runtime_error);
    EXPECT_THROW(UpdatePlan(image, file("image")), std::runtime_error);
    EXPECT_THROW(ImageReader(file("record2")), std::runtime_error);
    imagefile::ImageBuilder empty;
    empty.release({1, 5, 7}, 0, "REL", "Release", true);
    empty.write(file("empty"));
    const ImageReader emptyImage(file("empty"));
    EXPECT_THROW(UpdatePlan(emptyImage, file("record")), std::runtime_error);
}

} // namespace
