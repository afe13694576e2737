#include "updateplan/UpdatePlan.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <gmock/gmock.h>

namespace {

using updateplan::UpdatePlan;

// The parts that are needed of an image, and the bytes to fetch, by its own measure.
std::string planOf(const std::string& imageFile, const std::string& record) {
    const imagefile::ImageReader image(imageFile);
    const UpdatePlan plan(image, record);
    std::string text;
    for (const auto& part : plan.parts())
        text += part.isNeeded ? part.name() + " " : "";
    return text + std::to_string(plan.fetchBytes());
}

TEST(UpdatePlan, NamesWhatIsNeededAndCountsItsBytes) {
    const support::TemporaryDirectory directory;
    const std::string image = directory.file("image");
    const std::string record = directory.file("record");
    lab::writeSampleImage(image);
    lab::writeSampleRecord(record);
    // Start, headers of three, and two whole parts with one byte behind each.
    EXPECT_EQ(planOf(image, record),
              "kernel root " + std::to_string(4 * 512 + (64 + 412348 + 1) + (64 + 876544 + 1)));
    EXPECT_EQ(updateplan::installedVersion(record), "1.04 3");
    lab::writeEmptyRecord(record);
    EXPECT_THAT(planOf(image, record), testing::StartsWith("kernel root app 3rdapp "));
    EXPECT_EQ(updateplan::installedVersion(record), "0.00 0");

    // Requests never reach behind the end of the image.
    twoPartImage(600, 5).write(image);
    writeFile(record, recordWithRoot({1, 2, 2}));
    EXPECT_EQ(planOf(image, record), "kernel root " + std::to_string(512 + (64 + 600 + 1) + (64 + 5 + 3)));

    EXPECT_THROW(planOf(image, directory.file("nothing")), std::runtime_error);
    EXPECT_THROW(planOf(image, image), std::runtime_error);
    EXPECT_THROW(planOf(directory.file("nothing"), record), std::runtime_error);
    imagefile::ImageBuilder empty;
    empty.release({1, 5, 7}, 0, "REL", "Release", true);
    empty.write(image);
    EXPECT_THROW(planOf(image, record), std::runtime_error);
}

} // namespace
