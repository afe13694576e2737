// Fuzz target: the host configuration record, from its file to the answers of the installed-software view.

#include "fuzz/Container.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/PartChecks.h"
#include "fuzz/QuietLog.h"
#include "hostconfig/HostConfigRecord.h"
#include "installed/SuuInfo.h"
#include "installed/SuuReport.h"
#include "installed/loadHostConfig.h"
#include <algorithm>
#include <memory>

using fuzz::View;

namespace {

constexpr size_t LongestRow = 110;

// A record that passed both checks has every part inside the body, with CRCs that match.
void checkParts(const hostconfig_t& hc, const View& raw) {
    const size_t end = HostconfigMinimumSize + size_t{hc.header->body_length};
    FUZZ_REQUIRE(end <= HostconfigMaximumSize);
    FUZZ_REQUIRE(hc.count > 0 && hc.count <= static_cast<int>(HostconfigMaximumParts));
    size_t expected = HostconfigMinimumSize;
    for (int i = 0; i < hc.count; ++i) {
        const zemp_content_header_t& part = *hc.parts[i];
        const auto at = static_cast<size_t>(reinterpret_cast<const uint8_t*>(&part) - hc.raw);
        FUZZ_REQUIRE(at == expected);
        FUZZ_REQUIRE(part.hdr_length >= ZempFormat::ContentHeaderSize && part.hdr_length <= end - at);
        FUZZ_REQUIRE(part.body_length <= end - at - part.hdr_length);
        FUZZ_REQUIRE(part.hdr_crc == referenceCrc(raw, at + 4, part.hdr_length - 4U));
        FUZZ_REQUIRE(part.body_crc == referenceCrc(raw, at + part.hdr_length, part.body_length));
        expected = at + part.hdr_length + part.body_length + ZempFormat::padding(part.body_length);
    }
}

void checkBody(hostconfig_t& hc, const suul_ctx_t& ctx) {
    const zemp_content_header_t* const part = hostconfig_get_part(&hc, SuuDataPartName);
    FUZZ_REQUIRE(part != nullptr);
    FUZZ_REQUIRE(ZempFormat::text(part->name).rfind(SuuDataPartName, 0) == 0);
    const auto* const body = static_cast<const uint8_t*>(hostconfig_get_body(&hc, SuuDataPartName));
    const auto* const data = reinterpret_cast<const uint8_t*>(&ctx.data);
    for (size_t i = 0; i < sizeof ctx.data; ++i)
        FUZZ_REQUIRE(data[i] == (i < part->body_length ? body[i] : 0));
}

// Every partition in use is in exactly one pool, that of its name.
void checkPools(const suul_ctx_t& ctx) {
    bool isSeen[suu_data_t::PartitionCount] = {};
    FUZZ_REQUIRE(ctx.poolCount <= suu_data_t::PartitionCount);
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        const suul_pool_t& pool = ctx.pools[i];
        FUZZ_REQUIRE((pool.name[0] != '\0') == (i < ctx.poolCount));
        FUZZ_REQUIRE((pool.count > 0) == (i < ctx.poolCount) && pool.count <= suu_data_t::PartitionCount);
        for (unsigned member = 0; member < pool.count; ++member) {
            const uint8_t index = pool.members[member];
            FUZZ_REQUIRE(index < suu_data_t::PartitionCount && !isSeen[index]);
            FUZZ_REQUIRE(member == 0 || index > pool.members[member - 1]);
            FUZZ_REQUIRE(ZempFormat::text(ctx.data.partitions[index].name) == ZempFormat::text(pool.name));
            isSeen[index] = true;
        }
    }
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i)
        FUZZ_REQUIRE(isSeen[i] == (ctx.data.partitions[i].name[0] != '\0'));
}

// Lines for a terminal: whole ones, without control characters.
void checkReport(const suul_ctx_t& ctx) {
    writeSuuReport(ctx, [](const std::string& line) {
        FUZZ_REQUIRE(!line.empty() && line.size() <= LongestRow);
        FUZZ_REQUIRE(std::none_of(line.begin(), line.end(),
                                  [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }));
    });
}

