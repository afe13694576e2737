// From an image to its seal with minisign itself, and back.
#include "imagefile/NumberText.h"
#include "lab/ScriptedHttpServer.h"
#include "support/ShellOutput.h"
#include "tools/ZempRun.h"
#include "tools/ZempSamples.h"
#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

struct ZempSeal : ZempRun {
    ZempSeal() {
        goodImage().write(scratch.file("i.zemp"));
        EXPECT_EQ(minisign("-G -W -p k.pub -s k.sec"), 0);
        EXPECT_EQ(minisign("-G -W -p other.pub -s other.sec"), 0);
    }
    int minisign(const std::string& arguments) {
        return support::runShell("cd '" + scratch.path() + "' && minisign " + arguments + " 2>&1").status;
    }
    void seal() {
        EXPECT_EQ(zemp({"digest", "@i.zemp", "-o", "@i.lines"}), 0) << err;
        EXPECT_EQ(minisign("-S -W -s k.sec -m i.lines -t 'fw 1.05-7 serial 42'"), 0);
        EXPECT_EQ(zemp({"seal", "@i.lines", "@i.lines.minisig", "-o", "@i.zemp.seal"}), 0) << err;
    }
    std::string read(const char* name) { return ScratchDir::read(scratch.file(name)); }
};

TEST_F(ZempSeal, OfMinisignIsVerified) {
    seal();
    EXPECT_EQ(read("i.zemp.seal"), read("i.lines") + read("i.lines.minisig"));
    const std::string good = "i.zemp: release 1.05-7, 2 parts, as sealed by key ";
    EXPECT_EQ(zemp({"verify", "@i.zemp", "--key", "@other.pub", "--key", "@k.pub"}), 0) << err;
    EXPECT_THAT(out, testing::AllOf(testing::StartsWith(good), testing::EndsWith(", serial 42\n")));
    const std::string local = out;
    lab::ScriptedHttpServer images(read("i.zemp"));
    lab::ScriptedHttpServer seals(read("i.zemp.seal"));
    EXPECT_EQ(zemp({"verify", images.url(), "--key", "@k.pub", "--seal", seals.url()}), 0) << err;
    EXPECT_EQ(out.substr(out.find(": release")), local.substr(local.find(": release")));
    EXPECT_EQ(zemp({"list", "@i.zemp"}), 0);
    EXPECT_THAT(out, HasSubstr("\ni.zemp.seal: signed by key "));
}

TEST_F(ZempSeal, IsRefusedAsMinisignRefusesIt) {
    seal();
    const std::string signature = read("i.lines.minisig");
    for (size_t i = 0; i < signature.size(); i += 7) {
        std::string bad = signature;
        bad[i] = static_cast<char>(bad[i] ^ 1);
        scratch.write("i.lines.minisig", bad);
        scratch.write("i.zemp.seal", read("i.lines") + bad);
        EXPECT_EQ(zemp({"verify", "@i.zemp", "--key", "@k.pub"}) == 0,
                  minisign("-V -p k.pub -m i.lines") == 0)
            << "byte " << i;
    }
}

TEST_F(ZempSeal, TellsWhatDoesNotFit) {
    seal();
    const std::string image = read("i.zemp");
    for (size_t i = 0; i < image.size(); i += 3) {
        std::string bad = image;
        bad[i] = static_cast<char>(bad[i] ^ 1);
        scratch.write("i.zemp", bad);
        EXPECT_EQ(zemp({"verify", "@i.zemp", "--key", "@k.pub"}), 1) << i;
    }
    scratch.write("i.zemp", image + "x");
    refuses({"verify", "@i.zemp", "--key", "@k.pub"},
            "i.zemp: has " + imagefile::groupDigits(image.size() + 1) + " bytes, sealed are " +
                imagefile::groupDigits(image.size()));
    refuses({"digest", "@i.zemp"},
            "i.zemp: no sound part at offset " + std::to_string(image.size()) + "; 'zemp check' says more");
    EXPECT_EQ(minisign("-S -W -s k.sec -m i.lines -t 'fw 1.05-8'"), 0);
    refuses({"seal", "@i.lines", "@i.lines.minisig", "-o", "@x"},
            "i.lines.minisig: its comment 'fw 1.05-8' does not go with release 1.05-7");
    refuses({"seal", "@i.lines", "@k.pub", "-o", "@x"}, "k.pub: is no signature of minisign");
    refuses({"verify", "@i.zemp", "--key", "@k.sec"}, "k.sec: is no public key of minisign");
    EXPECT_EQ(zemp({"seal", "@i.lines", "@i.lines.minisig", "--key", "@other.pub", "-o", "@x"}), 1);
    EXPECT_THAT(err, HasSubstr("i.lines.minisig: it is signed by the unknown key "));
}

} // namespace
