#include "zemp/Cli.h"

#include "cli/CommandLine.h"
#include "plan/QuietLog.h"
#include "zemp/Commands.h"
#include "zemp/InputError.h"
#include "zemp/Interrupt.h"
#ifdef FW_SEAL
#include "zemp/SealCommands.h"
#endif
#include <functional>
#include <iostream>
#include <unistd.h>

namespace zemp {

namespace {

constexpr const char* Examples = R"(Examples:
  zemp build release.toml -o release.zemp     write an image from a description
  zemp check release.zemp                     find what would hurt in the field
  zemp list http://server/release.zemp        look at an image on a web server
  zemp extract release.zemp suum              print the manifest
  zemp hostcfg build terminal.toml -o record  write a host configuration record
  zemp plan release.zemp --installed record --svg plan.svg
                                              tell what a terminal will fetch
Exit status: 0 good, 1 an input is not as it should be, 2 wrong use. See zemp(1).)";

// The command line and what belongs to it: option values, and what is to be done.
class CommandLine {
  public:
    explicit CommandLine(const Console& console) : mConsole(console) {
        mApp.set_version_flag("--version", std::string("zemp ") + ZEMP_VERSION);
        mApp.require_subcommand(1);
        mApp.footer(Examples);
        addImageCommands();
        addRecordCommands();
#ifdef FW_SEAL
        addSealCommands();
#endif
    }

    CLI::App& app() {
        return mApp;
    }
    int act() const {
        return mAction();
    }

  private:
    // The action of a command, set when the line names it.
    void onUse(CLI::App* command, const std::function<int()>& action) {
        command->callback([this, action] { mAction = action; });
    }

    void addImageCommands() {
        CLI::App* const build = mApp.add_subcommand("build", "Write an image from a description");
        addBuildOptions(build, "IMAGE", "File to write, which is replaced whole; - for standard output");
        addOlder(build);
        build->add_flag("!--no-check", mIsChecked, "Write it also when 'zemp check' would find errors");
        build->footer("Example: zemp build release.toml -o release.zemp --against last.zemp\n"
                      "The same description and files give the same bytes.");
        onUse(build, [this] { return buildImage(mInput, mOutput, mOlder, mIsChecked, mConsole); });

        CLI::App* const list =
            mApp.add_subcommand("list", "List the parts of an image or of a content part file");
        list->add_option("IMAGE", mInput, "Image, start of an image, content part file, or URL")
            ->required()
            ->check(cli::refuseEmpty);
        addJson(list);
        list->footer("Example: zemp list http://server/release.zemp\n"
                     "Of an image on a web server the headers are fetched, not the bodies.");
        onUse(list, [this] { return showListing(mInput, mIsJson, mConsole); });

        CLI::App* const extract = mApp.add_subcommand("extract", "Write the body of one part");
        extract->add_option("IMAGE", mInput, "Image, content part file, or URL")
            ->required()
            ->check(cli::refuseEmpty);
        extract->add_option("PART", mPart, "Name of the part, or its offset as it is listed")
            ->required()
            ->check(cli::refuseEmpty);
        extract->add_option("-o,--output", mOutput, "File to write; standard output if missing")
            ->check(cli::refuseEmpty)
            ->type_name("FILE");
        extract->footer("Example: zemp extract release.zemp root -o root.img");
        onUse(extract, [this] { return extractPart(mInput, mPart, mOutput, mConsole); });

        CLI::App* const check =
            mApp.add_subcommand("check", "Find everything in an image that would hurt in the field");
        check->add_option("IMAGE", mInput, "Image, or URL")->required()->check(cli::refuseEmpty);
        addOlder(check);
        addJson(check);
        check->footer("Example: zemp check release.zemp --against last.zemp\nExit status: 1 with errors, 0 "
                      "with warnings.");
        onUse(check, [this] { return showFindings(mInput, mOlder, mIsJson, mConsole); });

        CLI::App* const plan = mApp.add_subcommand("plan", "Tell what a terminal will do with an image");
        plan->add_option("IMAGE", mInput, "Image, or URL")->required()->check(cli::refuseEmpty);
        plan->add_option(
                "--installed", mRecords,
                "What the terminal has: a host configuration record; nothing if missing; may be given again")
            ->check(cli::refuseEmpty)
            ->type_name("RECORD");
        addJson(plan);
        plan->add_option("--svg", mSvg,
                         "Draw the image with what is fetched; - for standard output, and nothing else there")
            ->check(cli::refuseEmpty)
            ->type_name("FILE");
        plan->footer("Example: zemp plan release.zemp --installed record --svg plan.svg\n"
                     "Exit status: 1 when the update does not become ready.");
        onUse(plan, [this] { return showPlans(mInput, mRecords, mIsJson, mSvg, mConsole); });
    }

#ifdef FW_SEAL
    void addSealCommands() {
        CLI::App* const digest =
            mApp.add_subcommand("digest", "Write the lines of an image that are to be signed");
        digest->add_option("IMAGE", mInput, "Image")->required()->check(cli::refuseEmpty);
        digest->add_option("-o,--output", mOutput, "File to write; standard output if missing")
            ->check(cli::refuseEmpty)
            ->type_name("FILE");
        digest->footer("Example: zemp digest release.zemp -o release.lines");
        onUse(digest, [this] { return writeDigest(mInput, mOutput, mConsole); });

        CLI::App* const seal = mApp.add_subcommand("seal", "Make a seal of signed lines");
        seal->add_option("LINES", mInput, "What 'zemp digest' wrote")->required()->check(cli::refuseEmpty);
        seal->add_option("SIGNATURE", mSignature, "What minisign made of it")
            ->required()
            ->check(cli::refuseEmpty);
        seal->add_option("-o,--output", mOutput, "File to write; it is replaced whole")
            ->required()
            ->check(cli::refuseEmpty)
            ->type_name("SEAL");
        addKeys(seal);
        seal->footer("Example: zemp seal release.lines release.lines.minisig -o release.zemp.seal");
        onUse(seal, [this] { return writeSeal(mInput, mSignature, mKeys, mOutput, mConsole); });

        CLI::App* const verify = mApp.add_subcommand("verify", "Check an image against its seal");
        verify->add_option("IMAGE", mInput, "Image, or URL")->required()->check(cli::refuseEmpty);
        addKeys(verify)->required();
        verify->add_option("--seal", mSeal, "Seal, or URL; IMAGE.seal if missing")
            ->check(cli::refuseEmpty)
            ->type_name("SEAL");
        verify->footer("Example: zemp verify http://server/release.zemp --key release.pub");
        onUse(verify, [this] { return verifyImage(mInput, mKeys, mSeal, mConsole); });
    }