bool isHeld(const suu_data_t& data, const std::string& name, uint8_t major, uint8_t minor, uint16_t build) {
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        const zemp_content_software_blob_t& software = data.contents[i].software;
        if (ZempFormat::text(data.partitions[i].name) == name && software.major == major &&
            software.minor == minor && software.build == build)
            return true;
    }
    return false;
}

// What a partition of the pool holds is installed, and nothing else; what is not is to be downloaded.
void checkAnswer(const SuuInfo& info, const suu_data_t& data, const std::string& name, uint8_t major,
                 uint8_t minor, uint16_t build) {
    const SuumBlob::Element element(2, name, 0, 0, "", "", "-", major, minor, build, 1, true);
    FUZZ_REQUIRE(info.isDownloadNeeded(&element) == !isHeld(data, name, major, minor, build));
    if (build < 256) {
        const auto lowBuild = static_cast<uint8_t>(build);
        FUZZ_REQUIRE(info.isCurrentContentPart(name, major, minor, lowBuild) ==
                     isHeld(data, name, major, minor, lowBuild));
    }
}

// Asks for the version of every partition, and for some that differ from it a little.
void checkAnswers(const SuuInfo& info, const suu_data_t& data) {
    for (unsigned i = 0; i < suu_data_t::PartitionCount; ++i) {
        const std::string name = ZempFormat::text(data.partitions[i].name);
        if (name.empty())
            continue;
        const zemp_content_software_blob_t software = data.contents[i].software;
        checkAnswer(info, data, name, software.major, software.minor, software.build);
        checkAnswer(info, data, name, software.major, software.minor, software.build ^ 0x100);
        checkAnswer(info, data, name, software.major, software.minor ^ 1, software.build);
        checkAnswer(info, data, name, software.major ^ 0x80, software.minor, software.build);
        checkAnswer(info, data, name + "x", software.major, software.minor, software.build);
    }
}

int load(const std::string& primary, const std::string& secondary, suul_ctx_t& ctx, hostconfig_t& hc) {
    options_t options = {};
    primary.copy(options.primary, sizeof options.primary - 1);
    secondary.copy(options.secondary, sizeof options.secondary - 1);
    return loadHostConfig(&options, &ctx, &hc);
}

// A backup helps when the record fails as a whole, not when one of its parts does.
void checkBackup(const std::string& path, bool isLoaded) {
    static fuzz::MemoryFile backup;
    static hostconfig_t hc;
    static suul_ctx_t ctx;
    static const bool isWritten = [] {
        const hostcfg::Bytes record = hostcfg::build({});
        backup.write(record.data(), record.size());
        return true;
    }();
    FUZZ_REQUIRE(isWritten);
    hostconfig_new(&hc, HostconfigMaximumSize);
    const bool isRecord = hostconfig_load_raw(&hc, path.c_str()) == 0;
    FUZZ_REQUIRE((load(path, backup.path(), ctx, hc) == 1) == (isLoaded || !isRecord));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    static hostconfig_t hc;
    static suul_ctx_t ctx;
    fuzz::quietLog(data, size);
    file.write(data, size);

    const bool isLoaded = load(file.path(), "", ctx, hc) == 1;
    const auto findings = hostcfg::check({data, data + size});
    FUZZ_REQUIRE(isLoaded == std::none_of(findings.begin(), findings.end(),
                                          [](const hostcfg::Finding& finding) { return finding.isError; }));
    SuuInfo::sPrimaryPath = file.path();
    SuuInfo::sSecondaryPath = "";
    SuuInfo info;
    FUZZ_REQUIRE(info.initialize() == isLoaded);
    checkBackup(file.path(), isLoaded);
    if (!isLoaded)
        return 0;
    FUZZ_REQUIRE(size >= HostconfigMinimumSize && size <= HostconfigMaximumSize);
    checkParts(hc, View(hc.raw, sizeof hc.raw));
    checkBody(hc, ctx);
    FUZZ_REQUIRE(suul_partpool_generate(&ctx) == 1);
    checkPools(ctx);
    checkReport(ctx);
    checkAnswers(info, ctx.data);
    info.logSuuInfo();
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    return fuzz::mutateContainer(data, size, maxSize, seed, fuzz::Layout::Record);
}
