// A table of images that are damaged or unwise, each in one way, and what `zemp check` says to each.
#include "tools/ZempRun.h"
#include "tools/ZempSamples.h"
#include <ctime>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using imagefile::Bytes;
using imagefile::ImageBuilder;

using Parts = std::vector<std::string>;

// An image as imageOf() makes it, and changed.
std::string image(const std::string& manifest, const Parts& names,
                  const std::function<void(ImageBuilder&)>& change = nullptr) {
    ImageBuilder builder = imageOf(manifest, names);
    if (change)
        change(builder);
    return textOf(builder.build());
}

std::string with(const std::function<void(ImageBuilder&)>& change) {
    return image("# suum\n" + KernelLine + RootLine, {"kernel", "root"}, change);
}

// The good image with another line for the root.
std::string withRootLine(const std::string& line) {
    return image(KernelLine + line, {"kernel", "root"});
}

std::string flipped(size_t offset, char bit = 1, std::string bytes = textOf(goodImage().build())) {
    bytes[offset] = static_cast<char>(bytes[offset] ^ bit);
    return bytes;
}

std::string repeated(int count, const std::string& text) {
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

std::string manifestOf(int comments, const std::string& comment = "# c\n") {
    return image(repeated(comments, comment) + KernelLine + RootLine, {"kernel", "root"});
}

void addGap(ImageBuilder& image) {
    image.at(2).padded = false;
    image.at(2).body.insert(image.at(2).body.end(), 8, 0xAA);
    image.at(2).bodyLength = 600;
    image.at(2).bodyCrc = 0;
}

const auto KernelAt = static_cast<size_t>(goodImage().offsetOf(2));

// Severity and id, where, and an image for which they are to be found.
struct Fault {
    std::string finding;
    std::string where;
    std::string image;
};

std::vector<Fault> faults() {
    ImageBuilder releaseSecond;
    releaseSecond.manifest(KernelLine);
    releaseSecond.release({1, 5, 7}, 0, "REL", "Release\n", true);
    ImageBuilder noManifest;
    noManifest.release({1, 5, 7}, 0, "REL", "Release 1.05-7\n");
    noManifest.software("kernel", {1, 2, 3}, "b", {1});
    const auto oddBody = [](auto& image) { image.at(2).body.resize(598); };
    const auto version = [](unsigned char build, const std::string& id) {
        return imagefile::softwareExtension({1, 2, build}, id);
    };
    return {
        {"error main-header", "offset 8", flipped(12)},
        {"error main-header", "offset 8", with([](auto& image) { image.header.version = 2; })},
        {"error main-header-length", "offset 8",
         with([](auto& image) { image.header.extension.assign(4, 0); })},
        {"error main-body", "offset 24", with([](auto& image) { image.header.bodyCrc = 1; })},
        {"error truncated", "offset 1000", textOf(goodImage().build()).substr(0, 1000)},
        {"warning trailing", "offset 1540", textOf(goodImage().build()) + "tail"},
        {"error part-body", "offset 276", flipped(KernelAt + 64 + 17)},
        {"error part-header", "offset 876", with([](auto& image) { image.at(3).headerCrc = 77; })},
        {"error gap", "offset 876", with(addGap)},
        {"error header-length", "offset 212", with([](auto& image) { image.at(2).extension.resize(36); })},
        {"error part-type", "offset 212", with([](auto& image) { image.at(2).type = 2; })},
        {"warning part-type", "offset 1540", with([](auto& image) {
             image.blob("logo", Bytes{1, 2});
         })},
        {"error part-name", "offset 172", image("2,boot,0,-,-,-,1.2.3,1\n", {"boot"})},
        {"warning empty-part", "offset 212", with([](auto& image) { image.at(2).body.clear(); })},
        {"warning build-id", "offset 244",
         with([&](auto& image) { image.at(2).extension = version(3, std::string(28, 'b')); })},
        {"warning padding", "offset 875", flipped(KernelAt + 64 + 599, 'x', with(oddBody))},
        {"error release", "offset 24", textOf(releaseSecond.build())},
        {"error manifest", "offset 116", textOf(noManifest.build())},
        {"warning part-twice", "offset 1540", with([](auto& image) { image.manifest(RootLine); })},
        {"error release-text", "offset 100", with([](auto& image) {
             image.at(0).body = Bytes{'a', 'b', 'c', 'd', 0};
         })},
        {"error release-text", "offset 100",
         with([](auto& image) { image.at(0).body = imagefile::bytesOf("no zero "); })},
        {"error start", "offset 504",
         with([](auto& image) { image.at(0).body.insert(image.at(0).body.begin(), 388, 'r'); })},
        {"warning start", "offset 116", manifestOf(12, "# " + std::string(60, 'c') + "\n")},
        {"error too-many-lines", "manifest line 41", manifestOf(39)},
        {"warning too-many-lines", "manifest line 41", withRootLine(RootLine + repeated(39, "# c\n"))},
        {"error empty-line", "manifest line 2", withRootLine("\n" + RootLine)},
        {"error zero-byte", "offset 116", withRootLine(std::string(1, '\0') + RootLine)},
        {"error long-line", "manifest line 2",
         withRootLine("4,root,0,/," + std::string(2000, 'f') + ",-,1.2.3,1\n")},
        {"error skipped-line", "manifest line 2", withRootLine("4,root,,/,ext4,-,1.2.3,1\n")},
        {"error skipped-line", "manifest line 2", withRootLine("4,root,0,/,ext4,-,1.2.08,1\n")},
        {"error octal", "manifest line 2", withRootLine("4,root,010,/,ext4,-,1.2.3,1\n")},
        {"warning hexadecimal", "manifest line 2", withRootLine("0x4,root,0,/,ext4,-,1.2.3,1\n")},
        {"error hexadecimal", "manifest line 2", withRootLine("4,root,0,/,ext4,-,abc,1\n")},
        {"error version-minus-one", "manifest line 2", withRootLine("4,root,0,/,ext4,-,1.-1.3,1\n")},
        {"error version-range", "manifest line 2", withRootLine("4,root,0,/,ext4,-,1.258.3,1\n")},
        {"error blank", "manifest line 2", withRootLine("4, root,0,/,ext4,-,1.2.3,1\n")},
        {"warning platform", "manifest line 2", withRootLine("4,root,0,/,ext4,4831,1.2.3,1\n")},
        {"warning more-columns", "manifest line 2", withRootLine("4,root,0,/,ext4,-,1.2.3,1,9\n")},
        {"error index-range", "manifest line 2", withRootLine("200,root,0,/,ext4,-,1.2.3,1\n")},
        {"error index-taken", "manifest line 2", withRootLine("1,root,0,/,ext4,-,1.2.3,1\n")},
        {"error index-twice", "manifest line 2", withRootLine("2,root,0,/,ext4,-,1.2.3,1\n")},
        {"warning index-name", "manifest line 2", withRootLine("7,root,0,/,ext4,-,1.2.3,1\n")},
        {"error no-part", "manifest line 2", withRootLine("5,app,0,-,-,-,1.2.3,1\n")},
        {"error no-part", "manifest line 2", withRootLine("4,root,0,/,ext4,4812,1.2.3,1\n")},
        {"error version-differs", "manifest line 2", withRootLine("4,root,0,/,ext4,-,1.2.4,1\n")},
        {"error part-shared", "manifest line 3", withRootLine(RootLine + "7,root,0,/,-,4813,1.2.3,1\n")},
        {"warning pool-twice", "manifest line 2",
         image(KernelLine + "9,kernel,0,-,-,4813,1.2.4,1\n", {"kernel", "kernel"},
               [&](auto& image) { image.at(3).extension = version(4, "b"); })},
        {"error part-without-element", "offset 176", image(RootLine, {"kernel", "root"})},
        {"warning part-without-element", "offset 840", image(KernelLine, {"kernel", "root"})},
        {"warning partition-size", "manifest line 2", withRootLine("4,root,599,/,ext4,-,1.2.3,1\n")},
        {"error order", "manifest line 2", image(RootLine + KernelLine, {"kernel", "root"})},
        {"error no-elements", "offset 116", image("# nothing\n", {})},
    };
}

struct ZempCheck : ZempRun {
    // Severity and id of each finding, and where it is.
    std::vector<std::pair<std::string, std::string>> check(const std::string& image) {
        scratch.write("i.zemp", image);
        const int status = zemp({"check", "--json", "@i.zemp"});
        EXPECT_EQ(err, "");
        const auto result = nlohmann::json::parse(out);
        EXPECT_EQ(status, result["errors"] > 0 ? 1 : 0);
        std::vector<std::pair<std::string, std::string>> found;
        for (const auto& finding : result["findings"]) {
            const bool hasLine = finding.contains("line");
            found.emplace_back(std::string(finding["severity"]) + " " + std::string(finding["id"]),
                               hasLine ? "manifest line " + finding["line"].dump()
                                       : "offset " + finding["offset"].dump());
            for (const char* const text : {"what", "why", "mend"})
                EXPECT_NE(finding[text], "");
        }
        return found;
    }
};

TEST_F(ZempCheck, FindsEachFault) {
    for (const Fault& fault : faults())
        EXPECT_THAT(check(fault.image), testing::Contains(testing::Pair(fault.finding, fault.where)));
}

TEST_F(ZempCheck, FindsPartsAndImagesThatAreTooLarge) {
    std::ofstream(scratch.file("big")).seekp(78643200 - 1) << '\0';
    ImageBuilder image = imageOf(KernelLine, {});
    image.softwareFromFile("kernel", {1, 2, 3}, "b", scratch.file("big"));
    image.write(scratch.file("big.zemp"));
    EXPECT_EQ(zemp({"check", "@big.zemp"}), 1);
    EXPECT_THAT(out, testing::HasSubstr("[image-size]"));
    EXPECT_THAT(out, testing::HasSubstr("[part-size]"));
}

TEST_F(ZempCheck, IsSilentOnGoodImages) {
    const std::string lines = KernelLine + "3,kernel,0,-,-,4812,1.2.3,1\n" + RootLine;
    const std::string forty = "# forty lines\n" + repeated(34, "#\n") + lines +
                              "5,app,600,-,-,-,01020003,1\r\n6,3rdapp,0,-,-,-,1.2.3,0";
    for (const std::string& good :
         {with(nullptr), textOf(imageOf(lines, {"kernel", "kernel4812", "root"}, 5).build()),
          image(forty, {"kernel", "kernel4812", "root", "app", "3rdapp"})}) {
        scratch.write("i.zemp", good);
        EXPECT_EQ(zemp({"check", "@i.zemp"}), 0);
        EXPECT_EQ(out, "i.zemp: good\n");
    }
}

TEST_F(ZempCheck, TellsWhatWhereWhyAndHowToMend) {
    scratch.write("i.zemp", withRootLine("4,root,0,/,ext4,-,1.2.4,1\n"));
    EXPECT_EQ(zemp({"check", "@i.zemp"}), 1);
    EXPECT_EQ(out, "error: manifest line 2: the line says version 1.02-4, part 'root' at offset 868 1.02-3 "
                   "[version-differs]\n"
                   "    why:  the daemon fetches the part again and again, and gives up\n"
                   "    mend: make the two the same\n"
                   "i.zemp: 1 error, 0 warnings\n");
}

TEST_F(ZempCheck, FindsPartsThatChangedUnderTheirVersion) {
    const auto changed = [](auto& image) { image.at(3).body[5] ^= 1; };
    const auto relabelled = [](auto& image) {
        image.at(3).extension = imagefile::softwareExtension({1, 2, 3}, "another");
    };
    const auto newVersion = [](auto& image) {
        image.at(3).extension = imagefile::softwareExtension({1, 2, 4}, "root-build");
        image.at(3).body[5] ^= 1;
    };
    scratch.write("same.zemp", with(nullptr));
    scratch.write("old.zemp", with(newVersion)); // another version: it may be anything
    for (const auto& [change, status] :
         {std::pair<std::function<void(ImageBuilder&)>, int>{nullptr, 0}, {changed, 1}, {relabelled, 1}}) {
        scratch.write("i.zemp", with(change));
        EXPECT_EQ(zemp({"check", "@i.zemp", "--against", "@old.zemp", "@same.zemp"}), status);
        EXPECT_EQ(
            out.rfind("error: offset 876: root 1.02-3 differs from the one in 1.05-7 [version-reused]\n", 0),
            status == 1 ? 0U : std::string::npos)
            << out;
    }
    refuses({"check", "@i.zemp", "--against", "@none.zemp"}, "none.zemp: No such file or directory");
    scratch.write("old.zemp", flipped(400));
    refuses({"check", "@i.zemp", "--against", "@old.zemp"}, "old.zemp: is damaged; 'zemp check' says more");
    refuses({"check", "@i.zemp", "--against", "http://u/o.zemp"},
            "http://u/o.zemp: only a file can be compared; fetch it first");
}

TEST_F(ZempCheck, TakesTimeInProportionToTheParts) {
    const auto leastTime = [this](int parts, bool isSoftware) {
        ImageBuilder builder = imageOf(KernelLine, {"kernel"}, 4);
        for (int i = 0; i < parts; ++i) {
            if (isSoftware)
                builder.software("root", {1, 2, 3}, "b", {1});
            else
                builder.blob("other", {});
        }
        builder.software("root", {1, 2, 3}, "b", {1});
        builder.write(scratch.file("i.zemp"));
        clock_t least = 0;
        for (int i = 0; i < 3; ++i) {
            const clock_t begin = clock();
            zemp({"check", "@i.zemp"});
            const clock_t time = clock() - begin;
            least = i == 0 ? time : std::min(least, time);
        }
        return least;
    };
    for (const bool isSoftware : {true, false})
        EXPECT_LT(leastTime(32000, isSoftware), leastTime(4000, isSoftware) * 20) << isSoftware;
}

// Whatever single byte is damaged, and wherever the image ends, it is found.
TEST_F(ZempCheck, FindsEveryFlippedByteAndEveryCut) {
    const std::string good = textOf(imageOf(KernelLine + RootLine, {"kernel", "root"}, 6).build());
    for (size_t i = 8; i < good.size(); ++i) {
        ASSERT_FALSE(check(flipped(i, 0x10, good)).empty()) << i;
        if (i < 24)
            continue; // no main header, so no image
        ASSERT_FALSE(check(good.substr(0, i)).empty()) << i;
    }
}

} // namespace
