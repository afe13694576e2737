// Host configuration records.
#include "hostconfig/HostConfigRecord.h"
#include "image/ZempPart.h"
#include "imagefile/NumberText.h"
#include "imagefile/ReplaceFile.h"
#include "installed/SuuReport.h"
#include "zemp/Commands.h"
#include "zemp/Files.h"
#include "zemp/HostConfigDescription.h"
#include "zemp/InputError.h"
#include "zemp/Json.h"
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
    console.out << path << ": " << imagefile::groupDigits(record.size()) << " bytes\n";
    return StatusGood;
}

namespace {

nlohmann::json toJson(const suu_data_t& data) {
    nlohmann::json sets = nlohmann::json::array();
    for (unsigned i = 0; i < data.setCount && i < suu_data_t::SetCount; ++i) {
        const suu_set_t& set = data.sets[i];
        nlohmann::json json = {{"name", ZempFormat::text(set.name)},
                               {"bootable", set.bootable != 0},
                               {"active", data.activeSet == i},
                               {"references", set.references}};
        if (set.releaseHeader < suu_data_t::SetCount) {
            json["release"] = ZempFormat::text(data.releases[set.releaseHeader].name);
            json["time"] = uint32_t{data.releases[set.releaseHeader].time};
        }
        sets.push_back(json);
    }
    nlohmann::json partitions = nlohmann::json::array();
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        const suu_partition_t& partition = data.partitions[i];
        const suu_content_t& content = data.contents[i];
        if (partition.name[0] == '\0')
            continue;
        partitions.push_back(
            {{"number", partition.number},
             {"pool", ZempFormat::text(partition.name)},
             {"offset", uint32_t{partition.offset}},
             {"size", uint32_t{partition.size}},
             {"version", ZempPart::getVersionString(content.software.major, content.software.minor,
                                                    content.software.build)},
             {"filesystem", ZempFormat::text(partition.fsType)},
             {"mountpoint", ZempFormat::text(partition.mountPoint)},
             {"content", ZempFormat::text(content.header.name)},
             {"length", uint32_t{content.header.body_length}},
             {"crc", uint32_t{content.header.body_crc}}});
    }
    return {{"sets", sets}, {"partitions", partitions}};
}

} // namespace

int showRecord(const std::string& path, bool json, const Console& console) {
    const hostcfg::Bytes record = readRecord(path, console);
    const auto hc = std::make_unique<hostconfig_t>();
    const auto ctx = std::make_unique<suul_ctx_t>();
    suul_init(ctx.get());
    hostconfig_new(hc.get(), HostconfigMaximumSize);
    memcpy(hc->raw, record.data(), record.size());
    hostconfig_find_parts(hc.get(), nullptr);
    suul_hostconfig_import(ctx.get(), hc.get());
    suul_partpool_generate(ctx.get());
    if (json)
        printJson(toJson(ctx->data), console.out);
    else
        writeSuuReport(*ctx, [&console](const std::string& line) { console.out << line << '\n'; });
    return StatusGood;
}

int checkRecord(const std::string& path, const Console& console) {
    readRecord(path, console);
    console.out << path << ": good\n";
    return StatusGood;
}

} // namespace zemp
