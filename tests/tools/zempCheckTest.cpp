// A table of images that are damaged or unwise, each in one way, and what `zemp check` says to each.
#include "tools/zempRun.h"
#include "tools/zempSamples.h"
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

namespace {

using imagefile::ImageBuilder;

struct Fault {
    const char* finding; // severity and id, as they are to be found
    const char* where;
    std::function<std::string()> image;
};

// The good image with another line for the root.
std::string withRootLine(const std::string& line) {
    return textOf(imageOf(KernelLine + line, {"kernel", "root"}).build());
}

std::string with(const std::function<void(ImageBuilder&)>& change) {
    ImageBuilder image = goodImage();
    change(image);
    return textOf(image.build());
}

std::string flipped(size_t offset) {
    std::string image = textOf(goodImage().build());
    image[offset] = static_cast<char>(image[offset] ^ 1);
    return image;
}

std::string manifestOf(size_t comments, const std::string& comment = "# c\n") {
    std::string text;
    while (comments-- > 0)
        text += comment;
    return textOf(imageOf(text + KernelLine + RootLine, {"kernel", "root"}).build());
}

const auto KernelAt = static_cast<size_t>(goodImage().offsetOf(2));

const Fault Faults[] = {
    {"error main-header", "offset 8", [] { return flipped(12); }},
    {"error main-header", "offset 8", [] { return with([](auto& image) { image.header.version = 2; }); }},
    {"error main-header-length", "offset 8",
     [] { return with([](auto& image) {
              image.header.extension = {0, 0, 0, 0};
          }); }},
    {"error main-body", "offset 24", [] { return with([](auto& image) { image.header.bodyCrc = 1; }); }},
    {"error truncated", "offset 1000", [] { return textOf(goodImage().build()).substr(0, 1000); }},
    {"warning trailing", "offset 1540", [] { return textOf(goodImage().build()) + "tail"; }},
    {"error part-body", "offset 276", [] { return flipped(KernelAt + 64 + 17); }},
    {"error part-header", "offset 876", [] { return with([](auto& image) { image.at(3).headerCrc = 77; }); }},
    {"error gap", "offset 876",
     [] {
         return with([](auto& image) {
             image.at(2).padded = false;
             image.at(2).body.insert(image.at(2).body.end(), 8, 0xAA);
             image.at(2).bodyLength = 600;
             image.at(2).bodyCrc = 0;
         });
     }},
    {"error header-length", "offset 212",
     [] { return with([](auto& image) { image.at(2).extension.resize(36); }); }},
    {"error part-type", "offset 212", [] { return with([](auto& image) { image.at(2).type = 2; }); }},
    {"warning part-type", "offset 1540",
     [] { return with([](auto& image) {
              image.blob("logo", {1, 2});
          }); }},
    {"error part-name", "offset 172",
     [] { return textOf(imageOf("2,boot,0,-,-,-,1.2.3,1\n", {"boot"}).build()); }},
    {"warning empty-part", "offset 212", [] { return with([](auto& image) { image.at(2).body.clear(); }); }},
    {"warning build-id", "offset 244",
     [] {
         return with([](auto& image) {
             image.at(2).extension = imagefile::softwareExtension({1, 2, 3}, std::string(28, 'b'));
         });
     }},
    {"warning padding", "offset 875",
     [] {
         std::string image = with([](auto& good) { good.at(2).body.pop_back(), good.at(2).body.pop_back(); });
         image[KernelAt + 64 + 599] = 'x';
         return image;
     }},
    {"error release", "offset 24",
     [] {
         ImageBuilder image;
         image.manifest(KernelLine);
         image.release({1, 5, 7}, 0, "REL", "Release\n", true);
         return textOf(image.build());
     }},
    {"error manifest", "offset 116",
     [] {
         ImageBuilder image;
         image.release({1, 5, 7}, 0, "REL", "Release 1.05-7\n");
         image.software("kernel", {1, 2, 3}, "b", {1});
         return textOf(image.build());
     }},
    {"warning part-twice", "offset 1540", [] { return with([](auto& image) { image.manifest(RootLine); }); }},
    {"error release-text", "offset 100",
     [] {
         return with([](auto& image) { image.at(0).body = imagefile::bytesOf(std::string("abcd\0", 5)); });
     }},
    {"error release-text", "offset 100",
     [] { return with([](auto& image) { image.at(0).body = imagefile::bytesOf("no zero "); }); }},
    {"error start", "offset 504",
     [] { return with([](auto& image) { image.at(0).body.insert(image.at(0).body.begin(), 388, 'r'); }); }},
    {"warning start", "offset 116", [] { return manifestOf(12, "# " + std::string(60, 'c') + "\n"); }},
    {"error too-many-lines", "manifest line 41", [] { return manifestOf(39); }},
    {"warning too-many-lines", "manifest line 41",
     [] {
         std::string text = KernelLine + RootLine;
         for (int i = 0; i < 39; ++i)
             text += "# c\n";
         return textOf(imageOf(text, {"kernel", "root"}).build());
     }},
    {"error empty-line", "manifest line 2", [] { return withRootLine("\n" + RootLine); }},
    {"error zero-byte", "offset 116", [] { return withRootLine(std::string(1, '\0') + RootLine); }},
    {"error long-line", "manifest line 2",
     [] { return withRootLine("4,root,0,/," + std::string(2000, 'f') + ",-,1.2.3,1\n"); }},
    {"error skipped-line", "manifest line 2", [] { return withRootLine("4,root,,/,ext4,-,1.2.3,1\n"); }},
    {"error skipped-line", "manifest line 2", [] { return withRootLine("4,root,0,/,ext4,-,1.2.08,1\n"); }},
    {"error octal", "manifest line 2", [] { return withRootLine("4,root,010,/,ext4,-,1.2.3,1\n"); }},
    {"warning hexadecimal", "manifest line 2", [] { return withRootLine("0x4,root,0,/,ext4,-,1.2.3,1\n"); }},
    {"error hexadecimal", "manifest line 2", [] { return withRootLine("4,root,0,/,ext4,-,abc,1\n"); }},
    {"error version-minus-one", "manifest line 2",
     [] { return withRootLine("4,root,0,/,ext4,-,1.-1.3,1\n"); }},
    {"error version-range", "manifest line 2", [] { return withRootLine("4,root,0,/,ext4,-,1.258.3,1\n"); }},
    {"error blank", "manifest line 2", [] { return withRootLine("4, root,0,/,ext4,-,1.2.3,1\n"); }},
    {"warning platform", "manifest line 2", [] { return withRootLine("4,root,0,/,ext4,4831,1.2.3,1\n"); }},
    {"warning more-columns", "manifest line 2", [] { return withRootLine("4,root,0,/,ext4,-,1.2.3,1,9\n"); }},
    {"error index-range", "manifest line 2", [] { return withRootLine("200,root,0,/,ext4,-,1.2.3,1\n"); }},
    {"error index-taken", "manifest line 2", [] { return withRootLine("1,root,0,/,ext4,-,1.2.3,1\n"); }},
    {"error index-twice", "manifest line 2", [] { return withRootLine("2,root,0,/,ext4,-,1.2.3,1\n"); }},
    {"warning index-name", "manifest line 2", [] { return withRootLine("7,root,0,/,ext4,-,1.2.3,1\n"); }},
    {"error no-part", "manifest line 2", [] { return withRootLine("5,app,0,-,-,-,1.2.3,1\n"); }},
    {"error no-part", "manifest line 2", [] { return withRootLine("4,root,0,/,ext4,4812,1.2.3,1\n"); }},
    {"error version-differs", "manifest line 2", [] { return withRootLine("4,root,0,/,ext4,-,1.2.4,1\n"); }},
    {"error part-shared", "manifest line 3",
     [] { return withRootLine(RootLine + "7,root,0,/,-,4813,1.2.3,1\n"); }},
    {"warning pool-twice", "manifest line 2",
     [] {
         ImageBuilder image = imageOf(KernelLine + "9,kernel,0,-,-,4813,1.2.4,1\n", {"kernel", "kernel"});
         image.at(3).extension = imagefile::softwareExtension({1, 2, 4}, "b");
         return textOf(image.build());
     }},
    {"error part-without-element", "offset 176",
     [] {
         return textOf(imageOf(RootLine, {"kernel", "root"}).build());
     }},
    {"warning part-without-element", "offset 840",
     [] {
         return textOf(imageOf(KernelLine, {"kernel", "root"}).build());
     }},
    {"warning partition-size", "manifest line 2",
     [] { return withRootLine("4,root,599,/,ext4,-,1.2.3,1\n"); }},
    {"error order", "manifest line 2",
     [] {
         return textOf(imageOf(RootLine + KernelLine, {"kernel", "root"}).build());
     }},
    {"error no-elements", "offset 116", [] { return textOf(imageOf("# nothing\n", {}).build()); }},
};

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
            const std::string where = finding.contains("line")
                                          ? "manifest line " + std::to_string(finding["line"].get<unsigned>())
                                          : "offset " + std::to_string(finding["offset"].get<unsigned>());
            found.emplace_back(
                finding["severity"].get<std::string>() + " " + finding["id"].get<std::string>(), where);
            for (const char* const text : {"what", "why", "mend"})
                EXPECT_FALSE(finding[text].get<std::string>().empty());
        }
        return found;
    }
};

