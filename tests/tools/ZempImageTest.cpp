#include "image/ImageFixtures.h"
#include "imagefile/NumberText.h"
#include "support/Faults.h"
#include "tools/ZempRun.h"
#include "tools/ZempSamples.h"
#include "zemp/ImageListing.h"
#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

const std::string Release = "[release]\nversion = \"1.5.7\"\n";
const std::string Frame = Release + "[manifest]\ntext = \"2,kernel,0,-,-,-,1.2.3,1\\n\"\n";
const std::string Part = Frame + "[[part]]\nname = \"kernel\"\nversion = \"1.2.3\"\n";

struct ZempImage : ZempRun {
    // An image whose last part reaches beyond the size of a start.
    std::string buildSample() {
        scratch.write("kernel.bin", textOf(pattern(1001)));
        scratch.write("s.toml", Part + "file = \"kernel.bin\"\n");
        EXPECT_EQ(zemp({"build", "@s.toml", "-o", "@s.zemp"}), 0) << err;
        return ScratchDir::read(scratch.file("s.zemp"));
    }
};

TEST_F(ZempImage, BuildsTheSameBytesEachTime) {
    const std::string image = buildSample();
    EXPECT_EQ(out, "s.zemp: 1 232 bytes, 3 parts\n");
    ASSERT_EQ(zemp({"build", "@s.toml", "--output", "@again.zemp"}), 0);
    EXPECT_EQ(ScratchDir::read(scratch.file("again.zemp")), image);
}

TEST_F(ZempImage, ListsPartsAndManifest) {
    goldenBuilder().write(scratch.file("golden.zemp"));
    EXPECT_EQ(zemp({"list", "@golden.zemp"}), 0);
    EXPECT_EQ(out, "OFFSET  SIZE  TYPE           NAME     VERSION  BUILD ID    HEADER  BODY\n"
                   "     8    16  ZempHeader     -        1.05-7   -           ok      ok\n"
                   "    24    92  ReleaseHeader  release  1.05-7   REL-1.05-7  ok      ok\n"
                   "   116    96  SuumBlob       suum     1.05-7   -           ok      ok\n"
                   "   212    72  KernelBlob     kernel   1.02-3   kern-build  ok      ok\n"
                   "   284    72  RootBlob       root     1.02-3   root-build  ok      ok\n"
                   "\n"
                   "INDEX  POOL    VERSION  PLATFORM  MOUNT POINT\n"
                   "    2  kernel  1.02-3   4813      -\n"
                   "    4  root    1.02-3   -         /\n");
    EXPECT_EQ(err, "");
}

TEST_F(ZempImage, DescriptionsInOtherForms) {
    scratch.write("kernel.bin", textOf(pattern(70000)));
    scratch.write("d.toml", R"(
[release]
version = "255.255.65535"
time = 2000-02-28T23:59:59+01:00
text = "needs padding"
[[manifest.line]]
text = "# suum"
[[manifest.line]]
index = 2
pool = "kernel"
version = "1.2.300"
valid = false
hexadecimal = true
size = 7
[[manifest.line]]
index = 4
pool = "root"
mountpoint = "/"
filesystem = "ext4"
platform = "4813"
version = "1.2.3"
[[part]]
name = "sixteen bytes: A"
version = "1.02-300"
hex = "52 4f4F 54"
[[part]]
name = "kernel"
version = "1.2.3"
file = "kernel.bin"
)");
    EXPECT_EQ(zemp({"build", "@d.toml", "-o", "@d.zemp"}), 1) << "it is not fit for the field";
    EXPECT_THAT(
        err,
        HasSubstr("d.toml:22: [[part]]: part 'sixteen bytes: A' has a name that the daemon does not know; "));
    EXPECT_THAT(err, HasSubstr("; and 3 errors more (--no-check writes it all the same)\n"));
    EXPECT_FALSE(std::filesystem::exists(scratch.file("d.zemp")));
    ASSERT_EQ(zemp({"build", "--no-check", "@d.toml", "-o", "@d.zemp"}), 0) << err;
    const std::string image = ScratchDir::read(scratch.file("d.zemp"));
    ASSERT_EQ(zemp({"build", "--no-check", "@d.toml", "-o", "-"}), 0) << err;
    EXPECT_EQ(out, image);
    EXPECT_THAT(err, HasSubstr("standard output: 70 344 bytes, 4 parts\n"));
    EXPECT_THAT(image, HasSubstr(std::string("needs padding\n\n\0", 16)));
    EXPECT_THAT(image, HasSubstr("# suum\n2,kernel,7,-,-,-,0102012C,0\n4,root,0,/,ext4,4813,1.2.3,1\n"));
    EXPECT_THAT(image, HasSubstr("\xef\xfd\xba\x38")); // 951778799
    EXPECT_THAT(image, HasSubstr("ROOT"));
    EXPECT_EQ(image.substr(image.size() - 70000), textOf(pattern(70000)));
    EXPECT_EQ(zemp({"list", "@d.zemp"}), 0) << err;
    EXPECT_THAT(out, HasSubstr("UnspecifiedSwBlob  sixteen bytes: A  1.02-300"));
}

