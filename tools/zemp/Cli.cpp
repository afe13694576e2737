#include "zemp/Cli.h"

#include "common/VexStreamLog.h"
#include "hostconfig/HostConfigRecord.h"
#include "installed/SuuReport.h"
#include "update/FileFragment.h"
#include "zemp/Files.h"
#include "zemp/HostConfigDescription.h"
#include "zemp/ImageDescription.h"
#include "zemp/ImageListing.h"
#include "zemp/InputError.h"
#include <CLI/CLI.hpp>
#include <fstream>
#include <memory>

namespace zemp {

namespace {

constexpr int StatusBadInput = 1;
constexpr int StatusWrongUse = 2;

// Files up to this size may end within a part: it is what the daemon fetches first of an image and of a part.
constexpr uint64_t MaximumStartBytes = FileFragment::ZempStartSize + 1;

// No log lines of the parser between the tool's own.
class QuietLog {
  public:
    QuietLog() { VexStreamLog::setLevel(static_cast<LogPriority>(-1)); }
    ~QuietLog() { VexStreamLog::setLevel(mLevel); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

  private:
    const LogPriority mLevel = VexStreamLog::getLevel();
};

void buildImage(const std::string& description, const std::string& image, std::ostream& out) {
    imagefile::ImageBuilder builder;
    readImageDescription(description, builder);
    replaceFile(image, [&builder](const std::string& temporary) { builder.write(temporary); });
    out << image << ": " << builder.size() << " bytes, " << builder.count() << " parts\n";
}

void list(const std::string& image, std::ostream& out) {
    const MappedFile file(image);
    const ImageListing listing = listImage(file.data(), file.size());
    printListing(listing, out);
    const bool isStart = listing.isIncomplete && file.size() <= MaximumStartBytes;
    if (isStart)
        out << "\nonly the start: " << file.size() << " bytes\n";
    else if (!listing.problem.empty())
        throw InputError(image + ": " + listing.problem);
}

void buildRecord(const std::string& description, const std::string& path, std::ostream& out) {
    const hostcfg::Bytes record = hostcfg::build(readHostConfigDescription(description));
    replaceFile(path, [&record](const std::string& temporary) {
        std::ofstream file(temporary, std::ios::binary);
        file.write(reinterpret_cast<const char*>(record.data()), static_cast<std::streamsize>(record.size()));
        file.close();
        if (!file)
            throw InputError("cannot write '" + temporary + "'");
    });
    out << path << ": " << record.size() << " bytes\n";
}

// The record's bytes; what is wrong goes to `err`, and the first error is thrown.
hostcfg::Bytes readRecord(const std::string& path, std::ostream& err) {
    const std::string content = readFile(path, HostconfigMaximumSize);
    hostcfg::Bytes record(content.begin(), content.end());
    for (const hostcfg::Finding& finding : hostcfg::check(record)) {
        const std::string text = path + ": offset " + std::to_string(finding.offset) + ": " + finding.text;
        if (finding.isError)
            throw InputError(text);
        err << "zemp: warning: " << text << '\n';
    }
    return record;
}

void showRecord(const std::string& path, std::ostream& out, std::ostream& err) {
    const hostcfg::Bytes record = readRecord(path, err);
    const auto hc = std::make_unique<hostconfig_t>();
    const auto ctx = std::make_unique<suul_ctx_t>();
    suul_init(ctx.get());
    hostconfig_new(hc.get(), HostconfigMaximumSize);
    memcpy(hc->raw, record.data(), record.size());
    hostconfig_find_parts(hc.get(), nullptr);
    suul_hostconfig_import(ctx.get(), hc.get());
    suul_partpool_generate(ctx.get());
    writeSuuReport(*ctx, [&out](const std::string& line) { out << line << '\n'; });
}

void checkRecord(const std::string& path, std::ostream& out, std::ostream& err) {
    readRecord(path, err);
    out << path << ": good\n";
}

// The command line and what belongs to it: option values, and what is to be done.
class CommandLine {
  public:
    CommandLine(std::ostream& out, std::ostream& err) {
        mApp.set_version_flag("--version", std::string("zemp ") + ZEMP_VERSION);
        mApp.require_subcommand(1);

        CLI::App* build = mApp.add_subcommand("build", "Write an image from a description");
        addBuildOptions(build, "IMAGE");
        build->callback([this, &out] { mAction = [this, &out] { buildImage(mInput, mOutput, out); }; });

        CLI::App* listing =
            mApp.add_subcommand("list", "List the parts of an image or of a content part file");
        listing->add_option("IMAGE", mInput, "Image, start of an image, or content part file")->required();
        listing->callback([this, &out] { mAction = [this, &out] { list(mInput, out); }; });

        CLI::App* hostcfg = mApp.add_subcommand("hostcfg", "Host configuration records");
        hostcfg->require_subcommand(1);
        CLI::App* buildCfg = hostcfg->add_subcommand("build", "Write a record from a description");
        addBuildOptions(buildCfg, "RECORD");
        buildCfg->callback([this, &out] { mAction = [this, &out] { buildRecord(mInput, mOutput, out); }; });
        CLI::App* show = hostcfg->add_subcommand("show", "Print what a record holds, as the daemon's report");
        show->add_option("RECORD", mInput, "Record")->required();
        show->callback([&, this] { mAction = [&, this] { showRecord(mInput, out, err); }; });
        CLI::App* check = hostcfg->add_subcommand("check", "Say whether the daemon accepts a record");
        check->add_option("RECORD", mInput, "Record")->required();
        check->callback([&, this] { mAction = [&, this] { checkRecord(mInput, out, err); }; });
    }

    CLI::App& app() { return mApp; }
    void act() const { mAction(); }

  private:
    void addBuildOptions(CLI::App* command, const std::string& result) {
        command->add_option("DESCRIPTION", mInput, "Description in TOML")->required();
        command->add_option("-o,--output", mOutput, "File to write; it is replaced whole")
            ->required()
            ->type_name(result);
    }

    CLI::App mApp{"Makes and lists firmware images and host configuration records.", "zemp"};
    std::string mInput;
    std::string mOutput;
    std::function<void()> mAction;
};

} // namespace

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CommandLine line(out, err);
    try {
        line.app().parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return line.app().exit(error, out, err) == 0 ? 0 : StatusWrongUse;
    }
    const QuietLog quiet;
    try {
        line.act();
        if (!out.flush())
            throw InputError("cannot write the output");
    } catch (const std::exception& error) {
        err << "zemp: " << error.what() << '\n';
        return StatusBadInput;
    }
    return 0;
}

} // namespace zemp
