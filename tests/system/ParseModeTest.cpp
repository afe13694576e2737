// The daemon's program as a parser of files, and its usage text.
#include "lab/ChildProcess.h"
#include "lab/Descriptor.h"
#include "lab/WorkDirectory.h"
#include "support/TemporaryDirectory.h"
#include "system/LabFixtures.h"
#include <gtest/gtest.h>

namespace {

class ParseMode : public testing::Test {
  protected:
    // What the program prints with these arguments; it always ends with status 0.
    std::string run(const std::vector<std::string>& arguments) const {
        lab::ChildOptions options;
        options.arguments = {lab::Programs::find().daemon};
        options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
        const lab::Descriptor output =
            lab::Descriptor::open(mDirectory.file("output"), O_WRONLY | O_CREAT | O_TRUNC);
        const lab::Descriptor errors = lab::Descriptor::open("/dev/null", O_WRONLY);
        options.output = output.get();
        options.error = errors.get();
        lab::ChildProcess program(options);
        EXPECT_TRUE(program.waitFor(lab::Milliseconds(30000)));
        EXPECT_TRUE(program.exitStatus() && program.exitStatus()->isExit(0));
        return readText(mDirectory.file("output"));
    }

    const support::TemporaryDirectory mDirectory;
    const std::string mImage = mDirectory.file("golden.zemp");
};

TEST_F(ParseMode, ListsAnImage) {
    goldenBuilder().write(mImage);
    const std::string listing = "\n" + mImage +
                                " :\n"
                                " - ZempHeader version=1\n"
                                " - ReleaseHeader: REL-1.05-7 1.05-7, Thu Jan  1 00:00:00 1970\n"
                                " - suum 2 elements for 1.05-7\n"
                                " - kernel 1.02-3, kern-build\n"
                                " - root 1.02-3, root-build\n";
    EXPECT_EQ(run({"-v", "0", "-f", mImage}), listing);
    EXPECT_EQ(run({"-v", "0", "-t", mImage}), listing);
    const std::string logged = run({"-f", mImage});
    EXPECT_EQ(logged.rfind("fw_download(LOG_INFO): Use firmware downloader to parse a file.\n", 0), 0U);
    EXPECT_EQ(logged.substr(logged.size() - listing.size()), listing);
}

TEST_F(ParseMode, ListsAContentPart) {
    writeFile(mImage, goldenBuilder().buildPart(3));
    EXPECT_EQ(run({"-v", "0", "-p", mImage}), "\n" + mImage + " :\n - root 1.02-3, root-build\n");
}

TEST_F(ParseMode, SaysThatAFileCannotBeParsed) {
    const std::string failure = "\nFailed to parse '" + mImage + "' !\n";
    Bytes damaged = goldenBuilder().build();
    damaged[12] ^= 1; // the main header's version
    writeFile(mImage, damaged);
    EXPECT_EQ(run({"-v", "0", "-f", mImage}), failure);
    EXPECT_EQ(run({"-v", "0", "-p", mImage}), failure);
    writeFile(mImage, {});
    EXPECT_EQ(run({"-v", "0", "-f", mImage}), failure);
}

TEST_F(ParseMode, PrintsItsUsage) {
    const std::string usage =
        "VEX Firmware Download Daemon\n\nOptions:\n-c            Start in console mode\n"
        "-f <file>     Parse the given ZEMP file and list content parts."
        "-p <file>     Parse the given file for a content part, and list it."
        "-v <level>    Verbosity of log messages (levels 0-8) Default 6.\n"
        "-h            Prints this message\n\n";
    EXPECT_EQ(run({"-h"}), usage);
    EXPECT_EQ(run({"-x"}), "");
}

} // namespace