TEST_F(ZempImage, MistakesInDescriptionsAreLocated) {
    const std::string line = Release + "[[manifest.line]]\n";
    const std::pair<std::string, std::string> rows[] = {
        {"", "1:1: the description has no 'release'"},
        {"release = 1", "1:11: 'release' has to be a table: [release]"},
        {"[release]\nversion = 7\n", "2:11: 'version' has to be a text in quotes"},
        {"[release]\nversion = \"1.256.0\"\n",
         "2:11: 'version' has to be like \"1.5.7\": major and minor up to 255, build up to 65535"},
        {Release + "nam = 1\n", "3:1: the release knows no key 'nam'"},
        {"[relase]\nversion = \"1.2.3\"\n",
         "1:2: the description has no 'release'; is 'relase' meant to be it?"},
        {Release + "time = 1969-12-31T23:59:59Z\n", "3:8: 'time' has to be from 1970 to 2106"},
        {Release + "name = \"" + std::string(37, 'n') + "\"\n", "3:8: 'name' has 37 bytes; at most 36 fit"},
        {Release + "[[manifest.lines]]\ntext = \"\"\n", "3:12: the manifest knows no key 'lines'"},
        {Release + "[manifest]\n", "3:1: the manifest has neither 'text' nor lines: [[manifest.line]]"},
        {line + "pool = \"kernel\"\n", "3:1: the manifest line has no 'index'"},
        {line + "index = 2\npool = \"a,b\"\n",
         "5:8: 'pool' must not be empty, nor have a comma or a line end"},
        {line + "index = -1\n", "4:9: 'index' has to be from 0 to 1000"},
        {line + "text = \"a\\nb\"\n", "4:8: a manifest line must not have a line end"},
        {Frame + "part = 5\n", "5:1: the manifest knows no key 'part'"},
        {Frame + "[part]\nname = \"kernel\"\n", "5:1: 'part' has to be tables, in double brackets"},
        {Frame + "[[part]]\nversion = \"1.2.3\"\n", "5:1: the part has no 'name'"},
        {Part, "5:1: the part 'kernel' needs one of 'file', 'text' and 'hex'"},
        {Part + "text = \"a\"\nhex = \"00\"\n",
         "5:1: the part 'kernel' has more than one of 'file', 'text' and 'hex'"},
        {Part + "hex = \"000\"\n", "8:7: 'hex' has an odd number of digits"},
        {Part + "hex = \"0g\"\n", "8:7: 'hex' has a character that is no hexadecimal digit: 'g'"},
        {Part + "file = \"none.bin\"\n", "8:8: cannot read 'none.bin': No such file or directory"},
        {Part + "file = \"/dev/zero\"\n", "8:8: cannot read '/dev/zero': Not a regular file"},
    };
    for (const auto& [description, message] : rows) {
        scratch.write("d.toml", description);
        refuses({"build", "@d.toml", "-o", "@never.zemp"}, "d.toml:" + message);
    }
    scratch.write("d.toml", "[release\n");
    EXPECT_EQ(zemp({"build", "@d.toml", "-o", "@never.zemp"}), 1);
    EXPECT_EQ(err.substr(0, 18), "zemp: d.toml:1:9: ");
    EXPECT_EQ(files(), "d.toml");
}

TEST_F(ZempImage, WrongUseAndBadFiles) {
    const std::vector<std::string> wrong[] = {
        {},           {"frobnicate"},     {"build", "x.toml"}, {"list"},
        {"list", ""}, {"list", "a", "b"}, {"hostcfg"},         {"hostcfg", "frobnicate"}};
    for (const std::vector<std::string>& arguments : wrong) {
        EXPECT_EQ(zemp(arguments), 2);
        EXPECT_EQ(out, "");
        EXPECT_NE(err, "");
    }
    EXPECT_EQ(err, "zemp: there is no command or option 'frobnicate' (see zemp hostcfg --help)\n");

    refuses({"list", "@none"}, "none: No such file or directory");
    refuses({"list", scratch.path()}, scratch.path() + ": Is a directory");
    refuses({"list", "/dev/zero"}, "/dev/zero: Not a regular file");
    refuses({"list", scratch.write("empty", "")}, "empty: is empty");
    refuses({"list", scratch.write("text", "hello")}, "text: is neither an image nor a content part");
}