    CLI::Option* addKeys(CLI::App* command) {
        return command->add_option("--key", mKeys, "Public key of minisign; may be given again")
            ->check(cli::refuseEmpty)
            ->type_name("KEY.pub");
    }
#endif

    void addRecordCommands() {
        CLI::App* const hostcfg = mApp.add_subcommand("hostcfg", "Host configuration records");
        hostcfg->require_subcommand(1);
        CLI::App* const build = hostcfg->add_subcommand("build", "Write a record from a description");
        addBuildOptions(build, "RECORD", "File to write; it is replaced whole");
        build->footer("Example: zemp hostcfg build terminal.toml -o record");
        onUse(build, [this] { return buildRecord(mInput, mOutput, mConsole); });
        CLI::App* const show =
            hostcfg->add_subcommand("show", "Print what a record holds, as the daemon's report");
        show->add_option("RECORD", mInput, "Record")->required()->check(cli::refuseEmpty);
        addJson(show);
        onUse(show, [this] { return showRecord(mInput, mIsJson, mConsole); });
        CLI::App* const check = hostcfg->add_subcommand("check", "Say whether the daemon accepts a record");
        check->add_option("RECORD", mInput, "Record")->required()->check(cli::refuseEmpty);
        onUse(check, [this] { return checkRecord(mInput, mConsole); });
    }

    void addBuildOptions(CLI::App* command, const std::string& result, const std::string& help) {
        command->add_option("DESCRIPTION", mInput, "Description in TOML")
            ->required()
            ->check(cli::refuseEmpty);
        command->add_option("-o,--output", mOutput, help)
            ->required()
            ->check(cli::refuseEmpty)
            ->type_name(result);
    }

    void addOlder(CLI::App* command) {
        command
            ->add_option("--against", mOlder,
                         "Images released before: a part that changed needs a new version")
            ->check(cli::refuseEmpty)
            ->type_name("OLD");
    }

    void addJson(CLI::App* command) {
        command->add_flag("--json", mIsJson, "Print the result as JSON");
    }

    CLI::App mApp{
        "Makes, checks and lists firmware images and host configuration records, and plans updates.", "zemp"};
    const Console& mConsole;
    std::string mInput;
    std::string mOutput;
    std::string mPart;
    std::vector<std::string> mRecords;
    std::string mSvg;
    std::string mSignature;
    std::string mSeal;
    std::vector<std::string> mKeys;
    std::vector<std::string> mOlder;
    bool mIsJson = false;
    bool mIsChecked = true;
    std::function<int()> mAction;
};

} // namespace

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    const Console console = {out, err, &err == &std::cerr && isatty(STDERR_FILENO) == 1};
    CommandLine line(console);
    try {
        line.app().parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            err << "zemp: " << cli::complaintOf(line.app(), error) << '\n';
            return StatusWrongUse;
        }
        line.app().exit(error, out, err);
        return out.flush() ? StatusGood : StatusBadInput;
    }
    const plan::QuietLog quiet;
    const InterruptScope interrupts;
    try {
        const int status = line.act();
        if (!out.flush())
            throw InputError("cannot write the output");
        return status;
    } catch (const std::exception& error) {
        err << "zemp: " << error.what() << '\n';
        return StatusBadInput;
    }
}

} // namespace zemp
