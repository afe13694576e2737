#include "image/ImageFixtures.h"
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// A parsed manifest text, and what was logged about it.
class Manifest {
  public:
    explicit Manifest(const std::string& text) {
        ImageBuilder image;
        image.manifest(text);
        mParse = std::make_unique<Parse>(image.buildPart(0), FileFragment::ContentPart);
        EXPECT_EQ(mParse->count(), 1U);
    }
    SuumBlob& suum() { return *static_cast<SuumBlob*>(mParse->at(0)); }
    const SuumBlob::Element& at(uint32_t index) { return *suum().getElementAt(index); }
    uint32_t count() { return suum().getNumberOfElements(); }
    support::LogCapture log;

  private:
    std::unique_ptr<Parse> mParse;
};

// One element in short: "index pool partsize mount fs platform version meta".
std::string text(const SuumBlob::Element& element) {
    return std::to_string(element.getContentIndex()) + " " + element.getPoolname() + " " +
           std::to_string(element.getPartsize()) + " [" + element.getMountPoint() + "] [" +
           element.getFilesystem() + "] " + element.getPlatform() + " " +
           ZempPart::getVersionString(element.getMajor(), element.getMinor(), element.getBuild()) +
           (element.isVersionValid() ? "" : " invalid") + (element.isMetaValid() ? " meta" : "");
}

TEST(Manifest, LinesInBothForms) {
    struct Row {
        const char* line;
        const char* element; // null: wrong syntax
        bool isValid = true; // the manifest
    };
    const Row rows[] = {
        {"3,root,1000,/mnt,ext4,4813,1.2.3,1", "3 root 1000 [/mnt] [ext4] 4813 1.02-3 meta"},
        {"3,root,0,-,-,-,1.2.3,0", "3 root 0 [] [] - 1.02-3"},
        {"3,root,0,-none,-,-,01020003,1", "3 root 0 [] [] - 1.02-3 meta"},
        {"3,root,0,-,-,-,0xFF0003e8,1", "3 root 0 [] [] - 255.00-1000 meta"},
        {"3,root,0,-,-,-,abc,1", "3 root 0 [] [] - 0.00-2748 meta"},
        {"010,root,0x10,-,-,-,010.0x10.3,1", "8 root 16 [] [] - 8.16-3 meta"}, // octal, hexadecimal
        {"3,root,0,-,-,-,1.2.3,1 and more", "3 root 0 [] [] - 1.02-3 meta"},
        {" 3, root,0,-,-,-,1.2.3,1\r", "3  root 0 [] [] - 1.02-3 meta"},
        {"200,root,0,-,-,-,1.2.3,1", "4294967240 root 0 [] [] - 1.02-3 meta"}, // one signed byte
        {"127,root,0,-,-,-,300.2.65537,256", "127 root 0 [] [] - 44.02-1"},
        // 32-bit numbers, whatever the machine
        {"3,root,4294967296,-,-,-,1.2.3,1", "3 root 2147483647 [] [] - 1.02-3 meta"},
        {"3,root,-99999999999999999999,-,-,-,1.2.3,1", "3 root 2147483648 [] [] - 1.02-3 meta"},
        {"3,root,0,-,-,-,4294967295.2.3,1", "3 root 0 [] [] - 255.02-3 meta"},
        {"3,root,0,-,-,-,-2,1", "3 root 0 [] [] - 255.255-65534 meta"},
        // -1 as a version
        {"3,root,0,-,-,-,1.-1.3,1", "", false},
        {"3,root,0,-,-,-,FFFFFFFF,1", "3 root 0 [] [] - 255.255-65535 invalid meta", false},
        {"3,root,0,-,-,-,1FFFFFFFF,1", "3 root 0 [] [] - 255.255-65535 invalid meta", false},
        {"3,root,0,-,-,-,-1,1", "3 root 0 [] [] - 255.255-65535 invalid meta", false},
        // neither form
        {"3,root,0,-,-,-,xyz,1", nullptr},
        {"3,root,0,-,-,-,1.2.3", nullptr},
        {"3,root,0,,-,-,1.2.3,1", nullptr},
        {"root", nullptr},
        {" ", nullptr},
    };
    for (const Row& row : rows) {
        Manifest manifest(std::string(row.line) + "\n1,next,0,-,-,-,1.1.1,1\n");
        const bool isElement = row.element != nullptr && *row.element != '\0';
        ASSERT_EQ(manifest.count(), isElement ? 2U : 1U) << row.line;
        if (isElement) {
            EXPECT_EQ(text(manifest.at(0)), row.element) << row.line;
        }
        EXPECT_EQ(manifest.at(manifest.count() - 1).getPoolname(), "next");
        EXPECT_EQ(manifest.suum().isSuumValid(), row.isValid) << row.line;
        EXPECT_EQ(manifest.log.count("Wrong syntax"), row.element == nullptr ? 1U : 0U) << row.line;
    }
}