TEST_F(ZempImage, OutputIsReplacedWholeOrNotAtAll) {
    buildSample();
    scratch.write("old.zemp", "old");
    EXPECT_EQ(zemp({"build", "@missing.toml", "-o", "@old.zemp"}), 1);
    EXPECT_EQ(ScratchDir::read(scratch.file("old.zemp")), "old");

    refuses({"build", "@s.toml", "-o", "/dev/null"}, "/dev/null: Not a regular file");
    refuses({"build", "@s.toml", "-o", "@s.toml"}, "s.toml: is read as well, and would be lost");
    refuses({"build", "@s.toml", "-o", "@kernel.bin"}, "kernel.bin: is read as well, and would be lost");
    refuses({"build", "@s.toml", "-o", "@no/such.zemp"}, "no/such.zemp: No such file or directory");
    {
        const support::FullDisk full(500);
        refuses({"build", "@s.toml", "-o", "@old.zemp"}, "cannot write 'old.zemp': File too large");
    }
    EXPECT_EQ(ScratchDir::read(scratch.file("old.zemp")), "old");

    ASSERT_EQ(symlink("old.zemp", scratch.file("link.zemp").c_str()), 0);
    EXPECT_EQ(zemp({"build", "@s.toml", "-o", "@link.zemp"}), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(scratch.file("link.zemp")));
    EXPECT_EQ(ScratchDir::read(scratch.file("old.zemp")).substr(0, 8), "PMEZZEMP");
    EXPECT_EQ(files(), "kernel.bin link.zemp old.zemp s.toml s.zemp");
}

TEST_F(ZempImage, EveryFlippedBitAndEveryCutIsFound) {
    const Quiet quiet;
    const std::string image = buildSample();
    const auto listing = [&](const std::string& bytes) {
        return zemp::listImage(imagefile::ImageReader(scratch.write("listed", bytes)));
    };
    EXPECT_EQ(listing(image).problem, "");
    for (size_t bit = size_t{8} * 8; bit < image.size() * 8; ++bit) { // behind the magic
        std::string damaged = image;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
        ASSERT_NE(listing(damaged).problem, "") << bit;
    }
    for (size_t size = 24; size < image.size(); ++size) {
        const zemp::ImageListing cut = listing(image.substr(0, size));
        ASSERT_TRUE(cut.isIncomplete) << size;
        ASSERT_EQ(cut.problem, "is incomplete: " + imagefile::groupDigits(size) + " of 1 232 bytes");
    }
}

TEST_F(ZempImage, IncompleteFileIsListedAndRefusedUnlessItIsAStart) {
    const std::string image = buildSample();
    scratch.write("cut.zemp", image.substr(0, 512));
    EXPECT_EQ(zemp({"list", "@cut.zemp"}), 0);
    EXPECT_THAT(out, HasSubstr("\nonly the start: 512 bytes\n"));
    scratch.write("cut.zemp", image.substr(0, 513));
    EXPECT_EQ(zemp({"list", "@cut.zemp"}), 1);
    EXPECT_EQ(err, "zemp: cut.zemp: is incomplete: 513 of 1 232 bytes\n");
    EXPECT_THAT(out, HasSubstr("  KernelBlob     kernel   1.02-3   -         ok      incomplete\n"));
}

TEST_F(ZempImage, ListsWhatIsBehindADamagedBody) {
    const std::string image = textOf(goldenBuilder().build());
    std::string damaged = image;
    damaged[KernelOffset + 64] ^= 1;
    scratch.write("damaged.zemp", damaged + "tail");
    EXPECT_EQ(zemp({"list", "@damaged.zemp"}), 1);
    EXPECT_EQ(err, "zemp: damaged.zemp: has a damaged body in part 'kernel' at offset 212\n");
    EXPECT_THAT(out, HasSubstr("kern-build  ok      BAD\n"));
    EXPECT_THAT(out, HasSubstr("root-build  ok      ok\n"));
    scratch.write("longer.zemp", image + "tail");
    EXPECT_EQ(zemp({"list", "@longer.zemp"}), 1);
    EXPECT_EQ(err, "zemp: longer.zemp: has 4 bytes behind the image\n");
}

TEST_F(ZempImage, ListsAContentPartFile) {
    const std::string image = buildSample();
    const size_t at = image.find("kernel", image.find("kernel") + 1) - 12;
    scratch.write("part", image.substr(at));
    EXPECT_EQ(zemp({"list", "@part"}), 0) << err;
    EXPECT_EQ(out, "OFFSET  SIZE  TYPE        NAME    VERSION  BUILD ID  HEADER  BODY\n"
                   "     0  1068  KernelBlob  kernel  1.02-3   -         ok      ok\n");
    scratch.write("part", image.substr(at, 512));
    EXPECT_EQ(zemp({"list", "@part"}), 0) << err;
    scratch.write("part", image.substr(at, 513));
    EXPECT_EQ(zemp({"list", "@part"}), 1);
    EXPECT_EQ(err, "zemp: part: ends within part 'kernel' at offset 0\n");
}

} // namespace
