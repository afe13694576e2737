#include "lab/ImageVerdict.h"
#include "lab/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <functional>
#include <gmock/gmock.h>

namespace {

// A terminal that needs the kernel and has the root.
class ImageVerdict : public testing::Test {
  protected:
    ImageVerdict() {
        mSource.write(mDirectory.file("source"));
        writeFile(mDirectory.file("record"), recordWithRoot({1, 2, 3}));
        mReader = std::make_unique<imagefile::ImageReader>(mDirectory.file("source"));
        mPlan = planOf("source");
        mParts = lab::matchParts(mPlan, *mReader);
    }

    plan::UpdatePlan planOf(const char* image) const {
        return plan::makePlan(*imagefile::openImage(mDirectory.file(image)), mDirectory.file("record"));
    }

    // What a right compiler makes of the source.
    static ImageBuilder compiled() {
        ImageBuilder image = twoPartImage(101, 60);
        image.at(3).body.clear(); // the root's
        return image;
    }

    lab::ImageVerdict judge(const Bytes& image) const {
        const std::string file = mDirectory.write("compiled", {image.begin(), image.end()});
        return lab::judgeImage(file, *mReader, mParts);
    }

    const lab::TemporaryDirectory mDirectory;
    const ImageBuilder mSource = twoPartImage(101, 60);
    std::unique_ptr<imagefile::ImageReader> mReader;
    plan::UpdatePlan mPlan;
    std::vector<lab::PlannedPart> mParts;
};

TEST_F(ImageVerdict, SeesEveryDamagedByteAndEveryCut) {
    const Bytes good = compiled().build();
    EXPECT_TRUE(judge(good).isGood());
    for (size_t i = 0; i < good.size(); ++i) {
        Bytes bad = good;
        bad[i] ^= 0x10;
        EXPECT_FALSE(judge(bad).isGood()) << "byte " << i;
        EXPECT_FALSE(judge(Bytes(good.begin(), good.begin() + static_cast<long>(i))).isGood())
            << "cut at " << i;
    }
    Bytes longer = good;
    longer.insert(longer.end(), 4, 0);
    EXPECT_FALSE(judge(longer).isGood());
    EXPECT_FALSE(lab::judgeImage(mDirectory.file("nothing"), *mReader, mParts).isGood());
}

// Images with right checksums, but of the wrong content.
TEST_F(ImageVerdict, SeesWrongContentUnderRightChecksums) {
    const std::pair<const char*, std::function<void(ImageBuilder&)>> rows[] = {
        {"kernel: needed, but only its header is there", [](auto& image) { image.at(2).body.clear(); }},
        {"root: not needed, but its body is there",
         [](auto& image) { image.at(3).body = lab::patternBytes(60, 2); }},
        {"kernel: differs from the source image at its byte 0",
         [](auto& image) { image.at(2).body = lab::patternBytes(101, 9); }},
        {"release: differs from the source image at its byte 0",
         [](auto& image) { image.at(0).extension[0] = 9; }},
        {"suum: differs from the source image at its byte 0", [](auto& image) { image.at(1).body[2] = 'x'; }},
        {"root: its header differs from the source image",
         [](auto& image) { image.at(3).extension[4] = 'x'; }},
        {"parts are release, suum, root, kernel instead of release, suum, kernel, root",
         [](auto& image) { std::swap(image.at(2), image.at(3)); }},
        {"root: missing", [](auto& image) { image.at(3).name = "app"; }},
        {"parts are release, suum, kernel, root, root instead of release, suum, kernel, root",
         [](auto& image) { image.add(image.at(3)); }},
    };
    for (const auto& [fault, change] : rows) {
        ImageBuilder image = compiled();
        change(image);
        EXPECT_THAT(judge(image.build()).faults, testing::Contains(fault));
    }
}

TEST_F(ImageVerdict, TellsPartsOfOneNameApart) {
    ImageBuilder image;
    image.release({1, 5, 7}, 0, "REL-1.05-7", "Release 1.05-7\n", true);
    image.manifest("2,kernel,0,-,-,4813,1.2.3,1\n9,kernel,0,-,-,4813,1.2.4,1\n");
    image.software("kernel", {1, 2, 3}, "kern-build", lab::patternBytes(101, 1));
    image.software("kernel", {1, 2, 4}, "kern-build", lab::patternBytes(77, 2));
    image.write(mDirectory.file("two"));
    const imagefile::ImageReader source(mDirectory.file("two"));
    const plan::UpdatePlan plan = planOf("two");
    EXPECT_TRUE(lab::judgeImage(mDirectory.file("two"), source, lab::matchParts(plan, source)).isGood());
}

} // namespace
