// The daemon's program as a parser of files, and its usage text.
#include "lab/TemporaryDirectory.h"
#include "support/ShellOutput.h"
#include "system/LabFixtures.h"
#include <gtest/gtest.h>

namespace {

class ParseMode : public testing::Test {
  protected:
    // What the program prints with these arguments; it always ends with status 0.
    static std::string run(const std::string& arguments) {
        const support::ShellOutput output =
            support::runShell(lab::Programs::find().daemon + " " + arguments + " 2>/dev/null");
        EXPECT_EQ(output.status, 0);
        return output.text;
    }

    const lab::TemporaryDirectory mDirectory;
    const std::string mImage = mDirectory.file("golden.zemp");
};

TEST_F(ParseMode, ListsAnImageAndAContentPart) {
    goldenBuilder().write(mImage);
    const std::string listing = "\n" + mImage +
                                " :\n"
                                " - ZempHeader version=1\n"
                                " - ReleaseHeader: REL-1.05-7 1.05-7, Thu Jan  1 00:00:00 1970\n"
                                " - suum 2 elements for 1.05-7\n"
                                " - kernel 1.02-3, kern-build\n"
                                " - root 1.02-3, root-build\n";
    EXPECT_EQ(run("-v 0 -f " + mImage), listing);
    EXPECT_EQ(run("-v 0 -t " + mImage), listing);
    EXPECT_EQ(
        run("-f " + mImage).rfind("fw_download(LOG_INFO): Use firmware downloader to parse a file.\n", 0),
        0U);
    writeFile(mImage, goldenBuilder().buildPart(3));
    EXPECT_EQ(run("-v 0 -p " + mImage), "\n" + mImage + " :\n - root 1.02-3, root-build\n");
}

TEST_F(ParseMode, ShowsNoControlCharactersOfAnImage) {
    ImageBuilder builder = goldenBuilder();
    builder.software("net", {1, 2, 3}, "a\x1b[2J\nb", Bytes(3, 'x'));
    builder.write(mImage);
    const std::string printed = run("-v 7 -f " + mImage);
    EXPECT_NE(printed.find("\n - net 1.02-3, a?[2J?b\n"), std::string::npos) << printed;
    EXPECT_EQ(printed.find('\x1b'), std::string::npos);
    EXPECT_EQ(printed.find("\nb"), std::string::npos);
}

TEST_F(ParseMode, SaysThatAFileCannotBeParsed) {
    const std::string failure = "\nFailed to parse '" + mImage + "' !\n";
    Bytes damaged = goldenBuilder().build();
    damaged[12] ^= 1; // the main header's version
    Bytes cut = goldenBuilder().build();
    cut.resize(40); // a main header, which is not listed then
    for (const Bytes& content : {damaged, cut, Bytes()}) {
        writeFile(mImage, content);
        EXPECT_EQ(run("-v 0 -f " + mImage), failure);
        EXPECT_EQ(run("-v 0 -p " + mImage), failure);
    }
}

TEST_F(ParseMode, EndsWellWhenItsReaderIsGone) {
    goldenBuilder().write(mImage);
    const std::string command = "{ sleep 0.3; exec " + lab::Programs::find().daemon + " -v 7 -f " + mImage +
                                "; } | true; exit ${PIPESTATUS[0]}";
    EXPECT_EQ(support::runShell("bash -c '" + command + "' 2>&1").status, 0);
}

TEST_F(ParseMode, StopsAlthoughNobodyReadsItsLog) {
    ImageBuilder builder = goldenBuilder();
    for (int i = 0; i < 500; ++i) // much more than a pipe holds
        builder.software("net", {1, 2, 3}, "build", Bytes(3, 'x'));
    builder.write(mImage);
    const support::ShellOutput output = support::runShell(
        "bash -c 'exec 3> >(sleep 10); " + lab::Programs::find().daemon + " -v 7 -f " + mImage +
        " >&3 & sleep 0.5; begin=$(date +%s%N); kill -TERM $!; wait $!;"
        " echo status $?; [ $((($(date +%s%N) - begin) / 1000000)) -lt 2000 ] && echo within 2 s'");
    EXPECT_EQ(output.text, "status 0\nwithin 2 s\n");
}

TEST_F(ParseMode, PrintsItsUsage) {
    const std::string usage =
        "VEX Firmware Download Daemon\n\nOptions:\n-c            Start in console mode\n"
        "-f <file>     Parse the given ZEMP file and list content parts."
        "-p <file>     Parse the given file for a content part, and list it."
        "-v <level>    Verbosity of log messages (levels 0-8) Default 6.\n"
        "-h            Prints this message\n\n";
    EXPECT_EQ(run("-h"), usage);
    EXPECT_EQ(run("-x"), "");
}

} // namespace
