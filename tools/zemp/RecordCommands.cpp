// Host configuration records.
#include "hostconfig/HostConfigRecord.h"
#include "imagefile/ReplaceFile.h"
#include "installed/SuuReport.h"
#include "zemp/Commands.h"
#include "zemp/Files.h"
#include "zemp/HostConfigDescription.h"
#include "zemp/InputError.h"
#include <cstring>
#include <memory>

namespace zemp {

namespace {

// The record's bytes; what is wrong goes to the console, and the first error is thrown.
hostcfg::Bytes readRecord(const std::string& path, const Console& console) {
    const std::string content = readFile(path, HostconfigMaximumSize);
    hostcfg::Bytes record(content.begin(), content.end());
    for (const hostcfg::Finding& finding : hostcfg::check(record)) {
        const std::string text = path + ": offset " + std::to_string(finding.offset) + ": " + finding.text;
        if (finding.isError)
            throw InputError(text);
        console.err << "zemp: warning: " << text << '\n';
    }
    return record;
}

} // namespace

int buildRecord(const std::string& description, const std::string& path, const Console& console) {
    const hostcfg::Bytes record = hostcfg::build(readHostConfigDescription(description));
    imagefile::refuseInput(path, description);
    writeFile(path, std::string(record.begin(), record.end()));
    console.out << path << ": " << record.size() << " bytes\n";
    return StatusGood;
}

int showRecord(const std::string& path, const Console& console) {
    const hostcfg::Bytes record = readRecord(path, console);
    const auto hc = std::make_unique<hostconfig_t>();
    const auto ctx = std::make_unique<suul_ctx_t>();
    suul_init(ctx.get());
    hostconfig_new(hc.get(), HostconfigMaximumSize);
    memcpy(hc->raw, record.data(), record.size());
    hostconfig_find_parts(hc.get(), nullptr);
    suul_hostconfig_import(ctx.get(), hc.get());
    suul_partpool_generate(ctx.get());
    writeSuuReport(*ctx, [&console](const std::string& line) { console.out << line << '\n'; });
    return StatusGood;
}

int checkRecord(const std::string& path, const Console& console) {
    readRecord(path, console);
    console.out << path << ": good\n";
    return StatusGood;
}

} // namespace zemp