TEST_F(ZempCheck, FindsEachFault) {
    for (const Fault& fault : Faults) {
        const auto found = check(fault.image());
        const auto expected = std::pair<std::string, std::string>(fault.finding, fault.where);
        EXPECT_NE(std::find(found.begin(), found.end(), expected), found.end())
            << fault.finding << " at " << fault.where << "\n"
            << out;
    }
}

TEST_F(ZempCheck, FindsPartsAndImagesThatAreTooLarge) {
    std::ofstream(scratch.file("big")).seekp(78643200 - 1) << '\0';
    ImageBuilder image = imageOf(KernelLine, {});
    image.softwareFromFile("kernel", {1, 2, 3}, "b", scratch.file("big"));
    image.write(scratch.file("big.zemp"));
    EXPECT_EQ(zemp({"check", "@big.zemp"}), 1);
    EXPECT_NE(out.find("[image-size]"), std::string::npos) << out;
    EXPECT_NE(out.find("[part-size]"), std::string::npos) << out;
}

TEST_F(ZempCheck, IsSilentOnGoodImages) {
    std::string full = "# forty lines\n";
    for (int i = 0; i < 34; ++i)
        full += "#\n";
    const std::string other = "3,kernel,0,-,-,4812,1.2.3,1\n";
    const ImageBuilder images[] = {
        goodImage(),
        imageOf(KernelLine + other + RootLine, {"kernel", "kernel4812", "root"}, 5),
        imageOf(full + KernelLine + other + RootLine + "5,app,600,-,-,-,01020003,1\r\n" +
                    "6,3rdapp,0,-,-,-,1.2.3,0",
                {"kernel", "kernel4812", "root", "app", "3rdapp"}),
    };
    for (const ImageBuilder& image : images) {
        scratch.write("i.zemp", textOf(image.build()));
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
    EXPECT_EQ(zemp({"check", "http://127.0.0.1:1/i.zemp"}), 1);
    EXPECT_EQ(err, "zemp: http://127.0.0.1:1/i.zemp: only a file can be checked; fetch it first\n");
}

// Whatever single byte is damaged, and wherever the image ends, it is found.
TEST_F(ZempCheck, FindsEveryFlippedByteAndEveryCut) {
    const std::string image = textOf(imageOf(KernelLine + RootLine, {"kernel", "root"}, 6).build());
    for (size_t i = 8; i < image.size(); ++i) {
        std::string damaged = image;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
        ASSERT_FALSE(check(damaged).empty()) << i;
        if (i < 24)
            continue; // no main header, so no image
        ASSERT_FALSE(check(image.substr(0, i)).empty()) << i;
    }
}

} // namespace