const std::string Line = "1,pool,0,-,-,-,1.2.3,1\n";

TEST(Manifest, NumberOfElements) {
    std::string fifty;
    for (int i = 0; i < 50; ++i)
        fifty += Line;
    std::string thirtyOthers;
    for (int i = 0; i < 15; ++i)
        thirtyOthers += "# comment\nwrong\n";
    const struct {
        std::string text;
        size_t elements;
    } rows[] = {
        {fifty, 40}, // lines that are looked at
        {thirtyOthers + fifty, 10},
        {Line + "\n" + Line, 1}, // an empty line ends it
        {Line + std::string(1, '\0') + Line, 1},
        {"", 0},
        {Line + "2,last,0,-,-,-,1.2.3,1", 2}, // without line end
        {"#" + std::string(5000, 'x') + "\n" + Line, 1},
        {"1," + std::string(5000, 'x') + ",0,-,-,-,1.2.3,1\n" + Line, 1},
        {"1," + std::string(1900, 'x') + ",0,-,-,-,1.2.3,1\n", 1},
    };
    for (const auto& row : rows) {
        Manifest manifest(row.text);
        EXPECT_EQ(manifest.count(), row.elements) << row.text;
        EXPECT_LE(manifest.log.count("ZempParser::parseSuumBlob() Stop "), 1U);
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// False under an emulator in user mode, which ignores the limit.
bool addressSpaceCanBeLimited() {
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit limit{rlim_t{3} << 30U, before.rlim_max};
    rlimit after{};
    const bool isSet = setrlimit(RLIMIT_AS, &limit) == 0 && getrlimit(RLIMIT_AS, &after) == 0 &&
                       after.rlim_cur == limit.rlim_cur;
    setrlimit(RLIMIT_AS, &before);
    return isSet;
}

// A manifest of 48 MiB in an address space that has room for so many of it: 0, it was parsed; 1, it was not.
int parseIn(unsigned roomForHalves) {
    constexpr uint32_t length = 48U << 20U;
    const lab::TemporaryDirectory directory;
    const std::string name = directory.file("part");
    {
        ImageBuilder image;
        image.manifest(std::string(length, '#'));
        writeFile(name, image.buildPart(0));
    }
    std::ifstream status("/proc/self/statm");
    rlim_t pages = 0;
    status >> pages;
    const rlimit limit{pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) +
                           rlim_t{length} / 2 * roomForHalves,
                       RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &limit);
    const support::LogCapture log(LogWarning);
    ZempParser parser;
    if (parser.parseFile(name, 0, FileFragment::ContentPart))
        return 0;
    return log.has("LOG_WARNING ZempParser::parseFile() Memory allocation failed!") ? 1 : 2;
}

TEST(Manifest, IsHeldAtMostTwiceAndFailsWithoutMemory) {
    if (!addressSpaceCanBeLimited())
        GTEST_SKIP() << "an emulated processor has no limit of its own";
    EXPECT_EXIT(_exit(parseIn(5)), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(_exit(parseIn(3)), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(_exit(parseIn(1)), testing::ExitedWithCode(1), "");
}
#endif

} // namespace
